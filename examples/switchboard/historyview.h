#pragma once

#include "cdrmessages.h"

#include <QMap>
#include <QTableWidget>

class Telvix;

/// The call history, newest first. The library publishes the history stored
/// in its data directory at each login, then the entries the server adds.
class HistoryView : public QTableWidget
{
    Q_OBJECT
public:
    explicit HistoryView(Telvix* client, QWidget* parent = nullptr);

private:
    void merge(const Cdr& cdr);

    /// By start time and entry uid: a newer entry sorts later.
    QMap<QString, CdrEntry> m_entries;
};
