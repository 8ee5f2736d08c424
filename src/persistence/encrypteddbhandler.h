#pragma once

#include "lxdbhandler.h"
#include "telvix_export.h"

#include <QString>
#include <QTemporaryFile>

/// \brief A SQLite database kept scrambled on disk.
///
/// The scrambled file lies in `host` under the name `dbName`. While the
/// program runs, the database is a plain working copy in the system's
/// temporary directory; encryptDb() scrambles it back into place and deletes
/// it. The scrambling keeps casual readers out and is no cipher.
class TELVIX_EXPORT EncryptedSqliteDbHandler : public LxBaseDbHandler
{
    Q_OBJECT

public:
    /// Unscrambles the file into a working copy and points the connection at it.
    explicit EncryptedSqliteDbHandler(const DbhConfig& config, QObject* parent = nullptr);
    ~EncryptedSqliteDbHandler() override;

    /// Closes the connection and scrambles the working copy into the
    /// permanent file; the working copy is deleted.
    bool encryptDb();
    /// Makes the working copy from the permanent file unless it is there already.
    bool decryptDb();
    /// Sets the permanent file aside as "<file>.tmp" and deletes the working copy.
    void deleteFiles();
    /// Moves a permanent file that SQLite finds damaged to "<file>.damaged",
    /// where a person may still rescue it, and starts an empty working copy
    /// in its place, so that new data is kept again. False if no new copy
    /// could be made.
    bool setDamagedFileAside(const QString& why);

    /// Scrambles (`encrypt`) or unscrambles `in` into `out`.
    static bool encryptOrDecryptFile(const QString& in, const QString& out, bool encrypt);

    QString encryptedFilePath() const { return encryptedFile; }
    /// The working copy; empty until known.
    QString plainFilePath() const { return plainFile; }

private:
    bool createWorkingCopy();
    /// Puts back what a killed run left half-done: the permanent file set
    /// aside as its backup, and the plain working copy left in the clear.
    void recoverFromCrash();
    void rememberWorkingCopy();
    void forgetWorkingCopy();

    QString encryptedFile;
    QString plainFile;
    QTemporaryFile tempFile;
    /// Name of the working copy, fixed by the first open of tempFile; the
    /// connection keeps pointing at it for the handler's whole life.
    QString workingName;
};
