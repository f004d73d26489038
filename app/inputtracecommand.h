#pragma once

// `taskrack input-trace [--json]`: global input checked from a terminal. Prints what the session
// offers, then every gesture event and global shortcut press as it happens, until interrupted.
// The gesture runs whatever the person chose in the settings, and nothing is written.

#include "app/commandline.h"

#include <QCoro/QCoroTask>

namespace taskrack {

// Returns the exit code: 1 when the session offers no global keys.
QCoro::Task<int> runInputTraceCommand(CommandLine line);

} // namespace taskrack
