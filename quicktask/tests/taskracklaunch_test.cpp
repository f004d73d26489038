// The launch helper for real: a stand-in terminal that runs its "-e" argv without a shell, the
// real helper, and a stand-in command-line tool that records what it was given.

#include "quicktask/quicktaskcreationservice.h"
#include "quicktask/quicktasklaunchhandoff.h"

#include "platform/linux/linuxterminallauncher.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

void writeScript(const QString &path, const char *body)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(body);
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class LaunchHelperTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        root = QDir(dir.path()).canonicalPath();
        QDir(root).mkpath(QStringLiteral("run"));
        QDir(root).mkpath(QStringLiteral("a folder"));
        writeScript(root + "/terminal",
                    "#!/usr/bin/python3\n"
                    "import os, subprocess, sys\n"
                    "argv = sys.argv[sys.argv.index('-e') + 1:]\n"
                    "with open(os.environ['QT_TERMINAL_LOG'], 'ab') as log:\n"
                    "    subprocess.run(argv, stdin=subprocess.DEVNULL, stderr=log)\n");
        writeScript(root + "/tool", "#!/usr/bin/python3\n"
                                    "import json, os, sys\n"
                                    "with open(os.environ['QT_RECORD'], 'w') as f:\n"
                                    "    json.dump({'argv': sys.argv[1:], 'cwd': os.getcwd()}, f)\n"
                                    "sys.exit(int(os.environ.get('QT_EXIT', '0')))\n");
        qputenv("QT_TERMINAL_LOG", QFile::encodeName(root + "/terminal.log"));
        qputenv("QT_RECORD", QFile::encodeName(root + "/record.json"));
        env.insert(QStringLiteral("TERMINAL"), root + "/terminal");
    }

    void create(const QString &prompt)
    {
        LinuxTerminalLauncher launcher(env);
        QuickTaskLaunchHandoff handoff(launcher, QStringLiteral(TASKRACK_LAUNCH_HELPER),
                                       root + "/run");
        QuickTaskUnavailableCodexStarter starter;
        QuickTaskPrefillOnlyAutoSubmitter submitter;
        QuickTaskCreationService service({
            .applications = nullptr,
            .terminal = &handoff,
            .codexStarter = starter,
            .autoSubmitter = submitter,
            .clipboard = nullptr,
            .autoSendEnabled = {},
            .codexConfiguration = {},
            .validateCodexConfiguration = {},
            .codexUserConfiguration = {},
            .locateCommand = [this](RackProvider) { return std::optional(root + "/tool"); },
            .scratchDirectory = root + "/scratch",
        });
        taskrack::testing::await(
            service.createTask(prompt, RackProvider::claudeDesktop, root + "/a folder"));
    }

    QTemporaryDir dir;
    QString root;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
};

} // namespace

TEST_F(LaunchHelperTest, APromptArrivesVerbatimAsOneArgument)
{
    const QString marker = root + "/pwned";
    const QString prompt =
        QStringLiteral("-n \"it's\" $(touch %1) `touch %1` ; touch %1\nsecond line").arg(marker);
    create(prompt);
    ASSERT_TRUE(
        taskrack::testing::waitUntil([&] { return !readAll(root + "/record.json").isEmpty(); }));
    const QJsonObject record = QJsonDocument::fromJson(readAll(root + "/record.json")).object();
    EXPECT_EQ(record.value("argv").toArray(), QJsonArray({"--", prompt}));
    EXPECT_EQ(record.value("cwd").toString(), root + "/a folder");
    EXPECT_FALSE(QFile::exists(marker));
    EXPECT_TRUE(QDir(root + "/run").isEmpty());
}

TEST_F(LaunchHelperTest, AToolThatFailsAtOnceLeavesTheReasonAndThePrompt)
{
    qputenv("QT_EXIT", "3");
    create(QStringLiteral("keep this text"));
    qunsetenv("QT_EXIT");
    ASSERT_TRUE(taskrack::testing::waitUntil(
        [&] { return readAll(root + "/terminal.log").contains("Press Return"); }));
    const QByteArray log = readAll(root + "/terminal.log");
    EXPECT_TRUE(log.contains("ended at once with status 3")) << log.constData();
    EXPECT_TRUE(log.contains("keep this text"));
}
