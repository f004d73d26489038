#pragma once

// The shortcut table: the person's overrides of the default combos, their storage and the rules
// a combo must pass before it is kept.

#include "input/rackkeycombo.h"
#include "input/rackshortcutaction.h"

#include <QObject>
#include <map>

namespace taskrack {

class Preferences;

// Only actions whose combo differs from the default appear.
using RackShortcutOverrides = std::map<RackShortcutAction, RackKeyCombo>;

inline const QString rackShortcutsKey = QStringLiteral("rackShortcuts.v1");

RackKeyCombo effectiveCombo(RackShortcutAction action, const RackShortcutOverrides &overrides);

// Absent, undecodable or invalid stored sets give no overrides (the defaults), and the stored
// value is left as it is until the next save.
RackShortcutOverrides loadShortcuts(const Preferences &defaults);
// Writes the overrides that differ from the defaults (none removes the key) and announces it.
void saveShortcuts(const RackShortcutOverrides &overrides, Preferences &defaults);

// The overrides with `action` bound to `combo`; binding the default removes the override.
RackShortcutOverrides withShortcut(RackShortcutOverrides overrides, RackShortcutAction action,
                                   const RackKeyCombo &combo);

// Nothing when `combo` may be bound to `action`, else the sentence that says why not.
std::optional<QString> validationMessage(const RackKeyCombo &combo, RackShortcutAction action,
                                         const RackShortcutOverrides &overrides);
bool isValid(const RackShortcutOverrides &overrides);

// The two in-process announcements about shortcuts.
class RackShortcutNotifications : public QObject
{
    Q_OBJECT
public:
    static RackShortcutNotifications &shared();

signals:
    // After every save.
    void shortcutsDidChange();
    // A shortcut field started (true) or stopped recording: global hot keys pause meanwhile.
    void shortcutRecording(bool recording);
};

} // namespace taskrack
