// Re-ranking and regrouping cost at the sizes the store meets on every change of threads: the
// work should grow linearly with the aliases, apart from the sorting.

#include "core/rackprojectgroups.h"
#include "core/rackranking.h"

#include <benchmark/benchmark.h>

#include <random>

using namespace taskrack;

namespace {

// `threadCount` threads over `projectCount` projects. Each project is met under three aliases
// (its folder, "path:" + folder, and a repository or git-directory key); threads of one project
// carry different subsets of them, as Codex and Claude threads of one repository do, so that the
// union-find has real work to do.
QList<RackThread> makeThreads(int threadCount, int projectCount)
{
    std::mt19937 random(42);
    const QDateTime base = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    QList<RackThread> threads;
    threads.reserve(threadCount);
    for (int i = 0; i < threadCount; ++i) {
        const int project = int(random() % unsigned(projectCount));
        const QString folder = QStringLiteral("/home/me/src/project-%1").arg(project);
        const QString key = project % 2
                                ? QStringLiteral("repository:https://example.org/p/%1").arg(project)
                                : QStringLiteral("git-directory:%1/.git").arg(folder);
        RackThread thread;
        thread.id = QStringLiteral("codex:%1").arg(i);
        thread.provider = i % 3 ? RackProvider::codex : RackProvider::claudeDesktop;
        thread.status = allStatuses[random() % 6];
        thread.recencyAt = base.addSecs(qint64(random() % 1'000'000));
        thread.updatedAt = thread.recencyAt;
        thread.workspacePath = folder;
        RackProjectIdentity &identity = thread.projectIdentity;
        identity.workspacePath = folder;
        identity.name = folder.section('/', -1);
        switch (random() % 3) {
        case 0: // a folder without git knowledge
            identity.id = folder;
            identity.aliases = {folder, QStringLiteral("path:") + folder};
            break;
        case 1: // only the key, e.g. an origin without a folder on this machine
            identity.id = key;
            identity.aliases = {key};
            break;
        default:
            identity.id = key;
            identity.aliases = {folder, QStringLiteral("path:") + folder, key};
            break;
        }
        threads.append(thread);
    }
    return threads;
}

void setSize(benchmark::State &state)
{
    state.SetComplexityN(state.range(0));
    state.counters["threads"] = double(state.range(0));
    state.counters["projects"] = double(state.range(1));
}

void BM_Rerank(benchmark::State &state)
{
    const auto threads = makeThreads(int(state.range(0)), int(state.range(1)));
    for (auto _ : state) {
        auto sorted = sortedInThreadOrder(threads);
        benchmark::DoNotOptimize(activityList(sorted));
    }
    setSize(state);
}

void BM_Regroup(benchmark::State &state)
{
    const auto sorted = sortedInThreadOrder(makeThreads(int(state.range(0)), int(state.range(1))));
    for (auto _ : state)
        benchmark::DoNotOptimize(projectGroups(sorted));
    setSize(state);
}

// Everything a re-ranking does to threads and projects, as the store calls it.
void BM_RerankAndRegroup(benchmark::State &state)
{
    const auto threads = makeThreads(int(state.range(0)), int(state.range(1)));
    const std::optional<QString> selectedProject = QStringLiteral("/home/me/src/project-7");
    const std::optional<QString> selectedThread = QStringLiteral("codex:3");
    for (auto _ : state) {
        auto sorted = sortedInThreadOrder(threads);
        auto flat = activityList(sorted);
        auto groups = projectGroups(sorted);
        benchmark::DoNotOptimize(
            bringSelectedProjectUpToDate(groups, selectedProject, selectedThread));
        benchmark::DoNotOptimize(flat);
    }
    setSize(state);
}

// The open panel's path: fresh groups merged into the order on screen.
void BM_FrozenRegroup(benchmark::State &state)
{
    const auto before = makeThreads(int(state.range(0)), int(state.range(1)));
    auto after = before;
    for (qsizetype i = 0; i < after.size(); i += 5)
        after[i].status = RackStatus::working;
    const auto old = projectGroups(sortedInThreadOrder(before));
    QHash<QString, RackThread> current;
    for (const auto &thread : after)
        current.insert(thread.id, thread);
    for (auto _ : state) {
        const auto fresh = projectGroups(sortedInThreadOrder(after));
        benchmark::DoNotOptimize(frozenProjectGroups(old, fresh, current));
    }
    setSize(state);
}

void sizes(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Args({800, 120})->Args({1600, 240})->Args({3200, 480});
    benchmark->Unit(benchmark::kMicrosecond)->Complexity(benchmark::oNLogN);
}

} // namespace

BENCHMARK(BM_Rerank)->Apply(sizes);
BENCHMARK(BM_Regroup)->Apply(sizes);
BENCHMARK(BM_RerankAndRegroup)->Apply(sizes);
BENCHMARK(BM_FrozenRegroup)->Apply(sizes);

BENCHMARK_MAIN();
