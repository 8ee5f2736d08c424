// The fault matrix, each table played by one driver: the CTI session (cuts at
// every stage, hostile and huge input, redirect loops, late answers), a
// download's side connection, the local server, the call-history store, the
// chat server, and shutdown with everything in flight. Each row checks the
// reported end or that the session survives, and that shutdown returns
// within 2 s.
#include "callevents.h"
#include "cdrmessages.h"
#include "directorymessages.h"
#include "downloadmessages.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "persistencesqlite.h"
#include "prosodyserver.h"
#include "sarnetdownloader.h"
#include "simplexmlparser.h"
#include "telvix_p.h"
#include "telvixtimers_p.h"
#include "utils.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <csignal>
#include <cstdio>
#include <memory>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

const int kEarlierRows = 3;
const int kAddedRows = 200;
const int kCalls = 3000;
// A million in one burst; the sanitizer build, ten times slower per message,
// checks the same path for leaks and memory errors with fewer.
#if defined(__SANITIZE_ADDRESS__)
const int kBurst = 150000;
#else
const int kBurst = 1000000;
#endif
const int kRedirects = 40;

std::unique_ptr<Telvix> newClient(const QString& dataDir, bool shortTimers = false)
{
    auto client = std::make_unique<Telvix>("Linux", "6.1", "faults", "1.0", "dev-f", dataDir);
    // Every timer of the session a hundred times shorter: a wait of a few
    // seconds outlasts each of them as a minute outlasts the real ones.
    if (shortTimers)
        setTelvixTimerIntervals(client.get(), TelvixTimerIntervals {300, 150, 300, 3000});
    return client->init() ? std::move(client) : nullptr;
}

/// Runs a real event loop until `done` holds: QTRY_* sleeps between rounds
/// of events, which throttles a large send to a few records per round. It
/// gives up after `stallMs` without a change of `progress` (when given), so
/// that a slow build still passes while a stuck session fails.
bool spinUntil(const std::function<bool()>& done, int stallMs,
               const std::function<qint64()>& progress = nullptr)
{
    QElapsedTimer clock;
    clock.start();
    qint64 seen = progress ? progress() : 0;
    QEventLoop loop;
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout, &loop, [&] {
        if (progress && progress() != seen) {
            seen = progress();
            clock.restart();
        }
        if (done() || clock.elapsed() > stallMs)
            loop.quit();
    });
    tick.start(20);
    loop.exec();
    return done();
}

void verifyQuickShutdown(Telvix* client)
{
    QElapsedTimer clock;
    clock.start();
    QVERIFY(client->shutdown());
    QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
}

QString authToken()
{
    return CallEvents::wrap("AuthToken",
                            CallEvents::element("Token", "t")
                                + CallEvents::element("ValidUntil", "2026-12-01 10:30:00"));
}

int entryCount(const QString& dir, QDir::Filters filters = QDir::Files | QDir::Hidden)
{
    return QDir(dir).entryList(filters | QDir::NoDotAndDotDot).size();
}

/// Resident memory of the process so far at its peak, in kB.
qint64 peakResidentKb()
{
    QFile status("/proc/self/status");
    const QByteArray text = status.open(QIODevice::ReadOnly) ? status.readAll() : QByteArray();
    return text.mid(text.indexOf("VmHWM:") + 6).trimmed().split(' ').first().toLongLong();
}

Cdr history(int first, int count, int nameLength)
{
    Cdr cdr;
    for (int i = first; i < first + count; ++i) {
        CdrEntry e;
        e.entryUid = QString::number(i);
        e.callId = QStringLiteral("call-%1").arg(i);
        e.caller = "200";
        e.callee = "300";
        e.callerName = QString(nameLength, QLatin1Char('n'));
        e.direction = 2;
        e.status = 8;
        e.startTime = QDateTime::currentDateTime().toString(TELVIX::IsoDateNoTz);
        cdr.append(e);
    }
    return cdr;
}

/// At API 5.2 the chat settings come with the login answer.
void chatOnLogin(LoggedInClient& session, quint16 port)
{
    session.setBeforeLogin([&session, port](Telvix*) {
        FakeCtiServer::LoginAnswer answer = session.server().loginAnswer();
        answer.chatId = "alice@default";
        answer.chatPort = QString::number(port);
        session.server().setLoginAnswer(answer);
    });
}

int storedRows(const QString& db)
{
    PersistenceSqlite store(db, "200");
    return store.readCdr() ? store.cdr().size() : -1;
}

/// The child of a store fault: meets the fault (so that a file size limit or
/// a dropped privilege stays its own), reads the history, adds a large one
/// and closes, printing the row count it read and the log lines of the store.
int storeWriter(const QString& db, const QByteArray& fault)
{
    if (fault == "disk full") {
        std::signal(SIGXFSZ, SIG_IGN); // writes past the limit fail with EFBIG instead
        const rlim_t size = rlim_t(QFileInfo(db).size() + 16 * 1024);
        const rlimit limit {size, size};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    if (fault == "read-only" && geteuid() == 0) {
        // Root writes anywhere: without the capabilities that let it pass
        // over file modes it meets them as an ordinary user would. (Changing
        // the user instead would hide /proc/self from LeakSanitizer.)
        __user_cap_header_struct header {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct caps[2] {};
        if (syscall(SYS_capget, &header, caps) != 0)
            return 3;
        for (const int cap : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER})
            caps[cap >> 5].effective &= ~(1u << (cap & 31));
        if (syscall(SYS_capset, &header, caps) != 0)
            return 3;
    }
    LogbusCapture logs;
    {
        PersistenceSqlite store(db, "200");
        std::printf("read %d\n", store.readCdr() ? int(store.cdr().size()) : -1);
        store.writeCdr(history(5000, kAddedRows, 2000));
        store.close();
    }
    for (const QString& line : logs.texts())
        std::printf("log %s\n", qPrintable(line));
    return 0;
}

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sessionFault_data();
    void sessionFault();
    void downloadFault_data();
    void downloadFault();
    void localServerFault_data();
    void localServerFault();
    void storeFault_data();
    void storeFault();
    void chatServerKilledAndRestarted();
    void shutdownWithEverythingInFlight();
};

void TestFaults::sessionFault_data()
{
    // Expected reason of disconnectedFromServer; empty: the session lives on.
    QTest::addColumn<QString>("reason");
    QTest::addColumn<QString>("logLine");
    // A cut by the server, reset or orderly, at any stage is an unasked close.
    for (const char* cut : {"reset in the TLS handshake", "close in the TLS handshake",
                            "reset inside a message", "close inside a message", "reset between messages",
                            "close between messages", "unterminated tag, then close"})
        QTest::newRow(cut) << "Unkown"
                           << "Socket disconnected";
    QTest::newRow("handshake never finishes") << QString() << QString();
    QTest::newRow("silence after login") << "ConnectionTimeout"
                                         << "Connection timed-out: no ACK received to KeepAlive message";
    QTest::newRow("one 50 MB message") << QString() << QString();
    QTest::newRow("burst of small messages") << QString() << QString();
    QTest::newRow("invalid UTF-8 and NUL bytes") << QString() << QString();
    QTest::newRow("redirect ping-pong") << QString() << "Redirecting client to server IP";
    QTest::newRow("login answer long after every timer") << QString() << "login succeded! exten:";
}

void TestFaults::sessionFault()
{
    QFETCH(QString, reason);
    QFETCH(QString, logLine);
    const QString fault = QTest::currentDataTag();
    const bool silence = fault == "silence after login",
               late = fault == "login answer long after every timer";
    const bool inHandshake = fault.contains("handshake"), redirects = fault == "redirect ping-pong";

    LogbusCapture logs;
    QTemporaryDir dir;
    FakeCtiServer server, other;
    std::unique_ptr<Telvix> client = newClient(dir.path(), silence || late);
    QVERIFY(client);
    QSignalSpy logged(client.get(), &Telvix::loggedToServer);
    QSignalSpy gone(client.get(), &Telvix::disconnectedFromServer);

    server.setTlsMode(inHandshake ? FakeCtiServer::TlsMode::SilentHandshake : FakeCtiServer::TlsMode::Normal);
    server.setAutoKeepAliveAck(!silence);
    server.setAutoLogin(!late && !redirects);
    QVERIFY(server.listen() && other.listen());

    // Redirects bounce between the two servers until the last Login, which
    // the second server accepts.
    int redirected = 0;
    const auto bounce = [&redirected](FakeCtiServer* to) {
        return [&redirected, to](int, const QString&) {
            return ++redirected < kRedirects
                ? FakeCtiServer::redirectDocument(FakeCtiServer::host(), to->port())
                : FakeCtiServer::loginAnswerDocument(FakeCtiServer::LoginAnswer());
        };
    };
    if (redirects) {
        server.setResponder("Login", bounce(&other));
        other.setResponder("Login", bounce(&server));
    }
    client->connectToServer("alice", "secret", "default", TELVIX::AppModeSrntPro, FakeCtiServer::host(),
                            server.port());
    if (inHandshake)
        QTRY_VERIFY(!server.receivedBytes(0).isEmpty()); // the ClientHello is in
    else if (late)
        QVERIFY(!server.waitForFrame("Login").isEmpty());
    else
        QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 10000);
    const int conn = server.lastConnection();

    const QString message = FakeCtiServer::probeDocument();
    const QByteArray half = message.toUtf8().left(message.size() / 2);
    int keepAlives = 0;
    connect(&server, &FakeCtiServer::frameReceived, this, [&keepAlives](int, const QString& frame) {
        keepAlives += FakeCtiServer::hasElement(frame, "KeepAlive");
    });
    if (!reason.isEmpty() && !silence) {
        if (fault.contains("inside") || fault.startsWith("unterminated")) {
            server.sendRaw(conn,
                           fault.startsWith("unterminated") ? message.toUtf8().replace("</SRNT>", "<Probe")
                                                            : half);
            QTRY_VERIFY(!server.isSending(conn));
            QTest::qWait(50); // the piece reaches the client before the cut
        }
        fault.startsWith("reset") ? server.resetClient(conn) : server.disconnectClient(conn);
    } else if (fault == "handshake never finishes") {
        // No timer guards a handshake: the session waits in Connecting.
        QTest::qWait(1000);
        QCOMPARE(client->getConnectionState(), int(Telvix::StateConnecting));
    } else if (fault == "one 50 MB message") {
        // One probe carrying 50 MB: answered once it is all read.
        const QString pad = "<Pad>" + QString(50 * 1024 * 1024, QLatin1Char('x')) + "</Pad>";
        server.send(conn, FakeCtiServer::document("<Probe></Probe>" + pad, "6.1", "Info"));
        QVERIFY(spinUntil([&] { return keepAlives >= 1; }, 30000));
    } else if (fault == "burst of small messages") {
        // Probes are answered one by one: every message handled, in order.
        QElapsedTimer clock;
        clock.start();
        server.send(conn, message.repeated(kBurst));
        QVERIFY(spinUntil([&] { return keepAlives >= kBurst; }, 10000, [&] { return qint64(keepAlives); }));
        // None twice: beside the answers, only the session's own keep-alive,
        // one every 30 s.
        QVERIFY2(keepAlives <= kBurst + 1 + clock.elapsed() / TelvixTimerIntervals().keepAliveMs,
                 qPrintable(QString::number(keepAlives)));
    } else if (fault == "invalid UTF-8 and NUL bytes") {
        QByteArray bad = message.toUtf8();
        bad.replace("<Probe>", QByteArray("<Probe>\xff\xfe\xc3\x28\x00x\x00\xed\xa0\x80", 16));
        server.sendRaw(conn, bad + message.toUtf8());
        QTRY_COMPARE(keepAlives, 2);
    } else if (redirects) {
        QCOMPARE(redirected, kRedirects);
        // Each abandoned connection is closed by the client.
        QTRY_COMPARE(server.openConnectionCount() + other.openConnectionCount(), 1);
        QCOMPARE(server.connectionCount() + other.connectionCount(), kRedirects);
    } else if (late) {
        QTest::qWait(3000);
        QVERIFY(logged.isEmpty() && gone.isEmpty());
        server.send(conn, FakeCtiServer::loginAnswerDocument(FakeCtiServer::LoginAnswer()));
        QTRY_VERIFY(!logged.isEmpty());
    }

    if (reason.isEmpty()) {
        QVERIFY(gone.isEmpty());
    } else {
        QTRY_VERIFY_WITH_TIMEOUT(!gone.isEmpty(), 10000);
        QCOMPARE(gone.takeFirst().at(0).toString(), reason);
        QCOMPARE(client->getConnectionState(), int(Telvix::StateDisconnected));
    }
    QVERIFY(logLine.isEmpty() || logs.waitFor(logLine));
    verifyQuickShutdown(client.get());
    QVERIFY(gone.isEmpty());
}

void TestFaults::downloadFault_data()
{
    QTest::addColumn<QString>("logLine"); // empty: a hang-up is not logged
    QTest::newRow("truncated") << QString();
    QTest::newRow("one byte a second") << QString();
    QTest::newRow("wrong checksum") << "Invalid voicemail download message";
}

// None gives a file or a completion; the downloader and its connection go
// away with the fault, or with shutdown at the latest.
void TestFaults::downloadFault()
{
    QFETCH(QString, logLine);
    const QString fault = QTest::currentDataTag();
    LogbusCapture logs;
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    FakeCtiServer& server = app.server();
    server.setChunkInterval(1000);
    server.setResponder("DownloadVoicemailMsg", [&server, fault](int conn, const QString& frame) {
        VoicemailDownloadResMsg msg;
        msg.audioFile.id = SimpleXmlParser::getTagValue(frame, "ID");
        msg.audioFile.uuid = "uuid-" + msg.audioFile.id;
        msg.audioFile.data = QByteArray(60 + 65 * 50, 'h');
        msg.audioFile.md5
            = Utils::md5sum(fault == "wrong checksum" ? QByteArray("other") : msg.audioFile.data);
        const QString answer = FakeCtiServer::document(msg.generateXmlMessageBody());
        if (fault == "truncated") {
            server.sendRaw(conn, answer.toUtf8().left(answer.size() / 2));
            server.disconnectClient(conn);
        } else if (fault == "one byte a second") {
            server.sendInChunks(conn, answer, 1);
        }
        return fault == "wrong checksum" ? answer : QString();
    });
    QTemporaryDir folder;
    QSignalSpy completed(app.client(), &Telvix::sigVoicemailDownloadCompleted);
    QVERIFY(app.client()->downloadVoicemailMessage("7", "uuid-7", folder.path()));
    QTRY_COMPARE(app.framesWith(QStringLiteral("GetAuthToken")).size(), 1);
    QVERIFY(app.deliver(authToken()));
    int conn = -1;
    QVERIFY(!server.waitForFrame("DownloadVoicemailMsg", 5000, &conn).isEmpty());

    TelvixPrivate* d = TelvixPrivate::get(app.client());
    QList<QPointer<SarnetDownloader>> alive;
    app.onLibraryThread([&] {
        for (SarnetDownloader* downloader : d->downloaders + d->runningDownloaders)
            alive << downloader;
    });
    const auto allGone
        = [&alive] { return std::all_of(alive.cbegin(), alive.cend(), [](auto& p) { return p.isNull(); }); };
    if (fault == "one byte a second") {
        // No time-out guards a download: it waits for the bytes as they come.
        QTest::qWait(3000);
        QVERIFY(server.isConnected(conn) && server.isSending(conn));
    } else {
        QTRY_VERIFY(!server.isConnected(conn));
        QTRY_VERIFY(allGone());
    }
    QVERIFY(logLine.isEmpty() || logs.waitFor(logLine));
    QCOMPARE(completed.count(), 0);
    QCOMPARE(entryCount(folder.path()), 0);
    verifyQuickShutdown(app.client());
    QVERIFY(allGone());
    QTRY_COMPARE(server.openConnectionCount(), 0);
}

void TestFaults::localServerFault_data()
{
    QTest::addColumn<QString>("logLine");
    QTest::newRow("garbage") << "Unknown message received from GUI socket:";
    QTest::newRow("a 100 MB line") << "Unknown message received from GUI socket:";
    QTest::newRow("a thousand connections") << "New client connected to local socket";
}

// After each, a new application still gets the library's messages, and the
// process holds no more sockets or memory than the fault's own share.
void TestFaults::localServerFault()
{
    QFETCH(QString, logLine);
    const QString fault = QTest::currentDataTag();
    QTemporaryDir dir;
    std::unique_ptr<Telvix> client = newClient(dir.path());
    QVERIFY(client);
    const quint16 port = quint16(client->initTcpServer());
    QVERIFY(port > 0);
    client->enableGuiKeepAlive(true); // the heartbeat is what reaches the application
    auto logs = std::make_unique<LogbusCapture>();
    const auto descriptors = [] { return entryCount("/proc/self/fd", QDir::System); };
    const int descriptorsBefore = descriptors();
    const qint64 peakBefore = peakResidentKb();

    QTcpSocket app;
    app.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(app.waitForConnected(5000));
    if (fault == "garbage") {
        app.write(QByteArray("\xff\xfe<SRNT><API>\x00\xc3\x28</SRNT><Keep", 28) + QByteArray(4096, '\x01'));
    } else if (fault == "a 100 MB line") {
        // Written a megabyte at a time, as fast as the library reads.
        logs.reset(); // the capture would hold the whole line
        for (int i = 0; i < 100; ++i) {
            app.write(QByteArray(1024 * 1024, 'x'));
            while (app.bytesToWrite() > 0)
                QVERIFY(app.waitForBytesWritten(5000));
        }
        app.write("\n");
        QVERIFY(app.waitForBytesWritten(5000));
        logs.reset(new LogbusCapture);
        app.write("garbage behind the line");
    } else {
        for (int i = 0; i < 1000; ++i) {
            QTcpSocket passer;
            passer.connectToHost(QHostAddress::LocalHost, port);
            QVERIFY(passer.waitForConnected(5000));
            passer.disconnectFromHost();
        }
    }
    QVERIFY(app.bytesToWrite() == 0 || app.waitForBytesWritten(5000));
    QVERIFY(logs->waitFor(logLine));

    // A late disconnection of an earlier application drops the current
    // client by design, so the new one may take a second try.
    app.abort();
    const auto served = [&client, port] {
        QTcpSocket next;
        next.connectToHost(QHostAddress::LocalHost, port);
        if (!next.waitForConnected(5000))
            return false;
        QTest::qWait(100); // the library takes it as its client
        client->requestGuiKeepAlive();
        QByteArray got;
        while (!got.contains("<KeepAlive") && next.waitForReadyRead(1000))
            got += next.readAll();
        return got.contains("<KeepAlive");
    };
    QVERIFY(served() || served());
    QTRY_VERIFY2(descriptors() <= descriptorsBefore + 2,
                 qPrintable(QStringLiteral("%1 -> %2").arg(descriptorsBefore).arg(descriptors())));
    const qint64 grown = peakResidentKb() - peakBefore;
    QVERIFY2(grown < 64 * 1024, qPrintable(QStringLiteral("peak grew by %1 kB").arg(grown)));
    const QFileInfo log(dir.path() + "/clientSocketManager.log");
    QVERIFY2(log.size() < 8 * 1024 * 1024, qPrintable(QString::number(log.size())));
    verifyQuickShutdown(client.get());
}

void TestFaults::storeFault_data()
{
    QTest::addColumn<int>("readByWriter"); // -1: the store cannot be read
    QTest::addColumn<int>("survivors"); // rows the next open finds
    QTest::addColumn<QString>("logLine");
    // A damaged file is set aside: the writer starts empty and what it adds is kept.
    QTest::newRow("corrupt") << 0 << kAddedRows << " is damaged (";
    QTest::newRow("truncated") << 0 << kAddedRows << " is damaged (";
    QTest::newRow("read-only") << kEarlierRows << kEarlierRows << "Unable to encrypt";
    QTest::newRow("disk full") << kEarlierRows << kEarlierRows
                               << "Error storing entries into SQLite db... user:";
}

// cdr.db corrupt, truncated, read-only, or the disk full while it is written:
// the writer must end normally, and the next open finds the previous
// complete history wherever the file was sound.
void TestFaults::storeFault()
{
    QFETCH(int, readByWriter);
    QFETCH(int, survivors);
    QFETCH(QString, logLine);
    const QString fault = QTest::currentDataTag();
    QTemporaryDir dir;
    const QString home = dir.filePath("home"), tmp = dir.filePath("tmp");
    QVERIFY(QDir().mkpath(home) && QDir().mkpath(tmp));
    qputenv("TMPDIR", tmp.toLocal8Bit());
    const QString db = home + "/cdr.db";
    QVERIFY(PersistenceSqlite(db, "200").writeCdr(history(1, kEarlierRows, 10)));
    QCOMPARE(storedRows(db), kEarlierRows);

    QFile file(db);
    const qint64 size = file.size();
    if (fault == "corrupt") {
        QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(size / 4));
        file.write(QByteArray(int(size / 2), '\xa5'));
        file.close();
    } else if (fault == "truncated") {
        QVERIFY(file.resize(size / 3));
    } else if (fault == "read-only") {
        // An ordinary user may pass through, read, and write the working copy
        // only (Qt's masks: owner, user, group, other in hex digits).
        for (const auto& [path, mask] :
             {qMakePair(dir.path(), 0x7005), {home, 0x5005}, {db, 0x4004}, {tmp, 0x7777}})
            QFile::setPermissions(path, QFile::Permissions(mask));
    }

    QProcess child;
    child.setProcessChannelMode(QProcess::MergedChannels); // the Qt log too
    child.start(QCoreApplication::applicationFilePath(), {"--write", db, fault});
    QVERIFY(child.waitForFinished(30000));
    const QString out = QString::fromLocal8Bit(child.readAllStandardOutput());
    QCOMPARE(child.exitStatus(), QProcess::NormalExit);
    QVERIFY2(child.exitCode() == 0, qPrintable(out));
    QVERIFY2(out.contains(QStringLiteral("read %1\n").arg(readByWriter)), qPrintable(out.left(2000)));
    QVERIFY2(out.contains(logLine), qPrintable(out.left(4000)));

    QFile::setPermissions(home, QFile::Permissions(0x7000));
    QFile::setPermissions(db, QFile::Permissions(0x6000));
    QCOMPARE(storedRows(db), survivors);
    // No plain copy of the history is left behind in the clear.
    QCOMPARE(entryCount(tmp), 0);
    qunsetenv("TMPDIR");
}

// The chat server killed (SIGKILL) and started again while a session chats:
// the client reports the disconnection with a reason other than
// "UserRequest" and reconnects by itself once the server is back.
void TestFaults::chatServerKilledAndRestarted()
{
    if (!ProsodyServer::isInstalled())
        QSKIP("prosody is not installed");
    ProsodyServer prosody;
    prosody.addUser("alice", "secret");
    QVERIFY2(prosody.start(), qPrintable(prosody.errorString()));

    LoggedInClient session(TELVIX::AppModeSrntPro, "5.2");
    chatOnLogin(session, prosody.port());
    QVERIFY(session.start());
    QSignalSpy connected(session.client(), &Telvix::sigChatConnected);
    QSignalSpy disconnected(session.client(), &Telvix::sigChatDisconnected);
    BuddiesRespMsg buddies;
    buddies.buddies = {BuddyEntry()};
    buddies.buddies[0].exten = "200";
    buddies.buddies[0].chatId = "alice@default";
    QVERIFY(session.deliver(buddies.generateXmlMessageBody()));
    QTRY_VERIFY_WITH_TIMEOUT(connected.count() == 1, 10000);

    LogbusCapture log;
    QVERIFY(prosody.kill());
    QTRY_VERIFY_WITH_TIMEOUT(!disconnected.isEmpty(), 10000);
    QVERIFY(disconnected.at(0).at(0).toString() != QLatin1String("UserRequest"));
    // A refusal is retried at once; with the server still down, the fixed
    // delay follows that second failure. The server comes back only then.
    QVERIFY(log.waitFor(" requesting to reconnect in 3secs...", 15000));
    QVERIFY2(prosody.restart(), qPrintable(prosody.errorString()));
    // Back within the fixed reconnection delay and a handshake.
    QTRY_VERIFY_WITH_TIMEOUT(connected.count() == 2, 15000);
    verifyQuickShutdown(session.client());
}

// One session with a chat connection stuck before its stream opens, a
// download trickling in and a large call history on its way into the store;
// a second session whose login is never answered. Each shutdown leaves no
// connection open and no plain copy of the store behind, and loses no
// history it acknowledged.
void TestFaults::shutdownWithEverythingInFlight()
{
    QTemporaryDir dataDir, tmp, folder, otherDir;
    qputenv("TMPDIR", tmp.path().toLocal8Bit());
    // A chat server that takes the connection and never says a word.
    QTcpServer chat;
    QVERIFY(chat.listen(QHostAddress::LocalHost));
    LoggedInClient busy(TELVIX::AppModeSrntPro, "5.2");
    busy.setDataDir(dataDir.path());
    chatOnLogin(busy, chat.serverPort());
    FakeCtiServer& server = busy.server();
    FakeCtiServer mute;
    server.setChunkInterval(1000);
    server.setResponder("DownloadVoicemailMsg", [&server](int conn, const QString&) {
        server.sendInChunks(conn, FakeCtiServer::document("<VoicemailMsg/>"), 1);
        return QString();
    });
    std::unique_ptr<Telvix> waiting = newClient(otherDir.path());
    QVERIFY(waiting && busy.start() && mute.listen());
    const int conn = busy.connection();
    QTRY_VERIFY_WITH_TIMEOUT(chat.hasPendingConnections(), 10000);

    QVERIFY(busy.client()->downloadVoicemailMessage("7", "uuid-7", folder.path()));
    QVERIFY(!server.waitForFrame("GetAuthToken").isEmpty());
    server.send(conn, FakeCtiServer::document(authToken()));
    QVERIFY(!server.waitForFrame("DownloadVoicemailMsg", 5000).isEmpty());

    CdrRespMsg calls;
    calls.cdr = history(100000, kCalls, 0);
    const QString callList = FakeCtiServer::document(calls.generateXmlMessageBody());
    server.send(conn, callList);

    waiting->connectToServer("alice", "secret", "default", TELVIX::AppModeSrntPro, FakeCtiServer::host(),
                             mute.port());
    QVERIFY(!mute.waitForFrame("Login").isEmpty());

    verifyQuickShutdown(busy.client());
    verifyQuickShutdown(waiting.get());
    QTRY_COMPARE(server.openConnectionCount(), 0);
    QTRY_COMPARE(mute.openConnectionCount(), 0);
    QCOMPARE(entryCount(folder.path(), QDir::Files), 0);
    QCOMPARE(entryCount(tmp.path()), 0);
    // History the client acknowledged is in the store; unacknowledged history
    // the server sends again.
    const bool acked = !server.framesContaining("MsgAck").filter(FakeCtiServer::uuidOf(callList)).isEmpty();
    PersistenceSqlite store(dataDir.filePath("cdr.db"), "200");
    QVERIFY(store.readCdr());
    QVERIFY(!acked || store.cdr().size() == kCalls);
    qunsetenv("TMPDIR");
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 4 && qstrcmp(argv[1], "--write") == 0)
        return storeWriter(QString::fromLocal8Bit(argv[2]), argv[3]);
    TestFaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults.moc"
