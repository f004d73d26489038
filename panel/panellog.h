#pragma once

// The rack's log category. Counts, durations and fixed texts only.

#include <QLoggingCategory>

namespace taskrack {
Q_DECLARE_LOGGING_CATEGORY(lcPanel)
} // namespace taskrack
