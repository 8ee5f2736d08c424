// Compressed Base64 and character references, the two decoders that take
// the server's text apart byte by byte. Any input must pass without a fault;
// decoded files must survive the way back; the linear entity decoder must give
// exactly what the former algorithm gives.

#include "entitydecoder_p.h"
#include "fuzzcheck.h"
#include "utils.h"

#include <QByteArray>
#include <QString>
#include <QtEndian>

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    // Damaged input is the rule here; Qt's warning about each is noise.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));

    // qUncompress allocates the size that the first four bytes declare before
    // it inflates anything. Natively untouched pages cost nothing, but the
    // sanitizer's bookkeeping of gigabytes takes a second per input, so sizes
    // far beyond what a few kilobytes can inflate to are left out.
    const QByteArray packed = QByteArray::fromBase64(bytes);
    if (packed.size() < 4 || qFromBigEndian<quint32>(packed.constData()) <= (1u << 24)) {
        const QByteArray unpacked = Utils::dataFromBase64Compressed(bytes);
        FUZZ_CHECK(Utils::dataFromBase64Compressed(Utils::dataToBase64Compressed(unpacked)) == unpacked);
    }
    FUZZ_CHECK(Utils::dataFromBase64Compressed(Utils::dataToBase64Compressed(bytes)) == bytes);

    // Broken UTF-8 turns into U+FFFD, which the decoder rewrites as well.
    const QString text = QString::fromUtf8(bytes);
    const QString decoded = EntityDecoder::decode(text, &text);
    FUZZ_CHECK(decoded == EntityDecoder::reference::decode(text, &text));
    FUZZ_CHECK(EntityDecoder::decode(QStringView(text)) == decoded);
    return 0;
}
