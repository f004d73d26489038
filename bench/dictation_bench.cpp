// Dictation on the device: the voicing classifier's cost, the recogniser's real-time factor with
// capture and gate running, how long after the last word its final text arrives (at real-time
// pace), and how long a start takes to listen.

#include "benchsupport.h"
#include "core/clock.h"
#include "platform/linux/pocketsphinxspeechengine.h"
#include "platform/linux/yinsoundclassifier.h"
#include "platform/wavfile.h"
#include "platform/wavfilecapture.h"
#include "voice/ondevicequicktasktranscriber.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <benchmark/benchmark.h>

using namespace taskrack;

namespace {

constexpr double trailingSilence = 1.0; // seconds of padding after the last word

// A sentence spoken by espeak-ng, 16 kHz mono, a second of silence either side.
const QString &spokenSample()
{
    static QTemporaryDir folder;
    static QString path;
    if (path.isEmpty()) {
        const QString raw = folder.path() + QStringLiteral("/raw.wav");
        path = folder.path() + QStringLiteral("/spoken.wav");
        QProcess::execute(QStringLiteral("espeak-ng"),
                          {QStringLiteral("-v"), QStringLiteral("en-us+klatt"),
                           QStringLiteral("-s"), QStringLiteral("130"), QStringLiteral("-w"), raw,
                           QStringLiteral("make a list of the open issues and sort them by "
                                          "date")});
        QProcess::execute(QStringLiteral("sox"),
                          {QStringLiteral("-D"), raw, QStringLiteral("-r"), QStringLiteral("16000"),
                           QStringLiteral("-c"), QStringLiteral("1"), QStringLiteral("-b"),
                           QStringLiteral("16"), path, QStringLiteral("pad"), QStringLiteral("1"),
                           QStringLiteral("1")});
    }
    return path;
}

std::vector<float> spokenSamples()
{
    QFile file(spokenSample());
    file.open(QIODevice::ReadOnly);
    auto decoded = decodeWav(file.readAll());
    return std::get<WavAudio>(decoded).samples;
}

struct Run
{
    double wallSeconds = 0;
    double cpuSeconds = 0;
    double startToListeningMs = 0;
    double lastWordToFinalMs = 0;
    double audioSeconds = 0;
};

// One session over the sample, to its end.
Run dictateOnce(PocketSphinxSpeechEngine &engine, bool realTime)
{
    OnDeviceQuickTaskTranscriber transcriber({
        .engine = engine,
        .makeCapture =
            [realTime] {
                return std::make_unique<WavFileCapture>(
                    spokenSample(), realTime ? WavFileCapture::Pacing::realTime
                                             : WavFileCapture::Pacing::asFastAsPossible);
            },
        .makeClassifier = [] { return std::make_unique<YinSoundClassifier>(); },
        .clock = SystemClock::shared(),
    });
    bool ended = false;
    qint64 lastTextMs = 0;
    QElapsedTimer wall;
    QObject::connect(&transcriber, &OnDeviceQuickTaskTranscriber::inputEnded,
                     [&] { ended = true; });
    Run run;
    const double cpu = bench::processCpuSeconds();
    wall.start();
    bool started = false;
    auto starting = transcriber.start(std::nullopt, QUuid::createUuid(),
                                      [&](const QString &) { lastTextMs = wall.elapsed(); });
    auto done = bench::signalWhenDone(std::move(starting), started);
    bench::runUntil([&] { return started; }, 60000);
    run.startToListeningMs = double(wall.elapsed());
    bench::runUntil([&] { return ended; }, 120000);
    run.wallSeconds = double(wall.elapsed()) / 1000.0;
    run.cpuSeconds = bench::processCpuSeconds() - cpu;
    run.audioSeconds = transcriber.audioSeconds();
    // At real-time pace the last word was heard when the file's audio, less its trailing
    // silence, had been played since listening began.
    const double lastWordMs =
        run.startToListeningMs + (run.audioSeconds - trailingSilence) * 1000.0;
    run.lastWordToFinalMs = double(lastTextMs) - lastWordMs;
    return run;
}

void BM_ClassifierPerAudioSecond(benchmark::State &state)
{
    const std::vector<float> samples = spokenSamples();
    for (auto _ : state) {
        YinSoundClassifier classifier;
        for (size_t i = 0; i < samples.size(); i += 1600)
            benchmark::DoNotOptimize(classifier.analyse(std::span<const float>(samples).subspan(
                i, std::min<size_t>(1600, samples.size() - i))));
    }
    state.counters["audio_s"] = double(samples.size()) / 16000.0;
    state.counters["cpu_ms_per_audio_s"] = benchmark::Counter(
        double(samples.size()) / 16000.0,
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_RecognitionRealTimeFactor(benchmark::State &state)
{
    PocketSphinxSpeechEngine engine;
    Run run;
    for (auto _ : state)
        run = dictateOnce(engine, false);
    state.counters["audio_s"] = run.audioSeconds;
    state.counters["rtf_wall"] = run.wallSeconds / run.audioSeconds;
    state.counters["rtf_cpu"] = run.cpuSeconds / run.audioSeconds;
}

void BM_LastWordToFinalTextRealTime(benchmark::State &state)
{
    PocketSphinxSpeechEngine engine;
    std::vector<double> latencies;
    std::vector<double> starts;
    for (auto _ : state) {
        const Run run = dictateOnce(engine, true);
        latencies.push_back(run.lastWordToFinalMs);
        starts.push_back(run.startToListeningMs);
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["final_ms_median"] = latencies[latencies.size() / 2];
    state.counters["final_ms_max"] = latencies.back();
    state.counters["start_to_listening_first_ms"] = starts.front();
    state.counters["start_to_listening_last_ms"] = starts.back();
}

} // namespace

BENCHMARK(BM_ClassifierPerAudioSecond)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RecognitionRealTimeFactor)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LastWordToFinalTextRealTime)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10)
    ->UseRealTime();
