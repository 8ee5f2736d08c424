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

QJsonDocument fixture(const char* name)
{
    QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/client/messagerecognizer/") + name);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()) : QJsonDocument();
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
        const QJsonObject cases = fixture("dispatchtable.json").object();
        for (auto it = cases.begin(); it != cases.end(); ++it) {
            if (it->isArray())
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
        // Every element name of the dispatch table, and some that hold them.
        QStringList names = {"SRNT", "Response", "Info", "User", "Name"};
        for (const DispatchRow& row : dispatchTable()) {
            for (const MessageRecognizer::Needle& needle : row.needles) {
                if (needle.kind != MessageRecognizer::NeedleKind::BareWord && !names.contains(needle.text))
                    names << needle.text;
            }
        }
        // Fragments: %1 a name, %2 a name close to it without being it, %3 a
        // run of letters, %4 a number.
        const QStringList shapes = fixture("fragments.json").toVariant().toStringList();
        QVERIFY(shapes.size() > 10);
        QVector<int> seen(dispatchTable().size() + 1, 0);
        for (int i = 0; i < 2500; ++i) {
            QString xml = QStringLiteral("<SRNT><API>6.1</API>");
            for (int f = random.bounded(fragments); f >= 0; --f) {
                const QString name = names.at(random.bounded(names.size()));
                const QString misses[] = {name.chopped(1), name + 's',  'X' + name, name.toLower(),
                                          name.toUpper(),  name + name, name.mid(1)};
                xml += QString(shapes.at(random.bounded(shapes.size())))
                           .replace("%1", name)
                           .replace("%2", misses[random.bounded(7)])
                           .replace("%3", QString(random.bounded(40), 'x'))
                           .replace("%4", QString::number(random.generate()));
            }
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
