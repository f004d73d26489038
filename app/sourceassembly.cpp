#include "app/sourceassembly.h"

#include <QCoreApplication>

#include "app/claudehookwiring.h"
#include "app/codexhookwiring.h"
#include "platform/linux/inotifyfilewatch.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/linux/pidfdprocessexitwatch.h"
#include "sources/claude/claudedesktopthreadsource.h"
#include "sources/codex/codexappserverclient.h"
#include "sources/codex/codexappserverthreadsource.h"
#include "sources/codex/codexcloudstatuswiring.h"
#include "sources/codex/codexdesktopthreadsource.h"
#include "sources/codex/codexthreadrepository.h"
#include "sources/codex/sqlitethreadsource.h"

namespace taskrack {

namespace {

std::unique_ptr<FileWatch> inotifyWatch()
{
    auto watch = std::make_unique<InotifyFileWatch>();
    if (!watch->isValid())
        return {};
    return watch;
}

// The app-server (the `codex` found on PATH) first, the state database's list as its fallback,
// rollout activity on top, and the database and rollouts watched. `homeDir` is where project
// identities look for the user's home (empty: the real one).
std::shared_ptr<CodexThreadRepository> assembleCodex(const QString &codexHome,
                                                     const QString &homeDir, Clock &clock,
                                                     const FileSystem &fileSystem,
                                                     Preferences &preferences)
{
    CodexAppServerOptions options;
    options.clock = &clock;
    options.homeDirectory = homeDir;
    options.fileSystem = &fileSystem;
    auto appServer = std::make_shared<CodexAppServerThreadSource>(
        std::make_unique<CodexAppServerClient>(std::move(options)));
    const QString database = SQLiteThreadSource::databasePathIn(codexHome);

    CodexThreadRepository::Parts parts;
    parts.liveSource = appServer;
    parts.appServerSource = appServer;
    parts.fallbackSource = std::make_shared<SQLiteThreadSource>(fileSystem, codexHome, homeDir);
    parts.activityOverlay = CodexActivityOverlaying::forCodexHome(codexHome, fileSystem);
    parts.fileWatch = inotifyWatch();
    parts.databaseFiles = {database, database + QStringLiteral("-wal")};
    parts.clock = &clock;
    parts.livePatience = CodexThreadRepository::defaultLivePatience;
    // The desktop app's cached cloud tasks; the cloud itself is asked only once a catalog exists.
    parts.cloudStatus = makeCodexCloudStatusProvider(codexHome, fileSystem, clock, preferences);
    auto desktop =
        CodexDesktopThreadSource::forCodexHome(codexHome, fileSystem, clock, parts.cloudStatus);
    parts.desktopFiles = desktop->files();
    parts.desktopStatusInvalidations = desktop->statusInvalidations();
    parts.desktopSource = desktop;
    return CodexThreadRepository::create(std::move(parts));
}

} // namespace

std::shared_ptr<ClaudeDesktopThreadSource>
SourceAssembly::claudeSource(const ClaudeSourcePaths &paths, Clock &clock,
                             const FileSystem &fileSystem)
{
    ClaudeDesktopThreadSource::Configuration configuration;
    configuration.paths = paths;
    configuration.clock = &clock;
    configuration.fileSystem = &fileSystem;
    configuration.fileWatchFactory = [] { return std::make_unique<InotifyFileWatch>(); };
    configuration.processExitWatchFactory = [] {
        return std::make_unique<PidfdProcessExitWatch>();
    };
    return std::make_shared<ClaudeDesktopThreadSource>(std::move(configuration));
}

SourceAssembly SourceAssembly::build(const ProviderPaths &paths, Preferences &preferences,
                                     Clock &clock)
{
    // Stateless, and shared by every source and by work that may outlive the assembly.
    static LinuxFileSystem fileSystem;
    SourceAssembly assembly;
    auto codex = assembleCodex(paths.codexHome, paths.home, clock, fileSystem, preferences);
    assembly.sources.push_back(codex);
    // Codex's hooks, when the person enabled them, say at once when a task needs input.
    assembly.eventFeeds.push_back(std::make_shared<CodexHookWiring>(
        QString(), QCoreApplication::applicationDirPath() + QStringLiteral("/taskrack-hook-bridge"),
        codex));
    // Claude: desktop manifests and Claude Code sessions found in the transcript folders.
    auto claude = claudeSource(ClaudeSourcePaths::forHome(paths.home), clock, fileSystem);
    assembly.sources.push_back(claude);
    // Hook events, when live Claude status is enabled, reach the source through the bus.
    auto hooks = std::make_shared<ClaudeHookWiring>(
        preferences, clock, fileSystem, paths.claudeHome + QStringLiteral("/settings.json"),
        QCoreApplication::applicationDirPath() + QStringLiteral("/taskrack-hook-bridge"), claude);
    assembly.eventFeeds.push_back(hooks);
    assembly.claudeHooks = hooks;
    return assembly;
}

} // namespace taskrack
