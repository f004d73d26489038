#include "core/clock.h"

#include <QCoroTimer>
#include <time.h>

namespace taskrack {

SystemClock::SystemClock() = default;

QDateTime SystemClock::now() const
{
    return QDateTime::currentDateTimeUtc();
}

double SystemClock::uptime() const
{
    // CLOCK_BOOTTIME keeps counting while the machine sleeps: a clock that stopped in suspend
    // would keep a stale "in progress" alive across a night.
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
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
