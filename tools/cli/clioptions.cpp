#include "clioptions.h"

#include <QCommandLineParser>
#include <QCryptographicHash>
#include <QSysInfo>

namespace {

const char* const Commands = R"(
Commands, one per line on standard input, run as soon as they are read, also
while the client is still connecting or logging in:
  <method> <arg> ...     calls a public method of Telvix, e.g. "newCall 1001 0";
                         a QString argument is taken as typed ("quote it" when
                         it has blanks), any other is read as JSON
  help                   lists the methods
  waitFor <signal> [ms]  waits for a signal raised since the last call
                         (default 30000 ms); a script that needs the session
                         starts with "waitFor loggedToServer"
  wait <ms>              pauses the command queue
  echo <text>            prints the text
  quit                   shuts the library down and ends within 5 s, whatever
                         the server does (so does end of input); a wait or
                         waitFor before it is finished first
With --json each line is {"call": "<method>", "args": [...], "id": <any>},
answered by {"id", "call", "result"} or {"id", "error"}; every signal is printed
as {"signal", "signature", "args"}.
With --reconnect a lost session is brought back: the reconnector's signals
waiting(attempt, delayMs), reconnected(downtimeMs) and gaveUp(reason) are
printed like the client's, and the state requests made (getExtenList,
getExtenStatus, getVoicemail, queue statistics, ...) are asked again after each
reconnection.
Exit codes: 0 after quit, 1 when the login was refused or the server could not
be reached (with --reconnect: when the reconnector gave up before a first
login, e.g. on a wrong password), 2 for bad options.)";

QString defaultDeviceId()
{
    const QByteArray machine = QSysInfo::machineUniqueId();
    const QByteArray seed = machine.isEmpty() ? QSysInfo::machineHostName().toUtf8() : machine;
    return QString::fromLatin1(
        QCryptographicHash::hash("telvix-cli:" + seed, QCryptographicHash::Sha1).toHex().left(16));
}

} // namespace

CliOptions::Outcome CliOptions::parse(const QStringList& arguments, CliOptions* options, QString* message)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Command-line client of a PBX's CTI server, built on libtelvix.")
        + QLatin1String(Commands));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Shows this help."));
    const QCommandLineOption server(QStringLiteral("server"),
                                    QStringLiteral("CTI server (default 127.0.0.1:5039)."),
                                    QStringLiteral("HOST[:PORT]"));
    const QCommandLineOption user(QStringLiteral("user"), QStringLiteral("User name (required)."),
                                  QStringLiteral("USER"));
    const QCommandLineOption password(QStringLiteral("password"), QStringLiteral("Password."),
                                      QStringLiteral("PASSWORD"));
    const QCommandLineOption domain(QStringLiteral("domain"), QStringLiteral("Tenant domain."),
                                    QStringLiteral("DOMAIN"));
    const QCommandLineOption mode(
        QStringLiteral("mode"),
        QStringLiteral("Application mode: srnt_pro (default), srnt_phone, atnd_cti, "
                       "atnd_phone, srntlog, srnt_mobile, srnt_mobile_phone."),
        QStringLiteral("MODE"));
    const QCommandLineOption dataDir(
        QStringLiteral("data-dir"),
        QStringLiteral("Directory of the library's logs and files, given to it as it is: \"\" is the "
                       "working directory. Without this option: a temporary one, removed at exit."),
        QStringLiteral("DIR"));
    const QCommandLineOption reconnect(
        QStringLiteral("reconnect"),
        QStringLiteral("Reconnect after a lost session, with back-off (not after a refused login or a "
                       "logout)."));
    const QCommandLineOption verifyTls(QStringLiteral("verify-tls"),
                                       QStringLiteral("Refuse a server certificate that does not verify."));
    const QCommandLineOption localServer(QStringLiteral("local-server"),
                                         QStringLiteral("Start the local XML server and report its port."));
    const QCommandLineOption dump(QStringLiteral("dump"), QStringLiteral("Write the scrambled wire dump."));
    const QCommandLineOption osType(QStringLiteral("os-type"), QStringLiteral("OS type sent at login."),
                                    QStringLiteral("TEXT"));
    const QCommandLineOption osVersion(QStringLiteral("os-version"),
                                       QStringLiteral("OS version sent at login."), QStringLiteral("TEXT"));
    const QCommandLineOption swType(QStringLiteral("sw-type"), QStringLiteral("Software name sent at login."),
                                    QStringLiteral("TEXT"));
    const QCommandLineOption swVersion(QStringLiteral("sw-version"),
                                       QStringLiteral("Software version sent at login."),
                                       QStringLiteral("TEXT"));
    const QCommandLineOption deviceId(QStringLiteral("device-id"), QStringLiteral("Device id sent at login."),
                                      QStringLiteral("TEXT"));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("One JSON object per line, both ways."));
    parser.addOptions({help, server, user, password, domain, mode, dataDir, reconnect, verifyTls, localServer,
                       dump, osType, osVersion, swType, swVersion, deviceId, json});

    if (!parser.parse(arguments)) {
        *message = parser.errorText();
        return Outcome::Invalid;
    }
    if (parser.isSet(help)) {
        *message = parser.helpText();
        return Outcome::Help;
    }
    if (!parser.positionalArguments().isEmpty()) {
        *message = QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first());
        return Outcome::Invalid;
    }
    if (!parser.isSet(user) || parser.value(user).isEmpty()) {
        *message = QStringLiteral("--user is required");
        return Outcome::Invalid;
    }

    CliOptions o;
    if (parser.isSet(server)) {
        const QString address = parser.value(server);
        const int colon = address.lastIndexOf(QLatin1Char(':'));
        o.host = colon < 0 ? address : address.left(colon);
        if (colon >= 0) {
            bool ok = false;
            const uint port = address.mid(colon + 1).toUInt(&ok);
            if (!ok || port == 0 || port > 65535) {
                *message = QStringLiteral("bad port in --server \"%1\"").arg(address);
                return Outcome::Invalid;
            }
            o.port = quint16(port);
        }
        if (o.host.isEmpty()) {
            *message = QStringLiteral("no host in --server \"%1\"").arg(address);
            return Outcome::Invalid;
        }
    }
    if (parser.isSet(mode)) {
        o.mode = TELVIX::appModeFromString(parser.value(mode));
        if (o.mode <= TELVIX::AppModeNone) {
            *message = QStringLiteral("unknown --mode \"%1\"").arg(parser.value(mode));
            return Outcome::Invalid;
        }
    }
    o.user = parser.value(user);
    o.password = parser.value(password);
    o.domain = parser.value(domain);
    o.dataDir = parser.value(dataDir);
    o.tempDataDir = !parser.isSet(dataDir);
    o.reconnect = parser.isSet(reconnect);
    o.verifyTls = parser.isSet(verifyTls);
    o.localServer = parser.isSet(localServer);
    o.dump = parser.isSet(dump);
    o.json = parser.isSet(json);
    o.osType = parser.isSet(osType) ? parser.value(osType) : QSysInfo::kernelType();
    o.osVersion = parser.isSet(osVersion) ? parser.value(osVersion) : QSysInfo::prettyProductName();
    o.swType = parser.isSet(swType) ? parser.value(swType) : QStringLiteral("telvix-cli");
    o.swVersion = parser.isSet(swVersion) ? parser.value(swVersion) : QStringLiteral(TELVIX_CLI_VERSION);
    o.deviceId = parser.isSet(deviceId) ? parser.value(deviceId) : defaultDeviceId();
    *options = o;
    return Outcome::Run;
}
