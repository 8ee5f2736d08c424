#include "xmppaccount.h"

#include <QPointer>
#include <QTest>
#include <QThread>

XmppAccount::XmppAccount(const QString& logDir)
    : client(XmppClient::getNewInstance(logDir))
{
    connect(client, &XmppClient::sigConnected, this, [this]() { ++connected; });
    connect(client, &XmppClient::sigHistoryEnabled, this, [this](bool on) { historyEnabled.append(on); });
    connect(client, &XmppClient::sigContactPresenceChanged, this,
            [this](const QString& jid, TELVIX::ChatPresence presence, const QString&) {
                onlineContacts.removeAll(jid);
                if (presence != TELVIX::ChatPresenceOffline)
                    onlineContacts.append(jid);
            });
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

std::unique_ptr<XmppAccount> XmppAccount::online(const ProsodyServer& server, const QString& logDir,
                                                 const QString& user, const QString& resource)
{
    auto account = std::make_unique<XmppAccount>(logDir);
    account->client->connectToServer(server.jid(user), QStringLiteral("secret"), QStringLiteral("127.0.0.1"),
                                     server.port(), resource);
    // The features answer comes after the session is fully set up.
    if (!QTest::qWaitFor([&]() { return !account->historyEnabled.isEmpty(); }, 10000))
        return nullptr;
    return account;
}
