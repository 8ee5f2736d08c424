#include "telvixreconnector.h"

#include "telvix.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QRandomGenerator>
#include <QSslError>
#include <QTimer>

#include <cmath>

namespace {

using Verdict = TelvixReconnector::Verdict;

// The words Telvix itself gives to disconnectedFromServer().
struct ReasonRow
{
    const char* word;
    Verdict verdict;
};
constexpr ReasonRow LibraryReasons[] = {
    {"Unkown", Verdict::Retry},
    {"NetworkError", Verdict::Retry},
    {"ConnectionTimeout", Verdict::Retry},
    {"UserRequest", Verdict::GiveUp},
    {"NoCapability", Verdict::GiveUp},
    {"EmptyExten", Verdict::GiveUp},
    {"WrongConfig", Verdict::GiveUp},
};

// Qt's texts for a connection that could not be made or was lost; Telvix
// passes the socket's error string on as it is.
constexpr const char* SocketErrorTexts[] = {
    "Connection refused",
    "Connection timed out",
    "Socket operation timed out",
    "Network operation timed out",
    "Host not found",
    "Network unreachable",
    "Host unreachable",
    "Network dropped connection on reset",
    "The remote host closed the connection",
    "The TLS/SSL connection has been closed",
    "SSL handshake failed",
    "Connection to proxy refused",
    "Connection to proxy closed prematurely",
    "Connection to proxy timed out",
    "Proxy host not found",
};
constexpr const char* SocketErrorPrefix = "Error during SSL handshake: %1";
constexpr const char* SocketErrorContexts[] = {"QAbstractSocket", "QNativeSocketEngine", "QSslSocket"};

QString translated(const char* context, const char* text)
{
    return QCoreApplication::translate(context, text);
}

bool isSocketErrorText(const QString& reason)
{
    for (const char* context : SocketErrorContexts) {
        for (const char* text : SocketErrorTexts) {
            if (reason == QLatin1String(text) || reason == translated(context, text))
                return true;
        }
        for (const QString& pattern :
             {QString::fromLatin1(SocketErrorPrefix), translated(context, SocketErrorPrefix)}) {
            const QString prefix = pattern.section(QStringLiteral("%1"), 0, 0);
            if (!prefix.isEmpty() && reason.startsWith(prefix))
                return true;
        }
    }
    // A certificate refused by verification is reported by its first error.
    for (int e = QSslError::NoError; e <= QSslError::OcspStatusUnknown; ++e) {
        if (reason == QSslError(QSslError::SslError(e)).errorString())
            return true;
    }
    return false;
}

} // namespace

// ---- clock ---------------------------------------------------------------

TelvixReconnector::Clock::~Clock() = default;

namespace {

class SystemClock : public TelvixReconnector::Clock
{
public:
    SystemClock()
    {
        m_elapsed.start();
        m_timer.setSingleShot(true);
        // A coarse timer would round the waits to shared boundaries (whole
        // seconds from 20 s on) and undo the jitter.
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            if (m_fire)
                m_fire();
        });
    }
    qint64 nowMs() const override { return m_elapsed.elapsed(); }
    void start(int ms, std::function<void()> fire) override
    {
        m_fire = std::move(fire);
        m_timer.start(ms);
    }
    void stop() override { m_timer.stop(); }

private:
    QElapsedTimer m_elapsed;
    QTimer m_timer;
    std::function<void()> m_fire;
};

} // namespace

// ---- state -------------------------------------------------------------------

class TelvixReconnectorPrivate
{
public:
    using Clock = TelvixReconnector::Clock;
    using Request = TelvixReconnector::Request;
    using Settings = TelvixReconnector::Settings;
    using Verdict = TelvixReconnector::Verdict;
    enum class State { Idle, Up, Waiting, Attempting, Stopped };
    struct Entry
    {
        QString key;
        Request request;
    };

    TelvixReconnectorPrivate(TelvixReconnector* owner, Telvix* client)
        : q(owner)
        , m_client(client)
        , m_random(QRandomGenerator::global()->generate())
    {
    }

    /// Takes up the client's state: a live session counts as started now.
    void watch();
    void onLoggedIn();
    void onDisconnected(const QString& reason);
    void scheduleNext(const QString& reason);
    void attemptNow();
    void onAttemptTimeout();
    void giveUp(const QString& reason);
    void run(const Request& request);
    void store(const QString& key, const Request& request);
    Clock* clock() const { return m_clock ? m_clock : &m_systemClock; }

    TelvixReconnector* const q;
    QPointer<Telvix> m_client;
    Settings m_settings;
    QRandomGenerator m_random;
    mutable SystemClock m_systemClock;
    Clock* m_clock = nullptr;
    State m_state = State::Idle;
    int m_attempt = 0;
    bool m_aborted = false;
    /// When a login was last sent, or may have been.
    qint64 m_lastLogin = 0;
    qint64 m_sessionStart = 0;
    qint64 m_downSince = -1;
    QList<Entry> m_requests;
};

// ---- set-up ----------------------------------------------------------------

TelvixReconnector::TelvixReconnector(Telvix* client, QObject* parent)
    : QObject(parent)
    , d_ptr(new TelvixReconnectorPrivate(this, client))
{
    Q_D(TelvixReconnector);
    // Telvix raises its signals on its own thread; they arrive here queued.
    connect(client, &Telvix::loggedToServer, this, [d] { d->onLoggedIn(); });
    connect(client, &Telvix::disconnectedFromServer, this,
            [d](const QString& reason) { d->onDisconnected(reason); });
    d->watch();
}

TelvixReconnector::~TelvixReconnector()
{
    d_func()->clock()->stop();
}

void TelvixReconnector::setSettings(const Settings& settings)
{
    d_func()->m_settings = settings;
}

TelvixReconnector::Settings TelvixReconnector::settings() const
{
    return d_func()->m_settings;
}

void TelvixReconnector::setSeed(quint32 seed)
{
    d_func()->m_random.seed(seed);
}

void TelvixReconnector::setClock(Clock* clock)
{
    Q_D(TelvixReconnector);
    d->clock()->stop();
    d->m_clock = clock;
}

bool TelvixReconnector::isActive() const
{
    return d_func()->m_state != TelvixReconnectorPrivate::State::Stopped;
}

int TelvixReconnector::attempt() const
{
    return d_func()->m_attempt;
}

void TelvixReconnectorPrivate::watch()
{
    const bool up = m_client && m_client->getConnectionState() == Telvix::StateConnected;
    m_state = up ? State::Up : State::Idle;
    m_sessionStart = clock()->nowMs();
}

// ---- the reason table ---------------------------------------------------------

TelvixReconnector::Verdict TelvixReconnector::verdictFor(const QString& reason, bool sessionWasUp)
{
    for (const ReasonRow& row : LibraryReasons) {
        if (reason == QLatin1String(row.word))
            return row.verdict;
    }
    if (isSocketErrorText(reason))
        return Verdict::Retry;
    // Any other word is the server's own: a "LoggedOff" of a live session,
    // or the refusal of a login.
    return sessionWasUp ? Verdict::Retry : Verdict::GiveUp;
}

QSet<QByteArray> TelvixReconnector::stateRequests()
{
    return {"getIdentities",
            "getPeerList",
            "getPhoneBook",
            "getExtenList",
            "getExtenStatus",
            "getServiceStatus",
            "getVoicemail",
            "getMailboxStatus",
            "getTenantList",
            "subscribeTenantEvents",
            "getContactsList",
            "getQueueList",
            "getAllQueuesStats",
            "getAllQueuePeriodicStats",
            "getAllQueueOperatorPeriodicStats",
            "getQueuePeriodicStats",
            "getQueueOperatorPeriodicStats"};
}

// ---- requests -------------------------------------------------------------------

void TelvixReconnector::request(const QString& key, const Request& request)
{
    Q_D(TelvixReconnector);
    d->store(key, request);
    if (d->m_state == TelvixReconnectorPrivate::State::Up)
        d->run(request);
}

void TelvixReconnector::remember(const QString& key, const Request& request)
{
    d_func()->store(key, request);
}

void TelvixReconnectorPrivate::store(const QString& key, const Request& request)
{
    for (Entry& entry : m_requests) {
        if (entry.key == key) {
            entry.request = request;
            return;
        }
    }
    m_requests.append({key, request});
}

void TelvixReconnector::forget(const QString& key)
{
    QList<TelvixReconnectorPrivate::Entry>& requests = d_func()->m_requests;
    for (int i = 0; i < requests.size(); ++i) {
        if (requests.at(i).key == key) {
            requests.removeAt(i);
            return;
        }
    }
}

QStringList TelvixReconnector::requestKeys() const
{
    QStringList keys;
    for (const TelvixReconnectorPrivate::Entry& entry : d_func()->m_requests)
        keys.append(entry.key);
    return keys;
}

void TelvixReconnectorPrivate::run(const Request& request)
{
    Telvix* client = m_client;
    if (!client)
        return;
    QMetaObject::invokeMethod(
        client, [client, request] { request(client); }, Qt::QueuedConnection);
}

// ---- the schedule ---------------------------------------------------------------

void TelvixReconnector::stop()
{
    Q_D(TelvixReconnector);
    d->clock()->stop();
    d->m_state = TelvixReconnectorPrivate::State::Stopped;
    d->m_attempt = 0;
}

void TelvixReconnector::start()
{
    Q_D(TelvixReconnector);
    if (d->m_state == TelvixReconnectorPrivate::State::Stopped)
        d->watch();
}

void TelvixReconnectorPrivate::onLoggedIn()
{
    if (m_state == State::Stopped)
        return;
    // An attempt dropped for hanging may have logged in just before the
    // drop reached the library's thread; then this session is already gone.
    if (m_aborted && m_client && !m_client->isConnected())
        return;
    clock()->stop();
    const bool wasDown = m_state == State::Waiting || m_state == State::Attempting;
    m_state = State::Up;
    m_aborted = false;
    m_sessionStart = clock()->nowMs();
    for (const Entry& entry : qAsConst(m_requests))
        run(entry.request);
    if (wasDown && m_downSince >= 0)
        Q_EMIT q->reconnected(m_sessionStart - m_downSince);
    m_downSince = -1;
}

void TelvixReconnectorPrivate::onDisconnected(const QString& reason)
{
    // While waiting, this is the end of an attempt already dropped.
    if (m_state == State::Stopped || m_state == State::Waiting)
        return;
    const qint64 now = clock()->nowMs();
    const bool sessionWasUp = m_state == State::Up;
    if (sessionWasUp) {
        if (now - m_sessionStart >= m_settings.stableSessionMs)
            m_attempt = 0;
        m_downSince = now;
        m_lastLogin = m_sessionStart;
    } else {
        if (m_downSince < 0)
            m_downSince = now;
        // The attempt may have sent its login just before it failed.
        m_lastLogin = now;
    }
    if (TelvixReconnector::verdictFor(reason, sessionWasUp) == Verdict::GiveUp)
        giveUp(reason);
    else
        scheduleNext(reason);
}

void TelvixReconnectorPrivate::scheduleNext(const QString& reason)
{
    if (m_settings.maxAttempts > 0 && m_attempt >= m_settings.maxAttempts) {
        giveUp(reason);
        return;
    }
    ++m_attempt;
    const double grown = m_settings.firstDelayMs * std::pow(m_settings.multiplier, m_attempt - 1);
    const int upper = int(qMin(double(m_settings.maxDelayMs), grown));
    // The library refuses a login that follows the one before within a
    // second, and the attempt would then hang until its time limit.
    const int lower = int(qBound(qint64(0), m_settings.minGapMs - (clock()->nowMs() - m_lastLogin),
                                 qint64(m_settings.minGapMs)));
    const int delay = lower + int(m_random.bounded(quint32(qMax(0, upper - lower)) + 1));
    m_state = State::Waiting;
    clock()->start(delay, [this] { attemptNow(); });
    Q_EMIT q->waiting(m_attempt, delay);
}

void TelvixReconnectorPrivate::attemptNow()
{
    if (m_state != State::Waiting || !m_client)
        return;
    m_state = State::Attempting;
    clock()->start(m_settings.attemptTimeoutMs, [this] { onAttemptTimeout(); });
    m_client->reconnectToServer();
}

void TelvixReconnectorPrivate::onAttemptTimeout()
{
    if (m_state != State::Attempting || !m_client)
        return;
    m_client->abortConnection();
    m_aborted = true;
    m_lastLogin = clock()->nowMs();
    scheduleNext(QStringLiteral("ConnectionTimeout"));
}

void TelvixReconnectorPrivate::giveUp(const QString& reason)
{
    clock()->stop();
    m_state = State::Idle;
    m_attempt = 0;
    m_downSince = -1;
    Q_EMIT q->gaveUp(reason);
}
