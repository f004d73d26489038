#pragma once

#include "app/commandline.h"

#include <QCoro/QCoroTask>

namespace taskrack {

class TerminationSignals;

// Each returns the exit code. A termination signal ends any of them early, in order, with
// 128 + the signal (a watch, which is meant to end so, with 0).

// `taskrack list`: one full refresh, the rack printed once.
QCoro::Task<int> runListCommand(CommandLine line, TerminationSignals &termination);
// `taskrack watch`: the store kept running, the rack printed again on every change until a
// termination signal.
QCoro::Task<int> runWatchCommand(CommandLine line, TerminationSignals &termination);
// `taskrack open THREAD-ID`: opens one task the way the panel would.
QCoro::Task<int> runOpenCommand(CommandLine line, TerminationSignals &termination);
// `taskrack read THREAD-ID | --all`: marks finished tasks as read.
QCoro::Task<int> runReadCommand(CommandLine line, TerminationSignals &termination);

} // namespace taskrack
