#pragma once

// A key with its modifiers, stored in the portable form: virtual key codes and the modifier bits
// below. The X11 layer translates them; everything shown to a person goes through displayName.

#include "platform/globalhotkeys.h"

#include <QString>
#include <QtGlobal>
#include <optional>
#include <vector>

namespace taskrack {

// Portable modifier bits. On Linux the command bit is Ctrl, option is Alt and control is Super.
namespace RackModifier {
enum : quint32 {
    shift = PortableModifier::shift,
    control = PortableModifier::control, // shown as "Super"
    option = PortableModifier::option,   // shown as "Alt"
    command = PortableModifier::command, // shown as "Ctrl"
};
constexpr quint32 all = shift | control | option | command;
// The modifiers of which a shortcut needs at least one: Shift alone does not qualify.
constexpr quint32 qualifying = control | option | command;
} // namespace RackModifier

struct RackKeyCombo
{
    quint16 keyCode = 0;
    quint32 modifierBits = 0;

    bool operator==(const RackKeyCombo &) const = default;
};

struct RackAllowedKey
{
    quint16 keyCode;
    const char *name; // UTF-8
};

// The keys a shortcut may use, in the order they are offered.
const std::vector<RackAllowedKey> &rackAllowedKeys();
bool isAllowedRackKey(quint16 keyCode);
// The key's name from the allowed list; any other code reads "Key " and the number.
QString rackKeyName(quint16 keyCode);

// Modifiers in the order Ctrl, Alt, Shift, Super, then the key, joined by "+": "Ctrl+Alt+K".
QString displayName(const RackKeyCombo &combo);

// Reads what displayName writes, case-insensitively and with blanks around the parts allowed
// ("ctrl + alt + k"). "Key N" names any code, so that a refusal can say why.
std::optional<RackKeyCombo> parseRackKeyCombo(const QString &text);

// Combos kept for moving through the rack.
bool isReservedRackCombo(const RackKeyCombo &combo);

} // namespace taskrack
