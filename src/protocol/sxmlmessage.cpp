#include "sxmlmessage.h"

#include "envelopestamp_p.h"
#include "sarnetxml.h"
#include "simplexmlparser.h"

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
int digitsAt(const QString& text, int from, int count)
{
    int value = 0;
    for (int i = from; i < from + count; ++i) {
        const ushort c = text.at(i).unicode();
        if (c < '0' || c > '9')
            return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

// The envelope's timestamp is UTC by convention. Qt's format parser goes
// through local time (and the time-zone file) on every call, which showed in
// the cost of each message; the canonical form is therefore read directly
// and anything else is left to the format parser.
QDateTime parseUtcTimestamp(const QString& text)
{
    // "yyyy-MM-ddTHH:mm:ss.zzz"
    static const char shape[] = "dddd-dd-ddTdd:dd:dd.ddd";
    bool canonical = text.size() == int(sizeof(shape) - 1);
    for (int i = 0; canonical && i < text.size(); ++i) {
        if (shape[i] != 'd' && text.at(i) != QLatin1Char(shape[i]))
            canonical = false;
    }
    if (canonical) {
        const int year = digitsAt(text, 0, 4), month = digitsAt(text, 5, 2), day = digitsAt(text, 8, 2);
        const int hour = digitsAt(text, 11, 2), minute = digitsAt(text, 14, 2), second = digitsAt(text, 17, 2);
        const int msec = digitsAt(text, 20, 3);
        if (year >= 0 && month >= 0 && day >= 0 && hour >= 0 && minute >= 0 && second >= 0 && msec >= 0) {
            const QDate date(year, month, day);
            const QTime time(hour, minute, second, msec);
            if (date.isValid() && time.isValid())
                return QDateTime(date, time, Qt::UTC);
            return QDateTime(QDate(), QTime(), Qt::UTC);
        }
    }
    QDateTime parsed = QDateTime::fromString(text, SARNET_XML::S_ISO_DATE);
    parsed.setTimeSpec(Qt::UTC);
    return parsed;
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
    return OPENTAG(S_XMLTAG_ROOT) + OPENTAG(S_XMLTAG_API) + api + CLOSETAG(S_XMLTAG_API)
        + OPENTAG(S_XMLTAG_UUID) + EnvelopeStamp::freshUuid() + CLOSETAG(S_XMLTAG_UUID)
        + OPENTAG(S_XMLTAG_TIMESTAMP) + EnvelopeStamp::isoMilliseconds(QDateTime::currentDateTimeUtc())
        + CLOSETAG(S_XMLTAG_TIMESTAMP);
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
    // Every message is acknowledged, and ids are UUIDs: text that the writer
    // would leave as it is, so it is written straight.
    if (EnvelopeStamp::isPlainText(uuid))
        return OPENTAG(S_COMMAND_MSGACK) + OPENTAG(S_XMLTAG_ACK_UUID) + uuid + CLOSETAG(S_XMLTAG_ACK_UUID)
            + CLOSETAG(S_COMMAND_MSGACK);
    QString body;
    QXmlStreamWriter writer(&body);
    writer.writeStartElement(S_COMMAND_MSGACK);
    writer.writeTextElement(S_XMLTAG_ACK_UUID, uuid);
    writer.writeEndElement();
    return body;
}
