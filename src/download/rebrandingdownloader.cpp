#include "rebrandingdownloader.h"

#include "telvixlog_p.h"

#include <QFile>

using namespace SARNET_XML;

RebrandingDownloader::RebrandingDownloader(const QString& apiVersion_, Logger* logger_, QObject* parent)
    : SarnetDownloader(apiVersion_, logger_, parent)
{
}

QString RebrandingDownloader::getRequestMsg()
{
    RebrandingPackReqMsg request;
    request.token = token;
    request.lastMd5 = lastMd5;
    return request.serializeToXml(apiVersion);
}

void RebrandingDownloader::handleResponseMsg(const QString& message)
{
    if (!message.contains(S_XMLTAG_REBRANDINGPACK))
        return;
    const RebrandingPackRespMsg msg = RebrandingPackRespMsg::parseMessage(message);
    if (msg.success) {
        savePackageFile(msg.pack);
        return;
    }
    TLOG(1000) << "Invalid rebranding package download";
    Q_EMIT sigError(QStringLiteral("Got invalid response"));
}

void RebrandingDownloader::savePackageFile(const RebrandingPack& pack)
{
    lastMd5 = pack.md5;
    // The server's file name is not used: the application looks for this one.
    destinationFile = QStringLiteral("%1/%2").arg(destinationFolder, QStringLiteral("assets.zip"));
    if (!pack.md5.isEmpty()) {
        QFile file(destinationFile);
        if (!file.open(QIODevice::WriteOnly)) {
            TLOG(10) << "Unable to open file" << destinationFile
                     << "due to the following error:" << file.errorString();
            Q_EMIT sigError(QStringLiteral("Unable to open file %1").arg(destinationFile));
            return;
        }
        file.write(pack.data);
        file.close();
        TLOG(1000) << "File successfully written to" << destinationFile;
    } else {
        // No package for this client: the old one goes.
        QFile::remove(destinationFile);
        TLOG(1000) << "File" << destinationFile << "has been removed";
    }
    Q_EMIT sigFinished();
}
