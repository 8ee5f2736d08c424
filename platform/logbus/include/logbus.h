#pragma once
// Logbus: file and console loggers with numeric priorities, module names and a
// timestamp format. This is the platform's logging interface; the library only
// imports it.

#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>

#define LOGBUS_EXPORT __attribute__((visibility("default")))

namespace LGBS {

/// Priority of one line. Smaller is more important: 10 error, 50/100 warning,
/// 1000 notable, 10000 detail, 100000 traffic, -1 raw data. Any int is valid.
enum LogMessagePriorityType : int {
    PriorityRaw = -1,
    PriorityError = 10,
    PriorityWarningHigh = 50,
    PriorityWarning = 100,
    PriorityNotable = 1000,
    PriorityDetail = 10000,
    PriorityTraffic = 100000,
};

/// Stream manipulators: `endl` ends the line being built and writes it;
/// `flush` writes out what the outputs buffer and leaves the line open.
enum LogStreamManipType { endl, flush };

/// \brief Colours of the console writer by priority band, as ANSI escape
/// sequences. Colours are only used when the console is a terminal.
///
/// Bands: error for priorities 0 to 10, warning up to 100, notable up to 1000,
/// detail for everything else (raw data and traffic included).
class LOGBUS_EXPORT ConsoleColorScheme
{
public:
    static ConsoleColorScheme defaultColorScheme();
    static ConsoleColorScheme noColors();

    QString errorColor;
    QString warningColor;
    QString notableColor;
    QString detailColor;
};

} // namespace LGBS

/// \brief Settings of one writer. The limits matter to file writers only.
class LOGBUS_EXPORT WriterConfig
{
public:
    /// 10 MiB per file, 5 rotated files.
    WriterConfig();
    /// Limits as a configuration states them: megabytes (MiB) per file and
    /// the number of rotated files kept.
    WriterConfig(int maxFileSizeMiB, int maxRotatedFiles);
    /// The same with the size in bytes, for callers that need finer limits.
    static WriterConfig withByteLimit(qint64 maxFileSizeBytes, int maxRotatedFiles);

    /// A file is rotated when a line would grow it past this size (bytes);
    /// zero or less means that the file grows without limit.
    qint64 maxFileSizeBytes;
    /// How many rotated files ("name.1.txt" newest ... "name.N.txt" oldest) are
    /// kept beside the current one.
    int maxRotatedFiles;
};

class LogWriterPrivate;

/// \brief An output of a logger: a file, the console, or a callback. Cheap to
/// copy; copies share the same output.
class LOGBUS_EXPORT LogWriter
{
public:
    LogWriter();
    ~LogWriter();
    LogWriter(const LogWriter&);
    LogWriter& operator=(const LogWriter&);

    bool isValid() const;

private:
    friend class Logbus;
    std::shared_ptr<LogWriterPrivate> d;
};

/// One accepted record as handed to taps (see Logbus::addTap).
struct LOGBUS_EXPORT LogRecord
{
    QString loggerName;
    QString moduleName;
    int priority = 0;
    /// The line's text without timestamp, module and priority.
    QString text;
};

class LoggerPrivate;

/// \brief A named logger.
///
/// Lines are built with operator<< on the calling thread and written whole when
/// LGBS::endl arrives, so lines from several threads never interleave. A line
/// starts with its priority; one without a priority counts as
/// LGBS::PriorityDetail. Items are separated by one blank. Each written line
/// reads "<timestamp> [<module>] <priority> <text>".
class LOGBUS_EXPORT Logger : public QObject
{
    Q_OBJECT
public:
    ~Logger() override;

    QString name() const;
    /// Module name shown in each line; the logger's name until set.
    void setModuleName(const QString& moduleName);
    QString moduleName() const;
    /// Lines with a priority number above this level are dropped. Everything
    /// is accepted until a level is set.
    void setVerbosityAcceptedLevel(const int& level);
    int verbosityAcceptedLevel() const;
    /// Writes out whatever the outputs buffer.
    void flush();

    Logger& operator<<(LGBS::LogMessagePriorityType priority);
    Logger& operator<<(const QVariant& value);
    Logger& operator<<(unsigned long value);
    Logger& operator<<(LGBS::LogStreamManipType manip);
    // Overloads for common types, so that they need no QVariant detour and
    // none of them is ambiguous.
    Logger& operator<<(const QString& value);
    Logger& operator<<(QLatin1String value);
    Logger& operator<<(const QByteArray& value);
    Logger& operator<<(const char* value);
    Logger& operator<<(QChar value);
    Logger& operator<<(char value);
    Logger& operator<<(int value);
    Logger& operator<<(unsigned int value);
    Logger& operator<<(long value);
    Logger& operator<<(long long value);
    Logger& operator<<(unsigned long long value);
    Logger& operator<<(double value);
    Logger& operator<<(bool value);
    Logger& operator<<(const void* pointer);

    /// Writes one complete line at once.
    void log(int priority, const QString& text);

private:
    friend class Logbus;
    explicit Logger(const QString& name);
    void appendItem(const QString& item);
    std::unique_ptr<LoggerPrivate> d;
};

class LogbusPrivate;

/// \brief Process-wide logging hub. Instances are named singletons that live
/// as long as the process.
class LOGBUS_EXPORT Logbus
{
public:
    static constexpr int DEFAULT_OK = 0;
    static constexpr int ERROR_OPEN_FILE = 1;
    static constexpr int ERROR_BAD_ARGUMENT = 2;

    /// The named singleton. The second argument is reserved and ignored.
    static Logbus* instance(const QString& name, int reserved = 0);

    QString name() const;
    /// QDateTime format of each line's timestamp, for the loggers this
    /// instance creates ("yyyy-MM-dd hh:mm:ss.zzz" until set).
    void setTimeStampFormat(const QString& format);
    QString timeStampFormat() const;

    /// \brief A logger writing to `path`; the file and its directory are
    /// created if needed.
    ///
    /// Several loggers may share one path: they then share one file writer, so
    /// that their lines never interleave and rotation sees one size. The first
    /// writer opened on a path fixes its limits. The caller owns the logger.
    /// Returns null and sets `result` to an error code on failure.
    Logger* createFileLogger(const QString& loggerName, const QString& path, const WriterConfig& config,
                             int& result);
    /// The shared file writer of `path`, as createFileLogger uses it.
    LogWriter getFileWriter(const QString& path, const WriterConfig& config, int& result);
    /// A writer to the standard error stream.
    LogWriter getConsoleWriter(LGBS::ConsoleColorScheme scheme, const WriterConfig& config, int& result);
    /// \brief A writer that hands every formatted line, without line end, to
    /// `sink`. Calls are serialised; `sink` must not log through the same
    /// writer.
    LogWriter getCallbackWriter(std::function<void(const QString& line)> sink);
    /// Adds an output to a logger; adding the same writer twice does nothing.
    void addWriterToLogger(const Logger* logger, const LogWriter& writer);

    /// \brief Taps see every accepted record of every logger of the process;
    /// meant for diagnostics and tests. Returns an id for removeTap.
    ///
    /// A tap runs on the logging thread and may be called from several threads
    /// at once. It may log and add or remove other taps, but must not remove
    /// itself.
    static int addTap(std::function<void(const LogRecord&)> tap);
    /// Removes a tap; once this returns, the tap is no longer running anywhere.
    static void removeTap(int id);

private:
    explicit Logbus(const QString& name);
    ~Logbus();
    std::unique_ptr<LogbusPrivate> d;
};
