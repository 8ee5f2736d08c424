#include "publishedevents_p.h"

#include "telvix.h"

namespace PublishedEvents {
namespace {

// clang-format off
const Row rows[] = {
    {"loggedToServer(LoginDetails)", "sendLoginMessage(LoginDetails)", nullptr, true},
    {"disconnectedFromServer(QString)", "sendLogoutMessage(QString)", nullptr, true},
    {"sigIncomingCall(QString,QString,QString,bool)", "sendIncomingCallMessage(QString,QString,QString,bool)", nullptr, true},
    {"sigAnsweredCall(QString,QString,QString)", "sendAnsweredCallMessage(QString,QString,QString)", nullptr, true},
    {"sigFinishedCall(QString,QString,QString,bool)", "sendFinishedCallMessage(QString,QString,QString,bool)", nullptr, true},
    {"sigStartingCall(QString,QString,QString)", "sendOriginateCallMessage(QString,QString,QString)", nullptr, true},
    {"sigMissedCall(QString,QString)", "sendMissedCallMessage(QString,QString)", nullptr, true},
    {"sigCallTransferCanceled(QString,QString)", "sendCallTransferCanceledMessage(QString,QString)", nullptr, true},
    {"sigCallTransferStarted(TransferStartedCallEvent)", "sendCallTransferStartedMessage(TransferStartedCallEvent)", nullptr, true},
    {"sigCallTransferCompleted(TransferCompletedCallEvent)", "sendCallTransferCompletedMessage(TransferCompletedCallEvent)", nullptr, true},
    {"sigExtenStatusMapChanged(QMap<QString,BuddyStatus>)", "sendExtenStatusMap(QMap<QString,BuddyStatus>)", nullptr, false},
    {"sigExtenStatusChanged(BuddyStatus)", "sendExtenStatus(BuddyStatus)", nullptr, false},
    {"sigCdrChanged(Cdr)", "sendCdr(Cdr)", nullptr, false},
    {"sigPhonebookChanged(QList<PhoneBook>,QFlags<TELVIX::PhonebookTypeFlag>)", "sendContacts(QList<PhoneBook>,QFlags<TELVIX::PhonebookTypeFlag>)", nullptr, true},
    {"sigServiceStatusChanged(QList<ServiceStatus>)", "sendServiceStatus(QList<ServiceStatus>)", nullptr, true},
    {"sigServicesCodesReceived(QMap<TELVIX::ServiceDialCodeType,QString>)", "sendDialCodesUpdateEvent()", nullptr, true},
    {"sigIdentitiesChanged(IdentityList)", "sendIdentities(IdentityList)", nullptr, true},
    {"sigVoicemailMsgList(QList<VoicemailMessage>)", "sendVoicemailList(QList<VoicemailMessage>)", nullptr, true},
    {"sigVoicemailDownloadCompleted(QString,QString,QString)", "sendVoicemailMessageDownloadCompleted(QString,QString,QString)", nullptr, true},
    {"sigRebrandingDownloadCompleted(QString)", "sendRebrandingPackDownloadCompleted(QString)", nullptr, true},
    {"sigMailboxStatusChanged(MailboxStatus)", "sendMailboxStatus(MailboxStatus)", nullptr, true},
    {"sigChatMessage(ChatMessage)", "sendChatMessage(ChatMessage)", nullptr, true},
    {"sigChatContactComposing(QString,QString,bool)", "sendChatContactComposing(QString,QString,bool)", nullptr, true},
    {"sigChatMessageOffline(QString)", nullptr, "OFFLINE", true},
    {"sigChatMessageDelivered(QString)", nullptr, "DELIVERED", true},
    {"sigChatMessageDisplayed(QString)", nullptr, "DISPLAYED", true},
    {"sigChatConnected()", "sendChatConnected()", nullptr, true},
    {"sigChatDisconnected(QString)", "sendChatDisconnected(QString)", nullptr, true},
    {"sigC2cOriginate(QString,QString,QString)", "sendC2cOriginate(QString,QString,QString)", nullptr, true},
    {"sigC2cFinished(QString)", "sendC2cFinished(QString)", nullptr, true},
    {"sigChatFtRequest(QString,QString,QString,QString)", "sendChatFtRequest(QString,QString,QString,QString)", nullptr, true},
    {"sigChatFtStart(QString)", "sendChatFtStart(QString)", nullptr, true},
    {"sigChatFtSent(QString)", "sendChatFtSent(QString)", nullptr, true},
    {"sigChatFtComplete(QString,QString)", "sendChatFtComplete(QString,QString)", nullptr, true},
    {"sigChatVcardComplete(QString,QByteArray)", "sendChatVCardComplete(QString,QByteArray)", nullptr, true},
    {"sigChatFtError(QString)", "sendChatFtError(QString)", nullptr, true},
    {"sigChatFtProgress(QString,float)", "sendChatFtProgress(QString,float)", nullptr, true},
    {"sigChatHistory(QList<ChatMessage>)", "sendChatHistory(QList<ChatMessage>)", nullptr, true},
    {"sigChatHistoryEnabled(bool)", "sendChatHistoryEnabled(bool)", nullptr, true},
    {"sigGuiKeepAlive()", "sendKeepAlive()", nullptr, true},
};
// clang-format on

} // namespace

const Row* begin()
{
    return std::begin(rows);
}

const Row* end()
{
    return std::end(rows);
}

QMetaMethod signalOf(const Row& row)
{
    const int index = Telvix::staticMetaObject.indexOfSignal(row.signal);
    return index < 0 ? QMetaMethod() : Telvix::staticMetaObject.method(index);
}

} // namespace PublishedEvents
