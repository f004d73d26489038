#include "panel/rackquickwindow.h"

#include "panel/panellog.h"
#include "panel/racksymbolitem.h"
#include "panel/rackviewmodel.h"
#include "platform/desktopwindows.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QQmlContext>
#include <QQuickItem>
#include <QScreen>

namespace taskrack {

RackQuickWindow::RackQuickWindow(RackViewModel &viewModel, DesktopWindows &desktop)
    : m_desktop(desktop), m_viewModel(viewModel)
{
    static const bool registered = (RackSymbolItem::registerType(), true);
    Q_UNUSED(registered);
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setColor(viewModel.palette()->background());
    setTitle(QStringLiteral("Taskrack"));
    setResizeMode(QQuickView::SizeRootObjectToView);
    rootContext()->setContextProperty(QStringLiteral("rack"), &viewModel);
    setSource(QUrl(sourceUrl));
    for (const QQmlError &error : errors())
        qCWarning(lcPanel, "Rack layout failed to load: %s", qPrintable(error.toString()));
    connect(this, &QQuickWindow::frameSwapped, this, [this] {
        // A frame of the window while it was hidden says nothing about what is on screen.
        if (onFrameSwapped && isExposed())
            onFrameSwapped();
    });
    connect(viewModel.palette(), &RackPalette::changed, this,
            [this, &viewModel] { setColor(viewModel.palette()->background()); });
}

QList<RackScreen> RackQuickWindow::screens() const
{
    QList<RackScreen> result;
    const QScreen *primary = QGuiApplication::primaryScreen();
    for (const QScreen *screen : QGuiApplication::screens())
        result.append(
            RackScreen{screen->geometry(), screen->availableGeometry(), screen == primary});
    return result;
}

std::optional<QPoint> RackQuickWindow::pointer() const
{
    return QCursor::pos();
}

void RackQuickWindow::setFrame(const QRect &frame)
{
    setGeometry(frame);
}

void RackQuickWindow::show()
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

void RackQuickWindow::hide(bool restoreFocus)
{
    const bool hadFocus = isActive() || m_desktop.hasFocus(winId());
    QQuickView::hide();
    const std::optional<quint64> previous = std::exchange(m_previousWindow, std::nullopt);
    if (restoreFocus && hadFocus && previous && m_desktop.isViewable(*previous))
        m_desktop.activate(*previous);
}

void RackQuickWindow::renderOffscreen()
{
    if (isVisible())
        return;
    // Grabbing a window that was never exposed renders it offscreen: the scene graph, the
    // glyph caches and the QML are built without anything reaching the screen.
    grabWindow();
}

RackKeyPress RackQuickWindow::portableKey(quint16 keyCode, Qt::KeyboardModifiers modifiers)
{
    RackKeyPress press{keyCode, 0};
    if (modifiers & Qt::ShiftModifier)
        press.modifierBits |= RackModifier::shift;
    if (modifiers & Qt::ControlModifier)
        press.modifierBits |= RackModifier::command;
    if (modifiers & Qt::AltModifier)
        press.modifierBits |= RackModifier::option;
    if (modifiers & Qt::MetaModifier)
        press.modifierBits |= RackModifier::control;
    return press;
}

RackKeyFocus RackQuickWindow::focus() const
{
    const QQuickItem *item = activeFocusItem();
    return item && item->objectName() == QLatin1String("searchField") ? RackKeyFocus::searchField
                                                                      : RackKeyFocus::grid;
}

bool RackQuickWindow::event(QEvent *event)
{
    if (event->type() == QEvent::ApplicationPaletteChange)
        m_viewModel.palette()->followApplicationPalette();
    return QQuickView::event(event);
}

void RackQuickWindow::keyPressEvent(QKeyEvent *event)
{
    if (keyHandler) {
        const RackKeyPress press =
            portableKey(m_desktop.portableKeyCode(event->nativeScanCode()), event->modifiers());
        if (keyHandler(press, focus())) {
            event->accept();
            return;
        }
    }
    QQuickView::keyPressEvent(event);
}

} // namespace taskrack
