#pragma once

#include "platform/processexitwatch.h"

#include <QHash>
#include <QObject>
#include <QSocketNotifier>
#include <memory>

namespace taskrack {

// ProcessExitWatch over process file descriptors (pidfd_open, Linux 5.3 and later): each one
// becomes readable when its process ends, and a socket notifier hears it on the event loop. A
// descriptor pins the process it was opened for, so a recycled pid never fools it.
class PidfdProcessExitWatch : public ProcessExitWatch
{
public:
    PidfdProcessExitWatch() = default;
    ~PidfdProcessExitWatch() override;

    void setHandler(Handler handler) override { m_handler = std::move(handler); }
    void setProcesses(const QSet<qint64> &pids) override;

private:
    struct Watched
    {
        int fd = -1;
        std::unique_ptr<QSocketNotifier> notifier;
    };
    void forget(qint64 pid);

    Handler m_handler;
    // Carries the queued notices of processes found gone; they die with the watch.
    QObject m_context;
    QHash<qint64, std::shared_ptr<Watched>> m_watched;
};

} // namespace taskrack
