#pragma once

// Which key does what while the rack has focus. Pure: a key in its portable form (virtual key
// code and modifier bits), where the focus is, and the rebindable shortcuts in, a slot or a
// command out, or nothing, in which case the key goes on to the focused control.

#include "input/rackshortcuts.h"

#include <QList>
#include <QtGlobal>

namespace taskrack {

enum class RackKeyCommand {
    close,
    open,
    moveLeft,
    moveRight,
    moveUp,
    moveDown,
    moveToTop,
    moveToBottom,
    pagePrevious,
    pageNext,
    pageFirst,
    pageLast,
    markPageRead,
    togglePageLock,
    refresh,
    showSettings,
    activateSearch,
    toggleOrganization,
    endSearchEditing,
};

enum class RackKeyFocus { grid, searchField, onboarding };

struct RackKeyPress
{
    quint16 keyCode = 0;
    uint modifierBits = 0;

    bool operator==(const RackKeyPress &) const = default;
};

// One rebindable shortcut in effect.
struct RackKeyBinding
{
    RackKeyCommand command = RackKeyCommand::close;
    quint16 keyCode = 0;
    uint modifierBits = 0;

    bool operator==(const RackKeyBinding &) const = default;
};

struct RackKeyRoute
{
    enum class Kind { none, slot, command };
    Kind kind = Kind::none;
    int slot = 0;
    RackKeyCommand command = RackKeyCommand::close;

    bool operator==(const RackKeyRoute &) const = default;

    static RackKeyRoute none() { return {}; }
    static RackKeyRoute toSlot(int slot) { return {Kind::slot, slot, RackKeyCommand::close}; }
    static RackKeyRoute to(RackKeyCommand command) { return {Kind::command, 0, command}; }
};

// The rack's rebindable shortcuts in effect, and how they are written for a person.
QList<RackKeyBinding> rackKeyBindings(const RackShortcutOverrides &overrides);

RackKeyRoute routeKey(RackKeyPress key, RackKeyFocus focus, const QList<RackKeyBinding> &bindings);

} // namespace taskrack
