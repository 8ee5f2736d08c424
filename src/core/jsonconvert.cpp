#include "jsonconvert_p.h"

#include "telvix_const.h"

#include <QAssociativeIterable>
#include <QJsonArray>
#include <QJsonObject>
#include <QMetaObject>
#include <QMetaProperty>
#include <QSequentialIterable>

#include <cmath>
#include <cstring>

// Writing values as JSON, and what both directions share. Reading is in
// jsonconvertreader.cpp.

namespace JsonConvert {
namespace detail {

QHash<int, MapInserter>& mapInserters()
{
    static QHash<int, MapInserter> inserters;
    return inserters;
}

// The Q_ENUM or Q_FLAG declaration of an enumeration or flag type, found in
// the meta-object of the class or namespace that declares it.
QMetaEnum declaredEnum(int typeId)
{
    const QMetaObject* scope = QMetaType::metaObjectForType(typeId);
    if (!scope || (QMetaType::typeFlags(typeId) & (QMetaType::IsGadget | QMetaType::PointerToQObject)))
        return QMetaEnum();
    QString name = QString::fromLatin1(QMetaType::typeName(typeId));
    if (name.startsWith(QLatin1String("QFlags<")))
        name = name.mid(7, name.size() - 8);
    name = name.mid(name.lastIndexOf(QLatin1Char(':')) + 1);
    for (int i = 0; i < scope->enumeratorCount(); ++i) {
        const QMetaEnum e = scope->enumerator(i);
        if (QLatin1String(e.name()) == name || QLatin1String(e.enumName()) == name)
            return e;
    }
    return QMetaEnum();
}

bool isEnumeration(int typeId)
{
    return (QMetaType::typeFlags(typeId) & QMetaType::IsEnumeration) || declaredEnum(typeId).isFlag();
}

const QMetaObject* gadgetMetaObject(int typeId)
{
    if (!(QMetaType::typeFlags(typeId) & QMetaType::IsGadget))
        return nullptr;
    return QMetaType::metaObjectForType(typeId);
}

qint64 readEnum(int typeId, const void* data)
{
    switch (QMetaType::sizeOf(typeId)) {
    case 1:
        return *static_cast<const qint8*>(data);
    case 2:
        return *static_cast<const qint16*>(data);
    case 8:
        return *static_cast<const qint64*>(data);
    default:
        return *static_cast<const qint32*>(data);
    }
}

void writeEnum(int typeId, void* data, qint64 value)
{
    switch (QMetaType::sizeOf(typeId)) {
    case 1: {
        const qint8 v = qint8(value);
        std::memcpy(data, &v, 1);
        break;
    }
    case 2: {
        const qint16 v = qint16(value);
        std::memcpy(data, &v, 2);
        break;
    }
    case 8:
        std::memcpy(data, &value, 8);
        break;
    default: {
        const qint32 v = qint32(value);
        std::memcpy(data, &v, 4);
        break;
    }
    }
}

// The key or flag names of an enumeration, for readers that prefer words
// to numbers ("VmMsgFlagAll", "CallAttrFromIbl|CallAttrToQueue").
bool enumFromName(int typeId, const QString& text, qint64* value)
{
    const QMetaEnum e = declaredEnum(typeId);
    if (!e.isValid())
        return false;
    bool ok = false;
    const QByteArray keys = text.toLatin1();
    const int v = e.isFlag() ? e.keysToValue(keys.constData(), &ok) : e.keyToValue(keys.constData(), &ok);
    if (ok)
        *value = v;
    return ok;
}

QString typeText(int typeId)
{
    const char* name = QMetaType::typeName(typeId);
    return name ? QString::fromLatin1(name) : QStringLiteral("an unregistered type");
}

} // namespace detail

using namespace detail;

namespace {

// The map types of this floor; those of records above it register where the
// record does. QList types need no such step.
void registerLibraryMaps()
{
    registerMapType<QMap<QString, QString>>();
    registerMapType<QMap<QString, QStringList>>();
    registerMapType<QMap<TELVIX::ServiceDialCodeType, QString>>();
    qRegisterMetaType<QList<int>>("QList<int>");
}
Q_CONSTRUCTOR_FUNCTION(registerLibraryMaps)

QString offsetText(int seconds)
{
    const QChar sign = seconds < 0 ? QLatin1Char('-') : QLatin1Char('+');
    seconds = std::abs(seconds);
    return sign
        + QStringLiteral("%1:%2")
              .arg(seconds / 3600, 2, 10, QLatin1Char('0'))
              .arg((seconds % 3600) / 60, 2, 10, QLatin1Char('0'));
}

QJsonValue gadgetToJson(const QMetaObject* mo, const void* data)
{
    QJsonObject object;
    for (int i = 0; i < mo->propertyCount(); ++i) {
        const QMetaProperty prop = mo->property(i);
        object.insert(QLatin1String(prop.name()), toJson(prop.readOnGadget(data)));
    }
    return object;
}

QString mapKeyText(const QVariant& key)
{
    if (isEnumeration(key.userType()))
        return QString::number(readEnum(key.userType(), key.constData()));
    return key.toString();
}

QJsonValue containerToJson(const QVariant& value)
{
    if (value.canConvert<QVariantList>()) {
        QJsonArray array;
        const QSequentialIterable items = value.value<QSequentialIterable>();
        for (const QVariant& item : items)
            array.append(toJson(item));
        return array;
    }
    if (value.canConvert<QVariantMap>()) {
        QJsonObject object;
        const QAssociativeIterable items = value.value<QAssociativeIterable>();
        for (auto it = items.begin(); it != items.end(); ++it)
            object.insert(mapKeyText(it.key()), toJson(it.value()));
        return object;
    }
    if (value.canConvert<QString>())
        return value.toString();
    return QJsonValue::Null;
}

} // namespace

namespace detail {
void addMapInserter(int mapTypeId, MapInserter inserter)
{
    mapInserters().insert(mapTypeId, inserter);
}
} // namespace detail

QString dateTimeToText(const QDateTime& dateTime)
{
    if (!dateTime.isValid())
        return QString();
    return dateTime.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzz"))
        + offsetText(dateTime.offsetFromUtc());
}

QJsonValue toJson(const QVariant& value)
{
    if (!value.isValid())
        return QJsonValue::Null;
    return toJson(value.userType(), value.constData());
}

QJsonValue toJson(int typeId, const void* data)
{
    if (!data)
        return QJsonValue::Null;
    switch (typeId) {
    case QMetaType::UnknownType:
    case QMetaType::Void:
    case QMetaType::Nullptr:
        return QJsonValue::Null;
    case QMetaType::Bool:
        return *static_cast<const bool*>(data);
    case QMetaType::QString:
        return *static_cast<const QString*>(data);
    case QMetaType::QByteArray:
        return QString::fromLatin1(static_cast<const QByteArray*>(data)->toBase64());
    case QMetaType::QDateTime: {
        const QString text = dateTimeToText(*static_cast<const QDateTime*>(data));
        return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
    }
    case QMetaType::QDate: {
        const QDate* d = static_cast<const QDate*>(data);
        return d->isValid() ? QJsonValue(d->toString(Qt::ISODate)) : QJsonValue(QJsonValue::Null);
    }
    case QMetaType::QTime: {
        const QTime* t = static_cast<const QTime*>(data);
        return t->isValid() ? QJsonValue(t->toString(Qt::ISODateWithMs)) : QJsonValue(QJsonValue::Null);
    }
    case QMetaType::QVariant:
        return toJson(*static_cast<const QVariant*>(data));
    case QMetaType::QJsonValue:
        return *static_cast<const QJsonValue*>(data);
    case QMetaType::QJsonObject:
        return *static_cast<const QJsonObject*>(data);
    case QMetaType::QJsonArray:
        return *static_cast<const QJsonArray*>(data);
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
        return QVariant(typeId, data).toDouble();
    default:
        break;
    }
    if (isEnumeration(typeId))
        return double(readEnum(typeId, data));
    if (const QMetaObject* mo = gadgetMetaObject(typeId))
        return gadgetToJson(mo, data);
    return containerToJson(QVariant(typeId, data));
}

} // namespace JsonConvert
