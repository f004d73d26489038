#pragma once

#include "app/commandline.h"

#include <QCoro/QCoroTask>

namespace taskrack {

// `taskrack list`: one full refresh, the rack printed once. Returns the exit code.
QCoro::Task<int> runListCommand(CommandLine line);
// `taskrack watch`: the store kept running, the rack printed again on every change until
// SIGINT or SIGTERM.
QCoro::Task<int> runWatchCommand(CommandLine line);

} // namespace taskrack
