// The single-pass recogniser against the plain rule it replaces (one
// substring search per row, in table order), on the dispatcher's own table
// and on thousands of generated messages full of traps: nested elements,
// empty and attributed tags, near-miss names, stray brackets and the bare
// word "phoneEvent" in odd places.
#include "messagerecognizer.h"
#include "telvixdispatch_p.h"

#include <QRandomGenerator>
#include <QtTest>

namespace {

/// Every element name of the dispatch table, once.
QStringList tableNames()
{
    QStringList names;
    for (const DispatchRow& row : dispatchTable()) {
        for (const MessageRecognizer::Needle& needle : row.needles) {
            if (needle.kind != MessageRecognizer::NeedleKind::BareWord && !names.contains(needle.text))
                names << needle.text;
        }
    }
    return names;
}

/// A name that is close to a real one without being it.
QString nearMiss(QRandomGenerator& random, const QString& name)
{
    switch (random.bounded(7)) {
    case 0:
        return name.left(name.size() - 1);
    case 1:
        return name + QLatin1Char('s');
    case 2:
        return QLatin1Char('X') + name;
    case 3:
        return name.toLower();
    case 4:
        return name.toUpper();
    case 5:
        return name + name;
    default:
        return name.mid(1);
    }
}

/// One fragment of a generated message.
QString fragment(QRandomGenerator& random, const QStringList& names)
{
    const QString name = names.at(random.bounded(names.size()));
    switch (random.bounded(16)) {
    case 0:
    case 1:
        return QLatin1Char('<') + name + QLatin1Char('>');
    case 2:
        return QLatin1String("</") + name + QLatin1Char('>');
    case 3:
        return QLatin1Char('<') + name + QLatin1String("/>");
    case 4:
        return QLatin1Char('<') + name + QLatin1String(" id=\"7\">");
    case 5:
        return QLatin1Char('<') + nearMiss(random, name) + QLatin1Char('>');
    case 6:
        return QLatin1Char('<') + nearMiss(random, name) + QLatin1String("/>");
    case 7:
        // The bare word in a value, an attribute or a name.
        switch (random.bounded(4)) {
        case 0:
            return QStringLiteral("<Value>phoneEvent</Value>");
        case 1:
            return QStringLiteral("<Key kind=\"phoneEvent\"/>");
        case 2:
            return QStringLiteral("<phoneEventList>");
        default:
            return QStringLiteral("phoneEven");
        }
    case 8:
        return QStringLiteral("a < b > c");
    case 9:
        return QStringLiteral("<<") + name + QStringLiteral(">>");
    case 10:
        return QStringLiteral("<>");
    case 11:
        return QLatin1Char('<') + name + QLatin1String("/ >");
    case 12:
        return QLatin1Char('<') + name;
    case 13:
        return QLatin1Char('<') + name + QString(random.bounded(40), QLatin1Char('x')) + QLatin1Char('>');
    case 14:
        return QStringLiteral("&lt;") + name + QStringLiteral("&gt;");
    default:
        return QStringLiteral("<Text>") + QString::number(random.generate()) + QStringLiteral("</Text>");
    }
}

} // namespace

class TestMessageRecognizer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void dispatchTableCases_data();
    void dispatchTableCases();
    void generatedMessagesAgreeWithTheRowByRowSearch_data();
    void generatedMessagesAgreeWithTheRowByRowSearch();
    void bareWordAheadOfTagsWinsOnlyByItsRow();
};

void TestMessageRecognizer::dispatchTableCases_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<int>("row"); // 1-based as in the table, 0 for none
    QTest::newRow("identity list holding peers")
        << "<SRNT><PeerStatusList><Peer><Name>a</Name></Peer></PeerStatusList></SRNT>" << 5;
    QTest::newRow("peer list holding peers") << "<PeerList><Peer/></PeerList>" << 6;
    QTest::newRow("single peer") << "<SRNT><Peer><Name>a</Name></Peer></SRNT>" << 7;
    QTest::newRow("exten status list") << "<ExtenStatusList><ExtenStatus/></ExtenStatusList>" << 10;
    QTest::newRow("empty voicemail list") << "<Response><VoicemailMessageList/></Response>" << 36;
    QTest::newRow("open voicemail list") << "<VoicemailMessageList></VoicemailMessageList>" << 36;
    QTest::newRow("empty phone book list is not recognised") << "<PhoneBookList/>" << 0;
    QTest::newRow("second name of row 8") << "<Phonebook><User/></Phonebook>" << 8;
    QTest::newRow("service list before service")
        << "<ServiceStatusList><ServiceStatus/></ServiceStatusList>" << 30;
    QTest::newRow("in-call service status")
        << "<InCallServiceStatus><Uid>1</Uid></InCallServiceStatus>" << 32;
    QTest::newRow("upper row wins") << "<KAACK></KAACK><Login></Login>" << 1;
    QTest::newRow("phoneEvent in an attribute") << "<SRNT><Info kind=\"phoneEvent\"></Info></SRNT>" << 51;
    QTest::newRow("phoneEvent loses to a row above") << "<QueueEvent>phoneEvent</QueueEvent>" << 33;
    QTest::newRow("phoneEvent beats Error") << "<Error><Reason>phoneEvent</Reason></Error>" << 51;
    QTest::newRow("attributed element is not its tag") << "<Login id=\"1\"></Login>" << 0;
    QTest::newRow("near miss") << "<Logins></Logins><PeerLists/>" << 0;
    QTest::newRow("keep-alive answer") << "<SRNT><Info><KAACK></KAACK></Info></SRNT>" << 35;
}

void TestMessageRecognizer::dispatchTableCases()
{
    QFETCH(QString, xml);
    QFETCH(int, row);
    const MessageRecognizer& recognizer = dispatchRecognizer();
    QCOMPARE(recognizer.recognizeBySearch(xml), row - 1);
    QCOMPARE(recognizer.recognize(xml), row - 1);
}

void TestMessageRecognizer::generatedMessagesAgreeWithTheRowByRowSearch_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::addColumn<int>("fragments");
    QTest::newRow("short") << 1u << 4;
    QTest::newRow("medium") << 2u << 12;
    QTest::newRow("long") << 3u << 40;
    QTest::newRow("very long") << 4u << 200;
}

void TestMessageRecognizer::generatedMessagesAgreeWithTheRowByRowSearch()
{
    QFETCH(quint32, seed);
    QFETCH(int, fragments);
    QRandomGenerator random(seed);
    const MessageRecognizer& recognizer = dispatchRecognizer();
    const QStringList names = tableNames() + QStringList {"SRNT", "Response", "Info", "User", "Name"};
    QVector<int> seen(dispatchTable().size() + 1, 0);
    for (int i = 0; i < 2500; ++i) {
        QString xml = QStringLiteral("<SRNT><API>6.1</API>");
        const int count = 1 + random.bounded(fragments);
        for (int f = 0; f < count; ++f)
            xml += fragment(random, names);
        const int expected = recognizer.recognizeBySearch(xml);
        const int got = recognizer.recognize(xml);
        if (got != expected)
            QFAIL(qPrintable(QStringLiteral("row %1 instead of %2 for: %3").arg(got).arg(expected).arg(xml)));
        ++seen[expected + 1];
    }
    // The messages reached many rows and also none at all.
    QVERIFY(seen.at(0) > 0 || fragments > 12);
    QVERIFY(std::count_if(seen.cbegin() + 1, seen.cend(), [](int n) { return n > 0; }) > 10);
}

void TestMessageRecognizer::bareWordAheadOfTagsWinsOnlyByItsRow()
{
    using Kind = MessageRecognizer::NeedleKind;
    const MessageRecognizer recognizer({{{Kind::OpenTag, "Alpha"}},
                                        {{Kind::BareWord, "beta"}},
                                        {{Kind::OpenTag, "Gamma"}, {Kind::EmptyTag, "Gamma"}},
                                        {{Kind::BareWord, "ph"}, {Kind::OpenTag, "Delta"}}});
    const QStringList texts = {"<Gamma/> beta", "<Alpha>beta", "<Gamma>",  "<Delta>",  "ph",
                               "alphabeta",     "<Gamma/>",    "<Delta/>", "no match", "<Alpha/>beta<Gamma>"};
    for (const QString& text : texts)
        QCOMPARE(recognizer.recognize(text), recognizer.recognizeBySearch(text));
    QCOMPARE(recognizer.recognize("<Gamma/> beta"), 1);
    QCOMPARE(recognizer.recognize("<Delta>"), 3);
    QCOMPARE(recognizer.recognize("<Gamma/>"), 2);
}

QTEST_APPLESS_MAIN(TestMessageRecognizer)
#include "tst_messagerecognizer.moc"
