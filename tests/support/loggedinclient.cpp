#include "loggedinclient.h"

#include "telvix.h"

#include <QSignalSpy>
#include <QTest>

LoggedInClient::~LoggedInClient()
{
    if (m_client && m_client->isRunning())
        m_client->shutdown();
}

bool LoggedInClient::start()
{
    m_server.setApiVersion(m_api);
    m_server.setLoginAnswer(loginAnswer);
    m_server.setAutoLogin(true);
    m_server.setAutoKeepAliveAck(true);
    if (!m_server.listen())
        return false;

    m_client.reset(new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("calls-test"),
                              QStringLiteral("1.0"), QStringLiteral("dev-calls"),
                              m_dataDir.isEmpty() ? m_dir.path() : m_dataDir));
    if (!m_client->init())
        return false;
    if (m_beforeLogin)
        m_beforeLogin(m_client.data());
    QSignalSpy logged(m_client.data(), &Telvix::loggedToServer);
    m_client->connectToServer(QStringLiteral("alice"), QStringLiteral("secret"), QStringLiteral("default"),
                              m_mode, FakeCtiServer::host(), m_server.port());
    // The spy counts from another thread: poll it rather than wait() for a
    // signal that may already have arrived.
    if (!QTest::qWaitFor([&logged] { return logged.count() > 0; }, 10000))
        return false;
    m_conn = m_server.lastConnection();
    // The requests of the login are not what a test looks at.
    m_server.clearFrames();
    return m_conn >= 0;
}

QString LoggedInClient::sendEvent(const QString& body)
{
    const QString xml = FakeCtiServer::document(body, m_api);
    m_server.send(m_conn, xml);
    return FakeCtiServer::uuidOf(xml);
}

bool LoggedInClient::waitForAck(const QString& uuid, int timeoutMs)
{
    for (QString ack; !(ack = m_server.waitForFrame(QStringLiteral("MsgAck"), timeoutMs)).isEmpty();) {
        if (ack.contains(uuid))
            return true;
    }
    return false;
}
