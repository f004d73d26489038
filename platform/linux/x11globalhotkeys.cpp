#include "platform/linux/x11globalhotkeys.h"

#include "platform/linux/x11display.h"

#include <QLoggingCategory>
#include <X11/XKBlib.h>
#include <X11/Xlib.h>

namespace taskrack {

namespace {
Q_LOGGING_CATEGORY(lcX11Hotkeys, "com.quillon.Taskrack.hotkey.x11", QtInfoMsg)
constexpr int badAccess = 10;
} // namespace

X11GlobalHotkeys::X11GlobalHotkeys(const QString &displayName)
    : m_display(X11Display::open(displayName))
{
    if (!m_display)
        return;
    Display *display = m_display->handle();
    m_display->setEventHandler([this](XEvent &event) { handleEvent(event); });
    QObject::connect(m_display.get(), &X11Display::connectionLost, m_display.get(),
                     [] { qCWarning(lcX11Hotkeys, "Global shortcuts disabled: connection lost"); });
    int opcode = 0, error = 0, major = XkbMajorVersion, minor = XkbMinorVersion;
    if (XkbQueryExtension(display, &opcode, &m_xkbEventBase, &error, &major, &minor)) {
        XkbSelectEvents(display, XkbUseCoreKbd, XkbNewKeyboardNotifyMask | XkbMapNotifyMask,
                        XkbNewKeyboardNotifyMask | XkbMapNotifyMask);
        // A held combination then repeats as presses without releases, told apart below.
        Bool supported = False;
        XkbSetDetectableAutoRepeat(display, True, &supported);
    }
    m_masks = x11keymap::readModifierMasks(display);
}

X11GlobalHotkeys::~X11GlobalHotkeys()
{
    for (const auto &[identifier, registration] : m_registrations)
        ungrabRegistration(registration);
    if (m_display)
        m_display->sync();
}

bool X11GlobalHotkeys::isConnected() const
{
    return m_display && !m_display->isLost();
}

GlobalHotkeyResult X11GlobalHotkeys::grab(quint32 identifier, quint16 keyCode, quint32 modifierBits,
                                          std::function<void()> onPress)
{
    ungrab(identifier);
    if (!isConnected())
        return {GlobalHotkeyResult::Outcome::failed, 0};
    Registration registration{keyCode, modifierBits, std::move(onPress)};
    const GlobalHotkeyResult result = grabRegistration(registration);
    if (result.ok())
        m_registrations[identifier] = std::move(registration);
    return result;
}

GlobalHotkeyResult X11GlobalHotkeys::grabRegistration(Registration &registration)
{
    Display *display = m_display->handle();
    const unsigned long keysym = x11keymap::keysymForKey(registration.keyCode);
    registration.xKeycode = keysym ? x11keymap::keycodeForKeysym(display, keysym) : 0;
    registration.xModifiers = x11keymap::xModifiers(registration.modifierBits, m_masks);
    // A modifier the layout does not map (no Super key) cannot be pressed either.
    const bool modifiersMapped =
        !((registration.modifierBits & PortableModifier::option) && !m_masks.alt) &&
        !((registration.modifierBits & PortableModifier::control) && !m_masks.super);
    if (!registration.xKeycode || !modifiersMapped)
        return {GlobalHotkeyResult::Outcome::failed, 0};
    const unsigned int locks[] = {0, LockMask, m_masks.numLock, LockMask | m_masks.numLock};
    const int error = m_display->withErrorsCaught([&] {
        for (unsigned int lock : locks) {
            if (lock == m_masks.numLock && !lock)
                continue;
            XGrabKey(display, registration.xKeycode, registration.xModifiers | lock,
                     m_display->rootWindow(), False, GrabModeAsync, GrabModeAsync);
        }
    });
    if (error) {
        // Grabs are all or nothing: a hot key that works only with NumLock off would puzzle.
        ungrabRegistration(registration);
        return {error == badAccess ? GlobalHotkeyResult::Outcome::conflict
                                   : GlobalHotkeyResult::Outcome::failed,
                error};
    }
    return {};
}

void X11GlobalHotkeys::ungrab(quint32 identifier)
{
    const auto it = m_registrations.find(identifier);
    if (it == m_registrations.end())
        return;
    ungrabRegistration(it->second);
    m_registrations.erase(it);
    m_display->sync();
}

void X11GlobalHotkeys::ungrabRegistration(const Registration &registration)
{
    if (!isConnected() || !registration.xKeycode)
        return;
    Display *display = m_display->handle();
    const unsigned int locks[] = {0, LockMask, m_masks.numLock, LockMask | m_masks.numLock};
    // Releasing a grab that another client holds is ignored by the server, never an error.
    for (unsigned int lock : locks)
        XUngrabKey(display, registration.xKeycode, registration.xModifiers | lock,
                   m_display->rootWindow());
}

void X11GlobalHotkeys::handleEvent(XEvent &event)
{
    if (event.type == m_xkbEventBase) {
        const auto &xkb = reinterpret_cast<const XkbEvent &>(event);
        if (xkb.any.xkb_type == XkbNewKeyboardNotify || xkb.any.xkb_type == XkbMapNotify)
            keymapChanged();
        return;
    }
    if (event.type == MappingNotify) {
        // Xlib's own keysym tables (used for the modifier masks) follow only when told.
        XRefreshKeyboardMapping(&event.xmapping);
        keymapChanged();
        return;
    }
    if (event.type != KeyPress && event.type != KeyRelease)
        return;
    const XKeyEvent &key = event.xkey;
    const unsigned int significant = x11keymap::significantModifiers(m_masks);
    for (auto &[identifier, registration] : m_registrations) {
        if (int(key.keycode) != registration.xKeycode)
            continue;
        if (event.type == KeyRelease) {
            registration.isDown = false;
            continue;
        }
        if ((key.state & significant) != registration.xModifiers || registration.isDown)
            continue;
        registration.isDown = true;
        // The handler may ungrab and so change the map: call a copy and stop looking.
        const std::function<void()> onPress = registration.onPress;
        if (onPress)
            onPress();
        return;
    }
}

void X11GlobalHotkeys::keymapChanged()
{
    // Also sent whenever another keyboard (XTest's among them) starts to type, mostly with the
    // same map: grab again only when a key or modifier really moved, since a press between the
    // release and the new grab would be lost.
    Display *display = m_display->handle();
    const x11keymap::ModifierMasks masks = x11keymap::readModifierMasks(display);
    bool moved = masks.alt != m_masks.alt || masks.super != m_masks.super ||
                 masks.numLock != m_masks.numLock;
    for (const auto &[identifier, registration] : m_registrations) {
        const unsigned long keysym = x11keymap::keysymForKey(registration.keyCode);
        moved = moved || x11keymap::keycodeForKeysym(display, keysym) != registration.xKeycode;
    }
    if (!moved)
        return;
    for (auto &[identifier, registration] : m_registrations)
        ungrabRegistration(registration);
    m_masks = masks;
    for (auto &[identifier, registration] : m_registrations) {
        const GlobalHotkeyResult result = grabRegistration(registration);
        if (!result.ok())
            qCWarning(lcX11Hotkeys, "Global shortcut %u lost after a keymap change (X error %d)",
                      identifier, result.errorCode);
    }
}

} // namespace taskrack
