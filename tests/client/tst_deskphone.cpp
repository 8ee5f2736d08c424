// The desk phone driven through the server: each command checked by the
// exact text the fake CTI server receives, each refusal by its words and by
// silence on the wire, and the phone's events of new and old servers turned
// into signals.
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "qtlogcapture.h"
#include "telvix.h"

#include <QMutex>
#include <QtTest>

#include <functional>

namespace {

using Command = std::function<void(Telvix*, const QStringList&)>;

const QMap<QString, Command>& commands()
{
    static const QMap<QString, Command> all = {
        {"makeCall", [](Telvix* c, const QStringList& a) { c->phoneCommandMakeCall(a[0], a[1]); }},
        {"putOnHold", [](Telvix* c, const QStringList& a) { c->phoneCommandPutOnHold(a[0]); }},
        {"resumeFromHold", [](Telvix* c, const QStringList& a) { c->phoneCommandResumeFromHold(a[0]); }},
        {"ufwdSet", [](Telvix* c, const QStringList& a) { c->phoneCommandUfwdSet(a[0], a[1]); }},
        {"ufwdUnset", [](Telvix* c, const QStringList& a) { c->phoneCommandUfwdUnset(a[0]); }},
        {"answer", [](Telvix* c, const QStringList& a) { c->phoneCommandAnswerIncomingCall(a[0]); }},
        {"hangup", [](Telvix* c, const QStringList& a) { c->phoneCommandHangupCall(a[0]); }},
        {"unattendedTransfer",
         [](Telvix* c, const QStringList& a) { c->phoneCommandUnattendedTransfer(a[0], a[1]); }},
        {"attendedTransfer",
         [](Telvix* c, const QStringList& a) { c->phoneCommandAttendedTransfer(a[0], a[1]); }},
        {"getDndStatus", [](Telvix* c, const QStringList&) { c->phoneCommandGetDndStatus(); }},
        {"sendDtmfs", [](Telvix* c, const QStringList& a) { c->phoneCommandSendDtmfs(a[0], a.mid(1)); }},
        {"pressKeys", [](Telvix* c, const QStringList& a) { c->phoneCommandPressKeys(a); }},
    };
    return all;
}

// Every desk-phone signal, in the order raised, as "name(arguments)".
class PhoneSignalRecorder
{
public:
    explicit PhoneSignalRecorder(Telvix* client)
    {
        const QList<QPair<const char*, void (Telvix::*)(QString, QString, QString)>> callSignals = {
            {"incoming", &Telvix::phoneEventIncomingCall},
            {"outgoing", &Telvix::phoneEventOutgoingCall},
            {"established", &Telvix::phoneEventEstablishedCall},
            {"ended", &Telvix::phoneEventEndedCall},
            {"missed", &Telvix::phoneEventMissedCall},
            {"hold", &Telvix::phoneEventHoldCall},
            {"unhold", &Telvix::phoneEventUnholdCall},
        };
        for (const auto& entry : callSignals) {
            const QString name = QLatin1String(entry.first);
            QObject::connect(
                client, entry.second, client,
                [this, name](QString num, QString callerName, QString callId) {
                    record(QStringLiteral("%1(%2,%3,%4)").arg(name, num, callerName, callId));
                },
                Qt::DirectConnection);
        }
        QObject::connect(
            client, &Telvix::phoneEventDnd, client,
            [this](bool on) { record(QStringLiteral("dnd(%1)").arg(on ? "true" : "false")); },
            Qt::DirectConnection);
        QObject::connect(
            client, &Telvix::sigPhoneApiAutorized, client,
            [this](bool ok) { record(QStringLiteral("authorized(%1)").arg(ok ? "true" : "false")); },
            Qt::DirectConnection);
    }

    QStringList raised() const
    {
        QMutexLocker lock(&m_mutex);
        return m_raised;
    }

private:
    void record(const QString& line)
    {
        QMutexLocker lock(&m_mutex);
        m_raised.append(line);
    }

    mutable QMutex m_mutex;
    QStringList m_raised;
};

} // namespace

class TestDeskPhone : public QObject
{
    Q_OBJECT

private:
    // Runs a command where the application must call it: on the library's thread.
    static void run(LoggedInClient& app, const QString& command, const QStringList& arguments)
    {
        Telvix* const client = app.client();
        const Command body = commands().value(command);
        app.onLibraryThread([&] { body(client, arguments); });
    }

    static QStringList phoneCommandsSent(LoggedInClient& app)
    {
        return app.framesWith(QStringLiteral("PhoneCommand"));
    }

private Q_SLOTS:
    void validKeys_data();
    void validKeys();
    void commandsSendThePhonesOwnText_data();
    void commandsSendThePhonesOwnText();
    void refusedCommandsSendNothing_data();
    void refusedCommandsSendNothing();
    void phoneEvents_data();
    void phoneEvents();
    void oldServerPhoneEvents_data();
    void oldServerPhoneEvents();
};

void TestDeskPhone::validKeys_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("valid");
    // A sample of the accepted names: digits, signs spelt out, mixed-case DND words.
    for (const char* key : {"0", "9", "STAR", "POUND", "DNDOn", "DNDOff", "OFFHOOK", "HOLD"})
        QTest::newRow(key) << QString::fromLatin1(key) << true;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("lower case") << "ok" << false;
    QTest::newRow("dnd spelt upper") << "DNDON" << false;
    QTest::newRow("star sign") << "*" << false;
    QTest::newRow("two digits") << "12" << false;
    QTest::newRow("padded") << " OK" << false;
}

void TestDeskPhone::validKeys()
{
    QFETCH(QString, key);
    QFETCH(bool, valid);
    QCOMPARE(TELVIX::isValidPhoneKey(key), valid);
}

void TestDeskPhone::commandsSendThePhonesOwnText_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("text");
    QTest::newRow("make call, blanks trimmed")
        << "makeCall" << QStringList {" +39051123456 ", "201"}
        << "<PhoneCommand><Peer>201</Peer><makeCall><numberToCall>+39051123456</numberToCall></makeCall></"
           "PhoneCommand>";
    QTest::newRow("peer escaped")
        << "makeCall" << QStringList {"201", "desk&<1>"}
        << "<PhoneCommand><Peer>desk&amp;&lt;1&gt;</Peer><makeCall><numberToCall>201"
           "</numberToCall></makeCall></PhoneCommand>";
    QTest::newRow("hold") << "putOnHold" << QStringList {"L1"}
                          << "<PhoneCommand><putOnHold><lineId>L1</lineId></putOnHold></PhoneCommand>";
    QTest::newRow("resume")
        << "resumeFromHold" << QStringList {"L1"}
        << "<PhoneCommand><resumeFromHold><lineId>L1</lineId></resumeFromHold></PhoneCommand>";
    QTest::newRow("forward") << "ufwdSet" << QStringList {" 0511234 ", "201"}
                             << "<PhoneCommand><Peer>201</Peer><ufwdSet>0511234</ufwdSet></PhoneCommand>";
    QTest::newRow("forward off") << "ufwdUnset" << QStringList {"201"}
                                 << "<PhoneCommand><Peer>201</Peer><ufwdSet></ufwdSet></PhoneCommand>";
    QTest::newRow("answer") << "answer" << QStringList {"L2"}
                            << "<PhoneCommand><answerIncomingCall><lineId>L2</lineId></answerIncomingCall>"
                               "</PhoneCommand>";
    QTest::newRow("hang up")
        << "hangup" << QStringList {"L&2"}
        << "<PhoneCommand><hangupCall><lineId>L&amp;2</lineId></hangupCall></PhoneCommand>";
    QTest::newRow("blind transfer") << "unattendedTransfer" << QStringList {"L2", " 202 "}
                                    << "<PhoneCommand><unattendedTransfer><lineId>L2</lineId><to>202</to>"
                                       "</unattendedTransfer></PhoneCommand>";
    QTest::newRow("attended transfer")
        << "attendedTransfer" << QStringList {"L2", "+44207946"}
        << "<PhoneCommand><attendedTransfer><lineId>L2</lineId><to>+44207946</to>"
           "</attendedTransfer></PhoneCommand>";
    QTest::newRow("dnd status") << "getDndStatus" << QStringList {}
                                << "<PhoneCommand><getDndStatus></getDndStatus></PhoneCommand>";
    QTest::newRow("dtmf, invalid ones skipped")
        << "sendDtmfs" << QStringList {"L3", "1", "x", "#", "12", "*", ""}
        << "<PhoneCommand><sendDtmf><lineId>L3</lineId><digit>1</digit><digit>POUND</digit><digit>STAR</"
           "digit>"
           "</sendDtmf></PhoneCommand>";
    QTest::newRow("keys, invalid ones skipped")
        << "pressKeys" << QStringList {"OK", "ok", "", "DNDOn", "9"}
        << "<PhoneCommand><pressKey><key>OK</key><key>DNDOn</key><key>9</key></pressKey></PhoneCommand>";
}

void TestDeskPhone::commandsSendThePhonesOwnText()
{
    QFETCH(QString, command);
    QFETCH(QStringList, arguments);
    QFETCH(QString, text);
    LoggedInClient app(TELVIX::AppModeSrntPhone);
    QVERIFY(app.start());
    LogbusCapture log;
    run(app, command, arguments);
    const QString frame = app.server().waitForFrame(QStringLiteral("PhoneCommand"));
    QVERIFY2(frame.contains(text), qPrintable(frame));
    // One whole request in the usual envelope.
    QVERIFY(frame.startsWith(QLatin1String("<SRNT>")));
    QVERIFY(frame.contains(QLatin1String("<Request>") + text + QLatin1String("</Request>")));
    QCOMPARE(phoneCommandsSent(app).size(), 1);
    if (command == QLatin1String("getDndStatus"))
        QVERIFY(log.contains(1000, "Getting DND status."));
}

void TestDeskPhone::refusedCommandsSendNothing_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("words");
    QTest::newRow("call, letter") << "makeCall" << QStringList {"05a1", "201"}
                                  << "Invalid number to call: 05a1";
    QTest::newRow("call, nothing") << "makeCall" << QStringList {"  ", "201"} << "Invalid number to call:";
    QTest::newRow("forward, letters")
        << "ufwdSet" << QStringList {"abc", "201"} << "Invalid number to forward: abc";
    QTest::newRow("hold, no line") << "putOnHold" << QStringList {""} << "Invalid line id:";
    QTest::newRow("hangup, no line") << "hangup" << QStringList {""} << "Invalid line id:";
    QTest::newRow("transfer, bad number")
        << "attendedTransfer" << QStringList {"L1", "20x"} << "Invalid number to transfer: 20x";
    QTest::newRow("transfer, no line and bad number")
        << "attendedTransfer" << QStringList {"", "20x"} << "Invalid line id:";
    QTest::newRow("blind transfer, bad number")
        << "unattendedTransfer" << QStringList {"L1", "2 0"} << "Invalid number to transfer: 2 0";
    QTest::newRow("dtmf, no line") << "sendDtmfs" << QStringList {"", "1"} << "Invalid line id:";
    QTest::newRow("dtmf, nothing valid")
        << "sendDtmfs" << QStringList {"L1", "12", "x"} << "No valid digits in list";
    QTest::newRow("keys, nothing valid")
        << "pressKeys" << QStringList {"ok", "cancel"} << "No valid keys in list";
}

void TestDeskPhone::refusedCommandsSendNothing()
{
    QFETCH(QString, command);
    QFETCH(QStringList, arguments);
    QFETCH(QString, words);
    LoggedInClient app(TELVIX::AppModeSrntPhone);
    QVERIFY(app.start());
    LogbusCapture log;
    QtLogCapture qtLog;
    run(app, command, arguments);
    QVERIFY2(log.contains(100, words), qPrintable(log.texts().join('\n')));
    QVERIFY(qtLog.contains(words.section(':', 0, 0)));
    // The line is tested first, and alone when it is missing.
    if (words == QLatin1String("Invalid line id:"))
        QVERIFY(!log.contains("Invalid number"));

    // A command that goes through comes next and is all the server gets.
    run(app, "getDndStatus", {});
    QVERIFY(!app.server().waitForFrame(QStringLiteral("getDndStatus")).isEmpty());
    QCOMPARE(phoneCommandsSent(app).size(), 1);
}

void TestDeskPhone::phoneEvents_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QStringList>("raised");
    const auto event = [](const char* type, const char* num, const char* name) {
        return QStringLiteral(
                   "<phoneEvent><eventType>%1</eventType><callId>c-7</callId><account>200-desk</account>"
                   "<remoteNum>%2</remoteNum><remoteName>%3</remoteName></phoneEvent>")
            .arg(QLatin1String(type), QLatin1String(num), QLatin1String(name));
    };
    // Each event type reaches its own signal.
    for (const char* type : {"incoming", "outgoing", "established", "ended", "missed", "unhold"})
        QTest::newRow(type) << event((QByteArray(type) + "Call").constData(), "0511", "Bob")
                            << QStringList {QStringLiteral("%1(0511,Bob,c-7)").arg(QLatin1String(type))};
    QTest::newRow("hold") << event("holdCall", "0511", "Bob &amp; Co")
                          << QStringList {"hold(0511,Bob & Co,c-7)"};
    QTest::newRow("anonymous caller")
        << event("incomingCall", "Anonymous", "Mario") << QStringList {"incoming(anonymous,Anonymous,c-7)"};
    QTest::newRow("unknown type") << event("ringing", "0511", "Bob") << QStringList {};
    QTest::newRow("dnd on")
        << "<phoneEvent><eventType>dnd</eventType><propName>dnd</propName><propValue>1</propValue>"
           "</phoneEvent>"
        << QStringList {"authorized(true)", "dnd(true)"};
    QTest::newRow("dnd off")
        << "<phoneEvent><eventType>dnd</eventType><propName>dnd</propName><propValue>0</propValue>"
           "</phoneEvent>"
        << QStringList {"authorized(true)", "dnd(false)"};
    QTest::newRow("dnd, other property")
        << "<phoneEvent><eventType>dnd</eventType><propName>volume</propName>"
           "<propValue>1</propValue></phoneEvent>"
        << QStringList {"authorized(true)", "dnd(false)"};
}

void TestDeskPhone::phoneEvents()
{
    QFETCH(QString, body);
    QFETCH(QStringList, raised);
    LoggedInClient app(TELVIX::AppModeSrntPhone);
    QVERIFY(app.start());
    PhoneSignalRecorder recorder(app.client());
    LogbusCapture log;
    QString uuid;
    QVERIFY(app.deliverThenProbe(body, &uuid));
    QCOMPARE(recorder.raised(), raised);
    QCOMPARE(log.contains(1000, "Unknown phone event!"), raised.isEmpty());
    QVERIFY(!log.contains("Received old phone event message"));
    // Phone events have no message class, hence no acknowledgement.
    QVERIFY(!app.acknowledged(uuid));
}

void TestDeskPhone::oldServerPhoneEvents_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QStringList>("raised");
    const QString party
        = "<remoteSipUri>sip:0511@pbx.local</remoteSipUri><remoteDisplayName>Bob</remoteDisplayName>"
          "<callId>c-9</callId>";
    QTest::newRow("incoming") << "<phoneEvent><incomingCall>" + party + "</incomingCall></phoneEvent>"
                              << QStringList {"incoming(0511,Bob,c-9)"};
    QTest::newRow("ended") << "<phoneEvent><endedCall>" + party + "</endedCall></phoneEvent>"
                           << QStringList {"ended(0511,Bob,c-9)"};
    // The first element of the fixed order wins, not the first in the text.
    QTest::newRow("hold before dnd") << "<phoneEvent><dnd>on</dnd><holdCall>" + party
            + "</holdCall></phoneEvent>"
                                     << QStringList {"hold(0511,Bob,c-9)"};
    QTest::newRow("hidden caller")
        << "<phoneEvent><missedCall><remoteSipUri>sip:anonymous@anonymous.invalid</remoteSipUri>"
           "<remoteDisplayName>Mario</remoteDisplayName><callId>c-3</callId></missedCall></phoneEvent>"
        << QStringList {"missed(anonymous,Anonymous,c-3)"};
    QTest::newRow("dnd on") << "<phoneEvent><dnd>on</dnd></phoneEvent>"
                            << QStringList {"authorized(true)", "dnd(true)"};
    QTest::newRow("dnd off") << "<phoneEvent><dnd>off</dnd></phoneEvent>"
                             << QStringList {"authorized(true)", "dnd(false)"};
    // An old server's message in the new form has no element to go by.
    QTest::newRow("new form") << "<phoneEvent><eventType>incomingCall</eventType><remoteNum>0511</remoteNum>"
                                 "</phoneEvent>"
                              << QStringList {};
}

void TestDeskPhone::oldServerPhoneEvents()
{
    QFETCH(QString, body);
    QFETCH(QStringList, raised);
    LoggedInClient app(TELVIX::AppModeSrntPhone, QStringLiteral("4.5"));
    QVERIFY(app.start());
    PhoneSignalRecorder recorder(app.client());
    LogbusCapture log;
    QVERIFY(app.deliverThenProbe(body));
    QCOMPARE(recorder.raised(), raised);
    QVERIFY(log.contains(1000, "Received old phone event message, converting parameters..."));
}

QTEST_GUILESS_MAIN(TestDeskPhone)
#include "tst_deskphone.moc"
