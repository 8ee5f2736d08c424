#pragma once

#include "sarnetxml.h"
#include "simplexmlparser.h"
#include "telvix_export.h"

#include <QString>
#include <QStringList>

/// The one skeleton that every parseMessage shares: field reading through the
/// framing parser's flat lookups, the RequestFailed test, and the logging of
/// valid and invalid results.
namespace MessageReader {

/// Decoded value of the first `tag` element, empty when missing.
inline QString text(QStringView xml, const QString& tag)
{
    return SimpleXmlParser::getDecodedTagValue(xml, tag);
}

/// Undecoded value of the first `tag` element, empty when missing.
inline QString raw(QStringView xml, const QString& tag)
{
    return SimpleXmlParser::getTagValue(xml, tag);
}

/// Decoded value read as a base-10 int; missing or bad text gives 0.
inline int toInt(QStringView xml, const QString& tag)
{
    return text(xml, tag).toInt(nullptr, 10);
}

/// Decoded value read as a base-10 uint16; missing or bad text gives 0.
inline quint16 toUShort(QStringView xml, const QString& tag)
{
    return text(xml, tag).toUShort(nullptr, 10);
}

/// True exactly when the decoded value reads as the number 1: the wire's
/// boolean ("LocalAnswer", "IsC2c", ...). Any other text, "true" included,
/// is false.
inline bool isOne(QStringView xml, const QString& tag)
{
    return toInt(xml, tag) == 1;
}

/// Raw texts of every `tag` element, to be read field by field afterwards:
/// views into `xml`, so that a large list is not copied entry by entry.
inline QVector<QStringView> entries(QStringView xml, const QString& tag)
{
    return SimpleXmlParser::getTagsValueViews(xml, tag);
}

/// Writes `line` to the Qt debug log as it stands (no quoting).
TELVIX_EXPORT void logDebug(const QString& line);

/// The "API version" line of version-dependent messages.
TELVIX_EXPORT void logApiVersion(const QString& api);

/// The RequestFailed test: when the document carries a non-empty
/// RequestFailed element, logs `failureText` (which ends in
/// " request failed: ") followed by the reason, sets `out` to a
/// default-constructed message with success false and the reason as
/// errorMessage, and returns true. Nothing else is read in that case.
template <typename Msg>
bool requestFailed(const QString& xml, const QString& failureText, Msg& out)
{
    const QString failure = text(xml, SARNET_XML::S_XMLTAG_REQUEST_FAILED);
    if (failure.isEmpty())
        return false;
    logDebug(failureText + failure);
    out = Msg();
    out.success = false;
    out.errorMessage = failure;
    return true;
}

/// Logs `logLine` and returns a default-constructed message marked failed.
template <typename Msg>
Msg invalid(const QString& logLine)
{
    logDebug(logLine);
    Msg msg;
    msg.success = false;
    return msg;
}

/// Logs `logLine` (unless empty), marks `msg` successful, reads the envelope metadata of
/// `xml` into it and returns it.
template <typename Msg>
Msg accepted(Msg msg, const QString& xml, const QString& logLine)
{
    if (!logLine.isEmpty())
        logDebug(logLine);
    msg.success = true;
    msg.parseMessageMetadata(xml);
    return msg;
}

/// The end of a message that holds one record: when `valid` is false, the
/// `invalid` result; otherwise a message holding `record` in `member`,
/// `accepted` with `parsedOk`.
template <typename Msg, typename Record>
Msg holding(const QString& xml, Record Msg::*member, Record record, bool valid, const QString& parsedOk,
            const QString& invalidLine)
{
    if (!valid)
        return invalid<Msg>(invalidLine);
    Msg msg;
    msg.*member = std::move(record);
    return accepted(std::move(msg), xml, parsedOk);
}

/// The words of one list answer, for readList.
struct ListWords {
    /// "... request failed: "; empty for an answer without the RequestFailed test.
    QString failureText;
    /// The element cut as one entry.
    QString entryTag;
    /// Logged for each entry that is skipped as invalid.
    QString invalidEntry;
    /// Logged instead of parsedOk when no entry is kept; empty when the
    /// answer has no such word.
    QString emptyList;
    QString parsedOk;
    /// Appends " " and the raw entry text to the invalidEntry line.
    bool invalidEntryWithText = false;
};

/// The skeleton of every list answer: the RequestFailed test, then each
/// `entryTag` element cut once from the document and handed as its own short
/// text to `take(Msg& msg, QStringView entryText)`, which stores the entry
/// and returns true, or returns false for an invalid entry, which is logged and
/// skipped. A list without kept entries is still a valid answer.
template <typename Msg, typename Take>
Msg readList(const QString& xml, const ListWords& words, Take take)
{
    Msg msg;
    if (!words.failureText.isEmpty() && requestFailed(xml, words.failureText, msg))
        return msg;
    int kept = 0;
    const QVector<QStringView> texts = entries(xml, words.entryTag);
    for (const QStringView entryText : texts) {
        if (take(msg, entryText))
            ++kept;
        else
            logDebug(words.invalidEntryWithText ? words.invalidEntry + QLatin1Char(' ') + entryText.toString()
                                                : words.invalidEntry);
    }
    const bool emptyWord = kept == 0 && !words.emptyList.isEmpty();
    return accepted(std::move(msg), xml, emptyWord ? words.emptyList : words.parsedOk);
}

/// For readList's `take`: reads one entry with `read(entryText, entry)`,
/// which returns false for an invalid entry, and appends it to `list` when
/// valid.
template <typename T, typename Read>
bool appendEntry(QList<T>& list, QStringView entryText, Read read)
{
    T entry;
    if (!read(entryText, entry))
        return false;
    list.append(entry);
    return true;
}

} // namespace MessageReader

/// Server API versions compared as text, by QString ordering against a
/// literal: "5.10" sorts below "5.2". This is the rule of every message
/// threshold; the numeric comparison is TELVIX::compareVersions and is used
/// only where a caller names it.
namespace ApiText {
inline bool atLeast(const QString& api, const char* version)
{
    return api >= QLatin1String(version);
}
inline bool below(const QString& api, const char* version)
{
    return api < QLatin1String(version);
}
inline bool atMost(const QString& api, const char* version)
{
    return api <= QLatin1String(version);
}
inline bool above(const QString& api, const char* version)
{
    return api > QLatin1String(version);
}
} // namespace ApiText
