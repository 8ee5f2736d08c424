#pragma once

#include <QObject>
#include <QString>

#include <memory>

class PbxSimulator;
class QSslSocket;
class QTextDecoder;
class QTimer;
class SimpleXmlParser;
class SXmlMessage;

/// \brief One client connection of the simulator: TLS socket, framing,
/// login, keep-alive and probes. Everything else a logged-in client asks is
/// answered by the simulator's request table.
///
/// The server acknowledges nothing: acknowledgements go from client to
/// server, and this side takes them silently.
class SimSession : public QObject
{
    Q_OBJECT
public:
    SimSession(QSslSocket* socket, PbxSimulator& simulator, QObject* parent = nullptr);
    ~SimSession() override;

    bool isLoggedIn() const { return !m_exten.isEmpty(); }
    /// The logged-in extension, empty before the login.
    QString exten() const { return m_exten; }
    /// "address:port" of the client.
    QString peer() const;

    /// Writes one message in the simulator's API version.
    void send(SXmlMessage& message);
    /// Answers `request` with an "Error" report.
    void sendError(const QString& reason, const QString& request);
    /// Closes the connection once everything queued is written.
    void close();
    /// Drops the connection at once, without a goodbye, as a crash would.
    void drop();

    /// The element that names what a client document asks for: the first
    /// element inside "Request" (after an access token) or "Info".
    static QString requestElement(const QString& xml);

Q_SIGNALS:
    void closed(SimSession* session);

private:
    void onEncrypted();
    void onReadyRead();
    void onFramesReady();
    void onDisconnected();
    void handle(const QString& xml);
    void login(const QString& xml);
    void refuseLogin(int exitCode, const QString& reason, const QString& user);

    QSslSocket* m_socket;
    PbxSimulator& m_sim;
    SimpleXmlParser* m_parser;
    std::unique_ptr<QTextDecoder> m_decoder;
    QTimer* m_probeTimer;
    QString m_exten;
    bool m_closed = false;
};
