#include "logbuscapture.h"
#include "prosodyserver.h"
#include "xmppaccount.h"

#include <QTemporaryDir>
#include <QtTest>

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
