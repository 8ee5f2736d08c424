// TelvixReconnector against the fake CTI server over real TLS. A fake clock
// takes the place of the waits, so that the schedule is followed attempt by
// attempt without sleeping.
#include "fakectiserver.h"
#include "telvix.h"
#include "telvixreconnector.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <memory>

namespace {

using Verdict = TelvixReconnector::Verdict;

class FakeClock : public TelvixReconnector::Clock
{
public:
    qint64 nowMs() const override { return now; }
    void start(int ms, std::function<void()> fire) override
    {
        pendingMs = ms;
        m_fire = std::move(fire);
    }
    void stop() override { m_fire = nullptr; }
    bool pending() const { return bool(m_fire); }
    /// Lets the pending time pass and fires the timer.
    void elapse()
    {
        now += pendingMs;
        auto fire = std::move(m_fire);
        m_fire = nullptr;
        fire();
    }

    qint64 now = 0;
    int pendingMs = 0;

private:
    std::function<void()> m_fire;
};

// One client, its reconnector on the fake clock, and a server.
struct Rig
{
    explicit Rig(quint32 seed, const TelvixReconnector::Settings& settings = {})
        : client("Linux", "6.1", "tst", "1.0", "device", dir.path())
        , reconnector(new TelvixReconnector(&client))
    {
        server.setAutoLogin(true);
        server.setAutoKeepAliveAck(true);
        client.init();
        reconnector->setClock(&clock);
        reconnector->setSeed(seed);
        reconnector->setSettings(settings);
    }
    ~Rig()
    {
        reconnector.reset();
        client.shutdown();
    }
    bool connect()
    {
        return server.listen()
            && client.connectToServer("alice", "secret", "default", TELVIX::AppModeSrntPro, server.host(),
                                      server.port());
    }
    /// The library refuses a login less than a second after the one before
    /// by the wall clock, which the fake clock does not move: before an
    /// attempt that follows a login, that second passes for real.
    static void letLoginGuardPass() { QTest::qWait(1100); }
    /// The next waiting() signal: (attempt, delay), or (-1, -1).
    QPair<int, int> nextWait()
    {
        if (waits.isEmpty() && !waits.wait(10000))
            return {-1, -1};
        const QList<QVariant> w = waits.takeFirst();
        return {w.at(0).toInt(), w.at(1).toInt()};
    }

    QTemporaryDir dir;
    FakeCtiServer server;
    Telvix client;
    std::unique_ptr<TelvixReconnector> reconnector;
    FakeClock clock;
    QSignalSpy logins {&client, &Telvix::loggedToServer};
    QSignalSpy waits {reconnector.get(), &TelvixReconnector::waiting};
};

/// Rows of the verdict table: given words, or failures made for real.
void addVerdictRows(bool live)
{
    QTest::addColumn<QString>("reason");
    QTest::addColumn<QString>("session");
    QTest::addColumn<Verdict>("verdict");
    QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/extras/reconnectorverdicts.tsv"));
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    for (const QByteArray& line : file.readAll().split('\n')) {
        const QStringList cols = QString::fromUtf8(line).split('\t');
        if (cols.size() == 3 && (cols.at(1) == "live") == live)
            QTest::addRow("%s, %s", qPrintable(cols.at(0)), qPrintable(cols.at(1)))
                << cols.at(0) << cols.at(1) << (cols.at(2) == "retry" ? Verdict::Retry : Verdict::GiveUp);
    }
}

} // namespace

class tst_TelvixReconnector : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void verdictFollowsTheReasonTable_data();
    void verdictFollowsTheReasonTable();
    void wordsOfRealFailuresMeetTheTable_data();
    void wordsOfRealFailuresMeetTheTable();
    void backOffDoublesUpToTheCapWithFullJitter_data();
    void backOffDoublesUpToTheCapWithFullJitter();
    void aStableSessionStartsTheCountAgain();
    void aHangingAttemptIsDroppedAndCountsAsFailed();
    void givesUpWhenTheAttemptsRunOut();
    void requestsAreAskedAgainAfterEachLogin();
};

void tst_TelvixReconnector::verdictFollowsTheReasonTable_data()
{
    addVerdictRows(false);
}

void tst_TelvixReconnector::verdictFollowsTheReasonTable()
{
    QFETCH(QString, reason);
    QFETCH(QString, session);
    QFETCH(Verdict, verdict);
    QCOMPARE(TelvixReconnector::verdictFor(reason, session == "up"), verdict);
}

void tst_TelvixReconnector::wordsOfRealFailuresMeetTheTable_data()
{
    addVerdictRows(true);
}

// The table is matched against the words the library really gives.
void tst_TelvixReconnector::wordsOfRealFailuresMeetTheTable()
{
    QFETCH(QString, reason);
    QFETCH(Verdict, verdict);
    const QString cause = reason;
    QTemporaryDir dir;
    FakeCtiServer server;
    QVERIFY(server.listen());
    server.setAutoLogin(true);
    Telvix client("Linux", "6.1", "tst", "1.0", "device", dir.path());
    client.init();
    QSignalSpy logins(&client, &Telvix::loggedToServer);
    QSignalSpy gone(&client, &Telvix::disconnectedFromServer);
    const bool inSession = cause.startsWith("server");
    const quint16 port = server.port();
    if (cause == "nobody listens")
        server.close();
    else if (cause == "no TLS")
        server.setTlsMode(FakeCtiServer::TlsMode::RefuseTls);
    else if (cause == "certificate not trusted")
        client.ignoreSslErrors(false);
    FakeCtiServer::LoginAnswer answer = server.loginAnswer();
    if (cause == "login refused") {
        answer.exitCode = 2;
        answer.reason = "WrongPassword";
    } else if (cause == "login without capabilities") {
        answer.capabilities = "nothing";
    }
    server.setLoginAnswer(answer);
    client.connectToServer("alice", "secret", "default", TELVIX::AppModeSrntPro, server.host(), port);
    if (inSession) {
        QVERIFY(logins.wait(10000));
        if (cause == "server closes the session")
            server.disconnectAll();
        else
            server.send(server.lastConnection(), FakeCtiServer::loggedOffDocument("ServerRestart"));
    }
    QVERIFY(gone.count() == 1 || gone.wait(10000));
    const QString word = gone.at(0).at(0).toString();
    QVERIFY2(TelvixReconnector::verdictFor(word, inSession) == verdict, qPrintable(word));
    client.shutdown();
}

void tst_TelvixReconnector::backOffDoublesUpToTheCapWithFullJitter_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<double>("multiplier");
    QTest::addColumn<int>("cap");
    QTest::newRow("defaults") << 1000 << 2.0 << 60000;
    QTest::newRow("low cap") << 1000 << 2.0 << 5000;
    QTest::newRow("triple from half a second") << 500 << 3.0 << 20000;
}

void tst_TelvixReconnector::backOffDoublesUpToTheCapWithFullJitter()
{
    QFETCH(int, first);
    QFETCH(double, multiplier);
    QFETCH(int, cap);
    TelvixReconnector::Settings settings;
    settings.firstDelayMs = first;
    settings.multiplier = multiplier;
    settings.maxDelayMs = cap;
    constexpr int Attempts = 9;

    // The same seed gives the same schedule; another seed another one.
    const quint32 seeds[] = {7, 7, 8};
    QList<int> schedules[3];
    for (int run = 0; run < 3; ++run) {
        Rig rig(seeds[run], settings);
        QList<int>& delays = schedules[run];
        QVERIFY(rig.connect());
        QVERIFY(rig.logins.wait(10000));
        rig.clock.now += settings.stableSessionMs;
        // Nobody speaks TLS there any more: every attempt fails at once.
        rig.server.setTlsMode(FakeCtiServer::TlsMode::RefuseTls);
        rig.server.disconnectAll();
        for (int n = 1; n <= Attempts; ++n) {
            const QPair<int, int> wait = rig.nextWait();
            QCOMPARE(wait.first, n);
            // After a failed attempt the wait leaves the library's one-second
            // guard between logins behind.
            const int lower = n == 1 ? 0 : settings.minGapMs;
            const int upper = qMax(lower, int(qMin(double(cap), first * std::pow(multiplier, n - 1))));
            QVERIFY2(wait.second >= lower && wait.second <= upper,
                     qPrintable(QStringLiteral("attempt %1 waits %2 ms").arg(n).arg(wait.second)));
            delays.append(wait.second);
            // Exactly one connection per attempt: never two in flight.
            QCOMPARE(rig.server.connectionCount(), n);
            QCOMPARE(rig.server.openConnectionCount(), 0);
            QVERIFY(rig.clock.pending());
            rig.clock.elapse();
        }
    }
    QCOMPARE(schedules[0], schedules[1]);
    QVERIFY(schedules[0] != schedules[2]);
}

void tst_TelvixReconnector::aStableSessionStartsTheCountAgain()
{
    Rig rig(42);
    QSignalSpy back(rig.reconnector.get(), &TelvixReconnector::reconnected);
    QVERIFY(rig.connect());
    QVERIFY(rig.logins.wait(10000));

    // Three attempts fail, the fourth gets through.
    rig.server.setTlsMode(FakeCtiServer::TlsMode::RefuseTls);
    const qint64 droppedAt = rig.clock.now;
    rig.server.disconnectAll();
    for (int n = 1; n <= 3; ++n) {
        QCOMPARE(rig.nextWait().first, n);
        if (n == 3) {
            rig.server.setTlsMode(FakeCtiServer::TlsMode::Normal);
            Rig::letLoginGuardPass();
        }
        rig.clock.elapse();
    }
    QVERIFY(back.wait(10000));
    QCOMPARE(back.at(0).at(0).toLongLong(), rig.clock.now - droppedAt);
    QVERIFY(!rig.clock.pending());

    // A session that ends at once goes on counting.
    rig.server.disconnectAll();
    const QPair<int, int> fourth = rig.nextWait();
    QCOMPARE(fourth.first, 4);
    QVERIFY(fourth.second >= rig.reconnector->settings().minGapMs);
    Rig::letLoginGuardPass();
    rig.clock.elapse();
    QVERIFY(back.wait(10000));

    // One that stayed up long enough starts again within the first second.
    rig.clock.now += rig.reconnector->settings().stableSessionMs;
    rig.server.disconnectAll();
    const QPair<int, int> wait = rig.nextWait();
    QCOMPARE(wait.first, 1);
    QVERIFY(wait.second <= 1000);
}

void tst_TelvixReconnector::aHangingAttemptIsDroppedAndCountsAsFailed()
{
    Rig rig(3);
    QSignalSpy gaveUp(rig.reconnector.get(), &TelvixReconnector::gaveUp);
    QVERIFY(rig.connect());
    QVERIFY(rig.logins.wait(10000));
    rig.server.setTlsMode(FakeCtiServer::TlsMode::SilentHandshake);
    rig.server.disconnectAll();
    QCOMPARE(rig.nextWait().first, 1);
    rig.clock.elapse();
    QTRY_COMPARE(rig.server.connectionCount(), 2);
    // The attempt hangs: the next timer is its time limit.
    QCOMPARE(rig.clock.pendingMs, rig.reconnector->settings().attemptTimeoutMs);
    rig.clock.elapse();
    QCOMPARE(rig.nextWait().first, 2);
    QTRY_COMPARE(rig.server.openConnectionCount(), 0);
    rig.server.setTlsMode(FakeCtiServer::TlsMode::Normal);
    Rig::letLoginGuardPass();
    rig.clock.elapse();
    QVERIFY(rig.logins.wait(10000));
    QCOMPARE(rig.server.connectionCount(), 3);
    QVERIFY(gaveUp.isEmpty());
}

void tst_TelvixReconnector::givesUpWhenTheAttemptsRunOut()
{
    TelvixReconnector::Settings settings;
    settings.maxAttempts = 2;
    Rig rig(9, settings);
    QSignalSpy gaveUp(rig.reconnector.get(), &TelvixReconnector::gaveUp);
    rig.server.setTlsMode(FakeCtiServer::TlsMode::RefuseTls);
    QVERIFY(rig.connect());
    for (int n = 1; n <= 2; ++n) {
        QCOMPARE(rig.nextWait().first, n);
        rig.clock.elapse();
    }
    QVERIFY(gaveUp.wait(10000));
    QVERIFY(TelvixReconnector::verdictFor(gaveUp.at(0).at(0).toString(), false) == Verdict::Retry);
    QVERIFY(!rig.clock.pending());
    QCOMPARE(rig.server.connectionCount(), 3);
    QVERIFY(rig.waits.isEmpty());
}

void tst_TelvixReconnector::requestsAreAskedAgainAfterEachLogin()
{
    Rig rig(5);
    // Asked before the first login: sent at the login.
    rig.reconnector->request("status", [](Telvix* t) { t->getExtenStatus(); });
    QVERIFY(rig.connect());
    QVERIFY(!rig.server.waitForFrame("GetExtenStatus", 10000).isEmpty());
    // Asked while logged in: sent at once.
    rig.reconnector->request("list", [](Telvix* t) { t->getExtenList(); });
    QVERIFY(!rig.server.waitForFrame("GetExtenList", 10000).isEmpty());
    // What the application asked itself is only remembered.
    rig.client.getVoicemail(TELVIX::VmMsgFlagNew);
    QVERIFY(!rig.server.waitForFrame("GetVoicemailMsgList", 10000).isEmpty());
    rig.reconnector->remember("voicemail", [](Telvix* t) { t->getVoicemail(TELVIX::VmMsgFlagNew); });
    rig.reconnector->request("mailbox", [](Telvix* t) { t->getMailboxStatus(); });
    QVERIFY(!rig.server.waitForFrame("GetMailboxStatus", 10000).isEmpty());
    rig.reconnector->forget("mailbox");
    QCOMPARE(rig.reconnector->requestKeys(), QStringList({"status", "list", "voicemail"}));
    rig.server.clearFrames();

    rig.server.disconnectAll();
    QCOMPARE(rig.nextWait().first, 1);
    Rig::letLoginGuardPass();
    rig.clock.elapse();
    QVERIFY(rig.logins.wait(10000));
    for (const char* element : {"GetExtenStatus", "GetExtenList", "GetVoicemailMsgList"})
        QVERIFY2(!rig.server.waitForFrame(element, 10000).isEmpty(), element);
    QVERIFY(rig.server.framesContaining("GetMailboxStatus").isEmpty());
    // Each once: nothing of the lost session is sent twice.
    QCOMPARE(rig.server.framesContaining("GetVoicemailMsgList").size(), 1);
}

QTEST_GUILESS_MAIN(tst_TelvixReconnector)
#include "tst_telvixreconnector.moc"
