#include "phonebook.h"
#include "phonebooktoxmlutil.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"

#include <QJsonDocument>
#include <QtTest>

using namespace PHONEBOOK;

namespace {

ContactEntry contact(const QString& kind, const QString& label, const QString& value, bool primary = false)
{
    return ContactEntry {kind, label, value, primary};
}

QString writeContact(const PhoneBookEntry& entry)
{
    QString xml;
    QXmlStreamWriter writer(&xml);
    PhonebookToXmlUtil::contactToXml(entry, writer);
    return xml;
}

QString userXml(const QString& contacts)
{
    return QStringLiteral("<User><ContactUuid>u-1</ContactUuid><First>Ada</First><Last>Lovelace</Last>"
                          "<Company>Acme</Company><Unit>R&amp;D</Unit><Contacts>%1</Contacts></User>")
        .arg(contacts);
}

QString xmlContact(const QString& type, const QString& value)
{
    return QStringLiteral("<Contact><Type>%1</Type><Value>%2</Value></Contact>").arg(type, value);
}

// "kind/label=value" per contact, with a "*" for the primary mark.
QStringList describe(const QList<ContactEntry>& contacts)
{
    QStringList out;
    for (const ContactEntry& c : contacts)
        out << c.kind + "/" + c.label + "=" + c.value + (c.primary ? "*" : "");
    return out;
}

} // namespace

class TestPhoneBook : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void addContact_data();
    void addContact();
    void primaryClearsOnlyItsKind();

    void toStringLists_data();
    void toStringLists();

    void fromJsonRejects_data();
    void fromJsonRejects();
    void fromJsonReadsEntry();
    void jsonRoundTrip();

    void contactToXmlExact();
    void contactToXmlTypes_data();
    void contactToXmlTypes();

    void contactFromXmlTypes_data();
    void contactFromXmlTypes();
    void contactFromXmlNames_data();
    void contactFromXmlNames();
    void xmlRoundTrip();
    void xmlRoundTripDeviations_data();
    void xmlRoundTripDeviations();
};

void TestPhoneBook::addContact_data()
{
    QTest::addColumn<QList<ContactEntry>>("added");
    QTest::addColumn<QStringList>("held");
    QTest::addColumn<QStringList>("cached"); // email, exten, work, mobile, home

    QTest::newRow("empty value not stored")
        << QList<ContactEntry> {contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE, "")} << QStringList {}
        << QStringList {"", "", "", "", ""};
    QTest::newRow("empty kind not stored") << QList<ContactEntry> {contact("", CTYPE_LABEL_MOBILE, "333")}
                                           << QStringList {} << QStringList {"", "", "", "", ""};
    QTest::newRow("exten is also work")
        << QList<ContactEntry> {contact(CTYPE_KIND_PHONE, CTYPE_LABEL_EXTEN, "201")}
        << QStringList {"phone/exten=201"} << QStringList {"", "201", "201", "", ""};
    QTest::newRow("first mobile wins")
        << QList<ContactEntry> {contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE, "333"),
                                contact(CTYPE_KIND_PHONE, CTYPE_LABEL_WORK_MOBILE, "334")}
        << QStringList {"phone/mobile=333", "phone/work_mobile=334"} << QStringList {"", "", "", "333", ""};
    QTest::newRow("later primary mobile replaces")
        << QList<ContactEntry> {contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE, "333", true),
                                contact(CTYPE_KIND_PHONE, CTYPE_LABEL_HOME, "051"),
                                contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE, "334", true)}
        << QStringList {"phone/mobile=333", "phone/home=051", "phone/mobile=334*"}
        << QStringList {"", "", "", "334", "051"};
    QTest::newRow("work after exten stays exten")
        << QList<ContactEntry> {contact(CTYPE_KIND_PHONE, CTYPE_LABEL_EXTEN, "201"),
                                contact(CTYPE_KIND_PHONE, CTYPE_LABEL_WORK, "0511234")}
        << QStringList {"phone/exten=201", "phone/work=0511234"} << QStringList {"", "201", "201", "", ""};
    QTest::newRow("primary work takes over work")
        << QList<ContactEntry> {contact(CTYPE_KIND_PHONE, CTYPE_LABEL_EXTEN, "201"),
                                contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MAIN, "0511234", true)}
        << QStringList {"phone/exten=201", "phone/main=0511234*"}
        << QStringList {"", "201", "0511234", "", ""};
    QTest::newRow("email of any label")
        << QList<ContactEntry> {contact(CTYPE_KIND_EMAIL, CTYPE_LABEL_HOME, "a@home"),
                                contact(CTYPE_KIND_EMAIL, CTYPE_LABEL_MAIN, "a@work")}
        << QStringList {"email/home=a@home", "email/main=a@work"} << QStringList {"a@home", "", "", "", ""};
    QTest::newRow("fax, im and other fill nothing")
        << QList<ContactEntry> {contact(CTYPE_KIND_PHONE, CTYPE_LABEL_FAX, "0519"),
                                contact(CTYPE_KIND_IM, CTYPE_LABEL_MAIN, "ada@im"),
                                contact(CTYPE_KIND_OTHER, CTYPE_LABEL_MOBILE, "x")}
        << QStringList {"phone/fax=0519", "im/main=ada@im", "other/mobile=x"}
        << QStringList {"", "", "", "", ""};
}

void TestPhoneBook::addContact()
{
    QFETCH(QList<ContactEntry>, added);
    QFETCH(QStringList, held);
    QFETCH(QStringList, cached);

    PhoneBookEntry entry;
    for (const ContactEntry& c : added)
        entry.addContact(c);
    QCOMPARE(describe(entry.contacts), held);
    QCOMPARE((QStringList {entry.email, entry.extenNumber, entry.workNumber, entry.mobileNumber,
                           entry.homeNumber}),
             cached);
}

void TestPhoneBook::primaryClearsOnlyItsKind()
{
    PhoneBookEntry entry;
    entry.addContact(contact(CTYPE_KIND_EMAIL, CTYPE_LABEL_MAIN, "a@x", true));
    entry.addContact(contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE, "333", true));
    entry.addContact(contact(CTYPE_KIND_PHONE, CTYPE_LABEL_HOME, "051", true));
    QCOMPARE(describe(entry.contacts),
             (QStringList {"email/main=a@x*", "phone/mobile=333", "phone/home=051*"}));
    // The cache is not revised when a mark is taken away.
    QCOMPARE(entry.mobileNumber, QString("333"));
    QCOMPARE(entry.homeNumber, QString("051"));
}

void TestPhoneBook::toStringLists_data()
{
    QTest::addColumn<int>("contacts");
    QTest::newRow("no contacts") << 0;
    QTest::newRow("three contacts") << 3;
}

void TestPhoneBook::toStringLists()
{
    QFETCH(int, contacts);
    PhoneBookEntry entry;
    entry.displayName = "Ada Lovelace";
    entry.firstName = "Ada";
    entry.lastName = "Lovelace";
    entry.company = "Acme";
    entry.unit = "R&D";
    entry.address = "12 Engine Row";
    const QStringList labels {CTYPE_LABEL_MOBILE, CTYPE_LABEL_HOME, CTYPE_LABEL_EXTEN};
    for (int i = 0; i < contacts; ++i)
        entry.addContact(contact(CTYPE_KIND_PHONE, labels.at(i), QString::number(100 + i)));

    const QStringList lines = entry.toString().split('\n');
    QCOMPARE(lines.size(), 7 + contacts);
    QVERIFY(lines.at(0).startsWith("Fullname:") && lines.at(0).endsWith("Ada Lovelace"));
    QVERIFY(lines.at(1).startsWith("First:") && lines.at(1).endsWith("Ada"));
    QVERIFY(lines.at(2).startsWith("Last:") && lines.at(2).endsWith("Lovelace"));
    QVERIFY(lines.at(3).startsWith("Company:") && lines.at(3).endsWith("Acme"));
    QVERIFY(lines.at(4).startsWith("Unit:") && lines.at(4).endsWith("R&D"));
    for (int i = 0; i < contacts; ++i) {
        QVERIFY(lines.at(5 + i).contains(QString::number(100 + i)));
        QVERIFY(lines.at(5 + i).contains("(" + labels.at(i) + ")"));
    }
    QVERIFY(lines.at(5 + contacts).startsWith("Addr:") && lines.at(5 + contacts).endsWith("12 Engine Row"));
    QCOMPARE(lines.last(), QString("-----------------------"));
}

void TestPhoneBook::fromJsonRejects_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<QString>("logLine");
    const QString notDoc = QStringLiteral("Failed to create JSON doc from string");
    QTest::newRow("not json") << QStringLiteral("{firstName: Ada") << notDoc;
    QTest::newRow("empty text") << QString() << notDoc;
    QTest::newRow("array") << QStringLiteral("[1]") << QStringLiteral("JSON is not an object.");
    QTest::newRow("empty object") << QStringLiteral("{}") << QStringLiteral("JSON object is empty.");
}

void TestPhoneBook::fromJsonRejects()
{
    QFETCH(QString, json);
    QFETCH(QString, logLine);
    QtLogCapture log;
    const PhoneBookEntry entry = PhoneBookEntry::fromJson(json);
    QCOMPARE(entry, PhoneBookEntry());
    QCOMPARE(log.messages(), QStringList {logLine});
}

void TestPhoneBook::fromJsonReadsEntry()
{
    const QString json = R"({"displayName":"Ada L.","firstName":"Ada","lastName":"Lovelace","unit":"R&D",
        "company":"Acme","address":"12 Engine Row","contactUuid":"ignored","email":"ignored@x",
        "contacts":[{"type":"phone","label":"mobile","value":"333","primary":true},
                    {"type":"phone","label":"mobile","value":"334"},
                    {"type":"phone","label":"home","value":""},
                    {"type":"email","label":"work","value":"ada@acme"},
                    {"label":"exten","value":"201"}]})";
    QtLogCapture log;
    const PhoneBookEntry entry = PhoneBookEntry::fromJson(json);
    QVERIFY(log.messages().isEmpty());
    QCOMPARE(entry.displayName, QString("Ada L."));
    QCOMPARE(entry.firstName, QString("Ada"));
    QCOMPARE(entry.lastName, QString("Lovelace"));
    QCOMPARE(entry.unit, QString("R&D"));
    QCOMPARE(entry.company, QString("Acme"));
    QCOMPARE(entry.address, QString("12 Engine Row"));
    QVERIFY(entry.contactUuid.isEmpty());
    // Contacts are taken as given, empty ones and kindless ones included, and
    // no primary mark is read; only the cache follows them.
    QCOMPARE(describe(entry.contacts),
             (QStringList {"phone/mobile=333", "phone/mobile=334", "phone/home=", "email/work=ada@acme",
                           "/exten=201"}));
    QCOMPARE(entry.mobileNumber, QString("333"));
    QCOMPARE(entry.homeNumber, QString(""));
    QCOMPARE(entry.email, QString("ada@acme"));
    QVERIFY(entry.extenNumber.isEmpty());
}

void TestPhoneBook::jsonRoundTrip()
{
    PhoneBookEntry entry;
    entry.displayName = "Ada \"the Countess\" Lovelace";
    entry.firstName = "Ada";
    entry.lastName = "Lovelace";
    entry.unit = "R&D";
    entry.company = "Acme";
    entry.address = "12 Engine Row\nLondon";
    entry.addContact(contact(CTYPE_KIND_PHONE, CTYPE_LABEL_EXTEN, "201"));
    entry.addContact(contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE, "+39 333"));
    entry.addContact(contact(CTYPE_KIND_EMAIL, CTYPE_LABEL_MAIN, "ada@acme"));
    entry.addContact(contact(CTYPE_KIND_IM, CTYPE_LABEL_MAIN, "ada@chat"));

    const PhoneBookEntry back = PhoneBookEntry::fromJson(entry.toJson());
    QCOMPARE(back, entry);
    QVERIFY(QJsonDocument::fromJson(entry.toJson().toUtf8()).isObject());
}

void TestPhoneBook::contactToXmlExact()
{
    PhoneBookEntry entry;
    entry.contactUuid = "u-1";
    entry.firstName = "Ada";
    entry.lastName = "Love<lace>";
    entry.company = "A&B";
    entry.addContact(contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE, "333"));
    entry.addContact(contact(CTYPE_KIND_EMAIL, CTYPE_LABEL_MAIN, "ada@acme"));
    QCOMPARE(writeContact(entry),
             QString("<User><ContactUuid>u-1</ContactUuid><First>Ada</First><Last>Love&lt;lace&gt;</Last>"
                     "<Company>A&amp;B</Company><Unit></Unit><Contacts>"
                     "<Contact><Type>MOBILE</Type><Value>333</Value></Contact>"
                     "<Contact><Type>EMAIL</Type><Value>ada@acme</Value></Contact></Contacts></User>"));

    entry.contactUuid.clear();
    entry.contacts.clear();
    QCOMPARE(writeContact(entry),
             QString("<User><First>Ada</First><Last>Love&lt;lace&gt;</Last>"
                     "<Company>A&amp;B</Company><Unit></Unit><Contacts/></User>"));
}

void TestPhoneBook::contactToXmlTypes_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("type"); // empty: no Contact element
    QTest::newRow("phone main") << CTYPE_KIND_PHONE << CTYPE_LABEL_MAIN << "PHONE";
    QTest::newRow("phone exten") << CTYPE_KIND_PHONE << CTYPE_LABEL_EXTEN << "EXTEN";
    QTest::newRow("email main") << CTYPE_KIND_EMAIL << CTYPE_LABEL_MAIN << "EMAIL";
    QTest::newRow("email home") << CTYPE_KIND_EMAIL << CTYPE_LABEL_HOME << "HOME";
    QTest::newRow("im main") << CTYPE_KIND_IM << CTYPE_LABEL_MAIN << "IM";
    QTest::newRow("phone without label") << CTYPE_KIND_PHONE << ""
                                         << "";
}

void TestPhoneBook::contactToXmlTypes()
{
    QFETCH(QString, kind);
    QFETCH(QString, label);
    QFETCH(QString, type);
    PhoneBookEntry entry;
    entry.addContact(contact(kind, label, "v1"));
    const QString xml = writeContact(entry);
    const QStringList types = SimpleXmlParser::getTagsValues(xml, "Type");
    QCOMPARE(types, type.isEmpty() ? QStringList {} : QStringList {type});
}

void TestPhoneBook::contactFromXmlTypes_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("described"); // empty: dropped
    const QList<QPair<const char*, const char*>> rows {{"exten", "phone/exten=v"},
                                                       {"EXTEN", "phone/exten=v"},
                                                       {"HOME", "phone/home=v"},
                                                       {"WORK", "phone/work=v"},
                                                       {"Mobile", "phone/mobile=v"},
                                                       {"FAX", "phone/fax=v"},
                                                       {"EMAIL", "email/main=v"},
                                                       {"WORK_MOBILE", "phone/work_mobile=v"},
                                                       {"PAGER", ""},
                                                       {"PHONE", ""},
                                                       {"", ""}};
    for (const auto& row : rows)
        QTest::newRow(*row.first ? row.first : "empty") << QString(row.first) << QString(row.second);
}

void TestPhoneBook::contactFromXmlTypes()
{
    QFETCH(QString, type);
    QFETCH(QString, described);
    QtLogCapture log;
    const PhoneBookEntry entry
        = PhonebookToXmlUtil::contactFromXml(userXml(xmlContact(type, "v") + xmlContact("MOBILE", "333")));
    // The entry stays, whatever becomes of its contacts.
    QCOMPARE(entry.contactUuid, QString("u-1"));
    QStringList expected;
    if (!described.isEmpty())
        expected << described;
    expected << "phone/mobile=333";
    QCOMPARE(describe(entry.contacts), expected);
    QVERIFY(log.messages().isEmpty());
}

void TestPhoneBook::contactFromXmlNames_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QString>("expected"); // displayName|unit
    QTest::newRow("both") << userXml("") << "Ada Lovelace|R&D";
    QTest::newRow("first only") << "<User><First>Ada</First><Last></Last></User>"
                                << "Ada|";
    QTest::newRow("last only") << "<User><Last>Lovelace</Last></User>"
                               << "Lovelace|";
    QTest::newRow("no names") << "<User><Company>Acme</Company></User>"
                              << "|";
    QTest::newRow("attributes on user") << "<User id='7'><First>Ada</First><Unit>Ops</Unit></User>"
                                        << "Ada|Ops";
}

void TestPhoneBook::contactFromXmlNames()
{
    QFETCH(QString, xml);
    QFETCH(QString, expected);
    const PhoneBookEntry entry = PhonebookToXmlUtil::contactFromXml(xml);
    QCOMPARE(entry.displayName + QLatin1Char('|') + entry.unit, expected);
}

void TestPhoneBook::xmlRoundTrip()
{
    PhoneBookEntry entry;
    entry.contactUuid = "{0f6e2c1a-aaaa-bbbb-cccc-000000000001}";
    entry.firstName = "Zoë";
    entry.lastName = "O'Brien & \"Sons\"";
    entry.displayName = "Zoë O'Brien & \"Sons\"";
    entry.company = "<Acme>";
    entry.unit = "Ops";
    for (const QString& label : {CTYPE_LABEL_EXTEN, CTYPE_LABEL_HOME, CTYPE_LABEL_WORK, CTYPE_LABEL_MOBILE,
                                 CTYPE_LABEL_WORK_MOBILE, CTYPE_LABEL_FAX})
        entry.addContact(contact(CTYPE_KIND_PHONE, label, "n-" + label));
    entry.addContact(contact(CTYPE_KIND_EMAIL, CTYPE_LABEL_MAIN, "zoe@acme"));

    // The user element is read from within a larger document, as a server sends it.
    const QString doc = "<PhoneBook>" + writeContact(entry) + "</PhoneBook>";
    const PhoneBookEntry back
        = PhonebookToXmlUtil::contactFromXml(SimpleXmlParser::getTagsValues(doc, "User").value(0));
    QCOMPARE(back, entry);
}

void TestPhoneBook::xmlRoundTripDeviations_data()
{
    QTest::addColumn<ContactEntry>("written");
    QTest::addColumn<QStringList>("read");
    // A main phone number goes out as "PHONE", which no reader knows.
    QTest::newRow("phone main lost") << contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MAIN, "051") << QStringList {};
    QTest::newRow("im lost") << contact(CTYPE_KIND_IM, CTYPE_LABEL_MAIN, "a@im") << QStringList {};
    // The label speaks for the kind: a home address becomes a home phone.
    QTest::newRow("email home turns phone")
        << contact(CTYPE_KIND_EMAIL, CTYPE_LABEL_HOME, "a@home") << QStringList {"phone/home=a@home"};
    QTest::newRow("primary not carried")
        << contact(CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE, "333", true) << QStringList {"phone/mobile=333"};
}

void TestPhoneBook::xmlRoundTripDeviations()
{
    QFETCH(ContactEntry, written);
    QFETCH(QStringList, read);
    PhoneBookEntry entry;
    entry.firstName = "Ada";
    entry.displayName = "Countess";
    entry.addContact(written);
    const PhoneBookEntry back = PhonebookToXmlUtil::contactFromXml(writeContact(entry));
    QCOMPARE(describe(back.contacts), read);
    // The display name is not written; it comes back made from the names.
    QCOMPARE(back.displayName, QString("Ada"));
}

QTEST_APPLESS_MAIN(TestPhoneBook)
#include "tst_phonebook.moc"
