#pragma once

// `taskrack demo`: the real rack over made-up tasks, for trying it and for screenshots, with
// no provider installed and nothing written to disk.

namespace taskrack {

// Creates its own GUI application from argv; returns the exit code.
int runDemoCommand(int argc, char **argv);

} // namespace taskrack
