#include "panel/rackpanelcontroller.h"

#include "core/boundedchannel.h"
#include "core/rackstore.h"
#include "panel/rackdemosource.h"
#include "panel/rackviewmodel.h"
#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

class FakeWindow : public RackPanelWindow
{
public:
    QList<RackScreen> screens() const override
    {
        return {{{0, 0, 1280, 800}, {0, 0, 1280, 800}, true}};
    }
    std::optional<QPoint> pointer() const override { return QPoint(5, 5); }
    void setFrame(const QRect &frame) override { this->frame = frame; }
    void show() override { mapped = true; }
    void hide(bool restoreFocus) override
    {
        mapped = false;
        restoredFocus = restoreFocus;
    }
    void renderOffscreen() override { ++offscreenRenders; }

    QRect frame;
    bool mapped = false;
    bool restoredFocus = false;
    int offscreenRenders = 0;
};

// Every open waits until the test answers it.
class GatedOpener : public ThreadOpening
{
public:
    QCoro::Task<void> open(RackThread thread) override
    {
        opened.append(thread.id);
        auto gate = BoundedChannel<bool>::create(1);
        gates.append(gate);
        auto next = gate->next();
        const std::optional<bool> ok = co_await next;
        if (!ok.value_or(false))
            throw TaskrackError(QStringLiteral("The Codex app could not open this task."));
    }
    QStringList opened;
    QList<ChannelPtr<bool>> gates;
};

class RackPanelControllerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        awaitVoid(store.refresh());
        controller.setBindings({{RackKeyCommand::activateSearch, 3, RackModifier::command}});
    }
    void TearDown() override
    {
        // Opens still waiting end, so that no coroutine outlives the test.
        for (const ChannelPtr<bool> &gate : opener.gates)
            gate->send(true);
        drainEvents();
    }
    bool key(quint16 code, uint modifiers = 0, RackKeyFocus focus = RackKeyFocus::grid)
    {
        return controller.handleKey({code, modifiers}, focus);
    }

    FakeClock clock;
    RackDemoSource source{RackDemoOptions{}, clock};
    GatedOpener opener;
    InMemoryPreferences preferences;
    RackStore store{source, &opener, preferences, clock};
    RackPalette palette;
    RackViewModel viewModel{store, palette};
    FakeWindow window;
    int cancelled = 0;
    QStringList created;
    RackPanelController controller{
        store, viewModel, window, clock,
        RackPanelActions{[this] { ++cancelled; },
                         [this](const RackProjectGroup &g) { created.append(g.name); },
                         {},
                         {},
                         {}}};
};

TEST_F(RackPanelControllerTest, PresentPlacesAndHideEndsThePresentation)
{
    controller.present();
    EXPECT_TRUE(window.mapped);
    EXPECT_EQ(window.frame, QRect(156, 62, 968, 240));
    EXPECT_TRUE(store.isPresenting());
    EXPECT_TRUE(key(53));
    EXPECT_FALSE(window.mapped);
    EXPECT_TRUE(window.restoredFocus) << "closing without an open hands the focus back";
    EXPECT_EQ(cancelled, 1);
    EXPECT_FALSE(store.isPresenting());
    EXPECT_FALSE(key(53)) << "no keys while hidden";
}

TEST_F(RackPanelControllerTest, ALateOpenAfterReshowDoesNotCloseTheNewRack)
{
    controller.present();
    key(36);
    ASSERT_EQ(opener.opened.size(), 1);
    EXPECT_TRUE(key(36)) << "Return is taken";
    EXPECT_EQ(opener.opened.size(), 1) << "a commit during an open does nothing";
    controller.hide();
    controller.present();
    opener.gates.first()->send(true);
    drainEvents();
    EXPECT_TRUE(controller.isPresented()) << "the open belonged to the rack that went away";
    key(36);
    opener.gates.last()->send(true);
    ASSERT_TRUE(waitUntil([&] { return !controller.isPresented(); }));
    EXPECT_FALSE(window.restoredFocus) << "the provider keeps the focus after an open";
}

TEST_F(RackPanelControllerTest, AFailedOpenKeepsTheRackAndShowsTheErrorUntilItHides)
{
    controller.present();
    key(36);
    opener.gates.first()->send(false);
    ASSERT_TRUE(waitUntil([&] { return store.hasOpenError(); }));
    EXPECT_TRUE(controller.isPresented());
    viewModel.refreshNow();
    EXPECT_EQ(viewModel.openError(), "The Codex app could not open this task.");
    controller.hide();
    EXPECT_FALSE(store.hasOpenError());
}

TEST_F(RackPanelControllerTest, GestureRevealStepsWithAnimationAndCommitKeepsAnOpenSearch)
{
    controller.handle(HotkeyEvent::reveal);
    const QString first = *store.selectedThreadID();
    controller.handle(HotkeyEvent::cycle);
    EXPECT_EQ(viewModel.selectionAnimation(), RackPanelController::firstStepAnimationMs);
    EXPECT_NE(*store.selectedThreadID(), first);
    controller.handle(HotkeyEvent::cycle);
    EXPECT_EQ(viewModel.selectionAnimation(), 0) << "only the first step animates";

    EXPECT_TRUE(key(3, RackModifier::command));
    EXPECT_TRUE(store.isSearchPresented());
    controller.handle(HotkeyEvent::commit);
    EXPECT_TRUE(controller.isPresented()) << "releasing during a search keeps the rack";
    EXPECT_TRUE(opener.opened.isEmpty());
    EXPECT_TRUE(key(53, 0, RackKeyFocus::searchField));
    EXPECT_FALSE(store.isSearchPresented()) << "the first Escape leaves the search";
    EXPECT_TRUE(controller.isPresented());
}

TEST_F(RackPanelControllerTest, NumberKeysActOnWhatTheKeyShows)
{
    controller.present();
    store.setOrganizationMode(RackOrganizationMode::project);
    const qsizetype shown = store.visibleThreads().size();
    ASSERT_LT(shown, 5) << "the demo's first project leaves empty keys";
    key(18 + int(shown)); // the first empty key
    EXPECT_FALSE(store.isNewTaskSelected()) << "an empty key does nothing";
    key(22);
    EXPECT_TRUE(store.isNewTaskSelected()) << "6 is the new-task key in project mode";
    key(36);
    EXPECT_EQ(created, QStringList{store.projectGroups().first().name});
    EXPECT_FALSE(controller.isPresented());
}

TEST_F(RackPanelControllerTest, GestureCommitWithNothingSelectedHidesAndReturnDoesNothing)
{
    controller.present();
    store.activateSearch();
    store.setSearchQuery("no such task anywhere");
    EXPECT_TRUE(key(36, 0, RackKeyFocus::searchField));
    EXPECT_TRUE(controller.isPresented());
    EXPECT_TRUE(opener.opened.isEmpty());
    store.dismissSearch();
    store.setOrganizationMode(RackOrganizationMode::project);
    key(22);
    store.setOrganizationMode(RackOrganizationMode::activity);
    store.setSearchQuery("");
    controller.hide();
    controller.present();
    store.activateSearch();
    store.setSearchQuery("zzz");
    store.requestSearchBlur();
    controller.handle(HotkeyEvent::commit);
    EXPECT_TRUE(controller.isPresented()) << "the search field is still up";
    store.dismissSearch();
    controller.handle(HotkeyEvent::commit);
    EXPECT_EQ(opener.opened.size(), 1) << "with a selection the gesture opens";
}

TEST_F(RackPanelControllerTest, PrewarmRendersWithoutMapping)
{
    controller.prewarm();
    EXPECT_EQ(window.offscreenRenders, 1);
    EXPECT_FALSE(window.mapped);
    EXPECT_FALSE(controller.isPresented());
}

} // namespace
