#include "logbus.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/ansicolor_sink.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QStringList>

#include <algorithm>
#include <atomic>
#include <climits>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

namespace {

constexpr qint64 kDefaultMaxFileSize = 10 * 1024 * 1024;
constexpr int kDefaultMaxRotatedFiles = 5;
constexpr int kDefaultLinePriority = LGBS::PriorityDetail;
// spdlog refuses more rotated files than this.
constexpr int kMaxRotatedFilesLimit = 200000;

QString defaultTimeStampFormat()
{
    return QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz");
}

// The console writer colours by spdlog level, so priorities are mapped onto
// levels by band. Raw data (negative priorities) is not an error.
spdlog::level::level_enum levelForPriority(int priority)
{
    if (priority < 0)
        return spdlog::level::trace;
    if (priority <= LGBS::PriorityError)
        return spdlog::level::err;
    if (priority <= LGBS::PriorityWarning)
        return spdlog::level::warn;
    if (priority <= LGBS::PriorityNotable)
        return spdlog::level::info;
    if (priority <= LGBS::PriorityDetail)
        return spdlog::level::debug;
    return spdlog::level::trace;
}

QString variantText(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QStringList:
        // QVariant only converts one-element lists to a string.
        return QLatin1Char('(') + value.toStringList().join(QLatin1String(", ")) + QLatin1Char(')');
    case QMetaType::QByteArray:
        return QString::fromUtf8(value.toByteArray());
    default:
        break;
    }
    if (value.isValid() && value.canConvert<QString>())
        return value.toString();
    QString out;
    QDebug(&out).nospace().noquote() << value;
    return out;
}

std::string toStdPath(const QString& path)
{
    return QFile::encodeName(path).toStdString();
}

/// Hands each formatted line to a function; base_sink's mutex serialises calls.
class CallbackSink final : public spdlog::sinks::base_sink<std::mutex>
{
public:
    explicit CallbackSink(std::function<void(const QString&)> fn)
        : m_fn(std::move(fn))
    {
    }

protected:
    void sink_it_(const spdlog::details::log_msg& msg) override
    {
        spdlog::memory_buf_t formatted;
        formatter_->format(msg, formatted);
        int size = int(formatted.size());
        while (size > 0 && (formatted.data()[size - 1] == '\n' || formatted.data()[size - 1] == '\r'))
            --size;
        m_fn(QString::fromUtf8(formatted.data(), size));
    }
    void flush_() override { }

private:
    std::function<void(const QString&)> m_fn;
};

/// One file writer per canonical path for the whole process, so that loggers
/// sharing a file also share its lock and its rotation bookkeeping.
struct FileWriterRegistry
{
    std::mutex mutex;
    QHash<QString, std::weak_ptr<spdlog::sinks::sink>> sinks;
};

FileWriterRegistry& fileWriterRegistry()
{
    // Never destroyed: loggers may still write during static destruction.
    static auto* registry = new FileWriterRegistry;
    return *registry;
}

struct Tap
{
    std::function<void(const LogRecord&)> fn;
    // Guarded by the registry's mutex: threads inside fn right now, and
    // whether removeTap has taken the tap out.
    int busy = 0;
    bool removed = false;
};

// Taps run outside the lock, so that a tap may log; removeTap waits for the
// tap's running calls to end before it returns.
struct TapRegistry
{
    std::mutex mutex;
    std::condition_variable idle;
    std::map<int, std::shared_ptr<Tap>> taps;
    int nextId = 1;
    std::atomic<int> count {0};
};

TapRegistry& tapRegistry()
{
    static auto* registry = new TapRegistry;
    return *registry;
}

void runTaps(const LogRecord& record)
{
    TapRegistry& registry = tapRegistry();
    if (registry.count.load(std::memory_order_acquire) == 0)
        return;
    std::vector<std::shared_ptr<Tap>> taps;
    {
        std::lock_guard<std::mutex> lock(registry.mutex);
        taps.reserve(registry.taps.size());
        for (const auto& entry : registry.taps)
            taps.push_back(entry.second);
    }
    for (const auto& tap : taps) {
        {
            // Marked busy only right before its own call, so that a tap may
            // remove another one that this thread has not reached yet.
            std::lock_guard<std::mutex> lock(registry.mutex);
            if (tap->removed)
                continue;
            ++tap->busy;
        }
        struct Done
        {
            TapRegistry& registry;
            Tap& tap;
            ~Done()
            {
                std::lock_guard<std::mutex> lock(registry.mutex);
                if (--tap.busy == 0)
                    registry.idle.notify_all();
            }
        } done {registry, *tap};
        tap->fn(record);
    }
}

struct BusRegistry
{
    std::mutex mutex;
    QHash<QString, Logbus*> buses;
};

BusRegistry& busRegistry()
{
    static auto* registry = new BusRegistry;
    return *registry;
}

/// A line being built by one thread for one logger.
struct PendingLine
{
    int priority = kDefaultLinePriority;
    bool started = false;
    int items = 0;
    QString text;
};

// Keyed by the logger's serial number rather than its address, so that a new
// logger at a freed address never inherits a half line of a deleted one.
thread_local std::unordered_map<quint64, PendingLine> t_pendingLines;

std::atomic<quint64> g_nextLoggerSerial {1};

} // namespace

// ---- LGBS::ConsoleColorScheme ------------------------------------------

LGBS::ConsoleColorScheme LGBS::ConsoleColorScheme::defaultColorScheme()
{
    ConsoleColorScheme scheme;
    scheme.errorColor = QStringLiteral("\033[1;31m");
    scheme.warningColor = QStringLiteral("\033[33m");
    scheme.notableColor = QStringLiteral("\033[32m");
    scheme.detailColor = QString();
    return scheme;
}

LGBS::ConsoleColorScheme LGBS::ConsoleColorScheme::noColors()
{
    return ConsoleColorScheme();
}

// ---- WriterConfig --------------------------------------------------------

WriterConfig::WriterConfig()
    : maxFileSizeBytes(kDefaultMaxFileSize)
    , maxRotatedFiles(kDefaultMaxRotatedFiles)
{
}

WriterConfig::WriterConfig(int maxFileSizeMiB, int maxRotated)
    : maxFileSizeBytes(qint64(maxFileSizeMiB) * 1024 * 1024)
    , maxRotatedFiles(maxRotated)
{
}

WriterConfig WriterConfig::withByteLimit(qint64 maxFileSizeBytes, int maxRotatedFiles)
{
    WriterConfig config;
    config.maxFileSizeBytes = maxFileSizeBytes;
    config.maxRotatedFiles = maxRotatedFiles;
    return config;
}

// ---- LogWriter ----------------------------------------------------------

class LogWriterPrivate
{
public:
    explicit LogWriterPrivate(spdlog::sink_ptr s)
        : sink(std::move(s))
    {
    }
    spdlog::sink_ptr sink;
};

LogWriter::LogWriter() = default;
LogWriter::~LogWriter() = default;
LogWriter::LogWriter(const LogWriter&) = default;
LogWriter& LogWriter::operator=(const LogWriter&) = default;

bool LogWriter::isValid() const
{
    return d && d->sink;
}

// ---- Logger -------------------------------------------------------------

class LoggerPrivate
{
public:
    LoggerPrivate(const QString& loggerName, quint64 loggerSerial)
        : name(loggerName)
        , serial(loggerSerial)
        , moduleName(loggerName)
        , spd(std::make_shared<spdlog::logger>(loggerName.toStdString()))
    {
        // Filtering is done by priority number before spdlog sees a line.
        spd->set_level(spdlog::level::trace);
        // Every line reaches the disk at once: the log is read while the
        // process runs and must survive a crash.
        spd->flush_on(spdlog::level::trace);
    }

    PendingLine& pending() { return t_pendingLines[serial]; }
    void write(int priority, const QString& text);

    const QString name;
    const quint64 serial;
    Logbus* bus = nullptr;
    std::atomic<int> level {INT_MAX};

    // Guards the module name and the spdlog logger's list of sinks, which
    // writers may be added to while other threads log.
    mutable std::shared_mutex lock;
    QString moduleName;
    std::shared_ptr<spdlog::logger> spd;
};

namespace {
// Local time of a line's timestamp. Converting to local time makes glibc
// look at the time-zone file on every call, which dominated busy logging;
// the UTC offset is therefore looked up once a minute per thread.
QDateTime localNow()
{
    thread_local qint64 offsetMinute = -1;
    thread_local int offsetSeconds = 0;
    const QDateTime utc = QDateTime::currentDateTimeUtc();
    const qint64 minute = utc.toSecsSinceEpoch() / 60;
    if (minute != offsetMinute) {
        offsetSeconds = QDateTime::currentDateTime().offsetFromUtc();
        offsetMinute = minute;
    }
    return utc.toOffsetFromUtc(offsetSeconds);
}
} // namespace

void LoggerPrivate::write(int priority, const QString& text)
{
    if (priority > level.load(std::memory_order_relaxed))
        return;
    const QString format = bus ? bus->timeStampFormat() : defaultTimeStampFormat();
    const QString stamp = localNow().toString(format);
    QString module;
    {
        std::shared_lock<std::shared_mutex> locker(lock);
        module = moduleName;
        const QByteArray line = (stamp + QLatin1String(" [") + module + QLatin1String("] ")
                                 + QString::number(priority) + QLatin1Char(' ') + text)
                                    .toUtf8();
        // The source_loc overload writes the text as it is, without treating
        // braces as format fields.
        spd->log(spdlog::source_loc {}, levelForPriority(priority),
                 spdlog::string_view_t(line.constData(), size_t(line.size())));
    }
    runTaps(LogRecord {name, module, priority, text});
}

Logger::Logger(const QString& name)
    : QObject(nullptr)
    , d(new LoggerPrivate(name, g_nextLoggerSerial.fetch_add(1)))
{
    setObjectName(name);
}

Logger::~Logger()
{
    t_pendingLines.erase(d->serial);
}

QString Logger::name() const
{
    return d->name;
}

void Logger::setModuleName(const QString& moduleName)
{
    std::unique_lock<std::shared_mutex> locker(d->lock);
    d->moduleName = moduleName;
}

QString Logger::moduleName() const
{
    std::shared_lock<std::shared_mutex> locker(d->lock);
    return d->moduleName;
}

void Logger::setVerbosityAcceptedLevel(const int& level)
{
    d->level.store(level, std::memory_order_relaxed);
}

int Logger::verbosityAcceptedLevel() const
{
    return d->level.load(std::memory_order_relaxed);
}

void Logger::flush()
{
    std::shared_lock<std::shared_mutex> locker(d->lock);
    d->spd->flush();
}

void Logger::log(int priority, const QString& text)
{
    d->write(priority, text);
}

void Logger::appendItem(const QString& item)
{
    PendingLine& line = d->pending();
    line.started = true;
    // A line that will be dropped is not worth building.
    if (line.priority > d->level.load(std::memory_order_relaxed))
        return;
    if (line.items++ > 0)
        line.text += QLatin1Char(' ');
    line.text += item;
}

Logger& Logger::operator<<(LGBS::LogMessagePriorityType priority)
{
    PendingLine& line = d->pending();
    line.started = true;
    line.priority = int(priority);
    return *this;
}

Logger& Logger::operator<<(LGBS::LogStreamManipType manip)
{
    switch (manip) {
    case LGBS::endl: {
        PendingLine& line = d->pending();
        if (!line.started)
            break;
        const int priority = line.priority;
        const QString text = std::move(line.text);
        line = PendingLine();
        d->write(priority, text);
        break;
    }
    case LGBS::flush:
        flush();
        break;
    }
    return *this;
}

Logger& Logger::operator<<(const QVariant& value)
{
    appendItem(variantText(value));
    return *this;
}

Logger& Logger::operator<<(unsigned long value)
{
    appendItem(QString::number(value));
    return *this;
}

Logger& Logger::operator<<(const QString& value)
{
    appendItem(value);
    return *this;
}

Logger& Logger::operator<<(QLatin1String value)
{
    appendItem(QString(value));
    return *this;
}

Logger& Logger::operator<<(const QByteArray& value)
{
    appendItem(QString::fromUtf8(value));
    return *this;
}

Logger& Logger::operator<<(const char* value)
{
    appendItem(QString::fromUtf8(value));
    return *this;
}

Logger& Logger::operator<<(QChar value)
{
    appendItem(QString(value));
    return *this;
}

Logger& Logger::operator<<(char value)
{
    appendItem(QString(QLatin1Char(value)));
    return *this;
}

Logger& Logger::operator<<(int value)
{
    appendItem(QString::number(value));
    return *this;
}

Logger& Logger::operator<<(unsigned int value)
{
    appendItem(QString::number(value));
    return *this;
}

Logger& Logger::operator<<(long value)
{
    appendItem(QString::number(value));
    return *this;
}

Logger& Logger::operator<<(long long value)
{
    appendItem(QString::number(value));
    return *this;
}

Logger& Logger::operator<<(unsigned long long value)
{
    appendItem(QString::number(value));
    return *this;
}

Logger& Logger::operator<<(double value)
{
    appendItem(QString::number(value));
    return *this;
}

Logger& Logger::operator<<(bool value)
{
    appendItem(value ? QStringLiteral("true") : QStringLiteral("false"));
    return *this;
}

Logger& Logger::operator<<(const void* pointer)
{
    appendItem(QLatin1String("0x") + QString::number(quintptr(pointer), 16));
    return *this;
}

// ---- Logbus -------------------------------------------------------------

class LogbusPrivate
{
public:
    explicit LogbusPrivate(const QString& busName)
        : name(busName)
    {
    }

    const QString name;
    mutable std::mutex mutex;
    QString timeStampFormat = defaultTimeStampFormat();
};

Logbus::Logbus(const QString& name)
    : d(new LogbusPrivate(name))
{
}

Logbus::~Logbus() = default;

Logbus* Logbus::instance(const QString& name, int /*reserved*/)
{
    BusRegistry& registry = busRegistry();
    std::lock_guard<std::mutex> locker(registry.mutex);
    Logbus*& bus = registry.buses[name];
    if (!bus)
        bus = new Logbus(name);
    return bus;
}

QString Logbus::name() const
{
    return d->name;
}

void Logbus::setTimeStampFormat(const QString& format)
{
    std::lock_guard<std::mutex> locker(d->mutex);
    d->timeStampFormat = format.isEmpty() ? defaultTimeStampFormat() : format;
}

QString Logbus::timeStampFormat() const
{
    std::lock_guard<std::mutex> locker(d->mutex);
    return d->timeStampFormat;
}

Logger* Logbus::createFileLogger(const QString& loggerName, const QString& path, const WriterConfig& config,
                                 int& result)
{
    const LogWriter writer = getFileWriter(path, config, result);
    if (!writer.isValid())
        return nullptr;
    auto* logger = new Logger(loggerName);
    logger->d->bus = this;
    addWriterToLogger(logger, writer);
    return logger;
}

LogWriter Logbus::getFileWriter(const QString& path, const WriterConfig& config, int& result)
{
    const QFileInfo info(path);
    if (path.isEmpty() || info.fileName().isEmpty() || config.maxRotatedFiles < 0
        || config.maxRotatedFiles > kMaxRotatedFilesLimit) {
        result = ERROR_BAD_ARGUMENT;
        return LogWriter();
    }
    const QDir dir = info.absoluteDir();
    if (!dir.mkpath(QStringLiteral("."))) {
        result = ERROR_OPEN_FILE;
        return LogWriter();
    }
    // The canonical directory makes "a/./b/log.txt", "a/b/log.txt" and a path
    // through a symbolic link one key.
    const QString key = dir.canonicalPath() + QLatin1Char('/') + info.fileName();

    FileWriterRegistry& registry = fileWriterRegistry();
    std::lock_guard<std::mutex> locker(registry.mutex);
    spdlog::sink_ptr sink = registry.sinks.value(key).lock();
    if (!sink) {
        try {
            if (config.maxFileSizeBytes > 0) {
                sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
                    toStdPath(key), size_t(config.maxFileSizeBytes), size_t(config.maxRotatedFiles));
            } else {
                sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(toStdPath(key));
            }
        } catch (const std::exception&) {
            result = ERROR_OPEN_FILE;
            return LogWriter();
        }
        sink->set_pattern("%v");
        sink->set_level(spdlog::level::trace);
        registry.sinks.insert(key, sink);
    }
    LogWriter writer;
    writer.d = std::make_shared<LogWriterPrivate>(sink);
    result = DEFAULT_OK;
    return writer;
}

LogWriter Logbus::getConsoleWriter(LGBS::ConsoleColorScheme scheme, const WriterConfig& /*config*/,
                                   int& result)
{
    auto sink = std::make_shared<spdlog::sinks::ansicolor_stderr_sink_mt>(spdlog::color_mode::automatic);
    // %^ and %$ mark the range that the sink colours: the whole line.
    sink->set_pattern("%^%v%$");
    sink->set_level(spdlog::level::trace);
    const auto colour = [&sink](spdlog::level::level_enum lvl, const QString& escape) {
        sink->set_color(lvl, escape.toStdString());
    };
    colour(spdlog::level::critical, scheme.errorColor);
    colour(spdlog::level::err, scheme.errorColor);
    colour(spdlog::level::warn, scheme.warningColor);
    colour(spdlog::level::info, scheme.notableColor);
    colour(spdlog::level::debug, scheme.detailColor);
    colour(spdlog::level::trace, scheme.detailColor);
    LogWriter writer;
    writer.d = std::make_shared<LogWriterPrivate>(sink);
    result = DEFAULT_OK;
    return writer;
}

LogWriter Logbus::getCallbackWriter(std::function<void(const QString& line)> sinkFunction)
{
    LogWriter writer;
    if (!sinkFunction)
        return writer;
    auto sink = std::make_shared<CallbackSink>(std::move(sinkFunction));
    sink->set_pattern("%v");
    sink->set_level(spdlog::level::trace);
    writer.d = std::make_shared<LogWriterPrivate>(sink);
    return writer;
}

void Logbus::addWriterToLogger(const Logger* logger, const LogWriter& writer)
{
    if (!logger || !writer.isValid())
        return;
    LoggerPrivate* ld = logger->d.get();
    std::unique_lock<std::shared_mutex> locker(ld->lock);
    std::vector<spdlog::sink_ptr>& sinks = ld->spd->sinks();
    if (std::find(sinks.begin(), sinks.end(), writer.d->sink) == sinks.end())
        sinks.push_back(writer.d->sink);
}

int Logbus::addTap(std::function<void(const LogRecord&)> tap)
{
    if (!tap)
        return 0;
    TapRegistry& registry = tapRegistry();
    std::lock_guard<std::mutex> locker(registry.mutex);
    const int id = registry.nextId++;
    registry.taps.emplace(id, std::make_shared<Tap>(Tap {std::move(tap), 0}));
    registry.count.store(int(registry.taps.size()), std::memory_order_release);
    return id;
}

void Logbus::removeTap(int id)
{
    TapRegistry& registry = tapRegistry();
    std::unique_lock<std::mutex> locker(registry.mutex);
    const auto it = registry.taps.find(id);
    if (it == registry.taps.end())
        return;
    const std::shared_ptr<Tap> tap = it->second;
    tap->removed = true;
    registry.taps.erase(it);
    registry.count.store(int(registry.taps.size()), std::memory_order_release);
    registry.idle.wait(locker, [&tap] { return tap->busy == 0; });
}
