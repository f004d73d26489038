// The Quick Task panel on a private X server (llvmpipe): how long from show() to its first frame,
// for a window never shown, one prewarmed offscreen, and one shown before, with the three
// durations the panel logs.

#include "core/clock.h"
#include "platform/desktopwindows.h"
#include "platform/preferences.h"
#include "quicktask/quicktaskpanelcontroller.h"
#include "quicktask/quicktaskquickwindow.h"
#include "quicktask/quicktaskviewmodel.h"
#include "testing/xvfbserver.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <algorithm>
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
    QString scratchDirectory() const override { return QStringLiteral("/tmp/taskrack-bench"); }
};

// One panel over 40 projects.
struct Rig
{
    Rig()
    {
        store.projectGroups = [] {
            QList<RackProjectGroup> groups;
            for (int i = 0; i < 40; ++i) {
                RackProjectGroup group;
                group.id = group.workspacePath = QStringLiteral("/nonexistent/src/p%1").arg(i);
                group.name = QStringLiteral("project %1").arg(i);
                groups.append(group);
            }
            return groups;
        };
    }

    std::array<qint64, 3> waitForShown()
    {
        std::array<qint64, 3> durations{};
        QEventLoop loop;
        auto connection = QObject::connect(&controller, &QuickTaskPanelController::shown, &loop,
                                           [&](qint64 prepare, qint64 orderFront, qint64 draw) {
                                               durations = {prepare, orderFront, draw};
                                               loop.quit();
                                           });
        loop.exec();
        QObject::disconnect(connection);
        return durations;
    }

    SystemClock clock;
    NoCreation creation;
    InMemoryPreferences preferences;
    QuickTaskStore store{
        {creation, preferences, clock, nullptr, nullptr, std::chrono::seconds(480), {}, {}, {}}};
    RackPalette palette;
    QuickTaskViewModel viewModel{store, palette, preferences};
    std::unique_ptr<DesktopWindows> desktop = DesktopWindows::create();
    QuickTaskQuickWindow window{viewModel, *desktop};
    QuickTaskPanelController controller{store, viewModel, window, clock};
};

void report(benchmark::State &state, const std::array<qint64, 3> &sum, int count)
{
    state.counters["prepare_ms"] = double(sum[0]) / count;
    state.counters["order_front_ms"] = double(sum[1]) / count;
    state.counters["draw_ms"] = double(sum[2]) / count;
}

// Each iteration builds a new panel (QML compiled from the binary's resources) and shows it.
void showNewPanels(benchmark::State &state, bool prewarmed)
{
    std::array<qint64, 3> sum{};
    int count = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto rig = std::make_unique<Rig>();
        if (prewarmed)
            rig->controller.prewarm();
        state.ResumeTiming();
        QElapsedTimer timer;
        timer.start();
        rig->controller.show();
        const auto durations = rig->waitForShown();
        state.SetIterationTime(timer.nsecsElapsed() / 1e9);
        for (int i = 0; i < 3; ++i)
            sum[i] += durations[i];
        ++count;
        state.PauseTiming();
        rig->controller.hide();
        rig.reset();
        state.ResumeTiming();
    }
    report(state, sum, count);
}

void BM_ShowToFirstFrameCold(benchmark::State &state)
{
    showNewPanels(state, false);
}

// What the first Quick Task after start pays when the application prewarmed the panel.
void BM_FirstShowAfterPrewarm(benchmark::State &state)
{
    showNewPanels(state, true);
}

// Shown before: what every later Quick Task pays.
void BM_ShowToFirstFrameWarm(benchmark::State &state)
{
    Rig rig;
    rig.controller.show();
    rig.waitForShown();
    rig.controller.hide();
    std::array<qint64, 3> sum{};
    int count = 0;
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        rig.controller.show();
        const auto durations = rig.waitForShown();
        state.SetIterationTime(timer.nsecsElapsed() / 1e9);
        for (int i = 0; i < 3; ++i)
            sum[i] += durations[i];
        ++count;
        rig.controller.hide();
    }
    report(state, sum, count);
}

double percentile95(const std::vector<double> &values)
{
    std::vector<double> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    return sorted.empty() ? 0 : sorted[size_t(0.95 * double(sorted.size() - 1) + 0.5)];
}

BENCHMARK(BM_ShowToFirstFrameCold)
    ->UseManualTime()
    ->ComputeStatistics("p95", percentile95)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->Repetitions(5);
BENCHMARK(BM_FirstShowAfterPrewarm)
    ->UseManualTime()
    ->ComputeStatistics("p95", percentile95)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->Repetitions(5);
BENCHMARK(BM_ShowToFirstFrameWarm)
    ->UseManualTime()
    ->ComputeStatistics("p95", percentile95)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20)
    ->Repetitions(5);

} // namespace

int main(int argc, char **argv)
{
    // Its own server, which outlives the application below.
    const taskrack::testing::XvfbServer xvfb("1280x800x24");
    if (!xvfb.isRunning())
        return 1;
    qputenv("DISPLAY", xvfb.displayName().toLocal8Bit());
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    setenv("LIBGL_ALWAYS_SOFTWARE", "1", 1);
    {
        QGuiApplication app(argc, argv);
        QLoggingCategory::setFilterRules(QStringLiteral("com.quillon.Taskrack.*.info=false"));
        benchmark::Initialize(&argc, argv);
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
    }
    return 0;
}
