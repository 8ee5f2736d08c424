#include "directorymessages.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "prosodyserver.h"
#include "telvix.h"
#include "xmppaccount.h"
#include "xmppengine.h"

#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

BuddyEntry buddy(const QString& exten, const QString& chatId)
{
    BuddyEntry entry;
    entry.exten = exten;
    entry.firstName = QStringLiteral("Peer");
    entry.lastName = exten;
    entry.chatId = chatId;
    return entry;
}

// A colleague on the same chat server, as a plain chat client; what it gets
// is collected on the test's thread.
class Colleague : public QObject
{
public:
    explicit Colleague(const QString& logDir)
        : client(XmppClient::getNewInstance(logDir))
    {
        connect(client, &XmppClient::sigConnected, this, [this]() { ++connected; });
        connect(client, &XmppClient::sigMessageReceived, this, [this](const ChatMessage& m) {
            if (m.type == ChatMessage::Normal && !m.body.isEmpty())
                bodies.append(m.body);
        });
    }
    ~Colleague() override
    {
        QPointer<QThread> thread = client->thread();
        client->deleteLater();
        QTRY_VERIFY_WITH_TIMEOUT(thread.isNull(), 10000);
    }

    XmppClient* client;
    int connected = 0;
    QStringList bodies;
};

} // namespace

class TestTelvixChat : public QObject
{
    Q_OBJECT

private:
    // A session of "alice" (extension 200) whose login carries her chat id;
    // the server is at API 5.2, so chat starts from the login itself.
    std::unique_ptr<LoggedInClient> login()
    {
        auto session = std::make_unique<LoggedInClient>(TELVIX::AppModeSrntPro, QStringLiteral("5.2"));
        LoggedInClient* raw = session.get();
        const quint16 chatPort = m_prosody->port();
        session->setBeforeLogin([raw, chatPort](Telvix*) {
            FakeCtiServer::LoginAnswer answer = raw->server().loginAnswer();
            answer.chatId = QStringLiteral("alice@default");
            answer.chatPort = QString::number(chatPort);
            raw->server().setLoginAnswer(answer);
        });
        if (!session->start())
            return nullptr;
        return session;
    }

    // Bob (201) can chat, 202 cannot.
    bool sendExtenList(LoggedInClient& session)
    {
        BuddiesRespMsg msg;
        msg.buddies = {buddy(QStringLiteral("200"), QStringLiteral("alice@default")),
                       buddy(QStringLiteral("201"), QStringLiteral("bob@default")),
                       buddy(QStringLiteral("202"), QString())};
        return session.deliver(msg.generateXmlMessageBody());
    }

    std::unique_ptr<Colleague> bobOnline()
    {
        auto bob = std::make_unique<Colleague>(m_logDir.path());
        bob->client->connectToServer(QStringLiteral("bob@default"), QStringLiteral("secret"),
                                     QStringLiteral("127.0.0.1"), m_prosody->port(), QStringLiteral("desk"));
        [&]() { QTRY_COMPARE_WITH_TIMEOUT(bob->connected, 1, 10000); }();
        return bob;
    }

    static BuddyStatus lastStatusOf(const QSignalSpy& spy, const QString& exten)
    {
        for (int i = spy.count() - 1; i >= 0; --i) {
            const auto status = spy.at(i).at(0).value<BuddyStatus>();
            if (status.exten == exten)
                return status;
        }
        return BuddyStatus();
    }

    std::unique_ptr<ProsodyServer> m_prosody;
    QTemporaryDir m_logDir;

private Q_SLOTS:
    void initTestCase()
    {
        if (!ProsodyServer::isInstalled())
            QSKIP("prosody is not installed");
        m_prosody = std::make_unique<ProsodyServer>();
        m_prosody->addUser(QStringLiteral("alice"), QStringLiteral("secret"));
        m_prosody->addUser(QStringLiteral("bob"), QStringLiteral("secret"));
        m_prosody->setSharedRoster(true);
        QVERIFY2(m_prosody->start(), qPrintable(m_prosody->errorString()));
    }

    void chatConnectsWithTheSessionPassword()
    {
        auto session = login();
        QVERIFY(session);
        Telvix* client = session->client();
        QSignalSpy connected(client, &Telvix::sigChatConnected);
        QVERIFY(sendExtenList(*session));
        QTRY_VERIFY_WITH_TIMEOUT(connected.count() > 0, 10000);
        QVERIFY(client->isChatConnected());
        QCOMPARE(client->chatIdFromExten(QStringLiteral("201")), QStringLiteral("bob@default"));
        QCOMPARE(client->extenFromchatId(QStringLiteral("bob@default")), QStringLiteral("201"));
    }

    void messagesAndPresenceTravelByExtension()
    {
        auto session = login();
        QVERIFY(session);
        Telvix* client = session->client();
        QSignalSpy connected(client, &Telvix::sigChatConnected);
        QSignalSpy messages(client, &Telvix::sigChatMessage);
        QSignalSpy statusChanged(client, &Telvix::sigExtenStatusChanged);
        QVERIFY(sendExtenList(*session));
        QTRY_VERIFY_WITH_TIMEOUT(connected.count() > 0, 10000);
        auto bob = bobOnline();

        bob->client->sendMessage(QStringLiteral("alice@default"), QStringLiteral("hi alice"));
        QTRY_VERIFY_WITH_TIMEOUT(!messages.isEmpty(), 10000);
        const auto received = messages.at(0).at(0).value<ChatMessage>();
        QCOMPARE(received.exten, QStringLiteral("201"));
        QCOMPARE(received.body, QStringLiteral("hi alice"));
        QCOMPARE(received.direction, int(ChatMessage::Received));

        QVERIFY(client->sendChatMessage(QStringLiteral("201"), QStringLiteral("hello bob")));
        QTRY_COMPARE_WITH_TIMEOUT(bob->bodies, QStringList {QStringLiteral("hello bob")}, 10000);

        bob->client->updateClientPresence(TELVIX::ChatPresenceAway, QStringLiteral("lunch"));
        QTRY_VERIFY_WITH_TIMEOUT(
            lastStatusOf(statusChanged, QStringLiteral("201")).presence == TELVIX::ChatPresenceAway, 10000);
        QCOMPARE(lastStatusOf(statusChanged, QStringLiteral("201")).presenceText, QStringLiteral("lunch"));
        // Her own presence comes from her own client: available at connection.
        QTRY_VERIFY_WITH_TIMEOUT(lastStatusOf(statusChanged, QStringLiteral("200")).presence
                                     == TELVIX::ChatPresenceAvailable,
                                 10000);
    }

    void messageToOwnExtensionComesBackAsSent()
    {
        auto session = login();
        QVERIFY(session);
        Telvix* client = session->client();
        QSignalSpy connected(client, &Telvix::sigChatConnected);
        QSignalSpy messages(client, &Telvix::sigChatMessage);
        QVERIFY(sendExtenList(*session));
        QTRY_VERIFY_WITH_TIMEOUT(connected.count() > 0, 10000);

        QVERIFY(client->sendChatMessage(QStringLiteral("200"), QStringLiteral("note to self")));
        // The echo of the sending (type 3), then the message itself.
        QTRY_COMPARE_WITH_TIMEOUT(messages.count(), 2, 10000);
        const auto echo = messages.at(0).at(0).value<ChatMessage>();
        const auto self = messages.at(1).at(0).value<ChatMessage>();
        QCOMPARE(echo.type, int(ChatMessage::Feedback));
        QCOMPARE(self.type, int(ChatMessage::Normal));
        QCOMPARE(self.direction, int(ChatMessage::Sent));
        QCOMPARE(self.exten, QStringLiteral("200"));
        QCOMPARE(self.chatId, QStringLiteral("alice@default"));
        QCOMPARE(self.body, QStringLiteral("note to self"));
        QCOMPARE(self.id, echo.id);
    }

    void unknownExtensionIsRefused_data()
    {
        QTest::addColumn<QString>("exten");
        QTest::newRow("not in the list") << "299";
        QTest::newRow("without chat id") << "202";
    }

    void unknownExtensionIsRefused()
    {
        QFETCH(QString, exten);
        auto session = login();
        QVERIFY(session);
        QVERIFY(sendExtenList(*session));
        LogbusCapture log;
        bool sent = true;
        bool composing = true;
        Telvix* client = session->client();
        session->onLibraryThread([&]() {
            sent = client->sendChatMessage(exten, QStringLiteral("lost"));
            composing = client->sendChatStartComposing(exten);
        });
        QVERIFY(!sent);
        QVERIFY(!composing);
        QCOMPARE(log.count(QStringLiteral("Failed to get chatID for exten")), 2);
        QVERIFY(client->chatIdFromExten(exten).isEmpty());
    }

    void losingTheSessionTakesEveryoneOffline()
    {
        auto session = login();
        QVERIFY(session);
        Telvix* client = session->client();
        QSignalSpy connected(client, &Telvix::sigChatConnected);
        QSignalSpy disconnected(client, &Telvix::sigChatDisconnected);
        QSignalSpy maps(client, &Telvix::sigExtenStatusMapChanged);
        QVERIFY(sendExtenList(*session));
        QTRY_VERIFY_WITH_TIMEOUT(connected.count() > 0, 10000);
        auto bob = bobOnline();
        QSignalSpy statusChanged(client, &Telvix::sigExtenStatusChanged);
        bob->client->updateClientPresence(TELVIX::ChatPresenceBusy, QString());
        QTRY_VERIFY_WITH_TIMEOUT(
            lastStatusOf(statusChanged, QStringLiteral("201")).presence == TELVIX::ChatPresenceBusy, 10000);

        LogbusCapture log;
        maps.clear();
        session->server().disconnectClient(session->connection());
        QTRY_VERIFY_WITH_TIMEOUT(!disconnected.isEmpty(), 10000);
        QCOMPARE(disconnected.at(0).at(0).toString(), QStringLiteral("UserRequest"));
        QTRY_VERIFY(!maps.isEmpty());
        const auto statusMap = maps.last().at(0).value<QMap<QString, BuddyStatus>>();
        QCOMPARE(statusMap.value(QStringLiteral("201")).presence, TELVIX::ChatPresenceOffline);
        QCOMPARE(statusMap.value(QStringLiteral("202")).presence, TELVIX::ChatPresenceInvalid);
        QVERIFY(!client->isChatConnected());
        // The user asked for it, in effect: no reconnection is planned.
        QVERIFY(!log.contains(QStringLiteral("requesting to reconnect")));
    }

    void filesVCardsAndHistoryTravelByExtension()
    {
        auto session = login();
        QVERIFY(session);
        Telvix* client = session->client();
        QSignalSpy connected(client, &Telvix::sigChatConnected);
        QSignalSpy offers(client, &Telvix::sigChatFtRequest);
        QSignalSpy started(client, &Telvix::sigChatFtStart);
        QSignalSpy vcards(client, &Telvix::sigChatVcardComplete);
        QSignalSpy sent(client, &Telvix::sigChatFtSent);
        QSignalSpy histories(client, &Telvix::sigChatHistory);
        QVERIFY(sendExtenList(*session));
        QTRY_VERIFY_WITH_TIMEOUT(connected.count() > 0, 10000);
        auto bob = XmppAccount::online(*m_prosody, m_logDir.path(), QStringLiteral("bob"));
        QVERIFY(bob);
        QTRY_VERIFY_WITH_TIMEOUT(bob->onlineContacts.contains(QStringLiteral("alice@default")), 10000);

        // In: the offer names the extension; the session id passes unchanged.
        const QByteArray card("BEGIN:VCARD\r\nFN:Bob\r\nEND:VCARD\r\n");
        const QString in
            = bob->client->sendVCard(QStringLiteral("alice@default"), card, QStringLiteral("bob"));
        QTRY_COMPARE_WITH_TIMEOUT(offers.count(), 1, 10000);
        QCOMPARE(offers.at(0),
                 (QVariantList {in, QStringLiteral("201"), QStringLiteral("bob.vcf"),
                                QStringLiteral("text/vcard")}));
        QTemporaryDir inbox;
        QVERIFY(client->chatFtAccept(in, inbox.path()));
        QTRY_COMPARE_WITH_TIMEOUT(vcards.count(), 1, 10000);
        QCOMPARE(vcards.at(0), (QVariantList {in, card}));
        QCOMPARE(started.at(0).at(0).toString(), in);

        // Out: a file path and an extension; a stranger gets nothing.
        const QString path = inbox.filePath(QStringLiteral("notes.txt"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("notes") == 5);
        file.close();
        QVERIFY(client->sendChatFile(QStringLiteral("299"), path).isEmpty());
        const QString out = client->sendChatFile(QStringLiteral("201"), path);
        QVERIFY(!out.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(!bob->offers.isEmpty(), 10000);
        QCOMPARE(bob->offers.first().mime, QStringLiteral("text/plain"));
        bob->client->acceptFT(out, inbox.path());
        QTRY_COMPARE_WITH_TIMEOUT(sent.count(), 1, 10000);
        QCOMPARE(sent.at(0).at(0).toString(), out);

        // History comes with extensions.
        bob->client->sendMessage(QStringLiteral("alice@default"), QStringLiteral("archived"));
        QTRY_VERIFY_WITH_TIMEOUT(!bob->messages.isEmpty(), 10000);
        QVERIFY(client->getChatHistory(QDateTime()));
        QTRY_COMPARE_WITH_TIMEOUT(histories.count(), 1, 10000);
        const auto history = histories.at(0).at(0).value<QList<ChatMessage>>();
        // The whole archive, earlier tests' messages included, in the order of its ids.
        const auto archived = std::find_if(history.cbegin(), history.cend(), [](const ChatMessage& m) {
            return m.body == QLatin1String("archived");
        });
        QVERIFY(archived != history.cend());
        QCOMPARE(archived->exten, QStringLiteral("201"));
        QCOMPARE(archived->type, int(ChatMessage::History));
    }

    void lostChatServerIsRetried()
    {
        auto session = login();
        QVERIFY(session);
        Telvix* client = session->client();
        QSignalSpy connected(client, &Telvix::sigChatConnected);
        QSignalSpy disconnected(client, &Telvix::sigChatDisconnected);
        QVERIFY(sendExtenList(*session));
        QTRY_VERIFY_WITH_TIMEOUT(connected.count() > 0, 10000);

        LogbusCapture log;
        m_prosody->stop();
        QTRY_VERIFY_WITH_TIMEOUT(!disconnected.isEmpty(), 10000);
        const QString reason = disconnected.at(0).at(0).toString();
        QVERIFY(reason != QLatin1String("UserRequest"));
        QVERIFY(log.waitFor(QStringLiteral("Disconnection reason (not user request) was ")));
        QVERIFY(log.contains(1000, QStringLiteral(" requesting to reconnect in 3secs...")));
    }
};

QTEST_GUILESS_MAIN(TestTelvixChat)
#include "tst_telvixchat.moc"
