#include "directorymessages.h"
#include "messagetestutil.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"

#include <QtTest>

using namespace MessageTestUtil;

namespace {

// One "Peer" of a "PeerStatusList" as a current server sends it.
QString fullIdentityXml(const QString& name)
{
    return QStringLiteral(
               "<Peer><Name>%1</Name><Type>SIP</Type><AppAccount>1</AppAccount><User>u%1</User>"
               "<PWD>p&amp;w&lt;d</PWD><SipCodecs>alaw,ulaw,,g722</SipCodecs><SipTos>104</SipTos>"
               "<AudioTos>184</AudioTos><VideoTos>136</VideoTos><DtmfMode>SIPINFO</DtmfMode>"
               "<Status>OK (12 ms)</Status><IP>10.0.0.5</IP><Port>5062</Port><UA>Desk 3</UA>"
               "<Device><Brand>Acme</Brand><Model>T4</Model><MacAddress>00:11:22:33:44:55</MacAddress>"
               "<Note>reception</Note></Device></Peer>")
        .arg(name);
}

QString userXml(const QString& first, const QString& last, const QString& contacts,
                const QString& extra = QString())
{
    return QStringLiteral("<User><First>%1</First><Last>%2</Last>%3%4</User>")
        .arg(first, last, contacts, extra);
}

QString extenContact(const QString& exten)
{
    return QStringLiteral("<Contact><Type>exten</Type><Value>%1</Value></Contact>").arg(exten);
}

QString statusXml(const QString& exten, const QString& logged, const QString& paused, const QString& blf)
{
    return QStringLiteral("<ExtenStatus><Exten>%1</Exten><CtiLogged>%2</CtiLogged><QPaused>%3</QPaused>"
                          "<BlfContext>ext-local</BlfContext><BlfStatus>%4</BlfStatus></ExtenStatus>")
        .arg(exten, logged, paused, blf);
}

} // namespace

class TestDirectoryMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void peerRequests_data();
    void peerRequests();

    void identities_data();
    void identities();
    void identityFullEntry();
    void identitiesSkipInvalidAmongThousands();
    void identitiesEmptyOrAllInvalid_data();
    void identitiesEmptyOrAllInvalid();

    void failedRequests_data();
    void failedRequests();
    void emptyRequestFailedIsNoFailure();

    void buddyIdentities_data();
    void buddyIdentities();
    void buddyIdentitiesRoundTrip();

    void buddies_data();
    void buddies();
    void buddiesSkipInvalidAmongThousands();
    void buddiesEmptyListHasNoEmptyWord();
    void buddiesRoundTripDerivesFullName();

    void extenStatus_data();
    void extenStatus();
    void extenStatusLaterEntryWins();
    void extenStatusEmpty();
    void extenStatusRoundTripCarriesWireFieldsOnly();

    void toPhoneBook();
    void metaTypesRegistered();
};

void TestDirectoryMessages::peerRequests_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<bool>("emptyElement");
    QTest::newRow("4.1") << "4.1" << false;
    QTest::newRow("5.1") << "5.1" << false;
    QTest::newRow("5.2") << "5.2" << true;
    QTest::newRow("6.1") << "6.1" << true;
    // Compared as text: "5.10" sorts below "5.2".
    QTest::newRow("5.10") << "5.10" << false;
}

void TestDirectoryMessages::peerRequests()
{
    QFETCH(QString, api);
    QFETCH(bool, emptyElement);

    GetIdentitiesReqMsg identities;
    const QString identitiesXml = identities.serializeToXml(api);
    QCOMPARE(requestBody(identitiesXml),
             emptyElement ? QString("<GetPeerStatus/>") : QString("<GetPeerStatus></GetPeerStatus>"));
    QCOMPARE(SimpleXmlParser::getTagValue(identitiesXml, "API"), api);

    GetBuddyIdentitiesReqMsg peers;
    QCOMPARE(requestBody(peers.serializeToXml(api)),
             emptyElement ? QString("<GetPeerList/>") : QString("<GetPeerList></GetPeerList>"));
    // The other two requests are always self-closed.
    QCOMPARE(requestBody(GetBuddiesReqMsg().serializeToXml(api)), QString("<GetExtenList/>"));
    QCOMPARE(requestBody(GetExtenStatusReqMsg().serializeToXml(api)), QString("<GetExtenStatus/>"));
}

void TestDirectoryMessages::identities_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("firstCodecs");
    QTest::addColumn<int>("firstDtmf");
    QTest::addColumn<QString>("firstIp");

    // Old servers send neither codecs nor device, and no DTMF mode.
    QTest::newRow("4.2 without device")
        << serverDocument("<PeerStatusList><Peer><Name>1000</Name><Type>SIP</Type><User>1000</User>"
                          "<PWD>secret</PWD><Status>OK</Status><IP>192.168.1.20</IP><Port>5060</Port>"
                          "<UA>Softphone</UA></Peer></PeerStatusList>",
                          "4.2")
        << QStringList {"1000"} << QStringList {""} << 0 << "192.168.1.20";
    // "Codecs" only matters when "SipCodecs" gives an empty list, which a split
    // keeping empty parts never does.
    QTest::newRow("4.5 registration codecs ignored")
        << serverDocument("<PeerStatusList><Peer><Name>1000</Name><Codecs>gsm,alaw</Codecs></Peer>"
                          "<Peer><Name>1000-app</Name></Peer></PeerStatusList>",
                          "4.5")
        << QStringList {"1000", "1000-app"} << QStringList {""} << 0 << "";
    QTest::newRow("5.4 codecs and dtmf")
        << serverDocument("<PeerStatusList><Peer><Name>2000</Name><SipCodecs>g722,alaw</SipCodecs>"
                          "<Codecs>gsm</Codecs><DtmfMode>RFC2833</DtmfMode></Peer></PeerStatusList>",
                          "5.4")
        << QStringList {"2000"} << QStringList {"g722", "alaw"} << 1 << "";
    QTest::newRow("5.10 unknown dtmf")
        << serverDocument("<PeerStatusList><Peer><Name>3000</Name><DtmfMode>rfc2833</DtmfMode></Peer>"
                          "</PeerStatusList>",
                          "5.10")
        << QStringList {"3000"} << QStringList {""} << 0 << "";
    // A single "Peer" is an update of one identity and reads the same way.
    QTest::newRow("6.1 single peer update")
        << serverDocument(fullIdentityXml("4000"), "6.1") << QStringList {"4000"}
        << QStringList {"alaw", "ulaw", "", "g722"} << 2 << "10.0.0.5";
    QTest::newRow("5.7 peer without name dropped")
        << serverDocument("<PeerStatusList><Peer><Name>1</Name></Peer><Peer><Type>SIP</Type></Peer>"
                          "<Peer><Name>3</Name></Peer></PeerStatusList>",
                          "5.7")
        << QStringList {"1", "3"} << QStringList {""} << 0 << "";
}

void TestDirectoryMessages::identities()
{
    QFETCH(QString, xml);
    QFETCH(QStringList, names);
    QFETCH(QStringList, firstCodecs);
    QFETCH(int, firstDtmf);
    QFETCH(QString, firstIp);

    const IdentitiesRespMsg msg = IdentitiesRespMsg::parseMessage(xml);
    QVERIFY(msg.success);
    QStringList got;
    for (const IdentityEntry& entry : msg.identities)
        got << entry.name;
    QCOMPARE(got, names);
    QCOMPARE(msg.identities.first().codecs, firstCodecs);
    QCOMPARE(int(msg.identities.first().dtmfMode), firstDtmf);
    QCOMPARE(msg.identities.first().regIp, firstIp);
    QCOMPARE(msg.uuid, fixtureUuid());
    QCOMPARE(msg.api, SimpleXmlParser::getTagValue(xml, "API"));
    QCOMPARE(msg.timestamp, QDateTime(QDate(2026, 11, 15), QTime(18, 10, 2, 123), Qt::UTC));
}

void TestDirectoryMessages::identityFullEntry()
{
    QtLogCapture log;
    const IdentitiesRespMsg msg = IdentitiesRespMsg::parseMessage(
        serverDocument("<PeerStatusList>" + fullIdentityXml("1000") + "</PeerStatusList>"));
    QVERIFY(msg.success);
    QCOMPARE(msg.identities.size(), 1);
    const IdentityEntry& e = msg.identities.first();
    QCOMPARE(e.name, QString("1000"));
    QCOMPARE(e.type, QString("SIP"));
    QVERIFY(e.appAccount);
    QCOMPARE(e.user, QString("u1000"));
    QCOMPARE(e.password, QString("p&w<d"));
    QCOMPARE(e.sipTos, quint8(104));
    QCOMPARE(e.audioTos, quint8(184));
    QCOMPARE(e.videoTos, quint8(136));
    QCOMPARE(e.dtmfMode, TELVIX::DtmfSipInfo);
    QCOMPARE(e.regStatus, QString("OK (12 ms)"));
    QCOMPARE(e.regPort, quint16(5062));
    QCOMPARE(e.regUa, QString("Desk 3"));
    QCOMPARE(e.deviceBrand, QString("Acme"));
    QCOMPARE(e.deviceModel, QString("T4"));
    QCOMPARE(e.deviceMac, QString("00:11:22:33:44:55"));
    QCOMPARE(e.deviceNote, QString("reception"));
    QCOMPARE(log.messages().count("IdentityList msg parsed ok"), 1);
    // Nothing here depends on the version.
    QVERIFY(!log.contains("API version"));

    IdentityEntry second;
    second.name = "1000-mobile";
    second.codecs = QStringList {"opus"};
    IdentitiesRespMsg out = msg;
    out.identities << second;
    const IdentitiesRespMsg back = roundTrip(out, "6.1");
    QVERIFY(back.success);
    QCOMPARE(back.identities, out.identities);
    QCOMPARE(back.api, QString("6.1"));
}

void TestDirectoryMessages::identitiesSkipInvalidAmongThousands()
{
    QString body = "<PeerStatusList>";
    QStringList expected;
    int invalid = 0;
    for (int i = 0; i < 3000; ++i) {
        if (i % 7 == 3) {
            // Nameless, or a name that is only an empty element.
            body += (i % 2) ? "<Peer><Type>SIP</Type><User>x</User></Peer>" : "<Peer><Name></Name></Peer>";
            ++invalid;
        } else {
            const QString name = QString::number(10000 + i);
            body += "<Peer><Name>" + name + "</Name><AppAccount>" + QString::number(i % 2)
                + "</AppAccount><Port>" + QString::number(5060 + i) + "</Port></Peer>";
            expected << name;
        }
    }
    body += "</PeerStatusList>";

    QtLogCapture log;
    const IdentitiesRespMsg msg = IdentitiesRespMsg::parseMessage(serverDocument(body, "5.7"));
    QVERIFY(msg.success);
    QCOMPARE(msg.identities.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i)
        QCOMPARE(msg.identities.at(i).name, expected.at(i));
    // Fields are read from each entry, not from the first match in the document.
    QCOMPARE(msg.identities.at(1).regPort, quint16(5061));
    QVERIFY(msg.identities.at(1).appAccount);
    QVERIFY(!msg.identities.at(0).appAccount);
    QCOMPARE(log.messages().count("parsed an invalid IdentityEntry msg"), invalid);
    QCOMPARE(log.messages().count("IdentityList msg parsed ok"), 1);
}

void TestDirectoryMessages::identitiesEmptyOrAllInvalid_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<int>("invalid");
    QTest::newRow("empty list") << "<PeerStatusList></PeerStatusList>" << 0;
    QTest::newRow("only invalid") << "<PeerStatusList><Peer><Type>SIP</Type></Peer><Peer/></PeerStatusList>"
                                  << 1;
}

void TestDirectoryMessages::identitiesEmptyOrAllInvalid()
{
    QFETCH(QString, body);
    QFETCH(int, invalid);
    QtLogCapture log;
    const IdentitiesRespMsg msg = IdentitiesRespMsg::parseMessage(serverDocument(body, "4.9"));
    QVERIFY(msg.success);
    QVERIFY(msg.identities.isEmpty());
    QCOMPARE(msg.uuid, fixtureUuid());
    QCOMPARE(log.messages().count("parsed an invalid IdentityEntry msg"), invalid);
    QCOMPARE(log.messages().count("parsed an empty IdentityList msg, i.e. exten has no identities"), 1);
    QCOMPARE(log.messages().count("IdentityList msg parsed ok"), 0);
}

void TestDirectoryMessages::failedRequests_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("logLine");
    QTest::newRow("identities") << 0 << "<PeerStatusList><Peer><Name>1</Name></Peer></PeerStatusList>"
                                << "IdentityList request failed: no such user";
    QTest::newRow("buddy identities") << 1 << "<PeerList><Peer><Name>1</Name></Peer></PeerList>"
                                      << "BuddyIdentityList request failed: no such user";
    QTest::newRow("buddies") << 2 << "<ExtenList>" + userXml("A", "B", extenContact("100")) + "</ExtenList>"
                             << "Buddies request failed: no such user";
    QTest::newRow("exten status") << 3
                                  << "<ExtenStatusList>" + statusXml("100", "1", "0", "0")
            + "</ExtenStatusList>"
                                  << "Buddies status request failed: no such user";
}

void TestDirectoryMessages::failedRequests()
{
    QFETCH(int, kind);
    QFETCH(QString, body);
    QFETCH(QString, logLine);
    const QString xml = failedDocument("no such user", body, "5.7");

    QtLogCapture log;
    bool success = true;
    QString error, uuid, api;
    int count = -1;
    const auto take = [&](const auto& msg, const auto& list) {
        success = msg.success, error = msg.errorMessage, uuid = msg.uuid, api = msg.api;
        count = int(list.size());
    };
    if (kind == 0) {
        const auto msg = IdentitiesRespMsg::parseMessage(xml);
        take(msg, msg.identities);
    } else if (kind == 1) {
        const auto msg = BuddyIdentitiesRespMsg::parseMessage(xml);
        take(msg, msg.buddyIdentities);
    } else if (kind == 2) {
        const auto msg = BuddiesRespMsg::parseMessage(xml);
        take(msg, msg.buddies);
    } else {
        const auto msg = ExtenStatusRespMsg::parseMessage(xml);
        take(msg, msg.statusMap);
    }
    QVERIFY(!success);
    QCOMPARE(error, QString("no such user"));
    QCOMPARE(count, 0);
    // Nothing else is read from a failed answer, not even the envelope.
    QVERIFY(uuid.isEmpty());
    QCOMPARE(api, QString("4.2"));
    QCOMPARE(log.messages(), QStringList {logLine});
}

void TestDirectoryMessages::emptyRequestFailedIsNoFailure()
{
    const QString xml
        = serverDocument("<RequestFailed></RequestFailed><PeerList><Peer><Name>7</Name></Peer></PeerList>");
    const BuddyIdentitiesRespMsg msg = BuddyIdentitiesRespMsg::parseMessage(xml);
    QVERIFY(msg.success);
    QCOMPARE(msg.buddyIdentities.size(), 1);
}

void TestDirectoryMessages::buddyIdentities_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QStringList>("rows");
    QTest::addColumn<int>("invalid");
    QTest::addColumn<QString>("finalLog");

    QTest::newRow("4.1 sip and iax") << serverDocument(
        "<PeerList><Peer><Name>1000</Name><Type>SIP</Type><Exten>1000</Exten></Peer>"
        "<Peer><Name>trunk1</Name><Type>IAX2</Type><Exten></Exten></Peer></PeerList>",
        "4.1") << QStringList {"1000|SIP|1000", "trunk1|IAX2|"}
                                     << 0 << "BuddyIdentityList msg parsed ok";
    QTest::newRow("5.10 entity in name")
        << serverDocument("<PeerList><Peer><Name>a&amp;b</Name><Type>SIP</Type><Exten>2</Exten></Peer>"
                          "<Peer><Type>SIP</Type><Exten>3</Exten></Peer></PeerList>",
                          "5.10")
        << QStringList {"a&b|SIP|2"} << 1 << "BuddyIdentityList msg parsed ok";
    QTest::newRow("6.1 empty") << serverDocument("<PeerList></PeerList>", "6.1") << QStringList {} << 0
                               << "parsed an empty BuddyIdentityList msg";
}

void TestDirectoryMessages::buddyIdentities()
{
    QFETCH(QString, xml);
    QFETCH(QStringList, rows);
    QFETCH(int, invalid);
    QFETCH(QString, finalLog);

    QtLogCapture log;
    const BuddyIdentitiesRespMsg msg = BuddyIdentitiesRespMsg::parseMessage(xml);
    QVERIFY(msg.success);
    QStringList got;
    for (const BuddyIdentityEntry& e : msg.buddyIdentities)
        got << e.name + "|" + e.type + "|" + e.exten;
    QCOMPARE(got, rows);
    QCOMPARE(log.messages().count("parsed an invalid BuddyIdentityEntry msg"), invalid);
    QCOMPARE(log.messages().last(), finalLog);
}

void TestDirectoryMessages::buddyIdentitiesRoundTrip()
{
    BuddyIdentitiesRespMsg msg;
    for (int i = 0; i < 50; ++i)
        msg.buddyIdentities << BuddyIdentityEntry {QString("acc%1").arg(i), i % 3 ? "SIP" : "PJSIP",
                                                   QString::number(200 + i / 2)};
    const BuddyIdentitiesRespMsg back = roundTrip(msg, "5.4");
    QVERIFY(back.success);
    QCOMPARE(back.buddyIdentities, msg.buddyIdentities);
}

void TestDirectoryMessages::buddies_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("expected"); // exten|fullName|chatId

    const QString mobileThenExten = "<Contacts><Contact><Type>mobile</Type><Value>333</Value></Contact>"
                                    "<Contact><Type>exten</Type><Value>202</Value></Contact></Contacts>";
    QTest::newRow("5.4 first only") << "5.4" << userXml("Ada", "", extenContact("201")) << "201|Ada|";
    QTest::newRow("5.7 exten after other contacts")
        << "5.7" << userXml("Ada", "Lovelace", mobileThenExten) << "202|Ada Lovelace|";
    QTest::newRow("6.1 chat id lowered")
        << "6.1"
        << userXml("Bob", "Smith", extenContact("300"), "<ChatID>Alice@HOST</ChatID><Company>Acme</Company>")
        << "300|Bob Smith|alice@host";
    QTest::newRow("5.10 blanks trimmed") << "5.10" << userXml(" Ada ", "", extenContact("201")) << "201|Ada|";
}

void TestDirectoryMessages::buddies()
{
    QFETCH(QString, api);
    QFETCH(QString, user);
    QFETCH(QString, expected);

    const BuddiesRespMsg msg
        = BuddiesRespMsg::parseMessage(serverDocument("<ExtenList>" + user + "</ExtenList>", api));
    QVERIFY(msg.success);
    QCOMPARE(msg.buddies.size(), 1);
    const BuddyEntry& b = msg.buddies.first();
    QCOMPARE(b.exten + "|" + b.fullName + "|" + b.chatId, expected);
}

void TestDirectoryMessages::buddiesSkipInvalidAmongThousands()
{
    QString body = "<ExtenList>";
    QStringList expected;
    int invalid = 0;
    for (int i = 0; i < 4000; ++i) {
        const QString exten = QString::number(1000 + i);
        switch (i % 11) {
        case 4: // no contact at all
            body += userXml("No", "Contact", QString());
            ++invalid;
            break;
        case 7: // only a mobile number
            body += userXml("Only", "Mobile",
                            "<Contact><Type>mobile</Type><Value>" + exten + "</Value></Contact>");
            ++invalid;
            break;
        case 9: // the type is compared exactly
            body += userXml("Upper", "Case",
                            "<Contact><Type>EXTEN</Type><Value>" + exten + "</Value></Contact>");
            ++invalid;
            break;
        default:
            body += userXml("F" + exten, "L" + exten, extenContact(exten),
                            "<Unit>u" + exten + "</Unit><ContactUuid>uuid-" + exten + "</ContactUuid>");
            expected << exten;
        }
    }
    body += "</ExtenList>";

    QtLogCapture log;
    const BuddiesRespMsg msg = BuddiesRespMsg::parseMessage(serverDocument(body, "6.1"));
    QVERIFY(msg.success);
    QCOMPARE(msg.buddies.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        const BuddyEntry& b = msg.buddies.at(i);
        QCOMPARE(b.exten, expected.at(i));
        QCOMPARE(b.fullName, "F" + b.exten + " L" + b.exten);
        QCOMPARE(b.unit, "u" + b.exten);
        QCOMPARE(b.contactUuid, "uuid-" + b.exten);
    }
    QCOMPARE(log.messages().count("parsed an invalid BuddyEntry msg"), invalid);
    QCOMPARE(log.messages().count("BuddyList msg parsed ok"), 1);
}

void TestDirectoryMessages::buddiesEmptyListHasNoEmptyWord()
{
    QtLogCapture log;
    const BuddiesRespMsg msg = BuddiesRespMsg::parseMessage(serverDocument("<ExtenList></ExtenList>", "5.2"));
    QVERIFY(msg.success);
    QVERIFY(msg.buddies.isEmpty());
    QCOMPARE(log.messages(), QStringList {"BuddyList msg parsed ok"});
}

void TestDirectoryMessages::buddiesRoundTripDerivesFullName()
{
    BuddiesRespMsg msg;
    BuddyEntry a {"Ada", "Lovelace", "Ada Lovelace", "201", "Analytical & Co", "R&D", "ada@pbx", "c-1"};
    BuddyEntry b {"", "Babbage", "Babbage", "202", "", "", "", ""};
    // The full name is not on the wire: it comes back derived from the names.
    BuddyEntry c {"Charles", "", "Mr C", "203", "", "", "", ""};
    msg.buddies << a << b << c;

    const BuddiesRespMsg back = roundTrip(msg, "6.1");
    QVERIFY(back.success);
    QCOMPARE(back.buddies.size(), 3);
    QCOMPARE(back.buddies.at(0), a);
    QCOMPARE(back.buddies.at(1), b);
    BuddyEntry expectedC = c;
    expectedC.fullName = "Charles";
    QCOMPARE(back.buddies.at(2), expectedC);
}

void TestDirectoryMessages::extenStatus_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<QString>("body");
    QTest::addColumn<bool>("logged");
    QTest::addColumn<bool>("paused");
    QTest::addColumn<int>("blf");
    const auto list = [](const QString& entry) { return "<ExtenStatusList>" + entry + "</ExtenStatusList>"; };

    QTest::newRow("4.9 idle logged") << "4.9" << list(statusXml("100", "1", "0", "0")) << true << false << 0;
    QTest::newRow("5.4 in use ringing paused")
        << "5.4" << list(statusXml("100", "0", "1", "9")) << false << true << 9;
    // The wire form is the number; the text reads as unknown.
    QTest::newRow("5.7 text status") << "5.7" << list(statusXml("100", "1", "1", "INUSE")) << true << true
                                     << 4;
    QTest::newRow("5.10 not found") << "5.10" << list(statusXml("100", "true", "yes", "-1")) << false << false
                                    << -1;
    QTest::newRow("6.1 unknown number kept")
        << "6.1" << list(statusXml("100", "0", "0", "32")) << false << false << 32;
    // A single status outside a list is an event and reads the same way.
    QTest::newRow("6.1 single event, no blf")
        << "6.1"
        << "<ExtenStatus><Exten>100</Exten><CtiLogged>1</CtiLogged></ExtenStatus>" << true << false << 4;
}

void TestDirectoryMessages::extenStatus()
{
    QFETCH(QString, api);
    QFETCH(QString, body);
    QFETCH(bool, logged);
    QFETCH(bool, paused);
    QFETCH(int, blf);

    QtLogCapture log;
    const ExtenStatusRespMsg msg = ExtenStatusRespMsg::parseMessage(serverDocument(body, api));
    QVERIFY(msg.success);
    QCOMPARE(msg.statusMap.keys(), QStringList {"100"});
    const BuddyStatus s = msg.statusMap.value("100");
    QCOMPARE(s.exten, QString("100"));
    QCOMPARE(s.ctiLogged, logged);
    QCOMPARE(s.queuePaused, paused);
    QCOMPARE(int(s.blfStatus), blf);
    // Presence and accounts are not on the wire.
    QCOMPARE(s.presence, TELVIX::ChatPresenceInvalid);
    QVERIFY(s.contacts.isEmpty());
    QCOMPARE(log.messages(), QStringList {"BuddyStatusMap msg parsed ok"});
}

void TestDirectoryMessages::extenStatusLaterEntryWins()
{
    QString body = "<ExtenStatusList>";
    for (int i = 0; i < 2000; ++i)
        body += statusXml(QString::number(100 + i % 500), QString::number(i % 2), "0",
                          QString::number(i / 500));
    body += "<ExtenStatus><CtiLogged>1</CtiLogged><BlfStatus>2</BlfStatus></ExtenStatus>";
    body += "</ExtenStatusList>";

    QtLogCapture log;
    const ExtenStatusRespMsg msg = ExtenStatusRespMsg::parseMessage(serverDocument(body, "5.7"));
    QVERIFY(msg.success);
    QCOMPARE(msg.statusMap.size(), 500);
    // Entry i = 1500 + k is the last one for extension 100 + k.
    QCOMPARE(int(msg.statusMap.value("100").blfStatus), 3);
    QCOMPARE(msg.statusMap.value("100").ctiLogged, false);
    QCOMPARE(msg.statusMap.value("101").ctiLogged, true);
    QCOMPARE(log.messages().count("parsed an invalid BuddyStatus msg"), 1);
}

void TestDirectoryMessages::extenStatusEmpty()
{
    QtLogCapture log;
    const ExtenStatusRespMsg msg = ExtenStatusRespMsg::parseMessage(serverDocument(
        "<ExtenStatusList><ExtenStatus><BlfStatus>0</BlfStatus></ExtenStatus></ExtenStatusList>"));
    QVERIFY(msg.success);
    QVERIFY(msg.statusMap.isEmpty());
    QCOMPARE(log.messages(),
             (QStringList {"parsed an invalid BuddyStatus msg", "parsed an empty BuddyStatusMap msg"}));
}

void TestDirectoryMessages::extenStatusRoundTripCarriesWireFieldsOnly()
{
    ExtenStatusRespMsg msg;
    BuddyStatus a;
    a.exten = "100";
    a.ctiLogged = true;
    a.queuePaused = true;
    a.blfContext = "ext-local";
    a.blfStatus = TELVIX::BlfInUseOnHold;
    BuddyStatus b = a;
    b.exten = "101";
    b.ctiLogged = false;
    b.blfStatus = TELVIX::BlfNotFound;
    b.presence = TELVIX::ChatPresenceAway;
    b.presenceText = "lunch";
    b.contacts = QStringList {"101", "101-app"};
    msg.statusMap.insert(a.exten, a);
    msg.statusMap.insert(b.exten, b);

    const ExtenStatusRespMsg back = roundTrip(msg, "6.1");
    QVERIFY(back.success);
    QCOMPARE(back.statusMap.size(), 2);
    QCOMPARE(back.statusMap.value("100"), a);
    BuddyStatus wireB = b;
    wireB.presence = TELVIX::ChatPresenceInvalid;
    wireB.presenceText.clear();
    wireB.contacts.clear();
    QCOMPARE(back.statusMap.value("101"), wireB);
}

void TestDirectoryMessages::toPhoneBook()
{
    BuddyBook book;
    book << BuddyEntry {"Ada", "Lovelace", "Ada Lovelace", "201", "Acme", "R&D", "ada@pbx", "c-201"};
    book << BuddyEntry {"Me", "Myself", "Me Myself", "200", "", "", "", "c-200"};
    book << BuddyEntry {"Bob", "", "Bob", "202", "", "", "", ""};
    // Exclusion matches whole extensions only; an entry without names keeps an empty display name.
    book << BuddyEntry {"", "", "", "2001", "Lobby", "", "", ""};

    const PhoneBook pb = book.toPhoneBook(QStringList {"200"});
    QCOMPARE(pb.type, PHONEBOOK::PB_EXTEN);
    QVERIFY(pb.name.isEmpty());
    QVERIFY(pb.folder.isEmpty());
    QCOMPARE(pb.entries.size(), 3);

    const PhoneBookEntry& ada = pb.entries.at(0);
    QCOMPARE(ada.firstName, QString("Ada"));
    QCOMPARE(ada.lastName, QString("Lovelace"));
    QCOMPARE(ada.displayName, QString("Ada Lovelace"));
    QCOMPARE(ada.company, QString("Acme"));
    QCOMPARE(ada.unit, QString("R&D"));
    QCOMPARE(ada.contactUuid, QString("c-201"));
    QCOMPARE(ada.contacts.size(), 1);
    QCOMPARE(ada.contacts.first().kind, PHONEBOOK::CTYPE_KIND_PHONE);
    QCOMPARE(ada.contacts.first().label, PHONEBOOK::CTYPE_LABEL_EXTEN);
    QCOMPARE(ada.contacts.first().value, QString("201"));
    // An extension also serves as work number.
    QCOMPARE(ada.extenNumber, QString("201"));
    QCOMPARE(ada.workNumber, QString("201"));
    QVERIFY(ada.mobileNumber.isEmpty());

    QCOMPARE(pb.entries.at(1).displayName, QString("Bob"));
    QVERIFY(pb.entries.at(2).displayName.isEmpty());
    QCOMPARE(pb.entries.at(2).extenNumber, QString("2001"));
    QCOMPARE(book.toPhoneBook(QStringList()).entries.size(), 4);
}

void TestDirectoryMessages::metaTypesRegistered()
{
    for (const char* name : {"IdentityEntry", "BuddyIdentityEntry", "BuddyEntry", "BuddyStatus", "BuddyBook",
                             "IdentityList", "QMap<QString,BuddyStatus>"})
        QVERIFY2(QMetaType::type(name) != QMetaType::UnknownType, name);
}

QTEST_APPLESS_MAIN(TestDirectoryMessages)
#include "tst_directorymessages.moc"
