#include "app/racktermination.h"

#include "core/clock.h"
#include "core/taskracklog.h"

#include <QPointer>

namespace taskrack {

RackTermination::RackTermination(Clock &clock, std::function<QCoro::Task<void>()> shutdown,
                                 QObject *parent)
    : QObject(parent), m_clock(clock), m_shutdown(std::move(shutdown))
{
}

void RackTermination::request()
{
    if (m_requested)
        return;
    m_requested = true;
    qCInfo(lcApp, "Taskrack terminating");
    runTimeout();
    runShutdown();
}

QCoro::Task<void> RackTermination::runShutdown()
{
    QPointer<RackTermination> self(this);
    auto shuttingDown = m_shutdown();
    co_await shuttingDown;
    if (self)
        finish(0);
}

QCoro::Task<void> RackTermination::runTimeout()
{
    QPointer<RackTermination> self(this);
    auto waiting = m_clock.sleep(timeout);
    co_await waiting;
    if (self && !m_exitCode) {
        qCWarning(lcApp, "Taskrack shutdown timed out");
        finish(1);
    }
}

void RackTermination::finish(int exitCode)
{
    if (m_exitCode)
        return;
    m_exitCode = exitCode;
    emit finished(exitCode);
}

} // namespace taskrack
