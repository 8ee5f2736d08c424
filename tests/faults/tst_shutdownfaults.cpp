// Shutdown in the middle of everything: one session with a chat connection
// stuck before its stream opens, a download trickling in and a large call
// history on its way into the store; a second session whose login is never
// answered. Each shutdown returns within 2 s, leaves no connection open and
// no plain copy of the store behind, and loses no history it acknowledged.
#include "callevents.h"
#include "fakectiserver.h"
#include "persistencesqlite.h"
#include "telvix.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

const int kCalls = 3000;

std::unique_ptr<Telvix> newClient(const QString& dataDir)
{
    auto client
        = std::make_unique<Telvix>(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("faults"),
                                   QStringLiteral("1.0"), QStringLiteral("dev-s"), dataDir);
    return client->init() ? std::move(client) : nullptr;
}

void connectClient(Telvix* client, quint16 port)
{
    client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), QStringLiteral("default"),
                            TELVIX::AppModeSrntPro, FakeCtiServer::host(), port);
}

qint64 shutdownTime(Telvix* client)
{
    QElapsedTimer clock;
    clock.start();
    return client->shutdown() ? clock.elapsed() : -1;
}

} // namespace

class TestShutdownFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shutdownWithEverythingInFlight();
};

void TestShutdownFaults::shutdownWithEverythingInFlight()
{
    QTemporaryDir dataDir, tmp, folder;
    qputenv("TMPDIR", tmp.path().toLocal8Bit());

    // A chat server that takes the connection and never says a word.
    QTcpServer chat;
    QVERIFY(chat.listen(QHostAddress::LocalHost));
    // At API 5.2 the chat starts from the login answer itself.
    FakeCtiServer server;
    server.setApiVersion(QStringLiteral("5.2"));
    FakeCtiServer::LoginAnswer answer;
    answer.chatId = QStringLiteral("alice@default");
    answer.chatPort = QString::number(chat.serverPort());
    server.setLoginAnswer(answer);
    server.setAutoLogin(true);
    server.setAutoKeepAliveAck(true);
    server.setChunkInterval(1000);
    server.setResponder(QStringLiteral("DownloadVoicemailMsg"), [&server](int conn, const QString&) {
        server.sendInChunks(conn, FakeCtiServer::document(QStringLiteral("<VoicemailMsg/>")), 1);
        return QString();
    });
    QVERIFY(server.listen());

    std::unique_ptr<Telvix> busy = newClient(dataDir.path());
    QVERIFY(busy);
    QSignalSpy logged(busy.get(), &Telvix::loggedToServer);
    connectClient(busy.get(), server.port());
    QTRY_VERIFY_WITH_TIMEOUT(!logged.isEmpty(), 10000);
    const int conn = server.lastConnection();
    QTRY_VERIFY_WITH_TIMEOUT(chat.hasPendingConnections(), 10000);

    QVERIFY(busy->downloadVoicemailMessage("7", "uuid-7", folder.path()));
    QVERIFY(!server.waitForFrame(QStringLiteral("GetAuthToken")).isEmpty());
    server.send(
        conn,
        FakeCtiServer::document(CallEvents::wrap(
            "AuthToken",
            CallEvents::element("Token", "t") + CallEvents::element("ValidUntil", "2026-12-01 10:30:00"))));
    int downloadConn = -1;
    QVERIFY(!server.waitForFrame(QStringLiteral("DownloadVoicemailMsg"), 5000, &downloadConn).isEmpty());

    QString calls;
    const QString date = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    for (int i = 0; i < kCalls; ++i)
        calls += QStringLiteral(
                     "<Call><EntryUid>%1</EntryUid><Caller>200</Caller><Called>301</Called><Date>%2"
                     "</Date><Duration>5</Duration><Direction>2</Direction><Status>8</Status></Call>")
                     .arg(100000 + i)
                     .arg(date);
    const QString history
        = FakeCtiServer::document(QStringLiteral("<CallList>") + calls + QStringLiteral("</CallList>"));
    server.send(conn, history);

    // A second session whose login is never answered.
    FakeCtiServer mute;
    QVERIFY(mute.listen());
    QTemporaryDir otherDir;
    std::unique_ptr<Telvix> waiting = newClient(otherDir.path());
    QVERIFY(waiting);
    connectClient(waiting.get(), mute.port());
    QVERIFY(!mute.waitForFrame(QStringLiteral("Login")).isEmpty());

    const qint64 busyTime = shutdownTime(busy.get());
    const qint64 waitingTime = shutdownTime(waiting.get());
    QVERIFY2(busyTime >= 0 && busyTime < 2000, qPrintable(QString::number(busyTime)));
    QVERIFY2(waitingTime >= 0 && waitingTime < 2000, qPrintable(QString::number(waitingTime)));

    QTRY_COMPARE(server.openConnectionCount(), 0);
    QTRY_COMPARE(mute.openConnectionCount(), 0);
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList());
    QCOMPARE(QDir(tmp.path()).entryList(QDir::Files | QDir::Hidden), QStringList());
    // History the client acknowledged is in the store; unacknowledged history
    // the server sends again.
    const bool acked
        = !server.framesContaining(QStringLiteral("MsgAck")).filter(FakeCtiServer::uuidOf(history)).isEmpty();
    PersistenceSqlite store(dataDir.filePath(QStringLiteral("cdr.db")), QStringLiteral("200"));
    QVERIFY(store.readCdr());
    if (acked)
        QCOMPARE(store.cdr().size(), kCalls);
    qunsetenv("TMPDIR");
}

QTEST_GUILESS_MAIN(TestShutdownFaults)
#include "tst_shutdownfaults.moc"
