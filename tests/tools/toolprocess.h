#pragma once

#include <QtTest>

#include <functional>

/// One of the tools as a child process: its output kept line by line and
/// read as JSON where it is, its input fed line by line. Waiting runs the
/// event loop until a line arrives.
struct ToolProcess : QProcess
{
    ToolProcess(const QString& program, const QStringList& arguments, const QString& dir = {},
                bool isJson = false)
        : json(isJson)
    {
        setProgram(program);
        setArguments(arguments);
        setWorkingDirectory(dir);
    }
    ~ToolProcess() override { kill(), waitForFinished(5000); }
    bool start() { return QProcess::start(), waitForStarted(10000); }
    QString errorOutput() { return QString::fromLocal8Bit(readAllStandardError()); }
    void sendLine(const QByteArray& line) { write(line + '\n'); }
    /// The first JSON line not taken yet that `match` accepts; empty on timeout.
    QJsonObject take(const std::function<bool(const QJsonObject&)>& match, int timeoutMs)
    {
        int found = -1;
        const auto look = [&] {
            read();
            for (int i = 0; i < objects.size() && found < 0; ++i) {
                if (!taken.contains(i) && match(objects.at(i)))
                    found = i;
            }
            return found >= 0;
        };
        if (!QTest::qWaitFor(look, timeoutMs))
            return {};
        taken.insert(found);
        return objects.at(found);
    }
    QString waitForLine(const QString& text, int timeoutMs = 10000)
    {
        QString hit;
        (void)QTest::qWaitFor([&] { return read(), !(hit = lines.filter(text).value(0)).isEmpty(); },
                              timeoutMs);
        return hit;
    }
    bool waitForExit(int timeoutMs = 15000)
    {
        const bool done = state() == QProcess::NotRunning || waitForFinished(timeoutMs);
        read();
        return done;
    }
    void read()
    {
        pending += readAllStandardOutput();
        for (int newline; (newline = pending.indexOf('\n')) >= 0; pending.remove(0, newline + 1)) {
            lines.append(QString::fromUtf8(pending.left(newline)));
            const QJsonDocument doc = QJsonDocument::fromJson(pending.left(newline));
            if (doc.isObject())
                objects.append(doc.object());
            else
                nonJson.append(lines.last()); // a --json client prints none of these
        }
    }

    const bool json;
    QStringList lines, nonJson;
    QByteArray pending;
    QList<QJsonObject> objects;
    QSet<int> taken;
};
