#pragma once

#include <logbus.h>

#include <QString>
#include <QVariant>

#include <type_traits>

// One line of the main log: the priority, then the function's name, then
// the items, written when the statement ends. A null logger (creation
// failed, or not yet made) swallows the line.
class TelvixLogLine
{
public:
    TelvixLogLine(Logger* logger, int priority, const char* function)
        : m_logger(logger)
    {
        if (m_logger)
            *m_logger << LGBS::LogMessagePriorityType(priority) << function;
    }
    ~TelvixLogLine()
    {
        if (m_logger)
            *m_logger << LGBS::endl;
    }
    TelvixLogLine(const TelvixLogLine&) = delete;
    TelvixLogLine& operator=(const TelvixLogLine&) = delete;

    template <typename T> TelvixLogLine& operator<<(const T& value)
    {
        if (!m_logger)
            return *this;
        if constexpr (std::is_same_v<T, bool>)
            *m_logger << value;
        else if constexpr (std::is_enum_v<T>)
            *m_logger << qint64(value);
        else if constexpr (std::is_integral_v<T>)
            *m_logger << qint64(value);
        else if constexpr (std::is_floating_point_v<T>)
            *m_logger << double(value);
        else if constexpr (std::is_convertible_v<T, QString>)
            *m_logger << QString(value);
        else
            *m_logger << QVariant::fromValue(value);
        return *this;
    }

private:
    Logger* m_logger;
};

/// A file logger of the bus `busName`, with its module name (left as it is
/// when empty) and accepted level; null when it cannot be made.
inline Logger* makeFileLogger(const QString& busName, const QString& loggerName, const QString& path,
                              const WriterConfig& config, const QString& moduleName, int level)
{
    int result = Logbus::DEFAULT_OK;
    Logger* made = Logbus::instance(busName)->createFileLogger(loggerName, path, config, result);
    if (made && result != Logbus::DEFAULT_OK) {
        delete made;
        made = nullptr;
    }
    if (!made)
        return nullptr;
    if (!moduleName.isEmpty())
        made->setModuleName(moduleName);
    made->setVerbosityAcceptedLevel(level);
    return made;
}

// Main-log line of a TelvixPrivate member function (or of anything that has
// a `logger` in scope).
#define TLOG(priority) TelvixLogLine(logger, priority, Q_FUNC_INFO)
