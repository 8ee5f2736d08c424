#include "logbuscapture.h"
#include "prosodyserver.h"
#include "xmppaccount.h"
#include "xmpphistory.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <gloox/delayeddelivery.h>
#include <gloox/forward.h>
#include <gloox/message.h>
#include <gloox/parser.h>
#include <gloox/tag.h>
#include <gloox/taghandler.h>

#include <memory>
#include <vector>

namespace {

// The stanzas of the fixture file, each in its <case> with the expected values.
class FixtureCases : public gloox::TagHandler
{
public:
    explicit FixtureCases(const QString& path)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return;
        std::string text = file.readAll().toStdString();
        gloox::Parser parser(this);
        parser.feed(text);
    }
    // The parser hands over the whole document once it is closed.
    void handleTag(gloox::Tag* tag) override
    {
        for (const gloox::Tag* testCase : tag->findChildren("case"))
            cases.emplace_back(testCase->clone());
    }
    std::vector<std::shared_ptr<gloox::Tag>> cases;
};

} // namespace

Q_DECLARE_METATYPE(std::shared_ptr<gloox::Tag>)

// The archive of the private prosody, asked in "urn:xmpp:mam:1".
class TestXmppHistory : public QObject
{
    Q_OBJECT

private:
    QString jid(const char* user) const { return m_server->jid(QLatin1String(user)); }
    std::unique_ptr<XmppAccount> online(const char* user)
    {
        return XmppAccount::online(*m_server, m_logDir.path(), QLatin1String(user));
    }
    // Sends `body` and waits until the other side has it, so that the server
    // has archived it.
    static bool say(XmppAccount& from, XmppAccount& to, const QString& toJid, const QString& body)
    {
        from.client->sendMessage(toJid, body);
        return QTest::qWaitFor(
            [&]() {
                return std::any_of(to.messages.cbegin(), to.messages.cend(),
                                   [&](const ChatMessage& m) { return m.body == body; });
            },
            10000);
    }

    std::unique_ptr<ProsodyServer> m_server;
    QTemporaryDir m_logDir;

private Q_SLOTS:
    void initTestCase()
    {
        if (!ProsodyServer::isInstalled())
            QSKIP("prosody is not installed");
        m_server = std::make_unique<ProsodyServer>();
        for (const char* user : {"alice", "bob", "carol"})
            m_server->addUser(QLatin1String(user), QStringLiteral("secret"));
        m_server->setSharedRoster(true);
        QVERIFY2(m_server->start(), qPrintable(m_server->errorString()));
    }

    void archiveStanzasReadAndWritten_data()
    {
        QTest::addColumn<std::shared_ptr<gloox::Tag>>("testCase");
        const FixtureCases fixture(QStringLiteral(TELVIX_TEST_FIXTURES "/chat/archive_stanzas.xml"));
        QVERIFY(!fixture.cases.empty());
        for (const auto& testCase : fixture.cases)
            QTest::newRow(testCase->findAttribute("name").c_str()) << testCase;
    }

    void archiveStanzasReadAndWritten()
    {
        QFETCH(std::shared_ptr<gloox::Tag>, testCase);
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
            return;
        }
        if (stanza->name() == "iq") {
            // The query as sent; a second one while it is pending is not.
            XmppHistory history(m_logDir.path());
            std::vector<std::unique_ptr<gloox::Tag>> sent;
            connect(&history, &XmppHistory::sigSendTag, this,
                    [&](gloox::Tag* tag) { sent.emplace_back(tag); });
            const QDateTime since
                = QDateTime::fromString(QString::fromStdString(expected("since")), Qt::ISODateWithMs);
            history.sendRequest(since);
            history.sendRequest(since);
            QCOMPARE(int(sent.size()), 1);
            QVERIFY(sent.front()->findAttribute("id").size() > 30);
            sent.front()->addAttribute("id", "REQUEST");
            QCOMPARE(sent.front()->xml(), stanza->xml());
            return;
        }
        const HistoryResult result(stanza);
        QCOMPARE(result.id, expected("id"));
        const auto* message
            = result.forward ? static_cast<const gloox::Message*>(result.forward->embeddedStanza()) : nullptr;
        QCOMPARE(message ? message->body() : std::string(), expected("body"));
        const gloox::DelayedDelivery* delay = result.forward ? result.forward->when() : nullptr;
        QCOMPARE(delay ? delay->stamp() : std::string(), expected("stamp"));
    }

    void conversationFetchedAfterLoggingInAgain()
    {
        QDateTime since;
        {
            auto alice = online("alice");
            auto bob = online("bob");
            QVERIFY(alice && bob);
            QCOMPARE(alice->historyEnabled, QList<bool> {true});
            QVERIFY(say(*alice, *bob, jid("bob"), QStringLiteral("before")));
            // The archive stamps whole seconds from a coarse clock: the point
            // in time is the start of the next second, well passed before
            // anything else is said.
            const QDateTime now = QDateTime::currentDateTimeUtc();
            const QDateTime next = now.addMSecs(1000 - now.time().msec());
            QVERIFY(QTest::qWaitFor([&]() { return QDateTime::currentDateTimeUtc() >= next.addMSecs(50); },
                                    2000));
            since = next.addMSecs(-1);
            QVERIFY(say(*alice, *bob, jid("bob"), QStringLiteral("first")));
            QVERIFY(say(*bob, *alice, jid("alice"), QStringLiteral("second")));
        }
        auto alice = online("alice");
        QVERIFY(alice);
        alice->client->getHistory(since);
        QTRY_COMPARE_WITH_TIMEOUT(alice->histories.size(), 1, 10000);
        const QList<ChatMessage> history = alice->histories.first();
        // In the order of the archive's ids.
        QMap<QString, int> directions;
        for (const ChatMessage& message : history)
            directions.insert(message.body, message.direction);
        QCOMPARE(directions,
                 (QMap<QString, int> {{QStringLiteral("first"), int(ChatMessage::Sent)},
                                      {QStringLiteral("second"), int(ChatMessage::Received)}}));
        for (const ChatMessage& message : history) {
            QCOMPARE(message.type, int(ChatMessage::History));
            QCOMPARE(message.chatId, jid("bob"));
            QVERIFY(message.timestamp.isValid());
            QCOMPARE(message.timestamp.timeSpec(), Qt::UTC);
            QVERIFY(message.timestamp > since);
        }
        // Archived messages are not delivered as live ones.
        QVERIFY(alice->messages.isEmpty());
    }

    void oneQueryAtATime()
    {
        auto carol = online("carol");
        QVERIFY(carol);
        LogbusCapture log;
        carol->client->getHistory(QDateTime());
        carol->client->getHistory(QDateTime());
        QTRY_COMPARE_WITH_TIMEOUT(carol->histories.size(), 1, 10000);
        QCOMPARE(log.count(QStringLiteral("Received a second history request. Ignore it.")), 1);
        QCOMPARE(log.count(QStringLiteral("Sending history request...")), 1);

        // What an earlier query gathered comes again with the next one.
        const int gathered = carol->histories.first().size();
        carol->client->getHistory(QDateTime::currentDateTimeUtc());
        QTRY_COMPARE_WITH_TIMEOUT(carol->histories.size(), 2, 10000);
        QCOMPARE(carol->histories.last().size(), gathered);
    }

    void unansweredQueryTimesOut()
    {
        auto carol = online("carol");
        QVERIFY(carol);
        LogbusCapture log;
        QVERIFY(m_server->suspend());
        carol->client->getHistory(QDateTime());
        QVERIFY(log.waitFor(QStringLiteral("History request timed out"), 8000));
        QVERIFY(log.contains(100, QStringLiteral("History request timed out")));
        // No answer at all reaches the caller, and a new query is taken.
        QVERIFY(carol->histories.isEmpty());
        QVERIFY(m_server->resume());
        carol->client->getHistory(QDateTime());
        QTRY_COMPARE_WITH_TIMEOUT(carol->histories.size(), 1, 10000);
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
};

QTEST_GUILESS_MAIN(TestXmppHistory)
#include "tst_xmpphistory.moc"
