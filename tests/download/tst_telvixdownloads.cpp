// Downloads through the Telvix object: each asks the session for a token and
// then fetches its file over a second connection to the same fake server.
#include "callevents.h"
#include "loggedinclient.h"
#include "sarnetdownloader.h"
#include "telvix_p.h"

#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QString token(const QString& value)
{
    using namespace CallEvents;
    return wrap("AuthToken", element("Token", value) + element("ValidUntil", "2026-12-01 10:30:00"));
}

} // namespace

class TestTelvixDownloads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tokensServeTheirAskersInOrder()
    {
        LoggedInClient app(TELVIX::AppModeSrntPro);
        QVERIFY(app.start());
        // A header-only WAV49 file for voicemail 7, a small package for the rebranding.
        for (const char* request : {"DownloadVoicemailMsg", "GetRebrandingPack"}) {
            QFile answer(QStringLiteral(TELVIX_TEST_FIXTURES "/download/answer-%1.xml").arg(request));
            QVERIFY(answer.open(QIODevice::ReadOnly));
            const QString document = FakeCtiServer::document(QString::fromUtf8(answer.readAll()).trimmed());
            app.server().setResponder(QLatin1String(request),
                                      [document](int, const QString&) { return document; });
        }
        QTemporaryDir folder;
        QSignalSpy voicemail(app.client(), &Telvix::sigVoicemailDownloadCompleted);
        QSignalSpy rebranding(app.client(), &Telvix::sigRebrandingDownloadCompleted);
        QSignalSpy tokens(app.client(), &Telvix::sigAuthTokenReceived);
        QVERIFY(app.client()->downloadVoicemailMessage("7", "uuid 7/a", folder.path()));
        QVERIFY(app.client()->downloadRebrandingPackage(QString(), folder.path()));
        QVERIFY(app.client()->requestAccessToken());
        QTRY_COMPARE(app.framesWith(QStringLiteral("GetAuthToken")).size(), 3);

        QVERIFY(app.deliver(token("first")));
        QTRY_COMPARE(voicemail.count(), 1);
        QCOMPARE(voicemail.at(0), (QVariantList {"7", "uuid 7/a", folder.filePath("uuid_7_a.wav")}));
        QCOMPARE(QFileInfo(folder.filePath("uuid_7_a.wav")).size(), qint64(44));
        QVERIFY(app.deliver(token("second")));
        QTRY_COMPARE(rebranding.count(), 1);
        QCOMPARE(rebranding.at(0).at(0).toString(), folder.filePath("assets.zip"));
        QCOMPARE(tokens.count(), 0);
        QStringList downloads;
        for (const auto& frame : app.server().allFrames()) {
            if (frame.first != app.connection())
                downloads << frame.second.mid(frame.second.indexOf("<Token>"));
        }
        QCOMPARE(downloads,
                 (QStringList {"<Token>first</Token><DownloadVoicemailMsg><ID>7</ID></DownloadVoicemailMsg>"
                               "</Request></SRNT>",
                               "<Token>second</Token><GetRebrandingPack><LastMd5></LastMd5>"
                               "</GetRebrandingPack></Request></SRNT>"}));
        // The application's own request came last, and so does its token.
        QVERIFY(app.deliver(token("third")));
        QCOMPARE(tokens.count(), 1);
        QCOMPARE(tokens.at(0).at(0).toString(), QStringLiteral("third"));
        QTRY_COMPARE(app.server().openConnectionCount(), 1);
    }

    void shutdownFreesWaitingAndRunningDownloaders()
    {
        LoggedInClient app(TELVIX::AppModeSrntPro);
        QVERIFY(app.start());
        QTemporaryDir folder;
        // The server takes the first download's request and never answers it.
        QVERIFY(app.client()->downloadVoicemailMessage("1", "uuid-1", folder.path()));
        QVERIFY(app.client()->downloadRebrandingPackage(QString(), folder.path()));
        QTRY_COMPARE(app.framesWith(QStringLiteral("GetAuthToken")).size(), 2);
        QVERIFY(app.deliver(token("first")));
        QVERIFY(!app.server().waitForFrame(QStringLiteral("DownloadVoicemailMsg")).isEmpty());

        TelvixPrivate* d = TelvixPrivate::get(app.client());
        QList<QPointer<SarnetDownloader>> alive;
        app.onLibraryThread([&] {
            for (SarnetDownloader* downloader : d->downloaders + d->runningDownloaders)
                alive << downloader;
        });
        QCOMPARE(alive.size(), 2);
        QVERIFY(app.client()->shutdown());
        for (const QPointer<SarnetDownloader>& downloader : qAsConst(alive))
            QVERIFY(downloader.isNull());
        QTRY_COMPARE(app.server().openConnectionCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestTelvixDownloads)
#include "tst_telvixdownloads.moc"
