#pragma once

// Runs a pass for the first request after a quiet period at once, and folds every request that
// follows within the window into at most one more pass at the window's end. A stream of
// requests thus costs one pass per window, a lone request costs no waiting at all, and no
// request is ever left without a pass that starts after it.
//
// Threading: lives on the thread that creates it; request() and cancel() come from there, and
// passes run there (a clock that wakes sleepers elsewhere is hopped back).

#include "core/clock.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QObject;

namespace taskrack {

class Coalescer
{
public:
    using Pass = std::function<void()>;

    Coalescer(Clock &clock, std::chrono::milliseconds window, Pass pass);
    ~Coalescer();
    Coalescer(const Coalescer &) = delete;
    Coalescer &operator=(const Coalescer &) = delete;

    // Asks for a pass that starts no earlier than now: after a quiet window, as soon as the
    // thread's event loop comes round; otherwise when the window of the last pass ends. A
    // request made during a pass is owed one more pass at the end of the window.
    void request();
    // Drops the owed pass; the next request after the window runs at once again.
    void cancel();
    bool isPassOwed() const { return m_owed; }
    std::chrono::milliseconds window() const { return m_window; }

private:
    void run();
    QCoro::Task<void> runAfter(double seconds, quint64 generation);

    Clock &m_clock;
    const std::chrono::milliseconds m_window;
    Pass m_pass;
    QObject *m_home;
    std::optional<double> m_lastPassAt;
    bool m_owed = false;
    quint64 m_generation = 0;
    // Lets a timer that outlives the coalescer find out without touching it.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

} // namespace taskrack
