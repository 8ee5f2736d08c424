// Plain requests to the server: log, build one message, send it. Answers
// come back through the dispatcher. None looks at the connection state or
// the feature bits: without a socket, sending logs its own line.
#include "telvix_p.h"

#include "cdrmessages.h"
#include "commandmessages.h"
#include "directorymessages.h"
#include "messagereader.h"
#include "phonebookmessages.h"
#include "simplexmlparser.h"
#include "voicemailmessages.h"

#include <QDebug>

namespace {
constexpr int AppModeLogger = 5;
} // namespace

// ---- public facade ------------------------------------------------------

bool Telvix::getIdentities()
{
    TELVIX_QUEUED_UNCHECKED(d->getIdentities());
}

bool Telvix::getPeerList()
{
    TELVIX_QUEUED_UNCHECKED(d->getPeerList());
}

bool Telvix::getPhoneBook()
{
    return d_func()->getPhoneBook();
}

bool Telvix::getExtenList()
{
    return d_func()->getExtenList();
}

bool Telvix::getExtenStatus()
{
    TELVIX_QUEUED(d->getExtenStatus());
}

bool Telvix::getServiceStatus()
{
    TELVIX_QUEUED(d->getServiceStatus());
}

bool Telvix::getServiceCodeList()
{
    return d_func()->getServiceCodeList();
}

bool Telvix::getCtiConfiguration()
{
    return d_func()->getCtiConfiguration();
}

bool Telvix::getVoicemail(TELVIX::VmMsgTypeFlag type)
{
    TELVIX_QUEUED(d->getVoicemail(type));
}

bool Telvix::getMailboxStatus()
{
    TELVIX_QUEUED(d->getMailboxStatus());
}

bool Telvix::getChannelStatus(const QString& channel)
{
    return d_func()->getChannelStatus(channel);
}

bool Telvix::getTenantList()
{
    TELVIX_QUEUED(d->getTenantList());
}

bool Telvix::subscribeTenantEvents(const QString& tenant)
{
    TELVIX_QUEUED(d->subscribeTenantEvents(tenant));
}

bool Telvix::setUFWD(const QString& number)
{
    TELVIX_QUEUED(d->setUFWD(number));
}

bool Telvix::unsetUFWD()
{
    TELVIX_QUEUED(d->unsetUFWD());
}

bool Telvix::setForkToMobile()
{
    TELVIX_QUEUED(d->setForkToMobile());
}

bool Telvix::unsetForkToMobile()
{
    TELVIX_QUEUED(d->unsetForkToMobile());
}

bool Telvix::deleteVoicemailMessage(const QString& id)
{
    TELVIX_QUEUED(d->deleteVoicemailMessage(id));
}

bool Telvix::markVoicemailMessage(const QString& id, TELVIX::VmMsgType type)
{
    TELVIX_QUEUED(d->markVoicemailMessage(id, type));
}

bool Telvix::requestAccessToken()
{
    TELVIX_QUEUED(d->requestAccessToken());
}

bool Telvix::getCDR(bool cached, const QString& lastEntry)
{
    TELVIX_QUEUED_UNCHECKED(d->getCDR(cached, lastEntry));
}

QString Telvix::getOutboundLinePrefix()
{
    TelvixPrivate* const d = d_func();
    const char* const function = Q_FUNC_INFO;
    return TelvixHop::blocking<QString>(
        this, [d] { return d->getOutboundLinePrefix(); }, QString(), function,
        [d, function] { TelvixLogLine(d->logger, 10, function) << "invoke method failed!"; });
}

bool Telvix::setDeviceToken(const QString& token, TELVIX::NotificationService service)
{
    TELVIX_QUEUED(d->setDeviceToken(token, service));
}

bool Telvix::sendServerCommand(const ServerCommand& command)
{
    TELVIX_QUEUED(d->sendServerCommand(command));
}

bool Telvix::changePassword(const QString& oldPassword, const QString& newPassword)
{
    return d_func()->changePassword(oldPassword, newPassword);
}

bool Telvix::injectMessage(const QString& text)
{
    TELVIX_QUEUED(d->injectMessage(text));
}

// ---- on the library's thread --------------------------------------------

bool TelvixPrivate::sendAndForget(SXmlMessage& msg)
{
    send(msg);
    return true;
}

template <typename Msg> bool TelvixPrivate::ask(const char* function, int priority, const char* line)
{
    TelvixLogLine(logger, priority, function) << line;
    Msg request;
    return sendAndForget(request);
}

bool TelvixPrivate::getIdentities()
{
    return ask<GetIdentitiesReqMsg>(Q_FUNC_INFO, 1000, "Getting Identities");
}

bool TelvixPrivate::getPeerList()
{
    return ask<GetBuddyIdentitiesReqMsg>(Q_FUNC_INFO, 1000, "Getting Peer list");
}

bool TelvixPrivate::getPhoneBook()
{
    return ask<GetPBookReqMsg>(Q_FUNC_INFO, 1000, "Getting PhoneBook");
}

bool TelvixPrivate::getExtenList()
{
    return ask<GetBuddiesReqMsg>(Q_FUNC_INFO, 1000, "Getting ExtenList.");
}

bool TelvixPrivate::getExtenStatus()
{
    return ask<GetExtenStatusReqMsg>(Q_FUNC_INFO, 1000, "Getting ExtenStatus");
}

bool TelvixPrivate::getServiceStatus()
{
    return ask<GetServiceStatusReqMsg>(Q_FUNC_INFO, 1000, "Getting ServiceStatus");
}

bool TelvixPrivate::getServiceCodeList()
{
    qDebug() << "Getting service code list";
    GetServiceListReqMsg request;
    return sendAndForget(request);
}

bool TelvixPrivate::getCtiConfiguration()
{
    TLOG(1000) << "Getting CtiConfiguration";
    // Older servers may not answer; the login path avoids asking them.
    if (ApiText::below(serverApiVersion, "5.3"))
        TLOG(100) << "Asking for CtiConfiguration to a server having API < 5.3!";
    GetCtiConfigurationReqMsg request;
    return sendAndForget(request);
}

bool TelvixPrivate::getVoicemail(TELVIX::VmMsgTypeFlag type)
{
    TLOG(1000) << "Getting voicemail messages";
    VoiceMailListReqMsg request;
    request.msgType = TELVIX::vmMsgTypeFlagToString(type);
    return sendAndForget(request);
}

bool TelvixPrivate::getMailboxStatus()
{
    return ask<MailboxStatusReqMsg>(Q_FUNC_INFO, 1000, "Getting mailbox status");
}

bool TelvixPrivate::getTenantList()
{
    GetTenantsReqMsg request;
    return sendAndForget(request);
}

bool TelvixPrivate::subscribeTenantEvents(const QString& tenant)
{
    SubscribeTenantEventsReqMsg request;
    request.tenantUuid = tenant;
    return sendAndForget(request);
}

bool TelvixPrivate::setUFWD(const QString& number)
{
    TLOG(1000) << "Sending UFWDSet to CTIServer - toNumber: " << number;
    UFWDSetReqMsg request;
    request.exten = number;
    return sendAndForget(request);
}

bool TelvixPrivate::unsetUFWD()
{
    return ask<UFWDUnsetReqMsg>(Q_FUNC_INFO, 1000, "Sending UFWDDel to CTIServer");
}

bool TelvixPrivate::setForkToMobile()
{
    return ask<ForkToMobileSetReqMsg>(Q_FUNC_INFO, 1000, "Sending ForkToMobile set to CTIServer");
}

bool TelvixPrivate::unsetForkToMobile()
{
    return ask<ForkToMobileUnsetReqMsg>(Q_FUNC_INFO, 1000, "Sending ForkToMobile unset to CTIServer");
}

bool TelvixPrivate::deleteVoicemailMessage(const QString& id)
{
    qDebug() << "Deleting voicemail message" << id;
    VoicemailDeleteReqMsg request;
    request.id = id;
    return sendAndForget(request);
}

bool TelvixPrivate::markVoicemailMessage(const QString& id, TELVIX::VmMsgType type)
{
    QString markAs = TELVIX::vmMsgTypeToString(type);
    if (markAs.isEmpty())
        markAs = TELVIX::vmMsgTypeToString(TELVIX::VmMsgOld);
    qDebug() << "Marking voicemail message" << id << "as" << markAs;
    VoicemailMarkReqMsg request;
    request.id = id;
    request.markAs = markAs;
    return sendAndForget(request);
}

bool TelvixPrivate::requestAccessToken()
{
    TLOG(1000) << "Requesting access token...";
    // The null entry marks the application's own place in the token queue.
    downloaders.append(nullptr);
    return requestAccessToken_internal();
}

bool TelvixPrivate::requestAccessToken_internal()
{
    return ask<AuthTokenReqMsg>(Q_FUNC_INFO, 1000, "Getting authentication token");
}

QString TelvixPrivate::getOutboundLinePrefix()
{
    TLOG(1000) << "Getting obl prefix";
    return servicesDialCodes.codes.value(TELVIX::ServiceOutboundPrefix);
}

bool TelvixPrivate::setDeviceToken(const QString& token, TELVIX::NotificationService service)
{
    QString serviceText = TELVIX::notificationServiceToString(service);
    if (serviceText.isEmpty())
        serviceText = QStringLiteral("AUTO");
    TLOG(10000) << QStringLiteral("Sending notification token %1 for service %2").arg(token, serviceText);
    SetDeviceTokenReqMsg request;
    request.deviceToken = token;
    request.serviceType = serviceText;
    return sendAndForget(request);
}

bool TelvixPrivate::sendServerCommand(const ServerCommand& command)
{
    // The feature bit of server commands is not tested: the application
    // decides from the login's features.
    TLOG(1000) << "Sending command to server:" << command.command << command.params.join(QLatin1Char(' '));
    SendCommandReqMsg request(command);
    return sendAndForget(request);
}

bool TelvixPrivate::changePassword(const QString& oldPassword, const QString& newPassword)
{
    // The server takes this one request as bare text, outside the envelope
    // and without escaping.
    const QString text = QLatin1String("<ChangePWD><Username>") + user + QLatin1String("</Username><OldPWD>")
        + oldPassword + QLatin1String("</OldPWD><NewPWD>") + newPassword
        + QLatin1String("</NewPWD></ChangePWD>");
    sendRequest(text, false);
    return true;
}

bool TelvixPrivate::injectMessage(const QString& text)
{
    TLOG(100000) << "Injected message: \n" << text;
    if (parser)
        parser->addData(text);
    return true;
}

// ---- call history ---------------------------------------------------------

void TelvixPrivate::getPeriodicData()
{
    if (int(appMode) != AppModeLogger)
        getCDR(false, QString());
}

bool TelvixPrivate::getCDR(bool cached, const QString& lastEntry)
{
    TLOG(10000) << "Current APP MODE:" << int(appMode);
    if (Telvix::appModeIsMobile(appMode)) {
        if (!lastEntry.isEmpty())
            TLOG(1000) << "Getting CDR for mobile from entry " << lastEntry;
        else
            TLOG(10000) << "Getting CDR for mobile app";
        GetCdrReqMsg request;
        request.lastEntryUid = lastEntry;
        if (socket)
            send(request);
        return true;
    }
    return getStoredCdr(cached, lastEntry);
}
