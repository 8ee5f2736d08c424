#include "encrypteddbhandler.h"

#include "simpleobfuscator.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace {
// A multiple of 3 and of 4: every scrambled chunk but the last is padding-free
// Base64, so the file reads back in chunks of the same size.
constexpr qint64 ChunkSize = 12288;

const QString BackupSuffix = QStringLiteral(".tmp");
} // namespace

EncryptedSqliteDbHandler::EncryptedSqliteDbHandler(const DbhConfig& config, QObject* parent)
    : LxBaseDbHandler(config, parent)
    , encryptedFile(m_host + QDir::separator() + m_dbName)
{
    decryptDb();
    // The working name rather than plainFile: after a failed unscrambling
    // plainFile is empty, and an empty name would give SQLite a private
    // throw-away database whose data no close could ever save.
    m_db.setDatabaseName(workingName.isEmpty() ? plainFile : workingName);
}

bool EncryptedSqliteDbHandler::createWorkingCopy()
{
    if (workingName.isEmpty()) {
        // Qt gives an empty path for a temporary directory that doesn't
        // exist; the template would then put the plain copy in the root.
        const QString tempDir = QDir::tempPath();
        if (tempDir.isEmpty())
            return false;
        tempFile.setFileTemplate(tempDir + QDir::separator() + m_dbName + QStringLiteral("-XXXXXX.sqlite"));
        if (!tempFile.open())
            return false;
        workingName = tempFile.fileName();
        tempFile.close();
        return true;
    }
    // A second open of tempFile may give a new name, which the connection
    // would not follow: make the copy again under the name it already has,
    // readable by the owner only, as tempFile makes it.
    QFile copy(workingName);
    if (!copy.open(QIODevice::ReadWrite | QIODevice::Truncate))
        return false;
    copy.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return true;
}

bool EncryptedSqliteDbHandler::decryptDb()
{
    if (!plainFile.isEmpty()) {
        const QFileInfo plain(plainFile);
        if (plain.exists() && plain.size() > 0)
            return true;
        if (plain.exists())
            QFile::remove(plainFile);
        plainFile.clear();
    }

    if (!encryptedFile.isEmpty()) {
        const QFileInfo encrypted(encryptedFile);
        if (encrypted.exists() && encrypted.size() == 0) {
            qDebug().noquote() << QStringLiteral("Empty encrypted db file ") + encryptedFile
                    + QStringLiteral(", let's drop it...");
            QFile::remove(encryptedFile);
        }
    }

    if (!createWorkingCopy()) {
        qDebug().noquote() << "Error creating a temporary file";
        return false;
    }
    plainFile = workingName;
    // The connection follows the working copy, also when none could be made
    // at construction and the name is known only now.
    if (!m_db.isOpen() && m_db.databaseName() != plainFile)
        m_db.setDatabaseName(plainFile);

    if (!QFileInfo::exists(encryptedFile))
        return true;

    if (encryptOrDecryptFile(encryptedFile, plainFile, false))
        return QFileInfo::exists(plainFile);

    qDebug().noquote() << QStringLiteral("Unable to decrypt ") + encryptedFile;
    QFile::remove(plainFile);
    plainFile.clear();
    return false;
}

bool EncryptedSqliteDbHandler::encryptDb()
{
    if (plainFile.isEmpty() || !QFileInfo::exists(plainFile)) {
        qDebug().noquote() << QStringLiteral("No database to be encrypted ") + plainFile
                + QStringLiteral(", the filename is empty or the file doesn't exist!");
        return false;
    }
    if (QFileInfo(plainFile).size() == 0) {
        qDebug().noquote() << QStringLiteral("Empty database file ") + plainFile
                + QStringLiteral(", let's drop it...");
        QFile::remove(plainFile);
        return false;
    }

    closeDbConn();

    QDir().mkpath(QFileInfo(encryptedFile).absolutePath());

    // The previous scrambled file becomes the backup. Without one, an older
    // backup is all that is left of the data, and it stays.
    const QString backup = encryptedFile + BackupSuffix;
    if (QFileInfo::exists(encryptedFile)) {
        QFile::remove(backup);
        QFile::rename(encryptedFile, backup);
    }

    if (encryptOrDecryptFile(plainFile, encryptedFile, true)) {
        QFile::remove(backup);
        QFile::remove(plainFile);
        return QFileInfo::exists(encryptedFile);
    }

    qDebug().noquote() << QStringLiteral("Unable to encrypt ") + plainFile
            + QStringLiteral(", an error occurred while performing encryption! Dropping it...");
    QFile::remove(plainFile);
    return false;
}

void EncryptedSqliteDbHandler::deleteFiles()
{
    closeDbConn();
    qDebug().noquote() << "Removing both original file" << encryptedFile << "and database file " << plainFile
                       << "...";
    // The last scrambled file is kept as the backup, the one copy a person
    // could still rescue by hand; with no file to take its place, the older
    // backup stays.
    const QString backup = encryptedFile + BackupSuffix;
    if (QFileInfo::exists(encryptedFile)) {
        QFile::remove(backup);
        QFile::rename(encryptedFile, backup);
    }
    QFile::remove(plainFile);
}

bool EncryptedSqliteDbHandler::encryptOrDecryptFile(const QString& in, const QString& out, bool encrypt)
{
    QFile source(in);
    if (!source.exists() || !source.open(QIODevice::ReadOnly)) {
        qDebug().noquote() << Q_FUNC_INFO << "Unable to open " << in;
        return false;
    }
    // The result replaces `out` only once it is complete: a failure half-way
    // leaves the earlier file whole instead of a truncated one.
    QSaveFile target(out);
    if (!target.open(QIODevice::WriteOnly)) {
        qDebug().noquote() << Q_FUNC_INFO << "Unable to open " << out;
        return false;
    }
    while (!source.atEnd()) {
        const QByteArray chunk = source.read(ChunkSize);
        if (chunk.isEmpty()) {
            qDebug().noquote() << Q_FUNC_INFO << "Unable to read " << in;
            target.cancelWriting();
            return false;
        }
        target.write(encrypt ? SimpleObfuscator::hide(chunk) : SimpleObfuscator::reveal(chunk));
    }
    if (!target.commit()) {
        qDebug().noquote() << Q_FUNC_INFO << "Unable to write " << out;
        return false;
    }
    return true;
}
