#pragma once

#include "directorymessages.h"
#include "phonebook.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QList>
#include <QMap>
#include <QVector>

/// The colleagues: the extension book of the contact book, with each line's
/// status. A status update touches one row, so the view stays still while
/// lamps change.
class ExtensionModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { NameColumn, NumberColumn, LineColumn, ColumnCount };
    enum Role { ExtenRole = Qt::UserRole, CanChatRole };

    using QAbstractTableModel::QAbstractTableModel;

    /// Keeps the book of type PHONEBOOK::PB_EXTEN; the others are not colleagues.
    void setBooks(const QList<PhoneBook>& books);
    void setStatus(const BuddyStatus& status);
    void setStatusMap(const QMap<QString, BuddyStatus>& statusMap);
    /// Whether a session keeps the status current. Off, every line shows
    /// "unknown" and later updates are dropped: after a disconnection the
    /// library may still republish the status it knew.
    void setLive(bool live);
    QString nameOf(const QString& exten) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    struct Colleague
    {
        QString name;
        QString exten;
        BuddyStatus status;
    };

    QVector<Colleague> m_rows;
    QHash<QString, int> m_rowOfExten;
    /// Status that came before its extension did.
    QMap<QString, BuddyStatus> m_pending;
    bool m_live = false;
};
