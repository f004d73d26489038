#include "platform/linux/inotifyfilewatch.h"

#include <QFile>
#include <cerrno>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace taskrack {

namespace {

// Folders report entry changes and their children's writes; files report their own writes. A
// rename over a watched file ends that file's watch, which is why owners also watch the folder.
constexpr quint32 watchMask = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE |
                              IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;

quint32 translate(quint32 mask, bool hasName)
{
    quint32 events = 0;
    if (mask & IN_MODIFY)
        events |= FileWatchEvents::modified;
    if (mask & IN_ATTRIB)
        events |= FileWatchEvents::attributes;
    if (mask & IN_CLOSE_WRITE)
        events |= FileWatchEvents::closedAfterWrite;
    if (mask & IN_CREATE)
        events |= FileWatchEvents::childCreated;
    if (mask & IN_DELETE)
        events |= FileWatchEvents::childDeleted;
    if (mask & IN_MOVED_TO)
        events |= FileWatchEvents::childMovedIn;
    if (mask & IN_MOVED_FROM)
        events |= FileWatchEvents::childMovedOut;
    if (mask & IN_DELETE_SELF)
        events |= FileWatchEvents::deleted;
    if (mask & IN_MOVE_SELF)
        events |= FileWatchEvents::moved;
    if (mask & (IN_IGNORED | IN_UNMOUNT))
        events |= FileWatchEvents::watchEnded;
    Q_UNUSED(hasName);
    return events;
}

} // namespace

InotifyFileWatch::InotifyFileWatch()
{
    m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(m_fd, QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(),
                     [this] { readEvents(); });
}

InotifyFileWatch::~InotifyFileWatch()
{
    m_notifier.reset();
    if (m_fd >= 0)
        ::close(m_fd);
}

std::optional<FileWatchTarget> InotifyFileWatch::add(const QString &path)
{
    if (m_fd < 0)
        return std::nullopt;
    // Open first and watch the opened inode through /proc, so that the identity reported is
    // exactly the one watched even if the path is replaced in between.
    const int pathFd = ::open(QFile::encodeName(path).constData(), O_PATH | O_CLOEXEC);
    if (pathFd < 0)
        return std::nullopt;
    struct stat st;
    int wd = -1;
    if (::fstat(pathFd, &st) == 0) {
        const QByteArray procPath = "/proc/self/fd/" + QByteArray::number(pathFd);
        wd = ::inotify_add_watch(m_fd, procPath.constData(), watchMask);
    }
    ::close(pathFd);
    if (wd < 0)
        return std::nullopt;
    const int handle = m_nextHandle++;
    m_watchByHandle.insert(handle, wd);
    m_handlesByWatch.insert(wd, handle);
    return FileWatchTarget{handle, FileIdentity{quint64(st.st_dev), quint64(st.st_ino)}};
}

void InotifyFileWatch::remove(int handle)
{
    const auto found = m_watchByHandle.constFind(handle);
    if (found == m_watchByHandle.cend())
        return;
    const int wd = *found;
    m_watchByHandle.erase(found);
    m_handlesByWatch.remove(wd, handle);
    if (!m_handlesByWatch.contains(wd))
        ::inotify_rm_watch(m_fd, wd);
}

std::optional<FileIdentity> InotifyFileWatch::identityOf(const QString &path) const
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return std::nullopt;
    return FileIdentity{quint64(st.st_dev), quint64(st.st_ino)};
}

void InotifyFileWatch::readEvents()
{
    alignas(struct inotify_event) char buffer[16384];
    QList<FileWatchNotice> notices;
    while (true) {
        const ssize_t length = ::read(m_fd, buffer, sizeof buffer);
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            break;
        for (ssize_t offset = 0; offset < length;) {
            const auto *event = reinterpret_cast<const struct inotify_event *>(buffer + offset);
            offset += ssize_t(sizeof(struct inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                notices.append(FileWatchNotice{-1, FileWatchEvents::overflow, {}});
                continue;
            }
            const QString name = event->len > 0 ? QFile::decodeName(event->name) : QString();
            const quint32 events = translate(event->mask, event->len > 0);
            const QList<int> handles = m_handlesByWatch.values(event->wd);
            if (event->mask & IN_IGNORED) {
                // The kernel dropped the watch: its handles are dead.
                for (int handle : handles)
                    m_watchByHandle.remove(handle);
                m_handlesByWatch.remove(event->wd);
            }
            for (int handle : handles)
                notices.append(FileWatchNotice{handle, events, name});
        }
    }
    // Delivered after the read loop: a handler may add or remove watches.
    if (m_handler) {
        for (const FileWatchNotice &notice : notices)
            m_handler(notice);
    }
}

} // namespace taskrack
