#include "logbus.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QPointer>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

using Streamer = std::function<void(Logger&)>;
Q_DECLARE_METATYPE(Streamer)

namespace {

const QString kStamp = QStringLiteral(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3})");

QStringList fileLines(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    QStringList lines = QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

// Each test gets a bus of its own so that timestamp formats do not leak.
Logbus* freshBus()
{
    static int n = 0;
    return Logbus::instance(QStringLiteral("tst_logbus bus %1").arg(++n));
}

LGBS::LogMessagePriorityType p(int n)
{
    return LGBS::LogMessagePriorityType(n);
}

std::unique_ptr<Logger> fileLogger(const QString& name, const QString& path,
                                   const WriterConfig& config = WriterConfig())
{
    int result = -1;
    std::unique_ptr<Logger> logger(freshBus()->createFileLogger(name, path, config, result));
    if (result != Logbus::DEFAULT_OK)
        logger.reset();
    return logger;
}

/// Collects tap records; removes its tap when destroyed.
class Recorder
{
public:
    Recorder()
    {
        m_id = Logbus::addTap([this](const LogRecord& r) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_records.append(r);
        });
    }
    ~Recorder() { Logbus::removeTap(m_id); }
    QList<LogRecord> records() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_records;
    }
    QList<LogRecord> of(const QString& loggerName) const
    {
        QList<LogRecord> out;
        const QList<LogRecord> all = records();
        for (const LogRecord& r : all)
            if (r.loggerName == loggerName)
                out << r;
        return out;
    }

private:
    mutable std::mutex m_mutex;
    QList<LogRecord> m_records;
    int m_id = 0;
};

} // namespace

class tst_Logbus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void priorityFilter_data();
    void priorityFilter();
    void lineLayout_data();
    void lineLayout();
    void streamItems_data();
    void streamItems();
    void halfLinesStayWithTheirThread();
    void sharedFileFromSeveralThreads();
    void rotationKeepsConfiguredCount();
    void failedOpen_data();
    void failedOpen();
    void createsMissingDirectories();
    void tapsSeeAcceptedRecordsOfAllLoggers();
    void tapMayLogAndRemoveAnotherTap();
    void callbackWriterGetsFormattedLines();
    void consoleWriterWritesToStandardError_data();
    void consoleWriterWritesToStandardError();
    void deleteLaterReleasesLogger();
    void instanceIsOnePerName();
};

void tst_Logbus::priorityFilter_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<int>("priority");
    QTest::addColumn<bool>("accepted");

    QTest::newRow("raw data at 10000") << 10000 << -1 << true;
    QTest::newRow("error at 10000") << 10000 << 10 << true;
    QTest::newRow("warning at 10000") << 10000 << 100 << true;
    QTest::newRow("notable at 10000") << 10000 << 1000 << true;
    QTest::newRow("detail at 10000") << 10000 << 10000 << true;
    QTest::newRow("one above 10000") << 10000 << 10001 << false;
    QTest::newRow("traffic at 10000") << 10000 << 100000 << false;
    QTest::newRow("error at 10") << 10 << 10 << true;
    QTest::newRow("warning at 10") << 10 << 50 << false;
    QTest::newRow("raw data below it") << -2 << -1 << false;
}

void tst_Logbus::priorityFilter()
{
    QFETCH(int, level);
    QFETCH(int, priority);
    QFETCH(bool, accepted);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("log.txt"));
    Recorder recorder;
    auto logger = fileLogger(QStringLiteral("filter"), path);
    QVERIFY(logger);
    logger->setVerbosityAcceptedLevel(level);

    *logger << LGBS::LogMessagePriorityType(priority) << "streamed" << QVariant(5) << LGBS::endl;
    logger->log(priority, QStringLiteral("whole"));

    const QStringList lines = fileLines(path);
    const QList<LogRecord> records = recorder.of(QStringLiteral("filter"));
    if (!accepted) {
        QVERIFY2(lines.isEmpty(), qPrintable(lines.join(QLatin1Char('\n'))));
        QVERIFY(records.isEmpty());
        return;
    }
    QCOMPARE(lines.size(), 2);
    QVERIFY(lines.at(0).endsWith(QStringLiteral("] %1 streamed 5").arg(priority)));
    QVERIFY(lines.at(1).endsWith(QStringLiteral("] %1 whole").arg(priority)));
    QCOMPARE(records.size(), 2);
    QCOMPARE(records.at(0).priority, priority);
    QCOMPARE(records.at(0).text, QStringLiteral("streamed 5"));
    QCOMPARE(records.at(1).text, QStringLiteral("whole"));
}

void tst_Logbus::lineLayout_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QString>("stampPattern");

    QTest::newRow("date and milliseconds") << QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz") << kStamp;
    QTest::newRow("time only") << QStringLiteral("hh:mm:ss") << QStringLiteral(R"(\d{2}:\d{2}:\d{2})");
    QTest::newRow("compact with literal")
        << QStringLiteral("yyyyMMdd'T'hhmmss") << QStringLiteral(R"(\d{8}T\d{6})");
}

void tst_Logbus::lineLayout()
{
    QFETCH(QString, format);
    QFETCH(QString, stampPattern);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("telvixLog.txt"));
    Logbus* bus = freshBus();
    bus->setTimeStampFormat(format);
    QCOMPARE(bus->timeStampFormat(), format);

    int result = -1;
    std::unique_ptr<Logger> named(
        bus->createFileLogger(QStringLiteral("Telvix"), path, WriterConfig(), result));
    QCOMPARE(result, Logbus::DEFAULT_OK);
    named->setModuleName(QStringLiteral("TELVIX"));
    std::unique_ptr<Logger> plain(
        bus->createFileLogger(QStringLiteral("Plain"), path, WriterConfig(), result));
    QCOMPARE(result, Logbus::DEFAULT_OK);

    *named << LGBS::LogMessagePriorityType(1000) << "Thread started" << QVariant(5) << LGBS::endl;
    *plain << LGBS::LogMessagePriorityType(-1) << "<raw/>" << LGBS::endl;

    const QStringList lines = fileLines(path);
    QCOMPARE(lines.size(), 2);
    const QRegularExpression first(
        QStringLiteral("^(%1) \\[TELVIX\\] 1000 Thread started 5$").arg(stampPattern));
    const QRegularExpressionMatch m = first.match(lines.at(0));
    QVERIFY2(m.hasMatch(), qPrintable(lines.at(0)));
    QVERIFY(QDateTime::fromString(m.captured(1), format).isValid());
    // Without a module name the logger's own name stands in the brackets.
    const QRegularExpression second(QStringLiteral("^%1 \\[Plain\\] -1 <raw/>$").arg(stampPattern));
    QVERIFY2(second.match(lines.at(1)).hasMatch(), qPrintable(lines.at(1)));
}

void tst_Logbus::streamItems_data()
{
    QTest::addColumn<Streamer>("stream");
    QTest::addColumn<int>("priority");
    QTest::addColumn<QString>("text");

    QTest::newRow("text and variant") << Streamer([](Logger& l) { l << p(1000) << "text" << QVariant(5); })
                                      << 1000 << QStringLiteral("text 5");
    QTest::newRow("numbers") << Streamer([](Logger& l) {
        l << p(10) << 7 << -3L << 42UL << 1234567890123LL << 3u << 18446744073709551615ULL << 2.5;
    }) << 10 << QStringLiteral("7 -3 42 1234567890123 3 18446744073709551615 2.5");
    QTest::newRow("text types") << Streamer([](Logger& l) {
        l << p(100) << QStringLiteral("str") << QLatin1String("lat") << QByteArray("bytes") << 'c'
          << QChar(0x00e9) << true << false;
    }) << 100 << QStringLiteral("str lat bytes c \u00e9 true false");
    QTest::newRow("variants") << Streamer([](Logger& l) {
        l << p(1000) << QVariant(QStringList {QStringLiteral("x"), QStringLiteral("y")}) << QVariant()
          << QVariant(QStringLiteral("s")) << QVariant(2.25) << QVariant(QByteArray("raw"));
    }) << 1000 << QStringLiteral("(x, y) QVariant(Invalid) s 2.25 raw");
    QTest::newRow("braces are not format fields")
        << Streamer([](Logger& l) { l << p(1000) << "{} {0} {:>9}"; }) << 1000
        << QStringLiteral("{} {0} {:>9}");
    QTest::newRow("empty item keeps its blanks") << Streamer([](Logger& l) {
        l << p(1000) << "a"
          << ""
          << "b";
    }) << 1000 << QStringLiteral("a  b");
    QTest::newRow("null pointer") << Streamer([](Logger& l) {
        l << p(1000) << static_cast<const void*>(nullptr);
    }) << 1000 << QStringLiteral("0x0");
    QTest::newRow("no priority counts as detail")
        << Streamer([](Logger& l) { l << "plain"; }) << 10000 << QStringLiteral("plain");
    QTest::newRow("priority after items")
        << Streamer([](Logger& l) { l << "late" << p(10); }) << 10 << QStringLiteral("late");
    QTest::newRow("flush leaves the line open")
        << Streamer([](Logger& l) { l << p(1000) << "before" << LGBS::flush << "after"; }) << 1000
        << QStringLiteral("before after");
    QTest::newRow("non-latin text") << Streamer([](Logger& l) {
        l << p(1000) << "Grüße" << QStringLiteral("ğ");
    }) << 1000 << QStringLiteral("Grüße ğ");
}

void tst_Logbus::streamItems()
{
    QFETCH(Streamer, stream);
    QFETCH(int, priority);
    QFETCH(QString, text);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("items.log"));
    Recorder recorder;
    auto logger = fileLogger(QStringLiteral("items"), path);
    QVERIFY(logger);

    *logger << LGBS::endl; // nothing started: writes nothing
    stream(*logger);
    QVERIFY(recorder.of(QStringLiteral("items")).isEmpty());
    *logger << LGBS::endl;

    const QList<LogRecord> records = recorder.of(QStringLiteral("items"));
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.at(0).priority, priority);
    QCOMPARE(records.at(0).text, text);
    const QStringList lines = fileLines(path);
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.at(0).endsWith(QStringLiteral("[items] %1 %2").arg(priority).arg(text)),
             qPrintable(lines.at(0)));
}

void tst_Logbus::halfLinesStayWithTheirThread()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    Recorder recorder;
    auto logger = fileLogger(QStringLiteral("halves"), dir.filePath(QStringLiteral("h.log")));
    QVERIFY(logger);

    *logger << LGBS::LogMessagePriorityType(1000) << "main"
            << "first";
    std::thread worker([&logger] {
        *logger << LGBS::LogMessagePriorityType(10) << "worker"
                << "whole" << LGBS::endl;
        *logger << LGBS::LogMessagePriorityType(10) << "worker left open";
    });
    worker.join();
    *logger << "second" << LGBS::endl;

    const QList<LogRecord> records = recorder.of(QStringLiteral("halves"));
    QCOMPARE(records.size(), 2);
    QCOMPARE(records.at(0).text, QStringLiteral("worker whole"));
    QCOMPARE(records.at(0).priority, 10);
    QCOMPARE(records.at(1).text, QStringLiteral("main first second"));
    QCOMPARE(records.at(1).priority, 1000);
}

void tst_Logbus::sharedFileFromSeveralThreads()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    // Two spellings of one path must still give one shared writer.
    const QString path = dir.filePath(QStringLiteral("logs/shared.log"));
    const QString otherSpelling = dir.filePath(QStringLiteral("logs/./shared.log"));
    auto alpha = fileLogger(QStringLiteral("alpha"), path);
    auto beta = fileLogger(QStringLiteral("beta"), otherSpelling);
    QVERIFY(alpha && beta);
    alpha->setModuleName(QStringLiteral("ALPHA"));
    beta->setModuleName(QStringLiteral("BETA"));

    constexpr int kThreads = 4;
    constexpr int kLines = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        Logger* logger = t % 2 ? beta.get() : alpha.get();
        threads.emplace_back([logger, t] {
            const QString payload(40, QLatin1Char(char('a' + t)));
            for (int i = 0; i < kLines; ++i)
                *logger << LGBS::LogMessagePriorityType(1000) << "thread" << t << "line" << i << "payload"
                        << payload << "end" << LGBS::endl;
        });
    }
    for (auto& thread : threads)
        thread.join();

    const QStringList lines = fileLines(path);
    QCOMPARE(lines.size(), kThreads * kLines);
    const QRegularExpression re(
        QStringLiteral("^%1 \\[(ALPHA|BETA)\\] 1000 thread (\\d) line (\\d+) payload ([a-z]{40}) end$")
            .arg(kStamp));
    std::vector<int> next(kThreads, 0);
    for (const QString& line : lines) {
        const QRegularExpressionMatch m = re.match(line);
        QVERIFY2(m.hasMatch(), qPrintable(line));
        const int t = m.captured(2).toInt();
        QVERIFY(t < kThreads);
        QCOMPARE(m.captured(1), QString::fromLatin1(t % 2 ? "BETA" : "ALPHA"));
        QCOMPARE(m.captured(4), QString(40, QLatin1Char(char('a' + t))));
        // Each thread's lines arrive whole and in the order it wrote them.
        QCOMPARE(m.captured(3).toInt(), next[t]);
        ++next[t];
    }
    for (int t = 0; t < kThreads; ++t)
        QCOMPARE(next[t], kLines);
}

void tst_Logbus::rotationKeepsConfiguredCount()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    constexpr qint64 kLimit = 2048;
    constexpr int kKept = 3;
    constexpr int kLines = 400;
    const QString path = dir.filePath(QStringLiteral("rot.log"));
    // Two loggers on one path: rotation must see the size of both.
    auto first = fileLogger(QStringLiteral("first"), path, WriterConfig(kLimit, kKept));
    auto second = fileLogger(QStringLiteral("second"), path, WriterConfig(kLimit, kKept));
    QVERIFY(first && second);
    for (int i = 0; i < kLines; ++i)
        *(i % 2 ? second : first) << LGBS::LogMessagePriorityType(1000) << "seq" << i
                                  << QString(30, QLatin1Char('.')) << LGBS::endl;

    const QStringList files = QDir(dir.path()).entryList(QDir::Files, QDir::Name);
    QCOMPARE(files,
             (QStringList {QStringLiteral("rot.1.log"), QStringLiteral("rot.2.log"),
                           QStringLiteral("rot.3.log"), QStringLiteral("rot.log")}));

    // Oldest first: the kept files hold the last lines without a gap.
    QList<int> seqs;
    const QRegularExpression re(QStringLiteral("\\] 1000 seq (\\d+) \\.{30}$"));
    for (const QString& name : {QStringLiteral("rot.3.log"), QStringLiteral("rot.2.log"),
                                QStringLiteral("rot.1.log"), QStringLiteral("rot.log")}) {
        const QString file = dir.filePath(name);
        QVERIFY2(QFileInfo(file).size() <= kLimit, qPrintable(name));
        const QStringList lines = fileLines(file);
        QVERIFY2(!lines.isEmpty(), qPrintable(name));
        for (const QString& line : lines) {
            const QRegularExpressionMatch m = re.match(line);
            QVERIFY2(m.hasMatch(), qPrintable(line));
            seqs << m.captured(1).toInt();
        }
    }
    QCOMPARE(seqs.last(), kLines - 1);
    QVERIFY(seqs.first() > 0);
    for (int i = 1; i < seqs.size(); ++i)
        QCOMPARE(seqs.at(i), seqs.at(i - 1) + 1);
}

void tst_Logbus::failedOpen_data()
{
    QTest::addColumn<QString>("relativePath");
    QTest::addColumn<qint64>("maxSize");
    QTest::addColumn<int>("maxFiles");
    QTest::addColumn<int>("expected");

    QTest::newRow("below a regular file")
        << QStringLiteral("blocker/sub/log.txt") << qint64(1024) << 2 << Logbus::ERROR_OPEN_FILE;
    QTest::newRow("file is a regular file's child")
        << QStringLiteral("blocker/log.txt") << qint64(1024) << 2 << Logbus::ERROR_OPEN_FILE;
    QTest::newRow("path is a directory")
        << QStringLiteral("adir") << qint64(1024) << 2 << Logbus::ERROR_OPEN_FILE;
    QTest::newRow("directory without size limit")
        << QStringLiteral("adir") << qint64(0) << 2 << Logbus::ERROR_OPEN_FILE;
    QTest::newRow("empty path") << QString() << qint64(1024) << 2 << Logbus::ERROR_BAD_ARGUMENT;
    QTest::newRow("negative rotation count")
        << QStringLiteral("ok.log") << qint64(1024) << -1 << Logbus::ERROR_BAD_ARGUMENT;
}

void tst_Logbus::failedOpen()
{
    QFETCH(QString, relativePath);
    QFETCH(qint64, maxSize);
    QFETCH(int, maxFiles);
    QFETCH(int, expected);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QFile blocker(dir.filePath(QStringLiteral("blocker")));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("adir")));

    const QString path = relativePath.isEmpty() ? QString() : dir.filePath(relativePath);
    int result = Logbus::DEFAULT_OK;
    std::unique_ptr<Logger> logger(
        freshBus()->createFileLogger(QStringLiteral("bad"), path, WriterConfig(maxSize, maxFiles), result));
    QVERIFY(!logger);
    QCOMPARE(result, expected);
    QVERIFY(QFileInfo(blocker.fileName()).isFile());
}

void tst_Logbus::createsMissingDirectories()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("msgDump/deeper/telvixMsg.log"));
    auto logger = fileLogger(QStringLiteral("deep"), path);
    QVERIFY(logger);
    logger->log(1000, QStringLiteral("hello"));
    const QStringList lines = fileLines(path);
    QCOMPARE(lines.size(), 1);
    QVERIFY(lines.at(0).endsWith(QStringLiteral("[deep] 1000 hello")));
}

void tst_Logbus::tapsSeeAcceptedRecordsOfAllLoggers()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    auto one = fileLogger(QStringLiteral("tap one"), dir.filePath(QStringLiteral("one.log")));
    auto two = fileLogger(QStringLiteral("tap two"), dir.filePath(QStringLiteral("two.log")));
    QVERIFY(one && two);
    one->setModuleName(QStringLiteral("ONE"));
    one->setVerbosityAcceptedLevel(10000);

    std::mutex mutex;
    QList<LogRecord> seen;
    int calls = 0;
    const int id = Logbus::addTap([&](const LogRecord& r) {
        std::lock_guard<std::mutex> lock(mutex);
        if (r.loggerName.startsWith(QLatin1String("tap ")))
            seen << r;
    });
    const int counter = Logbus::addTap([&](const LogRecord& r) {
        std::lock_guard<std::mutex> lock(mutex);
        if (r.loggerName.startsWith(QLatin1String("tap ")))
            ++calls;
    });
    QVERIFY(id != counter);

    *one << LGBS::LogMessagePriorityType(10) << "from one" << LGBS::endl;
    *one << LGBS::LogMessagePriorityType(100000) << "dropped" << LGBS::endl;
    std::thread worker([&two] { two->log(-1, QStringLiteral("<from two/>")); });
    worker.join();

    Logbus::removeTap(id);
    one->log(10, QStringLiteral("after removal"));
    Logbus::removeTap(counter);

    std::lock_guard<std::mutex> lock(mutex);
    QCOMPARE(seen.size(), 2);
    QCOMPARE(seen.at(0).loggerName, QStringLiteral("tap one"));
    QCOMPARE(seen.at(0).moduleName, QStringLiteral("ONE"));
    QCOMPARE(seen.at(0).priority, 10);
    QCOMPARE(seen.at(0).text, QStringLiteral("from one"));
    QCOMPARE(seen.at(1).loggerName, QStringLiteral("tap two"));
    QCOMPARE(seen.at(1).moduleName, QStringLiteral("tap two"));
    QCOMPARE(seen.at(1).priority, -1);
    QCOMPARE(seen.at(1).text, QStringLiteral("<from two/>"));
    QCOMPARE(calls, 3);
}

void tst_Logbus::tapMayLogAndRemoveAnotherTap()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    auto logger = fileLogger(QStringLiteral("tap inner"), dir.filePath(QStringLiteral("inner.log")));
    QVERIFY(logger);

    QStringList firstSeen;
    QStringList secondSeen;
    int second = 0;
    const int first = Logbus::addTap([&](const LogRecord& r) {
        if (r.loggerName != QLatin1String("tap inner"))
            return;
        firstSeen << r.text;
        if (r.text == QLatin1String("trigger")) {
            // The second tap comes after this one and has not run yet.
            Logbus::removeTap(second);
            logger->log(1000, QStringLiteral("logged from a tap"));
        }
    });
    second = Logbus::addTap([&](const LogRecord& r) {
        if (r.loggerName == QLatin1String("tap inner"))
            secondSeen << r.text;
    });

    logger->log(1000, QStringLiteral("plain"));
    logger->log(1000, QStringLiteral("trigger"));
    logger->log(1000, QStringLiteral("after"));
    Logbus::removeTap(first);

    QCOMPARE(firstSeen,
             (QStringList {QStringLiteral("plain"), QStringLiteral("trigger"),
                           QStringLiteral("logged from a tap"), QStringLiteral("after")}));
    QCOMPARE(secondSeen, QStringList {QStringLiteral("plain")});
    QCOMPARE(fileLines(dir.filePath(QStringLiteral("inner.log"))).size(), 4);
}

void tst_Logbus::callbackWriterGetsFormattedLines()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("cb.log"));
    Logbus* bus = freshBus();
    int result = -1;
    std::unique_ptr<Logger> first(bus->createFileLogger(QStringLiteral("cb1"), path, WriterConfig(), result));
    std::unique_ptr<Logger> second(
        bus->createFileLogger(QStringLiteral("cb2"), path, WriterConfig(), result));
    QVERIFY(first && second);

    QStringList received;
    const LogWriter writer = bus->getCallbackWriter([&received](const QString& line) { received << line; });
    QVERIFY(writer.isValid());
    QVERIFY(!bus->getCallbackWriter(nullptr).isValid());
    bus->addWriterToLogger(first.get(), writer);
    bus->addWriterToLogger(first.get(), writer); // a second time: still one output
    bus->addWriterToLogger(second.get(), LogWriter(writer));
    bus->addWriterToLogger(second.get(), LogWriter()); // invalid: ignored

    *first << LGBS::LogMessagePriorityType(1000) << "one" << LGBS::endl;
    second->log(10, QStringLiteral("two"));
    first->log(100000, QStringLiteral("three"));

    QCOMPARE(received, fileLines(path));
    QCOMPARE(received.size(), 3);
    QVERIFY(received.at(1).endsWith(QStringLiteral("[cb2] 10 two")));
}

void tst_Logbus::consoleWriterWritesToStandardError_data()
{
    QTest::addColumn<bool>("colours");
    QTest::newRow("default colours") << true;
    QTest::newRow("no colours") << false;
}

void tst_Logbus::consoleWriterWritesToStandardError()
{
    QFETCH(bool, colours);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    auto logger = fileLogger(QStringLiteral("console"), dir.filePath(QStringLiteral("c.log")));
    QVERIFY(logger);
    int result = -1;
    const LGBS::ConsoleColorScheme scheme
        = colours ? LGBS::ConsoleColorScheme::defaultColorScheme() : LGBS::ConsoleColorScheme::noColors();
    const LogWriter writer = freshBus()->getConsoleWriter(scheme, WriterConfig(), result);
    QCOMPARE(result, Logbus::DEFAULT_OK);
    freshBus()->addWriterToLogger(logger.get(), writer);

    // Standard error goes to a file for the time of the test; it is not a
    // terminal, so no colour codes may appear.
    const QString errPath = dir.filePath(QStringLiteral("stderr.txt"));
    fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    const int fd = ::open(QFile::encodeName(errPath).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    QVERIFY(saved >= 0 && fd >= 0);
    ::dup2(fd, STDERR_FILENO);
    ::close(fd);
    for (int priority : {-1, 10, 50, 100, 1000, 10000})
        *logger << LGBS::LogMessagePriorityType(priority) << "console line" << priority << LGBS::endl;
    logger->flush();
    fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);

    QFile err(errPath);
    QVERIFY(err.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(err.readAll());
    for (int priority : {-1, 10, 50, 100, 1000, 10000})
        QVERIFY2(text.contains(QStringLiteral("[console] %1 console line %1\n").arg(priority)),
                 qPrintable(text));
    QVERIFY(!text.contains(QLatin1Char('\033')));
}

void tst_Logbus::deleteLaterReleasesLogger()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("later.log"));
    int result = -1;
    QPointer<Logger> logger
        = freshBus()->createFileLogger(QStringLiteral("later"), path, WriterConfig(), result);
    QVERIFY(logger);
    // The library drops every connection of a logger before letting it go.
    int destroyedSeen = 0;
    connect(logger, &QObject::destroyed, this, [&destroyedSeen] { ++destroyedSeen; });
    QVERIFY(QObject::disconnect(logger, nullptr, nullptr, nullptr));
    *logger << LGBS::LogMessagePriorityType(1000) << "before deletion" << LGBS::endl;
    // A half line left behind must not reach the next logger.
    *logger << LGBS::LogMessagePriorityType(1000) << "half";
    logger->flush();
    logger->deleteLater();
    QTRY_VERIFY(logger.isNull());
    QCOMPARE(destroyedSeen, 0);

    std::unique_ptr<Logger> again(
        freshBus()->createFileLogger(QStringLiteral("later"), path, WriterConfig(), result));
    QCOMPARE(result, Logbus::DEFAULT_OK);
    *again << "whole" << LGBS::endl;

    const QStringList lines = fileLines(path);
    QCOMPARE(lines.size(), 2);
    QVERIFY(lines.at(0).endsWith(QStringLiteral("[later] 1000 before deletion")));
    QVERIFY(lines.at(1).endsWith(QStringLiteral("[later] 10000 whole")));
}

void tst_Logbus::instanceIsOnePerName()
{
    const QString name = QStringLiteral("tst_logbus shared instance");
    constexpr int kThreads = 4;
    Logbus* got[kThreads] = {};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&got, t, name] { got[t] = Logbus::instance(name, t); });
    for (auto& thread : threads)
        thread.join();
    for (Logbus* bus : got)
        QCOMPARE(bus, Logbus::instance(name));
    QCOMPARE(got[0]->name(), name);

    Logbus* other = Logbus::instance(name + QLatin1String(" 2"));
    QVERIFY(other != got[0]);
    other->setTimeStampFormat(QStringLiteral("hh"));
    QCOMPARE(got[0]->timeStampFormat(), QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
}

QTEST_GUILESS_MAIN(tst_Logbus)
#include "tst_logbus.moc"
