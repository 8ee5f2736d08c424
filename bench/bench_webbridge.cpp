// The web bridge beside the local server, in one run: a client logged in to
// the fake CTI server (mobile mode: one call event per call, the form both
// feeds publish), its local server read by an XML client, and the bridge on
// a thread of its own read by web pages on another.
//
//  - latency: one call event at a time, from the server's write to the
//    page's receipt of its JSON message and to the XML client's receipt of
//    its frame; median and 99th percentile over 10,000 events.
//  - throughput: 10,000 call events written at once, until each of 1 and
//    then 16 connected pages has all of them.
//
// Qt debug output and the library's console log are silenced, as in a
// release application.
//   ./bench/bench_webbridge

#include "benchloop.h"
#include "callevents.h"
#include "fakectiserver.h"
#include "telvix.h"
#include "telvixwebbridge.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QWebSocket>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

namespace {

constexpr int Events = 10000;
const QString Origin = QStringLiteral("http://bench.test");

using BenchLoop::spinUntil;
using BenchLoop::wakeMainThread;

qint64 nowNanos()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// What one feed's reader saw: the receipt time of each event, by index. Its
/// socket lives on the readers' thread; the main thread waits on `count`.
struct Receiver
{
    std::vector<qint64> receivedAt = std::vector<qint64>(Events);
    std::atomic<int> count {0};
    std::atomic<int> wakeAt {1};

    void received()
    {
        const int n = count.load(std::memory_order_relaxed);
        if (n < Events)
            receivedAt[size_t(n)] = nowNanos();
        count.store(n + 1, std::memory_order_release);
        if (n + 1 >= wakeAt.load(std::memory_order_acquire))
            wakeMainThread();
    }
    void expect(int total) { wakeAt.store(total, std::memory_order_release); }
};

struct Bench
{
    QThread bridgeThread;
    QThread readerThread;
    FakeCtiServer server;
    std::unique_ptr<Telvix> client;
    TelvixWebBridge* bridge = nullptr;
    int conn = -1;
    quint16 bridgePort = 0;
    QString token;
    Receiver xml;
    std::vector<std::unique_ptr<Receiver>> pages;
    std::vector<QObject*> sockets;
    QTemporaryDir dir;

    bool start()
    {
        server.setAutoLogin(true);
        server.setAutoKeepAliveAck(true);
        if (!server.listen())
            return false;
        client = std::make_unique<Telvix>(QStringLiteral("Linux"), QStringLiteral("6.1"),
                                          QStringLiteral("bench"), QStringLiteral("1.0"),
                                          QStringLiteral("bench-1"), dir.path());
        client->init();
        bool logged = false;
        QObject::connect(client.get(), &Telvix::loggedToServer, &server, [&logged] { logged = true; });
        client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), QStringLiteral("default"),
                                TELVIX::AppModeSrntMobile, FakeCtiServer::host(), server.port());
        if (!spinUntil([&logged] { return logged; }, 10000))
            return false;
        conn = server.lastConnection();

        bridgeThread.start();
        readerThread.start();
        bridge = new TelvixWebBridge(client.get());
        bridge->setAllowedOrigins({Origin});
        bridge->setMaxConnections(32);
        bridge->moveToThread(&bridgeThread);
        QMetaObject::invokeMethod(
            bridge, [this] { bridge->listen(); }, Qt::BlockingQueuedConnection);
        bridgePort = bridge->serverPort();
        token = bridge->pairingToken();

        // The local server's application: frames end with the closing root tag.
        const int xmlPort = client->initTcpServer();
        auto* socket = new QTcpSocket;
        socket->moveToThread(&readerThread);
        sockets.push_back(socket);
        bool connected = false;
        QMetaObject::invokeMethod(
            socket,
            [this, socket, xmlPort, &connected] {
                auto buffer = std::make_shared<QByteArray>();
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer] {
                    *buffer += socket->readAll();
                    for (int at = buffer->indexOf("</SRNT>"); at >= 0; at = buffer->indexOf("</SRNT>")) {
                        if (buffer->left(at).contains("Call>"))
                            xml.received();
                        buffer->remove(0, at + 7);
                    }
                });
                socket->connectToHost(QHostAddress::LocalHost, quint16(xmlPort));
                connected = socket->waitForConnected(5000);
            },
            Qt::BlockingQueuedConnection);
        return connected && bridgePort != 0 && addPage();
    }

    /// Connects and pairs one more page on the readers' thread.
    bool addPage()
    {
        pages.push_back(std::make_unique<Receiver>());
        Receiver* receiver = pages.back().get();
        auto* socket = new QWebSocket(Origin);
        socket->moveToThread(&readerThread);
        sockets.push_back(socket);
        std::atomic<bool> paired {false};
        QMetaObject::invokeMethod(
            socket,
            [this, socket, receiver, &paired] {
                QObject::connect(socket, &QWebSocket::textMessageReceived, socket,
                                 [receiver, &paired](const QString& text) {
                                     if (text.startsWith(QLatin1String("{\"event\":\"sigIncomingCall\""))
                                         || text.startsWith(QLatin1String("{\"event\":\"sigFinishedCall\"")))
                                         receiver->received();
                                     else if (text.contains(QLatin1String("\"result\":true"))) {
                                         paired = true;
                                         wakeMainThread();
                                     }
                                 });
                QObject::connect(socket, &QWebSocket::connected, socket, [this, socket] {
                    socket->sendTextMessage(
                        QStringLiteral("{\"id\":0,\"command\":\"pair\",\"token\":\"%1\"}").arg(token));
                });
                socket->open(QUrl(QStringLiteral("ws://127.0.0.1:%1/").arg(bridgePort)));
            },
            Qt::BlockingQueuedConnection);
        return spinUntil([&paired] { return paired.load(); }, 10000);
    }

    static QString callEvent(int i)
    {
        // Event 2k rings call k, event 2k + 1 ends it.
        const QString uid = QStringLiteral("b-%1").arg(i / 2);
        const QString remote = QStringLiteral("05%1").arg(1000000 + i / 2);
        const QString body = i % 2
            ? CallEvents::finished(uid, QStringLiteral("200-soft"), QStringLiteral("SIP/a"), remote)
            : CallEvents::incoming(uid, QStringLiteral("200-soft"), remote, QStringLiteral("SIP/a"),
                                   QStringLiteral("SIP/b"));
        return FakeCtiServer::document(body);
    }

    void resetCounts()
    {
        xml.count = 0;
        for (auto& page : pages)
            page->count = 0;
    }

    ~Bench()
    {
        for (QObject* socket : sockets)
            QMetaObject::invokeMethod(
                socket, [socket] { delete socket; }, Qt::BlockingQueuedConnection);
        if (bridge)
            QMetaObject::invokeMethod(
                bridge, [this] { delete bridge; }, Qt::BlockingQueuedConnection);
        bridgeThread.quit();
        readerThread.quit();
        bridgeThread.wait();
        readerThread.wait();
        if (client && client->isRunning())
            client->shutdown();
    }
};

Bench* g_bench = nullptr;

struct Percentiles
{
    double medianUs = 0;
    double p99Us = 0;
};

Percentiles percentiles(const std::vector<qint64>& writes, const std::vector<qint64>& receipts)
{
    std::vector<qint64> latencies(writes.size());
    for (size_t i = 0; i < writes.size(); ++i)
        latencies[i] = receipts[i] - writes[i];
    std::sort(latencies.begin(), latencies.end());
    return {double(latencies[latencies.size() / 2]) / 1e3,
            double(latencies[std::min(latencies.size() - 1, latencies.size() * 99 / 100)]) / 1e3};
}

Percentiles g_json, g_xml;
double g_rate[2] = {0, 0};

void latency(benchmark::State& state)
{
    Bench& b = *g_bench;
    std::vector<qint64> writes(Events);
    Receiver& page = *b.pages.front();
    for (auto _ : state) {
        b.resetCounts();
        const qint64 start = nowNanos();
        for (int i = 0; i < Events; ++i) {
            page.expect(i + 1);
            b.xml.expect(i + 1);
            const QString text = Bench::callEvent(i);
            writes[size_t(i)] = nowNanos();
            b.server.send(b.conn, text);
            if (!spinUntil([&] { return page.count.load() > i && b.xml.count.load() > i; }, 5000)) {
                state.SkipWithError("an event did not arrive");
                return;
            }
        }
        state.SetIterationTime(double(nowNanos() - start) / 1e9);
    }
    g_json = percentiles(writes, page.receivedAt);
    g_xml = percentiles(writes, b.xml.receivedAt);
    state.counters["json_median_us"] = g_json.medianUs;
    state.counters["json_p99_us"] = g_json.p99Us;
    state.counters["xml_median_us"] = g_xml.medianUs;
    state.counters["xml_p99_us"] = g_xml.p99Us;
}

void throughput(benchmark::State& state)
{
    Bench& b = *g_bench;
    const int wanted = int(state.range(0));
    while (int(b.pages.size()) < wanted) {
        if (!b.addPage()) {
            state.SkipWithError("a page did not pair");
            return;
        }
    }
    QString all;
    for (int i = 0; i < Events; ++i)
        all += Bench::callEvent(i);
    double seconds = 0;
    for (auto _ : state) {
        b.resetCounts();
        for (auto& page : b.pages)
            page->expect(Events);
        const qint64 start = nowNanos();
        b.server.send(b.conn, all);
        const bool done = spinUntil([&] {
            return std::all_of(b.pages.begin(), b.pages.end(),
                               [](const std::unique_ptr<Receiver>& p) { return p->count.load() >= Events; });
        });
        if (!done) {
            state.SkipWithError("events missing");
            return;
        }
        seconds = double(nowNanos() - start) / 1e9;
        state.SetIterationTime(seconds);
    }
    state.counters["events/s/page"]
        = benchmark::Counter(double(Events) * double(state.iterations()), benchmark::Counter::kIsRate);
    g_rate[wanted == 1 ? 0 : 1] = double(Events) / seconds;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(BenchLoop::silence);
    benchmark::Initialize(&argc, argv);
    BenchLoop::QuietStderr quiet;

    auto bench = std::make_unique<Bench>();
    const bool started = bench->start();
    g_bench = bench.get();
    if (started) {
        benchmark::RegisterBenchmark("latency/10000_call_events", latency)
            ->UseManualTime()
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("throughput/10000_call_events", throughput)
            ->Arg(1)
            ->Arg(16)
            ->UseManualTime()
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
        benchmark::RunSpecifiedBenchmarks();
    }
    g_bench = nullptr;
    bench.reset();
    quiet.restore();
    benchmark::Shutdown();
    if (!started) {
        std::fprintf(stderr, "cannot set up the client, the bridge or the readers\n");
        return 1;
    }

    std::printf("\nSummary (%d call events, server write to reader receipt)\n", Events);
    std::printf("  web bridge JSON:    median %8.1f us   p99 %8.1f us\n", g_json.medianUs, g_json.p99Us);
    std::printf("  local server XML:   median %8.1f us   p99 %8.1f us\n", g_xml.medianUs, g_xml.p99Us);
    std::printf("  throughput, 1 page:   %10.0f events/s\n", g_rate[0]);
    std::printf("  throughput, 16 pages: %10.0f events/s to each page\n", g_rate[1]);
    return 0;
}
