#pragma once

#include "telvix_export.h"

#include <QFlags>
#include <QMetaType>
#include <QObject>
#include <QPair>
#include <QRegExp>
#include <QString>

/// \brief Enumerations of the library, their wire texts and small helpers
/// shared by the message parsers and the client.
///
/// Every enumeration is a plain int32 whose numbers are fixed by the server
/// protocol. `...ToString` of a number outside its table gives an empty
/// string (unless the function says otherwise); `...FromString` of an unknown
/// text gives a per-enumeration default, documented at each function.
namespace TELVIX {
Q_NAMESPACE_EXPORT(TELVIX_EXPORT)

/// Busy-lamp state of a colleague's extension.
enum BlfStatus : qint32 {
    BlfNotFound = -1,
    BlfIdle = 0,
    BlfInUse = 1,
    BlfBusy = 2,
    BlfUnknown = 4, ///< what unknown text reads as; it has no text of its own
    BlfRinging = 8,
    BlfInUseRinging = 9,
    BlfOnHold = 16,
    BlfInUseOnHold = 17,
};
Q_ENUM_NS(BlfStatus)

enum DtmfMode : qint32 {
    DtmfNone = 0,
    DtmfRfc2833 = 1,
    DtmfSipInfo = 2,
    DtmfInband = 3,
};
Q_ENUM_NS(DtmfMode)

/// Verbosity of a diagnostic message.
enum MsgLevel : qint32 {
    MsgLevelInvalid = -1,
    MsgLevelFatal = 0,
    MsgLevelCritical = 1,
    MsgLevelWarning = 2,
    MsgLevelInfo = 3,
    MsgLevelDebug = 4,
    MsgLevelUserRequest = 5,
};
Q_ENUM_NS(MsgLevel)

enum ChatPresence : qint32 {
    ChatPresenceInvalid = -1,
    ChatPresenceOnline = 0,
    ChatPresenceAvailable = 1,
    ChatPresenceAway = 2,
    ChatPresenceBusy = 3,
    ChatPresenceXAway = 4,
    ChatPresenceOffline = 5,
};
Q_ENUM_NS(ChatPresence)

/// State of one voicemail message.
enum VmMsgType : qint32 {
    VmMsgInvalid = -1,
    VmMsgNew = 0,
    VmMsgOld = 1,
    VmMsgUrgent = 2,
};
Q_ENUM_NS(VmMsgType)

/// The voicemail states as a selection (bits may be combined).
enum VmMsgTypeFlag : qint32 {
    VmMsgFlagNone = 0,
    VmMsgFlagNew = 1,
    VmMsgFlagOld = 2,
    VmMsgFlagUrgent = 4,
    VmMsgFlagAll = 7,
};
Q_ENUM_NS(VmMsgTypeFlag)

/// Source of a contact.
enum ContactType : qint32 {
    ContactTypeExten = 0,
    ContactTypeZarafa = 1,
    ContactTypeGmail = 2,
    ContactTypeLinkedin = 3,
    ContactTypeFacebook = 4,
    ContactTypeOutlook = 5,
    ContactTypeExtenAlias = 6, ///< written as "exten" too, never read back as 6
};
Q_ENUM_NS(ContactType)

enum ContactNumberType : qint32 {
    NumTypeInvalid = -1,
    NumTypeWork = 0,
    NumTypeMobile = 1,
    NumTypeHome = 2,
};
Q_ENUM_NS(ContactNumberType)

/// What kind of client logs in; 6 and 7 are the mobile modes, 5 the logger.
enum AppMode : qint32 {
    AppModeInvalid = -1,
    AppModeNone = 0,
    AppModeSrntPro = 1,
    AppModeSrntPhone = 2,
    AppModeAtndCti = 3,
    AppModeAtndPhone = 4,
    AppModeSrntLog = 5,
    AppModeSrntMobile = 6,
    AppModeSrntMobilePhone = 7,
};
Q_ENUM_NS(AppMode)

/// Push service that delivers notifications to a mobile client.
enum NotificationService : qint32 {
    NotificationServiceNone = 0,
    NotificationServiceFirebase = 1,
    NotificationServiceApplePushKit = 2,
    NotificationServiceApplePushKitDev = 3,
    NotificationServiceApns = 4,
    NotificationServiceApnsDev = 5,
};
Q_ENUM_NS(NotificationService)

enum CallCenterRole : qint32 {
    CallCenterRoleNone = 0,
    CallCenterRoleOperator = 1,
    CallCenterRoleSupervisor = 2,
};
Q_ENUM_NS(CallCenterRole)

/// Time window of queue statistics; `PeriodCustom` is given by dates.
enum PeriodType : qint32 {
    PeriodInvalid = -1,
    PeriodLastHour = 0,
    PeriodToday = 1,
    PeriodCurrWeek = 2,
    PeriodCurrMonth = 3,
    Period30Days = 4,
    Period60Days = 5,
    Period90Days = 6,
    PeriodYesterday = 7,
    PeriodPrevWeek = 8,
    PeriodPrevMonth = 9,
    PeriodCustom = 10,
};
Q_ENUM_NS(PeriodType)

enum QueueOperatorMembership : qint32 {
    QueueOperatorMemberInvalid = -1,
    QueueOperatorMemberStatic = 0,
    QueueOperatorMemberDynamic = 1,
};
Q_ENUM_NS(QueueOperatorMembership)

/// Dial codes of the PBX services: 1 to 21 belong to the numbering plan,
/// 22 to 30 are dialled during a call.
enum ServiceDialCodeType : qint32 {
    ServiceEcho = 1,
    ServiceVoicemail = 2,
    ServiceConference = 3,
    ServiceDisa = 4,
    ServicePickUp = 5,
    ServiceParkCode = 6,
    ServiceParkFirstSlot = 7,
    ServiceParkLastSlot = 8,
    ServiceDirectPickUp = 9,
    ServiceUfwdSet = 10,
    ServiceUfwdUnset = 11,
    ServiceSpeedDial = 12,
    ServiceSpeedDialPers = 13,
    ServiceSuperDirectPickUp = 14,
    ServiceSuperGroupPickUp = 15,
    ServiceSpy = 16,
    ServiceForkMobileSet = 17,
    ServiceForkMobileUnset = 18,
    ServiceElectLock = 19,
    ServiceElectUnlock = 20,
    ServiceOutboundPrefix = 21,
    InCallAtXfer = 22,
    InCallAtXferCancel = 23,
    InCallAtXferShuttle = 24,
    InCallAtXfer3Conf = 25,
    InCallBlindXfer = 26,
    InCallFastTransfer = 27,
    InCallRecording = 28,
    InCallParking = 29,
    InCallCancel = 30,
};
Q_ENUM_NS(ServiceDialCodeType)

/// Which contact sources a phone-book update carries.
enum PhonebookTypeFlag : qint32 {
    PhonebookTypePhonebooks = 0x1,
    PhonebookTypeExtensions = 0x2,
};
Q_DECLARE_FLAGS(PhonebookTypeFlags, PhonebookTypeFlag)
Q_FLAG_NS(PhonebookTypeFlags)

/// Prefix rule of a new call.
enum NumberOutgoingPrefix : qint32 {
    NumberPrefixAuto = 0, ///< chosen by the number
    NumberPrefixExternal = 1, ///< forces an external call
    NumberPrefixNone = 2, ///< sets no call type
};
Q_ENUM_NS(NumberOutgoingPrefix)

/// Where a call comes from and goes to.
enum CallAttribute : qint32 {
    CallAttrNone = 0,
    CallAttrFromLocalExten = 0x1,
    CallAttrFromIbl = 0x2,
    CallAttrFromRemoteExten = 0x4,
    CallAttrToRemoteExten = 0x8,
    CallAttrToLocalExten = 0x10,
    CallAttrToObl = 0x20,
    CallAttrToQueue = 0x40,
    CallAttrToCallg = 0x80,
    CallAttrToService = 0x100,
    CallAttrReturnFromTransfer = 0x200, ///< no wire text
    CallAttrClickToCall = 0x400, ///< no wire text
    CallAttrAnonymousCaller = 0x800, ///< no wire text
    CallAttrFromConference = 0x1000,
    CallAttrToApp = 0x2000,
    CallAttrToMobileExten = 0x4000,
    CallAttrToFax = 0x8000,
    CallAttrToIvr = 0x10000,
    CallAttrToExternalNumber = 0x20000,
    CallAttrToLcr = 0x40000,
    CallAttrFromApp = 0x80000,
    CallAttrFromMobileExten = 0x100000,
    CallAttrFromFax = 0x200000,
};
Q_DECLARE_FLAGS(CallAttributes, CallAttribute)
Q_FLAG_NS(CallAttributes)

// ---- conversions -----------------------------------------------------------

/// Unknown text gives `BlfUnknown` (4), deliberately not `BlfNotFound`.
TELVIX_EXPORT QString blfStatusToString(BlfStatus status);
TELVIX_EXPORT BlfStatus blfStatusFromString(const QString& text);

/// Unknown text gives `DtmfNone`.
TELVIX_EXPORT QString dtmfModeToString(DtmfMode mode);
TELVIX_EXPORT DtmfMode dtmfModeFromString(const QString& text);

/// Unknown text gives `MsgLevelInvalid`.
TELVIX_EXPORT QString msgLevelToString(MsgLevel level);
TELVIX_EXPORT MsgLevel msgLevelFromString(const QString& text);

/// Unknown text gives `ChatPresenceInvalid`.
TELVIX_EXPORT QString chatPresenceToString(ChatPresence presence);
TELVIX_EXPORT ChatPresence chatPresenceFromString(const QString& text);

/// Unknown text gives `VmMsgInvalid`.
TELVIX_EXPORT QString vmMsgTypeToString(VmMsgType type);
TELVIX_EXPORT VmMsgType vmMsgTypeFromString(const QString& text);

/// Knows single bits only. Empty text selects all three states, unknown text
/// none.
TELVIX_EXPORT QString vmMsgTypeFlagToString(VmMsgTypeFlag flag);
TELVIX_EXPORT VmMsgTypeFlag vmMsgTypeFlagFromString(const QString& text);

/// Reading lower-cases the text first; unknown text gives `ContactTypeZarafa`.
TELVIX_EXPORT QString contactTypeToString(ContactType type);
TELVIX_EXPORT ContactType contactTypeFromString(const QString& text);

/// Unknown text gives `NumTypeInvalid`.
TELVIX_EXPORT QString numTypeToString(ContactNumberType type);
TELVIX_EXPORT ContactNumberType numTypeFromString(const QString& text);

/// Empty text gives `AppModeNone`, unknown text `AppModeInvalid`.
TELVIX_EXPORT QString appModeToString(AppMode mode);
TELVIX_EXPORT AppMode appModeFromString(const QString& text);

/// Empty or unknown text gives `NotificationServiceNone`.
TELVIX_EXPORT QString notificationServiceToString(NotificationService service);
TELVIX_EXPORT NotificationService notificationServiceFromString(const QString& text);

/// Reading upper-cases the text first; unknown text gives `CallCenterRoleNone`.
TELVIX_EXPORT QString callCenterRoleToString(CallCenterRole role);
TELVIX_EXPORT CallCenterRole callCenterRoleFromString(const QString& text);

/// Unknown text gives `PeriodInvalid`.
TELVIX_EXPORT QString periodTypeToString(PeriodType period);
TELVIX_EXPORT PeriodType periodTypeFromString(const QString& text);

/// Case-insensitive reading; unknown text gives `QueueOperatorMemberInvalid`,
/// and any number outside the table is written as `QueueOperatorMemberInvalidStr`.
TELVIX_EXPORT QString queueOperatorMembershipToString(QueueOperatorMembership membership);
TELVIX_EXPORT QueueOperatorMembership queueOperatorMembershipFromString(const QString& text);

/// Key of a service code on the local side (not the server's element name).
TELVIX_EXPORT QString serviceDialCodeTypeToString(ServiceDialCodeType type);
TELVIX_EXPORT bool isNumberingPlanServiceDialCode(ServiceDialCodeType type);
TELVIX_EXPORT bool isInCallServiceDialCode(ServiceDialCodeType type);

/// Comma-separated texts of the set attributes, in a fixed order; the
/// attributes without text are left out.
TELVIX_EXPORT QString getCallAttributeString(const QFlags<TELVIX::CallAttribute>& attributes);
/// Parts that name no attribute are ignored.
TELVIX_EXPORT QFlags<TELVIX::CallAttribute> getCallAttributeValue(const QString& text);

// ---- number, address and version helpers -----------------------------------

/// True if the number hides its caller (`SipAnonymousCaller`, any case).
TELVIX_EXPORT bool isNumAnonymous(const QString& number);

/// Splits "host:port"; without a port (or with one above 65535) the port is 0.
/// A bare IPv6 address is not split at its colons.
TELVIX_EXPORT QPair<QString, quint16> getIpPort(const QString& address);

/// Account of a channel "tech/account-suffix", as the old servers expect it:
/// the cuts use positions in the whole channel, so the result keeps as many
/// characters of the suffix as the technology prefix is long.
TELVIX_EXPORT QString getAccountFromChannel(const QString& channel);

/// (name, number) of a SIP URI such as `"Name" <sip:1000@host>`; hidden or
/// unusable numbers give (`AnonymousName`, `AnonymousNumber`).
TELVIX_EXPORT QPair<QString, QString> getNameNumPairFromUri(const QString& uri);

/// Compares versions part by part, numerically where both parts are numbers.
/// Returns -1, 0 or 1. A version that is a prefix of the other is the greater.
TELVIX_EXPORT int compareVersions(const QString& a, const QString& b);

// ---- constants ---------------------------------------------------------------

inline const QString AnonymousName = QStringLiteral("Anonymous");
inline const QString AnonymousNumber = QStringLiteral("anonymous");
inline const QString SipAnonymousCaller = QStringLiteral("anonymous");
inline const QString UnknownName = QStringLiteral("Unknown");
inline const QString UnknownCallNumber = QStringLiteral("unknown");
inline const QString UnknownCdrNumber = QStringLiteral("Anonimo");
inline const QString UnknownUnistimID = QStringLiteral("unknown");
inline const QString OutsideCallNumber = QStringLiteral("outsidecall");
inline const QString LocalInternationalPrefix = QStringLiteral("39");
inline const QString SipProtoDefault = QStringLiteral("UDP");
inline const QString IsoDateNoTz = QStringLiteral("yyyy-MM-ddThh:mm:ss.zzz");

inline const QString CallTypeInboundStr = QStringLiteral("inbound");
inline const QString CallTypeOutboundStr = QStringLiteral("outbound");
inline const QString CallTypeLocalExtenStr = QStringLiteral("local_exten");
inline const QString CallTypeRemoteExtenStr = QStringLiteral("remote_exten");
inline const QString CalLTypeC2cStr = QStringLiteral("c2c");
inline const QString CallTypeC2cMobileStr = QStringLiteral("c2c_mobile");
inline const QString CallTypeUnknownStr = QStringLiteral("None");
inline const QString CallRemoteTypeExternalStr = QStringLiteral("external");
inline const QString CallRemoteTypeInternalStr = QStringLiteral("internal");

inline const QString QueueOperatorMemberStaticStr = QStringLiteral("static");
inline const QString QueueOperatorMemberDynamicStr = QStringLiteral("dynamic");
inline const QString QueueOperatorMemberInvalidStr = QStringLiteral("None");

inline const QString ChatDisconnectionKeepAliveReplyTimeout = QStringLiteral("KeepAliveReplyTimeout");
inline const QString ChatDisconnectionServerRefused = QStringLiteral("ServerRefused");
inline const QString ChatDisconnectionUserRequest = QStringLiteral("UserRequest");

/// What is stripped from a dialled number: brackets, white space, "-", ",",
/// ".", "/" and "\". QRegExp keeps match state, so use it through
/// QString::remove/replace (which copy it) or copy it before `indexIn`.
inline const QRegExp PurifyNumRx(QStringLiteral("[\\(\\)\\s-,\\.\\/\\\\]"), Qt::CaseSensitive);

// Desk-phone keys.
inline const QString PHONE_KEY_0 = QStringLiteral("0");
inline const QString PHONE_KEY_1 = QStringLiteral("1");
inline const QString PHONE_KEY_2 = QStringLiteral("2");
inline const QString PHONE_KEY_3 = QStringLiteral("3");
inline const QString PHONE_KEY_4 = QStringLiteral("4");
inline const QString PHONE_KEY_5 = QStringLiteral("5");
inline const QString PHONE_KEY_6 = QStringLiteral("6");
inline const QString PHONE_KEY_7 = QStringLiteral("7");
inline const QString PHONE_KEY_8 = QStringLiteral("8");
inline const QString PHONE_KEY_9 = QStringLiteral("9");
inline const QString PHONE_KEY_STAR = QStringLiteral("STAR");
inline const QString PHONE_KEY_POUND = QStringLiteral("POUND");
inline const QString PHONE_KEY_OK = QStringLiteral("OK");
inline const QString PHONE_KEY_ENTER = QStringLiteral("ENTER");
inline const QString PHONE_KEY_MUTE = QStringLiteral("MUTE");
inline const QString PHONE_KEY_X = QStringLiteral("X");
inline const QString PHONE_KEY_REC = QStringLiteral("REC");
inline const QString PHONE_KEY_SPEAKER = QStringLiteral("SPEAKER");
inline const QString PHONE_KEY_TRANSFER = QStringLiteral("TRANSFER");
inline const QString PHONE_KEY_CANCEL = QStringLiteral("CANCEL");
inline const QString PHONE_KEY_ANSWER = QStringLiteral("ANSWER");
inline const QString PHONE_KEY_CALLEND = QStringLiteral("CALLEND");
inline const QString PHONE_KEY_HOOK_ON = QStringLiteral("ONHOOK");
inline const QString PHONE_KEY_HOOK_OFF = QStringLiteral("OFFHOOK");
inline const QString PHONE_KEY_REDIAL = QStringLiteral("REDIAL");
inline const QString PHONE_KEY_DND_ON = QStringLiteral("DNDOn");
inline const QString PHONE_KEY_DND_OFF = QStringLiteral("DNDOff");
inline const QString PHONE_KEY_HEADSET = QStringLiteral("HEADSET");
inline const QString PHONE_KEY_HOLD = QStringLiteral("HOLD");
/// True for exactly the PHONE_KEY_* texts, case-sensitive.
TELVIX_EXPORT bool isValidPhoneKey(const QString& key);

} // namespace TELVIX

Q_DECLARE_OPERATORS_FOR_FLAGS(TELVIX::PhonebookTypeFlags)
Q_DECLARE_OPERATORS_FOR_FLAGS(TELVIX::CallAttributes)
