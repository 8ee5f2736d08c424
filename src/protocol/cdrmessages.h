#pragma once

#include "sxmlmessage.h"
#include "telvix_const.h"
#include "telvix_export.h"

#include <QList>
#include <QMetaType>
#include <QString>

namespace SARNET_XML {
inline const QString S_COMMAND_GET_CDR = QStringLiteral("GetCDR");
inline const QString S_XMLTAG_START_DATE = QStringLiteral("StartDate");
inline const QString S_XMLTAG_END_DATE = QStringLiteral("EndDate");
inline const QString S_XMLTAG_CDR_LAST_ENTRY = QStringLiteral("LastEntryUid");

inline const QString S_EVENT_CDR = QStringLiteral("CallList");
inline const QString S_XMLTAG_CDR_ROOT = QStringLiteral("CallList");
inline const QString S_XMLTAG_CDR_ENTRY = QStringLiteral("Call");
inline const QString S_XMLTAG_CDR_ENTRY_UID = QStringLiteral("EntryUid");
inline const QString S_XMLTAG_CDR_CALLER = QStringLiteral("Caller");
inline const QString S_XMLTAG_CDR_CALLEE = QStringLiteral("Called");
inline const QString S_XMLTAG_CDR_CALLERNAME = QStringLiteral("CallerName");
inline const QString S_XMLTAG_CDR_CALLEENAME = QStringLiteral("CalledName");
inline const QString S_XMLTAG_CDR_DATE = QStringLiteral("Date");
inline const QString S_XMLTAG_CDR_DURATION = QStringLiteral("Duration");
inline const QString S_XMLTAG_CDR_DIRECTION = QStringLiteral("Direction");
inline const QString S_XMLTAG_CDR_STATUS = QStringLiteral("Status");
inline const QString S_XMLTAG_CDR_ATTRIBUTE = QStringLiteral("CallAttributes");
} // namespace SARNET_XML

/// Call-history words and the number tables of call direction and result.
namespace CDR {
inline const QString STATUS_OK = QStringLiteral("OK");
inline const QString STATUS_KO = QStringLiteral("KO");

/// "inbound" (1), "outbound" (2), "local" (4); any other number gives an
/// empty text.
TELVIX_EXPORT QString directionText(int direction);
/// "failed" (1), "busy", "congestion", "noanswer", "voicemail" (5 to 7),
/// "ok" (8); any other number gives an empty text.
TELVIX_EXPORT QString statusText(int status);
} // namespace CDR

/// One call of the user's call history.
class TELVIX_EXPORT CdrEntry
{
    Q_GADGET
    Q_PROPERTY(QString entryUid MEMBER entryUid)
    Q_PROPERTY(QString caller MEMBER caller)
    Q_PROPERTY(QString callee MEMBER callee)
    Q_PROPERTY(QString callerName MEMBER callerName)
    Q_PROPERTY(QString calleeName MEMBER calleeName)
    Q_PROPERTY(QString callId MEMBER callId)
    Q_PROPERTY(QString localDirection MEMBER localDirection)
    Q_PROPERTY(QString statusText MEMBER statusText)
    Q_PROPERTY(QString directionText MEMBER directionText)
    Q_PROPERTY(QString startTime MEMBER startTime)
    Q_PROPERTY(qint32 duration MEMBER duration)
    Q_PROPERTY(qint32 direction MEMBER direction)
    Q_PROPERTY(qint32 status MEMBER status)
    Q_PROPERTY(TELVIX::CallAttributes attributes MEMBER attributes)
    Q_PROPERTY(QString infoType MEMBER infoType)

public:
    /// Server-side identity; also orders the history.
    QString entryUid;
    QString caller;
    QString callee;
    QString callerName;
    QString calleeName;
    /// Local identity, never on the wire.
    QString callId;
    /// "in" or "out" as seen from the user's extension, see updateInfo.
    QString localDirection;
    QString statusText;
    QString directionText;
    /// Start as the server wrote it.
    QString startTime;
    /// Seconds.
    qint32 duration = 0;
    /// Number of CDR::directionText.
    qint32 direction = 0;
    /// Number of CDR::statusText.
    qint32 status = 0;
    QFlags<TELVIX::CallAttribute> attributes;
    /// Kind of the entry for the user, such as "ANSWER_IN" or
    /// "VOICEMAIL_LOCAL_OUT".
    QString infoType;

    /// Recomputes the direction and status texts, the side of the call and
    /// infoType for the user's extension `exten`. A local call in which
    /// `exten` takes no part keeps its infoType.
    void updateInfo(const QString& exten);

    bool operator==(const CdrEntry& other) const;
    bool operator!=(const CdrEntry& other) const { return !(*this == other); }
};

/// The call history, oldest first as the server sends it.
using Cdr = QList<CdrEntry>;

/// Asks for the history newer than `lastEntryUid`, within the two dates.
class TELVIX_EXPORT GetCdrReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;

    QString startDate;
    QString endDate;
    QString lastEntryUid;
};

/// "CallList": a slice of the call history.
class TELVIX_EXPORT CdrRespMsg : public SXmlResponseMessage
{
public:
    /// Entries lacking caller, callee, start time, or with a direction or
    /// status number outside the tables are skipped.
    static CdrRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    Cdr cdr;
};

Q_DECLARE_METATYPE(CdrEntry)
