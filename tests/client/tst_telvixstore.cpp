// The call history store of desktop clients: the scenarios of
// fixtures/client/store, with real SQLite files in a data folder that two
// sessions share.
#include "scenario.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

class TestTelvixStore : public ScenarioTest
{
    Q_OBJECT
public:
    TestTelvixStore()
        : ScenarioTest(QStringLiteral("store"))
    {
    }

private Q_SLOTS:
    // The store's working copies go to a temporary folder of the test's own.
    void initTestCase() { qputenv("TMPDIR", m_tmp.path().toLocal8Bit()); }

private:
    QTemporaryDir m_tmp;
};

QTEST_GUILESS_MAIN(TestTelvixStore)
#include "tst_telvixstore.moc"
