#include "sources/claude/claudesessiondirectorywatcher.h"

#include "core/threadanchor.h"

#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <cmath>

namespace taskrack {

namespace {

bool isHidden(const QString &name)
{
    return name.startsWith(QLatin1Char('.'));
}

} // namespace

ClaudeSessionDirectoryWatcher::ClaudeSessionDirectoryWatcher(QString rootPath,
                                                             bool watchesNestedDirectories,
                                                             bool watchesRegularFiles, Clock &clock,
                                                             FileWatchFactory fileWatchFactory)
    : m_rootPath(QDir::cleanPath(std::move(rootPath))),
      m_watchesNestedDirectories(watchesNestedDirectories),
      m_watchesRegularFiles(watchesRegularFiles), m_clock(clock),
      m_fileWatchFactory(std::move(fileWatchFactory)),
      m_coalescer(clock, debounce, [this] { fireInvalidation(); })
{
    Q_ASSERT(m_fileWatchFactory);
}

ClaudeSessionDirectoryWatcher::~ClaudeSessionDirectoryWatcher()
{
    stop();
}

void ClaudeSessionDirectoryWatcher::start()
{
    if (m_isRunning)
        return;
    if (!m_fileWatch) {
        m_fileWatch = m_fileWatchFactory();
        m_fileWatch->setHandler([this](const FileWatchNotice &notice) { handleNotice(notice); });
    }
    m_isRunning = true;
    refreshTargets();
}

void ClaudeSessionDirectoryWatcher::stop()
{
    if (!m_isRunning)
        return;
    m_isRunning = false;
    m_coalescer.cancel();
    for (const WatchedTarget &target : std::as_const(m_sources))
        m_fileWatch->remove(target.handle);
    m_sources.clear();
    m_pathByHandle.clear();
    m_isRootAvailable = false;
}

void ClaudeSessionDirectoryWatcher::finish()
{
    stop();
    m_invalidations->finish();
}

void ClaudeSessionDirectoryWatcher::updateWatchedRegularFiles(const QSet<QString> &names)
{
    if (names == m_watchedRegularFileNames)
        return;
    m_watchedRegularFileNames = names;
    refreshTargets();
}

QSet<QString> ClaudeSessionDirectoryWatcher::watchedPaths() const
{
    return QSet<QString>(m_sources.keyBegin(), m_sources.keyEnd());
}

QSet<QString> ClaudeSessionDirectoryWatcher::wantedPaths() const
{
    QSet<QString> wanted;
    const QFileInfo root(m_rootPath);
    if (!root.isDir()) {
        // Watch the nearest existing ancestor so that the root's creation is noticed.
        QString ancestor = m_rootPath;
        while (true) {
            const QString parent = QFileInfo(ancestor).path();
            if (parent == ancestor)
                break;
            ancestor = parent;
            if (QFileInfo(ancestor).isDir()) {
                wanted.insert(ancestor);
                break;
            }
        }
        return wanted;
    }
    wanted.insert(m_rootPath);
    if (!m_watchesNestedDirectories && !m_watchesRegularFiles)
        return wanted;
    const QDir rootDir(m_rootPath);
    for (const QString &name : rootDir.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (isHidden(name))
            continue;
        const QString directory = rootDir.filePath(name);
        wanted.insert(directory);
        if (!m_watchesRegularFiles || m_watchedRegularFileNames.isEmpty())
            continue;
        const QDir child(directory);
        for (const QString &file : child.entryList(QDir::Files | QDir::NoDotAndDotDot)) {
            if (m_watchedRegularFileNames.contains(file))
                wanted.insert(child.filePath(file));
        }
    }
    return wanted;
}

void ClaudeSessionDirectoryWatcher::refreshTargets()
{
    if (!m_isRunning)
        return;
    m_isRootAvailable = QFileInfo(m_rootPath).isDir();
    const QSet<QString> wanted = wantedPaths();
    for (auto it = m_sources.begin(); it != m_sources.end();) {
        const auto identity = m_fileWatch->identityOf(it.key());
        if (!wanted.contains(it.key()) || !identity || *identity != it->identity) {
            m_fileWatch->remove(it->handle);
            m_pathByHandle.remove(it->handle);
            it = m_sources.erase(it);
        } else {
            ++it;
        }
    }
    for (const QString &path : wanted) {
        if (m_sources.contains(path))
            continue;
        const auto target = m_fileWatch->add(path);
        if (!target)
            continue;
        m_sources.insert(path,
                         WatchedTarget{target->handle, target->identity, QFileInfo(path).isDir()});
        m_pathByHandle.insert(target->handle, path);
    }
}

void ClaudeSessionDirectoryWatcher::handleNotice(const FileWatchNotice &notice)
{
    if (!m_isRunning)
        return;
    using namespace FileWatchEvents;
    // Closing a file after a write adds nothing to the write itself, which was noticed already;
    // counted, the echo would owe a second pass for every write. (A changed modification time
    // does count: readers judge a transcript's age by it.)
    if ((notice.events & ~closedAfterWrite) == 0)
        return;
    const auto found = m_pathByHandle.constFind(notice.handle);
    if (notice.handle >= 0 && found == m_pathByHandle.cend())
        return;
    const QString path = notice.handle >= 0 ? *found : QString();
    const bool isDirectory = notice.handle >= 0 && m_sources.value(path).isDirectory;
    if (notice.handle >= 0 && (notice.events & watchEnded)) {
        // The kernel's watch is gone; forget it so that the refresh can watch the path anew.
        m_sources.remove(path);
        m_pathByHandle.remove(notice.handle);
    }
    if (isDirectory && !notice.childName.isEmpty()) {
        // A folder changes when its entries do. Writes inside a child count only for the files
        // the owner named; the transcript watcher must not fire for every other file.
        const bool entryChanged =
            notice.events & (childCreated | childDeleted | childMovedIn | childMovedOut);
        const bool namedChild =
            !m_watchesRegularFiles || m_watchedRegularFileNames.contains(notice.childName);
        if (!entryChanged && !namedChild)
            return;
    }
    ++m_changeCount;
    m_coalescer.request();
}

void ClaudeSessionDirectoryWatcher::fireInvalidation()
{
    // A folder may have appeared or been replaced: watch it before anyone re-lists.
    refreshTargets();
    m_invalidations->send({});
}

} // namespace taskrack
