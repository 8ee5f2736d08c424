#pragma once

#include "sxmlmessage.h"
#include "telvix_export.h"

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>

namespace SARNET_XML {
inline const QString S_COMMAND_GET_VM_LIST = QStringLiteral("GetVoicemailMsgList");
inline const QString S_COMMAND_DELETE_VM_MSG = QStringLiteral("DeleteVoicemailMsg");
inline const QString S_COMMAND_MARK_VM_MSG = QStringLiteral("MarkVoicemailMsg");
inline const QString S_COMMAND_GET_MAILBOX_STATUS = QStringLiteral("GetMailboxStatus");
inline const QString S_XMLTAG_VM_MSG_TYPE = QStringLiteral("MsgType");
inline const QString S_XMLTAG_VM_MARK_AS = QStringLiteral("MarkAs");

inline const QString S_XMLTAG_VM_MESSAGE_LIST = QStringLiteral("VoicemailMessageList");
inline const QString S_XMLTAG_VM_MESSAGE_ENTRY = QStringLiteral("VoicemailMessage");
inline const QString S_XMLTAG_VM_CALLER_NAME = QStringLiteral("CallerName");
inline const QString S_XMLTAG_VM_CALLER_NUMBER = QStringLiteral("CallerNum");
inline const QString S_XMLTAG_VM_DATETIME = QStringLiteral("Date");
inline const QString S_XMLTAG_VM_ORIGIN_MAILBOX = QStringLiteral("OriginMailbox");
inline const QString S_XMLTAG_VM_DURATION = QStringLiteral("Duration");
inline const QString S_XMLTAG_VM_IS_NEW = QStringLiteral("isNew");
inline const QString S_XMLTAG_VM_IS_URGENT = QStringLiteral("isUrgent");

inline const QString S_XMLTAG_MAILBOX_STATUS = QStringLiteral("MailboxStatus");
inline const QString S_XMLTAG_MAILBOX = QStringLiteral("Mailbox");
inline const QString S_XMLTAG_MAILBOX_WAITING = QStringLiteral("Waiting");
inline const QString S_XMLTAG_MAILBOX_NEW = QStringLiteral("NewMsgCount");
inline const QString S_XMLTAG_MAILBOX_OLD = QStringLiteral("OldMsgCount");
inline const QString S_XMLTAG_MAILBOX_URGENT = QStringLiteral("UrgentMsgCount");
} // namespace SARNET_XML

/// One message of the user's voicemail box; its audio is downloaded apart.
class TELVIX_EXPORT VoicemailMessage
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString messageUuid MEMBER messageUuid)
    Q_PROPERTY(QString callerName MEMBER callerName)
    Q_PROPERTY(QString callerNumber MEMBER callerNumber)
    Q_PROPERTY(QDateTime date MEMBER date)
    Q_PROPERTY(QString originMailbox MEMBER originMailbox)
    Q_PROPERTY(qint32 duration MEMBER duration)
    Q_PROPERTY(bool isNew MEMBER isNew)
    Q_PROPERTY(bool isUrgent MEMBER isUrgent)

public:
    QString id;
    QString messageUuid;
    QString callerName;
    QString callerNumber;
    QDateTime date;
    QString originMailbox;
    /// Seconds.
    qint32 duration = 0;
    bool isNew = false;
    bool isUrgent = false;

    bool operator==(const VoicemailMessage& other) const;
    bool operator!=(const VoicemailMessage& other) const { return !(*this == other); }
};

/// Counters of the user's voicemail box.
class TELVIX_EXPORT MailboxStatus
{
    Q_GADGET
    Q_PROPERTY(QString mailbox MEMBER mailbox)
    Q_PROPERTY(bool waiting MEMBER waiting)
    Q_PROPERTY(qint32 newCount MEMBER newCount)
    Q_PROPERTY(qint32 oldCount MEMBER oldCount)
    Q_PROPERTY(qint32 urgentCount MEMBER urgentCount)

public:
    QString mailbox;
    /// Messages are waiting (the lamp is lit).
    bool waiting = false;
    qint32 newCount = 0;
    qint32 oldCount = 0;
    qint32 urgentCount = 0;

    bool operator==(const MailboxStatus& other) const;
    bool operator!=(const MailboxStatus& other) const { return !(*this == other); }
};

/// Asks for the voicemail list; `msgType` is a TELVIX::VmMsgTypeFlag text,
/// and an empty one asks for every message.
class TELVIX_EXPORT VoiceMailListReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;

    QString msgType;
};

class TELVIX_EXPORT VoicemailDeleteReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;

    QString id;
};

/// Changes the state of one message; `markAs` is a TELVIX::VmMsgType text.
class TELVIX_EXPORT VoicemailMarkReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;

    QString id;
    QString markAs;
};

class TELVIX_EXPORT MailboxStatusReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;
};

/// "VoicemailMessageList": the messages of the box.
class TELVIX_EXPORT VoiceMailListResMsg : public SXmlResponseMessage
{
public:
    /// Messages without id or readable date are skipped.
    static VoiceMailListResMsg parseMessage(const QString& xml);
    /// Writes nothing: the list is never sent on by this side.
    QString generateXmlMessageBody() const override;

    QList<VoicemailMessage> messages;
};

/// "MailboxStatus": the counters, as fields of the message itself.
class TELVIX_EXPORT MailboxStatusResMsg : public SXmlResponseMessage, public MailboxStatus
{
public:
    /// Always valid.
    static MailboxStatusResMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;
};

Q_DECLARE_METATYPE(VoicemailMessage)
Q_DECLARE_METATYPE(MailboxStatus)
