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
// A client logged in with the data directory the test chooses, so that two
// sessions can share one store.
struct StoreSession
{
    FakeCtiServer server;
    QScopedPointer<Telvix> client;
    QScopedPointer<QSignalSpy> history;
    int conn = -1;

    bool start(const QString& dataDir, TELVIX::AppMode mode = TELVIX::AppModeSrntPro)
    {
        server.setAutoLogin(true);
        server.setAutoKeepAliveAck(true);
        if (!server.listen())
            return false;
        client.reset(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("store-test"),
                                QStringLiteral("1.0"), QStringLiteral("dev-store"), dataDir));
        if (!client->init())
            return false;
        history.reset(new QSignalSpy(client.data(), &Telvix::sigCdrChanged));
        QSignalSpy logged(client.data(), &Telvix::loggedToServer);
        client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), QStringLiteral("default"),
                                mode, FakeCtiServer::host(), server.port());
        if (!QTest::qWaitFor([&logged] { return logged.count() > 0; }, 10000))
            return false;
        conn = server.lastConnection();
        return true;
    }
    ~StoreSession()
    {
        if (client && client->isRunning())
            client->shutdown();
    }
    bool deliver(const QString& body)
    {
        const QString xml = FakeCtiServer::document(body);
        server.send(conn, xml);
        const QString uuid = FakeCtiServer::uuidOf(xml);
        for (QString ack; !(ack = server.waitForFrame(QStringLiteral("MsgAck"))).isEmpty();)
            if (ack.contains(uuid))
                return true;
        return false;
    }
    Cdr lastHistory() const { return history->isEmpty() ? Cdr() : history->last().at(0).value<Cdr>(); }
};

QString call(const QString& uid, const QString& caller = QStringLiteral("200"),
             const QString& callee = QStringLiteral("301"))
{
    const QString date = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    return QStringLiteral("<Call><EntryUid>%1</EntryUid><Caller>%2</Caller><Called>%3</Called><Date>%4</Date>"
                          "<Duration>5</Duration><Direction>2</Direction><Status>8</Status></Call>")
        .arg(uid, caller, callee, date);
}

QString callList(const QString& calls)
{
    return QStringLiteral("<CallList>") + calls + QStringLiteral("</CallList>");
}

QString field(const QString& frame, const QString& name)
{
    const auto match = QRegularExpression(QStringLiteral("<%1>([^<]*)</%1>").arg(name)).match(frame);
    return match.captured(1);
}

QStringList uids(const Cdr& cdr)
{
    QStringList out;
    for (const CdrEntry& e : cdr)
        out << e.entryUid;
    return out;
}
} // namespace

class TestTelvixStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void callListIsPersistedAndWholeHistoryRaised();
    void nextSessionStartsFromStoredHistory();
    void noStoreOutsideDesktopModes_data();
    void noStoreOutsideDesktopModes();

private:
    QScopedPointer<QTemporaryDir> m_dir;
    QString dbPath() const { return m_dir->filePath(QStringLiteral("cdr.db")); }
};

void TestTelvixStore::init()
{
    m_dir.reset(new QTemporaryDir);
    QDir().mkpath(m_dir->filePath(QStringLiteral("tmp")));
    qputenv("TMPDIR", m_dir->filePath(QStringLiteral("tmp")).toLocal8Bit());
}

void TestTelvixStore::cleanup()
{
    qunsetenv("TMPDIR");
    m_dir.reset();
}

void TestTelvixStore::callListIsPersistedAndWholeHistoryRaised()
{
    StoreSession s;
    QVERIFY(s.start(m_dir->path()));
    QCOMPARE(s.history->count(), 1); // the empty store, raised at login
    QVERIFY(s.lastHistory().isEmpty());

    QVERIFY(s.deliver(callList(call("0001") + call("0002") + call("0003", "300", "301"))));
    QCOMPARE(uids(s.lastHistory()), (QStringList {"0001", "0002"}));
    // What the store holds goes out, not the answer alone.
    QVERIFY(s.deliver(callList(call("0002") + call("0004", "301", "200"))));
    const Cdr cdr = s.lastHistory();
    QCOMPARE(uids(cdr), (QStringList {"0001", "0002", "0004"}));
    QCOMPARE(cdr.last().localDirection, QStringLiteral("in")); // seen from the user's side

    const int raised = s.history->count();
    QVERIFY(s.client->getCDR(true, QString()));
    QTRY_COMPARE(s.history->count(), raised + 1);
    QCOMPARE(uids(s.lastHistory()), uids(cdr));
    QVERIFY(s.client->getCDR(false, QString()));
    const QString request = s.server.waitForFrame(QStringLiteral("GetCDR"));
    QCOMPARE(field(request, QStringLiteral("LastEntryUid")), QStringLiteral("0004"));
    const QDateTime start
        = QDateTime::fromString(field(request, QStringLiteral("StartDate")), TELVIX::IsoDateNoTz);
    const QDateTime end
        = QDateTime::fromString(field(request, QStringLiteral("EndDate")), TELVIX::IsoDateNoTz);
    QVERIFY(start.isValid() && end.isValid());
    QCOMPARE(start, end.addMonths(-1));
    QCOMPARE(s.server.framesContaining(QStringLiteral("GetCDR")).size(), 1); // the cached call sent nothing
    QCOMPARE(s.history->count(), raised + 1);

    // The disconnection drops the store, which writes the scrambled file.
    QSignalSpy gone(s.client.data(), &Telvix::disconnectedFromServer);
    QVERIFY(!QFileInfo::exists(dbPath()));
    s.server.disconnectClient(s.conn);
    QTRY_COMPARE(gone.count(), 1);
    QFile file(dbPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.size() > 0 && !file.readAll().contains("SQLite format"));
}

void TestTelvixStore::nextSessionStartsFromStoredHistory()
{
    {
        StoreSession first;
        QVERIFY(first.start(m_dir->path()));
        QVERIFY(first.deliver(callList(call("0100") + call("0099"))));
        QtLogCapture qtLog;
        QVERIFY(first.client->shutdown());
        QVERIFY(qtLog.contains(QStringLiteral("Delete persistence manager")));
    }
    QVERIFY(QFileInfo::exists(dbPath()));

    StoreSession second;
    QVERIFY(second.start(m_dir->path()));
    QCOMPARE(second.history->count(), 1);
    QCOMPARE(uids(second.lastHistory()), (QStringList {"0099", "0100"}));
    QVERIFY(second.client->getCDR(false, QString()));
    QCOMPARE(field(second.server.waitForFrame(QStringLiteral("GetCDR")), QStringLiteral("LastEntryUid")),
             QStringLiteral("0100"));
    // An explicit entry wins over the stored one.
    second.server.clearFrames();
    QVERIFY(second.client->getCDR(false, QStringLiteral("0050")));
    QCOMPARE(field(second.server.waitForFrame(QStringLiteral("GetCDR")), QStringLiteral("LastEntryUid")),
             QStringLiteral("0050"));
}

void TestTelvixStore::noStoreOutsideDesktopModes_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("srnt_mobile") << int(TELVIX::AppModeSrntMobile);
    QTest::newRow("srnt_mobile_phone") << int(TELVIX::AppModeSrntMobilePhone);
    QTest::newRow("srntlog") << int(TELVIX::AppModeSrntLog);
}

void TestTelvixStore::noStoreOutsideDesktopModes()
{
    QFETCH(int, mode);
    StoreSession s;
    QVERIFY(s.start(m_dir->path(), TELVIX::AppMode(mode)));
    QCOMPARE(s.history->count(), 0); // no stored history at login
    QVERIFY(s.deliver(callList(call("0001") + call("0001"))));
    QCOMPARE(uids(s.lastHistory()), (QStringList {"0001", "0001"})); // as the server sent it
    QVERIFY(s.client->shutdown());
    QVERIFY(!QFileInfo::exists(dbPath()));
}

QTEST_GUILESS_MAIN(TestTelvixStore)
#include "tst_telvixstore.moc"
