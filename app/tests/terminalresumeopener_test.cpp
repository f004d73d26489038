#include "app/terminalresumeopener.h"

#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

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
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }

    RackThread thread(RackProvider provider, const QString &id)
    {
        RackThread t = makeThread("x:" + id, RackStatus::completed, QDateTime::currentDateTimeUtc(), provider);
        t.providerThreadID = id;
        t.workspacePath = project.path();
        return t;
    }

    QString refusal(const RackThread &t)
    {
        try {
            TerminalResumeOpener(environment).plan(t);
        } catch (const TaskrackError &error) {
            return error.description();
        }
        return {};
    }
};

TEST_F(TerminalResumeOpenerTest, ResumesWithTheProvidersOwnCommandInTheTasksFolder)
{
    install("codex");
    install("claude");
    install("x-terminal-emulator");
    const QString id = "0199a213-81c0-7800-8aa1-bbab2a035a53";
    TerminalResumeOpener::Plan codex = TerminalResumeOpener(environment).plan(thread(RackProvider::codex, id));
    EXPECT_EQ(codex.terminal, bin.filePath("x-terminal-emulator"));
    EXPECT_EQ(codex.arguments, QStringList({"-e", bin.filePath("codex"), "resume", id}));
    EXPECT_EQ(codex.workingDirectory, project.path());

    TerminalResumeOpener::Plan claude =
        TerminalResumeOpener(environment).plan(thread(RackProvider::claudeDesktop, "local_" + id));
    EXPECT_EQ(claude.arguments, QStringList({"-e", bin.filePath("claude"), "--resume", id}));

    install("myterm");
    environment.insert("TERMINAL", "myterm");
    EXPECT_EQ(TerminalResumeOpener(environment).plan(thread(RackProvider::codex, id)).terminal,
              bin.filePath("myterm"));

    QStringList launched;
    TerminalResumeOpener opener(environment, [&](const QString &program, const QStringList &args,
                                                 const QString &) {
        launched = QStringList{program} + args;
        return true;
    });
    awaitVoid(opener.open(thread(RackProvider::codex, id)));
    EXPECT_EQ(launched.first(), bin.filePath("myterm"));
}

TEST_F(TerminalResumeOpenerTest, RefusesClearly)
{
    const QString id = "0199a213-81c0-7800-8aa1-bbab2a035a53";
    EXPECT_EQ(refusal(thread(RackProvider::codex, id)), "The Codex app is not installed.");
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
