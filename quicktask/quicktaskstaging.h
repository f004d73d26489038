#pragma once

// The seams of a Codex task that carries its own model settings into the desktop application:
// staging the thread through the app-server first, and sending the prefilled composer. Until
// those exist on this platform, the stand-ins below make every such task take the review-first
// path: it opens prefilled under Codex's defaults and nothing is sent unproven.

#include "core/rackthread.h"
#include "quicktask/quicktaskcodexcatalog.h"

#include <QCoro/QCoroTask>
#include <optional>
#include <stop_token>

namespace taskrack {

// A staged thread as the desktop application is to open it, and what proves later that the
// application applied the staged settings: only rollout lines after `rolloutOffset` count.
struct QuickTaskCodexSubmissionContext
{
    QString threadIdentifier;
    QString rolloutPath;
    quint64 rolloutOffset = 0;
    QString workingDirectory;
    QuickTaskCodexConfiguration configuration;

    bool operator==(const QuickTaskCodexSubmissionContext &) const = default;
};

class QuickTaskCodexStarting
{
public:
    virtual ~QuickTaskCodexStarting() = default;
    // Keeps a client ready so that a later stage() doesn't pay for a process launch.
    virtual void warm() = 0;
    // Throws CodexAppServerError, or OperationCancelled once `stop` is requested; a staging that
    // fails leaves no thread behind that shows the prompt.
    virtual QCoro::Task<QuickTaskCodexSubmissionContext>
    stage(QString prompt, QString workingDirectory, QuickTaskCodexConfiguration configuration,
          std::stop_token stop = {}) = 0;
    // Removes a staged thread that will not be opened after all; in the background.
    virtual void release(QuickTaskCodexSubmissionContext context) = 0;
};

class QuickTaskAutoSubmitting
{
public:
    virtual ~QuickTaskAutoSubmitting() = default;
    // Starts handing over the settings and, when every proof holds, sending; returns at once.
    // A newer submission ends the older one.
    virtual QCoro::Task<void> submit(QString prompt, RackProvider provider,
                                     std::optional<QuickTaskCodexSubmissionContext> context,
                                     bool autoSend) = 0;
    virtual void cancel() {}
};

// Staging is not available: stage() throws, so the creation falls back to review-first.
class QuickTaskUnavailableCodexStarter : public QuickTaskCodexStarting
{
public:
    void warm() override {}
    QCoro::Task<QuickTaskCodexSubmissionContext>
        stage(QString, QString, QuickTaskCodexConfiguration, std::stop_token) override;
    void release(QuickTaskCodexSubmissionContext) override {}
};

// Sending is not available: the task stays prefilled for the person to send.
class QuickTaskPrefillOnlyAutoSubmitter : public QuickTaskAutoSubmitting
{
public:
    QCoro::Task<void> submit(QString, RackProvider, std::optional<QuickTaskCodexSubmissionContext>,
                             bool) override
    {
        co_return;
    }
};

// Where a prompt waits to be pasted when the provider opens without it.
class QuickTaskClipboard
{
public:
    virtual ~QuickTaskClipboard() = default;
    virtual void put(const QString &text) = 0;
};

// The desktop clipboard (and the X11 primary selection). Needs a QGuiApplication; the process
// keeps owning the text for as long as it runs.
class QuickTaskSystemClipboard : public QuickTaskClipboard
{
public:
    void put(const QString &text) override;
};

} // namespace taskrack
