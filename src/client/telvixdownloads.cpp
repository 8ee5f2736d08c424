// Downloads: voicemail audio and the rebranding package, each over a side
// connection of its own that waits for an access token of the session.
#include "rebrandingdownloader.h"
#include "telvix_p.h"
#include "voicemaildownloader.h"

bool Telvix::downloadVoicemailMessage(const QString& id, const QString& uuid, const QString& folder)
{
    TELVIX_QUEUED(d->downloadVoicemailMessage(id, uuid, folder));
}

bool Telvix::downloadRebrandingPackage(const QString& lastMd5, const QString& folder)
{
    TELVIX_QUEUED(d->downloadRebrandingPackage(lastMd5, folder));
}

bool TelvixPrivate::downloadVoicemailMessage(const QString& id, const QString& uuid, const QString& folder)
{
    Q_Q(Telvix);
    TLOG(1000) << "Start voicemail message download procedure";
    qDebug() << Q_FUNC_INFO << "Start voicemail message download procedure";
    auto* downloader = new VoicemailDownloader(clientApiVersion, logger, q);
    downloader->messageId = id;
    downloader->messageUuid = uuid;
    downloader->destinationFolder = folder;
    // Connected ahead of the clean-up, so that the application hears of the
    // file before the downloader goes.
    QObject::connect(downloader, &SarnetDownloader::sigFinished, q,
                     [this, downloader] { onVoicemailDownloadCompleted(downloader); });
    queueDownloader(downloader);
    return true;
}

bool TelvixPrivate::downloadRebrandingPackage(const QString& lastMd5, const QString& folder)
{
    Q_Q(Telvix);
    TLOG(1000) << "Start rebranding package download procedure";
    auto* downloader = new RebrandingDownloader(clientApiVersion, logger, q);
    downloader->lastMd5 = lastMd5;
    downloader->destinationFolder = folder;
    QObject::connect(downloader, &SarnetDownloader::sigFinished, q,
                     [this, downloader] { onRebrandingDownloadCompleted(downloader); });
    queueDownloader(downloader);
    return true;
}

void TelvixPrivate::queueDownloader(SarnetDownloader* downloader)
{
    Q_Q(Telvix);
    // However a download ends, the downloader goes; a failure reaches the
    // application only as the absence of the completion signal.
    const auto destroy = [this, downloader] { destroyDownloader(downloader); };
    QObject::connect(downloader, &SarnetDownloader::sigFinished, q, destroy);
    QObject::connect(downloader, &SarnetDownloader::sigError, q, destroy);
    QObject::connect(downloader, &SarnetDownloader::sigDisconnected, q, destroy);
    downloaders.append(downloader);
    requestAccessToken_internal();
}

void TelvixPrivate::onVoicemailDownloadCompleted(SarnetDownloader* downloader)
{
    const auto* voicemail = qobject_cast<VoicemailDownloader*>(downloader);
    if (voicemail) {
        Q_EMIT q_ptr->sigVoicemailDownloadCompleted(voicemail->messageId, voicemail->messageUuid,
                                                    voicemail->destinationFile);
    }
}

void TelvixPrivate::onRebrandingDownloadCompleted(SarnetDownloader* downloader)
{
    const auto* rebranding = qobject_cast<RebrandingDownloader*>(downloader);
    if (rebranding)
        Q_EMIT q_ptr->sigRebrandingDownloadCompleted(rebranding->destinationFile);
}

void TelvixPrivate::destroyDownloader(SarnetDownloader* downloader)
{
    if (!downloader)
        return;
    QObject::disconnect(downloader, nullptr, nullptr, nullptr);
    runningDownloaders.removeOne(downloader);
    downloader->close();
    downloader->deleteLater();
}
