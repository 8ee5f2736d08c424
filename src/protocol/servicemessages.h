#pragma once

#include "commandmessages.h"
#include "sarnetxml.h"
#include "sxmlmessage.h"
#include "telvix_const.h"
#include "telvix_export.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QStringList>

namespace SARNET_XML {

// Channel status
inline const QString S_XMLTAG_CHANSTATUS_ENTRY = QStringLiteral("ChannelStatus");
inline const QString S_XMLTAG_CHANSTATUS_NUMBER = QStringLiteral("Number");
inline const QString S_XMLTAG_CHANSTATUS_NAME = QStringLiteral("Name");
inline const QString S_XMLTAG_CHANSTATUS_CALLERID = QStringLiteral("CallerID");

// Service status
inline const QString S_EVENT_SERVICE_STATUS_LIST = QStringLiteral("ServiceStatusList");
inline const QString S_EVENT_SERVICE_STATUS = QStringLiteral("ServiceStatus");
inline const QString S_EVENT_INCALL_SERVICE_STATUS = QStringLiteral("InCallServiceStatus");
inline const QString S_XMLTAG_STATUS_ID = QStringLiteral("Id");
inline const QString S_XMLTAG_STATUS_TYPE = QStringLiteral("Type");
inline const QString S_XMLTAG_STATUS_VALUE = QStringLiteral("Value");
inline const QString S_XMLTAG_STATUS = QStringLiteral("Status");

// Service dial codes. The server's element names differ from the local keys
// of TELVIX::serviceDialCodeTypeToString in a few places.
inline const QString S_XMLTAG_SERVICE_LIST = QStringLiteral("Services");
inline const QString S_XMLTAG_SERVICE_NUMPLAN_SERVICES = QStringLiteral("NumberingPlan");
inline const QString S_XMLTAG_SERVICE_INCALL_SERVICES = QStringLiteral("InCall");
inline const QString S_XMLTAG_SERVICE_ECHO = QStringLiteral("echo");
inline const QString S_XMLTAG_SERVICE_VOICEMAIL = QStringLiteral("voicemail");
inline const QString S_XMLTAG_SERVICE_PICKUP = QStringLiteral("pickUp");
inline const QString S_XMLTAG_SERVICE_PICKUP_CAPITAL = QStringLiteral("PickUp");
inline const QString S_XMLTAG_SERVICE_DIRECTPICKUP = QStringLiteral("directPickUp");
inline const QString S_XMLTAG_SERVICE_CONFERENCE = QStringLiteral("conference");
inline const QString S_XMLTAG_SERVICE_SPEEDDIAL = QStringLiteral("speedDial");
inline const QString S_XMLTAG_SERVICE_SPEEDDIAL_PERS = QStringLiteral("speedDialPers");
inline const QString S_XMLTAG_SERVICE_PARKCODE = QStringLiteral("parkcode");
inline const QString S_XMLTAG_SERVICE_PARK_FIRST_SLOT = QStringLiteral("parkFirstSlot");
inline const QString S_XMLTAG_SERVICE_PARK_LAST_SLOT = QStringLiteral("parkLastSlot");
inline const QString S_XMLTAG_SERVICE_ELECT_LOCK = QStringLiteral("electLock");
inline const QString S_XMLTAG_SERVICE_ELECT_UNLOCK = QStringLiteral("electUnlock");
inline const QString S_XMLTAG_SERVICE_UFWD_SET = QStringLiteral("ufwdSet");
inline const QString S_XMLTAG_SERVICE_UFWD_UNSET = QStringLiteral("ufwdUnset");
inline const QString S_XMLTAG_SERVICE_SUPER_DIRECTPICKUP = QStringLiteral("superDirectPickup");
inline const QString S_XMLTAG_SERVICE_SUPER_GROUPPICKUP = QStringLiteral("superGroupPickup");
inline const QString S_XMLTAG_SERVICE_FORKMOBILE_ENABLE = QStringLiteral("forkMobileEnable");
inline const QString S_XMLTAG_SERVICE_FORKMOBILE_DISABLE = QStringLiteral("forkMobileDisable");
inline const QString S_XMLTAG_SERVICE_SPY = QStringLiteral("spy");
inline const QString S_XMLTAG_SERVICE_OUTBOUND_PREFIX = QStringLiteral("outboundPrefix");
inline const QString S_XMLTAG_INCALL_ATXFER = QStringLiteral("atXfer");
inline const QString S_XMLTAG_INCALL_ATXFER_CANCEL = QStringLiteral("atXferCancel");
inline const QString S_XMLTAG_INCALL_ATXFER_SHUTTLE = QStringLiteral("atXferShuttle");
inline const QString S_XMLTAG_INCALL_ATXFER_3CONF = QStringLiteral("atXfer3Conf");
inline const QString S_XMLTAG_INCALL_BLINDXFER = QStringLiteral("blindXfer");
inline const QString S_XMLTAG_INCALL_FASTTRANSFER = QStringLiteral("fastTransfer");
inline const QString S_XMLTAG_INCALL_PARKING = QStringLiteral("parking");
inline const QString S_XMLTAG_INCALL_RECORDING = QStringLiteral("recording");
inline const QString S_XMLTAG_INCALL_CANCEL = QStringLiteral("cancel");

// CTI configuration
inline const QString S_XMLTAG_CTICONFIG = QStringLiteral("CtiConfiguration");
inline const QString S_XMLTAG_CTICONFIG_CHATID = QStringLiteral("ChatID");
inline const QString S_XMLTAG_CTICONFIG_CHATPORT = QStringLiteral("ChatPort");
inline const QString S_XMLTAG_CTICONFIG_SIPPROTO = QStringLiteral("SipProtocol");
inline const QString S_XMLTAG_CTICONFIG_SIPREGISTRARIP = QStringLiteral("SipRegistrarIp");
inline const QString S_XMLTAG_CTICONFIG_SIPREGISTRARPORT = QStringLiteral("SipRegistrarPort");
inline const QString S_XMLTAG_CTICONFIG_SIPPROXYIP = QStringLiteral("SipProxyIp");
inline const QString S_XMLTAG_CTICONFIG_SIPPROXYPORT = QStringLiteral("SipProxyPort");

// Server command answers
inline const QString S_EVENT_SERVERCOMMAND = QStringLiteral("CommandResponse");
inline const QString S_XMLTAG_SRVCMDRSP_ID = QStringLiteral("RequestId");
inline const QString S_XMLTAG_SRVCMDRSP_CMD = QStringLiteral("Command");
inline const QString S_XMLTAG_SRVCMDRSP_FAILED = QStringLiteral("IsFailed");
inline const QString S_XMLTAG_SRVCMDRSP_EXITCODE = QStringLiteral("ExitCode");
inline const QString S_XMLTAG_SRVCMDRSP_MSG = QStringLiteral("Message");
inline const QString S_XMLTAG_SRVCMDRSP_DATE = QStringLiteral("Date");

// Diagnostic messages
inline const QString S_EVENT_DIAGNOSTIC = QStringLiteral("LoggerMessage");
inline const QString S_XMLTAG_DIAGMSG_TENANTID = QStringLiteral("TenantUuid");
inline const QString S_XMLTAG_DIAGMSG_CONVID = QStringLiteral("LinkedId");
inline const QString S_XMLTAG_DIAGMSG_CALLID = QStringLiteral("UniqueId");
inline const QString S_XMLTAG_DIAGMSG_ID = QStringLiteral("MessageId");
inline const QString S_XMLTAG_DIAGMSG_VERBOSITY = QStringLiteral("Verbosity");
inline const QString S_XMLTAG_DIAGMSG_DATE = QStringLiteral("Date");
inline const QString S_XMLTAG_DIAGMSG_MSG = QStringLiteral("Message");
inline const QString S_XMLTAG_DIAGMSG_FIELDS = QStringLiteral("FieldList");
inline const QString S_XMLTAG_DIAGMSG_FIELD = QStringLiteral("Field");

// Tenants, tokens, rebranding
inline const QString S_EVENT_TENANTS = QStringLiteral("TenantList");
inline const QString S_XMLTAG_TENANT_ENTRY = QStringLiteral("Tenant");
inline const QString S_XMLTAG_TENANT_DOMAIN = QStringLiteral("Domain");
inline const QString S_XMLTAG_AUTHTOKEN = QStringLiteral("AuthToken");
inline const QString S_XMLTAG_AUTHTOKEN_VALID = QStringLiteral("ValidUntil");
inline const QString S_EVENT_REBRANDINGPACK_CHANGED = QStringLiteral("RebrandingPackChanged");

} // namespace SARNET_XML

// ---- records ------------------------------------------------------------

/// \brief Who is on the other side of a channel.
struct TELVIX_EXPORT ChannelStatus
{
    Q_GADGET
    Q_PROPERTY(QString channel MEMBER channel)
    Q_PROPERTY(QString number MEMBER number)
    Q_PROPERTY(QString name MEMBER name)
public:
    QString channel;
    QString number;
    QString name;

    bool operator==(const ChannelStatus& other) const;
    bool operator!=(const ChannelStatus& other) const { return !(*this == other); }
};

/// \brief State of one service of the user, such as "ufwd" or "forktomobile".
struct TELVIX_EXPORT ServiceStatus
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString type MEMBER type)
    Q_PROPERTY(QString value MEMBER value)
    Q_PROPERTY(qint32 status MEMBER status)
public:
    QString id;
    QString type;
    /// The service's number, e.g. the forward target.
    QString value;
    qint32 status = 0;

    bool operator==(const ServiceStatus& other) const;
    bool operator!=(const ServiceStatus& other) const { return !(*this == other); }
};

/// \brief State of a service used during one call (recording, transfer, ...).
struct TELVIX_EXPORT InCallServiceStatus
{
    Q_GADGET
    Q_PROPERTY(QString uid MEMBER uid)
    Q_PROPERTY(QString sipAccount MEMBER sipAccount)
    Q_PROPERTY(QString channel MEMBER channel)
    Q_PROPERTY(QString type MEMBER type)
    Q_PROPERTY(qint32 status MEMBER status)
public:
    QString uid;
    QString sipAccount;
    QString channel;
    QString type;
    qint32 status = 4;

    bool operator==(const InCallServiceStatus& other) const;
    bool operator!=(const InCallServiceStatus& other) const { return !(*this == other); }
};

/// \brief The PBX's service dial codes with a fixed description of each type.
struct TELVIX_EXPORT ServicesDialCodes
{
    Q_GADGET
    Q_PROPERTY(QMap<TELVIX::ServiceDialCodeType, QString> descriptions MEMBER descriptions)
    Q_PROPERTY(QMap<TELVIX::ServiceDialCodeType, QString> codes MEMBER codes)
public:
    /// Fills `descriptions` for every type 1 to 30.
    ServicesDialCodes();

    QMap<TELVIX::ServiceDialCodeType, QString> descriptions;
    QMap<TELVIX::ServiceDialCodeType, QString> codes;
};

/// \brief The chat server account of the user.
struct TELVIX_EXPORT ChatConfiguration
{
    Q_GADGET
    Q_PROPERTY(QString chatId MEMBER chatId)
    Q_PROPERTY(quint16 chatPort MEMBER chatPort)
public:
    QString chatId;
    quint16 chatPort = 0;

    bool operator==(const ChatConfiguration& other) const;
    bool operator!=(const ChatConfiguration& other) const { return !(*this == other); }
};

/// \brief Where a SIP phone of the user registers. The defaults are what the
/// client assumes until the server has told.
struct TELVIX_EXPORT SipConfiguration
{
    Q_GADGET
    Q_PROPERTY(bool valid MEMBER valid)
    Q_PROPERTY(QString sipProtocol MEMBER sipProtocol)
    Q_PROPERTY(QString registrarIp MEMBER registrarIp)
    Q_PROPERTY(quint16 registrarPort MEMBER registrarPort)
    Q_PROPERTY(QString proxyIp MEMBER proxyIp)
    Q_PROPERTY(quint16 proxyPort MEMBER proxyPort)
public:
    bool valid = false;
    QString sipProtocol = TELVIX::SipProtoDefault;
    QString registrarIp;
    quint16 registrarPort = 5060;
    QString proxyIp;
    quint16 proxyPort = 5060;

    bool operator==(const SipConfiguration& other) const;
    bool operator!=(const SipConfiguration& other) const { return !(*this == other); }
};

/// \brief The outcome of a ServerCommand.
struct TELVIX_EXPORT ServerCommandResponse
{
    Q_GADGET
    Q_PROPERTY(QString requestId MEMBER requestId)
    Q_PROPERTY(QString command MEMBER command)
    Q_PROPERTY(bool succeeded MEMBER succeeded)
    Q_PROPERTY(qint32 exitCode MEMBER exitCode)
    Q_PROPERTY(QString message MEMBER message)
    Q_PROPERTY(QDateTime date MEMBER date)
public:
    QString requestId;
    QString command;
    bool succeeded = false;
    qint32 exitCode = 0;
    QString message;
    QDateTime date;

    bool operator==(const ServerCommandResponse& other) const;
    bool operator!=(const ServerCommandResponse& other) const { return !(*this == other); }
};

/// \brief One line of the server's diagnostic log about a call.
struct TELVIX_EXPORT DiagnosticMessage
{
    Q_GADGET
    Q_PROPERTY(QString tenantUuid MEMBER tenantUuid)
    Q_PROPERTY(QString linkedId MEMBER linkedId)
    Q_PROPERTY(QString uniqueId MEMBER uniqueId)
    Q_PROPERTY(QString messageId MEMBER messageId)
    Q_PROPERTY(TELVIX::MsgLevel verbosity MEMBER verbosity)
    Q_PROPERTY(QDateTime date MEMBER date)
    Q_PROPERTY(QString message MEMBER message)
    Q_PROPERTY(QStringList fields MEMBER fields)
public:
    QString tenantUuid;
    /// The conversation the call belongs to.
    QString linkedId;
    /// The call itself.
    QString uniqueId;
    QString messageId;
    TELVIX::MsgLevel verbosity = TELVIX::MsgLevelInvalid;
    QDateTime date;
    QString message;
    QStringList fields;

    bool operator==(const DiagnosticMessage& other) const;
    bool operator!=(const DiagnosticMessage& other) const { return !(*this == other); }
};

Q_DECLARE_METATYPE(ChannelStatus)
Q_DECLARE_METATYPE(ServiceStatus)
Q_DECLARE_METATYPE(InCallServiceStatus)
Q_DECLARE_METATYPE(ServicesDialCodes)
Q_DECLARE_METATYPE(ChatConfiguration)
Q_DECLARE_METATYPE(SipConfiguration)
Q_DECLARE_METATYPE(ServerCommandResponse)
Q_DECLARE_METATYPE(DiagnosticMessage)

// ---- answers and notices ------------------------------------------------

/// \brief The user's service states: the "ServiceStatusList" answer, or one
/// "ServiceStatus" event (same reader).
class TELVIX_EXPORT ServiceStatusRespMsg : public SXmlResponseMessage
{
public:
    static ServiceStatusRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QList<ServiceStatus> statusList;
};

/// \brief A service state change during a call.
class TELVIX_EXPORT InCallServiceStatusEventMsg : public SXmlResponseMessage
{
public:
    static InCallServiceStatusEventMsg parseMessage(const QString& xml);
    /// Servers before "5.7" name the channel "LocalChannel".
    QString generateXmlMessageBody() const override;

    InCallServiceStatus inCallServiceStatus;
};

/// \brief The answer to ChannelStatusReqMsg.
class TELVIX_EXPORT ChannelStatusRespMsg : public SXmlResponseMessage
{
public:
    /// Old servers send one "CallerID" text instead of number and name.
    static ChannelStatusRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    ChannelStatus channelStatus;
};

/// \brief The service dial codes of the PBX: the numbering plan and the codes
/// dialled during a call.
class TELVIX_EXPORT ServiceListResMsg : public SXmlResponseMessage
{
public:
    /// Every type read gets an entry, empty or not; in-call codes fall back to
    /// fixed defaults when the server sends no "InCall" section.
    static ServiceListResMsg parseMessage(const QString& xml);
    /// Writes each code under its local key, which for a few numbering-plan
    /// types is not the element the reader looks for.
    QString generateXmlMessageBody() const override;

    QMap<TELVIX::ServiceDialCodeType, QString> codes;
};

/// \brief SIP and chat settings of the user.
class TELVIX_EXPORT CtiConfigurationRespMsg : public SXmlResponseMessage
{
public:
    static CtiConfigurationRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    ChatConfiguration chatConfiguration;
    SipConfiguration sipConfiguration;
};

/// \brief The answer to SendCommandReqMsg.
class TELVIX_EXPORT SendCommandRespMsg : public SXmlResponseMessage
{
public:
    static SendCommandRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    ServerCommandResponse commandResponse;
};

/// \brief A diagnostic message of the server.
class TELVIX_EXPORT DiagnosticRespMsg : public SXmlResponseMessage
{
public:
    static DiagnosticRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    DiagnosticMessage diagnosticMessage;
};

/// \brief The tenants the user may watch: tenant UUID to domain.
class TELVIX_EXPORT TenantsRespMsg : public SXmlResponseMessage
{
public:
    static TenantsRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QMap<QString, QString> tenants;
};

/// \brief An access token for the side connections.
class TELVIX_EXPORT AuthTokenResMsg : public SXmlResponseMessage
{
public:
    static AuthTokenResMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QString token;
    QDateTime validUntil;
};

/// \brief Notice that a new rebranding package waits on the server.
class TELVIX_EXPORT RebrandingPackChangedEventMsg : public SXmlResponseMessage
{
public:
    /// Reads the envelope only.
    static RebrandingPackChangedEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;
};
