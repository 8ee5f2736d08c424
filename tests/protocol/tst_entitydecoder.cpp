// Holds the linear entity decoder against the former whole-text replacement
// algorithm on generated values. The generators are seeded, so a failure
// reproduces; the failing value is printed escaped.

#include "entitydecoder_p.h"

#include <QDebug>
#include <QRandomGenerator>
#include <QtTest>

namespace {

// Texts that decode to the characters out of which references are built, so
// that decoding one reference completes or breaks another.
// clang-format off
const QStringList kPieces = {
    "&amp;", "&lt;", "&gt;", "&quot;", "&apos;", "&amp;lt;", "&amp;amp;", "&amp;#", "&amp;#65;", "&amp;#x41;",
    "&#65;", "&#233;", "&#0065;", "&#65601;", "&#99999999999;", "&#2147483713;", "&#x41;", "&#X41;",
    "&#xe9;", "&#x0030;", "&#48;", "&#53;", "&#57;", "&#x37;", "&#35;", "&#x23;", "&#120;", "&#x78;",
    "&#88;", "&#59;", "&#x3b;", "&#38;", "&#x26;", "&#038;", "&#x61;", "&#70;", "&#65533;", "&#xfffd;",
    QStringLiteral("\ufffd"), "&", "&#", "&#x", "&#X", "#", "x", "X", ";", "0", "5", "9", "a", "F", "3;",
    "5;", "#3", "x4", "1;", "8;", "amp;", "lt;", " ", QStringLiteral("\u00e9"), QStringLiteral("\u20ac")};
// clang-format on

QString show(const QString& value)
{
    QString out;
    QDebug(&out).nospace() << value;
    return out;
}

} // namespace

class TestEntityDecoder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sameAsFormerAlgorithm_data();
    void sameAsFormerAlgorithm();
    void decodesManyRepeatedReferences();

private:
    QString pick(const QStringList& list) { return list.at(int(m_rng.bounded(list.size()))); }
    QString referenceTo(ushort unit);
    QString nestedReferences();

    QRandomGenerator m_rng;
};

// One reference text for `unit`, in one of the forms that decode to it.
QString TestEntityDecoder::referenceTo(ushort unit)
{
    switch (m_rng.bounded(5)) {
    case 0:
        return QStringLiteral("&#x%1;").arg(unit, 0, 16);
    case 1:
        return QStringLiteral("&#x%1;").arg(QString::number(unit, 16).toUpper());
    case 2:
        return QStringLiteral("&#0%1;").arg(unit);
    case 3:
        // Only the low 16 bits count.
        return QStringLiteral("&#%1;").arg(unit + 65536);
    default:
        return QStringLiteral("&#%1;").arg(unit);
    }
}

// A reference with some of its characters written as references in turn,
// beside some of the intermediate texts, so that the replacements cascade.
QString TestEntityDecoder::nestedReferences()
{
    QString text = referenceTo(ushort(m_rng.bounded(0x20, 0x80)));
    QStringList parts {text};
    for (int depth = m_rng.bounded(1, 5); depth > 0; --depth) {
        const int at = m_rng.bounded(text.size());
        text = text.left(at) + referenceTo(text.at(at).unicode()) + text.mid(at + 1);
        parts.insert(m_rng.bounded(parts.size() + 1), text);
    }
    QString value;
    for (const QString& part : parts) {
        if (m_rng.bounded(3) != 0)
            value += part + pick(kPieces);
    }
    return value;
}

void TestEntityDecoder::sameAsFormerAlgorithm_data()
{
    QTest::addColumn<int>("shape");
    QTest::addColumn<int>("cases");
    QTest::newRow("short mixed values") << 0 << 30000;
    QTest::newRow("long mixed values") << 1 << 400;
    QTest::newRow("nested references") << 2 << 20000;
}

void TestEntityDecoder::sameAsFormerAlgorithm()
{
    QFETCH(int, shape);
    QFETCH(int, cases);
    m_rng.seed(quint32(20261125 + shape));
    for (int i = 0; i < cases; ++i) {
        QString value;
        if (shape == 2) {
            value = nestedReferences();
        } else {
            for (int k = shape == 1 ? m_rng.bounded(200, 400) : m_rng.bounded(1, 40); k > 0; --k)
                value += pick(kPieces);
        }
        if (m_rng.bounded(6) == 0)
            value.truncate(m_rng.bounded(value.size() + 1));
        const QString expected = EntityDecoder::reference::decode(value, &value);
        const QString decoded = EntityDecoder::decode(value, &value);
        if (decoded != expected)
            QFAIL(qPrintable(QStringLiteral("value %1\n  decoded:  %2\n  expected: %3")
                                 .arg(show(value), show(decoded), show(expected))));
        // Values cut out of a message are decoded without the string itself.
        QCOMPARE(EntityDecoder::decode(QStringView(value)), expected);
    }
}

void TestEntityDecoder::decodesManyRepeatedReferences()
{
    // "A" is a hexadecimal digit, so each reference could help form another.
    const QString value = QStringLiteral("&#65;").repeated(200000);
    QCOMPARE(EntityDecoder::decode(value, &value), QString(200000, QLatin1Char('A')));
}

QTEST_APPLESS_MAIN(TestEntityDecoder)
#include "tst_entitydecoder.moc"
