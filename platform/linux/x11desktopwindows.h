#pragma once

// Extended window manager hints and focus through Xlib on the application's own X connection.
// Without a window manager (a bare X server) focus is set directly.

#include "platform/desktopwindows.h"

// Xlib's macros clash with Qt's names: only its display type is named here.
struct _XDisplay;

namespace taskrack {

class X11DesktopWindows : public DesktopWindows
{
public:
    explicit X11DesktopWindows(_XDisplay *display);

    void prepareForMap(quint64 window) override;
    std::optional<quint64> activeWindow() const override;
    void activate(quint64 window) override;
    bool isViewable(quint64 window) const override;
    bool hasFocus(quint64 window) const override;
    quint16 portableKeyCode(quint32 nativeScanCode) const override;

private:
    bool hasWindowManager() const;
    unsigned long atom(const char *name) const;

    _XDisplay *m_display;
};

} // namespace taskrack
