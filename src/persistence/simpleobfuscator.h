#pragma once

#include "telvix_export.h"

#include <QByteArray>
#include <QString>

/// \brief Keyless scrambling that keeps files and dumps from being read in
/// clear at a glance. It is not encryption: anybody holding this code can
/// undo it.
class TELVIX_EXPORT SimpleObfuscator
{
public:
    enum RotDirection { Backward = 0, Forward = 1 };

    SimpleObfuscator() = delete;

    /// Adds (Forward) or subtracts (Backward) 13 from every byte, modulo 256.
    static QByteArray rot13(const QByteArray& data, RotDirection direction);

    /// rot13 forward, then Base64 without trailing '='.
    static QByteArray hide(const QByteArray& data);
    /// UTF-8 of `text` through hide(QByteArray).
    static QString hide(const QString& text);

    /// Base64 decoding, then rot13 backward: the inverse of hide(QByteArray).
    static QByteArray reveal(const QByteArray& data);
    /// reveal(QByteArray) read back as UTF-8, up to the first NUL byte.
    static QString reveal(const QString& text);
};
