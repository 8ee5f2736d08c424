// Plays every client scenario of tests/fixtures/client (the format is
// described in scenario.h): one row per scenario and application mode. The
// folders of tests that the leak checker or the thread checker run are theirs
// to play.
#include "scenario.h"

#include <QtTest>

class ScenarioPlayer : public ScenarioTest
{
    Q_OBJECT
public:
    ScenarioPlayer()
        : ScenarioTest(QString(),
                       {"calls/", "dispatch/", "localserver/", "requests/", "session/", "store/", "telvix/"})
    {
    }
};

QTEST_GUILESS_MAIN(ScenarioPlayer)
#include "scenarioplayer.moc"
