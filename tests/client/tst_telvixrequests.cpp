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
    void changePasswordIsSentUnescapedWithoutEnvelope();
    void ctiConfigurationIsAskedOfOldServersTooWithAWarning();
    void historyOfAMobileClientIsAskedFromTheLastEntry_data();
    void historyOfAMobileClientIsAskedFromTheLastEntry();
    void historyOfADesktopClientWithoutStoreAsksNothing();
    void outboundPrefixComesFromTheServiceCodes();
    void injectedMessageIsHandledAsTheServersOwn();
    void injectedKeepAliveAckStopsTheAckTimer();
    void requestsWithoutSocketLogTheirFailure();
};

void TestTelvixRequests::requestReachesTheServerAsWritten_data()
{
    QTest::addColumn<QVariantList>("args");
    QTest::addColumn<bool>("direct");
    QTest::addColumn<QString>("element");
    QTest::addColumn<QStringList>("fields");
    QTest::addColumn<int>("priority");
    QTest::addColumn<QString>("line");
    // The row name starts with the method's name.
    const auto row = [](const char* name, const QVariantList& args, bool direct, const char* element,
                        const QStringList& fields, int priority = 0, const char* line = "") {
        QTest::newRow(name) << args << direct << QString::fromLatin1(element) << fields << priority
                            << QString::fromLatin1(line);
    };
    const auto v = [](auto value) { return QVariant::fromValue(value); };
    row("getIdentities", {}, false, "GetPeerStatus", {}, 1000, "Getting Identities");
    row("getPeerList", {}, false, "GetPeerList", {}, 1000, "Getting Peer list");
    row("getPhoneBook", {}, true, "GetPhonebook", {});
    row("getExtenList", {}, true, "GetExtenList", {}, 1000, "Getting ExtenList.");
    row("getExtenStatus", {}, false, "GetExtenStatus", {}, 1000, "Getting ExtenStatus");
    row("getServiceStatus", {}, false, "GetServiceStatus", {}, 1000, "Getting ServiceStatus");
    row("getServiceCodeList", {}, true, "GetServicesCode", {});
    row("getCtiConfiguration", {}, true, "GetCtiConfiguration", {});
    row("getVoicemail", {v(TELVIX::VmMsgFlagNew)}, false, "GetVoicemailMsgList", {"MsgType=NEW"}, 1000,
        "Getting voicemail messages");
    row("getMailboxStatus", {}, false, "GetMailboxStatus", {}, 1000, "Getting mailbox status");
    row("getChannelStatus", {"SIP/201-0000002a"}, true, "GetChannelStatus", {"Channel=SIP/201-0000002a"},
        10000, "Getting channel status");
    row("getTenantList", {}, false, "GetTenantList", {});
    row("subscribeTenantEvents", {"t-9"}, false, "SubscribeTenantEvents", {"TenantUuid=t-9"});
    row("setUFWD", {"+39 02 <1>"}, false, "UFWDSet", {"Exten=+39 02 <1>"}, 1000,
        "Sending UFWDSet to CTIServer - toNumber:  +39 02 <1>");
    row("unsetUFWD", {}, false, "UFWDDel", {}, 1000, "Sending UFWDDel to CTIServer");
    row("setForkToMobile", {}, false, "ForkToMobileSet", {}, 1000, "Sending ForkToMobile set to CTIServer");
    row("unsetForkToMobile", {}, false, "ForkToMobileUnset", {}, 1000,
        "Sending ForkToMobile unset to CTIServer");
    row("deleteVoicemailMessage", {"42"}, false, "DeleteVoicemailMsg", {"ID=42"});
    row("markVoicemailMessage", {"42", v(TELVIX::VmMsgUrgent)}, false, "MarkVoicemailMsg",
        {"ID=42", "MarkAs=URGENT"});
    row("markVoicemailMessage unknown type", {"43", v(TELVIX::VmMsgInvalid)}, false, "MarkVoicemailMsg",
        {"ID=43", "MarkAs=OLD"});
    row("requestAccessToken", {}, false, "GetAuthToken", {}, 1000, "Getting authentication token");
    row("setDeviceToken", {"tok&1", v(TELVIX::NotificationServiceFirebase)}, false,
        "SetNotificationServiceToken", {"Token=tok&1", "ServiceType=FIREBASE"}, 10000,
        "Sending notification token tok&1 for service FIREBASE");
    row("setDeviceToken unknown service", {"tok", v(TELVIX::NotificationServiceNone)}, false,
        "SetNotificationServiceToken", {"Token=tok", "ServiceType=AUTO"});
    row("sendServerCommand", {v(command("restart", {"a", "b c"}))}, false, "SendCommand",
        {"Command=restart", "Param=a", "Param=b c"}, 1000, "Sending command to server: restart a b c");
    row("sendServerCommand without parameters", {v(command("status", {}))}, false, "SendCommand",
        {"Command=status", "ParamList="});
}

void TestTelvixRequests::requestReachesTheServerAsWritten()
{
    const QByteArray method = QByteArray(QTest::currentDataTag()).split(' ').first();
    QFETCH(QVariantList, args);
    QFETCH(bool, direct);
    QFETCH(QString, element);
    QFETCH(QStringList, fields);
    QFETCH(int, priority);
    QFETCH(QString, line);
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    LogbusCapture log;

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
    if (!line.isEmpty())
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
    // The logger mode is the desktop mode that opens no store.
    LoggedInClient app(TELVIX::AppModeSrntLog);
    QVERIFY(app.start());
    LogbusCapture log;
    QVERIFY(app.client()->getCDR(false));
    QVERIFY(app.client()->getCDR(true));
    QTRY_COMPARE(log.count("Current APP MODE: 5"), 2);
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

    // Once the library's thread is gone the call fails, empty.
    QVERIFY(app.client()->shutdown());
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
