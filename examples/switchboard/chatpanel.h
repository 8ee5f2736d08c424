#pragma once

#include "chatmessage.h"

#include <QHash>
#include <QTabWidget>

class QTextBrowser;
class Telvix;

/// One conversation per colleague, when the server offers chat. The library
/// names colleagues by extension; their chat ids stay inside it.
class ChatPanel : public QTabWidget
{
    Q_OBJECT
public:
    ChatPanel(Telvix* client, QWidget* parent = nullptr);

    /// Shows (making it if needed) the conversation with `exten`.
    void openChat(const QString& exten, const QString& name);

Q_SIGNALS:
    /// The chat link went up (true) or down.
    void availabilityChanged(bool available);

private:
    QTextBrowser* page(const QString& exten, const QString& name);
    void append(const ChatMessage& message);

    Telvix* m_client;
    QHash<QString, QTextBrowser*> m_pages;
};
