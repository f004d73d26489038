#pragma once

#include "platform/modifiermonitor.h"

#include <set>

namespace taskrack {

// A listener driven by hand: what a real one would report, change by change.
class ScriptedModifierMonitor : public ModifierMonitor
{
public:
    ChangeHandler onChange;
    DisabledHandler onDisabled;
    bool running = false;
    bool shift = false;
    std::set<quint16> held;

    void setHandlers(ChangeHandler change, DisabledHandler disabled) override
    {
        onChange = std::move(change);
        onDisabled = std::move(disabled);
    }
    bool startFails = false;
    bool start() override { return running = !startFails; }
    void stop() override { running = false; }
    bool isRunning() const override { return running; }
    QString disabledReason() const override { return {}; }
    bool isKeyDown(quint16 keyCode) const override { return held.contains(keyCode); }
    KeyRepeatTiming keyRepeatTiming() const override { return {500, 100}; }

    void key(quint16 code, bool down, bool repeat = false)
    {
        if (!running)
            return;
        if (code == ModifierKeyCode::shift)
            shift = down;
        onChange({code, down, shift, repeat});
    }
};

} // namespace taskrack
