// What a local application writes to the loopback server. Each 0x1f byte of
// the input ends one read, so the fuzzer chooses how the bytes arrive.

#include "clientsocketmanager.h"
#include "fuzzcheck.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QList>
#include <QTemporaryDir>

#include <memory>

namespace {
// One manager for the whole run, as one serves every read of a session; its
// log goes to a directory of its own. It is never destroyed: at exit the
// logging platform's per-thread state goes before static objects do, and a
// manager logs as it closes.
std::unique_ptr<QTemporaryDir> logDir;
ClientSocketManager* manager = nullptr;
} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    logDir = std::make_unique<QTemporaryDir>();
    FUZZ_CHECK(logDir->isValid());
    manager = new ClientSocketManager(logDir->path());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));
    const QList<QByteArray> reads = bytes.split('\x1f');
    for (const QByteArray& read : reads)
        manager->handleClientBytes(read);
    return 0;
}
