#include "sources/codex/taskfilewatcher.h"

#include <QFileInfo>
#include <algorithm>

namespace taskrack {

namespace {

struct Location
{
    QString folder;
    QString name;
};

Location locate(const QString &path)
{
    const QFileInfo info(path);
    return {info.absolutePath(), info.fileName()};
}

} // namespace

TaskFileWatcher::TaskFileWatcher(std::unique_ptr<FileWatch> watch, Clock &clock)
    : m_watch(std::move(watch)), m_clock(clock)
{
    m_watch->setHandler([this](const FileWatchNotice &notice) { onNotice(notice); });
}

TaskFileWatcher::~TaskFileWatcher()
{
    m_watch->setHandler({});
    for (const Watch &watch : std::as_const(m_fileWatches))
        m_watch->remove(watch.handle);
    for (const Watch &watch : std::as_const(m_folders))
        m_watch->remove(watch.handle);
    m_changes->finish();
}

void TaskFileWatcher::setFiles(const QStringList &paths)
{
    QSet<QString> files;
    for (const QString &path : paths) {
        if (!path.isEmpty())
            files.insert(QFileInfo(path).absoluteFilePath());
    }
    if (files == m_files)
        return;
    m_files = std::move(files);
    m_namesByFolder.clear();
    for (const QString &path : std::as_const(m_files)) {
        const Location location = locate(path);
        m_namesByFolder[location.folder].insert(location.name);
    }
    synchronize();
}

QStringList TaskFileWatcher::files() const
{
    QStringList list(m_files.cbegin(), m_files.cend());
    std::sort(list.begin(), list.end());
    return list;
}

void TaskFileWatcher::start()
{
    m_running = true;
    synchronize();
}

void TaskFileWatcher::stop()
{
    m_running = false;
    m_hasPending = false;
    m_pending = {};
    m_coalescer.cancel();
}

void TaskFileWatcher::finish()
{
    stop();
    m_changes->finish();
}

int TaskFileWatcher::watchedFileCount() const
{
    return int(m_fileWatches.size());
}

// Brings the system watches in line with the wanted files: a file whose path now names another
// inode (replaced, rotated, deleted and made anew) gets a fresh watch, a missing file has none
// and waits for its folder to announce it.
void TaskFileWatcher::synchronize()
{
    const auto align = [this](QHash<QString, Watch> &watches, const QSet<QString> &wanted,
                              bool folders) {
        for (auto it = watches.begin(); it != watches.end();) {
            if (!wanted.contains(it.key())) {
                m_pathByHandle.remove(it->handle);
                m_folderHandles.remove(it->handle);
                m_watch->remove(it->handle);
                it = watches.erase(it);
            } else {
                ++it;
            }
        }
        for (const QString &path : wanted) {
            const std::optional<FileIdentity> identity = m_watch->identityOf(path);
            const auto existing = watches.constFind(path);
            if (existing != watches.cend()) {
                if (identity && existing->identity == *identity)
                    continue;
                dropHandle(existing->handle);
            }
            if (!identity)
                continue;
            const std::optional<FileWatchTarget> target = m_watch->add(path);
            if (!target)
                continue;
            watches.insert(path, Watch{target->handle, target->identity});
            m_pathByHandle.insert(target->handle, path);
            if (folders)
                m_folderHandles.insert(target->handle);
        }
    };
    const QList<QString> folderList = m_namesByFolder.keys();
    align(m_fileWatches, m_files, false);
    align(m_folders, QSet<QString>(folderList.cbegin(), folderList.cend()), true);
}

void TaskFileWatcher::dropHandle(int handle)
{
    const auto found = m_pathByHandle.constFind(handle);
    if (found == m_pathByHandle.cend())
        return;
    const QString path = *found;
    m_pathByHandle.erase(found);
    QHash<QString, Watch> &watches = m_folderHandles.remove(handle) ? m_folders : m_fileWatches;
    const auto watch = watches.constFind(path);
    if (watch != watches.cend() && watch->handle == handle)
        watches.erase(watch);
    m_watch->remove(handle);
}

void TaskFileWatcher::onNotice(const FileWatchNotice &notice)
{
    if (notice.events & FileWatchEvents::overflow) {
        m_pending.everything = true;
        schedule();
        return;
    }
    // Neither closing a file opened for writing nor an attribute change says anything by
    // itself: SQLite opens the write-ahead log read-write even for read-only connections (and,
    // run as root, hands it to the database's owner), so our own reads would echo back as
    // changes. A real write reports `modified`, a removal `deleted` or a folder event.
    const quint32 silent = FileWatchEvents::closedAfterWrite | FileWatchEvents::attributes;
    if ((notice.events & ~silent) == 0)
        return;
    const auto found = m_pathByHandle.constFind(notice.handle);
    if (found == m_pathByHandle.cend())
        return;
    const QString path = *found;
    const bool isFolder = m_folderHandles.contains(notice.handle);
    if (notice.events & FileWatchEvents::watchEnded)
        dropHandle(notice.handle);
    if (!isFolder) {
        noteChange(path);
        return;
    }
    // A folder speaks of all its entries; only the watched names matter. Codex keeps other
    // databases beside its state database, and they are written all the time.
    if (!notice.childName.isEmpty() && m_namesByFolder.value(path).contains(notice.childName))
        noteChange(path + QLatin1Char('/') + notice.childName);
}

void TaskFileWatcher::noteChange(const QString &path)
{
    m_pending.paths.insert(path);
    schedule();
}

void TaskFileWatcher::schedule()
{
    if (!m_running)
        return;
    m_hasPending = true;
    m_coalescer.request();
}

void TaskFileWatcher::flush()
{
    if (!m_running || !m_hasPending)
        return;
    m_hasPending = false;
    TaskFileChanges changes = std::exchange(m_pending, {});
    synchronize();
    m_changes->send(std::move(changes));
}

} // namespace taskrack
