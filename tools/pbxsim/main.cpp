// telvix-pbx-sim: a simulated PBX CTI server to run clients against.
#include "scenariorunner.h"
#include "simcertificate.h"
#include "simdirectory.h"
#include "simulator.h"
#include "stopsignals.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

namespace {

int bad(const QString& message)
{
    std::fprintf(stderr, "telvix-pbx-sim: %s\nTry 'telvix-pbx-sim --help'.\n",
                 message.toLocal8Bit().constData());
    return 2;
}

bool readInt(const QCommandLineParser& parser, const QCommandLineOption& option, int* value)
{
    if (!parser.isSet(option))
        return true;
    bool ok = false;
    *value = parser.value(option).toInt(&ok);
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("telvix-pbx-sim"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "A simulated PBX CTI server for libtelvix clients: TLS with a test certificate, extensions 1000 to "
        "1009\n"
        "(password = extension), phone book, call history, voicemail, services and simulated calls.\n"
        "Access tokens open download connections: voicemail audio (WAV49 GSM, up to 30 s) and a rebranding\n"
        "package (a small zip).\n"
        "It prints \"listening on HOST:PORT\" once it accepts clients, then one line per event."));
    parser.addHelpOption();
    const QCommandLineOption port(QStringLiteral("port"),
                                  QStringLiteral("Port on 127.0.0.1 (default 5039; 0: any free one)."),
                                  QStringLiteral("PORT"));
    const QCommandLineOption api(QStringLiteral("api"),
                                 QStringLiteral("API version presented (default 6.1)."),
                                 QStringLiteral("VERSION"));
    const QCommandLineOption noBanner(QStringLiteral("no-banner"),
                                      QStringLiteral("Do not greet clients with the API versions."));
    const QCommandLineOption directory(QStringLiteral("directory"),
                                       QStringLiteral("JSON directory to use instead of the built-in one."),
                                       QStringLiteral("FILE"));
    const QCommandLineOption scenario(QStringLiteral("scenario"), QStringLiteral("JSON scenario to play."),
                                      QStringLiteral("FILE"));
    const QCommandLineOption answerDelay(
        QStringLiteral("answer-delay"),
        QStringLiteral("Milliseconds until a called party answers (default 2000; "
                       "negative: never)."),
        QStringLiteral("MS"));
    const QCommandLineOption callDuration(
        QStringLiteral("call-duration"),
        QStringLiteral("Milliseconds from answer until the far end hangs up "
                       "(default 10000)."),
        QStringLiteral("MS"));
    const QCommandLineOption ringTimeout(
        QStringLiteral("ring-timeout"),
        QStringLiteral("Milliseconds until an unanswered call ends (default 30000)."), QStringLiteral("MS"));
    const QCommandLineOption probeInterval(
        QStringLiteral("probe-interval"),
        QStringLiteral("Milliseconds between probes of each client (default "
                       "60000; 0: none)."),
        QStringLiteral("MS"));
    const QCommandLineOption noRebranding(
        QStringLiteral("no-rebranding"),
        QStringLiteral("Hold no rebranding package: downloads of it answer \"none\", which makes "
                       "clients remove their copy."));
    const QCommandLineOption tokenValidity(
        QStringLiteral("token-validity"),
        QStringLiteral("Seconds an access token stays valid for downloads (default 3600)."),
        QStringLiteral("SECS"));
    const QCommandLineOption chatPort(
        QStringLiteral("chat-port"),
        QStringLiteral("Send clients to a chat (XMPP) server on this port of the simulator's address, e.g. "
                       "a prosody with the directory's chat ids (default 0: no chat, clients do not try)."),
        QStringLiteral("PORT"));
    const QCommandLineOption deskPhones(
        QStringLiteral("desk-phones"),
        QStringLiteral(
            "Give every extension a desk phone: it reports its calls (phoneEvent, the line id is the "
            "channel of the extension's first SIP account) and obeys phone commands (answer, hang up, "
            "hold, transfer, make call)."));
    const QCommandLineOption cert(QStringLiteral("cert"), QStringLiteral("PEM certificate to present."),
                                  QStringLiteral("FILE"));
    const QCommandLineOption key(QStringLiteral("key"), QStringLiteral("Its unencrypted PEM key."),
                                 QStringLiteral("FILE"));
    const QCommandLineOption restartEvery(
        QStringLiteral("restart-every"),
        QStringLiteral("Restart every MS milliseconds: drop every client and refuse new connections for "
                       "--restart-downtime, to rehearse reconnection (default 0: never)."),
        QStringLiteral("MS"));
    const QCommandLineOption restartDowntime(
        QStringLiteral("restart-downtime"),
        QStringLiteral("Milliseconds a restart refuses connections (default 3000)."), QStringLiteral("MS"));
    parser.addOptions({port, api, noBanner, directory, scenario, answerDelay, callDuration, ringTimeout,
                       probeInterval, noRebranding, tokenValidity, chatPort, deskPhones, cert, key,
                       restartEvery, restartDowntime});
    if (!parser.parse(QCoreApplication::arguments()))
        return bad(parser.errorText());
    if (parser.isSet(QStringLiteral("help"))) {
        std::printf("%s", qPrintable(parser.helpText()));
        return 0;
    }
    if (!parser.positionalArguments().isEmpty())
        return bad(QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first()));

    SimSettings settings;
    int portNumber = settings.port;
    if (!readInt(parser, port, &portNumber) || portNumber < 0 || portNumber > 65535)
        return bad(QStringLiteral("bad --port"));
    settings.port = quint16(portNumber);
    if (parser.isSet(api))
        settings.api = parser.value(api);
    settings.banner = !parser.isSet(noBanner);
    settings.rebranding = !parser.isSet(noRebranding);
    settings.deskPhones = parser.isSet(deskPhones);
    if (!readInt(parser, answerDelay, &settings.timings.answerDelayMs)
        || !readInt(parser, callDuration, &settings.timings.callDurationMs)
        || !readInt(parser, ringTimeout, &settings.timings.ringTimeoutMs)
        || !readInt(parser, probeInterval, &settings.probeIntervalMs))
        return bad(QStringLiteral("a time is a whole number of milliseconds"));
    if (!readInt(parser, tokenValidity, &settings.tokenValiditySecs) || settings.tokenValiditySecs < 0)
        return bad(QStringLiteral("bad --token-validity"));
    if (!readInt(parser, chatPort, &settings.chatPort) || settings.chatPort < 0 || settings.chatPort > 65535)
        return bad(QStringLiteral("bad --chat-port"));
    int restartEveryMs = 0;
    int restartDowntimeMs = DefaultDowntimeMs;
    if (!readInt(parser, restartEvery, &restartEveryMs)
        || !readInt(parser, restartDowntime, &restartDowntimeMs) || restartEveryMs < 0
        || restartDowntimeMs < 0)
        return bad(QStringLiteral("bad --restart-every or --restart-downtime"));
    settings.certificate = parser.value(cert);
    settings.key = parser.value(key);

    QString error;
    SimDirectory dir;
    if (parser.isSet(directory) ? !SimDirectory::load(parser.value(directory), &dir, &error)
                                : (dir = SimDirectory::builtIn(), false))
        return bad(error);
    if (!SimCertificate::locate(&settings.certificate, &settings.key, &error)) {
        std::fprintf(stderr, "telvix-pbx-sim: %s\n", qPrintable(error));
        return 1;
    }

    PbxSimulator simulator(settings, dir);
    ScenarioRunner runner(simulator);
    if (parser.isSet(scenario) && !runner.load(parser.value(scenario), &error))
        return bad(error);
    if (!simulator.listen(&error)) {
        std::fprintf(stderr, "telvix-pbx-sim: %s\n", qPrintable(error));
        return 1;
    }
    StopSignals stop;
    QObject::connect(&stop, &StopSignals::stopRequested, &app, [] { QCoreApplication::exit(0); });
    simulator.log(QStringLiteral("listening on %1:%2 (API %3, banner %4, %5 extensions, certificate %6)")
                      .arg(settings.address.toString())
                      .arg(simulator.port())
                      .arg(settings.api, settings.banner ? QStringLiteral("on") : QStringLiteral("off"))
                      .arg(dir.extensions().size())
                      .arg(settings.certificate));
    if (parser.isSet(scenario))
        runner.start();
    if (restartEveryMs > 0)
        simulator.restartPeriodically(restartEveryMs, restartDowntimeMs);
    return app.exec();
}
