// Chat in the client: the application speaks of extensions, the chat server
// of JIDs. Everything here runs on the library's thread; the chat client
// lives on its own and is reached through its own hops.
#include "telvix_p.h"

#include "xmppengine.h"

#include <QDebug>
#include <QMimeDatabase>

namespace {
constexpr int DefaultChatPort = 5222;
constexpr int ChatReconnectDelayMs = 3000;
} // namespace

// ---- public facade ---------------------------------------------------------

bool Telvix::enableChatSupport(bool enable)
{
    return d_func()->enableChatSupport(enable);
}

bool Telvix::isChatConnected()
{
    TELVIX_BLOCKING(bool, d->isChatConnected(), false);
}

bool Telvix::setClientPresence(TELVIX::ChatPresence presence, const QString& status)
{
    TELVIX_QUEUED(d->setClientPresence(presence, status));
}

bool Telvix::sendChatMessage(const QString& exten, const QString& body)
{
    TELVIX_QUEUED(d->sendChatMessage(exten, body));
}

bool Telvix::sendChatOpenConversation(const QString& exten)
{
    TELVIX_QUEUED(d->sendToExten(exten, &XmppClient::sendOpenConversation));
}

bool Telvix::sendChatStartComposing(const QString& exten)
{
    TELVIX_QUEUED(d->sendToExten(exten, &XmppClient::sendStartComposing));
}

bool Telvix::sendChatStopComposing(const QString& exten)
{
    TELVIX_QUEUED(d->sendToExten(exten, &XmppClient::sendStopComposing));
}

bool Telvix::sendChatCloseConversation(const QString& exten)
{
    TELVIX_QUEUED(d->sendToExten(exten, &XmppClient::sendCloseConversation));
}

bool Telvix::sendChatMessageDisplayed(const QString& exten)
{
    TELVIX_QUEUED(d->sendChatMessageDisplayed(exten));
}

QString Telvix::sendChatFile(const QString& exten, const QString& path)
{
    TELVIX_BLOCKING(QString, d->sendChatFile(exten, path), QString());
}

QString Telvix::sendChatVCard(const QString& exten, const QByteArray& data, const QString& fileName)
{
    TELVIX_BLOCKING(QString, d->sendChatVCard(exten, data, fileName), QString());
}

bool Telvix::chatFtAccept(const QString& sid, const QString& path)
{
    TELVIX_QUEUED(d->chatFtAccept(sid, path));
}

bool Telvix::chatFtDecline(const QString& sid)
{
    TELVIX_QUEUED(d->chatFtDecline(sid));
}

bool Telvix::getChatHistory(const QDateTime& since)
{
    TELVIX_QUEUED(d->getChatHistory(since));
}

QString Telvix::chatIdFromExten(const QString& exten)
{
    TELVIX_BLOCKING(QString, d->chatIdFromExten(exten), QString());
}

QString Telvix::extenFromchatId(const QString& chatId)
{
    TELVIX_BLOCKING(QString, d->extenFromchatId(chatId), QString());
}

bool Telvix::setChatKeepAliveSendIntervalSec(int seconds)
{
    TELVIX_BLOCKING(bool, d->setChatKeepAliveSendIntervalSec(seconds), false);
}

int Telvix::getChatKeepAliveSendIntervalSec()
{
    TELVIX_BLOCKING(int, d->chatKeepAliveInterval, 0);
}

// ---- creation and connection -----------------------------------------------

bool TelvixPrivate::enableChatSupport(bool enable)
{
    Q_Q(Telvix);
    if (!q->hasChatSupportBuilt()) {
        TLOG(100) << "Chat support is not built!";
        return false;
    }
    if (chat && !enable) {
        dropChat();
        return true;
    }
    if (chat || !enable)
        return true;

    // Its log "xmppEngine.log" goes beside the library's own.
    chat = XmppClient::getNewInstance(dataDir);
    chatConnected = false;
    chatConnecting = false;
    chatDisconnectionReason = QStringLiteral("NoDisconnectionYet");
    if (chatKeepAliveInterval > 0)
        chat->setKeepAliveSendIntervalSec(chatKeepAliveInterval);

    // The client's signals cross threads: the lambdas run on this one.
    QObject::connect(chat, &XmppClient::sigConnected, q, [this]() { onChatConnected(); });
    QObject::connect(chat, &XmppClient::sigDisconnected, q,
                     [this](const QString& reason) { onChatDisconnected(reason); });
    QObject::connect(chat, &XmppClient::sigClientPresenceUpdate, q,
                     [this](TELVIX::ChatPresence presence, const QString& status) {
                         onChatClientPresenceChanged(presence, status);
                     });
    QObject::connect(chat, &XmppClient::sigContactPresenceChanged, q,
                     [this](const QString& chatId, TELVIX::ChatPresence presence, const QString& status) {
                         onChatContactPresenceChanged(chatId, presence, status);
                     });
    QObject::connect(chat, &XmppClient::sigContactPresenceMapUpdate, q,
                     [this](const PresenceMap& presences) { onChatContactPresenceMapUpdate(presences); });
    QObject::connect(chat, &XmppClient::sigMessageReceived, q,
                     [this](const ChatMessage& message) { onChatMessage(message); });
    // Losing the CTI session closes the chat link too.
    QObject::connect(q, &Telvix::disconnectedFromServer, chat, &XmppClient::disconnectFromServer);
    QObject::connect(chat, &XmppClient::sigIsComposing, q,
                     [this](const QString& chatId, const QString& threadId, bool composing) {
                         onChatContactComposing(chatId, threadId, composing);
                     });
    QObject::connect(chat, &XmppClient::sigMessageOffline, q, [this](const QString& chatId) {
        relayWithExten(chatId, &Telvix::sigChatMessageOffline);
    });
    QObject::connect(chat, &XmppClient::sigMessageDelivered, q, [this](const QString& chatId) {
        relayWithExten(chatId, &Telvix::sigChatMessageDelivered);
    });
    QObject::connect(chat, &XmppClient::sigMessageDisplayed, q, [this](const QString& chatId) {
        relayWithExten(chatId, &Telvix::sigChatMessageDisplayed);
    });
    QObject::connect(chat, &XmppClient::sigFTRequest, q,
                     [this](const QString& sid, const QString& chatId, const QString& name,
                            const QString& mime) { onChatFtRequest(sid, chatId, name, mime); });
    // Session ids pass on untranslated.
    QObject::connect(chat, &XmppClient::sigFTStart, q, &Telvix::sigChatFtStart);
    QObject::connect(chat, &XmppClient::sigFTSent, q, &Telvix::sigChatFtSent);
    QObject::connect(chat, &XmppClient::sigFTComplete, q, &Telvix::sigChatFtComplete);
    QObject::connect(chat, &XmppClient::sigVCardComplete, q, &Telvix::sigChatVcardComplete);
    QObject::connect(chat, &XmppClient::sigFTError, q, &Telvix::sigChatFtError);
    QObject::connect(chat, &XmppClient::sigFTProgress, q, &Telvix::sigChatFtProgress);
    QObject::connect(chat, &XmppClient::sigHistoryComplete, q,
                     [this](const QList<ChatMessage>& messages) { onChatHistory(messages); });
    QObject::connect(chat, &XmppClient::sigHistoryEnabled, q, &Telvix::sigChatHistoryEnabled);
    return true;
}

void TelvixPrivate::connectChat()
{
    if (!chat)
        return;
    chatConnecting = true;
    chat->connectToServer(chatConfig.chatId, password, serverAddress,
                          chatConfig.chatPort ? int(chatConfig.chatPort) : DefaultChatPort, QString());
}

void TelvixPrivate::startChatFromLogin(const LoginRespMsg& resp)
{
    ChatConfiguration config;
    config.chatId = resp.chatId;
    config.chatPort = resp.chatPort;
    onChatConfigReceived(config);
}

void TelvixPrivate::onChatConfigReceived(const ChatConfiguration& config)
{
    TLOG(1000) << "Received a new ChatConfiguration";
    if (config == chatConfig) {
        TLOG(1000) << "Received ChatConfiguration is equal to current one: nothing to do";
        return;
    }
    if (config.chatId.isEmpty()) {
        // The old account stays stored: the same one again is then ignored.
        TLOG(100) << "got an empty chatID, cannot enable chat!";
        enableChatSupport(false);
        return;
    }
    TLOG(1000) << "received chat info. chatID / chatPort:" << config.chatId << " / " << config.chatPort;
    if (!enableChatSupport(true)) {
        TLOG(100) << "Failed to enable chat!";
        return;
    }
    features |= 0x0002;
    chatConfig = config;
    qDebug() << "Last chat disconnection reason was " << chatDisconnectionReason;
    // A user's choice to be offline survives a new account.
    if (chatDisconnectionReason == TELVIX::ChatDisconnectionUserRequest && !chatConnected && !chatConnecting)
        return;
    if (chatConnected || chatConnecting)
        chat->disconnectFromServer();
    connectChat();
}

void TelvixPrivate::startChatAfterExtenList()
{
    // The chat client connects only once it can translate what it receives.
    if (chat && !chatConnected)
        connectChat();
}

void TelvixPrivate::refreshChatPresence()
{
    // Presence is laid over the fresh status list.
    if (chat && chatConnected)
        chat->requestContactsPresence();
}

void TelvixPrivate::closeChat()
{
    if (!chat)
        return;
    qDebug() << Q_FUNC_INFO << "Close XmppClient";
    dropChat();
}

void TelvixPrivate::dropChat()
{
    Q_Q(Telvix);
    QObject::disconnect(chat, nullptr, q, nullptr);
    QObject::disconnect(q, nullptr, chat, nullptr);
    chat->disconnectFromServer();
    chat->deleteLater();
    chat = nullptr;
    chatConnected = false;
    chatConnecting = false;
}

bool TelvixPrivate::isChatConnected() const
{
    return chat && chatConnected;
}

bool TelvixPrivate::setChatKeepAliveSendIntervalSec(int seconds)
{
    // Kept before any check, so a later chat client gets it as well.
    chatKeepAliveInterval = seconds;
    if (!chat)
        return true;
    return chat->setKeepAliveSendIntervalSec(seconds);
}

// ---- chat client events ----------------------------------------------------

void TelvixPrivate::onChatConnected()
{
    Q_Q(Telvix);
    chatConnected = true;
    chatConnecting = false;
    Q_EMIT q->sigChatConnected();
    TLOG(1000) << "XMPP server is now connected";
    if (chat)
        chat->updateClientPresence(TELVIX::ChatPresenceAvailable, QString());
}

void TelvixPrivate::onChatDisconnected(const QString& reason)
{
    Q_Q(Telvix);
    chatConnected = false;
    chatConnecting = false;
    chatDisconnectionReason = reason;
    Q_EMIT q->sigChatDisconnected(reason);
    TLOG(1000) << "XMPP server disconnected:" << reason;

    // Without the link nobody is known to be online; extensions that cannot
    // chat keep their mark.
    for (BuddyStatus& status : extenStatus) {
        if (status.presence == TELVIX::ChatPresenceInvalid)
            continue;
        status.presence = TELVIX::ChatPresenceOffline;
        status.presenceText.clear();
    }
    Q_EMIT q->sigExtenStatusMapChanged(extenStatus);

    if (reason == TELVIX::ChatDisconnectionServerRefused) {
        TLOG(100) << "Chat Server refused our connection, resetting client and try again...";
        connectChat();
    } else if (reason == TELVIX::ChatDisconnectionKeepAliveReplyTimeout) {
        TLOG(100) << "Chat Server did not reply to keep-alive message, resetting client and try again...";
        connectChat();
    } else if (reason != TELVIX::ChatDisconnectionUserRequest) {
        TLOG(1000) << "Disconnection reason (not user request) was " << reason
                   << " requesting to reconnect in 3secs...";
        if (chat) {
            chatConnecting = true;
            chat->reconnect(ChatReconnectDelayMs);
        }
    }
}

void TelvixPrivate::onChatMessage(const ChatMessage& message)
{
    Q_Q(Telvix);
    const QString peer = chatIdToExten.value(message.chatId);
    if (peer.isEmpty()) {
        TLOG(100) << "Failed to get exten from chatID" << message.chatId;
        return;
    }
    if (message.body.isEmpty()) {
        TLOG(1000) << "Received an empty chat message. Ignoring it";
        return;
    }
    TLOG(100000) << "Received a chat message from" << peer;
    ChatMessage translated = message;
    translated.exten = peer;
    Q_EMIT q->sigChatMessage(translated);
}

void TelvixPrivate::onChatContactComposing(const QString& chatId, const QString& threadId, bool composing)
{
    Q_Q(Telvix);
    const QString peer = chatIdToExten.value(chatId);
    if (peer.isEmpty()) {
        TLOG(100) << "Failed to get exten from chatID" << chatId;
        return;
    }
    Q_EMIT q->sigChatContactComposing(peer, threadId, composing);
}

void TelvixPrivate::onChatFtRequest(const QString& sid, const QString& chatId, const QString& fileName,
                                    const QString& mimeType)
{
    Q_Q(Telvix);
    const QString peer = extenFromchatId(chatId);
    if (!peer.isEmpty())
        Q_EMIT q->sigChatFtRequest(sid, peer, fileName, mimeType);
}

void TelvixPrivate::onChatHistory(const QList<ChatMessage>& messages)
{
    Q_Q(Telvix);
    TLOG(1000) << "Chat history received with " << messages.size() << " messages";
    // A message with a stranger stays, without an extension.
    QList<ChatMessage> translated = messages;
    for (ChatMessage& message : translated)
        message.exten = extenFromchatId(message.chatId);
    Q_EMIT q->sigChatHistory(translated);
}

void TelvixPrivate::relayWithExten(const QString& chatId, void (Telvix::*signal)(QString))
{
    const QString peer = extenFromchatId(chatId);
    if (!peer.isEmpty())
        Q_EMIT(q_ptr->*signal)(peer);
}

// ---- presence into the extension status ------------------------------------

void TelvixPrivate::updateExtenStatusPresence(const QString& who, TELVIX::ChatPresence presence,
                                              const QString& status)
{
    Q_Q(Telvix);
    if (who.isEmpty())
        return;
    BuddyStatus& entry = extenStatus[who];
    if (entry.exten.isEmpty())
        entry.exten = who;
    entry.presence = presence;
    entry.presenceText = status;
    Q_EMIT q->sigExtenStatusChanged(entry);
}

void TelvixPrivate::onChatClientPresenceChanged(TELVIX::ChatPresence presence, const QString& status)
{
    updateExtenStatusPresence(exten, presence, status);
}

void TelvixPrivate::onChatContactPresenceChanged(const QString& chatId, TELVIX::ChatPresence presence,
                                                 const QString& status)
{
    TLOG(1000) << "Contact presence changed to" << int(presence);
    const QString who = extenFromchatId(chatId);
    // The user's own presence comes only from the client's own stanza.
    if (who.isEmpty() || who == exten)
        return;
    updateExtenStatusPresence(who, presence, status);
}

void TelvixPrivate::onChatContactPresenceMapUpdate(const PresenceMap& presences)
{
    Q_Q(Telvix);
    TLOG(1000) << "Contact presence map updat";
    for (auto it = presences.cbegin(); it != presences.cend(); ++it) {
        const QString who = chatIdToExten.value(it.key());
        if (who.isEmpty())
            continue;
        BuddyStatus& entry = extenStatus[who];
        if (entry.exten.isEmpty())
            entry.exten = who;
        entry.presence = it.value().first;
        entry.presenceText = it.value().second;
    }
    Q_EMIT q->sigExtenStatusMapChanged(extenStatus);
}

// ---- sending -----------------------------------------------------------------

bool TelvixPrivate::setClientPresence(TELVIX::ChatPresence presence, const QString& status)
{
    if (chat)
        chat->updateClientPresence(presence, status);
    return true;
}

bool TelvixPrivate::sendChatMessage(const QString& to, const QString& body)
{
    const QString chatId = chatIdFromExten(to);
    if (chatId.isEmpty())
        return false;
    if (chat)
        chat->sendMessage(chatId, body);
    return true;
}

bool TelvixPrivate::sendToExten(const QString& to, void (XmppClient::*operation)(const QString&))
{
    const QString chatId = chatIdFromExten(to);
    if (chatId.isEmpty())
        return false;
    if (chat)
        (chat->*operation)(chatId);
    return true;
}

bool TelvixPrivate::sendChatMessageDisplayed(const QString& to)
{
    const QString chatId = chatIdFromExten(to);
    if (!chatId.isEmpty() && chat)
        chat->sendMessageDisplayed(chatId);
    return true;
}

QString TelvixPrivate::sendChatFile(const QString& to, const QString& path)
{
    const QString chatId = chatIdFromExten(to);
    if (chatId.isEmpty() || !chat)
        return QString();
    // By the file name alone: the file is not read for this.
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchExtension);
    return chat->sendFile(chatId, path, type.isValid() ? type.name() : QStringLiteral("text/plain"));
}

QString TelvixPrivate::sendChatVCard(const QString& to, const QByteArray& data, const QString& fileName)
{
    const QString chatId = chatIdFromExten(to);
    if (chatId.isEmpty() || !chat)
        return QString();
    return chat->sendVCard(chatId, data, fileName);
}

bool TelvixPrivate::chatFtAccept(const QString& sid, const QString& path)
{
    if (chat)
        chat->acceptFT(sid, path);
    return true;
}

bool TelvixPrivate::chatFtDecline(const QString& sid)
{
    if (chat)
        chat->declineFT(sid);
    return true;
}

bool TelvixPrivate::getChatHistory(const QDateTime& since)
{
    TLOG(1000) << "Requesting chat history from"
               << (since.isValid() ? since.toString(Qt::ISODateWithMs) : QStringLiteral("the beginning"));
    if (chat)
        chat->getHistory(since);
    return true;
}

namespace {

// Every translation between extensions and chat ids that fails says so.
QString lookUp(const QMap<QString, QString>& map, const QString& key, Logger* logger, const char* function,
               const char* failure)
{
    const auto it = map.constFind(key);
    if (it == map.cend()) {
        TelvixLogLine(logger, 100, function) << failure << key;
        return QString();
    }
    return *it;
}

} // namespace

QString TelvixPrivate::chatIdFromExten(const QString& who) const
{
    return lookUp(extenToChatId, who, logger, Q_FUNC_INFO, "Failed to get chatID for exten");
}

QString TelvixPrivate::extenFromchatId(const QString& chatId) const
{
    return lookUp(chatIdToExten, chatId, logger, Q_FUNC_INFO, "Failed to get exten from chatID");
}
