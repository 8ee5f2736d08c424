// Requests to the server: the scenarios of tests/fixtures/client/requests,
// which hop between the application's thread and the library's (the thread
// checker runs this suite), and the keep-alive's answer timer, which a
// scenario cannot see.
#include "loggedinclient.h"
#include "scenario.h"
#include "telvix_p.h"

#include <QtTest>

class TestTelvixRequests : public ScenarioTest
{
    Q_OBJECT
public:
    TestTelvixRequests()
        : ScenarioTest(QStringLiteral("requests"))
    {
    }

private Q_SLOTS:
    void injectedKeepAliveAckStopsTheAckTimer()
    {
        LoggedInClient app(TELVIX::AppModeSrntPro);
        QVERIFY(app.start());
        app.server().setAutoKeepAliveAck(false);
        TelvixPrivate* d = TelvixPrivate::get(app.client());
        const auto waiting = [&] {
            bool active = false;
            app.onLibraryThread([&] { active = d->keepAliveAckTimer->isActive(); });
            return active;
        };
        QVERIFY(app.client()->sendKeepAlive());
        QVERIFY(!app.server().waitForFrame(QStringLiteral("KeepAlive")).isEmpty());
        QVERIFY(waiting());
        QVERIFY(app.client()->injectMessage(FakeCtiServer::keepAliveAckDocument()));
        QVERIFY(!waiting());
        QVERIFY(app.client()->isConnected());
    }
};

QTEST_GUILESS_MAIN(TestTelvixRequests)
#include "tst_telvixrequests.moc"
