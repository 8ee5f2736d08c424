#pragma once

#include "sxmlmessage.h"
#include "telvix_const.h"
#include "telvix_export.h"

#include <QMetaType>
#include <QString>
#include <QStringList>

namespace SARNET_XML {

// Login request
inline const QString S_COMMAND_LOGIN = QStringLiteral("Login");
inline const QString S_XMLTAG_USER = QStringLiteral("User");
inline const QString S_XMLTAG_PASSWORD = QStringLiteral("PWD");
inline const QString S_XMLTAG_DOMAIN = QStringLiteral("Domain");
inline const QString S_XMLTAG_APPMODE = QStringLiteral("Capabilities");
inline const QString S_XMLTAG_OS_TYPE = QStringLiteral("OSType");
inline const QString S_XMLTAG_OS_VERSION = QStringLiteral("OSVersion");
inline const QString S_XMLTAG_SW_TYPE = QStringLiteral("SwType");
inline const QString S_XMLTAG_SW_VERSION = QStringLiteral("SwVersion");
inline const QString S_XMLTAG_DEVICE_UUID = QStringLiteral("DeviceUuid");
inline const QString S_XMLTAG_OPTIONS = QStringLiteral("Options");
inline const QString S_XMLTAG_OPT_SIPPHONE = QStringLiteral("SipPhoneRequested");

// Logout
inline const QString S_COMMAND_LOGOFF = QStringLiteral("Logoff");

// Login answer
inline const QString S_EVENT_AUTHENTICATED = QStringLiteral("Authenticated");
inline const QString S_EVENT_LOGGEDOFF = QStringLiteral("LoggedOff");
inline const QString S_XMLTAG_EXITCODE = QStringLiteral("ExitCode");
inline const QString S_XMLTAG_CCROLE = QStringLiteral("CcRole");
inline const QString S_XMLTAG_FEATURES = QStringLiteral("Features");
inline const QString S_XMLTAG_USER_UUID = QStringLiteral("UserUuid");
inline const QString S_XMLTAG_MOBILE_NUMBER = QStringLiteral("MobileNumber");
inline const QString S_XMLTAG_CHAT_PORT = QStringLiteral("ChatPort");
inline const QString S_XMLTAG_FIRST_NAME = QStringLiteral("FirstName");
inline const QString S_XMLTAG_LAST_NAME = QStringLiteral("LastName");
inline const QString S_XMLTAG_SEEN_IP_ADDRESS = QStringLiteral("SeenIpAddress");
inline const QString S_XMLTAG_LOGIN_MESSAGE = QStringLiteral("LoginMessage");
inline const QString S_XMLTAG_FIRMWARE = QStringLiteral("VantorFirmwareVersion");
inline const QString S_XMLTAG_SERIAL_NUMBER = QStringLiteral("VantorSerialNumber");
inline const QString S_XMLTAG_PART_NUMBER = QStringLiteral("VantorPartNumber");

// Order to reconnect to another server
inline const QString S_EVENT_REDIRECTCONNECTION = QStringLiteral("RedirectConnection");
inline const QString S_XMLTAG_REDIRECTCONNECTION_SERVERIP = QStringLiteral("ServerIp");
inline const QString S_XMLTAG_REDIRECTCONNECTION_SERVERPORT = QStringLiteral("ServerPort");

} // namespace SARNET_XML

/// What the application learns about the user after a successful login.
class TELVIX_EXPORT LoginDetails
{
    Q_GADGET
    Q_PROPERTY(QString apiVersion MEMBER apiVersion)
    Q_PROPERTY(TELVIX::AppMode appMode MEMBER appMode)
    Q_PROPERTY(QString exten MEMBER exten)
    Q_PROPERTY(QString userUuid MEMBER userUuid)
    Q_PROPERTY(QString mobileNumber MEMBER mobileNumber)
    Q_PROPERTY(QString firstName MEMBER firstName)
    Q_PROPERTY(QString lastName MEMBER lastName)
    Q_PROPERTY(QString seenIpAddress MEMBER seenIpAddress)
    Q_PROPERTY(TELVIX::CallCenterRole ccRole MEMBER ccRole)
    Q_PROPERTY(QStringList features MEMBER features)
    Q_PROPERTY(QString firmwareVersion MEMBER firmwareVersion)
    Q_PROPERTY(QString serialNumber MEMBER serialNumber)
    Q_PROPERTY(QString partNumber MEMBER partNumber)
    Q_PROPERTY(QString loginMessage MEMBER loginMessage)

public:
    /// The server's API version.
    QString apiVersion;
    TELVIX::AppMode appMode = TELVIX::AppModeNone;
    QString exten;
    QString userUuid;
    QString mobileNumber;
    QString firstName;
    QString lastName;
    QString seenIpAddress;
    TELVIX::CallCenterRole ccRole = TELVIX::CallCenterRoleNone;
    QStringList features;
    QString firmwareVersion;
    QString serialNumber;
    QString partNumber;
    QString loginMessage;
};
Q_DECLARE_METATYPE(LoginDetails)

/// The login request. A mobile client that wants a SIP phone is sent as
/// "srnt_mobile" with the SipPhoneRequested option: the server never sees
/// the text "srnt_mobile_phone".
class TELVIX_EXPORT LoginReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;

    QString user;
    QString password;
    QString domain;
    TELVIX::AppMode appMode = TELVIX::AppModeNone;
    QString osType;
    QString osVersion;
    QString swType;
    QString swVersion;
    QString deviceUuid;
};

class TELVIX_EXPORT LogoutReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;
};

/// The server's answer to a login ("Authenticated"), also used for its
/// "LoggedOff" notice.
///
/// A refused login is not a parse failure: `success` stays true and
/// `exitCode` is non-zero (-1 when only "LoggedOff" says so). Callers test
/// both.
class TELVIX_EXPORT LoginRespMsg : public SXmlResponseMessage
{
public:
    static LoginRespMsg parseMessage(const QString& xml);
    /// Writes less than parseMessage reads: ExitCode, Reason (from
    /// errorMessage), Exten, UserUuid, CcRole and Features only.
    QString generateXmlMessageBody() const override;

    /// The record handed to the application, with the server's API version.
    LoginDetails toLoginDetails(const QString& apiVersion) const;

    qint32 exitCode = 0;
    QString reason;
    QString exten;
    QString domain;
    TELVIX::AppMode appMode = TELVIX::AppModeNone;
    TELVIX::CallCenterRole ccRole = TELVIX::CallCenterRoleNone;
    QStringList features;
    QString userUuid;
    QString mobileNumber;
    QString chatId;
    quint16 chatPort = 0;
    QString firstName;
    QString lastName;
    QString seenIpAddress;
    QString loginMessage;
    QString firmwareVersion;
    QString serialNumber;
    QString partNumber;
};

/// Order from the server to log in elsewhere. It derives from the request
/// family although the server sends it.
class TELVIX_EXPORT RedirectConnectionRespMsg : public SXmlRequestMessage
{
public:
    static RedirectConnectionRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QString serverIp;
    quint16 serverPort = 0;
};
