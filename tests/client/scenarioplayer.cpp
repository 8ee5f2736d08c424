// Plays every client scenario of tests/fixtures/client (the format is
// described in scenario.h): one row per scenario and application mode. The
// call table's are tst_calls' own, which the leak checker runs too.
#include "scenario.h"

#include <QtTest>

class ScenarioPlayer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void play_data()
    {
        QTest::addColumn<int>("index");
        m_cases = Scenario::load(QStringLiteral(TELVIX_TEST_FIXTURES "/client"));
        QVERIFY(!m_cases.isEmpty());
        for (int i = 0; i < m_cases.size(); ++i) {
            if (!m_cases.at(i).tag.startsWith(QLatin1String("calls/")))
                QTest::newRow(qPrintable(m_cases.at(i).tag)) << i;
        }
    }

    void play()
    {
        QFETCH(int, index);
        Scenario::play(m_cases.at(index));
    }

private:
    QList<ScenarioCase> m_cases;
};

QTEST_GUILESS_MAIN(ScenarioPlayer)
#include "scenarioplayer.moc"
