// The local server as an application sees it: real clients on 127.0.0.1,
// the exact bytes of every message, the logs of what goes wrong.
#include "clientsocketmanager.h"
#include "logbuscapture.h"
#include "qtlogcapture.h"

#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <functional>
#include <vector>

using Send = std::function<void(ClientSocketManager&)>;
Q_DECLARE_METATYPE(Send)

namespace {

const QString kConnected = QStringLiteral("New client connected to local socket");

QByteArray framed(const QByteArray& body, const QByteArray& api = "4.1")
{
    return "<SRNT><API>" + api + "</API>" + body + "</SRNT>";
}

const QByteArray kKeepAlive = framed("<KeepAlive/>");

// Opens an application's connection and waits until the manager took it.
bool attach(QTcpSocket& app, int port, const LogbusCapture& log)
{
    const int before = log.count(kConnected);
    app.connectToHost(QHostAddress::LocalHost, quint16(port));
    return app.waitForConnected(5000)
        && QTest::qWaitFor([&] { return log.count(kConnected) > before; }, 5000);
}

QByteArray& drain(QTcpSocket& app, QByteArray& received)
{
    received += app.readAll();
    return received;
}

// Uses up every free file descriptor of the process while it lives, so that
// the next socket the server needs cannot be made.
class FdExhaustion
{
public:
    FdExhaustion()
    {
        getrlimit(RLIMIT_NOFILE, &m_saved);
        rlimit lowered = m_saved;
        lowered.rlim_cur = std::min<rlim_t>(m_saved.rlim_cur, 1024);
        setrlimit(RLIMIT_NOFILE, &lowered);
        const int base = ::open("/dev/null", O_RDONLY);
        if (base < 0)
            return;
        m_fds.push_back(base);
        for (int fd = ::dup(base); fd >= 0; fd = ::dup(base))
            m_fds.push_back(fd);
    }
    ~FdExhaustion()
    {
        for (int fd : m_fds)
            ::close(fd);
        setrlimit(RLIMIT_NOFILE, &m_saved);
    }

private:
    rlimit m_saved {};
    std::vector<int> m_fds;
};

ChatMessage chat(int type, int direction, const QDateTime& time)
{
    ChatMessage m;
    m.id = QStringLiteral("m1");
    m.exten = QStringLiteral("205");
    m.threadId = QStringLiteral("t1");
    m.body = QStringLiteral("a<b & c");
    m.type = type;
    m.direction = direction;
    m.timestamp = time;
    return m;
}

PhoneBook book(const QString& name, const QString& first, const QString& number)
{
    PhoneBookEntry entry;
    entry.contactUuid = QStringLiteral("c-") + first;
    entry.firstName = first;
    entry.lastName = QStringLiteral("Roe");
    entry.displayName = first + QStringLiteral(" Roe");
    entry.company = QStringLiteral("Acme");
    entry.mobileNumber = QStringLiteral("+391");
    if (!number.isEmpty())
        entry.contacts = {{QStringLiteral("phone"), QStringLiteral("work"), number, false},
                          {QStringLiteral("email"), QStringLiteral("main"), QStringLiteral("x@y"), false}};
    PhoneBook b;
    b.name = name;
    b.folder = QStringLiteral("Public");
    b.entries = {entry};
    return b;
}

QByteArray extenListXml(const QByteArray& first, const QByteArray& number)
{
    return "<ExtenList><Exten><ContactUuid>c-" + first + "</ContactUuid><FirstName>" + first
        + "</FirstName><LastName>Roe</LastName><Name>" + first + " Roe</Name><Company>Acme</Company><Number>"
        + number + "</Number></Exten></ExtenList>";
}

QByteArray phonebookXml(const QByteArray& name, const QByteArray& first)
{
    return "<Phonebook><Account>" + name + "</Account><Folder>Public</Folder><Entry><ContactUuid>c-" + first
        + "</ContactUuid><First>" + first + "</First><Last>Roe</Last><DisplayName>" + first
        + " Roe</DisplayName><Company>Acme</Company><MobileNumber>+391</MobileNumber><Contacts>"
          "<Contact><Label>work</Label><Type>phone</Type><Value>7</Value></Contact>"
          "<Contact><Label>main</Label><Type>email</Type><Value>x@y</Value></Contact>"
          "</Contacts></Entry></Phonebook>";
}

} // namespace

class TestClientSocketManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void messages_data()
    {
        QTest::addColumn<Send>("send");
        QTest::addColumn<QByteArray>("expected");
        // Each row's message is followed by a keep-alive, which shows that a
        // row that must send nothing sends nothing.
#define ROW(name, call, body)                                                                                \
    QTest::newRow(name) << Send([=](ClientSocketManager& m) { m.call; })                                     \
                        << (QByteArray(body).isEmpty() ? kKeepAlive : framed(body) + kKeepAlive)
        const QString u = QStringLiteral("u1"), a = QStringLiteral("201"), b = QStringLiteral("202");
        ROW("logout", sendLogoutMessage("UserRequest"),
            "<Event><Logout><Reason>UserRequest</Reason></Logout></Event>");
        ROW("incoming: IsC2C is 1/0", sendIncomingCallMessage(u, a, b, true),
            "<Event><IncomingCall><Uid>u1</Uid><From>201</From><To>202</To><IsC2C>1</IsC2C></IncomingCall>"
            "</Event>");
        ROW("answered", sendAnsweredCallMessage(u, a, b),
            "<Event><AnsweredCall><Uid>u1</Uid><From>201</From><To>202</To></AnsweredCall></Event>");
        ROW("finished: Missed is true/false", sendFinishedCallMessage(u, a, b, true),
            "<Event><FinishedCall><Uid>u1</Uid><From>201</From><To>202</To><Missed>true</Missed>"
            "</FinishedCall></Event>");
        ROW("finished, not missed", sendFinishedCallMessage(u, a, b, false),
            "<Event><FinishedCall><Uid>u1</Uid><From>201</From><To>202</To><Missed>false</Missed>"
            "</FinishedCall></Event>");
        ROW("originate", sendOriginateCallMessage(u, a, b),
            "<Event><OriginateCall><Uid>u1</Uid><From>201</From><To>202</To></OriginateCall></Event>");
        ROW("missed", sendMissedCallMessage(u, a),
            "<Event><MissedCall><Uid>u1</Uid><From>201</From></MissedCall></Event>");
        ROW("transfer canceled", sendCallTransferCanceledMessage(u, "busy"),
            "<Event><TransferCanceled><Uid>u1</Uid><Reason>busy</Reason></TransferCanceled></Event>");
        TransferStartedCallEvent started;
        started.uid = u;
        started.localChannel = QStringLiteral("SIP/201-1");
        started.sipAccount = a;
        started.calledNum = QStringLiteral("300");
        TransferCompletedCallEvent completed;
        static_cast<CallLegEvent&>(completed) = started;
        ROW("transfer started", sendCallTransferStartedMessage(started),
            "<Event><TransferStarted><Uid>u1</Uid><LocalChannel>SIP/201-1</LocalChannel>"
            "<SipAccount>201</SipAccount><CalledNum>300</CalledNum></TransferStarted></Event>");
        ROW("transfer completed", sendCallTransferCompletedMessage(completed),
            "<Event><TransferCompleted><Uid>u1</Uid><LocalChannel>SIP/201-1</LocalChannel>"
            "<SipAccount>201</SipAccount></TransferCompleted></Event>");
        ROW("c2c originate", sendC2cOriginate(u, b, "mobile"),
            "<Event><C2cOriginate><Uid>u1</Uid><To>202</To><Type>mobile</Type></C2cOriginate></Event>");
        ROW("c2c finished", sendC2cFinished(u), "<Event><C2cFinished><Uid>u1</Uid></C2cFinished></Event>");
        ROW("dial codes", sendDialCodesUpdateEvent(), "<Event><DialCodesUpdated/></Event>");
        ROW("rebranding", sendRebrandingPackDownloadCompleted("/d/assets.zip"),
            "<Event><RebrandingPackDownloadComplete><File>/d/assets.zip</File>"
            "</RebrandingPackDownloadComplete></Event>");
        ROW("voicemail download, own root", sendVoicemailMessageDownloadCompleted("7", "m-7", "/d/7.wav"),
            "<VoicemailMessageDownloadComplete><ID>7</ID><MsgID>m-7</MsgID><File>/d/7.wav</File>"
            "</VoicemailMessageDownloadComplete>");

        BuddyStatus s202;
        s202.exten = b;
        s202.presence = TELVIX::ChatPresenceAway;
        s202.presenceText = QStringLiteral("lunch");
        s202.ctiLogged = true;
        s202.blfContext = QStringLiteral("ctx");
        s202.blfStatus = TELVIX::BlfRinging;
        BuddyStatus s203 = s202;
        s203.exten = QStringLiteral("203");
        const QByteArray x202 = "<ExtenStatus><Exten>202</Exten><Presence>AWAY</Presence><PresenceMsg>lunch"
                                "</PresenceMsg><CtiLogged>1</CtiLogged><QPaused>0</QPaused><BlfContext>ctx"
                                "</BlfContext><BlfStatus>RINGING</BlfStatus></ExtenStatus>";
        const QByteArray x203 = QByteArray(x202).replace("202", "203");
        ROW("exten status", sendExtenStatus(s202), x202);
        ROW("exten status map, key order", sendExtenStatusMap({{"203", s203}, {"202", s202}}),
            "<ExtenStatusList>" + x202 + x203 + "</ExtenStatusList>");
        ROW("exten status map empty: nothing", sendExtenStatusMap({}), "");

        CdrEntry call;
        call.entryUid = QStringLiteral("e1");
        call.caller = a;
        call.callerName = QStringLiteral("Ann");
        call.callee = b;
        call.calleeName = QStringLiteral("Bob");
        call.startTime = QStringLiteral("2024-03-05 10:00:00");
        call.statusText = QStringLiteral("ok");
        call.directionText = QStringLiteral("local");
        call.duration = 42;
        call.attributes = TELVIX::CallAttrFromLocalExten | TELVIX::CallAttrToLocalExten;
        CdrEntry busy = call;
        busy.statusText = QStringLiteral("busy");
        const QByteArray callXml
            = "<Call><EntryUid>e1</EntryUid><Caller>201</Caller><CallerName>Ann</CallerName>"
              "<Called>202</Called><CalledName>Bob</CalledName><Date>2024-03-05 10:00:00"
              "</Date><Status>ok</Status><Direction>local</Direction><Duration>42</Duration>"
              "<CallAttributes>from_local_exten,to_local_exten</CallAttributes></Call>";
        ROW("cdr: any other status is noanswer", sendCdr({call, busy}),
            "<CallList>" + callXml + QByteArray(callXml).replace(">ok<", ">noanswer<") + "</CallList>");
        ROW("cdr empty: nothing", sendCdr({}), "");

        const QList<PhoneBook> books {book("exten", "Ext", "7"), book("pub", "Pub", "7"),
                                      book("priv", "Priv", "7"), book("more", "More", "7")};
        const auto both = TELVIX::PhonebookTypeExtensions | TELVIX::PhonebookTypePhonebooks;
        QTest::newRow("contacts, both: 0 extensions, 1 and 2 books")
            << Send([=](ClientSocketManager& m) { m.sendContacts(books, both); })
            << framed(extenListXml("Ext", "7"))
                + framed("<PhonebookList>" + phonebookXml("pub", "Pub") + phonebookXml("priv", "Priv")
                         + "</PhonebookList>")
                + kKeepAlive;
        ROW("contacts, books only: 0 and 1", sendContacts(books, TELVIX::PhonebookTypePhonebooks),
            "<PhonebookList>" + phonebookXml("exten", "Ext") + phonebookXml("pub", "Pub")
                + "</PhonebookList>");
        ROW("contacts, extensions only", sendContacts(books, TELVIX::PhonebookTypeExtensions),
            extenListXml("Ext", "7"));
        ROW("contacts, both, empty list: nothing", sendContacts({}, both), "");
        ROW("exten list without contacts", sendExtenList(book("e", "Ann", "")), extenListXml("Ann", ""));
        ROW("exten list empty", sendExtenList(PhoneBook()), "<ExtenList/>");
        ROW("phonebook empty: nothing", sendPhonebook({}), "");

        const ServiceStatus service {QStringLiteral("ufwd"), QStringLiteral("UFWD"), QStringLiteral("333"),
                                     1};
        ROW("service status", sendServiceStatus({service}),
            "<ServiceStatusList><ServiceStatus><Id>ufwd</Id><Type>UFWD</Type><Status>1</Status>"
            "<Value>333</Value></ServiceStatus></ServiceStatusList>");
        ROW("service status empty", sendServiceStatus({}), "<ServiceStatusList/>");

        IdentityEntry identity;
        identity.name = a;
        identity.type = QStringLiteral("SIP");
        identity.appAccount = true;
        identity.user = QStringLiteral("u201");
        identity.password = QStringLiteral("p&w");
        identity.codecs = QStringList {"alaw", "g722"};
        identity.sipTos = 104;
        identity.audioTos = 184;
        identity.videoTos = 136;
        identity.dtmfMode = TELVIX::DtmfRfc2833;
        identity.regStatus = QStringLiteral("OK");
        ROW("identities", sendIdentities({identity}),
            "<IdentityList><Identity><Name>201</Name><Type>SIP</Type><AppAccount>1</AppAccount>"
            "<User>u201</User><Password>p&amp;w</Password><Codecs>alaw,g722</Codecs><SipTos>104</SipTos>"
            "<AudioTos>184</AudioTos><VideoTos>136</VideoTos><DtmfMode>RFC2833</DtmfMode><Status>OK</Status>"
            "</Identity></IdentityList>");
        ROW("identities empty", sendIdentities({}), "<IdentityList/>");

        VoicemailMessage vm;
        vm.id = QStringLiteral("7");
        vm.messageUuid = QStringLiteral("m-7");
        vm.callerName = QStringLiteral("Ann");
        vm.callerNumber = a;
        vm.date = QDateTime(QDate(2024, 3, 5), QTime(9, 8, 7, 6));
        vm.duration = 12;
        vm.isUrgent = true;
        vm.originMailbox = QStringLiteral("201@default");
        ROW("voicemail list", sendVoicemailList({vm}),
            "<VoicemailMessageList><VoicemailMessage><ID>7</ID><MsgID>m-7</MsgID><CallerName>Ann</CallerName>"
            "<CallerNum>201</CallerNum><Date>2024-03-05T09:08:07.006</Date><Duration>12</Duration>"
            "<isNew>0</isNew><isUrgent>1</isUrgent><OriginMailbox>201@default</OriginMailbox>"
            "</VoicemailMessage></VoicemailMessageList>");
        ROW("voicemail list empty", sendVoicemailList({}), "<VoicemailMessageList/>");
        ROW("mailbox status", sendMailboxStatus({a, true, 2, 3, 1}),
            "<MailboxStatus><Mailbox>201</Mailbox><Waiting>1</Waiting><NewMsgCount>2</NewMsgCount>"
            "<OldMsgCount>3</OldMsgCount><UrgentMsgCount>1</UrgentMsgCount></MailboxStatus>");

        const QDateTime utc(QDate(2024, 3, 5), QTime(14, 7, 9, 45), Qt::UTC);
        const QByteArray msgXml = "<ChatMessage><Id>m1</Id><Exten>205</Exten><ThreadId>t1</ThreadId><Message>"
                                  "a&lt;b &amp; c</Message><Type>copy</Type><Direction>sent</Direction>"
                                  "<DeliveredTime>2024-03-05T14:07:09.045Z</DeliveredTime></ChatMessage>";
        ROW("chat message", sendChatMessage(chat(1, 1, utc)), "<ChatEvent>" + msgXml + "</ChatEvent>");
        ROW("chat message: type 7, no UTC conversion", sendChatMessage(chat(7, 9, utc.toOffsetFromUtc(3600))),
            "<ChatEvent>"
                + QByteArray(msgXml)
                      .replace("copy", "invalid")
                      .replace("sent", "invalid")
                      .replace("T14:", "T15:")
                + "</ChatEvent>");
        ROW("chat history", sendChatHistory({chat(1, 1, utc), chat(1, 1, utc)}),
            "<ChatEvent><History>" + msgXml + msgXml + "</History></ChatEvent>");
        ROW("chat history empty", sendChatHistory({}), "<ChatEvent><History/></ChatEvent>");
        ROW("composing", sendChatContactComposing(b, "t1", false),
            "<ChatEvent><ComposingStatus><Exten>202</Exten><ThreadId>t1</ThreadId><Composing>0</Composing>"
            "</ComposingStatus></ChatEvent>");
        ROW("message event", sendChatMessageEvent(b, "DELIVERED"),
            "<ChatEvent><MessageEvent><Exten>202</Exten><Event>DELIVERED</Event></MessageEvent></ChatEvent>");
        ROW("chat connected", sendChatConnected(), "<ChatEvent><Login/></ChatEvent>");
        ROW("chat disconnected", sendChatDisconnected("gone"),
            "<ChatEvent><Logout><Reason>gone</Reason></Logout></ChatEvent>");
        ROW("history enabled: no bytes", sendChatHistoryEnabled(true), "");
        ROW("history disabled: no bytes", sendChatHistoryEnabled(false), "");
        ROW("ft request", sendChatFtRequest("s1", "202", "a.pdf", "application/pdf"),
            "<ChatEvent><FTRequest><SID>s1</SID><From>202</From><Filename>a.pdf</Filename>"
            "<Mimetype>application/pdf</Mimetype></FTRequest></ChatEvent>");
        ROW("ft start", sendChatFtStart("s1"), "<ChatEvent><FTStart><SID>s1</SID></FTStart></ChatEvent>");
        ROW("ft sent", sendChatFtSent("s1"), "<ChatEvent><FTSent><SID>s1</SID></FTSent></ChatEvent>");
        ROW("ft complete", sendChatFtComplete("s1", "/d/a.pdf"),
            "<ChatEvent><FTComplete><SID>s1</SID><Filepath>/d/a.pdf</Filepath></FTComplete></ChatEvent>");
        ROW("ft error", sendChatFtError("s1"), "<ChatEvent><FTError><SID>s1</SID></FTError></ChatEvent>");
        ROW("ft progress", sendChatFtProgress("s1", 0.123456789f),
            "<ChatEvent><FTProgress><SID>s1</SID><Progress>0.123457</Progress></FTProgress></ChatEvent>");
        ROW("vcard cut at NUL", sendChatVCardComplete("s1", QByteArray("BEGIN:\xc3\xa8\0tail", 12)),
            "<ChatEvent><VCardComplete><SID>s1</SID><Data>BEGIN:\xc3\xa8</Data></VCardComplete></ChatEvent>");
#undef ROW

        LoginDetails login;
        login.apiVersion = QStringLiteral("5.10");
        login.appMode = TELVIX::AppModeSrntMobile;
        login.exten = a;
        login.userUuid = QStringLiteral("uu");
        login.mobileNumber = QStringLiteral("+3934");
        login.firstName = QStringLiteral("Ann");
        login.lastName = QStringLiteral("Lee");
        login.ccRole = TELVIX::CallCenterRoleSupervisor;
        login.features = QStringList {"chat", "queues"};
        login.firmwareVersion = QStringLiteral("7.2");
        login.serialNumber = QStringLiteral("SN9");
        login.partNumber = QStringLiteral("PN1");
        login.loginMessage = QStringLiteral("Hi & bye");
        QTest::newRow("login: API before and after")
            << Send([=](ClientSocketManager& m) {
                   m.sendKeepAlive();
                   m.sendLoginMessage(login);
               })
            << kKeepAlive
                + framed(
                    "<Login><Exten>201</Exten><UserUuid>uu</UserUuid><AppMode>srnt_mobile</AppMode>"
                    "<MobileNumber>+3934</MobileNumber><FirstName>Ann</FirstName><LastName>Lee</LastName>"
                    "<CCRole>SUPERVISOR</CCRole><Features>chat,queues</Features><Firmware>7.2</Firmware>"
                    "<SerialNumber>SN9</SerialNumber><PartNumber>PN1</PartNumber>"
                    "<LoginMessage>Hi &amp; bye</LoginMessage></Login>",
                    "5.10")
                + framed("<KeepAlive/>", "5.10");
        QTest::newRow("already framed: unchanged")
            << Send([](ClientSocketManager& m) { m.sendMessage(QStringLiteral("<SRNT><X/></SRNT>")); })
            << "<SRNT><X/></SRNT>" + kKeepAlive;
        QTest::newRow("empty message: empty frame")
            << Send([](ClientSocketManager& m) { m.sendMessage(QString()); }) << framed("") + kKeepAlive;
    }

    void messages()
    {
        QFETCH(Send, send);
        QFETCH(QByteArray, expected);
        LogbusCapture log;
        QTemporaryDir dir;
        ClientSocketManager manager(dir.path());
        QTcpSocket app;
        QVERIFY(attach(app, manager.initServer(), log));
        send(manager);
        manager.sendKeepAlive();
        QByteArray received;
        QTRY_COMPARE(drain(app, received), expected);
        QVERIFY(!log.contains(QStringLiteral("Error sending message")));
    }

    void withoutClientEachSendLogsOneError_data()
    {
        QTest::addColumn<Send>("send");
        QTest::addColumn<QString>("message");
        QTest::newRow("keep-alive") << Send([](auto& m) { m.sendKeepAlive(); }) << "<KeepAlive/>";
        QTest::newRow("c2c finished") << Send([](auto& m) { m.sendC2cFinished("u1"); })
                                      << "<Event><C2cFinished><Uid>u1</Uid></C2cFinished></Event>";
        QTest::newRow("identities") << Send([](auto& m) { m.sendIdentities({}); }) << "<IdentityList/>";
    }

    void withoutClientEachSendLogsOneError()
    {
        QFETCH(Send, send);
        QFETCH(QString, message);
        QTemporaryDir dir;
        ClientSocketManager manager(dir.path());
        QVERIFY(manager.initServer() > 0);
        LogbusCapture log;
        send(manager);
        QCOMPARE(log.count(QStringLiteral("Error sending message")), 1);
        QVERIFY(log.contains(10, QStringLiteral("Error sending message")));
        // The message as given, not its frame.
        QVERIFY(log.texts().contains(
            QStringLiteral("void ClientSocketManager::sendMessage(const QString&) Error "
                           "sending message. client      0x0 - open: false - valid: false "
                           "- writable: false \nTrying to send message: ")
            + message));
    }

    void secondClientReplacesFirstAndFirstDisconnectDropsIt()
    {
        LogbusCapture log;
        QTemporaryDir dir;
        ClientSocketManager manager(dir.path());
        const int port = manager.initServer();
        QTcpSocket first, second;
        QVERIFY(attach(first, port, log));
        QVERIFY(attach(second, port, log));
        manager.sendKeepAlive();
        QByteArray received;
        QTRY_COMPARE(drain(second, received), kKeepAlive);
        QCOMPARE(first.bytesAvailable(), 0);

        QSignalSpy dropped(&second, &QTcpSocket::disconnected);
        first.disconnectFromHost();
        QVERIFY(dropped.wait(5000));
        log.clear();
        manager.sendKeepAlive();
        QCOMPARE(log.count(QStringLiteral("Error sending message")), 1);
    }

    void inboundData_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("priority");
        QTest::addColumn<QString>("line");
        const QString keepAlive = QStringLiteral("Keep alive received from GUI socket");
        const QString unknown = QStringLiteral("Unknown message received from GUI socket: ");
        QTest::newRow("word inside letters") << QByteArray("xxKeepAlivexx") << 10000 << keepAlive;
        QTest::newRow("element form") << QByteArray("<KeepAlive/>") << 10000 << keepAlive;
        QTest::newRow("lower case") << QByteArray("keepalive") << 100 << unknown + "keepalive";
        QTest::newRow("after a NUL") << QByteArray("junk\0KeepAlive", 14) << 100 << unknown + "junk";
    }

    void inboundData()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, priority);
        QFETCH(QString, line);
        LogbusCapture log;
        QTemporaryDir dir;
        ClientSocketManager manager(dir.path());
        QTcpSocket app;
        QVERIFY(attach(app, manager.initServer(), log));
        app.write(data);
        QVERIFY(log.waitFor(line));
        QVERIFY(
            log.contains(priority, QStringLiteral("void ClientSocketManager::handleClientData() ") + line));
        QCOMPARE(app.bytesAvailable(), 0);
    }

    void queuedReadAfterCloseClientIsHarmless()
    {
        LogbusCapture log;
        QTemporaryDir dir;
        ClientSocketManager manager(dir.path());
        QTcpSocket app;
        QVERIFY(attach(app, manager.initServer(), log));
        manager.closeClient();
        QVERIFY(QMetaObject::invokeMethod(&manager, "handleClientData", Qt::QueuedConnection));
        QTRY_COMPARE(app.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(!log.contains(QStringLiteral("GUI socket")));
    }

    void portFollowsServerLifecycle()
    {
        LogbusCapture log;
        QtLogCapture qtLog;
        QTemporaryDir dir;
        ClientSocketManager manager(dir.path());
        QCOMPARE(manager.getServerPort(), 0);
        QVERIFY(
            log.contains(100, QStringLiteral("int ClientSocketManager::getServerPort() TCP server is null")));

        const int port = manager.initServer();
        QVERIFY(port > 0);
        QCOMPARE(manager.getServerPort(), port);
        manager.closeServer();
        QCOMPARE(qtLog.messages(QtDebugMsg),
                 (QStringList {"Closing TCP server", "Closing server", "Server closed"}));
        QVERIFY(log.contains(10000, QStringLiteral("Closing TCP server")));
        QCOMPARE(manager.getServerPort(), 0);

        const int again = manager.initServer();
        QVERIFY(again > 0);
        QCOMPARE(manager.getServerPort(), again);
        QTcpSocket app;
        QVERIFY(attach(app, again, log));
        manager.sendKeepAlive();
        QByteArray received;
        QTRY_COMPARE(drain(app, received), kKeepAlive);
    }

    void listenFailureKeepsAServerThatIsNotListening()
    {
        LogbusCapture log;
        QTemporaryDir dir;
        ClientSocketManager manager(dir.path());
        int port = -1;
        {
            FdExhaustion noDescriptors;
            port = manager.initServer();
        }
        QCOMPARE(port, 0);
        QVERIFY(log.contains(
            10, QStringLiteral("int ClientSocketManager::initServer() Error listening on socket")));
        QCOMPARE(manager.getServerPort(), 0);
        QVERIFY(log.contains(100, QStringLiteral("TCP server is not listening")));
    }

    void failedAcceptIsLogged()
    {
        LogbusCapture log;
        QTemporaryDir dir;
        ClientSocketManager manager(dir.path());
        QTcpSocket app;
        app.connectToHost(QHostAddress::LocalHost, quint16(manager.initServer()));
        // The kernel completes the connection; the server has not taken it yet.
        QVERIFY(app.waitForConnected(5000));
        {
            FdExhaustion noDescriptors;
            QVERIFY(log.waitFor(QStringLiteral("Local server error: ")));
        }
        QVERIFY(log.contains(10000, QStringLiteral("void ClientSocketManager::serverSocketError(")));
        QVERIFY(!log.contains(kConnected));
    }
};

QTEST_GUILESS_MAIN(TestClientSocketManager)
#include "tst_clientsocketmanager.moc"
