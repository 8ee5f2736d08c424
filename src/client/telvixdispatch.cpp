// Dispatch of server messages: recognition by the fixed row order, the
// branch, then the acknowledgement.
#include "telvix_p.h"
#include "telvixdispatch_p.h"

#include "loginmessages.h"
#include "messagereader.h"
#include "simpleobfuscator.h"
#include "simplexmlparser.h"

#include <QTimer>

namespace {
using Kind = MessageRecognizer::NeedleKind;

MessageRecognizer::Row tags(std::initializer_list<const char*> names)
{
    MessageRecognizer::Row row;
    for (const char* name : names)
        row.append({Kind::OpenTag, QString::fromLatin1(name)});
    return row;
}

MessageRecognizer::Row openOrEmpty(const char* name)
{
    return {{Kind::OpenTag, QString::fromLatin1(name)}, {Kind::EmptyTag, QString::fromLatin1(name)}};
}

MessageRecognizer::Row bareWord(const char* word)
{
    return {{Kind::BareWord, QString::fromLatin1(word)}};
}
} // namespace

const QVector<DispatchRow>& dispatchTable()
{
    using P = TelvixPrivate;
    static const QVector<DispatchRow> table = {
        /*  1 */ {tags({"Login"}), &P::rowLogin},
        /*  2 */ {tags({"Authenticated"}), &P::rowLogin},
        /*  3 */ {tags({"LoggedOff"}), &P::rowLoggedOff},
        /*  4 */ {tags({"RedirectConnection"}), &P::rowRedirect},
        /*  5 */ {tags({"PeerStatusList"}), &P::rowIdentities},
        /*  6 */ {tags({"PeerList"}), &P::rowBuddyIdentities},
        /*  7 */ {tags({"Peer"}), &P::rowIdentityUpdate},
        /*  8 */ {tags({"PhoneBookList", "Phonebook"}), &P::rowPhoneBook},
        /*  9 */ {tags({"ExtenList"}), &P::rowExtenList},
        /* 10 */ {tags({"ExtenStatusList"}), &P::rowExtenStatusList},
        /* 11 */ {tags({"ExtenStatus"}), &P::rowExtenStatus},
        /* 12 */ {tags({"CallList"}), &P::rowCdr},
        /* 13 */ {tags({"CommandResponse"}), &P::rowCommandResponse},
        /* 14 */ {tags({"LoggerMessage"}), &P::rowDiagnostic},
        /* 15 */ {tags({"TenantList"}), &P::rowTenantList},
        /* 16 */ {tags({"MinAPI"}), &P::rowBanner},
        /* 17 */ {tags({"CDRCallCenterReport"}), &P::rowCCReport},
        /* 18 */ {tags({"ChannelStatus"}), &P::rowChannelStatus},
        /* 19 */ {tags({"CtiConfiguration"}), &P::rowCtiConfiguration},
        /* 20 */ {tags({"IncomingCall"}), &P::rowIncomingCall},
        /* 21 */ {tags({"AnsweredCall"}), &P::rowAnsweredCall},
        /* 22 */ {tags({"FinishedCall"}), &P::rowFinishedCall},
        /* 23 */ {tags({"OriginateCall"}), &P::rowOriginateCall},
        /* 24 */ {tags({"MissedCall"}), &P::rowMissedCall},
        /* 25 */ {tags({"ColpUpdate"}), &P::rowColpUpdate},
        /* 26 */ {tags({"CallLocalInfoUpdate"}), &P::rowCallLocalInfoUpdate},
        /* 27 */ {tags({"InlineAtxferCanceled"}), &P::rowTransferCanceled},
        /* 28 */ {tags({"InlineAtxferStarted"}), &P::rowTransferStarted},
        /* 29 */ {tags({"InlineAtxferCompleted"}), &P::rowTransferCompleted},
        /* 30 */ {tags({"ServiceStatusList"}), &P::rowServiceStatusList},
        /* 31 */ {tags({"ServiceStatus"}), &P::rowServiceStatus},
        /* 32 */ {tags({"InCallServiceStatus"}), &P::rowInCallServiceStatus},
        /* 33 */ {tags({"QueueEvent"}), &P::rowQueueEvent},
        /* 34 */ {tags({"Probe"}), &P::rowProbe},
        /* 35 */ {tags({"KAACK"}), &P::rowKeepAliveAck},
        /* 36 */ {openOrEmpty("VoicemailMessageList"), &P::rowVoicemailList},
        /* 37 */ {tags({"RebrandingPackChanged"}), &P::rowRebrandingPackChanged},
        /* 38 */ {tags({"AuthToken"}), &P::rowAuthToken},
        /* 39 */ {tags({"MailboxStatus"}), &P::rowMailboxStatus},
        /* 40 */ {tags({"Services"}), &P::rowServices},
        /* 41 */ {tags({"QueuesStatsList"}), &P::rowQueuesStats},
        /* 42 */ {tags({"QueuePeriodicStatsList"}), &P::rowQueuePeriodicStatsList},
        /* 43 */ {tags({"QueuePeriodicStats"}), &P::rowQueuePeriodicStats},
        /* 44 */ {tags({"QueueOperatorPeriodicStatsList"}), &P::rowOperatorPeriodicStatsList},
        /* 45 */ {tags({"OperatorPeriodicStats"}), &P::rowOperatorPeriodicStats},
        /* 46 */ {tags({"QueueMemberAdded"}), &P::rowQueueMemberAdded},
        /* 47 */ {tags({"QueueMemberRemoved"}), &P::rowQueueMemberRemoved},
        /* 48 */ {tags({"QueueMemberPause"}), &P::rowQueueMemberPause},
        /* 49 */ {tags({"C2cOriginate"}), &P::rowC2cOriginate},
        /* 50 */ {tags({"C2cFinished"}), &P::rowC2cFinished},
        /* 51 */ {bareWord("phoneEvent"), &P::rowPhoneEvent},
        /* 52 */ {tags({"Error"}), &P::rowServerError},
    };
    return table;
}

const MessageRecognizer& dispatchRecognizer()
{
    static const MessageRecognizer recognizer = [] {
        QVector<MessageRecognizer::Row> rows;
        for (const DispatchRow& row : dispatchTable())
            rows.append(row.needles);
        return MessageRecognizer(rows);
    }();
    return recognizer;
}

void TelvixPrivate::handleServerMessages()
{
    const QVector<DispatchRow>& table = dispatchTable();
    const MessageRecognizer& recognizer = dispatchRecognizer();
    while (parser && parser->hasPendingMessages()) {
        const QString xml = parser->getNextMessage();
        if (msgLogger)
            msgLogger->log(LGBS::PriorityNotable, QStringLiteral("Received: <<<\n") + SimpleObfuscator::hide(xml));

        DispatchContext ctx;
        const int row = recognizer.recognize(xml);
        const DispatchHandler handler = row >= 0 ? table.at(row).handler : nullptr;
        if (handler)
            (this->*handler)(xml, ctx);
        else
            TLOG(1000) << "UNHANDLED: " << xml;
        if (ctx.leaveLoop)
            return;
        ackServerMessage(ctx.ackId);
    }
}

// ---- session rows -------------------------------------------------------

void TelvixPrivate::rowLogin(const QString& xml, DispatchContext& ctx)
{
    onLoginResponse(xml);
    ctx.leaveLoop = true;
}

void TelvixPrivate::rowLoggedOff(const QString& xml, DispatchContext& ctx)
{
    const LoginRespMsg msg = LoginRespMsg::parseMessage(xml);
    TLOG(1000) << "Logged off with reason: " << msg.reason;
    disconnectFromServer(msg.reason);
    ctx.leaveLoop = true;
}

void TelvixPrivate::rowRedirect(const QString& xml, DispatchContext& ctx)
{
    const RedirectConnectionRespMsg msg = RedirectConnectionRespMsg::parseMessage(xml);
    ctx.ackId = msg.uuid;
    handleRedirect(msg, ctx.leaveLoop);
}

void TelvixPrivate::rowBanner(const QString& xml, DispatchContext& ctx)
{
    Q_UNUSED(ctx)
    minApiVersion = MessageReader::text(xml, QStringLiteral("MinAPI"));
    serverApiVersion = MessageReader::text(xml, SARNET_XML::S_XMLTAG_API);
    TLOG(1000) << "Min API version:" << minApiVersion << "Current API version:" << serverApiVersion;
    if (connectionState != Telvix::StateConnecting)
        return;
    clientApiVersion = clientApiFor(serverApiVersion);
    qDebug().noquote() << "Received banner with API version. server:" << serverApiVersion << "- client:"
                       << clientApiVersion;
    TLOG(1000) << "Received banner with API version. server:" << serverApiVersion << "- client:"
               << clientApiVersion;
    sendAuth();
}

void TelvixPrivate::rowProbe(const QString& xml, DispatchContext& ctx)
{
    Q_UNUSED(xml)
    Q_UNUSED(ctx)
    TLOG(1000) << "Probe received! reply with a KeepAlive...";
    sendKeepAlive();
}

void TelvixPrivate::rowKeepAliveAck(const QString& xml, DispatchContext& ctx)
{
    Q_UNUSED(xml)
    Q_UNUSED(ctx)
    if (keepAliveAckTimer)
        keepAliveAckTimer->stop();
    TLOG(100000) << "Keep Alive Ack received. We are still online!";
}

void TelvixPrivate::rowServerError(const QString& xml, DispatchContext& ctx)
{
    Q_UNUSED(ctx)
    TLOG(1000) << "Error message received - reason:"
               << MessageReader::text(xml, SARNET_XML::S_XMLTAG_SC_ERROR_REASON) << "- request was:"
               << MessageReader::text(xml, SARNET_XML::S_XMLTAG_SC_ERROR_ORIGMSG);
}
