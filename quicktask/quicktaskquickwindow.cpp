#include "quicktask/quicktaskquickwindow.h"

#include "quicktask/quicktasklog.h"
#include "quicktask/quicktaskviewmodel.h"

#include <QKeyEvent>

namespace taskrack {

QuickTaskQuickWindow::QuickTaskQuickWindow(QuickTaskViewModel &viewModel, DesktopWindows &desktop)
    : PanelQuickView(desktop, *viewModel.palette(), QStringLiteral("Taskrack Quick Task"),
                     QStringLiteral("quickTask"), &viewModel, QUrl(sourceUrl), [this] {
                         if (onFrameSwapped)
                             onFrameSwapped();
                     })
{
    for (const QQmlError &error : errors())
        qCWarning(lcQuickTask, "Quick Task layout failed to load: %s",
                  qPrintable(error.toString()));
}

QList<RackScreen> QuickTaskQuickWindow::screens() const
{
    return currentScreens();
}

std::optional<QPoint> QuickTaskQuickWindow::pointer() const
{
    return pointerPosition();
}

void QuickTaskQuickWindow::setFrame(const QRect &frame)
{
    setGeometry(frame);
}

void QuickTaskQuickWindow::show()
{
    showTakingFocus();
}

void QuickTaskQuickWindow::hide(bool restoreFocus)
{
    hideGivingFocus(restoreFocus);
}

void QuickTaskQuickWindow::renderOffscreen()
{
    renderWhileHidden();
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
