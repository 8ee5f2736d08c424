#include "messagetestutil.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"
#include "telvix_const.h"
#include "voicemailmessages.h"

#include <QtTest>

using namespace MessageTestUtil;

namespace {

QString vmXml(const QString& id, const QString& date, const QString& extra = QString())
{
    QString xml = QStringLiteral("<VoicemailMessage>");
    if (!id.isNull())
        xml += QStringLiteral("<ID>%1</ID>").arg(id);
    if (!date.isNull())
        xml += QStringLiteral("<Date>%1</Date>").arg(date);
    return xml + extra + QStringLiteral("</VoicemailMessage>");
}

QString vmListDocument(const QString& messages, const QString& api = QStringLiteral("6.1"))
{
    return serverDocument(
        QStringLiteral("<VoicemailMessageList>") + messages + QStringLiteral("</VoicemailMessageList>"), api);
}

} // namespace

class TestVoicemailMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void voicemailListAcrossApiGenerations_data();
    void voicemailListAcrossApiGenerations();
    void voicemailEntryValidity_data();
    void voicemailEntryValidity();
    void voicemailFlags_data();
    void voicemailFlags();
    void voicemailSkipsInvalidAmongThousands();
    void voicemailEmptyList_data();
    void voicemailEmptyList();
    void voicemailListWriterWritesNoBody();

    void listRequest_data();
    void listRequest();
    void deleteMarkAndStatusRequests();

    void mailboxStatus_data();
    void mailboxStatus();
    void mailboxStatusRoundTrip();

    void metaTypesRegistered();
};

void TestVoicemailMessages::voicemailListAcrossApiGenerations_data()
{
    addApiRows();
}

void TestVoicemailMessages::voicemailListAcrossApiGenerations()
{
    QFETCH(QString, api);
    const QString extra
        = QStringLiteral("<MsgID>msg&amp;0001</MsgID><CallerName>Zo&#235; &lt;Z&gt;</CallerName>"
                         "<CallerNum>+39 06 &amp;1</CallerNum><OriginMailbox>201&amp;default</OriginMailbox>"
                         "<Duration>42</Duration><isNew>1</isNew><isUrgent>0</isUrgent>");
    const QString document = vmListDocument(
        vmXml(QStringLiteral("7&amp;8"), QStringLiteral("2026-11-15 09:30:05.250+01:00"), extra), api);

    QtLogCapture log;
    const VoiceMailListResMsg msg = VoiceMailListResMsg::parseMessage(document);
    QVERIFY(msg.success);
    QCOMPARE(msg.api, api);
    QCOMPARE(msg.uuid, fixtureUuid());
    QCOMPARE(msg.messages.size(), 1);
    const VoicemailMessage& vm = msg.messages.first();
    QCOMPARE(vm.id, QStringLiteral("7&8"));
    QCOMPARE(vm.messageUuid, QStringLiteral("msg&0001"));
    QCOMPARE(vm.callerName, QStringLiteral("Zo\u00eb <Z>"));
    QCOMPARE(vm.callerNumber, QStringLiteral("+39 06 &1"));
    // The origin mailbox is taken as written.
    QCOMPARE(vm.originMailbox, QStringLiteral("201&amp;default"));
    QCOMPARE(vm.duration, 42);
    QVERIFY(vm.isNew);
    QVERIFY(!vm.isUrgent);
    QCOMPARE(vm.date.toUTC(), QDateTime(QDate(2026, 11, 15), QTime(8, 30, 5, 250), Qt::UTC));
    QCOMPARE(vm.date.offsetFromUtc(), 3600);
    QVERIFY(!log.contains(QStringLiteral("parsed an invalid Voice Mail Message")));
}

void TestVoicemailMessages::voicemailEntryValidity_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<bool>("kept");
    QTest::addColumn<QDateTime>("utc");

    const QDateTime noon(QDate(2026, 11, 15), QTime(12, 0, 0, 500), Qt::UTC);
    QTest::newRow("iso-z") << vmXml("1", "2026-11-15T12:00:00.500Z") << true << noon;
    QTest::newRow("microseconds-plus-hours") << vmXml("1", "2026-11-15T14:00:00.500999+02x") << true << noon;
    QTest::newRow("hh-mm-zone-after-fallback-is-utc")
        << vmXml("1", "2026-11-15T12:00:00.500123+02:00x") << true << noon;
    QTest::newRow("no-id") << vmXml(QString(), "2026-11-15T12:00:00.500Z") << false << QDateTime();
    QTest::newRow("empty-id") << vmXml("", "2026-11-15T12:00:00.500Z") << false << QDateTime();
    QTest::newRow("no-date") << vmXml("1", QString()) << false << QDateTime();
    QTest::newRow("unreadable-date") << vmXml("1", "15/11/2026 12:00") << false << QDateTime();
    QTest::newRow("date-with-leading-blank")
        << vmXml("1", " 2026-11-15T12:00:00.500Z") << false << QDateTime();
}

void TestVoicemailMessages::voicemailEntryValidity()
{
    QFETCH(QString, entry);
    QFETCH(bool, kept);
    QFETCH(QDateTime, utc);

    QtLogCapture log;
    const VoiceMailListResMsg msg = VoiceMailListResMsg::parseMessage(vmListDocument(entry));
    QVERIFY(msg.success);
    QCOMPARE(msg.messages.size(), kept ? 1 : 0);
    QCOMPARE(log.contains(QStringLiteral("parsed an invalid Voice Mail Message")), !kept);
    if (kept)
        QCOMPARE(msg.messages.first().date.toUTC(), utc);
}

void TestVoicemailMessages::voicemailFlags_data()
{
    QTest::addColumn<QString>("flags");
    QTest::addColumn<QString>("expected"); // isNew|isUrgent
    QTest::newRow("1-0") << "<isNew>1</isNew><isUrgent>0</isUrgent>"
                         << "1|0";
    QTest::newRow("0-1") << "<isNew>0</isNew><isUrgent>1</isUrgent>"
                         << "0|1";
    QTest::newRow("2-reads-false") << "<isNew>2</isNew><isUrgent>2</isUrgent>"
                                   << "0|0";
    QTest::newRow("true-reads-false") << "<isNew>true</isNew><isUrgent>yes</isUrgent>"
                                      << "0|0";
    QTest::newRow("missing") << ""
                             << "0|0";
}

void TestVoicemailMessages::voicemailFlags()
{
    QFETCH(QString, flags);
    QFETCH(QString, expected);
    const VoiceMailListResMsg msg = VoiceMailListResMsg::parseMessage(
        vmListDocument(vmXml(QStringLiteral("9"), QStringLiteral("2026-11-15T12:00:00.000"), flags)));
    QCOMPARE(msg.messages.size(), 1);
    QCOMPARE(
        QStringLiteral("%1|%2").arg(int(msg.messages.first().isNew)).arg(int(msg.messages.first().isUrgent)),
        expected);
}

void TestVoicemailMessages::voicemailSkipsInvalidAmongThousands()
{
    QString entries;
    QStringList expectedIds;
    int malformed = 0;
    for (int i = 0; i < 3000; ++i) {
        const QString id = QString::number(i);
        const QString date = QDateTime(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC)
                                 .addSecs(i * 61)
                                 .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
        if (i % 13 == 4) {
            entries += vmXml(QString(), date);
            ++malformed;
        } else if (i % 13 == 9) {
            entries += vmXml(id, QStringLiteral("soon"));
            ++malformed;
        } else {
            entries += vmXml(id, date, QStringLiteral("<isNew>%1</isNew>").arg(i % 2));
            expectedIds << id;
        }
    }
    QtLogCapture log;
    const VoiceMailListResMsg msg = VoiceMailListResMsg::parseMessage(vmListDocument(entries, "4.9"));
    QVERIFY(msg.success);
    QStringList ids;
    for (const VoicemailMessage& vm : msg.messages)
        ids << vm.id;
    QCOMPARE(ids, expectedIds);
    QCOMPARE(log.count(QStringLiteral("parsed an invalid Voice Mail Message")), malformed);
    QCOMPARE(msg.messages.at(1).date, QDateTime(QDate(2026, 1, 1), QTime(0, 1, 1), Qt::LocalTime));
}

void TestVoicemailMessages::voicemailEmptyList_data()
{
    QTest::addColumn<QString>("document");
    QTest::newRow("open-and-close") << vmListDocument(QString());
    QTest::newRow("self-closed") << serverDocument(QStringLiteral("<VoicemailMessageList/>"), "5.4");
    QTest::newRow("only-invalid") << vmListDocument(vmXml("", "2026-11-15T12:00:00.000"));
}

void TestVoicemailMessages::voicemailEmptyList()
{
    QFETCH(QString, document);
    const VoiceMailListResMsg msg = VoiceMailListResMsg::parseMessage(document);
    QVERIFY(msg.success);
    QVERIFY(msg.messages.isEmpty());
    QCOMPARE(msg.uuid, fixtureUuid());
}

void TestVoicemailMessages::voicemailListWriterWritesNoBody()
{
    VoiceMailListResMsg out;
    VoicemailMessage vm;
    vm.id = QStringLiteral("1");
    vm.date = QDateTime::currentDateTime();
    out.messages << vm;

    QVERIFY(out.generateXmlMessageBody().isEmpty());
    const QString xml = out.serializeToXml(QStringLiteral("6.1"));
    QVERIFY(xml.endsWith(QStringLiteral("<Response></Response></SRNT>")));
    const VoiceMailListResMsg in = VoiceMailListResMsg::parseMessage(xml);
    QVERIFY(in.success);
    QVERIFY(in.messages.isEmpty());
}

void TestVoicemailMessages::listRequest_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("expectedBody");
    QTest::newRow("all") << QString() << "<GetVoicemailMsgList/>";
    QTest::newRow("new") << TELVIX::vmMsgTypeFlagToString(TELVIX::VmMsgFlagNew)
                         << "<GetVoicemailMsgList><MsgType>NEW</MsgType></GetVoicemailMsgList>";
    QTest::newRow("urgent") << TELVIX::vmMsgTypeFlagToString(TELVIX::VmMsgFlagUrgent)
                            << "<GetVoicemailMsgList><MsgType>URGENT</MsgType></GetVoicemailMsgList>";
    // Combined bits have no text, so such a request asks for everything.
    QTest::newRow("combined-bits") << TELVIX::vmMsgTypeFlagToString(TELVIX::VmMsgFlagAll)
                                   << "<GetVoicemailMsgList/>";
}

void TestVoicemailMessages::listRequest()
{
    QFETCH(QString, type);
    QFETCH(QString, expectedBody);
    VoiceMailListReqMsg request;
    request.msgType = type;
    QCOMPARE(requestBody(request.serializeToXml(QStringLiteral("6.1"))), expectedBody);
}

void TestVoicemailMessages::deleteMarkAndStatusRequests()
{
    VoicemailDeleteReqMsg del;
    del.id = QStringLiteral("12<3");
    const QString delXml = del.serializeToXml(QStringLiteral("5.10"));
    QCOMPARE(SimpleXmlParser::getTagValue(delXml, QStringLiteral("API")), QStringLiteral("5.10"));
    QCOMPARE(requestBody(delXml),
             QStringLiteral("<DeleteVoicemailMsg><ID>12&lt;3</ID></DeleteVoicemailMsg>"));

    VoicemailMarkReqMsg mark;
    mark.id = QStringLiteral("123");
    mark.markAs = TELVIX::vmMsgTypeToString(TELVIX::VmMsgOld);
    QCOMPARE(requestBody(mark.serializeToXml(QStringLiteral("6.1"))),
             QStringLiteral("<MarkVoicemailMsg><ID>123</ID><MarkAs>OLD</MarkAs></MarkVoicemailMsg>"));

    VoicemailMarkReqMsg blank;
    QCOMPARE(requestBody(blank.serializeToXml(QStringLiteral("6.1"))),
             QStringLiteral("<MarkVoicemailMsg><ID></ID><MarkAs></MarkAs></MarkVoicemailMsg>"));

    const QString status = MailboxStatusReqMsg().serializeToXml(QStringLiteral("4.2"));
    QCOMPARE(requestBody(status), QStringLiteral("<GetMailboxStatus/>"));
    QVERIFY(status.startsWith(QStringLiteral("<SRNT><API>4.2</API>")));
}

void TestVoicemailMessages::mailboxStatus_data()
{
    QTest::addColumn<QString>("api");
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("expected"); // mailbox|waiting|new|old|urgent

    QTest::newRow("current") << "6.1"
                             << "<MailboxStatus><Mailbox>201@def&amp;ault</Mailbox><Waiting>1</Waiting>"
                                "<NewMsgCount>3</NewMsgCount><OldMsgCount>12</OldMsgCount>"
                                "<UrgentMsgCount>1</UrgentMsgCount></MailboxStatus>"
                             << "201@def&ault|1|3|12|1";
    QTest::newRow("old-server-nothing-waiting")
        << "4.2"
        << "<MailboxStatus><Mailbox>201</Mailbox><Waiting>0</Waiting><NewMsgCount>0</NewMsgCount>"
           "<OldMsgCount>4</OldMsgCount></MailboxStatus>"
        << "201|0|0|4|0";
    QTest::newRow("waiting-2-is-false")
        << "5.10"
        << "<MailboxStatus><Waiting>2</Waiting><NewMsgCount>x</NewMsgCount></MailboxStatus>"
        << "|0|0|0|0";
    QTest::newRow("empty-still-valid") << "5.4"
                                       << "<MailboxStatus/>"
                                       << "|0|0|0|0";
}

void TestVoicemailMessages::mailboxStatus()
{
    QFETCH(QString, api);
    QFETCH(QString, body);
    QFETCH(QString, expected);

    QtLogCapture log;
    const MailboxStatusResMsg msg = MailboxStatusResMsg::parseMessage(serverDocument(body, api));
    QVERIFY(msg.success);
    QCOMPARE(msg.api, api);
    QCOMPARE(QStringLiteral("%1|%2|%3|%4|%5")
                 .arg(msg.mailbox)
                 .arg(int(msg.waiting))
                 .arg(msg.newCount)
                 .arg(msg.oldCount)
                 .arg(msg.urgentCount),
             expected);
    QVERIFY(log.contains(QStringLiteral("Mailbox Status resp msg parsed ok")));
}

void TestVoicemailMessages::mailboxStatusRoundTrip()
{
    MailboxStatusResMsg out;
    out.mailbox = QStringLiteral("201 <desk> & co");
    out.waiting = true;
    out.newCount = 2;
    out.oldCount = 40;
    out.urgentCount = 1;
    const MailboxStatusResMsg in = roundTrip(out, QStringLiteral("4.5"));
    QVERIFY(in.success);
    QCOMPARE(in.api, QStringLiteral("4.5"));
    // The message is the record: it slices to the value that signals carry.
    const MailboxStatus record = in;
    QCOMPARE(record, static_cast<const MailboxStatus&>(out));

    out.waiting = false;
    QVERIFY(!roundTrip(out).waiting);
}

void TestVoicemailMessages::metaTypesRegistered()
{
    for (const char* name : {"VoicemailMessage", "QList<VoicemailMessage>", "MailboxStatus"})
        QVERIFY2(QMetaType::type(name) != QMetaType::UnknownType, name);
}

QTEST_APPLESS_MAIN(TestVoicemailMessages)
#include "tst_voicemailmessages.moc"
