#include "panel/rackkeyrouter.h"

#include <gtest/gtest.h>

using namespace taskrack;

namespace {

using C = RackKeyCommand;
using F = RackKeyFocus;
constexpr uint cmd = RackModifier::command;
constexpr uint ctl = RackModifier::control;
constexpr uint shift = RackModifier::shift;

const QList<RackKeyBinding> defaults = {
    {C::toggleOrganization, 5, cmd},
    {C::activateSearch, 3, cmd},
    {C::markPageRead, 15, cmd},
    {C::togglePageLock, 37, cmd},
    {C::refresh, 15, cmd | shift},
    {C::showSettings, 43, cmd},
    {C::close, 13, cmd},
};
// `close` moved to Ctrl+Escape's neighbour and `refresh` onto Ctrl+K.
const QList<RackKeyBinding> rebound = {
    {C::toggleOrganization, 5, cmd},
    {C::activateSearch, 3, cmd},
    {C::markPageRead, 15, cmd},
    {C::togglePageLock, 37, cmd},
    {C::refresh, 40, cmd},
    {C::showSettings, 43, cmd},
    {C::close, 13, cmd | RackModifier::option},
};

struct Row
{
    const char *name;
    quint16 key;
    uint modifiers;
    F focus;
    RackKeyRoute expected;
    const QList<RackKeyBinding> *bindings = &defaults;
};

void PrintTo(const Row &c, std::ostream *os)
{
    *os << c.name;
}

RackKeyRoute slot(int n)
{
    return RackKeyRoute::toSlot(n);
}
RackKeyRoute to(C c)
{
    return RackKeyRoute::to(c);
}
const RackKeyRoute none = RackKeyRoute::none();

class RackKeyRouterTest : public ::testing::TestWithParam<Row>
{
};

TEST_P(RackKeyRouterTest, Routes)
{
    const Row &row = GetParam();
    // Caps Lock and other bits outside the mask never change a match.
    EXPECT_EQ(routeKey({row.key, row.modifiers | 65536}, row.focus, *row.bindings), row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RackKeyRouterTest,
    ::testing::Values(
        Row{"escape", 53, 0, F::grid, to(C::close)},
        Row{"ctrlEscapeOverReboundClose", 53, cmd, F::grid, to(C::close), &rebound},
        Row{"ctrlSuperEscapeIsNothing", 53, cmd | ctl, F::grid, none},
        Row{"digit1", 18, 0, F::grid, slot(0)}, Row{"keypad1", 83, 0, F::grid, slot(0)},
        Row{"digit5", 23, 0, F::grid, slot(4)}, Row{"digit6", 22, 0, F::grid, slot(5)},
        Row{"keypad6", 88, 0, F::grid, slot(5)}, Row{"digit7", 26, 0, F::grid, none},
        Row{"digit8", 28, 0, F::grid, none}, Row{"digit9", 25, 0, F::grid, none},
        Row{"shiftDigitIsNothing", 18, shift, F::grid, none},
        Row{"return", 36, 0, F::grid, to(C::open)}, Row{"keypadEnter", 76, 0, F::grid, to(C::open)},
        Row{"r", 15, 0, F::grid, to(C::markPageRead)},
        Row{"slash", 44, 0, F::grid, to(C::activateSearch)},
        Row{"left", 123, 0, F::grid, to(C::moveLeft)},
        Row{"right", 124, 0, F::grid, to(C::moveRight)}, Row{"up", 126, 0, F::grid, to(C::moveUp)},
        Row{"down", 125, 0, F::grid, to(C::moveDown)},
        Row{"upInSearch", 126, 0, F::searchField, to(C::pagePrevious)},
        Row{"downInSearch", 125, 0, F::searchField, to(C::pageNext)},
        Row{"pageUp", 116, 0, F::grid, to(C::pagePrevious)},
        Row{"pageDown", 121, 0, F::grid, to(C::pageNext)},
        Row{"home", 115, 0, F::grid, to(C::pageFirst)},
        Row{"end", 119, 0, F::grid, to(C::pageLast)},
        Row{"ctrlUp", 126, cmd, F::grid, to(C::moveToTop)},
        Row{"ctrlDown", 125, cmd, F::grid, to(C::moveToBottom)},
        Row{"ctrlUpInSearch", 126, cmd, F::searchField, none},
        Row{"ctrlG", 5, cmd, F::grid, to(C::toggleOrganization)},
        Row{"ctrlF", 3, cmd, F::grid, to(C::activateSearch)},
        Row{"ctrlR", 15, cmd, F::grid, to(C::markPageRead)},
        Row{"ctrlShiftR", 15, cmd | shift, F::grid, to(C::refresh)},
        Row{"ctrlL", 37, cmd, F::grid, to(C::togglePageLock)},
        Row{"ctrlComma", 43, cmd, F::grid, to(C::showSettings)},
        Row{"ctrlW", 13, cmd, F::grid, to(C::close)},
        Row{"reboundRefresh", 40, cmd, F::grid, to(C::refresh), &rebound},
        Row{"oldRefreshIsFree", 15, cmd | shift, F::grid, none, &rebound},
        Row{"reboundClose", 13, cmd | RackModifier::option, F::grid, to(C::close), &rebound},
        Row{"ctrlFInSearch", 3, cmd, F::searchField, to(C::activateSearch)},
        Row{"digitTypesInSearch", 19, 0, F::searchField, none},
        Row{"letterTypesInSearch", 15, 0, F::searchField, none},
        Row{"homeEditsInSearch", 115, 0, F::searchField, none},
        Row{"returnInSearch", 36, 0, F::searchField, to(C::open)},
        Row{"escapeInSearch", 53, 0, F::searchField, to(C::close)},
        Row{"arrowsInSearch", 124, 0, F::searchField, to(C::moveRight)},
        Row{"tabInSearch", 48, 0, F::searchField, to(C::endSearchEditing)},
        Row{"tabOnGrid", 48, 0, F::grid, none},
        Row{"onboardingEscape", 53, 0, F::onboarding, to(C::close)},
        Row{"onboardingTab", 48, 0, F::onboarding, none},
        Row{"onboardingDigit", 18, 0, F::onboarding, none},
        Row{"onboardingShortcut", 5, cmd, F::onboarding, none},
        Row{"onboardingCtrlEscape", 53, cmd, F::onboarding, to(C::close)}),
    [](const ::testing::TestParamInfo<Row> &info) { return std::string(info.param.name); });

TEST(RackKeyRouterCollisionTest, TheFirstMatchingBindingWins)
{
    // A stored set never collides (it is checked on load), but the router must still answer
    // one command for one key.
    const QList<RackKeyBinding> colliding = {{C::refresh, 15, cmd}, {C::markPageRead, 15, cmd}};
    EXPECT_EQ(routeKey({15, cmd}, F::grid, colliding), to(C::refresh));
}

} // namespace
