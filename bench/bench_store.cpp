// The local store against plain SQLite in the same run:
//
//  - BM_StoreWrite: one "CallList" answer of 10,000 entries into an empty
//    store, and the history handed on, as the dispatcher does (appendCdr,
//    then cdr()).
//  - BM_StoreLogin: the store opened at login over a scrambled file of
//    10,000 entries, and the history read back.
//  - BM_StoreAppend: 1,000 new entries into a store of 10,000 and the
//    11,000 handed on: what blocks the library's thread at each periodic
//    history request.
//  - BM_PeerWrite / BM_PeerRead: the same rows into the same schema through
//    QSQLITE with default settings and one transaction, and read back into
//    records: the floor a store can reach.
//
// Targets: write and login under 100 ms each. Wall time is what the thread
// is blocked for (a disk sync waits without using the CPU), so both times
// are printed.

#include "medianreporter.h"
#include "persistencesqlite.h"
#include "telvix_const.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QVariant>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace {

const QString Exten = QStringLiteral("200");
constexpr int HistoryEntries = 10000;
constexpr int AppendedEntries = 1000;

void check(bool ok, const char* what)
{
    if (!ok) {
        std::fprintf(stderr, "bench_store: %s\n", what);
        std::abort();
    }
}

/// `count` entries of the user's history from uid `first` on, all within the
/// month the store keeps, in every direction and outcome. Made once: local
/// times cost a time-zone look-up each.
const Cdr& history(int first, int count)
{
    static std::map<std::pair<int, int>, Cdr> made;
    Cdr& cdr = made[{first, count}];
    if (!cdr.isEmpty())
        return cdr;
    const QDateTime now = QDateTime::currentDateTime();
    cdr.reserve(count);
    for (int i = first; i < first + count; ++i) {
        CdrEntry e;
        e.entryUid = QStringLiteral("%1").arg(i, 10, 10, QLatin1Char('0'));
        e.callId = QStringLiteral("call-%1").arg(i);
        const QString other = QStringLiteral("3%1").arg(i % 100, 2, 10, QLatin1Char('0'));
        const bool outgoing = i % 2;
        e.caller = outgoing ? Exten : other;
        e.callee = outgoing ? other : Exten;
        e.callerName = QStringLiteral("Caller %1").arg(e.caller);
        e.calleeName = QStringLiteral("Callee %1").arg(e.callee);
        e.direction = (i % 3 == 0) ? 4 : (outgoing ? 2 : 1);
        e.status = 1 + i % 8;
        e.startTime = now.addSecs(-2 * (first + count - i)).toString(TELVIX::IsoDateNoTz);
        e.duration = i % 600;
        cdr.append(e);
    }
    return cdr;
}

/// A data directory with its own temporary directory for the working copy,
/// which the store finds through TMPDIR.
struct DataDir
{
    static const QString& systemTemp()
    {
        static const QString path = QDir::tempPath();
        return path;
    }

    QTemporaryDir dir {systemTemp() + QStringLiteral("/bench_store-XXXXXX")};

    DataDir()
    {
        check(dir.isValid(), "no temporary directory");
        QDir().mkpath(dir.filePath(QStringLiteral("tmp")));
        qputenv("TMPDIR", dir.filePath(QStringLiteral("tmp")).toLocal8Bit());
    }
    ~DataDir() { qputenv("TMPDIR", systemTemp().toLocal8Bit()); }
    QString dbPath() const { return dir.filePath(QStringLiteral("cdr.db")); }
};

/// A scrambled store of `HistoryEntries` entries, made once.
const QByteArray& scrambledHistory()
{
    static QByteArray bytes;
    if (bytes.isEmpty()) {
        DataDir data;
        {
            PersistenceSqlite store(data.dbPath(), Exten);
            store.appendCdr(history(0, HistoryEntries));
            check(store.cdr().size() == HistoryEntries, "the store did not keep the history");
        }
        QFile file(data.dbPath());
        check(file.open(QIODevice::ReadOnly), "no scrambled file after close");
        bytes = file.readAll();
    }
    return bytes;
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    check(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(), "cannot write the store");
}

void BM_StoreWrite(benchmark::State& state)
{
    const Cdr entries = history(0, HistoryEntries);
    for (auto _ : state) {
        state.PauseTiming();
        auto data = std::make_unique<DataDir>();
        auto store = std::make_unique<PersistenceSqlite>(data->dbPath(), Exten);
        state.ResumeTiming();
        store->appendCdr(entries);
        const int delivered = store->cdr().size();
        state.PauseTiming();
        check(delivered == HistoryEntries, "the history was not delivered whole");
        store.reset();
        data.reset();
        state.ResumeTiming();
    }
}

void BM_StoreLogin(benchmark::State& state)
{
    const QByteArray& scrambled = scrambledHistory();
    for (auto _ : state) {
        state.PauseTiming();
        auto data = std::make_unique<DataDir>();
        writeFile(data->dbPath(), scrambled);
        state.ResumeTiming();
        auto store = std::make_unique<PersistenceSqlite>(data->dbPath(), Exten);
        const Cdr& cdr = store->cdr();
        state.PauseTiming();
        check(cdr.size() == HistoryEntries && cdr.first().infoType.size() > 0, "login read a wrong history");
        store.reset();
        data.reset();
        state.ResumeTiming();
    }
}

void BM_StoreAppend(benchmark::State& state)
{
    const QByteArray& scrambled = scrambledHistory();
    const Cdr fresh = history(HistoryEntries, AppendedEntries);
    for (auto _ : state) {
        state.PauseTiming();
        auto data = std::make_unique<DataDir>();
        writeFile(data->dbPath(), scrambled);
        auto store = std::make_unique<PersistenceSqlite>(data->dbPath(), Exten);
        check(store->cdr().size() == HistoryEntries, "the stored history did not read back");
        state.ResumeTiming();
        store->appendCdr(fresh);
        const int delivered = store->cdr().size();
        state.PauseTiming();
        check(delivered == HistoryEntries + AppendedEntries, "the appended history was not delivered whole");
        store.reset();
        data.reset();
        state.ResumeTiming();
    }
}

// ---- the peer: plain SQLite through the same driver ----------------------

struct PeerDb
{
    DataDir data;
    QString name = QStringLiteral("bench_store_peer");
    QSqlDatabase db;

    PeerDb()
    {
        db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(data.dir.filePath(QStringLiteral("peer.sqlite")));
        check(db.open(), "peer database does not open");
        QSqlQuery q(db);
        check(q.exec(QStringLiteral(
                  "CREATE TABLE cdr_table ( entryuid VARCHAR UNIQUE, callid VARCHAR, caller VARCHAR, "
                  "callername VARCHAR, callee VARCHAR, calleename VARCHAR, direction INT, status INT, "
                  "starttime VARCHAR, duration INT, callattributes VARCHAR)"))
                  && q.exec(QStringLiteral("CREATE INDEX cdr_caller_idx ON cdr_table (caller)"))
                  && q.exec(QStringLiteral("CREATE INDEX cdr_callee_idx ON cdr_table (callee)")),
              "peer schema");
    }
    ~PeerDb()
    {
        db.close();
        db = QSqlDatabase();
        QSqlDatabase::removeDatabase(name);
    }

    void insert(const Cdr& entries)
    {
        db.transaction();
        QSqlQuery q(db);
        q.prepare(QStringLiteral("INSERT INTO cdr_table (callid, caller, callername, callee, calleename, "
                                 "direction, status, starttime, duration, entryuid, callattributes) VALUES "
                                 "(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
        for (const CdrEntry& e : entries) {
            q.bindValue(0, e.callId);
            q.bindValue(1, e.caller);
            q.bindValue(2, e.callerName);
            q.bindValue(3, e.callee);
            q.bindValue(4, e.calleeName);
            q.bindValue(5, e.direction);
            q.bindValue(6, e.status);
            q.bindValue(7, e.startTime);
            q.bindValue(8, e.duration);
            q.bindValue(9, e.entryUid);
            q.bindValue(10, TELVIX::getCallAttributeString(e.attributes));
            q.exec();
        }
        check(db.commit(), "peer commit");
    }

    Cdr read()
    {
        QSqlQuery q(db);
        q.setForwardOnly(true);
        q.prepare(
            QStringLiteral("SELECT callid, caller, callername, callee, calleename, direction, status, "
                           "starttime, duration, entryuid, callattributes FROM cdr_table WHERE caller = "
                           ":exten OR callee = :exten ORDER BY entryuid ASC"));
        q.bindValue(QStringLiteral(":exten"), Exten);
        q.exec();
        Cdr rows;
        while (q.next()) {
            CdrEntry e;
            e.callId = q.value(0).toString();
            e.caller = q.value(1).toString();
            e.callerName = q.value(2).toString();
            e.callee = q.value(3).toString();
            e.calleeName = q.value(4).toString();
            e.direction = q.value(5).toInt();
            e.status = q.value(6).toInt();
            e.startTime = q.value(7).toString();
            e.duration = q.value(8).toInt();
            e.entryUid = q.value(9).toString();
            e.attributes = TELVIX::getCallAttributeValue(q.value(10).toString());
            e.updateInfo(Exten);
            rows.append(e);
        }
        return rows;
    }
};

void BM_PeerWrite(benchmark::State& state)
{
    const Cdr entries = history(0, HistoryEntries);
    for (auto _ : state) {
        state.PauseTiming();
        auto peer = std::make_unique<PeerDb>();
        state.ResumeTiming();
        peer->insert(entries);
        state.PauseTiming();
        peer.reset();
        state.ResumeTiming();
    }
}

void BM_PeerRead(benchmark::State& state)
{
    PeerDb peer;
    peer.insert(history(0, HistoryEntries));
    for (auto _ : state) {
        const Cdr rows = peer.read();
        check(rows.size() == HistoryEntries, "peer read");
    }
}

BENCHMARK(BM_StoreWrite)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7)->UseRealTime();
BENCHMARK(BM_StoreLogin)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7)->UseRealTime();
BENCHMARK(BM_StoreAppend)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7)->UseRealTime();
BENCHMARK(BM_PeerWrite)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7)->UseRealTime();
BENCHMARK(BM_PeerRead)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(7)->UseRealTime();

void printSummary(Medians& m)
{
    std::printf("\nSummary (medians, ms)\n%-44s %10s %10s\n", "", "wall", "cpu");
    const auto row = [&](const char* label, const char* name, const char* target) {
        std::printf("%-44s %10.1f %10.1f   %s\n", label, m[name].realTime, m[name].cpuTime, target);
    };
    row("store: CallList of 10,000, stored + handed on", "BM_StoreWrite", "(target < 100)");
    row("store: login over 10,000, history read", "BM_StoreLogin", "(target < 100)");
    row("store: 1,000 into 10,000, 11,000 handed on", "BM_StoreAppend", "");
    row("peer: 10,000 rows, one transaction", "BM_PeerWrite", "");
    row("peer: 10,000 rows read into records", "BM_PeerRead", "");
    const double peerWrite = m["BM_PeerWrite"].realTime + m["BM_PeerRead"].realTime;
    if (peerWrite > 0)
        std::printf("%-44s %10.2f\n", "store write / (peer write + read), wall",
                    m["BM_StoreWrite"].realTime / peerWrite);
    if (m["BM_PeerRead"].realTime > 0)
        std::printf("%-44s %10.2f\n", "store login / peer read, wall",
                    m["BM_StoreLogin"].realTime / m["BM_PeerRead"].realTime);
}

void silence(QtMsgType, const QMessageLogContext&, const QString&) { }

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    DataDir::systemTemp(); // before any store moves TMPDIR
    qInstallMessageHandler(silence);
    return runBenchmarks(argc, argv, printSummary);
}
