#include "simanswers.h"

#include "callengine.h"
#include "cdrmessages.h"
#include "commandmessages.h"
#include "directorymessages.h"
#include "messagereader.h"
#include "phonebookmessages.h"
#include "servicemessages.h"
#include "simdirectory.h"
#include "simdownloads.h"
#include "simhub.h"
#include "simmessages.h"
#include "simsession.h"
#include "voicemailmessages.h"
#include "xmlbodywriter.h"

#include <QUuid>

using namespace SARNET_XML;
using MessageReader::text;

namespace {

// The PBX's service dial codes, by the local key of each type.
QMap<TELVIX::ServiceDialCodeType, QString> dialCodes()
{
    return {{TELVIX::ServiceEcho, QStringLiteral("*43")},
            {TELVIX::ServiceVoicemail, QStringLiteral("*97")},
            {TELVIX::ServiceConference, QStringLiteral("*88")},
            {TELVIX::ServicePickUp, QStringLiteral("*8")},
            {TELVIX::ServiceParkCode, QStringLiteral("700")},
            {TELVIX::ServiceParkFirstSlot, QStringLiteral("701")},
            {TELVIX::ServiceParkLastSlot, QStringLiteral("709")},
            {TELVIX::ServiceDirectPickUp, QStringLiteral("**")},
            {TELVIX::ServiceUfwdSet, QStringLiteral("*72")},
            {TELVIX::ServiceUfwdUnset, QStringLiteral("*73")},
            {TELVIX::ServiceForkMobileSet, QStringLiteral("*55")},
            {TELVIX::ServiceForkMobileUnset, QStringLiteral("*56")},
            {TELVIX::ServiceOutboundPrefix, QStringLiteral("0")},
            {TELVIX::InCallAtXfer, QStringLiteral("*4")},
            {TELVIX::InCallAtXferCancel, QStringLiteral("*0")},
            {TELVIX::InCallBlindXfer, QStringLiteral("#4")},
            {TELVIX::InCallRecording, QStringLiteral("*1")},
            {TELVIX::InCallParking, QStringLiteral("#8")}};
}

} // namespace

SimAnswers::SimAnswers(SimHub& hub, CallEngine& calls, SimDownloads& downloads)
    : m_hub(hub)
    , m_calls(calls)
    , m_downloads(downloads)
{
    m_rows = {{S_COMMAND_GET_IDENTITY_LIST, &SimAnswers::identities},
              {S_COMMAND_GET_BUDDY_IDENTITY_LIST, &SimAnswers::peerList},
              {S_COMMAND_GET_BUDDY_LIST, &SimAnswers::extenList},
              {S_COMMAND_GET_BUDDY_STATUS_LIST, &SimAnswers::extenStatus},
              {S_COMMAND_GET_PBOOK, &SimAnswers::phoneBook},
              {S_COMMAND_ADD_PBOOK_CONTACT, &SimAnswers::saveContact},
              {S_COMMAND_UPDATE_PBOOK_CONTACT, &SimAnswers::saveContact},
              {S_COMMAND_DELETE_PBOOK_CONTACT, &SimAnswers::deleteContact},
              {S_COMMAND_GET_CDR, &SimAnswers::callHistory},
              {S_COMMAND_GET_SERVICE_STATUS, &SimAnswers::serviceStatus},
              {S_COMMAND_SET_UFWD, &SimAnswers::setForward},
              {S_COMMAND_UNSET_UFWD, &SimAnswers::unsetForward},
              {S_COMMAND_SET_FORKTOMOBILE, &SimAnswers::setForkToMobile},
              {S_COMMAND_UNSET_FORKTOMOBILE, &SimAnswers::unsetForkToMobile},
              {S_COMMAND_GET_SERVICE_LIST, &SimAnswers::serviceCodes},
              {S_COMMAND_GET_CTI_CONFIGURATION, &SimAnswers::ctiConfiguration},
              {S_COMMAND_GET_MAILBOX_STATUS, &SimAnswers::mailboxStatus},
              {S_COMMAND_GET_VM_LIST, &SimAnswers::voicemailList},
              {S_COMMAND_DELETE_VM_MSG, &SimAnswers::deleteVoicemail},
              {S_COMMAND_MARK_VM_MSG, &SimAnswers::markVoicemail},
              {S_COMMAND_GET_AUTH_TOKEN, &SimAnswers::accessToken},
              {S_COMMAND_GET_CHANNEL_STATUS, &SimAnswers::channelStatus},
              {S_COMMAND_GET_TENANTS, &SimAnswers::tenantList},
              {S_COMMAND_SUBSCRIBE_TENANT_EVENTS, &SimAnswers::subscribeTenant},
              {S_COMMAND_SEND_CMD, &SimAnswers::serverCommand},
              {S_COMMAND_MAKE_CALL, &SimAnswers::makeCall},
              {S_COMMAND_MAKE_CALL_TOWARD_MOBILE, &SimAnswers::makeCall},
              {S_COMMAND_HANGUP_CALL, &SimAnswers::hangup},
              {S_COMMAND_REDIRECT_CALL, &SimAnswers::redirectCall},
              {S_COMMAND_REDIRECT_CALL_TO_MOBILE, &SimAnswers::redirectToMobile},
              {S_COMMAND_BRIDGE_CHANNELS, &SimAnswers::bridge},
              {S_COMMAND_PARK_CALL, &SimAnswers::park},
              {QStringLiteral("PhoneCommand"), &SimAnswers::phoneCommand}};
}

bool SimAnswers::answer(SimSession& session, const QString& element, const QString& xml)
{
    const Row row = m_rows.value(element);
    if (!row)
        return false;
    (this->*row)(session, xml);
    return true;
}

// ---- directory ------------------------------------------------------------------

void SimAnswers::identities(SimSession& s, const QString&)
{
    IdentitiesRespMsg msg;
    msg.identities = m_hub.directory().identities(s.exten());
    s.send(msg);
}

void SimAnswers::peerList(SimSession& s, const QString&)
{
    BuddyIdentitiesRespMsg msg;
    msg.buddyIdentities = m_hub.directory().peers();
    s.send(msg);
}

void SimAnswers::extenList(SimSession& s, const QString&)
{
    BuddiesRespMsg msg;
    msg.buddies = m_hub.directory().buddies();
    s.send(msg);
}

void SimAnswers::extenStatus(SimSession& s, const QString&)
{
    ExtenStatusRespMsg msg;
    msg.statusMap = m_hub.directory().statusMap();
    s.send(msg);
}

// ---- phone book and history --------------------------------------------------------

void SimAnswers::phoneBook(SimSession& s, const QString&)
{
    PBookRespMsg msg;
    msg.phoneBooks = m_hub.directory().phoneBooks(s.exten());
    s.send(msg);
}

void SimAnswers::saveContact(SimSession& s, const QString& xml)
{
    const QString user = MessageReader::raw(xml, S_XMLTAG_PB_NEWENTRY);
    const PhoneBookEntry saved
        = m_hub.directory().savePrivateContact(s.exten(), PhonebookToXmlUtil::contactFromXml(user));
    m_hub.log(
        QStringLiteral("%1 saved contact %2 (%3)").arg(s.exten(), saved.displayName, saved.contactUuid));
    phoneBook(s, xml);
}

void SimAnswers::deleteContact(SimSession& s, const QString& xml)
{
    const QString uuid = text(xml, S_XMLTAG_PB_CONTACTUUID);
    if (!m_hub.directory().deletePrivateContact(s.exten(), uuid)) {
        s.sendError(QStringLiteral("No such contact %1").arg(uuid), xml);
        return;
    }
    phoneBook(s, xml);
}

void SimAnswers::callHistory(SimSession& s, const QString& xml)
{
    CdrRespMsg msg;
    msg.cdr = m_hub.directory().history(s.exten(), text(xml, S_XMLTAG_CDR_LAST_ENTRY));
    s.send(msg);
}

// ---- services -----------------------------------------------------------------------

void SimAnswers::serviceStatus(SimSession& s, const QString&)
{
    ServiceStatusRespMsg msg;
    msg.statusList = m_hub.directory().services(s.exten());
    s.send(msg);
}

void SimAnswers::sendServiceChange(SimSession& s, const QString& id, bool on, const QString& value)
{
    // A change is one "ServiceStatus" on its own, not a list.
    const ServiceStatus st = m_hub.directory().setService(s.exten(), id, on, value);
    XmlBodyWriter w;
    w.start(S_EVENT_SERVICE_STATUS)
        .text(S_XMLTAG_STATUS_ID, st.id)
        .text(S_XMLTAG_STATUS_TYPE, st.type)
        .text(S_XMLTAG_STATUS_VALUE, st.value)
        .text(S_XMLTAG_STATUS, st.status);
    SimResponse msg(w.result());
    m_hub.sendToExten(s.exten(), msg);
    m_hub.log(QStringLiteral("%1: %2 %3 %4")
                  .arg(s.exten(), id, on ? QStringLiteral("on") : QStringLiteral("off"), value));
}

void SimAnswers::setForward(SimSession& s, const QString& xml)
{
    sendServiceChange(s, QStringLiteral("ufwd"), true, text(xml, S_XMLTAG_EXTEN));
}

void SimAnswers::unsetForward(SimSession& s, const QString&)
{
    sendServiceChange(s, QStringLiteral("ufwd"), false, QString());
}

void SimAnswers::setForkToMobile(SimSession& s, const QString&)
{
    sendServiceChange(s, QStringLiteral("forktomobile"), true, QString());
}

void SimAnswers::unsetForkToMobile(SimSession& s, const QString&)
{
    sendServiceChange(s, QStringLiteral("forktomobile"), false, QString());
}

void SimAnswers::serviceCodes(SimSession& s, const QString&)
{
    ServiceListResMsg msg;
    msg.codes = dialCodes();
    s.send(msg);
}

void SimAnswers::ctiConfiguration(SimSession& s, const QString&)
{
    CtiConfigurationRespMsg msg;
    if (m_hub.chatPort() > 0) {
        msg.chatConfiguration.chatId = m_hub.directory().extension(s.exten())->chatId;
        msg.chatConfiguration.chatPort = m_hub.chatPort();
    }
    msg.sipConfiguration.valid = true;
    msg.sipConfiguration.registrarIp = QStringLiteral("127.0.0.1");
    msg.sipConfiguration.proxyIp = QStringLiteral("127.0.0.1");
    s.send(msg);
}

// ---- voicemail ----------------------------------------------------------------------

void SimAnswers::sendMailbox(SimSession& s)
{
    MailboxStatusResMsg msg;
    static_cast<MailboxStatus&>(msg) = m_hub.directory().mailbox(s.exten());
    s.send(msg);
}

void SimAnswers::mailboxStatus(SimSession& s, const QString&)
{
    sendMailbox(s);
}

void SimAnswers::voicemailList(SimSession& s, const QString& xml)
{
    SimVoicemailList msg;
    const TELVIX::VmMsgTypeFlag types = TELVIX::vmMsgTypeFlagFromString(text(xml, S_XMLTAG_VM_MSG_TYPE));
    msg.messages = m_hub.directory().voicemail(s.exten(), types);
    s.send(msg);
}

void SimAnswers::deleteVoicemail(SimSession& s, const QString& xml)
{
    if (!m_hub.directory().deleteVoicemail(s.exten(), text(xml, S_XMLTAG_VM_MESSAGE_ID))) {
        s.sendError(QStringLiteral("No such message"), xml);
        return;
    }
    sendMailbox(s);
    voicemailList(s, QString());
}

void SimAnswers::markVoicemail(SimSession& s, const QString& xml)
{
    const TELVIX::VmMsgType type = TELVIX::vmMsgTypeFromString(text(xml, S_XMLTAG_VM_MARK_AS));
    if (!m_hub.directory().markVoicemail(s.exten(), text(xml, S_XMLTAG_VM_MESSAGE_ID), type)) {
        s.sendError(QStringLiteral("No such message"), xml);
        return;
    }
    sendMailbox(s);
    voicemailList(s, QString());
}

// ---- tokens, channels, tenants, commands --------------------------------------------

void SimAnswers::accessToken(SimSession& s, const QString&)
{
    AuthTokenResMsg msg;
    msg.token = m_downloads.issueToken(s.exten(), &msg.validUntil);
    s.send(msg);
}

void SimAnswers::channelStatus(SimSession& s, const QString& xml)
{
    ChannelStatusRespMsg msg;
    if (!m_calls.channelStatus(text(xml, S_XMLTAG_CHANSTATUS_CHANNEL), &msg.channelStatus)) {
        s.sendError(QStringLiteral("No such channel"), xml);
        return;
    }
    s.send(msg);
}

void SimAnswers::tenantList(SimSession& s, const QString&)
{
    TenantsRespMsg msg;
    msg.tenants.insert(QStringLiteral("00000000-0000-4000-8000-000000000001"), QStringLiteral("default"));
    s.send(msg);
}

void SimAnswers::subscribeTenant(SimSession& s, const QString& xml)
{
    m_hub.log(QStringLiteral("%1 follows tenant %2").arg(s.exten(), text(xml, S_XMLTAG_TENANT_ID)));
}

void SimAnswers::serverCommand(SimSession& s, const QString& xml)
{
    // Commands of the simulator itself: ping, calls, version.
    SendCommandRespMsg msg;
    ServerCommandResponse& r = msg.commandResponse;
    r.requestId = MessageReader::text(xml, QStringLiteral("UUID"));
    r.command = text(xml, S_XMLTAG_SRVCMD_COMMAND);
    r.date = QDateTime::currentDateTime();
    r.succeeded = true;
    if (r.command == QLatin1String("ping")) {
        r.message = QStringLiteral("pong");
    } else if (r.command == QLatin1String("calls")) {
        r.message = QString::number(m_calls.activeCalls());
    } else if (r.command == QLatin1String("version")) {
        r.message
            = QStringLiteral("telvix-pbx-sim, API %1").arg(MessageReader::text(xml, QStringLiteral("API")));
    } else {
        r.succeeded = false;
        r.exitCode = 127;
        r.message = QStringLiteral("unknown command");
    }
    s.send(msg);
}

// ---- calls ----------------------------------------------------------------------------

void SimAnswers::makeCall(SimSession& s, const QString& xml)
{
    QString from = text(xml, S_XMLTAG_C2C_FROM);
    if (!m_hub.directory().extension(from))
        from = s.exten();
    QString error;
    if (m_calls.dial(from, text(xml, S_XMLTAG_C2C_TO), &error).isEmpty())
        s.sendError(error, xml);
}

void SimAnswers::hangup(SimSession& s, const QString& xml)
{
    // A call hung up on every leg sends one request per leg: only the first
    // finds the call, and the others are no error.
    const QString channel = text(xml, S_XMLTAG_CALL_CHANNEL);
    if (!m_calls.hangupChannel(channel, text(xml, S_XMLTAG_REASON)))
        m_hub.log(QStringLiteral("%1: hangup of %2, no such call").arg(s.exten(), channel));
}

void SimAnswers::redirectCall(SimSession& s, const QString& xml)
{
    QString error;
    if (!m_calls.redirect(text(xml, S_XMLTAG_CALL_CHANNEL), text(xml, S_XMLTAG_CALL_TO_NUMBER), &error))
        s.sendError(error, xml);
}

void SimAnswers::redirectToMobile(SimSession& s, const QString& xml)
{
    const QString mobile = m_hub.directory().extension(s.exten())->mobileNumber;
    QString error = QStringLiteral("No mobile number for %1").arg(s.exten());
    if (mobile.isEmpty() || !m_calls.redirect(text(xml, S_XMLTAG_CALL_CHANNEL), mobile, &error))
        s.sendError(error, xml);
}

void SimAnswers::bridge(SimSession& s, const QString& xml)
{
    QString error;
    if (!m_calls.bridge(text(xml, S_XMLTAG_CALL_CHANNEL1), text(xml, S_XMLTAG_CALL_CHANNEL2), &error))
        s.sendError(error, xml);
}

void SimAnswers::park(SimSession& s, const QString& xml)
{
    QString error;
    if (!m_calls.park(text(xml, S_XMLTAG_CALL_PARKED_CHANNEL), text(xml, S_XMLTAG_CALL_PARKING_CHANNEL),
                      &error))
        s.sendError(error, xml);
}

// ---- desk phone -------------------------------------------------------------------

void SimAnswers::phoneCommand(SimSession& s, const QString& xml)
{
    if (!m_calls.deskPhones()) {
        s.sendError(QStringLiteral("Unknown request"), xml);
        return;
    }
    const QString line = text(xml, QStringLiteral("lineId"));
    const auto has = [&xml](const char* command) {
        return xml.contains(QStringLiteral("<%1>").arg(QLatin1String(command)));
    };
    QString error;
    bool done = true;
    if (has("answerIncomingCall")) {
        done = m_calls.answerChannel(line);
    } else if (has("hangupCall")) {
        done = m_calls.hangupChannel(line, QStringLiteral("normal"));
    } else if (has("putOnHold") || has("resumeFromHold")) {
        done = m_calls.holdChannel(line, has("putOnHold"));
    } else if (has("unattendedTransfer") || has("attendedTransfer")) {
        done = m_calls.transferChannel(line, text(xml, QStringLiteral("to")), &error);
    } else if (has("makeCall")) {
        done = !m_calls.dial(s.exten(), text(xml, QStringLiteral("numberToCall")), &error).isEmpty();
    } else if (has("getDndStatus")) {
        SimResponse dnd(QStringLiteral("<phoneEvent><eventType>dnd</eventType><propName>dnd</propName>"
                                       "<propValue>0</propValue></phoneEvent>"));
        s.send(dnd);
    } else {
        done = false;
        error = QStringLiteral("Unknown phone command");
    }
    m_hub.log(
        QStringLiteral("%1: desk phone %2 %3")
            .arg(s.exten(), line, done ? QStringLiteral("obeys") : QStringLiteral("refuses: ") + error));
    if (!done)
        s.sendError(error.isEmpty() ? QStringLiteral("Phone command refused") : error, xml);
}
