#include "panel/rackviewmodel.h"

#include "panel/rackdemosource.h"
#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

class RackViewModelTest : public ::testing::Test
{
protected:
    void load(RackDemoOptions options = {})
    {
        source = std::make_unique<RackDemoSource>(options, clock);
        store = std::make_unique<RackStore>(*source, nullptr, preferences, clock);
        viewModel = std::make_unique<RackViewModel>(*store, palette);
        viewModel->setShortcutNames({"Ctrl+G", "Ctrl+R", "Ctrl+L", "Ctrl+Alt+K"});
        viewModel->setOnboardingFacts([this] { return facts; });
        awaitVoid(store->refresh());
        store->prepareForPresentation();
        viewModel->refreshNow();
    }
    QStringList kinds() const
    {
        QStringList result;
        for (const QVariantMap &row : viewModel->keyStrip()->rows())
            result.append(row.value("kind").toString());
        return result;
    }

    FakeClock clock;
    InMemoryPreferences preferences;
    RackPalette palette;
    RackOnboardingFacts facts;
    std::unique_ptr<RackDemoSource> source;
    std::unique_ptr<RackStore> store;
    std::unique_ptr<RackViewModel> viewModel;
};

TEST_F(RackViewModelTest, TheKeyStripAlwaysHasSixKeys)
{
    load();
    const QStringList six(6, "thread");
    EXPECT_EQ(kinds(), six);
    EXPECT_EQ(viewModel->pageText(), "1 / 2");
    store->movePage(true);
    viewModel->refreshNow();
    const int second = int(store->visibleThreads().size());
    ASSERT_GT(second, 0);
    ASSERT_LT(second, 6);
    EXPECT_EQ(kinds(), QStringList(second, "thread") + QStringList(6 - second, "empty"));

    store->setOrganizationMode(RackOrganizationMode::project);
    viewModel->refreshNow();
    const QStringList projectKinds = kinds();
    EXPECT_EQ(projectKinds.size(), 6);
    EXPECT_EQ(projectKinds.last(), "newTask");
    EXPECT_EQ(viewModel->keyStrip()->rows().last().value("accessibleText").toString(),
              "Create a new task in " + store->projectGroups().first().name +
                  ". Opens Quick Task with this project selected.");
    EXPECT_EQ(viewModel->projectRail()->count(), 4);
    QVariantMap shared;
    for (const QVariantMap &row : viewModel->projectRail()->rows()) {
        if (row.value("name") == "taskrack")
            shared = row;
    }
    EXPECT_EQ(shared.value("sharedText").toString(), "shared between Codex and Claude");
    EXPECT_TRUE(shared.value("countText").toString().endsWith(" available tasks"));

    store->activateSearch();
    store->setSearchQuery("a");
    viewModel->refreshNow();
    EXPECT_EQ(kinds().count("newTask"), 0) << "a search shows six results, no new-task key";
    store->setSearchQuery("nothing like this");
    viewModel->refreshNow();
    EXPECT_EQ(viewModel->content(), "searchEmpty");
    EXPECT_EQ(viewModel->emptyDetail(), "Nothing matches “nothing like this”");
}

TEST_F(RackViewModelTest, AStatusChangeUpdatesOnlyItsRow)
{
    load();
    viewModel->setActive(true);
    store->beginNavigation(); // an open rack holds its order
    const RackThread &changing = source->threads().first();
    store->applyStatusUpdate({changing.id, RackStatus::requiresInput, clock.now(), clock.now()});
    viewModel->refreshNow();
    EXPECT_EQ(viewModel->keyStrip()->lastChangeCount(), 1);
    EXPECT_EQ(viewModel->inputCount(), 3);
}

TEST_F(RackViewModelTest, ContentBannerAndStatusLineFollowTheSources)
{
    struct Row
    {
        RackDemoOptions::Data data;
        const char *content;
        const char *banner;
        const char *statusLine;
    };
    const Row rows[] = {
        {RackDemoOptions::Data::full, "keys", "", ""},
        {RackDemoOptions::Data::none, "empty", "", ""},
        {RackDemoOptions::Data::failing, "failed", "", "A live task source is offline"},
        {RackDemoOptions::Data::readOnly, "activityEmpty", "", ""},
        {RackDemoOptions::Data::partialClaude, "keys",
         "Claude partially unavailable — local tasks shown", "A live task source is offline"},
        {RackDemoOptions::Data::cachedCodex, "keys", "Codex reconnecting — cached tasks shown",
         "A live task source is offline"},
    };
    for (const Row &row : rows) {
        load(RackDemoOptions{row.data, 0});
        SCOPED_TRACE(row.content);
        EXPECT_EQ(viewModel->content(), row.content);
        EXPECT_EQ(viewModel->bannerText(), row.banner);
        EXPECT_EQ(viewModel->statusLine(), row.statusLine);
    }
    EXPECT_EQ(
        bannerText({ThreadSourceFailure{
            "Codex", ThreadSourceFailureState::unavailable, false, RackProvider::codex, {}, true}}),
        "")
        << "an expected limitation raises no banner";
    EXPECT_EQ(
        bannerText(
            {{"Claude",
              ThreadSourceFailureState::degraded,
              false,
              RackProvider::claudeDesktop,
              {},
              false},
             {"Codex", ThreadSourceFailureState::degraded, false, RackProvider::codex, {}, false}}),
        "Codex and Claude partially unavailable — local tasks shown");
}

TEST_F(RackViewModelTest, OnboardingAndHelpTexts)
{
    facts.hasMadeSetupChoice = false;
    load();
    EXPECT_EQ(viewModel->content(), "inputSetup");
    facts = {};
    facts.hasMadeClaudeChoice = false;
    viewModel->refreshNow();
    EXPECT_EQ(viewModel->content(), "claudeSetup") << "the demo has Claude tasks";
    facts = {};
    facts.isEnhancedShortcutReady = true;
    viewModel->refreshNow();
    EXPECT_TRUE(viewModel->helpText().startsWith(
        "Hold Right Ctrl and tap Right Alt to reveal and cycle the rack. Hold Shift to reverse. "
        "Ctrl+G "
        "cycles Activity, Projects, and History. Number keys one through five"));
    EXPECT_TRUE(viewModel->helpText().endsWith("Up and down arrows move between pages."));
    EXPECT_EQ(viewModel->pageLockText(), "Cycle current page only (Ctrl+L)");
    EXPECT_EQ(viewModel->modeShortcutHint(), "Ctrl+G to cycle Activity, Projects, and History");
}

TEST_F(RackViewModelTest, KeyTextsDescribeTheTask)
{
    load();
    store->setOrganizationMode(RackOrganizationMode::history);
    RackThread worktree;
    for (const RackThread &thread : source->threads()) {
        if (thread.checkoutMetadata.kind == RackCheckoutKind::linkedWorktree)
            worktree = thread;
    }
    EXPECT_EQ(
        keyAccessibilityText(worktree),
        "Add rate limiting to the public API, Working — Git worktree. Press Return to open this "
        "task in Codex");
    RackThread parent;
    parent.lineage.childCount = 2;
    EXPECT_EQ(lineageText(parent), "2 sessions started from this one");
    parent.lineage.childCount = 1;
    EXPECT_EQ(lineageText(parent), "1 session started from this one");
}

TEST(RackPaletteTest, TextAndDotsKeepTheirContrastInBothThemes)
{
    RackPalette palette;
    for (const bool dark : {false, true}) {
        palette.setDark(dark);
        for (const QColor &surface : {palette.card(), palette.background(), palette.backgroundEnd(),
                                      palette.selectionFill(), palette.emptyCard()}) {
            EXPECT_GE(RackPalette::contrast(palette.text(), surface), 4.5) << dark;
            EXPECT_GE(RackPalette::contrast(palette.secondaryText(), surface), 4.5)
                << dark << surface.name().toStdString();
            for (const char *status :
                 {"working", "requiresInput", "error", "completed", "idle", "recent"})
                EXPECT_GE(RackPalette::contrast(palette.statusColor(status), surface), 3.0)
                    << dark << status;
            for (const char *tint : {"gray", "cyan", "yellow", "orchid", "lime", "pink", "coral",
                                     "teal", "blue", "violet"})
                EXPECT_GE(RackPalette::contrast(palette.tintColor(tint), surface), 3.0)
                    << dark << tint;
        }
        EXPECT_GE(RackPalette::contrast(palette.card(), palette.accent()), 4.5)
            << "text on the accent";
        EXPECT_GE(RackPalette::contrast(palette.warning(), palette.warningFill()), 4.5);
    }
}

} // namespace

#include "panel/racksymbolitem.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QImage>
#include <QPainter>

namespace {

TEST(RackSymbolTest, EverySilhouetteAndTintIsDrawn)
{
    // One sheet of every silhouette in every tint, saved for a person to look at.
    using A = RackDotAppearance;
    RackPalette palette;
    QImage sheet(11 * 24, 10 * 24, QImage::Format_ARGB32);
    sheet.fill(palette.card());
    QPainter painter(&sheet);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int s = 0; s <= int(A::Silhouette::twelveScallopedRosette); ++s) {
        const QString shape = A::rawValue(A::Silhouette(s));
        const QPainterPath path = RackSymbolItem::path(shape, QRectF(0, 0, 20, 20));
        EXPECT_GT(path.boundingRect().width(), 12) << shape.toStdString();
        for (int t = 0; t <= int(A::Tint::violet); ++t)
            painter.fillPath(path.translated(s * 24 + 2, t * 24 + 2),
                             palette.tintColor(A::rawValue(A::Tint(t))));
    }
    painter.end();
    QDir().mkpath(taskrack::testing::binaryDir() + "/screenshots");
    sheet.save(taskrack::testing::binaryDir() + "/screenshots/silhouettes.png");
}

} // namespace
