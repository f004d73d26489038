#include "platform/inputdisplayprobe.h"

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

namespace taskrack {

DisplayInputSupport probeDisplayInput(const QString &displayName)
{
    DisplayInputSupport support;
    const QByteArray name = displayName.toLocal8Bit();
    Display *display = XOpenDisplay(name.constData());
    if (!display)
        return support;
    support.connected = true;
    int opcode = 0, event = 0, error = 0;
    if (XQueryExtension(display, "XInputExtension", &opcode, &event, &error)) {
        // The server answers the highest version both sides know.
        int major = 2, minor = 4;
        if (XIQueryVersion(display, &major, &minor) == Success) {
            support.xinputMajor = major;
            support.xinputMinor = minor;
        } else {
            support.xinputMajor = 1;
        }
    }
    // The XEmbed tray that Qt falls back to when no StatusNotifier host runs.
    const QByteArray trayName = "_NET_SYSTEM_TRAY_S" + QByteArray::number(DefaultScreen(display));
    const Atom tray = XInternAtom(display, trayName.constData(), True);
    support.systemTray = tray != None && XGetSelectionOwner(display, tray) != None;
    XCloseDisplay(display);
    return support;
}

} // namespace taskrack
