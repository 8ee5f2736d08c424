#include "extensionmodel.h"

#include <QColor>

namespace {

struct Lamp
{
    const char* text;
    QColor colour;
};

Lamp lampOf(TELVIX::BlfStatus status)
{
    switch (status) {
    case TELVIX::BlfIdle:
        return {"free", QColor(0x2e, 0xa0, 0x43)};
    case TELVIX::BlfRinging:
    case TELVIX::BlfInUseRinging:
        return {"ringing", QColor(0xf0, 0xa0, 0x20)};
    case TELVIX::BlfInUse:
    case TELVIX::BlfBusy:
        return {"on the phone", QColor(0xd0, 0x30, 0x30)};
    case TELVIX::BlfOnHold:
    case TELVIX::BlfInUseOnHold:
        return {"on hold", QColor(0x30, 0x70, 0xd0)};
    default:
        return {"unknown", QColor(Qt::gray)};
    }
}

} // namespace

void ExtensionModel::setBooks(const QList<PhoneBook>& books)
{
    beginResetModel();
    m_rows.clear();
    m_rowOfExten.clear();
    for (const PhoneBook& book : books) {
        if (book.type != PHONEBOOK::PB_EXTEN)
            continue;
        m_rows.reserve(book.entries.size());
        for (const PhoneBookEntry& entry : book.entries) {
            Colleague c {entry.displayName, entry.extenNumber, m_pending.take(entry.extenNumber)};
            m_rowOfExten.insert(c.exten, m_rows.size());
            m_rows.append(c);
        }
    }
    endResetModel();
}

void ExtensionModel::setStatus(const BuddyStatus& status)
{
    if (!m_live)
        return;
    const int row = m_rowOfExten.value(status.exten, -1);
    if (row < 0) {
        m_pending.insert(status.exten, status);
        return;
    }
    m_rows[row].status = status;
    Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
}

void ExtensionModel::setStatusMap(const QMap<QString, BuddyStatus>& statusMap)
{
    for (const BuddyStatus& status : statusMap)
        setStatus(status);
}

void ExtensionModel::setLive(bool live)
{
    m_live = live;
    if (live)
        return;
    m_pending.clear();
    for (Colleague& c : m_rows)
        c.status = BuddyStatus();
    if (!m_rows.isEmpty())
        Q_EMIT dataChanged(index(0, 0), index(m_rows.size() - 1, ColumnCount - 1));
}

QString ExtensionModel::nameOf(const QString& exten) const
{
    const int row = m_rowOfExten.value(exten, -1);
    return row < 0 ? QString() : m_rows.at(row).name;
}

int ExtensionModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_rows.size();
}

int ExtensionModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant ExtensionModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return QVariant();
    const Colleague& c = m_rows.at(index.row());
    if (role == ExtenRole)
        return c.exten;
    if (role == CanChatRole) // presence -1: the colleague has no chat account
        return c.status.presence != TELVIX::ChatPresenceInvalid;
    const Lamp lamp = lampOf(c.status.blfStatus);
    switch (index.column()) {
    case NameColumn:
        return role == Qt::DisplayRole ? QVariant(c.name) : QVariant();
    case NumberColumn:
        return role == Qt::DisplayRole ? QVariant(c.exten) : QVariant();
    case LineColumn:
        if (role == Qt::DisplayRole)
            return tr(lamp.text);
        if (role == Qt::DecorationRole)
            return lamp.colour;
        return QVariant();
    default:
        return QVariant();
    }
}

QVariant ExtensionModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    static const char* const titles[] = {"Name", "Number", "Line"};
    return section < ColumnCount ? tr(titles[section]) : QVariant();
}
