// Phone-book entries that applications hand in as JSON: the entry reader and
// the generic record converter. What was read must survive its own JSON.

#include "fuzzcheck.h"
#include "jsonconvert.h"
#include "phonebook.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QVariant>

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));

    const PhoneBookEntry entry = PhoneBookEntry::fromJson(text);
    FUZZ_CHECK(PhoneBookEntry::fromJson(entry.toJson()) == entry);

    const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8());
    const int type = qMetaTypeId<PhoneBookEntry>();
    for (const QJsonValue& value : {QJsonValue(doc.object()), QJsonValue(doc.array())}) {
        QString error;
        const QVariant read = JsonConvert::fromJson(value, type, &error);
        if (!read.isValid()) {
            FUZZ_CHECK(!error.isEmpty());
            continue;
        }
        const PhoneBookEntry record = read.value<PhoneBookEntry>();
        const QVariant again = JsonConvert::fromJson(JsonConvert::toJson(read), type, &error);
        FUZZ_CHECK(again.isValid());
        FUZZ_CHECK(again.value<PhoneBookEntry>() == record);
    }
    return 0;
}
