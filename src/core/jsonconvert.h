#pragma once

#include "telvix_export.h"

#include <QDateTime>
#include <QJsonValue>
#include <QMetaType>
#include <QString>
#include <QVariant>

/// \brief Converts any value the library hands out or takes in to JSON and
/// back, driven by the meta-type system alone. This is the one JSON form of
/// the records: telvix-cli prints it and the web bridge publishes it.
///
/// - Q_GADGET records: an object with one key per Q_PROPERTY, in declaration
///   order, base class properties first.
/// - QString: a string; numbers and bool: JSON numbers and booleans.
/// - Enumerations and flag sets: integers.
/// - QDateTime: ISO 8601 with milliseconds and the UTC offset
///   ("2026-11-15T18:10:02.123+01:00"); null when invalid.
/// - QByteArray: Base64.
/// - Sequential containers: arrays; maps: objects keyed by the key's text
///   (enumeration keys by their number).
///
/// Reading builds a default-constructed value and overwrites what the JSON
/// names; a key that is not a field of the record is an error, so that a typo
/// does not pass unnoticed. A list is built through its container's append
/// capability, so every registered QList<T> is read without further set-up.
/// Maps have no such capability in Qt 5: map types are read once registered
/// with registerMapType() (the library's own map types are registered when it
/// loads).
namespace JsonConvert {

TELVIX_EXPORT QJsonValue toJson(const QVariant& value);
/// The value of meta-type `typeId` stored at `data` (for signal arguments).
TELVIX_EXPORT QJsonValue toJson(int typeId, const void* data);

/// Reads `json` as a value of meta-type `typeId`. Returns an invalid QVariant
/// and sets `error` when it does not convert.
TELVIX_EXPORT QVariant fromJson(const QJsonValue& json, int typeId, QString* error = nullptr);

/// "yyyy-MM-ddTHH:mm:ss.zzz+hh:mm"; empty for an invalid date.
TELVIX_EXPORT QString dateTimeToText(const QDateTime& dateTime);

/// Lets fromJson build maps of type `Map` (a QMap or QHash).
template <typename Map> void registerMapType();

namespace detail {
using MapInserter = void (*)(void* map, const void* key, const void* value);
TELVIX_EXPORT void addMapInserter(int mapTypeId, MapInserter inserter);
} // namespace detail

template <typename Map> void registerMapType()
{
    const int id = qRegisterMetaType<Map>();
    detail::addMapInserter(id, [](void* map, const void* key, const void* value) {
        static_cast<Map*>(map)->insert(*static_cast<const typename Map::key_type*>(key),
                                       *static_cast<const typename Map::mapped_type*>(value));
    });
}

} // namespace JsonConvert
