#pragma once

// What the end-to-end benchmarks share: the main thread's wait for work done
// on other threads, and the silencing of logs that would otherwise measure
// the terminal.

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>

namespace BenchLoop {

inline void silence(QtMsgType, const QMessageLogContext&, const QString&) { }

/// Runs the main thread's events until `done` holds. The loop sleeps between
/// events, so that the main thread does not take a core from the others by
/// polling; what `done` waits for must wake it (a socket event, or
/// wakeMainThread()).
inline bool spinUntil(const std::function<bool()>& done, int timeoutMs = 60000)
{
    const QDeadlineTimer deadline(timeoutMs);
    QTimer watchdog;
    watchdog.start(std::max(1, timeoutMs / 10));
    while (!done()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (deadline.hasExpired())
            return false;
    }
    return true;
}

inline void wakeMainThread()
{
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [] {}, Qt::QueuedConnection);
}

/// Sends standard error (the library's console log) to /dev/null while it
/// lives; restore() ends that earlier.
class QuietStderr
{
public:
    QuietStderr()
    {
        std::fflush(stderr);
        m_saved = dup(STDERR_FILENO);
        m_devNull = open("/dev/null", O_WRONLY);
        dup2(m_devNull, STDERR_FILENO);
    }
    ~QuietStderr() { restore(); }
    QuietStderr(const QuietStderr&) = delete;
    QuietStderr& operator=(const QuietStderr&) = delete;

    void restore()
    {
        if (m_saved < 0)
            return;
        std::fflush(stderr);
        dup2(m_saved, STDERR_FILENO);
        close(m_devNull);
        close(m_saved);
        m_saved = -1;
    }

private:
    int m_saved = -1;
    int m_devNull = -1;
};

} // namespace BenchLoop
