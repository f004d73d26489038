#pragma once

// How far the right-modifier gesture is from working, in one place that the rack, the settings
// and the diagnostics read. There is no permission to ask for on X11: turning the gesture on
// starts the listener, and the first modifier event it receives proves delivery.

#include "input/hotkeyavailability.h"

#include <QObject>
#include <optional>

namespace taskrack {

class Preferences;

enum class TaskrackInputMonitoringState {
    optional,
    notRequested,
    waitingInSystemSettings,
    grantedNeedsVerification,
    restartRequired,
    ready,
    listenerFailed,
};

QString rawValue(TaskrackInputMonitoringState state);
// The short label of a state; empty for `optional` and `ready`.
QString label(TaskrackInputMonitoringState state);

inline const QString hasMadeSetupChoiceKey = QStringLiteral("inputMonitoring.hasMadeSetupChoice");
inline const QString enhancedShortcutEnabledKey =
    QStringLiteral("inputMonitoring.enhancedShortcutEnabled");

class HotkeyReadiness : public QObject
{
    Q_OBJECT
public:
    // `gestureUnavailable` is the session's verdict (HotkeyAvailability::gesture).
    HotkeyReadiness(Preferences &defaults,
                    std::optional<HotkeyUnavailableReason> gestureUnavailable,
                    QObject *parent = nullptr);

    bool isPermissionGranted() const { return m_isPermissionGranted; }
    bool isListenerRunning() const { return m_isListenerRunning; }
    bool isModifierDeliveryVerified() const { return m_isModifierDeliveryVerified; }
    std::optional<QString> listenerError() const { return m_listenerError; }
    bool didOpenSystemSettings() const { return false; }
    bool hasMadeSetupChoice() const { return m_hasMadeSetupChoice; }
    bool isEnhancedShortcutEnabled() const { return m_isEnhancedShortcutEnabled; }

    TaskrackInputMonitoringState state() const;
    // Whether a gesture event may be acted upon now.
    bool mayDeliver() const { return state() == TaskrackInputMonitoringState::ready; }

    // The person's choices; both are persisted.
    void setEnhancedShortcutEnabled(bool enabled);
    void setHasMadeSetupChoice(bool made);

    // Reports from whoever runs the listener.
    void listenerStarted();
    void listenerStopped();
    void listenerFailed(const QString &error);
    void modifierDeliveryVerified();

signals:
    // Once per real change of any field.
    void changed();
    // The person turned the gesture on or off: the listener's owner starts or stops it.
    void enhancedShortcutEnabledChanged(bool enabled);

private:
    template <typename T> void assign(T &field, const T &value);

    Preferences &m_defaults;
    bool m_isPermissionGranted = true;
    bool m_isListenerRunning = false;
    bool m_isModifierDeliveryVerified = false;
    std::optional<QString> m_listenerError;
    bool m_hasMadeSetupChoice = false;
    bool m_isEnhancedShortcutEnabled = false;
    std::optional<QString> m_unavailableText;
};

} // namespace taskrack
