#pragma once

#include "telvix_export.h"

#include <QString>
#include <QVector>

/// Finds which row of an ordered table a server message belongs to.
///
/// A row is taken when the text contains any of its needles, tested as
/// plain case-sensitive substrings: "<name>", "<name/>" or a bare word. The
/// first row in table order that matches wins. Instead of one substring
/// search per row, the text is scanned once for the tags it holds, which
/// gives the same answer at the cost of a single pass.
class TELVIX_EXPORT MessageRecognizer
{
public:
    enum class NeedleKind { OpenTag, EmptyTag, BareWord };
    struct Needle
    {
        NeedleKind kind;
        QString text;
    };
    using Row = QVector<Needle>;

    explicit MessageRecognizer(const QVector<Row>& rows);

    /// Index of the first matching row, or -1.
    int recognize(const QString& xml) const;

    /// The same answer by one substring search per needle, row by row.
    int recognizeBySearch(const QString& xml) const;

    /// The substring a needle stands for.
    static QString needleText(const Needle& needle);

private:
    struct TagName
    {
        QString name;
        int openRow;  // first row with "<name>", or INT_MAX
        int emptyRow; // first row with "<name/>", or INT_MAX
    };
    int rowOfTag(const QChar* name, int length, bool selfClosed) const;

    QVector<Row> m_rows;
    QVector<TagName> m_tags;
    QVector<QPair<int, QString>> m_bareWords; // row, word; in row order
    int m_maxNameLength = 0;
    /// Indexes into m_tags by name length.
    QVector<QVector<int>> m_tagsByLength;
    /// Whether a name may begin with this character (Latin-1 only).
    bool m_firstChar[256] = {};
};
