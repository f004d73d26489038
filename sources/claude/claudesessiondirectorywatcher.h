#pragma once

// Turns file-system changes under one root into bare, coalesced change signals. Readers re-list
// by themselves; the signal only says "look again". Two are used: one over the desktop
// application's session folders (nested folders, no files) and one over Claude Code's
// transcript folders (the project folders and the transcript files named by the source).

#include "core/boundedchannel.h"
#include "core/clock.h"
#include "core/coalescer.h"
#include "platform/filewatch.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <memory>
#include <variant>

namespace taskrack {

class ClaudeSessionDirectoryWatcher
{
public:
    using FileWatchFactory = std::function<std::unique_ptr<FileWatch>()>;
    static constexpr std::chrono::milliseconds debounce{120};

    // Lives on the creating thread; every call must come from it. The file watch is made by
    // `fileWatchFactory` at the first start(), on that thread.
    ClaudeSessionDirectoryWatcher(QString rootPath, bool watchesNestedDirectories,
                                  bool watchesRegularFiles, Clock &clock,
                                  FileWatchFactory fileWatchFactory);
    ~ClaudeSessionDirectoryWatcher();
    ClaudeSessionDirectoryWatcher(const ClaudeSessionDirectoryWatcher &) = delete;
    ClaudeSessionDirectoryWatcher &operator=(const ClaudeSessionDirectoryWatcher &) = delete;

    // One element per coalesced change, newest one kept.
    ChannelPtr<std::monostate> invalidations() const { return m_invalidations; }

    void start();
    void stop();
    void updateWatchedRegularFiles(const QSet<QString> &names);

    bool isRunning() const { return m_isRunning; }
    bool isRootAvailable() const { return m_isRootAvailable; }
    QSet<QString> watchedPaths() const;
    // How many notices counted as a change; lets tests know a notice was seen.
    int changeCount() const { return m_changeCount; }
    // Finishes the stream; the watcher stays stopped.
    void finish();

private:
    struct WatchedTarget
    {
        int handle = -1;
        FileIdentity identity;
        bool isDirectory = false;
    };
    QSet<QString> wantedPaths() const;
    void refreshTargets();
    void handleNotice(const FileWatchNotice &notice);
    void fireInvalidation();

    const QString m_rootPath;
    const bool m_watchesNestedDirectories;
    const bool m_watchesRegularFiles;
    Clock &m_clock;
    FileWatchFactory m_fileWatchFactory;
    std::unique_ptr<FileWatch> m_fileWatch;
    ChannelPtr<std::monostate> m_invalidations = BoundedChannel<std::monostate>::create(1);
    QHash<QString, WatchedTarget> m_sources;
    QHash<int, QString> m_pathByHandle;
    QSet<QString> m_watchedRegularFileNames;
    bool m_isRunning = false;
    bool m_isRootAvailable = false;
    int m_changeCount = 0;
    // The first change after a quiet spell is signalled at once, the rest once per window.
    Coalescer m_coalescer;
};

} // namespace taskrack
