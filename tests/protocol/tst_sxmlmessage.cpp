// The envelope's fresh parts, which the golden cases only check for shape:
// the random UUID and the UTC stamp of the moment a message is written.
#include "envelopestamp_p.h"
#include "sarnetxml.h"
#include "simplexmlparser.h"
#include "sxmlmessage.h"

#include <QRandomGenerator>
#include <QUuid>
#include <QtTest>

class TestSXmlMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eachSerialisationGetsItsOwnUuidAndStamp()
    {
        KeepAliveReqMsg msg;
        const QString first = msg.serializeToXml("6.1");
        const QString a = SimpleXmlParser::getTagValue(first, "UUID");
        QVERIFY(a != SimpleXmlParser::getTagValue(msg.serializeToXml("6.1"), "UUID"));
        // A random UUID as QUuid tells one: version 4, the RFC 4122 variant.
        QCOMPARE(QUuid(a).version(), QUuid::Random);
        QCOMPARE(QUuid(a).variant(), QUuid::DCE);
        // The stamp is the time of writing in UTC, without a zone suffix.
        QDateTime stamp
            = QDateTime::fromString(SimpleXmlParser::getTagValue(first, "Timestamp"), SARNET_XML::S_ISO_DATE);
        stamp.setTimeSpec(Qt::UTC);
        QVERIFY(qAbs(stamp.secsTo(QDateTime::currentDateTimeUtc())) < 60);
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
