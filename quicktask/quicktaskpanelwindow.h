#pragma once

// The Quick Task panel's window as its controller sees it. The controller's rules (when it
// shows, where, what a key does, when focus goes back) are tested over a fake; the Qt Quick
// window is the real one.

#include "panel/rackpanelgeometry.h"

#include <QRect>
#include <functional>

namespace taskrack {

struct QuickTaskKey
{
    int key = 0; // Qt::Key
    Qt::KeyboardModifiers modifiers;

    bool operator==(const QuickTaskKey &) const = default;
};

class QuickTaskPanelWindow
{
public:
    virtual ~QuickTaskPanelWindow() = default;

    virtual QList<RackScreen> screens() const = 0;
    virtual std::optional<QPoint> pointer() const = 0;
    virtual void setFrame(const QRect &frame) = 0;
    // Maps the window above others and takes the keyboard focus, remembering who had it.
    virtual void show() = 0;
    // Unmaps it. With `restoreFocus`, the remembered window gets the focus back when it is
    // still there and the panel still had the focus.
    virtual void hide(bool restoreFocus) = 0;
    // Builds and draws the contents once without mapping the window.
    virtual void renderOffscreen() = 0;

    // Keys before the panel's text fields see them; answering true swallows the key.
    std::function<bool(QuickTaskKey)> keyHandler;
    // Runs after each frame reached the screen.
    std::function<void()> onFrameSwapped;
};

} // namespace taskrack
