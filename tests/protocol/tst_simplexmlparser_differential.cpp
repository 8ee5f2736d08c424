// Holds SimpleXmlParser against the plain regular-expression version in
// tests/support on generated and adversarial input. The generator has a fixed
// seed, so a failure reproduces; the failing input is printed escaped.

#include "referencexmlparser.h"
#include "simplexmlparser.h"

#include <QDebug>
#include <QRandomGenerator>
#include <QtTest>

namespace {

// Quoted, with control and non-ASCII characters escaped.
template <typename T> QString show(const T& value)
{
    QString out;
    QDebug(&out).nospace() << value;
    return out;
}

// Start and end of a start tag and whether it closes itself, as one text.
template <typename Find> QString delimiters(Find find, const QString& xml, const QString& tag, int startPos)
{
    int start = 0, end = 0;
    const bool selfClosed = find(xml, tag, startPos, start, end);
    return show(selfClosed) + show(start) + show(end);
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

// The same call on both implementations.
#define SAME_CALL(name, call, input)                                                                         \
    SAME(QStringLiteral(name), SimpleXmlParser::call, ReferenceXmlParser::call, input)

#define SAME_DELIMITERS(xml, tag, startPos, input)                                                           \
    SAME(QStringLiteral("findStartTagDelimiters"),                                                           \
         delimiters(SimpleXmlParser::findStartTagDelimiters, xml, tag, startPos),                            \
         delimiters(ReferenceXmlParser::findStartTagDelimiters, xml, tag, startPos), input)

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
    = {"item", "item2", "it", "Item", "a", "a-b", "x_y", "User", "Contact", QStringLiteral("e\u00e9")};

// Pieces that sit at the edges of the scanning rules.
// clang-format off
static const QStringList kTextPieces = {
    "hello", " ", "\t", QStringLiteral("\n"), QStringLiteral("\r\n"), QStringLiteral("\u00a0"),
    QStringLiteral("\u2028"), QStringLiteral("\u3000"), QStringLiteral("\u0085"), "x=y", " = ", "=", "\"",
    "'", "&amp;", "&lt;", "&gt;", "&quot;", "&apos;", "&amp;lt;", "&amp;amp;gt;", "&amp;#233;", "&#233;",
    "&#x2019;", "&#X41;", "&#x41;", "&#xe9;", "&#99999999999;", "&#2147483647;", "&#2147483648;",
    "&#x7FFFFFFF;", "&#x80000000;", "&#x1F600;", "&#2147483713;", "&#x80000041;", "&#4294967361;", "&#38;",
    "&#x26;", "&#59;", "&#35;", "&#54;", "&#0;", "&#;", "&#x;", "&#12a;", "&", "&#", "#65;",
    QStringLiteral("\ufffd"), "&#65533;", QStringLiteral("\u00e9"), QStringLiteral("\u20ac"),
    QStringLiteral("\u65e5\u672c"), QStringLiteral("\U0001F600"), QStringLiteral("\u0301"),
    QStringLiteral("\u00aa"), QStringLiteral("\u00b2"), "_", "-", "--", "*", "|", ">", "<", "/>",
    QStringLiteral("\u0080"), QStringLiteral("\u0081"), "'this'", "p='x'"};
// clang-format on

void TestSimpleXmlParserDifferential::characterClassesMatchExpressions()
{
    // Every UTF-16 unit in the positions where a class decides: after a tag
    // name, inside an attribute name, around "=", in a numeric reference.
    const QString a = QStringLiteral("a");
    for (uint u = 0; u <= 0xFFFF; ++u) {
        const QString c {QChar(ushort(u))};
        const QString inputs[] = {
            "<a" + c + "b=\"v\">t</a><a" + c + "q=\"1\"/>",
            "<a x" + c + "y='v' p" + c + "=" + c + "'w' " + c + "=\"z\">t</a>",
        };
        for (const QString& xml : inputs) {
            SAME_DELIMITERS(xml, a, 0, show(xml));
            SAME_CALL("getTagsValues", getTagsValues(xml, a), show(xml));
            SAME_CALL("getTagProperties", getTagProperties(xml, a), show(xml));
        }
        const QString references = "&#" + c + "41;&#x4" + c + ";&#1" + c + ";" + c + "#65;&" + c;
        SAME_CALL("decodeEntities", decodeEntities(references), show(references));
        SAME_CALL("encodeEntities(true)", encodeEntities(c, true), show(c));
        SAME_CALL("encodeEntities(false)", encodeEntities(c, false), show(c));
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
    static const QStringList attrNames
        = {"p1", "p2", "a-b", "a-b-c", "-x", "x-", "a--b", QStringLiteral("\u00e9t\u00e9"), "n_1", ""};
    static const QStringList blanks = {QString(), " ", "  ", "\n\t", QStringLiteral("\u00a0")};
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
        const int kind = m_rng.bounded(6);
        if (kind == 0)
            s += randomText(1 + m_rng.bounded(3));
        else if (kind == 1)
            s += QLatin1Char('<') + pick(kNames) + randomAttributes()
                + (m_rng.bounded(2) ? QStringLiteral(">") : QStringLiteral("/>"));
        else if (kind == 2) // "<<name>>" matters when the name is given in brackets.
            s += (m_rng.bounded(3) ? QStringLiteral("</") : QStringLiteral("<<")) + pick(kNames)
                + (m_rng.bounded(2) ? QStringLiteral(">") : QStringLiteral(">>"));
        else
            s += randomElement(3);
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
        const int kind = m_rng.bounded(6);
        if (kind == 0)
            s.remove(at, 1 + m_rng.bounded(qMin(8, s.size() - at)));
        else if (kind == 1)
            s.insert(at, pick(kTextPieces));
        else if (kind == 2)
            s.insert(at, s.mid(m_rng.bounded(s.size()), 1 + m_rng.bounded(12)));
        else if (kind == 3)
            s.truncate(at);
        else if (kind == 4)
            s[at] = QChar(ushort(m_rng.bounded(0x80)));
        else
            s.insert(at, randomElement(1));
    }
    return s;
}

void TestSimpleXmlParserDifferential::compareLookups(const QString& xml, const QString& tag, int startPos)
{
    const QString input = QStringLiteral("xml=%1 tag=%2 startPos=%3").arg(show(xml), show(tag)).arg(startPos);
    const QString none = QStringLiteral("none");
    const QString encodedDefault = QStringLiteral("d&amp;ef");
    SAME_CALL("getTagValue", getTagValue(xml, tag, startPos, none), input);
    SAME_CALL("getDecodedTagValue", getDecodedTagValue(xml, tag, startPos, encodedDefault), input);
    SAME_CALL("getTagProperties", getTagProperties(xml, tag, startPos), input);
    SAME_DELIMITERS(xml, tag, startPos, input);
    if (startPos == 0) {
        SAME_CALL("getTagsValues", getTagsValues(xml, tag), input);
        SAME_CALL("getDecodedTagsValues", getDecodedTagsValues(xml, tag), input);
        SAME_CALL("getTagsProperties", getTagsProperties(xml, tag), input);
        SAME_CALL("decodeEntities", decodeEntities(xml), input);
        SAME_CALL("unquoteString", unquoteString(xml), input);
    }
    ++m_compared;
}

void TestSimpleXmlParserDifferential::lookupsOnGeneratedDocuments()
{
    for (int i = 0; i < 3000 && !QTest::currentTestFailed(); ++i) {
        const QString xml = randomDocument(1 + m_rng.bounded(6));
        for (int q = 0; q < 3 && !QTest::currentTestFailed(); ++q) {
            QString tag = pick(kNames);
            if (m_rng.bounded(5) == 0)
                tag = QLatin1Char('<') + tag + QLatin1Char('>');
            compareLookups(xml, tag, 0);
        }
        const int len = xml.size();
        compareLookups(xml, pick(kNames), m_rng.bounded(-len - 2, len + 3));
    }
    // The element missing entirely, on texts ending in ">" or not.
    for (const char* xml : {"ab p1='x' q=\"y\">", "abcd p1='x'", "", ">", "item p='1' />"}) {
        if (!QTest::currentTestFailed())
            compareLookups(QString::fromLatin1(xml), QStringLiteral("zz"), 0);
    }
    QVERIFY(m_compared > 10000);
}

void TestSimpleXmlParserDifferential::lookupsOnMutatedMessages()
{
    static const QStringList fields
        = {"User", "First", "Last", "Company", "Contact", "Type", "Number", "Empty", "SRNT", "API"};
    for (int i = 0; i < 1500 && !QTest::currentTestFailed(); ++i) {
        const QString message = i % 5 == 0 ? realisticMessage() : mutate(realisticMessage());
        compareLookups(message, pick(fields), 0);
        compareLookups(message, pick(fields), 0);
        // Fields of the cut entries, as the list messages read them.
        const QStringList users = SimpleXmlParser::getTagsValues(message, QStringLiteral("User"));
        for (const QString& user : users)
            compareLookups(user, pick(fields), 0);
    }
}

void TestSimpleXmlParserDifferential::entitiesOnGeneratedText()
{
    // References whose decoded character builds or breaks another reference.
    static const QStringList dense
        = {"&#38;", "&#x26;", "&#35;", "&#71;", "#71;", "71;", "&amp;#", "&", QStringLiteral("\ufffd")};
    // A reference whose character completes another one: prefix, maker,
    // rest, and the completed reference again later or not.
    static const QStringList prefixes = {"&#38;", "&#", "&#3", "&", "&#x2", QString()};
    static const QStringList makers
        = {"&#55;", "&#49;", "&#35;", "&#59;", "&#38;", "&#x26;", "&#x37;", "&#120;"};
    static const QStringList rests = {"1;", "#71;", "71;", ";", "#x47;", "47;", "8;"};
    static const QStringList laters = {"&#71;", "&#x47;", "&#8;", "&#1;", "&#17;", QString()};
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
        SAME_CALL("decodeEntities", decodeEntities(s), show(s));
        SAME_CALL("encodeEntities(true)", encodeEntities(s, true), show(s));
        SAME_CALL("encodeEntities(false)", encodeEntities(s, false), show(s));
        SAME_CALL("unquoteString", unquoteString(s), show(s));
        SAME_CALL("decodeEntities(encodeEntities)", decodeEntities(SimpleXmlParser::encodeEntities(s, false)),
                  show(s));
    }
}

namespace {

// What a parser did, in order: signals as text.
template <typename Parser> struct Recorder
{
    Parser parser;
    QStringList events;
    // A slot that feeds more text from inside a signal, at a given event.
    int reenterAt = -1;
    QString reenterText;

    Recorder()
    {
        QObject::connect(&parser, &Parser::messageCompleted, [this] { record(QStringLiteral("completed")); });
        QObject::connect(&parser, &Parser::parsedMessage,
                         [this](const QString& m) { record(QStringLiteral("parsed ") + m); });
        QObject::connect(&parser, &Parser::parseErrorFound,
                         [this](auto error) { record(QStringLiteral("error %1").arg(int(error))); });
    }
    void record(const QString& event)
    {
        events << event;
        if (events.size() == reenterAt)
            parser.addData(reenterText);
    }
    QStringList drain()
    {
        QStringList queue;
        while (parser.hasPendingMessages())
            queue << parser.getNextMessage();
        return queue;
    }
};

// Both framers, driven alike.
struct Twin
{
    Recorder<SimpleXmlParser> fast;
    Recorder<ReferenceXmlParser::Framer> reference;

    Twin(const QString& root, int mode = 0, int limit = 0)
    {
        both([&](auto& p) {
            p.rootTag = root;
            p.setNotifyMode(mode);
            p.setMaxBufferSize(limit);
        });
    }
    template <typename F> void both(F f)
    {
        f(fast.parser);
        f(reference.parser);
    }
};

} // namespace

#define SAME_FRAMING(twin, log)                                                                              \
    do {                                                                                                     \
        SAME(QStringLiteral("signals"), twin.fast.events, twin.reference.events, log);                       \
        SAME(QStringLiteral("getCurrentBuffer"), twin.fast.parser.getCurrentBuffer(),                        \
             twin.reference.parser.getCurrentBuffer(), log);                                                 \
    } while (false)

void TestSimpleXmlParserDifferential::framingOnGeneratedStreams()
{
    static const QStringList roots = {"SRNT", "SRNT", "SRNT", "R", QString()};
    int messagesSeen = 0;
    for (int round = 0; round < 1500; ++round) {
        const QString root = pick(roots);
        const QString open = QLatin1Char('<') + root + QLatin1Char('>');
        const QString close = QStringLiteral("</") + root + QLatin1Char('>');
        QString stream;
        const int parts = 1 + m_rng.bounded(8);
        for (int p = 0; p < parts; ++p) {
            const int kind = m_rng.bounded(9);
            if (kind == 0)
                stream += close;
            else if (kind == 1)
                stream += QStringLiteral("\r\n") + randomText(2);
            else if (kind == 2)
                stream += open + randomDocument(2);
            else if (kind == 3)
                stream += QLatin1Char('<') + root + QStringLiteral(" a='1'>") + randomText(1) + close;
            else if (kind == 4)
                stream += open + open + randomText(1) + close + close;
            else
                stream += open
                    + (m_rng.bounded(3) ? randomDocument(1 + m_rng.bounded(3)) : realisticMessage()) + close;
        }

        const int mode = QList<int> {0, 0, 1, 2, 3, 4, -1}.at(m_rng.bounded(7));
        const int limit = QList<int> {0, 0, 0, 5, 10, 40, 150}.at(m_rng.bounded(7));
        Twin t(root, mode, limit);
        if (m_rng.bounded(5) == 0) {
            t.fast.reenterAt = t.reference.reenterAt = 1 + m_rng.bounded(3);
            t.fast.reenterText = t.reference.reenterText
                = open + QStringLiteral("inner") + close + randomText(1);
        }

        QString log = QStringLiteral("root=%1 mode=%2 limit=%3 stream=%4\n")
                          .arg(show(root), QString::number(mode), QString::number(limit), show(stream));
        int pos = 0;
        while (pos <= stream.size()) {
            const int kind = m_rng.bounded(4);
            const int len = kind == 0 ? 1 : kind == 1 ? m_rng.bounded(4) : m_rng.bounded(1, 60);
            const QString chunk = stream.mid(pos, len);
            pos += qMax(1, len);
            log += QStringLiteral("addData(%1)\n").arg(show(chunk));
            t.both([&](auto& p) { p.addData(chunk); });
            SAME_FRAMING(t, log);
            const int action = m_rng.bounded(12);
            if (action == 0) {
                log += QStringLiteral("getNextMessage()\n");
                SAME(QStringLiteral("getNextMessage"), t.fast.parser.getNextMessage(),
                     t.reference.parser.getNextMessage(), log);
            } else if (action == 1) {
                log += QStringLiteral("emptyBuffer()\n");
                t.both([](auto& p) { p.emptyBuffer(); });
            } else if (action == 2) {
                const int newLimit = m_rng.bounded(-2, 60);
                log += QStringLiteral("setMaxBufferSize(%1)\n").arg(newLimit);
                t.both([&](auto& p) { p.setMaxBufferSize(newLimit); });
            } else if (action == 3 && m_rng.bounded(10) == 0) {
                const QString newRoot = pick(roots);
                log += QStringLiteral("rootTag=%1\n").arg(show(newRoot));
                t.both([&](auto& p) { p.rootTag = newRoot; });
            }
            SAME(QStringLiteral("hasPendingMessages"), t.fast.parser.hasPendingMessages(),
                 t.reference.parser.hasPendingMessages(), log);
        }
        const QStringList queue = t.fast.drain();
        SAME(QStringLiteral("pending messages"), queue, t.reference.drain(), log);
        messagesSeen += t.fast.events.size() + queue.size();
    }
    QVERIFY(messagesSeen > 1000);

    // One large message in small chunks, then a burst of small ones in one chunk.
    Twin t(QStringLiteral("SRNT"));
    QString big = QStringLiteral("noise<SRNT>");
    for (int i = 0; i < 2000; ++i)
        big += QStringLiteral("<User><First>n%1</First></User>").arg(i);
    big += QStringLiteral("</SRNT>");
    for (int i = 0; i < 300; ++i)
        big += QStringLiteral("<SRNT><KeepAlive/></SRNT>\n");
    big += QStringLiteral("<SRNT><Partial");
    for (int pos = 0; pos < big.size(); pos += 7)
        t.both([&](auto& p) { p.addData(big.mid(pos, 7)); });
    t.both([&](auto& p) { p.addData(big); });
    SAME_FRAMING(t, QStringLiteral("large stream"));
    QCOMPARE(t.fast.events.size(), 602);
}

void TestSimpleXmlParserDifferential::framingOfLargeChunks()
{
    // Chunks of several kilobytes, cut inside root tags, then small ones
    // again: messages handed on as the whole buffer, a prefix of it, or a
    // copy, with the consumed text dropped before or after new text joins.
    const QString open = QStringLiteral("<SRNT>");
    const QString close = QStringLiteral("</SRNT>");
    {
        // A message as long as the chunk it starts in, but not aligned with it.
        Twin t(QStringLiteral("SRNT"));
        t.both([](auto& p) {
            p.addData(QStringLiteral("zz<SRNT>") + QString(9000, QLatin1Char('a')) + QStringLiteral("</SRN"));
            p.addData(QStringLiteral("T>tail"));
        });
        const QString what = QStringLiteral("message as long as its first chunk");
        SAME_FRAMING(t, what);
        SAME(QStringLiteral("pending messages"), t.fast.drain(), t.reference.drain(), what);
    }
    for (int round = 0; round < 100; ++round) {
        QString stream;
        while (stream.size() < 60000) {
            const int kind = m_rng.bounded(6);
            if (kind == 0) {
                stream += close;
            } else if (kind == 1) {
                stream += randomText(3);
            } else {
                QString body;
                const int target = m_rng.bounded(10) == 0 ? 30000 : m_rng.bounded(4000);
                while (body.size() < target)
                    body += m_rng.bounded(2) ? realisticMessage().mid(6) : randomDocument(2);
                stream += open + body + close;
            }
        }
        const int mode = m_rng.bounded(5);
        Twin t(QStringLiteral("SRNT"), mode);
        QString log = QStringLiteral("mode=%1 stream=%2\n").arg(mode).arg(show(stream));
        int pos = 0;
        while (pos < stream.size()) {
            const int kind = m_rng.bounded(4);
            int len = kind == 0 ? m_rng.bounded(1, 40) : kind == 1 ? 0 : m_rng.bounded(6000, 20000);
            if (kind == 1) {
                // End the chunk inside the next root tag after a few kilobytes.
                const QString& tag = m_rng.bounded(2) ? open : close;
                const int at = stream.indexOf(tag, pos + m_rng.bounded(6000, 12000));
                len = at < 0 ? stream.size() - pos : at - pos + m_rng.bounded(1, tag.size());
            }
            const QString chunk = stream.mid(pos, len);
            log += QStringLiteral("addData(%1 units from %2)\n").arg(chunk.size()).arg(pos);
            pos += len;
            t.both([&](auto& p) { p.addData(chunk); });
            SAME_FRAMING(t, log);
            if (m_rng.bounded(15) == 0) {
                log += QStringLiteral("getNextMessage()\n");
                SAME(QStringLiteral("getNextMessage"), t.fast.parser.getNextMessage(),
                     t.reference.parser.getNextMessage(), log);
            }
            if (m_rng.bounded(40) == 0) {
                log += QStringLiteral("emptyBuffer()\n");
                t.both([](auto& p) { p.emptyBuffer(); });
            }
        }
        SAME(QStringLiteral("pending messages"), t.fast.drain(), t.reference.drain(), log);
    }
}

QTEST_GUILESS_MAIN(TestSimpleXmlParserDifferential)
#include "tst_simplexmlparser_differential.moc"
