#include "core/coalescer.h"

#include "core/threadanchor.h"

#include <QMetaObject>
#include <QThread>
#include <cmath>

namespace taskrack {

Coalescer::Coalescer(Clock &clock, std::chrono::milliseconds window, Pass pass)
    : m_clock(clock), m_window(window), m_pass(std::move(pass)), m_home(threadAnchor())
{
}

Coalescer::~Coalescer()
{
    ++m_generation;
}

void Coalescer::request()
{
    if (m_owed)
        return;
    const double window = std::chrono::duration<double>(m_window).count();
    const double now = m_clock.uptime();
    m_owed = true;
    const quint64 generation = ++m_generation;
    if (m_lastPassAt && now - *m_lastPassAt < window) {
        runAfter(*m_lastPassAt + window - now, generation);
        return;
    }
    // Posted, not called: the notices that arrived together with this one (one read of the
    // watch) are still taken by this pass, and the caller is never re-entered.
    const std::weak_ptr<bool> alive = m_alive;
    QMetaObject::invokeMethod(
        m_home,
        [this, alive, generation] {
            if (!alive.expired() && generation == m_generation && m_owed)
                run();
        },
        Qt::QueuedConnection);
}

void Coalescer::cancel()
{
    m_owed = false;
    ++m_generation;
}

void Coalescer::run()
{
    m_lastPassAt = m_clock.uptime();
    m_owed = false;
    m_pass();
}

QCoro::Task<void> Coalescer::runAfter(double seconds, quint64 generation)
{
    const std::weak_ptr<bool> alive = m_alive;
    QObject *home = m_home;
    co_await m_clock.sleep(std::chrono::milliseconds(qint64(std::ceil(seconds * 1000.0 - 1e-6))));
    co_await ThreadHop{home};
    if (alive.expired() || generation != m_generation || !m_owed)
        co_return;
    run();
}

} // namespace taskrack
