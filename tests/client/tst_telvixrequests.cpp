// Requests to the server: the scenarios of tests/fixtures/client/requests,
// which hop between the application's thread and the library's (the thread
// checker runs this suite).
#include "scenario.h"

#include <QtTest>

class TestTelvixRequests : public ScenarioTest
{
    Q_OBJECT
public:
    TestTelvixRequests()
        : ScenarioTest(QStringLiteral("requests"))
    {
    }
};

QTEST_GUILESS_MAIN(TestTelvixRequests)
#include "tst_telvixrequests.moc"
