// telvix-switchboard: a small desktop switchboard on libtelvix. The Telvix
// object runs on its own thread; the widgets stay on the GUI thread and
// reach it only through its signals and public methods.
#include "instancelink.h"
#include "logindialog.h"
#include "mainwindow.h"
#include "telvix.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QSettings>
#include <QStandardPaths>
#include <QSysInfo>
#include <QUuid>

namespace {

// The device id the server knows this installation by: made once, kept.
QString deviceId()
{
    QSettings settings;
    QString id = settings.value(QStringLiteral("deviceId")).toString();
    if (id.isEmpty()) {
        id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        settings.setValue(QStringLiteral("deviceId"), id);
    }
    return id;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("telvix-switchboard"));
    QApplication::setApplicationVersion(QStringLiteral(TELVIX_SWITCHBOARD_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A desktop switchboard on libtelvix."));
    parser.addHelpOption();
    const QCommandLineOption server(QStringLiteral("server"), QStringLiteral("HOST:PORT of the CTI server."),
                                    QStringLiteral("HOST:PORT"));
    const QCommandLineOption user(QStringLiteral("user"), QStringLiteral("User name."),
                                  QStringLiteral("USER"));
    const QCommandLineOption password(QStringLiteral("password"), QStringLiteral("Password."),
                                      QStringLiteral("PASSWORD"));
    const QCommandLineOption verifyTls(QStringLiteral("verify-tls"),
                                       QStringLiteral("Refuse a server certificate that does not verify."));
    const QCommandLineOption login(QStringLiteral("login"),
                                   QStringLiteral("Log in at once, without the dialog."));
    const QCommandLineOption dataDir(QStringLiteral("data-dir"),
                                     QStringLiteral("Directory of the library's logs and stored history."),
                                     QStringLiteral("DIR"));
    const QCommandLineOption instance(
        QStringLiteral("instance"),
        QStringLiteral("Name under which the running switchboard takes the links of later starts "
                       "(default: one per desktop user)."),
        QStringLiteral("NAME"));
    parser.addOptions({server, user, password, verifyTls, login, dataDir, instance});
    parser.addPositionalArgument(QStringLiteral("link"),
                                 QStringLiteral("A tel:, callto: or sip: link to dial."),
                                 QStringLiteral("[LINK]"));
    parser.process(app);

    // A switchboard already runs for this user: it dials the link (or just
    // comes to the front), and this start ends here.
    const QString link = parser.positionalArguments().value(0);
    const QString instanceName
        = parser.isSet(instance) ? parser.value(instance) : InstanceLink::defaultName();
    if (InstanceLink::handOver(instanceName, link))
        return 0;

    LoginSettings settings;
    if (parser.isSet(server)) {
        const QStringList hostPort = parser.value(server).split(QLatin1Char(':'));
        settings.host = hostPort.value(0);
        settings.port = hostPort.size() > 1 ? quint16(hostPort.at(1).toUInt()) : settings.port;
    }
    settings.user = parser.isSet(user) ? parser.value(user) : settings.user;
    settings.password = parser.isSet(password) ? parser.value(password) : settings.password;
    settings.verifyTls = parser.isSet(verifyTls);
    if (!parser.isSet(login)) {
        LoginDialog dialog(settings);
        if (dialog.exec() != QDialog::Accepted)
            return 0;
        settings = dialog.settings();
    }

    // One data directory per account: the library keeps the call history of
    // the logged-in extension there (cdr.db) and shows it at the next login.
    const QString dir = parser.isSet(dataDir)
        ? parser.value(dataDir)
        : QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation) + QLatin1Char('/')
            + settings.user + QLatin1Char('@') + settings.host;
    QDir().mkpath(dir);

    Telvix client(QStringLiteral("Linux"), QSysInfo::kernelVersion(), QApplication::applicationName(),
                  QApplication::applicationVersion(), deviceId(), dir);
    // Starts the library's thread and moves `client` onto it. From here on
    // its signals arrive here queued, and its methods hop there by
    // themselves (see libraryhop.h for the few that do not).
    client.init();

    MainWindow window(&client, dir);
    window.resize(1100, 700);
    window.show();
    InstanceLink links(instanceName);
    if (!links.listen())
        qWarning("Links of later starts cannot be taken: %s", qPrintable(links.errorString()));
    QObject::connect(&links, &InstanceLink::uriReceived, &window, &MainWindow::openLink);
    window.connectTo(settings);
    if (!link.isEmpty())
        window.openLink(link);
    const int code = app.exec();

    // Blocks until the library's thread has torn the session down; the
    // destructor that follows expects it.
    client.shutdown();
    return code;
}
