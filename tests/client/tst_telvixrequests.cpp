// Requests to the server, called the way an application (or a script
// through the meta-object) calls them, and read back on the server's side
// as a server reads them: one well-formed document, the command element
// first in "Request", its fields in order.
#include "callevents.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"
#include "telvix.h"
#include "telvix_p.h"

#include <QMetaMethod>
#include <QSignalSpy>
#include <QXmlStreamReader>
#include <QtTest>

namespace {

/// A request as the server reads it.
struct ReadRequest
{
    bool wellFormed = false;
    QString api;
    QString command;
    /// Leaf elements under the command, in document order, as "Name=text".
    QStringList fields;
};

ReadRequest readRequest(const QString& frame)
{
    ReadRequest out;
    QXmlStreamReader reader(frame);
    QStringList path;
    QString leafName;
    QString leafText;
    bool leaf = false;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            path << reader.name().toString();
            if (path.size() == 3 && path.at(1) == QLatin1String("Request") && out.command.isEmpty())
                out.command = path.last();
            leaf = true;
            leafName = path.last();
            leafText.clear();
            break;
        case QXmlStreamReader::Characters:
            leafText += reader.text();
            break;
        case QXmlStreamReader::EndElement:
            if (leaf && path.size() == 2 && path.first() == QLatin1String("SRNT")
                && leafName == QLatin1String("API"))
                out.api = leafText;
            if (leaf && path.size() > 3 && path.at(2) == out.command)
                out.fields << leafName + QLatin1Char('=') + leafText;
            leaf = false;
            path.removeLast();
            break;
        default:
            break;
        }
    }
    out.wellFormed = !reader.hasError();
    return out;
}

/// Calls a Q_INVOKABLE method by name with the given arguments, as the
/// meta-object lets a script do it, and returns its bool or QString result.
QVariant invoke(QObject* target, const QByteArray& method, const QVariantList& args, Qt::ConnectionType type)
{
    const QMetaObject* meta = target->metaObject();
    for (int i = 0; i < meta->methodCount(); ++i) {
        const QMetaMethod candidate = meta->method(i);
        if (candidate.name() != method || candidate.parameterCount() != args.size())
            continue;
        QGenericArgument argv[3];
        for (int a = 0; a < args.size(); ++a)
            argv[a] = QGenericArgument(args.at(a).typeName(), args.at(a).constData());
        QVariant result(candidate.returnType(), nullptr);
        QGenericReturnArgument ret(result.typeName(), result.data());
        if (!candidate.invoke(target, type, ret, argv[0], argv[1], argv[2]))
            return QVariant();
        return result;
    }
    return QVariant();
}

ServerCommand command(const QString& name, const QStringList& params)
{
    return ServerCommand {QString(), name, params};
}

} // namespace

class TestTelvixRequests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestReachesTheServerAsWritten_data();
    void requestReachesTheServerAsWritten();
    void requestsLogTheirLine_data();
    void requestsLogTheirLine();
    void changePasswordIsSentUnescapedWithoutEnvelope();
    void ctiConfigurationIsAskedOfOldServersTooWithAWarning();
    void historyOfAMobileClientIsAskedFromTheLastEntry_data();
    void historyOfAMobileClientIsAskedFromTheLastEntry();
    void historyOfADesktopClientWithoutStoreAsksNothing();
    void outboundPrefixComesFromTheServiceCodes();
    void outboundPrefixAfterShutdownFailsEmpty();
    void injectedMessageIsHandledAsTheServersOwn();
    void injectedKeepAliveAckStopsTheAckTimer();
    void requestsWithoutSocketLogTheirFailure();
};

void TestTelvixRequests::requestReachesTheServerAsWritten_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QVariantList>("args");
    QTest::addColumn<bool>("direct");
    QTest::addColumn<QString>("element");
    QTest::addColumn<QStringList>("fields");

    const QVariant vmNew = QVariant::fromValue(TELVIX::VmMsgFlagNew);
    const QVariant urgent = QVariant::fromValue(TELVIX::VmMsgUrgent);
    const QVariant noType = QVariant::fromValue(TELVIX::VmMsgInvalid);
    const QVariant firebase = QVariant::fromValue(TELVIX::NotificationServiceApnsDev);
    const QVariant noService = QVariant::fromValue(TELVIX::NotificationServiceNone);
    const QVariant reload = QVariant::fromValue(command("reload", {"queues", "now"}));
    const QVariant bare = QVariant::fromValue(command("status", {}));

    QTest::newRow("getIdentities") << QByteArray("getIdentities") << QVariantList() << false
                                   << "GetPeerStatus" << QStringList();
    QTest::newRow("getPeerList") << QByteArray("getPeerList") << QVariantList() << false << "GetPeerList"
                                 << QStringList();
    QTest::newRow("getPhoneBook") << QByteArray("getPhoneBook") << QVariantList() << true << "GetPhonebook"
                                  << QStringList();
    QTest::newRow("getExtenList") << QByteArray("getExtenList") << QVariantList() << true << "GetExtenList"
                                  << QStringList();
    QTest::newRow("getExtenStatus") << QByteArray("getExtenStatus") << QVariantList() << false
                                    << "GetExtenStatus" << QStringList();
    QTest::newRow("getServiceStatus")
        << QByteArray("getServiceStatus") << QVariantList() << false << "GetServiceStatus" << QStringList();
    QTest::newRow("getServiceCodeList")
        << QByteArray("getServiceCodeList") << QVariantList() << true << "GetServicesCode" << QStringList();
    QTest::newRow("getCtiConfiguration") << QByteArray("getCtiConfiguration") << QVariantList() << true
                                         << "GetCtiConfiguration" << QStringList();
    QTest::newRow("getVoicemail") << QByteArray("getVoicemail") << QVariantList {vmNew} << false
                                  << "GetVoicemailMsgList" << QStringList {"MsgType=NEW"};
    QTest::newRow("getMailboxStatus")
        << QByteArray("getMailboxStatus") << QVariantList() << false << "GetMailboxStatus" << QStringList();
    QTest::newRow("getChannelStatus")
        << QByteArray("getChannelStatus") << QVariantList {"SIP/201-0000002a"} << true << "GetChannelStatus"
        << QStringList {"Channel=SIP/201-0000002a"};
    QTest::newRow("getTenantList") << QByteArray("getTenantList") << QVariantList() << false
                                   << "GetTenantList" << QStringList();
    QTest::newRow("subscribeTenantEvents")
        << QByteArray("subscribeTenantEvents") << QVariantList {"t-9"} << false << "SubscribeTenantEvents"
        << QStringList {"TenantUuid=t-9"};
    QTest::newRow("setUFWD") << QByteArray("setUFWD") << QVariantList {"+39 02 <1>"} << false << "UFWDSet"
                             << QStringList {"Exten=+39 02 <1>"};
    QTest::newRow("unsetUFWD") << QByteArray("unsetUFWD") << QVariantList() << false << "UFWDDel"
                               << QStringList();
    QTest::newRow("setForkToMobile") << QByteArray("setForkToMobile") << QVariantList() << false
                                     << "ForkToMobileSet" << QStringList();
    QTest::newRow("unsetForkToMobile")
        << QByteArray("unsetForkToMobile") << QVariantList() << false << "ForkToMobileUnset" << QStringList();
    QTest::newRow("deleteVoicemailMessage") << QByteArray("deleteVoicemailMessage") << QVariantList {"42"}
                                            << false << "DeleteVoicemailMsg" << QStringList {"ID=42"};
    QTest::newRow("markVoicemailMessage")
        << QByteArray("markVoicemailMessage") << QVariantList {"42", urgent} << false << "MarkVoicemailMsg"
        << QStringList {"ID=42", "MarkAs=URGENT"};
    QTest::newRow("markVoicemailMessage unknown type")
        << QByteArray("markVoicemailMessage") << QVariantList {"43", noType} << false << "MarkVoicemailMsg"
        << QStringList {"ID=43", "MarkAs=OLD"};
    QTest::newRow("requestAccessToken")
        << QByteArray("requestAccessToken") << QVariantList() << false << "GetAuthToken" << QStringList();
    QTest::newRow("setDeviceToken") << QByteArray("setDeviceToken") << QVariantList {"tok&1", firebase}
                                    << false << "SetNotificationServiceToken"
                                    << QStringList {"Token=tok&1", "ServiceType=APNS_DEV"};
    QTest::newRow("setDeviceToken unknown service")
        << QByteArray("setDeviceToken") << QVariantList {"tok", noService} << false
        << "SetNotificationServiceToken" << QStringList {"Token=tok", "ServiceType=AUTO"};
    QTest::newRow("sendServerCommand")
        << QByteArray("sendServerCommand") << QVariantList {reload} << false << "SendCommand"
        << QStringList {"Command=reload", "Param=queues", "Param=now"};
    QTest::newRow("sendServerCommand without parameters")
        << QByteArray("sendServerCommand") << QVariantList {bare} << false << "SendCommand"
        << QStringList {"Command=status", "ParamList="};
}

void TestTelvixRequests::requestReachesTheServerAsWritten()
{
    QFETCH(QByteArray, method);
    QFETCH(QVariantList, args);
    QFETCH(bool, direct);
    QFETCH(QString, element);
    QFETCH(QStringList, fields);
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());

    // Queued methods are called from the application's thread and hop; the
    // direct ones are meant for the library's thread and are called there.
    const QVariant result
        = invoke(app.client(), method, args, direct ? Qt::BlockingQueuedConnection : Qt::DirectConnection);
    QCOMPARE(result, QVariant(true));

    const QString frame = app.server().waitForFrame(element);
    QVERIFY2(!frame.isEmpty(), qPrintable(element));
    const ReadRequest read = readRequest(frame);
    QVERIFY2(read.wellFormed, qPrintable(frame));
    QCOMPARE(read.api, app.api());
    QCOMPARE(read.command, element);
    QCOMPARE(read.fields, fields);
    QCOMPARE(app.framesWith(element).size(), 1);
}

void TestTelvixRequests::requestsLogTheirLine_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QVariantList>("args");
    QTest::addColumn<int>("priority");
    QTest::addColumn<QString>("line");
    QTest::newRow("getIdentities") << QByteArray("getIdentities") << QVariantList() << 1000
                                   << "Getting Identities";
    QTest::newRow("getPeerList") << QByteArray("getPeerList") << QVariantList() << 1000
                                 << "Getting Peer list";
    QTest::newRow("getExtenList") << QByteArray("getExtenList") << QVariantList() << 1000
                                  << "Getting ExtenList.";
    QTest::newRow("getExtenStatus") << QByteArray("getExtenStatus") << QVariantList() << 1000
                                    << "Getting ExtenStatus";
    QTest::newRow("getServiceStatus")
        << QByteArray("getServiceStatus") << QVariantList() << 1000 << "Getting ServiceStatus";
    QTest::newRow("getVoicemail") << QByteArray("getVoicemail")
                                  << QVariantList {QVariant::fromValue(TELVIX::VmMsgFlagOld)} << 1000
                                  << "Getting voicemail messages";
    QTest::newRow("getMailboxStatus")
        << QByteArray("getMailboxStatus") << QVariantList() << 1000 << "Getting mailbox status";
    QTest::newRow("getChannelStatus")
        << QByteArray("getChannelStatus") << QVariantList {"SIP/1"} << 10000 << "Getting channel status";
    QTest::newRow("setUFWD") << QByteArray("setUFWD") << QVariantList {"0612"} << 1000
                             << "Sending UFWDSet to CTIServer - toNumber:  0612";
    QTest::newRow("unsetUFWD") << QByteArray("unsetUFWD") << QVariantList() << 1000
                               << "Sending UFWDDel to CTIServer";
    QTest::newRow("setForkToMobile") << QByteArray("setForkToMobile") << QVariantList() << 1000
                                     << "Sending ForkToMobile set to CTIServer";
    QTest::newRow("unsetForkToMobile") << QByteArray("unsetForkToMobile") << QVariantList() << 1000
                                       << "Sending ForkToMobile unset to CTIServer";
    QTest::newRow("requestAccessToken")
        << QByteArray("requestAccessToken") << QVariantList() << 1000 << "Getting authentication token";
    QTest::newRow("setDeviceToken") << QByteArray(
        "setDeviceToken") << QVariantList {"tk", QVariant::fromValue(TELVIX::NotificationServiceFirebase)}
                                    << 10000 << "Sending notification token tk for service FIREBASE";
    QTest::newRow("sendServerCommand") << QByteArray("sendServerCommand")
                                       << QVariantList {QVariant::fromValue(command("restart", {"a", "b c"}))}
                                       << 1000 << "Sending command to server: restart a b c";
}

void TestTelvixRequests::requestsLogTheirLine()
{
    QFETCH(QByteArray, method);
    QFETCH(QVariantList, args);
    QFETCH(int, priority);
    QFETCH(QString, line);
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    LogbusCapture log;
    QCOMPARE(invoke(app.client(), method, args, Qt::BlockingQueuedConnection), QVariant(true));
    QVERIFY2(log.contains(priority, line), qPrintable(log.texts().join('\n')));
}

void TestTelvixRequests::changePasswordIsSentUnescapedWithoutEnvelope()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    bool sent = false;
    app.onLibraryThread(
        [&] { sent = app.client()->changePassword(QStringLiteral("old<pw"), QStringLiteral("n&w>1")); });
    QVERIFY(sent);
    const QByteArray expected = "<ChangePWD><Username>alice</Username><OldPWD>old<pw</OldPWD>"
                                "<NewPWD>n&w>1</NewPWD></ChangePWD>";
    QTRY_VERIFY(app.server().receivedBytes(app.connection()).contains(expected));
    // No envelope: the text stands between whole frames, and the server's
    // framing finds no message in it.
    const QByteArray bytes = app.server().receivedBytes(app.connection());
    const int at = bytes.indexOf(expected);
    QVERIFY(at == 0 || bytes.left(at).endsWith("</SRNT>"));
    QVERIFY(app.framesWith(QStringLiteral("ChangePWD")).isEmpty());
}

void TestTelvixRequests::ctiConfigurationIsAskedOfOldServersTooWithAWarning()
{
    LoggedInClient app(TELVIX::AppModeSrntPro, QStringLiteral("5.2"));
    QVERIFY(app.start());
    // A 5.2 login did not ask for it by itself.
    LogbusCapture log;
    app.onLibraryThread([&] { app.client()->getCtiConfiguration(); });
    QVERIFY(!app.server().waitForFrame(QStringLiteral("GetCtiConfiguration")).isEmpty());
    QVERIFY(log.contains(100, "Asking for CtiConfiguration to a server having API < 5.3!"));
}

void TestTelvixRequests::historyOfAMobileClientIsAskedFromTheLastEntry_data()
{
    QTest::addColumn<QString>("lastEntry");
    QTest::addColumn<int>("priority");
    QTest::addColumn<QString>("line");
    QTest::newRow("from an entry") << "E-9" << 1000 << "Getting CDR for mobile from entry  E-9";
    QTest::newRow("everything") << "" << 10000 << "Getting CDR for mobile app";
}

void TestTelvixRequests::historyOfAMobileClientIsAskedFromTheLastEntry()
{
    QFETCH(QString, lastEntry);
    QFETCH(int, priority);
    QFETCH(QString, line);
    LoggedInClient app(TELVIX::AppModeSrntMobile);
    QVERIFY(app.start());
    LogbusCapture log;
    QVERIFY(app.client()->getCDR(false, lastEntry));
    const ReadRequest read = readRequest(app.server().waitForFrame(QStringLiteral("GetCDR")));
    QCOMPARE(read.command, QStringLiteral("GetCDR"));
    QCOMPARE(read.fields, (QStringList {"StartDate=", "EndDate=", "LastEntryUid=" + lastEntry}));
    QVERIFY(log.contains(10000, "Current APP MODE: 6"));
    QVERIFY(log.contains(priority, line));
}

void TestTelvixRequests::historyOfADesktopClientWithoutStoreAsksNothing()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    LogbusCapture log;
    QVERIFY(app.client()->getCDR(false));
    QVERIFY(app.client()->getCDR(true));
    QTRY_COMPARE(log.count("Current APP MODE: 1"), 2);
    QVERIFY(app.framesWith(QStringLiteral("GetCDR")).isEmpty());
}

void TestTelvixRequests::outboundPrefixComesFromTheServiceCodes()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    LogbusCapture log;
    QCOMPARE(app.client()->getOutboundLinePrefix(), QString());
    QVERIFY(log.contains(1000, "Getting obl prefix"));
    QVERIFY(app.deliver(QStringLiteral("<Services><NumberingPlan><outboundPrefix>0</outboundPrefix>"
                                       "<echo>*43</echo></NumberingPlan></Services>")));
    QCOMPARE(app.client()->getOutboundLinePrefix(), QStringLiteral("0"));
}

void TestTelvixRequests::outboundPrefixAfterShutdownFailsEmpty()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QVERIFY(app.deliver(QStringLiteral("<Services><outboundPrefix>9</outboundPrefix></Services>")));
    QVERIFY(app.client()->shutdown());
    LogbusCapture log;
    QtLogCapture qtLog;
    QCOMPARE(app.client()->getOutboundLinePrefix(), QString());
    QVERIFY(qtLog.contains(QtCriticalMsg, "invoke method failed!"));
    QVERIFY(log.contains(10, "invoke method failed!"));
}

void TestTelvixRequests::injectedMessageIsHandledAsTheServersOwn()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QSignalSpy mailbox(app.client(), &Telvix::sigMailboxStatusChanged);
    const QString xml
        = FakeCtiServer::document(QStringLiteral("<MailboxStatus><Mailbox>200@default</Mailbox>"
                                                 "<Waiting>1</Waiting><NewMsgCount>3</NewMsgCount>"
                                                 "</MailboxStatus>"));
    QVERIFY(app.client()->injectMessage(xml));
    // Acknowledged to the server like anything it sent.
    QVERIFY(app.waitForAck(FakeCtiServer::uuidOf(xml)));
    QCOMPARE(mailbox.count(), 1);
    const MailboxStatus status = mailbox.at(0).at(0).value<MailboxStatus>();
    QCOMPARE(status.mailbox, QStringLiteral("200@default"));
    QVERIFY(status.waiting);
    QCOMPARE(status.newCount, 3);
}

void TestTelvixRequests::injectedKeepAliveAckStopsTheAckTimer()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    app.server().setAutoKeepAliveAck(false);
    TelvixPrivate* d = TelvixPrivate::get(app.client());
    QVERIFY(app.client()->sendKeepAlive());
    QVERIFY(!app.server().waitForFrame(QStringLiteral("KeepAlive")).isEmpty());
    bool waiting = false;
    app.onLibraryThread([&] { waiting = d->keepAliveAckTimer->isActive(); });
    QVERIFY(waiting);
    QVERIFY(app.client()->injectMessage(FakeCtiServer::keepAliveAckDocument()));
    app.onLibraryThread([&] { waiting = d->keepAliveAckTimer->isActive(); });
    QVERIFY(!waiting);
    QVERIFY(app.client()->isConnected());
}

void TestTelvixRequests::requestsWithoutSocketLogTheirFailure()
{
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    QVERIFY(app.client()->abortConnection());
    LogbusCapture log;
    QVERIFY(app.client()->getMailboxStatus());
    QVERIFY(log.waitFor("Trying to send a request on a NULL socket"));
    QVERIFY(log.contains(10, "Trying to send a request on a NULL socket"));
}

QTEST_GUILESS_MAIN(TestTelvixRequests)
#include "tst_telvixrequests.moc"
