#pragma once

#include "telvix_export.h"

#include <QDateTime>
#include <QString>

/// "<name>", unescaped.
TELVIX_EXPORT QString OPENTAG(const QString& name);
/// "</name>", unescaped.
TELVIX_EXPORT QString CLOSETAG(const QString& name);
/// "<name/>", unescaped.
TELVIX_EXPORT QString EMPTYTAG(const QString& name);

/// Base of every message exchanged with the CTI server: one XML document in
/// the SRNT envelope. Messages are values, built on the stack.
class TELVIX_EXPORT SXmlMessage
{
public:
    SXmlMessage();
    SXmlMessage(const SXmlMessage&) = default;
    SXmlMessage(SXmlMessage&&) = default;
    SXmlMessage& operator=(const SXmlMessage&) = default;
    SXmlMessage& operator=(SXmlMessage&&) = default;

    virtual QString getMessageHeader() const;
    virtual QString getMessageFooter() const;
    virtual QString generateXmlMessageBody() const = 0;
    virtual ~SXmlMessage();

    /// Stores `api` and returns header + body + footer: the whole document.
    QString serializeToXml(const QString& api);
    /// Fills uuid, timestamp (UTC) and api from a received document.
    void parseMessageMetadata(const QString& xml);

    bool success = true;
    QString errorMessage;
    QString uuid;
    QDateTime timestamp;
    /// Version to speak when writing, version read when parsing. The default
    /// presents an unnegotiated request as the oldest protocol.
    QString api;
};

/// Client-to-server commands.
class TELVIX_EXPORT SXmlRequestMessage : public SXmlMessage
{
public:
    QString getMessageHeader() const override;
    QString getMessageFooter() const override;

    /// Access token of the side connections; written only when not empty.
    QString token;
};

/// Everything the server sends: answers and events.
class TELVIX_EXPORT SXmlResponseMessage : public SXmlMessage
{
public:
    QString getMessageHeader() const override;
    QString getMessageFooter() const override;
};

/// Small notices outside the request/response pattern.
class TELVIX_EXPORT SXmlInfoMessage : public SXmlMessage
{
public:
    QString getMessageHeader() const override;
    QString getMessageFooter() const override;
};

/// A request whose body the caller supplies as ready-made XML.
class TELVIX_EXPORT PlainRequestMessage : public SXmlRequestMessage
{
public:
    PlainRequestMessage() = default;
    explicit PlainRequestMessage(const QString& xmlBody)
        : body(xmlBody)
    {
    }
    QString generateXmlMessageBody() const override;

    QString body;
};

class TELVIX_EXPORT KeepAliveReqMsg : public SXmlInfoMessage
{
public:
    QString generateXmlMessageBody() const override;
};

/// Acknowledges one received message by its UUID.
class TELVIX_EXPORT AckMsg : public SXmlInfoMessage
{
public:
    AckMsg() = default;
    explicit AckMsg(const QString& ackedUuid) { uuid = ackedUuid; }
    QString generateXmlMessageBody() const override;
};
