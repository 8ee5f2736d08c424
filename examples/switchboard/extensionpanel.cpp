#include "extensionpanel.h"

#include "extensionfilter.h"
#include "extensionmodel.h"
#include "telvix.h"

#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QTreeView>
#include <QVBoxLayout>

ExtensionPanel::ExtensionPanel(Telvix* client, QWidget* parent)
    : QWidget(parent)
    , m_model(new ExtensionModel(this))
    , m_filter(new ExtensionFilter(m_model, this))
    , m_search(new QLineEdit)
    , m_view(new QTreeView)
{
    m_search->setObjectName(QStringLiteral("extensionSearch"));
    m_search->setPlaceholderText(tr("Search by name or number"));
    m_search->setClearButtonEnabled(true);

    // A plain substring test over 10,000 rows takes a few milliseconds
    // (bench/bench_switchboard_filter), so it runs at every keystroke.
    connect(m_search, &QLineEdit::textChanged, m_filter, &QSortFilterProxyModel::setFilterFixedString);

    m_view->setObjectName(QStringLiteral("extensionView"));
    m_view->setModel(m_filter);
    m_view->setRootIsDecorated(false);
    // Uniform rows let the view lay out 10,000 rows without measuring each.
    m_view->setUniformRowHeights(true);
    m_view->setSortingEnabled(true);
    m_view->sortByColumn(ExtensionModel::NameColumn, Qt::AscendingOrder);
    m_view->header()->setStretchLastSection(false);
    m_view->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_view->header()->setSectionResizeMode(ExtensionModel::NameColumn, QHeaderView::Stretch);
    connect(m_view, &QTreeView::doubleClicked, this, [this](const QModelIndex& index) {
        if (index.data(ExtensionModel::CanChatRole).toBool())
            Q_EMIT chatRequested(index.data(ExtensionModel::ExtenRole).toString());
    });
    connect(m_view->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ExtensionPanel::selectionChanged);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_search);
    layout->addWidget(m_view);

    // Signals come from the library's thread; `this` as the context object
    // makes each connection queued, so the lambdas run on the GUI thread with
    // copies of the records.
    connect(client, &Telvix::loggedToServer, this, [this, client] {
        m_model->setLive(true);
        // The extension list arrives as the extension book of the contact
        // book (sigPhonebookChanged); the status map follows separately.
        client->getContactsList(false, TELVIX::PhonebookTypeExtensions);
        client->getExtenStatus();
    });
    connect(client, &Telvix::sigPhonebookChanged, this,
            [this](const QList<PhoneBook>& books) { m_model->setBooks(books); });
    connect(client, &Telvix::sigExtenStatusMapChanged, m_model, &ExtensionModel::setStatusMap);
    connect(client, &Telvix::sigExtenStatusChanged, m_model, &ExtensionModel::setStatus);
    connect(client, &Telvix::disconnectedFromServer, this, [this] { m_model->setLive(false); });
}

QString ExtensionPanel::selectedExten() const
{
    const QModelIndexList rows = m_view->selectionModel()->selectedRows();
    return rows.isEmpty() ? QString() : rows.first().data(ExtensionModel::ExtenRole).toString();
}

QString ExtensionPanel::nameOf(const QString& exten) const
{
    return m_model->nameOf(exten);
}
