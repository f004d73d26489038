#include "testing/fakeclock.h"

namespace taskrack::testing {

FakeClock::FakeClock(QDateTime start) : m_start(std::move(start)) {}

QCoro::Task<void> FakeClock::sleep(std::chrono::milliseconds duration)
{
    struct Sleeper
    {
        FakeClock *clock;
        double deadline;
        bool await_ready() const { return deadline <= clock->m_uptime; }
        void await_suspend(std::coroutine_handle<> handle)
        {
            clock->m_sleepers.emplace(deadline, handle);
        }
        void await_resume() const {}
    };
    co_await Sleeper{this, m_uptime + double(duration.count()) / 1000.0};
}

void FakeClock::advance(std::chrono::milliseconds duration)
{
    const double target = m_uptime + double(duration.count()) / 1000.0;
    while (!m_sleepers.empty() && m_sleepers.begin()->first <= target) {
        auto [deadline, handle] = *m_sleepers.begin();
        m_sleepers.erase(m_sleepers.begin());
        m_uptime = std::max(m_uptime, deadline);
        handle.resume();
    }
    m_uptime = target;
}

} // namespace taskrack::testing
