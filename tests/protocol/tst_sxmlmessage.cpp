// The envelope's fresh parts, which the golden cases blank: the random UUID
// and the UTC stamp of the moment a message is written.
#include "envelopestamp_p.h"
#include "sarnetxml.h"
#include "simplexmlparser.h"
#include "sxmlmessage.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QUuid>
#include <QtTest>

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
            "^<SRNT><API>5\\.7</"
            "API><UUID>\\{[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\}</UUID>"
            "<Timestamp>(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3})</Timestamp>"
            "<Info><KeepAlive/></Info></SRNT>$"));
        const QRegularExpressionMatch m = shape.match(xml);
        QVERIFY2(m.hasMatch(), qPrintable(xml));
        // The timestamp is UTC without a zone suffix.
        const QDateTime stamp = QDateTime::fromString(m.captured(1), SARNET_XML::S_ISO_DATE);
        QVERIFY(qAbs(QDateTime(stamp.date(), stamp.time(), Qt::UTC).secsTo(QDateTime::currentDateTimeUtc()))
                < 60);
    }

    void eachSerialisationGetsItsOwnUuid()
    {
        KeepAliveReqMsg msg;
        const QString a = SimpleXmlParser::getTagValue(msg.serializeToXml("6.1"), "UUID");
        const QString b = SimpleXmlParser::getTagValue(msg.serializeToXml("6.1"), "UUID");
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
                                QDateTime(QDate(999, 12, 31), QTime(23, 59, 59, 9), Qt::UTC), QDateTime()};
        for (int i = 0; i < 20000; ++i)
            times.append(QDateTime::fromMSecsSinceEpoch(first + qint64(random.bounded(double(last - first))),
                                                        Qt::UTC));
        for (const QDateTime& time : times)
            QCOMPARE(EnvelopeStamp::isoMilliseconds(time), time.toString(SARNET_XML::S_ISO_DATE));
    }
};

QTEST_APPLESS_MAIN(TestSXmlMessage)
#include "tst_sxmlmessage.moc"
