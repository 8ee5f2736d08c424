#pragma once

#include "logbus.h"

#include <QStringList>

#include <climits>
#include <mutex>

/// Captures every record written through any Logbus logger of the process
/// while it lives, so that tests can assert the library's log texts and
/// priorities. Records from all threads are collected.
class LogbusCapture
{
public:
    LogbusCapture();
    ~LogbusCapture();
    LogbusCapture(const LogbusCapture&) = delete;
    LogbusCapture& operator=(const LogbusCapture&) = delete;

    QList<LogRecord> records() const;
    /// The texts of the records, without timestamp, module or priority.
    QStringList texts() const { return texts(kAny); }
    /// The texts of the records of one priority.
    QStringList texts(int priority) const;
    /// True if some record's text contains `substring`.
    bool contains(const QString& substring) const { return count(substring) > 0; }
    /// True if some record of that priority contains `substring`.
    bool contains(int priority, const QString& substring) const
    {
        return !texts(priority).filter(substring).isEmpty();
    }
    /// How many records contain `substring`.
    int count(const QString& substring) const { return texts().filter(substring).size(); }
    void clear();
    /// Spins the event loop until a record contains `substring` or the time is
    /// up; returns whether it arrived.
    bool waitFor(const QString& substring, int timeoutMs = 5000) const;

private:
    static constexpr int kAny = INT_MIN;

    mutable std::mutex m_mutex;
    QList<LogRecord> m_records;
    int m_tapId = 0;
};
