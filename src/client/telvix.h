#pragma once

#include "loginmessages.h"
#include "telvix_const.h"
#include "telvix_export.h"

#include <QScopedPointer>
#include <QString>
#include <QThread>

class TelvixPrivate;

/// \brief The client of a PBX's CTI server.
///
/// One object is at once the library's thread, the worker living on it and
/// the facade the application calls. Build it, call init(), then
/// connectToServer(); call shutdown() before destroying it.
///
/// Public methods that touch the session hop onto the library's thread. A
/// queued method returns true as soon as the call is accepted for that
/// thread, never "the server got it"; a blocking method returns the real
/// result. Signals are raised on the library's thread.
class TELVIX_EXPORT Telvix : public QThread
{
    Q_OBJECT
public:
    /// Connection states of getConnectionState().
    enum ConnectionState { StateConnecting = 0, StateConnected = 1, StateDisconnecting = 2, StateDisconnected = 3 };
    Q_ENUM(ConnectionState)

    /// \param dataDir directory of logs and files; "." when empty.
    Telvix(const QString& osType, const QString& osVersion, const QString& swType, const QString& swVersion,
           const QString& deviceId, const QString& dataDir);
    /// Call shutdown() first: the destructor does not stop the thread.
    ~Telvix() override;

    // ---- life cycle ------------------------------------------------------
    /// Starts the thread and moves the object onto it; blocks until it is up.
    Q_INVOKABLE bool init();
    /// Tears everything down in a fixed order and ends the thread.
    Q_INVOKABLE bool shutdown();
    /// "4.5.6-r<revision>"; any thread, also before init().
    Q_INVOKABLE QString getVersion() const;
    /// Build switch: chat support is compiled in.
    Q_INVOKABLE bool hasChatSupportBuilt() const;
    /// Build switch: the outlook contact source is not compiled in.
    Q_INVOKABLE bool hasOutlookSupportBuilt() const;
    /// Turns the scrambled wire dump "msgDump/telvixMsg.log" on or off.
    Q_INVOKABLE bool enableMessagesDump(bool on);
    /// True in the mobile application modes (6, 7).
    Q_INVOKABLE bool isInMobileAppMode() const;
    Q_INVOKABLE static bool appModeIsMobile(TELVIX::AppMode mode);
    /// One of ConnectionState, read without locking.
    Q_INVOKABLE int getConnectionState() const;

    // ---- session ---------------------------------------------------------
    /// Opens (or reuses) the TLS connection and logs in. An empty `ip` or a
    /// zero `port` takes the stored value.
    Q_INVOKABLE bool connectToServer(const QString& user, const QString& password, const QString& domain,
                                     TELVIX::AppMode mode, const QString& ip, quint16 port);
    /// connectToServer() with the stored credentials and address.
    Q_INVOKABLE bool reconnectToServer();
    /// "host:port"; a missing, zero or bad port gives 5039.
    Q_INVOKABLE bool setServerAddress(const QString& address);
    /// true (default): accept any certificate; false: refuse one that does not verify.
    Q_INVOKABLE void ignoreSslErrors(bool ignore);
    Q_INVOKABLE bool logout();
    /// Drops the socket without any signal.
    Q_INVOKABLE bool abortConnection();
    /// Blocking: logged in and the socket is connected.
    Q_INVOKABLE bool isConnected();
    Q_INVOKABLE bool isSocketConnected() const;
    Q_INVOKABLE bool sendKeepAlive();
    Q_INVOKABLE bool stopKeepAliveTimer();
    /// Starts the heartbeat sigGuiKeepAlive every 30 s, whatever `on` says.
    Q_INVOKABLE bool enableGuiKeepAlive(bool on);
    Q_INVOKABLE bool requestGuiKeepAlive();
    Q_INVOKABLE bool ackGuiKeepAlive();
    /// The extension of the login.
    Q_INVOKABLE QString getDisplayedNum() const;

Q_SIGNALS:
    /// The session ended; `reason` is the word of the cause ("Unkown",
    /// "UserRequest", "ConnectionTimeout", the server's reason, ...).
    void disconnectedFromServer(QString reason);
    /// Login accepted, after all start-up requests are sent.
    void loggedToServer(LoginDetails details);
    /// Once, at the end of the thread's set-up.
    void sigThreadStarted();
    /// Heartbeat towards the application, see enableGuiKeepAlive().
    void sigGuiKeepAlive();

protected:
    void run() override;

private Q_SLOTS:
    void onThreadStarted();

private:
    Q_DECLARE_PRIVATE(Telvix)
    QScopedPointer<TelvixPrivate> d_ptr;
    friend class TelvixPrivate;
};
