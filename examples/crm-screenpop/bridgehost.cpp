// crm-screenpop-host: logs one user in and opens the web bridge for the
// sample CRM page. Prints {"port": ..., "token": ...} once listening, and
// the bridge's refusals on standard error.
#include "stopsignals.h"
#include "telvix.h"
#include "telvixwebbridge.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <cstdio>

namespace {

// The library's debug log is for its developers; warnings (the bridge's
// refusals among them) go to standard error.
void messageHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type != QtDebugMsg && type != QtInfoMsg)
        std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
}

} // namespace

int main(int argc, char** argv)
{
    qInstallMessageHandler(messageHandler);
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Web bridge host for the sample CRM page."));
    parser.addHelpOption();
    const QCommandLineOption server(QStringLiteral("server"), QStringLiteral("CTI server HOST:PORT."),
                                    QStringLiteral("HOST:PORT"), QStringLiteral("127.0.0.1:5039"));
    const QCommandLineOption user(QStringLiteral("user"), QStringLiteral("User name."),
                                  QStringLiteral("USER"));
    const QCommandLineOption password(QStringLiteral("password"),
                                      QStringLiteral("Password (default: the user)."),
                                      QStringLiteral("PASSWORD"));
    // The bridge publishes the local server's call events: one per call, in
    // the mobile modes.
    const QCommandLineOption mode(QStringLiteral("mode"),
                                  QStringLiteral("Application mode (default srnt_mobile)."),
                                  QStringLiteral("MODE"), QStringLiteral("srnt_mobile"));
    const QCommandLineOption port(QStringLiteral("port"),
                                  QStringLiteral("Bridge port (default: any free one)."),
                                  QStringLiteral("PORT"), QStringLiteral("0"));
    const QCommandLineOption origin(QStringLiteral("origin"),
                                    QStringLiteral("Origin of a page to accept (repeatable)."),
                                    QStringLiteral("ORIGIN"));
    const QCommandLineOption token(QStringLiteral("token"),
                                   QStringLiteral("Pairing token (default: a new one)."),
                                   QStringLiteral("TOKEN"));
    parser.addOptions({server, user, password, mode, port, origin, token});
    parser.process(app);

    const QString address = parser.value(server);
    const int colon = address.lastIndexOf(QLatin1Char(':'));
    QTemporaryDir dataDir;
    Telvix telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("crm-screenpop-host"),
                  QStringLiteral("1.0"), QStringLiteral("crm-screenpop"), dataDir.path());
    TelvixWebBridge bridge(&telvix);
    bridge.setAllowedOrigins(parser.values(origin));
    if (parser.isSet(token) && !bridge.setPairingToken(parser.value(token)))
        return 2;
    if (!telvix.init() || !bridge.listen(quint16(parser.value(port).toUInt())))
        return 1;
    QObject::connect(&telvix, &Telvix::loggedToServer, &app, [&telvix, &bridge] {
        // The screen pop looks callers up in the books the library holds.
        telvix.getContactsList(false, TELVIX::PhonebookTypePhonebooks | TELVIX::PhonebookTypeExtensions);
        const QJsonObject ready {{QStringLiteral("port"), bridge.serverPort()},
                                 {QStringLiteral("token"), bridge.pairingToken()}};
        std::printf("%s\n", QJsonDocument(ready).toJson(QJsonDocument::Compact).constData());
        std::fflush(stdout);
    });
    QObject::connect(
        &bridge, &TelvixWebBridge::pagePaired, &app, [](const QString& peer, const QString& from) {
            std::fprintf(stderr, "paired %s (origin \"%s\")\n", qPrintable(peer), qPrintable(from));
        });
    QObject::connect(&telvix, &Telvix::disconnectedFromServer, &app, [](const QString& reason) {
        std::fprintf(stderr, "disconnected: %s\n", qPrintable(reason));
        QCoreApplication::exit(1);
    });
    QObject::connect(new StopSignals(&app), &StopSignals::stopRequested, &app,
                     [] { QCoreApplication::exit(0); });

    telvix.connectToServer(parser.value(user),
                           parser.isSet(password) ? parser.value(password) : parser.value(user), QString(),
                           TELVIX::appModeFromString(parser.value(mode)), address.left(colon),
                           quint16(address.mid(colon + 1).toUInt()));
    const int code = app.exec();
    bridge.close();
    telvix.shutdown();
    return code;
}
