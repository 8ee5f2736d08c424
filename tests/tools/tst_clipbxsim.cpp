// telvix-cli --json against telvix-pbx-sim, both run as real processes over
// TLS on 127.0.0.1.
#include "fakectiserver.h"
#include "prosodyserver.h"
#include "telvix.h"
#include "toolprocess.h"
#include "wavefileparser.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSslSocket>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <cmath>

#include <memory>

class tst_CliPbxSim : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void loginPrintsEverySignalAsJson();
    void callBetweenTwoClients();
    void refusedLoginEndsWithTheReason_data();
    void refusedLoginEndsWithTheReason();
    void redirectedCallRingsTheNewParty();
    void customDirectoryWithoutBanner();
    void unknownCommandsAreAnsweredWithErrors();
    void dialsATelLinkAsItsNumber();
    void localServerRepublishesTheSession();
    void chatBetweenTwoClientsThroughTheSimulatorsChatServer();
    void badOptions_data();
    void badOptions();
    void scenarioRunsStepsInOrder();
    void voicemailDownloadGivesAPcmWave();
    void rebrandingDownload_data();
    void rebrandingDownload();
    void downloadWithoutValidTokenIsRefused_data();
    void downloadWithoutValidTokenIsRefused();
    void expiredTokenOpensNoDownload();
    void commandsRunWhileTheLoginHangs_data();
    void commandsRunWhileTheLoginHangs();
    void emptyDataDirWritesTheLogInTheWorkingDirectory();
    void reconnectBringsTheSessionBack_data();
    void reconnectBringsTheSessionBack();

private:
    /// Starts the simulator on a free port; false if it does not come up.
    bool startSimulator(const QStringList& extra = {});
    std::unique_ptr<ToolProcess> startCli(const QString& user, const QString& password = QString(),
                                          const QStringList& extra = {});

    std::unique_ptr<ToolProcess> m_sim;
    quint16 m_port = 0;
    QTemporaryDir m_dir;
};

namespace {

QJsonObject call(const QString& method, const QJsonArray& args, const QJsonValue& id)
{
    return {{"call", method}, {"args", args}, {"id", id}};
}

QJsonObject arg0(const QJsonObject& line)
{
    return line.value("args").toArray().at(0).toObject();
}

} // namespace

void tst_CliPbxSim::init()
{
    m_port = 0;
}

void tst_CliPbxSim::cleanup()
{
    m_sim.reset();
}

bool tst_CliPbxSim::startSimulator(const QStringList& extra)
{
    m_sim.reset(new ToolProcess(QStringLiteral(TELVIX_PBXSIM),
                                QStringList {"--port", "0", "--answer-delay", "300", "--probe-interval", "0"}
                                    + extra));
    if (!m_sim->start())
        return false;
    const QString line = m_sim->waitForLine("listening on 127.0.0.1:");
    const QRegularExpressionMatch m = QRegularExpression("127\\.0\\.0\\.1:(\\d+)").match(line);
    m_port = m.hasMatch() ? quint16(m.captured(1).toUInt()) : 0;
    return m_port != 0;
}

std::unique_ptr<ToolProcess> tst_CliPbxSim::startCli(const QString& user, const QString& password,
                                                     const QStringList& extra)
{
    auto cli = std::make_unique<ToolProcess>(
        QStringLiteral(TELVIX_CLI),
        QStringList {"--json", "--user", user, "--password", password.isNull() ? user : password, "--server",
                     QStringLiteral("127.0.0.1:%1").arg(m_port), "--data-dir",
                     // Each simulator numbers its history afresh: a data dir per test keeps
                     // an earlier run's stored history from hiding the new entries.
                     m_dir.path() + "/" + QTest::currentTestFunction() + "/" + user}
            + extra);
    if (!cli->start())
        return nullptr;
    return cli;
}

void tst_CliPbxSim::loginPrintsEverySignalAsJson()
{
    QVERIFY(startSimulator());
    auto cli = startCli("1000");
    QVERIFY(cli);

    const QJsonObject logged = cli->takeSignal("loggedToServer");
    QVERIFY2(!logged.isEmpty(), qPrintable(cli->errorOutput()));
    QCOMPARE(logged.value("signature").toString(), QStringLiteral("loggedToServer(LoginDetails)"));
    QCOMPARE(arg0(logged).value("exten").toString(), QStringLiteral("1000"));
    QCOMPARE(arg0(logged).value("firstName").toString(), QStringLiteral("Anna"));
    QCOMPARE(arg0(logged).value("appMode").toInt(), 1);
    QCOMPARE(arg0(logged).value("apiVersion").toString(), QStringLiteral("6.1"));

    cli->send(call("getVersion", {}, 7));
    const QJsonObject version = cli->takeAnswer(7);
    QCOMPARE(version.value("call").toString(), QStringLiteral("getVersion"));
    QVERIFY(version.value("result").toString().startsWith("4.5.6-r"));

    // The extension list comes back as the contact book, the user's own
    // extension left out.
    cli->send(call("getExtenList", {}, "list"));
    QCOMPARE(cli->takeAnswer("list").value("result"), QJsonValue(true));
    const QJsonObject book = cli->takeSignal("sigPhonebookChanged", [](const QJsonObject& o) {
        return !o.value("args").toArray().at(0).toArray().isEmpty();
    });
    QVERIFY(!book.isEmpty());
    const QJsonArray entries
        = book.value("args").toArray().at(0).toArray().at(0).toObject().value("entries").toArray();
    QCOMPARE(entries.size(), 9);
    QCOMPARE(entries.at(0).toObject().value("extenNumber").toString(), QStringLiteral("1001"));
    QCOMPARE(book.value("args").toArray().at(1).toInt(), 2);

    cli->send(call("quit", {}, 8));
    QVERIFY(cli->waitForExit());
    QCOMPARE(cli->exitCode(), 0);
    QVERIFY2(cli->nonJsonLines().isEmpty(), qPrintable(cli->nonJsonLines().join('\n')));
}

void tst_CliPbxSim::callBetweenTwoClients()
{
    QVERIFY(startSimulator({"--call-duration", "60000"}));
    auto anna = startCli("1000");
    auto bruno = startCli("1001");
    QVERIFY(anna && bruno);
    QVERIFY(!anna->takeSignal("loggedToServer").isEmpty());
    QVERIFY(!bruno->takeSignal("loggedToServer").isEmpty());

    anna->send(call("newCall", {"1001", 0}, 1));
    QCOMPARE(anna->takeAnswer(1).value("result"), QJsonValue(true));

    // Every SIP account of both parties hears of the call, under one uid.
    const QJsonObject out1 = anna->takeSignal("sigOutgoingCall");
    const QJsonObject out2 = anna->takeSignal("sigOutgoingCall");
    const QString uid = arg0(out1).value("uid").toString();
    QVERIFY(!uid.isEmpty());
    QCOMPARE(arg0(out2).value("uid").toString(), uid);
    QCOMPARE(
        QSet<QString>({arg0(out1).value("sipAccount").toString(), arg0(out2).value("sipAccount").toString()}),
        QSet<QString>({"1000", "1000_app"}));
    const QStringList annaChannels {arg0(out1).value("localChannel").toString(),
                                    arg0(out2).value("localChannel").toString()};

    const QJsonObject in1 = bruno->takeSignal("sigIncomingCall");
    const QJsonObject in2 = bruno->takeSignal("sigIncomingCall");
    for (const QJsonObject& in : {arg0(in1), arg0(in2)}) {
        QCOMPARE(in.value("uid").toString(), uid);
        QCOMPARE(in.value("remoteNum").toString(), QStringLiteral("1000"));
        QCOMPARE(in.value("remoteName").toString(), QStringLiteral("Anna Rossi"));
        QVERIFY(annaChannels.contains(in.value("remoteChannel").toString()));
        QCOMPARE(in.value("attributes").toInt() & 0x1, 0x1);
    }
    // Anna sees Bruno's lamp ringing.
    QVERIFY(!anna->takeSignal("sigExtenStatusChanged",
                              [](const QJsonObject& o) {
                                  return arg0(o).value("exten") == "1001" && arg0(o).value("blfStatus") == 8;
                              })
                 .isEmpty());

    const QJsonObject answered = bruno->takeSignal(
        "sigAnsweredCall", [&](const QJsonObject& o) { return arg0(o).value("localAnswer").toBool(); });
    QCOMPARE(arg0(answered).value("sipAccount").toString(), QStringLiteral("1001"));
    QCOMPARE(arg0(answered).value("uid").toString(), uid);
    const QJsonObject annaAnswered = anna->takeSignal("sigAnsweredCall");
    QCOMPARE(arg0(annaAnswered).value("remoteChannel").toString(),
             arg0(answered).value("localChannel").toString());

    bruno->send(call("hangupCall", {uid, ""}, 2));
    QCOMPARE(bruno->takeAnswer(2).value("result"), QJsonValue(true));
    const QJsonObject brunoEnd = bruno->takeSignal("sigFinishedCall");
    const QJsonObject annaEnd = anna->takeSignal("sigFinishedCall");
    QCOMPARE(arg0(brunoEnd).value("uid").toString(), uid);
    QCOMPARE(arg0(annaEnd).value("uid").toString(), uid);
    QCOMPARE(arg0(brunoEnd).value("localHangup").toBool(), true);
    QCOMPARE(arg0(annaEnd).value("localHangup").toBool(), false);

    // The call is in both histories, pushed as it ended.
    for (ToolProcess* cli : {anna.get(), bruno.get()}) {
        const QJsonObject history = cli->takeSignal("sigCdrChanged", [](const QJsonObject& o) {
            const QJsonArray cdr = o.value("args").toArray().at(0).toArray();
            return cdr.size() == 1 && cdr.at(0).toObject().value("caller") == "1000"
                && cdr.at(0).toObject().value("callee") == "1001";
        });
        QVERIFY(!history.isEmpty());
        QCOMPARE(history.value("args").toArray().at(0).toArray().at(0).toObject().value("status").toInt(), 8);
    }
    anna->closeInput();
    bruno->closeInput();
    QVERIFY(anna->waitForExit() && bruno->waitForExit());
    QCOMPARE(anna->exitCode(), 0);
}

void tst_CliPbxSim::refusedLoginEndsWithTheReason_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("reason");
    QTest::newRow("wrong password") << "1002"
                                    << "not-the-password" << QStringList() << "WrongPassword";
    QTest::newRow("unknown user") << "4711"
                                  << "4711" << QStringList() << "UnknownUser";
    QTest::newRow("wrong password, reconnecting")
        << "1002"
        << "not-the-password" << QStringList {"--reconnect"} << "WrongPassword";
    // The simulator's certificate is self-signed: verified, it is refused.
    QTest::newRow("certificate verified") << "1002"
                                          << "1002" << QStringList {"--verify-tls"} << QString();
}

void tst_CliPbxSim::refusedLoginEndsWithTheReason()
{
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QStringList, options);
    QFETCH(QString, reason);
    QVERIFY(startSimulator());
    auto cli = startCli(user, password, options);
    QVERIFY(cli);
    const QJsonObject gone = cli->takeSignal("disconnectedFromServer");
    const QString said = gone.value("args").toArray().at(0).toString();
    if (reason.isEmpty())
        QVERIFY(!said.isEmpty());
    else
        QCOMPARE(said, reason);
    QVERIFY(cli->waitForExit());
    QCOMPARE(cli->exitCode(), 1);
    QVERIFY(cli->takeSignal("loggedToServer", {}, 0).isEmpty());
}

void tst_CliPbxSim::redirectedCallRingsTheNewParty()
{
    QVERIFY(startSimulator({"--answer-delay", "-1"}));
    auto anna = startCli("1000");
    auto bruno = startCli("1001");
    auto chiara = startCli("1002");
    QVERIFY(anna && bruno && chiara);
    for (ToolProcess* cli : {anna.get(), bruno.get(), chiara.get()})
        QVERIFY(!cli->takeSignal("loggedToServer").isEmpty());

    anna->send(call("newCall", {"1001", 0}, 1));
    const QString uid = arg0(bruno->takeSignal("sigIncomingCall")).value("uid").toString();
    QVERIFY(!uid.isEmpty());
    bruno->send(call("redirectCall", {uid, "1002"}, 2));
    QCOMPARE(bruno->takeAnswer(2).value("result"), QJsonValue(true));

    QCOMPARE(arg0(bruno->takeSignal("sigFinishedCall")).value("reason").toString(),
             QStringLiteral("redirected"));
    const QJsonObject ring = arg0(chiara->takeSignal("sigIncomingCall"));
    QCOMPARE(ring.value("uid").toString(), uid);
    QCOMPARE(ring.value("remoteNum").toString(), QStringLiteral("1000"));
    const QJsonObject moved = arg0(anna->takeSignal("sigColpUpdate"));
    QCOMPARE(moved.value("remoteNum").toString(), QStringLiteral("1002"));
    QCOMPARE(moved.value("remoteName").toString(), QStringLiteral("Chiara Lambert"));

    // Chiara turns it down: every leg ends and the history says busy.
    chiara->send(call("refuseCall", {uid}, 3));
    QCOMPARE(arg0(anna->takeSignal("sigFinishedCall")).value("uid").toString(), uid);
    QCOMPARE(arg0(chiara->takeSignal("sigFinishedCall")).value("localHangup").toBool(), true);
    // A desktop client raises its whole stored history, newest entry last.
    QVERIFY(!anna->takeSignal("sigCdrChanged",
                              [](const QJsonObject& o) {
                                  const QJsonObject e
                                      = o.value("args").toArray().at(0).toArray().last().toObject();
                                  return e.value("callee") == "1002" && e.value("statusText") == "busy";
                              })
                 .isEmpty());
}

void tst_CliPbxSim::customDirectoryWithoutBanner()
{
    const QString path = m_dir.path() + "/directory.json";
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"extensions": [
        {"exten": "200", "firstName": "Test", "lastName": "Pilot", "password": "secret"},
        {"exten": "201", "firstName": "Co", "lastName": "Pilot"}]})");
    file.close();
    QVERIFY(startSimulator({"--directory", path, "--no-banner", "--api", "5.8"}));
    auto cli = startCli("200", "secret");
    QVERIFY(cli);
    const QJsonObject logged = arg0(cli->takeSignal("loggedToServer"));
    QCOMPARE(logged.value("firstName").toString(), QStringLiteral("Test"));
    QCOMPARE(logged.value("apiVersion").toString(), QStringLiteral("5.8"));

    cli->send(call("getExtenList", {}, 1));
    const QJsonObject book = cli->takeSignal("sigPhonebookChanged", [](const QJsonObject& o) {
        return !o.value("args").toArray().at(0).toArray().isEmpty();
    });
    const QJsonArray entries
        = book.value("args").toArray().at(0).toArray().at(0).toObject().value("entries").toArray();
    QCOMPARE(entries.size(), 1);
    QCOMPARE(entries.at(0).toObject().value("displayName").toString(), QStringLiteral("Co Pilot"));

    // shutdown as a command ends the tool like quit does.
    cli->send(call("shutdown", {}, 2));
    QCOMPARE(cli->takeAnswer(2).value("result"), QJsonValue(true));
    QVERIFY(cli->waitForExit());
    QCOMPARE(cli->exitCode(), 0);
}

void tst_CliPbxSim::unknownCommandsAreAnsweredWithErrors()
{
    QVERIFY(startSimulator());
    auto cli = startCli("1003");
    QVERIFY(cli);
    QVERIFY(!cli->takeSignal("loggedToServer").isEmpty());

    cli->send(call("dialTheMoon", {}, "q"));
    QCOMPARE(cli->takeAnswer("q").value("error").toString(),
             QStringLiteral("unknown method \"dialTheMoon\""));
    cli->send(call("getCDR", {"yes"}, 2));
    QVERIFY(cli->takeAnswer(2).value("error").toString().contains("expected true or false"));
    cli->send(call("newCall", {"1001", 0, "x", "too many"}, 3));
    QVERIFY(cli->takeAnswer(3).value("error").toString().contains("other arguments"));
    cli->sendLine("this is not JSON");
    QVERIFY(cli->take([](const QJsonObject& o) {
                   return o.value("id").isNull()
                       && o.value("error").toString().startsWith("not a JSON object");
               })
                .size()
            == 2);
    // A request the simulator does not know is answered with an "Error".
    cli->send(call("sendPlainRequest", {"<Bogus/>"}, 6));
    QCOMPARE(cli->takeAnswer(6).value("result"), QJsonValue(true));
    QVERIFY(!m_sim->waitForLine("1003: unknown request Bogus").isEmpty());
    // Nothing of that stopped the client.
    cli->send(call("isConnected", {}, 4));
    QCOMPARE(cli->takeAnswer(4).value("result"), QJsonValue(true));
    cli->send(call("quit", {}, 5));
    QVERIFY(cli->waitForExit());
    QCOMPARE(cli->exitCode(), 0);
}

// A number to dial may be given as the link a browser hands over.
void tst_CliPbxSim::dialsATelLinkAsItsNumber()
{
    QVERIFY(startSimulator());
    auto anna = startCli("1000");
    QVERIFY(anna);
    QVERIFY(!anna->takeSignal("loggedToServer").isEmpty());

    anna->send(call("newCall", {"tel:10-01;phone-context=pbx.example", 0}, 1));
    QCOMPARE(anna->takeAnswer(1).value("result"), QJsonValue(true));
    QVERIFY(!m_sim->waitForLine("1000 dials 1001").isEmpty());

    anna->send(call("newCall", {"tel:10x1", 0}, 2));
    QCOMPARE(
        anna->takeAnswer(2).value("error").toString(),
        QStringLiteral("argument 1 (number) of newCall(QString number, TELVIX::NumberOutgoingPrefix prefix) "
                       "-> bool: \"10x1\" is not a telephone number"));
}

void tst_CliPbxSim::localServerRepublishesTheSession()
{
    QVERIFY(startSimulator());
    auto cli = startCli("1004", QString(), {"--local-server"});
    QVERIFY(cli);
    const QJsonObject opened = cli->take(
        [](const QJsonObject& o) { return o.value("call").toString() == QLatin1String("initTcpServer"); });
    QVERIFY2(opened.value("id").isNull(), qPrintable(cli->errorOutput()));
    const int port = opened.value("result").toInt();
    QVERIFY(port > 0);
    QVERIFY(!cli->takeSignal("loggedToServer").isEmpty());

    QTcpSocket app;
    app.connectToHost(QStringLiteral("127.0.0.1"), quint16(port));
    QVERIFY(app.waitForConnected(5000));
    // The library takes the connection on its own thread; until it has, a
    // message is not for this application. Ask again until one arrives.
    QByteArray received;
    for (int attempt = 0; attempt < 20 && !received.contains("</ServiceStatusList>"); ++attempt) {
        cli->send(call("getServiceStatus", {}, attempt));
        QCOMPARE(cli->takeAnswer(attempt).value("result"), QJsonValue(true));
        // A miss only means another attempt.
        (void)QTest::qWaitFor(
            [&] {
                received += app.readAll();
                return received.contains("</ServiceStatusList>");
            },
            1000);
    }
    // Chat events may come first: the simulated chat server is not there.
    QVERIFY2(received.contains("<SRNT><API>6.1</API><ServiceStatusList>"), received.constData());

    // Logging out is told to the application as well.
    cli->send(call("logout", {}, "out"));
    QVERIFY(QTest::qWaitFor(
        [&] {
            received += app.readAll();
            return received.contains("<Event><Logout><Reason>");
        },
        10000));
    cli->send(call("quit", {}, "bye"));
    QVERIFY(cli->waitForExit());
    QCOMPARE(cli->exitCode(), 0);
}

void tst_CliPbxSim::chatBetweenTwoClientsThroughTheSimulatorsChatServer()
{
    if (!ProsodyServer::isInstalled())
        QSKIP("prosody is not installed");
    // Chat accounts as the built-in directory names them, with the CTI
    // passwords: the library logs in to chat with the session's password.
    ProsodyServer chat;
    chat.addUser(QStringLiteral("anna.rossi"), QStringLiteral("1000"));
    chat.addUser(QStringLiteral("bruno.keller"), QStringLiteral("1001"));
    chat.setSharedRoster(true);
    QVERIFY2(chat.start(), qPrintable(chat.errorString()));

    // Without a chat port the simulator offers no chat, and clients do not try.
    QVERIFY(startSimulator());
    auto lone = startCli("1002");
    QVERIFY(lone);
    QVERIFY(!lone->takeSignal("loggedToServer").isEmpty());
    lone->send(call("isChatConnected", {}, "c"));
    QCOMPARE(lone->takeAnswer("c").value("result"), QJsonValue(false));
    lone->send(call("quit", {}, "q"));
    QVERIFY(lone->waitForExit());
    QVERIFY(lone->lines().filter(QStringLiteral("sigChat")).isEmpty());

    QVERIFY(startSimulator({"--chat-port", QString::number(chat.port())}));
    auto anna = startCli("1000");
    auto bruno = startCli("1001");
    QVERIFY(anna && bruno);
    QVERIFY2(!anna->takeSignal("sigChatConnected", {}, 20000).isEmpty(), qPrintable(chat.log()));
    QVERIFY(!bruno->takeSignal("sigChatConnected", {}, 20000).isEmpty());

    // Extensions are turned into chat ids through the extension list.
    for (auto* cli : {anna.get(), bruno.get()}) {
        cli->send(call("getExtenList", {}, "list"));
        QVERIFY(!cli->takeSignal("sigPhonebookChanged",
                                 [](const QJsonObject& o) {
                                     return !o.value("args").toArray().at(0).toArray().isEmpty();
                                 })
                     .isEmpty());
    }
    anna->send(call("sendChatMessage", {"1001", "ciao Bruno"}, 1));
    const QJsonObject sent = anna->takeAnswer(1);
    QVERIFY2(sent.value("result") == QJsonValue(true), QJsonDocument(sent).toJson().constData());
    const QJsonObject received = bruno->takeSignal("sigChatMessage", [](const QJsonObject& o) {
        return arg0(o).value("body").toString() == QLatin1String("ciao Bruno");
    });
    QVERIFY(!received.isEmpty());
    QCOMPARE(arg0(received).value("exten").toString(), QStringLiteral("1000"));
    QCOMPARE(arg0(received).value("direction").toInt(), 0);

    for (auto* cli : {anna.get(), bruno.get()}) {
        cli->send(call("quit", {}, "bye"));
        QVERIFY(cli->waitForExit());
        QCOMPARE(cli->exitCode(), 0);
    }
}

void tst_CliPbxSim::badOptions_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no user") << QStringList {"--password", "x"};
    QTest::newRow("unknown option") << QStringList {"--user", "1000", "--colour"};
    QTest::newRow("unknown mode") << QStringList {"--user", "1000", "--mode", "srnt_fancy"};
    QTest::newRow("bad port") << QStringList {"--user", "1000", "--server", "127.0.0.1:99999"};
    QTest::newRow("stray argument") << QStringList {"--user", "1000", "extra"};
}

void tst_CliPbxSim::badOptions()
{
    QFETCH(QStringList, arguments);
    ToolProcess cli(QStringLiteral(TELVIX_CLI), arguments);
    QVERIFY(cli.start());
    QVERIFY(cli.waitForExit());
    QCOMPARE(cli.exitCode(), 2);
    QVERIFY(cli.errorOutput().startsWith("telvix-cli: "));
}

void tst_CliPbxSim::scenarioRunsStepsInOrder()
{
    const QString path = m_dir.path() + "/scenario.json";
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"steps": [
        {"waitFor": "GetMailboxStatus", "from": "1004", "timeout": 20000},
        {"do": "incomingCall", "to": "1004", "from": "0612345678"},
        {"after": 50, "do": "queueEvent", "to": "1004", "queue": "600", "event": "enter", "callerNum": "0612345678"},
        {"waitFor": "Hangup", "from": "1004"},
        {"do": "loggedOff", "exten": "1004", "reason": "MaintenanceWindow"}
    ]})");
    file.close();
    QVERIFY(startSimulator({"--scenario", path, "--answer-delay", "-1"}));
    auto cli = startCli("1004");
    QVERIFY(cli);
    QVERIFY(!cli->takeSignal("loggedToServer").isEmpty());
    QVERIFY(!m_sim->waitForLine("scenario: step 1 waits for GetMailboxStatus").isEmpty());

    cli->send(call("getMailboxStatus", {}, 1));
    QCOMPARE(cli->takeAnswer(1).value("result"), QJsonValue(true));
    const QJsonObject ring = cli->takeSignal("sigIncomingCall");
    QCOMPARE(arg0(ring).value("remoteNum").toString(), QStringLiteral("0612345678"));
    QCOMPARE(arg0(ring).value("remoteName").toString(), QStringLiteral("Laura Bianchi"));
    QCOMPARE(arg0(ring).value("attributes").toInt() & 0x2, 0x2);
    const QJsonObject queued = cli->takeSignal("sigQueueEvent");
    QCOMPARE(arg0(queued).value("queueId").toString(), QStringLiteral("600"));
    QCOMPARE(arg0(queued).value("eventType").toInt(), 1);
    // The call was asked for after the mailbox: the scenario waited.
    QVERIFY(cli->lines().indexOf(QRegularExpression(".*sigMailboxStatusChanged.*"))
            < cli->lines().indexOf(QRegularExpression(".*sigIncomingCall.*")));

    cli->send(call("refuseCall", {arg0(ring).value("uid")}, 2));
    QVERIFY(!cli->takeSignal("sigFinishedCall").isEmpty());
    const QJsonObject gone = cli->takeSignal("disconnectedFromServer");
    QCOMPARE(gone.value("args").toArray().at(0).toString(), QStringLiteral("MaintenanceWindow"));
    QVERIFY(!m_sim->waitForLine("scenario: done").isEmpty());
}

void tst_CliPbxSim::voicemailDownloadGivesAPcmWave()
{
    QVERIFY(startSimulator());
    auto cli = startCli("1005");
    QVERIFY(cli);
    QVERIFY(!cli->takeSignal("loggedToServer").isEmpty());
    cli->send(call("getVoicemail", {7}, 1));
    const QJsonArray box = cli->takeSignal("sigVoicemailMsgList").value("args").toArray().at(0).toArray();
    QVERIFY(!box.isEmpty());
    const QJsonObject message = box.at(0).toObject();
    const QString id = message.value("id").toString();
    const QString uuid = message.value("messageUuid").toString();
    QVERIFY(!id.isEmpty() && !uuid.isEmpty());

    const QString folder = m_dir.path() + "/voicemail";
    QVERIFY(QDir().mkpath(folder));
    cli->send(call("downloadVoicemailMessage", {id, uuid, folder}, 2));
    QCOMPARE(cli->takeAnswer(2).value("result"), QJsonValue(true));
    const QJsonArray done = cli->takeSignal("sigVoicemailDownloadCompleted").value("args").toArray();
    QCOMPARE(done.at(0).toString(), id);
    QCOMPARE(done.at(1).toString(), uuid);
    const QString path = done.at(2).toString();
    QCOMPARE(path, folder + "/" + uuid + ".wav");

    // The simulator sends the message's length in 20 ms GSM frames.
    const QString served = m_sim->waitForLine(QStringLiteral("1005 downloads voicemail %1: ").arg(id));
    const QRegularExpressionMatch m = QRegularExpression("(\\d+) s, (\\d+) frames").match(served);
    QVERIFY2(m.hasMatch(), qPrintable(served));
    QCOMPARE(m.captured(1).toInt(), qMin(message.value("duration").toInt(), 30));
    const int frames = m.captured(2).toInt();
    QCOMPARE(frames, m.captured(1).toInt() * 50);
    QVERIFY(frames > 0);

    // Each frame decodes to 160 samples of 16-bit PCM.
    QCOMPARE(QFileInfo(path).size(), qint64(44 + 320 * frames));
    const WaveFileParser wave(path);
    QVERIFY(wave.isValidWavFile());
    QCOMPARE(wave.getAudioFormat(), ushort(1));
    QCOMPARE(wave.getSampleRate(), 8000u);
    QCOMPARE(wave.getBitsPerSample(), ushort(16));
    QCOMPARE(wave.getNumChannels(), ushort(1));
    QCOMPARE(wave.getDataSize(), uint(320 * frames));

    // The simulator's steady tone (300 to 700 Hz) comes out again, which a
    // GSM stream packed or read in the wrong frame order would not give.
    QFile audio(path);
    QVERIFY(audio.open(QIODevice::ReadOnly) && audio.seek(44));
    const QByteArray pcm = audio.readAll();
    const int count = pcm.size() / 2;
    double power = 0;
    int crossings = 0;
    for (int i = 0; i < count; ++i) {
        const qint16 sample = qFromLittleEndian<qint16>(pcm.constData() + 2 * i);
        power += double(sample) * sample;
        if (i > 0 && (sample < 0) != (qFromLittleEndian<qint16>(pcm.constData() + 2 * i - 2) < 0))
            ++crossings;
    }
    const double rms = std::sqrt(power / count);
    const double hz = crossings / 2.0 / (count / 8000.0);
    QVERIFY2(rms > 4000 && rms < 7000, qPrintable(QString::number(rms)));
    QVERIFY2(hz > 290 && hz < 710, qPrintable(QString::number(hz)));

    // Another user's message is no message of this one.
    cli->send(call("downloadVoicemailMessage", {"1000-1", "other", folder}, 3));
    QVERIFY(!m_sim->waitForLine("1005: download of voicemail 1000-1, no such message").isEmpty());
    QVERIFY(cli->takeSignal("sigVoicemailDownloadCompleted", {}, 0).isEmpty());
}

void tst_CliPbxSim::rebrandingDownload_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("held");
    QTest::newRow("package held") << QStringList() << true;
    QTest::newRow("no package") << QStringList {"--no-rebranding"} << false;
}

void tst_CliPbxSim::rebrandingDownload()
{
    QFETCH(QStringList, options);
    QFETCH(bool, held);
    QVERIFY(startSimulator(options));
    auto cli = startCli("1006");
    QVERIFY(cli);
    QVERIFY(!cli->takeSignal("loggedToServer").isEmpty());

    // A copy from an earlier download, replaced or removed by this one.
    const QString folder = m_dir.path() + "/branding";
    QVERIFY(QDir().mkpath(folder));
    const QString path = folder + "/assets.zip";
    QFile old(path);
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.write("an older package");
    old.close();
    const QString lastMd5 = QCryptographicHash::hash("an older package", QCryptographicHash::Md5).toHex();

    cli->send(call("downloadRebrandingPackage", {lastMd5, folder}, 1));
    QCOMPARE(cli->takeSignal("sigRebrandingDownloadCompleted").value("args").toArray().at(0).toString(),
             path);
    const QString served = m_sim->waitForLine("1006 downloads the rebranding package: ");
    if (!held) {
        QVERIFY(served.endsWith("none held"));
        QVERIFY(!QFile::exists(path));
        return;
    }
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray zip = file.readAll();
    const QRegularExpressionMatch m
        = QRegularExpression("(\\d+) bytes, md5 ([0-9a-f]{32}) \\(client had (\\S+)\\)").match(served);
    QVERIFY2(m.hasMatch(), qPrintable(served));
    QCOMPARE(zip.size(), m.captured(1).toInt());
    QCOMPARE(QString(QCryptographicHash::hash(zip, QCryptographicHash::Md5).toHex()), m.captured(2));
    QCOMPARE(m.captured(3), lastMd5);

    // A zip archive: a local header first, the end record last, which counts
    // the entries of a central directory that ends where the record starts.
    QVERIFY(zip.size() > 22);
    QVERIFY(zip.startsWith("PK\x03\x04"));
    const char* end = zip.constData() + zip.size() - 22;
    QCOMPARE(QByteArray(end, 4), QByteArray("PK\x05\x06"));
    QCOMPARE(qFromLittleEndian<quint16>(end + 10), quint16(2));
    const quint32 dirSize = qFromLittleEndian<quint32>(end + 12);
    const quint32 dirOffset = qFromLittleEndian<quint32>(end + 16);
    QCOMPARE(qint64(dirOffset) + dirSize, qint64(zip.size() - 22));
    QCOMPARE(zip.mid(int(dirOffset), 4), QByteArray("PK\x01\x02"));
    QVERIFY(zip.mid(int(dirOffset)).contains("branding.json"));
}

void tst_CliPbxSim::downloadWithoutValidTokenIsRefused_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<QString>("reason");
    QTest::newRow("unknown token") << "<Token>0123456789abcdef</Token><DownloadVoicemailMsg><ID>1000-1</ID>"
                                      "</DownloadVoicemailMsg>"
                                   << "Unknown access token";
    QTest::newRow("no token") << "<GetRebrandingPack><LastMd5></LastMd5></GetRebrandingPack>"
                              << "Missing access token";
    // A token opens downloads only, not the session's requests.
    QTest::newRow("not a download") << "<Token>0123456789abcdef</Token><GetMailboxStatus></GetMailboxStatus>"
                                    << "NotLoggedIn";
}

void tst_CliPbxSim::downloadWithoutValidTokenIsRefused()
{
    QFETCH(QString, request);
    QFETCH(QString, reason);
    QVERIFY(startSimulator());
    QSslSocket socket;
    socket.setPeerVerifyMode(QSslSocket::VerifyNone);
    socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), m_port);
    QVERIFY2(socket.waitForEncrypted(10000), qPrintable(socket.errorString()));
    socket.write(QStringLiteral("<SRNT><API>6.1</API><Request>%1</Request></SRNT>").arg(request).toUtf8());
    QByteArray received;
    QVERIFY(QTest::qWaitFor(
        [&] {
            received += socket.readAll();
            return received.contains("</Error>");
        },
        10000));
    QVERIFY2(received.contains(QStringLiteral("<Reason>%1</Reason>").arg(reason).toUtf8()),
             received.constData());
    QVERIFY(!received.contains("VoicemailMessageAudio") && !received.contains("<RebrandingPack>"));
    if (reason != QLatin1String("NotLoggedIn"))
        QVERIFY(!m_sim->waitForLine("refused: " + reason).isEmpty());
}

void tst_CliPbxSim::expiredTokenOpensNoDownload()
{
    QVERIFY(startSimulator({"--token-validity", "0"}));
    auto cli = startCli("1007");
    QVERIFY(cli);
    QVERIFY(!cli->takeSignal("loggedToServer").isEmpty());
    const QString folder = m_dir.path() + "/expired";
    QVERIFY(QDir().mkpath(folder));
    cli->send(call("downloadRebrandingPackage", {"", folder}, 1));
    QCOMPARE(cli->takeAnswer(1).value("result"), QJsonValue(true));
    QVERIFY(m_sim->waitForLine("download GetRebrandingPack from 127.0.0.1:")
                .endsWith("refused: Expired access token"));
    // The refusal reaches the application only as a download that never completes.
    cli->send(call("isConnected", {}, 2));
    QCOMPARE(cli->takeAnswer(2).value("result"), QJsonValue(true));
    QVERIFY(cli->takeSignal("sigRebrandingDownloadCompleted", {}, 0).isEmpty());
    QVERIFY(!QFile::exists(folder + "/assets.zip"));
}

void tst_CliPbxSim::commandsRunWhileTheLoginHangs_data()
{
    QTest::addColumn<bool>("endOfInput");
    QTest::newRow("quit") << false;
    QTest::newRow("end of input") << true;
}

// A server that takes the connection and the login and never answers.
void tst_CliPbxSim::commandsRunWhileTheLoginHangs()
{
    QFETCH(bool, endOfInput);
    FakeCtiServer server;
    QVERIFY(server.listen());
    m_port = server.port();
    auto cli = startCli("1000");
    QVERIFY(cli);
    QVERIFY(!server.waitForFrame("Login", 10000).isEmpty());

    cli->send(call("getConnectionState", {}, 1));
    QCOMPARE(cli->takeAnswer(1).value("result").toInt(), int(Telvix::StateConnecting));
    QElapsedTimer clock;
    clock.start();
    if (endOfInput)
        cli->closeInput();
    else
        cli->send(call("quit", {}, 2));
    QVERIFY(cli->waitForExit(5000));
    QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(cli->exitCode(), 0);
    QTRY_COMPARE(server.openConnectionCount(), 0);
}

void tst_CliPbxSim::emptyDataDirWritesTheLogInTheWorkingDirectory()
{
    QVERIFY(startSimulator());
    const QString work = m_dir.path() + "/work";
    QVERIFY(QDir().mkpath(work));
    ToolProcess cli(QStringLiteral(TELVIX_CLI),
                    {"--json", "--user", "1001", "--password", "1001", "--server",
                     QStringLiteral("127.0.0.1:%1").arg(m_port), "--data-dir", ""});
    cli.setWorkingDirectory(work);
    QVERIFY(cli.start());
    QVERIFY(!cli.takeSignal("loggedToServer").isEmpty());
    cli.send(call("quit", {}, 1));
    QVERIFY(cli.waitForExit());
    QVERIFY(QFileInfo(work + "/telvixLog.txt").size() > 0);
}

void tst_CliPbxSim::reconnectBringsTheSessionBack_data()
{
    QTest::addColumn<bool>("periodic");
    QTest::newRow("restart step of a scenario") << false;
    QTest::newRow("periodic restarts") << true;
}

void tst_CliPbxSim::reconnectBringsTheSessionBack()
{
    QFETCH(bool, periodic);
    QStringList options {"--restart-every", "3000", "--restart-downtime", "1500"};
    if (!periodic) {
        const QString path = m_dir.path() + "/restart.json";
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(R"({"steps": [
            {"waitFor": "GetExtenStatus", "from": "1002", "timeout": 20000},
            {"after": 200, "do": "restart", "ms": 1500}
        ]})");
        options = QStringList {"--scenario", path};
    }
    QVERIFY(startSimulator(options));
    auto cli = startCli("1002", QString(), {"--reconnect"});
    QVERIFY(cli);
    QVERIFY(!cli->takeSignal("loggedToServer").isEmpty());
    cli->send(call("getExtenStatus", {}, 1));
    QCOMPARE(cli->takeAnswer(1).value("result"), QJsonValue(true));
    QVERIFY(!cli->takeSignal("sigExtenStatusMapChanged").isEmpty());

    QCOMPARE(cli->takeSignal("disconnectedFromServer").value("args").toArray().at(0).toString(),
             QStringLiteral("Unkown"));
    const QJsonArray waiting = cli->takeSignal("waiting").value("args").toArray();
    QCOMPARE(waiting.at(0).toInt(), 1);
    QVERIFY(waiting.at(1).toInt() <= 1000);
    const QJsonObject back = cli->takeSignal("reconnected", {}, 20000);
    QVERIFY2(back.value("args").toArray().at(0).toInt() >= 1000, QJsonDocument(back).toJson().constData());
    QVERIFY(!cli->takeSignal("loggedToServer").isEmpty());
    // The status asked for in the lost session is asked for again.
    QVERIFY(!cli->takeSignal("sigExtenStatusMapChanged").isEmpty());
    QVERIFY(!m_sim->waitForLine(periodic ? "accepting connections again" : "scenario: done").isEmpty());
    cli->send(call("quit", {}, 2));
    QVERIFY(cli->waitForExit());
    QCOMPARE(cli->exitCode(), 0);
}

QTEST_GUILESS_MAIN(tst_CliPbxSim)
#include "tst_clipbxsim.moc"
