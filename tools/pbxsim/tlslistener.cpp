#include "tlslistener.h"

#include <QFile>
#include <QSslSocket>

TlsListener::TlsListener(QObject* parent)
    : QTcpServer(parent)
{
}

bool TlsListener::setCertificate(const QString& certificatePath, const QString& keyPath, QString* error)
{
    const QList<QSslCertificate> certs = QSslCertificate::fromPath(certificatePath, QSsl::Pem);
    QFile keyFile(keyPath);
    if (certs.isEmpty() || !keyFile.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read the certificate %1 or the key %2").arg(certificatePath, keyPath);
        return false;
    }
    m_certificate = certs.first();
    m_key = QSslKey(&keyFile, QSsl::Rsa, QSsl::Pem);
    if (m_key.isNull()) {
        *error = QStringLiteral("%1 is not an unencrypted RSA key").arg(keyPath);
        return false;
    }
    return true;
}

void TlsListener::incomingConnection(qintptr descriptor)
{
    auto* socket = new QSslSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        delete socket;
        return;
    }
    socket->setLocalCertificate(m_certificate);
    socket->setPrivateKey(m_key);
    socket->setPeerVerifyMode(QSslSocket::VerifyNone);
    Q_EMIT connectionAccepted(socket);
    socket->startServerEncryption();
}
