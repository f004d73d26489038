#pragma once

#include "core/clock.h"

#include <coroutine>
#include <map>

namespace taskrack::testing {

// A clock that moves only when told. Sleepers wake, in deadline order, inside advance().
class FakeClock : public Clock
{
public:
    explicit FakeClock(QDateTime start = QDateTime::fromMSecsSinceEpoch(1'790'000'000'000,
                                                                        Qt::UTC));

    QDateTime now() const override { return m_start.addMSecs(qint64(m_uptime * 1000.0 + 0.5)); }
    double uptime() const override { return m_uptime; }
    QCoro::Task<void> sleep(std::chrono::milliseconds duration) override;

    void advance(std::chrono::milliseconds duration);
    size_t sleeperCount() const { return m_sleepers.size(); }

private:
    QDateTime m_start;
    double m_uptime = 0;
    std::multimap<double, std::coroutine_handle<>> m_sleepers;
};

} // namespace taskrack::testing
