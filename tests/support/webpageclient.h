#pragma once

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>
#include <QWebSocket>

/// A web page on the bridge as a browser has it: a WebSocket with an Origin,
/// collecting every JSON message it receives, events and answers apart.
class WebPageClient : public QObject
{
public:
    explicit WebPageClient(const QString& origin, QObject* parent = nullptr);

    /// Opens the connection and waits for the handshake.
    bool open(quint16 port);
    /// open(), then pairs with `token` and waits for the answer.
    bool openPaired(quint16 port, const QString& token);

    /// Sends one command object, or raw text.
    void send(const QJsonObject& command);
    void sendText(const QString& text);
    /// Waits for the answer whose "id" is `id` and returns it; empty on timeout.
    QJsonObject waitForAnswer(const QJsonValue& id, int timeoutMs = 5000);
    /// Waits until `count` events have arrived.
    bool waitForEvents(int count, int timeoutMs = 5000) const;
    /// Waits until the bridge has closed the connection.
    bool waitForClose(int timeoutMs = 5000) const;

    QWebSocket& socket() { return m_socket; }
    QList<QJsonObject> events;
    QList<QJsonObject> answers;
    bool closed = false;
    int closeCode = 0;

private:
    QWebSocket m_socket;
};
