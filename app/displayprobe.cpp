#include "app/displayprobe.h"

#include <X11/Xlib.h>
#include <cstdlib>

namespace taskrack {

bool isDisplayReachable()
{
    const char *name = std::getenv("DISPLAY");
    if (!name || !*name)
        return false;
    Display *display = XOpenDisplay(name);
    if (!display)
        return false;
    XCloseDisplay(display);
    return true;
}

} // namespace taskrack
