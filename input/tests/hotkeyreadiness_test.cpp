#include "input/hotkeycontroller.h"
#include "input/hotkeyerror.h"
#include "input/hotkeyreadiness.h"
#include "input/rightmodifierhotkeymonitor.h"
#include "input/tests/scriptedmodifiermonitor.h"
#include "platform/preferences.h"
#include "testing/fakeclock.h"

#include <QStringList>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

struct ReadinessCase
{
    const char *name;
    std::optional<HotkeyUnavailableReason> unavailable;
    bool startFails;
    bool storedOn;
    const char *steps;  // on, off: the person's switch; key: a modifier event; lost: listener gone
    const char *states; // the state after the controller starts, then after each step
    int changes;        // `changed` signals over the whole run
    const char *error;  // listenerError at the end, nullptr for none
};

void PrintTo(const ReadinessCase &c, std::ostream *os)
{
    *os << c.name;
}

class ReadinessTest : public ::testing::TestWithParam<ReadinessCase>
{
};

TEST_P(ReadinessTest, StatesFollowTheListener)
{
    const ReadinessCase &c = GetParam();
    taskrack::testing::FakeClock clock;
    InMemoryPreferences defaults;
    if (c.storedOn)
        defaults.setValue(enhancedShortcutEnabledKey, true);
    ScriptedModifierMonitor listener;
    listener.startFails = c.startFails;
    RightModifierHotkeyMonitor monitor(listener, clock);
    HotkeyReadiness readiness(defaults, c.unavailable);
    HotkeyController controller(monitor, readiness);
    int changes = 0;
    QObject::connect(&readiness, &HotkeyReadiness::changed, [&] { ++changes; });

    controller.start();
    QStringList states{rawValue(readiness.state())};
    for (const QString &step : QString::fromLatin1(c.steps).split(' ', Qt::SkipEmptyParts)) {
        if (step == "on" || step == "off") {
            readiness.setEnhancedShortcutEnabled(step == "on");
            EXPECT_EQ(listener.running, step == "on" && !c.unavailable && !c.startFails);
        } else if (step == "key") {
            listener.key(ModifierKeyCode::shift, true);
        } else if (step == "lost") {
            listener.running = false;
            listener.onDisabled(QStringLiteral("connection lost"));
        }
        states.append(rawValue(readiness.state()));
    }
    EXPECT_EQ(states.join(' ').toStdString(), c.states);
    EXPECT_EQ(changes, c.changes);
    EXPECT_EQ(readiness.listenerError().value_or(QString()).toStdString(), c.error ? c.error : "");
    EXPECT_EQ(defaults.boolValue(enhancedShortcutEnabledKey),
              readiness.isEnhancedShortcutEnabled());
    const bool wanted = c.storedOn || QByteArray(c.steps).contains("on");
    EXPECT_EQ(controller.attemptedWithoutPermission(), c.unavailable.has_value() && wanted);
}

const char *tapUnavailable = "Taskrack could not start the right-modifier shortcut listener.";
const char *noXInput =
    "The right-side switcher needs the XInput 2.1 extension, which this X server lacks.";

INSTANTIATE_TEST_SUITE_P(
    Table, ReadinessTest,
    ::testing::Values(
        ReadinessCase{"OffIsOptional", {}, false, false, "key", "optional optional", 0, nullptr},
        ReadinessCase{"OnVerifiesAtTheFirstModifier",
                      {},
                      false,
                      false,
                      "on key key off",
                      "optional grantedNeedsVerification ready ready optional",
                      5,
                      nullptr},
        ReadinessCase{"StoredOnStartsAtOnce",
                      {},
                      false,
                      true,
                      "key",
                      "grantedNeedsVerification ready",
                      2,
                      nullptr},
        ReadinessCase{"StartFailure",
                      {},
                      true,
                      false,
                      "on off on",
                      "optional listenerFailed optional listenerFailed",
                      6,
                      tapUnavailable},
        ReadinessCase{"LostConnection",
                      {},
                      false,
                      true,
                      "key lost",
                      "grantedNeedsVerification ready listenerFailed",
                      3,
                      tapUnavailable},
        ReadinessCase{"NoXInputFails", HotkeyUnavailableReason::xinputTooOld, false, false,
                      "on off", "optional listenerFailed optional", 2, noXInput},
        ReadinessCase{"WaylandStoredOn", HotkeyUnavailableReason::waylandSession, false, true,
                      "key", "listenerFailed listenerFailed", 0,
                      "Global keys are unavailable in a Wayland session: the right-side switcher "
                      "and the global shortcuts need an X11 session. The tray menu remains "
                      "available."}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(HotkeyAvailabilityTest, ProbeDecidesFromEnvironmentAndConnection)
{
    struct Case
    {
        HotkeyEnvironment environment;
        DisplayInputSupport display;
        std::optional<HotkeyUnavailableReason> shortcuts;
        std::optional<HotkeyUnavailableReason> gesture;
        bool connects;
    };
    using R = HotkeyUnavailableReason;
    const DisplayInputSupport xi24{true, 2, 4}, xi20{true, 2, 0}, none{false, 0, 0};
    const Case cases[] = {
        {{":0", "", "x11"}, xi24, {}, {}, true},
        {{":0", "", ""}, {true, 0, 0}, {}, R::xinputTooOld, true},
        {{":0", "", "x11"}, xi20, {}, R::xinputTooOld, true},
        {{":0", "wayland-0", "wayland"}, xi24, R::waylandSession, R::waylandSession, false},
        {{":0", "", "Wayland"}, xi24, R::waylandSession, R::waylandSession, false},
        {{":0", "wayland-0", ""}, xi24, R::waylandSession, R::waylandSession, false},
        {{"", "", "x11"}, xi24, R::noDisplay, R::noDisplay, false},
        {{":0", "", "x11"}, none, R::noDisplay, R::noDisplay, true},
    };
    for (const Case &c : cases) {
        bool connected = false;
        const HotkeyAvailability availability =
            probeHotkeyAvailability(c.environment, [&](const QString &display) {
                connected = true;
                EXPECT_EQ(display, c.environment.display);
                return c.display;
            });
        EXPECT_EQ(availability.globalShortcuts, c.shortcuts)
            << qPrintable(c.environment.sessionType);
        EXPECT_EQ(availability.gesture, c.gesture) << qPrintable(c.environment.sessionType);
        EXPECT_EQ(connected, c.connects);
    }
}

} // namespace
