#include "encrypteddbhandler.h"
#include "logbuscapture.h"
#include "persistencesqlite.h"
#include "telvix_const.h"

#include <QDir>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

class TestPersistence : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void inMemoryBody();
    void historySurvivesReopenScrambled();
    void textualUidOrderAtWrite();
    void retentionDropsOldHistoryKeepsPhoneBooks();
    void outdatedCdrTableIsRebuilt_data();
    void outdatedCdrTableIsRebuilt();
    void phoneBookIsWriteOnly();
    void smsReadsAppend();
    void unopenableStoreWorksEmpty();

private:
    std::unique_ptr<PersistenceSqlite> store(const QString& exten = QStringLiteral("200")) const;
    QString dbPath() const { return m_dir->filePath(QStringLiteral("cdr.db")); }
    static CdrEntry entry(const QString& uid, const QString& caller = QStringLiteral("200"),
                          const QString& callee = QStringLiteral("300"), int direction = 2, int status = 8,
                          const QDateTime& start = QDateTime::currentDateTime());
    static int count(PersistenceSqlite& s, const QString& sql);

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestPersistence::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    const QString tmp = m_dir->filePath(QStringLiteral("tmp"));
    QDir().mkpath(tmp);
    qputenv("TMPDIR", tmp.toLocal8Bit());
}

void TestPersistence::cleanup()
{
    qunsetenv("TMPDIR");
    m_dir.reset();
}

std::unique_ptr<PersistenceSqlite> TestPersistence::store(const QString& exten) const
{
    return std::make_unique<PersistenceSqlite>(dbPath(), exten);
}

CdrEntry TestPersistence::entry(const QString& uid, const QString& caller, const QString& callee,
                                int direction, int status, const QDateTime& start)
{
    CdrEntry e;
    e.entryUid = uid;
    e.callId = QStringLiteral("call-") + uid;
    e.caller = caller;
    e.callee = callee;
    e.callerName = QStringLiteral("Caller ") + caller;
    e.calleeName = QStringLiteral("Callee ") + callee;
    e.direction = direction;
    e.status = status;
    e.startTime = start.toString(TELVIX::IsoDateNoTz);
    e.duration = 42;
    return e;
}

int TestPersistence::count(PersistenceSqlite& s, const QString& sql)
{
    QSqlQuery q(s.dbHandler()->database());
    return q.exec(sql) && q.next() ? q.value(0).toInt() : -1;
}

void TestPersistence::inMemoryBody()
{
    Persistence p;
    QVERIFY(p.open());
    QVERIFY(p.appendCdr(Cdr()));
    QVERIFY(p.appendCdr({entry(QStringLiteral("3")), entry(QStringLiteral("7"))}));
    QVERIFY(p.appendCdr({entry(QStringLiteral("5"))}));
    QCOMPARE(p.cdr().size(), 3);
    QCOMPARE(p.lastCdrEntryUid(), QStringLiteral("7")); // the last entry's uid may not go back
    SmsEntry sms {QStringLiteral("hi"), QStringLiteral("300"), QStringLiteral("2026-03-01T10:00:00.000")};
    QVERIFY(p.appendSmsList({sms}));
    QCOMPARE(p.lastSmsTime(), QDateTime(QDate(2026, 3, 1), QTime(10, 0)));
    PhoneBook book;
    book.name = QStringLiteral("a");
    QVERIFY(p.setPhoneBook({book}));
    QVERIFY(p.setPhoneBook({book, book}));
    QCOMPARE(p.phoneBook().size(), 2);
}

void TestPersistence::historySurvivesReopenScrambled()
{
    CdrEntry first = entry(QStringLiteral("1001"), QStringLiteral("300"), QStringLiteral("200"), 1, 8);
    first.attributes = TELVIX::getCallAttributeValue(QStringLiteral("recorded"));
    const CdrEntry second = entry(QStringLiteral("1002"));
    {
        LogbusCapture log;
        auto s = store();
        QVERIFY(s->dbHandler());
        QVERIFY(s->appendCdr({second, first}));
        s->close();
        QVERIFY(log.contains(10, QStringLiteral("Database was NOT OPEN! -> Closing anyway")));
    }
    QVERIFY(QDir(m_dir->filePath(QStringLiteral("tmp"))).isEmpty()); // no plain copy left behind
    QFile file(dbPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    QVERIFY(!bytes.isEmpty());
    QVERIFY(!bytes.contains("SQLite format") && !bytes.contains("cdr_table"));

    auto s = store();
    QCOMPARE(s->lastCdrEntryUid(), QStringLiteral("1002"));
    const Cdr cdr = s->cdr();
    QCOMPARE(cdr.size(), 2);
    CdrEntry expected = first;
    expected.updateInfo(QStringLiteral("200"));
    QCOMPARE(cdr.first(), expected); // every column back, ordered by uid
    QCOMPARE(cdr.first().infoType, QStringLiteral("ANSWER_IN"));
    QCOMPARE(cdr.last().entryUid, QStringLiteral("1002"));
    s.reset();
    QCOMPARE(store(QStringLiteral("300"))->cdr().size(), 2); // party to both calls
    QVERIFY(store(QStringLiteral("400"))->cdr().isEmpty());
}

void TestPersistence::textualUidOrderAtWrite()
{
    auto s = store();
    QVERIFY(s->appendCdr({entry(QStringLiteral("100"))}));
    QVERIFY(s->appendCdr({entry(QStringLiteral("99"))}));
    QCOMPARE(s->lastCdrEntryUid(), QStringLiteral("99"));
    QVERIFY(!s->appendCdr({entry(QStringLiteral("100"))}));
    QCOMPARE(s->cdr().size(), 2);
}

void TestPersistence::retentionDropsOldHistoryKeepsPhoneBooks()
{
    const QDateTime now = QDateTime::currentDateTime();
    {
        auto s = store();
        QVERIFY(s->appendCdr({entry(QStringLiteral("1"), QStringLiteral("200"), QStringLiteral("300"), 2, 8,
                                    now.addMonths(-1).addSecs(-60)),
                              entry(QStringLiteral("2"), QStringLiteral("200"), QStringLiteral("300"), 2, 8,
                                    now.addMonths(-1).addSecs(3600))}));
        QVERIFY(s->appendSmsList(
            {{QStringLiteral("old"), QStringLiteral("300"), now.addMonths(-2).toString(TELVIX::IsoDateNoTz)},
             {QStringLiteral("new"), QStringLiteral("300"), now.toString(TELVIX::IsoDateNoTz)}}));
        PhoneBook book;
        book.entries.append(PhoneBookEntry());
        QVERIFY(s->setPhoneBook({book}));
        QCOMPARE(s->cdr().size(), 2); // nothing is aged before the next open
    }
    LogbusCapture log;
    auto s = store();
    QVERIFY(log.contains(1000, QStringLiteral("Deleting data older than")));
    const Cdr cdr = s->cdr();
    QCOMPARE(cdr.size(), 1);
    QCOMPARE(cdr.first().entryUid, QStringLiteral("2"));
    QCOMPARE(s->smsList().size(), 1);
    QCOMPARE(s->smsList().first().body, QStringLiteral("new"));
    QCOMPARE(count(*s, QStringLiteral("SELECT count(*) FROM pbentry_table")), 1);
    QCOMPARE(count(*s, QStringLiteral("SELECT count(*) FROM pb_table")), 1);
}

void TestPersistence::outdatedCdrTableIsRebuilt_data()
{
    QTest::addColumn<QStringList>("statements");
    QTest::addColumn<QString>("logged");
    QTest::newRow("no callattributes")
        << QStringList {QStringLiteral(
                            "CREATE TABLE cdr_table ( entryuid VARCHAR UNIQUE, caller VARCHAR, callee "
                            "VARCHAR, starttime VARCHAR)"),
                        QStringLiteral("INSERT INTO cdr_table VALUES ('9', '200', '300', '2999-01-01')")}
        << "Column callattributes not present in cdr_table, re-create it adding the missing column!";
    QTest::newRow("duplicate entryuid")
        << QStringList {QStringLiteral(
                            "CREATE TABLE cdr_table ( entryuid VARCHAR, caller VARCHAR, callee VARCHAR, "
                            "starttime VARCHAR, callattributes VARCHAR)"),
                        QStringLiteral("INSERT INTO cdr_table VALUES ('9', '200', '300', '2999-01-01', '')"),
                        QStringLiteral("INSERT INTO cdr_table VALUES ('9', '200', '300', '2999-01-01', '')")}
        << "Duplicated entries in cdr_entry, re-create it forcing UNIQUE entryuid field!";
}

void TestPersistence::outdatedCdrTableIsRebuilt()
{
    QFETCH(QStringList, statements);
    QFETCH(QString, logged);
    {
        DbhConfig config;
        config.driver = LXDBHANDLER::SQLITE;
        config.host = m_dir->path();
        config.dbName = QStringLiteral("cdr.db");
        config.logFile = m_dir->filePath(QStringLiteral("old.log"));
        EncryptedSqliteDbHandler old(config);
        QVERIFY(old.openDbConn());
        for (const QString& sql : qAsConst(statements)) {
            QSqlQuery q = old.createNewQuery();
            QVERIFY2(old.prepareQuery(q, sql) && old.executeQuery(q), qPrintable(sql));
        }
        QVERIFY(old.encryptDb());
    }
    LogbusCapture log;
    auto s = store();
    QVERIFY(log.contains(100, logged));
    QVERIFY(log.contains(1000, QStringLiteral("Dropping and re-creating cdr_table")));
    QVERIFY(log.contains(QStringLiteral("Dropping and re-creating sms_table"))); // it was missing
    QCOMPARE(s->lastCdrEntryUid(), QString()); // the old rows went with the table
    QVERIFY(s->appendCdr({entry(QStringLiteral("1"))}));
    QVERIFY(!s->appendCdr({entry(QStringLiteral("1"))})); // UNIQUE entryuid holds now
    QCOMPARE(s->cdr().size(), 1);
}

void TestPersistence::phoneBookIsWriteOnly()
{
    auto s = store();
    PhoneBook book;
    book.type = PHONEBOOK::PB_VANTOR;
    book.name = QStringLiteral("main");
    PhoneBookEntry person;
    person.displayName = QStringLiteral("Bob");
    person.company = QStringLiteral("ACME");
    book.entries = {person, person};
    QVERIFY(s->setPhoneBook({book}));
    QVERIFY(s->setPhoneBook({book})); // replaces the user's books
    QCOMPARE(count(*s, QStringLiteral("SELECT count(*) FROM pbentry_table")), 2);
    QCOMPARE(count(*s, QStringLiteral("SELECT count(*) FROM pbentry_table WHERE company IS NULL")), 2);
    LogbusCapture log;
    QVERIFY(!s->readPhoneBook());
    QVERIFY(s->phoneBook().isEmpty());
    QVERIFY(
        log.contains(10, QStringLiteral("Error retrieving PB list from SQLite db... user: 200 - error:")));
}

void TestPersistence::smsReadsAppend()
{
    auto s = store();
    const QString t1 = QDateTime::currentDateTime().addSecs(-10).toString(TELVIX::IsoDateNoTz);
    const QString t2 = QDateTime::currentDateTime().toString(TELVIX::IsoDateNoTz);
    QVERIFY(s->appendSmsList({{QStringLiteral("a"), QStringLiteral("300"), t1}}));
    QCOMPARE(s->smsList().size(), 1);
    QCOMPARE(s->smsList().first(), (SmsEntry {QStringLiteral("a"), QStringLiteral("300"), t1}));
    QVERIFY(s->appendSmsList({{QStringLiteral("b"), QStringLiteral("301"), t2}}));
    QCOMPARE(s->lastSmsTime().toString(TELVIX::IsoDateNoTz), t2);
    // The re-read goes after the list as it stood: "a" twice.
    QCOMPARE(s->smsList().size(), 3);
    QCOMPARE(s->smsList().last().number, QStringLiteral("301"));
}

void TestPersistence::unopenableStoreWorksEmpty()
{
    // No temporary directory: no working copy can be made.
    qputenv("TMPDIR", m_dir->filePath(QStringLiteral("missing")).toLocal8Bit());
    LogbusCapture log;
    auto s = store();
    QVERIFY(!s->dbHandler());
    QVERIFY(log.contains(
        100,
        QStringLiteral("Failed to initilize persistence db. Trying again after dropping existent files...")));
    QVERIFY(log.contains(10, QStringLiteral("Unable to decrypt SQLite db...")));
    QVERIFY(!s->readCdr());
    QVERIFY(s->appendCdr(Cdr()));
    QVERIFY(!s->appendCdr({entry(QStringLiteral("1"))}));
    QVERIFY(
        log.contains(10, QStringLiteral("Persistence Db handler not initialized! Cannot write Cdr entries")));
    QVERIFY(s->cdr().isEmpty());
    QVERIFY(!s->setPhoneBook({PhoneBook()}));
    QVERIFY(!s->appendSmsList({SmsEntry()}));
    QVERIFY(s->smsList().isEmpty());
    QVERIFY(!s->deleteOldData());
    QCOMPARE(s->lastCdrEntryUid(), QString());
}

QTEST_GUILESS_MAIN(TestPersistence)
#include "tst_persistence.moc"
