#include "app/rackruntime.h"

#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;
using namespace std::chrono_literals;

namespace {

class RackRuntimeTest : public ::testing::Test
{
protected:
    FakeClock clock;
    InMemoryPreferences preferences;
    std::shared_ptr<FakeThreadSource> codex = std::make_shared<FakeThreadSource>("Codex");
    LiveFeeds feeds{RackProvider::codex,
                    BoundedChannel<ThreadCollection>::create(4),
                    BoundedChannel<RackStatusUpdate>::create(32),
                    BoundedChannel<RackStatusUpdate>::create(32),
                    BoundedChannel<Invalidation>::create(1),
                    {},
                    {}};
    QStringList events;
    std::unique_ptr<RackRuntime> runtime;

    void SetUp() override
    {
        feeds.start = [this] { events.append("start"); };
        feeds.shutdown = [this]() -> QCoro::Task<void> {
            events.append("shutdown");
            co_return;
        };
        runtime = std::make_unique<RackRuntime>(SourceAssembly{{codex}, {feeds}, {}}, preferences, clock);
    }
};

TEST_F(RackRuntimeTest, FeedsReachTheStore)
{
    runtime->startLoops();
    EXPECT_EQ(events, QStringList{"start"});
    RackStore &store = runtime->store();

    feeds.snapshots->send({{makeThread("codex:abc", RackStatus::idle, clock.now())}, "Codex", true, {}});
    ASSERT_TRUE(waitUntil([&] { return store.allThreads().size() == 1; }));

    feeds.codexStatusUpdates->send({"abc", RackStatus::working, std::nullopt, std::nullopt});
    ASSERT_TRUE(waitUntil([&] { return store.allThreads()[0].status == RackStatus::working; }))
        << "Codex ids find the thread through the prefix";

    feeds.invalidations->send(Invalidation{});
    drainEvents();
    clock.advance(180ms);
    EXPECT_EQ(codex->fetchCount(), 1) << "an invalidation asks for a debounced refresh";
}

TEST_F(RackRuntimeTest, ShutdownStopsTheLoopsBeforeTheSourcesAndOnlyOnce)
{
    runtime->startLoops();
    awaitVoid(runtime->shutdown());
    awaitVoid(runtime->shutdown());
    EXPECT_EQ(events, QStringList({"start", "shutdown"}));
    feeds.snapshots->send({{makeThread("codex:late", RackStatus::idle, clock.now())}, "Codex", true, {}});
    drainEvents();
    EXPECT_TRUE(runtime->store().allThreads().isEmpty()) << "nothing reaches the store after shutdown";
}

} // namespace
