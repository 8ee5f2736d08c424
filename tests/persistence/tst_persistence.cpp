// The store's rules and the scrambling against fixtures/persistence: each
// file maps a function name to rows of [arguments..., expected result].
#include "encrypteddbhandler.h"
#include "jsonconvert.h"
#include "logbuscapture.h"
#include "persistencesqlite.h"
#include "simpleobfuscator.h"
#include "telvix_const.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

using Args = QJsonArray;
using Function = std::function<QJsonValue(const Args&)>;

namespace {

QString compact(const QJsonValue& v)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray {v}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
}

QByteArray bytes(const QJsonValue& hex)
{
    return QByteArray::fromHex(hex.toString().toLatin1());
}

QString hex(const QByteArray& data)
{
    return QString::fromLatin1(data.toHex());
}

QDateTime time(const QJsonValue& v)
{
    return QDateTime::fromString(v.toString(), Qt::ISODateWithMs);
}

// A store of user 200 in a directory of its own, with its working copies in
// a temporary directory beside it.
struct Store
{
    explicit Store(bool withTemporaryDirectory = true)
    {
        if (withTemporaryDirectory)
            QDir(dir.path()).mkdir(QStringLiteral("tmp"));
        qputenv("TMPDIR", dir.filePath(QStringLiteral("tmp")).toLocal8Bit());
        store = open();
    }
    ~Store() { qunsetenv("TMPDIR"); }
    std::unique_ptr<PersistenceSqlite> open(const QString& exten = QStringLiteral("200")) const
    {
        return std::make_unique<PersistenceSqlite>(dir.filePath(QStringLiteral("cdr.db")), exten);
    }
    int count(const char* table) const
    {
        QSqlQuery q(store->dbHandler()->database());
        return q.exec(QStringLiteral("SELECT count(*) FROM %1").arg(QLatin1String(table))) && q.next()
            ? q.value(0).toInt()
            : -1;
    }
    bool append(const QJsonValue& entries)
    {
        return store->appendCdr(JsonConvert::fromJson(entries, qMetaTypeId<Cdr>()).value<Cdr>());
    }
    QTemporaryDir dir;
    std::unique_ptr<PersistenceSqlite> store;
};

CdrEntry entry(const QString& uid, const QString& caller = QStringLiteral("200"), int direction = 2,
               const QDateTime& start = QDateTime::currentDateTime())
{
    CdrEntry e;
    e.entryUid = uid;
    e.callId = QStringLiteral("call-") + uid;
    e.caller = caller;
    e.callee = caller == QLatin1String("200") ? QStringLiteral("300") : QStringLiteral("200");
    e.callerName = QStringLiteral("Caller ") + e.caller;
    e.calleeName = QStringLiteral("Callee ") + e.callee;
    e.direction = direction;
    e.status = 8;
    e.startTime = start.toString(TELVIX::IsoDateNoTz);
    e.duration = 42;
    return e;
}

QHash<QString, Function> functions()
{
    QHash<QString, Function> f;
    f["rot13"] = [](const Args& a) {
        return hex(SimpleObfuscator::rot13(bytes(a[0]), SimpleObfuscator::RotDirection(a[1].toInt())));
    };
    f["hide"] = [](const Args& a) { return QString::fromLatin1(SimpleObfuscator::hide(bytes(a[0]))); };
    f["reveal"] = [](const Args& a) { return hex(SimpleObfuscator::reveal(a[0].toString().toLatin1())); };
    f["hideText"] = [](const Args& a) { return SimpleObfuscator::hide(a[0].toString()); };
    f["revealText"] = [](const Args& a) { return SimpleObfuscator::reveal(a[0].toString()); };
    f["hiddenTextRoundTrip"] = [](const Args& a) {
        const QString text = a[0].toString(), hidden = SimpleObfuscator::hide(text);
        return !text.isEmpty() && hidden.contains(text.left(4)) ? "visible: " + hidden
                                                                : SimpleObfuscator::reveal(hidden);
    };
    f["lastCdrEntryUid"] = [](const Args& a) {
        Persistence p;
        p.setLastCdrEntryUid(a[0].toString());
        p.setLastCdrEntryUid(a[1].toString());
        return p.lastCdrEntryUid();
    };
    // Phone-book and message times follow the same rule.
    f["lastTimes"] = [](const Args& a) -> QJsonValue {
        Persistence p;
        p.setLastPhoneBookTime(time(a[0]));
        p.setLastPhoneBookTime(time(a[1]));
        p.setLastSmsTime(time(a[0]));
        p.setLastSmsTime(time(a[1]));
        if (p.lastPhoneBookTime() != p.lastSmsTime())
            return QStringLiteral("rules differ");
        return p.lastSmsTime().isValid() ? QJsonValue(p.lastSmsTime().toString(Qt::ISODateWithMs))
                                         : QJsonValue();
    };
    f["scrambledSize"] = [](const Args& a) -> QJsonValue {
        QTemporaryDir dir;
        QByteArray plain(a[0].toInt(), '\0');
        for (int i = 0; i < plain.size(); ++i)
            plain[i] = char(i * 7 + i / 256);
        QFile in(dir.filePath("in")), out(dir.filePath("out"));
        if (!in.open(QIODevice::WriteOnly) || in.write(plain) != plain.size())
            return QStringLiteral("not written");
        in.close();
        if (!EncryptedSqliteDbHandler::encryptOrDecryptFile(in.fileName(), out.fileName(), true)
            || !EncryptedSqliteDbHandler::encryptOrDecryptFile(out.fileName(), in.fileName(), false)
            || !in.open(QIODevice::ReadOnly) || in.readAll() != plain)
            return QStringLiteral("no round trip");
        return out.size();
    };
    f["storedCdr"] = [](const Args& a) -> QJsonValue {
        Store s;
        if (!s.append(Args {a[0]}) || s.store->cdr().size() != 1)
            return QStringLiteral("not stored");
        const CdrEntry e = s.store->cdr().first();
        return Args {e.directionText, e.statusText, e.infoType, e.localDirection};
    };
    // A row that goes in marks the list dirty, so the next read sees it; a
    // list is stored in one transaction where a refused row undoes only itself.
    f["appendAfter500"] = [](const Args& a) -> QJsonValue {
        Store s;
        if (!s.append(Args {QJsonObject {{"entryUid", "500"}, {"caller", "200"}}})
            || s.store->cdr().size() != 1)
            return QStringLiteral("first entry not stored");
        LogbusCapture log;
        const bool appended = s.append(a[0]);
        QJsonArray warnings;
        for (const LogRecord& r : log.records())
            if (r.priority == 100)
                warnings << r.text;
        return Args {appended, s.store->cdr().size(), warnings};
    };
    return f;
}

} // namespace

class TestPersistence : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fixtures_data()
    {
        QTest::addColumn<QString>("function");
        QTest::addColumn<Args>("args");
        QTest::addColumn<QJsonValue>("expected");
        const QDir dir(QStringLiteral(TELVIX_TEST_FIXTURES "/persistence"));
        for (const QString& name : dir.entryList({"*.json"})) {
            QFile file(dir.filePath(name));
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QJsonObject all = QJsonDocument::fromJson(file.readAll()).object();
            QVERIFY2(!all.isEmpty(), qPrintable(name));
            for (auto it = all.begin(); it != all.end(); ++it) {
                const QJsonArray rows = it.value().toArray();
                for (int i = 0; i < rows.size(); ++i) {
                    Args args = rows.at(i).toArray();
                    const QJsonValue expected = args.takeAt(args.size() - 1);
                    QTest::addRow("%s %d: %s", qPrintable(it.key()), i, qPrintable(compact(args).left(60)))
                        << it.key() << args << expected;
                }
            }
        }
    }

    void fixtures()
    {
        static const QHash<QString, Function> all = functions();
        QFETCH(QString, function);
        QFETCH(Args, args);
        QFETCH(QJsonValue, expected);
        QVERIFY2(all.contains(function), qPrintable(function));
        const QJsonValue actual = all.value(function)(args);
        QVERIFY2(actual == expected,
                 qPrintable("\n   actual: " + compact(actual) + "\n expected: " + compact(expected)));
    }

    // Every byte value moves by 13 and back, and random data of any length
    // survives hiding, which never pads.
    void obfuscatorRoundTrips()
    {
        QByteArray all(256, '\0');
        for (int i = 0; i < 256; ++i)
            all[i] = char(i);
        const QByteArray forward = SimpleObfuscator::rot13(all, SimpleObfuscator::Forward);
        for (int i = 0; i < 256; ++i)
            QCOMPARE(int(uchar(forward.at(i))), (i + 13) % 256);
        QCOMPARE(SimpleObfuscator::rot13(forward, SimpleObfuscator::Backward), all);

        QRandomGenerator rng(20261115u);
        for (int length : {1, 2, 3, 4, 64, 65, 65537}) {
            QByteArray data(length, '\0');
            for (char& c : data)
                c = char(rng.bounded(256));
            data[length / 2] = '\0';
            const QByteArray hidden = SimpleObfuscator::hide(data);
            QVERIFY(!hidden.contains('='));
            QCOMPARE(hidden.size(), (length * 4 + 2) / 3);
            QCOMPARE(SimpleObfuscator::reveal(hidden), data);
        }
    }

    void inMemoryBody()
    {
        Persistence p;
        QVERIFY(p.open() && p.appendCdr(Cdr()));
        QVERIFY(p.appendCdr({entry("3"), entry("7")}) && p.appendCdr({entry("5")}));
        QCOMPARE(p.cdr().size(), 3);
        QCOMPARE(p.lastCdrEntryUid(), QStringLiteral("7"));
        QVERIFY(p.appendSmsList({{"hi", "300", "2026-03-01T10:00:00.000"}}));
        QCOMPARE(p.lastSmsTime(), QDateTime(QDate(2026, 3, 1), QTime(10, 0)));
        PhoneBook book;
        book.name = QStringLiteral("a");
        QVERIFY(p.setPhoneBook({book}) && p.setPhoneBook({book, book}));
        QCOMPARE(p.phoneBook().size(), 2);
    }

    void historySurvivesReopenScrambled()
    {
        Store s;
        CdrEntry first = entry("1001", "300", 1);
        first.attributes = TELVIX::getCallAttributeValue(QStringLiteral("recorded"));
        {
            LogbusCapture log;
            QVERIFY(s.store->dbHandler() && s.store->appendCdr({entry("1002"), first}));
            s.store->close();
            QVERIFY(log.contains(10, QStringLiteral("Database was NOT OPEN! -> Closing anyway")));
            s.store.reset();
        }
        QVERIFY(QDir(s.dir.filePath(QStringLiteral("tmp"))).isEmpty()); // no plain copy left behind
        QFile file(s.dir.filePath(QStringLiteral("cdr.db")));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QVERIFY(!bytes.isEmpty() && !bytes.contains("SQLite format") && !bytes.contains("cdr_table"));

        s.store = s.open();
        QCOMPARE(s.store->lastCdrEntryUid(), QStringLiteral("1002"));
        const Cdr cdr = s.store->cdr();
        QCOMPARE(cdr.size(), 2);
        first.updateInfo(QStringLiteral("200"));
        QCOMPARE(cdr.first(), first); // every column back, ordered by uid
        QCOMPARE(cdr.first().infoType, QStringLiteral("ANSWER_IN"));
        QCOMPARE(cdr.last().entryUid, QStringLiteral("1002"));
        QVERIFY(s.store->readCdr()); // a clean list needs no read and is no failure
        s.store.reset();
        QCOMPARE(s.open(QStringLiteral("300"))->cdr().size(), 2); // party to both calls
        QVERIFY(s.open(QStringLiteral("400"))->cdr().isEmpty());
    }

    void textualUidOrderAtWrite()
    {
        Store s;
        QVERIFY(s.store->appendCdr({entry("100")}) && s.store->appendCdr({entry("99")}));
        QCOMPARE(s.store->lastCdrEntryUid(), QStringLiteral("99"));
        QVERIFY(!s.store->appendCdr({entry("100")}));
        QCOMPARE(s.store->cdr().size(), 2);
    }

    void retentionDropsOldHistoryKeepsPhoneBooks()
    {
        Store s;
        const QDateTime now = QDateTime::currentDateTime();
        QVERIFY(s.store->appendCdr({entry("1", "200", 2, now.addMonths(-1).addSecs(-60)),
                                    entry("2", "200", 2, now.addMonths(-1).addSecs(3600))}));
        QVERIFY(s.store->appendSmsList({{"old", "300", now.addMonths(-2).toString(TELVIX::IsoDateNoTz)},
                                        {"new", "300", now.toString(TELVIX::IsoDateNoTz)}}));
        PhoneBook book;
        book.entries.append(PhoneBookEntry());
        QVERIFY(s.store->setPhoneBook({book}));
        QCOMPARE(s.store->cdr().size(), 2); // nothing is aged before the next open
        s.store.reset();
        LogbusCapture log;
        s.store = s.open();
        QVERIFY(log.contains(1000, QStringLiteral("Deleting data older than")));
        QCOMPARE(s.store->cdr().size(), 1);
        QCOMPARE(s.store->cdr().first().entryUid, QStringLiteral("2"));
        QCOMPARE(s.store->smsList().size(), 1);
        QCOMPARE(s.store->smsList().first().body, QStringLiteral("new"));
        QCOMPARE(s.store->lastSmsTime().toString(TELVIX::IsoDateNoTz), now.toString(TELVIX::IsoDateNoTz));
        QCOMPARE(s.count("pbentry_table"), 1);
        QCOMPARE(s.count("pb_table"), 1);
    }

    void outdatedCdrTableIsRebuilt_data()
    {
        QTest::addColumn<QStringList>("statements");
        QTest::addColumn<QString>("logged");
        QTest::newRow("no callattributes")
            << QStringList {"CREATE TABLE cdr_table ( entryuid VARCHAR UNIQUE, caller VARCHAR, callee "
                            "VARCHAR, "
                            "starttime VARCHAR)",
                            "INSERT INTO cdr_table VALUES ('9', '200', '300', '2999-01-01')"}
            << "Column callattributes not present in cdr_table, re-create it adding the missing column!";
        QTest::newRow("duplicate entryuid")
            << QStringList {"CREATE TABLE cdr_table ( entryuid VARCHAR, caller VARCHAR, callee VARCHAR, "
                            "starttime VARCHAR, callattributes VARCHAR)",
                            "INSERT INTO cdr_table VALUES ('9', '200', '300', '2999-01-01', '')",
                            "INSERT INTO cdr_table VALUES ('9', '200', '300', '2999-01-01', '')"}
            << "Duplicated entries in cdr_entry, re-create it forcing UNIQUE entryuid field!";
    }

    void outdatedCdrTableIsRebuilt()
    {
        QFETCH(QStringList, statements);
        QFETCH(QString, logged);
        Store s;
        s.store.reset();
        QFile::remove(s.dir.filePath(QStringLiteral("cdr.db")));
        {
            DbhConfig config;
            config.driver = LXDBHANDLER::SQLITE;
            config.host = s.dir.path();
            config.dbName = QStringLiteral("cdr.db");
            config.logFile = s.dir.filePath(QStringLiteral("old.log"));
            EncryptedSqliteDbHandler old(config);
            QVERIFY(old.openDbConn());
            for (const QString& sql : qAsConst(statements)) {
                QSqlQuery q = old.createNewQuery();
                QVERIFY2(old.prepareQuery(q, sql) && old.executeQuery(q), qPrintable(sql));
            }
            QVERIFY(old.encryptDb());
        }
        LogbusCapture log;
        s.store = s.open();
        QVERIFY(log.contains(100, logged));
        QVERIFY(log.contains(1000, QStringLiteral("Dropping and re-creating cdr_table")));
        QVERIFY(log.contains(QStringLiteral("Dropping and re-creating sms_table"))); // it was missing
        QCOMPARE(s.store->lastCdrEntryUid(), QString()); // the old rows went with the table
        QVERIFY(s.store->appendCdr({entry("1")}));
        QVERIFY(!s.store->appendCdr({entry("1")})); // UNIQUE entryuid holds now
        QCOMPARE(s.store->cdr().size(), 1);
    }

    void phoneBookIsWriteOnly()
    {
        Store s;
        PhoneBook book;
        book.type = PHONEBOOK::PB_VANTOR;
        book.name = QStringLiteral("main");
        PhoneBookEntry person;
        person.displayName = QStringLiteral("Bob");
        person.company = QStringLiteral("ACME");
        book.entries = {person, person};
        QVERIFY(s.store->setPhoneBook({book}) && s.store->setPhoneBook({book})); // replaces the user's books
        QCOMPARE(s.count("pbentry_table"), 2);
        QCOMPARE(s.count("pbentry_table WHERE company IS NULL"), 2);
        LogbusCapture log;
        QVERIFY(!s.store->readPhoneBook());
        QVERIFY(s.store->phoneBook().isEmpty());
        QVERIFY(log.contains(
            10, QStringLiteral("Error retrieving PB list from SQLite db... user: 200 - error:")));
    }

    void smsReadsAppend()
    {
        Store s;
        const QString t1 = QDateTime::currentDateTime().addSecs(-10).toString(TELVIX::IsoDateNoTz);
        const QString t2 = QDateTime::currentDateTime().toString(TELVIX::IsoDateNoTz);
        QVERIFY(s.store->appendSmsList({{"a", "300", t1}}));
        QCOMPARE(s.store->smsList(), (QList<SmsEntry> {{"a", "300", t1}}));
        QVERIFY(s.store->appendSmsList({{"b", "301", t2}}));
        QCOMPARE(s.store->lastSmsTime().toString(TELVIX::IsoDateNoTz), t2);
        // The re-read goes after the list as it stood: "a" twice.
        QCOMPARE(s.store->smsList().size(), 3);
        QCOMPARE(s.store->smsList().last().number, QStringLiteral("301"));
    }

    void unopenableStoreWorksEmpty()
    {
        LogbusCapture log;
        Store s(false); // no temporary directory: no working copy can be made
        QVERIFY(!s.store->dbHandler());
        QVERIFY(log.contains(100,
                             QStringLiteral("Failed to initilize persistence db. Trying again after dropping "
                                            "existent files...")));
        QVERIFY(log.contains(10, QStringLiteral("Unable to decrypt SQLite db...")));
        QVERIFY(!s.store->readCdr() && s.store->appendCdr(Cdr()) && !s.store->appendCdr({entry("1")}));
        QVERIFY(log.contains(
            10, QStringLiteral("Persistence Db handler not initialized! Cannot write Cdr entries")));
        QVERIFY(s.store->cdr().isEmpty());
        QVERIFY(!s.store->setPhoneBook({PhoneBook()}) && !s.store->appendSmsList({SmsEntry()}));
        QVERIFY(s.store->smsList().isEmpty() && !s.store->deleteOldData());
        QCOMPARE(s.store->lastCdrEntryUid(), QString());
    }
};

QTEST_GUILESS_MAIN(TestPersistence)
#include "tst_persistence.moc"
