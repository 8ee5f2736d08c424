// The call table: the legs of every live call, kept by the server's call
// events, and the one notification per event that each kind of application
// expects (a desktop one per leg, a mobile one per call).
#include "telvix_p.h"

#include "calleventmessages.h"
#include "calltesthook_p.h"
#include "messagereader.h"

#include <QDebug>

#include <algorithm>
#include <memory>

namespace {

// Every call-event row: the common row start, then the handler for a valid
// message.
template <typename Msg, typename OnValid>
void dispatchEvent(const QString& xml, DispatchContext& ctx, Logger* logger, const char* function,
                   int invalidPriority, const char* invalidText, OnValid onValid)
{
    const Msg msg = parseRow<Msg>(xml, ctx, logger, function, InvalidWords{invalidPriority, invalidText});
    if (msg.success)
        onValid(msg);
}

const QString ClickToCallAccount = QStringLiteral("c2c");

template <typename... Texts> QString logText(const char* pattern, const Texts&... texts)
{
    return QString::fromLatin1(pattern).arg(texts...);
}

} // namespace

// ---- dispatch rows ------------------------------------------------------

void TelvixPrivate::rowIncomingCall(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<IncomingCallEventMsg>(
        xml, ctx, logger, Q_FUNC_INFO, 1000, "Invalid incoming call msg received",
        [this](const IncomingCallEventMsg& msg) { onIncomingCall(msg.event); });
}

void TelvixPrivate::rowAnsweredCall(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<AnsweredCallEventMsg>(
        xml, ctx, logger, Q_FUNC_INFO, 1000, "Invalid answered call msg received",
        [this](const AnsweredCallEventMsg& msg) { onAnsweredCall(msg.event); });
}

void TelvixPrivate::rowFinishedCall(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<FinishedCallEventMsg>(
        xml, ctx, logger, Q_FUNC_INFO, 1000, "Invalid finished call msg received",
        [this](const FinishedCallEventMsg& msg) { onFinishedCall(msg.event); });
}

void TelvixPrivate::rowOriginateCall(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<OriginateCallEventMsg>(
        xml, ctx, logger, Q_FUNC_INFO, 1000, "Invalid originate call msg received",
        [this](const OriginateCallEventMsg& msg) { onOriginateCall(msg.event); });
}

void TelvixPrivate::rowMissedCall(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<MissedCallEventMsg>(xml, ctx, logger, Q_FUNC_INFO, 1000, "Invalid missed call msg received",
                                      [this](const MissedCallEventMsg& msg) { onMissedCall(msg.event); });
}

void TelvixPrivate::rowColpUpdate(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<ColpUpdateEventMsg>(xml, ctx, logger, Q_FUNC_INFO, 1000,
                                      "Invalid COLP update call msg received",
                                      [this](const ColpUpdateEventMsg& msg) { onColpUpdate(msg.event); });
}

void TelvixPrivate::rowCallLocalInfoUpdate(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<CallLocalInfoUpdateEventMsg>(
        xml, ctx, logger, Q_FUNC_INFO, 1000, "Invalid CallLocalInfo update call msg received",
        [this](const CallLocalInfoUpdateEventMsg& msg) { onCallLocalInfoUpdate(msg.event); });
}

void TelvixPrivate::rowTransferCanceled(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<TransferCanceledCallEventMsg>(
        xml, ctx, logger, Q_FUNC_INFO, 100, "Invalid TransferCanceled call msg received",
        [this](const TransferCanceledCallEventMsg& msg) { onCallTransferCanceled(msg.event); });
}

// Transfers are told to the mobile clients only, and do not touch the table.
void TelvixPrivate::rowTransferStarted(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<TransferStartedCallEventMsg>(xml, ctx, logger, Q_FUNC_INFO, 50,
                                               "Invalid TransferStarted call msg received",
                                               [this](const TransferStartedCallEventMsg& msg) {
                                                   if (inMobileMode())
                                                       Q_EMIT q_ptr->sigCallTransferStarted(msg.event);
                                               });
}

void TelvixPrivate::rowTransferCompleted(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<TransferCompletedCallEventMsg>(xml, ctx, logger, Q_FUNC_INFO, 50,
                                                 "Invalid TransferCompleted call msg received",
                                                 [this](const TransferCompletedCallEventMsg& msg) {
                                                     if (inMobileMode())
                                                         Q_EMIT q_ptr->sigCallTransferCompleted(msg.event);
                                                 });
}

void TelvixPrivate::rowC2cOriginate(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<C2COriginateEventMsg>(xml, ctx, logger, Q_FUNC_INFO, 1000,
                                        "Invalid C2C originate event message received",
                                        [this](const C2COriginateEventMsg& msg) { onC2cOriginateCall(msg); });
}

void TelvixPrivate::rowC2cFinished(const QString& xml, DispatchContext& ctx)
{
    dispatchEvent<C2CFinishedEventMsg>(xml, ctx, logger, Q_FUNC_INFO, 1000,
                                       "Invalid C2C finished event message received",
                                       [this](const C2CFinishedEventMsg& msg) { onC2cFinishedCall(msg); });
}

// ---- handlers -----------------------------------------------------------

void TelvixPrivate::onIncomingCall(const IncomingCallEvent& event)
{
    Q_Q(Telvix);
    auto made = std::make_unique<CallInfo>();
    made->uid = event.uid;
    made->callerNum = purifyIncomingNumber(event.remoteNum);
    made->calledNum = exten;
    made->direction = CallInfo::DirectionIncoming;
    made->sipAccount = event.sipAccount;
    made->localChannel = event.localChannel;
    made->remoteChannel = event.remoteChannel;
    const QString caller = made->callerNum;

    CallInfo* const leg = calls.insert(std::move(made));
    if (!leg) {
        TLOG(100) << logText("Incoming call already exists: uid = %1; caller = %2; sipAccount = %3",
                             event.uid, caller, event.sipAccount);
        return;
    }
    TLOG(1000) << callLogLine("Incoming call %1 from %2 to %3 on SIP account %4", *leg);

    if (!inMobileMode()) {
        Q_EMIT q->sigIncomingCall(event);
    } else if (calls.legCount(event.uid) == 1) {
        Q_EMIT q->sigIncomingCall(leg->uid, leg->callerNum, leg->calledNum,
                                  event.attributes.testFlag(TELVIX::CallAttrClickToCall));
    }
}

void TelvixPrivate::onOriginateCall(const OriginateCallEvent& event)
{
    Q_Q(Telvix);
    auto made = std::make_unique<CallInfo>();
    made->uid = event.uid;
    made->sipAccount = event.sipAccount;
    made->callerNum = exten;
    made->calledNum = event.calledNum;
    made->direction = CallInfo::DirectionOutgoing;
    made->localChannel = event.localChannel;

    CallInfo* const leg = calls.insert(std::move(made));
    if (!leg) {
        TLOG(100) << logText("Outgoing call already exists: uid = %1; caller = %2; sipAccount = %3",
                             event.uid, exten, event.sipAccount);
        return;
    }
    TLOG(1000) << QStringLiteral("Originated call with UID %1 to %2 on SIP account %3")
                      .arg(leg->uid, leg->calledNum, leg->sipAccount);

    if (!inMobileMode())
        Q_EMIT q->sigOutgoingCall(event);
    else if (calls.legCount(event.uid) == 1)
        Q_EMIT q->sigStartingCall(leg->uid, leg->callerNum, leg->calledNum);
}

void TelvixPrivate::onAnsweredCall(const AnsweredCallEvent& event)
{
    Q_Q(Telvix);
    if (!calls.contains(event.uid)) {
        TLOG(100) << logText("Answered call with an invalid call UID: uid = %1; sipAccount = %2", event.uid,
                             event.sipAccount);
        return;
    }
    CallInfo* const leg = calls.leg(event.uid, event.sipAccount);
    if (!leg) {
        TLOG(100) << "Answered call: cannot find SIP account";
        return;
    }

    AnsweredCallEvent answered = event;
    leg->answered = true;
    answered.previousCallState = leg->direction;
    TLOG(1000) << callLogLine("Answered call %1 from %2 to %3 on SIP account %4", *leg);

    if (answered.localAnswer) {
        if (leg->direction == CallInfo::DirectionOutgoing)
            TLOG(100) << "Got Answered notification for outgoing call, but call seems to be answered locally "
                         "(i.e. incoming call)!";
    } else if (ApiText::atMost(serverApiVersion, "4.5")) {
        // Old servers never set the flag: an incoming leg is answered here.
        answered.localAnswer = leg->direction == CallInfo::DirectionIncoming;
    } else if (leg->direction == CallInfo::DirectionIncoming) {
        TLOG(100) << "Got Answered notification for incoming call, but call seems to be answered remotely "
                     "(i.e. outgoing call)!";
    }

    if (inMobileMode()) {
        Q_EMIT q->sigAnsweredCall(leg->uid, leg->callerNum, leg->calledNum);
        return;
    }
    // Old servers leave the caller's details out of the answer: ask for them.
    if (ApiText::atMost(serverApiVersion, "4.2") && !event.remoteChannel.isEmpty())
        getChannelStatus(event.remoteChannel);
    Q_EMIT q->sigAnsweredCall(answered);
}

void TelvixPrivate::onFinishedCall(const FinishedCallEvent& event)
{
    Q_Q(Telvix);
    if (!calls.contains(event.uid)) {
        TLOG(100) << logText("Finished call with an invalid call UID: uid = %1; sipAccount = %2", event.uid,
                             event.sipAccount);
        return;
    }
    const std::unique_ptr<CallInfo> taken = calls.take(event.uid, event.sipAccount);
    if (!taken) {
        TLOG(100) << "Finished call: cannot find SIP account";
        return;
    }
    TLOG(1000) << callLogLine("Finished call %1 from %2 to %3 on SIP account %4", *taken);

    const bool lastLeg = !calls.contains(event.uid);
    if (lastLeg)
        qDebug() << Q_FUNC_INFO << "Finished call on every account.";

    if (!inMobileMode()) {
        Q_EMIT q->sigFinishedCall(event);
    } else if (lastLeg) {
        qDebug() << Q_FUNC_INFO << "Finished call on every account. Now signaling to client";
        Q_EMIT q->sigFinishedCall(taken->uid, taken->callerNum, taken->calledNum, false);
    }

    // Servers before 4.3 send no missed-call event: an unanswered leg that
    // the user did not hang up was missed.
    if (ApiText::below(serverApiVersion, "4.3") && !taken->answered && !event.localHangup) {
        MissedCallEvent missed;
        missed.uid = event.uid;
        missed.sipAccount = event.sipAccount;
        missed.localChannel = event.localChannel;
        missed.remoteNum = event.remoteNum;
        missed.remoteName = event.remoteName;
        Q_EMIT q->sigMissedCall(missed);
    }
}

void TelvixPrivate::onMissedCall(const MissedCallEvent& event)
{
    Q_Q(Telvix);
    TLOG(1000) << QStringLiteral("Missed call %1 on SIP account %2").arg(event.uid, event.sipAccount);
    if (!inMobileMode()) {
        Q_EMIT q->sigMissedCall(event);
        return;
    }
    // The table is left to "FinishedCall": a mobile client hears of a missed
    // call once its last leg is gone.
    if (!calls.contains(event.uid)) {
        qDebug().noquote() << Q_FUNC_INFO
                           << QStringLiteral("Missed call %1 on SIP account %2 is the last one. Emit signal!")
                                  .arg(event.uid, event.sipAccount);
        Q_EMIT q->sigMissedCall(event.uid, event.remoteNum);
    } else {
        qDebug().noquote() << Q_FUNC_INFO
                           << QStringLiteral(
                                  "Missed call %1 on SIP account %2 is not the last one. Not signaling")
                                  .arg(event.uid, event.sipAccount);
    }
}

void TelvixPrivate::onColpUpdate(const ColpUpdateEvent& event)
{
    Q_Q(Telvix);
    if (!calls.contains(event.uid)) {
        TLOG(100) << logText("COLP update event with an invalid call UID: uid = %1; sipAccount = %2",
                             event.uid, event.sipAccount);
        return;
    }
    CallInfo* const leg = calls.leg(event.uid, event.sipAccount);
    if (!leg) {
        TLOG(100) << "COLP update event: cannot find SIP account";
        return;
    }
    leg->setPeer(event.remoteNum, event.remoteName, event.remoteChannel);
    TLOG(1000) << callLogLine("COLP update for call %1 from %2 to %3 on SIP account %4", *leg);
    if (!inMobileMode())
        Q_EMIT q->sigColpUpdate(event);
}

void TelvixPrivate::onCallLocalInfoUpdate(const CallLocalInfoUpdateEvent& event)
{
    Q_Q(Telvix);
    if (!calls.contains(event.uid)) {
        TLOG(100) << logText("CallLocalInfo update event with an invalid call UID: uid = %1; sipAccount = %2",
                             event.uid, event.sipAccount);
        return;
    }
    CallInfo* const leg = calls.leg(event.uid, event.sipAccount);
    if (!leg) {
        TLOG(100) << "CallLocalInfo update event: cannot find SIP account";
        return;
    }
    if (event.oldLocalChannel != leg->localChannel) {
        TLOG(100) << "CallLocalInfo update event: local channel doens't match with old one";
        return;
    }
    leg->setLocalInfo(event.newLocalChannel);
    TLOG(1000) << QStringLiteral("CallLocalInfo update for call %1 from %2 to %3 on SIP account %4 => new "
                                 "localChannel is %5")
                      .arg(leg->uid, leg->callerNum, leg->calledNum, leg->sipAccount, leg->localChannel);
    // Only mode 6 goes without: the mobile phone mode 7 follows the channel.
    if (appMode != TELVIX::AppModeSrntMobile)
        Q_EMIT q->sigCallLocalInfoUpdate(event);
}

void TelvixPrivate::onCallTransferCanceled(const TransferCanceledCallEvent& event)
{
    if (inMobileMode())
        Q_EMIT q_ptr->sigCallTransferCanceled(event.uid, event.reason);
}

void TelvixPrivate::onC2cOriginateCall(const C2COriginateEventMsg& event)
{
    Q_Q(Telvix);
    auto made = std::make_unique<CallInfo>();
    made->uid = event.uid;
    made->sipAccount = ClickToCallAccount;
    made->callerNum = event.exten;
    made->calledNum = event.toNumber;
    made->direction = CallInfo::DirectionOutgoing;
    made->localChannel = event.c2cChannel;
    made->isC2c = true;

    CallInfo* const leg = calls.insert(std::move(made));
    if (!leg) {
        TLOG(100) << logText("Incoming ClickToCall already exists: uid = %1; caller = %2; sipAccount = %3",
                             event.uid, event.exten, ClickToCallAccount);
        return;
    }
    TLOG(1000) << callLogLine("Incoming ClickToCall %1 from %2 to %3 on SIP account %4", *leg);
    if (inMobileMode() && calls.legCount(event.uid) == 1)
        Q_EMIT q->sigC2cOriginate(leg->uid, leg->calledNum, event.callType);
}

void TelvixPrivate::onC2cFinishedCall(const C2CFinishedEventMsg& event)
{
    Q_Q(Telvix);
    if (!calls.contains(event.uid)) {
        TLOG(100) << logText("Finished ClickToCall with an invalid call UID: uid = %1; sipAccount = %2",
                             event.uid, ClickToCallAccount);
        return;
    }
    const std::unique_ptr<CallInfo> taken = calls.take(event.uid, ClickToCallAccount);
    if (!taken) {
        TLOG(100) << "Finished ClickToCall: cannot find SIP account";
        return;
    }
    TLOG(1000) << callLogLine("Finished ClickToCall %1 from %2 to %3 on SIP account %4", *taken);
    if (calls.contains(event.uid))
        return;
    qDebug() << Q_FUNC_INFO << "Finished ClickToCall on every account";
    if (inMobileMode()) {
        qDebug() << Q_FUNC_INFO << "Finished ClickToCall on every account. Now signaling to client";
        Q_EMIT q->sigC2cFinished(taken->uid);
    }
}

void TelvixPrivate::clearCallIndexes()
{
    callsByLocalChannel.clear();
    callsByRemoteChannel.clear();
    transferringCalls.clear();
}

// ---- test hook ----------------------------------------------------------

namespace CallTableTestHook {

QMap<QString, QStringList> accountsByUid(Telvix* client)
{
    const TelvixPrivate* const d = TelvixPrivate::get(client);
    return TelvixHop::blocking<QMap<QString, QStringList>>(client, [d] {
        QMap<QString, QStringList> result;
        const auto& all = d->calls.calls();
        for (auto call = all.constBegin(); call != all.constEnd(); ++call) {
            QStringList accounts = call->keys();
            accounts.sort();
            result.insert(call.key(), accounts);
        }
        return result;
    });
}

QList<CallInfo> legs(Telvix* client, const QString& uid)
{
    const TelvixPrivate* const d = TelvixPrivate::get(client);
    return TelvixHop::blocking<QList<CallInfo>>(client, [d, uid] {
        QList<CallInfo> result;
        const CallTable::Legs legs = d->calls.legs(uid);
        for (const CallInfo* leg : legs)
            result.append(*leg);
        std::sort(result.begin(), result.end(),
                  [](const CallInfo& a, const CallInfo& b) { return a.sipAccount < b.sipAccount; });
        return result;
    });
}

int legCount(Telvix* client)
{
    const TelvixPrivate* const d = TelvixPrivate::get(client);
    return TelvixHop::blocking<int>(
        client, [d] { return d->calls.totalLegCount(); }, -1);
}

} // namespace CallTableTestHook
