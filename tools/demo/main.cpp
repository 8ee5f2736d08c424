// A first look at the library: start the client's thread, show the wire
// frame of a keep-alive, try a server that is not there and report the
// reason the library gives, then shut down cleanly.
#include <telvix.h>

#include <QCoreApplication>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

namespace {
// The library's Qt debug log is for developers; the demo shows warnings only
// unless TELVIX_DEMO_VERBOSE is set.
void quietHandler(QtMsgType type, const QMessageLogContext&, const QString& msg)
{
    if (type != QtDebugMsg || qEnvironmentVariableIsSet("TELVIX_DEMO_VERBOSE"))
        std::fprintf(stderr, "%s\n", qPrintable(msg));
}
} // namespace

int main(int argc, char** argv)
{
    qInstallMessageHandler(quietHandler);
    QCoreApplication app(argc, argv);
    QTemporaryDir dataDir;

    Telvix client(QStringLiteral("Linux"), QStringLiteral("Debian 12"), QStringLiteral("telvix-demo"),
                  QStringLiteral("1.0"), QStringLiteral("demo-device"), dataDir.path());
    std::printf("libtelvix %s\n", qPrintable(client.getVersion()));
    client.init();
    std::printf("library thread started; logs in %s/telvixLog.txt\n", qPrintable(dataDir.path()));

    KeepAliveReqMsg keepAlive;
    std::printf("a keep-alive frame on the wire:\n  %s\n", qPrintable(keepAlive.serializeToXml("6.1")));

    // A port nobody listens on: take a free one and close it again.
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();

    int exitCode = 1;
    QObject::connect(&client, &Telvix::disconnectedFromServer, &app, [&](const QString& reason) {
        std::printf("disconnectedFromServer: \"%s\"\n", qPrintable(reason));
        exitCode = 0;
        app.quit();
    });
    QTimer::singleShot(15000, &app, [&] {
        std::printf("no answer within 15 s\n");
        app.quit();
    });
    std::printf("connecting to 127.0.0.1:%u, where no server listens...\n", unsigned(port));
    client.connectToServer(QStringLiteral("1000"), QStringLiteral("1000"), QString(), TELVIX::AppModeSrntPro,
                           QStringLiteral("127.0.0.1"), port);
    app.exec();

    client.shutdown();
    std::printf("shut down, exit code %d\n", exitCode);
    return exitCode;
}
