#include "simmessages.h"

#include "sarnetxml.h"
#include "utils.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;

namespace {
// Elements of the server's notices.
const QString MinApiTag = QStringLiteral("MinAPI");
const QString KeepAliveAckTag = QStringLiteral("KAACK");
const QString ProbeTag = QStringLiteral("Probe");
} // namespace

QString SimLoginAnswer::generateXmlMessageBody() const
{
    QString body = LoginRespMsg::generateXmlMessageBody();
    XmlBodyWriter more;
    more.text(S_XMLTAG_DOMAIN, domain)
        .text(S_XMLTAG_APPMODE, exitCode == 0 ? TELVIX::appModeToString(appMode) : QString())
        .text(S_XMLTAG_MOBILE_NUMBER, mobileNumber)
        .text(S_XMLTAG_CHAT_ID, chatId)
        .text(S_XMLTAG_CHAT_PORT, chatPort)
        .text(S_XMLTAG_FIRST_NAME, firstName)
        .text(S_XMLTAG_LAST_NAME, lastName)
        .text(S_XMLTAG_SEEN_IP_ADDRESS, seenIpAddress)
        .text(S_XMLTAG_LOGIN_MESSAGE, loginMessage)
        .text(S_XMLTAG_FIRMWARE, firmwareVersion)
        .text(S_XMLTAG_SERIAL_NUMBER, serialNumber)
        .text(S_XMLTAG_PART_NUMBER, partNumber);
    body.insert(body.lastIndexOf(CLOSETAG(S_EVENT_AUTHENTICATED)), more.result());
    return body;
}

QString SimVoicemailList::generateXmlMessageBody() const
{
    XmlBodyWriter w;
    w.start(S_XMLTAG_VM_MESSAGE_LIST);
    for (const VoicemailMessage& m : messages) {
        w.start(S_XMLTAG_VM_MESSAGE_ENTRY)
            .text(S_XMLTAG_VM_MESSAGE_ID, m.id)
            .text(S_XMLTAG_VM_MESSAGE_UUID, m.messageUuid)
            .text(S_XMLTAG_VM_CALLER_NAME, m.callerName)
            .text(S_XMLTAG_VM_CALLER_NUMBER, m.callerNumber)
            .text(S_XMLTAG_VM_DATETIME, Utils::datetimeToIsoString(m.date))
            .text(S_XMLTAG_VM_ORIGIN_MAILBOX, m.originMailbox)
            .text(S_XMLTAG_VM_DURATION, m.duration)
            .text(S_XMLTAG_VM_IS_NEW, m.isNew ? 1 : 0)
            .text(S_XMLTAG_VM_IS_URGENT, m.isUrgent ? 1 : 0)
            .end();
    }
    return w.end().result();
}

namespace SimNotice {

SimInfo banner(const QString& minApi)
{
    XmlBodyWriter w;
    return SimInfo(w.text(MinApiTag, minApi).result());
}

SimInfo keepAliveAck()
{
    return SimInfo(OPENTAG(KeepAliveAckTag) + CLOSETAG(KeepAliveAckTag));
}

SimInfo probe()
{
    return SimInfo(OPENTAG(ProbeTag) + CLOSETAG(ProbeTag));
}

SimResponse error(const QString& reason, const QString& originalMessage)
{
    XmlBodyWriter w;
    return SimResponse(w.start(S_XMLTAG_SC_ERROR)
                           .text(S_XMLTAG_SC_ERROR_REASON, reason)
                           .text(S_XMLTAG_SC_ERROR_ORIGMSG, originalMessage)
                           .end()
                           .result());
}

SimResponse loggedOff(const QString& reason)
{
    XmlBodyWriter w;
    return SimResponse(w.start(S_EVENT_LOGGEDOFF).text(S_XMLTAG_REASON, reason).end().result());
}

SimResponse extenStatus(const BuddyStatus& status)
{
    ExtenStatusRespMsg list;
    list.statusMap.insert(status.exten, status);
    QString body = list.generateXmlMessageBody();
    body.remove(0, OPENTAG(S_EVENT_BUD_STATUS_LIST).size());
    body.chop(CLOSETAG(S_EVENT_BUD_STATUS_LIST).size());
    return SimResponse(body);
}

} // namespace SimNotice
