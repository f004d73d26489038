#pragma once

#include "app/commandline.h"

#include <QCoro/QCoroTask>

namespace taskrack {

// `taskrack list`: one full refresh, the rack printed once. Returns the exit code.
QCoro::Task<int> runListCommand(CommandLine line);
// `taskrack watch`: the store kept running, the rack printed again on every change until
// SIGINT or SIGTERM.
QCoro::Task<int> runWatchCommand(CommandLine line);
// `taskrack open THREAD-ID`: opens one task the way the panel would.
QCoro::Task<int> runOpenCommand(CommandLine line);
// `taskrack read THREAD-ID | --all`: marks finished tasks as read.
QCoro::Task<int> runReadCommand(CommandLine line);

} // namespace taskrack
