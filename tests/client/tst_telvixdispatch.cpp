// What the dispatcher keeps out of sight of the signals, over TLS from the
// fake server: the peer maps and how they end with the connection, and a
// character cut between two reads; and the scenarios of fixtures/client/dispatch,
// what the server's messages raise.
#include "loggedinclient.h"
#include "scenario.h"
#include "telvix.h"
#include "telvix_p.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

QString peers(const QString& list, const QStringList& names, const QString& exten = QString())
{
    QString body;
    for (const QString& name : names)
        body += QStringLiteral("<Peer><Name>%1</Name><Type>SIP</Type>%2</Peer>")
                    .arg(name, exten.isEmpty() ? QString() : QStringLiteral("<Exten>%1</Exten>").arg(exten));
    return QStringLiteral("<%1>%2</%1>").arg(list, body);
}

} // namespace

class TestTelvixDispatch : public ScenarioTest
{
    Q_OBJECT
public:
    TestTelvixDispatch()
        : ScenarioTest(QStringLiteral("dispatch"))
    {
    }

private Q_SLOTS:
    // The dates the server writes are local times.
    void initTestCase() { qputenv("TZ", "UTC"); }

    void peerMapsFollowTheListsAndEndWithTheConnection()
    {
        LoggedInClient app(TELVIX::AppModeSrntPro);
        QVERIFY(app.start());
        TelvixPrivate* d = TelvixPrivate::get(app.client());
        QMap<QString, QString> accountToExten;
        QMap<QString, QStringList> extenToAccounts;
        QMap<QString, BuddyStatus> status;
        const auto read = [&] {
            app.onLibraryThread([&] {
                accountToExten = d->accountToExten;
                extenToAccounts = d->extenToAccounts;
                status = d->extenStatus;
            });
        };
        QVERIFY(app.deliver(peers("PeerStatusList", {"200-desk", "200-soft"})));
        read();
        QCOMPARE(extenToAccounts.value("200"), (QStringList {"200-desk", "200-soft"}));
        // The peer list replaces the maps as a whole, the user's accounts included.
        QVERIFY(app.deliver(peers("PeerList", {"201-a", "201-b"}, "201")));
        read();
        QCOMPARE(accountToExten, (QMap<QString, QString> {{"201-a", "201"}, {"201-b", "201"}}));
        // A new list replaces the user's accounts; other extensions stay.
        QVERIFY(app.deliver(peers("PeerStatusList", {"200-app"})));
        read();
        QCOMPARE(accountToExten,
                 (QMap<QString, QString> {{"200-app", "200"}, {"201-a", "201"}, {"201-b", "201"}}));
        QCOMPARE(extenToAccounts.value("200"), QStringList {"200-app"});
        QCOMPARE(extenToAccounts.value("201"), (QStringList {"201-a", "201-b"}));

        app.onLibraryThread([d] {
            d->chatIdToExten.insert(QStringLiteral("bob@chat"), QStringLiteral("201"));
            d->extenToChatId.insert(QStringLiteral("201"), QStringLiteral("bob@chat"));
        });
        QSignalSpy gone(app.client(), &Telvix::disconnectedFromServer);
        app.server().disconnectClient(app.connection());
        QTRY_VERIFY_WITH_TIMEOUT(!gone.isEmpty(), 5000);
        read();
        QVERIFY(accountToExten.isEmpty() && extenToAccounts.isEmpty());
        QCOMPARE(status.value("201").contacts, (QStringList {"201-a", "201-b"}));
        bool chatMapsEmpty = false;
        app.onLibraryThread(
            [&] { chatMapsEmpty = d->chatIdToExten.isEmpty() && d->extenToChatId.isEmpty(); });
        QVERIFY(chatMapsEmpty);
    }

    void characterSplitBetweenTwoReadsArrivesWhole()
    {
        LoggedInClient app(TELVIX::AppModeSrntPro);
        QVERIFY(app.start());
        QSignalSpy mailbox(app.client(), &Telvix::sigMailboxStatusChanged);
        const QString xml = FakeCtiServer::document(
            QStringLiteral("<MailboxStatus><Mailbox>Zo\u00eb-200</Mailbox></MailboxStatus>"));
        // The cut falls between the two bytes of the "ë".
        QVERIFY(app.server().sendSplit(app.connection(), xml, {xml.toUtf8().indexOf("\xc3\xab") + 1}));
        QVERIFY(app.waitForAck(FakeCtiServer::uuidOf(xml)));
        QCOMPARE(mailbox.count(), 1);
        QCOMPARE(mailbox.at(0).at(0).value<MailboxStatus>().mailbox, QStringLiteral("Zo\u00eb-200"));
    }

    void everySignalCanCrossThreads()
    {
        // An application on its own thread gets the signals through queued
        // connections, which need every argument type registered by name.
        const QMetaObject& meta = Telvix::staticMetaObject;
        QStringList unregistered;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            const QMetaMethod method = meta.method(i);
            for (int p = 0; method.methodType() == QMetaMethod::Signal && p < method.parameterCount(); ++p) {
                if (method.parameterType(p) == QMetaType::UnknownType)
                    unregistered << QString::fromLatin1(method.methodSignature());
            }
        }
        QVERIFY2(unregistered.isEmpty(), qPrintable(unregistered.join(QLatin1Char(' '))));
    }
};

QTEST_GUILESS_MAIN(TestTelvixDispatch)
#include "tst_telvixdispatch.moc"
