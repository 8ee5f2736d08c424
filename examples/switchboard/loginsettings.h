#pragma once

#include "telvix_const.h"

#include <QString>

/// What a login needs. The defaults reach the bundled simulator
/// (telvix-pbx-sim) on its default port as Anna Rossi.
struct LoginSettings
{
    QString host = QStringLiteral("127.0.0.1");
    quint16 port = 5039;
    QString user = QStringLiteral("1000");
    QString password = QStringLiteral("1000");
    QString domain;
    /// A desktop mode: the window listens to the record forms of the call
    /// signals, which the mobile modes do not raise.
    TELVIX::AppMode mode = TELVIX::AppModeSrntPro;
    /// The simulator presents a self-signed test certificate; a real PBX
    /// should be verified.
    bool verifyTls = false;
};
