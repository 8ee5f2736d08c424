// File transfer between two chat clients of this process, through the private
// prosody of the tests, over in-band bytestreams: from sendFile() to the
// receiver's sigFTComplete, the file written to disk and renamed.
//
//  - throughput of a 1 MB and a 20 MB file;
//  - peak memory of the process (VmHWM, reset before each size): the sender
//    holds the whole file once, the receiver writes block by block, so it
//    should grow by about one file;
//  - the 20 MB time against the 1 MB time: at most 25 times.
//
//   ./bench/bench_chattransfer

#include "prosodyserver.h"
#include "xmppengine.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QTemporaryDir>
#include <QThread>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>

namespace {

void silence(QtMsgType, const QMessageLogContext&, const QString&) { }

bool spinUntil(const std::function<bool()>& done, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        if (deadline.hasExpired())
            return false;
    }
    return true;
}

// A value of /proc/self/status in kB.
long statusKb(const char* key)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(key) + ":";
    while (std::getline(status, line)) {
        if (line.compare(0, prefix.size(), prefix) == 0)
            return std::stol(line.substr(prefix.size()));
    }
    return -1;
}

// Lets VmHWM start again from the current resident size.
void resetPeakMemory()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

struct Client
{
    XmppClient* client = nullptr;
    bool online = false;
    QStringList offers;
    QStringList completed;
    QStringList errors;
};

struct Setup
{
    ProsodyServer server;
    QTemporaryDir dir;
    Client sender;
    Client receiver;
};

Setup* g_setup = nullptr;
std::map<int, double> g_seconds;
std::map<int, double> g_peakMB;
std::map<int, double> g_baseMB;

bool connectClient(Client& c, const QString& user, const QString& peer)
{
    c.client = XmppClient::getNewInstance(g_setup->dir.path());
    QObject::connect(c.client, &XmppClient::sigContactPresenceChanged, qApp,
                     [&c, peer](const QString& jid, TELVIX::ChatPresence p, const QString&) {
                         if (jid == peer)
                             c.online = p != TELVIX::ChatPresenceOffline;
                     });
    QObject::connect(c.client, &XmppClient::sigFTRequest, qApp,
                     [&c](const QString& sid, const QString&, const QString&, const QString&) {
                         c.offers.append(sid);
                         c.client->acceptFT(sid, g_setup->dir.path());
                     });
    QObject::connect(c.client, &XmppClient::sigFTComplete, qApp, [&c](const QString&, const QString& path) {
        c.completed.append(path);
        QFile::remove(path);
    });
    QObject::connect(c.client, &XmppClient::sigFTError, qApp,
                     [&c](const QString& sid) { c.errors.append(sid); });
    c.client->connectToServer(g_setup->server.jid(user), QStringLiteral("secret"),
                              QStringLiteral("127.0.0.1"), g_setup->server.port(), QStringLiteral("bench"));
    return true;
}

void transfer(benchmark::State& state)
{
    const int megabytes = int(state.range(0));
    const QString path = g_setup->dir.filePath(QStringLiteral("payload_%1MB.bin").arg(megabytes));
    {
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        QByteArray block(1024 * 1024, Qt::Uninitialized);
        for (int i = 0; i < block.size(); ++i)
            block[i] = char((i * 7919) >> 3);
        for (int i = 0; i < megabytes; ++i)
            file.write(block);
    }
    const QString to = g_setup->server.jid(QStringLiteral("receiver"));
    double seconds = 0;
    long peakKb = 0;
    long baseKb = 0;
    for (auto _ : state) {
        const int done = g_setup->receiver.completed.size();
        resetPeakMemory();
        baseKb = statusKb("VmRSS");
        QElapsedTimer timer;
        timer.start();
        const QString sid
            = g_setup->sender.client->sendFile(to, path, QStringLiteral("application/octet-stream"));
        if (sid.isEmpty()
            || !spinUntil([&]() { return g_setup->receiver.completed.size() > done; }, 600000)) {
            state.SkipWithError("transfer did not complete");
            break;
        }
        const double elapsed = double(timer.nsecsElapsed()) / 1e9;
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        peakKb = std::max(peakKb, statusKb("VmHWM"));
    }
    QFile::remove(path);
    const double bytes = double(megabytes) * 1024 * 1024;
    state.SetBytesProcessed(int64_t(bytes * double(state.iterations())));
    state.counters["peak_MB"] = double(peakKb) / 1024;
    state.counters["growth_MB"] = double(peakKb - baseKb) / 1024;
    g_seconds[megabytes] = seconds / double(std::max<int64_t>(1, state.iterations()));
    g_peakMB[megabytes] = double(peakKb) / 1024;
    g_baseMB[megabytes] = double(baseKb) / 1024;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(silence);
    benchmark::Initialize(&argc, argv);
    if (!ProsodyServer::isInstalled()) {
        std::fprintf(stderr, "prosody is not installed\n");
        return 1;
    }
    auto setup = std::make_unique<Setup>();
    g_setup = setup.get();
    setup->server.addUser(QStringLiteral("sender"), QStringLiteral("secret"));
    setup->server.addUser(QStringLiteral("receiver"), QStringLiteral("secret"));
    setup->server.setSharedRoster(true);
    if (!setup->server.start()) {
        std::fprintf(stderr, "prosody: %s\n", qPrintable(setup->server.errorString()));
        return 1;
    }
    connectClient(setup->sender, QStringLiteral("sender"), setup->server.jid(QStringLiteral("receiver")));
    connectClient(setup->receiver, QStringLiteral("receiver"), setup->server.jid(QStringLiteral("sender")));
    if (!spinUntil([&]() { return setup->sender.online && setup->receiver.online; }, 20000)) {
        std::fprintf(stderr, "the two clients do not see each other\n");
        return 1;
    }

    benchmark::RegisterBenchmark("ibb_transfer", transfer)
        ->Arg(1)
        ->Iterations(3)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("ibb_transfer", transfer)
        ->Arg(20)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    for (Client* c : {&setup->sender, &setup->receiver}) {
        QPointer<QThread> thread = c->client->thread();
        c->client->deleteLater();
        spinUntil([&]() { return thread.isNull(); }, 10000);
    }

    std::printf("\nSummary (in-band bytestreams through prosody, 4 KB blocks)\n");
    for (const auto& entry : g_seconds) {
        std::printf("  %2d MB: %8.2f s  %6.2f MB/s  peak memory %6.1f MB (%+.1f MB over %.1f MB before)\n",
                    entry.first, entry.second, entry.second > 0 ? entry.first / entry.second : 0.0,
                    g_peakMB[entry.first], g_peakMB[entry.first] - g_baseMB[entry.first],
                    g_baseMB[entry.first]);
    }
    if (g_seconds.count(1) && g_seconds.count(20) && g_seconds[1] > 0)
        std::printf("  20 MB / 1 MB time: %.1f (limit 25)\n", g_seconds[20] / g_seconds[1]);
    return 0;
}
