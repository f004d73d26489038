#include "core/rackprojectgroups.h"
#include "core/rackprojectidentity.h"
#include "core/rackranking.h"
#include "platform/linux/linuxfilesystem.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace taskrack;

static const LinuxFileSystem fileSystem;

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

RackProjectIdentity chats()
{
    return identity(RackProjectIdentity::chatsID);
}

RackThread thread(const QString &id, RackStatus status, int seconds,
                  const RackProjectIdentity &project, RackProvider provider = RackProvider::codex)
{
    RackThread result;
    result.id = id;
    result.provider = provider;
    result.status = status;
    result.recencyAt = result.updatedAt = epoch.addSecs(seconds);
    result.projectIdentity = project;
    return result;
}

QList<RackProjectGroup> groupsOf(const QList<RackThread> &threads)
{
    return projectGroups(sortedInThreadOrder(threads));
}

template <typename List> QStringList idsOf(const List &items)
{
    QStringList ids;
    for (const auto &item : items)
        ids.append(item.id);
    return ids;
}

QHash<QString, RackThread> byID(const QList<RackThread> &threads)
{
    QHash<QString, RackThread> result;
    for (const auto &t : threads)
        result.insert(t.id, t);
    return result;
}

} // namespace

TEST(ProjectGroupsTest, ThreadsSharingAnyAliasFallTogetherTransitively)
{
    const QList<RackThread> threads{
        thread("t1", RackStatus::idle, 10, identity("/w/one", {"path:/w/one"})),
        thread("t2", RackStatus::idle, 20,
               identity("repository:r", {"path:/w/one", "git-directory:/g"})),
        thread("t3", RackStatus::idle, 30, identity("git-directory:/g")),
        thread("t4", RackStatus::idle, 40, identity("/w/four")),
    };
    const auto groups = groupsOf(threads);
    EXPECT_EQ(idsOf(groups), QStringList({"/w/four", "repository:r"}));
    EXPECT_EQ(idsOf(groups[1].threads), QStringList({"t3", "t2", "t1"}));
    EXPECT_EQ(groups[1].aliases,
              QSet<QString>({"/w/one", "path:/w/one", "repository:r", "git-directory:/g"}));
    EXPECT_TRUE(projectGroups({}).isEmpty());
}

TEST(ProjectGroupsTest, ProvidersAndLastUsedProviderCoverAllMembers)
{
    const auto project = identity("/w/app");
    QList<RackThread> threads{
        thread("b", RackStatus::working, 50, project, RackProvider::codex),
        thread("a", RackStatus::recent, 50, project, RackProvider::claudeDesktop)};
    const auto group = groupsOf(threads).value(0);
    EXPECT_EQ(group.providers, (std::set{RackProvider::codex, RackProvider::claudeDesktop}));
    EXPECT_EQ(group.lastUsedProvider, RackProvider::claudeDesktop); // equal recency: smaller id
    threads[0].recencyAt = epoch.addSecs(60);
    EXPECT_EQ(groupsOf(threads).value(0).lastUsedProvider, RackProvider::codex);
}

TEST(ProjectGroupsTest, IdentityPreferenceRules)
{
    const struct
    {
        const char *name;
        RackProjectIdentity challenger;
        RackProjectIdentity incumbent;
        bool challengerWins;
    } cases[] = {
        {"checkoutBeatsAgentWorktree", identity("/r/app", {}, "/r/app"),
         identity("repository:x", {}, "/h/.codex/worktrees/1a/app"), true},
        {"agentWorktreeLosesEvenWhenStronger",
         identity("repository:x", {}, "/h/.claude/worktrees/a/app"),
         identity("/plain", {}, "/plain"), false},
        {"chatsBeatsRepository", chats(), identity("repository:x", {}, "/a"), true},
        {"repositoryBeatsGitDirectory", identity("repository:x", {}, "/long/path"),
         identity("git-directory:/g", {}, "/a"), true},
        {"gitDirectoryBeatsFolder", identity("git-directory:/g", {}, "/long/path"),
         identity("/a", {}, "/a"), true},
        {"shorterPathWins", identity("/ab", {}, "/ab"), identity("/abc", {}, "/abc"), true},
        {"equalLengthSortsCaseInsensitively", identity("/w/alfa", {}, "/w/alfa"),
         identity("/w/Beta", {}, "/w/Beta"), true},
        {"incumbentStaysOnATie", identity("repository:y", {}, "/w/a"),
         identity("repository:x", {}, "/w/a"), false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(isPreferredProjectIdentity(c.challenger, c.incumbent), c.challengerWins)
            << c.name;
}

TEST(ProjectGroupsTest, PadsQuietProjectsToSixWithTheNewestHistory)
{
    const struct
    {
        const char *name;
        int idle;
        int recentPlain;   // history without a desktop identity
        int recentDesktop; // history from the desktop catalog
        bool chatsProject;
        int shown;
    } cases[] = {
        {"eightPlainHistoryShowSix", 0, 8, 0, false, 6},
        {"eightDesktopHistoryShowAll", 0, 0, 8, false, 8},
        {"threeIdleTakeThreeHistory", 3, 8, 0, false, 6},
        {"desktopHistoryCountsAsKept", 2, 5, 3, false, 6},
        {"busyProjectIsNotPadded", 7, 4, 0, false, 7},
        {"chatsKeepsEverything", 0, 9, 0, true, 9},
    };
    for (const auto &fill : cases) {
        SCOPED_TRACE(fill.name);
        const auto project = fill.chatsProject ? chats() : identity("/w/app");
        QList<RackThread> threads;
        int seconds = 1000;
        auto add = [&](const char *prefix, int count, RackStatus status, bool desktop) {
            for (int i = 0; i < count; ++i) {
                threads.append(thread(prefix + QString::number(i), status, seconds -= 7, project));
                if (desktop)
                    threads.back().codexDesktopIdentity = CodexDesktopIdentity{"scope"};
            }
        };
        add("idle", fill.idle, RackStatus::idle, false);
        add("plain", fill.recentPlain, RackStatus::recent, false);
        add("desktop", fill.recentDesktop, RackStatus::recent, true);

        const auto shown = groupsOf(threads).value(0).threads;
        EXPECT_EQ(shown.size(), fill.shown);
        EXPECT_EQ(shown, sortedInThreadOrder(shown));
        int padded = 0; // the padding is the newest plain history, in order
        for (const auto &t : shown) {
            if (t.id.startsWith("plain")) {
                EXPECT_EQ(t.id, "plain" + QString::number(padded++));
            }
        }
    }
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
        thread("tieBeta", RackStatus::idle, 5, identity("/x/Beta")),
        thread("tieAlpha", RackStatus::idle, 5, identity("/x/alpha")),
        thread("tieAlpha2", RackStatus::idle, 5, identity("/y/alpha")),
    };
    EXPECT_EQ(idsOf(groupsOf(threads)),
              QStringList({"/w/dotted", "/w/working", "/w/input", "/w/idleNew", "/w/idleOld",
                           "/x/alpha", "/y/alpha", "/x/Beta"}));

    // A frozen group is out of thread order: the rank decides its status, not the position.
    RackProjectGroup group;
    EXPECT_EQ(groupStatus(group), RackStatus::recent);
    group.threads = {threads[3], threads[1], threads[2]};
    EXPECT_EQ(groupStatus(group), RackStatus::working);
}

TEST(ProjectGroupsTest, NamesCompareWithNumbersByValueInTheDefaultLocale)
{
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    const auto ids = idsOf(groupsOf({thread("ten", RackStatus::idle, 5, identity("/w/item 10")),
                                     thread("nine", RackStatus::idle, 5, identity("/w/Item 9"))}));
    QLocale::setDefault(previous);
    EXPECT_EQ(ids, QStringList({"/w/Item 9", "/w/item 10"}));
}

// Identities built from real checkouts, as the sources build them.
TEST(ProjectGroupsTest, RealCheckoutsWorktreesScratchFoldersAndAnArrivingOrigin)
{
    QTemporaryDir temp;
    const QString root = QFileInfo(temp.path()).canonicalFilePath();
    const QString home = root + "/home";
    const QString primary = root + "/src/app";
    const QString worktree = home + "/.codex/worktrees/1f2e/app";
    const QString other = root + "/src/lib";
    const QString scratch = home + "/Documents/Codex/2025-06-01/first";
    for (const QString &folder : {primary, other, scratch})
        ASSERT_TRUE(QDir().mkpath(folder));
    auto git = [&](const QStringList &args) {
        QProcess process;
        auto env = QProcessEnvironment::systemEnvironment();
        env.insert("GIT_CONFIG_NOSYSTEM", "1");
        env.insert("GIT_CONFIG_GLOBAL", "/dev/null");
        env.insert("HOME", home);
        process.setProcessEnvironment(env);
        process.setWorkingDirectory(primary);
        process.start(
            "git", QStringList{"-c", "user.name=T", "-c", "user.email=t@example.invalid"} + args);
        ASSERT_TRUE(process.waitForFinished(60000));
        ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    };
    git({"init", "-q"});
    git({"commit", "-q", "--allow-empty", "-m", "initial"});
    git({"worktree", "add", "-q", worktree, "-b", "agent"});
    auto project = [&](const QString &folder, const std::optional<QString> &origin = std::nullopt) {
        return makeProjectIdentity(fileSystem, folder, origin, home);
    };

    QList<RackThread> threads{
        thread("codex:w", RackStatus::working, 100, project(worktree)),
        thread("claude:p", RackStatus::idle, 50, project(primary), RackProvider::claudeDesktop),
        thread("codex:lib", RackStatus::idle, 40, project(other, "https://example.org/t/lib.git")),
        thread("codex:chat", RackStatus::recent, 30, project(scratch)),
        thread("codex:nofolder", RackStatus::recent, 20, project({})),
    };
    auto groups = groupsOf(threads);
    ASSERT_EQ(idsOf(groups), QStringList({"git-directory:" + primary + "/.git",
                                          "repository:https://example.org/t/lib", "__chats__"}));
    // Without any origin, the worktree meets its checkout, which names the group.
    EXPECT_EQ(idsOf(groups[0].threads), QStringList({"codex:w", "claude:p"}));
    EXPECT_EQ(groups[0].workspacePath, primary);
    EXPECT_EQ(groups[0].name, "app");
    EXPECT_EQ(groups[2].threads.size(), 2);

    // The checkout's origin arrives and equals the library's: the groups merge, and a selection
    // of either old id follows into the merged group.
    threads.append(
        thread("claude:p2", RackStatus::idle, 45, project(primary, "https://example.org/t/lib")));
    groups = groupsOf(threads);
    ASSERT_EQ(groups.size(), 2);
    EXPECT_EQ(groups[0].id, "repository:https://example.org/t/lib");
    for (const QString &previous : {"git-directory:" + primary + "/.git", QString("/nowhere")}) {
        const auto change = bringSelectedProjectUpToDate(groups, previous, "claude:p");
        EXPECT_EQ(change.selectedProjectID, groups[0].id);
        EXPECT_EQ(change.persistence, ProjectSelectionChange::Persistence::write);
    }
}

TEST(ProjectSelectionTest, KeepsFollowsAndFallsBack)
{
    using Persistence = ProjectSelectionChange::Persistence;
    const auto groups = groupsOf({
        thread("t1", RackStatus::working, 10, identity("repository:r", {"/w/one"})),
        thread("t2", RackStatus::idle, 5, identity("/w/two")),
    });
    struct Case
    {
        std::optional<QString> project;
        std::optional<QString> thread;
        ProjectSelectionChange expected;
    };
    const Case cases[] = {
        {"/w/two", "t1", {"/w/two", Persistence::unchanged}},
        {"/w/one", "t2", {"repository:r", Persistence::write}},
        {"/w/gone", "t2", {"/w/two", Persistence::write}},
        {"/w/gone", "unknown", {"repository:r", Persistence::write}},
        {std::nullopt, std::nullopt, {"repository:r", Persistence::write}},
    };
    for (const Case &c : cases)
        EXPECT_EQ(bringSelectedProjectUpToDate(groups, c.project, c.thread), c.expected)
            << c.project.value_or("<none>").toStdString();
    EXPECT_EQ(bringSelectedProjectUpToDate({}, "/w/two", "t2"),
              (ProjectSelectionChange{std::nullopt, Persistence::remove}));
}

TEST(FrozenProjectGroupsTest, GroupsOnScreenKeepTheirPlaceAndTakeFreshContent)
{
    const auto alpha = identity("/w/alpha");
    const auto beta = identity("/w/beta");
    const auto old = groupsOf({thread("a1", RackStatus::working, 90, alpha),
                               thread("a2", RackStatus::idle, 80, alpha),
                               thread("b1", RackStatus::idle, 70, beta),
                               thread("g1", RackStatus::idle, 60, identity("/w/gone"))});
    ASSERT_EQ(idsOf(old), QStringList({"/w/alpha", "/w/beta", "/w/gone"}));

    // Beta turns urgent, a2 starts working, alpha gains a thread, "gone" vanishes, a new
    // project appears.
    const QList<RackThread> after{
        thread("a1", RackStatus::idle, 90, alpha), thread("a2", RackStatus::working, 95, alpha),
        thread("a3", RackStatus::working, 99, alpha), thread("b1", RackStatus::working, 100, beta),
        thread("n1", RackStatus::working, 98, identity("/w/new"))};
    const auto fresh = groupsOf(after);
    ASSERT_EQ(idsOf(fresh), QStringList({"/w/beta", "/w/alpha", "/w/new"}));

    const auto frozen = frozenProjectGroups(old, fresh, byID(after));
    EXPECT_EQ(idsOf(frozen), QStringList({"/w/alpha", "/w/beta", "/w/new"}));
    EXPECT_EQ(idsOf(frozen[0].threads), QStringList({"a1", "a2", "a3"}));
    EXPECT_EQ(frozen[0].threads[1].status, RackStatus::working);
    EXPECT_EQ(frozen[1], fresh[0]);
}

TEST(FrozenProjectGroupsTest, MergedGroupsStandAtTheFirstPlaceAndMovedThreadsLeave)
{
    const auto one = identity("/w/one");
    const auto two = identity("repository:r", {"path:/w/two"});
    const auto x = identity("/w/x");
    const auto old = groupsOf(
        {thread("x", RackStatus::idle, 50, x), thread("one1", RackStatus::idle, 40, one),
         thread("two1", RackStatus::idle, 30, two), thread("two2", RackStatus::idle, 20, two),
         thread("mover", RackStatus::idle, 10, one)});
    ASSERT_EQ(idsOf(old), QStringList({"/w/x", "/w/one", "repository:r"}));

    // An origin arrives for /w/one, so both groups become one; "mover" moves to project x.
    const QList<RackThread> after{
        thread("x", RackStatus::idle, 50, x),
        thread("one1", RackStatus::idle, 40, identity("repository:r", {"/w/one"})),
        thread("two1", RackStatus::working, 30, two), thread("two2", RackStatus::idle, 20, two),
        thread("mover", RackStatus::idle, 10, x)};
    const auto fresh = groupsOf(after);
    ASSERT_EQ(idsOf(fresh), QStringList({"repository:r", "/w/x"}));

    const auto frozen = frozenProjectGroups(old, fresh, byID(after));
    EXPECT_EQ(idsOf(frozen), QStringList({"/w/x", "repository:r"}));
    EXPECT_EQ(idsOf(frozen[0].threads), QStringList({"x", "mover"}));
    EXPECT_EQ(idsOf(frozen[1].threads), QStringList({"one1", "two1", "two2"}));
}
