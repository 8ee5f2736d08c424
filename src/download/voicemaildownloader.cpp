#include "voicemaildownloader.h"

#include "ctigsm_codec.h"
#include "telvixlog_p.h"
#include "wavefileparser.h"

#include <QFile>

#include <algorithm>
#include <cstring>

using namespace SARNET_XML;

namespace {
constexpr int Wav49HeaderSize = 60;
constexpr int PcmWavHeaderSize = 44;
// A 65-byte WAV49 block holds two frames; the codec reads 33 bytes for each.
constexpr int GsmFrameRead = 33;
constexpr int PcmFrameBufferSize = 1280;
} // namespace

VoicemailDownloader::VoicemailDownloader(const QString& apiVersion_, Logger* logger_, QObject* parent)
    : SarnetDownloader(apiVersion_, logger_, parent)
{
}

QString VoicemailDownloader::getRequestMsg()
{
    VoicemailDownloadReqMsg request;
    request.token = token;
    request.id = messageId;
    return request.serializeToXml(apiVersion);
}

void VoicemailDownloader::handleResponseMsg(const QString& message)
{
    if (!message.contains(S_XMLTAG_VM_MESSAGE_AUDIO))
        return;
    const VoicemailDownloadResMsg msg = VoicemailDownloadResMsg::parseMessage(message);
    if (msg.success) {
        saveVoicemailAudioFile(msg.audioFile);
        return;
    }
    TLOG(1000) << "Invalid voicemail download message";
    Q_EMIT sigError(QStringLiteral("Got invalid response"));
}

QByteArray VoicemailDownloader::decodeGsmAudioData(const QByteArray& gsm)
{
    CtiGsm_Codec codec;
    QByteArray pcm;
    if (gsm.size() <= Wav49HeaderSize)
        return pcm;
    pcm.reserve((gsm.size() - Wav49HeaderSize) / 65 * 2 * 320 + 640);

    short samples[PcmFrameBufferSize / sizeof(short)];
    char frame[GsmFrameRead];
    int step = 33;
    for (int position = Wav49HeaderSize; position < gsm.size(); position += step, step = 65 - step) {
        // The codec always reads a whole 33 bytes: the last frame (or the
        // short half of a pair) must not make it read past the data.
        const int available = std::min(GsmFrameRead, gsm.size() - position);
        std::memcpy(frame, gsm.constData() + position, size_t(available));
        std::memset(frame + available, 0, size_t(GsmFrameRead - available));
        const int result = codec.decode(samples, frame, GsmFrameRead);
        if (result > 0)
            pcm.append(reinterpret_cast<const char*>(samples), result);
        else
            TLOG(100) << "Error decoding voicemail file:" << result;
    }
    return pcm;
}

void VoicemailDownloader::saveVoicemailAudioFile(const VoicemailAudioFile& file)
{
    const QByteArray pcm = decodeGsmAudioData(file.data);
    QString name = QStringLiteral("%1.wav").arg(messageUuid);
    name.replace(QLatin1Char(' '), QLatin1Char('_')).replace(QLatin1Char('/'), QLatin1Char('_'));
    destinationFile = QStringLiteral("%1/%2").arg(destinationFolder, name);

    QFile wave(destinationFile);
    if (!wave.open(QIODevice::WriteOnly)) {
        TLOG(10) << "Unable to open file " << destinationFile;
        Q_EMIT sigError(QStringLiteral("Unable to open file %1").arg(destinationFile));
        return;
    }
    WaveFileParser::writePcmWavHeader(PCM_WAV_8K_16B_MONO, &wave);
    wave.write(pcm);
    wave.flush();
    WaveFileParser::updatePcmWavHeaderSizeInfo(&wave,
                                               static_cast<unsigned int>(pcm.size() + PcmWavHeaderSize));
    wave.close();
    TLOG(1000) << "File successfully written to" << destinationFile;
    Q_EMIT sigFinished();
}
