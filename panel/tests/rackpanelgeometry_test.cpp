#include "panel/rackpanelgeometry.h"

#include <gtest/gtest.h>

using namespace taskrack;

namespace {

const RackScreen left{{0, 0, 1920, 1080}, {0, 32, 1920, 1048}, true};
const RackScreen right{{1920, 0, 1280, 1024}, {1920, 0, 1280, 1024}, false};
const RackScreen narrow{{0, 0, 700, 900}, {0, 0, 700, 900}, true};

struct Row
{
    const char *name;
    QList<RackScreen> screens;
    std::optional<QPoint> pointer;
    std::optional<QRect> expected;
};

void PrintTo(const Row &c, std::ostream *os)
{
    *os << c.name;
}

class RackPanelGeometryTest : public ::testing::TestWithParam<Row>
{
};

TEST_P(RackPanelGeometryTest, Frame)
{
    EXPECT_EQ(RackPanelGeometry::frame(GetParam().screens, GetParam().pointer),
              GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RackPanelGeometryTest,
    ::testing::Values(
        Row{"pointerOnPrimary", {left, right}, QPoint(100, 100), QRect(476, 94, 968, 240)},
        Row{"pointerOnSecond", {left, right}, QPoint(2000, 500), QRect(2076, 62, 968, 240)},
        Row{"pointerOffEveryScreenUsesPrimary",
            {right, left},
            QPoint(-50, -50),
            QRect(476, 94, 968, 240)},
        Row{"noPointerUsesPrimary", {right, left}, std::nullopt, QRect(476, 94, 968, 240)},
        Row{"noPrimaryUsesFirst", {right}, std::nullopt, QRect(2076, 62, 968, 240)},
        Row{"narrowScreen", {narrow}, QPoint(10, 10), QRect(24, 62, 652, 240)},
        Row{"noScreen", {}, QPoint(10, 10), std::nullopt}),
    [](const ::testing::TestParamInfo<Row> &info) { return std::string(info.param.name); });

} // namespace
