#pragma once

// Builds the provider sources the application runs over, in the order the composite asks them:
// Codex first, then Claude.

#include "app/providerpaths.h"
#include "app/sourceeventfeed.h"
#include "core/livethreadsource.h"

#include <memory>
#include <vector>

namespace taskrack {

class Clock;
class ClaudeDesktopThreadSource;
class ClaudeHookWiring;
class FileSystem;
class Preferences;
struct ClaudeSourcePaths;

struct SourceAssembly
{
    // Members of the composite, in order.
    std::vector<std::shared_ptr<LiveThreadSource>> sources;
    // Started after the sources' loops, stopped before the sources shut down.
    std::vector<std::shared_ptr<SourceEventFeed>> eventFeeds;
    // Live Claude status (its controller answers the rack's setup questions); absent in tests.
    std::shared_ptr<ClaudeHookWiring> claudeHooks;

    static SourceAssembly build(const ProviderPaths &paths, Preferences &preferences, Clock &clock);
    // The Claude source as the application runs it: inotify watches, pidfd process exits.
    static std::shared_ptr<ClaudeDesktopThreadSource>
    claudeSource(const ClaudeSourcePaths &paths, Clock &clock, const FileSystem &fileSystem);
};

} // namespace taskrack
