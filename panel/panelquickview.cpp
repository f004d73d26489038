#include "panel/panelquickview.h"

#include "panel/rackpalette.h"
#include "panel/racksymbolitem.h"
#include "platform/desktopwindows.h"

#include <QCursor>
#include <QGuiApplication>
#include <QQmlContext>
#include <QScreen>

namespace taskrack {

PanelQuickView::PanelQuickView(DesktopWindows &desktop, RackPalette &palette, const QString &title,
                               const QString &contextName, QObject *context, const QUrl &source,
                               std::function<void()> frameSwapped)
    : m_desktop(desktop), m_palette(palette)
{
    static const bool registered = (RackSymbolItem::registerType(), true);
    Q_UNUSED(registered);
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setColor(palette.background());
    setTitle(title);
    setResizeMode(QQuickView::SizeRootObjectToView);
    rootContext()->setContextProperty(contextName, context);
    setSource(source);
    connect(this, &QQuickWindow::frameSwapped, this, [this, frameSwapped] {
        // A frame of the window while it was hidden says nothing about what is on screen.
        if (frameSwapped && isExposed())
            frameSwapped();
    });
    connect(&palette, &RackPalette::changed, this, [this] { setColor(m_palette.background()); });
}

QList<RackScreen> PanelQuickView::currentScreens()
{
    QList<RackScreen> result;
    const QScreen *primary = QGuiApplication::primaryScreen();
    for (const QScreen *screen : QGuiApplication::screens())
        result.append(
            RackScreen{screen->geometry(), screen->availableGeometry(), screen == primary});
    return result;
}

QPoint PanelQuickView::pointerPosition()
{
    return QCursor::pos();
}

void PanelQuickView::showTakingFocus()
{
    const quint64 own = winId();
    if (!isVisible()) {
        const std::optional<quint64> active = m_desktop.activeWindow();
        m_previousWindow = active && *active != own ? active : std::nullopt;
        m_desktop.prepareForMap(own);
    }
    QQuickView::show();
    raise();
    requestActivate();
    m_desktop.activate(own);
}

void PanelQuickView::hideGivingFocus(bool restoreFocus)
{
    const bool hadFocus = isActive() || m_desktop.hasFocus(winId());
    QQuickView::hide();
    const std::optional<quint64> previous = std::exchange(m_previousWindow, std::nullopt);
    if (restoreFocus && hadFocus && previous && m_desktop.isViewable(*previous))
        m_desktop.activate(*previous);
}

void PanelQuickView::renderWhileHidden()
{
    if (isVisible())
        return;
    // Grabbing a window that was never exposed renders it offscreen: the scene graph, the
    // glyph caches and the QML are built without anything reaching the screen.
    grabWindow();
}

bool PanelQuickView::event(QEvent *event)
{
    if (event->type() == QEvent::ApplicationPaletteChange)
        m_palette.followApplicationPalette();
    return QQuickView::event(event);
}

} // namespace taskrack
