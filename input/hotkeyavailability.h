#pragma once

// Whether this session can have global keys at all, decided once from the environment and one
// connection to the display. Under Wayland X clients see keys only while one of their own
// windows has focus, so XWayland's DISPLAY does not count.

#include "platform/inputdisplayprobe.h"

#include <QString>
#include <functional>
#include <optional>

namespace taskrack {

enum class HotkeyUnavailableReason {
    waylandSession,
    noDisplay,    // no DISPLAY, or the display refused the connection
    xinputTooOld, // the gesture only: raw key events need XInput 2.1
};

struct HotkeyEnvironment
{
    QString display;
    QString waylandDisplay;
    QString sessionType; // XDG_SESSION_TYPE

    static HotkeyEnvironment fromProcess();
};

struct HotkeyAvailability
{
    std::optional<HotkeyUnavailableReason> globalShortcuts; // set when unavailable
    std::optional<HotkeyUnavailableReason> gesture;
    DisplayInputSupport display;

    bool globalShortcutsAvailable() const { return !globalShortcuts; }
    bool gestureAvailable() const { return !gesture; }
};

using DisplayProbe = std::function<DisplayInputSupport(const QString &display)>;

HotkeyAvailability probeHotkeyAvailability(const HotkeyEnvironment &environment,
                                           const DisplayProbe &probe);

// The words shown for the reason ("wayland", "no-display", "xinput-too-old").
QString hotkeyUnavailableReasonName(HotkeyUnavailableReason reason);

} // namespace taskrack
