#pragma once

// Builds the provider sources the application runs over, in the order the composite asks them:
// Codex first, then Claude.

#include "app/providerpaths.h"
#include "core/boundedchannel.h"
#include "core/threadsource.h"

#include <functional>
#include <memory>
#include <variant>
#include <vector>

namespace taskrack {

class Clock;
class ClaudeHookWiring;
class Preferences;

using Invalidation = std::monostate;

// What a source with live channels offers beyond a fetch. Every member is optional: a source
// leaves out what it does not have.
struct LiveFeeds
{
    RackProvider provider = RackProvider::codex;
    // Whole snapshots of this provider pushed by its watchers.
    ChannelPtr<ThreadCollection> snapshots;
    // Status deltas keyed by the store's thread id.
    ChannelPtr<RackStatusUpdate> statusUpdates;
    // Status deltas keyed by Codex's own thread id (the store adds the prefix when needed).
    ChannelPtr<RackStatusUpdate> codexStatusUpdates;
    // "Something changed, refresh soon."
    ChannelPtr<Invalidation> invalidations;
    // Starts watchers and the source's own safety net; called once the snapshot loop consumes.
    std::function<void()> start;
    // Starts the listener of pushed events (Claude Code's hooks) and its forwarding.
    std::function<void()> startEvents;
    // Stops that listener; runs before the sources shut down.
    std::function<void()> stopEvents;
    // The machine is about to sleep: retire child processes, keep the data.
    std::function<QCoro::Task<void>()> sleep;
    // The machine woke: resume (suspending first if the sleep was missed) and reconcile.
    std::function<QCoro::Task<void>()> wake;
    // A local pass now, as after a missed watcher event (the menu's Refresh).
    std::function<void()> reconcile;
    // Re-reads what the person may have changed from another process (the hook integration).
    std::function<void()> preferencesChanged;
    // Waits briefly for outside work a fetch started (a cloud poll); true when there was some.
    std::function<QCoro::Task<bool>()> settle;
    // Stops watchers and child processes; awaited before the process exits.
    std::function<QCoro::Task<void>()> shutdown;
};

struct SourceAssembly
{
    // Members of the composite, in order.
    std::vector<std::shared_ptr<ThreadSource>> members;
    std::vector<LiveFeeds> feeds;
    // Objects the feeds depend on that nobody else owns.
    std::vector<std::shared_ptr<void>> keepAlive;
    // Live Claude status (its controller answers the rack's setup questions); absent in tests.
    std::shared_ptr<ClaudeHookWiring> claudeHooks;

    static SourceAssembly build(const ProviderPaths &paths, Preferences &preferences, Clock &clock);
};

} // namespace taskrack
