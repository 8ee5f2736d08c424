#pragma once

#include "prosodyserver.h"
#include "xmppengine.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

/// One chat client on its own thread, logged in to a ProsodyServer; what it
/// signals about transfers and history is collected on the test's thread.
class XmppAccount : public QObject
{
public:
    explicit XmppAccount(const QString& logDir);
    ~XmppAccount() override;

    /// Connects as `user` with password "secret" and waits for the server's
    /// features; null when that fails.
    static std::unique_ptr<XmppAccount> online(const ProsodyServer& server, const QString& logDir,
                                               const QString& user,
                                               const QString& resource = QStringLiteral("desk"));

    struct Offer
    {
        QString sid, chatId, fileName, mime;
    };

    XmppClient* client;
    int connected = 0;
    QList<bool> historyEnabled;
    QStringList onlineContacts;
    QList<Offer> offers;
    QStringList started, sent, errors;
    /// Session id and path of each completed file.
    QList<QPair<QString, QString>> completed;
    QList<QPair<QString, QByteArray>> vcards;
    QList<float> progress;
    QList<QList<ChatMessage>> histories;
    QList<ChatMessage> messages;
};
