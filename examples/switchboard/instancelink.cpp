#include "instancelink.h"

#include <QLocalSocket>

namespace {
// One line each way: the link, then "ok" once it is taken.
constexpr int WaitMs = 3000;
} // namespace

InstanceLink::InstanceLink(const QString& name, QObject* parent)
    : QObject(parent)
    , m_name(name)
{
    // Only this desktop user may hand over links.
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &InstanceLink::onConnection);
}

QString InstanceLink::defaultName()
{
    return QStringLiteral("telvix-switchboard-") + qEnvironmentVariable("USER", QStringLiteral("user"));
}

bool InstanceLink::handOver(const QString& name, const QString& uri)
{
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(WaitMs))
        return false;
    socket.write(uri.toUtf8() + '\n');
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(WaitMs))
            return false;
    }
    return socket.readLine().trimmed() == "ok";
}

bool InstanceLink::listen()
{
    if (m_server.listen(m_name))
        return true;
    QLocalServer::removeServer(m_name);
    return m_server.listen(m_name);
}

void InstanceLink::onConnection()
{
    while (QLocalSocket* socket = m_server.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine())
                return;
            const QString uri = QString::fromUtf8(socket->readLine()).trimmed();
            socket->write("ok\n");
            socket->disconnectFromServer();
            Q_EMIT uriReceived(uri);
        });
    }
}
