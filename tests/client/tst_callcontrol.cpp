// Call control as the server sees it: each operation on a live call is
// checked by the frame that reaches the fake CTI server, and each refusal by
// its log line and by nothing being sent.
#include "callevents.h"
#include "calltesthook_p.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "simplexmlparser.h"
#include "telvix.h"

#include <QtTest>

#include <functional>

using namespace CallEvents;
using CallTableTestHook::legCount;

namespace {

const QString Desk = QStringLiteral("200-desk");
const QString Soft = QStringLiteral("200-soft");

QString field(const QString& frame, const char* tag)
{
    return SimpleXmlParser::getDecodedTagValue(frame, QLatin1String(tag));
}

// What the client wrote other than acknowledgements and keep-alives.
QStringList commands(const QStringList& frames)
{
    QStringList result;
    for (const QString& frame : frames) {
        if (!FakeCtiServer::hasElement(frame, QStringLiteral("MsgAck"))
            && !FakeCtiServer::hasElement(frame, QStringLiteral("KeepAlive")))
            result.append(frame);
    }
    return result;
}

} // namespace

class TestCallControl : public QObject
{
    Q_OBJECT

private:
    QScopedPointer<LoggedInClient> m_app;

    LoggedInClient& app() { return *m_app; }
    Telvix* client() { return m_app->client(); }

    // Waits for a frame carrying `element` and returns it.
    QString nextFrame(const char* element) { return app().server().waitForFrame(QLatin1String(element)); }

    // Queues a recognisable request behind whatever ran before it and waits
    // for it: what the client sent before is then all in.
    QStringList commandsUntilSync()
    {
        client()->hangupChannel(QStringLiteral("SIP/sync-0"), QString(), QString());
        if (nextFrame("Hangup").isEmpty())
            return {QStringLiteral("sync frame missing")};
        QStringList sent = commands(app().server().receivedFrames(app().connection()));
        sent.removeLast();
        return sent;
    }

private Q_SLOTS:
    void init();
    void cleanup();

    void newCallChoosesNumberAndType_data();
    void newCallChoosesNumberAndType();
    void hangupCallEndsEveryLeg();
    void shortcutsForHangup_data();
    void shortcutsForHangup();
    void hangupChannelNeedsNoCall();
    void operationSendsItsFrame_data();
    void operationSendsItsFrame();
    void refusedOperationsSendNothing_data();
    void refusedOperationsSendNothing();
    void refusalsStillAnswerTrueFromAnotherThread();
    void operationsWithoutActionNeverFail();
};

void TestCallControl::init()
{
    m_app.reset(new LoggedInClient(TELVIX::AppModeSrntPro));
    QVERIFY(app().start());
    QVERIFY(
        app().deliver("<ExtenList><User><ContactUuid>c201</ContactUuid><First>Bea</First><Last>Rossi</Last>"
                      "<Contact><Type>exten</Type><Value>201</Value></Contact></User>"
                      "<User><ContactUuid>c202</ContactUuid><First>Carlo</First><Last>Bianchi</Last>"
                      "<Contact><Type>exten</Type><Value>202</Value></Contact></User></ExtenList>"));
    // u1 rings on two phones; u3 and u5 are single calls in conversation.
    QVERIFY(app().deliver(incoming("u1", Desk, "0511111111", "SIP/200-desk-1", "SIP/trunk-1")));
    QVERIFY(app().deliver(incoming("u1", Soft, "0511111111", "SIP/200-soft-1", "SIP/trunk-1")));
    QVERIFY(app().deliver(incoming("u3", Desk, "0533333333", "SIP/200-desk-3", "SIP/trunk-3")));
    QVERIFY(app().deliver(answered("u3", Desk, "SIP/200-desk-3", "SIP/trunk-3", "0533333333", "1")));
    QVERIFY(app().deliver(incoming("u5", Soft, "0555555555", "SIP/200-soft-5", "SIP/trunk-5")));
    QVERIFY(app().deliver(answered("u5", Soft, "SIP/200-soft-5", "SIP/trunk-5", "0555555555", "1")));
    app().clearFrames();
}

void TestCallControl::cleanup()
{
    m_app.reset();
}

void TestCallControl::newCallChoosesNumberAndType_data()
{
    QTest::addColumn<bool>("toMobile");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<int>("prefix");
    QTest::addColumn<QString>("toNumber");
    QTest::addColumn<QString>("numberType");
    QTest::newRow("extension") << false << "201" << 0 << "201"
                               << "internal";
    QTest::newRow("national number") << false << "+39 051 123456" << 0 << "051123456"
                                     << "external";
    QTest::newRow("foreign number") << false << "+44 20 7946 0958" << 0 << "00442079460958"
                                    << "external";
    // The extension test looks at the number as typed.
    QTest::newRow("extension typed with a blank") << false << "20 1" << 0 << "201"
                                                  << "external";
    QTest::newRow("extension forced external") << false << "201" << 1 << "201"
                                               << "external";
    QTest::newRow("no type") << false << "201" << 2 << "201"
                             << "";
    QTest::newRow("nothing typed") << false << "" << 0 << ""
                                   << "external";
    QTest::newRow("to mobile, extension") << true << "202" << 0 << "202"
                                          << "internal";
    QTest::newRow("to mobile, national") << true << "(051) 12-34-56" << 1 << "051123456"
                                         << "external";
}

void TestCallControl::newCallChoosesNumberAndType()
{
    QFETCH(bool, toMobile);
    QFETCH(QString, typed);
    QFETCH(int, prefix);
    QFETCH(QString, toNumber);
    QFETCH(QString, numberType);
    LogbusCapture log;
    const auto rule = TELVIX::NumberOutgoingPrefix(prefix);
    QVERIFY(toMobile ? client()->newCallToMobile(typed, rule) : client()->newCall(typed, rule));
    const QString frame = nextFrame(toMobile ? "C2CTowardMobile" : "C2C");
    QVERIFY(!frame.isEmpty());
    QCOMPARE(field(frame, "ToNumber"), toNumber);
    QCOMPARE(field(frame, "FromNumber"), QStringLiteral("200"));
    QCOMPARE(field(frame, "NumberType"), numberType);
    QVERIFY(log.waitFor(QStringLiteral("Call started to %1 of type %2").arg(toNumber, numberType).trimmed()));
}

void TestCallControl::hangupCallEndsEveryLeg()
{
    LogbusCapture log;
    QVERIFY(client()->hangupCall("u1", "normal"));
    const QString first = nextFrame("Hangup");
    const QString second = nextFrame("Hangup");
    QStringList channels = {field(first, "Channel"), field(second, "Channel")};
    channels.sort();
    QCOMPARE(channels, (QStringList {"SIP/200-desk-1", "SIP/200-soft-1"}));
    QCOMPARE(field(first, "Reason"), QStringLiteral("normal"));
    QCOMPARE(field(second, "Reason"), QStringLiteral("normal"));
    QVERIFY(log.contains(1000,
                         "Hangup sent for call with UID u1 from 0511111111 to 200 on SIP account 200-desk"));
    QVERIFY(log.contains(1000,
                         "Hangup sent for call with UID u1 from 0511111111 to 200 on SIP account 200-soft"));

    // The legs go when the server says so.
    QCOMPARE(legCount(client()), 4);
    QVERIFY(app().deliver(finished("u1", Desk, "SIP/200-desk-1", "0511111111", true)));
    QVERIFY(app().deliver(finished("u1", Soft, "SIP/200-soft-1", "0511111111", true)));
    QCOMPARE(legCount(client()), 2);
}

void TestCallControl::shortcutsForHangup_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("reason");
    QTest::newRow("refuse") << "refuse"
                            << "busy";
    QTest::newRow("cancel") << "cancel"
                            << "";
    QTest::newRow("mute ends the call") << "mute"
                                        << "";
}

void TestCallControl::shortcutsForHangup()
{
    QFETCH(QString, operation);
    QFETCH(QString, reason);
    bool accepted = false;
    if (operation == "refuse")
        accepted = client()->refuseCall("u3", "ignored");
    else if (operation == "cancel")
        accepted = client()->cancelCall("u3");
    else
        accepted = client()->muteCall("u3");
    QVERIFY(accepted);
    const QString frame = nextFrame("Hangup");
    QCOMPARE(field(frame, "Channel"), QStringLiteral("SIP/200-desk-3"));
    QCOMPARE(field(frame, "Reason"), reason);
    QCOMPARE(frame.contains("<Reason>"), !reason.isEmpty());
}

void TestCallControl::hangupChannelNeedsNoCall()
{
    LogbusCapture log;
    QVERIFY(client()->hangupChannel("SIP/elsewhere-7", QString(), "tok-42"));
    const QString frame = nextFrame("Hangup");
    QCOMPARE(field(frame, "Channel"), QStringLiteral("SIP/elsewhere-7"));
    QVERIFY(!frame.contains("<Reason>"));
    QCOMPARE(field(frame, "Token"), QStringLiteral("tok-42"));
    QVERIFY(log.waitFor("Hangup sent on channel SIP/elsewhere-7"));
}

void TestCallControl::operationSendsItsFrame_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("element");
    QTest::addColumn<QStringList>("fields"); // tag, value, tag, value...
    QTest::addColumn<QString>("words");
    // The redirect line names its fourth marker twice: the account never shows.
    QTest::newRow("redirect, number as typed")
        << "redirect"
        << "RedirectCall" << QStringList {"Channel", "SIP/trunk-3", "ToNumber", "+39 333 1234567"}
        << "Redirect to number +39 333 1234567 sent for call with UID u3 from 0533333333 to 200 on SIP "
           "account 200";
    QTest::newRow("redirect to mobile")
        << "redirectToMobile"
        << "RedirectCallToMobile" << QStringList {"Channel", "SIP/trunk-5"}
        << "Transfer to mobile sent for call with UID u5 from 0555555555 to 200 on SIP account 200-soft";
    QTest::newRow("park")
        << "park"
        << "ParkCall" << QStringList {"parkedChannel", "SIP/200-desk-3", "parkingChannel", "SIP/trunk-3"}
        << "Park call sent for call with UID u3 from 0533333333 to 200 on SIP account 200-desk";
    QTest::newRow("bridge")
        << "bridge"
        << "BridgeChannels" << QStringList {"channel1", "SIP/trunk-3", "channel2", "SIP/trunk-5"}
        << "Bridge calls sent for call1 with UID u3 and channel SIP/trunk-3 (from 0533333333 "
           "to 200 on SIP account 200-desk) and call2 with UID u5 and channel SIP/trunk-5 "
           "(from 0555555555 to 200 on SIP account 200-soft)";
}

void TestCallControl::operationSendsItsFrame()
{
    QFETCH(QString, operation);
    QFETCH(QString, element);
    QFETCH(QStringList, fields);
    QFETCH(QString, words);
    LogbusCapture log;
    const QMap<QString, std::function<bool()>> run = {
        {"redirect", [this] { return client()->redirectCall("u3", "+39 333 1234567"); }},
        {"redirectToMobile", [this] { return client()->redirectCallToMobile("u5"); }},
        {"park", [this] { return client()->parkCall("u3"); }},
        {"bridge", [this] { return client()->bridgeCalls("u3", "u5"); }},
    };
    QVERIFY(run.value(operation)());
    const QString frame = nextFrame(qPrintable(element));
    for (int i = 0; i + 1 < fields.size(); i += 2)
        QCOMPARE(field(frame, qPrintable(fields.at(i))), fields.at(i + 1));
    QVERIFY(log.waitFor(words));
}

void TestCallControl::refusedOperationsSendNothing_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("words");
    QTest::newRow("hangup, no uid") << "hangup" << QStringList {"", "normal"}
                                    << "Null argument passed as call ID";
    QTest::newRow("hangup, unknown uid")
        << "hangup" << QStringList {"nope", "normal"} << "Cannot hangup call with UID nope: UID not found.";
    QTest::newRow("hangup channel, none")
        << "hangupChannel" << QStringList {"", "normal", "tok"} << "Null argument passed as channel";
    QTest::newRow("redirect, no uid")
        << "redirect" << QStringList {"", "201"} << "Null argument passed as call ID";
    QTest::newRow("redirect, unknown uid")
        << "redirect" << QStringList {"nope", "201"} << "Cannot redirect call with UID nope: UID not found.";
    QTest::newRow("redirect to mobile, unknown uid")
        << "redirectToMobile" << QStringList {"nope"} << "Cannot tranfer call to mobile: UID nope not found.";
    QTest::newRow("park, unknown uid")
        << "park" << QStringList {"nope"} << "Cannot park call: UID nope not found.";
    QTest::newRow("bridge, unknown first")
        << "bridge" << QStringList {"nope", "u3"} << "Cannot bridge calls: call1 UID nope not found.";
    QTest::newRow("bridge, unknown second")
        << "bridge" << QStringList {"u3", "nope"} << "Cannot bridge calls: call2 UID nope not found.";
}

void TestCallControl::refusedOperationsSendNothing()
{
    QFETCH(QString, operation);
    QFETCH(QStringList, arguments);
    QFETCH(QString, words);
    const QMap<QString, std::function<bool(Telvix*, const QStringList&)>> operations = {
        {"hangup", [](Telvix* c, const QStringList& a) { return c->hangupCall(a[0], a[1]); }},
        {"hangupChannel", [](Telvix* c, const QStringList& a) { return c->hangupChannel(a[0], a[1], a[2]); }},
        {"redirect", [](Telvix* c, const QStringList& a) { return c->redirectCall(a[0], a[1]); }},
        {"redirectToMobile", [](Telvix* c, const QStringList& a) { return c->redirectCallToMobile(a[0]); }},
        {"park", [](Telvix* c, const QStringList& a) { return c->parkCall(a[0]); }},
        {"bridge", [](Telvix* c, const QStringList& a) { return c->bridgeCalls(a[0], a[1]); }},
    };
    LogbusCapture log;
    bool result = true;
    // On the library's own thread the operation answers for itself.
    Telvix* const target = client();
    const auto run = operations.value(operation);
    app().onLibraryThread([&] { result = run(target, arguments); });
    QVERIFY(!result);
    QVERIFY2(log.contains(100, words), qPrintable(log.texts().join('\n')));
    QCOMPARE(commandsUntilSync(), QStringList());
    QCOMPARE(legCount(client()), 4);
}

void TestCallControl::refusalsStillAnswerTrueFromAnotherThread()
{
    LogbusCapture log;
    // From the application's thread a queued operation answers before it runs.
    QVERIFY(client()->hangupCall("nope", "normal"));
    QVERIFY(client()->parkCall("nope"));
    QVERIFY(client()->refuseCall("nope"));
    QCOMPARE(commandsUntilSync(), QStringList());
    QCOMPARE(log.count("Cannot hangup call with UID nope: UID not found."), 2);
    QVERIFY(log.contains(100, "Cannot park call: UID nope not found."));
}

void TestCallControl::operationsWithoutActionNeverFail()
{
    QVERIFY(client()->holdonCall("u3"));
    QVERIFY(client()->retrieveCall("u3"));
    QVERIFY(client()->transferCallWithOffer("u3", "201"));
    QVERIFY(client()->transferCallNoOffer("u3", "201"));
    QVERIFY(client()->holdonCall("nope"));
    client()->startConferenceCall();
    client()->holdonConferenceCall();
    client()->retrieveConferenceCall();
    client()->hangupConferenceCall();
    QCOMPARE(commandsUntilSync(), QStringList());
    QCOMPARE(legCount(client()), 4);
}

QTEST_GUILESS_MAIN(TestCallControl)
#include "tst_callcontrol.moc"
