#include "app/rackruntime.h"
#include "app/racktermination.h"

#include "platform/preferences.h"
#include "platform/systemevents.h"
#include "testing/fakeclock.h"
#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;
using namespace std::chrono_literals;

namespace {

class RecordingDesktop : public RackDesktopSteps
{
public:
    explicit RecordingDesktop(QStringList &events) : m_events(events) {}
    void startInput() override { m_events.append("input start"); }
    void stopInput() override { m_events.append("input stop"); }

private:
    QStringList &m_events;
};

class RackRuntimeTest : public ::testing::Test
{
protected:
    FakeClock clock;
    InMemoryPreferences preferences;
    SystemEvents systemEvents;
    QStringList events;
    RecordingDesktop desktop{events};
    std::shared_ptr<FakeThreadSource> codex = std::make_shared<FakeThreadSource>("Codex");
    std::shared_ptr<FakeThreadSource> claude = std::make_shared<FakeThreadSource>("Claude");
    LiveFeeds codexFeeds = recordingFeeds("codex", RackProvider::codex);
    LiveFeeds claudeFeeds = recordingFeeds("claude", RackProvider::claudeDesktop);
    // Set by a test to hold the Codex shutdown until it says so.
    bool codexShutdownHeld = false;
    std::unique_ptr<RackRuntime> runtime;

    LiveFeeds recordingFeeds(const QString &name, RackProvider provider)
    {
        LiveFeeds feeds;
        feeds.provider = provider;
        feeds.snapshots = BoundedChannel<ThreadCollection>::create(4);
        feeds.statusUpdates = BoundedChannel<RackStatusUpdate>::create(32);
        feeds.invalidations = BoundedChannel<Invalidation>::create(1);
        feeds.start = [this, name] { events.append(name + " start"); };
        feeds.startEvents = [this, name] { events.append(name + " events start"); };
        feeds.stopEvents = [this, name] { events.append(name + " events stop"); };
        feeds.sleep = [this, name]() -> QCoro::Task<void> {
            events.append(name + " sleep");
            co_return;
        };
        feeds.wake = [this, name]() -> QCoro::Task<void> {
            events.append(name + " wake");
            co_return;
        };
        feeds.shutdown = [this, name]() -> QCoro::Task<void> {
            events.append(name + " shutdown");
            if (name == "codex") {
                while (codexShutdownHeld) {
                    auto tick = clock.sleep(1s);
                    co_await tick;
                }
            }
            events.append(name + " shut down");
        };
        return feeds;
    }

    void build()
    {
        runtime = std::make_unique<RackRuntime>(
            SourceAssembly{{codex, claude}, {codexFeeds, claudeFeeds}, {}, {}}, preferences, clock);
    }

    // Starts, checks what ran before the first fetch, and answers it.
    QStringList startedOrder(RackDesktopSteps *steps)
    {
        build();
        bool started = false;
        // The closure outlives the coroutine's suspensions: it is named, not a temporary.
        auto body = [&]() -> QCoro::Task<void> {
            auto running = runtime->start(steps, &systemEvents);
            co_await running;
            started = true;
        };
        auto starting = body();
        EXPECT_TRUE(
            waitUntil([&] { return codex->fetchCount() == 1 && claude->fetchCount() == 1; }));
        const QStringList beforeFetch = events;
        EXPECT_FALSE(started) << "start awaits the first refresh";
        codex->respond({{makeThread("codex:a", RackStatus::idle, clock.now())}, "Codex", true, {}});
        claude->respond({{}, "Claude", true, {}});
        EXPECT_TRUE(waitUntil([&] { return started; }));
        events.clear();
        return beforeFetch;
    }
};

TEST_F(RackRuntimeTest, AppAndWatchStartAndStopInOneOrder)
{
    const struct
    {
        bool desktop;
        QStringList start;
        QStringList stop;
    } cases[] = {
        {false,
         {"codex start", "claude start", "codex events start", "claude events start"},
         {"codex events stop", "claude events stop", "codex shutdown", "codex shut down",
          "claude shutdown", "claude shut down"}},
        {true,
         {"codex start", "claude start", "input start", "codex events start",
          "claude events start"},
         {"input stop", "codex events stop", "claude events stop", "codex shutdown",
          "codex shut down", "claude shutdown", "claude shut down"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.desktop ? "app" : "watch");
        events.clear();
        codex = std::make_shared<FakeThreadSource>("Codex");
        claude = std::make_shared<FakeThreadSource>("Claude");
        RecordingDesktop steps(events);
        EXPECT_EQ(startedOrder(c.desktop ? &steps : nullptr), c.start);
        awaitVoid(runtime->shutdown());
        awaitVoid(runtime->shutdown());
        EXPECT_EQ(events, c.stop) << "a second shutdown does nothing twice";
        codexFeeds.snapshots->send(
            {{makeThread("codex:late", RackStatus::idle, clock.now())}, "Codex", true, {}});
        drainEvents();
        EXPECT_EQ(runtime->store().allThreads().size(), 1)
            << "nothing reaches the store after shutdown";
        runtime.reset();
    }
}

TEST_F(RackRuntimeTest, FeedsReachTheStoreAndWakeResumesEverySource)
{
    startedOrder(nullptr);
    RackStore &store = runtime->store();
    codexFeeds.statusUpdates->send({"codex:a", RackStatus::working, std::nullopt, std::nullopt});
    ASSERT_TRUE(waitUntil([&] { return store.allThreads()[0].status == RackStatus::working; }));

    emit systemEvents.willSleep();
    emit systemEvents.willSleep();
    emit systemEvents.didWake();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 4; }));
    EXPECT_EQ(events, QStringList({"codex sleep", "claude sleep", "codex wake", "claude wake"}))
        << "one sleep however often it is announced";
    clock.advance(180ms);
    EXPECT_TRUE(waitUntil([&] { return codex->fetchCount() == 2; }))
        << "a wake refreshes soon after";
}

TEST_F(RackRuntimeTest, TerminationWaitsForASlowSourceOnceAndTimesOut)
{
    startedOrder(nullptr);
    codexShutdownHeld = true;
    int shutdowns = 0;
    RackTermination termination(clock, [&] {
        ++shutdowns;
        return runtime->shutdown();
    });
    std::optional<int> exitCode;
    QObject::connect(&termination, &RackTermination::finished, [&](int code) { exitCode = code; });
    termination.request();
    termination.request();
    drainEvents();
    EXPECT_EQ(shutdowns, 1) << "a second request waits for the first";
    clock.advance(5s);
    drainEvents();
    EXPECT_FALSE(exitCode) << "no exit while a source is still shutting down";
    codexShutdownHeld = false;
    clock.advance(1s);
    ASSERT_TRUE(waitUntil([&] { return exitCode.has_value(); }));
    EXPECT_EQ(*exitCode, 0);
    EXPECT_TRUE(events.endsWith("claude shut down"));

    // A source that never finishes: past the limit the exit code says so.
    codexShutdownHeld = true;
    RackTermination stuck(clock, [&]() -> QCoro::Task<void> {
        while (codexShutdownHeld) {
            auto tick = clock.sleep(1s);
            co_await tick;
        }
    });
    std::optional<int> stuckCode;
    QObject::connect(&stuck, &RackTermination::finished, [&](int code) { stuckCode = code; });
    stuck.request();
    clock.advance(10s);
    ASSERT_TRUE(waitUntil([&] { return stuckCode.has_value(); }));
    EXPECT_EQ(*stuckCode, 1);
    codexShutdownHeld = false;
    clock.advance(1s);
}

} // namespace
