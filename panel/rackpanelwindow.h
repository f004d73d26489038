#pragma once

// The rack's window as its controller sees it. The controller's rules (when to show, where,
// what a key does, when focus goes back) are tested over a fake; the Qt Quick window is the
// real one.

#include "panel/rackkeyrouter.h"
#include "panel/rackpanelgeometry.h"

#include <functional>

namespace taskrack {

class RackPanelWindow
{
public:
    virtual ~RackPanelWindow() = default;

    virtual QList<RackScreen> screens() const = 0;
    virtual std::optional<QPoint> pointer() const = 0;
    virtual void setFrame(const QRect &frame) = 0;
    // Maps the window above others and takes the keyboard focus, remembering who had it.
    virtual void show() = 0;
    // Unmaps it. With `restoreFocus`, the remembered window gets the focus back when it is
    // still there and the rack still had the focus.
    virtual void hide(bool restoreFocus) = 0;
    // Builds and draws the contents once without mapping the window.
    virtual void renderOffscreen() = 0;

    // Keys that arrive while the window has focus; answering true swallows the key.
    std::function<bool(RackKeyPress, RackKeyFocus)> keyHandler;
    // Runs after each frame reached the screen.
    std::function<void()> onFrameSwapped;
};

} // namespace taskrack
