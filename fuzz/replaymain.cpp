// Runs every file under the given directories through a fuzz target once, as
// a plain program: the corpus becomes a regression test that needs no clang.

#include "fuzzcheck.h"

#include <QByteArray>
#include <QDirIterator>
#include <QFile>

#include <cstdio>

int main(int argc, char** argv)
{
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        QDirIterator it(QString::fromLocal8Bit(argv[i]), QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile file(it.next());
            if (!file.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(file.fileName()));
                return 1;
            }
            const QByteArray input = file.readAll();
            std::fprintf(stderr, "replaying %s\n", qPrintable(file.fileName()));
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.constData()), size_t(input.size()));
            ++replayed;
        }
    }
    std::printf("%d inputs replayed\n", replayed);
    // An empty or missing corpus proves nothing.
    return replayed > 0 ? 0 : 1;
}
