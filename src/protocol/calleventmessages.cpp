#include "calleventmessages.h"

#include "messagereader.h"
#include "xmlbodywriter.h"

#include <QRegularExpression>

#include <type_traits>
#include <utility>

using namespace SARNET_XML;

namespace {

// ---- the text fields of each record, in field order ------------------------
//
// One visitor per field group serves both directions: the parser fills each
// field from its element, the writer writes each field under its element.

template <typename Visit> void textFields(CallLegEvent& e, Visit&& visit)
{
    visit(S_XMLTAG_CALL_UID, e.uid);
    visit(S_XMLTAG_CALL_SIP_ACCOUNT, e.sipAccount);
    visit(S_XMLTAG_CALL_LOCAL_CHANNEL, e.localChannel);
}

template <typename Visit> void textFields(DialledCallEvent& e, Visit&& visit)
{
    textFields(static_cast<CallLegEvent&>(e), visit);
    visit(S_XMLTAG_CALL_CALLED_NUM, e.calledNum);
}

template <typename Visit> void textFields(CallRemoteEvent& e, Visit&& visit)
{
    textFields(static_cast<CallLegEvent&>(e), visit);
    visit(S_XMLTAG_CALL_REMOTE_NUM, e.remoteNum);
    visit(S_XMLTAG_CALL_REMOTE_NAME, e.remoteName);
}

template <typename Visit> void textFields(CallPeerEvent& e, Visit&& visit)
{
    textFields(static_cast<CallLegEvent&>(e), visit);
    visit(S_XMLTAG_CALL_REMOTE_CHANNEL, e.remoteChannel);
    visit(S_XMLTAG_CALL_REMOTE_NUM, e.remoteNum);
    visit(S_XMLTAG_CALL_REMOTE_NAME, e.remoteName);
}

template <typename Visit> void textFields(CallDetailsEvent& e, Visit&& visit)
{
    textFields(static_cast<CallPeerEvent&>(e), visit);
    visit(S_XMLTAG_CALL_CALLED_NUM, e.calledNum);
}

template <typename Visit> void textFields(IncomingCallEvent& e, Visit&& visit)
{
    textFields(static_cast<CallDetailsEvent&>(e), visit);
    visit(S_XMLTAG_CALL_TYPE, e.callType);
    visit(S_XMLTAG_CALL_QUEUE, e.queue);
    visit(S_XMLTAG_CALL_QUEUE_NAME, e.queueName);
    visit(S_XMLTAG_CALL_GROUP, e.group);
    visit(S_XMLTAG_CALL_GROUP_NAME, e.groupName);
}

template <typename Visit> void textFields(FinishedCallEvent& e, Visit&& visit)
{
    textFields(static_cast<CallRemoteEvent&>(e), visit);
    visit(S_XMLTAG_CALL_CALLED_NUM, e.calledNum);
    visit(S_XMLTAG_REASON, e.reason);
}

template <typename Visit> void textFields(CallLocalInfoUpdateEvent& e, Visit&& visit)
{
    visit(S_XMLTAG_CALL_UID, e.uid);
    visit(S_XMLTAG_CALL_SIP_ACCOUNT, e.sipAccount);
    visit(S_XMLTAG_CALLEVENT_OLDLOCALCHANNEL, e.oldLocalChannel);
    visit(S_XMLTAG_CALLEVENT_NEWLOCALCHANNEL, e.newLocalChannel);
}

template <typename Visit> void textFields(TransferCanceledCallEvent& e, Visit&& visit)
{
    visit(S_XMLTAG_CALL_UID, e.uid);
    visit(S_XMLTAG_CALL_XFERCANCELED_REASON, e.reason);
}

template <typename Visit> void textFields(C2CFinishedEventMsg& m, Visit&& visit)
{
    visit(S_XMLTAG_CALL_UID, m.uid);
    visit(S_XMLTAG_EXTEN, m.exten);
    visit(S_XMLTAG_C2C_CHANNEL, m.c2cChannel);
}

template <typename Visit> void textFields(C2COriginateEventMsg& m, Visit&& visit)
{
    visit(S_XMLTAG_CALL_UID, m.uid);
    visit(S_XMLTAG_EXTEN, m.exten);
    visit(S_XMLTAG_C2C_CHANNEL, m.c2cChannel);
    visit(S_XMLTAG_C2C_TO, m.toNumber);
    visit(S_XMLTAG_C2C_CALL_TYPE, m.callType);
}

// ---- the parse and write skeletons --------------------------------------------

/// The two log lines of a message. Some classes borrow a sibling's words.
struct EventWords
{
    const char* parsedOk;
    const char* invalid;
};

template <typename Msg, typename = void> struct HoldsRecord : std::false_type
{
};
template <typename Msg>
struct HoldsRecord<Msg, std::void_t<decltype(std::declval<Msg&>().event)>> : std::true_type
{
};

/// The record a message holds, or the message itself for those that carry
/// their fields directly.
template <typename Msg> decltype(auto) recordOf(Msg& msg)
{
    if constexpr (HoldsRecord<Msg>::value)
        return (msg.event);
    else
        return (msg);
}

/// Reads every text field, lets `repair` fix what the server's generation
/// leaves out, and tests the uid. `repair(record, xml, api)` is given for the
/// events that depend on the API; only those log it.
template <typename Msg, typename Repair>
Msg readEvent(const QString& xml, const EventWords& words, [[maybe_unused]] Repair repair)
{
    Msg msg;
    auto& record = recordOf(msg);
    textFields(record, [&xml](const QString& tag, QString& field) { field = MessageReader::text(xml, tag); });
    if constexpr (!std::is_same_v<Repair, std::nullptr_t>) {
        const QString api = MessageReader::text(xml, S_XMLTAG_API);
        MessageReader::logApiVersion(api);
        repair(record, xml, api);
    }
    if (record.uid.isEmpty())
        return MessageReader::invalid<Msg>(QLatin1String(words.invalid));
    return MessageReader::accepted(std::move(msg), xml, QLatin1String(words.parsedOk));
}

template <typename Msg> Msg readEvent(const QString& xml, const EventWords& words)
{
    return readEvent<Msg>(xml, words, nullptr);
}

struct NoMoreElements
{
    void operator()(XmlBodyWriter&) const { }
};

/// Writes `element` holding the record's text fields in field order, except
/// `omitted`, then whatever `more` adds.
template <typename Record, typename More = NoMoreElements>
QString writeEvent(const QString& element, Record record, More more = {}, const QString* omitted = nullptr)
{
    XmlBodyWriter writer;
    writer.start(element);
    textFields(record, [&writer, omitted](const QString& tag, QString& field) {
        if (&tag != omitted)
            writer.text(tag, field);
    });
    more(writer);
    writer.end();
    return writer.result();
}

// ---- repairs for older servers --------------------------------------------------

/// Servers up to 4.2 leave the account out; it is taken from the channel.
void repairAccount(CallLegEvent& e, const QString& api)
{
    if (e.sipAccount.isEmpty() && ApiText::atMost(api, "4.2"))
        e.sipAccount = TELVIX::getAccountFromChannel(e.localChannel);
}

/// Hides a caller whose number marks it anonymous; true if it did.
template <typename Record> bool hideAnonymous(Record& e)
{
    if (!TELVIX::isNumAnonymous(e.remoteNum))
        return false;
    e.remoteNum = TELVIX::AnonymousNumber;
    e.remoteName = TELVIX::AnonymousName;
    return true;
}

/// The element's number 1 says yes. A server up to `lastGuessingApi` that
/// sends no text at all in it leaves the answer to `guess`, drawn from other
/// fields.
bool markedOrGuessed(const QString& xml, const QString& tag, const QString& api, const char* lastGuessingApi,
                     bool guess)
{
    if (MessageReader::isOne(xml, tag))
        return true;
    return ApiText::atMost(api, lastGuessingApi) && MessageReader::text(xml, tag).isEmpty() && guess;
}

/// Old servers mark a call back from a transfer by this prefix of the name.
bool namesTransferReturn(const QString& remoteName)
{
    static const QRegularExpression prefix(QStringLiteral("^R:(?:[^:]+):"));
    return remoteName.contains(prefix);
}

TELVIX::CallAttributes incomingAttributes(const IncomingCallEvent& e, const QString& xml, const QString& api,
                                          bool anonymous)
{
    TELVIX::CallAttributes attributes;
    if (anonymous)
        attributes |= TELVIX::CallAttrAnonymousCaller;
    const bool external
        = MessageReader::text(xml, S_XMLTAG_CALL_REMOTE_TYPE).toLower() == TELVIX::CallRemoteTypeExternalStr;
    attributes |= (external || anonymous) ? TELVIX::CallAttrFromIbl : TELVIX::CallAttrFromLocalExten;
    if (markedOrGuessed(xml, S_XMLTAG_CALL_IS_C2C, api, "4.5",
                        e.remoteName.startsWith(QLatin1String("c2c: "))))
        attributes |= TELVIX::CallAttrClickToCall;
    if (markedOrGuessed(xml, S_XMLTAG_CALL_IS_XFERRETURN, api, "4.5", namesTransferReturn(e.remoteName)))
        attributes |= TELVIX::CallAttrReturnFromTransfer;
    if (!e.queue.isEmpty())
        attributes |= TELVIX::CallAttrToQueue;
    if (!e.group.isEmpty())
        attributes |= TELVIX::CallAttrToCallg;
    return attributes;
}

/// The wire's boolean: 1 or 0.
int wireFlag(bool value)
{
    return value ? 1 : 0;
}

constexpr EventWords originateWords {"originatecall msg parsed ok", "parsed an invalid originatecall msg"};
constexpr EventWords incomingWords {"incomingcall msg parsed ok", "parsed an invalid incomingcall msg"};
constexpr EventWords answeredWords {"answeredcall msg parsed ok", "parsed an invalid answeredcall msg"};
constexpr EventWords finishedWords {"finishedcall msg parsed ok", "parsed an invalid finishedcall msg"};
constexpr EventWords missedWords {"missedcall msg parsed ok", "parsed an invalid missedcall msg"};
constexpr EventWords colpWords {"COLP update msg parsed ok", "parsed an invalid COLP update msg"};
constexpr EventWords localInfoWords {"CallLocalInfo update msg parsed ok",
                                     "parsed an invalid CallLocalInfo update msg"};
constexpr EventWords canceledWords {"TransferCanceled msg parsed ok",
                                    "parsed an invalid TransferCanceled msg"};
constexpr EventWords startedWords {"TransferStarted msg parsed ok", "parsed an invalid TransferStarted msg"};
// The completed event has always logged its sibling's success line.
constexpr EventWords completedWords {"TransferStarted msg parsed ok",
                                     "parsed an invalid TransferCompleted msg"};
// Both click-to-call events log the originate words.
constexpr EventWords c2cWords {"c2c originate msg parsed ok", "parsed an invalid c2c originate msg"};

void registerCallEventTypes()
{
    qRegisterMetaType<OriginateCallEvent>("OriginateCallEvent");
    qRegisterMetaType<IncomingCallEvent>("IncomingCallEvent");
    qRegisterMetaType<AnsweredCallEvent>("AnsweredCallEvent");
    qRegisterMetaType<FinishedCallEvent>("FinishedCallEvent");
    qRegisterMetaType<MissedCallEvent>("MissedCallEvent");
    qRegisterMetaType<ColpUpdateEvent>("ColpUpdateEvent");
    qRegisterMetaType<CallLocalInfoUpdateEvent>("CallLocalInfoUpdateEvent");
    qRegisterMetaType<TransferCanceledCallEvent>("TransferCanceledCallEvent");
    qRegisterMetaType<TransferStartedCallEvent>("TransferStartedCallEvent");
    qRegisterMetaType<TransferCompletedCallEvent>("TransferCompletedCallEvent");
}

} // namespace

Q_CONSTRUCTOR_FUNCTION(registerCallEventTypes)

// ---- OriginateCall ------------------------------------------------------------

OriginateCallEventMsg OriginateCallEventMsg::parseMessage(const QString& xml)
{
    return readEvent<OriginateCallEventMsg>(
        xml, originateWords, [](OriginateCallEvent& e, const QString& doc, const QString& api) {
            repairAccount(e, api);
            // Up to 5.4 the server may name the dialled number "To" only.
            if (e.calledNum.isEmpty() && ApiText::atMost(api, "5.4"))
                e.calledNum = MessageReader::text(doc, S_XMLTAG_CALL_TO);
        });
}

QString OriginateCallEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_CALL_ORIGINATE, event,
                      [this](XmlBodyWriter& writer) { writer.text(S_XMLTAG_CALL_TO, event.calledNum); });
}

// ---- IncomingCall ---------------------------------------------------------------

IncomingCallEventMsg IncomingCallEventMsg::parseMessage(const QString& xml)
{
    return readEvent<IncomingCallEventMsg>(xml, incomingWords,
                                           [](IncomingCallEvent& e, const QString& doc, const QString& api) {
                                               repairAccount(e, api);
                                               const bool anonymous = hideAnonymous(e);
                                               e.attributes = incomingAttributes(e, doc, api, anonymous);
                                           });
}

QString IncomingCallEventMsg::generateXmlMessageBody() const
{
    IncomingCallEvent written = event;
    written.group = event.groupName;
    return writeEvent(S_EVENT_CALL_INCOMING, written, [this](XmlBodyWriter& writer) {
        writer.text(S_XMLTAG_CALL_REMOTE_TYPE,
                    event.attributes.testFlag(TELVIX::CallAttrFromIbl) ? TELVIX::CallRemoteTypeExternalStr
                                                                       : TELVIX::CallRemoteTypeInternalStr);
        writer.text(S_XMLTAG_CALL_IS_C2C, wireFlag(event.attributes.testFlag(TELVIX::CallAttrClickToCall)));
        writer.text(S_XMLTAG_CALL_IS_XFERRETURN,
                    wireFlag(event.attributes.testFlag(TELVIX::CallAttrReturnFromTransfer)));
    });
}

// ---- AnsweredCall -----------------------------------------------------------------

AnsweredCallEventMsg AnsweredCallEventMsg::parseMessage(const QString& xml)
{
    return readEvent<AnsweredCallEventMsg>(
        xml, answeredWords, [](AnsweredCallEvent& e, const QString& doc, const QString& api) {
            repairAccount(e, api);
            if (hideAnonymous(e))
                e.attributes |= TELVIX::CallAttrAnonymousCaller;
            // Up to 4.9 a service call shows as a channel talking to itself.
            if (markedOrGuessed(doc, S_XMLTAG_CALL_IS_TOSERVICE, api, "4.9",
                                e.localChannel == e.remoteChannel)) {
                e.attributes |= TELVIX::CallAttrToService;
                e.remoteChannel.clear();
            }
            e.localAnswer = MessageReader::isOne(doc, S_XMLTAG_CALL_LOCAL_ANSWER);
        });
}

QString AnsweredCallEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_CALL_ANSWERED, event, [this](XmlBodyWriter& writer) {
        writer.text(S_XMLTAG_CALL_LOCAL_ANSWER, wireFlag(event.localAnswer));
        writer.text(S_XMLTAG_CALL_IS_TOSERVICE,
                    wireFlag(event.attributes.testFlag(TELVIX::CallAttrToService)));
    });
}

// ---- FinishedCall -------------------------------------------------------------------

FinishedCallEventMsg FinishedCallEventMsg::parseMessage(const QString& xml)
{
    return readEvent<FinishedCallEventMsg>(
        xml, finishedWords, [](FinishedCallEvent& e, const QString& doc, const QString& api) {
            repairAccount(e, api);
            hideAnonymous(e);
            e.localHangup = MessageReader::isOne(doc, S_XMLTAG_CALL_LOCAL_HANGUP);
        });
}

QString FinishedCallEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_CALL_FINISHED, event, [this](XmlBodyWriter& writer) {
        writer.text(S_XMLTAG_CALL_LOCAL_HANGUP, wireFlag(event.localHangup));
    });
}

// ---- MissedCall ---------------------------------------------------------------------

MissedCallEventMsg MissedCallEventMsg::parseMessage(const QString& xml)
{
    return readEvent<MissedCallEventMsg>(xml, missedWords,
                                         [](MissedCallEvent& e, const QString&, const QString& api) {
                                             repairAccount(e, api);
                                             hideAnonymous(e);
                                         });
}

QString MissedCallEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_CALL_MISSED, event);
}

// ---- the events that depend on no API -------------------------------------------------

ColpUpdateEventMsg ColpUpdateEventMsg::parseMessage(const QString& xml)
{
    return readEvent<ColpUpdateEventMsg>(xml, colpWords);
}

QString ColpUpdateEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_CALL_COLPUPDATE, event);
}

CallLocalInfoUpdateEventMsg CallLocalInfoUpdateEventMsg::parseMessage(const QString& xml)
{
    return readEvent<CallLocalInfoUpdateEventMsg>(xml, localInfoWords);
}

QString CallLocalInfoUpdateEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_CALL_LOCALINFOUPDATE, event);
}

TransferCanceledCallEventMsg TransferCanceledCallEventMsg::parseMessage(const QString& xml)
{
    return readEvent<TransferCanceledCallEventMsg>(xml, canceledWords);
}

QString TransferCanceledCallEventMsg::generateXmlMessageBody() const
{
    // Received as "InlineAtxferCanceled", written under the older name.
    return writeEvent(S_EVENT_CALL_TRANSFER_CANCELED, event);
}

TransferStartedCallEventMsg TransferStartedCallEventMsg::parseMessage(const QString& xml)
{
    return readEvent<TransferStartedCallEventMsg>(xml, startedWords);
}

QString TransferStartedCallEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_CALL_INLINE_ATXFER_STARTED, event, NoMoreElements(), &S_XMLTAG_CALL_UID);
}

TransferCompletedCallEventMsg TransferCompletedCallEventMsg::parseMessage(const QString& xml)
{
    return readEvent<TransferCompletedCallEventMsg>(xml, completedWords);
}

QString TransferCompletedCallEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_CALL_INLINE_ATXFER_STARTED, event);
}

C2COriginateEventMsg C2COriginateEventMsg::parseMessage(const QString& xml)
{
    return readEvent<C2COriginateEventMsg>(xml, c2cWords);
}

QString C2COriginateEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_C2C_ORIGINATE, *this);
}

C2CFinishedEventMsg C2CFinishedEventMsg::parseMessage(const QString& xml)
{
    return readEvent<C2CFinishedEventMsg>(xml, c2cWords);
}

QString C2CFinishedEventMsg::generateXmlMessageBody() const
{
    return writeEvent(S_EVENT_C2C_FINISHED, *this);
}
