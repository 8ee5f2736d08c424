// Favourites as an application keeps them: "srnt.ini" in the data directory,
// surviving a restart of the client, renumbered at each save, duplicates
// allowed, and the documented loss when adding before anything was loaded.
#include "favoriteentry.h"
#include "logbuscapture.h"
#include "telvix.h"

#include <QMetaProperty>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

FavoriteEntry favourite(const QString& type, const QString& number, const QString& name)
{
    FavoriteEntry entry;
    entry.type = type;
    entry.number = number;
    entry.displayName = name;
    return entry;
}

QStringList numbersOf(const QList<FavoriteEntry>& list)
{
    QStringList numbers;
    for (const FavoriteEntry& entry : list)
        numbers.append(entry.number);
    return numbers;
}

// The client of one data directory, started and stopped with the test.
class Client
{
public:
    explicit Client(const QString& dir)
        : m_telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("fav-test"),
                   QStringLiteral("1.0"), QStringLiteral("dev-fav"), dir)
    {
        m_telvix.init();
    }
    ~Client() { m_telvix.shutdown(); }

    Telvix* operator->() { return &m_telvix; }

    /// getFavoriteList() and its answer; the queue order also makes every
    /// earlier add or delete done (and saved) by then.
    QList<FavoriteEntry> list()
    {
        QSignalSpy changed(&m_telvix, &Telvix::sigFavouritesChanged);
        // The answer may come before a wait() would start: poll the spy.
        if (!m_telvix.getFavoriteList() || !QTest::qWaitFor([&changed] { return !changed.isEmpty(); }, 5000))
            return {FavoriteEntry()};
        return changed.takeFirst().at(0).value<QList<FavoriteEntry>>();
    }

private:
    Telvix m_telvix;
};

} // namespace

class TestFavourites : public QObject
{
    Q_OBJECT

private:
    static QString iniPath(const QTemporaryDir& dir) { return dir.filePath(QStringLiteral("srnt.ini")); }

private Q_SLOTS:
    void equalityIgnoresAllButTypeNumberAndName_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("number");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("equal");
        QTest::newRow("same") << "exten"
                              << "201"
                              << "Bob" << true;
        QTest::newRow("other type") << "mobile"
                                    << "201"
                                    << "Bob" << false;
        QTest::newRow("other number") << "exten"
                                      << "202"
                                      << "Bob" << false;
        QTest::newRow("other name") << "exten"
                                    << "201"
                                    << "Robert" << false;
    }

    void equalityIgnoresAllButTypeNumberAndName()
    {
        QFETCH(QString, type);
        QFETCH(QString, number);
        QFETCH(QString, name);
        QFETCH(bool, equal);
        FavoriteEntry left = favourite("exten", "201", "Bob");
        left.company = QStringLiteral("Acme");
        left.contactUuid = QStringLiteral("u-1");
        const FavoriteEntry right = favourite(type, number, name);
        QCOMPARE(left == right, equal);
        QCOMPARE(left != right, !equal);
    }

    void recordIsAnIntrospectableRegisteredType()
    {
        QVERIFY(QMetaType::type("FavoriteEntry") != QMetaType::UnknownType);
        QVERIFY(QMetaType::type("QList<FavoriteEntry>") != QMetaType::UnknownType);
        const QMetaObject& meta = FavoriteEntry::staticMetaObject;
        QCOMPARE(meta.superClass(), &PhoneBookEntry::staticMetaObject);
        const FavoriteEntry entry = favourite("mobile", "333", "Carol");
        QCOMPARE(meta.property(meta.indexOfProperty("number")).readOnGadget(&entry).toString(),
                 QStringLiteral("333"));
        QCOMPARE(meta.property(meta.indexOfProperty("displayName")).readOnGadget(&entry).toString(),
                 QStringLiteral("Carol"));
    }

    void favouritesSurviveARestart()
    {
        QTemporaryDir dir;
        {
            Client client(dir.path());
            QVERIFY(client.list().isEmpty());
            QVERIFY(client->addFavourite(favourite("exten", "201", "Bob")));
            QVERIFY(client->addFavourite(favourite("mobile", "3331234567", "Carol")));
            QCOMPARE(numbersOf(client.list()), (QStringList {"201", "3331234567"}));
        }
        Client restarted(dir.path());
        const QList<FavoriteEntry> list = restarted.list();
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.at(1), favourite("mobile", "3331234567", "Carol"));

        QSettings file(iniPath(dir), QSettings::IniFormat);
        QCOMPARE(file.value("FAVOURITES/0/type").toString(), QStringLiteral("exten"));
        QCOMPARE(file.value("FAVOURITES/0/number").toString(), QStringLiteral("201"));
        QCOMPARE(file.value("FAVOURITES/0/name").toString(), QStringLiteral("Bob"));
    }

    void twelveEntriesComeBackInTheFilesTextOrder()
    {
        QTemporaryDir dir;
        QStringList saved;
        {
            Client client(dir.path());
            QVERIFY(client.list().isEmpty());
            for (int i = 0; i < 12; ++i) {
                saved.append(QStringLiteral("10%1").arg(i, 2, 10, QLatin1Char('0')));
                QVERIFY(client->addFavourite(favourite("exten", saved.last(), QStringLiteral("n%1").arg(i))));
            }
            QCOMPARE(numbersOf(client.list()), saved);
        }
        // Groups "10" and "11" sort before "2" as text.
        const QStringList reloaded = {"1000", "1001", "1010", "1011", "1002", "1003",
                                      "1004", "1005", "1006", "1007", "1008", "1009"};
        Client restarted(dir.path());
        QCOMPARE(numbersOf(restarted.list()), reloaded);
    }

    void duplicatesAreKeptAndDeletedTogether()
    {
        QTemporaryDir dir;
        Client client(dir.path());
        LogbusCapture log;
        QVERIFY(client.list().isEmpty());
        const FavoriteEntry bob = favourite("exten", "201", "Bob");
        QVERIFY(client->addFavourite(bob));
        QVERIFY(client->addFavourite(favourite("exten", "202", "Carol")));
        QVERIFY(client->addFavourite(bob));
        QCOMPARE(numbersOf(client.list()), (QStringList {"201", "202", "201"}));
        QVERIFY(log.contains(1000, "Adding favorites: type"));

        // Same number, another name: not the same favourite.
        QVERIFY(client->deleteFavourite(favourite("exten", "201", "Robert")));
        QCOMPARE(client.list().size(), 3);
        QVERIFY(client->deleteFavourite(bob));
        QCOMPARE(numbersOf(client.list()), QStringList {"202"});
        QVERIFY(log.contains(1000, "Deleting favorites: type"));

        // No gap is left in the file: the survivor is entry 0 again.
        QSettings file(iniPath(dir), QSettings::IniFormat);
        file.beginGroup("FAVOURITES");
        QCOMPARE(file.childGroups(), QStringList {"0"});
        QCOMPARE(file.value("0/number").toString(), QStringLiteral("202"));
    }

    void addingBeforeLoadingReplacesTheFile()
    {
        QTemporaryDir dir;
        {
            Client client(dir.path());
            QVERIFY(client.list().isEmpty());
            QVERIFY(client->addFavourite(favourite("exten", "201", "Bob")));
            QVERIFY(client->addFavourite(favourite("exten", "202", "Carol")));
            QCOMPARE(client.list().size(), 2);
        }
        Client restarted(dir.path());
        QVERIFY(restarted->addFavourite(favourite("mobile", "333", "Dan")));
        // The list in memory held only the new entry, and so does the file now.
        QCOMPARE(numbersOf(restarted.list()), QStringList {"333"});
        QSettings file(iniPath(dir), QSettings::IniFormat);
        file.beginGroup("FAVOURITES");
        QCOMPARE(file.childGroups(), QStringList {"0"});
    }

    void emptiedListIsReadFromTheFileAgain()
    {
        QTemporaryDir dir;
        Client client(dir.path());
        QVERIFY(client.list().isEmpty());
        const FavoriteEntry bob = favourite("exten", "201", "Bob");
        QVERIFY(client->addFavourite(bob));
        QVERIFY(client->deleteFavourite(bob));
        QVERIFY(client.list().isEmpty());

        // Another writer fills the file meanwhile; an empty list looks again.
        {
            QSettings file(iniPath(dir), QSettings::IniFormat);
            file.setValue("FAVOURITES/0/type", "exten");
            file.setValue("FAVOURITES/0/number", "205");
            file.setValue("FAVOURITES/0/name", "Eve");
            // An entry without a number is dropped on reading.
            file.setValue("FAVOURITES/1/type", "exten");
            file.setValue("FAVOURITES/1/name", "Nobody");
        }
        const QList<FavoriteEntry> list = client.list();
        QCOMPARE(list.size(), 1);
        QCOMPARE(list.first(), favourite("exten", "205", "Eve"));
    }
};

QTEST_GUILESS_MAIN(TestFavourites)
#include "tst_favourites.moc"
