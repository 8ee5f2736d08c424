#include "logbuscapture.h"
#include "prosodyserver.h"
#include "xmppengine.h"

#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

struct Composing
{
    QString chatId;
    bool composing;
};

// One chat client on its own thread; what it signals is collected on the
// test's thread through queued connections.
class Account : public QObject
{
public:
    explicit Account(const QString& logDir)
        : client(XmppClient::getNewInstance(logDir))
    {
        connect(client, &XmppClient::sigConnected, this, [this]() { ++connected; });
        connect(client, &XmppClient::sigHistoryEnabled, this, [this](bool) { ++discoAnswers; });
        connect(client, &XmppClient::sigContactPresenceChanged, this,
                [this](const QString& jid, TELVIX::ChatPresence p, const QString&) { presence[jid] = p; });
        connect(client, &XmppClient::sigMessageReceived, this,
                [this](const ChatMessage& m) { messages.append(m); });
        connect(client, &XmppClient::sigIsComposing, this,
                [this](const QString& jid, const QString&, bool on) {
                    composing.append({jid, on});
                });
        connect(client, &XmppClient::sigMessageDelivered, this,
                [this](const QString& j) { delivered.append(j); });
        connect(client, &XmppClient::sigMessageDisplayed, this,
                [this](const QString& j) { displayed.append(j); });
    }
    ~Account() override
    {
        QPointer<QThread> thread = client->thread();
        client->deleteLater();
        QTRY_VERIFY_WITH_TIMEOUT(thread.isNull(), 10000);
    }

    // Messages with a body, of one type.
    QList<ChatMessage> ofType(int type) const
    {
        QList<ChatMessage> result;
        for (const ChatMessage& m : messages)
            if (m.type == type && !m.body.isEmpty())
                result.append(m);
        return result;
    }
    bool sees(const QString& jid, TELVIX::ChatPresence p) const
    {
        return presence.value(jid, TELVIX::ChatPresenceInvalid) == p;
    }

    XmppClient* client;
    int connected = 0;
    // The disco answer comes after carbons were enabled on the same stream.
    int discoAnswers = 0;
    QMap<QString, TELVIX::ChatPresence> presence;
    QList<ChatMessage> messages;
    QList<Composing> composing;
    QStringList delivered;
    QStringList displayed;
};

} // namespace

class TestXmppChat : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<Account> online(const QString& user, const QString& resource)
    {
        auto account = std::make_unique<Account>(m_logDir.path());
        account->client->connectToServer(m_server->jid(user), QStringLiteral("secret"),
                                         QStringLiteral("127.0.0.1"), m_server->port(), resource);
        [&]() { QTRY_COMPARE_WITH_TIMEOUT(account->discoAnswers, 1, 10000); }();
        return account;
    }
    QString jid(const char* user) const { return m_server->jid(QLatin1String(user)); }

    std::unique_ptr<ProsodyServer> m_server;
    QTemporaryDir m_logDir;
    // One pair for all chat-state rows; each row sends a state other than the last.
    std::unique_ptr<Account> m_carol;
    std::unique_ptr<Account> m_dave;

private Q_SLOTS:
    void initTestCase()
    {
        if (!ProsodyServer::isInstalled())
            QSKIP("prosody is not installed");
        m_server = std::make_unique<ProsodyServer>();
        for (const char* user : {"alice", "bob", "carol", "dave", "erin", "frank", "gina"})
            m_server->addUser(QLatin1String(user), QStringLiteral("secret"));
        m_server->setSharedRoster(true);
        QVERIFY2(m_server->start(), qPrintable(m_server->errorString()));
    }

    void cleanupTestCase()
    {
        m_carol.reset();
        m_dave.reset();
    }

    void messageReachesContactWithReceipts()
    {
        auto alice = online(QStringLiteral("alice"), QStringLiteral("desk"));
        auto bob = online(QStringLiteral("bob"), QStringLiteral("desk"));
        alice->client->sendMessage(jid("bob"), QStringLiteral("hello bob"));

        // The sender learns the stanza id from the echo of its own message.
        QTRY_COMPARE(alice->ofType(ChatMessage::Feedback).size(), 1);
        const ChatMessage echo = alice->ofType(ChatMessage::Feedback).first();
        QCOMPARE(echo.direction, int(ChatMessage::Sent));
        QCOMPARE(echo.chatId, jid("bob"));
        QCOMPARE(echo.body, QStringLiteral("hello bob"));
        QVERIFY(!echo.id.isEmpty());
        QVERIFY(!echo.threadId.isEmpty());

        QTRY_COMPARE_WITH_TIMEOUT(bob->ofType(ChatMessage::Normal).size(), 1, 10000);
        const ChatMessage got = bob->ofType(ChatMessage::Normal).first();
        QCOMPARE(got.direction, int(ChatMessage::Received));
        QCOMPARE(got.chatId, jid("alice"));
        QCOMPARE(got.body, QStringLiteral("hello bob"));
        QCOMPARE(got.id, echo.id);
        QCOMPARE(got.threadId, echo.threadId);
        QCOMPARE(got.timestamp.timeSpec(), Qt::UTC);
        QVERIFY(qAbs(got.timestamp.secsTo(QDateTime::currentDateTimeUtc())) < 600);

        // Bob's client confirms delivery by itself; display on request.
        QTRY_COMPARE(alice->delivered, QStringList {jid("bob")});
        bob->client->sendMessageDisplayed(jid("alice"));
        QTRY_COMPARE(alice->displayed, QStringList {jid("bob")});
    }

    void chatStatesReachContact_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<bool>("composing");
        QTest::addColumn<bool>("displayed");
        QTest::newRow("composing") << "composing" << true << false;
        QTest::newRow("paused") << "paused" << false << false;
        QTest::newRow("inactive") << "inactive" << false << false;
        // The contact looking at the conversation counts as a read receipt.
        QTest::newRow("active") << "active" << false << true;
    }

    void chatStatesReachContact()
    {
        QFETCH(QString, state);
        QFETCH(bool, composing);
        QFETCH(bool, displayed);
        if (!m_carol) {
            m_carol = online(QStringLiteral("carol"), QStringLiteral("desk"));
            m_dave = online(QStringLiteral("dave"), QStringLiteral("desk"));
        }
        Account* carol = m_carol.get();
        Account* dave = m_dave.get();
        // Chat states go only to a contact seen online.
        QTRY_VERIFY(carol->sees(jid("dave"), TELVIX::ChatPresenceOnline));
        const int composingBefore = dave->composing.size();
        const int displayedBefore = dave->displayed.size();

        if (state == QLatin1String("composing"))
            carol->client->sendStartComposing(jid("dave"));
        else if (state == QLatin1String("paused"))
            carol->client->sendStopComposing(jid("dave"));
        else if (state == QLatin1String("inactive"))
            carol->client->sendCloseConversation(jid("dave"));
        else
            carol->client->sendOpenConversation(jid("dave"));

        if (displayed) {
            QTRY_COMPARE_WITH_TIMEOUT(dave->displayed.size(), displayedBefore + 1, 10000);
            QCOMPARE(dave->displayed.last(), jid("carol"));
            QCOMPARE(dave->composing.size(), composingBefore);
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(dave->composing.size(), composingBefore + 1, 10000);
            QCOMPARE(dave->composing.last().chatId, jid("carol"));
            QCOMPARE(dave->composing.last().composing, composing);
            QCOMPARE(dave->displayed.size(), displayedBefore);
        }
    }

    void otherResourceGetsCarbonCopies()
    {
        auto desk = online(QStringLiteral("erin"), QStringLiteral("desk"));
        auto phone = online(QStringLiteral("erin"), QStringLiteral("phone"));
        auto frank = online(QStringLiteral("frank"), QStringLiteral("desk"));

        desk->client->sendMessage(jid("frank"), QStringLiteral("sent from desk"));
        QTRY_COMPARE_WITH_TIMEOUT(phone->ofType(ChatMessage::Copy).size(), 1, 10000);
        ChatMessage copy = phone->ofType(ChatMessage::Copy).first();
        QCOMPARE(copy.direction, int(ChatMessage::Sent));
        QCOMPARE(copy.chatId, jid("frank"));
        QCOMPARE(copy.body, QStringLiteral("sent from desk"));
        QCOMPARE(copy.id, desk->ofType(ChatMessage::Feedback).value(0).id);

        // Frank's receipt went to the desk only; the desk mirrors it to the phone.
        QTRY_COMPARE(desk->delivered, QStringList {jid("frank")});
        QTRY_COMPARE(phone->delivered, QStringList {jid("frank")});

        QTRY_COMPARE(frank->ofType(ChatMessage::Normal).size(), 1);
        frank->client->sendMessage(jid("erin"), QStringLiteral("answer"));
        QTRY_COMPARE(frank->ofType(ChatMessage::Feedback).size(), 1);
        // Frank answers the resource that wrote; the phone sees a copy of it.
        QTRY_COMPARE(desk->ofType(ChatMessage::Normal).size(), 1);
        // The mirror reached the desk too, before this answer, and was known as its own.
        QCOMPARE(desk->delivered, QStringList {jid("frank")});
        QTRY_COMPARE(phone->ofType(ChatMessage::Copy).size(), 2);
        copy = phone->ofType(ChatMessage::Copy).last();
        QCOMPARE(copy.direction, int(ChatMessage::Received));
        QCOMPARE(copy.chatId, jid("frank"));
        QCOMPARE(copy.body, QStringLiteral("answer"));
        QVERIFY(phone->ofType(ChatMessage::Normal).isEmpty());
    }

    void messageToOwnAccountComesBackAsSent()
    {
        auto alice = online(QStringLiteral("alice"), QStringLiteral("desk"));
        auto bob = online(QStringLiteral("bob"), QStringLiteral("desk"));
        alice->client->sendMessage(jid("bob"), QStringLiteral("hello bob"));
        // Bob's receipt comes back mirrored to her own account as a carbon
        // from her own full JID, which she ignores.
        QTRY_COMPARE_WITH_TIMEOUT(alice->delivered, QStringList {jid("bob")}, 10000);

        // The server hands a message to her own account back to the same
        // connection, from her own full JID, behind the mirror.
        alice->client->sendMessage(jid("alice"), QStringLiteral("note to self"));
        QTRY_COMPARE_WITH_TIMEOUT(alice->ofType(ChatMessage::Normal).size(), 1, 10000);
        const ChatMessage self = alice->ofType(ChatMessage::Normal).first();
        QCOMPARE(self.direction, int(ChatMessage::Sent));
        QCOMPARE(self.chatId, jid("alice"));
        QCOMPARE(self.body, QStringLiteral("note to self"));
        QCOMPARE(self.id, alice->ofType(ChatMessage::Feedback).last().id);
        QTRY_COMPARE(alice->delivered, QStringList({jid("bob"), jid("alice")}));
        QVERIFY(alice->ofType(ChatMessage::Copy).isEmpty());
    }

    void messageToContactGoneOffline()
    {
        auto alice = online(QStringLiteral("alice"), QStringLiteral("desk"));
        auto gina = online(QStringLiteral("gina"), QStringLiteral("desk"));
        QTRY_VERIFY(alice->sees(jid("gina"), TELVIX::ChatPresenceOnline));
        alice->client->sendMessage(jid("gina"), QStringLiteral("first"));
        QTRY_COMPARE(gina->ofType(ChatMessage::Normal).size(), 1);
        gina.reset();
        QTRY_VERIFY(alice->sees(jid("gina"), TELVIX::ChatPresenceOffline));

        // The session went with the contact; a new one carries the message.
        alice->client->sendMessage(jid("gina"), QStringLiteral("while away"));
        QTRY_COMPARE(alice->ofType(ChatMessage::Feedback).size(), 2);
        QCOMPARE(alice->ofType(ChatMessage::Feedback).last().chatId, jid("gina"));

        // The server keeps it; its delay stamp has no milliseconds, which the
        // stamp format does not read, so the time stays invalid.
        gina = online(QStringLiteral("gina"), QStringLiteral("desk"));
        QTRY_COMPARE_WITH_TIMEOUT(gina->ofType(ChatMessage::Normal).size(), 1, 10000);
        const ChatMessage stored = gina->ofType(ChatMessage::Normal).first();
        QCOMPARE(stored.body, QStringLiteral("while away"));
        QCOMPARE(stored.chatId, jid("alice"));
        QVERIFY(!stored.timestamp.isValid());
    }

    void sendingWhileDisconnectedIsDropped()
    {
        LogbusCapture log;
        Account alice(m_logDir.path());
        alice.client->sendMessage(jid("bob"), QStringLiteral("lost"));
        QVERIFY(log.waitFor(QStringLiteral("Trying to send a chat message, but the client is disconnected")));
        QVERIFY(log.contains(
            10, QStringLiteral("Trying to send a chat message, but the client is disconnected")));
        QVERIFY(alice.messages.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestXmppChat)
#include "tst_xmppchat.moc"
