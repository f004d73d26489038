// How fast a Claude Code transcript line reaches the store, and what a streaming transcript
// costs. 400 sessions in the transcript folders; one of them is written to. Lines that start or
// end a turn are a coalescing window apart, as a turn's start and end are; the counters give the
// median and the 99th percentile. Run in Release; figures go to the report.
#include "app/rackruntime.h"
#include "bench/benchsupport.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/preferences.h"
#include "sources/claude/claudedesktopthreadsource.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <QUuid>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <sys/resource.h>

using namespace taskrack;
using namespace taskrack::bench;

namespace {

const LinuxFileSystem fileSystem;

QByteArray stamp()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toUtf8();
}

QByteArray promptLine()
{
    return R"({"type":"user","message":{"role":"user","content":"Refactor the parser"},"timestamp":")" +
           stamp() +
           R"(","cwd":"/work/app"})"
           "\n";
}

QByteArray finishedLine()
{
    return R"({"type":"assistant","message":{"stop_reason":"end_turn","content":[{"type":"text","text":"Done."}]},"timestamp":")" +
           stamp() + "\"}\n";
}

QByteArray toolLine()
{
    return R"({"type":"assistant","message":{"stop_reason":"tool_use","content":[{"type":"tool_use","id":"t","name":"Bash","input":{"command":"make"}}]},"timestamp":")" +
           stamp() + "\"}\n";
}

// 400 Claude Code sessions and a runtime watching them; `hotPath` is the one written to.
struct ClaudeHome
{
    QTemporaryDir dir;
    InMemoryPreferences preferences;
    std::shared_ptr<ClaudeDesktopThreadSource> source;
    std::unique_ptr<RackRuntime> runtime;
    QString hotPath;
    QString hotId;

    ClaudeHome()
    {
        const ClaudeSourcePaths paths =
            ClaudeSourcePaths::forHome(dir.path() + "/home", dir.path() + "/data");
        for (int i = 0; i < 400; ++i) {
            const QString sessionId = QUuid::createUuid().toString(QUuid::WithoutBraces);
            const QString folder = QString("%1/-work-app-%2").arg(paths.transcriptRoot).arg(i % 40);
            QDir().mkpath(folder);
            append(folder + "/" + sessionId + ".jsonl", promptLine() + finishedLine());
            if (i == 0) {
                hotPath = folder + "/" + sessionId + ".jsonl";
                hotId = "claude:" + sessionId;
            }
        }
        // Built and wired as the application builds and wires it, without the hook listener:
        // hook events are handed to the source directly.
        source = SourceAssembly::claudeSource(paths, SystemClock::shared(), fileSystem);
        runtime = std::make_unique<RackRuntime>(
            SourceAssembly{.sources = {source}, .eventFeeds = {}, .claudeHooks = {}}, preferences,
            SystemClock::shared());
        bool refreshed = false;
        // Loops, watchers and the first refresh, in the application's order.
        signalWhenDone(runtime->start(), refreshed);
        runUntil([&] {
            return refreshed && statusOf(runtime->store(), hotId) == RackStatus::completed;
        });
    }

    ~ClaudeHome()
    {
        bool stopped = false;
        signalWhenDone(source->shutdown(), stopped);
        runUntil([&] { return stopped; });
    }

    void quiet(int ms) { sleepInEventLoop(ms); }
};

void BM_TranscriptLineToStoreStatus(benchmark::State &state)
{
    ClaudeHome home;
    RackStore &store = home.runtime->store();
    if (statusOf(store, home.hotId) != RackStatus::completed) {
        state.SkipWithError("the first refresh did not show the hot session");
        return;
    }
    const int quietMs = int(ClaudeDesktopThreadSource::transcriptCoalescing.count()) + 10;
    home.quiet(quietMs);
    std::vector<double> latencies;
    bool working = false;
    for (auto _ : state) {
        const RackStatus expected = working ? RackStatus::completed : RackStatus::working;
        QElapsedTimer timer;
        timer.start();
        append(home.hotPath, working ? finishedLine() : promptLine());
        if (!waitForStatus(store, home.hotId, expected)) {
            state.SkipWithError("the status change did not reach the store");
            break;
        }
        const double seconds = double(timer.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        latencies.push_back(seconds);
        working = !working;
        home.quiet(quietMs);
    }
    if (!latencies.empty()) {
        std::sort(latencies.begin(), latencies.end());
        state.counters["p50_ms"] = latencies[latencies.size() / 2] * 1000.0;
        state.counters["p99_ms"] =
            latencies[std::min(latencies.size() - 1, latencies.size() * 99 / 100)] * 1000.0;
    }
}
BENCHMARK(BM_TranscriptLineToStoreStatus)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(100);

// A hook event (as the bus listener hands it over) to the store: a permission prompt asks for
// input. Between prompts an answered turn's last line puts the session back to completed.
void BM_HookEventToStoreStatus(benchmark::State &state)
{
    ClaudeHome home;
    RackStore &store = home.runtime->store();
    ClaudeSessionSignal signal;
    signal.sessionId = home.hotId.mid(QStringLiteral("claude:").size());
    signal.inputRequest = ClaudeSessionSignal::InputRequest::set;
    std::vector<double> latencies;
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        auto receiving = home.source->receiveSignal(signal, QDateTime::currentDateTimeUtc());
        if (!waitForStatus(store, home.hotId, RackStatus::requiresInput)) {
            state.SkipWithError("the hook event did not reach the store");
            break;
        }
        const double seconds = double(timer.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        latencies.push_back(seconds);
        home.quiet(5);
        append(home.hotPath, finishedLine());
        if (!waitForStatus(store, home.hotId, RackStatus::completed)) {
            state.SkipWithError("the answered turn did not reach the store");
            break;
        }
        home.quiet(5);
    }
    if (!latencies.empty()) {
        std::sort(latencies.begin(), latencies.end());
        state.counters["p50_ms"] = latencies[latencies.size() / 2] * 1000.0;
        state.counters["p99_ms"] =
            latencies[std::min(latencies.size() - 1, latencies.size() * 99 / 100)] * 1000.0;
    }
}
BENCHMARK(BM_HookEventToStoreStatus)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(100);

// A transcript written 200 lines a second for 10 seconds: how often the source opens it (two
// opens a pass, at most one pass per window) and the CPU the whole process spends meanwhile.
void BM_StreamingTranscript(benchmark::State &state)
{
    ClaudeHome home;
    for (auto _ : state) {
        const qint64 opensBefore = home.source->transcriptReadCounters().filesOpened.load();
        const double cpuBefore = processCpuSeconds();
        QElapsedTimer timer;
        timer.start();
        int written = 0;
        QTimer writer;
        QObject::connect(&writer, &QTimer::timeout, [&] {
            append(home.hotPath, toolLine());
            ++written;
        });
        writer.setTimerType(Qt::PreciseTimer);
        writer.start(5);
        QEventLoop loop;
        QTimer::singleShot(10'000, &loop, &QEventLoop::quit);
        loop.exec();
        writer.stop();
        home.quiet(300);
        const double seconds = double(timer.nsecsElapsed()) / 1e9;
        state.counters["linesPerSecond"] = written / 10.0;
        // Two per pass: the tail, and the head's check that the file was not rewritten in place.
        state.counters["transcriptOpensPerSecond"] =
            double(home.source->transcriptReadCounters().filesOpened.load() - opensBefore) /
            seconds;
        state.counters["cpuPercent"] = (processCpuSeconds() - cpuBefore) / seconds * 100.0;
    }
}
BENCHMARK(BM_StreamingTranscript)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace
