#pragma once

#include "telvix_export.h"

#include <QList>
#include <QObject>
#include <QScopedPointer>
#include <QSet>
#include <QString>

#include <functional>

class Telvix;
class TelvixReconnectorPrivate;

/// \brief Brings a Telvix session back after it was lost: an opt-in helper
/// that an application attaches to its client.
///
/// The library itself never reconnects; this helper does it from outside,
/// through Telvix's public methods and signals only. It keeps no copy of the
/// session's state and changes nothing in Telvix: without it, a lost session
/// ends in disconnectedFromServer() exactly as before.
///
/// \par What is retried
/// The word of disconnectedFromServer() decides, by one table
/// (verdictFor()):
///
/// | Reason word | Cause | Verdict |
/// |---|---|---|
/// | "Unkown" | the server closed the connection, or reset it | retry |
/// | "NetworkError" | the network went away | retry |
/// | "ConnectionTimeout" | a keep-alive went unanswered | retry |
/// | a socket error text of Qt (e.g. "Connection refused", "Connection timed out", "Host not found", a TLS
/// handshake or certificate error) | no connection could be made | retry | | "UserRequest" | the
/// application's own logout() | give up | | "NoCapability", "EmptyExten" | the login gave the user nothing to
/// do | give up | | "WrongConfig" | the server redirected the client to itself | give up | | any other word,
/// after the session was up | the server's "LoggedOff" reason (e.g. a restart) | retry | | any other word,
/// while logging in | the server refused the login (e.g. "WrongPassword") | give up |
///
/// Socket error texts are matched in English and in the translation that the
/// application has installed for Qt. A connection refused by certificate
/// verification (Telvix::ignoreSslErrors(false)) is retried like any TLS
/// failure: the server may be renewing its certificate.
///
/// \par When
/// Exponential back-off with full jitter: the wait before attempt n is drawn
/// evenly from [0, min(maxDelayMs, firstDelayMs * multiplier^(n-1))], so
/// with the defaults the first retry comes within 1 s, then within 2, 4, 8
/// ... up to 60 s. Clients that lost the same server therefore come back
/// spread out instead of all at once. An attempt starts at least minGapMs
/// (1.1 s) after a failed attempt or after the login of a session that
/// ended sooner: the library refuses a login less than a second after the
/// one before, which would stall the attempt. A session
/// that stayed up for stableSessionMs (60 s) starts the count again at 1.
/// There is never more than one attempt in flight: the next wait starts only
/// when an attempt has failed, and an attempt that hangs for
/// attemptTimeoutMs (30 s, e.g. a server that takes the connection and never
/// answers) is dropped with Telvix::abortConnection() and counts as failed.
///
/// \par What is asked again
/// The library fetches nothing but its own start-up data after a login, so
/// lists the application asked for (extension list and status, phone books,
/// voicemail, queue data) would be stale after a reconnection. Telvix does
/// not tell who asked it for what, and this helper adds nothing to it, so the
/// application names those requests here: request() runs one now and again
/// after every login, remember() only after the next logins (for a request
/// the application has just made itself). They run on the library's thread,
/// so that the direct request methods (getExtenList(), getPhoneBook()) are
/// safe. reconnected() tells how long the session was down, to look up the
/// call history for what was missed.
///
/// The random source can be seeded and the clock replaced, so that a test
/// can follow the schedule without waiting.
class TELVIX_EXPORT TelvixReconnector : public QObject
{
    Q_OBJECT
public:
    enum class Verdict { Retry, GiveUp };
    Q_ENUM(Verdict)

    /// The schedule; every time is in milliseconds.
    struct Settings
    {
        /// Upper bound of the first wait.
        int firstDelayMs = 1000;
        /// Growth of the upper bound from one attempt to the next.
        double multiplier = 2.0;
        /// Cap of the upper bound.
        int maxDelayMs = 60000;
        /// Least time from a login (or a failed attempt) to the next attempt.
        int minGapMs = 1100;
        /// A session that lasted this long resets the count.
        int stableSessionMs = 60000;
        /// An attempt without an answer for this long is dropped.
        int attemptTimeoutMs = 30000;
        /// Attempts before giving up; 0: no limit.
        int maxAttempts = 0;
    };

    /// Time and a single-shot timer, replaceable by a test.
    class TELVIX_EXPORT Clock
    {
    public:
        virtual ~Clock();
        /// Milliseconds on a monotonic clock.
        virtual qint64 nowMs() const = 0;
        /// Calls `fire` once after `ms`; replaces a timer still pending.
        virtual void start(int ms, std::function<void()> fire) = 0;
        virtual void stop() = 0;
    };

    /// A request to the server, run on the library's thread.
    using Request = std::function<void(Telvix*)>;

    /// Watches `client` from now on. If its session is up, that session
    /// counts as started now.
    explicit TelvixReconnector(Telvix* client, QObject* parent = nullptr);
    ~TelvixReconnector() override;

    void setSettings(const Settings& settings);
    Settings settings() const;
    /// Makes the jitter reproducible.
    void setSeed(quint32 seed);
    /// `clock` is not owned; nullptr restores the system clock.
    void setClock(Clock* clock);

    /// The table above: what to do after `reason`, given whether the session
    /// had been logged in.
    static Verdict verdictFor(const QString& reason, bool sessionWasUp);
    /// The Telvix request methods that fetch state worth fetching again after
    /// a reconnection (lists, statuses, statistics, subscriptions).
    static QSet<QByteArray> stateRequests();

    /// Runs `request` now if the session is up, and after every later login.
    /// A request of the same `key` is replaced.
    void request(const QString& key, const Request& request);
    /// Runs `request` after every later login, not now.
    void remember(const QString& key, const Request& request);
    void forget(const QString& key);
    QStringList requestKeys() const;

    /// Stops reconnecting; a pending attempt is cancelled. An attempt already
    /// under way is left to end.
    void stop();
    /// Watches again after stop(); a live session counts as started now.
    void start();
    bool isActive() const;
    /// The number of the attempt under way or waited for; 0 when none.
    int attempt() const;

Q_SIGNALS:
    /// The next attempt, numbered from 1, follows in `delayMs`.
    void waiting(int attempt, int delayMs);
    /// The session is up again after `downtimeMs` without one.
    void reconnected(qint64 downtimeMs);
    /// No further attempt: `reason` cannot be fixed by retrying, or
    /// maxAttempts ran out.
    void gaveUp(QString reason);

private:
    Q_DECLARE_PRIVATE(TelvixReconnector)
    QScopedPointer<TelvixReconnectorPrivate> d_ptr;
};
