#include "xmppfthandler.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>
#include <QUuid>

#include <gloox/bytestream.h>
#include <gloox/siprofileft.h>

namespace {

void registerXmppFileType()
{
    qRegisterMetaType<XmppFile>("XmppFile");
}
Q_CONSTRUCTOR_FUNCTION(registerXmppFileType)

} // namespace

int XmppFile::fileTypeFromMime(const QString& mime)
{
    if (mime.contains(QLatin1String("image")))
        return Image;
    if (mime.contains(QLatin1String("video")))
        return Video;
    if (mime.contains(QLatin1String("vcard")))
        return VCard;
    return Other;
}

XmppFTHandler::XmppFTHandler(const XmppFile& file, const QString& sid, gloox::SIProfileFT* profile,
                             QObject* parent)
    : QObject(parent)
    , m_file(file)
    , m_sid(sid)
    , m_profile(profile)
{
    if (m_file.direction == XmppFile::Receiving && m_file.fileType != XmppFile::VCard
        && !m_file.path.isEmpty())
        m_file.path = getUniqueFilename(m_file.path);
}

XmppFTHandler::~XmppFTHandler()
{
    // A transfer dropped with its connection ends silently, but leaves no
    // partial file behind.
    if (!m_finished)
        removePartial();
    if (m_stream)
        m_stream->removeBytestreamDataHandler();
}

QString XmppFTHandler::getUniqueFilename(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return path;
    const QDir dir = info.dir();
    for (int number = 1; number <= 999; ++number) {
        const QString candidate = dir.filePath(
            QStringLiteral("%1(%2).%3").arg(info.baseName()).arg(number).arg(info.completeSuffix()));
        if (!QFileInfo::exists(candidate))
            return candidate;
    }
    return path;
}

bool XmppFTHandler::prepare()
{
    if (m_file.fileType == XmppFile::VCard || m_file.direction != XmppFile::Receiving)
        return true;
    const QFileInfo target(m_file.path);
    // Created anew, with the permissions any new file gets there.
    QFile partial;
    for (int attempt = 0; attempt < 10 && !partial.isOpen(); ++attempt) {
        const QString tag = QUuid::createUuid().toString(QUuid::Id128).left(8);
        partial.setFileName(target.dir().filePath(QLatin1Char('.') + target.fileName() + QLatin1Char('.')
                                                  + tag + QStringLiteral(".part")));
        partial.open(QIODevice::WriteOnly | QIODevice::NewOnly);
    }
    if (!partial.isOpen()) {
        qWarning().noquote() << "Cannot write received file to" << target.absolutePath() << ":"
                             << partial.errorString();
        return false;
    }
    m_partialPath = partial.fileName();
    return true;
}

void XmppFTHandler::attachStream(gloox::Bytestream* stream)
{
    m_stream = stream;
    m_stream->registerBytestreamDataHandler(this);
}

gloox::Bytestream* XmppFTHandler::takeStream()
{
    gloox::Bytestream* stream = m_stream;
    if (stream)
        stream->removeBytestreamDataHandler();
    m_stream = nullptr;
    return stream;
}

void XmppFTHandler::abort()
{
    if (m_finished)
        return;
    fail(QStringLiteral("File transfer interrupted: the other side went away"));
}

void XmppFTHandler::handleBytestreamOpen(gloox::Bytestream* /*bs*/)
{
    if (m_file.direction == XmppFile::Receiving)
        return;
    // gloox counts the stream as open only after this callback returns.
    QTimer::singleShot(0, this, [this]() { sendContent(); });
}

void XmppFTHandler::sendContent()
{
    if (!m_stream || !m_stream->isOpen()) {
        qDebug() << "Invalid bytestream";
        m_finished = true;
        Q_EMIT sigFTError(m_sid);
        return;
    }
    // One copy of the content in memory, in the form gloox sends from.
    std::string content;
    bool read = true;
    if (m_file.fileType == XmppFile::VCard) {
        content.assign(m_file.data.constData(), size_t(m_file.data.size()));
    } else {
        QFile source(m_file.path);
        read = source.open(QIODevice::ReadOnly);
        if (read) {
            content.resize(size_t(source.size()));
            read = source.read(&content[0], qint64(content.size())) == qint64(content.size());
        }
    }
    // An empty data block is refused by the receiver: an empty file is an
    // opened and closed stream.
    const bool sent = read && (content.empty() || m_stream->send(content));
    qDebug() << "Sending file:" << sent;
    m_stream->close();
    m_finished = true;
    if (sent)
        Q_EMIT sigFTSent(m_sid);
    else
        Q_EMIT sigFTError(m_sid);
}

void XmppFTHandler::handleBytestreamData(gloox::Bytestream* bs, const std::string& data)
{
    const QString theirs = QString::fromStdString(bs->sid());
    if (theirs != m_sid) {
        qDebug() << "Bytestream SID mismatch:" << m_sid << "(our)" << theirs << "(their)";
        return;
    }
    if (m_finished)
        return;
    if (m_file.fileType == XmppFile::VCard) {
        m_buffer.append(data.data(), int(data.size()));
        return;
    }
    // Reopened for each block: nothing is held open between two blocks.
    QFile partial(m_partialPath);
    if (!partial.open(QIODevice::WriteOnly | QIODevice::Append)
        || partial.write(data.data(), qint64(data.size())) != qint64(data.size())) {
        fail(QStringLiteral("Cannot write received file %1: %2").arg(m_partialPath, partial.errorString()));
        return;
    }
    const qint64 written = partial.size();
    partial.close();
    Q_EMIT sigFTProgress(m_sid, m_file.size > 0 ? float(written) / float(m_file.size) : 1.0f);
}

void XmppFTHandler::handleBytestreamClose(gloox::Bytestream* bs)
{
    if (m_file.direction == XmppFile::Sending) {
        bs->removeBytestreamDataHandler();
        return;
    }
    if (m_finished)
        return;
    if (m_file.fileType == XmppFile::VCard) {
        m_finished = true;
        if (m_buffer.isEmpty()) {
            qDebug() << "VCard data is empty";
            Q_EMIT sigFTError(m_sid);
        } else {
            Q_EMIT sigVCardComplete(m_sid, m_buffer);
        }
        return;
    }
    completeFile();
}

void XmppFTHandler::completeFile()
{
    const qint64 received = QFileInfo(m_partialPath).size();
    if (received != m_file.size) {
        fail(QStringLiteral("Received file is incomplete: %1 of %2 bytes").arg(received).arg(m_file.size));
        return;
    }
    // Another file may have taken the name while this one was travelling.
    if (!QFile::rename(m_partialPath, m_file.path)) {
        const QString other = getUniqueFilename(m_file.path);
        if (other == m_file.path || !QFile::rename(m_partialPath, other)) {
            fail(QStringLiteral("Cannot store received file as %1").arg(m_file.path));
            return;
        }
        m_file.path = other;
    }
    m_finished = true;
    Q_EMIT sigFTComplete(m_sid, m_file);
}

void XmppFTHandler::handleBytestreamError(gloox::Bytestream* bs, const gloox::IQ& /*iq*/)
{
    bs->close();
    if (m_finished)
        return;
    // The file of a sending transfer goes as well.
    if (m_file.direction == XmppFile::Sending && !m_file.path.isEmpty())
        QFile::remove(m_file.path);
    fail(QStringLiteral("Bytestream error"));
}

void XmppFTHandler::fail(const QString& reason)
{
    qWarning().noquote() << reason;
    // Closing the stream may call back into this handler at once.
    m_finished = true;
    if (m_stream && m_stream->isOpen())
        m_stream->close();
    removePartial();
    Q_EMIT sigFTError(m_sid);
}

void XmppFTHandler::removePartial()
{
    if (!m_partialPath.isEmpty())
        QFile::remove(m_partialPath);
    m_partialPath.clear();
}
