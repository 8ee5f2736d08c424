// What the server's messages raise and the peer maps the dispatcher keeps:
// the scenarios of fixtures/client/dispatch; and a character cut between two
// reads, over TLS from the fake server.
#include "loggedinclient.h"
#include "scenario.h"
#include "telvix.h"

#include <QSignalSpy>
#include <QtTest>

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
