#pragma once

#include "telvix_export.h"

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>

/// One chat message as every chat consumer sees it: received, sent, copied
/// from another device of the same user, or read back from the archive.
class TELVIX_EXPORT ChatMessage
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString chatId MEMBER chatId)
    Q_PROPERTY(QString exten MEMBER exten)
    Q_PROPERTY(QString body MEMBER body)
    Q_PROPERTY(QString threadId MEMBER threadId)
    Q_PROPERTY(QDateTime timestamp MEMBER timestamp)
    Q_PROPERTY(int direction MEMBER direction)
    Q_PROPERTY(int type MEMBER type)

public:
    enum Direction { Received = 0, Sent = 1, InvalidDirection = 2 };
    enum Type { Normal = 0, Copy = 1, History = 2, Feedback = 3, InvalidType = 4 };

    /// Stanza id.
    QString id;
    /// Bare JID of the other party.
    QString chatId;
    /// Extension of the other party; empty until the client maps the JID.
    QString exten;
    QString body;
    QString threadId;
    /// UTC.
    QDateTime timestamp;
    /// A `Direction`; kept as int because other values travel too.
    int direction = InvalidDirection;
    /// A `Type`; kept as int because other values travel too.
    int type = InvalidType;

    bool operator==(const ChatMessage& other) const;
    bool operator!=(const ChatMessage& other) const { return !(*this == other); }
};

Q_DECLARE_METATYPE(ChatMessage)
