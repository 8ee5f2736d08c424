#include "cdrmessages.h"

#include "messagereader.h"
#include "simplexmlparser.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;

namespace {

const QString DirectionInbound = QStringLiteral("inbound");
const QString DirectionOutbound = QStringLiteral("outbound");
const QString DirectionLocal = QStringLiteral("local");
const QString StatusOk = QStringLiteral("ok");
const QString StatusVoicemail = QStringLiteral("voicemail");
const QString SideIn = QStringLiteral("in");
const QString SideOut = QStringLiteral("out");

bool readCdrEntry(QStringView entryText, CdrEntry& entry)
{
    using MessageReader::raw;
    using MessageReader::text;
    entry.entryUid = raw(entryText, S_XMLTAG_CDR_ENTRY_UID);
    entry.caller = text(entryText, S_XMLTAG_CDR_CALLER);
    entry.callee = text(entryText, S_XMLTAG_CDR_CALLEE);
    entry.callerName = text(entryText, S_XMLTAG_CDR_CALLERNAME);
    entry.calleeName = text(entryText, S_XMLTAG_CDR_CALLEENAME);
    entry.startTime = raw(entryText, S_XMLTAG_CDR_DATE);
    entry.duration = raw(entryText, S_XMLTAG_CDR_DURATION).toInt(nullptr, 10);
    entry.direction = raw(entryText, S_XMLTAG_CDR_DIRECTION).toInt(nullptr, 10);
    entry.status = raw(entryText, S_XMLTAG_CDR_STATUS).toInt(nullptr, 10);
    entry.attributes = TELVIX::getCallAttributeValue(text(entryText, S_XMLTAG_CDR_ATTRIBUTE));
    entry.directionText = CDR::directionText(entry.direction);
    entry.statusText = CDR::statusText(entry.status);
    return !entry.caller.isEmpty() && !entry.callee.isEmpty() && !entry.directionText.isEmpty()
        && !entry.statusText.isEmpty() && !entry.startTime.isEmpty();
}

} // namespace

QString CDR::directionText(int direction)
{
    switch (direction) {
    case 1:
        return DirectionInbound;
    case 2:
        return DirectionOutbound;
    case 4:
        return DirectionLocal;
    default:
        return QString();
    }
}

QString CDR::statusText(int status)
{
    switch (status) {
    case 1:
        return QStringLiteral("failed");
    case 2:
        return QStringLiteral("busy");
    case 3:
        return QStringLiteral("congestion");
    case 4:
        return QStringLiteral("noanswer");
    case 5:
    case 6:
    case 7:
        return StatusVoicemail;
    case 8:
        return StatusOk;
    default:
        return QString();
    }
}

void CdrEntry::updateInfo(const QString& exten)
{
    directionText = CDR::directionText(direction);
    statusText = CDR::statusText(status);
    if (callee == exten)
        localDirection = SideIn;
    else if (caller == exten)
        localDirection = SideOut;
    else
        localDirection.clear();

    const bool answered = statusText == StatusOk;
    const bool voicemail = statusText == StatusVoicemail;
    if (directionText == DirectionInbound) {
        infoType = answered ? QStringLiteral("ANSWER_IN") : QStringLiteral("NOANSWER_IN");
    } else if (directionText == DirectionOutbound) {
        infoType = answered ? QStringLiteral("ANSWER_OUT") : QStringLiteral("NOANSWER_OUT");
    } else if (directionText == DirectionLocal && localDirection == SideIn) {
        infoType = answered ? QStringLiteral("ANSWER_LOCAL_IN")
            : voicemail     ? QStringLiteral("VOICEMAIL_LOCAL_IN")
                            : QStringLiteral("NOANSWER_LOCAL_IN");
    } else if (directionText == DirectionLocal && localDirection == SideOut) {
        infoType = answered ? QStringLiteral("ANSWER_LOCAL_OUT")
            : voicemail     ? QStringLiteral("VOICEMAIL_LOCAL_OUT")
                            : QStringLiteral("NOANSWER_LOCAL_OUT");
    }
}

bool CdrEntry::operator==(const CdrEntry& other) const
{
    return entryUid == other.entryUid && caller == other.caller && callee == other.callee
        && callerName == other.callerName && calleeName == other.calleeName && callId == other.callId
        && localDirection == other.localDirection && statusText == other.statusText
        && directionText == other.directionText && startTime == other.startTime && duration == other.duration
        && direction == other.direction && status == other.status && attributes == other.attributes
        && infoType == other.infoType;
}

QString GetCdrReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_COMMAND_GET_CDR)
        .text(S_XMLTAG_START_DATE, startDate)
        .text(S_XMLTAG_END_DATE, endDate)
        .text(S_XMLTAG_CDR_LAST_ENTRY, lastEntryUid);
    return body.result();
}

CdrRespMsg CdrRespMsg::parseMessage(const QString& xml)
{
    static const MessageReader::ListWords words {QString(),
                                                 S_XMLTAG_CDR_ENTRY,
                                                 QStringLiteral("parsed an invalid CDREntry msg:"),
                                                 QStringLiteral("parsed an empty CdrList msg"),
                                                 QStringLiteral("CDR msg parsed ok"),
                                                 true};
    return MessageReader::readList<CdrRespMsg>(xml, words, [](CdrRespMsg& msg, QStringView entryText) {
        return MessageReader::appendEntry(msg.cdr, entryText, readCdrEntry);
    });
}

QString CdrRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_CDR_ROOT);
    for (const CdrEntry& entry : cdr) {
        body.start(S_XMLTAG_CDR_ENTRY)
            .text(S_XMLTAG_CDR_ENTRY_UID, entry.entryUid)
            .text(S_XMLTAG_CDR_CALLER, entry.caller)
            .text(S_XMLTAG_CDR_CALLEE, entry.callee)
            .text(S_XMLTAG_CDR_CALLERNAME, entry.callerName)
            .text(S_XMLTAG_CDR_CALLEENAME, entry.calleeName)
            .text(S_XMLTAG_CDR_DATE, entry.startTime)
            .text(S_XMLTAG_CDR_DURATION, entry.duration)
            .text(S_XMLTAG_CDR_DIRECTION, entry.direction)
            .text(S_XMLTAG_CDR_STATUS, entry.status)
            .text(S_XMLTAG_CDR_ATTRIBUTE, TELVIX::getCallAttributeString(entry.attributes))
            .end();
    }
    body.end();
    return body.result();
}

static void registerCdrTypes()
{
    qRegisterMetaType<CdrEntry>("CdrEntry");
    qRegisterMetaType<QList<CdrEntry>>("QList<CdrEntry>");
    qRegisterMetaType<Cdr>("Cdr");
}
Q_CONSTRUCTOR_FUNCTION(registerCdrTypes)
