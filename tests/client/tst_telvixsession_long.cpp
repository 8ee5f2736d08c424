// The session's timers at their real intervals: a server that stops
// answering keep-alives is noticed within 45 seconds while the application's
// heartbeat beats every 30 seconds, and a quiet desktop session stays up and
// runs its periodic data timer once in five minutes.
#include "fakectiserver.h"
#include "logbuscapture.h"
#include "simplexmlparser.h"
#include "telvix.h"

#include <QElapsedTimer>
#include <QScopedPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

// The five-minute test waits longer than QtTest's own guard of one function.
static const bool g_longerGuard
    = qEnvironmentVariableIsSet("QTEST_FUNCTION_TIMEOUT") || qputenv("QTEST_FUNCTION_TIMEOUT", "420000");

namespace {

/// A desktop client logged in to `server` with the real timers.
struct RealSession
{
    QTemporaryDir dir;
    QScopedPointer<Telvix> client;
    QElapsedTimer sinceLogin;

    bool logIn(FakeCtiServer& server)
    {
        server.setAutoLogin(true);
        if (!server.listen())
            return false;
        client.reset(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("long-test"),
                                QStringLiteral("1.0"), QStringLiteral("dev-long"), dir.path()));
        client->init();
        QSignalSpy logged(client.data(), &Telvix::loggedToServer);
        client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), QStringLiteral("default"),
                                TELVIX::AppModeSrntPro, FakeCtiServer::host(), server.port());
        if (!QTest::qWaitFor([&logged] { return !logged.isEmpty(); }, 10000))
            return false;
        sinceLogin.start();
        return true;
    }
    ~RealSession()
    {
        if (client && client->isRunning())
            client->shutdown();
    }
};

} // namespace

class TestTelvixSessionLong : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void silentServerIsNoticedWithin45Seconds();
    void quietDesktopSessionStaysAndRunsPeriodicDataEveryFiveMinutes();
};

void TestTelvixSessionLong::silentServerIsNoticedWithin45Seconds()
{
    FakeCtiServer server;
    RealSession session;
    LogbusCapture log;
    QVERIFY(session.logIn(server));
    Telvix* client = session.client.data();
    QSignalSpy gone(client, &Telvix::disconnectedFromServer);
    QSignalSpy beats(client, &Telvix::sigGuiKeepAlive);
    QVERIFY(client->enableGuiKeepAlive(true));

    // The first keep-alive comes 30 s after the login, and nobody answers it.
    const QString keepAlive = server.waitForFrame(QStringLiteral("KeepAlive"), 40000);
    QVERIFY(!keepAlive.isEmpty());
    const qint64 keepAliveAt = session.sinceLogin.elapsed();
    QVERIFY2(keepAliveAt >= 29000, qPrintable(QString::number(keepAliveAt)));
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(keepAlive, QStringLiteral("API")), QStringLiteral("6.1"));
    QTRY_VERIFY_WITH_TIMEOUT(!beats.isEmpty(), 10000);

    // 15 s later the session ends, 45 s after the last sign of life.
    QTRY_VERIFY_WITH_TIMEOUT(!gone.isEmpty(), 25000);
    const qint64 goneAt = session.sinceLogin.elapsed();
    QCOMPARE(gone.at(0).at(0).toString(), QStringLiteral("ConnectionTimeout"));
    QVERIFY2(goneAt >= keepAliveAt + 14000 && goneAt <= 46000, qPrintable(QString::number(goneAt)));
    QVERIFY(log.contains(100, "Connection timed-out: no ACK received to KeepAlive message"));
    QCOMPARE(server.framesContaining(QStringLiteral("KeepAlive")).size(), 1);
}

void TestTelvixSessionLong::quietDesktopSessionStaysAndRunsPeriodicDataEveryFiveMinutes()
{
    FakeCtiServer server;
    server.setAutoKeepAliveAck(true);
    RealSession session;
    LogbusCapture log;
    QVERIFY(session.logIn(server));
    QSignalSpy gone(session.client.data(), &Telvix::disconnectedFromServer);

    QVERIFY(QTest::qWaitFor([&log] { return log.contains(10000, "Current APP MODE: 1"); }, 320000));
    const qint64 ranAt = session.sinceLogin.elapsed();
    QVERIFY2(ranAt >= 299000, qPrintable(QString::number(ranAt)));
    QCOMPARE(log.count("Current APP MODE:"), 1);
    QCOMPARE(gone.count(), 0);
    QVERIFY(session.client->isConnected());
    // Answered keep-alives passed meanwhile, one every 30 s: the tenth is
    // due together with the periodic run.
    const int keepAlives = server.framesContaining(QStringLiteral("KeepAlive")).size();
    QVERIFY2(keepAlives >= 9 && keepAlives <= 10, qPrintable(QString::number(keepAlives)));
}

QTEST_GUILESS_MAIN(TestTelvixSessionLong)
#include "tst_telvixsession_long.moc"
