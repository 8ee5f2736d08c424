#include "simsession.h"

#include "loginmessages.h"
#include "messagereader.h"
#include "simdirectory.h"
#include "simmessages.h"
#include "simplexmlparser.h"
#include "simulator.h"

#include <QSslSocket>
#include <QTextCodec>
#include <QTextDecoder>
#include <QTimer>
#include <QUuid>

using namespace SARNET_XML;

namespace {
// The name space of the users' stable uuids.
const QUuid UserNamespace(QStringLiteral("{6b1f3c2e-5d4a-4e8b-9c7d-1a2b3c4d5e6f}"));
} // namespace

SimSession::SimSession(QSslSocket* socket, PbxSimulator& simulator, QObject* parent)
    : QObject(parent)
    , m_socket(socket)
    , m_sim(simulator)
    , m_parser(new SimpleXmlParser(this))
    , m_decoder(QTextCodec::codecForName("UTF-8")->makeDecoder())
    , m_probeTimer(new QTimer(this))
{
    m_socket->setParent(this);
    m_parser->rootTag = S_XMLTAG_ROOT;
    connect(m_parser, &SimpleXmlParser::messageCompleted, this, &SimSession::onFramesReady);
    connect(m_socket, &QSslSocket::encrypted, this, &SimSession::onEncrypted);
    connect(m_socket, &QSslSocket::readyRead, this, &SimSession::onReadyRead);
    connect(m_socket, &QSslSocket::disconnected, this, &SimSession::onDisconnected);
    connect(m_socket, QOverload<const QList<QSslError>&>::of(&QSslSocket::sslErrors), m_socket,
            [this] { m_socket->ignoreSslErrors(); });
    connect(m_probeTimer, &QTimer::timeout, this, [this] {
        SimInfo probe = SimNotice::probe();
        send(probe);
    });
}

SimSession::~SimSession() = default;

QString SimSession::peer() const
{
    return QStringLiteral("%1:%2").arg(m_socket->peerAddress().toString()).arg(m_socket->peerPort());
}

void SimSession::onEncrypted()
{
    if (m_sim.settings().banner) {
        SimInfo banner = SimNotice::banner(m_sim.settings().minApi);
        send(banner);
    }
}

void SimSession::onReadyRead()
{
    m_parser->addData(m_decoder->toUnicode(m_socket->readAll()));
}

void SimSession::onFramesReady()
{
    while (m_parser->hasPendingMessages())
        handle(m_parser->getNextMessage());
}

void SimSession::onDisconnected()
{
    if (m_closed)
        return;
    m_closed = true;
    m_probeTimer->stop();
    m_sim.log(QStringLiteral("%1 disconnected (%2)")
                  .arg(isLoggedIn() ? m_exten : QStringLiteral("client"), peer()));
    Q_EMIT closed(this);
}

void SimSession::send(SXmlMessage& message)
{
    if (m_closed || m_socket->state() != QAbstractSocket::ConnectedState)
        return;
    m_socket->write(message.serializeToXml(m_sim.settings().api).toUtf8());
}

void SimSession::sendError(const QString& reason, const QString& request)
{
    SimResponse error = SimNotice::error(reason, request);
    send(error);
}

void SimSession::close()
{
    m_socket->disconnectFromHost();
}

void SimSession::drop()
{
    m_socket->abort();
    onDisconnected();
}

QString SimSession::requestElement(const QString& xml)
{
    int from = -1;
    for (const char* family : {"<Request>", "<Info>", "<Response>"}) {
        from = xml.indexOf(QLatin1String(family));
        if (from >= 0) {
            from += int(qstrlen(family));
            break;
        }
    }
    if (from < 0)
        return QString();
    if (xml.midRef(from).startsWith(QLatin1String("<Token>"))) {
        const int end = xml.indexOf(QLatin1String("</Token>"), from);
        from = end < 0 ? from : end + 8;
    }
    const int open = xml.indexOf(QLatin1Char('<'), from);
    if (open < 0)
        return QString();
    int end = open + 1;
    while (end < xml.size() && !xml.at(end).isSpace() && xml.at(end) != QLatin1Char('>')
           && xml.at(end) != QLatin1Char('/'))
        ++end;
    return xml.mid(open + 1, end - open - 1);
}

void SimSession::handle(const QString& xml)
{
    const QString element = requestElement(xml);
    if (element == S_COMMAND_MSGACK)
        return;
    if (element == S_COMMAND_KEEPALIVE) {
        SimInfo ack = SimNotice::keepAliveAck();
        send(ack);
        return;
    }
    if (element == S_COMMAND_LOGIN) {
        login(xml);
    } else if (element == S_COMMAND_LOGOFF) {
        m_sim.log(QStringLiteral("%1 logs off").arg(m_exten));
        m_sim.requestSeen(element, m_exten);
        close();
        return;
    } else if (!isLoggedIn()) {
        // Downloads come on connections of their own, authorised by a token.
        if (!m_sim.serveDownload(*this, element, xml))
            sendError(QStringLiteral("NotLoggedIn"), xml);
    } else if (!m_sim.answer(*this, element, xml)) {
        m_sim.log(QStringLiteral("%1: unknown request %2").arg(m_exten, element));
        sendError(QStringLiteral("Unknown request"), xml);
    }
    m_sim.requestSeen(element, isLoggedIn() ? m_exten : MessageReader::text(xml, S_XMLTAG_USER));
}

void SimSession::login(const QString& xml)
{
    const QString user = MessageReader::text(xml, S_XMLTAG_USER);
    if (isLoggedIn()) {
        sendError(QStringLiteral("AlreadyLoggedIn"), xml);
        return;
    }
    const SimExtension* ext = m_sim.directory().extension(user);
    if (!ext) {
        refuseLogin(1, QStringLiteral("UnknownUser"), user);
        return;
    }
    if (MessageReader::text(xml, S_XMLTAG_PASSWORD) != ext->password) {
        refuseLogin(2, QStringLiteral("WrongPassword"), user);
        return;
    }
    SimLoginAnswer answer;
    answer.errorMessage.clear();
    answer.exten = ext->exten;
    answer.domain = QStringLiteral("default");
    answer.appMode = TELVIX::appModeFromString(MessageReader::text(xml, S_XMLTAG_APPMODE));
    if (answer.appMode <= TELVIX::AppModeNone)
        answer.appMode = TELVIX::AppModeSrntPro;
    answer.features = QStringList {QStringLiteral("MSGACK"), QStringLiteral("SEND_CMD"),
                                   QStringLiteral("CUMULATIVE_STATS"), QStringLiteral("INCALLSERVICECODES")};
    answer.userUuid = QUuid::createUuidV5(UserNamespace, ext->exten).toString(QUuid::WithoutBraces);
    answer.mobileNumber = ext->mobileNumber;
    if (m_sim.chatPort() > 0) {
        answer.chatId = ext->chatId;
        answer.chatPort = m_sim.chatPort();
    }
    answer.firstName = ext->firstName;
    answer.lastName = ext->lastName;
    answer.seenIpAddress = peer();
    answer.loginMessage = QStringLiteral("Welcome to the Telvix PBX simulator");
    answer.firmwareVersion = QStringLiteral("sim-%1").arg(m_sim.settings().api);
    answer.serialNumber = QStringLiteral("SIM-0001");
    answer.partNumber = QStringLiteral("TELVIX-PBX-SIM");
    send(answer);

    m_exten = ext->exten;
    m_sim.log(QStringLiteral("%1 (%2) logged in from %3 as %4")
                  .arg(m_exten, ext->fullName(), peer(), TELVIX::appModeToString(answer.appMode)));
    if (m_sim.settings().probeIntervalMs > 0)
        m_probeTimer->start(m_sim.settings().probeIntervalMs);
    m_sim.sessionLoggedIn(*this);
}

void SimSession::refuseLogin(int exitCode, const QString& reason, const QString& user)
{
    SimLoginAnswer answer;
    answer.exitCode = exitCode;
    answer.errorMessage = reason;
    send(answer);
    m_sim.log(QStringLiteral("login of \"%1\" from %2 refused: %3").arg(user, peer(), reason));
}
