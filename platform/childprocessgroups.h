#pragma once

// The process groups of the helpers Taskrack runs (the Codex app-server and whatever its
// launcher starts). None may outlive Taskrack, whatever way it ends: an orderly shutdown
// retires them one by one, and every other exit path (a termination signal that the orderly
// path cannot answer in time, a crash) signals all of them from here. Safe to use from a
// signal handler.

#include <sys/types.h>

namespace taskrack::ChildProcessGroups {

// Remembers the group led by `leader` (a child that called setpgid(0, 0)). False when the
// registry is full; the child is then only retired by its owner.
bool add(pid_t leader);
// Forgets it once its owner has reaped the leader.
void remove(pid_t leader);
// Sends `signalNumber` to every remembered group. Async-signal-safe.
void signalAll(int signalNumber);
// How many groups are remembered.
int count();

} // namespace taskrack::ChildProcessGroups
