#include "cliapp.h"

#include "inputreader.h"
#include "signaltap.h"
#include "stopsignals.h"
#include "telvix.h"
#include "telvixreconnector.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

constexpr int DefaultWaitForMs = 30000;
// Signals kept for waitFor while no method is called (a long watch).
constexpr int SeenSignalsKept = 1000;
// Once the program is told to end, it ends within this time even if the
// library's shutdown does not come back.
constexpr int ExitDeadlineMs = 4500;

QString modeText(TELVIX::AppMode mode)
{
    return TELVIX::appModeToString(mode);
}

} // namespace

CliApp::CliApp(const CliOptions& options, QObject* parent)
    : QObject(parent)
    , m_options(options)
    , m_out(options.json)
{
    m_waitTimer.setSingleShot(true);
    connect(&m_waitTimer, &QTimer::timeout, this, [this] { endWait(false); });
}

CliApp::~CliApp()
{
    delete m_tap;
    delete m_reconnectorTap;
}

void CliApp::start()
{
    // An empty --data-dir goes to the library as it is: its working directory.
    const QString dataDir = m_options.tempDataDir ? m_tempDir.path() : m_options.dataDir;
    m_client.reset(new Telvix(m_options.osType, m_options.osVersion, m_options.swType, m_options.swVersion,
                              m_options.deviceId, dataDir));
    m_tap = new SignalTap(
        m_client.data(), Telvix::staticMetaObject,
        [this](const QMetaMethod& signal, const QJsonArray& args) { onSignal(signal, args); });
    m_invoker.reset(new CommandInvoker(m_client.data(), Telvix::staticMetaObject));
    // Both are made to be called off the library's thread and wait for it.
    m_invoker->setCallerThreadMethods({"init", "shutdown"});

    m_input = new InputReader(this);
    connect(m_input, &InputReader::lineRead, this, &CliApp::onLine);
    connect(m_input, &InputReader::endOfInput, this, [this] {
        Command quit;
        quit.name = QStringLiteral("quit");
        m_queue.append(quit);
        runQueue();
    });
    connect(new StopSignals(this), &StopSignals::stopRequested, this, [this] {
        CliOutput::note(QStringLiteral("interrupted"));
        finish(m_exitCode);
    });

    CliOutput::note(QStringLiteral("libtelvix %1, data directory %2")
                        .arg(m_client->getVersion(),
                             dataDir.isEmpty() ? QStringLiteral("(working directory)") : dataDir));
    m_client->init();
    if (m_options.dump)
        m_client->enableMessagesDump(true);
    if (m_options.verifyTls)
        m_client->ignoreSslErrors(false);
    if (m_options.localServer) {
        const int port = m_client->initTcpServer();
        if (port > 0)
            m_out.printResult(QJsonValue::Null, QStringLiteral("initTcpServer"), port);
        else
            m_out.printError(
                QJsonValue::Null,
                QStringLiteral("--local-server: the local server could not listen (%1)").arg(port));
    }
    if (m_options.reconnect)
        attachReconnector();
    CliOutput::note(QStringLiteral("connecting to %1:%2 as %3 (%4)")
                        .arg(m_options.host)
                        .arg(m_options.port)
                        .arg(m_options.user, modeText(m_options.mode)));
    m_client->connectToServer(m_options.user, m_options.password, m_options.domain, m_options.mode,
                              m_options.host, m_options.port);
}

void CliApp::onSignal(const QMetaMethod& signal, const QJsonArray& args)
{
    m_out.printSignal(signal, args);
    m_seen.append(
        {QString::fromLatin1(signal.name()), QString::fromLatin1(signal.methodSignature()), args, false});
    if (m_seen.size() > SeenSignalsKept)
        m_seen.removeFirst();

    // Without --reconnect the first disconnection before a login ends the
    // program; with it, only what the reconnector gives up on.
    const QByteArray name = signal.name();
    const QByteArray fatal = m_reconnector ? "gaveUp" : "disconnectedFromServer";
    if (name == "loggedToServer") {
        m_loggedIn = true;
    } else if (name == fatal && !m_loggedIn && !m_finishing) {
        CliOutput::note(QStringLiteral("login failed: %1").arg(args.at(0).toString()));
        finish(1);
        return;
    }
    if (m_waiting && takeAwaited())
        endWait(true);
}

void CliApp::onLine(const QString& rawLine)
{
    const QString line = rawLine.trimmed();
    if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
        return;
    Command command;
    if (m_options.json) {
        QJsonParseError parsed;
        const QJsonDocument doc = QJsonDocument::fromJson(line.toUtf8(), &parsed);
        const QJsonObject object = doc.object();
        command.id = object.value(QLatin1String("id"));
        if (command.id.isUndefined())
            command.id = QJsonValue::Null;
        if (parsed.error != QJsonParseError::NoError || !doc.isObject()) {
            m_out.printError(QJsonValue::Null,
                             QStringLiteral("not a JSON object: %1").arg(parsed.errorString()));
            return;
        }
        if (!object.value(QLatin1String("call")).isString()) {
            m_out.printError(command.id, QStringLiteral("no \"call\" given"));
            return;
        }
        const QJsonValue args = object.value(QLatin1String("args"));
        if (!args.isUndefined() && !args.isNull() && !args.isArray()) {
            m_out.printError(command.id, QStringLiteral("\"args\" is not an array"));
            return;
        }
        command.name = object.value(QLatin1String("call")).toString();
        command.args = args.toArray();
        command.fromJson = true;
    } else {
        QString error;
        QStringList words = CommandInvoker::splitWords(line, &error);
        if (words.isEmpty()) {
            m_out.printError(QJsonValue::Null, error);
            return;
        }
        command.name = words.takeFirst();
        command.words = words;
    }
    m_queue.append(command);
    runQueue();
}

void CliApp::runQueue()
{
    while (!m_waiting && !m_finishing && !m_queue.isEmpty()) {
        if (!run(m_queue.takeFirst()))
            return;
    }
}

bool CliApp::run(const Command& c)
{
    const auto argAt = [&c](int i) {
        return c.fromJson ? c.args.at(i) : QJsonValue(i < c.words.size() ? c.words.at(i) : QString());
    };
    const int argCount = c.fromJson ? c.args.size() : c.words.size();

    if (c.name == QLatin1String("quit")) {
        finish(m_exitCode);
        return false;
    }
    if (c.name == QLatin1String("help")) {
        const QStringList methods = m_invoker->descriptions();
        if (m_out.isJson()) {
            m_out.printResult(c.id, c.name, QJsonArray::fromStringList(methods));
        } else {
            for (const QString& m : methods)
                m_out.printText(c.id, m);
        }
        return true;
    }
    if (c.name == QLatin1String("echo")) {
        QStringList texts;
        for (int i = 0; i < argCount; ++i)
            texts.append(argAt(i).isString() ? argAt(i).toString() : CliOutput::humanText(argAt(i)));
        m_out.printText(c.id, texts.join(QLatin1Char(' ')));
        return true;
    }
    if (c.name == QLatin1String("wait")) {
        const int ms = argAt(0).isDouble() ? argAt(0).toInt() : argAt(0).toString().toInt();
        m_waiting = true;
        m_waitCommand = c;
        m_awaited.clear();
        m_waitTimer.start(qMax(0, ms));
        return false;
    }
    if (c.name == QLatin1String("waitFor"))
        return startWaitFor(c);

    const CommandInvoker::Result r
        = c.fromJson ? m_invoker->invoke(c.name, c.args) : m_invoker->invokeWords(c.name, c.words);
    if (!r.ok) {
        m_out.printError(c.id, r.error);
        return true;
    }
    // waitFor looks at what this call brings about, nothing earlier.
    m_seen.clear();
    m_out.printResult(c.id, c.name, r.value);
    if (m_reconnector)
        rememberRequest(c);
    if (c.name == QLatin1String("shutdown")) {
        // The library's thread is gone: it must not be asked to shut down again.
        m_clientShutDown = true;
        finish(m_exitCode);
    }
    return !m_finishing;
}

bool CliApp::startWaitFor(const Command& c)
{
    const QJsonValue what = c.fromJson ? c.args.at(0) : QJsonValue(c.words.value(0));
    const QJsonValue timeout = c.fromJson ? c.args.at(1) : QJsonValue(c.words.value(1));
    if (!what.isString() || what.toString().isEmpty()) {
        m_out.printError(c.id, QStringLiteral("waitFor needs a signal name"));
        return true;
    }
    m_awaited = what.toString();
    m_waitCommand = c;
    m_waiting = true;
    if (takeAwaited()) {
        endWait(true);
        return !m_waiting;
    }
    const int ms = timeout.isDouble() ? timeout.toInt() : timeout.toString().toInt();
    m_waitTimer.start(ms > 0 ? ms : DefaultWaitForMs);
    return false;
}

bool CliApp::takeAwaited()
{
    if (m_awaited.isEmpty())
        return false;
    for (SeenSignal& s : m_seen) {
        if (!s.taken && (s.name == m_awaited || s.signature == m_awaited)) {
            s.taken = true;
            m_waitCommand.args = s.args;
            return true;
        }
    }
    return false;
}

void CliApp::endWait(bool matched)
{
    m_waitTimer.stop();
    m_waiting = false;
    const Command c = m_waitCommand;
    if (!m_awaited.isEmpty() && !matched)
        m_out.printError(c.id, QStringLiteral("timed out waiting for %1").arg(m_awaited));
    else if (m_out.isJson())
        m_out.printResult(c.id, c.name, m_awaited.isEmpty() ? QJsonValue(true) : QJsonValue(c.args));
    m_awaited.clear();
    // Resume outside of the signal handler that ended the wait.
    QMetaObject::invokeMethod(this, &CliApp::runQueue, Qt::QueuedConnection);
}

void CliApp::attachReconnector()
{
    m_reconnector = new TelvixReconnector(m_client.data(), this);
    m_reconnectorTap = new SignalTap(
        m_reconnector, TelvixReconnector::staticMetaObject,
        [this](const QMetaMethod& signal, const QJsonArray& args) { onSignal(signal, args); });
}

void CliApp::rememberRequest(const Command& c)
{
    if (!TelvixReconnector::stateRequests().contains(c.name.toLatin1()))
        return;
    const QString key = c.name + QLatin1Char(' ')
        + (c.fromJson ? QString::fromUtf8(QJsonDocument(c.args).toJson(QJsonDocument::Compact))
                      : c.words.join(QLatin1Char(' ')));
    // The invoker calls directly when it runs on the library's thread, as
    // remembered requests do.
    const CommandInvoker* invoker = m_invoker.data();
    m_reconnector->remember(key, [invoker, c](Telvix*) {
        if (c.fromJson)
            invoker->invoke(c.name, c.args);
        else
            invoker->invokeWords(c.name, c.words);
    });
}

void CliApp::finish(int exitCode)
{
    if (m_finishing)
        return;
    m_finishing = true;
    m_exitCode = exitCode;
    // A library that does not come back from shutdown must not keep the
    // program alive: quit and end of input end it in a bounded time.
    std::thread([exitCode] {
        std::this_thread::sleep_for(std::chrono::milliseconds(ExitDeadlineMs));
        std::fprintf(stderr, "telvix-cli: the library did not shut down in time\n");
        std::fflush(stdout);
        std::_Exit(exitCode);
    }).detach();
    m_waitTimer.stop();
    m_queue.clear();
    // This may run inside the tap's handler: tear down from the event loop.
    QMetaObject::invokeMethod(this, &CliApp::shutdownClient, Qt::QueuedConnection);
}

void CliApp::shutdownClient()
{
    if (m_reconnector)
        m_reconnector->stop();
    if (!m_clientShutDown)
        m_client->shutdown();
    // What the library raised up to its end is still printed, nothing after.
    QCoreApplication::sendPostedEvents(m_tap);
    delete m_tap;
    m_tap = nullptr;
    if (m_reconnectorTap) {
        QCoreApplication::sendPostedEvents(m_reconnectorTap);
        delete m_reconnectorTap;
        m_reconnectorTap = nullptr;
    }
    Q_EMIT finished(m_exitCode);
}
