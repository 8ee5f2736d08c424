#pragma once

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QTimer>

class PbxSimulator;

/// \brief Plays a scenario file: timed steps that make the simulated PBX do
/// something, and steps that wait for a client's request.
///
/// The file is {"steps": [...]}; each step is one of
///   {"after": ms, "do": "<action>", ...parameters}
///   {"waitFor": "<request element>", "from": "<exten or user>", "timeout": ms}
/// "after" counts from the end of the step before (default 0). A request
/// counts for "waitFor" if it arrived at any time after the scenario began
/// and no earlier step took it, so a request made a little early is not
/// missed. Actions (parameters in brackets are optional):
///   say text                               print a line in the log
///   incomingCall to from [name] [queue]    a call from outside rings `to`
///   answer [call]  hangup [call]           the call ("last" by default)
///   redirectCall to [call]                 the caller is put through to `to`
///   queueEvent to queue event [callerNum] [uid] [currentCalls]
///                                          "enter" or "leave"; `to` "*" is everybody
///   loggedOff exten [reason]               the server logs the extension off
///   redirectConnection exten ip port       orders the clients to another server
///   probe [exten]                          asks the clients for a keep-alive
///   dropClients                            drops every connection at once
///   refuse ms                              refuses new connections for ms
///   restart [ms]                           dropClients, then refuse for ms
///                                          (default 3000)
///   send exten body                        a response with a ready-made body
///   quit [code]                            ends the simulator
class ScenarioRunner : public QObject
{
    Q_OBJECT
public:
    explicit ScenarioRunner(PbxSimulator& simulator, QObject* parent = nullptr);

    /// Reads and checks the whole file; nothing runs yet.
    bool load(const QString& path, QString* error);
    void start();

Q_SIGNALS:
    void finished(bool completed);

private:
    struct Step
    {
        int afterMs = 0;
        QString waitFor;
        QString from;
        int timeoutMs = 0;
        QString action;
        QJsonObject params;
    };
    using Action = bool (ScenarioRunner::*)(const QJsonObject&, QString*);
    struct ActionRow
    {
        Action run;
        QStringList required;
    };

    void onRequest(const QString& element, const QString& who);
    void runStep();
    void stepDone();
    void fail(const QString& why);
    bool takeRequest(const Step& step);
    QString callParam(const QJsonObject& p) const;

    bool say(const QJsonObject& p, QString* error);
    bool incomingCall(const QJsonObject& p, QString* error);
    bool answer(const QJsonObject& p, QString* error);
    bool hangup(const QJsonObject& p, QString* error);
    bool redirectCall(const QJsonObject& p, QString* error);
    bool queueEvent(const QJsonObject& p, QString* error);
    bool loggedOff(const QJsonObject& p, QString* error);
    bool redirectConnection(const QJsonObject& p, QString* error);
    bool probe(const QJsonObject& p, QString* error);
    bool dropClients(const QJsonObject& p, QString* error);
    bool refuse(const QJsonObject& p, QString* error);
    bool restart(const QJsonObject& p, QString* error);
    bool send(const QJsonObject& p, QString* error);
    bool quit(const QJsonObject& p, QString* error);

    PbxSimulator& m_sim;
    QHash<QString, ActionRow> m_actions;
    QList<Step> m_steps;
    int m_current = -1;
    bool m_waiting = false;
    QList<QPair<QString, QString>> m_requests; ///< (element, who) not yet taken
    QTimer m_timer;
};
