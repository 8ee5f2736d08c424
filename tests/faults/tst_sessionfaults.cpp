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

enum class Fault {
    ResetMidHandshake,
    CloseMidHandshake,
    HandshakeNeverEnds,
    ResetMidMessage,
    CloseMidMessage,
    ResetBetweenMessages,
    CloseBetweenMessages,
    UnterminatedTagThenClose,
    SilenceAfterLogin,
    HugeMessage,
    Burst,
    BadUtf8AndNul,
    RedirectPingPong,
    LateLoginAnswer,
};

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

Q_DECLARE_METATYPE(Fault)

class TestSessionFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fault_data();
    void fault();
};

void TestSessionFaults::fault_data()
{
    QTest::addColumn<Fault>("fault");
    // Expected reason of disconnectedFromServer; empty: the session lives on.
    QTest::addColumn<QString>("reason");
    QTest::addColumn<QString>("logLine");

    // A cut by the server, reset or orderly, at any stage is an unasked close.
    const QString closed = QStringLiteral("Unkown");
    const QString socketLine = QStringLiteral("Socket disconnected");
    QTest::newRow("reset in the TLS handshake") << Fault::ResetMidHandshake << closed << socketLine;
    QTest::newRow("close in the TLS handshake") << Fault::CloseMidHandshake << closed << socketLine;
    QTest::newRow("handshake never finishes") << Fault::HandshakeNeverEnds << QString() << QString();
    QTest::newRow("reset inside a message") << Fault::ResetMidMessage << closed << socketLine;
    QTest::newRow("close inside a message") << Fault::CloseMidMessage << closed << socketLine;
    QTest::newRow("reset between messages") << Fault::ResetBetweenMessages << closed << socketLine;
    QTest::newRow("close between messages") << Fault::CloseBetweenMessages << closed << socketLine;
    QTest::newRow("unterminated tag, then close") << Fault::UnterminatedTagThenClose << closed << socketLine;
    QTest::newRow("silence after login")
        << Fault::SilenceAfterLogin << QStringLiteral("ConnectionTimeout")
        << QStringLiteral("Connection timed-out: no ACK received to KeepAlive message");
    QTest::newRow("one 50 MB message") << Fault::HugeMessage << QString() << QString();
    QTest::newRow("burst of small messages") << Fault::Burst << QString() << QString();
    QTest::newRow("invalid UTF-8 and NUL bytes") << Fault::BadUtf8AndNul << QString() << QString();
    QTest::newRow("redirect ping-pong")
        << Fault::RedirectPingPong << QString() << QStringLiteral("Redirecting client to server IP");
    QTest::newRow("login answer long after every timer")
        << Fault::LateLoginAnswer << QString() << QStringLiteral("login succeded! exten:");
}

void TestSessionFaults::fault()
{
    QFETCH(Fault, fault);
    QFETCH(QString, reason);
    QFETCH(QString, logLine);

    LogbusCapture logs;
    QTemporaryDir dir;
    FakeCtiServer server, other;
    QScopedPointer<Telvix> client(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"),
                                             QStringLiteral("faults"), QStringLiteral("1.0"),
                                             QStringLiteral("dev-f"), dir.path()));
    // Every timer of the session a hundred times shorter: a wait of a few
    // seconds outlasts each of them as a minute outlasts the real ones.
    TelvixTimerIntervals shortTimers;
    shortTimers.keepAliveMs = 300;
    shortTimers.keepAliveAckMs = 150;
    shortTimers.guiKeepAliveMs = 300;
    shortTimers.periodicDataMs = 3000;
    if (fault == Fault::SilenceAfterLogin || fault == Fault::LateLoginAnswer)
        setTelvixTimerIntervals(client.data(), shortTimers);
    QSignalSpy logged(client.data(), &Telvix::loggedToServer);
    QSignalSpy gone(client.data(), &Telvix::disconnectedFromServer);

    const bool inHandshake = fault == Fault::ResetMidHandshake || fault == Fault::CloseMidHandshake
        || fault == Fault::HandshakeNeverEnds;
    if (inHandshake)
        server.setTlsMode(FakeCtiServer::TlsMode::SilentHandshake);
    if (fault != Fault::SilenceAfterLogin)
        server.setAutoKeepAliveAck(true);
    if (fault != Fault::LateLoginAnswer && fault != Fault::RedirectPingPong)
        server.setAutoLogin(true);
    QVERIFY(server.listen() && other.listen());
    QVERIFY(client->init());

    // Redirects bounce between the two servers until the last Login, which
    // the second server accepts.
    int redirects = 0;
    const auto bounce = [&redirects](FakeCtiServer* to) {
        return [&redirects, to](int, const QString&) {
            ++redirects;
            return redirects < kRedirects ? FakeCtiServer::redirectDocument(FakeCtiServer::host(), to->port())
                                          : FakeCtiServer::loginAnswerDocument(FakeCtiServer::LoginAnswer());
        };
    };
    if (fault == Fault::RedirectPingPong) {
        server.setResponder(QStringLiteral("Login"), bounce(&other));
        other.setResponder(QStringLiteral("Login"), bounce(&server));
    }
    client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), QStringLiteral("default"),
                            TELVIX::AppModeSrntPro, FakeCtiServer::host(), server.port());
    if (inHandshake)
        QTRY_VERIFY(!server.receivedBytes(0).isEmpty()); // the ClientHello is in
    else if (fault == Fault::LateLoginAnswer)
        QVERIFY(!server.waitForFrame(QStringLiteral("Login")).isEmpty());
    else
        QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 10000);
    const int conn = server.lastConnection();

    const QString message = FakeCtiServer::probeDocument();
    const QByteArray half = message.toUtf8().left(message.size() / 2);
    int keepAlives = 0;
    connect(&server, &FakeCtiServer::frameReceived, this, [&keepAlives](int, const QString& frame) {
        if (FakeCtiServer::hasElement(frame, QStringLiteral("KeepAlive")))
            ++keepAlives;
    });
    switch (fault) {
    case Fault::ResetMidHandshake:
    case Fault::ResetBetweenMessages:
        server.resetClient(conn);
        break;
    case Fault::CloseMidHandshake:
    case Fault::CloseBetweenMessages:
        server.disconnectClient(conn);
        break;
    case Fault::HandshakeNeverEnds:
        // No timer guards a handshake: the session waits in Connecting.
        QTest::qWait(1000);
        QCOMPARE(client->getConnectionState(), int(Telvix::StateConnecting));
        break;
    case Fault::ResetMidMessage:
    case Fault::CloseMidMessage:
    case Fault::UnterminatedTagThenClose:
        server.sendRaw(
            conn,
            fault == Fault::UnterminatedTagThenClose ? message.toUtf8().replace("</SRNT>", "<Probe") : half);
        QTRY_VERIFY(!server.isSending(conn));
        QTest::qWait(50); // the piece reaches the client before the cut
        if (fault == Fault::ResetMidMessage)
            server.resetClient(conn);
        else
            server.disconnectClient(conn);
        break;
    case Fault::SilenceAfterLogin:
        break;
    case Fault::HugeMessage: {
        // One probe carrying 50 MB: answered once it is all read.
        const QString pad = QStringLiteral("<Pad>") + QString(50 * 1024 * 1024, QLatin1Char('x'))
            + QStringLiteral("</Pad>");
        server.send(conn,
                    FakeCtiServer::document(QStringLiteral("<Probe></Probe>") + pad, QStringLiteral("6.1"),
                                            QStringLiteral("Info")));
        QVERIFY(spinUntil([&] { return keepAlives >= 1; }, 30000));
        break;
    }
    case Fault::Burst: {
        // Probes are answered one by one: every message handled, in order.
        QString all;
        all.reserve(kBurst * message.size());
        for (int i = 0; i < kBurst; ++i)
            all += message;
        server.send(conn, all);
        QVERIFY(spinUntil([&] { return keepAlives >= kBurst; }, 30000));
        QCOMPARE(keepAlives, kBurst);
        break;
    }
    case Fault::BadUtf8AndNul: {
        QByteArray bad = message.toUtf8();
        bad.replace("<Probe>", QByteArray("<Probe>\xff\xfe\xc3\x28\x00x\x00\xed\xa0\x80", 16));
        server.sendRaw(conn, bad + message.toUtf8());
        QTRY_COMPARE(keepAlives, 2);
        break;
    }
    case Fault::RedirectPingPong:
        QCOMPARE(redirects, kRedirects);
        // Each abandoned connection is closed by the client.
        QTRY_COMPARE(server.openConnectionCount() + other.openConnectionCount(), 1);
        QCOMPARE(server.connectionCount() + other.connectionCount(), kRedirects);
        break;
    case Fault::LateLoginAnswer:
        QTest::qWait(3000);
        QVERIFY(logged.isEmpty() && gone.isEmpty());
        server.send(conn, FakeCtiServer::loginAnswerDocument(FakeCtiServer::LoginAnswer()));
        QTRY_VERIFY(!logged.isEmpty());
        break;
    }

    if (reason.isEmpty()) {
        QVERIFY(gone.isEmpty());
    } else {
        QTRY_VERIFY_WITH_TIMEOUT(!gone.isEmpty(), 10000);
        QCOMPARE(gone.takeFirst().at(0).toString(), reason);
        QCOMPARE(client->getConnectionState(), int(Telvix::StateDisconnected));
    }
    if (!logLine.isEmpty())
        QVERIFY(logs.waitFor(logLine));

    QElapsedTimer clock;
    clock.start();
    QVERIFY(client->shutdown());
    QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(gone.isEmpty());
}

QTEST_GUILESS_MAIN(TestSessionFaults)
#include "tst_sessionfaults.moc"
