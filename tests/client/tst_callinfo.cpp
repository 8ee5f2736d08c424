// One leg of a call and the table that owns the legs. The sanitizer build
// runs this too: a refused or taken leg that is not freed shows there.
#include "callinfo.h"
#include "calltable_p.h"

#include <QtTest>

#include <memory>

namespace {

std::unique_ptr<CallInfo> makeLeg(const QString& uid, const QString& account, int direction = 1)
{
    auto leg = std::make_unique<CallInfo>();
    leg->uid = uid;
    leg->sipAccount = account;
    leg->direction = direction;
    return leg;
}

} // namespace

class TestCallInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void peerFollowsTheDirection_data()
    {
        QTest::addColumn<int>("direction");
        QTest::addColumn<QString>("peer");
        QTest::addColumn<bool>("peerInCalledFields");
        QTest::newRow("outgoing") << 0 << "0511" << true;
        QTest::newRow("incoming") << 1 << "0511" << false;
        // An unknown direction has no peer number, but an update is kept as
        // the caller's.
        QTest::newRow("unknown") << -1 << "" << false;
    }

    void peerFollowsTheDirection()
    {
        QFETCH(int, direction);
        QFETCH(QString, peer);
        QFETCH(bool, peerInCalledFields);
        CallInfo leg;
        leg.direction = direction;
        leg.setPeer("0511", "Bob", "SIP/trunk-1");
        leg.setLocalInfo("SIP/200-7");
        QCOMPARE(leg.getPeerNum(), peer);
        QCOMPARE(leg.remoteChannel + leg.localChannel, QStringLiteral("SIP/trunk-1SIP/200-7"));
        const QString peerFields = leg.calledNum + leg.calledName + '|' + leg.callerNum + leg.callerName;
        QCOMPARE(peerFields, peerInCalledFields ? QStringLiteral("0511Bob|") : QStringLiteral("|0511Bob"));
        QVERIFY(QMetaType::type("CallInfo") != QMetaType::UnknownType);
    }

    void tableKeepsOneLegPerAccountAndFreesWhatIsLeft()
    {
        auto table = std::make_unique<CallTable>();
        QVERIFY(table->insert(makeLeg("u1", "desk")));
        QVERIFY(table->insert(makeLeg("u1", "soft")));
        QVERIFY(!table->insert(makeLeg("u1", "soft", 0))); // refused, and freed
        QVERIFY(!table->insert(nullptr));
        QVERIFY(table->insert(makeLeg("u2", "desk")));
        QCOMPARE(table->legCount("u1"), 2);
        QCOMPARE(table->leg("u1", "soft")->direction, 1);
        QVERIFY(!table->leg("u1", "mobile") && !table->leg("u9", "desk") && !table->firstLeg("u9"));
        QVERIFY(table->firstLeg("u1"));
        QVERIFY(!table->take("u1", "mobile") && !table->take("u9", "desk"));
        QCOMPARE(table->take("u1", "desk")->sipAccount, QStringLiteral("desk"));
        QVERIFY(table->contains("u1"));
        QVERIFY(table->take("u1", "soft"));
        // The call goes with its last leg.
        QVERIFY(!table->contains("u1"));
        QCOMPARE(table->callCount(), 1);
        QCOMPARE(table->totalLegCount(), 1);
        table->clear();
        QVERIFY(table->isEmpty());
        // Legs still in the table when it goes are deleted with it.
        for (int i = 0; i < 100; ++i) {
            table->insert(makeLeg(QString::number(i), "desk"));
            table->insert(makeLeg(QString::number(i), "soft"));
        }
        QCOMPARE(table->totalLegCount(), 200);
        table.reset();
    }
};

QTEST_APPLESS_MAIN(TestCallInfo)
#include "tst_callinfo.moc"
