// The session with the CTI server as an application meets it: logging in
// with and without a banner, refused logins, the ways a session ends,
// redirection, the domain of old servers, the feature bits, certificate
// checking and the timers (shortened through the private interval hook).
#include "fakectiserver.h"
#include "logbuscapture.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"
#include "telvix.h"
#include "telvix_p.h"
#include "telvixtimers_p.h"

#include <QScopedPointer>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QString field(const QString& frame, const char* name)
{
    return SimpleXmlParser::getDecodedTagValue(frame, QLatin1String(name));
}

/// The timers' intervals with some shortened (milliseconds; 0 keeps the real one).
TelvixTimerIntervals timers(int keepAlive, int keepAliveAck, int guiKeepAlive = 0, int periodicData = 0)
{
    TelvixTimerIntervals t;
    t.keepAliveMs = keepAlive ? keepAlive : t.keepAliveMs;
    t.keepAliveAckMs = keepAliveAck ? keepAliveAck : t.keepAliveAckMs;
    t.guiKeepAliveMs = guiKeepAlive ? guiKeepAlive : t.guiKeepAliveMs;
    t.periodicDataMs = periodicData ? periodicData : t.periodicDataMs;
    return t;
}

/// A client on its own thread and a fake server, not yet connected.
struct Session
{
    QTemporaryDir dir;
    FakeCtiServer server;
    QScopedPointer<Telvix> client;

    /// Every disconnectedFromServer of the client.
    QScopedPointer<QSignalSpy> gone;

    explicit Session(const TelvixTimerIntervals& intervals = TelvixTimerIntervals())
    {
        client.reset(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"),
                                QStringLiteral("session-test"), QStringLiteral("2.0"),
                                QStringLiteral("dev-7"), dir.path()));
        setTelvixTimerIntervals(client.data(), intervals);
        gone.reset(new QSignalSpy(client.data(), &Telvix::disconnectedFromServer));
    }
    ~Session()
    {
        if (client->isRunning())
            client->shutdown();
    }

    bool start()
    {
        server.setAutoKeepAliveAck(true);
        return server.listen() && client->init();
    }
    void connect(TELVIX::AppMode mode = TELVIX::AppModeSrntPro,
                 const QString& domain = QStringLiteral("default"), quint16 port = 0)
    {
        client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), domain, mode,
                                FakeCtiServer::host(), port ? port : server.port());
    }
    /// Connects with the canned login answer and waits for the login.
    bool logIn(TELVIX::AppMode mode = TELVIX::AppModeSrntPro)
    {
        QSignalSpy logged(client.data(), &Telvix::loggedToServer);
        server.setAutoLogin(true);
        connect(mode);
        return QTest::qWaitFor([&logged] { return !logged.isEmpty(); }, 10000);
    }
    bool startLoggedIn() { return start() && logIn(); }
    QStringList loginFrames() const { return server.framesContaining(QStringLiteral("Login")); }
    /// The UUIDs the client acknowledged, in order.
    QStringList ackedIds() const
    {
        QStringList ids;
        const QStringList acks = server.framesContaining(QStringLiteral("MsgAck"));
        for (const QString& ack : acks)
            ids << field(ack, "AckUUID");
        return ids;
    }
    int features()
    {
        TelvixPrivate* d = TelvixPrivate::get(client.data());
        int bits = -1;
        QMetaObject::invokeMethod(
            client.data(), [d, &bits] { bits = d->features; }, Qt::BlockingQueuedConnection);
        return bits;
    }
};

/// Waits for the one disconnection of a session and returns its reason.
QString waitForDisconnection(QSignalSpy& spy)
{
    if (!QTest::qWaitFor([&spy] { return !spy.isEmpty(); }, 10000))
        return QStringLiteral("<no disconnection>");
    return spy.takeFirst().at(0).toString();
}

} // namespace

class TestTelvixSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loginWithoutBanner();
    void loginAfterBannerInTheHandshakePacket();
    void bannerRightAfterLoginIsRefusedAsTooEarly();
    void refusedLoginEndsWithTheReasonWord_data();
    void refusedLoginEndsWithTheReasonWord();
    void secondLoginAnswerChangesNothingAndIsNotAcked();
    void loggedOffEndsTheSessionWithItsReason();
    void messagesBehindAnExitWaitForTheNextData();
    void redirectMovesToAnotherServer();
    void redirectToTheSameServerIsRefused();
    void serverHangUpReportsUnkown();
    void closeAfterLogoutIsUserRequest();
    void refusedConnectionReportsTheSocketError();
    void domainOfOldServers_data();
    void domainOfOldServers();
    void featureBits_data();
    void featureBits();
    void certificateCheckCanBeTurnedOn();
    void connectAgainKeepsOrDropsTheSessionSilently();
    void keepAliveIsSentAndAnsweredOnTime();
    void missingKeepAliveAckEndsTheSession();
    void guiKeepAliveBeatsEvenWhenDisabled();
    void periodicDataRunsInDesktopModesOnly_data();
    void periodicDataRunsInDesktopModesOnly();
};

void TestTelvixSession::loginWithoutBanner()
{
    Session s;
    QVERIFY(s.start());
    QString answerId;
    s.server.setResponder(QStringLiteral("Login"), [&answerId](int, const QString&) {
        FakeCtiServer::LoginAnswer answer;
        answer.mobileNumber = QStringLiteral("3331234567");
        answer.features = QStringList {QStringLiteral("SMS"), QStringLiteral("REBRANDING")};
        const QString xml = FakeCtiServer::loginAnswerDocument(answer, QStringLiteral("6.1"));
        answerId = FakeCtiServer::uuidOf(xml);
        return xml;
    });
    QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);
    s.connect();
    QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 10000);

    QCOMPARE(s.loginFrames().size(), 1);
    const QString login = s.loginFrames().first();
    // Without a banner the login goes out at the oldest version.
    const QList<QPair<const char*, const char*>> sent = {{"API", "4.0"},
                                                         {"User", "alice"},
                                                         {"PWD", "secret"},
                                                         {"Domain", "default"},
                                                         {"Capabilities", "srnt_pro"},
                                                         {"OSType", "Linux"},
                                                         {"SwType", "session-test"},
                                                         {"DeviceUuid", "dev-7"}};
    for (const auto& tagValue : sent)
        QCOMPARE(field(login, tagValue.first), QString::fromLatin1(tagValue.second));

    const LoginDetails details = logged.at(0).at(0).value<LoginDetails>();
    QCOMPARE(details.apiVersion, QStringLiteral("6.1"));
    QCOMPARE(details.exten, QStringLiteral("200"));
    QCOMPARE(details.mobileNumber, QStringLiteral("3331234567"));
    QCOMPARE(details.firstName, QStringLiteral("Alice"));
    QCOMPARE(int(details.appMode), int(TELVIX::AppModeSrntPro));
    QCOMPARE(s.client->getDisplayedNum(), QStringLiteral("200"));
    QCOMPARE(s.client->getConnectionState(), int(Telvix::StateConnected));
    QVERIFY(s.client->isConnected());

    // After the login: CTI configuration (API 6.1 >= 5.3), service codes,
    // then the acknowledgement of the answer, all at the server's version.
    QTRY_COMPARE(s.ackedIds(), QStringList {answerId});
    const QStringList frames = s.server.receivedFrames(s.server.lastConnection());
    QCOMPARE(frames.size(), 4);
    QVERIFY(FakeCtiServer::hasElement(frames.at(1), QStringLiteral("GetCtiConfiguration")));
    QVERIFY(FakeCtiServer::hasElement(frames.at(2), QStringLiteral("GetServicesCode")));
    QVERIFY(FakeCtiServer::hasElement(frames.at(3), QStringLiteral("MsgAck")));
    for (int i = 1; i < frames.size(); ++i)
        QCOMPARE(field(frames.at(i), "API"), QStringLiteral("6.1"));
}

void TestTelvixSession::loginAfterBannerInTheHandshakePacket()
{
    Session s;
    // Under TLS 1.2 the server's Finished is its last handshake flight, so a
    // banner written right behind it arrives with it.
    s.server.setProtocol(QSsl::TlsV1_2);
    s.server.setBannerOnConnect(QStringLiteral("5.0"), QStringLiteral("4.0"));
    s.server.setApiVersion(QStringLiteral("5.0"));
    QVERIFY(s.start());
    LogbusCapture log;
    QVERIFY(s.logIn());

    QCOMPARE(s.loginFrames().size(), 1);
    QCOMPARE(field(s.loginFrames().first(), "API"), QStringLiteral("5.0"));
    QVERIFY(log.contains(1000, "Received banner with API version. server: 5.0 - client: 5.0"));
    QVERIFY(!log.contains("Trying to send authentication too early"));
    // API 5.0 is below 5.3: no CTI configuration is asked for.
    QVERIFY(s.server.framesContaining(QStringLiteral("GetCtiConfiguration")).isEmpty());
}

void TestTelvixSession::bannerRightAfterLoginIsRefusedAsTooEarly()
{
    Session s;
    QVERIFY(s.start());
    LogbusCapture log;
    // The banner comes only once the client has logged in without it.
    s.server.setResponder(QStringLiteral("Login"), [&s](int conn, const QString&) {
        s.server.sendBanner(conn, QStringLiteral("5.4"));
        return QString();
    });
    s.connect();
    QVERIFY(log.waitFor("Trying to send authentication too early. Last login attempt at "));
    QVERIFY(log.contains(100, "Trying to send authentication too early"));

    QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);
    s.server.send(s.server.lastConnection(), FakeCtiServer::loginAnswerDocument({}, QStringLiteral("6.1")));
    QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 5000);
    QCOMPARE(s.loginFrames().size(), 1);
    // The banner's version holds, not the login answer's.
    QCOMPARE(logged.at(0).at(0).value<LoginDetails>().apiVersion, QStringLiteral("5.4"));
    const QString ack = s.server.waitForFrame(QStringLiteral("MsgAck"));
    QCOMPARE(field(ack, "API"), QStringLiteral("5.4"));
}

void TestTelvixSession::refusedLoginEndsWithTheReasonWord_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<QString>("logLine");

    QTest::newRow("server's reason") << FakeCtiServer::loginRefusedDocument(3, "WrongPassword")
                                     << "WrongPassword"
                                     << "Login failed with exitcode  3  - Reason:  WrongPassword";
    QTest::newRow("another code") << FakeCtiServer::loginRefusedDocument(17, "LicenseExceeded")
                                  << "LicenseExceeded"
                                  << "Login failed with exitcode  17";
    FakeCtiServer::LoginAnswer loggedOff;
    loggedOff.reason = QStringLiteral("DuplicatedLogin");
    loggedOff.loggedOff = QStringLiteral("1");
    QTest::newRow("logged off in the answer")
        << FakeCtiServer::loginAnswerDocument(loggedOff) << "DuplicatedLogin"
        << "Login failed with exitcode  -1";
    FakeCtiServer::LoginAnswer noMode;
    noMode.capabilities = QStringLiteral("srnt_teleport");
    QTest::newRow("no known mode") << FakeCtiServer::loginAnswerDocument(noMode) << "NoCapability"
                                   << "Logged user has no capabilities";
    // Without an extension the answer does not even parse: the word is the
    // (empty) reason of an unreadable answer.
    FakeCtiServer::LoginAnswer noExten;
    noExten.exten.clear();
    QTest::newRow("no extension") << FakeCtiServer::loginAnswerDocument(noExten) << ""
                                  << "Login failed with exitcode  0";
}

void TestTelvixSession::refusedLoginEndsWithTheReasonWord()
{
    QFETCH(QString, answer);
    QFETCH(QString, reason);
    QFETCH(QString, logLine);
    Session s;
    QVERIFY(s.start());
    LogbusCapture log;
    s.server.setResponder(QStringLiteral("Login"), [answer](int, const QString&) { return answer; });
    QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);
    s.connect();
    QCOMPARE(waitForDisconnection(*s.gone), reason);
    QVERIFY2(log.contains(logLine), qPrintable(log.texts().join('\n')));
    QCOMPARE(logged.count(), 0);
    QCOMPARE(s.client->getConnectionState(), int(Telvix::StateDisconnected));
    QVERIFY(s.ackedIds().isEmpty());
    QTRY_COMPARE(s.server.openConnectionCount(), 0);
}

void TestTelvixSession::secondLoginAnswerChangesNothingAndIsNotAcked()
{
    Session s;
    QVERIFY(s.startLoggedIn());
    QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);
    FakeCtiServer::LoginAnswer other;
    other.exten = QStringLiteral("999");
    const QString second = FakeCtiServer::loginAnswerDocument(other);
    const int conn = s.server.lastConnection();
    s.server.clearFrames();
    // A probe behind it tells when both were handled.
    s.server.send(conn, second);
    s.server.send(conn, FakeCtiServer::probeDocument());
    QVERIFY(!s.server.waitForFrame(QStringLiteral("KeepAlive")).isEmpty());
    QCOMPARE(logged.count(), 0);
    QCOMPARE(s.client->getDisplayedNum(), QStringLiteral("200"));
    QVERIFY(!s.ackedIds().contains(FakeCtiServer::uuidOf(second)));
}

void TestTelvixSession::loggedOffEndsTheSessionWithItsReason()
{
    Session s;
    QVERIFY(s.startLoggedIn());
    LogbusCapture log;
    const QString notice = FakeCtiServer::loggedOffDocument(QStringLiteral("KickedByAdmin"));
    s.server.send(s.server.lastConnection(), notice);
    QCOMPARE(waitForDisconnection(*s.gone), QStringLiteral("KickedByAdmin"));
    QVERIFY(log.contains(1000, "Logged off with reason:  KickedByAdmin"));
    QVERIFY(log.contains(1000, "Disconnecting from Vantor due to reason KickedByAdmin"));
    QVERIFY(!s.ackedIds().contains(FakeCtiServer::uuidOf(notice)));
    QVERIFY(!s.client->isConnected());
}

void TestTelvixSession::messagesBehindAnExitWaitForTheNextData()
{
    Session s;
    QVERIFY(s.start());
    s.server.setAutoLogin(false);
    QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);
    s.connect();
    const int conn = [&s] {
        s.server.waitForFrame(QStringLiteral("Login"));
        return s.server.lastConnection();
    }();
    // The login answer and a mailbox notice in one write: the loop leaves
    // after the login, and the notice waits for the next data.
    const QString mailbox = FakeCtiServer::document(
        QStringLiteral("<MailboxStatus><NewMsgCount>2</NewMsgCount></MailboxStatus>"));
    QSignalSpy mailboxSpy(s.client.data(), &Telvix::sigMailboxStatusChanged);
    s.server.send(conn, FakeCtiServer::loginAnswerDocument({}) + mailbox);
    QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 5000);
    s.server.send(conn, FakeCtiServer::keepAliveAckDocument());
    QTRY_VERIFY(s.ackedIds().contains(FakeCtiServer::uuidOf(mailbox)));
    QCOMPARE(mailboxSpy.count(), 1);
    QCOMPARE(mailboxSpy.at(0).at(0).value<MailboxStatus>().newCount, 2);
}

void TestTelvixSession::redirectMovesToAnotherServer()
{
    Session s;
    QVERIFY(s.start());
    FakeCtiServer other;
    other.setAutoLogin(true);
    other.setAutoKeepAliveAck(true);
    QVERIFY(other.listen());
    QVERIFY(s.logIn());
    LogbusCapture log;
    QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);

    const QString redirect = FakeCtiServer::redirectDocument(QString(), other.port());
    s.server.send(s.server.lastConnection(), redirect);
    QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 10000);
    QVERIFY(log.contains(
        1000, QStringLiteral("Redirecting client to server IP 127.0.0.1 and port %1").arg(other.port())));
    QCOMPARE(s.gone->count(), 0);
    QTRY_COMPARE(s.server.openConnectionCount(), 0);
    // The redirect is acknowledged on the new connection.
    const QStringList acks = other.framesContaining(QStringLiteral("MsgAck"));
    QStringList ackIds;
    for (const QString& ack : acks)
        ackIds << field(ack, "AckUUID");
    QVERIFY(ackIds.contains(FakeCtiServer::uuidOf(redirect)));
    QCOMPARE(other.framesContaining(QStringLiteral("Login")).size(), 1);
    QCOMPARE(field(other.framesContaining(QStringLiteral("Login")).first(), "User"), QStringLiteral("alice"));
    QVERIFY(s.client->isConnected());
}

void TestTelvixSession::redirectToTheSameServerIsRefused()
{
    Session s;
    QVERIFY(s.startLoggedIn());
    LogbusCapture log;
    const QString redirect = FakeCtiServer::redirectDocument(FakeCtiServer::host(), s.server.port());
    s.server.send(s.server.lastConnection(), redirect);
    QCOMPARE(waitForDisconnection(*s.gone), QStringLiteral("WrongConfig"));
    QVERIFY(log.contains(10, "Got the same server IP:port in redirect msg"));
    QVERIFY(!s.ackedIds().contains(FakeCtiServer::uuidOf(redirect)));
    QCOMPARE(s.server.connectionCount(), 1);
}

void TestTelvixSession::serverHangUpReportsUnkown()
{
    Session s;
    QVERIFY(s.startLoggedIn());
    LogbusCapture log;
    s.server.disconnectClient(s.server.lastConnection());
    QCOMPARE(waitForDisconnection(*s.gone), QStringLiteral("Unkown"));
    QVERIFY(log.contains(10, "Socket disconnected"));
    QCOMPARE(s.client->getConnectionState(), int(Telvix::StateDisconnected));
    QCOMPARE(s.gone->count(), 0);
}

void TestTelvixSession::closeAfterLogoutIsUserRequest()
{
    Session s;
    QVERIFY(s.startLoggedIn());
    // The server closes once it has the logout.
    s.server.setResponder(QStringLiteral("Logoff"), [&s](int conn, const QString&) {
        s.server.disconnectClient(conn);
        return QString();
    });
    QVERIFY(s.client->logout());
    QCOMPARE(waitForDisconnection(*s.gone), QStringLiteral("UserRequest"));
    QCOMPARE(s.server.framesContaining(QStringLiteral("Logoff")).size(), 1);
}

void TestTelvixSession::refusedConnectionReportsTheSocketError()
{
    Session s;
    QVERIFY(s.start());
    const quint16 closedPort = s.server.port();
    s.server.close();
    QTcpSocket probe;
    probe.connectToHost(FakeCtiServer::host(), closedPort);
    QVERIFY(!probe.waitForConnected(5000));
    QCOMPARE(probe.error(), QAbstractSocket::ConnectionRefusedError);

    s.connect(TELVIX::AppModeSrntPro, QStringLiteral("default"), closedPort);
    QCOMPARE(waitForDisconnection(*s.gone), probe.errorString());
    QCOMPARE(s.client->getConnectionState(), int(Telvix::StateDisconnected));
}

void TestTelvixSession::domainOfOldServers_data()
{
    QTest::addColumn<QString>("bannerApi");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<QString>("sent");
    QTest::newRow("no banner") << "" << int(TELVIX::AppModeSrntPro) << ""
                               << "vantorpbx";
    QTest::newRow("4.1") << "4.1" << int(TELVIX::AppModeSrntPro) << ""
                         << "vantorpbx";
    QTest::newRow("4.1 with a domain") << "4.1" << int(TELVIX::AppModeSrntPro) << "acme"
                                       << "acme";
    QTest::newRow("4.1 mobile") << "4.1" << int(TELVIX::AppModeSrntMobile) << ""
                                << "";
    QTest::newRow("4.2") << "4.2" << int(TELVIX::AppModeSrntPro) << ""
                         << "";
    // Numbers, not text: 10.0 is a new server here.
    QTest::newRow("10.0") << "10.0" << int(TELVIX::AppModeSrntPro) << ""
                          << "";
}

void TestTelvixSession::domainOfOldServers()
{
    QFETCH(QString, bannerApi);
    QFETCH(int, mode);
    QFETCH(QString, domain);
    QFETCH(QString, sent);
    Session s;
    s.server.setProtocol(QSsl::TlsV1_2);
    s.server.setBannerOnConnect(bannerApi);
    QVERIFY(s.start());
    s.server.setAutoLogin(true);
    QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);
    s.connect(TELVIX::AppMode(mode), domain);
    QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 10000);
    QCOMPARE(s.loginFrames().size(), 1);
    QCOMPARE(field(s.loginFrames().first(), "Domain"), sent);
}

void TestTelvixSession::featureBits_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<int>("bits");
    // Versions compare as text: "10.0" sorts below "4.2".
    QTest::newRow("4.1") << "4.1" << QStringList() << 0x0200;
    QTest::newRow("5.0") << "5.0" << QStringList() << (0x0004 | 0x0008 | 0x0020 | 0x0010 | 0x0040);
    QTest::newRow("6.7") << "6.7" << QStringList()
                         << (0x0004 | 0x0008 | 0x0020 | 0x0010 | 0x0040 | 0x0080 | 0x0400 | 0x2000 | 0x4000);
    QTest::newRow("10.0") << "10.0" << QStringList() << 0x0200;
    QTest::newRow("4.4 is not above 4.4") << "4.4" << QStringList() << 0;
    QTest::newRow("10.0 with words") << "10.0"
                                     << QStringList {"SMS", "SUBSCRIBE_TENANT_EVENTS", "CCREPORT", "MSGACK",
                                                     "REBRANDING"}
                                     << (0x0200 | 0x0001 | 0x0100 | 0x0004 | 0x0040 | 0x0800);
    QTest::newRow("5.0 with words") << "5.0"
                                    << QStringList {"CUMULATIVE_STATS", "PUSH_DTMF_TOS_CODECS", "SEND_CMD"}
                                    << (0x0004 | 0x0008 | 0x0020 | 0x0010 | 0x0040 | 0x0080 | 0x1000
                                        | 0x0200);
    QTest::newRow("words are case-sensitive") << "4.4" << QStringList {"sms", "Rebranding"} << 0;
}

void TestTelvixSession::featureBits()
{
    QFETCH(QString, api);
    QFETCH(QStringList, words);
    QFETCH(int, bits);
    Session s;
    s.server.setApiVersion(api);
    FakeCtiServer::LoginAnswer answer;
    answer.features = words;
    s.server.setLoginAnswer(answer);
    QVERIFY(s.startLoggedIn());
    QCOMPARE(s.features(), bits);
}

void TestTelvixSession::certificateCheckCanBeTurnedOn()
{
    Session s;
    QVERIFY(s.start());
    s.client->ignoreSslErrors(false);
    LogbusCapture log;
    s.connect();
    const QString reason = waitForDisconnection(*s.gone);
    QVERIFY(!reason.isEmpty());
    QVERIFY(reason != QLatin1String("Unkown"));
    QVERIFY(log.contains(10, "SSL error:"));
    QVERIFY(s.loginFrames().isEmpty());

    // By default the same certificate is accepted.
    s.client->ignoreSslErrors(true);
    QVERIFY(s.logIn());
}

void TestTelvixSession::connectAgainKeepsOrDropsTheSessionSilently()
{
    Session s;
    QVERIFY(s.startLoggedIn());
    // The same values during a login change nothing.
    s.connect();
    QVERIFY(s.client->isConnected()); // blocking: runs after the queued connect
    QCOMPARE(s.server.connectionCount(), 1);

    // Other values drop the old socket without a disconnection signal.
    s.connect(TELVIX::AppModeSrntPro, QStringLiteral("other-domain"));
    QTRY_COMPARE(s.server.connectionCount(), 2);
    QTRY_VERIFY(!s.server.isConnected(0));
    QVERIFY(!s.client->isConnected());
    QCOMPARE(s.client->getConnectionState(), int(Telvix::StateConnecting));
    QCOMPARE(s.gone->count(), 0);
}

void TestTelvixSession::keepAliveIsSentAndAnsweredOnTime()
{
    Session s(timers(100, 2000));
    QVERIFY(s.startLoggedIn());
    // Answered keep-alives keep the session: three rounds pass.
    QTRY_VERIFY(s.server.framesContaining(QStringLiteral("KeepAlive")).size() >= 3);
    QCOMPARE(s.gone->count(), 0);
    QVERIFY(s.client->stopKeepAliveTimer());
    QVERIFY(s.client->isConnected());
}

void TestTelvixSession::missingKeepAliveAckEndsTheSession()
{
    // A keep-alive restarts the ack timer: the wait must end before the next.
    Session s(timers(200, 100));
    QVERIFY(s.startLoggedIn());
    s.server.setAutoKeepAliveAck(false);
    LogbusCapture log;
    QCOMPARE(waitForDisconnection(*s.gone), QStringLiteral("ConnectionTimeout"));
    QVERIFY(log.contains(100, "Connection timed-out: no ACK received to KeepAlive message"));
    QVERIFY(!s.server.framesContaining(QStringLiteral("KeepAlive")).isEmpty());
}

void TestTelvixSession::guiKeepAliveBeatsEvenWhenDisabled()
{
    Session s(timers(0, 0, 50));
    QVERIFY(s.start());
    QSignalSpy beats(s.client.data(), &Telvix::sigGuiKeepAlive);
    LogbusCapture log;
    QVERIFY(s.client->enableGuiKeepAlive(false));
    QTRY_VERIFY(beats.count() >= 3);
    QVERIFY(log.contains(10000, "GUI KeepAlive Disabled"));
    QVERIFY(log.contains(10000, "Sending GUI KeepAlive"));
    QVERIFY(s.client->ackGuiKeepAlive());
    QVERIFY(log.waitFor("GUI KeepAlive acked."));
}

void TestTelvixSession::periodicDataRunsInDesktopModesOnly_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("runs");
    QTest::newRow("srnt_pro") << int(TELVIX::AppModeSrntPro) << true;
    QTest::newRow("srntlog") << int(TELVIX::AppModeSrntLog) << false;
    QTest::newRow("srnt_mobile") << int(TELVIX::AppModeSrntMobile) << false;
}

void TestTelvixSession::periodicDataRunsInDesktopModesOnly()
{
    QFETCH(int, mode);
    QFETCH(bool, runs);
    Session s(timers(0, 0, 50, 50));
    QVERIFY(s.start());
    LogbusCapture log;
    QVERIFY(s.logIn(TELVIX::AppMode(mode)));
    // The heartbeat runs at the same pace on the same thread: once it has
    // beaten a few times, the periodic timer would have run as often.
    QVERIFY(s.client->enableGuiKeepAlive(true));
    QTRY_VERIFY(log.count("Sending GUI KeepAlive") >= 5);
    if (runs)
        QTRY_VERIFY(log.count("Current APP MODE:") >= 3);
    else
        QCOMPARE(log.count("Current APP MODE:"), 0);
    // A desktop client asks for what is new since its stored history.
    if (runs)
        QTRY_VERIFY(!s.server.framesContaining(QStringLiteral("GetCDR")).isEmpty());
    else
        QVERIFY(s.server.framesContaining(QStringLiteral("GetCDR")).isEmpty());
}

QTEST_GUILESS_MAIN(TestTelvixSession)
#include "tst_telvixsession.moc"
