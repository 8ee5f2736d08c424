// Faults of the CTI session, one table played by one driver: connections cut
// at every stage, hostile and huge input, redirect loops and late answers.
// Each row checks the reported end (reason word and log line) or that the
// session survives, and that shutdown returns promptly afterwards.
#include "fakectiserver.h"
#include "logbuscapture.h"
#include "telvix.h"
#include "telvixtimers_p.h"

#include <QElapsedTimer>
#include <QScopedPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const int kBurst = 250000;
const int kRedirects = 40;

/// Runs a real event loop until `done` holds: QTRY_* sleeps between rounds
/// of events, which throttles a large send to a few records per round.
bool spinUntil(const std::function<bool()>& done, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    QEventLoop loop;
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout, &loop, [&] {
        if (done() || clock.elapsed() > timeoutMs)
            loop.quit();
    });
    tick.start(20);
    loop.exec();
    return done();
}

} // namespace

class TestSessionFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fault_data();
    void fault();
};

void TestSessionFaults::fault_data()
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

void TestSessionFaults::fault()
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
    QScopedPointer<Telvix> client(new Telvix("Linux", "6.1", "faults", "1.0", "dev-f", dir.path()));
    // Every timer of the session a hundred times shorter: a wait of a few
    // seconds outlasts each of them as a minute outlasts the real ones.
    TelvixTimerIntervals shortTimers;
    shortTimers.keepAliveMs = 300;
    shortTimers.keepAliveAckMs = 150;
    shortTimers.guiKeepAliveMs = 300;
    shortTimers.periodicDataMs = 3000;
    if (silence || late)
        setTelvixTimerIntervals(client.data(), shortTimers);
    QSignalSpy logged(client.data(), &Telvix::loggedToServer);
    QSignalSpy gone(client.data(), &Telvix::disconnectedFromServer);

    if (inHandshake)
        server.setTlsMode(FakeCtiServer::TlsMode::SilentHandshake);
    server.setAutoKeepAliveAck(!silence);
    server.setAutoLogin(!late && !redirects);
    QVERIFY(server.listen() && other.listen());
    QVERIFY(client->init());

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
        if (FakeCtiServer::hasElement(frame, "KeepAlive"))
            ++keepAlives;
    });
    if (fault.startsWith("reset") && !fault.contains("inside")) {
        server.resetClient(conn);
    } else if (fault.startsWith("close") && !fault.contains("inside")) {
        server.disconnectClient(conn);
    } else if (fault == "handshake never finishes") {
        // No timer guards a handshake: the session waits in Connecting.
        QTest::qWait(1000);
        QCOMPARE(client->getConnectionState(), int(Telvix::StateConnecting));
    } else if (fault.contains("inside") || fault.startsWith("unterminated")) {
        server.sendRaw(
            conn, fault.startsWith("unterminated") ? message.toUtf8().replace("</SRNT>", "<Probe") : half);
        QTRY_VERIFY(!server.isSending(conn));
        QTest::qWait(50); // the piece reaches the client before the cut
        if (fault.startsWith("reset"))
            server.resetClient(conn);
        else
            server.disconnectClient(conn);
    } else if (fault == "one 50 MB message") {
        // One probe carrying 50 MB: answered once it is all read.
        const QString pad = "<Pad>" + QString(50 * 1024 * 1024, QLatin1Char('x')) + "</Pad>";
        server.send(conn, FakeCtiServer::document("<Probe></Probe>" + pad, "6.1", "Info"));
        QVERIFY(spinUntil([&] { return keepAlives >= 1; }, 30000));
    } else if (fault == "burst of small messages") {
        // Probes are answered one by one: every message handled, in order.
        server.send(conn, message.repeated(kBurst));
        QVERIFY(spinUntil([&] { return keepAlives >= kBurst; }, 30000));
        QCOMPARE(keepAlives, kBurst);
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

    QElapsedTimer clock;
    clock.start();
    QVERIFY(client->shutdown());
    QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(gone.isEmpty());
}

QTEST_GUILESS_MAIN(TestSessionFaults)
#include "tst_sessionfaults.moc"
