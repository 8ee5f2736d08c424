// The local server as an application sees it: real clients on 127.0.0.1,
// the exact bytes of every message, the logs of what goes wrong.
#include "clientsocketmanager.h"
#include "jsonconvert.h"
#include "logbuscapture.h"
#include "qtlogcapture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <vector>

namespace {

const QString kConnected = QStringLiteral("New client connected to local socket");

const QByteArray kKeepAlive = "<SRNT><API>4.1</API><KeepAlive/></SRNT>";

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

// Calls the send... slot named first in `call` with the rest of `call`
// read as its parameters' types.
bool invoke(ClientSocketManager& manager, QJsonArray call)
{
    const QByteArray name = call.takeAt(0).toString().toLatin1();
    if (name == "sendMessage") {
        manager.sendMessage(call.at(0).toString());
        return true;
    }
    const QMetaObject* mo = manager.metaObject();
    for (int i = mo->methodOffset(); i < mo->methodCount(); ++i) {
        const QMetaMethod method = mo->method(i);
        if (method.name() != name || method.parameterCount() != call.size())
            continue;
        QVariant values[4];
        QGenericArgument args[4];
        for (int p = 0; p < call.size(); ++p) {
            values[p] = JsonConvert::fromJson(call.at(p), method.parameterType(p));
            args[p] = QGenericArgument(values[p].typeName(), values[p].constData());
        }
        return method.invoke(&manager, Qt::DirectConnection, args[0], args[1], args[2], args[3]);
    }
    return false;
}

} // namespace

class TestClientSocketManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Each case of fixtures/locallink/messages.json: the exact bytes an
    // application receives for some calls, ended by a keep-alive that shows
    // nothing else came; what the application sends, or sends without a
    // client, is only logged.
    void messages_data()
    {
        QTest::addColumn<QJsonObject>("c");
        QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/locallink/messages.json"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonArray cases = QJsonDocument::fromJson(file.readAll()).array();
        QVERIFY(!cases.isEmpty());
        for (const QJsonValue& c : cases)
            QTest::newRow(qPrintable(c[QLatin1String("name")].toString())) << c.toObject();
    }

    void messages()
    {
        QFETCH(QJsonObject, c);
        LogbusCapture log;
        QTemporaryDir dir;
        ClientSocketManager manager(dir.path());
        const int port = manager.initServer();
        const bool client = c.value(QLatin1String("client")).toBool(true);
        QTcpSocket app;
        if (client)
            QVERIFY(attach(app, port, log));
        app.write(c.value(QLatin1String("write")).toString().toUtf8());
        const QJsonArray calls = c.value(QLatin1String("calls")).toArray();
        for (const QJsonValue& call : calls)
            QVERIFY2(invoke(manager, call.toArray()), qPrintable(call[0].toString()));
        const QJsonArray logged = c.value(QLatin1String("log")).toArray();
        if (!logged.isEmpty()) {
            QVERIFY(log.waitFor(logged.at(1).toString()));
            QVERIFY(log.contains(logged.at(0).toInt(), logged.at(1).toString()));
        }
        QCOMPARE(log.count(QStringLiteral("Error sending message")), client ? 0 : calls.size());
        if (!client)
            return;
        manager.sendKeepAlive();
        QByteArray received;
        QTRY_COMPARE(drain(app, received), c.value(QLatin1String("expected")).toString().toUtf8());
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
