// Every server message through the real dispatch table: the recogniser picks
// the row of any text, and the row's parser reads it, as a session does once a
// message is framed, without a socket or a session behind it.

#include "calleventmessages.h"
#include "cdrmessages.h"
#include "directorymessages.h"
#include "fuzzcheck.h"
#include "loginmessages.h"
#include "messagereader.h"
#include "phonebookmessages.h"
#include "queuemessages.h"
#include "servicemessages.h"
#include "telvixdispatch_p.h"
#include "voicemailmessages.h"

#include <QString>
#include <QStringList>
#include <QVector>

namespace {

using RowParser = void (*)(const QString& xml);

// The common start of a row, with no log to write to.
template <typename Msg> void parse(const QString& xml)
{
    DispatchContext ctx;
    const Msg msg = parseRow<Msg>(xml, ctx, nullptr, "fuzz", {1000, "invalid"});
    FUZZ_CHECK(ctx.ackId == msg.uuid);
}

template <typename Msg> void parseOnly(const QString& xml)
{
    Msg::parseMessage(xml);
}

// Rows that read single fields rather than a message class.
void readFields(const QString& xml, const QStringList& fields)
{
    for (const QString& field : fields)
        MessageReader::text(xml, field);
}

void banner(const QString& xml)
{
    readFields(xml, {QStringLiteral("MinAPI"), QStringLiteral("API")});
}

void nothing(const QString&) { }

void phoneEvent(const QString& xml)
{
    readFields(xml,
               {QStringLiteral("eventType"), QStringLiteral("callId"), QStringLiteral("account"),
                QStringLiteral("remoteNum"), QStringLiteral("remoteName"), QStringLiteral("propName"),
                QStringLiteral("propValue")});
}

void serverError(const QString& xml)
{
    readFields(xml, {QStringLiteral("Reason"), QStringLiteral("OriginalMessage")});
}

// Parsers in the order of the dispatch table's rows.
const QVector<RowParser> kRowParsers = {
    parseOnly<LoginRespMsg>, // Login
    parseOnly<LoginRespMsg>, // Authenticated
    parseOnly<LoginRespMsg>, // LoggedOff
    parseOnly<RedirectConnectionRespMsg>, // RedirectConnection
    parse<IdentitiesRespMsg>, // PeerStatusList
    parse<BuddyIdentitiesRespMsg>, // PeerList
    parse<IdentitiesRespMsg>, // Peer
    parse<PBookRespMsg>, // PhoneBookList, Phonebook
    parse<BuddiesRespMsg>, // ExtenList
    parse<ExtenStatusRespMsg>, // ExtenStatusList
    parse<ExtenStatusRespMsg>, // ExtenStatus
    parse<CdrRespMsg>, // CallList
    parse<SendCommandRespMsg>, // CommandResponse
    parse<DiagnosticRespMsg>, // LoggerMessage
    parse<TenantsRespMsg>, // TenantList
    banner, // MinAPI
    parse<CCReportRespMsg>, // CDRCallCenterReport
    parse<ChannelStatusRespMsg>, // ChannelStatus
    parse<CtiConfigurationRespMsg>, // CtiConfiguration
    parse<IncomingCallEventMsg>, // IncomingCall
    parse<AnsweredCallEventMsg>, // AnsweredCall
    parse<FinishedCallEventMsg>, // FinishedCall
    parse<OriginateCallEventMsg>, // OriginateCall
    parse<MissedCallEventMsg>, // MissedCall
    parse<ColpUpdateEventMsg>, // ColpUpdate
    parse<CallLocalInfoUpdateEventMsg>, // CallLocalInfoUpdate
    parse<TransferCanceledCallEventMsg>, // InlineAtxferCanceled
    parse<TransferStartedCallEventMsg>, // InlineAtxferStarted
    parse<TransferCompletedCallEventMsg>, // InlineAtxferCompleted
    parse<ServiceStatusRespMsg>, // ServiceStatusList
    parse<ServiceStatusRespMsg>, // ServiceStatus
    parse<InCallServiceStatusEventMsg>, // InCallServiceStatus
    parse<QueueEventMsg>, // QueueEvent
    nothing, // Probe
    nothing, // KAACK
    parse<VoiceMailListResMsg>, // VoicemailMessageList
    parse<RebrandingPackChangedEventMsg>, // RebrandingPackChanged
    parse<AuthTokenResMsg>, // AuthToken
    parse<MailboxStatusResMsg>, // MailboxStatus
    parse<ServiceListResMsg>, // Services
    parse<QueueStatsListRespMsg>, // QueuesStatsList
    parse<QueuePeriodicStatsListRespMsg>, // QueuePeriodicStatsList
    parse<QueuePeriodicStatsRespMsg>, // QueuePeriodicStats
    parse<QueueOperatorPeriodicStatsListRespMsg>, // QueueOperatorPeriodicStatsList
    parse<QueueOperatorPeriodicStatsRespMsg>, // OperatorPeriodicStats
    parse<QueueMemberAddedEventMsg>, // QueueMemberAdded
    parse<QueueMemberRemovedEventMsg>, // QueueMemberRemoved
    parse<QueueMemberPausedEventMsg>, // QueueMemberPause
    parse<C2COriginateEventMsg>, // C2cOriginate
    parse<C2CFinishedEventMsg>, // C2cFinished
    phoneEvent, // phoneEvent
    serverError, // Error
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    // A row added to the table needs its parser here.
    FUZZ_CHECK(kRowParsers.size() == dispatchTable().size());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString xml = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    const int row = dispatchRecognizer().recognize(xml);
    // The one-pass recogniser must answer what a search row by row answers.
    FUZZ_CHECK(row == dispatchRecognizer().recognizeBySearch(xml));
    FUZZ_CHECK(row >= -1 && row < kRowParsers.size());
    if (row >= 0)
        kRowParsers.at(row)(xml);
    return 0;
}
