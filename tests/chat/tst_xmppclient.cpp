#include "logbuscapture.h"
#include "prosodyserver.h"
#include "xmppengine.h"

#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

namespace {

struct ContactPresence
{
    QString jid;
    TELVIX::ChatPresence presence;
    QString status;
    bool operator==(const ContactPresence& o) const
    {
        return jid == o.jid && presence == o.presence && status == o.status;
    }
};

// One client on its own thread, with what it signalled collected on the
// test's thread through queued connections.
class Account : public QObject
{
public:
    explicit Account(const QString& logDir)
        : client(XmppClient::getNewInstance(logDir))
    {
        connect(client, &XmppClient::sigConnected, this, [this]() { ++connected; });
        connect(client, &XmppClient::sigDisconnected, this, [this](const QString& r) { reasons.append(r); });
        connect(client, &XmppClient::sigHistoryEnabled, this, [this](bool on) { history.append(on); });
        connect(client, &XmppClient::sigContactPresenceChanged, this,
                [this](const QString& jid, TELVIX::ChatPresence p, const QString& s) {
                    contacts.append({jid, p, s});
                });
        connect(client, &XmppClient::sigClientPresenceUpdate, this,
                [this](TELVIX::ChatPresence p, const QString& s) {
                    own.append({QString(), p, s});
                });
        connect(client, &XmppClient::sigContactPresenceMapUpdate, this,
                [this](const PresenceMap& m) { maps.append(m); });
        connect(client, &XmppClient::sigContactListUpdated, this,
                [this](const QMap<QString, QString>& r) { rosters.append(r); });
    }
    ~Account() override
    {
        QPointer<QThread> thread = client->thread();
        client->deleteLater();
        QTRY_VERIFY_WITH_TIMEOUT(thread.isNull(), 10000);
    }

    bool lastContactIs(const QString& jid, TELVIX::ChatPresence presence,
                       const QString& status = QString()) const
    {
        return !contacts.isEmpty() && contacts.last() == ContactPresence {jid, presence, status};
    }

    XmppClient* client;
    int connected = 0;
    QStringList reasons;
    QList<bool> history;
    QList<ContactPresence> contacts;
    QList<ContactPresence> own;
    QList<PresenceMap> maps;
    QList<QMap<QString, QString>> rosters;
};

} // namespace

class TestXmppClient : public QObject
{
    Q_OBJECT

private:
    void connectAccount(Account& account, const QString& user, const QString& resource,
                        const QString& password = QStringLiteral("secret"))
    {
        account.client->connectToServer(m_server->jid(user), password, QStringLiteral("127.0.0.1"),
                                        m_server->port(), resource);
    }

    std::unique_ptr<ProsodyServer> m_server;
    QTemporaryDir m_logDir;

private Q_SLOTS:
    void initTestCase()
    {
        if (!ProsodyServer::isInstalled())
            QSKIP("prosody is not installed");
        m_server = std::make_unique<ProsodyServer>();
        m_server->addUser(QStringLiteral("alice"), QStringLiteral("secret"));
        m_server->addUser(QStringLiteral("bob"), QStringLiteral("secret"));
        m_server->setSharedRoster(true);
        QVERIFY2(m_server->start(), qPrintable(m_server->errorString()));
    }

    void presenceConversion_data()
    {
        QTest::addColumn<int>("number");
        QTest::addColumn<int>("telvix");
        QTest::addColumn<int>("gloox");
        QTest::newRow("available/online")
            << 0 << int(TELVIX::ChatPresenceOnline) << int(gloox::Presence::Available);
        QTest::newRow("chat/available")
            << 1 << int(TELVIX::ChatPresenceAvailable) << int(gloox::Presence::Chat);
        QTest::newRow("away") << 2 << int(TELVIX::ChatPresenceAway) << int(gloox::Presence::Away);
        QTest::newRow("dnd/busy") << 3 << int(TELVIX::ChatPresenceBusy) << int(gloox::Presence::DND);
        QTest::newRow("xa") << 4 << int(TELVIX::ChatPresenceXAway) << int(gloox::Presence::XA);
        QTest::newRow("unavailable/offline")
            << 5 << int(TELVIX::ChatPresenceOffline) << int(gloox::Presence::Unavailable);
        QTest::newRow("probe") << int(gloox::Presence::Probe) << -1 << int(gloox::Presence::Invalid);
        QTest::newRow("error") << int(gloox::Presence::Error) << -1 << int(gloox::Presence::Invalid);
        QTest::newRow("invalid") << int(gloox::Presence::Invalid) << -1 << int(gloox::Presence::Invalid);
    }

    void presenceConversion()
    {
        QFETCH(int, number);
        QFETCH(int, telvix);
        QFETCH(int, gloox);
        QCOMPARE(int(XMPPENGINE::presenceTypeFromGlooxToTelvix(gloox::Presence::PresenceType(number))),
                 telvix);
        QCOMPARE(int(XMPPENGINE::presenceTypeFromTelvixToGloox(TELVIX::ChatPresence(number))), gloox);
    }

    void connectsAndDisconnectsOnRequest()
    {
        LogbusCapture log;
        Account alice(m_logDir.path());
        connectAccount(alice, QStringLiteral("alice"), QStringLiteral("desk"));
        QTRY_COMPARE_WITH_TIMEOUT(alice.connected, 1, 10000);
        // The server's archive is announced in its features.
        QTRY_COMPARE(alice.history, QList<bool> {true});
        // Our own presence comes back addressed from the full JID we were bound to.
        QTRY_VERIFY(!alice.own.isEmpty());
        QCOMPARE(alice.own.first().presence, TELVIX::ChatPresenceOnline);
        QVERIFY(alice.contacts.isEmpty()
                || std::none_of(alice.contacts.cbegin(), alice.contacts.cend(), [](const ContactPresence& c) {
                       return c.jid == QLatin1String("alice@default");
                   }));

        // A second connect while connected changes nothing.
        connectAccount(alice, QStringLiteral("alice"), QStringLiteral("other"));
        QVERIFY(log.waitFor(QStringLiteral("XMPP client is already connected!")));
        QVERIFY(alice.reasons.isEmpty());

        alice.client->disconnectFromServer();
        QTRY_COMPARE(alice.reasons, QStringList {TELVIX::ChatDisconnectionUserRequest});
        QVERIFY(log.contains(10, QStringLiteral("XMPP Client disconnected. Reason: UserRequest")));
        QCOMPARE(alice.connected, 1);
    }

    void wrongPasswordGivesAuthenticationError()
    {
        Account alice(m_logDir.path());
        connectAccount(alice, QStringLiteral("alice"), QStringLiteral("desk"), QStringLiteral("wrong"));
        QTRY_COMPARE_WITH_TIMEOUT(alice.reasons.size(), 1, 10000);
        QCOMPARE(alice.reasons.first(),
                 QStringLiteral("AuthenticationError %1").arg(int(gloox::SaslNotAuthorized)));
        QCOMPARE(alice.connected, 0);
    }

    void followsContactPresencePerResource()
    {
        const QString bobJid = m_server->jid(QStringLiteral("bob"));
        Account alice(m_logDir.path());
        connectAccount(alice, QStringLiteral("alice"), QStringLiteral("desk"));
        QTRY_COMPARE_WITH_TIMEOUT(alice.connected, 1, 10000);

        alice.client->requestContacts();
        QTRY_COMPARE(alice.rosters.size(), 1);
        QVERIFY(alice.rosters.first().contains(bobJid));

        auto bobDesk = std::make_unique<Account>(m_logDir.path());
        connectAccount(*bobDesk, QStringLiteral("bob"), QStringLiteral("desk"));
        QTRY_VERIFY_WITH_TIMEOUT(alice.lastContactIs(bobJid, TELVIX::ChatPresenceOnline), 10000);

        Account bobPhone(m_logDir.path());
        connectAccount(bobPhone, QStringLiteral("bob"), QStringLiteral("phone"));
        QTRY_COMPARE_WITH_TIMEOUT(bobPhone.connected, 1, 10000);
        const int seen = alice.contacts.size();
        bobPhone.client->updateClientPresence(TELVIX::ChatPresenceAway, QStringLiteral("lunch"));
        // The desk is still the more available resource.
        QTRY_VERIFY(alice.contacts.size() > seen && alice.lastContactIs(bobJid, TELVIX::ChatPresenceOnline));

        bobDesk->client->disconnectFromServer();
        QTRY_VERIFY(alice.lastContactIs(bobJid, TELVIX::ChatPresenceAway, QStringLiteral("lunch")));
        bobDesk.reset();

        alice.client->requestContactsPresence();
        QTRY_COMPARE(alice.maps.size(), 1);
        QCOMPARE(alice.maps.first().value(bobJid),
                 qMakePair(TELVIX::ChatPresenceAway, QStringLiteral("lunch")));

        bobPhone.client->disconnectFromServer();
        QTRY_VERIFY(alice.lastContactIs(bobJid, TELVIX::ChatPresenceOffline));

        // Both resources are gone. Bob still reads as offline: the server
        // announced him unavailable, from his bare JID, when Alice logged in.
        alice.client->requestContactsPresence();
        QTRY_COMPARE(alice.maps.size(), 2);
        QCOMPARE(alice.maps.last().value(bobJid), qMakePair(TELVIX::ChatPresenceOffline, QString()));
        QCOMPARE(alice.maps.last().value(m_server->jid(QStringLiteral("alice"))).first,
                 TELVIX::ChatPresenceOnline);
    }

    void keepAlivePingIsAnswered()
    {
        LogbusCapture log;
        Account alice(m_logDir.path());
        alice.client->sendKeepAliveMessage();
        QVERIFY(log.waitFor(
            QStringLiteral("Client not connected. Cannot send keep-alive message (ping) to server")));

        QCOMPARE(alice.client->getKeepAliveSendIntervalSec(), 120);
        QVERIFY(!alice.client->setKeepAliveSendIntervalSec(59));
        QVERIFY(log.contains(100, QStringLiteral("Cannot set keep-alive send interval to")));
        QCOMPARE(alice.client->getKeepAliveSendIntervalSec(), 120);
        QVERIFY(alice.client->setKeepAliveSendIntervalSec(60));
        QCOMPARE(alice.client->getKeepAliveSendIntervalSec(), 60);

        connectAccount(alice, QStringLiteral("alice"), QStringLiteral("desk"));
        QTRY_COMPARE_WITH_TIMEOUT(alice.connected, 1, 10000);
        alice.client->sendKeepAliveMessage();
        QVERIFY(log.waitFor(QStringLiteral("Received pong message from XMPP server")));
        QVERIFY(alice.reasons.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestXmppClient)
#include "tst_xmppclient.moc"
