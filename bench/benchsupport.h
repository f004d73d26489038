#pragma once

// What the benchmarks that drive Taskrack's own store share: waiting in the event loop (the
// harness must not spin, or it would be measured with us), file appends and the process's CPU.

#include "core/rackstore.h"

#include <QByteArray>
#include <QString>
#include <functional>
#include <optional>

namespace taskrack::bench {

void append(const QString &path, const QByteArray &bytes);
// Runs the event loop until `condition` holds; false after `timeoutMs`.
bool runUntil(const std::function<bool()> &condition, int timeoutMs = 10000);
std::optional<RackStatus> statusOf(const RackStore &store, const QString &id);
// Sleeps in the event loop until the store shows `expected` for `id`.
bool waitForStatus(RackStore &store, const QString &id, RackStatus expected, int timeoutMs = 10000);
void sleepInEventLoop(int ms);
// A plain function, not a lambda: a coroutine lambda's captures die with the temporary closure.
QCoro::Task<void> signalWhenDone(QCoro::Task<void> task, bool &done);
// User and system time of the whole process, every thread included.
double processCpuSeconds();

} // namespace taskrack::bench
