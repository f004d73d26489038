#include "core/coalescer.h"

#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;
using namespace std::chrono_literals;

namespace {

struct Timeline
{
    const char *name;
    std::vector<int> requests; // ms; negative: asked from inside the pass running at that moment
    std::vector<int> passes;
};

void PrintTo(const Timeline &c, std::ostream *os)
{
    *os << c.name;
}

class CoalescerTest : public ::testing::TestWithParam<Timeline>
{
};

// A 100 ms window, driven one fake millisecond at a time; `cancelAt` drops the owed pass.
TEST_P(CoalescerTest, PassesStartAtOnceThenAtMostOncePerWindow)
{
    FakeClock clock;
    std::vector<int> passes;
    const auto at = [&] { return int(std::lround(clock.uptime() * 1000.0)); };
    const auto asked = [&](int ms) {
        const auto &r = GetParam().requests;
        return std::find(r.begin(), r.end(), ms) != r.end();
    };
    std::unique_ptr<Coalescer> coalescer;
    coalescer = std::make_unique<Coalescer>(clock, 100ms, [&] {
        passes.push_back(at());
        if (at() > 0 && asked(-at()))
            coalescer->request();
    });
    for (int ms = 0; ms <= 600; ++ms) {
        clock.advance(ms > 0 ? 1ms : 0ms);
        drainEvents();
        if (asked(ms))
            coalescer->request();
        if (asked(1000 + ms))
            coalescer->cancel();
        drainEvents();
    }
    EXPECT_EQ(passes, GetParam().passes);
}

std::vector<int> every10(int from, int to)
{
    std::vector<int> values;
    for (int v = from; v <= to; v += 10)
        values.push_back(v);
    return values;
}

INSTANTIATE_TEST_SUITE_P(
    Timelines, CoalescerTest,
    ::testing::Values(Timeline{"lone", {5}, {5}}, Timeline{"burst", {0, 1, 2, 50, 99}, {0, 100}},
                      Timeline{"steadyStream", every10(0, 390), {0, 100, 200, 300, 400}},
                      Timeline{"eventDuringThePass", {10, -10}, {10, 110}},
                      Timeline{"justAfterTheWindow", {0, 100, 250}, {0, 100, 250}},
                      Timeline{"lateEventNeverDelaysTheOwedPass", {0, 30, 99}, {0, 100}},
                      Timeline{"cancelDropsTheOwedPass", {0, 30, 1050, 260}, {0, 260}}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
