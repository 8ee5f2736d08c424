#include "logbuscapture.h"

#include <QTest>

LogbusCapture::LogbusCapture()
{
    m_tapId = Logbus::addTap([this](const LogRecord& record) { append(record); });
}

LogbusCapture::~LogbusCapture()
{
    // Returns only once no thread is inside the tap any more.
    Logbus::removeTap(m_tapId);
}

void LogbusCapture::append(const LogRecord& record)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_records.append(record);
}

QList<LogRecord> LogbusCapture::records() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_records;
}

QStringList LogbusCapture::texts() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QStringList out;
    out.reserve(m_records.size());
    for (const LogRecord& r : m_records)
        out << r.text;
    return out;
}

bool LogbusCapture::contains(int priority, const QString& substring) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const LogRecord& r : m_records)
        if (r.priority == priority && r.text.contains(substring))
            return true;
    return false;
}

int LogbusCapture::count(const QString& substring) const
{
    return texts().filter(substring).size();
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
