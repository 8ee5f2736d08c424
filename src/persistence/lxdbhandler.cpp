#include "lxdbhandler.h"

#include "telvixlog_p.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>
#include <QSqlError>
#include <QUuid>

#define DBLOG(priority) TelvixLogLine(m_logger, priority, Q_FUNC_INFO)

namespace {
void registerDbhTypes()
{
    qRegisterMetaType<DbhConfig>("DbhConfig");
}
} // namespace

Q_CONSTRUCTOR_FUNCTION(registerDbhTypes)

LxBaseDbHandler::LxBaseDbHandler(const DbhConfig& config, QObject* parent)
    : QObject(parent)
    , m_driver(config.driver)
    , m_connectionName(config.connectionName)
    , m_timezone(config.timezone)
    , m_user(config.user)
    , m_password(config.password)
    , m_dbName(config.dbName)
    , m_host(config.host)
    , m_port(config.port)
    , m_loggerName(config.loggerName)
    , m_logFile(config.logFile)
    , m_logWriterConfig(config.logWriterConfig)
    , m_logLevel(config.logLevel)
{
    m_logger = makeFileLogger(m_loggerName, QStringLiteral("DB"), m_logFile, m_logWriterConfig, QString(),
                              m_logLevel);
    if (!m_logger)
        qWarning() << "Cannot create the database log file" << m_logFile;

    // Several handlers of one database must never share a connection.
    if (m_connectionName.isEmpty())
        m_connectionName
            = m_driver + QLatin1Char('_') + m_dbName + QLatin1Char('_') + QUuid::createUuid().toString();

    // A missing SQL plug-in is the usual cause of failure: show where they
    // were looked for and what was found.
    const QStringList libraryPaths = QCoreApplication::libraryPaths();
    for (const QString& path : libraryPaths)
        DBLOG(1000) << QStringLiteral("library path: ") + path;
    const QStringList drivers = QSqlDatabase::drivers();
    for (const QString& name : drivers)
        DBLOG(1000) << QStringLiteral("library path: ") + name;

    m_db = QSqlDatabase::addDatabase(m_driver, m_connectionName);
    m_db.setHostName(m_host);
    m_db.setPort(m_port);
    m_db.setDatabaseName(m_dbName);
    m_db.setUserName(m_user);
    m_db.setPassword(m_password);
}

LxBaseDbHandler::~LxBaseDbHandler()
{
    // removeDatabase wants no copy of the connection left alive.
    m_db = QSqlDatabase();
    QSqlDatabase::removeDatabase(m_connectionName);
    delete m_logger;
}

void LxBaseDbHandler::setError(ErrorType type, const QString& text)
{
    m_lastErrorType = type;
    m_lastErrorText = text;
}

void LxBaseDbHandler::resetError()
{
    m_lastErrorType = NoError;
    m_lastErrorText = QString();
}

bool LxBaseDbHandler::openDbConn()
{
    resetError();
    if (m_db.isOpen()) {
        if (m_db.isValid())
            return true;
        m_db.close();
        DBLOG(10) << "Database was INVALID but OPEN! -> Closing";
    }
    if (!m_db.open()) {
        setError(ConnectError, m_db.lastError().text());
        DBLOG(10) << QStringLiteral("------ DB ERROR: ") + m_lastErrorText;
        return false;
    }
    // Drivers without time zones (SQLite) refuse the statement, to no harm.
    QSqlQuery statement(m_db);
    statement.exec(QStringLiteral("set timezone to '") + m_timezone + QLatin1Char('\''));
    return true;
}

void LxBaseDbHandler::closeDbConn()
{
    if (!m_db.isOpen())
        DBLOG(10) << "Database was NOT OPEN! -> Closing anyway";
    m_db.close();
}

QSqlQuery LxBaseDbHandler::createNewQuery()
{
    return QSqlQuery(m_db);
}

bool LxBaseDbHandler::prepareQuery(QSqlQuery& query, const QString& statement)
{
    resetError();
    const bool ok = query.prepare(statement);
    if (!ok) {
        setError(PrepareError, query.lastError().text());
        DBLOG(10) << "PREPARE QUERY ERROR - got error: " << m_lastErrorText << " for query ("
                  << query.lastQuery() << ")";
    }
    return ok;
}

bool LxBaseDbHandler::executeQuery(QSqlQuery& query)
{
    resetError();
    const bool ok = query.exec();
    if (!ok) {
        setError(ExecuteError, query.lastError().text());
        DBLOG(10) << "EXECUTE QUERY ERROR - got error: " << m_lastErrorText << " for query ("
                  << query.lastQuery() << ")";
    }
    return ok;
}

bool LxBaseDbHandler::testConnection()
{
    // Opening a missing SQLite file would create it. The connection's own
    // name is checked: a derived handler may point it at a working copy.
    if (m_driver == LXDBHANDLER::SQLITE && !QFileInfo::exists(m_db.databaseName()))
        return false;
    if (!openDbConn())
        return false;
    closeDbConn();
    return true;
}

void LxBaseDbHandler::commitAndClose(const QString& name)
{
    resetError();
    if (!m_db.commit()) {
        setError(CommitError, m_db.lastError().text());
        DBLOG(10) << "Transaction " << name << " commit failed";
    }
    closeDbConn();
}

void LxBaseDbHandler::rollbackAndClose(const QString& name)
{
    DBLOG(10) << "Query" << name << "failed... rolling back transaction";
    m_db.rollback();
    closeDbConn();
}
