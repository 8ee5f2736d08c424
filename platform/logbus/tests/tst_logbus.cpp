#include "logbus.h"

#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

namespace {

const QString kStamp = QStringLiteral(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3})");

QStringList fileLines(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()).split('\n', Qt::SkipEmptyParts)
                                       : QStringList();
}

// Each test gets a bus of its own so that timestamp formats do not leak.
auto freshBus = [n = 0]() mutable { return Logbus::instance(QStringLiteral("tst_logbus bus %1").arg(++n)); };

const auto p = [](int n) { return LGBS::LogMessagePriorityType(n); };

std::unique_ptr<Logger> fileLogger(const QString& name, const QString& path,
                                   const WriterConfig& config = WriterConfig(), Logbus* bus = freshBus())
{
    int result = -1;
    std::unique_ptr<Logger> logger(bus->createFileLogger(name, path, config, result));
    return result == Logbus::DEFAULT_OK ? std::move(logger) : nullptr;
}

// How each type of item is streamed, by the name a fixture row gives it.
const QHash<QString, std::function<void(Logger&, const QJsonValue&)>> kItems {
    {"priority", [](Logger& l, const QJsonValue& v) { l << p(v.toInt()); }},
    {"int", [](Logger& l, const QJsonValue& v) { l << v.toInt(); }},
    {"long", [](Logger& l, const QJsonValue& v) { l << long(v.toInt()); }},
    {"unsigned long", [](Logger& l, const QJsonValue& v) { l << (unsigned long)(v.toInt()); }},
    {"long long", [](Logger& l, const QJsonValue& v) { l << v.toString().toLongLong(); }},
    {"unsigned", [](Logger& l, const QJsonValue& v) { l << unsigned(v.toInt()); }},
    {"unsigned long long", [](Logger& l, const QJsonValue& v) { l << v.toString().toULongLong(); }},
    {"double", [](Logger& l, const QJsonValue& v) { l << v.toDouble(); }},
    {"QString", [](Logger& l, const QJsonValue& v) { l << v.toString(); }},
    {"QLatin1String", [](Logger& l, const QJsonValue& v) { l << QLatin1String(v.toString().toLatin1()); }},
    {"QByteArray", [](Logger& l, const QJsonValue& v) { l << v.toString().toUtf8(); }},
    {"char", [](Logger& l, const QJsonValue& v) { l << v.toString().at(0).toLatin1(); }},
    {"QChar", [](Logger& l, const QJsonValue& v) { l << v.toString().at(0); }},
    {"bool", [](Logger& l, const QJsonValue& v) { l << v.toBool(); }},
    {"text", [](Logger& l, const QJsonValue& v) { l << v.toString().toUtf8().constData(); }},
    {"int variant", [](Logger& l, const QJsonValue& v) { l << QVariant(v.toInt()); }},
    {"string list variant",
     [](Logger& l, const QJsonValue& v) { l << QVariant(v.toVariant().toStringList()); }},
    {"invalid variant", [](Logger& l, const QJsonValue&) { l << QVariant(); }},
    {"string variant", [](Logger& l, const QJsonValue& v) { l << QVariant(v.toString()); }},
    {"double variant", [](Logger& l, const QJsonValue& v) { l << QVariant(v.toDouble()); }},
    {"bytes variant", [](Logger& l, const QJsonValue& v) { l << QVariant(v.toString().toUtf8()); }},
    {"null pointer", [](Logger& l, const QJsonValue&) { l << static_cast<const void*>(nullptr); }},
    {"flush", [](Logger& l, const QJsonValue&) { l << LGBS::flush; }},
};

} // namespace

class tst_Logbus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_dir.reset(new QTemporaryDir); }

    void lineLayout_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("stampPattern");

        QTest::newRow("date and milliseconds") << QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz") << kStamp;
        QTest::newRow("compact with literal")
            << QStringLiteral("yyyyMMdd'T'hhmmss") << QStringLiteral(R"(\d{8}T\d{6})");
    }

    // A callback writer on both loggers gets the lines the file gets, once each.
    void lineLayout()
    {
        QFETCH(QString, format);
        QFETCH(QString, stampPattern);

        const QString file = path("telvixLog.txt");
        Logbus* bus = freshBus();
        bus->setTimeStampFormat(format);
        auto named = fileLogger(QStringLiteral("Telvix"), file, WriterConfig(), bus);
        auto plain = fileLogger(QStringLiteral("Plain"), file, WriterConfig(), bus);
        QVERIFY(named && plain);
        named->setModuleName(QStringLiteral("TELVIX"));
        QStringList received;
        const LogWriter writer
            = bus->getCallbackWriter([&received](const QString& line) { received << line; });
        QVERIFY(writer.isValid());
        QVERIFY(!bus->getCallbackWriter(nullptr).isValid());
        bus->addWriterToLogger(named.get(), writer);
        bus->addWriterToLogger(named.get(), writer);
        bus->addWriterToLogger(plain.get(), LogWriter(writer));
        bus->addWriterToLogger(plain.get(), LogWriter());

        *named << p(1000) << "Thread started" << QVariant(5) << LGBS::endl;
        *plain << p(-1) << "<raw/>" << LGBS::endl;

        const QStringList lines = fileLines(file);
        QCOMPARE(received, lines);
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

    void streamItems_data()
    {
        QTest::addColumn<QJsonObject>("row");
        QFile file(QStringLiteral(LOGBUS_TEST_FIXTURES "/stream_items.json"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        for (const QJsonValue& row : QJsonDocument::fromJson(file.readAll()).array())
            QTest::newRow(qPrintable(row["name"].toString())) << row.toObject();
    }

    void streamItems()
    {
        QFETCH(QJsonObject, row);
        const int priority = row["priority"].toInt();
        const QString text = row["text"].toString();

        QList<LogRecord> records;
        const int tap = Logbus::addTap([&records](const LogRecord& r) {
            if (r.loggerName == QLatin1String("items"))
                records << r;
        });
        const std::shared_ptr<void> untap(nullptr, [tap](void*) { Logbus::removeTap(tap); });
        auto logger = fileLogger(QStringLiteral("items"), path("items.log"));
        QVERIFY(logger);
        logger->setVerbosityAcceptedLevel(row["level"].toInt());
        *logger << LGBS::endl; // nothing started: writes nothing
        for (const QJsonValue& item : row["items"].toArray())
            kItems.value(item[0].toString())(*logger, item[1]);
        QVERIFY(records.isEmpty());
        *logger << LGBS::endl;
        logger->log(priority, QStringLiteral("whole"));

        const QStringList lines = fileLines(path("items.log"));
        if (text.isEmpty()) {
            QVERIFY2(lines.isEmpty() && records.isEmpty(), qPrintable(lines.join('\n')));
            return;
        }
        QCOMPARE(records.size(), 2);
        QCOMPARE(records.at(0).priority, priority);
        QCOMPARE(records.at(0).text, text);
        QCOMPARE(records.at(1).text, QStringLiteral("whole"));
        QCOMPARE(lines.size(), 2);
        QVERIFY2(lines.at(0).endsWith(QStringLiteral("[items] %1 %2").arg(priority).arg(text)),
                 qPrintable(lines.at(0)));
        QVERIFY(lines.at(1).endsWith(QStringLiteral("[items] %1 whole").arg(priority)));
    }

    // Taps see the accepted records of every logger, from any thread; a half
    // line stays with the thread that began it; a tap may log, and remove a tap
    // that has not run yet.
    void taps()
    {
        auto one = fileLogger(QStringLiteral("tap one"), path("one.log"));
        auto two = fileLogger(QStringLiteral("tap two"), path("two.log"));
        QVERIFY(one && two);
        one->setModuleName(QStringLiteral("ONE"));
        one->setVerbosityAcceptedLevel(10000);
        std::mutex mutex;
        QStringList seen, secondSeen;
        int second = 0;
        const int first = Logbus::addTap([&](const LogRecord& r) {
            if (!r.loggerName.startsWith(QLatin1String("tap ")))
                return;
            {
                std::lock_guard<std::mutex> lock(mutex);
                seen << QStringLiteral("%1/%2/%3 %4")
                            .arg(r.loggerName, r.moduleName)
                            .arg(r.priority)
                            .arg(r.text);
            }
            if (r.text == QLatin1String("trigger")) {
                Logbus::removeTap(second);
                one->log(1000, QStringLiteral("logged from a tap"));
            }
        });
        second = Logbus::addTap([&](const LogRecord& r) {
            std::lock_guard<std::mutex> lock(mutex);
            if (r.loggerName.startsWith(QLatin1String("tap ")))
                secondSeen << r.text;
        });
        QVERIFY(first != second);

        *one << p(1000) << "main" << QStringLiteral("first");
        std::thread worker([&] {
            *one << p(10) << "worker" << QStringLiteral("whole") << LGBS::endl;
            *one << p(10) << "worker left open";
            two->log(-1, QStringLiteral("<from two/>"));
        });
        worker.join();
        *one << "second" << LGBS::endl;
        *one << p(100000) << "dropped" << LGBS::endl;
        for (const char* text : {"trigger", "after"})
            one->log(1000, QString::fromLatin1(text));
        Logbus::removeTap(first);
        one->log(10, QStringLiteral("after removal"));

        QCOMPARE(seen,
                 (QStringList {"tap one/ONE/10 worker whole", "tap two/tap two/-1 <from two/>",
                               "tap one/ONE/1000 main first second", "tap one/ONE/1000 trigger",
                               "tap one/ONE/1000 logged from a tap", "tap one/ONE/1000 after"}));
        QCOMPARE(secondSeen, (QStringList {"worker whole", "<from two/>", "main first second"}));
        QCOMPARE(fileLines(path("one.log")).size(), 6);
    }

    // removeTap returns only once no thread is inside the tap any more: a
    // tap removed while another thread logs is never called after it.
    void removeTapWaitsForRunningTaps()
    {
        auto logger = fileLogger(QStringLiteral("busy"), path("busy.log"));
        QVERIFY(logger);
        std::atomic<bool> stop {false};
        std::thread worker([&] {
            while (!stop)
                logger->log(1000, QStringLiteral("busy"));
        });
        std::atomic<int> late {0};
        for (int round = 0; round < 100; ++round) {
            std::atomic<int> calls {0};
            std::atomic<bool> removed {false};
            const int id = Logbus::addTap([&](const LogRecord&) {
                late += removed ? 1 : 0;
                ++calls;
            });
            while (calls == 0)
                std::this_thread::yield();
            Logbus::removeTap(id);
            removed = true;
        }
        stop = true;
        worker.join();
        QCOMPARE(late.load(), 0);
    }

    void sharedFileFromSeveralThreads()
    {
        // Missing directories are created; two spellings of one path give one shared writer.
        auto alpha = fileLogger(QStringLiteral("alpha"), path("logs/deeper/shared.log"));
        auto beta = fileLogger(QStringLiteral("beta"), path("logs/./deeper/shared.log"));
        QVERIFY(alpha && beta);
        alpha->setModuleName(QStringLiteral("ALPHA"));
        beta->setModuleName(QStringLiteral("BETA"));
        const auto payload = [](int t) { return QString(40, QLatin1Char(char('a' + t))); };
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([logger = t % 2 ? beta.get() : alpha.get(), t, payload] {
                for (int i = 0; i < 500; ++i)
                    *logger << p(1000) << "thread" << t << "line" << i << "payload" << payload(t) << "end"
                            << LGBS::endl;
            });
        for (auto& thread : threads)
            thread.join();

        // Each thread's lines arrive whole and in the order it wrote them.
        const QRegularExpression re(
            QStringLiteral("^%1 \\[(ALPHA|BETA)\\] 1000 thread (\\d) line (\\d+) payload ([a-z]{40}) end$")
                .arg(kStamp));
        std::vector<int> next(4, 0);
        for (const QString& line : fileLines(path("logs/deeper/shared.log"))) {
            const QRegularExpressionMatch m = re.match(line);
            const int t = m.captured(2).toInt();
            QVERIFY2(m.hasMatch() && t < 4, qPrintable(line));
            QCOMPARE(m.captured(1) + m.captured(4), QLatin1String(t % 2 ? "BETA" : "ALPHA") + payload(t));
            QCOMPARE(m.captured(3).toInt(), next[t]++);
        }
        QVERIFY(next == std::vector<int>(4, 500));
    }

    void rotationKeepsConfiguredCount()
    {
        constexpr qint64 kLimit = 2048;
        // Two loggers on one path: rotation must see the size of both.
        auto first
            = fileLogger(QStringLiteral("first"), path("rot.log"), WriterConfig::withByteLimit(kLimit, 3));
        auto second
            = fileLogger(QStringLiteral("second"), path("rot.log"), WriterConfig::withByteLimit(kLimit, 3));
        QVERIFY(first && second);
        for (int i = 0; i < 400; ++i)
            *(i % 2 ? second : first) << p(1000) << "seq" << i << QString(30, QLatin1Char('.')) << LGBS::endl;

        QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files).size(), 4);
        // The kept files, oldest first, hold the last lines without a gap.
        QList<int> seqs;
        const QRegularExpression re(QStringLiteral("\\] 1000 seq (\\d+) \\.{30}$"));
        for (const char* name : {"rot.3.log", "rot.2.log", "rot.1.log", "rot.log"}) {
            QVERIFY2(QFileInfo(path(name)).size() <= kLimit, name);
            const QStringList lines = fileLines(path(name));
            QVERIFY2(!lines.isEmpty(), name);
            for (const QString& line : lines) {
                const QRegularExpressionMatch m = re.match(line);
                QVERIFY2(m.hasMatch(), qPrintable(line));
                seqs << m.captured(1).toInt();
            }
        }
        QCOMPARE(seqs.last(), 399);
        QVERIFY(seqs.first() > 0);
        for (int i = 1; i < seqs.size(); ++i)
            QCOMPARE(seqs.at(i), seqs.at(i - 1) + 1);
    }

    void failedOpen()
    {
        QVERIFY(QFile(path("blocker")).open(QIODevice::WriteOnly));
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("adir")));
        const std::tuple<const char*, qint64, int, int> rows[]
            = {{"blocker/sub/log.txt", 1024, 2, Logbus::ERROR_OPEN_FILE},
               {"adir", 1024, 2, Logbus::ERROR_OPEN_FILE},
               {"adir", 0, 2, Logbus::ERROR_OPEN_FILE},
               {nullptr, 1024, 2, Logbus::ERROR_BAD_ARGUMENT},
               {"ok.log", 1024, -1, Logbus::ERROR_BAD_ARGUMENT}};
        for (const auto& [file, maxSize, maxFiles, expected] : rows) {
            int result = Logbus::DEFAULT_OK;
            std::unique_ptr<Logger> logger(
                freshBus()->createFileLogger(QStringLiteral("bad"), file ? path(file) : QString(),
                                             WriterConfig::withByteLimit(maxSize, maxFiles), result));
            QVERIFY(!logger);
            QCOMPARE(result, expected);
        }
        QVERIFY(QFileInfo(path("blocker")).isFile());
    }

    void consoleWriterWritesToStandardError()
    {
        auto logger = fileLogger(QStringLiteral("console"), path("c.log"));
        QVERIFY(logger);
        for (const auto& scheme :
             {LGBS::ConsoleColorScheme::defaultColorScheme(), LGBS::ConsoleColorScheme::noColors()}) {
            int result = -1;
            freshBus()->addWriterToLogger(logger.get(),
                                          freshBus()->getConsoleWriter(scheme, WriterConfig(), result));
            QCOMPARE(result, Logbus::DEFAULT_OK);
        }

        // Standard error goes to a file for the time of the test; it is not a
        // terminal, so no colour codes may appear.
        const QString errPath = path("stderr.txt");
        fflush(stderr);
        const int saved = ::dup(STDERR_FILENO);
        const int fd = ::open(QFile::encodeName(errPath).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        QVERIFY(saved >= 0 && fd >= 0);
        ::dup2(fd, STDERR_FILENO);
        ::close(fd);
        for (int priority : {-1, 10, 50, 100, 1000, 10000})
            *logger << p(priority) << "console line" << priority << LGBS::endl;
        logger->flush();
        fflush(stderr);
        ::dup2(saved, STDERR_FILENO);
        ::close(saved);

        const QString text = fileLines(errPath).join('\n') + '\n';
        for (int priority : {-1, 10, 50, 100, 1000, 10000})
            QCOMPARE(text.count(QStringLiteral("[console] %1 console line %1\n").arg(priority)), 2);
        QVERIFY(!text.contains(QLatin1Char('\033')));
    }

    void deleteLaterReleasesLogger()
    {
        int result = -1;
        QPointer<Logger> logger = freshBus()->createFileLogger(QStringLiteral("later"), path("later.log"),
                                                               WriterConfig(), result);
        QVERIFY(logger);
        // The library drops every connection of a logger before letting it go.
        int destroyedSeen = 0;
        connect(logger, &QObject::destroyed, this, [&destroyedSeen] { ++destroyedSeen; });
        QVERIFY(QObject::disconnect(logger, nullptr, nullptr, nullptr));
        *logger << p(1000) << "before deletion" << LGBS::endl;
        // A half line left behind must not reach the next logger.
        *logger << p(1000) << "half";
        logger->flush();
        logger->deleteLater();
        QTRY_VERIFY(logger.isNull());
        QCOMPARE(destroyedSeen, 0);

        auto again = fileLogger(QStringLiteral("later"), path("later.log"));
        QVERIFY(again);
        *again << "whole" << LGBS::endl;

        const QStringList lines = fileLines(path("later.log"));
        QCOMPARE(lines.size(), 2);
        QVERIFY(lines.at(0).endsWith(QStringLiteral("[later] 1000 before deletion")));
        QVERIFY(lines.at(1).endsWith(QStringLiteral("[later] 10000 whole")));
    }

    void instanceIsOnePerName()
    {
        const QString name = QStringLiteral("tst_logbus shared instance");
        Logbus* got[4] = {};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
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

private:
    QString path(const char* name) const { return m_dir->filePath(QString::fromLatin1(name)); }
    std::unique_ptr<QTemporaryDir> m_dir;
};

QTEST_GUILESS_MAIN(tst_Logbus)
#include "tst_logbus.moc"
