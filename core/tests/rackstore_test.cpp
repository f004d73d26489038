#include "core/rackstore.h"

#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;
using namespace std::chrono_literals;

namespace {

class RackStoreTest : public ::testing::Test
{
protected:
    FakeClock clock;
    FakeThreadSource source{QStringLiteral("Task providers")};
    InMemoryPreferences preferences;
    std::unique_ptr<RackStore> store = makeStore();

    std::unique_ptr<RackStore> makeStore()
    {
        return std::make_unique<RackStore>(source, nullptr, preferences, clock);
    }

    QDateTime at(int seconds) const { return clock.now().addSecs(seconds); }

    static ThreadCollection collection(QList<RackThread> threads, bool live = true)
    {
        return ThreadCollection{std::move(threads), QStringLiteral("Codex + Claude"), live, {}};
    }

    // Starts a refresh and leaves it waiting for the source's answer.
    QCoro::Task<void> beginRefresh() { return store->refresh(); }

    void finish(ThreadCollection answer)
    {
        source.respond(std::move(answer));
        ASSERT_TRUE(waitUntil([&] { return !store->isRefreshing(); }));
    }

    void refreshWith(ThreadCollection answer)
    {
        auto running = beginRefresh();
        finish(std::move(answer));
    }

    const RackThread *thread(const QString &id) const
    {
        for (const RackThread &t : store->allThreads()) {
            if (t.id == id)
                return &t;
        }
        return nullptr;
    }
};

TEST_F(RackStoreTest, TheFirstRequestFetchesAtOnceAndLaterOnesFoldIntoOneAfterTheWindow)
{
    store->scheduleRefresh();
    EXPECT_EQ(source.fetchCount(), 1) << "no waiting after a quiet spell";
    EXPECT_EQ(source.lastLimit(), RackStore::fetchLimit);
    finish(collection({}));
    clock.advance(100ms);
    store->scheduleRefresh();
    store->scheduleRefresh(0ms); // a stale-data request never waits behind the window
    EXPECT_EQ(source.fetchCount(), 2);
    finish(collection({}));
    clock.advance(20ms);
    store->scheduleRefresh();
    clock.advance(100ms);
    store->scheduleRefresh();
    clock.advance(59ms);
    EXPECT_EQ(source.fetchCount(), 2);
    clock.advance(1ms); // the window of the last fetch ends; the later request did not push it
    EXPECT_EQ(source.fetchCount(), 3);
    finish(collection({}));
    clock.advance(1000ms);
    EXPECT_EQ(source.fetchCount(), 3);
}

TEST_F(RackStoreTest, ARequestDuringAFetchOwesExactlyOneMoreAfterTheDebounce)
{
    auto running = beginRefresh();
    store->scheduleRefresh();
    store->scheduleRefresh();
    auto second = store->refresh();
    EXPECT_EQ(source.fetchCount(), 1);
    finish(collection({}));
    clock.advance(179ms);
    EXPECT_EQ(source.fetchCount(), 1);
    clock.advance(1ms);
    EXPECT_EQ(source.fetchCount(), 2);
    finish(collection({}));
    clock.advance(1000ms);
    EXPECT_EQ(source.fetchCount(), 2);
}

TEST_F(RackStoreTest, DataStateFollowsTheOutcome)
{
    EXPECT_EQ(store->dataState(), RackDataState::loading);
    EXPECT_EQ(store->sourceDescription(), "Connecting");

    refreshWith(collection({}));
    EXPECT_EQ(store->dataState(), RackDataState::empty);

    refreshWith(collection({makeThread("codex:a", RackStatus::working, at(0))}));
    EXPECT_EQ(store->dataState(), RackDataState::live);
    EXPECT_TRUE(store->isLive());

    ThreadCollection partial = collection({makeThread("codex:a", RackStatus::working, at(0))});
    partial.sourceFailures.append(
        {.sourceName = "Claude", .provider = std::nullopt, .component = std::nullopt});
    refreshWith(partial);
    EXPECT_EQ(store->dataState(), RackDataState::cached);

    refreshWith(collection({makeThread("codex:a", RackStatus::working, at(0))}, false));
    EXPECT_EQ(store->dataState(), RackDataState::cached);
}

TEST_F(RackStoreTest, AFailedRefreshKeepsThreadsAndReportsACachedSnapshot)
{
    auto running = beginRefresh();
    source.fail("disk on fire");
    ASSERT_TRUE(waitUntil([&] { return !store->isRefreshing(); }));
    EXPECT_EQ(store->dataState(), RackDataState::failed);
    EXPECT_EQ(store->sourceDescription(), "Unavailable");
    EXPECT_EQ(store->errorMessage(), "disk on fire");
    ASSERT_EQ(store->sourceFailures().size(), 1);
    EXPECT_EQ(store->sourceFailures()[0].state, ThreadSourceFailureState::unavailable);
    EXPECT_FALSE(store->sourceFailures()[0].isUsingCachedSnapshot);

    refreshWith(collection({makeThread("codex:a", RackStatus::idle, at(0))}));
    EXPECT_FALSE(store->errorMessage());
    auto again = beginRefresh();
    source.fail("gone again");
    ASSERT_TRUE(waitUntil([&] { return !store->isRefreshing(); }));
    EXPECT_EQ(store->dataState(), RackDataState::cached);
    EXPECT_EQ(store->allThreads().size(), 1);
    ASSERT_EQ(store->sourceFailures().size(), 1);
    EXPECT_EQ(store->sourceFailures()[0].sourceName, "Task providers");
    EXPECT_EQ(store->sourceFailures()[0].state, ThreadSourceFailureState::degraded);
    EXPECT_TRUE(store->sourceFailures()[0].isUsingCachedSnapshot);
    EXPECT_FALSE(store->isLive());
}

TEST_F(RackStoreTest, CancellingARefreshChangesNothingButIsRefreshing)
{
    refreshWith(collection({makeThread("codex:a", RackStatus::idle, at(0))}));
    const auto before = store->allThreads();
    const auto state = store->dataState();
    auto running = beginRefresh();
    EXPECT_TRUE(store->isRefreshing());
    store->cancelRefreshes();
    ASSERT_TRUE(waitUntil([&] { return !store->isRefreshing(); }));
    EXPECT_EQ(store->allThreads(), before);
    EXPECT_EQ(store->dataState(), state);
    EXPECT_FALSE(store->errorMessage());
    EXPECT_TRUE(store->sourceFailures().isEmpty());
}

TEST_F(RackStoreTest, APushedSnapshotDuringAFetchWinsForItsProvider)
{
    auto running = beginRefresh();
    ThreadCollection pushed{{makeThread("codex:new", RackStatus::working, at(5))},
                            "Codex",
                            true,
                            {{"Codex", ThreadSourceFailureState::degraded, true,
                              RackProvider::codex, std::nullopt, false}}};
    store->applyProviderSnapshot(pushed, RackProvider::codex);

    ThreadCollection fetched =
        collection({makeThread("codex:old", RackStatus::idle, at(0)),
                    makeThread("claude:c", RackStatus::idle, at(0), RackProvider::claudeDesktop)});
    fetched.sourceFailures.append(
        {.sourceName = "Codex", .provider = std::nullopt, .component = std::nullopt});
    finish(fetched);

    EXPECT_TRUE(thread("codex:new"));
    EXPECT_FALSE(thread("codex:old"));
    EXPECT_TRUE(thread("claude:c"));
    // The push's Codex failure survives; the fetch's failure with the same key gives way.
    ASSERT_EQ(store->sourceFailures().size(), 1);
    EXPECT_EQ(store->sourceFailures()[0].state, ThreadSourceFailureState::degraded);
}

TEST_F(RackStoreTest, APushedSnapshotReplacesOnlyItsProvider)
{
    refreshWith(
        collection({makeThread("codex:a", RackStatus::idle, at(0)),
                    makeThread("claude:b", RackStatus::idle, at(0), RackProvider::claudeDesktop)}));
    store->applyProviderSnapshot(
        {{makeThread("claude:c", RackStatus::working, at(1), RackProvider::claudeDesktop)},
         "Claude",
         true,
         {}},
        RackProvider::claudeDesktop);
    EXPECT_TRUE(thread("codex:a"));
    EXPECT_FALSE(thread("claude:b"));
    EXPECT_TRUE(thread("claude:c"));
    EXPECT_EQ(store->sourceDescription(), "Codex + Claude");
}

TEST_F(RackStoreTest, ASnapshotBegunBeforeALiveUpdateDoesNotWipeIt)
{
    refreshWith(collection({makeThread("codex:a", RackStatus::idle, at(0))}));
    auto running = beginRefresh();
    store->applyStatusUpdate({"codex:a", RackStatus::working, std::nullopt, std::nullopt});
    EXPECT_EQ(thread("codex:a")->status, RackStatus::working);
    finish(collection({makeThread("codex:a", RackStatus::idle, at(0))}));
    EXPECT_EQ(thread("codex:a")->status, RackStatus::working);
}

TEST_F(RackStoreTest, AnUpdateForAnUnknownThreadWaitsAndIsAppliedOnce)
{
    store->applyStatusUpdate({"codex:late", RackStatus::working, at(10), std::nullopt});
    EXPECT_TRUE(store->pendingUpdates().contains("codex:late"));
    clock.advance(180ms); // the update asked for a refresh
    EXPECT_EQ(source.fetchCount(), 1);
    finish(collection({makeThread("codex:late", RackStatus::idle, at(0))}));
    EXPECT_EQ(thread("codex:late")->status, RackStatus::working);
    EXPECT_TRUE(store->pendingUpdates()["codex:late"].hasBeenDiscovered);

    // A later snapshot whose revision and date are past the update removes the entry.
    refreshWith(collection({makeThread("codex:late", RackStatus::idle, at(20))}));
    EXPECT_EQ(thread("codex:late")->status, RackStatus::idle);
    EXPECT_FALSE(store->pendingUpdates().contains("codex:late"));
}

TEST_F(RackStoreTest, StaleLiveUpdatesAreDropped)
{
    refreshWith(collection({makeThread("codex:a", RackStatus::idle, at(10))}));
    store->applyStatusUpdate({"codex:a", RackStatus::working, at(5), std::nullopt});
    EXPECT_EQ(thread("codex:a")->status, RackStatus::idle);
    // ... unless it brings later activity.
    store->applyStatusUpdate({"codex:a", RackStatus::working, at(5), at(30)});
    EXPECT_EQ(thread("codex:a")->status, RackStatus::working);
    EXPECT_EQ(thread("codex:a")->recencyAt, at(30));
    // An update older than the one waiting for the same thread loses.
    store->applyStatusUpdate({"codex:a", RackStatus::error, at(4), at(31)});
    EXPECT_EQ(thread("codex:a")->status, RackStatus::working);
}

TEST_F(RackStoreTest, CodexUpdatesFindThreadsByProviderIdentifier)
{
    refreshWith(collection({makeThread("codex:abc", RackStatus::idle, at(0))}));
    store->applyCodexStatusUpdate("abc", RackStatus::working, std::nullopt, std::nullopt);
    EXPECT_EQ(thread("codex:abc")->status, RackStatus::working);
}

TEST_F(RackStoreTest, PendingUpdatesAreCappedByEvictingTheOldest)
{
    for (int i = 0; i <= RackStore::pendingCap; ++i)
        store->applyStatusUpdate(
            {QStringLiteral("codex:%1").arg(i), RackStatus::working, std::nullopt, std::nullopt});
    EXPECT_EQ(store->pendingUpdates().size(), RackStore::pendingCap);
    EXPECT_FALSE(store->pendingUpdates().contains("codex:0"));
    EXPECT_TRUE(store->pendingUpdates().contains("codex:800"));
}

TEST_F(RackStoreTest, PropertiesNotifyOnlyOnRealChanges)
{
    const auto threads = collection({makeThread("codex:a", RackStatus::idle, at(0)),
                                     makeThread("codex:b", RackStatus::working, at(1))});
    refreshWith(threads);
    QSignalSpy all(store.get(), &RackStore::allThreadsChanged);
    QSignalSpy ranked(store.get(), &RackStore::rankedThreadsChanged);
    QSignalSpy state(store.get(), &RackStore::dataStateChanged);
    QSignalSpy failures(store.get(), &RackStore::sourceFailuresChanged);
    refreshWith(threads);
    EXPECT_EQ(all.count(), 0);
    EXPECT_EQ(ranked.count(), 0);
    EXPECT_EQ(state.count(), 0);
    EXPECT_EQ(failures.count(), 0);
}

TEST_F(RackStoreTest, RefreshIfStaleSchedulesOnlyWhenOld)
{
    refreshWith(collection({}));
    store->refreshIfStale(2.0);
    clock.advance(0ms);
    EXPECT_EQ(source.fetchCount(), 1);
    clock.advance(2000ms);
    store->refreshIfStale(2.0);
    clock.advance(0ms);
    EXPECT_EQ(source.fetchCount(), 2);
}

} // namespace
