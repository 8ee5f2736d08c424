#include "xmppengine.h"

#include "telvixlog_p.h"
#include "xmppchatsession.h"
#include "xmpphistory.h"

#include <QDeadlineTimer>
#include <QDebug>
#include <QThread>
#include <QTimer>

#include <gloox/carbons.h>
#include <gloox/chatstate.h>
#include <gloox/delayeddelivery.h>
#include <gloox/error.h>
#include <gloox/event.h>
#include <gloox/forward.h>
#include <gloox/iq.h>
#include <gloox/messageevent.h>
#include <gloox/messagesession.h>
#include <gloox/rostermanager.h>
#include <gloox/simanager.h>
#include <gloox/siprofileft.h>

#include <functional>

#define XLOG(priority) TelvixLogLine(m_log, priority, Q_FUNC_INFO)

namespace {

void registerXmppEngineTypes()
{
    qRegisterMetaType<XmppPresence>("XmppPresence");
    qRegisterMetaType<PresenceMap>("PresenceMap");
    qRegisterMetaType<TELVIX::ChatPresence>("TELVIX::ChatPresence");
    qRegisterMetaType<QList<ChatMessage>>("QList<ChatMessage>");
}
Q_CONSTRUCTOR_FUNCTION(registerXmppEngineTypes)

QString fromStd(const std::string& text)
{
    return QString::fromStdString(text);
}

// Time a poll may spend on data that is already waiting. One read takes at
// most 8 KB; a file transfer needs many per tick, a quiet link none.
constexpr int RecvBudgetMs = 40;

} // namespace

namespace XMPPENGINE {

TELVIX::ChatPresence presenceTypeFromGlooxToTelvix(gloox::Presence::PresenceType type)
{
    const int number = int(type);
    if (number < 0 || number > 5)
        return TELVIX::ChatPresenceInvalid;
    return TELVIX::ChatPresence(number);
}

gloox::Presence::PresenceType presenceTypeFromTelvixToGloox(TELVIX::ChatPresence presence)
{
    const int number = int(presence);
    if (number < 0 || number > 5)
        return gloox::Presence::Invalid;
    return gloox::Presence::PresenceType(number);
}

} // namespace XMPPENGINE

XmppClient* XmppClient::getNewInstance(QString logDir)
{
    auto* thread = new QThread();
    thread->setObjectName(QStringLiteral("XmppClientThread"));
    auto* client = new XmppClient(logDir);
    client->moveToThread(thread);
    const bool quitConnected = bool(connect(client, &QObject::destroyed, thread, &QThread::quit));
    const bool deleteConnected = bool(connect(thread, &QThread::finished, thread, &QObject::deleteLater));
    if (!quitConnected || !deleteConnected)
        qCritical() << "signal-slot connection failed!";
    thread->start(QThread::InheritPriority);
    return client;
}

XmppClient::XmppClient(const QString& logDir, QObject* parent)
    : QObject(parent)
    , m_disconnectionReason(QStringLiteral("NoDisconnectionYet"))
    , m_logDir(logDir)
{
    m_recvTimer = new QTimer(this);
    m_recvTimer->setInterval(100);
    connect(m_recvTimer, SIGNAL(timeout()), this, SLOT(recvData()));

    m_keepAliveTimer = new QTimer(this);
    m_keepAliveTimer->setInterval(120000);
    connect(m_keepAliveTimer, &QTimer::timeout, this, &XmppClient::sendKeepAliveMessage);

    m_keepAliveReplyTimer = new QTimer(this);
    m_keepAliveReplyTimer->setSingleShot(true);
    m_keepAliveReplyTimer->setInterval(15000);
    connect(m_keepAliveReplyTimer, &QTimer::timeout, this, &XmppClient::onKeepAliveReplyTimeout);

    m_log = makeFileLogger(QStringLiteral("Default Logbus"), QStringLiteral("XmppClient"),
                           m_logDir + QStringLiteral("/xmppEngine.log"), WriterConfig(10, 2),
                           QStringLiteral("XmppClient"), 100000);
    XLOG(1000) << "XmppClient ciao";
}

XmppClient::~XmppClient()
{
    qDebug() << "Destroing XMPP client";
    cleanupOnClose();
    for (QTimer* timer : {m_recvTimer, m_keepAliveTimer, m_keepAliveReplyTimer}) {
        timer->disconnect();
        timer->deleteLater();
    }
    m_recvTimer = m_keepAliveTimer = m_keepAliveReplyTimer = nullptr;
    deleteFTProfile();
    if (m_history) {
        m_history->disconnect();
        m_history->deleteLater();
        m_history = nullptr;
    }
    qDebug() << "Destroy client";
    delete m_client;
    m_client = nullptr;
    if (m_log) {
        m_log->flush();
        m_log->disconnect();
        m_log->deleteLater();
        m_log = nullptr;
    }
}

void XmppClient::connectToServer(const QString& chatId, const QString& password, const QString& server,
                                 int port, const QString& resource)
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [=]() { connectToServer(chatId, password, server, port, resource); });
        return;
    }
    qDebug().noquote() << QStringLiteral("Connecting to XMPP server at ") + server;
    XLOG(10000) << QStringLiteral("connecting to XMPP server at ") + server;
    if (m_connected) {
        XLOG(100) << "XMPP client is already connected!";
        return;
    }

    gloox::JID jid(chatId.toStdString());
    jid.setResource(resource.toStdString());

    // Sessions hand their gloox sessions back to the client that owns them,
    // so they go before it, as do the transfers.
    closeAllSessions();
    disposeAllFTHandlers();
    deleteFTProfile();
    delete m_client;
    m_client = nullptr;
    if (m_history) {
        m_history->disconnect();
        m_history->deleteLater();
        m_history = nullptr;
    }

    m_client = new gloox::Client(jid, password.toStdString(), port);
    m_client->setServer(server.toStdString());
    XLOG(100000) << "Created new XMPP client with JID" << fromStd(jid.full());
    m_client->setTls(gloox::TLSRequired);
    m_client->setSasl(true);

    m_client->registerConnectionListener(this);
    m_client->registerPresenceHandler(this);
    m_client->registerMessageSessionHandler(this, 0);
    m_client->disco()->registerDiscoHandler(this);

    m_client->disco()->addFeature(gloox::XMLNS_CHAT_STATES);
    m_client->disco()->addFeature(gloox::XMLNS_DELAY);
    m_client->disco()->addFeature(gloox::XMLNS_X_EVENT);
    m_client->disco()->addFeature(gloox::XMLNS_X_DATA);

    // Unregistered extensions are dropped silently from incoming stanzas.
    for (int state : {1, 2, 4, 8, 16, 32})
        m_client->registerStanzaExtension(new gloox::ChatState(gloox::ChatStateType(state)));
    m_client->registerStanzaExtension(new gloox::DelayedDelivery());
    m_client->registerStanzaExtension(new gloox::MessageEvent(47));
    m_client->registerStanzaExtension(new gloox::Forward());
    m_client->registerStanzaExtension(new gloox::Carbons());

    m_client->logInstance().registerLogHandler(gloox::LogLevelDebug, 0xffffff, this);

    m_siManager = new gloox::SIManager(m_client);
    m_ftProfile = new gloox::SIProfileFT(m_client, this, m_siManager, nullptr);

    startConnection();
}

void XmppClient::startConnection()
{
    if (m_connected) {
        XLOG(10) << "XMPP client is already connected!";
        return;
    }
    if (!m_client) {
        XLOG(0) << "Error starting connection. Invalid client instance";
        return;
    }
    if (m_client->connect(false)) {
        m_recvTimer->start();
        m_connecting = true;
    }
}

void XmppClient::recvData()
{
    releaseClosedStreams();
    if (!m_client)
        return;
    const QDeadlineTimer budget(RecvBudgetMs);
    long received = m_client->getStatistics().totalBytesReceived;
    gloox::ConnectionError error = m_client->recv(1000);
    // Whatever else is already waiting is read in the same tick, within the budget.
    while (error == gloox::ConnNoError && m_client && !budget.hasExpired()) {
        const long now = m_client->getStatistics().totalBytesReceived;
        if (now == received)
            break;
        received = now;
        error = m_client->recv(0);
    }
    // A broken link is reported through onDisconnect.
    if (error != gloox::ConnNoError)
        XLOG(10) << "m_client->recv() failed with error" << int(error);
}

void XmppClient::onConnect()
{
    m_connected = true;
    m_connecting = false;
    m_fullJid = fromStd(m_client->jid().full());

    gloox::IQ iq(gloox::IQ::Set, gloox::JID(), m_client->getID());
    iq.addExtension(new gloox::Carbons(gloox::Carbons::Enable));
    m_client->send(iq);

    m_client->disco()->getDiscoInfo(gloox::JID(), std::string(), this, 0);
    m_keepAliveTimer->start();
    Q_EMIT sigConnected();
}

bool XmppClient::onTLSConnect(const gloox::CertInfo& /*info*/)
{
    // The PBX's chat server commonly runs on a self-signed certificate.
    return true;
}

void XmppClient::handleDiscoInfo(const gloox::JID& /*from*/, const gloox::Disco::Info& info, int /*context*/)
{
    for (const std::string& feature : info.features()) {
        // Any version of the archive protocol will do.
        if (feature.find("urn:xmpp:mam") != std::string::npos) {
            XLOG(1000) << "History enabled on server";
            Q_EMIT sigHistoryEnabled(true);
            return;
        }
    }
    XLOG(100) << "History unavailable on server";
    Q_EMIT sigHistoryEnabled(false);
}

void XmppClient::handleDiscoItems(const gloox::JID& /*from*/, const gloox::Disco::Items& /*items*/,
                                  int /*context*/)
{
}

void XmppClient::handleDiscoError(const gloox::JID& /*from*/, const gloox::Error* /*error*/, int /*context*/)
{
}

void XmppClient::sendKeepAliveMessage()
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [this]() { sendKeepAliveMessage(); });
        return;
    }
    if (!m_connected || !m_client) {
        XLOG(100) << "Client not connected. Cannot send keep-alive message (ping) to server";
        return;
    }
    XLOG(10000) << "Sending keep-alive message (ping) to XMPP server... ";
    m_client->xmppPing(gloox::JID(m_client->jid().server()), this);
    m_keepAliveReplyTimer->start();
}

void XmppClient::handleEvent(const gloox::Event& event)
{
    // Any answer, an error included, shows that the link is alive.
    m_keepAliveReplyTimer->stop();
    switch (event.eventType()) {
    case gloox::Event::PingPong:
        XLOG(10000) << "Received pong message from XMPP server";
        break;
    case gloox::Event::PingError: {
        const gloox::Error* error = event.stanza() ? event.stanza()->error() : nullptr;
        if (error)
            XLOG(100) << "Server replied an error to keep-alive (ping) message. Error:"
                      << fromStd(error->text());
        else
            XLOG(100) << "Server replied an undefined error to keep-alive (ping) message";
        break;
    }
    default:
        break;
    }
}

void XmppClient::onKeepAliveReplyTimeout()
{
    XLOG(100) << "XMPP server did not reply to keep-alive ping message. Forcing reconnection...";
    m_keepAliveExpired = true;
    disconnectFromServer();
}

int XmppClient::getKeepAliveSendIntervalSec()
{
    if (thread() != QThread::currentThread()) {
        int result = 0;
        if (!QMetaObject::invokeMethod(this, "getKeepAliveSendIntervalSec", Qt::BlockingQueuedConnection,
                                       Q_RETURN_ARG(int, result))) {
            XLOG(10) << "invoke method failed!";
            return 0;
        }
        return result;
    }
    if (!m_keepAliveTimer) {
        XLOG(10) << "Keep-alive send timer not initialized!";
        return 0;
    }
    return m_keepAliveTimer->interval() / 1000;
}

bool XmppClient::setKeepAliveSendIntervalSec(int seconds)
{
    if (thread() != QThread::currentThread()) {
        bool result = false;
        if (!QMetaObject::invokeMethod(this, "setKeepAliveSendIntervalSec", Qt::BlockingQueuedConnection,
                                       Q_RETURN_ARG(bool, result), Q_ARG(int, seconds))) {
            XLOG(10) << "invoke method failed!";
            return false;
        }
        return result;
    }
    if (!m_keepAliveTimer) {
        XLOG(10) << "Keep-alive send timer not initialized!";
        return false;
    }
    if (m_keepAliveTimer->isActive())
        XLOG(100)
            << "Keep-alive send timer is currently active. Countdown will be restarted with new interval";
    if (seconds < 60) {
        XLOG(100) << "Cannot set keep-alive send interval to " << seconds << "seconds - minimum value is"
                  << 60 << "seconds";
        return false;
    }
    // QTimer::setInterval restarts a running timer.
    m_keepAliveTimer->setInterval(seconds * 1000);
    XLOG(1000) << "Keep-alive send timer set to" << seconds << "seconds";
    return true;
}

void XmppClient::disconnectFromServer()
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [this]() { disconnectFromServer(); });
        return;
    }
    XLOG(1000) << "Disconnecting from XMPP server";
    closeConnection();
}

void XmppClient::reconnect(int delayMs)
{
    XLOG(1000) << QStringLiteral("Reconnecting in ") + QString::number(delayMs) + QStringLiteral("ms");
    QTimer::singleShot(delayMs, this, &XmppClient::startConnection);
}

void XmppClient::closeConnection()
{
    cleanupOnClose();
    if (m_client)
        m_client->disconnect();
}

void XmppClient::onDisconnect(gloox::ConnectionError error)
{
    switch (error) {
    case gloox::ConnNoError:
        m_disconnectionReason = QStringLiteral("NoError");
        break;
    case gloox::ConnStreamError:
        m_disconnectionReason = QStringLiteral("StreamError %1").arg(int(m_client->streamError()));
        break;
    case gloox::ConnStreamClosed:
        m_disconnectionReason = TELVIX::ChatDisconnectionServerRefused;
        break;
    case gloox::ConnAuthenticationFailed:
        m_disconnectionReason = QStringLiteral("AuthenticationError %1").arg(int(m_client->authError()));
        break;
    case gloox::ConnUserDisconnected:
        if (m_keepAliveExpired) {
            m_keepAliveExpired = false;
            m_disconnectionReason = TELVIX::ChatDisconnectionKeepAliveReplyTimeout;
        } else {
            m_disconnectionReason = TELVIX::ChatDisconnectionUserRequest;
        }
        break;
    default:
        m_disconnectionReason = QStringLiteral("ConnectionError %1").arg(int(error));
        break;
    }
    XLOG(10) << "XMPP Client disconnected. Reason:" << m_disconnectionReason;
    cleanupOnClose();
    Q_EMIT sigDisconnected(m_disconnectionReason);
}

void XmppClient::cleanupOnClose()
{
    // Runs twice when the user disconnects: here and again from onDisconnect.
    if (m_recvTimer)
        m_recvTimer->stop();
    if (m_keepAliveTimer)
        m_keepAliveTimer->stop();
    if (m_keepAliveReplyTimer)
        m_keepAliveReplyTimer->stop();
    closeAllSessions();
    disposeAllFTHandlers();
    m_presences.clear();
    m_connected = false;
    m_connecting = false;
    m_fullJid.clear();
}

void XmppClient::requestContacts()
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [this]() { requestContacts(); });
        return;
    }
    QMap<QString, QString> contacts;
    if (m_client) {
        gloox::RosterManager* manager = m_client->rosterManager();
        const gloox::Roster* roster = manager ? manager->roster() : nullptr;
        if (roster) {
            for (const auto& entry : *roster) {
                const gloox::RosterItem* item = entry.second;
                const gloox::JID jid = item->jidJID();
                contacts.insert(fromStd(jid.bare()), fromStd(item->name()));
                if (item->subscription() == gloox::S10nNone || item->subscription() == gloox::S10nFrom)
                    manager->subscribe(jid, std::string(), gloox::StringList(), std::string());
                // NoneIn, NoneOutIn and ToIn: the contact waits for our answer.
                const int subscription = int(item->subscription());
                if (subscription < 6 && ((1 << subscription) & 44))
                    manager->ackSubscriptionRequest(jid, true);
            }
        }
    }
    Q_EMIT sigContactListUpdated(contacts);
}

void XmppClient::handleSubscription(const gloox::Subscription& subscription)
{
    const QString from = fromStd(subscription.from().full());
    switch (subscription.subtype()) {
    case gloox::Subscription::Subscribe:
        qDebug() << "Got subscription request from" << from << ", accepting it...";
        if (m_client)
            m_client->rosterManager()->ackSubscriptionRequest(subscription.from(), true);
        break;
    case gloox::Subscription::Subscribed:
        qDebug() << "Subscription notification to" << from;
        break;
    case gloox::Subscription::Unsubscribe:
        qDebug() << "Got unsubscription request from" << from;
        break;
    case gloox::Subscription::Unsubscribed:
        qDebug() << "Unsubscription notification to" << from;
        break;
    default:
        qDebug() << "Got an invalid subscription";
        break;
    }
}

QStringList XmppClient::getContactResources(QString chatId)
{
    QStringList resources;
    gloox::RosterItem* item = m_client && m_client->rosterManager()
        ? m_client->rosterManager()->getRosterItem(gloox::JID(chatId.toStdString()))
        : nullptr;
    if (!item) {
        XLOG(1000) << "No roster item found for chatId";
        return resources;
    }
    for (const auto& resource : item->resources())
        resources.append(fromStd(resource.first));
    return resources;
}

void XmppClient::handlePresence(const gloox::Presence& presence)
{
    const QString bareJid = fromStd(presence.from().bare());
    const QString resource = fromStd(presence.from().resource());
    const QString status = fromStd(presence.status("default"));
    const TELVIX::ChatPresence type = XMPPENGINE::presenceTypeFromGlooxToTelvix(presence.subtype());

    auto it = m_presences.find(bareJid);
    while (it != m_presences.end() && it.key() == bareJid && it->resource != resource)
        ++it;
    if (it != m_presences.end() && it.key() == bareJid) {
        if (type == TELVIX::ChatPresenceOffline) {
            m_presences.erase(it);
            closeMessageSession(bareJid);
        } else {
            it->presence = type;
            it->status = status;
        }
    } else {
        // Kept even when offline: the contact then reads as offline, not as unknown.
        m_presences.insert(bareJid, XmppPresence {bareJid, resource, type, status});
        if (type == TELVIX::ChatPresenceOffline)
            closeMessageSession(bareJid);
    }

    if (type == TELVIX::ChatPresenceOffline)
        abortTransfersFrom(fromStd(presence.from().full()));

    if (fromStd(presence.from().full()) == m_fullJid) {
        Q_EMIT sigClientPresenceUpdate(type, status);
        return;
    }
    const XmppPresence* best = getBestPresence(bareJid);
    if (best)
        Q_EMIT sigContactPresenceChanged(bareJid, best->presence, best->status);
    else
        Q_EMIT sigContactPresenceChanged(bareJid, TELVIX::ChatPresenceOffline, QString());
}

const XmppPresence* XmppClient::getBestPresence(const QString& bareJid) const
{
    const XmppPresence* best = nullptr;
    for (auto it = m_presences.constFind(bareJid); it != m_presences.cend() && it.key() == bareJid; ++it) {
        if (!best || qint32(it->presence) < qint32(best->presence))
            best = &it.value();
    }
    return best;
}

bool XmppClient::isContactAvailable(const QString& bareJid) const
{
    const XmppPresence* best = getBestPresence(bareJid);
    return best && best->presence != TELVIX::ChatPresenceOffline
        && best->presence != TELVIX::ChatPresenceInvalid;
}

void XmppClient::requestContactsPresence()
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [this]() { requestContactsPresence(); });
        return;
    }
    if (m_presences.isEmpty())
        return;
    PresenceMap snapshot;
    for (const QString& bareJid : m_presences.uniqueKeys()) {
        const XmppPresence* best = getBestPresence(bareJid);
        snapshot.insert(bareJid, qMakePair(best->presence, best->status));
    }
    Q_EMIT sigContactPresenceMapUpdate(snapshot);
}

void XmppClient::requestClientPresence()
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [this]() { requestClientPresence(); });
        return;
    }
    if (!m_client)
        return;
    const gloox::Presence& own = m_client->presence();
    Q_EMIT sigClientPresenceUpdate(XMPPENGINE::presenceTypeFromGlooxToTelvix(own.subtype()),
                                   fromStd(own.status("default")));
}

void XmppClient::updateClientPresence(TELVIX::ChatPresence presence, const QString& status)
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [=]() { updateClientPresence(presence, status); });
        return;
    }
    if (!m_client)
        return;
    m_client->setPresence(XMPPENGINE::presenceTypeFromTelvixToGloox(presence), 0, status.toStdString());
    if (presence != TELVIX::ChatPresenceOffline)
        return;
    // Gone offline: nobody is seen any more, without waiting for the server.
    PresenceMap everyone;
    for (const QString& bareJid : m_presences.uniqueKeys())
        everyone.insert(bareJid, qMakePair(TELVIX::ChatPresenceOffline, QString()));
    Q_EMIT sigContactPresenceMapUpdate(everyone);
    m_presences.clear();
    Q_EMIT sigClientPresenceUpdate(TELVIX::ChatPresenceOffline, status);
}

void XmppClient::handleLog(gloox::LogLevel /*level*/, gloox::LogArea /*area*/, const std::string& /*message*/)
{
    // gloox's own trace is too verbose for the log; it is dropped.
}

XmppChatSession* XmppClient::createChatSession(const gloox::JID& jid, gloox::MessageSession* session)
{
    if (!session)
        session = new gloox::MessageSession(m_client, jid, true, 0, true);
    auto* chat = new XmppChatSession(m_client, session, m_logDir);
    bool ok
        = bool(connect(chat, &XmppChatSession::sigMessageReceived, this, &XmppClient::sigMessageReceived));
    ok = bool(connect(chat, SIGNAL(sigIsComposing(QString, QString, bool)), this,
                      SIGNAL(sigIsComposing(QString, QString, bool))))
        && ok;
    ok = bool(connect(chat, SIGNAL(sigMessageDelivered(QString)), this, SIGNAL(sigMessageDelivered(QString))))
        && ok;
    ok = bool(connect(chat, SIGNAL(sigMessageDisplayed(QString)), this, SIGNAL(sigMessageDisplayed(QString))))
        && ok;
    ok = bool(connect(chat, SIGNAL(sigMessageOffline(QString)), this, SIGNAL(sigMessageOffline(QString))))
        && ok;
    // Archived messages are gathered by the history object of this client, if any.
    ok = bool(connect(chat, &XmppChatSession::sigMessageHistory, this,
                      [this](const QString& archiveId, const ChatMessage& message) {
                          if (m_history)
                              m_history->addMessage(archiveId, message);
                      }))
        && ok;
    if (!ok)
        qCritical() << "signal-slot connection failed!";
    return chat;
}

XmppChatSession* XmppClient::openChatSession(const QString& chatId)
{
    XmppChatSession* chat = m_sessions.value(chatId);
    if (chat)
        return chat;
    // A gloox session needs the client that owns it.
    if (!m_client)
        return nullptr;
    chat = createChatSession(gloox::JID(chatId.toStdString()), nullptr);
    if (chat)
        m_sessions.insert(chatId, chat);
    return chat;
}

void XmppClient::closeMessageSession(const QString& chatId)
{
    XmppChatSession* chat = m_sessions.take(chatId);
    if (!chat)
        return;
    chat->disconnect();
    chat->close();
    chat->deleteLater();
}

void XmppClient::closeAllSessions()
{
    // Runs again harmlessly when the map is already empty.
    const QStringList keys = m_sessions.keys();
    for (const QString& chatId : keys)
        closeMessageSession(chatId);
    m_sessions.clear();
}

void XmppClient::handleMessageSession(gloox::MessageSession* session)
{
    XLOG(10000) << "New chat session with" << int(bool(session->target()));
    const QString chatId = fromStd(session->target().bare());
    closeMessageSession(chatId);
    m_sessions.insert(chatId, createChatSession(session->target(), session));
}

XmppChatSession* XmppClient::sessionForSending(const QString& chatId)
{
    XmppChatSession* chat = openChatSession(chatId);
    if (!chat) {
        qCritical() << "chat session creation failed for chat ID" << chatId;
        XLOG(10) << "chat session creation failed for chat ID" << chatId;
    }
    return chat;
}

void XmppClient::sendMessage(const QString& chatId, const QString& body)
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [=]() { sendMessage(chatId, body); });
        return;
    }
    if (!m_connected || !m_client) {
        XLOG(10) << "Trying to send a chat message, but the client is disconnected";
        return;
    }
    XmppChatSession* chat = sessionForSending(chatId);
    if (!chat)
        return;
    XLOG(10000) << "Sending chat message";
    chat->send(body, QString());
}

void XmppClient::sendChatState(const QString& chatId, void (XmppChatSession::*notify)(), bool onlyIfAvailable)
{
    // Callers on other threads are moved onto the client's thread.
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [=]() { sendChatState(chatId, notify, onlyIfAvailable); });
        return;
    }
    XmppChatSession* chat = sessionForSending(chatId);
    if (!chat)
        return;
    // An offline contact gets no chat states, but keeps the session.
    if (onlyIfAvailable && !isContactAvailable(chatId))
        return;
    (chat->*notify)();
}

void XmppClient::sendOpenConversation(const QString& chatId)
{
    sendChatState(chatId, &XmppChatSession::notifyOpenConversation, true);
}

void XmppClient::sendStartComposing(const QString& chatId)
{
    sendChatState(chatId, &XmppChatSession::notifyStartComposing, true);
}

void XmppClient::sendStopComposing(const QString& chatId)
{
    sendChatState(chatId, &XmppChatSession::notifyStopComposing, true);
}

void XmppClient::sendCloseConversation(const QString& chatId)
{
    sendChatState(chatId, &XmppChatSession::notifyCloseConversation, true);
}

void XmppClient::sendMessageDisplayed(const QString& chatId)
{
    sendChatState(chatId, &XmppChatSession::notifyMessageDisplayed, false);
}
