// The session with the CTI server: TLS connection, login, keep-alive,
// disconnection.
#include "telvix_p.h"

#include "loginmessages.h"
#include "messagereader.h"
#include "simpleobfuscator.h"
#include "simplexmlparser.h"

#include <QDebug>
#include <QSslSocket>
#include <QTimer>

namespace {
constexpr int LoginRetryGuardMs = 1000;
constexpr quint16 DefaultServerPort = 5039;
constexpr int AppModeLogger = 5;

void stopIfExists(QTimer* timer)
{
    if (timer)
        timer->stop();
}
} // namespace

// ---- public facade ------------------------------------------------------

bool Telvix::connectToServer(const QString& user, const QString& password, const QString& domain,
                             TELVIX::AppMode mode, const QString& ip, quint16 port)
{
    TELVIX_QUEUED_UNCHECKED(d->connectToServer(user, password, domain, mode, ip, port));
}

bool Telvix::reconnectToServer()
{
    // The stored values are read on the library's thread, after any change
    // queued before this call (setServerAddress) has been made.
    TELVIX_QUEUED_UNCHECKED(
        d->connectToServer(d->user, d->password, d->domain, d->appMode, d->serverAddress, d->serverPort));
}

bool Telvix::setServerAddress(const QString& address)
{
    TELVIX_QUEUED_UNCHECKED(d->setServerAddress(address));
}

void Telvix::ignoreSslErrors(bool ignore)
{
    d_func()->ignoreSslErrorsFlag = ignore;
}

bool Telvix::logout()
{
    TELVIX_QUEUED(d->logout());
}

bool Telvix::abortConnection()
{
    TELVIX_QUEUED(d->abortConnection());
}

bool Telvix::isConnected()
{
    TELVIX_BLOCKING(bool, d->isConnected(), false);
}

bool Telvix::isSocketConnected() const
{
    return d_func()->isSocketConnected();
}

bool Telvix::sendKeepAlive()
{
    TELVIX_QUEUED(d->sendKeepAlive());
}

bool Telvix::stopKeepAliveTimer()
{
    TELVIX_QUEUED(d->stopKeepAliveTimer());
}

bool Telvix::enableGuiKeepAlive(bool on)
{
    TELVIX_QUEUED(d->enableGuiKeepAlive(on));
}

bool Telvix::requestGuiKeepAlive()
{
    TELVIX_QUEUED(d->requestGuiKeepAlive());
}

bool Telvix::ackGuiKeepAlive()
{
    TELVIX_QUEUED(d->ackGuiKeepAlive());
}

QString Telvix::getDisplayedNum() const
{
    return d_func()->exten;
}

void setTelvixTimerIntervals(Telvix* client, const TelvixTimerIntervals& intervals)
{
    TelvixPrivate* const d = TelvixPrivate::get(client);
    TelvixHop::blocking<bool>(client, [d, intervals] {
        d->timerIntervals = intervals;
        return true;
    });
}

// ---- connection ---------------------------------------------------------

bool TelvixPrivate::connectToServer(const QString& newUser, const QString& newPassword, const QString& newDomain,
                                    TELVIX::AppMode mode, const QString& ip, quint16 port)
{
    static const int appModeType = qRegisterMetaType<TELVIX::AppMode>("TELVIX::AppMode");
    Q_UNUSED(appModeType)

    const QString address = ip.isEmpty() ? serverAddress : ip;
    const quint16 usedPort = port == 0 ? serverPort : port;

    switch (connectionState.load()) {
    case Telvix::StateDisconnected:
        break;
    case Telvix::StateDisconnecting:
        destroySocket();
        break;
    default: // connecting or connected
        if (newUser == user && newPassword == password && newDomain == domain && mode == appMode
            && address == serverAddress && usedPort == serverPort)
            return true;
        destroySocket();
        break;
    }

    if (isConnected())
        return true;

    serverAddress = address;
    serverPort = usedPort;
    user = newUser;
    password = newPassword;
    domain = newDomain;
    appMode = mode;

    if (isSocketConnected())
        return true;

    TLOG(100) << "Connecting to server @ ip" << serverAddress << "and port" << serverPort << "...";
    connectionState = Telvix::StateConnecting;
    initSslSocket();
    socket->connectToHostEncrypted(serverAddress, serverPort, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
    return true;
}

void TelvixPrivate::initSslSocket()
{
    Q_Q(Telvix);
    if (socket)
        destroySocket();

    qRegisterMetaType<QAbstractSocket::SocketError>("SocketError");
    QSslSocket* const sock = new QSslSocket();
    socket = sock;
    socketDecoder.reset(QTextCodec::codecForName("UTF-8")->makeDecoder());

    // Every slot checks that its sender is still the current socket: a
    // dropped socket may still have queued signals in flight.
    const bool ok
        = QObject::connect(
              sock, &QSslSocket::readyRead, q,
              [this, sock] {
                  if (sock == socket)
                      readData();
              },
              Qt::QueuedConnection)
        && QObject::connect(
            sock, &QSslSocket::encrypted, q, [this, sock] { handleConnection(sock); }, Qt::QueuedConnection)
        && QObject::connect(
            sock, &QSslSocket::disconnected, q, [this, sock] { handleServerDisconnection(sock); },
            Qt::QueuedConnection)
        && QObject::connect(
            sock, &QAbstractSocket::errorOccurred, q,
            [this, sock](QAbstractSocket::SocketError error) { handleTcpError(sock, int(error)); },
            Qt::QueuedConnection)
        && QObject::connect(sock, QOverload<const QList<QSslError>&>::of(&QSslSocket::sslErrors), q,
                            [this, sock](const QList<QSslError>& errors) { handleSslError(sock, errors); });
    if (!ok)
        qCritical() << "signal-slot connection failed!";

    TLOG(1000) << "Sock is open:" << sock->isOpen() << " - Sock is valid:" << sock->isValid();
}

void TelvixPrivate::handleSslError(QSslSocket* sender, const QList<QSslError>& errors)
{
    if (sender != socket)
        return;
    for (const QSslError& error : errors) {
        qWarning() << "SSL error:" << error.errorString();
        TLOG(10) << "SSL error:" << error.errorString();
    }
    if (ignoreSslErrorsFlag)
        socket->ignoreSslErrors();
}

void TelvixPrivate::handleConnection(QSslSocket* sender)
{
    if (sender != socket || !isSocketConnected())
        return;
    // A banner already waiting sends the login when it is handled.
    if (socket->bytesAvailable() > 0)
        return;
    sendAuth();
}

bool TelvixPrivate::isConnected() const
{
    return connectionState == Telvix::StateConnected && isSocketConnected();
}

bool TelvixPrivate::isSocketConnected() const
{
    return socket && socket->isOpen() && socket->state() == QAbstractSocket::ConnectedState;
}

bool TelvixPrivate::setServerAddress(const QString& address)
{
    const int colon = address.indexOf(QLatin1Char(':'));
    serverAddress = address.left(colon);
    bool ok = false;
    const quint16 port = colon < 0 ? 0 : address.mid(colon + 1).toUShort(&ok, 10);
    serverPort = (ok && port != 0) ? port : DefaultServerPort;
    return true;
}

QString TelvixPrivate::clientApiFor(const QString& serverApi)
{
    return ApiText::below(serverApi, "6.1") ? serverApi : QStringLiteral("6.1");
}

// ---- login --------------------------------------------------------------

void TelvixPrivate::sendAuth()
{
    if (connectionState == Telvix::StateConnected) {
        TLOG(100) << "Trying to send authentication when already connected.";
        return;
    }
    const QDateTime now = QDateTime::currentDateTime();
    if (lastLoginAttempt.isValid() && lastLoginAttempt.msecsTo(now) < LoginRetryGuardMs) {
        TLOG(100) << QStringLiteral(
                         "Trying to send authentication too early. Last login attempt at %1; current time is %2")
                         .arg(lastLoginAttempt.toString(QStringLiteral("HH:mm:ss.zzz")),
                              now.toString(QStringLiteral("HH:mm:ss.zzz")));
        return;
    }
    // Servers before 4.2 need a domain; their default tenant is this one.
    if (TELVIX::compareVersions(serverApiVersion, QStringLiteral("4.2")) < 0 && domain.isEmpty()
        && !Telvix::appModeIsMobile(appMode))
        domain = QStringLiteral("vantorpbx");

    LoginReqMsg login;
    login.user = user;
    login.password = password;
    login.domain = domain;
    login.appMode = appMode;
    login.osType = osType;
    login.osVersion = osVersion;
    login.swType = swType;
    login.swVersion = swVersion;
    login.deviceUuid = deviceId;

    connectionState = Telvix::StateConnecting;
    TLOG(1000) << "Sending auth to CTIServer - username:" << user << "- OS:" << osType << osVersion
               << "- software:" << swType << swVersion << "- device ID:" << deviceId;
    send(login);
    lastLoginAttempt = now;
}

bool TelvixPrivate::onLoginResponse(const QString& xml)
{
    Q_Q(Telvix);
    if (connectionState == Telvix::StateConnected)
        return true;

    const LoginRespMsg resp = LoginRespMsg::parseMessage(xml);
    if (!resp.success || resp.exitCode != 0) {
        TLOG(1000) << "Login failed with exitcode " << resp.exitCode << " - Reason: " << resp.reason;
        disconnectFromServer(resp.reason);
        return false;
    }
    if (resp.exten.isEmpty()) {
        TLOG(10) << "Received an empty exten on login";
        disconnectFromServer(QStringLiteral("EmptyExten"));
        return false;
    }
    if (int(resp.appMode) == -1) {
        TLOG(10) << "Logged user has no capabilities";
        disconnectFromServer(QStringLiteral("NoCapability"));
        return false;
    }

    exten = resp.exten;
    firstName = resp.firstName;
    lastName = resp.lastName;
    TLOG(1000) << "login succeded! exten:" << exten << "mode:" << TELVIX::appModeToString(appMode);

    if (!Telvix::appModeIsMobile(appMode) && int(appMode) != AppModeLogger)
        openLocalStore();

    if (serverApiVersion.isEmpty()) {
        serverApiVersion = resp.api;
        clientApiVersion = clientApiFor(serverApiVersion);
        qDebug().noquote() << "Received API version on login. server:" << serverApiVersion << "- client:"
                           << clientApiVersion;
        TLOG(1000) << "Received API version on login. server:" << serverApiVersion << "- client:"
                   << clientApiVersion;
    }

    TLOG(1000) << "received login info. ccrole:" << TELVIX::callCenterRoleToString(resp.ccRole)
               << "features:" << resp.features.join(QLatin1Char(','));
    ccRole = resp.ccRole;
    computeFeatureBits(resp.features);

    if (ApiText::atLeast(serverApiVersion, "5.3"))
        getCtiConfiguration();
    else
        startChatFromLogin(resp);

    keepAliveTimer->start(timerIntervals.keepAliveMs);
    if (!Telvix::appModeIsMobile(appMode))
        periodicDataTimer->start(timerIntervals.periodicDataMs);

    const LoginDetails details = resp.toLoginDetails(serverApiVersion);

    getServiceCodeList();

    connectionState = Telvix::StateConnected;
    Q_EMIT q->loggedToServer(details);
    ackServerMessage(resp.uuid);
    return true;
}

void TelvixPrivate::computeFeatureBits(const QStringList& list)
{
    const QString& api = serverApiVersion;
    const auto has = [&list](const char* word) { return list.contains(QLatin1String(word)); };
    features = 0;
    // The mix of > and >= and the reversed test of 0x0200 (older servers
    // always had server commands) are what servers rely on.
    if (has("SMS"))
        features |= 0x0001;
    if (has("SUBSCRIBE_TENANT_EVENTS"))
        features |= 0x0100;
    if (ApiText::below(api, "4.2") || has("SEND_CMD"))
        features |= 0x0200;
    if (ApiText::above(api, "4.4") || has("CCREPORT"))
        features |= 0x0004;
    if (ApiText::above(api, "4.5") || has("DTMFSEQUENCE"))
        features |= 0x0008;
    if (ApiText::above(api, "4.6") || has("ONDCALLRECORDING"))
        features |= 0x0020;
    if (ApiText::above(api, "4.7") || has("INCALLSERVICECODES"))
        features |= 0x0010;
    if (ApiText::atLeast(api, "5.0") || has("MSGACK"))
        features |= 0x0040;
    if (ApiText::atLeast(api, "5.2") || has("CUMULATIVE_STATS"))
        features |= 0x0080;
    if (ApiText::atLeast(api, "5.5") || has("OPERATOR_PENALTY"))
        features |= 0x0400;
    if (has("REBRANDING"))
        features |= 0x0800;
    if (has("PUSH_DTMF_TOS_CODECS"))
        features |= 0x1000;
    if (ApiText::atLeast(api, "6.4") || has("EDIT_PRIVATE_CONTACTS"))
        features |= 0x2000;
    if (ApiText::atLeast(api, "6.7") || has("INLINE_ATTENDEDXFER_CANCEL_NOTIF"))
        features |= 0x4000;
}

// ---- writing and reading ------------------------------------------------

bool TelvixPrivate::send(SXmlMessage& msg, bool flush)
{
    return sendRequest(msg.serializeToXml(clientApiVersion), flush);
}

bool TelvixPrivate::sendRequest(const QString& xml, bool flush)
{
    if (!socket) {
        TLOG(10) << "Trying to send a request on a NULL socket";
        return false;
    }
    const bool ok = socket->write(xml.toUtf8()) >= 0;
    if (flush)
        socket->flush();
    if (msgLogger) {
        const QString head = ok ? QStringLiteral("Sent: >>>\n") : QStringLiteral("Failed to send: !!!\n");
        msgLogger->log(LGBS::PriorityNotable, head + SimpleObfuscator::hide(xml));
    }
    return ok;
}

bool TelvixPrivate::ackServerMessage(const QString& id)
{
    if (id.isEmpty())
        return false;
    AckMsg ack(id);
    return send(ack);
}

bool TelvixPrivate::readData()
{
    if (!socket) {
        TLOG(10) << "Invalid socket from which read data";
        return false;
    }
    const QString text = socketDecoder->toUnicode(socket->readAll());
    if (!text.isEmpty()) {
        TLOG(-1) << "Server reported:\n" << text;
        parser->addData(text);
    }
    return true;
}

// ---- keep-alive ---------------------------------------------------------

bool TelvixPrivate::sendKeepAlive()
{
    if (!socket)
        return true;
    KeepAliveReqMsg keepAlive;
    send(keepAlive);
    TLOG(100000) << "Keep alive sent";
    keepAliveAckTimer->start(timerIntervals.keepAliveAckMs);
    return true;
}

bool TelvixPrivate::stopKeepAliveTimer()
{
    if (keepAliveTimer && keepAliveTimer->isActive())
        keepAliveTimer->stop();
    return true;
}

void TelvixPrivate::connectionTimedout()
{
    TLOG(100) << "Connection timed-out: no ACK received to KeepAlive message";
    disconnectFromServer(QStringLiteral("ConnectionTimeout"));
}

bool TelvixPrivate::enableGuiKeepAlive(bool on)
{
    // The heartbeat starts whatever the argument says; applications rely on
    // enableGuiKeepAlive(false) enabling it too.
    guiKeepAliveEnabled = true;
    if (guiKeepAliveTimer)
        guiKeepAliveTimer->start(timerIntervals.guiKeepAliveMs);
    const char* word = on ? "Enabled" : "Disabled";
    qDebug() << "GUI KeepAlive" << word;
    TLOG(10000) << "GUI KeepAlive" << word;
    return true;
}

void TelvixPrivate::sendGuiKeepAlive()
{
    Q_Q(Telvix);
    if (guiKeepAliveEnabled) {
        TLOG(10000) << "Sending GUI KeepAlive";
        Q_EMIT q->sigGuiKeepAlive();
    } else {
        TLOG(10000) << "Trying to send a GUI KeepAlive, but it's disabled.";
    }
}

bool TelvixPrivate::requestGuiKeepAlive()
{
    TLOG(1000) << "GUI KeepAlive explicitly requested";
    sendGuiKeepAlive();
    return true;
}

bool TelvixPrivate::ackGuiKeepAlive()
{
    TLOG(1000) << "GUI KeepAlive acked.";
    return true;
}

// ---- leaving ------------------------------------------------------------

bool TelvixPrivate::logout()
{
    connectionState = Telvix::StateDisconnecting;
    TLOG(1000) << "Sending logout to Vantor";
    LogoutReqMsg logoutMsg;
    send(logoutMsg, true);
    return true;
}

bool TelvixPrivate::abortConnection()
{
    destroySocket();
    return true;
}

void TelvixPrivate::disconnectFromServer(const QString& reason)
{
    Q_Q(Telvix);
    const int state = connectionState;
    if (state == Telvix::StateDisconnected)
        return;
    if (state == Telvix::StateConnected) {
        connectionState = Telvix::StateDisconnecting;
        TLOG(1000) << "Disconnecting from Vantor due to reason" << reason;
    }
    destroySocket();
    closeLocalStore();
    Q_EMIT q->disconnectedFromServer(reason);
}

void TelvixPrivate::destroySocket()
{
    connectionState = Telvix::StateDisconnected;
    stopIfExists(keepAliveTimer);
    stopIfExists(keepAliveAckTimer);
    stopIfExists(periodicDataTimer);
    stopIfExists(phoneBookTimer);
    clearSessionIndexes();
    if (socket) {
        QObject::disconnect(socket, nullptr, q_ptr, nullptr);
        socket->disconnectFromHost();
        socket->deleteLater();
        socket = nullptr;
    }
    serverApiVersion.clear();
    minApiVersion.clear();
    clientApiVersion = QStringLiteral("4.0");
}

void TelvixPrivate::handleServerDisconnection(QSslSocket* sender)
{
    if (!sender || sender != socket || connectionState == Telvix::StateDisconnected)
        return;
    QString reason = QStringLiteral("Unkown");
    readData();
    if (connectionState == Telvix::StateDisconnected)
        return;
    if (connectionState == Telvix::StateDisconnecting)
        reason = QStringLiteral("UserRequest");
    TLOG(10) << "Socket disconnected";
    disconnectFromServer(reason);
}

void TelvixPrivate::handleTcpError(QSslSocket* sender, int error)
{
    if (!sender || sender != socket || connectionState == Telvix::StateDisconnected)
        return;
    // A close by the server arrives as this error and then as disconnected();
    // the close is the server's hang-up, reported by the latter.
    if (error == QAbstractSocket::RemoteHostClosedError)
        return;
    QString reason = socket->errorString();
    const QString errorText = reason;
    if (error == QAbstractSocket::NetworkError)
        reason = QStringLiteral("NetworkError");
    readData();
    if (connectionState == Telvix::StateDisconnected)
        return;
    if (connectionState == Telvix::StateDisconnecting)
        reason = QStringLiteral("UserRequest");
    TLOG(10) << "TCP socket reported an error:" << errorText << "-" << error;
    disconnectFromServer(reason);
}

void TelvixPrivate::handleRedirect(const RedirectConnectionRespMsg& redirect, bool& leaveLoop)
{
    if (!redirect.success) {
        TLOG(1000) << "Invalid Redirect connection message received";
        return;
    }
    const QString address = redirect.serverIp.isEmpty() ? serverAddress : redirect.serverIp;
    const quint16 port = redirect.serverPort == 0 ? DefaultServerPort : redirect.serverPort;
    if (address == serverAddress && port == serverPort) {
        TLOG(10) << "Got the same server IP:port in redirect msg, disconnecting the client to avoid loop!";
        disconnectFromServer(QStringLiteral("WrongConfig"));
        leaveLoop = true;
        return;
    }
    TLOG(1000) << "Redirecting client to server IP" << address << "and port" << port;
    lastLoginAttempt = QDateTime();
    connectToServer(user, password, domain, appMode, address, port);
}
