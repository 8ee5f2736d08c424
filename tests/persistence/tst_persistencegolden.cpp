// The store's rules and the scrambling against fixtures/persistence: each
// file maps a function name to rows of [arguments..., expected result].
#include "encrypteddbhandler.h"
#include "jsonconvert.h"
#include "logbuscapture.h"
#include "persistencesqlite.h"
#include "simpleobfuscator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

using Args = QJsonArray;
using Function = std::function<QJsonValue(const Args&)>;

namespace {

QString compact(const QJsonValue& v)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray {v}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
}

QByteArray bytes(const QJsonValue& hex)
{
    return QByteArray::fromHex(hex.toString().toLatin1());
}

QString hex(const QByteArray& data)
{
    return QString::fromLatin1(data.toHex());
}

QDateTime time(const QJsonValue& v)
{
    return QDateTime::fromString(v.toString(), Qt::ISODateWithMs);
}

// A store of user 200 in a directory of its own, with its working copies in
// a temporary directory beside it.
struct Store
{
    Store()
    {
        QDir(dir.path()).mkdir(QStringLiteral("tmp"));
        qputenv("TMPDIR", dir.filePath(QStringLiteral("tmp")).toLocal8Bit());
        store = std::make_unique<PersistenceSqlite>(dir.filePath(QStringLiteral("cdr.db")), QStringLiteral("200"));
    }
    ~Store() { qunsetenv("TMPDIR"); }
    bool append(const QJsonValue& entries)
    {
        return store->appendCdr(JsonConvert::fromJson(entries, qMetaTypeId<Cdr>()).value<Cdr>());
    }
    QTemporaryDir dir;
    std::unique_ptr<PersistenceSqlite> store;
};

QHash<QString, Function> functions()
{
    QHash<QString, Function> f;
    f["rot13"] = [](const Args& a) {
        return hex(SimpleObfuscator::rot13(bytes(a[0]), SimpleObfuscator::RotDirection(a[1].toInt())));
    };
    f["hide"] = [](const Args& a) { return QString::fromLatin1(SimpleObfuscator::hide(bytes(a[0]))); };
    f["reveal"] = [](const Args& a) { return hex(SimpleObfuscator::reveal(a[0].toString().toLatin1())); };
    f["hideText"] = [](const Args& a) { return SimpleObfuscator::hide(a[0].toString()); };
    f["revealText"] = [](const Args& a) { return SimpleObfuscator::reveal(a[0].toString()); };
    f["hiddenTextRoundTrip"] = [](const Args& a) {
        const QString text = a[0].toString(), hidden = SimpleObfuscator::hide(text);
        return !text.isEmpty() && hidden.contains(text.left(4)) ? "visible: " + hidden : SimpleObfuscator::reveal(hidden);
    };
    f["lastCdrEntryUid"] = [](const Args& a) {
        Persistence p;
        p.setLastCdrEntryUid(a[0].toString());
        p.setLastCdrEntryUid(a[1].toString());
        return p.lastCdrEntryUid();
    };
    // Phone-book and message times follow the same rule.
    f["lastTimes"] = [](const Args& a) -> QJsonValue {
        Persistence p;
        p.setLastPhoneBookTime(time(a[0]));
        p.setLastPhoneBookTime(time(a[1]));
        p.setLastSmsTime(time(a[0]));
        p.setLastSmsTime(time(a[1]));
        if (p.lastPhoneBookTime() != p.lastSmsTime())
            return QStringLiteral("rules differ");
        return p.lastSmsTime().isValid() ? QJsonValue(p.lastSmsTime().toString(Qt::ISODateWithMs)) : QJsonValue();
    };
    f["scrambledSize"] = [](const Args& a) -> QJsonValue {
        QTemporaryDir dir;
        QByteArray plain(a[0].toInt(), '\0');
        for (int i = 0; i < plain.size(); ++i)
            plain[i] = char(i * 7 + i / 256);
        QFile in(dir.filePath("in")), out(dir.filePath("out"));
        if (!in.open(QIODevice::WriteOnly) || in.write(plain) != plain.size())
            return QStringLiteral("not written");
        in.close();
        if (!EncryptedSqliteDbHandler::encryptOrDecryptFile(in.fileName(), out.fileName(), true)
            || !EncryptedSqliteDbHandler::encryptOrDecryptFile(out.fileName(), in.fileName(), false)
            || !in.open(QIODevice::ReadOnly) || in.readAll() != plain)
            return QStringLiteral("no round trip");
        return out.size();
    };
    f["storedCdr"] = [](const Args& a) -> QJsonValue {
        Store s;
        if (!s.append(Args {a[0]}) || s.store->cdr().size() != 1)
            return QStringLiteral("not stored");
        const CdrEntry e = s.store->cdr().first();
        return Args {e.directionText, e.statusText, e.infoType, e.localDirection};
    };
    // A row that goes in marks the list dirty, so the next read sees it; a
    // list is stored in one transaction where a refused row undoes only itself.
    f["appendAfter500"] = [](const Args& a) -> QJsonValue {
        Store s;
        if (!s.append(Args {QJsonObject {{"entryUid", "500"}, {"caller", "200"}}}) || s.store->cdr().size() != 1)
            return QStringLiteral("first entry not stored");
        LogbusCapture log;
        const bool appended = s.append(a[0]);
        QJsonArray warnings;
        for (const LogRecord& r : log.records())
            if (r.priority == 100)
                warnings << r.text;
        return Args {appended, s.store->cdr().size(), warnings};
    };
    return f;
}

} // namespace

class TestPersistenceGolden : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fixtures_data()
    {
        QTest::addColumn<QString>("function");
        QTest::addColumn<Args>("args");
        QTest::addColumn<QJsonValue>("expected");
        const QDir dir(QStringLiteral(TELVIX_TEST_FIXTURES "/persistence"));
        for (const QString& name : dir.entryList({"*.json"})) {
            QFile file(dir.filePath(name));
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QJsonObject all = QJsonDocument::fromJson(file.readAll()).object();
            QVERIFY2(!all.isEmpty(), qPrintable(name));
            for (auto it = all.begin(); it != all.end(); ++it) {
                const QJsonArray rows = it.value().toArray();
                for (int i = 0; i < rows.size(); ++i) {
                    Args args = rows.at(i).toArray();
                    const QJsonValue expected = args.takeAt(args.size() - 1);
                    QTest::addRow("%s %d: %s", qPrintable(it.key()), i, qPrintable(compact(args).left(60)))
                        << it.key() << args << expected;
                }
            }
        }
    }

    void fixtures()
    {
        static const QHash<QString, Function> all = functions();
        QFETCH(QString, function);
        QFETCH(Args, args);
        QFETCH(QJsonValue, expected);
        QVERIFY2(all.contains(function), qPrintable(function));
        const QJsonValue actual = all.value(function)(args);
        QVERIFY2(actual == expected, qPrintable("\n   actual: " + compact(actual) + "\n expected: " + compact(expected)));
    }

    // Every byte value moves by 13 and back, and random data of any length
    // survives hiding, which never pads.
    void obfuscatorRoundTrips()
    {
        QByteArray all(256, '\0');
        for (int i = 0; i < 256; ++i)
            all[i] = char(i);
        const QByteArray forward = SimpleObfuscator::rot13(all, SimpleObfuscator::Forward);
        for (int i = 0; i < 256; ++i)
            QCOMPARE(int(uchar(forward.at(i))), (i + 13) % 256);
        QCOMPARE(SimpleObfuscator::rot13(forward, SimpleObfuscator::Backward), all);

        QRandomGenerator rng(20261115u);
        for (int length : {1, 2, 3, 4, 64, 65, 65537}) {
            QByteArray data(length, '\0');
            for (char& c : data)
                c = char(rng.bounded(256));
            data[length / 2] = '\0';
            const QByteArray hidden = SimpleObfuscator::hide(data);
            QVERIFY(!hidden.contains('='));
            QCOMPARE(hidden.size(), (length * 4 + 2) / 3);
            QCOMPARE(SimpleObfuscator::reveal(hidden), data);
        }
    }
};

QTEST_GUILESS_MAIN(TestPersistenceGolden)
#include "tst_persistencegolden.moc"
