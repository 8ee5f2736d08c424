#pragma once

#include "telvix_export.h"

#include <QMap>
#include <QString>

class Logger;
class QFile;

/// Value of a PCM format: rate in kHz (11025 Hz and the like truncated) in
/// bits 16 and up, bits per sample in bits 8-15, channels in the low byte.
constexpr unsigned int pcmWavTypeValue(unsigned int rateKhz, unsigned int bits, unsigned int channels)
{
    return rateKhz << 16 | bits << 8 | channels;
}

/// \brief The PCM formats that have a ready-made wave header.
///
/// The underlying type is fixed so that any value built by
/// WaveFileParser::getPcmType() is representable, in the table or not.
enum pcm_wav_type : unsigned int {
    PCM_WAV_8K_8B_MONO = pcmWavTypeValue(8, 8, 1),
    PCM_WAV_8K_8B_STEREO = pcmWavTypeValue(8, 8, 2),
    PCM_WAV_8K_16B_MONO = pcmWavTypeValue(8, 16, 1),
    PCM_WAV_8K_16B_STEREO = pcmWavTypeValue(8, 16, 2),
    PCM_WAV_8K_24B_MONO = pcmWavTypeValue(8, 24, 1),
    PCM_WAV_8K_24B_STEREO = pcmWavTypeValue(8, 24, 2),
    PCM_WAV_11K_8B_MONO = pcmWavTypeValue(11, 8, 1),
    PCM_WAV_11K_8B_STEREO = pcmWavTypeValue(11, 8, 2),
    PCM_WAV_11K_16B_MONO = pcmWavTypeValue(11, 16, 1),
    PCM_WAV_11K_16B_STEREO = pcmWavTypeValue(11, 16, 2),
    PCM_WAV_11K_24B_MONO = pcmWavTypeValue(11, 24, 1),
    PCM_WAV_11K_24B_STEREO = pcmWavTypeValue(11, 24, 2),
    PCM_WAV_16K_8B_MONO = pcmWavTypeValue(16, 8, 1),
    PCM_WAV_16K_8B_STEREO = pcmWavTypeValue(16, 8, 2),
    PCM_WAV_16K_16B_MONO = pcmWavTypeValue(16, 16, 1),
    PCM_WAV_16K_16B_STEREO = pcmWavTypeValue(16, 16, 2),
    PCM_WAV_16K_24B_MONO = pcmWavTypeValue(16, 24, 1),
    PCM_WAV_16K_24B_STEREO = pcmWavTypeValue(16, 24, 2),
    PCM_WAV_22K_8B_MONO = pcmWavTypeValue(22, 8, 1),
    PCM_WAV_22K_8B_STEREO = pcmWavTypeValue(22, 8, 2),
    PCM_WAV_22K_16B_MONO = pcmWavTypeValue(22, 16, 1),
    PCM_WAV_22K_16B_STEREO = pcmWavTypeValue(22, 16, 2),
    PCM_WAV_22K_24B_MONO = pcmWavTypeValue(22, 24, 1),
    PCM_WAV_22K_24B_STEREO = pcmWavTypeValue(22, 24, 2),
    PCM_WAV_32K_8B_MONO = pcmWavTypeValue(32, 8, 1),
    PCM_WAV_32K_8B_STEREO = pcmWavTypeValue(32, 8, 2),
    PCM_WAV_32K_16B_MONO = pcmWavTypeValue(32, 16, 1),
    PCM_WAV_32K_16B_STEREO = pcmWavTypeValue(32, 16, 2),
    PCM_WAV_32K_24B_MONO = pcmWavTypeValue(32, 24, 1),
    PCM_WAV_32K_24B_STEREO = pcmWavTypeValue(32, 24, 2),
    PCM_WAV_44K_8B_MONO = pcmWavTypeValue(44, 8, 1),
    PCM_WAV_44K_8B_STEREO = pcmWavTypeValue(44, 8, 2),
    PCM_WAV_44K_16B_MONO = pcmWavTypeValue(44, 16, 1),
    PCM_WAV_44K_16B_STEREO = pcmWavTypeValue(44, 16, 2),
    PCM_WAV_44K_24B_MONO = pcmWavTypeValue(44, 24, 1),
    PCM_WAV_44K_24B_STEREO = pcmWavTypeValue(44, 24, 2),
    PCM_WAV_48K_8B_MONO = pcmWavTypeValue(48, 8, 1),
    PCM_WAV_48K_8B_STEREO = pcmWavTypeValue(48, 8, 2),
    PCM_WAV_48K_16B_MONO = pcmWavTypeValue(48, 16, 1),
    PCM_WAV_48K_16B_STEREO = pcmWavTypeValue(48, 16, 2),
    PCM_WAV_48K_24B_MONO = pcmWavTypeValue(48, 24, 1),
    PCM_WAV_48K_24B_STEREO = pcmWavTypeValue(48, 24, 2),
    PCM_WAV_88K_8B_MONO = pcmWavTypeValue(88, 8, 1),
    PCM_WAV_88K_8B_STEREO = pcmWavTypeValue(88, 8, 2),
    PCM_WAV_88K_16B_MONO = pcmWavTypeValue(88, 16, 1),
    PCM_WAV_88K_16B_STEREO = pcmWavTypeValue(88, 16, 2),
    PCM_WAV_88K_24B_MONO = pcmWavTypeValue(88, 24, 1),
    PCM_WAV_88K_24B_STEREO = pcmWavTypeValue(88, 24, 2),
    PCM_WAV_96K_8B_MONO = pcmWavTypeValue(96, 8, 1),
    PCM_WAV_96K_8B_STEREO = pcmWavTypeValue(96, 8, 2),
    PCM_WAV_96K_16B_MONO = pcmWavTypeValue(96, 16, 1),
    PCM_WAV_96K_16B_STEREO = pcmWavTypeValue(96, 16, 2),
    PCM_WAV_96K_24B_MONO = pcmWavTypeValue(96, 24, 1),
    PCM_WAV_96K_24B_STEREO = pcmWavTypeValue(96, 24, 2),
};

/// \brief Reads the header of a PCM wave file; its static functions write PCM
/// wave files from the table of ready-made 44-byte headers.
///
/// Parse results: 0 good, -60 malformed, -61 a format that isn't supported.
class TELVIX_EXPORT WaveFileParser
{
public:
    /// Reads up to the first 80 bytes of `path` and parses them. The logger is
    /// accepted for the callers' sake; parsing logs nothing.
    explicit WaveFileParser(const QString& path, Logger* logger = nullptr);

    bool isValidWavFile() const { return m_valid; }
    int getParseResult() const { return m_parseResult; }
    unsigned short getBlockAlign() const { return m_blockAlign; }
    /// Offset of the first byte of sound: the "data" chunk's offset + 8.
    unsigned short getDataOffset() const { return static_cast<unsigned short>(m_dataOffset + 8); }
    unsigned int getSampleRate() const { return m_sampleRate; }
    unsigned short getBitsPerSample() const { return m_bitsPerSample; }
    unsigned int getDataSize() const { return m_dataSize; }
    unsigned short getNumChannels() const { return m_numChannels; }
    unsigned int getTotalFileSize() const { return m_totalFileSize; }
    unsigned int getBytesPerSecond() const { return m_bytesPerSecond; }
    unsigned short getAudioFormat() const { return m_audioFormat; }

    /// The format value of `bits`, `rate` in Hz and `channels`, e.g.
    /// getPcmType(16, 8000, 1) == 0x81001.
    static pcm_wav_type getPcmType(char bits, unsigned int rate, char channels);

    /// Wraps `size` bytes of the raw PCM file `path` into a wave file named
    /// `path` + ".wav" (or `path` itself when it already ends in ".wav", which
    /// then overwrites the source). Returns the output name, or an empty string
    /// when `type` has no header or a file can't be opened. Writes the sizes
    /// into the shared header table, so it must not run concurrently with
    /// itself or writePcmWavHeader().
    static QString createPcmWavFile(pcm_wav_type type, const QString& path, int size);

    /// Writes the 44-byte header of `type` with both sizes 0 at the file's
    /// position; writes nothing for a type outside the table.
    static void writePcmWavHeader(pcm_wav_type type, QFile* file);

    /// Fills in the RIFF size (fileSize - 8) and the data size (fileSize - 44)
    /// of a header written by writePcmWavHeader().
    static void updatePcmWavHeaderSizeInfo(QFile* file, unsigned int fileSize);

    /// Every pcm_wav_type with its header template.
    static void mapPCMWavFormatsInit(QMap<pcm_wav_type, unsigned char*>* map);

private:
    int parseWavFile(const unsigned char* header);

    QString m_filePath;
    unsigned int m_totalFileSize = 0;
    unsigned int m_dataSize = 0;
    unsigned int m_sampleRate = 0;
    unsigned int m_bytesPerSecond = 0;
    unsigned short m_numChannels = 0;
    unsigned short m_blockAlign = 0;
    unsigned short m_bitsPerSample = 0;
    unsigned short m_audioFormat = 1;
    unsigned short m_dataOffset = 36;
    unsigned char m_header[80] = {};
    bool m_valid = false;
    int m_parseResult = 0;
};
