// Many sessions in one process: connect, login, a call, logout, again and
// again against the PBX simulator over real TLS. Whatever a session leaves
// behind (a socket, a thread, memory) shows as growth across the cycles.
//
// TELVIX_SOAK_CYCLES sets the number of cycles (default 2000).
#include "reconnectfixture.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>

#include <cstdio>

#if defined(__SANITIZE_ADDRESS__)
#define TELVIX_SOAK_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TELVIX_SOAK_ASAN 1
#endif
#endif

namespace {

struct Usage
{
    int fds = 0, threads = 0;
    qint64 rssKiB = 0;
};

Usage usage()
{
    Usage u;
    const auto entries = [](const char* dir) {
        return QDir(dir).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System).size();
    };
    u.fds = entries("/proc/self/fd");
    u.threads = entries("/proc/self/task");
    QFile status(QStringLiteral("/proc/self/status"));
    for (const QByteArray& line :
         status.open(QIODevice::ReadOnly) ? status.readAll().split('\n') : QList<QByteArray>()) {
        if (line.startsWith("VmRSS:"))
            u.rssKiB = line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return u;
}

// Straight to stderr: the test log is buffered, and a run that dies should
// still show how far it got.
void report(int cycle, const Usage& u)
{
    std::fprintf(stderr, "soak cycle %5d: fds %d, threads %d, VmRSS %lld KiB\n", cycle, u.fds, u.threads,
                 u.rssKiB);
    std::fflush(stderr);
}

const auto answered = QOverload<AnsweredCallEvent>::of(&Telvix::sigAnsweredCall);
const auto finished = QOverload<FinishedCallEvent>::of(&Telvix::sigFinishedCall);

// A session may hold a few descriptors and threads for a moment after its
// logout (a socket being closed, a worker ending); more than that is a leak.
constexpr int FdSlack = 4;
constexpr int ThreadSlack = 2;
// The first cycles fill caches that stay (TLS context, SQLite page cache,
// heap arenas); from the first report on, resident memory may grow by this
// much at most.
constexpr qint64 RssSlackKiB = 8 * 1024;
constexpr int ReportEvery = 200;

} // namespace

class tst_Soak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sessionsLeaveNothingBehind();
};

void tst_Soak::sessionsLeaveNothingBehind()
{
    const int cycles = qEnvironmentVariableIsSet("TELVIX_SOAK_CYCLES")
        ? qEnvironmentVariableIntValue("TELVIX_SOAK_CYCLES")
        : 2000;
    QVERIFY(cycles > 0);

    SimSettings settings;
    settings.timings.answerDelayMs = 1;
    settings.timings.callDurationMs = 600000;
    ReconnectFixture fixture;
    QVERIFY(fixture.start(settings));
    PbxSimulator& sim = fixture.sim();

    QTemporaryDir dataDir;
    QVERIFY(dataDir.isValid());
    // A Telvix refuses a second login within a second of the last one, so
    // each cycle is a new client on the same data directory, as a restarted
    // application: its thread, store and log file come and go as well.
    const auto cycleOnce = [&]() {
        Telvix client("Linux", "6.1", "tst", "1.0", "soak-device", dataDir.path());
        client.init();
        QSignalSpy loggedIn(&client, &Telvix::loggedToServer);
        QSignalSpy gone(&client, &Telvix::disconnectedFromServer);
        QSignalSpy answeredSpy(&client, answered);
        QSignalSpy finishedSpy(&client, finished);
        QVERIFY(client.connectToServer("1000", "1000", QString(), TELVIX::AppModeSrntPro,
                                       QStringLiteral("127.0.0.1"), sim.port()));
        QTRY_COMPARE_WITH_TIMEOUT(loggedIn.count(), 1, 10000);
        QVERIFY(client.newCall("1001", TELVIX::NumberPrefixAuto));
        QTRY_VERIFY_WITH_TIMEOUT(!answeredSpy.isEmpty(), 10000);
        const QString uid = answeredSpy.at(0).at(0).value<AnsweredCallEvent>().uid;
        QVERIFY(client.hangupCall(uid, QString()));
        QTRY_VERIFY_WITH_TIMEOUT(!finishedSpy.isEmpty(), 10000);
        QVERIFY(client.logout());
        QTRY_COMPARE_WITH_TIMEOUT(gone.count(), 1, 10000);
        QCOMPARE(gone.at(0).at(0).toString(), QStringLiteral("UserRequest"));
        QVERIFY(client.shutdown());
        QTRY_VERIFY_WITH_TIMEOUT(sim.sessionsOf("*").isEmpty(), 10000);
    };

    const Usage start = usage();
    Usage firstReport = start;
    report(0, start);
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        cycleOnce();
        if (QTest::currentTestFailed())
            return;

        if (cycle % ReportEvery == 0 || cycle == cycles) {
            // Let closed sockets and ended threads go before counting them.
            (void)QTest::qWaitFor(
                [&] { return usage().fds <= start.fds && usage().threads <= start.threads; }, 2000);
            const Usage now = usage();
            report(cycle, now);
            if (cycle == ReportEvery || (cycle == cycles && cycles < ReportEvery))
                firstReport = now;
            QVERIFY2(now.fds <= start.fds + FdSlack, "file descriptors grow");
            QVERIFY2(now.threads <= start.threads + ThreadSlack, "threads grow");
#ifndef TELVIX_SOAK_ASAN
            // AddressSanitizer keeps freed memory in quarantine (256 MB) on
            // purpose, so its resident size grows without a leak; its leak
            // checker judges that build at exit instead.
            QVERIFY2(now.rssKiB <= firstReport.rssKiB + RssSlackKiB, "resident memory grows");
#endif
        }
    }
}

int main(int argc, char** argv)
{
    // The cycles run in one test function, longer than QtTest's five minutes.
    if (!qEnvironmentVariableIsSet("QTEST_FUNCTION_TIMEOUT"))
        qputenv("QTEST_FUNCTION_TIMEOUT", "3600000");
    QCoreApplication app(argc, argv);
    tst_Soak test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_soak.moc"
