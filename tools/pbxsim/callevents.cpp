// The events of the call engine: what each SIP account of an extension is
// told about its calls.
#include "callengine.h"

#include "calleventmessages.h"
#include "simhub.h"
#include "simmessages.h"
#include "simplexmlparser.h"

void CallEngine::sendOriginate(const Party& p, const Party& to)
{
    for (auto it = p.channels.begin(); p.isExten() && it != p.channels.end(); ++it) {
        OriginateCallEventMsg msg;
        msg.event.uid = p.uid;
        msg.event.sipAccount = it.key();
        msg.event.localChannel = it.value();
        msg.event.calledNum = to.number;
        m_hub.sendToExten(p.exten, msg);
    }
    sendPhoneEvent(p, to, QStringLiteral("outgoingCall"));
}

void CallEngine::sendIncoming(const Call* call, const Party& p, const Party& from, const QString& queue)
{
    for (auto it = p.channels.begin(); p.isExten() && it != p.channels.end(); ++it) {
        IncomingCallEventMsg msg;
        IncomingCallEvent& e = msg.event;
        e.uid = p.uid;
        e.sipAccount = it.key();
        e.localChannel = it.value();
        e.remoteChannel = from.mainChannel;
        e.remoteNum = from.number;
        e.remoteName = from.name;
        e.calledNum = p.number;
        e.attributes = from.isExten() ? TELVIX::CallAttrFromLocalExten : TELVIX::CallAttrFromIbl;
        e.callType = call->callType;
        e.queue = queue;
        e.queueName = queue.isEmpty() ? QString() : QStringLiteral("Queue %1").arg(queue);
        m_hub.sendToExten(p.exten, msg);
    }
    sendPhoneEvent(p, from, QStringLiteral("incomingCall"));
}

void CallEngine::sendAnswered(const Call* call, const Party& p, const Party& peer)
{
    for (auto it = p.channels.begin(); p.isExten() && it != p.channels.end(); ++it) {
        AnsweredCallEventMsg msg;
        AnsweredCallEvent& e = msg.event;
        e.uid = p.uid;
        e.sipAccount = it.key();
        e.localChannel = it.value();
        e.remoteChannel = peer.mainChannel;
        e.remoteNum = peer.number;
        e.remoteName = peer.name;
        e.calledNum = call->callee.number;
        e.localAnswer = &p == &call->callee && it.key() == call->answeredAccount;
        m_hub.sendToExten(p.exten, msg);
    }
    sendPhoneEvent(p, peer, QStringLiteral("establishedCall"));
}

void CallEngine::sendFinished(const Party& p, const Party& peer, const QString& reason, bool localHangup)
{
    for (auto it = p.channels.begin(); p.isExten() && it != p.channels.end(); ++it) {
        FinishedCallEventMsg msg;
        FinishedCallEvent& e = msg.event;
        e.uid = p.uid;
        e.sipAccount = it.key();
        e.localChannel = it.value();
        e.remoteNum = peer.number;
        e.remoteName = peer.name;
        e.reason = reason;
        e.localHangup = localHangup;
        m_hub.sendToExten(p.exten, msg);
    }
    sendPhoneEvent(p, peer, QStringLiteral("endedCall"));
}

void CallEngine::sendMissed(const Party& p, const Party& peer)
{
    for (auto it = p.channels.begin(); p.isExten() && it != p.channels.end(); ++it) {
        MissedCallEventMsg msg;
        msg.event.uid = p.uid;
        msg.event.sipAccount = it.key();
        msg.event.localChannel = it.value();
        msg.event.remoteNum = peer.number;
        msg.event.remoteName = peer.name;
        m_hub.sendToExten(p.exten, msg);
    }
    sendPhoneEvent(p, peer, QStringLiteral("missedCall"));
}

void CallEngine::sendColp(const Party& p, const Party& peer)
{
    for (auto it = p.channels.begin(); p.isExten() && it != p.channels.end(); ++it) {
        ColpUpdateEventMsg msg;
        msg.event.uid = p.uid;
        msg.event.sipAccount = it.key();
        msg.event.localChannel = it.value();
        msg.event.remoteChannel = peer.mainChannel;
        msg.event.remoteNum = peer.number;
        msg.event.remoteName = peer.name;
        m_hub.sendToExten(p.exten, msg);
    }
}

// What the desk phone of `p` tells about its line; the line id is the
// channel of the phone's account.
void CallEngine::sendPhoneEvent(const Party& p, const Party& peer, const QString& type)
{
    if (!m_deskPhones || !p.isExten())
        return;
    const auto element = [](const char* name, const QString& value) {
        return QStringLiteral("<%1>%2</%1>")
            .arg(QLatin1String(name), SimpleXmlParser::encodeEntities(value, false));
    };
    SimResponse msg(QStringLiteral("<phoneEvent>") + element("eventType", type)
                    + element("callId", p.deskChannel) + element("account", p.exten)
                    + element("remoteNum", peer.number) + element("remoteName", peer.name)
                    + QStringLiteral("</phoneEvent>"));
    m_hub.sendToExten(p.exten, msg);
}
