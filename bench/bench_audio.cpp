// Voicemail audio from the GSM file the server sends to the PCM wave file on
// disk (VoicemailDownloader::saveVoicemailAudioFile), against libgsm alone
// decoding the same frames in a loop into memory, for a message of one
// minute and one of ten. The GSM files are made by sox at start.
//
// Targets: one minute within 1.2x of the bare loop; ten minutes in at most
// 10.5x the time of one. CPU time: the machine is shared.

#include "medianreporter.h"
#include "voicemaildownloader.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <gsm.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int Wav49HeaderBytes = 60;
constexpr int FrameSamples = 160;

void check(bool ok, const char* what)
{
    if (!ok) {
        std::fprintf(stderr, "bench_audio: %s\n", what);
        std::abort();
    }
}

QTemporaryDir& workDir()
{
    static QTemporaryDir dir;
    check(dir.isValid(), "no temporary directory");
    return dir;
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    check(file.open(QIODevice::ReadOnly), "cannot read a file");
    return file.readAll();
}

/// A GSM (WAV49) file of `seconds`, a sweep over the voice band, made once.
const QByteArray& gsmMessage(int seconds)
{
    static std::map<int, QByteArray> made;
    QByteArray& bytes = made[seconds];
    if (bytes.isEmpty()) {
        const QString sox = QStandardPaths::findExecutable(QStringLiteral("sox"));
        check(!sox.isEmpty(), "sox is needed to make the GSM audio");
        const QString pcm = workDir().filePath(QStringLiteral("sweep%1.wav").arg(seconds));
        const QString gsm = workDir().filePath(QStringLiteral("sweep%1_gsm.wav").arg(seconds));
        check(QProcess::execute(sox,
                                {"-D", "-n", "-r", "8000", "-c", "1", "-b", "16", "-e", "signed-integer", pcm,
                                 "synth", QString::number(seconds), "sine", "300-3400", "vol", "0.5"})
                      == 0
                  && QProcess::execute(sox, {"-D", pcm, "-e", "gsm-full-rate", gsm}) == 0,
              "sox failed");
        bytes = readFile(gsm);
    }
    return bytes;
}

/// libgsm alone: the frames of `gsm` decoded in turn (33 bytes, then 32) into
/// `pcm`. The data gets the same zero tail that the downloader gives a short
/// last frame, so both decode the same frames.
struct BareDecoder
{
    std::vector<unsigned char> data;
    std::vector<gsm_signal> pcm;

    explicit BareDecoder(const QByteArray& gsmFile)
        : data(gsmFile.begin() + Wav49HeaderBytes, gsmFile.end())
    {
        const size_t frames = data.size() / 65 * 2 + (data.size() % 65 > 33 ? 2 : data.size() % 65 ? 1 : 0);
        pcm.resize(frames * FrameSamples);
        data.resize(data.size() + 33, 0);
    }

    size_t run()
    {
        gsm state = gsm_create();
        int on = 1;
        gsm_option(state, GSM_OPT_WAV49, &on);
        const size_t end = data.size() - 33;
        size_t frame = 0;
        int step = 33;
        for (size_t pos = 0; pos < end; pos += step, step = 65 - step, ++frame)
            gsm_decode(state, data.data() + pos, pcm.data() + frame * FrameSamples);
        gsm_destroy(state);
        return frame;
    }
};

VoicemailAudioFile audioFile(int seconds)
{
    VoicemailAudioFile file;
    file.filename = QStringLiteral("msg.wav");
    file.format = QStringLiteral("gsm");
    file.data = gsmMessage(seconds);
    return file;
}

void BM_VoicemailToWave(benchmark::State& state)
{
    const int seconds = int(state.range(0));
    const VoicemailAudioFile file = audioFile(seconds);
    VoicemailDownloader downloader(QStringLiteral("6.1"), nullptr);
    downloader.destinationFolder = workDir().path();
    downloader.messageUuid = QStringLiteral("bench-%1").arg(seconds);

    // The wave file holds exactly what the bare loop decodes.
    BareDecoder bare(file.data);
    const size_t frames = bare.run();
    downloader.saveVoicemailAudioFile(file);
    const QByteArray wave = readFile(downloader.destinationFile);
    check(wave.size() == 44 + int(frames) * FrameSamples * 2
              && std::memcmp(wave.constData() + 44, bare.pcm.data(), frames * FrameSamples * 2) == 0,
          "the wave file differs from libgsm's own decoding");

    for (auto _ : state)
        downloader.saveVoicemailAudioFile(file);
    state.SetBytesProcessed(state.iterations() * file.data.size());
}

void BM_BareLibgsm(benchmark::State& state)
{
    BareDecoder bare(gsmMessage(int(state.range(0))));
    for (auto _ : state) {
        benchmark::DoNotOptimize(bare.run());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * (bare.data.size() - 33));
}

BENCHMARK(BM_VoicemailToWave)
    ->Arg(60)
    ->Arg(600)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_BareLibgsm)
    ->Arg(60)
    ->Arg(600)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true);

void printSummary(Medians& ms)
{
    const double wave1 = ms["BM_VoicemailToWave/60"].cpuTime, wave10 = ms["BM_VoicemailToWave/600"].cpuTime;
    const double bare1 = ms["BM_BareLibgsm/60"].cpuTime, bare10 = ms["BM_BareLibgsm/600"].cpuTime;
    std::printf("\nSummary (medians of CPU time, ms)\n%-10s %12s %12s %8s\n", "message", "to wave", "libgsm",
                "ratio");
    std::printf("%-10s %12.2f %12.2f %8.2f   (target <= 1.2)\n", "1 min", wave1, bare1,
                bare1 > 0 ? wave1 / bare1 : 0);
    std::printf("%-10s %12.2f %12.2f %8.2f\n", "10 min", wave10, bare10, bare10 > 0 ? wave10 / bare10 : 0);
    std::printf("%-36s %8.2f   (target <= 10.5)\n", "to wave, 10 min / 1 min",
                wave1 > 0 ? wave10 / wave1 : 0);
    std::printf("%-36s %8.2f\n", "libgsm, 10 min / 1 min", bare1 > 0 ? bare10 / bare1 : 0);
}

void silence(QtMsgType, const QMessageLogContext&, const QString&) { }

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(silence);
    return runBenchmarks(argc, argv, printSummary);
}
