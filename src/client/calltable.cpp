#include "calltable_p.h"

CallTable::~CallTable()
{
    clear();
}

CallInfo* CallTable::leg(const QString& uid, const QString& sipAccount) const
{
    const auto call = m_calls.constFind(uid);
    return call == m_calls.constEnd() ? nullptr : call->value(sipAccount);
}

CallInfo* CallTable::firstLeg(const QString& uid) const
{
    const auto call = m_calls.constFind(uid);
    if (call == m_calls.constEnd() || call->isEmpty())
        return nullptr;
    return call->constBegin().value();
}

CallInfo* CallTable::insert(std::unique_ptr<CallInfo> newLeg)
{
    if (!newLeg || leg(newLeg->uid, newLeg->sipAccount))
        return nullptr;
    Legs& legs = m_calls[newLeg->uid];
    CallInfo* const stored = newLeg.release();
    legs.insert(stored->sipAccount, stored);
    return stored;
}

std::unique_ptr<CallInfo> CallTable::take(const QString& uid, const QString& sipAccount)
{
    const auto call = m_calls.find(uid);
    if (call == m_calls.end())
        return nullptr;
    std::unique_ptr<CallInfo> taken(call->take(sipAccount));
    if (call->isEmpty())
        m_calls.erase(call);
    return taken;
}

int CallTable::totalLegCount() const
{
    int count = 0;
    for (const Legs& legs : m_calls)
        count += legs.size();
    return count;
}

void CallTable::clear()
{
    for (const Legs& legs : qAsConst(m_calls))
        qDeleteAll(legs);
    m_calls.clear();
}
