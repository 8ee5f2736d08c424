// A desktop session left alone for five minutes, with the real timers: the
// answered keep-alives keep it up, and the periodic data timer runs once.
#include "fakectiserver.h"
#include "logbuscapture.h"
#include "telvix.h"

#include <QElapsedTimer>
#include <QScopedPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

// The one test function waits longer than QtTest's own five-minute guard.
static const bool g_longerGuard
    = qEnvironmentVariableIsSet("QTEST_FUNCTION_TIMEOUT") || qputenv("QTEST_FUNCTION_TIMEOUT", "420000");

class TestTelvixPeriodicLong : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void quietDesktopSessionStaysAndAsksForHistoryEveryFiveMinutes();
};

void TestTelvixPeriodicLong::quietDesktopSessionStaysAndAsksForHistoryEveryFiveMinutes()
{
    QTemporaryDir dir;
    FakeCtiServer server;
    server.setAutoLogin(true);
    server.setAutoKeepAliveAck(true);
    QVERIFY(server.listen());
    QScopedPointer<Telvix> client(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"),
                                             QStringLiteral("long-test"), QStringLiteral("1.0"),
                                             QStringLiteral("dev-long"), dir.path()));
    QVERIFY(client->init());
    LogbusCapture log;
    QSignalSpy logged(client.data(), &Telvix::loggedToServer);
    QSignalSpy gone(client.data(), &Telvix::disconnectedFromServer);
    client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), QStringLiteral("default"),
                            TELVIX::AppModeSrntPro, FakeCtiServer::host(), server.port());
    QVERIFY(logged.wait(10000));
    QElapsedTimer sinceLogin;
    sinceLogin.start();

    QVERIFY(QTest::qWaitFor([&log] { return log.contains(10000, "Current APP MODE: 1"); }, 320000));
    const qint64 ranAt = sinceLogin.elapsed();
    QVERIFY2(ranAt >= 299000, qPrintable(QString::number(ranAt)));
    QCOMPARE(log.count("Current APP MODE:"), 1);
    QCOMPARE(gone.count(), 0);
    QVERIFY(client->isConnected());
    // Answered keep-alives passed meanwhile, one every 30 s: the tenth is
    // due together with the periodic run.
    const int keepAlives = server.framesContaining(QStringLiteral("KeepAlive")).size();
    QVERIFY2(keepAlives >= 9 && keepAlives <= 10, qPrintable(QString::number(keepAlives)));
    QVERIFY(client->shutdown());
}

QTEST_GUILESS_MAIN(TestTelvixPeriodicLong)
#include "tst_telvixperiodic_long.moc"
