// One keystroke in the Quick Task project picker over 2,000 projects: the query changes and the
// view reads the rows again (filter, rank and sort, then the scratch and "Choose Folder…" rows).

#include "platform/preferences.h"
#include "quicktask/quicktaskstore.h"

#include <benchmark/benchmark.h>

using namespace taskrack;

namespace {

struct NoCreation : QuickTaskCreating
{
    QCoro::Task<QuickTaskCreationOutcome> createTask(QString, RackProvider, QString,
                                                     std::stop_token) override
    {
        co_return {};
    }
    QCoro::Task<QuickTaskCreationOutcome> continueThread(QString, QString, std::stop_token) override
    {
        co_return {};
    }
    QString scratchDirectory() const override { return QStringLiteral("/nonexistent/scratch"); }
};

QList<RackProjectGroup> groups(int count)
{
    QList<RackProjectGroup> result;
    const QDateTime base = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    const char *words[] = {"api",    "billing",  "client",  "docs",
                           "engine", "frontend", "gateway", "infra"};
    for (int i = 0; i < count; ++i) {
        RackProjectGroup g;
        g.workspacePath =
            QStringLiteral("/nonexistent/src/%1-%2").arg(QLatin1String(words[i % 8])).arg(i);
        g.id = g.workspacePath;
        g.name = QStringLiteral("%1 Service %2").arg(QLatin1String(words[i % 8])).arg(i);
        RackThread thread;
        thread.recencyAt = base.addSecs(i % 500);
        g.threads = {thread};
        result.append(g);
    }
    return result;
}

void pickerKeystroke(benchmark::State &state)
{
    NoCreation creation;
    InMemoryPreferences preferences;
    QuickTaskStore store({creation,
                          preferences,
                          SystemClock::shared(),
                          nullptr,
                          nullptr,
                          std::chrono::seconds(480),
                          [](const QString &) { return false; },
                          {},
                          {}});
    const QList<RackProjectGroup> projectGroups = groups(int(state.range(0)));
    store.projectGroups = [&] { return projectGroups; };
    store.beginPresentation();
    store.openProjectPicker();
    const QStringList typed{QStringLiteral("e"),    QStringLiteral("en"),  QStringLiteral("eng"),
                            QStringLiteral("engi"), QStringLiteral("es9"), QString()};
    qsizetype i = 0;
    for (auto _ : state) {
        store.setProjectPickerQuery(typed[i++ % typed.size()]);
        benchmark::DoNotOptimize(store.pickerRows());
    }
}

} // namespace

BENCHMARK(pickerKeystroke)->Arg(2000)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
