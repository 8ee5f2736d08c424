// Dispatch rows of the server's data: call history, service states, SIP
// settings, voicemail, tokens, dial codes and the small notices.
#include "telvix_p.h"

#include "cdrmessages.h"
#include "servicemessages.h"
#include "voicemailmessages.h"

#include <QDebug>

namespace {
const QString ForkToMobileServiceId = QStringLiteral("forktomobile");

/// The entry of the fork-to-mobile service, null when the list has none.
const ServiceStatus* forkToMobile(const QList<ServiceStatus>& list)
{
    for (const ServiceStatus& status : list) {
        if (status.id == ForkToMobileServiceId)
            return &status;
    }
    return nullptr;
}
} // namespace

template <typename Msg, typename Record>
void TelvixPrivate::forwardRow(const QString& xml, DispatchContext& ctx, const char* function,
                               const InvalidWords& invalid, Record Msg::*member,
                               void (Telvix::*signal)(Record))
{
    const Msg msg = parseRow<Msg>(xml, ctx, logger, function, invalid);
    if (msg.success)
        Q_EMIT(q_ptr->*signal)(msg.*member);
}

void TelvixPrivate::rowCdr(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    TLOG(10000) << "received cdr from sarnet";
    auto msg = parseRow<CdrRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {100, "Invalid CDR received"});
    if (!msg.success)
        return;
    TLOG(10000) << "VALID CDR received from sarnet with " << msg.cdr.size() << " entries";
    for (CdrEntry& entry : msg.cdr)
        entry.updateInfo(exten);
    if (!persistCdr(msg.cdr))
        TLOG(10000) << "emitting unpersisted cdr";
    Q_EMIT q->sigCdrChanged(msg.cdr);
}

void TelvixPrivate::rowCommandResponse(const QString& xml, DispatchContext& ctx)
{
    forwardRow(xml, ctx, Q_FUNC_INFO, {1000, "Invalid command response received"},
               &SendCommandRespMsg::commandResponse, &Telvix::sigServerCommandResponse);
}

void TelvixPrivate::rowDiagnostic(const QString& xml, DispatchContext& ctx)
{
    forwardRow(xml, ctx, Q_FUNC_INFO, {1000, "Invalid diagnostic msg received"},
               &DiagnosticRespMsg::diagnosticMessage, &Telvix::sigDiagnosticMessageReceived);
}

void TelvixPrivate::rowTenantList(const QString& xml, DispatchContext& ctx)
{
    forwardRow(xml, ctx, Q_FUNC_INFO, {1000, "Invalid tenant list msg received"}, &TenantsRespMsg::tenants,
               &Telvix::sigTenantListReceived);
}

void TelvixPrivate::rowChannelStatus(const QString& xml, DispatchContext& ctx)
{
    forwardRow(xml, ctx, Q_FUNC_INFO, {100, "Invalid ChannelStatus msg received"},
               &ChannelStatusRespMsg::channelStatus, &Telvix::sigChannelStatusReceived);
}

void TelvixPrivate::rowCtiConfiguration(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg = parseRow<CtiConfigurationRespMsg>(xml, ctx, logger, Q_FUNC_INFO,
                                                       {100, "Invalid CTI configuration msg received"});
    if (!msg.success)
        return;
    onChatConfigReceived(msg.chatConfiguration);
    // What the server leaves out keeps the value a phone assumes by default.
    const SipConfiguration& received = msg.sipConfiguration;
    const SipConfiguration defaults;
    sipSettings = received;
    if (received.sipProtocol.isEmpty())
        sipSettings.sipProtocol = defaults.sipProtocol;
    if (received.registrarPort == 0)
        sipSettings.registrarPort = defaults.registrarPort;
    if (received.proxyPort == 0)
        sipSettings.proxyPort = defaults.proxyPort;
    TLOG(1000) << "Valid CTI configuration msg received:"
               << "-- Registrar " << sipSettings.registrarIp << ":" << sipSettings.registrarPort
               << "-- Proxy " << sipSettings.proxyIp << ":" << sipSettings.proxyPort;
    Q_EMIT q->sigSipSettingsReceived(sipSettings);
}

void TelvixPrivate::rowServiceStatusList(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg = parseRow<ServiceStatusRespMsg>(xml, ctx, logger, Q_FUNC_INFO,
                                                    {1000, "Invalid service status list msg received"});
    if (!msg.success)
        return;
    // A whole list without the service means that no mobile number is set.
    const ServiceStatus* fork = forkToMobile(msg.statusList);
    Q_EMIT q->sigExtenMobileNumberRcvd(fork ? fork->value : QString());
    Q_EMIT q->sigServiceStatusChanged(msg.statusList);
}

void TelvixPrivate::rowServiceStatus(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg = parseRow<ServiceStatusRespMsg>(xml, ctx, logger, Q_FUNC_INFO,
                                                    {1000, "Invalid service status msg received"});
    if (!msg.success)
        return;
    // A single change tells the number only when it carries one.
    const ServiceStatus* fork = forkToMobile(msg.statusList);
    if (fork && !fork->value.isEmpty())
        Q_EMIT q->sigExtenMobileNumberRcvd(fork->value);
    Q_EMIT q->sigServiceStatusChanged(msg.statusList);
}

void TelvixPrivate::rowInCallServiceStatus(const QString& xml, DispatchContext& ctx)
{
    forwardRow(xml, ctx, Q_FUNC_INFO, {1000, "Invalid incall service status msg received"},
               &InCallServiceStatusEventMsg::inCallServiceStatus, &Telvix::sigInCallServiceStatusReceived);
}

void TelvixPrivate::rowVoicemailList(const QString& xml, DispatchContext& ctx)
{
    forwardRow(xml, ctx, Q_FUNC_INFO, {1000, "Invalid voicemail message list received"},
               &VoiceMailListResMsg::messages, &Telvix::sigVoicemailMsgList);
}

void TelvixPrivate::rowRebrandingPackChanged(const QString& xml, DispatchContext& ctx)
{
    const auto msg = parseRow<RebrandingPackChangedEventMsg>(
        xml, ctx, logger, Q_FUNC_INFO, {1000, "Invalid rebranding package changed message received"});
    if (msg.success)
        Q_EMIT q_ptr->sigRebrandingPackageChanged();
}

void TelvixPrivate::rowAuthToken(const QString& xml, DispatchContext& ctx)
{
    const auto msg = parseRow<AuthTokenResMsg>(xml, ctx, logger, Q_FUNC_INFO,
                                               {1000, "Invalid authentication token message received"});
    // A bad token leaves the queue as it is: the next one serves the same asker.
    if (msg.success)
        onAuthTokenReceived(msg.token, msg.validUntil);
    else
        Q_EMIT q_ptr->sigAuthTokenError(msg.errorMessage);
}

void TelvixPrivate::rowMailboxStatus(const QString& xml, DispatchContext& ctx)
{
    const auto msg = parseRow<MailboxStatusResMsg>(xml, ctx, logger, Q_FUNC_INFO,
                                                   {1000, "Invalid mailbox status message received"});
    if (msg.success)
        Q_EMIT q_ptr->sigMailboxStatusChanged(msg);
}

void TelvixPrivate::rowServices(const QString& xml, DispatchContext& ctx)
{
    const auto msg = parseRow<ServiceListResMsg>(xml, ctx, logger, Q_FUNC_INFO, {});
    servicesDialCodes.codes = msg.codes;
    Q_EMIT q_ptr->sigServicesCodesReceived(msg.codes);
}

void TelvixPrivate::onAuthTokenReceived(const QString& token, const QDateTime& expiry)
{
    qDebug() << "Auth token arrived";
    SarnetDownloader* const waiting = downloaders.isEmpty() ? nullptr : downloaders.takeFirst();
    if (waiting)
        startDownloader(waiting, token);
    else
        Q_EMIT q_ptr->sigAuthTokenReceived(token, expiry);
}
