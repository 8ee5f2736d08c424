#include "webpageclient.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>

WebPageClient::WebPageClient(const QString& origin, QObject* parent)
    : QObject(parent)
    , m_socket(origin)
{
    connect(&m_socket, &QWebSocket::textMessageReceived, this, [this](const QString& text) {
        const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
        if (message.contains(QLatin1String("event")))
            events.append(message);
        else
            answers.append(message);
    });
    connect(&m_socket, &QWebSocket::disconnected, this, [this] {
        closed = true;
        closeCode = m_socket.closeCode();
    });
}

bool WebPageClient::open(quint16 port)
{
    QSignalSpy connected(&m_socket, &QWebSocket::connected);
    m_socket.open(QUrl(QStringLiteral("ws://127.0.0.1:%1/").arg(port)));
    return connected.wait(5000);
}

bool WebPageClient::openPaired(quint16 port, const QString& token)
{
    if (!open(port))
        return false;
    send({{QStringLiteral("id"), QStringLiteral("pair")},
          {QStringLiteral("command"), QStringLiteral("pair")},
          {QStringLiteral("token"), token}});
    return waitForAnswer(QStringLiteral("pair")).value(QLatin1String("result")).toBool();
}

void WebPageClient::send(const QJsonObject& command)
{
    sendText(QString::fromUtf8(QJsonDocument(command).toJson(QJsonDocument::Compact)));
}

void WebPageClient::sendText(const QString& text)
{
    m_socket.sendTextMessage(text);
}

QJsonObject WebPageClient::waitForAnswer(const QJsonValue& id, int timeoutMs)
{
    QJsonObject found;
    (void)QTest::qWaitFor(
        [&] {
            for (int i = 0; i < answers.size(); ++i) {
                if (answers.at(i).value(QLatin1String("id")) == id) {
                    found = answers.takeAt(i);
                    return true;
                }
            }
            return false;
        },
        timeoutMs);
    return found;
}

bool WebPageClient::waitForEvents(int count, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return events.size() >= count; }, timeoutMs);
}

bool WebPageClient::waitForClose(int timeoutMs) const
{
    return QTest::qWaitFor([&] { return closed; }, timeoutMs);
}
