// The session's timers at their real intervals: a server that stops
// answering keep-alives is noticed within 45 seconds, and the application's
// heartbeat beats every 30 seconds meanwhile.
#include "fakectiserver.h"
#include "logbuscapture.h"
#include "simplexmlparser.h"
#include "telvix.h"

#include <QElapsedTimer>
#include <QScopedPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class TestTelvixSessionLong : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void silentServerIsNoticedWithin45Seconds();
};

void TestTelvixSessionLong::silentServerIsNoticedWithin45Seconds()
{
    QTemporaryDir dir;
    FakeCtiServer server;
    server.setAutoLogin(true);
    QVERIFY(server.listen());
    QScopedPointer<Telvix> client(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"),
                                             QStringLiteral("long-test"), QStringLiteral("1.0"),
                                             QStringLiteral("dev-long"), dir.path()));
    QVERIFY(client->init());
    LogbusCapture log;
    QSignalSpy logged(client.data(), &Telvix::loggedToServer);
    QSignalSpy gone(client.data(), &Telvix::disconnectedFromServer);
    QSignalSpy beats(client.data(), &Telvix::sigGuiKeepAlive);
    QVERIFY(client->enableGuiKeepAlive(true));
    client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), QStringLiteral("default"),
                            TELVIX::AppModeSrntPro, FakeCtiServer::host(), server.port());
    QVERIFY(logged.wait(10000));
    QElapsedTimer sinceLogin;
    sinceLogin.start();

    // The first keep-alive comes 30 s after the login, and nobody answers it.
    const QString keepAlive = server.waitForFrame(QStringLiteral("KeepAlive"), 40000);
    QVERIFY(!keepAlive.isEmpty());
    const qint64 keepAliveAt = sinceLogin.elapsed();
    QVERIFY2(keepAliveAt >= 29000, qPrintable(QString::number(keepAliveAt)));
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(keepAlive, QStringLiteral("API")), QStringLiteral("6.1"));
    QTRY_VERIFY_WITH_TIMEOUT(!beats.isEmpty(), 10000);

    // 15 s later the session ends, 45 s after the last sign of life.
    QVERIFY(gone.wait(25000));
    const qint64 goneAt = sinceLogin.elapsed();
    QCOMPARE(gone.at(0).at(0).toString(), QStringLiteral("ConnectionTimeout"));
    QVERIFY2(goneAt >= keepAliveAt + 14000 && goneAt <= 46000, qPrintable(QString::number(goneAt)));
    QVERIFY(log.contains(100, "Connection timed-out: no ACK received to KeepAlive message"));
    QCOMPARE(server.framesContaining(QStringLiteral("KeepAlive")).size(), 1);
    // The heartbeat is not part of the session and goes on.
    const int beatsSoFar = beats.count();
    QVERIFY(beatsSoFar >= 1);
    QVERIFY(client->shutdown());
}

QTEST_GUILESS_MAIN(TestTelvixSessionLong)
#include "tst_telvixsession_long.moc"
