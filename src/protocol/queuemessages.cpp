#include "queuemessages.h"

#include "messagereader.h"
#include "utils.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;
using MessageReader::isOne;
using MessageReader::text;
using MessageReader::toInt;

namespace {

const QString EventEnter = QStringLiteral("enter");
const QString EventLeave = QStringLiteral("leave");
/// Dates of the live operator statistics: no T, no milliseconds.
const QString OperatorDateFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss");

/// The two readings of the operator periodic record: the list answer and the
/// single answer come from different server code and are read differently.
enum class OperatorForm { List, Single };

qint32 eventTypeFromText(const QString& type)
{
    if (type == EventEnter)
        return QueueEvent::Enter;
    if (type == EventLeave)
        return QueueEvent::Leave;
    return QueueEvent::Unknown;
}

QString eventTypeToText(qint32 type)
{
    switch (type) {
    case QueueEvent::Enter:
        return EventEnter;
    case QueueEvent::Leave:
        return EventLeave;
    default:
        return QString();
    }
}

QDateTime readDate(QStringView xml, const QString& tag, const QString& format)
{
    return QDateTime::fromString(text(xml, tag), format);
}

double toDouble(QStringView xml, const QString& tag)
{
    return text(xml, tag).toDouble();
}

QString doubleText(double value)
{
    return QString::number(value, 'g', 6);
}

/// What Utils::parseIsoDateTime reads back to the same instant.
QString isoText(const QDateTime& value)
{
    return value.isNull() ? QString() : value.toString(Qt::ISODateWithMs);
}

bool readOperatorStats(QStringView entryText, QueueOperatorStats& op)
{
    op.member = text(entryText, S_XMLTAG_QUEUESTATS_OPER_MEMBER);
    op.dynamicMember = isOne(entryText, S_XMLTAG_QUEUESTATS_OPER_ISDYNAMIC);
    op.penalty = toInt(entryText, S_XMLTAG_QUEUESTATS_OPER_PENALTY);
    op.lastServedCall = text(entryText, S_XMLTAG_QUEUESTATS_OPER_LASTSERVEDCALL);
    op.lastCall = readDate(entryText, S_XMLTAG_QUEUESTATS_OPER_LASTCALL, OperatorDateFormat);
    op.lastPauseChange = text(entryText, S_XMLTAG_QUEUESTATS_OPER_LASTPAUSECHANGE);
    op.statusAge = readDate(entryText, S_XMLTAG_QUEUESTATS_OPER_STATUSAGE, OperatorDateFormat);
    op.paused = isOne(entryText, S_XMLTAG_QUEUESTATS_OPER_ISPAUSED);
    return !op.member.isEmpty();
}

bool readQueueStats(QStringView entryText, QueueStats& stats)
{
    stats.queueId = text(entryText, S_XMLTAG_QUEUESTATS_QUEUEID);
    if (stats.queueId.isEmpty())
        return false;
    stats.name = text(entryText, S_XMLTAG_QUEUESTATS_NAME);
    stats.currentCalls = toInt(entryText, S_XMLTAG_QUEUESTATS_CURRENTCALLS);
    stats.longestHoldTime = readDate(entryText, S_XMLTAG_QUEUESTATS_LONGESTHOLDTIME, TELVIX::IsoDateNoTz);
    const QVector<QStringView> operators = MessageReader::entries(entryText, S_XMLTAG_QUEUESTATS_OPER_ENTRY);
    for (const QStringView operatorText : operators) {
        if (!MessageReader::appendEntry(stats.operators, operatorText, readOperatorStats))
            MessageReader::logDebug(QStringLiteral("parsed an invalid QueueOperatorStats msg"));
    }
    return true;
}

/// Period, start and end, shared by both periodic records.
void readPeriod(QStringView xml, TELVIX::PeriodType& period, QDateTime& start, QDateTime& end)
{
    period = TELVIX::periodTypeFromString(text(xml, S_XMLTAG_QUEUEPERIODICSTATS_PERIOD));
    start = readDate(xml, S_XMLTAG_QUEUEPERIODICSTATS_STARTDATE, TELVIX::IsoDateNoTz);
    end = readDate(xml, S_XMLTAG_QUEUEPERIODICSTATS_ENDDATE, TELVIX::IsoDateNoTz);
}

void writePeriod(XmlBodyWriter& body, TELVIX::PeriodType period, const QDateTime& start, const QDateTime& end)
{
    body.text(S_XMLTAG_QUEUEPERIODICSTATS_PERIOD, TELVIX::periodTypeToString(period))
        .text(S_XMLTAG_QUEUEPERIODICSTATS_STARTDATE, start.toString(TELVIX::IsoDateNoTz))
        .text(S_XMLTAG_QUEUEPERIODICSTATS_ENDDATE, end.toString(TELVIX::IsoDateNoTz));
}

bool readPeriodicStats(QStringView xml, QueuePeriodicStats& stats)
{
    stats.queueId = text(xml, S_XMLTAG_QUEUEPERIODICSTATS_QUEUEID);
    readPeriod(xml, stats.period, stats.startDate, stats.endDate);
    stats.servedCalls = toInt(xml, S_XMLTAG_QUEUEPERIODICSTATS_SERVEDCALLCOUNT);
    stats.servedAverageWaitingTime = toDouble(xml, S_XMLTAG_QUEUEPERIODICSTATS_SERVEDAWT);
    stats.servedAverageConversationTime = toDouble(xml, S_XMLTAG_QUEUEPERIODICSTATS_SERVEDACT);
    stats.missedCalls = toInt(xml, S_XMLTAG_QUEUEPERIODICSTATS_MISSEDCALLCOUNT);
    stats.missedAverageWaitingTime = toDouble(xml, S_XMLTAG_QUEUEPERIODICSTATS_MISSEDAWT);
    return !stats.queueId.isEmpty();
}

void writePeriodicStats(XmlBodyWriter& body, const QueuePeriodicStats& stats)
{
    body.start(S_XMLTAG_QUEUEPERIODICSTATS_ENTRY).text(S_XMLTAG_QUEUEPERIODICSTATS_QUEUEID, stats.queueId);
    writePeriod(body, stats.period, stats.startDate, stats.endDate);
    body.text(S_XMLTAG_QUEUEPERIODICSTATS_SERVEDCALLCOUNT, stats.servedCalls)
        .text(S_XMLTAG_QUEUEPERIODICSTATS_SERVEDAWT, doubleText(stats.servedAverageWaitingTime))
        .text(S_XMLTAG_QUEUEPERIODICSTATS_SERVEDACT, doubleText(stats.servedAverageConversationTime))
        .text(S_XMLTAG_QUEUEPERIODICSTATS_MISSEDCALLCOUNT, stats.missedCalls)
        .text(S_XMLTAG_QUEUEPERIODICSTATS_MISSEDAWT, doubleText(stats.missedAverageWaitingTime))
        .end();
}

bool readOperatorPeriodicStats(QStringView xml, QueueOperatorPeriodicStats& stats, OperatorForm form)
{
    stats.operatorAccount = text(xml, S_XMLTAG_QUEUEOPERATORPERIODICSTATS_OPERATOR);
    stats.queueId = text(xml, S_XMLTAG_QUEUEPERIODICSTATS_QUEUEID);
    readPeriod(xml, stats.period, stats.startDate, stats.endDate);
    stats.servedCalls = toInt(xml, S_XMLTAG_QUEUEPERIODICSTATS_SERVEDCALLCOUNT);
    const QString lastServed = text(xml, S_XMLTAG_QUEUEOPERATORPERIODICSTATS_LASTSERVEDCALL);
    if (form == OperatorForm::List) {
        stats.conversationTime = toDouble(xml, S_XMLTAG_QUEUEOPERATORPERIODICSTATS_CONVERSATIONTIME);
        stats.lastServedCall = Utils::parseIsoDateTime(lastServed);
    } else {
        stats.conversationTime = toInt(xml, S_XMLTAG_QUEUEOPERATORPERIODICSTATS_CONVERSATIONTIME);
        stats.lastServedCall = QDateTime::fromString(lastServed);
    }
    return !stats.queueId.isEmpty();
}

void writeOperatorPeriodicStats(XmlBodyWriter& body, const QueueOperatorPeriodicStats& stats,
                                OperatorForm form)
{
    body.start(S_XMLTAG_QUEUEOPERATORPERIODICSTATS_ENTRY)
        .text(S_XMLTAG_QUEUEOPERATORPERIODICSTATS_OPERATOR, stats.operatorAccount)
        .text(S_XMLTAG_QUEUEPERIODICSTATS_QUEUEID, stats.queueId);
    writePeriod(body, stats.period, stats.startDate, stats.endDate);
    body.text(S_XMLTAG_QUEUEPERIODICSTATS_SERVEDCALLCOUNT, stats.servedCalls);
    if (form == OperatorForm::List) {
        body.text(S_XMLTAG_QUEUEOPERATORPERIODICSTATS_CONVERSATIONTIME, doubleText(stats.conversationTime))
            .text(S_XMLTAG_QUEUEOPERATORPERIODICSTATS_LASTSERVEDCALL, isoText(stats.lastServedCall));
    } else {
        body.text(S_XMLTAG_QUEUEOPERATORPERIODICSTATS_CONVERSATIONTIME, int(stats.conversationTime))
            .text(S_XMLTAG_QUEUEOPERATORPERIODICSTATS_LASTSERVEDCALL, stats.lastServedCall.toString());
    }
    body.end();
}

bool readOperatorPeriodicListEntry(QStringView entryText, QueueOperatorPeriodicStats& stats)
{
    return readOperatorPeriodicStats(entryText, stats, OperatorForm::List);
}

bool readOperatorPeriodicSingle(QStringView xml, QueueOperatorPeriodicStats& stats)
{
    return readOperatorPeriodicStats(xml, stats, OperatorForm::Single);
}

/// The answers that carry one record: RequestFailed test, then the record
/// read from the whole document, invalid without its mandatory field.
template <typename Msg, typename Read>
Msg parseSingle(const QString& xml, const QString& failureText, const QString& name, Read read)
{
    Msg msg;
    if (MessageReader::requestFailed(xml, failureText, msg))
        return msg;
    if (!read(xml, msg.stats))
        return MessageReader::invalid<Msg>(QStringLiteral("parsed an invalid ") + name
                                           + QStringLiteral(" msg"));
    return MessageReader::accepted(msg, xml, name + QStringLiteral(" msg parsed ok"));
}

} // namespace

// ---- records ------------------------------------------------------------------

bool QueueMember::operator==(const QueueMember& other) const
{
    return account == other.account && exten == other.exten && queueId == other.queueId
        && membership == other.membership && penalty == other.penalty && paused == other.paused;
}

bool QueueEvent::operator==(const QueueEvent& other) const
{
    return queueId == other.queueId && eventType == other.eventType && uid == other.uid
        && callerNum == other.callerNum && callerChannel == other.callerChannel
        && currentCalls == other.currentCalls && longestHoldTime == other.longestHoldTime;
}

bool QueueOperatorStats::operator==(const QueueOperatorStats& other) const
{
    return member == other.member && dynamicMember == other.dynamicMember && penalty == other.penalty
        && lastServedCall == other.lastServedCall && lastCall == other.lastCall
        && lastPauseChange == other.lastPauseChange && statusAge == other.statusAge && paused == other.paused;
}

bool QueueStats::operator==(const QueueStats& other) const
{
    return queueId == other.queueId && name == other.name && currentCalls == other.currentCalls
        && longestHoldTime == other.longestHoldTime && operators == other.operators;
}

bool QueuePeriodicStats::operator==(const QueuePeriodicStats& other) const
{
    return queueId == other.queueId && period == other.period && startDate == other.startDate
        && endDate == other.endDate && servedCalls == other.servedCalls
        && servedAverageWaitingTime == other.servedAverageWaitingTime
        && servedAverageConversationTime == other.servedAverageConversationTime
        && missedCalls == other.missedCalls && missedAverageWaitingTime == other.missedAverageWaitingTime;
}

bool QueuePeriodicStatsList::operator==(const QueuePeriodicStatsList& other) const
{
    return period == other.period && stats == other.stats;
}

bool QueueOperatorPeriodicStats::operator==(const QueueOperatorPeriodicStats& other) const
{
    return operatorAccount == other.operatorAccount && exten == other.exten && queueId == other.queueId
        && period == other.period && startDate == other.startDate && endDate == other.endDate
        && servedCalls == other.servedCalls && conversationTime == other.conversationTime
        && lastServedCall == other.lastServedCall;
}

bool CallCenterReport::operator==(const CallCenterReport& other) const
{
    return data == other.data && format == other.format;
}

// ---- membership events ----------------------------------------------------------

template <typename Msg> Msg QueueMemberEventMsg::parseAs(const QString& xml, const QString& word, Extra extra)
{
    MessageReader::logApiVersion(text(xml, S_XMLTAG_API));
    Msg msg;
    QueueMember& member = msg.member;
    member.account = text(xml, S_XMLTAG_QUEUEMEMBER_ACCOUNT);
    member.queueId = text(xml, S_XMLTAG_QUEUEMEMBER_QUEUEID);
    if (extra == Extra::MembershipAndPenalty) {
        member.membership
            = TELVIX::queueOperatorMembershipFromString(text(xml, S_XMLTAG_QUEUEMEMBER_MEMBERSHIP));
        member.penalty = toInt(xml, S_XMLTAG_QUEUEMEMBER_PENALTY);
    } else if (extra == Extra::PauseState) {
        member.paused = isOne(xml, S_XMLTAG_QUEUEMEMBER_PAUSED);
    }
    const bool knownMembership
        = extra != Extra::MembershipAndPenalty || member.membership != TELVIX::QueueOperatorMemberInvalid;
    if (member.queueId.isEmpty() || member.account.isEmpty() || !knownMembership)
        return MessageReader::invalid<Msg>(QStringLiteral("parsed an invalid ") + word
                                           + QStringLiteral(" msg"));
    return MessageReader::accepted(msg, xml, word + QStringLiteral(" msg parsed ok"));
}

QString QueueMemberEventMsg::writeBody(const QString& eventTag, Extra extra) const
{
    XmlBodyWriter body;
    body.start(eventTag)
        .text(S_XMLTAG_QUEUEMEMBER_ACCOUNT, member.account)
        .text(S_XMLTAG_QUEUEMEMBER_QUEUEID, member.queueId);
    if (extra == Extra::MembershipAndPenalty) {
        body.text(S_XMLTAG_QUEUEMEMBER_MEMBERSHIP, TELVIX::queueOperatorMembershipToString(member.membership))
            .text(S_XMLTAG_QUEUEMEMBER_PENALTY, member.penalty);
    } else if (extra == Extra::PauseState) {
        body.text(S_XMLTAG_QUEUEMEMBER_PAUSED, member.paused ? 1 : 0);
    }
    body.end();
    return body.result();
}

QueueMemberAddedEventMsg QueueMemberAddedEventMsg::parseMessage(const QString& xml)
{
    return parseAs<QueueMemberAddedEventMsg>(xml, QStringLiteral("queuememberadded"),
                                             Extra::MembershipAndPenalty);
}

QString QueueMemberAddedEventMsg::generateXmlMessageBody() const
{
    return writeBody(S_EVENT_QUEUE_MEMBER_ADDED, Extra::MembershipAndPenalty);
}

QueueMemberRemovedEventMsg QueueMemberRemovedEventMsg::parseMessage(const QString& xml)
{
    return parseAs<QueueMemberRemovedEventMsg>(xml, QStringLiteral("queuememberremoved"), Extra::None);
}

QString QueueMemberRemovedEventMsg::generateXmlMessageBody() const
{
    return writeBody(S_EVENT_QUEUE_MEMBER_REMOVED, Extra::None);
}

QueueMemberPausedEventMsg QueueMemberPausedEventMsg::parseMessage(const QString& xml)
{
    return parseAs<QueueMemberPausedEventMsg>(xml, QStringLiteral("queuememberpaused"), Extra::PauseState);
}

QString QueueMemberPausedEventMsg::generateXmlMessageBody() const
{
    return writeBody(S_EVENT_QUEUE_MEMBER_PAUSE, Extra::PauseState);
}

// ---- queue event ------------------------------------------------------------------

QueueEventMsg QueueEventMsg::parseMessage(const QString& xml)
{
    const QString api = text(xml, S_XMLTAG_API);
    MessageReader::logApiVersion(api);
    const bool oldServer = ApiText::below(api, "5.7");

    QueueEventMsg msg;
    QueueEvent& event = msg.event;
    event.queueId = text(xml, S_XMLTAG_QUEUEEVENT_QUEUEID);
    event.eventType = eventTypeFromText(text(xml, S_XMLTAG_QUEUEEVENT_EVENTYPE));
    event.uid = text(xml, S_XMLTAG_QUEUEEVENT_CALLUID);
    event.callerNum = text(xml, S_XMLTAG_QUEUEEVENT_CALLERNUM);
    event.callerChannel = text(xml, S_XMLTAG_QUEUEEVENT_CALLERCHANNEL);

    QString currentCalls = text(xml, S_XMLTAG_QUEUEEVENT_CURRENTCALLCOUNT);
    if (currentCalls.isEmpty() && oldServer)
        currentCalls = text(xml, S_XMLTAG_QUEUEEVENT_OLD_COUNT);
    event.currentCalls = currentCalls.toInt(nullptr, 10);

    const QString longestHoldTime = text(xml, S_XMLTAG_QUEUEEVENT_LONGESTHOLDTIME);
    if (longestHoldTime.isEmpty() && oldServer) {
        // Old servers report how long the call has waited, not since when.
        bool ok = false;
        const int age = text(xml, S_XMLTAG_QUEUEEVENT_OLD_MAXHOLDTIME).toInt(&ok, 10);
        event.longestHoldTime = ok ? QDateTime::currentDateTime().addSecs(-age) : QDateTime();
    } else {
        event.longestHoldTime = Utils::parseIsoDateTime(longestHoldTime);
    }

    if (event.eventType == QueueEvent::Unknown || event.queueId.isEmpty())
        return MessageReader::invalid<QueueEventMsg>(QStringLiteral("parsed an invalid queueevent msg"));
    return MessageReader::accepted(msg, xml, QStringLiteral("queueevent msg parsed ok"));
}

QString QueueEventMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_EVENT_QUEUE_EVENT)
        .text(S_XMLTAG_QUEUEEVENT_QUEUEID, event.queueId)
        .text(S_XMLTAG_QUEUEEVENT_EVENTYPE, eventTypeToText(event.eventType))
        .text(S_XMLTAG_QUEUEEVENT_CALLUID, event.uid)
        .text(S_XMLTAG_QUEUEEVENT_CALLERNUM, event.callerNum)
        .text(S_XMLTAG_QUEUEEVENT_CALLERCHANNEL, event.callerChannel);
    if (ApiText::atLeast(api, "5.7")) {
        body.text(S_XMLTAG_QUEUEEVENT_CURRENTCALLCOUNT, event.currentCalls)
            .text(S_XMLTAG_QUEUEEVENT_LONGESTHOLDTIME, isoText(event.longestHoldTime));
    } else {
        const QString age = event.longestHoldTime.isNull()
            ? QString()
            : QString::number(event.longestHoldTime.secsTo(QDateTime::currentDateTime()));
        body.text(S_XMLTAG_QUEUEEVENT_OLD_COUNT, event.currentCalls)
            .text(S_XMLTAG_QUEUEEVENT_OLD_MAXHOLDTIME, age);
    }
    body.end();
    return body.result();
}

// ---- statistics ---------------------------------------------------------------------

QueueStatsListRespMsg QueueStatsListRespMsg::parseMessage(const QString& xml)
{
    static const MessageReader::ListWords words {
        QStringLiteral("Queue stats request failed: "), S_XMLTAG_QUEUESTATS_ENTRY,
        QStringLiteral("parsed an invalid QueueStats msg"),
        QStringLiteral("parsed an empty QueueStatsList msg"), QStringLiteral("QueueStatsList msg parsed ok")};
    return MessageReader::readList<QueueStatsListRespMsg>(
        xml, words, [](QueueStatsListRespMsg& msg, QStringView entryText) {
            return MessageReader::appendEntry(msg.stats, entryText, readQueueStats);
        });
}

QString QueueStatsListRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_QUEUESTATS_LIST);
    for (const QueueStats& queue : stats) {
        body.start(S_XMLTAG_QUEUESTATS_ENTRY)
            .text(S_XMLTAG_QUEUESTATS_QUEUEID, queue.queueId)
            .text(S_XMLTAG_QUEUESTATS_NAME, queue.name)
            .text(S_XMLTAG_QUEUESTATS_CURRENTCALLS, queue.currentCalls)
            .text(S_XMLTAG_QUEUESTATS_LONGESTHOLDTIME, queue.longestHoldTime.toString(TELVIX::IsoDateNoTz))
            .start(S_XMLTAG_QUEUESTATS_OPER_LIST);
        for (const QueueOperatorStats& op : queue.operators) {
            body.start(S_XMLTAG_QUEUESTATS_OPER_ENTRY)
                .text(S_XMLTAG_QUEUESTATS_OPER_MEMBER, op.member)
                .text(S_XMLTAG_QUEUESTATS_OPER_ISDYNAMIC, op.dynamicMember ? 1 : 0)
                .text(S_XMLTAG_QUEUESTATS_OPER_PENALTY, op.penalty)
                .text(S_XMLTAG_QUEUESTATS_OPER_LASTSERVEDCALL, op.lastServedCall)
                .text(S_XMLTAG_QUEUESTATS_OPER_LASTCALL, op.lastCall.toString(OperatorDateFormat))
                .text(S_XMLTAG_QUEUESTATS_OPER_LASTPAUSECHANGE, op.lastPauseChange)
                .text(S_XMLTAG_QUEUESTATS_OPER_STATUSAGE, op.statusAge.toString(OperatorDateFormat))
                .text(S_XMLTAG_QUEUESTATS_OPER_ISPAUSED, op.paused ? 1 : 0)
                .end();
        }
        body.end().end();
    }
    body.end();
    return body.result();
}

QueuePeriodicStatsListRespMsg QueuePeriodicStatsListRespMsg::parseMessage(const QString& xml)
{
    static const MessageReader::ListWords words {QStringLiteral("QueuePeriodicStatsList request failed: "),
                                                 S_XMLTAG_QUEUEPERIODICSTATS_ENTRY,
                                                 QStringLiteral("parsed an invalid QueuePeriodicStats msg"),
                                                 QStringLiteral("parsed an empty QueuePeriodicStatsList msg"),
                                                 QStringLiteral("QueuePeriodicStatsList msg parsed ok")};
    QueuePeriodicStatsListRespMsg msg = MessageReader::readList<QueuePeriodicStatsListRespMsg>(
        xml, words, [](QueuePeriodicStatsListRespMsg& out, QStringView entryText) {
            return MessageReader::appendEntry(out.stats.stats, entryText, readPeriodicStats);
        });
    // The answer's own period comes first in the list, ahead of the entries'.
    if (msg.success)
        msg.stats.period = TELVIX::periodTypeFromString(text(xml, S_XMLTAG_QUEUEPERIODICSTATS_LIST_PERIOD));
    return msg;
}

QString QueuePeriodicStatsListRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_QUEUEPERIODICSTATS_LIST)
        .text(S_XMLTAG_QUEUEPERIODICSTATS_LIST_PERIOD, TELVIX::periodTypeToString(stats.period));
    for (const QueuePeriodicStats& entry : stats.stats)
        writePeriodicStats(body, entry);
    body.end();
    return body.result();
}

QueuePeriodicStatsRespMsg QueuePeriodicStatsRespMsg::parseMessage(const QString& xml)
{
    return parseSingle<QueuePeriodicStatsRespMsg>(xml, QStringLiteral("QueuePeriodicStats request failed: "),
                                                  QStringLiteral("QueuePeriodicStats"), readPeriodicStats);
}

QString QueuePeriodicStatsRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    writePeriodicStats(body, stats);
    return body.result();
}

QueueOperatorPeriodicStatsListRespMsg QueueOperatorPeriodicStatsListRespMsg::parseMessage(const QString& xml)
{
    static const MessageReader::ListWords words {
        QStringLiteral("QueueOperatorPeriodicStatsList request failed: "),
        S_XMLTAG_QUEUEOPERATORPERIODICSTATS_ENTRY,
        QStringLiteral("parsed an invalid QueueOperatorPeriodicStats msg"),
        QStringLiteral("parsed an empty QueueOperatorPeriodicStatsList msg"),
        QStringLiteral("QueueOperatorPeriodicStatsList msg parsed ok")};
    return MessageReader::readList<QueueOperatorPeriodicStatsListRespMsg>(
        xml, words, [](QueueOperatorPeriodicStatsListRespMsg& msg, QStringView entryText) {
            return MessageReader::appendEntry(msg.stats, entryText, readOperatorPeriodicListEntry);
        });
}

QString QueueOperatorPeriodicStatsListRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_QUEUEOPERATORPERIODICSTATS_LIST);
    for (const QueueOperatorPeriodicStats& entry : stats)
        writeOperatorPeriodicStats(body, entry, OperatorForm::List);
    body.end();
    return body.result();
}

QueueOperatorPeriodicStatsRespMsg QueueOperatorPeriodicStatsRespMsg::parseMessage(const QString& xml)
{
    return parseSingle<QueueOperatorPeriodicStatsRespMsg>(
        xml, QStringLiteral("QueueOperatorPeriodicStats request failed: "),
        QStringLiteral("QueueOperatorPeriodicStats"), readOperatorPeriodicSingle);
}

QString QueueOperatorPeriodicStatsRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    writeOperatorPeriodicStats(body, stats, OperatorForm::Single);
    return body.result();
}

// ---- call-centre report ---------------------------------------------------------------

QString GetCCReportReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_COMMAND_GET_CCREPORT);
    if (period != TELVIX::PeriodCustom) {
        body.text(S_XMLTAG_CCREPORT_PERIOD, TELVIX::periodTypeToString(period));
    } else {
        if (startDate.isValid())
            body.text(S_XMLTAG_CCREPORT_STARTDATE, startDate.toString(TELVIX::IsoDateNoTz));
        if (endDate.isValid())
            body.text(S_XMLTAG_CCREPORT_ENDDATE, endDate.toString(TELVIX::IsoDateNoTz));
    }
    for (qint32 threshold : attendedThresholds)
        body.text(S_XMLTAG_CCREPORT_ATTENDED_TH, threshold);
    for (qint32 threshold : lostThresholds)
        body.text(S_XMLTAG_CCREPORT_LOST_TH, threshold);
    body.text(S_XMLTAG_CCREPORT_LOCALE, locale).end();
    return body.result();
}

CCReportRespMsg CCReportRespMsg::parseMessage(const QString& xml)
{
    const QString payload = text(xml, S_XMLTAG_CCREPORT_DATA);
    if (payload.isEmpty())
        return MessageReader::invalid<CCReportRespMsg>(QStringLiteral("parsed an empty CCReport msg"));
    const QByteArray report = Utils::dataFromBase64Compressed(payload.toLatin1());
    if (Utils::md5sum(report) != text(xml, S_XMLTAG_CCREPORT_MD5))
        return MessageReader::invalid<CCReportRespMsg>(QStringLiteral("Invalid CCReport: MD5 check failed!"));
    CCReportRespMsg msg;
    msg.data = report;
    msg.format = QStringLiteral("xml");
    return MessageReader::accepted(msg, xml, QStringLiteral("CC Report msg parsed ok"));
}

QString CCReportRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_CCREPORT)
        .text(S_XMLTAG_CCREPORT_DATA, QString::fromLatin1(Utils::dataToBase64Compressed(data)))
        .text(S_XMLTAG_CCREPORT_MD5, Utils::md5sum(data))
        .end();
    return body.result();
}

static void registerQueueTypes()
{
    qRegisterMetaType<QueueMember>("QueueMember");
    qRegisterMetaType<QueueEvent>("QueueEvent");
    qRegisterMetaType<QueueOperatorStats>("QueueOperatorStats");
    qRegisterMetaType<QList<QueueOperatorStats>>("QList<QueueOperatorStats>");
    qRegisterMetaType<QueueStats>("QueueStats");
    qRegisterMetaType<QList<QueueStats>>("QList<QueueStats>");
    qRegisterMetaType<QueuePeriodicStats>("QueuePeriodicStats");
    qRegisterMetaType<QList<QueuePeriodicStats>>("QList<QueuePeriodicStats>");
    qRegisterMetaType<QueuePeriodicStatsList>("QueuePeriodicStatsList");
    qRegisterMetaType<QueueOperatorPeriodicStats>("QueueOperatorPeriodicStats");
    qRegisterMetaType<QList<QueueOperatorPeriodicStats>>("QList<QueueOperatorPeriodicStats>");
    qRegisterMetaType<CallCenterReport>("CallCenterReport");
}
Q_CONSTRUCTOR_FUNCTION(registerQueueTypes)
