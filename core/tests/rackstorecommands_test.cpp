#include "core/rackstore.h"

#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

// An opener whose every open waits until the test lets it succeed or fail.
class GatedOpener : public ThreadOpening
{
public:
    QCoro::Task<void> open(RackThread thread) override
    {
        opened.append(thread.id);
        auto gate = BoundedChannel<QString>::create(1);
        m_gates.append(gate);
        auto next = gate->next();
        std::optional<QString> failure = co_await next;
        if (failure && !failure->isEmpty())
            throw TaskrackError(*failure);
    }
    // Answers the open with that index (in the order the opens began).
    void succeed(int index = 0) { m_gates.at(index)->send(QString()); }
    void fail(const QString &message, int index = 0) { m_gates.at(index)->send(message); }
    QStringList opened;

private:
    QList<ChannelPtr<QString>> m_gates;
};

class RackStoreCommandsTest : public ::testing::Test
{
protected:
    FakeClock clock;
    FakeThreadSource source;
    GatedOpener opener;
    InMemoryPreferences preferences;
    std::unique_ptr<RackStore> store =
        std::make_unique<RackStore>(source, &opener, preferences, clock);

    RackThread thread(const QString &id, RackStatus status, int age, const QString &project = "p")
    {
        RackThread t = makeThread(id, status, clock.now().addSecs(-age));
        t.workspacePath = "/src/" + project;
        t.projectIdentity = {"/src/" + project,
                             project,
                             "/src/" + project,
                             {"/src/" + project, "path:/src/" + project},
                             {}};
        return t;
    }

    void load(QList<RackThread> threads)
    {
        auto running = store->refresh();
        source.respond({std::move(threads), "Test", true, {}});
        ASSERT_TRUE(waitUntil([&] { return !store->isRefreshing(); }));
    }

    // Eight working threads, newest first: t0 … t7.
    void loadEight()
    {
        QList<RackThread> threads;
        for (int i = 0; i < 8; ++i)
            threads.append(thread(QStringLiteral("codex:t%1").arg(i), RackStatus::working, i));
        load(threads);
    }

    QString selected() const { return store->selectedThreadID().value_or("<none>"); }
};

TEST_F(RackStoreCommandsTest, StepWalksAllPagesWithWrap)
{
    loadEight();
    store->prepareForPresentation();
    EXPECT_EQ(selected(), "codex:t0");
    for (int i = 0; i < 6; ++i)
        store->step(true);
    EXPECT_EQ(selected(), "codex:t6");
    EXPECT_EQ(store->currentPage(), 1) << "the page follows the selection";
    store->step(true);
    store->step(true);
    EXPECT_EQ(selected(), "codex:t0") << "after the last comes the first";
    EXPECT_EQ(store->currentPage(), 0);
    store->step(false);
    EXPECT_EQ(selected(), "codex:t7");
    EXPECT_EQ(preferences.string("lastSelectedThreadID"), "codex:t7");
}

TEST_F(RackStoreCommandsTest, ThePageLockWrapsWithinThePage)
{
    loadEight();
    store->setCycleCurrentPageOnly(true);
    store->prepareForPresentation();
    store->moveToLast();
    EXPECT_EQ(store->currentPage(), 1);
    store->step(true);
    EXPECT_EQ(selected(), "codex:t6") << "the last visible thread steps to the first of the page";
    EXPECT_EQ(store->currentPage(), 1);
}

TEST_F(RackStoreCommandsTest, PageStepsWrapAndSelectTheFirstThread)
{
    loadEight();
    store->movePage(true);
    EXPECT_EQ(store->currentPage(), 1);
    EXPECT_EQ(selected(), "codex:t6");
    store->movePage(true);
    EXPECT_EQ(store->currentPage(), 0);
    EXPECT_EQ(selected(), "codex:t0");

    load({thread("codex:only", RackStatus::working, 0), thread("codex:two", RackStatus::idle, 0)});
    store->step(true);
    store->movePage(false);
    EXPECT_EQ(store->currentPage(), 0) << "one page stays on its page";
    EXPECT_EQ(selected(), "codex:only");
}

TEST_F(RackStoreCommandsTest, ProjectModeRingIncludesTheNewTaskStop)
{
    load({thread("codex:a", RackStatus::working, 0, "one"),
          thread("codex:b", RackStatus::idle, 1, "one")});
    store->setOrganizationMode(RackOrganizationMode::project);
    store->prepareForPresentation();
    ASSERT_EQ(store->projectGroups().size(), 1);
    EXPECT_EQ(store->stops().size(), 3);
    EXPECT_EQ(store->pageSize(), 5);

    store->step(true); // a → b (a was selected on presentation)
    EXPECT_EQ(selected(), "codex:b");
    store->step(true);
    EXPECT_TRUE(store->isNewTaskSelected());
    store->step(true);
    EXPECT_FALSE(store->isNewTaskSelected());
    EXPECT_EQ(selected(), "codex:a");
}

TEST_F(RackStoreCommandsTest, MoveProjectWalksGroupsButNotWhileSearching)
{
    load({thread("codex:a", RackStatus::working, 0, "one"),
          thread("codex:b", RackStatus::idle, 5, "two")});
    EXPECT_FALSE(store->moveProject(true)) << "only in project mode";
    store->setOrganizationMode(RackOrganizationMode::project);
    const QString first = *store->selectedProjectID();
    EXPECT_TRUE(store->moveProject(true));
    EXPECT_NE(*store->selectedProjectID(), first);
    EXPECT_EQ(preferences.string("selectedProjectID"), store->selectedProjectID());
    EXPECT_TRUE(store->moveProject(true));
    EXPECT_EQ(*store->selectedProjectID(), first);

    store->activateSearch();
    EXPECT_FALSE(store->moveProject(true)) << "a search field that is up keeps the project";
}

TEST_F(RackStoreCommandsTest, SearchFiltersEverythingAndRestoresTheSelectionAfterwards)
{
    QList<RackThread> threads;
    for (int i = 0; i < 8; ++i)
        threads.append(thread(QStringLiteral("codex:t%1").arg(i), RackStatus::working, i));
    threads[3].title = "Fix the login page";
    threads[5].title = "Login flow";
    threads[5].workspacePath = "/src/web";
    threads.append(thread("codex:old", RackStatus::recent, 100));
    threads.last().title = "Old login notes";
    load(threads);
    store->prepareForPresentation();
    store->moveToLast();
    ASSERT_EQ(selected(), "codex:t7");

    store->setSearchQuery("   ");
    EXPECT_EQ(store->rankedThreads().size(), 8) << "blanks are no search";

    store->setSearchQuery("login");
    EXPECT_EQ(store->rankedThreads().size(), 3) << "history-only threads are searched too";
    EXPECT_EQ(selected(), "codex:t3");
    store->setSearchQuery("login web");
    ASSERT_EQ(store->rankedThreads().size(), 1) << "one word in the title, one in the path";
    EXPECT_EQ(store->rankedThreads()[0].id, "codex:t5");

    const int blurs = store->searchBlurRequest();
    store->dismissSearch();
    EXPECT_EQ(store->searchBlurRequest(), blurs + 1);
    EXPECT_FALSE(store->isSearchPresented());
    EXPECT_EQ(selected(), "codex:t7");
    EXPECT_EQ(store->currentPage(), 1);

    store->setSearchQuery("login");
    store->endPresentation();
    EXPECT_FALSE(store->isSearchActive()) << "a search ends with its presentation";
    EXPECT_FALSE(store->isSearchPresented());
    EXPECT_EQ(store->rankedThreads().size(), 8);
}

TEST_F(RackStoreCommandsTest, AFrozenOrderKeepsCardsInPlaceAndAppendsNewThreads)
{
    load({thread("codex:a", RackStatus::idle, 0), thread("codex:b", RackStatus::idle, 10)});
    store->prepareForPresentation();
    store->step(true);
    store->applyStatusUpdate({"codex:b", RackStatus::working, std::nullopt, std::nullopt});
    store->applyProviderSnapshot(
        {{thread("codex:a", RackStatus::idle, 0), thread("codex:b", RackStatus::working, 10),
          thread("codex:new", RackStatus::working, 0)},
         "Codex",
         true,
         {}},
        RackProvider::codex);
    QStringList order;
    for (const RackThread &t : store->flatRankedThreads())
        order.append(t.id);
    EXPECT_EQ(order, QStringList({"codex:a", "codex:b", "codex:new"}));
    EXPECT_EQ(store->flatRankedThreads()[1].status, RackStatus::working);

    store->endPresentation();
    store->prepareForPresentation();
    EXPECT_EQ(store->flatRankedThreads()[0].status, RackStatus::working)
        << "a new presentation shows the true order";
}

TEST_F(RackStoreCommandsTest, ALateOpenResultNeverReportsOverANewerOne)
{
    load(
        {thread("codex:a", RackStatus::completed, 0), thread("codex:b", RackStatus::completed, 5)});
    auto first = store->open(store->allThreads()[0]);
    auto second = store->open(store->allThreads()[1]);
    EXPECT_EQ(opener.opened.size(), 2);
    opener.fail("The Codex app could not open this task.", 0);
    drainEvents();
    EXPECT_FALSE(store->errorMessage()) << "the first request is no longer the pending one";
    EXPECT_TRUE(store->pendingOpenID());
    opener.succeed(1);
    ASSERT_TRUE(waitUntil([&] { return !store->pendingOpenID(); }));
    EXPECT_FALSE(store->hasOpenError());
    EXPECT_EQ(store->openedThreadIDs().first(), store->allThreads().last().id);
}

TEST_F(RackStoreCommandsTest, OpeningReadsTheCompletionAndAFailureIsSticky)
{
    load({thread("codex:a", RackStatus::completed, 0)});
    auto opening = store->open(store->allThreads()[0]);
    opener.succeed();
    ASSERT_TRUE(waitUntil([&] { return !store->pendingOpenID(); }));
    EXPECT_EQ(store->allThreads()[0].status, RackStatus::recent);
    EXPECT_TRUE(store->flatRankedThreads().isEmpty());

    auto failing = store->open(store->allThreads()[0]);
    opener.fail("The Codex app is not installed.", 1);
    ASSERT_TRUE(waitUntil([&] { return store->hasOpenError(); }));
    load({thread("codex:a", RackStatus::completed, 0)});
    EXPECT_EQ(store->errorMessage(), "The Codex app is not installed.")
        << "a successful refresh leaves an open error standing";
    EXPECT_EQ(store->allThreads()[0].status, RackStatus::recent) << "still read after a refresh";
}

TEST_F(RackStoreCommandsTest, MarkAllReadTurnsUnreadCompletionsIntoHistory)
{
    load({thread("codex:a", RackStatus::completed, 0), thread("codex:b", RackStatus::working, 1)});
    EXPECT_EQ(store->markAllRead(), 1);
    EXPECT_EQ(store->allThreads()[0].status, RackStatus::recent);
    EXPECT_EQ(store->markAllRead(), 0);
}

} // namespace
