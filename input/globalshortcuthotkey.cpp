#include "input/globalshortcuthotkey.h"

#include "input/hotkeylog.h"
#include "platform/globalhotkeys.h"

#include <QPointer>

namespace taskrack {

GlobalShortcutHotkey::GlobalShortcutHotkey(GlobalHotkeys *hotkeys, quint32 identifier,
                                           RackKeyCombo combo,
                                           std::optional<HotkeyUnavailableReason> unavailable,
                                           QObject *parent)
    : QObject(parent), m_hotkeys(hotkeys), m_identifier(identifier), m_combo(combo),
      m_unavailable(unavailable)
{
}

GlobalShortcutHotkey::~GlobalShortcutHotkey()
{
    unregisterHotkey();
}

std::optional<HotkeyError> GlobalShortcutHotkey::registerHotkey()
{
    if (!m_hotkeys)
        return HotkeyError::inputMonitoringDenied(
            m_unavailable.value_or(HotkeyUnavailableReason::noDisplay));
    QPointer<GlobalShortcutHotkey> self(this);
    const GlobalHotkeyResult result =
        m_hotkeys->grab(m_identifier, m_combo.keyCode, m_combo.modifierBits, [self] {
            if (self)
                emit self->pressed();
        });
    m_isRegistered = result.ok();
    switch (result.outcome) {
    case GlobalHotkeyResult::Outcome::registered:
        return std::nullopt;
    case GlobalHotkeyResult::Outcome::conflict:
        qCWarning(lcHotkey, "Global shortcut %u is taken by another program (X error %d)",
                  m_identifier, result.errorCode);
        return HotkeyError::globalShortcutConflict(result.errorCode, displayName(m_combo));
    case GlobalHotkeyResult::Outcome::failed:
        break;
    }
    qCWarning(lcHotkey, "Global shortcut %u could not be prepared (X error %d)", m_identifier,
              result.errorCode);
    return HotkeyError::globalShortcutHandler(result.errorCode, displayName(m_combo));
}

std::optional<HotkeyError> GlobalShortcutHotkey::update(const RackKeyCombo &combo)
{
    if (combo == m_combo)
        return std::nullopt;
    const bool wasRegistered = m_isRegistered;
    unregisterHotkey();
    m_combo = combo;
    if (wasRegistered)
        return registerHotkey();
    return std::nullopt;
}

void GlobalShortcutHotkey::unregisterHotkey()
{
    if (m_isRegistered && m_hotkeys)
        m_hotkeys->ungrab(m_identifier);
    m_isRegistered = false;
}

} // namespace taskrack
