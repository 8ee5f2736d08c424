#pragma once

#include "telvix_export.h"

#include <QByteArray>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <gloox/bytestreamdatahandler.h>
#include <gloox/jid.h>

namespace gloox {
class Bytestream;
class IQ;
class SIProfileFT;
} // namespace gloox

/// One file or vCard travelling between two contacts.
class TELVIX_EXPORT XmppFile
{
    Q_GADGET
    Q_PROPERTY(QString sender MEMBER sender)
    Q_PROPERTY(QString receiver MEMBER receiver)
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(QString path MEMBER path)
    Q_PROPERTY(long size MEMBER size)
    Q_PROPERTY(QByteArray data MEMBER data)
    Q_PROPERTY(int fileType MEMBER fileType)
    Q_PROPERTY(int direction MEMBER direction)

public:
    enum FileType { Image = 0, Video = 1, VCard = 2, Other = 3 };
    enum Direction { Receiving = 0, Sending = 1 };

    /// Guessed from the MIME type: "image", "video" or "vcard" in it, else Other.
    static int fileTypeFromMime(const QString& mime);

    /// The other side.
    gloox::JID remote;
    /// Full JID of the sender.
    QString sender;
    /// Full JID of the receiver.
    QString receiver;
    /// File name without directory.
    QString name;
    /// Full local path, once the local side is known.
    QString path;
    /// Size in bytes as announced.
    long size = 0;
    /// Content of a vCard being sent; vCards never touch a file.
    QByteArray data;
    int fileType = Other;
    int direction = Receiving;
};

Q_DECLARE_METATYPE(XmppFile)

/// Moves the bytes of one transfer over an in-band bytestream. A received
/// file is written under a hidden partial name beside its final one and only
/// renamed once complete, so a failed transfer never leaves a truncated file
/// under the name the application was told about.
class TELVIX_EXPORT XmppFTHandler : public QObject, public gloox::BytestreamDataHandler
{
    Q_OBJECT

public:
    /// A received file gets a name that is free in its directory.
    XmppFTHandler(const XmppFile& file, const QString& sid, gloox::SIProfileFT* profile,
                  QObject* parent = nullptr);
    ~XmppFTHandler() override;

    /// `path` itself when free, else "name(1).suffix" and so on, up to 999;
    /// the suffix starts at the first dot of the name.
    static QString getUniqueFilename(const QString& path);

    const XmppFile& file() const { return m_file; }
    QString sid() const { return m_sid; }

    /// Receiving a file: creates its partial file. False, with the reason
    /// logged, when the directory cannot be written.
    bool prepare();
    /// Becomes the data handler of the transfer's stream.
    void attachStream(gloox::Bytestream* stream);
    /// Gives the stream up, to be disposed of outside gloox's callbacks.
    gloox::Bytestream* takeStream();
    /// The other side went away before the end: the transfer failed.
    void abort();

    void handleBytestreamData(gloox::Bytestream* bs, const std::string& data) override;
    void handleBytestreamError(gloox::Bytestream* bs, const gloox::IQ& iq) override;
    void handleBytestreamOpen(gloox::Bytestream* bs) override;
    void handleBytestreamClose(gloox::Bytestream* bs) override;

Q_SIGNALS:
    void sigFTSent(const QString& sid);
    void sigFTComplete(const QString& sid, const XmppFile& file);
    void sigVCardComplete(const QString& sid, QByteArray data);
    void sigFTError(const QString& sid);
    void sigFTProgress(const QString& sid, float progress);

private:
    void sendContent();
    void completeFile();
    /// Ends the transfer with sigFTError; what was received is removed.
    void fail(const QString& reason);
    void removePartial();

    QByteArray m_buffer;
    XmppFile m_file;
    QString m_sid;
    gloox::SIProfileFT* m_profile = nullptr;
    gloox::Bytestream* m_stream = nullptr;
    /// Where a received file grows until it is complete.
    QString m_partialPath;
    bool m_finished = false;
};
