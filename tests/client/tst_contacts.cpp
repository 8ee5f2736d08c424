// The contact book as an application lives it: an empty book at each login,
// the extension list and the phone books arriving in either order and merged
// with the extensions first, the user left out of both, and contact edits
// checked by what the server receives.
#include "directorymessages.h"
#include "fakectiserver.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "phonebookmessages.h"
#include "servicemessages.h"
#include "simplexmlparser.h"
#include "telvix.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

using Flags = TELVIX::PhonebookTypeFlags;
const Flags Both = TELVIX::PhonebookTypePhonebooks | TELVIX::PhonebookTypeExtensions;

BuddyEntry buddy(const QString& exten, const QString& first, const QString& chatId = QString())
{
    BuddyEntry entry;
    entry.exten = exten;
    entry.firstName = first;
    entry.lastName = QStringLiteral("Colleague");
    entry.chatId = chatId;
    entry.contactUuid = QStringLiteral("uuid-") + exten;
    return entry;
}

QString extenListBody(const QList<BuddyEntry>& buddies)
{
    BuddiesRespMsg msg;
    msg.buddies = buddies;
    return msg.generateXmlMessageBody();
}

PhoneBookEntry person(const QString& uuid, const QString& first, const QString& label, const QString& number)
{
    PhoneBookEntry entry;
    entry.contactUuid = uuid;
    entry.firstName = first;
    entry.lastName = QStringLiteral("Person");
    ContactEntry contact;
    contact.kind = PHONEBOOK::CTYPE_KIND_PHONE;
    contact.label = label;
    contact.value = number;
    entry.addContact(contact);
    return entry;
}

QString phoneBookBody(const QList<PhoneBookEntry>& entries)
{
    PhoneBook book;
    book.type = PHONEBOOK::PB_VANTOR;
    book.folder = PHONEBOOK::PB_FOLDER_PUBLIC;
    book.entries = entries;
    PBookRespMsg msg;
    msg.phoneBooks = {book};
    return msg.generateXmlMessageBody();
}

QStringList firstNames(const PhoneBook& book)
{
    QStringList names;
    for (const PhoneBookEntry& entry : book.entries)
        names.append(entry.firstName);
    return names;
}

QList<PhoneBook> booksOf(const QSignalSpy& spy)
{
    return spy.last().at(0).value<QList<PhoneBook>>();
}

Flags flagsOf(const QSignalSpy& spy)
{
    return spy.last().at(1).value<Flags>();
}

QString tag(const QString& frame, const char* name)
{
    return SimpleXmlParser::getDecodedTagValue(frame, QLatin1String(name));
}

} // namespace

class TestContacts : public QObject
{
    Q_OBJECT

private:
    // A request the client always sends, queued behind the calls before it:
    // once it arrives, what those calls were going to send has arrived too.
    static bool drain(LoggedInClient& session)
    {
        session.client()->addPhoneBookContact(person(QString(), QStringLiteral("Sentinel"), "home", "1"));
        return !session.server().waitForFrame(QStringLiteral("AddPhoneBookContact")).isEmpty();
    }

private Q_SLOTS:
    void cachedBookBeforeAnyAnswerIsEmpty()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        QSignalSpy changed(session.client(), &Telvix::sigPhonebookChanged);
        // No types: nothing to ask for, and nothing is published.
        QVERIFY(session.client()->getContactsList(false, Flags()));
        // Cached: the book as it is, whatever types say, and no request.
        QVERIFY(session.client()->getContactsList(true, Both));
        QTRY_COMPARE(changed.count(), 1);
        QVERIFY(booksOf(changed).isEmpty());
        QCOMPARE(flagsOf(changed), Flags());
        QVERIFY(drain(session));
        QVERIFY(session.framesWith(QStringLiteral("GetPhonebook")).isEmpty());
        QVERIFY(session.framesWith(QStringLiteral("GetExtenList")).isEmpty());
        QCOMPARE(changed.count(), 1);
    }

    void bookMergesExtensionsFirstWithoutTheUser_data()
    {
        QTest::addColumn<QString>("userExten");
        QTest::addColumn<QString>("bookExten");
        QTest::addColumn<bool>("extensionsFirst");
        QTest::newRow("extensions first") << "200"
                                          << "200" << true;
        QTest::newRow("phone books first") << "200"
                                           << "200" << false;
        QTest::newRow("own entry in another case") << "Ops1"
                                                   << "OPS1" << false;
    }

    void bookMergesExtensionsFirstWithoutTheUser()
    {
        QFETCH(QString, userExten);
        QFETCH(QString, bookExten);
        QFETCH(bool, extensionsFirst);
        LoggedInClient session(TELVIX::AppModeSrntPro, QStringLiteral("6.1"), userExten);
        QVERIFY(session.start());
        QSignalSpy changed(session.client(), &Telvix::sigPhonebookChanged);

        QVERIFY(session.client()->getContactsList(false, Both));
        QVERIFY(!session.server().waitForFrame(QStringLiteral("GetPhonebook")).isEmpty());
        QVERIFY(!session.server().waitForFrame(QStringLiteral("GetExtenList")).isEmpty());

        const QString extensions = extenListBody({buddy(QStringLiteral("201"), QStringLiteral("Bob")),
                                                  buddy(userExten, QStringLiteral("Me")),
                                                  buddy(QStringLiteral("202"), QStringLiteral("Carol"))});
        const QString phoneBooks = phoneBookBody(
            {person("p1", QStringLiteral("Dave"), PHONEBOOK::CTYPE_LABEL_MOBILE, "3331234567"),
             person("p2", QStringLiteral("Myself"), PHONEBOOK::CTYPE_LABEL_EXTEN, bookExten),
             person("p3", QStringLiteral("Erin"), PHONEBOOK::CTYPE_LABEL_EXTEN, "201")});

        QVERIFY(session.deliver(extensionsFirst ? extensions : phoneBooks));
        QTRY_COMPARE(changed.count(), 1);
        QList<PhoneBook> books = booksOf(changed);
        if (extensionsFirst) {
            QCOMPARE(books.size(), 1);
            QCOMPARE(flagsOf(changed), Flags(TELVIX::PhonebookTypeExtensions));
        } else {
            // The extension book leads even before it has arrived.
            QCOMPARE(books.size(), 2);
            QVERIFY(books.at(0).entries.isEmpty());
            QCOMPARE(flagsOf(changed), Flags(TELVIX::PhonebookTypePhonebooks));
        }

        QVERIFY(session.deliver(extensionsFirst ? phoneBooks : extensions));
        QTRY_COMPARE(changed.count(), 2);
        books = booksOf(changed);
        QCOMPARE(flagsOf(changed), Both);
        QCOMPARE(books.size(), 2);
        QCOMPARE(books.at(0).type, PHONEBOOK::PB_EXTEN);
        QCOMPARE(firstNames(books.at(0)), (QStringList {"Bob", "Carol"}));
        QCOMPARE(books.at(1).type, PHONEBOOK::PB_VANTOR);
        // A colleague's extension in the phone book stays; the user's own goes.
        QCOMPARE(firstNames(books.at(1)), (QStringList {"Dave", "Erin"}));

        // The cached book is the same list.
        QVERIFY(session.client()->getContactsList(true, Flags()));
        QTRY_COMPARE(changed.count(), 3);
        QCOMPARE(booksOf(changed), books);
        QCOMPARE(flagsOf(changed), Both);
    }

    void loginEmptiesTheBookInDesktopModes_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("emptied");
        QTest::newRow("srnt_pro") << int(TELVIX::AppModeSrntPro) << true;
        QTest::newRow("logger") << int(TELVIX::AppModeSrntLog) << false;
        QTest::newRow("mobile") << int(TELVIX::AppModeSrntMobile) << false;
    }

    void loginEmptiesTheBookInDesktopModes()
    {
        QFETCH(int, mode);
        QFETCH(bool, emptied);
        // The login of LoggedInClient comes before any spy could watch it.
        QTemporaryDir dir;
        FakeCtiServer server;
        server.setAutoLogin(true);
        QVERIFY(server.listen());
        Telvix client(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("contacts-test"),
                      QStringLiteral("1.0"), QStringLiteral("dev-contacts"), dir.path());
        QVERIFY(client.init());
        QSignalSpy changed(&client, &Telvix::sigPhonebookChanged);
        QSignalSpy logged(&client, &Telvix::loggedToServer);
        client.connectToServer(QStringLiteral("alice"), QStringLiteral("pw"), QStringLiteral("default"),
                               TELVIX::AppMode(mode), FakeCtiServer::host(), server.port());
        QTRY_COMPARE_WITH_TIMEOUT(logged.count(), 1, 10000);
        // Raised before loggedToServer, so it has arrived by now if at all.
        QCOMPARE(changed.count(), emptied ? 1 : 0);
        if (emptied) {
            QVERIFY(booksOf(changed).isEmpty());
            QCOMPARE(flagsOf(changed), Flags());
        }
        QVERIFY(client.shutdown());
    }

    void redirectedLoginStartsFromAnEmptyBook()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        QSignalSpy changed(session.client(), &Telvix::sigPhonebookChanged);
        QVERIFY(session.deliver(extenListBody({buddy(QStringLiteral("201"), QStringLiteral("Bob"))})));
        QVERIFY(session.deliver(phoneBookBody({person("p1", QStringLiteral("Dave"), "home", "0600")})));
        QTRY_COMPARE(changed.count(), 2);
        QCOMPARE(booksOf(changed).size(), 2);

        // The server sends the client on to another one, which logs it in anew.
        FakeCtiServer other;
        other.setAutoLogin(true);
        QVERIFY(other.listen());
        QSignalSpy logged(session.client(), &Telvix::loggedToServer);
        session.sendEvent(FakeCtiServer::redirectDocument(FakeCtiServer::host(), other.port()));
        QTRY_COMPARE_WITH_TIMEOUT(logged.count(), 1, 10000);
        QCOMPARE(changed.count(), 3);
        QVERIFY(booksOf(changed).isEmpty());
        QCOMPARE(flagsOf(changed), Flags());
        QVERIFY(session.client()->getContactsList(true, Both));
        QTRY_COMPARE(changed.count(), 4);
        QVERIFY(booksOf(changed).isEmpty());

        // The new server's extensions lead the book again.
        const int conn = other.lastConnection();
        other.send(
            conn,
            FakeCtiServer::document(extenListBody({buddy(QStringLiteral("301"), QStringLiteral("Zoe"))})));
        QTRY_COMPARE(changed.count(), 5);
        QCOMPARE(firstNames(booksOf(changed).at(0)), QStringList {"Zoe"});
        QCOMPARE(flagsOf(changed), Flags(TELVIX::PhonebookTypeExtensions));
    }

    void extenListMarksWhoCanChat()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        // 203 is known before the list, with no chat presence yet.
        ExtenStatusRespMsg status;
        BuddyStatus known;
        known.exten = QStringLiteral("203");
        status.statusMap.insert(known.exten, known);
        QVERIFY(session.deliver(status.generateXmlMessageBody()));

        QVERIFY(session.deliver(extenListBody({buddy("201", "Bob", "bob@default"), buddy("202", "Carol"),
                                               buddy("203", "Dan", "dan@default")})));
        // The status map reaches the application with the next peer list.
        QSignalSpy statusMap(session.client(), &Telvix::sigExtenStatusMapChanged);
        BuddyIdentitiesRespMsg peers;
        BuddyIdentityEntry peer;
        peer.name = QStringLiteral("201-desk");
        peer.type = QStringLiteral("SIP");
        peer.exten = QStringLiteral("201");
        peers.buddyIdentities.append(peer);
        QVERIFY(session.deliver(peers.generateXmlMessageBody()));
        QTRY_COMPARE(statusMap.count(), 1);
        const auto map = statusMap.last().at(0).value<QMap<QString, BuddyStatus>>();
        QCOMPARE(map.value("201").presence, TELVIX::ChatPresenceOffline);
        QCOMPARE(map.value("202").presence, TELVIX::ChatPresenceInvalid);
        QVERIFY(map.value("202").presenceText.isEmpty());
        // An extension already in the map keeps what it had.
        QCOMPARE(map.value("203").presence, known.presence);
    }

    void invalidPhoneBookIsLoggedAndLeavesTheBook()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        QSignalSpy changed(session.client(), &Telvix::sigPhonebookChanged);
        LogbusCapture log;
        session.server().send(session.connection(),
                              FakeCtiServer::failedDocument("no book", "<PhoneBookList></PhoneBookList>"));
        QVERIFY(log.waitFor("Invalid General PhoneBook received"));
        QVERIFY(log.contains(1000, "Invalid General PhoneBook received"));
        QVERIFY(session.client()->getContactsList(true, Flags()));
        QTRY_COMPARE(changed.count(), 1);
        QVERIFY(booksOf(changed).isEmpty());
        QCOMPARE(flagsOf(changed), Flags());
    }

    void contactEditsReachTheServer()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        FakeCtiServer& server = session.server();
        Telvix* client = session.client();

        PhoneBookEntry added
            = person(QString(), QStringLiteral("Frank"), PHONEBOOK::CTYPE_LABEL_MOBILE, "333");
        added.company = QStringLiteral("A & B");
        QVERIFY(client->addPhoneBookContact(added));
        const QString addFrame = server.waitForFrame(QStringLiteral("AddPhoneBookContact"));
        QVERIFY(FakeCtiServer::hasElement(addFrame, QStringLiteral("UserContact")));
        QCOMPARE(tag(addFrame, "First"), QStringLiteral("Frank"));
        QCOMPARE(tag(addFrame, "Company"), QStringLiteral("A & B"));
        QCOMPARE(tag(addFrame, "Type"), QStringLiteral("MOBILE"));
        QVERIFY(!FakeCtiServer::hasElement(addFrame, QStringLiteral("ContactUuid")));

        PhoneBookEntry stored = person(QStringLiteral("c-42"), QStringLiteral("Gina"), "home", "0601");
        QVERIFY(client->updatePhoneBookContact(stored));
        const QString updateFrame = server.waitForFrame(QStringLiteral("UpdatePhoneBookContact"));
        QCOMPARE(tag(updateFrame, "ContactUuid"), QStringLiteral("c-42"));
        QCOMPARE(tag(updateFrame, "First"), QStringLiteral("Gina"));
        QCOMPARE(tag(updateFrame, "Value"), QStringLiteral("0601"));

        QVERIFY(client->deletePhoneBookContact(stored));
        const QString deleteFrame = server.waitForFrame(QStringLiteral("DeletePhoneBookContact"));
        QCOMPARE(tag(deleteFrame, "ContactUuid"), QStringLiteral("c-42"));
        // Only the identity travels.
        QVERIFY(!FakeCtiServer::hasElement(deleteFrame, QStringLiteral("First")));
    }

    void editsWithoutUuidAreRefused_data()
    {
        QTest::addColumn<bool>("deleting");
        QTest::newRow("update") << false;
        QTest::newRow("delete") << true;
    }

    void editsWithoutUuidAreRefused()
    {
        QFETCH(bool, deleting);
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        LogbusCapture log;
        const PhoneBookEntry unsaved = person(QString(), QStringLiteral("Hank"), "home", "0602");
        // Queued: accepted at once, refused on the library's thread.
        QVERIFY(deleting ? session.client()->deletePhoneBookContact(unsaved)
                         : session.client()->updatePhoneBookContact(unsaved));
        QVERIFY(drain(session));
        QVERIFY(session.framesWith(QStringLiteral("UpdatePhoneBookContact")).isEmpty());
        QVERIFY(session.framesWith(QStringLiteral("DeletePhoneBookContact")).isEmpty());
        const QString verb = deleting ? QStringLiteral("deleted") : QStringLiteral("updated");
        QVERIFY(log.contains(
            10, "The contact uuid of the contact to be " + verb + " is empty, cannot complete operation"));
        QVERIFY(log.contains(10, "The offending contact is: "));
        QVERIFY(log.contains(10, "First: Hank"));
    }

    void contactsFromJson_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("json");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<QString>("expectedFrame");
        QTest::addColumn<QString>("logLine");
        const QString named = R"({"firstName":"Ivy","lastName":"Ray","company":"Acme",)"
                              R"("contacts":[{"type":"phone","label":"work","value":"0611"}]})";
        QTest::newRow("add") << "add" << named << true << "AddPhoneBookContact" << QString();
        const QString unparsed = QStringLiteral("Could not parse the contact to be %1 from json string: ");
        QTest::newRow("add company only")
            << "add"
            << R"({"company":"Acme"})" << false << QString() << unparsed.arg("added");
        QTest::newRow("update names, no uuid")
            << "update" << named << true << QString()
            << "The contact uuid of the contact to be updated is empty, cannot complete operation";
        QTest::newRow("update not an object") << "update"
                                              << "[1]" << false << QString() << unparsed.arg("updated");
        QTest::newRow("delete bad text") << "delete"
                                         << "{oops" << false << QString() << unparsed.arg("deleted");
    }

    void contactsFromJson()
    {
        QFETCH(QString, operation);
        QFETCH(QString, json);
        QFETCH(bool, accepted);
        QFETCH(QString, expectedFrame);
        QFETCH(QString, logLine);
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        LogbusCapture log;
        Telvix* client = session.client();
        const bool result = operation == "add" ? client->addPhoneBookContactFromJson(json)
            : operation == "update"            ? client->updatePhoneBookContactFromJson(json)
                                               : client->deletePhoneBookContactFromJson(json);
        QCOMPARE(result, accepted);
        if (!expectedFrame.isEmpty()) {
            const QString frame = session.server().waitForFrame(expectedFrame);
            QCOMPARE(tag(frame, "First"), QStringLiteral("Ivy"));
            QCOMPARE(tag(frame, "Type"), QStringLiteral("WORK"));
            QCOMPARE(tag(frame, "Value"), QStringLiteral("0611"));
        } else {
            QVERIFY(drain(session));
            QCOMPARE(session.framesWith(QStringLiteral("AddPhoneBookContact")).size(), 1);
            QVERIFY(session.framesWith(QStringLiteral("UpdatePhoneBookContact")).isEmpty());
            QVERIFY(session.framesWith(QStringLiteral("DeletePhoneBookContact")).isEmpty());
        }
        if (!logLine.isEmpty())
            QVERIFY(log.contains(accepted ? 10 : 100, logLine));
    }

    void serviceCodesAsCompactJson()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        const auto services = [&session] {
            const QString text = session.client()->getServicesCodes();
            const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8());
            // Compact: exactly what the compact writer makes of it.
            return text == QString::fromUtf8(doc.toJson(QJsonDocument::Compact))
                ? doc.object().value("DialServicesCodes").toArray()
                : QJsonArray();
        };

        // Before the server has told: every known service, no codes.
        QJsonArray list = services();
        QCOMPARE(list.size(), 30);
        for (int i = 0; i < list.size(); ++i)
            QCOMPARE(list.at(i).toObject().value("ServiceId").toInt(), i + 1);
        QCOMPARE(list.at(21).toObject().value("Description").toString(),
                 QStringLiteral("Start an attended trasfer"));
        QCOMPARE(list.at(0).toObject().value("Code").toString(),
                 QStringLiteral("Unknown service with id: 1"));

        ServiceListResMsg codes;
        codes.codes.insert(TELVIX::ServiceEcho, QStringLiteral("*43"));
        codes.codes.insert(TELVIX::ServiceOutboundPrefix, QStringLiteral("0"));
        QSignalSpy received(session.client(), &Telvix::sigServicesCodesReceived);
        QVERIFY(session.deliver(codes.generateXmlMessageBody()));
        QTRY_COMPARE(received.count(), 1);
        list = services();
        QCOMPARE(list.size(), 30);
        QCOMPARE(list.at(0).toObject().value("Description").toString(), QStringLiteral("Echo service"));
        QCOMPARE(list.at(0).toObject().value("Code").toString(), QStringLiteral("*43"));
        QCOMPARE(list.at(20).toObject().value("Code").toString(), QStringLiteral("0"));
    }

    void outlookIsNotBuiltButItsBooksAreFlagged()
    {
        LoggedInClient session(TELVIX::AppModeSrntPro);
        QVERIFY(session.start());
        LogbusCapture log;
        QVERIFY(!session.client()->hasOutlookSupportBuilt());
        QVERIFY(!session.client()->enableOutlookSupport(true, {QStringLiteral("Contacts")}));
        QVERIFY(log.contains(100, "Outlook support is not built!"));

        QSignalSpy changed(session.client(), &Telvix::sigPhonebookChanged);
        QVERIFY(session.deliver(extenListBody({buddy(QStringLiteral("201"), QStringLiteral("Bob"))})));
        PhoneBook outlook;
        outlook.type = PHONEBOOK::PB_OUTLOOK;
        outlook.entries = {person("o1", QStringLiteral("Olga"), "home", "0603")};
        session.client()->onOutlookPhoneBookUpdated({outlook});
        QTRY_COMPARE(changed.count(), 2);
        // Stored and flagged, but not merged.
        QCOMPARE(booksOf(changed).size(), 1);
        QCOMPARE(firstNames(booksOf(changed).at(0)), QStringList {"Bob"});
        QCOMPARE(int(flagsOf(changed)), int(TELVIX::PhonebookTypeExtensions) | 0x4);
    }
};

QTEST_GUILESS_MAIN(TestContacts)
#include "tst_contacts.moc"
