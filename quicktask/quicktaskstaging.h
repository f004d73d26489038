#pragma once

// The seams of a Codex task that carries its own model settings into the desktop application:
// staging the thread through the app-server first, and sending the prefilled composer. Until
// those exist on this platform, the stand-ins below make every such task take the review-first
// path: it opens prefilled under Codex's defaults and nothing is sent unproven.

#include "core/rackthread.h"
#include "quicktask/quicktaskcodexcatalog.h"

#include <QCoro/QCoroTask>
#include <optional>

namespace taskrack {

struct QuickTaskCodexSubmissionContext
{
    QString threadIdentifier;
    QuickTaskCodexConfiguration configuration;

    bool operator==(const QuickTaskCodexSubmissionContext &) const = default;
};

class QuickTaskCodexStarting
{
public:
    virtual ~QuickTaskCodexStarting() = default;
    // Keeps a client ready so that a later stage() doesn't pay for a process launch.
    virtual void warmSpareClient() = 0;
    virtual QCoro::Task<QuickTaskCodexSubmissionContext>
    stage(QString prompt, QString workingDirectory, QuickTaskCodexConfiguration configuration) = 0;
    virtual void release(QString threadIdentifier) = 0;
};

class QuickTaskAutoSubmitting
{
public:
    virtual ~QuickTaskAutoSubmitting() = default;
    virtual QCoro::Task<void> submit(QString prompt, RackProvider provider,
                                     std::optional<QuickTaskCodexSubmissionContext> context,
                                     bool autoSend) = 0;
};

// Staging is not available: stage() throws, so the creation falls back to review-first.
class QuickTaskUnavailableCodexStarter : public QuickTaskCodexStarting
{
public:
    void warmSpareClient() override {}
    QCoro::Task<QuickTaskCodexSubmissionContext> stage(QString, QString,
                                                       QuickTaskCodexConfiguration) override;
    void release(QString) override {}
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
