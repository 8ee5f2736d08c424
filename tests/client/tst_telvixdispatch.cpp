// What the client makes of the server's data messages, sent over TLS by the
// fake server to a logged-in client: the peer lists and extension states,
// service states, tokens, SIP settings, call history, the small notices,
// and the acknowledgement of each message.
#include "callevents.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "simplexmlparser.h"
#include "telvix.h"
#include "telvix_p.h"

#include <QSignalSpy>
#include <QtTest>

using CallEvents::element;
using CallEvents::wrap;

namespace {

QString peer(const QString& name, const QString& type = QStringLiteral("SIP"),
             const QString& exten = QString())
{
    return wrap("Peer",
                element("Name", name) + element("Type", type)
                    + (exten.isEmpty() ? QString() : element("Exten", exten)));
}

QString extenStatus(const QString& exten, const QString& blf, const QString& logged = QStringLiteral("1"))
{
    return wrap("ExtenStatus",
                element("Exten", exten) + element("CtiLogged", logged) + element("BlfStatus", blf));
}

QString service(const QString& id, const QString& value, const QString& status = QStringLiteral("1"))
{
    return wrap("ServiceStatus",
                element("Id", id) + element("Type", "service") + element("Value", value)
                    + element("Status", status));
}

QString token(const QString& value)
{
    return wrap("AuthToken", element("Token", value) + element("ValidUntil", "2026-12-01 10:30:00"));
}

/// The peer maps of the client, read on its own thread.
struct PeerMaps
{
    QMap<QString, QString> accountToExten;
    QMap<QString, QStringList> extenToAccounts;
    QMap<QString, BuddyStatus> status;
};

/// The UUIDs the client acknowledged since the login, as the server reads them.
QStringList ackedIds(const LoggedInClient& app)
{
    QStringList ids;
    const QStringList acks = app.framesWith(QStringLiteral("MsgAck"));
    for (const QString& ack : acks)
        ids << SimpleXmlParser::getDecodedTagValue(ack, QStringLiteral("AckUUID"));
    return ids;
}

PeerMaps peerMaps(LoggedInClient& app)
{
    TelvixPrivate* d = TelvixPrivate::get(app.client());
    PeerMaps maps;
    app.onLibraryThread([&] {
        maps.accountToExten = d->accountToExten;
        maps.extenToAccounts = d->extenToAccounts;
        maps.status = d->extenStatus;
    });
    return maps;
}

} // namespace

class TestTelvixDispatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyMessageWithAnIdIsAcknowledged_data();
    void everyMessageWithAnIdIsAcknowledged();
    void invalidMessagesAreLoggedAndRaiseNothing_data();
    void invalidMessagesAreLoggedAndRaiseNothing();
    void identityAndPeerListsMapTheAccounts();
    void identityUpdateChangesKnownIdentitiesOnly();
    void extenStatusListKeepsTheAccounts();
    void singleExtenStatusKeepsAccountsAndReportsEachEntry();
    void peerMapsEndWithTheConnectionButStatusesStay();
    void mobileNumberFromServiceStates_data();
    void mobileNumberFromServiceStates();
    void tokensServeTheirAskersInOrder();
    void ctiConfigurationSetsSipSettingsAndChatAccount();
    void callHistoryIsSeenFromTheUsersSide();
    void recordsReachTheApplication_data();
    void recordsReachTheApplication();
    void tenantsRebrandingAndDialCodesReachTheApplication();
    void voicemailListInOpenForm();
    void characterSplitBetweenTwoReadsArrivesWhole();
    void everySignalCanCrossThreads();
};

void TestTelvixDispatch::everyMessageWithAnIdIsAcknowledged_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QByteArray>("signal");
    const auto row = [](const char* name, const QString& body, const char* signal) {
        QTest::newRow(name) << body << QByteArray(signal);
    };
    const char* const statusMap = SIGNAL(sigExtenStatusMapChanged(QMap<QString, BuddyStatus>));
    const char* const services = SIGNAL(sigServiceStatusChanged(QList<ServiceStatus>));
    row("PeerStatusList", wrap("PeerStatusList", peer("200-a")), SIGNAL(sigIdentitiesChanged(IdentityList)));
    row("PeerList", wrap("PeerList", peer("201-a", "SIP", "201")), statusMap);
    row("Peer", peer("200-a"), SIGNAL(sigIdentitiesChanged(IdentityList)));
    row("ExtenStatusList", wrap("ExtenStatusList", extenStatus("201", "1")), statusMap);
    row("ExtenStatus", extenStatus("201", "2"), SIGNAL(sigExtenStatusChanged(BuddyStatus)));
    row("CallList", wrap("CallList", QString()), SIGNAL(sigCdrChanged(Cdr)));
    row("CommandResponse", wrap("CommandResponse", element("RequestId", "r1") + element("ExitCode", "0")),
        SIGNAL(sigServerCommandResponse(ServerCommandResponse)));
    row("LoggerMessage", wrap("LoggerMessage", element("MessageId", "m1")),
        SIGNAL(sigDiagnosticMessageReceived(DiagnosticMessage)));
    row("TenantList", wrap("TenantList", wrap("Tenant", element("TenantUuid", "t1"))),
        SIGNAL(sigTenantListReceived(QMap<QString, QString>)));
    row("ChannelStatus", wrap("ChannelStatus", element("Channel", "SIP/1") + element("Number", "201")),
        SIGNAL(sigChannelStatusReceived(ChannelStatus)));
    row("CtiConfiguration", wrap("CtiConfiguration", element("SipRegistrarIp", "10.0.0.1")),
        SIGNAL(sigSipSettingsReceived(SipConfiguration)));
    row("ServiceStatusList", wrap("ServiceStatusList", service("ufwd", "0612")), services);
    row("ServiceStatus", service("ufwd", "0612"), services);
    row("InCallServiceStatus",
        wrap("InCallServiceStatus",
             element("Uid", "u1") + element("Channel", "SIP/1") + element("Status", "1")),
        SIGNAL(sigInCallServiceStatusReceived(InCallServiceStatus)));
    // The empty-element form of the list is recognised too.
    row("VoicemailMessageList", QStringLiteral("<VoicemailMessageList/>"),
        SIGNAL(sigVoicemailMsgList(QList<VoicemailMessage>)));
    row("RebrandingPackChanged", QStringLiteral("<RebrandingPackChanged></RebrandingPackChanged>"),
        SIGNAL(sigRebrandingPackageChanged()));
    row("AuthToken", token("abc"), SIGNAL(sigAuthTokenReceived(QString, QDateTime)));
    row("MailboxStatus", wrap("MailboxStatus", element("NewMsgCount", "1")),
        SIGNAL(sigMailboxStatusChanged(MailboxStatus)));
    row("Services", wrap("Services", element("echo", "*43")),
        SIGNAL(sigServicesCodesReceived(QMap<TELVIX::ServiceDialCodeType, QString>)));
}

void TestTelvixDispatch::everyMessageWithAnIdIsAcknowledged()
{
    QFETCH(QString, body);
    QFETCH(QByteArray, signal);
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy raised(app.client(), signal.constData());
    QVERIFY(raised.isValid());
    const QString uuid = app.sendEvent(body);
    QVERIFY(app.waitForAck(uuid));
    QCOMPARE(ackedIds(app).count(uuid), 1);
    const QStringList acks = app.framesWith(QStringLiteral("MsgAck"));
    for (const QString& ack : acks)
        QCOMPARE(SimpleXmlParser::getDecodedTagValue(ack, QStringLiteral("API")), app.api());
    // The acknowledgement follows the handling.
    QCOMPARE(raised.count(), 1);
}

void TestTelvixDispatch::invalidMessagesAreLoggedAndRaiseNothing_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<QString>("words");
    const auto row = [](const char* name, const QString& body, const char* signal, const char* words) {
        QTest::newRow(name) << body << QByteArray(signal) << QString::fromLatin1(words);
    };
    const QString failed = element("RequestFailed", "NotAllowed");
    const char* const statusMap = SIGNAL(sigExtenStatusMapChanged(QMap<QString, BuddyStatus>));
    row("PeerStatusList", wrap("PeerStatusList", failed), SIGNAL(sigIdentitiesChanged(IdentityList)),
        "Invalid Identity list received");
    row("PeerList", wrap("PeerList", failed), statusMap, "Invalid BuddyIdentity list received");
    row("Peer", wrap("Peer", failed), SIGNAL(sigIdentitiesChanged(IdentityList)),
        "Invalid Identity received");
    row("ExtenStatusList", wrap("ExtenStatusList", failed), statusMap, "Invalid exten status received");
    row("ExtenStatus", wrap("ExtenStatus", failed), SIGNAL(sigExtenStatusChanged(BuddyStatus)),
        "Invalid exten status received");
    row("CommandResponse", wrap("CommandResponse", element("ExitCode", "1")),
        SIGNAL(sigServerCommandResponse(ServerCommandResponse)), "Invalid command response received");
    row("LoggerMessage", wrap("LoggerMessage", element("Message", "no id")),
        SIGNAL(sigDiagnosticMessageReceived(DiagnosticMessage)), "Invalid diagnostic msg received");
    row("TenantList", wrap("TenantList", failed), SIGNAL(sigTenantListReceived(QMap<QString, QString>)),
        "Invalid tenant list msg received");
    row("InCallServiceStatus", wrap("InCallServiceStatus", element("Uid", "u1")),
        SIGNAL(sigInCallServiceStatusReceived(InCallServiceStatus)),
        "Invalid incall service status msg received");
    row("AuthToken", wrap("AuthToken", element("ValidUntil", "2026-12-01 10:30:00")),
        SIGNAL(sigAuthTokenReceived(QString, QDateTime)), "Invalid authentication token message received");
    // No row names it: the unhandled branch, which acknowledges nothing either.
    row("unknown element", QStringLiteral("<PasswordChanged><Result>ok</Result></PasswordChanged>"),
        SIGNAL(sigRebrandingPackageChanged()), "UNHANDLED:  <SRNT>");
}

void TestTelvixDispatch::invalidMessagesAreLoggedAndRaiseNothing()
{
    QFETCH(QString, body);
    QFETCH(QByteArray, signal);
    QFETCH(QString, words);
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    LogbusCapture log;
    QSignalSpy raised(app.client(), signal.constData());
    QVERIFY(raised.isValid());
    // A probe behind the message tells when it was handled.
    const QString uuid = app.sendEvent(body);
    app.server().send(app.connection(), FakeCtiServer::probeDocument(app.api()));
    QVERIFY(!app.server().waitForFrame(QStringLiteral("KeepAlive")).isEmpty());
    QVERIFY(log.contains(1000, "Probe received! reply with a KeepAlive..."));
    QVERIFY2(log.contains(1000, words), qPrintable(log.texts().join('\n')));
    QCOMPARE(raised.count(), 0);
    // An invalid message keeps none of what it held, its id included.
    QVERIFY(!ackedIds(app).contains(uuid));
}

void TestTelvixDispatch::identityAndPeerListsMapTheAccounts()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy changed(app.client(), &Telvix::sigIdentitiesChanged);
    // Bare "Peer" entries inside the list take the list's row, not the update's.
    QVERIFY(app.deliver(
        wrap("PeerStatusList", peer("200-desk") + peer("200-soft") + wrap("Peer", element("Type", "SIP")))));
    QCOMPARE(changed.count(), 1);
    IdentityList identities = changed.at(0).at(0).value<IdentityList>();
    QCOMPARE(identities.size(), 2);
    QCOMPARE(identities.at(1).name, QStringLiteral("200-soft"));
    PeerMaps maps = peerMaps(app);
    QCOMPARE(maps.accountToExten, (QMap<QString, QString> {{"200-desk", "200"}, {"200-soft", "200"}}));
    QCOMPARE(maps.extenToAccounts.value("200"), (QStringList {"200-desk", "200-soft"}));

    // The peer list gives each extension its SIP accounts only (any case of
    // "SIP", with an extension).
    QSignalSpy mapChanged(app.client(), &Telvix::sigExtenStatusMapChanged);
    QVERIFY(app.deliver(wrap("PeerList",
                             peer("201-a", "SIP", "201") + peer("201-b", "SIP", "201")
                                 + peer("202-iax", "IAX2", "202") + peer("203-x", "sip", "203")
                                 + peer("trunk-1", "SIP"))));
    QCOMPARE(mapChanged.count(), 1);
    const auto statusMap = mapChanged.at(0).at(0).value<QMap<QString, BuddyStatus>>();
    QCOMPARE(statusMap.keys(), QStringList {"201"});
    QCOMPARE(statusMap.value("201").contacts, (QStringList {"201-a", "201-b"}));
    QCOMPARE(statusMap.value("201").exten, QStringLiteral("201"));

    // A new list replaces the user's accounts; other extensions stay.
    QVERIFY(app.deliver(wrap("PeerStatusList", peer("200-app"))));
    maps = peerMaps(app);
    QCOMPARE(maps.accountToExten,
             (QMap<QString, QString> {{"200-app", "200"}, {"201-a", "201"}, {"201-b", "201"}}));
    QCOMPARE(maps.extenToAccounts.value("200"), QStringList {"200-app"});
    QCOMPARE(maps.extenToAccounts.value("201"), (QStringList {"201-a", "201-b"}));
    QCOMPARE(changed.count(), 2);
}

void TestTelvixDispatch::identityUpdateChangesKnownIdentitiesOnly()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy changed(app.client(), &Telvix::sigIdentitiesChanged);
    QVERIFY(app.deliver(wrap("PeerStatusList", peer("200-desk") + peer("200-soft"))));
    LogbusCapture log;
    const QString registered = wrap("Peer",
                                    element("Name", "200-soft") + element("Type", "SIP")
                                        + element("Status", "OK") + element("IP", "10.1.1.9"));
    QVERIFY(app.deliver(registered + peer("999-stranger")));
    QVERIFY(log.contains(100, "Got Identity message containing more entries!"));
    QCOMPARE(changed.count(), 2);
    const IdentityList identities = changed.at(1).at(0).value<IdentityList>();
    QCOMPARE(identities.size(), 2);
    QCOMPARE(identities.at(1).regStatus, QStringLiteral("OK"));
    QCOMPARE(identities.at(1).regIp, QStringLiteral("10.1.1.9"));
    QCOMPARE(identities.at(0).regStatus, QString());
}

void TestTelvixDispatch::extenStatusListKeepsTheAccounts()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy mapChanged(app.client(), &Telvix::sigExtenStatusMapChanged);
    QVERIFY(app.deliver(wrap("PeerList", peer("201-a", "SIP", "201") + peer("204-a", "SIP", "204"))));
    QVERIFY(app.deliver(wrap("ExtenStatusList", extenStatus("201", "1") + extenStatus("202", "8", "0"))));
    QCOMPARE(mapChanged.count(), 2);
    const auto statusMap = mapChanged.at(1).at(0).value<QMap<QString, BuddyStatus>>();
    // The list replaces the map: 204 is gone, 202 is new without accounts.
    QCOMPARE(statusMap.keys(), (QStringList {"201", "202"}));
    QCOMPARE(statusMap.value("201").contacts, QStringList {"201-a"});
    QCOMPARE(int(statusMap.value("201").blfStatus), int(TELVIX::BlfInUse));
    QVERIFY(statusMap.value("201").ctiLogged);
    QCOMPARE(statusMap.value("202").contacts, QStringList());
    QCOMPARE(int(statusMap.value("202").blfStatus), int(TELVIX::BlfRinging));
    QVERIFY(!statusMap.value("202").ctiLogged);
}

void TestTelvixDispatch::singleExtenStatusKeepsAccountsAndReportsEachEntry()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy one(app.client(), &Telvix::sigExtenStatusChanged);
    QVERIFY(app.deliver(wrap("PeerList", peer("201-a", "SIP", "201"))));
    QVERIFY(app.deliver(extenStatus("201", "2")));
    QCOMPARE(one.count(), 1);
    BuddyStatus status = one.at(0).at(0).value<BuddyStatus>();
    QCOMPARE(status.exten, QStringLiteral("201"));
    QCOMPARE(int(status.blfStatus), int(TELVIX::BlfBusy));
    QCOMPARE(status.contacts, QStringList {"201-a"});

    LogbusCapture log;
    QVERIFY(app.deliver(extenStatus("201", "0", "0") + extenStatus("205", "16")));
    QVERIFY(log.contains(100, "Got ExtenStatus message containing more entries!"));
    QCOMPARE(one.count(), 3);
    status = one.at(1).at(0).value<BuddyStatus>();
    QCOMPARE(int(status.blfStatus), int(TELVIX::BlfIdle));
    QVERIFY(!status.ctiLogged);
    QCOMPARE(status.contacts, QStringList {"201-a"});
    QCOMPARE(one.at(2).at(0).value<BuddyStatus>().exten, QStringLiteral("205"));
    QCOMPARE(peerMaps(app).status.keys(), (QStringList {"201", "205"}));
}

void TestTelvixDispatch::peerMapsEndWithTheConnectionButStatusesStay()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QVERIFY(app.deliver(wrap("PeerList", peer("201-a", "SIP", "201"))));
    QVERIFY(app.deliver(wrap("PeerStatusList", peer("200-desk"))));
    TelvixPrivate* d = TelvixPrivate::get(app.client());
    app.onLibraryThread([d] {
        d->chatIdToExten.insert(QStringLiteral("bob@chat"), QStringLiteral("201"));
        d->extenToChatId.insert(QStringLiteral("201"), QStringLiteral("bob@chat"));
    });
    QSignalSpy gone(app.client(), &Telvix::disconnectedFromServer);
    app.server().disconnectClient(app.connection());
    QTRY_VERIFY_WITH_TIMEOUT(!gone.isEmpty(), 5000);
    const PeerMaps maps = peerMaps(app);
    QVERIFY(maps.accountToExten.isEmpty());
    QVERIFY(maps.extenToAccounts.isEmpty());
    QCOMPARE(maps.status.value("201").contacts, QStringList {"201-a"});
    bool chatMapsEmpty = false;
    app.onLibraryThread([&] { chatMapsEmpty = d->chatIdToExten.isEmpty() && d->extenToChatId.isEmpty(); });
    QVERIFY(chatMapsEmpty);
}

void TestTelvixDispatch::mobileNumberFromServiceStates_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QStringList>("numbers");
    QTest::newRow("list with the service")
        << wrap("ServiceStatusList", service("ufwd", "") + service("forktomobile", "3471112222"))
        << QStringList {"3471112222"};
    QTest::newRow("list without the service clears it")
        << wrap("ServiceStatusList", service("ufwd", "0612")) << QStringList {""};
    QTest::newRow("empty list clears it") << wrap("ServiceStatusList", QString()) << QStringList {""};
    QTest::newRow("single with a number")
        << service("forktomobile", "3479998888") << QStringList {"3479998888"};
    QTest::newRow("single without a number") << service("forktomobile", "") << QStringList();
    QTest::newRow("single of another service") << service("ufwd", "0612") << QStringList();
}

void TestTelvixDispatch::mobileNumberFromServiceStates()
{
    QFETCH(QString, body);
    QFETCH(QStringList, numbers);
    LoggedInClient app(TELVIX::AppModeSrntMobile);
    QVERIFY(app.start());
    QSignalSpy mobile(app.client(), &Telvix::sigExtenMobileNumberRcvd);
    QSignalSpy states(app.client(), &Telvix::sigServiceStatusChanged);
    QVERIFY(app.deliver(body));
    QStringList raised;
    for (const QList<QVariant>& args : qAsConst(mobile))
        raised << args.at(0).toString();
    QCOMPARE(raised, numbers);
    QCOMPARE(states.count(), 1);
}

void TestTelvixDispatch::tokensServeTheirAskersInOrder()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy received(app.client(), &Telvix::sigAuthTokenReceived);
    QSignalSpy error(app.client(), &Telvix::sigAuthTokenError);
    QVERIFY(app.client()->requestAccessToken());
    QVERIFY(app.client()->requestAccessToken());
    QTRY_COMPARE(app.framesWith(QStringLiteral("GetAuthToken")).size(), 2);
    QVERIFY(app.framesWith(QStringLiteral("GetAuthToken")).first().contains("<GetAuthToken></GetAuthToken>"));

    // A bad answer leaves both askers waiting.
    app.server().send(app.connection(), FakeCtiServer::document(wrap("AuthToken", element("Token", ""))));
    QTRY_COMPARE(error.count(), 1);
    QCOMPARE(error.at(0).at(0).toString(), QStringLiteral("Unknown error"));
    QVERIFY(app.deliver(token("first")));
    QVERIFY(app.deliver(token("second")));
    QCOMPARE(received.count(), 2);
    QCOMPARE(received.at(0).at(0).toString(), QStringLiteral("first"));
    QCOMPARE(received.at(1).at(0).toString(), QStringLiteral("second"));
    QCOMPARE(received.at(0).at(1).toDateTime(), QDateTime(QDate(2026, 12, 1), QTime(10, 30)));
    // A token nobody waits for still reaches the application.
    QVERIFY(app.deliver(token("unasked")));
    QCOMPARE(received.count(), 3);
    bool queueEmpty = false;
    TelvixPrivate* d = TelvixPrivate::get(app.client());
    app.onLibraryThread([&] { queueEmpty = d->downloaders.isEmpty(); });
    QVERIFY(queueEmpty);
}

void TestTelvixDispatch::ctiConfigurationSetsSipSettingsAndChatAccount()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy sip(app.client(), &Telvix::sigSipSettingsReceived);
    LogbusCapture log;
    const QString config = wrap(
        "CtiConfiguration",
        element("ChatID", "alice@chat") + element("ChatPort", "5223") + element("SipRegistrarIp", "10.0.0.5")
            + element("SipRegistrarPort", "5070") + element("SipProxyIp", "10.0.0.6"));
    QVERIFY(app.deliver(config));
    QCOMPARE(sip.count(), 1);
    const SipConfiguration settings = sip.at(0).at(0).value<SipConfiguration>();
    QVERIFY(settings.valid);
    QCOMPARE(settings.registrarIp, QStringLiteral("10.0.0.5"));
    QCOMPARE(int(settings.registrarPort), 5070);
    QCOMPARE(settings.proxyIp, QStringLiteral("10.0.0.6"));
    // What the server leaves out keeps the assumed default.
    QCOMPARE(int(settings.proxyPort), 5060);
    QCOMPARE(settings.sipProtocol, QStringLiteral("UDP"));
    QVERIFY(log.contains(
        1000,
        "Valid CTI configuration msg received: -- Registrar  10.0.0.5 : 5070 -- Proxy  10.0.0.6 : 5060"));
    QVERIFY(log.contains(1000, "Received a new ChatConfiguration"));
    QVERIFY(log.contains(1000, "received chat info. chatID / chatPort: alice@chat  /  5223"));

    log.clear();
    QVERIFY(app.deliver(config));
    QVERIFY(log.contains(1000, "Received ChatConfiguration is equal to current one: nothing to do"));
    QCOMPARE(sip.count(), 2);
}

void TestTelvixDispatch::callHistoryIsSeenFromTheUsersSide()
{
    // A mobile client keeps no store: the history goes out as it arrived.
    LoggedInClient app(TELVIX::AppModeSrntMobile);
    QVERIFY(app.start());
    QSignalSpy history(app.client(), &Telvix::sigCdrChanged);
    LogbusCapture log;
    const auto call = [](const char* uid, const char* caller, const char* callee, const char* direction,
                         const char* status) {
        return wrap("Call",
                    element("EntryUid", uid) + element("Caller", caller) + element("Called", callee)
                        + element("Date", "2026-11-20 09:00:00") + element("Duration", "12")
                        + element("Direction", direction) + element("Status", status));
    };
    QVERIFY(app.deliver(wrap("CallList",
                             call("e1", "201", "200", "4", "8") + call("e2", "200", "0612", "2", "4")
                                 + call("bad", "200", "201", "3", "8"))));
    QCOMPARE(history.count(), 1);
    const Cdr cdr = history.at(0).at(0).value<Cdr>();
    QCOMPARE(cdr.size(), 2);
    QCOMPARE(cdr.at(0).localDirection, QStringLiteral("in"));
    QCOMPARE(cdr.at(0).infoType, QStringLiteral("ANSWER_LOCAL_IN"));
    QCOMPARE(cdr.at(1).localDirection, QStringLiteral("out"));
    QCOMPARE(cdr.at(1).infoType, QStringLiteral("NOANSWER_OUT"));
    QVERIFY(log.contains(10000, "received cdr from sarnet"));
    QVERIFY(log.contains(10000, "VALID CDR received from sarnet with  2  entries"));
    QVERIFY(log.contains(10000, "emitting unpersisted cdr"));
}

void TestTelvixDispatch::recordsReachTheApplication_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<QByteArray>("field");
    QTest::addColumn<QVariant>("value");
    const QString command = wrap("CommandResponse",
                                 element("RequestId", "r7") + element("Command", "reload")
                                     + element("IsFailed", "1") + element("ExitCode", "4"));
    const QByteArray commandSignal = SIGNAL(sigServerCommandResponse(ServerCommandResponse));
    QTest::newRow("command failed") << command << commandSignal << QByteArray("succeeded") << QVariant(false);
    QTest::newRow("diagnostic") << wrap("LoggerMessage",
                                        element("MessageId", "m3") + element("Message", "codec mismatch"))
                                << QByteArray(SIGNAL(sigDiagnosticMessageReceived(DiagnosticMessage)))
                                << QByteArray("message") << QVariant("codec mismatch");
    QTest::newRow("mailbox") << wrap("MailboxStatus", element("Mailbox", "200") + element("OldMsgCount", "5"))
                             << QByteArray(SIGNAL(sigMailboxStatusChanged(MailboxStatus)))
                             << QByteArray("oldCount") << QVariant(5);
}

void TestTelvixDispatch::recordsReachTheApplication()
{
    QFETCH(QString, body);
    QFETCH(QByteArray, signal);
    QFETCH(QByteArray, field);
    QFETCH(QVariant, value);
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy raised(app.client(), signal.constData());
    QVERIFY(app.deliver(body));
    QCOMPARE(raised.count(), 1);
    // The record is a gadget: its field is read by name, as a script would.
    const QVariant record = raised.at(0).at(0);
    const QMetaObject* meta = QMetaType::metaObjectForType(record.userType());
    QVERIFY(meta);
    const QMetaProperty property = meta->property(meta->indexOfProperty(field.constData()));
    QCOMPARE(property.readOnGadget(record.constData()), value);
}

void TestTelvixDispatch::tenantsRebrandingAndDialCodesReachTheApplication()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    Telvix* client = app.client();
    QSignalSpy tenants(client, &Telvix::sigTenantListReceived);
    QSignalSpy rebranding(client, &Telvix::sigRebrandingPackageChanged);
    QSignalSpy codes(client, &Telvix::sigServicesCodesReceived);
    QVERIFY(app.deliver(wrap("TenantList",
                             wrap("Tenant", element("TenantUuid", "t1") + element("Domain", "acme"))
                                 + wrap("Tenant", element("TenantUuid", "t2") + element("Domain", "beta")))));
    QVERIFY(app.deliver(wrap("RebrandingPackChanged", QString())));
    QVERIFY(app.deliver(wrap(
        "Services", wrap("NumberingPlan", element("voicemail", "*50") + element("outboundPrefix", "0")))));

    using Tenants = QMap<QString, QString>;
    QCOMPARE(tenants.at(0).at(0).value<Tenants>(), (Tenants {{"t1", "acme"}, {"t2", "beta"}}));
    QCOMPARE(rebranding.count(), 1);
    using Codes = QMap<TELVIX::ServiceDialCodeType, QString>;
    const Codes received = codes.at(0).at(0).value<Codes>();
    QCOMPARE(received.value(TELVIX::ServiceVoicemail), QStringLiteral("*50"));
    QCOMPARE(received.value(TELVIX::InCallAtXfer), QStringLiteral("*4"));
    QCOMPARE(client->getOutboundLinePrefix(), QStringLiteral("0"));
}

void TestTelvixDispatch::voicemailListInOpenForm()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy list(app.client(), &Telvix::sigVoicemailMsgList);
    QVERIFY(
        app.deliver(wrap("VoicemailMessageList",
                         wrap("VoicemailMessage",
                              element("ID", "7") + element("CallerNum", "0612")
                                  + element("Date", "2026-11-19T08:15:00.000") + element("isNew", "1")))));
    QCOMPARE(list.count(), 1);
    const QList<VoicemailMessage> messages = list.at(0).at(0).value<QList<VoicemailMessage>>();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.at(0).id, QStringLiteral("7"));
}

void TestTelvixDispatch::characterSplitBetweenTwoReadsArrivesWhole()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy mailbox(app.client(), &Telvix::sigMailboxStatusChanged);
    const QString xml
        = FakeCtiServer::document(wrap("MailboxStatus", element("Mailbox", QStringLiteral("Zo\u00eb-200"))));
    // The cut falls between the two bytes of the "ë".
    const int cut = xml.toUtf8().indexOf("\xc3\xab") + 1;
    QVERIFY(app.server().sendSplit(app.connection(), xml, {cut}));
    QVERIFY(app.waitForAck(FakeCtiServer::uuidOf(xml)));
    QCOMPARE(mailbox.count(), 1);
    QCOMPARE(mailbox.at(0).at(0).value<MailboxStatus>().mailbox, QStringLiteral("Zo\u00eb-200"));
}

void TestTelvixDispatch::everySignalCanCrossThreads()
{
    // An application on its own thread gets the signals through queued
    // connections, which need every argument type registered by name.
    const QMetaObject& meta = Telvix::staticMetaObject;
    QStringList unregistered;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        if (method.methodType() != QMetaMethod::Signal)
            continue;
        for (int p = 0; p < method.parameterCount(); ++p) {
            if (method.parameterType(p) == QMetaType::UnknownType)
                unregistered << QString::fromLatin1(method.methodSignature());
        }
    }
    QVERIFY2(unregistered.isEmpty(), qPrintable(unregistered.join(QLatin1Char(' '))));
}

QTEST_GUILESS_MAIN(TestTelvixDispatch)
#include "tst_telvixdispatch.moc"
