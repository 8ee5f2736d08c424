#include "servicemessages.h"

#include "messagereader.h"
#include "simplexmlparser.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;
using MessageReader::text;
using MessageReader::toInt;
using MessageReader::toUShort;

static void registerServiceTypes()
{
    qRegisterMetaType<ChannelStatus>("ChannelStatus");
    qRegisterMetaType<ServiceStatus>("ServiceStatus");
    qRegisterMetaType<QList<ServiceStatus>>("QList<ServiceStatus>");
    qRegisterMetaType<InCallServiceStatus>("InCallServiceStatus");
    qRegisterMetaType<ServicesDialCodes>("ServicesDialCodes");
    qRegisterMetaType<QMap<TELVIX::ServiceDialCodeType, QString>>("QMap<TELVIX::ServiceDialCodeType,QString>");
    qRegisterMetaType<ChatConfiguration>("ChatConfiguration");
    qRegisterMetaType<SipConfiguration>("SipConfiguration");
    qRegisterMetaType<ServerCommandResponse>("ServerCommandResponse");
    qRegisterMetaType<DiagnosticMessage>("DiagnosticMessage");
    qRegisterMetaType<QMap<QString, QString>>("QMap<QString,QString>");
}
Q_CONSTRUCTOR_FUNCTION(registerServiceTypes)

namespace {

const QString CommandDateFormat = QStringLiteral("yyyy-MM-dd HH:mm:ss");
const QString TokenDateFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss");

/// Writes `root` holding one `entry` element per item, whose children
/// `writeFields(writer, item)` writes.
template <typename Items, typename WriteFields>
QString listBody(const QString& root, const QString& entry, const Items& items, WriteFields writeFields)
{
    XmlBodyWriter writer;
    writer.start(root);
    for (const auto& item : items) {
        writer.start(entry);
        writeFields(writer, item);
        writer.end();
    }
    return writer.end().result();
}

QString withoutEnclosingQuotes(QString text)
{
    if (text.startsWith(QLatin1Char('"')))
        text.remove(0, 1);
    if (text.endsWith(QLatin1Char('"')))
        text.chop(1);
    return text;
}

/// A dial code as the server names it.
struct WireCode
{
    const QString& element;
    TELVIX::ServiceDialCodeType type;
};

/// The numbering-plan codes in reading order. "disa" is never read.
const WireCode NumberingPlanCodes[] = {
    { S_XMLTAG_SERVICE_ECHO, TELVIX::ServiceEcho },
    { S_XMLTAG_SERVICE_VOICEMAIL, TELVIX::ServiceVoicemail },
    { S_XMLTAG_SERVICE_PICKUP, TELVIX::ServicePickUp },
    { S_XMLTAG_SERVICE_DIRECTPICKUP, TELVIX::ServiceDirectPickUp },
    { S_XMLTAG_SERVICE_CONFERENCE, TELVIX::ServiceConference },
    { S_XMLTAG_SERVICE_SPEEDDIAL, TELVIX::ServiceSpeedDial },
    { S_XMLTAG_SERVICE_SPEEDDIAL_PERS, TELVIX::ServiceSpeedDialPers },
    { S_XMLTAG_SERVICE_PARKCODE, TELVIX::ServiceParkCode },
    { S_XMLTAG_SERVICE_PARK_FIRST_SLOT, TELVIX::ServiceParkFirstSlot },
    { S_XMLTAG_SERVICE_PARK_LAST_SLOT, TELVIX::ServiceParkLastSlot },
    { S_XMLTAG_SERVICE_ELECT_LOCK, TELVIX::ServiceElectLock },
    { S_XMLTAG_SERVICE_ELECT_UNLOCK, TELVIX::ServiceElectUnlock },
    { S_XMLTAG_SERVICE_UFWD_SET, TELVIX::ServiceUfwdSet },
    { S_XMLTAG_SERVICE_UFWD_UNSET, TELVIX::ServiceUfwdUnset },
    { S_XMLTAG_SERVICE_SUPER_DIRECTPICKUP, TELVIX::ServiceSuperDirectPickUp },
    { S_XMLTAG_SERVICE_SUPER_GROUPPICKUP, TELVIX::ServiceSuperGroupPickUp },
    { S_XMLTAG_SERVICE_FORKMOBILE_ENABLE, TELVIX::ServiceForkMobileSet },
    { S_XMLTAG_SERVICE_FORKMOBILE_DISABLE, TELVIX::ServiceForkMobileUnset },
    { S_XMLTAG_SERVICE_SPY, TELVIX::ServiceSpy },
    { S_XMLTAG_SERVICE_OUTBOUND_PREFIX, TELVIX::ServiceOutboundPrefix },
};

/// The in-call codes with the codes a server that sends none uses.
struct InCallCode
{
    const QString& element;
    TELVIX::ServiceDialCodeType type;
    const char* preset;
};

const InCallCode InCallCodes[] = {
    { S_XMLTAG_INCALL_ATXFER, TELVIX::InCallAtXfer, "*4" },
    { S_XMLTAG_INCALL_ATXFER_CANCEL, TELVIX::InCallAtXferCancel, "*0" },
    { S_XMLTAG_INCALL_ATXFER_SHUTTLE, TELVIX::InCallAtXferShuttle, "*9" },
    { S_XMLTAG_INCALL_ATXFER_3CONF, TELVIX::InCallAtXfer3Conf, "*3" },
    { S_XMLTAG_INCALL_BLINDXFER, TELVIX::InCallBlindXfer, "#4" },
    { S_XMLTAG_INCALL_FASTTRANSFER, TELVIX::InCallFastTransfer, "**" },
    { S_XMLTAG_INCALL_PARKING, TELVIX::InCallParking, "#8" },
    { S_XMLTAG_INCALL_RECORDING, TELVIX::InCallRecording, "*1" },
    { S_XMLTAG_INCALL_CANCEL, TELVIX::InCallCancel, "*0" },
};

/// Descriptions by type number, from 1; the spelling is the product's.
const char* const DialCodeDescriptions[] = {
    "Echo service",
    "VoiceMail",
    "Conference Call",
    "SRV_DISA: TO_BE_DEFINED",
    "SRV_PICKUP: TO_BE_DEFINED",
    "Park call in a random slot",
    "Park call in first slot",
    "Park call in last slot",
    "SRV_DIRECTPICKUP: TO_BE_DEFINED",
    "Enable Unconditional Forward",
    "Disable Unconditional Forward",
    "SRV_SPEEDDIAL: TO_BE_DEFINED",
    "SRV_SPEEDDIAL_PERSONAL",
    "SRV_SUPERVISED_DIRECTPICKUP",
    "SRV_SUPERVISED_GROUPPICKUP",
    "SRV_SPY: TO_BE_DEFINED",
    "Enable Fork-to-Mobile",
    "Disable Fork-to-mobile",
    "Enable Electronic Lock",
    "Disable Electronic Lock",
    "Prefix to call an external number (Outbound Prefix)",
    "Start an attended trasfer",
    "Cancel an attended transfer",
    "INCALL_ATXFER_SHUTTLE: TO_BE_DEFINED",
    "INCALL_ATXFER_3CONF: TO_BE_DEFINED",
    "Start a blind transfer",
    "INCALL_FAST_TRANSFER: TO_BE_DEFINED",
    "INCALL_RECORDING: TO_BE_DEFINED",
    "INCALL_PARKING: TO_BE_DEFINED",
    "INCALL_CANCEL: TO_BE_DEFINED",
};

} // namespace

// ---- records ------------------------------------------------------------

bool ChannelStatus::operator==(const ChannelStatus& other) const
{
    return channel == other.channel && number == other.number && name == other.name;
}

bool ServiceStatus::operator==(const ServiceStatus& other) const
{
    return id == other.id && type == other.type && value == other.value && status == other.status;
}

bool InCallServiceStatus::operator==(const InCallServiceStatus& other) const
{
    return uid == other.uid && sipAccount == other.sipAccount && channel == other.channel && type == other.type
        && status == other.status;
}

ServicesDialCodes::ServicesDialCodes()
{
    int number = 0;
    for (const char* description : DialCodeDescriptions)
        descriptions.insert(static_cast<TELVIX::ServiceDialCodeType>(++number), QString::fromLatin1(description));
}

bool ChatConfiguration::operator==(const ChatConfiguration& other) const
{
    return chatId == other.chatId && chatPort == other.chatPort;
}

bool SipConfiguration::operator==(const SipConfiguration& other) const
{
    return valid == other.valid && sipProtocol == other.sipProtocol && registrarIp == other.registrarIp
        && registrarPort == other.registrarPort && proxyIp == other.proxyIp && proxyPort == other.proxyPort;
}

bool ServerCommandResponse::operator==(const ServerCommandResponse& other) const
{
    return requestId == other.requestId && command == other.command && succeeded == other.succeeded
        && exitCode == other.exitCode && message == other.message && date == other.date;
}

bool DiagnosticMessage::operator==(const DiagnosticMessage& other) const
{
    return tenantUuid == other.tenantUuid && linkedId == other.linkedId && uniqueId == other.uniqueId
        && messageId == other.messageId && verbosity == other.verbosity && date == other.date
        && message == other.message && fields == other.fields;
}

// ---- ServiceStatusRespMsg -------------------------------------------------

ServiceStatusRespMsg ServiceStatusRespMsg::parseMessage(const QString& xml)
{
    const MessageReader::ListWords words { QString(), S_EVENT_SERVICE_STATUS,
                                           QStringLiteral("parsed an invalid Service Status resp msg"),
                                           QStringLiteral("parsed an empty ServiceStatusList msg"),
                                           QStringLiteral("Service Status resp msg parsed ok") };
    return MessageReader::readList<ServiceStatusRespMsg>(
        xml, words, [](ServiceStatusRespMsg& msg, const QString& entry) {
            ServiceStatus status;
            status.id = text(entry, S_XMLTAG_STATUS_ID);
            status.type = text(entry, S_XMLTAG_STATUS_TYPE);
            status.value = text(entry, S_XMLTAG_STATUS_VALUE);
            status.status = toInt(entry, S_XMLTAG_STATUS);
            if (status.id.isEmpty() || status.type.isEmpty())
                return false;
            msg.statusList.append(status);
            return true;
        });
}

QString ServiceStatusRespMsg::generateXmlMessageBody() const
{
    return listBody(S_EVENT_SERVICE_STATUS_LIST, S_EVENT_SERVICE_STATUS, statusList,
                    [](XmlBodyWriter& writer, const ServiceStatus& status) {
                        writer.text(S_XMLTAG_STATUS_ID, status.id)
                            .text(S_XMLTAG_STATUS_TYPE, status.type)
                            .text(S_XMLTAG_STATUS_VALUE, status.value)
                            .text(S_XMLTAG_STATUS, status.status);
                    });
}

// ---- InCallServiceStatusEventMsg ------------------------------------------

InCallServiceStatusEventMsg InCallServiceStatusEventMsg::parseMessage(const QString& xml)
{
    InCallServiceStatus status;
    status.uid = text(xml, S_XMLTAG_CALL_UID);
    status.sipAccount = text(xml, S_XMLTAG_CALL_SIP_ACCOUNT);
    status.channel = text(xml, S_XMLTAG_CALL_CHANNEL);
    status.type = text(xml, S_XMLTAG_STATUS_TYPE);
    bool readable = false;
    const int code = text(xml, S_XMLTAG_STATUS).toInt(&readable, 10);
    if (readable)
        status.status = code;
    if (status.channel.isEmpty()) {
        MessageReader::logDebug(QStringLiteral("Parsing LocalChannel field (old SARNET implementation...)"));
        status.channel = text(xml, S_XMLTAG_CALL_LOCAL_CHANNEL);
    }
    const bool valid = !status.uid.isEmpty() && !status.channel.isEmpty();
    return MessageReader::holding(xml, &InCallServiceStatusEventMsg::inCallServiceStatus, status, valid,
                                  QStringLiteral("InCallServiceStatus msg parsed ok"),
                                  QStringLiteral("parsed an invalid InCallServiceStatus resp msg"));
}

QString InCallServiceStatusEventMsg::generateXmlMessageBody() const
{
    const InCallServiceStatus& status = inCallServiceStatus;
    const QString& channelTag = ApiText::atLeast(api, "5.7") ? S_XMLTAG_CALL_CHANNEL : S_XMLTAG_CALL_LOCAL_CHANNEL;
    XmlBodyWriter writer;
    writer.start(S_EVENT_INCALL_SERVICE_STATUS)
        .text(S_XMLTAG_CALL_UID, status.uid)
        .text(S_XMLTAG_CALL_SIP_ACCOUNT, status.sipAccount)
        .text(channelTag, status.channel)
        .text(S_XMLTAG_STATUS_TYPE, status.type)
        .text(S_XMLTAG_STATUS, status.status);
    return writer.end().result();
}

// ---- ChannelStatusRespMsg -------------------------------------------------

ChannelStatusRespMsg ChannelStatusRespMsg::parseMessage(const QString& xml)
{
    ChannelStatusRespMsg msg;
    ChannelStatus& status = msg.channelStatus;
    status.channel = text(xml, S_XMLTAG_CHANSTATUS_CHANNEL);
    status.number = text(xml, S_XMLTAG_CHANSTATUS_NUMBER);
    status.name = text(xml, S_XMLTAG_CHANSTATUS_NAME);
    if (status.number.isEmpty()) {
        // Old servers send the quoted name and the number as lines of one text.
        MessageReader::logDebug(QStringLiteral("Parsing Channel CallerID field (old SARNET implementation...)"));
        const QString callerId = text(xml, S_XMLTAG_CHANSTATUS_CALLERID);
        const QString lineBreak = QStringLiteral("\n");
        status.name = withoutEnclosingQuotes(callerId.section(lineBreak, 0, 1).trimmed());
        status.number = callerId.section(lineBreak, -1).trimmed().toLower();
    }
    // The log word is borrowed from the mailbox status answer and kept as it stands.
    return MessageReader::accepted(msg, xml, QStringLiteral("Mailbox Status resp msg parsed ok"));
}

QString ChannelStatusRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter writer;
    writer.start(S_XMLTAG_CHANSTATUS_ENTRY)
        .text(S_XMLTAG_CHANSTATUS_CHANNEL, channelStatus.channel)
        .text(S_XMLTAG_CHANSTATUS_NUMBER, channelStatus.number)
        .text(S_XMLTAG_CHANSTATUS_NAME, channelStatus.name);
    return writer.end().result();
}

// ---- ServiceListResMsg ----------------------------------------------------

ServiceListResMsg ServiceListResMsg::parseMessage(const QString& xml)
{
    ServiceListResMsg msg;
    QString plan = MessageReader::raw(xml, S_XMLTAG_SERVICE_NUMPLAN_SERVICES);
    if (plan.isEmpty())
        plan = xml; // older servers have no section
    for (const WireCode& code : NumberingPlanCodes)
        msg.codes.insert(code.type, text(plan, code.element));
    if (msg.codes.value(TELVIX::ServicePickUp).isEmpty())
        msg.codes.insert(TELVIX::ServicePickUp, text(plan, S_XMLTAG_SERVICE_PICKUP_CAPITAL));

    const QString inCall = MessageReader::raw(xml, S_XMLTAG_SERVICE_INCALL_SERVICES);
    for (const InCallCode& code : InCallCodes)
        msg.codes.insert(code.type, inCall.isEmpty() ? QString::fromLatin1(code.preset) : text(inCall, code.element));
    return MessageReader::accepted(msg, xml, QStringLiteral("Service List resp msg parsed ok"));
}

QString ServiceListResMsg::generateXmlMessageBody() const
{
    XmlBodyWriter writer;
    writer.start(S_XMLTAG_SERVICE_LIST);
    const auto section = [&](const QString& name, bool (*belongs)(TELVIX::ServiceDialCodeType)) {
        writer.start(name);
        for (auto it = codes.cbegin(); it != codes.cend(); ++it) {
            if (belongs(it.key()))
                writer.text(TELVIX::serviceDialCodeTypeToString(it.key()), it.value());
        }
        writer.end();
    };
    section(S_XMLTAG_SERVICE_NUMPLAN_SERVICES, TELVIX::isNumberingPlanServiceDialCode);
    section(S_XMLTAG_SERVICE_INCALL_SERVICES, TELVIX::isInCallServiceDialCode);
    return writer.end().result();
}

// ---- CtiConfigurationRespMsg ----------------------------------------------

CtiConfigurationRespMsg CtiConfigurationRespMsg::parseMessage(const QString& xml)
{
    CtiConfigurationRespMsg msg;
    msg.chatConfiguration.chatId = text(xml, S_XMLTAG_CTICONFIG_CHATID);
    msg.chatConfiguration.chatPort = toUShort(xml, S_XMLTAG_CTICONFIG_CHATPORT);
    SipConfiguration& sip = msg.sipConfiguration;
    sip.valid = true;
    sip.sipProtocol = text(xml, S_XMLTAG_CTICONFIG_SIPPROTO);
    sip.registrarIp = text(xml, S_XMLTAG_CTICONFIG_SIPREGISTRARIP);
    sip.registrarPort = toUShort(xml, S_XMLTAG_CTICONFIG_SIPREGISTRARPORT);
    sip.proxyIp = text(xml, S_XMLTAG_CTICONFIG_SIPPROXYIP);
    sip.proxyPort = toUShort(xml, S_XMLTAG_CTICONFIG_SIPPROXYPORT);
    return MessageReader::accepted(msg, xml, QStringLiteral("CTI configuration msg parsed ok"));
}

QString CtiConfigurationRespMsg::generateXmlMessageBody() const
{
    const SipConfiguration& sip = sipConfiguration;
    XmlBodyWriter writer;
    writer.start(S_XMLTAG_CTICONFIG)
        .text(S_XMLTAG_CTICONFIG_CHATID, chatConfiguration.chatId)
        .text(S_XMLTAG_CTICONFIG_CHATPORT, chatConfiguration.chatPort)
        .text(S_XMLTAG_CTICONFIG_SIPPROTO, sip.sipProtocol)
        .text(S_XMLTAG_CTICONFIG_SIPREGISTRARIP, sip.registrarIp)
        .text(S_XMLTAG_CTICONFIG_SIPREGISTRARPORT, sip.registrarPort)
        .text(S_XMLTAG_CTICONFIG_SIPPROXYIP, sip.proxyIp)
        .text(S_XMLTAG_CTICONFIG_SIPPROXYPORT, sip.proxyPort);
    return writer.end().result();
}

// ---- SendCommandRespMsg ---------------------------------------------------

SendCommandRespMsg SendCommandRespMsg::parseMessage(const QString& xml)
{
    ServerCommandResponse response;
    response.requestId = text(xml, S_XMLTAG_SRVCMDRSP_ID);
    response.command = text(xml, S_XMLTAG_SRVCMDRSP_CMD);
    response.succeeded = toInt(xml, S_XMLTAG_SRVCMDRSP_FAILED) != 1;
    response.exitCode = toInt(xml, S_XMLTAG_SRVCMDRSP_EXITCODE);
    response.message = text(xml, S_XMLTAG_SRVCMDRSP_MSG);
    response.date = QDateTime::fromString(text(xml, S_XMLTAG_SRVCMDRSP_DATE), CommandDateFormat);
    const bool valid = !response.requestId.isEmpty();
    return MessageReader::holding(xml, &SendCommandRespMsg::commandResponse, response, valid,
                                  QStringLiteral("servercommand response msg parsed ok"),
                                  QStringLiteral("parsed an invalid servercommand response msg"));
}

QString SendCommandRespMsg::generateXmlMessageBody() const
{
    const ServerCommandResponse& response = commandResponse;
    XmlBodyWriter writer;
    writer.start(S_EVENT_SERVERCOMMAND)
        .text(S_XMLTAG_SRVCMDRSP_ID, response.requestId)
        .text(S_XMLTAG_SRVCMDRSP_CMD, response.command)
        .text(S_XMLTAG_SRVCMDRSP_FAILED, response.succeeded ? 0 : 1)
        .text(S_XMLTAG_SRVCMDRSP_EXITCODE, response.exitCode)
        .text(S_XMLTAG_SRVCMDRSP_MSG, response.message)
        .text(S_XMLTAG_SRVCMDRSP_DATE, response.date.toString(CommandDateFormat));
    return writer.end().result();
}

// ---- DiagnosticRespMsg ----------------------------------------------------

DiagnosticRespMsg DiagnosticRespMsg::parseMessage(const QString& xml)
{
    DiagnosticMessage diagnostic;
    diagnostic.tenantUuid = text(xml, S_XMLTAG_DIAGMSG_TENANTID);
    diagnostic.linkedId = text(xml, S_XMLTAG_DIAGMSG_CONVID);
    diagnostic.uniqueId = text(xml, S_XMLTAG_DIAGMSG_CALLID);
    diagnostic.messageId = text(xml, S_XMLTAG_DIAGMSG_ID);
    diagnostic.verbosity = TELVIX::msgLevelFromString(text(xml, S_XMLTAG_DIAGMSG_VERBOSITY));
    diagnostic.date = QDateTime::fromString(text(xml, S_XMLTAG_DIAGMSG_DATE), TELVIX::IsoDateNoTz);
    diagnostic.message = text(xml, S_XMLTAG_DIAGMSG_MSG);
    diagnostic.fields = SimpleXmlParser::getDecodedTagsValues(MessageReader::raw(xml, S_XMLTAG_DIAGMSG_FIELDS),
                                                              S_XMLTAG_DIAGMSG_FIELD);
    const bool valid = !diagnostic.messageId.isEmpty();
    return MessageReader::holding(xml, &DiagnosticRespMsg::diagnosticMessage, diagnostic, valid,
                                  QStringLiteral("diagnostic msg parsed ok"),
                                  QStringLiteral("parsed an invalid diagnostic msg"));
}

QString DiagnosticRespMsg::generateXmlMessageBody() const
{
    const DiagnosticMessage& diagnostic = diagnosticMessage;
    XmlBodyWriter writer;
    writer.start(S_EVENT_DIAGNOSTIC)
        .text(S_XMLTAG_DIAGMSG_TENANTID, diagnostic.tenantUuid)
        .text(S_XMLTAG_DIAGMSG_CONVID, diagnostic.linkedId)
        .text(S_XMLTAG_DIAGMSG_CALLID, diagnostic.uniqueId)
        .text(S_XMLTAG_DIAGMSG_ID, diagnostic.messageId)
        .text(S_XMLTAG_DIAGMSG_VERBOSITY, TELVIX::msgLevelToString(diagnostic.verbosity))
        .text(S_XMLTAG_DIAGMSG_DATE, diagnostic.date.toString(TELVIX::IsoDateNoTz))
        .text(S_XMLTAG_DIAGMSG_MSG, diagnostic.message)
        .start(S_XMLTAG_DIAGMSG_FIELDS);
    for (const QString& field : diagnostic.fields)
        writer.text(S_XMLTAG_DIAGMSG_FIELD, field);
    return writer.end().end().result();
}

// ---- TenantsRespMsg -------------------------------------------------------

TenantsRespMsg TenantsRespMsg::parseMessage(const QString& xml)
{
    const MessageReader::ListWords words { QStringLiteral("Tenants request failed: "), S_XMLTAG_TENANT_ENTRY,
                                           QStringLiteral("parsed an invalid Tenant msg"),
                                           QStringLiteral("parsed an empty TenantList msg"),
                                           QStringLiteral("TenantList msg parsed ok") };
    return MessageReader::readList<TenantsRespMsg>(xml, words, [](TenantsRespMsg& msg, const QString& entry) {
        const QString uuid = text(entry, S_XMLTAG_TENANT_ID);
        if (uuid.isEmpty())
            return false;
        msg.tenants.insert(uuid, text(entry, S_XMLTAG_TENANT_DOMAIN));
        return true;
    });
}

QString TenantsRespMsg::generateXmlMessageBody() const
{
    return listBody(S_EVENT_TENANTS, S_XMLTAG_TENANT_ENTRY, tenants.keys(),
                    [this](XmlBodyWriter& writer, const QString& tenantId) {
                        writer.text(S_XMLTAG_TENANT_ID, tenantId)
                            .text(S_XMLTAG_TENANT_DOMAIN, tenants.value(tenantId));
                    });
}

// ---- AuthTokenResMsg ------------------------------------------------------

AuthTokenResMsg AuthTokenResMsg::parseMessage(const QString& xml)
{
    AuthTokenResMsg msg;
    msg.token = text(xml, S_XMLTAG_AUTHTOKEN_TOKEN);
    msg.validUntil = QDateTime::fromString(text(xml, S_XMLTAG_AUTHTOKEN_VALID), TokenDateFormat);
    if (msg.token.isEmpty())
        return MessageReader::invalid<AuthTokenResMsg>(
            QStringLiteral("parsed an invalid AuthToken response message"));
    msg.parseMessageMetadata(xml);
    return msg;
}

QString AuthTokenResMsg::generateXmlMessageBody() const
{
    XmlBodyWriter writer;
    writer.start(S_XMLTAG_AUTHTOKEN)
        .text(S_XMLTAG_AUTHTOKEN_TOKEN, token)
        .text(S_XMLTAG_AUTHTOKEN_VALID, validUntil.toString(TokenDateFormat));
    return writer.end().result();
}

// ---- RebrandingPackChangedEventMsg ----------------------------------------

RebrandingPackChangedEventMsg RebrandingPackChangedEventMsg::parseMessage(const QString& xml)
{
    RebrandingPackChangedEventMsg msg;
    msg.parseMessageMetadata(xml);
    return msg;
}

QString RebrandingPackChangedEventMsg::generateXmlMessageBody() const
{
    return EMPTYTAG(S_EVENT_REBRANDINGPACK_CHANGED);
}
