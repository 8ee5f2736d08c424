#include "prosodyserver.h"
#include "xmppaccount.h"
#include "xmppfthandler.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

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

// The sending side of the dropped-connection case runs in a child process of
// this same program, so that it can be killed in the middle of sending.
int sendAndWait(const QStringList& args)
{
    // args: --send PORT JID TARGET PATH
    QTemporaryDir logDir;
    auto* client = XmppClient::getNewInstance(logDir.path());
    bool ready = false;
    QObject::connect(client, &XmppClient::sigContactPresenceChanged, client,
                     [&](const QString& jid, TELVIX::ChatPresence p, const QString&) {
                         ready = ready || (jid == args.at(4) && p != TELVIX::ChatPresenceOffline);
                     });
    client->connectToServer(args.at(3), QStringLiteral("secret"), QStringLiteral("127.0.0.1"),
                            args.at(2).toInt(), QStringLiteral("desk"));
    if (!QTest::qWaitFor([&]() { return ready; }, 10000))
        return 1;
    const QString sid = client->sendFile(args.at(4), args.at(5), QStringLiteral("application/octet-stream"));
    fprintf(stdout, "%s\n", qPrintable(sid));
    fflush(stdout);
    QTest::qWait(60000);
    return 0;
}

} // namespace

class TestXmppFileTransfer : public QObject
{
    Q_OBJECT

private:
    QString jid(const char* user) const { return m_server->jid(QLatin1String(user)); }
    std::unique_ptr<XmppAccount> online(const char* user)
    {
        return XmppAccount::online(*m_server, m_logDir.path(), QLatin1String(user));
    }
    // Alice and Bob online and seeing each other.
    bool pair()
    {
        if (!m_alice) {
            m_alice = online("alice");
            m_bob = online("bob");
        }
        return m_alice && m_bob
            && QTest::qWaitFor([&]() { return m_bob->onlineContacts.contains(jid("alice")); }, 10000);
    }

    std::unique_ptr<ProsodyServer> m_server;
    QTemporaryDir m_logDir;
    std::unique_ptr<XmppAccount> m_alice;
    std::unique_ptr<XmppAccount> m_bob;

private Q_SLOTS:
    void initTestCase()
    {
        if (!ProsodyServer::isInstalled())
            QSKIP("prosody is not installed");
        m_server = std::make_unique<ProsodyServer>();
        for (const char* user : {"alice", "bob", "carol", "dave"})
            m_server->addUser(QLatin1String(user), QStringLiteral("secret"));
        m_server->setSharedRoster(true);
        QVERIFY2(m_server->start(), qPrintable(m_server->errorString()));
    }

    void cleanupTestCase()
    {
        m_alice.reset();
        m_bob.reset();
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
        QTest::newRow("vCard") << QByteArray("BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Bob\r\nEND:VCARD\r\n") << true
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
        QTemporaryDir outbox;
        QTemporaryDir inbox;
        const QString source = outbox.filePath(QStringLiteral("data.bin"));
        QVERIFY(writeFile(source, content));
        if (nameTaken)
            QVERIFY(writeFile(inbox.filePath(QStringLiteral("data.bin")), "older"));

        const QString sid = vcard
            ? m_bob->client->sendVCard(jid("alice"), content, QStringLiteral("bob"))
            : m_bob->client->sendFile(jid("alice"), source, QStringLiteral("application/x-test"));
        QVERIFY(!sid.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(!m_alice->offers.isEmpty() && m_alice->offers.last().sid == sid, 10000);
        const XmppAccount::Offer offer = m_alice->offers.last();
        QCOMPARE(offer.chatId, jid("bob"));
        QCOMPARE(offer.fileName, vcard ? QStringLiteral("bob.vcf") : QStringLiteral("data.bin"));
        QCOMPARE(offer.mime, vcard ? QStringLiteral("text/vcard") : QStringLiteral("application/x-test"));

        m_alice->progress.clear();
        m_alice->client->acceptFT(sid, inbox.path());
        QTRY_VERIFY(m_alice->started.contains(sid));
        QTRY_VERIFY_WITH_TIMEOUT(m_bob->sent.contains(sid), 10000);
        if (vcard && content.isEmpty()) {
            QTRY_VERIFY_WITH_TIMEOUT(m_alice->errors.contains(sid), 10000);
            return;
        }
        if (vcard) {
            QTRY_VERIFY_WITH_TIMEOUT(!m_alice->vcards.isEmpty() && m_alice->vcards.last().first == sid,
                                     10000);
            QCOMPARE(m_alice->vcards.last().second, content);
            QVERIFY(entries(inbox.path()).isEmpty());
            return;
        }
        QTRY_VERIFY_WITH_TIMEOUT(!m_alice->completed.isEmpty() && m_alice->completed.last().first == sid,
                                 30000);
        const QString stored = m_alice->completed.last().second;
        QCOMPARE(stored,
                 inbox.filePath(nameTaken ? QStringLiteral("data(1).bin") : QStringLiteral("data.bin")));
        QVERIFY(readFile(stored) == content);
        // Nothing but the file itself (and what was there) is left.
        QCOMPARE(entries(inbox.path()).size(), nameTaken ? 2 : 1);
        if (!content.isEmpty())
            QCOMPARE(m_alice->progress.last(), 1.0f);
        QVERIFY(!m_alice->errors.contains(sid) && !m_bob->errors.contains(sid));
    }

    void offerNotTaken_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::newRow("declined") << "decline";
        QTest::newRow("accepted into a directory that cannot be written") << "unwritable";
        QTest::newRow("unknown session id for accept") << "accept unknown";
        QTest::newRow("unknown session id for decline") << "decline unknown";
    }

    void offerNotTaken()
    {
        QFETCH(QString, answer);
        QVERIFY(pair());
        QTemporaryDir outbox;
        QTemporaryDir inbox;
        const QString source = outbox.filePath(QStringLiteral("offer.txt"));
        QVERIFY(writeFile(source, "some text"));
        const QString sid = m_bob->client->sendFile(jid("alice"), source, QStringLiteral("text/plain"));
        QTRY_VERIFY_WITH_TIMEOUT(!m_alice->offers.isEmpty() && m_alice->offers.last().sid == sid, 10000);
        const int started = m_alice->started.size();

        // Root writes anywhere a mode allows; the process file system takes no files from anyone.
        QString target = inbox.path();
        if (answer == QLatin1String("unwritable")) {
            if (geteuid() == 0)
                target = QStringLiteral("/proc");
            else
                QVERIFY(QFile::setPermissions(target, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
        }
        if (answer == QLatin1String("decline"))
            m_alice->client->declineFT(sid);
        else if (answer == QLatin1String("unwritable"))
            m_alice->client->acceptFT(sid, target);
        else if (answer == QLatin1String("accept unknown"))
            m_alice->client->acceptFT(QStringLiteral("no-such-sid"), target);
        else
            m_alice->client->declineFT(QStringLiteral("no-such-sid"));

        if (answer.endsWith(QLatin1String("unknown"))) {
            QTRY_VERIFY(m_alice->errors.contains(QStringLiteral("no-such-sid")));
            m_alice->client->declineFT(sid);
        } else if (answer == QLatin1String("unwritable")) {
            QTRY_VERIFY(m_alice->errors.contains(sid));
        }
        // The sender learns that its offer was refused.
        QTRY_VERIFY_WITH_TIMEOUT(m_bob->errors.contains(sid), 10000);
        QCOMPARE(m_alice->started.size(), started);
        // Neither the file nor a partial one of it.
        QVERIFY(entries(target).filter(QStringLiteral("offer.txt")).isEmpty());
        QVERIFY(QFile::exists(source));
        QFile::setPermissions(inbox.path(),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }

    void offerToOfflineContactIsNotMade()
    {
        QVERIFY(pair());
        QTemporaryDir outbox;
        const QString source = outbox.filePath(QStringLiteral("lost.txt"));
        QVERIFY(writeFile(source, "nobody"));
        const int errors = m_bob->errors.size();
        QVERIFY(m_bob->client->sendFile(jid("carol"), source, QStringLiteral("text/plain")).isEmpty());
        QVERIFY(m_bob->client
                    ->sendFile(jid("alice"), outbox.filePath(QStringLiteral("missing.txt")),
                               QStringLiteral("text/plain"))
                    .isEmpty());
        QCOMPARE(m_bob->errors.size(), errors);
    }

    void senderDroppedMidTransferLeavesNoFile()
    {
        auto alice = online("carol");
        QVERIFY(alice);
        QTemporaryDir outbox;
        QTemporaryDir inbox;
        const QString source = outbox.filePath(QStringLiteral("big.bin"));
        QVERIFY(writeFile(source, randomBytes(48 * 1024 * 1024)));

        QProcess sender;
        sender.start(
            QCoreApplication::applicationFilePath(),
            {QStringLiteral("--send"), QString::number(m_server->port()), jid("dave"), jid("carol"), source});
        QVERIFY(sender.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(!alice->offers.isEmpty(), 15000);
        const QString sid = alice->offers.first().sid;
        alice->client->acceptFT(sid, inbox.path());
        QTRY_VERIFY_WITH_TIMEOUT(!alice->progress.isEmpty(), 15000);
        sender.kill();
        QVERIFY(sender.waitForFinished());

        QTRY_VERIFY_WITH_TIMEOUT(alice->errors.contains(sid), 30000);
        QVERIFY(alice->completed.isEmpty());
        QVERIFY(alice->progress.last() < 1.0f);
        QVERIFY2(entries(inbox.path()).isEmpty(), qPrintable(entries(inbox.path()).join(' ')));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (app.arguments().value(1) == QLatin1String("--send"))
        return sendAndWait(app.arguments());
    TestXmppFileTransfer test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_xmppfiletransfer.moc"
