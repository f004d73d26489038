#pragma once

// What the display server offers for global input, found by connecting once.

#include <QString>

namespace taskrack {

struct DisplayInputSupport
{
    bool connected = false;
    int xinputMajor = 0; // 0.0 when the server lacks the input extension
    int xinputMinor = 0;
    bool systemTray = false; // a tray manager owns the default screen's tray selection
};

// Connects to `display` (an X11 display name), asks, and disconnects.
DisplayInputSupport probeDisplayInput(const QString &display);

} // namespace taskrack
