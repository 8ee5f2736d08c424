#pragma once

#include "calleventmessages.h"
#include "cdrmessages.h"
#include "commandmessages.h"
#include "directorymessages.h"
#include "downloadmessages.h"
#include "jsonconvert.h"
#include "loginmessages.h"
#include "phonebookmessages.h"
#include "queuemessages.h"
#include "servicemessages.h"
#include "voicemailmessages.h"

#include <QHash>
#include <QJsonObject>
#include <QRegularExpression>
#include <functional>

/// Every message class by name, with its fields as JSON both ways, so that
/// fixture files can say what a parse must give and what a write must send.
namespace MessageFields {

/// Reads the fields of a message into `out`, or, with `in` set, sets the
/// fields that `in` names.
struct Fields
{
    QJsonObject out;
    const QJsonObject* in = nullptr;

    template <typename T> void operator()(const char* key, T& value)
    {
        const QString name = QLatin1String(key);
        if (!in)
            out.insert(name, JsonConvert::toJson(QVariant::fromValue(value)));
        else if (in->contains(name))
            value = JsonConvert::fromJson(in->value(name), qMetaTypeId<T>()).template value<T>();
    }
    template <typename Msg> void envelope(Msg& m)
    {
        (*this)("success", m.success);
        (*this)("errorMessage", m.errorMessage);
        (*this)("uuid", m.uuid);
        (*this)("timestamp", m.timestamp);
        (*this)("api", m.api);
        if constexpr (std::is_base_of_v<SXmlRequestMessage, Msg>)
            (*this)("token", m.token);
    }
};

/// The written document with its fresh UUID and timestamp blanked, once
/// they have the shape of a random UUID and a UTC stamp with milliseconds.
inline QString stable(const QString& xml)
{
    static const QRegularExpression stamp(
        QStringLiteral("^(<SRNT><API>[^<]*</API>)<UUID>\\{[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\\}</UUID>"
                       "<Timestamp>\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}</Timestamp>"));
    return QString(xml).replace(stamp, QStringLiteral("\\1<UUID/><Timestamp/>"));
}

template <typename M, typename = void> struct Parses : std::false_type
{
};
template <typename M> struct Parses<M, std::void_t<decltype(M::parseMessage(QString()))>> : std::true_type
{
};

struct Kind
{
    /// Parses a document; empty for a class the client only writes.
    std::function<QJsonObject(const QString& xml, QString* rewritten)> parse;
    std::function<QString(const QJsonObject& fields, const QString& api)> write;
};

template <typename Msg> Kind kind(void (*visit)(Msg&, Fields&))
{
    Kind k;
    k.write = [visit](const QJsonObject& in, const QString& api) {
        Msg m;
        Fields f {{}, &in};
        f.envelope(m);
        visit(m, f);
        return stable(m.serializeToXml(api));
    };
    if constexpr (Parses<Msg>::value) {
        k.parse = [visit](const QString& xml, QString* rewritten) {
            Msg m = Msg::parseMessage(xml);
            Fields f;
            f.envelope(m);
            visit(m, f);
            *rewritten = stable(m.serializeToXml(m.api));
            return f.out;
        };
    }
    return k;
}

#define F(x) f(#x, m.x);
#define G(Base) f(#Base, static_cast<Base&>(m));
#define MSG(Msg, ...)                                                                                        \
    {                                                                                                        \
        QStringLiteral(#Msg),                                                                                \
            kind<Msg>([]([[maybe_unused]] Msg& m, [[maybe_unused]] Fields& f) { __VA_ARGS__ })               \
    }

inline const QHash<QString, Kind>& kinds()
{
    static const QHash<QString, Kind> table
    {
        MSG(OriginateCallEventMsg, F(event)), MSG(IncomingCallEventMsg, F(event)),
            MSG(AnsweredCallEventMsg, F(event)), MSG(FinishedCallEventMsg, F(event)),
            MSG(MissedCallEventMsg, F(event)), MSG(ColpUpdateEventMsg, F(event)),
            MSG(CallLocalInfoUpdateEventMsg, F(event)), MSG(TransferCanceledCallEventMsg, F(event)),
            MSG(TransferStartedCallEventMsg, F(event)), MSG(TransferCompletedCallEventMsg, F(event)),
            MSG(C2COriginateEventMsg, F(uid) F(exten) F(c2cChannel) F(toNumber) F(callType)),
            MSG(C2CFinishedEventMsg, F(uid) F(exten) F(c2cChannel)),
            MSG(GetCdrReqMsg, F(startDate) F(endDate) F(lastEntryUid)), MSG(CdrRespMsg, F(cdr)),
            MSG(MakeCallReqMsg, F(toNumber) F(fromNumber) F(numberType)),
            MSG(MakeCallToMobileReqMsg, F(toNumber) F(fromNumber) F(numberType)),
            MSG(HangupCallReqMsg, F(channel) F(reason)), MSG(RedirectCallReqMsg, F(channel) F(toNumber)),
            MSG(RedirectCallToMobileReqMsg, F(channel)), MSG(BridgeCallsReqMsg, F(channel1) F(channel2)),
            MSG(ParkCallReqMsg, F(parkedChannel) F(parkingChannel)), MSG(UFWDSetReqMsg, F(exten)),
            MSG(ChannelStatusReqMsg, F(channel)), MSG(SubscribeTenantEventsReqMsg, F(tenantUuid)),
            MSG(SetDeviceTokenReqMsg, F(deviceToken) F(serviceType)), MSG(ForkToMobileSetReqMsg, ),
            MSG(AuthTokenReqMsg, ), MSG(SendCommandReqMsg, F(requestId) F(command) F(params)),
            MSG(GetIdentitiesReqMsg, ), MSG(GetBuddyIdentitiesReqMsg, ), MSG(GetBuddiesReqMsg, ),
            MSG(GetExtenStatusReqMsg, ), MSG(IdentitiesRespMsg, F(identities)),
            MSG(BuddyIdentitiesRespMsg, F(buddyIdentities)), MSG(BuddiesRespMsg, F(buddies)),
            MSG(ExtenStatusRespMsg, F(statusMap)), MSG(VoicemailDownloadReqMsg, F(id)),
            MSG(VoicemailDownloadResMsg, F(audioFile)), MSG(RebrandingPackReqMsg, F(lastMd5)),
            MSG(RebrandingPackRespMsg, F(pack)),
            MSG(LoginReqMsg,
                F(user) F(password) F(domain) F(appMode) F(osType) F(osVersion) F(swType) F(swVersion)
                    F(deviceUuid)),
            MSG(LogoutReqMsg, ),
            MSG(LoginRespMsg,
                F(exitCode) F(reason) F(exten) F(domain) F(appMode) F(ccRole) F(features) F(userUuid)
                    F(mobileNumber) F(chatId) F(chatPort) F(firstName) F(lastName) F(seenIpAddress)
                        F(loginMessage) F(firmwareVersion) F(serialNumber) F(partNumber) LoginDetails details
                = m.toLoginDetails(m.api);
                f("details", details);),
            MSG(RedirectConnectionRespMsg, F(serverIp) F(serverPort)), MSG(PBookRespMsg, F(phoneBooks)),
            MSG(GetPBookReqMsg, ), MSG(AddPBookContactReqMsg, F(entry)),
            MSG(UpdatePBookContactReqMsg, F(entry)), MSG(DeletePBookContactReqMsg, F(contactUuid)),
            MSG(QueueMemberAddedEventMsg, F(member)), MSG(QueueMemberRemovedEventMsg, F(member)),
            MSG(QueueMemberPausedEventMsg, F(member)), MSG(QueueEventMsg, F(event)),
            MSG(QueueStatsListRespMsg, F(stats)), MSG(QueuePeriodicStatsListRespMsg, F(stats)),
            MSG(QueuePeriodicStatsRespMsg, F(stats)), MSG(QueueOperatorPeriodicStatsListRespMsg, F(stats)),
            MSG(QueueOperatorPeriodicStatsRespMsg, F(stats)),
            MSG(GetCCReportReqMsg,
                F(period) F(startDate) F(endDate) F(attendedThresholds) F(lostThresholds) F(locale)),
            MSG(CCReportRespMsg, G(CallCenterReport)), MSG(ServiceStatusRespMsg, F(statusList)),
            MSG(InCallServiceStatusEventMsg, F(inCallServiceStatus)),
            MSG(ChannelStatusRespMsg, F(channelStatus)), MSG(ServiceListResMsg, F(codes)),
            MSG(CtiConfigurationRespMsg, F(chatConfiguration) F(sipConfiguration)),
            MSG(SendCommandRespMsg, F(commandResponse)), MSG(DiagnosticRespMsg, F(diagnosticMessage)),
            MSG(TenantsRespMsg, F(tenants)), MSG(AuthTokenResMsg, F(token) F(validUntil)),
            MSG(RebrandingPackChangedEventMsg, ), MSG(PlainRequestMessage, F(body)), MSG(KeepAliveReqMsg, ),
            MSG(AckMsg, ), MSG(VoiceMailListReqMsg, F(msgType)), MSG(VoicemailDeleteReqMsg, F(id)),
            MSG(VoicemailMarkReqMsg, F(id) F(markAs)), MSG(MailboxStatusReqMsg, ),
            MSG(VoiceMailListResMsg, F(messages)), MSG(MailboxStatusResMsg, G(MailboxStatus)),
            MSG(UFWDUnsetReqMsg, ), MSG(ForkToMobileUnsetReqMsg, ), MSG(GetServiceStatusReqMsg, ),
            MSG(GetServiceListReqMsg, ), MSG(GetCtiConfigurationReqMsg, ), MSG(GetTenantsReqMsg, ),
    };
    return table;
}

#undef F
#undef G
#undef MSG

} // namespace MessageFields
