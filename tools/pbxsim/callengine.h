#pragma once

#include "servicemessages.h"

#include <QDateTime>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

class QTimer;
class SimHub;

/// How long simulated people take.
struct CallTimings
{
    /// Until the called party answers; negative: nobody answers.
    int answerDelayMs = 2000;
    /// From the answer until the far end hangs up (also how long a call
    /// stays parked).
    int callDurationMs = 10000;
    /// Until an unanswered call gives up.
    int ringTimeoutMs = 30000;
};

/// \brief The simulated calls of the PBX.
///
/// A call joins two parties: an extension, rung on each of its SIP accounts
/// (one channel per account), or a number outside the PBX (one trunk
/// channel). Every leg of an extension gets the originate or incoming event,
/// then the answer and the end, all under the uid its party knows the call
/// by, and its extension's lamp status follows. A finished call enters both
/// parties' history and is pushed to them as a "CallList".
class CallEngine : public QObject
{
    Q_OBJECT
public:
    explicit CallEngine(SimHub& hub, QObject* parent = nullptr);
    ~CallEngine() override;

    void setTimings(const CallTimings& timings) { m_timings = timings; }
    /// Gives every extension a desk phone: its first SIP account reports its
    /// calls as phone events, and phone commands drive it by line id (the
    /// channel of that account).
    void setDeskPhones(bool on) { m_deskPhones = on; }
    bool deskPhones() const { return m_deskPhones; }

    /// A click-to-call from an extension to an extension or an outside
    /// number; the uid, or empty with `error` set.
    QString dial(const QString& fromExten, const QString& toNumber, QString* error);
    /// A call from outside the PBX to an extension, possibly through a queue.
    QString ringFromOutside(const QString& fromNumber, const QString& fromName, const QString& toExten,
                            const QString& queue, QString* error);

    /// The party owning `channel` hangs up; false for an unknown channel.
    bool hangupChannel(const QString& channel, const QString& reason);
    /// The far end of the call hangs up (the outside caller, else the called party).
    bool hangupCall(const QString& uid);
    /// The called party answers now.
    bool answerCall(const QString& uid);
    /// The party owning `channel` is put through to `toNumber`; its
    /// counterpart leaves the call.
    bool redirect(const QString& channel, const QString& toNumber, QString* error);
    /// redirect() of the calling party of call `uid`.
    bool redirectCall(const QString& uid, const QString& toNumber, QString* error);
    /// The desk phone on line `channel` answers its ringing call.
    bool answerChannel(const QString& channel);
    /// The desk phone on line `channel` puts its call on hold (or takes it back).
    bool holdChannel(const QString& channel, bool hold);
    /// The desk phone on line `channel` hands its counterpart over to
    /// `toNumber` and leaves the call.
    bool transferChannel(const QString& channel, const QString& toNumber, QString* error);
    /// The party owning `parkingChannel` waits in the parking lot; the owner
    /// of `parkedChannel`, who parked it, leaves.
    bool park(const QString& parkedChannel, const QString& parkingChannel, QString* error);
    /// The owners of the two channels, each in its own call, are joined; the
    /// other party of each call leaves.
    bool bridge(const QString& channel1, const QString& channel2, QString* error);

    /// Number and name of the party that owns `channel`.
    bool channelStatus(const QString& channel, ChannelStatus* status) const;
    /// Uid of the call started last.
    QString lastUid() const { return m_lastUid; }
    int activeCalls() const { return m_calls.size(); }

private:
    struct Party
    {
        QString exten; ///< empty for a number outside the PBX
        QString number;
        QString name;
        QString uid;
        QMap<QString, QString> channels; ///< SIP account (or "trunk") to channel
        QString mainChannel;
        QString deskChannel; ///< channel of the desk phone's account
        bool onHold = false;
        bool isExten() const { return !exten.isEmpty(); }
    };
    struct Call
    {
        enum State { Ringing, Up, Parked };
        Party caller;
        Party callee;
        State state = Ringing;
        QString answeredAccount;
        QString callType;
        QDateTime started;
        QDateTime answered;
        QTimer* timer = nullptr;
    };

    Party makeParty(const QString& number, const QString& name, const QString& uid);
    QString newChannel(const QString& account);
    Call* newCall(Party caller, Party callee, const QString& callType);
    Call* findByChannel(const QString& channel, Party** owner);
    Call* findByUid(const QString& uid);
    Party& other(Call* call, const Party& party)
    {
        return &party == &call->caller ? call->callee : call->caller;
    }
    void schedule(Call* call, int ms, std::function<void()> action);
    void startRinging(Call* call);

    void answer(Call* call);
    void finish(Call* call, const Party* hanger, const QString& reason);
    void drop(Call* call, Party& party, const QString& reason, bool localHangup);
    void recordHistory(const Call* call, const QString& reason);
    void updateLamps(const QStringList& extens);

    void sendOriginate(const Party& p, const Party& to);
    void sendIncoming(const Call* call, const Party& p, const Party& from, const QString& queue);
    void sendAnswered(const Call* call, const Party& p, const Party& peer);
    void sendFinished(const Party& p, const Party& peer, const QString& reason, bool localHangup);
    void sendMissed(const Party& p, const Party& peer);
    void sendColp(const Party& p, const Party& peer);
    void sendPhoneEvent(const Party& p, const Party& peer, const QString& type);

    SimHub& m_hub;
    CallTimings m_timings;
    bool m_deskPhones = false;
    QList<Call*> m_calls;
    QString m_lastUid;
    int m_nextCall = 1;
    int m_nextChannel = 1;
};
