#pragma once

// The nine actions that have keyboard shortcuts. The first two work in any program (global hot
// keys); the rest while the rack has focus.

#include "input/rackkeycombo.h"

#include <QString>
#include <array>
#include <optional>

namespace taskrack {

enum class RackShortcutAction {
    showRack,
    newQuickTask,
    toggleOrganization,
    activateSearch,
    markPageRead,
    togglePageLock,
    refresh,
    showSettings,
    close,
};

constexpr std::array<RackShortcutAction, 9> allRackShortcutActions{
    RackShortcutAction::showRack,
    RackShortcutAction::newQuickTask,
    RackShortcutAction::toggleOrganization,
    RackShortcutAction::activateSearch,
    RackShortcutAction::markPageRead,
    RackShortcutAction::togglePageLock,
    RackShortcutAction::refresh,
    RackShortcutAction::showSettings,
    RackShortcutAction::close,
};

QString rawValue(RackShortcutAction action);
std::optional<RackShortcutAction> rackShortcutActionFromRaw(const QString &raw);
QString label(RackShortcutAction action);
RackKeyCombo defaultCombo(RackShortcutAction action);
// The actions registered as global hot keys.
bool isGlobalShortcut(RackShortcutAction action);

} // namespace taskrack
