#include "input/hotkeyerror.h"

namespace taskrack {

HotkeyError HotkeyError::globalShortcutHandler(int code, const QString &shortcut)
{
    HotkeyError error;
    error.kind = Kind::globalShortcutHandler;
    error.code = code;
    error.shortcut = shortcut;
    return error;
}

HotkeyError HotkeyError::globalShortcutConflict(int code, const QString &shortcut)
{
    HotkeyError error = globalShortcutHandler(code, shortcut);
    error.kind = Kind::globalShortcutConflict;
    return error;
}

HotkeyError HotkeyError::eventTapUnavailable()
{
    return HotkeyError();
}

HotkeyError HotkeyError::inputMonitoringDenied(HotkeyUnavailableReason reason)
{
    HotkeyError error;
    error.kind = Kind::inputMonitoringDenied;
    error.reason = reason;
    return error;
}

QString HotkeyError::text() const
{
    switch (kind) {
    case Kind::globalShortcutHandler:
        return QStringLiteral("Taskrack could not prepare %1 (X error %2). The tray menu remains "
                              "available.")
            .arg(shortcut)
            .arg(code);
    case Kind::globalShortcutConflict:
        return QStringLiteral("%1 could not be registered, usually because another app already "
                              "uses it (X error %2). The tray menu remains available.")
            .arg(shortcut)
            .arg(code);
    case Kind::eventTapUnavailable:
        return QStringLiteral("Taskrack could not start the right-modifier shortcut listener.");
    case Kind::inputMonitoringDenied:
        switch (reason) {
        case HotkeyUnavailableReason::waylandSession:
            return QStringLiteral(
                "Global keys are unavailable in a Wayland session: the right-side switcher and "
                "the global shortcuts need an X11 session. The tray menu remains available.");
        case HotkeyUnavailableReason::noDisplay:
            return QStringLiteral("Global keys are unavailable: Taskrack could not reach an X11 "
                                  "display. The tray menu remains available.");
        case HotkeyUnavailableReason::xinputTooOld:
            return QStringLiteral("The right-side switcher needs the XInput 2.1 extension, which "
                                  "this X server lacks.");
        }
    }
    return {};
}

} // namespace taskrack
