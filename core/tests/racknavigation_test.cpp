#include "core/racknavigation.h"

#include "testing/fakethreadsource.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

const QList<RackThread> list = {makeThread("a", RackStatus::working, {}),
                                makeThread("b", RackStatus::working, {}),
                                makeThread("c", RackStatus::working, {})};

TEST(RackNavigationTest, AListStepWrapsOrPassesThroughTheNewTaskKey)
{
    const struct
    {
        const char *name;
        RackSelection selection;
        bool newTaskStop;
        bool forward;
        std::optional<QString> next; // nothing: the new-task key
    } cases[] = {
        {"nothingSelectedForward", {}, false, true, "a"},
        {"nothingSelectedBackward", {}, false, false, "c"},
        {"lastWrapsToFirst", {.threadID = "c"}, false, true, "a"},
        {"firstWrapsToLast", {.threadID = "a"}, false, false, "c"},
        {"lastStepsOntoTheKey", {.threadID = "c"}, true, true, std::nullopt},
        {"firstStepsBackOntoTheKey", {.threadID = "a"}, true, false, std::nullopt},
        {"theKeyLeadsToTheFirst", {.threadID = "c", .isNewTaskSelected = true}, true, true, "a"},
        {"theKeyLeadsBackToTheLast", {.isNewTaskSelected = true}, true, false, "c"},
        {"inTheMiddle", {.threadID = "b"}, true, false, "a"},
        {"aThreadNotListedEntersAtTheNearEnd", {.threadID = "gone"}, true, false, "c"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(RackNavigation::walkList(list, c.selection, c.newTaskStop, c.forward), c.next);
    }
}

TEST(RackNavigationTest, TheRingOfStopsEndsEachProjectWithItsNewTaskKey)
{
    RackProjectGroup one, two;
    one.id = "one";
    one.threads = {list[0], list[1]};
    two.id = "two";
    two.threads = {list[2]};
    const QList<RackStop> ring = RackNavigation::stops({one, two});
    ASSERT_EQ(ring.size(), 5);
    EXPECT_EQ(ring[2], (RackStop{RackStop::Kind::newTask, "one", {}}));
    const RackSelection onKey{.projectID = "one", .isNewTaskSelected = true};
    EXPECT_EQ(RackNavigation::nextStop(ring, onKey, true), ring[3]);
    EXPECT_EQ(RackNavigation::nextStop(ring, {.threadID = "a"}, false), ring[4]);
    EXPECT_EQ(RackNavigation::nextStop({}, {}, true), std::nullopt);
    EXPECT_EQ(RackNavigation::nextProject({one, two}, "two", true), 0);
    EXPECT_EQ(RackNavigation::nextProject({one, two}, std::nullopt, false), 1);
    EXPECT_EQ(RackNavigation::nextProject({}, "one", true), -1);
}

} // namespace
