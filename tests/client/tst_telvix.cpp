// The client object itself: construction, its thread, the message dump and
// shutdown, with an application that has its own QCoreApplication; and what
// it answers before any server, the scenarios of fixtures/client/telvix.
#include "logbuscapture.h"
#include "qtlogcapture.h"
#include "scenario.h"
#include "telvix.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class TestTelvix : public ScenarioTest
{
    Q_OBJECT
public:
    TestTelvix()
        : ScenarioTest(QStringLiteral("telvix"))
    {
    }

private Q_SLOTS:
    void constructionWarnsAboutMissingIdentity_data()
    {
        QTest::addColumn<QStringList>("identity");
        QTest::addColumn<bool>("swWarning");
        QTest::addColumn<bool>("deviceWarning");
        QTest::newRow("complete") << QStringList {"os", "1", "sw", "2", "dev"} << false << false;
        QTest::newRow("no os type") << QStringList {"", "1", "sw", "2", "dev"} << true << false;
        QTest::newRow("no sw version") << QStringList {"os", "1", "sw", "", "dev"} << true << false;
        QTest::newRow("no device") << QStringList {"os", "1", "sw", "2", ""} << false << true;
        QTest::newRow("nothing") << QStringList {"", "", "", "", ""} << true << true;
    }

    void constructionWarnsAboutMissingIdentity()
    {
        QFETCH(QStringList, identity);
        QFETCH(bool, swWarning);
        QFETCH(bool, deviceWarning);
        QtLogCapture log;
        Telvix client(identity[0], identity[1], identity[2], identity[3], identity[4], QString());
        QCOMPARE(log.contains(QtWarningMsg, "OS and/or SW info are missing!"), swWarning);
        QCOMPARE(log.contains(QtWarningMsg, "deviceId is missing!"), deviceWarning);
        QCOMPARE(client.objectName(), QStringLiteral("TelvixThread"));
        QVERIFY(!client.isRunning());
    }

    void ownThreadLogsAndShutsDownInOrder()
    {
        QTemporaryDir dir;
        const QString oldCwd = QDir::currentPath();
        // An empty data directory means the working directory.
        QDir::setCurrent(dir.path());
        QScopedPointer<Telvix> client(new Telvix("Linux", "6.1", "test", "1.0", "dev-1", QString()));
        LogbusCapture logbus;
        QVERIFY(client->init());
        QDir::setCurrent(oldCwd);
        QVERIFY(client->isRunning());
        QCOMPARE(client->thread(), static_cast<QThread*>(client.data()));
        // The application's own QCoreApplication is reused, never a second one.
        QCOMPARE(QCoreApplication::instance()->thread(), QThread::currentThread());
        QVERIFY(logbus.waitFor("SSL supported:"));
        QtLogCapture log;
        QVERIFY(client->shutdown());
        QVERIFY(client->isFinished());
        QVERIFY(QFile::exists(dir.filePath("telvixLog.txt")));
        QVERIFY(logbus.contains(10000, "Destroing Telvix"));
        // The Qt messages of the shutdown, in order (misspellings as they are).
        QFile order(TELVIX_TEST_FIXTURES "/client/telvix/shutdown-order.txt");
        QVERIFY(order.open(QIODevice::ReadOnly | QIODevice::Text));
        const QStringList expected = QString::fromUtf8(order.readAll()).split('\n', Qt::SkipEmptyParts);
        const QString messages = log.messages().join('\n');
        int from = 0;
        for (const QString& step : expected) {
            from = messages.indexOf(step, from);
            QVERIFY2(from >= 0, qPrintable("missing or out of order: " + step));
            from += step.size();
        }

        // After shutdown a queued call is accepted and never runs; a blocking
        // call cannot wait on a stopped thread and fails at once.
        LogbusCapture after;
        QVERIFY(client->requestGuiKeepAlive());
        QCoreApplication::processEvents();
        QVERIFY(!after.contains("GUI KeepAlive explicitly requested"));
        QCOMPARE(client->isConnected(), false);
        QVERIFY(log.contains(QtCriticalMsg, "invoke method failed!"));
    }

    void messagesDumpIsMadeOnceAndRemovable()
    {
        QTemporaryDir dir;
        QScopedPointer<Telvix> client(new Telvix("Linux", "6.1", "test", "1.0", "dev-1", dir.path()));
        QVERIFY(client->enableMessagesDump(false)); // none yet: a no-op
        QVERIFY(client->init());
        QVERIFY(client->enableMessagesDump(true));
        QVERIFY(client->enableMessagesDump(true));
        QTRY_VERIFY(QFile::exists(dir.filePath("msgDump/telvixMsg.log")));
        QVERIFY(client->enableMessagesDump(false));
        QVERIFY(client->shutdown());
        QCOMPARE(QDir(dir.filePath("msgDump")).entryList(QDir::Files).size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestTelvix)
#include "tst_telvix.moc"
