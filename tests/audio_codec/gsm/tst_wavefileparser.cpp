#include "wavefileparser.h"

#include <QDataStream>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// A RIFF header written field by field; `extra` goes between the format
// chunk and the "data" chunk.
QByteArray waveHeader(quint16 format, quint16 channels, quint32 rate, quint16 bits, quint32 dataSize,
                      const QByteArray& extra = QByteArray())
{
    QByteArray bytes;
    QDataStream s(&bytes, QIODevice::WriteOnly);
    s.setByteOrder(QDataStream::LittleEndian);
    s.writeRawData("RIFF", 4);
    s << quint32(36 + extra.size() + dataSize);
    s.writeRawData("WAVEfmt ", 8);
    s << quint32(16) << format << channels << rate << quint32(rate * channels * bits / 8)
      << quint16(channels * bits / 8) << bits;
    s.writeRawData(extra.constData(), extra.size());
    s.writeRawData("data", 4);
    s << dataSize;
    return bytes + QByteArray(int(dataSize), '\x11');
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestWaveFileParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void parse_data();
    void parse();
    void getPcmType_data();
    void getPcmType();
    void writeHeader_thenSizes_givesFileSoxReads();
    void writeHeader_unknownTypeWritesNothing();
    void createPcmWavFile_wrapsRawPcm();
    void createPcmWavFile_shortSourceAndUnknownType();

private:
    bool run(const QString& program, const QStringList& args, QByteArray* out = nullptr);
    QString path(const char* name) const { return m_dir.filePath(QString::fromLatin1(name)); }
    void writeFile(const char* name, const QByteArray& bytes);
    QTemporaryDir m_dir;
};

bool TestWaveFileParser::run(const QString& program, const QStringList& args, QByteArray* out)
{
    QProcess process;
    process.setWorkingDirectory(m_dir.path());
    process.start(QStandardPaths::findExecutable(program), args);
    const bool ok = process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0;
    if (out)
        *out = process.readAllStandardOutput();
    return ok;
}

void TestWaveFileParser::writeFile(const char* name, const QByteArray& bytes)
{
    QFile file(path(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

void TestWaveFileParser::initTestCase()
{
    if (QStandardPaths::findExecutable(QStringLiteral("sox")).isEmpty())
        QSKIP("sox is not installed");
    QVERIFY(m_dir.isValid());
    const QString sox = QStringLiteral("sox");
    QVERIFY(run(
        sox,
        QStringLiteral("-D -n -r 8000 -c 1 -b 16 -e signed-integer tone.wav synth 1 sine 440").split(' ')));
    QVERIFY(run(sox, QStringLiteral("-D tone.wav -e gsm-full-rate tone_gsm.wav").split(' ')));
    QVERIFY(run(
        sox,
        QStringLiteral("-D -n -r 22050 -c 2 -b 8 -e unsigned-integer u8.wav synth 0.1 sine 440").split(' ')));

    QByteArray adpcm = waveHeader(1, 1, 8000, 4, 10);
    adpcm[20] = 2;
    QByteArray badFact = readAll(path("tone_gsm.wav"));
    badFact[44] = 0x7f; // the fact chunk's size no longer leads to "data"
    const QByteArray pcm44 = waveHeader(1, 1, 8000, 16, 0);
    writeFile("12bit.wav", waveHeader(1, 1, 8000, 12, 10));
    writeFile("adpcm.wav", adpcm);
    writeFile("badfact.wav", badFact);
    writeFile("notriff.wav", QByteArray("RIFX") + pcm44.mid(4));
    writeFile("notwave.wav", pcm44.left(8) + "WAVX" + pcm44.mid(12));
    writeFile("header44.wav", pcm44);
    writeFile("header45.wav", waveHeader(1, 1, 8000, 16, 1));
    writeFile("list.wav", waveHeader(1, 2, 48000, 24, 6, QByteArray("LIST\4\0\0\0abcd")));
}

void TestWaveFileParser::parse_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("result");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<int>("dataOffset");
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("bits");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("blockAlign");
    QTest::addColumn<int>("dataSize");

    QTest::newRow("sox-pcm16") << path("tone.wav") << 0 << true << 44 << 8000 << 16 << 1 << 2 << 16000;
    QTest::newRow("sox-u8-stereo") << path("u8.wav") << 0 << true << 44 << 22050 << 8 << 2 << 2 << 4410;
    // WAV49: 20-byte format chunk and a fact chunk; GSM isn't a format we
    // take, but the sound's offset is known.
    QTest::newRow("sox-wav49") << path("tone_gsm.wav") << -61 << false << 60 << 0 << 0 << 0 << 0 << 0;
    QTest::newRow("12-bit") << path("12bit.wav") << -61 << true << 44 << 8000 << 12 << 1 << 1 << 10;
    QTest::newRow("adpcm") << path("adpcm.wav") << -61 << false << 44 << 0 << 0 << 0 << 0 << 0;
    QTest::newRow("fact-to-nowhere") << path("badfact.wav") << -60 << false << 0x7f + 48 + 8 << 0 << 0 << 0
                                     << 0 << 0;
    QTest::newRow("not-riff") << path("notriff.wav") << -60 << false << 44 << 0 << 0 << 0 << 0 << 0;
    QTest::newRow("not-wave") << path("notwave.wav") << -60 << false << 44 << 0 << 0 << 0 << 0 << 0;
    // Unknown chunks other than "fact" before "data" aren't followed.
    QTest::newRow("list-chunk") << path("list.wav") << -60 << false << 44 << 0 << 0 << 0 << 0 << 0;
    QTest::newRow("44-bytes-fields-not-taken")
        << path("header44.wav") << 0 << true << 44 << 0 << 0 << 0 << 0 << 0;
    QTest::newRow("45-bytes") << path("header45.wav") << 0 << true << 44 << 8000 << 16 << 1 << 2 << 1;
    QTest::newRow("missing") << path("nosuchfile.wav") << 0 << false << 44 << 0 << 0 << 0 << 0 << 0;
}

void TestWaveFileParser::parse()
{
    QFETCH(QString, file);
    const WaveFileParser parser(file);
    QTEST(parser.getParseResult(), "result");
    QTEST(parser.isValidWavFile(), "valid");
    QTEST(int(parser.getDataOffset()), "dataOffset");
    QTEST(int(parser.getSampleRate()), "rate");
    QTEST(int(parser.getBitsPerSample()), "bits");
    QTEST(int(parser.getNumChannels()), "channels");
    QTEST(int(parser.getBlockAlign()), "blockAlign");
    QTEST(int(parser.getDataSize()), "dataSize");
}

void TestWaveFileParser::getPcmType_data()
{
    QTest::addColumn<int>("bits");
    QTest::addColumn<uint>("rate");
    QTest::addColumn<int>("channels");
    QTest::addColumn<uint>("expected");

    QTest::newRow("8k-16-mono") << 16 << 8000u << 1 << 0x81001u;
    QTest::newRow("44.1k-24-stereo") << 24 << 44100u << 2 << 0x2C1802u;
    QTest::newRow("11025-truncates") << 8 << 11025u << 1 << 0x0B0801u;
    QTest::newRow("22050-truncates") << 16 << 22050u << 2 << 0x161002u;
    QTest::newRow("88200-truncates") << 24 << 88200u << 1 << 0x581801u;
    QTest::newRow("96k-8-stereo") << 8 << 96000u << 2 << 0x600802u;
    QTest::newRow("off-table") << 32 << 7999u << 6 << 0x072006u;
}

void TestWaveFileParser::getPcmType()
{
    QFETCH(int, bits);
    QFETCH(uint, rate);
    QFETCH(int, channels);
    QFETCH(uint, expected);
    QCOMPARE(uint(WaveFileParser::getPcmType(char(bits), rate, char(channels))), expected);
}

void TestWaveFileParser::writeHeader_thenSizes_givesFileSoxReads()
{
    // createPcmWavFile leaves its sizes in the shared template: the header
    // written afterwards must still start from zero sizes.
    writeFile("seed.raw", QByteArray(100, '\1'));
    QVERIFY(!WaveFileParser::createPcmWavFile(pcm_wav_type(0x81001), path("seed.raw"), 100).isEmpty());

    QFile file(path("voice.wav"));
    QVERIFY(file.open(QIODevice::ReadWrite | QIODevice::Truncate));
    WaveFileParser::writePcmWavHeader(pcm_wav_type(0x81001), &file);
    QCOMPARE(file.size(), 44);
    file.flush();
    const QByteArray header = readAll(file.fileName());
    QCOMPARE(header.mid(4, 4), QByteArray(4, '\0'));
    QCOMPARE(header.mid(40, 4), QByteArray(4, '\0'));

    QByteArray pcm(1600, '\0');
    for (int i = 0; i < 800; ++i)
        qToLittleEndian<qint16>(qint16(i * 40 - 16000), pcm.data() + 2 * i);
    file.write(pcm);
    file.flush();
    WaveFileParser::updatePcmWavHeaderSizeInfo(&file, quint32(44 + pcm.size()));
    file.close();

    QByteArray samples;
    QVERIFY(run(QStringLiteral("soxi"), {QStringLiteral("-s"), file.fileName()}, &samples));
    QCOMPARE(samples.trimmed(), QByteArray("800"));
    QByteArray back;
    QVERIFY(run(QStringLiteral("sox"),
                {file.fileName(), QStringLiteral("-t"), QStringLiteral("raw"), QStringLiteral("-")}, &back));
    QCOMPARE(back, pcm);

    const WaveFileParser parser(file.fileName());
    QCOMPARE(parser.getParseResult(), 0);
    QVERIFY(parser.isValidWavFile());
    QCOMPARE(parser.getDataSize(), 1600u);
    QCOMPARE(parser.getTotalFileSize(), 1644u);
    QCOMPARE(parser.getSampleRate(), 8000u);
    QCOMPARE(parser.getBytesPerSecond(), 16000u);
}

void TestWaveFileParser::writeHeader_unknownTypeWritesNothing()
{
    QFile file(path("unknown.wav"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QTest::ignoreMessage(QtWarningMsg, "writePcmWavHeader: no wave header for PCM type 0x72006");
    WaveFileParser::writePcmWavHeader(WaveFileParser::getPcmType(32, 7999, 6), &file);
    QCOMPARE(file.size(), 0);
}

void TestWaveFileParser::createPcmWavFile_wrapsRawPcm()
{
    QByteArray raw(4410 * 2, '\0');
    for (int i = 0; i < raw.size(); ++i)
        raw[i] = char(i * 7);
    writeFile("clip.pcm", raw);
    const QString name = WaveFileParser::createPcmWavFile(WaveFileParser::getPcmType(8, 22050, 2),
                                                          path("clip.pcm"), raw.size());
    QCOMPARE(name, path("clip.pcm") + ".wav");

    const QByteArray wav = readAll(name);
    QCOMPARE(wav.size(), 44 + raw.size());
    QCOMPARE(wav.mid(44), raw);
    QByteArray samples;
    QVERIFY(run(QStringLiteral("soxi"), {QStringLiteral("-s"), name}, &samples));
    QCOMPARE(samples.trimmed(), QByteArray("4410"));

    // A name already ending in .wav (any case) is kept.
    writeFile("x.WAV", QByteArray());
    QCOMPARE(WaveFileParser::createPcmWavFile(pcm_wav_type(0x81001), path("x.WAV"), 0), path("x.WAV"));
}

void TestWaveFileParser::createPcmWavFile_shortSourceAndUnknownType()
{
    writeFile("short.raw", QByteArray(10, '\x55'));
    QTest::ignoreMessage(QtDebugMsg, "bytes_read from pcm_rx_file differs from pcm_size");
    const QString name = WaveFileParser::createPcmWavFile(pcm_wav_type(0x81001), path("short.raw"), 40);
    const QByteArray wav = readAll(name);
    QCOMPARE(wav.size(), 54);
    QCOMPARE(qFromLittleEndian<quint32>(wav.constData() + 40), 40u); // the size asked for
    QCOMPARE(wav.mid(44), QByteArray(10, '\x55'));

    QTest::ignoreMessage(QtDebugMsg, "[FATAL] Cannot get PCM Wav Map");
    QCOMPARE(WaveFileParser::createPcmWavFile(pcm_wav_type(0x81003), path("short.raw"), 10), QString());
}

QTEST_APPLESS_MAIN(TestWaveFileParser)
#include "tst_wavefileparser.moc"
