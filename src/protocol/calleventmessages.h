#pragma once

#include "sarnetxml.h"
#include "sxmlmessage.h"
#include "telvix_const.h"
#include "telvix_export.h"

#include <QMetaType>
#include <QObject>
#include <QString>

// Words of the call events. "Uid", "SipAccount", "LocalChannel", "Reason",
// "Exten" and "ToNumber" are shared with the call commands (sarnetxml.h).
namespace SARNET_XML {

inline const QString S_EVENT_CALL_ORIGINATE = QStringLiteral("OriginateCall");
inline const QString S_EVENT_CALL_INCOMING = QStringLiteral("IncomingCall");
inline const QString S_EVENT_CALL_ANSWERED = QStringLiteral("AnsweredCall");
inline const QString S_EVENT_CALL_FINISHED = QStringLiteral("FinishedCall");
inline const QString S_EVENT_CALL_MISSED = QStringLiteral("MissedCall");
inline const QString S_EVENT_CALL_COLPUPDATE = QStringLiteral("ColpUpdate");
inline const QString S_EVENT_CALL_LOCALINFOUPDATE = QStringLiteral("CallLocalInfoUpdate");
inline const QString S_EVENT_CALL_INLINE_ATXFER_CANCELED = QStringLiteral("InlineAtxferCanceled");
inline const QString S_EVENT_CALL_TRANSFER_CANCELED = QStringLiteral("TransferCanceled");
inline const QString S_EVENT_CALL_INLINE_ATXFER_STARTED = QStringLiteral("InlineAtxferStarted");
inline const QString S_EVENT_CALL_INLINE_ATXFER_COMPLETED = QStringLiteral("InlineAtxferCompleted");
inline const QString S_EVENT_C2C_ORIGINATE = QStringLiteral("C2cOriginate");
inline const QString S_EVENT_C2C_FINISHED = QStringLiteral("C2cFinished");

inline const QString S_XMLTAG_CALL_REMOTE_CHANNEL = QStringLiteral("RemoteChannel");
inline const QString S_XMLTAG_CALL_REMOTE_NUM = QStringLiteral("Remote");
inline const QString S_XMLTAG_CALL_REMOTE_NAME = QStringLiteral("RemoteName");
inline const QString S_XMLTAG_CALL_CALLED_NUM = QStringLiteral("CalledNum");
inline const QString S_XMLTAG_CALL_TO = QStringLiteral("To");
inline const QString S_XMLTAG_CALL_TYPE = QStringLiteral("CallType");
inline const QString S_XMLTAG_CALL_QUEUE = QStringLiteral("Queue");
inline const QString S_XMLTAG_CALL_QUEUE_NAME = QStringLiteral("QueueName");
inline const QString S_XMLTAG_CALL_GROUP = QStringLiteral("Group");
inline const QString S_XMLTAG_CALL_GROUP_NAME = QStringLiteral("GroupName");
inline const QString S_XMLTAG_CALL_REMOTE_TYPE = QStringLiteral("RemoteType");
inline const QString S_XMLTAG_CALL_IS_C2C = QStringLiteral("IsC2c");
inline const QString S_XMLTAG_CALL_IS_XFERRETURN = QStringLiteral("IsXferReturn");
inline const QString S_XMLTAG_CALL_LOCAL_ANSWER = QStringLiteral("LocalAnswer");
inline const QString S_XMLTAG_CALL_IS_TOSERVICE = QStringLiteral("IsCallToService");
inline const QString S_XMLTAG_CALL_LOCAL_HANGUP = QStringLiteral("LocalHangup");
inline const QString S_XMLTAG_CALLEVENT_OLDLOCALCHANNEL = QStringLiteral("OldLocalChannel");
inline const QString S_XMLTAG_CALLEVENT_NEWLOCALCHANNEL = QStringLiteral("NewLocalChannel");
inline const QString S_XMLTAG_CALL_XFERCANCELED_REASON = QStringLiteral("Reason");
inline const QString S_XMLTAG_C2C_CHANNEL = QStringLiteral("C2cChannel");
inline const QString S_XMLTAG_C2C_CALL_TYPE = QStringLiteral("Type");

} // namespace SARNET_XML

// ---- records ------------------------------------------------------------
//
// The records of one call leg share their leading fields through a few small
// bases, so that every group of fields is declared (and read and written)
// once. Property order follows field order, base fields first.

/// \brief What every event of one call leg carries.
class TELVIX_EXPORT CallLegEvent
{
    Q_GADGET
    Q_PROPERTY(QString uid MEMBER uid)
    Q_PROPERTY(QString sipAccount MEMBER sipAccount)
    Q_PROPERTY(QString localChannel MEMBER localChannel)

public:
    /// The server's call identity; an event without one is invalid.
    QString uid;
    /// The user's account the event concerns.
    QString sipAccount;
    /// Channel on the user's side.
    QString localChannel;
};

/// \brief A leg event that names the number it dialled.
class TELVIX_EXPORT DialledCallEvent : public CallLegEvent
{
    Q_GADGET
    Q_PROPERTY(QString calledNum MEMBER calledNum)

public:
    QString calledNum;
};

/// \brief A leg event that names the other party, without its channel.
class TELVIX_EXPORT CallRemoteEvent : public CallLegEvent
{
    Q_GADGET
    Q_PROPERTY(QString remoteNum MEMBER remoteNum)
    Q_PROPERTY(QString remoteName MEMBER remoteName)

public:
    QString remoteNum;
    QString remoteName;
};

/// \brief A leg event that names the other party and its channel.
class TELVIX_EXPORT CallPeerEvent : public CallLegEvent
{
    Q_GADGET
    Q_PROPERTY(QString remoteChannel MEMBER remoteChannel)
    Q_PROPERTY(QString remoteNum MEMBER remoteNum)
    Q_PROPERTY(QString remoteName MEMBER remoteName)

public:
    QString remoteChannel;
    QString remoteNum;
    QString remoteName;
};

/// \brief A peer event that also tells the dialled number and where the call
/// comes from and goes to.
class TELVIX_EXPORT CallDetailsEvent : public CallPeerEvent
{
    Q_GADGET
    Q_PROPERTY(QString calledNum MEMBER calledNum)
    Q_PROPERTY(TELVIX::CallAttributes attributes MEMBER attributes)

public:
    QString calledNum;
    TELVIX::CallAttributes attributes;
};

/// \brief The user placed a call.
class TELVIX_EXPORT OriginateCallEvent : public DialledCallEvent
{
    Q_GADGET
};

/// \brief A call rings on one of the user's accounts.
class TELVIX_EXPORT IncomingCallEvent : public CallDetailsEvent
{
    Q_GADGET
    Q_PROPERTY(QString callType MEMBER callType)
    Q_PROPERTY(QString queue MEMBER queue)
    Q_PROPERTY(QString queueName MEMBER queueName)
    Q_PROPERTY(QString group MEMBER group)
    Q_PROPERTY(QString groupName MEMBER groupName)

public:
    /// The server's call type text, as it arrived.
    QString callType;
    /// Queue that delivered the call.
    QString queue;
    QString queueName;
    /// Call group that delivered the call.
    QString group;
    QString groupName;
};

/// \brief A leg was answered.
class TELVIX_EXPORT AnsweredCallEvent : public CallDetailsEvent
{
    Q_GADGET
    Q_PROPERTY(qint32 previousCallState MEMBER previousCallState)
    Q_PROPERTY(bool localAnswer MEMBER localAnswer)

public:
    /// Not on the wire: the call table fills it with the leg's direction.
    qint32 previousCallState = -1;
    /// True when the user's side answered.
    bool localAnswer = false;
};

/// \brief A leg ended.
class TELVIX_EXPORT FinishedCallEvent : public CallRemoteEvent
{
    Q_GADGET
    Q_PROPERTY(QString calledNum MEMBER calledNum)
    Q_PROPERTY(QString reason MEMBER reason)
    Q_PROPERTY(bool localHangup MEMBER localHangup)

public:
    QString calledNum;
    QString reason;
    /// True when the user's side hung up.
    bool localHangup = false;
};

/// \brief A call rang on a leg and nobody answered.
class TELVIX_EXPORT MissedCallEvent : public CallRemoteEvent
{
    Q_GADGET
};

/// \brief The connected line of a leg changed.
class TELVIX_EXPORT ColpUpdateEvent : public CallPeerEvent
{
    Q_GADGET
};

/// \brief The server moved the user's side of a leg to another channel.
class TELVIX_EXPORT CallLocalInfoUpdateEvent
{
    Q_GADGET
    Q_PROPERTY(QString uid MEMBER uid)
    Q_PROPERTY(QString sipAccount MEMBER sipAccount)
    Q_PROPERTY(QString oldLocalChannel MEMBER oldLocalChannel)
    Q_PROPERTY(QString newLocalChannel MEMBER newLocalChannel)

public:
    QString uid;
    QString sipAccount;
    QString oldLocalChannel;
    QString newLocalChannel;
};

/// \brief An attended transfer was given up.
class TELVIX_EXPORT TransferCanceledCallEvent
{
    Q_GADGET
    Q_PROPERTY(QString uid MEMBER uid)
    Q_PROPERTY(QString reason MEMBER reason)

public:
    QString uid;
    QString reason;
};

/// \brief An attended transfer began on a leg.
class TELVIX_EXPORT TransferStartedCallEvent : public DialledCallEvent
{
    Q_GADGET
};

/// \brief An attended transfer of a leg went through.
class TELVIX_EXPORT TransferCompletedCallEvent : public CallLegEvent
{
    Q_GADGET
};

Q_DECLARE_METATYPE(OriginateCallEvent)
Q_DECLARE_METATYPE(IncomingCallEvent)
Q_DECLARE_METATYPE(AnsweredCallEvent)
Q_DECLARE_METATYPE(FinishedCallEvent)
Q_DECLARE_METATYPE(MissedCallEvent)
Q_DECLARE_METATYPE(ColpUpdateEvent)
Q_DECLARE_METATYPE(CallLocalInfoUpdateEvent)
Q_DECLARE_METATYPE(TransferCanceledCallEvent)
Q_DECLARE_METATYPE(TransferStartedCallEvent)
Q_DECLARE_METATYPE(TransferCompletedCallEvent)

// ---- messages -----------------------------------------------------------
//
// Each event message holds one record in `event`; the two click-to-call
// messages carry their few fields themselves. Parsing never fails outward:
// an event without "Uid" comes back with success false and an empty record.
// Servers up to a given API leave things out; the parsers repair them.

/// "OriginateCall". Up to API "5.4" the dialled number may come as "To".
class TELVIX_EXPORT OriginateCallEventMsg : public SXmlResponseMessage
{
public:
    static OriginateCallEventMsg parseMessage(const QString& xml);
    /// Writes the dialled number under both "CalledNum" and "To".
    QString generateXmlMessageBody() const override;

    OriginateCallEvent event;
};

/// "IncomingCall". `attributes` are derived from "RemoteType", "IsC2c",
/// "IsXferReturn", the queue, the group and the caller's anonymity.
class TELVIX_EXPORT IncomingCallEventMsg : public SXmlResponseMessage
{
public:
    static IncomingCallEventMsg parseMessage(const QString& xml);
    /// Writes `groupName` as both "Group" and "GroupName".
    QString generateXmlMessageBody() const override;

    IncomingCallEvent event;
};

/// "AnsweredCall". A call to a service has no remote channel.
class TELVIX_EXPORT AnsweredCallEventMsg : public SXmlResponseMessage
{
public:
    static AnsweredCallEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    AnsweredCallEvent event;
};

/// "FinishedCall".
class TELVIX_EXPORT FinishedCallEventMsg : public SXmlResponseMessage
{
public:
    static FinishedCallEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    FinishedCallEvent event;
};

/// "MissedCall".
class TELVIX_EXPORT MissedCallEventMsg : public SXmlResponseMessage
{
public:
    static MissedCallEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    MissedCallEvent event;
};

/// "ColpUpdate".
class TELVIX_EXPORT ColpUpdateEventMsg : public SXmlResponseMessage
{
public:
    static ColpUpdateEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    ColpUpdateEvent event;
};

/// "CallLocalInfoUpdate".
class TELVIX_EXPORT CallLocalInfoUpdateEventMsg : public SXmlResponseMessage
{
public:
    static CallLocalInfoUpdateEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    CallLocalInfoUpdateEvent event;
};

/// Arrives as "InlineAtxferCanceled" but is written as "TransferCanceled".
class TELVIX_EXPORT TransferCanceledCallEventMsg : public SXmlResponseMessage
{
public:
    static TransferCanceledCallEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    TransferCanceledCallEvent event;
};

/// "InlineAtxferStarted".
class TELVIX_EXPORT TransferStartedCallEventMsg : public SXmlResponseMessage
{
public:
    static TransferStartedCallEventMsg parseMessage(const QString& xml);
    /// Writes no "Uid": what it writes does not read back as valid.
    QString generateXmlMessageBody() const override;

    TransferStartedCallEvent event;
};

/// "InlineAtxferCompleted".
class TELVIX_EXPORT TransferCompletedCallEventMsg : public SXmlResponseMessage
{
public:
    static TransferCompletedCallEventMsg parseMessage(const QString& xml);
    /// Writes the element "InlineAtxferStarted".
    QString generateXmlMessageBody() const override;

    TransferCompletedCallEvent event;
};

/// "C2cOriginate": a click-to-call has started.
class TELVIX_EXPORT C2COriginateEventMsg : public SXmlResponseMessage
{
public:
    static C2COriginateEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QString uid;
    /// The extension that places the call.
    QString exten;
    QString c2cChannel;
    QString toNumber;
    /// "Type" on the wire.
    QString callType;
};

/// "C2cFinished": a click-to-call has ended.
class TELVIX_EXPORT C2CFinishedEventMsg : public SXmlResponseMessage
{
public:
    static C2CFinishedEventMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    QString uid;
    QString exten;
    QString c2cChannel;
};
