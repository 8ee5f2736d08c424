// Faults of the call-history store, one table played by one driver: cdr.db
// corrupt, truncated, read-only, or the disk full while it is written. A
// child process meets the fault (so that a file size limit or a dropped
// privilege stays its own), opens the store, adds a large history and
// closes; it must end normally. The next open then finds what the row says
// survives: the previous complete history wherever the file was sound.
#include "logbuscapture.h"
#include "persistencesqlite.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

namespace {

enum class Fault { Corrupt, Truncated, ReadOnly, DiskFull };

const int kEarlierRows = 3;
const int kAddedRows = 200;

Cdr history(int first, int count, int nameLength)
{
    Cdr cdr;
    for (int i = first; i < first + count; ++i) {
        CdrEntry e;
        e.entryUid = QString::number(i);
        e.callId = QStringLiteral("call-%1").arg(i);
        e.caller = QStringLiteral("200");
        e.callee = QStringLiteral("300");
        e.callerName = QString(nameLength, QLatin1Char('n'));
        e.direction = 2;
        e.status = 8;
        e.startTime = QDateTime::currentDateTime().toString(TELVIX::IsoDateNoTz);
        cdr.append(e);
    }
    return cdr;
}

int storedRows(const QString& db)
{
    PersistenceSqlite store(db, QStringLiteral("200"));
    return store.readCdr() ? store.cdr().size() : -1;
}

/// The child: meets the fault, reads the history, adds a large one and
/// closes, printing the row count it read and the log lines of the store.
int writer(const QString& db, Fault fault)
{
    if (fault == Fault::DiskFull) {
        std::signal(SIGXFSZ, SIG_IGN); // writes past the limit fail with EFBIG instead
        const rlimit limit {rlim_t(QFileInfo(db).size() + 16 * 1024),
                            rlim_t(QFileInfo(db).size() + 16 * 1024)};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    if (fault == Fault::ReadOnly && geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
        return 3; // root writes anywhere: the fault needs an ordinary user
    LogbusCapture logs;
    {
        PersistenceSqlite store(db, QStringLiteral("200"));
        std::printf("read %d\n", store.readCdr() ? int(store.cdr().size()) : -1);
        store.writeCdr(history(5000, kAddedRows, 2000));
        store.close();
    }
    for (const QString& line : logs.texts())
        std::printf("log %s\n", qPrintable(line));
    return 0;
}

} // namespace

Q_DECLARE_METATYPE(Fault)

class TestStoreFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fault_data();
    void fault();
};

void TestStoreFaults::fault_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<int>("readByWriter"); // -1: the store cannot be read
    QTest::addColumn<int>("survivors"); // rows the next open finds
    QTest::addColumn<QString>("logLine");
    // A damaged file is set aside: the writer starts empty and what it adds is kept.
    const QString damaged = QStringLiteral(" is damaged (");
    QTest::newRow("corrupt") << Fault::Corrupt << 0 << kAddedRows << damaged;
    QTest::newRow("truncated") << Fault::Truncated << 0 << kAddedRows << damaged;
    QTest::newRow("read-only") << Fault::ReadOnly << kEarlierRows << kEarlierRows
                               << QStringLiteral("Unable to encrypt");
    QTest::newRow("disk full") << Fault::DiskFull << kEarlierRows << kEarlierRows
                               << QStringLiteral("Error storing entries into SQLite db... user:");
}

void TestStoreFaults::fault()
{
    QFETCH(Fault, fault);
    QFETCH(int, readByWriter);
    QFETCH(int, survivors);
    QFETCH(QString, logLine);

    QTemporaryDir dir;
    const QString home = dir.filePath(QStringLiteral("home"));
    const QString tmp = dir.filePath(QStringLiteral("tmp"));
    QVERIFY(QDir().mkpath(home) && QDir().mkpath(tmp));
    qputenv("TMPDIR", tmp.toLocal8Bit());
    const QString db = home + QStringLiteral("/cdr.db");
    {
        PersistenceSqlite store(db, QStringLiteral("200"));
        QVERIFY(store.writeCdr(history(1, kEarlierRows, 10)));
    }
    QCOMPARE(storedRows(db), kEarlierRows);

    QFile file(db);
    const qint64 size = file.size();
    switch (fault) {
    case Fault::Corrupt:
        QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(size / 4));
        file.write(QByteArray(int(size / 2), '\xa5'));
        file.close();
        break;
    case Fault::Truncated:
        QVERIFY(file.resize(size / 3));
        break;
    case Fault::ReadOnly:
        // An ordinary user may pass through, read, and write the working copy only.
        QFile::setPermissions(dir.path(),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
                                  | QFile::ExeOther);
        QFile::setPermissions(home, QFile::ReadOwner | QFile::ExeOwner | QFile::ReadOther | QFile::ExeOther);
        QFile::setPermissions(db, QFile::ReadOwner | QFile::ReadOther);
        QFile::setPermissions(tmp, QFile::Permissions(0x7777));
        break;
    case Fault::DiskFull:
        break;
    }

    QProcess child;
    child.setProcessChannelMode(QProcess::MergedChannels); // the Qt log too
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--write"), db, QString::number(int(fault))});
    QVERIFY(child.waitForFinished(30000));
    const QString out = QString::fromLocal8Bit(child.readAllStandardOutput());
    QCOMPARE(child.exitStatus(), QProcess::NormalExit);
    QVERIFY2(child.exitCode() == 0, qPrintable(out));
    QVERIFY2(out.contains(QStringLiteral("read %1\n").arg(readByWriter)), qPrintable(out.left(2000)));
    QVERIFY2(out.contains(logLine), qPrintable(out.left(4000)));

    QFile::setPermissions(home, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile::setPermissions(db, QFile::ReadOwner | QFile::WriteOwner);
    QCOMPARE(storedRows(db), survivors);
    // No plain copy of the history is left behind in the clear.
    QCOMPARE(QDir(tmp).entryList(QDir::Files | QDir::Hidden), QStringList());
    qunsetenv("TMPDIR");
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 4 && qstrcmp(argv[1], "--write") == 0)
        return writer(QString::fromLocal8Bit(argv[2]), Fault(QByteArray(argv[3]).toInt()));
    TestStoreFaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_storefaults.moc"
