// Global input against a real X server: each test has its own Xvfb, another client owns the
// focused window (so typed keys go there, as on a desktop), and keys are typed with XTest.

#include "core/clock.h"
#include "input/globalshortcuthotkey.h"
#include "input/rightmodifierhotkeymonitor.h"
#include "platform/linux/x11globalhotkeys.h"
#include "platform/linux/x11modifiermonitor.h"
#include "testing/testsupport.h"
#include "testing/x11testclient.h"
#include "testing/xvfbserver.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

#include <X11/X.h>
#include <X11/keysym.h>

using namespace taskrack;
using taskrack::testing::waitUntil;

namespace {

class X11GlobalInputTest : public ::testing::Test
{
protected:
    taskrack::testing::XvfbServer server;
    std::unique_ptr<taskrack::testing::X11TestClient> client;
    int rightCtrl = 0, rightAlt = 0, leftCtrl = 0, leftAlt = 0, letterK = 0;

    void SetUp() override
    {
        ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());
        client = std::make_unique<taskrack::testing::X11TestClient>(server.displayName());
        ASSERT_TRUE(client->isConnected());
        client->createFocusedWindow();
        rightCtrl = client->keycodeForName("RCTL");
        rightAlt = client->keycodeForName("RALT");
        leftCtrl = client->keycodeForKeysym(XK_Control_L);
        leftAlt = client->keycodeForKeysym(XK_Alt_L);
        letterK = client->keycodeForKeysym(XK_k);
        ASSERT_TRUE(rightCtrl && rightAlt && leftCtrl && leftAlt && letterK);
    }
};

class X11GestureTest : public X11GlobalInputTest
{
protected:
    std::unique_ptr<X11ModifierMonitor> listener;
    std::unique_ptr<RightModifierHotkeyMonitor> monitor;
    QStringList events;

    void TearDown() override
    {
        monitor.reset();
        // A repeat wait ends at its next wake; none may outlive the test.
        EXPECT_TRUE(
            waitUntil([] { return RightModifierHotkeyMonitor::pendingRepeatWaits() == 0; }));
    }

    void startMonitor()
    {
        listener = std::make_unique<X11ModifierMonitor>(server.displayName());
        monitor = std::make_unique<RightModifierHotkeyMonitor>(*listener, SystemClock::shared());
        QObject::connect(monitor.get(), &RightModifierHotkeyMonitor::hotkeyEvent,
                         [this](HotkeyEvent event) { events.append(hotkeyEventName(event)); });
        ASSERT_FALSE(monitor->start());
    }
    // Waits for the events so far to read `expected`.
    bool eventsRead(const char *expected)
    {
        const QString wanted = QString::fromLatin1(expected);
        waitUntil([&] { return events.join(QLatin1Char(' ')) == wanted; }, 5000);
        return events.join(QLatin1Char(' ')) == wanted;
    }
};

TEST_F(X11GestureTest, WholeGestureFromRealKeys)
{
    startMonitor();
    QSignalSpy verified(monitor.get(), &RightModifierHotkeyMonitor::globalModifierDeliveryVerified);
    client->press(rightCtrl);
    client->tap(rightAlt);
    client->tap(rightAlt);
    client->release(rightCtrl);
    EXPECT_TRUE(eventsRead("prefetch reveal cycle commit")) << qPrintable(events.join(' '));
    EXPECT_EQ(verified.count(), 1);
}

TEST_F(X11GestureTest, LeftCtrlWithRightAltNeverRevealsAndLettersStayUnseen)
{
    startMonitor();
    QList<quint16> seen;
    listener->setHandlers([&](const ModifierKeyChange &change) { seen.append(change.keyCode); },
                          {});
    client->press(leftCtrl);
    client->tap(rightAlt);
    for (KeySym letter : {XK_a, XK_s, XK_d})
        client->tap(client->keycodeForKeysym(letter));
    client->release(leftCtrl);
    client->tap(rightCtrl); // the last change, to wait on
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 6; }, 5000)) << seen.size();
    const QList<quint16> modifiers{ModifierKeyCode::command,      ModifierKeyCode::rightOption,
                                   ModifierKeyCode::rightOption,  ModifierKeyCode::command,
                                   ModifierKeyCode::rightCommand, ModifierKeyCode::rightCommand};
    EXPECT_EQ(seen, modifiers);
    EXPECT_GE(client->keyPressesReceived(), 3) << "the letters went to the focused window";

    // The same keys through the gesture logic reveal nothing.
    listener->setHandlers({}, {});
    monitor.reset();
    listener.reset();
    startMonitor();
    client->press(leftCtrl);
    client->tap(rightAlt);
    client->release(leftCtrl);
    client->tap(rightCtrl);
    EXPECT_TRUE(eventsRead("prefetch")) << qPrintable(events.join(' '));
}

TEST_F(X11GestureTest, KeyHeldAtStartCounts)
{
    client->press(rightCtrl);
    startMonitor();
    client->tap(rightAlt);
    client->release(rightCtrl);
    EXPECT_TRUE(eventsRead("reveal commit")) << qPrintable(events.join(' '));
}

TEST_F(X11GestureTest, LostServerCancelsAndTheProgramRunsOn)
{
    startMonitor();
    QSignalSpy lost(monitor.get(), &RightModifierHotkeyMonitor::listenerLost);
    client->press(rightCtrl);
    client->press(rightAlt);
    ASSERT_TRUE(eventsRead("prefetch reveal")) << qPrintable(events.join(QLatin1Char(' ')));
    client.reset();
    server.stop();
    EXPECT_TRUE(eventsRead("prefetch reveal cancel")) << qPrintable(events.join(' '));
    EXPECT_TRUE(waitUntil([&] { return lost.count() == 1; }));
    EXPECT_FALSE(monitor->isRunning());
}

class X11HotkeyTest : public X11GlobalInputTest
{
protected:
    const RackKeyCombo ctrlAltK{40, RackModifier::command | RackModifier::option};

    void typeHeldCombo()
    {
        client->press(leftCtrl);
        client->press(leftAlt);
        client->press(letterK);
        client->press(letterK); // held: the server repeats the press
        client->press(letterK);
        client->release(letterK);
        client->release(leftAlt);
        client->release(leftCtrl);
    }
};

TEST_F(X11HotkeyTest, HeldHotkeyFiresOnceAlsoWithNumLock)
{
    X11GlobalHotkeys hotkeys(server.displayName());
    ShowRackHotkey hotkey(&hotkeys, ctrlAltK);
    QSignalSpy pressed(&hotkey, &GlobalShortcutHotkey::pressed);
    ASSERT_FALSE(hotkey.registerHotkey());
    typeHeldCombo();
    client->tap(rightCtrl);
    EXPECT_TRUE(waitUntil([&] { return pressed.count() == 1; }, 5000));

    client->setNumLock(true);
    typeHeldCombo();
    EXPECT_TRUE(waitUntil([&] { return pressed.count() == 2; }, 5000)) << pressed.count();
    const int focusedBefore = client->keyPressesReceived();
    client->tap(letterK);
    EXPECT_EQ(client->keyPressesReceived(), focusedBefore + 1) << "plain K still types";
    EXPECT_EQ(pressed.count(), 2);
}

TEST_F(X11HotkeyTest, EarlierGrabOfAnotherClientIsAConflictAndUnregisterFreesOurs)
{
    taskrack::testing::X11TestClient other(server.displayName());
    ASSERT_TRUE(other.grabKey(letterK, ControlMask | Mod1Mask));
    X11GlobalHotkeys hotkeys(server.displayName());
    ShowRackHotkey taken(&hotkeys, ctrlAltK);
    const std::optional<HotkeyError> error = taken.registerHotkey();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text().toStdString(),
              "Ctrl+Alt+K could not be registered, usually because another app already uses it "
              "(X error 10). The tray menu remains available.");

    ShowQuickTaskHotkey ours(&hotkeys, {45, ctrlAltK.modifierBits});
    ASSERT_FALSE(ours.registerHotkey());
    EXPECT_FALSE(other.grabKey(client->keycodeForKeysym(XK_n), ControlMask | Mod1Mask | Mod2Mask))
        << "held, in the NumLock variant too";
    ours.unregisterHotkey();
    EXPECT_TRUE(other.grabKey(client->keycodeForKeysym(XK_n), ControlMask | Mod1Mask | Mod2Mask));
    EXPECT_TRUE(other.grabKey(client->keycodeForKeysym(XK_n), ControlMask | Mod1Mask));
}

TEST_F(X11HotkeyTest, LatinLetterOnACyrillicLayout)
{
    auto setLayout = [&](const char *layout) {
        const auto result =
            taskrack::testing::runChild("setxkbmap", {layout}, server.environment());
        ASSERT_EQ(result.exitCode, 0) << result.err.constData();
    };
    // Only Cyrillic: K has no key, which fails that hot key alone.
    setLayout("ru");
    {
        X11GlobalHotkeys hotkeys(server.displayName());
        ShowRackHotkey rack(&hotkeys, ctrlAltK);
        ShowQuickTaskHotkey quickTask(&hotkeys, {122, ctrlAltK.modifierBits});
        const std::optional<HotkeyError> error = rack.registerHotkey();
        ASSERT_TRUE(error);
        EXPECT_EQ(error->text().toStdString(), "Taskrack could not prepare Ctrl+Alt+K (X error 0). "
                                               "The tray menu remains available.");
        EXPECT_FALSE(quickTask.registerHotkey()) << "Ctrl+Alt+F1 still works";
    }
    // Cyrillic first, Latin second: K is found in the second group and works from the first.
    setLayout("ru,us");
    X11GlobalHotkeys hotkeys(server.displayName());
    ShowRackHotkey rack(&hotkeys, ctrlAltK);
    QSignalSpy pressed(&rack, &GlobalShortcutHotkey::pressed);
    ASSERT_FALSE(rack.registerHotkey());
    letterK = client->keycodeForKeysym(XK_k);
    typeHeldCombo();
    EXPECT_TRUE(waitUntil([&] { return pressed.count() == 1; }, 5000));
}

TEST_F(X11HotkeyTest, KeymapChangeMovesTheGrab)
{
    X11GlobalHotkeys hotkeys(server.displayName());
    ShowRackHotkey rack(&hotkeys, ctrlAltK);
    QSignalSpy pressed(&rack, &GlobalShortcutHotkey::pressed);
    ASSERT_FALSE(rack.registerHotkey());
    const auto result = taskrack::testing::runChild("setxkbmap", {"us", "-variant", "dvorak"},
                                                    server.environment());
    ASSERT_EQ(result.exitCode, 0) << result.err.constData();
    // The layout change is queued on the hot keys' connection by now; any request that waits
    // for the server reads it.
    ShowQuickTaskHotkey other(&hotkeys, {111, ctrlAltK.modifierBits});
    ASSERT_FALSE(other.registerHotkey());
    // Dvorak types K with the key that is V on a US layout.
    letterK = client->keycodeForName("AB04");
    typeHeldCombo();
    EXPECT_TRUE(waitUntil([&] { return pressed.count() == 1; }, 5000));
}

} // namespace
