#pragma once

// Log categories under the application's subsystem name. Logs hold counts, durations and fixed
// texts only: never titles, paths, prompts or task identifiers.

#include <QLoggingCategory>

namespace taskrack {
Q_DECLARE_LOGGING_CATEGORY(lcStore)
Q_DECLARE_LOGGING_CATEGORY(lcApp)
} // namespace taskrack
