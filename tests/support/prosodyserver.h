#pragma once

#include <QMap>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

/// A private chat server for the tests: one prosody process on 127.0.0.1, on
/// a free port, with its configuration, certificate, data and log in a
/// temporary directory, serving the virtual host "default". The process is
/// killed when the object goes; nothing is left behind.
class ProsodyServer
{
public:
    ~ProsodyServer() { stop(); }

    /// Whether the prosody programs are installed; tests skip without them.
    static bool isInstalled();

    /// Accounts to create at start, by user name (the part before "@default").
    void addUser(const QString& user, const QString& password) { m_users.insert(user, password); }
    /// Puts every account into one shared roster group, so that they see each
    /// other's presence without subscribing first.
    void setSharedRoster(bool shared) { m_sharedRoster = shared; }
    /// Whether the server keeps a message archive (on by default). Clients
    /// may query it in the namespace "urn:xmpp:mam:1" as well as ":2".
    void setArchive(bool archive) { m_archive = archive; }

    /// Writes the configuration, registers the accounts, starts the server
    /// and waits until its port accepts connections.
    bool start();
    void stop();
    /// Kills the process at once (SIGKILL), as a crash would; restart()
    /// starts it again on the same port with the same data.
    bool kill();
    bool restart();
    /// Freezes and thaws the process (SIGSTOP/SIGCONT): a server that stops
    /// answering without closing its connections.
    bool suspend();
    bool resume();

    quint16 port() const { return m_port; }
    QString jid(const QString& user) const { return user + QStringLiteral("@default"); }
    QString errorString() const { return m_error; }
    /// The server's own log, for diagnosing a failed test.
    QString log() const;

private:
    bool writeConfig();
    bool launch();
    bool runTool(const QString& program, const QStringList& arguments);

    QTemporaryDir m_dir;
    QMap<QString, QString> m_users;
    bool m_sharedRoster = false;
    bool m_archive = true;
    std::unique_ptr<QProcess> m_process;
    bool m_suspended = false;
    quint16 m_port = 0;
    QString m_error;
};
