// The call history store of desktop clients: the scenarios of
// fixtures/client/store, with real SQLite files in a data folder that two
// sessions share.
#include "scenario.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

class TestTelvixStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The store's working copies go to a temporary folder of the test's own.
    void initTestCase() { qputenv("TMPDIR", m_tmp.path().toLocal8Bit()); }

    void play_data() { m_cases = Scenario::addRows(QStringLiteral("store")); }

    void play()
    {
        QFETCH(int, index);
        Scenario::play(m_cases.at(index));
    }

private:
    QTemporaryDir m_tmp;
    QList<ScenarioCase> m_cases;
};

QTEST_GUILESS_MAIN(TestTelvixStore)
#include "tst_telvixstore.moc"
