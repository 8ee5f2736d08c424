// The session's timers at their real intervals: a server that stops
// answering keep-alives is noticed within 45 seconds while the application's
// heartbeat beats every 30 seconds, and a quiet desktop session stays up and
// runs its periodic data timer once in five minutes.
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "simplexmlparser.h"
#include "telvix.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>

// The five-minute test waits longer than QtTest's own guard of one function.
static const bool g_longerGuard
    = qEnvironmentVariableIsSet("QTEST_FUNCTION_TIMEOUT") || qputenv("QTEST_FUNCTION_TIMEOUT", "420000");

class TestTelvixSessionLong : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void silentServerIsNoticedWithin45Seconds()
    {
        LogbusCapture log;
        LoggedInClient s(TELVIX::AppModeSrntPro);
        QVERIFY(s.start());
        QElapsedTimer sinceLogin;
        sinceLogin.start();
        s.server().setAutoKeepAliveAck(false);
        QSignalSpy gone(s.client(), &Telvix::disconnectedFromServer);
        QSignalSpy beats(s.client(), &Telvix::sigGuiKeepAlive);
        QVERIFY(s.client()->enableGuiKeepAlive(true));

        // The first keep-alive comes 30 s after the login, and nobody answers it.
        const QString keepAlive = s.server().waitForFrame("KeepAlive", 40000);
        QVERIFY(!keepAlive.isEmpty());
        const qint64 keepAliveAt = sinceLogin.elapsed();
        QVERIFY2(keepAliveAt >= 29000, qPrintable(QString::number(keepAliveAt)));
        QCOMPARE(SimpleXmlParser::getDecodedTagValue(keepAlive, "API"), QStringLiteral("6.1"));
        QTRY_VERIFY_WITH_TIMEOUT(!beats.isEmpty(), 10000);

        // 15 s later the session ends, 45 s after the last sign of life.
        QTRY_VERIFY_WITH_TIMEOUT(!gone.isEmpty(), 25000);
        const qint64 goneAt = sinceLogin.elapsed();
        QCOMPARE(gone.at(0).at(0).toString(), QStringLiteral("ConnectionTimeout"));
        QVERIFY2(goneAt >= keepAliveAt + 14000 && goneAt <= 46000, qPrintable(QString::number(goneAt)));
        QVERIFY(log.contains(100, "Connection timed-out: no ACK received to KeepAlive message"));
        QCOMPARE(s.server().framesContaining("KeepAlive").size(), 1);
    }

    void quietDesktopSessionStaysAndRunsPeriodicDataEveryFiveMinutes()
    {
        LogbusCapture log;
        LoggedInClient s(TELVIX::AppModeSrntPro);
        QVERIFY(s.start());
        QElapsedTimer sinceLogin;
        sinceLogin.start();
        QSignalSpy gone(s.client(), &Telvix::disconnectedFromServer);
        QVERIFY(QTest::qWaitFor([&log] { return log.contains(10000, "Current APP MODE: 1"); }, 320000));
        const qint64 ranAt = sinceLogin.elapsed();
        QVERIFY2(ranAt >= 299000, qPrintable(QString::number(ranAt)));
        QCOMPARE(log.count("Current APP MODE:"), 1);
        QCOMPARE(gone.count(), 0);
        QVERIFY(s.client()->isConnected());
        // Answered keep-alives passed meanwhile, one every 30 s: the tenth is
        // due together with the periodic run.
        const int keepAlives = s.server().framesContaining("KeepAlive").size();
        QVERIFY2(keepAlives >= 9 && keepAlives <= 10, qPrintable(QString::number(keepAlives)));
    }
};

QTEST_GUILESS_MAIN(TestTelvixSessionLong)
#include "tst_telvixsession_long.moc"
