#pragma once

// The settings window: the providers' live-status integrations, the right-side switcher,
// notifications, Quick Task auto-send, the Codex model for Quick Tasks, the rack's appearance,
// the Codex cloud status and the nine shortcuts. Each control writes its preference at once;
// what the running parts must read again is told to them through `changed` and
// `shortcutsChanged`. Its contents scroll, and its two columns stack on a narrow screen, so that
// it fits any screen from 480 pixels up.

#include "quicktask/quicktaskcodexcatalog.h"
#include "sources/codex/codexcloudstatuswiring.h"

#include <QCoro/QCoroTask>
#include <QWidget>
#include <functional>
#include <vector>

class QBoxLayout;
class QCheckBox;
class QComboBox;
class QScrollArea;

namespace taskrack {

class DesktopWindows;
class HotkeyReadiness;
class Preferences;
class QuickTaskCodexCatalog;
class RackCodexModelSettings;
class RackHookControlling;
class RackShortcutSettings;

class RackSettingsWindow : public QWidget
{
    Q_OBJECT
public:
    static inline const QString &autoSendKey = quickTaskAutoSendEnabledKey;
    static inline const QString appearanceKey = QStringLiteral("rackAppearance");
    static inline const QString &cloudStatusKey = codexCloudLiveStatusEnabledKey;

    struct Parts
    {
        Preferences &preferences;
        // One row each, in this order; they outlive the window.
        std::vector<RackHookControlling *> hooks;
        // The running global input's readiness; null while none runs. Asked each time: the
        // input is rebuilt when the shortcuts change.
        std::function<HotkeyReadiness *()> readiness;
        QuickTaskCodexCatalog &catalog;
        DesktopWindows &desktop;
    };

    explicit RackSettingsWindow(Parts parts, QWidget *parent = nullptr);
    ~RackSettingsWindow() override;

    // Reads everything shown again (after another process changed a preference).
    void reload();
    RackShortcutSettings &shortcuts() { return *m_shortcuts; }
    RackCodexModelSettings &codexModel() { return *m_codexModel; }
    // Shows the window at a size that fits its screen, loading the Codex models once.
    void present();

signals:
    void changed();
    void shortcutsChanged();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *hookRows();
    QWidget *generalBox();
    QCoro::Task<void> toggleHook(RackHookControlling *hook);
    // The narrowest window that shows both columns side by side.
    int twoColumnWidth() const;
    // Sizes the window to its contents within the screen; `growOnly` keeps the width and never
    // shrinks (for contents that grew while it is up).
    void fit(bool growOnly);

    Parts m_parts;
    QScrollArea *m_scroll = nullptr;
    QBoxLayout *m_columns = nullptr;
    QWidget *m_left = nullptr;
    QCheckBox *m_switcher = nullptr;
    QCheckBox *m_notifications = nullptr;
    QCheckBox *m_autoSend = nullptr;
    QCheckBox *m_cloud = nullptr;
    QComboBox *m_appearance = nullptr;
    RackCodexModelSettings *m_codexModel = nullptr;
    RackShortcutSettings *m_shortcuts = nullptr;
    std::vector<std::function<void()>> m_hookUpdates;
};

} // namespace taskrack
