#include "commandmessages.h"

#include "messagereader.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;

static void registerCommandTypes()
{
    qRegisterMetaType<ServerCommand>("ServerCommand");
}
Q_CONSTRUCTOR_FUNCTION(registerCommandTypes)

bool ServerCommand::operator==(const ServerCommand& other) const
{
    return requestId == other.requestId && command == other.command && params == other.params;
}

QString TextFieldsReqMsg::generateXmlMessageBody() const
{
    const Body layout = body();
    XmlBodyWriter writer;
    writer.start(layout.command);
    for (const auto& field : layout.fields)
        writer.text(field.first, field.second);
    return writer.end().result();
}

TextFieldsReqMsg::Body MakeCallReqMsg::body() const
{
    return {S_COMMAND_MAKE_CALL,
            {{S_XMLTAG_C2C_TO, toNumber}, {S_XMLTAG_C2C_FROM, fromNumber}, {S_XMLTAG_C2C_TYPE, numberType}}};
}

TextFieldsReqMsg::Body MakeCallToMobileReqMsg::body() const
{
    Body layout = MakeCallReqMsg::body();
    layout.command = S_COMMAND_MAKE_CALL_TOWARD_MOBILE;
    return layout;
}

TextFieldsReqMsg::Body HangupCallReqMsg::body() const
{
    Body layout {S_COMMAND_HANGUP_CALL, {{S_XMLTAG_CALL_CHANNEL, channel}}};
    if (!reason.isEmpty())
        layout.fields.append({S_XMLTAG_REASON, reason});
    return layout;
}

TextFieldsReqMsg::Body RedirectCallReqMsg::body() const
{
    return {S_COMMAND_REDIRECT_CALL, {{S_XMLTAG_CALL_CHANNEL, channel}, {S_XMLTAG_CALL_TO_NUMBER, toNumber}}};
}

TextFieldsReqMsg::Body RedirectCallToMobileReqMsg::body() const
{
    return {S_COMMAND_REDIRECT_CALL_TO_MOBILE, {{S_XMLTAG_CALL_CHANNEL, channel}}};
}

TextFieldsReqMsg::Body BridgeCallsReqMsg::body() const
{
    return {S_COMMAND_BRIDGE_CHANNELS,
            {{S_XMLTAG_CALL_CHANNEL1, channel1}, {S_XMLTAG_CALL_CHANNEL2, channel2}}};
}

TextFieldsReqMsg::Body ParkCallReqMsg::body() const
{
    return {S_COMMAND_PARK_CALL,
            {{S_XMLTAG_CALL_PARKED_CHANNEL, parkedChannel}, {S_XMLTAG_CALL_PARKING_CHANNEL, parkingChannel}}};
}

TextFieldsReqMsg::Body UFWDSetReqMsg::body() const
{
    return {S_COMMAND_SET_UFWD, {{S_XMLTAG_EXTEN, exten}}};
}

TextFieldsReqMsg::Body ChannelStatusReqMsg::body() const
{
    return {S_COMMAND_GET_CHANNEL_STATUS, {{S_XMLTAG_CHANSTATUS_CHANNEL, channel}}};
}

TextFieldsReqMsg::Body SubscribeTenantEventsReqMsg::body() const
{
    return {S_COMMAND_SUBSCRIBE_TENANT_EVENTS, {{S_XMLTAG_TENANT_ID, tenantUuid}}};
}

TextFieldsReqMsg::Body SetDeviceTokenReqMsg::body() const
{
    return {S_COMMAND_SET_DEVICE_TOKEN,
            {{S_XMLTAG_DEVICE_TOKEN, deviceToken}, {S_XMLTAG_NOTIFICATION_SERVICE, serviceType}}};
}

QString ForkToMobileSetReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter writer;
    if (ApiText::atMost(api, "5.1"))
        writer.text(S_COMMAND_SET_FORKTOMOBILE, QStringLiteral("_"));
    else
        writer.empty(S_COMMAND_SET_FORKTOMOBILE);
    return writer.result();
}

QString AuthTokenReqMsg::generateXmlMessageBody() const
{
    return OPENTAG(S_COMMAND_GET_AUTH_TOKEN) + CLOSETAG(S_COMMAND_GET_AUTH_TOKEN);
}

SendCommandReqMsg::SendCommandReqMsg(const ServerCommand& serverCommand)
    : requestId(serverCommand.requestId)
    , command(serverCommand.command)
    , params(serverCommand.params)
{
}

QString SendCommandReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter writer;
    writer.start(S_COMMAND_SEND_CMD).text(S_XMLTAG_SRVCMD_COMMAND, command).start(S_XMLTAG_SRVCMD_PARAMS);
    for (const QString& param : params)
        writer.text(S_XMLTAG_SRVCMD_PARAM, param);
    return writer.end().end().result();
}
