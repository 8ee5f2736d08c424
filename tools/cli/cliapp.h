#pragma once

#include "clioptions.h"
#include "clioutput.h"
#include "commandinvoker.h"

#include <QJsonArray>
#include <QJsonValue>
#include <QList>
#include <QMetaMethod>
#include <QObject>
#include <QScopedPointer>
#include <QTemporaryDir>
#include <QTimer>

class InputReader;
class SignalTap;
class Telvix;
class TelvixReconnector;

/// \brief telvix-cli itself: one Telvix client driven by commands from
/// standard input, every signal printed.
///
/// Commands run in order as soon as they are read, also while the client is
/// still connecting or logging in; a waitFor or wait holds the queue. Input
/// that ends, "quit" or SIGINT shuts the library down and ends the program
/// within a few seconds, whatever the server does. With --reconnect a
/// TelvixReconnector brings lost sessions back and its signals are printed
/// like the client's.
class CliApp : public QObject
{
    Q_OBJECT
public:
    explicit CliApp(const CliOptions& options, QObject* parent = nullptr);
    ~CliApp() override;

    /// Starts the library and connects; the result comes as finished().
    void start();

Q_SIGNALS:
    void finished(int exitCode);

private:
    struct Command
    {
        QJsonValue id;
        QString name;
        QStringList words;
        QJsonArray args;
        bool fromJson = false;
    };
    struct SeenSignal
    {
        QString name;
        QString signature;
        QJsonArray args;
        bool taken = false;
    };

    void onSignal(const QMetaMethod& signal, const QJsonArray& args);
    void onLine(const QString& line);
    void runQueue();
    /// False when the command holds the queue (wait, waitFor).
    bool run(const Command& command);
    bool startWaitFor(const Command& command);
    bool takeAwaited();
    void endWait(bool matched);
    void finish(int exitCode);
    void shutdownClient();
    void attachReconnector();
    /// With --reconnect, a state request that ran is asked again after a
    /// reconnection.
    void rememberRequest(const Command& command);

    CliOptions m_options;
    CliOutput m_out;
    QTemporaryDir m_tempDir;
    QScopedPointer<Telvix> m_client;
    QScopedPointer<CommandInvoker> m_invoker;
    SignalTap* m_tap = nullptr;
    TelvixReconnector* m_reconnector = nullptr;
    SignalTap* m_reconnectorTap = nullptr;
    InputReader* m_input = nullptr;

    QList<Command> m_queue;
    bool m_loggedIn = false;
    bool m_finishing = false;
    bool m_clientShutDown = false;
    int m_exitCode = 0;

    // waitFor: signals raised since the last method call, and the one awaited.
    QList<SeenSignal> m_seen;
    bool m_waiting = false;
    Command m_waitCommand;
    QString m_awaited;
    QTimer m_waitTimer;
};
