// The local server: a loopback port on which one application receives the
// library's events as XML.
#include "clientsocketmanager.h"
#include "telvix_p.h"

int Telvix::initTcpServer()
{
    TELVIX_BLOCKING(int, d->initTcpServer(), -1);
}

int Telvix::getTcpServerPort()
{
    TELVIX_BLOCKING(int, d->getTcpServerPort(), 0);
}

bool Telvix::closeTcpServer()
{
    TELVIX_QUEUED(d->closeTcpServer());
}

int Telvix::restartTcpServer()
{
    TELVIX_BLOCKING(int, d->restartTcpServer(), -1);
}

int TelvixPrivate::initTcpServer()
{
    Q_Q(Telvix);
    if (localServer)
        replacedLocalServers.append(localServer);
    auto* const manager = new ClientSocketManager(dataDir, nullptr);
    localServer = manager;
    // The records these signals carry are registered by their families when
    // the library loads, so queued receivers can take them from the start.

    // Every connection is direct: the signals are raised on this thread, so
    // messages leave in the order of the events, before the emitter returns.
    bool connected = true;
    const auto check = [&connected](const QMetaObject::Connection& connection) {
        if (!connection)
            connected = false;
    };
    check(QObject::connect(q, SIGNAL(loggedToServer(LoginDetails)), manager,
                           SLOT(sendLoginMessage(LoginDetails))));
    check(QObject::connect(q, SIGNAL(disconnectedFromServer(QString)), manager,
                           SLOT(sendLogoutMessage(QString))));
    check(QObject::connect(q, SIGNAL(sigIncomingCall(QString, QString, QString, bool)), manager,
                           SLOT(sendIncomingCallMessage(QString, QString, QString, bool))));
    check(QObject::connect(q, SIGNAL(sigAnsweredCall(QString, QString, QString)), manager,
                           SLOT(sendAnsweredCallMessage(QString, QString, QString))));
    check(QObject::connect(q, SIGNAL(sigFinishedCall(QString, QString, QString, bool)), manager,
                           SLOT(sendFinishedCallMessage(QString, QString, QString, bool))));
    check(QObject::connect(q, SIGNAL(sigStartingCall(QString, QString, QString)), manager,
                           SLOT(sendOriginateCallMessage(QString, QString, QString))));
    check(QObject::connect(q, SIGNAL(sigMissedCall(QString, QString)), manager,
                           SLOT(sendMissedCallMessage(QString, QString))));

    using M = ClientSocketManager;
    check(
        QObject::connect(q, &Telvix::sigCallTransferCanceled, manager, &M::sendCallTransferCanceledMessage));
    check(QObject::connect(q, &Telvix::sigCallTransferStarted, manager, &M::sendCallTransferStartedMessage));
    check(QObject::connect(q, &Telvix::sigCallTransferCompleted, manager,
                           &M::sendCallTransferCompletedMessage));
    QObject::connect(q, &Telvix::sigExtenStatusMapChanged, manager, &M::sendExtenStatusMap);
    QObject::connect(q, &Telvix::sigExtenStatusChanged, manager, &M::sendExtenStatus);
    QObject::connect(q, &Telvix::sigCdrChanged, manager, &M::sendCdr);
    check(QObject::connect(q, &Telvix::sigPhonebookChanged, manager, &M::sendContacts));
    check(QObject::connect(q, &Telvix::sigServiceStatusChanged, manager, &M::sendServiceStatus));
    check(QObject::connect(q, &Telvix::sigServicesCodesReceived, manager, &M::sendDialCodesUpdateEvent));
    check(QObject::connect(q, &Telvix::sigIdentitiesChanged, manager, &M::sendIdentities));
    check(QObject::connect(q, &Telvix::sigVoicemailMsgList, manager, &M::sendVoicemailList));
    check(QObject::connect(q, &Telvix::sigVoicemailDownloadCompleted, manager,
                           &M::sendVoicemailMessageDownloadCompleted));
    check(QObject::connect(q, &Telvix::sigRebrandingDownloadCompleted, manager,
                           &M::sendRebrandingPackDownloadCompleted));
    check(QObject::connect(q, &Telvix::sigMailboxStatusChanged, manager, &M::sendMailboxStatus));
    check(QObject::connect(q, &Telvix::sigChatMessage, manager, &M::sendChatMessage));
    check(QObject::connect(q, &Telvix::sigChatContactComposing, manager, &M::sendChatContactComposing));
    // The receipts name the current local server at each event.
    check(QObject::connect(q, &Telvix::sigChatMessageOffline, manager, [this](const QString& who) {
        sendChatMessageEvent(who, QStringLiteral("OFFLINE"));
    }));
    check(QObject::connect(q, &Telvix::sigChatMessageDelivered, manager, [this](const QString& who) {
        sendChatMessageEvent(who, QStringLiteral("DELIVERED"));
    }));
    check(QObject::connect(q, &Telvix::sigChatMessageDisplayed, manager, [this](const QString& who) {
        sendChatMessageEvent(who, QStringLiteral("DISPLAYED"));
    }));
    check(QObject::connect(q, &Telvix::sigChatConnected, manager, &M::sendChatConnected));
    check(QObject::connect(q, &Telvix::sigChatDisconnected, manager, &M::sendChatDisconnected));
    check(QObject::connect(q, &Telvix::sigC2cOriginate, manager, &M::sendC2cOriginate));
    check(QObject::connect(q, &Telvix::sigC2cFinished, manager, &M::sendC2cFinished));
    check(QObject::connect(q, &Telvix::sigChatFtRequest, manager, &M::sendChatFtRequest));
    check(QObject::connect(q, &Telvix::sigChatFtStart, manager, &M::sendChatFtStart));
    check(QObject::connect(q, &Telvix::sigChatFtSent, manager, &M::sendChatFtSent));
    check(QObject::connect(q, &Telvix::sigChatFtComplete, manager, &M::sendChatFtComplete));
    check(QObject::connect(q, &Telvix::sigChatVcardComplete, manager, &M::sendChatVCardComplete));
    check(QObject::connect(q, &Telvix::sigChatFtError, manager, &M::sendChatFtError));
    check(QObject::connect(q, &Telvix::sigChatFtProgress, manager, &M::sendChatFtProgress));
    check(QObject::connect(q, &Telvix::sigChatHistory, manager, &M::sendChatHistory));
    check(QObject::connect(q, &Telvix::sigChatHistoryEnabled, manager, &M::sendChatHistoryEnabled));
    check(QObject::connect(q, &Telvix::sigGuiKeepAlive, manager, &M::sendKeepAlive));

    if (!connected)
        qCritical() << "int Telvix::initTcpServer()"
                    << "signal-slot connection failed!";
    return manager->initServer();
}

void TelvixPrivate::sendChatMessageEvent(const QString& who, const QString& event)
{
    if (localServer)
        localServer->sendChatMessageEvent(who, event);
}

int TelvixPrivate::getTcpServerPort() const
{
    if (!localServer) {
        TLOG(100) << "Invalid ClientSocketManager instance";
        return 0;
    }
    return localServer->getServerPort();
}

bool TelvixPrivate::closeTcpServer()
{
    // The manager and its wiring stay for a later restart.
    if (localServer)
        localServer->closeServer();
    return true;
}

int TelvixPrivate::restartTcpServer()
{
    TLOG(1000) << "Restarting local TCP server";
    if (!localServer)
        return initTcpServer();
    // The same object again, so that the wiring stays as it was.
    localServer->closeServer();
    return localServer->initServer();
}

void TelvixPrivate::shutdownLocalServer()
{
    const auto release = [](ClientSocketManager* server) {
        QObject::disconnect(server, nullptr, nullptr, nullptr);
        server->closeServer();
        server->deleteLater();
    };
    if (localServer) {
        qDebug() << Q_FUNC_INFO << "Closing ClientSocketManager";
        release(localServer);
        localServer = nullptr;
    }
    for (const QPointer<ClientSocketManager>& replaced : qAsConst(replacedLocalServers)) {
        if (replaced)
            release(replaced);
    }
    replacedLocalServers.clear();
}
