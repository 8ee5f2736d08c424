// TelvixReconnector against the fake CTI server over real TLS. A fake clock
// takes the place of the waits, so that the schedule is followed attempt by
// attempt without sleeping. The verdicts (tests/fixtures/extras/verdicts.json)
// are the reason word of disconnectedFromServer, whether the session was up,
// and retry or giveup; the scenarios make those failures for real.
#include "fakectiserver.h"
#include "fixturetable.h"
#include "telvix.h"
#include "telvixreconnector.h"

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

} // namespace

class tst_TelvixReconnector : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void verdictFollowsTheReasonTable_data();
    void verdictFollowsTheReasonTable();
    void scenario_data();
    void scenario();
};

void tst_TelvixReconnector::verdictFollowsTheReasonTable_data()
{
    addFunctionRows("extras");
}

void tst_TelvixReconnector::verdictFollowsTheReasonTable()
{
    checkFunctionRow({{"verdictFor", [](const Args& a) {
                           const bool retry = TelvixReconnector::verdictFor(a[0].toString(), a[1] == "up")
                               == Verdict::Retry;
                           return QJsonValue(retry ? "retry" : "giveup");
                       }}});
}

void tst_TelvixReconnector::scenario_data()
{
    QTest::addColumn<QStringList>("steps");
    QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/extras/reconnector.scenarios"));
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList lines
        = QString::fromUtf8(file.readAll()).split('\n').filter(QRegularExpression("^[^#]"));
    for (const QString& scenario : lines.join('\n').split("== ", Qt::SkipEmptyParts)) {
        const QStringList steps = scenario.split('\n', Qt::SkipEmptyParts);
        QTest::newRow(qPrintable(steps.at(0))) << QStringList(steps.mid(1));
    }
}

// Plays one scenario of tests/fixtures/extras/reconnector.scenarios (the
// steps are listed at its top).
void tst_TelvixReconnector::scenario()
{
    QFETCH(QStringList, steps);
    Rig rig(0);
    QSignalSpy back(rig.reconnector.get(), &TelvixReconnector::reconnected);
    QSignalSpy gaveUp(rig.reconnector.get(), &TelvixReconnector::gaveUp);
    QSignalSpy gone(&rig.client, &Telvix::disconnectedFromServer);
    FakeCtiServer::LoginAnswer answer = rig.server.loginAnswer();
    TelvixReconnector::Settings settings;
    const QMap<QString, std::function<void(Telvix*)>> calls {
        {"getExtenStatus", [](Telvix* t) { t->getExtenStatus(); }},
        {"getExtenList", [](Telvix* t) { t->getExtenList(); }},
        {"getMailboxStatus", [](Telvix* t) { t->getMailboxStatus(); }},
        {"getVoicemail", [](Telvix* t) { t->getVoicemail(TELVIX::VmMsgFlagNew); }}};
    const QMap<QString, FakeCtiServer::TlsMode> tls {{"normal", FakeCtiServer::TlsMode::Normal},
                                                     {"refuse", FakeCtiServer::TlsMode::RefuseTls},
                                                     {"silent", FakeCtiServer::TlsMode::SilentHandshake}};
    qint64 droppedAt = -1;
    QList<int> delays; // of the attempts so far
    // Schedules of earlier scenarios by name: the same seed gives the same one.
    static QMap<QString, QList<int>> schedules;
    QStringList w; // the words of the step being played
    const auto n = [&w](int i) { return w.value(i).toInt(); };
    using Step = std::function<void()>;
    const QMap<QString, Step> play {
        {"seed", [&] { rig.reconnector->setSeed(n(1)); }},
        {"maxAttempts", [&] { settings.maxAttempts = n(1), rig.reconnector->setSettings(settings); }},
        {"backOff",
         [&] {
             settings.firstDelayMs = n(1), settings.multiplier = w.value(2).toDouble(),
             settings.maxDelayMs = n(3);
             rig.reconnector->setSettings(settings);
         }},
        {"connect", [&] { QVERIFY(rig.connect()); }},
        {"login", [&] { QVERIFY(rig.logins.wait(10000)); }},
        {"back", [&] { QVERIFY(back.wait(10000)); }},
        {"downtime", [&] { QCOMPARE(back.last().at(0).toLongLong(), rig.clock.now - droppedAt); }},
        {"tls", [&] { rig.server.setTlsMode(tls.value(w.value(1))); }},
        {"drop", [&] { droppedAt = droppedAt < 0 ? rig.clock.now : droppedAt, rig.server.disconnectAll(); }},
        {"wait",
         [&] {
             const QPair<int, int> wait = rig.nextWait();
             QCOMPARE(wait.first, n(1));
             const int min = w.value(2) == "minGap" ? settings.minGapMs : w.value(2) == "min" ? n(3) : 0;
             QVERIFY2(wait.second >= min && (w.value(2) != "max" || wait.second <= n(3)),
                      qPrintable(w.join(' ')));
         }},
        {"attempt",
         [&] {
             const QPair<int, int> wait = rig.nextWait();
             delays << wait.second;
             QCOMPARE(wait.first, n(1));
             // After a failed attempt the wait leaves the library's guard between logins behind.
             QVERIFY2(wait.second >= (n(1) > 1 ? settings.minGapMs : 0) && wait.second <= n(2),
                      qPrintable(QStringLiteral("%1 waits %2 ms").arg(w.join(' ')).arg(wait.second)));
             // Exactly one connection per attempt: never two in flight.
             QCOMPARE(rig.server.connectionCount(), n(1));
             QCOMPARE(rig.server.openConnectionCount(), 0);
             QVERIFY(rig.clock.pending());
             rig.clock.elapse();
         }},
        {"schedule",
         [&] {
             QCOMPARE(delays, schedules.value(w.value(1), delays));
             schedules[w.value(1)] = delays;
         }},
        {"otherSchedule", [&] { QVERIFY(delays != schedules.value(w.value(1))); }},
        {"elapse", [&] { rig.clock.elapse(); }},
        {"stable", [&] { rig.clock.now += settings.stableSessionMs; }},
        // The library refuses a login less than a second after the one before
        // by the wall clock, which the fake clock does not move: before an
        // attempt that follows a login, that second passes for real.
        {"guard", [&] { QTest::qWait(1100); }},
        {"idle", [&] { QVERIFY(!rig.clock.pending()); }},
        {"attemptTimer", [&] { QCOMPARE(rig.clock.pendingMs, settings.attemptTimeoutMs); }},
        {"connections", [&] { QTRY_COMPARE(rig.server.connectionCount(), n(1)); }},
        {"open", [&] { QTRY_COMPARE(rig.server.openConnectionCount(), n(1)); }},
        {"gaveUp",
         [&] {
             QVERIFY(gaveUp.wait(10000));
             QVERIFY(TelvixReconnector::verdictFor(gaveUp.at(0).at(0).toString(), false) == Verdict::Retry);
         }},
        {"notGivenUp", [&] { QVERIFY(gaveUp.isEmpty()); }},
        {"noWaits", [&] { QVERIFY(rig.waits.isEmpty()); }},
        {"request", [&] { rig.reconnector->request(w.value(1), calls.value(w.value(2))); }},
        {"remember", [&] { rig.reconnector->remember(w.value(1), calls.value(w.value(2))); }},
        {"forget", [&] { rig.reconnector->forget(w.value(1)); }},
        {"call", [&] { calls.value(w.value(1))(&rig.client); }},
        {"keys", [&] { QCOMPARE(rig.reconnector->requestKeys(), w.mid(1)); }},
        {"clearFrames", [&] { rig.server.clearFrames(); }},
        {"frame",
         [&] { QVERIFY2(!rig.server.waitForFrame(w.value(1), 10000).isEmpty(), qPrintable(w.value(1))); }},
        {"frames", [&] { QCOMPARE(rig.server.framesContaining(w.value(1)).size(), n(2)); }},
        {"noFrame", [&] { QCOMPARE(rig.server.framesContaining(w.value(1)).size(), 0); }},
        {"connectNowhere",
         [&] {
             QVERIFY(rig.server.listen());
             const quint16 port = rig.server.port();
             rig.server.close();
             rig.client.connectToServer("alice", "secret", "default", TELVIX::AppModeSrntPro,
                                        rig.server.host(), port);
         }},
        {"untrusted", [&] { rig.client.ignoreSslErrors(false); }},
        {"refuseLogin",
         [&] { answer.exitCode = 2, answer.reason = w.value(1), rig.server.setLoginAnswer(answer); }},
        {"capabilities", [&] { answer.capabilities = w.value(1), rig.server.setLoginAnswer(answer); }},
        {"loggedOff",
         [&] { rig.server.send(rig.server.lastConnection(), FakeCtiServer::loggedOffDocument(w.value(1))); }},
        {"verdict", [&] {
             QVERIFY(!gone.isEmpty() || gone.wait(10000));
             const QString word = gone.last().at(0).toString();
             const Verdict verdict = w.value(1) == "retry" ? Verdict::Retry : Verdict::GiveUp;
             QVERIFY2(TelvixReconnector::verdictFor(word, w.value(2) == "up") == verdict, qPrintable(word));
         }}};
    for (const QString& step : qAsConst(steps)) {
        w = step.split(' ');
        QVERIFY2(play.contains(w.at(0)), qPrintable("unknown step " + step));
        play.value(w.at(0))();
        if (QTest::currentTestFailed())
            return;
    }
}

QTEST_GUILESS_MAIN(tst_TelvixReconnector)
#include "tst_telvixreconnector.moc"
