#include "panel/rackquickwindow.h"

#include "panel/panellog.h"
#include "panel/rackviewmodel.h"
#include "platform/desktopwindows.h"

#include <QKeyEvent>
#include <QQuickItem>

namespace taskrack {

RackQuickWindow::RackQuickWindow(RackViewModel &viewModel, DesktopWindows &desktop)
    : PanelQuickView(desktop, *viewModel.palette(), QStringLiteral("Taskrack"),
                     QStringLiteral("rack"), &viewModel, QUrl(sourceUrl), [this] {
                         if (onFrameSwapped)
                             onFrameSwapped();
                     })
{
    for (const QQmlError &error : errors())
        qCWarning(lcPanel, "Rack layout failed to load: %s", qPrintable(error.toString()));
}

QList<RackScreen> RackQuickWindow::screens() const
{
    return currentScreens();
}

std::optional<QPoint> RackQuickWindow::pointer() const
{
    return pointerPosition();
}

void RackQuickWindow::setFrame(const QRect &frame)
{
    setGeometry(frame);
}

void RackQuickWindow::show()
{
    showTakingFocus();
}

void RackQuickWindow::hide(bool restoreFocus)
{
    hideGivingFocus(restoreFocus);
}

void RackQuickWindow::renderOffscreen()
{
    renderWhileHidden();
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
