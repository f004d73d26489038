#pragma once

// The small settings window: live Claude status, the right-side switcher, notifications,
// Quick Task auto-send, the rack's appearance, the Codex cloud status and the shortcuts.
// Each switch writes its preference at once; what the running parts read again is told to
// them through `changed`.

#include <QCoro/QCoroTask>
#include <QWidget>
#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;

namespace taskrack {

class ClaudeEnhancedStatusController;
class HotkeyReadiness;
class Preferences;

class RackSettingsWindow : public QWidget
{
    Q_OBJECT
public:
    static inline const QString autoSendKey = QStringLiteral("quickTaskAutoSendEnabled");
    static inline const QString appearanceKey = QStringLiteral("rackAppearance");
    static inline const QString cloudStatusKey = QStringLiteral("codexCloudLiveStatusEnabled");

    // `claude` and `readiness` may be null when those parts are not running. Each shortcut line
    // is "label<TAB>combination".
    RackSettingsWindow(Preferences &preferences, ClaudeEnhancedStatusController *claude,
                       HotkeyReadiness *readiness, QStringList shortcutLines,
                       QWidget *parent = nullptr);

    // Reads everything shown again (after another process changed a preference).
    void reload();

signals:
    void changed();

private:
    void updateClaude();
    QCoro::Task<void> toggleClaude();

    Preferences &m_preferences;
    ClaudeEnhancedStatusController *m_claude = nullptr;
    HotkeyReadiness *m_readiness = nullptr;
    QLabel *m_claudeStatus = nullptr;
    QPushButton *m_claudeToggle = nullptr;
    QCheckBox *m_switcher = nullptr;
    QCheckBox *m_notifications = nullptr;
    QCheckBox *m_autoSend = nullptr;
    QCheckBox *m_cloud = nullptr;
    QComboBox *m_appearance = nullptr;
};

} // namespace taskrack
