// The local server as an application meets it through Telvix: the scenarios
// of fixtures/client/localserver, and an application that connects before the
// login, whose messages then carry the server's API.
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "scenario.h"
#include "telvix.h"

#include <QHostAddress>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QtTest>

class tst_LocalServer : public ScenarioTest
{
    Q_OBJECT
public:
    tst_LocalServer()
        : ScenarioTest(QStringLiteral("localserver"))
    {
    }

private Q_SLOTS:
    void loginSetsTheFrameApiAndShutdownDropsTheApplication()
    {
        LogbusCapture log;
        QTcpSocket app;
        QByteArray received;
        QObject::connect(&app, &QTcpSocket::readyRead, [&] { received += app.readAll(); });
        LoggedInClient session(TELVIX::AppMode(6), QStringLiteral("6.1"));
        session.setBeforeLogin([&](Telvix* telvix) {
            app.connectToHost(QHostAddress::LocalHost, quint16(telvix->initTcpServer()));
            QVERIFY(app.waitForConnected(5000));
            QVERIFY(log.waitFor(QStringLiteral("New client connected to local socket")));
        });
        QVERIFY(session.start());
        QTRY_VERIFY(received.contains("</SRNT>"));
        QVERIFY2(received.startsWith("<SRNT><API>6.1</API><Login><Exten>200</Exten>"), received.constData());
        // Later messages carry the server's API as well.
        session.onLibraryThread([&] { Q_EMIT session.client()->sigGuiKeepAlive(); });
        QTRY_VERIFY(received.contains("<SRNT><API>6.1</API><KeepAlive/></SRNT>"));
        QSignalSpy gone(&app, &QTcpSocket::disconnected);
        QVERIFY(session.client()->shutdown());
        QTRY_COMPARE(gone.count(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_LocalServer)
#include "tst_localserver.moc"
