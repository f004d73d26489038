#include "app/hookscommand.h"
#include "platform/preferences.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace taskrack {
namespace {

class HooksCommandTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        context.settingsPath = home.filePath(".claude/settings.json");
        context.helperPath = home.filePath("bin/taskrack-hook-bridge");
        context.preferences = &preferences;
        QDir().mkpath(home.filePath("bin"));
        QFile helper(context.helperPath);
        ASSERT_TRUE(helper.open(QIODevice::WriteOnly));
        helper.write("#!/bin/sh\n");
        helper.close();
        helper.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // Runs one command; returns its exit code and keeps what it printed.
    int hooks(const QString &action)
    {
        out.clear();
        err.clear();
        QTextStream outStream(&out);
        QTextStream errStream(&err);
        const int code = testing::await(runHooksCommand({action}, context, outStream, errStream));
        outStream.flush();
        errStream.flush();
        return code;
    }

    QTemporaryDir home;
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
    QFile settings(context.settingsPath);
    ASSERT_TRUE(settings.open(QIODevice::ReadOnly));
    EXPECT_TRUE(settings.readAll().contains(context.helperPath.toUtf8()));

    EXPECT_EQ(hooks("status"), 0);
    EXPECT_EQ(out, "Live status is connected\n");

    // Asking about a moved helper reports the drift and leaves the file alone.
    settings.seek(0);
    const QByteArray installed = settings.readAll();
    context.helperPath += "-moved";
    QFile::copy(home.filePath("bin/taskrack-hook-bridge"), context.helperPath);
    EXPECT_EQ(hooks("status"), 0);
    EXPECT_EQ(out, "Live status needs repair\n");
    settings.seek(0);
    EXPECT_EQ(settings.readAll(), installed);

    EXPECT_EQ(hooks("disable"), 0);
    EXPECT_EQ(out, "Live status is off\n");
    EXPECT_EQ(hooks("remove"), 0);
    EXPECT_EQ(out, "Live status is off\n");
    EXPECT_FALSE(preferences.contains("claudeEnhancedStatusToken"));
}

TEST_F(HooksCommandTest, FailuresGoToErrorOutputWithTheInstallersWords)
{
    QDir().mkpath(home.filePath(".claude"));
    QFile settings(context.settingsPath);
    ASSERT_TRUE(settings.open(QIODevice::WriteOnly));
    settings.write(R"({"hooks": 3})");
    settings.close();

    EXPECT_EQ(hooks("enable"), 1);
    EXPECT_TRUE(out.isEmpty());
    EXPECT_EQ(err, "The hooks value in Claude settings is not an object, so Taskrack did not "
                   "change it.\n");
    EXPECT_EQ(hooks("remove"), 1);

    EXPECT_EQ(hooks("restart"), 2);
    EXPECT_TRUE(err.startsWith("usage: taskrack hooks"));
}

} // namespace
} // namespace taskrack
