// How long a key takes from the keyboard to the program's reaction, on a private Xvfb: from
// XTestFakeKeyEvent and a flush to the gesture event (reveal, cycle) on the main thread, and to a
// global shortcut's press. The server's own raw delivery is about 20 µs of it.

#include "core/clock.h"
#include "input/globalshortcuthotkey.h"
#include "input/rightmodifierhotkeymonitor.h"
#include "platform/linux/x11globalhotkeys.h"
#include "platform/linux/x11modifiermonitor.h"
#include "testing/x11testclient.h"
#include "testing/xvfbserver.h"

#include <QCoreApplication>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <optional>
#include <stdexcept>

#include <X11/keysym.h>

using namespace taskrack;
using SteadyClock = std::chrono::steady_clock;

namespace {

struct Desk
{
    taskrack::testing::XvfbServer server;
    std::optional<taskrack::testing::X11TestClient> client;
    int rightCtrl = 0, rightAlt = 0, leftCtrl = 0, leftAlt = 0, letterK = 0;

    Desk()
    {
        if (!server.isRunning())
            throw std::runtime_error("Xvfb did not start");
        client.emplace(server.displayName());
        client->createFocusedWindow();
        rightCtrl = client->keycodeForName("RCTL");
        rightAlt = client->keycodeForName("RALT");
        leftCtrl = client->keycodeForKeysym(XK_Control_L);
        leftAlt = client->keycodeForKeysym(XK_Alt_L);
        letterK = client->keycodeForKeysym(XK_k);
    }
};

// Runs the event loop until `done` holds; returns the time from `start`.
template <typename Done> double secondsUntil(SteadyClock::time_point start, Done done)
{
    while (!done())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
    return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

void report(benchmark::State &state, std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    state.counters["median_us"] = samples[samples.size() / 2] * 1e6;
    state.counters["p99_us"] = samples[samples.size() * 99 / 100] * 1e6;
    state.counters["over_1ms"] =
        double(std::count_if(samples.begin(), samples.end(), [](double s) { return s > 1e-3; }));
}

// mode 0: reveal (right Alt down while right Ctrl is held), 1: cycle (the next tap).
void BM_KeyToGestureEvent(benchmark::State &state)
{
    Desk desk;
    X11ModifierMonitor listener(desk.server.displayName());
    RightModifierHotkeyMonitor monitor(listener, SystemClock::shared());
    std::optional<HotkeyEvent> last;
    QObject::connect(&monitor, &RightModifierHotkeyMonitor::hotkeyEvent,
                     [&](HotkeyEvent event) { last = event; });
    if (monitor.start())
        throw std::runtime_error("listener did not start");
    const bool cycle = state.range(0) == 1;
    const HotkeyEvent wanted = cycle ? HotkeyEvent::cycle : HotkeyEvent::reveal;
    std::vector<double> samples;
    for (auto _ : state) {
        desk.client->press(desk.rightCtrl);
        if (cycle)
            desk.client->tap(desk.rightAlt);
        secondsUntil(SteadyClock::now(),
                     [&] { return last == HotkeyEvent::prefetch || last == HotkeyEvent::reveal; });
        last.reset();
        const auto start = SteadyClock::now();
        desk.client->send(desk.rightAlt, true);
        const double seconds = secondsUntil(start, [&] { return last == wanted; });
        state.SetIterationTime(seconds);
        samples.push_back(seconds);
        desk.client->release(desk.rightAlt);
        desk.client->send(desk.rightCtrl, false);
        secondsUntil(SteadyClock::now(), [&] { return last == HotkeyEvent::commit; });
        last.reset();
    }
    report(state, std::move(samples));
}
BENCHMARK(BM_KeyToGestureEvent)
    ->Arg(0)
    ->Arg(1)
    ->ArgName("cycle")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(300);

void BM_KeyToGlobalShortcut(benchmark::State &state)
{
    Desk desk;
    X11GlobalHotkeys hotkeys(desk.server.displayName());
    ShowRackHotkey hotkey(&hotkeys, {40, PortableModifier::command | PortableModifier::option});
    if (hotkey.registerHotkey())
        throw std::runtime_error("hot key not registered");
    int presses = 0;
    QObject::connect(&hotkey, &GlobalShortcutHotkey::pressed, [&] { ++presses; });
    std::vector<double> samples;
    for (auto _ : state) {
        desk.client->press(desk.leftCtrl);
        desk.client->press(desk.leftAlt);
        const int before = presses;
        const auto start = SteadyClock::now();
        desk.client->send(desk.letterK, true);
        const double seconds = secondsUntil(start, [&] { return presses > before; });
        state.SetIterationTime(seconds);
        samples.push_back(seconds);
        desk.client->release(desk.letterK);
        desk.client->release(desk.leftAlt);
        desk.client->release(desk.leftCtrl);
    }
    report(state, std::move(samples));
}
BENCHMARK(BM_KeyToGlobalShortcut)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(300);

} // namespace
