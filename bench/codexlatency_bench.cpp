// How long a Codex status change takes to reach the store: from a lifecycle line appended to a
// rollout on disk, through inotify, the watcher (which reports the first write after a quiet
// spell at once), a local refresh (state database read of 400 threads, rollout overlay) and the
// pushed snapshot, to the store's thread changing status. Lines are a collapse window apart, as
// a turn's start and end are; the counters give the median and the 99th percentile.

#include "app/codexhookwiring.h"
#include "app/rackruntime.h"
#include "bench/benchsupport.h"
#include "core/compositethreadsource.h"
#include "platform/linux/inotifyfilewatch.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/preferences.h"
#include "sources/claude/claudedesktopthreadsource.h"
#include "sources/codex/codexthreadrepository.h"
#include "sources/codex/sqlitethreadsource.h"
#include "sources/codex/taskfilewatcher.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QUuid>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdexcept>
#include <sys/resource.h>

using namespace taskrack;
using namespace taskrack::bench;

static const LinuxFileSystem fileSystem;

namespace {

constexpr int threadCount = 400;

QByteArray lifecycleLine(const char *kind)
{
    return "{\"timestamp\":\"" +
           QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toLatin1() +
           "\",\"type\":\"event_msg\",\"payload\":{\"type\":\"" + kind + "\"}}\n";
}

void exec(sqlite3 *db, const QByteArray &sql)
{
    if (sqlite3_exec(db, sql.constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(db));
}

// A Codex home with 400 threads whose turns ended long ago, and one hot thread being worked on.
class CodexHome
{
public:
    CodexHome()
    {
        sqlite3 *db = nullptr;
        sqlite3_open(QFile::encodeName(databasePath()).constData(), &db);
        exec(db, "PRAGMA journal_mode=WAL");
        exec(db, "CREATE TABLE threads (id TEXT PRIMARY KEY, rollout_path TEXT NOT NULL,"
                 " updated_at INTEGER NOT NULL, updated_at_ms INTEGER, source TEXT NOT NULL,"
                 " thread_source TEXT, cwd TEXT NOT NULL, title TEXT NOT NULL, name TEXT,"
                 " preview TEXT NOT NULL DEFAULT '', archived INTEGER NOT NULL DEFAULT 0,"
                 " git_origin_url TEXT, recency_at INTEGER NOT NULL DEFAULT 0,"
                 " recency_at_ms INTEGER NOT NULL DEFAULT 0)");
        exec(db, "BEGIN");
        QDir().mkpath(m_dir.filePath("sessions"));
        QDir().mkpath(m_dir.filePath("repo"));
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        for (int i = 0; i < threadCount; ++i) {
            const QString id = QStringLiteral("01a204d4-%1").arg(i, 4, 10, QChar('0'));
            // The hot thread is the newest; the others ended a day ago.
            const qint64 updated = i == 0 ? now : now - 86'400'000 - i * 1000;
            append(rolloutPath(id), "{\"type\":\"session_meta\",\"payload\":{}}\n");
            exec(db,
                 QStringLiteral("INSERT INTO threads VALUES ('%1', '%2', %3, %4, 'exec', 'user',"
                                " '%5', 'Task %1', NULL, 'preview', 0,"
                                " 'https://git.example.invalid/acme/widgets.git', %6, %7)")
                     .arg(id, rolloutPath(id))
                     .arg(updated / 1000)
                     .arg(updated)
                     .arg(m_dir.filePath("repo"))
                     .arg(updated / 1000)
                     .arg(updated)
                     .toUtf8());
            if (i == 0)
                hotId = id;
        }
        exec(db, "COMMIT");
        // Codex keeps its connection, and so its write-ahead log, open.
        m_db = db;
        append(rolloutPath(hotId), lifecycleLine("task_started"));
    }
    ~CodexHome() { sqlite3_close(m_db); }

    QString home() const { return m_dir.path(); }
    QString databasePath() const { return m_dir.filePath("state_5.sqlite"); }
    QString rolloutPath(const QString &id) const
    {
        return m_dir.filePath("sessions/" + id + ".jsonl");
    }

    QString hotId;

private:
    QTemporaryDir m_dir;
    sqlite3 *m_db = nullptr;
};

// Stands for an app-server that is not installed: every fetch falls back to the local side.
class AbsentAppServer : public ThreadSource
{
public:
    QString sourceName() const override { return QStringLiteral("CodexAppServerThreadSource"); }
    QCoro::Task<ThreadCollection> fetchThreads(int, std::stop_token) override
    {
        throw TaskrackError(QStringLiteral("not installed"));
        co_return {};
    }
};

// A runtime over `home` as the application assembles it, without an app-server, once its first
// refresh shows the hot thread working; null when it does not.
std::unique_ptr<RackRuntime> watchedRuntime(const CodexHome &home, Preferences &preferences,
                                            std::shared_ptr<CodexThreadRepository> &repository)
{
    CodexThreadRepository::Parts parts;
    parts.liveSource = std::make_shared<AbsentAppServer>();
    parts.fallbackSource =
        std::make_shared<SQLiteThreadSource>(fileSystem, home.home(), home.home());
    parts.activityOverlay = CodexActivityOverlaying::forCodexHome(home.home(), fileSystem);
    parts.fileWatch = std::make_unique<InotifyFileWatch>();
    parts.databaseFiles = {home.databasePath(), home.databasePath() + QStringLiteral("-wal")};
    parts.clock = &SystemClock::shared();
    repository = CodexThreadRepository::create(std::move(parts));
    auto runtime = std::make_unique<RackRuntime>(
        SourceAssembly{.sources = {repository}, .eventFeeds = {}, .claudeHooks = {}}, preferences,
        SystemClock::shared());
    bool refreshed = false;
    signalWhenDone(runtime->start(), refreshed);
    const QString id = codexThreadPrefix + home.hotId;
    if (!runUntil(
            [&] { return refreshed && statusOf(runtime->store(), id) == RackStatus::working; }))
        return nullptr;
    return runtime;
}

void recordLatencies(benchmark::State &state, std::vector<double> latencies)
{
    if (latencies.empty())
        return;
    std::sort(latencies.begin(), latencies.end());
    state.counters["p50_ms"] = latencies[latencies.size() / 2] * 1000.0;
    state.counters["p99_ms"] =
        latencies[std::min(latencies.size() - 1, latencies.size() * 99 / 100)] * 1000.0;
    state.counters["threads"] = threadCount;
}

void stop(RackRuntime &runtime)
{
    bool stopped = false;
    signalWhenDone(runtime.shutdown(), stopped);
    runUntil([&] { return stopped; });
}

void BM_RolloutLineToStoreStatus(benchmark::State &state)
{
    CodexHome home;
    InMemoryPreferences preferences;
    std::shared_ptr<CodexThreadRepository> repository;
    const std::unique_ptr<RackRuntime> runtime = watchedRuntime(home, preferences, repository);
    if (!runtime) {
        state.SkipWithError("the first refresh did not show the hot thread working");
        return;
    }
    RackStore &store = runtime->store();
    const QString id = codexThreadPrefix + home.hotId;
    const int quietMs = int(TaskFileWatcher::collapseInterval.count()) + 10;
    std::vector<double> latencies;
    bool started = true;
    for (auto _ : state) {
        const RackStatus expected = started ? RackStatus::completed : RackStatus::working;
        QElapsedTimer timer;
        timer.start();
        append(home.rolloutPath(home.hotId),
               lifecycleLine(started ? "task_complete" : "task_started"));
        if (!waitForStatus(store, id, expected)) {
            state.SkipWithError("the status change did not reach the store");
            break;
        }
        const double seconds = double(timer.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        latencies.push_back(seconds);
        started = !started;
        QElapsedTimer quiet;
        quiet.start();
        runUntil([&] { return quiet.elapsed() >= quietMs; });
    }
    recordLatencies(state, std::move(latencies));
    stop(*runtime);
}
BENCHMARK(BM_RolloutLineToStoreStatus)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(100);

// From the moment Codex starts its PermissionRequest hook to the store showing the task as
// needing input: the helper's start, its read of the payload and the token file, the bus, the
// listener and the repository's status update. Alternates with PostToolUse (back to working).
// Needs the session bus: run under dbus-run-session.
void BM_PermissionHookToStoreStatus(benchmark::State &state)
{
    CodexHome home;
    InMemoryPreferences preferences;
    std::shared_ptr<CodexThreadRepository> repository;
    const std::unique_ptr<RackRuntime> runtime = watchedRuntime(home, preferences, repository);
    QTemporaryDir data;
    {
        QFile token(data.filePath("codex-hook-token"));
        token.open(QIODevice::WriteOnly);
        token.write(QByteArray(64, 'f'));
        token.close();
        token.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }
    CodexHookWiring wiring(data.path(), QStringLiteral(TASKRACK_HOOK_BRIDGE_PATH), repository);
    wiring.start();
    if (!runtime || !wiring.isListening()) {
        state.SkipWithError("needs a session bus and a first refresh");
        return;
    }
    const QString helper = data.filePath("bin/taskrack-hook-bridge");
    const QString id = codexThreadPrefix + home.hotId;
    std::vector<double> latencies;
    bool asking = true;
    for (auto _ : state) {
        const QByteArray payload =
            QStringLiteral(R"({"session_id":"%1","turn_id":"t","transcript_path":"%2","cwd":"/w",)"
                           R"("hook_event_name":"%3","model":"gpt-mock","tool_name":"Bash",)"
                           R"("tool_input":{"command":"make"},"tool_response":"ok"})")
                .arg(home.hotId, home.rolloutPath(home.hotId),
                     asking ? "PermissionRequest" : "PostToolUse")
                .toUtf8();
        QElapsedTimer timer;
        timer.start();
        QProcess process;
        process.start(helper, {QStringLiteral("--codex")});
        process.write(payload);
        process.closeWriteChannel();
        if (!waitForStatus(runtime->store(), id,
                           asking ? RackStatus::requiresInput : RackStatus::working)) {
            state.SkipWithError("the status change did not reach the store");
            break;
        }
        const double seconds = double(timer.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        latencies.push_back(seconds);
        process.waitForFinished(10000);
        asking = !asking;
    }
    recordLatencies(state, std::move(latencies));
    wiring.stop();
    stop(*runtime);
}
BENCHMARK(BM_PermissionHookToStoreStatus)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(100);

// The whole warm refresh the store asks for: 400 Codex threads (state database fallback and
// rollout overlay) and 400 unchanged Claude Code sessions, through the composite source.
void BM_WarmCompositeRefresh(benchmark::State &state)
{
    CodexHome home;
    CodexThreadRepository::Parts parts;
    parts.liveSource = std::make_shared<AbsentAppServer>();
    parts.fallbackSource =
        std::make_shared<SQLiteThreadSource>(fileSystem, home.home(), home.home());
    parts.activityOverlay = CodexActivityOverlaying::forCodexHome(home.home(), fileSystem);
    parts.clock = &SystemClock::shared();
    QTemporaryDir claudeDir;
    const ClaudeSourcePaths paths =
        ClaudeSourcePaths::forHome(claudeDir.path() + "/home", claudeDir.path() + "/data");
    const QByteArray stamp = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toUtf8();
    for (int i = 0; i < threadCount; ++i) {
        const QString folder = QString("%1/-work-app-%2").arg(paths.transcriptRoot).arg(i % 40);
        QDir().mkpath(folder);
        append(
            folder + "/" + QUuid::createUuid().toString(QUuid::WithoutBraces) + ".jsonl",
            R"({"type":"user","message":{"role":"user","content":"Refactor"},"cwd":"/work/app","timestamp":")" +
                stamp + "\"}\n" +
                R"({"type":"assistant","message":{"stop_reason":"end_turn","content":[]},"timestamp":")" +
                stamp + "\"}\n");
    }
    auto claude = SourceAssembly::claudeSource(paths, SystemClock::shared(), fileSystem);
    // Watched, as in the application: an unchanged Claude home is not read again.
    bool watching = false;
    signalWhenDone(claude->startMonitoring(), watching);
    runUntil([&] { return watching; });
    CompositeThreadSource composite({CodexThreadRepository::create(std::move(parts)), claude});
    const auto fetch = [&] {
        std::optional<ThreadCollection> collection;
        auto run = [&]() -> QCoro::Task<void> {
            collection = co_await composite.fetchThreads(800, {});
        };
        auto running = run();
        runUntil([&] { return collection.has_value(); });
        return collection ? collection->threads.size() : 0;
    };
    if (fetch() != 2 * threadCount) {
        state.SkipWithError("the warm-up did not list 800 tasks");
        return;
    }
    const qint64 opensBefore = claude->transcriptReadCounters().filesOpened.load();
    double cpu = 0;
    for (auto _ : state) {
        const double before = processCpuSeconds();
        benchmark::DoNotOptimize(fetch());
        cpu += processCpuSeconds() - before;
    }
    state.counters["cpu_ms"] = cpu * 1000.0 / double(state.iterations());
    state.counters["claudeFilesOpened"] =
        double(claude->transcriptReadCounters().filesOpened.load() - opensBefore) /
        double(state.iterations());
}
BENCHMARK(BM_WarmCompositeRefresh)->Unit(benchmark::kMillisecond);

} // namespace
