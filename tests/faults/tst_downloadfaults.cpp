// Faults of a download's side connection, one table played by one driver:
// an answer cut short, an answer trickling a byte a second, an answer whose
// checksum is wrong. None may give a file or a completion; the downloader
// and its connection go away with the fault, or with shutdown at the latest,
// and shutdown returns promptly.
#include "callevents.h"
#include "downloadmessages.h"
#include "logbuscapture.h"
#include "loggedinclient.h"
#include "sarnetdownloader.h"
#include "simplexmlparser.h"
#include "telvix_p.h"
#include "utils.h"

#include <QDir>
#include <QElapsedTimer>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

enum class Fault { Truncated, Trickle, WrongChecksum };

QString voicemailAnswer(const QString& frame, bool rightChecksum)
{
    VoicemailDownloadResMsg msg;
    msg.audioFile.id = SimpleXmlParser::getTagValue(frame, QStringLiteral("ID"));
    msg.audioFile.uuid = QStringLiteral("uuid-") + msg.audioFile.id;
    msg.audioFile.data = QByteArray(60 + 65 * 50, 'h');
    msg.audioFile.md5 = Utils::md5sum(rightChecksum ? msg.audioFile.data : QByteArray("other"));
    return FakeCtiServer::document(msg.generateXmlMessageBody());
}

} // namespace

Q_DECLARE_METATYPE(Fault)

class TestDownloadFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fault_data();
    void fault();
};

void TestDownloadFaults::fault_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QString>("logLine"); // empty: a hang-up is not logged
    QTest::newRow("truncated") << Fault::Truncated << QString();
    QTest::newRow("one byte a second") << Fault::Trickle << QString();
    QTest::newRow("wrong checksum") << Fault::WrongChecksum
                                    << QStringLiteral("Invalid voicemail download message");
}

void TestDownloadFaults::fault()
{
    QFETCH(Fault, fault);
    QFETCH(QString, logLine);

    LogbusCapture logs;
    LoggedInClient app(TELVIX::AppModeSrntPro);
    QVERIFY(app.start());
    FakeCtiServer& server = app.server();
    server.setChunkInterval(1000);
    server.setResponder(QStringLiteral("DownloadVoicemailMsg"),
                        [&server, fault](int conn, const QString& frame) {
                            const QString answer = voicemailAnswer(frame, fault != Fault::WrongChecksum);
                            if (fault == Fault::Truncated) {
                                server.sendRaw(conn, answer.toUtf8().left(answer.size() / 2));
                                server.disconnectClient(conn);
                            } else if (fault == Fault::Trickle) {
                                server.sendInChunks(conn, answer, 1);
                            }
                            return fault == Fault::WrongChecksum ? answer : QString();
                        });
    QTemporaryDir folder;
    QSignalSpy completed(app.client(), &Telvix::sigVoicemailDownloadCompleted);
    QVERIFY(app.client()->downloadVoicemailMessage("7", "uuid-7", folder.path()));
    QTRY_COMPARE(app.framesWith(QStringLiteral("GetAuthToken")).size(), 1);
    QVERIFY(app.deliver(CallEvents::wrap("AuthToken",
                                         CallEvents::element("Token", "t")
                                             + CallEvents::element("ValidUntil", "2026-12-01 10:30:00"))));
    int conn = -1;
    QVERIFY(!server.waitForFrame(QStringLiteral("DownloadVoicemailMsg"), 5000, &conn).isEmpty());

    TelvixPrivate* d = TelvixPrivate::get(app.client());
    QList<QPointer<SarnetDownloader>> alive;
    app.onLibraryThread([&] {
        for (SarnetDownloader* downloader : d->downloaders + d->runningDownloaders)
            alive << downloader;
    });
    if (fault == Fault::Trickle) {
        // No time-out guards a download: it waits for the bytes as they come.
        QTest::qWait(3000);
        QVERIFY(server.isConnected(conn) && server.isSending(conn));
    } else {
        // The failed download is dropped with its connection.
        QTRY_VERIFY(!server.isConnected(conn));
        QTRY_VERIFY(std::all_of(alive.cbegin(), alive.cend(), [](const auto& p) { return p.isNull(); }));
    }
    if (!logLine.isEmpty())
        QVERIFY(logs.waitFor(logLine));
    QCOMPARE(completed.count(), 0);
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList());

    QElapsedTimer clock;
    clock.start();
    QVERIFY(app.client()->shutdown());
    QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
    for (const QPointer<SarnetDownloader>& downloader : qAsConst(alive))
        QVERIFY(downloader.isNull());
    QTRY_COMPARE(server.openConnectionCount(), 0);
}

QTEST_GUILESS_MAIN(TestDownloadFaults)
#include "tst_downloadfaults.moc"
