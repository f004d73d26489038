#pragma once

// Time as the logic sees it. Injected everywhere so that rules about ages, debounces and
// deadlines can be tested by moving a fake clock instead of waiting.

#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QElapsedTimer>
#include <chrono>

namespace taskrack {

class Clock
{
public:
    virtual ~Clock() = default;
    // Wall-clock time, for what providers report and what is persisted.
    virtual QDateTime now() const = 0;
    // Monotonic seconds (counting through sleep), for durations that must survive clock changes.
    virtual double uptime() const = 0;
    // Completes on the calling thread once `duration` of uptime has passed.
    virtual QCoro::Task<void> sleep(std::chrono::milliseconds duration) = 0;
};

class SystemClock : public Clock
{
public:
    SystemClock();
    QDateTime now() const override;
    double uptime() const override;
    QCoro::Task<void> sleep(std::chrono::milliseconds duration) override;

    static SystemClock &shared();
};

} // namespace taskrack
