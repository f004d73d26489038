#include "input/hotkeylog.h"

namespace taskrack {
Q_LOGGING_CATEGORY(lcHotkey, "com.quillon.Taskrack.hotkey", QtInfoMsg)
} // namespace taskrack
