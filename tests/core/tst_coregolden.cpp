// The ground floor's functions against the fixtures in fixtures/core: each
// file maps a function name to rows of [arguments..., expected result].
#include "fixturetable.h"
#include "jsonconvert.h"
#include "telvix.h"
#include "telvix_const.h"
#include "utils.h"

#include <QtTest>

#include <functional>

using namespace TELVIX;
namespace {

// Registers E's two conversions, and under the bare name a pair that must
// hold both ways.
template <typename E>
void addEnum(QHash<QString, Function>& f, const QString& name, QString (*toText)(E),
             E (*fromText)(const QString&))
{
    f.insert(name + "ToString", [=](const Args& a) { return toText(E(a[0].toInt())); });
    f.insert(name + "FromString", [=](const Args& a) { return int(fromText(a[0].toString())); });
    f.insert(name, [=](const Args& a) {
        const QString text = toText(E(a[0].toInt()));
        return int(fromText(text)) == a[0].toInt()
            ? text
            : QStringLiteral("reads back as %1").arg(int(fromText(text)));
    });
}

// A value read from JSON and written back, then read and written once more:
// the second pass must not change it. A refusal gives {"error": why}.
QJsonValue throughJson(const Args& a)
{
    const int type = QMetaType::type(a[0].toString().toLatin1().constData());
    QString error;
    const QVariant value = JsonConvert::fromJson(a[1], type, &error);
    if (!value.isValid())
        return QJsonObject {{"error", error}};
    const QJsonValue json = JsonConvert::toJson(value);
    const QJsonValue again = JsonConvert::toJson(JsonConvert::fromJson(json, type));
    return again == json ? json : QJsonObject {{"unstable", again}};
}

const auto both = [](const auto& pair) { return Args {pair.first, pair.second}; };

QHash<QString, Function> functions()
{
    QHash<QString, Function> f;
    addEnum(f, "BlfStatus", blfStatusToString, blfStatusFromString);
    addEnum(f, "DtmfMode", dtmfModeToString, dtmfModeFromString);
    addEnum(f, "MsgLevel", msgLevelToString, msgLevelFromString);
    addEnum(f, "ChatPresence", chatPresenceToString, chatPresenceFromString);
    addEnum(f, "VmMsgType", vmMsgTypeToString, vmMsgTypeFromString);
    addEnum(f, "VmMsgTypeFlag", vmMsgTypeFlagToString, vmMsgTypeFlagFromString);
    addEnum(f, "ContactType", contactTypeToString, contactTypeFromString);
    addEnum(f, "ContactNumberType", numTypeToString, numTypeFromString);
    addEnum(f, "AppMode", appModeToString, appModeFromString);
    addEnum(f, "NotificationService", notificationServiceToString, notificationServiceFromString);
    addEnum(f, "CallCenterRole", callCenterRoleToString, callCenterRoleFromString);
    addEnum(f, "PeriodType", periodTypeToString, periodTypeFromString);
    addEnum(f, "QueueOperatorMembership", queueOperatorMembershipToString, queueOperatorMembershipFromString);
    f["serviceDialCode"] = [](const Args& a) {
        const auto type = ServiceDialCodeType(a[0].toInt());
        return Args {serviceDialCodeTypeToString(type), isNumberingPlanServiceDialCode(type),
                     isInCallServiceDialCode(type)};
    };
    f["callAttributeString"]
        = [](const Args& a) { return getCallAttributeString(CallAttributes(a[0].toInt())); };
    f["callAttributeValue"] = [](const Args& a) { return int(getCallAttributeValue(a[0].toString())); };
    f["compareVersions"] = [](const Args& a) { return compareVersions(a[0].toString(), a[1].toString()); };
    f["getAccountFromChannel"] = [](const Args& a) { return getAccountFromChannel(a[0].toString()); };
    f["getNameNumPairFromUri"] = [](const Args& a) { return both(getNameNumPairFromUri(a[0].toString())); };
    f["isNumAnonymous"] = [](const Args& a) { return isNumAnonymous(a[0].toString()); };
    f["getIpPort"] = [](const Args& a) { return both(getIpPort(a[0].toString())); };
    f["purifyNum"] = [](const Args& a) { return a[0].toString().remove(PurifyNumRx); };
    f["metaTypeKnown"] = [](const Args& a) { return QMetaType::type(a[0].toString().toLatin1()) != 0; };
    f["parseIsoDateTime"] = [](const Args& a) -> QJsonValue {
        const QDateTime t = Utils::parseIsoDateTime(a[0].toString());
        return t.isNull() ? QJsonValue() : Args {t.toUTC().toString(Qt::ISODateWithMs), t.offsetFromUtc()};
    };
    f["datetimeToIsoString"] = [](const Args& a) {
        return Utils::datetimeToIsoString(QDateTime::fromString(a[0].toString(), Qt::ISODateWithMs));
    };
    f["md5sum"] = [](const Args& a) { return Utils::md5sum(a[0].toString()); };
    f["md5sumFile"] = [](const Args& a) {
        QTemporaryDir dir;
        QFile file(dir.filePath("f"));
        if (!a[0].isNull() && file.open(QIODevice::WriteOnly))
            file.write(a[0].toString().toUtf8());
        file.close();
        return Utils::md5sumFile(file.fileName());
    };
    // Also over raw data followed by more bytes, which has no NUL of its own.
    f["utf8UpToNul"] = [](const Args& a) {
        const QByteArray bytes = QByteArray::fromHex(a[0].toString().toLatin1());
        const QByteArray followed = bytes + "tail";
        const QString raw = Utils::utf8UpToNul(QByteArray::fromRawData(followed.constData(), bytes.size()));
        return raw == Utils::utf8UpToNul(bytes) ? raw : "raw data read on: " + raw;
    };
    f["dataFromBase64Compressed"] = [](const Args& a) {
        return QString::fromLatin1(Utils::dataFromBase64Compressed(a[0].toString().toLatin1()).toHex());
    };
    f["json"] = throughJson;
    return f;
}

} // namespace

class TestCoreGolden : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fixtures_data() { addFunctionRows(QStringLiteral("core")); }

    void fixtures()
    {
        static const QHash<QString, Function> all = functions();
        checkFunctionRow(all);
    }

    void compressedBase64RoundTrips()
    {
        QRandomGenerator rng(20240305);
        for (int round = 0; round < 100; ++round) {
            QByteArray data(round < 5 ? round : int(rng.bounded(20000)), Qt::Uninitialized);
            for (char& c : data)
                c = char(rng.bounded(256));
            const QByteArray wire = Utils::dataToBase64Compressed(data);
            // Four-byte big-endian length, then a zlib stream: Qt's own form.
            QCOMPARE(wire, qCompress(data).toBase64());
            QCOMPARE(Utils::dataFromBase64Compressed(wire), data);
        }
    }

    // Whatever a method of Telvix takes or gives, and whatever a signal
    // carries, is registered under the name the meta-object gives it and
    // survives the way through JSON.
    void everyTypeOfTheInterfaceConverts()
    {
        const QMetaObject& api = Telvix::staticMetaObject;
        QStringList failures;
        int checked = 0;
        for (int i = api.methodOffset(); i < api.methodCount(); ++i) {
            const QMetaMethod m = api.method(i);
            if (m.access() != QMetaMethod::Public)
                continue;
            QList<QByteArray> types = m.parameterTypes();
            if (m.returnType() != QMetaType::Void)
                types.append(m.typeName());
            for (const QByteArray& name : qAsConst(types)) {
                ++checked;
                const int id = QMetaType::type(name.constData());
                QString error = id ? QString() : QStringLiteral("not registered");
                if (id
                    && !JsonConvert::fromJson(JsonConvert::toJson(QVariant(id, nullptr)), id, &error)
                            .isValid())
                    error.prepend(QStringLiteral("does not read back: "));
                if (!error.isEmpty())
                    failures << name + " in " + m.methodSignature() + ": " + error;
            }
        }
        QVERIFY2(failures.isEmpty(), qPrintable(failures.join('\n')));
        QVERIFY(checked > 100);
    }
};

QTEST_GUILESS_MAIN(TestCoreGolden)
#include "tst_coregolden.moc"
