#pragma once

// The one way the application ends. The tray menu, the bus's Quit, `taskrack quit`, SIGINT and
// SIGTERM and a session's logout all arrive here; the first request starts the shutdown and
// every later one only waits for it. The exit code is 0 once the sources have shut down, and 1
// when they have not after ten seconds.

#include <QCoro/QCoroTask>
#include <QObject>
#include <chrono>
#include <functional>

namespace taskrack {

class Clock;

class RackTermination : public QObject
{
    Q_OBJECT
public:
    static constexpr std::chrono::seconds timeout{10};
    static inline const QString timedOutText = QStringLiteral("Taskrack shutdown timed out");

    RackTermination(Clock &clock, std::function<QCoro::Task<void>()> shutdown,
                    QObject *parent = nullptr);

    // Starts the shutdown once; a request while it runs or after it finished does nothing more.
    void request();
    bool isRequested() const { return m_requested; }
    bool isFinished() const { return m_exitCode.has_value(); }
    std::optional<int> exitCode() const { return m_exitCode; }

signals:
    void finished(int exitCode);

private:
    QCoro::Task<void> runShutdown();
    QCoro::Task<void> runTimeout();
    void finish(int exitCode);

    Clock &m_clock;
    std::function<QCoro::Task<void>()> m_shutdown;
    bool m_requested = false;
    std::optional<int> m_exitCode;
};

} // namespace taskrack
