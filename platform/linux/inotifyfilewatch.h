#pragma once

#include "platform/filewatch.h"

#include <QHash>
#include <QObject>
#include <QSocketNotifier>
#include <memory>

namespace taskrack {

// FileWatch over one inotify instance, read through a socket notifier on the creating thread.
// inotify gives one watch per inode, so two handles on the same file share it and the kernel
// watch is removed with the last handle.
class InotifyFileWatch : public FileWatch
{
public:
    InotifyFileWatch();
    ~InotifyFileWatch() override;

    bool isValid() const { return m_fd >= 0; }

    void setHandler(Handler handler) override { m_handler = std::move(handler); }
    std::optional<FileWatchTarget> add(const QString &path) override;
    void remove(int handle) override;
    std::optional<FileIdentity> identityOf(const QString &path) const override;

private:
    void readEvents();

    int m_fd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    Handler m_handler;
    int m_nextHandle = 1;
    QHash<int, int> m_watchByHandle;       // handle -> inotify watch descriptor
    QMultiHash<int, int> m_handlesByWatch; // watch descriptor -> handles
};

} // namespace taskrack
