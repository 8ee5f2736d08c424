#pragma once

#include "telvix_const.h"

#include <QString>
#include <QStringList>

/// \brief What telvix-cli was asked to do on its command line.
struct CliOptions
{
    QString host = QStringLiteral("127.0.0.1");
    quint16 port = 5039;
    QString user;
    QString password;
    QString domain;
    TELVIX::AppMode mode = TELVIX::AppModeSrntPro;
    /// Given as it is to the library, which takes an empty one as its
    /// working directory.
    QString dataDir;
    /// No --data-dir: a temporary directory removed at exit.
    bool tempDataDir = true;
    /// Bring lost sessions back with a TelvixReconnector.
    bool reconnect = false;
    bool verifyTls = false;
    bool localServer = false;
    bool dump = false;
    QString osType;
    QString osVersion;
    QString swType;
    QString swVersion;
    QString deviceId;
    bool json = false;

    enum class Outcome { Run, Help, Invalid };
    /// Reads `arguments` (program name first). On Help `message` is the
    /// usage text; on Invalid, what is wrong.
    static Outcome parse(const QStringList& arguments, CliOptions* options, QString* message);
};
