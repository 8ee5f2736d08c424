// Plays every client scenario of tests/fixtures/client (the format is
// described in scenario.h): one row per scenario and application mode. The
// folders of tests that the leak checker or the thread checker run are theirs
// to play (calls, requests, dispatch, session, store, telvix).
#include "scenario.h"

#include <QtTest>

class ScenarioPlayer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void play_data()
    {
        m_cases = Scenario::addRows(QString(),
                                    {QStringLiteral("calls/"), QStringLiteral("requests/"),
                                     QStringLiteral("dispatch/"), QStringLiteral("session/"),
                                     QStringLiteral("store/"), QStringLiteral("telvix/")});
        QVERIFY(!m_cases.isEmpty());
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
