#pragma once

// Opens a prompt as a new task. Where the provider's desktop application is registered for its
// links, by a checked deep link (Codex tasks with their own model settings staged first);
// otherwise the provider's command-line tool starts in a terminal, in the project folder, with
// the validated model settings, and the prompt as its first message.
//
// Without auto-send the task is not sent: the command-line tool opens without the prompt and
// the prompt waits on the clipboard.

#include "quicktask/quicktaskcodexcatalog.h"
#include "quicktask/quicktaskcreating.h"
#include "quicktask/quicktaskstaging.h"

#include <QUrl>
#include <functional>

namespace taskrack {

class QuickTaskLaunchHandoff;
class RackProviderApplicationService;

// The largest argument the kernel passes on, its terminating NUL included.
inline constexpr qsizetype quickTaskMaximumArgumentBytes = 131072;

// The command line that starts a task in the terminal. `prompt` nothing: the tool opens empty.
// Throws QuickTaskCreationError(promptTooLong) for a prompt no command line can carry.
QStringList quickTaskTerminalArgv(RackProvider provider, const QString &program,
                                  const std::optional<QString> &prompt,
                                  const std::optional<QuickTaskCodexConfiguration> &configuration);
QStringList quickTaskResumeArgv(const QString &program, const QString &threadIdentifier,
                                const std::optional<QString> &prompt);

// The deep links; empty when they cannot be built (a thread identifier that is no UUID).
QUrl quickTaskNewTaskLink(RackProvider provider, const QString &prompt, const QString &folder);
QUrl quickTaskStagedThreadLink(const QString &threadIdentifier, const QString &prompt);
QUrl quickTaskDotThreadLink(const QString &threadIdentifier, const QString &prompt);

class QuickTaskCreationService : public QuickTaskCreating
{
public:
    struct Dependencies
    {
        // Null: no desktop applications are looked for (every task starts in a terminal).
        RackProviderApplicationService *applications = nullptr;
        // Null: no terminal route (deep links only).
        QuickTaskLaunchHandoff *terminal = nullptr;
        QuickTaskCodexStarting &codexStarter;
        QuickTaskAutoSubmitting &autoSubmitter;
        // Null: the prompt is always sent (the command line has no clipboard and is an
        // explicit request to send).
        QuickTaskClipboard *clipboard = nullptr;
        std::function<bool()> autoSendEnabled;
        std::function<std::optional<QuickTaskCodexConfiguration>()> codexConfiguration;
        std::function<QCoro::Task<void>(QuickTaskCodexConfiguration)> validateCodexConfiguration;
        // The model and effort Codex itself would use in a folder, when known.
        std::function<std::optional<QuickTaskCodexConfiguration>(QString)> codexUserConfiguration;
        // The provider's command-line tool, resolved; nothing when it is not installed.
        std::function<std::optional<QString>(RackProvider)> locateCommand;
        QString scratchDirectory;
    };

    explicit QuickTaskCreationService(Dependencies dependencies);

    QCoro::Task<QuickTaskCreationOutcome> createTask(QString prompt, RackProvider provider,
                                                     QString workingDirectory,
                                                     std::stop_token stop = {}) override;
    QCoro::Task<QuickTaskCreationOutcome> continueThread(QString prompt, QString threadIdentifier,
                                                         std::stop_token stop = {}) override;
    QString scratchDirectory() const override { return m_d.scratchDirectory; }

    // Creates the scratch folder when asked for it; any other folder must exist.
    void prepareWorkingDirectory(const QString &folder) const;

private:
    bool usesDeepLink(RackProvider provider) const;
    bool sendsPrompt() const;
    QString requireCommand(RackProvider provider) const;
    // The Codex choice for a new task, checked against the installed Codex; nothing for Claude.
    QCoro::Task<std::optional<QuickTaskCodexConfiguration>>
    validatedConfiguration(RackProvider provider, std::stop_token stop);
    QCoro::Task<QuickTaskCreationOutcome> createInTerminal(QString prompt, RackProvider provider,
                                                           QString folder, std::stop_token stop);
    QCoro::Task<QuickTaskCreationOutcome> createByDeepLink(QString prompt, RackProvider provider,
                                                           QString folder, std::stop_token stop);
    QCoro::Task<void> openImmediately(QUrl url, QString prompt, RackProvider provider,
                                      bool autoSendAllowed);

    Dependencies m_d;
};

} // namespace taskrack
