#pragma once

// Runs a program in a new terminal window, for the providers that have no desktop application
// (resuming a task, starting one). The program gets an argument vector, never a shell line, and
// only identifiers and options belong in it: free text such as a prompt never goes on a
// terminal's command line, where other users can read it and the terminal may reinterpret it.

#include <QString>
#include <QStringList>

namespace taskrack {

class TerminalLauncher
{
public:
    enum class Result { started, noTerminal, launchFailed };

    virtual ~TerminalLauncher() = default;
    // `argv[0]` is the program's absolute path; `folder` the working folder.
    virtual Result launch(const QStringList &argv, const QString &folder) = 0;
};

} // namespace taskrack
