// The client object itself: construction, its thread, the cross-thread hop,
// the message dump and shutdown, with an application that has its own
// QCoreApplication.
#include "logbuscapture.h"
#include "qtlogcapture.h"
#include "telvix.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class TestTelvix : public QObject
{
    Q_OBJECT

private:
    static Telvix* makeClient(const QString& dir)
    {
        return new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("test"),
                          QStringLiteral("1.0"), QStringLiteral("dev-1"), dir);
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
        QCOMPARE(client.getConnectionState(), int(Telvix::StateDisconnected));
        QVERIFY(!client.isInMobileAppMode());
    }

    void versionAndBuildSwitchesHoldOnAnyThread()
    {
        QTemporaryDir dir;
        QScopedPointer<Telvix> client(makeClient(dir.path()));
        QCOMPARE(client->getVersion(), QStringLiteral("4.5.6-r97f593d"));
        QVERIFY(client->hasChatSupportBuilt());
        QVERIFY(!client->hasOutlookSupportBuilt());
        QVERIFY(client->init());
        QCOMPARE(client->getVersion(), QStringLiteral("4.5.6-r97f593d"));
        QVERIFY(client->shutdown());
    }

    void mobileModes_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("mobile");
        for (int mode = -1; mode <= 8; ++mode)
            QTest::addRow("mode %d", mode) << mode << (mode == 6 || mode == 7);
    }

    void mobileModes()
    {
        QFETCH(int, mode);
        QFETCH(bool, mobile);
        QCOMPARE(Telvix::appModeIsMobile(TELVIX::AppMode(mode)), mobile);
    }

    void initMovesTheObjectOntoItsOwnRunningThread()
    {
        QTemporaryDir dir;
        QScopedPointer<Telvix> client(makeClient(dir.path()));
        LogbusCapture logbus;
        QVERIFY(client->init());
        QVERIFY(client->isRunning());
        QCOMPARE(client->thread(), static_cast<QThread*>(client.data()));
        // The application's own QCoreApplication is reused, never a second one.
        QCOMPARE(QCoreApplication::instance()->thread(), QThread::currentThread());
        QVERIFY(logbus.waitFor("SSL supported:"));
        QVERIFY(client->shutdown());
        QVERIFY(client->isFinished());
        QVERIFY(QFile::exists(dir.filePath("telvixLog.txt")));
        QVERIFY(logbus.contains(10000, "Destroing Telvix"));
    }

    void emptyDataDirectoryMeansWorkingDirectory()
    {
        QTemporaryDir dir;
        const QString oldCwd = QDir::currentPath();
        QDir::setCurrent(dir.path());
        {
            QScopedPointer<Telvix> client(makeClient(QString()));
            QVERIFY(client->init());
            QVERIFY(client->shutdown());
        }
        QDir::setCurrent(oldCwd);
        QVERIFY(QFile::exists(dir.filePath("telvixLog.txt")));
    }

    void shutdownLogsItsStepsInOrder()
    {
        QTemporaryDir dir;
        QScopedPointer<Telvix> client(makeClient(dir.path()));
        QVERIFY(client->init());
        QtLogCapture log;
        QVERIFY(client->shutdown());
        const QStringList expected = {"Destoying Telvix",
                                      "Destroying socket",
                                      "Stop keep alive timer",
                                      "Stop keep alive ack timer",
                                      "Stop GUI keep alive timer",
                                      "Stop periodic data update timer",
                                      "Stop phonebook update timer",
                                      "Delete XML parser",
                                      "Stop Logbus",
                                      "before Telvix evloop exit",
                                      "after Telvix evloop exit",
                                      "Finished, waiting for thread to be finished...",
                                      "Thread is Finished, now we can safely delete the Telvix."};
        const QStringList messages = log.messages();
        int from = 0;
        for (const QString& step : expected) {
            int found = -1;
            for (int i = from; i < messages.size(); ++i) {
                if (messages.at(i).contains(step)) {
                    found = i;
                    break;
                }
            }
            QVERIFY2(found >= 0, qPrintable("missing or out of order: " + step));
            from = found + 1;
        }
    }

    void queuedCallsAnswerAtOnceAndBlockingCallsWait()
    {
        QTemporaryDir dir;
        QScopedPointer<Telvix> client(makeClient(dir.path()));
        QVERIFY(client->init());
        QSignalSpy heartbeat(client.data(), &Telvix::sigGuiKeepAlive);
        LogbusCapture logbus;
        // Queued: true at once; the body runs later on the library's thread.
        QVERIFY(client->requestGuiKeepAlive());
        QVERIFY(logbus.waitFor("Trying to send a GUI KeepAlive, but it's disabled."));
        QVERIFY(client->enableGuiKeepAlive(false));
        QVERIFY(client->requestGuiKeepAlive());
        QTRY_COMPARE(heartbeat.count(), 1);
        QVERIFY(logbus.contains(10000, "GUI KeepAlive Disabled"));
        // Blocking: the real result of the body.
        QCOMPARE(client->isConnected(), false);
        QVERIFY(client->shutdown());
    }

    void queuedCallAfterShutdownIsAcceptedAndNeverRuns()
    {
        QTemporaryDir dir;
        QScopedPointer<Telvix> client(makeClient(dir.path()));
        QVERIFY(client->init());
        QVERIFY(client->shutdown());
        LogbusCapture logbus;
        QVERIFY(client->requestGuiKeepAlive());
        QCoreApplication::processEvents();
        QVERIFY(!logbus.contains("GUI KeepAlive explicitly requested"));
        // A blocking call cannot wait on a stopped thread: it fails at once.
        QtLogCapture log;
        QCOMPARE(client->isConnected(), false);
        QVERIFY(log.contains(QtCriticalMsg, "invoke method failed!"));
    }

    void messagesDumpIsMadeOnceAndRemovable()
    {
        QTemporaryDir dir;
        QScopedPointer<Telvix> client(makeClient(dir.path()));
        QVERIFY(client->enableMessagesDump(false)); // none yet: a no-op
        QVERIFY(client->init());
        QVERIFY(client->enableMessagesDump(true));
        QVERIFY(client->enableMessagesDump(true));
        const QString dump = dir.filePath("msgDump/telvixMsg.log");
        QTRY_VERIFY(QFile::exists(dump));
        QVERIFY(client->enableMessagesDump(false));
        QVERIFY(client->shutdown());
        QCOMPARE(QDir(dir.filePath("msgDump")).entryList(QDir::Files).size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestTelvix)
#include "tst_telvix.moc"
