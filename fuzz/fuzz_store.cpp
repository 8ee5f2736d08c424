// The scrambled store: any file found as "cdr.db" is unscrambled and opened
// as the call-history database, read and closed again.
//
// The first byte chooses what the rest is: even, the file as found on disk;
// odd, the plain database, scrambled here the way the store writes it, so
// that the fuzzer works on SQLite's pages rather than on Base64.

#include "fuzzcheck.h"
#include "persistencesqlite.h"
#include "simpleobfuscator.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <memory>

namespace {
// The store scrambles in pieces of this size, each Base64 of its own.
constexpr int kScrambleChunk = 12288;

std::unique_ptr<QTemporaryDir> scratch;

QByteArray scramble(const QByteArray& plain)
{
    QByteArray out;
    for (int at = 0; at < plain.size(); at += kScrambleChunk)
        out += SimpleObfuscator::hide(plain.mid(at, kScrambleChunk));
    return out;
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    scratch = std::make_unique<QTemporaryDir>();
    FUZZ_CHECK(scratch->isValid());
    // Working copies stay inside the scratch directory.
    qputenv("TMPDIR", QFile::encodeName(scratch->path()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray rest = QByteArray::fromRawData(reinterpret_cast<const char*>(data) + 1, int(size) - 1);
    FUZZ_CHECK(SimpleObfuscator::reveal(SimpleObfuscator::hide(rest)) == rest);

    QTemporaryDir home(scratch->filePath(QStringLiteral("home-XXXXXX")));
    FUZZ_CHECK(home.isValid());
    const QString path = home.filePath(QStringLiteral("cdr.db"));
    {
        QFile file(path);
        FUZZ_CHECK(file.open(QIODevice::WriteOnly));
        file.write(data[0] % 2 ? scramble(rest) : rest);
    }

    PersistenceSqlite store(path, QStringLiteral("200"));
    store.readCdr();
    store.readPhoneBook();
    store.readSmsList();
    store.close();
    // Whatever the file held, the store leaves no plain copy behind.
    const QStringList left = QDir(scratch->path()).entryList({QStringLiteral("cdr.db-*")}, QDir::Files);
    FUZZ_CHECK(left.isEmpty());
    return 0;
}
