// XmppClient: file transfers, vCards and the message archive. Everything runs
// on the client's thread; the public entries hop there first.
#include "telvixlog_p.h"
#include "xmppengine.h"
#include "xmpphistory.h"

#include <QDebug>
#include <QFileInfo>
#include <QThread>
#include <QTimer>
#include <QUuid>

#include <gloox/bytestream.h>
#include <gloox/dataform.h>
#include <gloox/simanager.h>
#include <gloox/siprofileft.h>
#include <gloox/tag.h>

#define XLOG(priority) TelvixLogLine(m_log, priority, Q_FUNC_INFO)

namespace {

QString fromStd(const std::string& text)
{
    return QString::fromStdString(text);
}

// gloox refuses to offer a file of no bytes; the offer is the same but for
// the size, so it is built here for that case.
gloox::Tag* emptyFileOffer(const QString& name)
{
    auto* file = new gloox::Tag("file", "xmlns", gloox::XMLNS_SI_FT);
    file->addAttribute("name", name.toStdString());
    file->addAttribute("size", "0");
    return file;
}

gloox::Tag* inBandStreamMethod()
{
    auto* feature = new gloox::Tag("feature", "xmlns", gloox::XMLNS_FEATURE_NEG);
    gloox::DataForm form(gloox::TypeForm);
    gloox::DataFormField* field = form.addField(gloox::DataFormField::TypeListSingle, "stream-method");
    gloox::StringMultiMap options;
    options.insert(std::make_pair(std::string("ibb"), gloox::XMLNS_IBB));
    field->setOptions(options);
    feature->addChild(form.tag());
    return feature;
}

} // namespace

// ---- offers out ------------------------------------------------------------

QString XmppClient::blockingText(const std::function<QString()>& body)
{
    QString result;
    // A thread whose loop has ended would never answer.
    if (!thread()->isRunning()
        || !QMetaObject::invokeMethod(this, body, Qt::BlockingQueuedConnection, &result)) {
        XLOG(10) << "invoke method failed!";
        return QString();
    }
    return result;
}

QString XmppClient::sendFile(const QString& chatId, const QString& path, const QString& mime)
{
    if (thread() != QThread::currentThread())
        return blockingText([=]() { return sendFile(chatId, path, mime); });
    const QFileInfo info(path);
    if (!info.exists()) {
        qCritical() << "Cannot find file at" << path;
        XLOG(10) << "Cannot find file at" << path;
        return QString();
    }
    XmppFile file;
    file.name = info.completeBaseName() + QLatin1Char('.') + info.suffix();
    file.path = path;
    file.size = long(info.size());
    file.fileType = XmppFile::fileTypeFromMime(mime);
    file.direction = XmppFile::Sending;
    return offerFile(chatId, file, mime);
}

QString XmppClient::sendVCard(const QString& chatId, const QByteArray& data, const QString& fileName)
{
    if (thread() != QThread::currentThread())
        return blockingText([=]() { return sendVCard(chatId, data, fileName); });
    XmppFile file;
    file.name = fileName + QStringLiteral(".vcf");
    file.size = long(data.size());
    file.data = data;
    file.fileType = XmppFile::VCard;
    file.direction = XmppFile::Sending;
    return offerFile(chatId, file, QStringLiteral("text/vcard"));
}

QString XmppClient::offerFile(const QString& chatId, const XmppFile& offered, const QString& mime)
{
    if (!m_connected || !m_client || !m_ftProfile)
        return QString();
    // A transfer needs a full JID: a contact who is offline cannot receive.
    const QStringList resources = getContactResources(chatId);
    if (resources.isEmpty())
        return QString();
    gloox::JID target(chatId.toStdString());
    target.setResource(resources.first().toStdString());

    XmppFile file = offered;
    file.remote = target;
    file.sender = m_fullJid;
    file.receiver = fromStd(target.full());
    const QString sid = QUuid::createUuid().toString();
    createFTHandler(file, sid);
    std::string requested;
    if (file.size > 0) {
        requested = m_ftProfile->requestFT(target, file.name.toStdString(), file.size, std::string(),
                                           std::string(), std::string(), mime.toStdString(),
                                           gloox::SIProfileFT::FTTypeIBB, m_client->jid(), sid.toStdString());
    } else {
        requested = m_siManager->requestSI(m_ftProfile, target, gloox::XMLNS_SI_FT, emptyFileOffer(file.name),
                                           inBandStreamMethod(), mime.toStdString(), m_client->jid(),
                                           sid.toStdString());
    }
    if (requested.empty())
        disposeFTHandler(sid);
    return fromStd(requested);
}

// ---- offers in -------------------------------------------------------------

void XmppClient::handleFTRequest(const gloox::JID& from, const gloox::JID& to, const std::string& sid,
                                 const std::string& name, long size, const std::string& /*hash*/,
                                 const std::string& /*date*/, const std::string& mimetype,
                                 const std::string& /*desc*/, int /*stypes*/)
{
    XmppFile file;
    file.remote = from;
    file.sender = fromStd(from.full());
    file.receiver = fromStd(to.full());
    // Only the name: a sender does not choose where the file goes.
    file.name = QFileInfo(fromStd(name)).fileName();
    file.size = size;
    file.fileType = XmppFile::fileTypeFromMime(fromStd(mimetype));
    file.direction = file.receiver == m_fullJid ? XmppFile::Receiving : XmppFile::Sending;
    const QString id = fromStd(sid);
    m_pendingFiles.insert(id, file);
    Q_EMIT sigFTRequest(id, fromStd(from.bare()), file.name, fromStd(mimetype));
}

bool XmppClient::takePendingFile(const QString& sid, XmppFile* file)
{
    // An offer is answered once: the answer takes it out.
    if (!m_pendingFiles.contains(sid)) {
        qDebug() << "Cannot find requested file transfer with SID" << sid;
        XLOG(10) << "Cannot find requested file transfer with SID" << sid;
        Q_EMIT sigFTError(sid);
        return false;
    }
    *file = m_pendingFiles.take(sid);
    return true;
}

void XmppClient::acceptFT(const QString& sid, const QString& directory)
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [=]() { acceptFT(sid, directory); });
        return;
    }
    XmppFile file;
    if (!takePendingFile(sid, &file))
        return;
    file.path = directory + QLatin1Char('/') + file.name;
    if (!m_ftProfile) {
        Q_EMIT sigFTError(sid);
        return;
    }
    XmppFTHandler* handler = createFTHandler(file, sid);
    if (!handler->prepare()) {
        // Nothing can be stored: the sender hears a refusal, not a broken stream.
        XLOG(10) << "Cannot write received file into" << directory;
        disposeFTHandler(sid);
        m_ftProfile->declineFT(file.remote, sid.toStdString(), gloox::SIManager::RequestRejected);
        Q_EMIT sigFTError(sid);
        return;
    }
    m_ftProfile->acceptFT(file.remote, sid.toStdString(), gloox::SIProfileFT::FTTypeIBB);
    Q_EMIT sigFTStart(sid);
}

void XmppClient::declineFT(const QString& sid)
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [=]() { declineFT(sid); });
        return;
    }
    XmppFile file;
    if (!takePendingFile(sid, &file))
        return;
    if (m_ftProfile)
        m_ftProfile->declineFT(file.remote, sid.toStdString(), gloox::SIManager::RequestRejected,
                               std::string());
}

void XmppClient::handleFTRequestError(const gloox::IQ& /*iq*/, const std::string& sid)
{
    Q_EMIT sigFTError(fromStd(sid));
}

void XmppClient::handleFTBytestream(gloox::Bytestream* bs)
{
    XmppFTHandler* handler = m_ftHandlers.value(fromStd(bs->sid()));
    if (!handler)
        return;
    handler->attachStream(bs);
    // Opens the stream on the sending side; the receiving side waits for it.
    bs->connect();
}

const std::string XmppClient::handleOOBRequestResult(const gloox::JID& /*from*/, const gloox::JID& /*to*/,
                                                     const std::string& /*sid*/)
{
    return std::string();
}

// ---- running transfers -----------------------------------------------------

XmppFTHandler* XmppClient::createFTHandler(const XmppFile& file, const QString& sid)
{
    auto* handler = new XmppFTHandler(file, sid, m_ftProfile, this);
    bool ok = bool(connect(handler, &XmppFTHandler::sigFTComplete, this, &XmppClient::onFTComplete));
    ok = bool(connect(handler, &XmppFTHandler::sigFTSent, this, &XmppClient::onFTSent)) && ok;
    ok = bool(connect(handler, &XmppFTHandler::sigFTError, this, &XmppClient::onFTError)) && ok;
    ok = bool(connect(handler, &XmppFTHandler::sigFTProgress, this, &XmppClient::onFTProgress)) && ok;
    ok = bool(connect(handler, &XmppFTHandler::sigVCardComplete, this, &XmppClient::onVCardComplete)) && ok;
    if (!ok)
        qWarning() << "Connect failed";
    m_ftHandlers.insert(sid, handler);
    return handler;
}

void XmppClient::disposeFTHandler(const QString& sid)
{
    XmppFTHandler* handler = m_ftHandlers.take(sid);
    if (!handler) {
        qWarning() << "No file transfer handler to dispose";
        return;
    }
    handler->disconnect();
    if (gloox::Bytestream* stream = handler->takeStream())
        m_closedStreams.append(stream);
    // Its signal may still be on the stack.
    handler->deleteLater();
}

void XmppClient::disposeAllFTHandlers()
{
    const QStringList sids = m_ftHandlers.keys();
    for (const QString& sid : sids)
        disposeFTHandler(sid);
}

void XmppClient::releaseClosedStreams()
{
    if (m_closedStreams.isEmpty())
        return;
    const QList<gloox::Bytestream*> streams = m_closedStreams;
    m_closedStreams.clear();
    for (gloox::Bytestream* stream : streams) {
        if (m_ftProfile)
            m_ftProfile->dispose(stream);
        else
            delete stream;
    }
}

void XmppClient::abortTransfersFrom(const QString& fullJid)
{
    // In-band streams have no end of their own when the sender vanishes.
    const QList<XmppFTHandler*> handlers = m_ftHandlers.values();
    for (XmppFTHandler* handler : handlers) {
        if (handler->file().direction == XmppFile::Receiving && handler->file().sender == fullJid)
            handler->abort();
    }
}

void XmppClient::deleteFTProfile()
{
    releaseClosedStreams();
    if (m_ftProfile) {
        m_ftProfile->removeSIProfileFTHandler();
        delete m_ftProfile;
        m_ftProfile = nullptr;
    }
    delete m_siManager;
    m_siManager = nullptr;
}

void XmppClient::onFTSent(const QString& sid)
{
    XLOG(1000) << "File has been sent.";
    disposeFTHandler(sid);
    Q_EMIT sigFTSent(sid);
}

void XmppClient::onFTComplete(const QString& sid, const XmppFile& file)
{
    XLOG(1000) << "File transfer completed";
    disposeFTHandler(sid);
    Q_EMIT sigFTComplete(sid, file.path);
}

void XmppClient::onVCardComplete(const QString& sid, const QByteArray& data)
{
    XLOG(1000) << "VCard transfer completed";
    disposeFTHandler(sid);
    Q_EMIT sigVCardComplete(sid, data);
}

void XmppClient::onFTError(const QString& sid)
{
    XLOG(10) << "File transfer error";
    disposeFTHandler(sid);
    Q_EMIT sigFTError(sid);
}

void XmppClient::onFTProgress(const QString& sid, float progress)
{
    Q_EMIT sigFTProgress(sid, progress);
}

// ---- history ---------------------------------------------------------------

void XmppClient::getHistory(QDateTime since)
{
    if (thread() != QThread::currentThread()) {
        QTimer::singleShot(0, this, [=]() { getHistory(since); });
        return;
    }
    if (!m_client) {
        XLOG(10) << "Invalid client instance";
        qDebug() << "Invalid client instance";
        return;
    }
    if (!m_history) {
        m_history = new XmppHistory(m_logDir, this);
        m_client->registerStanzaExtension(new HistoryResult());
        m_client->registerStanzaExtension(new HistoryEnd());
        m_client->registerIqHandler(m_history, HistoryEnd::ExtensionType);
        m_client->registerIqHandler(m_history, gloox::ExtError);
        bool ok = bool(connect(m_history, &XmppHistory::sigSendTag, this, [this](gloox::Tag* tag) {
            if (m_client)
                m_client->send(tag);
            else
                delete tag;
        }));
        ok = bool(connect(m_history, &XmppHistory::sigHistoryComplete, this,
                          [this](QList<ChatMessage> messages) { Q_EMIT sigHistoryComplete(messages); }))
            && ok;
        if (!ok)
            qCritical() << "signal-slot connection failed!";
    }
    m_history->sendRequest(since);
}
