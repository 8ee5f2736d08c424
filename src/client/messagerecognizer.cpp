#include "messagerecognizer.h"

#include <climits>

MessageRecognizer::MessageRecognizer(const QVector<Row>& rows)
    : m_rows(rows)
{
    for (int row = 0; row < rows.size(); ++row) {
        for (const Needle& needle : rows.at(row)) {
            if (needle.kind == NeedleKind::BareWord) {
                m_bareWords.append(qMakePair(row, needle.text));
                continue;
            }
            auto it = std::find_if(m_tags.begin(), m_tags.end(),
                                   [&needle](const TagName& t) { return t.name == needle.text; });
            if (it == m_tags.end()) {
                m_tags.append(TagName{needle.text, INT_MAX, INT_MAX});
                it = m_tags.end() - 1;
            }
            int& slot = needle.kind == NeedleKind::OpenTag ? it->openRow : it->emptyRow;
            slot = std::min(slot, row);
            m_maxNameLength = std::max(m_maxNameLength, int(needle.text.size()));
        }
    }
    m_lengthUsed.fill(false, m_maxNameLength + 1);
    for (const TagName& t : qAsConst(m_tags))
        m_lengthUsed[t.name.size()] = true;
}

QString MessageRecognizer::needleText(const Needle& needle)
{
    switch (needle.kind) {
    case NeedleKind::OpenTag:
        return QLatin1Char('<') + needle.text + QLatin1Char('>');
    case NeedleKind::EmptyTag:
        return QLatin1Char('<') + needle.text + QLatin1String("/>");
    case NeedleKind::BareWord:
        break;
    }
    return needle.text;
}

int MessageRecognizer::rowOfTag(const QChar* name, int length, bool selfClosed) const
{
    if (length > m_maxNameLength || !m_lengthUsed.at(length))
        return INT_MAX;
    for (const TagName& t : m_tags) {
        if (t.name.size() == length && std::equal(name, name + length, t.name.constData()))
            return selfClosed ? t.emptyRow : t.openRow;
    }
    return INT_MAX;
}

int MessageRecognizer::recognize(const QString& xml) const
{
    int best = INT_MAX;
    const QChar* const data = xml.constData();
    const int size = xml.size();
    // An occurrence of "<name>" or "<name/>" begins at a '<' and ends at the
    // first '>' behind it, since no name holds '>'; names are short, so only
    // a short window behind each '<' needs a look.
    const int window = m_maxNameLength + 2;
    for (int i = 0; i < size; ++i) {
        if (data[i] != QLatin1Char('<'))
            continue;
        const int limit = std::min(size, i + 1 + window);
        for (int j = i + 1; j < limit; ++j) {
            if (data[j] != QLatin1Char('>'))
                continue;
            const int length = j - i - 1;
            best = std::min(best, rowOfTag(data + i + 1, length, false));
            if (length > 0 && data[j - 1] == QLatin1Char('/'))
                best = std::min(best, rowOfTag(data + i + 1, length - 1, true));
            break;
        }
    }
    for (const auto& bare : m_bareWords) {
        if (bare.first >= best)
            break;
        if (xml.contains(bare.second))
            return bare.first;
    }
    return best == INT_MAX ? -1 : best;
}

int MessageRecognizer::recognizeBySearch(const QString& xml) const
{
    for (int row = 0; row < m_rows.size(); ++row) {
        for (const Needle& needle : m_rows.at(row)) {
            if (xml.indexOf(needleText(needle)) >= 0)
                return row;
        }
    }
    return -1;
}
