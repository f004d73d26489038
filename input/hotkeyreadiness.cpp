#include "input/hotkeyreadiness.h"

#include "input/hotkeyerror.h"
#include "input/hotkeylog.h"
#include "platform/preferences.h"

#include <array>

namespace taskrack {

namespace {

struct StateInfo
{
    const char *raw;
    const char *label;
};

constexpr std::array<StateInfo, 7> states{{
    {"optional", ""},
    {"notRequested", "Input Monitoring not enabled"},
    {"waitingInSystemSettings", "Waiting in System Settings"},
    {"grantedNeedsVerification", "Granted, needs verification"},
    {"restartRequired", "Restart required"},
    {"ready", ""},
    {"listenerFailed", "Listener unavailable"},
}};

} // namespace

QString rawValue(TaskrackInputMonitoringState state)
{
    return QString::fromLatin1(states.at(size_t(state)).raw);
}

QString label(TaskrackInputMonitoringState state)
{
    return QString::fromLatin1(states.at(size_t(state)).label);
}

HotkeyReadiness::HotkeyReadiness(Preferences &defaults,
                                 std::optional<HotkeyUnavailableReason> gestureUnavailable,
                                 QObject *parent)
    : QObject(parent), m_defaults(defaults)
{
    m_hasMadeSetupChoice = defaults.boolValue(hasMadeSetupChoiceKey);
    m_isEnhancedShortcutEnabled = defaults.boolValue(enhancedShortcutEnabledKey);
    if (gestureUnavailable) {
        m_isPermissionGranted = false;
        m_unavailableText = HotkeyError::inputMonitoringDenied(*gestureUnavailable).text();
        m_listenerError = m_unavailableText;
    }
}

TaskrackInputMonitoringState HotkeyReadiness::state() const
{
    using State = TaskrackInputMonitoringState;
    if (!m_isEnhancedShortcutEnabled)
        return State::optional;
    if (!m_isPermissionGranted || m_listenerError)
        return State::listenerFailed;
    if (m_isListenerRunning && m_isModifierDeliveryVerified)
        return State::ready;
    return State::grantedNeedsVerification;
}

template <typename T> void HotkeyReadiness::assign(T &field, const T &value)
{
    if (field == value)
        return;
    field = value;
    emit changed();
}

void HotkeyReadiness::setEnhancedShortcutEnabled(bool enabled)
{
    m_defaults.setValue(enhancedShortcutEnabledKey, enabled);
    // Turning the gesture on is a setup choice too; one change either way.
    const bool choiceChanged = enabled && !m_hasMadeSetupChoice;
    if (choiceChanged) {
        m_hasMadeSetupChoice = true;
        m_defaults.setValue(hasMadeSetupChoiceKey, true);
    }
    if (m_isEnhancedShortcutEnabled == enabled) {
        if (choiceChanged)
            emit changed();
        return;
    }
    m_isEnhancedShortcutEnabled = enabled;
    emit changed();
    emit enhancedShortcutEnabledChanged(enabled);
}

void HotkeyReadiness::setHasMadeSetupChoice(bool made)
{
    m_defaults.setValue(hasMadeSetupChoiceKey, made);
    assign(m_hasMadeSetupChoice, made);
}

void HotkeyReadiness::listenerStarted()
{
    qCInfo(lcHotkey, "Right-side modifier listener is running; Input Monitoring preflight: %d",
           int(m_isPermissionGranted));
    // One change, not two: the error goes with the start.
    if (m_isListenerRunning && !m_listenerError)
        return;
    m_isListenerRunning = true;
    m_listenerError.reset();
    emit changed();
}

void HotkeyReadiness::listenerStopped()
{
    if (!m_isListenerRunning && !m_isModifierDeliveryVerified &&
        m_listenerError == m_unavailableText)
        return;
    m_isListenerRunning = false;
    m_isModifierDeliveryVerified = false;
    // A session without the gesture keeps saying why; a failure of the last run is forgotten.
    m_listenerError = m_unavailableText;
    emit changed();
}

void HotkeyReadiness::listenerFailed(const QString &error)
{
    qCWarning(lcHotkey,
              "Right-side modifier listener unavailable; Input Monitoring preflight: %d; %s",
              int(m_isPermissionGranted), qPrintable(error));
    if (!m_isListenerRunning && !m_isModifierDeliveryVerified && m_listenerError == error)
        return;
    m_isListenerRunning = false;
    m_isModifierDeliveryVerified = false;
    m_listenerError = error;
    emit changed();
}

void HotkeyReadiness::modifierDeliveryVerified()
{
    // Only a running listener's delivery counts.
    if (m_isListenerRunning)
        assign(m_isModifierDeliveryVerified, true);
}

} // namespace taskrack
