#include "toolprocess.h"

#include <QJsonDocument>
#include <QTest>

ToolProcess::ToolProcess(const QString& program, const QStringList& arguments)
{
    m_process.setProgram(program);
    m_process.setArguments(arguments);
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, [this] { readOutput(); });
}

ToolProcess::~ToolProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool ToolProcess::start()
{
    m_process.start();
    return m_process.waitForStarted(10000);
}

void ToolProcess::sendLine(const QString& line)
{
    m_process.write(line.toUtf8() + '\n');
}

void ToolProcess::send(const QJsonObject& command)
{
    sendLine(QString::fromUtf8(QJsonDocument(command).toJson(QJsonDocument::Compact)));
}

void ToolProcess::readOutput()
{
    m_pending += m_process.readAllStandardOutput();
    int newline;
    while ((newline = m_pending.indexOf('\n')) >= 0) {
        const QByteArray line = m_pending.left(newline);
        m_pending.remove(0, newline + 1);
        m_lines.append(QString::fromUtf8(line));
        const QJsonDocument doc = QJsonDocument::fromJson(line);
        if (doc.isObject()) {
            m_objects.append(doc.object());
            m_taken.append(false);
        }
    }
}

QJsonObject ToolProcess::take(const Match& match, int timeoutMs)
{
    int found = -1;
    const auto look = [&] {
        readOutput();
        for (int i = 0; i < m_objects.size(); ++i) {
            if (!m_taken.at(i) && match(m_objects.at(i))) {
                found = i;
                return true;
            }
        }
        return false;
    };
    if (!QTest::qWaitFor(look, timeoutMs))
        return QJsonObject();
    m_taken[found] = true;
    return m_objects.at(found);
}

QJsonObject ToolProcess::takeSignal(const QString& name, const Match& match, int timeoutMs)
{
    return take(
        [&](const QJsonObject& o) {
            return o.value(QLatin1String("signal")).toString() == name && (!match || match(o));
        },
        timeoutMs);
}

QJsonObject ToolProcess::takeAnswer(const QJsonValue& id, int timeoutMs)
{
    return take(
        [&](const QJsonObject& o) {
            return o.contains(QLatin1String("id")) && o.value(QLatin1String("id")) == id;
        },
        timeoutMs);
}

QString ToolProcess::waitForLine(const QString& text, int timeoutMs)
{
    QString hit;
    const bool found = QTest::qWaitFor(
        [&] {
            readOutput();
            for (const QString& line : qAsConst(m_lines)) {
                if (line.contains(text)) {
                    hit = line;
                    return true;
                }
            }
            return false;
        },
        timeoutMs);
    return found ? hit : QString();
}

bool ToolProcess::waitForExit(int timeoutMs)
{
    const bool done = m_process.state() == QProcess::NotRunning || m_process.waitForFinished(timeoutMs);
    readOutput();
    return done;
}

QStringList ToolProcess::nonJsonLines() const
{
    QStringList result;
    for (const QString& line : m_lines) {
        if (!QJsonDocument::fromJson(line.toUtf8()).isObject())
            result.append(line);
    }
    return result;
}
