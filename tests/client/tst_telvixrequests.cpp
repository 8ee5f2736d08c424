// What a scenario cannot see of the requests: the keep-alive's answer timer.
// The requests themselves are played in tests/fixtures/client/requests.
#include "loggedinclient.h"
#include "telvix_p.h"

#include <QtTest>

class TestTelvixRequests : public QObject
{
    Q_OBJECT

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
