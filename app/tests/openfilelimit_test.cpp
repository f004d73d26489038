#include "app/openfilelimit.h"

#include <gtest/gtest.h>

using namespace taskrack;

namespace {

struct LimitCase
{
    const char *name;
    FileLimit before;
    std::optional<uint64_t> expectedSoft; // nothing: left alone
};

void PrintTo(const LimitCase &c, std::ostream *os)
{
    *os << c.name;
}

class OpenFileLimitTest : public ::testing::TestWithParam<LimitCase>
{
};

TEST_P(OpenFileLimitTest, RaisesTheSoftLimitTowardsTheTargetWithinTheHardLimit)
{
    const LimitCase c = GetParam();
    std::optional<FileLimit> written;
    OpenFileLimit limit{[&](int &) { return std::optional<FileLimit>(c.before); },
                        [&](const FileLimit &wanted, int &) {
                            written = wanted;
                            return true;
                        }};
    EXPECT_EQ(limit.raise(), c.expectedSoft);
    if (c.expectedSoft) {
        ASSERT_TRUE(written);
        EXPECT_EQ(written->soft, *c.expectedSoft);
        EXPECT_EQ(written->hard, c.before.hard);
    } else {
        EXPECT_FALSE(written);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Limits, OpenFileLimitTest,
    ::testing::Values(
        LimitCase{.name = "RaisedToTheTarget", .before = {1024, 1048576}, .expectedSoft = 10240},
        LimitCase{.name = "RaisedToTheHardLimit", .before = {1024, 5000}, .expectedSoft = 5000},
        LimitCase{.name = "AboveTheTargetLeftAlone",
                  .before = {20000, 1048576},
                  .expectedSoft = std::nullopt},
        LimitCase{.name = "AtTheHardLimitLeftAlone",
                  .before = {10240, 10240},
                  .expectedSoft = std::nullopt}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(OpenFileLimitFailureTest, FailuresAreSwallowed)
{
    OpenFileLimit unreadable{[](int &error) {
                                 error = 1;
                                 return std::optional<FileLimit>();
                             },
                             [](const FileLimit &, int &) { return true; }};
    EXPECT_EQ(unreadable.raise(), std::nullopt);
    OpenFileLimit unwritable{[](int &) {
                                 return std::optional<FileLimit>(FileLimit{1, 100});
                             },
                             [](const FileLimit &, int &error) {
                                 error = 1;
                                 return false;
                             }};
    EXPECT_EQ(unwritable.raise(), std::nullopt);
}

} // namespace
