// The chat client against the tests' private prosody: connection and
// presence, messages, the archive and file transfers. Each case logs in
// accounts of its own, so that no presence or archive leaks between them.
#include "logbuscapture.h"
#include "xmppaccount.h"
#include "xmppfthandler.h"
#include "xmpphistory.h"

#include <QDir>
#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <gloox/delayeddelivery.h>
#include <gloox/forward.h>
#include <gloox/message.h>
#include <gloox/parser.h>

#include <unistd.h>

using Account = std::unique_ptr<XmppAccount>;
using Tag = std::shared_ptr<gloox::Tag>;
using ChatState = void (XmppClient::*)(const QString&);
Q_DECLARE_METATYPE(Tag)
Q_DECLARE_METATYPE(ChatState)

namespace {

QByteArray randomBytes(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(size);
    for (char& byte : bytes)
        byte = char(generator.generate());
    return bytes;
}

bool writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Everything in a directory, hidden files included.
QStringList entries(const QString& path)
{
    return QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

// The <case>s of a fixture file, each a stanza with the expected values.
struct FixtureCases : gloox::TagHandler
{
    explicit FixtureCases(const QString& path)
    {
        QFile file(path);
        std::string text = file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string();
        gloox::Parser(this).feed(text);
    }
    void handleTag(gloox::Tag* tag) override
    {
        for (const gloox::Tag* testCase : tag->findChildren("case"))
            cases.emplace_back(testCase->clone());
    }
    std::vector<Tag> cases;
};

// The sending side of the dropped-connection case runs in a child process of
// this same program, so that it can be killed in the middle of sending.
int sendAndWait(const QStringList& args) // --send PORT FROM TO PATH
{
    QTemporaryDir logDir;
    XmppAccount from(logDir.path());
    from.client->connectToServer(args.at(3), QStringLiteral("secret"), QStringLiteral("127.0.0.1"),
                                 args.at(2).toInt(), QStringLiteral("desk"));
    if (!QTest::qWaitFor([&]() { return from.onlineContacts.contains(args.at(4)); }, 10000))
        return 1;
    from.client->sendFile(args.at(4), args.at(5), QStringLiteral("application/octet-stream"));
    QTest::qWait(60000);
    return 0;
}

} // namespace

class TestXmpp : public QObject
{
    Q_OBJECT

    QString jid(const char* user) const { return m_server->jid(QLatin1String(user)); }
    Account online(const char* user, const char* resource = "desk")
    {
        return XmppAccount::online(*m_server, m_logDir.path(), QLatin1String(user), QLatin1String(resource));
    }
    // Kate and Liam online and seeing each other, for all transfer rows.
    bool pair()
    {
        if (!m_kate) {
            m_kate = online("kate");
            m_liam = online("liam");
        }
        return m_kate && m_liam
            && QTest::qWaitFor([&]() { return m_liam->onlineContacts.contains(jid("kate")); }, 10000);
    }

    std::unique_ptr<ProsodyServer> m_server;
    QTemporaryDir m_logDir;
    Account m_erin, m_frank, m_kate, m_liam;

private Q_SLOTS:
    void initTestCase()
    {
        if (!ProsodyServer::isInstalled())
            QSKIP("prosody is not installed");
        m_server = std::make_unique<ProsodyServer>();
        for (const char* user : {"alice", "bob", "carol", "dave", "erin", "frank", "gina", "hank", "ivy",
                                 "jack", "kate", "liam", "mona", "nina", "omar", "pia", "quinn", "rosa"})
            m_server->addUser(QLatin1String(user), QStringLiteral("secret"));
        m_server->setSharedRoster(true);
        QVERIFY2(m_server->start(), qPrintable(m_server->errorString()));
    }

    void cleanupTestCase()
    {
        for (Account* account : {&m_erin, &m_frank, &m_kate, &m_liam})
            account->reset();
    }

    void presenceConversion_data()
    {
        QTest::addColumn<int>("number");
        QTest::addColumn<int>("telvix");
        QTest::addColumn<int>("gloox");
        QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/chat/presence_types.tsv"));
        QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
        for (const QByteArray& line : file.readAll().split('\n')) {
            const QList<QByteArray> cells = line.split('\t');
            if (cells.size() == 4 && !line.startsWith('#'))
                QTest::newRow(cells[0].constData())
                    << cells[1].toInt() << cells[2].toInt() << cells[3].toInt();
        }
    }

    void presenceConversion()
    {
        QFETCH(int, number);
        QTEST(int(XMPPENGINE::presenceTypeFromGlooxToTelvix(gloox::Presence::PresenceType(number))),
              "telvix");
        QTEST(int(XMPPENGINE::presenceTypeFromTelvixToGloox(TELVIX::ChatPresence(number))), "gloox");
    }

    void connectsAndDisconnectsOnRequest()
    {
        LogbusCapture log;
        auto alice = online("alice");
        QVERIFY(alice);
        QCOMPARE(alice->connected, 1);
        // The server's archive is announced in its features.
        QCOMPARE(alice->historyEnabled, QList<bool> {true});
        // Our own presence comes back addressed from the full JID we were bound to.
        QTRY_COMPARE(alice->ownPresences.value(0), QStringLiteral("Online"));
        QVERIFY(alice->presences.filter(jid("alice")).isEmpty());

        // A second connect while connected changes nothing.
        alice->connectTo(*m_server, QStringLiteral("alice"), QStringLiteral("other"));
        QVERIFY(log.waitFor(QStringLiteral("XMPP client is already connected!")));
        alice->client->disconnectFromServer();
        QTRY_COMPARE(alice->reasons, QStringList {TELVIX::ChatDisconnectionUserRequest});
        QVERIFY(log.contains(10, QStringLiteral("XMPP Client disconnected. Reason: UserRequest")));
        QCOMPARE(alice->connected, 1);

        alice->connectTo(*m_server, QStringLiteral("alice"), QStringLiteral("desk"), QStringLiteral("wrong"));
        QTRY_COMPARE_WITH_TIMEOUT(alice->reasons.size(), 2, 10000);
        QCOMPARE(alice->reasons.last(),
                 QStringLiteral("AuthenticationError %1").arg(int(gloox::SaslNotAuthorized)));
        QCOMPARE(alice->connected, 1);
    }

    void followsContactPresencePerResource()
    {
        const QString bob = jid("bob");
        auto alice = online("alice");
        alice->client->requestContacts();
        QTRY_COMPARE(alice->rosters.size(), 1);
        QVERIFY(alice->rosters.first().contains(bob));

        auto bobDesk = online("bob");
        QTRY_COMPARE_WITH_TIMEOUT(alice->lastPresence(), bob + " Online", 10000);
        auto bobPhone = online("bob", "phone");
        const int seen = alice->presences.size();
        bobPhone->client->updateClientPresence(TELVIX::ChatPresenceAway, QStringLiteral("lunch"));
        // The desk is still the more available resource.
        QTRY_VERIFY(alice->presences.size() > seen);
        QCOMPARE(alice->lastPresence(), bob + " Online");
        bobDesk->client->disconnectFromServer();
        QTRY_COMPARE(alice->lastPresence(), bob + " Away lunch");
        bobDesk = nullptr;

        alice->client->requestContactsPresence();
        QTRY_COMPARE(alice->presenceMaps.size(), 1);
        QCOMPARE(alice->presenceMaps.first().value(bob),
                 qMakePair(TELVIX::ChatPresenceAway, QStringLiteral("lunch")));
        bobPhone->client->disconnectFromServer();
        QTRY_COMPARE(alice->lastPresence(), bob + " Offline");

        // Both resources are gone. Bob still reads as offline: the server
        // announced him unavailable, from his bare JID, when Alice logged in.
        alice->client->requestContactsPresence();
        QTRY_COMPARE(alice->presenceMaps.size(), 2);
        QCOMPARE(alice->presenceMaps.last().value(bob), qMakePair(TELVIX::ChatPresenceOffline, QString()));
        QCOMPARE(alice->presenceMaps.last().value(jid("alice")).first, TELVIX::ChatPresenceOnline);
    }

    void keepAlivePingIsAnswered()
    {
        LogbusCapture log;
        // Unconnected, neither pings nor messages go out.
        XmppAccount alice(m_logDir.path());
        alice.client->sendMessage(jid("bob"), QStringLiteral("lost"));
        QVERIFY(log.waitFor(QStringLiteral("Trying to send a chat message, but the client is disconnected")));
        QVERIFY(log.contains(
            10, QStringLiteral("Trying to send a chat message, but the client is disconnected")));
        alice.client->sendKeepAliveMessage();
        QVERIFY(log.waitFor(
            QStringLiteral("Client not connected. Cannot send keep-alive message (ping) to server")));
        QCOMPARE(alice.client->getKeepAliveSendIntervalSec(), 120);
        QVERIFY(!alice.client->setKeepAliveSendIntervalSec(59));
        QVERIFY(log.contains(100, QStringLiteral("Cannot set keep-alive send interval to")));
        QCOMPARE(alice.client->getKeepAliveSendIntervalSec(), 120);
        QVERIFY(alice.client->setKeepAliveSendIntervalSec(60));
        QCOMPARE(alice.client->getKeepAliveSendIntervalSec(), 60);

        alice.connectTo(*m_server, QStringLiteral("alice"), QStringLiteral("desk"));
        QTRY_COMPARE_WITH_TIMEOUT(alice.connected, 1, 10000);
        alice.client->sendKeepAliveMessage();
        QVERIFY(log.waitFor(QStringLiteral("Received pong message from XMPP server")));
        QVERIFY(alice.reasons.isEmpty() && alice.messages.isEmpty());
    }

    void messageReachesContactWithReceipts()
    {
        auto carol = online("carol");
        auto dave = online("dave");
        carol->client->sendMessage(jid("dave"), QStringLiteral("hello dave"));
        // The sender learns the stanza id from the echo of its own message.
        QTRY_COMPARE(carol->texts(ChatMessage::Feedback), QStringList {"sent dave@default: hello dave"});
        const ChatMessage echo = carol->ofType(ChatMessage::Feedback).first();
        QVERIFY(!echo.id.isEmpty() && !echo.threadId.isEmpty());

        QTRY_COMPARE_WITH_TIMEOUT(dave->texts(ChatMessage::Normal),
                                  QStringList {"received carol@default: hello dave"}, 10000);
        const ChatMessage got = dave->messages.first();
        QCOMPARE(got.id, echo.id);
        QCOMPARE(got.threadId, echo.threadId);
        QCOMPARE(got.timestamp.timeSpec(), Qt::UTC);
        QVERIFY(qAbs(got.timestamp.secsTo(QDateTime::currentDateTimeUtc())) < 600);

        // Dave's client confirms delivery by itself; display on request.
        // Dave's receipt also comes back mirrored to Carol's own account as a
        // carbon from her own full JID, which she ignores.
        QTRY_COMPARE(carol->delivered, QStringList {jid("dave")});
        dave->client->sendMessageDisplayed(jid("carol"));
        QTRY_COMPARE(carol->displayed, QStringList {jid("dave")});

        // The server hands a message to her own account back to the same
        // connection, from her own full JID, behind the mirror.
        carol->client->sendMessage(jid("carol"), QStringLiteral("note to self"));
        QTRY_COMPARE_WITH_TIMEOUT(carol->texts(ChatMessage::Normal),
                                  QStringList {"sent carol@default: note to self"}, 10000);
        QCOMPARE(carol->ofType(ChatMessage::Normal).first().id,
                 carol->ofType(ChatMessage::Feedback).last().id);
        QTRY_COMPARE(carol->delivered, QStringList({jid("dave"), jid("carol")}));
        QVERIFY(carol->ofType(ChatMessage::Copy).isEmpty());
    }

    void chatStatesReachContact_data()
    {
        QTest::addColumn<ChatState>("send");
        QTest::addColumn<QString>("composing"); // what the contact is told; empty: nothing
        QTest::addColumn<QString>("displayed");
        QTest::newRow("composing") << &XmppClient::sendStartComposing << "erin@default on" << QString();
        QTest::newRow("paused") << &XmppClient::sendStopComposing << "erin@default off" << QString();
        QTest::newRow("inactive") << &XmppClient::sendCloseConversation << "erin@default off" << QString();
        // The contact looking at the conversation counts as a read receipt.
        QTest::newRow("active") << &XmppClient::sendOpenConversation << QString() << "erin@default";
    }

    void chatStatesReachContact()
    {
        QFETCH(ChatState, send);
        // One pair for all rows; each row sends a state other than the last.
        if (!m_erin) {
            m_erin = online("erin");
            m_frank = online("frank");
        }
        // Chat states go only to a contact seen online.
        QTRY_VERIFY(m_erin->onlineContacts.contains(jid("frank")));
        const QStringList composing = m_frank->composing, displayed = m_frank->displayed;
        (m_erin->client->*send)(jid("frank"));
        QTRY_VERIFY_WITH_TIMEOUT(m_frank->composing != composing || m_frank->displayed != displayed, 10000);
        QTEST(m_frank->composing.mid(composing.size()).join(QLatin1Char(',')), "composing");
        QTEST(m_frank->displayed.mid(displayed.size()).join(QLatin1Char(',')), "displayed");
    }

    void otherResourceGetsCarbonCopies()
    {
        auto desk = online("gina");
        auto phone = online("gina", "phone");
        auto hank = online("hank");
        desk->client->sendMessage(jid("hank"), QStringLiteral("sent from desk"));
        QTRY_COMPARE_WITH_TIMEOUT(phone->texts(ChatMessage::Copy),
                                  QStringList {"sent hank@default: sent from desk"}, 10000);
        QCOMPARE(phone->messages.first().id, desk->ofType(ChatMessage::Feedback).value(0).id);

        // Hank's receipt went to the desk only; the desk mirrors it to the phone.
        QTRY_COMPARE(desk->delivered, QStringList {jid("hank")});
        QTRY_COMPARE(phone->delivered, QStringList {jid("hank")});

        QTRY_COMPARE(hank->ofType(ChatMessage::Normal).size(), 1);
        hank->client->sendMessage(jid("gina"), QStringLiteral("answer"));
        QTRY_COMPARE(hank->ofType(ChatMessage::Feedback).size(), 1);
        // Hank answers the resource that wrote; the phone sees a copy of it.
        QTRY_COMPARE(desk->texts(ChatMessage::Normal), QStringList {"received hank@default: answer"});
        // The mirror reached the desk too, before this answer, and was known as its own.
        QCOMPARE(desk->delivered, QStringList {jid("hank")});
        QTRY_COMPARE(phone->texts(ChatMessage::Copy),
                     QStringList({"sent hank@default: sent from desk", "received hank@default: answer"}));
        QVERIFY(phone->ofType(ChatMessage::Normal).isEmpty());
    }

    void messageToContactGoneOffline()
    {
        auto ivy = online("ivy");
        auto jack = online("jack");
        QTRY_VERIFY(ivy->onlineContacts.contains(jid("jack")));
        ivy->client->sendMessage(jid("jack"), QStringLiteral("first"));
        QTRY_COMPARE(jack->messages.size(), 1);
        jack = nullptr;
        QTRY_VERIFY(!ivy->onlineContacts.contains(jid("jack")));

        // The session went with the contact; a new one carries the message.
        ivy->client->sendMessage(jid("jack"), QStringLiteral("while away"));
        QTRY_COMPARE(ivy->texts(ChatMessage::Feedback),
                     QStringList({"sent jack@default: first", "sent jack@default: while away"}));

        // The server keeps it; its delay stamp has no milliseconds, which the
        // stamp format does not read, so the time stays invalid.
        jack = online("jack");
        QTRY_COMPARE_WITH_TIMEOUT(jack->texts(ChatMessage::Normal),
                                  QStringList {"received ivy@default: while away"}, 10000);
        QVERIFY(!jack->messages.first().timestamp.isValid());
    }

    void archiveStanzasReadAndWritten_data()
    {
        QTest::addColumn<Tag>("testCase");
        const FixtureCases fixture(QStringLiteral(TELVIX_TEST_FIXTURES "/chat/archive_stanzas.xml"));
        QVERIFY(!fixture.cases.empty());
        for (const Tag& testCase : fixture.cases)
            QTest::newRow(testCase->findAttribute("name").c_str()) << testCase;
    }

    void archiveStanzasReadAndWritten()
    {
        QFETCH(Tag, testCase);
        const gloox::Tag* stanza = testCase->children().front();
        const auto expected = [&](const char* name) { return testCase->findAttribute(name); };
        if (stanza->name() == "fin") {
            const HistoryEnd end(stanza);
            const std::unique_ptr<gloox::Tag> written(end.tag());
            // What is written reads back the same.
            for (const HistoryEnd& read : {end, HistoryEnd(written.get())}) {
                QCOMPARE(std::to_string(read.first), expected("first"));
                QCOMPARE(std::to_string(read.last), expected("last"));
                QCOMPARE(std::to_string(read.count), expected("count"));
            }
        } else if (stanza->name() == "iq") {
            // The query as sent; a second one while it is pending is not.
            XmppHistory history(m_logDir.path());
            std::vector<std::unique_ptr<gloox::Tag>> sent;
            connect(&history, &XmppHistory::sigSendTag, this,
                    [&](gloox::Tag* tag) { sent.emplace_back(tag); });
            const QString since = QString::fromStdString(expected("since"));
            history.sendRequest(QDateTime::fromString(since, Qt::ISODateWithMs));
            history.sendRequest(QDateTime::fromString(since, Qt::ISODateWithMs));
            QCOMPARE(int(sent.size()), 1);
            QVERIFY(sent.front()->findAttribute("id").size() > 30);
            sent.front()->addAttribute("id", "REQUEST");
            QCOMPARE(sent.front()->xml(), stanza->xml());
        } else {
            const HistoryResult result(stanza);
            QCOMPARE(result.id, expected("id"));
            const auto* message = result.forward
                ? static_cast<const gloox::Message*>(result.forward->embeddedStanza())
                : nullptr;
            QCOMPARE(message ? message->body() : std::string(), expected("body"));
            const gloox::DelayedDelivery* delay = result.forward ? result.forward->when() : nullptr;
            QCOMPARE(delay ? delay->stamp() : std::string(), expected("stamp"));
        }
    }

    void conversationFetchedAfterLoggingInAgain()
    {
        // Sends `body` and waits until the other side has it, so that the
        // server has archived it.
        const auto say = [](XmppAccount& from, XmppAccount& to, const QString& toJid, const QString& body) {
            from.client->sendMessage(toJid, body);
            return QTest::qWaitFor([&]() { return !to.texts(ChatMessage::Normal).filter(body).isEmpty(); },
                                   10000);
        };
        QDateTime since;
        {
            auto pia = online("pia");
            auto quinn = online("quinn");
            QVERIFY(say(*pia, *quinn, jid("quinn"), QStringLiteral("before")));
            // The archive stamps whole seconds from a coarse clock: the point
            // in time is the start of the next second, well passed before
            // anything else is said.
            const QDateTime now = QDateTime::currentDateTimeUtc();
            const QDateTime next = now.addMSecs(1000 - now.time().msec());
            QVERIFY(QTest::qWaitFor([&]() { return QDateTime::currentDateTimeUtc() >= next.addMSecs(50); },
                                    2000));
            since = next.addMSecs(-1);
            QVERIFY(say(*pia, *quinn, jid("quinn"), QStringLiteral("first")));
            QVERIFY(say(*quinn, *pia, jid("pia"), QStringLiteral("second")));
        }
        auto pia = online("pia");
        pia->client->getHistory(since);
        QTRY_COMPARE_WITH_TIMEOUT(pia->histories.size(), 1, 10000);
        QStringList texts;
        for (const ChatMessage& message : pia->histories.first()) {
            texts.append(XmppAccount::text(message));
            QCOMPARE(message.type, int(ChatMessage::History));
            QCOMPARE(message.timestamp.timeSpec(), Qt::UTC);
            QVERIFY(message.timestamp > since);
        }
        // In the order of the archive's ids: compared as a set.
        texts.sort();
        QCOMPARE(texts, QStringList({"received quinn@default: second", "sent quinn@default: first"}));
        // Archived messages are not delivered as live ones.
        QVERIFY(pia->messages.isEmpty());
    }

    void oneQueryAtATime()
    {
        auto rosa = online("rosa");
        LogbusCapture log;
        rosa->client->getHistory(QDateTime());
        rosa->client->getHistory(QDateTime());
        QTRY_COMPARE_WITH_TIMEOUT(rosa->histories.size(), 1, 10000);
        QCOMPARE(log.count(QStringLiteral("Received a second history request. Ignore it.")), 1);
        QCOMPARE(log.count(QStringLiteral("Sending history request...")), 1);

        // What an earlier query gathered comes again with the next one.
        rosa->client->getHistory(QDateTime::currentDateTimeUtc());
        QTRY_COMPARE_WITH_TIMEOUT(rosa->histories.size(), 2, 10000);
        QCOMPARE(rosa->histories.last().size(), rosa->histories.first().size());
    }

    void unansweredQueryTimesOut()
    {
        auto rosa = online("rosa");
        LogbusCapture log;
        QVERIFY(m_server->suspend());
        rosa->client->getHistory(QDateTime());
        QVERIFY(log.waitFor(QStringLiteral("History request timed out"), 8000));
        QVERIFY(log.contains(100, QStringLiteral("History request timed out")));
        // No answer at all reaches the caller, and a new query is taken.
        QVERIFY(rosa->histories.isEmpty());
        QVERIFY(m_server->resume());
        rosa->client->getHistory(QDateTime());
        QTRY_COMPARE_WITH_TIMEOUT(rosa->histories.size(), 1, 10000);
        QCOMPARE(log.count(QStringLiteral("Received a second history request. Ignore it.")), 0);
    }

    void serverWithoutArchive()
    {
        ProsodyServer plain;
        plain.addUser(QStringLiteral("alice"), QStringLiteral("secret"));
        plain.setArchive(false);
        QVERIFY2(plain.start(), qPrintable(plain.errorString()));
        auto alice = XmppAccount::online(plain, m_logDir.path(), QStringLiteral("alice"));
        QVERIFY(alice);
        QCOMPARE(alice->historyEnabled, QList<bool> {false});
        LogbusCapture log;
        alice->client->getHistory(QDateTime());
        // The error answer ends the query all the same, with nothing in it.
        QTRY_COMPARE_WITH_TIMEOUT(alice->histories.size(), 1, 10000);
        QVERIFY(alice->histories.first().isEmpty());
        QVERIFY(log.contains(10, QStringLiteral("Error requesting chat history: ")));
    }

    void uniqueFilename_data()
    {
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<QString>("asked");
        QTest::addColumn<QString>("expected");
        QTest::newRow("free") << QStringList() << "a.tar.gz"
                              << "a.tar.gz";
        QTest::newRow("taken") << QStringList {"a.tar.gz"} << "a.tar.gz"
                               << "a(1).tar.gz";
        QTest::newRow("taken twice") << QStringList {"a.tar.gz", "a(1).tar.gz"} << "a.tar.gz"
                                     << "a(2).tar.gz";
        // The pattern always writes the dot.
        QTest::newRow("no suffix") << QStringList {"notes"} << "notes"
                                   << "notes(1).";
    }

    void uniqueFilename()
    {
        QFETCH(QStringList, existing);
        QFETCH(QString, asked);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        for (const QString& name : existing)
            QVERIFY(writeFile(dir.filePath(name), "x"));
        QCOMPARE(XmppFTHandler::getUniqueFilename(dir.filePath(asked)), dir.filePath(expected));
    }

    void transfer_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("vcard");
        QTest::addColumn<bool>("nameTaken");
        QTest::newRow("1 MB binary file") << randomBytes(1024 * 1024) << false << false;
        QTest::newRow("empty file") << QByteArray() << false << false;
        QTest::newRow("name taken") << randomBytes(5000) << false << true;
        QTest::newRow("vCard") << QByteArray("BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Liam\r\nEND:VCARD\r\n") << true
                               << false;
        // Nothing to keep: the receiver reports an error.
        QTest::newRow("empty vCard") << QByteArray() << true << false;
    }

    void transfer()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, vcard);
        QFETCH(bool, nameTaken);
        QVERIFY(pair());
        QTemporaryDir outbox, inbox;
        const QString source = outbox.filePath(QStringLiteral("data.bin"));
        QVERIFY(writeFile(source, content));
        if (nameTaken)
            QVERIFY(writeFile(inbox.filePath(QStringLiteral("data.bin")), "older"));
        const QString sid = vcard
            ? m_liam->client->sendVCard(jid("kate"), content, QStringLiteral("liam"))
            : m_liam->client->sendFile(jid("kate"), source, QStringLiteral("application/x-test"));
        QVERIFY(!sid.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(!m_kate->offers.isEmpty() && m_kate->offers.last().sid == sid, 10000);
        const XmppAccount::Offer offer = m_kate->offers.last();
        QCOMPARE(QStringList({offer.chatId, offer.fileName, offer.mime}),
                 vcard ? QStringList({jid("liam"), "liam.vcf", "text/vcard"})
                       : QStringList({jid("liam"), "data.bin", "application/x-test"}));

        m_kate->progress.clear();
        m_kate->client->acceptFT(sid, inbox.path());
        QTRY_VERIFY(m_kate->started.contains(sid));
        QTRY_VERIFY_WITH_TIMEOUT(m_liam->sent.contains(sid), 10000);
        if (vcard && content.isEmpty()) {
            QTRY_VERIFY_WITH_TIMEOUT(m_kate->errors.contains(sid), 10000);
        } else if (vcard) {
            QTRY_VERIFY_WITH_TIMEOUT(!m_kate->vcards.isEmpty() && m_kate->vcards.last().first == sid, 10000);
            QCOMPARE(m_kate->vcards.last().second, content);
            QVERIFY(entries(inbox.path()).isEmpty());
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(!m_kate->completed.isEmpty() && m_kate->completed.last().first == sid,
                                     30000);
            const QString stored = m_kate->completed.last().second;
            QCOMPARE(stored,
                     inbox.filePath(nameTaken ? QStringLiteral("data(1).bin") : QStringLiteral("data.bin")));
            QVERIFY(readFile(stored) == content);
            // Nothing but the file itself (and what was there) is left.
            QCOMPARE(entries(inbox.path()).size(), nameTaken ? 2 : 1);
            if (!content.isEmpty())
                QCOMPARE(m_kate->progress.last(), 1.0f);
            QVERIFY(!m_kate->errors.contains(sid) && !m_liam->errors.contains(sid));
        }
    }

    void offerNotTaken_data()
    {
        QTest::addColumn<bool>("accept");
        QTest::addColumn<bool>("knownSid");
        QTest::addColumn<bool>("unwritable");
        QTest::newRow("declined") << false << true << false;
        QTest::newRow("accepted into a directory that cannot be written") << true << true << true;
        QTest::newRow("unknown session id for accept") << true << false << false;
        QTest::newRow("unknown session id for decline") << false << false << false;
    }

    void offerNotTaken()
    {
        QFETCH(bool, accept);
        QFETCH(bool, knownSid);
        QFETCH(bool, unwritable);
        QVERIFY(pair());
        QTemporaryDir outbox, inbox;
        const QString source = outbox.filePath(QStringLiteral("offer.txt"));
        QVERIFY(writeFile(source, "some text"));
        const QString sid = m_liam->client->sendFile(jid("kate"), source, QStringLiteral("text/plain"));
        QTRY_VERIFY_WITH_TIMEOUT(!m_kate->offers.isEmpty() && m_kate->offers.last().sid == sid, 10000);
        const int started = m_kate->started.size();
        // Root writes anywhere a mode allows; the process file system takes no files from anyone.
        QString target = inbox.path();
        if (unwritable && geteuid() == 0)
            target = QStringLiteral("/proc");
        else if (unwritable)
            QVERIFY(QFile::setPermissions(target, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
        const QString answered = knownSid ? sid : QStringLiteral("no-such-sid");
        accept ? m_kate->client->acceptFT(answered, target) : m_kate->client->declineFT(answered);
        if (!knownSid) {
            QTRY_VERIFY(m_kate->errors.contains(answered));
            m_kate->client->declineFT(sid);
        }
        if (unwritable)
            QTRY_VERIFY(m_kate->errors.contains(sid));
        // The sender learns that its offer was refused.
        QTRY_VERIFY_WITH_TIMEOUT(m_liam->errors.contains(sid), 10000);
        QCOMPARE(m_kate->started.size(), started);
        // Neither the file nor a partial one of it.
        QVERIFY(entries(target).filter(QStringLiteral("offer.txt")).isEmpty());
        QVERIFY(QFile::exists(source));
        QFile::setPermissions(inbox.path(),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }

    void offerToOfflineContactOrOfMissingFileIsNotMade()
    {
        QVERIFY(pair());
        QTemporaryDir outbox;
        const QString source = outbox.filePath(QStringLiteral("lost.txt"));
        QVERIFY(writeFile(source, "nobody"));
        const int errors = m_liam->errors.size();
        QVERIFY(m_liam->client->sendFile(jid("mona"), source, QStringLiteral("text/plain")).isEmpty());
        QVERIFY(m_liam->client
                    ->sendFile(jid("kate"), outbox.filePath("missing.txt"), QStringLiteral("text/plain"))
                    .isEmpty());
        QCOMPARE(m_liam->errors.size(), errors);
    }

    void senderDroppedMidTransferLeavesNoFile()
    {
        auto nina = online("nina");
        QVERIFY(nina);
        QTemporaryDir outbox, inbox;
        const QString source = outbox.filePath(QStringLiteral("big.bin"));
        QVERIFY(writeFile(source, randomBytes(48 * 1024 * 1024)));
        QProcess sender;
        sender.start(QCoreApplication::applicationFilePath(),
                     {"--send", QString::number(m_server->port()), jid("omar"), jid("nina"), source});
        QTRY_VERIFY_WITH_TIMEOUT(!nina->offers.isEmpty(), 15000);
        const QString sid = nina->offers.first().sid;
        nina->client->acceptFT(sid, inbox.path());
        QTRY_VERIFY_WITH_TIMEOUT(!nina->progress.isEmpty(), 15000);
        sender.kill();
        QVERIFY(sender.waitForFinished());

        QTRY_VERIFY_WITH_TIMEOUT(nina->errors.contains(sid), 30000);
        QVERIFY(nina->completed.isEmpty());
        QVERIFY(nina->progress.last() < 1.0f);
        QVERIFY2(entries(inbox.path()).isEmpty(), qPrintable(entries(inbox.path()).join(' ')));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (app.arguments().value(1) == QLatin1String("--send"))
        return sendAndWait(app.arguments());
    TestXmpp test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_xmpp.moc"
