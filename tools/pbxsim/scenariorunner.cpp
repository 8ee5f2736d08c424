#include "scenariorunner.h"

#include "loginmessages.h"
#include "queuemessages.h"
#include "simmessages.h"
#include "simsession.h"
#include "simulator.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

ScenarioRunner::ScenarioRunner(PbxSimulator& simulator, QObject* parent)
    : QObject(parent)
    , m_sim(simulator)
{
    const QStringList none;
    m_actions = {
        {QStringLiteral("say"), {&ScenarioRunner::say, {QStringLiteral("text")}}},
        {QStringLiteral("incomingCall"),
         {&ScenarioRunner::incomingCall, {QStringLiteral("to"), QStringLiteral("from")}}},
        {QStringLiteral("answer"), {&ScenarioRunner::answer, none}},
        {QStringLiteral("hangup"), {&ScenarioRunner::hangup, none}},
        {QStringLiteral("redirectCall"), {&ScenarioRunner::redirectCall, {QStringLiteral("to")}}},
        {QStringLiteral("queueEvent"),
         {&ScenarioRunner::queueEvent,
          {QStringLiteral("to"), QStringLiteral("queue"), QStringLiteral("event")}}},
        {QStringLiteral("loggedOff"), {&ScenarioRunner::loggedOff, {QStringLiteral("exten")}}},
        {QStringLiteral("redirectConnection"),
         {&ScenarioRunner::redirectConnection,
          {QStringLiteral("exten"), QStringLiteral("ip"), QStringLiteral("port")}}},
        {QStringLiteral("probe"), {&ScenarioRunner::probe, none}},
        {QStringLiteral("dropClients"), {&ScenarioRunner::dropClients, none}},
        {QStringLiteral("refuse"), {&ScenarioRunner::refuse, {QStringLiteral("ms")}}},
        {QStringLiteral("restart"), {&ScenarioRunner::restart, none}},
        {QStringLiteral("send"), {&ScenarioRunner::send, {QStringLiteral("exten"), QStringLiteral("body")}}},
        {QStringLiteral("quit"), {&ScenarioRunner::quit, none}}};
    m_timer.setSingleShot(true);
    connect(&m_sim, &PbxSimulator::requestReceived, this, &ScenarioRunner::onRequest);
}

bool ScenarioRunner::load(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError parsed;
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parsed);
    const QJsonArray steps = doc.object().value(QLatin1String("steps")).toArray();
    if (!doc.isObject() || steps.isEmpty()) {
        *error = QStringLiteral("%1: expected {\"steps\": [...]} (%2)").arg(path, parsed.errorString());
        return false;
    }
    for (int i = 0; i < steps.size(); ++i) {
        const QJsonObject o = steps.at(i).toObject();
        Step step;
        step.afterMs = o.value(QLatin1String("after")).toInt();
        step.waitFor = o.value(QLatin1String("waitFor")).toString();
        step.from = o.value(QLatin1String("from")).toString();
        step.timeoutMs = o.value(QLatin1String("timeout")).toInt();
        step.action = o.value(QLatin1String("do")).toString();
        step.params = o;
        const QString where = QStringLiteral("%1: step %2").arg(path).arg(i + 1);
        if (step.waitFor.isEmpty() == step.action.isEmpty()) {
            *error = where + QLatin1String(": give either \"do\" or \"waitFor\"");
            return false;
        }
        if (!step.action.isEmpty()) {
            if (!m_actions.contains(step.action)) {
                *error = where + QStringLiteral(": unknown action \"%1\"").arg(step.action);
                return false;
            }
            for (const QString& name : m_actions.value(step.action).required) {
                if (!o.contains(name)) {
                    *error = where + QStringLiteral(": \"%1\" needs \"%2\"").arg(step.action, name);
                    return false;
                }
            }
        }
        m_steps.append(step);
    }
    return true;
}

void ScenarioRunner::start()
{
    m_sim.log(QStringLiteral("scenario: %1 steps").arg(m_steps.size()));
    m_current = -1;
    stepDone();
}

void ScenarioRunner::stepDone()
{
    m_waiting = false;
    m_timer.disconnect();
    if (++m_current >= m_steps.size()) {
        m_sim.log(QStringLiteral("scenario: done"));
        Q_EMIT finished(true);
        return;
    }
    const Step& step = m_steps.at(m_current);
    connect(&m_timer, &QTimer::timeout, this, &ScenarioRunner::runStep);
    m_timer.start(step.afterMs);
}

void ScenarioRunner::runStep()
{
    const Step& step = m_steps.at(m_current);
    m_timer.disconnect();
    if (!step.waitFor.isEmpty()) {
        if (takeRequest(step)) {
            stepDone();
            return;
        }
        m_waiting = true;
        m_sim.log(
            QStringLiteral("scenario: step %1 waits for %2%3")
                .arg(m_current + 1)
                .arg(step.waitFor, step.from.isEmpty() ? QString() : QLatin1String(" from ") + step.from));
        if (step.timeoutMs > 0) {
            connect(&m_timer, &QTimer::timeout, this, [this, step] {
                fail(QStringLiteral("no %1 within %2 ms").arg(step.waitFor).arg(step.timeoutMs));
            });
            m_timer.start(step.timeoutMs);
        }
        return;
    }
    QString error;
    m_sim.log(QStringLiteral("scenario: step %1: %2").arg(m_current + 1).arg(step.action));
    if (!(this->*m_actions.value(step.action).run)(step.params, &error)) {
        fail(error);
        return;
    }
    stepDone();
}

void ScenarioRunner::onRequest(const QString& element, const QString& who)
{
    if (m_current < 0 || m_current >= m_steps.size())
        return;
    m_requests.append(qMakePair(element, who));
    if (m_waiting && takeRequest(m_steps.at(m_current))) {
        m_timer.stop();
        stepDone();
    }
}

bool ScenarioRunner::takeRequest(const Step& step)
{
    for (int i = 0; i < m_requests.size(); ++i) {
        if (m_requests.at(i).first == step.waitFor
            && (step.from.isEmpty() || m_requests.at(i).second == step.from)) {
            m_requests.removeAt(i);
            return true;
        }
    }
    return false;
}

void ScenarioRunner::fail(const QString& why)
{
    m_waiting = false;
    m_timer.stop();
    m_sim.log(QStringLiteral("scenario: failed at step %1: %2").arg(m_current + 1).arg(why));
    m_current = m_steps.size();
    Q_EMIT finished(false);
}

QString ScenarioRunner::callParam(const QJsonObject& p) const
{
    const QString call = p.value(QLatin1String("call")).toString();
    return call.isEmpty() || call == QLatin1String("last") ? m_sim.calls().lastUid() : call;
}

// ---- actions ---------------------------------------------------------------------

bool ScenarioRunner::say(const QJsonObject& p, QString*)
{
    m_sim.log(QStringLiteral("scenario: ") + p.value(QLatin1String("text")).toString());
    return true;
}

bool ScenarioRunner::incomingCall(const QJsonObject& p, QString* error)
{
    return !m_sim.calls()
                .ringFromOutside(p.value(QLatin1String("from")).toString(),
                                 p.value(QLatin1String("name")).toString(),
                                 p.value(QLatin1String("to")).toString(),
                                 p.value(QLatin1String("queue")).toString(), error)
                .isEmpty();
}

bool ScenarioRunner::answer(const QJsonObject& p, QString* error)
{
    if (m_sim.calls().answerCall(callParam(p)))
        return true;
    *error = QStringLiteral("no ringing call %1").arg(callParam(p));
    return false;
}

bool ScenarioRunner::hangup(const QJsonObject& p, QString* error)
{
    if (m_sim.calls().hangupCall(callParam(p)))
        return true;
    *error = QStringLiteral("no call %1").arg(callParam(p));
    return false;
}

bool ScenarioRunner::redirectCall(const QJsonObject& p, QString* error)
{
    return m_sim.calls().redirectCall(callParam(p), p.value(QLatin1String("to")).toString(), error);
}

bool ScenarioRunner::queueEvent(const QJsonObject& p, QString* error)
{
    const QString event = p.value(QLatin1String("event")).toString();
    QueueEventMsg msg;
    msg.event.queueId = p.value(QLatin1String("queue")).toString();
    msg.event.eventType = event == QLatin1String("enter") ? QueueEvent::Enter
        : event == QLatin1String("leave")                 ? QueueEvent::Leave
                                                          : QueueEvent::Unknown;
    if (msg.event.eventType == QueueEvent::Unknown) {
        *error = QStringLiteral("queueEvent: \"event\" is \"enter\" or \"leave\"");
        return false;
    }
    msg.event.callerNum = p.value(QLatin1String("callerNum")).toString();
    msg.event.uid = p.value(QLatin1String("uid")).toString();
    msg.event.callerChannel = msg.event.callerNum.isEmpty() ? QString() : QStringLiteral("SIP/trunk-queue");
    msg.event.currentCalls
        = p.value(QLatin1String("currentCalls")).toInt(msg.event.eventType == QueueEvent::Enter);
    msg.event.longestHoldTime = QDateTime::currentDateTime();
    m_sim.sendToExten(p.value(QLatin1String("to")).toString(), msg);
    return true;
}

bool ScenarioRunner::loggedOff(const QJsonObject& p, QString*)
{
    const QString reason = p.value(QLatin1String("reason")).toString(QStringLiteral("AdminRequest"));
    SimResponse msg = SimNotice::loggedOff(reason);
    for (SimSession* s : m_sim.sessionsOf(p.value(QLatin1String("exten")).toString())) {
        s->send(msg);
        s->close();
    }
    return true;
}

bool ScenarioRunner::redirectConnection(const QJsonObject& p, QString*)
{
    RedirectConnectionRespMsg msg;
    msg.serverIp = p.value(QLatin1String("ip")).toString();
    msg.serverPort = quint16(p.value(QLatin1String("port")).toInt());
    m_sim.sendToExten(p.value(QLatin1String("exten")).toString(), msg);
    return true;
}

bool ScenarioRunner::probe(const QJsonObject& p, QString*)
{
    SimInfo msg = SimNotice::probe();
    m_sim.sendToExten(p.value(QLatin1String("exten")).toString(QStringLiteral("*")), msg);
    return true;
}

bool ScenarioRunner::dropClients(const QJsonObject&, QString*)
{
    m_sim.dropAll();
    return true;
}

bool ScenarioRunner::refuse(const QJsonObject& p, QString* error)
{
    const int ms = p.value(QLatin1String("ms")).toInt(-1);
    if (ms < 0) {
        *error = QStringLiteral("refuse: \"ms\" is a number of milliseconds");
        return false;
    }
    m_sim.refuseFor(ms);
    return true;
}

bool ScenarioRunner::restart(const QJsonObject& p, QString*)
{
    m_sim.restart(qMax(0, p.value(QLatin1String("ms")).toInt(DefaultDowntimeMs)));
    return true;
}

bool ScenarioRunner::send(const QJsonObject& p, QString*)
{
    SimResponse msg(p.value(QLatin1String("body")).toString());
    m_sim.sendToExten(p.value(QLatin1String("exten")).toString(), msg);
    return true;
}

bool ScenarioRunner::quit(const QJsonObject& p, QString*)
{
    const int code = p.value(QLatin1String("code")).toInt();
    QMetaObject::invokeMethod(
        qApp, [code] { QCoreApplication::exit(code); }, Qt::QueuedConnection);
    return true;
}
