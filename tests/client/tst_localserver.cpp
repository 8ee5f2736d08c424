// The local server as an application meets it through Telvix: the port, the
// events of the library arriving as framed XML (one per wired signal, from
// fixtures/client/localserver), restart and shutdown.
#include "jsonconvert.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "telvix.h"

#include <QHostAddress>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

/// Raises `signature` of the library on its own thread with JSON arguments.
void raise(Telvix* telvix, const QByteArray& signature, const QJsonArray& json = {})
{
    const QMetaMethod method = Telvix::staticMetaObject.method(
        Telvix::staticMetaObject.indexOfSignal(QMetaObject::normalizedSignature(signature)));
    QVERIFY2(method.isValid(), signature.constData());
    QVariantList values;
    QGenericArgument args[10];
    for (int i = 0; i < json.size(); ++i) {
        QString error;
        values << JsonConvert::fromJson(json.at(i), method.parameterType(i), &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        args[i] = QGenericArgument(values.last().typeName(), values.last().constData());
    }
    QMetaObject::invokeMethod(
        telvix,
        [&] {
            method.invoke(telvix, Qt::DirectConnection, args[0], args[1], args[2], args[3], args[4], args[5],
                          args[6], args[7], args[8], args[9]);
        },
        Qt::BlockingQueuedConnection);
}

/// One application on the loopback port, collecting whole messages.
struct LocalApp
{
    QTcpSocket socket;
    QStringList messages;
    QByteArray buffer;

    LocalApp()
    {
        QObject::connect(&socket, &QTcpSocket::readyRead, [this] {
            buffer += socket.readAll();
            for (int at = buffer.indexOf("</SRNT>"); at >= 0; at = buffer.indexOf("</SRNT>")) {
                messages << QString::fromUtf8(buffer.left(at + 7));
                buffer.remove(0, at + 7);
            }
        });
    }

    /// Connects and waits until the library has taken the connection, so
    /// that nothing sent afterwards is lost.
    bool attach(const LogbusCapture& log, int port)
    {
        const int accepted = log.count("New client connected to local socket");
        socket.connectToHost(QHostAddress::LocalHost, quint16(port));
        return socket.waitForConnected(5000)
            && QTest::qWaitFor([&] { return log.count("New client connected to local socket") > accepted; });
    }
};

QString frame(const QString& body, const QString& api = QStringLiteral("4.1"))
{
    return QStringLiteral("<SRNT><API>%1</API>%2</SRNT>").arg(api, body);
}

} // namespace

class tst_LocalServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_telvix = startTelvix();
        QVERIFY(m_telvix);
        const int port = m_telvix->initTcpServer();
        QVERIFY(port > 0);
        QCOMPARE(m_telvix->getTcpServerPort(), port);
        QVERIFY(m_app.attach(m_log, port));
    }

    void cleanupTestCase() { QVERIFY(!m_telvix || m_telvix->shutdown()); }

    // Each row raises one signal of the library; the application must get
    // exactly the message of its own slot, with the arguments in their places.
    void everyWiredSignalReachesTheApplication_data()
    {
        QTest::addColumn<QJsonObject>("row");
        QFile file(TELVIX_TEST_FIXTURES "/client/localserver/signals.json");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonArray rows = QJsonDocument::fromJson(file.readAll()).array();
        for (const QJsonValue& row : rows)
            QTest::newRow(qPrintable(row["signal"].toString())) << row.toObject();
        QVERIFY(rows.size() > 30);
    }

    void everyWiredSignalReachesTheApplication()
    {
        QFETCH(QJsonObject, row);
        m_app.messages.clear();
        raise(m_telvix.get(), row["signal"].toString().toLatin1(), row["args"].toArray());
        // A keep-alive behind it tells that nothing else was written in between.
        raise(m_telvix.get(), "sigGuiKeepAlive()");
        QTRY_VERIFY(m_app.messages.size() >= 2);
        QCOMPARE(m_app.messages, QStringList({frame(row["frame"].toString()), frame("<KeepAlive/>")}));
    }

    void withoutServerPortIsZeroAndCloseSucceeds()
    {
        auto telvix = startTelvix();
        QVERIFY(telvix);
        QCOMPARE(telvix->getTcpServerPort(), 0);
        QVERIFY(m_log.contains(100, QStringLiteral("Invalid ClientSocketManager instance")));
        QVERIFY(telvix->closeTcpServer());
        QVERIFY(telvix->shutdown());
        // The library's thread is gone: the blocking form gives its failure value.
        QCOMPARE(telvix->initTcpServer(), -1);
    }

    void restartKeepsOneWiringAndChangesPort()
    {
        auto telvix = startTelvix();
        QVERIFY(telvix && telvix->initTcpServer() > 0);
        QVERIFY(telvix->closeTcpServer());
        QTRY_COMPARE(telvix->getTcpServerPort(), 0);
        const int second = telvix->restartTcpServer();
        QVERIFY(second > 0);
        QCOMPARE(telvix->getTcpServerPort(), second);
        LocalApp app;
        QVERIFY(app.attach(m_log, second));
        raise(telvix.get(), "sigC2cFinished(QString)", {"u9"});
        raise(telvix.get(), "sigGuiKeepAlive()");
        QTRY_VERIFY(app.messages.size() >= 2);
        QCOMPARE(app.messages,
                 QStringList({frame("<Event><C2cFinished><Uid>u9</Uid></C2cFinished></Event>"),
                              frame("<KeepAlive/>")}));
        QVERIFY(telvix->shutdown());
    }

    void secondInitLeavesTheFirstServerRunning()
    {
        auto telvix = startTelvix();
        QVERIFY(telvix);
        const int first = telvix->initTcpServer();
        const int second = telvix->initTcpServer();
        QVERIFY(first > 0 && second > 0 && first != second);
        QCOMPARE(telvix->getTcpServerPort(), second);
        LocalApp oldApp, newApp;
        QVERIFY(oldApp.attach(m_log, first) && newApp.attach(m_log, second));
        raise(telvix.get(), "sigGuiKeepAlive()");
        QTRY_VERIFY(oldApp.messages.size() >= 1 && newApp.messages.size() >= 1);
        // Shutdown frees both servers: each application sees its connection end.
        QSignalSpy oldGone(&oldApp.socket, &QTcpSocket::disconnected);
        QSignalSpy newGone(&newApp.socket, &QTcpSocket::disconnected);
        QVERIFY(telvix->shutdown());
        QTRY_COMPARE(oldGone.count(), 1);
        QTRY_COMPARE(newGone.count(), 1);
    }

    void loginSetsTheFrameApiAndShutdownDropsTheApplication()
    {
        LocalApp app;
        LoggedInClient session(TELVIX::AppMode(6), QStringLiteral("6.1"));
        session.setBeforeLogin([&](Telvix* telvix) { QVERIFY(app.attach(m_log, telvix->initTcpServer())); });
        QVERIFY(session.start());
        QTRY_VERIFY(app.messages.size() >= 1);
        QVERIFY2(
            app.messages.first().startsWith(QStringLiteral("<SRNT><API>6.1</API><Login><Exten>200</Exten>")),
            qPrintable(app.messages.first()));
        // Later messages carry the server's API as well.
        raise(session.client(), "sigGuiKeepAlive()");
        QTRY_VERIFY(app.messages.contains(frame("<KeepAlive/>", "6.1")));
        QSignalSpy gone(&app.socket, &QTcpSocket::disconnected);
        QVERIFY(session.client()->shutdown());
        QTRY_COMPARE(gone.count(), 1);
    }

private:
    LogbusCapture m_log;
    QTemporaryDir m_dir;
    std::unique_ptr<Telvix> m_telvix;
    LocalApp m_app;

    std::unique_ptr<Telvix> startTelvix() const
    {
        auto telvix = std::make_unique<Telvix>(QStringLiteral("Linux"), QStringLiteral("6.1"),
                                               QStringLiteral("local-test"), QStringLiteral("1.0"),
                                               QStringLiteral("dev-local"), m_dir.path());
        return telvix->init() ? std::move(telvix) : nullptr;
    }
};

QTEST_GUILESS_MAIN(tst_LocalServer)
#include "tst_localserver.moc"
