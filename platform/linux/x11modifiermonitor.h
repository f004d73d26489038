#pragma once

// Modifier listening on X11 through XInput 2.1 raw key events on the root window for the master
// devices: listen-only, no grab, whatever window has the focus. Raw events carry every key; all
// but the modifier keys are dropped before anything else happens to them.

#include "platform/linux/x11keymap.h"
#include "platform/modifiermonitor.h"

#include <memory>

union _XEvent;

namespace taskrack {

class X11Display;

class X11ModifierMonitor : public ModifierMonitor
{
public:
    // `displayName` empty means DISPLAY.
    explicit X11ModifierMonitor(QString displayName = {});
    ~X11ModifierMonitor() override;

    void setHandlers(ChangeHandler onChange, DisabledHandler onDisabled) override;
    bool start() override;
    void stop() override;
    bool isRunning() const override { return m_display != nullptr; }
    QString disabledReason() const override { return m_disabledReason; }
    bool isKeyDown(quint16 keyCode) const override;
    KeyRepeatTiming keyRepeatTiming() const override { return m_repeatTiming; }

private:
    bool fail(const QString &reason);
    void handleEvent(_XEvent &event);
    void readHeldKeys();

    QString m_displayName;
    std::unique_ptr<X11Display> m_display;
    ChangeHandler m_onChange;
    DisabledHandler m_onDisabled;
    QString m_disabledReason;
    KeyRepeatTiming m_repeatTiming;
    int m_xinputOpcode = 0;
    int m_xkbEventBase = 0;
    x11keymap::ModifierKeycodes m_modifierKeycodes{};
    std::array<bool, 256> m_down{}; // modifier keys only, by key code
};

} // namespace taskrack
