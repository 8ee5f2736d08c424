#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

/// \brief The files the simulator hands out on download connections, made
/// on the spot: voicemail audio and the rebranding package.
namespace SimFiles {

/// A WAV49 (GSM 06.10, 8 kHz mono) file of `frames` 20 ms frames of a tone:
/// a 60-byte header, then blocks of two frames (32 + 33 bytes). An odd
/// count is rounded up, as the blocks hold frames in pairs.
QByteArray wav49Tone(int frames, int toneHz = 440);

/// An uncompressed ("stored") zip archive of the given (name, content)
/// entries. The entries' dates are fixed, so equal contents give equal bytes.
QByteArray storedZip(const QList<QPair<QString, QByteArray>>& entries);

/// The simulator's rebranding package: a zip with a small style file and logo.
QByteArray rebrandingPackage();

} // namespace SimFiles
