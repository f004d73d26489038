#include "core/taskracklog.h"

namespace taskrack {
Q_LOGGING_CATEGORY(lcStore, "com.quillon.Taskrack.store", QtInfoMsg)
Q_LOGGING_CATEGORY(lcApp, "com.quillon.Taskrack.app", QtInfoMsg)
} // namespace taskrack
