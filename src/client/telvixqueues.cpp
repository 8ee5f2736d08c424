// Call-centre queues: statistics requests, operator pause and membership,
// the call-centre report, and the queue data that the server sends.
//
// The requests are written by hand: their shape depends on the server's API
// level, compared as text with "5.2" (so "5.10" counts as older), and on the
// cumulative statistics feature.
#include "telvix_p.h"

#include "messagereader.h"
#include "queuemessages.h"
#include "simplexmlparser.h"

namespace {
constexpr int FeatureCumulativeStats = 0x0080;

void registerQueueOperationTypes()
{
    qRegisterMetaType<QueueOperMap>("QueueOperMap");
    qRegisterMetaType<QMap<QString, QString>>("QMap<QString,QString>");
}

QString element(const QString& name, const QString& text)
{
    return OPENTAG(name) + SimpleXmlParser::encodeEntities(text, false) + CLOSETAG(name);
}

// An empty value drops its element.
QString optionalElement(const QString& name, const QString& text)
{
    return text.isEmpty() ? QString() : element(name, text);
}

// A custom period is given by its dates, where valid; any other by its text.
QString periodBlock(TELVIX::PeriodType period, const QDateTime& start, const QDateTime& end)
{
    if (period != TELVIX::PeriodCustom)
        return element(QStringLiteral("Period"), TELVIX::periodTypeToString(period));
    QString block;
    if (start.isValid())
        block += element(QStringLiteral("StartDate"), start.toString(TELVIX::IsoDateNoTz));
    if (end.isValid())
        block += element(QStringLiteral("EndDate"), end.toString(TELVIX::IsoDateNoTz));
    return block;
}

QString pauseRequest(const QStringList& operators, bool pause, const QString& reason, const QString& queue)
{
    QString body = OPENTAG(QStringLiteral("PauseQueues"));
    for (const QString& account : operators)
        body += element(QStringLiteral("Operator"), account);
    body += element(QStringLiteral("Status"), pause ? QStringLiteral("true") : QStringLiteral("false"));
    body += optionalElement(QStringLiteral("Reason"), reason);
    body += optionalElement(QStringLiteral("Queue"), queue);
    return body + CLOSETAG(QStringLiteral("PauseQueues"));
}
} // namespace

Q_CONSTRUCTOR_FUNCTION(registerQueueOperationTypes)

// ---- public facade ------------------------------------------------------

bool Telvix::getQueueList()
{
    TELVIX_QUEUED(d->getQueueList());
}

bool Telvix::getAllQueuesStats()
{
    TELVIX_QUEUED(d->getAllQueuesStats());
}

bool Telvix::getAllQueuePeriodicStats(TELVIX::PeriodType period, const QDateTime& start, const QDateTime& end)
{
    TELVIX_QUEUED(d->getAllQueuePeriodicStats(period, start, end));
}

bool Telvix::getAllQueueOperatorPeriodicStats(TELVIX::PeriodType period, const QDateTime& start,
                                              const QDateTime& end)
{
    TELVIX_QUEUED(d->getAllQueueOperatorPeriodicStats(period, start, end));
}

bool Telvix::getQueuePeriodicStats(const QStringList& queues, TELVIX::PeriodType period,
                                   const QDateTime& start, const QDateTime& end)
{
    TELVIX_QUEUED(d->getQueuePeriodicStats(queues, period, start, end));
}

bool Telvix::getQueueOperatorPeriodicStats(const QueueOperMap& queueOperators, TELVIX::PeriodType period,
                                           const QDateTime& start, const QDateTime& end)
{
    TELVIX_QUEUED(d->getQueueOperatorPeriodicStats(queueOperators, period, start, end));
}

bool Telvix::pauseQueues(bool pause, const QString& exten, const QString& reason, const QString& queue)
{
    TELVIX_QUEUED(d->pauseQueues(pause, exten, reason, queue));
}

bool Telvix::pauseOperators(bool pause, const QStringList& operators, const QString& reason,
                            const QString& queue)
{
    TELVIX_QUEUED(d->pauseOperators(pause, operators, reason, queue));
}

bool Telvix::addQueueDynamicMember(const QString& queueId, const QString& operatorId, int penalty)
{
    TELVIX_QUEUED(d->addQueueDynamicMember(queueId, operatorId, penalty));
}

bool Telvix::removeQueueDynamicMember(const QString& queueId, const QString& operatorId)
{
    TELVIX_QUEUED(d->removeQueueDynamicMember(queueId, operatorId));
}

bool Telvix::requestCCReport(TELVIX::PeriodType period, const QList<int>& attendedThresholds,
                             const QList<int>& lostThresholds, const QString& locale, const QDateTime& start,
                             const QDateTime& end)
{
    static const int periodTypeId = qRegisterMetaType<TELVIX::PeriodType>("TELVIX::PeriodType");
    Q_UNUSED(periodTypeId)
    TELVIX_QUEUED(d->requestCCReport(period, attendedThresholds, lostThresholds, locale, start, end));
}

// ---- requests -----------------------------------------------------------

bool TelvixPrivate::queueApiIsNew() const
{
    return ApiText::atLeast(serverApiVersion, "5.2");
}

bool TelvixPrivate::hasCumulativeStats() const
{
    return features & FeatureCumulativeStats;
}

bool TelvixPrivate::getQueueList()
{
    sendPlainRequest(queueApiIsNew() ? QStringLiteral("<GetQueueList/>") : QStringLiteral("<GetQueues/>"));
    return true;
}

bool TelvixPrivate::getAllQueuesStats()
{
    sendPlainRequest(queueApiIsNew() ? QStringLiteral("<GetQueuesStats/>")
                                     : QStringLiteral("<GetQueuesStats></GetQueuesStats>"));
    return true;
}

bool TelvixPrivate::getAllQueuePeriodicStats(TELVIX::PeriodType period, const QDateTime& start,
                                             const QDateTime& end)
{
    TLOG(1000) << "Getting ALL Queues periodic stats.";
    if (!hasCumulativeStats()) {
        TLOG(10) << "PBX doesn't support cumulative periodic stats!";
        return false;
    }
    sendPlainRequest(OPENTAG(QStringLiteral("GetQueuesPeriodicStats")) + periodBlock(period, start, end)
                     + CLOSETAG(QStringLiteral("GetQueuesPeriodicStats")));
    return true;
}

bool TelvixPrivate::getAllQueueOperatorPeriodicStats(TELVIX::PeriodType period, const QDateTime& start,
                                                     const QDateTime& end)
{
    TLOG(1000) << "Getting ALL Queues Operators periodic stats.";
    if (!hasCumulativeStats()) {
        TLOG(10) << "PBX doesn't support cumulative periodic stats!";
        return false;
    }
    sendPlainRequest(OPENTAG(QStringLiteral("GetOperatorsPeriodicStats")) + periodBlock(period, start, end)
                     + CLOSETAG(QStringLiteral("GetOperatorsPeriodicStats")));
    return true;
}

bool TelvixPrivate::getQueuePeriodicStats(const QStringList& queues, TELVIX::PeriodType period,
                                          const QDateTime& start, const QDateTime& end)
{
    TLOG(1000) << "Getting Queue periodic stats.";
    if (hasCumulativeStats())
        TLOG(10) << "PBX support cumulative periodic stats! Still using old implementation instead!!!";
    const QString tag = QStringLiteral("GetQueuesPeriodicStats");
    for (const QString& queue : queues) {
        sendPlainRequest(OPENTAG(tag) + optionalElement(QStringLiteral("Queue"), queue)
                         + periodBlock(period, start, end) + CLOSETAG(tag));
    }
    return true;
}

bool TelvixPrivate::getQueueOperatorPeriodicStats(const QueueOperMap& queueOperators,
                                                  TELVIX::PeriodType period, const QDateTime& start,
                                                  const QDateTime& end)
{
    TLOG(1000) << "Getting Queue operator periodic stats.";
    if (hasCumulativeStats())
        TLOG(10) << "PBX support cumulative periodic stats! Still using old implementation instead!!!";
    const QString tag = QStringLiteral("GetOperatorPeriodicStats");
    for (auto queue = queueOperators.cbegin(); queue != queueOperators.cend(); ++queue) {
        for (const QString& account : queue.value()) {
            sendPlainRequest(OPENTAG(tag) + optionalElement(QStringLiteral("Queue"), queue.key())
                             + optionalElement(QStringLiteral("Operator"), account)
                             + periodBlock(period, start, end) + CLOSETAG(tag));
        }
    }
    return true;
}

bool TelvixPrivate::pauseOperators(bool pause, const QStringList& operators, const QString& reason,
                                   const QString& queue)
{
    if (queueApiIsNew()) {
        sendPlainRequest(pauseRequest(operators, pause, reason, queue));
        return true;
    }
    // Older servers take one operator per request.
    for (const QString& account : operators)
        sendPlainRequest(pauseRequest(QStringList {account}, pause, reason, queue));
    return true;
}

bool TelvixPrivate::pauseQueues(bool pause, const QString& operatorExten, const QString& reason,
                                const QString& queue)
{
    // Newer servers take a request without operators as one for the user.
    if (queueApiIsNew() && (operatorExten.isEmpty() || operatorExten == exten))
        return pauseOperators(pause, QStringList(), reason, queue);
    const QStringList accounts = extenToAccounts.value(operatorExten.isEmpty() ? exten : operatorExten);
    if (!accounts.isEmpty())
        pauseOperators(pause, accounts, reason, queue);
    return true;
}

bool TelvixPrivate::addQueueDynamicMember(const QString& queueId, const QString& operatorId, int penalty)
{
    QString body = OPENTAG(QStringLiteral("QueueDynamicMemberAdd"))
        + element(QStringLiteral("QueueId"), queueId) + element(QStringLiteral("Operator"), operatorId);
    if (penalty >= 0)
        body += element(QStringLiteral("Penalty"), QString::number(penalty));
    sendPlainRequest(body + CLOSETAG(QStringLiteral("QueueDynamicMemberAdd")));
    return true;
}

bool TelvixPrivate::removeQueueDynamicMember(const QString& queueId, const QString& operatorId)
{
    sendPlainRequest(OPENTAG(QStringLiteral("QueueDynamicMemberRemove"))
                     + element(QStringLiteral("QueueId"), queueId)
                     + element(QStringLiteral("Operator"), operatorId)
                     + CLOSETAG(QStringLiteral("QueueDynamicMemberRemove")));
    return true;
}

bool TelvixPrivate::requestCCReport(TELVIX::PeriodType period, const QList<int>& attendedThresholds,
                                    const QList<int>& lostThresholds, const QString& locale,
                                    const QDateTime& start, const QDateTime& end)
{
    GetCCReportReqMsg request;
    request.period = period;
    request.startDate = start;
    request.endDate = end;
    request.attendedThresholds = attendedThresholds;
    request.lostThresholds = lostThresholds;
    request.locale = locale;
    send(request);
    return true;
}

// ---- queue data from the server -----------------------------------------
// Operators come named by SIP account; the extension is looked up, empty
// when the account is not known.

void TelvixPrivate::rowCCReport(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg
        = parseRow<CCReportRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {1000, "Invalid CCReport msg received"});
    if (!msg.success) {
        Q_EMIT q->sigCCReportFailure(QStringLiteral("CallCenter report generation failed"));
        return;
    }
    Q_EMIT q->sigCCReportSucceded(static_cast<const CallCenterReport&>(msg));
}

void TelvixPrivate::rowQueueEvent(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg
        = parseRow<QueueEventMsg>(xml, ctx, logger, Q_FUNC_INFO, {1000, "Invalid queue event msg received"});
    if (!msg.success)
        return;
    Q_EMIT q->sigQueueEvent(msg.event);
}

void TelvixPrivate::rowQueuesStats(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg = parseRow<QueueStatsListRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {});
    // The live operator record has no extension field: nothing to fill.
    Q_EMIT q->sigAllQueuesStatsReceived(msg.stats);
}

void TelvixPrivate::rowQueuePeriodicStatsList(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg = parseRow<QueuePeriodicStatsListRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {});
    Q_EMIT q->sigAllQueuesPeriodicStatsReceived(msg.stats);
}

void TelvixPrivate::rowQueuePeriodicStats(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg = parseRow<QueuePeriodicStatsRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {});
    Q_EMIT q->sigQueuePeriodicStatsReceived(msg.stats);
}

void TelvixPrivate::rowOperatorPeriodicStatsList(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    auto msg = parseRow<QueueOperatorPeriodicStatsListRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {});
    for (QueueOperatorPeriodicStats& stats : msg.stats)
        stats.exten = accountToExten.value(stats.operatorAccount);
    Q_EMIT q->sigAllQueueOperatorsPeriodicStatsReceived(msg.stats);
}

void TelvixPrivate::rowOperatorPeriodicStats(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    auto msg = parseRow<QueueOperatorPeriodicStatsRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {});
    msg.stats.exten = accountToExten.value(msg.stats.operatorAccount);
    Q_EMIT q->sigQueueOperatorPeriodicStatsReceived(msg.stats);
}

void TelvixPrivate::rowQueueMemberAdded(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    auto msg = parseRow<QueueMemberAddedEventMsg>(xml, ctx, logger, Q_FUNC_INFO, {});
    msg.member.exten = accountToExten.value(msg.member.account);
    Q_EMIT q->sigQueueMemberAdded(msg.member);
}

void TelvixPrivate::rowQueueMemberRemoved(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    auto msg = parseRow<QueueMemberRemovedEventMsg>(xml, ctx, logger, Q_FUNC_INFO, {});
    msg.member.exten = accountToExten.value(msg.member.account);
    Q_EMIT q->sigQueueMemberRemoved(msg.member);
}

void TelvixPrivate::rowQueueMemberPause(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    auto msg = parseRow<QueueMemberPausedEventMsg>(xml, ctx, logger, Q_FUNC_INFO, {});
    msg.member.exten = accountToExten.value(msg.member.account);
    Q_EMIT q->sigQueueMemberPauseChanged(msg.member, msg.member.paused);
}
