#include "simplexmlparser.h"

#include "entitydecoder_p.h"

#include <QMutexLocker>
#include <QStringView>
#include <QVarLengthArray>
#include <QtAlgorithms>

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// The lookups scan characters directly. Their rules were first written as
// regular expressions and every message class depends on the exact results of
// those expressions, including their odd corners, so the character classes
// below reproduce the expression classes: "\s" is QChar::isSpace(), "\w" is a
// letter, number or mark category, or '_', tested per UTF-16 code unit.

namespace {

inline bool isSpaceUnit(ushort c)
{
    return QChar::isSpace(c);
}

inline bool isWordUnit(ushort c)
{
    if (c < 128)
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    return QChar::isLetterOrNumber(c) || QChar::isMark(c);
}

// What may follow a tag name in the single-element lookups: "[>|\s]".
// Closures rather than functions, so that findOpening inlines the test
// instead of calling through a pointer for every candidate.
const auto endsElementName = [](ushort c) { return c == '>' || c == '|' || isSpaceUnit(c); };

// What may follow a tag name in the list lookups: "[\s*|>]".
const auto endsListedName = [](ushort c) { return c == '>' || c == '|' || c == '*' || isSpaceUnit(c); };

// Where a search from `offset` begins, with negative offsets counted from the
// end; -1 when nothing can match.
inline qsizetype searchOrigin(qsizetype offset, qsizetype length)
{
    if (offset < 0)
        offset += length;
    return (offset < 0 || offset > length) ? -1 : offset;
}

inline quint64 fourUnits(const QChar* p)
{
    quint64 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Tag names are short: compared four units at a time, the last four
// overlapping the ones before, instead of a branch per unit or a call to memcmp.
inline bool sameUnits(const QChar* a, const QChar* b, qsizetype count)
{
    if (count < 4) {
        for (qsizetype k = 0; k < count; ++k) {
            if (a[k] != b[k])
                return false;
        }
        return true;
    }
    for (qsizetype k = 0; k + 4 < count; k += 4) {
        if (fourUnits(a + k) != fourUnits(b + k))
            return false;
    }
    return fourUnits(a + count - 4) == fourUnits(b + count - 4);
}

// First i in [from, last) with d[i] == a and d[i + 1] == b; d[last] must be
// readable. Markup has a "<" every few characters, so filtering on the name's
// first character as well skips most of them sixteen units at a time.
inline qsizetype findPair(const QChar* text, qsizetype from, qsizetype last, ushort a, ushort b)
{
    const ushort* d = reinterpret_cast<const ushort*>(text);
    qsizetype i = from;
#if defined(__SSE2__)
    const __m128i va = _mm_set1_epi16(short(a));
    const __m128i vb = _mm_set1_epi16(short(b));
    auto hits = [&](qsizetype at) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + at));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + at + 1));
        return _mm_and_si128(_mm_cmpeq_epi16(x, va), _mm_cmpeq_epi16(y, vb));
    };
    for (; i + 16 <= last; i += 16) {
        const uint mask = uint(_mm_movemask_epi8(_mm_packs_epi16(hits(i), hits(i + 8))));
        if (mask)
            return i + qsizetype(qCountTrailingZeroBits(mask));
    }
    for (; i + 8 <= last; i += 8) {
        const uint mask = uint(_mm_movemask_epi8(hits(i)));
        if (mask)
            return i + qsizetype(qCountTrailingZeroBits(mask) >> 1);
    }
#endif
    for (; i < last; ++i) {
        if (d[i] == a && d[i + 1] == b)
            return i;
    }
    return -1;
}

// The same for three units; d[last + 1] must be readable.
inline qsizetype findTriple(const QChar* text, qsizetype from, qsizetype last, ushort a, ushort b, ushort c)
{
    const ushort* d = reinterpret_cast<const ushort*>(text);
    qsizetype i = from;
#if defined(__SSE2__)
    const __m128i va = _mm_set1_epi16(short(a));
    const __m128i vb = _mm_set1_epi16(short(b));
    const __m128i vc = _mm_set1_epi16(short(c));
    auto hits = [&](qsizetype at) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + at));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + at + 1));
        const __m128i z = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + at + 2));
        return _mm_and_si128(_mm_and_si128(_mm_cmpeq_epi16(x, va), _mm_cmpeq_epi16(y, vb)),
                             _mm_cmpeq_epi16(z, vc));
    };
    for (; i + 16 <= last; i += 16) {
        const uint mask = uint(_mm_movemask_epi8(_mm_packs_epi16(hits(i), hits(i + 8))));
        if (mask)
            return i + qsizetype(qCountTrailingZeroBits(mask));
    }
    for (; i + 8 <= last; i += 8) {
        const uint mask = uint(_mm_movemask_epi8(hits(i)));
        if (mask)
            return i + qsizetype(qCountTrailingZeroBits(mask) >> 1);
    }
#endif
    for (; i < last; ++i) {
        if (d[i] == a && d[i + 1] == b && d[i + 2] == c)
            return i;
    }
    return -1;
}

// First occurrence of `needle` (two units or more) in `hay` at or after `from`.
qsizetype findText(QStringView hay, qsizetype from, QStringView needle)
{
    const qsizetype n = hay.size();
    const qsizetype len = needle.size();
    const QChar* d = hay.data();
    const QChar* w = needle.data();
    const qsizetype last = n - len; // no match starts past it
    for (qsizetype i = from; i <= last; ++i) {
        i = len >= 3 ? findTriple(d, i, last + 1, w[0].unicode(), w[1].unicode(), w[2].unicode())
                     : findPair(d, i, last + 1, w[0].unicode(), w[1].unicode());
        if (i < 0 || i > last)
            return -1;
        if (sameUnits(d + i, w, len))
            return i;
    }
    return -1;
}

// A tag name with "<" and ">" removed; no copy unless there was one to remove.
class TagName
{
public:
    explicit TagName(const QString& tag)
    {
        bool angles = false;
        for (const QChar c : tag)
            angles = angles || c == QLatin1Char('<') || c == QLatin1Char('>');
        if (angles) {
            m_stripped = tag;
            m_stripped.remove(QLatin1Char('<'));
            m_stripped.remove(QLatin1Char('>'));
            m_view = m_stripped;
        } else {
            m_view = tag;
        }
    }
    QStringView view() const { return m_view; }

private:
    QString m_stripped;
    QStringView m_view;
};

// First "<" + name + a unit accepted by `endsName`, at or after `from`.
template <typename EndsName>
qsizetype findOpening(QStringView xml, QStringView name, qsizetype from, EndsName endsName)
{
    const qsizetype n = xml.size();
    const qsizetype nameLen = name.size();
    const QChar* d = xml.data();
    // "<", the name and one more unit: no match can start past `last`.
    const qsizetype last = n - nameLen - 2;
    if (nameLen == 0) {
        for (qsizetype i = from; i <= last; ++i) {
            if (d[i] == QLatin1Char('<') && endsName(d[i + 1].unicode()))
                return i;
        }
        return -1;
    }
    const ushort first = name.at(0).unicode();
    for (qsizetype i = from; i <= last; ++i) {
        i = findPair(d, i, last + 1, '<', first);
        if (i < 0 || i > last)
            return -1;
        if (endsName(d[i + 1 + nameLen].unicode()) && sameUnits(d + i + 2, name.data() + 1, nameLen - 1))
            return i;
    }
    return -1;
}

// First ">" or "/>" at or after `from` (negative counts from the end).
qsizetype findTagEnd(QStringView xml, qsizetype from, bool& selfClosed)
{
    selfClosed = false;
    const qsizetype n = xml.size();
    const qsizetype origin = searchOrigin(from, n);
    if (origin < 0)
        return -1;
    const QChar* d = xml.data();
    for (qsizetype i = origin; i < n; ++i) {
        const ushort c = d[i].unicode();
        if (c == '>')
            return i;
        if (c == '/' && i + 1 < n && d[i + 1].unicode() == '>') {
            selfClosed = true;
            return i;
        }
    }
    return -1;
}

// First "</" + name + ">" at or after `from` (from >= 0).
qsizetype findClosing(QStringView xml, QStringView name, qsizetype from)
{
    const qsizetype n = xml.size();
    const qsizetype nameLen = name.size();
    const QChar* d = xml.data();
    // "</", the name and ">": no match can start past `last`.
    const qsizetype last = n - nameLen - 3;
    for (qsizetype i = from; i <= last; ++i) {
        i = nameLen > 0 ? findTriple(d, i, last + 1, '<', '/', name.at(0).unicode())
                        : findPair(d, i, last + 1, '<', '/');
        if (i < 0 || i > last)
            return -1;
        if (d[i + 2 + nameLen] == QLatin1Char('>') && sameUnits(d + i + 2, name.data(), nameLen))
            return i;
    }
    return -1;
}

// Where the start tag that begins at `start` (-1 when there is none) ends;
// true when it closes itself. `plainName`: the name holds no ">" (stripped
// names never do).
bool startTagEnd(QStringView xml, QStringView name, qsizetype start, qsizetype& end, bool plainName)
{
    // "<name>": the ">" behind the name is the end, unless the name itself
    // ends in "/" and so makes "/>" with it.
    const qsizetype nameEnd = start + 1 + name.size();
    if (plainName && start >= 0 && xml.at(nameEnd) == QLatin1Char('>')
        && (name.isEmpty() || name.back() != QLatin1Char('/'))) {
        end = nameEnd;
        return false;
    }
    bool selfClosed = false;
    end = findTagEnd(xml, start, selfClosed);
    return selfClosed;
}

// The first start tag at or after `startPos`.
qsizetype findStartTag(QStringView xml, QStringView name, qsizetype startPos)
{
    const qsizetype origin = searchOrigin(startPos, xml.size());
    return origin < 0 ? -1 : findOpening(xml, name, origin, endsElementName);
}

bool locateStartTag(QStringView xml, QStringView name, qsizetype startPos, qsizetype& start, qsizetype& end,
                    bool plainName = true)
{
    start = findStartTag(xml, name, startPos);
    return startTagEnd(xml, name, start, end, plainName);
}

enum class ValueKind { SelfClosed, Missing, Found };

// Where the text of the element whose start tag begins at `start` lies.
ValueKind valueAt(QStringView xml, QStringView name, qsizetype start, QStringView& value)
{
    qsizetype end = -1;
    if (startTagEnd(xml, name, start, end, true))
        return ValueKind::SelfClosed;
    if (start < 0 || end < 0)
        return ValueKind::Missing;
    const qsizetype close = findClosing(xml, name, start);
    if (close < 0)
        return ValueKind::Missing;
    // A closing tag inside the start tag (a ">" in an attribute value) leaves
    // the whole rest of the text as the value.
    value = close > end ? xml.mid(end + 1, close - end - 1) : xml.mid(end + 1);
    return ValueKind::Found;
}

// Where the text of the element starting at or after `startPos` lies.
ValueKind locateValue(QStringView xml, QStringView name, qsizetype startPos, QStringView& value)
{
    return valueAt(xml, name, findStartTag(xml, name, startPos), value);
}

// QString::mid() on a view: out-of-range arguments give the same text.
QStringView midLikeString(QStringView s, qsizetype position, qsizetype n)
{
    const qsizetype length = s.size();
    if (position > length)
        return QStringView();
    if (position < 0) {
        if (n < 0 || n + position >= length)
            return s;
        if (n + position <= 0)
            return QStringView();
        n += position;
        position = 0;
    } else if (size_t(n) > size_t(length - position)) {
        n = length - position;
    }
    return s.mid(position, n);
}

// The strings of a list lookup: `convert` applied to each value found, ""
// for an element without one. QList (Qt 5) only copies in, so each string is
// handed over without touching its reference count.
template <typename Convert> QStringList eachValue(const QVector<QStringView>& views, Convert convert)
{
    QStringList values;
    values.reserve(views.size());
    for (const QStringView value : views) {
        QString text = value.isNull() ? QStringLiteral("") : convert(value);
        values.append(QString());
        values.last().swap(text);
    }
    return values;
}

struct QuotedAttribute
{
    qsizetype start;
    qsizetype equals;
    qsizetype end; // one past the closing quote
};

// Next `name=<quote>...<quote>` at or after `from`, with the shortest value and
// the leftmost name made of word characters and single inner hyphens.
bool nextQuotedAttribute(QStringView s, qsizetype from, ushort quote, QuotedAttribute& found)
{
    const qsizetype n = s.size();
    const QChar* d = s.data();
    qsizetype eq = from;
    for (;;) {
        eq = s.indexOf(QLatin1Char('='), eq);
        if (eq < 0)
            return false;
        if (eq + 1 < n && d[eq + 1].unicode() == quote && eq > from && isWordUnit(d[eq - 1].unicode())) {
            qsizetype start = eq - 1;
            for (;;) {
                if (start - 1 >= from && isWordUnit(d[start - 1].unicode())) {
                    start -= 1;
                } else if (start - 2 >= from && d[start - 1].unicode() == '-'
                           && isWordUnit(d[start - 2].unicode())) {
                    start -= 2;
                } else {
                    break;
                }
            }
            // Without a closing quote here, no later attribute can have one.
            const qsizetype close = s.indexOf(QChar(quote), eq + 2);
            if (close < 0)
                return false;
            found = {start, eq, close + 1};
            return true;
        }
        ++eq;
    }
}

QString unquoteView(QStringView s)
{
    const qsizetype n = s.size();
    if (n > 0 && s.at(0) == s.at(n - 1) && (s.at(0) == QLatin1Char('"') || s.at(0) == QLatin1Char('\'')))
        return s.mid(1, n - 2 < 0 ? 0 : n - 2).toString();
    return s.toString();
}

QMap<QString, QString> parseAttributes(QStringView raw)
{
    // Blanks around "=" go, inside values too.
    QString compact;
    compact.reserve(int(raw.size()));
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const QChar c = raw.at(i);
        if (c != QLatin1Char('=')) {
            compact.append(c);
            continue;
        }
        int keep = compact.size();
        while (keep > 0 && isSpaceUnit(compact.at(keep - 1).unicode()))
            --keep;
        compact.truncate(keep);
        compact.append(c);
        while (i + 1 < raw.size() && isSpaceUnit(raw.at(i + 1).unicode()))
            ++i;
    }
    const QStringView attrs = QStringView(compact).trimmed();

    QVarLengthArray<QuotedAttribute, 8> items;
    for (const ushort quote : {ushort('"'), ushort('\'')}) {
        qsizetype pos = 0;
        QuotedAttribute item;
        while (nextQuotedAttribute(attrs, pos, quote, item)) {
            items.append(item);
            pos = item.end;
        }
    }

    QMap<QString, QString> properties;
    for (const QuotedAttribute& item : items) {
        // The value runs to the next "=", so one holding "=" is cut there.
        qsizetype valueEnd = item.equals + 1;
        while (valueEnd < item.end && attrs.at(valueEnd) != QLatin1Char('='))
            ++valueEnd;
        properties.insert(attrs.mid(item.start, item.equals - item.start).toString(),
                          unquoteView(attrs.mid(item.equals + 1, valueEnd - item.equals - 1)));
    }
    return properties;
}

void registerParserTypes()
{
    // parseErrorFound may cross threads through queued connections.
    qRegisterMetaType<SimpleXmlParser::ParseErrorEnumType>("SimpleXmlParser::ParseErrorEnumType");
}

} // namespace

Q_CONSTRUCTOR_FUNCTION(registerParserTypes)

SimpleXmlParser::SimpleXmlParser(QObject* parent)
    : QObject(parent)
{
}

SimpleXmlParser::~SimpleXmlParser() = default;

void SimpleXmlParser::addData(const QString& data)
{
    bool appended = false;
    // One round per message; signals may re-enter, so every round starts from
    // the members again.
    for (;;) {
        if (m_maxBufferSize > 0 && bufferLength() > m_maxBufferSize) {
            Q_EMIT parseErrorFound(BufferFull);
            return;
        }
        if (!appended) {
            appendToBuffer(data);
            appended = true;
        }
        syncRootTag();

        if (m_closeAt < 0)
            m_closeAt = findInBuffer(m_closeTag, m_closeScanFrom);
        const int end = m_closeAt;
        if (end < 0)
            return;
        if (m_openAt < 0)
            m_openAt = findInBuffer(m_openTag, m_openScanFrom);
        const int start = m_openAt;

        if (start >= 0 && start < end) {
            const QString message = takeMessage(start, end + m_closeTag.size());
            deliver(message);
            if (bufferLength() == 0)
                return;
        } else if (start > end) {
            consumeBuffer(start);
            m_openAt = 0;
            Q_EMIT parseErrorFound(MalformedStream);
        } else {
            // A closing tag with no opening tag anywhere: kept until one comes.
            return;
        }
    }
}

void SimpleXmlParser::appendToBuffer(const QString& data)
{
    if (data.isEmpty())
        return;
    if (m_text.isEmpty()) {
        // Shared with the caller until more text joins it.
        m_text = data;
        return;
    }
    // What was consumed goes before the string grows. This happens at most
    // once per message cut out, and moves only the text still pending.
    if (m_head > 0)
        dropConsumed();
    m_text.append(data);
}

void SimpleXmlParser::consumeBuffer(int count)
{
    m_head += count;
    if (m_head >= m_text.size()) {
        m_text.clear();
        m_head = 0;
    } else if (m_head > (1 << 16) && m_head > m_text.size() - m_head) {
        // Most of a large string is spent: let it go now rather than at the
        // next chunk, copying less than was freed.
        dropConsumed();
    }
    resetScan();
}

void SimpleXmlParser::dropConsumed()
{
    m_text = unconsumed().toString();
    m_head = 0;
}

QString SimpleXmlParser::takeMessage(int start, int stop)
{
    // The message opens a string of our own and is most of it: hand on the
    // string itself and keep a copy of the rest, which is the smaller part.
    if (m_head == 0 && start == 0 && stop > m_text.size() - stop && m_text.isDetached()) {
        QString message;
        message.swap(m_text);
        m_text = QStringView(message).mid(stop).toString();
        message.truncate(stop);
        resetScan();
        return message;
    }
    QString message = unconsumed().mid(start, stop - start).toString();
    consumeBuffer(stop);
    return message;
}

void SimpleXmlParser::resetScan()
{
    m_openAt = -1;
    m_openScanFrom = 0;
    m_closeAt = -1;
    m_closeScanFrom = 0;
}

void SimpleXmlParser::syncRootTag()
{
    if (m_framedTag == rootTag && !m_closeTag.isEmpty())
        return;
    m_framedTag = rootTag;
    m_openTag = QLatin1Char('<') + rootTag + QLatin1Char('>');
    m_closeTag = QLatin1String("</") + rootTag + QLatin1Char('>');
    resetScan();
}

int SimpleXmlParser::findInBuffer(const QString& needle, int& scanFrom) const
{
    const QStringView text = unconsumed();
    const qsizetype at = findText(text, scanFrom, needle);
    if (at >= 0)
        return int(at);
    // A later search resumes where a tag split across chunks could begin.
    scanFrom = qMax(scanFrom, qMax(0, int(text.size()) - needle.size() + 1));
    return -1;
}

void SimpleXmlParser::enqueue(const QString& message)
{
    QMutexLocker lock(&m_mutex);
    m_pendingMessages.append(message);
}

void SimpleXmlParser::deliver(const QString& message)
{
    switch (m_notifyMode) {
    case 0:
        enqueue(message);
        Q_EMIT messageCompleted();
        break;
    case 1:
        enqueue(message);
        Q_EMIT parsedMessage(message);
        break;
    case 2:
        Q_EMIT parsedMessage(message);
        break;
    case 3:
        enqueue(message);
        Q_EMIT messageCompleted();
        Q_EMIT parsedMessage(message);
        break;
    default:
        enqueue(message);
        break;
    }
}

bool SimpleXmlParser::hasPendingMessages()
{
    QMutexLocker lock(&m_mutex);
    return !m_pendingMessages.isEmpty();
}

QString SimpleXmlParser::getNextMessage()
{
    QMutexLocker lock(&m_mutex);
    if (m_pendingMessages.isEmpty())
        return QStringLiteral("");
    return m_pendingMessages.takeFirst();
}

void SimpleXmlParser::setMaxBufferSize(int size)
{
    if (size >= 0)
        m_maxBufferSize = size;
}

QString SimpleXmlParser::getCurrentBuffer() const
{
    return unconsumed().toString();
}

void SimpleXmlParser::emptyBuffer()
{
    m_text.clear();
    m_head = 0;
    resetScan();
}

bool SimpleXmlParser::findStartTagDelimiters(const QString& xml, const QString& tag, int startPos, int& start,
                                             int& end)
{
    qsizetype s = -1;
    qsizetype e = -1;
    // Unlike the other lookups this one takes the name as given, brackets too.
    const bool selfClosed = locateStartTag(xml, tag, startPos, s, e, !tag.contains(QLatin1Char('>')));
    start = int(s);
    end = int(e);
    return selfClosed;
}

QString SimpleXmlParser::getTagValue(const QString& xml, const QString& tag, int startPos,
                                     const QString& defaultValue)
{
    return getTagValue(QStringView(xml), tag, startPos, defaultValue);
}

QString SimpleXmlParser::getTagValue(QStringView xml, const QString& tag, int startPos,
                                     const QString& defaultValue)
{
    const TagName name(tag);
    QStringView value;
    switch (locateValue(xml, name.view(), startPos, value)) {
    case ValueKind::SelfClosed:
        return QStringLiteral("");
    case ValueKind::Missing:
        return defaultValue;
    case ValueKind::Found:
        break;
    }
    return value.toString();
}

QString SimpleXmlParser::getDecodedTagValue(const QString& xml, const QString& tag, int startPos,
                                            const QString& defaultValue)
{
    return getDecodedTagValue(QStringView(xml), tag, startPos, defaultValue);
}

QString SimpleXmlParser::getDecodedTagValue(QStringView xml, const QString& tag, int startPos,
                                            const QString& defaultValue)
{
    const TagName name(tag);
    QStringView value;
    switch (locateValue(xml, name.view(), startPos, value)) {
    case ValueKind::SelfClosed:
        return QStringLiteral("");
    case ValueKind::Missing:
        return decodeEntities(defaultValue);
    case ValueKind::Found:
        break;
    }
    return EntityDecoder::decode(value);
}

QStringList SimpleXmlParser::getTagsValues(const QString& xml, const QString& tag)
{
    return eachValue(getTagsValueViews(xml, tag), [](QStringView value) { return value.toString(); });
}

QVector<QStringView> SimpleXmlParser::getTagsValueViews(QStringView xml, const QString& tag)
{
    const TagName name(tag);
    QVector<QStringView> values;
    qsizetype from = 0;
    for (;;) {
        const qsizetype at = findOpening(xml, name.view(), from, endsListedName);
        if (at < 0)
            break;
        // A listed name followed by a unit that also ends an element name is
        // the element a search from there finds; "*" is not, so search on.
        const qsizetype start = endsElementName(xml.at(at + 1 + name.view().size()).unicode())
            ? at
            : findStartTag(xml, name.view(), at);
        QStringView value;
        // Lists are mostly short: one allocation for the first few entries
        // instead of one per growth, and none for a list with no entry.
        if (values.isEmpty())
            values.reserve(8);
        values.append(valueAt(xml, name.view(), start, value) == ValueKind::Found ? value : QStringView());
        from = at + 1;
    }
    return values;
}

QStringList SimpleXmlParser::getDecodedTagsValues(const QString& xml, const QString& tag)
{
    return eachValue(getTagsValueViews(xml, tag),
                     [](QStringView value) { return EntityDecoder::decode(value); });
}

QMap<QString, QString> SimpleXmlParser::getTagProperties(const QString& xml, const QString& tag, int startPos)
{
    const TagName name(tag);
    qsizetype start = -1;
    qsizetype end = -1;
    locateStartTag(xml, name.view(), startPos, start, end);
    // With the element missing, start is -1 and whatever lies between the
    // name's length and the last ">" is read as attributes.
    const qsizetype from = start + name.view().size() + 1;
    return parseAttributes(midLikeString(xml, from, end - from));
}

QList<QMap<QString, QString>> SimpleXmlParser::getTagsProperties(const QString& xml, const QString& tag)
{
    const TagName name(tag);
    QList<QMap<QString, QString>> list;
    qsizetype from = 0;
    for (;;) {
        const qsizetype at = findOpening(xml, name.view(), from, endsListedName);
        if (at < 0)
            break;
        list.append(getTagProperties(xml, tag, int(at)));
        from = at + 1;
    }
    return list;
}

QString SimpleXmlParser::unquoteString(const QString& s)
{
    const int n = s.size();
    if (n > 0 && s.at(0) == s.at(n - 1) && (s.at(0) == QLatin1Char('"') || s.at(0) == QLatin1Char('\'')))
        return s.mid(1, n - 2);
    return s;
}

QString SimpleXmlParser::decodeEntities(const QString& s)
{
    return EntityDecoder::decode(s, &s);
}

QString SimpleXmlParser::encodeEntities(const QString& s, bool encodeNonAscii)
{
    const int n = s.size();
    const QChar* d = s.constData();
    int first = 0;
    for (; first < n; ++first) {
        const ushort c = d[first].unicode();
        if (c == '&' || c == '>' || c == '<' || c == '"' || c == '\'' || (encodeNonAscii && c > 128))
            break;
    }
    if (first == n)
        return s;

    QString out;
    out.reserve(n + 16);
    out.append(d, first);
    static const char hexDigits[] = "0123456789abcdef";
    for (int i = first; i < n; ++i) {
        const ushort c = d[i].unicode();
        switch (c) {
        case '&':
            out.append(QLatin1String("&amp;"));
            continue;
        case '>':
            out.append(QLatin1String("&gt;"));
            continue;
        case '<':
            out.append(QLatin1String("&lt;"));
            continue;
        case '"':
            out.append(QLatin1String("&quot;"));
            continue;
        case '\'':
            out.append(QLatin1String("&apos;"));
            continue;
        default:
            break;
        }
        if (encodeNonAscii && c > 128) {
            // "&#x..;" is escaped again by the "&" rule: kept as the wire has it.
            char buffer[16] = "&amp;#x";
            int len = 7;
            int shift = 12;
            while (shift > 0 && ((c >> shift) & 0xF) == 0)
                shift -= 4;
            for (; shift >= 0; shift -= 4)
                buffer[len++] = hexDigits[(c >> shift) & 0xF];
            buffer[len++] = ';';
            out.append(QLatin1String(buffer, len));
        } else {
            out.append(QChar(c));
        }
    }
    return out;
}
