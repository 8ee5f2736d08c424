#pragma once

#include <QDebug>
#include <QMetaObject>
#include <QObject>
#include <QThread>

#include <functional>
#include <type_traits>
#include <utility>

// The one cross-thread mechanism of the public facade. Every public method
// that touches the session runs its body on the library's thread:
//  - queued: the call is posted and the caller gets true at once; on the
//    library's thread the body runs directly and its result is returned;
//  - blocking: the caller waits for the body's real result.
namespace TelvixHop {

enum class Report { OnFailure, Never };

inline bool onOwnThread(const QObject* target)
{
    return QThread::currentThread() == target->thread();
}

template <typename Body>
bool queued(QObject* target, Body&& body, Report report = Report::OnFailure, const char* caller = "")
{
    if (onOwnThread(target))
        return body();
    if (!QMetaObject::invokeMethod(target, std::forward<Body>(body), Qt::QueuedConnection)
        && report == Report::OnFailure) {
        qCritical() << caller << "invoke method failed!";
        return false;
    }
    return true;
}

// A blocking hop into a thread whose event loop has ended would wait for
// ever; such a call fails with `fallback` instead, after `onFailure`.
template <typename R, typename Body>
R blocking(QObject* target, Body&& body, R fallback = R(), const char* caller = "",
           const std::function<void()>& onFailure = {})
{
    if (onOwnThread(target))
        return body();
    QThread* thread = target->thread();
    R result = fallback;
    if (!thread || !thread->isRunning()
        || !QMetaObject::invokeMethod(target, std::forward<Body>(body), Qt::BlockingQueuedConnection,
                                      &result)) {
        qCritical() << caller << "invoke method failed!";
        if (onFailure)
            onFailure();
        return fallback;
    }
    return result;
}

} // namespace TelvixHop

// Public method bodies: `TELVIX_QUEUED(d->method(args));` captures the
// arguments by value and runs the private implementation on the library's
// thread. TELVIX_QUEUED_UNCHECKED is for the methods that always answer true.
#define TELVIX_QUEUED(call)                                                                                  \
    do {                                                                                                     \
        TelvixPrivate* const d = d_func();                                                                   \
        return TelvixHop::queued(                                                                            \
            this, [=]() -> bool { return call; }, TelvixHop::Report::OnFailure, Q_FUNC_INFO);                \
    } while (false)

#define TELVIX_QUEUED_UNCHECKED(call)                                                                        \
    do {                                                                                                     \
        TelvixPrivate* const d = d_func();                                                                   \
        return TelvixHop::queued(                                                                            \
            this, [=]() -> bool { return call; }, TelvixHop::Report::Never, Q_FUNC_INFO);                    \
    } while (false)

#define TELVIX_BLOCKING(type, call, fallback)                                                                \
    do {                                                                                                     \
        TelvixPrivate* const d = d_func();                                                                   \
        return TelvixHop::blocking<type>(                                                                    \
            this, [=]() -> type { return call; }, fallback, Q_FUNC_INFO);                                    \
    } while (false)
