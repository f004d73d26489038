#pragma once

// The thin owner the application talks to: starts and stops the right-modifier listener as the
// person turns the gesture on and off, and keeps the readiness model told.

#include "input/hotkeyevent.h"

#include <QObject>

namespace taskrack {

class HotkeyReadiness;
class RightModifierHotkeyMonitor;

class HotkeyController : public QObject
{
    Q_OBJECT
public:
    // Both outlive the controller.
    HotkeyController(RightModifierHotkeyMonitor &rightModifierHotkey, HotkeyReadiness &readiness,
                     QObject *parent = nullptr);

    // Starts the listener when the gesture is on; later switches follow the readiness model.
    void start();
    void stop();

    RightModifierHotkeyMonitor &rightModifierHotkey() { return m_monitor; }
    // A start was wanted while the session offers no listener.
    bool attemptedWithoutPermission() const { return m_attemptedWithoutPermission; }

signals:
    void hotkeyEvent(taskrack::HotkeyEvent event);

private:
    void startListener();
    void stopListener();

    RightModifierHotkeyMonitor &m_monitor;
    HotkeyReadiness &m_readiness;
    bool m_attemptedWithoutPermission = false;
    bool m_started = false;
};

} // namespace taskrack
