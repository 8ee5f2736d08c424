#include "utils.h"

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

class TestUtils : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parseIsoDateTime_data();
    void parseIsoDateTime();
    void datetimeToIsoString_data();
    void datetimeToIsoString();
    void md5sum_data();
    void md5sum();
    void md5sum_stringIsUtf8();
    void md5sumFile();
    void base64Compressed_roundTripsRandomBytes();
    void base64Compressed_wireForm();
    void base64Compressed_damagedInputIsEmpty();
    void utf8UpToNul_stopsAtSizeOfRawData_data();
    void utf8UpToNul_stopsAtSizeOfRawData();
};

void TestUtils::parseIsoDateTime_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("expectedUtc");
    QTest::addColumn<int>("expectedOffset");

    const QDate day(2024, 3, 5);
    auto utc = [&](int h, int m, int s, int ms) { return QDateTime(day, QTime(h, m, s, ms), Qt::UTC); };

    // Plain ISO 8601 goes through Qt's own reader, zone included.
    QTest::newRow("iso-z") << "2024-03-05T10:20:30.456Z" << utc(10, 20, 30, 456) << 0;
    QTest::newRow("iso-offset-with-minutes")
        << "2024-03-05T10:20:30.456+05:30" << utc(4, 50, 30, 456) << 5 * 3600 + 30 * 60;
    // Qt's reader rounds microseconds; only the fallback below truncates.
    QTest::newRow("iso-microseconds-rounded") << "2024-03-05T10:20:30.123999Z" << utc(10, 20, 30, 124) << 0;
    QTest::newRow("blank-for-T") << "2024-03-05 10:20:30.456Z" << utc(10, 20, 30, 456) << 0;
    QTest::newRow("blank-for-T-with-offset")
        << "2024-03-05 10:20:30.456+02:00" << utc(8, 20, 30, 456) << 2 * 3600;

    // Texts Qt refuses (trailing matter) are read by the fallback: up to six
    // fraction digits, the last three cut off, and only the zone's hours.
    QTest::newRow("fallback-microseconds-truncated")
        << "2024-03-05T10:20:30.123999+00x" << utc(10, 20, 30, 123) << 0;
    QTest::newRow("fallback-plus-hours")
        << "2024-03-05T10:20:30.123456+05 x" << utc(5, 20, 30, 123) << 5 * 3600;
    QTest::newRow("fallback-minus-hours")
        << "2024-03-05T10:20:30.999-03x" << utc(13, 20, 30, 999) << -3 * 3600;
    QTest::newRow("fallback-hh-mm-zone-reads-as-zero")
        << "2024-03-05T10:20:30.123+05:30x" << utc(10, 20, 30, 123) << 0;
    QTest::newRow("fallback-no-zone-is-utc") << "2024-03-05T10:20:30.500xyz" << utc(10, 20, 30, 500) << 0;
    // A seventh digit is neither fraction nor zone: the match ends before it.
    QTest::newRow("fallback-seventh-digit-drops-zone")
        << "2024-03-05T10:20:30.1234567+01x" << utc(10, 20, 30, 123) << 0;

    // Texts neither reader takes give a null value.
    QTest::newRow("empty") << QString() << QDateTime() << 0;
    QTest::newRow("leading-garbage") << "x2024-03-05T10:20:30.123+05x" << QDateTime() << 0;
    QTest::newRow("no-milliseconds-with-trailer") << "2024-03-05T10:20:30+05:30x" << QDateTime() << 0;
    QTest::newRow("tab-for-T-matches-but-does-not-read") << "2024-03-05\t10:20:30.123x" << QDateTime() << 0;
    QTest::newRow("impossible-month") << "2024-13-05T10:20:30.123x" << QDateTime() << 0;
}

void TestUtils::parseIsoDateTime()
{
    QFETCH(QString, text);
    QFETCH(QDateTime, expectedUtc);
    QFETCH(int, expectedOffset);

    const QDateTime parsed = Utils::parseIsoDateTime(text);
    QCOMPARE(parsed.isNull(), expectedUtc.isNull());
    if (parsed.isNull())
        return;
    QCOMPARE(parsed.toUTC(), expectedUtc);
    QCOMPARE(parsed.offsetFromUtc(), expectedOffset);
}

void TestUtils::datetimeToIsoString_data()
{
    QTest::addColumn<QDateTime>("value");
    QTest::addColumn<QString>("expected");

    const QDate day(2024, 3, 5);
    QTest::newRow("utc") << QDateTime(day, QTime(10, 0, 0, 7), Qt::UTC) << "2024-03-05T10:00:00.007+00:00";
    // UTC digits with the value's own offset behind them.
    QTest::newRow("plus-two-hours") << QDateTime(day, QTime(10, 0), Qt::OffsetFromUTC, 7200)
                                    << "2024-03-05T08:00:00.000+02:00";
    QTest::newRow("plus-five-thirty")
        << QDateTime(day, QTime(10, 0), Qt::OffsetFromUTC, 19800) << "2024-03-05T04:30:00.000+05:30";
    QTest::newRow("minus-three") << QDateTime(day, QTime(22, 15, 1, 250), Qt::OffsetFromUTC, -10800)
                                 << "2024-03-06T01:15:01.250-03:00";
    // The minutes are not made absolute.
    QTest::newRow("minus-one-thirty")
        << QDateTime(day, QTime(10, 0), Qt::OffsetFromUTC, -5400) << "2024-03-05T11:30:00.000-01:-30";
    QTest::newRow("null-is-empty") << QDateTime() << "";
}

void TestUtils::datetimeToIsoString()
{
    QFETCH(QDateTime, value);
    QFETCH(QString, expected);
    QCOMPARE(Utils::datetimeToIsoString(value), expected);
}

void TestUtils::md5sum_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("expected");
    // Published RFC 1321 test vectors.
    QTest::newRow("empty") << QByteArray() << "d41d8cd98f00b204e9800998ecf8427e";
    QTest::newRow("abc") << QByteArray("abc") << "900150983cd24fb0d6963f7d28e17f72";
    QTest::newRow("alphabet") << QByteArray("abcdefghijklmnopqrstuvwxyz")
                              << "c3fcd3d76192e4007dfb496cca67e13b";
}

void TestUtils::md5sum()
{
    QFETCH(QByteArray, data);
    QFETCH(QString, expected);
    QCOMPARE(Utils::md5sum(data), expected);
}

void TestUtils::md5sum_stringIsUtf8()
{
    const QString text = QStringLiteral("caff\u00e8 \u20ac");
    QCOMPARE(Utils::md5sum(text), Utils::md5sum(text.toUtf8()));
    QVERIFY(Utils::md5sum(text) != Utils::md5sum(text.toLatin1()));
    QCOMPARE(Utils::md5sum(QString()), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
}

void TestUtils::md5sumFile()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QByteArray content;
    for (int i = 0; i < 70000; ++i)
        content.append(char(i * 31 % 256));
    QFile file(dir.filePath(QStringLiteral("blob.bin")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
    file.close();

    QCOMPARE(Utils::md5sumFile(file.fileName()), Utils::md5sum(content));
    QVERIFY(Utils::md5sumFile(dir.filePath(QStringLiteral("absent"))).isNull());
}

void TestUtils::base64Compressed_roundTripsRandomBytes()
{
    QRandomGenerator rng(20240305);
    for (int round = 0; round < 100; ++round) {
        const int size = round < 5 ? round : int(rng.bounded(20000));
        QByteArray data(size, Qt::Uninitialized);
        for (int i = 0; i < size; ++i)
            data[i] = char(rng.bounded(256));
        const QByteArray wire = Utils::dataToBase64Compressed(data);
        QCOMPARE(Utils::dataFromBase64Compressed(wire), data);
    }
}

void TestUtils::base64Compressed_wireForm()
{
    const QByteArray data(5000, 'x');
    const QByteArray wire = Utils::dataToBase64Compressed(data);
    const QByteArray packed = QByteArray::fromBase64(wire);
    // Four-byte big-endian length of the plain data, then a zlib stream.
    QVERIFY(packed.size() > 6);
    QCOMPARE(packed.left(4), QByteArray::fromHex("00001388"));
    QCOMPARE(quint8(packed.at(4)), quint8(0x78));
    QVERIFY(packed.size() < 200);
    QCOMPARE(wire, qCompress(data).toBase64());
}

void TestUtils::base64Compressed_damagedInputIsEmpty()
{
    QByteArray wire = Utils::dataToBase64Compressed(QByteArray(300, 'q'));
    QByteArray packed = QByteArray::fromBase64(wire);
    packed.truncate(packed.size() / 2);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("qUncompress")));
    QVERIFY(Utils::dataFromBase64Compressed(packed.toBase64()).isEmpty());
}

QTEST_APPLESS_MAIN(TestUtils)
void TestUtils::utf8UpToNul_stopsAtSizeOfRawData_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("no NUL") << QByteArray("caf\xc3\xa9") << QStringLiteral("caf\u00e9");
    QTest::newRow("NUL inside") << QByteArray("ab\0cd", 5) << QStringLiteral("ab");
    QTest::newRow("NUL first") << QByteArray("\0ab", 3) << QString();
    QTest::newRow("empty") << QByteArray() << QString();
}

// A local application's read once ran on to the next NUL in memory when the
// array had none of its own, as an array over raw data has not.
void TestUtils::utf8UpToNul_stopsAtSizeOfRawData()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, text);
    QCOMPARE(Utils::utf8UpToNul(bytes), text);
    const QByteArray followed = bytes + "tail";
    QCOMPARE(Utils::utf8UpToNul(QByteArray::fromRawData(followed.constData(), bytes.size())), text);
}

#include "tst_utils.moc"
