#include "messagetestutil.h"
#include "qtlogcapture.h"
#include "queuemessages.h"
#include "simplexmlparser.h"
#include "utils.h"

#include <QtTest>

using namespace MessageTestUtil;

Q_DECLARE_METATYPE(const QMetaObject*)

namespace {

const QString IsoNoTz = QStringLiteral("yyyy-MM-ddThh:mm:ss.zzz");

struct MemberResult
{
    bool success = false;
    QueueMember member;
    QString api;
};

MemberResult parseMemberEvent(const QString& kind, const QString& xml)
{
    if (kind == QLatin1String("added")) {
        const auto msg = QueueMemberAddedEventMsg::parseMessage(xml);
        return {msg.success, msg.member, msg.api};
    }
    if (kind == QLatin1String("removed")) {
        const auto msg = QueueMemberRemovedEventMsg::parseMessage(xml);
        return {msg.success, msg.member, msg.api};
    }
    const auto msg = QueueMemberPausedEventMsg::parseMessage(xml);
    return {msg.success, msg.member, msg.api};
}

QString queueStatusXml(const QString& id, const QString& operators, const QString& extra = QString())
{
    return QStringLiteral("<QueueStatus>%1<Name>Queue %2</Name><CurrentCalls>3</CurrentCalls>"
                          "<LongestHoldTime>2026-11-15T10:00:00.250</LongestHoldTime>%3"
                          "<OperatorList>%4</OperatorList></QueueStatus>")
        .arg(id.isNull() ? QString() : QStringLiteral("<ID>%1</ID>").arg(id), id, extra, operators);
}

QString operatorXml(const QString& member, bool dynamic, bool paused)
{
    return QStringLiteral(
               "<Operator>%1<DynamicMember>%2</DynamicMember><Penalty>2</Penalty>"
               "<LastServedCall>1700000001.7</LastServedCall><LastCall>2026-11-15 09:59:58</LastCall>"
               "<LastPauseChange>2026-11-15 08:00:00</LastPauseChange>"
               "<StatusAge>2026-11-15 07:00:01</StatusAge><Paused>%3</Paused></Operator>")
        .arg(member.isNull() ? QString() : QStringLiteral("<Member>%1</Member>").arg(member),
             dynamic ? QStringLiteral("1") : QStringLiteral("0"),
             paused ? QStringLiteral("1") : QStringLiteral("0"));
}

QString periodicXml(const QString& queueId, const QString& period)
{
    return QStringLiteral(
               "<QueuePeriodicStats>%1<Period>%2</Period><StartDate>2026-11-01T00:00:00.000</StartDate>"
               "<EndDate>2026-11-15T23:59:59.999</EndDate><ServedCalls>120</ServedCalls>"
               "<ServedAverageWaitingTime>12.5</ServedAverageWaitingTime>"
               "<ServedAverageConversationTime>180.25</ServedAverageConversationTime>"
               "<MissedCalls>7</MissedCalls><MissedAverageWaitingTime>45.125</MissedAverageWaitingTime>"
               "</QueuePeriodicStats>")
        .arg(queueId.isNull() ? QString() : QStringLiteral("<QueueId>%1</QueueId>").arg(queueId), period);
}

QString operatorPeriodicFields(const QString& queueId, const QString& conversation, const QString& lastServed)
{
    return QStringLiteral(
               "<Operator>SIP&amp;201</Operator>%1<Period>CUSTOM</Period>"
               "<StartDate>2026-11-01T00:00:00.000</StartDate><EndDate>2026-11-02T00:00:00.000</EndDate>"
               "<ServedCalls>9</ServedCalls><ConversationTime>%2</ConversationTime>"
               "<LastServedCall>%3</LastServedCall>")
        .arg(queueId.isNull() ? QString() : QStringLiteral("<QueueId>%1</QueueId>").arg(queueId),
             conversation, lastServed);
}

QDateTime local(int day, int h, int m, int s, int ms = 0)
{
    return QDateTime(QDate(2026, 11, day), QTime(h, m, s, ms), Qt::LocalTime);
}

QString ccReportDocument(const QByteArray& report, const QString& md5)
{
    return serverDocument(
        QStringLiteral("<CDRCallCenterReport><Data>%1</Data><Md5>%2</Md5></CDRCallCenterReport>")
            .arg(QString::fromLatin1(qCompress(report).toBase64()), md5));
}

} // namespace

class TestQueueMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void memberEvents_data();
    void memberEvents();
    void memberEventsRoundTrip();

    void queueEvent_data();
    void queueEvent();
    void queueEventRoundTrip_data();
    void queueEventRoundTrip();

    void queueStatsList();
    void queueStatsSkipsInvalidAmongThousands();

    void failedRequests_data();
    void failedRequests();
    void emptyRequestFailedIsNoFailure();
    void emptyLists_data();
    void emptyLists();

    void periodicStatsList_data();
    void periodicStatsList();
    void periodicStatsSkipsInvalidAmongThousands();
    void periodicStatsSingle_data();
    void periodicStatsSingle();
    void periodicStatsRoundTrip();

    void operatorPeriodicTwoReadings_data();
    void operatorPeriodicTwoReadings();
    void operatorPeriodicInvalid();
    void operatorPeriodicRoundTrip();

    void ccReportRequest_data();
    void ccReportRequest();
    void ccReportResponse_data();
    void ccReportResponse();
    void ccReportRoundTrip();

    void metaTypesRegistered();
};

// ---- membership events ---------------------------------------------------------

void TestQueueMessages::memberEvents_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("api");
    QTest::addColumn<QString>("body");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QueueMember>("expected");

    auto member = [](const QString& account, const QString& queue, int membership, int penalty, bool paused) {
        QueueMember m;
        m.account = account;
        m.queueId = queue;
        m.membership = TELVIX::QueueOperatorMembership(membership);
        m.penalty = penalty;
        m.paused = paused;
        return m;
    };
    const QueueMember none;
    const QString op = QStringLiteral("<Operator>201</Operator>");

    // Bodies go inside the event element of their kind.
    QTest::newRow("added-dynamic-mixed-case") << "added"
                                              << "6.1"
                                              << "<Operator>a&amp;201</Operator><Queue>sales</"
                                                 "Queue><Membership>Dynamic</Membership><Penalty>3</Penalty>"
                                              << true << member("a&201", "sales", 1, 3, false);
    QTest::newRow("added-pause-state-not-read")
        << "added"
        << "5.10"
        << op + "<Queue>q1</Queue><Membership>STATIC</Membership><Penalty>x</Penalty><Paused>1</Paused>"
        << true << member("201", "q1", 0, 0, false);
    QTest::newRow("added-unknown-membership")
        << "added"
        << "6.1" << op + "<Queue>q1</Queue><Membership>foo</Membership>" << false << none;
    QTest::newRow("added-no-membership") << "added"
                                         << "6.1" << op + "<Queue>q1</Queue>" << false << none;
    QTest::newRow("added-no-queue") << "added"
                                    << "6.1" << op + "<Membership>dynamic</Membership>" << false << none;
    QTest::newRow("removed")
        << "removed"
        << "5.4"
        << "<Operator>202</Operator><Queue>support</Queue><Membership>foo</Membership><Penalty>9</Penalty>"
        << true << member("202", "support", -1, 0, false);
    QTest::newRow("removed-no-operator") << "removed"
                                         << "5.4"
                                         << "<Queue>support</Queue>" << false << none;
    QTest::newRow("paused") << "paused"
                            << "4.9" << op + "<Queue>q2</Queue><Paused>1</Paused>" << true
                            << member("201", "q2", -1, 0, true);
    QTest::newRow("paused-2-is-false")
        << "paused"
        << "6.1" << op + "<Queue>q2</Queue><Paused>2</Paused>" << true << member("201", "q2", -1, 0, false);
    QTest::newRow("paused-empty-queue") << "paused"
                                        << "6.1" << op + "<Queue></Queue><Paused>1</Paused>" << false << none;
}

void TestQueueMessages::memberEvents()
{
    QFETCH(QString, kind);
    QFETCH(QString, api);
    QFETCH(QString, body);
    QFETCH(bool, valid);
    QFETCH(QueueMember, expected);

    const QString word = QStringLiteral("queuemember") + kind;
    QtLogCapture log;
    const QString tag = kind == QLatin1String("added") ? QStringLiteral("QueueMemberAdded")
        : kind == QLatin1String("removed")             ? QStringLiteral("QueueMemberRemoved")
                                                       : QStringLiteral("QueueMemberPause");
    const MemberResult result
        = parseMemberEvent(kind, serverDocument(QStringLiteral("<%1>%2</%1>").arg(tag, body), api));
    QCOMPARE(result.success, valid);
    QCOMPARE(result.member, expected);
    QVERIFY(log.contains(QStringLiteral("API version ") + api));
    QCOMPARE(log.contains(word + QStringLiteral(" msg parsed ok")), valid);
    QCOMPARE(log.contains(QStringLiteral("parsed an invalid ") + word + QStringLiteral(" msg")), !valid);
    // A valid event carries the envelope; an invalid one is a default message.
    QCOMPARE(result.api, valid ? api : QStringLiteral("4.2"));
}

void TestQueueMessages::memberEventsRoundTrip()
{
    QueueMember member;
    member.account = QStringLiteral("SIP<201>&co");
    member.exten = QStringLiteral("201");
    member.queueId = QStringLiteral("sales & support");
    member.membership = TELVIX::QueueOperatorMemberDynamic;
    member.penalty = 4;
    member.paused = true;

    QueueMemberAddedEventMsg added;
    QueueMemberRemovedEventMsg removed;
    QueueMemberPausedEventMsg paused;
    added.member = removed.member = paused.member = member;
    // Each event carries only its own fields; the extension is local knowledge and never travels.
    const QList<std::tuple<QString, QString, QString>> cases {
        {"added", "QueueMemberAdded", added.serializeToXml(QStringLiteral("6.1"))},
        {"removed", "QueueMemberRemoved", removed.serializeToXml(QStringLiteral("6.1"))},
        {"paused", "QueueMemberPause", paused.serializeToXml(QStringLiteral("6.1"))}};
    for (const auto& [kind, tag, xml] : cases) {
        QVERIFY(xml.contains(QStringLiteral("<Response><") + tag + QStringLiteral("><Operator>")));
        QVERIFY(!xml.contains(QStringLiteral(">201<")));
        QueueMember expected;
        expected.account = member.account;
        expected.queueId = member.queueId;
        if (kind == QLatin1String("added")) {
            expected.membership = member.membership;
            expected.penalty = member.penalty;
        }
        expected.paused = kind == QLatin1String("paused");
        const MemberResult result = parseMemberEvent(kind, xml);
        QVERIFY(result.success);
        QCOMPARE(result.member, expected);
    }
}

// ---- queue event ------------------------------------------------------------------

void TestQueueMessages::queueEvent_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<QString>("fields");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<int>("eventType");
    QTest::addColumn<int>("currentCalls");
    QTest::addColumn<QDateTime>("holdStart");
    QTest::addColumn<int>("holdAgeSeconds"); // -1: compare holdStart exactly

    const QString head
        = QStringLiteral("<Queue>sales</Queue><Uid>1700000001.9</Uid><CallerId>0612&amp;3</CallerId>"
                         "<CallerChannel>SIP/trunk-0001</CallerChannel>");
    const QDateTime start(QDate(2026, 11, 15), QTime(9, 0, 0, 250), Qt::UTC);
    const QDateTime none;

    QTest::newRow("current-enter") << "6.1"
                                   << head
            + "<EventType>enter</EventType><CurrentCalls>4</CurrentCalls>"
              "<LongestHoldTime>2026-11-15T10:00:00.250+01:00</LongestHoldTime>"
                                   << true << 1 << 4 << start << -1;
    QTest::newRow("current-leave-blank-date") << "5.7"
                                              << head
            + "<EventType>leave</EventType><CurrentCalls>0</CurrentCalls>"
              "<LongestHoldTime>2026-11-15 09:00:00.250Z</LongestHoldTime>"
                                              << true << 2 << 0 << start << -1;
    QTest::newRow("5.7-old-elements-not-read")
        << "5.7" << head + "<EventType>enter</EventType><Count>4</Count><MaxHoldTime>30</MaxHoldTime>" << true
        << 1 << 0 << none << -1;
    QTest::newRow("5.6-old-elements")
        << "5.6" << head + "<EventType>enter</EventType><Count>4</Count><MaxHoldTime>30</MaxHoldTime>" << true
        << 1 << 4 << none << 30;
    QTest::newRow("5.10-sorts-below-5.7")
        << "5.10" << head + "<EventType>leave</EventType><Count>6</Count><MaxHoldTime>600</MaxHoldTime>"
        << true << 2 << 6 << none << 600;
    QTest::newRow("no-api-is-old") << ""
                                   << head
            + "<EventType>enter</EventType><Count>1</Count><MaxHoldTime>0</MaxHoldTime>"
                                   << true << 1 << 1 << none << 0;
    QTest::newRow("5.6-new-elements-win") << "5.6"
                                          << head
            + "<EventType>enter</EventType><CurrentCalls>2</CurrentCalls><Count>9</Count>"
              "<LongestHoldTime>2026-11-15T09:00:00.250Z</LongestHoldTime><MaxHoldTime>30</MaxHoldTime>"
                                          << true << 1 << 2 << start << -1;
    QTest::newRow("4.2-unreadable-age")
        << "4.2" << head + "<EventType>enter</EventType><Count>x</Count><MaxHoldTime>soon</MaxHoldTime>"
        << true << 1 << 0 << none << -1;
    QTest::newRow("upper-case-type") << "6.1" << head + "<EventType>ENTER</EventType>" << false << 0 << 0
                                     << none << -1;
    QTest::newRow("no-queue") << "6.1"
                              << "<EventType>enter</EventType><Uid>1</Uid><CurrentCalls>1</CurrentCalls>"
                              << false << 0 << 0 << none << -1;
}

void TestQueueMessages::queueEvent()
{
    QFETCH(QString, api);
    QFETCH(QString, fields);
    QFETCH(bool, valid);
    QFETCH(int, eventType);
    QFETCH(int, currentCalls);
    QFETCH(QDateTime, holdStart);
    QFETCH(int, holdAgeSeconds);

    QtLogCapture log;
    const QDateTime before = QDateTime::currentDateTime();
    const QueueEventMsg msg = QueueEventMsg::parseMessage(
        serverDocument(QStringLiteral("<QueueEvent>") + fields + QStringLiteral("</QueueEvent>"), api));
    const QDateTime after = QDateTime::currentDateTime();

    QCOMPARE(msg.success, valid);
    QVERIFY(log.contains(QStringLiteral("API version")));
    QCOMPARE(log.contains(QStringLiteral("queueevent msg parsed ok")), valid);
    QCOMPARE(log.contains(QStringLiteral("parsed an invalid queueevent msg")), !valid);
    if (!valid) {
        QCOMPARE(msg.event, QueueEvent());
        return;
    }
    const QueueEvent& event = msg.event;
    QCOMPARE(event.queueId, QStringLiteral("sales"));
    QCOMPARE(event.eventType, eventType);
    QCOMPARE(event.uid, QStringLiteral("1700000001.9"));
    QCOMPARE(event.callerNum, QStringLiteral("0612&3"));
    QCOMPARE(event.callerChannel, QStringLiteral("SIP/trunk-0001"));
    QCOMPARE(event.currentCalls, currentCalls);
    if (holdAgeSeconds < 0) {
        QCOMPARE(event.longestHoldTime.isNull(), holdStart.isNull());
        if (!holdStart.isNull())
            QCOMPARE(event.longestHoldTime.toUTC(), holdStart);
    } else {
        // Old servers give the age: the start lies that many seconds back.
        QVERIFY(event.longestHoldTime >= before.addSecs(-holdAgeSeconds));
        QVERIFY(event.longestHoldTime <= after.addSecs(-holdAgeSeconds));
    }
}

void TestQueueMessages::queueEventRoundTrip_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<bool>("newElements");
    QTest::newRow("6.1") << "6.1" << true;
    QTest::newRow("5.7") << "5.7" << true;
    QTest::newRow("5.6") << "5.6" << false;
    QTest::newRow("5.10") << "5.10" << false;
    QTest::newRow("4.2") << "4.2" << false;
}

void TestQueueMessages::queueEventRoundTrip()
{
    QFETCH(QString, api);
    QFETCH(bool, newElements);

    QueueEventMsg out;
    out.event.queueId = QStringLiteral("sales<1>");
    out.event.eventType = QueueEvent::Leave;
    out.event.uid = QStringLiteral("1700000001.9");
    out.event.callerNum = QStringLiteral("\"Zo\u00eb\" <0612>");
    out.event.callerChannel = QStringLiteral("SIP/trunk-0001");
    out.event.currentCalls = 7;
    out.event.longestHoldTime = QDateTime::currentDateTime().addSecs(-95);

    const QString xml = out.serializeToXml(api);
    QCOMPARE(xml.contains(QStringLiteral("<CurrentCalls>7</CurrentCalls>")), newElements);
    QCOMPARE(xml.contains(QStringLiteral("<Count>7</Count>")), !newElements);
    QCOMPARE(xml.contains(QStringLiteral("<LongestHoldTime>")), newElements);
    QCOMPARE(xml.contains(QStringLiteral("<MaxHoldTime>")), !newElements);

    const QueueEventMsg in = QueueEventMsg::parseMessage(xml);
    QVERIFY(in.success);
    QCOMPARE(in.api, api);
    if (newElements) {
        QCOMPARE(in.event, out.event);
    } else {
        // The age travels in whole seconds and is measured again on reading.
        QVERIFY(qAbs(in.event.longestHoldTime.secsTo(out.event.longestHoldTime)) <= 2);
        QueueEvent expected = out.event;
        expected.longestHoldTime = in.event.longestHoldTime;
        QCOMPARE(in.event, expected);
    }

    out.event.longestHoldTime = QDateTime();
    QVERIFY(roundTrip(out, api).event.longestHoldTime.isNull());
}

// ---- live statistics --------------------------------------------------------------------

void TestQueueMessages::queueStatsList()
{
    const QString operators = operatorXml(QStringLiteral("SIP/201"), true, false)
        + operatorXml(QString(), false, false) + operatorXml(QStringLiteral("SIP/&lt;202&gt;"), false, true);
    const QString list = QStringLiteral("<QueuesStatsList>") + queueStatusXml(QStringLiteral("q1"), operators)
        + queueStatusXml(QString(), operatorXml(QStringLiteral("SIP/209"), true, true))
        + queueStatusXml(QStringLiteral("q2"), QString()) + QStringLiteral("</QueuesStatsList>");

    QtLogCapture log;
    const QueueStatsListRespMsg msg
        = QueueStatsListRespMsg::parseMessage(serverDocument(list, QStringLiteral("5.4")));
    QVERIFY(msg.success);
    QCOMPARE(msg.api, QStringLiteral("5.4"));
    QCOMPARE(msg.stats.size(), 2);
    QCOMPARE(log.count(QStringLiteral("parsed an invalid QueueStats msg")), 1);
    QCOMPARE(log.count(QStringLiteral("parsed an invalid QueueOperatorStats msg")), 1);
    QVERIFY(log.contains(QStringLiteral("QueueStatsList msg parsed ok")));

    const QueueStats& q1 = msg.stats.first();
    QCOMPARE(q1.queueId, QStringLiteral("q1"));
    QCOMPARE(q1.name, QStringLiteral("Queue q1"));
    QCOMPARE(q1.currentCalls, 3);
    QCOMPARE(q1.longestHoldTime, local(15, 10, 0, 0, 250));
    QCOMPARE(q1.operators.size(), 2);
    const QueueOperatorStats& first = q1.operators.first();
    QCOMPARE(first.member, QStringLiteral("SIP/201"));
    QVERIFY(first.dynamicMember);
    QVERIFY(!first.paused);
    QCOMPARE(first.penalty, 2);
    QCOMPARE(first.lastServedCall, QStringLiteral("1700000001.7"));
    QCOMPARE(first.lastCall, local(15, 9, 59, 58));
    QCOMPARE(first.lastPauseChange, QStringLiteral("2026-11-15 08:00:00"));
    QCOMPARE(first.statusAge, local(15, 7, 0, 1));
    QCOMPARE(q1.operators.at(1).member, QStringLiteral("SIP/<202>"));
    QVERIFY(q1.operators.at(1).paused);
    QVERIFY(!q1.operators.at(1).dynamicMember);

    // The second entry's operator stays with its invalid queue.
    QCOMPARE(msg.stats.at(1).queueId, QStringLiteral("q2"));
    QVERIFY(msg.stats.at(1).operators.isEmpty());

    // What was read goes back out and reads the same, absent dates and markup included.
    QueueStatsListRespMsg out = msg;
    out.stats[1].longestHoldTime = QDateTime();
    out.stats[0].operators[1].statusAge = QDateTime();
    out.stats[0].name = QStringLiteral("Queue <1> & co");
    const QueueStatsListRespMsg in = roundTrip(out, QStringLiteral("5.10"));
    QVERIFY(in.success);
    QCOMPARE(in.stats, out.stats);
}

void TestQueueMessages::queueStatsSkipsInvalidAmongThousands()
{
    QString list;
    QStringList expectedIds;
    int badQueues = 0;
    int badOperators = 0;
    for (int i = 0; i < 2000; ++i) {
        QString operators;
        for (int j = 0; j < 3; ++j) {
            const bool bad = (i + j) % 17 == 0;
            operators
                += operatorXml(bad ? QString() : QStringLiteral("SIP/%1").arg(i * 10 + j), j == 1, j == 2);
            if (bad && i % 23 != 5)
                ++badOperators;
        }
        if (i % 23 == 5) {
            list += queueStatusXml(QString(), operators);
            ++badQueues;
        } else {
            list += queueStatusXml(QStringLiteral("q%1").arg(i), operators);
            expectedIds << QStringLiteral("q%1").arg(i);
        }
    }
    QtLogCapture log;
    const QueueStatsListRespMsg msg = QueueStatsListRespMsg::parseMessage(
        serverDocument(QStringLiteral("<QueuesStatsList>") + list + QStringLiteral("</QueuesStatsList>")));
    QVERIFY(msg.success);
    QStringList ids;
    int operatorCount = 0;
    for (const QueueStats& q : msg.stats) {
        ids << q.queueId;
        operatorCount += q.operators.size();
    }
    QCOMPARE(ids, expectedIds);
    QCOMPARE(operatorCount, expectedIds.size() * 3 - badOperators);
    QCOMPARE(log.count(QStringLiteral("parsed an invalid QueueStats msg")), badQueues);
    QCOMPARE(log.count(QStringLiteral("parsed an invalid QueueOperatorStats msg")), badOperators);
}

// ---- failures and empty lists ---------------------------------------------------------------

namespace {
// Success, error text and number of records kept of one statistics answer.
template <typename Msg, typename Count>
QPair<bool, QString> parseOutcome(const QString& xml, int* entries, Count count)
{
    const Msg msg = Msg::parseMessage(xml);
    if (entries)
        *entries = count(msg);
    return {msg.success, msg.errorMessage};
}

QPair<bool, QString> parseByClass(const QString& className, const QString& xml, int* entries = nullptr)
{
    const auto listSize = [](const auto& msg) { return int(msg.stats.size()); };
    const auto single = [](const auto& msg) { return msg.stats.queueId.isEmpty() ? 0 : 1; };
    if (className == QLatin1String("QueueStatsListRespMsg"))
        return parseOutcome<QueueStatsListRespMsg>(xml, entries, listSize);
    if (className == QLatin1String("QueuePeriodicStatsListRespMsg"))
        return parseOutcome<QueuePeriodicStatsListRespMsg>(
            xml, entries,
            [](const QueuePeriodicStatsListRespMsg& msg) { return int(msg.stats.stats.size()); });
    if (className == QLatin1String("QueueOperatorPeriodicStatsListRespMsg"))
        return parseOutcome<QueueOperatorPeriodicStatsListRespMsg>(xml, entries, listSize);
    if (className == QLatin1String("QueuePeriodicStatsRespMsg"))
        return parseOutcome<QueuePeriodicStatsRespMsg>(xml, entries, single);
    return parseOutcome<QueueOperatorPeriodicStatsRespMsg>(xml, entries, single);
}
} // namespace

void TestQueueMessages::failedRequests_data()
{
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("failureText");
    QTest::addColumn<QString>("body");

    QTest::newRow("stats-list") << "QueueStatsListRespMsg"
                                << "Queue stats request failed: "
                                << "<QueuesStatsList>" + queueStatusXml("q1", QString())
            + "</QueuesStatsList>";
    QTest::newRow("periodic-list") << "QueuePeriodicStatsListRespMsg"
                                   << "QueuePeriodicStatsList request failed: "
                                   << "<QueuePeriodicStatsList>" + periodicXml("q1", "TODAY")
            + "</QueuePeriodicStatsList>";
    QTest::newRow("operator-list") << "QueueOperatorPeriodicStatsListRespMsg"
                                   << "QueueOperatorPeriodicStatsList request failed: "
                                   << "<QueueOperatorPeriodicStatsList><OperatorPeriodicStats>"
            + operatorPeriodicFields("q1", "1", "")
            + "</OperatorPeriodicStats></QueueOperatorPeriodicStatsList>";
    QTest::newRow("periodic-single") << "QueuePeriodicStatsRespMsg"
                                     << "QueuePeriodicStats request failed: " << periodicXml("q1", "TODAY");
    QTest::newRow("operator-single") << "QueueOperatorPeriodicStatsRespMsg"
                                     << "QueueOperatorPeriodicStats request failed: "
                                     << "<OperatorPeriodicStats>" + operatorPeriodicFields("q1", "1", "")
            + "</OperatorPeriodicStats>";
}

void TestQueueMessages::failedRequests()
{
    QFETCH(QString, className);
    QFETCH(QString, failureText);
    QFETCH(QString, body);

    QtLogCapture log;
    int entries = -1;
    const auto outcome
        = parseByClass(className, failedDocument(QStringLiteral("no <rights>"), body), &entries);
    QVERIFY(!outcome.first);
    QCOMPARE(outcome.second, QStringLiteral("no <rights>"));
    QCOMPARE(entries, 0);
    QVERIFY(log.contains(failureText + QStringLiteral("no <rights>")));
    QVERIFY(!log.contains(QStringLiteral("parsed ok")));
}

void TestQueueMessages::emptyRequestFailedIsNoFailure()
{
    const QString xml
        = serverDocument(QStringLiteral("<RequestFailed></RequestFailed>") + periodicXml("q1", "TODAY"));
    const QueuePeriodicStatsRespMsg msg = QueuePeriodicStatsRespMsg::parseMessage(xml);
    QVERIFY(msg.success);
    QCOMPARE(msg.stats.queueId, QStringLiteral("q1"));
}

void TestQueueMessages::emptyLists_data()
{
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("document");
    QTest::addColumn<QString>("emptyWord");

    QTest::newRow("stats-empty") << "QueueStatsListRespMsg"
                                 << serverDocument("<QueuesStatsList></QueuesStatsList>")
                                 << "parsed an empty QueueStatsList msg";
    QTest::newRow("periodic-self-closed")
        << "QueuePeriodicStatsListRespMsg" << serverDocument("<QueuePeriodicStatsList/>")
        << "parsed an empty QueuePeriodicStatsList msg";
    QTest::newRow("periodic-all-invalid")
        << "QueuePeriodicStatsListRespMsg"
        << serverDocument("<QueuePeriodicStatsList><Period>TODAY</Period>" + periodicXml(QString(), "TODAY")
                          + "</QueuePeriodicStatsList>")
        << "parsed an empty QueuePeriodicStatsList msg";
    QTest::newRow("operator-empty")
        << "QueueOperatorPeriodicStatsListRespMsg"
        << serverDocument("<QueueOperatorPeriodicStatsList></QueueOperatorPeriodicStatsList>")
        << "parsed an empty QueueOperatorPeriodicStatsList msg";
}

void TestQueueMessages::emptyLists()
{
    QFETCH(QString, className);
    QFETCH(QString, document);
    QFETCH(QString, emptyWord);
    QtLogCapture log;
    int entries = -1;
    const auto outcome = parseByClass(className, document, &entries);
    QVERIFY(outcome.first);
    QCOMPARE(entries, 0);
    QVERIFY(log.contains(emptyWord));
    QVERIFY(!log.contains(QStringLiteral("msg parsed ok")));
}

// ---- periodic statistics ------------------------------------------------------------------------

void TestQueueMessages::periodicStatsList_data()
{
    addApiRows({QStringLiteral("4.9"), QStringLiteral("5.4"), QStringLiteral("5.10"), QStringLiteral("6.1")});
}

void TestQueueMessages::periodicStatsList()
{
    QFETCH(QString, api);
    const QString list = QStringLiteral("<QueuePeriodicStatsList><Period>CURRWEEK</Period>")
        + periodicXml(QStringLiteral("q&amp;1"), QStringLiteral("TODAY"))
        + periodicXml(QString(), QStringLiteral("TODAY"))
        + periodicXml(QStringLiteral("q2"), QStringLiteral("bogus"))
        + QStringLiteral("</QueuePeriodicStatsList>");

    QtLogCapture log;
    const QueuePeriodicStatsListRespMsg msg
        = QueuePeriodicStatsListRespMsg::parseMessage(serverDocument(list, api));
    QVERIFY(msg.success);
    QCOMPARE(msg.api, api);
    QCOMPARE(msg.stats.period, TELVIX::PeriodCurrWeek);
    QCOMPARE(msg.stats.stats.size(), 2);
    QCOMPARE(log.count(QStringLiteral("parsed an invalid QueuePeriodicStats msg")), 1);
    QVERIFY(log.contains(QStringLiteral("QueuePeriodicStatsList msg parsed ok")));

    const QueuePeriodicStats& first = msg.stats.stats.first();
    QCOMPARE(first.queueId, QStringLiteral("q&1"));
    QCOMPARE(first.period, TELVIX::PeriodToday);
    QCOMPARE(first.startDate, local(1, 0, 0, 0));
    QCOMPARE(first.endDate, local(15, 23, 59, 59, 999));
    QCOMPARE(first.servedCalls, 120);
    QCOMPARE(first.servedAverageWaitingTime, 12.5);
    QCOMPARE(first.servedAverageConversationTime, 180.25);
    QCOMPARE(first.missedCalls, 7);
    QCOMPARE(first.missedAverageWaitingTime, 45.125);
    QCOMPARE(msg.stats.stats.at(1).period, TELVIX::PeriodInvalid);
}

void TestQueueMessages::periodicStatsSkipsInvalidAmongThousands()
{
    QString list = QStringLiteral("<QueuePeriodicStatsList><Period>30DAYS</Period>");
    int bad = 0;
    for (int i = 0; i < 5000; ++i) {
        const bool invalid = i % 19 == 3;
        list += periodicXml(invalid ? QString() : QStringLiteral("q%1").arg(i), QStringLiteral("30DAYS"));
        bad += invalid ? 1 : 0;
    }
    list += QStringLiteral("</QueuePeriodicStatsList>");
    QtLogCapture log;
    const auto msg = QueuePeriodicStatsListRespMsg::parseMessage(serverDocument(list));
    QVERIFY(msg.success);
    QCOMPARE(msg.stats.stats.size(), 5000 - bad);
    QCOMPARE(msg.stats.stats.last().queueId, QStringLiteral("q4999"));
    QCOMPARE(msg.stats.period, TELVIX::Period30Days);
    QCOMPARE(log.count(QStringLiteral("parsed an invalid QueuePeriodicStats msg")), bad);
}

void TestQueueMessages::periodicStatsSingle_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<bool>("valid");
    QTest::newRow("valid") << periodicXml("q9", "PREVMONTH") << true;
    QTest::newRow("no-queue") << periodicXml(QString(), "PREVMONTH") << false;
}

void TestQueueMessages::periodicStatsSingle()
{
    QFETCH(QString, body);
    QFETCH(bool, valid);
    QtLogCapture log;
    const auto msg = QueuePeriodicStatsRespMsg::parseMessage(serverDocument(body, QStringLiteral("5.4")));
    QCOMPARE(msg.success, valid);
    QCOMPARE(log.contains(QStringLiteral("QueuePeriodicStats msg parsed ok")), valid);
    QCOMPARE(log.contains(QStringLiteral("parsed an invalid QueuePeriodicStats msg")), !valid);
    if (valid) {
        QCOMPARE(msg.stats.queueId, QStringLiteral("q9"));
        QCOMPARE(msg.stats.period, TELVIX::PeriodPrevMonth);
        QCOMPARE(msg.stats.missedCalls, 7);
        QCOMPARE(msg.api, QStringLiteral("5.4"));
    } else {
        QCOMPARE(msg.stats, QueuePeriodicStats());
        QCOMPARE(msg.api, QStringLiteral("4.2"));
    }
}

void TestQueueMessages::periodicStatsRoundTrip()
{
    QueuePeriodicStats stats;
    stats.queueId = QStringLiteral("sales & <more>");
    stats.period = TELVIX::PeriodCustom;
    stats.startDate = local(1, 0, 0, 0, 1);
    stats.endDate = local(2, 12, 30, 0, 999);
    stats.servedCalls = 31;
    stats.servedAverageWaitingTime = 12.125;
    stats.servedAverageConversationTime = 0.5;
    stats.missedCalls = 2;
    stats.missedAverageWaitingTime = 1234.5;

    QueuePeriodicStatsRespMsg single;
    single.stats = stats;
    QCOMPARE(roundTrip(single).stats, stats);

    QueuePeriodicStatsListRespMsg list;
    list.stats.period = TELVIX::PeriodYesterday;
    list.stats.stats << stats;
    stats.queueId = QStringLiteral("q2");
    stats.period = TELVIX::PeriodYesterday;
    stats.startDate = QDateTime();
    list.stats.stats << stats;
    const QString xml = list.serializeToXml(QStringLiteral("6.1"));
    QVERIFY(xml.contains(
        QStringLiteral("<QueuePeriodicStatsList><Period>YESTERDAY</Period><QueuePeriodicStats>")));
    QCOMPARE(QueuePeriodicStatsListRespMsg::parseMessage(xml).stats, list.stats);

    // Doubles travel with six significant digits.
    single.stats.servedAverageWaitingTime = 12.3456789;
    const QString rounded = single.serializeToXml(QStringLiteral("6.1"));
    QVERIFY(rounded.contains(QStringLiteral("<ServedAverageWaitingTime>12.3457</ServedAverageWaitingTime>")));
    QCOMPARE(QueuePeriodicStatsRespMsg::parseMessage(rounded).stats.servedAverageWaitingTime, 12.3457);
}

void TestQueueMessages::operatorPeriodicTwoReadings_data()
{
    QTest::addColumn<QString>("conversation");
    QTest::addColumn<QString>("lastServed");
    QTest::addColumn<double>("listConversation");
    QTest::addColumn<QDateTime>("listLastServed");
    QTest::addColumn<double>("singleConversation");
    QTest::addColumn<QDateTime>("singleLastServed");

    const QDateTime served = local(15, 10, 20, 30);
    QTest::newRow("iso-and-fraction") << "12.75"
                                      << "2026-11-15T10:20:30.000" << 12.75 << served << 0.0 << QDateTime();
    QTest::newRow("text-date-and-whole")
        << "12" << served.toString() << 12.0 << QDateTime() << 12.0 << served;
    QTest::newRow("iso-blank") << "300"
                               << "2026-11-15 10:20:30.000" << 300.0 << served << 300.0 << QDateTime();
}

void TestQueueMessages::operatorPeriodicTwoReadings()
{
    QFETCH(QString, conversation);
    QFETCH(QString, lastServed);
    QFETCH(double, listConversation);
    QFETCH(QDateTime, listLastServed);
    QFETCH(double, singleConversation);
    QFETCH(QDateTime, singleLastServed);

    const QString fields = operatorPeriodicFields(QStringLiteral("q1"), conversation, lastServed);
    QtLogCapture log;
    const auto list = QueueOperatorPeriodicStatsListRespMsg::parseMessage(
        serverDocument(QStringLiteral("<QueueOperatorPeriodicStatsList><OperatorPeriodicStats>") + fields
                       + QStringLiteral("</OperatorPeriodicStats></QueueOperatorPeriodicStatsList>")));
    const auto single = QueueOperatorPeriodicStatsRespMsg::parseMessage(serverDocument(
        QStringLiteral("<OperatorPeriodicStats>") + fields + QStringLiteral("</OperatorPeriodicStats>")));
    QVERIFY(list.success);
    QVERIFY(single.success);
    QVERIFY(log.contains(QStringLiteral("QueueOperatorPeriodicStatsList msg parsed ok")));
    QVERIFY(log.contains(QStringLiteral("QueueOperatorPeriodicStats msg parsed ok")));
    QCOMPARE(list.stats.size(), 1);

    for (const QueueOperatorPeriodicStats* stats : {&list.stats.first(), &single.stats}) {
        QCOMPARE(stats->operatorAccount, QStringLiteral("SIP&201"));
        QVERIFY(stats->exten.isEmpty());
        QCOMPARE(stats->queueId, QStringLiteral("q1"));
        QCOMPARE(stats->period, TELVIX::PeriodCustom);
        QCOMPARE(stats->startDate, local(1, 0, 0, 0));
        QCOMPARE(stats->endDate, local(2, 0, 0, 0));
        QCOMPARE(stats->servedCalls, 9);
    }
    QCOMPARE(list.stats.first().conversationTime, listConversation);
    QCOMPARE(list.stats.first().lastServedCall.isNull(), listLastServed.isNull());
    if (!listLastServed.isNull())
        QCOMPARE(list.stats.first().lastServedCall, listLastServed);
    QCOMPARE(single.stats.conversationTime, singleConversation);
    QCOMPARE(single.stats.lastServedCall.isValid(), singleLastServed.isValid());
    if (singleLastServed.isValid())
        QCOMPARE(single.stats.lastServedCall, singleLastServed);
}

void TestQueueMessages::operatorPeriodicInvalid()
{
    const QString fields = operatorPeriodicFields(QString(), QStringLiteral("1"), QString());
    QtLogCapture log;
    const auto single = QueueOperatorPeriodicStatsRespMsg::parseMessage(serverDocument(
        QStringLiteral("<OperatorPeriodicStats>") + fields + QStringLiteral("</OperatorPeriodicStats>")));
    QVERIFY(!single.success);
    QVERIFY(single.stats.operatorAccount.isEmpty());
    QVERIFY(log.contains(QStringLiteral("parsed an invalid QueueOperatorPeriodicStats msg")));

    QString entries;
    for (int i = 0; i < 1500; ++i) {
        entries += QStringLiteral("<OperatorPeriodicStats>")
            + operatorPeriodicFields(i % 10 == 0 ? QString() : QStringLiteral("q%1").arg(i),
                                     QStringLiteral("2.5"), QStringLiteral("2026-11-15T10:20:30.000"))
            + QStringLiteral("</OperatorPeriodicStats>");
    }
    log.clear();
    const auto list = QueueOperatorPeriodicStatsListRespMsg::parseMessage(
        serverDocument(QStringLiteral("<QueueOperatorPeriodicStatsList>") + entries
                       + QStringLiteral("</QueueOperatorPeriodicStatsList>")));
    QVERIFY(list.success);
    QCOMPARE(list.stats.size(), 1350);
    QCOMPARE(log.count(QStringLiteral("parsed an invalid QueueOperatorPeriodicStats msg")), 150);
}

void TestQueueMessages::operatorPeriodicRoundTrip()
{
    QueueOperatorPeriodicStats stats;
    stats.operatorAccount = QStringLiteral("SIP/<201>");
    stats.exten = QStringLiteral("201");
    stats.queueId = QStringLiteral("q&1");
    stats.period = TELVIX::Period90Days;
    stats.startDate = local(1, 0, 0, 0, 5);
    stats.endDate = local(3, 0, 0, 0, 6);
    stats.servedCalls = 4;
    stats.conversationTime = 61.75;
    stats.lastServedCall = local(2, 13, 14, 15, 160);

    QueueOperatorPeriodicStats expected = stats;
    expected.exten.clear();

    QueueOperatorPeriodicStatsListRespMsg list;
    list.stats << stats << stats;
    const auto listIn = roundTrip(list, QStringLiteral("5.10"));
    QCOMPARE(listIn.stats, (QList<QueueOperatorPeriodicStats> {expected, expected}));

    // The single form mirrors its own reading: whole seconds of conversation
    // and a text date without milliseconds.
    QueueOperatorPeriodicStatsRespMsg single;
    single.stats = stats;
    const QString xml = single.serializeToXml(QStringLiteral("6.1"));
    QVERIFY(xml.contains(QStringLiteral("<ConversationTime>61</ConversationTime>")));
    const auto singleIn = QueueOperatorPeriodicStatsRespMsg::parseMessage(xml);
    expected.conversationTime = 61;
    expected.lastServedCall = local(2, 13, 14, 15);
    QCOMPARE(singleIn.stats, expected);
}

// ---- call-centre report ---------------------------------------------------------------------------

void TestQueueMessages::ccReportRequest_data()
{
    QTest::addColumn<int>("period");
    QTest::addColumn<QDateTime>("start");
    QTest::addColumn<QDateTime>("end");
    QTest::addColumn<QString>("expectedBody");

    const QDateTime start = local(1, 8, 0, 0);
    const QDateTime end = local(15, 18, 30, 0, 500);
    const QString tail
        = QStringLiteral("<AttendedThreshold>10</AttendedThreshold><AttendedThreshold>30</AttendedThreshold>"
                         "<LostThreshold>5</LostThreshold><Locale>it_IT</Locale></GetCDRCallCenterReport>");
    QTest::newRow("today-ignores-dates")
        << 1 << start << end << "<GetCDRCallCenterReport><Period>TODAY</Period>" + tail;
    QTest::newRow("custom-both-dates")
        << 10 << start << end
        << "<GetCDRCallCenterReport><StartDate>2026-11-01T08:00:00.000</StartDate>"
           "<EndDate>2026-11-15T18:30:00.500</EndDate>"
            + tail;
    QTest::newRow("custom-invalid-end")
        << 10 << start << QDateTime(QDate(2026, 2, 30), QTime(1, 0))
        << "<GetCDRCallCenterReport><StartDate>2026-11-01T08:00:00.000</StartDate>" + tail;
    QTest::newRow("custom-no-dates") << 10 << QDateTime() << QDateTime() << "<GetCDRCallCenterReport>" + tail;
}

void TestQueueMessages::ccReportRequest()
{
    QFETCH(int, period);
    QFETCH(QDateTime, start);
    QFETCH(QDateTime, end);
    QFETCH(QString, expectedBody);

    GetCCReportReqMsg request;
    request.period = TELVIX::PeriodType(period);
    request.startDate = start;
    request.endDate = end;
    request.attendedThresholds = {10, 30};
    request.lostThresholds = {5};
    request.locale = QStringLiteral("it_IT");
    const QString xml = request.serializeToXml(QStringLiteral("5.7"));
    QCOMPARE(requestBody(xml), expectedBody);
    QVERIFY(!xml.contains(QStringLiteral("Thresholds")));
}

void TestQueueMessages::ccReportResponse_data()
{
    QTest::addColumn<QString>("document");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QString>("logWord");

    QByteArray report("<?xml version=\"1.0\"?><Report>");
    for (int i = 0; i < 500; ++i)
        report += "<Row queue=\"q" + QByteArray::number(i % 7) + "\" answered=\"" + QByteArray::number(i)
            + "\"/>";
    report += "</Report>";
    const QString md5
        = QString::fromLatin1(QCryptographicHash::hash(report, QCryptographicHash::Md5).toHex());

    QTest::newRow("valid") << ccReportDocument(report, md5) << true << "CC Report msg parsed ok";
    QTest::newRow("wrong-md5") << ccReportDocument(report, QString(32, QLatin1Char('0'))) << false
                               << "Invalid CCReport: MD5 check failed!";
    QTest::newRow("upper-case-md5") << ccReportDocument(report, md5.toUpper()) << false
                                    << "Invalid CCReport: MD5 check failed!";
    QTest::newRow("empty-data") << serverDocument(
        "<CDRCallCenterReport><Data/><Md5>x</Md5></CDRCallCenterReport>")
                                << false << "parsed an empty CCReport msg";
}

void TestQueueMessages::ccReportResponse()
{
    QFETCH(QString, document);
    QFETCH(bool, valid);
    QFETCH(QString, logWord);

    QtLogCapture log;
    const CCReportRespMsg msg = CCReportRespMsg::parseMessage(document);
    QCOMPARE(msg.success, valid);
    QVERIFY(log.contains(logWord));
    if (valid) {
        QVERIFY(msg.data.startsWith("<?xml version=\"1.0\"?><Report><Row queue=\"q0\""));
        QVERIFY(msg.data.endsWith("</Report>"));
        QCOMPARE(msg.format, QStringLiteral("xml"));
        QCOMPARE(msg.uuid, fixtureUuid());
        QCOMPARE(msg.api, QStringLiteral("6.1"));
    } else {
        QVERIFY(msg.data.isEmpty());
        QVERIFY(msg.format.isEmpty());
        QVERIFY(msg.uuid.isEmpty());
    }
}

void TestQueueMessages::ccReportRoundTrip()
{
    CCReportRespMsg out;
    QByteArray data;
    for (int i = 0; i < 20000; ++i)
        data.append(char(i % 251));
    out.data = data;
    const QString xml = out.serializeToXml(QStringLiteral("6.1"));
    QVERIFY(xml.contains(QStringLiteral("<Md5>") + Utils::md5sum(data) + QStringLiteral("</Md5>")));
    const CCReportRespMsg in = CCReportRespMsg::parseMessage(xml);
    QVERIFY(in.success);
    QCOMPARE(in.data, data);
    QCOMPARE(in.format, QStringLiteral("xml"));
    const CallCenterReport report = in;
    QCOMPARE(report.data.size(), data.size());
}

// ---- records ----------------------------------------------------------------------------------------

void TestQueueMessages::metaTypesRegistered()
{
    for (const char* name :
         {"QueueMember", "QueueEvent", "QueueStats", "QList<QueueStats>", "QueueOperatorStats",
          "QueuePeriodicStats", "QueuePeriodicStatsList", "QueueOperatorPeriodicStats",
          "QList<QueueOperatorPeriodicStats>", "CallCenterReport"})
        QVERIFY2(QMetaType::type(name) != QMetaType::UnknownType, name);

    QueueMember member;
    member.membership = TELVIX::QueueOperatorMemberDynamic;
    const QMetaObject& meta = QueueMember::staticMetaObject;
    const QVariant value = meta.property(meta.indexOfProperty("membership")).readOnGadget(&member);
    QCOMPARE(value.value<TELVIX::QueueOperatorMembership>(), TELVIX::QueueOperatorMemberDynamic);
}

QTEST_APPLESS_MAIN(TestQueueMessages)
#include "tst_queuemessages.moc"
