#include "sarnetdownloader.h"

#include "sarnetxml.h"
#include "simplexmlparser.h"
#include "telvixlog_p.h"

#include <QDebug>
#include <QSslSocket>
#include <QTextCodec>

SarnetDownloader::SarnetDownloader(const QString& apiVersion_, Logger* logger_, QObject* parent)
    : QObject(parent)
    , parser(new SimpleXmlParser(this))
    , logger(logger_)
    , apiVersion(apiVersion_)
{
    parser->rootTag = SARNET_XML::S_XMLTAG_ROOT;
    connect(parser, &SimpleXmlParser::messageCompleted, this, &SarnetDownloader::handleData);
}

SarnetDownloader::~SarnetDownloader()
{
    abort();
    logger = nullptr;
}

void SarnetDownloader::start()
{
    abort();
    destinationFile = QString();
    // Nothing of an earlier connection may end up in this one's answer.
    parser->emptyBuffer();
    m_decoder.reset(QTextCodec::codecForName("UTF-8")->makeDecoder());

    qRegisterMetaType<QAbstractSocket::SocketError>("QAbstractSocket::SocketError");
    qRegisterMetaType<QList<QSslError>>("QList<QSslError>");
    socket = new QSslSocket();
    // Queued, so that destroySocket never runs inside the socket's own
    // emission. A call still queued from a socket that has gone since is
    // dropped: it must not act on its successor.
    const quint64 generation = ++m_socketGeneration;
    const auto current = [this, generation] { return generation == m_socketGeneration; };
    connect(
        socket, &QSslSocket::readyRead, this,
        [this, current] {
            if (current())
                readServerData();
        },
        Qt::QueuedConnection);
    connect(
        socket, &QSslSocket::encrypted, this,
        [this, current] {
            if (current())
                startDownload();
        },
        Qt::QueuedConnection);
    connect(
        socket, &QSslSocket::disconnected, this,
        [this, current] {
            if (current())
                serverDisconnected();
        },
        Qt::QueuedConnection);
    connect(
        socket, &QSslSocket::errorOccurred, this,
        [this, current](QAbstractSocket::SocketError error) {
            if (current())
                onTcpError(error);
        },
        Qt::QueuedConnection);
    // Direct: the errors must be ignored before the handshake goes on.
    connect(socket, QOverload<const QList<QSslError>&>::of(&QSslSocket::sslErrors), this,
            &SarnetDownloader::onSslErrors);
    socket->connectToHostEncrypted(serverAddress, serverPort, QIODevice::ReadWrite,
                                   QAbstractSocket::AnyIPProtocol);
}

void SarnetDownloader::close()
{
    destroySocket(false);
}

void SarnetDownloader::abort()
{
    destroySocket(true);
}

void SarnetDownloader::startDownload()
{
    if (!socket)
        return;
    // Whatever the server sent ahead of the request is not part of the answer.
    qDebug() << socket->readAll();
    const QString request = getRequestMsg();
    TLOG(100000) << "Sending request:" << request;
    socket->write(request.toUtf8());
}

void SarnetDownloader::readServerData()
{
    if (!socket)
        return;
    QByteArray bytes = socket->readAll();
    const int nul = bytes.indexOf('\0');
    if (nul >= 0)
        bytes.truncate(nul);
    const QString text = m_decoder->toUnicode(bytes);
    TLOG(100000) << "Server reported:" << text;
    parser->addData(text);
}

void SarnetDownloader::handleData()
{
    while (parser->hasPendingMessages())
        handleResponseMsg(parser->getNextMessage());
}

void SarnetDownloader::serverDisconnected()
{
    destroySocket(true);
    Q_EMIT sigDisconnected();
}

void SarnetDownloader::onTcpError(QAbstractSocket::SocketError error)
{
    // A hang-up is reported as an error first; the disconnection that
    // follows ends the download.
    if (!socket || error == QAbstractSocket::RemoteHostClosedError)
        return;
    const QString text = socket->errorString();
    qDebug() << "TCP error:" << text;
    TLOG(100000) << "TCP error:" << text << int(error);
    destroySocket(true);
    Q_EMIT sigError(text);
}

void SarnetDownloader::onSslErrors(const QList<QSslError>& errors)
{
    for (const QSslError& error : errors) {
        qDebug() << "SSL error:" << error.errorString();
        TLOG(100000) << "SSL error:" << error.errorString();
    }
    // As on the session's socket: the certificate does not stop the download.
    if (socket)
        socket->ignoreSslErrors();
}

void SarnetDownloader::destroySocket(bool abortSocket)
{
    if (!socket)
        return;
    ++m_socketGeneration;
    socket->disconnect();
    if (abortSocket)
        socket->abort();
    else
        socket->close();
    socket->deleteLater();
    socket = nullptr;
}
