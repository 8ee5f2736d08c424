// The local server as an application meets it through Telvix: the port,
// the events of the library arriving as framed XML, restart and shutdown.
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "qtlogcapture.h"
#include "telvix.h"

#include <QHostAddress>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>
#include <memory>

using Emitter = std::function<void(Telvix*)>;
Q_DECLARE_METATYPE(Emitter)

namespace {

const QString kAccepted = QStringLiteral("New client connected to local socket");

/// Runs `f` on the library's thread, where the library raises its signals.
void onLibraryThread(Telvix* telvix, const std::function<void()>& f)
{
    QMetaObject::invokeMethod(telvix, f, Qt::BlockingQueuedConnection);
}

/// One application on the loopback port, collecting whole messages.
class LocalApp
{
public:
    LocalApp()
    {
        QObject::connect(&m_socket, &QTcpSocket::readyRead, [this] {
            m_buffer += m_socket.readAll();
            const QByteArray end("</SRNT>");
            for (int at = m_buffer.indexOf(end); at >= 0; at = m_buffer.indexOf(end)) {
                messages << QString::fromUtf8(m_buffer.left(at + end.size()));
                m_buffer.remove(0, at + end.size());
            }
        });
    }

    /// Connects and waits until the library has taken the connection, so
    /// that nothing sent afterwards is lost.
    bool attach(const LogbusCapture& log, int port)
    {
        const int accepted = log.count(kAccepted);
        m_socket.connectToHost(QHostAddress::LocalHost, quint16(port));
        return m_socket.waitForConnected(5000)
            && QTest::qWaitFor([&] { return log.count(kAccepted) > accepted; }, 5000);
    }

    bool waitForMessages(int count) const
    {
        return QTest::qWaitFor([&] { return messages.size() >= count; }, 5000);
    }

    QTcpSocket& socket() { return m_socket; }
    QStringList messages;

private:
    QTcpSocket m_socket;
    QByteArray m_buffer;
};

QString frame(const QString& api, const QString& body)
{
    return QStringLiteral("<SRNT><API>%1</API>%2</SRNT>").arg(api, body);
}

QString eventXml(const QString& inner)
{
    return QStringLiteral("<Event>%1</Event>").arg(inner);
}

QString chatEvent(const QString& inner)
{
    return QStringLiteral("<ChatEvent>%1</ChatEvent>").arg(inner);
}

} // namespace

class tst_LocalServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void everyWiredSignalReachesTheApplication_data();
    void everyWiredSignalReachesTheApplication();
    void withoutServerPortIsZeroAndCloseSucceeds();
    void restartKeepsOneWiringAndChangesPort();
    void secondInitLeavesTheFirstServerRunning();
    void loginSetsTheFrameApiAndShutdownDropsTheApplication();

private:
    std::unique_ptr<LogbusCapture> m_log;
    QTemporaryDir m_dir;
    std::unique_ptr<Telvix> m_telvix;
    std::unique_ptr<LocalApp> m_app;

    std::unique_ptr<Telvix> startTelvix() const
    {
        auto telvix = std::make_unique<Telvix>(QStringLiteral("Linux"), QStringLiteral("6.1"),
                                               QStringLiteral("local-test"), QStringLiteral("1.0"),
                                               QStringLiteral("dev-local"), m_dir.path());
        return telvix->init() ? std::move(telvix) : nullptr;
    }
};

void tst_LocalServer::initTestCase()
{
    m_log = std::make_unique<LogbusCapture>();
    m_telvix = startTelvix();
    QVERIFY(m_telvix);
    const int port = m_telvix->initTcpServer();
    QVERIFY(port > 0);
    QCOMPARE(m_telvix->getTcpServerPort(), port);
    m_app = std::make_unique<LocalApp>();
    QVERIFY(m_app->attach(*m_log, port));
}

void tst_LocalServer::cleanupTestCase()
{
    m_app.reset();
    if (m_telvix)
        QVERIFY(m_telvix->shutdown());
}

// Each row raises one signal of the library; the application must get
// exactly the message of its own slot, with the arguments in their places.
void tst_LocalServer::everyWiredSignalReachesTheApplication_data()
{
    QTest::addColumn<Emitter>("emitter");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* name, Emitter e, const QString& body) {
        QTest::newRow(name) << e << frame(QStringLiteral("4.1"), body);
    };
    const QString u = QStringLiteral("uid-1");
    const QString a = QStringLiteral("201");
    const QString b = QStringLiteral("202");

    row(
        "disconnectedFromServer",
        [](Telvix* t) { Q_EMIT t->disconnectedFromServer(QStringLiteral("UserRequest")); },
        eventXml(QStringLiteral("<Logout><Reason>UserRequest</Reason></Logout>")));
    row(
        "sigIncomingCall strings", [=](Telvix* t) { Q_EMIT t->sigIncomingCall(u, a, b, true); },
        eventXml(QStringLiteral("<IncomingCall><Uid>uid-1</Uid><From>201</From><To>202</To><IsC2C>1</IsC2C>"
                                "</IncomingCall>")));
    row(
        "sigAnsweredCall strings", [=](Telvix* t) { Q_EMIT t->sigAnsweredCall(u, a, b); },
        eventXml(
            QStringLiteral("<AnsweredCall><Uid>uid-1</Uid><From>201</From><To>202</To></AnsweredCall>")));
    row(
        "sigFinishedCall strings", [=](Telvix* t) { Q_EMIT t->sigFinishedCall(u, a, b, false); },
        eventXml(
            QStringLiteral("<FinishedCall><Uid>uid-1</Uid><From>201</From><To>202</To><Missed>false</Missed>"
                           "</FinishedCall>")));
    row(
        "sigStartingCall", [=](Telvix* t) { Q_EMIT t->sigStartingCall(u, a, b); },
        eventXml(
            QStringLiteral("<OriginateCall><Uid>uid-1</Uid><From>201</From><To>202</To></OriginateCall>")));
    row(
        "sigMissedCall strings", [=](Telvix* t) { Q_EMIT t->sigMissedCall(u, a); },
        eventXml(QStringLiteral("<MissedCall><Uid>uid-1</Uid><From>201</From></MissedCall>")));
    row(
        "sigCallTransferCanceled",
        [=](Telvix* t) { Q_EMIT t->sigCallTransferCanceled(u, QStringLiteral("busy")); },
        eventXml(
            QStringLiteral("<TransferCanceled><Uid>uid-1</Uid><Reason>busy</Reason></TransferCanceled>")));
    row(
        "sigCallTransferStarted",
        [=](Telvix* t) {
            TransferStartedCallEvent e;
            e.uid = u;
            e.localChannel = QStringLiteral("SIP/201-1");
            e.sipAccount = QStringLiteral("201a");
            e.calledNum = b;
            Q_EMIT t->sigCallTransferStarted(e);
        },
        eventXml(
            QStringLiteral("<TransferStarted><Uid>uid-1</Uid><LocalChannel>SIP/201-1</LocalChannel>"
                           "<SipAccount>201a</SipAccount><CalledNum>202</CalledNum></TransferStarted>")));
    row(
        "sigCallTransferCompleted",
        [=](Telvix* t) {
            TransferCompletedCallEvent e;
            e.uid = u;
            e.localChannel = QStringLiteral("SIP/201-1");
            e.sipAccount = QStringLiteral("201a");
            Q_EMIT t->sigCallTransferCompleted(e);
        },
        eventXml(QStringLiteral("<TransferCompleted><Uid>uid-1</Uid><LocalChannel>SIP/201-1</LocalChannel>"
                                "<SipAccount>201a</SipAccount></TransferCompleted>")));

    BuddyStatus status;
    status.exten = a;
    status.presence = TELVIX::ChatPresence(1);
    status.ctiLogged = true;
    const QString statusXml
        = QStringLiteral("<ExtenStatus><Exten>201</Exten><Presence>%1</Presence><PresenceMsg></PresenceMsg>"
                         "<CtiLogged>1</CtiLogged><QPaused>0</QPaused><BlfContext></BlfContext>"
                         "<BlfStatus>%2</BlfStatus></ExtenStatus>")
              .arg(TELVIX::chatPresenceToString(status.presence),
                   TELVIX::blfStatusToString(status.blfStatus));
    row(
        "sigExtenStatusMapChanged",
        [=](Telvix* t) {
            Q_EMIT t->sigExtenStatusMapChanged({{a, status}});
        },
        QStringLiteral("<ExtenStatusList>%1</ExtenStatusList>").arg(statusXml));
    row(
        "sigExtenStatusChanged", [=](Telvix* t) { Q_EMIT t->sigExtenStatusChanged(status); }, statusXml);

    CdrEntry cdr;
    cdr.entryUid = QStringLiteral("e1");
    cdr.statusText = QStringLiteral("busy");
    row(
        "sigCdrChanged", [=](Telvix* t) { Q_EMIT t->sigCdrChanged(Cdr {cdr}); },
        QStringLiteral(
            "<CallList><Call><EntryUid>e1</EntryUid><Caller></Caller><CallerName></CallerName><Called></"
            "Called><CalledName></CalledName><Date></Date>"
            "<Status>noanswer</Status><Direction></Direction><Duration>0</Duration><CallAttributes>%1"
            "</CallAttributes></Call></CallList>")
            .arg(TELVIX::getCallAttributeString(cdr.attributes)));

    PhoneBook extens;
    row(
        "sigPhonebookChanged",
        [=](Telvix* t) {
            Q_EMIT t->sigPhonebookChanged({extens},
                                          QFlags<TELVIX::PhonebookTypeFlag>(TELVIX::PhonebookTypeFlag(2)));
        },
        QStringLiteral("<ExtenList/>"));
    ServiceStatus service;
    service.id = QStringLiteral("7");
    service.type = QStringLiteral("UFWD");
    service.status = 1;
    service.value = b;
    row(
        "sigServiceStatusChanged", [=](Telvix* t) { Q_EMIT t->sigServiceStatusChanged({service}); },
        QStringLiteral("<ServiceStatusList><ServiceStatus><Id>7</Id><Type>UFWD</Type><Status>1</Status>"
                       "<Value>202</Value></ServiceStatus></ServiceStatusList>"));
    row(
        "sigServicesCodesReceived", [](Telvix* t) { Q_EMIT t->sigServicesCodesReceived({}); },
        eventXml(QStringLiteral("<DialCodesUpdated/>")));
    row(
        "sigIdentitiesChanged", [](Telvix* t) { Q_EMIT t->sigIdentitiesChanged({}); },
        QStringLiteral("<IdentityList/>"));
    row(
        "sigVoicemailMsgList", [](Telvix* t) { Q_EMIT t->sigVoicemailMsgList({}); },
        QStringLiteral("<VoicemailMessageList/>"));
    row(
        "sigVoicemailDownloadCompleted",
        [](Telvix* t) {
            Q_EMIT t->sigVoicemailDownloadCompleted(QStringLiteral("3"), QStringLiteral("vm-uuid"),
                                                    QStringLiteral("/tmp/vm.wav"));
        },
        QStringLiteral(
            "<VoicemailMessageDownloadComplete><ID>3</ID><MsgID>vm-uuid</MsgID><File>/tmp/vm.wav</File>"
            "</VoicemailMessageDownloadComplete>"));
    row(
        "sigRebrandingDownloadCompleted",
        [](Telvix* t) { Q_EMIT t->sigRebrandingDownloadCompleted(QStringLiteral("/tmp/pack.zip")); },
        eventXml(QStringLiteral("<RebrandingPackDownloadComplete><File>/tmp/pack.zip</File>"
                                "</RebrandingPackDownloadComplete>")));
    MailboxStatus mailbox;
    mailbox.mailbox = a;
    mailbox.newCount = 2;
    row(
        "sigMailboxStatusChanged", [=](Telvix* t) { Q_EMIT t->sigMailboxStatusChanged(mailbox); },
        QStringLiteral("<MailboxStatus><Mailbox>201</Mailbox><Waiting>0</Waiting><NewMsgCount>2</NewMsgCount>"
                       "<OldMsgCount>0</OldMsgCount><UrgentMsgCount>0</UrgentMsgCount></MailboxStatus>"));

    ChatMessage chat;
    chat.id = QStringLiteral("m1");
    chat.exten = a;
    chat.body = QStringLiteral("hi <there>");
    chat.threadId = QStringLiteral("t1");
    chat.timestamp = QDateTime(QDate(2026, 11, 21), QTime(10, 30, 5, 7), Qt::UTC);
    chat.direction = ChatMessage::Sent;
    chat.type = ChatMessage::Normal;
    const QString chatXml
        = QStringLiteral("<ChatMessage><Id>m1</Id><Exten>201</Exten><ThreadId>t1</ThreadId>"
                         "<Message>hi &lt;there&gt;</Message><Type>normal</Type>"
                         "<Direction>sent</Direction>"
                         "<DeliveredTime>2026-11-21T10:30:05.007Z</DeliveredTime></ChatMessage>");
    row(
        "sigChatMessage", [=](Telvix* t) { Q_EMIT t->sigChatMessage(chat); }, chatEvent(chatXml));
    row(
        "sigChatContactComposing",
        [=](Telvix* t) { Q_EMIT t->sigChatContactComposing(a, QStringLiteral("t1"), true); },
        chatEvent(QStringLiteral(
            "<ComposingStatus><Exten>201</Exten><ThreadId>t1</ThreadId><Composing>1</Composing>"
            "</ComposingStatus>")));
    row(
        "sigChatMessageOffline", [=](Telvix* t) { Q_EMIT t->sigChatMessageOffline(a); },
        chatEvent(QStringLiteral("<MessageEvent><Exten>201</Exten><Event>OFFLINE</Event></MessageEvent>")));
    row(
        "sigChatMessageDelivered", [=](Telvix* t) { Q_EMIT t->sigChatMessageDelivered(a); },
        chatEvent(QStringLiteral("<MessageEvent><Exten>201</Exten><Event>DELIVERED</Event></MessageEvent>")));
    row(
        "sigChatMessageDisplayed", [=](Telvix* t) { Q_EMIT t->sigChatMessageDisplayed(a); },
        chatEvent(QStringLiteral("<MessageEvent><Exten>201</Exten><Event>DISPLAYED</Event></MessageEvent>")));
    row(
        "sigChatConnected", [](Telvix* t) { Q_EMIT t->sigChatConnected(); },
        chatEvent(QStringLiteral("<Login/>")));
    row(
        "sigChatDisconnected", [](Telvix* t) { Q_EMIT t->sigChatDisconnected(QStringLiteral("gone")); },
        chatEvent(QStringLiteral("<Logout><Reason>gone</Reason></Logout>")));
    row(
        "sigC2cOriginate", [=](Telvix* t) { Q_EMIT t->sigC2cOriginate(u, b, QStringLiteral("c2c")); },
        eventXml(
            QStringLiteral("<C2cOriginate><Uid>uid-1</Uid><To>202</To><Type>c2c</Type></C2cOriginate>")));
    row(
        "sigC2cFinished", [=](Telvix* t) { Q_EMIT t->sigC2cFinished(u); },
        eventXml(QStringLiteral("<C2cFinished><Uid>uid-1</Uid></C2cFinished>")));
    const QString sid = QStringLiteral("s1");
    row(
        "sigChatFtRequest",
        [=](Telvix* t) {
            Q_EMIT t->sigChatFtRequest(sid, a, QStringLiteral("f.txt"), QStringLiteral("text/plain"));
        },
        chatEvent(QStringLiteral("<FTRequest><SID>s1</SID><From>201</From><Filename>f.txt</Filename>"
                                 "<Mimetype>text/plain</Mimetype></FTRequest>")));
    row(
        "sigChatFtStart", [=](Telvix* t) { Q_EMIT t->sigChatFtStart(sid); },
        chatEvent(QStringLiteral("<FTStart><SID>s1</SID></FTStart>")));
    row(
        "sigChatFtSent", [=](Telvix* t) { Q_EMIT t->sigChatFtSent(sid); },
        chatEvent(QStringLiteral("<FTSent><SID>s1</SID></FTSent>")));
    row(
        "sigChatFtComplete",
        [=](Telvix* t) { Q_EMIT t->sigChatFtComplete(sid, QStringLiteral("/tmp/f.txt")); },
        chatEvent(QStringLiteral("<FTComplete><SID>s1</SID><Filepath>/tmp/f.txt</Filepath></FTComplete>")));
    row(
        "sigChatVcardComplete",
        [=](Telvix* t) { Q_EMIT t->sigChatVcardComplete(sid, QByteArray("BEGIN\0tail", 10)); },
        chatEvent(QStringLiteral("<VCardComplete><SID>s1</SID><Data>BEGIN</Data></VCardComplete>")));
    row(
        "sigChatFtError", [=](Telvix* t) { Q_EMIT t->sigChatFtError(sid); },
        chatEvent(QStringLiteral("<FTError><SID>s1</SID></FTError>")));
    row(
        "sigChatFtProgress", [=](Telvix* t) { Q_EMIT t->sigChatFtProgress(sid, 0.125f); },
        chatEvent(QStringLiteral("<FTProgress><SID>s1</SID><Progress>0.125</Progress></FTProgress>")));
    row(
        "sigChatHistory", [=](Telvix* t) { Q_EMIT t->sigChatHistory({chat}); },
        chatEvent(QStringLiteral("<History>%1</History>").arg(chatXml)));
    row(
        "sigGuiKeepAlive", [](Telvix* t) { Q_EMIT t->sigGuiKeepAlive(); }, QStringLiteral("<KeepAlive/>"));
}

void tst_LocalServer::everyWiredSignalReachesTheApplication()
{
    QFETCH(Emitter, emitter);
    QFETCH(QString, expected);

    Telvix* const telvix = m_telvix.get();
    m_app->messages.clear();
    onLibraryThread(telvix, [&] { emitter(telvix); });
    // A keep-alive behind it tells that nothing else was written in between.
    onLibraryThread(telvix, [&] { Q_EMIT telvix->sigGuiKeepAlive(); });
    QVERIFY(m_app->waitForMessages(2));
    QCOMPARE(m_app->messages.first(), expected);
    QCOMPARE(m_app->messages.size(), 2);
}

void tst_LocalServer::withoutServerPortIsZeroAndCloseSucceeds()
{
    auto telvix = startTelvix();
    QVERIFY(telvix);
    LogbusCapture log;
    QCOMPARE(telvix->getTcpServerPort(), 0);
    QVERIFY(log.contains(100, QStringLiteral("Invalid ClientSocketManager instance")));
    QVERIFY(telvix->closeTcpServer());
    QVERIFY(telvix->shutdown());
    // The library's thread is gone: the blocking forms give their failure values.
    QtLogCapture qtLog;
    QCOMPARE(telvix->initTcpServer(), -1);
    QVERIFY(qtLog.contains(QStringLiteral("invoke method failed!")));
}

void tst_LocalServer::restartKeepsOneWiringAndChangesPort()
{
    auto telvix = startTelvix();
    QVERIFY(telvix);
    const int first = telvix->initTcpServer();
    QVERIFY(first > 0);
    QVERIFY(telvix->closeTcpServer());
    QTRY_COMPARE(telvix->getTcpServerPort(), 0);
    const int second = telvix->restartTcpServer();
    QVERIFY(second > 0);
    QCOMPARE(telvix->getTcpServerPort(), second);

    LocalApp app;
    QVERIFY(app.attach(*m_log, second));
    onLibraryThread(telvix.get(), [&] { Q_EMIT telvix->sigC2cFinished(QStringLiteral("u9")); });
    onLibraryThread(telvix.get(), [&] { Q_EMIT telvix->sigGuiKeepAlive(); });
    QVERIFY(app.waitForMessages(2));
    QCOMPARE(app.messages,
             QStringList({frame(QStringLiteral("4.1"),
                                eventXml(QStringLiteral("<C2cFinished><Uid>u9</Uid></C2cFinished>"))),
                          frame(QStringLiteral("4.1"), QStringLiteral("<KeepAlive/>"))}));
    QVERIFY(telvix->shutdown());
}

void tst_LocalServer::secondInitLeavesTheFirstServerRunning()
{
    auto telvix = startTelvix();
    QVERIFY(telvix);
    const int first = telvix->initTcpServer();
    const int second = telvix->initTcpServer();
    QVERIFY(first > 0 && second > 0 && first != second);
    QCOMPARE(telvix->getTcpServerPort(), second);

    LocalApp oldApp;
    LocalApp newApp;
    QVERIFY(oldApp.attach(*m_log, first));
    QVERIFY(newApp.attach(*m_log, second));
    onLibraryThread(telvix.get(), [&] { Q_EMIT telvix->sigGuiKeepAlive(); });
    QVERIFY(oldApp.waitForMessages(1));
    QVERIFY(newApp.waitForMessages(1));

    // Shutdown frees both servers: each application sees its connection end.
    QSignalSpy oldGone(&oldApp.socket(), &QTcpSocket::disconnected);
    QSignalSpy newGone(&newApp.socket(), &QTcpSocket::disconnected);
    QVERIFY(telvix->shutdown());
    QTRY_COMPARE(oldGone.count(), 1);
    QTRY_COMPARE(newGone.count(), 1);
}

void tst_LocalServer::loginSetsTheFrameApiAndShutdownDropsTheApplication()
{
    LocalApp app;
    LogbusCapture& log = *m_log;
    LoggedInClient session(TELVIX::AppMode(6), QStringLiteral("6.1"));
    session.setBeforeLogin([&](Telvix* telvix) {
        const int port = telvix->initTcpServer();
        QVERIFY(port > 0);
        QVERIFY(app.attach(log, port));
    });
    QVERIFY(session.start());
    QVERIFY(app.waitForMessages(1));
    const QString login = app.messages.first();
    QVERIFY2(login.startsWith(QStringLiteral("<SRNT><API>6.1</API><Login><Exten>200</Exten>")),
             qPrintable(login));

    // Later messages carry the server's API as well.
    Telvix* const telvix = session.client();
    onLibraryThread(telvix, [&] { Q_EMIT telvix->sigGuiKeepAlive(); });
    QTRY_VERIFY(app.messages.contains(frame(QStringLiteral("6.1"), QStringLiteral("<KeepAlive/>"))));

    QSignalSpy gone(&app.socket(), &QTcpSocket::disconnected);
    QVERIFY(telvix->shutdown());
    QTRY_COMPARE(gone.count(), 1);
}

QTEST_GUILESS_MAIN(tst_LocalServer)
#include "tst_localserver.moc"
