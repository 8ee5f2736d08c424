#pragma once

#include "sarnetxml.h"

#include <QDateTime>
#include <QRandomGenerator>
#include <QString>
#include <QUuid>

/// The parts of every envelope sent that change from message to message: its
/// UUID and time stamp, and the id an acknowledgement carries. Each message,
/// every acknowledgement included, makes them, so they are made without the
/// costly general paths.
namespace EnvelopeStamp {

/// A random (version 4) UUID in brace form. QUuid::createUuid() asks the
/// CPU's entropy instruction for every one, which takes microseconds in a
/// virtual machine; the process's seeded generator is random enough for a
/// message id.
inline QString freshUuid()
{
    quint32 w[4];
    QRandomGenerator::global()->fillRange(w);
    const QUuid uuid(w[0], quint16(w[1]), quint16(((w[1] >> 16) & 0x0fff) | 0x4000),
                     uchar((w[2] & 0x3f) | 0x80), uchar(w[2] >> 8), uchar(w[2] >> 16), uchar(w[2] >> 24),
                     uchar(w[3]), uchar(w[3] >> 8), uchar(w[3] >> 16), uchar(w[3] >> 24));
    return uuid.toString(QUuid::WithBraces);
}

/// `time` as QDateTime::toString(S_ISO_DATE) gives it, written digit by digit
/// rather than through the locale's formatter.
inline QString isoMilliseconds(const QDateTime& time)
{
    const QDate date = time.date();
    if (!time.isValid() || date.year() < 1 || date.year() > 9999)
        return time.toString(SARNET_XML::S_ISO_DATE);
    const QTime clock = time.time();
    QString text(23, Qt::Uninitialized);
    QChar* out = text.data();
    const auto put = [&out](int value, int digits) {
        for (int i = digits - 1; i >= 0; --i, value /= 10)
            out[i] = QLatin1Char(char('0' + value % 10));
        out += digits;
    };
    const auto sep = [&out](char c) { *out++ = QLatin1Char(c); };
    put(date.year(), 4);
    sep('-');
    put(date.month(), 2);
    sep('-');
    put(date.day(), 2);
    sep('T');
    put(clock.hour(), 2);
    sep(':');
    put(clock.minute(), 2);
    sep(':');
    put(clock.second(), 2);
    sep('.');
    put(clock.msec(), 3);
    return text;
}

/// Whether `text` holds only letters, digits, braces and hyphens (a UUID in
/// any of its forms), which XML text carries unescaped.
inline bool isPlainText(const QString& text)
{
    for (const QChar c : text) {
        const ushort u = c.unicode();
        if (!((u >= '0' && u <= '9') || (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || u == '{'
              || u == '}' || u == '-'))
            return false;
    }
    return true;
}

} // namespace EnvelopeStamp
