// A minimal application of the installed library: builds the client object,
// starts and stops its thread, and prints the library's version. The other
// headers are included to show that every installed header compiles alone.
#include <ctigsm_codec.h>
#include <encrypteddbhandler.h>
#include <telvix.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dataDir;
    Telvix client(QStringLiteral("Linux"), QStringLiteral("6"), QStringLiteral("consumer"), QStringLiteral("1.0"),
                  QStringLiteral("device-1"), dataDir.path());
    if (!client.init())
        return 1;
    const bool mobile = Telvix::appModeIsMobile(TELVIX::AppMode(7));
    std::printf("%s %d\n", qPrintable(client.getVersion()), int(mobile));
    return client.shutdown() && mobile ? 0 : 1;
}
