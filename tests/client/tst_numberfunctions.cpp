// The machine's hardware address as the library picks it. The number
// functions are played as client scenarios (fixtures/client/numbers).
#include "telvix.h"

#include <QNetworkInterface>
#include <QRegularExpression>
#include <QtTest>

class TestNumberFunctions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void interfaceMacAddress_data()
    {
        QTest::addColumn<QString>("ip");
        QTest::addColumn<QString>("expected");
        // Without a match the answer is the last non-loopback interface with a
        // usable hardware address.
        static const QRegularExpression usable(QStringLiteral("^(?:[0-9A-F]{2}:){5}[0-9A-F]{2}$"),
                                               QRegularExpression::CaseInsensitiveOption);
        QString lastUsable;
        const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
        for (const QNetworkInterface& iface : interfaces) {
            if (iface.flags().testFlag(QNetworkInterface::IsLoopBack))
                continue;
            const QString mac = iface.hardwareAddress();
            if (usable.match(mac).hasMatch() && mac != QLatin1String("00:00:00:00:00:00"))
                lastUsable = mac;
            const QList<QNetworkAddressEntry> entries = iface.addressEntries();
            for (const QNetworkAddressEntry& entry : entries)
                QTest::addRow("own address %s", qPrintable(entry.ip().toString()))
                    << entry.ip().toString() << mac;
        }
        QTest::newRow("address of no interface") << "203.0.113.77" << lastUsable;
        QTest::newRow("loopback is passed over") << "127.0.0.1" << lastUsable;
        QTest::newRow("empty") << "" << lastUsable;
    }

    void interfaceMacAddress()
    {
        QFETCH(QString, ip);
        QFETCH(QString, expected);
        QCOMPARE(Telvix::getInterfaceMacAddress(ip), expected);
    }
};

QTEST_GUILESS_MAIN(TestNumberFunctions)
#include "tst_numberfunctions.moc"
