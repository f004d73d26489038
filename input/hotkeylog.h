#pragma once

#include <QLoggingCategory>

namespace taskrack {
// Global input: the gesture listener, global hot keys, shortcut storage. Never key contents.
Q_DECLARE_LOGGING_CATEGORY(lcHotkey)
} // namespace taskrack
