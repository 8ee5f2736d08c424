#pragma once

// Helpers shared by the writing and the reading half of JsonConvert.

#include "jsonconvert.h"

#include <QHash>
#include <QMetaEnum>

namespace JsonConvert {
namespace detail {

QHash<int, MapInserter>& mapInserters();
/// The Q_ENUM or Q_FLAG declaration of an enumeration or flag type.
QMetaEnum declaredEnum(int typeId);
/// Enumerations and flag sets; Qt marks only the former as enumerations.
bool isEnumeration(int typeId);
const QMetaObject* gadgetMetaObject(int typeId);
/// The value of an enumeration stored in as many bytes as its type.
qint64 readEnum(int typeId, const void* data);
void writeEnum(int typeId, void* data, qint64 value);
/// Key or flag names ("VmMsgFlagAll", "CallAttrFromIbl|CallAttrToQueue").
bool enumFromName(int typeId, const QString& text, qint64* value);
QString typeText(int typeId);

} // namespace detail
} // namespace JsonConvert
