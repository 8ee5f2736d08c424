#pragma once

#include "callengine.h"
#include "simanswers.h"
#include "simdirectory.h"
#include "simdownloads.h"
#include "simhub.h"

#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

class QSslSocket;
class SimSession;
class TlsListener;

/// How long a restart refuses connections unless told.
constexpr int DefaultDowntimeMs = 3000;

/// How the simulator presents itself.
struct SimSettings
{
    QHostAddress address = QHostAddress::LocalHost;
    /// 0 lets the system choose.
    quint16 port = 5039;
    QString api = QStringLiteral("6.1");
    QString minApi = QStringLiteral("4.0");
    /// Greet each connection with the API versions before the login.
    bool banner = true;
    /// Probe each logged-in client this often; 0: never.
    int probeIntervalMs = 60000;
    CallTimings timings;
    /// Hold a rebranding package; without one, downloads of it say "none".
    bool rebranding = true;
    /// How long an access token opens downloads.
    int tokenValiditySecs = 3600;
    /// Chat server (on the simulator's address) that clients are sent to;
    /// 0: the users have no chat account, and clients do not try one.
    int chatPort = 0;
    /// Every extension has a desk phone that reports its calls and obeys
    /// phone commands.
    bool deskPhones = false;
    QString certificate;
    QString key;
};

/// \brief The simulated PBX: its listener, its clients, its directory and
/// calls. Several clients, as the same or different users, may be connected
/// at once; every one of them sees the others' status change.
class PbxSimulator : public QObject, public SimHub
{
    Q_OBJECT
public:
    PbxSimulator(const SimSettings& settings, const SimDirectory& directory, QObject* parent = nullptr);
    ~PbxSimulator() override;

    bool listen(QString* error);
    quint16 port() const;
    const SimSettings& settings() const { return m_settings; }
    int chatPort() const override { return m_settings.chatPort; }
    CallEngine& calls() { return m_calls; }
    /// Logged-in sessions of `exten`, or of everybody when it is "*".
    QList<SimSession*> sessionsOf(const QString& exten) const;

    /// Drops every connection at once, logged in or not.
    void dropAll();
    /// Refuses new connections for `ms`, then accepts them again on the same
    /// port. A new call while refusing extends the refusal to the later end.
    void refuseFor(int ms);
    /// A restart: every connection dropped, then `downMs` of refusal.
    void restart(int downMs);
    /// restart() every `everyMs`, each down for `downMs`.
    void restartPeriodically(int everyMs, int downMs);

    /// Answers a request of a logged-in client; false if it is unknown.
    bool answer(SimSession& session, const QString& element, const QString& xml);
    /// Answers a download request of a client that is not logged in; false
    /// if it is not one.
    bool serveDownload(SimSession& session, const QString& element, const QString& xml);
    /// Every request, for the scenario runner: its element and who sent it
    /// (the extension, or the user name of a login).
    void requestSeen(const QString& element, const QString& who);
    void sessionLoggedIn(SimSession& session);

    SimDirectory& directory() override { return m_directory; }
    void sendToExten(const QString& exten, SXmlMessage& message) override;
    void sendToAll(SXmlMessage& message) override;
    void extenStatusChanged(const QString& exten) override;
    void log(const QString& line) override;

Q_SIGNALS:
    void requestReceived(const QString& element, const QString& who);

private:
    void onConnection(QSslSocket* socket);
    void onSessionClosed(SimSession* session);

    SimSettings m_settings;
    SimDirectory m_directory;
    CallEngine m_calls;
    SimDownloads m_downloads;
    SimAnswers m_answers;
    void listenAgain();

    TlsListener* m_listener;
    QList<SimSession*> m_sessions;
    QTimer* m_refusal;
    QTimer* m_restarts = nullptr;
};
