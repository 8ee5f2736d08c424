#pragma once

#include "fakectiserver.h"
#include "telvix.h"

#include <QMetaObject>
#include <QScopedPointer>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>

/// A Telvix client logged in to a FakeCtiServer over real TLS, as an
/// application has it after connectToServer: its own thread running, the
/// canned login answered at a chosen API version and application mode.
///
/// Events go out with sendEvent(); waitForAck() returns once the client has
/// handled one, since the acknowledgement follows the handler.
class LoggedInClient
{
public:
    explicit LoggedInClient(TELVIX::AppMode mode, const QString& api = QStringLiteral("6.1"),
                            const QString& exten = QStringLiteral("200"))
        : m_mode(mode)
        , m_api(api)
    {
        loginAnswer.exten = exten;
    }
    ~LoggedInClient();
    LoggedInClient(const LoggedInClient&) = delete;
    LoggedInClient& operator=(const LoggedInClient&) = delete;

    /// The canned login answer; takes effect at start().
    FakeCtiServer::LoginAnswer loginAnswer;

    /// The client's data folder; a folder of its own by default.
    void setDataDir(const QString& path) { m_dataDir = path; }

    /// Runs on the test's thread after init() and before the login starts.
    void setBeforeLogin(std::function<void(Telvix*)> hook) { m_beforeLogin = std::move(hook); }

    /// Listens, starts the client and logs in; false if any step fails.
    bool start();

    Telvix* client() const { return m_client.data(); }
    FakeCtiServer& server() { return m_server; }
    int connection() const { return m_conn; }
    QString api() const { return m_api; }

    /// Sends `body` in a response document of the server's API and returns
    /// the document's UUID.
    QString sendEvent(const QString& body);
    /// Waits for the client's MsgAck of `uuid`.
    bool waitForAck(const QString& uuid, int timeoutMs = 5000);
    /// sendEvent() and waitForAck() in one.
    bool deliver(const QString& body) { return waitForAck(sendEvent(body)); }
    /// Frames the client sent since the last clearFrames() that carry `element`.
    QStringList framesWith(const QString& element) const
    {
        return m_server.framesContaining(element, m_conn);
    }
    void clearFrames() { m_server.clearFrames(); }

    /// Runs `f` on the library's thread and waits for it.
    template <typename F> void onLibraryThread(F f)
    {
        QMetaObject::invokeMethod(m_client.data(), f, Qt::BlockingQueuedConnection);
    }

private:
    TELVIX::AppMode m_mode;
    QString m_api;
    std::function<void(Telvix*)> m_beforeLogin;
    QTemporaryDir m_dir;
    QString m_dataDir;
    FakeCtiServer m_server;
    QScopedPointer<Telvix> m_client;
    int m_conn = -1;
};
