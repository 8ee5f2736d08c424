#include "fakectiserver.h"
#include "simplexmlparser.h"
#include "sxmlmessage.h"

#include <QSignalSpy>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTextCodec>
#include <QTextDecoder>
#include <QtTest>

#include <memory>

namespace {

// A plain TLS client that feeds what it reads into a framing parser of its own.
class TestClient : public QObject
{
public:
    explicit TestClient(bool acceptAnyCertificate = true)
        : decoder(QTextCodec::codecForName("UTF-8")->makeDecoder())
    {
        parser.rootTag = QStringLiteral("SRNT");
        if (acceptAnyCertificate) {
            connect(&socket, qOverload<const QList<QSslError>&>(&QSslSocket::sslErrors), &socket,
                    [this](const QList<QSslError>&) { socket.ignoreSslErrors(); });
        }
        connect(&socket, &QSslSocket::readyRead, this, [this] {
            const QByteArray bytes = socket.readAll();
            readSizes.append(bytes.size());
            parser.addData(decoder->toUnicode(bytes));
        });
        connect(&parser, &SimpleXmlParser::messageCompleted, this, [this] {
            while (parser.hasPendingMessages())
                frames.append(parser.getNextMessage());
        });
    }

    void connectTo(const FakeCtiServer& server)
    {
        socket.connectToHostEncrypted(FakeCtiServer::host(), server.port());
    }

    // The server shares this thread: waiting must run the event loop, which
    // QSslSocket::waitForEncrypted does not.
    bool waitForEncrypted()
    {
        return QTest::qWaitFor([this] { return socket.isEncrypted(); }, 5000);
    }

    void send(const QString& frame) { socket.write(frame.toUtf8()); }

    SimpleXmlParser parser;
    std::unique_ptr<QTextDecoder> decoder;
    QStringList frames;
    QList<int> readSizes;
    // Last, so that it goes first: whatever it still reports finds the rest alive.
    QSslSocket socket;
};

QString keepAliveFrame()
{
    return KeepAliveReqMsg().serializeToXml(QStringLiteral("5.7"));
}

QString loginFrame(const QString& user, const QString& api)
{
    return PlainRequestMessage(QStringLiteral("<Login><User>%1</User></Login>").arg(user))
        .serializeToXml(api);
}

QString tag(const QString& doc, const char* name)
{
    return SimpleXmlParser::getTagValue(doc, QString::fromLatin1(name));
}

// Turns -1000 into the cut inside the two-byte character at `accent`, and
// negative cuts into offsets from the end.
void resolveCuts(QList<int>& cuts, const QByteArray& bytes, int accent)
{
    for (int& cut : cuts)
        cut = cut == -1000 ? accent + 1 : cut < 0 ? cut + bytes.size() : cut;
}

} // namespace

class TestFakeCtiServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void recordsAndWaitsForFrames();
    void clientWritesSplitFrame_data();
    void clientWritesSplitFrame();
    void severalFramesInOneWrite();
    void serverSplitFrameIsReassembledByClient_data();
    void serverSplitFrameIsReassembledByClient();
    void sendAfterSplitKeepsByteOrder();
    void responderAnswersLogin();
    void autoLoginAnswerCarriesConfiguredFields();
    void autoKeepAliveAckAndBanner();
    void connectionsAreNumberedAndKept();
    void disconnectClientWaitsForQueuedPieces();
    void abortClient();
    void clientVerifyingPeerRefusesSelfSignedCertificate();
    void clientTrustingTestCertificateVerifiesIt();
    void refuseTlsFailsClientHandshake();
    void silentHandshakeNeverEncrypts();
    void documentEnvelope();

private:
    // A client connected and encrypted, as the server sees it too.
    std::unique_ptr<TestClient> encryptedClient();
    std::unique_ptr<FakeCtiServer> m_server;
};

void TestFakeCtiServer::initTestCase()
{
    qRegisterMetaType<QList<QSslError>>("QList<QSslError>");
    qRegisterMetaType<QAbstractSocket::SocketError>("QAbstractSocket::SocketError");
}

void TestFakeCtiServer::init()
{
    m_server.reset(new FakeCtiServer);
    QVERIFY(m_server->listen());
    QVERIFY(m_server->port() != 0);
}

void TestFakeCtiServer::cleanup()
{
    m_server.reset();
}

std::unique_ptr<TestClient> TestFakeCtiServer::encryptedClient()
{
    const int before = m_server->encryptedConnectionCount();
    std::unique_ptr<TestClient> client(new TestClient);
    client->connectTo(*m_server);
    if (!client->waitForEncrypted()
        || !QTest::qWaitFor([&] { return m_server->encryptedConnectionCount() > before; }, 5000))
        return nullptr;
    return client;
}

void TestFakeCtiServer::recordsAndWaitsForFrames()
{
    QSignalSpy frameSpy(m_server.get(), &FakeCtiServer::frameReceived);
    QSignalSpy encryptedSpy(m_server.get(), &FakeCtiServer::clientEncrypted);
    auto client = encryptedClient();
    QVERIFY(client);
    QCOMPARE(encryptedSpy.count(), 1);
    QVERIFY(m_server->isEncrypted(0));

    const QString frame = keepAliveFrame();
    client->send(frame);
    QTRY_COMPARE(frameSpy.count(), 1);
    QCOMPARE(frameSpy.at(0).at(0).toInt(), 0);
    QCOMPARE(frameSpy.at(0).at(1).toString(), frame);
    QCOMPARE(m_server->receivedFrames(0), QStringList {frame});
    QCOMPARE(m_server->receivedBytes(0), frame.toUtf8());
    QCOMPARE(m_server->framesContaining(QStringLiteral("KeepAlive")), QStringList {frame});
    QVERIFY(m_server->framesContaining(QStringLiteral("Login")).isEmpty());
    int conn = -1;
    QCOMPARE(m_server->waitForFrame(QStringLiteral("KeepAlive"), 1000, &conn), frame);
    QCOMPARE(conn, 0);

    // Each frame is taken once; a fresh UUID each time.
    const QString second = keepAliveFrame();
    QVERIFY(second != frame);
    client->send(second);
    QCOMPARE(m_server->waitForFrame(QStringLiteral("KeepAlive"), 5000), second);
    QVERIFY(m_server->waitForFrame(QStringLiteral("Login"), 100).isEmpty());
    // An element name is matched whole: "KeepAliv" is not "KeepAlive".
    client->send(keepAliveFrame());
    QTRY_COMPARE(m_server->receivedFrames(0).size(), 3);
    QVERIFY(m_server->waitForFrame(QStringLiteral("KeepAliv"), 50).isEmpty());
}

void TestFakeCtiServer::clientWritesSplitFrame_data()
{
    QTest::addColumn<QList<int>>("cuts");

    // The body holds U+00E9 (two bytes in UTF-8): -1000 cuts between them.
    QTest::newRow("inside the closing root tag") << QList<int> {-3};
    QTest::newRow("between the bytes of one character") << QList<int> {-1000};
    QTest::newRow("every few bytes, from inside the root tag") << QList<int> {3, 17, 40, 41, 90};
}

void TestFakeCtiServer::clientWritesSplitFrame()
{
    QFETCH(QList<int>, cuts);

    const QString frame = PlainRequestMessage(QStringLiteral("<Note>caf\u00e9</Note>")).serializeToXml("6.1");
    const QByteArray bytes = frame.toUtf8();
    resolveCuts(cuts, bytes, bytes.indexOf("\xc3\xa9"));

    auto client = encryptedClient();
    QVERIFY(client);
    QSignalSpy frameSpy(m_server.get(), &FakeCtiServer::frameReceived);
    int from = 0;
    for (int cut : qAsConst(cuts)) {
        client->socket.write(bytes.mid(from, cut - from));
        client->socket.flush();
        from = cut;
        // Each piece must have reached the server before the next is written.
        QTRY_COMPARE(m_server->receivedBytes(0).size(), cut);
        QCOMPARE(frameSpy.count(), 0);
    }
    client->socket.write(bytes.mid(from));

    QTRY_COMPARE(frameSpy.count(), 1);
    QCOMPARE(m_server->receivedFrames(0), QStringList {frame});
    QVERIFY(m_server->pendingText(0).isEmpty());
}

void TestFakeCtiServer::severalFramesInOneWrite()
{
    auto client = encryptedClient();
    QVERIFY(client);
    const QString first = keepAliveFrame();
    const QString second
        = AckMsg(QStringLiteral("{67c8770b-44f1-410a-ab9a-f9b5446f13ee}")).serializeToXml("5.7");
    const QString partial = QStringLiteral("<SRNT><API>5.7</API>");
    client->send(first + QLatin1Char('\n') + second + partial);

    QTRY_COMPARE(m_server->receivedFrames(0), (QStringList {first, second}));
    QCOMPARE(m_server->pendingText(0), partial);
    QCOMPARE(m_server->framesContaining(QStringLiteral("MsgAck")), QStringList {second});
}

void TestFakeCtiServer::serverSplitFrameIsReassembledByClient_data()
{
    QTest::addColumn<QList<int>>("cuts");
    QTest::addColumn<int>("chunkSize");

    QTest::newRow("cut inside </SRNT>") << QList<int> {-2} << 0;
    QTest::newRow("cut inside a character") << QList<int> {-1000} << 0;
    QTest::newRow("chunks of 16 bytes") << QList<int>() << 16;
}

void TestFakeCtiServer::serverSplitFrameIsReassembledByClient()
{
    QFETCH(QList<int>, cuts);
    QFETCH(int, chunkSize);

    auto client = encryptedClient();
    QVERIFY(client);
    const QString frame = FakeCtiServer::document(
        QStringLiteral("<ExtenStatus><Exten>201</Exten><Name>J\u00fcrgen</Name></ExtenStatus>"));
    const QByteArray bytes = frame.toUtf8();
    resolveCuts(cuts, bytes, bytes.indexOf("\xc3\xbc"));

    // A pause long enough for the client to read each piece on its own.
    if (chunkSize == 0)
        m_server->setChunkInterval(10);
    QSignalSpy chunkSpy(m_server.get(), &FakeCtiServer::chunkWritten);
    QSignalSpy doneSpy(m_server.get(), &FakeCtiServer::sendQueueEmpty);
    QVERIFY(chunkSize > 0 ? m_server->sendInChunks(0, frame, chunkSize)
                          : m_server->sendSplit(0, frame, cuts));

    // QSignalSpy::wait runs a real event loop; QTRY_* would pause 10 ms between turns.
    if (doneSpy.isEmpty())
        QVERIFY(doneSpy.wait(10000));
    QCOMPARE(doneSpy.count(), 1);
    const int expectedPieces = chunkSize > 0 ? (bytes.size() + chunkSize - 1) / chunkSize : cuts.size() + 1;
    QCOMPARE(chunkSpy.count(), expectedPieces);
    QByteArray written;
    for (const QList<QVariant>& args : qAsConst(chunkSpy)) {
        if (chunkSize > 0 && written.size() + chunkSize < bytes.size())
            QCOMPARE(args.at(1).toByteArray().size(), chunkSize);
        written += args.at(1).toByteArray();
    }
    QCOMPARE(written, bytes);
    QVERIFY(!m_server->isSending(0));

    QTRY_COMPARE(client->frames, QStringList {frame});
    QVERIFY(client->parser.getCurrentBuffer().isEmpty());
    QVERIFY(client->readSizes.size() >= 2); // the pieces did arrive apart
}

void TestFakeCtiServer::sendAfterSplitKeepsByteOrder()
{
    auto client = encryptedClient();
    QVERIFY(client);
    const QString first
        = FakeCtiServer::document(QStringLiteral("<ExtenStatus><Exten>201</Exten></ExtenStatus>"));
    const QString second = FakeCtiServer::keepAliveAckDocument();
    QVERIFY(m_server->sendInChunks(0, first, 10));
    QVERIFY(m_server->isSending(0));
    QVERIFY(m_server->send(0, second)); // must queue behind the pieces

    QTRY_COMPARE(client->frames, (QStringList {first, second}));
}

void TestFakeCtiServer::responderAnswersLogin()
{
    int calls = 0;
    m_server->setResponder(QStringLiteral("Login"), [&calls](int conn, const QString& frame) {
        ++calls;
        const QString user = SimpleXmlParser::getTagValue(frame, QStringLiteral("User"));
        return FakeCtiServer::loginRefusedDocument(3,
                                                   QStringLiteral("BadUser-") + user + QString::number(conn));
    });

    auto client = encryptedClient();
    QVERIFY(client);
    client->send(keepAliveFrame());
    client->send(loginFrame(QStringLiteral("bob"), QStringLiteral("6.1")));
    QTRY_COMPARE(client->frames.size(), 1);
    QCOMPARE(calls, 1); // the keep-alive did not wake the Login responder
    QCOMPARE(tag(client->frames.first(), "ExitCode"), QStringLiteral("3"));
    QCOMPARE(tag(client->frames.first(), "Reason"), QStringLiteral("BadUser-bob0"));

    QVERIFY(!m_server->waitForFrame(QStringLiteral("Login")).isEmpty());
    m_server->removeResponder(QStringLiteral("Login"));
    client->send(loginFrame(QStringLiteral("bob"), QStringLiteral("6.1")));
    QVERIFY(!m_server->waitForFrame(QStringLiteral("Login")).isEmpty());
    // Any answer to the second login would have gone out ahead of this marker.
    QVERIFY(m_server->send(0, FakeCtiServer::probeDocument()));
    QTRY_COMPARE(client->frames.size(), 2);
    QVERIFY(client->frames.at(1).contains(QStringLiteral("<Probe>")));
    QCOMPARE(calls, 1);
}

void TestFakeCtiServer::autoLoginAnswerCarriesConfiguredFields()
{
    FakeCtiServer::LoginAnswer answer;
    answer.exten = QStringLiteral("305");
    answer.features = QStringList {QStringLiteral("SMS"), QStringLiteral("MSGACK")};
    answer.firstName = QStringLiteral("Ren\u00e9e & Co");
    m_server->setLoginAnswer(answer);
    m_server->setApiVersion(QStringLiteral("5.7"));
    m_server->setAutoLogin(true);

    auto client = encryptedClient();
    QVERIFY(client);
    client->send(loginFrame(QStringLiteral("alice"), QStringLiteral("5.7")));
    QTRY_COMPARE(client->frames.size(), 1);
    const QString doc = client->frames.first();
    QVERIFY(doc.contains(QStringLiteral("<Response><Authenticated>")));
    QCOMPARE(tag(doc, "API"), QStringLiteral("5.7"));
    QCOMPARE(tag(doc, "ExitCode"), QStringLiteral("0"));
    QCOMPARE(tag(doc, "Exten"), QStringLiteral("305"));
    QCOMPARE(tag(doc, "Capabilities"), QStringLiteral("srnt_pro"));
    QCOMPARE(tag(doc, "Features"), QStringLiteral("SMS,MSGACK"));
    QCOMPARE(tag(doc, "FirstName"), QStringLiteral("Ren\u00e9e &amp; Co"));
    QVERIFY(!doc.contains(QStringLiteral("<LoggedOff>")));
    QVERIFY(!FakeCtiServer::uuidOf(doc).isEmpty());

    m_server->setAutoLogin(false);
    client->send(loginFrame(QStringLiteral("alice"), QStringLiteral("5.7")));
    QTRY_COMPARE(m_server->receivedFrames(0).size(), 2);
    // Any answer to the second login would have gone out ahead of this marker.
    QVERIFY(m_server->send(0, FakeCtiServer::probeDocument()));
    QTRY_COMPARE(client->frames.size(), 2);
    QVERIFY(client->frames.at(1).contains(QStringLiteral("<Probe>")));
}

void TestFakeCtiServer::autoKeepAliveAckAndBanner()
{
    m_server->setAutoKeepAliveAck(true);
    m_server->setBannerOnConnect(QStringLiteral("5.7"), QStringLiteral("4.2"));
    TestClient client;
    client.connectTo(*m_server);
    QTRY_COMPARE(client.frames.size(), 1);
    QVERIFY(client.socket.isEncrypted());
    QCOMPARE(tag(client.frames.first(), "API"), QStringLiteral("5.7"));
    QCOMPARE(tag(client.frames.first(), "MinAPI"), QStringLiteral("4.2"));

    client.send(keepAliveFrame());
    QTRY_COMPARE(client.frames.size(), 2);
    // Recognised by "<KAACK>": a self-closed element would not be.
    QVERIFY(client.frames.at(1).contains(QStringLiteral("<KAACK>")));
}

void TestFakeCtiServer::connectionsAreNumberedAndKept()
{
    QSignalSpy connectedSpy(m_server.get(), &FakeCtiServer::clientConnected);
    QSignalSpy disconnectedSpy(m_server.get(), &FakeCtiServer::clientDisconnected);
    auto a = encryptedClient();
    auto b = encryptedClient();
    QVERIFY(a && b);
    QCOMPARE(m_server->connectionCount(), 2);
    QCOMPARE(connectedSpy.count(), 2);
    QCOMPARE(connectedSpy.at(1).at(0).toInt(), 1);

    const QString fromB = keepAliveFrame();
    b->send(fromB);
    QTRY_COMPARE(m_server->receivedFrames(1), QStringList {fromB});
    QVERIFY(m_server->receivedFrames(0).isEmpty());
    QCOMPARE(m_server->framesContaining(QStringLiteral("KeepAlive"), 0), QStringList());
    QCOMPARE(m_server->framesContaining(QStringLiteral("KeepAlive"), 1), QStringList {fromB});

    a->socket.disconnectFromHost();
    QTRY_COMPARE(disconnectedSpy.count(), 1);
    QCOMPARE(disconnectedSpy.at(0).at(0).toInt(), 0);
    QCOMPARE(m_server->openConnectionCount(), 1);
    QVERIFY(!m_server->isConnected(0));
    QVERIFY(!m_server->send(0, FakeCtiServer::probeDocument()));
    QVERIFY(m_server->send(1, FakeCtiServer::probeDocument()));
    QTRY_COMPARE(b->frames.size(), 1);
    QCOMPARE(m_server->receivedFrames(1), QStringList {fromB}); // kept after other closes

    m_server->clearFrames();
    QVERIFY(m_server->receivedFrames(1).isEmpty());
    QVERIFY(m_server->allFrames().isEmpty());
}

void TestFakeCtiServer::disconnectClientWaitsForQueuedPieces()
{
    auto client = encryptedClient();
    QVERIFY(client);
    QSignalSpy clientGone(&client->socket, &QSslSocket::disconnected);
    const QString frame = FakeCtiServer::loggedOffDocument(QStringLiteral("Kicked"));
    QVERIFY(m_server->sendInChunks(0, frame, 8));
    m_server->disconnectClient(0);
    QVERIFY(m_server->isConnected(0));

    QTRY_COMPARE(clientGone.count(), 1);
    QTRY_COMPARE(client->frames, QStringList {frame});
    QTRY_VERIFY(!m_server->isConnected(0));
}

void TestFakeCtiServer::abortClient()
{
    QSignalSpy disconnectedSpy(m_server.get(), &FakeCtiServer::clientDisconnected);
    auto client = encryptedClient();
    QVERIFY(client);
    QSignalSpy clientGone(&client->socket, &QSslSocket::disconnected);
    QVERIFY(m_server->sendInChunks(0, FakeCtiServer::probeDocument(), 4));
    m_server->abortClient(0);
    QCOMPARE(disconnectedSpy.count(), 1);
    QVERIFY(!m_server->isSending(0));
    QVERIFY(!m_server->isConnected(0));
    QTRY_COMPARE(clientGone.count(), 1);
    QVERIFY(client->frames.isEmpty());
}

void TestFakeCtiServer::clientVerifyingPeerRefusesSelfSignedCertificate()
{
    TestClient client(false);
    client.socket.setPeerVerifyMode(QSslSocket::VerifyPeer);
    QSignalSpy sslErrorsSpy(&client.socket, qOverload<const QList<QSslError>&>(&QSslSocket::sslErrors));
    QSignalSpy errorSpy(&client.socket, &QSslSocket::errorOccurred);
    client.connectTo(*m_server);

    QTRY_COMPARE(sslErrorsSpy.count(), 1);
    const auto errors = sslErrorsSpy.at(0).at(0).value<QList<QSslError>>();
    bool selfSigned = false;
    for (const QSslError& e : errors)
        selfSigned |= e.error() == QSslError::SelfSignedCertificate;
    QVERIFY2(selfSigned, qPrintable(errors.isEmpty() ? QString() : errors.first().errorString()));
    QTRY_VERIFY(!errorSpy.isEmpty());
    QCOMPARE(errorSpy.first().at(0).value<QAbstractSocket::SocketError>(),
             QAbstractSocket::SslHandshakeFailedError);
    QVERIFY(!client.socket.isEncrypted());
}

void TestFakeCtiServer::clientTrustingTestCertificateVerifiesIt()
{
    const QSslCertificate cert = FakeCtiServer::certificate();
    QVERIFY(!cert.isNull());
    TestClient client(false);
    QSslConfiguration config = client.socket.sslConfiguration();
    config.setCaCertificates({cert});
    config.setPeerVerifyMode(QSslSocket::VerifyPeer);
    client.socket.setSslConfiguration(config);
    QSignalSpy sslErrorsSpy(&client.socket, qOverload<const QList<QSslError>&>(&QSslSocket::sslErrors));

    // The certificate names 127.0.0.1 in its subjectAltName, so it verifies by address.
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    QCOMPARE(sslErrorsSpy.count(), 0);
    QCOMPARE(client.socket.peerCertificate(), cert);
}

void TestFakeCtiServer::refuseTlsFailsClientHandshake()
{
    m_server->setTlsMode(FakeCtiServer::TlsMode::RefuseTls);
    QSignalSpy connectedSpy(m_server.get(), &FakeCtiServer::clientConnected);
    TestClient client;
    QSignalSpy errorSpy(&client.socket, &QSslSocket::errorOccurred);
    QSignalSpy encryptedSpy(&client.socket, &QSslSocket::encrypted);
    client.connectTo(*m_server);

    QTRY_VERIFY(!errorSpy.isEmpty());
    const auto error = errorSpy.first().at(0).value<QAbstractSocket::SocketError>();
    QVERIFY2(error == QAbstractSocket::SslHandshakeFailedError
                 || error == QAbstractSocket::RemoteHostClosedError,
             qPrintable(client.socket.errorString()));
    QCOMPARE(encryptedSpy.count(), 0);
    QCOMPARE(connectedSpy.count(), 1);
    QCOMPARE(m_server->encryptedConnectionCount(), 0);
}

void TestFakeCtiServer::silentHandshakeNeverEncrypts()
{
    m_server->setTlsMode(FakeCtiServer::TlsMode::SilentHandshake);
    TestClient client;
    QSignalSpy encryptedSpy(&client.socket, &QSslSocket::encrypted);
    client.connectTo(*m_server);

    // The ClientHello arrives and is swallowed.
    QTRY_VERIFY(!m_server->receivedBytes(0).isEmpty());
    QCOMPARE(m_server->receivedBytes(0).at(0), char(0x16)); // TLS handshake record
    QVERIFY(!encryptedSpy.wait(300));
    QCOMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
    QVERIFY(m_server->isConnected(0));
    QVERIFY(!m_server->isEncrypted(0));

    QSignalSpy disconnectedSpy(m_server.get(), &FakeCtiServer::clientDisconnected);
    client.socket.abort();
    QTRY_COMPARE(disconnectedSpy.count(), 1);
}

void TestFakeCtiServer::documentEnvelope()
{
    const QString uuid = QStringLiteral("{00000000-0000-4000-8000-000000000001}");
    const QString doc = FakeCtiServer::document(QStringLiteral("<X/>"), QStringLiteral("5.2"),
                                                QStringLiteral("Info"), uuid);
    QVERIFY(doc.startsWith(QStringLiteral("<SRNT><API>5.2</API><UUID>") + uuid
                           + QStringLiteral("</UUID><Timestamp>")));
    QVERIFY(doc.endsWith(QStringLiteral("</Timestamp><Info><X/></Info></SRNT>")));
    QCOMPARE(FakeCtiServer::uuidOf(doc), uuid);
    QVERIFY(
        QDateTime::fromString(tag(doc, "Timestamp"), QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzz")).isValid());
    QVERIFY(FakeCtiServer::uuidOf(FakeCtiServer::document(QStringLiteral("<X/>")))
            != FakeCtiServer::uuidOf(FakeCtiServer::document(QStringLiteral("<X/>"))));

    QCOMPARE(tag(FakeCtiServer::failedDocument(QStringLiteral("a<b")), "RequestFailed"),
             QStringLiteral("a&lt;b"));
    QCOMPARE(
        tag(FakeCtiServer::errorDocument(QStringLiteral("Bad"), QStringLiteral("<Foo/>")), "OriginalMessage"),
        QStringLiteral("&lt;Foo/&gt;"));
    QCOMPARE(tag(FakeCtiServer::redirectDocument(QStringLiteral("10.0.0.9"), 5040), "ServerPort"),
             QStringLiteral("5040"));
}

QTEST_GUILESS_MAIN(TestFakeCtiServer)
#include "tst_fakectiserver.moc"
