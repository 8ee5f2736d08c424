#include "loginmessages.h"
#include "messagetestutil.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"

#include <QMetaProperty>
#include <QtTest>

using namespace MessageTestUtil;

namespace {

// An "Authenticated" answer of a current server for extension 201.
QString currentAnswer(const QString& extra = QString())
{
    return QStringLiteral(
               "<Authenticated><ExitCode>0</ExitCode><Reason></Reason><Exten>201</Exten>"
               "<Domain>acme.example</Domain><Capabilities>srnt_pro</Capabilities>"
               "<CcRole>SUPERVISOR</CcRole><Features>SMS,MSGACK,CHAT</Features>"
               "<UserUuid>6f1c2a40-0b7e-4c1e-9d55-2a8f5e7d9c10</UserUuid>"
               "<MobileNumber>+39 333 1234567</MobileNumber><ChatID>Mario.Rossi@Acme.Example</ChatID>"
               "<ChatPort>5223</ChatPort><FirstName>Mario</FirstName><LastName>Rossi &amp; Figli</LastName>"
               "<SeenIpAddress>198.51.100.7:40123</SeenIpAddress>"
               "<LoginMessage>Maintenance at 22:00 &lt;today&gt;</LoginMessage>"
               "<VantorFirmwareVersion>6.1.4</VantorFirmwareVersion>"
               "<VantorSerialNumber>SN-0042</VantorSerialNumber>"
               "<VantorPartNumber>PN-7</VantorPartNumber>%1</Authenticated>")
        .arg(extra);
}

// What an old server sends: no role, no features, a bare chat name.
QString oldAnswer(const QString& exten)
{
    return QStringLiteral("<Authenticated><ExitCode>0</ExitCode><Exten>%1</Exten>"
                          "<Capabilities>srnt_phone</Capabilities><ChatID>Luigi</ChatID>"
                          "<FirstName>Luigi</FirstName><LastName>Verdi</LastName></Authenticated>")
        .arg(exten);
}

// Names of the child elements of the first `parent` element, in document order.
QStringList childNames(const QString& xml, const QString& parent)
{
    QXmlStreamReader reader(SimpleXmlParser::getTagValue(xml, parent)
                                .prepend(QStringLiteral("<r>"))
                                .append(QStringLiteral("</r>")));
    QStringList names;
    int depth = 0;
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        if (token == QXmlStreamReader::StartElement) {
            if (depth == 1)
                names << reader.name().toString();
            ++depth;
        } else if (token == QXmlStreamReader::EndElement) {
            --depth;
        }
    }
    return names;
}

} // namespace

class TestLoginMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loginRequestElementOrder_data();
    void loginRequestElementOrder();
    void loginRequestBody();
    void logoutRequest();

    void acceptedAnswer_data();
    void acceptedAnswer();
    void currentAnswerAndDetails();
    void refusedAnswer_data();
    void refusedAnswer();
    void requestFailedWinsOverEverything();
    void answerWithoutExtenIsInvalid();
    void answerField_data();
    void answerField();

    void answerWriterCoversLessThanReader();
    void answerWriterFailures();
    void loginDetailsIsRegisteredGadget();

    void redirect_data();
    void redirect();
    void redirectWriteAndRoundTrip();
};

void TestLoginMessages::loginRequestElementOrder_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QStringList>("elements");
    QTest::addColumn<QString>("capabilities");

    const QStringList common = {"User",   "PWD",       "Domain",     "OSType",      "OSVersion",
                                "SwType", "SwVersion", "DeviceUuid", "Capabilities"};
    QTest::newRow("srnt_pro") << int(TELVIX::AppModeSrntPro) << common << "srnt_pro";
    QTest::newRow("srnt_mobile writes no options")
        << int(TELVIX::AppModeSrntMobile) << common << "srnt_mobile";
    QTest::newRow("srnt_mobile_phone")
        << int(TELVIX::AppModeSrntMobilePhone) << (common + QStringList {"Options"}) << "srnt_mobile";
    QTest::newRow("no mode") << int(TELVIX::AppModeNone) << common << "";
}

void TestLoginMessages::loginRequestElementOrder()
{
    QFETCH(int, mode);
    QFETCH(QStringList, elements);
    QFETCH(QString, capabilities);

    LoginReqMsg msg;
    msg.user = QStringLiteral("mrossi");
    msg.appMode = TELVIX::AppMode(mode);
    const QString xml = msg.serializeToXml(QStringLiteral("6.1"));

    QCOMPARE(childNames(requestBody(xml), QStringLiteral("Login")), elements);
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(xml, QStringLiteral("Capabilities")), capabilities);
    QVERIFY(!xml.contains(QLatin1String("srnt_mobile_phone")));
    if (msg.appMode == TELVIX::AppModeSrntMobilePhone)
        QVERIFY(xml.contains(QLatin1String("<Options><SipPhoneRequested/></Options></Login>")));
    QCOMPARE(int(msg.appMode), mode); // the field itself is untouched
}

void TestLoginMessages::loginRequestBody()
{
    LoginReqMsg msg;
    msg.user = QStringLiteral("a&b");
    msg.password = QStringLiteral("s<3>");
    msg.domain = QStringLiteral("acme.example");
    msg.appMode = TELVIX::AppModeAtndCti;
    msg.osType = QStringLiteral("Linux");
    msg.osVersion = QStringLiteral("6.1.0");
    msg.swType = QStringLiteral("desk");
    msg.swVersion = QStringLiteral("4.5.6");
    msg.deviceUuid = QStringLiteral("{0b9c6a52-3d1e-4f0a-8f3e-1c2d3e4f5a6b}");
    const QString xml = msg.serializeToXml(QStringLiteral("5.7"));

    // Exactly the body a server receives, in the request family, text escaped.
    QVERIFY(xml.startsWith(QLatin1String("<SRNT><API>")));
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(xml, QStringLiteral("API")), QStringLiteral("5.7"));
    QCOMPARE(requestBody(xml),
             QStringLiteral("<Login><User>a&amp;b</User><PWD>s&lt;3&gt;</PWD><Domain>acme.example</Domain>"
                            "<OSType>Linux</OSType><OSVersion>6.1.0</OSVersion><SwType>desk</SwType>"
                            "<SwVersion>4.5.6</SwVersion>"
                            "<DeviceUuid>{0b9c6a52-3d1e-4f0a-8f3e-1c2d3e4f5a6b}</DeviceUuid>"
                            "<Capabilities>atnd_cti</Capabilities></Login>"));
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(xml, QStringLiteral("PWD")), msg.password);
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(xml, QStringLiteral("User")), msg.user);
}

void TestLoginMessages::logoutRequest()
{
    QVERIFY(LogoutReqMsg()
                .serializeToXml(QStringLiteral("4.2"))
                .endsWith(QLatin1String("<Request><Logoff/></Request></SRNT>")));
}

void TestLoginMessages::acceptedAnswer_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("exten");
    QTest::addColumn<int>("appMode");
    QTest::addColumn<int>("ccRole");
    QTest::addColumn<QStringList>("features");
    QTest::addColumn<QString>("chatId");

    for (const char* api : {"4.1", "4.9"})
        QTest::addRow("old server %s", api)
            << api << oldAnswer(QStringLiteral("101")) << "101" << int(TELVIX::AppModeSrntPhone) << 0
            << QStringList {QString()} << "luigi@default";
    for (const char* api : {"5.10", "6.1"})
        QTest::addRow("current server %s", api)
            << api << currentAnswer() << "201" << int(TELVIX::AppModeSrntPro)
            << int(TELVIX::CallCenterRoleSupervisor) << QStringList {"SMS", "MSGACK", "CHAT"}
            << "mario.rossi@acme.example";
    QTest::newRow("answer to Login") << "5.7"
                                     << "<Login><ExitCode>0</ExitCode><Exten>300</Exten>"
                                        "<CcRole>operator</CcRole><Features>CHAT</Features></Login>"
                                     << "300" << 0 << int(TELVIX::CallCenterRoleOperator)
                                     << QStringList {"CHAT"} << "";
}

void TestLoginMessages::acceptedAnswer()
{
    QFETCH(QString, api);
    QFETCH(QString, body);
    QFETCH(QString, exten);
    QFETCH(int, appMode);
    QFETCH(int, ccRole);
    QFETCH(QStringList, features);
    QFETCH(QString, chatId);

    QtLogCapture log;
    const LoginRespMsg msg = LoginRespMsg::parseMessage(serverDocument(body, api));

    QVERIFY(msg.success);
    QCOMPARE(msg.exitCode, 0);
    QCOMPARE(msg.reason, QString());
    QCOMPARE(msg.exten, exten);
    QCOMPARE(int(msg.appMode), appMode);
    QCOMPARE(int(msg.ccRole), ccRole);
    QCOMPARE(msg.features, features);
    QCOMPARE(msg.chatId, chatId);
    QCOMPARE(msg.api, api);
    QCOMPARE(msg.uuid, fixtureUuid());
    QCOMPARE(msg.timestamp, QDateTime(QDate(2026, 11, 15), QTime(18, 10, 2, 123), Qt::UTC));
    QCOMPARE(log.count(QStringLiteral("login resp msg parsed ok")), 1);
    QVERIFY(!log.contains(QStringLiteral("API version")));
}

void TestLoginMessages::currentAnswerAndDetails()
{
    const LoginRespMsg msg
        = LoginRespMsg::parseMessage(serverDocument(currentAnswer(), QStringLiteral("5.10")));
    QVERIFY(msg.success);
    QCOMPARE(msg.domain, QStringLiteral("acme.example"));
    QCOMPARE(msg.chatPort, quint16(5223));

    const LoginDetails details = msg.toLoginDetails(QStringLiteral("5.10"));
    QCOMPARE(details.apiVersion, QStringLiteral("5.10"));
    QCOMPARE(details.appMode, TELVIX::AppModeSrntPro);
    QCOMPARE(details.exten, QStringLiteral("201"));
    QCOMPARE(details.userUuid, QStringLiteral("6f1c2a40-0b7e-4c1e-9d55-2a8f5e7d9c10"));
    QCOMPARE(details.mobileNumber, QStringLiteral("+39 333 1234567"));
    QCOMPARE(details.firstName, QStringLiteral("Mario"));
    QCOMPARE(details.lastName, QStringLiteral("Rossi & Figli"));
    QCOMPARE(details.seenIpAddress, QStringLiteral("198.51.100.7"));
    QCOMPARE(details.ccRole, TELVIX::CallCenterRoleSupervisor);
    QCOMPARE(details.features, (QStringList {"SMS", "MSGACK", "CHAT"}));
    QCOMPARE(details.firmwareVersion, QStringLiteral("6.1.4"));
    QCOMPARE(details.serialNumber, QStringLiteral("SN-0042"));
    QCOMPARE(details.partNumber, QStringLiteral("PN-7"));
    QCOMPARE(details.loginMessage, QStringLiteral("Maintenance at 22:00 <today>"));
}

void TestLoginMessages::refusedAnswer_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");

    QTest::newRow("LoggedOff with exit code 0")
        << "<LoggedOff><ExitCode>0</ExitCode><Reason>KickedOut</Reason></LoggedOff>" << -1 << "KickedOut";
    QTest::newRow("LoggedOff without exit code")
        << "<LoggedOff><Reason>Duplicate login</Reason></LoggedOff>" << -1 << "Duplicate login";
    QTest::newRow("LoggedOff with plain text") << "<LoggedOff>bye</LoggedOff>" << -1 << "";
    QTest::newRow("exit code and reason, exten ignored")
        << "<Authenticated><ExitCode>3</ExitCode><Reason>WrongPassword</Reason><Exten>201</Exten>"
           "<FirstName>Mario</FirstName><Features>SMS</Features></Authenticated>"
        << 3 << "WrongPassword";
    QTest::newRow("negative exit code")
        << "<Authenticated><ExitCode>-5</ExitCode></Authenticated>" << -5 << "";
    QTest::newRow("LoggedOff and exit code")
        << "<LoggedOff><ExitCode>7</ExitCode><Reason>x</Reason></LoggedOff>" << 7 << "x";
}

void TestLoginMessages::refusedAnswer()
{
    QFETCH(QString, body);
    QFETCH(int, exitCode);
    QFETCH(QString, reason);

    QtLogCapture log;
    const LoginRespMsg msg = LoginRespMsg::parseMessage(serverDocument(body, QStringLiteral("6.1")));

    // A refusal is a valid message: callers look at the exit code.
    QVERIFY(msg.success);
    QCOMPARE(msg.exitCode, exitCode);
    QCOMPARE(msg.reason, reason);
    QCOMPARE(msg.exten, QString());
    QCOMPARE(msg.firstName, QString());
    QVERIFY(msg.features.isEmpty());
    // No metadata is read on this path.
    QCOMPARE(msg.uuid, QString());
    QVERIFY(!msg.timestamp.isValid());
    QVERIFY(!log.contains(QStringLiteral("login resp msg parsed ok")));
    QVERIFY(!log.contains(QStringLiteral("parsed an invalid login resp msg")));
}

void TestLoginMessages::requestFailedWinsOverEverything()
{
    QtLogCapture log;
    const QString xml = failedDocument(QStringLiteral("Unknown user &lt;x&gt;"),
                                       currentAnswer(QStringLiteral("<LoggedOff>bye</LoggedOff>")));
    const LoginRespMsg msg = LoginRespMsg::parseMessage(xml);

    QVERIFY(!msg.success);
    QCOMPARE(msg.errorMessage, QStringLiteral("Unknown user <x>"));
    QCOMPARE(msg.exitCode, 0);
    QCOMPARE(msg.exten, QString());
    QCOMPARE(msg.uuid, QString());
    QCOMPARE(msg.api, QStringLiteral("4.2"));
    QVERIFY(log.contains(QStringLiteral("Login request failed: Unknown user <x>")));

    // An empty failure is no failure.
    const LoginRespMsg empty = LoginRespMsg::parseMessage(
        serverDocument(QStringLiteral("<RequestFailed></RequestFailed>") + currentAnswer()));
    QVERIFY(empty.success);
    QCOMPARE(empty.exten, QStringLiteral("201"));
}

void TestLoginMessages::answerWithoutExtenIsInvalid()
{
    QtLogCapture log;
    const LoginRespMsg msg = LoginRespMsg::parseMessage(serverDocument(
        QStringLiteral("<Authenticated><ExitCode>0</ExitCode><Exten></Exten><FirstName>Mario</FirstName>"
                       "</Authenticated>"),
        QStringLiteral("5.4")));

    QVERIFY(!msg.success);
    QCOMPARE(msg.exitCode, 0);
    QCOMPARE(msg.firstName, QString());
    QCOMPARE(msg.uuid, QString());
    QVERIFY(log.contains(QStringLiteral("parsed an invalid login resp msg")));
    QVERIFY(!log.contains(QStringLiteral("login resp msg parsed ok")));
}

void TestLoginMessages::answerField_data()
{
    QTest::addColumn<QString>("element");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QVariant>("expected");
    const auto row = [](const char* name, const char* element, const char* field, const QVariant& expected) {
        QTest::newRow(name) << QString::fromLatin1(element) << QString::fromLatin1(field) << expected;
    };
    // The chat id is lower-cased and gets a default domain.
    row("chat bare name", "<ChatID>Alice</ChatID>", "chatId", "alice@default");
    row("chat with domain", "<ChatID>Bob@Example</ChatID>", "chatId", "bob@example");
    row("chat empty", "<ChatID></ChatID>", "chatId", "");
    row("chat missing", "", "chatId", "");
    // The seen address is cut at the first colon.
    row("seen with port", "<SeenIpAddress>192.0.2.1:5060</SeenIpAddress>", "seenIpAddress", "192.0.2.1");
    row("seen without port", "<SeenIpAddress>192.0.2.1</SeenIpAddress>", "seenIpAddress", "192.0.2.1");
    row("seen ipv6", "<SeenIpAddress>2001:db8::1</SeenIpAddress>", "seenIpAddress", "2001");
    row("seen empty", "<SeenIpAddress></SeenIpAddress>", "seenIpAddress", "");
    // Features keep empty parts and are not trimmed.
    row("features empty part kept", "<Features>SMS,,MSGACK</Features>", "features",
        QStringList {"SMS", "", "MSGACK"});
    row("features missing", "", "features", QStringList {""});
    row("features trailing comma", "<Features>CHAT,</Features>", "features", QStringList {"CHAT", ""});
    row("features no trimming", "<Features>SMS, CHAT</Features>", "features", QStringList {"SMS", " CHAT"});
    row("capabilities unknown", "<Capabilities>superuser</Capabilities>", "appMode", -1);
    row("capabilities missing", "", "appMode", 0);
    row("capabilities mobile phone", "<Capabilities>srnt_mobile_phone</Capabilities>", "appMode", 7);
}

void TestLoginMessages::answerField()
{
    QFETCH(QString, element);
    QFETCH(QString, field);
    QFETCH(QVariant, expected);
    const QString body = QStringLiteral("<Authenticated><Exten>201</Exten>%1</Authenticated>").arg(element);
    const LoginRespMsg msg = LoginRespMsg::parseMessage(serverDocument(body));
    QVERIFY(msg.success);
    const QVariantMap fields {{"chatId", msg.chatId},
                              {"seenIpAddress", msg.seenIpAddress},
                              {"features", msg.features},
                              {"appMode", int(msg.appMode)}};
    QCOMPARE(fields.value(field), expected);
}

void TestLoginMessages::answerWriterCoversLessThanReader()
{
    LoginRespMsg original = LoginRespMsg::parseMessage(serverDocument(currentAnswer()));
    QVERIFY(original.success);

    const QString xml = original.serializeToXml(QStringLiteral("6.1"));
    QCOMPARE(childNames(SimpleXmlParser::getTagValue(xml, QStringLiteral("Response")),
                        QStringLiteral("Authenticated")),
             (QStringList {"ExitCode", "Reason", "Exten", "UserUuid", "CcRole", "Features"}));

    const LoginRespMsg back = LoginRespMsg::parseMessage(xml);
    QVERIFY(back.success);
    QCOMPARE(back.exitCode, 0);
    QCOMPARE(back.exten, original.exten);
    QCOMPARE(back.userUuid, original.userUuid);
    QCOMPARE(back.ccRole, original.ccRole);
    QCOMPARE(back.features, original.features);
    QCOMPARE(back.api, QStringLiteral("6.1"));
    // Everything else is not written, so it does not come back.
    QCOMPARE(back.appMode, TELVIX::AppModeNone);
    QCOMPARE(back.chatPort, quint16(0));
    for (const QString& lost : {back.domain, back.chatId, back.firstName, back.lastName, back.seenIpAddress,
                                back.mobileNumber, back.loginMessage, back.firmwareVersion})
        QCOMPARE(lost, QString());
}

void TestLoginMessages::answerWriterFailures()
{
    // A refusal's reason is written from the error message.
    LoginRespMsg refusal;
    refusal.exitCode = 3;
    refusal.reason = QStringLiteral("not written");
    refusal.errorMessage = QStringLiteral("Wrong <password>");
    refusal.exten = QStringLiteral("201");
    const QString xml = refusal.serializeToXml(QStringLiteral("6.1"));
    QCOMPARE(SimpleXmlParser::getTagValue(xml, QStringLiteral("Reason")),
             QStringLiteral("Wrong &lt;password&gt;"));
    QVERIFY(!xml.contains(QLatin1String("not written")));
    const LoginRespMsg back = LoginRespMsg::parseMessage(xml);
    QVERIFY(back.success);
    QCOMPARE(back.exitCode, 3);
    QCOMPARE(back.reason, QStringLiteral("Wrong <password>"));
    QCOMPARE(back.exten, QString());

    LoginRespMsg failed;
    failed.success = false;
    failed.errorMessage = QStringLiteral("Server busy");
    failed.exten = QStringLiteral("201");
    const LoginRespMsg failedBack = roundTrip(failed, QStringLiteral("5.10"));
    QVERIFY(!failedBack.success);
    QCOMPARE(failedBack.errorMessage, QStringLiteral("Server busy"));
    QCOMPARE(failedBack.exten, QString());
}

void TestLoginMessages::loginDetailsIsRegisteredGadget()
{
    QVERIFY(QMetaType::type("LoginDetails") != QMetaType::UnknownType);
    const QMetaObject& meta = LoginDetails::staticMetaObject;
    QStringList names;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i)
        names << QString::fromLatin1(meta.property(i).name());
    QCOMPARE(names.join(' '),
             QStringLiteral("apiVersion appMode exten userUuid mobileNumber firstName lastName "
                            "seenIpAddress ccRole features firmwareVersion serialNumber "
                            "partNumber loginMessage"));

    LoginDetails details;
    details.appMode = TELVIX::AppModeSrntMobile;
    details.exten = QStringLiteral("201");
    QCOMPARE(QVariant::fromValue(details).value<LoginDetails>().exten, QStringLiteral("201"));
    QCOMPARE(meta.property(meta.indexOfProperty("appMode")).readOnGadget(&details).toInt(), 6);
}

void TestLoginMessages::redirect_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("serverIp");
    QTest::addColumn<int>("serverPort");
    const QString doc = QStringLiteral(
        "<RedirectConnection><ServerIp>%1</ServerIp><ServerPort>%2</ServerPort></RedirectConnection>");
    QTest::newRow("address and port") << doc.arg("203.0.113.9", "5040") << "203.0.113.9" << 5040;
    QTest::newRow("port too large") << doc.arg("h", "70000") << "h" << 0;
    QTest::newRow("empty") << "<RedirectConnection/>"
                           << "" << 0;
}

void TestLoginMessages::redirect()
{
    QFETCH(QString, body);
    QFETCH(QString, serverIp);
    QFETCH(int, serverPort);

    QtLogCapture log;
    const RedirectConnectionRespMsg msg
        = RedirectConnectionRespMsg::parseMessage(serverDocument(body, "4.9"));
    // There is no invalid redirect: the session decides what an empty one means.
    QVERIFY(msg.success);
    QCOMPARE(msg.serverIp, serverIp);
    QCOMPARE(int(msg.serverPort), serverPort);
    QCOMPARE(msg.uuid, fixtureUuid());
    QCOMPARE(msg.api, QStringLiteral("4.9"));
    QVERIFY(log.contains(QStringLiteral("redirectconnection msg parsed ok")));
}

void TestLoginMessages::redirectWriteAndRoundTrip()
{
    RedirectConnectionRespMsg msg;
    msg.serverIp = QStringLiteral("pbx-b.example");
    msg.serverPort = 65535;
    const QString xml = msg.serializeToXml(QStringLiteral("6.1"));
    QCOMPARE(requestBody(xml),
             QStringLiteral("<RedirectConnection><ServerIp>pbx-b.example</ServerIp>"
                            "<ServerPort>65535</ServerPort></RedirectConnection>"));
    const RedirectConnectionRespMsg back = roundTrip(msg);
    QCOMPARE(back.serverIp, msg.serverIp);
    QCOMPARE(back.serverPort, msg.serverPort);
}

QTEST_APPLESS_MAIN(TestLoginMessages)
#include "tst_loginmessages.moc"
