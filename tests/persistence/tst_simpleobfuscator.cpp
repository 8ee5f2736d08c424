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
    void hideAndRevealBytes_data();
    void hideAndRevealBytes();
    void hideAndRevealText_data();
    void hideAndRevealText();
    void revealTextOfOddBytes();
    void roundTripRandomBytes_data();
    void roundTripRandomBytes();
};

using Dir = SimpleObfuscator::RotDirection;

void TestSimpleObfuscator::rot13_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("direction");
    QTest::addColumn<QByteArray>("expected");

    const int fwd = SimpleObfuscator::Forward;
    const int back = SimpleObfuscator::Backward;
    QTest::newRow("empty") << QByteArray() << back << QByteArray();
    // Not the letter rotation: 'n' + 13 is '{', not 'a'.
    QTest::newRow("no alphabet wrap") << QByteArray("n") << fwd << QByteArray("{");
    QTest::newRow("lower backward") << QByteArray("abc") << back << QByteArray("TUV");
    QTest::newRow("0xff wraps to 0x0c") << QByteArray("\xff", 1) << fwd << QByteArray("\x0c", 1);
    QTest::newRow("0 wraps back to 0xf3") << QByteArray("\x00", 1) << back << QByteArray("\xf3", 1);
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

void TestSimpleObfuscator::hideAndRevealBytes_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<QByteArray>("hidden");

    QTest::newRow("empty") << QByteArray() << QByteArray();
    // 'A' -> 'N' (0x4e) -> "Tg" with the "==" left off.
    QTest::newRow("padding omitted") << QByteArray("A") << QByteArray("Tg");
    QTest::newRow("full group") << QByteArray("abc") << QByteArray("bm9w");
    QTest::newRow("two groups") << QByteArray("Hello") << QByteArray("VXJ5eXw");
    // 0xf3 0xf4 0xff 0x00 -> 0x00 0x01 0x0c 0x0d.
    QTest::newRow("high bytes and NUL") << QByteArray("\xf3\xf4\xff\x00", 4) << QByteArray("AAEMDQ");
}

void TestSimpleObfuscator::hideAndRevealBytes()
{
    QFETCH(QByteArray, plain);
    QFETCH(QByteArray, hidden);

    QCOMPARE(SimpleObfuscator::hide(plain), hidden);
    QCOMPARE(SimpleObfuscator::reveal(hidden), plain);
    // A dump written by another tool may keep the padding; it reads the same.
    const QByteArray padded = hidden + QByteArray((4 - hidden.size() % 4) % 4, '=');
    QCOMPARE(SimpleObfuscator::reveal(padded), plain);
}

void TestSimpleObfuscator::hideAndRevealText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("hidden");

    // A null hidden form: the exact form is not pinned, only that the text is hidden.
    QTest::newRow("empty") << QString() << QStringLiteral("");
    QTest::newRow("ascii") << QStringLiteral("Hello") << QStringLiteral("VXJ5eXw");
    // U+00E9 is C3 A9 in UTF-8 -> D0 B6 -> "0LY".
    QTest::newRow("non-ascii through utf-8") << QStringLiteral("\u00e9") << QStringLiteral("0LY");
    QTest::newRow("frame start") << QStringLiteral("<SRNT>") << QStringLiteral("SWBfW2FL");
    QTest::newRow("frame") << QStringLiteral("<SRNT><API>5.7</API><Info><KeepAlive/></Info></SRNT>")
                           << QString();
    QTest::newRow("astral plane") << QString::fromUtf8("\xf0\x9f\x93\x9e call") << QString();
    QTest::newRow("line feeds") << QStringLiteral("Sent: >>>\nline\r\n") << QString();
}

void TestSimpleObfuscator::hideAndRevealText()
{
    QFETCH(QString, text);
    QFETCH(QString, hidden);

    const QString actual = SimpleObfuscator::hide(text);
    if (!hidden.isNull())
        QCOMPARE(actual, hidden);
    else
        QVERIFY(!actual.contains(text.left(4)));
    QCOMPARE(SimpleObfuscator::reveal(actual), text);
}

void TestSimpleObfuscator::revealTextOfOddBytes()
{
    // Text stops at the first NUL; the byte form keeps it.
    const QByteArray withNul("ab\0cd", 5);
    const QString hidden = QString::fromLatin1(SimpleObfuscator::hide(withNul));
    QCOMPARE(SimpleObfuscator::reveal(hidden.toLatin1()), withNul);
    QCOMPARE(SimpleObfuscator::reveal(hidden), QStringLiteral("ab"));
    const QString leadingNul = QString::fromLatin1(SimpleObfuscator::hide(QByteArray("\0xyz", 4)));
    QCOMPARE(SimpleObfuscator::reveal(leadingNul), QString());

    // A lone continuation byte becomes U+FFFD; the text around it survives.
    const QString invalid = QString::fromLatin1(SimpleObfuscator::hide(QByteArray("a\x80z")));
    QCOMPARE(SimpleObfuscator::reveal(invalid), QStringLiteral("a\ufffdz"));
}

void TestSimpleObfuscator::roundTripRandomBytes_data()
{
    QTest::addColumn<int>("length");
    for (int length : {1, 2, 3, 4, 64, 65, 65537})
        QTest::addRow("len %d", length) << length;
}

void TestSimpleObfuscator::roundTripRandomBytes()
{
    QFETCH(int, length);

    QRandomGenerator rng(20261115u + quint32(length));
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
}

QTEST_APPLESS_MAIN(TestSimpleObfuscator)
#include "tst_simpleobfuscator.moc"
