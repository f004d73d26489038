#include "panel/rackkeyrouter.h"

namespace taskrack {

namespace {

namespace key {
constexpr quint16 escape = 53;
constexpr quint16 tab = 48;
constexpr quint16 returnKey = 36;
constexpr quint16 keypadEnter = 76;
constexpr quint16 r = 15;
constexpr quint16 slash = 44;
constexpr quint16 left = 123;
constexpr quint16 right = 124;
constexpr quint16 down = 125;
constexpr quint16 up = 126;
constexpr quint16 pageUp = 116;
constexpr quint16 pageDown = 121;
constexpr quint16 home = 115;
constexpr quint16 end = 119;
} // namespace key

// Digits 1 to 6 and keypad 1 to 6, in slot order.
constexpr quint16 slotKeys[6][2] = {{18, 83}, {19, 84}, {20, 85}, {21, 86}, {23, 87}, {22, 88}};

int slotOf(quint16 code)
{
    for (int slot = 0; slot < 6; ++slot) {
        if (slotKeys[slot][0] == code || slotKeys[slot][1] == code)
            return slot;
    }
    return -1;
}

} // namespace

QList<RackKeyBinding> rackKeyBindings(const RackShortcutOverrides &overrides)
{
    using A = RackShortcutAction;
    static const std::pair<A, RackKeyCommand> actions[] = {
        {A::toggleOrganization, RackKeyCommand::toggleOrganization},
        {A::activateSearch, RackKeyCommand::activateSearch},
        {A::markPageRead, RackKeyCommand::markPageRead},
        {A::togglePageLock, RackKeyCommand::togglePageLock},
        {A::refresh, RackKeyCommand::refresh},
        {A::showSettings, RackKeyCommand::showSettings},
        {A::close, RackKeyCommand::close},
    };
    QList<RackKeyBinding> bindings;
    for (const auto &[action, command] : actions) {
        const RackKeyCombo combo = effectiveCombo(action, overrides);
        bindings.append({command, combo.keyCode, combo.modifierBits});
    }
    return bindings;
}

RackKeyRoute routeKey(RackKeyPress press, RackKeyFocus focus, const QList<RackKeyBinding> &bindings)
{
    using C = RackKeyCommand;
    const uint modifiers = press.modifierBits & RackModifier::all;
    const quint16 code = press.keyCode;

    if (code == key::escape && (modifiers & RackModifier::command) &&
        !(modifiers & RackModifier::control))
        return RackKeyRoute::to(C::close);
    // The onboarding's own buttons take everything else, Tab included, so they can get focus.
    if (focus == RackKeyFocus::onboarding)
        return code == key::escape && modifiers == 0 ? RackKeyRoute::to(C::close)
                                                     : RackKeyRoute::none();

    for (const RackKeyBinding &binding : bindings) {
        if (binding.keyCode == code && (binding.modifierBits & RackModifier::all) == modifiers)
            return RackKeyRoute::to(binding.command);
    }

    const bool grid = focus == RackKeyFocus::grid;
    if (modifiers == RackModifier::command && grid) {
        if (code == key::up)
            return RackKeyRoute::to(C::moveToTop);
        if (code == key::down)
            return RackKeyRoute::to(C::moveToBottom);
    }
    if (modifiers != 0)
        return RackKeyRoute::none();

    switch (code) {
    case key::escape:
        return RackKeyRoute::to(C::close);
    case key::returnKey:
    case key::keypadEnter:
        return RackKeyRoute::to(C::open);
    case key::left:
        return RackKeyRoute::to(C::moveLeft);
    case key::right:
        return RackKeyRoute::to(C::moveRight);
    case key::up:
        return RackKeyRoute::to(grid ? C::moveUp : C::pagePrevious);
    case key::down:
        return RackKeyRoute::to(grid ? C::moveDown : C::pageNext);
    case key::pageUp:
        return RackKeyRoute::to(C::pagePrevious);
    case key::pageDown:
        return RackKeyRoute::to(C::pageNext);
    default:
        break;
    }
    // In the search field, typing wins: digits, letters and the editing keys are text.
    if (!grid)
        return code == key::tab ? RackKeyRoute::to(C::endSearchEditing) : RackKeyRoute::none();
    switch (code) {
    case key::r:
        return RackKeyRoute::to(C::markPageRead);
    case key::slash:
        return RackKeyRoute::to(C::activateSearch);
    case key::home:
        return RackKeyRoute::to(C::pageFirst);
    case key::end:
        return RackKeyRoute::to(C::pageLast);
    default:
        break;
    }
    if (const int slot = slotOf(code); slot >= 0)
        return RackKeyRoute::toSlot(slot);
    return RackKeyRoute::none();
}

} // namespace taskrack
