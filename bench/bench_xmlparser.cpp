// Cost of receiving a large phone-book answer: framing it out of 16 KiB
// chunks, then cutting the users and reading every field, against the
// regular-expression reference and against pugixml reading the same bytes.

#include "referencexmlparser.h"
#include "medianreporter.h"
#include "simplexmlparser.h"

#include <QString>
#include <QStringList>
#include <QTextCodec>
#include <QTextDecoder>

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdio>
#include <malloc.h>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kChunkBytes = 16 * 1024;

const char* const kUserFields[] = {"ContactUuid", "First", "Last", "Company", "Unit", "Owner"};
const char* const kContactFields[] = {"Type", "Value", "Primary"};

// A phone-book answer in the protocol envelope, about 400 bytes per user.
QByteArray makePhoneBook(int users)
{
    QByteArray xml;
    xml.reserve(users * 420 + 512);
    xml += "<SRNT><API>5.7</API><UUID>{67c8770b-44f1-410a-ab9a-f9b5446f13ee}</UUID>"
           "<Timestamp>2026-11-15T18:10:02.123</Timestamp><Response><PBook><Users>";
    char buffer[1024];
    for (int i = 0; i < users; ++i) {
        std::snprintf(
            buffer, sizeof buffer,
            "<User><ContactUuid>{%08x-44f1-410a-ab9a-%012x}</ContactUuid>"
            "<First>Giulia %d</First><Last>Rossi &amp; Bianchi</Last>"
            "<Company>Caff\xc3\xa8 Nero S.p.A.</Company><Unit>Sales</Unit><Owner>%d</Owner>"
            "<Contact><Type>work</Type><Value>+39 02 555%05d</Value><Primary>true</Primary></Contact>"
            "<Contact><Type>mobile</Type><Value>+39 333 %07d</Value><Primary>false</Primary></Contact>"
            "<Contact><Type>email</Type><Value>g.rossi%d@example.com</Value>"
            "<Primary>false</Primary></Contact></User>\n",
            unsigned(i * 2654435761u), unsigned(i), i, 200 + i % 50, i, i, i);
        xml += buffer;
    }
    xml += "</Users></PBook></Response></SRNT>";
    return xml;
}

struct Document
{
    QByteArray utf8;
    QString text;
    std::vector<QString> chunks; // 16 KiB of wire bytes each, decoded
};

const Document& document(int users)
{
    static std::map<int, std::unique_ptr<Document>> cache;
    auto& slot = cache[users];
    if (!slot) {
        slot.reset(new Document);
        slot->utf8 = makePhoneBook(users);
        slot->text = QString::fromUtf8(slot->utf8);
        std::unique_ptr<QTextDecoder> decoder(QTextCodec::codecForName("UTF-8")->makeDecoder());
        for (int pos = 0; pos < slot->utf8.size(); pos += kChunkBytes)
            slot->chunks.push_back(
                decoder->toUnicode(slot->utf8.constData() + pos, qMin(kChunkBytes, slot->utf8.size() - pos)));
    }
    return *slot;
}

struct Totals
{
    qint64 users = 0;
    qint64 contacts = 0;
    qint64 characters = 0;
};

// Element names as the message classes hold them: QString constants.
struct Names
{
    QString user = QStringLiteral("User");
    QString contact = QStringLiteral("Contact");
    std::vector<QString> userFields;
    std::vector<QString> contactFields;

    Names()
    {
        for (const char* field : kUserFields)
            userFields.push_back(QString::fromLatin1(field));
        for (const char* field : kContactFields)
            contactFields.push_back(QString::fromLatin1(field));
    }
};

template <typename Values, typename Decoded>
Totals readPhoneBook(const QString& message, Values getTagsValues, Decoded getDecodedTagValue)
{
    static const Names names;
    Totals totals;
    const auto users = getTagsValues(message, names.user);
    for (const auto& user : users) {
        ++totals.users;
        for (const QString& field : names.userFields)
            totals.characters += getDecodedTagValue(user, field).size();
        const auto contacts = getTagsValues(user, names.contact);
        for (const auto& contact : contacts) {
            ++totals.contacts;
            for (const QString& field : names.contactFields)
                totals.characters += getDecodedTagValue(contact, field).size();
        }
    }
    return totals;
}

// As the message classes read a list: each entry a view into the message.
Totals readOurs(const QString& message)
{
    return readPhoneBook(
        message,
        [](QStringView xml, const QString& tag) { return SimpleXmlParser::getTagsValueViews(xml, tag); },
        [](QStringView xml, const QString& tag) { return SimpleXmlParser::getDecodedTagValue(xml, tag); });
}

Totals readReference(const QString& message)
{
    return readPhoneBook(
        message,
        [](const QString& xml, const QString& tag) { return ReferenceXmlParser::getTagsValues(xml, tag); },
        [](const QString& xml, const QString& tag) {
            return ReferenceXmlParser::getDecodedTagValue(xml, tag);
        });
}

Totals readPugi(const QByteArray& utf8)
{
    Totals totals;
    pugi::xml_document doc;
    // Parsed in place from a copy, as a receiver holding the bytes would.
    std::vector<char> bytes(utf8.constData(), utf8.constData() + utf8.size());
    if (!doc.load_buffer_inplace(bytes.data(), bytes.size()))
        return totals;
    const pugi::xml_node list = doc.child("SRNT").child("Response").child("PBook").child("Users");
    for (pugi::xml_node user = list.child("User"); user; user = user.next_sibling("User")) {
        ++totals.users;
        for (const char* field : kUserFields)
            totals.characters += qint64(std::strlen(user.child(field).child_value()));
        for (pugi::xml_node contact = user.child("Contact"); contact;
             contact = contact.next_sibling("Contact")) {
            ++totals.contacts;
            for (const char* field : kContactFields)
                totals.characters += qint64(std::strlen(contact.child(field).child_value()));
        }
    }
    return totals;
}

QString frame(const Document& doc)
{
    SimpleXmlParser parser;
    parser.rootTag = QStringLiteral("SRNT");
    for (const QString& chunk : doc.chunks)
        parser.addData(chunk);
    return parser.getNextMessage();
}

void check(bool ok, const char* what)
{
    if (!ok) {
        std::fprintf(stderr, "bench_xmlparser: %s\n", what);
        std::abort();
    }
}

void BM_Framing(benchmark::State& state)
{
    const Document& doc = document(int(state.range(0)));
    check(frame(doc) == doc.text, "framing did not give the document back");
    for (auto _ : state) {
        SimpleXmlParser parser;
        parser.rootTag = QStringLiteral("SRNT");
        for (const QString& chunk : doc.chunks)
            parser.addData(chunk);
        QString message = parser.getNextMessage();
        benchmark::DoNotOptimize(message);
    }
    state.SetBytesProcessed(state.iterations() * doc.utf8.size());
}

void BM_Lookups(benchmark::State& state)
{
    const Document& doc = document(int(state.range(0)));
    const Totals expected = readPugi(doc.utf8);
    const Totals got = readOurs(doc.text);
    check(got.users == state.range(0) && got.users == expected.users && got.contacts == expected.contacts,
          "the scanner and pugixml disagree on the phone book");
    for (auto _ : state) {
        Totals totals = readOurs(doc.text);
        benchmark::DoNotOptimize(totals);
    }
    state.SetBytesProcessed(state.iterations() * doc.utf8.size());
}

void BM_ReferenceLookups(benchmark::State& state)
{
    const Document& doc = document(int(state.range(0)));
    for (auto _ : state) {
        Totals totals = readReference(doc.text);
        benchmark::DoNotOptimize(totals);
    }
    state.SetBytesProcessed(state.iterations() * doc.utf8.size());
}

void BM_Pugixml(benchmark::State& state)
{
    const Document& doc = document(int(state.range(0)));
    for (auto _ : state) {
        Totals totals = readPugi(doc.utf8);
        benchmark::DoNotOptimize(totals);
    }
    state.SetBytesProcessed(state.iterations() * doc.utf8.size());
}

BENCHMARK(BM_Framing)
    ->Arg(10000)
    ->Arg(20000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_Lookups)
    ->Arg(10000)
    ->Arg(20000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_Pugixml)
    ->Arg(10000)
    ->Arg(20000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true);
// Slow by design: a few runs only.
BENCHMARK(BM_ReferenceLookups)
    ->Arg(10000)
    ->Arg(20000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3)
    ->ReportAggregatesOnly(true);

void printSummary(const Medians& ms)
{
    auto get = [&](const char* name, int n) {
        const auto it = ms.find(std::string(name) + "/" + std::to_string(n));
        return it == ms.end() ? 0.0 : it->second.cpuTime;
    };
    // CPU time: the machines these run on are shared, and wall time there
    // measures the neighbours as much as the code.
    std::printf("\nSummary (medians of CPU time, ms)\n");
    std::printf("%-8s %10s %10s %10s %12s %12s\n", "users", "framing", "lookups", "pugixml", "reference",
                "a+b/pugixml");
    for (int n : {10000, 20000}) {
        const double a = get("BM_Framing", n), b = get("BM_Lookups", n), p = get("BM_Pugixml", n),
                     r = get("BM_ReferenceLookups", n);
        std::printf("%-8d %10.2f %10.2f %10.2f %12.1f %12.2f\n", n, a, b, p, r, p > 0 ? (a + b) / p : 0.0);
    }
    std::printf("\n%-44s %8s %8s\n", "ratio", "10k", "20k");
    std::printf("%-44s %8.2f %8.2f   (target <= 1.5)\n", "(framing + lookups) / pugixml",
                (get("BM_Framing", 10000) + get("BM_Lookups", 10000)) / get("BM_Pugixml", 10000),
                (get("BM_Framing", 20000) + get("BM_Lookups", 20000)) / get("BM_Pugixml", 20000));
    std::printf("%-44s %8.1f %8.1f   (target >= 10)\n", "reference lookups / lookups",
                get("BM_ReferenceLookups", 10000) / get("BM_Lookups", 10000),
                get("BM_ReferenceLookups", 20000) / get("BM_Lookups", 20000));
    std::printf("%-44s %8.2f\n", "20k / 10k, framing", get("BM_Framing", 20000) / get("BM_Framing", 10000));
    std::printf("%-44s %8.2f   (target <= 2.1)\n", "20k / 10k, framing + lookups",
                (get("BM_Framing", 20000) + get("BM_Lookups", 20000))
                    / (get("BM_Framing", 10000) + get("BM_Lookups", 10000)));
    std::printf("%-44s %8.2f\n", "20k / 10k, pugixml", get("BM_Pugixml", 20000) / get("BM_Pugixml", 10000));
    std::printf("%-44s %8.2f\n", "20k / 10k, reference",
                get("BM_ReferenceLookups", 20000) / get("BM_ReferenceLookups", 10000));
    std::printf("\ndocument: %d bytes for 10k users, %d bytes for 20k\n", document(10000).utf8.size(),
                document(20000).utf8.size());
}

} // namespace

int main(int argc, char** argv)
{
    // Blocks of several megabytes (the message, pugixml's copy and its node
    // pages) would otherwise be mapped afresh and faulted in at every
    // iteration, at a cost that varies from run to run with the machine's
    // memory; kept in the heap, both sides are measured on their own work.
    mallopt(M_MMAP_THRESHOLD, 512 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 1024 * 1024 * 1024);
    return runBenchmarks(argc, argv, printSummary);
}
