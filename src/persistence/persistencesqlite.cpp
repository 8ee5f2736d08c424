#include "persistencesqlite.h"

#include "telvix_const.h"
#include "telvixlog_p.h"

#include <QDebug>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <utility>

#define DBLOG(priority) TelvixLogLine(m_logger, priority, Q_FUNC_INFO)
#define PLOG(priority) TelvixLogLine(logger, priority, Q_FUNC_INFO)

namespace {
const QString CdrTableExists
    = QStringLiteral("SELECT 1 FROM sqlite_master WHERE type = 'table' and name = 'cdr_table'");
const QString PbTablesExist = QStringLiteral(
    "SELECT 1 FROM sqlite_master WHERE type = 'table' and name IN ('pb_table','pbentry_table')");
const QString SmsTableExists
    = QStringLiteral("SELECT 1 FROM sqlite_master WHERE type = 'table' and name = 'sms_table'");

const QString NoConnection = QStringLiteral("Unable to open connection to SQLite db...");

QString isoText(const QDateTime& time)
{
    return time.toString(TELVIX::IsoDateNoTz);
}
} // namespace

// ---- PersistenceSqliteDbHandler -----------------------------------------

/// The statements of one save in one transaction, committed however the save
/// ends: the rows written before a failure stay, as they would one statement
/// at a time, and a failed statement undoes only itself. Without a
/// transaction every row would cost a disk commit of its own.
class PersistenceSqlite::PersistenceSqliteDbHandler::Batch
{
public:
    explicit Batch(QSqlDatabase db)
        : m_db(std::move(db))
        , m_open(m_db.transaction())
    {
    }
    ~Batch() { commit(); }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    /// False when the rows could not be committed; they are then gone.
    bool commit()
    {
        if (!m_open)
            return true;
        m_open = false;
        if (m_db.commit())
            return true;
        m_error = m_db.lastError().text();
        m_db.rollback();
        return false;
    }
    QString error() const { return m_error; }

private:
    QSqlDatabase m_db;
    bool m_open;
    QString m_error;
};

PersistenceSqlite::PersistenceSqliteDbHandler::PersistenceSqliteDbHandler(const DbhConfig& config,
                                                                          QObject* parent)
    : EncryptedSqliteDbHandler(config, parent)
{
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::hasRow(const QString& statement)
{
    QSqlQuery query = createNewQuery();
    return prepareQuery(query, statement) && executeQuery(query) && query.next();
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::run(const QString& statement)
{
    QSqlQuery query = createNewQuery();
    return prepareQuery(query, statement) && executeQuery(query);
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::createTable(const QString& statement,
                                                                const QString& failure)
{
    if (run(statement))
        return true;
    DBLOG(10) << failure << lastErrorText();
    return false;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::open()
{
    if (!decryptDb()) {
        DBLOG(10) << "Unable to decrypt SQLite db...";
        return false;
    }
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    // A damaged file would stay damaged and keep every later session without
    // history: it goes aside and the store starts anew.
    QString damage;
    {
        QSqlQuery check = createNewQuery();
        if (!check.exec(QStringLiteral("PRAGMA quick_check")) || !check.next())
            damage = check.lastError().text();
        else if (check.value(0).toString() != QLatin1String("ok"))
            damage = check.value(0).toString();
    } // an open statement would lock the tables against the rebuild below
    if (!damage.isNull() && !setDamagedFileAside(damage))
        return false;
    // The working copy is thrown away after a crash, when only the scrambled
    // file of the last close counts: syncing it to disk buys nothing.
    run(QStringLiteral("PRAGMA synchronous = OFF"));
    run(QStringLiteral("PRAGMA journal_mode = MEMORY"));

    // Tables of an older shape are rebuilt rather than migrated: they hold
    // copies of server data, which the next request fills in again.
    bool needCdr = true;
    if (hasRow(CdrTableExists)) {
        QSqlQuery probe = createNewQuery();
        if (!prepareQuery(probe, QStringLiteral("SELECT callattributes FROM cdr_table LIMIT 1"))
            || !executeQuery(probe)) {
            DBLOG(100)
                << "Column callattributes not present in cdr_table, re-create it adding the missing column!";
        } else if (hasRow(QStringLiteral(
                       "SELECT 1 FROM cdr_table GROUP BY entryuid HAVING count(entryuid) > 1 LIMIT 1"))) {
            DBLOG(100) << "Duplicated entries in cdr_entry, re-create it forcing UNIQUE entryuid field!";
        } else {
            needCdr = false;
        }
    }
    // Either phone book table counts as both being there.
    const bool needPb = !hasRow(PbTablesExist);
    const bool needSms = !hasRow(SmsTableExists);

    if (needCdr) {
        DBLOG(1000) << "Dropping and re-creating cdr_table";
        run(QStringLiteral("DROP TABLE IF EXISTS cdr_table"));
        createTable(
            QStringLiteral(
                "CREATE TABLE cdr_table ( entryuid VARCHAR UNIQUE, callid VARCHAR, caller VARCHAR, "
                "callername VARCHAR, callee VARCHAR, calleename VARCHAR, direction INT, status INT, "
                "starttime VARCHAR, duration INT, callattributes VARCHAR)"),
            QStringLiteral("Error initializing SQLite db... Unable to create cdr_table table. - error:"));
        run(QStringLiteral("CREATE INDEX IF NOT EXISTS cdr_caller_idx ON cdr_table (caller)"));
        run(QStringLiteral("CREATE INDEX IF NOT EXISTS cdr_callee_idx ON cdr_table (callee)"));
    }
    if (needPb) {
        DBLOG(1000) << "Dropping and re-creating pb_table";
        run(QStringLiteral("DROP TABLE IF EXISTS pb_table"));
        createTable(
            QStringLiteral("CREATE TABLE pb_table ( id INTEGER PRIMARY KEY, type VARCHAR, account VARCHAR, "
                           "folder VARCHAR, owner VARCHAR, lasttime VARCHAR )"),
            QStringLiteral("Error initializing SQLite db... Unable to create pb_table table. - error:"));
        run(QStringLiteral("DROP TABLE IF EXISTS pbentry_table"));
        createTable(
            QStringLiteral("CREATE TABLE pbentry_table ( name VARCHAR, phone VARCHAR, mobile VARCHAR, email "
                           "VARCHAR, company VARCHAR, address VARCHAR, favourite INTEGER, pbid INTEGER )"),
            QStringLiteral("Error initializing SQLite db... Unable to create pbentry_table table. - error:"));
        run(QStringLiteral("CREATE INDEX IF NOT EXISTS pb_owner_idx ON pb_table (owner)"));
        run(QStringLiteral("CREATE INDEX IF NOT EXISTS pbentry_pbid_idx ON pbentry_table (pbid)"));
    }
    if (needSms) {
        DBLOG(1000) << "Dropping and re-creating sms_table";
        run(QStringLiteral("DROP TABLE IF EXISTS sms_table"));
        if (!run(QStringLiteral(
                "CREATE TABLE sms_table ( caller VARCHAR, callee VARCHAR, body VARCHAR, sendtime "
                "VARCHAR )")))
            DBLOG(10) << "Error initializing SQLite db... Unable to create sms_table table.";
        run(QStringLiteral("CREATE INDEX IF NOT EXISTS sms_caller_idx ON sms_table (caller)"));
        run(QStringLiteral("CREATE INDEX IF NOT EXISTS sms_callee_idx ON sms_table (callee)"));
    }

    bool ok = true;
    if (!hasRow(CdrTableExists)) {
        qWarning() << Q_FUNC_INFO << "Creation of cdr_table is failed!";
        ok = false;
    }
    if (!hasRow(PbTablesExist)) {
        qWarning() << Q_FUNC_INFO << "Creation of pb_table/pbentry_table is failed!";
        ok = false;
    }
    if (!hasRow(SmsTableExists)) {
        qWarning() << Q_FUNC_INFO << "Creation of sms_table is failed!";
        ok = false;
    }
    return ok;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::close()
{
    closeDbConn();
    const bool encrypted = encryptDb();
    if (!encrypted)
        DBLOG(100) << "Unable to encrypt SQLite db...";
    return encrypted;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::deleteDataOlderThan(const QDateTime& minDate)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    const QString minText = isoText(minDate);
    bool ok = true;
    QSqlQuery cdr = createNewQuery();
    if (!prepareQuery(cdr, QStringLiteral("DELETE FROM cdr_table WHERE starttime < :mindate"))) {
        ok = false;
    } else {
        cdr.bindValue(QStringLiteral(":mindate"), minText);
        if (!executeQuery(cdr))
            ok = false;
    }
    if (!ok)
        DBLOG(10) << "Error deleting CDR entries from SQLite db...";

    QSqlQuery sms = createNewQuery();
    bool smsOk = prepareQuery(sms, QStringLiteral("DELETE FROM sms_table WHERE sendtime < :mindate"));
    if (smsOk) {
        sms.bindValue(QStringLiteral(":mindate"), minText);
        smsOk = executeQuery(sms);
    }
    if (!smsOk)
        DBLOG(10) << "Error deleting SMS entries from SQLite db...";
    return ok && smsOk;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::getLastEntryUid(QString& uid, const QString& exten)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    QSqlQuery query = createNewQuery();
    if (!prepareQuery(
            query,
            QStringLiteral("SELECT max(entryuid) FROM cdr_table WHERE caller = :exten OR callee = :exten"))) {
        DBLOG(10) << "Error retrieving last CDR entry UID from SQLite db... user:" << exten
                  << "- error:" << lastErrorText();
        return false;
    }
    query.bindValue(QStringLiteral(":exten"), exten);
    if (!executeQuery(query)) {
        DBLOG(10) << "Error retrieving last CDR entry UID from SQLite db... user:" << exten
                  << "- error:" << lastErrorText();
        return false;
    }
    if (query.next())
        uid = query.value(0).toString();
    return true;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::getLastPhoneBookTime(QDateTime& time,
                                                                         const QString& exten)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    QSqlQuery query = createNewQuery();
    bool ok = prepareQuery(query, QStringLiteral("SELECT max(lasttime) FROM pb_table WHERE owner = :exten"));
    if (ok) {
        query.bindValue(QStringLiteral(":exten"), exten);
        ok = executeQuery(query);
    }
    if (!ok) {
        DBLOG(10) << "Error retrieving last PB time from SQLite db... user:" << exten
                  << "- error:" << lastErrorText();
        return false;
    }
    if (query.next())
        time = QDateTime::fromString(query.value(0).toString(), TELVIX::IsoDateNoTz);
    return true;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::getLastSmsTime(QDateTime& time, const QString& exten)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    QSqlQuery query = createNewQuery();
    bool ok = prepareQuery(
        query,
        QStringLiteral("SELECT max(sendtime) FROM sms_table WHERE caller = :exten OR callee = :exten"));
    if (ok) {
        query.bindValue(QStringLiteral(":exten"), exten);
        ok = executeQuery(query);
    }
    if (!ok) {
        DBLOG(10) << "Error retrieving last SMS entry time from SQLite db... user:" << exten
                  << "- error:" << lastErrorText();
        return false;
    }
    if (query.next())
        time = QDateTime::fromString(query.value(0).toString(), TELVIX::IsoDateNoTz);
    return true;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::saveSmsEntries(const QList<SmsEntry>& list,
                                                                   const QString& exten)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    QSqlQuery query = createNewQuery();
    bool ok = prepareQuery(query,
                           QStringLiteral("INSERT INTO sms_table (caller, callee, body, sendtime) VALUES "
                                          "(:caller, :callee, :body, :sendtime)"));
    Batch batch(m_db);
    for (const SmsEntry& entry : list) {
        if (!ok)
            break;
        query.bindValue(QStringLiteral(":caller"), exten);
        query.bindValue(QStringLiteral(":callee"), entry.number);
        query.bindValue(QStringLiteral(":body"), entry.body);
        query.bindValue(QStringLiteral(":sendtime"), entry.sendTime);
        ok = executeQuery(query);
    }
    const bool committed = batch.commit();
    if (!ok || !committed)
        DBLOG(10) << "Error storing SMS entries into SQLite db... user:" << exten
                  << "- error:" << (ok ? batch.error() : lastErrorText());
    return ok && committed;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::getSmsEntries(QList<SmsEntry>& list, const QString& exten)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    QSqlQuery query = createNewQuery();
    query.setForwardOnly(true);
    bool ok = prepareQuery(query,
                           QStringLiteral("SELECT caller, callee, body, sendtime FROM sms_table WHERE caller "
                                          "= :exten OR callee = :exten ORDER BY sendtime ASC"));
    if (ok) {
        query.bindValue(QStringLiteral(":exten"), exten);
        ok = executeQuery(query);
    }
    if (!ok) {
        DBLOG(10) << "Error retrieving SMS entries from SQLite db... user:" << exten
                  << "- error:" << lastErrorText();
        return false;
    }
    // Rows go after what the list holds already: a read after a write
    // repeats the older rows. Callers rely on the list as it stands.
    while (query.next()) {
        SmsEntry entry;
        const QString caller = query.value(0).toString();
        entry.number = caller == exten ? query.value(1).toString() : caller;
        entry.body = query.value(2).toString();
        entry.sendTime = query.value(3).toString();
        list.append(entry);
    }
    return true;
}

int PersistenceSqlite::PersistenceSqliteDbHandler::saveCdrEntries(const Cdr& cdr, const QString& lastEntryUid,
                                                                  const QString& localNum)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return 0;
    }
    QSqlQuery query = createNewQuery();
    if (!prepareQuery(
            query,
            QStringLiteral("INSERT INTO cdr_table (callid, caller, callername, callee, calleename, "
                           "direction, status, starttime, duration, entryuid, callattributes) VALUES "
                           "(:callid, :caller, :callername, :callee, :calleename, :direction, "
                           ":status, :starttime, :duration, :entryuid, :callattributes)"))) {
        DBLOG(10) << "Error storing entries into SQLite db... user:" << localNum
                  << "- error:" << lastErrorText();
        return 0;
    }
    Batch batch(m_db);
    int written = 0;
    for (const CdrEntry& entry : cdr) {
        if (entry.caller != localNum && entry.callee != localNum) {
            DBLOG(100) << QStringLiteral("filtering out CdrEntry not related to localNum - entryuid: ")
                    + entry.entryUid + QStringLiteral(" callid: ") + entry.callId
                    + QStringLiteral(" caller: ") + entry.caller + QStringLiteral(" callee: ") + entry.callee;
            continue;
        }
        if (!(lastEntryUid < entry.entryUid)) {
            DBLOG(100) << QStringLiteral(
                              "filtering out CdrEntry having entryuid older than last one stored - "
                              "lastEntryUid: ")
                    + lastEntryUid + QStringLiteral(" >= entryuid: ") + entry.entryUid
                    + QStringLiteral(" callid: ") + entry.callId;
            continue;
        }
        query.bindValue(QStringLiteral(":callid"), entry.callId);
        query.bindValue(QStringLiteral(":caller"), entry.caller);
        query.bindValue(QStringLiteral(":callername"), entry.callerName);
        query.bindValue(QStringLiteral(":callee"), entry.callee);
        query.bindValue(QStringLiteral(":calleename"), entry.calleeName);
        query.bindValue(QStringLiteral(":direction"), entry.direction);
        query.bindValue(QStringLiteral(":status"), entry.status);
        query.bindValue(QStringLiteral(":starttime"), entry.startTime);
        query.bindValue(QStringLiteral(":duration"), entry.duration);
        query.bindValue(QStringLiteral(":entryuid"), entry.entryUid);
        query.bindValue(QStringLiteral(":callattributes"), TELVIX::getCallAttributeString(entry.attributes));
        if (executeQuery(query))
            ++written;
        else
            DBLOG(10) << "Error storing entries into SQLite db... user:" << localNum
                      << "- error:" << lastErrorText();
    }
    if (!batch.commit()) {
        DBLOG(10) << "Error storing entries into SQLite db... user:" << localNum
                  << "- error:" << batch.error();
        return 0;
    }
    // The connection stays open until close().
    return written;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::getCdrEntries(Cdr& cdr, const QString& exten)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    QSqlQuery query = createNewQuery();
    // Rows are read once, in order: a scrollable query would keep a copy of
    // each in the driver.
    query.setForwardOnly(true);
    bool ok = prepareQuery(query,
                           QStringLiteral("SELECT callid, caller, callername, callee, calleename, direction, "
                                          "status, starttime, duration, entryuid, callattributes FROM "
                                          "cdr_table WHERE caller = :exten OR callee = :exten ORDER BY "
                                          "entryuid ASC"));
    if (ok) {
        query.bindValue(QStringLiteral(":exten"), exten);
        ok = executeQuery(query);
    }
    if (!ok) {
        DBLOG(10) << "Error retrieving entries from SQLite db... user:" << exten
                  << "- error:" << lastErrorText();
        return false;
    }
    Cdr rows;
    while (query.next()) {
        CdrEntry entry;
        entry.callId = query.value(0).toString();
        entry.caller = query.value(1).toString();
        entry.callerName = query.value(2).toString();
        entry.callee = query.value(3).toString();
        entry.calleeName = query.value(4).toString();
        entry.direction = query.value(5).toInt();
        entry.status = query.value(6).toInt();
        entry.startTime = query.value(7).toString();
        entry.duration = query.value(8).toInt();
        entry.entryUid = query.value(9).toString();
        entry.attributes = TELVIX::getCallAttributeValue(query.value(10).toString());
        // Direction, status, side and result texts as seen from `exten`.
        entry.updateInfo(exten);
        rows.append(entry);
    }
    cdr = rows;
    return true;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::getPhoneBookEntries(QList<PhoneBook>& books,
                                                                        const QString& exten)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    // pb_table has no `name` column, so this fails on every store of the
    // present schema and the phone book is in effect write-only. Kept as it
    // is: reading it back would hand the application books it never asked
    // the server for.
    QSqlQuery list = createNewQuery();
    bool ok = prepareQuery(list, QStringLiteral("SELECT id, name FROM pb_table WHERE owner = :exten"));
    if (ok) {
        list.bindValue(QStringLiteral(":exten"), exten);
        ok = executeQuery(list);
    }
    if (!ok) {
        DBLOG(10) << "Error retrieving PB list from SQLite db... user:" << exten
                  << "- error:" << lastErrorText();
        return false;
    }
    // Books go after those the list holds already, as the SMS rows do.
    while (list.next()) {
        PhoneBook book;
        const qint64 id = list.value(0).toLongLong();
        book.name = list.value(1).toString();
        QSqlQuery entries = createNewQuery();
        bool entriesOk
            = prepareQuery(entries,
                           QStringLiteral("SELECT name, phone, mobile, email, address, favourite "
                                          "FROM pbentry_table WHERE pbid = :pbid ORDER BY name ASC"));
        if (entriesOk) {
            entries.bindValue(QStringLiteral(":pbid"), id);
            entriesOk = executeQuery(entries);
        }
        if (!entriesOk) {
            DBLOG(10) << "Error retrieving PB entries from SQLite db... user:" << exten
                      << "- error:" << lastErrorText();
            return false;
        }
        while (entries.next()) {
            PhoneBookEntry entry;
            entry.displayName = entries.value(0).toString();
            entry.workNumber = entries.value(1).toString();
            entry.mobileNumber = entries.value(2).toString();
            entry.email = entries.value(3).toString();
            entry.address = entries.value(4).toString();
            book.entries.append(entry);
        }
        books.append(book);
    }
    return true;
}

bool PersistenceSqlite::PersistenceSqliteDbHandler::savePhoneBookEntries(const QList<PhoneBook>& books,
                                                                         const QString& exten)
{
    if (!openDbConn()) {
        DBLOG(10) << NoConnection;
        return false;
    }
    Batch batch(m_db);
    QSqlQuery deleteEntries = createNewQuery();
    bool ok = prepareQuery(deleteEntries,
                           QStringLiteral("DELETE FROM pbentry_table WHERE pbid IN (SELECT id FROM "
                                          "pb_table WHERE owner = :exten)"));
    if (ok) {
        deleteEntries.bindValue(QStringLiteral(":exten"), exten);
        ok = executeQuery(deleteEntries);
    }
    if (!ok) {
        DBLOG(10) << "Error deleting PB entries from SQLite db... user:" << exten
                  << "- error:" << lastErrorText();
        return false;
    }
    QSqlQuery deleteBooks = createNewQuery();
    ok = prepareQuery(deleteBooks, QStringLiteral("DELETE FROM pb_table WHERE owner = :exten"));
    if (ok) {
        deleteBooks.bindValue(QStringLiteral(":exten"), exten);
        ok = executeQuery(deleteBooks);
    }
    if (!ok) {
        DBLOG(10) << "Error deleting PBs from SQLite db... user:" << exten << "- error:" << lastErrorText();
        return false;
    }

    QSqlQuery insertBook = createNewQuery();
    QSqlQuery insertEntry = createNewQuery();
    if (!prepareQuery(insertBook,
                      QStringLiteral("INSERT INTO pb_table (type, account, folder, owner, lasttime) VALUES "
                                     "(:type, :account, :folder, :exten, :lasttime)"))) {
        DBLOG(10) << "Error storing PBs into SQLite db... user:" << exten << "- error:" << lastErrorText();
        return false;
    }
    if (!prepareQuery(insertEntry,
                      QStringLiteral("INSERT INTO pbentry_table (name, phone, mobile, email, address, "
                                     "favourite, pbid) VALUES (:name, :phone, :mobile, :email, "
                                     ":address, :favourite, :pbid)"))) {
        DBLOG(10) << "Error storing PB entries into SQLite db... user:" << exten
                  << "- error:" << lastErrorText();
        return false;
    }
    for (const PhoneBook& book : books) {
        insertBook.bindValue(QStringLiteral(":type"), book.type);
        insertBook.bindValue(QStringLiteral(":account"), book.name);
        insertBook.bindValue(QStringLiteral(":folder"), book.folder);
        insertBook.bindValue(QStringLiteral(":exten"), exten);
        // The time of a book is never known here; the column stays empty.
        insertBook.bindValue(QStringLiteral(":lasttime"), QStringLiteral(""));
        if (!executeQuery(insertBook)) {
            DBLOG(10) << "Error storing PBs into SQLite db... user:" << exten
                      << "- error:" << lastErrorText();
            return false;
        }
        const QVariant pbid = insertBook.lastInsertId();
        for (const PhoneBookEntry& entry : book.entries) {
            insertEntry.bindValue(QStringLiteral(":name"), entry.displayName);
            insertEntry.bindValue(QStringLiteral(":phone"), entry.workNumber);
            insertEntry.bindValue(QStringLiteral(":mobile"), entry.mobileNumber);
            insertEntry.bindValue(QStringLiteral(":email"), entry.email);
            insertEntry.bindValue(QStringLiteral(":address"), entry.address);
            // Phone book entries carry no favourite mark; favourites live in
            // their own file.
            insertEntry.bindValue(QStringLiteral(":favourite"), 0);
            insertEntry.bindValue(QStringLiteral(":pbid"), pbid);
            if (!executeQuery(insertEntry)) {
                DBLOG(10) << "Error storing PB entries into SQLite db... user:" << exten
                          << "- error:" << lastErrorText();
                return false;
            }
        }
    }
    if (!batch.commit()) {
        DBLOG(10) << "Error storing PB entries into SQLite db... user:" << exten
                  << "- error:" << batch.error();
        return false;
    }
    return true;
}

// ---- PersistenceSqlite --------------------------------------------------

PersistenceSqlite::PersistenceSqlite(const QString& path, const QString& exten)
    : dbPath(path)
    , localExten(exten)
{
    const QFileInfo file(dbPath);
    const QString dir = file.absolutePath();
    dbConfig.driver = LXDBHANDLER::SQLITE;
    dbConfig.host = dir;
    dbConfig.dbName = file.fileName();
    dbConfig.loggerName = QStringLiteral("LXDBH");
    dbConfig.logFile = dir + QStringLiteral("/telvixDbLog.txt");
    dbConfig.logLevel = 1000;

    logger = makeFileLogger(dbConfig.loggerName, QStringLiteral("PERSISTENCE"), dbConfig.logFile,
                            dbConfig.logWriterConfig, QString(), dbConfig.logLevel);

    // A store that cannot be opened works empty: no history, no harm.
    open();
}

PersistenceSqlite::~PersistenceSqlite()
{
    close();
    // Deleted at once, with its open log file: a store usually goes while its
    // thread winds down or has no event loop, when a deferred deletion would
    // never be delivered and every store made would keep a descriptor.
    delete logger;
    logger = nullptr;
}

bool PersistenceSqlite::open()
{
    if (!handler)
        handler = new PersistenceSqliteDbHandler(dbConfig);
    if (!handler->open()) {
        PLOG(100) << "Failed to initilize persistence db. Trying again after dropping existent files...";
        handler->deleteFiles();
        if (!handler->open()) {
            PLOG(10) << QStringLiteral("Persistence db ") + dbConfig.host + QLatin1Char('/') + dbConfig.dbName
                    + QStringLiteral(" cannot be opened: the session goes on without stored history");
            delete handler;
            handler = nullptr;
            return false;
        }
    }
    deleteOldData();
    updateLastCdrEntryUid();
    updateLastPbTime();
    updateLastSmsTime();
    return true;
}

void PersistenceSqlite::close()
{
    if (!handler)
        return;
    handler->close();
    delete handler;
    handler = nullptr;
}

bool PersistenceSqlite::deleteOldData()
{
    const QDateTime minDate = QDateTime::currentDateTime().addMonths(-1);
    PLOG(1000) << "Deleting data older than" << isoText(minDate) << "...";
    if (!handler)
        return false;
    return handler->deleteDataOlderThan(minDate);
}

template <typename Read> bool PersistenceSqlite::refresh(bool& dirty, Read read)
{
    if (!dirty)
        return true;
    if (!handler || !read())
        return false;
    dirty = false;
    return true;
}

template <typename Save, typename Saved>
bool PersistenceSqlite::store(bool empty, bool& dirty, Save save, Saved saved)
{
    if (empty)
        return true;
    if (!handler || !save())
        return false;
    dirty = true;
    saved();
    return true;
}

bool PersistenceSqlite::readCdr()
{
    return refresh(cdrDirty, [this] { return handler->getCdrEntries(m_cdr, localExten); });
}

bool PersistenceSqlite::writeCdr(const Cdr& entries)
{
    if (entries.isEmpty()) {
        PLOG(10000) << "Entry list is empty, nothing to write";
        return true;
    }
    if (!handler) {
        PLOG(10) << "Persistence Db handler not initialized! Cannot write Cdr entries";
        return false;
    }
    const int written = handler->saveCdrEntries(entries, m_lastCdrEntryUid, localExten);
    // Filtered entries count as not written: an answer that repeats stored
    // entries gives this line and a false result without any fault.
    if (written != entries.size())
        PLOG(100) << "Errors occurred in writing entries to persistence Db. Written" << written << "of"
                  << entries.size() << "entries";
    if (written > 0) {
        cdrDirty = true;
        updateLastCdrEntryUid();
    }
    return written == entries.size();
}

bool PersistenceSqlite::readPhoneBook()
{
    return refresh(phoneBookDirty, [this] { return handler->getPhoneBookEntries(m_phoneBook, localExten); });
}

bool PersistenceSqlite::writePhoneBook(const QList<PhoneBook>& books)
{
    // The phone book keeps no time of its own (see updateLastPbTime): what
    // follows a save is the history's update, as it always was.
    return store(
        books.isEmpty(), phoneBookDirty, [&] { return handler->savePhoneBookEntries(books, localExten); },
        [this] { updateLastCdrEntryUid(); });
}

bool PersistenceSqlite::readSmsList()
{
    return refresh(smsDirty, [this] { return handler->getSmsEntries(m_smsList, localExten); });
}

bool PersistenceSqlite::writeSmsList(const QList<SmsEntry>& list)
{
    return store(
        list.isEmpty(), smsDirty, [&] { return handler->saveSmsEntries(list, localExten); },
        [this] { updateLastSmsTime(); });
}

void PersistenceSqlite::updateLastCdrEntryUid()
{
    if (!cdrDirty || !handler)
        return;
    QString uid;
    if (handler->getLastEntryUid(uid, localExten))
        setLastCdrEntryUid(uid);
}

void PersistenceSqlite::updateLastPbTime()
{
    // Phone books are fetched whole each time: no time to track.
}

void PersistenceSqlite::updateLastSmsTime()
{
    if (!smsDirty || !handler)
        return;
    QDateTime time;
    if (handler->getLastSmsTime(time, localExten))
        setLastSmsTime(time);
}
