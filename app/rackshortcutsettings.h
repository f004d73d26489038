#pragma once

// The nine shortcuts in the settings window. A row is clicked, the next key with its modifiers
// becomes the action's combo once the shortcut table accepts it; a refused combo shows why
// beside its row and is not stored. While a row records, the global hot keys are released
// (announced through RackShortcutNotifications), else the X server would hand the very keys
// being recorded to the running hot keys instead of this window.

#include "input/rackshortcuts.h"

#include <QPushButton>
#include <QWidget>
#include <array>

class QLabel;

namespace taskrack {

class DesktopWindows;
class Preferences;

// One action's combo; clicked, it records the next key pressed in it.
class RackShortcutField : public QPushButton
{
    Q_OBJECT
public:
    // `desktop` names the hardware key of an event in portable codes; it outlives the field.
    RackShortcutField(RackShortcutAction action, DesktopWindows &desktop,
                      QWidget *parent = nullptr);

    RackShortcutAction action() const { return m_action; }
    void setCombo(const RackKeyCombo &combo);
    bool isRecording() const { return m_recording; }
    void setRecording(bool recording);

signals:
    void recordingChanged(bool recording);
    void recorded(const RackKeyCombo &combo);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    void updateText();

    RackShortcutAction m_action;
    DesktopWindows &m_desktop;
    RackKeyCombo m_combo;
    bool m_recording = false;
};

class RackShortcutSettings : public QWidget
{
    Q_OBJECT
public:
    static inline const QString headingText =
        QStringLiteral("Click a shortcut, then press new keys. The first two work in any app; "
                       "the rest while the rack is open.");

    RackShortcutSettings(Preferences &preferences, DesktopWindows &desktop,
                         QWidget *parent = nullptr);
    ~RackShortcutSettings() override;

    // Reads the stored overrides again and clears the messages of refused combos.
    void reload();
    // Binds `combo` to `action` when the table accepts it (then stores and announces it), else
    // shows the reason beside the row. Answers the reason.
    std::optional<QString> bind(RackShortcutAction action, const RackKeyCombo &combo);
    void restoreDefaults();
    // A problem of a shortcut that is stored but could not be taken (a global hot key that
    // another program holds); nothing clears it.
    void setRegistrationError(RackShortcutAction action, const std::optional<QString> &error);
    // The message shown beside an action's row, empty for none.
    QString message(RackShortcutAction action) const;
    RackShortcutField &field(RackShortcutAction action);
    // Ends any recording, as closing the window does.
    void stopRecording();

signals:
    // After every stored change: the running hot keys and the rack take the new combos.
    void shortcutsChanged();

private:
    struct Row
    {
        RackShortcutField *field = nullptr;
        QLabel *icon = nullptr;
        QLabel *message = nullptr;
        std::optional<QString> refusal;
        std::optional<QString> registrationError;
    };
    void showMessage(Row &row);
    void recordingChanged(RackShortcutField *field, bool recording);

    Preferences &m_preferences;
    RackShortcutOverrides m_overrides;
    std::array<Row, allRackShortcutActions.size()> m_rows;
    bool m_announcedRecording = false;
};

} // namespace taskrack
