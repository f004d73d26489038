#include "input/rackshortcuts.h"
#include "platform/preferences.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

constexpr quint32 ctrl = RackModifier::command;
constexpr quint32 alt = RackModifier::option;
constexpr quint32 shift = RackModifier::shift;
constexpr quint32 super = RackModifier::control;

struct ValidationCase
{
    const char *name;
    RackShortcutAction action;
    RackKeyCombo combo;
    const char *message; // nullptr: accepted
};

void PrintTo(const ValidationCase &c, std::ostream *os)
{
    *os << c.name;
}

class ValidationTest : public ::testing::TestWithParam<ValidationCase>
{
};

TEST_P(ValidationTest, FirstFailingRuleSpeaks)
{
    const ValidationCase &c = GetParam();
    const std::optional<QString> message = validationMessage(c.combo, c.action, {});
    if (!c.message)
        EXPECT_FALSE(message) << qPrintable(*message);
    else
        EXPECT_EQ(message.value_or(QStringLiteral("(accepted)")), QString::fromUtf8(c.message));
}

INSTANTIATE_TEST_SUITE_P(
    Table, ValidationTest,
    ::testing::Values(
        ValidationCase{"ShiftAloneIsNoModifier",
                       RackShortcutAction::activateSearch,
                       {3, shift},
                       "Use Ctrl, Alt or Super with a letter, number or function key."},
        ValidationCase{"KeyOutsideTheList",
                       RackShortcutAction::refresh,
                       {53, ctrl | alt},
                       "Use Ctrl, Alt or Super with a letter, number or function key."},
        ValidationCase{"ReservedEscapeHasNoName",
                       RackShortcutAction::close,
                       {53, ctrl},
                       "Ctrl+Key 53 is reserved for rack navigation."},
        ValidationCase{"ReservedArrow",
                       RackShortcutAction::close,
                       {126, ctrl},
                       "Ctrl+↑ is reserved for rack navigation."},
        ValidationCase{"Collision",
                       RackShortcutAction::close,
                       {15, ctrl},
                       "Ctrl+R is already used for “Mark page as read”."},
        ValidationCase{"OwnComboIsNoCollision", RackShortcutAction::close, {13, ctrl}, nullptr},
        ValidationCase{
            "SuperQualifies", RackShortcutAction::showRack, {40, super | shift}, nullptr},
        ValidationCase{"FunctionKey", RackShortcutAction::refresh, {96, alt}, nullptr}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(RackKeyComboTest, DisplayNamesRoundTripThroughTheParser)
{
    struct Case
    {
        RackKeyCombo combo;
        const char *text;
    };
    const Case cases[] = {
        {{40, ctrl | alt}, "Ctrl+Alt+K"},
        {{15, super | shift | alt | ctrl}, "Ctrl+Alt+Shift+Super+R"},
        {{43, ctrl}, "Ctrl+,"},
        {{42, alt}, "Alt+\\"},
        {{49, super}, "Super+Space"},
        {{36, ctrl}, "Ctrl+↩"},
        {{111, shift}, "Shift+F12"},
        {{53, ctrl}, "Ctrl+Key 53"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(displayName(c.combo), QString::fromUtf8(c.text));
        EXPECT_EQ(parseRackKeyCombo(QString::fromUtf8(c.text)), c.combo) << c.text;
    }
    EXPECT_EQ(parseRackKeyCombo(QStringLiteral(" ctrl + ALT + k")), (RackKeyCombo{40, ctrl | alt}));
    EXPECT_EQ(parseRackKeyCombo(QStringLiteral("super+space")), (RackKeyCombo{49, super}));
    for (const char *bad : {"", "Ctrl+", "Ctrl+Ctrl+K", "Hyper+K", "Ctrl+KK", "Ctrl+Key 70000"})
        EXPECT_FALSE(parseRackKeyCombo(QString::fromUtf8(bad))) << bad;
    EXPECT_EQ(rackAllowedKeys().size(), 67u);
}

class ShortcutStorageTest : public ::testing::Test
{
protected:
    InMemoryPreferences defaults;
    QSignalSpy saved{&RackShortcutNotifications::shared(),
                     &RackShortcutNotifications::shortcutsDidChange};

    void store(const char *json) { defaults.setValue(rackShortcutsKey, QString::fromUtf8(json)); }
};

TEST_F(ShortcutStorageTest, OnlyOverridesAreStoredAndTheDefaultRemovesThem)
{
    RackShortcutOverrides overrides =
        withShortcut({}, RackShortcutAction::refresh, RackKeyCombo{40, ctrl});
    saveShortcuts(overrides, defaults);
    EXPECT_EQ(defaults.string(rackShortcutsKey),
              QStringLiteral(R"({"refresh":{"keyCode":40,"modifierBits":1048576}})"));
    EXPECT_EQ(loadShortcuts(defaults), overrides);
    EXPECT_FALSE(validationMessage({15, ctrl | shift}, RackShortcutAction::close, overrides))
        << "the old refresh combo is free";

    overrides = withShortcut(overrides, RackShortcutAction::refresh,
                             defaultCombo(RackShortcutAction::refresh));
    EXPECT_TRUE(overrides.empty());
    saveShortcuts(overrides, defaults);
    EXPECT_FALSE(defaults.contains(rackShortcutsKey));
    EXPECT_EQ(saved.count(), 2);
}

TEST_F(ShortcutStorageTest, BadStoredSetsGiveTheDefaultsAndStayUntouched)
{
    const char *stored[] = {
        "not json",
        R"(["refresh"])",
        R"({"refresh":{"keyCode":"40","modifierBits":1048576}})",
        R"({"refresh":{"keyCode":40.5,"modifierBits":1048576}})",
        R"({"close":{"keyCode":15,"modifierBits":1048576}})", // collides with markPageRead
        R"({"close":{"keyCode":53,"modifierBits":1048576}})", // reserved
        R"({"close":{"keyCode":13,"modifierBits":131072}})",  // Shift alone
    };
    for (const char *json : stored) {
        store(json);
        EXPECT_TRUE(loadShortcuts(defaults).empty()) << json;
        EXPECT_EQ(defaults.string(rackShortcutsKey), QString::fromUtf8(json));
    }
    store(R"({"unknownAction":{"keyCode":1,"modifierBits":1048576},
              "close":{"keyCode":13,"modifierBits":1048576},
              "showRack":{"keyCode":1,"modifierBits":524288}})");
    EXPECT_EQ(loadShortcuts(defaults),
              (RackShortcutOverrides{{RackShortcutAction::showRack, {1, alt}}}))
        << "unknown actions and overrides equal to the default are dropped";
    EXPECT_EQ(saved.count(), 0);
}

} // namespace
