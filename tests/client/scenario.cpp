#include "scenario.h"

#include "calltesthook_p.h"
#include "jsonconvert.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "qtlogcapture.h"
#include "telvix_p.h"
#include "telvixtimers_p.h"

#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QMetaMethod>
#include <QMutex>
#include <QRegularExpression>
#include <QSettings>
#include <QTcpSocket>
#include <QtTest>

namespace {

// Every signal of one Telvix, with its arguments as JSON, in the order
// raised on whatever thread raised it. A signal is matched at most once.
class SignalLog : public QObject
{
public:
    void watch(Telvix* client)
    {
        const QMetaObject& meta = Telvix::staticMetaObject;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            if (meta.method(i).methodType() == QMetaMethod::Signal)
                QMetaObject::connect(client, i, this, QObject::staticMetaObject.methodCount() + i,
                                     Qt::DirectConnection);
        }
    }
    int qt_metacall(QMetaObject::Call call, int id, void** argv) override
    {
        id = QObject::qt_metacall(call, id, argv);
        if (id < 0 || call != QMetaObject::InvokeMetaMethod)
            return id;
        const QMetaMethod method = Telvix::staticMetaObject.method(id);
        QJsonArray args;
        for (int i = 0; i < method.parameterCount(); ++i) {
            const int type = method.parameterType(i) != QMetaType::UnknownType
                ? method.parameterType(i)
                : QMetaType::type(method.parameterTypes().at(i));
            args.append(JsonConvert::toJson(type, argv[i + 1]));
        }
        QMutexLocker lock(&mutex);
        raised.append({QString::fromLatin1(method.name()), args});
        matched.append(false);
        return -1;
    }
    // The earliest unmatched `name` ("prefix*" for any name so starting),
    // which becomes matched; -1 when none.
    int take(const QString& name, QJsonArray* args)
    {
        QMutexLocker lock(&mutex);
        for (int i = 0; i < raised.size(); ++i) {
            const QString& raisedName = raised.at(i).first;
            if (!matched.at(i)
                && (raisedName == name
                    || (name.endsWith(QLatin1Char('*')) && raisedName.startsWith(name.chopped(1))))) {
                matched[i] = true;
                *args = raised.at(i).second;
                return i;
            }
        }
        return -1;
    }
    void matchAll()
    {
        QMutexLocker lock(&mutex);
        matched.fill(true);
    }

    QMutex mutex;
    QList<QPair<QString, QJsonArray>> raised;
    QVector<bool> matched;
};

// An application on the library's local server, collecting whole messages.
struct LocalApp
{
    QTcpSocket socket;
    QStringList messages;
    QByteArray buffer;
};

// `expected` with "*" standing for any value.
bool matches(const QJsonValue& expected, const QJsonValue& actual)
{
    if (expected == QJsonValue(QStringLiteral("*")))
        return true;
    if (expected.isArray() && actual.isArray()) {
        const QJsonArray e = expected.toArray(), a = actual.toArray();
        int i = 0;
        while (i < e.size() && e.size() == a.size() && matches(e.at(i), a.at(i)))
            ++i;
        return i == e.size() && e.size() == a.size();
    }
    if (expected.isObject() && actual.isObject()) {
        const QJsonObject e = expected.toObject(), a = actual.toObject();
        auto it = e.begin();
        while (it != e.end() && a.contains(it.key()) && matches(it.value(), a.value(it.key())))
            ++it;
        return it == e.end() && e.size() == a.size();
    }
    return expected == actual;
}

QJsonValue parse(const QString& text)
{
    const QJsonDocument doc = QJsonDocument::fromJson("[" + text.toUtf8() + "]");
    return doc.isArray() && doc.array().size() == 1 ? doc.array().at(0) : QJsonValue(QJsonValue::Undefined);
}

QString show(const QJsonValue& value)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray {value}).toJson(QJsonDocument::Compact))
        .mid(1)
        .chopped(1);
}

QString requestText(const QString& frame)
{
    const int from = frame.indexOf(QLatin1String("<Request>")),
              to = frame.lastIndexOf(QLatin1String("</Request>"));
    return from < 0 || to < from ? frame : frame.mid(from + 9, to - from - 9);
}

class Player
{
public:
    explicit Player(const ScenarioCase& c)
        : m_case(c)
    {
    }

    void run()
    {
        QString api = QStringLiteral("6.1"), exten = QStringLiteral("200");
        QStringList features, timers;
        bool offline = false, watchLogin = false;
        for (const QString& line : m_case.header) {
            const QString word = line.section(QLatin1Char(' '), 0, 0),
                          rest = line.section(QLatin1Char(' '), 1);
            api = word == QLatin1String("api") ? rest : api;
            exten = word == QLatin1String("exten") ? rest : exten;
            features = word == QLatin1String("features") ? rest.split(QLatin1Char(' ')) : features;
            timers = word == QLatin1String("timers") ? rest.split(QLatin1Char(' ')) : timers;
            offline = offline || word == QLatin1String("offline");
            watchLogin = watchLogin || word == QLatin1String("watch-login");
        }
        bool known = false;
        const int mode = QMetaEnum::fromType<TELVIX::AppMode>().keyToValue(qPrintable(m_case.mode), &known);
        QVERIFY2(known, qPrintable(m_case.mode));
        for (int* const field : {&m_timers.keepAliveMs, &m_timers.keepAliveAckMs, &m_timers.guiKeepAliveMs,
                                 &m_timers.periodicDataMs}) {
            const int ms = timers.isEmpty() ? 0 : timers.takeFirst().toInt();
            *field = ms ? ms : *field;
        }
        m_online = QStringList {QString::number(mode), api, exten, features.join(QLatin1Char(' '))};
        if (offline)
            startOffline();
        else
            QVERIFY(startOnline());
        if (!watchLogin)
            m_signals.matchAll();
        for (int i = 0; i < m_case.steps.size(); ++i) {
            m_line = m_case.stepLines.at(i);
            m_where = QStringLiteral("%1:%2: %3").arg(m_case.file).arg(m_line).arg(m_case.steps.at(i));
            if (!step(m_case.steps.at(i)))
                return;
        }
    }

private:
    Telvix* client() const { return m_app ? m_app->client() : m_offline.data(); }

    bool startOnline()
    {
        m_app.reset(
            new LoggedInClient(TELVIX::AppMode(m_online.at(0).toInt()), m_online.at(1), m_online.at(2)));
        m_app->loginAnswer.features = m_online.at(3).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        m_app->setDataDir(m_dir.path());
        m_app->setBeforeLogin([this](Telvix* client) {
            setTelvixTimerIntervals(client, m_timers);
            m_signals.watch(client);
        });
        m_server = &m_app->server();
        m_conn = -1;
        return m_app->start() && (m_conn = m_app->connection()) >= 0;
    }

    void startOffline()
    {
        m_offline.reset(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("scenario"),
                                   QStringLiteral("1.0"), QStringLiteral("dev-scenario"), m_dir.path()));
        m_signals.watch(m_offline.data());
        m_offline->init();
    }

    // Everything the library's thread was asked before is done, and what it
    // sent has reached the server.
    bool roundTrip()
    {
        // After shutdown() a blocking hop would wait for ever.
        if (client()->isRunning())
            QMetaObject::invokeMethod(
                client(), [] {}, Qt::BlockingQueuedConnection);
        // A closed connection has nothing more to deliver.
        if (!m_server || !m_server->isConnected(m_conn) || !client()->isRunning() || !client()->isConnected())
            return true;
        client()->sendKeepAlive();
        return !m_server->waitForFrame(QStringLiteral("KeepAlive")).isEmpty();
    }

    bool fail(const QString& why)
    {
        QTest::qFail(qPrintable(m_where + QLatin1String("\n   ") + why), qPrintable(m_case.file), m_line);
        return false;
    }

    bool check(bool ok, const QString& why = QStringLiteral("failed")) { return ok || fail(why); }

    bool compare(const QString& what, const QJsonValue& expected, const QJsonValue& actual)
    {
        // TELVIX_SCENARIO_SHOW prints what a step without its JSON met, and goes on.
        if (expected.isUndefined() && qEnvironmentVariableIsSet("TELVIX_SCENARIO_SHOW")) {
            qWarning("SHOW %d %s", m_line, qPrintable(show(actual)));
            return true;
        }
        if (expected.isUndefined())
            return fail(QStringLiteral("no valid JSON; %1 was %2").arg(what, show(actual)));
        return check(
            matches(expected, actual),
            QStringLiteral("%1\n   expected %2\n   actual   %3").arg(what, show(expected), show(actual)));
    }

    bool step(QString line)
    {
        if (m_server)
            line.replace(QLatin1String("$PORT"), QString::number(m_server->port()));
        const QDate today = QDate::currentDate();
        line.replace(QLatin1String("$NOW"),
                     QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")))
            .replace(QLatin1String("$TODAY"), today.toString(Qt::ISODate))
            .replace(QLatin1String("$MONTHAGO"), today.addMonths(-1).toString(Qt::ISODate));
        const QString verb = line.section(QLatin1Char(' '), 0, 0), rest = line.section(QLatin1Char(' '), 1);
        const QString first = rest.section(QLatin1Char(' '), 0, 0), tail = rest.section(QLatin1Char(' '), 1);
        static const QStringList needServer
            = {"server", "server-noack", "send",     "frame", "frame~",        "frames",     "bytes",
               "forget", "disconnect",   "redirect", "noack", "keepalive-ack", "connections"};
        if (!m_server && needServer.contains(verb))
            return fail(QStringLiteral("no server in an offline scenario"));
        if (verb == QLatin1String("server"))
            return check(m_server->send(m_conn, document(rest)) && waitForAck(m_lastUuid),
                         QStringLiteral("no MsgAck"));
        if (verb == QLatin1String("server-noack")) {
            const QString xml = document(rest);
            m_server->send(m_conn, xml + FakeCtiServer::probeDocument(serverApi()));
            return check(!m_server->waitForFrame(QStringLiteral("KeepAlive")).isEmpty(),
                         QStringLiteral("no probe answer"))
                && check(m_server->framesContaining(QStringLiteral("MsgAck"), m_conn)
                             .filter(m_lastUuid)
                             .isEmpty(),
                         QStringLiteral("acknowledged"));
        }
        if (verb == QLatin1String("send"))
            return check(m_server->send(m_conn, document(rest)));
        if (verb == QLatin1String("noack"))
            return check(roundTrip()
                             && m_server->framesContaining(QStringLiteral("MsgAck"), m_conn)
                                    .filter(m_lastUuid)
                                    .isEmpty(),
                         QStringLiteral("acknowledged"));
        if (verb == QLatin1String("connections"))
            return check(QTest::qWaitFor([&] {
                             return m_server->connectionCount() == first.toInt()
                                 && m_server->openConnectionCount() == tail.toInt();
                         }),
                         QStringLiteral("%1 connections, %2 open")
                             .arg(m_server->connectionCount())
                             .arg(m_server->openConnectionCount()));
        if (verb == QLatin1String("keepalive-ack")) {
            m_server->setAutoKeepAliveAck(rest == QLatin1String("on"));
            return true;
        }
        if (verb == QLatin1String("call") || verb == QLatin1String("call@lib"))
            return call(first, tail, verb == QLatin1String("call"));
        if (verb == QLatin1String("frame") || verb == QLatin1String("frame~")) {
            const QString frame = m_server->waitForFrame(first);
            if (frame.isEmpty())
                return fail(QStringLiteral("no frame"));
            if (tail == QLatin1String("?") && qEnvironmentVariableIsSet("TELVIX_SCENARIO_SHOW")) {
                qWarning("SHOW %d %s", m_line, qPrintable(requestText(frame)));
                return true;
            }
            if (verb == QLatin1String("frame~"))
                return check(QRegularExpression(tail).match(frame).hasMatch(), frame);
            return check(requestText(frame) == tail, QLatin1String("actual ") + requestText(frame));
        }
        if (verb == QLatin1String("frames")) {
            if (!roundTrip())
                return fail(QStringLiteral("no round trip"));
            const QStringList frames = m_server->receivedFrames(m_conn);
            int count = 0;
            for (const QString& f : frames)
                count += first == QLatin1String("*") ? !FakeCtiServer::hasElement(f, QStringLiteral("MsgAck"))
                        && !FakeCtiServer::hasElement(f, QStringLiteral("KeepAlive"))
                                                     : FakeCtiServer::hasElement(f, first);
            return check(count == tail.toInt(), frames.join(QLatin1Char('\n')));
        }
        if (verb == QLatin1String("bytes"))
            return check(
                QTest::qWaitFor([&] { return m_server->receivedBytes(m_conn).contains(rest.toUtf8()); }),
                QString::fromUtf8(m_server->receivedBytes(m_conn)));
        if (verb == QLatin1String("signal") || verb == QLatin1String("signal<ack")) {
            QJsonArray args;
            int at = -1;
            (void)QTest::qWaitFor([&] { return (at = m_signals.take(first, &args)) >= 0; }, 5000);
            return compare(QStringLiteral("arguments of ") + first, parse(tail), args)
                && check(verb == QLatin1String("signal") || at < m_raisedAtAck,
                         QStringLiteral("raised after the acknowledgement"));
        }
        if (verb == QLatin1String("nosignal")) {
            QJsonArray args;
            return check(roundTrip() && m_signals.take(rest, &args) < 0, show(args));
        }
        if (verb == QLatin1String("log"))
            return check(m_log.waitFor(tail) && m_log.contains(first.toInt(), tail),
                         m_log.texts().join(QLatin1Char('\n')));
        if (verb == QLatin1String("logs"))
            return check(QTest::qWaitFor([&] { return m_log.count(tail) >= first.toInt(); }),
                         m_log.texts().join(QLatin1Char('\n')));
        if (verb == QLatin1String("logcount"))
            return check(roundTrip() && m_log.count(tail) == first.toInt(),
                         m_log.texts().join(QLatin1Char('\n')));
        if (verb == QLatin1String("nolog"))
            return check(roundTrip() && !m_log.contains(rest));
        if (verb == QLatin1String("qtlog"))
            return check(QTest::qWaitFor([&] { return m_qtLog.contains(rest); }),
                         m_qtLog.messages().join(QLatin1Char('\n')));
        if (verb == QLatin1String("noqtlog"))
            return check(roundTrip() && !m_qtLog.contains(rest));
        if (verb == QLatin1String("legs"))
            return compare(
                verb, parse(tail),
                JsonConvert::toJson(QVariant::fromValue(CallTableTestHook::legs(client(), first))));
        if (verb == QLatin1String("calls"))
            return compare(
                verb, parse(rest),
                JsonConvert::toJson(QVariant::fromValue(CallTableTestHook::accountsByUid(client()))));
        if (verb == QLatin1String("ack-timer")) {
            bool running = false;
            const TelvixPrivate* d = TelvixPrivate::get(client());
            QMetaObject::invokeMethod(
                client(), [&] { running = d->keepAliveAckTimer->isActive(); }, Qt::BlockingQueuedConnection);
            return check(running == (rest == QLatin1String("running")), QStringLiteral("it is not"));
        }
        if (verb == QLatin1String("peers"))
            return compare(verb, parse(rest), peerMaps());
        if (verb == QLatin1String("legcount"))
            return compare(verb, parse(rest), CallTableTestHook::legCount(client()));
        if (verb == QLatin1String("forget"))
            return roundTrip() && (m_server->clearFrames(), true);
        if (verb == QLatin1String("disconnect")) {
            m_server->disconnectClient(m_conn);
            return true;
        }
        if (verb == QLatin1String("redirect"))
            return redirect();
        if (verb.startsWith(QLatin1String("local")))
            return local(verb, rest);
        if (verb == QLatin1String("restart")) {
            client()->shutdown();
            if (m_app)
                return check(startOnline(), QStringLiteral("no login after the restart"));
            m_offline.reset();
            startOffline();
            return true;
        }
        if (verb == QLatin1String("file")) {
            QFile file(m_dir.filePath(first));
            const QByteArray data = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
            return check(tail == QLatin1String("absent") ? !file.exists()
                                                         : !data.isEmpty()
                                 && (tail != QLatin1String("scrambled") || !data.contains("SQLite format")),
                         QStringLiteral("%1 bytes").arg(data.size()));
        }
        if (verb.startsWith(QLatin1String("ini"))) {
            QSettings ini(m_dir.filePath(QStringLiteral("srnt.ini")), QSettings::IniFormat);
            if (verb == QLatin1String("ini-set")) {
                ini.setValue(first, tail);
                return true;
            }
            if (verb == QLatin1String("ini-groups")) {
                ini.beginGroup(first);
                return compare(first, parse(tail), QJsonArray::fromStringList(ini.childGroups()));
            }
            return compare(first, parse(tail), QJsonValue::fromVariant(ini.value(first)));
        }
        return fail(QStringLiteral("unknown step"));
    }

    QString serverApi() const { return m_app ? m_app->api() : QString(); }

    QString document(const QString& body)
    {
        const QString xml = FakeCtiServer::document(body, serverApi());
        m_lastUuid = FakeCtiServer::uuidOf(xml);
        return xml;
    }

    bool waitForAck(const QString& uuid)
    {
        for (QString ack; !(ack = m_server->waitForFrame(QStringLiteral("MsgAck"))).isEmpty();) {
            if (ack.contains(uuid)) {
                QMutexLocker lock(&m_signals.mutex);
                m_raisedAtAck = m_signals.raised.size();
                return true;
            }
        }
        return false;
    }

    // The first overload of `name` that the arguments convert to; null
    // stands for a default-constructed value (an invalid date, say).
    bool call(const QString& name, QString text, bool callerThread)
    {
        const int arrow = text.lastIndexOf(QLatin1String("=> "));
        const QString expected = arrow < 0 ? QString() : text.mid(arrow + 3);
        const QJsonValue json = text.left(arrow).trimmed().isEmpty() ? QJsonArray() : parse(text.left(arrow));
        const QJsonArray args = json.toArray();
        const auto typeOf = [](int type, const QByteArray& typeName) {
            return type != QMetaType::UnknownType ? type : QMetaType::type(typeName);
        };
        const QMetaObject& meta = Telvix::staticMetaObject;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            const QMetaMethod method = meta.method(i);
            if (method.name() != name.toLatin1() || method.parameterCount() != args.size())
                continue;
            QVariantList values;
            QGenericArgument argv[10];
            for (int a = 0; a < args.size(); ++a) {
                const int type = typeOf(method.parameterType(a), method.parameterTypes().at(a));
                values.append(args.at(a).isNull() ? QVariant(type, nullptr)
                                                  : JsonConvert::fromJson(args.at(a), type));
                argv[a]
                    = QGenericArgument(method.parameterTypes().at(a).constData(), values.last().constData());
            }
            if (values.contains(QVariant()))
                continue;
            const int returnType = typeOf(method.returnType(), method.typeName());
            QVariant result = returnType == QMetaType::Void ? QVariant() : QVariant(returnType, nullptr);
            const QGenericReturnArgument ret = result.isValid()
                ? QGenericReturnArgument(method.typeName(), result.data())
                : QGenericReturnArgument();
            if (!method.invoke(client(), callerThread ? Qt::DirectConnection : Qt::BlockingQueuedConnection,
                               ret, argv[0], argv[1], argv[2], argv[3], argv[4], argv[5], argv[6], argv[7],
                               argv[8], argv[9]))
                return fail(QStringLiteral("the call failed"));
            return expected.isEmpty()
                || compare(QStringLiteral("result"), parse(expected), JsonConvert::toJson(result));
        }
        return fail(QStringLiteral("no method of that name takes these arguments"));
    }

    // The dispatcher's maps between accounts, extensions and chat ids.
    QJsonObject peerMaps()
    {
        QJsonObject maps;
        const TelvixPrivate* d = TelvixPrivate::get(client());
        const auto add = [&maps](const char* name, const auto& map) {
            QJsonObject json;
            for (auto it = map.begin(); it != map.end(); ++it)
                json.insert(it.key(), JsonConvert::toJson(QVariant::fromValue(it.value())));
            maps.insert(QLatin1String(name), json);
        };
        QMetaObject::invokeMethod(
            client(),
            [&] {
                add("accountToExten", d->accountToExten);
                add("extenToAccounts", d->extenToAccounts);
                add("extenStatus", d->extenStatus);
                add("chatIdToExten", d->chatIdToExten);
                add("extenToChatId", d->extenToChatId);
            },
            Qt::BlockingQueuedConnection);
        return maps;
    }

    bool local(const QString& verb, const QString& rest)
    {
        if (verb == QLatin1String("local-connect")) {
            m_local.emplace_back(new LocalApp);
            LocalApp* app = m_local.back().get();
            QObject::connect(&app->socket, &QTcpSocket::readyRead, [app] {
                app->buffer += app->socket.readAll();
                for (int at; (at = app->buffer.indexOf("</SRNT>")) >= 0; app->buffer.remove(0, at + 7))
                    app->messages << QString::fromUtf8(app->buffer.left(at + 7));
            });
            // Taken by the library once it logs so; what is sent earlier may be lost.
            const QString accepted = QStringLiteral("New client connected to local socket");
            const int before = m_log.count(accepted);
            app->socket.connectToHost(QHostAddress::LocalHost, quint16(client()->getTcpServerPort()));
            return check(app->socket.waitForConnected(5000)
                         && QTest::qWaitFor([&] { return m_log.count(accepted) > before; }));
        }
        for (const auto& app : m_local) {
            if (verb == QLatin1String("local-closed")) {
                if (!QTest::qWaitFor(
                        [&] { return app->socket.state() == QAbstractSocket::UnconnectedState; }))
                    return fail(QStringLiteral("still connected"));
            } else if (app->socket.state() == QAbstractSocket::ConnectedState) {
                if (!QTest::qWaitFor([&] { return !app->messages.isEmpty(); }))
                    return fail(QStringLiteral("no message"));
                const QString message = app->messages.takeFirst();
                if (message != rest)
                    return fail(QLatin1String("actual ") + message);
            }
        }
        return true;
    }

    bool redirect()
    {
        m_other.reset(new FakeCtiServer);
        m_other->setApiVersion(serverApi());
        m_other->setAutoLogin(true);
        m_other->setAutoKeepAliveAck(true);
        if (!m_other->listen())
            return fail(QStringLiteral("second server"));
        QJsonArray args;
        // No address: the same host.
        const QString xml = FakeCtiServer::redirectDocument(QString(), m_other->port(), serverApi());
        m_server->send(m_conn, xml);
        if (!QTest::qWaitFor([&] { return m_signals.take(QStringLiteral("loggedToServer"), &args) >= 0; },
                             10000))
            return fail(QStringLiteral("no login on the second server"));
        m_server = m_other.data();
        m_conn = m_other->lastConnection();
        // The redirection is acknowledged on the new connection.
        if (!waitForAck(FakeCtiServer::uuidOf(xml)))
            return fail(QStringLiteral("the redirection is not acknowledged"));
        m_server->clearFrames();
        return true;
    }

    const ScenarioCase& m_case;
    QString m_where;
    int m_line = 0;
    int m_raisedAtAck = 0; // signals raised when the last awaited MsgAck came
    QString m_lastUuid;
    SignalLog m_signals;
    LogbusCapture m_log;
    QtLogCapture m_qtLog;
    QTemporaryDir m_dir;
    TelvixTimerIntervals m_timers;
    QStringList m_online; // mode, api, exten and features of the login
    QScopedPointer<FakeCtiServer> m_other;
    std::vector<std::unique_ptr<LocalApp>> m_local;
    QScopedPointer<LoggedInClient> m_app;
    QScopedPointer<Telvix> m_offline;
    FakeCtiServer* m_server = nullptr;
    int m_conn = -1;
};

// Every case of every *.scenario file under `folder`, in path order.
QList<ScenarioCase> load(const QString& folder)
{
    QStringList paths;
    QDirIterator it(folder, {QStringLiteral("*.scenario")}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        paths.append(it.next());
    paths.sort();
    QList<ScenarioCase> cases;
    for (const QString& path : qAsConst(paths)) {
        QFile file(path);
        file.open(QIODevice::ReadOnly | QIODevice::Text);
        const QString name = QDir(folder).relativeFilePath(path);
        QMap<QString, QString> lets;
        QList<ScenarioCase> ofFile;
        QStringList modes;
        int number = 0;
        for (const QString& raw : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
            ++number;
            QString line = raw.trimmed();
            // ${NAME} or ${NAME a|b|c}: $1, $2... of the value take the
            // arguments. Innermost first; no regular expression, whose JIT
            // the leak checker takes for invalid reads.
            for (int from = 0, close; (close = line.indexOf(QLatin1Char('}'), from)) >= 0;) {
                const int open = line.lastIndexOf(QLatin1String("${"), close);
                from = open < 0 ? close + 1 : open;
                if (open < 0)
                    continue;
                const QString use = line.mid(open + 2, close - open - 2);
                QString value = lets.value(use.section(QLatin1Char(' '), 0, 0));
                const QStringList args = use.section(QLatin1Char(' '), 1).split(QLatin1Char('|'));
                for (int i = 9; i > 0; --i)
                    value.replace(QLatin1Char('$') + QString::number(i), args.value(i - 1));
                line.replace(open, close - open + 1, value);
            }
            const QString word = line.section(QLatin1Char(' '), 0, 0),
                          rest = line.section(QLatin1Char(' '), 1);
            if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
                continue;
            if (word == QLatin1String("let")) {
                lets.insert(rest.section(QLatin1Char(' '), 0, 0), rest.section(QLatin1Char(' '), 1));
            } else if (word == QLatin1String("scenario")) {
                ofFile.append(ScenarioCase {name + QLatin1Char(':') + rest, path, QString(), {}, {}, {}});
            } else if (ofFile.isEmpty()) {
                qWarning("%s:%d: a step outside any scenario", qPrintable(path), number);
            } else if (ofFile.last().steps.isEmpty()
                       && QStringList(
                              {"mode", "api", "exten", "features", "timers", "watch-login", "offline"})
                              .contains(word)) {
                ofFile.last().header.append(line);
            } else {
                ofFile.last().steps.append(line);
                ofFile.last().stepLines.append(number);
            }
        }
        for (const ScenarioCase& c : qAsConst(ofFile)) {
            modes = QStringList {QStringLiteral("AppModeSrntPro")};
            for (const QString& line : c.header) {
                if (line.startsWith(QLatin1String("mode ")))
                    modes = line.mid(5).split(QLatin1Char(' '), Qt::SkipEmptyParts);
            }
            for (const QString& mode : qAsConst(modes)) {
                ScenarioCase row = c;
                row.mode = mode;
                if (modes.size() > 1)
                    row.tag += QStringLiteral(" [%1]").arg(mode);
                cases.append(row);
            }
        }
    }
    return cases;
}

} // namespace

void ScenarioTest::play_data()
{
    QTest::addColumn<int>("index");
    m_cases = load(QStringLiteral(TELVIX_TEST_FIXTURES "/client/") + m_folder);
    for (int i = 0; i < m_cases.size(); ++i) {
        if (std::none_of(m_skip.begin(), m_skip.end(),
                         [&](const QString& s) { return m_cases.at(i).tag.startsWith(s); }))
            QTest::newRow(qPrintable(m_cases.at(i).tag)) << i;
    }
    QVERIFY(!m_cases.isEmpty());
}

void ScenarioTest::play()
{
    QFETCH(int, index);
    Player(m_cases.at(index)).run();
}
