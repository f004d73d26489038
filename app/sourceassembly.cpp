#include "app/sourceassembly.h"

#include "sources/claude/claudedesktopthreadsource.h"
#include "sources/codex/codexlocalthreadsource.h"

namespace taskrack {

namespace {

QCoro::Task<void> shutdownClaude(std::weak_ptr<ClaudeDesktopThreadSource> weak)
{
    if (auto source = weak.lock())
        co_await source->shutdown();
}

} // namespace

SourceAssembly SourceAssembly::build(const ProviderPaths &paths, Preferences &preferences,
                                     Clock &clock)
{
    Q_UNUSED(preferences);
    SourceAssembly assembly;
    // Codex: the state database's list with rollout activity on top, until a source with a
    // live channel joins it.
    assembly.members.push_back(
        std::make_shared<CodexLocalThreadSource>(paths.codexHome, paths.home, clock));
    // Claude: desktop manifests and Claude Code sessions found in the transcript folders.
    auto claude = std::make_shared<ClaudeDesktopThreadSource>(ClaudeDesktopThreadSource::Configuration{
        ClaudeSourcePaths::forHome(paths.home), &clock, {}, {}, true});
    assembly.members.push_back(claude);
    LiveFeeds claudeFeeds;
    claudeFeeds.provider = RackProvider::claudeDesktop;
    claudeFeeds.snapshots = claude->snapshots();
    claudeFeeds.statusUpdates = claude->statusUpdates();
    claudeFeeds.invalidations = claude->threadListInvalidations();
    const std::weak_ptr<ClaudeDesktopThreadSource> weakClaude = claude;
    claudeFeeds.start = [weakClaude] {
        if (auto source = weakClaude.lock())
            source->startMonitoring();
    };
    claudeFeeds.shutdown = [weakClaude] { return shutdownClaude(weakClaude); };
    assembly.feeds.push_back(std::move(claudeFeeds));
    return assembly;
}

} // namespace taskrack
