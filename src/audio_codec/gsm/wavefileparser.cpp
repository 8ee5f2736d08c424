#include "wavefileparser.h"

#include "wavepcmheaderdefs.h"

#include <QFile>
#include <QtDebug>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr int kHeaderBytes = 80;
constexpr int kPcmHeaderSize = 44;

// Little-endian reads inside the 80-byte header; anything past its end reads
// as 0, so a chunk size pointing outside the header can't match a tag.
unsigned int readLe(const unsigned char* header, int offset, int size)
{
    if (offset < 0 || offset + size > kHeaderBytes)
        return 0;
    unsigned int value = 0;
    for (int i = size - 1; i >= 0; --i)
        value = value << 8 | header[offset + i];
    return value;
}

bool hasTag(const unsigned char* header, int offset, const char* tag)
{
    return offset >= 0 && offset + 4 <= kHeaderBytes && std::memcmp(header + offset, tag, 4) == 0;
}

void putLe32(unsigned char* bytes, unsigned int value)
{
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

unsigned char* headerTemplate(pcm_wav_type type)
{
    QMap<pcm_wav_type, unsigned char*> map;
    mapPCMWavFormatsInit(&map);
    return map.value(type, nullptr);
}

} // namespace

WaveFileParser::WaveFileParser(const QString& path, Logger* /*logger*/)
    : m_filePath(path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const qint64 bytesRead = file.read(reinterpret_cast<char*>(m_header), kHeaderBytes);
    m_parseResult = parseWavFile(m_header);
    if (bytesRead > kPcmHeaderSize && m_parseResult == 0) {
        m_totalFileSize = readLe(m_header, 4, 4) + 8;
        m_numChannels = static_cast<unsigned short>(readLe(m_header, 22, 2));
        m_sampleRate = readLe(m_header, 24, 4);
        m_bytesPerSecond = readLe(m_header, 28, 4);
        m_blockAlign = static_cast<unsigned short>(readLe(m_header, 32, 2));
        m_bitsPerSample = static_cast<unsigned short>(readLe(m_header, 34, 2));
        m_dataSize = readLe(m_header, m_dataOffset + 4, 4);
        if (m_bitsPerSample != 8 && m_bitsPerSample != 16 && m_bitsPerSample != 24)
            m_parseResult = -61;
    }
    file.close();
}

int WaveFileParser::parseWavFile(const unsigned char* header)
{
    if (!hasTag(header, 0, "RIFF") || !hasTag(header, 8, "WAVE") || !hasTag(header, 12, "fmt "))
        return -60;

    const int formatSize = static_cast<int>(readLe(header, 16, 2));
    if (!hasTag(header, 36, "data")) {
        // A longer format chunk followed by a "fact" chunk, as compressed
        // formats have it.
        if (!hasTag(header, formatSize + 20, "fact"))
            return -60;
        const int dataOffset = static_cast<int>(readLe(header, formatSize + 24, 2)) + formatSize + 28;
        m_dataOffset = static_cast<unsigned short>(dataOffset);
        if (!hasTag(header, dataOffset, "data"))
            return -60;
    }

    m_audioFormat = static_cast<unsigned short>(readLe(header, 20, 2));
    switch (m_audioFormat) {
    case 1:
        m_valid = true;
        return 0;
    case 2:
        return m_valid ? 0 : -61;
    default:
        m_valid = false;
        return -61;
    }
}

pcm_wav_type WaveFileParser::getPcmType(char bits, unsigned int rate, char channels)
{
    return static_cast<pcm_wav_type>(
        pcmWavTypeValue(rate / 1000, static_cast<unsigned char>(bits), static_cast<unsigned char>(channels)));
}

QString WaveFileParser::createPcmWavFile(pcm_wav_type type, const QString& path, int size)
{
    FILE* source = std::fopen(path.toLatin1().constData(), "rb");
    if (!source) {
        qWarning() << "createPcmWavFile: cannot open" << path;
        return QString();
    }

    QString outputName = path;
    if (!path.toLower().endsWith(QLatin1String(".wav")))
        outputName += QLatin1String(".wav");
    FILE* output = std::fopen(outputName.toLatin1().constData(), "wb+");
    if (!output) {
        qWarning() << "createPcmWavFile: cannot create" << outputName;
        std::fclose(source);
        return QString();
    }

    unsigned char* header = headerTemplate(type);
    if (!header) {
        qDebug() << "[FATAL] Cannot get PCM Wav Map";
        std::fclose(source);
        std::fclose(output);
        return QString();
    }

    const size_t pcmSize = size > 0 ? static_cast<size_t>(size) : 0;
    putLe32(header + 4, static_cast<unsigned int>(pcmSize + 36));
    putLe32(header + 40, static_cast<unsigned int>(pcmSize));
    std::fwrite(header, 1, kPcmHeaderSize, output);

    // An empty clip has no buffer at all: fread/fwrite must not see its null
    // data pointer, even for zero bytes.
    std::vector<char> buffer(2 * pcmSize);
    const size_t bytesRead = pcmSize > 0 ? std::fread(buffer.data(), 1, pcmSize, source) : 0;
    if (bytesRead != pcmSize)
        qDebug() << "bytes_read from pcm_rx_file differs from pcm_size";
    if (bytesRead > 0)
        std::fwrite(buffer.data(), 1, bytesRead, output);

    std::fclose(source);
    std::fclose(output);
    return outputName;
}

void WaveFileParser::writePcmWavHeader(pcm_wav_type type, QFile* file)
{
    if (!file)
        return;
    const unsigned char* header = headerTemplate(type);
    if (!header) {
        qWarning().noquote() << QStringLiteral("writePcmWavHeader: no wave header for PCM type 0x%1")
                                    .arg(static_cast<unsigned int>(type), 0, 16);
        return;
    }
    // createPcmWavFile() may have left sizes in the shared template.
    unsigned char bytes[kPcmHeaderSize];
    std::memcpy(bytes, header, kPcmHeaderSize);
    putLe32(bytes + 4, 0);
    putLe32(bytes + 40, 0);
    file->write(reinterpret_cast<const char*>(bytes), kPcmHeaderSize);
}

void WaveFileParser::updatePcmWavHeaderSizeInfo(QFile* file, unsigned int fileSize)
{
    if (!file)
        return;
    unsigned char value[4];
    file->seek(4);
    putLe32(value, fileSize - 8);
    file->write(reinterpret_cast<const char*>(value), 4);
    file->seek(40);
    putLe32(value, fileSize - kPcmHeaderSize);
    file->write(reinterpret_cast<const char*>(value), 4);
}

void WaveFileParser::mapPCMWavFormatsInit(QMap<pcm_wav_type, unsigned char*>* map)
{
    ::mapPCMWavFormatsInit(map);
}
