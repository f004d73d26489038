#include "app/hookscommand.h"
#include "app/providerpaths.h"
#include "platform/preferences.h"
#include "testing/testsupport.h"
#include "testing/virtualfilesystem.h"

#include <gtest/gtest.h>

namespace taskrack {
namespace {

class HooksCommandTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        context.settingsPath = "/home/ada/.claude/settings.json";
        context.helperPath = "/home/ada/bin/taskrack-hook-bridge";
        context.preferences = &preferences;
        context.fileSystem = &files;
        files.addFolder("/home/ada/.claude");
        files.addFile(context.helperPath, "#!/bin/sh\n", 0700);
    }

    // Runs one command; returns its exit code and keeps what it printed.
    int hooks(const QString &action, const QStringList &more = {})
    {
        out.clear();
        err.clear();
        QTextStream outStream(&out);
        QTextStream errStream(&err);
        const int code = testing::await(
            runHooksCommand(QStringList{action} + more, context, outStream, errStream));
        outStream.flush();
        errStream.flush();
        return code;
    }

    testing::VirtualFileSystem files;
    InMemoryPreferences preferences;
    HooksCommandContext context;
    QString out;
    QString err;
};

TEST_F(HooksCommandTest, EnableStatusAndRemovePrintTheStatusLine)
{
    EXPECT_EQ(hooks("status"), 0);
    EXPECT_EQ(out, "Claude Code is not configured\n");

    EXPECT_EQ(hooks("enable"), 0);
    EXPECT_EQ(out, "Live status is connected\n");
    EXPECT_TRUE(err.isEmpty());
    EXPECT_TRUE(files.bytes(context.settingsPath)->contains(context.helperPath.toUtf8()));

    EXPECT_EQ(hooks("status"), 0);
    EXPECT_EQ(out, "Live status is connected\n");

    // Asking about a moved helper reports the drift and leaves the file alone.
    const QByteArray installed = *files.bytes(context.settingsPath);
    context.helperPath += "-moved";
    files.addFile(context.helperPath, "#!/bin/sh\n", 0700);
    EXPECT_EQ(hooks("status"), 0);
    EXPECT_EQ(out, "Live status needs repair\n");
    EXPECT_EQ(files.bytes(context.settingsPath), installed);

    EXPECT_EQ(hooks("disable"), 0);
    EXPECT_EQ(out, "Live status is off\n");
    EXPECT_EQ(hooks("remove"), 0);
    EXPECT_EQ(out, "Live status is off\n");
    EXPECT_FALSE(preferences.contains("claudeEnhancedStatusToken"));
}

TEST_F(HooksCommandTest, FailuresGoToErrorOutputWithTheInstallersWords)
{
    files.addFile(context.settingsPath, R"({"hooks": 3})");

    EXPECT_EQ(hooks("enable"), 1);
    EXPECT_TRUE(out.isEmpty());
    EXPECT_EQ(err, "The hooks value in Claude settings is not an object, so Taskrack did not "
                   "change it.\n");
    EXPECT_EQ(hooks("remove"), 1);

    EXPECT_EQ(hooks("restart"), 2);
    EXPECT_TRUE(err.startsWith("usage: taskrack hooks"));

    // Someone else's file only with the explicit flag, and then it stays theirs.
    files.addFile(context.settingsPath, "{}");
    files.setOwner(context.settingsPath, 1001, 1001);
    EXPECT_EQ(hooks("enable"), 1);
    EXPECT_TRUE(err.contains("--allow-other-owner"));
    EXPECT_EQ(hooks("enable", {"--allow-other-owner"}), 0);
    EXPECT_EQ(files.attributesOf(context.settingsPath)->owner, 1001u);
}

TEST(ProviderPathsTest, AHomeThatIsNoFolderIsAMistake)
{
    testing::VirtualFileSystem files;
    files.addFolder("/home/ada");
    files.addFile("/home/ada/notes", "");
    EXPECT_EQ(ProviderPaths::checkHomeOverride({}, files), std::nullopt);
    EXPECT_EQ(ProviderPaths::checkHomeOverride("/home/ada", files), std::nullopt);
    EXPECT_EQ(ProviderPaths::checkHomeOverride("/home/adaa", files),
              "--home /home/adaa does not exist.");
    EXPECT_EQ(ProviderPaths::checkHomeOverride("/home/ada/notes", files),
              "--home /home/ada/notes is not a folder.");
}

} // namespace
} // namespace taskrack
