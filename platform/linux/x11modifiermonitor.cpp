#include "platform/linux/x11modifiermonitor.h"

#include "platform/linux/x11display.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

namespace taskrack {

X11ModifierMonitor::X11ModifierMonitor(QString displayName) : m_displayName(std::move(displayName))
{
}

X11ModifierMonitor::~X11ModifierMonitor() = default;

void X11ModifierMonitor::setHandlers(ChangeHandler onChange, DisabledHandler onDisabled)
{
    m_onChange = std::move(onChange);
    m_onDisabled = std::move(onDisabled);
}

bool X11ModifierMonitor::fail(const QString &reason)
{
    m_disabledReason = reason;
    m_display.reset();
    return false;
}

bool X11ModifierMonitor::start()
{
    if (m_display)
        return true;
    m_disabledReason.clear();
    m_display = X11Display::open(m_displayName);
    if (!m_display)
        return fail(QStringLiteral("no display"));
    Display *display = m_display->handle();

    int event = 0, error = 0;
    if (!XQueryExtension(display, "XInputExtension", &m_xinputOpcode, &event, &error))
        return fail(QStringLiteral("no XInput extension"));
    int major = 2, minor = 1;
    if (XIQueryVersion(display, &major, &minor) != Success || major < 2 ||
        (major == 2 && minor < 1))
        return fail(QStringLiteral("XInput older than 2.1"));
    int xkbOpcode = 0, xkbError = 0, xkbMajor = XkbMajorVersion, xkbMinor = XkbMinorVersion;
    if (!XkbQueryExtension(display, &xkbOpcode, &m_xkbEventBase, &xkbError, &xkbMajor, &xkbMinor))
        return fail(QStringLiteral("no XKB extension"));

    m_display->setEventHandler([this](XEvent &event) { handleEvent(event); });
    QObject::connect(m_display.get(), &X11Display::connectionLost, m_display.get(), [this] {
        // Deleting the display from inside its own signal is not safe: let the loop do it.
        m_display.release()->deleteLater();
        m_down = {};
        m_disabledReason = QStringLiteral("connection lost");
        if (m_onDisabled)
            m_onDisabled(m_disabledReason);
    });

    // A new keyboard or layout may move the right-side keys.
    XkbSelectEvents(display, XkbUseCoreKbd, XkbNewKeyboardNotifyMask | XkbMapNotifyMask,
                    XkbNewKeyboardNotifyMask | XkbMapNotifyMask);
    unsigned char mask[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(mask, XI_RawKeyPress);
    XISetMask(mask, XI_RawKeyRelease);
    XIEventMask eventMask{XIAllMasterDevices, int(sizeof mask), mask};
    const int selectError = m_display->withErrorsCaught(
        [&] { XISelectEvents(display, m_display->rootWindow(), &eventMask, 1); });
    if (selectError)
        return fail(QStringLiteral("raw key events refused"));

    unsigned int delay = 0, interval = 0;
    if (XkbGetAutoRepeatRate(display, XkbUseCoreKbd, &delay, &interval))
        m_repeatTiming = {int(delay), int(interval)};
    m_modifierKeycodes = x11keymap::readModifierKeycodes(display);
    readHeldKeys();
    return true;
}

void X11ModifierMonitor::readHeldKeys()
{
    // What is held now, so that a key pressed before listening began still counts.
    char keys[32] = {};
    XQueryKeymap(m_display->handle(), keys);
    for (size_t code = 0; code < m_down.size(); ++code)
        m_down[code] = m_modifierKeycodes[code] && (keys[code / 8] & (1 << (code % 8)));
}

void X11ModifierMonitor::stop()
{
    m_display.reset();
    m_down = {};
}

bool X11ModifierMonitor::isKeyDown(quint16 keyCode) const
{
    for (size_t code = 0; code < m_down.size(); ++code) {
        if (m_down[code] && m_modifierKeycodes[code] == keyCode)
            return true;
    }
    return false;
}

void X11ModifierMonitor::handleEvent(XEvent &event)
{
    if (event.type == m_xkbEventBase) {
        const auto &xkb = reinterpret_cast<const XkbEvent &>(event);
        // Also sent whenever another keyboard (XTest's among them) starts to type. The held
        // state stays as the raw events left it: asking the server now would count presses
        // that are still on their way to us.
        if (xkb.any.xkb_type == XkbNewKeyboardNotify || xkb.any.xkb_type == XkbMapNotify)
            m_modifierKeycodes = x11keymap::readModifierKeycodes(m_display->handle());
        return;
    }
    XGenericEventCookie &cookie = event.xcookie;
    if (cookie.type != GenericEvent || cookie.extension != m_xinputOpcode ||
        (cookie.evtype != XI_RawKeyPress && cookie.evtype != XI_RawKeyRelease))
        return;
    if (!XGetEventData(m_display->handle(), &cookie))
        return;
    const int code = static_cast<XIRawEvent *>(cookie.data)->detail;
    const bool isDown = cookie.evtype == XI_RawKeyPress;
    XFreeEventData(m_display->handle(), &cookie);
    // Any key that is no modifier ends here, unseen.
    if (code < 0 || code >= int(m_down.size()) || !m_modifierKeycodes[size_t(code)])
        return;
    if (m_down[size_t(code)] == isDown)
        return;
    m_down[size_t(code)] = isDown;
    ModifierKeyChange change;
    change.keyCode = m_modifierKeycodes[size_t(code)];
    change.isDown = isDown;
    change.shiftIsDown =
        isKeyDown(ModifierKeyCode::shift) || isKeyDown(ModifierKeyCode::rightShift);
    if (m_onChange)
        m_onChange(change);
}

} // namespace taskrack
