#pragma once

#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QStringList>

#include <functional>

/// \brief One of the tools run as a child process: its standard output
/// collected line by line (and read as JSON where it is), its input fed
/// line by line. Waiting runs the event loop until a line arrives.
class ToolProcess
{
public:
    ToolProcess(const QString& program, const QStringList& arguments);
    ~ToolProcess();
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    void setWorkingDirectory(const QString& dir) { m_process.setWorkingDirectory(dir); }
    bool start();
    void sendLine(const QString& line);
    void send(const QJsonObject& command);
    void closeInput() { m_process.closeWriteChannel(); }

    using Match = std::function<bool(const QJsonObject&)>;
    /// The first JSON line after the ones already taken that matches; an
    /// empty object when none comes within `timeoutMs`. Lines passed over
    /// stay available to later calls.
    QJsonObject take(const Match& match, int timeoutMs = 10000);
    /// take() of a signal by name, optionally also matching its arguments.
    QJsonObject takeSignal(const QString& name, const Match& match = {}, int timeoutMs = 10000);
    /// take() of the answer to the command with this id.
    QJsonObject takeAnswer(const QJsonValue& id, int timeoutMs = 10000);
    /// Waits for an output line containing `text`; empty on timeout.
    QString waitForLine(const QString& text, int timeoutMs = 10000);

    bool waitForExit(int timeoutMs = 15000);
    int exitCode() const { return m_process.exitCode(); }
    QStringList lines() const { return m_lines; }
    /// Output lines that are not JSON objects.
    QStringList nonJsonLines() const;
    QString errorOutput() { return QString::fromLocal8Bit(m_process.readAllStandardError()); }

private:
    void readOutput();

    QProcess m_process;
    QByteArray m_pending;
    QStringList m_lines;
    QList<QJsonObject> m_objects;
    QList<bool> m_taken;
};
