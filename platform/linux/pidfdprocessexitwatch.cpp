#include "platform/linux/pidfdprocessexitwatch.h"

#include <QMetaObject>

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

namespace taskrack {

namespace {

int openProcess(qint64 pid)
{
#ifdef SYS_pidfd_open
    if (pid <= 0 || pid > std::numeric_limits<pid_t>::max()) {
        errno = EINVAL;
        return -1;
    }
    return int(::syscall(SYS_pidfd_open, pid_t(pid), 0));
#else
    Q_UNUSED(pid);
    errno = ENOSYS;
    return -1;
#endif
}

} // namespace

PidfdProcessExitWatch::~PidfdProcessExitWatch()
{
    const QList<qint64> pids = m_watched.keys();
    for (qint64 pid : pids)
        forget(pid);
}

void PidfdProcessExitWatch::setProcesses(const QSet<qint64> &pids)
{
    const QList<qint64> watched = m_watched.keys();
    for (qint64 pid : watched) {
        if (!pids.contains(pid))
            forget(pid);
    }
    for (qint64 pid : pids) {
        if (m_watched.contains(pid))
            continue;
        const int fd = openProcess(pid);
        if (fd < 0) {
            // Gone between the owner's look and this open: that is an end the owner must hear,
            // or a status built on the process stays as it was. Told later, like every notice.
            if (errno == ESRCH)
                QMetaObject::invokeMethod(
                    &m_context,
                    [this, pid] {
                        if (m_handler)
                            m_handler(pid);
                    },
                    Qt::QueuedConnection);
            continue;
        }
        auto entry = std::make_shared<Watched>();
        entry->fd = fd;
        entry->notifier = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read);
        QObject::connect(entry->notifier.get(), &QSocketNotifier::activated, entry->notifier.get(),
                         [this, pid] {
                             // Heard once: the descriptor stays readable for good.
                             forget(pid);
                             if (m_handler)
                                 m_handler(pid);
                         });
        m_watched.insert(pid, std::move(entry));
    }
}

void PidfdProcessExitWatch::forget(qint64 pid)
{
    const std::shared_ptr<Watched> entry = m_watched.take(pid);
    if (!entry)
        return;
    entry->notifier->setEnabled(false);
    // Deleting the notifier from inside its own signal is left to the event loop.
    entry->notifier.release()->deleteLater();
    ::close(entry->fd);
}

} // namespace taskrack
