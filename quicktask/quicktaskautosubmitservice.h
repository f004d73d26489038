#pragma once

// Presses Return for the person once a task opened prefilled in the provider's application, and
// only when it can prove that the genuine application's focused text field holds exactly the
// prompt; for a staged Codex task, only after the staged settings were handed to the desktop
// application and its rollout shows them applied. Every missing proof leaves the task prefilled.

#include "core/clock.h"
#include "platform/focusedcomposerreader.h"
#include "platform/processkeyposter.h"
#include "platform/workspacerouting.h"
#include "quicktask/codexdesktopipcclient.h"
#include "quicktask/quicktaskstaging.h"

#include <QObject>
#include <functional>
#include <memory>

namespace taskrack {

struct QuickTaskFocusedComposer
{
    QString bundleIdentifier;
    QString role;
    QString value;
    bool isEnabled = false;

    bool operator==(const QuickTaskFocusedComposer &) const = default;
};

// The composer holds exactly the prompt (line ends and surrounding blanks aside), in an enabled
// text field of the provider's application.
bool quickTaskComposerMatches(const QuickTaskFocusedComposer &composer, RackProvider provider,
                              const QString &prompt);

class QuickTaskAutoSubmitService : public QObject, public QuickTaskAutoSubmitting
{
    Q_OBJECT

public:
    struct Dependencies
    {
        FocusedComposerReader &reader;
        ProcessKeyPoster &keyPoster;
        const WorkspaceRouting &workspace;
        Clock &clock;
        // Shared with the worker thread that runs the blocking exchange, so that a service
        // destroyed meanwhile leaves it nothing dangling.
        std::shared_ptr<const QuickTaskCodexDesktopSettingsUpdating> settingsUpdater;
        std::function<bool(const QuickTaskCodexSubmissionContext &)> rolloutMatches;
        std::chrono::milliseconds pollInterval{250};
        std::chrono::milliseconds submissionTimeout{30000};
    };

    explicit QuickTaskAutoSubmitService(Dependencies dependencies, QObject *parent = nullptr);

    QCoro::Task<void> submit(QString prompt, RackProvider provider,
                             std::optional<QuickTaskCodexSubmissionContext> context,
                             bool autoSend) override;
    void cancel() override;

    // One look at the front application; true when Return was posted to it.
    bool pressReturnIfVerified(const QString &prompt, RackProvider provider);

private:
    QCoro::Task<void> run(quint64 generation, QString prompt, RackProvider provider,
                          std::optional<QuickTaskCodexSubmissionContext> context, bool autoSend);

    Dependencies m_d;
    quint64 m_generation = 0;
};

} // namespace taskrack
