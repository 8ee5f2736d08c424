// The local server as an application sees it, played from the scenarios of
// fixtures/locallink: real clients on 127.0.0.1, the exact bytes of every
// message, the logs of what goes wrong.
#include "fixturetable.h"
#include "clientsocketmanager.h"
#include "jsonconvert.h"
#include "logbuscapture.h"
#include "qtlogcapture.h"

#include <QTcpSocket>
#include <QtTest>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace {

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

struct Link
{
    QTcpSocket& app(const QJsonValue& name) { return apps[name.toString()]; }
    QJsonValue listening(int p) const { return p > 0 && p == port ? QJsonValue("listening") : QJsonValue(p); }

    LogbusCapture log;
    QtLogCapture qt;
    QTemporaryDir dir;
    ClientSocketManager manager {dir.path()};
    int port = 0;
    std::map<QString, QTcpSocket> apps;
    QHash<QString, QByteArray> received;
};

using Step = Operations<Link>::Op;

const Operations<Link>& operations();

const QString kConnected = QStringLiteral("New client connected to local socket");

QHash<QString, Step> acts()
{
    QHash<QString, Step> s;
    // Opens an application's connection and waits until the manager took it.
    s["attach"] = [](Link& l, const QJsonArray& a) {
        const int before = l.log.count(kConnected);
        l.app(a[0]).connectToHost(QHostAddress::LocalHost, quint16(l.port));
        return l.app(a[0]).waitForConnected(5000)
            && QTest::qWaitFor([&] { return l.log.count(kConnected) > before; }, 5000);
    };
    s["connect"] = [](Link& l, const QJsonArray& a) {
        l.app(a[0]).connectToHost(QHostAddress::LocalHost, quint16(l.port));
        return l.app(a[0]).waitForConnected(5000);
    };
    s["write"] = [](Link& l, const QJsonArray& a) { return l.app(a[0]).write(a[1].toString().toUtf8()) > 0; };
    s["disconnect"] = [](Link& l, const QJsonArray& a) { return (l.app(a[0]).disconnectFromHost(), true); };
    s["call"] = [](Link& l, const QJsonArray& a) { return invoke(l.manager, a); };
    s["queued"] = [](Link& l, const QJsonArray& a) {
        return QMetaObject::invokeMethod(&l.manager, qPrintable(a[0].toString()), Qt::QueuedConnection);
    };
    s["initServer"] = [](Link& l, const QJsonArray&) {
        l.port = l.manager.initServer();
        return l.listening(l.port);
    };
    s["closeServer"] = [](Link& l, const QJsonArray&) { return (l.manager.closeServer(), true); };
    s["clear"] = [](Link& l, const QJsonArray&) { return (l.log.clear(), l.qt.clear(), true); };
    // Plays the step it holds while no file descriptor is left.
    s["exhausted"] = [](Link& l, const QJsonArray& a) -> QJsonValue {
        FdExhaustion noDescriptors;
        const QString failure = operations().play(l, a[0].toArray());
        return failure.isEmpty() ? QJsonValue(true) : failure;
    };
    return s;
}

QHash<QString, Step> looks()
{
    QHash<QString, Step> s;
    s["received"] = [](Link& l, const QJsonArray& a) {
        return QString::fromUtf8(l.received[a[0].toString()] += l.app(a[0]).readAll());
    };
    s["available"] = [](Link& l, const QJsonArray& a) { return l.app(a[0]).bytesAvailable(); };
    s["state"] = [](Link& l, const QJsonArray& a) {
        return QMetaEnum::fromType<QAbstractSocket::SocketState>().valueToKey(l.app(a[0]).state());
    };
    s["log"] = [](Link& l, const QJsonArray& a) {
        return a[0].isNull() ? l.log.contains(a[1].toString())
                             : l.log.contains(a[0].toInt(), a[1].toString());
    };
    s["count"] = [](Link& l, const QJsonArray& a) { return l.log.count(a[0].toString()); };
    s["port"] = [](Link& l, const QJsonArray&) { return l.listening(l.manager.getServerPort()); };
    s["qtDebug"]
        = [](Link& l, const QJsonArray&) { return QJsonArray::fromStringList(l.qt.messages(QtDebugMsg)); };
    return s;
}

const Operations<Link>& operations()
{
    static const Operations<Link> all {acts(), looks()};
    return all;
}

} // namespace

class TestClientSocketManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void scenarios_data() { addScenarioRows(QStringLiteral("locallink")); }

    void scenarios()
    {
        QFETCH(QJsonArray, steps);
        Link link;
        operations().playAll(link, steps);
    }
};

QTEST_GUILESS_MAIN(TestClientSocketManager)
#include "tst_clientsocketmanager.moc"
