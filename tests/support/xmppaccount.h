#pragma once

#include "prosodyserver.h"
#include "xmppengine.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

/// One chat client on its own thread; what it signals is collected on the
/// test's thread, presences and messages as short texts that read well in a
/// comparison ("bob@default Away lunch", "sent bob@default: hi").
class XmppAccount : public QObject
{
public:
    explicit XmppAccount(const QString& logDir);
    ~XmppAccount() override;

    void connectTo(const ProsodyServer& server, const QString& user, const QString& resource,
                   const QString& password = QStringLiteral("secret"));
    /// Connects as `user` with password "secret" and waits for the server's
    /// features; null when that fails.
    static std::unique_ptr<XmppAccount> online(const ProsodyServer& server, const QString& logDir,
                                               const QString& user,
                                               const QString& resource = QStringLiteral("desk"));

    static QString text(const ChatMessage& message);
    static QString text(const QString& jid, TELVIX::ChatPresence presence, const QString& status);

    struct Offer
    {
        QString sid, chatId, fileName, mime;
    };

    XmppClient* client;
    int connected = 0;
    QStringList reasons;
    QList<bool> historyEnabled;
    QStringList onlineContacts;
    QStringList presences, ownPresences, composing, delivered, displayed;
    QList<PresenceMap> presenceMaps;
    QList<QMap<QString, QString>> rosters;
    QList<Offer> offers;
    QStringList started, sent, errors;
    /// Session id and path of each completed file.
    QList<QPair<QString, QString>> completed;
    QList<QPair<QString, QByteArray>> vcards;
    QList<float> progress;
    QList<QList<ChatMessage>> histories;
    QList<ChatMessage> messages;
};
