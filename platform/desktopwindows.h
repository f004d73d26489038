#pragma once

// What an overlay window needs from the desktop beyond what the toolkit offers: staying out of
// task bars and pagers, and taking the keyboard focus from another application and giving it
// back. Windows are named by their native id.

#include <QtGlobal>
#include <memory>
#include <optional>

namespace taskrack {

class DesktopWindows
{
public:
    virtual ~DesktopWindows() = default;

    // Keeps the window out of task bars and pagers. Must run before every map: the window
    // manager reads these states only then.
    virtual void prepareForMap(quint64 window) = 0;
    // The window that has the focus now, if any.
    virtual std::optional<quint64> activeWindow() const = 0;
    // Gives the window the keyboard focus, past a window manager's focus-stealing prevention.
    virtual void activate(quint64 window) = 0;
    virtual bool isViewable(quint64 window) const = 0;
    virtual bool hasFocus(quint64 window) const = 0;
    // The portable code of a hardware key, read in the first (usually Latin) layout group so
    // that letters match by their Latin name under any layout; 0xFFFF when it has none.
    virtual quint16 portableKeyCode(quint32 nativeScanCode) const = 0;

    // The desktop's implementation; one that does nothing where none exists.
    static std::unique_ptr<DesktopWindows> create();
};

} // namespace taskrack
