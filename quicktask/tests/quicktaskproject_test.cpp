#include "quicktask/quicktaskproject.h"

#include "platform/linux/linuxfilesystem.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

RackThread thread(const QString &id, qint64 secondsAgo)
{
    RackThread t;
    t.id = id;
    t.recencyAt = QDateTime::fromSecsSinceEpoch(1'790'000'000 - secondsAgo, Qt::UTC);
    return t;
}

RackProjectGroup group(const QString &name, const QString &path, std::set<RackProvider> providers,
                       QList<RackThread> threads = {})
{
    RackProjectGroup g;
    g.id = path.isEmpty() ? name : path;
    g.name = name;
    g.workspacePath = path;
    g.providers = std::move(providers);
    g.threads = std::move(threads);
    return g;
}

QStringList names(const QList<QuickTaskProject> &projects)
{
    QStringList out;
    for (const QuickTaskProject &p : projects)
        out << p.name;
    return out;
}

class ProjectsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        root = QDir(dir.path()).canonicalPath();
        for (const char *name : {"alpha", "beta", "gamma", "scratch"})
            QDir(root).mkpath(QString::fromLatin1(name));
        QFile::link(root + QStringLiteral("/alpha"), root + QStringLiteral("/alpha-link"));
        scratch = scratchProject(root + QStringLiteral("/scratch"));
        // Links are real here: the kernel's resolution is what the project rules rely on.
        setProjectPathFileSystem(&fileSystem);
    }
    void TearDown() override { setProjectPathFileSystem(nullptr); }
    QString at(const char *name) const
    {
        return root + QLatin1Char('/') + QString::fromLatin1(name);
    }

    LinuxFileSystem fileSystem;
    QTemporaryDir dir;
    QString root;
    QuickTaskProject scratch;
    DirectoryExists exists = [](const QString &path) { return QFileInfo(path).isDir(); };
};

} // namespace

TEST_F(ProjectsTest, GroupsBecomeProjectsMergedByFolderMostRecentFirst)
{
    RackProjectGroup chats =
        group(QStringLiteral("Chats"), {}, {RackProvider::codex}, {thread("c", 0)});
    chats.id = RackProjectIdentity::chatsID;
    const QList<QuickTaskProject> projects = availableProjects(
        {chats, group(QStringLiteral("Beta"), at("beta"), {RackProvider::codex}, {thread("b", 50)}),
         group(QStringLiteral("Alpha"), at("alpha"), {RackProvider::codex}, {thread("a", 100)}),
         group(QStringLiteral("Alpha link"), at("alpha-link"), {RackProvider::claudeDesktop},
               {thread("l", 10)}),
         group(QStringLiteral("Gamma"), at("gamma"), {}, {}),
         group(QStringLiteral("Aardvark"), at("gamma") + QStringLiteral("/../beta"), {},
               {thread("x", 50)}),
         group(QStringLiteral("Scratch"), at("scratch"), {}, {thread("s", 0)}),
         group(QStringLiteral("Blank"), QStringLiteral("  \n"), {}, {})},
        scratch.workspacePath);
    // The link merges into Alpha (first name, provider union, latest date); equal dates order by
    // name; a group without threads counts as the distant past; chats, scratch and blanks drop.
    EXPECT_EQ(names(projects), (QStringList{"Alpha", "Beta", "Gamma"}));
    EXPECT_EQ(projects[0].providers, (std::set{RackProvider::codex, RackProvider::claudeDesktop}));
    EXPECT_EQ(projects[0].lastActivity, thread("l", 10).recencyAt);
    EXPECT_EQ(projects[1].providers, std::set<RackProvider>{RackProvider::codex});
}

TEST_F(ProjectsTest, SelectionRules)
{
    const QList<QuickTaskProject> projects =
        availableProjects({group(QStringLiteral("Beta"), at("beta"), {}, {thread("b", 5)}),
                           group(QStringLiteral("Alpha"), at("alpha"), {}, {thread("a", 9)})},
                          scratch.workspacePath);
    const QString gone = at("gone");
    struct Case
    {
        std::optional<QString> pinned, lastUsed;
        QString expectedName;
        std::optional<QString> unavailable;
    } cases[] = {
        {std::nullopt, std::nullopt, "Beta", std::nullopt},
        {at("alpha"), at("beta"), "Alpha", std::nullopt},
        {gone, at("alpha"), "Quick Tasks", gone}, // a vanished pin never falls through
        {std::nullopt, gone, "Beta", std::nullopt},
        {std::nullopt, at("gamma"), "gamma", std::nullopt},
        {at("scratch"), std::nullopt, "Quick Tasks", std::nullopt},
    };
    for (const Case &c : cases) {
        const QuickTaskProjectSelection s =
            resolveSelection(c.pinned, c.lastUsed, projects, scratch, exists);
        EXPECT_EQ(s.project.name, c.expectedName) << c.pinned.value_or("-").toStdString();
        EXPECT_EQ(s.unavailablePinnedPath, c.unavailable);
    }
    EXPECT_EQ(resolveSelection({}, {}, {}, scratch, exists).project, scratch);
}

TEST_F(ProjectsTest, FilterRanksNamePrefixThenContainsThenPathThenSubsequence)
{
    auto project = [](const QString &name, const QString &path) {
        return QuickTaskProject{path, name,         path,        QuickTaskProject::Kind::project,
                                {},   std::nullopt, std::nullopt};
    };
    const QList<QuickTaskProject> projects{
        project(QStringLiteral("Xylophone"), QStringLiteral("/w/kit")),
        project(QStringLiteral("Toolkit"), QStringLiteral("/w/tools")),
        project(QStringLiteral("Kayak Inn Tour"), QStringLiteral("/w/other")),
        project(QStringLiteral("Nothing"), QStringLiteral("/w/none")),
        project(QStringLiteral("KÏTE"), QStringLiteral("/w/k")),
    };
    EXPECT_EQ(names(filterProjects(QStringLiteral("  kit "), projects)),
              (QStringList{"KÏTE", "Toolkit", "Xylophone", "Kayak Inn Tour"}));
    EXPECT_EQ(filterProjects(QStringLiteral(" "), projects), projects);
}

TEST_F(ProjectsTest, ProjectFromRackGroup)
{
    RackProjectGroup dotted = group(QStringLiteral("Dot"), at("alpha"), {RackProvider::codex});
    dotted.dot = CodexDesktopDot{QStringLiteral("k"), QStringLiteral("Dot"), {}};
    dotted.dot->appearance.rootThreadID = QStringLiteral("ROOT");
    const auto dot = projectFromGroup(dotted, at("scratch"));
    ASSERT_TRUE(dot);
    EXPECT_EQ(dot->id, QStringLiteral("codex-dot:ROOT"));
    EXPECT_TRUE(dot->workspacePath.isEmpty());
    EXPECT_EQ(dot->dotThreadID, QStringLiteral("ROOT"));

    RackProjectGroup chats = group(QStringLiteral("Chats"), {}, {});
    chats.id = RackProjectIdentity::chatsID;
    EXPECT_EQ(projectFromGroup(chats, at("scratch")), scratch);
    EXPECT_EQ(projectFromGroup(group(QStringLiteral("L"), at("alpha-link"), {}), {})->workspacePath,
              at("alpha"));
    EXPECT_FALSE(projectFromGroup(group(QStringLiteral("None"), {}, {}), {}));
}
