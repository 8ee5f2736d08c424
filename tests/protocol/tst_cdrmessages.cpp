#include "cdrmessages.h"
#include "messagetestutil.h"
#include "qtlogcapture.h"
#include "simplexmlparser.h"

#include <QtTest>

using namespace MessageTestUtil;

namespace {

struct CallFields
{
    QString uid = QStringLiteral("1700000001.42");
    QString caller = QStringLiteral("201");
    QString callee = QStringLiteral("0612345678");
    QString callerName = QStringLiteral("Anna");
    QString calleeName = QStringLiteral("Bruno");
    QString date = QStringLiteral("2026-11-15 09:30:00");
    QString duration = QStringLiteral("75");
    QString direction = QStringLiteral("2");
    QString status = QStringLiteral("8");
    QString attributes = QStringLiteral("from_local_exten,to_obl");
};

// One "Call" element as the servers write it; an empty field is left out.
QString callXml(const CallFields& f)
{
    const QList<QPair<QString, QString>> parts {
        {QStringLiteral("EntryUid"), f.uid},          {QStringLiteral("Caller"), f.caller},
        {QStringLiteral("Called"), f.callee},         {QStringLiteral("CallerName"), f.callerName},
        {QStringLiteral("CalledName"), f.calleeName}, {QStringLiteral("Date"), f.date},
        {QStringLiteral("Duration"), f.duration},     {QStringLiteral("Direction"), f.direction},
        {QStringLiteral("Status"), f.status},         {QStringLiteral("CallAttributes"), f.attributes}};
    QString xml = QStringLiteral("<Call>");
    for (const auto& part : parts) {
        if (!part.second.isEmpty())
            xml += QStringLiteral("<%1>%2</%1>").arg(part.first, part.second);
    }
    return xml + QStringLiteral("</Call>");
}

QString callListDocument(const QString& calls, const QString& api = QStringLiteral("6.1"))
{
    return serverDocument(QStringLiteral("<CallList>") + calls + QStringLiteral("</CallList>"), api);
}

CdrEntry makeEntry(int direction, int status, const QString& caller, const QString& callee)
{
    CdrEntry entry;
    entry.direction = direction;
    entry.status = status;
    entry.caller = caller;
    entry.callee = callee;
    return entry;
}

} // namespace

class TestCdrMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void numberTables_data();
    void numberTables();

    void cdrEntry_data();
    void cdrEntry();
    void cdrAcrossApiGenerations_data();
    void cdrAcrossApiGenerations();
    void cdrSkipsInvalidAmongThousands();
    void cdrEmptyList_data();
    void cdrEmptyList();
    void cdrHasNoRequestFailedTest();

    void updateInfo_data();
    void updateInfo();

    void cdrRoundTrip();
    void cdrWriterEscapesRawFields();

    void getCdrRequest_data();
    void getCdrRequest();

    void metaTypesRegistered();
};

void TestCdrMessages::numberTables_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("texts"); // "direction|status"
    QTest::newRow("0") << 0 << "|";
    QTest::newRow("1") << 1 << "inbound|failed";
    QTest::newRow("2") << 2 << "outbound|busy";
    QTest::newRow("3") << 3 << "|congestion";
    QTest::newRow("4") << 4 << "local|noanswer";
    QTest::newRow("6") << 6 << "|voicemail";
    QTest::newRow("8") << 8 << "|ok";
    QTest::newRow("9") << 9 << "|";
    QTest::newRow("-1") << -1 << "|";
}

void TestCdrMessages::numberTables()
{
    QFETCH(int, number);
    QFETCH(QString, texts);
    QCOMPARE(CDR::directionText(number) + QLatin1Char('|') + CDR::statusText(number), texts);
}

void TestCdrMessages::cdrEntry_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<bool>("kept");

    const auto with = [](QString CallFields::*field, const QString& value) {
        CallFields f;
        f.*field = value;
        return callXml(f);
    };
    QTest::newRow("complete") << callXml(CallFields()) << true;
    QTest::newRow("direction-3-dropped") << with(&CallFields::direction, "3") << false;
    QTest::newRow("status-0-dropped") << with(&CallFields::status, "0") << false;
    QTest::newRow("status-6-is-voicemail") << with(&CallFields::status, "6") << true;
    QTest::newRow("no-caller") << with(&CallFields::caller, "") << false;
    QTest::newRow("no-callee") << with(&CallFields::callee, "") << false;
    QTest::newRow("no-date") << with(&CallFields::date, "") << false;
    QTest::newRow("no-direction") << with(&CallFields::direction, "") << false;
    QTest::newRow("status-as-word") << with(&CallFields::status, "ok") << false;
    CallFields bare;
    bare.uid.clear();
    bare.callerName.clear();
    bare.calleeName.clear();
    bare.duration.clear();
    bare.attributes.clear();
    QTest::newRow("only-mandatory-fields") << callXml(bare) << true;
}

void TestCdrMessages::cdrEntry()
{
    QFETCH(QString, call);
    QFETCH(bool, kept);

    QtLogCapture log;
    const CdrRespMsg msg = CdrRespMsg::parseMessage(callListDocument(call));
    QVERIFY(msg.success);
    QCOMPARE(msg.cdr.size(), kept ? 1 : 0);
    QCOMPARE(log.contains(QStringLiteral("parsed an invalid CDREntry msg: ") + call.mid(6, call.size() - 13)),
             !kept);
    QCOMPARE(log.contains(QStringLiteral("parsed an empty CdrList msg")), !kept);
    QCOMPARE(log.contains(QStringLiteral("CDR msg parsed ok")), kept);
    if (kept) {
        const CdrEntry& entry = msg.cdr.first();
        QCOMPARE(entry.directionText, CDR::directionText(entry.direction));
        QCOMPARE(entry.statusText, CDR::statusText(entry.status));
        QVERIFY(!entry.statusText.isEmpty());
        // Derived only by updateInfo, never by the parser.
        QVERIFY(entry.localDirection.isEmpty());
        QVERIFY(entry.infoType.isEmpty());
        QVERIFY(entry.callId.isEmpty());
    }
}

void TestCdrMessages::cdrAcrossApiGenerations_data()
{
    addApiRows();
}

void TestCdrMessages::cdrAcrossApiGenerations()
{
    QFETCH(QString, api);

    CallFields f;
    f.uid = QStringLiteral("17&amp;00");
    f.caller = QStringLiteral("&lt;201&gt;");
    f.callerName = QStringLiteral("Caf&#233; &amp; Bar");
    f.calleeName = QStringLiteral("O&apos;Brien");
    f.date = QStringLiteral("2026-11-15T09:30:00.000&amp;");
    f.attributes = QStringLiteral("to_queue,,bogus,from_ibl");
    f.direction = QStringLiteral("1");
    f.status = QStringLiteral("4");
    const CdrRespMsg msg = CdrRespMsg::parseMessage(callListDocument(callXml(f), api));

    QVERIFY(msg.success);
    QCOMPARE(msg.api, api);
    QCOMPARE(msg.uuid, fixtureUuid());
    QCOMPARE(msg.timestamp, QDateTime(QDate(2026, 11, 15), QTime(18, 10, 2, 123), Qt::UTC));
    QCOMPARE(msg.cdr.size(), 1);
    const CdrEntry& entry = msg.cdr.first();
    // Uid and date stay as written; names and attributes are decoded.
    QCOMPARE(entry.entryUid, QStringLiteral("17&amp;00"));
    QCOMPARE(entry.startTime, QStringLiteral("2026-11-15T09:30:00.000&amp;"));
    QCOMPARE(entry.caller, QStringLiteral("<201>"));
    QCOMPARE(entry.callee, QStringLiteral("0612345678"));
    QCOMPARE(entry.callerName, QStringLiteral("Caf\u00e9 & Bar"));
    QCOMPARE(entry.calleeName, QStringLiteral("O'Brien"));
    QCOMPARE(entry.duration, 75);
    QCOMPARE(entry.direction, 1);
    QCOMPARE(entry.status, 4);
    QCOMPARE(entry.directionText, QStringLiteral("inbound"));
    QCOMPARE(entry.statusText, QStringLiteral("noanswer"));
    QCOMPARE(int(entry.attributes), 0x42);
}

void TestCdrMessages::cdrSkipsInvalidAmongThousands()
{
    const int total = 4000;
    // Every eleventh entry from the third on carries one of these faults in turn.
    const QList<QPair<QString CallFields::*, QString>> faults {{&CallFields::direction, QStringLiteral("3")},
                                                               {&CallFields::status, QStringLiteral("0")},
                                                               {&CallFields::caller, QString()},
                                                               {&CallFields::date, QString()}};
    QString calls;
    QStringList expectedUids;
    int malformed = 0;
    for (int i = 0; i < total; ++i) {
        CallFields f;
        f.uid = QString::number(1700000000 + i);
        f.direction = QString::number(QList<int> {1, 2, 4}.at(i % 3));
        f.status = QString::number(1 + i % 8);
        const int k = i % 11;
        if (k >= 3 && k % 2 == 1) {
            const auto& fault = faults.at((k - 3) / 2);
            f.*fault.first = fault.second;
            ++malformed;
        } else {
            expectedUids << f.uid;
        }
        calls += callXml(f);
    }

    QtLogCapture log;
    const CdrRespMsg msg = CdrRespMsg::parseMessage(callListDocument(calls, QStringLiteral("5.10")));
    QVERIFY(msg.success);
    QCOMPARE(msg.cdr.size(), total - malformed);
    QStringList uids;
    for (const CdrEntry& entry : msg.cdr)
        uids << entry.entryUid;
    QCOMPARE(uids, expectedUids);
    QCOMPARE(log.count(QStringLiteral("parsed an invalid CDREntry msg:")), malformed);
    QCOMPARE(log.count(QStringLiteral("CDR msg parsed ok")), 1);
}

void TestCdrMessages::cdrEmptyList_data()
{
    QTest::addColumn<QString>("document");
    QTest::newRow("open-and-close") << callListDocument(QString());
    QTest::newRow("self-closed") << serverDocument(QStringLiteral("<CallList/>"), QStringLiteral("4.2"));
    CallFields bad;
    bad.status = QStringLiteral("11");
    QTest::newRow("only-invalid") << callListDocument(callXml(bad) + callXml(bad));
}

void TestCdrMessages::cdrEmptyList()
{
    QFETCH(QString, document);
    QtLogCapture log;
    const CdrRespMsg msg = CdrRespMsg::parseMessage(document);
    QVERIFY(msg.success);
    QVERIFY(msg.cdr.isEmpty());
    QVERIFY(log.contains(QStringLiteral("parsed an empty CdrList msg")));
    QVERIFY(!log.contains(QStringLiteral("CDR msg parsed ok")));
    QCOMPARE(msg.uuid, fixtureUuid());
}

void TestCdrMessages::cdrHasNoRequestFailedTest()
{
    const QString document = failedDocument(QStringLiteral("denied"),
                                            QStringLiteral("<CallList>") + callXml(CallFields())
                                                + QStringLiteral("</CallList>"));
    const CdrRespMsg msg = CdrRespMsg::parseMessage(document);
    QVERIFY(msg.success);
    QCOMPARE(msg.cdr.size(), 1);
    QCOMPARE(msg.errorMessage, QStringLiteral("Unknown error"));
}

void TestCdrMessages::updateInfo_data()
{
    QTest::addColumn<int>("direction");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("caller");
    QTest::addColumn<QString>("callee");
    QTest::addColumn<QString>("expected"); // "localDirection|infoType"

    const QString me = QStringLiteral("201");
    const QString other = QStringLiteral("305");
    const QString outside = QStringLiteral("0612345678");
    QTest::newRow("inbound-answered") << 1 << 8 << outside << me << "in|ANSWER_IN";
    QTest::newRow("inbound-busy") << 1 << 2 << outside << me << "in|NOANSWER_IN";
    QTest::newRow("inbound-not-mine") << 1 << 8 << outside << other << "|ANSWER_IN";
    QTest::newRow("outbound-answered") << 2 << 8 << me << outside << "out|ANSWER_OUT";
    QTest::newRow("outbound-voicemail") << 2 << 7 << me << outside << "out|NOANSWER_OUT";
    QTest::newRow("local-in-ok") << 4 << 8 << other << me << "in|ANSWER_LOCAL_IN";
    QTest::newRow("local-in-voicemail") << 4 << 6 << other << me << "in|VOICEMAIL_LOCAL_IN";
    QTest::newRow("local-in-failed") << 4 << 1 << other << me << "in|NOANSWER_LOCAL_IN";
    QTest::newRow("local-out-ok") << 4 << 8 << me << other << "out|ANSWER_LOCAL_OUT";
    QTest::newRow("local-out-voicemail") << 4 << 5 << me << other << "out|VOICEMAIL_LOCAL_OUT";
    QTest::newRow("local-out-congestion") << 4 << 3 << me << other << "out|NOANSWER_LOCAL_OUT";
    // A call to oneself counts as incoming.
    // Calls the user takes no part in keep the previous type.
    QTest::newRow("local-between-colleagues") << 4 << 8 << other << "306"
                                              << "|stale";
    QTest::newRow("unknown-direction") << 3 << 8 << other << "306"
                                       << "|stale";
    QTest::newRow("no-direction") << 0 << 5 << other << "306"
                                  << "|stale";
    QTest::newRow("local-self") << 4 << 8 << me << me << "in|ANSWER_LOCAL_IN";
}

void TestCdrMessages::updateInfo()
{
    QFETCH(int, direction);
    QFETCH(int, status);
    QFETCH(QString, caller);
    QFETCH(QString, callee);
    QFETCH(QString, expected);

    CdrEntry entry = makeEntry(direction, status, caller, callee);
    entry.infoType = QStringLiteral("stale");
    entry.localDirection = QStringLiteral("stale");
    entry.directionText = QStringLiteral("stale");
    entry.updateInfo(QStringLiteral("201"));
    QCOMPARE(entry.localDirection + QLatin1Char('|') + entry.infoType, expected);
    QCOMPARE(entry.directionText, CDR::directionText(direction));
    QCOMPARE(entry.statusText, CDR::statusText(status));
}

void TestCdrMessages::cdrRoundTrip()
{
    CdrRespMsg out;
    for (int i = 0; i < 3; ++i) {
        CdrEntry entry = makeEntry(QList<int> {1, 2, 4}.at(i), 5 + i, QStringLiteral("<20%1>").arg(i),
                                   QStringLiteral("0612&345"));
        entry.entryUid = QStringLiteral("170000000%1.1").arg(i);
        entry.callerName = QStringLiteral("\"Caf\u00e9\" & 'Bar'");
        entry.calleeName = QStringLiteral("Zo\u00eb <z@x>");
        entry.startTime = QStringLiteral("2026-11-15 09:3%1:00").arg(i);
        entry.duration = 60 * i;
        entry.attributes = TELVIX::CallAttrToQueue | TELVIX::CallAttrFromIbl | TELVIX::CallAttrToLcr;
        out.cdr << entry;
    }
    out.cdr[0].callId = QStringLiteral("local-only");
    out.cdr[0].updateInfo(QStringLiteral("0612&345"));

    const CdrRespMsg in = roundTrip(out, QStringLiteral("5.7"));
    QVERIFY(in.success);
    QCOMPARE(in.api, QStringLiteral("5.7"));
    QCOMPARE(in.cdr.size(), out.cdr.size());
    for (int i = 0; i < out.cdr.size(); ++i) {
        CdrEntry expected = out.cdr.at(i);
        // Local and derived fields are not written; the reader derives the texts.
        expected.callId.clear();
        expected.localDirection.clear();
        expected.infoType.clear();
        expected.directionText = CDR::directionText(expected.direction);
        expected.statusText = CDR::statusText(expected.status);
        QCOMPARE(in.cdr.at(i), expected);
    }
}

void TestCdrMessages::cdrWriterEscapesRawFields()
{
    CdrRespMsg out;
    CdrEntry entry = makeEntry(2, 8, QStringLiteral("201"), QStringLiteral("305"));
    entry.entryUid = QStringLiteral("17&00");
    entry.startTime = QStringLiteral("2026-11-15 <noon>");
    out.cdr << entry;

    const QString xml = out.serializeToXml(QStringLiteral("6.1"));
    QVERIFY(xml.contains(QStringLiteral("<EntryUid>17&amp;00</EntryUid>")));
    const CdrRespMsg in = CdrRespMsg::parseMessage(xml);
    QCOMPARE(in.cdr.size(), 1);
    // Uid and date are read without decoding, so escaped text comes back escaped.
    QCOMPARE(in.cdr.first().entryUid, QStringLiteral("17&amp;00"));
    QCOMPARE(in.cdr.first().startTime, QStringLiteral("2026-11-15 &lt;noon&gt;"));
    QCOMPARE(in.cdr.first().caller, QStringLiteral("201"));
}

void TestCdrMessages::getCdrRequest_data()
{
    QTest::addColumn<QString>("startDate");
    QTest::addColumn<QString>("endDate");
    QTest::addColumn<QString>("lastEntry");
    const QString start = QStringLiteral("2026-10-15T10:00:00.000");
    const QString end = QStringLiteral("2026-11-15T10:00:00.000");
    QTest::newRow("desktop") << start << end << QStringLiteral("1700000001.42");
    QTest::newRow("mobile-no-dates") << QString() << QString() << QStringLiteral("1700000001.42");
    QTest::newRow("escaped") << QStringLiteral("a<b") << QString() << QStringLiteral("x&y");
}

void TestCdrMessages::getCdrRequest()
{
    QFETCH(QString, startDate);
    QFETCH(QString, endDate);
    QFETCH(QString, lastEntry);

    GetCdrReqMsg request;
    request.startDate = startDate;
    request.endDate = endDate;
    request.lastEntryUid = lastEntry;
    const QString xml = request.serializeToXml(QStringLiteral("5.7"));

    QCOMPARE(SimpleXmlParser::getTagValue(xml, QStringLiteral("API")), QStringLiteral("5.7"));
    const QString body = requestBody(xml);
    QVERIFY(body.startsWith(QStringLiteral("<GetCDR><StartDate>")));
    const QString getCdr = SimpleXmlParser::getTagValue(body, QStringLiteral("GetCDR"));
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(getCdr, QStringLiteral("StartDate")), startDate);
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(getCdr, QStringLiteral("EndDate")), endDate);
    QCOMPARE(SimpleXmlParser::getDecodedTagValue(getCdr, QStringLiteral("LastEntryUid")), lastEntry);
    // Empty values are still written, in the fixed order.
    const int start = getCdr.indexOf(QStringLiteral("<StartDate>"));
    const int end = getCdr.indexOf(QStringLiteral("<EndDate>"));
    const int last = getCdr.indexOf(QStringLiteral("<LastEntryUid>"));
    QVERIFY(start == 0 && start < end && end < last);
}

void TestCdrMessages::metaTypesRegistered()
{
    for (const char* name : {"CdrEntry", "QList<CdrEntry>", "Cdr"})
        QVERIFY2(QMetaType::type(name) != QMetaType::UnknownType, name);
    CdrEntry entry = makeEntry(4, 8, QStringLiteral("201"), QStringLiteral("305"));
    QCOMPARE(QVariant::fromValue(Cdr {entry}).value<QList<CdrEntry>>().first(), entry);
}

QTEST_APPLESS_MAIN(TestCdrMessages)
#include "tst_cdrmessages.moc"
