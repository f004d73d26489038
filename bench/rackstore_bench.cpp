// A full refresh merge: 800 threads (400 per provider) arriving while 800 live updates wait in
// the pending table, through the ledger, ranking and grouping.

#include "core/clock.h"
#include "core/rackstore.h"
#include "platform/preferences.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <benchmark/benchmark.h>

using namespace taskrack;

namespace {

class ImmediateSource : public ThreadSource
{
public:
    ThreadCollection answer;
    QString sourceName() const override { return QStringLiteral("bench"); }
    // QCoro 0.8 moves from a named non-const value given to co_return: return a copy.
    QCoro::Task<ThreadCollection> fetchThreads(int, std::stop_token) override
    {
        co_return ThreadCollection(answer);
    }
};

class FixedClock : public Clock
{
public:
    QDateTime now() const override
    {
        return QDateTime::fromMSecsSinceEpoch(1'790'000'000'000, Qt::UTC);
    }
    double uptime() const override { return 0; }
    QCoro::Task<void> sleep(std::chrono::milliseconds) override { co_return; }
};

ThreadCollection makeThreads(int count, int projects, const QDateTime &now)
{
    ThreadCollection collection;
    collection.isLive = true;
    collection.sourceDescription = QStringLiteral("bench");
    for (int i = 0; i < count; ++i) {
        RackThread thread;
        thread.provider = i % 2 ? RackProvider::claudeDesktop : RackProvider::codex;
        thread.id =
            (i % 2 ? QStringLiteral("claude:") : QStringLiteral("codex:")) + QString::number(i);
        thread.providerThreadID = QString::number(i);
        thread.title = QStringLiteral("Task %1").arg(i);
        const QString path = QStringLiteral("/src/project-%1").arg(i % projects);
        thread.workspacePath = path;
        thread.projectIdentity = {path,
                                  QStringLiteral("project-%1").arg(i % projects),
                                  path,
                                  {path, QStringLiteral("path:") + path,
                                   QStringLiteral("repository:example.com/p%1").arg(i % projects)},
                                  {}};
        thread.status = allStatuses[i % 6];
        thread.updatedAt = now.addSecs(-i * 7);
        thread.recencyAt = thread.updatedAt;
        collection.threads.append(thread);
    }
    return collection;
}

void refreshWithPendingUpdates(benchmark::State &state)
{
    const int count = int(state.range(0));
    FixedClock clock;
    InMemoryPreferences preferences;
    ImmediateSource source;
    source.answer = makeThreads(count, 120, clock.now());
    RackStore store(source, nullptr, preferences, clock);
    for (auto _ : state) {
        state.PauseTiming();
        // Updates for threads the store has not seen yet: all wait in the pending table.
        for (int i = 0; i < count; ++i)
            store.applyStatusUpdate(
                {source.answer.threads[i].id, RackStatus::working, clock.now(), std::nullopt});
        state.ResumeTiming();
        auto refresh = store.refresh();
        benchmark::DoNotOptimize(store.allThreads().size());
    }
    state.counters["threads"] = count;
}
BENCHMARK(refreshWithPendingUpdates)->Arg(800)->Arg(1600)->Unit(benchmark::kMillisecond);

} // namespace
