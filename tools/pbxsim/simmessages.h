#pragma once

#include "directorymessages.h"
#include "loginmessages.h"
#include "sxmlmessage.h"
#include "voicemailmessages.h"

#include <QList>
#include <QString>

// What the simulator writes beyond the library's own writers: the library
// writes a short login answer and no voicemail list, and has no class for the
// server's notices (banner, keep-alive answer, probe, error, log-off).

/// The whole "Authenticated" answer: the library's fields plus the user's
/// names, mode, chat account and the server's words.
class SimLoginAnswer : public LoginRespMsg
{
public:
    QString generateXmlMessageBody() const override;
};

/// "VoicemailMessageList" with its messages.
class SimVoicemailList : public SXmlResponseMessage
{
public:
    QString generateXmlMessageBody() const override;

    QList<VoicemailMessage> messages;
};

/// A response whose body is given as ready-made XML.
class SimResponse : public SXmlResponseMessage
{
public:
    explicit SimResponse(const QString& xmlBody)
        : body(xmlBody)
    {
    }
    QString generateXmlMessageBody() const override { return body; }

    QString body;
};

/// An info message whose body is given as ready-made XML.
class SimInfo : public SXmlInfoMessage
{
public:
    explicit SimInfo(const QString& xmlBody)
        : body(xmlBody)
    {
    }
    QString generateXmlMessageBody() const override { return body; }

    QString body;
};

namespace SimNotice {
/// The banner: the oldest API the server still speaks.
SimInfo banner(const QString& minApi);
/// Answer to a keep-alive; written open and closed, as clients look for "<KAACK>".
SimInfo keepAliveAck();
/// The server's "are you there": the client answers with a keep-alive.
SimInfo probe();
SimResponse error(const QString& reason, const QString& originalMessage);
SimResponse loggedOff(const QString& reason);
/// One extension's new status: a lone "ExtenStatus", which clients merge
/// into what they know (a list would replace it).
SimResponse extenStatus(const BuddyStatus& status);
} // namespace SimNotice
