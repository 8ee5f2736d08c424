#pragma once

#include "calleventmessages.h"

#include <QAbstractTableModel>
#include <QDateTime>
#include <QSet>
#include <QTimer>
#include <QVector>

/// The calls in progress, one row per call uid, fed by the call events of a
/// desktop mode (one event per leg: a call rings on each SIP account of the
/// user) and by the desk phone's events, which tell the line id that the
/// phone commands need.
class CallsModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { CallerColumn, CalleeColumn, StateColumn, DurationColumn, ColumnCount };

    struct Call
    {
        enum State { Ringing, Dialling, Talking };
        QString uid;
        bool incoming = true;
        QString caller;
        QString callee;
        State state = Ringing;
        bool held = false;
        /// Start of ringing, then of the conversation.
        QDateTime since;
        /// The legs' local channels; the row goes when the last one finishes.
        QSet<QString> channels;
        /// The desk phone's line, once the phone reports this call.
        QString lineId;
    };

    explicit CallsModel(QObject* parent = nullptr);

    /// The user's extension, shown as the caller of outgoing calls.
    void setOwnNumber(const QString& number) { m_ownNumber = number; }

    void onIncoming(const IncomingCallEvent& e);
    void onOutgoing(const OriginateCallEvent& e);
    void onAnswered(const AnsweredCallEvent& e);
    void onFinished(const FinishedCallEvent& e);
    void onColp(const ColpUpdateEvent& e);
    /// A desk-phone event: its call id is matched with the legs' local
    /// channels, as the phone names its line by the channel of its own SIP
    /// account. The library itself ties a phone event to no call.
    void onPhoneLine(const QString& callId, bool ringingOrTalking);
    void onPhoneHold(const QString& callId, bool held);

    const Call* callAt(int row) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

Q_SIGNALS:
    /// A call's state or line changed: the actions it allows may differ.
    void actionsChanged();

private:
    int rowOf(const QString& uid) const;
    int rowOfChannel(const QString& channel) const;
    Call& callFor(const CallLegEvent& e);
    void changed(int row);

    QString m_ownNumber;
    QVector<Call> m_calls;
    QTimer m_ticker;
};
