#include "app/terminalresumeopener.h"
#include "core/rackthreadopener.h"
#include "platform/linux/linuxterminallauncher.h"

#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

class TerminalResumeOpenerTest : public ::testing::Test
{
protected:
    QTemporaryDir bin;
    QTemporaryDir project;
    QProcessEnvironment environment;

    void SetUp() override { environment.insert("PATH", bin.path()); }

    void install(const QString &name)
    {
        QFile file(bin.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\nexit 0\n");
        file.close();
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                            QFileDevice::ExeOwner);
    }

    RackThread thread(RackProvider provider, const QString &id)
    {
        RackThread t =
            makeThread("x:" + id, RackStatus::completed, QDateTime::currentDateTimeUtc(), provider);
        t.providerThreadID = id;
        t.workspacePath = project.path();
        return t;
    }

    // Opens `t` and returns the refusal, or nothing when it started.
    QString refusal(const RackThread &t)
    {
        try {
            LinuxTerminalLauncher launcher(environment,
                                           [](auto &, auto &, auto &) { return true; });
            awaitVoid(TerminalResumeOpener(launcher, environment).open(t));
        } catch (const TaskrackError &error) {
            return error.description();
        }
        return {};
    }

    // What the terminal was started with.
    QStringList started;
    LinuxTerminalLauncher::Starter recorder()
    {
        return [this](const QString &program, const QStringList &args, const QString &folder) {
            started = QStringList{program} + args + QStringList{folder};
            return true;
        };
    }
};

TEST_F(TerminalResumeOpenerTest, ResumesWithTheProvidersOwnCommandInTheTasksFolder)
{
    install("codex");
    install("claude");
    install("x-terminal-emulator");
    const QString id = "0199a213-81c0-7800-8aa1-bbab2a035a53";
    LinuxTerminalLauncher launcher(environment, recorder());
    TerminalResumeOpener opener(launcher, environment);
    awaitVoid(opener.open(thread(RackProvider::codex, id)));
    EXPECT_EQ(started, QStringList({bin.filePath("x-terminal-emulator"), "-e",
                                    bin.filePath("codex"), "resume", id, project.path()}));
    awaitVoid(opener.open(thread(RackProvider::claudeDesktop, "local_" + id)));
    EXPECT_EQ(started.mid(1),
              QStringList({"-e", bin.filePath("claude"), "--resume", id, project.path()}));
    // "Open Claude" from the empty rack: the command alone, in the home folder.
    opener.startProvider(RackProvider::claudeDesktop);
    EXPECT_EQ(started.mid(1), QStringList({"-e", bin.filePath("claude"), QDir::homePath()}));

    // $TERMINAL wins when it names a program; otherwise it is ignored.
    install("myterm");
    for (const auto &[chosen, expected] :
         {std::pair{"myterm", "myterm"}, std::pair{"no-such-term", "x-terminal-emulator"}}) {
        environment.insert("TERMINAL", chosen);
        EXPECT_EQ(LinuxTerminalLauncher(environment).terminal(), bin.filePath(expected));
    }
}

TEST_F(TerminalResumeOpenerTest, RefusesClearly)
{
    const QString id = "0199a213-81c0-7800-8aa1-bbab2a035a53";
    EXPECT_EQ(refusal(thread(RackProvider::codex, id)), "The Codex app is not installed.");
    LinuxTerminalLauncher launcher(environment);
    EXPECT_THROW(TerminalResumeOpener(launcher, environment).startProvider(RackProvider::codex),
                 RackProviderApplicationError);
    install("codex");
    EXPECT_EQ(refusal(thread(RackProvider::codex, id)),
              "No terminal to resume this task in: set $TERMINAL or install x-terminal-emulator.");
    install("x-terminal-emulator");
    EXPECT_EQ(refusal(thread(RackProvider::codex, "--help; rm -rf ~")),
              "Codex returned an invalid task identifier.")
        << "nothing but a plain identifier reaches a command line";
    EXPECT_EQ(refusal(thread(RackProvider::codex, id)), QString());
}

} // namespace
