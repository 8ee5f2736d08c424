#include "callsmodel.h"

namespace {

QString party(const QString& name, const QString& number)
{
    return name.isEmpty() || name == number ? number : QStringLiteral("%1 (%2)").arg(name, number);
}

} // namespace

CallsModel::CallsModel(QObject* parent)
    : QAbstractTableModel(parent)
{
    // Durations move once a second.
    m_ticker.setInterval(1000);
    connect(&m_ticker, &QTimer::timeout, this, [this] {
        if (!m_calls.isEmpty())
            Q_EMIT dataChanged(index(0, DurationColumn), index(m_calls.size() - 1, DurationColumn));
    });
    m_ticker.start();
}

int CallsModel::rowOf(const QString& uid) const
{
    for (int i = 0; i < m_calls.size(); ++i) {
        if (m_calls.at(i).uid == uid)
            return i;
    }
    return -1;
}

int CallsModel::rowOfChannel(const QString& channel) const
{
    for (int i = 0; i < m_calls.size(); ++i) {
        if (m_calls.at(i).channels.contains(channel))
            return i;
    }
    return -1;
}

// The row of the event's call, made on its first leg.
CallsModel::Call& CallsModel::callFor(const CallLegEvent& e)
{
    int row = rowOf(e.uid);
    if (row < 0) {
        row = m_calls.size();
        beginInsertRows(QModelIndex(), row, row);
        Call call;
        call.uid = e.uid;
        call.since = QDateTime::currentDateTime();
        m_calls.append(call);
        endInsertRows();
    }
    m_calls[row].channels.insert(e.localChannel);
    return m_calls[row];
}

void CallsModel::changed(int row)
{
    Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
    Q_EMIT actionsChanged();
}

void CallsModel::onIncoming(const IncomingCallEvent& e)
{
    Call& call = callFor(e);
    call.incoming = true;
    call.caller = party(e.remoteName, e.remoteNum);
    call.callee = e.calledNum;
    changed(rowOf(e.uid));
}

void CallsModel::onOutgoing(const OriginateCallEvent& e)
{
    Call& call = callFor(e);
    call.incoming = false;
    call.state = Call::Dialling;
    call.caller = m_ownNumber;
    call.callee = e.calledNum;
    changed(rowOf(e.uid));
}

void CallsModel::onAnswered(const AnsweredCallEvent& e)
{
    Call& call = callFor(e);
    if (call.state != Call::Talking) {
        call.state = Call::Talking;
        call.since = QDateTime::currentDateTime();
    }
    (call.incoming ? call.caller : call.callee) = party(e.remoteName, e.remoteNum);
    changed(rowOf(e.uid));
}

void CallsModel::onFinished(const FinishedCallEvent& e)
{
    const int row = rowOf(e.uid);
    if (row < 0)
        return;
    m_calls[row].channels.remove(e.localChannel);
    if (!m_calls.at(row).channels.isEmpty())
        return;
    beginRemoveRows(QModelIndex(), row, row);
    m_calls.removeAt(row);
    endRemoveRows();
    Q_EMIT actionsChanged();
}

void CallsModel::onColp(const ColpUpdateEvent& e)
{
    const int row = rowOf(e.uid);
    if (row < 0)
        return;
    Call& call = m_calls[row];
    (call.incoming ? call.caller : call.callee) = party(e.remoteName, e.remoteNum);
    changed(row);
}

void CallsModel::onPhoneLine(const QString& callId, bool ringingOrTalking)
{
    const int row = rowOfChannel(callId);
    if (row < 0)
        return;
    m_calls[row].lineId = ringingOrTalking ? callId : QString();
    changed(row);
}

void CallsModel::onPhoneHold(const QString& callId, bool held)
{
    const int row = rowOfChannel(callId);
    if (row < 0)
        return;
    m_calls[row].held = held;
    changed(row);
}

const CallsModel::Call* CallsModel::callAt(int row) const
{
    return row >= 0 && row < m_calls.size() ? &m_calls.at(row) : nullptr;
}

int CallsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_calls.size();
}

int CallsModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant CallsModel::data(const QModelIndex& index, int role) const
{
    const Call* call = callAt(index.row());
    if (!call || role != Qt::DisplayRole)
        return QVariant();
    switch (index.column()) {
    case CallerColumn:
        return call->caller;
    case CalleeColumn:
        return call->callee;
    case StateColumn:
        if (call->held)
            return tr("on hold");
        return call->state == Call::Talking ? tr("talking")
            : call->state == Call::Dialling ? tr("dialling")
                                            : tr("ringing");
    case DurationColumn: {
        const qint64 secs = call->since.secsTo(QDateTime::currentDateTime());
        return QStringLiteral("%1:%2").arg(secs / 60).arg(secs % 60, 2, 10, QLatin1Char('0'));
    }
    default:
        return QVariant();
    }
}

QVariant CallsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    static const char* const titles[] = {"Caller", "Callee", "State", "Duration"};
    return section < ColumnCount ? tr(titles[section]) : QVariant();
}
