#include "input/hotkeycontroller.h"

#include "input/hotkeyreadiness.h"
#include "input/rightmodifierhotkeymonitor.h"

namespace taskrack {

HotkeyController::HotkeyController(RightModifierHotkeyMonitor &rightModifierHotkey,
                                   HotkeyReadiness &readiness, QObject *parent)
    : QObject(parent), m_monitor(rightModifierHotkey), m_readiness(readiness)
{
    connect(&m_monitor, &RightModifierHotkeyMonitor::hotkeyEvent, this,
            &HotkeyController::hotkeyEvent);
    connect(&m_monitor, &RightModifierHotkeyMonitor::globalModifierDeliveryVerified, &m_readiness,
            &HotkeyReadiness::modifierDeliveryVerified);
    connect(&m_monitor, &RightModifierHotkeyMonitor::listenerLost, this,
            [this] { m_readiness.listenerFailed(HotkeyError::eventTapUnavailable().text()); });
    connect(&m_readiness, &HotkeyReadiness::enhancedShortcutEnabledChanged, this,
            [this](bool enabled) {
                if (!m_started)
                    return;
                if (enabled)
                    startListener();
                else
                    stopListener();
            });
}

void HotkeyController::start()
{
    m_started = true;
    if (m_readiness.isEnhancedShortcutEnabled())
        startListener();
}

void HotkeyController::stop()
{
    m_started = false;
    stopListener();
}

void HotkeyController::startListener()
{
    if (!m_readiness.isPermissionGranted()) {
        // The readiness model already carries the session's reason.
        m_attemptedWithoutPermission = true;
        return;
    }
    if (const std::optional<HotkeyError> error = m_monitor.start()) {
        m_readiness.listenerFailed(error->text());
        return;
    }
    m_readiness.listenerStarted();
}

void HotkeyController::stopListener()
{
    m_monitor.stop();
    m_readiness.listenerStopped();
}

} // namespace taskrack
