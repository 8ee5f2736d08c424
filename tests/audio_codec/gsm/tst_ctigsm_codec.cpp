#include "ctigsm_codec.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

constexpr int kWav49HeaderSize = 60;

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

std::vector<short> samplesOf(const QByteArray& raw)
{
    std::vector<short> samples(size_t(raw.size()) / 2);
    std::memcpy(samples.data(), raw.constData(), samples.size() * 2);
    return samples;
}

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

class TestCtiGsmCodec : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void decode_matchesSoxOnWav49();
    void decode_refusesOnlyWithoutDecoder();
    void encode_plainFramesSurviveRoundTrip();

private:
    bool sox(const char* args);
    QTemporaryDir m_dir;
    QString m_sox;
};

bool TestCtiGsmCodec::sox(const char* args)
{
    QProcess process;
    process.setWorkingDirectory(m_dir.path());
    process.start(m_sox, QString::fromLatin1(args).split(QLatin1Char(' ')));
    return process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0;
}

void TestCtiGsmCodec::initTestCase()
{
    m_sox = QStandardPaths::findExecutable(QStringLiteral("sox"));
    if (m_sox.isEmpty())
        QSKIP("sox is not installed");
    QVERIFY(m_dir.isValid());
    QVERIFY(sox("-D -n -r 8000 -c 1 -b 16 -e signed-integer tone.wav synth 1 sine 440 vol 0.5"));
    QVERIFY(sox("-D tone.wav -e gsm-full-rate tone_gsm.wav"));
    QVERIFY(sox("tone_gsm.wav -t raw -e signed-integer -b 16 sox.raw"));
}

void TestCtiGsmCodec::decode_matchesSoxOnWav49()
{
    const QByteArray file = readAll(m_dir.filePath(QStringLiteral("tone_gsm.wav")));
    QCOMPARE(file.mid(52, 4), QByteArray("data"));

    int failures = 0;
    const std::vector<short> ours = decodeWav49(file, &failures);
    const std::vector<short> theirs = samplesOf(readAll(m_dir.filePath(QStringLiteral("sox.raw"))));
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
void TestCtiGsmCodec::decode_refusesOnlyWithoutDecoder()
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

void TestCtiGsmCodec::encode_plainFramesSurviveRoundTrip()
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
    QFile out(m_dir.filePath(QStringLiteral("sine.gsm")));
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(encoded);
    out.close();
    // Repack as WAV49 with sox, then decode it ourselves.
    QVERIFY(sox("-D -t gsm sine.gsm -e gsm-full-rate sine_gsm.wav"));
    int failures = 0;
    const std::vector<short> decoded
        = decodeWav49(readAll(m_dir.filePath(QStringLiteral("sine_gsm.wav"))), &failures);
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

QTEST_APPLESS_MAIN(TestCtiGsmCodec)
#include "tst_ctigsm_codec.moc"
