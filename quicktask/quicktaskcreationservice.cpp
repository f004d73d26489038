#include "quicktask/quicktaskcreationservice.h"

#include "core/rackthreadopener.h"
#include "quicktask/quicktasklaunchhandoff.h"
#include "quicktask/quicktasklog.h"
#include "quicktask/quicktaskproject.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QUuid>

namespace taskrack {

namespace {

using Kind = QuickTaskCreationError::Kind;

std::optional<QUuid> parsedUuid(const QString &text)
{
    const QUuid uuid = QUuid::fromString(text);
    if (uuid.isNull() ||
        uuid.toString(QUuid::WithoutBraces).compare(text, Qt::CaseInsensitive) != 0)
        return std::nullopt;
    return uuid;
}

// A prompt must arrive as one argument, byte for byte.
void checkArgument(const QString &argument, RackProvider provider)
{
    if (argument.contains(QChar(0)) || argument.toUtf8().size() + 1 > quickTaskMaximumArgumentBytes)
        throw QuickTaskCreationError(Kind::promptTooLong, provider);
}

QUrl link(const QString &scheme, const QString &host, const QString &path,
          const QList<std::pair<QString, QString>> &items)
{
    QUrl url;
    url.setScheme(scheme);
    url.setHost(host);
    if (!path.isEmpty())
        url.setPath(path);
    QStringList parts;
    for (const auto &[key, value] : items)
        parts << QString::fromLatin1(QUrl::toPercentEncoding(key) + '=' +
                                     QUrl::toPercentEncoding(value));
    url.setQuery(parts.join(QLatin1Char('&')), QUrl::StrictMode);
    return url;
}

} // namespace

QStringList quickTaskTerminalArgv(RackProvider provider, const QString &program,
                                  const std::optional<QString> &prompt,
                                  const std::optional<QuickTaskCodexConfiguration> &configuration)
{
    QStringList argv{program};
    if (provider == RackProvider::codex && configuration) {
        argv << QStringLiteral("--model") << configuration->model;
        if (configuration->reasoningEffort) {
            // The value is read as TOML: only a plain word may go in.
            static const QRegularExpression word(QStringLiteral("^[A-Za-z0-9_-]+$"));
            if (!word.match(*configuration->reasoningEffort).hasMatch())
                throw QuickTaskCodexCatalogError(
                    QuickTaskCodexCatalogError::Kind::unsupportedEffort, configuration->model,
                    *configuration->reasoningEffort);
            argv << QStringLiteral("-c")
                 << QStringLiteral("model_reasoning_effort=\"%1\"")
                        .arg(*configuration->reasoningEffort);
        }
    }
    if (!prompt)
        return argv;
    QString message = *prompt;
    // Claude Code matches its subcommands even after "--" ("doctor", "purge"): a prompt without
    // white space gets one trailing blank, which the model does not mind.
    if (provider == RackProvider::claudeDesktop &&
        !message.contains(QRegularExpression(QStringLiteral("\\s"))))
        message += QLatin1Char(' ');
    checkArgument(message, provider);
    argv << QStringLiteral("--") << message;
    return argv;
}

QStringList quickTaskResumeArgv(const QString &program, const QString &threadIdentifier,
                                const std::optional<QString> &prompt)
{
    if (!parsedUuid(threadIdentifier))
        throw QuickTaskCreationError(Kind::invalidDeepLink, RackProvider::codex);
    QStringList argv{program, QStringLiteral("resume"), QStringLiteral("--"), threadIdentifier};
    if (prompt) {
        checkArgument(*prompt, RackProvider::codex);
        argv << *prompt;
    }
    return argv;
}

QUrl quickTaskNewTaskLink(RackProvider provider, const QString &prompt, const QString &folder)
{
    if (provider == RackProvider::codex)
        return link(QStringLiteral("codex"), QStringLiteral("new"), {},
                    {{QStringLiteral("prompt"), prompt}, {QStringLiteral("path"), folder}});
    return link(QStringLiteral("claude"), QStringLiteral("code"), QStringLiteral("/new"),
                {{QStringLiteral("q"), prompt}, {QStringLiteral("folder"), folder}});
}

QUrl quickTaskStagedThreadLink(const QString &threadIdentifier, const QString &prompt)
{
    if (!parsedUuid(threadIdentifier))
        return {};
    return link(QStringLiteral("codex"), QStringLiteral("threads"),
                QLatin1Char('/') + threadIdentifier, {{QStringLiteral("prompt"), prompt}});
}

QUrl quickTaskDotThreadLink(const QString &threadIdentifier, const QString &prompt)
{
    if (!parsedUuid(threadIdentifier))
        return {};
    return link(QStringLiteral("codex"), QStringLiteral("threads"),
                QLatin1Char('/') + threadIdentifier.toLower(),
                {{QStringLiteral("hostId"), QStringLiteral("durable")},
                 {QStringLiteral("prompt"), prompt}});
}

QuickTaskCreationService::QuickTaskCreationService(Dependencies dependencies)
    : m_d(std::move(dependencies))
{
}

bool QuickTaskCreationService::usesDeepLink(RackProvider provider) const
{
    return m_d.applications && (!m_d.terminal || m_d.applications->hasRegisteredHandler(provider));
}

bool QuickTaskCreationService::sendsPrompt() const
{
    return !m_d.clipboard || (m_d.autoSendEnabled && m_d.autoSendEnabled());
}

QString QuickTaskCreationService::requireCommand(RackProvider provider) const
{
    const std::optional<QString> program =
        m_d.locateCommand ? m_d.locateCommand(provider) : std::nullopt;
    if (!program)
        throw RackProviderApplicationError(
            RackProviderApplicationError::Kind::applicationNotInstalled, provider);
    return *program;
}

void QuickTaskCreationService::prepareWorkingDirectory(const QString &folder) const
{
    const QString path = normalizedProjectPath(folder);
    if (path == normalizedProjectPath(m_d.scratchDirectory)) {
        QDir().mkpath(path);
        if (QFileInfo(path).isDir())
            return;
    } else if (!path.isEmpty() && QFileInfo(path).isDir()) {
        return;
    }
    throw QuickTaskCreationError(Kind::missingWorkingDirectory, RackProvider::codex,
                                 QDir(path).dirName());
}

QCoro::Task<QuickTaskCreationOutcome> QuickTaskCreationService::createTask(QString prompt,
                                                                           RackProvider provider,
                                                                           QString workingDirectory,
                                                                           std::stop_token stop)
{
    const QString text = prompt.trimmed();
    if (text.isEmpty())
        throw QuickTaskCreationError(Kind::emptyTask, provider);
    if (usesDeepLink(provider)) {
        auto creating = createByDeepLink(text, provider, workingDirectory, stop);
        co_return co_await creating;
    }
    auto creating = createInTerminal(text, provider, workingDirectory, stop);
    co_return co_await creating;
}

QCoro::Task<std::optional<QuickTaskCodexConfiguration>>
QuickTaskCreationService::validatedConfiguration(RackProvider provider, std::stop_token stop)
{
    std::optional<QuickTaskCodexConfiguration> configuration;
    if (provider == RackProvider::codex && m_d.codexConfiguration)
        configuration = m_d.codexConfiguration();
    if (configuration && m_d.validateCodexConfiguration) {
        // Settings the person chose are never replaced silently: a refusal stops the task.
        auto validating = m_d.validateCodexConfiguration(*configuration);
        co_await validating;
    }
    throwIfCancelled(stop);
    co_return configuration;
}

QCoro::Task<QuickTaskCreationOutcome>
QuickTaskCreationService::createInTerminal(QString prompt, RackProvider provider, QString folder,
                                           std::stop_token stop)
{
    // Cheap refusals first, the installed tool before the model catalog.
    const QString program = requireCommand(provider);
    const bool send = sendsPrompt();
    if (send)
        quickTaskTerminalArgv(provider, program, prompt, std::nullopt);
    auto validating = validatedConfiguration(provider, stop);
    const std::optional<QuickTaskCodexConfiguration> configuration = co_await validating;
    prepareWorkingDirectory(folder);
    const QString path = normalizedProjectPath(folder);
    const QStringList argv = quickTaskTerminalArgv(
        provider, program, send ? std::optional(prompt) : std::nullopt, configuration);
    auto launching = m_d.terminal->launch({argv, path, prompt}, stop);
    co_await launching;
    if (!send)
        m_d.clipboard->put(prompt);
    co_return QuickTaskCreationOutcome{!send};
}

QCoro::Task<void> QuickTaskCreationService::openImmediately(QUrl url, QString prompt,
                                                            RackProvider provider,
                                                            bool autoSendAllowed)
{
    auto opening = m_d.applications->open(url, provider);
    co_await opening;
    auto activating = m_d.applications->activate(provider);
    co_await activating;
    if (autoSendAllowed && m_d.autoSendEnabled && m_d.autoSendEnabled()) {
        auto submitting = m_d.autoSubmitter.submit(prompt, provider, std::nullopt, true);
        co_await submitting;
    }
}

QCoro::Task<QuickTaskCreationOutcome>
QuickTaskCreationService::createByDeepLink(QString prompt, RackProvider provider, QString folder,
                                           std::stop_token stop)
{
    auto validating = validatedConfiguration(provider, stop);
    const std::optional<QuickTaskCodexConfiguration> configuration = co_await validating;
    prepareWorkingDirectory(folder);
    const QString path = normalizedProjectPath(folder);
    const QUrl immediate = quickTaskNewTaskLink(provider, prompt, path);
    if (!immediate.isValid())
        throw QuickTaskCreationError(Kind::invalidDeepLink, provider);

    bool staged = false;
    if (configuration) {
        const std::optional<QuickTaskCodexConfiguration> own =
            m_d.codexUserConfiguration ? m_d.codexUserConfiguration(path) : std::nullopt;
        staged = !(own && own->model == configuration->model &&
                   (!configuration->reasoningEffort ||
                    configuration->reasoningEffort == own->reasoningEffort));
        if (!staged)
            qCInfo(lcQuickTask)
                << "Quick Task model and reasoning match Codex's defaults; using the "
                   "immediate deep link";
    }
    if (!staged) {
        auto opening = openImmediately(immediate, prompt, provider, true);
        co_await opening;
        co_return QuickTaskCreationOutcome{};
    }

    std::optional<QuickTaskCodexSubmissionContext> context;
    std::exception_ptr stagingFailure;
    try {
        auto staging = m_d.codexStarter.stage(prompt, path, *configuration, stop);
        context = co_await staging;
    } catch (...) {
        stagingFailure = std::current_exception();
    }
    if (stagingFailure) {
        if (isCancellation(stagingFailure))
            std::rethrow_exception(stagingFailure);
        qCInfo(lcQuickTask)
            << "Configured Codex Quick Task staging unavailable; opening review-first "
               "fallback [category: app-server-unavailable]";
        // Opens prefilled under Codex's defaults: never sent under settings not applied.
        auto opening = openImmediately(immediate, prompt, provider, false);
        co_await opening;
        co_return QuickTaskCreationOutcome{};
    }
    if (stop.stop_requested()) {
        m_d.codexStarter.release(*context);
        throw OperationCancelled();
    }
    const QUrl stagedLink = quickTaskStagedThreadLink(context->threadIdentifier, prompt);
    if (!stagedLink.isValid()) {
        m_d.codexStarter.release(*context);
        throw QuickTaskCreationError(Kind::invalidDeepLink, RackProvider::codex);
    }
    auto opening = m_d.applications->open(stagedLink, RackProvider::codex);
    co_await opening;
    auto activating = m_d.applications->activate(RackProvider::codex);
    co_await activating;
    // Runs with auto-send off too: it hands over the staged settings.
    auto submitting = m_d.autoSubmitter.submit(prompt, RackProvider::codex, context,
                                               m_d.autoSendEnabled && m_d.autoSendEnabled());
    co_await submitting;
    co_return QuickTaskCreationOutcome{};
}

QCoro::Task<QuickTaskCreationOutcome>
QuickTaskCreationService::continueThread(QString prompt, QString threadIdentifier,
                                         std::stop_token stop)
{
    const QString text = prompt.trimmed();
    if (text.isEmpty())
        throw QuickTaskCreationError(Kind::emptyTask, RackProvider::codex);
    if (usesDeepLink(RackProvider::codex)) {
        const QUrl url = quickTaskDotThreadLink(threadIdentifier, text);
        if (!url.isValid())
            throw QuickTaskCreationError(Kind::invalidDeepLink, RackProvider::codex);
        auto opening = openImmediately(url, text, RackProvider::codex, true);
        co_await opening;
        co_return QuickTaskCreationOutcome{};
    }
    const QString program = requireCommand(RackProvider::codex);
    const bool send = sendsPrompt();
    const QStringList argv =
        quickTaskResumeArgv(program, threadIdentifier, send ? std::optional(text) : std::nullopt);
    auto launching = m_d.terminal->launch({argv, QDir::homePath(), text}, stop);
    co_await launching;
    if (!send)
        m_d.clipboard->put(text);
    co_return QuickTaskCreationOutcome{!send};
}

} // namespace taskrack
