#include "chatpanel.h"

#include "telvix.h"

#include <QLineEdit>
#include <QTextBrowser>
#include <QVBoxLayout>

ChatPanel::ChatPanel(Telvix* client, QWidget* parent)
    : QTabWidget(parent)
    , m_client(client)
{
    setObjectName(QStringLiteral("chatPanel"));
    setTabsClosable(true);
    connect(this, &QTabWidget::tabCloseRequested, this, [this](int index) {
        QWidget* w = widget(index);
        m_pages.remove(w->property("exten").toString());
        removeTab(index);
        w->deleteLater();
    });

    // All queued to the GUI thread. The chat client runs on a thread of its
    // own inside the library and retries by itself after a loss.
    connect(client, &Telvix::sigChatConnected, this, [this] { Q_EMIT availabilityChanged(true); });
    connect(client, &Telvix::sigChatDisconnected, this, [this] { Q_EMIT availabilityChanged(false); });
    connect(client, &Telvix::disconnectedFromServer, this, [this] { Q_EMIT availabilityChanged(false); });
    connect(client, &Telvix::sigChatMessage, this, &ChatPanel::append);
}

void ChatPanel::openChat(const QString& exten, const QString& name)
{
    setCurrentWidget(page(exten, name)->parentWidget());
}

QTextBrowser* ChatPanel::page(const QString& exten, const QString& name)
{
    if (QTextBrowser* existing = m_pages.value(exten))
        return existing;
    auto* holder = new QWidget;
    holder->setProperty("exten", exten);
    auto* log = new QTextBrowser;
    auto* input = new QLineEdit;
    input->setPlaceholderText(tr("Message to %1").arg(name.isEmpty() ? exten : name));
    auto* layout = new QVBoxLayout(holder);
    layout->addWidget(log);
    layout->addWidget(input);
    connect(input, &QLineEdit::returnPressed, this, [this, input, exten] {
        // Queued; the message comes back as sigChatMessage of type
        // Feedback, which is when it is shown.
        if (!input->text().isEmpty() && m_client->sendChatMessage(exten, input->text()))
            input->clear();
    });
    m_pages.insert(exten, log);
    addTab(holder, name.isEmpty() ? exten : name);
    return log;
}

void ChatPanel::append(const ChatMessage& message)
{
    if (message.exten.isEmpty()) // a chat id outside the extension list
        return;
    QTextBrowser* log = page(message.exten, QString());
    const bool mine = message.direction == ChatMessage::Sent;
    const QString who = mine ? tr("You") : tabText(indexOf(log->parentWidget()));
    log->append(QStringLiteral("<b>%1</b> %2: %3")
                    .arg(message.timestamp.toLocalTime().toString(QStringLiteral("hh:mm")),
                         who.toHtmlEscaped(), message.body.toHtmlEscaped()));
    if (!mine && currentWidget() == log->parentWidget())
        m_client->sendChatMessageDisplayed(message.exten);
}
