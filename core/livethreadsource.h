#pragma once

// A provider source that does more than answer fetches: its watchers push whole snapshots,
// status deltas and "fetch again" between fetches, and it has a life the runtime drives in one
// fixed order for every provider (start, sleep, wake, shutdown).

#include "core/boundedchannel.h"
#include "core/threadsource.h"

#include <variant>

namespace taskrack {

class LiveThreadSource : public ThreadSource
{
public:
    // Whose threads this source's snapshots replace.
    virtual RackProvider provider() const = 0;
    // Whole snapshots of this provider, pushed by its watchers.
    virtual ChannelPtr<ThreadCollection> snapshots() const = 0;
    // Status deltas keyed as the store keys threads.
    virtual ChannelPtr<RackStatusUpdate> statusUpdates() const = 0;
    // "The thread list changed, fetch again."
    virtual ChannelPtr<std::monostate> threadListInvalidations() const = 0;

    // Starts the watchers and the source's own safety net; called once, after the snapshot
    // loop consumes.
    virtual void start() = 0;
    // The machine is about to sleep: retire child processes, keep the data.
    virtual QCoro::Task<void> sleep() = 0;
    // The machine woke: resume (retiring what a missed sleep left running) and reconcile.
    virtual QCoro::Task<void> wake() = 0;
    // A local pass now, as after a missed watcher event.
    virtual void reconcileLocal() = 0;
    // The person may have changed, from another process, a setting the source reads.
    virtual void preferencesChanged() {}
    // Waits briefly for outside work the last fetch started (a cloud poll); true when a fetch
    // again may show more.
    virtual QCoro::Task<bool> settle() { co_return false; }
    // Final: stops the watchers, ends the channels and waits for child processes to go.
    virtual QCoro::Task<void> shutdown() = 0;
};

} // namespace taskrack
