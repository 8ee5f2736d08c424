#pragma once

#include "telvix_export.h"

#include <QMetaType>
#include <QObject>
#include <QString>

/// \brief One leg of a live call: the call as one of the user's SIP accounts
/// sees it.
///
/// A call that rings on a desk phone and on a softphone at once is one uid
/// with two legs. The call table of the client owns its legs.
class TELVIX_EXPORT CallInfo
{
    Q_GADGET
    Q_PROPERTY(QString uid MEMBER uid)
    Q_PROPERTY(QString callerNum MEMBER callerNum)
    Q_PROPERTY(QString callerName MEMBER callerName)
    Q_PROPERTY(QString calledNum MEMBER calledNum)
    Q_PROPERTY(QString calledName MEMBER calledName)
    Q_PROPERTY(QString sipAccount MEMBER sipAccount)
    Q_PROPERTY(int direction MEMBER direction)
    Q_PROPERTY(bool answered MEMBER answered)
    Q_PROPERTY(bool isC2c MEMBER isC2c)
    Q_PROPERTY(QString localChannel MEMBER localChannel)
    Q_PROPERTY(QString remoteChannel MEMBER remoteChannel)

public:
    /// Values of `direction`.
    enum Direction { DirectionUnknown = -1, DirectionOutgoing = 0, DirectionIncoming = 1 };
    Q_ENUM(Direction)

    /// The server's call uid.
    QString uid;
    QString callerNum;
    QString callerName;
    QString calledNum;
    QString calledName;
    /// The leg's account; "c2c" for a click-to-call leg.
    QString sipAccount;
    /// One of Direction.
    int direction = DirectionUnknown;
    /// Only ever goes from false to true.
    bool answered = false;
    /// Made by a click-to-call.
    bool isC2c = false;
    /// The server's channel of this leg.
    QString localChannel;
    /// The channel at the other end.
    QString remoteChannel;

    /// \brief The other party's number: the called number of an outgoing leg,
    /// the caller number of an incoming one, empty when the direction is unknown.
    Q_INVOKABLE QString getPeerNum() const;
    /// \brief Stores `channel` as the remote channel, and number and name in
    /// the called fields of an outgoing leg, in the caller fields otherwise.
    Q_INVOKABLE void setPeer(const QString& num, const QString& name, const QString& channel);
    /// \brief Stores the leg's own channel, after the server moved it.
    Q_INVOKABLE void setLocalInfo(const QString& channel);

    bool operator==(const CallInfo& other) const;
    bool operator!=(const CallInfo& other) const { return !(*this == other); }
};

Q_DECLARE_METATYPE(CallInfo)
