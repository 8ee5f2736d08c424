// The session with the CTI server where the server itself misbehaves or is
// set up apart: logins with and without a banner (fixtures/client/session),
// refused logins, refused connections and certificate checking. What follows
// a plain login, the ordinary ends of a session, redirection, connecting
// again and the timers are the scenarios of fixtures/client/session.
#include "fakectiserver.h"
#include "jsonconvert.h"
#include "logbuscapture.h"
#include "scenario.h"
#include "simplexmlparser.h"
#include "telvix.h"
#include "telvix_p.h"

#include <QMetaEnum>
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

/// A client on its own thread and a fake server, not yet connected.
struct Session
{
    QTemporaryDir dir;
    FakeCtiServer server;
    QScopedPointer<Telvix> client {new Telvix("Linux", "6.1", "session-test", "2.0", "dev-7", dir.path())};
    QSignalSpy gone {client.data(), &Telvix::disconnectedFromServer};
    LogbusCapture log;

    Session() { server.setAutoKeepAliveAck(true); }
    ~Session()
    {
        if (client->isRunning())
            client->shutdown();
    }
    bool start() { return server.listen() && client->init(); }
    void connect(TELVIX::AppMode mode = TELVIX::AppModeSrntPro, const QString& domain = "default",
                 quint16 port = 0)
    {
        client->connectToServer("alice", "secret", domain, mode, FakeCtiServer::host(),
                                port ? port : server.port());
    }
    /// Connects with the canned login answer and waits for the login.
    bool logIn(TELVIX::AppMode mode = TELVIX::AppModeSrntPro, const QString& domain = "default")
    {
        QSignalSpy logged(client.data(), &Telvix::loggedToServer);
        server.setAutoLogin(true);
        connect(mode, domain);
        const bool in = QTest::qWaitFor([&logged] { return !logged.isEmpty(); }, 10000);
        details = in ? JsonConvert::toJson(logged.at(0).at(0)).toObject() : QJsonObject();
        return in;
    }
    QJsonObject details; // of the last login
    QStringList loginFrames() const { return server.framesContaining("Login"); }
    QStringList acks() const { return server.framesContaining("MsgAck"); }
    /// Waits for the one disconnection and returns its reason.
    QString disconnection()
    {
        return QTest::qWaitFor([this] { return !gone.isEmpty(); }, 10000) ? gone.takeFirst().at(0).toString()
                                                                          : "<no disconnection>";
    }
};

} // namespace

class TestTelvixSession : public ScenarioTest
{
    Q_OBJECT
public:
    TestTelvixSession()
        : ScenarioTest(QStringLiteral("session"))
    {
    }

private Q_SLOTS:
    void logins_data()
    {
        QTest::addColumn<QJsonObject>("row");
        QFile file(TELVIX_TEST_FIXTURES "/client/session/logins.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonArray rows = QJsonDocument::fromJson(file.readAll()).array();
        for (const QJsonValue& row : rows)
            QTest::newRow(qPrintable(row["name"].toString())) << row.toObject();
        QVERIFY(rows.size() > 10);
    }

    void logins()
    {
        QFETCH(QJsonObject, row);
        Session s;
        if (row.contains("banner")) {
            // Under TLS 1.2 the server's Finished is its last handshake flight,
            // so a banner written right behind it arrives with it.
            s.server.setProtocol(QSsl::TlsV1_2);
            s.server.setBannerOnConnect(row["banner"].toString());
        }
        s.server.setApiVersion(row["api"].toString("6.1"));
        FakeCtiServer::LoginAnswer answer;
        answer.mobileNumber = row["mobile"].toString();
        for (const QJsonValue& word : row["features"].toArray())
            answer.features << word.toString();
        s.server.setLoginAnswer(answer);
        QVERIFY(s.start());
        const int mode = QMetaEnum::fromType<TELVIX::AppMode>().keyToValue(
            qPrintable(row["mode"].toString("AppModeSrntPro")));
        if (row.contains("refused")) {
            const QString refusal = FakeCtiServer::document(row["answer"].toString());
            s.server.setResponder("Login", [refusal](int, const QString&) { return refusal; });
            QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);
            s.connect();
            QCOMPARE(s.disconnection(), row["refused"].toString());
            QCOMPARE(logged.count(), 0);
            QCOMPARE(s.client->getConnectionState(), int(Telvix::StateDisconnected));
            QTRY_COMPARE(s.server.openConnectionCount(), 0);
            QVERIFY(s.acks().isEmpty());
        } else {
            QVERIFY(s.logIn(TELVIX::AppMode(mode), row["domain"].toString("default")));
            const QJsonObject details = row["details"].toObject();
            for (auto it = details.begin(); it != details.end(); ++it)
                QCOMPARE(s.details.value(it.key()), it.value());
        }
        QCOMPARE(s.loginFrames().size(), 1);
        const QJsonObject login = row["login"].toObject();
        for (auto it = login.begin(); it != login.end(); ++it)
            QCOMPARE(field(s.loginFrames().first(), qPrintable(it.key())), it->toString());
        if (row.contains("frames")) {
            QTRY_VERIFY(!s.acks().isEmpty());
            const QStringList frames = s.server.receivedFrames(s.server.lastConnection());
            const QStringList expected = row["frames"].toVariant().toStringList();
            QCOMPARE(frames.size(), expected.size());
            for (int i = 0; i < frames.size(); ++i) {
                QVERIFY2(FakeCtiServer::hasElement(frames.at(i), expected.at(i)), qPrintable(frames.at(i)));
                QVERIFY(i == 0 || field(frames.at(i), "API") == row["framesApi"].toString());
            }
        }
        if (row.contains("bits")) {
            TelvixPrivate* d = TelvixPrivate::get(s.client.data());
            int bits = -1;
            QMetaObject::invokeMethod(
                s.client.data(), [d, &bits] { bits = d->features; }, Qt::BlockingQueuedConnection);
            QCOMPARE(bits, row["bits"].toInt());
        }
        for (const QJsonValue& line : row["log"].toArray())
            QVERIFY2(s.log.contains(line.toString()), qPrintable(s.log.texts().join('\n')));
        for (const QJsonValue& line : row["nolog"].toArray())
            QVERIFY(!s.log.contains(line.toString()));
    }

    void bannerRightAfterLoginIsRefusedAsTooEarly()
    {
        Session s;
        QVERIFY(s.start());
        // The banner comes only once the client has logged in without it.
        s.server.setResponder("Login", [&s](int conn, const QString&) {
            s.server.send(conn, FakeCtiServer::bannerDocument("5.4"));
            return QString();
        });
        s.connect();
        QVERIFY(s.log.waitFor("Trying to send authentication too early. Last login attempt at "));
        QVERIFY(s.log.contains(100, "Trying to send authentication too early"));
        QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);
        s.server.send(s.server.lastConnection(), FakeCtiServer::loginAnswerDocument({}, "6.1"));
        QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 5000);
        QCOMPARE(s.loginFrames().size(), 1);
        // The banner's version holds, not the login answer's.
        QCOMPARE(logged.at(0).at(0).value<LoginDetails>().apiVersion, QStringLiteral("5.4"));
        QCOMPARE(field(s.server.waitForFrame("MsgAck"), "API"), QStringLiteral("5.4"));
    }

    void messagesBehindAnExitWaitForTheNextData()
    {
        Session s;
        QVERIFY(s.start());
        QSignalSpy logged(s.client.data(), &Telvix::loggedToServer);
        QSignalSpy mailboxSpy(s.client.data(), &Telvix::sigMailboxStatusChanged);
        s.connect();
        QVERIFY(!s.server.waitForFrame("Login").isEmpty());
        // The login answer and a mailbox notice in one write: the loop leaves
        // after the login, and the notice waits for the next data.
        const QString mailbox
            = FakeCtiServer::document("<MailboxStatus><NewMsgCount>2</NewMsgCount></MailboxStatus>");
        s.server.send(s.server.lastConnection(), FakeCtiServer::loginAnswerDocument({}) + mailbox);
        QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 5000);
        s.server.send(s.server.lastConnection(), FakeCtiServer::keepAliveAckDocument());
        QTRY_VERIFY(!s.acks().filter("<AckUUID>" + FakeCtiServer::uuidOf(mailbox)).isEmpty());
        QCOMPARE(mailboxSpy.count(), 1);
        QCOMPARE(mailboxSpy.at(0).at(0).value<MailboxStatus>().newCount, 2);
    }

    void refusedConnectionReportsTheSocketError()
    {
        Session s;
        QVERIFY(s.start());
        const quint16 closedPort = s.server.port();
        s.server.close();
        QTcpSocket probe;
        probe.connectToHost(FakeCtiServer::host(), closedPort);
        QVERIFY(!probe.waitForConnected(5000));
        QCOMPARE(probe.error(), QAbstractSocket::ConnectionRefusedError);
        s.connect(TELVIX::AppModeSrntPro, "default", closedPort);
        QCOMPARE(s.disconnection(), probe.errorString());
        QCOMPARE(s.client->getConnectionState(), int(Telvix::StateDisconnected));
    }

    void certificateCheckCanBeTurnedOn()
    {
        Session s;
        QVERIFY(s.start());
        s.client->ignoreSslErrors(false);
        s.connect();
        const QString reason = s.disconnection();
        QVERIFY(!reason.isEmpty() && reason != QLatin1String("Unkown"));
        QVERIFY(s.log.contains(10, "SSL error:"));
        QVERIFY(s.loginFrames().isEmpty());
        // By default the same certificate is accepted.
        s.client->ignoreSslErrors(true);
        QVERIFY(s.logIn());
    }
};

QTEST_GUILESS_MAIN(TestTelvixSession)
#include "tst_telvixsession.moc"
