#pragma once

#include "chatmessage.h"
#include "telvix_export.h"

#include <QObject>
#include <QString>

#include <gloox/chatstatehandler.h>
#include <gloox/messageeventhandler.h>
#include <gloox/messagefilter.h>
#include <gloox/messagehandler.h>

class HistoryResult;
class Logger;

namespace gloox {
class ChatStateFilter;
class Client;
class Message;
class MessageEvent;
class MessageEventFilter;
class MessageSession;
} // namespace gloox

/// Watches what a session sends, to learn the stanza id that gloox gives each
/// outgoing message; the receipts that follow do not carry it.
class TELVIX_EXPORT XmppOutgoingMessageFilter : public QObject, public gloox::MessageFilter
{
    Q_OBJECT

public:
    /// Attaches itself to `session`, which then owns it.
    explicit XmppOutgoingMessageFilter(gloox::MessageSession* session);

    void decorate(gloox::Message& msg) override;
    void filter(gloox::Message& msg) override;

Q_SIGNALS:
    /// The message being sent, as type "feedback".
    void sigOutgoingMessageId(ChatMessage message);
};

/// The conversation with one contact: one gloox message session with its
/// event and chat-state filters, turned into `ChatMessage` records and a few
/// small signals. Lives on the chat client's thread.
class TELVIX_EXPORT XmppChatSession : public QObject,
                                      public gloox::MessageHandler,
                                      public gloox::MessageEventHandler,
                                      public gloox::ChatStateHandler
{
    Q_OBJECT

public:
    XmppChatSession(gloox::Client* client, gloox::MessageSession* session, QString logDir,
                    QObject* parent = nullptr);
    ~XmppChatSession() override;

    void send(const QString& body, const QString& subject);
    /// Hands the gloox session back to the client, which deletes it.
    void close();

    void notifyOpenConversation();
    void notifyStartComposing();
    void notifyStopComposing();
    void notifyCloseConversation();
    void notifyMessageDisplayed();

    void handleMessage(const gloox::Message& msg, gloox::MessageSession* session = nullptr) override;
    void handleMessageEvent(const gloox::JID& from, gloox::MessageEventType event) override;
    void handleChatState(const gloox::JID& from, gloox::ChatStateType state) override;

Q_SIGNALS:
    void sigIsComposing(QString chatId, QString threadId, bool composing);
    void sigMessageDelivered(const QString& chatId);
    void sigMessageOffline(const QString& chatId);
    void sigMessageDisplayed(const QString& chatId);
    void sigMessageReceived(ChatMessage message);
    /// A message out of the archive, with its archive id.
    void sigMessageHistory(const QString& archiveId, ChatMessage message);

private:
    void handleHistoryMessage(const HistoryResult& result);
    ChatMessage parseMessage(const gloox::Message& msg) const;
    void forwardMessageEvent(const gloox::MessageEvent* event, const gloox::Message& msg);
    void setChatState(int state);

    gloox::Client* m_client = nullptr;
    gloox::MessageSession* m_session = nullptr;
    gloox::MessageEventFilter* m_eventFilter = nullptr;
    gloox::ChatStateFilter* m_chatStateFilter = nullptr;
    XmppOutgoingMessageFilter* m_outgoingFilter = nullptr;
    QString m_threadId;
    Logger* m_log = nullptr;
};
