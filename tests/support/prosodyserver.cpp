#include "prosodyserver.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>

#include <csignal>

bool ProsodyServer::isInstalled()
{
    return !QStandardPaths::findExecutable(QStringLiteral("prosody")).isEmpty()
        && !QStandardPaths::findExecutable(QStringLiteral("prosodyctl")).isEmpty();
}

QString ProsodyServer::log() const
{
    QFile file(m_dir.filePath(QStringLiteral("prosody.log")));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

bool ProsodyServer::runTool(const QString& program, const QStringList& arguments)
{
    QProcess tool;
    tool.setProcessChannelMode(QProcess::MergedChannels);
    tool.start(program, arguments);
    if (tool.waitForFinished(30000) && tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0)
        return true;
    m_error = program + QStringLiteral(" failed: ") + QString::fromLocal8Bit(tool.readAll());
    return false;
}

bool ProsodyServer::writeConfig()
{
    QFile in(QStringLiteral(TELVIX_TEST_PROSODY_PLUGINS "/prosody.cfg.lua.in"));
    QFile config(m_dir.filePath(QStringLiteral("prosody.cfg.lua")));
    QFile groups(m_dir.filePath(QStringLiteral("groups.txt")));
    if (!in.open(QIODevice::ReadOnly) || !config.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || !groups.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        m_error = QStringLiteral("cannot write the configuration");
        return false;
    }
    groups.write("[Team]\n");
    for (const QString& user : m_users.keys())
        groups.write(jid(user).toUtf8() + '\n');
    const QString modules = QLatin1String(m_archive ? ", \"mam\", \"mam_v1\"" : "")
        + QLatin1String(m_sharedRoster ? ", \"groups\"" : "");
    config.write(QString::fromUtf8(in.readAll())
                     .replace(QLatin1String("@DIR@"), m_dir.path())
                     .replace(QLatin1String("@PORT@"), QString::number(m_port))
                     .replace(QLatin1String("@PLUGINS@"), QStringLiteral(TELVIX_TEST_PROSODY_PLUGINS))
                     .replace(QLatin1String("@MODULES@"), modules)
                     .replace(QLatin1String("@CERT@"), QStringLiteral(TELVIX_TEST_CERT))
                     .replace(QLatin1String("@KEY@"), QStringLiteral(TELVIX_TEST_KEY))
                     .toUtf8());
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
    // An exited process is no longer started; its log says why.
    const QDeadlineTimer deadline(10000);
    while (!deadline.hasExpired() && m_process->waitForStarted(5000)) {
        // A taken port does not stop the server; it only says so in its log.
        if (log().contains(QLatin1String("Failed to open server port"))) {
            stop();
            m_error = QStringLiteral("port taken");
            return false;
        }
        QTcpSocket probe;
        probe.connectToHost(QStringLiteral("127.0.0.1"), m_port);
        if (probe.waitForConnected(200))
            return true;
        m_process->waitForFinished(50);
    }
    stop();
    m_error = QStringLiteral("prosody does not listen: ") + log();
    return false;
}

bool ProsodyServer::start()
{
    if (!m_dir.isValid())
        return false;
    for (int attempt = 0; attempt < 3; ++attempt) {
        QTcpServer probe;
        if (!probe.listen(QHostAddress::LocalHost, 0))
            return false;
        m_port = probe.serverPort();
        probe.close();
        if (!writeConfig())
            return false;
        for (auto it = m_users.cbegin(); attempt == 0 && it != m_users.cend(); ++it) {
            if (!runTool(QStringLiteral("prosodyctl"),
                         {QStringLiteral("--config"), m_dir.filePath(QStringLiteral("prosody.cfg.lua")),
                          QStringLiteral("register"), it.key(), QStringLiteral("default"), it.value()}))
                return false;
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
    return m_process && !m_suspended && (m_suspended = ::kill(pid_t(m_process->processId()), SIGSTOP) == 0);
}

bool ProsodyServer::resume()
{
    return m_process && m_suspended && !(m_suspended = ::kill(pid_t(m_process->processId()), SIGCONT) != 0);
}

bool ProsodyServer::kill()
{
    if (!m_process)
        return false;
    m_process->kill();
    m_suspended = false;
    return m_process->waitForFinished(5000);
}

bool ProsodyServer::restart()
{
    return launch();
}

void ProsodyServer::stop()
{
    if (!m_process)
        return;
    resume();
    m_process->terminate();
    if (!m_process->waitForFinished(5000)) {
        m_process->kill();
        m_process->waitForFinished(5000);
    }
    m_process.reset();
}
