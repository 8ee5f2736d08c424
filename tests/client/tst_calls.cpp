// The call table: the scenarios of tests/fixtures/client/calls, and a burst
// of overlapping calls. The legs are what leaks when anything does, so this
// suite also runs under the leak checker.
#include "callevents.h"
#include "calltesthook_p.h"
#include "loggedinclient.h"
#include "scenario.h"

#include <QSignalSpy>
#include <QtTest>

using namespace CallEvents;

class TestCalls : public ScenarioTest
{
    Q_OBJECT
public:
    TestCalls()
        : ScenarioTest(QStringLiteral("calls"))
    {
    }

private Q_SLOTS:
    // Calls that overlap, each on two accounts, ended in an order unlike the
    // order they began in, with duplicates and strays among them.
    void manyOverlappingCallsLeaveTheTableEmpty()
    {
        LoggedInClient app(TELVIX::AppModeSrntPro);
        QVERIFY(app.start());
        QSignalSpy finishedSpy(app.client(), QOverload<FinishedCallEvent>::of(&Telvix::sigFinishedCall));
        const QString desk = "200-desk", soft = "200-soft", deskChannel = "SIP/d-1", softChannel = "SIP/s-2";
        const int calls = 60;
        QString burst;
        const auto event = [](const QString& body) { return FakeCtiServer::document(body, "6.1"); };
        for (int i = 0; i < calls; ++i) {
            const QString uid = QStringLiteral("storm-%1").arg(i);
            burst += event(incoming(uid, desk, "051", deskChannel, "SIP/t-9"));
            burst += event(incoming(uid, soft, "051", softChannel, "SIP/t-9"));
            burst += event(incoming(uid, soft, "051", softChannel, "SIP/t-9")); // refused duplicate
        }
        for (int i = calls - 1; i >= 0; --i) {
            const QString uid = QStringLiteral("storm-%1").arg(i);
            burst += event(answered(uid, i % 2 ? desk : soft, deskChannel, "SIP/t-9", "051", "1"));
            burst += event(finished(uid, soft, softChannel, "051"));
            burst += event(finished(uid, soft, softChannel, "051")); // leg already gone
            burst += event(finished(uid, desk, deskChannel, "051"));
        }
        const QString last = event(finished("never-seen", desk, deskChannel, "051"));
        app.server().send(app.connection(), burst + last);
        QVERIFY(app.waitForAck(FakeCtiServer::uuidOf(last), 20000));
        QCOMPARE(finishedSpy.count(), 2 * calls);
        QCOMPARE(CallTableTestHook::legCount(app.client()), 0);
        QVERIFY(CallTableTestHook::accountsByUid(app.client()).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestCalls)
#include "tst_calls.moc"
