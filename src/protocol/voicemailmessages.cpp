#include "voicemailmessages.h"

#include "messagereader.h"
#include "utils.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;

namespace {

bool readVoicemailMessage(QStringView entryText, VoicemailMessage& message)
{
    using namespace MessageReader;
    message.id = text(entryText, S_XMLTAG_VM_MESSAGE_ID);
    message.messageUuid = text(entryText, S_XMLTAG_VM_MESSAGE_UUID);
    message.callerName = text(entryText, S_XMLTAG_VM_CALLER_NAME);
    message.callerNumber = text(entryText, S_XMLTAG_VM_CALLER_NUMBER);
    message.date = Utils::parseIsoDateTime(raw(entryText, S_XMLTAG_VM_DATETIME));
    message.originMailbox = raw(entryText, S_XMLTAG_VM_ORIGIN_MAILBOX);
    message.duration = toInt(entryText, S_XMLTAG_VM_DURATION);
    message.isNew = isOne(entryText, S_XMLTAG_VM_IS_NEW);
    message.isUrgent = isOne(entryText, S_XMLTAG_VM_IS_URGENT);
    return !message.id.isEmpty() && !message.date.isNull();
}

} // namespace

bool VoicemailMessage::operator==(const VoicemailMessage& other) const
{
    return id == other.id && messageUuid == other.messageUuid && callerName == other.callerName
        && callerNumber == other.callerNumber && date == other.date && originMailbox == other.originMailbox
        && duration == other.duration && isNew == other.isNew && isUrgent == other.isUrgent;
}

bool MailboxStatus::operator==(const MailboxStatus& other) const
{
    return mailbox == other.mailbox && waiting == other.waiting && newCount == other.newCount
        && oldCount == other.oldCount && urgentCount == other.urgentCount;
}

QString VoiceMailListReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_COMMAND_GET_VM_LIST);
    if (!msgType.isEmpty())
        body.text(S_XMLTAG_VM_MSG_TYPE, msgType);
    body.end();
    return body.result();
}

QString VoicemailDeleteReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_COMMAND_DELETE_VM_MSG).text(S_XMLTAG_VM_MESSAGE_ID, id).end();
    return body.result();
}

QString VoicemailMarkReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_COMMAND_MARK_VM_MSG)
        .text(S_XMLTAG_VM_MESSAGE_ID, id)
        .text(S_XMLTAG_VM_MARK_AS, markAs)
        .end();
    return body.result();
}

QString MailboxStatusReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_COMMAND_GET_MAILBOX_STATUS).end();
    return body.result();
}

VoiceMailListResMsg VoiceMailListResMsg::parseMessage(const QString& xml)
{
    // This answer has no words of its own for an empty or a good list.
    static const MessageReader::ListWords words {QString(),
                                                 S_XMLTAG_VM_MESSAGE_ENTRY,
                                                 QStringLiteral("parsed an invalid Voice Mail Message"),
                                                 QString(),
                                                 QString(),
                                                 false};
    return MessageReader::readList<VoiceMailListResMsg>(
        xml, words, [](VoiceMailListResMsg& msg, QStringView entryText) {
            return MessageReader::appendEntry(msg.messages, entryText, readVoicemailMessage);
        });
}

QString VoiceMailListResMsg::generateXmlMessageBody() const
{
    return QString();
}

MailboxStatusResMsg MailboxStatusResMsg::parseMessage(const QString& xml)
{
    using namespace MessageReader;
    MailboxStatusResMsg msg;
    msg.mailbox = text(xml, S_XMLTAG_MAILBOX);
    msg.waiting = isOne(xml, S_XMLTAG_MAILBOX_WAITING);
    msg.newCount = toInt(xml, S_XMLTAG_MAILBOX_NEW);
    msg.oldCount = toInt(xml, S_XMLTAG_MAILBOX_OLD);
    msg.urgentCount = toInt(xml, S_XMLTAG_MAILBOX_URGENT);
    return accepted(msg, xml, QStringLiteral("Mailbox Status resp msg parsed ok"));
}

QString MailboxStatusResMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_MAILBOX_STATUS)
        .text(S_XMLTAG_MAILBOX, mailbox)
        .text(S_XMLTAG_MAILBOX_WAITING, waiting ? 1 : 0)
        .text(S_XMLTAG_MAILBOX_NEW, newCount)
        .text(S_XMLTAG_MAILBOX_OLD, oldCount)
        .text(S_XMLTAG_MAILBOX_URGENT, urgentCount)
        .end();
    return body.result();
}

static void registerVoicemailTypes()
{
    qRegisterMetaType<VoicemailMessage>("VoicemailMessage");
    qRegisterMetaType<QList<VoicemailMessage>>("QList<VoicemailMessage>");
    qRegisterMetaType<MailboxStatus>("MailboxStatus");
}
Q_CONSTRUCTOR_FUNCTION(registerVoicemailTypes)
