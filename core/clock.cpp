#include "core/clock.h"

#include <QCoroTimer>

namespace taskrack {

SystemClock::SystemClock()
{
    m_started.start();
}

QDateTime SystemClock::now() const
{
    return QDateTime::currentDateTimeUtc();
}

double SystemClock::uptime() const
{
    return double(m_started.nsecsElapsed()) / 1e9;
}

QCoro::Task<void> SystemClock::sleep(std::chrono::milliseconds duration)
{
    co_await QCoro::sleepFor(duration);
}

SystemClock &SystemClock::shared()
{
    static SystemClock clock;
    return clock;
}

} // namespace taskrack
