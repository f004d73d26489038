#include "core/rackprojectidentity.h"
#include "platform/linux/linuxfilesystem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace taskrack;

static const LinuxFileSystem fileSystem;

// Readable failure messages for paths.
static void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace {

// Real git repositories in a temporary folder, built with the git command on a clean
// configuration so that the tests behave the same on any machine.
class GitWorkspace : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(temp.isValid());
        root = QFileInfo(temp.path()).canonicalFilePath();
        home = root + "/home";
        ASSERT_TRUE(QDir().mkpath(home));
    }

    // Runs git in `cwd` on a clean configuration; a failure fails the test with git's own words.
    void git(const QString &cwd, const QStringList &args)
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("GIT_CONFIG_NOSYSTEM", "1");
        env.insert("GIT_CONFIG_GLOBAL", "/dev/null");
        env.insert("HOME", home);
        process.setProcessEnvironment(env);
        process.setWorkingDirectory(cwd);
        process.start("git", QStringList{"-c", "user.name=T", "-c", "user.email=t@example.invalid",
                                         "-c", "protocol.file.allow=always"} +
                                 args);
        ASSERT_TRUE(process.waitForFinished(60000));
        ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    }

    // A repository with one commit.
    QString makeRepository(const QString &relative)
    {
        const QString path = root + "/" + relative;
        EXPECT_TRUE(QDir().mkpath(path));
        git(path, {"init", "-q"});
        git(path, {"commit", "-q", "--allow-empty", "-m", "initial"});
        return path;
    }

    void writeFile(const QString &path, const QByteArray &bytes)
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
    }

    QTemporaryDir temp;
    QString root;
    QString home;
};

} // namespace

// --- Origins -------------------------------------------------------------------------------

TEST(RepositoryKeyTest, NormalisesOnlyHostCaseTrailingSlashesAndGitSuffix)
{
    const std::pair<std::optional<QString>, std::optional<QString>> cases[] = {
        {"https://github.com/Owner/Repo", "https://github.com/Owner/Repo"},
        {"https://GitHub.COM/Owner/Repo.git/", "https://github.com/Owner/Repo"},
        {"  https://github.com/Owner/Repo.GIT//\n", "https://github.com/Owner/Repo"},
        {"https://User@Example.ORG:8443/Path/R.git", "https://User@example.org:8443/Path/R"},
        {"ssh://git@GitHub.com/Owner/Repo.git", "ssh://git@github.com/Owner/Repo"},
        // scp-like SSH has no URL host: kept as written, and distinct from the web form.
        {"git@GitHub.com:Owner/Repo.git", "git@GitHub.com:Owner/Repo"},
        {"/srv/Git/Repo.git/", "/srv/Git/Repo"},
        {"file:///srv/Git/Repo.git", "file:///srv/Git/Repo"},
        {"https://[::1]:80/Repo.git", "https://[::1]:80/Repo"},
        {"", std::nullopt},
        {" \t\n", std::nullopt},
        {"///", std::nullopt},
        {".git", std::nullopt},
        {std::nullopt, std::nullopt},
    };
    for (const auto &[origin, key] : cases)
        EXPECT_EQ(repositoryKey(origin), key) << origin.value_or("<absent>").toStdString();
}

// --- Parsers of git's small files ------------------------------------------------------------

TEST(GitFileParsingTest, GitdirLineMustComeFirst)
{
    EXPECT_EQ(parseGitdirFile("gitdir: ../.git/worktrees/a\n"), "../.git/worktrees/a");
    EXPECT_EQ(parseGitdirFile("gitdir:/abs/path  \r\nsecond line"), "/abs/path");
    EXPECT_EQ(parseGitdirFile("\ngitdir: x"), std::nullopt);
    EXPECT_EQ(parseGitdirFile("gitdir:   \n"), std::nullopt);
    EXPECT_EQ(parseGitdirFile("gitdir: a\xff\xfe"), std::nullopt);
    EXPECT_EQ(parseGitdirFile(QByteArray("gitdir: a\0b", 11)), std::nullopt);
    EXPECT_EQ(parseGitdirFile("gitdir: x\n" + QByteArray(maxGitPointerBytes, 'a')), std::nullopt);
    EXPECT_EQ(parseCommondirFile("../..\n"), "../..");
    EXPECT_EQ(parseCommondirFile(" \n\t"), std::nullopt);
}

TEST(GitFileParsingTest, GitmodulesPathsOfSubmoduleSectionsOnly)
{
    const QByteArray contents = "# comment\n"
                                "[submodule \"lib\"]\n"
                                "\tpath = vendor/lib/\n"
                                "\turl = ../lib\n"
                                "[submodule \"quoted\"]\n"
                                "  PATH = \"third party/x\" ; trailing comment\n"
                                "[core]\n"
                                "  path = not/a/submodule\n"
                                "[submodule \"inline\"] path = /inline/\n";
    EXPECT_EQ(parseGitmodulesPaths(contents),
              QStringList({"vendor/lib", "third party/x", "inline"}));
    EXPECT_TRUE(parseGitmodulesPaths(QByteArray(maxGitmodulesBytes + 1, '[')).isEmpty());
}

// --- Paths -----------------------------------------------------------------------------------

TEST_F(GitWorkspace, NormalizedPathStandardisesExpandsAndResolves)
{
    ASSERT_TRUE(QDir().mkpath(root + "/real/inner"));
    ASSERT_TRUE(QFile::link(root + "/real", root + "/link"));

    EXPECT_EQ(normalizedPath(fileSystem, ""), "");
    EXPECT_EQ(normalizedPath(fileSystem, " \n\t"), "");
    EXPECT_EQ(normalizedPath(fileSystem, " " + root + "/link/inner/ \n"), root + "/real/inner");
    EXPECT_EQ(normalizedPath(fileSystem, root + "/real/./inner/../inner//"), root + "/real/inner");
    // A folder that is gone keeps its name below the deepest resolved ancestor.
    EXPECT_EQ(normalizedPath(fileSystem, root + "/link/gone/deeper"), root + "/real/gone/deeper");
    EXPECT_EQ(normalizedPath(fileSystem, "~/x", root + "/link"), root + "/real/x");
    EXPECT_EQ(normalizedPath(fileSystem, "~", root + "/link"), root + "/real");
    EXPECT_EQ(normalizedPath(fileSystem, "/"), "/");
    EXPECT_TRUE(normalizedPath(fileSystem, "relative/folder").startsWith('/'));
}

TEST_F(GitWorkspace, ScratchFoldersAreDatedFoldersBelowTheCodexDocumentsFolder)
{
    const std::pair<const char *, bool> cases[] = {
        {"2025-03-04/chat", true},  {"2025-03-04", false},     {"2025-03-04-x/more", true},
        {"2025-03-04-", false},     {"2025-03-04x1", false},   {"2025-13-04/chat", false},
        {"2025-03-00/chat", false}, {"2025-3-04/chat", false}, {"project/2025-03-04/x", false},
    };
    for (const auto &[below, scratch] : cases) {
        const QString folder = normalizedPath(fileSystem, home + "/Documents/Codex/" + below);
        EXPECT_EQ(isCodexScratchFolder(fileSystem, folder, home), scratch) << below;
    }
}

// --- Git walks over real repositories ---------------------------------------------------------

TEST_F(GitWorkspace, PrimaryCheckoutAndLinkedWorktreeShareTheCommonDirectory)
{
    const QString primary = makeRepository("app");
    git(primary, {"worktree", "add", "-q", root + "/wt/feature", "-b", "feature"});
    ASSERT_TRUE(QDir().mkpath(primary + "/src/deep"));

    const auto common = gitCommonDirectory(fileSystem, primary);
    ASSERT_EQ(common, primary + "/.git");
    EXPECT_EQ(gitCommonDirectory(fileSystem, root + "/wt/feature"), common);
    EXPECT_EQ(gitCommonDirectory(fileSystem, primary + "/src/deep"), common);
    EXPECT_EQ(gitCommonDirectory(fileSystem, root), std::nullopt);
    EXPECT_EQ(gitCommonDirectory(fileSystem, ""), std::nullopt);

    const auto primaryProbe = probeCheckout(fileSystem, {primary + "/src/deep"});
    EXPECT_EQ(primaryProbe.kind, RackCheckoutKind::primaryCheckout);
    EXPECT_EQ(primaryProbe.checkoutRootPath, primary);
    EXPECT_EQ(primaryProbe.gitDirectoryPath, primary + "/.git");
    EXPECT_EQ(primaryProbe.commonDirectoryPath, primary + "/.git");

    const auto worktreeProbe = probeCheckout(fileSystem, {root + "/wt/feature"});
    EXPECT_EQ(worktreeProbe.kind, RackCheckoutKind::linkedWorktree);
    EXPECT_EQ(worktreeProbe.checkoutRootPath, root + "/wt/feature");
    EXPECT_EQ(worktreeProbe.gitDirectoryPath, primary + "/.git/worktrees/feature");
    EXPECT_EQ(worktreeProbe.commonDirectoryPath, primary + "/.git");
}

TEST_F(GitWorkspace, SubmodulesAreRecognisedByGitdirAndByGitmodules)
{
    const QString library = makeRepository("library");
    const QString super = makeRepository("super");
    git(super, {"submodule", "add", "-q", library, "vendor/library"});

    // A modern submodule: ".git" is a file into the superproject's modules folder.
    const auto modern = probeCheckout(fileSystem, {super + "/vendor/library"});
    EXPECT_EQ(modern.kind, RackCheckoutKind::submodule);
    EXPECT_EQ(modern.checkoutRootPath, super + "/vendor/library");
    EXPECT_EQ(modern.gitDirectoryPath, super + "/.git/modules/vendor/library");
    EXPECT_EQ(gitCommonDirectory(fileSystem, super + "/vendor/library"),
              super + "/.git/modules/vendor/library");

    // An old-style submodule keeps its own ".git" directory: only ".gitmodules" tells.
    git(super, {"clone", "-q", library, "third/old/"});
    writeFile(super + "/.gitmodules",
              "[submodule \"old\"]\n\tpath = third/old/\n\turl = ../library\n");
    const auto classic = probeCheckout(fileSystem, {super + "/third/old"});
    EXPECT_EQ(classic.kind, RackCheckoutKind::submodule);
    EXPECT_EQ(classic.gitDirectoryPath, super + "/third/old/.git");

    // A nested clone the superproject does not list is a checkout of its own.
    git(super, {"clone", "-q", library, "scratch/clone"});
    EXPECT_EQ(probeCheckout(fileSystem, {super + "/scratch/clone"}).kind,
              RackCheckoutKind::primaryCheckout);
    EXPECT_EQ(probeCheckout(fileSystem, {super}).kind, RackCheckoutKind::primaryCheckout);
}

TEST_F(GitWorkspace, MalformedGitFilesLeaveOnlyTheRoot)
{
    const QString primary = makeRepository("app");
    writeFile(root + "/broken/.git",
              "this is not a pointer\ngitdir: " + primary.toUtf8() + "/.git\n");
    writeFile(root + "/huge/.git",
              "gitdir: " + primary.toUtf8() + "/.git\n" + QByteArray(maxGitPointerBytes, '#'));
    ASSERT_TRUE(QDir().mkpath(root + "/fifo"));
    ASSERT_EQ(QProcess::execute("mkfifo", {root + "/fifo/.git"}), 0);

    for (const QString &folder : {root + "/broken", root + "/huge", root + "/fifo"}) {
        SCOPED_TRACE(folder.toStdString());
        EXPECT_EQ(gitCommonDirectory(fileSystem, folder), std::nullopt);
        RackCheckoutMetadata expected;
        expected.checkoutRootPath = folder;
        EXPECT_EQ(probeCheckout(fileSystem, {folder}), expected);

        // The identity falls back to the folder itself.
        const auto identity = makeProjectIdentity(fileSystem, folder, std::nullopt, home);
        EXPECT_EQ(identity.id, folder);
        EXPECT_EQ(identity.aliases, QSet<QString>({folder, "path:" + folder}));
    }
}

TEST_F(GitWorkspace, SeparateGitDirectoryAndTheFirstDecisivePath)
{
    ASSERT_TRUE(QDir().mkpath(root + "/store"));
    git(root,
        {"init", "-q", "--separate-git-dir", root + "/store/separate.git", root + "/separate"});
    const auto separate = probeCheckout(fileSystem, {root + "/separate"});
    EXPECT_EQ(separate.kind, RackCheckoutKind::separateGitDirectory);
    EXPECT_EQ(separate.gitDirectoryPath, root + "/store/separate.git");
    EXPECT_EQ(separate.commonDirectoryPath, root + "/store/separate.git");
    EXPECT_EQ(gitCommonDirectory(fileSystem, root + "/separate"), root + "/store/separate.git");

    const QString primary = makeRepository("app");
    git(primary, {"worktree", "add", "-q", root + "/wt", "-b", "wt"});
    ASSERT_TRUE(QDir().mkpath(root + "/plain"));
    writeFile(root + "/broken/.git", "garbage");

    EXPECT_EQ(probeCheckout(fileSystem, {root + "/plain", root + "/wt", primary}).kind,
              RackCheckoutKind::linkedWorktree);
    EXPECT_EQ(probeCheckout(fileSystem, {primary, root + "/wt"}).kind,
              RackCheckoutKind::primaryCheckout);

    const auto allUnknown = probeCheckout(fileSystem, {root + "/broken", root + "/plain"});
    EXPECT_EQ(allUnknown.kind, RackCheckoutKind::unknown);
    EXPECT_EQ(allUnknown.checkoutRootPath, root + "/broken");
    EXPECT_EQ(probeCheckout(fileSystem, {}), RackCheckoutMetadata{});
}

// --- Identities ------------------------------------------------------------------------------

TEST_F(GitWorkspace, SymlinkedFolderAndOriginSpellingsGiveOneIdentity)
{
    const QString primary = makeRepository("app");
    ASSERT_TRUE(QFile::link(primary, root + "/alias-of-app"));

    const auto direct =
        makeProjectIdentity(fileSystem, primary, "https://GitHub.com/me/app.git", home);
    const auto viaLink = makeProjectIdentity(fileSystem, root + "/alias-of-app/",
                                             "https://github.com/me/app/", home);
    EXPECT_EQ(direct, viaLink);
    EXPECT_EQ(direct.id, "repository:https://github.com/me/app");
    EXPECT_EQ(direct.workspacePath, primary);

    const auto ssh = makeProjectIdentity(fileSystem, primary, "git@github.com:me/app.git", home);
    EXPECT_NE(ssh.id, direct.id);
    // Both still meet through the git directory when they are grouped.
    EXPECT_TRUE(ssh.aliases.contains("git-directory:" + primary + "/.git"));
}

TEST_F(GitWorkspace, FallbacksFromRepositoryToChats)
{
    const QString scratch = home + "/Documents/Codex/2025-03-04/chat";
    ASSERT_TRUE(QDir().mkpath(scratch));
    ASSERT_TRUE(QDir().mkpath(root + "/plain folder"));

    const auto chats = makeProjectIdentity(fileSystem, scratch, std::nullopt, home);
    EXPECT_TRUE(chats.isChats());
    EXPECT_EQ(chats.workspacePath, "");
    EXPECT_EQ(chats.aliases, QSet<QString>({scratch, "path:" + scratch, "__chats__"}));

    // An origin, or a git repository, wins over the scratch rule.
    const auto withOrigin =
        makeProjectIdentity(fileSystem, scratch, "https://example.org/x/tool.git", home);
    EXPECT_EQ(withOrigin.id, "repository:https://example.org/x/tool");
    EXPECT_EQ(withOrigin.name, "chat");
    git(scratch, {"init", "-q"});
    EXPECT_EQ(makeProjectIdentity(fileSystem, scratch, std::nullopt, home).id,
              "git-directory:" + scratch + "/.git");

    const auto plain = makeProjectIdentity(fileSystem, root + "/plain folder ", std::nullopt, home);
    EXPECT_EQ(plain.id, root + "/plain folder");
    EXPECT_EQ(plain.name, "plain folder");

    // Without a folder the key names the project.
    const auto originOnly =
        makeProjectIdentity(fileSystem, "", " git@host:team/service.git ", home);
    EXPECT_EQ(originOnly.name, "service");
    EXPECT_EQ(originOnly.aliases, QSet<QString>({"repository:git@host:team/service"}));
    EXPECT_EQ(makeProjectIdentity(fileSystem, "  ", std::nullopt, home).aliases,
              QSet<QString>({"__chats__"}));

    EXPECT_EQ(makeProjectIdentity(fileSystem, "/", std::nullopt, home).name, "Project");
}
