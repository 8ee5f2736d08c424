#include "logbuscapture.h"
#include "xmppaccount.h"

#include <QtTest>

// A server that stops answering without closing the link: the ping reply
// timer (15 s) must end the connection with its own reason.
class TestXmppClientLong : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unansweredPingForcesDisconnection()
    {
        if (!ProsodyServer::isInstalled())
            QSKIP("prosody is not installed");
        ProsodyServer server;
        server.addUser(QStringLiteral("alice"), QStringLiteral("secret"));
        QVERIFY2(server.start(), qPrintable(server.errorString()));
        QTemporaryDir logDir;
        LogbusCapture log;
        XmppAccount alice(logDir.path());
        alice.connectTo(server, QStringLiteral("alice"), QStringLiteral("desk"));
        QTRY_COMPARE_WITH_TIMEOUT(alice.connected, 1, 10000);

        QVERIFY(server.suspend());
        alice.client->sendKeepAliveMessage();
        QTRY_COMPARE_WITH_TIMEOUT(alice.reasons, QStringList {TELVIX::ChatDisconnectionKeepAliveReplyTimeout},
                                  25000);
        QVERIFY(log.contains(100,
                             QStringLiteral("XMPP server did not reply to keep-alive ping message. "
                                            "Forcing reconnection...")));
        QVERIFY(server.resume());

        // The flag served once: the next ending is an ordinary one.
        alice.connectTo(server, QStringLiteral("alice"), QStringLiteral("desk"));
        QTRY_COMPARE_WITH_TIMEOUT(alice.connected, 2, 10000);
        alice.client->disconnectFromServer();
        QTRY_COMPARE(alice.reasons.size(), 2);
        QCOMPARE(alice.reasons.last(), TELVIX::ChatDisconnectionUserRequest);
    }
};

QTEST_GUILESS_MAIN(TestXmppClientLong)
#include "tst_xmppclient_long.moc"
