#include "core/boundedchannel.h"

#include "testing/testsupport.h"

#include <QThread>
#include <gtest/gtest.h>
#include <thread>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

QCoro::Task<std::optional<int>> nextOf(ChannelPtr<int> channel, std::stop_token stop = {})
{
    auto next = channel->next(stop);
    co_return co_await next;
}

TEST(BoundedChannelTest, KeepsTheNewestWhenTheConsumerFallsBehind)
{
    auto channel = BoundedChannel<int>::create(3);
    for (int i = 1; i <= 5; ++i)
        channel->send(i);
    EXPECT_EQ(channel->size(), 3u);
    EXPECT_EQ(await(nextOf(channel)), 3);
    channel->finish();
    EXPECT_EQ(await(nextOf(channel)), 4) << "what was buffered is drained after the end";
    EXPECT_EQ(await(nextOf(channel)), 5);
    EXPECT_EQ(await(nextOf(channel)), std::nullopt);
    channel->send(6);
    EXPECT_EQ(await(nextOf(channel)), std::nullopt) << "nothing is accepted after the end";
}

TEST(BoundedChannelTest, AWaitingConsumerWakesOnItsOwnThreadForAnyProducer)
{
    auto channel = BoundedChannel<int>::create(8);
    std::optional<int> received;
    QThread *resumedOn = nullptr;
    // The closure is named: a coroutine reads its captures through it while suspended.
    auto consume = [&]() -> QCoro::Task<void> {
        auto next = channel->next();
        received = co_await next;
        resumedOn = QThread::currentThread();
    };
    auto consumer = consume();
    std::thread producer([&] { channel->send(42); });
    producer.join();
    ASSERT_TRUE(waitUntil([&] { return received.has_value(); }));
    EXPECT_EQ(*received, 42);
    EXPECT_EQ(resumedOn, QThread::currentThread());
}

TEST(BoundedChannelTest, CancellingTheWaitEndsItWithNothing)
{
    auto channel = BoundedChannel<int>::create(1);
    std::stop_source stop;
    bool done = false;
    std::optional<int> received = 7;
    auto consume = [&]() -> QCoro::Task<void> {
        received = co_await nextOf(channel, stop.get_token());
        done = true;
    };
    auto consumer = consume();
    drainEvents();
    EXPECT_FALSE(done);
    stop.request_stop();
    ASSERT_TRUE(waitUntil([&] { return done; }));
    EXPECT_EQ(received, std::nullopt);
}

} // namespace
