#include "app/rackruntime.h"
#include "app/racktermination.h"
#include "app/sourceeventfeed.h"

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

// A source that answers fetches through a fake and writes down what the runtime asks of it.
class RecordingSource : public LiveThreadSource
{
public:
    RecordingSource(QString name, RackProvider provider, QStringList &events, FakeClock &clock,
                    bool &shutdownHeld)
        : fake(name), m_name(name.toLower()), m_provider(provider), m_events(events),
          m_clock(clock), m_shutdownHeld(shutdownHeld)
    {
    }

    QString sourceName() const override { return fake.sourceName(); }
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override
    {
        return fake.fetchThreads(limit, stop);
    }
    RackProvider provider() const override { return m_provider; }
    ChannelPtr<ThreadCollection> snapshots() const override { return m_snapshots; }
    ChannelPtr<RackStatusUpdate> statusUpdates() const override { return m_statusUpdates; }
    ChannelPtr<std::monostate> threadListInvalidations() const override { return m_invalidations; }
    void start() override { m_events.append(m_name + " start"); }
    QCoro::Task<void> sleep() override
    {
        m_events.append(m_name + " sleep");
        co_return;
    }
    QCoro::Task<void> wake() override
    {
        m_events.append(m_name + " wake");
        co_return;
    }
    void reconcileLocal() override { m_events.append(m_name + " reconcile"); }
    QCoro::Task<void> shutdown() override
    {
        m_events.append(m_name + " shutdown");
        while (m_shutdownHeld) {
            auto tick = m_clock.sleep(1s);
            co_await tick;
        }
        m_events.append(m_name + " shut down");
    }

    FakeThreadSource fake;

private:
    QString m_name;
    RackProvider m_provider;
    QStringList &m_events;
    FakeClock &m_clock;
    bool &m_shutdownHeld;
    ChannelPtr<ThreadCollection> m_snapshots = BoundedChannel<ThreadCollection>::create(4);
    ChannelPtr<RackStatusUpdate> m_statusUpdates = BoundedChannel<RackStatusUpdate>::create(32);
    ChannelPtr<std::monostate> m_invalidations = BoundedChannel<std::monostate>::create(1);
};

class RecordingEventFeed : public SourceEventFeed
{
public:
    explicit RecordingEventFeed(QStringList &events) : m_events(events) {}
    void start() override { m_events.append("events start"); }
    void stop() override { m_events.append("events stop"); }
    void refresh() override { m_events.append("events refresh"); }

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
    // Set by a test to hold the Codex shutdown until it says so.
    bool codexShutdownHeld = false;
    bool claudeShutdownHeld = false;
    std::shared_ptr<RecordingSource> codex;
    std::shared_ptr<RecordingSource> claude;
    std::unique_ptr<RackRuntime> runtime;

    void build()
    {
        codex = std::make_shared<RecordingSource>("Codex", RackProvider::codex, events, clock,
                                                  codexShutdownHeld);
        claude = std::make_shared<RecordingSource>("Claude", RackProvider::claudeDesktop, events,
                                                   clock, claudeShutdownHeld);
        runtime = std::make_unique<RackRuntime>(
            SourceAssembly{.sources = {codex, claude},
                           .eventFeeds = {std::make_shared<RecordingEventFeed>(events)},
                           .claudeHooks = {}},
            preferences, clock);
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
        EXPECT_TRUE(waitUntil(
            [&] { return codex->fake.fetchCount() == 1 && claude->fake.fetchCount() == 1; }));
        const QStringList beforeFetch = events;
        EXPECT_FALSE(started) << "start awaits the first refresh";
        codex->fake.respond(
            {{makeThread("codex:a", RackStatus::idle, clock.now())}, "Codex", true, {}});
        claude->fake.respond({{}, "Claude", true, {}});
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
         {"codex start", "claude start", "events start"},
         {"events stop", "codex shutdown", "codex shut down", "claude shutdown",
          "claude shut down"}},
        {true,
         {"codex start", "claude start", "input start", "events start"},
         {"input stop", "events stop", "codex shutdown", "codex shut down", "claude shutdown",
          "claude shut down"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.desktop ? "app" : "watch");
        events.clear();
        RecordingDesktop steps(events);
        EXPECT_EQ(startedOrder(c.desktop ? &steps : nullptr), c.start);
        awaitVoid(runtime->shutdown());
        awaitVoid(runtime->shutdown());
        EXPECT_EQ(events, c.stop) << "a second shutdown does nothing twice";
        codex->snapshots()->send(
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
    // Codex's updates arrive keyed as the store keys threads, as the repository sends them.
    codex->statusUpdates()->send({"codex:a", RackStatus::working, std::nullopt, std::nullopt});
    ASSERT_TRUE(waitUntil([&] { return store.allThreads()[0].status == RackStatus::working; }));

    emit systemEvents.willSleep();
    emit systemEvents.willSleep();
    emit systemEvents.didWake();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 5; }));
    EXPECT_EQ(events, QStringList({"codex sleep", "claude sleep", "codex wake", "claude wake",
                                   "events refresh"}))
        << "one sleep however often it is announced";
    clock.advance(180ms);
    EXPECT_TRUE(waitUntil([&] { return codex->fake.fetchCount() == 2; }))
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
