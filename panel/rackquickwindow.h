#pragma once

// The rack's real window: a frameless tool window above all others, kept out of task bars,
// that takes the keyboard focus while it is up and hands it back when it goes. Its contents
// are the QML of the rack over the view model.

#include "panel/rackpanelwindow.h"

#include "panel/panelquickview.h"

namespace taskrack {

class DesktopWindows;
class RackViewModel;

class RackQuickWindow : public PanelQuickView, public RackPanelWindow
{
    Q_OBJECT

public:
    static inline const QString sourceUrl = QStringLiteral("qrc:/taskrack/panel/qml/RackPanel.qml");

    RackQuickWindow(RackViewModel &viewModel, DesktopWindows &desktop);

    QList<RackScreen> screens() const override;
    std::optional<QPoint> pointer() const override;
    void setFrame(const QRect &frame) override;
    void show() override;
    void hide(bool restoreFocus) override;
    void renderOffscreen() override;

    // A key with the event's modifiers as portable bits (Ctrl is command, Alt option, Super
    // control), as shortcuts are stored.
    static RackKeyPress portableKey(quint16 keyCode, Qt::KeyboardModifiers modifiers);

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    RackKeyFocus focus() const;
};

} // namespace taskrack
