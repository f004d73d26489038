#include "core/rackprojectgroups.h"
#include "core/rackprojectidentity.h"
#include "core/rackranking.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace taskrack;

static void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace {

const QDateTime epoch = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);

RackProjectIdentity identity(const QString &id, const QStringList &moreAliases = {},
                             const QString &path = {})
{
    RackProjectIdentity result;
    result.id = id;
    result.name = id.section('/', -1).section(':', -1);
    result.workspacePath = path;
    result.aliases = QSet<QString>(moreAliases.begin(), moreAliases.end());
    result.aliases.insert(id);
    return result;
}

RackThread thread(const QString &id, RackStatus status, int secondsAfterEpoch,
                  const RackProjectIdentity &project, RackProvider provider = RackProvider::codex)
{
    RackThread result;
    result.id = id;
    result.provider = provider;
    result.status = status;
    result.recencyAt = epoch.addSecs(secondsAfterEpoch);
    result.updatedAt = result.recencyAt;
    result.projectIdentity = project;
    result.workspacePath = project.workspacePath;
    return result;
}

QList<RackProjectGroup> groupsOf(const QList<RackThread> &threads)
{
    return projectGroups(sortedInThreadOrder(threads));
}

QStringList idsOf(const QList<RackProjectGroup> &groups)
{
    QStringList ids;
    for (const auto &group : groups)
        ids.append(group.id);
    return ids;
}

QStringList idsOf(const QList<RackThread> &threads)
{
    QStringList ids;
    for (const auto &thread : threads)
        ids.append(thread.id);
    return ids;
}

QHash<QString, RackThread> byID(const QList<RackThread> &threads)
{
    QHash<QString, RackThread> result;
    for (const auto &thread : threads)
        result.insert(thread.id, thread);
    return result;
}

} // namespace

// --- Components ------------------------------------------------------------------------------

TEST(ProjectGroupsTest, ThreadsSharingAnyAliasFallTogetherTransitively)
{
    const QList<RackThread> threads{
        thread("t1", RackStatus::idle, 10, identity("/w/one", {"path:/w/one"})),
        thread("t2", RackStatus::idle, 20, identity("repository:r", {"path:/w/one", "git-directory:/g"})),
        thread("t3", RackStatus::idle, 30, identity("git-directory:/g", {"path:/w/three"})),
        thread("t4", RackStatus::idle, 40, identity("/w/four")),
    };
    const auto groups = groupsOf(threads);
    ASSERT_EQ(groups.size(), 2);
    EXPECT_EQ(groups[0].id, "/w/four");
    EXPECT_EQ(groups[1].id, "repository:r");
    EXPECT_EQ(idsOf(groups[1].threads), QStringList({"t3", "t2", "t1"}));
    EXPECT_EQ(groups[1].aliases,
              QSet<QString>({"/w/one", "path:/w/one", "repository:r", "git-directory:/g",
                             "path:/w/three"}));
    EXPECT_TRUE(projectGroups({}).isEmpty());
}

TEST(ProjectGroupsTest, ProvidersAndLastUsedProviderCoverAllMembers)
{
    const auto project = identity("/w/app");
    QList<RackThread> threads{
        thread("b", RackStatus::working, 50, project, RackProvider::codex),
        thread("a", RackStatus::recent, 50, project, RackProvider::claudeDesktop),
        thread("c", RackStatus::idle, 10, project, RackProvider::codex),
    };
    auto group = groupsOf(threads).value(0);
    EXPECT_EQ(group.providers, (std::set{RackProvider::codex, RackProvider::claudeDesktop}));
    // Equal recency: the smaller id decides.
    EXPECT_EQ(group.lastUsedProvider, RackProvider::claudeDesktop);

    threads[0].recencyAt = epoch.addSecs(60);
    EXPECT_EQ(groupsOf(threads).value(0).lastUsedProvider, RackProvider::codex);
}

// --- The identity that speaks for a group -------------------------------------------------------

struct PreferenceCase {
    const char *name;
    RackProjectIdentity challenger;
    RackProjectIdentity incumbent;
    bool challengerWins;
};

class IdentityPreferenceTest : public ::testing::TestWithParam<PreferenceCase> {};

TEST_P(IdentityPreferenceTest, Decides)
{
    EXPECT_EQ(isPreferredProjectIdentity(GetParam().challenger, GetParam().incumbent),
              GetParam().challengerWins);
}

static RackProjectIdentity chats()
{
    RackProjectIdentity result = identity(RackProjectIdentity::chatsID);
    result.name = "Chats";
    return result;
}

INSTANTIATE_TEST_SUITE_P(
    Rules, IdentityPreferenceTest,
    ::testing::Values(
        PreferenceCase{"checkoutBeatsAgentWorktree", identity("git-directory:/r/.git", {}, "/r/app"),
                       identity("repository:x", {}, "/h/.codex/worktrees/1a/app"), true},
        PreferenceCase{"agentWorktreeLosesEvenWhenStronger",
                       identity("repository:x", {}, "/h/.claude/worktrees/a/app"),
                       identity("/plain", {}, "/plain"), false},
        PreferenceCase{"chatsBeatsRepository", chats(), identity("repository:x", {}, "/a"), true},
        PreferenceCase{"repositoryDoesNotReplaceChats", identity("repository:x", {}, "/a"),
                       chats(), false},
        PreferenceCase{"repositoryBeatsGitDirectory", identity("repository:x", {}, "/long/path"),
                       identity("git-directory:/g", {}, "/a"), true},
        PreferenceCase{"gitDirectoryBeatsFolder", identity("git-directory:/g", {}, "/long/path"),
                       identity("/a", {}, "/a"), true},
        PreferenceCase{"shorterPathWins", identity("/ab", {}, "/ab"), identity("/abc", {}, "/abc"),
                       true},
        PreferenceCase{"longerPathLoses", identity("/abcd", {}, "/abcd"),
                       identity("/abc", {}, "/abc"), false},
        PreferenceCase{"equalLengthSortsCaseInsensitively", identity("/w/alfa", {}, "/w/alfa"),
                       identity("/w/Beta", {}, "/w/Beta"), true},
        PreferenceCase{"incumbentStaysOnATie", identity("repository:y", {}, "/w/a"),
                       identity("repository:x", {}, "/w/a"), false}),
    [](const auto &info) { return std::string(info.param.name); });

// --- What a group shows ------------------------------------------------------------------------

struct FillCase {
    const char *name;
    int active;            // idle threads
    int recentPlain;       // recent, no desktop identity
    int recentDesktop;     // recent, from the desktop catalog
    bool chatsProject;
    int shown;
};

class GroupFillTest : public ::testing::TestWithParam<FillCase> {};

TEST_P(GroupFillTest, PadsQuietProjectsToSix)
{
    const FillCase &fill = GetParam();
    const auto project = fill.chatsProject ? chats() : identity("/w/app", {}, "/w/app");
    QList<RackThread> threads;
    int second = 1000;
    auto add = [&](const QString &prefix, int count, RackStatus status, bool desktop) {
        for (int i = 0; i < count; ++i) {
            auto t = thread(prefix + QString::number(i), status, second -= 7, project);
            if (desktop)
                t.codexDesktopIdentity = CodexDesktopIdentity{"scope"};
            threads.append(t);
        }
    };
    add("active", fill.active, RackStatus::idle, false);
    add("plain", fill.recentPlain, RackStatus::recent, false);
    add("desktop", fill.recentDesktop, RackStatus::recent, true);

    const auto groups = groupsOf(threads);
    ASSERT_EQ(groups.size(), 1);
    const auto shown = groups[0].threads;
    EXPECT_EQ(shown.size(), fill.shown);
    // Whatever is shown stays in thread order, and padding takes the newest history first.
    EXPECT_EQ(shown, sortedInThreadOrder(shown));
    int paddedPlain = 0;
    for (const auto &t : shown) {
        if (t.id.startsWith("plain")) {
            EXPECT_EQ(t.id, "plain" + QString::number(paddedPlain++));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, GroupFillTest,
    ::testing::Values(FillCase{"eightPlainHistoryShowSix", 0, 8, 0, false, 6},
                      FillCase{"eightDesktopHistoryShowAll", 0, 0, 8, false, 8},
                      FillCase{"threeActiveTakeThreeHistory", 3, 8, 0, false, 6},
                      FillCase{"desktopHistoryCountsAsKept", 2, 5, 3, false, 6},
                      FillCase{"busyProjectIsNotPadded", 7, 4, 0, false, 7},
                      FillCase{"fewerThanSixShowsAll", 1, 2, 0, false, 3},
                      FillCase{"chatsKeepsEverything", 0, 9, 0, true, 9}),
    [](const auto &info) { return std::string(info.param.name); });

// --- Group status and order -----------------------------------------------------------------------

TEST(ProjectGroupsTest, GroupStatusIsTheMostUrgentThread)
{
    RackProjectGroup group;
    EXPECT_EQ(groupStatus(group), RackStatus::recent);
    const auto project = identity("/w");
    group.threads = {thread("a", RackStatus::idle, 0, project),
                     thread("b", RackStatus::requiresInput, 0, project),
                     thread("c", RackStatus::working, 0, project),
                     thread("d", RackStatus::error, 0, project)};
    // Frozen groups are not in thread order: the rank decides, not the position.
    EXPECT_EQ(groupStatus(group), RackStatus::working);
}

TEST(ProjectGroupsTest, GroupsAreOrderedByDotStatusRecencyNameAndID)
{
    auto dotted = identity("/w/dotted");
    dotted.dot = CodexDesktopDot{"key", "dotted", {}};
    const QList<RackThread> threads{
        thread("recentDotted", RackStatus::recent, 0, dotted),
        thread("inputNew", RackStatus::requiresInput, 90, identity("/w/input")),
        thread("workingOld", RackStatus::working, 10, identity("/w/working")),
        thread("idleNew", RackStatus::idle, 80, identity("/w/idleNew")),
        thread("idleOld", RackStatus::idle, 20, identity("/w/idleOld")),
        thread("sameBeta", RackStatus::idle, 5, identity("/x/Beta")),
        thread("sameAlpha", RackStatus::idle, 5, identity("/x/alpha")),
        thread("sameAlpha2", RackStatus::idle, 5, identity("/y/alpha")),
    };
    EXPECT_EQ(idsOf(groupsOf(threads)),
              QStringList({"/w/dotted", "/w/working", "/w/input", "/w/idleNew", "/w/idleOld",
                           "/x/alpha", "/y/alpha", "/x/Beta"}));
}

TEST(ProjectGroupsTest, NamesCompareWithNumbersByValueInTheDefaultLocale)
{
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    const QList<RackThread> threads{
        thread("ten", RackStatus::idle, 5, identity("/w/item 10")),
        thread("nine", RackStatus::idle, 5, identity("/w/Item 9")),
    };
    const auto ids = idsOf(groupsOf(threads));
    QLocale::setDefault(previous);
    EXPECT_EQ(ids, QStringList({"/w/Item 9", "/w/item 10"}));
}

// --- Real checkouts -----------------------------------------------------------------------------

class GroupedCheckouts : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(temp.isValid());
        root = QFileInfo(temp.path()).canonicalFilePath();
        home = root + "/home";
        ASSERT_TRUE(QDir().mkpath(home));
    }

    void git(const QString &cwd, const QStringList &args)
    {
        QProcess process;
        auto env = QProcessEnvironment::systemEnvironment();
        env.insert("GIT_CONFIG_NOSYSTEM", "1");
        env.insert("GIT_CONFIG_GLOBAL", "/dev/null");
        env.insert("HOME", home);
        process.setProcessEnvironment(env);
        process.setWorkingDirectory(cwd);
        process.start("git", QStringList{"-c", "user.name=Taskrack Test", "-c",
                                         "user.email=test@example.invalid", "-c",
                                         "init.defaultBranch=main"}
                                 + args);
        ASSERT_TRUE(process.waitForFinished(60000));
        ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    }

    QTemporaryDir temp;
    QString root;
    QString home;
};

TEST_F(GroupedCheckouts, AgentWorktreeAndPrimaryCheckoutFormOneGroupNamedByTheCheckout)
{
    const QString primary = root + "/src/app";
    const QString worktree = home + "/.codex/worktrees/1f2e/app";
    ASSERT_TRUE(QDir().mkpath(primary));
    git(primary, {"init", "-q"});
    git(primary, {"commit", "-q", "--allow-empty", "-m", "initial"});
    git(primary, {"worktree", "add", "-q", worktree, "-b", "agent"});

    const QList<RackThread> threads{
        thread("codex:w", RackStatus::working, 100, makeProjectIdentity(worktree, std::nullopt, home)),
        thread("claude:p", RackStatus::idle, 50, makeProjectIdentity(primary, std::nullopt, home),
               RackProvider::claudeDesktop),
    };
    const auto groups = groupsOf(threads);
    ASSERT_EQ(groups.size(), 1);
    EXPECT_EQ(groups[0].id, "git-directory:" + primary + "/.git");
    EXPECT_EQ(groups[0].name, "app");
    EXPECT_EQ(groups[0].workspacePath, primary);
    EXPECT_EQ(idsOf(groups[0].threads), QStringList({"codex:w", "claude:p"}));
    EXPECT_EQ(groups[0].lastUsedProvider, RackProvider::codex);
}

TEST_F(GroupedCheckouts, ScratchFoldersAndFolderlessThreadsGoToChats)
{
    const QString scratch = home + "/Documents/Codex/2025-06-01/first";
    ASSERT_TRUE(QDir().mkpath(scratch));
    QList<RackThread> threads;
    for (int i = 0; i < 8; ++i) {
        const QString folder = i % 2 ? scratch : home + "/Documents/Codex/2025-06-0" + QString::number(i % 9 + 1) + "-chat";
        threads.append(thread("chat" + QString::number(i), RackStatus::recent, i,
                              makeProjectIdentity(i == 7 ? QString() : folder, std::nullopt, home)));
    }
    threads.append(thread("project", RackStatus::idle, 0,
                          makeProjectIdentity(home + "/Documents/Codex/2025-06-01", std::nullopt, home)));

    const auto groups = groupsOf(threads);
    ASSERT_EQ(groups.size(), 2);
    const auto &chatsGroup = groups[0].isChats() ? groups[0] : groups[1];
    EXPECT_EQ(chatsGroup.name, "Chats");
    EXPECT_EQ(chatsGroup.workspacePath, "");
    EXPECT_EQ(chatsGroup.threads.size(), 8);
    EXPECT_FALSE(groups[0].isChats() && groups[1].isChats());
}

// --- Frozen order -------------------------------------------------------------------------------

TEST(FrozenProjectGroupsTest, GroupsOnScreenKeepTheirPlaceAndTakeFreshContent)
{
    const auto alpha = identity("/w/alpha");
    const auto beta = identity("/w/beta");
    const auto gone = identity("/w/gone");
    const QList<RackThread> before{
        thread("a1", RackStatus::working, 90, alpha), thread("a2", RackStatus::idle, 80, alpha),
        thread("b1", RackStatus::idle, 70, beta), thread("g1", RackStatus::idle, 60, gone),
    };
    const auto old = groupsOf(before);
    ASSERT_EQ(idsOf(old), QStringList({"/w/alpha", "/w/beta", "/w/gone"}));

    // Beta turns urgent, a2 starts working, alpha gains a thread, "gone" vanishes, a new
    // project appears.
    const QList<RackThread> after{
        thread("a1", RackStatus::idle, 90, alpha), thread("a2", RackStatus::working, 95, alpha),
        thread("a3", RackStatus::working, 99, alpha), thread("b1", RackStatus::working, 100, beta),
        thread("n1", RackStatus::working, 98, identity("/w/new")),
    };
    const auto fresh = groupsOf(after);
    ASSERT_EQ(idsOf(fresh), QStringList({"/w/beta", "/w/alpha", "/w/new"}));

    const auto frozen = frozenProjectGroups(old, fresh, byID(after));
    EXPECT_EQ(idsOf(frozen), QStringList({"/w/alpha", "/w/beta", "/w/new"}));
    EXPECT_EQ(idsOf(frozen[0].threads), QStringList({"a1", "a2", "a3"}));
    EXPECT_EQ(frozen[0].threads[1].status, RackStatus::working);
    EXPECT_EQ(frozen[1], fresh[0]);
    EXPECT_EQ(frozen[2], fresh[2]);
}

TEST(FrozenProjectGroupsTest, MergedGroupsStandAtTheFirstPlaceWithBothCardsInOrder)
{
    const auto one = identity("/w/one");
    const auto two = identity("repository:r", {"path:/w/two"}, "/w/two");
    const QList<RackThread> before{
        thread("x", RackStatus::idle, 50, identity("/w/x")),
        thread("one1", RackStatus::idle, 40, one), thread("two1", RackStatus::idle, 30, two),
        thread("two2", RackStatus::idle, 20, two), thread("mover", RackStatus::idle, 10, one),
    };
    const auto old = groupsOf(before);
    ASSERT_EQ(idsOf(old), QStringList({"/w/x", "/w/one", "repository:r"}));

    // An origin arrives for /w/one: both groups become one; "mover" moves to project x.
    const auto bridged = identity("repository:r", {"/w/one"}, "/w/one");
    const QList<RackThread> after{
        thread("x", RackStatus::idle, 50, identity("/w/x")),
        thread("one1", RackStatus::idle, 40, bridged), thread("two1", RackStatus::working, 30, two),
        thread("two2", RackStatus::idle, 20, two), thread("mover", RackStatus::idle, 10, identity("/w/x")),
    };
    const auto fresh = groupsOf(after);
    ASSERT_EQ(idsOf(fresh), QStringList({"repository:r", "/w/x"}));

    const auto frozen = frozenProjectGroups(old, fresh, byID(after));
    EXPECT_EQ(idsOf(frozen), QStringList({"/w/x", "repository:r"}));
    EXPECT_EQ(idsOf(frozen[0].threads), QStringList({"x", "mover"}));
    EXPECT_EQ(idsOf(frozen[1].threads), QStringList({"one1", "two1", "two2"}));
}

// --- The selected project -------------------------------------------------------------------------

TEST(ProjectSelectionTest, FollowsItsGroupThroughMergesAndFallsBack)
{
    using Persistence = ProjectSelectionChange::Persistence;
    const QList<RackThread> threads{
        thread("t1", RackStatus::working, 10, identity("repository:r", {"/w/one", "git-directory:/g"})),
        thread("t2", RackStatus::idle, 5, identity("/w/two")),
    };
    const auto groups = groupsOf(threads);
    ASSERT_EQ(idsOf(groups), QStringList({"repository:r", "/w/two"}));

    struct Case {
        std::optional<QString> project;
        std::optional<QString> thread;
        ProjectSelectionChange expected;
    };
    const Case cases[] = {
        {"/w/two", "t1", {"/w/two", Persistence::unchanged}},
        {"/w/one", std::nullopt, {"repository:r", Persistence::write}},
        {"git-directory:/g", "t2", {"repository:r", Persistence::write}},
        {"/w/gone", "t2", {"/w/two", Persistence::write}},
        {"/w/gone", "unknown", {"repository:r", Persistence::write}},
        {std::nullopt, std::nullopt, {"repository:r", Persistence::write}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.project.value_or("<none>").toStdString());
        EXPECT_EQ(bringSelectedProjectUpToDate(groups, c.project, c.thread), c.expected);
    }
    EXPECT_EQ(bringSelectedProjectUpToDate({}, "/w/two", "t2"),
              (ProjectSelectionChange{std::nullopt, Persistence::remove}));
}

TEST_F(GroupedCheckouts, SelectionMovesWithTheAliasWhenAnOriginMergesTwoGroups)
{
    const QString one = root + "/one";
    const QString two = root + "/two";
    ASSERT_TRUE(QDir().mkpath(one));
    ASSERT_TRUE(QDir().mkpath(two));
    const QString origin = "https://example.org/team/app.git";

    QList<RackThread> threads{
        thread("t1", RackStatus::idle, 10, makeProjectIdentity(one, std::nullopt, home)),
        thread("t2", RackStatus::working, 20, makeProjectIdentity(two, origin, home)),
    };
    auto groups = groupsOf(threads);
    ASSERT_EQ(groups.size(), 2);
    std::optional<QString> selected = one;
    ASSERT_EQ(bringSelectedProjectUpToDate(groups, selected, std::nullopt).persistence,
              ProjectSelectionChange::Persistence::unchanged);

    threads.append(thread("t3", RackStatus::idle, 30, makeProjectIdentity(one, origin, home)));
    groups = groupsOf(threads);
    ASSERT_EQ(groups.size(), 1);
    const auto change = bringSelectedProjectUpToDate(groups, selected, std::nullopt);
    EXPECT_EQ(change.selectedProjectID, "repository:https://example.org/team/app");
    EXPECT_EQ(change.persistence, ProjectSelectionChange::Persistence::write);
    // Two equally strong identities with paths of one length: the localised order decides.
    EXPECT_EQ(groups[0].workspacePath, one);
}
