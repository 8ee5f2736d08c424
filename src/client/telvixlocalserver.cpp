// The local server: a loopback port on which one application receives the
// library's events as XML.
#include "clientsocketmanager.h"
#include "publishedevents_p.h"
#include "telvix_p.h"

namespace {

// The chat receipts name the local server current at each event, so that the
// wiring of a replaced server still reaches the new one.
class ReceiptForwarder : public QObject
{
    Q_OBJECT
public:
    ReceiptForwarder(TelvixPrivate* d, QObject* parent)
        : QObject(parent)
        , m_d(d)
    {
    }

public Q_SLOTS:
    void forward(const QString& who)
    {
        const int signal = senderSignalIndex();
        for (const PublishedEvents::Row* row = PublishedEvents::begin(); row != PublishedEvents::end();
             ++row) {
            if (row->receipt && PublishedEvents::signalOf(*row).methodIndex() == signal)
                m_d->sendChatMessageEvent(who, QString::fromLatin1(row->receipt));
        }
    }

private:
    TelvixPrivate* m_d;
};

} // namespace

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
    ReceiptForwarder* receipts = nullptr;
    for (const PublishedEvents::Row* row = PublishedEvents::begin(); row != PublishedEvents::end(); ++row) {
        const QByteArray signal = QByteArray::number(QSIGNAL_CODE) + row->signal;
        QMetaObject::Connection connection;
        if (row->receipt) {
            if (!receipts)
                receipts = new ReceiptForwarder(this, manager);
            connection = QObject::connect(q, signal.constData(), receipts, SLOT(forward(QString)));
        } else {
            const QByteArray slot = QByteArray::number(QSLOT_CODE) + row->localServerSlot;
            connection = QObject::connect(q, signal.constData(), manager, slot.constData());
        }
        if (row->checked && !connection)
            connected = false;
    }

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

#include "telvixlocalserver.moc"
