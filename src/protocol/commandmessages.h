#pragma once

#include "sarnetxml.h"
#include "sxmlmessage.h"
#include "telvix_export.h"

#include <QMetaType>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

namespace SARNET_XML {

// Calls
inline const QString S_COMMAND_MAKE_CALL = QStringLiteral("C2C");
inline const QString S_COMMAND_MAKE_CALL_TOWARD_MOBILE = QStringLiteral("C2CTowardMobile");
inline const QString S_XMLTAG_C2C_FROM = QStringLiteral("FromNumber");
inline const QString S_XMLTAG_C2C_TYPE = QStringLiteral("NumberType");
inline const QString S_COMMAND_HANGUP_CALL = QStringLiteral("Hangup");
inline const QString S_XMLTAG_CALL_CHANNEL = QStringLiteral("Channel");
inline const QString S_COMMAND_REDIRECT_CALL = QStringLiteral("RedirectCall");
inline const QString S_COMMAND_REDIRECT_CALL_TO_MOBILE = QStringLiteral("RedirectCallToMobile");
inline const QString S_XMLTAG_CALL_TO_NUMBER = QStringLiteral("ToNumber");
inline const QString S_COMMAND_BRIDGE_CHANNELS = QStringLiteral("BridgeChannels");
inline const QString S_XMLTAG_CALL_CHANNEL1 = QStringLiteral("channel1");
inline const QString S_XMLTAG_CALL_CHANNEL2 = QStringLiteral("channel2");
inline const QString S_COMMAND_PARK_CALL = QStringLiteral("ParkCall");
inline const QString S_XMLTAG_CALL_PARKED_CHANNEL = QStringLiteral("parkedChannel");
inline const QString S_XMLTAG_CALL_PARKING_CHANNEL = QStringLiteral("parkingChannel");
inline const QString S_COMMAND_GET_CHANNEL_STATUS = QStringLiteral("GetChannelStatus");
inline const QString S_XMLTAG_CHANSTATUS_CHANNEL = QStringLiteral("Channel");

// Services
inline const QString S_COMMAND_SET_UFWD = QStringLiteral("UFWDSet");
inline const QString S_COMMAND_UNSET_UFWD = QStringLiteral("UFWDDel");
inline const QString S_COMMAND_SET_FORKTOMOBILE = QStringLiteral("ForkToMobileSet");
inline const QString S_COMMAND_UNSET_FORKTOMOBILE = QStringLiteral("ForkToMobileUnset");
inline const QString S_COMMAND_GET_SERVICE_STATUS = QStringLiteral("GetServiceStatus");
inline const QString S_COMMAND_GET_SERVICE_LIST = QStringLiteral("GetServicesCode");
inline const QString S_COMMAND_GET_CTI_CONFIGURATION = QStringLiteral("GetCtiConfiguration");

// Tenants, tokens and server commands
inline const QString S_COMMAND_GET_TENANTS = QStringLiteral("GetTenantList");
inline const QString S_COMMAND_SUBSCRIBE_TENANT_EVENTS = QStringLiteral("SubscribeTenantEvents");
inline const QString S_XMLTAG_TENANT_ID = QStringLiteral("TenantUuid");
inline const QString S_COMMAND_GET_AUTH_TOKEN = QStringLiteral("GetAuthToken");
inline const QString S_COMMAND_SET_DEVICE_TOKEN = QStringLiteral("SetNotificationServiceToken");
inline const QString S_XMLTAG_DEVICE_TOKEN = QStringLiteral("Token");
inline const QString S_XMLTAG_NOTIFICATION_SERVICE = QStringLiteral("ServiceType");
inline const QString S_COMMAND_SEND_CMD = QStringLiteral("SendCommand");
inline const QString S_XMLTAG_SRVCMD_COMMAND = QStringLiteral("Command");
inline const QString S_XMLTAG_SRVCMD_PARAMS = QStringLiteral("ParamList");
inline const QString S_XMLTAG_SRVCMD_PARAM = QStringLiteral("Param");

} // namespace SARNET_XML

/// \brief A command for the server to run, with its parameters in order.
struct TELVIX_EXPORT ServerCommand
{
    Q_GADGET
    Q_PROPERTY(QString requestId MEMBER requestId)
    Q_PROPERTY(QString command MEMBER command)
    Q_PROPERTY(QStringList params MEMBER params)
public:
    /// Echoed by the server in its answer; never written by the request.
    QString requestId;
    QString command;
    QStringList params;

    bool operator==(const ServerCommand& other) const;
    bool operator!=(const ServerCommand& other) const { return !(*this == other); }
};
Q_DECLARE_METATYPE(ServerCommand)

/// \brief A request whose body is its bare command element, `<Command/>`.
template <const QString& Command> class EmptyCommandReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override { return EMPTYTAG(Command); }
};

using UFWDUnsetReqMsg = EmptyCommandReqMsg<SARNET_XML::S_COMMAND_UNSET_UFWD>;
using ForkToMobileUnsetReqMsg = EmptyCommandReqMsg<SARNET_XML::S_COMMAND_UNSET_FORKTOMOBILE>;
using GetServiceStatusReqMsg = EmptyCommandReqMsg<SARNET_XML::S_COMMAND_GET_SERVICE_STATUS>;
using GetServiceListReqMsg = EmptyCommandReqMsg<SARNET_XML::S_COMMAND_GET_SERVICE_LIST>;
using GetCtiConfigurationReqMsg = EmptyCommandReqMsg<SARNET_XML::S_COMMAND_GET_CTI_CONFIGURATION>;
using GetTenantsReqMsg = EmptyCommandReqMsg<SARNET_XML::S_COMMAND_GET_TENANTS>;

/// \brief A request whose body is its command element holding text elements
/// in a fixed order. Each subclass only states that layout in `body()`.
class TELVIX_EXPORT TextFieldsReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const final;

protected:
    /// The command element and its (element, text) children in wire order.
    struct Body
    {
        QString command;
        QVector<QPair<QString, QString>> fields;
    };
    virtual Body body() const = 0;
};

/// \brief Click-to-call: the server rings `fromNumber` and then dials `toNumber`.
class TELVIX_EXPORT MakeCallReqMsg : public TextFieldsReqMsg
{
public:
    QString toNumber;
    QString fromNumber;
    QString numberType;

protected:
    Body body() const override;
};

/// \brief Click-to-call that starts from the user's mobile phone.
class TELVIX_EXPORT MakeCallToMobileReqMsg : public MakeCallReqMsg
{
protected:
    Body body() const override;
};

/// \brief Ends one channel; the reason is sent only when there is one.
class TELVIX_EXPORT HangupCallReqMsg : public TextFieldsReqMsg
{
public:
    QString channel;
    QString reason;

protected:
    Body body() const override;
};

/// \brief Sends a ringing or connected channel elsewhere.
class TELVIX_EXPORT RedirectCallReqMsg : public TextFieldsReqMsg
{
public:
    QString channel;
    QString toNumber;

protected:
    Body body() const override;
};

/// \brief Sends a channel to the user's mobile phone.
class TELVIX_EXPORT RedirectCallToMobileReqMsg : public TextFieldsReqMsg
{
public:
    QString channel;

protected:
    Body body() const override;
};

/// \brief Connects two channels with each other.
class TELVIX_EXPORT BridgeCallsReqMsg : public TextFieldsReqMsg
{
public:
    QString channel1;
    QString channel2;

protected:
    Body body() const override;
};

/// \brief Parks `parkedChannel`; `parkingChannel` hears the slot.
class TELVIX_EXPORT ParkCallReqMsg : public TextFieldsReqMsg
{
public:
    QString parkedChannel;
    QString parkingChannel;

protected:
    Body body() const override;
};

/// \brief Turns on the unconditional forward towards `exten`.
class TELVIX_EXPORT UFWDSetReqMsg : public TextFieldsReqMsg
{
public:
    QString exten;

protected:
    Body body() const override;
};

/// \brief Asks who is on the other side of a channel.
class TELVIX_EXPORT ChannelStatusReqMsg : public TextFieldsReqMsg
{
public:
    QString channel;

protected:
    Body body() const override;
};

/// \brief Asks for the events of one tenant.
class TELVIX_EXPORT SubscribeTenantEventsReqMsg : public TextFieldsReqMsg
{
public:
    QString tenantUuid;

protected:
    Body body() const override;
};

/// \brief Registers the push token of a mobile device.
class TELVIX_EXPORT SetDeviceTokenReqMsg : public TextFieldsReqMsg
{
public:
    QString deviceToken;
    /// Wire text of the push service ("FIREBASE", ..., or "AUTO").
    QString serviceType;

protected:
    Body body() const override;
};

/// \brief Turns on ringing the user's mobile phone together with the desk.
class TELVIX_EXPORT ForkToMobileSetReqMsg : public SXmlRequestMessage
{
public:
    /// Servers up to "5.1" want a text in the element, later ones an empty one.
    QString generateXmlMessageBody() const override;
};

/// \brief Asks for an access token of the side connections.
class TELVIX_EXPORT AuthTokenReqMsg : public SXmlRequestMessage
{
public:
    /// Always an open and a close tag, never the short empty form.
    QString generateXmlMessageBody() const override;
};

/// \brief Runs a command on the server; the answer is a SendCommandRespMsg.
class TELVIX_EXPORT SendCommandReqMsg : public SXmlRequestMessage
{
public:
    SendCommandReqMsg() = default;
    explicit SendCommandReqMsg(const ServerCommand& serverCommand);

    QString generateXmlMessageBody() const override;

    /// Kept for the caller to match the answer; not written.
    QString requestId;
    QString command;
    QStringList params;
};
