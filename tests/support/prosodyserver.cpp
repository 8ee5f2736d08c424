#include "prosodyserver.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QHostAddress>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTextStream>

#include <csignal>
#include <sys/types.h>
#include <unistd.h>

namespace {

quint16 freePort()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0))
        return 0;
    return probe.serverPort();
}

QString luaString(const QString& text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
        .replace(QLatin1Char('"'), QLatin1String("\\\""));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

} // namespace

ProsodyServer::ProsodyServer() = default;

ProsodyServer::~ProsodyServer()
{
    stop();
}

bool ProsodyServer::isInstalled()
{
    return !QStandardPaths::findExecutable(QStringLiteral("prosody")).isEmpty()
        && !QStandardPaths::findExecutable(QStringLiteral("prosodyctl")).isEmpty();
}

void ProsodyServer::addUser(const QString& user, const QString& password)
{
    m_users.insert(user, password);
}

qint64 ProsodyServer::pid() const
{
    return m_process ? m_process->processId() : 0;
}

QString ProsodyServer::log() const
{
    QFile file(m_dir.filePath(QStringLiteral("prosody.log")));
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

bool ProsodyServer::runTool(const QString& program, const QStringList& arguments)
{
    QProcess tool;
    tool.setProcessChannelMode(QProcess::MergedChannels);
    tool.start(program, arguments);
    if (!tool.waitForFinished(30000)) {
        tool.kill();
        tool.waitForFinished(1000);
        m_error = program + QStringLiteral(" did not finish");
        return false;
    }
    if (tool.exitStatus() != QProcess::NormalExit || tool.exitCode() != 0) {
        m_error = program + QStringLiteral(" failed: ") + QString::fromLocal8Bit(tool.readAll());
        return false;
    }
    return true;
}

bool ProsodyServer::makeCertificate()
{
    return runTool(QStringLiteral("openssl"),
                   {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                    QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-days"),
                    QStringLiteral("30"), QStringLiteral("-subj"), QStringLiteral("/CN=") + domain(),
                    QStringLiteral("-addext"),
                    QStringLiteral("subjectAltName=DNS:%1,IP:127.0.0.1").arg(domain()),
                    QStringLiteral("-keyout"), m_dir.filePath(QStringLiteral("server.key")),
                    QStringLiteral("-out"), m_dir.filePath(QStringLiteral("server.crt"))});
}

bool ProsodyServer::writeConfig()
{
    if (m_sharedRoster) {
        QFile groups(m_dir.filePath(QStringLiteral("groups.txt")));
        if (!groups.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        QTextStream out(&groups);
        out << "[Team]\n";
        for (auto it = m_users.cbegin(); it != m_users.cend(); ++it)
            out << jid(it.key()) << '\n';
    }

    QFile file(m_dir.filePath(QStringLiteral("prosody.cfg.lua")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        m_error = QStringLiteral("cannot write the configuration");
        return false;
    }
    QTextStream out(&file);
    // Refuses to start as root, and then hangs, unless told otherwise.
    if (geteuid() == 0)
        out << "run_as_root = true\n";
    out << "daemonize = false\n"
        << "pidfile = " << luaString(m_dir.filePath(QStringLiteral("prosody.pid"))) << '\n'
        << "data_path = " << luaString(m_dir.filePath(QStringLiteral("data"))) << '\n'
        << "admin_socket = " << luaString(m_dir.filePath(QStringLiteral("prosody.sock"))) << '\n'
        << "log = { debug = " << luaString(m_dir.filePath(QStringLiteral("prosody.log"))) << " }\n"
        << "interfaces = { \"127.0.0.1\" }\n"
        << "c2s_ports = { " << m_port << " }\n"
        << "s2s_ports = { }\nhttp_ports = { }\nhttps_ports = { }\n"
        << "modules_disabled = { \"s2s\" }\n"
        << "c2s_require_encryption = true\n"
        << "authentication = \"internal_hashed\"\n"
        << "storage = \"internal\"\n"
        << "default_archive_policy = true\n"
        << "ssl = { key = " << luaString(m_dir.filePath(QStringLiteral("server.key")))
        << ", certificate = " << luaString(m_dir.filePath(QStringLiteral("server.crt")))
        << " }\n"
        // The archive's older namespace is served by a module of the tests.
        << "plugin_paths = { " << luaString(QStringLiteral(TELVIX_TEST_PROSODY_PLUGINS)) << " }\n"
        << "modules_enabled = { \"roster\", \"saslauth\", \"tls\", \"disco\", \"ping\", \"carbons\", "
           "\"offline\", \"vcard_legacy\", \"private\", \"posix\""
        << (m_archive ? ", \"mam\", \"mam_v1\"" : "") << (m_sharedRoster ? ", \"groups\"" : "") << " }\n";
    if (m_sharedRoster)
        out << "groups_file = " << luaString(m_dir.filePath(QStringLiteral("groups.txt"))) << '\n';
    out << "VirtualHost " << luaString(domain()) << '\n';
    return true;
}

bool ProsodyServer::registerUsers()
{
    for (auto it = m_users.cbegin(); it != m_users.cend(); ++it) {
        if (!runTool(QStringLiteral("prosodyctl"),
                     {QStringLiteral("--config"), m_dir.filePath(QStringLiteral("prosody.cfg.lua")),
                      QStringLiteral("register"), it.key(), domain(), it.value()}))
            return false;
    }
    return true;
}

bool ProsodyServer::launch()
{
    m_process = std::make_unique<QProcess>();
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    m_process->setStandardOutputFile(m_dir.filePath(QStringLiteral("prosody.out")));
    m_process->start(QStringLiteral("prosody"),
                     {QStringLiteral("--config"), m_dir.filePath(QStringLiteral("prosody.cfg.lua")),
                      QStringLiteral("-F")});
    if (!m_process->waitForStarted(5000)) {
        m_error = QStringLiteral("prosody did not start");
        m_process.reset();
        return false;
    }
    const QDeadlineTimer deadline(10000);
    while (!deadline.hasExpired()) {
        if (m_process->state() != QProcess::Running) {
            m_error = QStringLiteral("prosody exited: ") + log();
            m_process.reset();
            return false;
        }
        // A taken port does not stop the server; it only says so in its log.
        if (log().contains(QLatin1String("Failed to open server port"))) {
            m_error = QStringLiteral("port taken");
            stop();
            return false;
        }
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, m_port);
        if (probe.waitForConnected(200))
            return true;
        probe.abort();
        m_process->waitForFinished(50);
    }
    m_error = QStringLiteral("prosody does not listen: ") + log();
    stop();
    return false;
}

bool ProsodyServer::start()
{
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("no temporary directory");
        return false;
    }
    if (!makeCertificate())
        return false;
    bool registered = false;
    for (int attempt = 0; attempt < 3; ++attempt) {
        m_port = freePort();
        if (!m_port || !writeConfig())
            return false;
        if (!registered) {
            if (!registerUsers())
                return false;
            registered = true;
        }
        if (launch())
            return true;
        if (m_error != QLatin1String("port taken"))
            return false;
    }
    return false;
}

bool ProsodyServer::suspend()
{
    if (!m_process || m_suspended)
        return false;
    m_suspended = ::kill(pid_t(m_process->processId()), SIGSTOP) == 0;
    return m_suspended;
}

bool ProsodyServer::resume()
{
    if (!m_process || !m_suspended)
        return false;
    m_suspended = ::kill(pid_t(m_process->processId()), SIGCONT) != 0;
    return !m_suspended;
}

bool ProsodyServer::killAndRestart()
{
    if (!m_process)
        return false;
    m_process->kill();
    m_process->waitForFinished(5000);
    m_process.reset();
    m_suspended = false;
    return launch();
}

void ProsodyServer::stop()
{
    if (!m_process)
        return;
    if (m_suspended)
        resume();
    if (m_process->state() != QProcess::NotRunning) {
        m_process->terminate();
        if (!m_process->waitForFinished(5000)) {
            m_process->kill();
            m_process->waitForFinished(5000);
        }
    }
    m_process.reset();
}
