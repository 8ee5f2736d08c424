#pragma once

#include "callinfo.h"

#include <QHash>
#include <QString>

#include <memory>

/// The live calls by call uid and then by SIP account. The table owns its
/// legs: a leg enters as a unique_ptr, leaves as one, and whatever is still
/// inside when the table is cleared or destroyed is deleted with it. No call
/// is kept without legs.
class CallTable
{
public:
    using Legs = QHash<QString, CallInfo*>;

    CallTable() = default;
    ~CallTable();
    CallTable(const CallTable&) = delete;
    CallTable& operator=(const CallTable&) = delete;

    /// The legs of a call, empty for an unknown uid. The pointers stay owned
    /// by the table and are valid until the leg is taken or the table cleared.
    Legs legs(const QString& uid) const { return m_calls.value(uid); }
    bool contains(const QString& uid) const { return m_calls.contains(uid); }
    /// The leg of a call on one account, null when there is none.
    CallInfo* leg(const QString& uid, const QString& sipAccount) const;
    /// Some leg of a call, null when the call is unknown. The hash has no
    /// order: which leg of several is not specified.
    CallInfo* firstLeg(const QString& uid) const;

    /// Adds a leg under its uid and account and returns it. A leg whose
    /// account the call already holds is refused: it is deleted, the existing
    /// one stays, and the result is null.
    CallInfo* insert(std::unique_ptr<CallInfo> newLeg);
    /// Takes a leg out; a call left without legs is removed. Null when the
    /// leg is not in the table.
    std::unique_ptr<CallInfo> take(const QString& uid, const QString& sipAccount);

    int legCount(const QString& uid) const { return m_calls.value(uid).size(); }
    int callCount() const { return m_calls.size(); }
    int totalLegCount() const;
    bool isEmpty() const { return m_calls.isEmpty(); }
    /// Deletes every leg.
    void clear();

    const QHash<QString, Legs>& calls() const { return m_calls; }

private:
    QHash<QString, Legs> m_calls;
};

/// A log line about one leg: `pattern` with %1 to %4 as uid, caller number,
/// called number and SIP account.
inline QString callLogLine(const char* pattern, const CallInfo& leg)
{
    return QString::fromLatin1(pattern).arg(leg.uid, leg.callerNum, leg.calledNum, leg.sipAccount);
}
