#pragma once

// The Quick Task panel's real window: a frameless tool window above all others, kept out of
// task bars, that takes the keyboard focus while it is up and hands it back when it goes. Its
// contents are the panel's QML over the view model.

#include "quicktask/quicktaskpanelwindow.h"

#include "panel/panelquickview.h"

namespace taskrack {

class DesktopWindows;
class QuickTaskViewModel;

class QuickTaskQuickWindow : public PanelQuickView, public QuickTaskPanelWindow
{
    Q_OBJECT

public:
    static inline const QString sourceUrl =
        QStringLiteral("qrc:/taskrack/quicktask/qml/QuickTaskPanel.qml");

    QuickTaskQuickWindow(QuickTaskViewModel &viewModel, DesktopWindows &desktop);

    QList<RackScreen> screens() const override;
    std::optional<QPoint> pointer() const override;
    void setFrame(const QRect &frame) override;
    void show() override;
    void hide(bool restoreFocus) override;
    void renderOffscreen() override;

protected:
    void keyPressEvent(QKeyEvent *event) override;
};

} // namespace taskrack
