#pragma once

#include "encrypteddbhandler.h"
#include "lxdbhandler.h"
#include "persistence.h"
#include "telvix_export.h"

#include <QDateTime>
#include <QString>

class Logger;

/// \brief The local store in a scrambled SQLite file.
///
/// Several users may share one file: every row belongs to an extension, and
/// the store reads and writes the rows of `localExten` only. Changes reach
/// the scrambled file at close(); until then they live in the plain working
/// copy. Use on the thread that made the store only.
class TELVIX_EXPORT PersistenceSqlite : public Persistence
{
public:
    /// Holds every SQL statement of the store.
    class TELVIX_EXPORT PersistenceSqliteDbHandler : public EncryptedSqliteDbHandler
    {
    public:
        explicit PersistenceSqliteDbHandler(const DbhConfig& config, QObject* parent = nullptr);

        /// Unscrambles and connects, then makes the tables that are missing
        /// or of an outdated shape.
        bool open();
        /// Disconnects and scrambles the database back into its file.
        bool close();
        bool deleteDataOlderThan(const QDateTime& minDate);
        bool getLastEntryUid(QString& uid, const QString& exten);
        bool getLastPhoneBookTime(QDateTime& time, const QString& exten);
        bool getLastSmsTime(QDateTime& time, const QString& exten);
        bool saveSmsEntries(const QList<SmsEntry>& list, const QString& exten);
        bool getSmsEntries(QList<SmsEntry>& list, const QString& exten);
        /// Stores the entries of `localNum` newer than `lastEntryUid`; returns
        /// how many went in.
        int saveCdrEntries(const Cdr& cdr, const QString& lastEntryUid, const QString& localNum);
        bool getCdrEntries(Cdr& cdr, const QString& exten);
        bool getPhoneBookEntries(QList<PhoneBook>& books, const QString& exten);
        bool savePhoneBookEntries(const QList<PhoneBook>& books, const QString& exten);

    private:
        class Batch;

        /// Whether `statement` runs and gives at least one row.
        bool hasRow(const QString& statement);
        bool run(const QString& statement);
        bool createTable(const QString& statement, const QString& failure);
    };

    /// Opens the store at once; a store that cannot be opened works empty.
    PersistenceSqlite(const QString& dbPath, const QString& localExten);
    ~PersistenceSqlite() override;

    bool open() override;
    void close() override;
    bool readCdr() override;
    bool writeCdr(const Cdr& entries) override;
    bool readPhoneBook() override;
    bool writePhoneBook(const QList<PhoneBook>& books) override;
    bool readSmsList() override;
    bool writeSmsList(const QList<SmsEntry>& list) override;
    void updateLastCdrEntryUid() override;
    void updateLastPbTime() override;
    void updateLastSmsTime() override;

    /// Drops the history and SMS older than one calendar month.
    bool deleteOldData();

    /// Null while the store is not open.
    PersistenceSqliteDbHandler* dbHandler() const { return handler; }

private:
    /// Reads a dirty list through `read`; a clean list is used as it is.
    template <typename Read> bool refresh(bool& dirty, Read read);
    /// Saves a non-empty list through `save`, marks it dirty and runs `saved`.
    template <typename Save, typename Saved> bool store(bool empty, bool& dirty, Save save, Saved saved);

    Logger* logger = nullptr;
    DbhConfig dbConfig;
    QString dbPath;
    PersistenceSqliteDbHandler* handler = nullptr;
    QString localExten;
    // A dirty list must be read from the database before use.
    bool cdrDirty = true;
    bool phoneBookDirty = true;
    bool smsDirty = true;
};
