#include "voicemailview.h"

#include "telvix.h"

#include <QDesktopServices>
#include <QDir>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QTableWidget>
#include <QUrl>
#include <QVBoxLayout>

VoicemailView::VoicemailView(Telvix* client, const QString& folder, QWidget* parent)
    : QWidget(parent)
    , m_client(client)
    , m_folder(folder)
    , m_table(new QTableWidget(0, 3))
    , m_download(new QPushButton(tr("Download")))
    , m_open(new QPushButton(tr("Play")))
{
    m_table->setObjectName(QStringLiteral("voicemailView"));
    m_table->setHorizontalHeaderLabels({tr("Received"), tr("From"), tr("File")});
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    m_download->setObjectName(QStringLiteral("downloadVoicemailButton"));
    m_open->setObjectName(QStringLiteral("playVoicemailButton"));
    connect(m_table, &QTableWidget::itemSelectionChanged, this, &VoicemailView::updateActions);

    connect(m_download, &QPushButton::clicked, this, [this] {
        const QString id = selectedId();
        QDir().mkpath(m_folder);
        // The library asks for an access token, fetches the GSM audio on a
        // connection of its own and saves "<uuid>.wav" as PCM. A failure
        // raises nothing: the button just comes back.
        for (const VoicemailMessage& m : qAsConst(m_messages)) {
            if (m.id == id)
                m_client->downloadVoicemailMessage(m.id, m.messageUuid, m_folder);
        }
        m_download->setEnabled(false);
    });
    connect(m_open, &QPushButton::clicked, this,
            [this] { QDesktopServices::openUrl(QUrl::fromLocalFile(m_files.value(selectedId()))); });

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_download);
    buttons->addWidget(m_open);
    buttons->addStretch();
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addLayout(buttons);
    updateActions();

    // Queued to the GUI thread, as every connection with `this` as context.
    connect(client, &Telvix::loggedToServer, this, [client] { client->getVoicemail(TELVIX::VmMsgFlagAll); });
    // The counters change when a message arrives or is read: ask for the list again.
    connect(client, &Telvix::sigMailboxStatusChanged, this,
            [client] { client->getVoicemail(TELVIX::VmMsgFlagAll); });
    connect(client, &Telvix::sigVoicemailMsgList, this, &VoicemailView::showMessages);
    connect(client, &Telvix::sigVoicemailDownloadCompleted, this,
            [this](const QString& id, const QString&, const QString& file) {
                m_files.insert(id, file);
                showMessages(m_messages);
            });
}

void VoicemailView::showMessages(const QList<VoicemailMessage>& messages)
{
    const QString selected = selectedId();
    m_messages = messages;
    m_table->setRowCount(messages.size());
    for (int row = 0; row < messages.size(); ++row) {
        const VoicemailMessage& m = messages.at(row);
        const QString from = m.callerName.isEmpty()
            ? m.callerNumber
            : m.callerName + QStringLiteral(" (") + m.callerNumber + QLatin1Char(')');
        const QStringList cells {QLocale().toString(m.date, QLocale::ShortFormat)
                                     + (m.isNew ? tr(" - new") : QString()),
                                 from, QDir::toNativeSeparators(m_files.value(m.id))};
        for (int column = 0; column < cells.size(); ++column) {
            auto* item = new QTableWidgetItem(cells.at(column));
            item->setData(Qt::UserRole, m.id);
            m_table->setItem(row, column, item);
        }
        if (m.id == selected)
            m_table->selectRow(row);
    }
    updateActions();
}

QString VoicemailView::selectedId() const
{
    const QList<QTableWidgetItem*> items = m_table->selectedItems();
    return items.isEmpty() ? QString() : items.first()->data(Qt::UserRole).toString();
}

void VoicemailView::updateActions()
{
    const QString id = selectedId();
    m_download->setEnabled(!id.isEmpty());
    m_open->setEnabled(m_files.contains(id));
}
