#include "simfiles.h"

#include <QtEndian>
#include <QtMath>

#include <gsm.h>
#include <zlib.h>

namespace {

constexpr int SamplesPerFrame = 160;
constexpr int SampleRate = 8000;
// Two frames per block: 32 + 33 bytes.
constexpr int BlockBytes = 65;

void put16(QByteArray& out, quint16 v)
{
    char b[2];
    qToLittleEndian(v, b);
    out.append(b, 2);
}

void put32(QByteArray& out, quint32 v)
{
    char b[4];
    qToLittleEndian(v, b);
    out.append(b, 4);
}

QByteArray wav49Header(int blocks)
{
    const quint32 dataBytes = quint32(blocks) * BlockBytes;
    QByteArray h;
    h.reserve(60);
    h.append("RIFF");
    put32(h, 52 + dataBytes);
    h.append("WAVEfmt ");
    put32(h, 20);
    put16(h, 0x31); // GSM 6.10
    put16(h, 1); // mono
    put32(h, SampleRate);
    put32(h, SampleRate * BlockBytes / (2 * SamplesPerFrame)); // 1625 bytes a second
    put16(h, BlockBytes);
    put16(h, 0); // bits per sample: none for a compressed format
    put16(h, 2); // extra bytes that follow
    put16(h, 2 * SamplesPerFrame); // samples per block
    h.append("fact");
    put32(h, 4);
    put32(h, quint32(blocks) * 2 * SamplesPerFrame);
    h.append("data");
    put32(h, dataBytes);
    return h;
}

// DOS date and time of the archive's entries: 2024-01-01 12:00:00.
constexpr quint16 DosTime = 12 << 11;
constexpr quint16 DosDate = ((2024 - 1980) << 9) | (1 << 5) | 1;

} // namespace

namespace SimFiles {

QByteArray wav49Tone(int frames, int toneHz)
{
    const int blocks = (qMax(frames, 0) + 1) / 2;
    QByteArray out = wav49Header(blocks);
    gsm encoder = gsm_create();
    if (!encoder)
        return QByteArray();
    int wav49 = 1;
    gsm_option(encoder, GSM_OPT_WAV49, &wav49);
    gsm_signal pcm[SamplesPerFrame];
    gsm_byte packed[33];
    for (int frame = 0; frame < 2 * blocks; ++frame) {
        for (int i = 0; i < SamplesPerFrame; ++i) {
            const double t = double(frame * SamplesPerFrame + i) / SampleRate;
            pcm[i] = gsm_signal(8000 * qSin(2 * M_PI * toneHz * t));
        }
        gsm_encode(encoder, pcm, packed);
        // In WAV49 packing the first frame of a pair takes 32 bytes, the second 33.
        out.append(reinterpret_cast<const char*>(packed), frame % 2 == 0 ? 32 : 33);
    }
    gsm_destroy(encoder);
    return out;
}

QByteArray storedZip(const QList<QPair<QString, QByteArray>>& entries)
{
    QByteArray archive;
    QByteArray directory;
    for (const auto& entry : entries) {
        const QByteArray name = entry.first.toUtf8();
        const QByteArray& data = entry.second;
        const quint32 crc
            = quint32(crc32(0, reinterpret_cast<const Bytef*>(data.constData()), uInt(data.size())));
        const quint32 offset = quint32(archive.size());
        // The fields a local header and its central directory entry share.
        QByteArray common;
        put16(common, 10); // version needed: 1.0
        put16(common, 0x0800); // flags: names in UTF-8
        put16(common, 0); // stored
        put16(common, DosTime);
        put16(common, DosDate);
        put32(common, crc);
        put32(common, quint32(data.size()));
        put32(common, quint32(data.size()));
        put16(common, quint16(name.size()));
        put16(common, 0); // extra field

        put32(archive, 0x04034b50);
        archive.append(common).append(name).append(data);

        put32(directory, 0x02014b50);
        put16(directory, 0x031e); // made by: Unix, 3.0
        directory.append(common);
        put16(directory, 0); // comment
        put16(directory, 0); // disk
        put16(directory, 0); // internal attributes
        put32(directory, 0100644u << 16); // external: a plain file, rw-r--r--
        put32(directory, offset);
        directory.append(name);
    }
    const quint32 directoryOffset = quint32(archive.size());
    archive.append(directory);
    put32(archive, 0x06054b50);
    put16(archive, 0); // this disk
    put16(archive, 0); // disk of the directory
    put16(archive, quint16(entries.size()));
    put16(archive, quint16(entries.size()));
    put32(archive, quint32(directory.size()));
    put32(archive, directoryOffset);
    put16(archive, 0); // comment
    return archive;
}

QByteArray rebrandingPackage()
{
    const QByteArray style = R"({
  "brand": "Telvix PBX simulator",
  "primaryColor": "#1f6feb",
  "accentColor": "#f0883e",
  "logo": "logo.svg"
}
)";
    const QByteArray logo
        = R"(<svg xmlns="http://www.w3.org/2000/svg" width="64" height="64" viewBox="0 0 64 64">
  <rect width="64" height="64" rx="12" fill="#1f6feb"/>
  <text x="32" y="42" font-size="28" text-anchor="middle" fill="#ffffff">T</text>
</svg>
)";
    return storedZip({{QStringLiteral("branding.json"), style}, {QStringLiteral("logo.svg"), logo}});
}

} // namespace SimFiles
