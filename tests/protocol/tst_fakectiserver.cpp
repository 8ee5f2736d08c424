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

} // namespace

class TestFakeCtiServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void recordsKeepAliveFromClient();
    void clientWritesSplitFrame_data();
    void clientWritesSplitFrame();
    void severalFramesInOneWrite();
    void serverSplitFrameIsReassembledByClient_data();
    void serverSplitFrameIsReassembledByClient();
    void sendAfterSplitKeepsByteOrder();
    void responderAnswersLogin();
    void autoLoginAnswerCarriesConfiguredFields();
    void autoKeepAliveAck();
    void waitForFrameTakesEachFrameOnce();
    void waitForFrameTimesOut();
    void bannerOnConnect();
    void connectionsAreNumberedAndKept();
    void disconnectClientWaitsForQueuedPieces();
    void abortClient();
    void clientVerifyingPeerRefusesSelfSignedCertificate();
    void clientTrustingTestCertificateVerifiesIt();
    void refuseTlsFailsClientHandshake();
    void silentHandshakeNeverEncrypts();
    void documentEnvelope();

private:
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

void TestFakeCtiServer::recordsKeepAliveFromClient()
{
    QSignalSpy frameSpy(m_server.get(), &FakeCtiServer::frameReceived);
    QSignalSpy encryptedSpy(m_server.get(), &FakeCtiServer::clientEncrypted);
    TestClient client;
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());

    const QString frame = keepAliveFrame();
    client.socket.write(frame.toUtf8());

    QTRY_COMPARE(frameSpy.count(), 1);
    QCOMPARE(frameSpy.at(0).at(0).toInt(), 0);
    QCOMPARE(frameSpy.at(0).at(1).toString(), frame);
    QCOMPARE(m_server->receivedFrames(0), QStringList {frame});
    QCOMPARE(m_server->receivedBytes(0), frame.toUtf8());
    QCOMPARE(m_server->framesContaining(QStringLiteral("KeepAlive")), QStringList {frame});
    QVERIFY(m_server->framesContaining(QStringLiteral("Login")).isEmpty());
    QCOMPARE(m_server->waitForFrame(QStringLiteral("KeepAlive"), 1000), frame);
    QCOMPARE(encryptedSpy.count(), 1);
    QVERIFY(m_server->isEncrypted(0));
}

void TestFakeCtiServer::clientWritesSplitFrame_data()
{
    QTest::addColumn<QList<int>>("cuts");

    // The body holds U+00E9 (two bytes in UTF-8) at a known place; see the test.
    QTest::newRow("inside the root tag") << QList<int> {3};
    QTest::newRow("inside the closing root tag") << QList<int> {-3};
    QTest::newRow("between the bytes of one character") << QList<int> {-1000};
    QTest::newRow("every few bytes") << QList<int> {5, 17, 40, 41, 90};
}

void TestFakeCtiServer::clientWritesSplitFrame()
{
    QFETCH(QList<int>, cuts);

    const QString frame = PlainRequestMessage(QStringLiteral("<Note>caf\u00e9</Note>")).serializeToXml("6.1");
    const QByteArray bytes = frame.toUtf8();
    const int accent = bytes.indexOf("\xc3\xa9");
    QVERIFY(accent > 0);
    for (int& cut : cuts) {
        if (cut == -1000)
            cut = accent + 1;
        else if (cut < 0)
            cut += bytes.size();
    }

    TestClient client;
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    QSignalSpy frameSpy(m_server.get(), &FakeCtiServer::frameReceived);

    int from = 0;
    for (int cut : qAsConst(cuts)) {
        client.socket.write(bytes.mid(from, cut - from));
        client.socket.flush();
        from = cut;
        // Each piece must have reached the server before the next is written.
        QTRY_COMPARE(m_server->receivedBytes(0).size(), cut);
        QCOMPARE(frameSpy.count(), 0);
    }
    client.socket.write(bytes.mid(from));

    QTRY_COMPARE(frameSpy.count(), 1);
    QCOMPARE(m_server->receivedFrames(0), QStringList {frame});
    QVERIFY(m_server->pendingText(0).isEmpty());
}

void TestFakeCtiServer::severalFramesInOneWrite()
{
    TestClient client;
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());

    const QString first = keepAliveFrame();
    const QString second
        = AckMsg(QStringLiteral("{67c8770b-44f1-410a-ab9a-f9b5446f13ee}")).serializeToXml("5.7");
    const QString partial = QStringLiteral("<SRNT><API>5.7</API>");
    client.socket.write((first + QLatin1Char('\n') + second + partial).toUtf8());

    QTRY_COMPARE(m_server->receivedFrames(0).size(), 2);
    QCOMPARE(m_server->receivedFrames(0).at(0), first);
    QCOMPARE(m_server->receivedFrames(0).at(1), second);
    QCOMPARE(m_server->pendingText(0), partial);
    QCOMPARE(m_server->framesContaining(QStringLiteral("MsgAck")), QStringList {second});
}

void TestFakeCtiServer::serverSplitFrameIsReassembledByClient_data()
{
    QTest::addColumn<QList<int>>("cuts");
    QTest::addColumn<int>("chunkSize");

    QTest::newRow("one cut inside <SRNT>") << QList<int> {2} << 0;
    QTest::newRow("cut just before </SRNT>") << QList<int> {-7} << 0;
    QTest::newRow("cut inside </SRNT>") << QList<int> {-2} << 0;
    QTest::newRow("cut inside a character") << QList<int> {-1000} << 0;
    QTest::newRow("chunks of 1 byte") << QList<int>() << 1;
    QTest::newRow("chunks of 16 bytes") << QList<int>() << 16;
}

void TestFakeCtiServer::serverSplitFrameIsReassembledByClient()
{
    QFETCH(QList<int>, cuts);
    QFETCH(int, chunkSize);

    TestClient client;
    QSignalSpy encryptedSpy(m_server.get(), &FakeCtiServer::clientEncrypted);
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    QTRY_COMPARE(encryptedSpy.count(), 1);

    const QString frame = FakeCtiServer::document(
        QStringLiteral("<ExtenStatus><Exten>201</Exten><Name>J\u00fcrgen</Name></ExtenStatus>"));
    const QByteArray bytes = frame.toUtf8();
    for (int& cut : cuts) {
        if (cut == -1000)
            cut = bytes.indexOf("\xc3\xbc") + 1;
        else if (cut < 0)
            cut += bytes.size();
    }

    // A pause long enough for the client to read each piece on its own.
    if (chunkSize == 0)
        m_server->setChunkInterval(10);
    QSignalSpy chunkSpy(m_server.get(), &FakeCtiServer::chunkWritten);
    QSignalSpy doneSpy(m_server.get(), &FakeCtiServer::sendQueueEmpty);
    if (chunkSize > 0)
        QVERIFY(m_server->sendInChunks(0, frame, chunkSize));
    else
        QVERIFY(m_server->sendSplit(0, frame, cuts));

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

    QTRY_COMPARE(client.frames.size(), 1);
    QCOMPARE(client.frames.first(), frame);
    QVERIFY(client.parser.getCurrentBuffer().isEmpty());
    QVERIFY(client.readSizes.size() >= 2); // the pieces did arrive apart
}

void TestFakeCtiServer::sendAfterSplitKeepsByteOrder()
{
    TestClient client;
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    QTRY_COMPARE(m_server->encryptedConnectionCount(), 1);

    const QString first
        = FakeCtiServer::document(QStringLiteral("<ExtenStatus><Exten>201</Exten></ExtenStatus>"));
    const QString second = FakeCtiServer::keepAliveAckDocument();
    QVERIFY(m_server->sendInChunks(0, first, 10));
    QVERIFY(m_server->isSending(0));
    QVERIFY(m_server->send(0, second)); // must queue behind the pieces

    QTRY_COMPARE(client.frames.size(), 2);
    QCOMPARE(client.frames, (QStringList {first, second}));
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

    TestClient client;
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    client.socket.write(keepAliveFrame().toUtf8());
    client.socket.write(PlainRequestMessage(QStringLiteral("<Login><User>bob</User></Login>"))
                            .serializeToXml("6.1")
                            .toUtf8());

    QTRY_COMPARE(client.frames.size(), 1);
    QCOMPARE(calls, 1); // the keep-alive did not wake the Login responder
    const QString answer = client.frames.first();
    QCOMPARE(SimpleXmlParser::getTagValue(answer, QStringLiteral("ExitCode")), QStringLiteral("3"));
    QCOMPARE(SimpleXmlParser::getTagValue(answer, QStringLiteral("Reason")), QStringLiteral("BadUser-bob0"));

    QVERIFY(!m_server->waitForFrame(QStringLiteral("Login")).isEmpty());
    m_server->removeResponder(QStringLiteral("Login"));
    client.socket.write(PlainRequestMessage(QStringLiteral("<Login><User>bob</User></Login>"))
                            .serializeToXml("6.1")
                            .toUtf8());
    QVERIFY(!m_server->waitForFrame(QStringLiteral("Login")).isEmpty());
    // Any answer to the second login would have gone out ahead of this marker.
    QVERIFY(m_server->send(0, FakeCtiServer::probeDocument()));
    QTRY_COMPARE(client.frames.size(), 2);
    QVERIFY(client.frames.at(1).contains(QStringLiteral("<Probe>")));
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

    TestClient client;
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    client.socket.write(PlainRequestMessage(QStringLiteral("<Login><User>alice</User></Login>"))
                            .serializeToXml("5.7")
                            .toUtf8());

    QTRY_COMPARE(client.frames.size(), 1);
    const QString doc = client.frames.first();
    QVERIFY(doc.contains(QStringLiteral("<Response><Authenticated>")));
    QCOMPARE(SimpleXmlParser::getTagValue(doc, QStringLiteral("API")), QStringLiteral("5.7"));
    QCOMPARE(SimpleXmlParser::getTagValue(doc, QStringLiteral("ExitCode")), QStringLiteral("0"));
    QCOMPARE(SimpleXmlParser::getTagValue(doc, QStringLiteral("Exten")), QStringLiteral("305"));
    QCOMPARE(SimpleXmlParser::getTagValue(doc, QStringLiteral("Capabilities")), QStringLiteral("srnt_pro"));
    QCOMPARE(SimpleXmlParser::getTagValue(doc, QStringLiteral("Features")), QStringLiteral("SMS,MSGACK"));
    QCOMPARE(SimpleXmlParser::getTagValue(doc, QStringLiteral("FirstName")),
             QStringLiteral("Ren\u00e9e &amp; Co"));
    QVERIFY(!doc.contains(QStringLiteral("<LoggedOff>")));
    QVERIFY(!FakeCtiServer::uuidOf(doc).isEmpty());

    m_server->setAutoLogin(false);
    client.socket.write(PlainRequestMessage(QStringLiteral("<Login><User>alice</User></Login>"))
                            .serializeToXml("5.7")
                            .toUtf8());
    QTRY_COMPARE(m_server->receivedFrames(0).size(), 2);
    // Any answer to the second login would have gone out ahead of this marker.
    QVERIFY(m_server->send(0, FakeCtiServer::probeDocument()));
    QTRY_COMPARE(client.frames.size(), 2);
    QVERIFY(client.frames.at(1).contains(QStringLiteral("<Probe>")));
}

void TestFakeCtiServer::autoKeepAliveAck()
{
    m_server->setAutoKeepAliveAck(true);
    TestClient client;
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    client.socket.write(keepAliveFrame().toUtf8());

    QTRY_COMPARE(client.frames.size(), 1);
    // Recognised by "<KAACK>": a self-closed element would not be.
    QVERIFY(client.frames.first().contains(QStringLiteral("<KAACK>")));
}

void TestFakeCtiServer::waitForFrameTakesEachFrameOnce()
{
    TestClient client;
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());

    const QString first = keepAliveFrame();
    client.socket.write(first.toUtf8());
    int conn = -1;
    QCOMPARE(m_server->waitForFrame(QStringLiteral("KeepAlive"), 5000, &conn), first);
    QCOMPARE(conn, 0);

    const QString second = keepAliveFrame();
    QVERIFY(second != first); // a fresh UUID each time
    client.socket.write(second.toUtf8());
    QCOMPARE(m_server->waitForFrame(QStringLiteral("KeepAlive"), 5000), second);
}

void TestFakeCtiServer::waitForFrameTimesOut()
{
    TestClient client;
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    client.socket.write(keepAliveFrame().toUtf8());
    QTRY_COMPARE(m_server->receivedFrames(0).size(), 1);

    QVERIFY(m_server->waitForFrame(QStringLiteral("Login"), 100).isEmpty());
    // An element name is matched whole: "KeepAliv" is not "KeepAlive".
    QVERIFY(m_server->waitForFrame(QStringLiteral("KeepAliv"), 50).isEmpty());
}

void TestFakeCtiServer::bannerOnConnect()
{
    m_server->setBannerOnConnect(QStringLiteral("5.7"), QStringLiteral("4.2"));
    TestClient client;
    client.connectTo(*m_server);

    QTRY_COMPARE(client.frames.size(), 1);
    const QString banner = client.frames.first();
    QCOMPARE(SimpleXmlParser::getTagValue(banner, QStringLiteral("API")), QStringLiteral("5.7"));
    QCOMPARE(SimpleXmlParser::getTagValue(banner, QStringLiteral("MinAPI")), QStringLiteral("4.2"));
    QVERIFY(client.socket.isEncrypted());
}

void TestFakeCtiServer::connectionsAreNumberedAndKept()
{
    QSignalSpy connectedSpy(m_server.get(), &FakeCtiServer::clientConnected);
    QSignalSpy disconnectedSpy(m_server.get(), &FakeCtiServer::clientDisconnected);

    TestClient a;
    a.connectTo(*m_server);
    QVERIFY(a.waitForEncrypted());
    QTRY_COMPARE(connectedSpy.count(), 1);
    TestClient b;
    b.connectTo(*m_server);
    QVERIFY(b.waitForEncrypted());
    QTRY_COMPARE(m_server->connectionCount(), 2);
    QCOMPARE(connectedSpy.at(1).at(0).toInt(), 1);

    const QString fromB = keepAliveFrame();
    b.socket.write(fromB.toUtf8());
    QTRY_COMPARE(m_server->receivedFrames(1), QStringList {fromB});
    QVERIFY(m_server->receivedFrames(0).isEmpty());
    QCOMPARE(m_server->framesContaining(QStringLiteral("KeepAlive"), 0), QStringList());
    QCOMPARE(m_server->framesContaining(QStringLiteral("KeepAlive"), 1), QStringList {fromB});

    a.socket.disconnectFromHost();
    QTRY_COMPARE(disconnectedSpy.count(), 1);
    QCOMPARE(disconnectedSpy.at(0).at(0).toInt(), 0);
    QCOMPARE(m_server->openConnectionCount(), 1);
    QVERIFY(!m_server->isConnected(0));
    QVERIFY(!m_server->send(0, FakeCtiServer::probeDocument()));
    QVERIFY(m_server->send(1, FakeCtiServer::probeDocument()));
    QTRY_COMPARE(b.frames.size(), 1);
    QCOMPARE(m_server->receivedFrames(1), QStringList {fromB}); // kept after other closes

    m_server->clearFrames();
    QVERIFY(m_server->receivedFrames(1).isEmpty());
    QVERIFY(m_server->allFrames().isEmpty());
}

void TestFakeCtiServer::disconnectClientWaitsForQueuedPieces()
{
    TestClient client;
    QSignalSpy clientGone(&client.socket, &QSslSocket::disconnected);
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    QTRY_COMPARE(m_server->encryptedConnectionCount(), 1);

    const QString frame = FakeCtiServer::loggedOffDocument(QStringLiteral("Kicked"));
    QVERIFY(m_server->sendInChunks(0, frame, 8));
    m_server->disconnectClient(0);
    QVERIFY(m_server->isConnected(0));

    QTRY_COMPARE(clientGone.count(), 1);
    QTRY_COMPARE(client.frames, QStringList {frame});
    QTRY_VERIFY(!m_server->isConnected(0));
}

void TestFakeCtiServer::abortClient()
{
    QSignalSpy disconnectedSpy(m_server.get(), &FakeCtiServer::clientDisconnected);
    TestClient client;
    QSignalSpy clientGone(&client.socket, &QSslSocket::disconnected);
    client.connectTo(*m_server);
    QVERIFY(client.waitForEncrypted());
    QTRY_COMPARE(m_server->encryptedConnectionCount(), 1);

    QVERIFY(m_server->sendInChunks(0, FakeCtiServer::probeDocument(), 4));
    m_server->abortClient(0);
    QCOMPARE(disconnectedSpy.count(), 1);
    QVERIFY(!m_server->isSending(0));
    QVERIFY(!m_server->isConnected(0));
    QTRY_COMPARE(clientGone.count(), 1);
    QVERIFY(client.frames.isEmpty());
}

void TestFakeCtiServer::clientVerifyingPeerRefusesSelfSignedCertificate()
{
    TestClient client(false);
    client.socket.setPeerVerifyMode(QSslSocket::VerifyPeer);
    QSignalSpy sslErrorsSpy(&client.socket, qOverload<const QList<QSslError>&>(&QSslSocket::sslErrors));
    QSignalSpy encryptedSpy(&client.socket, &QSslSocket::encrypted);
    QSignalSpy errorSpy(&client.socket, &QSslSocket::errorOccurred);
    client.connectTo(*m_server);

    QTRY_COMPARE(sslErrorsSpy.count(), 1);
    const auto errors = sslErrorsSpy.at(0).at(0).value<QList<QSslError>>();
    QVERIFY(!errors.isEmpty());
    bool selfSigned = false;
    for (const QSslError& e : errors)
        selfSigned |= e.error() == QSslError::SelfSignedCertificate;
    QVERIFY2(selfSigned, qPrintable(errors.first().errorString()));
    QTRY_VERIFY(!errorSpy.isEmpty());
    QCOMPARE(errorSpy.first().at(0).value<QAbstractSocket::SocketError>(),
             QAbstractSocket::SslHandshakeFailedError);
    QCOMPARE(encryptedSpy.count(), 0);
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
    QVERIFY(m_server->receivedFrames(0).isEmpty());

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
    const QDateTime stamp
        = QDateTime::fromString(SimpleXmlParser::getTagValue(doc, QStringLiteral("Timestamp")),
                                QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzz"));
    QVERIFY(stamp.isValid());

    const QString a = FakeCtiServer::document(QStringLiteral("<X/>"));
    const QString b = FakeCtiServer::document(QStringLiteral("<X/>"));
    QVERIFY(FakeCtiServer::uuidOf(a) != FakeCtiServer::uuidOf(b));

    const QString failed = FakeCtiServer::failedDocument(QStringLiteral("a<b"));
    QCOMPARE(SimpleXmlParser::getTagValue(failed, QStringLiteral("RequestFailed")), QStringLiteral("a&lt;b"));
    const QString error = FakeCtiServer::errorDocument(QStringLiteral("Bad"), QStringLiteral("<Foo/>"));
    QCOMPARE(SimpleXmlParser::getTagValue(error, QStringLiteral("OriginalMessage")),
             QStringLiteral("&lt;Foo/&gt;"));
    const QString redirect = FakeCtiServer::redirectDocument(QStringLiteral("10.0.0.9"), 5040);
    QCOMPARE(SimpleXmlParser::getTagValue(redirect, QStringLiteral("ServerPort")), QStringLiteral("5040"));
}

QTEST_GUILESS_MAIN(TestFakeCtiServer)
#include "tst_fakectiserver.moc"
