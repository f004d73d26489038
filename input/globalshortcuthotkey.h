#pragma once

// One of the two shortcuts that work in any program: showing the rack and a new Quick Task.
// Registration goes through the platform's global hot keys under a fixed identifier.

#include "input/hotkeyavailability.h"
#include "input/hotkeyerror.h"
#include "input/rackkeycombo.h"

#include <QObject>
#include <optional>

namespace taskrack {

class GlobalHotkeys;

class GlobalShortcutHotkey : public QObject
{
    Q_OBJECT
public:
    // `hotkeys` may be null when the session offers no global keys; registering then fails with
    // the reason. Otherwise it outlives this object.
    GlobalShortcutHotkey(GlobalHotkeys *hotkeys, quint32 identifier, RackKeyCombo combo,
                         std::optional<HotkeyUnavailableReason> unavailable = std::nullopt,
                         QObject *parent = nullptr);
    ~GlobalShortcutHotkey() override;

    quint32 identifier() const { return m_identifier; }
    RackKeyCombo combo() const { return m_combo; }
    bool isRegistered() const { return m_isRegistered; }

    // Nothing on success.
    std::optional<HotkeyError> registerHotkey();
    // A changed combo is registered again if it was registered; unchanged does nothing.
    std::optional<HotkeyError> update(const RackKeyCombo &combo);
    void unregisterHotkey();

signals:
    void pressed();

private:
    GlobalHotkeys *m_hotkeys;
    quint32 m_identifier;
    RackKeyCombo m_combo;
    std::optional<HotkeyUnavailableReason> m_unavailable;
    bool m_isRegistered = false;
};

// The two global shortcuts by their fixed identities.
class ShowRackHotkey : public GlobalShortcutHotkey
{
    Q_OBJECT
public:
    static constexpr quint32 hotkeyIdentifier = 1;
    ShowRackHotkey(GlobalHotkeys *hotkeys, RackKeyCombo combo,
                   std::optional<HotkeyUnavailableReason> unavailable = std::nullopt,
                   QObject *parent = nullptr)
        : GlobalShortcutHotkey(hotkeys, hotkeyIdentifier, combo, unavailable, parent)
    {
    }
};

class ShowQuickTaskHotkey : public GlobalShortcutHotkey
{
    Q_OBJECT
public:
    static constexpr quint32 hotkeyIdentifier = 2;
    ShowQuickTaskHotkey(GlobalHotkeys *hotkeys, RackKeyCombo combo,
                        std::optional<HotkeyUnavailableReason> unavailable = std::nullopt,
                        QObject *parent = nullptr)
        : GlobalShortcutHotkey(hotkeys, hotkeyIdentifier, combo, unavailable, parent)
    {
    }
};

} // namespace taskrack
