// The downloaders on their own, without a logger, against the fake CTI
// server over real TLS: the connection's life, the voicemail wave files and
// the rebranding package.
#include "fakectiserver.h"
#include "qtlogcapture.h"
#include "rebrandingdownloader.h"
#include "utils.h"
#include "voicemaildownloader.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

/// Records every complete message of the connection.
class RecordingDownloader : public SarnetDownloader
{
public:
    RecordingDownloader()
        : SarnetDownloader(QStringLiteral("6.1"), nullptr)
    {
    }
    QString getRequestMsg() override { return FakeCtiServer::document(QStringLiteral("<Hello/>")); }
    void handleResponseMsg(const QString& message) override { messages << message; }
    QStringList messages;
};

void pointAt(SarnetDownloader& downloader, const FakeCtiServer& server)
{
    downloader.serverAddress = FakeCtiServer::host();
    downloader.serverPort = server.port();
    downloader.token = QStringLiteral("tok-1");
}

QString voicemailAnswer(const QByteArray& audio, const QString& uuid)
{
    VoicemailDownloadResMsg msg;
    msg.audioFile.id = QStringLiteral("17");
    msg.audioFile.uuid = uuid;
    msg.audioFile.filename = QStringLiteral("msg0000.WAV");
    msg.audioFile.format = QStringLiteral("wav49");
    msg.audioFile.data = audio;
    msg.audioFile.md5 = Utils::md5sum(audio);
    return FakeCtiServer::document(msg.generateXmlMessageBody());
}

QString packAnswer(const QByteArray& data, const QString& md5)
{
    RebrandingPackRespMsg msg;
    msg.pack.filename = QStringLiteral("brand-v2.zip");
    msg.pack.format = QStringLiteral("zip");
    msg.pack.data = data;
    msg.pack.md5 = md5;
    return FakeCtiServer::document(msg.generateXmlMessageBody());
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestDownloaders : public QObject
{
    Q_OBJECT

    std::unique_ptr<FakeCtiServer> m_server;
    // A real GSM recording, made by an independent program (sox): ten frames
    // in five blocks and a padding byte; the expected wave files hold its
    // decode by sox (see the README beside them).
    const QByteArray m_gsmWave = readFile(QStringLiteral(TELVIX_TEST_FIXTURES "/download/tone-gsm.wav"));

private Q_SLOTS:
    void initTestCase() { QCOMPARE(m_gsmWave.size(), 60 + 5 * 65 + 1); }

    void init()
    {
        m_server = std::make_unique<FakeCtiServer>();
        QVERIFY(m_server->listen());
    }

    void restartDropsTheOldConnectionWithoutSignals()
    {
        RebrandingDownloader downloader(QStringLiteral("5.4"), nullptr);
        QSignalSpy finished(&downloader, &SarnetDownloader::sigFinished);
        QSignalSpy error(&downloader, &SarnetDownloader::sigError);
        QSignalSpy disconnected(&downloader, &SarnetDownloader::sigDisconnected);
        downloader.close();
        downloader.abort();
        pointAt(downloader, *m_server);
        downloader.lastMd5 = QStringLiteral("0123abcd");
        downloader.start();
        const QString first = m_server->waitForFrame(QStringLiteral("GetRebrandingPack"));
        QVERIFY(first.contains("<API>5.4</API>"));
        QVERIFY(
            first.contains("<Request><Token>tok-1</Token><GetRebrandingPack><LastMd5>0123abcd</LastMd5>"));

        downloader.start();
        QVERIFY(!m_server->waitForFrame(QStringLiteral("GetRebrandingPack")).isEmpty());
        QCOMPARE(m_server->connectionCount(), 2);
        QTRY_VERIFY(!m_server->isConnected(0));
        downloader.abort();
        QTRY_VERIFY(!m_server->isConnected(1));
        QCoreApplication::processEvents();
        QCOMPARE(finished.count() + error.count() + disconnected.count(), 0);
    }

    void answerInPiecesIsHandledOncePerMessage()
    {
        RecordingDownloader downloader;
        pointAt(downloader, *m_server);
        const QString answer = FakeCtiServer::document(QStringLiteral("<Note>Grüße aus Köln</Note>"))
            + FakeCtiServer::document(QStringLiteral("<Other/>"));
        m_server->setResponder(QStringLiteral("Hello"), [&](int conn, const QString&) {
            m_server->sendInChunks(conn, answer, 5);
            return QString();
        });
        downloader.start();
        QTRY_COMPARE(downloader.messages.size(), 2);
        QCOMPARE(downloader.messages.join(QString()), answer);
    }

    void endOfConnection_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("errors");
        QTest::addColumn<int>("disconnections");
        QTest::newRow("server hangs up after the request") << int(FakeCtiServer::TlsMode::Normal) << 0 << 1;
        QTest::newRow("TLS refused") << int(FakeCtiServer::TlsMode::RefuseTls) << 1 << 0;
    }

    void endOfConnection()
    {
        QFETCH(int, mode);
        m_server->setTlsMode(FakeCtiServer::TlsMode(mode));
        m_server->setResponder(QStringLiteral("Hello"), [&](int conn, const QString&) {
            m_server->disconnectClient(conn);
            return QString();
        });
        RecordingDownloader downloader;
        QSignalSpy error(&downloader, &SarnetDownloader::sigError);
        QSignalSpy disconnected(&downloader, &SarnetDownloader::sigDisconnected);
        pointAt(downloader, *m_server);
        downloader.start();
        QTRY_COMPARE(error.count() + disconnected.count(), 1);
        QCoreApplication::processEvents();
        QTEST(int(error.count()), "errors");
        QTEST(int(disconnected.count()), "disconnections");
        QVERIFY(downloader.messages.isEmpty());
    }

    // Rows of voicemail.tsv: the answer carries the first bytes of the
    // recording, possibly edited.
    void voicemailWaveFile_data() { addRows(QStringLiteral("voicemail.tsv")); }

    void voicemailWaveFile()
    {
        QFETCH(QStringList, row);
        const QString uuid = row.value(2), fileName = row.value(3);
        const int frames = row.value(4).toInt(); // -1: refused, nothing written
        QString answer = voicemailAnswer(m_gsmWave.left(row.value(1).toInt()), uuid);
        QVERIFY(answer.contains(row.value(5)));
        answer.replace(row.value(5), row.value(6));
        // Messages of other kinds on the connection are passed over.
        m_server->setResponder(QStringLiteral("DownloadVoicemailMsg"), [&](int, const QString& frame) {
            return frame.contains("<ID>17</ID>") ? FakeCtiServer::keepAliveAckDocument() + answer : QString();
        });
        QTemporaryDir folder;
        VoicemailDownloader downloader(QStringLiteral("6.1"), nullptr);
        downloader.messageId = QStringLiteral("17");
        downloader.messageUuid = uuid;
        QCOMPARE(runToEnd(downloader, folder.path()), frames < 0 ? row.value(7) : QString());
        if (frames < 0) {
            QVERIFY(QDir(folder.path()).isEmpty());
            return;
        }
        QCOMPARE(downloader.destinationFile, folder.filePath(fileName));
        QCOMPARE(readFile(downloader.destinationFile),
                 readFile(QStringLiteral(TELVIX_TEST_FIXTURES "/download/tone-%1-frames.wav").arg(frames)));
    }

    void rebrandingPackage_data() { addRows(QStringLiteral("rebranding.tsv")); }

    void rebrandingPackage()
    {
        QFETCH(QStringList, row);
        const QByteArray data = QByteArray::fromPercentEncoding(row.value(1).toUtf8());
        const QString answer = packAnswer(data, row.value(2) == "=" ? Utils::md5sum(data) : row.value(2));
        const QByteArray expected
            = row.value(3) == "-" ? QByteArray() : QByteArray::fromPercentEncoding(row.value(3).toUtf8());
        const QString failure = row.value(4);
        QTemporaryDir folder;
        const QString assets = folder.filePath("assets.zip");
        QFile old(assets);
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old look") == 8);
        old.close();
        m_server->setResponder(QStringLiteral("GetRebrandingPack"),
                               [&](int, const QString&) { return answer; });
        RebrandingDownloader downloader(QStringLiteral("6.1"), nullptr);
        downloader.lastMd5 = Utils::md5sum(QByteArray("old look"));
        QCOMPARE(runToEnd(downloader, folder.path()), failure);
        QCOMPARE(readFile(assets), expected);
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files),
                 expected.isNull() ? QStringList() : QStringList {"assets.zip"});
        if (failure.isEmpty()) {
            QCOMPARE(downloader.destinationFile, assets);
            QCOMPARE(downloader.lastMd5, expected.isNull() ? QString() : Utils::md5sum(expected));
        }
    }

private:
    // Runs the download into `folder` until it ends; what it failed with, as
    // its error and the debug line, or nothing when it finished.
    QString runToEnd(SarnetDownloader& downloader, const QString& folder)
    {
        QtLogCapture log;
        QSignalSpy finished(&downloader, &SarnetDownloader::sigFinished);
        QSignalSpy error(&downloader, &SarnetDownloader::sigError);
        pointAt(downloader, *m_server);
        downloader.destinationFolder = folder;
        downloader.start();
        if (!QTest::qWaitFor([&]() { return finished.count() + error.count() == 1; }, 5000))
            return QStringLiteral("no ending");
        QString failure = error.isEmpty() ? QString() : error.at(0).at(0).toString();
        for (const QString& line : log.messages(QtDebugMsg).filter(QStringLiteral("parsed an invalid")))
            failure += QStringLiteral(" / ") + line.mid(line.indexOf(QStringLiteral("parsed an invalid")));
        return failure;
    }

    // One row a line of a fixture table, split at the tabs; '#' starts a comment.
    static void addRows(const QString& name)
    {
        QTest::addColumn<QStringList>("row");
        QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/download/") + name);
        QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
        while (!file.atEnd()) {
            const QString line = QString::fromUtf8(file.readLine()).chopped(1);
            if (!line.startsWith(QLatin1Char('#')) && !line.isEmpty())
                QTest::newRow(qPrintable(line.section(QLatin1Char('\t'), 0, 0)))
                    << line.split(QLatin1Char('\t'));
        }
    }
};

QTEST_GUILESS_MAIN(TestDownloaders)
#include "tst_downloaders.moc"
