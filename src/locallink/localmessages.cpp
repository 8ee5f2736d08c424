#include "localmessages_p.h"

#include "sarnetxml.h"
#include "telvix_const.h"
#include "xmlbodywriter.h"

#include <QXmlStreamWriter>

using namespace SARNET_XML;

namespace LocalMessages {

namespace {

void writeFields(QXmlStreamWriter& writer, const TextFields& fields)
{
    for (const auto& field : fields)
        writer.writeTextElement(field.first, field.second);
}

QString wrapped(const QString& outer, const QString& inner, const TextFields& fields)
{
    XmlBodyWriter body;
    body.start(outer).start(inner);
    writeFields(body.writer(), fields);
    return body.result();
}

QString chatTypeText(int type)
{
    switch (type) {
    case ChatMessage::Normal:
        return QStringLiteral("normal");
    case ChatMessage::Copy:
        return QStringLiteral("copy");
    case ChatMessage::History:
        return QStringLiteral("history");
    case ChatMessage::Feedback:
        return QStringLiteral("feedback");
    default:
        return QStringLiteral("invalid");
    }
}

QString chatDirectionText(int direction)
{
    switch (direction) {
    case ChatMessage::Received:
        return QStringLiteral("received");
    case ChatMessage::Sent:
        return QStringLiteral("sent");
    default:
        return QStringLiteral("invalid");
    }
}

void writeChatMessage(QXmlStreamWriter& writer, const ChatMessage& message)
{
    writer.writeStartElement(QStringLiteral("ChatMessage"));
    // The trailing Z is a plain letter: the time is written as it is held,
    // without a conversion to UTC.
    writeFields(writer,
                {{QStringLiteral("Id"), message.id},
                 {S_XMLTAG_EXTEN, message.exten},
                 {QStringLiteral("ThreadId"), message.threadId},
                 {QStringLiteral("Message"), message.body},
                 {QStringLiteral("Type"), chatTypeText(message.type)},
                 {QStringLiteral("Direction"), chatDirectionText(message.direction)},
                 {QStringLiteral("DeliveredTime"),
                  message.timestamp.toString(QStringLiteral("yyyy-MM-ddThh:mm:ss.zzzZ"))}});
    writer.writeEndElement();
}

} // namespace

QString frame(const QString& apiVersion, const QString& message)
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_ROOT).text(S_XMLTAG_API, apiVersion).verbatim(message).end();
    return body.result();
}

QString event(const QString& inner, const TextFields& fields)
{
    return wrapped(QStringLiteral("Event"), inner, fields);
}

QString chatEvent(const QString& inner, const TextFields& fields)
{
    return wrapped(QStringLiteral("ChatEvent"), inner, fields);
}

QString flag(bool value)
{
    return value ? QStringLiteral("1") : QStringLiteral("0");
}

QString keepAlive()
{
    XmlBodyWriter body;
    body.empty(S_COMMAND_KEEPALIVE);
    return body.result();
}

QString login(const LoginDetails& details)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("Login"));
    writeFields(body.writer(),
                {{S_XMLTAG_EXTEN, details.exten},
                 {QStringLiteral("UserUuid"), details.userUuid},
                 {QStringLiteral("AppMode"), TELVIX::appModeToString(details.appMode)},
                 {QStringLiteral("MobileNumber"), details.mobileNumber},
                 {QStringLiteral("FirstName"), details.firstName},
                 {QStringLiteral("LastName"), details.lastName},
                 {QStringLiteral("CCRole"), TELVIX::callCenterRoleToString(details.ccRole)},
                 {QStringLiteral("Features"), details.features.join(QLatin1Char(','))},
                 {QStringLiteral("Firmware"), details.firmwareVersion},
                 {QStringLiteral("SerialNumber"), details.serialNumber},
                 {QStringLiteral("PartNumber"), details.partNumber},
                 {QStringLiteral("LoginMessage"), details.loginMessage}});
    return body.result();
}

void writeBuddyStatus(QXmlStreamWriter& writer, const BuddyStatus& status)
{
    writer.writeStartElement(QStringLiteral("ExtenStatus"));
    writeFields(writer,
                {{S_XMLTAG_EXTEN, status.exten},
                 {QStringLiteral("Presence"), TELVIX::chatPresenceToString(status.presence)},
                 {QStringLiteral("PresenceMsg"), status.presenceText},
                 {QStringLiteral("CtiLogged"), flag(status.ctiLogged)},
                 {QStringLiteral("QPaused"), flag(status.queuePaused)},
                 {QStringLiteral("BlfContext"), status.blfContext},
                 {QStringLiteral("BlfStatus"), TELVIX::blfStatusToString(status.blfStatus)}});
    writer.writeEndElement();
}

QString extenStatus(const BuddyStatus& status)
{
    XmlBodyWriter body;
    writeBuddyStatus(body.writer(), status);
    return body.result();
}

QString extenStatusList(const QMap<QString, BuddyStatus>& statusMap)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("ExtenStatusList"));
    for (const BuddyStatus& status : statusMap)
        writeBuddyStatus(body.writer(), status);
    return body.result();
}

QString voicemailDownloadCompleted(const QString& id, const QString& uuid, const QString& file)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("VoicemailMessageDownloadComplete"))
        .text(S_XMLTAG_VM_MESSAGE_ID, id)
        .text(S_XMLTAG_VM_MESSAGE_UUID, uuid)
        .text(QStringLiteral("File"), file);
    return body.result();
}

QString mailboxStatus(const MailboxStatus& status)
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_MAILBOX_STATUS)
        .text(QStringLiteral("Mailbox"), status.mailbox)
        .text(QStringLiteral("Waiting"), int(status.waiting))
        .text(QStringLiteral("NewMsgCount"), status.newCount)
        .text(QStringLiteral("OldMsgCount"), status.oldCount)
        .text(QStringLiteral("UrgentMsgCount"), status.urgentCount);
    return body.result();
}

QString extenList(const PhoneBook& book)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("ExtenList"));
    for (const PhoneBookEntry& entry : book.entries) {
        body.start(S_XMLTAG_EXTEN);
        writeFields(body.writer(),
                    {{QStringLiteral("ContactUuid"), entry.contactUuid},
                     {QStringLiteral("FirstName"), entry.firstName},
                     {QStringLiteral("LastName"), entry.lastName},
                     {QStringLiteral("Name"), entry.displayName},
                     {QStringLiteral("Company"), entry.company},
                     {QStringLiteral("Number"),
                      entry.contacts.isEmpty() ? QString() : entry.contacts.first().value}});
        body.end();
    }
    return body.result();
}

QString phonebookList(const QList<PhoneBook>& books)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("PhonebookList"));
    for (const PhoneBook& book : books) {
        body.start(QStringLiteral("Phonebook"))
            .text(QStringLiteral("Account"), book.name)
            .text(QStringLiteral("Folder"), book.folder);
        for (const PhoneBookEntry& entry : book.entries) {
            body.start(QStringLiteral("Entry"));
            writeFields(body.writer(),
                        {{QStringLiteral("ContactUuid"), entry.contactUuid},
                         {QStringLiteral("First"), entry.firstName},
                         {QStringLiteral("Last"), entry.lastName},
                         {QStringLiteral("DisplayName"), entry.displayName},
                         {QStringLiteral("Company"), entry.company},
                         {QStringLiteral("MobileNumber"), entry.mobileNumber}});
            body.start(QStringLiteral("Contacts"));
            for (const ContactEntry& contact : entry.contacts) {
                body.start(QStringLiteral("Contact"))
                    .text(QStringLiteral("Label"), contact.label)
                    .text(QStringLiteral("Type"), contact.kind)
                    .text(QStringLiteral("Value"), contact.value)
                    .end();
            }
            body.end().end();
        }
        body.end();
    }
    return body.result();
}

QString identityList(const IdentityList& identities)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("IdentityList"));
    for (const IdentityEntry& identity : identities) {
        body.start(QStringLiteral("Identity"))
            .text(QStringLiteral("Name"), identity.name)
            .text(QStringLiteral("Type"), identity.type)
            .text(QStringLiteral("AppAccount"), flag(identity.appAccount))
            .text(QStringLiteral("User"), identity.user)
            .text(QStringLiteral("Password"), identity.password)
            .text(QStringLiteral("Codecs"), identity.codecs.join(QLatin1Char(',')))
            .text(QStringLiteral("SipTos"), identity.sipTos)
            .text(QStringLiteral("AudioTos"), identity.audioTos)
            .text(QStringLiteral("VideoTos"), identity.videoTos)
            .text(QStringLiteral("DtmfMode"), TELVIX::dtmfModeToString(identity.dtmfMode))
            .text(QStringLiteral("Status"), identity.regStatus)
            .end();
    }
    return body.result();
}

QString serviceStatusList(const QList<ServiceStatus>& statusList)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("ServiceStatusList"));
    for (const ServiceStatus& status : statusList) {
        body.start(QStringLiteral("ServiceStatus"))
            .text(QStringLiteral("Id"), status.id)
            .text(QStringLiteral("Type"), status.type)
            .text(QStringLiteral("Status"), status.status)
            .text(QStringLiteral("Value"), status.value)
            .end();
    }
    return body.result();
}

QString voicemailList(const QList<VoicemailMessage>& messages)
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_VM_MESSAGE_LIST);
    for (const VoicemailMessage& message : messages) {
        body.start(S_XMLTAG_VM_MESSAGE_ENTRY)
            .text(S_XMLTAG_VM_MESSAGE_ID, message.id)
            .text(S_XMLTAG_VM_MESSAGE_UUID, message.messageUuid)
            .text(S_XMLTAG_VM_CALLER_NAME, message.callerName)
            .text(S_XMLTAG_VM_CALLER_NUMBER, message.callerNumber)
            .text(S_XMLTAG_VM_DATETIME, message.date.toString(TELVIX::IsoDateNoTz))
            .text(S_XMLTAG_VM_DURATION, message.duration)
            .text(S_XMLTAG_VM_IS_NEW, flag(message.isNew))
            .text(S_XMLTAG_VM_IS_URGENT, flag(message.isUrgent))
            .text(S_XMLTAG_VM_ORIGIN_MAILBOX, message.originMailbox)
            .end();
    }
    return body.result();
}

QString callList(const Cdr& cdr)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("CallList"));
    for (const CdrEntry& entry : cdr) {
        // The application knows two outcomes only.
        const QString status
            = entry.statusText == QLatin1String("ok") ? entry.statusText : QStringLiteral("noanswer");
        body.start(QStringLiteral("Call"))
            .text(QStringLiteral("EntryUid"), entry.entryUid)
            .text(QStringLiteral("Caller"), entry.caller)
            .text(QStringLiteral("CallerName"), entry.callerName)
            .text(QStringLiteral("Called"), entry.callee)
            .text(QStringLiteral("CalledName"), entry.calleeName)
            .text(QStringLiteral("Date"), entry.startTime)
            .text(QStringLiteral("Status"), status)
            .text(QStringLiteral("Direction"), entry.directionText)
            .text(QStringLiteral("Duration"), entry.duration)
            .text(QStringLiteral("CallAttributes"), TELVIX::getCallAttributeString(entry.attributes))
            .end();
    }
    return body.result();
}

QString chatMessage(const ChatMessage& message)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("ChatEvent"));
    writeChatMessage(body.writer(), message);
    return body.result();
}

QString chatHistory(const QList<ChatMessage>& messages)
{
    XmlBodyWriter body;
    body.start(QStringLiteral("ChatEvent")).start(QStringLiteral("History"));
    for (const ChatMessage& message : messages)
        writeChatMessage(body.writer(), message);
    return body.result();
}

} // namespace LocalMessages
