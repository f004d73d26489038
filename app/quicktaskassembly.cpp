#include "app/quicktaskassembly.h"

#include "core/rackstore.h"
#include "platform/preferences.h"
#include "quicktask/quicktaskcodexrolloutverifier.h"
#include "sources/codex/codexappserverclient.h"

#include <QCoreApplication>
#include <QStandardPaths>

namespace taskrack {

QuickTaskAssembly::~QuickTaskAssembly()
{
    setProjectPathFileSystem(nullptr);
}

QuickTaskAssembly::QuickTaskAssembly(Options options)
    : m_options(std::move(options)), m_catalog(loadCodexModels),
      m_handoff(m_launcher,
                m_options.helperPath.isEmpty()
                    ? QCoreApplication::applicationDirPath() + QStringLiteral("/taskrack-launch")
                    : m_options.helperPath,
                m_options.runtimeDirectory.isEmpty() ? qEnvironmentVariable("XDG_RUNTIME_DIR")
                                                     : m_options.runtimeDirectory),
      m_starter({.makeClient =
                     [this] {
                         CodexAppServerClient::Options options;
                         options.fileSystem = &m_fileSystem;
                         return std::make_unique<CodexAppServerClient>(options);
                     },
                 // A staged thread is only worth its child where a genuine desktop application
                 // opens it; none exists on Linux today.
                 .stagingPossible =
                     [this] { return m_applications.hasRegisteredHandler(RackProvider::codex); },
                 .fileSystem = m_fileSystem}),
      m_paths(ProviderPaths::resolve(m_options.homeOverride)),
      m_submitter({.reader = m_composerReader,
                   .keyPoster = m_keyPoster,
                   .workspace = m_workspace,
                   .clock = SystemClock::shared(),
                   .settingsUpdater =
                       std::make_shared<CodexDesktopIPCClient>(CodexDesktopIPCClient::Options{
                           .socketPath = CodexDesktopIPCClient::socketPathUnder(m_paths.home),
                           .timeoutMilliseconds = 2000,
                           .effectiveUser = {},
                           .peerUser = {}}),
                   .rolloutMatches =
                       [this](const QuickTaskCodexSubmissionContext &context) {
                           return quickTaskCodexRolloutMatches(m_fileSystem, m_paths.codexHome,
                                                               context);
                       },
                   .pollInterval = std::chrono::milliseconds(250),
                   .submissionTimeout = std::chrono::milliseconds(30000)})
{
    setProjectPathFileSystem(&m_fileSystem);
    Preferences &preferences = m_options.preferences;
    const auto fixed = m_options.codexConfiguration;
    m_service = std::make_unique<QuickTaskCreationService>(QuickTaskCreationService::Dependencies{
        .applications = &m_applications,
        .terminal = &m_handoff,
        .codexStarter = m_starter,
        .autoSubmitter = m_submitter,
        .clipboard = m_options.clipboard,
        .autoSendEnabled =
            [&preferences] { return preferences.boolValue(quickTaskAutoSendEnabledKey, false); },
        .codexConfiguration = [&preferences,
                               fixed] { return fixed ? *fixed : codexConfiguration(preferences); },
        .validateCodexConfiguration =
            [this](QuickTaskCodexConfiguration c) { return m_catalog.validate(c); },
        .codexUserConfiguration = {},
        .locateCommand = locateCommand,
        .scratchDirectory = m_options.scratchDirectory.isEmpty() ? defaultScratchDirectory()
                                                                 : m_options.scratchDirectory,
    });
}

std::unique_ptr<QuickTaskStore> QuickTaskAssembly::makeStore(const RackStore &rack, Clock &clock,
                                                             QuickTaskVoice voice,
                                                             QuickTaskCreating *creation)
{
    Preferences &preferences = m_options.preferences;
    auto store = std::make_unique<QuickTaskStore>(QuickTaskStore::Dependencies{
        .creationService = creation ? *creation : *m_service,
        .preferences = preferences,
        .clock = clock,
        // No transcriber: the panel offers typing only.
        .transcriber = voice.transcriber,
        .modelManager = voice.modelManager,
        .voicePreparationTimeout = std::chrono::seconds(480),
        .directoryExists = {},
        .hasCodexConfiguration =
            [&preferences] { return codexConfiguration(preferences).has_value(); },
        .warmCodexStarter = [this] { m_starter.warm(); },
    });
    store->projectGroups = [&rack] { return rack.projectGroups(); };
    return store;
}

QCoro::Task<void> QuickTaskAssembly::shutdown()
{
    m_submitter.cancel();
    auto stopping = m_starter.shutdown();
    co_await stopping;
}

QString QuickTaskAssembly::defaultScratchDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/taskrack/quick-tasks");
}

std::optional<QString> QuickTaskAssembly::locateCommand(RackProvider provider)
{
    // Codex where the model list finds it too, so that both speak of one installation.
    if (provider == RackProvider::codex)
        return CodexBinaryLocator::standard().locate();
    const QString claude = QStandardPaths::findExecutable(QStringLiteral("claude"));
    return claude.isEmpty() ? std::nullopt : std::optional(claude);
}

QCoro::Task<QJsonArray> QuickTaskAssembly::loadCodexModels()
{
    auto client = std::make_unique<CodexAppServerClient>();
    QJsonArray models;
    std::exception_ptr failure;
    try {
        auto listing = client->listModels();
        models = co_await listing;
    } catch (...) {
        failure = std::current_exception();
    }
    auto stopping = client->shutdown();
    co_await stopping;
    if (failure)
        std::rethrow_exception(failure);
    co_return models;
}

} // namespace taskrack
