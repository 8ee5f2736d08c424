// TelvixReconnector against the PBX simulator, run in the test's process
// over real TLS: what it must not retry, stop(), and the state the
// application sees after a restart.
#include "reconnectfixture.h"

#include <QSignalSpy>
#include <QTest>

class tst_ReconnectSim : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wrongPasswordIsTriedOnce();
    void logoutIsNotRetried();
    void stopDuringAWaitCancelsTheAttempt();
    void extenStatusMatchesTheSimulatorAfterARestart();
};

void tst_ReconnectSim::wrongPasswordIsTriedOnce()
{
    ReconnectFixture f;
    QVERIFY(f.start());
    ReconnectFixture::Client& c = f.addClient("1002", "not-the-password", 1);
    QTRY_COMPARE(c.gaveUp, QList<QString>({"WrongPassword"}));
    QCOMPARE(c.waits, 0);
    QCOMPARE(c.reconnector->attempt(), 0);
    QCOMPARE(f.loginRequests(), 1);
}

void tst_ReconnectSim::logoutIsNotRetried()
{
    ReconnectFixture f;
    QVERIFY(f.start());
    ReconnectFixture::Client& c = f.addClient("1003", "1003", 2);
    QSignalSpy gone(c.telvix.get(), &Telvix::disconnectedFromServer);
    QTRY_COMPARE(f.sim().sessionsOf("1003").size(), 1);
    c.telvix->logout();
    QVERIFY(gone.wait(10000));
    QCOMPARE(gone.at(0).at(0).toString(), QStringLiteral("UserRequest"));
    QTRY_COMPARE(c.gaveUp, QList<QString>({"UserRequest"}));
    QCOMPARE(c.waits, 0);
    QCOMPARE(f.loginRequests(), 1);
}

void tst_ReconnectSim::stopDuringAWaitCancelsTheAttempt()
{
    ReconnectFixture f;
    QVERIFY(f.start());
    TelvixReconnector::Settings settings;
    settings.firstDelayMs = 300;
    ReconnectFixture::Client& c = f.addClient("1004", "1004", 3, settings);
    QSignalSpy waiting(c.reconnector.get(), &TelvixReconnector::waiting);
    QTRY_COMPARE(f.sim().sessionsOf("1004").size(), 1);
    f.sim().dropAll();
    QVERIFY(waiting.wait(10000));
    c.reconnector->stop();
    // Well past the moment the attempt was due.
    QTest::qWait(waiting.at(0).at(1).toInt() + 1000);
    QCOMPARE(f.loginRequests(), 1);
    QCOMPARE(c.telvix->getConnectionState(), int(Telvix::StateDisconnected));
    QCOMPARE(waiting.count(), 1);
}

// While the application is away the PBX changes; the status it asked for is
// asked again, so what it sees after the reconnection is the PBX's.
void tst_ReconnectSim::extenStatusMatchesTheSimulatorAfterARestart()
{
    ReconnectFixture f;
    QVERIFY(f.start());
    ReconnectFixture::Client& c = f.addClient("1000", "1000", 4);
    QMap<QString, BuddyStatus> seen;
    QObject::connect(c.telvix.get(), &Telvix::sigExtenStatusMapChanged, c.reconnector.get(),
                     [&seen](const QMap<QString, BuddyStatus>& map) { seen = map; });
    QObject::connect(c.telvix.get(), &Telvix::sigExtenStatusChanged, c.reconnector.get(),
                     [&seen](const BuddyStatus& status) { seen[status.exten] = status; });
    c.reconnector->request("status", [](Telvix* t) { t->getExtenStatus(); });
    // The whole list, not only the news of the user's own login.
    QTRY_VERIFY(seen.contains("1005") && seen.value("1000").ctiLogged);
    QCOMPARE(seen.value("1005").blfStatus, TELVIX::BlfIdle);

    f.sim().restart(1500);
    f.sim().directory().setBlfStatus("1005", TELVIX::BlfInUse);
    f.sim().directory().setLoggedIn("1006", true);
    QTRY_COMPARE_WITH_TIMEOUT(c.reconnectedAt.size(), 1, 15000);
    const BuddyStatusMap truth = f.sim().directory().statusMap();
    QTRY_VERIFY(!seen.isEmpty() && seen.value("1005").blfStatus == TELVIX::BlfInUse);
    for (const BuddyStatus& status : truth) {
        QTRY_COMPARE(seen.value(status.exten).blfStatus, status.blfStatus);
        QTRY_COMPARE(seen.value(status.exten).ctiLogged, status.ctiLogged);
    }
    QVERIFY(seen.value("1006").ctiLogged);
}

QTEST_GUILESS_MAIN(tst_ReconnectSim)
#include "tst_reconnectsim.moc"
