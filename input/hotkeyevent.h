#pragma once

// What the right-modifier gesture asks of the rack, in the order a person produces them.

#include <QString>
#include <optional>

namespace taskrack {

enum class HotkeyEvent {
    prefetch,      // right Ctrl went down: the rack may get ready, nothing is shown yet
    reveal,        // both right-side keys are held: show the rack
    cycle,         // a tap of right Alt while the rack shows: next task
    cycleBackward, // the same with Shift held: previous task
    commit,        // right Ctrl released during the gesture: open the selection
    cancel,        // the gesture ended without a choice (listener lost, cancelled)
};

QString hotkeyEventName(HotkeyEvent event);
std::optional<HotkeyEvent> hotkeyEventFromName(const QString &name);

} // namespace taskrack
