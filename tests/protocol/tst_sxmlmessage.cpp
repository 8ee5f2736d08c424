// The envelope every message travels in, the family headers, and the shared
// parse skeleton.
#include "messagereader.h"
#include "messagetestutil.h"
#include "qtlogcapture.h"
#include "sarnetxml.h"
#include "simplexmlparser.h"
#include "envelopestamp_p.h"
#include "sxmlmessage.h"
#include "xmlbodywriter.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QUuid>
#include <QXmlStreamWriter>
#include <QtTest>

namespace {
class TestResponse : public SXmlResponseMessage
{
public:
    QString generateXmlMessageBody() const override { return EMPTYTAG(QStringLiteral("Thing")); }
    static TestResponse parseMessage(const QString& xml)
    {
        TestResponse out;
        if (MessageReader::requestFailed(xml, QStringLiteral("Thing request failed: "), out))
            return out;
        if (MessageReader::text(xml, QStringLiteral("Name")).isEmpty())
            return MessageReader::invalid<TestResponse>(QStringLiteral("parsed an invalid Thing msg"));
        return MessageReader::accepted(out, xml, QStringLiteral("Thing msg parsed ok"));
    }
};

class TokenRequest : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override { return EMPTYTAG(QStringLiteral("GetThing")); }
};
} // namespace

class TestSXmlMessage : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void keepAliveIsTheDocumentedOneLiner()
    {
        KeepAliveReqMsg msg;
        const QString xml = msg.serializeToXml(QStringLiteral("5.7"));
        QCOMPARE(xml.size(), 149);
        const QRegularExpression shape(QStringLiteral(
            "^<SRNT><API>5\\.7</API><UUID>\\{[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\}</UUID>"
            "<Timestamp>(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3})</Timestamp>"
            "<Info><KeepAlive/></Info></SRNT>$"));
        const QRegularExpressionMatch m = shape.match(xml);
        QVERIFY2(m.hasMatch(), qPrintable(xml));
        // The timestamp is UTC without a zone suffix.
        const QDateTime stamp = QDateTime::fromString(m.captured(1), SARNET_XML::S_ISO_DATE);
        QVERIFY(stamp.isValid());
        QVERIFY(qAbs(QDateTime(stamp.date(), stamp.time(), Qt::UTC).secsTo(QDateTime::currentDateTimeUtc())) < 60);
        QCOMPARE(msg.api, QStringLiteral("5.7"));
    }

    void eachSerialisationGetsItsOwnUuid()
    {
        KeepAliveReqMsg msg;
        const QString a = SimpleXmlParser::getTagValue(msg.serializeToXml("6.1"), "UUID");
        const QString b = SimpleXmlParser::getTagValue(msg.serializeToXml("6.1"), "UUID");
        QVERIFY(!a.isEmpty());
        QVERIFY(a != b);
        // A random UUID as QUuid tells one: version 4, the RFC 4122 variant.
        QCOMPARE(QUuid(a).version(), QUuid::Random);
        QCOMPARE(QUuid(a).variant(), QUuid::DCE);
    }

    // The envelope's stamp is written digit by digit; QDateTime::toString()
    // with the envelope's format is the reference, over every year it pads.
    void timestampTextMatchesQDateTime()
    {
        QRandomGenerator random(17);
        const qint64 first = QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC).toMSecsSinceEpoch();
        const qint64 last
            = QDateTime(QDate(9999, 12, 31), QTime(23, 59, 59, 999), Qt::UTC).toMSecsSinceEpoch();
        QList<QDateTime> times {QDateTime::fromMSecsSinceEpoch(first, Qt::UTC),
                                QDateTime::fromMSecsSinceEpoch(last, Qt::UTC),
                                QDateTime(QDate(999, 12, 31), QTime(23, 59, 59, 9), Qt::UTC),
                                QDateTime(QDate(2026, 2, 28), QTime(9, 5, 7, 30), Qt::UTC), QDateTime()};
        for (int i = 0; i < 20000; ++i)
            times.append(QDateTime::fromMSecsSinceEpoch(first + qint64(random.bounded(double(last - first))),
                                                        Qt::UTC));
        for (const QDateTime& time : times)
            QCOMPARE(EnvelopeStamp::isoMilliseconds(time), time.toString(SARNET_XML::S_ISO_DATE));
    }

    void defaultsOfAFreshMessage()
    {
        KeepAliveReqMsg msg;
        QCOMPARE(msg.api, QStringLiteral("4.2"));
        QVERIFY(msg.success);
        QCOMPARE(msg.errorMessage, QStringLiteral("Unknown error"));
        QVERIFY(msg.uuid.isEmpty());
        QVERIFY(!msg.timestamp.isValid());
    }

    void requestTokenSitsRightBehindRequest_data()
    {
        QTest::addColumn<QString>("token");
        QTest::addColumn<QString>("expectedMiddle");
        QTest::newRow("no token") << QString() << QStringLiteral("<Request><GetThing/></Request></SRNT>");
        QTest::newRow("token") << QStringLiteral("a<b")
                               << QStringLiteral("<Request><Token>a<b</Token><GetThing/></Request></SRNT>");
    }

    void requestTokenSitsRightBehindRequest()
    {
        QFETCH(QString, token);
        QFETCH(QString, expectedMiddle);
        TokenRequest req;
        req.token = token;
        const QString xml = req.serializeToXml("6.1");
        QVERIFY2(xml.endsWith(expectedMiddle), qPrintable(xml));
    }

    void failedResponseCarriesEncodedReason()
    {
        TestResponse ok;
        QVERIFY(!ok.serializeToXml("6.1").contains("RequestFailed"));

        TestResponse failed;
        failed.success = false;
        failed.errorMessage = QStringLiteral("no <such> thing & more");
        const QString xml = failed.serializeToXml("6.1");
        QVERIFY2(xml.contains("<Response><RequestFailed>no &lt;such&gt; thing &amp; more</RequestFailed><Thing/>"
                              "</Response></SRNT>"),
                 qPrintable(xml));
        const TestResponse back = TestResponse::parseMessage(xml);
        QVERIFY(!back.success);
        QCOMPARE(back.errorMessage, failed.errorMessage);
    }

    void requestFailedWinsAndSkipsEverythingElse()
    {
        QtLogCapture log;
        const TestResponse msg = TestResponse::parseMessage(
            MessageTestUtil::failedDocument(QStringLiteral("denied"), QStringLiteral("<Name>x</Name>")));
        QVERIFY(!msg.success);
        QCOMPARE(msg.errorMessage, QStringLiteral("denied"));
        QVERIFY(msg.uuid.isEmpty()); // no metadata read on this path
        QVERIFY(log.contains(QtDebugMsg, "Thing request failed: denied"));
    }

    void emptyRequestFailedIsNoFailure()
    {
        const TestResponse msg = TestResponse::parseMessage(
            MessageTestUtil::serverDocument(QStringLiteral("<RequestFailed></RequestFailed><Name>x</Name>")));
        QVERIFY(msg.success);
        QCOMPARE(msg.uuid, MessageTestUtil::fixtureUuid());
        QCOMPARE(msg.api, QStringLiteral("6.1"));
        QCOMPARE(msg.timestamp, QDateTime(QDate(2026, 11, 15), QTime(18, 10, 2, 123), Qt::UTC));
    }

    void invalidMessageIsLoggedAndEmpty()
    {
        QtLogCapture log;
        const TestResponse msg = TestResponse::parseMessage(MessageTestUtil::serverDocument(QString()));
        QVERIFY(!msg.success);
        QVERIFY(msg.uuid.isEmpty());
        QVERIFY(log.contains(QtDebugMsg, "parsed an invalid Thing msg"));
    }

    void metadataWithoutApiLeavesItEmpty()
    {
        KeepAliveReqMsg msg;
        msg.parseMessageMetadata(QStringLiteral("<SRNT><UUID>u1</UUID><Timestamp>bad</Timestamp></SRNT>"));
        QCOMPARE(msg.api, QString());
        QCOMPARE(msg.uuid, QStringLiteral("u1"));
        QVERIFY(!msg.timestamp.isValid());
    }

    void timestampReadsAsTheFormatReadsIt_data()
    {
        QTest::addColumn<QString>("text");
        for (const char* t : {"2026-11-15T18:10:02.123", "2026-11-15T18:10:02", "2026-11-15T18:10:02.1",
                              "2026-11-15T18:10:02.1234", "2026-11-15 18:10:02.123", "2026-13-15T18:10:02.123",
                              "2026-02-30T18:10:02.123", "2026-11-15T24:00:00.000", "2026-11-15T18:10", "",
                              "garbage", "2026-11-15T18:10:02.123Z", " 2026-11-15T18:10:02.123",
                              "2026-1-15T18:10:02.123", "2024-02-29T23:59:59.999"})
            QTest::newRow(t) << QString::fromLatin1(t);
    }

    void timestampReadsAsTheFormatReadsIt()
    {
        // The envelope reader must agree with QDateTime::fromString on the
        // S_ISO_DATE format, taken as UTC.
        QFETCH(QString, text);
        QDateTime expected = QDateTime::fromString(text, SARNET_XML::S_ISO_DATE);
        expected.setTimeSpec(Qt::UTC);
        KeepAliveReqMsg msg;
        msg.parseMessageMetadata(QStringLiteral("<SRNT><Timestamp>%1</Timestamp></SRNT>").arg(text));
        QCOMPARE(msg.timestamp.isValid(), expected.isValid());
        if (expected.isValid())
            QCOMPARE(msg.timestamp, expected);
        QCOMPARE(msg.timestamp.timeSpec(), Qt::UTC);
    }

    void envelopeNameWinsOverBodyName()
    {
        KeepAliveReqMsg msg;
        msg.parseMessageMetadata(MessageTestUtil::serverDocument(QStringLiteral("<Thing><UUID>inner</UUID></Thing>")));
        QCOMPARE(msg.uuid, MessageTestUtil::fixtureUuid());
    }

    void ackCarriesTheAcknowledgedId()
    {
        AckMsg ack(QStringLiteral("{id&1}"));
        const QString xml = ack.serializeToXml("5.0");
        QVERIFY2(xml.endsWith("<Info><MsgAck><AckUUID>{id&amp;1}</AckUUID></MsgAck></Info></SRNT>"), qPrintable(xml));
        QCOMPARE(SimpleXmlParser::getDecodedTagValue(xml, "AckUUID"), QStringLiteral("{id&1}"));
    }

    // Plain ids are written straight; the writer is the reference for them
    // and for every id that needs escaping.
    void ackBodyMatchesTheWriter_data()
    {
        QTest::addColumn<QString>("id");
        for (const char* id : {"{67c8770b-44f1-410a-ab9a-f9b5446f13ee}", "67C8770B44F1", "", "a", "{id&1}",
                               "<x>", "a\"b", "tab\there", "line\nbreak", "\x01", "caff\xc3\xa8"})
            QTest::newRow(id) << QString::fromUtf8(id);
    }

    void ackBodyMatchesTheWriter()
    {
        QFETCH(QString, id);
        QString expected;
        QXmlStreamWriter writer(&expected);
        writer.writeStartElement(QStringLiteral("MsgAck"));
        writer.writeTextElement(QStringLiteral("AckUUID"), id);
        writer.writeEndElement();
        QCOMPARE(AckMsg(id).generateXmlMessageBody(), expected);
    }

    void plainRequestIsVerbatim()
    {
        PlainRequestMessage plain(QStringLiteral("<phoneCommand><key>1</key></phoneCommand>"));
        QVERIFY(plain.serializeToXml("6.1").endsWith(
            "<Request><phoneCommand><key>1</key></phoneCommand></Request></SRNT>"));
    }

    void tagHelpersEscapeNothing()
    {
        QCOMPARE(OPENTAG("a&b"), QStringLiteral("<a&b>"));
        QCOMPARE(CLOSETAG("X"), QStringLiteral("</X>"));
        QCOMPARE(EMPTYTAG("X"), QStringLiteral("<X/>"));
    }

    void bodyWriterHasNoWhiteSpace()
    {
        XmlBodyWriter w;
        w.start("Outer").text("A", QStringLiteral("x<y")).text("B", QString()).empty("C").start("D");
        QCOMPARE(w.result(), QStringLiteral("<Outer><A>x&lt;y</A><B></B><C/><D/></Outer>"));
    }

    void textualVersionRule_data()
    {
        QTest::addColumn<QString>("api");
        QTest::addColumn<bool>("atLeast52");
        QTest::newRow("5.2") << "5.2" << true;
        QTest::newRow("5.10 sorts below 5.2") << "5.10" << false;
        QTest::newRow("6.1") << "6.1" << true;
        QTest::newRow("10.0 sorts below") << "10.0" << false;
        QTest::newRow("empty") << "" << false;
    }

    void textualVersionRule()
    {
        QFETCH(QString, api);
        QFETCH(bool, atLeast52);
        QCOMPARE(ApiText::atLeast(api, "5.2"), atLeast52);
        QCOMPARE(ApiText::below(api, "5.2"), !atLeast52);
    }
};

QTEST_GUILESS_MAIN(TestSXmlMessage)
#include "tst_sxmlmessage.moc"
