#include "sxmlmessage.h"

#include "sarnetxml.h"
#include "simplexmlparser.h"

#include <QUuid>
#include <QXmlStreamWriter>

using namespace SARNET_XML;

QString OPENTAG(const QString& name)
{
    return QLatin1Char('<') + name + QLatin1Char('>');
}

QString CLOSETAG(const QString& name)
{
    return QLatin1String("</") + name + QLatin1Char('>');
}

QString EMPTYTAG(const QString& name)
{
    return QLatin1Char('<') + name + QLatin1String("/>");
}

namespace {
// The envelope's timestamp is UTC by convention. Reading it straight as UTC
// keeps the local time zone (and its file lookups) out of every message.
QDateTime parseUtcTimestamp(const QString& text)
{
    // "yyyy-MM-ddTHH:mm:ss.zzz"
    if (text.size() < 12 || text.at(10) != QLatin1Char('T'))
        return QDateTime(QDate(), QTime(), Qt::UTC);
    const QDate date = QDate::fromString(text.left(10), QStringLiteral("yyyy-MM-dd"));
    const QTime time = QTime::fromString(text.mid(11), QStringLiteral("HH:mm:ss.zzz"));
    if (!date.isValid() || !time.isValid())
        return QDateTime(QDate(), QTime(), Qt::UTC);
    return QDateTime(date, time, Qt::UTC);
}
} // namespace

SXmlMessage::SXmlMessage()
    : errorMessage(QStringLiteral("Unknown error"))
    , api(QStringLiteral("4.2"))
{
}

SXmlMessage::~SXmlMessage() = default;

QString SXmlMessage::getMessageHeader() const
{
    return OPENTAG(S_XMLTAG_ROOT) + OPENTAG(S_XMLTAG_API) + api + CLOSETAG(S_XMLTAG_API) + OPENTAG(S_XMLTAG_UUID)
        + QUuid::createUuid().toString(QUuid::WithBraces) + CLOSETAG(S_XMLTAG_UUID) + OPENTAG(S_XMLTAG_TIMESTAMP)
        + QDateTime::currentDateTimeUtc().toString(S_ISO_DATE) + CLOSETAG(S_XMLTAG_TIMESTAMP);
}

QString SXmlMessage::getMessageFooter() const
{
    return CLOSETAG(S_XMLTAG_ROOT);
}

QString SXmlMessage::serializeToXml(const QString& apiVersion)
{
    api = apiVersion;
    QString xml = getMessageHeader();
    xml += generateXmlMessageBody();
    xml += getMessageFooter();
    return xml;
}

void SXmlMessage::parseMessageMetadata(const QString& xml)
{
    uuid = SimpleXmlParser::getDecodedTagValue(xml, S_XMLTAG_UUID);
    timestamp = parseUtcTimestamp(SimpleXmlParser::getDecodedTagValue(xml, S_XMLTAG_TIMESTAMP));
    api = SimpleXmlParser::getDecodedTagValue(xml, S_XMLTAG_API);
}

QString SXmlRequestMessage::getMessageHeader() const
{
    QString header = SXmlMessage::getMessageHeader() + OPENTAG(S_XMLTAG_REQUEST);
    if (!token.isEmpty())
        header += OPENTAG(S_XMLTAG_TOKEN) + token + CLOSETAG(S_XMLTAG_TOKEN);
    return header;
}

QString SXmlRequestMessage::getMessageFooter() const
{
    return CLOSETAG(S_XMLTAG_REQUEST) + SXmlMessage::getMessageFooter();
}

QString SXmlResponseMessage::getMessageHeader() const
{
    QString header = SXmlMessage::getMessageHeader() + OPENTAG(S_XMLTAG_RESPONSE);
    if (!success) {
        header += OPENTAG(S_XMLTAG_REQUEST_FAILED) + SimpleXmlParser::encodeEntities(errorMessage, false)
            + CLOSETAG(S_XMLTAG_REQUEST_FAILED);
    }
    return header;
}

QString SXmlResponseMessage::getMessageFooter() const
{
    return CLOSETAG(S_XMLTAG_RESPONSE) + SXmlMessage::getMessageFooter();
}

QString SXmlInfoMessage::getMessageHeader() const
{
    return SXmlMessage::getMessageHeader() + OPENTAG(S_XMLTAG_INFO);
}

QString SXmlInfoMessage::getMessageFooter() const
{
    return CLOSETAG(S_XMLTAG_INFO) + SXmlMessage::getMessageFooter();
}

QString PlainRequestMessage::generateXmlMessageBody() const
{
    return body;
}

QString KeepAliveReqMsg::generateXmlMessageBody() const
{
    return EMPTYTAG(S_COMMAND_KEEPALIVE);
}

QString AckMsg::generateXmlMessageBody() const
{
    QString body;
    QXmlStreamWriter writer(&body);
    writer.writeStartElement(S_COMMAND_MSGACK);
    writer.writeTextElement(S_XMLTAG_ACK_UUID, uuid);
    writer.writeEndElement();
    return body;
}
