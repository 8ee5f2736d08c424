#pragma once

#include "chatmessage.h"
#include "telvix_export.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <gloox/iqhandler.h>
#include <gloox/stanzaextension.h>

#include <memory>
#include <string>

class Logger;
class QTimer;

namespace gloox {
class Forward;
class Tag;
} // namespace gloox

/// One archived message, as the archive forwards it in a message stanza.
class TELVIX_EXPORT HistoryResult : public gloox::StanzaExtension
{
public:
    static constexpr int ExtensionType = 51;

    explicit HistoryResult(const gloox::Tag* tag = nullptr);

    const std::string& filterString() const override;
    gloox::StanzaExtension* newInstance(const gloox::Tag* tag) const override;
    gloox::Tag* tag() const override;
    gloox::StanzaExtension* clone() const override;

    /// Archive id of the message.
    std::string id;
    /// The forwarded message with its delay; clones share it.
    std::shared_ptr<gloox::Forward> forward;
};

/// The closing element of an archive answer, with its result-set counters.
class TELVIX_EXPORT HistoryEnd : public gloox::StanzaExtension
{
public:
    static constexpr int ExtensionType = 52;

    explicit HistoryEnd(const gloox::Tag* tag = nullptr);

    const std::string& filterString() const override;
    gloox::StanzaExtension* newInstance(const gloox::Tag* tag) const override;
    gloox::Tag* tag() const override;
    gloox::StanzaExtension* clone() const override;

    long first = 0;
    long last = 0;
    long count = 0;
};

/// Asks the server's message archive for the conversations since a point in
/// time, one query at a time, and delivers what came once the server closes
/// the answer. Lives on the chat client's thread.
class TELVIX_EXPORT XmppHistory : public QObject, public gloox::IqHandler
{
    Q_OBJECT

public:
    XmppHistory(const QString& logDir, QObject* parent = nullptr);
    ~XmppHistory() override;

    /// Starts a query; an invalid `since` asks for the whole archive. A query
    /// while another is under way is dropped.
    void sendRequest(QDateTime since);
    /// One archived message, by its archive id; a repeated id replaces.
    void addMessage(QString archiveId, ChatMessage message);

    bool handleIq(const gloox::IQ& iq) override;
    void handleIqID(const gloox::IQ& iq, int context) override;

Q_SIGNALS:
    /// A stanza for the client to send; the receiver takes ownership.
    void sigSendTag(gloox::Tag* tag);
    void sigHistoryComplete(QList<ChatMessage> messages);

private:
    void onTimeout();

    bool m_pending = false;
    QString m_requestId;
    QTimer* m_timeoutTimer = nullptr;
    Logger* m_log = nullptr;
    QMap<QString, ChatMessage> m_messages;
};
