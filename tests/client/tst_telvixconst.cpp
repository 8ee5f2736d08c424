#include "telvix_const.h"

#include <QMetaEnum>
#include <QMetaType>
#include <QObject>
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

struct WireRow
{
    const char* enumeration;
    int value;
    const char* text;
};

// Rows that hold in both directions: the wire vocabulary itself.
const WireRow wireRows[] = {
    {"BlfStatus", -1, "NOTFOUND"},
    {"BlfStatus", 0, "IDLE"},
    {"BlfStatus", 1, "INUSE"},
    {"BlfStatus", 2, "BUSY"},
    {"BlfStatus", 8, "RINGING"},
    {"BlfStatus", 9, "INUSE_RINGING"},
    {"BlfStatus", 16, "ONHOLD"},
    {"BlfStatus", 17, "INUSE_ONHOLD"},
    {"DtmfMode", 1, "RFC2833"},
    {"DtmfMode", 2, "SIPINFO"},
    {"DtmfMode", 3, "INBAND"},
    {"MsgLevel", 0, "FATAL"},
    {"MsgLevel", 1, "CRITICAL"},
    {"MsgLevel", 2, "WARNING"},
    {"MsgLevel", 3, "INFO"},
    {"MsgLevel", 4, "DEBUG"},
    {"MsgLevel", 5, "USER REQUEST"},
    {"ChatPresence", 0, "ONLINE"},
    {"ChatPresence", 1, "AVAILABLE"},
    {"ChatPresence", 2, "AWAY"},
    {"ChatPresence", 3, "BUSY"},
    {"ChatPresence", 4, "XAWAY"},
    {"ChatPresence", 5, "OFFLINE"},
    {"VmMsgType", 0, "NEW"},
    {"VmMsgType", 1, "OLD"},
    {"VmMsgType", 2, "URGENT"},
    {"VmMsgTypeFlag", 1, "NEW"},
    {"VmMsgTypeFlag", 2, "OLD"},
    {"VmMsgTypeFlag", 4, "URGENT"},
    {"ContactType", 0, "exten"},
    {"ContactType", 1, "zarafa"},
    {"ContactType", 2, "gmail"},
    {"ContactType", 3, "linkedin"},
    {"ContactType", 4, "facebook"},
    {"ContactType", 5, "outlook"},
    {"ContactNumberType", 0, "WORK"},
    {"ContactNumberType", 1, "MOBILE"},
    {"ContactNumberType", 2, "HOME"},
    {"AppMode", 1, "srnt_pro"},
    {"AppMode", 2, "srnt_phone"},
    {"AppMode", 3, "atnd_cti"},
    {"AppMode", 4, "atnd_phone"},
    {"AppMode", 5, "srntlog"},
    {"AppMode", 6, "srnt_mobile"},
    {"AppMode", 7, "srnt_mobile_phone"},
    {"NotificationService", 1, "FIREBASE"},
    {"NotificationService", 2, "APPLEPUSHKIT"},
    {"NotificationService", 3, "APPLEPUSHKIT_DEV"},
    {"NotificationService", 4, "APNS"},
    {"NotificationService", 5, "APNS_DEV"},
    {"CallCenterRole", 1, "OPERATOR"},
    {"CallCenterRole", 2, "SUPERVISOR"},
    {"PeriodType", 0, "LASTHOUR"},
    {"PeriodType", 1, "TODAY"},
    {"PeriodType", 2, "CURRWEEK"},
    {"PeriodType", 3, "CURRMONTH"},
    {"PeriodType", 4, "30DAYS"},
    {"PeriodType", 5, "60DAYS"},
    {"PeriodType", 6, "90DAYS"},
    {"PeriodType", 7, "YESTERDAY"},
    {"PeriodType", 8, "PREVWEEK"},
    {"PeriodType", 9, "PREVMONTH"},
    {"PeriodType", 10, "CUSTOM"},
    {"QueueOperatorMembership", 0, "static"},
    {"QueueOperatorMembership", 1, "dynamic"},
};

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
    void serviceDialCodeGroups_data();
    void serviceDialCodeGroups();
    void callAttributeSingleFlags_data();
    void callAttributeSingleFlags();
    void callAttributeStringKeepsFixedOrder();
    void callAttributeValue_data();
    void callAttributeValue();
    void callAttributeRoundTripDropsFlagsWithoutText();
    void compareVersions_data();
    void compareVersions();
    void accountFromChannel_data();
    void accountFromChannel();
    void nameNumPairFromUri_data();
    void nameNumPairFromUri();
    void numAnonymous_data();
    void numAnonymous();
    void ipPort_data();
    void ipPort();
    void purifyNumRx_data();
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

    for (const WireRow& row : wireRows)
        addRow(row.enumeration, row.value, QString::fromLatin1(row.text));

    // Numbers outside the tables have no text.
    addRow("BlfStatus", 4, QString());
    addRow("BlfStatus", 3, QString());
    addRow("DtmfMode", 0, QString());
    addRow("MsgLevel", -1, QString());
    addRow("MsgLevel", 6, QString());
    addRow("ChatPresence", -1, QString());
    addRow("VmMsgType", -1, QString());
    addRow("VmMsgTypeFlag", 0, QString());
    addRow("VmMsgTypeFlag", 3, QString()); // single bits only
    addRow("VmMsgTypeFlag", 7, QString());
    addRow("ContactType", 7, QString());
    addRow("ContactType", -1, QString());
    addRow("ContactNumberType", -1, QString());
    addRow("AppMode", 0, QString());
    addRow("AppMode", -1, QString());
    addRow("AppMode", 8, QString());
    addRow("NotificationService", 0, QString());
    addRow("CallCenterRole", 0, QString());
    addRow("PeriodType", -1, QString());
    addRow("PeriodType", 11, QString());

    // The alias that is only written.
    addRow("ContactType", 6, QStringLiteral("exten"));
    // Membership has its own word for everything else.
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

    auto add = [](const char* enumeration, const QString& text, int value) {
        QTest::addRow("%s '%s'", enumeration, qPrintable(text))
            << QString::fromLatin1(enumeration) << text << value;
    };

    for (const WireRow& row : wireRows)
        add(row.enumeration, QString::fromLatin1(row.text), row.value);

    // Each enumeration has its own default for unknown text.
    add("BlfStatus", "SOMETHING", 4);
    add("BlfStatus", "", 4);
    add("BlfStatus", "idle", 4);
    add("DtmfMode", "rfc2833", 0);
    add("DtmfMode", "", 0);
    add("MsgLevel", "USER_REQUEST", -1);
    add("MsgLevel", "", -1);
    add("ChatPresence", "online", -1);
    add("VmMsgType", "new", -1);
    add("VmMsgType", "", -1);
    add("VmMsgTypeFlag", "", 7);
    add("VmMsgTypeFlag", "X", 0);
    add("VmMsgTypeFlag", "new", 0);
    add("VmMsgTypeFlag", "NEW,OLD", 0);
    add("ContactNumberType", "work", -1);
    add("AppMode", "", 0);
    add("AppMode", "x", -1);
    add("AppMode", "SRNT_PRO", -1);
    add("NotificationService", "x", 0);
    add("NotificationService", "", 0);
    add("NotificationService", "firebase", 0);
    add("CallCenterRole", "x", 0);
    add("CallCenterRole", "", 0);
    add("PeriodType", "today", -1);
    add("PeriodType", "", -1);
    add("QueueOperatorMembership", "None", -1);
    add("QueueOperatorMembership", "", -1);

    // Case handling differs too: contact type lower-cases, role upper-cases,
    // membership compares without case.
    add("ContactType", "OUTLOOK", 5);
    add("ContactType", "Gmail", 2);
    add("ContactType", "EXTEN", 0);
    add("ContactType", "myspace", 1);
    add("ContactType", "", 1);
    add("CallCenterRole", "operator", 1);
    add("CallCenterRole", "Supervisor", 2);
    add("QueueOperatorMembership", "DYNAMIC", 1);
    add("QueueOperatorMembership", "Static", 0);
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

    const char* texts[] = {"echo",
                           "voicemail",
                           "conference",
                           "disa",
                           "pickUp",
                           "parkcode",
                           "parkFirstSlot",
                           "parkLastSlot",
                           "directPickUp",
                           "ufwdSet",
                           "ufwdUnset",
                           "speedDial",
                           "speedDialPers",
                           "superDirectPickUp",
                           "superGroupPickUp",
                           "spy",
                           "forkMobileSet",
                           "forkMobileUnset",
                           "electLock",
                           "electUnlock",
                           "outboundPrefix",
                           "atXfer",
                           "atXferCancel",
                           "atXferShuttle",
                           "atXfer3Conf",
                           "blindXfer",
                           "fastTransfer",
                           "recording",
                           "parking",
                           "cancel"};
    int type = 1;
    for (const char* text : texts) {
        QTest::addRow("%d", type) << type << QString::fromLatin1(text);
        ++type;
    }
    QTest::newRow("0") << 0 << QString();
    QTest::newRow("31") << 31 << QString();
}

void TestTelvixConst::serviceDialCodes()
{
    QFETCH(int, type);
    QFETCH(QString, text);
    QCOMPARE(serviceDialCodeTypeToString(ServiceDialCodeType(type)), text);
}

void TestTelvixConst::serviceDialCodeGroups_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("numberingPlan");
    QTest::addColumn<bool>("inCall");

    QTest::newRow("0") << 0 << false << false;
    QTest::newRow("1") << 1 << true << false;
    QTest::newRow("21") << 21 << true << false;
    QTest::newRow("22") << 22 << false << true;
    QTest::newRow("30") << 30 << false << true;
    QTest::newRow("31") << 31 << false << false;
}

void TestTelvixConst::serviceDialCodeGroups()
{
    QFETCH(int, type);
    QFETCH(bool, numberingPlan);
    QFETCH(bool, inCall);
    QCOMPARE(isNumberingPlanServiceDialCode(ServiceDialCodeType(type)), numberingPlan);
    QCOMPARE(isInCallServiceDialCode(ServiceDialCodeType(type)), inCall);
}

void TestTelvixConst::callAttributeSingleFlags_data()
{
    QTest::addColumn<int>("flag");
    QTest::addColumn<QString>("text");

    const QPair<int, const char*> rows[] = {
        {0x1, "from_local_exten"},
        {0x2, "from_ibl"},
        {0x4, "from_remote_exten"},
        {0x8, "to_remote_exten"},
        {0x10, "to_local_exten"},
        {0x20, "to_obl"},
        {0x40, "to_queue"},
        {0x80, "to_callg"},
        {0x100, "to_service"},
        {0x200, ""},
        {0x400, ""},
        {0x800, ""},
        {0x1000, "from_conference"},
        {0x2000, "to_app"},
        {0x4000, "to_mobile_exten"},
        {0x8000, "to_fax"},
        {0x10000, "to_ivr"},
        {0x20000, "to_external_number"},
        {0x40000, "to_lcr"},
        {0x80000, "from_app"},
        {0x100000, "from_mobile_exten"},
        {0x200000, "from_fax"},
    };
    for (const auto& row : rows)
        QTest::addRow("0x%x", row.first) << row.first << QString::fromLatin1(row.second);
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

void TestTelvixConst::callAttributeRoundTripDropsFlagsWithoutText()
{
    const QFlags<CallAttribute> all(0x3fffff);
    const QFlags<CallAttribute> withoutText
        = CallAttrReturnFromTransfer | CallAttrClickToCall | CallAttrAnonymousCaller;
    QCOMPARE(getCallAttributeValue(getCallAttributeString(all)), all & ~withoutText);

    const QFlags<CallAttribute> some = CallAttrToObl | CallAttrFromRemoteExten | CallAttrToMobileExten;
    QCOMPARE(getCallAttributeValue(getCallAttributeString(some)), some);
}

void TestTelvixConst::compareVersions_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("result");

    QTest::newRow("numeric, not textual") << "5.10"
                                          << "5.2" << 1;
    QTest::newRow("numeric reversed") << "5.2"
                                      << "5.10" << -1;
    QTest::newRow("equal") << "4.2"
                           << "4.2" << 0;
    QTest::newRow("major") << "6.1"
                           << "5.9" << 1;
    QTest::newRow("prefix is greater") << "5.2"
                                       << "5.2.1" << 1;
    QTest::newRow("longer is smaller") << "1.2.3"
                                       << "1.2" << -1;
    QTest::newRow("text parts") << "1.x"
                                << "1.y" << -1;
    QTest::newRow("text against number") << "1.a"
                                         << "1.2" << 1;
    QTest::newRow("dash separates") << "6.1-2"
                                    << "6.1.10" << -1;
    QTest::newRow("comma separates") << "4,2"
                                     << "4.2" << 0;
    QTest::newRow("other characters do not") << "4;2"
                                             << "4.2" << 1;
    QTest::newRow("empty parts kept") << "1..2"
                                      << "1.0.2" << -1;
    QTest::newRow("both empty") << ""
                                << "" << 0;
    QTest::newRow("suffix after prefix") << "6.1"
                                         << "6.1-beta" << 1;
    QTest::newRow("leading zeros") << "5.02"
                                   << "5.2" << 0;
}

void TestTelvixConst::compareVersions()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, result);
    QCOMPARE(TELVIX::compareVersions(a, b), result);
}

void TestTelvixConst::accountFromChannel_data()
{
    QTest::addColumn<QString>("channel");
    QTest::addColumn<QString>("account");

    // The cut positions come from the whole channel, so the suffix survives by
    // as many characters as the technology prefix is long.
    QTest::newRow("sip") << "SIP/1000-0000abcd"
                         << "1000-000";
    QTest::newRow("longer prefix") << "IAX2/200-0000abcd"
                                   << "200-0000";
    QTest::newRow("short suffix stays") << "IAX2/200-1"
                                        << "200-1";
    QTest::newRow("no suffix") << "SIP/1000"
                               << "1000";
    QTest::newRow("at sign") << "SIP/1000@ctx-0001"
                             << "1000@ctx";
    QTest::newRow("local channel") << "Local/1000@from-internal-00000a1b;1"
                                   << "1000@from-";
    QTest::newRow("dash in account") << "SIP/trunk-out-000001f"
                                     << "trunk-out-000";
    QTest::newRow("no slash") << "nochannel"
                              << "";
    QTest::newRow("empty") << ""
                           << "";
}

void TestTelvixConst::accountFromChannel()
{
    QFETCH(QString, channel);
    QFETCH(QString, account);
    QCOMPARE(getAccountFromChannel(channel), account);
}

void TestTelvixConst::nameNumPairFromUri_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("number");

    QTest::newRow("display name") << "\"Alice Smith\" <sip:1000@host>"
                                  << "Alice Smith"
                                  << "1000";
    QTest::newRow("bare") << "1000@host"
                          << "Unknown"
                          << "1000";
    QTest::newRow("letters only") << "sip:abc@host"
                                  << "Anonymous"
                                  << "anonymous";
    QTest::newRow("hidden caller") << "\"Bob\" <sip:Anonymous@host>"
                                   << "Anonymous"
                                   << "anonymous";
    QTest::newRow("empty") << ""
                           << "Anonymous"
                           << "anonymous";
    QTest::newRow("brackets only") << "<sip:+39 02-123@x>"
                                   << "Unknown"
                                   << "+3902123";
    QTest::newRow("dial characters kept") << "\"A\" <sip:1*2#3@h>"
                                          << "A"
                                          << "1*2#3";
    QTest::newRow("outer blanks trimmed") << "  \"Q\" <sip:12@x>  "
                                          << "Q"
                                          << "12";
    QTest::newRow("two blanks before bracket") << "\"Q\"  <sip:12@x>"
                                               << "Unknown"
                                               << "12";
    QTest::newRow("empty display name") << "\"\" <sip:12@x>"
                                        << "Unknown"
                                        << "12";
    QTest::newRow("uri parameters") << "\"N\" <sip:500@h;user=phone>"
                                    << "N"
                                    << "500";
    QTest::newRow("no at sign") << "tel:555"
                                << "Unknown"
                                << "555";
}

void TestTelvixConst::nameNumPairFromUri()
{
    QFETCH(QString, uri);
    QFETCH(QString, name);
    QFETCH(QString, number);
    const auto pair = getNameNumPairFromUri(uri);
    QCOMPARE(pair.first, name);
    QCOMPARE(pair.second, number);
}

void TestTelvixConst::numAnonymous_data()
{
    QTest::addColumn<QString>("number");
    QTest::addColumn<bool>("anonymous");

    QTest::newRow("uri any case") << "sip:Anonymous@invalid" << true;
    QTest::newRow("upper") << "ANONYMOUS" << true;
    QTest::newRow("number") << "1000" << false;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("partial") << "anonym" << false;
}

void TestTelvixConst::numAnonymous()
{
    QFETCH(QString, number);
    QFETCH(bool, anonymous);
    QCOMPARE(isNumAnonymous(number), anonymous);
}

void TestTelvixConst::ipPort_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("host");
    QTest::addColumn<int>("port");

    QTest::newRow("host and port") << "host:5060"
                                   << "host" << 5060;
    QTest::newRow("host") << "host"
                          << "host" << 0;
    QTest::newRow("port too large") << "host:99999"
                                    << "host" << 0;
    QTest::newRow("largest port") << "h:65535"
                                  << "h" << 65535;
    QTest::newRow("ipv4") << "192.0.2.1:5039"
                          << "192.0.2.1" << 5039;
    QTest::newRow("ipv6 loopback") << "::1"
                                   << "::1" << 0;
    QTest::newRow("ipv6 double colon") << "fe80::1"
                                       << "fe80::1" << 0;
    QTest::newRow("bracketed ipv6") << "[::1]:5060"
                                    << "[::1]" << 5060;
    QTest::newRow("last colon splits") << "a:b:70"
                                       << "a:b" << 70;
    QTest::newRow("empty port") << "host:"
                                << "host:" << 0;
    QTest::newRow("sign is not a digit") << "h:+5"
                                         << "h:+5" << 0;
}

void TestTelvixConst::ipPort()
{
    QFETCH(QString, address);
    QFETCH(QString, host);
    QFETCH(int, port);
    const QPair<QString, quint16> result = getIpPort(address);
    QCOMPARE(result.first, host);
    QCOMPARE(int(result.second), port);
}

void TestTelvixConst::purifyNumRx_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("purified");

    QTest::newRow("punctuation") << "+39 (02) 123-456.78/9\\0,1"
                                 << "+390212345678901";
    QTest::newRow("tab and newline") << "12\t34\n5"
                                     << "12345";
    QTest::newRow("letters and dial characters stay") << "*72#ab;"
                                                      << "*72#ab;";
}

void TestTelvixConst::purifyNumRx()
{
    QFETCH(QString, typed);
    QFETCH(QString, purified);
    QCOMPARE(QString(typed).remove(PurifyNumRx), purified);
    QCOMPARE(PurifyNumRx.caseSensitivity(), Qt::CaseSensitive);
    QCOMPARE(PurifyNumRx.pattern(), QStringLiteral("[\\(\\)\\s-,\\.\\/\\\\]"));
}

void TestTelvixConst::enumerationsAreIntrospectable()
{
    // The names travel in queued calls and in the command-line client's JSON.
    const char* names[] = {"TELVIX::BlfStatus",
                           "TELVIX::DtmfMode",
                           "TELVIX::MsgLevel",
                           "TELVIX::ChatPresence",
                           "TELVIX::VmMsgType",
                           "TELVIX::VmMsgTypeFlag",
                           "TELVIX::ContactType",
                           "TELVIX::ContactNumberType",
                           "TELVIX::AppMode",
                           "TELVIX::NotificationService",
                           "TELVIX::CallCenterRole",
                           "TELVIX::PeriodType",
                           "TELVIX::QueueOperatorMembership",
                           "TELVIX::ServiceDialCodeType",
                           "TELVIX::NumberOutgoingPrefix",
                           "TELVIX::PhonebookTypeFlags",
                           "QFlags<TELVIX::PhonebookTypeFlag>",
                           "TELVIX::CallAttributes",
                           "QFlags<TELVIX::CallAttribute>"};
    for (const char* name : names)
        QVERIFY2(QMetaType::type(name) != QMetaType::UnknownType, name);

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
