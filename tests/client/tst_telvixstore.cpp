// The call history store of desktop clients, with real SQLite files in a data
// directory that two sessions can share.
#include "fakectiserver.h"
#include "qtlogcapture.h"
#include "telvix.h"
#include "telvix_const.h"

#include <QDir>
#include <QRegularExpression>
#include <QScopedPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

struct StoreSession
{
    FakeCtiServer server;
    QScopedPointer<Telvix> client;
    QScopedPointer<QSignalSpy> history;

    bool start(const QString& dataDir, TELVIX::AppMode mode = TELVIX::AppModeSrntPro)
    {
        server.setAutoLogin(true);
        server.setAutoKeepAliveAck(true);
        client.reset(new Telvix("Linux", "6.1", "store-test", "1.0", "dev-store", dataDir));
        if (!server.listen() || !client->init())
            return false;
        history.reset(new QSignalSpy(client.data(), &Telvix::sigCdrChanged));
        QSignalSpy logged(client.data(), &Telvix::loggedToServer);
        client->connectToServer("alice", "secret", "default", mode, FakeCtiServer::host(), server.port());
        return QTest::qWaitFor([&logged] { return logged.count() > 0; }, 10000);
    }
    ~StoreSession()
    {
        if (client && client->isRunning())
            client->shutdown();
    }
    /// Sends a call list of `uids` (caller 200 unless "uid:caller") and waits for its acknowledgement.
    bool deliver(const QStringList& uids)
    {
        QString calls;
        const QString date = QDateTime::currentDateTime().toString("yyyy-MM-dd hh:mm:ss");
        for (const QString& uid : uids)
            calls += QString(
                         "<Call><EntryUid>%1</EntryUid><Caller>%2</Caller><Called>%3</Called><Date>%4</Date>"
                         "<Duration>5</Duration><Direction>2</Direction><Status>8</Status></Call>")
                         .arg(uid.section(':', 0, 0),
                              uid.section(':', 1, 1).isEmpty() ? "200" : uid.section(':', 1, 1),
                              uid.section(':', 2, 2).isEmpty() ? "301" : uid.section(':', 2, 2), date);
        const QString xml = FakeCtiServer::document("<CallList>" + calls + "</CallList>");
        server.send(server.lastConnection(), xml);
        for (QString ack; !(ack = server.waitForFrame("MsgAck")).isEmpty();) {
            if (ack.contains(FakeCtiServer::uuidOf(xml)))
                return true;
        }
        return false;
    }
    QStringList uids() const
    {
        QStringList out;
        const Cdr cdr = history->isEmpty() ? Cdr() : history->last().at(0).value<Cdr>();
        for (const CdrEntry& e : cdr)
            out << e.entryUid + (e.localDirection == QLatin1String("in") ? "<" : "");
        return out;
    }
    /// The fields of the next history request.
    QString asked(const char* name = "LastEntryUid")
    {
        m_asked = name == QLatin1String("LastEntryUid") ? server.waitForFrame("GetCDR") : m_asked;
        return QRegularExpression(QString("<%1>([^<]*)</%1>").arg(name)).match(m_asked).captured(1);
    }
    QString m_asked;
};

} // namespace

class TestTelvixStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QDir().mkpath(m_dir->filePath("tmp"));
        qputenv("TMPDIR", m_dir->filePath("tmp").toLocal8Bit());
    }

    void cleanup()
    {
        qunsetenv("TMPDIR");
        m_dir.reset();
    }

    void callListIsPersistedAndWholeHistoryRaised()
    {
        StoreSession s;
        QVERIFY(s.start(m_dir->path()));
        QCOMPARE(s.history->count(), 1); // the empty store, raised at login
        QVERIFY(s.uids().isEmpty());
        QVERIFY(s.deliver({"0001", "0002", "0003:300:301"}));
        QCOMPARE(s.uids(), (QStringList {"0001", "0002"}));
        // What the store holds goes out, not the answer alone, seen from the user's side.
        QVERIFY(s.deliver({"0002", "0004:301:200"}));
        QCOMPARE(s.uids(), (QStringList {"0001", "0002", "0004<"}));
        const int raised = s.history->count();
        QVERIFY(s.client->getCDR(true, QString()));
        QTRY_COMPARE(s.history->count(), raised + 1);
        QCOMPARE(s.uids(), (QStringList {"0001", "0002", "0004<"}));
        QVERIFY(s.client->getCDR(false, QString()));
        QCOMPARE(s.asked(), QStringLiteral("0004"));
        const QDateTime start = QDateTime::fromString(s.asked("StartDate"), TELVIX::IsoDateNoTz);
        const QDateTime end = QDateTime::fromString(s.asked("EndDate"), TELVIX::IsoDateNoTz);
        QVERIFY(start.isValid() && end.isValid());
        QCOMPARE(start, end.addMonths(-1));
        // The cached call sent nothing.
        QCOMPARE(s.server.framesContaining("GetCDR").size(), 1);
        QCOMPARE(s.history->count(), raised + 1);

        // The disconnection drops the store, which writes the scrambled file.
        QSignalSpy gone(s.client.data(), &Telvix::disconnectedFromServer);
        QVERIFY(!QFileInfo::exists(dbPath()));
        s.server.disconnectClient(s.server.lastConnection());
        QTRY_COMPARE(gone.count(), 1);
        QFile file(dbPath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.size() > 0 && !file.readAll().contains("SQLite format"));
    }

    void nextSessionStartsFromStoredHistory()
    {
        {
            StoreSession first;
            QVERIFY(first.start(m_dir->path()));
            QVERIFY(first.deliver({"0100", "0099"}));
            QtLogCapture qtLog;
            QVERIFY(first.client->shutdown());
            QVERIFY(qtLog.contains("Delete persistence manager"));
        }
        StoreSession second;
        QVERIFY(second.start(m_dir->path()));
        QCOMPARE(second.history->count(), 1);
        QCOMPARE(second.uids(), (QStringList {"0099", "0100"}));
        QVERIFY(second.client->getCDR(false, QString()));
        QCOMPARE(second.asked(), QStringLiteral("0100"));
        // An explicit entry wins over the stored one.
        QVERIFY(second.client->getCDR(false, "0050"));
        QCOMPARE(second.asked(), QStringLiteral("0050"));
    }

    void noStoreOutsideDesktopModes_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("srnt_mobile") << int(TELVIX::AppModeSrntMobile);
        QTest::newRow("srnt_mobile_phone") << int(TELVIX::AppModeSrntMobilePhone);
        QTest::newRow("srntlog") << int(TELVIX::AppModeSrntLog);
    }

    void noStoreOutsideDesktopModes()
    {
        QFETCH(int, mode);
        StoreSession s;
        QVERIFY(s.start(m_dir->path(), TELVIX::AppMode(mode)));
        QCOMPARE(s.history->count(), 0); // no stored history at login
        QVERIFY(s.deliver({"0001", "0001"}));
        QCOMPARE(s.uids(), (QStringList {"0001", "0001"})); // as the server sent it
        QVERIFY(s.client->shutdown());
        QVERIFY(!QFileInfo::exists(dbPath()));
    }

private:
    QScopedPointer<QTemporaryDir> m_dir;
    QString dbPath() const { return m_dir->filePath("cdr.db"); }
};

QTEST_GUILESS_MAIN(TestTelvixStore)
#include "tst_telvixstore.moc"
