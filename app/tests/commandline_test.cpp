#include "app/commandline.h"

#include <gtest/gtest.h>

using namespace taskrack;

TEST(CommandLineTest, ParsesSubcommandsAndOptionsInAnyOrder)
{
    QString error;
    auto line =
        CommandLine::parse({"--home", "/tmp/h", "list", "--json", "--mode=projects"}, error);
    ASSERT_TRUE(line) << error.toStdString();
    EXPECT_EQ(line->command, CommandLine::Command::list);
    EXPECT_TRUE(line->json);
    EXPECT_EQ(line->home, "/tmp/h");
    EXPECT_EQ(line->mode, RackOrganizationMode::project);

    line = CommandLine::parse({}, error);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->command, CommandLine::Command::run);

    line = CommandLine::parse({"hooks", "enable", "--home", "/h"}, error);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->arguments, QStringList{"enable"});
    EXPECT_EQ(line->home, "/h");

    line = CommandLine::parse(
        {"demo", "--dark", "--tasks", "400", "--scenario=projects", "--screenshots", "/s"}, error);
    ASSERT_TRUE(line) << error.toStdString();
    EXPECT_EQ(line->command, CommandLine::Command::demo);
    EXPECT_TRUE(line->dark);
    EXPECT_EQ(line->taskCount, 400);
    EXPECT_EQ(line->demoScenario, "projects");
    EXPECT_EQ(line->screenshotDir, "/s");
}

TEST(CommandLineTest, RefusesMistakesWithASentence)
{
    for (const QStringList &args :
         {QStringList{"lst"}, QStringList{"list", "--mode", "tree"}, QStringList{"list", "--home"},
          QStringList{"list", "extra"}, QStringList{"--home="},
          QStringList{"demo", "--tasks", "many"}, QStringList{"list", "--dark"}}) {
        QString error;
        EXPECT_FALSE(CommandLine::parse(args, error)) << args.join(' ').toStdString();
        EXPECT_FALSE(error.isEmpty());
    }
}
