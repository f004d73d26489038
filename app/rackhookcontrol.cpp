#include "app/rackhookcontrol.h"

#include "sources/claude/claudeenhancedstatuscontroller.h"

namespace taskrack {

ClaudeHookControl::ClaudeHookControl(ClaudeEnhancedStatusController &controller, QObject *parent)
    : RackHookControlling(parent), m_controller(controller)
{
    connect(&m_controller, &ClaudeEnhancedStatusController::changed, this,
            &RackHookControlling::changed);
}

QString ClaudeHookControl::title() const
{
    return QStringLiteral("Live Claude status");
}

QString ClaudeHookControl::statusSummary() const
{
    return m_controller.statusSummary();
}

bool ClaudeHookControl::isEnabled() const
{
    return m_controller.isEnabled();
}

bool ClaudeHookControl::isBusy() const
{
    return m_controller.isBusy();
}

QCoro::Task<void> ClaudeHookControl::setEnabled(bool enabled)
{
    auto work = enabled ? m_controller.enable() : m_controller.disable();
    co_await work;
}

CodexHookControl::CodexHookControl(CodexHookIntegration integration,
                                   std::function<void()> changedHooks, QObject *parent)
    : RackHookControlling(parent), m_integration(std::move(integration)),
      m_changedHooks(std::move(changedHooks))
{
}

QString CodexHookControl::title() const
{
    return QStringLiteral("Live Codex status");
}

QString CodexHookControl::statusSummary() const
{
    if (!m_error.isEmpty())
        return m_error;
    try {
        return CodexHookIntegration::summary(m_integration.status());
    } catch (const TaskrackError &error) {
        return error.description();
    }
}

bool CodexHookControl::isEnabled() const
{
    try {
        return m_integration.status() == CodexHookInstallationStatus::enabled;
    } catch (const TaskrackError &) {
        return false;
    }
}

QCoro::Task<void> CodexHookControl::setEnabled(bool enabled)
{
    // Small files only: done here, on the caller's thread.
    m_error.clear();
    try {
        if (enabled)
            m_integration.enable();
        else
            m_integration.disable();
    } catch (const TaskrackError &error) {
        m_error = error.description();
    }
    if (m_changedHooks)
        m_changedHooks();
    emit changed();
    co_return;
}

} // namespace taskrack
