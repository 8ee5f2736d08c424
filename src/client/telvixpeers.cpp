// Peer data: the user's identities, the SIP accounts of every extension and
// the live status of the extensions.
#include "telvix_p.h"

#include "directorymessages.h"

void TelvixPrivate::rowIdentities(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg = parseRow<IdentitiesRespMsg>(xml, ctx, logger, Q_FUNC_INFO,
                                                 {1000, "Invalid Identity list received"});
    if (!msg.success)
        return;
    // The user's accounts are rebuilt from the new list alone.
    extenToAccounts.remove(exten);
    for (const IdentityEntry& old : qAsConst(identities))
        accountToExten.remove(old.name);
    for (const IdentityEntry& entry : msg.identities) {
        accountToExten.insert(entry.name, exten);
        extenToAccounts[exten].append(entry.name);
    }
    identities = msg.identities;
    Q_EMIT q->sigIdentitiesChanged(identities);
}

void TelvixPrivate::rowBuddyIdentities(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg = parseRow<BuddyIdentitiesRespMsg>(xml, ctx, logger, Q_FUNC_INFO,
                                                      {1000, "Invalid BuddyIdentity list received"});
    if (!msg.success)
        return;
    accountToExten.clear();
    extenToAccounts.clear();
    for (const BuddyIdentityEntry& peer : msg.buddyIdentities) {
        if (peer.exten.isEmpty() || peer.type != QLatin1String("SIP"))
            continue;
        accountToExten.insert(peer.name, peer.exten);
        extenToAccounts[peer.exten].append(peer.name);
    }
    for (auto it = extenToAccounts.cbegin(); it != extenToAccounts.cend(); ++it) {
        BuddyStatus& status = extenStatus[it.key()];
        if (status.exten.isEmpty())
            status.exten = it.key();
        status.contacts = it.value();
    }
    Q_EMIT q->sigExtenStatusMapChanged(extenStatus);
}

void TelvixPrivate::rowIdentityUpdate(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg
        = parseRow<IdentitiesRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {1000, "Invalid Identity received"});
    if (!msg.success)
        return;
    if (msg.identities.size() > 1)
        TLOG(100) << "Got Identity message containing more entries!";
    // Only identities the user already has are updated; others are ignored.
    for (const IdentityEntry& update : msg.identities) {
        for (IdentityEntry& known : identities) {
            if (known.name == update.name)
                known = update;
        }
    }
    Q_EMIT q->sigIdentitiesChanged(identities);
}

void TelvixPrivate::rowExtenStatusList(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    auto msg = parseRow<ExtenStatusRespMsg>(xml, ctx, logger, Q_FUNC_INFO,
                                            {1000, "Invalid exten status received"});
    if (!msg.success)
        return;
    for (auto it = msg.statusMap.begin(); it != msg.statusMap.end(); ++it) {
        const auto known = extenStatus.constFind(it.key());
        if (known != extenStatus.cend())
            it->contacts = known->contacts;
    }
    refreshChatPresence();
    extenStatus = msg.statusMap;
    Q_EMIT q->sigExtenStatusMapChanged(extenStatus);
}

void TelvixPrivate::rowExtenStatus(const QString& xml, DispatchContext& ctx)
{
    Q_Q(Telvix);
    const auto msg = parseRow<ExtenStatusRespMsg>(xml, ctx, logger, Q_FUNC_INFO,
                                                  {1000, "Invalid exten status received"});
    if (!msg.success)
        return;
    if (msg.statusMap.size() > 1)
        TLOG(100) << "Got ExtenStatus message containing more entries!";
    // The wire fields change; chat presence and the accounts stay.
    for (BuddyStatus status : msg.statusMap) {
        const BuddyStatus known = extenStatus.value(status.exten);
        status.presence = known.presence;
        status.presenceText = known.presenceText;
        status.contacts = known.contacts;
        extenStatus.insert(status.exten, status);
        Q_EMIT q->sigExtenStatusChanged(status);
    }
}

void TelvixPrivate::clearPeerIndexes()
{
    accountToExten.clear();
    extenToAccounts.clear();
    chatIdToExten.clear();
    extenToChatId.clear();
}
