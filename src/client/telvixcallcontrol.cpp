// Call control: each operation finds the legs of a call in the table and
// writes one request naming the server's channels. The number functions turn
// what a user typed into a dialable number, and back.
#include "telvix_p.h"

#include "commandmessages.h"
#include "directorymessages.h"
#include "servicemessages.h"

#include <QDebug>
#include <QNetworkInterface>
#include <QRegularExpression>

namespace {

template <typename... Texts> QString logText(const char* pattern, const Texts&... texts)
{
    return QString::fromLatin1(pattern).arg(texts...);
}

QString withoutTypedPunctuation(const QString& number)
{
    QString purified = number;
    purified.remove(TELVIX::PurifyNumRx);
    return purified;
}

} // namespace

// ---- public facade ------------------------------------------------------

bool Telvix::newCall(const QString& number, TELVIX::NumberOutgoingPrefix prefix, const QString& reserved)
{
    Q_UNUSED(reserved)
    TELVIX_QUEUED(d->newCall(number, prefix, false));
}

bool Telvix::newCallToMobile(const QString& number, TELVIX::NumberOutgoingPrefix prefix,
                             const QString& reserved)
{
    Q_UNUSED(reserved)
    TELVIX_QUEUED(d->newCall(number, prefix, true));
}

bool Telvix::hangupCall(const QString& uid, const QString& reason)
{
    TELVIX_QUEUED(d->hangupCall(uid, reason));
}

bool Telvix::hangupChannel(const QString& channel, const QString& reason, const QString& token)
{
    TELVIX_QUEUED_UNCHECKED(d->hangupChannel(channel, reason, token));
}

bool Telvix::refuseCall(const QString& uid, const QString& reserved)
{
    Q_UNUSED(reserved)
    hangupCall(uid, QStringLiteral("busy"));
    return true;
}

bool Telvix::cancelCall(const QString& uid)
{
    hangupCall(uid, QString());
    return true;
}

bool Telvix::muteCall(const QString& uid)
{
    // Kept as applications know it: this ends the call.
    hangupCall(uid, QString());
    return true;
}

// Hold and transfer are desk-phone commands; these stay in the interface and
// must never fail an application that still calls them.
bool Telvix::holdonCall(const QString& uid)
{
    Q_UNUSED(uid)
    return true;
}

bool Telvix::retrieveCall(const QString& uid)
{
    Q_UNUSED(uid)
    return true;
}

bool Telvix::transferCallWithOffer(const QString& uid, const QString& number)
{
    Q_UNUSED(uid)
    Q_UNUSED(number)
    return true;
}

bool Telvix::transferCallNoOffer(const QString& uid, const QString& number)
{
    Q_UNUSED(uid)
    Q_UNUSED(number)
    return true;
}

void Telvix::startConferenceCall() { }

void Telvix::hangupConferenceCall() { }

void Telvix::holdonConferenceCall() { }

void Telvix::retrieveConferenceCall() { }

bool Telvix::redirectCall(const QString& uid, const QString& number)
{
    TELVIX_QUEUED(d->redirectCall(uid, number));
}

bool Telvix::redirectCallToMobile(const QString& uid)
{
    TELVIX_QUEUED(d->redirectCallToMobile(uid));
}

bool Telvix::parkCall(const QString& uid)
{
    TELVIX_QUEUED(d->parkCall(uid));
}

bool Telvix::bridgeCalls(const QString& first, const QString& second)
{
    TELVIX_QUEUED(d->bridgeCalls(first, second));
}

// ---- on the library's thread --------------------------------------------

bool TelvixPrivate::newCall(const QString& number, TELVIX::NumberOutgoingPrefix prefix, bool toMobile)
{
    const QString purified = Telvix::purifyOutgoingNumber(number);
    QString type;
    if (prefix == TELVIX::NumberPrefixAuto)
        type = isExtenNum(number) ? TELVIX::CallRemoteTypeInternalStr : TELVIX::CallRemoteTypeExternalStr;
    else if (prefix == TELVIX::NumberPrefixExternal)
        type = TELVIX::CallRemoteTypeExternalStr;

    MakeCallReqMsg toDesk;
    MakeCallToMobileReqMsg toMobilePhone;
    MakeCallReqMsg& request = toMobile ? toMobilePhone : toDesk;
    request.toNumber = purified;
    request.fromNumber = exten;
    request.numberType = type;
    send(request);
    TLOG(10000) << "Call started to" << purified << "of type" << type;
    return true;
}

bool TelvixPrivate::hangupCall(const QString& uid, const QString& reason)
{
    if (uid.isEmpty()) {
        TLOG(100) << "Null argument passed as call ID";
        return false;
    }
    const CallTable::Legs legs = calls.legs(uid);
    if (legs.isEmpty()) {
        TLOG(100) << logText("Cannot hangup call with UID %1: UID not found.", uid);
        return false;
    }
    // The table changes when the server reports each leg finished.
    for (const CallInfo* leg : legs) {
        HangupCallReqMsg request;
        request.channel = leg->localChannel;
        request.reason = reason;
        send(request);
        TLOG(1000) << callLogLine("Hangup sent for call with UID %1 from %2 to %3 on SIP account %4", *leg);
    }
    return true;
}

bool TelvixPrivate::hangupChannel(const QString& channel, const QString& reason, const QString& token)
{
    if (channel.isEmpty()) {
        TLOG(100) << "Null argument passed as channel";
        return false;
    }
    HangupCallReqMsg request;
    request.channel = channel;
    request.reason = reason;
    request.token = token;
    send(request);
    TLOG(1000) << logText("Hangup sent on channel %1", channel);
    return true;
}

bool TelvixPrivate::redirectCall(const QString& uid, const QString& number)
{
    if (uid.isEmpty()) {
        TLOG(100) << "Null argument passed as call ID";
        return false;
    }
    if (!calls.contains(uid)) {
        TLOG(100) << logText("Cannot redirect call with UID %1: UID not found.", uid);
        return false;
    }
    const CallInfo* const leg = calls.firstLeg(uid);
    if (!leg) {
        TLOG(100) << logText("Unable to transfer call to mobile: UID %1 not found.", uid);
        return false;
    }
    RedirectCallReqMsg request;
    request.channel = leg->remoteChannel;
    request.toNumber = number;
    send(request);
    // The line names %4 twice: the called number stands in both places and
    // the account is not shown.
    TLOG(1000) << logText("Redirect to number %1 sent for call with UID %2 from %3 to %4 on SIP account %4",
                          number, leg->uid, leg->callerNum, leg->calledNum);
    return true;
}

bool TelvixPrivate::redirectCallToMobile(const QString& uid)
{
    if (!calls.contains(uid)) {
        TLOG(100) << logText("Cannot tranfer call to mobile: UID %1 not found.", uid);
        return false;
    }
    const CallInfo* const leg = calls.firstLeg(uid);
    if (!leg) {
        TLOG(100) << logText("Unable to transfer call to mobile: UID %1 not found.", uid);
        return false;
    }
    RedirectCallToMobileReqMsg request;
    request.channel = leg->remoteChannel;
    send(request);
    TLOG(1000) << callLogLine("Transfer to mobile sent for call with UID %1 from %2 to %3 on SIP account %4",
                              *leg);
    return true;
}

bool TelvixPrivate::parkCall(const QString& uid)
{
    if (!calls.contains(uid)) {
        TLOG(100) << logText("Cannot park call: UID %1 not found.", uid);
        return false;
    }
    const CallInfo* const leg = calls.firstLeg(uid);
    if (!leg) {
        TLOG(100) << logText("Unable to park call: UID %1 not found.", uid);
        return false;
    }
    ParkCallReqMsg request;
    request.parkedChannel = leg->localChannel;
    request.parkingChannel = leg->remoteChannel;
    send(request);
    TLOG(1000) << callLogLine("Park call sent for call with UID %1 from %2 to %3 on SIP account %4", *leg);
    return true;
}

bool TelvixPrivate::bridgeCalls(const QString& first, const QString& second)
{
    if (!calls.contains(first)) {
        TLOG(100) << logText("Cannot bridge calls: call1 UID %1 not found.", first);
        return false;
    }
    const CallInfo* const leg1 = calls.firstLeg(first);
    if (!leg1) {
        TLOG(100) << logText("Unable to bridge calls: call1 UID %1 not found.", first);
        return false;
    }
    if (!calls.contains(second)) {
        TLOG(100) << logText("Cannot bridge calls: call2 UID %1 not found.", second);
        return false;
    }
    const CallInfo* const leg2 = calls.firstLeg(second);
    if (!leg2) {
        TLOG(100) << logText("Unable to bridge calls: call2 UID %1 not found.", second);
        return false;
    }
    BridgeCallsReqMsg request;
    request.channel1 = leg1->remoteChannel;
    request.channel2 = leg2->remoteChannel;
    send(request);
    TLOG(1000) << logText(
        "Bridge calls sent for call1 with UID %1 and channel %9 (from %2 to %3 on SIP account %4) "
        "and call2 with UID %5 and channel %10 (from %6 to %7 on SIP account %8)",
        leg1->uid, leg1->callerNum, leg1->calledNum, leg1->sipAccount, leg2->uid, leg2->callerNum,
        leg2->calledNum, leg2->sipAccount, leg1->remoteChannel, leg2->remoteChannel);
    return true;
}

// ---- number functions ---------------------------------------------------

QString TelvixPrivate::purifyIncomingNumber(const QString& number) const
{
    qDebug() << Q_FUNC_INFO << "INCOMING number to purify";
    const QString prefix = servicesDialCodes.codes.value(TELVIX::ServiceOutboundPrefix);
    if (!isExtenNum(number) && number.startsWith(prefix))
        return number.mid(prefix.size());
    return number;
}

bool TelvixPrivate::isExtenNum(const QString& number) const
{
    for (const BuddyEntry& entry : extensions) {
        if (entry.exten == number)
            return true;
    }
    return false;
}

QString Telvix::purifyOutgoingNumber(const QString& number)
{
    QString purified = withoutTypedPunctuation(number);
    // A short service number such as "0118" is dialled as it is.
    if (purified.startsWith(QLatin1String("01")) && purified.size() == 4)
        return purified;
    // The country's own numbers go out in national form.
    const QString ownCountry = QLatin1Char('+') + TELVIX::LocalInternationalPrefix;
    if (purified.startsWith(ownCountry))
        return purified.mid(ownCountry.size());
    if (purified.startsWith(QLatin1Char('+')))
        purified.replace(0, 1, QStringLiteral("00"));
    return purified;
}

QString Telvix::getPurifiedOutgoingNumber(const QString& number) const
{
    const QString purified = purifyOutgoingNumber(number);
    // The "0" is the usual line prefix, not the PBX's outbound prefix.
    return isExtenNum(purified) ? purified : QLatin1Char('0') + purified;
}

QString Telvix::purifyIncomingNumber(const QString& number) const
{
    return d_func()->purifyIncomingNumber(number);
}

bool Telvix::isExtenNum(const QString& number) const
{
    return d_func()->isExtenNum(number);
}

bool Telvix::isPhoneNum(const QString& number)
{
    // QRegularExpression matching is const and may be shared by threads;
    // Unicode properties keep "\d" meaning any decimal digit.
    static const QRegularExpression phone(QStringLiteral("\\A(?:\\+?\\d+)\\z"),
                                          QRegularExpression::UseUnicodePropertiesOption);
    return phone.match(withoutTypedPunctuation(number)).hasMatch();
}

bool Telvix::isMobileNum(const QString& number)
{
    static const QRegularExpression mobile(QStringLiteral("^(\\+ %1 3|00 %1 3|3)")
                                               .arg(TELVIX::LocalInternationalPrefix)
                                               .remove(QLatin1Char(' ')));
    const QString purified = withoutTypedPunctuation(number);
    return isPhoneNum(purified) && purified.size() > 5
        && mobile.match(purified, 0, QRegularExpression::NormalMatch, QRegularExpression::AnchoredMatchOption)
               .hasMatch();
}

QString Telvix::numAnonymizer(const QString& number)
{
    const QString hidden = QStringLiteral("XXX");
    if (number.size() < 4)
        return hidden;
    return number.left(number.size() - 3) + hidden;
}

QString Telvix::getInterfaceMacAddress(const QString& ip)
{
    static const QRegularExpression usable(QStringLiteral("^(?:[0-9A-F]{2}\\:){5}[0-9A-F]{2}$"),
                                           QRegularExpression::CaseInsensitiveOption);
    QString candidate;
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& iface : interfaces) {
        if (iface.flags().testFlag(QNetworkInterface::IsLoopBack))
            continue;
        const QString hardware = iface.hardwareAddress();
        if (usable.match(hardware).hasMatch() && hardware != QLatin1String("00:00:00:00:00:00"))
            candidate = hardware;
        const QList<QNetworkAddressEntry> entries = iface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            if (entry.ip().toString() == ip)
                return hardware;
        }
    }
    return candidate;
}

bool TelvixPrivate::getChannelStatus(const QString& channel)
{
    TLOG(10000) << "Getting channel status";
    ChannelStatusReqMsg request;
    request.channel = channel;
    send(request);
    return true;
}
