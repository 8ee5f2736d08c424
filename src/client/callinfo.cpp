#include "callinfo.h"

#include <QList>

namespace {
void registerCallInfoTypes()
{
    qRegisterMetaType<CallInfo>("CallInfo");
    qRegisterMetaType<QList<CallInfo>>("QList<CallInfo>");
}
} // namespace

Q_CONSTRUCTOR_FUNCTION(registerCallInfoTypes)

QString CallInfo::getPeerNum() const
{
    switch (direction) {
    case DirectionOutgoing:
        return calledNum;
    case DirectionIncoming:
        return callerNum;
    default:
        return QString();
    }
}

void CallInfo::setPeer(const QString& num, const QString& name, const QString& channel)
{
    remoteChannel = channel;
    // An unknown direction counts as incoming here: the other party called.
    if (direction == DirectionOutgoing) {
        calledNum = num;
        calledName = name;
    } else {
        callerNum = num;
        callerName = name;
    }
}

void CallInfo::setLocalInfo(const QString& channel)
{
    localChannel = channel;
}

bool CallInfo::operator==(const CallInfo& other) const
{
    return uid == other.uid && callerNum == other.callerNum && callerName == other.callerName
        && calledNum == other.calledNum && calledName == other.calledName && sipAccount == other.sipAccount
        && direction == other.direction && answered == other.answered && isC2c == other.isC2c
        && localChannel == other.localChannel && remoteChannel == other.remoteChannel;
}
