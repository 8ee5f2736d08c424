// Reading JSON into values of any registered type.
#include "jsonconvert_p.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QMetaProperty>
#include <QStringList>

#include <cmath>
#include <limits>

namespace JsonConvert {

using namespace detail;

namespace {

class Reader
{
public:
    QString error;

    QVariant read(const QJsonValue& json, int typeId, const QString& path);

private:
    QVariant fail(const QString& path, const QString& text)
    {
        if (error.isEmpty())
            error = path.isEmpty() ? text : path + QLatin1String(": ") + text;
        return QVariant();
    }
    QVariant readInteger(const QJsonValue& json, int typeId, const QString& path);
    QVariant readEnum(const QJsonValue& json, int typeId, const QString& path);
    QVariant readGadget(const QJsonValue& json, int typeId, const QMetaObject* mo, const QString& path);
    QVariant readSequence(const QJsonValue& json, int typeId, const QString& path);
    QVariant readMap(const QJsonValue& json, int typeId, const QString& path);
};

QVariant Reader::read(const QJsonValue& json, int typeId, const QString& path)
{
    if (typeId == QMetaType::QVariant)
        return QVariant::fromValue(json.toVariant());
    if (typeId == QMetaType::QJsonValue)
        return QVariant::fromValue(json);
    if (typeId == QMetaType::UnknownType || typeId == QMetaType::Void)
        return fail(path, QStringLiteral("cannot be read: %1").arg(typeText(typeId)));
    if (json.isNull() || json.isUndefined())
        return QVariant(typeId, nullptr);

    switch (typeId) {
    case QMetaType::Bool:
        if (!json.isBool())
            return fail(path, QStringLiteral("expected true or false"));
        return json.toBool();
    case QMetaType::Double:
    case QMetaType::Float: {
        if (!json.isDouble())
            return fail(path, QStringLiteral("expected a number"));
        QVariant v(json.toDouble());
        v.convert(typeId);
        return v;
    }
    case QMetaType::QString:
        if (json.isString())
            return json.toString();
        if (json.isDouble()) {
            const double d = json.toDouble();
            return d == std::floor(d) && std::abs(d) < 9e15 ? QString::number(qint64(d)) : QString::number(d);
        }
        return fail(path, QStringLiteral("expected a string"));
    case QMetaType::QByteArray: {
        if (!json.isString())
            return fail(path, QStringLiteral("expected a Base64 string"));
        const auto decoded = QByteArray::fromBase64Encoding(json.toString().toLatin1(),
                                                            QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded)
            return fail(path, QStringLiteral("not Base64"));
        return *decoded;
    }
    case QMetaType::QDateTime: {
        const QDateTime dt = QDateTime::fromString(json.toString(), Qt::ISODateWithMs);
        if (!json.isString() || !dt.isValid())
            return fail(path, QStringLiteral("expected an ISO 8601 date and time"));
        return dt;
    }
    case QMetaType::QDate: {
        const QDate d = QDate::fromString(json.toString(), Qt::ISODate);
        if (!d.isValid())
            return fail(path, QStringLiteral("expected an ISO 8601 date"));
        return d;
    }
    case QMetaType::QTime: {
        const QTime t = QTime::fromString(json.toString(), Qt::ISODateWithMs);
        if (!t.isValid())
            return fail(path, QStringLiteral("expected an ISO 8601 time"));
        return t;
    }
    case QMetaType::QStringList: {
        if (!json.isArray())
            return fail(path, QStringLiteral("expected an array of strings"));
        QStringList list;
        const QJsonArray array = json.toArray();
        for (int i = 0; i < array.size(); ++i) {
            const QVariant item = read(array.at(i), QMetaType::QString, path + QStringLiteral("[%1]").arg(i));
            if (!item.isValid())
                return QVariant();
            list.append(item.toString());
        }
        return list;
    }
    case QMetaType::QVariantList:
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        QVariant v = json.toVariant();
        if (!v.convert(typeId))
            return fail(path, QStringLiteral("expected %1").arg(typeText(typeId)));
        return v;
    }
    case QMetaType::QJsonObject:
        if (!json.isObject())
            return fail(path, QStringLiteral("expected an object"));
        return json.toObject();
    case QMetaType::QJsonArray:
        if (!json.isArray())
            return fail(path, QStringLiteral("expected an array"));
        return json.toArray();
    default:
        break;
    }

    if (typeId == QMetaType::Int || typeId == QMetaType::UInt || typeId == QMetaType::Short
        || typeId == QMetaType::UShort || typeId == QMetaType::Char || typeId == QMetaType::SChar
        || typeId == QMetaType::UChar || typeId == QMetaType::Long || typeId == QMetaType::ULong
        || typeId == QMetaType::LongLong || typeId == QMetaType::ULongLong)
        return readInteger(json, typeId, path);
    if (isEnumeration(typeId))
        return readEnum(json, typeId, path);
    if (const QMetaObject* mo = gadgetMetaObject(typeId))
        return readGadget(json, typeId, mo, path);
    if (mapInserters().contains(typeId))
        return readMap(json, typeId, path);
    if (QMetaType::hasRegisteredConverterFunction(typeId,
                                                  qMetaTypeId<QtMetaTypePrivate::QSequentialIterableImpl>()))
        return readSequence(json, typeId, path);
    return fail(path, QStringLiteral("cannot be read: %1").arg(typeText(typeId)));
}

QVariant Reader::readInteger(const QJsonValue& json, int typeId, const QString& path)
{
    const double d = json.toDouble();
    if (!json.isDouble() || d != std::floor(d))
        return fail(path, QStringLiteral("expected a whole number"));
    double low = 0;
    double high = 0;
    switch (typeId) {
    case QMetaType::Int:
        low = std::numeric_limits<qint32>::min();
        high = std::numeric_limits<qint32>::max();
        break;
    case QMetaType::UInt:
        high = std::numeric_limits<quint32>::max();
        break;
    case QMetaType::Short:
        low = std::numeric_limits<qint16>::min();
        high = std::numeric_limits<qint16>::max();
        break;
    case QMetaType::UShort:
        high = std::numeric_limits<quint16>::max();
        break;
    case QMetaType::Char:
    case QMetaType::SChar:
        low = std::numeric_limits<qint8>::min();
        high = std::numeric_limits<qint8>::max();
        break;
    case QMetaType::UChar:
        high = std::numeric_limits<quint8>::max();
        break;
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        high = 18446744073709551615.0;
        break;
    default:
        low = -9223372036854775808.0;
        high = 9223372036854775807.0;
        break;
    }
    if (d < low || d > high)
        return fail(path, QStringLiteral("%1 is out of range for %2").arg(d).arg(typeText(typeId)));
    QVariant v = d < 0 ? QVariant(qint64(d)) : QVariant(quint64(d));
    v.convert(typeId);
    return v;
}

QVariant Reader::readEnum(const QJsonValue& json, int typeId, const QString& path)
{
    qint64 value = 0;
    const double d = json.toDouble();
    if (json.isDouble() && d == std::floor(d))
        value = qint64(d);
    else if (!json.isString() || !enumFromName(typeId, json.toString(), &value))
        return fail(path, QStringLiteral("expected a number of %1").arg(typeText(typeId)));
    QVariant v(typeId, nullptr);
    writeEnum(typeId, v.data(), value);
    return v;
}

QVariant Reader::readGadget(const QJsonValue& json, int typeId, const QMetaObject* mo, const QString& path)
{
    if (!json.isObject())
        return fail(path, QStringLiteral("expected an object of %1").arg(typeText(typeId)));
    QVariant record(typeId, nullptr);
    const QJsonObject object = json.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString fieldPath = path.isEmpty() ? it.key() : path + QLatin1Char('.') + it.key();
        const int index = mo->indexOfProperty(it.key().toLatin1().constData());
        if (index < 0)
            return fail(path, QStringLiteral("%1 has no field \"%2\"").arg(typeText(typeId), it.key()));
        const QMetaProperty prop = mo->property(index);
        const QVariant value = read(it.value(), prop.userType(), fieldPath);
        if (!value.isValid())
            return QVariant();
        prop.writeOnGadget(record.data(), value);
    }
    return record;
}

QVariant Reader::readSequence(const QJsonValue& json, int typeId, const QString& path)
{
    if (!json.isArray())
        return fail(path, QStringLiteral("expected an array for %1").arg(typeText(typeId)));
    QVariant container(typeId, nullptr);
    QtMetaTypePrivate::QSequentialIterableImpl impl;
    if (!QMetaType::convert(container.data(), typeId, &impl,
                            qMetaTypeId<QtMetaTypePrivate::QSequentialIterableImpl>())
        || !(impl.containerCapabilities() & QtMetaTypePrivate::ContainerIsAppendable))
        return fail(path, QStringLiteral("cannot build %1").arg(typeText(typeId)));
    const QJsonArray array = json.toArray();
    for (int i = 0; i < array.size(); ++i) {
        const QVariant item = read(array.at(i), impl._metaType_id, path + QStringLiteral("[%1]").arg(i));
        if (!item.isValid())
            return QVariant();
        impl.append(item.constData());
    }
    return container;
}

QVariant Reader::readMap(const QJsonValue& json, int typeId, const QString& path)
{
    if (!json.isObject())
        return fail(path, QStringLiteral("expected an object for %1").arg(typeText(typeId)));
    QVariant container(typeId, nullptr);
    QtMetaTypePrivate::QAssociativeIterableImpl impl;
    if (!QMetaType::convert(container.constData(), typeId, &impl,
                            qMetaTypeId<QtMetaTypePrivate::QAssociativeIterableImpl>()))
        return fail(path, QStringLiteral("cannot build %1").arg(typeText(typeId)));
    const detail::MapInserter insert = mapInserters().value(typeId);
    const QJsonObject object = json.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString itemPath = path + QLatin1Char('[') + it.key() + QLatin1Char(']');
        QJsonValue keyJson = it.key();
        if (impl._metaType_id_key != QMetaType::QString) {
            bool isNumber = false;
            const qint64 number = it.key().toLongLong(&isNumber);
            if (isNumber)
                keyJson = double(number);
        }
        const QVariant key = read(keyJson, impl._metaType_id_key, itemPath);
        const QVariant value
            = key.isValid() ? read(it.value(), impl._metaType_id_value, itemPath) : QVariant();
        if (!value.isValid())
            return QVariant();
        insert(container.data(), key.constData(), value.constData());
    }
    return container;
}

} // namespace

QVariant fromJson(const QJsonValue& json, int typeId, QString* error)
{
    Reader reader;
    QVariant value = reader.read(json, typeId, QString());
    if (error)
        *error = reader.error;
    return value;
}

} // namespace JsonConvert
