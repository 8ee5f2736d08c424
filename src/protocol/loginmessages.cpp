#include "loginmessages.h"

#include "messagereader.h"
#include "sarnetxml.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;

namespace {

void registerLoginTypes()
{
    qRegisterMetaType<LoginDetails>("LoginDetails");
}

// Chat servers know users as "name@domain" in lower case; older servers send
// the bare name.
QString normalisedChatId(QString chatId)
{
    if (!chatId.isEmpty() && !chatId.contains(QLatin1Char('@')))
        chatId += QLatin1String("@default");
    return chatId.toLower();
}

} // namespace

Q_CONSTRUCTOR_FUNCTION(registerLoginTypes)

QString LoginReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter w;
    w.start(S_COMMAND_LOGIN)
        .text(S_XMLTAG_USER, user)
        .text(S_XMLTAG_PASSWORD, password)
        .text(S_XMLTAG_DOMAIN, domain)
        .text(S_XMLTAG_OS_TYPE, osType)
        .text(S_XMLTAG_OS_VERSION, osVersion)
        .text(S_XMLTAG_SW_TYPE, swType)
        .text(S_XMLTAG_SW_VERSION, swVersion)
        .text(S_XMLTAG_DEVICE_UUID, deviceUuid);
    if (appMode == TELVIX::AppModeSrntMobilePhone) {
        // Servers know only the mobile mode; the SIP phone is an option of it.
        w.text(S_XMLTAG_APPMODE, TELVIX::appModeToString(TELVIX::AppModeSrntMobile))
            .start(S_XMLTAG_OPTIONS)
            .empty(S_XMLTAG_OPT_SIPPHONE)
            .end();
    } else {
        w.text(S_XMLTAG_APPMODE, TELVIX::appModeToString(appMode));
    }
    return w.end().result();
}

QString LogoutReqMsg::generateXmlMessageBody() const
{
    return EMPTYTAG(S_COMMAND_LOGOFF);
}

LoginRespMsg LoginRespMsg::parseMessage(const QString& xml)
{
    using namespace MessageReader;

    LoginRespMsg msg;
    if (requestFailed(xml, QStringLiteral("Login request failed: "), msg))
        return msg;

    msg.exitCode = toInt(xml, S_XMLTAG_EXITCODE);
    msg.reason = text(xml, S_XMLTAG_REASON);
    msg.exten = text(xml, S_XMLTAG_EXTEN);
    msg.domain = text(xml, S_XMLTAG_DOMAIN);
    msg.appMode = TELVIX::appModeFromString(text(xml, S_XMLTAG_APPMODE));
    msg.ccRole = TELVIX::callCenterRoleFromString(text(xml, S_XMLTAG_CCROLE));
    msg.features = text(xml, S_XMLTAG_FEATURES).split(QLatin1Char(','), Qt::KeepEmptyParts);
    msg.userUuid = text(xml, S_XMLTAG_USER_UUID);
    msg.mobileNumber = text(xml, S_XMLTAG_MOBILE_NUMBER);
    msg.chatId = normalisedChatId(text(xml, S_XMLTAG_CHAT_ID));
    msg.chatPort = toUShort(xml, S_XMLTAG_CHAT_PORT);
    msg.firstName = text(xml, S_XMLTAG_FIRST_NAME);
    msg.lastName = text(xml, S_XMLTAG_LAST_NAME);
    // The server may report the address with the port it saw.
    msg.seenIpAddress = text(xml, S_XMLTAG_SEEN_IP_ADDRESS).section(QLatin1Char(':'), 0, 0);
    msg.loginMessage = text(xml, S_XMLTAG_LOGIN_MESSAGE);
    msg.firmwareVersion = text(xml, S_XMLTAG_FIRMWARE);
    msg.serialNumber = text(xml, S_XMLTAG_SERIAL_NUMBER);
    msg.partNumber = text(xml, S_XMLTAG_PART_NUMBER);
    const QString api = text(xml, S_XMLTAG_API);

    if (!text(xml, S_EVENT_LOGGEDOFF).isEmpty() || msg.exitCode != 0) {
        // Refused: a valid message that carries only the code and the reason.
        LoginRespMsg refused;
        refused.exitCode = msg.exitCode != 0 ? msg.exitCode : -1;
        refused.reason = msg.reason;
        return refused;
    }

    if (msg.exten.isEmpty())
        return invalid<LoginRespMsg>(QStringLiteral("parsed an invalid login resp msg"));

    msg.reason.clear();
    msg.api = api;
    return accepted(msg, xml, QStringLiteral("login resp msg parsed ok"));
}

QString LoginRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter w;
    return w.start(S_EVENT_AUTHENTICATED)
        .text(S_XMLTAG_EXITCODE, exitCode)
        .text(S_XMLTAG_REASON, errorMessage)
        .text(S_XMLTAG_EXTEN, exten)
        .text(S_XMLTAG_USER_UUID, userUuid)
        .text(S_XMLTAG_CCROLE, TELVIX::callCenterRoleToString(ccRole))
        .text(S_XMLTAG_FEATURES, features.join(QLatin1Char(',')))
        .end()
        .result();
}

LoginDetails LoginRespMsg::toLoginDetails(const QString& apiVersion) const
{
    LoginDetails details;
    details.apiVersion = apiVersion;
    details.appMode = appMode;
    details.exten = exten;
    details.userUuid = userUuid;
    details.mobileNumber = mobileNumber;
    details.firstName = firstName;
    details.lastName = lastName;
    details.seenIpAddress = seenIpAddress;
    details.ccRole = ccRole;
    details.features = features;
    details.firmwareVersion = firmwareVersion;
    details.serialNumber = serialNumber;
    details.partNumber = partNumber;
    details.loginMessage = loginMessage;
    return details;
}

RedirectConnectionRespMsg RedirectConnectionRespMsg::parseMessage(const QString& xml)
{
    RedirectConnectionRespMsg msg;
    msg.serverIp = MessageReader::text(xml, S_XMLTAG_REDIRECTCONNECTION_SERVERIP);
    msg.serverPort = MessageReader::toUShort(xml, S_XMLTAG_REDIRECTCONNECTION_SERVERPORT);
    return MessageReader::accepted(msg, xml, QStringLiteral("redirectconnection msg parsed ok"));
}

QString RedirectConnectionRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter w;
    return w.start(S_EVENT_REDIRECTCONNECTION)
        .text(S_XMLTAG_REDIRECTCONNECTION_SERVERIP, serverIp)
        .text(S_XMLTAG_REDIRECTCONNECTION_SERVERPORT, int(serverPort))
        .end()
        .result();
}
