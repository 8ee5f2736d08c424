// Reading the big directory answers: a phone book of 10,000 users (about 7 MB
// of text) and an extension list of the same size must read in well under a
// second in a release build.

#include "directorymessages.h"
#include "phonebookmessages.h"

#include <QtTest>

namespace {

const int Users = 10000;

QString envelope(const QString& body)
{
    return QStringLiteral("<SRNT><API>6.1</API><UUID>{67c8770b-44f1-410a-ab9a-f9b5446f13ee}</UUID>"
                          "<Timestamp>2026-11-15T18:10:02.123</Timestamp><Response>%1</Response></SRNT>")
        .arg(body);
}

// Every user has six contacts; one in three is private and one in fifty has no
// uuid and is skipped.
QString phoneBookDocument()
{
    QString body = QStringLiteral("<PhoneBookList><PhoneBook><PhoneBookFolder>Public</PhoneBookFolder>");
    for (int i = 0; i < Users; ++i) {
        const QString n = QStringLiteral("%1").arg(i, 12, 10, QLatin1Char('0'));
        body += QStringLiteral("<User>");
        if (i % 50 != 7)
            body += QStringLiteral("<ContactUuid>{0f6e2c1a-aaaa-bbbb-cccc-%1}</ContactUuid>").arg(n);
        body += QStringLiteral(
                    "<First>First%1</First><Last>Last name %1</Last><Company>Company &amp; Sons %1</Company>"
                    "<Unit>Unit %1</Unit><Owner>%2</Owner><Contacts>"
                    "<Contact><Type>EXTEN</Type><Value>%1</Value></Contact>"
                    "<Contact><Type>MOBILE</Type><Value>+39 333 %1</Value></Contact>"
                    "<Contact><Type>WORK</Type><Value>+39 051 %1</Value></Contact>"
                    "<Contact><Type>HOME</Type><Value>+39 051 9%1</Value></Contact>"
                    "<Contact><Type>EMAIL</Type><Value>user%1@example.com</Value></Contact>"
                    "<Contact><Type>FAX</Type><Value>+39 051 8%1</Value></Contact></Contacts></User>")
                    .arg(n, i % 3 ? QStringLiteral("-1") : QStringLiteral("1000"));
    }
    body += QStringLiteral("</PhoneBook></PhoneBookList>");
    return envelope(body);
}

QString extenListDocument()
{
    QString body = QStringLiteral("<ExtenList>");
    for (int i = 0; i < Users; ++i) {
        body += QStringLiteral("<User><ContactUuid>c%1</ContactUuid><First>First%1</First><Last>Last%1</Last>"
                               "<Company>Acme</Company><Unit>Unit %1</Unit><ChatID>User%1@PBX</ChatID>"
                               "<Contact><Type>exten</Type><Value>%1</Value></Contact></User>")
                    .arg(1000 + i);
    }
    body += QStringLiteral("</ExtenList>");
    return envelope(body);
}

void silence(QtMsgType, const QMessageLogContext&, const QString&) { }

} // namespace

class BenchPhoneBook : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qInstallMessageHandler(silence); }
    void phoneBookOf10000Users();
    void extenListOf10000Users();
    void extenListToPhoneBook();
};

void BenchPhoneBook::phoneBookOf10000Users()
{
    const QString xml = phoneBookDocument();
    PBookRespMsg msg;
    QBENCHMARK
    {
        msg = PBookRespMsg::parseMessage(xml);
    }
    QCOMPARE(msg.phoneBooks.size(), 2);
    QCOMPARE(msg.phoneBooks.at(0).entries.size() + msg.phoneBooks.at(1).entries.size(), Users - Users / 50);
}

void BenchPhoneBook::extenListOf10000Users()
{
    const QString xml = extenListDocument();
    BuddiesRespMsg msg;
    QBENCHMARK
    {
        msg = BuddiesRespMsg::parseMessage(xml);
    }
    QCOMPARE(msg.buddies.size(), Users);
}

void BenchPhoneBook::extenListToPhoneBook()
{
    const BuddiesRespMsg msg = BuddiesRespMsg::parseMessage(extenListDocument());
    PhoneBook book;
    QBENCHMARK
    {
        book = msg.buddies.toPhoneBook(QStringList {QStringLiteral("1000")});
    }
    QCOMPARE(book.entries.size(), Users - 1);
}

QTEST_APPLESS_MAIN(BenchPhoneBook)
#include "bench_phonebook.moc"
