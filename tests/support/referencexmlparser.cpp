#include "referencexmlparser.h"

#include <QMutexLocker>
#include <QRegExp>

namespace ReferenceXmlParser {

namespace {

QString stripAngles(const QString& tag)
{
    QString t = tag;
    t.replace(QRegExp("[<>]"), "");
    return t;
}

} // namespace

bool findStartTagDelimiters(const QString& xml, const QString& tag, int startPos, int& start, int& end)
{
    QRegExp rxStart("<" + tag + "[>|\\s]");
    QRegExp rxEnd("(>|/>)");
    start = rxStart.indexIn(xml, startPos);
    end = rxEnd.indexIn(xml, start);
    return rxEnd.cap(1) == "/>";
}

QString getTagValue(const QString& xml, const QString& tag, int startPos, const QString& defaultValue)
{
    const QString t = stripAngles(tag);
    int start = -1;
    int end = -1;
    if (findStartTagDelimiters(xml, t, startPos, start, end))
        return QString("");
    const int close = xml.indexOf("</" + t + ">", start);
    if (start < 0 || close < 0)
        return defaultValue;
    return xml.mid(end + 1, close - end - 1);
}

QString getDecodedTagValue(const QString& xml, const QString& tag, int startPos, const QString& defaultValue)
{
    return decodeEntities(getTagValue(xml, tag, startPos, defaultValue));
}

QStringList getTagsValues(const QString& xml, const QString& tag)
{
    const QString t = stripAngles(tag);
    QRegExp rx("<" + t + "[\\s*|>]");
    const int count = xml.count(rx);
    QStringList values;
    int from = 0;
    for (int i = 0; i < count; ++i) {
        const int index = rx.indexIn(xml, from);
        values.append(getTagValue(xml, tag, index, ""));
        from = index + 1;
    }
    return values;
}

QStringList getDecodedTagsValues(const QString& xml, const QString& tag)
{
    QStringList values;
    const QStringList raw = getTagsValues(xml, tag);
    for (const QString& v : raw)
        values.append(decodeEntities(v));
    return values;
}

QMap<QString, QString> getTagProperties(const QString& xml, const QString& tag, int startPos)
{
    const QString t = stripAngles(tag);
    int start = -1;
    int end = -1;
    findStartTagDelimiters(xml, t, startPos, start, end);
    const int from = start + t.length() + 1;
    QString attrs = xml.mid(from, end - from);
    attrs.replace(QRegExp("\\s*=\\s*"), "=");
    attrs = attrs.trimmed();

    QStringList items;
    QRegExp rxDouble("(\\w+(?:(?:-\\w+)*)?=\".*\")");
    rxDouble.setMinimal(true);
    int pos = 0;
    while ((pos = rxDouble.indexIn(attrs, pos)) != -1) {
        for (int i = 1; i <= rxDouble.captureCount(); ++i) {
            const QString cap = rxDouble.cap(i);
            if (!cap.isEmpty())
                items.append(cap);
        }
        pos += rxDouble.matchedLength();
    }
    QRegExp rxSingle("(\\w+(?:(?:-\\w+)*)?='.*')");
    rxSingle.setMinimal(true);
    pos = 0;
    while ((pos = rxSingle.indexIn(attrs, pos)) != -1) {
        for (int i = 1; i <= rxSingle.captureCount(); ++i) {
            const QString cap = rxSingle.cap(i);
            if (!cap.isEmpty())
                items.append(cap);
        }
        pos += rxSingle.matchedLength();
    }

    QMap<QString, QString> properties;
    for (const QString& item : qAsConst(items)) {
        const QStringList parts = item.trimmed().split("=", Qt::SkipEmptyParts);
        properties[parts.value(0).trimmed()] = unquoteString(parts.value(1));
    }
    return properties;
}

QList<QMap<QString, QString>> getTagsProperties(const QString& xml, const QString& tag)
{
    const QString t = stripAngles(tag);
    QRegExp rx("<" + t + "[\\s*|>]");
    const int count = xml.count(rx);
    QList<QMap<QString, QString>> list;
    int from = 0;
    for (int i = 0; i < count; ++i) {
        const int index = rx.indexIn(xml, from);
        list.append(getTagProperties(xml, tag, index));
        from = index + 1;
    }
    return list;
}

QString unquoteString(const QString& s)
{
    if (!s.isEmpty() && s.at(0) == s.at(s.length() - 1) && (s.at(0) == '"' || s.at(0) == '\''))
        return s.mid(1, s.length() - 2);
    return s;
}

QString decodeEntities(const QString& s)
{
    QString decoded = s;
    decoded.replace("&amp;", "&");
    decoded.replace("&gt;", ">");
    decoded.replace("&lt;", "<");
    decoded.replace("&quot;", "\"");
    decoded.replace("&apos;", "'");
    decoded.replace(QChar(0xFFFD), QChar(' '));

    QRegExp rx("&#([0-9]+);|&#x([0-9A-F]+);", Qt::CaseInsensitive);
    rx.setMinimal(true);
    int pos = 0;
    while ((pos = rx.indexIn(s, pos)) != -1) {
        const QString matched = rx.cap(0);
        int code;
        if (matched.startsWith("&#x"))
            code = rx.cap(2).toInt(nullptr, 16);
        else
            code = rx.cap(1).toInt();
        decoded.replace(matched, QString(QChar(code)));
        pos += rx.matchedLength();
    }
    return decoded;
}

QString encodeEntities(const QString& s, bool encodeNonAscii)
{
    QString encoded = s;
    if (encodeNonAscii) {
        for (int i = 0; i < encoded.length(); ++i) {
            const ushort code = encoded.at(i).unicode();
            if (code > 128) {
                const QString replacement = "&#x" + QString::number(code, 16) + ";";
                encoded.replace(i, 1, replacement);
                i += replacement.length() - 1;
            }
        }
    }
    encoded.replace("&", "&amp;");
    encoded.replace(">", "&gt;");
    encoded.replace("<", "&lt;");
    encoded.replace("\"", "&quot;");
    encoded.replace("'", "&apos;");
    return encoded;
}

Framer::Framer(QObject* parent)
    : QObject(parent)
{
}

void Framer::addData(const QString& data)
{
    if (m_maxBufferSize > 0 && m_buffer.length() > m_maxBufferSize) {
        Q_EMIT parseErrorFound(BufferFull);
        return;
    }
    m_buffer.append(data);

    const int start = m_buffer.indexOf("<" + rootTag + ">");
    const int end = m_buffer.indexOf("</" + rootTag + ">");
    if (end < 0)
        return;

    if (start >= 0 && start < end) {
        const QString message = m_buffer.mid(start, end - start + rootTag.length() + 3);
        m_buffer = m_buffer.mid(end + rootTag.length() + 3);
        switch (m_notifyMode) {
        case 0:
            m_mutex.lock();
            m_pendingMessages.append(message);
            m_mutex.unlock();
            Q_EMIT messageCompleted();
            break;
        case 1:
            m_mutex.lock();
            m_pendingMessages.append(message);
            m_mutex.unlock();
            Q_EMIT parsedMessage(message);
            break;
        case 2:
            Q_EMIT parsedMessage(message);
            break;
        case 3:
            m_mutex.lock();
            m_pendingMessages.append(message);
            m_mutex.unlock();
            Q_EMIT messageCompleted();
            Q_EMIT parsedMessage(message);
            break;
        default:
            m_mutex.lock();
            m_pendingMessages.append(message);
            m_mutex.unlock();
            break;
        }
        if (!m_buffer.isEmpty())
            addData(QString());
    } else if (start > end) {
        m_buffer = m_buffer.mid(start);
        Q_EMIT parseErrorFound(MalformedStream);
        addData(QString());
    }
}

bool Framer::hasPendingMessages()
{
    QMutexLocker lock(&m_mutex);
    return !m_pendingMessages.isEmpty();
}

QString Framer::getNextMessage()
{
    QMutexLocker lock(&m_mutex);
    if (m_pendingMessages.isEmpty())
        return QString("");
    return m_pendingMessages.takeFirst();
}

void Framer::setMaxBufferSize(int size)
{
    if (size >= 0)
        m_maxBufferSize = size;
}

QString Framer::getCurrentBuffer() const
{
    return m_buffer;
}

void Framer::emptyBuffer()
{
    m_buffer.clear();
}

} // namespace ReferenceXmlParser
