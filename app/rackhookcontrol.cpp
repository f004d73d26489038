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

} // namespace taskrack
