#pragma once

#include <QSslCertificate>
#include <QSslKey>
#include <QTcpServer>

class QSslSocket;

/// \brief Accepts TCP connections and starts the server side of TLS on each
/// with the simulator's certificate.
class TlsListener : public QTcpServer
{
    Q_OBJECT
public:
    explicit TlsListener(QObject* parent = nullptr);

    /// Reads the PEM certificate and its unencrypted RSA key.
    bool setCertificate(const QString& certificatePath, const QString& keyPath, QString* error);

Q_SIGNALS:
    /// A connection whose handshake has started; the receiver owns it.
    void connectionAccepted(QSslSocket* socket);

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    QSslCertificate m_certificate;
    QSslKey m_key;
};
