// Numbers as users type them, turned into what the PBX dials, and the
// machine's address. What depends on the server's data is played as a
// client scenario (fixtures/client/numbers).
#include "telvix.h"

#include <QNetworkInterface>
#include <QRegularExpression>
#include <QtTest>

class TestNumberFunctions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void typedNumbers_data()
    {
        QTest::addColumn<QJsonArray>("row");
        QFile file(TELVIX_TEST_FIXTURES "/client/numbers/typed.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonObject rows = QJsonDocument::fromJson(file.readAll()).object();
        for (auto it = rows.begin(); it != rows.end(); ++it) {
            if (it->isArray())
                QTest::newRow(qPrintable(it.key())) << it->toArray();
        }
        QVERIFY(rows.size() > 20);
    }

    void typedNumbers()
    {
        QFETCH(QJsonArray, row);
        const QString typed = row.at(0).toString();
        QCOMPARE(Telvix::purifyOutgoingNumber(typed), row.at(1).toString());
        QCOMPARE(Telvix::isPhoneNum(typed), row.at(2).toBool());
        QCOMPARE(Telvix::isMobileNum(typed), row.at(3).toBool());
        QCOMPARE(Telvix::numAnonymizer(typed), row.at(4).toString());
    }

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
