#include "simcertificate.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

namespace {

bool bothExist(const QString& certificate, const QString& key)
{
    return QFileInfo::exists(certificate) && QFileInfo::exists(key);
}

bool makeCertificate(const QString& certificate, const QString& key, QString* error)
{
    QDir().mkpath(QFileInfo(certificate).absolutePath());
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                   QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-days"),
                   QStringLiteral("3650"), QStringLiteral("-subj"),
                   QStringLiteral("/O=telvix-pbx-sim TEST CERTIFICATE/CN=127.0.0.1"),
                   QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1,DNS:localhost"),
                   QStringLiteral("-keyout"), key, QStringLiteral("-out"), certificate});
    if (!openssl.waitForFinished(60000) || openssl.exitStatus() != QProcess::NormalExit
        || openssl.exitCode() != 0) {
        *error = QStringLiteral("could not make a test certificate with openssl: %1")
                     .arg(openssl.error() == QProcess::FailedToStart
                              ? QStringLiteral("openssl not found")
                              : QString::fromLocal8Bit(openssl.readAll()));
        return false;
    }
    return true;
}

} // namespace

namespace SimCertificate {

bool locate(QString* certificate, QString* key, QString* error)
{
    if (!certificate->isEmpty() || !key->isEmpty()) {
        if (bothExist(*certificate, *key))
            return true;
        *error = QStringLiteral("--cert and --key must both name existing files");
        return false;
    }
    const QString built = QStringLiteral(TELVIX_PBXSIM_CERT_DIR);
    if (bothExist(built + QLatin1String("/pbxsim-test.crt"), built + QLatin1String("/pbxsim-test.key"))) {
        *certificate = built + QLatin1String("/pbxsim-test.crt");
        *key = built + QLatin1String("/pbxsim-test.key");
        return true;
    }
    const QString cache = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
        + QLatin1String("/telvix-pbx-sim");
    *certificate = cache + QLatin1String("/pbxsim-test.crt");
    *key = cache + QLatin1String("/pbxsim-test.key");
    return bothExist(*certificate, *key) || makeCertificate(*certificate, *key, error);
}

} // namespace SimCertificate
