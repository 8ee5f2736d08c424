// Numbers as users type them, turned into what the PBX dials and back: one
// table for the functions that need nothing, then those that depend on what
// the server told (extensions, outbound prefix), then the machine's address.
#include "loggedinclient.h"
#include "telvix.h"

#include <QNetworkInterface>
#include <QRegularExpression>
#include <QtTest>

namespace {

const QString ExtenList
    = QStringLiteral("<ExtenList><User><ContactUuid>c201</ContactUuid><First>Bea</First><Last>Rossi</Last>"
                     "<Contact><Type>exten</Type><Value>201</Value></Contact></User>"
                     "<User><ContactUuid>c9001</ContactUuid><First>Reception</First><Last>Desk</Last>"
                     "<Contact><Type>exten</Type><Value>9001</Value></Contact></User></ExtenList>");
const QString OutboundPrefixNine = QStringLiteral(
    "<Services><NumberingPlan><outboundPrefix>9</outboundPrefix></NumberingPlan></Services>");

bool usableHardwareAddress(const QString& address)
{
    static const QRegularExpression pattern(QStringLiteral("^(?:[0-9A-F]{2}:){5}[0-9A-F]{2}$"),
                                            QRegularExpression::CaseInsensitiveOption);
    return pattern.match(address).hasMatch() && address != QLatin1String("00:00:00:00:00:00");
}

} // namespace

class TestNumberFunctions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void typedNumbers_data();
    void typedNumbers();
    void numbersBeforeTheServerTells();
    void numbersAfterTheServerTells_data();
    void numbersAfterTheServerTells();
    void interfaceMacAddress_data();
    void interfaceMacAddress();
};

void TestNumberFunctions::typedNumbers_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("outgoing");
    QTest::addColumn<bool>("phone");
    QTest::addColumn<bool>("mobile");
    QTest::addColumn<QString>("anonymized");

    // Italian numbers lose the country code.
    QTest::newRow("italian landline") << "+39 051 123456"
                                      << "051123456" << true << false << "+39 051 123XXX";
    QTest::newRow("italian mobile") << "+39 333 1234567"
                                    << "3331234567" << true << true << "+39 333 1234XXX";
    QTest::newRow("italian mobile, dotted") << "+39-333-123.45.67"
                                            << "3331234567" << true << true << "+39-333-123.45XXX";
    QTest::newRow("mobile, national") << "3331234567"
                                      << "3331234567" << true << true << "3331234XXX";
    QTest::newRow("mobile, 00 and country") << "0039 333 1234567"
                                            << "00393331234567" << true << true << "0039 333 1234XXX";
    QTest::newRow("mobile, tabs and newline") << "\t333 123 4567\n"
                                              << "3331234567" << true << true << "\t333 123 45XXX";
    // A bare 39 is not a country code: the number begins with the mobile 3.
    QTest::newRow("country code without plus") << "39 051 1234"
                                               << "390511234" << true << true << "39 051 1XXX";
    QTest::newRow("italian, 00 landline") << "0039051123"
                                          << "0039051123" << true << false << "0039051XXX";
    // Other countries keep their code behind 00.
    QTest::newRow("british") << "+44 20 7946 0958"
                             << "00442079460958" << true << false << "+44 20 7946 0XXX";
    QTest::newRow("american") << "+1 (555) 123-4567"
                              << "0015551234567" << true << false << "+1 (555) 123-4XXX";
    QTest::newRow("swiss mobile") << "+41 79 123 45 67"
                                  << "0041791234567" << true << false << "+41 79 123 45XXX";
    // Four-character service numbers beginning with 01 go out as they are.
    QTest::newRow("service number") << "0118"
                                    << "0118" << true << false << "0XXX";
    QTest::newRow("service number, spaced") << "01 18"
                                            << "0118" << true << false << "01XXX";
    QTest::newRow("five characters from 01") << "01180"
                                             << "01180" << true << false << "01XXX";
    // Typed punctuation disappears.
    QTest::newRow("brackets, dots, slash") << "(051) 12.34/56"
                                           << "051123456" << true << false << "(051) 12.34XXX";
    QTest::newRow("backslash, comma, hyphen") << "051\\123,4-56"
                                              << "051123456" << true << false << "051\\123,4XXX";
    QTest::newRow("five from 3") << "33312"
                                 << "33312" << true << false << "33XXX";
    QTest::newRow("six from 3") << "333123"
                                << "333123" << true << true << "333XXX";
    QTest::newRow("country code only") << "+39"
                                       << "" << true << false << "XXX";
    QTest::newRow("short with code") << "+3933"
                                     << "33" << true << false << "+3XXX";
    QTest::newRow("plus alone") << "+"
                                << "00" << false << false << "XXX";
    QTest::newRow("plus inside") << "12+34"
                                 << "12+34" << false << false << "12XXX";
    QTest::newRow("star and pound") << "*72#"
                                    << "*72#" << false << false << "*XXX";
    QTest::newRow("letters") << "abc"
                             << "abc" << false << false << "XXX";
    QTest::newRow("nothing") << ""
                             << "" << false << false << "XXX";
    QTest::newRow("three digits") << "123"
                                  << "123" << true << false << "XXX";
    QTest::newRow("four digits") << "1234"
                                 << "1234" << true << false << "1XXX";
}

void TestNumberFunctions::typedNumbers()
{
    QFETCH(QString, typed);
    QFETCH(QString, outgoing);
    QFETCH(bool, phone);
    QFETCH(bool, mobile);
    QFETCH(QString, anonymized);
    QCOMPARE(Telvix::purifyOutgoingNumber(typed), outgoing);
    QCOMPARE(Telvix::isPhoneNum(typed), phone);
    QCOMPARE(Telvix::isMobileNum(typed), mobile);
    QCOMPARE(Telvix::numAnonymizer(typed), anonymized);
}

void TestNumberFunctions::numbersBeforeTheServerTells()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    const Telvix* client = app.client();
    QVERIFY(!client->isExtenNum("201"));
    QCOMPARE(client->getPurifiedOutgoingNumber("201"), QStringLiteral("0201"));
    QCOMPARE(client->purifyIncomingNumber("90511234"), QStringLiteral("90511234"));
}

void TestNumberFunctions::numbersAfterTheServerTells_data()
{
    QTest::addColumn<QString>("number");
    QTest::addColumn<bool>("exten");
    QTest::addColumn<QString>("dialled");
    QTest::addColumn<QString>("incoming");
    QTest::newRow("extension") << "201" << true << "201"
                               << "201";
    QTest::newRow("extension typed with a blank") << "2 01" << false << "201"
                                                  << "2 01";
    QTest::newRow("part of an extension") << "20" << false << "020"
                                          << "20";
    QTest::newRow("extension under the prefix") << "9001" << true << "9001"
                                                << "9001";
    QTest::newRow("external via prefix") << "90511234" << false << "090511234"
                                         << "0511234";
    QTest::newRow("external without prefix") << "0511234" << false << "00511234"
                                             << "0511234";
    QTest::newRow("italian") << "+39 051 1234" << false << "00511234"
                             << "+39 051 1234";
    QTest::newRow("british") << "+44 20 7946" << false << "00044207946"
                             << "+44 20 7946";
}

void TestNumberFunctions::numbersAfterTheServerTells()
{
    QFETCH(QString, number);
    QFETCH(bool, exten);
    QFETCH(QString, dialled);
    QFETCH(QString, incoming);
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QVERIFY(app.deliver(ExtenList));
    QVERIFY(app.deliver(OutboundPrefixNine));
    const Telvix* client = app.client();
    QCOMPARE(client->isExtenNum(number), exten);
    QCOMPARE(client->getPurifiedOutgoingNumber(number), dialled);
    QCOMPARE(client->purifyIncomingNumber(number), incoming);
}

void TestNumberFunctions::interfaceMacAddress_data()
{
    QTest::addColumn<QString>("ip");
    QTest::addColumn<QString>("expected");
    // Without a match the answer is the last non-loopback interface with a
    // usable hardware address.
    QString lastUsable;
    QList<QPair<QString, QString>> owned;
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& iface : interfaces) {
        if (iface.flags().testFlag(QNetworkInterface::IsLoopBack))
            continue;
        if (usableHardwareAddress(iface.hardwareAddress()))
            lastUsable = iface.hardwareAddress();
        const QList<QNetworkAddressEntry> entries = iface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries)
            owned.append({entry.ip().toString(), iface.hardwareAddress()});
    }
    for (const auto& pair : owned)
        QTest::addRow("own address %s", qPrintable(pair.first)) << pair.first << pair.second;
    QTest::newRow("address of no interface") << "203.0.113.77" << lastUsable;
    QTest::newRow("loopback is passed over") << "127.0.0.1" << lastUsable;
    QTest::newRow("empty") << "" << lastUsable;
}

void TestNumberFunctions::interfaceMacAddress()
{
    QFETCH(QString, ip);
    QFETCH(QString, expected);
    QCOMPARE(Telvix::getInterfaceMacAddress(ip), expected);
}

QTEST_GUILESS_MAIN(TestNumberFunctions)
#include "tst_numberfunctions.moc"
