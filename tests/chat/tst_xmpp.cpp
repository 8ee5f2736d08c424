// The chat client against the tests' private prosody: connection and
// presence, messages, the archive and file transfers. Each case logs in
// accounts of its own, so that no presence or archive leaks between them.
#include "chatsession.h"

#include <QtTest>

namespace {

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

    std::unique_ptr<ProsodyServer> m_server;
    QTemporaryDir m_logDir;

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

    // Each file under fixtures/chat/sessions is one conversation on the
    // server, a step a line; see the README there.
    void session_data() { addSessionRows(QStringLiteral("sessions")); }

    void session()
    {
        QFETCH(QString, path);
        playSession(path, m_server.get(), m_logDir.path());
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
