#include "core/compositethreadsource.h"

#include "testing/fakeclock.h"
#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

class CompositeThreadSourceTest : public ::testing::Test
{
protected:
    std::shared_ptr<FakeThreadSource> codex = std::make_shared<FakeThreadSource>("Codex");
    std::shared_ptr<FakeThreadSource> claude = std::make_shared<FakeThreadSource>("Claude");
    CompositeThreadSource composite{{codex, claude}};
    QDateTime now = QDateTime::fromMSecsSinceEpoch(1'790'000'000'000, Qt::UTC);

    ThreadCollection codexAnswer(bool live = true)
    {
        return {{makeThread("codex:a", RackStatus::working, now)}, "Codex app-server", live, {}};
    }
    ThreadCollection claudeAnswer()
    {
        return {{makeThread("claude:b", RackStatus::idle, now, RackProvider::claudeDesktop)},
                "Claude sessions",
                false,
                {}};
    }

    struct Outcome
    {
        std::optional<ThreadCollection> collection;
        std::exception_ptr error;
        bool done = false;
    };

    // Starts a fetch whose outcome lands in the returned record.
    std::shared_ptr<Outcome> start(std::stop_token stop = {})
    {
        auto outcome = std::make_shared<Outcome>();
        [](CompositeThreadSource &c, std::shared_ptr<Outcome> o,
           std::stop_token s) -> QCoro::Task<void> {
            try {
                o->collection = co_await c.fetchThreads(400, s);
            } catch (...) {
                o->error = std::current_exception();
            }
            o->done = true;
        }(composite, outcome, stop);
        return outcome;
    }

    ThreadCollection fetch(const std::function<void()> &answer)
    {
        auto outcome = start();
        answer();
        EXPECT_TRUE(waitUntil([&] { return outcome->done; }));
        if (outcome->error)
            std::rethrow_exception(outcome->error);
        return *outcome->collection;
    }
};

TEST_F(CompositeThreadSourceTest, NoMembersThrowsWithAnEmptyMessageList)
{
    CompositeThreadSource empty{{}};
    try {
        awaitVoid([](CompositeThreadSource &c) -> QCoro::Task<void> {
            co_await c.fetchThreads(400, {});
        }(empty));
        FAIL() << "expected a failure";
    } catch (const CompositeThreadSourceError &error) {
        EXPECT_EQ(error.description(), "Task sources are unavailable: ");
    }
}

TEST_F(CompositeThreadSourceTest, ResultsKeepCompletionOrderAndPassTheLimit)
{
    const ThreadCollection result = fetch([&] {
        claude->respond(claudeAnswer());
        drainEvents();
        codex->respond(codexAnswer());
    });
    EXPECT_EQ(codex->lastLimit(), 400);
    EXPECT_EQ(result.sourceDescription, "Claude sessions + Codex app-server");
    ASSERT_EQ(result.threads.size(), 2);
    EXPECT_EQ(result.threads[0].id, "claude:b");
    EXPECT_TRUE(result.isLive);
}

TEST_F(CompositeThreadSourceTest, AFailingMemberWithoutHistoryIsUnavailable)
{
    const ThreadCollection result = fetch([&] {
        codex->fail("no database");
        drainEvents();
        claude->respond(claudeAnswer());
    });
    EXPECT_EQ(result.threads.size(), 1);
    EXPECT_FALSE(result.isLive);
    EXPECT_EQ(result.sourceDescription, "Codex unavailable + Claude sessions");
    ASSERT_EQ(result.sourceFailures.size(), 1);
    EXPECT_EQ(result.sourceFailures[0],
              (ThreadSourceFailure{.sourceName = "Codex",
                                   .state = ThreadSourceFailureState::unavailable,
                                   .provider = std::nullopt,
                                   .component = std::nullopt}));
}

TEST_F(CompositeThreadSourceTest, AFailingMemberFallsBackToItsCachedAnswerWhichIsNeverLive)
{
    fetch([&] {
        codex->respond(codexAnswer(true));
        claude->respond(claudeAnswer());
    });
    const ThreadCollection result = fetch([&] {
        codex->fail("app-server crashed");
        claude->fail("no sessions folder");
    });
    EXPECT_EQ(result.threads.size(), 2);
    EXPECT_FALSE(result.isLive);
    EXPECT_TRUE(result.sourceDescription.contains("Codex app-server (cached)"));
    ASSERT_EQ(result.sourceFailures.size(), 2);
    EXPECT_EQ(result.sourceFailures[0].state, ThreadSourceFailureState::degraded);
    EXPECT_TRUE(result.sourceFailures[0].isUsingCachedSnapshot);
}

TEST_F(CompositeThreadSourceTest, EveryMemberFailingWithoutHistoryThrowsAllMessages)
{
    try {
        fetch([&] {
            codex->fail("one");
            drainEvents();
            claude->fail("two");
        });
        FAIL() << "expected a failure";
    } catch (const CompositeThreadSourceError &error) {
        EXPECT_EQ(error.description(), "Task sources are unavailable: Codex: one | Claude: two");
    }
}

TEST_F(CompositeThreadSourceTest, DuplicateFailuresAndDescriptionsAppearOnce)
{
    const ThreadSourceFailure shared{.sourceName = "Desktop",
                                     .state = ThreadSourceFailureState::degraded,
                                     .provider = std::nullopt,
                                     .component = std::nullopt,
                                     .isExpectedLimitation = true};
    ThreadCollection a = codexAnswer();
    a.sourceDescription = "Local";
    a.sourceFailures = {shared};
    ThreadCollection b = claudeAnswer();
    b.sourceDescription = "Local";
    b.sourceFailures = {shared};
    const ThreadCollection result = fetch([&] {
        codex->respond(a);
        claude->respond(b);
    });
    EXPECT_EQ(result.sourceDescription, "Local");
    EXPECT_EQ(result.sourceFailures.size(), 1);
}

TEST_F(CompositeThreadSourceTest, CancellingTheCallerLeavesTheCacheUntouched)
{
    fetch([&] {
        codex->respond(codexAnswer());
        claude->respond(claudeAnswer());
    });
    std::stop_source stop;
    auto outcome = start(stop.get_token());
    codex->respond({{}, "Codex (newer)", true, {}});
    drainEvents();
    stop.request_stop();
    ASSERT_TRUE(waitUntil([&] { return outcome->done; }));
    EXPECT_TRUE(outcome->error && isCancellation(outcome->error));

    // Had the cancelled fetch touched the cache, the cached answer would be the empty one.
    const ThreadCollection result = fetch([&] {
        codex->fail("down");
        claude->respond(claudeAnswer());
    });
    EXPECT_TRUE(result.sourceDescription.contains("Codex app-server (cached)"))
        << result.sourceDescription.toStdString();
}

TEST_F(CompositeThreadSourceTest, AHungMemberNeverHoldsTheOthersBackAndAnswersLater)
{
    FakeClock clock;
    CompositeThreadSource patient{{codex, claude}, &clock, std::chrono::milliseconds(3000)};
    auto fetchOnce = [&] {
        return [](CompositeThreadSource &c) -> QCoro::Task<ThreadCollection> {
            co_return co_await c.fetchThreads(400, {});
        }(patient);
    };
    auto first = fetchOnce();
    claude->respond(claudeAnswer());
    drainEvents();
    clock.advance(std::chrono::milliseconds(3000));
    const ThreadCollection result = await(std::move(first));
    EXPECT_EQ(result.sourceDescription, "Claude sessions + Codex did not answer");
    EXPECT_EQ(result.threads.size(), 1);
    ASSERT_EQ(result.sourceFailures.size(), 1);
    EXPECT_EQ(result.sourceFailures[0].state, ThreadSourceFailureState::unavailable);

    // The next call joins the busy member instead of asking it again.
    auto second = fetchOnce();
    claude->respond(claudeAnswer());
    drainEvents();
    EXPECT_EQ(codex->fetchCount(), 1);
    codex->respond(codexAnswer());
    EXPECT_EQ(await(std::move(second)).threads.size(), 2);
    auto late = [](ChannelPtr<ThreadFetchSuccess> channel) -> QCoro::Task<ThreadFetchSuccess> {
        co_return *co_await channel->next();
    }(patient.lateAnswers());
    const ThreadFetchSuccess answer = await(std::move(late));
    EXPECT_EQ(answer.index, 0);
    EXPECT_EQ(answer.collection, codexAnswer());
}

} // namespace
