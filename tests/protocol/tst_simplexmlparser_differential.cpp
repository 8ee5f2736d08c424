// Holds SimpleXmlParser against the plain regular-expression version in
// tests/support on generated and adversarial input. The generator has a fixed
// seed, so a failure reproduces; the failing input is printed escaped.

#include "referencexmlparser.h"
#include "simplexmlparser.h"

#include <QRandomGenerator>
#include <QRegExp>
#include <QtTest>

namespace {

QString escaped(const QString& s)
{
    QString out;
    for (const QChar c : s) {
        const ushort u = c.unicode();
        if (u == '\\')
            out += QLatin1String("\\\\");
        else if (u == '\n')
            out += QLatin1String("\\n");
        else if (u == '\t')
            out += QLatin1String("\\t");
        else if (u == '\r')
            out += QLatin1String("\\r");
        else if (u < 0x20 || u >= 0x7f)
            out += QStringLiteral("\\u%1").arg(u, 4, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return QLatin1Char('"') + out + QLatin1Char('"');
}

QString show(const QString& s)
{
    return escaped(s);
}
QString show(bool b)
{
    return b ? QStringLiteral("true") : QStringLiteral("false");
}
QString show(int i)
{
    return QString::number(i);
}
QString show(const QStringList& list)
{
    QStringList parts;
    for (const QString& s : list)
        parts << escaped(s);
    return QLatin1Char('[') + parts.join(QLatin1String(", ")) + QLatin1Char(']');
}
QString show(const QMap<QString, QString>& map)
{
    QStringList parts;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        parts << escaped(it.key()) + QLatin1Char('=') + escaped(it.value());
    return QLatin1Char('{') + parts.join(QLatin1String(", ")) + QLatin1Char('}');
}
QString show(const QList<QMap<QString, QString>>& list)
{
    QStringList parts;
    for (const auto& map : list)
        parts << show(map);
    return QLatin1Char('[') + parts.join(QLatin1String(", ")) + QLatin1Char(']');
}

} // namespace

// Compares one result of both implementations; on a difference the test
// fails naming the call, the input and both results.
#define SAME(call, fast, reference, input)                                                                   \
    do {                                                                                                     \
        const auto fastResult_ = (fast);                                                                     \
        const auto referenceResult_ = (reference);                                                           \
        if (!(fastResult_ == referenceResult_)) {                                                            \
            QFAIL(qPrintable(QStringLiteral("%1 differs\n  input:     %2\n  parser:    %3\n  reference: %4") \
                                 .arg(call, input, show(fastResult_), show(referenceResult_))));             \
        }                                                                                                    \
    } while (false)

class TestSimpleXmlParserDifferential : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void characterClassesMatchExpressions();
    void lookupsOnGeneratedDocuments();
    void lookupsOnMutatedMessages();
    void entitiesOnGeneratedText();
    void framingOnGeneratedStreams();
    void framingOfLargeChunks();

private:
    void compareLookups(const QString& xml, const QString& tag, int startPos);
    QString randomDocument(int pieces);
    QString randomElement(int depth);
    QString randomAttributes();
    QString randomText(int pieces);
    QString realisticMessage();
    QString mutate(const QString& s);
    QString pick(const QStringList& list) { return list.at(m_rng.bounded(list.size())); }

    QRandomGenerator m_rng {20260514u};
    int m_compared = 0;
};

static const QStringList kNames
    = {QStringLiteral("item"),    QStringLiteral("item2"),  QStringLiteral("it"),  QStringLiteral("Item"),
       QStringLiteral("a"),       QStringLiteral("a-b"),    QStringLiteral("x_y"), QStringLiteral("User"),
       QStringLiteral("Contact"), QStringLiteral("e\u00e9")};

// Pieces that sit at the edges of the scanning rules.
static const QStringList kTextPieces = {
    QStringLiteral("hello"),
    QStringLiteral(" "),
    QStringLiteral("\t"),
    QStringLiteral("\n"),
    QStringLiteral("\r\n"),
    QStringLiteral("\u00a0"),
    QStringLiteral("\u2028"),
    QStringLiteral("\u3000"),
    QStringLiteral("\u0085"),
    QStringLiteral("x=y"),
    QStringLiteral(" = "),
    QStringLiteral("="),
    QStringLiteral("\""),
    QStringLiteral("'"),
    QStringLiteral("&amp;"),
    QStringLiteral("&lt;"),
    QStringLiteral("&gt;"),
    QStringLiteral("&quot;"),
    QStringLiteral("&apos;"),
    QStringLiteral("&amp;lt;"),
    QStringLiteral("&amp;amp;gt;"),
    QStringLiteral("&amp;#233;"),
    QStringLiteral("&#233;"),
    QStringLiteral("&#x2019;"),
    QStringLiteral("&#X41;"),
    QStringLiteral("&#x41;"),
    QStringLiteral("&#xe9;"),
    QStringLiteral("&#99999999999;"),
    QStringLiteral("&#2147483647;"),
    QStringLiteral("&#2147483648;"),
    QStringLiteral("&#x7FFFFFFF;"),
    QStringLiteral("&#x80000000;"),
    QStringLiteral("&#x1F600;"),
    QStringLiteral("&#2147483713;"),
    QStringLiteral("&#x80000041;"),
    QStringLiteral("&#4294967361;"),
    QStringLiteral("&#38;"),
    QStringLiteral("&#x26;"),
    QStringLiteral("&#59;"),
    QStringLiteral("&#35;"),
    QStringLiteral("&#54;"),
    QStringLiteral("&#0;"),
    QStringLiteral("&#;"),
    QStringLiteral("&#x;"),
    QStringLiteral("&#12a;"),
    QStringLiteral("&"),
    QStringLiteral("&#"),
    QStringLiteral("#65;"),
    QStringLiteral("\ufffd"),
    QStringLiteral("&#65533;"),
    QStringLiteral("\u00e9"),
    QStringLiteral("\u20ac"),
    QStringLiteral("\u65e5\u672c"),
    QStringLiteral("\U0001F600"),
    QStringLiteral("\u0301"),
    QStringLiteral("\u00aa"),
    QStringLiteral("\u00b2"),
    QStringLiteral("_"),
    QStringLiteral("-"),
    QStringLiteral("--"),
    QStringLiteral("*"),
    QStringLiteral("|"),
    QStringLiteral(">"),
    QStringLiteral("<"),
    QStringLiteral("/>"),
    QStringLiteral("\u0080"),
    QStringLiteral("\u0081"),
    QStringLiteral("'this'"),
    QStringLiteral("p='x'"),
};

void TestSimpleXmlParserDifferential::characterClassesMatchExpressions()
{
    // Every UTF-16 unit in the positions where a class decides: after a tag
    // name, inside an attribute name, around "=", in a numeric reference.
    for (uint u = 0; u <= 0xFFFF; ++u) {
        const QString c {QChar(ushort(u))};
        const QString inputs[] = {
            QStringLiteral("<a") + c + QStringLiteral("b=\"v\">t</a><a") + c + QStringLiteral("q=\"1\"/>"),
            QStringLiteral("<a x") + c + QStringLiteral("y='v' p") + c + QStringLiteral("=") + c
                + QStringLiteral("'w' ") + c + QStringLiteral("=\"z\">t</a>"),
        };
        for (const QString& xml : inputs) {
            int fs = 0, fe = 0, rs = 0, re = 0;
            const bool f = SimpleXmlParser::findStartTagDelimiters(xml, QStringLiteral("a"), 0, fs, fe);
            const bool r = ReferenceXmlParser::findStartTagDelimiters(xml, QStringLiteral("a"), 0, rs, re);
            SAME(QStringLiteral("findStartTagDelimiters"), show(f) + show(fs) + show(fe),
                 show(r) + show(rs) + show(re), escaped(xml));
            SAME(QStringLiteral("getTagsValues"), SimpleXmlParser::getTagsValues(xml, QStringLiteral("a")),
                 ReferenceXmlParser::getTagsValues(xml, QStringLiteral("a")), escaped(xml));
            SAME(QStringLiteral("getTagProperties"),
                 SimpleXmlParser::getTagProperties(xml, QStringLiteral("a")),
                 ReferenceXmlParser::getTagProperties(xml, QStringLiteral("a")), escaped(xml));
        }
        const QString references = QStringLiteral("&#") + c + QStringLiteral("41;&#x4") + c
            + QStringLiteral(";&#1") + c + QStringLiteral(";") + c + QStringLiteral("#65;&") + c;
        SAME(QStringLiteral("decodeEntities"), SimpleXmlParser::decodeEntities(references),
             ReferenceXmlParser::decodeEntities(references), escaped(references));
        SAME(QStringLiteral("encodeEntities(true)"), SimpleXmlParser::encodeEntities(c, true),
             ReferenceXmlParser::encodeEntities(c, true), escaped(c));
        SAME(QStringLiteral("encodeEntities(false)"), SimpleXmlParser::encodeEntities(c, false),
             ReferenceXmlParser::encodeEntities(c, false), escaped(c));
    }
}

QString TestSimpleXmlParserDifferential::randomText(int pieces)
{
    QString s;
    for (int i = 0; i < pieces; ++i)
        s += pick(kTextPieces);
    return s;
}

QString TestSimpleXmlParserDifferential::randomAttributes()
{
    static const QStringList attrNames = {
        QStringLiteral("p1"),  QStringLiteral("p2"), QStringLiteral("a-b"),  QStringLiteral("a-b-c"),
        QStringLiteral("-x"),  QStringLiteral("x-"), QStringLiteral("a--b"), QStringLiteral("\u00e9t\u00e9"),
        QStringLiteral("n_1"), QStringLiteral("")};
    static const QStringList blanks = {QString(), QStringLiteral(" "), QStringLiteral("  "),
                                       QStringLiteral("\n\t"), QStringLiteral("\u00a0")};
    QString s;
    const int count = m_rng.bounded(4);
    for (int i = 0; i < count; ++i) {
        s += pick(blanks) + (m_rng.bounded(2) ? QStringLiteral(" ") : QString()) + pick(attrNames)
            + pick(blanks) + QLatin1Char('=') + pick(blanks);
        const QString quote = m_rng.bounded(6) == 0
            ? QString()
            : (m_rng.bounded(2) ? QStringLiteral("\"") : QStringLiteral("'"));
        s += quote + randomText(m_rng.bounded(3)) + (m_rng.bounded(10) ? quote : QString());
    }
    if (m_rng.bounded(4) == 0)
        s += pick(blanks);
    return s;
}

QString TestSimpleXmlParserDifferential::randomElement(int depth)
{
    const QString name = pick(kNames);
    QString s = QLatin1Char('<') + name;
    const int form = m_rng.bounded(10);
    if (form == 0)
        return s + QStringLiteral("/>");
    if (form == 1)
        return s + randomAttributes() + QStringLiteral(" />");
    if (form == 2)
        return s + QStringLiteral("*>") + randomText(2) + QStringLiteral("</") + name + QLatin1Char('>');
    if (form == 3)
        s += QLatin1Char('|');
    s += randomAttributes();
    if (m_rng.bounded(3) == 0)
        s += QLatin1Char(' ');
    s += QLatin1Char('>');
    const int children = depth > 0 ? m_rng.bounded(4) : 0;
    for (int i = 0; i < children; ++i) {
        if (m_rng.bounded(2))
            s += randomText(m_rng.bounded(3));
        s += randomElement(depth - 1);
    }
    s += randomText(m_rng.bounded(3));
    if (m_rng.bounded(12) != 0)
        s += QStringLiteral("</") + name + QLatin1Char('>');
    return s;
}

QString TestSimpleXmlParserDifferential::randomDocument(int pieces)
{
    QString s;
    for (int i = 0; i < pieces; ++i) {
        switch (m_rng.bounded(6)) {
        case 0:
            s += randomText(1 + m_rng.bounded(3));
            break;
        case 1:
            s += QLatin1Char('<') + pick(kNames) + randomAttributes()
                + (m_rng.bounded(2) ? QStringLiteral(">") : QStringLiteral("/>"));
            break;
        case 2:
            // "<<name>>" matters when the name is given in brackets.
            s += (m_rng.bounded(3) ? QStringLiteral("</") : QStringLiteral("<<")) + pick(kNames)
                + (m_rng.bounded(2) ? QStringLiteral(">") : QStringLiteral(">>"));
            break;
        default:
            s += randomElement(3);
            break;
        }
    }
    return s;
}

QString TestSimpleXmlParserDifferential::realisticMessage()
{
    QString s = QStringLiteral("<SRNT><API>5.7</API><UUID>{67c8770b-44f1-410a-ab9a-f9b5446f13ee}</UUID>"
                               "<Timestamp>2026-11-15T18:10:02.123</Timestamp><Response><PhoneBook>");
    const int users = 1 + m_rng.bounded(3);
    for (int i = 0; i < users; ++i) {
        s += QStringLiteral(
                 "<User id=\"%1\" kind='person'><First>Ann&amp;%1</First><Last>O&apos;Neil</Last>"
                 "<Company>Caf\u00e9 &#233; &#x2019;s</Company><Contact><Type>work</Type>"
                 "<Number>+39 02 %1</Number><Primary>true</Primary></Contact><Contact type = \"x\">"
                 "<Type>mobile</Type><Number/></Contact><Empty /></User>\n")
                 .arg(i);
    }
    s += QStringLiteral("</PhoneBook></Response></SRNT>");
    return s;
}

QString TestSimpleXmlParserDifferential::mutate(const QString& input)
{
    QString s = input;
    const int edits = 1 + m_rng.bounded(4);
    for (int e = 0; e < edits && !s.isEmpty(); ++e) {
        const int at = m_rng.bounded(s.size());
        switch (m_rng.bounded(6)) {
        case 0:
            s.remove(at, 1 + m_rng.bounded(qMin(8, s.size() - at)));
            break;
        case 1:
            s.insert(at, pick(kTextPieces));
            break;
        case 2:
            s.insert(at, s.mid(m_rng.bounded(s.size()), 1 + m_rng.bounded(12)));
            break;
        case 3:
            s.truncate(at);
            break;
        case 4:
            s[at] = QChar(ushort(m_rng.bounded(0x80)));
            break;
        default:
            s.insert(at, randomElement(1));
            break;
        }
    }
    return s;
}

void TestSimpleXmlParserDifferential::compareLookups(const QString& xml, const QString& tag, int startPos)
{
    const QString input
        = QStringLiteral("xml=%1 tag=%2 startPos=%3").arg(escaped(xml), escaped(tag)).arg(startPos);
    SAME(QStringLiteral("getTagValue"),
         SimpleXmlParser::getTagValue(xml, tag, startPos, QStringLiteral("none")),
         ReferenceXmlParser::getTagValue(xml, tag, startPos, QStringLiteral("none")), input);
    SAME(QStringLiteral("getDecodedTagValue"),
         SimpleXmlParser::getDecodedTagValue(xml, tag, startPos, QStringLiteral("d&amp;ef")),
         ReferenceXmlParser::getDecodedTagValue(xml, tag, startPos, QStringLiteral("d&amp;ef")), input);
    SAME(QStringLiteral("getTagProperties"), SimpleXmlParser::getTagProperties(xml, tag, startPos),
         ReferenceXmlParser::getTagProperties(xml, tag, startPos), input);
    int fs = 0, fe = 0, rs = 0, re = 0;
    const bool f = SimpleXmlParser::findStartTagDelimiters(xml, tag, startPos, fs, fe);
    const bool r = ReferenceXmlParser::findStartTagDelimiters(xml, tag, startPos, rs, re);
    SAME(QStringLiteral("findStartTagDelimiters"),
         show(f) + QLatin1Char(' ') + show(fs) + QLatin1Char(' ') + show(fe),
         show(r) + QLatin1Char(' ') + show(rs) + QLatin1Char(' ') + show(re), input);
    if (startPos == 0) {
        SAME(QStringLiteral("getTagsValues"), SimpleXmlParser::getTagsValues(xml, tag),
             ReferenceXmlParser::getTagsValues(xml, tag), input);
        SAME(QStringLiteral("getDecodedTagsValues"), SimpleXmlParser::getDecodedTagsValues(xml, tag),
             ReferenceXmlParser::getDecodedTagsValues(xml, tag), input);
        SAME(QStringLiteral("getTagsProperties"), SimpleXmlParser::getTagsProperties(xml, tag),
             ReferenceXmlParser::getTagsProperties(xml, tag), input);
        SAME(QStringLiteral("decodeEntities"), SimpleXmlParser::decodeEntities(xml),
             ReferenceXmlParser::decodeEntities(xml), input);
        SAME(QStringLiteral("unquoteString"), SimpleXmlParser::unquoteString(xml),
             ReferenceXmlParser::unquoteString(xml), input);
    }
    ++m_compared;
}

void TestSimpleXmlParserDifferential::lookupsOnGeneratedDocuments()
{
    for (int i = 0; i < 3000; ++i) {
        const QString xml = randomDocument(1 + m_rng.bounded(6));
        for (int q = 0; q < 3; ++q) {
            QString tag = pick(kNames);
            if (m_rng.bounded(5) == 0)
                tag = QLatin1Char('<') + tag + QLatin1Char('>');
            compareLookups(xml, tag, 0);
            if (QTest::currentTestFailed())
                return;
        }
        const int len = xml.size();
        compareLookups(xml, pick(kNames), m_rng.bounded(-len - 2, len + 3));
        if (QTest::currentTestFailed())
            return;
    }
    // The element missing entirely, on texts ending in ">" or not.
    const QStringList noElement = {QStringLiteral("ab p1='x' q=\"y\">"), QStringLiteral("abcd p1='x'"),
                                   QString(), QStringLiteral(">"), QStringLiteral("item p='1' />")};
    for (const QString& xml : noElement) {
        compareLookups(xml, QStringLiteral("zz"), 0);
        if (QTest::currentTestFailed())
            return;
    }
    QVERIFY(m_compared > 10000);
}

void TestSimpleXmlParserDifferential::lookupsOnMutatedMessages()
{
    static const QStringList fields
        = {QStringLiteral("User"),    QStringLiteral("First"),   QStringLiteral("Last"),
           QStringLiteral("Company"), QStringLiteral("Contact"), QStringLiteral("Type"),
           QStringLiteral("Number"),  QStringLiteral("Empty"),   QStringLiteral("SRNT"),
           QStringLiteral("API")};
    for (int i = 0; i < 1500; ++i) {
        const QString message = i % 5 == 0 ? realisticMessage() : mutate(realisticMessage());
        for (int q = 0; q < 2; ++q) {
            compareLookups(message, pick(fields), 0);
            if (QTest::currentTestFailed())
                return;
        }
        // Fields of the cut entries, as the list messages read them.
        const QStringList users = SimpleXmlParser::getTagsValues(message, QStringLiteral("User"));
        for (const QString& user : users) {
            compareLookups(user, pick(fields), 0);
            if (QTest::currentTestFailed())
                return;
        }
    }
}

void TestSimpleXmlParserDifferential::entitiesOnGeneratedText()
{
    // References whose decoded character builds or breaks another reference.
    static const QStringList dense
        = {QStringLiteral("&#38;"),  QStringLiteral("&#x26;"), QStringLiteral("&#35;"),
           QStringLiteral("&#71;"),  QStringLiteral("#71;"),   QStringLiteral("71;"),
           QStringLiteral("&amp;#"), QStringLiteral("&"),      QStringLiteral("\ufffd")};
    // A reference whose character completes another one: prefix, maker,
    // rest, and the completed reference again later or not.
    static const QStringList prefixes
        = {QStringLiteral("&#38;"), QStringLiteral("&#"),   QStringLiteral("&#3"),
           QStringLiteral("&"),     QStringLiteral("&#x2"), QString()};
    static const QStringList makers
        = {QStringLiteral("&#55;"),  QStringLiteral("&#49;"), QStringLiteral("&#35;"),
           QStringLiteral("&#59;"),  QStringLiteral("&#38;"), QStringLiteral("&#x26;"),
           QStringLiteral("&#x37;"), QStringLiteral("&#120;")};
    static const QStringList rests
        = {QStringLiteral("1;"),    QStringLiteral("#71;"), QStringLiteral("71;"), QStringLiteral(";"),
           QStringLiteral("#x47;"), QStringLiteral("47;"),  QStringLiteral("8;")};
    static const QStringList laters
        = {QStringLiteral("&#71;"), QStringLiteral("&#x47;"), QStringLiteral("&#8;"),
           QStringLiteral("&#1;"),  QStringLiteral("&#17;"),  QString()};
    for (int i = 0; i < 20000; ++i) {
        QString s;
        if (i % 3 == 1) {
            s = pick(prefixes) + pick(makers) + pick(rests) + pick(laters);
        } else if (i % 3 == 2) {
            for (int k = m_rng.bounded(2, 7); k > 0; --k)
                s += pick(dense);
        } else {
            s = randomText(m_rng.bounded(8));
        }
        if (m_rng.bounded(4) == 0 && !s.isEmpty())
            s.truncate(m_rng.bounded(s.size()));
        if (m_rng.bounded(8) == 0)
            s += QChar(ushort(m_rng.bounded(0x10000)));
        SAME(QStringLiteral("decodeEntities"), SimpleXmlParser::decodeEntities(s),
             ReferenceXmlParser::decodeEntities(s), escaped(s));
        SAME(QStringLiteral("encodeEntities(true)"), SimpleXmlParser::encodeEntities(s, true),
             ReferenceXmlParser::encodeEntities(s, true), escaped(s));
        SAME(QStringLiteral("encodeEntities(false)"), SimpleXmlParser::encodeEntities(s, false),
             ReferenceXmlParser::encodeEntities(s, false), escaped(s));
        SAME(QStringLiteral("unquoteString"), SimpleXmlParser::unquoteString(s),
             ReferenceXmlParser::unquoteString(s), escaped(s));
        const QString decodedTwice
            = SimpleXmlParser::decodeEntities(SimpleXmlParser::encodeEntities(s, false));
        SAME(QStringLiteral("decodeEntities(encodeEntities)"), decodedTwice,
             ReferenceXmlParser::decodeEntities(ReferenceXmlParser::encodeEntities(s, false)), escaped(s));
    }
}

namespace {

// What a parser did, in order: signals as text, plus buffer and queue probes.
template <typename Parser> struct Recorder
{
    Parser parser;
    QStringList events;
    int completedCount = 0;
    // A slot that feeds more text from inside a signal, at a given event.
    int reenterAt = -1;
    QString reenterText;

    Recorder()
    {
        QObject::connect(&parser, &Parser::messageCompleted, [this] {
            events << QStringLiteral("completed");
            maybeReenter();
        });
        QObject::connect(&parser, &Parser::parsedMessage, [this](const QString& m) {
            events << QStringLiteral("parsed ") + m;
            maybeReenter();
        });
        QObject::connect(&parser, &Parser::parseErrorFound, [this](auto error) {
            events << QStringLiteral("error %1").arg(int(error));
            maybeReenter();
        });
    }
    void maybeReenter()
    {
        if (events.size() == reenterAt)
            parser.addData(reenterText);
    }
};

} // namespace

void TestSimpleXmlParserDifferential::framingOnGeneratedStreams()
{
    static const QStringList roots = {QStringLiteral("SRNT"), QStringLiteral("SRNT"), QStringLiteral("SRNT"),
                                      QStringLiteral("R"), QString()};
    int messagesSeen = 0;
    for (int round = 0; round < 1500; ++round) {
        const QString root = pick(roots);
        const QString open = QLatin1Char('<') + root + QLatin1Char('>');
        const QString close = QStringLiteral("</") + root + QLatin1Char('>');
        QString stream;
        const int parts = 1 + m_rng.bounded(8);
        for (int p = 0; p < parts; ++p) {
            switch (m_rng.bounded(9)) {
            case 0:
                stream += close;
                break;
            case 1:
                stream += QStringLiteral("\r\n") + randomText(2);
                break;
            case 2:
                stream += open + randomDocument(2);
                break;
            case 3:
                stream += QLatin1Char('<') + root + QStringLiteral(" a='1'>") + randomText(1) + close;
                break;
            case 4:
                stream += open + open + randomText(1) + close + close;
                break;
            default:
                stream += open
                    + (m_rng.bounded(3) ? randomDocument(1 + m_rng.bounded(3)) : realisticMessage()) + close;
                break;
            }
        }

        Recorder<SimpleXmlParser> fast;
        Recorder<ReferenceXmlParser::Framer> reference;
        const int mode = QList<int> {0, 0, 1, 2, 3, 4, -1}.at(m_rng.bounded(7));
        const int limit = QList<int> {0, 0, 0, 5, 10, 40, 150}.at(m_rng.bounded(7));
        fast.parser.rootTag = reference.parser.rootTag = root;
        fast.parser.setNotifyMode(mode);
        reference.parser.setNotifyMode(mode);
        fast.parser.setMaxBufferSize(limit);
        reference.parser.setMaxBufferSize(limit);
        if (m_rng.bounded(5) == 0) {
            fast.reenterAt = reference.reenterAt = 1 + m_rng.bounded(3);
            fast.reenterText = reference.reenterText = open + QStringLiteral("inner") + close + randomText(1);
        }

        QString log = QStringLiteral("root=%1 mode=%2 limit=%3 stream=%4\n")
                          .arg(escaped(root))
                          .arg(mode)
                          .arg(limit)
                          .arg(escaped(stream));
        int pos = 0;
        while (pos <= stream.size()) {
            const int kind = m_rng.bounded(4);
            const int len = kind == 0 ? 1 : kind == 1 ? m_rng.bounded(4) : m_rng.bounded(1, 60);
            const QString chunk = stream.mid(pos, len);
            pos += qMax(1, len);
            log += QStringLiteral("addData(%1)\n").arg(escaped(chunk));
            fast.parser.addData(chunk);
            reference.parser.addData(chunk);
            SAME(QStringLiteral("signals"), fast.events, reference.events, log);
            SAME(QStringLiteral("getCurrentBuffer"), fast.parser.getCurrentBuffer(),
                 reference.parser.getCurrentBuffer(), log);
            switch (m_rng.bounded(12)) {
            case 0:
                log += QStringLiteral("getNextMessage()\n");
                SAME(QStringLiteral("getNextMessage"), fast.parser.getNextMessage(),
                     reference.parser.getNextMessage(), log);
                break;
            case 1:
                log += QStringLiteral("emptyBuffer()\n");
                fast.parser.emptyBuffer();
                reference.parser.emptyBuffer();
                break;
            case 2: {
                const int newLimit = m_rng.bounded(-2, 60);
                log += QStringLiteral("setMaxBufferSize(%1)\n").arg(newLimit);
                fast.parser.setMaxBufferSize(newLimit);
                reference.parser.setMaxBufferSize(newLimit);
                break;
            }
            case 3:
                if (m_rng.bounded(10) == 0) {
                    const QString newRoot = pick(roots);
                    log += QStringLiteral("rootTag=%1\n").arg(escaped(newRoot));
                    fast.parser.rootTag = reference.parser.rootTag = newRoot;
                }
                break;
            default:
                break;
            }
            SAME(QStringLiteral("hasPendingMessages"), fast.parser.hasPendingMessages(),
                 reference.parser.hasPendingMessages(), log);
        }
        QStringList fastQueue, referenceQueue;
        while (fast.parser.hasPendingMessages())
            fastQueue << fast.parser.getNextMessage();
        while (reference.parser.hasPendingMessages())
            referenceQueue << reference.parser.getNextMessage();
        SAME(QStringLiteral("pending messages"), fastQueue, referenceQueue, log);
        messagesSeen += fast.events.size() + fastQueue.size();
    }
    QVERIFY(messagesSeen > 1000);

    // One large message in small chunks, then a burst of small ones in one chunk.
    Recorder<SimpleXmlParser> fast;
    Recorder<ReferenceXmlParser::Framer> reference;
    fast.parser.rootTag = reference.parser.rootTag = QStringLiteral("SRNT");
    QString big = QStringLiteral("noise<SRNT>");
    for (int i = 0; i < 2000; ++i)
        big += QStringLiteral("<User><First>n%1</First></User>").arg(i);
    big += QStringLiteral("</SRNT>");
    for (int i = 0; i < 300; ++i)
        big += QStringLiteral("<SRNT><KeepAlive/></SRNT>\n");
    big += QStringLiteral("<SRNT><Partial");
    for (int pos = 0; pos < big.size(); pos += 7) {
        fast.parser.addData(big.mid(pos, 7));
        reference.parser.addData(big.mid(pos, 7));
    }
    fast.parser.addData(big);
    reference.parser.addData(big);
    SAME(QStringLiteral("signals"), fast.events, reference.events, QStringLiteral("large stream"));
    SAME(QStringLiteral("getCurrentBuffer"), fast.parser.getCurrentBuffer(),
         reference.parser.getCurrentBuffer(), QStringLiteral("large stream"));
    QCOMPARE(fast.events.size(), 602);
}

void TestSimpleXmlParserDifferential::framingOfLargeChunks()
{
    // Chunks of several kilobytes, cut inside root tags, then small ones
    // again: the text is held as the chunks came and searched across them.
    const QString open = QStringLiteral("<SRNT>");
    const QString close = QStringLiteral("</SRNT>");
    {
        // A message as long as the chunk it starts in, but not aligned with it.
        Recorder<SimpleXmlParser> fast;
        Recorder<ReferenceXmlParser::Framer> reference;
        fast.parser.rootTag = reference.parser.rootTag = QStringLiteral("SRNT");
        const QStringList chunks
            = {QStringLiteral("zz<SRNT>") + QString(9000, QLatin1Char('a')) + QStringLiteral("</SRN"),
               QStringLiteral("T>tail")};
        for (const QString& chunk : chunks) {
            fast.parser.addData(chunk);
            reference.parser.addData(chunk);
        }
        SAME(QStringLiteral("getNextMessage"), fast.parser.getNextMessage(),
             reference.parser.getNextMessage(), QStringLiteral("message as long as its first chunk"));
        SAME(QStringLiteral("getCurrentBuffer"), fast.parser.getCurrentBuffer(),
             reference.parser.getCurrentBuffer(), QStringLiteral("message as long as its first chunk"));
    }
    for (int round = 0; round < 120; ++round) {
        QString stream;
        while (stream.size() < 60000) {
            switch (m_rng.bounded(6)) {
            case 0:
                stream += close;
                break;
            case 1:
                stream += randomText(3);
                break;
            default: {
                QString body;
                const int target = m_rng.bounded(10) == 0 ? 30000 : m_rng.bounded(4000);
                while (body.size() < target)
                    body += m_rng.bounded(2) ? realisticMessage().mid(6) : randomDocument(2);
                stream += open + body + close;
                break;
            }
            }
        }
        Recorder<SimpleXmlParser> fast;
        Recorder<ReferenceXmlParser::Framer> reference;
        fast.parser.rootTag = reference.parser.rootTag = QStringLiteral("SRNT");
        const int mode = m_rng.bounded(5);
        fast.parser.setNotifyMode(mode);
        reference.parser.setNotifyMode(mode);
        QString log = QStringLiteral("mode=%1 stream=%2\n").arg(mode).arg(escaped(stream));
        int pos = 0;
        while (pos < stream.size()) {
            int len;
            switch (m_rng.bounded(4)) {
            case 0:
                len = m_rng.bounded(1, 40);
                break;
            case 1: {
                // End the chunk inside the next root tag after a few kilobytes.
                const QString& tag = m_rng.bounded(2) ? open : close;
                const int at = stream.indexOf(tag, pos + m_rng.bounded(6000, 12000));
                len = at < 0 ? stream.size() - pos : at - pos + m_rng.bounded(1, tag.size());
                break;
            }
            default:
                len = m_rng.bounded(6000, 20000);
                break;
            }
            const QString chunk = stream.mid(pos, len);
            log += QStringLiteral("addData(%1 units from %2)\n").arg(chunk.size()).arg(pos);
            pos += len;
            fast.parser.addData(chunk);
            reference.parser.addData(chunk);
            SAME(QStringLiteral("signals"), fast.events, reference.events, log);
            SAME(QStringLiteral("getCurrentBuffer"), fast.parser.getCurrentBuffer(),
                 reference.parser.getCurrentBuffer(), log);
            if (m_rng.bounded(15) == 0) {
                log += QStringLiteral("getNextMessage()\n");
                SAME(QStringLiteral("getNextMessage"), fast.parser.getNextMessage(),
                     reference.parser.getNextMessage(), log);
            }
            if (m_rng.bounded(40) == 0) {
                log += QStringLiteral("emptyBuffer()\n");
                fast.parser.emptyBuffer();
                reference.parser.emptyBuffer();
            }
        }
        QStringList fastQueue, referenceQueue;
        while (fast.parser.hasPendingMessages())
            fastQueue << fast.parser.getNextMessage();
        while (reference.parser.hasPendingMessages())
            referenceQueue << reference.parser.getNextMessage();
        SAME(QStringLiteral("pending messages"), fastQueue, referenceQueue, log);
    }
}

QTEST_GUILESS_MAIN(TestSimpleXmlParserDifferential)
#include "tst_simplexmlparser_differential.moc"
