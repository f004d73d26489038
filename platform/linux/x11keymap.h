#pragma once

// Translation between the portable key codes and modifier bits and what the X server knows, by
// the current keyboard layout. The only place in the program that knows keysyms.

#include <QtGlobal>
#include <array>

struct _XDisplay;

namespace taskrack::x11keymap {

// The keysym a portable key code stands for (the key labelled K for 40), 0 for none.
unsigned long keysymForKey(quint16 keyCode);
// The reverse, for the keys of the table; 0xFFFF for any other keysym.
quint16 keyForKeysym(unsigned long keysym);

// The key that types `keysym` in any group of the layout (a Latin letter on a Cyrillic layout
// still has its key), 0 when the layout has none.
int keycodeForKeysym(_XDisplay *display, unsigned long keysym);

// The X modifier masks that carry Alt, Super and NumLock, read from the modifier map.
struct ModifierMasks
{
    unsigned int alt = 0;
    unsigned int super = 0;
    unsigned int numLock = 0;
};
ModifierMasks readModifierMasks(_XDisplay *display);

// Portable modifier bits as an X modifier mask: command is Ctrl, option Alt, control Super.
unsigned int xModifiers(quint32 modifierBits, const ModifierMasks &masks);
// The mask of modifiers a hot key is told apart by (Lock and NumLock are not among them).
unsigned int significantModifiers(const ModifierMasks &masks);

// The portable code of each modifier key by its XKB key name (RCTL is right command, RALT right
// option, also where the layout makes it AltGr), 0 for keys that are no such modifier.
using ModifierKeycodes = std::array<quint16, 256>;
ModifierKeycodes readModifierKeycodes(_XDisplay *display);

} // namespace taskrack::x11keymap
