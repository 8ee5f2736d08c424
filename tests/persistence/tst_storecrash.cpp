// The scrambled store killed at arbitrary points of its close: the history
// that a complete close saved is never lost, and no plain copy stays in the
// clear.
#include "encrypteddbhandler.h"
#include "logbuscapture.h"

#include <QDir>
#include <QProcess>
#include <QRandomGenerator>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <thread>

namespace {
DbhConfig storeConfig(const QString& dir)
{
    DbhConfig c;
    c.driver = LXDBHANDLER::SQLITE;
    c.dbName = QStringLiteral("cdr.db");
    c.host = dir;
    c.logFile = dir + QStringLiteral("/db.log");
    return c;
}

qint64 storedCount(EncryptedSqliteDbHandler& h)
{
    QSqlQuery q = h.createNewQuery();
    if (!h.openDbConn() || !h.prepareQuery(q, QStringLiteral("SELECT count(*) FROM t")) || !h.executeQuery(q)
        || !q.next())
        return 0;
    return q.value(0).toLongLong();
}

// The child: one row more per complete close, forever; each line on stdout
// names a count that a complete close has saved.
int churn(const QString& dir)
{
    for (;;) {
        EncryptedSqliteDbHandler h(storeConfig(dir));
        QSqlQuery q = h.createNewQuery();
        const qint64 next = storedCount(h) + 1;
        if (!h.prepareQuery(q, QStringLiteral("CREATE TABLE IF NOT EXISTS t (n INTEGER)"))
            || !h.executeQuery(q) || !h.prepareQuery(q, QStringLiteral("INSERT INTO t VALUES (%1)").arg(next))
            || !h.executeQuery(q) || !h.encryptDb())
            return 2;
        std::printf("%lld\n", static_cast<long long>(next));
        std::fflush(stdout);
    }
}
} // namespace

class TestStoreCrash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void killedAnywhereInCloseLosesNothing();
};

void TestStoreCrash::killedAnywhereInCloseLosesNothing()
{
    QTemporaryDir dir, tmp;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TMPDIR"), tmp.path());
    qputenv("TMPDIR", tmp.path().toLocal8Bit());
    QRandomGenerator random(20261125);
    LogbusCapture logs;
    qint64 saved = 0;
    for (int round = 0; round < 30; ++round) {
        QProcess child;
        child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--churn"), dir.path()});
        QVERIFY(child.waitForStarted());
        // Wait for a first complete close, then kill at a random point of
        // the following ones.
        QTRY_VERIFY(child.canReadLine() || child.waitForReadyRead(100));
        std::this_thread::sleep_for(std::chrono::microseconds(random.bounded(3000)));
        child.kill();
        QVERIFY(child.waitForFinished());
        for (const QByteArray& line : child.readAllStandardOutput().split('\n'))
            if (!line.isEmpty())
                saved = qMax(saved, line.toLongLong());
        QVERIFY2(saved > 0, child.readAllStandardError().constData());

        EncryptedSqliteDbHandler next(storeConfig(dir.path()));
        const qint64 count = storedCount(next);
        QVERIFY2(count >= saved,
                 qPrintable(QStringLiteral("round %1: %2 rows, %3 saved").arg(round).arg(count).arg(saved)));
        QVERIFY(count <= saved + 1);
        next.closeDbConn();
        QVERIFY(next.encryptDb());
        // What the killed child had in the clear is gone with the next open.
        // (An empty file is harmless: a kill right after the copy's creation.)
        const QFileInfoList left = QDir(tmp.path()).entryInfoList({QStringLiteral("cdr.db-*")}, QDir::Files);
        for (const QFileInfo& file : left)
            QVERIFY2(file.size() == 0, qPrintable(file.fileName()));
    }
    // Most kills land while a plain copy exists; some inside the close.
    qInfo("copies removed %d, backups restored %d", logs.count(QStringLiteral("an earlier run left behind")),
          logs.count(QStringLiteral("interrupted close")));
    QVERIFY(logs.count(QStringLiteral("an earlier run left behind")) > 0);
    qunsetenv("TMPDIR");
}

int main(int argc, char** argv)
{
    if (argc == 3 && qstrcmp(argv[1], "--churn") == 0) {
        QCoreApplication app(argc, argv);
        return churn(QString::fromLocal8Bit(argv[2]));
    }
    QCoreApplication app(argc, argv);
    TestStoreCrash test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_storecrash.moc"
