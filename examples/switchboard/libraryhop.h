#pragma once

#include "telvix.h"

#include <QMetaObject>

#include <utility>

/// Runs `call` on the library's thread.
///
/// Most Telvix methods hop onto that thread by themselves and may be called
/// from the GUI. A few write to the server from whatever thread calls them:
/// the desk-phone commands (phoneCommand...) and the requests that telvix.h
/// marks "Direct". Those go through here: invokeMethod() with a functor
/// queues it to the thread `client` lives on, which after init() is the
/// library's own. The lambda runs there later; capture values, not
/// references to GUI state.
template <typename Call> void onLibraryThread(Telvix* client, Call call)
{
    QMetaObject::invokeMethod(client, std::move(call), Qt::QueuedConnection);
}
