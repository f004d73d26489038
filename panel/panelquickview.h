#pragma once

// What the rack and the Quick Task panel share as windows: a frameless tool window above all
// others, kept out of task bars, whose colour follows the palette, that takes the keyboard focus
// while it is up and hands it back to the window it took it from when it goes.

#include "panel/rackpanelgeometry.h"

#include <QQuickView>
#include <functional>
#include <optional>

namespace taskrack {

class DesktopWindows;
class RackPalette;

class PanelQuickView : public QQuickView
{
public:
    // `contextName` is what the QML calls `context`; `frameSwapped` hears each frame drawn while
    // the window is on screen.
    PanelQuickView(DesktopWindows &desktop, RackPalette &palette, const QString &title,
                   const QString &contextName, QObject *context, const QUrl &source,
                   std::function<void()> frameSwapped);

    static QList<RackScreen> currentScreens();
    static QPoint pointerPosition();
    // Shows, raises and takes the focus, remembering which window had it.
    void showTakingFocus();
    // Hides; gives the focus back when it had it and `restoreFocus` asks for it.
    void hideGivingFocus(bool restoreFocus);
    // Builds the scene graph, glyph caches and QML of a window never shown.
    void renderWhileHidden();

protected:
    // Light and dark follow the desktop's palette while the program runs.
    bool event(QEvent *event) override;

    DesktopWindows &m_desktop;

private:
    RackPalette &m_palette;
    std::optional<quint64> m_previousWindow;
};

} // namespace taskrack
