#include "telvix_const.h"

#include <QMetaEnum>
#include <QMetaType>
#include <QObject>
#include <QRegularExpression>
#include <QTest>

#include <functional>

using namespace TELVIX;

namespace {

// Each enumeration seen through its two conversions, as plain ints, so that
// one data table can cover all of them.
struct Conversion
{
    std::function<QString(int)> toText;
    std::function<int(const QString&)> fromText;
};

template <typename E> Conversion conversion(QString (*toText)(E), E (*fromText)(const QString&))
{
    return {[toText](int v) { return toText(E(v)); },
            [fromText](const QString& t) { return int(fromText(t)); }};
}

const QHash<QString, Conversion>& conversions()
{
    static const QHash<QString, Conversion> all = {
        {"BlfStatus", conversion(blfStatusToString, blfStatusFromString)},
        {"DtmfMode", conversion(dtmfModeToString, dtmfModeFromString)},
        {"MsgLevel", conversion(msgLevelToString, msgLevelFromString)},
        {"ChatPresence", conversion(chatPresenceToString, chatPresenceFromString)},
        {"VmMsgType", conversion(vmMsgTypeToString, vmMsgTypeFromString)},
        {"VmMsgTypeFlag", conversion(vmMsgTypeFlagToString, vmMsgTypeFlagFromString)},
        {"ContactType", conversion(contactTypeToString, contactTypeFromString)},
        {"ContactNumberType", conversion(numTypeToString, numTypeFromString)},
        {"AppMode", conversion(appModeToString, appModeFromString)},
        {"NotificationService", conversion(notificationServiceToString, notificationServiceFromString)},
        {"CallCenterRole", conversion(callCenterRoleToString, callCenterRoleFromString)},
        {"PeriodType", conversion(periodTypeToString, periodTypeFromString)},
        {"QueueOperatorMembership",
         conversion(queueOperatorMembershipToString, queueOperatorMembershipFromString)},
    };
    return all;
}

// The wire vocabulary, "value=TEXT" pairs that hold in both directions.
const QPair<const char*, const char*> wireTables[] = {
    {"BlfStatus", "-1=NOTFOUND;0=IDLE;1=INUSE;2=BUSY;8=RINGING;9=INUSE_RINGING;16=ONHOLD;17=INUSE_ONHOLD"},
    {"DtmfMode", "1=RFC2833;2=SIPINFO;3=INBAND"},
    {"MsgLevel", "0=FATAL;1=CRITICAL;2=WARNING;3=INFO;4=DEBUG;5=USER REQUEST"},
    {"ChatPresence", "0=ONLINE;1=AVAILABLE;2=AWAY;3=BUSY;4=XAWAY;5=OFFLINE"},
    {"VmMsgType", "0=NEW;1=OLD;2=URGENT"},
    {"VmMsgTypeFlag", "1=NEW;2=OLD;4=URGENT"},
    {"ContactType", "0=exten;1=zarafa;2=gmail;3=linkedin;4=facebook;5=outlook"},
    {"ContactNumberType", "0=WORK;1=MOBILE;2=HOME"},
    {"AppMode",
     "1=srnt_pro;2=srnt_phone;3=atnd_cti;4=atnd_phone;5=srntlog;6=srnt_mobile;7=srnt_mobile_phone"},
    {"NotificationService", "1=FIREBASE;2=APPLEPUSHKIT;3=APPLEPUSHKIT_DEV;4=APNS;5=APNS_DEV"},
    {"CallCenterRole", "1=OPERATOR;2=SUPERVISOR"},
    {"PeriodType",
     "0=LASTHOUR;1=TODAY;2=CURRWEEK;3=CURRMONTH;4=30DAYS;5=60DAYS;6=90DAYS;7=YESTERDAY;8=PREVWEEK;"
     "9=PREVMONTH;10=CUSTOM"},
    {"QueueOperatorMembership", "0=static;1=dynamic"},
};

/// Calls `add(enumeration, value, text)` for every wire pair.
template <typename Add> void forEachWirePair(Add add)
{
    for (const auto& table : wireTables)
        for (const QString& pair : QString::fromLatin1(table.second).split(QLatin1Char(';'))) {
            const int eq = pair.indexOf(QLatin1Char('='));
            add(table.first, pair.left(eq).toInt(), pair.mid(eq + 1));
        }
}

void addRow(const char* enumeration, int value, const QString& text)
{
    QTest::addRow("%s %d '%s'", enumeration, value, qPrintable(text))
        << QString::fromLatin1(enumeration) << value << text;
}

} // namespace

class TestTelvixConst : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    void receiveFlags(QFlags<TELVIX::PhonebookTypeFlag> flags) { m_receivedFlags = flags; }
    void receiveAppMode(TELVIX::AppMode mode) { m_receivedMode = mode; }

private Q_SLOTS:
    void toString_data();
    void toString();
    void fromString_data();
    void fromString();
    void serviceDialCodes_data();
    void serviceDialCodes();
    void callAttributeSingleFlags_data();
    void callAttributeSingleFlags();
    void callAttributeStringKeepsFixedOrder();
    void callAttributeValue_data();
    void callAttributeValue();
    void textHelpers_data();
    void textHelpers();
    void purifyNumRx();
    void enumerationsAreIntrospectable();
    void flagSetsTravelThroughQueuedCalls();

private:
    QFlags<TELVIX::PhonebookTypeFlag> m_receivedFlags;
    TELVIX::AppMode m_receivedMode = TELVIX::AppModeInvalid;
};

void TestTelvixConst::toString_data()
{
    QTest::addColumn<QString>("enumeration");
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("text");
    forEachWirePair(addRow);

    // Numbers outside the tables have no text (VmMsgTypeFlag: single bits only).
    const QPair<const char*, QList<int>> noText[]
        = {{"BlfStatus", {4, 3}},        {"DtmfMode", {0}},           {"MsgLevel", {-1, 6}},
           {"ChatPresence", {-1}},       {"VmMsgType", {-1}},         {"VmMsgTypeFlag", {0, 3, 7}},
           {"ContactType", {7, -1}},     {"ContactNumberType", {-1}}, {"AppMode", {0, -1, 8}},
           {"NotificationService", {0}}, {"CallCenterRole", {0}},     {"PeriodType", {-1, 11}}};
    for (const auto& row : noText)
        for (int value : row.second)
            addRow(row.first, value, QString());
    // The alias that is only written, and membership's own word for everything else.
    addRow("ContactType", 6, QStringLiteral("exten"));
    addRow("QueueOperatorMembership", -1, QStringLiteral("None"));
    addRow("QueueOperatorMembership", 2, QStringLiteral("None"));
}

void TestTelvixConst::toString()
{
    QFETCH(QString, enumeration);
    QFETCH(int, value);
    QFETCH(QString, text);
    QCOMPARE(conversions().value(enumeration).toText(value), text);
}

void TestTelvixConst::fromString_data()
{
    QTest::addColumn<QString>("enumeration");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("value");
    const auto add = [](const char* enumeration, const QStringList& texts, int value) {
        for (const QString& text : texts)
            QTest::addRow("%s '%s'", enumeration, qPrintable(text))
                << QString::fromLatin1(enumeration) << text << value;
    };
    forEachWirePair([&](const char* e, int value, const QString& text) { add(e, {text}, value); });

    // Each enumeration has its own default for unknown text.
    add("BlfStatus", {"SOMETHING", "", "idle"}, 4);
    add("DtmfMode", {"rfc2833", ""}, 0);
    add("MsgLevel", {"USER_REQUEST", ""}, -1);
    add("ChatPresence", {"online"}, -1);
    add("VmMsgType", {"new", ""}, -1);
    add("VmMsgTypeFlag", {""}, 7);
    add("VmMsgTypeFlag", {"X", "new", "NEW,OLD"}, 0);
    add("ContactNumberType", {"work"}, -1);
    add("AppMode", {""}, 0);
    add("AppMode", {"x", "SRNT_PRO"}, -1);
    add("NotificationService", {"x", "", "firebase"}, 0);
    add("CallCenterRole", {"x", ""}, 0);
    add("PeriodType", {"today", ""}, -1);
    add("QueueOperatorMembership", {"None", ""}, -1);

    // Case handling differs too: contact type lower-cases, role upper-cases,
    // membership compares without case.
    add("ContactType", {"OUTLOOK"}, 5);
    add("ContactType", {"Gmail"}, 2);
    add("ContactType", {"EXTEN"}, 0);
    add("ContactType", {"myspace", ""}, 1);
    add("CallCenterRole", {"operator"}, 1);
    add("CallCenterRole", {"Supervisor"}, 2);
    add("QueueOperatorMembership", {"DYNAMIC"}, 1);
    add("QueueOperatorMembership", {"Static"}, 0);
}

void TestTelvixConst::fromString()
{
    QFETCH(QString, enumeration);
    QFETCH(QString, text);
    QFETCH(int, value);
    QCOMPARE(conversions().value(enumeration).fromText(text), value);
}

void TestTelvixConst::serviceDialCodes_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("numberingPlan");
    QTest::addColumn<bool>("inCall");

    const QStringList texts
        = QStringLiteral(
              "echo voicemail conference disa pickUp parkcode parkFirstSlot parkLastSlot directPickUp "
              "ufwdSet "
              "ufwdUnset speedDial speedDialPers superDirectPickUp superGroupPickUp spy forkMobileSet "
              "forkMobileUnset electLock electUnlock outboundPrefix atXfer atXferCancel atXferShuttle "
              "atXfer3Conf "
              "blindXfer fastTransfer recording parking cancel")
              .split(QLatin1Char(' '));
    // Numbering-plan codes are 1..21, in-call codes 22..30.
    for (int type = 0; type <= 31; ++type)
        QTest::addRow("%d", type) << type << texts.value(type - 1) << (type >= 1 && type <= 21)
                                  << (type >= 22 && type <= 30);
}

void TestTelvixConst::serviceDialCodes()
{
    QFETCH(int, type);
    QFETCH(QString, text);
    QFETCH(bool, numberingPlan);
    QFETCH(bool, inCall);
    QCOMPARE(serviceDialCodeTypeToString(ServiceDialCodeType(type)), text);
    QCOMPARE(isNumberingPlanServiceDialCode(ServiceDialCodeType(type)), numberingPlan);
    QCOMPARE(isInCallServiceDialCode(ServiceDialCodeType(type)), inCall);
}

void TestTelvixConst::callAttributeSingleFlags_data()
{
    QTest::addColumn<int>("flag");
    QTest::addColumn<QString>("text");

    // By bit, lowest first; "-" marks the three flags without text.
    const QStringList texts
        = QStringLiteral("from_local_exten from_ibl from_remote_exten to_remote_exten to_local_exten to_obl "
                         "to_queue to_callg to_service - - - from_conference to_app to_mobile_exten to_fax "
                         "to_ivr to_external_number to_lcr from_app from_mobile_exten from_fax")
              .split(QLatin1Char(' '));
    for (int bit = 0; bit < texts.size(); ++bit)
        QTest::addRow("0x%x", 1 << bit)
            << (1 << bit) << (texts.at(bit) == QLatin1String("-") ? QString() : texts.at(bit));
}

void TestTelvixConst::callAttributeSingleFlags()
{
    QFETCH(int, flag);
    QFETCH(QString, text);
    const auto attributes = QFlags<CallAttribute>(flag);
    QCOMPARE(getCallAttributeString(attributes), text);
    if (!text.isEmpty())
        QCOMPARE(int(getCallAttributeValue(text)), flag);
}

void TestTelvixConst::callAttributeStringKeepsFixedOrder()
{
    // Every bit set: the order is the fixed one, not the order of the values.
    const QString all = getCallAttributeString(QFlags<CallAttribute>(0x3fffff));
    QCOMPARE(all,
             QStringLiteral("from_local_exten,to_local_exten,from_ibl,to_obl,to_callg,to_queue,"
                            "from_conference,to_service,from_remote_exten,to_remote_exten,from_app,"
                            "from_mobile_exten,from_fax,to_app,to_mobile_exten,to_fax,to_ivr,"
                            "to_external_number,to_lcr"));

    QCOMPARE(getCallAttributeString(CallAttrToQueue | CallAttrFromIbl), QStringLiteral("from_ibl,to_queue"));
    QCOMPARE(getCallAttributeString(CallAttrToLcr | CallAttrFromLocalExten | CallAttrClickToCall),
             QStringLiteral("from_local_exten,to_lcr"));
    QCOMPARE(getCallAttributeString({}), QString());
    QVERIFY(!getCallAttributeString(CallAttrFromApp).endsWith(QLatin1Char(',')));

    // Round trip: only the three flags without text are lost.
    const QFlags<CallAttribute> withoutText
        = CallAttrReturnFromTransfer | CallAttrClickToCall | CallAttrAnonymousCaller;
    QCOMPARE(getCallAttributeValue(all), QFlags<CallAttribute>(0x3fffff) & ~withoutText);
}

void TestTelvixConst::callAttributeValue_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("value");

    QTest::newRow("empty parts and bogus ignored") << "to_queue,,bogus,from_ibl" << 0x42;
    QTest::newRow("empty") << "" << 0;
    QTest::newRow("only commas") << ",,," << 0;
    QTest::newRow("case sensitive") << "TO_QUEUE" << 0;
    QTest::newRow("no trimming") << "to_queue, from_ibl" << 0x40;
    QTest::newRow("repeated") << "to_fax,to_fax" << 0x8000;
    QTest::newRow("trailing comma") << "from_fax,to_ivr," << 0x210000;
}

void TestTelvixConst::callAttributeValue()
{
    QFETCH(QString, text);
    QFETCH(int, value);
    QCOMPARE(int(getCallAttributeValue(text)), value);
}

void TestTelvixConst::textHelpers_data()
{
    QTest::addColumn<QString>("helper");
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("other");
    QTest::addColumn<QString>("expected");
    const auto add = [](const char* helper, const char* name, const char* input, const char* other,
                        const QString& expected) {
        QTest::addRow("%s: %s", helper, name) << QString::fromLatin1(helper) << QString::fromLatin1(input)
                                              << QString::fromLatin1(other) << expected;
    };
    const auto version = [&](const char* name, const char* a, const char* b, int result) {
        add("compareVersions", name, a, b, QString::number(result));
    };
    version("numeric, not textual", "5.10", "5.2", 1);
    version("numeric reversed", "5.2", "5.10", -1);
    version("equal", "4.2", "4.2", 0);
    version("major", "6.1", "5.9", 1);
    version("prefix is greater", "5.2", "5.2.1", 1);
    version("longer is smaller", "1.2.3", "1.2", -1);
    version("text parts", "1.x", "1.y", -1);
    version("text against number", "1.a", "1.2", 1);
    version("dash separates", "6.1-2", "6.1.10", -1);
    version("comma separates", "4,2", "4.2", 0);
    version("other characters do not", "4;2", "4.2", 1);
    version("empty parts kept", "1..2", "1.0.2", -1);
    version("both empty", "", "", 0);
    version("suffix after prefix", "6.1", "6.1-beta", 1);
    version("leading zeros", "5.02", "5.2", 0);

    // The cut positions come from the whole channel, so the suffix survives by
    // as many characters as the technology prefix is long.
    const auto account = [&](const char* name, const char* channel, const char* result) {
        add("getAccountFromChannel", name, channel, "", QString::fromLatin1(result));
    };
    account("sip", "SIP/1000-0000abcd", "1000-000");
    account("longer prefix", "IAX2/200-0000abcd", "200-0000");
    account("short suffix stays", "IAX2/200-1", "200-1");
    account("no suffix", "SIP/1000", "1000");
    account("at sign", "SIP/1000@ctx-0001", "1000@ctx");
    account("local channel", "Local/1000@from-internal-00000a1b;1", "1000@from-");
    account("dash in account", "SIP/trunk-out-000001f", "trunk-out-000");
    account("no slash", "nochannel", "");
    account("empty", "", "");

    const auto uri = [&](const char* name, const char* input, const char* display, const char* number) {
        add("getNameNumPairFromUri", name, input, "", QStringLiteral("%1|%2").arg(display, number));
    };
    uri("display name", "\"Alice Smith\" <sip:1000@host>", "Alice Smith", "1000");
    uri("bare", "1000@host", "Unknown", "1000");
    uri("letters only", "sip:abc@host", "Anonymous", "anonymous");
    uri("hidden caller", "\"Bob\" <sip:Anonymous@host>", "Anonymous", "anonymous");
    uri("empty", "", "Anonymous", "anonymous");
    uri("brackets only", "<sip:+39 02-123@x>", "Unknown", "+3902123");
    uri("dial characters kept", "\"A\" <sip:1*2#3@h>", "A", "1*2#3");
    uri("outer blanks trimmed", "  \"Q\" <sip:12@x>  ", "Q", "12");
    uri("two blanks before bracket", "\"Q\"  <sip:12@x>", "Unknown", "12");
    uri("empty display name", "\"\" <sip:12@x>", "Unknown", "12");
    uri("uri parameters", "\"N\" <sip:500@h;user=phone>", "N", "500");
    uri("no at sign", "tel:555", "Unknown", "555");

    const auto anonymous = [&](const char* name, const char* number, bool result) {
        add("isNumAnonymous", name, number, "", result ? "true" : "false");
    };
    anonymous("uri any case", "sip:Anonymous@invalid", true);
    anonymous("upper", "ANONYMOUS", true);
    anonymous("number", "1000", false);
    anonymous("empty", "", false);
    anonymous("partial", "anonym", false);

    const auto ipPort = [&](const char* name, const char* address, const char* host, int port) {
        add("getIpPort", name, address, "", QStringLiteral("%1|%2").arg(QLatin1String(host)).arg(port));
    };
    ipPort("host and port", "host:5060", "host", 5060);
    ipPort("host", "host", "host", 0);
    ipPort("port too large", "host:99999", "host", 0);
    ipPort("largest port", "h:65535", "h", 65535);
    ipPort("ipv4", "192.0.2.1:5039", "192.0.2.1", 5039);
    ipPort("ipv6 loopback", "::1", "::1", 0);
    ipPort("ipv6 double colon", "fe80::1", "fe80::1", 0);
    ipPort("bracketed ipv6", "[::1]:5060", "[::1]", 5060);
    ipPort("last colon splits", "a:b:70", "a:b", 70);
    ipPort("empty port", "host:", "host:", 0);
    ipPort("sign is not a digit", "h:+5", "h:+5", 0);
}

void TestTelvixConst::textHelpers()
{
    QFETCH(QString, helper);
    QFETCH(QString, input);
    QFETCH(QString, other);
    QFETCH(QString, expected);
    QString result;
    if (helper == QLatin1String("compareVersions")) {
        result = QString::number(TELVIX::compareVersions(input, other));
    } else if (helper == QLatin1String("getAccountFromChannel")) {
        result = getAccountFromChannel(input);
    } else if (helper == QLatin1String("getNameNumPairFromUri")) {
        const auto pair = getNameNumPairFromUri(input);
        result = pair.first + QLatin1Char('|') + pair.second;
    } else if (helper == QLatin1String("isNumAnonymous")) {
        result = isNumAnonymous(input) ? QStringLiteral("true") : QStringLiteral("false");
    } else {
        const QPair<QString, quint16> pair = getIpPort(input);
        result = pair.first + QLatin1Char('|') + QString::number(pair.second);
    }
    QCOMPARE(result, expected);
}

void TestTelvixConst::purifyNumRx()
{
    QCOMPARE(QStringLiteral("+39 (02) 123-456.78/9\\0,1").remove(PurifyNumRx),
             QStringLiteral("+390212345678901"));
    QCOMPARE(QStringLiteral("12\t34\n5").remove(PurifyNumRx), QStringLiteral("12345"));
    // Letters and dial characters stay.
    QCOMPARE(QStringLiteral("*72#ab;").remove(PurifyNumRx), QStringLiteral("*72#ab;"));
    QCOMPARE(PurifyNumRx.caseSensitivity(), Qt::CaseSensitive);
    QCOMPARE(PurifyNumRx.pattern(), QStringLiteral("[\\(\\)\\s-,\\.\\/\\\\]"));
}

void TestTelvixConst::enumerationsAreIntrospectable()
{
    // The names travel in queued calls and in the command-line client's JSON.
    const QStringList names
        = QStringLiteral(
              "BlfStatus DtmfMode MsgLevel ChatPresence VmMsgType VmMsgTypeFlag ContactType "
              "ContactNumberType AppMode "
              "NotificationService CallCenterRole PeriodType QueueOperatorMembership ServiceDialCodeType "
              "NumberOutgoingPrefix PhonebookTypeFlags CallAttributes")
              .split(QLatin1Char(' '));
    for (const QString& name : names + QStringList {"QFlags<PhonebookTypeFlag>", "QFlags<CallAttribute>"}) {
        const QByteArray full
            = QString(name).replace(QRegularExpression("^(QFlags<)?"), "\\1TELVIX::").toLatin1();
        QVERIFY2(QMetaType::type(full) != QMetaType::UnknownType, full.constData());
    }

    const QMetaEnum appMode = QMetaEnum::fromType<AppMode>();
    QVERIFY(appMode.isValid());
    QCOMPARE(appMode.keyCount(), 9);
    QCOMPARE(appMode.value(appMode.keyCount() - 1), 7);
    QVERIFY(QMetaEnum::fromType<CallAttributes>().isFlag());
    QVERIFY(QMetaEnum::fromType<PhonebookTypeFlags>().isFlag());
}

void TestTelvixConst::flagSetsTravelThroughQueuedCalls()
{
    // A queued call looks argument types up by their spelled-out names.
    const QFlags<TELVIX::PhonebookTypeFlag> flags = PhonebookTypePhonebooks | PhonebookTypeExtensions;
    QVERIFY(QMetaObject::invokeMethod(this, "receiveFlags", Qt::QueuedConnection,
                                      Q_ARG(QFlags<TELVIX::PhonebookTypeFlag>, flags)));
    QVERIFY(QMetaObject::invokeMethod(this, "receiveAppMode", Qt::QueuedConnection,
                                      Q_ARG(TELVIX::AppMode, TELVIX::AppModeSrntMobilePhone)));
    QTRY_COMPARE(m_receivedMode, TELVIX::AppModeSrntMobilePhone);
    QCOMPARE(int(m_receivedFlags), 3);
}

QTEST_GUILESS_MAIN(TestTelvixConst)
#include "tst_telvixconst.moc"
