#include "logbuscapture.h"
#include "prosodyserver.h"
#include "xmppengine.h"

#include <QPointer>
#include <QTemporaryDir>
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
        XmppClient* client = XmppClient::getNewInstance(logDir.path());
        QPointer<QThread> thread = client->thread();
        int connected = 0;
        QStringList reasons;
        connect(client, &XmppClient::sigConnected, this, [&connected]() { ++connected; });
        connect(client, &XmppClient::sigDisconnected, this,
                [&reasons](const QString& r) { reasons.append(r); });

        const auto connectAlice = [&]() {
            client->connectToServer(server.jid(QStringLiteral("alice")), QStringLiteral("secret"),
                                    QStringLiteral("127.0.0.1"), server.port(), QStringLiteral("desk"));
        };
        connectAlice();
        QTRY_COMPARE_WITH_TIMEOUT(connected, 1, 10000);

        QVERIFY(server.suspend());
        client->sendKeepAliveMessage();
        QTRY_COMPARE_WITH_TIMEOUT(reasons, QStringList {TELVIX::ChatDisconnectionKeepAliveReplyTimeout},
                                  25000);
        QVERIFY(log.contains(100,
                             QStringLiteral("XMPP server did not reply to keep-alive ping message. "
                                            "Forcing reconnection...")));
        QVERIFY(server.resume());

        // The flag served once: the next ending is an ordinary one.
        connectAlice();
        QTRY_COMPARE_WITH_TIMEOUT(connected, 2, 10000);
        client->disconnectFromServer();
        QTRY_COMPARE(reasons.size(), 2);
        QCOMPARE(reasons.last(), TELVIX::ChatDisconnectionUserRequest);

        client->deleteLater();
        QTRY_VERIFY_WITH_TIMEOUT(thread.isNull(), 10000);
    }
};

QTEST_GUILESS_MAIN(TestXmppClientLong)
#include "tst_xmppclient_long.moc"
