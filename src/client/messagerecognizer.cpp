#include "messagerecognizer.h"

#include <QStringView>

#include <algorithm>
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
                m_tags.append(TagName {needle.text, INT_MAX, INT_MAX});
                it = m_tags.end() - 1;
            }
            int& slot = needle.kind == NeedleKind::OpenTag ? it->openRow : it->emptyRow;
            slot = std::min(slot, row);
            m_maxNameLength = std::max(m_maxNameLength, int(needle.text.size()));
        }
    }
    m_tagsByLength.resize(m_maxNameLength + 1);
    for (int i = 0; i < m_tags.size(); ++i) {
        const QString& name = m_tags.at(i).name;
        if (name.isEmpty())
            continue;
        m_tagsByLength[name.size()].append(i);
        const ushort first = name.at(0).unicode();
        if (first < 256)
            m_firstChar[first] = true;
    }
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
    if (length <= 0 || length > m_maxNameLength)
        return INT_MAX;
    for (int index : m_tagsByLength.at(length)) {
        const TagName& t = m_tags.at(index);
        if (std::equal(name, name + length, t.name.constData()))
            return selfClosed ? t.emptyRow : t.openRow;
    }
    return INT_MAX;
}

int MessageRecognizer::recognize(const QString& xml) const
{
    int best = INT_MAX;
    const QChar* const data = xml.constData();
    const QStringView text(xml);
    const int size = xml.size();
    // An occurrence of "<name>" or "<name/>" begins at a '<' and ends at the
    // first '>' behind it, since no name holds '>'; names are short, so only
    // a short window behind each '<' needs a look. The '<' themselves are
    // found by the vectorised character search, and a '<' whose next
    // character begins no name (closing tags, most of all) is passed over.
    const int window = m_maxNameLength + 2;
    for (int i = text.indexOf(QLatin1Char('<')); i >= 0 && best > 0;
         i = text.indexOf(QLatin1Char('<'), i + 1)) {
        if (i + 1 >= size)
            break;
        const ushort first = data[i + 1].unicode();
        if (first >= 256 || !m_firstChar[first])
            continue;
        const int limit = std::min(size, i + 1 + window);
        for (int j = i + 2; j < limit; ++j) {
            if (data[j] != QLatin1Char('>'))
                continue;
            const int length = j - i - 1;
            best = std::min(best, rowOfTag(data + i + 1, length, false));
            if (data[j - 1] == QLatin1Char('/'))
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
