// Call-centre queues against servers of several API levels, with and without
// cumulative statistics: the requests as the server receives them, operators
// paused by extension, and queue data naming operators by SIP account.
#include "directorymessages.h"
#include "fakectiserver.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "queuemessages.h"
#include "simplexmlparser.h"
#include "telvix.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

namespace {

const QDateTime Start(QDate(2024, 3, 1), QTime(8, 0));
const QDateTime End(QDate(2024, 3, 31), QTime(18, 30, 15, 250));

QString body(const QString& frame)
{
    const int from = frame.indexOf(QLatin1String("<Request>"));
    const int to = frame.indexOf(QLatin1String("</Request>"));
    return from < 0 || to < 0 ? QString() : frame.mid(from + 9, to - from - 9);
}

QStringList values(const QString& frame, const char* tag)
{
    return SimpleXmlParser::getTagsValues(frame, QLatin1String(tag));
}

// Accounts of the PBX: the user 200 with two phones, a colleague 201 with two.
QString peerListBody()
{
    BuddyIdentitiesRespMsg peers;
    const auto add = [&peers](const char* account, const char* exten) {
        BuddyIdentityEntry entry;
        entry.name = QLatin1String(account);
        entry.type = QStringLiteral("SIP");
        entry.exten = QLatin1String(exten);
        peers.buddyIdentities.append(entry);
    };
    add("200-desk", "200");
    add("200-soft", "200");
    add("201-desk", "201");
    add("201-soft", "201");
    return peers.generateXmlMessageBody();
}

} // namespace

class TestQueues : public QObject
{
    Q_OBJECT

private:
    // Every queue request is queued behind the calls before it: once this
    // one arrives, so has all that they sent.
    static bool drain(LoggedInClient& session)
    {
        session.client()->removeQueueDynamicMember(QStringLiteral("sentinel"), QStringLiteral("x"));
        return !session.server().waitForFrame(QStringLiteral("QueueDynamicMemberRemove")).isEmpty();
    }

private Q_SLOTS:
    void requestsFollowTheServerLevel_data()
    {
        QTest::addColumn<QString>("api");
        QTest::addColumn<bool>("cumulativeFeature");
        QTest::addColumn<bool>("newApi");
        QTest::addColumn<bool>("cumulative");
        // Levels compare as text: "5.10" is below "5.2".
        QTest::newRow("5.1") << "5.1" << false << false << false;
        QTest::newRow("5.1 cumulative") << "5.1" << true << false << true;
        QTest::newRow("5.2") << "5.2" << false << true << true;
        QTest::newRow("5.2 cumulative") << "5.2" << true << true << true;
        QTest::newRow("5.10") << "5.10" << false << false << false;
        QTest::newRow("5.10 cumulative") << "5.10" << true << false << true;
    }

    void requestsFollowTheServerLevel()
    {
        QFETCH(QString, api);
        QFETCH(bool, cumulativeFeature);
        QFETCH(bool, newApi);
        QFETCH(bool, cumulative);
        LoggedInClient session(TELVIX::AppModeSrntPro, api);
        if (cumulativeFeature)
            session.setFeatures({QStringLiteral("CUMULATIVE_STATS")});
        QVERIFY(session.start());
        LogbusCapture log;
        Telvix* client = session.client();

        QVERIFY(client->getQueueList());
        QVERIFY(client->getAllQueuesStats());
        // Queued: accepted at once, whatever the server can do.
        QVERIFY(client->getAllQueuePeriodicStats(TELVIX::PeriodToday, Start, End));
        QVERIFY(client->getAllQueueOperatorPeriodicStats(TELVIX::PeriodLastHour, Start, End));
        QVERIFY(client->getQueuePeriodicStats({"q1", "q2", "q3"}, TELVIX::PeriodToday, Start, End));
        QVERIFY(client->pauseOperators(true, {"201-desk", "201-soft"}, QStringLiteral("lunch"), QString()));
        QVERIFY(drain(session));

        QCOMPARE(session.framesWith(newApi ? "GetQueueList" : "GetQueues").size(), 1);
        QVERIFY(session.framesWith(newApi ? "GetQueues" : "GetQueueList").isEmpty());
        const QStringList stats = session.framesWith("GetQueuesStats");
        QCOMPARE(stats.size(), 1);
        QCOMPARE(body(stats.first()),
                 newApi ? QStringLiteral("<GetQueuesStats/>")
                        : QStringLiteral("<GetQueuesStats></GetQueuesStats>"));

        // All queues at once only with cumulative statistics; the per-queue
        // form is sent either way, one request per queue.
        const QStringList periodic = session.framesWith("GetQueuesPeriodicStats");
        QCOMPARE(periodic.size(), cumulative ? 4 : 3);
        QCOMPARE(session.framesWith("GetOperatorsPeriodicStats").size(), cumulative ? 1 : 0);
        if (cumulative) {
            QCOMPARE(
                body(periodic.first()),
                QStringLiteral("<GetQueuesPeriodicStats><Period>TODAY</Period></GetQueuesPeriodicStats>"));
            QVERIFY(
                log.contains(10, "PBX support cumulative periodic stats! Still using old implementation"));
        } else {
            QCOMPARE(log.count("PBX doesn't support cumulative periodic stats!"), 2);
        }
        QCOMPARE(values(periodic.last(), "Queue"), QStringList {"q3"});
        QVERIFY(log.contains(1000, "Getting ALL Queues periodic stats."));
        QVERIFY(log.contains(1000, "Getting ALL Queues Operators periodic stats."));

        // Newer servers take the operators of one pause in one request.
        const QStringList pauses = session.framesWith("PauseQueues");
        QCOMPARE(pauses.size(), newApi ? 1 : 2);
        QCOMPARE(values(pauses.first(), "Operator"),
                 newApi ? (QStringList {"201-desk", "201-soft"}) : QStringList {"201-desk"});
        QCOMPARE(values(pauses.first(), "Status"), QStringList {"true"});
        QCOMPARE(values(pauses.first(), "Reason"), QStringList {"lunch"});
        QVERIFY(values(pauses.first(), "Queue").isEmpty());
    }

    void periodBlock_data()
    {
        QTest::addColumn<int>("period");
        QTest::addColumn<QDateTime>("start");
        QTest::addColumn<QDateTime>("end");
        QTest::addColumn<QString>("expected");
        QTest::newRow("named period, dates ignored")
            << int(TELVIX::PeriodCurrWeek) << Start << End << "<Queue>sales</Queue><Period>CURRWEEK</Period>";
        QTest::newRow("custom") << int(TELVIX::PeriodCustom) << Start << End
                                << "<Queue>sales</Queue><StartDate>2024-03-01T08:00:00.000</StartDate>"
                                   "<EndDate>2024-03-31T18:30:15.250</EndDate>";
        QTest::newRow("custom without end")
            << int(TELVIX::PeriodCustom) << Start << QDateTime()
            << "<Queue>sales</Queue><StartDate>2024-03-01T08:00:00.000</StartDate>";
        QTest::newRow("custom without dates")
            << int(TELVIX::PeriodCustom) << QDateTime() << QDateTime() << "<Queue>sales</Queue>";
    }

    void periodBlock()
    {
        QFETCH(int, period);
        QFETCH(QDateTime, start);
        QFETCH(QDateTime, end);
        QFETCH(QString, expected);
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        QVERIFY(session.client()->getQueuePeriodicStats({"sales"}, TELVIX::PeriodType(period), start, end));
        const QString frame = session.server().waitForFrame("GetQueuesPeriodicStats");
        QCOMPARE(body(frame), "<GetQueuesPeriodicStats>" + expected + "</GetQueuesPeriodicStats>");
    }

    void operatorStatsOnePerQueueAndOperator()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        const QueueOperMap operators
            = {{"q1", {"201-desk", "201-soft"}}, {"q2", {}}, {"q3", {"202-desk"}}, {"", {"203-desk"}}};
        QVERIFY(
            session.client()->getQueueOperatorPeriodicStats(operators, TELVIX::PeriodYesterday, Start, End));
        QVERIFY(session.client()->getQueuePeriodicStats({}, TELVIX::PeriodYesterday, Start, End));
        QVERIFY(drain(session));
        const QStringList frames = session.framesWith("GetOperatorPeriodicStats");
        QStringList bodies;
        for (const QString& frame : frames)
            bodies.append(body(frame));
        const QString tail = "<Period>YESTERDAY</Period></GetOperatorPeriodicStats>";
        // In map order; an empty queue name drops its element.
        QCOMPARE(bodies,
                 (QStringList {
                     "<GetOperatorPeriodicStats><Operator>203-desk</Operator>" + tail,
                     "<GetOperatorPeriodicStats><Queue>q1</Queue><Operator>201-desk</Operator>" + tail,
                     "<GetOperatorPeriodicStats><Queue>q1</Queue><Operator>201-soft</Operator>" + tail,
                     "<GetOperatorPeriodicStats><Queue>q3</Queue><Operator>202-desk</Operator>" + tail}));
        QVERIFY(session.framesWith("GetQueuesPeriodicStats").isEmpty());
    }

    void pauseQueuesByExtension_data()
    {
        QTest::addColumn<QString>("api");
        QTest::addColumn<QString>("exten");
        QTest::addColumn<QStringList>("requests");
        // Each request's operators, joined by ",".
        QTest::newRow("new, own by default") << "6.1"
                                             << "" << QStringList {""};
        QTest::newRow("new, own by number") << "6.1"
                                            << "200" << QStringList {""};
        QTest::newRow("new, colleague") << "6.1"
                                        << "201" << QStringList {"201-desk,201-soft"};
        QTest::newRow("new, unknown") << "6.1"
                                      << "999" << QStringList();
        QTest::newRow("old, own by default") << "5.1"
                                             << "" << QStringList {"200-desk", "200-soft"};
        QTest::newRow("old, colleague") << "5.10"
                                        << "201" << QStringList {"201-desk", "201-soft"};
    }

    void pauseQueuesByExtension()
    {
        QFETCH(QString, api);
        QFETCH(QString, exten);
        QFETCH(QStringList, requests);
        LoggedInClient session(TELVIX::AppModeSrntPro, api);
        QVERIFY(session.start());
        QVERIFY(session.deliver(peerListBody()));
        QVERIFY(session.client()->pauseQueues(false, exten, QString(), QStringLiteral("support & sales")));
        QVERIFY(drain(session));
        const QStringList frames = session.framesWith("PauseQueues");
        QStringList sent;
        for (const QString& frame : frames) {
            sent.append(values(frame, "Operator").join(','));
            QCOMPARE(values(frame, "Status"), QStringList {"false"});
            QVERIFY(values(frame, "Reason").isEmpty());
            QCOMPARE(SimpleXmlParser::getDecodedTagValue(frame, "Queue"), QStringLiteral("support & sales"));
        }
        QCOMPARE(sent, requests);
    }

    void dynamicMembers_data()
    {
        QTest::addColumn<int>("penalty");
        QTest::addColumn<QString>("expected");
        QTest::newRow("no penalty") << -1 << "";
        QTest::newRow("zero") << 0 << "<Penalty>0</Penalty>";
    }

    void dynamicMembers()
    {
        QFETCH(int, penalty);
        QFETCH(QString, expected);
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        QVERIFY(session.client()->addQueueDynamicMember("q<1>", "201-desk", penalty));
        QCOMPARE(body(session.server().waitForFrame("QueueDynamicMemberAdd")),
                 "<QueueDynamicMemberAdd><QueueId>q&lt;1&gt;</QueueId><Operator>201-desk</Operator>"
                     + expected + "</QueueDynamicMemberAdd>");
        QVERIFY(session.client()->removeQueueDynamicMember("q1", "201-desk"));
        QCOMPARE(body(session.server().waitForFrame("QueueDynamicMemberRemove")),
                 QStringLiteral("<QueueDynamicMemberRemove><QueueId>q1</QueueId><Operator>201-desk</Operator>"
                                "</QueueDynamicMemberRemove>"));
    }

    void membersAndOperatorStatisticsAreNamedByExtension()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        QVERIFY(session.deliver(peerListBody()));
        Telvix* client = session.client();
        QSignalSpy added(client, &Telvix::sigQueueMemberAdded);
        QSignalSpy removed(client, &Telvix::sigQueueMemberRemoved);
        QSignalSpy paused(client, &Telvix::sigQueueMemberPauseChanged);
        QSignalSpy all(client, &Telvix::sigAllQueueOperatorsPeriodicStatsReceived);
        QSignalSpy one(client, &Telvix::sigQueueOperatorPeriodicStatsReceived);

        QueueMemberAddedEventMsg add;
        add.member.account = QStringLiteral("201-soft");
        add.member.queueId = QStringLiteral("q1");
        add.member.membership = TELVIX::QueueOperatorMemberDynamic;
        add.member.penalty = 3;
        QVERIFY(session.deliver(add.generateXmlMessageBody()));
        QueueMemberRemovedEventMsg remove;
        remove.member.account = QStringLiteral("999-unknown");
        remove.member.queueId = QStringLiteral("q1");
        QVERIFY(session.deliver(remove.generateXmlMessageBody()));
        QueueMemberPausedEventMsg pause;
        pause.member.account = QStringLiteral("200-desk");
        pause.member.queueId = QStringLiteral("q2");
        pause.member.paused = true;
        QVERIFY(session.deliver(pause.generateXmlMessageBody()));

        QTRY_COMPARE(paused.count(), 1);
        QCOMPARE(added.count(), 1);
        const auto member = added.first().at(0).value<QueueMember>();
        QCOMPARE(member.exten, QStringLiteral("201"));
        QCOMPARE(member.penalty, 3);
        QCOMPARE(member.membership, TELVIX::QueueOperatorMemberDynamic);
        QCOMPARE(removed.count(), 1);
        QCOMPARE(removed.first().at(0).value<QueueMember>().exten, QString());
        QCOMPARE(paused.first().at(0).value<QueueMember>().exten, QStringLiteral("200"));
        QCOMPARE(paused.first().at(1).toBool(), true);

        QueueOperatorPeriodicStats stats;
        stats.queueId = QStringLiteral("q1");
        stats.period = TELVIX::PeriodToday;
        stats.servedCalls = 7;
        stats.operatorAccount = QStringLiteral("201-desk");
        QueueOperatorPeriodicStatsListRespMsg list;
        list.stats.append(stats);
        stats.operatorAccount = QStringLiteral("300-elsewhere");
        list.stats.append(stats);
        QVERIFY(session.deliver(list.generateXmlMessageBody()));
        QueueOperatorPeriodicStatsRespMsg single;
        single.stats = stats;
        single.stats.operatorAccount = QStringLiteral("200-soft");
        QVERIFY(session.deliver(single.generateXmlMessageBody()));

        QTRY_COMPARE(one.count(), 1);
        QCOMPARE(all.count(), 1);
        const auto received = all.first().at(0).value<QList<QueueOperatorPeriodicStats>>();
        QCOMPARE(received.size(), 2);
        QCOMPARE(received.at(0).exten, QStringLiteral("201"));
        QCOMPARE(received.at(0).servedCalls, 7);
        QCOMPARE(received.at(1).exten, QString());
        QCOMPARE(one.first().at(0).value<QueueOperatorPeriodicStats>().exten, QStringLiteral("200"));
    }

    void queueStatisticsAndEventsReachTheApplication()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        Telvix* client = session.client();
        QSignalSpy live(client, &Telvix::sigAllQueuesStatsReceived);
        QSignalSpy periodicAll(client, &Telvix::sigAllQueuesPeriodicStatsReceived);
        QSignalSpy periodicOne(client, &Telvix::sigQueuePeriodicStatsReceived);
        QSignalSpy events(client, &Telvix::sigQueueEvent);
        LogbusCapture log;

        QueueStats queue;
        queue.queueId = QStringLiteral("q1");
        queue.name = QStringLiteral("Sales");
        queue.currentCalls = 2;
        QueueOperatorStats oper;
        oper.member = QStringLiteral("201-desk");
        queue.operators.append(oper);
        QueueStatsListRespMsg liveMsg;
        liveMsg.stats.append(queue);
        QVERIFY(session.deliver(liveMsg.generateXmlMessageBody()));

        QueuePeriodicStats periodic;
        periodic.queueId = QStringLiteral("q1");
        periodic.period = TELVIX::PeriodToday;
        periodic.missedCalls = 4;
        QueuePeriodicStatsListRespMsg listMsg;
        listMsg.stats.period = TELVIX::PeriodToday;
        listMsg.stats.stats.append(periodic);
        QVERIFY(session.deliver(listMsg.generateXmlMessageBody()));
        QueuePeriodicStatsRespMsg oneMsg;
        oneMsg.stats = periodic;
        QVERIFY(session.deliver(oneMsg.generateXmlMessageBody()));

        QueueEventMsg event;
        event.api = session.api();
        event.event.queueId = QStringLiteral("q1");
        event.event.eventType = QueueEvent::Enter;
        event.event.uid = QStringLiteral("call-1");
        event.event.currentCalls = 3;
        QVERIFY(session.deliver(event.generateXmlMessageBody()));
        // An unknown event type makes the event invalid: logged, no signal.
        session.sendEvent(event.generateXmlMessageBody().replace(">enter<", ">ENTER<"));
        QVERIFY(log.waitFor("Invalid queue event msg received"));

        QTRY_COMPARE(events.count(), 1);
        QCOMPARE(live.count(), 1);
        const auto liveStats = live.first().at(0).value<QList<QueueStats>>();
        QCOMPARE(liveStats.size(), 1);
        QCOMPARE(liveStats.first().operators.first().member, QStringLiteral("201-desk"));
        QCOMPARE(periodicAll.first().at(0).value<QueuePeriodicStatsList>().stats.first().missedCalls, 4);
        QCOMPARE(periodicOne.first().at(0).value<QueuePeriodicStats>().missedCalls, 4);
        const auto received = events.first().at(0).value<QueueEvent>();
        QCOMPARE(received.uid, QStringLiteral("call-1"));
        QCOMPARE(received.currentCalls, 3);
        QVERIFY(log.contains(1000, "Invalid queue event msg received"));
    }

    void callCentreReport()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        QSignalSpy succeeded(session.client(), &Telvix::sigCCReportSucceded);
        QSignalSpy failed(session.client(), &Telvix::sigCCReportFailure);
        LogbusCapture log;

        QVERIFY(session.client()->requestCCReport(TELVIX::PeriodCustom, {20, 40}, {60},
                                                  QStringLiteral("it_IT"), Start, QDateTime()));
        const QString request = session.server().waitForFrame("GetCDRCallCenterReport");
        QCOMPARE(values(request, "StartDate"), QStringList {"2024-03-01T08:00:00.000"});
        QVERIFY(values(request, "EndDate").isEmpty());
        QVERIFY(values(request, "Period").isEmpty());
        QCOMPARE(values(request, "AttendedThreshold"), (QStringList {"20", "40"}));
        QCOMPARE(values(request, "LostThreshold"), QStringList {"60"});
        QCOMPARE(values(request, "Locale"), QStringList {"it_IT"});

        CCReportRespMsg report;
        report.data = QByteArrayLiteral("<Report><Calls>12</Calls></Report>");
        QVERIFY(session.deliver(report.generateXmlMessageBody()));
        QTRY_COMPARE(succeeded.count(), 1);
        const auto received = succeeded.first().at(0).value<CallCenterReport>();
        QCOMPARE(received.data, report.data);
        QCOMPARE(received.format, QStringLiteral("xml"));

        const QString tampered = report.generateXmlMessageBody().replace(
            QRegularExpression("<Md5>[^<]*</Md5>"), "<Md5>00000000000000000000000000000000</Md5>");
        session.sendEvent(tampered);
        QTRY_COMPARE(failed.count(), 1);
        QCOMPARE(failed.first().at(0).toString(), QStringLiteral("CallCenter report generation failed"));
        QVERIFY(log.contains(1000, "Invalid CCReport msg received"));
        QCOMPARE(succeeded.count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestQueues)
#include "tst_queues.moc"
