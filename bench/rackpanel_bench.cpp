// The rack on a private X server (llvmpipe): how long from a reveal to the first frame, cold
// and warm, with the three durations the rack logs; what one status change among 400 tasks
// costs the view model and how soon it is on screen; and what an open rack costs while nothing
// happens but three tasks working.

#include "core/clock.h"
#include "core/rackstore.h"
#include "panel/rackdemosource.h"
#include "panel/rackpanelcontroller.h"
#include "panel/rackquickwindow.h"
#include "panel/rackviewmodel.h"
#include "platform/desktopwindows.h"
#include "platform/preferences.h"

#include "testing/xvfbserver.h"
#include <QElapsedTimer>
#include <QEventLoop>

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QTimer>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace taskrack;

namespace {

// Everything of one rack over the demo's tasks.
struct Rig
{
    explicit Rig(int tasks) : source(RackDemoOptions{RackDemoOptions::Data::full, tasks}, clock)
    {
        auto refreshing = store.refresh();
        while (store.isRefreshing())
            QCoreApplication::processEvents();
    }

    // Runs the event loop until the controller reports a frame; answers the three durations.
    std::array<qint64, 3> waitForShown()
    {
        std::array<qint64, 3> durations{};
        QEventLoop loop;
        auto connection = QObject::connect(&controller, &RackPanelController::shown, &loop,
                                           [&](qint64 prepare, qint64 orderFront, qint64 draw) {
                                               durations = {prepare, orderFront, draw};
                                               loop.quit();
                                           });
        loop.exec();
        QObject::disconnect(connection);
        return durations;
    }

    void waitForFrame()
    {
        QEventLoop loop;
        auto connection =
            QObject::connect(&window, &QQuickWindow::frameSwapped, &loop, &QEventLoop::quit);
        loop.exec();
        QObject::disconnect(connection);
    }

    SystemClock clock;
    RackDemoSource source;
    InMemoryPreferences preferences;
    RackStore store{source, nullptr, preferences, clock};
    RackPalette palette;
    RackViewModel viewModel{store, palette};
    std::unique_ptr<DesktopWindows> desktop = DesktopWindows::create();
    RackQuickWindow window{viewModel, *desktop};
    RackPanelController controller{store, viewModel, window, clock, RackPanelActions{}};
};

void report(benchmark::State &state, const std::array<qint64, 3> &sum, int count)
{
    state.counters["prepare_ms"] = double(sum[0]) / count;
    state.counters["order_front_ms"] = double(sum[1]) / count;
    state.counters["draw_ms"] = double(sum[2]) / count;
}

// Each iteration builds a new rack and shows it once, prewarmed offscreen first or not.
void revealNewRacks(benchmark::State &state, bool prewarmed)
{
    std::array<qint64, 3> sum{};
    int count = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto rig = std::make_unique<Rig>(60);
        if (prewarmed)
            rig->controller.prewarm();
        state.ResumeTiming();
        QElapsedTimer timer;
        timer.start();
        rig->controller.present();
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

// A window that was never shown nor prewarmed: the first layout and scene graph are paid here.
void BM_RevealToFirstFrameCold(benchmark::State &state)
{
    revealNewRacks(state, false);
}

// A new window prewarmed offscreen, then shown for the first time: what the first gesture
// after start pays.
void BM_FirstRevealAfterPrewarm(benchmark::State &state)
{
    revealNewRacks(state, true);
}

// Prewarmed at start and shown before: what every later gesture pays.
void BM_RevealToFirstFrameWarm(benchmark::State &state)
{
    Rig rig(60);
    rig.controller.prewarm();
    rig.controller.present();
    rig.waitForShown();
    rig.controller.hide();
    std::array<qint64, 3> sum{};
    int count = 0;
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        rig.controller.present();
        const auto durations = rig.waitForShown();
        state.SetIterationTime(timer.nsecsElapsed() / 1e9);
        for (int i = 0; i < 3; ++i)
            sum[i] += durations[i];
        ++count;
        rig.controller.hide();
    }
    report(state, sum, count);
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// One task on the open rack changes status: the view model's share, then until the change is
// on screen.
void BM_StatusChangeAmong400(benchmark::State &state)
{
    Rig rig(400);
    rig.controller.present();
    rig.waitForShown();
    const QString id = rig.store.visibleThreads().at(1).id;
    double modelSeconds = 0;
    int count = 0;
    for (auto _ : state) {
        const RackStatus next = count % 2 ? RackStatus::working : RackStatus::requiresInput;
        QElapsedTimer timer;
        timer.start();
        const double cpuBefore = cpuSeconds();
        rig.store.applyStatusUpdate({id, next, std::nullopt, std::nullopt});
        rig.viewModel.refreshNow();
        modelSeconds += cpuSeconds() - cpuBefore;
        rig.waitForFrame();
        state.SetIterationTime(timer.nsecsElapsed() / 1e9);
        ++count;
    }
    state.counters["store_and_view_model_cpu_ms"] = modelSeconds * 1000 / count;
}

// Ten seconds of an open rack with three working keys and nothing else happening.
void BM_OpenRackIdleCpu(benchmark::State &state)
{
    Rig rig(14);
    rig.controller.present();
    rig.waitForShown();
    for (auto _ : state) {
        const double before = cpuSeconds();
        QEventLoop loop;
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        loop.exec();
        state.counters["cpu_percent"] = (cpuSeconds() - before) / 10.0 * 100.0;
        state.SetIterationTime(10.0);
    }
}

double percentile95(const std::vector<double> &values)
{
    std::vector<double> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    return sorted.empty() ? 0 : sorted[size_t(0.95 * double(sorted.size() - 1) + 0.5)];
}

BENCHMARK(BM_RevealToFirstFrameCold)
    ->UseManualTime()
    ->ComputeStatistics("p95", percentile95)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->Repetitions(5);
BENCHMARK(BM_FirstRevealAfterPrewarm)
    ->UseManualTime()
    ->ComputeStatistics("p95", percentile95)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->Repetitions(5);
BENCHMARK(BM_RevealToFirstFrameWarm)
    ->UseManualTime()
    ->ComputeStatistics("p95", percentile95)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20)
    ->Repetitions(5);
BENCHMARK(BM_StatusChangeAmong400)
    ->UseManualTime()
    ->ComputeStatistics("p95", percentile95)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20)
    ->Repetitions(5);
BENCHMARK(BM_OpenRackIdleCpu)->UseManualTime()->Unit(benchmark::kSecond)->Iterations(1);

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
