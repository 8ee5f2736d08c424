#include "messagetestutil.h"
#include "qtlogcapture.h"
#include "servicemessages.h"
#include "simplexmlparser.h"

#include <QMetaProperty>
#include <QtTest>

using MessageTestUtil::serverDocument;

namespace {

using DialCodes = QMap<TELVIX::ServiceDialCodeType, QString>;

TELVIX::ServiceDialCodeType typeOfKey(const QString& localKey)
{
    for (int n = 1; n <= 30; ++n) {
        const auto type = static_cast<TELVIX::ServiceDialCodeType>(n);
        if (TELVIX::serviceDialCodeTypeToString(type) == localKey)
            return type;
    }
    return static_cast<TELVIX::ServiceDialCodeType>(0);
}

QStringList propertyNames(const QMetaObject& meta)
{
    QStringList names;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i)
        names << QString::fromLatin1(meta.property(i).name());
    return names;
}

/// Every text of `words` is in the log and none of `absent` is.
void checkLog(const QtLogCapture& log, const QStringList& words, const QStringList& absent)
{
    for (const QString& word : words)
        QVERIFY2(log.contains(word), qPrintable(QStringLiteral("missing log: ") + word));
    for (const QString& word : absent)
        QVERIFY2(!log.contains(word), qPrintable(QStringLiteral("unexpected log: ") + word));
}

/// Columns of a parse table: the document, whether it is accepted, the
/// record expected, and log words that must and must not appear.
template <typename Record> void addParseColumns()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<bool>("success");
    QTest::addColumn<Record>("expected");
    QTest::addColumn<QStringList>("logs");
    QTest::addColumn<QStringList>("absent");
}

/// One row of a parse table, read with Msg::parseMessage.
template <typename Msg, typename Record> void checkParseRow(Record Msg::*member)
{
    QFETCH(QString, xml);
    QFETCH(bool, success);
    QFETCH(Record, expected);
    QFETCH(QStringList, logs);
    QFETCH(QStringList, absent);

    QtLogCapture log;
    const Msg msg = Msg::parseMessage(xml);
    QCOMPARE(msg.success, success);
    QCOMPARE(msg.*member, expected);
    // Only an accepted message reads the envelope.
    QCOMPARE(msg.uuid, success ? MessageTestUtil::fixtureUuid() : QString());
    checkLog(log, logs, absent);
}

/// `xml` parses as a failed Msg whose `member` is left default, logging `word`.
template <typename Msg, typename Member>
void checkInvalid(const QString& xml, Member Msg::*member, const QString& word)
{
    QtLogCapture log;
    const Msg msg = Msg::parseMessage(xml);
    QVERIFY(!msg.success);
    QCOMPARE(msg.errorMessage, QStringLiteral("Unknown error"));
    QVERIFY(msg.uuid.isEmpty());
    QVERIFY(msg.*member == Member());
    QVERIFY2(log.contains(word), qPrintable(word));
}

/// Log words of one message class: valid, invalid, and the word of its repair
/// or of its empty list.
struct LogWords
{
    QString parsedOk;
    QString invalid;
    QString special;
};
const LogWords StatusWords {QStringLiteral("Service Status resp msg parsed ok"),
                            QStringLiteral("parsed an invalid Service Status resp msg"),
                            QStringLiteral("parsed an empty ServiceStatusList msg")};
const LogWords InCallWords {QStringLiteral("InCallServiceStatus msg parsed ok"),
                            QStringLiteral("parsed an invalid InCallServiceStatus resp msg"),
                            QStringLiteral("Parsing LocalChannel field (old SARNET implementation...)")};

/// An in-call status event holding `fields`, as a server of `api` sends it.
QString inCallDocument(const QString& fields, const QString& api = QStringLiteral("6.1"))
{
    return serverDocument(
        QStringLiteral("<InCallServiceStatus>") + fields + QStringLiteral("</InCallServiceStatus>"), api);
}

const QString EmptyTypeRow = QStringLiteral("<ServiceStatus><Id>ufwd</Id><Type></Type><Value>1</Value>"
                                            "<Status>1</Status></ServiceStatus>");

} // namespace

class TestServiceMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void serviceStatus_data();
    void serviceStatus();
    void inCallServiceStatus_data();
    void inCallServiceStatus();
    void inCallWriterNamesChannelByVersion_data();
    void inCallWriterNamesChannelByVersion();
    void channelStatus_data();
    void channelStatus();
    void serviceList_data();
    void serviceList();
    void serviceListWriterUsesLocalKeys();
    void dialCodeDescriptions_data();
    void dialCodeDescriptions();
    void ctiConfiguration_data();
    void ctiConfiguration();
    void commandResponseIsFailed_data();
    void commandResponseIsFailed();
    void diagnosticMessage_data();
    void diagnosticMessage();
    void tenants_data();
    void tenants();
    void tenantsRequestFailed();
    void authToken();
    void recordMissingItsKeyIsInvalid();
    void rebrandingPackChanged();
    void roundTrips();
    void recordsAreRegisteredGadgets();
};

void TestServiceMessages::serviceStatus_data()
{
    addParseColumns<QList<ServiceStatus>>();

    QTest::newRow("list 4.2")
        << serverDocument("<ServiceStatusList><ServiceStatus><Id>ufwd</Id><Type>ufwd</Type>"
                          "<Value>3331234567</Value><Status>1</Status></ServiceStatus>"
                          "<ServiceStatus><Id>forktomobile</Id><Type>fork</Type>"
                          "<Value>3339876543</Value><Status>0</Status></ServiceStatus>"
                          "</ServiceStatusList>",
                          "4.2")
        << true
        << QList<ServiceStatus> {ServiceStatus {"ufwd", "ufwd", "3331234567", 1},
                                 ServiceStatus {"forktomobile", "fork", "3339876543", 0}}
        << QStringList {StatusWords.parsedOk} << QStringList {StatusWords.special, StatusWords.invalid};
    QTest::newRow("single event 6.1")
        << serverDocument("<ServiceStatus><Id>ufwd</Id><Type>ufwd</Type><Value></Value>"
                          "<Status>0</Status></ServiceStatus>")
        << true << QList<ServiceStatus> {ServiceStatus {"ufwd", "ufwd", "", 0}}
        << QStringList {StatusWords.parsedOk} << QStringList {StatusWords.special};
    QTest::newRow("entry without id skipped 5.7") << serverDocument(
        "<ServiceStatusList><ServiceStatus><Type>ufwd</Type></ServiceStatus>"
        "<ServiceStatus><Id>dnd</Id><Type>dnd</Type><Value>a&amp;b</Value><Status>on</Status>"
        "</ServiceStatus></ServiceStatusList>",
        "5.7") << true << QList<ServiceStatus> {ServiceStatus {"dnd", "dnd", "a&b", 0}}
                                                  << QStringList {StatusWords.invalid, StatusWords.parsedOk}
                                                  << QStringList {StatusWords.special};
    QTest::newRow("only invalid entries 5.10")
        << serverDocument("<ServiceStatusList>" + EmptyTypeRow + "</ServiceStatusList>", "5.10") << true
        << QList<ServiceStatus> {} << QStringList {StatusWords.invalid, StatusWords.special}
        << QStringList {StatusWords.parsedOk};
    QTest::newRow("no entries 4.9") << serverDocument("<ServiceStatusList></ServiceStatusList>", "4.9")
                                    << true << QList<ServiceStatus> {} << QStringList {StatusWords.special}
                                    << QStringList {StatusWords.parsedOk, StatusWords.invalid};
}

void TestServiceMessages::serviceStatus()
{
    checkParseRow(&ServiceStatusRespMsg::statusList);
}

void TestServiceMessages::inCallServiceStatus_data()
{
    addParseColumns<InCallServiceStatus>();

    const QStringList modern {InCallWords.special};
    QTest::newRow("channel 6.1") << inCallDocument(
        "<Uid>u1</Uid><SipAccount>201</SipAccount><Channel>SIP/201-1</Channel>"
        "<Type>recording</Type><Status>1</Status>")
                                 << true << InCallServiceStatus {"u1", "201", "SIP/201-1", "recording", 1}
                                 << QStringList {InCallWords.parsedOk} << modern;
    QTest::newRow("LocalChannel 4.9")
        << inCallDocument("<Uid>u2</Uid><SipAccount>201</SipAccount><LocalChannel>SIP/201-2</LocalChannel>"
                          "<Type>atxfer</Type><Status>0</Status>",
                          "4.9")
        << true << InCallServiceStatus {"u2", "201", "SIP/201-2", "atxfer", 0}
        << QStringList {InCallWords.special, InCallWords.parsedOk} << QStringList {InCallWords.invalid};
    QTest::newRow("status x gives 4 on 5.7")
        << inCallDocument("<Uid>u3</Uid><Channel>c</Channel><Status>x</Status>", "5.7") << true
        << InCallServiceStatus {"u3", "", "c", "", 4} << QStringList {InCallWords.parsedOk} << modern;
    QTest::newRow("no status gives 4 on 4.5")
        << inCallDocument("<Uid>u4</Uid><LocalChannel>c</LocalChannel>", "4.5") << true
        << InCallServiceStatus {"u4", "", "c", "", 4}
        << QStringList {InCallWords.special, InCallWords.parsedOk} << QStringList();
    QTest::newRow("Channel beats LocalChannel 5.4") << inCallDocument(
        "<Uid>u5</Uid><LocalChannel>old</LocalChannel><Channel>new</Channel><Status>2</Status>", "5.4")
                                                    << true << InCallServiceStatus {"u5", "", "new", "", 2}
                                                    << QStringList {InCallWords.parsedOk} << modern;
    QTest::newRow("no uid 6.1") << inCallDocument("<Channel>c</Channel>") << false << InCallServiceStatus()
                                << QStringList {InCallWords.invalid} << QStringList {InCallWords.parsedOk};
    QTest::newRow("no channel at all 4.1")
        << inCallDocument("<Uid>u6</Uid>", "4.1") << false << InCallServiceStatus()
        << QStringList {InCallWords.special, InCallWords.invalid} << QStringList {InCallWords.parsedOk};
}

void TestServiceMessages::inCallServiceStatus()
{
    checkParseRow(&InCallServiceStatusEventMsg::inCallServiceStatus);
}

void TestServiceMessages::inCallWriterNamesChannelByVersion_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<bool>("modern");

    // Text order: "5.10" sorts before "5.7", so it is written the old way.
    for (const char* api : {"4.9", "5.6", "5.10"})
        QTest::newRow(api) << QString::fromLatin1(api) << false;
    for (const char* api : {"5.7", "6.1"})
        QTest::newRow(api) << QString::fromLatin1(api) << true;
}

void TestServiceMessages::inCallWriterNamesChannelByVersion()
{
    QFETCH(QString, api);
    QFETCH(bool, modern);

    InCallServiceStatusEventMsg msg;
    msg.inCallServiceStatus = InCallServiceStatus {"u1", "201", "SIP/201-1", "recording", 3};
    const QString xml = msg.serializeToXml(api);
    const QString channel = QStringLiteral("Channel");
    const QString localChannel = QStringLiteral("LocalChannel");
    QCOMPARE(SimpleXmlParser::getTagValue(xml, modern ? channel : localChannel), QStringLiteral("SIP/201-1"));
    QCOMPARE(SimpleXmlParser::getTagValue(xml, modern ? localChannel : channel, 0, "none"),
             QStringLiteral("none"));

    // Either name reads back to the same record.
    const InCallServiceStatusEventMsg back = InCallServiceStatusEventMsg::parseMessage(xml);
    QVERIFY(back.success);
    QCOMPARE(back.inCallServiceStatus, msg.inCallServiceStatus);
    QCOMPARE(back.api, api);
}

void TestServiceMessages::channelStatus_data()
{
    addParseColumns<ChannelStatus>();

    const QString ok = QStringLiteral("Mailbox Status resp msg parsed ok");
    const QString callerId = QStringLiteral("Parsing Channel CallerID field (old SARNET implementation...)");
    const QStringList oldServer {ok, callerId};
    QTest::newRow("6.1") << serverDocument(
        "<ChannelStatus><Channel>SIP/trunk-1</Channel><Number>0612345678</Number>"
        "<Name>Mario Rossi</Name></ChannelStatus>")
                         << true << ChannelStatus {"SIP/trunk-1", "0612345678", "Mario Rossi"}
                         << QStringList {ok} << QStringList {callerId};
    QTest::newRow("CallerID with blank line 4.2")
        << serverDocument("<ChannelStatus><Channel>SIP/trunk-2</Channel><Name>ignored</Name>"
                          "<CallerID>&quot;Mario Rossi&quot;\n\nSIP/ABC </CallerID></ChannelStatus>",
                          "4.2")
        << true << ChannelStatus {"SIP/trunk-2", "sip/abc", "Mario Rossi"} << oldServer << QStringList();
    QTest::newRow("CallerID after a line break 4.1")
        << serverDocument("<ChannelStatus><Channel>SIP/trunk-3</Channel><Number></Number>"
                          "<CallerID>\n\"Anna\"\n0612345678</CallerID></ChannelStatus>",
                          "4.1")
        << true << ChannelStatus {"SIP/trunk-3", "0612345678", "Anna"} << oldServer << QStringList();
    // There is no invalid channel answer.
    QTest::newRow("nothing at all") << serverDocument("<ChannelStatus></ChannelStatus>", "5.4") << true
                                    << ChannelStatus() << oldServer << QStringList();
}

void TestServiceMessages::channelStatus()
{
    checkParseRow(&ChannelStatusRespMsg::channelStatus);
}

void TestServiceMessages::serviceList_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QString>("expected"); // "localKey=code" pairs

    QTest::newRow("sections 6.1") << serverDocument(
        "<Services><NumberingPlan><echo>*43</echo><voicemail>*50</voicemail><pickUp>*8</pickUp>"
        "<superDirectPickup>*85</superDirectPickup><forkMobileEnable>*71</forkMobileEnable>"
        "<forkMobileDisable>*72</forkMobileDisable><outboundPrefix>0</outboundPrefix><disa>*99</disa>"
        "</NumberingPlan><InCall><atXfer>*2</atXfer><atXferCancel>*5</atXferCancel><blindXfer>##</blindXfer>"
        "</InCall></Services>")
                                  << "echo=*43 voicemail=*50 pickUp=*8 superDirectPickUp=*85 "
                                     "forkMobileSet=*71 "
                                     "forkMobileUnset=*72 outboundPrefix=0 conference= atXfer=*2 "
                                     "atXferCancel=*5 blindXfer=## atXferShuttle= cancel=";
    // Without sections the in-call codes take their defaults.
    QTest::newRow("no sections 4.2") << serverDocument(
        "<Services><echo>*43</echo><PickUp>*8</PickUp><ufwdSet>*21</ufwdSet></Services>", "4.2")
                                     << "echo=*43 pickUp=*8 ufwdSet=*21 ufwdUnset= atXfer=*4 atXferCancel=*0 "
                                        "atXferShuttle=*9 atXfer3Conf=*3 blindXfer=#4 fastTransfer=** "
                                        "parking=#8 recording=*1 cancel=*0";
    QTest::newRow("empty atXfer in InCall 5.4")
        << serverDocument("<Services><NumberingPlan><echo>*43</echo></NumberingPlan>"
                          "<InCall><atXfer></atXfer><parking>#7</parking></InCall></Services>",
                          "5.4")
        << "atXfer= parking=#7 recording=";
    QTest::newRow("local keys are not read 5.10")
        << serverDocument("<Services><NumberingPlan><superDirectPickUp>*85</superDirectPickUp>"
                          "<forkMobileSet>*71</forkMobileSet><spy>*33</spy></NumberingPlan></Services>",
                          "5.10")
        << "superDirectPickUp= forkMobileSet= spy=*33";
    QTest::newRow("pickUp before PickUp 4.9")
        << serverDocument("<Services><pickUp>*8</pickUp><PickUp>*9</PickUp></Services>", "4.9")
        << "pickUp=*8";
}

void TestServiceMessages::serviceList()
{
    QFETCH(QString, xml);
    QFETCH(QString, expected);

    QtLogCapture log;
    const ServiceListResMsg msg = ServiceListResMsg::parseMessage(xml);
    QVERIFY(msg.success);
    QVERIFY(log.contains(QStringLiteral("Service List resp msg parsed ok")));
    QCOMPARE(msg.codes.size(), 29);
    QVERIFY(!msg.codes.contains(TELVIX::ServiceDisa));
    for (const QString& pair : expected.split(QLatin1Char(' '))) {
        const QString key = pair.section(QLatin1Char('='), 0, 0);
        const TELVIX::ServiceDialCodeType type = typeOfKey(key);
        QVERIFY2(msg.codes.contains(type), qPrintable(key));
        QCOMPARE(msg.codes.value(type), pair.section(QLatin1Char('='), 1));
    }
}

void TestServiceMessages::serviceListWriterUsesLocalKeys()
{
    ServiceListResMsg msg;
    for (int n = 1; n <= 30; ++n)
        msg.codes.insert(static_cast<TELVIX::ServiceDialCodeType>(n), QStringLiteral("#%1").arg(n));
    const QString xml = msg.serializeToXml(QStringLiteral("6.1"));

    const QString plan = SimpleXmlParser::getTagValue(xml, QStringLiteral("NumberingPlan"));
    const QString inCall = SimpleXmlParser::getTagValue(xml, QStringLiteral("InCall"));
    QVERIFY(xml.indexOf(QLatin1String("<NumberingPlan>")) < xml.indexOf(QLatin1String("<InCall>")));
    QCOMPARE(SimpleXmlParser::getTagValue(plan, QStringLiteral("superDirectPickUp")), QStringLiteral("#14"));
    QCOMPARE(SimpleXmlParser::getTagValue(plan, QStringLiteral("forkMobileSet")), QStringLiteral("#17"));
    QCOMPARE(SimpleXmlParser::getTagValue(plan, QStringLiteral("disa")), QStringLiteral("#4"));
    QCOMPARE(SimpleXmlParser::getTagValue(plan, QStringLiteral("atXfer"), 0, "none"), QStringLiteral("none"));
    QCOMPARE(SimpleXmlParser::getTagValue(inCall, QStringLiteral("cancel")), QStringLiteral("#30"));

    // Deviations: the four types whose wire name differs from the local key
    // come back empty, and "disa" is not read at all.
    const ServiceListResMsg back = ServiceListResMsg::parseMessage(xml);
    for (int n = 1; n <= 30; ++n) {
        const auto type = static_cast<TELVIX::ServiceDialCodeType>(n);
        if (n == 4)
            QVERIFY(!back.codes.contains(type));
        else if (n == 14 || n == 15 || n == 17 || n == 18)
            QCOMPARE(back.codes.value(type, "none"), QString(""));
        else
            QCOMPARE(back.codes.value(type), msg.codes.value(type));
    }
}

void TestServiceMessages::dialCodeDescriptions_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("description");

    QTest::newRow("1") << 1 << "Echo service";
    QTest::newRow("4") << 4 << "SRV_DISA: TO_BE_DEFINED";
    QTest::newRow("13") << 13 << "SRV_SPEEDDIAL_PERSONAL";
    QTest::newRow("17") << 17 << "Enable Fork-to-Mobile";
    QTest::newRow("18") << 18 << "Disable Fork-to-mobile";
    QTest::newRow("21") << 21 << "Prefix to call an external number (Outbound Prefix)";
    QTest::newRow("22 misspelt") << 22 << "Start an attended trasfer";
    QTest::newRow("26") << 26 << "Start a blind transfer";
    QTest::newRow("30") << 30 << "INCALL_CANCEL: TO_BE_DEFINED";
}

void TestServiceMessages::dialCodeDescriptions()
{
    QFETCH(int, type);
    QFETCH(QString, description);

    const ServicesDialCodes codes;
    QCOMPARE(codes.descriptions.size(), 30);
    QVERIFY(codes.codes.isEmpty());
    QCOMPARE(codes.descriptions.value(static_cast<TELVIX::ServiceDialCodeType>(type)), description);
}

void TestServiceMessages::ctiConfiguration_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<ChatConfiguration>("chat");
    QTest::addColumn<SipConfiguration>("sip");

    QTest::newRow("full 5.4") << serverDocument(
        "<CtiConfiguration><ChatID>201@pbx.example</ChatID>"
        "<ChatPort>5222</ChatPort><SipProtocol>TLS</SipProtocol>"
        "<SipRegistrarIp>10.0.0.1</SipRegistrarIp>"
        "<SipRegistrarPort>5061</SipRegistrarPort><SipProxyIp>10.0.0.2"
        "</SipProxyIp><SipProxyPort>5062</SipProxyPort></CtiConfiguration>",
        "5.4") << ChatConfiguration {"201@pbx.example", 5222}
                              << SipConfiguration {true, "TLS", "10.0.0.1", 5061, "10.0.0.2", 5062};
    // What the server leaves out stays empty here; the client applies its defaults.
    QTest::newRow("chat id only 6.1")
        << serverDocument("<CtiConfiguration><ChatID>201@pbx.example</ChatID>"
                          "<ChatPort>none</ChatPort></CtiConfiguration>")
        << ChatConfiguration {"201@pbx.example", 0} << SipConfiguration {true, "", "", 0, "", 0};
}

void TestServiceMessages::ctiConfiguration()
{
    QFETCH(QString, xml);
    QFETCH(ChatConfiguration, chat);
    QFETCH(SipConfiguration, sip);

    QtLogCapture log;
    const CtiConfigurationRespMsg msg = CtiConfigurationRespMsg::parseMessage(xml);
    QVERIFY(msg.success);
    QCOMPARE(msg.chatConfiguration, chat);
    QCOMPARE(msg.sipConfiguration, sip);
    QVERIFY(log.contains(QStringLiteral("CTI configuration msg parsed ok")));
}

void TestServiceMessages::commandResponseIsFailed_data()
{
    addParseColumns<ServerCommandResponse>();

    const QString ok = QStringLiteral("servercommand response msg parsed ok");
    const QDateTime date(QDate(2026, 11, 15), QTime(18, 10, 2));
    const auto row = [&](const char* name, const QString& isFailed, bool succeeded) {
        QTest::newRow(name) << serverDocument(
            "<CommandResponse><RequestId>req-17</RequestId><Command>reload</Command>" + isFailed
                + "<ExitCode>-2</ExitCode><Message>done &amp; dusted</Message>"
                  "<Date>2026-11-15 18:10:02</Date></CommandResponse>",
            "5.7") << true << ServerCommandResponse {"req-17", "reload", succeeded, -2, "done & dusted", date}
                            << QStringList {ok} << QStringList();
    };
    row("1 failed", "<IsFailed>1</IsFailed>", false);
    row("2 succeeded", "<IsFailed>2</IsFailed>", true);
    row("true succeeded", "<IsFailed>true</IsFailed>", true);
    row("missing succeeded", "", true);
}

void TestServiceMessages::commandResponseIsFailed()
{
    checkParseRow(&SendCommandRespMsg::commandResponse);
}

void TestServiceMessages::diagnosticMessage_data()
{
    addParseColumns<DiagnosticMessage>();

    const QString ok = QStringLiteral("diagnostic msg parsed ok");
    const QDateTime date(QDate(2026, 11, 15), QTime(18, 10, 2, 123));
    const auto row = [&](const char* name, const QString& verbosity, TELVIX::MsgLevel level) {
        QTest::newRow(name) << serverDocument(
            "<LoggerMessage><TenantUuid>t-1</TenantUuid><LinkedId>l-1</LinkedId>"
            "<UniqueId>c-1</UniqueId><MessageId>m-1</MessageId><Verbosity>"
                + verbosity
                + "</Verbosity><Date>2026-11-15T18:10:02.123</Date>"
                  "<Message>trunk &lt;down&gt;</Message><FieldList>"
                  "<Field>a&amp;b</Field><Field>second</Field></FieldList>"
                  "</LoggerMessage>",
            "5.7") << true << DiagnosticMessage {"t-1", "l-1", "c-1",          "m-1",
                                                 level, date,  "trunk <down>", {"a&b", "second"}}
                            << QStringList {ok} << QStringList();
    };
    row("WARNING", "WARNING", TELVIX::MsgLevelWarning);
    row("USER REQUEST", "USER REQUEST", TELVIX::MsgLevelUserRequest);
    row("unknown", "loud", TELVIX::MsgLevelInvalid);
}

void TestServiceMessages::diagnosticMessage()
{
    checkParseRow(&DiagnosticRespMsg::diagnosticMessage);
}

void TestServiceMessages::tenants_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QVariantMap>("expected");
    QTest::addColumn<QStringList>("logs");

    const QString ok = QStringLiteral("TenantList msg parsed ok");
    QTest::newRow("two 6.1") << serverDocument(
        "<TenantList><Tenant><TenantUuid>t-2</TenantUuid><Domain>b.example"
        "</Domain></Tenant><Tenant><TenantUuid>t-1</TenantUuid>"
        "<Domain>a.example</Domain></Tenant></TenantList>")
                             << QVariantMap {{"t-1", "a.example"}, {"t-2", "b.example"}} << QStringList {ok};
    QTest::newRow("entry without uuid dropped 5.7")
        << serverDocument("<TenantList><Tenant><Domain>x.example</Domain></Tenant><Tenant><TenantUuid>t-3"
                          "</TenantUuid><Domain></Domain></Tenant></TenantList>",
                          "5.7")
        << QVariantMap {{"t-3", ""}} << QStringList {"parsed an invalid Tenant msg", ok};
    QTest::newRow("none 5.10") << serverDocument("<TenantList></TenantList>", "5.10") << QVariantMap {}
                               << QStringList {"parsed an empty TenantList msg"};
}

void TestServiceMessages::tenants()
{
    QFETCH(QString, xml);
    QFETCH(QVariantMap, expected);
    QFETCH(QStringList, logs);

    QtLogCapture log;
    const TenantsRespMsg msg = TenantsRespMsg::parseMessage(xml);
    QVERIFY(msg.success);
    QVariantMap tenants;
    for (auto it = msg.tenants.cbegin(); it != msg.tenants.cend(); ++it)
        tenants.insert(it.key(), it.value());
    QCOMPARE(tenants, expected);
    checkLog(log, logs, {});
}

void TestServiceMessages::tenantsRequestFailed()
{
    QtLogCapture log;
    const TenantsRespMsg msg = TenantsRespMsg::parseMessage(MessageTestUtil::failedDocument(
        "no rights", "<TenantList><Tenant><TenantUuid>t-1</TenantUuid></Tenant></TenantList>", "5.4"));
    QVERIFY(!msg.success);
    QCOMPARE(msg.errorMessage, QStringLiteral("no rights"));
    QVERIFY(msg.tenants.isEmpty());
    QVERIFY(msg.uuid.isEmpty());
    QVERIFY(log.contains(QStringLiteral("Tenants request failed: no rights")));

    // The failure survives the writer, escaped on the way out.
    TenantsRespMsg failed;
    failed.success = false;
    failed.errorMessage = QStringLiteral("a<b");
    const QString xml = failed.serializeToXml(QStringLiteral("6.1"));
    QVERIFY(xml.contains(QLatin1String("<RequestFailed>a&lt;b</RequestFailed>")));
    const TenantsRespMsg back = TenantsRespMsg::parseMessage(xml);
    QVERIFY(!back.success);
    QCOMPARE(back.errorMessage, QStringLiteral("a<b"));
}

void TestServiceMessages::authToken()
{
    QtLogCapture log;
    const AuthTokenResMsg msg = AuthTokenResMsg::parseMessage(
        serverDocument("<AuthToken><Token>abc&amp;def</Token><ValidUntil>2026-11-16 18:10:02</ValidUntil>"
                       "</AuthToken>",
                       "5.7"));
    QVERIFY(msg.success);
    QCOMPARE(msg.token, QStringLiteral("abc&def"));
    QCOMPARE(msg.validUntil, QDateTime(QDate(2026, 11, 16), QTime(18, 10, 2)));
    QCOMPARE(msg.uuid, MessageTestUtil::fixtureUuid());
    QCOMPARE(msg.api, QStringLiteral("5.7"));
    QVERIFY(!log.contains(QStringLiteral("parsed an invalid AuthToken response message")));
}

void TestServiceMessages::recordMissingItsKeyIsInvalid()
{
    checkInvalid(serverDocument("<CommandResponse><Command>reload</Command><IsFailed>0</IsFailed>"
                                "<Date>2026-11-15 18:10:02</Date></CommandResponse>"),
                 &SendCommandRespMsg::commandResponse,
                 QStringLiteral("parsed an invalid servercommand response msg"));
    checkInvalid(
        serverDocument("<LoggerMessage><TenantUuid>t-1</TenantUuid><Message>x</Message></LoggerMessage>",
                       "4.5"),
        &DiagnosticRespMsg::diagnosticMessage, QStringLiteral("parsed an invalid diagnostic msg"));
    checkInvalid(
        serverDocument("<AuthToken><Token></Token><ValidUntil>2026-11-16 18:10:02</ValidUntil></AuthToken>",
                       "4.9"),
        &AuthTokenResMsg::validUntil, QStringLiteral("parsed an invalid AuthToken response message"));
}

void TestServiceMessages::rebrandingPackChanged()
{
    const RebrandingPackChangedEventMsg msg
        = RebrandingPackChangedEventMsg::parseMessage(serverDocument("<RebrandingPackChanged/>", "5.7"));
    QVERIFY(msg.success);
    QCOMPARE(msg.uuid, MessageTestUtil::fixtureUuid());
    QCOMPARE(msg.api, QStringLiteral("5.7"));
    QCOMPARE(msg.timestamp, QDateTime(QDate(2026, 11, 15), QTime(18, 10, 2, 123), Qt::UTC));

    RebrandingPackChangedEventMsg out;
    const QString xml = out.serializeToXml(QStringLiteral("6.1"));
    QVERIFY(xml.contains(QLatin1String("<Response><RebrandingPackChanged/></Response>")));
    const RebrandingPackChangedEventMsg back = RebrandingPackChangedEventMsg::parseMessage(xml);
    QVERIFY(back.success);
    QVERIFY(!back.uuid.isEmpty());
}

void TestServiceMessages::roundTrips()
{
    using MessageTestUtil::roundTrip;

    ServiceStatusRespMsg statuses;
    statuses.statusList
        = {ServiceStatus {"ufwd", "ufwd", "3331234567", 1}, ServiceStatus {"dnd", "dnd", "a<b", 0}};
    QCOMPARE(roundTrip(statuses, "5.7").statusList, statuses.statusList);

    ChannelStatusRespMsg channel;
    channel.channelStatus = ChannelStatus {"SIP/trunk-1", "0612345678", "Rossi & Figli"};
    QCOMPARE(roundTrip(channel, "4.2").channelStatus, channel.channelStatus);

    CtiConfigurationRespMsg config;
    config.chatConfiguration.chatId = QStringLiteral("201@pbx.example");
    config.chatConfiguration.chatPort = 5223;
    config.sipConfiguration.valid = true;
    config.sipConfiguration.registrarIp = QStringLiteral("10.0.0.1");
    config.sipConfiguration.proxyIp = QStringLiteral("10.0.0.2");
    const CtiConfigurationRespMsg configBack = roundTrip(config);
    QCOMPARE(configBack.chatConfiguration, config.chatConfiguration);
    QCOMPARE(configBack.sipConfiguration, config.sipConfiguration);

    for (const bool succeeded : {true, false}) {
        SendCommandRespMsg command;
        command.commandResponse.requestId = QStringLiteral("req-1");
        command.commandResponse.command = QStringLiteral("reload");
        command.commandResponse.succeeded = succeeded;
        command.commandResponse.exitCode = 3;
        command.commandResponse.message = QStringLiteral("out");
        command.commandResponse.date = QDateTime(QDate(2026, 1, 2), QTime(13, 4, 5));
        // The flag travels inverted: "IsFailed" is 1 for a failed command.
        QCOMPARE(SimpleXmlParser::getTagValue(command.serializeToXml("6.1"), "IsFailed"),
                 QString::number(succeeded ? 0 : 1));
        QCOMPARE(roundTrip(command, "5.4").commandResponse, command.commandResponse);
    }

    DiagnosticRespMsg diagnostic;
    diagnostic.diagnosticMessage.messageId = QStringLiteral("m-1");
    diagnostic.diagnosticMessage.verbosity = TELVIX::MsgLevelCritical;
    diagnostic.diagnosticMessage.date = QDateTime(QDate(2026, 1, 2), QTime(23, 4, 5, 6));
    diagnostic.diagnosticMessage.message = QStringLiteral("x");
    diagnostic.diagnosticMessage.fields = QStringList {"one", "t<w>o"};
    QCOMPARE(roundTrip(diagnostic, "5.10").diagnosticMessage, diagnostic.diagnosticMessage);

    TenantsRespMsg tenants;
    tenants.tenants = {{"t-1", "a.example"}, {"t-2", ""}};
    QCOMPARE(roundTrip(tenants).tenants, tenants.tenants);

    AuthTokenResMsg token;
    token.token = QStringLiteral("tok&en");
    token.validUntil = QDateTime(QDate(2026, 11, 16), QTime(8, 0, 0));
    const AuthTokenResMsg tokenBack = roundTrip(token, "4.9");
    QCOMPARE(tokenBack.token, token.token);
    QCOMPARE(tokenBack.validUntil, token.validUntil);
}

void TestServiceMessages::recordsAreRegisteredGadgets()
{
    for (const char* name :
         {"ChannelStatus", "ServiceStatus", "QList<ServiceStatus>", "InCallServiceStatus",
          "ServicesDialCodes", "QMap<TELVIX::ServiceDialCodeType,QString>", "ChatConfiguration",
          "SipConfiguration", "ServerCommandResponse", "DiagnosticMessage"})
        QVERIFY2(QMetaType::type(name) != QMetaType::UnknownType, name);

    QCOMPARE(propertyNames(InCallServiceStatus::staticMetaObject),
             (QStringList {"uid", "sipAccount", "channel", "type", "status"}));
    QCOMPARE(propertyNames(SipConfiguration::staticMetaObject),
             (QStringList {"valid", "sipProtocol", "registrarIp", "registrarPort", "proxyIp", "proxyPort"}));
    QCOMPARE(propertyNames(DiagnosticMessage::staticMetaObject),
             (QStringList {"tenantUuid", "linkedId", "uniqueId", "messageId", "verbosity", "date", "message",
                           "fields"}));

    const SipConfiguration sip;
    QVERIFY(!sip.valid);
    QCOMPARE(sip.sipProtocol, QStringLiteral("UDP"));
    QCOMPARE(sip.registrarPort, quint16(5060));
    QCOMPARE(sip.proxyPort, quint16(5060));

    // The description table reaches introspection as it is.
    const ServicesDialCodes codes;
    const QMetaObject& meta = ServicesDialCodes::staticMetaObject;
    const QVariant descriptions = meta.property(meta.indexOfProperty("descriptions")).readOnGadget(&codes);
    QCOMPARE(descriptions.value<DialCodes>(), codes.descriptions);
}

QTEST_APPLESS_MAIN(TestServiceMessages)
#include "tst_servicemessages.moc"
