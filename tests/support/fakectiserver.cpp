#include "fakectiserver.h"

#include "simplexmlparser.h"

#include <QDateTime>
#include <QEventLoop>
#include <QFile>
#include <QRegularExpression>
#include <QSslSocket>
#include <QTcpServer>
#include <QTextCodec>
#include <QTextDecoder>
#include <QTimer>
#include <QUuid>

#include <algorithm>

#include <sys/socket.h>

// Only the listening part: every accepted descriptor goes straight to the
// owner, which wraps it in a QSslSocket.
class FakeCtiServer::Listener : public QTcpServer
{
public:
    std::function<void(qintptr)> accept;

protected:
    void incomingConnection(qintptr descriptor) override { accept(descriptor); }
};

struct FakeCtiServer::Connection
{
    QSslSocket* socket = nullptr;
    SimpleXmlParser* parser = nullptr;
    // Stateful, so that a character split between two reads is not lost.
    std::unique_ptr<QTextDecoder> decoder;
    QTimer* pumpTimer = nullptr;
    QByteArray bytes;
    QList<QByteArray> queue;
    bool open = false;
    bool encrypted = false;
    bool closeAfterQueue = false;
    // An answer flushed from a responder can make the socket read again,
    // inside the read that ran the responder: that read takes the new bytes.
    bool reading = false;
    bool readAgain = false;
};

FakeCtiServer::FakeCtiServer(QObject* parent)
    : QObject(parent)
    , m_listener(new Listener)
{
    m_listener->accept = [this](qintptr descriptor) { acceptDescriptor(descriptor); };
}

FakeCtiServer::~FakeCtiServer()
{
    m_listener->close();
    for (Connection* c : qAsConst(m_conns)) {
        if (c->socket) {
            c->socket->disconnect(this);
            c->socket->abort();
        }
        if (c->parser)
            c->parser->disconnect(this);
        delete c;
    }
    m_conns.clear();
}

bool FakeCtiServer::listen()
{
    if (m_certificate.isNull()) {
        const QList<QSslCertificate> certs = QSslCertificate::fromPath(certificatePath(), QSsl::Pem);
        m_certificate = certs.value(0);
        QFile keyFile(keyPath());
        if (keyFile.open(QIODevice::ReadOnly))
            m_key = QSslKey(&keyFile, QSsl::Rsa, QSsl::Pem);
    }
    if (m_certificate.isNull() || m_key.isNull()) {
        qWarning("FakeCtiServer: cannot load the test certificate %s or key %s",
                 qPrintable(certificatePath()), qPrintable(keyPath()));
        return false;
    }
    if (!QSslSocket::supportsSsl()) {
        qWarning("FakeCtiServer: no TLS support in this Qt");
        return false;
    }
    if (m_listener->isListening())
        return true;
    if (!m_listener->listen(QHostAddress::LocalHost, 0)) {
        qWarning("FakeCtiServer: listen failed: %s", qPrintable(m_listener->errorString()));
        return false;
    }
    return true;
}

void FakeCtiServer::close()
{
    m_listener->close();
}

quint16 FakeCtiServer::port() const
{
    return m_listener->serverPort();
}

FakeCtiServer::Connection* FakeCtiServer::connection(int conn) const
{
    return conn >= 0 && conn < m_conns.size() ? m_conns.at(conn) : nullptr;
}

void FakeCtiServer::acceptDescriptor(qintptr descriptor)
{
    const int idx = m_conns.size();
    auto* c = new Connection;
    m_conns.append(c);

    c->socket = new QSslSocket(this);
    if (!c->socket->setSocketDescriptor(descriptor)) {
        qWarning("FakeCtiServer: cannot take the accepted socket: %s", qPrintable(c->socket->errorString()));
        return;
    }
    c->open = true;
    c->decoder.reset(QTextCodec::codecForName("UTF-8")->makeDecoder());
    c->parser = new SimpleXmlParser(this);
    c->parser->rootTag = QStringLiteral("SRNT");
    c->pumpTimer = new QTimer(this);
    c->pumpTimer->setSingleShot(true);
    c->pumpTimer->setTimerType(Qt::PreciseTimer);

    connect(c->pumpTimer, &QTimer::timeout, this, [this, idx] { pump(idx); });
    connect(c->parser, &SimpleXmlParser::messageCompleted, this, [this, idx] { onFrameCompleted(idx); });
    connect(c->socket, &QSslSocket::readyRead, this, [this, idx] { onReadyRead(idx); });
    connect(c->socket, &QSslSocket::disconnected, this, [this, idx] { onDisconnected(idx); });
    connect(c->socket, &QSslSocket::encrypted, this, [this, idx] {
        m_conns.at(idx)->encrypted = true;
        if (!m_bannerApi.isEmpty())
            send(idx, bannerDocument(m_bannerApi));
    });

    switch (m_tlsMode) {
    case TlsMode::Normal:
        c->socket->setLocalCertificate(m_certificate);
        c->socket->setPrivateKey(m_key);
        c->socket->setPeerVerifyMode(QSslSocket::VerifyNone);
        c->socket->setProtocol(m_protocol);
        c->socket->startServerEncryption();
        break;
    case TlsMode::RefuseTls:
        // Clear text where a ServerHello belongs: the client's handshake fails.
        c->socket->write("SRNT plain text only\r\n");
        c->socket->disconnectFromHost();
        break;
    case TlsMode::SilentHandshake:
        break;
    }
}

void FakeCtiServer::onReadyRead(int conn)
{
    Connection* c = connection(conn);
    if (!c || !c->socket)
        return;
    if (c->reading) {
        c->readAgain = true;
        return;
    }
    c->reading = true;
    do {
        c->readAgain = false;
        const QByteArray bytes = c->socket->readAll();
        if (bytes.isEmpty())
            continue;
        c->bytes += bytes;
        const QString text = c->decoder->toUnicode(bytes);
        if (!text.isEmpty())
            c->parser->addData(text);
        c = connection(conn);
    } while (c && c->socket && c->readAgain);
    if (c)
        c->reading = false;
}

void FakeCtiServer::onFrameCompleted(int conn)
{
    Connection* c = connection(conn);
    if (!c)
        return;
    while (c->parser->hasPendingMessages()) {
        const QString frame = c->parser->getNextMessage();
        m_frames.append(qMakePair(conn, frame));
        m_frameTaken.append(false);

        // Answer first, so that whoever sees the frame also sees the answer on its way.
        const QList<QPair<QString, Responder>> responders = m_responders;
        for (const auto& r : responders) {
            if (!hasElement(frame, r.first))
                continue;
            const QString reply = r.second(conn, frame);
            if (!reply.isEmpty())
                send(conn, reply);
        }
        Q_EMIT frameReceived(conn, frame);
    }
}

void FakeCtiServer::onDisconnected(int conn)
{
    Connection* c = connection(conn);
    if (!c || !c->open)
        return;
    c->open = false;
    c->pumpTimer->stop();
    c->queue.clear();
}

int FakeCtiServer::openConnectionCount() const
{
    return int(std::count_if(m_conns.cbegin(), m_conns.cend(), [](const Connection* c) { return c->open; }));
}

int FakeCtiServer::encryptedConnectionCount() const
{
    return int(
        std::count_if(m_conns.cbegin(), m_conns.cend(), [](const Connection* c) { return c->encrypted; }));
}

bool FakeCtiServer::isConnected(int conn) const
{
    return connection(conn) && connection(conn)->open;
}

void FakeCtiServer::disconnectClient(int conn)
{
    Connection* c = connection(conn);
    if (!c || !c->open)
        return;
    if (!c->queue.isEmpty())
        c->closeAfterQueue = true;
    else
        c->socket->disconnectFromHost();
}

void FakeCtiServer::abortClient(int conn)
{
    Connection* c = connection(conn);
    if (!c || !c->open)
        return;
    c->pumpTimer->stop();
    c->queue.clear();
    c->socket->abort();
    // abort() reports disconnected() only from a connected state.
    onDisconnected(conn);
}

void FakeCtiServer::resetClient(int conn)
{
    Connection* c = connection(conn);
    if (!c || !c->open)
        return;
    // A zero linger time makes close() send RST and drop unsent data.
    const linger noLinger {1, 0};
    ::setsockopt(int(c->socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &noLinger, sizeof noLinger);
    abortClient(conn);
}

void FakeCtiServer::disconnectAll()
{
    for (int i = 0; i < m_conns.size(); ++i)
        disconnectClient(i);
}

QByteArray FakeCtiServer::receivedBytes(int conn) const
{
    return connection(conn) ? connection(conn)->bytes : QByteArray();
}

bool FakeCtiServer::hasElement(const QString& frame, const QString& elementName)
{
    // "<name" followed by white space, "/" or ">". A plain search: this runs
    // for every frame and every responder, and a regular expression compiled
    // each time made the server slower than the client under load.
    const QString open = QLatin1Char('<') + elementName;
    for (int at = frame.indexOf(open); at >= 0; at = frame.indexOf(open, at + 1)) {
        const int next = at + open.size();
        if (next >= frame.size())
            return false;
        if (QStringView(u"/> \t\n\r\f\v").contains(frame.at(next)))
            return true;
    }
    return false;
}

QStringList FakeCtiServer::framesContaining(const QString& elementName, int conn) const
{
    QStringList result;
    for (const auto& f : m_frames) {
        if ((conn < 0 || f.first == conn) && (elementName.isEmpty() || hasElement(f.second, elementName)))
            result.append(f.second);
    }
    return result;
}

QString FakeCtiServer::waitForFrame(const QString& elementName, int timeoutMs, int* connOut)
{
    const auto findUntaken = [this, &elementName] {
        for (int i = 0; i < m_frames.size(); ++i) {
            if (!m_frameTaken.at(i) && hasElement(m_frames.at(i).second, elementName))
                return i;
        }
        return -1;
    };

    int found = findUntaken();
    if (found < 0) {
        QEventLoop loop;
        QTimer timeout;
        timeout.setSingleShot(true);
        connect(&timeout, &QTimer::timeout, &loop, &QEventLoop::quit);
        connect(this, &FakeCtiServer::frameReceived, &loop, [&loop, &elementName](int, const QString& xml) {
            if (hasElement(xml, elementName))
                loop.quit();
        });
        timeout.start(timeoutMs);
        loop.exec();
        found = findUntaken();
    }
    if (found < 0)
        return QString();
    m_frameTaken[found] = true;
    if (connOut)
        *connOut = m_frames.at(found).first;
    return m_frames.at(found).second;
}

void FakeCtiServer::clearFrames()
{
    m_frames.clear();
    m_frameTaken.clear();
    for (Connection* c : qAsConst(m_conns))
        c->bytes.clear();
}

bool FakeCtiServer::sendSplit(int conn, const QString& text, const QList<int>& cutPositions)
{
    return enqueue(conn, text.toUtf8(), cutPositions);
}

bool FakeCtiServer::sendInChunks(int conn, const QString& text, int chunkSize)
{
    if (chunkSize <= 0)
        return false;
    const int size = text.toUtf8().size();
    QList<int> cuts;
    for (int pos = chunkSize; pos < size; pos += chunkSize)
        cuts.append(pos);
    return sendSplit(conn, text, cuts);
}

bool FakeCtiServer::isSending(int conn) const
{
    return connection(conn) && !connection(conn)->queue.isEmpty();
}

bool FakeCtiServer::enqueue(int conn, const QByteArray& bytes, const QList<int>& cuts)
{
    Connection* c = connection(conn);
    if (!c || !c->open)
        return false;

    int from = 0;
    for (int cut : cuts) {
        if (cut <= from || cut >= bytes.size())
            continue;
        c->queue.append(bytes.mid(from, cut - from));
        from = cut;
    }
    c->queue.append(bytes.mid(from));

    // Whatever is already waiting keeps its place; otherwise the first piece goes now.
    if (!c->pumpTimer->isActive())
        pump(conn);
    return true;
}

void FakeCtiServer::pump(int conn)
{
    Connection* c = connection(conn);
    if (!c || !c->open || c->queue.isEmpty())
        return;

    const QByteArray piece = c->queue.takeFirst();
    c->socket->write(piece);
    c->socket->flush();
    if (!c->queue.isEmpty()) {
        c->pumpTimer->start(m_chunkIntervalMs);
    } else if (c->closeAfterQueue) {
        c->closeAfterQueue = false;
        c->socket->disconnectFromHost();
    }
}

void FakeCtiServer::setResponder(const QString& elementName, Responder responder)
{
    for (auto& r : m_responders) {
        if (r.first == elementName) {
            r.second = std::move(responder);
            return;
        }
    }
    m_responders.append(qMakePair(elementName, std::move(responder)));
}

void FakeCtiServer::removeResponder(const QString& elementName)
{
    m_responders.erase(
        std::remove_if(m_responders.begin(), m_responders.end(),
                       [&elementName](const QPair<QString, Responder>& r) { return r.first == elementName; }),
        m_responders.end());
}

void FakeCtiServer::setAutoLogin(bool on)
{
    on ? setResponder(QStringLiteral("Login"),
                      [this](int, const QString&) { return loginAnswerDocument(m_loginAnswer, m_api); })
       : removeResponder(QStringLiteral("Login"));
}

void FakeCtiServer::setAutoKeepAliveAck(bool on)
{
    on ? setResponder(QStringLiteral("KeepAlive"),
                      [this](int, const QString&) { return keepAliveAckDocument(m_api); })
       : removeResponder(QStringLiteral("KeepAlive"));
}

namespace {

// `inner` as it stands inside <name></name>.
QString wrap(const QString& name, const QString& inner)
{
    return QLatin1Char('<') + name + QLatin1Char('>') + inner + QLatin1String("</") + name + QLatin1Char('>');
}

} // namespace

QString FakeCtiServer::textElement(const QString& name, const QString& value)
{
    return wrap(name, value.toHtmlEscaped());
}

QString FakeCtiServer::document(const QString& body, const QString& api, const QString& family,
                                const QString& uuid)
{
    const QString id = uuid.isEmpty() ? QUuid::createUuid().toString(QUuid::WithBraces) : uuid;
    const QString stamp = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzz"));
    QString xml = QLatin1String("<SRNT>") + textElement(QStringLiteral("API"), api)
        + textElement(QStringLiteral("UUID"), id) + textElement(QStringLiteral("Timestamp"), stamp);
    return xml + (family.isEmpty() ? body : wrap(family, body)) + QLatin1String("</SRNT>");
}

QString FakeCtiServer::bannerDocument(const QString& api, const QString& minApi)
{
    return document(textElement(QStringLiteral("MinAPI"), minApi), api, QStringLiteral("Info"));
}

QString FakeCtiServer::loginAnswerDocument(const LoginAnswer& a, const QString& api)
{
    QString body = textElement(QStringLiteral("ExitCode"), QString::number(a.exitCode));
    const QPair<const char*, QString> fields[] = {{"Reason", a.reason},
                                                  {"Exten", a.exten},
                                                  {"Domain", a.domain},
                                                  {"Capabilities", a.capabilities},
                                                  {"CcRole", a.ccRole},
                                                  {"Features", a.features.join(QLatin1Char(','))},
                                                  {"UserUuid", a.userUuid},
                                                  {"MobileNumber", a.mobileNumber},
                                                  {"ChatID", a.chatId},
                                                  {"ChatPort", a.chatPort},
                                                  {"FirstName", a.firstName},
                                                  {"LastName", a.lastName},
                                                  {"SeenIpAddress", a.seenIpAddress},
                                                  {"LoginMessage", a.loginMessage},
                                                  {"VantorFirmwareVersion", a.firmwareVersion},
                                                  {"VantorSerialNumber", a.serialNumber},
                                                  {"VantorPartNumber", a.partNumber},
                                                  {"LoggedOff", a.loggedOff}};
    for (const auto& field : fields) {
        if (!field.second.isEmpty())
            body += textElement(QLatin1String(field.first), field.second);
    }
    return document(wrap(a.element, body + a.extraXml), api);
}

QString FakeCtiServer::loggedOffDocument(const QString& reason, const QString& api)
{
    return document(wrap(QStringLiteral("LoggedOff"), textElement(QStringLiteral("Reason"), reason)), api);
}

QString FakeCtiServer::keepAliveAckDocument(const QString& api)
{
    return document(QStringLiteral("<KAACK></KAACK>"), api, QStringLiteral("Info"));
}

QString FakeCtiServer::probeDocument(const QString& api)
{
    return document(QStringLiteral("<Probe></Probe>"), api, QStringLiteral("Info"));
}

QString FakeCtiServer::redirectDocument(const QString& ip, quint16 port, const QString& api)
{
    return document(wrap(QStringLiteral("RedirectConnection"),
                         textElement(QStringLiteral("ServerIp"), ip)
                             + textElement(QStringLiteral("ServerPort"), QString::number(port))),
                    api);
}

QString FakeCtiServer::uuidOf(const QString& xml)
{
    static const QRegularExpression re(QStringLiteral("<UUID>(.*?)</UUID>"));
    const QRegularExpressionMatch m = re.match(xml);
    return m.hasMatch() ? m.captured(1) : QString();
}
