#include "app/rackinputwiring.h"

#include "input/globalshortcuthotkey.h"
#include "input/hotkeyavailability.h"
#include "input/hotkeycontroller.h"
#include "input/hotkeyreadiness.h"
#include "input/rightmodifierhotkeymonitor.h"
#include "panel/rackpanelcontroller.h"
#include "platform/inputdisplayprobe.h"
#include "platform/linux/x11globalhotkeys.h"
#include "platform/linux/x11modifiermonitor.h"
#include "sources/claude/claudeenhancedstatuscontroller.h"

namespace taskrack {

RackInputWiring::RackInputWiring(Preferences &preferences, Clock &clock, QObject *parent)
    : QObject(parent), m_overrides(loadShortcuts(preferences))
{
    const HotkeyAvailability availability =
        probeHotkeyAvailability(HotkeyEnvironment::fromProcess(), probeDisplayInput);
    m_readiness = std::make_unique<HotkeyReadiness>(preferences, availability.gesture);
    if (availability.globalShortcutsAvailable())
        m_hotkeys = std::make_unique<X11GlobalHotkeys>();
    m_showRack = std::make_unique<ShowRackHotkey>(
        m_hotkeys.get(), effectiveCombo(RackShortcutAction::showRack, m_overrides),
        availability.globalShortcuts);
    m_newQuickTask = std::make_unique<ShowQuickTaskHotkey>(
        m_hotkeys.get(), effectiveCombo(RackShortcutAction::newQuickTask, m_overrides),
        availability.globalShortcuts);
    m_modifiers = std::make_unique<X11ModifierMonitor>();
    m_gesture = std::make_unique<RightModifierHotkeyMonitor>(*m_modifiers, clock);
    m_controller = std::make_unique<HotkeyController>(*m_gesture, *m_readiness);
    connect(m_readiness.get(), &HotkeyReadiness::changed, this, &RackInputWiring::readinessChanged);
}

RackInputWiring::~RackInputWiring()
{
    m_controller->stop();
}

std::optional<QString> RackInputWiring::connectRack(RackPanelController &rack)
{
    m_gesture->requiresExplicitCycleBeforeRepeating = [&rack] {
        return rack.requiresExplicitCycleBeforeRepeating();
    };
    connect(m_controller.get(), &HotkeyController::hotkeyEvent, &rack,
            [this, &rack](HotkeyEvent event) {
                // The gesture acts only while the listener may deliver.
                if (m_readiness->mayDeliver())
                    rack.handle(event);
            });
    connect(m_showRack.get(), &GlobalShortcutHotkey::pressed, &rack, &RackPanelController::toggle);
    m_controller->start();
    if (const std::optional<HotkeyError> error = m_showRack->registerHotkey())
        return error->text();
    return std::nullopt;
}

std::optional<QString> RackInputWiring::connectQuickTask(std::function<void()> action)
{
    connect(m_newQuickTask.get(), &GlobalShortcutHotkey::pressed, this, std::move(action));
    if (const std::optional<HotkeyError> error = m_newQuickTask->registerHotkey())
        return error->text();
    return std::nullopt;
}

void RackInputWiring::cancelGesture()
{
    m_gesture->cancelGesture();
}

void RackInputWiring::setGlobalShortcutsSuspended(bool suspended)
{
    // A grabbed key never reaches the window that records a new one: let both go meanwhile.
    if (suspended) {
        if (m_showRack->isRegistered()) {
            m_showRack->unregisterHotkey();
            m_suspendedShowRack = true;
        }
        if (m_newQuickTask && m_newQuickTask->isRegistered()) {
            m_newQuickTask->unregisterHotkey();
            m_suspendedNewQuickTask = true;
        }
        return;
    }
    if (std::exchange(m_suspendedShowRack, false))
        m_showRack->registerHotkey();
    if (std::exchange(m_suspendedNewQuickTask, false) && m_newQuickTask)
        m_newQuickTask->registerHotkey();
}

RackShortcutNames RackInputWiring::shortcutNames() const
{
    auto name = [this](RackShortcutAction action) {
        return displayName(effectiveCombo(action, m_overrides));
    };
    return {name(RackShortcutAction::toggleOrganization), name(RackShortcutAction::markPageRead),
            name(RackShortcutAction::togglePageLock), name(RackShortcutAction::showRack)};
}

RackOnboardingFacts RackInputWiring::onboardingFacts(bool hasMadeClaudeChoice) const
{
    RackOnboardingFacts facts;
    facts.hasMadeSetupChoice = m_readiness->hasMadeSetupChoice();
    facts.isEnhancedShortcutEnabled = m_readiness->isEnhancedShortcutEnabled();
    facts.isEnhancedShortcutReady = m_readiness->mayDeliver();
    facts.hasMadeClaudeChoice = hasMadeClaudeChoice;
    return facts;
}

} // namespace taskrack

namespace taskrack {

RackOnboardingFacts
RackInputWiring::onboardingFacts(const ClaudeEnhancedStatusController &claude) const
{
    RackOnboardingFacts facts = onboardingFacts(claude.hasMadeOnboardingChoice());
    facts.isClaudeBusy = claude.isBusy();
    facts.claudeError = claude.lastError();
    return facts;
}

} // namespace taskrack
