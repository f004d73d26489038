#pragma once

// System-wide hot keys: a key with modifiers, in portable codes, reserved for this program
// wherever the focus is.

#include <QtGlobal>
#include <functional>

namespace taskrack {

// Portable modifier bits, as shortcuts are stored. On Linux command is Ctrl, option is Alt and
// control is Super.
namespace PortableModifier {
enum : quint32 {
    shift = 131072,
    control = 262144,
    option = 524288,
    command = 1048576,
};
}

struct GlobalHotkeyResult
{
    enum class Outcome {
        registered,
        conflict, // someone else holds the combination
        failed,   // anything else, including a key the keyboard layout cannot type
    };
    Outcome outcome = Outcome::registered;
    int errorCode = 0; // the platform's own code, 0 when it has none

    bool ok() const { return outcome == Outcome::registered; }
};

// All calls and presses on the thread that created the object.
class GlobalHotkeys
{
public:
    virtual ~GlobalHotkeys() = default;

    // Registers `identifier` (replacing what it held before). `onPress` runs once per press; a
    // held combination does not repeat.
    virtual GlobalHotkeyResult grab(quint32 identifier, quint16 keyCode, quint32 modifierBits,
                                    std::function<void()> onPress) = 0;
    virtual void ungrab(quint32 identifier) = 0;
};

} // namespace taskrack
