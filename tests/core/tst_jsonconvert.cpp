// The JSON form of the library's values, as telvix-cli prints and reads it.
#include "cdrmessages.h"
#include "directorymessages.h"
#include "jsonconvert.h"
#include "loginmessages.h"
#include "phonebook.h"
#include "queuemessages.h"
#include "servicemessages.h"
#include "telvix.h"
#include "voicemailmessages.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

class tst_JsonConvert : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void roundTrip_data();
    void roundTrip();
    void writtenForm_data();
    void writtenForm();
    void recordKeysAreFieldNames();
    void everyTypeOfTheInterfaceConverts();
    void refused_data();
    void refused();
};

namespace {

QString compact(const QJsonValue& v)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray {v}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
}

QDateTime at(int hour, int minute, int second, int ms, int offsetSeconds)
{
    return QDateTime(QDate(2026, 11, 15), QTime(hour, minute, second, ms), Qt::OffsetFromUTC, offsetSeconds);
}

} // namespace

void tst_JsonConvert::initTestCase()
{
    // Equality through QVariant needs the records' operator==.
    QMetaType::registerEqualsComparator<CdrEntry>();
    QMetaType::registerEqualsComparator<VoicemailMessage>();
    QMetaType::registerEqualsComparator<PhoneBookEntry>();
    QMetaType::registerEqualsComparator<QueueStats>();
    QMetaType::registerEqualsComparator<CallCenterReport>();
    QMetaType::registerEqualsComparator<BuddyStatus>();
    QMetaType::registerEqualsComparator<QMap<QString, BuddyStatus>>();
    QMetaType::registerEqualsComparator<ServerCommandResponse>();
    QMetaType::registerEqualsComparator<QList<int>>();
    QMetaType::registerEqualsComparator<QMap<QString, QStringList>>();
}

void tst_JsonConvert::roundTrip_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("comparable");

    LoginDetails login;
    login.apiVersion = QStringLiteral("6.1");
    login.appMode = TELVIX::AppModeSrntMobile;
    login.exten = QStringLiteral("1000");
    login.ccRole = TELVIX::CallCenterRoleSupervisor;
    login.features = QStringList {QStringLiteral("MSGACK"), QString(), QStringLiteral("SMS")};
    login.firstName = QStringLiteral("Zoë \"Z\" Ångström");
    QTest::newRow("LoginDetails: enums, string list, unicode") << QVariant::fromValue(login) << false;

    IncomingCallEvent incoming;
    incoming.uid = QStringLiteral("1700000000.42");
    incoming.sipAccount = QStringLiteral("1000_app");
    incoming.remoteNum = QStringLiteral("anonymous");
    incoming.attributes = TELVIX::CallAttrFromIbl | TELVIX::CallAttrToQueue | TELVIX::CallAttrAnonymousCaller;
    incoming.queue = QStringLiteral("600");
    QTest::newRow("IncomingCallEvent: inherited fields, flag set") << QVariant::fromValue(incoming) << false;

    CdrEntry cdr;
    cdr.entryUid = QStringLiteral("1041");
    cdr.caller = QStringLiteral("1000");
    cdr.callee = QStringLiteral("0612345678");
    cdr.duration = 241;
    cdr.direction = 2;
    cdr.status = 8;
    cdr.attributes = TELVIX::CallAttrToObl;
    QTest::newRow("CdrEntry") << QVariant::fromValue(cdr) << true;

    VoicemailMessage vm;
    vm.id = QStringLiteral("1000-1");
    vm.date = at(18, 10, 2, 123, -5 * 3600 - 1800);
    vm.isNew = true;
    vm.duration = 23;
    QTest::newRow("VoicemailMessage: date with a negative offset") << QVariant::fromValue(vm) << true;

    PhoneBookEntry person;
    person.firstName = QStringLiteral("Laura");
    person.addContact(
        ContactEntry {PHONEBOOK::CTYPE_KIND_PHONE, PHONEBOOK::CTYPE_LABEL_WORK, QStringLiteral("061"), true});
    person.addContact(ContactEntry {PHONEBOOK::CTYPE_KIND_EMAIL, PHONEBOOK::CTYPE_LABEL_MAIN,
                                    QStringLiteral("l@x.example"), false});
    QTest::newRow("PhoneBookEntry: list of records inside") << QVariant::fromValue(person) << true;

    QueueStats queue;
    queue.queueId = QStringLiteral("600");
    queue.longestHoldTime = at(9, 0, 0, 0, 0);
    QueueOperatorStats op;
    op.member = QStringLiteral("SIP/1000");
    op.lastCall = QDateTime();
    op.statusAge = at(8, 59, 59, 999, 7200);
    queue.operators = {op, op};
    QTest::newRow("QueueStats: nested records, invalid date") << QVariant::fromValue(queue) << true;

    CallCenterReport report;
    report.data = QByteArray("\x00\x01\xfe\xff<xml/>", 10);
    report.format = QStringLiteral("xml");
    QTest::newRow("CallCenterReport: binary data") << QVariant::fromValue(report) << true;

    ServicesDialCodes codes;
    codes.codes.insert(TELVIX::ServiceOutboundPrefix, QStringLiteral("0"));
    codes.codes.insert(TELVIX::InCallAtXfer, QStringLiteral("*4"));
    QTest::newRow("ServicesDialCodes: maps keyed by an enumeration") << QVariant::fromValue(codes) << false;

    BuddyStatus status;
    status.exten = QStringLiteral("1001");
    status.blfStatus = TELVIX::BlfInUseRinging;
    status.presence = TELVIX::ChatPresenceInvalid;
    status.contacts = QStringList {QStringLiteral("1001"), QStringLiteral("1001_app")};
    QTest::newRow("status map") << QVariant::fromValue(QMap<QString, BuddyStatus> {{status.exten, status}})
                                << true;

    ServerCommandResponse answer;
    answer.requestId = QStringLiteral("r1");
    answer.exitCode = -3;
    answer.date = at(23, 59, 59, 0, 0).toUTC();
    QTest::newRow("ServerCommandResponse: UTC date, negative number") << QVariant::fromValue(answer) << true;

    QTest::newRow("QList<int>") << QVariant::fromValue(QList<int> {60, -1, 2147483647}) << true;
    QTest::newRow("queues to operators") << QVariant::fromValue(
        QMap<QString, QStringList> {{QStringLiteral("600"), {QStringLiteral("SIP/1000")}}})
                                         << true;
}

// A value written and read back is the same value, and writes the same text.
void tst_JsonConvert::roundTrip()
{
    QFETCH(QVariant, value);
    QFETCH(bool, comparable);

    const QJsonValue json = JsonConvert::toJson(value);
    QVERIFY2(!json.isNull(), qPrintable(QString::fromLatin1(value.typeName())));
    QString error;
    const QVariant back = JsonConvert::fromJson(json, value.userType(), &error);
    QVERIFY2(back.isValid(), qPrintable(error));
    QCOMPARE(back.userType(), value.userType());
    QCOMPARE(compact(JsonConvert::toJson(back)), compact(json));
    if (comparable)
        QVERIFY(back == value);
}

void tst_JsonConvert::writtenForm_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("json");

    QTest::newRow("date with milliseconds and offset")
        << QVariant(at(18, 10, 2, 123, 3600)) << QStringLiteral("\"2026-11-15T18:10:02.123+01:00\"");
    QTest::newRow("UTC date") << QVariant(at(18, 10, 2, 5, 0).toUTC())
                              << QStringLiteral("\"2026-11-15T18:10:02.005+00:00\"");
    QTest::newRow("invalid date") << QVariant(QDateTime()) << QStringLiteral("null");
    QTest::newRow("bytes as Base64") << QVariant(QByteArray("\x00\xff", 2)) << QStringLiteral("\"AP8=\"");
    QTest::newRow("enumeration as its number")
        << QVariant::fromValue(TELVIX::AppModeSrntMobilePhone) << QStringLiteral("7");
    QTest::newRow("negative enumeration") << QVariant::fromValue(TELVIX::BlfNotFound) << QStringLiteral("-1");
    QTest::newRow("flag set as its number")
        << QVariant::fromValue(TELVIX::CallAttributes(TELVIX::CallAttrFromIbl | TELVIX::CallAttrClickToCall))
        << QStringLiteral("1026");
    QTest::newRow("phone book types")
        << QVariant::fromValue(TELVIX::PhonebookTypeFlags(TELVIX::PhonebookTypeExtensions))
        << QStringLiteral("2");
    QTest::newRow("small unsigned number") << QVariant::fromValue(quint8(200)) << QStringLiteral("200");
    QTest::newRow("map keyed by an enumeration") << QVariant::fromValue(
        QMap<TELVIX::ServiceDialCodeType, QString> {{TELVIX::ServiceOutboundPrefix, "0"}})
                                                 << QStringLiteral("{\"21\":\"0\"}");
    QTest::newRow("list of strings") << QVariant(QStringList {QStringLiteral("a"), QString()})
                                     << QStringLiteral("[\"a\",\"\"]");
}

void tst_JsonConvert::writtenForm()
{
    QFETCH(QVariant, value);
    QFETCH(QString, json);
    QCOMPARE(compact(JsonConvert::toJson(value)), json);
}

// Keys are the records' field names, base class fields included.
void tst_JsonConvert::recordKeysAreFieldNames()
{
    AnsweredCallEvent answered;
    answered.remoteNum = QStringLiteral("1001");
    answered.localAnswer = true;
    const QJsonObject o = JsonConvert::toJson(QVariant::fromValue(answered)).toObject();
    QCOMPARE(o.keys(),
             (QStringList {"attributes", "calledNum", "localAnswer", "localChannel", "previousCallState",
                           "remoteChannel", "remoteName", "remoteNum", "sipAccount", "uid"}));
    QCOMPARE(o.value("remoteNum").toString(), QStringLiteral("1001"));
    QCOMPARE(o.value("previousCallState").toInt(), -1);
    QCOMPARE(o.value("localAnswer").toBool(), true);
}

// Whatever a method of Telvix takes or gives, and whatever a signal carries,
// can be printed and typed: its type is registered under the name the
// meta-object gives it, and a value of it survives the way through JSON.
void tst_JsonConvert::everyTypeOfTheInterfaceConverts()
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
            QString error;
            if (id == QMetaType::UnknownType)
                error = QStringLiteral("not registered");
            else if (!JsonConvert::fromJson(JsonConvert::toJson(QVariant(id, nullptr)), id, &error).isValid())
                error = QStringLiteral("does not read back: ") + error;
            if (!error.isEmpty())
                failures.append(
                    QStringLiteral("%1 in %2: %3")
                        .arg(QString::fromLatin1(name), QString::fromLatin1(m.methodSignature()), error));
        }
    }
    QVERIFY2(failures.isEmpty(), qPrintable(failures.join(QLatin1Char('\n'))));
    QVERIFY(checked > 100);
}

void tst_JsonConvert::refused_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("error");

    QTest::newRow("unknown field") << "{\"uid\":\"1\",\"remoteNumber\":\"2\"}"
                                   << qMetaTypeId<IncomingCallEvent>() << "has no field \"remoteNumber\"";
    QTest::newRow("number where text is wanted, nested")
        << "{\"contacts\":[{\"kind\":\"phone\"},{\"kind\":true}]}" << qMetaTypeId<PhoneBookEntry>()
        << "contacts[1].kind: expected a string";
    QTest::newRow("text for a number") << "\"12\"" << int(QMetaType::Int) << "expected a whole number";
    QTest::newRow("fraction for a number") << "1.5" << int(QMetaType::Int) << "expected a whole number";
    QTest::newRow("out of range") << "{\"sipTos\":300}" << qMetaTypeId<IdentityEntry>() << "out of range";
    QTest::newRow("not Base64") << "{\"data\":\"%%%\"}" << qMetaTypeId<CallCenterReport>() << "not Base64";
    QTest::newRow("not a date") << "{\"date\":\"yesterday\"}" << qMetaTypeId<VoicemailMessage>()
                                << "expected an ISO 8601 date and time";
    QTest::newRow("array for a record") << "[1]" << qMetaTypeId<CdrEntry>() << "expected an object";
    QTest::newRow("unknown enumeration key")
        << "\"AppModeFancy\"" << qMetaTypeId<TELVIX::AppMode>() << "expected a number";
}

// Input that does not fit is refused with a message that says where.
void tst_JsonConvert::refused()
{
    QFETCH(QString, json);
    QFETCH(int, type);
    QFETCH(QString, error);

    const QJsonDocument doc = QJsonDocument::fromJson("[" + json.toUtf8() + "]");
    QVERIFY(doc.isArray());
    QString why;
    QVERIFY(!JsonConvert::fromJson(doc.array().at(0), type, &why).isValid());
    QVERIFY2(why.contains(error), qPrintable(why));
}

QTEST_GUILESS_MAIN(tst_JsonConvert)
#include "tst_jsonconvert.moc"
