#include "downloadmessages.h"

#include "messagereader.h"
#include "utils.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;

namespace {

const QString invalidPackLine = QStringLiteral("parsed an invalid RebrandingPack download message");

/// Decompressed "Data", and its MD5 when there is any.
QByteArray readData(const QString& xml, const QString& tag, QString& computedMd5)
{
    QByteArray data;
    const QString encoded = MessageReader::raw(xml, tag);
    if (!encoded.isEmpty())
        data = Utils::dataFromBase64Compressed(encoded.toLatin1());
    if (!data.isEmpty())
        computedMd5 = Utils::md5sum(data);
    return data;
}

void writeFileFields(XmlBodyWriter& body, const FileBinaryData& file, const QString& filenameTag,
                     const QString& formatTag, const QString& md5Tag, const QString& sizeTag,
                     const QString& dataTag)
{
    body.text(filenameTag, file.filename)
        .text(formatTag, file.format)
        .text(md5Tag, file.md5)
        .text(sizeTag, file.data.size());
    if (!file.data.isEmpty())
        body.text(dataTag, QString::fromLatin1(Utils::dataToBase64Compressed(file.data)));
}

} // namespace

bool FileBinaryData::operator==(const FileBinaryData& other) const
{
    return filename == other.filename && format == other.format && data == other.data && md5 == other.md5;
}

bool VoicemailAudioFile::operator==(const VoicemailAudioFile& other) const
{
    return FileBinaryData::operator==(other) && id == other.id && uuid == other.uuid;
}

QString VoicemailDownloadReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_COMMAND_DOWNLOAD_VM_MESSAGE).text(S_XMLTAG_VM_MESSAGE_ID, id).end();
    return body.result();
}

VoicemailDownloadResMsg VoicemailDownloadResMsg::parseMessage(const QString& xml)
{
    using namespace MessageReader;
    VoicemailAudioFile file;
    file.id = text(xml, S_XMLTAG_VM_MESSAGE_ID);
    file.uuid = text(xml, S_XMLTAG_VM_MESSAGE_UUID);
    file.filename = raw(xml, S_XMLTAG_VM_FILENAME);
    file.format = raw(xml, S_XMLTAG_VM_FORMAT);
    file.md5 = raw(xml, S_XMLTAG_VM_MD5);
    const int size = toInt(xml, S_XMLTAG_VM_SIZE);
    QString computedMd5;
    file.data = readData(xml, S_XMLTAG_VM_DATA, computedMd5);

    // The servers share one wording for both downloads.
    if (size != file.data.size() || computedMd5 != file.md5)
        return invalid<VoicemailDownloadResMsg>(invalidPackLine);
    if (file.id.isEmpty() || file.uuid.isEmpty() || file.md5.isEmpty() || file.data.isEmpty())
        return invalid<VoicemailDownloadResMsg>(
            QStringLiteral("parsed an invalid Voicemail download message"));
    VoicemailDownloadResMsg msg;
    msg.audioFile = file;
    return accepted(std::move(msg), xml, QString());
}

QString VoicemailDownloadResMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_VM_MESSAGE_AUDIO)
        .text(S_XMLTAG_VM_MESSAGE_ID, audioFile.id)
        .text(S_XMLTAG_VM_MESSAGE_UUID, audioFile.uuid);
    writeFileFields(body, audioFile, S_XMLTAG_VM_FILENAME, S_XMLTAG_VM_FORMAT, S_XMLTAG_VM_MD5,
                    S_XMLTAG_VM_SIZE, S_XMLTAG_VM_DATA);
    body.end();
    return body.result();
}

QString RebrandingPackReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_COMMAND_GET_REBRANDINGPACK).text(S_XMLTAG_REBRANDINGPACK_LASTMD5, lastMd5).end();
    return body.result();
}

RebrandingPackRespMsg RebrandingPackRespMsg::parseMessage(const QString& xml)
{
    using namespace MessageReader;
    RebrandingPack pack;
    pack.filename = text(xml, S_XMLTAG_REBRANDINGPACK_FILENAME);
    pack.format = text(xml, S_XMLTAG_REBRANDINGPACK_FORMAT);
    pack.md5 = text(xml, S_XMLTAG_REBRANDINGPACK_MD5);
    const int size = toInt(xml, S_XMLTAG_REBRANDINGPACK_SIZE);
    QString computedMd5;
    pack.data = readData(xml, S_XMLTAG_REBRANDINGPACK_DATA, computedMd5);

    // Without a package both MD5 texts are empty and the size is 0.
    if (size != pack.data.size() || computedMd5 != pack.md5)
        return invalid<RebrandingPackRespMsg>(invalidPackLine);
    RebrandingPackRespMsg msg;
    msg.pack = pack;
    return accepted(std::move(msg), xml, QString());
}

QString RebrandingPackRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_REBRANDINGPACK);
    writeFileFields(body, pack, S_XMLTAG_REBRANDINGPACK_FILENAME, S_XMLTAG_REBRANDINGPACK_FORMAT,
                    S_XMLTAG_REBRANDINGPACK_MD5, S_XMLTAG_REBRANDINGPACK_SIZE, S_XMLTAG_REBRANDINGPACK_DATA);
    body.end();
    return body.result();
}

static void registerDownloadTypes()
{
    qRegisterMetaType<FileBinaryData>("FileBinaryData");
    qRegisterMetaType<RebrandingPack>("RebrandingPack");
    qRegisterMetaType<VoicemailAudioFile>("VoicemailAudioFile");
}
Q_CONSTRUCTOR_FUNCTION(registerDownloadTypes)
