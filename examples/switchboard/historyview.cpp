#include "historyview.h"

#include "telvix.h"

#include <QHeaderView>

HistoryView::HistoryView(Telvix* client, QWidget* parent)
    : QTableWidget(0, 5, parent)
{
    setObjectName(QStringLiteral("historyView"));
    setHorizontalHeaderLabels({tr("Started"), tr("Caller"), tr("Callee"), tr("Outcome"), tr("Seconds")});
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    verticalHeader()->hide();
    horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    horizontalHeader()->setSectionResizeMode(1, QHeaderView::Stretch);
    horizontalHeader()->setSectionResizeMode(2, QHeaderView::Stretch);

    // sigCdrChanged carries the whole stored history (at login, from the
    // data directory given to the Telvix constructor) or only the entries
    // just received: merging by entry uid serves both.
    connect(client, &Telvix::sigCdrChanged, this, &HistoryView::merge);
    // What happened since the last stored entry; the answer is persisted by
    // the library and raised as sigCdrChanged.
    connect(client, &Telvix::loggedToServer, this, [client] { client->getCDR(false); });
}

void HistoryView::merge(const Cdr& cdr)
{
    for (const CdrEntry& e : cdr)
        m_entries.insert(e.startTime + QLatin1Char('|') + e.entryUid, e);
    setRowCount(m_entries.size());
    int row = m_entries.size();
    for (const CdrEntry& e : qAsConst(m_entries)) {
        --row;
        const QStringList cells {
            e.startTime,
            e.callerName.isEmpty() ? e.caller
                                   : e.callerName + QStringLiteral(" (") + e.caller + QLatin1Char(')'),
            e.calleeName.isEmpty() ? e.callee
                                   : e.calleeName + QStringLiteral(" (") + e.callee + QLatin1Char(')'),
            e.statusText, QString::number(e.duration)};
        for (int column = 0; column < cells.size(); ++column)
            setItem(row, column, new QTableWidgetItem(cells.at(column)));
    }
}
