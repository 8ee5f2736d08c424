#include "messagefields.h"
#include "phonebooktoxmlutil.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

// Every server message family and every request the client writes, case by
// case from tests/fixtures/protocol/*.json. A case either parses "xml" with
// the class named by "parse" and must give "expected" (the message as JSON),
// write exactly the lines "log", and serialise back to "written"; or builds
// the class named by "write" from "fields" and must send "wire" at "api"; or
// runs the record function named by "call" on "args", giving "expected" and
// "log".
// TELVIX_GOLDEN_UPDATE=1 rewrites the files with what the library now does,
// for review in the diff.

namespace {

const QString kFixtureDir = QStringLiteral(TELVIX_TEST_FIXTURES "/protocol");

// The first place where two JSON values differ, as "path: actual != expected".
QString firstDifference(const QJsonValue& actual, const QJsonValue& expected, const QString& path)
{
    const auto members = [](const QJsonValue& v) {
        QJsonObject o = v.toObject();
        for (int i = 0; i < v.toArray().size(); ++i)
            o.insert(QString::number(i), v.toArray().at(i));
        return o;
    };
    if (actual.type() == expected.type() && (actual.isObject() || actual.isArray())) {
        const QJsonObject a = members(actual), e = members(expected);
        for (const QString& k : a.keys() + e.keys()) {
            const QString d = firstDifference(a.value(k), e.value(k), path + QLatin1Char('/') + k);
            if (!d.isEmpty())
                return d;
        }
        return QString();
    }
    const auto text = [](const QJsonValue& v) {
        return QString::fromUtf8(QJsonDocument(QJsonArray {v}).toJson(QJsonDocument::Compact));
    };
    return actual == expected ? QString()
                              : path + QStringLiteral(": ") + text(actual) + " != " + text(expected);
}

// Some fields hold a time taken from the clock at parse time (a hold that
// began N seconds ago); fixtures spell those "now-Ns". `toFixture` turns such
// times into that text, otherwise the text is turned back into a time.
QJsonValue clockRelative(const QJsonValue& v, bool toFixture)
{
    QJsonValue out = v;
    if (v.isObject() || v.isArray()) {
        QJsonObject o = v.toObject();
        QJsonArray a = v.toArray();
        for (auto it = o.begin(); it != o.end(); ++it)
            it.value() = clockRelative(it.value(), toFixture);
        for (auto it = a.begin(); it != a.end(); ++it)
            *it = clockRelative(*it, toFixture);
        out = v.isObject() ? QJsonValue(o) : QJsonValue(a);
    }
    const QDateTime now = QDateTime::currentDateTime();
    static const QRegularExpression rel(QStringLiteral("^now-(\\d+)s$"));
    const QRegularExpressionMatch m = rel.match(v.toString());
    const QDateTime time = QDateTime::fromString(v.toString(), Qt::ISODateWithMs);
    if (!toFixture && m.hasMatch())
        out = JsonConvert::dateTimeToText(now.addSecs(-m.captured(1).toInt()));
    else if (toFixture && time.isValid() && qAbs(time.secsTo(now)) < 3600)
        out = QStringLiteral("now-%1s").arg(qRound(time.msecsTo(now) / 1000.0));
    return out;
}

template <typename T> T read(const QJsonValue& json)
{
    return JsonConvert::fromJson(json, qMetaTypeId<T>()).template value<T>();
}

template <typename T> QJsonValue json(const T& value)
{
    return JsonConvert::toJson(QVariant::fromValue(value));
}

QString contactXml(const PhoneBookEntry& entry)
{
    QString xml;
    QXmlStreamWriter writer(&xml);
    PhonebookToXmlUtil::contactToXml(entry, writer);
    return xml;
}

using Call = std::function<QJsonValue(const QJsonArray& args)>;

// A JSON value that reads back as a different field value.
QJsonValue changed(const QJsonValue& v)
{
    const QDateTime time = QDateTime::fromString(v.toString(), Qt::ISODateWithMs);
    QJsonArray list = v.toArray();
    list.append(list.isEmpty() ? QJsonValue(QStringLiteral("x")) : list.at(0));
    if (time.isValid())
        return JsonConvert::dateTimeToText(time.addSecs(1));
    return v.isBool()  ? QJsonValue(!v.toBool())
        : v.isDouble() ? QJsonValue(v.toDouble() + 1)
        : v.isString() ? QJsonValue(v.toString() + QStringLiteral("xx"))
                       : QJsonValue(list);
}

// The fields of `record` that the record's operator== overlooks when only
// they differ ("copy" when a record differs from its own copy).
template <typename T> QJsonValue overlooked(const QJsonValue& record)
{
    const T a = read<T>(record);
    QJsonArray out;
    if (!(a == T(a)))
        out.append(QStringLiteral("copy"));
    const QJsonObject fields = json(a).toObject();
    for (auto it = fields.begin(); it != fields.end(); ++it) {
        QJsonObject other = fields;
        other.insert(it.key(), changed(it.value()));
        if (a == read<T>(other))
            out.append(it.key());
    }
    return out;
}

// clang-format off
#define EQ(T) {QStringLiteral(#T), overlooked<T>}
const QHash<QString, QJsonValue (*)(const QJsonValue&)> kEquality {
    EQ(CdrEntry), EQ(ServerCommand), EQ(IdentityEntry), EQ(BuddyIdentityEntry), EQ(BuddyEntry),
    EQ(BuddyStatus), EQ(FileBinaryData), EQ(VoicemailAudioFile), EQ(ContactEntry), EQ(PhoneBookEntry),
    EQ(PhoneBook), EQ(QueueMember), EQ(QueueEvent), EQ(QueueOperatorStats), EQ(QueueStats),
    EQ(QueuePeriodicStats), EQ(QueuePeriodicStatsList), EQ(QueueOperatorPeriodicStats), EQ(CallCenterReport),
    EQ(ChannelStatus), EQ(ServiceStatus), EQ(InCallServiceStatus), EQ(ChatConfiguration),
    EQ(SipConfiguration), EQ(ServerCommandResponse), EQ(DiagnosticMessage), EQ(VoicemailMessage),
    EQ(MailboxStatus)};
#undef EQ
// clang-format on

// A stream fed to the framer step by step: a string is a chunk (the buffer
// is noted after it), {"max": n}, {"mode": n} and {"empty": true} call the
// setters. Gives the buffers, the signals in order and the queued messages.
QJsonValue frame(const QJsonArray& steps)
{
    SimpleXmlParser parser;
    parser.rootTag = QStringLiteral("SRNT");
    QJsonArray buffers, events, messages;
    QObject::connect(&parser, &SimpleXmlParser::messageCompleted, [&] { events.append("completed"); });
    QObject::connect(&parser, &SimpleXmlParser::parsedMessage, [&](const QString& m) { events.append(m); });
    QObject::connect(&parser, &SimpleXmlParser::parseErrorFound, [&](SimpleXmlParser::ParseErrorEnumType e) {
        events.append(e == SimpleXmlParser::MalformedStream ? "malformed" : "full");
    });
    for (const QJsonValue& step : steps) {
        const QJsonObject o = step.toObject();
        if (step.isString()) {
            parser.addData(step.toString());
            buffers.append(parser.getCurrentBuffer());
        } else if (o.contains(QLatin1String("max"))) {
            parser.setMaxBufferSize(o[QLatin1String("max")].toInt());
            buffers.append(parser.maxBufferSize());
        } else if (o.contains(QLatin1String("mode"))) {
            parser.setNotifyMode(o[QLatin1String("mode")].toInt());
        } else {
            parser.emptyBuffer();
        }
    }
    while (parser.hasPendingMessages())
        messages.append(parser.getNextMessage());
    messages.append(parser.getNextMessage());
    return QJsonObject {{QStringLiteral("buffers"), buffers},
                        {QStringLiteral("events"), events},
                        {QStringLiteral("messages"), messages}};
}

QJsonObject properties(const QMap<QString, QString>& map)
{
    QJsonObject o;
    for (auto it = map.begin(); it != map.end(); ++it)
        o.insert(it.key(), it.value());
    return o;
}

const QHash<QString, Call>& calls()
{
    static const QHash<QString, Call> table {
        // A registered type: its properties in order and its default value.
        {QStringLiteral("type"),
         [](const QJsonArray& a) {
             const int id = QMetaType::type(a.at(0).toString().toLatin1());
             QJsonArray properties;
             if (const QMetaObject* meta = QMetaType::metaObjectForType(id)) {
                 for (int i = 0; i < meta->propertyCount(); ++i)
                     properties.append(QLatin1String(meta->property(i).name()));
             }
             return QJsonObject {
                 {QStringLiteral("registered"), id != QMetaType::UnknownType},
                 {QStringLiteral("properties"), properties},
                 {QStringLiteral("default"), id ? JsonConvert::toJson(QVariant(id, nullptr)) : QJsonValue()}};
         }},
        {QStringLiteral("equality"),
         [](const QJsonArray& a) { return kEquality.value(a.at(0).toString())(a.at(1)); }},
        {QStringLiteral("cdrTexts"),
         [](const QJsonArray& a) {
             return QJsonArray {CDR::directionText(a.at(0).toInt()), CDR::statusText(a.at(0).toInt())};
         }},
        {QStringLiteral("cdrUpdateInfo"),
         [](const QJsonArray& a) {
             CdrEntry entry = read<CdrEntry>(a.at(0));
             entry.updateInfo(a.at(1).toString());
             return json(entry);
         }},
        {QStringLiteral("toPhoneBook"),
         [](const QJsonArray& a) {
             BuddyBook book;
             book.append(read<QList<BuddyEntry>>(a.at(0)));
             return json(book.toPhoneBook(read<QStringList>(a.at(1))));
         }},
        // An entry built field by field and contact by contact, in all its forms.
        {QStringLiteral("phoneBookEntry"),
         [](const QJsonArray& a) {
             PhoneBookEntry entry = read<PhoneBookEntry>(a.at(0));
             const QList<ContactEntry> contacts = read<QList<ContactEntry>>(a.at(1));
             for (const ContactEntry& c : contacts)
                 entry.addContact(c);
             const QString xml = contactXml(entry);
             return QJsonObject {{QStringLiteral("entry"), json(entry)},
                                 {QStringLiteral("text"), entry.toString()},
                                 {QStringLiteral("json"), entry.toJson()},
                                 {QStringLiteral("jsonBack"), json(PhoneBookEntry::fromJson(entry.toJson()))},
                                 {QStringLiteral("xml"), xml},
                                 {QStringLiteral("xmlBack"), json(PhonebookToXmlUtil::contactFromXml(xml))}};
         }},
        {QStringLiteral("entryFromJson"),
         [](const QJsonArray& a) { return json(PhoneBookEntry::fromJson(a.at(0).toString())); }},
        {QStringLiteral("contactFromXml"),
         [](const QJsonArray& a) { return json(PhonebookToXmlUtil::contactFromXml(a.at(0).toString())); }},
        {QStringLiteral("envelope"),
         [](const QJsonArray& a) {
             KeepAliveReqMsg msg;
             msg.parseMessageMetadata(a.at(0).toString());
             return QJsonArray {msg.uuid, msg.api, JsonConvert::toJson(msg.timestamp),
                                msg.timestamp.timeSpec() == Qt::UTC};
         }},
        {QStringLiteral("frame"), [](const QJsonArray& a) { return frame(a); }},
        {QStringLiteral("getTagValue"),
         [](const QJsonArray& a) {
             const QString xml = a.at(0).toString(), tag = a.at(1).toString(), def = a.at(3).toString();
             return QJsonArray {SimpleXmlParser::getTagValue(xml, tag, a.at(2).toInt(), def),
                                SimpleXmlParser::getDecodedTagValue(xml, tag, a.at(2).toInt(), def)};
         }},
        {QStringLiteral("getTagsValues"),
         [](const QJsonArray& a) {
             const QString xml = a.at(0).toString(), tag = a.at(1).toString();
             QJsonArray all;
             for (const auto& p : SimpleXmlParser::getTagsProperties(xml, tag))
                 all.append(properties(p));
             return QJsonArray {QJsonArray::fromStringList(SimpleXmlParser::getTagsValues(xml, tag)),
                                QJsonArray::fromStringList(SimpleXmlParser::getDecodedTagsValues(xml, tag)),
                                all};
         }},
        {QStringLiteral("getTagProperties"),
         [](const QJsonArray& a) {
             return properties(
                 SimpleXmlParser::getTagProperties(a.at(0).toString(), a.at(1).toString(), a.at(2).toInt()));
         }},
        {QStringLiteral("findStartTagDelimiters"),
         [](const QJsonArray& a) {
             int start = 99, end = 99;
             const bool selfClosed = SimpleXmlParser::findStartTagDelimiters(
                 a.at(0).toString(), a.at(1).toString(), a.at(2).toInt(), start, end);
             return QJsonArray {selfClosed, start, end};
         }},
        {QStringLiteral("decodeEntities"),
         [](const QJsonArray& a) { return SimpleXmlParser::decodeEntities(a.at(0).toString()); }},
        {QStringLiteral("encodeEntities"),
         [](const QJsonArray& a) {
             return SimpleXmlParser::encodeEntities(a.at(0).toString(), a.at(1).toBool());
         }},
        {QStringLiteral("unquoteString"),
         [](const QJsonArray& a) { return SimpleXmlParser::unquoteString(a.at(0).toString()); }},
    };
    return table;
}

} // namespace

class TestProtocolGolden : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void golden_data();
    void golden();
    void cleanupTestCase();

private:
    QHash<QString, QJsonArray> m_updated;
};

void TestProtocolGolden::golden_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("index");
    const QStringList files = QDir(kFixtureDir).entryList({QStringLiteral("*.json")}, QDir::Files);
    QVERIFY(!files.isEmpty());
    for (const QString& file : files) {
        QFile f(kFixtureDir + QLatin1Char('/') + file);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QJsonArray cases = QJsonDocument::fromJson(f.readAll()).array();
        QVERIFY2(!cases.isEmpty(), qPrintable(file));
        m_updated.insert(file, cases);
        for (int i = 0; i < cases.size(); ++i)
            QTest::addRow("%s %s", qPrintable(file),
                          qPrintable(cases.at(i)[QLatin1String("name")].toString()))
                << file << i;
    }
}

void TestProtocolGolden::golden()
{
    QFETCH(QString, file);
    QFETCH(int, index);
    QJsonObject c = m_updated.value(file).at(index).toObject();
    QJsonObject actual;
    if (c.contains(QLatin1String("parse"))) {
        const MessageFields::Kind kind = MessageFields::kinds().value(c[QLatin1String("parse")].toString());
        QVERIFY(kind.parse);
        QString written;
        QtLogCapture log;
        actual[QStringLiteral("expected")]
            = clockRelative(kind.parse(c[QLatin1String("xml")].toString(), &written), true);
        actual[QStringLiteral("log")] = QJsonArray::fromStringList(log.messages());
        actual[QStringLiteral("written")] = written;
    } else if (c.contains(QLatin1String("call"))) {
        const Call call = calls().value(c[QLatin1String("call")].toString());
        QVERIFY(call);
        QtLogCapture log;
        actual[QStringLiteral("expected")] = call(c[QLatin1String("args")].toArray());
        actual[QStringLiteral("log")] = QJsonArray::fromStringList(log.messages());
    } else {
        const MessageFields::Kind kind = MessageFields::kinds().value(c[QLatin1String("write")].toString());
        QVERIFY(kind.write);
        actual[QStringLiteral("wire")] = kind.write(
            clockRelative(c[QLatin1String("fields")], false).toObject(), c[QLatin1String("api")].toString());
    }
    // A case may leave out what depends on the day it runs.
    const bool fresh = !c.contains(QLatin1String("expected")) && !c.contains(QLatin1String("wire"));
    if (qEnvironmentVariableIntValue("TELVIX_GOLDEN_UPDATE")) {
        for (auto it = actual.begin(); it != actual.end(); ++it) {
            if (fresh || c.contains(it.key()))
                c.insert(it.key(), it.value());
        }
        m_updated[file][index] = c;
        return;
    }
    QVERIFY2(!fresh, "a case without results: run once with TELVIX_GOLDEN_UPDATE=1");
    for (auto it = actual.begin(); it != actual.end(); ++it) {
        if (!c.contains(it.key()))
            continue;
        const QString diff = firstDifference(it.value(), c.value(it.key()), it.key());
        QVERIFY2(diff.isEmpty(), qPrintable(diff));
    }
}

void TestProtocolGolden::cleanupTestCase()
{
    if (!qEnvironmentVariableIntValue("TELVIX_GOLDEN_UPDATE"))
        return;
    for (auto it = m_updated.begin(); it != m_updated.end(); ++it) {
        QFile f(kFixtureDir + QLatin1Char('/') + it.key());
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(QJsonDocument(it.value()).toJson());
    }
}

QTEST_GUILESS_MAIN(TestProtocolGolden)
#include "tst_protocolgolden.moc"
