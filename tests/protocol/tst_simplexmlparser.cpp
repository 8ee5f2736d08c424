#include "simplexmlparser.h"

#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <memory>

using Properties = QMap<QString, QString>;
Q_DECLARE_METATYPE(Properties)
Q_DECLARE_METATYPE(QList<Properties>)

namespace {

// Every signal of one parser in emission order, as text.
struct SignalLog
{
    QStringList events;

    explicit SignalLog(SimpleXmlParser& parser)
    {
        QObject::connect(&parser, &SimpleXmlParser::messageCompleted,
                         [this] { events << QStringLiteral("completed"); });
        QObject::connect(&parser, &SimpleXmlParser::parsedMessage,
                         [this](const QString& m) { events << QStringLiteral("parsed ") + m; });
        QObject::connect(&parser, &SimpleXmlParser::parseErrorFound,
                         [this](SimpleXmlParser::ParseErrorEnumType e) {
                             events << (e == SimpleXmlParser::MalformedStream ? QStringLiteral("malformed")
                                                                              : QStringLiteral("full"));
                         });
    }
};

QStringList drain(SimpleXmlParser& parser)
{
    QStringList messages;
    while (parser.hasPendingMessages())
        messages << parser.getNextMessage();
    return messages;
}

QStringList words(const QString& s)
{
    return s.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

// One row per line in the lookup tables.
void valueRow(const char* name, const QString& xml, const QString& tag, int startPos, const QString& expected)
{
    QTest::newRow(name) << xml << tag << startPos << expected;
}
void valuesRow(const char* name, const QString& xml, const QString& tag, const QStringList& expected)
{
    QTest::newRow(name) << xml << tag << expected;
}
void propertiesRow(const char* name, const QString& xml, const QString& tag, int startPos,
                   const Properties& expected)
{
    QTest::newRow(name) << xml << tag << startPos << expected;
}
void delimitersRow(const char* name, const QString& xml, const QString& tag, int startPos, bool selfClosed,
                   int start, int end)
{
    QTest::newRow(name) << xml << tag << startPos << selfClosed << start << end;
}
void textRow(const char* name, const QString& text, const QString& expected)
{
    QTest::newRow(name) << text << expected;
}

} // namespace

class TestSimpleXmlParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void framing_data();
    void framing();
    void splitAtEveryPosition();
    void emptyBufferKeepsQueuedMessages();
    void bufferLimit_data();
    void bufferLimit();
    void bufferFullRepeatsUntilEmptied();
    void notifyMode_data();
    void notifyMode();
    void slotFeedingMoreTextWhileSignalled();
    void consumerOnAnotherThread();

    void getTagValue_data();
    void getTagValue();
    void getTagsValues_data();
    void getTagsValues();
    void decodedAndListLookups();
    void getTagProperties_data();
    void getTagProperties();
    void findStartTagDelimiters_data();
    void findStartTagDelimiters();
    void decodeEntities_data();
    void decodeEntities();
    void encodeEntities_data();
    void encodeEntities();
    void unquoteString_data();
    void unquoteString();

private:
    std::unique_ptr<SimpleXmlParser> m_parser;
};

void TestSimpleXmlParser::init()
{
    m_parser.reset(new SimpleXmlParser);
    m_parser->rootTag = QStringLiteral("SRNT");
}

void TestSimpleXmlParser::framing_data()
{
    QTest::addColumn<QStringList>("chunks");
    QTest::addColumn<QStringList>("buffers"); // after each chunk
    QTest::addColumn<QString>("events"); // "|" closes each chunk
    QTest::addColumn<QStringList>("messages");

    QTest::newRow("two messages in one chunk")
        << QStringList {"<SRNT><A>1</A></SRNT><SRNT><B>2</B></SRNT>"} << QStringList {""}
        << "completed completed |" << QStringList {"<SRNT><A>1</A></SRNT>", "<SRNT><B>2</B></SRNT>"};
    QTest::newRow("text ahead of the root is dropped")
        << QStringList {"leftover of an old connection\n<SRNT><A/>", "</SRNT>tail"}
        << QStringList {"leftover of an old connection\n<SRNT><A/>", "tail"} << "| completed |"
        << QStringList {"<SRNT><A/></SRNT>"};
    QTest::newRow("stray closing tag waits for an opening tag")
        << QStringList {"x</SRNT>", "y", "<SRNT>ok</SRNT>"} << QStringList {"x</SRNT>", "x</SRNT>y", ""}
        << "| | malformed completed |" << QStringList {"<SRNT>ok</SRNT>"};
    QTest::newRow("root tag with attributes is not framing")
        << QStringList {"<SRNT a='1'>x</SRNT>"} << QStringList {"<SRNT a='1'>x</SRNT>"} << "|"
        << QStringList();
    QTest::newRow("inner root tag cuts the message short")
        << QStringList {"<SRNT><SRNT>x</SRNT></SRNT>"} << QStringList {"</SRNT>"} << "completed |"
        << QStringList {"<SRNT><SRNT>x</SRNT>"};
}

void TestSimpleXmlParser::framing()
{
    QFETCH(QStringList, chunks);
    QFETCH(QStringList, buffers);
    QFETCH(QString, events);
    QFETCH(QStringList, messages);

    SignalLog log(*m_parser);
    for (int i = 0; i < chunks.size(); ++i) {
        m_parser->addData(chunks.at(i));
        log.events << QStringLiteral("|");
        QCOMPARE(m_parser->getCurrentBuffer(), buffers.at(i));
    }
    QCOMPARE(log.events, words(events));
    QCOMPARE(drain(*m_parser), messages);
}

void TestSimpleXmlParser::splitAtEveryPosition()
{
    const QString first = QStringLiteral("<SRNT><Name>caf\u00e9 &amp; bar</Name></SRNT>");
    const QString second = QStringLiteral("<SRNT><KeepAlive/></SRNT>");
    const QString stream = first + QStringLiteral("\r\n") + second;

    // Three chunks, cut at every pair of positions.
    for (int i = 0; i <= stream.size(); ++i) {
        for (int j = i; j <= stream.size(); ++j) {
            SimpleXmlParser parser;
            parser.rootTag = QStringLiteral("SRNT");
            QSignalSpy completed(&parser, &SimpleXmlParser::messageCompleted);
            QSignalSpy errors(&parser, &SimpleXmlParser::parseErrorFound);
            int done = 0;
            for (const QString& chunk : {stream.left(i), stream.mid(i, j - i), stream.mid(j)}) {
                done += chunk.size();
                parser.addData(chunk);
                const int expected = (done >= first.size() ? 1 : 0) + (done == stream.size() ? 1 : 0);
                if (completed.count() != expected)
                    QFAIL(qPrintable(QStringLiteral("cut at %1/%2: %3 messages after %4 characters")
                                         .arg(i)
                                         .arg(j)
                                         .arg(completed.count())
                                         .arg(done)));
            }
            QCOMPARE(drain(parser), QStringList({first, second}));
            QCOMPARE(parser.getCurrentBuffer(), QString());
            QCOMPARE(errors.count(), 0);
        }
    }
}

void TestSimpleXmlParser::emptyBufferKeepsQueuedMessages()
{
    QCOMPARE(m_parser->getNextMessage(), QString()); // empty queue
    m_parser->addData(QStringLiteral("<SRNT>1</SRNT><SRNT>half"));
    m_parser->emptyBuffer();
    QCOMPARE(m_parser->getCurrentBuffer(), QString());
    m_parser->addData(QStringLiteral("</SRNT><SRNT>2</SRNT>"));
    // The stray closing tag left by the emptied half is resynchronised away.
    QCOMPARE(drain(*m_parser),
             QStringList({QStringLiteral("<SRNT>1</SRNT>"), QStringLiteral("<SRNT>2</SRNT>")}));
    QCOMPARE(m_parser->getNextMessage(), QString());
}

void TestSimpleXmlParser::bufferLimit_data()
{
    QTest::addColumn<QString>("held");
    QTest::addColumn<QString>("chunk");
    QTest::addColumn<bool>("full");
    QTest::addColumn<QString>("bufferAfter");
    QTest::addColumn<int>("messages");

    QTest::newRow("11 of 10: dropped") << "<SRNT>12345" << QString("</SRNT>") << true << "<SRNT>12345" << 0;
    QTest::newRow("10 of 10: appended") << "<SRNT>1234" << QString("</SRNT>") << false << QString() << 1;
    QTest::newRow("chunk taking it past the limit is cut")
        << "abc" << QString("<SRNT>a long message</SRNT><SRNT>") << false << "<SRNT>" << 1;
    // The re-run after a cut tests the limit again: the rest stays uncut.
    QTest::newRow("rest over the limit after a cut")
        << "<SRNT>" << QString("</SRNT><SRNT>second</SRNT>") << true << "<SRNT>second</SRNT>" << 1;
}

void TestSimpleXmlParser::bufferLimit()
{
    QFETCH(QString, held);
    QFETCH(QString, chunk);
    QFETCH(bool, full);
    QFETCH(QString, bufferAfter);
    QFETCH(int, messages);

    m_parser->addData(held);
    m_parser->setMaxBufferSize(10);
    QSignalSpy errors(m_parser.get(), &SimpleXmlParser::parseErrorFound);
    m_parser->addData(chunk);

    QCOMPARE(errors.count(), full ? 1 : 0);
    if (full)
        QCOMPARE(errors.first().first().value<SimpleXmlParser::ParseErrorEnumType>(),
                 SimpleXmlParser::BufferFull);
    QCOMPARE(m_parser->getCurrentBuffer(), bufferAfter);
    QCOMPARE(drain(*m_parser).size(), messages);
}

void TestSimpleXmlParser::bufferFullRepeatsUntilEmptied()
{
    QCOMPARE(m_parser->maxBufferSize(), 0);
    m_parser->setMaxBufferSize(3);
    m_parser->setMaxBufferSize(-1); // ignored
    QCOMPARE(m_parser->maxBufferSize(), 3);
    m_parser->addData(QStringLiteral("<SRNT>"));
    QSignalSpy errors(m_parser.get(), &SimpleXmlParser::parseErrorFound);
    m_parser->addData(QStringLiteral("</SRNT>"));
    m_parser->addData(QStringLiteral("</SRNT>"));
    QCOMPARE(errors.count(), 2);
    QCOMPARE(m_parser->getCurrentBuffer(), QStringLiteral("<SRNT>"));

    m_parser->emptyBuffer();
    m_parser->addData(QStringLiteral("<SRNT>1</SRNT>"));
    QCOMPARE(errors.count(), 2);
    QCOMPARE(drain(*m_parser), QStringList({QStringLiteral("<SRNT>1</SRNT>")}));
    m_parser->setMaxBufferSize(0);
    QCOMPARE(m_parser->maxBufferSize(), 0);
}

void TestSimpleXmlParser::notifyMode_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("queued");
    QTest::addColumn<QStringList>("events");

    const QString parsed = QStringLiteral("parsed <SRNT>m</SRNT>");
    QTest::newRow("0") << 0 << true << QStringList {QStringLiteral("completed")};
    QTest::newRow("1") << 1 << true << QStringList {parsed};
    QTest::newRow("2") << 2 << false << QStringList {parsed};
    QTest::newRow("3") << 3 << true << QStringList {QStringLiteral("completed"), parsed};
    QTest::newRow("4") << 4 << true << QStringList();
    QTest::newRow("-1") << -1 << true << QStringList();
}

void TestSimpleXmlParser::notifyMode()
{
    QFETCH(int, mode);
    QFETCH(bool, queued);
    QFETCH(QStringList, events);

    QCOMPARE(m_parser->notifyMode(), 0);
    m_parser->setNotifyMode(mode);
    SignalLog log(*m_parser);
    m_parser->addData(QStringLiteral("<SRNT>m</SRNT>"));
    QCOMPARE(log.events, events);
    QCOMPARE(drain(*m_parser), queued ? QStringList {QStringLiteral("<SRNT>m</SRNT>")} : QStringList());
}

void TestSimpleXmlParser::slotFeedingMoreTextWhileSignalled()
{
    int calls = 0;
    connect(m_parser.get(), &SimpleXmlParser::messageCompleted, this, [&] {
        if (++calls == 1)
            m_parser->addData(QStringLiteral("NT><SRNT>3</SRNT>"));
    });
    m_parser->addData(QStringLiteral("<SRNT>1</SRNT><SRNT>2</SR"));
    QCOMPARE(calls, 3);
    QCOMPARE(drain(*m_parser), words(QStringLiteral("<SRNT>1</SRNT> <SRNT>2</SRNT> <SRNT>3</SRNT>")));
    QCOMPARE(m_parser->getCurrentBuffer(), QString());
}

void TestSimpleXmlParser::consumerOnAnotherThread()
{
    const int count = 3000;
    m_parser->setNotifyMode(4);
    QStringList taken;
    std::atomic<bool> stop {false};
    std::unique_ptr<QThread> consumer(QThread::create([&] {
        while (taken.size() < count && !stop) {
            if (m_parser->hasPendingMessages()) {
                const QString m = m_parser->getNextMessage();
                if (!m.isEmpty())
                    taken << m;
            } else {
                QThread::yieldCurrentThread();
            }
        }
    }));
    consumer->start();

    QString stream;
    for (int i = 0; i < count; ++i)
        stream += QStringLiteral("<SRNT><N>%1</N></SRNT>").arg(i);
    for (int pos = 0; pos < stream.size(); pos += 37)
        m_parser->addData(stream.mid(pos, 37));

    if (!consumer->wait(20000)) {
        stop = true;
        consumer->wait();
        QFAIL("the consumer did not receive every message");
    }
    QCOMPARE(taken.size(), count);
    for (int i = 0; i < count; ++i)
        QCOMPARE(taken.at(i), QStringLiteral("<SRNT><N>%1</N></SRNT>").arg(i));
}

void TestSimpleXmlParser::getTagValue_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("startPos");
    QTest::addColumn<QString>("expected");

    valueRow("plain", "<item>hello</item>", "item", 0, "hello");
    valueRow("tag given in brackets", "<item>hello</item>", "<item>", 0, "hello");
    valueRow("longer name is another element", "<item2>hello</item2>", "item", 0, "none");
    valueRow("self-closed without blank is not found", "<item/>", "item", 0, "none");
    valueRow("self-closed with blanks is empty", "<item   />", "item", 0, "");
    valueRow("blanks in the start tag", "<item  >hello</item>", "item", 0, "hello");
    valueRow("attributes", "<item p1='x' >hello</item>", "item", 0, "hello");
    valueRow("bar after the name", "<item|x>v</item>", "item", 0, "v");
    valueRow("line feed after the name", "<item\n>v</item>", "item", 0, "v");
    valueRow("no-break space after the name", QStringLiteral("<item\u00a0a='1'>v</item>"), "item", 0, "v");
    valueRow("star after the name", "<item*>v</item>", "item", 0, "none");
    valueRow("case matters", "<Item>v</Item>", "item", 0, "none");
    valueRow("same name inside: inner closing tag wins", "<item>a<item>b</item>c</item>", "item", 0,
             "a<item>b");
    valueRow("first in text order", "<a><item>1</item></a><item>2</item>", "item", 0, "1");
    valueRow("start position", "<item>1</item><item>2</item>", "item", 1, "2");
    valueRow("negative start position counts from the end", "<item>1</item><item>2</item>", "item", -14, "2");
    valueRow("text kept as it is", "<item> &amp; \n</item>", "item", 0, " &amp; \n");
    valueRow("no closing tag", "<item>x", "item", 0, "none");
    valueRow("'>' in an attribute ends the tag", "<item a='>'>x</item>", "item", 0, "'>x");
    valueRow("closing tag inside the start tag", "<item a=\"</item>\">rest", "item", 0, "\">rest");
}

void TestSimpleXmlParser::getTagValue()
{
    QFETCH(QString, xml);
    QFETCH(QString, tag);
    QFETCH(int, startPos);
    QFETCH(QString, expected);
    QCOMPARE(SimpleXmlParser::getTagValue(xml, tag, startPos, QStringLiteral("none")), expected);
}

void TestSimpleXmlParser::getTagsValues_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QString>("tag");
    QTest::addColumn<QStringList>("expected");

    valuesRow("list with blanks between", "<list>\n  <item>hello</item>\n\t<item>hello2</item>\n</list>",
              "item", {"hello", "hello2"});
    valuesRow("self-closed without blank not counted", "<item/><item>a</item>", "<item>", {"a"});
    valuesRow("self-closed with blank is empty", "<item /><item>a</item>", "item", {"", "a"});
    valuesRow("one entry per opening tag", "<item>a<item>b</item>c</item>", "item", {"a<item>b", "b"});
    valuesRow("star counted, value from the next element", "<item*>x</item><item>y</item>", "item",
              {"y", "y"});
    valuesRow("none", "<other>x</other>", "item", {});
}

void TestSimpleXmlParser::getTagsValues()
{
    QFETCH(QString, xml);
    QFETCH(QString, tag);
    QFETCH(QStringList, expected);
    QCOMPARE(SimpleXmlParser::getTagsValues(xml, tag), expected);
}

void TestSimpleXmlParser::decodedAndListLookups()
{
    const QString text
        = QStringLiteral("<SRNT><Text>&lt;b&gt; Tom &amp; Jerry&#x2019;s caf&#233; &#224; 5&#8364;, "
                         "it's</Text></SRNT>");
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(text, QStringLiteral("Text")),
             QStringLiteral("<b> Tom & Jerry\u2019s caf\u00e9 \u00e0 5\u20ac, it's"));
    // The default is decoded too.
    QCOMPARE(
        SimpleXmlParser::getDecodedTagValue(text, QStringLiteral("Missing"), 0, QStringLiteral("a&amp;b")),
        QStringLiteral("a&b"));

    const QString list = QStringLiteral("<l><v>&lt;1</v><v>2&gt;</v><v>&#51;</v></l>");
    QCOMPARE(SimpleXmlParser::getDecodedTagsValues(list, QStringLiteral("v")),
             words(QStringLiteral("<1 2> 3")));

    const QString items
        = QStringLiteral("<list><item id=\"1\" kind='a'>x</item>\n<item id=\"2\"/><item >y</item>"
                         "<item/></list>");
    const QList<Properties> expected
        = {Properties {{"id", "1"}, {"kind", "a"}}, Properties {{"id", "2"}}, Properties {}};
    QCOMPARE(SimpleXmlParser::getTagsProperties(items, QStringLiteral("item")), expected);
}

void TestSimpleXmlParser::getTagProperties_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("startPos");
    QTest::addColumn<Properties>("expected");

    propertiesRow("single quotes", "<item p1='x' >hello</item>", "item", 0, {{"p1", "x"}});
    propertiesRow("blanks around '=' go, blanks in the value stay", "<item p1  =  'two  words' >", "item", 0,
                  {{"p1", "two  words"}});
    propertiesRow("quotes of the other kind inside", "<item p1=\"say 'this' \" p2='that'>", "item", 0,
                  {{"p1", "say 'this' "}, {"p2", "that"}});
    propertiesRow("entities stay encoded", "<item p='a &amp; b'>", "item", 0, {{"p", "a &amp; b"}});
    propertiesRow("hyphenated names", "<item data-long-name=\"v\" x-y='w'>", "<item>", 0,
                  {{"data-long-name", "v"}, {"x-y", "w"}});
    propertiesRow("value cut at '='", "<item p=\"a=b\">", "item", 0, {{"p", "\"a"}});
    propertiesRow("blanks around '=' inside a value go too", "<item p=\"a = b\">", "item", 0, {{"p", "\"a"}});
    propertiesRow("unquoted value not seen", "<item p=1 q='2'>", "item", 0, {{"q", "2"}});
    propertiesRow("single-quoted beats double-quoted", "<item p='2' p=\"1\">", "item", 0, {{"p", "2"}});
    propertiesRow("spurious entry from a value", "<item p=\"x q='y'\">", "item", 0,
                  {{"p", "\"x q"}, {"q", "y"}});
    propertiesRow("self-closed", "<item p='1'/>", "item", 0, {{"p", "1"}});
    propertiesRow("start position", "<item a='1'><item a='2'>", "item", 1, {{"a", "2"}});
    propertiesRow("missing element reads text up to the last '>'", "<other a='1'>", "zz", 0, {{"a", "1"}});
    propertiesRow("missing element, no '>' at the end: the rest", "<other a='1'>x b='2'", "zz", 0,
                  {{"a", "1"}, {"b", "2"}});
    propertiesRow("missing element in empty text", "", "zz", 0, {});
}

void TestSimpleXmlParser::getTagProperties()
{
    QFETCH(QString, xml);
    QFETCH(QString, tag);
    QFETCH(int, startPos);
    QFETCH(Properties, expected);
    QCOMPARE(SimpleXmlParser::getTagProperties(xml, tag, startPos), expected);
}

void TestSimpleXmlParser::findStartTagDelimiters_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("startPos");
    QTest::addColumn<bool>("selfClosed");
    QTest::addColumn<int>("start");
    QTest::addColumn<int>("end");

    delimitersRow("element", "<item>x</item>", "item", 0, false, 0, 5);
    delimitersRow("attributes", "ab<item a='1'>x</item>", "item", 0, false, 2, 13);
    delimitersRow("self-closed with blank", "<item />", "item", 0, true, 0, 6);
    delimitersRow("self-closed without blank: last '>' from the end", "<item/>", "item", 0, false, -1, 6);
    delimitersRow("empty text", "", "item", 0, false, -1, -1);
    delimitersRow("missing, no '>' at the end", "<a>b", "item", 0, false, -1, -1);
    delimitersRow("'>' in an attribute", "<item a='>'>", "item", 0, false, 0, 9);
    delimitersRow("start position past the first", "<item a/><item b/>", "item", 1, true, 9, 16);
    delimitersRow("start position past the end", "<item >", "item", 8, false, -1, 6);
    delimitersRow("name given in brackets is taken as it is", "<<item>>x", "<item>", 0, false, 0, 6);
}

void TestSimpleXmlParser::findStartTagDelimiters()
{
    QFETCH(QString, xml);
    QFETCH(QString, tag);
    QFETCH(int, startPos);
    QFETCH(bool, selfClosed);
    QFETCH(int, start);
    QFETCH(int, end);
    int s = 99;
    int e = 99;
    QCOMPARE(SimpleXmlParser::findStartTagDelimiters(xml, tag, startPos, s, e), selfClosed);
    QCOMPARE(s, start);
    QCOMPARE(e, end);
}

void TestSimpleXmlParser::decodeEntities_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    textRow("named", "&lt;&gt;&amp;&quot;&apos;", "<>&\"'");
    textRow("&amp;lt; decoded twice", "&amp;lt;", "<");
    textRow("&amp;amp; decoded once", "&amp;amp;", "&amp;");
    textRow("uncovered reference stays", "&amp;#233;", "&#233;");
    textRow("uncovered reference replaced when also in the text", "&amp;#233;&#233;",
            QStringLiteral("\u00e9\u00e9"));
    textRow("decimal and hexadecimal", "&#65;&#x42;&#x6a;", "ABj");
    textRow("&#X is decimal with nothing to read", "&#X41;", QString(QChar(0)));
    textRow("beyond int reads 0", "&#99999999999;", QString(QChar(0)));
    textRow("low 16 bits", "&#x1F600;", QStringLiteral("\uf600"));
    textRow("replacement character to blank", QStringLiteral("a\ufffdb"), "a b");
    textRow("replacement character by reference stays", "&#65533;", QStringLiteral("\ufffd"));
    textRow("decoded '&' builds nothing new", "&#38;#65;", "&#65;");
    textRow("decoded '&' builds a reference found later", "&#38;#71;&#71;", "GG");
    textRow("decoded digit builds a reference found later", "&#&#55;1;&#71;", "GG");
    textRow("incomplete", "&#;&#x;&#12a;&", "&#;&#x;&#12a;&");
}

void TestSimpleXmlParser::decodeEntities()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(SimpleXmlParser::decodeEntities(text), expected);
}

void TestSimpleXmlParser::encodeEntities_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("nonAscii");
    QTest::addColumn<QString>("expected");

    QTest::newRow("markup") << "<a href=\"x\">'&'" << false
                            << "&lt;a href=&quot;x&quot;&gt;&apos;&amp;&apos;";
    QTest::newRow("non-ASCII kept") << QStringLiteral("caf\u00e9") << false << QStringLiteral("caf\u00e9");
    QTest::newRow("non-ASCII escaped twice") << QStringLiteral("caf\u00e9") << true << "caf&amp;#xe9;";
    QTest::newRow("128 stays") << QStringLiteral("\u0080") << true << QStringLiteral("\u0080");
    QTest::newRow("129 escaped") << QStringLiteral("\u0081") << true << "&amp;#x81;";
    QTest::newRow("surrogates one by one")
        << QStringLiteral("\U0001F600") << true << "&amp;#xd83d;&amp;#xde00;";
    QTest::newRow("four hex digits") << QStringLiteral("\u20ac<") << true << "&amp;#x20ac;&lt;";
}

void TestSimpleXmlParser::encodeEntities()
{
    QFETCH(QString, text);
    QFETCH(bool, nonAscii);
    QFETCH(QString, expected);
    QCOMPARE(SimpleXmlParser::encodeEntities(text, nonAscii), expected);
    if (!nonAscii)
        QCOMPARE(SimpleXmlParser::decodeEntities(SimpleXmlParser::encodeEntities(text, false)), text);
}

void TestSimpleXmlParser::unquoteString_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    textRow("double", "\"a b\"", "a b");
    textRow("single", "'a'", "a");
    textRow("mixed", "\"a'", "\"a'");
    textRow("one quote", "\"", "");
    textRow("one apostrophe", "'", "");
    textRow("empty quotes", "''", "");
    textRow("empty", "", "");
    textRow("other characters", "xax", "xax");
}

void TestSimpleXmlParser::unquoteString()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(SimpleXmlParser::unquoteString(text), expected);
}

QTEST_GUILESS_MAIN(TestSimpleXmlParser)
#include "tst_simplexmlparser.moc"
