// Compressed Base64 and character references, the two decoders that take
// the server's text apart byte by byte. Any input must pass without a fault;
// decoded files must survive the way back; the linear entity decoder must give
// exactly what the former algorithm gives.

#include "entitydecoder_p.h"
#include "fuzzcheck.h"
#include "utils.h"

#include <QByteArray>
#include <QString>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));

    const QByteArray unpacked = Utils::dataFromBase64Compressed(bytes);
    FUZZ_CHECK(Utils::dataFromBase64Compressed(Utils::dataToBase64Compressed(unpacked)) == unpacked);
    FUZZ_CHECK(Utils::dataFromBase64Compressed(Utils::dataToBase64Compressed(bytes)) == bytes);

    // Broken UTF-8 turns into U+FFFD, which the decoder rewrites as well.
    const QString text = QString::fromUtf8(bytes);
    const QString decoded = EntityDecoder::decode(text, &text);
    FUZZ_CHECK(decoded == EntityDecoder::reference::decode(text, &text));
    FUZZ_CHECK(EntityDecoder::decode(QStringView(text)) == decoded);
    return 0;
}
