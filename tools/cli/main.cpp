// telvix-cli: drives one Telvix client from a terminal or a script.
#include "cliapp.h"
#include "clioptions.h"

#include <QCoreApplication>

#include <cstdio>

namespace {

// The library's Qt debug log is for its developers; the tool shows warnings
// and worse on standard error.
void messageHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type == QtDebugMsg || type == QtInfoMsg)
        return;
    std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
}

} // namespace

int main(int argc, char** argv)
{
    qInstallMessageHandler(messageHandler);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("telvix-cli"));

    CliOptions options;
    QString message;
    switch (CliOptions::parse(QCoreApplication::arguments(), &options, &message)) {
    case CliOptions::Outcome::Help:
        std::printf("%s", message.toLocal8Bit().constData());
        return 0;
    case CliOptions::Outcome::Invalid:
        std::fprintf(stderr, "telvix-cli: %s\nTry 'telvix-cli --help'.\n", message.toLocal8Bit().constData());
        return 2;
    case CliOptions::Outcome::Run:
        break;
    }

    CliApp cli(options);
    QObject::connect(&cli, &CliApp::finished, &app, [](int code) { QCoreApplication::exit(code); });
    cli.start();
    return app.exec();
}
