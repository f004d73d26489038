#include "app/sourceassembly.h"

#include <QCoreApplication>

#include "app/claudehookwiring.h"
#include "platform/linux/linuxfilesystem.h"
#include "sources/claude/claudedesktopthreadsource.h"
#include "sources/codex/codexthreadrepository.h"

namespace taskrack {

namespace {

QCoro::Task<void> shutdownCodex(std::weak_ptr<CodexThreadRepository> weak)
{
    if (auto repository = weak.lock())
        co_await repository->shutdown();
}

QCoro::Task<void> suspendCodex(std::weak_ptr<CodexThreadRepository> weak)
{
    if (auto repository = weak.lock(); repository && !repository->isSuspended())
        co_await repository->suspend();
}

QCoro::Task<void> wakeCodex(std::weak_ptr<CodexThreadRepository> weak)
{
    auto repository = weak.lock();
    if (!repository || repository->isShutdown())
        co_return;
    // A sleep that was never announced left the child and the watchers as they were: retire
    // them the same way before starting afresh.
    if (!repository->isSuspended())
        co_await repository->suspend();
    if (repository = weak.lock(); !repository || repository->isShutdown())
        co_return;
    repository->resume();
    repository->requestLocalRefresh();
}

QCoro::Task<bool> settleCodex(std::weak_ptr<CodexThreadRepository> weak)
{
    // A one-off listing waits this long for the cloud poll its own fetch started.
    if (auto repository = weak.lock())
        co_return co_await repository->awaitCloudPoll(std::chrono::seconds(5));
    co_return false;
}

QCoro::Task<void> wakeClaude(std::weak_ptr<ClaudeDesktopThreadSource> weak,
                             std::weak_ptr<ClaudeHookWiring> weakHooks)
{
    if (auto wiring = weakHooks.lock())
        wiring->refresh();
    if (auto source = weak.lock())
        co_await source->reconcileNow();
}

QCoro::Task<void> shutdownClaude(std::weak_ptr<ClaudeDesktopThreadSource> weak)
{
    if (auto source = weak.lock())
        co_await source->shutdown();
}

} // namespace

SourceAssembly SourceAssembly::build(const ProviderPaths &paths, Preferences &preferences,
                                     Clock &clock)
{
    // Stateless, and shared by every source and by work that may outlive the assembly.
    static LinuxFileSystem fileSystem;
    SourceAssembly assembly;
    // Codex: the app-server first, the state database's list as its fallback, rollout activity
    // on top, and watched files publishing local snapshots between fetches.
    auto codex =
        CodexThreadRepository::create(paths.codexHome, paths.home, clock, fileSystem, &preferences);
    assembly.members.push_back(codex);
    LiveFeeds codexFeeds;
    codexFeeds.provider = RackProvider::codex;
    codexFeeds.snapshots = codex->localSnapshots();
    codexFeeds.statusUpdates = codex->statusUpdates();
    codexFeeds.invalidations = codex->threadListInvalidations();
    const std::weak_ptr<CodexThreadRepository> weakCodex = codex;
    codexFeeds.start = [weakCodex] {
        if (auto repository = weakCodex.lock())
            repository->start();
    };
    codexFeeds.reconcile = [weakCodex] {
        if (auto repository = weakCodex.lock())
            repository->requestLocalRefresh();
    };
    codexFeeds.preferencesChanged = [weakCodex] {
        if (auto repository = weakCodex.lock())
            repository->preferencesChanged();
    };
    codexFeeds.settle = [weakCodex] { return settleCodex(weakCodex); };
    codexFeeds.sleep = [weakCodex] { return suspendCodex(weakCodex); };
    codexFeeds.wake = [weakCodex] { return wakeCodex(weakCodex); };
    codexFeeds.shutdown = [weakCodex] { return shutdownCodex(weakCodex); };
    assembly.feeds.push_back(std::move(codexFeeds));
    // Claude: desktop manifests and Claude Code sessions found in the transcript folders.
    ClaudeDesktopThreadSource::Configuration claudeConfiguration;
    claudeConfiguration.paths = ClaudeSourcePaths::forHome(paths.home);
    claudeConfiguration.clock = &clock;
    claudeConfiguration.fileSystem = &fileSystem;
    auto claude = std::make_shared<ClaudeDesktopThreadSource>(std::move(claudeConfiguration));
    assembly.members.push_back(claude);
    LiveFeeds claudeFeeds;
    claudeFeeds.provider = RackProvider::claudeDesktop;
    claudeFeeds.snapshots = claude->snapshots();
    claudeFeeds.statusUpdates = claude->statusUpdates();
    claudeFeeds.invalidations = claude->threadListInvalidations();
    const std::weak_ptr<ClaudeDesktopThreadSource> weakClaude = claude;
    // Hook events, when live Claude status is enabled, reach the source through the bus.
    auto hooks = std::make_shared<ClaudeHookWiring>(
        preferences, clock, fileSystem, paths.claudeHome + QStringLiteral("/settings.json"),
        QCoreApplication::applicationDirPath() + QStringLiteral("/taskrack-hook-bridge"), claude);
    assembly.keepAlive.push_back(hooks);
    assembly.claudeHooks = hooks;
    const std::weak_ptr<ClaudeHookWiring> weakHooks = hooks;
    claudeFeeds.start = [weakClaude] {
        if (auto source = weakClaude.lock())
            source->startMonitoring();
    };
    claudeFeeds.startEvents = [weakHooks] {
        if (auto wiring = weakHooks.lock())
            wiring->start();
    };
    claudeFeeds.stopEvents = [weakHooks] {
        if (auto wiring = weakHooks.lock())
            wiring->stop();
    };
    claudeFeeds.reconcile = [weakClaude] {
        if (auto source = weakClaude.lock())
            source->reconcileNow();
    };
    claudeFeeds.wake = [weakClaude, weakHooks] { return wakeClaude(weakClaude, weakHooks); };
    claudeFeeds.preferencesChanged = [weakHooks] {
        if (auto wiring = weakHooks.lock())
            wiring->refresh();
    };
    claudeFeeds.shutdown = [weakClaude] { return shutdownClaude(weakClaude); };
    assembly.feeds.push_back(std::move(claudeFeeds));
    return assembly;
}

} // namespace taskrack
