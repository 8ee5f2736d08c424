#pragma once

#include "telvix_export.h"

#include <QAbstractSocket>
#include <QList>
#include <QObject>
#include <QSslError>
#include <QString>

#include <memory>

class Logger;
class QSslSocket;
class QTextDecoder;
class SimpleXmlParser;

/// \brief One download over a TLS connection of its own to the CTI server:
/// one request, authorised by an access token, and one answer.
///
/// The owner constructs it, sets the destination, connects the signals, and
/// once a token is there sets serverAddress, serverPort and token and calls
/// start(). The download is over with sigFinished(), sigError() or
/// sigDisconnected(); the owner then closes and deletes the object. There is
/// no time-out: a server that never answers leaves it waiting.
class TELVIX_EXPORT SarnetDownloader : public QObject
{
    Q_OBJECT
public:
    /// `logger` is not owned and may be null.
    SarnetDownloader(const QString& apiVersion, Logger* logger, QObject* parent = nullptr);
    ~SarnetDownloader() override;

    QString serverAddress;
    quint16 serverPort = 0;
    /// Access token of this download.
    QString token;
    /// Folder in which the result is saved.
    QString destinationFolder;
    /// Full path of the saved result; empty until it is there.
    QString destinationFile;

    /// The complete request text, frame included.
    virtual QString getRequestMsg() = 0;
    /// Receives each complete message of the server.
    virtual void handleResponseMsg(const QString& message) = 0;

public Q_SLOTS:
    /// Connects; a running download is dropped first, without any signal.
    void start();
    void close();
    void abort();

Q_SIGNALS:
    void sigDisconnected();
    void sigError(const QString& error);
    void sigFinished();

protected Q_SLOTS:
    void startDownload();
    void readServerData();
    void handleData();
    void serverDisconnected();
    void onTcpError(QAbstractSocket::SocketError error);
    void onSslErrors(const QList<QSslError>& errors);

protected:
    void destroySocket(bool abortSocket);

    QSslSocket* socket = nullptr;
    SimpleXmlParser* parser = nullptr;
    Logger* logger = nullptr;
    QString apiVersion;

private:
    /// Keeps a UTF-8 character that a read splits for the next read.
    std::unique_ptr<QTextDecoder> m_decoder;
    /// Counts the sockets made and dropped, to recognise stale queued calls.
    quint64 m_socketGeneration = 0;
};
