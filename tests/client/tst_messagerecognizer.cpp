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

/// One fragment of a generated message: %1 a name, %2 a name close to it
/// without being it, %3 a run of letters, %4 a number.
QString fragment(QRandomGenerator& random, const QStringList& names)
{
    static const QStringList shapes = {"<%1>",
                                       "<%1>",
                                       "</%1>",
                                       "<%1/>",
                                       "<%1 id=\"7\">",
                                       "<%2>",
                                       "<%2/>",
                                       "<Value>phoneEvent</Value>",
                                       "<Key kind=\"phoneEvent\"/>",
                                       "<phoneEventList>",
                                       "phoneEven",
                                       "a < b > c",
                                       "<<%1>>",
                                       "<>",
                                       "<%1/ >",
                                       "<%1",
                                       "<%1%3>",
                                       "&lt;%1&gt;",
                                       "<Text>%4</Text>"};
    const QString name = names.at(random.bounded(names.size()));
    const QString misses[]
        = {name.chopped(1), name + 's', 'X' + name, name.toLower(), name.toUpper(), name + name, name.mid(1)};
    return QString(shapes.at(random.bounded(shapes.size())))
        .replace("%1", name)
        .replace("%2", misses[random.bounded(7)])
        .replace("%3", QString(random.bounded(40), 'x'))
        .replace("%4", QString::number(random.generate()));
}

} // namespace

class TestMessageRecognizer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void dispatchTableCases_data()
    {
        QTest::addColumn<QString>("xml");
        QTest::addColumn<int>("row"); // 1-based as in the table, 0 for none
        QFile file(TELVIX_TEST_FIXTURES "/client/messagerecognizer/dispatchtable.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonObject cases = QJsonDocument::fromJson(file.readAll()).object();
        for (auto it = cases.begin(); it != cases.end(); ++it) {
            if (it.value().isArray())
                QTest::newRow(qPrintable(it.key()))
                    << it->toArray().at(0).toString() << it->toArray().at(1).toInt();
        }
        QVERIFY(cases.size() > 10);
    }

    void dispatchTableCases()
    {
        QFETCH(QString, xml);
        QFETCH(int, row);
        QCOMPARE(dispatchRecognizer().recognizeBySearch(xml), row - 1);
        QCOMPARE(dispatchRecognizer().recognize(xml), row - 1);
    }

    void generatedMessagesAgreeWithTheRowByRowSearch_data()
    {
        QTest::addColumn<quint32>("seed");
        QTest::addColumn<int>("fragments");
        QTest::newRow("short") << 1u << 4;
        QTest::newRow("medium") << 2u << 12;
        QTest::newRow("long") << 3u << 40;
        QTest::newRow("very long") << 4u << 200;
    }

    void generatedMessagesAgreeWithTheRowByRowSearch()
    {
        QFETCH(quint32, seed);
        QFETCH(int, fragments);
        QRandomGenerator random(seed);
        const MessageRecognizer& recognizer = dispatchRecognizer();
        const QStringList names = tableNames() + QStringList {"SRNT", "Response", "Info", "User", "Name"};
        QVector<int> seen(dispatchTable().size() + 1, 0);
        for (int i = 0; i < 2500; ++i) {
            QString xml = QStringLiteral("<SRNT><API>6.1</API>");
            for (int f = random.bounded(fragments); f >= 0; --f)
                xml += fragment(random, names);
            const int expected = recognizer.recognizeBySearch(xml);
            const int got = recognizer.recognize(xml);
            if (got != expected)
                QFAIL(qPrintable(
                    QStringLiteral("row %1 instead of %2 for: %3").arg(got).arg(expected).arg(xml)));
            ++seen[expected + 1];
        }
        // The messages reached many rows and also none at all.
        QVERIFY(seen.at(0) > 0 || fragments > 12);
        QVERIFY(std::count_if(seen.cbegin() + 1, seen.cend(), [](int n) { return n > 0; }) > 10);
    }

    void bareWordAheadOfTagsWinsOnlyByItsRow()
    {
        using Kind = MessageRecognizer::NeedleKind;
        const MessageRecognizer recognizer({{{Kind::OpenTag, "Alpha"}},
                                            {{Kind::BareWord, "beta"}},
                                            {{Kind::OpenTag, "Gamma"}, {Kind::EmptyTag, "Gamma"}},
                                            {{Kind::BareWord, "ph"}, {Kind::OpenTag, "Delta"}}});
        const QStringList texts
            = {"<Gamma/> beta", "<Alpha>beta", "<Gamma>",  "<Delta>",  "ph",
               "alphabeta",     "<Gamma/>",    "<Delta/>", "no match", "<Alpha/>beta<Gamma>"};
        for (const QString& text : texts)
            QCOMPARE(recognizer.recognize(text), recognizer.recognizeBySearch(text));
        QCOMPARE(recognizer.recognize("<Gamma/> beta"), 1);
        QCOMPARE(recognizer.recognize("<Delta>"), 3);
        QCOMPARE(recognizer.recognize("<Gamma/>"), 2);
    }
};

QTEST_APPLESS_MAIN(TestMessageRecognizer)
#include "tst_messagerecognizer.moc"
