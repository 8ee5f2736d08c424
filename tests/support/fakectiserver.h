#pragma once

#include <QAbstractSocket>
#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPair>
#include <QSsl>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class QSslSocket;
class QTimer;
class SimpleXmlParser;

/// \brief A scriptable CTI server for the tests: TLS on 127.0.0.1, a port
/// chosen by the system, and a self-signed certificate made at build time.
///
/// Every frame a client writes is cut with the library's own framing parser
/// (root "SRNT") and recorded per connection. Connections are numbered in the
/// order they were accepted, from 0; a closed connection keeps its number and
/// its recorded frames. The server lives on the thread that creates it and
/// works through that thread's event loop, so everything it does can be
/// waited for with QSignalSpy or QTRY_*.
///
/// The server never acknowledges anything by itself. Answers come from the
/// test: directly with send(), or through responders keyed by the element
/// that a client frame carries.
class FakeCtiServer : public QObject
{
    Q_OBJECT
public:
    /// How accepted connections are treated.
    enum class TlsMode {
        Normal, ///< TLS handshake as server
        RefuseTls, ///< answers with clear text and closes: the client's handshake fails
        SilentHandshake, ///< accepts TCP, reads and discards, never answers the handshake
    };
    Q_ENUM(TlsMode)

    /// What the canned login answer carries. Empty fields are left out of the
    /// document, except ExitCode, which is always written.
    struct LoginAnswer
    {
        int exitCode = 0;
        QString reason;
        QString exten = QStringLiteral("200");
        QString domain = QStringLiteral("default");
        QString capabilities = QStringLiteral("srnt_pro");
        QString ccRole;
        QStringList features;
        QString userUuid = QStringLiteral("3f1c2a7e-9b0d-4c55-8e21-5a6b7c8d9e0f");
        QString mobileNumber;
        QString chatId;
        QString chatPort;
        QString firstName = QStringLiteral("Alice");
        QString lastName = QStringLiteral("Tester");
        QString seenIpAddress;
        QString loginMessage;
        QString firmwareVersion;
        QString serialNumber;
        QString partNumber;
        /// A non-empty value adds a LoggedOff element: the login is refused.
        QString loggedOff;
        /// Ready-made XML appended inside the answer element.
        QString extraXml;
        /// The answer's element: "Authenticated", or "Login" for old servers.
        QString element = QStringLiteral("Authenticated");
    };

    /// Builds the text to send back for one client frame; an empty result
    /// sends nothing. The responder may also call send() itself.
    using Responder = std::function<QString(int conn, const QString& frame)>;

    explicit FakeCtiServer(QObject* parent = nullptr);
    ~FakeCtiServer() override;

    /// Starts listening on 127.0.0.1 at a port chosen by the system. False if
    /// the certificate cannot be loaded or the socket cannot listen.
    bool listen();
    /// Stops accepting; open connections stay.
    void close();
    quint16 port() const;
    static QString host() { return QStringLiteral("127.0.0.1"); }

    /// The build-time test certificate and key (PEM files).
    static QString certificatePath() { return QStringLiteral(TELVIX_TEST_CERT); }
    static QString keyPath() { return QStringLiteral(TELVIX_TEST_KEY); }

    /// Applies to connections accepted afterwards.
    void setTlsMode(TlsMode mode) { m_tlsMode = mode; }
    /// TLS versions offered to connections accepted afterwards.
    void setProtocol(QSsl::SslProtocol protocol) { m_protocol = protocol; }

    /// API version written into the documents the server makes itself
    /// (banner, canned answers). Default "6.1".
    void setApiVersion(const QString& api) { m_api = api; }

    // ---- connections ----------------------------------------------------

    /// Connections accepted so far, closed ones included.
    int connectionCount() const { return m_conns.size(); }
    /// Connections whose socket is still open.
    int openConnectionCount() const;
    /// Connections that finished the TLS handshake, closed ones included.
    int encryptedConnectionCount() const;
    bool isConnected(int conn) const;
    /// The last accepted connection, -1 when none.
    int lastConnection() const { return m_conns.size() - 1; }

    /// Orderly close, after the pieces still queued for it are written.
    void disconnectClient(int conn);
    /// Drops the connection at once; queued pieces are lost.
    void abortClient(int conn);
    /// Drops the connection with a TCP reset (RST) instead of an orderly FIN.
    void resetClient(int conn);
    void disconnectAll();

    // ---- what the clients sent ------------------------------------------

    /// Complete frames of one connection, in arrival order.
    QStringList receivedFrames(int conn) const { return framesContaining(QString(), conn); }
    /// Every raw byte read from one connection (after TLS).
    QByteArray receivedBytes(int conn) const;
    /// Frames of all connections, in arrival order, as (connection, frame).
    QList<QPair<int, QString>> allFrames() const { return m_frames; }
    /// Frames that carry the element `elementName` (as <name>, <name/> or
    /// <name ...>; empty: any); conn -1 means every connection.
    QStringList framesContaining(const QString& elementName, int conn = -1) const;
    /// Waits, running the event loop, for a frame carrying `elementName` that
    /// no earlier call has returned, and returns it; an empty string on
    /// timeout. Frames that arrived before the call count. `connOut`
    /// receives the frame's connection.
    QString waitForFrame(const QString& elementName, int timeoutMs = 5000, int* connOut = nullptr);
    /// Forgets all recorded frames and bytes (connections stay).
    void clearFrames();

    /// True when `frame` carries the element `elementName`.
    static bool hasElement(const QString& frame, const QString& elementName);

    // ---- sending ---------------------------------------------------------

    /// Writes `text` as UTF-8. False if the connection is unknown or closed.
    bool send(int conn, const QString& text) { return enqueue(conn, text.toUtf8(), {}); }
    bool sendRaw(int conn, const QByteArray& bytes) { return enqueue(conn, bytes, {}); }
    /// Writes the UTF-8 bytes of `text` in pieces cut at the given byte
    /// offsets (ascending, inside the text; a cut may fall inside a multibyte
    /// character). Each piece is flushed to the socket on its own, with a
    /// pause of the chunk interval between pieces so that the client can read
    /// them apart. Returns at once.
    bool sendSplit(int conn, const QString& text, const QList<int>& cutPositions);
    /// sendSplit at every `chunkSize` bytes.
    bool sendInChunks(int conn, const QString& text, int chunkSize);
    /// Whether pieces of a split send are still waiting for `conn`.
    bool isSending(int conn) const;

    /// Pause between the pieces of a split send, in milliseconds (default 2).
    void setChunkInterval(int ms) { m_chunkIntervalMs = ms; }

    /// Sends a banner on every connection as soon as the server side of its
    /// handshake is done, so that it arrives right behind the handshake. An
    /// empty `api` turns it off.
    void setBannerOnConnect(const QString& api) { m_bannerApi = api; }

    // ---- scripted answers ------------------------------------------------

    /// Answers every client frame that carries `elementName`. A later
    /// responder for the same element replaces the earlier one; responders
    /// of different elements that match one frame all run, in the order they
    /// were first set.
    void setResponder(const QString& elementName, Responder responder);

    /// Answers every "Login" with loginAnswerDocument(answer).
    void setAutoLogin(bool on);
    void setLoginAnswer(const LoginAnswer& answer) { m_loginAnswer = answer; }
    LoginAnswer loginAnswer() const { return m_loginAnswer; }
    /// Answers every "KeepAlive" with keepAliveAckDocument().
    void setAutoKeepAliveAck(bool on);

    // ---- documents as the server writes them -----------------------------

    /// A whole document: <SRNT><API/><UUID/><Timestamp/><family>body</family></SRNT>.
    /// An empty `uuid` makes a fresh one.
    static QString document(const QString& body, const QString& api = QStringLiteral("6.1"),
                            const QString& family = QStringLiteral("Response"),
                            const QString& uuid = QString());
    /// A banner: a document with MinAPI and API.
    static QString bannerDocument(const QString& api, const QString& minApi = QStringLiteral("4.0"));
    static QString loginAnswerDocument(const LoginAnswer& answer, const QString& api = QStringLiteral("6.1"));
    static QString loggedOffDocument(const QString& reason, const QString& api = QStringLiteral("6.1"));
    /// The keep-alive answer and the server's probe. Both are written as an
    /// open and a close tag: the client recognises them by "<KAACK>" and
    /// "<Probe>", which a self-closed element would not match.
    static QString keepAliveAckDocument(const QString& api = QStringLiteral("6.1"));
    static QString probeDocument(const QString& api = QStringLiteral("6.1"));
    static QString redirectDocument(const QString& ip, quint16 port,
                                    const QString& api = QStringLiteral("6.1"));
    /// `value` XML-escaped inside <name></name>.
    static QString textElement(const QString& name, const QString& value);
    /// The UUID of a document, empty if it has none.
    static QString uuidOf(const QString& xml);

Q_SIGNALS:
    void frameReceived(int conn, const QString& xml);

private:
    class Listener;
    struct Connection;

    void acceptDescriptor(qintptr descriptor);
    void onReadyRead(int conn);
    void onFrameCompleted(int conn);
    void onDisconnected(int conn);
    bool enqueue(int conn, const QByteArray& bytes, const QList<int>& cuts);
    void pump(int conn);
    Connection* connection(int conn) const;
    void removeResponder(const QString& elementName);

    std::unique_ptr<Listener> m_listener;
    QList<Connection*> m_conns;
    QList<QPair<int, QString>> m_frames;
    QList<bool> m_frameTaken;
    QList<QPair<QString, Responder>> m_responders;
    QSslCertificate m_certificate;
    QSslKey m_key;
    TlsMode m_tlsMode = TlsMode::Normal;
    QSsl::SslProtocol m_protocol = QSsl::SecureProtocols;
    QString m_api = QStringLiteral("6.1");
    QString m_bannerApi;
    LoginAnswer m_loginAnswer;
    int m_chunkIntervalMs = 2;
};
