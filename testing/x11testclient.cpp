#include "testing/x11testclient.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <cstring>

namespace taskrack::testing {

namespace {

bool grabFailed = false;
int recordGrabError(Display *, XErrorEvent *)
{
    grabFailed = true;
    return 0;
}

} // namespace

X11TestClient::X11TestClient(const QString &displayName)
{
    m_display = XOpenDisplay(displayName.toLocal8Bit().constData());
}

X11TestClient::~X11TestClient()
{
    if (m_display)
        XCloseDisplay(m_display);
}

unsigned long X11TestClient::createFocusedWindow()
{
    Display *dpy = m_display;
    const Window root = DefaultRootWindow(dpy);
    m_window = XCreateSimpleWindow(dpy, root, 0, 0, 200, 100, 0, 0, 0);
    XSelectInput(dpy, m_window, StructureNotifyMask | KeyPressMask | FocusChangeMask);
    XMapWindow(dpy, m_window);
    XEvent event;
    do {
        XWindowEvent(dpy, m_window, StructureNotifyMask, &event);
    } while (event.type != MapNotify);
    XSetInputFocus(dpy, m_window, RevertToParent, CurrentTime);
    do {
        XWindowEvent(dpy, m_window, FocusChangeMask, &event);
    } while (event.type != FocusIn);
    return m_window;
}

int X11TestClient::keyPressesReceived()
{
    XSync(m_display, False);
    XEvent event;
    while (XCheckWindowEvent(m_display, m_window, KeyPressMask, &event))
        ++m_keyPresses;
    return m_keyPresses;
}

int X11TestClient::keycodeForName(const char *xkbKeyName) const
{
    XkbDescPtr keyboard = XkbGetMap(m_display, 0, XkbUseCoreKbd);
    if (!keyboard)
        return 0;
    int found = 0;
    if (XkbGetNames(m_display, XkbKeyNamesMask, keyboard) == Success && keyboard->names) {
        for (int code = keyboard->min_key_code; code <= keyboard->max_key_code; ++code) {
            if (std::strncmp(keyboard->names->keys[code].name, xkbKeyName, XkbKeyNameLength) == 0) {
                found = code;
                break;
            }
        }
    }
    XkbFreeKeyboard(keyboard, 0, True);
    return found;
}

int X11TestClient::keycodeForKeysym(unsigned long keysym) const
{
    return XKeysymToKeycode(m_display, keysym);
}

void X11TestClient::press(int keycode)
{
    XTestFakeKeyEvent(m_display, unsigned(keycode), True, CurrentTime);
    XSync(m_display, False);
}

void X11TestClient::release(int keycode)
{
    XTestFakeKeyEvent(m_display, unsigned(keycode), False, CurrentTime);
    XSync(m_display, False);
}

void X11TestClient::send(int keycode, bool down)
{
    XTestFakeKeyEvent(m_display, unsigned(keycode), down ? True : False, CurrentTime);
    XFlush(m_display);
}

void X11TestClient::tap(int keycode)
{
    press(keycode);
    release(keycode);
}

bool X11TestClient::grabKey(int keycode, unsigned int modifiers)
{
    XSync(m_display, False);
    grabFailed = false;
    auto previous = XSetErrorHandler(recordGrabError);
    XGrabKey(m_display, keycode, modifiers, DefaultRootWindow(m_display), False, GrabModeAsync,
             GrabModeAsync);
    XSync(m_display, False);
    XSetErrorHandler(previous);
    return !grabFailed;
}

void X11TestClient::setNumLock(bool on)
{
    const unsigned int mask = XkbKeysymToModifiers(m_display, XK_Num_Lock);
    XkbLockModifiers(m_display, XkbUseCoreKbd, mask, on ? mask : 0);
    XSync(m_display, False);
}

} // namespace taskrack::testing
