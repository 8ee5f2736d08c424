#include "encrypteddbhandler.h"
#include "logbuscapture.h"
#include "lxdbhandler.h"
#include "qtlogcapture.h"
#include "simpleobfuscator.h"

#include <QDir>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

class TestDbHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_tmp = m_dir->filePath(QStringLiteral("tmp"));
        QDir().mkpath(m_tmp);
        qputenv("TMPDIR", m_tmp.toLocal8Bit());
    }

    void cleanup()
    {
        qunsetenv("TMPDIR");
        m_dir.reset();
    }

    void roundTripKeepsFileScrambled_data()
    {
        QTest::addColumn<int>("rows");
        QTest::newRow("one row") << 1;
        QTest::newRow("file of many chunks") << 3000;
    }

    void roundTripKeepsFileScrambled()
    {
        QFETCH(int, rows);
        const QString host = m_dir->filePath(QStringLiteral("data/sub")); // made by the close
        QString plain;
        {
            EncryptedSqliteDbHandler h(config(QStringLiteral("cdr.db"), host));
            plain = h.plainFilePath();
            QCOMPARE(QFileInfo(plain).absolutePath(), QFileInfo(m_tmp).absoluteFilePath());
            QVERIFY(QFileInfo(plain).fileName().startsWith(QLatin1String("cdr.db-")));
            QVERIFY(h.openDbConn() && exec(h, QStringLiteral("CREATE TABLE t (name TEXT)")));
            QVERIFY(h.database().transaction());
            for (int i = 0; i < rows; ++i)
                QVERIFY(exec(
                    h, QStringLiteral("INSERT INTO t VALUES ('row %1')").arg(i, 5, 10, QLatin1Char('0'))));
            QVERIFY(h.database().commit());
            LogbusCapture logs;
            QVERIFY(h.encryptDb());
            QVERIFY(!logs.contains(QStringLiteral("Database was NOT OPEN!")));
            h.closeDbConn(); // a second close is told in the log
            QVERIFY(logs.contains(10, QStringLiteral("Database was NOT OPEN! -> Closing anyway")));
            QVERIFY(!QFileInfo::exists(plain));
            QVERIFY(!QFileInfo::exists(h.encryptedFilePath() + QStringLiteral(".tmp")));
        }
        // Nothing but the scrambled file stays: no copy, no backup, no note of a working copy.
        QCOMPARE(QDir(host).entryList(QDir::Files | QDir::Hidden), QStringList {QStringLiteral("cdr.db")});
        const QByteArray bytes = slurp(host + QStringLiteral("/cdr.db"));
        QVERIFY(!bytes.startsWith("SQLite format 3"));
        QVERIFY(SimpleObfuscator::reveal(bytes).startsWith("SQLite format 3"));

        EncryptedSqliteDbHandler again(config(QStringLiteral("cdr.db"), host));
        QVERIFY(again.openDbConn());
        const QStringList got = names(again);
        QCOMPARE(got.size(), rows);
        QCOMPARE(got.last(), QStringLiteral("row %1").arg(rows - 1, 5, 10, QLatin1Char('0')));
        QVERIFY(again.encryptDb());
        // Written a second time, the previous file was the backup and is gone.
        QVERIFY(!QFileInfo::exists(host + QStringLiteral("/cdr.db.tmp")));
    }

    void emptyScrambledFileIsDropped()
    {
        const QString path = m_dir->filePath(QStringLiteral("cdr.db"));
        QFile(path).open(QIODevice::WriteOnly);
        QtLogCapture qt;
        EncryptedSqliteDbHandler h(config(QStringLiteral("cdr.db")));
        QVERIFY(qt.contains(QStringLiteral("Empty encrypted db file ") + path
                            + QStringLiteral(", let's drop it...")));
        QVERIFY(!QFileInfo::exists(path));
        QVERIFY(QFileInfo::exists(h.plainFilePath()));
        QVERIFY(h.openDbConn());
        QVERIFY(exec(h, QStringLiteral("CREATE TABLE t (name TEXT)")));
    }

    void decryptTwiceLeavesWorkingCopyAlone()
    {
        QString plain;
        {
            EncryptedSqliteDbHandler h(config(QStringLiteral("cdr.db")));
            QVERIFY(h.openDbConn() && exec(h, QStringLiteral("CREATE TABLE t (name TEXT)")));
            QVERIFY(exec(h, QStringLiteral("INSERT INTO t VALUES ('kept')")));
            h.closeDbConn();
            plain = h.plainFilePath();
            QVERIFY(h.decryptDb());
            QCOMPARE(h.plainFilePath(), plain);
            QVERIFY(h.openDbConn());
            QCOMPARE(names(h), QStringList {QStringLiteral("kept")});
        }
        // Dropped without a close: the copy goes with it, and so does the note of it.
        QVERIFY(!QFileInfo::exists(plain));
        QVERIFY(!QFileInfo::exists(m_dir->filePath(QStringLiteral("cdr.db.work"))));
    }

    void decryptFailures_data()
    {
        QTest::addColumn<bool>("scrambledIsDirectory");
        QTest::addColumn<bool>("noTempDir");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("scrambled file unreadable")
            << true << false
            << QStringList {QStringLiteral("Unable to open "), QStringLiteral("Unable to decrypt ")};
        QTest::newRow("working copy cannot be written")
            << false << true << QStringList {QStringLiteral("Error creating a temporary file")};
    }

    void decryptFailures()
    {
        QFETCH(bool, scrambledIsDirectory);
        QFETCH(bool, noTempDir);
        QFETCH(QStringList, expected);
        if (scrambledIsDirectory)
            QDir(m_dir->path()).mkdir(QStringLiteral("cdr.db"));
        if (noTempDir)
            qputenv("TMPDIR", m_dir->filePath(QStringLiteral("missing")).toLocal8Bit());
        QtLogCapture qt;
        EncryptedSqliteDbHandler h(config(QStringLiteral("cdr.db")));
        for (const QString& text : expected)
            QVERIFY2(qt.contains(text), qPrintable(qt.messages().join('\n')));
        QVERIFY(h.plainFilePath().isEmpty());
        QVERIFY(!h.decryptDb());
        QCOMPARE(QDir(m_tmp).entryList(QDir::Files), QStringList());
        QtLogCapture second;
        QVERIFY(!h.encryptDb());
        QVERIFY(second.contains(QStringLiteral("No database to be encrypted ")));
    }

    void corruptScrambledFileFailsAtQuery()
    {
        QVERIFY(
            spit(m_dir->filePath(QStringLiteral("cdr.db")), SimpleObfuscator::hide(QByteArray(4096, 'x'))));
        EncryptedSqliteDbHandler h(config(QStringLiteral("cdr.db")));
        QVERIFY(QFileInfo(h.plainFilePath()).size() == 4096);
        LogbusCapture logs;
        QVERIFY(h.openDbConn());
        QSqlQuery q = h.createNewQuery();
        const bool prepared = h.prepareQuery(q, QStringLiteral("SELECT name FROM t"));
        QVERIFY(!prepared || !h.executeQuery(q));
        QVERIFY(h.lastErrorType() == LxBaseDbHandler::PrepareError
                || h.lastErrorType() == LxBaseDbHandler::ExecuteError);
        QVERIFY(h.lastErrorText().contains(QStringLiteral("not a database")));
        QVERIFY(logs.contains(10, QStringLiteral("QUERY ERROR - got error: ")));
    }

    void encryptFailures_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<bool>("truncateCopy");
        QTest::addColumn<QString>("expected");
        QTest::newRow("working copy emptied") << QString() << true << QStringLiteral("Empty database file ");
        QTest::newRow("permanent place unwritable")
            << QStringLiteral("blocker/sub") << false
            << QStringLiteral(", an error occurred while performing encryption!");
    }

    void encryptFailures()
    {
        QFETCH(QString, host);
        QFETCH(bool, truncateCopy);
        QFETCH(QString, expected);
        QVERIFY(spit(m_dir->filePath(QStringLiteral("blocker")), "a file where a directory should be"));
        const QString dir = host.isEmpty() ? m_dir->path() : m_dir->filePath(host);
        const QString earlier = earlierSession();
        const QByteArray earlierBytes = slurp(earlier);
        QVERIFY(!earlierBytes.isEmpty());

        EncryptedSqliteDbHandler h(config(QStringLiteral("cdr.db"), dir));
        QVERIFY(h.openDbConn() && exec(h, QStringLiteral("CREATE TABLE IF NOT EXISTS u (x INT)")));
        h.closeDbConn();
        if (truncateCopy)
            QVERIFY(QFile::resize(h.plainFilePath(), 0));
        QtLogCapture qt;
        QVERIFY(!h.encryptDb());
        QVERIFY2(qt.contains(expected), qPrintable(qt.messages().join('\n')));
        QVERIFY(!QFileInfo::exists(h.plainFilePath()));
        QCOMPARE(slurp(earlier), earlierBytes);
    }

    void deleteFilesKeepsBackup()
    {
        const QString scrambled = earlierSession();
        QVERIFY(!scrambled.isEmpty());
        EncryptedSqliteDbHandler h(config(QStringLiteral("cdr.db")));
        const QString plain = h.plainFilePath();
        QtLogCapture qt;
        h.deleteFiles();
        QVERIFY(qt.contains(QStringLiteral("Removing both original file")));
        QVERIFY(!QFileInfo::exists(scrambled));
        QVERIFY(QFileInfo(scrambled + QStringLiteral(".tmp")).size() > 0);
        QVERIFY(!QFileInfo::exists(plain));
        // Nothing to set aside the second time: the backup is not thrown away.
        h.deleteFiles();
        QVERIFY(QFileInfo(scrambled + QStringLiteral(".tmp")).size() > 0);
        // A new database starts in an empty working copy under the name the
        // connection has, readable by the owner only.
        QVERIFY(h.decryptDb());
        QCOMPARE(h.plainFilePath(), plain);
        QCOMPARE(h.database().databaseName(), plain);
        QVERIFY(!(QFileInfo(plain).permissions() & (QFile::ReadOther | QFile::ReadGroup)));
        QVERIFY(h.openDbConn() && exec(h, QStringLiteral("CREATE TABLE t (name TEXT)")));
    }

    // A missing file is not created by the test; an existing one passes it.
    void testConnection()
    {
        const QString path = m_dir->filePath(QStringLiteral("plain.sqlite"));
        for (bool exists : {false, true}) {
            if (exists)
                QFile(path).open(QIODevice::WriteOnly);
            LxBaseDbHandler h(config(path));
            QCOMPARE(h.testConnection(), exists);
            QCOMPARE(QFileInfo::exists(path), exists);
            QVERIFY(!h.database().isOpen());
        }
    }

    // Each failure is typed and logged with the query; the next success clears it.
    void queryFailures()
    {
        LxBaseDbHandler h(config(m_dir->filePath(QStringLiteral("plain.sqlite"))));
        QVERIFY(h.openDbConn() && exec(h, QStringLiteral("CREATE TABLE t (name TEXT UNIQUE)")));
        QVERIFY(exec(h, QStringLiteral("INSERT INTO t VALUES ('a')")));
        const struct
        {
            const char* sql;
            LxBaseDbHandler::ErrorType type;
            const char* log;
        } rows[] = {{"SELEC nonsense", LxBaseDbHandler::PrepareError, "PREPARE QUERY ERROR - got error: "},
                    {"INSERT INTO t VALUES ('a')", LxBaseDbHandler::ExecuteError,
                     "EXECUTE QUERY ERROR - got error: "}};
        for (const auto& row : rows) {
            LogbusCapture logs;
            QVERIFY(!exec(h, QLatin1String(row.sql)));
            QCOMPARE(h.lastErrorType(), row.type);
            QVERIFY(!h.lastErrorText().isEmpty());
            QVERIFY(logs.contains(
                10, QStringLiteral("%1 %2  for query ( %3 )").arg(row.log, h.lastErrorText(), row.sql)));
            QVERIFY(exec(h, QStringLiteral("SELECT 1")));
            QCOMPARE(h.lastErrorType(), LxBaseDbHandler::NoError);
            QVERIFY(h.lastErrorText().isNull());
        }
    }

    void transactionsCloseConnection_data()
    {
        QTest::addColumn<QString>("end");
        QTest::addColumn<QStringList>("stored");
        QTest::addColumn<QString>("logText");
        QTest::newRow("commit") << QStringLiteral("commit") << QStringList {QStringLiteral("a")} << QString();
        QTest::newRow("rollback") << QStringLiteral("rollback") << QStringList()
                                  << QStringLiteral("Query tx failed... rolling back transaction");
        QTest::newRow("failed commit") << QStringLiteral("commit without transaction") << QStringList()
                                       << QStringLiteral("Transaction  tx  commit failed");
    }

    void transactionsCloseConnection()
    {
        QFETCH(QString, end);
        QFETCH(QStringList, stored);
        QFETCH(QString, logText);
        LxBaseDbHandler h(config(m_dir->filePath(QStringLiteral("plain.sqlite"))));
        QVERIFY(h.openDbConn() && exec(h, QStringLiteral("CREATE TABLE t (name TEXT)")));
        if (end != QLatin1String("commit without transaction")) {
            QVERIFY(h.database().transaction());
            QVERIFY(exec(h, QStringLiteral("INSERT INTO t VALUES ('a')")));
        }
        LogbusCapture logs;
        if (end == QLatin1String("rollback"))
            h.rollbackAndClose(QStringLiteral("tx"));
        else
            h.commitAndClose(QStringLiteral("tx"));
        QVERIFY(!h.database().isOpen());
        if (!logText.isEmpty())
            QVERIFY2(logs.contains(10, logText), qPrintable(logs.texts().join('\n')));
        QCOMPARE(h.lastErrorType(),
                 end.contains(QLatin1String("without")) ? LxBaseDbHandler::CommitError
                                                        : LxBaseDbHandler::NoError);
        QVERIFY(h.openDbConn());
        QCOMPARE(names(h), stored);
    }

    void twoHandlersSideBySide()
    {
        const QString path = m_dir->filePath(QStringLiteral("plain.sqlite"));
        LogbusCapture logs;
        auto first = std::make_unique<LxBaseDbHandler>(config(path));
        LxBaseDbHandler second(config(path));
        QVERIFY(logs.contains(1000, QStringLiteral("library path: QSQLITE")));
        QVERIFY(first->connectionName() != second.connectionName());
        QVERIFY(second.connectionName().startsWith(QStringLiteral("QSQLITE_") + path + QStringLiteral("_{")));
        QVERIFY(first->openDbConn() && second.openDbConn());
        QVERIFY(exec(*first, QStringLiteral("CREATE TABLE t (name TEXT)")));
        QVERIFY(exec(*first, QStringLiteral("INSERT INTO t VALUES ('shared')")));
        QCOMPARE(names(second), QStringList {QStringLiteral("shared")});
        const QString gone = first->connectionName();
        first.reset();
        QVERIFY(!QSqlDatabase::contains(gone));
        QVERIFY(QSqlDatabase::contains(second.connectionName()));
        QCOMPARE(names(second), QStringList {QStringLiteral("shared")});
    }

    void unknownDriverFailsCleanly()
    {
        DbhConfig c = config(m_dir->filePath(QStringLiteral("x")));
        c.driver = QStringLiteral("QNOSUCH");
        c.connectionName = QStringLiteral("named");
        LogbusCapture logs;
        LxBaseDbHandler h(c);
        QCOMPARE(h.connectionName(), QStringLiteral("named"));
        QVERIFY(!h.openDbConn());
        QCOMPARE(h.lastErrorType(), LxBaseDbHandler::ConnectError);
        QVERIFY(!h.lastErrorText().isEmpty());
        QVERIFY(logs.contains(10, QStringLiteral("------ DB ERROR: ") + h.lastErrorText()));
    }

private:
    DbhConfig config(const QString& dbName, const QString& host = QString()) const;
    static bool exec(LxBaseDbHandler& h, const QString& sql);
    static QStringList names(LxBaseDbHandler& h);
    static QByteArray slurp(const QString& path);
    static bool spit(const QString& path, const QByteArray& bytes);
    QString earlierSession() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_tmp; // what the handlers take as the system's temporary directory
};

DbhConfig TestDbHandler::config(const QString& dbName, const QString& host) const
{
    DbhConfig c;
    c.driver = LXDBHANDLER::SQLITE;
    c.dbName = dbName;
    c.host = host.isNull() ? m_dir->path() : host;
    c.logFile = m_dir->filePath(QStringLiteral("db.log"));
    return c;
}

bool TestDbHandler::exec(LxBaseDbHandler& h, const QString& sql)
{
    QSqlQuery q = h.createNewQuery();
    return h.prepareQuery(q, sql) && h.executeQuery(q);
}

QStringList TestDbHandler::names(LxBaseDbHandler& h)
{
    QSqlQuery q = h.createNewQuery();
    QStringList out;
    if (h.prepareQuery(q, QStringLiteral("SELECT name FROM t ORDER BY name")) && h.executeQuery(q))
        while (q.next())
            out << q.value(0).toString();
    return out;
}

QByteArray TestDbHandler::slurp(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool TestDbHandler::spit(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// A good scrambled "cdr.db" with an empty table t, as a clean close leaves it.
QString TestDbHandler::earlierSession() const
{
    EncryptedSqliteDbHandler first(config(QStringLiteral("cdr.db")));
    if (!first.openDbConn() || !exec(first, QStringLiteral("CREATE TABLE t (name TEXT)"))
        || !first.encryptDb())
        return QString();
    return first.encryptedFilePath();
}

QTEST_GUILESS_MAIN(TestDbHandler)
#include "tst_dbhandler.moc"
