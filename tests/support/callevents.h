#pragma once

#include "fakectiserver.h"

#include <QString>

/// Bodies of the server's call events, as a CTI server writes them, for the
/// tests that need calls live on a client. Values are XML-escaped.
namespace CallEvents {

inline QString element(const char* name, const QString& value)
{
    return FakeCtiServer::textElement(QLatin1String(name), value);
}

inline QString wrap(const char* name, const QString& inner)
{
    return QLatin1Char('<') + QLatin1String(name) + QLatin1Char('>') + inner + QLatin1String("</")
        + QLatin1String(name) + QLatin1Char('>');
}

inline QString leg(const QString& uid, const QString& account, const QString& localChannel)
{
    return element("Uid", uid) + element("SipAccount", account) + element("LocalChannel", localChannel);
}

inline QString incoming(const QString& uid, const QString& account, const QString& remote,
                        const QString& localChannel, const QString& remoteChannel,
                        const QString& remoteName = QStringLiteral("Bob"), const QString& extra = QString())
{
    return wrap("IncomingCall",
                leg(uid, account, localChannel) + element("RemoteChannel", remoteChannel)
                    + element("Remote", remote) + element("RemoteName", remoteName)
                    + element("CalledNum", QStringLiteral("200")) + extra);
}

inline QString answered(const QString& uid, const QString& account, const QString& localChannel,
                        const QString& remoteChannel, const QString& remote, const QString& localAnswer)
{
    return wrap("AnsweredCall",
                leg(uid, account, localChannel) + element("RemoteChannel", remoteChannel)
                    + element("Remote", remote) + element("RemoteName", QStringLiteral("Bob"))
                    + element("LocalAnswer", localAnswer));
}

inline QString finished(const QString& uid, const QString& account, const QString& localChannel,
                        const QString& remote, bool localHangup = false)
{
    return wrap("FinishedCall",
                leg(uid, account, localChannel) + element("Remote", remote)
                    + element("RemoteName", QStringLiteral("Bob"))
                    + element("Reason", QStringLiteral("normal"))
                    + element("LocalHangup", localHangup ? QStringLiteral("1") : QStringLiteral("0")));
}

} // namespace CallEvents
