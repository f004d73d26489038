#pragma once

// Watches the files that tell of Codex activity (the state database, its write-ahead log, the
// rollouts of running tasks) and reports that they changed: the first write after a quiet spell
// at once, the writes that follow within the collapse window in one more report at its end. A watch
// follows a file's device and inode, so a file replaced by an atomic rename is noticed through its
// folder and watched again; a file that does not exist yet is picked up as soon as it appears in
// its folder.
//
// Threading: lives on the thread that creates it, like its FileWatch. The report channel may be
// consumed from any thread.

#include "core/boundedchannel.h"
#include "core/clock.h"
#include "core/coalescer.h"
#include "platform/filewatch.h"

#include <QHash>
#include <QSet>
#include <QStringList>
#include <chrono>
#include <memory>

namespace taskrack {

// The paths whose files changed during one collapse window. `everything` is set when events
// were lost and every file must be treated as changed.
struct TaskFileChanges
{
    QSet<QString> paths;
    bool everything = false;

    bool operator==(const TaskFileChanges &) const = default;
};

class TaskFileWatcher
{
public:
    // At most one report per this long, however often the files are written.
    static constexpr std::chrono::milliseconds collapseInterval{100};

    TaskFileWatcher(std::unique_ptr<FileWatch> watch, Clock &clock);
    ~TaskFileWatcher();
    TaskFileWatcher(const TaskFileWatcher &) = delete;
    TaskFileWatcher &operator=(const TaskFileWatcher &) = delete;

    ChannelPtr<TaskFileChanges> changes() const { return m_changes; }

    // Replaces the watched set. Paths are absolute; missing files are watched for through their
    // folder.
    void setFiles(const QStringList &paths);
    QStringList files() const;

    // Stopped, no change is reported and the pending report is dropped; watches stay until
    // setFiles({}) or destruction.
    void start();
    void stop();
    bool isRunning() const { return m_running; }
    // Ends the channel for good.
    void finish();

    // How many files and folders hold a system watch now, for tests and diagnostics.
    int watchedFileCount() const;
    int watchedFolderCount() const { return int(m_folders.size()); }

private:
    struct Watch
    {
        int handle = -1;
        FileIdentity identity;
    };

    void synchronize();
    void onNotice(const FileWatchNotice &notice);
    void noteChange(const QString &path);
    void schedule();
    void flush();
    void dropHandle(int handle);

    std::unique_ptr<FileWatch> m_watch;
    Clock &m_clock;
    ChannelPtr<TaskFileChanges> m_changes = BoundedChannel<TaskFileChanges>::create(16);
    QSet<QString> m_files;
    // Folder path -> names of watched files in it.
    QHash<QString, QSet<QString>> m_namesByFolder;
    QHash<QString, Watch> m_fileWatches;
    QHash<QString, Watch> m_folders;
    QHash<int, QString> m_pathByHandle;
    QSet<int> m_folderHandles;

    bool m_running = false;
    TaskFileChanges m_pending;
    bool m_hasPending = false;
    Coalescer m_coalescer{m_clock, collapseInterval, [this] { flush(); }};
};

} // namespace taskrack
