#include "app/commandline.h"
#include "app/quicktaskcommands.h"

#include <gtest/gtest.h>

using namespace taskrack;

TEST(QuickTaskCommandsTest, NewTakesEverythingAfterItAndAPromptAfterDashes)
{
    QString error;
    const auto line =
        CommandLine::parse({"new", "--json", "--provider", "claude", "--", "--json"}, error);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->command, CommandLine::Command::newTask);
    const auto parsed = parseNewTaskArguments(line->arguments, error);
    ASSERT_FALSE(parsed) << "--json is no option of new";

    struct Case
    {
        QStringList args;
        std::optional<NewTaskArguments> expected;
    } cases[] = {
        {{"--provider", "claude", "--", "-rf"},
         NewTaskArguments{RackProvider::claudeDesktop, {}, false, {}, {}, false, "-rf"}},
        {{"--provider", "codex", "--scratch", "--model", "m", "--effort", "high", "-"},
         NewTaskArguments{RackProvider::codex, {}, true, "m", "high", false, "-"}},
        {{"--provider", "codex", "--project", "/w", "--codex-default", "x"},
         NewTaskArguments{RackProvider::codex, "/w", false, {}, {}, true, "x"}},
        {{"--provider", "codex", "two", "prompts"}, std::nullopt},
        {{"--provider", "codex", "-rf"}, std::nullopt},
        {{"--provider", "gemini", "x"}, std::nullopt},
        {{"x"}, std::nullopt},
        {{"--provider", "codex"}, std::nullopt},
        {{"--provider", "codex", "--scratch", "--project", "/w", "x"}, std::nullopt},
        {{"--provider", "codex", "--codex-default", "--effort", "low", "x"}, std::nullopt},
        {{"--provider", "claude", "--model", "m", "x"}, std::nullopt},
        {{"--provider", "codex", "--model"}, std::nullopt},
    };
    for (const Case &c : cases) {
        error.clear();
        const auto result = parseNewTaskArguments(c.args, error);
        EXPECT_EQ(result, c.expected) << c.args.join(' ').toStdString();
        EXPECT_EQ(error.isEmpty(), c.expected.has_value());
        EXPECT_FALSE(error.contains('\n'));
    }
}
