#include "platform/linux/x11desktopwindows.h"

#include "platform/linux/x11keymap.h"

#include <QGuiApplication>
#include <QList>
#include <QtGui/qguiapplication_platform.h>

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/keysym.h>

namespace taskrack {

namespace {

class NullDesktopWindows : public DesktopWindows
{
public:
    void prepareForMap(quint64) override {}
    std::optional<quint64> activeWindow() const override { return std::nullopt; }
    void activate(quint64) override {}
    bool isViewable(quint64) const override { return false; }
    bool hasFocus(quint64) const override { return false; }
    quint16 portableKeyCode(quint32) const override { return 0xFFFF; }
};

// A window may vanish between asking and using it; the default X error handler would exit.
int ignoreErrors(Display *, XErrorEvent *)
{
    return 0;
}

class QuietErrors
{
public:
    explicit QuietErrors(Display *display) : m_display(display)
    {
        XSync(m_display, False);
        m_previous = XSetErrorHandler(ignoreErrors);
    }
    ~QuietErrors()
    {
        XSync(m_display, False);
        XSetErrorHandler(m_previous);
    }

private:
    Display *m_display;
    XErrorHandler m_previous;
};

std::optional<Window> windowProperty(Display *display, Window window, Atom property)
{
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long after = 0;
    unsigned char *data = nullptr;
    if (XGetWindowProperty(display, window, property, 0, 1, False, XA_WINDOW, &type, &format,
                           &count, &after, &data) != Success)
        return std::nullopt;
    std::optional<Window> value;
    if (data && type == XA_WINDOW && format == 32 && count == 1)
        value = *reinterpret_cast<Window *>(data);
    if (data)
        XFree(data);
    return value;
}

} // namespace

std::unique_ptr<DesktopWindows> DesktopWindows::create()
{
    if (auto *x11 =
            qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr) {
        if (Display *display = x11->display())
            return std::make_unique<X11DesktopWindows>(display);
    }
    return std::make_unique<NullDesktopWindows>();
}

X11DesktopWindows::X11DesktopWindows(_XDisplay *display) : m_display(display) {}

unsigned long X11DesktopWindows::atom(const char *name) const
{
    return XInternAtom(m_display, name, False);
}

bool X11DesktopWindows::hasWindowManager() const
{
    const Window root = DefaultRootWindow(m_display);
    const std::optional<Window> check =
        windowProperty(m_display, root, atom("_NET_SUPPORTING_WM_CHECK"));
    return check && *check != None;
}

void X11DesktopWindows::prepareForMap(quint64 window)
{
    const Window target = Window(window);
    const Atom state = atom("_NET_WM_STATE");
    // Keep whatever states are already asked for (the toolkit adds "above" on map).
    QList<Atom> atoms;
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long after = 0;
    unsigned char *data = nullptr;
    if (XGetWindowProperty(m_display, target, state, 0, 64, False, XA_ATOM, &type, &format, &count,
                           &after, &data) == Success &&
        data) {
        if (type == XA_ATOM && format == 32) {
            const Atom *existing = reinterpret_cast<Atom *>(data);
            for (unsigned long i = 0; i < count; ++i)
                atoms.append(existing[i]);
        }
        XFree(data);
    }
    for (const char *name : {"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"}) {
        const Atom wanted = atom(name);
        if (!atoms.contains(wanted))
            atoms.append(wanted);
    }
    XChangeProperty(m_display, target, state, XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char *>(atoms.constData()), int(atoms.size()));
    XFlush(m_display);
}

std::optional<quint64> X11DesktopWindows::activeWindow() const
{
    if (hasWindowManager()) {
        const std::optional<Window> active =
            windowProperty(m_display, DefaultRootWindow(m_display), atom("_NET_ACTIVE_WINDOW"));
        if (active && *active != None)
            return quint64(*active);
    }
    Window focus = None;
    int revert = 0;
    XGetInputFocus(m_display, &focus, &revert);
    if (focus == None || focus == PointerRoot)
        return std::nullopt;
    return quint64(focus);
}

void X11DesktopWindows::activate(quint64 window)
{
    QuietErrors quiet(m_display);
    if (hasWindowManager()) {
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = Window(window);
        event.xclient.message_type = atom("_NET_ACTIVE_WINDOW");
        event.xclient.format = 32;
        // Source indication 2: a pager-like request, which focus-stealing prevention lets pass.
        event.xclient.data.l[0] = 2;
        event.xclient.data.l[1] = CurrentTime;
        XSendEvent(m_display, DefaultRootWindow(m_display), False,
                   SubstructureRedirectMask | SubstructureNotifyMask, &event);
    } else {
        XSetInputFocus(m_display, Window(window), RevertToParent, CurrentTime);
    }
}

bool X11DesktopWindows::isViewable(quint64 window) const
{
    QuietErrors quiet(m_display);
    XWindowAttributes attributes{};
    if (!XGetWindowAttributes(m_display, Window(window), &attributes))
        return false;
    return attributes.map_state == IsViewable;
}

bool X11DesktopWindows::hasFocus(quint64 window) const
{
    const std::optional<quint64> active = activeWindow();
    return active && *active == window;
}

} // namespace taskrack

namespace taskrack {

quint16 X11DesktopWindows::portableKeyCode(quint32 nativeScanCode) const
{
    if (nativeScanCode < 8 || nativeScanCode > 255)
        return 0xFFFF;
    const KeySym symbol = XkbKeycodeToKeysym(m_display, KeyCode(nativeScanCode), 0, 0);
    // Keys the rack reads beyond the shortcut table: page keys, and the keypad by its key,
    // with Num Lock on or off.
    static const std::pair<KeySym, quint16> rackKeys[] = {
        {XK_Page_Up, 116},     {XK_Page_Down, 121}, {XK_Home, 115}, {XK_End, 119},
        {XK_ISO_Left_Tab, 48}, {XK_KP_Enter, 76},   {XK_KP_1, 83},  {XK_KP_End, 83},
        {XK_KP_2, 84},         {XK_KP_Down, 84},    {XK_KP_3, 85},  {XK_KP_Next, 85},
        {XK_KP_4, 86},         {XK_KP_Left, 86},    {XK_KP_5, 87},  {XK_KP_Begin, 87},
        {XK_KP_6, 88},         {XK_KP_Right, 88},
    };
    for (const auto &[rackSymbol, code] : rackKeys) {
        if (rackSymbol == symbol)
            return code;
    }
    return x11keymap::keyForKeysym(symbol);
}

} // namespace taskrack
