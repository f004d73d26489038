// How much a Claude transcript costs to read, however large it grows, and what a refresh over
// many unchanged sessions costs. Run in Release; figures go to the report, not to assertions.
#include "app/sourceassembly.h"
#include "platform/linux/linuxfilesystem.h"
#include "sources/claude/claudedesktopthreadsource.h"
#include "sources/claude/claudetranscripttailreader.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QUuid>
#include <benchmark/benchmark.h>
#include <unistd.h>

using namespace taskrack;

namespace {

const LinuxFileSystem fileSystem;

QByteArray stamp(const QDateTime &at)
{
    return at.toUTC().toString(Qt::ISODateWithMs).toUtf8();
}

QByteArray promptLine(const QDateTime &at)
{
    return R"({"type":"user","message":{"role":"user","content":"Refactor the parser"},"timestamp":")" +
           stamp(at) +
           R"(","cwd":"/work/app"})"
           "\n";
}

QByteArray toolLines(const QDateTime &at)
{
    return R"({"type":"assistant","message":{"stop_reason":"tool_use","content":[{"type":"tool_use","id":"t","name":"Bash","input":{"command":"make"}}]},"timestamp":")" +
           stamp(at) + "\"}\n" +
           R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":"t","content":")" +
           QByteArray(900, 'o') + R"("}]},"timestamp":")" + stamp(at) + "\"}\n";
}

template <typename T> T runToCompletion(QCoro::Task<T> task)
{
    std::optional<T> value;
    auto runner = [&]() -> QCoro::Task<void> { value.emplace(co_await task); };
    auto running = runner();
    while (!value)
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 10);
    return std::move(*value);
}

// A 1 GB transcript whose first gigabyte is a hole and whose last 3 MB are real tool traffic.
// `promptBack` places the newest prompt that far from the end (0: none in the last 3 MB).
struct HugeTranscript
{
    QTemporaryDir dir;
    QString root;

    explicit HugeTranscript(qint64 promptBack)
    {
        root = dir.path() + "/projects";
        QDir().mkpath(root + "/-work-app");
        const QString path = root + "/-work-app/huge.jsonl";
        const QDateTime now = QDateTime::currentDateTimeUtc();
        QByteArray tail;
        while (tail.size() < 3 * 1024 * 1024)
            tail += toolLines(now.addSecs(-5));
        if (promptBack > 0)
            tail.insert(tail.indexOf('\n', tail.size() - promptBack) + 1,
                        promptLine(now.addSecs(-60)));
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        const qint64 gigabyte = 1024LL * 1024 * 1024;
        file.resize(gigabyte - tail.size());
        // The hole reads as zeros: end it with a line break so the first real line is whole.
        file.seek(gigabyte - tail.size() - 1);
        file.write("\n");
        file.write(tail);
        file.close();
    }
};

void observeHugeTranscript(benchmark::State &state)
{
    HugeTranscript transcript(state.range(0));
    ClaudeDesktopSessionManifest manifest;
    manifest.sessionId = "local_huge";
    manifest.cliSessionId = "huge";
    qint64 bytes = 0;
    qint64 observations = 0;
    for (auto _ : state) {
        ClaudeTranscriptTailReader reader(fileSystem, transcript.root);
        const auto result = reader.observations({manifest}, QDateTime::currentDateTimeUtc());
        benchmark::DoNotOptimize(result);
        bytes += reader.counters().bytesRead.load();
        observations += result.size();
    }
    state.counters["bytesReadPerObservation"] = double(bytes) / double(state.iterations());
    state.counters["observed"] = double(observations) / double(state.iterations());
    state.SetBytesProcessed(bytes);
}
// 0: no prompt in reach, the deep scan runs its full 2 MiB. 1.5 MB: found by the deep scan.
// 100 kB: the tail alone answers.
BENCHMARK(observeHugeTranscript)
    ->Arg(0)
    ->Arg(1'500'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond);

// 400 sessions, all unchanged since the last refresh: a fetch lists and stats, and opens nothing.
void refreshUnchangedSessions(benchmark::State &state)
{
    const bool withManifests = state.range(0) == 1;
    const bool monitoring = state.range(0) == 2;
    QTemporaryDir dir;
    const QString home = dir.path() + "/home";
    ClaudeSourcePaths paths = ClaudeSourcePaths::forHome(home, dir.path() + "/data");
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < 400; ++i) {
        const QString sessionId = QUuid::createUuid().toString(QUuid::WithoutBraces);
        const QString folder = QString("%1/-work-app-%2").arg(paths.transcriptRoot).arg(i % 40);
        QDir().mkpath(folder);
        QFile transcript(folder + "/" + sessionId + ".jsonl");
        transcript.open(QIODevice::WriteOnly);
        transcript.write(promptLine(now.addSecs(-600 - i)) + toolLines(now.addSecs(-300 - i)));
        transcript.close();
        if (!withManifests)
            continue;
        QDir().mkpath(paths.sessionRoot + "/account");
        QFile manifest(QString("%1/account/local_%2.json").arg(paths.sessionRoot).arg(i));
        manifest.open(QIODevice::WriteOnly);
        manifest.write(QJsonDocument(QJsonObject{{"sessionId", QString("local_%1").arg(i)},
                                                 {"cliSessionId", sessionId},
                                                 {"cwd", "/work/app"},
                                                 {"originCwd", "/work/app"},
                                                 {"createdAt", now.toMSecsSinceEpoch()},
                                                 {"lastActivityAt", now.toMSecsSinceEpoch()},
                                                 {"model", "claude"}})
                           .toJson());
    }
    const auto source = SourceAssembly::claudeSource(paths, SystemClock::shared(), fileSystem);
    if (monitoring) {
        bool started = false;
        auto start = [&]() -> QCoro::Task<void> {
            co_await source->startMonitoring();
            started = true;
        };
        auto starting = start();
        while (!started)
            QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents,
                                            10);
    }
    if (runToCompletion(source->fetchThreads(400, {})).threads.size() != 400)
        state.SkipWithError("the warm-up did not list 400 sessions");
    const qint64 transcriptOpens = source->transcriptReadCounters().filesOpened.load();
    const qint64 manifestOpens = source->manifestReadCounters().filesOpened.load();
    for (auto _ : state) {
        const ThreadCollection collection = runToCompletion(source->fetchThreads(400, {}));
        benchmark::DoNotOptimize(collection);
    }
    state.counters["filesOpenedPerRefresh"] =
        double(source->transcriptReadCounters().filesOpened.load() - transcriptOpens +
               source->manifestReadCounters().filesOpened.load() - manifestOpens) /
        double(state.iterations());
}
// 0: Claude Code sessions found in the transcript folders; 1: desktop manifests naming them;
// 2: as 0, with the folders watched (as the application runs), so a fetch re-reads nothing.
BENCHMARK(refreshUnchangedSessions)
    ->Arg(0)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

} // namespace
