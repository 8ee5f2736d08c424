// The session's optional collaborators: local store, chat client, local
// server and downloaders. Each may be absent; the session runs without them.
#include "sarnetdownloader.h"
#include "telvix_p.h"

void TelvixPrivate::openLocalStore()
{
    // The call-history store is not part of this build yet: desktop modes
    // run like the mobile ones, with history straight from the server.

    // A new login starts from an empty contact book.
    resetContactsBook();
}

void TelvixPrivate::closeLocalStore() { }

bool TelvixPrivate::getStoredCdr(bool cached, const QString& lastEntry)
{
    // Without a local store a desktop client keeps no history of its own.
    Q_UNUSED(cached)
    Q_UNUSED(lastEntry)
    return true;
}

void TelvixPrivate::startChatFromLogin(const LoginRespMsg& resp)
{
    ChatConfiguration config;
    config.chatId = resp.chatId;
    config.chatPort = resp.chatPort;
    onChatConfigReceived(config);
}

void TelvixPrivate::onChatConfigReceived(const ChatConfiguration& config)
{
    TLOG(1000) << "Received a new ChatConfiguration";
    if (config == chatConfig) {
        TLOG(1000) << "Received ChatConfiguration is equal to current one: nothing to do";
        return;
    }
    if (config.chatId.isEmpty()) {
        TLOG(100) << "got an empty chatID, cannot enable chat!";
        return;
    }
    TLOG(1000) << "received chat info. chatID / chatPort:" << config.chatId << " / " << config.chatPort;
    // The chat client is not part of this build yet: the account is kept for
    // it, and the chat bit of the features stays clear.
    chatConfig = config;
}

void TelvixPrivate::refreshChatPresence()
{
    // Without a chat client there is no presence to ask for.
}

bool TelvixPrivate::persistCdr(Cdr& entries)
{
    // No local store in this build: history goes out as the server sent it.
    Q_UNUSED(entries)
    return false;
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

void TelvixPrivate::startChatAfterExtenList()
{
    // Chat starts once the colleagues' chat ids are known; the chat client
    // is not part of this build yet.
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
}
