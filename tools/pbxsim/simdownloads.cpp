#include "simdownloads.h"

#include "downloadmessages.h"
#include "messagereader.h"
#include "simdirectory.h"
#include "simfiles.h"
#include "simhub.h"
#include "simsession.h"
#include "utils.h"

#include <QRandomGenerator>

#include <algorithm>

using namespace SARNET_XML;

namespace {
// 20 ms frames.
constexpr int FramesPerSec = 50;

// A refusal on a download connection does not quote the request: clients
// recognise the answer by its element name, and a quoted "GetRebrandingPack"
// would pass for an empty "RebrandingPack", which tells them to delete their
// package.
void refuse(SimSession& s, const QString& reason)
{
    s.sendError(reason, QString());
}
} // namespace

SimDownloads::SimDownloads(SimHub& hub, bool rebranding, int tokenValiditySecs)
    : m_hub(hub)
    , m_validitySecs(tokenValiditySecs)
    , m_package(rebranding ? SimFiles::rebrandingPackage() : QByteArray())
{
}

QString SimDownloads::issueToken(const QString& exten, QDateTime* validUntil)
{
    const QDateTime now = QDateTime::currentDateTime();
    // Forget the expired ones, so that a long run does not pile them up.
    for (auto it = m_tokens.begin(); it != m_tokens.end();) {
        if (it->validUntil < now)
            it = m_tokens.erase(it);
        else
            ++it;
    }

    QRandomGenerator* random = QRandomGenerator::global();
    const QString token = QStringLiteral("%1%2")
                              .arg(random->generate64(), 16, 16, QLatin1Char('0'))
                              .arg(random->generate64(), 16, 16, QLatin1Char('0'));
    *validUntil = now.addSecs(m_validitySecs);
    m_tokens.insert(token, {exten, *validUntil});
    return token;
}

bool SimDownloads::serve(SimSession& session, const QString& element, const QString& xml)
{
    if (element != S_COMMAND_DOWNLOAD_VM_MESSAGE && element != S_COMMAND_GET_REBRANDINGPACK)
        return false;
    const QString token = MessageReader::text(xml, S_XMLTAG_AUTHTOKEN_TOKEN);
    const auto found = m_tokens.constFind(token);
    QString refusal;
    if (token.isEmpty())
        refusal = QStringLiteral("Missing access token");
    else if (found == m_tokens.constEnd())
        refusal = QStringLiteral("Unknown access token");
    else if (found->validUntil < QDateTime::currentDateTime())
        refusal = QStringLiteral("Expired access token");
    if (!refusal.isEmpty()) {
        m_hub.log(QStringLiteral("download %1 from %2 refused: %3").arg(element, session.peer(), refusal));
        refuse(session, refusal);
        return true;
    }
    if (element == S_COMMAND_DOWNLOAD_VM_MESSAGE)
        voicemail(session, found->exten, xml);
    else
        rebrandingPack(session, found->exten, xml);
    return true;
}

void SimDownloads::voicemail(SimSession& s, const QString& exten, const QString& xml)
{
    const QString id = MessageReader::text(xml, S_XMLTAG_VM_MESSAGE_ID);
    const QList<VoicemailMessage> box = m_hub.directory().voicemail(exten, TELVIX::VmMsgFlagAll);
    const auto message
        = std::find_if(box.cbegin(), box.cend(), [&id](const VoicemailMessage& m) { return m.id == id; });
    if (message == box.cend()) {
        m_hub.log(QStringLiteral("%1: download of voicemail %2, no such message").arg(exten, id));
        refuse(s, QStringLiteral("No such message"));
        return;
    }
    const int seconds = qBound(0, message->duration, MaxAudioSecs);
    VoicemailDownloadResMsg answer;
    VoicemailAudioFile& file = answer.audioFile;
    file.id = message->id;
    file.uuid = message->messageUuid;
    file.filename = QStringLiteral("msg%1.wav").arg(message->id);
    file.format = QStringLiteral("wav49");
    // A pitch of its own for each caller, so that messages sound apart.
    file.data = SimFiles::wav49Tone(seconds * FramesPerSec, 300 + int(qHash(message->callerNumber) % 400));
    file.md5 = Utils::md5sum(file.data);
    s.send(answer);
    m_hub.log(QStringLiteral("%1 downloads voicemail %2: %3 s, %4 frames, %5 bytes, md5 %6")
                  .arg(exten, id)
                  .arg(seconds)
                  .arg(seconds * FramesPerSec)
                  .arg(file.data.size())
                  .arg(file.md5));
}

void SimDownloads::rebrandingPack(SimSession& s, const QString& exten, const QString& xml)
{
    RebrandingPackRespMsg answer;
    if (!m_package.isEmpty()) {
        answer.pack.filename = QStringLiteral("assets.zip");
        answer.pack.format = QStringLiteral("zip");
        answer.pack.data = m_package;
        answer.pack.md5 = Utils::md5sum(m_package);
    }
    s.send(answer);
    const QString lastMd5 = MessageReader::text(xml, S_XMLTAG_REBRANDINGPACK_LASTMD5);
    if (m_package.isEmpty())
        m_hub.log(QStringLiteral("%1 downloads the rebranding package: none held").arg(exten));
    else
        m_hub.log(QStringLiteral("%1 downloads the rebranding package: %2 bytes, md5 %3 (client had %4)")
                      .arg(exten)
                      .arg(m_package.size())
                      .arg(answer.pack.md5, lastMd5.isEmpty() ? QStringLiteral("none") : lastMd5));
}
