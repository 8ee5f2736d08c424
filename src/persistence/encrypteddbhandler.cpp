#include "encrypteddbhandler.h"

#include "simpleobfuscator.h"
#include "telvixlog_p.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <csignal>

namespace {
// A multiple of 3 and of 4: every scrambled chunk but the last is padding-free
// Base64, so the file reads back in chunks of the same size.
constexpr qint64 ChunkSize = 12288;

const QString BackupSuffix = QStringLiteral(".tmp");
// Names the working copy of the running session, so that a run after a crash
// finds and removes the plain copy the crashed one left in the clear.
const QString WorkingMarkerSuffix = QStringLiteral(".work");
} // namespace

#define DBLOG(priority) TelvixLogLine(m_logger, priority, Q_FUNC_INFO)

EncryptedSqliteDbHandler::EncryptedSqliteDbHandler(const DbhConfig& config, QObject* parent)
    : LxBaseDbHandler(config, parent)
    , encryptedFile(m_host + QDir::separator() + m_dbName)
{
    recoverFromCrash();
    decryptDb();
    // The working name rather than plainFile: after a failed unscrambling
    // plainFile is empty, and an empty name would give SQLite a private
    // throw-away database whose data no close could ever save.
    m_db.setDatabaseName(workingName.isEmpty() ? plainFile : workingName);
}

EncryptedSqliteDbHandler::~EncryptedSqliteDbHandler()
{
    // tempFile removes the working copy with itself.
    if (!workingName.isEmpty())
        forgetWorkingCopy();
}

void EncryptedSqliteDbHandler::recoverFromCrash()
{
    // A run killed inside encryptDb, after the permanent file was set aside
    // and before its successor was complete, leaves only the backup: it is the
    // last complete history, so it goes back in place.
    const QString backup = encryptedFile + BackupSuffix;
    if (!QFileInfo::exists(encryptedFile) && QFileInfo::exists(backup)) {
        if (QFile::rename(backup, encryptedFile))
            DBLOG(100) << QStringLiteral("Restored ") + encryptedFile
                    + QStringLiteral(" from the backup an interrupted close left behind");
        else
            DBLOG(10) << QStringLiteral("Unable to restore ") + encryptedFile + QStringLiteral(" from ")
                    + backup;
    }

    QFile marker(encryptedFile + WorkingMarkerSuffix);
    if (!marker.open(QIODevice::ReadOnly))
        return;
    // "<pid>\n<path>": a copy whose process still runs is in use, not stale.
    const QList<QByteArray> fields = marker.readAll().split('\n');
    marker.close();
    const qint64 owner = fields.value(0).toLongLong();
    const QString stale = QString::fromUtf8(fields.value(1));
    if (owner > 0 && (::kill(pid_t(owner), 0) == 0 || errno == EPERM))
        return;
    if (!stale.isEmpty()) {
        // With the copy go SQLite's journal and a half-written unscrambling
        // ("<copy>-journal", "<copy>.XXXXXX"): they hold plain data too.
        const QFileInfo copy(stale);
        const QFileInfoList leftovers
            = copy.dir().entryInfoList({copy.fileName() + QLatin1Char('*')}, QDir::Files);
        for (const QFileInfo& file : leftovers) {
            DBLOG(100) << QStringLiteral("Removing the plain working copy an earlier run left behind: ")
                    + file.filePath();
            QFile::remove(file.filePath());
        }
    }
    marker.remove();
}

void EncryptedSqliteDbHandler::rememberWorkingCopy()
{
    QSaveFile marker(encryptedFile + WorkingMarkerSuffix);
    const QByteArray text
        = QByteArray::number(QCoreApplication::applicationPid()) + '\n' + workingName.toUtf8();
    if (!marker.open(QIODevice::WriteOnly) || marker.write(text) < 0 || !marker.commit())
        DBLOG(100) << QStringLiteral("Unable to note the working copy beside ") + encryptedFile
                   << QStringLiteral("; a crash would leave it in the temporary directory");
}

void EncryptedSqliteDbHandler::forgetWorkingCopy()
{
    QFile::remove(encryptedFile + WorkingMarkerSuffix);
}

bool EncryptedSqliteDbHandler::createWorkingCopy()
{
    if (workingName.isEmpty()) {
        // Qt gives an empty path for a temporary directory that doesn't
        // exist; the template would then put the plain copy in the root.
        const QString tempDir = QDir::tempPath();
        if (tempDir.isEmpty()) {
            DBLOG(10) << QStringLiteral("No temporary directory for the working copy of ") + encryptedFile;
            return false;
        }
        tempFile.setFileTemplate(tempDir + QDir::separator() + m_dbName + QStringLiteral("-XXXXXX.sqlite"));
        if (!tempFile.open()) {
            DBLOG(10) << QStringLiteral("Unable to create the working copy in ") + tempDir
                    + QStringLiteral(": ") + tempFile.errorString();
            return false;
        }
        workingName = tempFile.fileName();
        tempFile.close();
        rememberWorkingCopy();
        return true;
    }
    // A second open of tempFile may give a new name, which the connection
    // would not follow: make the copy again under the name it already has,
    // readable by the owner only, as tempFile makes it.
    QFile copy(workingName);
    if (!copy.open(QIODevice::ReadWrite | QIODevice::Truncate)) {
        DBLOG(10) << QStringLiteral("Unable to create the working copy ") + workingName + QStringLiteral(": ")
                + copy.errorString();
        return false;
    }
    copy.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    rememberWorkingCopy();
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
        forgetWorkingCopy();
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
    // With no working copy (none could be made) there is nothing to remove.
    if (!plainFile.isEmpty()) {
        QFile::remove(plainFile);
        forgetWorkingCopy();
    }
}

bool EncryptedSqliteDbHandler::setDamagedFileAside(const QString& why)
{
    const QString damaged = encryptedFile + QStringLiteral(".damaged");
    DBLOG(10) << QStringLiteral("The database ") + encryptedFile + QStringLiteral(" is damaged (") + why
            + QStringLiteral("): it is kept as ") + damaged + QStringLiteral(" and a new one is started");
    closeDbConn();
    QFile::remove(damaged);
    if (QFileInfo::exists(encryptedFile) && !QFile::rename(encryptedFile, damaged))
        QFile::remove(encryptedFile);
    // An empty working copy is made again under its name by decryptDb().
    if (!plainFile.isEmpty())
        QFile(plainFile).resize(0);
    return decryptDb() && openDbConn();
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
