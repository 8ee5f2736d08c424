#include "telvixwebbridge.h"

#include "jsonconvert.h"
#include "phonebook.h"
#include "publishedevents_p.h"
#include "telephoneuri.h"
#include "telvix.h"

#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QPointer>
#include <QRandomGenerator>
#include <QTimer>
#include <QVector>
#include <QWebSocket>
#include <QWebSocketServer>

#include <algorithm>
#include <functional>

Q_LOGGING_CATEGORY(lcWebBridge, "telvix.webbridge")

namespace {

constexpr auto PolicyViolated = QWebSocketProtocol::CloseCodePolicyViolated;
constexpr auto TooMuchData = QWebSocketProtocol::CloseCodeTooMuchData;
// A page that does not answer our close frame is dropped after this long.
constexpr int CloseGraceMs = 2000;

// Compares in a time that depends on the expected token's length only.
bool sameToken(const QByteArray& expected, const QByteArray& given)
{
    uint diff = uint(expected.size() ^ given.size());
    for (int i = 0; i < expected.size(); ++i)
        diff |= uchar(expected.at(i)) ^ uchar(given.isEmpty() ? 0 : given.at(i % given.size()));
    return diff == 0 && !expected.isEmpty();
}

QString compactJson(const QJsonValue& value)
{
    if (value.isObject())
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    if (value.isArray())
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
    // Scalars: an array of one, unwrapped.
    const QByteArray text = QJsonDocument(QJsonArray {value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(text.mid(1, text.size() - 2));
}

// A number as the library hands out a caller's: typed punctuation and the
// country's own prefix removed, then the PBX's line prefix.
QString numberKey(const QString& number, const QString& linePrefix)
{
    const QString purified = Telvix::purifyOutgoingNumber(number);
    if (!linePrefix.isEmpty() && purified.startsWith(linePrefix))
        return purified.mid(linePrefix.size());
    return purified;
}

bool hasNumber(const PhoneBookEntry& entry, const QString& wanted, const QString& linePrefix)
{
    QStringList numbers {entry.extenNumber, entry.workNumber, entry.mobileNumber, entry.homeNumber};
    for (const ContactEntry& contact : entry.contacts) {
        if (contact.kind == PHONEBOOK::CTYPE_KIND_PHONE || contact.kind == PHONEBOOK::CTYPE_KIND_EXTEN)
            numbers.append(contact.value);
    }
    for (const QString& number : qAsConst(numbers)) {
        if (!number.isEmpty() && numberKey(number, linePrefix) == wanted)
            return true;
    }
    return false;
}

} // namespace

// Receives every published signal of Telvix through the meta-object system:
// slot k of this object takes row k of the table. Across threads the
// connection is queued, so the records are turned into JSON here and not on
// the library's thread.
class WebBridgeEventTap : public QObject
{
public:
    using Handler = std::function<void(const QMetaMethod& signal, void** argv)>;

    WebBridgeEventTap(Telvix* source, Handler handler, QObject* parent)
        : QObject(parent)
        , m_handler(std::move(handler))
    {
        const int firstSlot = QObject::staticMetaObject.methodCount();
        for (const PublishedEvents::Row* row = PublishedEvents::begin(); row != PublishedEvents::end();
             ++row) {
            const QMetaMethod signal = PublishedEvents::signalOf(*row);
            QMetaObject::connect(source, signal.methodIndex(), this, firstSlot + m_signals.size());
            m_signals.append(signal);
        }
    }

    int qt_metacall(QMetaObject::Call call, int id, void** argv) override
    {
        id = QObject::qt_metacall(call, id, argv);
        if (id < 0 || call != QMetaObject::InvokeMetaMethod)
            return id;
        if (id < m_signals.size())
            m_handler(m_signals.at(id), argv);
        return id - m_signals.size();
    }

private:
    QVector<QMetaMethod> m_signals;
    Handler m_handler;
};

struct WebPage
{
    QPointer<QWebSocket> socket;
    QString peer;
    QString origin;
    bool paired = false;
    bool closing = false;
    quint64 seq = 0;
    int commandsInWindow = 0;
    QElapsedTimer window;
};

// A command waiting for the cached phone books.
struct BookRequest
{
    QPointer<QWebSocket> socket;
    QJsonValue id;
    QString command;
    QString number;
};

class TelvixWebBridgePrivate
{
public:
    using Answer = std::function<void(const QJsonValue& result, const QString& error)>;

    TelvixWebBridgePrivate(TelvixWebBridge* q, Telvix* source)
        : q_ptr(q)
        , telvix(source)
    {
    }

    void accept();
    void handleText(WebPage* page, const QString& text);
    void runCommand(WebPage* page, const QJsonObject& command, const QJsonValue& id);
    void publish(const QMetaMethod& signal, void** argv);
    void answerBookRequests(const QList<PhoneBook>& books);
    void send(WebPage* page, const QString& text);
    void answer(WebPage* page, const QJsonValue& id, const QJsonValue& result);
    void fail(WebPage* page, const QJsonValue& id, const QString& reason);
    void refuse(WebPage* page, QWebSocketProtocol::CloseCode code, const QString& reason);
    WebPage* pageOf(const QWebSocket* socket);
    void forget(QWebSocket* socket);

    TelvixWebBridge* q_ptr;
    Q_DECLARE_PUBLIC(TelvixWebBridge)
    Telvix* telvix;
    QWebSocketServer* server = nullptr;
    WebBridgeEventTap* tap = nullptr;
    QList<WebPage*> pages;
    QList<BookRequest> bookRequests;
    QStringList allowedOrigins;
    QString token;
    qint64 maxMessageSize = TelvixWebBridge::DefaultMaxMessageSize;
    int maxCommandsPerSecond = TelvixWebBridge::DefaultMaxCommandsPerSecond;
    int maxConnections = TelvixWebBridge::DefaultMaxConnections;
    qint64 maxPendingBytes = TelvixWebBridge::DefaultMaxPendingBytes;
    int pairingTimeout = TelvixWebBridge::DefaultPairingTimeoutMs;
};

TelvixWebBridge::TelvixWebBridge(Telvix* telvix, QObject* parent)
    : QObject(parent)
    , d_ptr(new TelvixWebBridgePrivate(this, telvix))
{
    Q_D(TelvixWebBridge);
    d->token = generatePairingToken();
    d->tap = new WebBridgeEventTap(
        telvix, [d](const QMetaMethod& signal, void** argv) { d->publish(signal, argv); }, this);
    connect(telvix, &Telvix::sigPhonebookChanged, this,
            [d](const QList<PhoneBook>& books) { d->answerBookRequests(books); });
}

TelvixWebBridge::~TelvixWebBridge()
{
    close();
}

bool TelvixWebBridge::listen(quint16 port)
{
    Q_D(TelvixWebBridge);
    if (!d->server) {
        d->server = new QWebSocketServer(QStringLiteral("telvix"), QWebSocketServer::NonSecureMode, this);
        connect(d->server, &QWebSocketServer::newConnection, this, [d] { d->accept(); });
    }
    if (d->server->isListening())
        return true;
    if (!d->server->listen(QHostAddress::LocalHost, port)) {
        qCWarning(lcWebBridge).noquote() << "Web bridge cannot listen:" << d->server->errorString();
        return false;
    }
    return true;
}

quint16 TelvixWebBridge::serverPort() const
{
    Q_D(const TelvixWebBridge);
    return d->server && d->server->isListening() ? d->server->serverPort() : 0;
}

void TelvixWebBridge::close()
{
    Q_D(TelvixWebBridge);
    if (d->server)
        d->server->close();
    const QList<WebPage*> pages = d->pages;
    for (WebPage* page : pages) {
        if (page->socket) {
            page->socket->disconnect(this);
            page->socket->abort();
            page->socket->deleteLater();
        }
        delete page;
    }
    d->pages.clear();
    d->bookRequests.clear();
}

void TelvixWebBridge::setAllowedOrigins(const QStringList& origins)
{
    d_func()->allowedOrigins = origins;
}

QStringList TelvixWebBridge::allowedOrigins() const
{
    return d_func()->allowedOrigins;
}

QString TelvixWebBridge::generatePairingToken()
{
    QByteArray bytes(PairingTokenBytes, Qt::Uninitialized);
    QRandomGenerator::system()->generate(bytes.begin(), bytes.end());
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

bool TelvixWebBridge::setPairingToken(const QString& token)
{
    if (token.size() < MinPairingTokenLength) {
        qCWarning(lcWebBridge) << "Web bridge pairing token refused: shorter than" << MinPairingTokenLength;
        return false;
    }
    d_func()->token = token;
    return true;
}

QString TelvixWebBridge::pairingToken() const
{
    return d_func()->token;
}

void TelvixWebBridge::setMaxMessageSize(qint64 bytes)
{
    d_func()->maxMessageSize = bytes;
}

qint64 TelvixWebBridge::maxMessageSize() const
{
    return d_func()->maxMessageSize;
}

void TelvixWebBridge::setMaxCommandsPerSecond(int count)
{
    d_func()->maxCommandsPerSecond = count;
}

int TelvixWebBridge::maxCommandsPerSecond() const
{
    return d_func()->maxCommandsPerSecond;
}

void TelvixWebBridge::setMaxConnections(int count)
{
    d_func()->maxConnections = count;
}

int TelvixWebBridge::maxConnections() const
{
    return d_func()->maxConnections;
}

void TelvixWebBridge::setMaxPendingBytes(qint64 bytes)
{
    d_func()->maxPendingBytes = bytes;
}

qint64 TelvixWebBridge::maxPendingBytes() const
{
    return d_func()->maxPendingBytes;
}

void TelvixWebBridge::setPairingTimeout(int ms)
{
    d_func()->pairingTimeout = ms;
}

int TelvixWebBridge::pairingTimeout() const
{
    return d_func()->pairingTimeout;
}

int TelvixWebBridge::pageCount() const
{
    return d_func()->pages.size();
}

// ---- connections ---------------------------------------------------------

void TelvixWebBridgePrivate::accept()
{
    Q_Q(TelvixWebBridge);
    while (QWebSocket* socket = server->nextPendingConnection()) {
        socket->setParent(q);
        auto* page = new WebPage;
        page->socket = socket;
        page->peer = QStringLiteral("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort());
        page->origin = socket->origin();
        page->window.start();
        const int open
            = int(std::count_if(pages.cbegin(), pages.cend(), [](const WebPage* p) { return !p->closing; }));
        pages.append(page);

        // Qt refuses longer messages itself, with 1009; the reason is ours.
        socket->setMaxAllowedIncomingMessageSize(quint64(maxMessageSize));
        socket->setMaxAllowedIncomingFrameSize(quint64(maxMessageSize));
        QObject::connect(socket, &QWebSocket::textMessageReceived, q, [this, socket](const QString& text) {
            if (WebPage* p = pageOf(socket))
                handleText(p, text);
        });
        QObject::connect(socket, &QWebSocket::binaryMessageReceived, q, [this, socket](const QByteArray&) {
            if (WebPage* p = pageOf(socket))
                handleText(p, QString());
        });
        QObject::connect(socket, &QWebSocket::disconnected, q, [this, socket] {
            WebPage* p = pageOf(socket);
            if (p && !p->closing && socket->closeCode() == TooMuchData)
                refuse(p, TooMuchData, QStringLiteral("message too big"));
            forget(socket);
        });

        if (!allowedOrigins.contains(page->origin)) {
            refuse(page, PolicyViolated, QStringLiteral("origin not allowed"));
        } else if (open >= maxConnections) {
            refuse(page, PolicyViolated, QStringLiteral("too many connections"));
        } else {
            QTimer::singleShot(pairingTimeout, socket, [this, socket] {
                WebPage* p = pageOf(socket);
                if (p && !p->paired)
                    refuse(p, PolicyViolated, QStringLiteral("pairing timed out"));
            });
        }
    }
}

WebPage* TelvixWebBridgePrivate::pageOf(const QWebSocket* socket)
{
    for (WebPage* page : qAsConst(pages)) {
        if (page->socket == socket)
            return page;
    }
    return nullptr;
}

void TelvixWebBridgePrivate::forget(QWebSocket* socket)
{
    for (int i = 0; i < pages.size(); ++i) {
        if (pages.at(i)->socket == socket) {
            delete pages.takeAt(i);
            break;
        }
    }
    socket->deleteLater();
}

void TelvixWebBridgePrivate::refuse(WebPage* page, QWebSocketProtocol::CloseCode code, const QString& reason)
{
    Q_Q(TelvixWebBridge);
    if (page->closing)
        return;
    page->closing = true;
    page->paired = false;
    qCWarning(lcWebBridge).noquote() << QStringLiteral(
                                            "Web bridge closed page %1 (origin \"%2\"): %3, code %4")
                                            .arg(page->peer, page->origin, reason)
                                            .arg(int(code));
    Q_EMIT q->pageClosed(page->peer, page->origin, reason);
    QWebSocket* socket = page->socket;
    if (!socket)
        return;
    if (socket->state() == QAbstractSocket::ConnectedState)
        socket->close(code, reason);
    // A page that neither reads nor answers the close frame is cut off.
    QTimer::singleShot(CloseGraceMs, socket, [socket] { socket->abort(); });
}

// ---- messages from pages -------------------------------------------------

void TelvixWebBridgePrivate::handleText(WebPage* page, const QString& text)
{
    if (page->closing)
        return;
    if (page->window.elapsed() >= 1000) {
        page->window.restart();
        page->commandsInWindow = 0;
    }
    if (++page->commandsInWindow > maxCommandsPerSecond) {
        refuse(page, PolicyViolated, QStringLiteral("too many commands"));
        return;
    }

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &parseError);
    const QJsonObject command = document.object();
    const QJsonValue id = command.value(QLatin1String("id"));
    const QString name = command.value(QLatin1String("command")).toString();

    if (!page->paired) {
        if (name != QLatin1String("pair")) {
            refuse(page, PolicyViolated, QStringLiteral("pairing required"));
            return;
        }
        const QByteArray given = command.value(QLatin1String("token")).toString().toUtf8();
        if (!sameToken(token.toUtf8(), given)) {
            refuse(page, PolicyViolated, QStringLiteral("wrong pairing token"));
            return;
        }
        page->paired = true;
        answer(page, id, true);
        Q_EMIT q_func()->pagePaired(page->peer, page->origin);
        return;
    }

    if (text.isNull())
        fail(page, QJsonValue(), QStringLiteral("binary messages are not understood"));
    else if (parseError.error != QJsonParseError::NoError || !document.isObject())
        fail(page, QJsonValue(), QStringLiteral("malformed JSON: a command is one JSON object"));
    else if (name.isEmpty())
        fail(page, id, QStringLiteral("no command"));
    else
        runCommand(page, command, id);
}

void TelvixWebBridgePrivate::runCommand(WebPage* page, const QJsonObject& command, const QJsonValue& id)
{
    const QString name = command.value(QLatin1String("command")).toString();
    QString missing;
    const auto text = [&](const char* key) {
        const QJsonValue value = command.value(QLatin1String(key));
        if (!value.isString() || value.toString().trimmed().isEmpty()) {
            if (missing.isEmpty())
                missing = QStringLiteral("bad arguments: \"%1\" must be a non-empty string")
                              .arg(QLatin1String(key));
            return QString();
        }
        return value.toString().trimmed();
    };
    // The desk-phone commands write from the caller's thread: they are
    // handed to the library's.
    const auto onLibraryThread = [this](std::function<void()> f) {
        return QMetaObject::invokeMethod(telvix, std::move(f), Qt::QueuedConnection);
    };
    const auto dialString = [&](const QString& number) {
        if (number.isEmpty())
            return QString();
        QString why;
        // A bare number is read as the number of a tel: link, with its separators.
        const QString dial = TelephoneUri::toDialString(
            number.contains(QLatin1Char(':')) ? number : QStringLiteral("tel:") + number, &why);
        if (dial.isEmpty())
            missing = QStringLiteral("bad arguments: ") + why;
        return dial;
    };

    QJsonValue result;
    Telvix* const t = telvix;
    if (name == QLatin1String("pair")) {
        result = true;
    } else if (name == QLatin1String("dial")) {
        const QString number = dialString(text("number"));
        if (missing.isEmpty())
            result = t->newCall(number, TELVIX::NumberPrefixAuto);
    } else if (name == QLatin1String("answer") || name == QLatin1String("hold")
               || name == QLatin1String("unhold")) {
        const QString line = text("line");
        if (missing.isEmpty()) {
            if (name == QLatin1String("answer"))
                result = onLibraryThread([t, line] { t->phoneCommandAnswerIncomingCall(line); });
            else if (name == QLatin1String("hold"))
                result = onLibraryThread([t, line] { t->phoneCommandPutOnHold(line); });
            else
                result = onLibraryThread([t, line] { t->phoneCommandResumeFromHold(line); });
        }
    } else if (name == QLatin1String("transfer")) {
        const QString line = text("line");
        const QString number = dialString(text("number"));
        const QJsonValue attended = command.value(QLatin1String("attended"));
        if (!attended.isUndefined() && !attended.isBool() && missing.isEmpty())
            missing = QStringLiteral("bad arguments: \"attended\" must be true or false");
        if (missing.isEmpty()) {
            if (attended.toBool())
                result
                    = onLibraryThread([t, line, number] { t->phoneCommandAttendedTransfer(line, number); });
            else
                result
                    = onLibraryThread([t, line, number] { t->phoneCommandUnattendedTransfer(line, number); });
        }
    } else if (name == QLatin1String("hangup")) {
        const QString uid = text("uid");
        if (missing.isEmpty())
            result = t->hangupCall(uid, QString());
    } else if (name == QLatin1String("extensions") || name == QLatin1String("lookup")) {
        const QString number = name == QLatin1String("lookup") ? text("number") : QString();
        if (missing.isEmpty()) {
            if (bookRequests.isEmpty())
                t->getContactsList(true, {});
            bookRequests.append({page->socket, id, name, number});
            return;
        }
    } else {
        fail(page, id, QStringLiteral("unknown command \"%1\"").arg(name));
        return;
    }
    if (!missing.isEmpty())
        fail(page, id, missing);
    else
        answer(page, id, result);
}

void TelvixWebBridgePrivate::answerBookRequests(const QList<PhoneBook>& books)
{
    const QList<BookRequest> requests = bookRequests;
    bookRequests.clear();
    // Incoming numbers reach the pages without the line prefix.
    const QString linePrefix = requests.isEmpty() ? QString() : telvix->getOutboundLinePrefix();
    for (const BookRequest& request : requests) {
        WebPage* page = pageOf(request.socket);
        if (!page || !page->paired)
            continue;
        if (request.command == QLatin1String("extensions")) {
            QJsonArray entries;
            for (const PhoneBook& book : books) {
                if (book.type == PHONEBOOK::PB_EXTEN) {
                    for (const PhoneBookEntry& entry : book.entries)
                        entries.append(JsonConvert::toJson(QVariant::fromValue(entry)));
                }
            }
            answer(page, request.id, entries);
            continue;
        }
        QJsonObject found;
        for (const PhoneBook& book : books) {
            for (const PhoneBookEntry& entry : book.entries) {
                if (found.isEmpty() && hasNumber(entry, numberKey(request.number, linePrefix), linePrefix)) {
                    found.insert(QStringLiteral("contact"), JsonConvert::toJson(QVariant::fromValue(entry)));
                    found.insert(QStringLiteral("book"),
                                 QJsonObject {{QStringLiteral("type"), book.type},
                                              {QStringLiteral("name"), book.name},
                                              {QStringLiteral("folder"), book.folder}});
                }
            }
        }
        answer(page, request.id, found);
    }
}

// ---- messages to pages ---------------------------------------------------

void TelvixWebBridgePrivate::publish(const QMetaMethod& signal, void** argv)
{
    bool anyone = false;
    for (const WebPage* page : qAsConst(pages))
        anyone = anyone || page->paired;
    if (!anyone)
        return;

    const QList<QByteArray> typeNames = signal.parameterTypes();
    const QList<QByteArray> names = signal.parameterNames();
    const auto argument = [&](int i) {
        int type = signal.parameterType(i);
        if (type == QMetaType::UnknownType)
            type = QMetaType::type(typeNames.at(i).constData());
        return JsonConvert::toJson(type, argv[i + 1]);
    };
    QJsonValue record;
    if (signal.parameterCount() == 1) {
        record = argument(0);
    } else if (signal.parameterCount() > 1) {
        QJsonObject fields;
        for (int i = 0; i < signal.parameterCount(); ++i)
            fields.insert(QString::fromLatin1(names.at(i)), argument(i));
        record = fields;
    }
    // The record is written once; only the sequence number differs by page.
    const QString head = QStringLiteral("{\"event\":\"%1\",\"seq\":").arg(QString::fromLatin1(signal.name()));
    const QString tail = QStringLiteral(",\"record\":%1}").arg(compactJson(record));
    const QList<WebPage*> targets = pages;
    for (WebPage* page : targets) {
        if (page->paired)
            send(page, head + QString::number(++page->seq) + tail);
    }
}

void TelvixWebBridgePrivate::send(WebPage* page, const QString& text)
{
    if (!page->socket || page->closing)
        return;
    page->socket->sendTextMessage(text);
    // A burst may outrun the event loop's writing: hand what the system
    // takes to it before judging the page.
    if (page->socket->bytesToWrite() > maxPendingBytes)
        page->socket->flush();
    if (page->socket->bytesToWrite() > maxPendingBytes)
        refuse(page, PolicyViolated, QStringLiteral("send buffer full: the page does not read"));
}

void TelvixWebBridgePrivate::answer(WebPage* page, const QJsonValue& id, const QJsonValue& result)
{
    send(page, compactJson(QJsonObject {{QStringLiteral("id"), id}, {QStringLiteral("result"), result}}));
}

void TelvixWebBridgePrivate::fail(WebPage* page, const QJsonValue& id, const QString& reason)
{
    send(page, compactJson(QJsonObject {{QStringLiteral("id"), id}, {QStringLiteral("error"), reason}}));
}
