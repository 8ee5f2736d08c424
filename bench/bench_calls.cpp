// A storm of 10,000 concurrent calls through the dispatcher: each rings on two
// accounts, is answered on one and finished on both. The server's text is fed
// to the client's framing parser on the library's thread, as the socket would
// feed it, so recognition, parsing, the call table, logging and signals are
// all in the measure. Prints events per second and the memory the live calls
// take; the table must be empty afterwards.
//
// The main log writes each call line to its file and to the console; the
// console is sent to /dev/null during a storm so that the terminal is not what
// is measured. Qt debug output is silenced, as in a release application.
//   ./bench/bench_calls

#include "simplexmlparser.h"
#include "telvix.h"
#include "telvix_p.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fcntl.h>
#include <malloc.h>
#include <memory>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

namespace {

const int Calls = 10000;
const int MessagesPerRead = 64;
const QString DeskAccount = QStringLiteral("200-desk");
const QString SoftAccount = QStringLiteral("200-soft");

QString document(const QString& body)
{
    // No UUID: with no server connection there is nobody to acknowledge.
    return QStringLiteral("<SRNT><API>6.1</API><Timestamp>2026-11-21T10:00:00.000</Timestamp><Response>%1"
                          "</Response></SRNT>")
        .arg(body);
}

QString leg(const QString& uid, const QString& account)
{
    return QStringLiteral("<Uid>%1</Uid><SipAccount>%2</SipAccount><LocalChannel>SIP/%2-%1</LocalChannel>")
        .arg(uid, account);
}

QString incoming(const QString& uid, const QString& account, int i)
{
    return document(
        QStringLiteral("<IncomingCall>%1<RemoteChannel>SIP/trunk-%2</RemoteChannel><Remote>05%3</Remote>"
                       "<RemoteName>Caller %2</RemoteName><CalledNum>200</CalledNum>"
                       "<RemoteType>external</RemoteType></IncomingCall>")
            .arg(leg(uid, account), uid, QString::number(1000000 + i)));
}

QString answered(const QString& uid, const QString& account, int i)
{
    return document(
        QStringLiteral("<AnsweredCall>%1<RemoteChannel>SIP/trunk-%2</RemoteChannel><Remote>05%3</Remote>"
                       "<RemoteName>Caller %2</RemoteName><LocalAnswer>1</LocalAnswer></AnsweredCall>")
            .arg(leg(uid, account), uid, QString::number(1000000 + i)));
}

QString finished(const QString& uid, const QString& account, int i)
{
    return document(QStringLiteral("<FinishedCall>%1<Remote>05%2</Remote><RemoteName>Caller</RemoteName>"
                                   "<Reason>normal</Reason><LocalHangup>1</LocalHangup></FinishedCall>")
                        .arg(leg(uid, account), QString::number(1000000 + i)));
}

// The socket hands the parser many messages per read.
QStringList reads(const QStringList& messages)
{
    QStringList chunks;
    for (int i = 0; i < messages.size(); i += MessagesPerRead)
        chunks.append(messages.mid(i, MessagesPerRead).join(QString()));
    return chunks;
}

long maxRssKb()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

qint64 threadCpuNs()
{
    timespec now {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

size_t heapInUse()
{
    return mallinfo2().uordblks;
}

// Sends stdout and stderr to /dev/null while it lives.
class ConsoleSilencer
{
public:
    ConsoleSilencer()
    {
        std::fflush(stdout);
        std::fflush(stderr);
        m_out = dup(STDOUT_FILENO);
        m_err = dup(STDERR_FILENO);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        close(null);
    }
    ~ConsoleSilencer()
    {
        std::fflush(stdout);
        std::fflush(stderr);
        dup2(m_out, STDOUT_FILENO);
        dup2(m_err, STDERR_FILENO);
        close(m_out);
        close(m_err);
    }

private:
    int m_out = -1;
    int m_err = -1;
};

void silence(QtMsgType, const QMessageLogContext&, const QString&) { }

/// A client on its own thread, not connected: the storm goes straight to its
/// framing parser.
struct Storm
{
    QTemporaryDir dir;
    std::unique_ptr<Telvix> client;
    QStringList ringingReads;
    QStringList endingReads;
    int events = 0;

    bool start()
    {
        QStringList ringing, ending;
        for (int i = 0; i < Calls; ++i) {
            const QString uid = QStringLiteral("storm-%1").arg(i);
            ringing << incoming(uid, DeskAccount, i) << incoming(uid, SoftAccount, i);
            ending << answered(uid, i % 2 ? DeskAccount : SoftAccount, i) << finished(uid, DeskAccount, i)
                   << finished(uid, SoftAccount, i);
        }
        events = ringing.size() + ending.size();
        ringingReads = reads(ringing);
        endingReads = reads(ending);
        client.reset(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("bench"),
                                QStringLiteral("1.0"), QStringLiteral("bench-1"), dir.path()));
        return client->init();
    }

    ~Storm()
    {
        if (client && client->isRunning())
            client->shutdown();
    }
};

/// What one storm measured.
struct StormResult
{
    qint64 elapsedNs = 0;
    /// CPU time of the library's thread: steadier than the wall clock on a
    /// busy machine.
    qint64 threadCpuNs = 0;
    int peakLegs = 0;
    int legsAfter = -1;
    size_t heapHeldByLegs = 0;
    long rssGrowthKb = 0;
};

StormResult runStorm(Storm& storm)
{
    TelvixPrivate* const d = TelvixPrivate::get(storm.client.get());
    StormResult result;
    // On the library's thread, where the socket's reads would arrive.
    QMetaObject::invokeMethod(
        storm.client.get(),
        [&] {
            ConsoleSilencer quiet;
            const long rssBefore = maxRssKb();
            const size_t heapBefore = heapInUse();
            const qint64 cpuBefore = threadCpuNs();
            QElapsedTimer timer;
            timer.start();
            for (const QString& chunk : qAsConst(storm.ringingReads))
                d->parser->addData(chunk);
            result.peakLegs = d->calls.totalLegCount();
            const size_t heapPeak = heapInUse();
            for (const QString& chunk : qAsConst(storm.endingReads))
                d->parser->addData(chunk);
            result.elapsedNs = timer.nsecsElapsed();
            result.threadCpuNs = threadCpuNs() - cpuBefore;
            result.legsAfter = d->calls.totalLegCount();
            result.heapHeldByLegs = heapPeak > heapBefore ? heapPeak - heapBefore : 0;
            result.rssGrowthKb = maxRssKb() - rssBefore;
            if (d->logger)
                d->logger->flush();
        },
        Qt::BlockingQueuedConnection);
    return result;
}

Storm* g_storm = nullptr;
StormResult g_worst;
double g_eventsPerSecond = 0;
double g_eventsPerCpuSecond = 0;

void callStorm(benchmark::State& state)
{
    qint64 nanos = 0;
    qint64 cpuNanos = 0;
    qint64 events = 0;
    for (auto _ : state) {
        const StormResult result = runStorm(*g_storm);
        if (result.peakLegs != 2 * Calls || result.legsAfter != 0) {
            state.SkipWithError("the call table is not what the storm should leave");
            return;
        }
        state.SetIterationTime(double(result.elapsedNs) / 1e9);
        nanos += result.elapsedNs;
        cpuNanos += result.threadCpuNs;
        events += g_storm->events;
        g_worst.heapHeldByLegs = qMax(g_worst.heapHeldByLegs, result.heapHeldByLegs);
        g_worst.rssGrowthKb = qMax(g_worst.rssGrowthKb, result.rssGrowthKb);
        g_worst.peakLegs = result.peakLegs;
        g_worst.legsAfter = result.legsAfter;
    }
    state.counters["events/s"] = benchmark::Counter(double(events), benchmark::Counter::kIsRate);
    state.counters["peak_legs"] = g_worst.peakLegs;
    state.counters["heap_MiB"] = double(g_worst.heapHeldByLegs) / (1024.0 * 1024.0);
    g_eventsPerSecond = nanos ? double(events) * 1e9 / double(nanos) : 0;
    g_eventsPerCpuSecond = cpuNanos ? double(events) * 1e9 / double(cpuNanos) : 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(silence);
    benchmark::Initialize(&argc, argv);

    Storm storm;
    if (!storm.start()) {
        std::fprintf(stderr, "cannot start the client\n");
        return 1;
    }
    g_storm = &storm;
    benchmark::RegisterBenchmark("calls/storm_of_10000_on_two_accounts", callStorm)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond)
        ->Iterations(3);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    std::printf("\nSummary (%d calls, each ringing on two accounts, answered on one, finished on both)\n",
                Calls);
    std::printf("  events through the dispatcher:      %10.0f /s  (%d events per storm)\n", g_eventsPerSecond,
                storm.events);
    std::printf("  per CPU second of the library:      %10.0f /s\n", g_eventsPerCpuSecond);
    std::printf("  live legs at the peak:              %10d\n", g_worst.peakLegs);
    std::printf("  heap held at the peak:              %10.2f MiB = %.0f bytes per leg\n",
                double(g_worst.heapHeldByLegs) / (1024.0 * 1024.0),
                double(g_worst.heapHeldByLegs) / qMax(1, g_worst.peakLegs));
    std::printf("  peak RSS growth (getrusage):        %10ld KiB\n", g_worst.rssGrowthKb);
    std::printf("  legs left after the storm:          %10d\n", g_worst.legsAfter);
    return g_worst.legsAfter == 0 ? 0 : 1;
}
