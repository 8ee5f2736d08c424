// An application without a QCoreApplication: the library makes its own on
// its thread and ends it at shutdown.
#include "qtlogcapture.h"
#include "telvix.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class TestTelvixOwnApp : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void libraryCreatesAndEndsItsOwnApplication()
    {
        QVERIFY(!QCoreApplication::instance());
        QTemporaryDir dir;
        QtLogCapture log;
        {
            Telvix client("Linux", "6", "t", "1", "d", dir.path());
            QVERIFY(client.init());
            QVERIFY(log.contains("Creating new QCoreApplication"));
            QCOMPARE(QCoreApplication::instance()->thread(), static_cast<QThread*>(&client));
            QCOMPARE(QCoreApplication::arguments(), QStringList {"TelvixApplication"});
            QVERIFY(client.shutdown() && client.isFinished());
        }
        QVERIFY(!QCoreApplication::instance());
        QVERIFY(QFile::exists(dir.filePath("telvixLog.txt")));
    }
};

QTEST_APPLESS_MAIN(TestTelvixOwnApp)
#include "tst_telvix_ownapp.moc"
