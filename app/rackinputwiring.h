#pragma once

// The global keys that drive the rack: the show-or-hide shortcut and the right-side gesture,
// joined to a rack controller. The demo and the tray application use this one piece, so both
// react to the same keys in the same way.

#include "input/rackshortcuts.h"
#include "panel/rackcontents.h"

#include <QObject>
#include <functional>
#include <memory>
#include <optional>

namespace taskrack {

class Clock;
class ClaudeEnhancedStatusController;
class HotkeyController;
class HotkeyReadiness;
class Preferences;
class RackPanelController;
class RightModifierHotkeyMonitor;
class ShowQuickTaskHotkey;
class ShowRackHotkey;
class X11GlobalHotkeys;
class X11ModifierMonitor;

class RackInputWiring : public QObject
{
    Q_OBJECT

public:
    RackInputWiring(Preferences &preferences, Clock &clock, QObject *parent = nullptr);
    ~RackInputWiring() override;

    // Joins the keys to the rack and starts listening. Answers the sentence to show when the
    // shortcut could not be registered.
    std::optional<QString> connectRack(RackPanelController &rack);
    // The new-Quick-Task shortcut runs `action`; answers like connectRack.
    std::optional<QString> connectQuickTask(std::function<void()> action);

    HotkeyReadiness &readiness() { return *m_readiness; }
    const RackShortcutOverrides &overrides() const { return m_overrides; }
    // What the rack's texts need from the shortcut table and the readiness.
    RackShortcutNames shortcutNames() const;
    RackOnboardingFacts onboardingFacts(bool hasMadeClaudeChoice) const;
    // The same with the Claude setup's progress and error from its controller.
    RackOnboardingFacts onboardingFacts(const ClaudeEnhancedStatusController &claude) const;
    // Ends a gesture in progress, for the rack's close command.
    void cancelGesture();
    // Lets go of the global hot keys while a shortcut is recorded (their keys would never reach
    // the recording window), and takes back those that were held.
    void setGlobalShortcutsSuspended(bool suspended);

signals:
    // The readiness changed: the rack's onboarding may look different.
    void readinessChanged();

private:
    RackShortcutOverrides m_overrides;
    std::unique_ptr<HotkeyReadiness> m_readiness;
    std::unique_ptr<X11GlobalHotkeys> m_hotkeys;
    std::unique_ptr<ShowRackHotkey> m_showRack;
    std::unique_ptr<ShowQuickTaskHotkey> m_newQuickTask;
    std::unique_ptr<X11ModifierMonitor> m_modifiers;
    std::unique_ptr<RightModifierHotkeyMonitor> m_gesture;
    std::unique_ptr<HotkeyController> m_controller;
    bool m_suspendedShowRack = false;
    bool m_suspendedNewQuickTask = false;
};

} // namespace taskrack
