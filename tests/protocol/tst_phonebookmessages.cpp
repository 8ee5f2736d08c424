#include "messagetestutil.h"
#include "phonebookmessages.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"

#include <QtTest>

using namespace MessageTestUtil;
using namespace PHONEBOOK;

namespace {

QString user(const QString& uuid, const QString& first, const QString& owner = QString(),
             const QString& contacts = QString())
{
    QString xml = "<User>";
    if (!uuid.isNull())
        xml += "<ContactUuid>" + uuid + "</ContactUuid>";
    xml += "<First>" + first + "</First><Last>L" + first + "</Last>";
    if (!owner.isNull())
        xml += "<Owner>" + owner + "</Owner>";
    xml += "<Contacts>" + contacts + "</Contacts></User>";
    return xml;
}

QString book(const QString& folder, const QString& users)
{
    return "<PhoneBook><PhoneBookFolder>" + folder + "</PhoneBookFolder>" + users + "</PhoneBook>";
}

// "folder:uuid,uuid" per book, in list order.
QStringList describe(const QList<PhoneBook>& books)
{
    QStringList out;
    for (const PhoneBook& b : books) {
        QStringList uuids;
        for (const PhoneBookEntry& e : b.entries)
            uuids << e.contactUuid;
        out << b.folder + ":" + uuids.join(',');
    }
    return out;
}

PhoneBookEntry sampleEntry(const QString& uuid)
{
    PhoneBookEntry entry;
    entry.contactUuid = uuid;
    entry.firstName = "Ada";
    entry.lastName = "Lovelace & Co";
    entry.displayName = "Ada Lovelace & Co";
    entry.company = "Acme";
    entry.unit = "R&D";
    entry.addContact(ContactEntry {CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE, "+39 333", false});
    entry.addContact(ContactEntry {CTYPE_KIND_EMAIL, CTYPE_LABEL_MAIN, "ada@acme", false});
    return entry;
}

} // namespace

class TestPhoneBookMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pbookBooks_data();
    void pbookBooks();
    void pbookEntryFields();
    void pbookThousandsWithMalformed();
    void pbookEmpty_data();
    void pbookEmpty();
    void pbookFailed();
    void pbookRoundTrip();

    void getAndDeleteRequests_data();
    void getAndDeleteRequests();
    void contactRequests_data();
    void contactRequests();
};

void TestPhoneBookMessages::pbookBooks_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QStringList>("books");

    QTest::newRow("4.2 public only") << serverDocument(
        "<PhoneBookList>" + book("Public", user("a", "A") + user("b", "B")) + "</PhoneBookList>", "4.2")
                                     << QStringList {"Public:a,b"};
    QTest::newRow("5.4 both folders")
        << serverDocument("<PhoneBookList>" + book("Public", user("a", "A", "-1"))
                              + book("Private", user("p", "P", "1000")) + "</PhoneBookList>",
                          "5.4")
        << QStringList {"Public:a", "Private:p"};
    // The folder element is not looked at: only "Owner" decides.
    QTest::newRow("5.7 owner decides, not folder") << serverDocument(
        "<PhoneBookList>" + book("Private", user("a", "A", "") + user("p", "P", "1000"))
            + book("Public", user("q", "Q", "alice") + user("b", "B", "-1")) + "</PhoneBookList>",
        "5.7") << QStringList {"Public:a,b", "Private:p,q"};
    QTest::newRow("5.10 private only") << serverDocument(
        "<PhoneBookList>" + book("Private", user("p", "P", "1000")) + "</PhoneBookList>", "5.10")
                                       << QStringList {"Private:p"};
    QTest::newRow("6.1 phonebook event, users without book")
        << serverDocument("<Phonebook>" + user("a", "A") + user("p", "P", "0") + "</Phonebook>", "6.1")
        << QStringList {"Public:a", "Private:p"};
    QTest::newRow("6.1 entry without uuid skipped") << serverDocument(
        "<PhoneBookList>" + book("Public", user(QString(), "X") + user("", "Y") + user("b", "B"))
            + "</PhoneBookList>",
        "6.1") << QStringList {"Public:b"};
}

void TestPhoneBookMessages::pbookBooks()
{
    QFETCH(QString, xml);
    QFETCH(QStringList, books);
    QtLogCapture log;
    const PBookRespMsg msg = PBookRespMsg::parseMessage(xml);
    QVERIFY(msg.success);
    QCOMPARE(describe(msg.phoneBooks), books);
    for (const PhoneBook& b : msg.phoneBooks) {
        QCOMPARE(b.type, PB_VANTOR);
        QVERIFY(b.name.isEmpty());
    }
    QCOMPARE(msg.uuid, fixtureUuid());
    QCOMPARE(msg.api, SimpleXmlParser::getTagValue(xml, "API"));
    QCOMPARE(log.messages().count("PBook msg parsed ok"), 1);
    QVERIFY(!log.contains("API version"));
}

void TestPhoneBookMessages::pbookEntryFields()
{
    const QString contacts = "<Contact><Type>EXTEN</Type><Value>201</Value></Contact>"
                             "<Contact><Type>MOBILE</Type><Value>+39 333</Value></Contact>"
                             "<Contact><Type>PAGER</Type><Value>99</Value></Contact>"
                             "<Contact><Type>EMAIL</Type><Value>ada&amp;bob@acme</Value></Contact>";
    const QString xml = serverDocument("<PhoneBookList>" + book("Public", user("u-1", "Ada", "-1", contacts))
                                       + "</PhoneBookList>");
    const PBookRespMsg msg = PBookRespMsg::parseMessage(xml);
    QCOMPARE(msg.phoneBooks.size(), 1);
    QCOMPARE(msg.phoneBooks.first().entries.size(), 1);
    const PhoneBookEntry& e = msg.phoneBooks.first().entries.first();
    QCOMPARE(e.firstName, QString("Ada"));
    QCOMPARE(e.lastName, QString("LAda"));
    QCOMPARE(e.displayName, QString("Ada LAda"));
    QCOMPARE(e.contacts.size(), 3);
    QCOMPARE(e.extenNumber, QString("201"));
    QCOMPARE(e.workNumber, QString("201"));
    QCOMPARE(e.mobileNumber, QString("+39 333"));
    QCOMPARE(e.email, QString("ada&bob@acme"));
}

void TestPhoneBookMessages::pbookThousandsWithMalformed()
{
    QString publicUsers, privateUsers;
    QStringList expectedPublic, expectedPrivate;
    int invalid = 0;
    for (int i = 0; i < 3000; ++i) {
        const QString uuid = QString("c-%1").arg(i);
        const QString contacts
            = "<Contact><Type>MOBILE</Type><Value>3" + QString::number(i) + "</Value></Contact>";
        if (i % 13 == 5) {
            publicUsers += user(QString(), "Nouuid" + QString::number(i), QString(), contacts);
            ++invalid;
        } else if (i % 13 == 8) {
            privateUsers += user("", "Empty" + QString::number(i), "1000", contacts);
            ++invalid;
        } else if (i % 3 == 0) {
            privateUsers += user(uuid, "P" + QString::number(i), QString::number(1000 + i), contacts);
            expectedPrivate << uuid;
        } else {
            publicUsers += user(uuid, "U" + QString::number(i), i % 2 ? "-1" : QString(), contacts);
            expectedPublic << uuid;
        }
    }
    const QString xml = serverDocument("<PhoneBookList>" + book("Public", publicUsers)
                                           + book("Private", privateUsers) + "</PhoneBookList>",
                                       "6.1");
    QtLogCapture log;
    const PBookRespMsg msg = PBookRespMsg::parseMessage(xml);
    QVERIFY(msg.success);
    QCOMPARE(describe(msg.phoneBooks),
             (QStringList {"Public:" + expectedPublic.join(','), "Private:" + expectedPrivate.join(',')}));
    // Each entry's fields come from its own text.
    for (const PhoneBook& b : msg.phoneBooks) {
        for (const PhoneBookEntry& e : b.entries) {
            const QString n = e.contactUuid.mid(2);
            QCOMPARE(e.mobileNumber, "3" + n);
            QVERIFY(e.firstName.endsWith(n));
        }
    }
    QCOMPARE(log.messages().count("parsed an invalid PBookEntry msg, skipping it"), invalid);
    QCOMPARE(log.messages().count("PBook msg parsed ok"), 1);
}

void TestPhoneBookMessages::pbookEmpty_data()
{
    QTest::addColumn<QString>("body");
    QTest::newRow("no users") << "<PhoneBookList></PhoneBookList>";
    QTest::newRow("empty books") << "<PhoneBookList>" + book("Public", "") + book("Private", "")
            + "</PhoneBookList>";
    QTest::newRow("only invalid users")
        << "<PhoneBookList>" + book("Public", user("", "X")) + "</PhoneBookList>";
}

void TestPhoneBookMessages::pbookEmpty()
{
    QFETCH(QString, body);
    QtLogCapture log;
    const PBookRespMsg msg = PBookRespMsg::parseMessage(serverDocument(body, "5.7"));
    QVERIFY(msg.success);
    QVERIFY(msg.phoneBooks.isEmpty());
    QCOMPARE(log.messages().last(), QString("PBook msg parsed ok"));
}

void TestPhoneBookMessages::pbookFailed()
{
    QtLogCapture log;
    const PBookRespMsg msg = PBookRespMsg::parseMessage(failedDocument(
        "db &lt;down&gt;", "<PhoneBookList>" + book("Public", user("a", "A")) + "</PhoneBookList>"));
    QVERIFY(!msg.success);
    QCOMPARE(msg.errorMessage, QString("db <down>"));
    QVERIFY(msg.phoneBooks.isEmpty());
    QVERIFY(msg.uuid.isEmpty());
    QCOMPARE(log.messages(), QStringList {"PBook request failed: db <down>"});
}

void TestPhoneBookMessages::pbookRoundTrip()
{
    PBookRespMsg msg;
    PhoneBook pub;
    pub.type = PB_VANTOR;
    pub.folder = PB_FOLDER_PUBLIC;
    for (int i = 0; i < 20; ++i)
        pub.entries << sampleEntry(QString("c-%1").arg(i));
    msg.phoneBooks << pub;

    const QString xml = msg.serializeToXml("6.1");
    QCOMPARE(SimpleXmlParser::getTagsValues(xml, "PhoneBookFolder"), QStringList {"Public"});
    const PBookRespMsg back = PBookRespMsg::parseMessage(xml);
    QVERIFY(back.success);
    QCOMPARE(back.phoneBooks.size(), 1);
    QCOMPARE(back.phoneBooks.first(), pub);

    // Entries are written without "Owner": private books come back public.
    PhoneBook priv {{sampleEntry("p")}, PB_VANTOR, QString(), PB_FOLDER_PRIVATE};
    msg.phoneBooks = {PhoneBook {{sampleEntry("a")}, PB_VANTOR, QString(), PB_FOLDER_PUBLIC}, priv};
    QCOMPARE(describe(roundTrip(msg, "5.7").phoneBooks), QStringList {"Public:a,p"});
}

void TestPhoneBookMessages::getAndDeleteRequests_data()
{
    QTest::addColumn<QString>("api");
    QTest::newRow("4.1") << "4.1";
    QTest::newRow("5.10") << "5.10";
    QTest::newRow("6.1") << "6.1";
}

void TestPhoneBookMessages::getAndDeleteRequests()
{
    QFETCH(QString, api);
    GetPBookReqMsg req;
    const QString xml = req.serializeToXml(api);
    QCOMPARE(requestBody(xml), QString("<GetPhonebook/>"));
    QCOMPARE(SimpleXmlParser::getTagValue(xml, "API"), api);
    QCOMPARE(
        requestBody(DeletePBookContactReqMsg("c-<9>").serializeToXml(api)),
        QString("<DeletePhoneBookContact><ContactUuid>c-&lt;9&gt;</ContactUuid></DeletePhoneBookContact>"));
}

void TestPhoneBookMessages::contactRequests_data()
{
    QTest::addColumn<bool>("update");
    QTest::addColumn<QString>("command");
    QTest::newRow("add") << false << "AddPhoneBookContact";
    QTest::newRow("update") << true << "UpdatePhoneBookContact";
}

void TestPhoneBookMessages::contactRequests()
{
    QFETCH(bool, update);
    QFETCH(QString, command);
    const PhoneBookEntry entry = sampleEntry("c-9");
    const QString xml = update ? UpdatePBookContactReqMsg(entry).serializeToXml("6.1")
                               : AddPBookContactReqMsg(entry).serializeToXml("6.1");
    const QString body = requestBody(xml);
    QVERIFY2(body.startsWith("<" + command + "><UserContact><User><ContactUuid>c-9</ContactUuid><First>"),
             qPrintable(body));
    QVERIFY(body.endsWith("</Contacts></User></UserContact></" + command + ">"));
    // What a server reads back out of it is the entry.
    const QString userText
        = SimpleXmlParser::getTagValue(SimpleXmlParser::getTagValue(xml, command), "UserContact");
    QCOMPARE(PhonebookToXmlUtil::contactFromXml(userText), entry);

    // A new contact has no uuid and so no "ContactUuid".
    PhoneBookEntry fresh = entry;
    fresh.contactUuid.clear();
    AddPBookContactReqMsg add(fresh);
    QVERIFY(!add.serializeToXml("6.1").contains("ContactUuid"));
}

QTEST_APPLESS_MAIN(TestPhoneBookMessages)
#include "tst_phonebookmessages.moc"
