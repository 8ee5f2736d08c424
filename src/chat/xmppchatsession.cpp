#include "xmppchatsession.h"

#include "telvixlog_p.h"
#include "utils.h"
#include "xmpphistory.h"

#include <QDateTime>
#include <QDebug>

#include <gloox/carbons.h>
#include <gloox/chatstatefilter.h>
#include <gloox/client.h>
#include <gloox/delayeddelivery.h>
#include <gloox/forward.h>
#include <gloox/message.h>
#include <gloox/messageevent.h>
#include <gloox/messageeventfilter.h>
#include <gloox/messagesession.h>
#include <gloox/tag.h>

#include <memory>

#define XLOG(priority) TelvixLogLine(m_log, priority, Q_FUNC_INFO)

namespace {

QString fromStd(const std::string& text)
{
    return QString::fromStdString(text);
}

QString bareOf(const gloox::JID& jid)
{
    return fromStd(jid.bare());
}

} // namespace

XmppOutgoingMessageFilter::XmppOutgoingMessageFilter(gloox::MessageSession* session)
    : gloox::MessageFilter(session)
{
}

void XmppOutgoingMessageFilter::decorate(gloox::Message& msg)
{
    ChatMessage message;
    message.id = fromStd(msg.id());
    message.threadId = fromStd(msg.thread());
    message.body = fromStd(msg.body("default"));
    message.chatId = bareOf(msg.to());
    message.timestamp = QDateTime::currentDateTimeUtc();
    message.direction = ChatMessage::Sent;
    message.type = ChatMessage::Feedback;
    qDebug() << "Outgoing message to" << fromStd(msg.to().full()) << "with id" << message.id;
    Q_EMIT sigOutgoingMessageId(message);
}

void XmppOutgoingMessageFilter::filter(gloox::Message& /*msg*/) { }

XmppChatSession::XmppChatSession(gloox::Client* client, gloox::MessageSession* session, QString logDir,
                                 QObject* parent)
    : QObject(parent)
    , m_client(client)
    , m_session(session)
    , m_threadId(fromStd(session->threadID()))
{
    m_session->registerMessageHandler(this);
    // The filters belong to the gloox session, which deletes them with itself.
    m_eventFilter = new gloox::MessageEventFilter(m_session);
    m_eventFilter->registerMessageEventHandler(this);
    m_chatStateFilter = new gloox::ChatStateFilter(m_session);
    m_chatStateFilter->registerChatStateHandler(this);
    m_outgoingFilter = new XmppOutgoingMessageFilter(m_session);
    connect(m_outgoingFilter, &XmppOutgoingMessageFilter::sigOutgoingMessageId, this,
            &XmppChatSession::sigMessageReceived);

    m_log = makeFileLogger(QStringLiteral("Default Logbus"), QStringLiteral("XmppChatSession"),
                           logDir + QStringLiteral("/xmppEngine.log"), WriterConfig(10, 2),
                           QStringLiteral("XmppChatSession"), 100000);
}

XmppChatSession::~XmppChatSession()
{
    close();
    if (m_log) {
        m_log->flush();
        m_log->disconnect();
        m_log->deleteLater();
        m_log = nullptr;
    }
}

void XmppChatSession::close()
{
    if (m_client && m_session)
        m_client->disposeMessageSession(m_session);
    m_client = nullptr;
    m_session = nullptr;
    m_eventFilter = nullptr;
    m_chatStateFilter = nullptr;
    m_outgoingFilter = nullptr;
}

void XmppChatSession::send(const QString& body, const QString& subject)
{
    if (!m_session) {
        XLOG(10) << "Trying to send a chat message, but the session is invalid";
        return;
    }
    XLOG(10000) << "Sending chat message from session";
    m_session->send(body.toStdString(), subject.toStdString(), gloox::StanzaExtensionList());
}

void XmppChatSession::setChatState(int state)
{
    if (m_chatStateFilter)
        m_chatStateFilter->setChatState(gloox::ChatStateType(state));
}

void XmppChatSession::notifyOpenConversation()
{
    setChatState(gloox::ChatStateActive);
}

void XmppChatSession::notifyStartComposing()
{
    setChatState(gloox::ChatStateComposing);
}

void XmppChatSession::notifyStopComposing()
{
    setChatState(gloox::ChatStatePaused);
}

void XmppChatSession::notifyCloseConversation()
{
    // Inactive, not gone: the conversation may be taken up again.
    setChatState(gloox::ChatStateInactive);
}

void XmppChatSession::notifyMessageDisplayed()
{
    if (m_eventFilter)
        m_eventFilter->raiseMessageEvent(gloox::MessageEventDisplayed);
}

void XmppChatSession::handleMessage(const gloox::Message& msg, gloox::MessageSession* /*session*/)
{
    // Acknowledged whatever follows, ignored messages included.
    if (m_eventFilter)
        m_eventFilter->raiseMessageEvent(gloox::MessageEventDelivered);

    if (msg.subtype() == gloox::Message::Error) {
        XLOG(100) << "Received a message with type 'error'";
        return;
    }
    if (msg.subtype() == gloox::Message::Invalid) {
        XLOG(100) << "Received a message with type 'invalid'";
        return;
    }

    const auto* carbon = msg.findExtension<gloox::Carbons>(gloox::ExtCarbons);
    if (carbon && carbon->embeddedStanza()) {
        // Our own copies come back from the server too.
        if (m_client && msg.from().full() == m_client->jid().full())
            return;
        const auto* embedded = static_cast<const gloox::Message*>(carbon->embeddedStanza());
        // A forwarded stanza keeps its children only as a tag.
        std::unique_ptr<gloox::MessageEvent> event;
        const gloox::Tag* embeddedTag = carbon->embeddedTag();
        const gloox::Tag* eventTag
            = embeddedTag ? embeddedTag->findChild("x", "xmlns", gloox::XMLNS_X_EVENT) : nullptr;
        if (eventTag)
            event = std::make_unique<gloox::MessageEvent>(eventTag);
        if (event && embedded->body("default").empty()) {
            // A receipt seen by another device of ours counts as seen here.
            handleMessageEvent(embedded->from(), gloox::MessageEventType(event->event()));
            return;
        }
        ChatMessage message = parseMessage(*embedded);
        message.type = ChatMessage::Copy;
        if (carbon->type() == gloox::Carbons::Received)
            message.direction = ChatMessage::Received;
        else if (carbon->type() == gloox::Carbons::Sent)
            message.direction = ChatMessage::Sent;
        else
            return;
        Q_EMIT sigMessageReceived(message);
        return;
    }

    const auto* history = msg.findExtension<HistoryResult>(HistoryResult::ExtensionType);
    if (history) {
        handleHistoryMessage(*history);
        return;
    }

    const ChatMessage message = parseMessage(msg);
    if (message.type == ChatMessage::InvalidType) {
        XLOG(10000) << "Invalid chat message. Ignoring it";
        return;
    }
    Q_EMIT sigMessageReceived(message);
    const auto* event = msg.findExtension<gloox::MessageEvent>(gloox::ExtMessageEvent);
    if (event && msg.body("default").empty())
        forwardMessageEvent(event, msg);
}

void XmppChatSession::handleHistoryMessage(const HistoryResult& result)
{
    if (!result.forward) {
        XLOG(10) << "Invalid history message: forward extension not found";
        qDebug() << "Invalid history message: forward extension not found";
        return;
    }
    const auto* embedded = static_cast<const gloox::Message*>(result.forward->embeddedStanza());
    if (!embedded) {
        XLOG(10) << "Invalid history message: history extension not found";
        qDebug() << "Invalid history message: history extension not found";
        return;
    }
    ChatMessage message = parseMessage(*embedded);
    message.type = ChatMessage::History;
    const gloox::DelayedDelivery* delay = result.forward->when();
    if (delay) {
        message.timestamp = Utils::parseIsoDateTime(fromStd(delay->stamp()));
        message.timestamp.setTimeSpec(Qt::UTC);
        if (!message.timestamp.isValid())
            XLOG(100) << "History time is not valid";
    } else {
        XLOG(100) << "No delay time found in history message";
    }
    Q_EMIT sigMessageHistory(fromStd(result.id), message);
}

ChatMessage XmppChatSession::parseMessage(const gloox::Message& msg) const
{
    ChatMessage message;
    message.id = fromStd(msg.id());
    message.threadId = fromStd(msg.thread());
    message.body = fromStd(msg.body("default"));
    message.type = ChatMessage::Normal;

    const gloox::JID own = m_client ? m_client->jid() : gloox::JID();
    // A message without "to" is addressed to this account: the server drops
    // a "to" that names the account itself, as in a message to oneself.
    const gloox::JID to = msg.to() ? msg.to() : gloox::JID(own.bare());
    if (msg.from().full() == own.full()) {
        message.direction = ChatMessage::Sent;
        message.chatId = bareOf(to);
    } else if (to.bare() == own.bare()) {
        message.direction = ChatMessage::Received;
        message.chatId = bareOf(msg.from());
    } else {
        // Sent by this account to a third party.
        message.direction = ChatMessage::Sent;
        message.chatId = bareOf(to);
    }

    const gloox::DelayedDelivery* delay = msg.when();
    if (delay) {
        message.timestamp
            = QDateTime::fromString(fromStd(delay->stamp()), QStringLiteral("yyyy-MM-ddThh:mm:ss.zzzZ"));
        message.timestamp.setTimeSpec(Qt::UTC);
        if (delay->reason() == "Offline Storage") {
            // Comes back through the archive instead.
            XLOG(10000) << "Received an offline stored message.";
            message.type = ChatMessage::InvalidType;
        }
    } else {
        message.timestamp = QDateTime::currentDateTimeUtc();
    }
    return message;
}

void XmppChatSession::handleMessageEvent(const gloox::JID& from, gloox::MessageEventType event)
{
    const QString bare = bareOf(from);
    const QString full = fromStd(from.full());
    const int mask = int(event);
    if (mask & gloox::MessageEventComposing) {
        qDebug() << "message event composing - from:" << full << "thread:" << m_threadId;
        Q_EMIT sigIsComposing(bare, m_threadId, true);
    }
    if (mask & gloox::MessageEventCancel) {
        qDebug() << "message event cancel - from:" << full << "thread:" << m_threadId;
        Q_EMIT sigIsComposing(bare, m_threadId, false);
    }
    if (mask & gloox::MessageEventDelivered) {
        qDebug() << "message event delivered - from:" << full << "thread:" << m_threadId;
        Q_EMIT sigIsComposing(bare, m_threadId, false);
        Q_EMIT sigMessageDelivered(bare);
    }
    if (mask & gloox::MessageEventDisplayed) {
        qDebug() << "message event displayed - from:" << full << "thread:" << m_threadId;
        Q_EMIT sigMessageDisplayed(bare);
    }
    if (mask & gloox::MessageEventOffline) {
        qDebug() << "message event offline - from:" << full << "thread:" << m_threadId;
        Q_EMIT sigMessageOffline(bare);
    }
    if (mask & gloox::MessageEventInvalid)
        qWarning() << "message event invalid - from:" << full << "thread:" << m_threadId;
}

void XmppChatSession::handleChatState(const gloox::JID& from, gloox::ChatStateType state)
{
    const QString bare = bareOf(from);
    switch (state) {
    case gloox::ChatStateActive:
        // The contact looks at the conversation: taken as a read receipt.
        Q_EMIT sigMessageDisplayed(bare);
        break;
    case gloox::ChatStateComposing:
        Q_EMIT sigIsComposing(bare, m_threadId, true);
        break;
    case gloox::ChatStatePaused:
    case gloox::ChatStateInactive:
        Q_EMIT sigIsComposing(bare, m_threadId, false);
        break;
    case gloox::ChatStateGone:
        qDebug() << "chat state gone - from:" << fromStd(from.full());
        break;
    case gloox::ChatStateInvalid:
        qWarning() << "chat state invalid - from:" << fromStd(from.full());
        break;
    default:
        qWarning() << "chat state unknown - from:" << fromStd(from.full());
        break;
    }
}

void XmppChatSession::forwardMessageEvent(const gloox::MessageEvent* event, const gloox::Message& msg)
{
    if (!m_client)
        return;
    // Carbons skip body-less events, so other devices of ours get a copy by hand.
    const gloox::JID own = m_client->jid();
    auto* outer = new gloox::Tag("message");
    outer->addAttribute("to", own.bare());
    outer->addAttribute("from", own.full());
    outer->addAttribute("type", "normal");
    auto* received = new gloox::Tag(outer, "received", "xmlns", gloox::XMLNS_MESSAGE_CARBONS);
    auto* forwarded = new gloox::Tag(received, "forwarded", "xmlns", gloox::XMLNS_STANZA_FORWARDING);
    auto* inner = new gloox::Tag(forwarded, "message");
    inner->addAttribute("to", msg.to().full());
    inner->addAttribute("from", msg.from().full());
    inner->addAttribute("type", "normal");
    inner->addChild(event->tag());
    m_client->send(outer);
}
