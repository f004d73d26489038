#include "platform/linux/x11keymap.h"

#include "platform/globalhotkeys.h"
#include "platform/modifiermonitor.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <cstring>

namespace taskrack::x11keymap {

namespace {

struct KeyEntry
{
    quint16 keyCode;
    KeySym keysym;
};

// Portable codes of the keys a shortcut may use (and Escape, which rack navigation reserves).
constexpr KeyEntry keyTable[] = {
    {0, XK_a},
    {11, XK_b},
    {8, XK_c},
    {2, XK_d},
    {14, XK_e},
    {3, XK_f},
    {5, XK_g},
    {4, XK_h},
    {34, XK_i},
    {38, XK_j},
    {40, XK_k},
    {37, XK_l},
    {46, XK_m},
    {45, XK_n},
    {31, XK_o},
    {35, XK_p},
    {12, XK_q},
    {15, XK_r},
    {1, XK_s},
    {17, XK_t},
    {32, XK_u},
    {9, XK_v},
    {13, XK_w},
    {7, XK_x},
    {16, XK_y},
    {6, XK_z},
    {29, XK_0},
    {18, XK_1},
    {19, XK_2},
    {20, XK_3},
    {21, XK_4},
    {23, XK_5},
    {22, XK_6},
    {26, XK_7},
    {28, XK_8},
    {25, XK_9},
    {43, XK_comma},
    {47, XK_period},
    {44, XK_slash},
    {41, XK_semicolon},
    {39, XK_apostrophe},
    {33, XK_bracketleft},
    {30, XK_bracketright},
    {42, XK_backslash},
    {27, XK_minus},
    {24, XK_equal},
    {50, XK_grave},
    {49, XK_space},
    {48, XK_Tab},
    {36, XK_Return},
    {51, XK_BackSpace},
    {123, XK_Left},
    {124, XK_Right},
    {126, XK_Up},
    {125, XK_Down},
    {122, XK_F1},
    {120, XK_F2},
    {99, XK_F3},
    {118, XK_F4},
    {96, XK_F5},
    {97, XK_F6},
    {98, XK_F7},
    {100, XK_F8},
    {101, XK_F9},
    {109, XK_F10},
    {103, XK_F11},
    {111, XK_F12},
    {53, XK_Escape},
};

struct ModifierName
{
    const char *xkbName;
    quint16 keyCode;
};

constexpr ModifierName modifierNames[] = {
    {"RCTL", ModifierKeyCode::rightCommand}, {"LCTL", ModifierKeyCode::command},
    {"RALT", ModifierKeyCode::rightOption},  {"LALT", ModifierKeyCode::option},
    {"LFSH", ModifierKeyCode::shift},        {"RTSH", ModifierKeyCode::rightShift},
    {"LWIN", ModifierKeyCode::control},      {"RWIN", ModifierKeyCode::rightControl},
};

} // namespace

unsigned long keysymForKey(quint16 keyCode)
{
    for (const KeyEntry &entry : keyTable) {
        if (entry.keyCode == keyCode)
            return entry.keysym;
    }
    return 0;
}

quint16 keyForKeysym(unsigned long keysym)
{
    for (const KeyEntry &entry : keyTable) {
        if (entry.keysym == keysym)
            return entry.keyCode;
    }
    return 0xFFFF;
}

int keycodeForKeysym(Display *display, unsigned long keysym)
{
    XkbDescPtr keyboard = XkbGetMap(display, XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
    if (!keyboard)
        return XKeysymToKeycode(display, keysym);
    int found = 0;
    // The first group and level win: the key that types it without help.
    for (int level = 0; level < 2 && !found; ++level) {
        for (int group = 0; group < XkbNumKbdGroups && !found; ++group) {
            for (int code = keyboard->min_key_code; code <= keyboard->max_key_code; ++code) {
                if (group >= XkbKeyNumGroups(keyboard, code) ||
                    level >= XkbKeyGroupWidth(keyboard, code, group))
                    continue;
                if (XkbKeySymEntry(keyboard, code, level, group) == keysym) {
                    found = code;
                    break;
                }
            }
        }
    }
    XkbFreeKeyboard(keyboard, 0, True);
    return found;
}

ModifierMasks readModifierMasks(Display *display)
{
    ModifierMasks masks;
    XModifierKeymap *map = XGetModifierMapping(display);
    if (!map)
        return masks;
    const KeyCode alt[] = {XKeysymToKeycode(display, XK_Alt_L), XKeysymToKeycode(display, XK_Alt_R),
                           XKeysymToKeycode(display, XK_Meta_L)};
    const KeyCode super[] = {XKeysymToKeycode(display, XK_Super_L),
                             XKeysymToKeycode(display, XK_Super_R)};
    const KeyCode numLock = XKeysymToKeycode(display, XK_Num_Lock);
    // Mod1 to Mod5 only: Shift, Lock and Control have fixed meanings.
    for (int modifier = Mod1MapIndex; modifier <= Mod5MapIndex; ++modifier) {
        for (int i = 0; i < map->max_keypermod; ++i) {
            const KeyCode code = map->modifiermap[modifier * map->max_keypermod + i];
            if (!code)
                continue;
            const unsigned int mask = 1u << modifier;
            for (KeyCode candidate : alt) {
                if (candidate && candidate == code && !masks.alt)
                    masks.alt = mask;
            }
            for (KeyCode candidate : super) {
                if (candidate && candidate == code && !masks.super)
                    masks.super = mask;
            }
            if (numLock && code == numLock)
                masks.numLock = mask;
        }
    }
    XFreeModifiermap(map);
    return masks;
}

unsigned int xModifiers(quint32 modifierBits, const ModifierMasks &masks)
{
    unsigned int mask = 0;
    if (modifierBits & PortableModifier::command)
        mask |= ControlMask;
    if (modifierBits & PortableModifier::option)
        mask |= masks.alt;
    if (modifierBits & PortableModifier::shift)
        mask |= ShiftMask;
    if (modifierBits & PortableModifier::control)
        mask |= masks.super;
    return mask;
}

unsigned int significantModifiers(const ModifierMasks &masks)
{
    return ControlMask | ShiftMask | masks.alt | masks.super;
}

ModifierKeycodes readModifierKeycodes(Display *display)
{
    ModifierKeycodes codes{};
    XkbDescPtr keyboard = XkbGetMap(display, 0, XkbUseCoreKbd);
    if (!keyboard)
        return codes;
    if (XkbGetNames(display, XkbKeyNamesMask, keyboard) == Success && keyboard->names) {
        for (int code = keyboard->min_key_code; code <= keyboard->max_key_code && code < 256;
             ++code) {
            for (const ModifierName &name : modifierNames) {
                if (std::strncmp(keyboard->names->keys[code].name, name.xkbName,
                                 XkbKeyNameLength) == 0)
                    codes[size_t(code)] = name.keyCode;
            }
        }
    }
    XkbFreeKeyboard(keyboard, 0, True);
    return codes;
}

} // namespace taskrack::x11keymap
