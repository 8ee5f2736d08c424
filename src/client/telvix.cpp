#include "telvix_p.h"

#include "sarnetxml.h"
#include "simplexmlparser.h"
#include "telvix_version.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QSslSocket>
#include <QTimer>

namespace {
// QCoreApplication keeps references to argc and argv for its whole life.
int g_ownAppArgc = 1;
char g_ownAppName[] = "TelvixApplication";
char* g_ownAppArgv[] = {g_ownAppName, nullptr};

bool identityIncomplete(const QString& osType, const QString& osVersion, const QString& swType,
                        const QString& swVersion)
{
    return osType.isEmpty() || osVersion.isEmpty() || swType.isEmpty() || swVersion.isEmpty();
}
} // namespace

TelvixPrivate::TelvixPrivate(Telvix* q)
    : q_ptr(q)
{
}

TelvixPrivate::~TelvixPrivate() = default;

Telvix::Telvix(const QString& osType, const QString& osVersion, const QString& swType,
               const QString& swVersion, const QString& deviceId, const QString& dataDir)
    : d_ptr(new TelvixPrivate(this))
{
    Q_D(Telvix);
    d->osType = osType;
    d->osVersion = osVersion;
    d->swType = swType;
    d->swVersion = swVersion;
    d->deviceId = deviceId;
    d->dataDir = dataDir.isEmpty() ? QStringLiteral(".") : dataDir;
    d->externalApplication = QCoreApplication::instance() != nullptr;

    if (identityIncomplete(osType, osVersion, swType, swVersion))
        qWarning() << "OS and/or SW info are missing!";
    if (deviceId.isEmpty())
        qWarning() << "deviceId is missing!";

    setObjectName(QStringLiteral("TelvixThread"));

    qDebug() << "SSL supported:" << QSslSocket::supportsSsl()
             << "- build version:" << QSslSocket::sslLibraryBuildVersionString()
             << "- runtime version:" << QSslSocket::sslLibraryVersionString();
}

Telvix::~Telvix()
{
    Q_D(Telvix);
    if (isRunning() && QThread::currentThread() != this) {
        // Destroying a running QThread aborts the process; an application
        // that forgot shutdown() gets a warning instead.
        qWarning() << "Telvix destroyed without shutdown(), shutting down now";
        shutdown();
    }
    delete d->msgLogger;
    d->msgLogger = nullptr;
    delete d->logger;
    d->logger = nullptr;
}

bool Telvix::init()
{
    Q_D(Telvix);
    qDebug() << "bool Telvix::init()" << QThread::currentThread();
    start(QThread::InheritPriority);
    // The thread must exist before the object can move onto it, and run()
    // must not make children of this object before the move.
    while (!isRunning())
        QThread::msleep(1);
    qDebug() << "Now moving telvix to its own thread";
    moveToThread(this);
    d->movedToThread.release();
    d->setUpDone.acquire();
    return true;
}

void Telvix::run()
{
    Q_D(Telvix);
    d->movedToThread.acquire();
    if (!d->externalApplication) {
        qDebug() << "Creating new QCoreApplication";
        d->ownApplication = new QCoreApplication(g_ownAppArgc, g_ownAppArgv);
    }
    d->runSetUp();

    Q_EMIT sigThreadStarted();
    d->threadStarted = true;
    d->setUpDone.release();

    if (d->ownApplication) {
        QCoreApplication::exec();
        delete d->ownApplication;
        d->ownApplication = nullptr;
    } else {
        exec();
    }
}

void TelvixPrivate::runSetUp()
{
    Q_Q(Telvix);
    initLogger(dataDir + QStringLiteral("/telvixLog.txt"));

    if (identityIncomplete(osType, osVersion, swType, swVersion))
        TLOG(100) << "OS and/or SW info are not set";
    if (deviceId.isEmpty())
        TLOG(100) << "deviceId is not set";
    TLOG(1000) << "SSL supported:" << QSslSocket::supportsSsl()
               << "- build version:" << QSslSocket::sslLibraryBuildVersionString()
               << "- runtime version:" << QSslSocket::sslLibraryVersionString();

    keepAliveTimer = new QTimer(q);
    keepAliveAckTimer = new QTimer(q);
    keepAliveAckTimer->setSingleShot(true);
    guiKeepAliveTimer = new QTimer(q);
    periodicDataTimer = new QTimer(q);
    phoneBookTimer = new QTimer(q);
    phoneBookTimer->setSingleShot(true);

    const bool timersConnected
        = QObject::connect(keepAliveTimer, &QTimer::timeout, q, [this] { sendKeepAlive(); })
        && QObject::connect(keepAliveAckTimer, &QTimer::timeout, q, [this] { connectionTimedout(); })
        && QObject::connect(guiKeepAliveTimer, &QTimer::timeout, q, [this] { sendGuiKeepAlive(); })
        && QObject::connect(periodicDataTimer, &QTimer::timeout, q, [this] { getPeriodicData(); })
        && QObject::connect(phoneBookTimer, &QTimer::timeout, q, [this] { getPhoneBook(); });
    if (!timersConnected)
        qCritical() << "signal-slot connection failed!";

    parser = new SimpleXmlParser(nullptr);
    parser->rootTag = SARNET_XML::S_XMLTAG_ROOT;
    if (!QObject::connect(parser, &SimpleXmlParser::messageCompleted, q, [this] { handleServerMessages(); }))
        qCritical() << "signal-slot connection failed!";

    ccRole = TELVIX::CallCenterRole(0);
    features = 0;
}

void Telvix::onThreadStarted()
{
    Q_D(Telvix);
    {
        Logger* logger = d->logger;
        TLOG(10000) << "Thread started";
    }
    disconnect(this, &Telvix::sigThreadStarted, this, &Telvix::onThreadStarted);
    d->threadStarted = true;
}

Logger* TelvixPrivate::makeLogger(const QString& path, bool withConsole)
{
    Logbus* bus = Logbus::instance(QStringLiteral("Default Logbus"), 0);
    bus->setTimeStampFormat(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    Logger* made = makeFileLogger(QStringLiteral("Default Logbus"), QStringLiteral("Telvix"), path,
                                  WriterConfig(), QStringLiteral("TELVIX"), 10000);
    if (!made) {
        qWarning() << "Cannot create the log file" << path;
        return nullptr;
    }
    if (withConsole) {
        int consoleResult = Logbus::DEFAULT_OK;
        const LogWriter console = bus->getConsoleWriter(LGBS::ConsoleColorScheme::defaultColorScheme(),
                                                        WriterConfig(), consoleResult);
        if (consoleResult == Logbus::DEFAULT_OK)
            bus->addWriterToLogger(made, console);
    }
    return made;
}

void TelvixPrivate::initLogger(const QString& path)
{
    logger = makeLogger(path, true);
}

void TelvixPrivate::initMsgLogger(const QString& path)
{
    msgLogger = makeLogger(path, false);
}

bool Telvix::enableMessagesDump(bool on)
{
    TELVIX_QUEUED_UNCHECKED(d->enableMessagesDump(on));
}

bool TelvixPrivate::enableMessagesDump(bool on)
{
    if (on) {
        if (!msgLogger) {
            QDir(dataDir).mkpath(QStringLiteral("msgDump"));
            initMsgLogger(dataDir + QStringLiteral("/msgDump/telvixMsg.log"));
        }
    } else if (msgLogger) {
        msgLogger->deleteLater();
        msgLogger = nullptr;
    }
    return true;
}

bool Telvix::shutdown()
{
    Q_D(Telvix);
    if (TelvixHop::onOwnThread(this))
        return d->shutdownOnThread();

    bool result = false;
    if (!isRunning()
        || !QMetaObject::invokeMethod(
            this, [d] { return d->shutdownOnThread(); }, Qt::BlockingQueuedConnection, &result)) {
        qCritical() << Q_FUNC_INFO << "invoke method failed!";
        return false;
    }
    qDebug() << "Finished, waiting for thread to be finished...";
    wait();
    qDebug() << "Thread is Finished, now we can safely delete the Telvix.";
    return result;
}

bool TelvixPrivate::shutdownOnThread()
{
    Q_Q(Telvix);
    qDebug() << Q_FUNC_INFO << "Destoying Telvix";
    TLOG(10000) << "Destroing Telvix";
    connectionState = Telvix::StateDisconnecting;

    shutdownDownloads();

    qDebug() << Q_FUNC_INFO << "Destroying socket";
    destroySocket();

    const char* const function = Q_FUNC_INFO;
    const auto stopTimer = [function](QTimer* timer, const char* line) {
        if (!timer)
            return;
        qDebug() << function << line;
        timer->stop();
        timer->deleteLater();
    };
    stopTimer(keepAliveTimer, "Stop keep alive timer");
    stopTimer(keepAliveAckTimer, "Stop keep alive ack timer");
    stopTimer(guiKeepAliveTimer, "Stop GUI keep alive timer");
    stopTimer(periodicDataTimer, "Stop periodic data update timer");
    stopTimer(phoneBookTimer, "Stop phonebook update timer");

    shutdownCollaborators();

    if (parser) {
        qDebug() << Q_FUNC_INFO << "Delete XML parser";
        QObject::disconnect(parser, nullptr, nullptr, nullptr);
        parser->deleteLater();
        parser = nullptr;
    }
    if (logger) {
        qDebug() << Q_FUNC_INFO << "Stop Logbus";
        logger->flush();
        QObject::disconnect(logger, nullptr, nullptr, nullptr);
    }

    qDebug() << Q_FUNC_INFO << "before Telvix evloop exit";
    q->exit(0);
    if (ownApplication)
        QCoreApplication::exit(0);
    qDebug() << Q_FUNC_INFO << "after Telvix evloop exit";
    return true;
}

QString Telvix::getVersion() const
{
    return QStringLiteral(TELVIX_FULL_VERSION);
}

bool Telvix::hasChatSupportBuilt() const
{
    return true;
}

bool Telvix::hasOutlookSupportBuilt() const
{
    return false;
}

bool Telvix::appModeIsMobile(TELVIX::AppMode mode)
{
    return int(mode) == 6 || int(mode) == 7;
}

bool Telvix::isInMobileAppMode() const
{
    return appModeIsMobile(d_func()->appMode);
}

int Telvix::getConnectionState() const
{
    return d_func()->connectionState;
}
