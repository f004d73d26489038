#pragma once

// Why a global key could not be set up, with the sentence shown to the person.

#include "input/hotkeyavailability.h"

#include <QString>

namespace taskrack {

struct HotkeyError
{
    enum class Kind {
        globalShortcutHandler,  // the hot key could not be prepared (code 0: no key for it)
        globalShortcutConflict, // another program holds the combination
        eventTapUnavailable,    // the right-modifier listener could not start or was lost
        inputMonitoringDenied,  // this session offers no global keys
    };

    Kind kind = Kind::eventTapUnavailable;
    int code = 0;
    QString shortcut; // display name, for the two shortcut kinds
    HotkeyUnavailableReason reason = HotkeyUnavailableReason::noDisplay; // inputMonitoringDenied

    static HotkeyError globalShortcutHandler(int code, const QString &shortcut);
    static HotkeyError globalShortcutConflict(int code, const QString &shortcut);
    static HotkeyError eventTapUnavailable();
    static HotkeyError inputMonitoringDenied(HotkeyUnavailableReason reason);

    QString text() const;

    bool operator==(const HotkeyError &) const = default;
};

} // namespace taskrack
