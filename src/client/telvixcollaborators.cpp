// The session's optional collaborators: local store, chat client, local
// server and downloaders. Each may be absent; the session runs without them.
#include "sarnetdownloader.h"
#include "telvix_p.h"

#include "cdrmessages.h"
#include "persistencesqlite.h"
#include "telvix_const.h"

#include <QDateTime>
#include <QDebug>

void TelvixPrivate::openLocalStore()
{
    Q_Q(Telvix);
    // One file serves every user of this data directory; the store reads and
    // writes the rows of the logged-in extension only.
    closeLocalStore();
    persistence = new PersistenceSqlite(dataDir + QStringLiteral("/cdr.db"), exten);
    // The application can show the known history before the server answers.
    Q_EMIT q->sigCdrChanged(persistence->cdr());

    // A new login starts from an empty contact book.
    resetContactsBook();
}

void TelvixPrivate::closeLocalStore()
{
    // Deleting the store closes it, which writes the scrambled file.
    delete persistence;
    persistence = nullptr;
}

bool TelvixPrivate::getStoredCdr(bool cached, const QString& lastEntry)
{
    Q_Q(Telvix);
    // Without a local store a desktop client keeps no history of its own.
    if (!persistence)
        return true;
    if (cached) {
        Q_EMIT q->sigCdrChanged(persistence->cdr());
        return true;
    }
    // Only what is newer than the stored history, within the month the
    // store keeps.
    const QDateTime end = QDateTime::currentDateTime();
    const QDateTime start = end.addMonths(-1);
    GetCdrReqMsg request;
    request.startDate = start.toString(TELVIX::IsoDateNoTz);
    request.endDate = end.toString(TELVIX::IsoDateNoTz);
    request.lastEntryUid = lastEntry.isEmpty() ? persistence->lastCdrEntryUid() : lastEntry;
    TLOG(1000) << "Getting CDR from " << request.startDate << " to " << request.endDate
               << "starting from entry " << request.lastEntryUid;
    if (socket)
        send(request);
    return true;
}

bool TelvixPrivate::persistCdr(Cdr& entries)
{
    if (!persistence)
        return false;
    TLOG(10000) << "persisting cdr";
    // A false result only means that some entries were filtered out (older
    // or of another extension); the stored history is what goes out.
    persistence->appendCdr(entries);
    entries = persistence->cdr();
    return true;
}

void TelvixPrivate::startDownloader(SarnetDownloader* downloader, const QString& token)
{
    // A download connects to the server of the session, which is where the
    // token is valid.
    downloader->serverAddress = serverAddress;
    downloader->serverPort = serverPort;
    downloader->token = token;
    runningDownloaders.append(downloader);
    downloader->start();
}

void TelvixPrivate::clearSessionIndexes()
{
    clearCallIndexes();
    clearPeerIndexes();
}

void TelvixPrivate::shutdownDownloads()
{
    // Downloaders still waiting for a token, then those under way; the null
    // entries are the application's own token requests.
    const QList<SarnetDownloader*> all = downloaders + runningDownloaders;
    for (SarnetDownloader* downloader : all) {
        if (!downloader)
            continue;
        QObject::disconnect(downloader, nullptr, nullptr, nullptr);
        downloader->abort();
        downloader->deleteLater();
    }
    downloaders.clear();
    runningDownloaders.clear();
}

void TelvixPrivate::shutdownCollaborators()
{
    shutdownLocalServer();
    closeChat();
    // At once rather than later: the store must write its file while the
    // library's thread still runs.
    if (persistence) {
        qDebug() << Q_FUNC_INFO << "Delete persistence manager";
        delete persistence;
        persistence = nullptr;
    }
}
