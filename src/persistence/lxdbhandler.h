#pragma once

#include "telvix_export.h"

#include <logbus.h>

#include <QMetaType>
#include <QObject>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>

namespace LXDBHANDLER {
inline const QString MYSQL = QStringLiteral("QMYSQL");
inline const QString PSQL = QStringLiteral("QPSQL");
inline const QString SQLITE = QStringLiteral("QSQLITE");
} // namespace LXDBHANDLER

/// \brief Everything a database handler needs: the connection and its log.
class TELVIX_EXPORT DbhConfig
{
    Q_GADGET
    Q_PROPERTY(QString driver MEMBER driver)
    Q_PROPERTY(QString connectionName MEMBER connectionName)
    Q_PROPERTY(QString timezone MEMBER timezone)
    Q_PROPERTY(QString user MEMBER user)
    Q_PROPERTY(QString password MEMBER password)
    Q_PROPERTY(QString dbName MEMBER dbName)
    Q_PROPERTY(QString host MEMBER host)
    Q_PROPERTY(int port MEMBER port)
    Q_PROPERTY(QString loggerName MEMBER loggerName)
    Q_PROPERTY(QString logFile MEMBER logFile)
    Q_PROPERTY(int logLevel MEMBER logLevel)

public:
    /// Qt driver name.
    QString driver = LXDBHANDLER::PSQL;
    /// Empty asks for a generated, unique name.
    QString connectionName;
    /// Text of the time-zone statement run after each open.
    QString timezone;
    QString user;
    QString password;
    /// Database name; for SQLite the file name.
    QString dbName;
    /// Host name; the scrambled SQLite handler takes it as the file's directory.
    QString host;
    int port = 5432;
    /// Name of the Logbus instance that makes the log writer.
    QString loggerName = QStringLiteral("LXDBH");
    QString logFile = QStringLiteral("LXDBH.log");
    /// Not a property: the logging library's type has no comparison.
    WriterConfig logWriterConfig;
    /// Accepted verbosity level of the handler's logger.
    int logLevel = 1000;
};

Q_DECLARE_METATYPE(DbhConfig)

/// \brief A thin layer over one named QSqlDatabase connection that logs every
/// failure and remembers the last error.
///
/// A handler belongs to the thread that made it, as QSqlDatabase demands.
class TELVIX_EXPORT LxBaseDbHandler : public QObject
{
    Q_OBJECT

public:
    enum ErrorType { NoError = 0, ConnectError = 1, CommitError = 2, PrepareError = 3, ExecuteError = 4 };
    Q_ENUM(ErrorType)

    /// Adds the connection; opens nothing.
    explicit LxBaseDbHandler(const DbhConfig& config, QObject* parent = nullptr);
    ~LxBaseDbHandler() override;

    /// Opens the connection unless it is open already, then runs the
    /// time-zone statement.
    bool openDbConn();
    void closeDbConn();

    QSqlQuery createNewQuery();
    bool prepareQuery(QSqlQuery& query, const QString& statement);
    bool executeQuery(QSqlQuery& query);

    /// Whether the database can be opened; never creates a missing SQLite file.
    bool testConnection();

    /// Ends a successful transaction and the connection's open period.
    void commitAndClose(const QString& name);
    /// Ends a failed transaction and the connection's open period.
    void rollbackAndClose(const QString& name);

    QString connectionName() const { return m_connectionName; }
    QSqlDatabase database() const { return m_db; }
    /// Text of the last failure; null after a success.
    QString lastErrorText() const { return m_lastErrorText; }
    ErrorType lastErrorType() const { return m_lastErrorType; }

protected:
    void setError(ErrorType type, const QString& text);
    void resetError();

    QString m_driver;
    QString m_connectionName;
    QString m_timezone;
    QString m_user;
    QString m_password;
    QString m_dbName;
    QString m_host;
    int m_port;
    QString m_loggerName;
    QString m_logFile;
    WriterConfig m_logWriterConfig;
    int m_logLevel;

    QSqlDatabase m_db;
    /// Null when the log file could not be made; lines are then dropped.
    Logger* m_logger = nullptr;
    QString m_lastErrorText;
    ErrorType m_lastErrorType = NoError;
};
