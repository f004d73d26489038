#pragma once

// System-wide listening to modifier keys, and only to them: a listener never reports, stores or
// counts any other key. Keys are given in their portable codes; the gesture logic lives above.

#include <QString>
#include <QtGlobal>
#include <functional>

namespace taskrack {

// Portable codes of the modifier keys. On Linux command is Ctrl, option is Alt, control is Super.
namespace ModifierKeyCode {
enum : quint16 {
    rightCommand = 54,
    command = 55,
    shift = 56,
    option = 58,
    control = 59,
    rightShift = 60,
    rightOption = 61,
    rightControl = 62,
};
}

struct ModifierKeyChange
{
    quint16 keyCode = 0;
    bool isDown = false;
    bool shiftIsDown = false; // either Shift key, after this change
    bool isRepeat = false;    // a repeat the system generated while the key is held

    bool operator==(const ModifierKeyChange &) const = default;
};

struct KeyRepeatTiming
{
    int delayMs = 500;   // from press to the first repeat
    int intervalMs = 33; // between repeats
};

// All calls and handlers on the thread that created the monitor.
class ModifierMonitor
{
public:
    using ChangeHandler = std::function<void(const ModifierKeyChange &)>;
    // The listener stopped on its own (for example its display went away); `reason` is a short
    // fixed text for the log.
    using DisabledHandler = std::function<void(const QString &reason)>;

    virtual ~ModifierMonitor() = default;
    virtual void setHandlers(ChangeHandler onChange, DisabledHandler onDisabled) = 0;

    // Starts listening; false when it cannot, with disabledReason() saying why. Starting a
    // running monitor does nothing.
    virtual bool start() = 0;
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;
    virtual QString disabledReason() const = 0;

    // Whether a modifier key is held right now, for keys already down when listening starts.
    virtual bool isKeyDown(quint16 keyCode) const = 0;
    virtual KeyRepeatTiming keyRepeatTiming() const = 0;
};

} // namespace taskrack
