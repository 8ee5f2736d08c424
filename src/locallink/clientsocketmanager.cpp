#include "clientsocketmanager.h"

#include "localmessages_p.h"
#include "sarnetxml.h"
#include "telvixlog_p.h"
#include "utils.h"

#include <QDebug>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

using namespace SARNET_XML;

namespace {
// What one read of the application may bring at most, and how much of an
// unknown text the log keeps: a runaway application must not fill memory or
// the disk through us.
constexpr qint64 kClientReadBuffer = 64 * 1024;
constexpr int kLoggedTextMax = 1024;

QString loggedExcerpt(const QString& text)
{
    if (text.size() <= kLoggedTextMax)
        return text;
    return text.left(kLoggedTextMax) + QStringLiteral("... (%1 characters in all)").arg(text.size());
}
} // namespace

ClientSocketManager::ClientSocketManager(const QString& logDir, QObject* parent)
    : QObject(parent)
    , apiVersion(QStringLiteral("4.1"))
{
    logger = makeFileLogger(QStringLiteral("Default Logbus"), QStringLiteral("Telvix"),
                            logDir + QStringLiteral("/clientSocketManager.log"), WriterConfig(10, 2),
                            QStringLiteral("TELVIX"), 100000);
}

ClientSocketManager::~ClientSocketManager()
{
    closeServer();
    if (logger) {
        logger->disconnect();
        // Deleted at once: the manager usually goes while its thread winds
        // down, when a deferred deletion would never be delivered.
        delete logger;
        logger = nullptr;
    }
}

int ClientSocketManager::initServer()
{
    // A child, so that a server whose deferred deletion is still pending
    // goes with the manager; its client sockets are the server's children.
    server = new QTcpServer(this);
    connect(server, &QTcpServer::newConnection, this, &ClientSocketManager::newClientConnected);
    connect(server, &QTcpServer::acceptError, this, &ClientSocketManager::serverSocketError);
    if (!server->listen(QHostAddress::LocalHost, 0)) {
        // The object stays, so that a later port request can tell a failed
        // server from a missing one.
        server->close();
        TLOG(10) << "Error listening on socket";
        return 0;
    }
    return server->serverPort();
}

int ClientSocketManager::getServerPort()
{
    if (!server) {
        TLOG(100) << "TCP server is null";
        return 0;
    }
    if (!server->isListening()) {
        TLOG(100) << "TCP server is not listening";
        return 0;
    }
    return server->serverPort();
}

void ClientSocketManager::closeServer()
{
    TLOG(10000) << "Closing TCP server";
    qDebug() << "Closing TCP server";
    closeClient();
    if (server) {
        qDebug() << "Closing server";
        server->disconnect();
        server->close();
        server->deleteLater();
        server = nullptr;
    }
    qDebug() << "Server closed";
}

void ClientSocketManager::closeClient()
{
    if (!client)
        return;
    client->disconnect();
    client->abort();
    client->deleteLater();
    client = nullptr;
}

void ClientSocketManager::newClientConnected()
{
    TLOG(10000) << "New client connected to local socket";
    QTcpSocket* const next = server ? server->nextPendingConnection() : nullptr;
    if (!next)
        return;
    // An earlier client is neither closed nor disconnected: the last one to
    // connect is served, and any of them going away drops the current one.
    client = next;
    // The application has nothing to say but keep-alives: a bounded read
    // buffer lets the kernel hold back a flood instead of our memory.
    client->setReadBufferSize(kClientReadBuffer);
    connect(client, &QTcpSocket::disconnected, this, &ClientSocketManager::closeClient);
    connect(client, &QTcpSocket::readyRead, this, &ClientSocketManager::handleClientData,
            Qt::QueuedConnection);
}

void ClientSocketManager::handleClientData()
{
    // readyRead is queued: the client may be gone by the time it arrives.
    if (!client)
        return;
    handleClientBytes(client->readAll());
}

void ClientSocketManager::handleClientBytes(const QByteArray& data)
{
    // The lines keep the name of the slot that has always written them, which
    // is what readers of the log search for.
    static const char* const function = "void ClientSocketManager::handleClientData()";
    const QString text = Utils::utf8UpToNul(data);
    // Inbound data has no framing: each read is judged as a whole.
    if (text.contains(S_COMMAND_KEEPALIVE))
        TelvixLogLine(logger, 10000, function) << "Keep alive received from GUI socket";
    else
        TelvixLogLine(logger, 100, function) << "Unknown message received from GUI socket:" << loggedExcerpt(text);
}

void ClientSocketManager::serverSocketError(QAbstractSocket::SocketError /*error*/)
{
    TLOG(10000) << "Local server error: " << (server ? server->errorString() : QString());
}

void ClientSocketManager::sendMessage(const QString& message)
{
    const QString rootTag = QLatin1Char('<') + S_XMLTAG_ROOT + QLatin1Char('>');
    const QString text = message.contains(rootTag) ? message : LocalMessages::frame(apiVersion, message);
    if (client && client->isOpen() && client->isValid() && client->isWritable()) {
        client->write(text.toUtf8());
        client->flush();
        return;
    }
    TLOG(10) << "Error sending message. client" << QString::asprintf("%8p", static_cast<void*>(client))
             << "- open:" << (client && client->isOpen()) << "- valid:" << (client && client->isValid())
             << "- writable:" << (client && client->isWritable()) << "\nTrying to send message:" << message;
}

void ClientSocketManager::sendKeepAlive()
{
    TLOG(10000) << "Sending GUI KeepAlive through local connection";
    sendMessage(LocalMessages::keepAlive());
}

// ---- session and calls -----------------------------------------------------

void ClientSocketManager::sendLoginMessage(const LoginDetails& details)
{
    apiVersion = details.apiVersion;
    sendMessage(LocalMessages::login(details));
}

void ClientSocketManager::sendLogoutMessage(const QString& reason)
{
    sendMessage(LocalMessages::event(QStringLiteral("Logout"), {{S_XMLTAG_REASON, reason}}));
}

void ClientSocketManager::sendIncomingCallMessage(const QString& uid, const QString& from, const QString& to,
                                                  bool isC2c)
{
    sendMessage(LocalMessages::event(QStringLiteral("IncomingCall"),
                                     {{S_XMLTAG_CALL_UID, uid},
                                      {QStringLiteral("From"), from},
                                      {QStringLiteral("To"), to},
                                      {QStringLiteral("IsC2C"), LocalMessages::flag(isC2c)}}));
}

void ClientSocketManager::sendAnsweredCallMessage(const QString& uid, const QString& from, const QString& to)
{
    sendMessage(LocalMessages::event(
        QStringLiteral("AnsweredCall"),
        {{S_XMLTAG_CALL_UID, uid}, {QStringLiteral("From"), from}, {QStringLiteral("To"), to}}));
}

void ClientSocketManager::sendFinishedCallMessage(const QString& uid, const QString& from, const QString& to,
                                                  bool missed)
{
    // "Missed" alone among the flags reads "true"/"false".
    sendMessage(LocalMessages::event(
        QStringLiteral("FinishedCall"),
        {{S_XMLTAG_CALL_UID, uid},
         {QStringLiteral("From"), from},
         {QStringLiteral("To"), to},
         {QStringLiteral("Missed"), missed ? QStringLiteral("true") : QStringLiteral("false")}}));
}

void ClientSocketManager::sendOriginateCallMessage(const QString& uid, const QString& from, const QString& to)
{
    sendMessage(LocalMessages::event(
        QStringLiteral("OriginateCall"),
        {{S_XMLTAG_CALL_UID, uid}, {QStringLiteral("From"), from}, {QStringLiteral("To"), to}}));
}

void ClientSocketManager::sendMissedCallMessage(const QString& uid, const QString& from)
{
    sendMessage(LocalMessages::event(QStringLiteral("MissedCall"),
                                     {{S_XMLTAG_CALL_UID, uid}, {QStringLiteral("From"), from}}));
}

void ClientSocketManager::sendCallTransferCanceledMessage(const QString& uid, const QString& reason)
{
    sendMessage(LocalMessages::event(QStringLiteral("TransferCanceled"),
                                     {{S_XMLTAG_CALL_UID, uid}, {S_XMLTAG_REASON, reason}}));
}

void ClientSocketManager::sendCallTransferStartedMessage(const TransferStartedCallEvent& event)
{
    sendMessage(LocalMessages::event(QStringLiteral("TransferStarted"),
                                     {{S_XMLTAG_CALL_UID, event.uid},
                                      {S_XMLTAG_CALL_LOCAL_CHANNEL, event.localChannel},
                                      {S_XMLTAG_CALL_SIP_ACCOUNT, event.sipAccount},
                                      {QStringLiteral("CalledNum"), event.calledNum}}));
}

void ClientSocketManager::sendCallTransferCompletedMessage(const TransferCompletedCallEvent& event)
{
    sendMessage(LocalMessages::event(QStringLiteral("TransferCompleted"),
                                     {{S_XMLTAG_CALL_UID, event.uid},
                                      {S_XMLTAG_CALL_LOCAL_CHANNEL, event.localChannel},
                                      {S_XMLTAG_CALL_SIP_ACCOUNT, event.sipAccount}}));
}

void ClientSocketManager::sendC2cOriginate(const QString& uid, const QString& to, const QString& type)
{
    sendMessage(LocalMessages::event(
        QStringLiteral("C2cOriginate"),
        {{S_XMLTAG_CALL_UID, uid}, {QStringLiteral("To"), to}, {QStringLiteral("Type"), type}}));
}

void ClientSocketManager::sendC2cFinished(const QString& uid)
{
    sendMessage(LocalMessages::event(QStringLiteral("C2cFinished"), {{S_XMLTAG_CALL_UID, uid}}));
}

// ---- server data -----------------------------------------------------------

void ClientSocketManager::sendExtenStatusMap(const QMap<QString, BuddyStatus>& statusMap)
{
    if (statusMap.isEmpty())
        return;
    sendMessage(LocalMessages::extenStatusList(statusMap));
}

void ClientSocketManager::sendExtenStatus(const BuddyStatus& status)
{
    sendMessage(LocalMessages::extenStatus(status));
}

void ClientSocketManager::sendCdr(const Cdr& cdr)
{
    if (cdr.isEmpty())
        return;
    sendMessage(LocalMessages::callList(cdr));
}

void ClientSocketManager::sendContacts(const QList<PhoneBook>& books, QFlags<TELVIX::PhonebookTypeFlag> types)
{
    int index = 0;
    if (types.testFlag(TELVIX::PhonebookTypeExtensions) && !books.isEmpty()) {
        sendExtenList(books.first());
        index = 1;
    }
    if (types.testFlag(TELVIX::PhonebookTypePhonebooks))
        sendPhonebook(books.mid(index, 2));
}

void ClientSocketManager::sendExtenList(const PhoneBook& book)
{
    sendMessage(LocalMessages::extenList(book));
}

void ClientSocketManager::sendPhonebook(const QList<PhoneBook>& books)
{
    if (books.isEmpty())
        return;
    sendMessage(LocalMessages::phonebookList(books));
}

void ClientSocketManager::sendServiceStatus(const QList<ServiceStatus>& statusList)
{
    sendMessage(LocalMessages::serviceStatusList(statusList));
}

void ClientSocketManager::sendDialCodesUpdateEvent()
{
    sendMessage(LocalMessages::event(QStringLiteral("DialCodesUpdated")));
}

void ClientSocketManager::sendIdentities(const IdentityList& identities)
{
    sendMessage(LocalMessages::identityList(identities));
}

void ClientSocketManager::sendVoicemailList(const QList<VoicemailMessage>& messages)
{
    sendMessage(LocalMessages::voicemailList(messages));
}

void ClientSocketManager::sendVoicemailMessageDownloadCompleted(const QString& id, const QString& uuid,
                                                                const QString& file)
{
    sendMessage(LocalMessages::voicemailDownloadCompleted(id, uuid, file));
}

void ClientSocketManager::sendRebrandingPackDownloadCompleted(const QString& file)
{
    sendMessage(LocalMessages::event(QStringLiteral("RebrandingPackDownloadComplete"),
                                     {{QStringLiteral("File"), file}}));
}

void ClientSocketManager::sendMailboxStatus(const MailboxStatus& status)
{
    sendMessage(LocalMessages::mailboxStatus(status));
}

// ---- chat ------------------------------------------------------------------

void ClientSocketManager::sendChatMessage(const ChatMessage& message)
{
    sendMessage(LocalMessages::chatMessage(message));
}

void ClientSocketManager::sendChatContactComposing(const QString& exten, const QString& threadId,
                                                   bool composing)
{
    sendMessage(LocalMessages::chatEvent(QStringLiteral("ComposingStatus"),
                                         {{S_XMLTAG_EXTEN, exten},
                                          {QStringLiteral("ThreadId"), threadId},
                                          {QStringLiteral("Composing"), LocalMessages::flag(composing)}}));
}

void ClientSocketManager::sendChatMessageEvent(const QString& exten, const QString& event)
{
    sendMessage(LocalMessages::chatEvent(QStringLiteral("MessageEvent"),
                                         {{S_XMLTAG_EXTEN, exten}, {QStringLiteral("Event"), event}}));
}

void ClientSocketManager::sendChatConnected()
{
    sendMessage(LocalMessages::chatEvent(QStringLiteral("Login")));
}

void ClientSocketManager::sendChatDisconnected(const QString& reason)
{
    sendMessage(LocalMessages::chatEvent(QStringLiteral("Logout"), {{S_XMLTAG_REASON, reason}}));
}

void ClientSocketManager::sendChatHistoryEnabled(bool enabled)
{
    // Built but deliberately not sent.
    const QString message = LocalMessages::chatEvent(
        QStringLiteral("ChatServices"), {{QStringLiteral("History"), LocalMessages::flag(enabled)}});
    Q_UNUSED(message)
}

void ClientSocketManager::sendChatFtRequest(const QString& sid, const QString& from, const QString& filename,
                                            const QString& mimetype)
{
    sendMessage(LocalMessages::chatEvent(QStringLiteral("FTRequest"),
                                         {{QStringLiteral("SID"), sid},
                                          {QStringLiteral("From"), from},
                                          {QStringLiteral("Filename"), filename},
                                          {QStringLiteral("Mimetype"), mimetype}}));
}

void ClientSocketManager::sendChatFtStart(const QString& sid)
{
    sendMessage(LocalMessages::chatEvent(QStringLiteral("FTStart"), {{QStringLiteral("SID"), sid}}));
}

void ClientSocketManager::sendChatFtSent(const QString& sid)
{
    sendMessage(LocalMessages::chatEvent(QStringLiteral("FTSent"), {{QStringLiteral("SID"), sid}}));
}

void ClientSocketManager::sendChatFtComplete(const QString& sid, const QString& filepath)
{
    sendMessage(
        LocalMessages::chatEvent(QStringLiteral("FTComplete"),
                                 {{QStringLiteral("SID"), sid}, {QStringLiteral("Filepath"), filepath}}));
}

void ClientSocketManager::sendChatVCardComplete(const QString& sid, const QByteArray& data)
{
    sendMessage(LocalMessages::chatEvent(
        QStringLiteral("VCardComplete"),
        {{QStringLiteral("SID"), sid}, {QStringLiteral("Data"), Utils::utf8UpToNul(data)}}));
}

void ClientSocketManager::sendChatFtError(const QString& sid)
{
    sendMessage(LocalMessages::chatEvent(QStringLiteral("FTError"), {{QStringLiteral("SID"), sid}}));
}

void ClientSocketManager::sendChatFtProgress(const QString& sid, float progress)
{
    sendMessage(LocalMessages::chatEvent(
        QStringLiteral("FTProgress"),
        {{QStringLiteral("SID"), sid}, {QStringLiteral("Progress"), QString::number(progress, 'g', 6)}}));
}

void ClientSocketManager::sendChatHistory(const QList<ChatMessage>& messages)
{
    sendMessage(LocalMessages::chatHistory(messages));
}
