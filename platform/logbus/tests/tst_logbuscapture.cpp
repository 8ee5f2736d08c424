#include "logbuscapture.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <memory>
#include <thread>

namespace {

std::unique_ptr<Logger> makeLogger(const QTemporaryDir& dir, const QString& name)
{
    int result = -1;
    std::unique_ptr<Logger> logger(
        Logbus::instance(QStringLiteral("tst_logbuscapture"))
            ->createFileLogger(name, dir.filePath(name + QLatin1String(".log")), WriterConfig(), result));
    if (result != Logbus::DEFAULT_OK)
        logger.reset();
    return logger;
}

} // namespace

class tst_LogbusCapture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void queries();
    void droppedLinesAreNotCaptured();
    void waitForSpinsTheEventLoop();
    void nestedCapturesBothSee();
    void destroyedWhileAnotherThreadLogs();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<Logger> m_logger;
};

void tst_LogbusCapture::init()
{
    QVERIFY(m_dir.isValid());
    m_logger = makeLogger(m_dir, QStringLiteral("capture"));
    QVERIFY(m_logger);
    m_logger->setModuleName(QStringLiteral("TELVIX"));
    m_logger->setVerbosityAcceptedLevel(10000);
}

void tst_LogbusCapture::queries()
{
    m_logger->log(10, QStringLiteral("before capture"));
    LogbusCapture capture;
    *m_logger << LGBS::LogMessagePriorityType(1000) << "Thread started" << LGBS::endl;
    m_logger->log(10, QStringLiteral("signal-slot connection failed!"));
    m_logger->log(100, QStringLiteral("Thread started again"));

    const QList<LogRecord> records = capture.records();
    QCOMPARE(records.size(), 3);
    QCOMPARE(records.at(0).loggerName, QStringLiteral("capture"));
    QCOMPARE(records.at(0).moduleName, QStringLiteral("TELVIX"));
    QCOMPARE(records.at(0).priority, 1000);
    QCOMPARE(capture.texts(),
             (QStringList {QStringLiteral("Thread started"), QStringLiteral("signal-slot connection failed!"),
                           QStringLiteral("Thread started again")}));
    QVERIFY(!capture.contains(QStringLiteral("before capture")));
    QVERIFY(capture.contains(QStringLiteral("connection failed")));
    QVERIFY(capture.contains(10, QStringLiteral("connection failed")));
    QVERIFY(!capture.contains(1000, QStringLiteral("connection failed")));
    QVERIFY(capture.contains(100, QStringLiteral("Thread started")));
    QCOMPARE(capture.count(QStringLiteral("Thread started")), 2);
    QCOMPARE(capture.count(QStringLiteral("absent")), 0);

    capture.clear();
    QVERIFY(capture.records().isEmpty());
    m_logger->log(10, QStringLiteral("after clear"));
    QCOMPARE(capture.texts(), QStringList {QStringLiteral("after clear")});
}

void tst_LogbusCapture::droppedLinesAreNotCaptured()
{
    LogbusCapture capture;
    *m_logger << LGBS::LogMessagePriorityType(100000) << "keep-alive" << LGBS::endl;
    m_logger->log(-1, QStringLiteral("<raw/>"));
    QCOMPARE(capture.texts(), QStringList {QStringLiteral("<raw/>")});
}

void tst_LogbusCapture::waitForSpinsTheEventLoop()
{
    LogbusCapture capture;
    // The line is written only once the event loop runs.
    QTimer::singleShot(0, this, [this] { m_logger->log(1000, QStringLiteral("from the event loop")); });
    std::thread worker([this] { m_logger->log(10, QStringLiteral("from a thread")); });
    QVERIFY(capture.waitFor(QStringLiteral("from the event loop")));
    QVERIFY(capture.waitFor(QStringLiteral("from a thread")));
    worker.join();
    QVERIFY(!capture.waitFor(QStringLiteral("never logged"), 50));
}

void tst_LogbusCapture::nestedCapturesBothSee()
{
    LogbusCapture outer;
    {
        LogbusCapture inner;
        m_logger->log(1000, QStringLiteral("both"));
        QVERIFY(inner.contains(QStringLiteral("both")));
    }
    m_logger->log(1000, QStringLiteral("outer only"));
    QCOMPARE(outer.texts(), (QStringList {QStringLiteral("both"), QStringLiteral("outer only")}));
}

void tst_LogbusCapture::destroyedWhileAnotherThreadLogs()
{
    std::atomic<bool> stop {false};
    std::atomic<int> written {0};
    Logger* logger = m_logger.get();
    std::thread worker([&] {
        while (!stop.load()) {
            *logger << LGBS::LogMessagePriorityType(1000) << "busy" << written.fetch_add(1) << LGBS::endl;
        }
    });
    // Captures come and go while records arrive; a capture must never be
    // written to after its destructor returned.
    constexpr int kRounds = 100;
    int seen = 0;
    for (int i = 0; i < kRounds; ++i) {
        LogbusCapture capture;
        // Numbers handed out from now on belong to lines begun after the
        // capture existed.
        const int next = written.load() + 1;
        seen += capture.waitFor(QStringLiteral("busy %1").arg(next)) ? 1 : 0;
    }
    stop = true;
    worker.join();
    QCOMPARE(seen, kRounds);
}

QTEST_GUILESS_MAIN(tst_LogbusCapture)
#include "tst_logbuscapture.moc"
