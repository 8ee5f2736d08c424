// The web bridge on a real Telvix logged in to the fake CTI server: the
// events as pages see them, the commands, the security rules and the
// behaviour under load. Cases come from tests/fixtures/webbridge/.
#include "callevents.h"
#include "directorymessages.h"
#include "fixturetable.h"
#include "jsonconvert.h"
#include "loggedinclient.h"
#include "phonebookmessages.h"
#include "publishedevents_p.h"
#include "qtlogcapture.h"
#include "telephoneuri.h"
#include "telvixwebbridge.h"

#include <QTcpSocket>
#include <QWebSocket>

namespace {

const QString Origin = "http://crm.test";

/// A web page on the bridge as a browser has it: a WebSocket with an Origin,
/// keeping every JSON message it receives, events apart and answers by id.
class WebPageClient : public QObject
{
public:
    explicit WebPageClient(const QString& origin)
        : socket(origin)
    {
        connect(&socket, &QWebSocket::textMessageReceived, this, [this](const QString& text) {
            const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
            if (message.contains("event"))
                events.append(message);
            else
                answers.insert(compact(message.value("id")), message);
        });
        connect(&socket, &QWebSocket::disconnected, this, [this] { closeCode = socket.closeCode(); });
    }
    bool open(quint16 port, const QString& token = {})
    {
        QSignalSpy connected(&socket, &QWebSocket::connected);
        socket.open(QUrl(QStringLiteral("ws://127.0.0.1:%1/").arg(port)));
        if (!connected.wait(5000) || token.isEmpty())
            return connected.count() == 1;
        send({{"id", "pair"}, {"command", "pair"}, {"token", token}});
        return waitForAnswer("pair").value("result").toBool();
    }
    void send(const QJsonObject& command)
    {
        socket.sendTextMessage(QString::fromUtf8(QJsonDocument(command).toJson(QJsonDocument::Compact)));
    }
    /// The answer whose "id" is `id`; empty on timeout.
    QJsonObject waitForAnswer(const QJsonValue& id)
    {
        (void)QTest::qWaitFor([&] { return answers.contains(compact(id)); }, 5000);
        return answers.take(compact(id));
    }
    bool waitForEvents(int count, int timeoutMs = 5000) const
    {
        return QTest::qWaitFor([&] { return events.size() >= count; }, timeoutMs);
    }
    int lastSeq() const { return events.isEmpty() ? 0 : events.last().value("seq").toInt(); }

    QWebSocket socket;
    QList<QJsonObject> events;
    QMap<QString, QJsonObject> answers;
    int closeCode = 0;
};

QJsonValue fixture(const QString& name)
{
    QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/webbridge/") + name);
    const QJsonDocument doc = QJsonDocument::fromJson(file.open(QIODevice::ReadOnly) ? file.readAll() : "");
    return doc.isArray() ? QJsonValue(doc.array()) : QJsonValue(doc.object());
}

/// One row per case of a fixture array, named by its "name" or "signal".
void addRows(const QString& name)
{
    QTest::addColumn<QJsonObject>("row");
    const QJsonArray rows = fixture(name).toArray();
    QVERIFY(!rows.isEmpty());
    for (const QJsonValue& r : rows) {
        const QJsonObject o = r.toObject();
        QTest::newRow(qPrintable(o.value(o.contains("name") ? "name" : "signal").toString())) << o;
    }
}

// Emits `signal` of Telvix with arguments read from JSON, on its thread.
bool emitFromJson(LoggedInClient& app, const QMetaMethod& signal, const QJsonArray& args)
{
    QVector<QVariant> values(signal.parameterCount());
    QVector<QGenericArgument> a(10);
    for (int i = 0; i < values.size(); ++i) {
        const int type = signal.parameterType(i);
        values[i] = JsonConvert::fromJson(
            args.at(i),
            type != QMetaType::UnknownType ? type : QMetaType::type(signal.parameterTypes().at(i)));
        a[i] = QGenericArgument(values.at(i).typeName(), values.at(i).constData());
        if (!values.at(i).isValid())
            return false;
    }
    bool invoked = false;
    app.onLibraryThread([&] {
        invoked = signal.invoke(app.client(), Qt::DirectConnection, a[0], a[1], a[2], a[3], a[4], a[5], a[6],
                                a[7], a[8], a[9]);
    });
    return invoked;
}

} // namespace

class TestTelvixWebBridge : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void dialStringOfAUri_data();
    void dialStringOfAUri();
    void initTestCase();
    void publishesEveryEventInOrder_data();
    void publishesEveryEventInOrder();
    void commands_data();
    void commands();
    void securityRules_data();
    void securityRules();
    void tenThousandCallsReachTwoPagesInOrder();
    void closesAPageThatStopsReading();

private:
    std::unique_ptr<LoggedInClient> m_app;
    std::unique_ptr<TelvixWebBridge> m_bridge;
    std::unique_ptr<WebPageClient> m_page;
};

// What a page's "dial" turns into (tests/fixtures/telephoneuri.tsv: the link
// and the dial string, or "!" and the words of the refusal).
void TestTelvixWebBridge::dialStringOfAUri_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("expected");
    QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/telephoneuri.tsv"));
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    for (const QString& line :
         QString::fromUtf8(file.readAll()).split('\n').filter(QRegularExpression("^[^#]"))) {
        const QStringList cols = line.split('\t');
        QTest::newRow(qPrintable(cols.at(0))) << cols.at(0) << cols.value(1);
    }
}

void TestTelvixWebBridge::dialStringOfAUri()
{
    QFETCH(QString, uri);
    QFETCH(QString, expected);
    const bool refused = expected.startsWith('!');
    QString reason = QStringLiteral("stale");
    QCOMPARE(TelephoneUri::toDialString(uri, &reason), refused ? QString() : expected);
    QVERIFY2(refused ? reason.contains(expected.mid(1)) : reason.isEmpty(), qPrintable(reason));
    QCOMPARE(TelephoneUri::toDialString(uri), refused ? QString() : expected);
}

void TestTelvixWebBridge::initTestCase()
{
    // Mobile mode: one call event per call, the form the local server publishes.
    m_app = std::make_unique<LoggedInClient>(TELVIX::AppModeSrntMobile);
    QVERIFY(m_app->start());

    const QJsonObject directory = fixture("directory.json").toObject();
    BuddiesRespMsg extensions;
    extensions.buddies
        = JsonConvert::fromJson(directory.value("extensions"), qMetaTypeId<QList<BuddyEntry>>())
              .value<QList<BuddyEntry>>();
    QCOMPARE(extensions.buddies.size(), 2);
    PBookRespMsg books;
    books.phoneBooks
        = {JsonConvert::fromJson(directory.value("phoneBook"), qMetaTypeId<PhoneBook>()).value<PhoneBook>()};
    QVERIFY(m_app->deliver(extensions.generateXmlMessageBody()));
    QVERIFY(m_app->deliver(books.generateXmlMessageBody()));
    QVERIFY(m_app->deliver(directory.value("services").toString()));
    QCOMPARE(m_app->client()->getOutboundLinePrefix(), QStringLiteral("0"));
    const QJsonObject ringing = directory.value("ringing").toObject();
    QVERIFY(m_app->deliver(
        CallEvents::incoming(ringing.value("uid").toString(), ringing.value("account").toString(),
                             ringing.value("remote").toString(), "SIP/200-soft-1", "SIP/trunk-1")));

    m_bridge = std::make_unique<TelvixWebBridge>(m_app->client());
    QVERIFY(m_bridge->allowedOrigins().isEmpty());
    QCOMPARE(m_bridge->maxMessageSize(), 64 * 1024);
    QVERIFY(m_bridge->pairingToken().size() >= TelvixWebBridge::MinPairingTokenLength);
    QVERIFY(!m_bridge->setPairingToken("short"));
    m_bridge->setAllowedOrigins({Origin});
    QVERIFY(m_bridge->listen());
    QVERIFY(m_bridge->serverPort() > 0);
    m_page = std::make_unique<WebPageClient>(Origin);
    QVERIFY(m_page->open(m_bridge->serverPort(), m_bridge->pairingToken()));
}

// The fixture names every published event, in the table's order.
void TestTelvixWebBridge::publishesEveryEventInOrder_data()
{
    addRows("events.json");
    const QJsonArray events = fixture("events.json").toArray();
    QCOMPARE(events.size(), int(PublishedEvents::end() - PublishedEvents::begin()));
    for (const PublishedEvents::Row* row = PublishedEvents::begin(); row != PublishedEvents::end(); ++row) {
        QVERIFY2(PublishedEvents::signalOf(*row).isValid(), row->signal);
        QCOMPARE(events.at(int(row - PublishedEvents::begin())).toObject().value("signal").toString(),
                 QString(row->signal));
    }
}

// Rows run in table order on one page: each event must come next, with the
// next sequence number, named after its signal and with the whole record.
void TestTelvixWebBridge::publishesEveryEventInOrder()
{
    QFETCH(QJsonObject, row);
    const QByteArray signal = row.value("signal").toString().toLatin1();
    const QMetaMethod method
        = Telvix::staticMetaObject.method(Telvix::staticMetaObject.indexOfSignal(signal));
    const int before = m_page->events.size();
    const int seq = m_page->lastSeq() + 1;
    QVERIFY(emitFromJson(*m_app, method, row.value("args").toArray()));
    QVERIFY(m_page->waitForEvents(before + 1));
    QCOMPARE(m_page->events.size(), before + 1);
    const QJsonObject event = m_page->events.last();
    QCOMPARE(event.value("event").toString(), QString::fromLatin1(method.name()));
    QCOMPARE(event.value("seq").toInt(), seq);
    QVERIFY2(event.value("record") == row.value("record"), qPrintable(compact(event.value("record"))));
}

void TestTelvixWebBridge::commands_data()
{
    addRows("commands.json");
}

void TestTelvixWebBridge::commands()
{
    QFETCH(QJsonObject, row);
    const QJsonValue send = row.value("send");
    const QJsonObject answer = row.value("answer").toObject();
    const QString frame = row.value("frame").toString();
    const int conn = m_app->connection();
    const int framesBefore = m_app->server().receivedFrames(conn).size();
    if (send.isString())
        m_page->socket.sendTextMessage(send.toString());
    else
        m_page->send(send.toObject());
    const QJsonObject got = m_page->waitForAnswer(answer.value("id"));
    QVERIFY2(got == answer, qPrintable(compact(got)));
    if (!frame.isEmpty())
        QTRY_VERIFY(m_app->server().receivedFrames(conn).mid(framesBefore).join(QString()).contains(frame));
    QCOMPARE(m_page->closeCode, 0);
}

void TestTelvixWebBridge::securityRules_data()
{
    addRows("security.json");
}

// Each violation closes the page with its code and one log line naming the
// peer and the reason; the page sees no event and the session no command.
void TestTelvixWebBridge::securityRules()
{
    QFETCH(QJsonObject, row);
    const QString origin = row.value("origin").toString(), reason = row.value("reason").toString();
    const QString token = m_bridge->pairingToken();
    QStringList messages;
    for (const QJsonValue& m : row.value("send").toArray()) {
        QString text = m.toString();
        if (text == "$OVERSIZE") {
            messages << QString(int(m_bridge->maxMessageSize()) + 1, QLatin1Char('x'));
        } else if (text.startsWith("$FLOOD")) {
            for (int i = 0; i <= m_bridge->maxCommandsPerSecond(); ++i)
                messages << text.mid(6);
        } else {
            text.replace("$TOKEN_PREFIX", token.left(token.size() - 1));
            messages << text.replace("$TOKEN", token);
        }
    }
    m_bridge->setPairingTimeout(
        row.value("pairingTimeoutMs").toInt(TelvixWebBridge::DefaultPairingTimeoutMs));
    QtLogCapture log;
    QSignalSpy closedSpy(m_bridge.get(), &TelvixWebBridge::pageClosed);
    m_app->clearFrames();
    const int seq = m_page->lastSeq() + 1;
    // Pages up to the bound, open and left alone while the next is refused.
    std::vector<std::unique_ptr<WebPageClient>> others;
    for (int i = row.value("fillToTheBound").toBool() ? 1 : INT_MAX; i < m_bridge->maxConnections(); ++i) {
        others.push_back(std::make_unique<WebPageClient>(Origin));
        QVERIFY(others.back()->open(m_bridge->serverPort()));
    }
    WebPageClient page(origin);
    QVERIFY(page.open(m_bridge->serverPort()));
    for (const QString& m : qAsConst(messages))
        page.socket.sendTextMessage(m);
    // Events raised meanwhile must not reach the page.
    m_app->onLibraryThread([&] { Q_EMIT m_app->client()->sigGuiKeepAlive(); });
    QVERIFY(QTest::qWaitFor([&] { return page.closeCode != 0; }, 5000));
    m_bridge->setPairingTimeout(TelvixWebBridge::DefaultPairingTimeoutMs);
    QCOMPARE(page.closeCode, row.value("code").toInt());
    QCOMPARE(closedSpy.count(), 1);
    QCOMPARE(closedSpy.at(0).at(2).toString(), reason);
    const QString peer = closedSpy.at(0).at(0).toString();
    QVERIFY(peer.startsWith("127.0.0.1:"));
    QCOMPARE(
        log.count(QStringLiteral("Web bridge closed page %1 (origin \"%2\"): %3").arg(peer, origin, reason)),
        1);
    QVERIFY(page.events.isEmpty());
    QVERIFY(m_app->framesWith("C2C").isEmpty());
    QVERIFY(m_app->client()->isConnected());
    // The paired page and any others go on as before.
    QTRY_COMPARE(m_page->lastSeq(), seq);
    for (const auto& other : others)
        QCOMPARE(other->closeCode, 0);
    others.clear();
    QTRY_COMPARE(m_bridge->pageCount(), 1);
}

void TestTelvixWebBridge::tenThousandCallsReachTwoPagesInOrder()
{
    constexpr int Calls = 5000; // an incoming and a finished event each
    WebPageClient first(Origin), second(Origin);
    QVERIFY(first.open(m_bridge->serverPort(), m_bridge->pairingToken()));
    QVERIFY(second.open(m_bridge->serverPort(), m_bridge->pairingToken()));
    const int ownBefore = m_page->events.size();
    for (int i = 0; i < Calls; ++i) {
        const QString uid = QStringLiteral("load-%1").arg(i);
        const QString remote = QStringLiteral("06%1").arg(i, 8, 10, QLatin1Char('0'));
        m_app->sendEvent(CallEvents::incoming(uid, "200-soft", remote, "SIP/a", "SIP/b"));
        m_app->sendEvent(CallEvents::finished(uid, "200-soft", "SIP/a", remote));
    }
    for (const WebPageClient* page : {&first, &second}) {
        QVERIFY(page->waitForEvents(2 * Calls, 60000));
        QCOMPARE(page->events.size(), 2 * Calls);
        for (int i = 0; i < 2 * Calls; ++i) {
            const QJsonObject e = page->events.at(i);
            QCOMPARE(e.value("seq").toInt(), i + 1);
            QCOMPARE(e.value("event").toString(), i % 2 ? "sigFinishedCall" : "sigIncomingCall");
            QCOMPARE(e.value("record").toObject().value("uid").toString(),
                     QStringLiteral("load-%1").arg(i / 2));
        }
    }
    QVERIFY(m_page->waitForEvents(ownBefore + 2 * Calls));
}

// A page that stops reading fills its send buffer; the bridge closes it
// once past the bound while the reading page gets every event.
void TestTelvixWebBridge::closesAPageThatStopsReading()
{
    // Bursts stay below the bound, so only a page that does not read passes it.
    constexpr int Burst = 10;
    const QString bulk(16 * 1024, QLatin1Char('z'));
    m_bridge->setMaxPendingBytes(4 * Burst * bulk.size());
    QSignalSpy closedSpy(m_bridge.get(), &TelvixWebBridge::pageClosed);
    WebPageClient reader(Origin);
    QVERIFY(reader.open(m_bridge->serverPort(), m_bridge->pairingToken()));

    // A browser tab that hangs: it completes the handshake and pairs, then
    // never reads again.
    QTcpSocket stuck;
    stuck.setReadBufferSize(1);
    stuck.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
    stuck.connectToHost(QHostAddress::LocalHost, m_bridge->serverPort());
    QVERIFY(stuck.waitForConnected(5000));
    const QByteArray pair
        = QStringLiteral("{\"command\":\"pair\",\"token\":\"%1\"}").arg(m_bridge->pairingToken()).toUtf8();
    QByteArray frame;
    frame.append(char(0x81)).append(char(0x80 | pair.size())).append(4, '\0'); // zero mask
    QVERIFY(pair.size() < 126);
    stuck.write("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n"
                "Origin: http://crm.test\r\n\r\n"
                + frame + pair);
    QSignalSpy paired(m_bridge.get(), &TelvixWebBridge::pagePaired);
    QVERIFY(paired.wait(5000));

    int sent = 0;
    const int ownBefore = m_page->events.size();
    while (closedSpy.isEmpty() && sent < 4000) {
        m_app->onLibraryThread([&] {
            for (int i = 0; i < Burst; ++i)
                Q_EMIT m_app->client()->sigRebrandingDownloadCompleted(bulk);
        });
        sent += Burst;
        QVERIFY(reader.waitForEvents(sent, 10000));
    }
    QCOMPARE(closedSpy.count(), 1);
    QCOMPARE(closedSpy.at(0).at(0).toString(), QStringLiteral("127.0.0.1:%1").arg(stuck.localPort()));
    QVERIFY(closedSpy.at(0).at(2).toString().startsWith("send buffer full"));
    QCOMPARE(reader.events.size(), sent);
    QCOMPARE(reader.events.last().value("seq").toInt(), sent);
    QVERIFY(m_page->waitForEvents(ownBefore + sent, 10000));
    m_bridge->setMaxPendingBytes(TelvixWebBridge::DefaultMaxPendingBytes);
}

QTEST_GUILESS_MAIN(TestTelvixWebBridge)
#include "tst_telvixwebbridge.moc"
