#pragma once

#include "telvix_export.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

/// \brief Static helpers for the server's date-time texts, MD5 texts and the
/// compressed Base64 form in which the server sends files.
class TELVIX_EXPORT Utils
{
public:
    Utils() = delete;

    /// Date and time with milliseconds and no zone.
    inline static const QString ISODATE_MS_NOTZ = QStringLiteral("yyyy-MM-ddThh:mm:ss.zzz");

    /// Reads an ISO date-time as the servers write it: a blank may stand for
    /// the "T", microseconds are truncated to milliseconds, and a zone may
    /// follow. A zone of the form "+hh:mm" is read as offset 0 when the text
    /// is not plain ISO 8601. Gives a null QDateTime when nothing matches.
    static QDateTime parseIsoDateTime(const QString& text);

    /// The value in UTC digits with milliseconds, followed by the value's own
    /// offset as "+hh:mm". The callers rely on this mix of UTC digits and
    /// local offset. A null value gives an empty string.
    static QString datetimeToIsoString(const QDateTime& value);

    /// MD5 as 32 lower-case hexadecimal characters.
    static QString md5sum(const QByteArray& data);
    /// MD5 of the UTF-8 bytes of `text`.
    static QString md5sum(const QString& text);
    /// MD5 of a whole file; a null string when the file can't be opened.
    static QString md5sumFile(const QString& path);

    /// Base64 text over qCompress output, back to the original bytes; damaged
    /// input gives an empty array.
    static QByteArray dataFromBase64Compressed(const QByteArray& data);
    /// qCompress (zlib default level) then Base64: the server's file form.
    static QByteArray dataToBase64Compressed(const QByteArray& data);

    /// `data` up to its first NUL byte (all of it without one), read as
    /// UTF-8, as a C string reader of the same bytes would see it.
    static QString utf8UpToNul(const QByteArray& data);
};
