// The stored shortcut table may have been edited by hand or written by another version, and key
// combos come from the command line: both readers must hold up against anything, and what they
// accept must be what the rest of the program can live with.

#include "input/rackshortcuts.h"
#include "platform/preferences.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text =
        QString::fromUtf8(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));
    taskrack::InMemoryPreferences defaults;
    defaults.setValue(taskrack::rackShortcutsKey, text);
    const taskrack::RackShortcutOverrides overrides = taskrack::loadShortcuts(defaults);
    if (!taskrack::isValid(overrides))
        __builtin_trap(); // a loaded table is always usable
    if (const auto combo = taskrack::parseRackKeyCombo(text)) {
        // What the parser accepts reads back the same way.
        if (taskrack::parseRackKeyCombo(taskrack::displayName(*combo)) != combo)
            __builtin_trap();
    }
    return 0;
}
