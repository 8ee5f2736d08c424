#include "entitydecoder_p.h"

#include <QPair>
#include <QVarLengthArray>
#include <QtAlgorithms>

#include <climits>
#include <cstring>
#include <functional>
#include <string_view>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

inline bool isDecimalDigit(ushort c)
{
    return c >= '0' && c <= '9';
}

inline int hexDigitValue(ushort c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool startsWithAscii(const QChar* d, qsizetype available, const char* text, qsizetype textLen)
{
    if (available < textLen)
        return false;
    for (qsizetype k = 0; k < textLen; ++k) {
        if (d[k].unicode() != ushort(uchar(text[k])))
            return false;
    }
    return true;
}

// Numeric character reference ("&#65;", "&#x41;", "&#X41;") at d[0]; returns
// its length, or 0 when there is none. "&#X" is a reference but reads as 0,
// numbers beyond int read as 0, and only the low 16 bits are kept.
qsizetype numericReferenceAt(const QChar* d, qsizetype available, ushort& unit)
{
    if (available < 4 || d[0].unicode() != '&' || d[1].unicode() != '#')
        return 0;
    const ushort marker = d[2].unicode();
    quint64 value = 0;
    bool overflow = false;
    qsizetype j;
    if (isDecimalDigit(marker)) {
        for (j = 2; j < available && isDecimalDigit(d[j].unicode()); ++j) {
            if (!overflow) {
                value = value * 10 + (d[j].unicode() - '0');
                overflow = value > quint64(INT_MAX);
            }
        }
    } else if (marker == 'x' || marker == 'X') {
        for (j = 3; j < available; ++j) {
            const int digit = hexDigitValue(d[j].unicode());
            if (digit < 0)
                break;
            if (!overflow) {
                value = value * 16 + quint64(digit);
                overflow = value > quint64(INT_MAX);
            }
        }
        if (j == 3)
            return 0;
        if (marker == 'X')
            value = 0;
    } else {
        return 0;
    }
    if (j >= available || d[j].unicode() != ';')
        return 0;
    unit = overflow ? ushort(0) : ushort(value & 0xFFFF);
    return j + 1;
}

// A character that can be part of a numeric reference's text: producing one
// may form a new reference out of its neighbours.
inline bool canFormReference(ushort c)
{
    return c == '&' || c == '#' || c == ';' || c == 'x' || c == 'X' || hexDigitValue(c) >= 0;
}

// Named entities, in the order and with the single double decoding of
// "&amp;" that sequential replacement gives. Returns units consumed; writes
// the decoded unit.
qsizetype namedEntityAt(const QChar* d, qsizetype available, QChar& out)
{
    auto tail = [&](qsizetype at) -> qsizetype {
        const QChar* t = d + at;
        const qsizetype left = available - at;
        if (startsWithAscii(t, left, "gt;", 3)) {
            out = QLatin1Char('>');
            return 3;
        }
        if (startsWithAscii(t, left, "lt;", 3)) {
            out = QLatin1Char('<');
            return 3;
        }
        if (startsWithAscii(t, left, "quot;", 5)) {
            out = QLatin1Char('"');
            return 5;
        }
        if (startsWithAscii(t, left, "apos;", 5)) {
            out = QLatin1Char('\'');
            return 5;
        }
        return 0;
    };
    if (startsWithAscii(d, available, "&amp;", 5)) {
        // "&amp;" becomes "&" first, which may then start one of the others.
        const qsizetype more = tail(5);
        if (more > 0)
            return 5 + more;
        out = QLatin1Char('&');
        return 5;
    }
    const qsizetype used = tail(1);
    if (used > 0)
        return 1 + used;
    out = QLatin1Char('&');
    return 1;
}

// Index of the first "&" or U+FFFD, or n: most values hold neither. With
// Copy, the text before it goes to `out` as well; units behind it may be
// copied too, and the caller overwrites them.
template <bool Copy> inline qsizetype scanUntilDecodable(const QChar* text, qsizetype n, QChar* out)
{
    const ushort* d = reinterpret_cast<const ushort*>(text);
    ushort* o = reinterpret_cast<ushort*>(out);
    qsizetype i = 0;
#if defined(__SSE2__)
    const __m128i amp = _mm_set1_epi16(short('&'));
    const __m128i bad = _mm_set1_epi16(short(0xFFFD));
    for (; i + 8 <= n; i += 8) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + i));
        if constexpr (Copy)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(o + i), x);
        const uint mask
            = uint(_mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi16(x, amp), _mm_cmpeq_epi16(x, bad))));
        if (mask)
            return i + qsizetype(qCountTrailingZeroBits(mask) >> 1);
    }
#endif
    for (; i < n; ++i) {
        if (d[i] == '&' || d[i] == 0xFFFD)
            return i;
        if constexpr (Copy)
            o[i] = d[i];
    }
    return n;
}

inline qsizetype findDecodable(const QChar* text, qsizetype n)
{
    return scanUntilDecodable<false>(text, n, nullptr);
}

inline qsizetype copyUntilDecodable(const QChar* text, qsizetype n, QChar* out)
{
    return scanUntilDecodable<true>(text, n, out);
}

// Numeric references of the input: where each stands, and the unit it gives.
using ReferenceSpans = QVarLengthArray<QPair<qsizetype, qsizetype>, 16>;
using ReferenceUnits = QVarLengthArray<ushort, 16>;

// Decodes what can be decoded in one pass and hands a value whose numeric
// references must be replaced text by text to `resolve`.
template <typename Resolve> QString decodeWith(QStringView s, const QString* original, Resolve resolve)
{
    const qsizetype n = s.size();
    const QChar* d = s.data();
    qsizetype first;
    QString out;
    if (original) {
        // Nothing to decode is the common case: hand back the same string.
        first = findDecodable(d, n);
        if (first == n)
            return *original;
        out = QString(int(n), Qt::Uninitialized);
        std::memcpy(out.data(), d, size_t(first) * sizeof(QChar));
    } else {
        out = QString(int(n), Qt::Uninitialized);
        first = copyUntilDecodable(d, n, out.data());
        if (first == n)
            return out;
    }

    // References are looked for in the input but replaced in the decoded
    // text, everywhere their text occurs there. Unless one decodes to a
    // character that could build a new reference, or "&amp;#" builds one
    // that the input does not hold, that is the same as decoding each in place.
    bool inPlace = true;
    ReferenceSpans references;
    ReferenceUnits units;
    for (qsizetype i = first; i < n; ++i) {
        if (d[i].unicode() != '&')
            continue;
        ushort unit = 0;
        const qsizetype len = numericReferenceAt(d + i, n - i, unit);
        if (len > 0) {
            references.append(qMakePair(i, len));
            units.append(unit);
            if (canFormReference(unit))
                inPlace = false;
            i += len - 1;
        } else if (startsWithAscii(d + i, n - i, "&amp;#", 6)) {
            inPlace = false;
        }
    }

    QChar* o = out.data();
    qsizetype w = first;
    int nextReference = 0;
    for (qsizetype i = first; i < n;) {
        const ushort c = d[i].unicode();
        if (c == 0xFFFD) {
            o[w++] = QLatin1Char(' ');
            ++i;
        } else if (c != '&') {
            o[w++] = d[i++];
        } else if (inPlace && nextReference < references.size() && references[nextReference].first == i) {
            o[w++] = QChar(units[nextReference]);
            i += references[nextReference].second;
            ++nextReference;
        } else {
            QChar decoded;
            i += namedEntityAt(d + i, n - i, decoded);
            o[w++] = decoded;
        }
    }
    out.resize(int(w));
    if (inPlace)
        return out;

    return resolve(out, s, references, units);
}

// Replaces each reference's text everywhere in `decoded`, one reference after
// the other, each over the result of those before it.
QString replaceEachEverywhere(QString& decoded, QStringView input, const ReferenceSpans& references,
                              const ReferenceUnits& units)
{
    for (int k = 0; k < references.size(); ++k) {
        const QString text = input.mid(references[k].first, references[k].second).toString();
        decoded.replace(text, QString(QChar(units[k])));
    }
    return decoded;
}

// Reference texts numbered in the order first seen, in an open-addressing
// table: many thousands of short, similar texts are common here.
class ReferenceTexts
{
public:
    explicit ReferenceTexts(qsizetype expected)
    {
        size_t capacity = 16;
        while (capacity < size_t(expected) * 2)
            capacity *= 2;
        m_slots.assign(capacity, -1);
        m_texts.reserve(size_t(expected));
    }

    /// The number of `text`, numbering it if it is new.
    int add(QStringView text)
    {
        int& slot = m_slots[find(text)];
        if (slot < 0) {
            slot = int(m_texts.size());
            m_texts.push_back(text);
            m_longest = qMax(m_longest, text.size());
        }
        return slot;
    }
    /// The number of `text`, or -1.
    int id(QStringView text) const { return m_slots[find(text)]; }
    int count() const { return int(m_texts.size()); }
    qsizetype longest() const { return m_longest; }

private:
    size_t find(QStringView text) const
    {
        // Values often repeat one reference many times.
        if (m_lastSlot != size_t(-1) && m_slots[m_lastSlot] >= 0
            && m_texts[size_t(m_slots[m_lastSlot])] == text)
            return m_lastSlot;
        m_lastSlot = locate(text);
        return m_lastSlot;
    }

    size_t locate(QStringView text) const
    {
        const size_t mask = m_slots.size() - 1;
        size_t at = std::hash<std::u16string_view>()(std::u16string_view(
                        reinterpret_cast<const char16_t*>(text.data()), size_t(text.size())))
            & mask;
        while (m_slots[at] >= 0 && m_texts[size_t(m_slots[at])] != text)
            at = (at + 1) & mask;
        return at;
    }

    std::vector<int> m_slots;
    std::vector<QStringView> m_texts;
    qsizetype m_longest = 0;
    mutable size_t m_lastSlot = size_t(-1);
};

// Gives what replaceEachEverywhere gives in time linear in the text.
//
// The text becomes a forward-linked list of its units. Every "&" starts a
// candidate: the longest prefix of a numeric reference that the grammar reads
// from it, which can reach no further than the next "&". An occurrence of a
// reference's text is exactly a complete candidate with that text, so the
// complete ones are filed by text, and a replacement takes its whole file at
// once, as a replace over the whole text sees that text as it was before.
// Replacing an occurrence turns its "&" into the new unit and drops the rest
// of it, which changes only one other candidate: the one that this "&"
// stopped. That one reads on from the new unit. Every unit is read into a
// candidate at most once before it is dropped, so the work stays linear.
class ReferenceRewriter
{
public:
    ReferenceRewriter(QString& text, QStringView input, const ReferenceSpans& references)
        : m_text(text)
        , m_units(reinterpret_cast<ushort*>(text.data()))
        , m_end(int(text.size()))
        , m_next(size_t(m_end))
        , m_waiting(size_t(m_end), -1)
        , m_filed(size_t(m_end), -1)
        , m_state(size_t(m_end), Dead)
        , m_texts(references.size())
    {
        m_referenceIds.reserve(size_t(references.size()));
        for (const auto& reference : references)
            m_referenceIds.push_back(m_texts.add(input.mid(reference.first, reference.second)));
        m_fileHead.assign(size_t(m_texts.count()), -1);

        for (int node = 0; node < m_end; ++node)
            m_next[size_t(node)] = node + 1;
        for (int node = 0; node < m_end; ++node) {
            if (m_units[node] == '&') {
                m_state[size_t(node)] = Amp;
                read(node, node + 1);
            }
        }
    }

    QString run(const ReferenceUnits& units)
    {
        for (size_t k = 0; k < m_referenceIds.size(); ++k) {
            int& head = m_fileHead[size_t(m_referenceIds[k])];
            int start = head;
            head = -1;
            while (start >= 0) {
                const int following = m_filed[size_t(start)];
                replace(start, units[int(k)]);
                start = following;
            }
        }
        // The list runs forward, so it compacts in place.
        int length = 0;
        for (int node = 0; node != m_end; node = m_next[size_t(node)])
            m_units[length++] = m_units[node];
        m_text.resize(length);
        return m_text;
    }

private:
    enum State : quint8 { Dead, Amp, Hash, Decimal, HexMarker, Hex, Complete };

    static State step(State state, ushort c)
    {
        switch (state) {
        case Amp:
            return c == '#' ? Hash : Dead;
        case Hash:
            if (isDecimalDigit(c))
                return Decimal;
            return c == 'x' || c == 'X' ? HexMarker : Dead;
        case Decimal:
            if (isDecimalDigit(c))
                return Decimal;
            return c == ';' ? Complete : Dead;
        case HexMarker:
            return hexDigitValue(c) >= 0 ? Hex : Dead;
        case Hex:
            if (hexDigitValue(c) >= 0)
                return Hex;
            return c == ';' ? Complete : Dead;
        default:
            return Dead;
        }
    }

    // Reads the candidate starting at `start` on from `node`.
    void read(int start, int node)
    {
        State state = m_state[size_t(start)];
        for (; node != m_end; node = m_next[size_t(node)]) {
            const ushort c = m_units[node];
            const State after = step(state, c);
            if (after == Dead) {
                // A "&" may yet be replaced by a unit that continues this one.
                if (c == '&')
                    m_waiting[size_t(node)] = start;
                else
                    state = Dead;
                break;
            }
            state = after;
            if (state == Complete) {
                m_state[size_t(start)] = state;
                file(start, node);
                return;
            }
        }
        m_state[size_t(start)] = state;
    }

    void file(int start, int last)
    {
        m_scratch.clear();
        for (int node = start;; node = m_next[size_t(node)]) {
            m_scratch.append(QChar(m_units[node]));
            if (node == last)
                break;
            if (m_scratch.size() >= m_texts.longest())
                return;
        }
        const int id = m_texts.id(QStringView(m_scratch.constData(), m_scratch.size()));
        if (id < 0)
            return;
        m_filed[size_t(start)] = m_fileHead[size_t(id)];
        m_fileHead[size_t(id)] = start;
    }

    void replace(int start, ushort unit)
    {
        int last = m_next[size_t(start)];
        while (m_units[last] != ';')
            last = m_next[size_t(last)];
        m_next[size_t(start)] = m_next[size_t(last)];
        m_units[start] = unit;
        if (unit == '&') {
            // A candidate waiting on the old "&" now waits on this one.
            m_state[size_t(start)] = Amp;
            read(start, m_next[size_t(start)]);
            return;
        }
        m_state[size_t(start)] = Dead;
        const int waiting = m_waiting[size_t(start)];
        m_waiting[size_t(start)] = -1;
        if (waiting >= 0)
            read(waiting, start);
    }

    QString& m_text;
    ushort* m_units;
    const int m_end;
    std::vector<int> m_next;
    /// At a "&": the candidate that it stopped, or -1.
    std::vector<int> m_waiting;
    /// The next complete candidate of the same text, or -1.
    std::vector<int> m_filed;
    std::vector<State> m_state;
    ReferenceTexts m_texts;
    std::vector<int> m_referenceIds;
    std::vector<int> m_fileHead;
    QVarLengthArray<QChar, 32> m_scratch;
};

} // namespace

QString EntityDecoder::decode(QStringView s, const QString* original)
{
    return decodeWith(s, original,
                      [](QString& decoded, QStringView input, const ReferenceSpans& references,
                         const ReferenceUnits& units) {
                          if (references.isEmpty())
                              return decoded;
                          return ReferenceRewriter(decoded, input, references).run(units);
                      });
}

QString EntityDecoder::reference::decode(QStringView s, const QString* original)
{
    return decodeWith(s, original, replaceEachEverywhere);
}
