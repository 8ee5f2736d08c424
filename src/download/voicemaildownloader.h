#pragma once

#include "downloadmessages.h"
#include "sarnetdownloader.h"
#include "telvix_export.h"

#include <QByteArray>

/// \brief Fetches the audio of one voicemail message and saves it, decoded
/// from GSM to 16-bit PCM, as "<messageUuid>.wav" in destinationFolder.
class TELVIX_EXPORT VoicemailDownloader : public SarnetDownloader
{
    Q_OBJECT
public:
    VoicemailDownloader(const QString& apiVersion, Logger* logger, QObject* parent = nullptr);

    QString messageId;
    QString messageUuid;

    QString getRequestMsg() override;
    /// Ignores every message but "VoicemailMessageAudio".
    void handleResponseMsg(const QString& message) override;

    /// PCM (8 kHz, 16 bits, mono) of a WAV49 file: a 60-byte header, then
    /// GSM frames of 33 and 32 bytes in turn. A frame that can't be decoded
    /// is skipped; a truncated last frame is decoded as if zeros followed.
    QByteArray decodeGsmAudioData(const QByteArray& gsm);
    /// Decodes and writes the wave file, then raises sigFinished(); sigError()
    /// when the file can't be opened.
    void saveVoicemailAudioFile(const VoicemailAudioFile& file);
};
