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
        /*  5 */ {tags({"PeerStatusList"}), nullptr},
        /*  6 */ {tags({"PeerList"}), nullptr},
        /*  7 */ {tags({"Peer"}), nullptr},
        /*  8 */ {tags({"PhoneBookList", "Phonebook"}), nullptr},
        /*  9 */ {tags({"ExtenList"}), nullptr},
        /* 10 */ {tags({"ExtenStatusList"}), nullptr},
        /* 11 */ {tags({"ExtenStatus"}), nullptr},
        /* 12 */ {tags({"CallList"}), nullptr},
        /* 13 */ {tags({"CommandResponse"}), nullptr},
        /* 14 */ {tags({"LoggerMessage"}), nullptr},
        /* 15 */ {tags({"TenantList"}), nullptr},
        /* 16 */ {tags({"MinAPI"}), &P::rowBanner},
        /* 17 */ {tags({"CDRCallCenterReport"}), nullptr},
        /* 18 */ {tags({"ChannelStatus"}), nullptr},
        /* 19 */ {tags({"CtiConfiguration"}), nullptr},
        /* 20 */ {tags({"IncomingCall"}), nullptr},
        /* 21 */ {tags({"AnsweredCall"}), nullptr},
        /* 22 */ {tags({"FinishedCall"}), nullptr},
        /* 23 */ {tags({"OriginateCall"}), nullptr},
        /* 24 */ {tags({"MissedCall"}), nullptr},
        /* 25 */ {tags({"ColpUpdate"}), nullptr},
        /* 26 */ {tags({"CallLocalInfoUpdate"}), nullptr},
        /* 27 */ {tags({"InlineAtxferCanceled"}), nullptr},
        /* 28 */ {tags({"InlineAtxferStarted"}), nullptr},
        /* 29 */ {tags({"InlineAtxferCompleted"}), nullptr},
        /* 30 */ {tags({"ServiceStatusList"}), nullptr},
        /* 31 */ {tags({"ServiceStatus"}), nullptr},
        /* 32 */ {tags({"InCallServiceStatus"}), nullptr},
        /* 33 */ {tags({"QueueEvent"}), nullptr},
        /* 34 */ {tags({"Probe"}), &P::rowProbe},
        /* 35 */ {tags({"KAACK"}), &P::rowKeepAliveAck},
        /* 36 */ {openOrEmpty("VoicemailMessageList"), nullptr},
        /* 37 */ {tags({"RebrandingPackChanged"}), nullptr},
        /* 38 */ {tags({"AuthToken"}), nullptr},
        /* 39 */ {tags({"MailboxStatus"}), nullptr},
        /* 40 */ {tags({"Services"}), nullptr},
        /* 41 */ {tags({"QueuesStatsList"}), nullptr},
        /* 42 */ {tags({"QueuePeriodicStatsList"}), nullptr},
        /* 43 */ {tags({"QueuePeriodicStats"}), nullptr},
        /* 44 */ {tags({"QueueOperatorPeriodicStatsList"}), nullptr},
        /* 45 */ {tags({"OperatorPeriodicStats"}), nullptr},
        /* 46 */ {tags({"QueueMemberAdded"}), nullptr},
        /* 47 */ {tags({"QueueMemberRemoved"}), nullptr},
        /* 48 */ {tags({"QueueMemberPause"}), nullptr},
        /* 49 */ {tags({"C2cOriginate"}), nullptr},
        /* 50 */ {tags({"C2cFinished"}), nullptr},
        /* 51 */ {bareWord("phoneEvent"), nullptr},
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
