#pragma once

// Starts a command in a terminal without putting it on the terminal's command line: the
// terminal runs the launch helper with the path of a private FIFO, and the request goes through
// that FIFO once the helper has opened it. Terminals differ in how they re-parse "-e" (as one
// string, through a shell), which would turn a prompt into shell code; a FIFO path is safe
// in all of them, and the prompt never shows in the process list.

#include "quicktask/quicktasklaunchrequest.h"

#include <QCoro/QCoroTask>
#include <chrono>
#include <stop_token>

namespace taskrack {

class TerminalLauncher;

class QuickTaskLaunchHandoff
{
public:
    // `helperPath`: the taskrack-launch program; `runtimeDirectory`: the private folder the FIFO
    // is made in ($XDG_RUNTIME_DIR).
    QuickTaskLaunchHandoff(TerminalLauncher &terminal, QString helperPath, QString runtimeDirectory,
                           std::chrono::milliseconds pickupTimeout = std::chrono::seconds(20));

    // Completes once the helper took the whole request. Throws TaskrackError when no terminal
    // could start or the helper never picked the request up (the FIFO is gone either way), and
    // OperationCancelled when stopped before the pickup.
    QCoro::Task<void> launch(QuickTaskLaunchRequest request, std::stop_token stop = {});

private:
    TerminalLauncher &m_terminal;
    QString m_helperPath;
    QString m_runtimeDirectory;
    std::chrono::milliseconds m_pickupTimeout;
};

} // namespace taskrack
