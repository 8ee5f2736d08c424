#include "commandmessages.h"
#include "messagetestutil.h"
#include "simplexmlparser.h"

#include <QMetaProperty>
#include <QtTest>

using MessageTestUtil::requestBody;

namespace {

/// A request of type Msg, filled by `fill` and serialised at `api`.
template <typename Msg, typename Fill> QString written(Fill fill, const QString& api = QStringLiteral("6.1"))
{
    Msg msg;
    fill(msg);
    return msg.serializeToXml(api);
}

template <typename Msg> QString written(const QString& api = QStringLiteral("6.1"))
{
    return written<Msg>([](Msg&) {}, api);
}

} // namespace

class TestCommandMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestBodies_data();
    void requestBodies();
    void forkToMobileSetByVersion_data();
    void forkToMobileSetByVersion();
    void authTokenRequestIsTwoTags();
    void sendCommandWritesParamsInOrder_data();
    void sendCommandWritesParamsInOrder();
    void serverCommandRecord();
};

void TestCommandMessages::requestBodies_data()
{
    QTest::addColumn<QString>("document");
    QTest::addColumn<QString>("body");

    QTest::newRow("C2C")
        << written<MakeCallReqMsg>([](MakeCallReqMsg& m) {
               m.toNumber = QStringLiteral("0039 06 1234");
               m.fromNumber = QStringLiteral("201");
               m.numberType = QStringLiteral("external");
           })
        << "<C2C><ToNumber>0039 06 "
           "1234</ToNumber><FromNumber>201</FromNumber><NumberType>external</NumberType></C2C>";
    QTest::newRow("C2CTowardMobile") << written<MakeCallToMobileReqMsg>([](MakeCallToMobileReqMsg& m) {
        m.toNumber = QStringLiteral("1000");
        m.fromNumber = QStringLiteral("3331234567");
        m.numberType = QStringLiteral("internal");
    })
                                     << "<C2CTowardMobile><ToNumber>1000</ToNumber><FromNumber>3331234567</"
                                        "FromNumber><NumberType>internal</NumberType></C2CTowardMobile>";
    QTest::newRow("Hangup with reason") << written<HangupCallReqMsg>([](HangupCallReqMsg& m) {
        m.channel = QStringLiteral("SIP/201-0000001a");
        m.reason = QStringLiteral("busy");
    }) << "<Hangup><Channel>SIP/201-0000001a</Channel><Reason>busy</Reason></Hangup>";
    // An empty reason leaves the element out altogether.
    QTest::newRow("Hangup without reason") << written<HangupCallReqMsg>([](HangupCallReqMsg& m) {
        m.channel = QStringLiteral("SIP/201-0000001a");
    }) << "<Hangup><Channel>SIP/201-0000001a</Channel></Hangup>";
    QTest::newRow("RedirectCall") << written<RedirectCallReqMsg>([](RedirectCallReqMsg& m) {
        m.channel = QStringLiteral("SIP/201-1");
        m.toNumber = QStringLiteral("202");
    }) << "<RedirectCall><Channel>SIP/201-1</Channel><ToNumber>202</ToNumber></RedirectCall>";
    QTest::newRow("RedirectCallToMobile")
        << written<RedirectCallToMobileReqMsg>([](RedirectCallToMobileReqMsg& m) { m.channel = "SIP/201-2"; })
        << "<RedirectCallToMobile><Channel>SIP/201-2</Channel></RedirectCallToMobile>";
    QTest::newRow("BridgeChannels") << written<BridgeCallsReqMsg>([](BridgeCallsReqMsg& m) {
        m.channel1 = QStringLiteral("SIP/201-1");
        m.channel2 = QStringLiteral("SIP/202-2");
    }) << "<BridgeChannels><channel1>SIP/201-1</channel1><channel2>SIP/202-2</channel2></BridgeChannels>";
    QTest::newRow("ParkCall") << written<ParkCallReqMsg>([](ParkCallReqMsg& m) {
        m.parkedChannel = QStringLiteral("SIP/300-9");
        m.parkingChannel = QStringLiteral("SIP/201-1");
    })
                              << "<ParkCall><parkedChannel>SIP/300-9</parkedChannel><parkingChannel>SIP/"
                                 "201-1</parkingChannel></ParkCall>";
    QTest::newRow("UFWDSet") << written<UFWDSetReqMsg>([](UFWDSetReqMsg& m) { m.exten = "3331234567"; })
                             << "<UFWDSet><Exten>3331234567</Exten></UFWDSet>";
    QTest::newRow("GetChannelStatus")
        << written<ChannelStatusReqMsg>([](ChannelStatusReqMsg& m) { m.channel = "SIP/trunk-00af"; })
        << "<GetChannelStatus><Channel>SIP/trunk-00af</Channel></GetChannelStatus>";
    QTest::newRow("SubscribeTenantEvents")
        << written<SubscribeTenantEventsReqMsg>([](SubscribeTenantEventsReqMsg& m) { m.tenantUuid = "t-1"; })
        << "<SubscribeTenantEvents><TenantUuid>t-1</TenantUuid></SubscribeTenantEvents>";
    QTest::newRow("SetNotificationServiceToken escaped")
        << written<SetDeviceTokenReqMsg>([](SetDeviceTokenReqMsg& m) {
               m.deviceToken = QStringLiteral("a<b&c");
               m.serviceType = QStringLiteral("FIREBASE");
           })
        << "<SetNotificationServiceToken><Token>a&lt;b&amp;c</Token><ServiceType>FIREBASE</ServiceType></"
           "SetNotificationServiceToken>";
    QTest::newRow("empty values stay elements")
        << written<RedirectCallReqMsg>()
        << "<RedirectCall><Channel></Channel><ToNumber></ToNumber></RedirectCall>";

    QTest::newRow("UFWDDel") << written<UFWDUnsetReqMsg>() << "<UFWDDel/>";
    QTest::newRow("ForkToMobileUnset")
        << written<ForkToMobileUnsetReqMsg>(QStringLiteral("4.2")) << "<ForkToMobileUnset/>";
    QTest::newRow("GetServiceStatus") << written<GetServiceStatusReqMsg>() << "<GetServiceStatus/>";
    QTest::newRow("GetServicesCode") << written<GetServiceListReqMsg>(QStringLiteral("4.5"))
                                     << "<GetServicesCode/>";
    QTest::newRow("GetCtiConfiguration")
        << written<GetCtiConfigurationReqMsg>(QStringLiteral("5.4")) << "<GetCtiConfiguration/>";
    QTest::newRow("GetTenantList") << written<GetTenantsReqMsg>() << "<GetTenantList/>";
}

void TestCommandMessages::requestBodies()
{
    QFETCH(QString, document);
    QFETCH(QString, body);
    QVERIFY2(document.endsWith(QStringLiteral("<Request>") + body + QStringLiteral("</Request></SRNT>")),
             qPrintable(document));
}

void TestCommandMessages::forkToMobileSetByVersion_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<QString>("body");

    const QString old = QStringLiteral("<ForkToMobileSet>_</ForkToMobileSet>");
    const QString current = QStringLiteral("<ForkToMobileSet/>");
    QTest::newRow("5.1") << "5.1" << old;
    QTest::newRow("5.2") << "5.2" << current;
    QTest::newRow("5.10") << "5.10" << current;
    // Versions compare as text: "10.0" sorts before "5.1".
    QTest::newRow("10.0 sorts low") << "10.0" << old;
}

void TestCommandMessages::forkToMobileSetByVersion()
{
    QFETCH(QString, api);
    QFETCH(QString, body);

    const QString document = written<ForkToMobileSetReqMsg>(api);
    QCOMPARE(requestBody(document), body);
    QCOMPARE(SimpleXmlParser::getTagValue(document, QStringLiteral("API")), api);
}

void TestCommandMessages::authTokenRequestIsTwoTags()
{
    for (const QString& api : {QStringLiteral("4.2"), QStringLiteral("6.1")}) {
        const QString document = written<AuthTokenReqMsg>(api);
        QCOMPARE(requestBody(document), QStringLiteral("<GetAuthToken></GetAuthToken>"));
        // The long form is what lets the server's lookup find the element.
        QCOMPARE(
            SimpleXmlParser::getTagValue(document, QStringLiteral("GetAuthToken"), 0, QStringLiteral("none")),
            QString(""));
    }
}

void TestCommandMessages::sendCommandWritesParamsInOrder_data()
{
    QTest::addColumn<QStringList>("params");
    QTest::addColumn<QString>("body");

    QTest::newRow("three") << QStringList {"-v", "queue 7", "a&b"}
                           << "<SendCommand><Command>reload</Command><ParamList><Param>-v</Param>"
                              "<Param>queue 7</Param><Param>a&amp;b</Param></ParamList></SendCommand>";
    QTest::newRow("none") << QStringList {}
                          << "<SendCommand><Command>reload</Command><ParamList/></SendCommand>";
}

void TestCommandMessages::sendCommandWritesParamsInOrder()
{
    QFETCH(QStringList, params);
    QFETCH(QString, body);

    ServerCommand command;
    command.requestId = QStringLiteral("req-17");
    command.command = QStringLiteral("reload");
    command.params = params;
    SendCommandReqMsg msg(command);
    QCOMPARE(msg.requestId, command.requestId);
    const QString document = msg.serializeToXml(QStringLiteral("5.7"));

    QCOMPARE(requestBody(document), body);
    QVERIFY(!document.contains(QLatin1String("req-17")));
    const QString inner = SimpleXmlParser::getTagValue(document, QStringLiteral("SendCommand"));
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(inner, QStringLiteral("Command")), QStringLiteral("reload"));
    const QString list = SimpleXmlParser::getTagValue(inner, QStringLiteral("ParamList"));
    QCOMPARE(SimpleXmlParser::getDecodedTagsValues(list, QStringLiteral("Param")), params);
}

void TestCommandMessages::serverCommandRecord()
{
    QVERIFY(QMetaType::type("ServerCommand") != QMetaType::UnknownType);
    const QMetaObject& meta = ServerCommand::staticMetaObject;
    QStringList names;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i)
        names << QString::fromLatin1(meta.property(i).name());
    QCOMPARE(names, (QStringList {"requestId", "command", "params"}));

    ServerCommand command;
    command.command = QStringLiteral("status");
    command.params = QStringList {"x"};
    const QVariant copy = QVariant::fromValue(command);
    QCOMPARE(copy.value<ServerCommand>(), command);
    QCOMPARE(meta.property(meta.indexOfProperty("params")).readOnGadget(&command).toStringList(),
             command.params);
}

QTEST_APPLESS_MAIN(TestCommandMessages)
#include "tst_commandmessages.moc"
