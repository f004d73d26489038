#include "input/hotkeyavailability.h"

namespace taskrack {

HotkeyEnvironment HotkeyEnvironment::fromProcess()
{
    return {qEnvironmentVariable("DISPLAY"), qEnvironmentVariable("WAYLAND_DISPLAY"),
            qEnvironmentVariable("XDG_SESSION_TYPE")};
}

HotkeyAvailability probeHotkeyAvailability(const HotkeyEnvironment &environment,
                                           const DisplayProbe &probe)
{
    HotkeyAvailability availability;
    auto unavailable = [&](HotkeyUnavailableReason reason) {
        availability.globalShortcuts = reason;
        availability.gesture = reason;
        return availability;
    };
    if (!environment.waylandDisplay.isEmpty() ||
        environment.sessionType.compare(QLatin1String("wayland"), Qt::CaseInsensitive) == 0)
        return unavailable(HotkeyUnavailableReason::waylandSession);
    if (environment.display.isEmpty())
        return unavailable(HotkeyUnavailableReason::noDisplay);
    availability.display = probe(environment.display);
    if (!availability.display.connected)
        return unavailable(HotkeyUnavailableReason::noDisplay);
    const DisplayInputSupport &display = availability.display;
    if (display.xinputMajor < 2 || (display.xinputMajor == 2 && display.xinputMinor < 1))
        availability.gesture = HotkeyUnavailableReason::xinputTooOld;
    return availability;
}

QString hotkeyUnavailableReasonName(HotkeyUnavailableReason reason)
{
    switch (reason) {
    case HotkeyUnavailableReason::waylandSession:
        return QStringLiteral("wayland");
    case HotkeyUnavailableReason::noDisplay:
        return QStringLiteral("no-display");
    case HotkeyUnavailableReason::xinputTooOld:
        return QStringLiteral("xinput-too-old");
    }
    return {};
}

} // namespace taskrack
