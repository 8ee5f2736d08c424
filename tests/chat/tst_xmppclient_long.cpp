// The chat sessions that wait out the client's long timers, each on a
// server of its own.
#include "chatsession.h"

#include <QtTest>

class TestXmppClientLong : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void session_data() { addSessionRows(QStringLiteral("long")); }

    void session()
    {
        if (!ProsodyServer::isInstalled())
            QSKIP("prosody is not installed");
        QFETCH(QString, path);
        ProsodyServer server;
        server.addUser(QStringLiteral("alice"), QStringLiteral("secret"));
        QVERIFY2(server.start(), qPrintable(server.errorString()));
        QTemporaryDir logDir;
        playSession(path, &server, logDir.path());
    }
};

QTEST_GUILESS_MAIN(TestXmppClientLong)
#include "tst_xmppclient_long.moc"
