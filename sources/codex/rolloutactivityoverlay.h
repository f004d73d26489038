#pragma once

// Lifts Codex threads from `recent` to `working`, `completed` or `error` by reading their
// rollout files, for as long as such a signal is believable. It finds each thread's rollout
// through the state database, checks the path against Codex's folder before opening it, reads
// at most a tail window to start with and then only what was appended, and answers repeated
// passes over unchanged files from a cache without reading at all.
//
// Not thread-safe: its state belongs to one owner, which calls it from one thread at a time
// (its own executor).

#include "core/threadcollection.h"
#include "platform/filesystem.h"
#include "sources/codex/rolloutline.h"

#include <QByteArray>
#include <QHash>
#include <QSet>
#include <QStringList>
#include <atomic>

namespace taskrack {

class RolloutActivityOverlay
{
public:
    static constexpr qint64 maximumTailBytes = 512 * 1024;
    static constexpr qint64 maximumLifecycleScanBytes = 2 * 1024 * 1024;
    static constexpr qint64 maximumLifecycleLineBytes = 128 * 1024;
    static constexpr qint64 lifecycleScanChunkBytes = 64 * 1024;
    static constexpr int maximumThreadCount = 400;
    static constexpr int maximumWatchedRolloutCount = 32;
    static constexpr qint64 workingFreshnessMs = 12 * 60 * 60 * 1000;
    static constexpr qint64 completionFreshnessMs = 15 * 60 * 1000;
    static constexpr qint64 errorFreshnessMs = 2 * 60 * 1000;
    // Clocks and writes that run a little ahead of ours still count as now.
    static constexpr qint64 futureToleranceMs = 5 * 1000;

    static inline const QString descriptionSuffix = QStringLiteral(" + local activity");

    // `databasePath` is Codex's state database; rollouts must lie inside `allowedRoot` (default:
    // the database's folder), both judged after symbolic links are resolved.
    RolloutActivityOverlay(const FileSystem &fileSystem, const QString &databasePath,
                           const QString &allowedRoot = {});

    // The collection with candidate threads' status, updatedAt and recencyAt taken from their
    // rollouts. Throws SQLiteThreadSourceError when the state database fails.
    ThreadCollection apply(const ThreadCollection &collection, const QDateTime &now);

    // Rollouts worth watching for changes: running ones first, then those whose completed or
    // error status has not yet expired; newest first, at most 32.
    QStringList watchedRollouts(const QDateTime &now) const;

    const QString &allowedRootDirectory() const { return m_allowedRoot; }
    // Bytes taken from rollout files so far, for diagnostics and benchmarks. Any thread.
    quint64 bytesRead() const { return m_bytesRead.load(std::memory_order_relaxed); }

    struct RolloutRecord
    {
        QString path;
        std::optional<qint64> databaseUpdatedAtMs;
        std::optional<qint64> recencyAtMs;

        bool operator==(const RolloutRecord &) const = default;
    };

    // The rollout of each listed, non-archived thread. Throws SQLiteThreadSourceError.
    QHash<QString, RolloutRecord> rolloutRecords(const QSet<QString> &threadIDs) const;

private:
    struct FileState
    {
        quint64 device = 0;
        quint64 inode = 0;
        qint64 size = 0;
        qint64 modificationNs = 0;

        qint64 modificationMs() const;
    };

    struct ParsedRollout
    {
        quint64 device = 0;
        quint64 inode = 0;
        qint64 modificationNs = 0;
        qint64 offset = 0; // the next byte to read
        RolloutLifecycleAccumulator accumulator;
        QByteArray pendingLine;
        bool discardingLine = false;
    };

    struct CachedActivity
    {
        qint64 size = 0;
        quint64 device = 0;
        quint64 inode = 0;
        qint64 modificationNs = 0;
        std::optional<qint64> databaseUpdatedAtMs;
        std::optional<RackStatus> status;
        std::optional<qint64> expiresAtMs;
    };

    struct TailScan
    {
        RolloutLifecycleAccumulator accumulator;
        qint64 resumeOffset = 0;
    };

    std::optional<RackStatus>
    activityStatus(const QString &path, std::optional<qint64> databaseUpdatedAtMs, qint64 nowMs);
    std::optional<RolloutLifecycleAccumulator>
    lifecycleSnapshot(const QString &path, const FileState &seen, bool isFresh);
    std::optional<TailScan> tailScan(ReadableFile &file, qint64 size);
    bool isInsideRoot(const QString &path) const;
    void countBytes(qint64 count);

    const FileSystem &m_fileSystem;
    QString m_databasePath;
    QString m_allowedRoot;
    QHash<QString, ParsedRollout> m_parsedRollouts;
    QHash<QString, CachedActivity> m_activityCache;
    std::atomic<quint64> m_bytesRead{0};
};

} // namespace taskrack
