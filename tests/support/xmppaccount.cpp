#include "xmppaccount.h"

#include <QMetaEnum>
#include <QPointer>
#include <QTest>
#include <QThread>

XmppAccount::XmppAccount(const QString& logDir)
    : client(XmppClient::getNewInstance(logDir))
{
    connect(client, &XmppClient::sigConnected, this, [this]() { ++connected; });
    connect(client, &XmppClient::sigDisconnected, this, [this](const QString& r) { reasons.append(r); });
    connect(client, &XmppClient::sigHistoryEnabled, this, [this](bool on) { historyEnabled.append(on); });
    connect(client, &XmppClient::sigContactPresenceChanged, this,
            [this](const QString& jid, TELVIX::ChatPresence presence, const QString& status) {
                presences.append(text(jid, presence, status));
                onlineContacts.removeAll(jid);
                if (presence != TELVIX::ChatPresenceOffline)
                    onlineContacts.append(jid);
            });
    connect(client, &XmppClient::sigClientPresenceUpdate, this,
            [this](TELVIX::ChatPresence p, const QString& s) { ownPresences.append(text(QString(), p, s)); });
    connect(client, &XmppClient::sigContactPresenceMapUpdate, this,
            [this](const PresenceMap& map) { presenceMaps.append(map); });
    connect(client, &XmppClient::sigContactListUpdated, this,
            [this](const QMap<QString, QString>& roster) { rosters.append(roster); });
    connect(client, &XmppClient::sigIsComposing, this, [this](const QString& jid, const QString&, bool on) {
        composing.append(jid + (on ? QStringLiteral(" on") : QStringLiteral(" off")));
    });
    connect(client, &XmppClient::sigMessageDelivered, this,
            [this](const QString& j) { delivered.append(j); });
    connect(client, &XmppClient::sigMessageDisplayed, this,
            [this](const QString& j) { displayed.append(j); });
    connect(client, &XmppClient::sigFTRequest, this,
            [this](const QString& sid, const QString& chatId, const QString& name, const QString& mime) {
                offers.append({sid, chatId, name, mime});
            });
    connect(client, &XmppClient::sigFTStart, this, [this](const QString& sid) { started.append(sid); });
    connect(client, &XmppClient::sigFTSent, this, [this](const QString& sid) { sent.append(sid); });
    connect(client, &XmppClient::sigFTError, this, [this](const QString& sid) { errors.append(sid); });
    connect(client, &XmppClient::sigFTComplete, this, [this](const QString& sid, const QString& path) {
        completed.append({sid, path});
    });
    connect(client, &XmppClient::sigVCardComplete, this, [this](const QString& sid, const QByteArray& data) {
        vcards.append({sid, data});
    });
    connect(client, &XmppClient::sigFTProgress, this,
            [this](const QString&, float p) { progress.append(p); });
    connect(client, &XmppClient::sigHistoryComplete, this,
            [this](const QList<ChatMessage>& list) { histories.append(list); });
    connect(client, &XmppClient::sigMessageReceived, this, [this](const ChatMessage& m) {
        if (!m.body.isEmpty())
            messages.append(m);
    });
}

XmppAccount::~XmppAccount()
{
    QPointer<QThread> thread = client->thread();
    client->deleteLater();
    QTRY_VERIFY_WITH_TIMEOUT(thread.isNull(), 10000);
}

void XmppAccount::connectTo(const ProsodyServer& server, const QString& user, const QString& resource,
                            const QString& password)
{
    client->connectToServer(server.jid(user), password, QStringLiteral("127.0.0.1"), server.port(), resource);
}

std::unique_ptr<XmppAccount> XmppAccount::online(const ProsodyServer& server, const QString& logDir,
                                                 const QString& user, const QString& resource)
{
    auto account = std::make_unique<XmppAccount>(logDir);
    account->connectTo(server, user, resource);
    // The features answer comes after the session is fully set up.
    if (!QTest::qWaitFor([&]() { return !account->historyEnabled.isEmpty(); }, 10000))
        return nullptr;
    return account;
}

QString XmppAccount::text(const ChatMessage& m)
{
    static const QStringList directions {QStringLiteral("received"), QStringLiteral("sent")};
    return directions.value(m.direction, QString::number(m.direction)) + QLatin1Char(' ') + m.chatId
        + QStringLiteral(": ") + m.body;
}

QString XmppAccount::text(const QString& jid, TELVIX::ChatPresence presence, const QString& status)
{
    const QString name = QLatin1String(QMetaEnum::fromType<TELVIX::ChatPresence>().valueToKey(presence));
    return QStringList {jid, name.mid(int(strlen("ChatPresence"))), status}.join(QLatin1Char(' ')).trimmed();
}
