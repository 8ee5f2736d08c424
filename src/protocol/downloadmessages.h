#pragma once

#include "sxmlmessage.h"
#include "telvix_export.h"

#include <QByteArray>
#include <QMetaType>
#include <QString>

namespace SARNET_XML {
// Voicemail audio
inline const QString S_COMMAND_DOWNLOAD_VM_MESSAGE = QStringLiteral("DownloadVoicemailMsg");
inline const QString S_XMLTAG_VM_MESSAGE_AUDIO = QStringLiteral("VoicemailMessageAudio");
inline const QString S_XMLTAG_VM_FILENAME = QStringLiteral("Filename");
inline const QString S_XMLTAG_VM_FORMAT = QStringLiteral("Format");
inline const QString S_XMLTAG_VM_MD5 = QStringLiteral("Md5");
inline const QString S_XMLTAG_VM_SIZE = QStringLiteral("Size");
inline const QString S_XMLTAG_VM_DATA = QStringLiteral("Data");

// Rebranding package
inline const QString S_COMMAND_GET_REBRANDINGPACK = QStringLiteral("GetRebrandingPack");
inline const QString S_XMLTAG_REBRANDINGPACK_LASTMD5 = QStringLiteral("LastMd5");
inline const QString S_XMLTAG_REBRANDINGPACK = QStringLiteral("RebrandingPack");
inline const QString S_XMLTAG_REBRANDINGPACK_FILENAME = QStringLiteral("Filename");
inline const QString S_XMLTAG_REBRANDINGPACK_FORMAT = QStringLiteral("Format");
inline const QString S_XMLTAG_REBRANDINGPACK_MD5 = QStringLiteral("Md5");
inline const QString S_XMLTAG_REBRANDINGPACK_SIZE = QStringLiteral("Size");
inline const QString S_XMLTAG_REBRANDINGPACK_DATA = QStringLiteral("Data");
} // namespace SARNET_XML

/// A file as the server sends it on a download connection; `data` holds the
/// decompressed bytes and `md5` their MD5 as the server states it.
class TELVIX_EXPORT FileBinaryData
{
    Q_GADGET
    Q_PROPERTY(QString filename MEMBER filename)
    Q_PROPERTY(QString format MEMBER format)
    Q_PROPERTY(QByteArray data MEMBER data)
    Q_PROPERTY(QString md5 MEMBER md5)

public:
    QString filename;
    QString format;
    QByteArray data;
    QString md5;

    bool operator==(const FileBinaryData& other) const;
    bool operator!=(const FileBinaryData& other) const { return !(*this == other); }
};

/// A rebranding package: a zip file with a customer's look.
using RebrandingPack = FileBinaryData;

/// The audio of one voicemail message: a WAV49 (GSM) file.
class TELVIX_EXPORT VoicemailAudioFile : public FileBinaryData
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString uuid MEMBER uuid)

public:
    QString id;
    QString uuid;

    bool operator==(const VoicemailAudioFile& other) const;
    bool operator!=(const VoicemailAudioFile& other) const { return !(*this == other); }
};

/// Asks for the audio of one voicemail message, on a download connection.
class TELVIX_EXPORT VoicemailDownloadReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;

    QString id;
};

/// "VoicemailMessageAudio": the audio of one message.
class TELVIX_EXPORT VoicemailDownloadResMsg : public SXmlResponseMessage
{
public:
    /// Valid only when the data matches the stated "Size" and "Md5" and none
    /// of id, uuid, md5 and data is empty.
    static VoicemailDownloadResMsg parseMessage(const QString& xml);
    /// The answer as a server writes it ("Size" from the data, which goes out
    /// compressed); the client only parses it.
    QString generateXmlMessageBody() const override;

    VoicemailAudioFile audioFile;
};

/// Asks for the rebranding package; `lastMd5` is the MD5 of the copy the
/// client has, empty when it has none.
class TELVIX_EXPORT RebrandingPackReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;

    QString lastMd5;
};

/// "RebrandingPack": the package, or empty fields when the server holds none
/// for this client.
class TELVIX_EXPORT RebrandingPackRespMsg : public SXmlResponseMessage
{
public:
    /// Valid when the data matches the stated "Size" and "Md5"; an answer
    /// without data, with size 0 and an empty MD5 is valid too.
    static RebrandingPackRespMsg parseMessage(const QString& xml);
    /// The answer as a server writes it; "Data" is left out when there is
    /// none. The client only parses it.
    QString generateXmlMessageBody() const override;

    RebrandingPack pack;
};

Q_DECLARE_METATYPE(FileBinaryData)
Q_DECLARE_METATYPE(VoicemailAudioFile)
