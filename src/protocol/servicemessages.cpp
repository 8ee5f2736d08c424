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
    qRegisterMetaType<QMap<TELVIX::ServiceDialCodeType, QString>>(
        "QMap<TELVIX::ServiceDialCodeType,QString>");
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

// ---- field lists ----------------------------------------------------------
//
// Each record lists its elements once, in wire order, as calls of a visitor:
// FieldReader fills the record from a document, FieldWriter writes it. Fields
// whose text needs more than the plain conversion are wrapped.

/// How a field's text converts where the plain conversion of its type is
/// not the wire's.
enum class Wire {
    Date, ///< a date in the format `detail`
    FailedFlag, ///< a success flag sent inverted, as "IsFailed" 1 or 0
    NumberOrDefault, ///< a number that unreadable text leaves at the record's default
    Level, ///< a diagnostic level in its wire text
    TextList, ///< a list of `detail` text elements inside the field's element
};

template <Wire Kind, typename T> struct Converted
{
    T& value;
    QString detail;
};

template <Wire Kind, typename T> Converted<Kind, T> as(T& value, const QString& detail = QString())
{
    return {value, detail};
}

class FieldReader
{
public:
    explicit FieldReader(QStringView xml)
        : m_xml(xml)
    {
    }
    void operator()(const QString& tag, QString& value) const { value = text(m_xml, tag); }
    void operator()(const QString& tag, qint32& value) const { value = toInt(m_xml, tag); }
    void operator()(const QString& tag, quint16& value) const { value = toUShort(m_xml, tag); }
    void operator()(const QString& tag, Converted<Wire::Date, QDateTime> field) const
    {
        field.value = QDateTime::fromString(text(m_xml, tag), field.detail);
    }
    void operator()(const QString& tag, Converted<Wire::FailedFlag, bool> field) const
    {
        field.value = toInt(m_xml, tag) != 1;
    }
    void operator()(const QString& tag, Converted<Wire::NumberOrDefault, qint32> field) const
    {
        bool readable = false;
        const int number = text(m_xml, tag).toInt(&readable, 10);
        if (readable)
            field.value = number;
    }
    void operator()(const QString& tag, Converted<Wire::Level, TELVIX::MsgLevel> field) const
    {
        field.value = TELVIX::msgLevelFromString(text(m_xml, tag));
    }
    void operator()(const QString& tag, Converted<Wire::TextList, QStringList> field) const
    {
        field.value = SimpleXmlParser::getDecodedTagsValues(MessageReader::raw(m_xml, tag), field.detail);
    }

private:
    QStringView m_xml;
};

class FieldWriter
{
public:
    explicit FieldWriter(XmlBodyWriter& writer)
        : m_writer(writer)
    {
    }
    void operator()(const QString& tag, const QString& value) const { m_writer.text(tag, value); }
    void operator()(const QString& tag, int value) const { m_writer.text(tag, value); }
    void operator()(const QString& tag, Converted<Wire::Date, const QDateTime> field) const
    {
        m_writer.text(tag, field.value.toString(field.detail));
    }
    void operator()(const QString& tag, Converted<Wire::FailedFlag, const bool> field) const
    {
        m_writer.text(tag, field.value ? 0 : 1);
    }
    void operator()(const QString& tag, Converted<Wire::NumberOrDefault, const qint32> field) const
    {
        m_writer.text(tag, field.value);
    }
    void operator()(const QString& tag, Converted<Wire::Level, const TELVIX::MsgLevel> field) const
    {
        m_writer.text(tag, TELVIX::msgLevelToString(field.value));
    }
    void operator()(const QString& tag, Converted<Wire::TextList, const QStringList> field) const
    {
        m_writer.start(tag);
        for (const QString& item : field.value)
            m_writer.text(field.detail, item);
        m_writer.end();
    }

private:
    XmlBodyWriter& m_writer;
};

const auto serviceStatusFields = [](auto& status, const auto& visit) {
    visit(S_XMLTAG_STATUS_ID, status.id);
    visit(S_XMLTAG_STATUS_TYPE, status.type);
    visit(S_XMLTAG_STATUS_VALUE, status.value);
    visit(S_XMLTAG_STATUS, status.status);
};

/// The channel's element name depends on the server generation.
const auto inCallServiceStatusFields = [](auto& status, const auto& visit, const QString& channelTag) {
    visit(S_XMLTAG_CALL_UID, status.uid);
    visit(S_XMLTAG_CALL_SIP_ACCOUNT, status.sipAccount);
    visit(channelTag, status.channel);
    visit(S_XMLTAG_STATUS_TYPE, status.type);
    // A missing or unreadable status keeps the record's 4.
    visit(S_XMLTAG_STATUS, as<Wire::NumberOrDefault>(status.status));
};

const auto channelStatusFields = [](auto& status, const auto& visit) {
    visit(S_XMLTAG_CHANSTATUS_CHANNEL, status.channel);
    visit(S_XMLTAG_CHANSTATUS_NUMBER, status.number);
    visit(S_XMLTAG_CHANSTATUS_NAME, status.name);
};

/// `valid` is no element: it tells the client that the server has spoken.
const auto ctiConfigurationFields = [](auto& msg, const auto& visit) {
    visit(S_XMLTAG_CTICONFIG_CHATID, msg.chatConfiguration.chatId);
    visit(S_XMLTAG_CTICONFIG_CHATPORT, msg.chatConfiguration.chatPort);
    auto& sip = msg.sipConfiguration;
    visit(S_XMLTAG_CTICONFIG_SIPPROTO, sip.sipProtocol);
    visit(S_XMLTAG_CTICONFIG_SIPREGISTRARIP, sip.registrarIp);
    visit(S_XMLTAG_CTICONFIG_SIPREGISTRARPORT, sip.registrarPort);
    visit(S_XMLTAG_CTICONFIG_SIPPROXYIP, sip.proxyIp);
    visit(S_XMLTAG_CTICONFIG_SIPPROXYPORT, sip.proxyPort);
};

const auto commandResponseFields = [](auto& response, const auto& visit) {
    visit(S_XMLTAG_SRVCMDRSP_ID, response.requestId);
    visit(S_XMLTAG_SRVCMDRSP_CMD, response.command);
    visit(S_XMLTAG_SRVCMDRSP_FAILED, as<Wire::FailedFlag>(response.succeeded));
    visit(S_XMLTAG_SRVCMDRSP_EXITCODE, response.exitCode);
    visit(S_XMLTAG_SRVCMDRSP_MSG, response.message);
    visit(S_XMLTAG_SRVCMDRSP_DATE, as<Wire::Date>(response.date, CommandDateFormat));
};

const auto diagnosticFields = [](auto& diagnostic, const auto& visit) {
    visit(S_XMLTAG_DIAGMSG_TENANTID, diagnostic.tenantUuid);
    visit(S_XMLTAG_DIAGMSG_CONVID, diagnostic.linkedId);
    visit(S_XMLTAG_DIAGMSG_CALLID, diagnostic.uniqueId);
    visit(S_XMLTAG_DIAGMSG_ID, diagnostic.messageId);
    visit(S_XMLTAG_DIAGMSG_VERBOSITY, as<Wire::Level>(diagnostic.verbosity));
    visit(S_XMLTAG_DIAGMSG_DATE, as<Wire::Date>(diagnostic.date, TELVIX::IsoDateNoTz));
    visit(S_XMLTAG_DIAGMSG_MSG, diagnostic.message);
    visit(S_XMLTAG_DIAGMSG_FIELDS, as<Wire::TextList>(diagnostic.fields, S_XMLTAG_DIAGMSG_FIELD));
};

const auto authTokenFields = [](auto& msg, const auto& visit) {
    visit(S_XMLTAG_AUTHTOKEN_TOKEN, msg.token);
    visit(S_XMLTAG_AUTHTOKEN_VALID, as<Wire::Date>(msg.validUntil, TokenDateFormat));
};

/// A record (or message) filled from `xml` by its field list.
template <typename Record, typename Fields> Record readFields(QStringView xml, const Fields& fields)
{
    Record record;
    fields(record, FieldReader(xml));
    return record;
}

/// `root` holding the fields of `record`.
template <typename Record, typename Fields>
QString fieldsBody(const QString& root, const Record& record, const Fields& fields)
{
    XmlBodyWriter writer;
    writer.start(root);
    fields(record, FieldWriter(writer));
    return writer.end().result();
}

/// `root` holding one `entry` element per item, each with the item's fields.
template <typename Items, typename Fields>
QString listBody(const QString& root, const QString& entry, const Items& items, const Fields& fields)
{
    XmlBodyWriter writer;
    writer.start(root);
    for (const auto& item : items) {
        writer.start(entry);
        fields(item, FieldWriter(writer));
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
    {S_XMLTAG_SERVICE_ECHO, TELVIX::ServiceEcho},
    {S_XMLTAG_SERVICE_VOICEMAIL, TELVIX::ServiceVoicemail},
    {S_XMLTAG_SERVICE_PICKUP, TELVIX::ServicePickUp},
    {S_XMLTAG_SERVICE_DIRECTPICKUP, TELVIX::ServiceDirectPickUp},
    {S_XMLTAG_SERVICE_CONFERENCE, TELVIX::ServiceConference},
    {S_XMLTAG_SERVICE_SPEEDDIAL, TELVIX::ServiceSpeedDial},
    {S_XMLTAG_SERVICE_SPEEDDIAL_PERS, TELVIX::ServiceSpeedDialPers},
    {S_XMLTAG_SERVICE_PARKCODE, TELVIX::ServiceParkCode},
    {S_XMLTAG_SERVICE_PARK_FIRST_SLOT, TELVIX::ServiceParkFirstSlot},
    {S_XMLTAG_SERVICE_PARK_LAST_SLOT, TELVIX::ServiceParkLastSlot},
    {S_XMLTAG_SERVICE_ELECT_LOCK, TELVIX::ServiceElectLock},
    {S_XMLTAG_SERVICE_ELECT_UNLOCK, TELVIX::ServiceElectUnlock},
    {S_XMLTAG_SERVICE_UFWD_SET, TELVIX::ServiceUfwdSet},
    {S_XMLTAG_SERVICE_UFWD_UNSET, TELVIX::ServiceUfwdUnset},
    {S_XMLTAG_SERVICE_SUPER_DIRECTPICKUP, TELVIX::ServiceSuperDirectPickUp},
    {S_XMLTAG_SERVICE_SUPER_GROUPPICKUP, TELVIX::ServiceSuperGroupPickUp},
    {S_XMLTAG_SERVICE_FORKMOBILE_ENABLE, TELVIX::ServiceForkMobileSet},
    {S_XMLTAG_SERVICE_FORKMOBILE_DISABLE, TELVIX::ServiceForkMobileUnset},
    {S_XMLTAG_SERVICE_SPY, TELVIX::ServiceSpy},
    {S_XMLTAG_SERVICE_OUTBOUND_PREFIX, TELVIX::ServiceOutboundPrefix},
};

/// The in-call codes with the codes a server that sends none uses.
struct InCallCode
{
    const QString& element;
    TELVIX::ServiceDialCodeType type;
    const char* preset;
};

const InCallCode InCallCodes[] = {
    {S_XMLTAG_INCALL_ATXFER, TELVIX::InCallAtXfer, "*4"},
    {S_XMLTAG_INCALL_ATXFER_CANCEL, TELVIX::InCallAtXferCancel, "*0"},
    {S_XMLTAG_INCALL_ATXFER_SHUTTLE, TELVIX::InCallAtXferShuttle, "*9"},
    {S_XMLTAG_INCALL_ATXFER_3CONF, TELVIX::InCallAtXfer3Conf, "*3"},
    {S_XMLTAG_INCALL_BLINDXFER, TELVIX::InCallBlindXfer, "#4"},
    {S_XMLTAG_INCALL_FASTTRANSFER, TELVIX::InCallFastTransfer, "**"},
    {S_XMLTAG_INCALL_PARKING, TELVIX::InCallParking, "#8"},
    {S_XMLTAG_INCALL_RECORDING, TELVIX::InCallRecording, "*1"},
    {S_XMLTAG_INCALL_CANCEL, TELVIX::InCallCancel, "*0"},
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
    return uid == other.uid && sipAccount == other.sipAccount && channel == other.channel
        && type == other.type && status == other.status;
}

ServicesDialCodes::ServicesDialCodes()
{
    int number = 0;
    for (const char* description : DialCodeDescriptions)
        descriptions.insert(static_cast<TELVIX::ServiceDialCodeType>(++number),
                            QString::fromLatin1(description));
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
    const MessageReader::ListWords words {QString(), S_EVENT_SERVICE_STATUS,
                                          QStringLiteral("parsed an invalid Service Status resp msg"),
                                          QStringLiteral("parsed an empty ServiceStatusList msg"),
                                          QStringLiteral("Service Status resp msg parsed ok")};
    return MessageReader::readList<ServiceStatusRespMsg>(
        xml, words, [](ServiceStatusRespMsg& msg, QStringView entry) {
            const auto status = readFields<ServiceStatus>(entry, serviceStatusFields);
            if (status.id.isEmpty() || status.type.isEmpty())
                return false;
            msg.statusList.append(status);
            return true;
        });
}

QString ServiceStatusRespMsg::generateXmlMessageBody() const
{
    return listBody(S_EVENT_SERVICE_STATUS_LIST, S_EVENT_SERVICE_STATUS, statusList, serviceStatusFields);
}

// ---- InCallServiceStatusEventMsg ------------------------------------------

InCallServiceStatusEventMsg InCallServiceStatusEventMsg::parseMessage(const QString& xml)
{
    InCallServiceStatus status;
    inCallServiceStatusFields(status, FieldReader(xml), S_XMLTAG_CALL_CHANNEL);
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
    const QString& channelTag
        = ApiText::atLeast(api, "5.7") ? S_XMLTAG_CALL_CHANNEL : S_XMLTAG_CALL_LOCAL_CHANNEL;
    return fieldsBody(S_EVENT_INCALL_SERVICE_STATUS, inCallServiceStatus,
                      [&channelTag](const auto& status, const auto& visit) {
                          inCallServiceStatusFields(status, visit, channelTag);
                      });
}

// ---- ChannelStatusRespMsg -------------------------------------------------

ChannelStatusRespMsg ChannelStatusRespMsg::parseMessage(const QString& xml)
{
    ChannelStatusRespMsg msg;
    ChannelStatus& status = msg.channelStatus;
    status = readFields<ChannelStatus>(xml, channelStatusFields);
    if (status.number.isEmpty()) {
        // Old servers send the quoted name and the number as lines of one text.
        MessageReader::logDebug(
            QStringLiteral("Parsing Channel CallerID field (old SARNET implementation...)"));
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
    return fieldsBody(S_XMLTAG_CHANSTATUS_ENTRY, channelStatus, channelStatusFields);
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
        msg.codes.insert(code.type,
                         inCall.isEmpty() ? QString::fromLatin1(code.preset) : text(inCall, code.element));
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
    auto msg = readFields<CtiConfigurationRespMsg>(xml, ctiConfigurationFields);
    msg.sipConfiguration.valid = true;
    return MessageReader::accepted(msg, xml, QStringLiteral("CTI configuration msg parsed ok"));
}

QString CtiConfigurationRespMsg::generateXmlMessageBody() const
{
    return fieldsBody(S_XMLTAG_CTICONFIG, *this, ctiConfigurationFields);
}

// ---- SendCommandRespMsg ---------------------------------------------------

SendCommandRespMsg SendCommandRespMsg::parseMessage(const QString& xml)
{
    const auto response = readFields<ServerCommandResponse>(xml, commandResponseFields);
    return MessageReader::holding(xml, &SendCommandRespMsg::commandResponse, response,
                                  !response.requestId.isEmpty(),
                                  QStringLiteral("servercommand response msg parsed ok"),
                                  QStringLiteral("parsed an invalid servercommand response msg"));
}

QString SendCommandRespMsg::generateXmlMessageBody() const
{
    return fieldsBody(S_EVENT_SERVERCOMMAND, commandResponse, commandResponseFields);
}

// ---- DiagnosticRespMsg ----------------------------------------------------

DiagnosticRespMsg DiagnosticRespMsg::parseMessage(const QString& xml)
{
    const auto diagnostic = readFields<DiagnosticMessage>(xml, diagnosticFields);
    return MessageReader::holding(xml, &DiagnosticRespMsg::diagnosticMessage, diagnostic,
                                  !diagnostic.messageId.isEmpty(), QStringLiteral("diagnostic msg parsed ok"),
                                  QStringLiteral("parsed an invalid diagnostic msg"));
}

QString DiagnosticRespMsg::generateXmlMessageBody() const
{
    return fieldsBody(S_EVENT_DIAGNOSTIC, diagnosticMessage, diagnosticFields);
}

// ---- TenantsRespMsg -------------------------------------------------------

TenantsRespMsg TenantsRespMsg::parseMessage(const QString& xml)
{
    const MessageReader::ListWords words {QStringLiteral("Tenants request failed: "), S_XMLTAG_TENANT_ENTRY,
                                          QStringLiteral("parsed an invalid Tenant msg"),
                                          QStringLiteral("parsed an empty TenantList msg"),
                                          QStringLiteral("TenantList msg parsed ok")};
    return MessageReader::readList<TenantsRespMsg>(xml, words, [](TenantsRespMsg& msg, QStringView entry) {
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
                    [this](const QString& tenantId, const FieldWriter& visit) {
                        visit(S_XMLTAG_TENANT_ID, tenantId);
                        visit(S_XMLTAG_TENANT_DOMAIN, tenants.value(tenantId));
                    });
}

// ---- AuthTokenResMsg ------------------------------------------------------

AuthTokenResMsg AuthTokenResMsg::parseMessage(const QString& xml)
{
    auto msg = readFields<AuthTokenResMsg>(xml, authTokenFields);
    if (msg.token.isEmpty())
        return MessageReader::invalid<AuthTokenResMsg>(
            QStringLiteral("parsed an invalid AuthToken response message"));
    msg.parseMessageMetadata(xml);
    return msg;
}

QString AuthTokenResMsg::generateXmlMessageBody() const
{
    return fieldsBody(S_XMLTAG_AUTHTOKEN, *this, authTokenFields);
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
