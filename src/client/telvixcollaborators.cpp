// The session's optional collaborators: local store, chat client, local
// server and downloaders. Each may be absent; the session runs without them.
#include "telvix_p.h"

void TelvixPrivate::openLocalStore()
{
    // The call-history store is not part of this build yet: desktop modes
    // run like the mobile ones, with history straight from the server.
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
    Q_UNUSED(resp)
}

void TelvixPrivate::clearSessionIndexes() { }

void TelvixPrivate::shutdownDownloads() { }

void TelvixPrivate::shutdownCollaborators() { }
