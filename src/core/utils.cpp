#include "utils.h"

#include <QCryptographicHash>
#include <QFile>
#include <QRegExp>

QDateTime Utils::parseIsoDateTime(const QString& text)
{
    QString copy = text;
    if (copy.length() > 10 && copy.at(10) == QLatin1Char(' '))
        copy[10] = QLatin1Char('T');

    QDateTime result = QDateTime::fromString(copy, Qt::ISODate);
    if (!result.isNull())
        return result;

    // Qt refuses fractions longer than its own; keep the milliseconds and
    // drop up to three further digits without rounding.
    QRegExp rx(QStringLiteral(
        "(\\d{4}-\\d{2}-\\d{2}[T\\s]\\d{2}:\\d{2}:\\d{2}\\.\\d{3})\\d{0,3}(Z|[+\\-]\\d{2}(:\\d{2})?)?"));
    if (rx.indexIn(copy) != 0)
        return result;

    result = QDateTime::fromString(rx.cap(1), ISODATE_MS_NOTZ);
    const QString zone = rx.cap(2);
    int offset = 0;
    if (zone != QLatin1String("Z")) {
        // Only whole hours count: in "+hh:mm" the three characters "hh:" are
        // no number, so such a zone reads as offset 0. Servers depend on it.
        offset = zone.mid(1, 3).toInt() * 3600;
        if (zone.startsWith(QLatin1Char('-')))
            offset = -offset;
    }
    result.setOffsetFromUtc(offset);
    return result;
}

QString Utils::datetimeToIsoString(const QDateTime& value)
{
    if (value.isNull())
        return QString();
    const int offset = value.offsetFromUtc();
    // The minutes keep their sign: "-01:-30" for an offset of -90 minutes.
    const QString zone = QStringLiteral("%1%2:%3")
                             .arg(offset < 0 ? QStringLiteral("-") : QStringLiteral("+"))
                             .arg(qAbs(offset / 3600), 2, 10, QLatin1Char('0'))
                             .arg(offset % 3600 / 60, 2, 10, QLatin1Char('0'));
    return value.toTimeSpec(Qt::UTC).toString(ISODATE_MS_NOTZ) + zone;
}

QString Utils::md5sum(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

QString Utils::md5sum(const QString& text)
{
    return md5sum(text.toUtf8());
}

QString Utils::md5sumFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    const QByteArray content = file.readAll();
    file.close();
    return md5sum(content);
}

QString Utils::utf8UpToNul(const QByteArray& data)
{
    // Bounded by the size: an array over raw data has no terminating NUL.
    const int nul = data.indexOf('\0');
    return QString::fromUtf8(data.constData(), nul < 0 ? data.size() : nul);
}

QByteArray Utils::dataFromBase64Compressed(const QByteArray& data)
{
    return qUncompress(QByteArray::fromBase64(data));
}

QByteArray Utils::dataToBase64Compressed(const QByteArray& data)
{
    return qCompress(data, -1).toBase64();
}
