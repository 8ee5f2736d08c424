// Stream framing and tag lookups of SimpleXmlParser, held against the literal
// regular-expression scanner of the tests on every input small enough for it.
//
// Input: one settings byte, the element name up to the first '\n' (the root
// tag of the framing and the tag of the lookups), then the stream. Each 0x1f byte of the
// stream ends a chunk, so the fuzzer chooses where the text is cut.
// Settings: bits 0-2 notify mode, bits 3-5 the buffer limit (0 = none, else
// 2^n * 16 units), bits 6-7 the start position of single lookups.

#include "fuzzcheck.h"
#include "referencexmlparser.h"
#include "simplexmlparser.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace {

// The reference compiles its expressions at every call and searches the
// whole buffer after every chunk: beyond this it is too slow to keep up.
constexpr int kReferenceLimit = 2048;
constexpr char kChunkEnd = '\x1f';

struct Observed
{
    QStringList parsed;
    int completed = 0;
    QList<int> errors;

    bool operator==(const Observed& other) const
    {
        return parsed == other.parsed && completed == other.completed && errors == other.errors;
    }
};

template <typename Framer, typename Error> void observe(Framer& framer, Observed& seen)
{
    QObject::connect(&framer, &Framer::parsedMessage, [&seen](const QString& msg) { seen.parsed << msg; });
    QObject::connect(&framer, &Framer::messageCompleted, [&seen] { ++seen.completed; });
    QObject::connect(&framer, &Framer::parseErrorFound, [&seen](Error error) { seen.errors << int(error); });
}

template <typename Framer> QStringList drain(Framer& framer)
{
    QStringList messages;
    while (framer.hasPendingMessages())
        messages << framer.getNextMessage();
    return messages;
}

// The message classes look up fixed element names. The reference puts the
// name into its expressions as it stands, so the name keeps only characters
// that mean nothing there: letters, digits, '-' and '_'.
QString elementName(const QString& given)
{
    QString name;
    for (const QChar c : given) {
        if (c.isLetterOrNumber() || c == QLatin1Char('-') || c == QLatin1Char('_'))
            name += c;
    }
    return name.isEmpty() ? QStringLiteral("SRNT") : name;
}

void compareLookups(const QString& xml, const QString& tag, int startPos)
{
    FUZZ_CHECK(SimpleXmlParser::getTagValue(xml, tag, startPos)
               == ReferenceXmlParser::getTagValue(xml, tag, startPos));
    FUZZ_CHECK(SimpleXmlParser::getDecodedTagValue(xml, tag, startPos)
               == ReferenceXmlParser::getDecodedTagValue(xml, tag, startPos));
    FUZZ_CHECK(SimpleXmlParser::getTagsValues(xml, tag) == ReferenceXmlParser::getTagsValues(xml, tag));
    FUZZ_CHECK(SimpleXmlParser::getDecodedTagsValues(xml, tag)
               == ReferenceXmlParser::getDecodedTagsValues(xml, tag));
    FUZZ_CHECK(SimpleXmlParser::getTagProperties(xml, tag, startPos)
               == ReferenceXmlParser::getTagProperties(xml, tag, startPos));
    FUZZ_CHECK(SimpleXmlParser::getTagsProperties(xml, tag)
               == ReferenceXmlParser::getTagsProperties(xml, tag));
    int fastStart = 0, fastEnd = 0, refStart = 0, refEnd = 0;
    const bool fast = SimpleXmlParser::findStartTagDelimiters(xml, tag, startPos, fastStart, fastEnd);
    const bool ref = ReferenceXmlParser::findStartTagDelimiters(xml, tag, startPos, refStart, refEnd);
    FUZZ_CHECK(fast == ref);
    if (fast)
        FUZZ_CHECK(fastStart == refStart && fastEnd == refEnd);
    FUZZ_CHECK(SimpleXmlParser::unquoteString(xml) == ReferenceXmlParser::unquoteString(xml));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const int settings = data[0];
    const QByteArray rest = QByteArray::fromRawData(reinterpret_cast<const char*>(data) + 1, int(size) - 1);
    const int newline = rest.indexOf('\n');
    const QString tag = elementName(QString::fromUtf8(newline < 0 ? QByteArray("SRNT") : rest.left(newline)));
    const QByteArray stream = newline < 0 ? rest : rest.mid(newline + 1);
    const QList<QByteArray> pieces = stream.split(kChunkEnd);
    QStringList chunks;
    int length = 0;
    for (const QByteArray& piece : pieces) {
        chunks << QString::fromUtf8(piece);
        length += chunks.last().size();
    }
    const bool compare = length + tag.size() <= kReferenceLimit;

    const int notifyMode = settings & 7;
    const int limitBits = (settings >> 3) & 7;
    const int maxBuffer = limitBits == 0 ? 0 : (16 << limitBits);
    const int startPos = (settings >> 6) * 3;

    SimpleXmlParser parser;
    ReferenceXmlParser::Framer reference;
    Observed fastSeen, referenceSeen;
    observe<SimpleXmlParser, SimpleXmlParser::ParseErrorEnumType>(parser, fastSeen);
    observe<ReferenceXmlParser::Framer, ReferenceXmlParser::Framer::ParseErrorEnumType>(reference,
                                                                                        referenceSeen);
    parser.rootTag = tag;
    reference.rootTag = tag;
    parser.setNotifyMode(notifyMode);
    reference.setNotifyMode(notifyMode);
    parser.setMaxBufferSize(maxBuffer);
    reference.setMaxBufferSize(maxBuffer);

    QStringList messages;
    for (const QString& chunk : chunks) {
        parser.addData(chunk);
        const QStringList fastMessages = drain(parser);
        messages += fastMessages;
        if (!compare)
            continue;
        reference.addData(chunk);
        FUZZ_CHECK(fastMessages == drain(reference));
        FUZZ_CHECK(parser.getCurrentBuffer() == reference.getCurrentBuffer());
        FUZZ_CHECK(fastSeen == referenceSeen);
    }
    if (!compare)
        return 0;

    // Lookups on what the stream framed and on the whole text.
    messages += fastSeen.parsed;
    messages << chunks.join(QString());
    for (const QString& xml : qAsConst(messages))
        compareLookups(xml, tag, startPos);
    return 0;
}
