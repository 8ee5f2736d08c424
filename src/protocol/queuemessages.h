#pragma once

#include "sxmlmessage.h"
#include "telvix_const.h"
#include "telvix_export.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>

namespace SARNET_XML {
// Live events
inline const QString S_EVENT_QUEUE_MEMBER_ADDED = QStringLiteral("QueueMemberAdded");
inline const QString S_EVENT_QUEUE_MEMBER_REMOVED = QStringLiteral("QueueMemberRemoved");
inline const QString S_EVENT_QUEUE_MEMBER_PAUSE = QStringLiteral("QueueMemberPause");
inline const QString S_XMLTAG_QUEUEMEMBER_ACCOUNT = QStringLiteral("Operator");
inline const QString S_XMLTAG_QUEUEMEMBER_QUEUEID = QStringLiteral("Queue");
inline const QString S_XMLTAG_QUEUEMEMBER_MEMBERSHIP = QStringLiteral("Membership");
inline const QString S_XMLTAG_QUEUEMEMBER_PENALTY = QStringLiteral("Penalty");
inline const QString S_XMLTAG_QUEUEMEMBER_PAUSED = QStringLiteral("Paused");

inline const QString S_EVENT_QUEUE_EVENT = QStringLiteral("QueueEvent");
inline const QString S_XMLTAG_QUEUEEVENT_QUEUEID = QStringLiteral("Queue");
inline const QString S_XMLTAG_QUEUEEVENT_EVENTYPE = QStringLiteral("EventType");
inline const QString S_XMLTAG_QUEUEEVENT_CALLUID = QStringLiteral("Uid");
inline const QString S_XMLTAG_QUEUEEVENT_CALLERNUM = QStringLiteral("CallerId");
inline const QString S_XMLTAG_QUEUEEVENT_CALLERCHANNEL = QStringLiteral("CallerChannel");
inline const QString S_XMLTAG_QUEUEEVENT_CURRENTCALLCOUNT = QStringLiteral("CurrentCalls");
inline const QString S_XMLTAG_QUEUEEVENT_LONGESTHOLDTIME = QStringLiteral("LongestHoldTime");
inline const QString S_XMLTAG_QUEUEEVENT_OLD_COUNT = QStringLiteral("Count");
inline const QString S_XMLTAG_QUEUEEVENT_OLD_MAXHOLDTIME = QStringLiteral("MaxHoldTime");

// Statistics requests (bodies written by the queue operations)
inline const QString S_COMMAND_GET_QUEUES_STATS = QStringLiteral("GetQueuesStats");
inline const QString S_COMMAND_GET_QUEUES_PERIODIC_STATS = QStringLiteral("GetQueuesPeriodicStats");
inline const QString S_COMMAND_GET_QUEUEOPERATORS_PERIODIC_STATS = QStringLiteral("GetOperatorPeriodicStats");

// Live statistics
inline const QString S_XMLTAG_QUEUESTATS_LIST = QStringLiteral("QueuesStatsList");
inline const QString S_XMLTAG_QUEUESTATS_ENTRY = QStringLiteral("QueueStatus");
inline const QString S_XMLTAG_QUEUESTATS_QUEUEID = QStringLiteral("ID");
inline const QString S_XMLTAG_QUEUESTATS_NAME = QStringLiteral("Name");
inline const QString S_XMLTAG_QUEUESTATS_CURRENTCALLS = QStringLiteral("CurrentCalls");
inline const QString S_XMLTAG_QUEUESTATS_LONGESTHOLDTIME = QStringLiteral("LongestHoldTime");
inline const QString S_XMLTAG_QUEUESTATS_OPER_LIST = QStringLiteral("OperatorList");
inline const QString S_XMLTAG_QUEUESTATS_OPER_ENTRY = QStringLiteral("Operator");
inline const QString S_XMLTAG_QUEUESTATS_OPER_MEMBER = QStringLiteral("Member");
inline const QString S_XMLTAG_QUEUESTATS_OPER_ISDYNAMIC = QStringLiteral("DynamicMember");
inline const QString S_XMLTAG_QUEUESTATS_OPER_PENALTY = QStringLiteral("Penalty");
inline const QString S_XMLTAG_QUEUESTATS_OPER_LASTSERVEDCALL = QStringLiteral("LastServedCall");
inline const QString S_XMLTAG_QUEUESTATS_OPER_LASTCALL = QStringLiteral("LastCall");
inline const QString S_XMLTAG_QUEUESTATS_OPER_LASTPAUSECHANGE = QStringLiteral("LastPauseChange");
inline const QString S_XMLTAG_QUEUESTATS_OPER_STATUSAGE = QStringLiteral("StatusAge");
inline const QString S_XMLTAG_QUEUESTATS_OPER_ISPAUSED = QStringLiteral("Paused");

// Periodic statistics of queues and of their operators
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_LIST = QStringLiteral("QueuePeriodicStatsList");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_LIST_PERIOD = QStringLiteral("Period");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_ENTRY = QStringLiteral("QueuePeriodicStats");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_QUEUEID = QStringLiteral("QueueId");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_PERIOD = QStringLiteral("Period");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_STARTDATE = QStringLiteral("StartDate");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_ENDDATE = QStringLiteral("EndDate");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_SERVEDCALLCOUNT = QStringLiteral("ServedCalls");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_SERVEDAWT = QStringLiteral("ServedAverageWaitingTime");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_SERVEDACT = QStringLiteral("ServedAverageConversationTime");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_MISSEDCALLCOUNT = QStringLiteral("MissedCalls");
inline const QString S_XMLTAG_QUEUEPERIODICSTATS_MISSEDAWT = QStringLiteral("MissedAverageWaitingTime");

inline const QString S_XMLTAG_QUEUEOPERATORPERIODICSTATS_LIST
    = QStringLiteral("QueueOperatorPeriodicStatsList");
inline const QString S_XMLTAG_QUEUEOPERATORPERIODICSTATS_ENTRY = QStringLiteral("OperatorPeriodicStats");
inline const QString S_XMLTAG_QUEUEOPERATORPERIODICSTATS_OPERATOR = QStringLiteral("Operator");
inline const QString S_XMLTAG_QUEUEOPERATORPERIODICSTATS_CONVERSATIONTIME
    = QStringLiteral("ConversationTime");
inline const QString S_XMLTAG_QUEUEOPERATORPERIODICSTATS_LASTSERVEDCALL = QStringLiteral("LastServedCall");

// Call-centre report
inline const QString S_COMMAND_GET_CCREPORT = QStringLiteral("GetCDRCallCenterReport");
inline const QString S_XMLTAG_CCREPORT_PERIOD = QStringLiteral("Period");
inline const QString S_XMLTAG_CCREPORT_STARTDATE = QStringLiteral("StartDate");
inline const QString S_XMLTAG_CCREPORT_ENDDATE = QStringLiteral("EndDate");
// The servers take the thresholds unwrapped; these list names are never written.
inline const QString S_XMLTAG_CCREPORT_ATTENDED_TH_LIST = QStringLiteral("AttendedThresholds");
inline const QString S_XMLTAG_CCREPORT_ATTENDED_TH = QStringLiteral("AttendedThreshold");
inline const QString S_XMLTAG_CCREPORT_LOST_TH_LIST = QStringLiteral("LostThresholds");
inline const QString S_XMLTAG_CCREPORT_LOST_TH = QStringLiteral("LostThreshold");
inline const QString S_XMLTAG_CCREPORT_LOCALE = QStringLiteral("Locale");
inline const QString S_XMLTAG_CCREPORT = QStringLiteral("CDRCallCenterReport");
inline const QString S_XMLTAG_CCREPORT_DATA = QStringLiteral("Data");
inline const QString S_XMLTAG_CCREPORT_MD5 = QStringLiteral("Md5");
} // namespace SARNET_XML

/// An operator's membership of one queue. Queue data names the operator by
/// SIP account; `exten` is filled from the account map by the client.
class TELVIX_EXPORT QueueMember
{
    Q_GADGET
    Q_PROPERTY(QString account MEMBER account)
    Q_PROPERTY(QString exten MEMBER exten)
    Q_PROPERTY(QString queueId MEMBER queueId)
    Q_PROPERTY(TELVIX::QueueOperatorMembership membership MEMBER membership)
    Q_PROPERTY(qint32 penalty MEMBER penalty)
    Q_PROPERTY(bool paused MEMBER paused)

public:
    QString account;
    QString exten;
    QString queueId;
    TELVIX::QueueOperatorMembership membership = TELVIX::QueueOperatorMemberInvalid;
    qint32 penalty = 0;
    bool paused = false;

    bool operator==(const QueueMember& other) const;
    bool operator!=(const QueueMember& other) const { return !(*this == other); }
};

/// A call entering or leaving a queue, with the queue's state after it.
class TELVIX_EXPORT QueueEvent
{
    Q_GADGET
    Q_PROPERTY(QString queueId MEMBER queueId)
    Q_PROPERTY(qint32 eventType MEMBER eventType)
    Q_PROPERTY(QString uid MEMBER uid)
    Q_PROPERTY(QString callerNum MEMBER callerNum)
    Q_PROPERTY(QString callerChannel MEMBER callerChannel)
    Q_PROPERTY(qint32 currentCalls MEMBER currentCalls)
    Q_PROPERTY(QDateTime longestHoldTime MEMBER longestHoldTime)

public:
    enum EventType : qint32 { Unknown = 0, Enter = 1, Leave = 2 };

    QString queueId;
    /// EventType: "enter" 1, "leave" 2, anything else 0.
    qint32 eventType = Unknown;
    /// Uid of the call.
    QString uid;
    QString callerNum;
    QString callerChannel;
    /// Calls waiting in the queue.
    qint32 currentCalls = 0;
    /// When the longest waiting call started to wait.
    QDateTime longestHoldTime;

    bool operator==(const QueueEvent& other) const;
    bool operator!=(const QueueEvent& other) const { return !(*this == other); }
};

/// One operator in the live statistics of a queue.
class TELVIX_EXPORT QueueOperatorStats
{
    Q_GADGET
    Q_PROPERTY(QString member MEMBER member)
    Q_PROPERTY(bool dynamicMember MEMBER dynamicMember)
    Q_PROPERTY(qint32 penalty MEMBER penalty)
    Q_PROPERTY(QString lastServedCall MEMBER lastServedCall)
    Q_PROPERTY(QDateTime lastCall MEMBER lastCall)
    Q_PROPERTY(QString lastPauseChange MEMBER lastPauseChange)
    Q_PROPERTY(QDateTime statusAge MEMBER statusAge)
    Q_PROPERTY(bool paused MEMBER paused)

public:
    QString member;
    bool dynamicMember = false;
    qint32 penalty = 0;
    QString lastServedCall;
    QDateTime lastCall;
    QString lastPauseChange;
    QDateTime statusAge;
    bool paused = false;

    bool operator==(const QueueOperatorStats& other) const;
    bool operator!=(const QueueOperatorStats& other) const { return !(*this == other); }
};

/// Live statistics of one queue.
class TELVIX_EXPORT QueueStats
{
    Q_GADGET
    Q_PROPERTY(QString queueId MEMBER queueId)
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(qint32 currentCalls MEMBER currentCalls)
    Q_PROPERTY(QDateTime longestHoldTime MEMBER longestHoldTime)
    Q_PROPERTY(QList<QueueOperatorStats> operators MEMBER operators)

public:
    QString queueId;
    QString name;
    qint32 currentCalls = 0;
    QDateTime longestHoldTime;
    QList<QueueOperatorStats> operators;

    bool operator==(const QueueStats& other) const;
    bool operator!=(const QueueStats& other) const { return !(*this == other); }
};

/// Statistics of one queue over a period.
class TELVIX_EXPORT QueuePeriodicStats
{
    Q_GADGET
    Q_PROPERTY(QString queueId MEMBER queueId)
    Q_PROPERTY(TELVIX::PeriodType period MEMBER period)
    Q_PROPERTY(QDateTime startDate MEMBER startDate)
    Q_PROPERTY(QDateTime endDate MEMBER endDate)
    Q_PROPERTY(qint32 servedCalls MEMBER servedCalls)
    Q_PROPERTY(double servedAverageWaitingTime MEMBER servedAverageWaitingTime)
    Q_PROPERTY(double servedAverageConversationTime MEMBER servedAverageConversationTime)
    Q_PROPERTY(qint32 missedCalls MEMBER missedCalls)
    Q_PROPERTY(double missedAverageWaitingTime MEMBER missedAverageWaitingTime)

public:
    QString queueId;
    TELVIX::PeriodType period = TELVIX::PeriodInvalid;
    QDateTime startDate;
    QDateTime endDate;
    qint32 servedCalls = 0;
    double servedAverageWaitingTime = 0.0;
    double servedAverageConversationTime = 0.0;
    qint32 missedCalls = 0;
    double missedAverageWaitingTime = 0.0;

    bool operator==(const QueuePeriodicStats& other) const;
    bool operator!=(const QueuePeriodicStats& other) const { return !(*this == other); }
};

/// The periodic statistics of every queue, with the period of the answer.
class TELVIX_EXPORT QueuePeriodicStatsList
{
    Q_GADGET
    Q_PROPERTY(TELVIX::PeriodType period MEMBER period)
    Q_PROPERTY(QList<QueuePeriodicStats> stats MEMBER stats)

public:
    TELVIX::PeriodType period = TELVIX::PeriodInvalid;
    QList<QueuePeriodicStats> stats;

    bool operator==(const QueuePeriodicStatsList& other) const;
    bool operator!=(const QueuePeriodicStatsList& other) const { return !(*this == other); }
};

/// Statistics of one operator in one queue over a period.
class TELVIX_EXPORT QueueOperatorPeriodicStats
{
    Q_GADGET
    Q_PROPERTY(QString operatorAccount MEMBER operatorAccount)
    Q_PROPERTY(QString exten MEMBER exten)
    Q_PROPERTY(QString queueId MEMBER queueId)
    Q_PROPERTY(TELVIX::PeriodType period MEMBER period)
    Q_PROPERTY(QDateTime startDate MEMBER startDate)
    Q_PROPERTY(QDateTime endDate MEMBER endDate)
    Q_PROPERTY(qint32 servedCalls MEMBER servedCalls)
    Q_PROPERTY(double conversationTime MEMBER conversationTime)
    Q_PROPERTY(QDateTime lastServedCall MEMBER lastServedCall)

public:
    QString operatorAccount;
    /// Filled from the account map by the client.
    QString exten;
    QString queueId;
    TELVIX::PeriodType period = TELVIX::PeriodInvalid;
    QDateTime startDate;
    QDateTime endDate;
    qint32 servedCalls = 0;
    double conversationTime = 0.0;
    QDateTime lastServedCall;

    bool operator==(const QueueOperatorPeriodicStats& other) const;
    bool operator!=(const QueueOperatorPeriodicStats& other) const { return !(*this == other); }
};

/// A report built by the server.
class TELVIX_EXPORT CallCenterReport
{
    Q_GADGET
    Q_PROPERTY(QByteArray data MEMBER data)
    Q_PROPERTY(QString format MEMBER format)

public:
    QByteArray data;
    /// "xml" once a report is read.
    QString format;

    bool operator==(const CallCenterReport& other) const;
    bool operator!=(const CallCenterReport& other) const { return !(*this == other); }
};

/// Common part of the three membership events: the member, and the reader
/// and writer that differ only in their extra fields.
class TELVIX_EXPORT QueueMemberEventMsg : public SXmlResponseMessage
{
public:
    QueueMember member;

protected:
    enum class Extra { None, MembershipAndPenalty, PauseState };
    /// Reads the member; invalid when queue or account is missing, or, with
    /// MembershipAndPenalty, when the membership text is unknown. `word`
    /// names the event in the log lines.
    template <typename Msg> static Msg parseAs(const QString& xml, const QString& word, Extra extra);
    QString writeBody(const QString& eventTag, Extra extra) const;
};

/// "QueueMemberAdded": operator, queue, membership and penalty.
class TELVIX_EXPORT QueueMemberAddedEventMsg : public QueueMemberEventMsg
{
public:
    static QueueMemberAddedEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;
};

/// "QueueMemberRemoved": operator and queue.
class TELVIX_EXPORT QueueMemberRemovedEventMsg : public QueueMemberEventMsg
{
public:
    static QueueMemberRemovedEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;
};

/// "QueueMemberPause": operator, queue and pause state.
class TELVIX_EXPORT QueueMemberPausedEventMsg : public QueueMemberEventMsg
{
public:
    static QueueMemberPausedEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;
};

/// "QueueEvent". Servers below API "5.7" send "Count" and "MaxHoldTime"
/// (the age of the longest wait, in seconds) instead of "CurrentCalls" and
/// "LongestHoldTime" (its start).
class TELVIX_EXPORT QueueEventMsg : public SXmlResponseMessage
{
public:
    static QueueEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QueueEvent event;
};

/// "QueuesStatsList": live statistics of all queues.
class TELVIX_EXPORT QueueStatsListRespMsg : public SXmlResponseMessage
{
public:
    static QueueStatsListRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QList<QueueStats> stats;
};

/// "QueuePeriodicStatsList": periodic statistics of all queues.
class TELVIX_EXPORT QueuePeriodicStatsListRespMsg : public SXmlResponseMessage
{
public:
    static QueuePeriodicStatsListRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QueuePeriodicStatsList stats;
};

/// "QueuePeriodicStats": periodic statistics of one queue.
class TELVIX_EXPORT QueuePeriodicStatsRespMsg : public SXmlResponseMessage
{
public:
    static QueuePeriodicStatsRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QueuePeriodicStats stats;
};

/// "QueueOperatorPeriodicStatsList": periodic statistics of every operator.
/// Reads "ConversationTime" as a decimal number and "LastServedCall" as an
/// ISO date-time.
class TELVIX_EXPORT QueueOperatorPeriodicStatsListRespMsg : public SXmlResponseMessage
{
public:
    static QueueOperatorPeriodicStatsListRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QList<QueueOperatorPeriodicStats> stats;
};

/// "OperatorPeriodicStats": periodic statistics of one operator. Unlike the
/// list form, it reads "ConversationTime" as a whole number and
/// "LastServedCall" in Qt's text date form, so ISO dates do not read here.
class TELVIX_EXPORT QueueOperatorPeriodicStatsRespMsg : public SXmlResponseMessage
{
public:
    static QueueOperatorPeriodicStatsRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QueueOperatorPeriodicStats stats;
};

/// Asks the server to build a call-centre report. A custom period
/// (TELVIX::PeriodCustom) is sent as its valid dates, any other as its text.
class TELVIX_EXPORT GetCCReportReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;

    TELVIX::PeriodType period = TELVIX::PeriodInvalid;
    QDateTime startDate;
    QDateTime endDate;
    QList<qint32> attendedThresholds;
    QList<qint32> lostThresholds;
    QString locale;
};

/// "CDRCallCenterReport": the report, compressed, in Base64, with the MD5 of
/// the plain report. Invalid when empty or when the MD5 does not match.
class TELVIX_EXPORT CCReportRespMsg : public SXmlResponseMessage, public CallCenterReport
{
public:
    static CCReportRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;
};

Q_DECLARE_METATYPE(QueueMember)
Q_DECLARE_METATYPE(QueueEvent)
Q_DECLARE_METATYPE(QueueOperatorStats)
Q_DECLARE_METATYPE(QueueStats)
Q_DECLARE_METATYPE(QueuePeriodicStats)
Q_DECLARE_METATYPE(QueuePeriodicStatsList)
Q_DECLARE_METATYPE(QueueOperatorPeriodicStats)
Q_DECLARE_METATYPE(CallCenterReport)
