#include "callengine.h"

#include "calleventmessages.h"
#include "cdrmessages.h"
#include "simdirectory.h"
#include "simhub.h"

#include <QTimer>

namespace {

const QString TrunkAccount = QStringLiteral("trunk");
const QString ParkingNumber = QStringLiteral("701");

QString nameInPhoneBook(SimDirectory& directory, const QString& number)
{
    for (const PhoneBook& book : directory.phoneBooks(QString())) {
        for (const PhoneBookEntry& e : book.entries) {
            for (const ContactEntry& c : e.contacts) {
                if (c.value == number)
                    return e.displayName;
            }
        }
    }
    return QString();
}

} // namespace

CallEngine::CallEngine(SimHub& hub, QObject* parent)
    : QObject(parent)
    , m_hub(hub)
{
}

CallEngine::~CallEngine()
{
    qDeleteAll(m_calls);
}

// ---- parties and calls ----------------------------------------------------

QString CallEngine::newChannel(const QString& account)
{
    return QStringLiteral("SIP/%1-%2").arg(account).arg(m_nextChannel++, 8, 16, QLatin1Char('0'));
}

CallEngine::Party CallEngine::makeParty(const QString& number, const QString& name, const QString& uid)
{
    Party p;
    p.number = number;
    p.uid = uid;
    if (const SimExtension* ext = m_hub.directory().extension(number)) {
        p.exten = ext->exten;
        p.name = ext->fullName();
        for (const QString& account : ext->accounts)
            p.channels.insert(account, newChannel(account));
        p.mainChannel = p.channels.value(ext->accounts.value(0));
        p.deskChannel = p.mainChannel;
    } else {
        p.name = name.isEmpty() ? nameInPhoneBook(m_hub.directory(), number) : name;
        p.channels.insert(TrunkAccount, newChannel(TrunkAccount));
        p.mainChannel = p.channels.value(TrunkAccount);
    }
    return p;
}

CallEngine::Call* CallEngine::newCall(Party caller, Party callee, const QString& callType)
{
    auto* call = new Call;
    call->caller = std::move(caller);
    call->callee = std::move(callee);
    call->callType = callType;
    call->started = QDateTime::currentDateTime();
    call->timer = new QTimer(this);
    call->timer->setSingleShot(true);
    m_calls.append(call);
    m_lastUid = call->caller.uid;
    return call;
}

CallEngine::Call* CallEngine::findByChannel(const QString& channel, Party** owner)
{
    for (Call* call : qAsConst(m_calls)) {
        for (Party* p : {&call->caller, &call->callee}) {
            if (p->channels.values().contains(channel)) {
                *owner = p;
                return call;
            }
        }
    }
    return nullptr;
}

CallEngine::Call* CallEngine::findByUid(const QString& uid)
{
    for (Call* call : qAsConst(m_calls)) {
        if (call->caller.uid == uid || call->callee.uid == uid)
            return call;
    }
    return nullptr;
}

void CallEngine::schedule(Call* call, int ms, std::function<void()> action)
{
    call->timer->disconnect();
    connect(call->timer, &QTimer::timeout, this, std::move(action));
    call->timer->start(qMax(0, ms));
}

void CallEngine::startRinging(Call* call)
{
    call->state = Call::Ringing;
    call->answeredAccount.clear();
    if (m_timings.answerDelayMs >= 0 && m_timings.answerDelayMs < m_timings.ringTimeoutMs)
        schedule(call, m_timings.answerDelayMs, [this, call] { answer(call); });
    else
        schedule(call, m_timings.ringTimeoutMs,
                 [this, call] { finish(call, &call->caller, QStringLiteral("noanswer")); });
}

// ---- starting calls -----------------------------------------------------------

QString CallEngine::dial(const QString& fromExten, const QString& toNumber, QString* error)
{
    if (!m_hub.directory().extension(fromExten)) {
        *error = QStringLiteral("Unknown extension %1").arg(fromExten);
        return QString();
    }
    if (toNumber.isEmpty() || toNumber == fromExten) {
        *error = QStringLiteral("Invalid destination \"%1\"").arg(toNumber);
        return QString();
    }
    const QString uid = QStringLiteral("%1.%2").arg(QDateTime::currentSecsSinceEpoch()).arg(m_nextCall++);
    Party caller = makeParty(fromExten, QString(), uid);
    Party callee = makeParty(toNumber, QString(), uid);
    const QString type = callee.isExten() ? QStringLiteral("local_exten") : QStringLiteral("outbound");
    Call* call = newCall(caller, callee, type);
    sendOriginate(call->caller, call->callee);
    if (call->callee.isExten())
        sendIncoming(call, call->callee, call->caller, QString());
    m_hub.log(QStringLiteral("call %1: %2 dials %3").arg(uid, fromExten, toNumber));
    updateLamps({call->caller.exten, call->callee.exten});
    startRinging(call);
    return uid;
}

QString CallEngine::ringFromOutside(const QString& fromNumber, const QString& fromName,
                                    const QString& toExten, const QString& queue, QString* error)
{
    if (!m_hub.directory().extension(toExten)) {
        *error = QStringLiteral("Unknown extension %1").arg(toExten);
        return QString();
    }
    const QString uid = QStringLiteral("%1.%2").arg(QDateTime::currentSecsSinceEpoch()).arg(m_nextCall++);
    Call* call = newCall(makeParty(fromNumber, fromName, uid), makeParty(toExten, QString(), uid),
                         QStringLiteral("inbound"));
    sendIncoming(call, call->callee, call->caller, queue);
    m_hub.log(QStringLiteral("call %1: %2 (%3) rings %4 from outside")
                  .arg(uid, fromNumber, call->caller.name, toExten));
    updateLamps({toExten});
    startRinging(call);
    return uid;
}

// ---- the life of a call ----------------------------------------------------------

void CallEngine::answer(Call* call)
{
    call->state = Call::Up;
    call->answered = QDateTime::currentDateTime();
    if (call->callee.isExten()) {
        call->answeredAccount = call->callee.channels.firstKey();
        call->callee.mainChannel = call->callee.channels.value(call->answeredAccount);
    }
    sendAnswered(call, call->caller, call->callee);
    sendAnswered(call, call->callee, call->caller);
    m_hub.log(QStringLiteral("call %1: %2 answered").arg(call->callee.uid, call->callee.number));
    updateLamps({call->caller.exten, call->callee.exten});
    // The far end ends the call: the outside caller, else the called party.
    const Party* hanger = call->caller.isExten() ? &call->callee : &call->caller;
    schedule(call, m_timings.callDurationMs,
             [this, call, hanger] { finish(call, hanger, QStringLiteral("normal")); });
}

void CallEngine::finish(Call* call, const Party* hanger, const QString& reason)
{
    call->timer->stop();
    if (call->state == Call::Ringing && hanger != &call->callee)
        sendMissed(call->callee, call->caller);
    for (const Party* p : {&call->caller, &call->callee})
        sendFinished(*p, other(call, *p), reason, p == hanger);
    m_hub.log(QStringLiteral("call %1: finished (%2)").arg(call->caller.uid, reason));
    recordHistory(call, reason);
    m_calls.removeOne(call);
    call->timer->deleteLater();
    const QStringList extens {call->caller.exten, call->callee.exten};
    delete call;
    updateLamps(extens);
}

void CallEngine::drop(Call* call, Party& party, const QString& reason, bool localHangup)
{
    sendFinished(party, other(call, party), reason, localHangup);
    const QString exten = party.exten;
    party = Party();
    updateLamps({exten});
}

void CallEngine::recordHistory(const Call* call, const QString& reason)
{
    CdrEntry e;
    e.caller = call->caller.number;
    e.callerName = call->caller.name;
    e.callee = call->callee.number;
    e.calleeName = call->callee.name;
    e.direction = !call->caller.isExten() ? 1 : (call->callee.isExten() ? 4 : 2);
    const bool talked = call->answered.isValid();
    e.status = talked ? 8 : (reason == QLatin1String("busy") ? 2 : 4);
    e.directionText = CDR::directionText(e.direction);
    e.statusText = CDR::statusText(e.status);
    e.startTime = call->started.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    e.duration = talked ? int(call->answered.secsTo(QDateTime::currentDateTime())) : 0;
    if (e.caller.isEmpty() || e.callee.isEmpty())
        return;
    e = m_hub.directory().addHistory(e);
    for (const Party* p : {&call->caller, &call->callee}) {
        if (!p->isExten())
            continue;
        CdrRespMsg msg;
        msg.cdr = {e};
        m_hub.sendToExten(p->exten, msg);
    }
}

void CallEngine::updateLamps(const QStringList& extens)
{
    for (const QString& exten : extens) {
        if (exten.isEmpty())
            continue;
        bool inUse = false;
        bool ringing = false;
        for (const Call* call : qAsConst(m_calls)) {
            if (call->callee.exten == exten && call->state == Call::Ringing)
                ringing = true;
            else if (call->caller.exten == exten || call->callee.exten == exten)
                inUse = true;
        }
        const TELVIX::BlfStatus lamp = ringing ? (inUse ? TELVIX::BlfInUseRinging : TELVIX::BlfRinging)
                                               : (inUse ? TELVIX::BlfInUse : TELVIX::BlfIdle);
        if (m_hub.directory().status(exten).blfStatus == lamp)
            continue;
        m_hub.directory().setBlfStatus(exten, lamp);
        m_hub.extenStatusChanged(exten);
    }
}

// ---- control ---------------------------------------------------------------------

bool CallEngine::hangupChannel(const QString& channel, const QString& reason)
{
    Party* owner = nullptr;
    Call* call = findByChannel(channel, &owner);
    if (!call)
        return false;
    finish(call, owner, reason.isEmpty() ? QStringLiteral("normal") : reason);
    return true;
}

bool CallEngine::hangupCall(const QString& uid)
{
    Call* call = findByUid(uid);
    if (!call)
        return false;
    finish(call, call->caller.isExten() ? &call->callee : &call->caller, QStringLiteral("normal"));
    return true;
}

bool CallEngine::answerCall(const QString& uid)
{
    Call* call = findByUid(uid);
    if (!call || call->state != Call::Ringing)
        return false;
    answer(call);
    return true;
}

bool CallEngine::redirect(const QString& channel, const QString& toNumber, QString* error)
{
    Party* stays = nullptr;
    Call* call = findByChannel(channel, &stays);
    if (!call) {
        *error = QStringLiteral("No such channel %1").arg(channel);
        return false;
    }
    if (toNumber.isEmpty() || toNumber == stays->number) {
        *error = QStringLiteral("Invalid destination \"%1\"").arg(toNumber);
        return false;
    }
    Party& leaves = other(call, *stays);
    const QString uid = leaves.uid;
    drop(call, leaves, QStringLiteral("redirected"), false);
    leaves = makeParty(toNumber, QString(), uid);
    call->answered = QDateTime();
    if (leaves.isExten())
        sendIncoming(call, leaves, *stays, QString());
    sendColp(*stays, leaves);
    m_hub.log(QStringLiteral("call %1: redirected to %2").arg(uid, toNumber));
    // Ringing first, so that the new party's lamp shows it.
    startRinging(call);
    updateLamps({leaves.exten});
    return true;
}

bool CallEngine::redirectCall(const QString& uid, const QString& toNumber, QString* error)
{
    Call* call = findByUid(uid);
    if (!call) {
        *error = QStringLiteral("No such call %1").arg(uid);
        return false;
    }
    return redirect(call->caller.mainChannel, toNumber, error);
}

bool CallEngine::answerChannel(const QString& channel)
{
    Party* owner = nullptr;
    Call* call = findByChannel(channel, &owner);
    if (!call || owner != &call->callee || call->state != Call::Ringing)
        return false;
    answer(call);
    return true;
}

bool CallEngine::holdChannel(const QString& channel, bool hold)
{
    Party* owner = nullptr;
    Call* call = findByChannel(channel, &owner);
    if (!call || call->state != Call::Up || owner->onHold == hold)
        return false;
    owner->onHold = hold;
    sendPhoneEvent(*owner, other(call, *owner),
                   hold ? QStringLiteral("holdCall") : QStringLiteral("unholdCall"));
    m_hub.log(
        QStringLiteral("call %1: %2 %3")
            .arg(owner->uid, owner->number, hold ? QStringLiteral("holds") : QStringLiteral("resumes")));
    return true;
}

bool CallEngine::transferChannel(const QString& channel, const QString& toNumber, QString* error)
{
    Party* owner = nullptr;
    Call* call = findByChannel(channel, &owner);
    if (!call) {
        *error = QStringLiteral("No such channel %1").arg(channel);
        return false;
    }
    return redirect(other(call, *owner).mainChannel, toNumber, error);
}

bool CallEngine::park(const QString& parkedChannel, const QString& parkingChannel, QString* error)
{
    Party* leaves = nullptr;
    Call* call = findByChannel(parkedChannel, &leaves);
    Party* waits = nullptr;
    if (!call || findByChannel(parkingChannel, &waits) != call || waits == leaves) {
        *error = QStringLiteral("No call between %1 and %2").arg(parkedChannel, parkingChannel);
        return false;
    }
    if (call->state != Call::Up) {
        *error = QStringLiteral("Call not answered");
        return false;
    }
    const QString uid = leaves->uid;
    drop(call, *leaves, QStringLiteral("parked"), true);
    *leaves = makeParty(ParkingNumber, QStringLiteral("Parking lot"), uid);
    call->state = Call::Parked;
    sendColp(*waits, *leaves);
    m_hub.log(QStringLiteral("call %1: %2 parked at %3").arg(waits->uid, waits->number, ParkingNumber));
    schedule(call, m_timings.callDurationMs, [this, call] {
        finish(call, call->caller.number == ParkingNumber ? &call->caller : &call->callee,
               QStringLiteral("parktimeout"));
    });
    return true;
}

bool CallEngine::bridge(const QString& channel1, const QString& channel2, QString* error)
{
    Party* x = nullptr;
    Party* y = nullptr;
    Call* first = findByChannel(channel1, &x);
    Call* second = findByChannel(channel2, &y);
    if (!first || !second || first == second) {
        *error = QStringLiteral("Cannot bridge %1 and %2").arg(channel1, channel2);
        return false;
    }
    drop(first, other(first, *x), QStringLiteral("bridged"), true);
    drop(second, other(second, *y), QStringLiteral("bridged"), true);
    // The second call's remaining party moves into the first call.
    other(first, *x) = *y;
    second->timer->stop();
    m_calls.removeOne(second);
    second->timer->deleteLater();
    delete second;
    first->state = Call::Up;
    if (!first->answered.isValid())
        first->answered = QDateTime::currentDateTime();
    Party& joined = other(first, *x);
    sendColp(*x, joined);
    sendColp(joined, *x);
    m_hub.log(QStringLiteral("calls bridged: %1 with %2").arg(x->number, joined.number));
    updateLamps({x->exten, joined.exten});
    const Party* hanger = &joined;
    schedule(first, m_timings.callDurationMs,
             [this, first, hanger] { finish(first, hanger, QStringLiteral("normal")); });
    return true;
}

bool CallEngine::channelStatus(const QString& channel, ChannelStatus* status) const
{
    for (const Call* call : m_calls) {
        for (const Party* p : {&call->caller, &call->callee}) {
            if (p->channels.values().contains(channel)) {
                *status = ChannelStatus {channel, p->number, p->name};
                return true;
            }
        }
    }
    return false;
}
