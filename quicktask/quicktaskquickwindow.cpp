#include "quicktask/quicktaskquickwindow.h"

#include "panel/racksymbolitem.h"
#include "platform/desktopwindows.h"
#include "quicktask/quicktasklog.h"
#include "quicktask/quicktaskviewmodel.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QQmlContext>
#include <QScreen>

namespace taskrack {

QuickTaskQuickWindow::QuickTaskQuickWindow(QuickTaskViewModel &viewModel, DesktopWindows &desktop)
    : m_desktop(desktop), m_viewModel(viewModel)
{
    static const bool registered = (RackSymbolItem::registerType(), true);
    Q_UNUSED(registered);
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setColor(viewModel.palette()->background());
    setTitle(QStringLiteral("Taskrack Quick Task"));
    setResizeMode(QQuickView::SizeRootObjectToView);
    rootContext()->setContextProperty(QStringLiteral("quickTask"), &viewModel);
    setSource(QUrl(sourceUrl));
    for (const QQmlError &error : errors())
        qCWarning(lcQuickTask, "Quick Task layout failed to load: %s",
                  qPrintable(error.toString()));
    connect(this, &QQuickWindow::frameSwapped, this, [this] {
        // A frame of the window while it was hidden says nothing about what is on screen.
        if (onFrameSwapped && isExposed())
            onFrameSwapped();
    });
    connect(viewModel.palette(), &RackPalette::changed, this,
            [this, &viewModel] { setColor(viewModel.palette()->background()); });
}

QList<RackScreen> QuickTaskQuickWindow::screens() const
{
    QList<RackScreen> result;
    const QScreen *primary = QGuiApplication::primaryScreen();
    for (const QScreen *screen : QGuiApplication::screens())
        result.append(
            RackScreen{screen->geometry(), screen->availableGeometry(), screen == primary});
    return result;
}

std::optional<QPoint> QuickTaskQuickWindow::pointer() const
{
    return QCursor::pos();
}

void QuickTaskQuickWindow::setFrame(const QRect &frame)
{
    setGeometry(frame);
}

void QuickTaskQuickWindow::show()
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

void QuickTaskQuickWindow::hide(bool restoreFocus)
{
    const bool hadFocus = isActive() || m_desktop.hasFocus(winId());
    QQuickView::hide();
    const std::optional<quint64> previous = std::exchange(m_previousWindow, std::nullopt);
    if (restoreFocus && hadFocus && previous && m_desktop.isViewable(*previous))
        m_desktop.activate(*previous);
}

void QuickTaskQuickWindow::renderOffscreen()
{
    if (isVisible())
        return;
    // Grabbing a window that was never exposed renders it offscreen: the scene graph, the glyph
    // caches and the QML are built without anything reaching the screen.
    grabWindow();
}

bool QuickTaskQuickWindow::event(QEvent *event)
{
    if (event->type() == QEvent::ApplicationPaletteChange)
        m_viewModel.palette()->followApplicationPalette();
    return QQuickView::event(event);
}

void QuickTaskQuickWindow::keyPressEvent(QKeyEvent *event)
{
    if (keyHandler && keyHandler(QuickTaskKey{event->key(), event->modifiers()})) {
        event->accept();
        return;
    }
    QQuickView::keyPressEvent(event);
}

} // namespace taskrack
