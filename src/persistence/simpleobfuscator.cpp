#include "simpleobfuscator.h"

#include "utils.h"

namespace {

constexpr int RotShift = 13;

} // namespace

QByteArray SimpleObfuscator::rot13(const QByteArray& data, RotDirection direction)
{
    QByteArray result(data);
    const int shift = direction == Forward ? RotShift : 256 - RotShift;
    char* p = result.data();
    for (int i = 0; i < result.size(); ++i)
        p[i] = static_cast<char>((static_cast<unsigned char>(p[i]) + shift) & 0xff);
    return result;
}

QByteArray SimpleObfuscator::hide(const QByteArray& data)
{
    return rot13(data, Forward).toBase64(QByteArray::OmitTrailingEquals);
}

QString SimpleObfuscator::hide(const QString& text)
{
    return Utils::utf8UpToNul(hide(text.toUtf8()));
}

QByteArray SimpleObfuscator::reveal(const QByteArray& data)
{
    return rot13(QByteArray::fromBase64(data), Backward);
}

QString SimpleObfuscator::reveal(const QString& text)
{
    return Utils::utf8UpToNul(reveal(text.toUtf8()));
}
