// Chat through Telvix against a real prosody: colleagues are known by their
// extensions, never by their chat ids, in messages, presence, files, vCards
// and history; losing the CTI session or the chat server is handled.
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "prosodyserver.h"
#include "telvix.h"
#include "xmppaccount.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

class TestTelvixChat : public QObject
{
    Q_OBJECT

private:
    // "alice" (extension 200) logged in with her chat id at API 5.2, where chat
    // starts from the login itself, and connected once the extension list
    // tells that Bob (201) can chat and 202 cannot. `statuses` collects
    // sigExtenStatusChanged from the start.
    std::unique_ptr<LoggedInClient> chatting(std::unique_ptr<QSignalSpy>* statuses = nullptr)
    {
        auto session = std::make_unique<LoggedInClient>(TELVIX::AppModeSrntPro, QStringLiteral("5.2"));
        session->loginAnswer.chatId = QStringLiteral("alice@default");
        session->loginAnswer.chatPort = QString::number(m_prosody->port());
        session->setBeforeLogin([statuses](Telvix* client) {
            // Kept until the chat client exists, then handed to it.
            client->setChatKeepAliveSendIntervalSec(90);
            if (statuses)
                statuses->reset(new QSignalSpy(client, &Telvix::sigExtenStatusChanged));
        });
        if (!session->start())
            return nullptr;
        QSignalSpy connected(session->client(), &Telvix::sigChatConnected);
        QString users;
        for (const QString user : {"200 alice@default", "201 bob@default", "202"})
            users += QString("<User><ChatID>%2</ChatID><Contact><Type>exten</Type><Value>%1</Value></"
                             "Contact></User>")
                         .arg(user.section(' ', 0, 0), user.section(' ', 1));
        if (!session->deliver("<ExtenList>" + users + "</ExtenList>")
            || !QTest::qWaitFor([&] { return !connected.isEmpty(); }, 10000))
            return nullptr;
        return session;
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

    void chatTravelsByExtension()
    {
        std::unique_ptr<QSignalSpy> statuses;
        LogbusCapture chatLog;
        auto session = chatting(&statuses);
        QVERIFY(session);
        Telvix* client = session->client();
        QVERIFY(client->isChatConnected());
        QCOMPARE(client->getChatKeepAliveSendIntervalSec(), 90);
        QVERIFY(chatLog.contains(QStringLiteral("Keep-alive send timer set to 90 seconds")));
        QCOMPARE(client->chatIdFromExten("201"), QStringLiteral("bob@default"));
        QCOMPARE(client->extenFromchatId("bob@default"), QStringLiteral("201"));

        // Not in the list, or without a chat id: refused.
        for (const QString exten : {"299", "202"}) {
            LogbusCapture log;
            bool sent = true, composing = true;
            session->onLibraryThread([&]() {
                sent = client->sendChatMessage(exten, QStringLiteral("lost"));
                composing = client->sendChatStartComposing(exten);
            });
            QVERIFY(!sent && !composing);
            QCOMPARE(log.count(QStringLiteral("Failed to get chatID for exten")), 2);
            QVERIFY(client->chatIdFromExten(exten).isEmpty());
        }

        // To her own extension: the echo of the sending, then the message itself.
        QSignalSpy messages(client, &Telvix::sigChatMessage);
        QVERIFY(client->sendChatMessage("200", "note to self"));
        QTRY_COMPARE_WITH_TIMEOUT(messages.count(), 2, 10000);
        const auto echo = messages.at(0).at(0).value<ChatMessage>();
        const auto self = messages.at(1).at(0).value<ChatMessage>();
        QCOMPARE(echo.type, int(ChatMessage::Feedback));
        QCOMPARE(QVariantList({self.type, self.direction, self.exten, self.chatId, self.body, self.id}),
                 QVariantList({int(ChatMessage::Normal), int(ChatMessage::Sent), "200", "alice@default",
                               "note to self", echo.id}));

        const QSignalSpy& statusChanged = *statuses;
        auto bob = XmppAccount::online(*m_prosody, m_logDir.path(), QStringLiteral("bob"));
        QVERIFY(bob);
        QTRY_VERIFY_WITH_TIMEOUT(bob->onlineContacts.contains("alice@default"), 10000);
        messages.clear();
        bob->client->sendMessage("alice@default", "hi alice");
        QTRY_VERIFY_WITH_TIMEOUT(!messages.isEmpty(), 10000);
        const auto received = messages.at(0).at(0).value<ChatMessage>();
        QCOMPARE(QVariantList({received.exten, received.body, received.direction}),
                 QVariantList({"201", "hi alice", int(ChatMessage::Received)}));
        QVERIFY(client->sendChatMessage("201", "hello bob"));
        QTRY_VERIFY_WITH_TIMEOUT(std::any_of(bob->messages.cbegin(), bob->messages.cend(),
                                             [](const ChatMessage& m) { return m.body == "hello bob"; }),
                                 10000);

        bob->client->updateClientPresence(TELVIX::ChatPresenceAway, QStringLiteral("lunch"));
        QTRY_VERIFY_WITH_TIMEOUT(lastStatusOf(statusChanged, "201").presence == TELVIX::ChatPresenceAway,
                                 10000);
        QCOMPARE(lastStatusOf(statusChanged, "201").presenceText, QStringLiteral("lunch"));
        // Her own presence comes from her own client: available at connection.
        QTRY_VERIFY_WITH_TIMEOUT(lastStatusOf(statusChanged, "200").presence == TELVIX::ChatPresenceAvailable,
                                 10000);

        // In: the offer names the extension; the session id passes unchanged.
        QSignalSpy offers(client, &Telvix::sigChatFtRequest);
        QSignalSpy started(client, &Telvix::sigChatFtStart);
        QSignalSpy vcards(client, &Telvix::sigChatVcardComplete);
        QSignalSpy sent(client, &Telvix::sigChatFtSent);
        QSignalSpy histories(client, &Telvix::sigChatHistory);
        const QByteArray card("BEGIN:VCARD\r\nFN:Bob\r\nEND:VCARD\r\n");
        const QString in = bob->client->sendVCard("alice@default", card, "bob");
        QTRY_COMPARE_WITH_TIMEOUT(offers.count(), 1, 10000);
        QCOMPARE(offers.at(0), (QVariantList {in, "201", "bob.vcf", "text/vcard"}));
        QTemporaryDir inbox;
        QVERIFY(client->chatFtAccept(in, inbox.path()));
        QTRY_COMPARE_WITH_TIMEOUT(vcards.count(), 1, 10000);
        QCOMPARE(vcards.at(0), (QVariantList {in, card}));
        QCOMPARE(started.at(0).at(0).toString(), in);
        // Declined: the sender's offer ends in an error there.
        const QString refused = bob->client->sendVCard("alice@default", card, "bob");
        QTRY_COMPARE_WITH_TIMEOUT(offers.count(), 2, 10000);
        QVERIFY(client->chatFtDecline(refused));
        QTRY_VERIFY_WITH_TIMEOUT(bob->errors.contains(refused), 10000);

        // Out: a file path and an extension; a stranger gets nothing.
        const QString path = inbox.filePath("notes.txt");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("notes") == 5);
        file.close();
        QVERIFY(client->sendChatFile("299", path).isEmpty());
        const QString out = client->sendChatFile("201", path);
        QVERIFY(!out.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(!bob->offers.isEmpty(), 10000);
        QCOMPARE(bob->offers.first().mime, QStringLiteral("text/plain"));
        bob->client->acceptFT(out, inbox.path());
        QTRY_COMPARE_WITH_TIMEOUT(sent.count(), 1, 10000);
        QCOMPARE(sent.at(0).at(0).toString(), out);

        // History comes with extensions: the whole archive, in the order of its ids.
        QVERIFY(client->getChatHistory(QDateTime()));
        QTRY_COMPARE_WITH_TIMEOUT(histories.count(), 1, 10000);
        const auto history = histories.at(0).at(0).value<QList<ChatMessage>>();
        const auto archived = std::find_if(history.cbegin(), history.cend(), [](const ChatMessage& m) {
            return m.body == QLatin1String("hi alice");
        });
        QVERIFY(archived != history.cend());
        QCOMPARE(archived->exten, QStringLiteral("201"));
        QCOMPARE(archived->type, int(ChatMessage::History));
    }

    void losingTheSessionTakesEveryoneOffline()
    {
        auto session = chatting();
        QVERIFY(session);
        Telvix* client = session->client();
        QSignalSpy disconnected(client, &Telvix::sigChatDisconnected);
        QSignalSpy maps(client, &Telvix::sigExtenStatusMapChanged);
        QSignalSpy statusChanged(client, &Telvix::sigExtenStatusChanged);
        auto bob = XmppAccount::online(*m_prosody, m_logDir.path(), QStringLiteral("bob"));
        QVERIFY(bob);
        bob->client->updateClientPresence(TELVIX::ChatPresenceBusy, QString());
        QTRY_VERIFY_WITH_TIMEOUT(lastStatusOf(statusChanged, "201").presence == TELVIX::ChatPresenceBusy,
                                 10000);

        LogbusCapture log;
        maps.clear();
        session->server().disconnectClient(session->connection());
        QTRY_VERIFY_WITH_TIMEOUT(!disconnected.isEmpty(), 10000);
        QCOMPARE(disconnected.at(0).at(0).toString(), QStringLiteral("UserRequest"));
        QTRY_VERIFY(!maps.isEmpty());
        const auto statusMap = maps.last().at(0).value<QMap<QString, BuddyStatus>>();
        QCOMPARE(statusMap.value("201").presence, TELVIX::ChatPresenceOffline);
        QCOMPARE(statusMap.value("202").presence, TELVIX::ChatPresenceInvalid);
        QVERIFY(!client->isChatConnected());
        // The user asked for it, in effect: no reconnection is planned.
        QVERIFY(!log.contains(QStringLiteral("requesting to reconnect")));
    }

    void lostChatServerIsRetried()
    {
        auto session = chatting();
        QVERIFY(session);
        QSignalSpy disconnected(session->client(), &Telvix::sigChatDisconnected);
        LogbusCapture log;
        m_prosody->stop();
        QTRY_VERIFY_WITH_TIMEOUT(!disconnected.isEmpty(), 10000);
        QVERIFY(disconnected.at(0).at(0).toString() != QLatin1String("UserRequest"));
        QVERIFY(log.waitFor(QStringLiteral("Disconnection reason (not user request) was ")));
        QVERIFY(log.contains(1000, QStringLiteral(" requesting to reconnect in 3secs...")));
    }
};

QTEST_GUILESS_MAIN(TestTelvixChat)
#include "tst_telvixchat.moc"
