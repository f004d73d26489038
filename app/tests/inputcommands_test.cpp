#include "app/shortcutscommand.h"
#include "input/rackshortcuts.h"
#include "platform/preferences.h"
#include "testing/testsupport.h"
#include "testing/xvfbserver.h"

#include <QTextStream>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

struct ShortcutsCase
{
    const char *name;
    QStringList arguments;
    int exitCode;
    const char *stderrText;      // exactly, when set
    const char *storedOverrides; // "rackShortcuts.v1" afterwards, nullptr: absent
};

// What ctest lists for each case: its name, not a dump of the struct's bytes.
void PrintTo(const ShortcutsCase &c, std::ostream *os)
{
    *os << c.name;
}

class ShortcutsCommandTest : public ::testing::TestWithParam<ShortcutsCase>
{
};

TEST_P(ShortcutsCommandTest, StoresOnlyWhatPassesValidation)
{
    const ShortcutsCase &c = GetParam();
    InMemoryPreferences preferences;
    QString out, err;
    QTextStream outStream(&out), errStream(&err);
    EXPECT_EQ(runShortcutsCommand(c.arguments, false, preferences, outStream, errStream),
              c.exitCode);
    outStream.flush();
    errStream.flush();
    if (c.stderrText) {
        EXPECT_EQ(err.toStdString(), c.stderrText);
    }
    const std::optional<QString> stored = preferences.string(rackShortcutsKey);
    if (c.storedOverrides) {
        EXPECT_EQ(stored.value_or(QString()).toStdString(), c.storedOverrides);
    } else {
        EXPECT_FALSE(stored) << qPrintable(*stored);
    }
    if (c.exitCode == 0) {
        EXPECT_EQ(out.count(QLatin1Char('\n')), 9) << "the table follows";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, ShortcutsCommandTest,
    ::testing::Values(
        ShortcutsCase{"List", {}, 0, "", nullptr},
        ShortcutsCase{"SetCaseInsensitive",
                      {"set", "SHOWRACK", "ctrl+alt+j"},
                      0,
                      "",
                      R"({"showRack":{"keyCode":38,"modifierBits":1572864}})"},
        ShortcutsCase{"SetTheDefaultStoresNothing", {"set", "close", "Ctrl+W"}, 0, "", nullptr},
        ShortcutsCase{"Collision",
                      {"set", "close", "Ctrl+R"},
                      1,
                      "Ctrl+R is already used for “Mark page as read”.\n",
                      nullptr},
        ShortcutsCase{"ReservedUnquoted",
                      {"set", "close", "Ctrl+Key", "53"},
                      1,
                      "Ctrl+Key 53 is reserved for rack navigation.\n",
                      nullptr},
        ShortcutsCase{"ShiftAlone",
                      {"set", "refresh", "Shift+F"},
                      1,
                      "Use Ctrl, Alt or Super with a letter, number or function key.\n",
                      nullptr},
        ShortcutsCase{"UnknownKey",
                      {"set", "refresh", "Ctrl+Hyper"},
                      1,
                      "Use Ctrl, Alt or Super with a letter, number or function key.\n",
                      nullptr},
        ShortcutsCase{"UnknownAction", {"set", "launch", "Ctrl+J"}, 2, nullptr, nullptr},
        ShortcutsCase{"ResetAll", {"reset"}, 0, "", nullptr}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(ShortcutsCommandResetTest, ResetOfOneActionKeepsTheOthers)
{
    InMemoryPreferences preferences;
    QString out, err;
    QTextStream outStream(&out), errStream(&err);
    ASSERT_EQ(
        runShortcutsCommand({"set", "refresh", "Ctrl+K"}, false, preferences, outStream, errStream),
        0);
    ASSERT_EQ(runShortcutsCommand({"set", "close", "Ctrl+Shift+R"}, false, preferences, outStream,
                                  errStream),
              0)
        << "refresh no longer holds Ctrl+Shift+R";
    ASSERT_EQ(runShortcutsCommand({"reset", "refresh"}, false, preferences, outStream, errStream),
              1)
        << "refresh's default is taken by close now";
    ASSERT_EQ(runShortcutsCommand({"reset", "close"}, false, preferences, outStream, errStream), 0);
    EXPECT_EQ(preferences.string(rackShortcutsKey),
              QStringLiteral(R"({"refresh":{"keyCode":40,"modifierBits":1048576}})"));
}

TEST(InputTraceCommandTest, SessionsWithoutGlobalKeysSayWhyAndFail)
{
    struct Case
    {
        const char *display;
        const char *sessionType;
        const char *message;
    };
    taskrack::testing::XvfbServer server;
    ASSERT_TRUE(server.isRunning());
    const Case cases[] = {
        {nullptr, "x11",
         "Global keys are unavailable: Taskrack could not reach an X11 display. The tray menu "
         "remains available.\n"},
        {"live", "wayland",
         "Global keys are unavailable in a Wayland session: the right-side switcher and the "
         "global shortcuts need an X11 session. The tray menu remains available.\n"},
        {":9999", "x11",
         "Global keys are unavailable: Taskrack could not reach an X11 display. The tray menu "
         "remains available.\n"},
    };
    for (const Case &c : cases) {
        QProcessEnvironment environment = server.environment();
        if (c.display && QByteArray(c.display) != "live")
            environment.insert("DISPLAY", c.display);
        if (!c.display)
            environment.remove("DISPLAY");
        environment.insert("XDG_SESSION_TYPE", c.sessionType);
        const auto result = taskrack::testing::runChild(
            taskrack::testing::binaryDir() + "/app/taskrack", {"input-trace"}, environment);
        EXPECT_EQ(result.exitCode, 1) << c.sessionType;
        EXPECT_EQ(result.err.toStdString(), c.message);
    }
}

} // namespace
