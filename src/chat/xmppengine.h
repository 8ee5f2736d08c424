#pragma once

#include "chatmessage.h"
#include "telvix_const.h"
#include "telvix_export.h"
#include "xmppfthandler.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QMultiMap>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>

#include <functional>

#include <gloox/client.h>
#include <gloox/connectionlistener.h>
#include <gloox/disco.h>
#include <gloox/discohandler.h>
#include <gloox/eventhandler.h>
#include <gloox/loghandler.h>
#include <gloox/messagesessionhandler.h>
#include <gloox/presence.h>
#include <gloox/presencehandler.h>
#include <gloox/siprofilefthandler.h>
#include <gloox/subscription.h>

class Logger;
class QTimer;
class XmppChatSession;
class XmppHistory;

namespace gloox {
class SIManager;
class SIProfileFT;
} // namespace gloox

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
                                 public gloox::SIProfileFTHandler,
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

    /// Blocking. Offers the file at `path` to the first resource of
    /// `chatId`; the transfer's session id, or empty when it cannot be offered
    /// (no such file, contact offline).
    QString sendFile(const QString& chatId, const QString& path, const QString& mime);
    /// Blocking. Offers `data` as the vCard "`fileName`.vcf".
    QString sendVCard(const QString& chatId, const QByteArray& data, const QString& fileName);
    /// Accepts an offer; a file is written into `directory` under a free name.
    void acceptFT(const QString& sid, const QString& directory);
    void declineFT(const QString& sid);
    /// Asks the archive for the messages after `since` (all when invalid);
    /// the answer comes as sigHistoryComplete.
    void getHistory(QDateTime since);

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
    void handleFTRequest(const gloox::JID& from, const gloox::JID& to, const std::string& sid,
                         const std::string& name, long size, const std::string& hash, const std::string& date,
                         const std::string& mimetype, const std::string& desc, int stypes) override;
    void handleFTRequestError(const gloox::IQ& iq, const std::string& sid) override;
    void handleFTBytestream(gloox::Bytestream* bs) override;
    const std::string handleOOBRequestResult(const gloox::JID& from, const gloox::JID& to,
                                             const std::string& sid) override;

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
    void sigFTRequest(const QString& sid, const QString& chatId, const QString& fileName,
                      const QString& mimeType);
    void sigFTStart(const QString& sid);
    void sigFTSent(const QString& sid);
    void sigFTComplete(const QString& sid, const QString& path);
    void sigVCardComplete(const QString& sid, const QByteArray& data);
    void sigFTError(const QString& sid);
    void sigFTProgress(const QString& sid, float progress);
    void sigHistoryComplete(const QList<ChatMessage>& messages);

private Q_SLOTS:
    void recvData();
    void onKeepAliveReplyTimeout();
    void onFTSent(const QString& sid);
    void onFTComplete(const QString& sid, const XmppFile& file);
    void onVCardComplete(const QString& sid, const QByteArray& data);
    void onFTError(const QString& sid);
    void onFTProgress(const QString& sid, float progress);

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
    /// Runs `body` on the client's thread and waits for its result.
    QString blockingText(const std::function<QString()>& body);
    /// Offers `file` to the first resource of `chatId`; the session id or empty.
    QString offerFile(const QString& chatId, const XmppFile& file, const QString& mime);
    /// Takes the offer `sid` out of the pending ones; an unknown one is
    /// logged and ends in sigFTError.
    bool takePendingFile(const QString& sid, XmppFile* file);
    XmppFTHandler* createFTHandler(const XmppFile& file, const QString& sid);
    void disposeFTHandler(const QString& sid);
    void disposeAllFTHandlers();
    /// Deletes the streams of ended transfers; never from inside gloox.
    void releaseClosedStreams();
    /// Fails the transfers that `fullJid` was sending us.
    void abortTransfersFrom(const QString& fullJid);
    /// The file-transfer profile and its stream-initiation manager go.
    void deleteFTProfile();

    QTimer* m_recvTimer = nullptr;
    QTimer* m_keepAliveTimer = nullptr;
    QTimer* m_keepAliveReplyTimer = nullptr;
    gloox::Client* m_client = nullptr;
    gloox::SIProfileFT* m_ftProfile = nullptr;
    /// Owned here and lent to m_ftProfile, which cannot offer an empty file itself.
    gloox::SIManager* m_siManager = nullptr;
    bool m_connecting = false;
    bool m_connected = false;
    bool m_keepAliveExpired = false;
    QString m_fullJid;
    QString m_disconnectionReason;
    /// Open sessions by bare JID.
    QMap<QString, XmppChatSession*> m_sessions;
    /// Several entries per bare JID, one per resource.
    QMultiMap<QString, XmppPresence> m_presences;
    /// Offers received and not answered yet, by session id.
    QMap<QString, XmppFile> m_pendingFiles;
    /// Running transfers by session id.
    QMap<QString, XmppFTHandler*> m_ftHandlers;
    /// Streams of ended transfers. gloox calls a stream's handler from
    /// inside its own bookkeeping, where deleting the stream would break it.
    QList<gloox::Bytestream*> m_closedStreams;
    XmppHistory* m_history = nullptr;
    Logger* m_log = nullptr;
    QString m_logDir;
};
