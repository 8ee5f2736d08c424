// The chat server killed (SIGKILL) and started again while a session chats:
// the client reports the disconnection with a reason other than
// "UserRequest", reconnects by itself once the server is back, and shutdown
// returns promptly afterwards.
#include "directorymessages.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "prosodyserver.h"
#include "telvix.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>

class TestChatFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void chatServerKilledAndRestarted();
};

void TestChatFaults::chatServerKilledAndRestarted()
{
    if (!ProsodyServer::isInstalled())
        QSKIP("prosody is not installed");
    ProsodyServer prosody;
    prosody.addUser(QStringLiteral("alice"), QStringLiteral("secret"));
    QVERIFY2(prosody.start(), qPrintable(prosody.errorString()));

    // At API 5.2 the chat settings come with the login answer.
    LoggedInClient session(TELVIX::AppModeSrntPro, QStringLiteral("5.2"));
    session.setBeforeLogin([&session, &prosody](Telvix*) {
        FakeCtiServer::LoginAnswer answer = session.server().loginAnswer();
        answer.chatId = QStringLiteral("alice@default");
        answer.chatPort = QString::number(prosody.port());
        session.server().setLoginAnswer(answer);
    });
    QVERIFY(session.start());
    Telvix* client = session.client();
    QSignalSpy connected(client, &Telvix::sigChatConnected);
    QSignalSpy disconnected(client, &Telvix::sigChatDisconnected);
    BuddiesRespMsg buddies;
    BuddyEntry alice;
    alice.exten = QStringLiteral("200");
    alice.chatId = QStringLiteral("alice@default");
    buddies.buddies = {alice};
    QVERIFY(session.deliver(buddies.generateXmlMessageBody()));
    QTRY_VERIFY_WITH_TIMEOUT(connected.count() == 1, 10000);

    LogbusCapture log;
    QVERIFY2(prosody.killAndRestart(), qPrintable(prosody.errorString()));
    QTRY_VERIFY_WITH_TIMEOUT(!disconnected.isEmpty(), 10000);
    QVERIFY(disconnected.at(0).at(0).toString() != QLatin1String("UserRequest"));
    QVERIFY(log.waitFor(QStringLiteral(" requesting to reconnect in 3secs...")));
    // Back within the fixed reconnection delay and a handshake.
    QTRY_VERIFY_WITH_TIMEOUT(connected.count() == 2, 15000);

    QElapsedTimer clock;
    clock.start();
    QVERIFY(client->shutdown());
    QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
}

QTEST_GUILESS_MAIN(TestChatFaults)
#include "tst_chatfaults.moc"
