#include "input/rightmodifierhotkeymonitor.h"
#include "input/tests/scriptedmodifiermonitor.h"
#include "testing/fakeclock.h"

#include <QStringList>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

struct GestureCase
{
    const char *name;
    const char *script;   // tokens, see run()
    const char *expected; // events in order
};

void PrintTo(const GestureCase &c, std::ostream *os)
{
    *os << c.name;
}

class GestureTest : public ::testing::TestWithParam<GestureCase>
{
};

// C/O/S/L: right Ctrl, right Alt, Shift, left Ctrl; + press, - release, r a system repeat.
// tN: N ms pass. H: keys held before start (C and O). E: the rack requires an explicit cycle.
// X: cancelGesture(). Z: stop(). K: the listener reports its loss. !: start().
TEST_P(GestureTest, EventsFollowTheKeys)
{
    taskrack::testing::FakeClock clock;
    ScriptedModifierMonitor listener;
    QStringList events;
    bool explicitCycle = false;
    {
        RightModifierHotkeyMonitor monitor(listener, clock);
        monitor.requiresExplicitCycleBeforeRepeating = [&] { return explicitCycle; };
        QObject::connect(&monitor, &RightModifierHotkeyMonitor::hotkeyEvent,
                         [&](HotkeyEvent event) { events.append(hotkeyEventName(event)); });
        const QString script = QString::fromLatin1(GetParam().script);
        if (!script.startsWith(QLatin1Char('H'))) {
            ASSERT_FALSE(monitor.start());
        }
        for (const QString &token : script.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            const QChar first = token.at(0);
            if (first == QLatin1Char('t')) {
                clock.advance(std::chrono::milliseconds(token.mid(1).toInt()));
            } else if (first == QLatin1Char('H')) {
                listener.held = {ModifierKeyCode::rightCommand, ModifierKeyCode::rightOption};
                ASSERT_FALSE(monitor.start());
            } else if (first == QLatin1Char('E')) {
                explicitCycle = true;
            } else if (first == QLatin1Char('X')) {
                monitor.cancelGesture();
            } else if (first == QLatin1Char('Z')) {
                monitor.stop();
            } else if (first == QLatin1Char('K')) {
                listener.running = false;
                listener.onDisabled(QStringLiteral("connection lost"));
            } else {
                static const std::map<QChar, quint16> codes{
                    {QLatin1Char('C'), ModifierKeyCode::rightCommand},
                    {QLatin1Char('O'), ModifierKeyCode::rightOption},
                    {QLatin1Char('S'), ModifierKeyCode::shift},
                    {QLatin1Char('L'), ModifierKeyCode::command}};
                listener.key(codes.at(first), token.at(1) == QLatin1Char('+'),
                             token.endsWith(QLatin1Char('r')));
            }
        }
    }
    // Wake any repeat still asleep so that it sees its monitor gone.
    clock.advance(std::chrono::hours(1));
    EXPECT_EQ(events.join(QLatin1Char(' ')).toStdString(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, GestureTest,
    ::testing::Values(
        GestureCase{"WholeGesture", "C+ O+ O- O+ O- C-", "prefetch reveal cycle commit"},
        GestureCase{"OptionFirstGivesPrefetchAndRevealTogether", "O+ C+ O- C-",
                    "prefetch reveal commit"},
        GestureCase{"PrefetchAloneLeavesIdle", "C+ C- C+ C-", "prefetch prefetch"},
        GestureCase{"LeftCtrlNeverReveals", "L+ O+ O- O+ L-", ""},
        GestureCase{"ShiftMakesTheStepBackward", "C+ O+ O- S+ O+ O- S- O+ C-",
                    "prefetch reveal cycleBackward cycle commit"},
        GestureCase{"ShiftAloneDoesNothing", "C+ O+ S+ S- C-", "prefetch reveal commit"},
        GestureCase{"ReleasingAltKeepsTheGesture", "C+ O+ O- t5000 C-", "prefetch reveal commit"},
        GestureCase{"HoldingBothRepeatsAfterTheDelay", "C+ O+ t499 t1 t100 O- t1000 C-",
                    "prefetch reveal cycle cycle commit"},
        GestureCase{"ExplicitCycleNeededBeforeRepeats", "E C+ O+ t1000 O- O+ t500 C-",
                    "prefetch reveal cycle cycle commit"},
        GestureCase{"SystemRepeatsNeedAnActiveGesture", "C+ O+r O- O+ O+r C-",
                    "prefetch reveal cycle commit"},
        GestureCase{"CancelEndsTheGestureOnce", "C+ O+ X X t2000 C-", "prefetch reveal cancel"},
        GestureCase{"LossMidGestureCancels", "C+ O+ K t2000", "prefetch reveal cancel"},
        GestureCase{"StopIsSilent", "C+ O+ Z t2000 C-", "prefetch reveal"},
        GestureCase{"KeysHeldAtStartCount", "H O- O+ C-", "reveal commit"},
        GestureCase{"KeysHeldAtStartThenTap", "H O- C-", ""}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(RightModifierHotkeyMonitorTest, FirstModifierEventVerifiesDeliveryOncePerStart)
{
    taskrack::testing::FakeClock clock;
    ScriptedModifierMonitor listener;
    RightModifierHotkeyMonitor monitor(listener, clock);
    int verified = 0;
    QObject::connect(&monitor, &RightModifierHotkeyMonitor::globalModifierDeliveryVerified,
                     [&] { ++verified; });
    ASSERT_FALSE(monitor.start());
    EXPECT_FALSE(monitor.hasReceivedGlobalModifierEvent());
    listener.key(ModifierKeyCode::shift, true);
    listener.key(ModifierKeyCode::shift, false);
    EXPECT_TRUE(monitor.hasReceivedGlobalModifierEvent());
    monitor.stop();
    EXPECT_FALSE(monitor.hasReceivedGlobalModifierEvent());
    ASSERT_FALSE(monitor.start());
    listener.key(ModifierKeyCode::rightCommand, true);
    EXPECT_EQ(verified, 2);
}

} // namespace
