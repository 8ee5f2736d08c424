// The dispatcher under load, end to end: a logged-in client on its own thread,
// the fake CTI server writing over loopback TLS, and every message
// acknowledged back to the server.
//
//  - events: messages of the size of a call event, per second, from the
//    server's write to the client's signal and the server's receipt of the
//    acknowledgement. Call-event rows are plugged by another family, so the
//    message is a "MailboxStatus" padded with call-event fields: row 39 of 52,
//    so recognition passes almost the whole table, like a call event would.
//  - phone book: one 5 MB "PhoneBookList" (row 8: it passes rows 1 to 7,
//    whose names it does not hold), from the server's write to the client's
//    signal and the acknowledgement; and its recognition alone, beside the
//    row-by-row substring search the recogniser replaces.
//  - raw TLS: the same 5 MB over a bare TLS socket of the same process, read
//    on another thread: the ceiling of the transport.
//
// Targets: 50,000 call events per second; recognition of 5 MB in under 10 ms.
// Qt debug output (each parser logs a line) is silenced, as in a release
// application; the library's own log file is written as usual.

#include "benchloop.h"
#include "fakectiserver.h"
#include "telvix.h"
#include "telvixdispatch_p.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>

namespace {

constexpr int EventsPerBatch = 2000;
constexpr int PhoneBookBytes = 5 * 1024 * 1024;

using BenchLoop::silence;
using BenchLoop::spinUntil;
using BenchLoop::wakeMainThread;

QString text(const char* name, const QString& value)
{
    return FakeCtiServer::textElement(QLatin1String(name), value);
}

/// A "MailboxStatus" with the fields of an incoming call beside its own.
QString eventBody(int i)
{
    const QString n = QString::number(i);
    return QLatin1String("<MailboxStatus>") + text("Uid", "1700000000." + n) + text("SipAccount", "200-desk")
        + text("LocalChannel", "SIP/200-desk-0000" + n) + text("RemoteChannel", "SIP/trunk-0000" + n)
        + text("CallerNum", "0512345678") + text("CallerName", "Bob Caller") + text("CalledNum", "200")
        + text("CalledName", "Alice Tester") + text("CallAttributes", "FROM_IBL,TO_LOCAL_EXTEN")
        + text("IsC2c", "0") + text("Mailbox", "200@default") + text("Waiting", "1") + text("NewMsgCount", n)
        + text("OldMsgCount", "4") + text("UrgentMsgCount", "0") + QLatin1String("</MailboxStatus>");
}

QString phoneBookDocument()
{
    QString body = QStringLiteral("<PhoneBookList><PhoneBook><PhoneBookFolder>Public</PhoneBookFolder>");
    for (int i = 0; body.size() < PhoneBookBytes; ++i) {
        const QString n = QStringLiteral("%1").arg(i, 8, 10, QLatin1Char('0'));
        body += QStringLiteral("<User><ContactUuid>{0f6e2c1a-aaaa-bbbb-cccc-%1}</ContactUuid>"
                               "<First>First%1</First><Last>Last name %1</Last><Company>Company %1</Company>"
                               "<Unit>Unit %1</Unit><Owner>-1</Owner><Contacts>"
                               "<Contact><Type>MOBILE</Type><Value>+39 333 %1</Value></Contact>"
                               "<Contact><Type>WORK</Type><Value>+39 051 %1</Value></Contact>"
                               "<Contact><Type>EMAIL</Type><Value>user%1@example.com</Value></Contact>"
                               "</Contacts></User>")
                    .arg(n);
    }
    body += QStringLiteral("</PhoneBook></PhoneBookList>");
    return FakeCtiServer::document(body);
}

/// A logged-in client, its server, and counters of what came through.
struct Session
{
    QTemporaryDir dir;
    FakeCtiServer server;
    std::unique_ptr<Telvix> client;
    int conn = -1;
    /// CPU clock of the library's thread.
    clockid_t clientClock = CLOCK_THREAD_CPUTIME_ID;
    std::atomic<int> mailboxSignals {0};
    std::atomic<int> phoneBookSignals {0};
    int acks = 0;

    bool start()
    {
        server.setAutoLogin(true);
        server.setAutoKeepAliveAck(true);
        if (!server.listen())
            return false;
        client.reset(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("bench"),
                                QStringLiteral("1.0"), QStringLiteral("bench-1"), dir.path()));
        client->init();
        QMetaObject::invokeMethod(
            client.get(), [this] { pthread_getcpuclockid(pthread_self(), &clientClock); },
            Qt::BlockingQueuedConnection);
        // Counted on the library's thread, right as the signal is raised.
        QObject::connect(client.get(), &Telvix::sigMailboxStatusChanged, [this](const MailboxStatus&) {
            mailboxSignals.fetch_add(1, std::memory_order_relaxed);
        });
        QObject::connect(client.get(), &Telvix::sigPhonebookChanged,
                         [this](const QList<PhoneBook>&, TELVIX::PhonebookTypeFlags flags) {
                             if (flags & TELVIX::PhonebookTypePhonebooks)
                                 phoneBookSignals.fetch_add(1, std::memory_order_relaxed);
                         });
        QObject::connect(&server, &FakeCtiServer::frameReceived, [this](int, const QString& frame) {
            if (frame.contains(QLatin1String("<MsgAck>")))
                ++acks;
        });
        bool logged = false;
        QObject::connect(client.get(), &Telvix::loggedToServer, &server, [&logged] { logged = true; });
        client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), QStringLiteral("default"),
                                TELVIX::AppModeSrntPro, FakeCtiServer::host(), server.port());
        if (!spinUntil([&logged] { return logged; }, 10000))
            return false;
        conn = server.lastConnection();
        // The login's own acknowledgement must be in before counting.
        return spinUntil([this] { return acks >= 1; }, 10000);
    }

    /// CPU time the library's thread has used so far, in nanoseconds.
    qint64 clientCpuNanos() const
    {
        timespec now {};
        clock_gettime(clientClock, &now);
        return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
    }

    /// Sends `text` (holding `messages` documents) and waits for their acks.
    bool deliver(const QString& text, int messages)
    {
        const int target = acks + messages;
        server.send(conn, text);
        const bool done = spinUntil([this, target] { return acks >= target; });
        server.clearFrames();
        return done;
    }

    ~Session()
    {
        if (client && client->isRunning())
            client->shutdown();
    }
};

/// A bare TLS reader on its own thread.
struct RawReader
{
    QThread thread;
    QSslSocket* socket = nullptr;
    std::atomic<qint64> bytes {0};
    /// Once this many bytes are in, the main thread is woken.
    std::atomic<qint64> target {0};

    void start(quint16 port)
    {
        thread.start();
        socket = new QSslSocket;
        socket->moveToThread(&thread);
        QObject::connect(socket, &QSslSocket::readyRead, socket, [this] {
            const qint64 read = socket->readAll().size();
            const qint64 before = bytes.fetch_add(read);
            if (before < target.load() && before + read >= target.load())
                wakeMainThread();
        });
        QObject::connect(socket, QOverload<const QList<QSslError>&>::of(&QSslSocket::sslErrors), socket,
                         [this](const QList<QSslError>&) { socket->ignoreSslErrors(); });
        QMetaObject::invokeMethod(
            socket, [this, port] { socket->connectToHostEncrypted(FakeCtiServer::host(), port); });
    }
    ~RawReader()
    {
        if (socket)
            QMetaObject::invokeMethod(
                socket, [this] { delete socket; }, Qt::BlockingQueuedConnection);
        thread.quit();
        thread.wait();
    }
};

// Results of the last run of each measurement, for the summary.
double g_eventsPerSecond = 0;
double g_clientCpuUsPerEvent = 0;
double g_eventLatencyUs = 0;
double g_phoneBookMs = 0;
double g_recognitionMs = 0;
double g_recognitionCpuMs = 0;
double g_searchMs = 0;
double g_searchCpuMs = 0;
double g_rawMBps = 0;
Session* g_session = nullptr;
QString g_phoneBook;
QString g_eventBatch;

/// Times the deliveries of `text` (holding `messages` documents), one per
/// iteration; after each, `handled` must hold. The total in nanoseconds, or
/// -1 when a delivery failed.
qint64 timeDeliveries(benchmark::State& state, const QString& text, int messages,
                      const std::function<bool()>& handled)
{
    qint64 nanos = 0;
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        if (!g_session->deliver(text, messages) || !handled()) {
            state.SkipWithError("messages not handled");
            return -1;
        }
        const qint64 elapsed = timer.nsecsElapsed();
        state.SetIterationTime(double(elapsed) / 1e9);
        nanos += elapsed;
    }
    return nanos;
}

void eventThroughput(benchmark::State& state)
{
    const int before = g_session->mailboxSignals.load();
    const qint64 cpuBefore = g_session->clientCpuNanos();
    int expected = before;
    const qint64 nanos = timeDeliveries(state, g_eventBatch, EventsPerBatch, [&expected] {
        expected += EventsPerBatch;
        return g_session->mailboxSignals.load() == expected;
    });
    if (nanos <= 0)
        return;
    const double events = g_session->mailboxSignals.load() - before;
    const double cpuMicros = double(g_session->clientCpuNanos() - cpuBefore) / 1e3;
    state.counters["events/s"] = benchmark::Counter(events, benchmark::Counter::kIsRate);
    state.counters["client_cpu_us/event"] = cpuMicros / events;
    g_eventsPerSecond = events * 1e9 / double(nanos);
    g_clientCpuUsPerEvent = cpuMicros / events;
}

void eventLatency(benchmark::State& state)
{
    const QString one = FakeCtiServer::document(eventBody(1));
    const qint64 nanos = timeDeliveries(state, one, 1, [] { return true; });
    if (nanos > 0)
        g_eventLatencyUs = double(nanos) / 1e3 / double(state.iterations());
}

void phoneBookDispatch(benchmark::State& state)
{
    int expected = g_session->phoneBookSignals.load();
    const qint64 nanos = timeDeliveries(
        state, g_phoneBook, 1, [&expected] { return g_session->phoneBookSignals.load() == ++expected; });
    if (nanos > 0)
        g_phoneBookMs = double(nanos) / 1e6 / double(state.iterations());
}

qint64 threadCpuNanos()
{
    timespec now {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

template <int (MessageRecognizer::*Recognise)(const QString&) const>
void phoneBookRecognition(benchmark::State& state, double* resultMs, double* resultCpuMs)
{
    const MessageRecognizer& recognizer = dispatchRecognizer();
    qint64 nanos = 0;
    const qint64 cpuBefore = threadCpuNanos();
    int row = -1;
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        row = (recognizer.*Recognise)(g_phoneBook);
        benchmark::DoNotOptimize(row);
        nanos += timer.nsecsElapsed();
    }
    if (row != 7)
        state.SkipWithError("not recognised as row 8");
    const double rounds = double(state.iterations());
    *resultMs = double(nanos) / 1e6 / rounds;
    *resultCpuMs = double(threadCpuNanos() - cpuBefore) / 1e6 / rounds;
}

void rawTlsTransfer(benchmark::State& state)
{
    FakeCtiServer& server = g_session->server;
    RawReader reader;
    const int before = server.connectionCount();
    reader.start(server.port());
    if (!spinUntil([&] { return server.encryptedConnectionCount() > before; }, 10000)) {
        state.SkipWithError("raw TLS connection failed");
        return;
    }
    const int conn = server.lastConnection();
    const QByteArray blob = g_phoneBook.toUtf8();
    qint64 nanos = 0;
    qint64 total = 0;
    for (auto _ : state) {
        const qint64 target = reader.bytes.load() + blob.size();
        reader.target = target;
        QElapsedTimer timer;
        timer.start();
        server.sendRaw(conn, blob);
        if (!spinUntil([&] { return reader.bytes.load() >= target; })) {
            state.SkipWithError("transfer incomplete");
            return;
        }
        const qint64 elapsed = timer.nsecsElapsed();
        state.SetIterationTime(double(elapsed) / 1e9);
        nanos += elapsed;
        total += blob.size();
    }
    state.SetBytesProcessed(total);
    g_rawMBps = nanos ? double(total) / 1e6 / (double(nanos) / 1e9) : 0;
    server.abortClient(conn);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(silence);
    benchmark::Initialize(&argc, argv);

    // The library's console log (stderr) prints every message, 5 MB phone
    // books included, and would measure the terminal: it goes to /dev/null
    // while the client lives. The log file is written as usual.
    BenchLoop::QuietStderr quiet;

    auto session = std::make_unique<Session>();
    if (!session->start()) {
        quiet.restore();
        std::fprintf(stderr, "cannot log in to the fake CTI server\n");
        return 1;
    }
    g_session = session.get();
    g_phoneBook = phoneBookDocument();
    for (int i = 0; i < EventsPerBatch; ++i)
        g_eventBatch += FakeCtiServer::document(eventBody(i));

    benchmark::RegisterBenchmark("events/batch_of_2000", eventThroughput)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("events/one_round_trip", eventLatency)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("phonebook_5MB/recognise",
                                 phoneBookRecognition<&MessageRecognizer::recognize>, &g_recognitionMs,
                                 &g_recognitionCpuMs)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("phonebook_5MB/search_row_by_row",
                                 phoneBookRecognition<&MessageRecognizer::recognizeBySearch>, &g_searchMs,
                                 &g_searchCpuMs)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("phonebook_5MB/dispatch_over_tls", phoneBookDispatch)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("raw_tls/5MB", rawTlsTransfer)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);

    benchmark::RunSpecifiedBenchmarks();
    g_session = nullptr;
    session.reset();
    quiet.restore();
    benchmark::Shutdown();

    const double eventBytes = double(FakeCtiServer::document(eventBody(1000)).toUtf8().size());
    std::printf("\nSummary (message of %.0f bytes, phone book of %.1f MB)\n", eventBytes,
                double(g_phoneBook.toUtf8().size()) / 1e6);
    std::printf("  call-event-sized messages, write to signal + ack: %10.0f /s  (target >= 50000)\n",
                g_eventsPerSecond);
    std::printf("  library thread's CPU per message:                 %10.1f us  = %.0f /s on one free core\n",
                g_clientCpuUsPerEvent, g_clientCpuUsPerEvent > 0 ? 1e6 / g_clientCpuUsPerEvent : 0.0);
    std::printf("  one message round trip:                           %10.1f us\n", g_eventLatencyUs);
    std::printf("  5 MB phone book, recognition alone:               %10.2f ms  (CPU %.2f ms; target < 10)\n",
                g_recognitionMs, g_recognitionCpuMs);
    std::printf("  5 MB phone book, row-by-row substring search:     %10.2f ms  (CPU %.2f ms)\n", g_searchMs,
                g_searchCpuMs);
    std::printf("  5 MB phone book, write to signal + ack over TLS:  %10.1f ms\n", g_phoneBookMs);
    std::printf("  raw TLS loopback (ceiling):                       %10.1f MB/s = %.0f messages/s\n",
                g_rawMBps, eventBytes > 0 ? g_rawMBps * 1e6 / eventBytes : 0.0);
    return 0;
}
