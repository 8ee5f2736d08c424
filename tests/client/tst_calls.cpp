// The call table as applications live it: calls ringing on a desk phone and
// a softphone at once, answered on one, finished on both, click-to-calls,
// old servers and transfers, with a logged-in client and the server's events
// over TLS. Every scenario ends with the table empty again.
#include "callevents.h"
#include "calltesthook_p.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"
#include "telvix.h"

#include <QSignalSpy>
#include <QtTest>

using namespace CallEvents;
using CallTableTestHook::accountsByUid;
using CallTableTestHook::legCount;
using CallTableTestHook::legs;

namespace {

const QString Desk = QStringLiteral("200-desk");
const QString Soft = QStringLiteral("200-soft");
const QString DeskChannel = QStringLiteral("SIP/200-desk-00000001");
const QString SoftChannel = QStringLiteral("SIP/200-soft-00000002");
const QString TrunkChannel = QStringLiteral("SIP/trunk-00000009");

// The overloads of the call signals, for QSignalSpy.
const auto incomingRecord = QOverload<IncomingCallEvent>::of(&Telvix::sigIncomingCall);
const auto incomingText = QOverload<QString, QString, QString, bool>::of(&Telvix::sigIncomingCall);
const auto answeredRecord = QOverload<AnsweredCallEvent>::of(&Telvix::sigAnsweredCall);
const auto answeredText = QOverload<QString, QString, QString>::of(&Telvix::sigAnsweredCall);
const auto finishedRecord = QOverload<FinishedCallEvent>::of(&Telvix::sigFinishedCall);
const auto finishedText = QOverload<QString, QString, QString, bool>::of(&Telvix::sigFinishedCall);
const auto missedRecord = QOverload<MissedCallEvent>::of(&Telvix::sigMissedCall);
const auto missedText = QOverload<QString, QString>::of(&Telvix::sigMissedCall);

using Accounts = QMap<QString, QStringList>;

} // namespace

class TestCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void callOnDeskAndSoftphoneInDesktopMode();
    void callOnDeskAndSoftphoneInMobileMode_data();
    void callOnDeskAndSoftphoneInMobileMode();
    void outgoingCallOnTwoAccounts_data();
    void outgoingCallOnTwoAccounts();
    void secondLegOnTheSameAccountIsRefused();
    void eventsThatMatchNoLegAreRefused_data();
    void eventsThatMatchNoLegAreRefused();
    void invalidEventsAreLoggedAndNotAcknowledged_data();
    void invalidEventsAreLoggedAndNotAcknowledged();
    void oldServerTurnsUnansweredLegIntoMissedCall_data();
    void oldServerTurnsUnansweredLegIntoMissedCall();
    void answerTellsWhichSideAnswered_data();
    void answerTellsWhichSideAnswered();
    void oldServerIsAskedForTheCallerOnAnswer_data();
    void oldServerIsAskedForTheCallerOnAnswer();
    void mobileMissedCallWaitsForTheLastLeg();
    void colpUpdateChangesTheOtherParty_data();
    void colpUpdateChangesTheOtherParty();
    void localChannelMoves_data();
    void localChannelMoves();
    void clickToCall_data();
    void clickToCall();
    void transfersReachOnlyMobileModes_data();
    void transfersReachOnlyMobileModes();
    void manyOverlappingCallsLeaveTheTableEmpty();
    void legsOfAVanishedSessionStayUntilTheClientEnds();
};

void TestCalls::callOnDeskAndSoftphoneInDesktopMode()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    Telvix* client = app.client();
    QSignalSpy ringing(client, incomingRecord), ringingText(client, incomingText);
    QSignalSpy answeredSpy(client, answeredRecord), finishedSpy(client, finishedRecord);
    QSignalSpy finishedTxt(client, finishedText);
    QSignalSpy missedSpy(client, missedRecord);
    LogbusCapture log;

    QVERIFY(app.deliver(incoming("u1", Desk, "0512345678", DeskChannel, TrunkChannel)));
    QVERIFY(app.deliver(incoming("u1", Soft, "0512345678", SoftChannel, TrunkChannel)));
    QCOMPARE(ringing.count(), 2);
    QCOMPARE(ringingText.count(), 0);
    QCOMPARE(ringing.at(0).at(0).value<IncomingCallEvent>().sipAccount, Desk);
    QCOMPARE(ringing.at(1).at(0).value<IncomingCallEvent>().sipAccount, Soft);
    QCOMPARE(accountsByUid(client), (Accounts {{"u1", {Desk, Soft}}}));
    QVERIFY(log.contains(1000, "Incoming call u1 from 0512345678 to 200 on SIP account 200-soft"));

    QVERIFY(app.deliver(answered("u1", Soft, SoftChannel, TrunkChannel, "0512345678", "1")));
    QCOMPARE(answeredSpy.count(), 1);
    const AnsweredCallEvent answer = answeredSpy.at(0).at(0).value<AnsweredCallEvent>();
    QCOMPARE(answer.sipAccount, Soft);
    QVERIFY(answer.localAnswer);
    QCOMPARE(answer.previousCallState, 1);
    const QList<CallInfo> afterAnswer = legs(client, "u1");
    QCOMPARE(afterAnswer.size(), 2);
    QVERIFY(!afterAnswer.at(0).answered); // desk
    QVERIFY(afterAnswer.at(1).answered); // soft

    // The desk phone stops ringing first, then the conversation ends.
    QVERIFY(app.deliver(finished("u1", Desk, DeskChannel, "0512345678")));
    QCOMPARE(finishedSpy.count(), 1);
    QCOMPARE(accountsByUid(client), (Accounts {{"u1", {Soft}}}));
    QVERIFY(app.deliver(finished("u1", Soft, SoftChannel, "0512345678", true)));
    QCOMPARE(finishedSpy.count(), 2);
    QCOMPARE(finishedSpy.at(1).at(0).value<FinishedCallEvent>().sipAccount, Soft);
    QCOMPARE(finishedTxt.count(), 0);
    QCOMPARE(missedSpy.count(), 0); // a current server sends its own missed-call events
    QVERIFY(log.contains(1000, "Finished call u1 from 0512345678 to 200 on SIP account 200-soft"));
    QCOMPARE(legCount(client), 0);
}

void TestCalls::callOnDeskAndSoftphoneInMobileMode_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("srnt_mobile") << int(TELVIX::AppModeSrntMobile);
    QTest::newRow("srnt_mobile_phone") << int(TELVIX::AppModeSrntMobilePhone);
}

void TestCalls::callOnDeskAndSoftphoneInMobileMode()
{
    QFETCH(int, mode);
    LoggedInClient app {TELVIX::AppMode(mode)};
    QVERIFY(app.start());
    Telvix* client = app.client();
    QSignalSpy ringing(client, incomingRecord), ringingText(client, incomingText);
    QSignalSpy answeredSpy(client, answeredRecord), answeredTxt(client, answeredText);
    QSignalSpy finishedSpy(client, finishedRecord), finishedTxt(client, finishedText);
    QtLogCapture qtLog;
    QVERIFY(app.deliver(
        "<Services><NumberingPlan><outboundPrefix>9</outboundPrefix></NumberingPlan></Services>"));

    // A click-to-call flag on the event reaches the mobile form; the caller
    // loses the outbound prefix.
    const QString isC2c = element("IsC2c", "1");
    QVERIFY(app.deliver(incoming("u1", Desk, "90512345678", DeskChannel, TrunkChannel, "Bob", isC2c)));
    QVERIFY(app.deliver(incoming("u1", Soft, "90512345678", SoftChannel, TrunkChannel, "Bob", isC2c)));
    QCOMPARE(ringing.count(), 0);
    QCOMPARE(ringingText.count(), 1);
    QCOMPARE(ringingText.at(0), (QVariantList {"u1", "0512345678", "200", true}));
    QCOMPARE(legs(client, "u1").value(0).callerNum, QStringLiteral("0512345678"));

    QVERIFY(app.deliver(answered("u1", Desk, DeskChannel, TrunkChannel, "0512345678", "1")));
    QCOMPARE(answeredSpy.count(), 0);
    QCOMPARE(answeredTxt.count(), 1);
    QCOMPARE(answeredTxt.at(0), (QVariantList {"u1", "0512345678", "200"}));

    QVERIFY(app.deliver(finished("u1", Soft, SoftChannel, "0512345678")));
    QCOMPARE(finishedTxt.count(), 0);
    QCOMPARE(accountsByUid(client), (Accounts {{"u1", {Desk}}}));
    QVERIFY(!qtLog.contains("Finished call on every account."));

    QVERIFY(app.deliver(finished("u1", Desk, DeskChannel, "0512345678", true)));
    QCOMPARE(finishedTxt.count(), 1);
    QCOMPARE(finishedTxt.at(0), (QVariantList {"u1", "0512345678", "200", false}));
    QCOMPARE(finishedSpy.count(), 0);
    QVERIFY(qtLog.contains("Finished call on every account. Now signaling to client"));
    QCOMPARE(legCount(client), 0);
}

void TestCalls::outgoingCallOnTwoAccounts_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("records");
    QTest::addColumn<int>("starting");
    QTest::newRow("desktop") << int(TELVIX::AppModeSrntPhone) << 2 << 0;
    QTest::newRow("mobile") << int(TELVIX::AppModeSrntMobile) << 0 << 1;
}

void TestCalls::outgoingCallOnTwoAccounts()
{
    QFETCH(int, mode);
    QFETCH(int, records);
    QFETCH(int, starting);
    LoggedInClient app {TELVIX::AppMode(mode)};
    QVERIFY(app.start());
    QSignalSpy outgoing(app.client(), &Telvix::sigOutgoingCall),
        startingCall(app.client(), &Telvix::sigStartingCall);
    LogbusCapture log;

    QVERIFY(app.deliver(originate("o1", Desk, "0513334444", DeskChannel)));
    QVERIFY(app.deliver(originate("o1", Soft, "0513334444", SoftChannel)));
    QCOMPARE(outgoing.count(), records);
    QCOMPARE(startingCall.count(), starting);
    if (starting)
        QCOMPARE(startingCall.at(0), (QVariantList {"o1", "200", "0513334444"}));
    QVERIFY(log.contains(1000, "Originated call with UID o1 to 0513334444 on SIP account 200-soft"));
    const QList<CallInfo> placed = legs(app.client(), "o1");
    QCOMPARE(placed.size(), 2);
    QCOMPARE(placed.at(0).direction, int(CallInfo::DirectionOutgoing));
    QCOMPARE(placed.at(0).callerNum, QStringLiteral("200"));
    QCOMPARE(placed.at(0).getPeerNum(), QStringLiteral("0513334444"));

    QVERIFY(app.deliver(originate("o1", Soft, "0513334444", SoftChannel)));
    QVERIFY(log.contains(100, "Outgoing call already exists: uid = o1; caller = 200; sipAccount = 200-soft"));
    QCOMPARE(outgoing.count(), records);

    QVERIFY(app.deliver(finished("o1", Desk, DeskChannel, "0513334444", true)));
    QVERIFY(app.deliver(finished("o1", Soft, SoftChannel, "0513334444", true)));
    QCOMPARE(legCount(app.client()), 0);
}

void TestCalls::secondLegOnTheSameAccountIsRefused()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy ringing(app.client(), incomingRecord);
    LogbusCapture log;

    QVERIFY(app.deliver(incoming("u1", Desk, "0511111111", DeskChannel, TrunkChannel)));
    QVERIFY(app.deliver(incoming("u1", Desk, "0522222222", "SIP/other-1", "SIP/other-2")));
    QVERIFY(log.contains(
        100, "Incoming call already exists: uid = u1; caller = 0522222222; sipAccount = 200-desk"));
    QCOMPARE(ringing.count(), 1);
    const QList<CallInfo> kept = legs(app.client(), "u1");
    QCOMPARE(kept.size(), 1);
    QCOMPARE(kept.at(0).callerNum, QStringLiteral("0511111111"));
    QCOMPARE(kept.at(0).localChannel, DeskChannel);
    QCOMPARE(kept.at(0).remoteChannel, TrunkChannel);

    QVERIFY(app.deliver(finished("u1", Desk, DeskChannel, "0511111111")));
    QCOMPARE(legCount(app.client()), 0);
}

void TestCalls::eventsThatMatchNoLegAreRefused_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("words");
    // A live call u1 has one leg, on the desk phone.
    QTest::newRow("answered, unknown uid")
        << answered("u9", Soft, SoftChannel, TrunkChannel, "051")
        << "Answered call with an invalid call UID: uid = u9; sipAccount = 200-soft";
    QTest::newRow("answered, unknown account")
        << answered("u1", Soft, SoftChannel, TrunkChannel, "051") << "Answered call: cannot find SIP account";
    QTest::newRow("finished, unknown uid")
        << finished("u9", Desk, DeskChannel, "051")
        << "Finished call with an invalid call UID: uid = u9; sipAccount = 200-desk";
    QTest::newRow("finished, unknown account")
        << finished("u1", Soft, SoftChannel, "051") << "Finished call: cannot find SIP account";
    QTest::newRow("colp, unknown uid")
        << colp("u9", Desk, "052", "Carol", "SIP/x")
        << "COLP update event with an invalid call UID: uid = u9; sipAccount = 200-desk";
    QTest::newRow("colp, unknown account")
        << colp("u1", Soft, "052", "Carol", "SIP/x") << "COLP update event: cannot find SIP account";
    QTest::newRow("local info, unknown uid")
        << localInfo("u9", Desk, DeskChannel, "SIP/new")
        << "CallLocalInfo update event with an invalid call UID: uid = u9; sipAccount = 200-desk";
    QTest::newRow("local info, unknown account") << localInfo("u1", Soft, SoftChannel, "SIP/new")
                                                 << "CallLocalInfo update event: cannot find SIP account";
    QTest::newRow("local info, another old channel")
        << localInfo("u1", Desk, "SIP/elsewhere", "SIP/new")
        << "CallLocalInfo update event: local channel doens't match with old one";
    QTest::newRow("click-to-call end, unknown uid")
        << c2cFinished("u9", "200", "Local/200")
        << "Finished ClickToCall with an invalid call UID: uid = u9; sipAccount = c2c";
    QTest::newRow("click-to-call end, no c2c leg")
        << c2cFinished("u1", "200", "Local/200") << "Finished ClickToCall: cannot find SIP account";
}

void TestCalls::eventsThatMatchNoLegAreRefused()
{
    QFETCH(QString, body);
    QFETCH(QString, words);
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    Telvix* client = app.client();
    QVERIFY(app.deliver(incoming("u1", Desk, "0511111111", DeskChannel, TrunkChannel)));
    const QList<CallInfo> before = legs(client, "u1");
    QSignalSpy answeredSpy(client, answeredRecord), finishedSpy(client, finishedRecord);
    QSignalSpy colpSpy(client, &Telvix::sigColpUpdate), localInfoSpy(client, &Telvix::sigCallLocalInfoUpdate);
    QSignalSpy c2cEnd(client, &Telvix::sigC2cFinished);
    LogbusCapture log;

    QVERIFY(app.deliver(body));
    QVERIFY2(log.contains(100, words), qPrintable(log.texts().join('\n')));
    QCOMPARE(answeredSpy.count() + finishedSpy.count() + colpSpy.count() + localInfoSpy.count()
                 + c2cEnd.count(),
             0);
    QCOMPARE(legs(client, "u1"), before);
    QCOMPARE(legCount(client), 1);
}

void TestCalls::invalidEventsAreLoggedAndNotAcknowledged_data()
{
    QTest::addColumn<QString>("element");
    QTest::addColumn<int>("priority");
    QTest::addColumn<QString>("words");
    const auto row = [](const char* element, int priority, const char* words) {
        QTest::newRow(element) << QString::fromLatin1(element) << priority << QString::fromLatin1(words);
    };
    row("IncomingCall", 1000, "Invalid incoming call msg received");
    row("AnsweredCall", 1000, "Invalid answered call msg received");
    row("FinishedCall", 1000, "Invalid finished call msg received");
    row("OriginateCall", 1000, "Invalid originate call msg received");
    row("MissedCall", 1000, "Invalid missed call msg received");
    row("ColpUpdate", 1000, "Invalid COLP update call msg received");
    row("CallLocalInfoUpdate", 1000, "Invalid CallLocalInfo update call msg received");
    row("InlineAtxferCanceled", 100, "Invalid TransferCanceled call msg received");
    row("InlineAtxferStarted", 50, "Invalid TransferStarted call msg received");
    row("InlineAtxferCompleted", 50, "Invalid TransferCompleted call msg received");
    row("C2cOriginate", 1000, "Invalid C2C originate event message received");
    row("C2cFinished", 1000, "Invalid C2C finished event message received");
}

void TestCalls::invalidEventsAreLoggedAndNotAcknowledged()
{
    QFETCH(QString, element);
    QFETCH(int, priority);
    QFETCH(QString, words);
    LoggedInClient app(TELVIX::AppModeSrntMobile);
    QVERIFY(app.start());
    LogbusCapture log;
    // Everything but the mandatory uid. Such a message comes back from its
    // parser without an id: there is nothing to acknowledge.
    const QString body = QLatin1Char('<') + element + QLatin1Char('>')
        + CallEvents::element("SipAccount", Desk) + CallEvents::element("LocalChannel", DeskChannel)
        + QLatin1String("</") + element + QLatin1Char('>');
    QString uuid;
    QVERIFY(app.deliverThenProbe(body, &uuid));
    QVERIFY(log.contains(priority, words));
    QVERIFY(!app.acknowledged(uuid));
    QCOMPARE(legCount(app.client()), 0);
}

void TestCalls::oldServerTurnsUnansweredLegIntoMissedCall_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("desktop") << int(TELVIX::AppModeSrntPro);
    QTest::newRow("mobile") << int(TELVIX::AppModeSrntMobile);
}

void TestCalls::oldServerTurnsUnansweredLegIntoMissedCall()
{
    QFETCH(int, mode);
    LoggedInClient app {TELVIX::AppMode(mode), QStringLiteral("4.2")};
    QVERIFY(app.start());
    Telvix* client = app.client();
    QSignalSpy missedSpy(client, missedRecord);

    // Answered on the softphone: the desk phone's leg ends unanswered, and a
    // server of 4.2, which sends no missed-call events, leaves that to us.
    QVERIFY(app.deliver(incoming("u1", Desk, "0511111111", DeskChannel, TrunkChannel)));
    QVERIFY(app.deliver(incoming("u1", Soft, "0511111111", SoftChannel, TrunkChannel)));
    QVERIFY(app.deliver(answered("u1", Soft, SoftChannel, TrunkChannel, "0511111111")));
    QVERIFY(app.deliver(finished("u1", Soft, SoftChannel, "0511111111")));
    QCOMPARE(missedSpy.count(), 0);
    QVERIFY(app.deliver(finished("u1", Desk, DeskChannel, "0511111111")));
    QCOMPARE(missedSpy.count(), 1);
    const MissedCallEvent record = missedSpy.at(0).at(0).value<MissedCallEvent>();
    QCOMPARE(record.uid, QStringLiteral("u1"));
    QCOMPARE(record.sipAccount, Desk);
    QCOMPARE(record.localChannel, DeskChannel);
    QCOMPARE(record.remoteNum, QStringLiteral("0511111111"));
    QCOMPARE(record.remoteName, QStringLiteral("Bob"));

    // Nobody answered and the user refused it: not missed.
    QVERIFY(app.deliver(incoming("u2", Desk, "0522222222", DeskChannel, TrunkChannel)));
    QVERIFY(app.deliver(finished("u2", Desk, DeskChannel, "0522222222", true)));
    QCOMPARE(missedSpy.count(), 1);
    QCOMPARE(legCount(client), 0);
}

void TestCalls::answerTellsWhichSideAnswered_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<bool>("incomingLeg");
    QTest::addColumn<QString>("wireFlag");
    QTest::addColumn<bool>("localAnswer");
    QTest::addColumn<QString>("warning");
    const QString remotely = "but call seems to be answered remotely (i.e. outgoing call)!";
    const QString locally = "but call seems to be answered locally (i.e. incoming call)!";
    QTest::newRow("4.5 incoming, no flag") << "4.5" << true << "" << true << "";
    QTest::newRow("4.5 outgoing, no flag") << "4.5" << false << "" << false << "";
    // Versions compare as text: "4.10" sorts before "4.5".
    QTest::newRow("4.10 incoming, no flag") << "4.10" << true << "" << true << "";
    QTest::newRow("5.0 incoming, no flag") << "5.0" << true << "" << false << remotely;
    QTest::newRow("5.0 outgoing, no flag") << "5.0" << false << "" << false << "";
    QTest::newRow("5.0 outgoing, flag") << "5.0" << false << "1" << true << locally;
    QTest::newRow("5.0 incoming, flag") << "5.0" << true << "1" << true << "";
}

void TestCalls::answerTellsWhichSideAnswered()
{
    QFETCH(QString, api);
    QFETCH(bool, incomingLeg);
    QFETCH(QString, wireFlag);
    QFETCH(bool, localAnswer);
    QFETCH(QString, warning);
    LoggedInClient app(TELVIX::AppModeSrntPro, api);
    QVERIFY(app.start());
    QSignalSpy answeredSpy(app.client(), answeredRecord);
    LogbusCapture log;

    QVERIFY(app.deliver(incomingLeg ? incoming("u1", Desk, "0511111111", DeskChannel, TrunkChannel)
                                    : originate("u1", Desk, "0511111111", DeskChannel)));
    QVERIFY(app.deliver(answered("u1", Desk, DeskChannel, TrunkChannel, "0511111111", wireFlag)));
    QCOMPARE(answeredSpy.count(), 1);
    const AnsweredCallEvent event = answeredSpy.at(0).at(0).value<AnsweredCallEvent>();
    QCOMPARE(event.localAnswer, localAnswer);
    QCOMPARE(event.previousCallState, incomingLeg ? 1 : 0);
    if (warning.isEmpty())
        QVERIFY(!log.contains("Got Answered notification"));
    else
        QVERIFY(log.contains(100, warning));
    QVERIFY(legs(app.client(), "u1").at(0).answered);
}

void TestCalls::oldServerIsAskedForTheCallerOnAnswer_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("asks");
    QTest::newRow("4.2 desktop") << "4.2" << int(TELVIX::AppModeSrntPro) << true;
    QTest::newRow("4.2 mobile") << "4.2" << int(TELVIX::AppModeSrntMobile) << false;
    QTest::newRow("4.3 desktop") << "4.3" << int(TELVIX::AppModeSrntPro) << false;
}

void TestCalls::oldServerIsAskedForTheCallerOnAnswer()
{
    QFETCH(QString, api);
    QFETCH(int, mode);
    QFETCH(bool, asks);
    LoggedInClient app {TELVIX::AppMode(mode), api};
    QVERIFY(app.start());
    QVERIFY(app.deliver(incoming("u1", Desk, "0511111111", DeskChannel, TrunkChannel)));
    QVERIFY(app.deliver(answered("u1", Desk, DeskChannel, TrunkChannel, "0511111111")));
    // The acknowledgement follows the handler, so a request would be there.
    const QStringList requests = app.framesWith("GetChannelStatus");
    QCOMPARE(requests.size(), asks ? 1 : 0);
    if (asks)
        QCOMPARE(SimpleXmlParser::getDecodedTagValue(requests.at(0), "Channel"), TrunkChannel);
}

void TestCalls::mobileMissedCallWaitsForTheLastLeg()
{
    LoggedInClient app(TELVIX::AppModeSrntMobile);
    QVERIFY(app.start());
    Telvix* client = app.client();
    QSignalSpy missedSpy(client, missedRecord), missedTxt(client, missedText);
    QtLogCapture qtLog;
    LogbusCapture log;

    QVERIFY(app.deliver(incoming("u1", Desk, "0511111111", DeskChannel, TrunkChannel)));
    QVERIFY(app.deliver(incoming("u1", Soft, "0511111111", SoftChannel, TrunkChannel)));
    QVERIFY(app.deliver(finished("u1", Desk, DeskChannel, "0511111111")));
    QVERIFY(app.deliver(missed("u1", Desk, DeskChannel, "0511111111")));
    QCOMPARE(missedTxt.count(), 0);
    QVERIFY(qtLog.contains("Missed call u1 on SIP account 200-desk is not the last one. Not signaling"));

    QVERIFY(app.deliver(finished("u1", Soft, SoftChannel, "0511111111")));
    QVERIFY(app.deliver(missed("u1", Soft, SoftChannel, "0511111111")));
    QCOMPARE(missedTxt.count(), 1);
    QCOMPARE(missedTxt.at(0), (QVariantList {"u1", "0511111111"}));
    QVERIFY(qtLog.contains("Missed call u1 on SIP account 200-soft is the last one. Emit signal!"));
    QVERIFY(log.contains(1000, "Missed call u1 on SIP account 200-soft"));
    QCOMPARE(missedSpy.count(), 0);
    QCOMPARE(legCount(client), 0);
}

void TestCalls::colpUpdateChangesTheOtherParty_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("outgoingLeg");
    QTest::addColumn<int>("expectedSignals");
    QTest::newRow("desktop, outgoing") << int(TELVIX::AppModeSrntPro) << true << 1;
    QTest::newRow("desktop, incoming") << int(TELVIX::AppModeSrntPro) << false << 1;
    QTest::newRow("mobile, incoming") << int(TELVIX::AppModeSrntMobilePhone) << false << 0;
}

void TestCalls::colpUpdateChangesTheOtherParty()
{
    QFETCH(int, mode);
    QFETCH(bool, outgoingLeg);
    QFETCH(int, expectedSignals);
    LoggedInClient app {TELVIX::AppMode(mode)};
    QVERIFY(app.start());
    QSignalSpy colpSpy(app.client(), &Telvix::sigColpUpdate);
    LogbusCapture log;

    QVERIFY(app.deliver(outgoingLeg ? originate("u1", Desk, "0511111111", DeskChannel)
                                    : incoming("u1", Desk, "0511111111", DeskChannel, TrunkChannel)));
    // The call was transferred: someone else is on the line now.
    QVERIFY(app.deliver(colp("u1", Desk, "0533333333", "Carol", "SIP/trunk-0000000c")));
    QCOMPARE(colpSpy.count(), expectedSignals);
    const CallInfo stored = legs(app.client(), "u1").value(0);
    QCOMPARE(stored.remoteChannel, QStringLiteral("SIP/trunk-0000000c"));
    QCOMPARE(stored.getPeerNum(), QStringLiteral("0533333333"));
    QCOMPARE(outgoingLeg ? stored.calledName : stored.callerName, QStringLiteral("Carol"));
    QCOMPARE(outgoingLeg ? stored.callerNum : stored.calledNum, QStringLiteral("200"));
    QVERIFY(log.contains(1000,
                         outgoingLeg
                             ? "COLP update for call u1 from 200 to 0533333333 on SIP account 200-desk"
                             : "COLP update for call u1 from 0533333333 to 200 on SIP account 200-desk"));
}

void TestCalls::localChannelMoves_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("raised");
    QTest::newRow("desktop") << int(TELVIX::AppModeSrntPro) << true;
    QTest::newRow("srnt_mobile") << int(TELVIX::AppModeSrntMobile) << false;
    QTest::newRow("srnt_mobile_phone") << int(TELVIX::AppModeSrntMobilePhone) << true;
}

void TestCalls::localChannelMoves()
{
    QFETCH(int, mode);
    QFETCH(bool, raised);
    LoggedInClient app {TELVIX::AppMode(mode)};
    QVERIFY(app.start());
    QSignalSpy moved(app.client(), &Telvix::sigCallLocalInfoUpdate);
    LogbusCapture log;

    QVERIFY(app.deliver(incoming("u1", Desk, "0511111111", DeskChannel, TrunkChannel)));
    QVERIFY(app.deliver(localInfo("u1", Desk, DeskChannel, "SIP/200-desk-00000077")));
    QCOMPARE(moved.count(), raised ? 1 : 0);
    QCOMPARE(legs(app.client(), "u1").value(0).localChannel, QStringLiteral("SIP/200-desk-00000077"));
    QVERIFY(log.contains(1000,
                         "CallLocalInfo update for call u1 from 0511111111 to 200 on SIP account 200-desk => "
                         "new localChannel is SIP/200-desk-00000077"));

    // The old channel is the stored one no more.
    QVERIFY(app.deliver(localInfo("u1", Desk, DeskChannel, "SIP/200-desk-00000099")));
    QCOMPARE(moved.count(), raised ? 1 : 0);
    QCOMPARE(legs(app.client(), "u1").value(0).localChannel, QStringLiteral("SIP/200-desk-00000077"));
}

void TestCalls::clickToCall_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("desktop") << int(TELVIX::AppModeSrntPro);
    QTest::newRow("mobile") << int(TELVIX::AppModeSrntMobile);
}

void TestCalls::clickToCall()
{
    QFETCH(int, mode);
    const bool mobile = Telvix::appModeIsMobile(TELVIX::AppMode(mode));
    LoggedInClient app {TELVIX::AppMode(mode)};
    QVERIFY(app.start());
    Telvix* client = app.client();
    QSignalSpy started(client, &Telvix::sigC2cOriginate), ended(client, &Telvix::sigC2cFinished);
    QSignalSpy outgoing(client, &Telvix::sigOutgoingCall);
    QtLogCapture qtLog;
    LogbusCapture log;

    QVERIFY(app.deliver(c2cOriginate("k1", "200", "Local/200@c2c-0001", "0512222222", "c2c")));
    QCOMPARE(accountsByUid(client), (Accounts {{"k1", {"c2c"}}}));
    const CallInfo stored = legs(client, "k1").value(0);
    QVERIFY(stored.isC2c);
    QCOMPARE(stored.direction, int(CallInfo::DirectionOutgoing));
    QCOMPARE(stored.callerNum, QStringLiteral("200"));
    QCOMPARE(stored.calledNum, QStringLiteral("0512222222"));
    QCOMPARE(stored.localChannel, QStringLiteral("Local/200@c2c-0001"));
    QCOMPARE(started.count(), mobile ? 1 : 0);
    if (mobile)
        QCOMPARE(started.at(0), (QVariantList {"k1", "0512222222", "c2c"}));
    QVERIFY(log.contains(1000, "Incoming ClickToCall k1 from 200 to 0512222222 on SIP account c2c"));

    QVERIFY(app.deliver(c2cOriginate("k1", "200", "Local/200@c2c-0001", "0512222222", "c2c")));
    QVERIFY(
        log.contains(100, "Incoming ClickToCall already exists: uid = k1; caller = 200; sipAccount = c2c"));
    QCOMPARE(started.count(), mobile ? 1 : 0);

    // The desk phone that picks up the click-to-call is a leg of its own.
    QVERIFY(app.deliver(originate("k1", Desk, "0512222222", DeskChannel)));
    QVERIFY(app.deliver(c2cFinished("k1", "200", "Local/200@c2c-0001")));
    QCOMPARE(ended.count(), 0);
    QCOMPARE(accountsByUid(client), (Accounts {{"k1", {Desk}}}));
    QVERIFY(app.deliver(finished("k1", Desk, DeskChannel, "0512222222", true)));
    QCOMPARE(legCount(client), 0);

    QVERIFY(app.deliver(c2cOriginate("k2", "200", "Local/200@c2c-0002", "0513333333", "c2c_mobile")));
    QVERIFY(app.deliver(c2cFinished("k2", "200", "Local/200@c2c-0002")));
    QCOMPARE(ended.count(), mobile ? 1 : 0);
    if (mobile) {
        QCOMPARE(ended.at(0).at(0).toString(), QStringLiteral("k2"));
        QVERIFY(qtLog.contains("Finished ClickToCall on every account. Now signaling to client"));
    }
    QVERIFY(qtLog.contains("Finished ClickToCall on every account"));
    QVERIFY(log.contains(1000, "Finished ClickToCall k2 from 200 to 0513333333 on SIP account c2c"));
    QCOMPARE(outgoing.count(), mobile ? 0 : 1);
    QCOMPARE(legCount(client), 0);
}

void TestCalls::transfersReachOnlyMobileModes_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("desktop") << int(TELVIX::AppModeAtndCti);
    QTest::newRow("srnt_mobile") << int(TELVIX::AppModeSrntMobile);
    QTest::newRow("srnt_mobile_phone") << int(TELVIX::AppModeSrntMobilePhone);
}

void TestCalls::transfersReachOnlyMobileModes()
{
    QFETCH(int, mode);
    const int expected = Telvix::appModeIsMobile(TELVIX::AppMode(mode)) ? 1 : 0;
    LoggedInClient app {TELVIX::AppMode(mode)};
    QVERIFY(app.start());
    Telvix* client = app.client();
    QSignalSpy started(client, &Telvix::sigCallTransferStarted),
        completed(client, &Telvix::sigCallTransferCompleted);
    QSignalSpy canceled(client, &Telvix::sigCallTransferCanceled);

    QVERIFY(app.deliver(incoming("u1", Desk, "0511111111", DeskChannel, TrunkChannel)));
    const QList<CallInfo> before = legs(client, "u1");

    // The user hands the caller over to extension 201, then tries again.
    QVERIFY(
        app.deliver(wrap("InlineAtxferStarted", leg("u1", Desk, DeskChannel) + element("CalledNum", "201"))));
    QVERIFY(app.deliver(wrap("InlineAtxferCanceled", element("Uid", "u1") + element("Reason", "busy"))));
    QVERIFY(
        app.deliver(wrap("InlineAtxferStarted", leg("u1", Desk, DeskChannel) + element("CalledNum", "202"))));
    QVERIFY(app.deliver(wrap("InlineAtxferCompleted", leg("u1", Desk, DeskChannel))));
    QCOMPARE(started.count(), 2 * expected);
    QCOMPARE(canceled.count(), expected);
    QCOMPARE(completed.count(), expected);
    if (expected) {
        QCOMPARE(started.at(1).at(0).value<TransferStartedCallEvent>().calledNum, QStringLiteral("202"));
        QCOMPARE(canceled.at(0), (QVariantList {"u1", "busy"}));
        QCOMPARE(completed.at(0).at(0).value<TransferCompletedCallEvent>().sipAccount, Desk);
    }
    QCOMPARE(legs(client, "u1"), before);

    QVERIFY(app.deliver(finished("u1", Desk, DeskChannel, "0511111111")));
    QCOMPARE(legCount(client), 0);
}

void TestCalls::manyOverlappingCallsLeaveTheTableEmpty()
{
    // Calls that overlap, each on two accounts, ended in an order unlike the
    // order they began in, with duplicates and strays among them.
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    Telvix* client = app.client();
    QSignalSpy finishedSpy(client, finishedRecord);
    const int calls = 60;
    QString burst;
    const auto event = [](const QString& body) { return FakeCtiServer::document(body, "6.1"); };
    for (int i = 0; i < calls; ++i) {
        const QString uid = QStringLiteral("storm-%1").arg(i);
        burst += event(incoming(uid, Desk, "051", DeskChannel, TrunkChannel));
        burst += event(incoming(uid, Soft, "051", SoftChannel, TrunkChannel));
        burst += event(incoming(uid, Soft, "051", SoftChannel, TrunkChannel)); // refused duplicate
    }
    for (int i = calls - 1; i >= 0; --i) {
        const QString uid = QStringLiteral("storm-%1").arg(i);
        burst += event(answered(uid, i % 2 ? Desk : Soft, DeskChannel, TrunkChannel, "051", "1"));
        burst += event(finished(uid, Soft, SoftChannel, "051"));
        burst += event(finished(uid, Soft, SoftChannel, "051")); // leg already gone
        burst += event(finished(uid, Desk, DeskChannel, "051"));
    }
    const QString last = event(finished("never-seen", Desk, DeskChannel, "051"));
    app.server().send(app.connection(), burst + last);
    QVERIFY(app.waitForAck(FakeCtiServer::uuidOf(last), 20000));
    QCOMPARE(finishedSpy.count(), 2 * calls);
    QCOMPARE(legCount(client), 0);
    QVERIFY(accountsByUid(client).isEmpty());
}

void TestCalls::legsOfAVanishedSessionStayUntilTheClientEnds()
{
    // The session ends with calls live: their legs stay in the table, and the
    // client frees them when it ends (the sanitizer build checks the freeing).
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    Telvix* client = app.client();
    QVERIFY(app.deliver(incoming("u1", Desk, "051", DeskChannel, TrunkChannel)));
    QVERIFY(app.deliver(incoming("u1", Soft, "051", SoftChannel, TrunkChannel)));
    QVERIFY(app.deliver(c2cOriginate("k1", "200", "Local/200", "052", "c2c")));
    QSignalSpy gone(client, &Telvix::disconnectedFromServer);
    app.server().disconnectClient(app.connection());
    QTRY_VERIFY_WITH_TIMEOUT(gone.count() > 0, 10000);
    QCOMPARE(legCount(client), 3);
    QCOMPARE(accountsByUid(client), (Accounts {{"u1", {Desk, Soft}}, {"k1", {"c2c"}}}));
}

QTEST_GUILESS_MAIN(TestCalls)
#include "tst_calls.moc"
