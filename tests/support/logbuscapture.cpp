#include "logbuscapture.h"

#include <QTest>

LogbusCapture::LogbusCapture()
{
    m_tapId = Logbus::addTap([this](const LogRecord& record) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_records.append(record);
    });
}

LogbusCapture::~LogbusCapture()
{
    // Returns only once no thread is inside the tap any more.
    Logbus::removeTap(m_tapId);
}

QList<LogRecord> LogbusCapture::records() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_records;
}

QStringList LogbusCapture::texts(int priority) const
{
    QStringList out;
    for (const LogRecord& r : records())
        if (priority == kAny || r.priority == priority)
            out << r.text;
    return out;
}

void LogbusCapture::clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_records.clear();
}

bool LogbusCapture::waitFor(const QString& substring, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return contains(substring); }, timeoutMs);
}
