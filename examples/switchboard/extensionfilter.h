#pragma once

#include <QSortFilterProxyModel>

/// The extension panel's search over the colleagues: a case-insensitive
/// piece of any column, sorted by name. The proxy filters in place, copying
/// no row.
class ExtensionFilter : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    explicit ExtensionFilter(QAbstractItemModel* source, QObject* parent = nullptr);
};
