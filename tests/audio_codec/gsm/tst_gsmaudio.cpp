// WAV headers read and written, and GSM frames coded, against files made by
// sox and the tables in fixtures/audio.
#include "ctigsm_codec.h"
#include "wavefileparser.h"
#include "wavepcmheaderdefs.h"

#include <QtTest>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

// The rows of a tab-separated fixture, without its comment lines.
QList<QStringList> rows(const char* name)
{
    QFile file(QStringLiteral(TELVIX_TEST_FIXTURES "/audio/") + QLatin1String(name));
    QList<QStringList> out;
    if (file.open(QIODevice::ReadOnly))
        for (const QByteArray& line : file.readAll().split('\n'))
            if (!line.isEmpty() && !line.startsWith('#'))
                out << QString::fromUtf8(line).split(QLatin1Char('\t'));
    return out;
}

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

constexpr int kWav49HeaderSize = 60;

// Decodes every frame of a WAV49 file, 33 and 32 bytes in turn, the way the
// voicemail download walks it.
std::vector<short> decodeWav49(const QByteArray& file, int* failures)
{
    CtiGsm_Codec codec;
    std::vector<short> pcm;
    *failures = 0;
    bool firstHalf = true;
    for (int pos = kWav49HeaderSize; pos < file.size(); pos += firstHalf ? 32 : 33) {
        firstHalf = !firstHalf;
        char frame[33] = {};
        std::memcpy(frame, file.constData() + pos, size_t(qMin(33, file.size() - pos)));
        short out[160];
        const int written = codec.decode(out, frame, 33);
        if (written != 320)
            ++*failures;
        else
            pcm.insert(pcm.end(), out, out + 160);
    }
    return pcm;
}

} // namespace

class TestGsmAudio : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("sox")).isEmpty())
            QSKIP("sox is not installed");
        QVERIFY(m_dir.isValid());
        QVERIFY(run("sox", "-D -n -r 8000 -c 1 -b 16 -e signed-integer tone.wav synth 1 sine 440 vol 0.5"));
        QVERIFY(run("sox", "-D tone.wav -e gsm-full-rate tone_gsm.wav"));
        QVERIFY(run("sox", "tone_gsm.wav -t raw -e signed-integer -b 16 sox.raw"));
        QVERIFY(run("sox", "-D -n -r 22050 -c 2 -b 8 -e unsigned-integer u8.wav synth 0.1 sine 440"));

        QByteArray adpcm = waveHeader(1, 1, 8000, 4, 10);
        adpcm[20] = 2;
        QByteArray badFact = readAll(path("tone_gsm.wav"));
        badFact[44] = 0x7f;
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

    void parse_data()
    {
        QTest::addColumn<QStringList>("row");
        for (const QStringList& row : rows("wave_parse.tsv"))
            QTest::newRow(qPrintable(row.first())) << row;
    }

    void parse()
    {
        QFETCH(QStringList, row);
        const WaveFileParser p(path(qPrintable(row.first())));
        const QStringList got {QString::number(p.getParseResult()),   QString::number(p.isValidWavFile()),
                               QString::number(p.getDataOffset()),    QString::number(p.getSampleRate()),
                               QString::number(p.getBitsPerSample()), QString::number(p.getNumChannels()),
                               QString::number(p.getBlockAlign()),    QString::number(p.getDataSize())};
        QCOMPARE(got, row.mid(1));
    }

    void pcmTypes()
    {
        for (const QStringList& r : rows("pcm_types.tsv"))
            QCOMPARE(uint(WaveFileParser::getPcmType(char(r[0].toInt()), r[1].toUInt(), char(r[2].toInt()))),
                     r[3].toUInt(nullptr, 16));
    }

    // Every format maps to a template of its own, and each template is the
    // header that format needs, sizes left at zero.
    void headerTemplates()
    {
        QMap<pcm_wav_type, unsigned char*> map;
        WaveFileParser::mapPCMWavFormatsInit(&map);
        const QList<QStringList> templates = rows("pcm_headers.tsv");
        QCOMPARE(templates.size(), 54);
        QCOMPARE(map.size(), 54);
        QSet<unsigned char*> seen;
        for (const QStringList& r : templates) {
            unsigned char* header = map.value(
                WaveFileParser::getPcmType(char(r[0].toInt()), r[1].toUInt(), char(r[2].toInt())));
            QVERIFY2(header, qPrintable(r.join(' ')));
            seen << header;
            QCOMPARE(QByteArray(reinterpret_cast<const char*>(header), 44).toHex(), r[3].toLatin1());
        }
        QCOMPARE(seen.size(), 54);
    }

    void writeHeader_thenSizes_givesFileSoxReads()
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

        QByteArray out;
        QVERIFY(run("soxi", "-s voice.wav", &out));
        QCOMPARE(out.trimmed(), QByteArray("800"));
        QVERIFY(run("sox", "voice.wav -t raw -", &out));
        QCOMPARE(out, pcm);
        const WaveFileParser parser(file.fileName());
        QCOMPARE(parser.getParseResult(), 0);
        QCOMPARE(parser.getDataSize(), 1600u);
        QCOMPARE(parser.getTotalFileSize(), 1644u);
        QCOMPARE(parser.getBytesPerSecond(), 16000u);

        QFile unknown(path("unknown.wav"));
        QVERIFY(unknown.open(QIODevice::WriteOnly));
        QTest::ignoreMessage(QtWarningMsg, "writePcmWavHeader: no wave header for PCM type 0x72006");
        WaveFileParser::writePcmWavHeader(WaveFileParser::getPcmType(32, 7999, 6), &unknown);
        QCOMPARE(unknown.size(), 0);
    }

    void createPcmWavFile()
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
        QVERIFY(run("soxi", "-s clip.pcm.wav", &samples));
        QCOMPARE(samples.trimmed(), QByteArray("4410"));

        // A name already ending in .wav (any case) is kept.
        writeFile("x.WAV", QByteArray());
        QCOMPARE(WaveFileParser::createPcmWavFile(pcm_wav_type(0x81001), path("x.WAV"), 0), path("x.WAV"));

        // A short source: its bytes, under the size asked for.
        writeFile("short.raw", QByteArray(10, '\x55'));
        QTest::ignoreMessage(QtDebugMsg, "bytes_read from pcm_rx_file differs from pcm_size");
        const QByteArray shortWav
            = readAll(WaveFileParser::createPcmWavFile(pcm_wav_type(0x81001), path("short.raw"), 40));
        QCOMPARE(shortWav.size(), 54);
        QCOMPARE(qFromLittleEndian<quint32>(shortWav.constData() + 40), 40u);
        QCOMPARE(shortWav.mid(44), QByteArray(10, '\x55'));

        QTest::ignoreMessage(QtDebugMsg, "[FATAL] Cannot get PCM Wav Map");
        QCOMPARE(WaveFileParser::createPcmWavFile(pcm_wav_type(0x81003), path("short.raw"), 10), QString());
    }

    void decode_matchesSoxOnWav49()
    {
        const QByteArray file = readAll(path("tone_gsm.wav"));
        QCOMPARE(file.mid(52, 4), QByteArray("data"));

        int failures = 0;
        const std::vector<short> ours = decodeWav49(file, &failures);
        const QByteArray raw = readAll(path("sox.raw"));
        const std::vector<short> theirs(reinterpret_cast<const short*>(raw.constData()),
                                        reinterpret_cast<const short*>(raw.constData()) + raw.size() / 2);
        QCOMPARE(failures, 0);
        // One second of tone; a trailing padding byte may add a frame on one side.
        QVERIFY(ours.size() >= 8000 && theirs.size() >= 8000);
        const size_t common = qMin(ours.size(), theirs.size());
        for (size_t i = 0; i < common; ++i)
            QVERIFY2(ours[i] == theirs[i],
                     qPrintable(QStringLiteral("sample %1: %2 != %3").arg(i).arg(ours[i]).arg(theirs[i])));
    }

    // The WAV49 packing has no magic nibble to verify, so libgsm takes any bytes:
    // a damaged frame is decoded into noise rather than refused. Only a stopped
    // decoder refuses.
    void decode_refusesOnlyWithoutDecoder()
    {
        CtiGsm_Codec codec;
        short pcm[160];
        char frame[33];
        for (int first = 0; first < 256; ++first) {
            std::memset(frame, first, sizeof frame);
            QCOMPARE(codec.decode(pcm, frame, 33), 320);
        }
        codec.decoder_stop();
        QVERIFY(!codec.isDecoderReady());
        QCOMPARE(codec.decode(pcm, frame, 33), -50);
        codec.decoder_init();
        QVERIFY(codec.isDecoderReady());
        QCOMPARE(codec.decode(pcm, frame, 33), 320);
    }

    void encode_plainFramesSurviveRoundTrip()
    {
        const int frames = 50;
        std::vector<short> sine(160 * frames);
        for (size_t i = 0; i < sine.size(); ++i)
            sine[i] = short(8000 * std::sin(2 * M_PI * 440 * double(i) / 8000));

        CtiGsm_Codec codec;
        QByteArray encoded(33 * frames, '\0');
        for (int f = 0; f < frames; ++f) {
            QCOMPARE(codec.encode(sine.data() + 160 * f, encoded.data() + 33 * f), 33);
            QCOMPARE((uchar(encoded.at(33 * f)) >> 4), 0xD); // plain frame, not WAV49
        }
        writeFile("sine.gsm", encoded);
        // Repack as WAV49 with sox, then decode it ourselves.
        QVERIFY(run("sox", "-D -t gsm sine.gsm -e gsm-full-rate sine_gsm.wav"));
        int failures = 0;
        const std::vector<short> decoded = decodeWav49(readAll(path("sine_gsm.wav")), &failures);
        QCOMPARE(failures, 0);
        QVERIFY(decoded.size() >= sine.size());

        // Best normalised correlation over a small lag, skipping the first frame
        // while the codec settles.
        double best = 0, energyRatio = 0;
        for (int lag = 0; lag <= 80; ++lag) {
            double xy = 0, xx = 0, yy = 0;
            for (size_t i = 160; i + size_t(lag) < sine.size(); ++i) {
                xy += double(sine[i]) * decoded[i + size_t(lag)];
                xx += double(sine[i]) * sine[i];
                yy += double(decoded[i + size_t(lag)]) * decoded[i + size_t(lag)];
            }
            const double r = xy / std::sqrt(xx * yy);
            if (r > best) {
                best = r;
                energyRatio = yy / xx;
            }
        }
        QVERIFY2(best > 0.95, qPrintable(QString::number(best)));
        QVERIFY2(energyRatio > 0.7 && energyRatio < 1.4, qPrintable(QString::number(energyRatio)));
    }

private:
    bool run(const char* program, const char* args, QByteArray* out = nullptr)
    {
        QProcess process;
        process.setWorkingDirectory(m_dir.path());
        process.start(QStandardPaths::findExecutable(QLatin1String(program)),
                      QString::fromLatin1(args).split(QLatin1Char(' ')));
        const bool ok = process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
        if (out)
            *out = process.readAllStandardOutput();
        return ok;
    }
    QString path(const char* name) const { return m_dir.filePath(QString::fromLatin1(name)); }
    void writeFile(const char* name, const QByteArray& bytes)
    {
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    QTemporaryDir m_dir;
};

QTEST_APPLESS_MAIN(TestGsmAudio)
#include "tst_gsmaudio.moc"
