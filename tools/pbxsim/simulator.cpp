#include "simulator.h"

#include "simmessages.h"
#include "simsession.h"
#include "tlslistener.h"

#include <QDateTime>
#include <QSslSocket>

#include <cstdio>

PbxSimulator::PbxSimulator(const SimSettings& settings, const SimDirectory& directory, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_directory(directory)
    , m_calls(*this)
    , m_downloads(*this, settings.rebranding, settings.tokenValiditySecs)
    , m_answers(*this, m_calls, m_downloads)
    , m_listener(new TlsListener(this))
    , m_refusal(new QTimer(this))
{
    m_calls.setTimings(settings.timings);
    m_calls.setDeskPhones(settings.deskPhones);
    connect(m_listener, &TlsListener::connectionAccepted, this, &PbxSimulator::onConnection);
    m_refusal->setSingleShot(true);
    connect(m_refusal, &QTimer::timeout, this, &PbxSimulator::listenAgain);
}

PbxSimulator::~PbxSimulator() = default;

bool PbxSimulator::listen(QString* error)
{
    if (!m_listener->setCertificate(m_settings.certificate, m_settings.key, error))
        return false;
    if (!m_listener->listen(m_settings.address, m_settings.port)) {
        *error = QStringLiteral("cannot listen on %1:%2: %3")
                     .arg(m_settings.address.toString())
                     .arg(m_settings.port)
                     .arg(m_listener->errorString());
        return false;
    }
    return true;
}

quint16 PbxSimulator::port() const
{
    return m_listener->serverPort();
}

QList<SimSession*> PbxSimulator::sessionsOf(const QString& exten) const
{
    QList<SimSession*> result;
    for (SimSession* s : m_sessions) {
        if (s->isLoggedIn() && (exten == QLatin1String("*") || s->exten() == exten))
            result.append(s);
    }
    return result;
}

void PbxSimulator::dropAll()
{
    const QList<SimSession*> sessions = m_sessions;
    log(QStringLiteral("dropping %1 connections").arg(sessions.size()));
    for (SimSession* s : sessions)
        s->drop();
}

void PbxSimulator::refuseFor(int ms)
{
    if (m_refusal->isActive()) {
        m_refusal->start(qMax(ms, m_refusal->remainingTime()));
        return;
    }
    // The port is kept: clients come back to the address they know.
    m_settings.port = port();
    m_listener->close();
    log(QStringLiteral("refusing connections for %1 ms").arg(ms));
    m_refusal->start(ms);
}

void PbxSimulator::restart(int downMs)
{
    log(QStringLiteral("restarting"));
    refuseFor(downMs);
    dropAll();
}

void PbxSimulator::restartPeriodically(int everyMs, int downMs)
{
    delete m_restarts;
    m_restarts = new QTimer(this);
    connect(m_restarts, &QTimer::timeout, this, [this, downMs] { restart(downMs); });
    m_restarts->start(everyMs);
}

void PbxSimulator::listenAgain()
{
    QString error;
    if (listen(&error))
        log(QStringLiteral("accepting connections again on %1:%2")
                .arg(m_settings.address.toString())
                .arg(port()));
    else
        log(QStringLiteral("cannot accept connections again: %1").arg(error));
}

void PbxSimulator::onConnection(QSslSocket* socket)
{
    auto* session = new SimSession(socket, *this, this);
    m_sessions.append(session);
    connect(session, &SimSession::closed, this, &PbxSimulator::onSessionClosed);
}

void PbxSimulator::onSessionClosed(SimSession* session)
{
    m_sessions.removeOne(session);
    if (session->isLoggedIn()) {
        m_directory.setLoggedIn(session->exten(), false);
        extenStatusChanged(session->exten());
    }
    session->deleteLater();
}

bool PbxSimulator::answer(SimSession& session, const QString& element, const QString& xml)
{
    return m_answers.answer(session, element, xml);
}

bool PbxSimulator::serveDownload(SimSession& session, const QString& element, const QString& xml)
{
    return m_downloads.serve(session, element, xml);
}

void PbxSimulator::requestSeen(const QString& element, const QString& who)
{
    Q_EMIT requestReceived(element, who);
}

void PbxSimulator::sessionLoggedIn(SimSession& session)
{
    m_directory.setLoggedIn(session.exten(), true);
    extenStatusChanged(session.exten());
}

void PbxSimulator::sendToExten(const QString& exten, SXmlMessage& message)
{
    for (SimSession* s : sessionsOf(exten))
        s->send(message);
}

void PbxSimulator::sendToAll(SXmlMessage& message)
{
    sendToExten(QStringLiteral("*"), message);
}

void PbxSimulator::extenStatusChanged(const QString& exten)
{
    SimResponse status = SimNotice::extenStatus(m_directory.status(exten));
    sendToAll(status);
}

void PbxSimulator::log(const QString& line)
{
    const QString stamp = QTime::currentTime().toString(QStringLiteral("HH:mm:ss.zzz"));
    std::printf("%s %s\n", qPrintable(stamp), line.toLocal8Bit().constData());
    std::fflush(stdout);
}
