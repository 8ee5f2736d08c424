#include "telephoneuri.h"

#include <QFile>
#include <QtTest>

class TestTelephoneUri : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void toDialString_data();
    void toDialString();
};

void TestTelephoneUri::toDialString_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("dial");
    QTest::addColumn<QString>("error");

    QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/telephoneuri.tsv"));
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
    for (int line = 1; line <= lines.size(); ++line) {
        const QStringList cols = lines.at(line - 1).split('\t');
        if (cols.at(0).isEmpty() || cols.at(0).startsWith('#'))
            continue;
        QVERIFY2(cols.size() == 2, qPrintable(QStringLiteral("line %1").arg(line)));
        const bool refused = cols.at(1).startsWith('!');
        QTest::addRow("%d: %s", line, qPrintable(cols.at(0)))
            << cols.at(0) << (refused ? QString() : cols.at(1)) << (refused ? cols.at(1).mid(1) : QString());
    }
}

void TestTelephoneUri::toDialString()
{
    QFETCH(QString, uri);
    QFETCH(QString, dial);
    QFETCH(QString, error);

    QString reason = QStringLiteral("stale");
    QCOMPARE(TelephoneUri::toDialString(uri, &reason), dial);
    if (error.isEmpty())
        QVERIFY2(reason.isEmpty(), qPrintable(reason));
    else
        QVERIFY2(reason.contains(error), qPrintable(reason));
    QCOMPARE(TelephoneUri::toDialString(uri), dial);
}

QTEST_APPLESS_MAIN(TestTelephoneUri)
#include "tst_telephoneuri.moc"
