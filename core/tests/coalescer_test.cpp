#include "core/coalescer.h"

#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;
using namespace std::chrono_literals;

namespace {

struct Case
{
    const char *name;
    // Moments (ms from the start) at which a pass is requested; a negative value asks for one
    // from inside the pass that runs at that (absolute) moment.
    std::vector<int> requests;
    std::vector<int> expectedPasses;
    int runUntil = 1000;
};

class CoalescerTest : public ::testing::TestWithParam<Case>
{
};

TEST_P(CoalescerTest, PassesStartAtOnceThenAtMostOncePerWindow)
{
    const Case &c = GetParam();
    FakeClock clock;
    std::vector<int> passes;
    std::vector<int> requestsInPass;
    for (int at : c.requests) {
        if (at < 0)
            requestsInPass.push_back(-at);
    }
    std::unique_ptr<Coalescer> coalescer;
    const auto elapsed = [&] { return int(std::lround(clock.uptime() * 1000.0)); };
    coalescer = std::make_unique<Coalescer>(clock, 100ms, [&] {
        passes.push_back(elapsed());
        if (std::find(requestsInPass.begin(), requestsInPass.end(), elapsed()) !=
            requestsInPass.end())
            coalescer->request();
    });
    for (int ms = 0; ms <= c.runUntil; ++ms) {
        if (ms > 0) {
            clock.advance(1ms);
            drainEvents();
        }
        for (int at : c.requests) {
            if (at == ms)
                coalescer->request();
        }
        drainEvents();
    }
    EXPECT_EQ(passes, c.expectedPasses);
}

std::vector<int> every(int from, int to, int step)
{
    std::vector<int> values;
    for (int v = from; v <= to; v += step)
        values.push_back(v);
    return values;
}

INSTANTIATE_TEST_SUITE_P(
    Timelines, CoalescerTest,
    ::testing::Values(Case{"lone", {5}, {5}}, Case{"burst", {0, 1, 2, 50, 99}, {0, 100}},
                      Case{"steadyStream", every(0, 390, 10), {0, 100, 200, 300, 400}},
                      Case{"eventDuringThePass", {10, -10}, {10, 110}},
                      Case{"justAfterTheWindow", {0, 100, 250}, {0, 100, 250}},
                      Case{"lateEventNeverDelaysTheOwedPass", {0, 30, 99}, {0, 100}},
                      Case{"quietAfterATrailingPass", {0, 40, 260}, {0, 100, 260}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(CoalescerLifetime, CancelAndDestructionDropTheOwedPass)
{
    FakeClock clock;
    int passes = 0;
    auto coalescer = std::make_unique<Coalescer>(clock, 100ms, [&] { ++passes; });
    coalescer->request();
    drainEvents();
    coalescer->request();
    coalescer->cancel();
    clock.advance(200ms);
    drainEvents();
    EXPECT_EQ(passes, 1);
    coalescer->request(); // after the window: at once
    drainEvents();
    coalescer->request();
    coalescer.reset();
    clock.advance(200ms);
    drainEvents();
    EXPECT_EQ(passes, 2);
}

} // namespace
