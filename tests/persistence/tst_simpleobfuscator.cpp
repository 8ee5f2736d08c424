#include "simpleobfuscator.h"

#include <QRandomGenerator>
#include <QtTest>

class TestSimpleObfuscator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rot13_data();
    void rot13();
    void rot13MovesEveryByteValue();
    void hideBytes_data();
    void hideBytes();
    void revealBytes_data();
    void revealBytes();
    void hideText_data();
    void hideText();
    void revealTextStopsAtFirstNul();
    void revealTextOfInvalidUtf8();
    void roundTripRandomBytes_data();
    void roundTripRandomBytes();
    void roundTripText_data();
    void roundTripText();
};

using Dir = SimpleObfuscator::RotDirection;

void TestSimpleObfuscator::rot13_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("direction");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("empty forward") << QByteArray() << int(SimpleObfuscator::Forward) << QByteArray();
    QTest::newRow("empty backward") << QByteArray() << int(SimpleObfuscator::Backward) << QByteArray();
    QTest::newRow("letter forward") << QByteArray("A") << int(SimpleObfuscator::Forward) << QByteArray("N");
    QTest::newRow("letter backward") << QByteArray("N") << int(SimpleObfuscator::Backward) << QByteArray("A");
    // Not the letter rotation: 'n' + 13 is '{', not 'a'.
    QTest::newRow("no alphabet wrap") << QByteArray("n") << int(SimpleObfuscator::Forward) << QByteArray("{");
    QTest::newRow("lower backward") << QByteArray("abc") << int(SimpleObfuscator::Backward)
                                    << QByteArray("TUV");
    QTest::newRow("digit and blank") << QByteArray("0 ") << int(SimpleObfuscator::Forward)
                                     << QByteArray("=-");
    QTest::newRow("0xf3 wraps to 0") << QByteArray("\xf3", 1) << int(SimpleObfuscator::Forward)
                                     << QByteArray("\x00", 1);
    QTest::newRow("0xff wraps to 0x0c")
        << QByteArray("\xff", 1) << int(SimpleObfuscator::Forward) << QByteArray("\x0c", 1);
    QTest::newRow("0 wraps back to 0xf3")
        << QByteArray("\x00", 1) << int(SimpleObfuscator::Backward) << QByteArray("\xf3", 1);
    QTest::newRow("0x0c wraps back to 0xff")
        << QByteArray("\x0c", 1) << int(SimpleObfuscator::Backward) << QByteArray("\xff", 1);
    QTest::newRow("0x7f forward") << QByteArray("\x7f", 1) << int(SimpleObfuscator::Forward)
                                  << QByteArray("\x8c", 1);
    QTest::newRow("0x80 backward") << QByteArray("\x80", 1) << int(SimpleObfuscator::Backward)
                                   << QByteArray("\x73", 1);
}

void TestSimpleObfuscator::rot13()
{
    QFETCH(QByteArray, input);
    QFETCH(int, direction);
    QFETCH(QByteArray, expected);

    const QByteArray before = input;
    QCOMPARE(SimpleObfuscator::rot13(input, Dir(direction)), expected);
    QCOMPARE(input, before); // works on a copy
}

void TestSimpleObfuscator::rot13MovesEveryByteValue()
{
    QByteArray all(256, '\0');
    for (int i = 0; i < 256; ++i)
        all[i] = char(i);

    const QByteArray forward = SimpleObfuscator::rot13(all, SimpleObfuscator::Forward);
    QCOMPARE(forward.size(), 256);
    for (int i = 0; i < 256; ++i)
        QCOMPARE(int(static_cast<unsigned char>(forward.at(i))), (i + 13) % 256);
    QCOMPARE(SimpleObfuscator::rot13(forward, SimpleObfuscator::Backward), all);
}

void TestSimpleObfuscator::hideBytes_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("empty") << QByteArray() << QByteArray();
    // 'A' -> 'N' (0x4e) -> "Tg" with the "==" left off.
    QTest::newRow("one byte, padding omitted") << QByteArray("A") << QByteArray("Tg");
    // "abc" -> "nop" -> "bm9w": a full group needs no padding.
    QTest::newRow("full group") << QByteArray("abc") << QByteArray("bm9w");
    // "Hello" -> "Uryy|" -> "VXJ5" + "eXw" (one '=' left off).
    QTest::newRow("two groups") << QByteArray("Hello") << QByteArray("VXJ5eXw");
    // 0xf3 0xf3 0xf3 -> three NULs.
    QTest::newRow("bytes that become NUL") << QByteArray("\xf3\xf3\xf3", 3) << QByteArray("AAAA");
    // 0xf3 0xf4 0xff 0x00 -> 0x00 0x01 0x0c 0x0d.
    QTest::newRow("high bytes and NUL") << QByteArray("\xf3\xf4\xff\x00", 4) << QByteArray("AAEMDQ");
    // 0xff 0xfe -> 0x0c 0x0b.
    QTest::newRow("top bytes") << QByteArray("\xff\xfe", 2) << QByteArray("DAs");
}

void TestSimpleObfuscator::hideBytes()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, expected);

    const QByteArray hidden = SimpleObfuscator::hide(input);
    QCOMPARE(hidden, expected);
    QVERIFY(!hidden.contains('='));
    QCOMPARE(SimpleObfuscator::reveal(hidden), input);
}

void TestSimpleObfuscator::revealBytes_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("empty") << QByteArray() << QByteArray();
    QTest::newRow("without padding") << QByteArray("Tg") << QByteArray("A");
    // A dump written by another tool may keep the padding; it reads the same.
    QTest::newRow("with padding") << QByteArray("Tg==") << QByteArray("A");
    QTest::newRow("NUL inside kept") << QByteArray("AAEMDQ") << QByteArray("\xf3\xf4\xff\x00", 4);
    QTest::newRow("two groups") << QByteArray("VXJ5eXw") << QByteArray("Hello");
}

void TestSimpleObfuscator::revealBytes()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, expected);

    QCOMPARE(SimpleObfuscator::reveal(input), expected);
}

void TestSimpleObfuscator::hideText_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("expected");

    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("ascii") << QStringLiteral("Hello") << QStringLiteral("VXJ5eXw");
    // U+00E9 is C3 A9 in UTF-8 -> D0 B6 -> "0LY".
    QTest::newRow("non-ascii through utf-8") << QStringLiteral("\u00e9") << QStringLiteral("0LY");
    // A frame as the dump sees it: '<' 0x3c -> 'I' 0x49, 'S' -> '`', 'R' -> '_', 'N' -> '[',
    // 'T' -> 'a', '>' -> 'K'.
    QTest::newRow("frame start") << QStringLiteral("<SRNT>") << QStringLiteral("SWBfW2FL");
}

void TestSimpleObfuscator::hideText()
{
    QFETCH(QString, input);
    QFETCH(QString, expected);

    const QString hidden = SimpleObfuscator::hide(input);
    QCOMPARE(hidden, expected);
    QCOMPARE(SimpleObfuscator::reveal(hidden), input);
}

void TestSimpleObfuscator::revealTextStopsAtFirstNul()
{
    const QByteArray withNul("ab\0cd", 5);
    const QString hidden = QString::fromLatin1(SimpleObfuscator::hide(withNul));

    QCOMPARE(SimpleObfuscator::reveal(hidden.toLatin1()), withNul);
    QCOMPARE(SimpleObfuscator::reveal(hidden), QStringLiteral("ab"));

    const QString leadingNul = QString::fromLatin1(SimpleObfuscator::hide(QByteArray("\0xyz", 4)));
    QCOMPARE(SimpleObfuscator::reveal(leadingNul), QString());
}

void TestSimpleObfuscator::revealTextOfInvalidUtf8()
{
    // A lone continuation byte cannot be read as UTF-8: it becomes U+FFFD, and the
    // text around it survives.
    const QString hidden = QString::fromLatin1(SimpleObfuscator::hide(QByteArray("a\x80z")));
    QCOMPARE(SimpleObfuscator::reveal(hidden), QStringLiteral("a\ufffdz"));
}

void TestSimpleObfuscator::roundTripRandomBytes_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::addColumn<int>("length");

    const int lengths[] = {1, 2, 3, 4, 5, 63, 64, 65, 1000, 65537};
    quint32 seed = 20261115;
    for (int length : lengths) {
        QTest::addRow("len %d", length) << seed << length;
        ++seed;
    }
}

void TestSimpleObfuscator::roundTripRandomBytes()
{
    QFETCH(quint32, seed);
    QFETCH(int, length);

    QRandomGenerator rng(seed);
    QByteArray data(length, '\0');
    for (int i = 0; i < length; ++i)
        data[i] = char(rng.bounded(256));
    // Make sure the bytes that wrap around (above 242) and NUL are present.
    data[0] = char(0xff);
    data[length / 2] = '\0';
    data[length - 1] = char(0xf3);

    const QByteArray hidden = SimpleObfuscator::hide(data);
    QVERIFY(!hidden.contains('='));
    QCOMPARE(hidden.size(), (length * 4 + 2) / 3);
    QCOMPARE(SimpleObfuscator::reveal(hidden), data);
    QCOMPARE(SimpleObfuscator::rot13(SimpleObfuscator::rot13(data, SimpleObfuscator::Forward),
                                     SimpleObfuscator::Backward),
             data);
}

void TestSimpleObfuscator::roundTripText_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("frame") << QStringLiteral("<SRNT><API>5.7</API><Info><KeepAlive/></Info></SRNT>");
    QTest::newRow("accents") << QStringLiteral("Caf\u00e9 M\u00fcller \u00e0 l'\u00e9t\u00e9");
    QTest::newRow("astral plane") << QString::fromUtf8("\xf0\x9f\x93\x9e call");
    QTest::newRow("line feeds") << QStringLiteral("Sent: >>>\nline\r\n");
}

void TestSimpleObfuscator::roundTripText()
{
    QFETCH(QString, text);

    const QString hidden = SimpleObfuscator::hide(text);
    QVERIFY(!hidden.contains(text.left(4)));
    QCOMPARE(SimpleObfuscator::reveal(hidden), text);
}

QTEST_APPLESS_MAIN(TestSimpleObfuscator)
#include "tst_simpleobfuscator.moc"
