// Wave files and GSM data: the header parser on any file, the voicemail
// decoding (WAV49 frame pairs through the codec wrapper) on any bytes, and
// the codec's own way from PCM to GSM and back.

#include "ctigsm_codec.h"
#include "fuzzcheck.h"
#include "voicemaildownloader.h"
#include "wavefileparser.h"

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <cstring>
#include <memory>

namespace {
constexpr int kFrameSamples = 160;
constexpr int kFrameBytes = 33;
constexpr int kHeaderBytes = 80;

std::unique_ptr<QTemporaryDir> dir;
} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    dir = std::make_unique<QTemporaryDir>();
    FUZZ_CHECK(dir->isValid());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));

    // The parser reads a file: only its first 80 bytes matter.
    const QString path = dir->filePath(QStringLiteral("input.wav"));
    {
        QFile file(path);
        FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes.left(kHeaderBytes));
    }
    const WaveFileParser wave(path);
    const int result = wave.getParseResult();
    FUZZ_CHECK(result == 0 || result == -60 || result == -61);
    // A PCM file stays valid with a sample size the library cannot read; its
    // result then says -61.
    if (result == 0)
        FUZZ_CHECK(wave.isValidWavFile());
    if (wave.isValidWavFile())
        FUZZ_CHECK(result != -60);

    // A voicemail's audio: any length, any content, frames that do not
    // decode included.
    VoicemailDownloader downloader(QStringLiteral("5.7"), nullptr);
    const QByteArray pcm = downloader.decodeGsmAudioData(bytes);
    FUZZ_CHECK(pcm.size() % (kFrameSamples * 2) == 0);

    // The same bytes as PCM, encoded and decoded frame by frame.
    CtiGsm_Codec codec;
    short samples[kFrameSamples];
    short decoded[kFrameSamples];
    char frame[kFrameBytes];
    for (int at = 0; at + int(sizeof samples) <= bytes.size() && at < 16 * int(sizeof samples);
         at += int(sizeof samples)) {
        std::memcpy(samples, bytes.constData() + at, sizeof samples);
        FUZZ_CHECK(codec.encode(samples, frame) == kFrameBytes);
        FUZZ_CHECK(codec.decode(decoded, frame, kFrameBytes) != 0);
    }
    return 0;
}
