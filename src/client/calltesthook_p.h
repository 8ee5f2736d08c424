#pragma once

#include "callinfo.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

class Telvix;

// Read-only views of a client's call table for the library's own tests. Each
// call hops onto the library's thread and waits for the answer, so the
// client must be running.
namespace CallTableTestHook {

/// Every live call: uid to the sorted accounts of its legs.
QMap<QString, QStringList> accountsByUid(Telvix* client);
/// Copies of the legs of one call, sorted by account.
QList<CallInfo> legs(Telvix* client, const QString& uid);
/// Legs in the table, all calls together.
int legCount(Telvix* client);

} // namespace CallTableTestHook
