#include "panel/panellog.h"

namespace taskrack {
Q_LOGGING_CATEGORY(lcPanel, "com.quillon.Taskrack.panel", QtInfoMsg)
} // namespace taskrack
