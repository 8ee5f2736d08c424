// The user's desk phone driven through the server: <PhoneCommand> requests
// written by hand in the phone's own vocabulary, and the phone's events
// turned into signals.
#include "telvix_p.h"

#include "messagereader.h"
#include "simplexmlparser.h"
#include "sxmlmessage.h"

#include <QDebug>
#include <QRegExp>

namespace {

const QString PhoneCommandOpen = QStringLiteral("<PhoneCommand>");
const QString PhoneCommandClose = QStringLiteral("</PhoneCommand>");

QString element(const QString& name, const QString& value)
{
    return OPENTAG(name) + SimpleXmlParser::encodeEntities(value, false) + CLOSETAG(name);
}

// A command on one line of the phone: <name><lineId>..</lineId>extra</name>.
QString lineCommand(const QString& name, const QString& lineId, const QString& extra = QString())
{
    return PhoneCommandOpen + OPENTAG(name) + element(QStringLiteral("lineId"), lineId) + extra
        + CLOSETAG(name) + PhoneCommandClose;
}

// An optional plus, then digits, star or pound. The two spellings are the
// same expression; each command keeps its own.
bool isDialable(const QString& number)
{
    return QRegExp(QStringLiteral("^\\+?[0-9\\*#]+$")).exactMatch(number);
}

bool isForwardable(const QString& number)
{
    return QRegExp(QStringLiteral("^\\+?[0-9*#]+$")).exactMatch(number);
}

} // namespace

// A refused command logs the same words to both logs and sends nothing.
#define TELVIX_PHONE_REFUSE(items)                                                                           \
    do {                                                                                                     \
        Logger* const logger = d_func()->logger;                                                             \
        TLOG(100) << items;                                                                                  \
        qDebug() << items;                                                                                   \
    } while (false)

bool TELVIX::isValidPhoneKey(const QString& key)
{
    static const QStringList keys = {
        PHONE_KEY_0,      PHONE_KEY_1,       PHONE_KEY_2,       PHONE_KEY_3,        PHONE_KEY_4,
        PHONE_KEY_5,      PHONE_KEY_6,       PHONE_KEY_7,       PHONE_KEY_8,        PHONE_KEY_9,
        PHONE_KEY_STAR,   PHONE_KEY_POUND,   PHONE_KEY_OK,      PHONE_KEY_ENTER,    PHONE_KEY_MUTE,
        PHONE_KEY_X,      PHONE_KEY_REC,     PHONE_KEY_SPEAKER, PHONE_KEY_TRANSFER, PHONE_KEY_CANCEL,
        PHONE_KEY_ANSWER, PHONE_KEY_CALLEND, PHONE_KEY_HOOK_ON, PHONE_KEY_HOOK_OFF, PHONE_KEY_REDIAL,
        PHONE_KEY_DND_ON, PHONE_KEY_DND_OFF, PHONE_KEY_HEADSET, PHONE_KEY_HOLD,
    };
    return !key.isEmpty() && keys.contains(key, Qt::CaseSensitive);
}

// ---- commands -------------------------------------------------------------

bool Telvix::sendPlainRequest(const QString& body)
{
    return d_func()->sendPlainRequest(body);
}

bool TelvixPrivate::sendPlainRequest(const QString& body)
{
    PlainRequestMessage request(body);
    return sendRequest(request.serializeToXml(clientApiVersion), false);
}

void Telvix::phoneCommandMakeCall(const QString& number, const QString& peer)
{
    const QString trimmed = number.trimmed();
    if (!isDialable(trimmed)) {
        TELVIX_PHONE_REFUSE("Invalid number to call:" << trimmed);
        return;
    }
    sendPlainRequest(PhoneCommandOpen + element(QStringLiteral("Peer"), peer)
                     + OPENTAG(QStringLiteral("makeCall")) + element(QStringLiteral("numberToCall"), trimmed)
                     + CLOSETAG(QStringLiteral("makeCall")) + PhoneCommandClose);
}

// The commands that name a line and nothing else.
void Telvix::sendLineCommand(const QString& command, const QString& lineId)
{
    if (lineId.isEmpty()) {
        TELVIX_PHONE_REFUSE("Invalid line id:" << lineId);
        return;
    }
    sendPlainRequest(lineCommand(command, lineId));
}

void Telvix::phoneCommandPutOnHold(const QString& lineId)
{
    sendLineCommand(QStringLiteral("putOnHold"), lineId);
}

void Telvix::phoneCommandResumeFromHold(const QString& lineId)
{
    sendLineCommand(QStringLiteral("resumeFromHold"), lineId);
}

void Telvix::phoneCommandUfwdSet(const QString& number, const QString& peer)
{
    const QString trimmed = number.trimmed();
    if (!isForwardable(trimmed)) {
        TELVIX_PHONE_REFUSE("Invalid number to forward:" << trimmed);
        return;
    }
    sendPlainRequest(PhoneCommandOpen + element(QStringLiteral("Peer"), peer)
                     + element(QStringLiteral("ufwdSet"), trimmed) + PhoneCommandClose);
}

void Telvix::phoneCommandUfwdUnset(const QString& peer)
{
    sendPlainRequest(PhoneCommandOpen + element(QStringLiteral("Peer"), peer)
                     + element(QStringLiteral("ufwdSet"), QString()) + PhoneCommandClose);
}

void Telvix::phoneCommandAnswerIncomingCall(const QString& lineId)
{
    sendLineCommand(QStringLiteral("answerIncomingCall"), lineId);
}

void Telvix::phoneCommandHangupCall(const QString& lineId)
{
    sendLineCommand(QStringLiteral("hangupCall"), lineId);
}

// Both transfers name a line and a number to transfer to.
void Telvix::sendTransferCommand(const QString& command, const QString& lineId, const QString& number)
{
    if (lineId.isEmpty()) {
        TELVIX_PHONE_REFUSE("Invalid line id:" << lineId);
        return;
    }
    const QString trimmed = number.trimmed();
    if (!isForwardable(trimmed)) {
        TELVIX_PHONE_REFUSE("Invalid number to transfer:" << trimmed);
        return;
    }
    sendPlainRequest(lineCommand(command, lineId, element(QStringLiteral("to"), trimmed)));
}

void Telvix::phoneCommandUnattendedTransfer(const QString& lineId, const QString& number)
{
    sendTransferCommand(QStringLiteral("unattendedTransfer"), lineId, number);
}

void Telvix::phoneCommandAttendedTransfer(const QString& lineId, const QString& number)
{
    sendTransferCommand(QStringLiteral("attendedTransfer"), lineId, number);
}

void Telvix::phoneCommandGetDndStatus()
{
    Logger* const logger = d_func()->logger;
    TLOG(1000) << "Getting DND status.";
    sendPlainRequest(QStringLiteral("<PhoneCommand><getDndStatus></getDndStatus></PhoneCommand>"));
}

void Telvix::phoneCommandSendDtmfs(const QString& lineId, const QStringList& digits)
{
    if (lineId.isEmpty()) {
        TELVIX_PHONE_REFUSE("Invalid line id:" << lineId);
        return;
    }
    const QRegExp oneDigit(QStringLiteral("^[0-9*#]$"));
    QString sent;
    for (const QString& digit : digits) {
        if (!oneDigit.exactMatch(digit))
            continue;
        QString key = digit;
        if (digit == QLatin1String("#"))
            key = TELVIX::PHONE_KEY_POUND;
        else if (digit == QLatin1String("*"))
            key = TELVIX::PHONE_KEY_STAR;
        sent += element(QStringLiteral("digit"), key);
    }
    if (sent.isEmpty()) {
        TELVIX_PHONE_REFUSE("No valid digits in list");
        return;
    }
    sendPlainRequest(lineCommand(QStringLiteral("sendDtmf"), lineId, sent));
}

void Telvix::phoneCommandPressKeys(const QStringList& keys)
{
    QString pressed;
    for (const QString& key : keys) {
        if (TELVIX::isValidPhoneKey(key))
            pressed += element(QStringLiteral("key"), key);
    }
    if (pressed.isEmpty()) {
        TELVIX_PHONE_REFUSE("No valid keys in list");
        return;
    }
    sendPlainRequest(PhoneCommandOpen + OPENTAG(QStringLiteral("pressKey")) + pressed
                     + CLOSETAG(QStringLiteral("pressKey")) + PhoneCommandClose);
}

// ---- events ---------------------------------------------------------------

void TelvixPrivate::rowPhoneEvent(const QString& xml, DispatchContext& ctx)
{
    Q_UNUSED(ctx)
    handlePhoneEvent(xml);
}

void TelvixPrivate::handlePhoneEvent(const QString& xml)
{
    Q_Q(Telvix);
    using MessageReader::text;
    QString eventType = text(xml, QStringLiteral("eventType"));
    const QString callId = text(xml, QStringLiteral("callId"));
    const QString account = text(xml, QStringLiteral("account")); // told by the server, not needed here
    Q_UNUSED(account)
    QString remoteNum = text(xml, QStringLiteral("remoteNum"));
    QString remoteName = text(xml, QStringLiteral("remoteName"));
    const QString propName = text(xml, QStringLiteral("propName"));
    QString dnd = propName == QLatin1String("dnd") ? text(xml, QStringLiteral("propValue")) : QString();

    // Servers before 4.6 name the event by an element of its own and give
    // the other party as a SIP URI.
    if (ApiText::below(serverApiVersion, "4.6")) {
        TLOG(1000) << "Received old phone event message, converting parameters...";
        static const char* const oldEvents[]
            = {"incomingCall", "outgoingCall", "establishedCall", "endedCall",
               "missedCall",   "holdCall",     "unholdCall",      "dnd"};
        eventType.clear();
        for (const char* name : oldEvents) {
            if (xml.contains(OPENTAG(QLatin1String(name)))) {
                eventType = QLatin1String(name);
                break;
            }
        }
        const QString uri = QStringLiteral("\"%1\" <%2>")
                                .arg(text(xml, QStringLiteral("remoteDisplayName")),
                                     text(xml, QStringLiteral("remoteSipUri")));
        const QPair<QString, QString> nameNum = TELVIX::getNameNumPairFromUri(uri);
        remoteName = nameNum.first;
        remoteNum = nameNum.second;
        dnd = text(xml, QStringLiteral("dnd")) == QLatin1String("on") ? QStringLiteral("1")
                                                                      : QStringLiteral("0");
    }

    if (TELVIX::isNumAnonymous(remoteNum)) {
        remoteNum = TELVIX::AnonymousNumber;
        remoteName = TELVIX::AnonymousName;
    }

    using CallSignal = void (Telvix::*)(QString, QString, QString);
    static const QHash<QString, CallSignal> callSignals = {
        {QStringLiteral("incomingCall"), &Telvix::phoneEventIncomingCall},
        {QStringLiteral("outgoingCall"), &Telvix::phoneEventOutgoingCall},
        {QStringLiteral("establishedCall"), &Telvix::phoneEventEstablishedCall},
        {QStringLiteral("endedCall"), &Telvix::phoneEventEndedCall},
        {QStringLiteral("missedCall"), &Telvix::phoneEventMissedCall},
        {QStringLiteral("holdCall"), &Telvix::phoneEventHoldCall},
        {QStringLiteral("unholdCall"), &Telvix::phoneEventUnholdCall},
    };
    if (const CallSignal signal = callSignals.value(eventType)) {
        Q_EMIT(q->*signal)(remoteNum, remoteName, callId);
    } else if (eventType == QLatin1String("dnd")) {
        // Any dnd event, the answer to phoneCommandGetDndStatus() included,
        // proves that the phone takes commands.
        Q_EMIT q->sigPhoneApiAutorized(true);
        Q_EMIT q->phoneEventDnd(dnd == QLatin1String("1"));
    } else {
        TLOG(1000) << "Unknown phone event!";
    }
}
