// The store, its database handlers and the scrambling: functions against the
// rows of fixtures/persistence, scenarios of handlers and stores played from
// fixtures/persistence/scenarios, and a writer killed in the middle of closes.
#include "fixturetable.h"
#include "encrypteddbhandler.h"
#include "jsonconvert.h"
#include "logbuscapture.h"
#include "lxdbhandler.h"
#include "persistencesqlite.h"
#include "qtlogcapture.h"
#include "simpleobfuscator.h"
#include "telvix_const.h"

#include <QSqlQuery>
#include <QtTest>

#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <thread>

namespace {

const auto bytes = [](const QJsonValue& hex) { return QByteArray::fromHex(hex.toString().toLatin1()); };
const auto hex = [](const QByteArray& data) { return QString::fromLatin1(data.toHex()); };
const auto time = [](const QJsonValue& v) { return QDateTime::fromString(v.toString(), Qt::ISODateWithMs); };

DbhConfig sqliteConfig(const QString& dbName, const QString& host, const QString& logFile)
{
    DbhConfig c;
    c.driver = LXDBHANDLER::SQLITE;
    c.dbName = dbName;
    c.host = host;
    c.logFile = logFile;
    return c;
}

bool exec(LxBaseDbHandler& h, const QString& sql)
{
    QSqlQuery q = h.createNewQuery();
    return h.prepareQuery(q, sql) && h.executeQuery(q);
}

qint64 storedCount(EncryptedSqliteDbHandler& h)
{
    QSqlQuery q = h.createNewQuery();
    if (!h.openDbConn() || !h.prepareQuery(q, QStringLiteral("SELECT count(*) FROM t")) || !h.executeQuery(q)
        || !q.next())
        return 0;
    return q.value(0).toLongLong();
}

// The child: one row more per complete close, forever; each line on stdout
// names a count that a complete close has saved.
int churn(const QString& dir)
{
    for (;;) {
        EncryptedSqliteDbHandler h(
            sqliteConfig(QStringLiteral("cdr.db"), dir, dir + QStringLiteral("/db.log")));
        const qint64 next = storedCount(h) + 1;
        if (!exec(h, QStringLiteral("CREATE TABLE IF NOT EXISTS t (n INTEGER)"))
            || !exec(h, QStringLiteral("INSERT INTO t VALUES (%1)").arg(next)) || !h.encryptDb())
            return 2;
        std::printf("%lld\n", static_cast<long long>(next));
        std::fflush(stdout);
    }
}

// A scenario of fixtures/persistence/scenarios: steps [operation,
// arguments..., expected], played in a directory of their own. A path names
// a file in it, or "$name" one remembered by "remember".
struct World
{
    World()
    {
        QDir(dir.path()).mkdir(QStringLiteral("tmp"));
        qputenv("TMPDIR", path("tmp").toLocal8Bit());
    }
    ~World() { qunsetenv("TMPDIR"); }
    QString path(const QJsonValue& name) const
    {
        const QString n = name.toString();
        return vars.contains(n) ? vars.value(n) : dir.filePath(n);
    }
    // A path the scenario remembered goes back under its name.
    QString rel(const QString& path) const { return vars.key(path, path); }
    // "~/" is the scenario's directory, "now-1M+60s" a time from its start.
    QJsonArray expand(const QJsonArray& steps) const
    {
        QString text = compact(steps).replace(QLatin1String("~/"), dir.path() + '/');
        static const QRegularExpression re(QStringLiteral("\"now(?:([-+]\\d+)M)?(?:([-+]\\d+)s)?\""));
        for (QRegularExpressionMatch m = re.match(text); m.hasMatch(); m = re.match(text)) {
            const QDateTime t = now.addMonths(m.captured(1).toInt()).addSecs(m.captured(2).toInt());
            text.replace(m.capturedStart(), m.capturedLength(), '"' + t.toString(TELVIX::IsoDateNoTz) + '"');
        }
        return QJsonDocument::fromJson(text.toUtf8()).array();
    }
    bool openStore(const QString& exten = QStringLiteral("200"))
    {
        store = std::make_unique<PersistenceSqlite>(path("cdr.db"), exten);
        return sqlite()->dbHandler() != nullptr;
    }
    LxBaseDbHandler& h(const QJsonValue& name) { return *handlers.at(name.toString()); }
    EncryptedSqliteDbHandler& e(const QJsonValue& name)
    {
        return static_cast<EncryptedSqliteDbHandler&>(h(name));
    }
    DbhConfig config(const QString& dbName, const QString& host) const
    {
        return sqliteConfig(dbName, host, dir.filePath(QStringLiteral("db.log")));
    }

    QTemporaryDir dir;
    const QDateTime now = QDateTime::currentDateTime();
    QHash<QString, QString> vars;
    std::map<QString, std::unique_ptr<LxBaseDbHandler>> handlers;
    std::unique_ptr<Persistence> store;
    PersistenceSqlite* sqlite() const { return static_cast<PersistenceSqlite*>(store.get()); }
    std::unique_ptr<LogbusCapture> log = std::make_unique<LogbusCapture>();
    std::unique_ptr<QtLogCapture> qt = std::make_unique<QtLogCapture>();
};

QByteArray slurp(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool spit(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

template <typename T> T from(const QJsonValue& v)
{
    return JsonConvert::fromJson(v, qMetaTypeId<T>()).template value<T>();
}

template <typename T> QJsonValue to(const T& value)
{
    return JsonConvert::toJson(QVariant::fromValue(value));
}

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
        return !text.isEmpty() && hidden.contains(text.left(4)) ? "visible: " + hidden
                                                                : SimpleObfuscator::reveal(hidden);
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
        return p.lastSmsTime().isValid() ? QJsonValue(p.lastSmsTime().toString(Qt::ISODateWithMs))
                                         : QJsonValue();
    };
    f["scrambledSize"] = [](const Args& a) -> QJsonValue {
        QTemporaryDir dir;
        QByteArray plain(a[0].toInt(), '\0');
        for (int i = 0; i < plain.size(); ++i)
            plain[i] = char(i * 7 + i / 256);
        const QString in = dir.filePath("in"), out = dir.filePath("out");
        if (!spit(in, plain) || !EncryptedSqliteDbHandler::encryptOrDecryptFile(in, out, true)
            || !EncryptedSqliteDbHandler::encryptOrDecryptFile(out, in, false) || slurp(in) != plain)
            return QStringLiteral("no round trip");
        return QFileInfo(out).size();
    };
    return f;
}

using Step = Operations<World>::Op;

Operations<World> operations()
{
    Operations<World> o;
    auto& s = o.acts;
    // Files of the scenario's directory.
    s["mkdir"] = [](World& w, const Args& a) { return QDir().mkpath(w.path(a[0])); };
    s["write"] = [](World& w, const Args& a) { return spit(w.path(a[0]), a[1].toString().toUtf8()); };
    s["writeHidden"] = [](World& w, const Args& a) {
        return spit(w.path(a[0]), SimpleObfuscator::hide(QByteArray(a[1].toInt(), 'x')));
    };
    s["resize"] = [](World& w, const Args& a) { return QFile::resize(w.path(a[0]), a[1].toInt()); };
    s["size"] = [](World& w, const Args& a) -> QJsonValue {
        const QFileInfo f(w.path(a[0]));
        return f.exists() ? QJsonValue(f.size()) : QJsonValue();
    };
    s["files"] = [](World& w, const Args& a) {
        return QJsonArray::fromStringList(QDir(w.path(a[0])).entryList(QDir::Files | QDir::Hidden));
    };
    s["head"] = [](World& w, const Args& a) { return QString::fromLatin1(slurp(w.path(a[0])).left(16)); };
    s["revealedHead"] = [](World& w, const Args& a) {
        return QString::fromLatin1(SimpleObfuscator::reveal(slurp(w.path(a[0]))).left(16));
    };
    s["holds"]
        = [](World& w, const Args& a) { return slurp(w.path(a[0])).contains(a[1].toString().toUtf8()); };
    s["private"] = [](World& w, const Args& a) {
        return !(QFileInfo(w.path(a[0])).permissions() & (QFile::ReadOther | QFile::ReadGroup));
    };
    s["same"] = [](World& w, const Args& a) { return slurp(w.path(a[0])) == slurp(w.path(a[1])); };
    s["copy"] = [](World& w, const Args& a) { return QFile::copy(w.path(a[0]), w.path(a[1])); };
    s["tmpdir"] = [](World& w, const Args& a) { return qputenv("TMPDIR", w.path(a[0]).toLocal8Bit()); };
    // Logs since the last "clear".
    s["log"] = [](World& w, const Args& a) {
        return a[0].isNull() ? w.log->contains(a[1].toString())
                             : w.log->contains(a[0].toInt(), a[1].toString());
    };
    s["qtlog"] = [](World& w, const Args& a) { return w.qt->contains(a[0].toString()); };
    s["clear"] = [](World& w, const Args&) { return (w.log->clear(), w.qt->clear(), true); };
    // Handlers by name: "enc" a scrambled cdr.db in a directory, "plain" a
    // plain file, with a driver and connection name if given.
    s["enc"] = [](World& w, const Args& a) {
        w.handlers[a[0].toString()] = std::make_unique<EncryptedSqliteDbHandler>(
            w.config(QStringLiteral("cdr.db"), a[1].isString() ? w.path(a[1]) : w.dir.path()));
        return true;
    };
    s["plain"] = [](World& w, const Args& a) {
        DbhConfig c = w.config(w.path(a[1]), w.dir.path());
        c.driver = a[2].toString(LXDBHANDLER::SQLITE);
        c.connectionName = a[3].toString();
        w.handlers[a[0].toString()] = std::make_unique<LxBaseDbHandler>(c);
        return true;
    };
    s["drop"] = [](World& w, const Args& a) {
        const QString connection = w.h(a[0]).connectionName();
        w.handlers.erase(a[0].toString());
        return QSqlDatabase::contains(connection);
    };
    s["remember"] = [](World& w, const Args& a) {
        const QString plain = w.e(a[0]).plainFilePath();
        w.vars.insert(a[1].toString(), plain);
        return QFileInfo(plain).fileName().left(7) + " in " + QFileInfo(plain).absolutePath();
    };
    s["plainPath"] = [](World& w, const Args& a) { return w.rel(w.e(a[0]).plainFilePath()); };
    s["databaseName"] = [](World& w, const Args& a) { return w.rel(w.h(a[0]).database().databaseName()); };
    s["connection"] = [](World& w, const Args& a) { return w.h(a[0]).connectionName().section('{', 0, 0); };
    s["hasConnection"]
        = [](World& w, const Args& a) { return QSqlDatabase::contains(w.h(a[0]).connectionName()); };
    s["open"] = [](World& w, const Args& a) { return w.h(a[0]).openDbConn(); };
    s["isOpen"] = [](World& w, const Args& a) { return w.h(a[0]).database().isOpen(); };
    s["close"] = [](World& w, const Args& a) { return (w.h(a[0]).closeDbConn(), true); };
    s["testConnection"] = [](World& w, const Args& a) { return w.h(a[0]).testConnection(); };
    s["exec"] = [](World& w, const Args& a) { return exec(w.h(a[0]), a[1].toString()); };
    s["transaction"] = [](World& w, const Args& a) { return w.h(a[0]).database().transaction(); };
    s["fill"] = [](World& w, const Args& a) {
        bool ok = w.h(a[0]).database().transaction();
        for (int i = 0; i < a[1].toInt(); ++i)
            ok = ok
                && exec(w.h(a[0]),
                        QStringLiteral("INSERT INTO t VALUES ('row %1')").arg(i, 5, 10, QLatin1Char('0')));
        return ok && w.h(a[0]).database().commit();
    };
    s["names"] = [](World& w, const Args& a) {
        QSqlQuery q = w.h(a[0]).createNewQuery();
        QJsonArray out;
        if (w.h(a[0]).prepareQuery(q, QStringLiteral("SELECT name FROM t ORDER BY name"))
            && w.h(a[0]).executeQuery(q))
            while (q.next())
                out << q.value(0).toString();
        return a.size() > 1 ? QJsonValue(Args {out.size(), out.last()}) : QJsonValue(out);
    };
    s["error"] = [](World& w, const Args& a) {
        const LxBaseDbHandler& h = w.h(a[0]);
        const QString type = QMetaEnum::fromType<LxBaseDbHandler::ErrorType>().valueToKey(h.lastErrorType());
        return a.size() > 1 ? Args {type, h.lastErrorText().contains(a[1].toString())}
                            : Args {type, h.lastErrorText().isNull()};
    };
    // The last error as the log tells it with the query.
    s["errorLogged"] = [](World& w, const Args& a) {
        return w.log->contains(10,
                               QStringLiteral("%1 %2  for query ( %3 )")
                                   .arg(a[1].toString(), w.h(a[0]).lastErrorText(), a[2].toString()));
    };
    s["dbError"] = [](World& w, const Args& a) {
        return w.log->contains(10, QStringLiteral("------ DB ERROR: ") + w.h(a[0]).lastErrorText());
    };
    s["commitAndClose"]
        = [](World& w, const Args& a) { return (w.h(a[0]).commitAndClose(a[1].toString()), true); };
    s["rollbackAndClose"]
        = [](World& w, const Args& a) { return (w.h(a[0]).rollbackAndClose(a[1].toString()), true); };
    s["encrypt"] = [](World& w, const Args& a) { return w.e(a[0]).encryptDb(); };
    s["decrypt"] = [](World& w, const Args& a) { return w.e(a[0]).decryptDb(); };
    s["deleteFiles"] = [](World& w, const Args& a) { return (w.e(a[0]).deleteFiles(), true); };
    // The store of a user on cdr.db.
    // The body without a file: lists in memory only.
    s["memory"] = [](World& w, const Args&) { return (w.store = std::make_unique<Persistence>())->open(); };
    s["store"] = [](World& w, const Args& a) { return w.openStore(a[0].toString()); };
    s["closeStore"] = [](World& w, const Args&) { return (w.store->close(), true); };
    s["dropStore"] = [](World& w, const Args&) { return (w.store.reset(), true); };
    s["append"] = [](World& w, const Args& a) { return w.store->appendCdr(from<Cdr>(a[0])); };
    s["cdr"] = [](World& w, const Args&) {
        QJsonArray uids;
        for (const CdrEntry& e : w.store->cdr())
            uids << e.entryUid;
        return uids;
    };
    s["cdrInfo"] = [](World& w, const Args&) {
        const CdrEntry e = w.store->cdr().value(0);
        return Args {e.directionText, e.statusText, e.infoType, e.localDirection};
    };
    s["warnings"]
        = [](World& w, const Args& a) { return QJsonArray::fromStringList(w.log->texts(a[0].toInt())); };
    s["cdrRecords"] = [](World& w, const Args&) { return to(w.store->cdr()); };
    s["readCdr"] = [](World& w, const Args&) { return w.store->readCdr(); };
    s["lastUid"] = [](World& w, const Args&) { return w.store->lastCdrEntryUid(); };
    s["addSms"] = [](World& w, const Args& a) { return w.store->appendSmsList(from<QList<SmsEntry>>(a[0])); };
    s["sms"] = [](World& w, const Args&) { return to(w.store->smsList()); };
    s["lastSmsTime"]
        = [](World& w, const Args&) { return w.store->lastSmsTime().toString(TELVIX::IsoDateNoTz); };
    s["setPhoneBook"]
        = [](World& w, const Args& a) { return w.store->setPhoneBook(from<QList<PhoneBook>>(a[0])); };
    s["readPhoneBook"] = [](World& w, const Args&) { return w.store->readPhoneBook(); };
    s["phoneBooks"] = [](World& w, const Args&) { return w.store->phoneBook().size(); };
    s["deleteOldData"] = [](World& w, const Args&) { return w.sqlite()->deleteOldData(); };
    s["count"] = [](World& w, const Args& a) {
        QSqlQuery q(w.sqlite()->dbHandler()->database());
        return q.exec("SELECT count(*) FROM " + a[0].toString()) && q.next() ? q.value(0).toInt() : -1;
    };
    return o;
}

} // namespace

class TestPersistence : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fixtures_data() { addFunctionRows(QStringLiteral("persistence")); }

    void fixtures()
    {
        static const QHash<QString, Function> all = functions();
        checkFunctionRow(all);
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

    void scenarios_data() { addScenarioRows(QStringLiteral("persistence/scenarios")); }

    void scenarios()
    {
        static const Operations<World> all = operations();
        QFETCH(QJsonArray, steps);
        World w;
        all.playAll(w, w.expand(steps));
    }

    // The scrambled store killed at arbitrary points of its close: the
    // history that a complete close saved is never lost, and no plain copy
    // stays in the clear.
    void killedAnywhereInCloseLosesNothing()
    {
        QTemporaryDir dir, tmp;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TMPDIR"), tmp.path());
        qputenv("TMPDIR", tmp.path().toLocal8Bit());
        QRandomGenerator random(20261125);
        LogbusCapture logs;
        qint64 saved = 0;
        for (int round = 0; round < 30; ++round) {
            QProcess child;
            child.setProcessEnvironment(env);
            child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--churn"), dir.path()});
            QVERIFY(child.waitForStarted());
            // Wait for a first complete close, then kill at a random point of
            // the following ones.
            QTRY_VERIFY(child.canReadLine() || child.waitForReadyRead(100));
            std::this_thread::sleep_for(std::chrono::microseconds(random.bounded(3000)));
            child.kill();
            QVERIFY(child.waitForFinished());
            for (const QByteArray& line : child.readAllStandardOutput().split('\n'))
                if (!line.isEmpty())
                    saved = qMax(saved, line.toLongLong());
            QVERIFY2(saved > 0, child.readAllStandardError().constData());

            EncryptedSqliteDbHandler next(
                sqliteConfig(QStringLiteral("cdr.db"), dir.path(), dir.filePath(QStringLiteral("db.log"))));
            const qint64 count = storedCount(next);
            QVERIFY2(
                count >= saved,
                qPrintable(QStringLiteral("round %1: %2 rows, %3 saved").arg(round).arg(count).arg(saved)));
            QVERIFY(count <= saved + 1);
            next.closeDbConn();
            QVERIFY(next.encryptDb());
            // What the killed child had in the clear is gone with the next open.
            // (An empty file is harmless: a kill right after the copy's creation.)
            const QFileInfoList left
                = QDir(tmp.path()).entryInfoList({QStringLiteral("cdr.db-*")}, QDir::Files);
            for (const QFileInfo& file : left)
                QVERIFY2(file.size() == 0, qPrintable(file.fileName()));
        }
        // Most kills land while a plain copy exists; some inside the close.
        qInfo("copies removed %d, backups restored %d",
              logs.count(QStringLiteral("an earlier run left behind")),
              logs.count(QStringLiteral("interrupted close")));
        QVERIFY(logs.count(QStringLiteral("an earlier run left behind")) > 0);
        qunsetenv("TMPDIR");
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--churn") == 0)
        return churn(QString::fromLocal8Bit(argv[2]));
    TestPersistence test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_persistence.moc"
