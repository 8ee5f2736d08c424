#pragma once

#include "chatmessage.h"
#include "telvix_const.h"
#include "telvix_export.h"

#include <QMap>
#include <QMetaType>
#include <QMultiMap>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>

#include <gloox/client.h>
#include <gloox/connectionlistener.h>
#include <gloox/disco.h>
#include <gloox/discohandler.h>
#include <gloox/eventhandler.h>
#include <gloox/loghandler.h>
#include <gloox/messagesessionhandler.h>
#include <gloox/presence.h>
#include <gloox/presencehandler.h>
#include <gloox/subscription.h>

class Logger;
class QTimer;
class XmppChatSession;

/// Presence snapshot of the contacts: bare JID to presence and status text.
typedef QMap<QString, QPair<TELVIX::ChatPresence, QString>> PresenceMap;

/// What one resource of a contact last announced.
class TELVIX_EXPORT XmppPresence
{
    Q_GADGET
    Q_PROPERTY(QString jid MEMBER jid)
    Q_PROPERTY(QString resource MEMBER resource)
    Q_PROPERTY(TELVIX::ChatPresence presence MEMBER presence)
    Q_PROPERTY(QString status MEMBER status)

public:
    /// Bare JID.
    QString jid;
    QString resource;
    TELVIX::ChatPresence presence = TELVIX::ChatPresenceInvalid;
    QString status;
};

Q_DECLARE_METATYPE(XmppPresence)
Q_DECLARE_METATYPE(PresenceMap)

namespace XMPPENGINE {
/// Both enumerations share their numbers 0 to 5; probe, error and invalid
/// presences have no counterpart and give `ChatPresenceInvalid`.
TELVIX_EXPORT TELVIX::ChatPresence presenceTypeFromGlooxToTelvix(gloox::Presence::PresenceType type);
/// Anything outside 0 to 5 gives `gloox::Presence::Invalid`.
TELVIX_EXPORT gloox::Presence::PresenceType presenceTypeFromTelvixToGloox(TELVIX::ChatPresence presence);
} // namespace XMPPENGINE

/// The connection to the chat server. It lives on its own thread, where it
/// polls gloox from a timer; every call that touches the connection moves
/// itself onto that thread, and everything learnt goes out as signals.
/// It reports why a connection ended but never reconnects on its own.
class TELVIX_EXPORT XmppClient : public QObject,
                                 public gloox::ConnectionListener,
                                 public gloox::PresenceHandler,
                                 public gloox::MessageSessionHandler,
                                 public gloox::LogHandler,
                                 public gloox::DiscoHandler,
                                 public gloox::EventHandler
{
    Q_OBJECT

public:
    /// A client on a new thread "XmppClientThread", which ends when the
    /// client is destroyed. Delete the client with deleteLater.
    static XmppClient* getNewInstance(QString logDir);

    explicit XmppClient(const QString& logDir, QObject* parent = nullptr);
    ~XmppClient() override;

    /// Builds a new gloox client and starts connecting; ignored while
    /// connected.
    void connectToServer(const QString& chatId, const QString& password, const QString& server, int port,
                         const QString& resource);
    /// Connects the existing gloox client again after `delayMs`.
    void reconnect(int delayMs);

    Q_INVOKABLE int getKeepAliveSendIntervalSec();
    /// Refuses intervals under 60 seconds.
    Q_INVOKABLE bool setKeepAliveSendIntervalSec(int seconds);

    void requestClientPresence();
    void updateClientPresence(TELVIX::ChatPresence presence, const QString& status);
    void requestContacts();
    void requestContactsPresence();
    /// Reads the roster on the caller's thread.
    QStringList getContactResources(QString chatId);

    /// Sends a chat message; its stanza id comes back as a "feedback" message.
    void sendMessage(const QString& chatId, const QString& body);
    // Chat states are only sent to a contact that is online.
    void sendOpenConversation(const QString& chatId);
    void sendStartComposing(const QString& chatId);
    void sendStopComposing(const QString& chatId);
    void sendCloseConversation(const QString& chatId);
    void sendMessageDisplayed(const QString& chatId);

    /// Accepts a subscription request; not registered with gloox.
    void handleSubscription(const gloox::Subscription& subscription);

    // gloox callbacks, all run inside recvData on the client's thread.
    void handleDiscoInfo(const gloox::JID& from, const gloox::Disco::Info& info, int context) override;
    void handleDiscoItems(const gloox::JID& from, const gloox::Disco::Items& items, int context) override;
    void handleDiscoError(const gloox::JID& from, const gloox::Error* error, int context) override;
    void handleEvent(const gloox::Event& event) override;
    void onConnect() override;
    bool onTLSConnect(const gloox::CertInfo& info) override;
    void onDisconnect(gloox::ConnectionError error) override;
    void handlePresence(const gloox::Presence& presence) override;
    void handleMessageSession(gloox::MessageSession* session) override;
    void handleLog(gloox::LogLevel level, gloox::LogArea area, const std::string& message) override;

public Q_SLOTS:
    void startConnection();
    void disconnectFromServer();
    void sendKeepAliveMessage();

Q_SIGNALS:
    void sigConnected();
    void sigDisconnected(const QString& reason);
    void sigContactListUpdated(const QMap<QString, QString>& contacts);
    void sigContactPresenceMapUpdate(const PresenceMap& presences);
    void sigContactPresenceChanged(const QString& bareJid, TELVIX::ChatPresence presence,
                                   const QString& status);
    void sigClientPresenceUpdate(TELVIX::ChatPresence presence, const QString& status);
    void sigHistoryEnabled(bool enabled);
    void sigIsComposing(const QString& chatId, const QString& threadId, bool composing);
    void sigMessageReceived(const ChatMessage& message);
    void sigMessageDelivered(const QString& chatId);
    void sigMessageOffline(const QString& chatId);
    void sigMessageDisplayed(const QString& chatId);

private Q_SLOTS:
    void recvData();
    void onKeepAliveReplyTimeout();

private:
    void closeConnection();
    void cleanupOnClose();
    XmppChatSession* createChatSession(const gloox::JID& jid, gloox::MessageSession* session);
    XmppChatSession* openChatSession(const QString& chatId);
    /// openChatSession() with the failure logged; null when it failed.
    XmppChatSession* sessionForSending(const QString& chatId);
    void closeMessageSession(const QString& chatId);
    void closeAllSessions();
    void sendChatState(const QString& chatId, void (XmppChatSession::*notify)(), bool onlyIfAvailable);
    const XmppPresence* getBestPresence(const QString& bareJid) const;
    bool isContactAvailable(const QString& bareJid) const;

    QTimer* m_recvTimer = nullptr;
    QTimer* m_keepAliveTimer = nullptr;
    QTimer* m_keepAliveReplyTimer = nullptr;
    gloox::Client* m_client = nullptr;
    bool m_connecting = false;
    bool m_connected = false;
    bool m_keepAliveExpired = false;
    QString m_fullJid;
    QString m_disconnectionReason;
    /// Open sessions by bare JID.
    QMap<QString, XmppChatSession*> m_sessions;
    /// Several entries per bare JID, one per resource.
    QMultiMap<QString, XmppPresence> m_presences;
    Logger* m_log = nullptr;
    QString m_logDir;
};
