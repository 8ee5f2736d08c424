#include "telvix_const.h"

#include <QStringList>

#include <iterator>

namespace TELVIX {

namespace {

// One row of a conversion table: a number and its wire text.
template <typename E> struct WireText
{
    E value;
    const char* text;
};

template <typename E, std::size_t N> QString textOf(const WireText<E> (&table)[N], E value)
{
    for (const auto& row : table) {
        if (row.value == value)
            return QString::fromLatin1(row.text);
    }
    return QString();
}

// The first row whose text matches wins, so a table may hold an alias for
// writing after the row that reads.
template <typename E, std::size_t N>
E valueOf(const WireText<E> (&table)[N], const QString& text, E fallback,
          Qt::CaseSensitivity cs = Qt::CaseSensitive)
{
    for (const auto& row : table) {
        if (text.compare(QLatin1String(row.text), cs) == 0)
            return row.value;
    }
    return fallback;
}

constexpr WireText<BlfStatus> blfStatusTable[] = {
    {BlfNotFound, "NOTFOUND"}, {BlfIdle, "IDLE"},
    {BlfInUse, "INUSE"},       {BlfBusy, "BUSY"},
    {BlfRinging, "RINGING"},   {BlfInUseRinging, "INUSE_RINGING"},
    {BlfOnHold, "ONHOLD"},     {BlfInUseOnHold, "INUSE_ONHOLD"},
};

constexpr WireText<DtmfMode> dtmfModeTable[] = {
    {DtmfRfc2833, "RFC2833"},
    {DtmfSipInfo, "SIPINFO"},
    {DtmfInband, "INBAND"},
};

constexpr WireText<MsgLevel> msgLevelTable[] = {
    {MsgLevelFatal, "FATAL"}, {MsgLevelCritical, "CRITICAL"}, {MsgLevelWarning, "WARNING"},
    {MsgLevelInfo, "INFO"},   {MsgLevelDebug, "DEBUG"},       {MsgLevelUserRequest, "USER REQUEST"},
};

constexpr WireText<ChatPresence> chatPresenceTable[] = {
    {ChatPresenceOnline, "ONLINE"}, {ChatPresenceAvailable, "AVAILABLE"}, {ChatPresenceAway, "AWAY"},
    {ChatPresenceBusy, "BUSY"},     {ChatPresenceXAway, "XAWAY"},         {ChatPresenceOffline, "OFFLINE"},
};

constexpr WireText<VmMsgType> vmMsgTypeTable[] = {
    {VmMsgNew, "NEW"},
    {VmMsgOld, "OLD"},
    {VmMsgUrgent, "URGENT"},
};

constexpr WireText<VmMsgTypeFlag> vmMsgTypeFlagTable[] = {
    {VmMsgFlagNew, "NEW"},
    {VmMsgFlagOld, "OLD"},
    {VmMsgFlagUrgent, "URGENT"},
};

constexpr WireText<ContactType> contactTypeTable[] = {
    {ContactTypeExten, "exten"},       {ContactTypeZarafa, "zarafa"},     {ContactTypeGmail, "gmail"},
    {ContactTypeLinkedin, "linkedin"}, {ContactTypeFacebook, "facebook"}, {ContactTypeOutlook, "outlook"},
    {ContactTypeExtenAlias, "exten"},
};

constexpr WireText<ContactNumberType> numTypeTable[] = {
    {NumTypeWork, "WORK"},
    {NumTypeMobile, "MOBILE"},
    {NumTypeHome, "HOME"},
};

constexpr WireText<AppMode> appModeTable[] = {
    {AppModeSrntPro, "srnt_pro"},
    {AppModeSrntPhone, "srnt_phone"},
    {AppModeAtndCti, "atnd_cti"},
    {AppModeAtndPhone, "atnd_phone"},
    {AppModeSrntLog, "srntlog"},
    {AppModeSrntMobile, "srnt_mobile"},
    {AppModeSrntMobilePhone, "srnt_mobile_phone"},
};

constexpr WireText<NotificationService> notificationServiceTable[] = {
    {NotificationServiceFirebase, "FIREBASE"},
    {NotificationServiceApplePushKit, "APPLEPUSHKIT"},
    {NotificationServiceApplePushKitDev, "APPLEPUSHKIT_DEV"},
    {NotificationServiceApns, "APNS"},
    {NotificationServiceApnsDev, "APNS_DEV"},
};

constexpr WireText<CallCenterRole> callCenterRoleTable[] = {
    {CallCenterRoleOperator, "OPERATOR"},
    {CallCenterRoleSupervisor, "SUPERVISOR"},
};

constexpr WireText<PeriodType> periodTypeTable[] = {
    {PeriodLastHour, "LASTHOUR"},   {PeriodToday, "TODAY"},         {PeriodCurrWeek, "CURRWEEK"},
    {PeriodCurrMonth, "CURRMONTH"}, {Period30Days, "30DAYS"},       {Period60Days, "60DAYS"},
    {Period90Days, "90DAYS"},       {PeriodYesterday, "YESTERDAY"}, {PeriodPrevWeek, "PREVWEEK"},
    {PeriodPrevMonth, "PREVMONTH"}, {PeriodCustom, "CUSTOM"},
};

constexpr WireText<QueueOperatorMembership> queueOperatorMembershipTable[] = {
    {QueueOperatorMemberStatic, "static"},
    {QueueOperatorMemberDynamic, "dynamic"},
};

constexpr WireText<ServiceDialCodeType> serviceDialCodeTypeTable[] = {
    {ServiceEcho, "echo"},
    {ServiceVoicemail, "voicemail"},
    {ServiceConference, "conference"},
    {ServiceDisa, "disa"},
    {ServicePickUp, "pickUp"},
    {ServiceParkCode, "parkcode"},
    {ServiceParkFirstSlot, "parkFirstSlot"},
    {ServiceParkLastSlot, "parkLastSlot"},
    {ServiceDirectPickUp, "directPickUp"},
    {ServiceUfwdSet, "ufwdSet"},
    {ServiceUfwdUnset, "ufwdUnset"},
    {ServiceSpeedDial, "speedDial"},
    {ServiceSpeedDialPers, "speedDialPers"},
    {ServiceSuperDirectPickUp, "superDirectPickUp"},
    {ServiceSuperGroupPickUp, "superGroupPickUp"},
    {ServiceSpy, "spy"},
    {ServiceForkMobileSet, "forkMobileSet"},
    {ServiceForkMobileUnset, "forkMobileUnset"},
    {ServiceElectLock, "electLock"},
    {ServiceElectUnlock, "electUnlock"},
    {ServiceOutboundPrefix, "outboundPrefix"},
    {InCallAtXfer, "atXfer"},
    {InCallAtXferCancel, "atXferCancel"},
    {InCallAtXferShuttle, "atXferShuttle"},
    {InCallAtXfer3Conf, "atXfer3Conf"},
    {InCallBlindXfer, "blindXfer"},
    {InCallFastTransfer, "fastTransfer"},
    {InCallRecording, "recording"},
    {InCallParking, "parking"},
    {InCallCancel, "cancel"},
};

// In the order in which the attribute string lists them. The attributes
// without text (transfer return, click-to-call, anonymous caller) are absent.
constexpr WireText<CallAttribute> callAttributeTable[] = {
    {CallAttrFromLocalExten, "from_local_exten"},
    {CallAttrToLocalExten, "to_local_exten"},
    {CallAttrFromIbl, "from_ibl"},
    {CallAttrToObl, "to_obl"},
    {CallAttrToCallg, "to_callg"},
    {CallAttrToQueue, "to_queue"},
    {CallAttrFromConference, "from_conference"},
    {CallAttrToService, "to_service"},
    {CallAttrFromRemoteExten, "from_remote_exten"},
    {CallAttrToRemoteExten, "to_remote_exten"},
    {CallAttrFromApp, "from_app"},
    {CallAttrFromMobileExten, "from_mobile_exten"},
    {CallAttrFromFax, "from_fax"},
    {CallAttrToApp, "to_app"},
    {CallAttrToMobileExten, "to_mobile_exten"},
    {CallAttrToFax, "to_fax"},
    {CallAttrToIvr, "to_ivr"},
    {CallAttrToExternalNumber, "to_external_number"},
    {CallAttrToLcr, "to_lcr"},
};

// Enumerations declared with Q_ENUM_NS register under their qualified names
// ("TELVIX::AppMode"); queued calls need them registered before first use.
void registerTelvixTypes()
{
    qRegisterMetaType<BlfStatus>();
    qRegisterMetaType<DtmfMode>();
    qRegisterMetaType<MsgLevel>();
    qRegisterMetaType<ChatPresence>();
    qRegisterMetaType<VmMsgType>();
    qRegisterMetaType<VmMsgTypeFlag>();
    qRegisterMetaType<ContactType>();
    qRegisterMetaType<ContactNumberType>();
    qRegisterMetaType<AppMode>();
    qRegisterMetaType<NotificationService>();
    qRegisterMetaType<CallCenterRole>();
    qRegisterMetaType<PeriodType>();
    qRegisterMetaType<QueueOperatorMembership>();
    qRegisterMetaType<ServiceDialCodeType>();
    qRegisterMetaType<NumberOutgoingPrefix>();
    qRegisterMetaType<PhonebookTypeFlags>();
    qRegisterMetaType<CallAttributes>();
    // Signals spell the flag sets out as QFlags<...>, and queued connections
    // look the type up by that spelling.
    qRegisterMetaType<PhonebookTypeFlags>("QFlags<TELVIX::PhonebookTypeFlag>");
    qRegisterMetaType<CallAttributes>("QFlags<TELVIX::CallAttribute>");
}

} // namespace

QString blfStatusToString(BlfStatus status)
{
    return textOf(blfStatusTable, status);
}

BlfStatus blfStatusFromString(const QString& text)
{
    return valueOf(blfStatusTable, text, BlfUnknown);
}

QString dtmfModeToString(DtmfMode mode)
{
    return textOf(dtmfModeTable, mode);
}

DtmfMode dtmfModeFromString(const QString& text)
{
    return valueOf(dtmfModeTable, text, DtmfNone);
}

QString msgLevelToString(MsgLevel level)
{
    return textOf(msgLevelTable, level);
}

MsgLevel msgLevelFromString(const QString& text)
{
    return valueOf(msgLevelTable, text, MsgLevelInvalid);
}

QString chatPresenceToString(ChatPresence presence)
{
    return textOf(chatPresenceTable, presence);
}

ChatPresence chatPresenceFromString(const QString& text)
{
    return valueOf(chatPresenceTable, text, ChatPresenceInvalid);
}

QString vmMsgTypeToString(VmMsgType type)
{
    return textOf(vmMsgTypeTable, type);
}

VmMsgType vmMsgTypeFromString(const QString& text)
{
    return valueOf(vmMsgTypeTable, text, VmMsgInvalid);
}

QString vmMsgTypeFlagToString(VmMsgTypeFlag flag)
{
    return textOf(vmMsgTypeFlagTable, flag);
}

VmMsgTypeFlag vmMsgTypeFlagFromString(const QString& text)
{
    // No selection on the wire means every state.
    if (text.isEmpty())
        return VmMsgFlagAll;
    return valueOf(vmMsgTypeFlagTable, text, VmMsgFlagNone);
}

QString contactTypeToString(ContactType type)
{
    return textOf(contactTypeTable, type);
}

ContactType contactTypeFromString(const QString& text)
{
    return valueOf(contactTypeTable, text.toLower(), ContactTypeZarafa);
}

QString numTypeToString(ContactNumberType type)
{
    return textOf(numTypeTable, type);
}

ContactNumberType numTypeFromString(const QString& text)
{
    return valueOf(numTypeTable, text, NumTypeInvalid);
}

QString appModeToString(AppMode mode)
{
    return textOf(appModeTable, mode);
}

AppMode appModeFromString(const QString& text)
{
    if (text.isEmpty())
        return AppModeNone;
    return valueOf(appModeTable, text, AppModeInvalid);
}

QString notificationServiceToString(NotificationService service)
{
    return textOf(notificationServiceTable, service);
}

NotificationService notificationServiceFromString(const QString& text)
{
    return valueOf(notificationServiceTable, text, NotificationServiceNone);
}

QString callCenterRoleToString(CallCenterRole role)
{
    return textOf(callCenterRoleTable, role);
}

CallCenterRole callCenterRoleFromString(const QString& text)
{
    return valueOf(callCenterRoleTable, text.toUpper(), CallCenterRoleNone);
}

QString periodTypeToString(PeriodType period)
{
    return textOf(periodTypeTable, period);
}

PeriodType periodTypeFromString(const QString& text)
{
    return valueOf(periodTypeTable, text, PeriodInvalid);
}

QString queueOperatorMembershipToString(QueueOperatorMembership membership)
{
    const QString text = textOf(queueOperatorMembershipTable, membership);
    return text.isEmpty() ? QueueOperatorMemberInvalidStr : text;
}

QueueOperatorMembership queueOperatorMembershipFromString(const QString& text)
{
    return valueOf(queueOperatorMembershipTable, text, QueueOperatorMemberInvalid, Qt::CaseInsensitive);
}

QString serviceDialCodeTypeToString(ServiceDialCodeType type)
{
    return textOf(serviceDialCodeTypeTable, type);
}

bool isNumberingPlanServiceDialCode(ServiceDialCodeType type)
{
    return type >= ServiceEcho && type <= ServiceOutboundPrefix;
}

bool isInCallServiceDialCode(ServiceDialCodeType type)
{
    return type >= InCallAtXfer && type <= InCallCancel;
}

QString getCallAttributeString(const QFlags<CallAttribute>& attributes)
{
    QStringList parts;
    for (const auto& row : callAttributeTable) {
        if (attributes.testFlag(row.value))
            parts.append(QString::fromLatin1(row.text));
    }
    return parts.join(QLatin1Char(','));
}

QFlags<CallAttribute> getCallAttributeValue(const QString& text)
{
    QFlags<CallAttribute> attributes;
    const QStringList parts = text.split(QLatin1Char(','), Qt::KeepEmptyParts);
    for (const QString& part : parts) {
        for (const auto& row : callAttributeTable) {
            if (part == QLatin1String(row.text))
                attributes |= row.value;
        }
    }
    return attributes;
}

bool isNumAnonymous(const QString& number)
{
    return number.contains(SipAnonymousCaller, Qt::CaseInsensitive);
}

QPair<QString, quint16> getIpPort(const QString& address)
{
    // The look-ahead keeps "::1" and "fe80::1" from being read as host and port.
    QRegExp rx(QStringLiteral("(?!:).:(\\d+)$"), Qt::CaseSensitive);
    const int index = rx.indexIn(address);
    if (index < 0)
        return qMakePair(address, quint16(0));
    bool ok = false;
    const quint16 port = rx.cap(1).toUShort(&ok, 10);
    return qMakePair(address.left(index + 1), ok ? port : quint16(0));
}

QString getAccountFromChannel(const QString& channel)
{
    QString account = channel.section(QLatin1Char('/'), 1, 1);
    // Both positions are taken in the whole channel and applied to the
    // shorter account; old servers depend on the result this gives.
    const int dash = channel.lastIndexOf(QLatin1Char('-'));
    if (dash >= 0)
        account.truncate(dash);
    const int at = channel.indexOf(QLatin1Char('@'));
    if (at >= 0)
        account.truncate(at);
    return account;
}

QPair<QString, QString> getNameNumPairFromUri(const QString& uri)
{
    const QString s = uri.trimmed();
    const QString bracketPattern = QStringLiteral("<([^\">]*)>$");

    QRegExp bracketRx(bracketPattern);
    const QString address = bracketRx.indexIn(s) >= 0 ? bracketRx.cap(1) : s;
    QString number = address.section(QLatin1Char('@'), 0, 0).trimmed();

    if (number.isEmpty() || isNumAnonymous(number)) {
        number = AnonymousNumber;
    } else {
        number.remove(QRegExp(QStringLiteral("[^\\d+*#]")));
        if (number.isEmpty())
            number = AnonymousNumber;
    }

    QRegExp nameRx(QStringLiteral("^\"(.*)\" %1").arg(bracketPattern));
    QString name = nameRx.indexIn(s) >= 0 ? nameRx.cap(1) : QString();

    if (number == AnonymousNumber)
        name = AnonymousName;
    else if (name.isEmpty())
        name = UnknownName;

    return qMakePair(name, number);
}

int compareVersions(const QString& a, const QString& b)
{
    // "[.-,]" is a reversed range that QRegExp reads as the three characters
    // ",", "-" and ".".
    const QRegExp separators(QStringLiteral("[.-,]"));
    const QStringList left = a.split(separators, Qt::KeepEmptyParts);
    const QStringList right = b.split(separators, Qt::KeepEmptyParts);

    for (int i = 0;; ++i) {
        if (i >= left.size() && i >= right.size())
            return 0;
        // A version that runs out first counts as the greater one.
        if (i >= left.size())
            return 1;
        if (i >= right.size())
            return -1;

        bool leftIsNumber = false;
        bool rightIsNumber = false;
        const qlonglong leftNumber = left.at(i).toLongLong(&leftIsNumber, 10);
        const qlonglong rightNumber = right.at(i).toLongLong(&rightIsNumber, 10);
        int order = 0;
        if (leftIsNumber && rightIsNumber)
            order = leftNumber < rightNumber ? -1 : (leftNumber > rightNumber ? 1 : 0);
        else
            order = QString::compare(left.at(i), right.at(i), Qt::CaseSensitive);
        if (order != 0)
            return order < 0 ? -1 : 1;
    }
}

Q_CONSTRUCTOR_FUNCTION(registerTelvixTypes)

} // namespace TELVIX
