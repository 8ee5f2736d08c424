#pragma once

#include "calleventmessages.h"
#include "cdrmessages.h"
#include "chatmessage.h"
#include "directorymessages.h"
#include "loginmessages.h"
#include "phonebook.h"
#include "servicemessages.h"
#include "telvix_const.h"
#include "telvix_export.h"
#include "voicemailmessages.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QString>

class Logger;
class QTcpServer;
class QTcpSocket;

/// \brief The loopback server through which one local application receives
/// the library's events as XML messages.
///
/// The link is one-way: every send... slot turns one event into one message,
/// framed as "<SRNT><API>version</API>...</SRNT>"; the only thing the
/// application may send back is a keep-alive. Only the last client to connect
/// is served. Everything runs on the thread the object lives on.
class TELVIX_EXPORT ClientSocketManager : public QObject
{
    Q_OBJECT
public:
    /// Opens the log "clientSocketManager.log" in `logDir`; opens no socket.
    explicit ClientSocketManager(const QString& logDir, QObject* parent = nullptr);
    ~ClientSocketManager() override;

    /// Listens on 127.0.0.1 on a port chosen by the system; returns the port,
    /// 0 on failure.
    int initServer();
    /// The listening port; 0 when there is no server or it is not listening.
    int getServerPort();
    /// Drops the client and the server.
    void closeServer();
    /// Frames `message` (unless it already holds the root tag) and writes it
    /// to the client; without a usable client the message is logged and lost.
    void sendMessage(const QString& message);
    /// Judges one read of the application's bytes: a keep-alive or an
    /// unknown message, either only logged.
    void handleClientBytes(const QByteArray& data);

public Q_SLOTS:
    /// Drops the current client, if any.
    void closeClient();
    void sendKeepAlive();

    void newClientConnected();
    void handleClientData();
    void serverSocketError(QAbstractSocket::SocketError error);

    // Session and calls
    /// Also makes the server's API version the frame's from now on.
    void sendLoginMessage(const LoginDetails& details);
    void sendLogoutMessage(const QString& reason);
    void sendIncomingCallMessage(const QString& uid, const QString& from, const QString& to, bool isC2c);
    void sendAnsweredCallMessage(const QString& uid, const QString& from, const QString& to);
    void sendFinishedCallMessage(const QString& uid, const QString& from, const QString& to, bool missed);
    void sendOriginateCallMessage(const QString& uid, const QString& from, const QString& to);
    void sendMissedCallMessage(const QString& uid, const QString& from);
    void sendCallTransferCanceledMessage(const QString& uid, const QString& reason);
    void sendCallTransferStartedMessage(const TransferStartedCallEvent& event);
    void sendCallTransferCompletedMessage(const TransferCompletedCallEvent& event);
    void sendC2cOriginate(const QString& uid, const QString& to, const QString& type);
    void sendC2cFinished(const QString& uid);

    // Server data
    /// Sends nothing for an empty map.
    void sendExtenStatusMap(const QMap<QString, BuddyStatus>& statusMap);
    void sendExtenStatus(const BuddyStatus& status);
    /// Sends nothing for an empty history.
    void sendCdr(const Cdr& cdr);
    /// The position of a book tells what it is: with PhonebookTypeExtensions
    /// the first book is the extension book, and with PhonebookTypePhonebooks
    /// the (at most two) books after it are the phone books.
    void sendContacts(const QList<PhoneBook>& books, QFlags<TELVIX::PhonebookTypeFlag> types);
    void sendExtenList(const PhoneBook& book);
    /// Sends nothing for an empty list.
    void sendPhonebook(const QList<PhoneBook>& books);
    void sendServiceStatus(const QList<ServiceStatus>& statusList);
    /// Announces new dial codes without sending them.
    void sendDialCodesUpdateEvent();
    void sendIdentities(const IdentityList& identities);
    void sendVoicemailList(const QList<VoicemailMessage>& messages);
    void sendVoicemailMessageDownloadCompleted(const QString& id, const QString& uuid, const QString& file);
    void sendRebrandingPackDownloadCompleted(const QString& file);
    void sendMailboxStatus(const MailboxStatus& status);

    // Chat
    void sendChatMessage(const ChatMessage& message);
    void sendChatContactComposing(const QString& exten, const QString& threadId, bool composing);
    /// `event` is "OFFLINE", "DELIVERED" or "DISPLAYED".
    void sendChatMessageEvent(const QString& exten, const QString& event);
    void sendChatConnected();
    void sendChatDisconnected(const QString& reason);
    /// Writes nothing to the client: applications learn of the history
    /// service otherwise.
    void sendChatHistoryEnabled(bool enabled);
    void sendChatFtRequest(const QString& sid, const QString& from, const QString& filename,
                           const QString& mimetype);
    void sendChatFtStart(const QString& sid);
    void sendChatFtSent(const QString& sid);
    void sendChatFtComplete(const QString& sid, const QString& filepath);
    /// The data is sent as UTF-8 text up to its first NUL byte.
    void sendChatVCardComplete(const QString& sid, const QByteArray& data);
    void sendChatFtError(const QString& sid);
    void sendChatFtProgress(const QString& sid, float progress);
    void sendChatHistory(const QList<ChatMessage>& messages);

private:
    QTcpServer* server = nullptr;
    QTcpSocket* client = nullptr;
    QMutex mutex;
    Logger* logger = nullptr;
    QString apiVersion;
};
