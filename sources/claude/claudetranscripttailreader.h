#pragma once

// What the end of a Claude Code transcript says about its task: the lifecycle of the newest
// meaningful line and the moment a person last submitted something. Reads at most a bounded
// window from the end of each file, once per change of the file's fingerprint.

#include "core/rackthread.h"
#include "sources/claude/claudefileaccess.h"
#include "sources/claude/claudesessionfilefingerprint.h"
#include "sources/claude/claudesessionmanifest.h"
#include "sources/claude/claudetranscriptline.h"

#include <QHash>
#include <QSet>
#include <functional>
#include <mutex>

namespace taskrack {

struct ClaudeTranscriptObservation
{
    RackStatus status = RackStatus::recent;
    QDateTime observedAt;
    std::optional<QDateTime> lastUserSubmittedAt;

    bool operator==(const ClaudeTranscriptObservation &) const = default;
};

struct ClaudeIndexedTranscript
{
    QString path;
    QDateTime modificationDate;
    qint64 fileSize = 0;
    std::optional<quint64> fileIdentity;

    bool operator==(const ClaudeIndexedTranscript &) const = default;
    ClaudeSessionFileFingerprint fingerprint() const
    {
        return {modificationDate, fileSize, fileIdentity};
    }
};

// What one read of a transcript's end found.
struct ClaudeTranscriptTailState
{
    std::optional<TranscriptLifecycleEvent> lifecycle;
    std::optional<QDateTime> observedAt;
    std::optional<QDateTime> lastUserSubmittedAt;
    // The newest title lines in the window, for sessions without a manifest.
    std::optional<QString> customTitle;
    std::optional<QString> summary;

    bool operator==(const ClaudeTranscriptTailState &) const = default;
};

namespace claudetranscript {
inline constexpr qint64 tailBytes = 524'288;
inline constexpr qint64 deepScanBytes = 2'097'152;
inline constexpr qint64 pieceLimit = 1'048'576;
inline constexpr double clockSkewSeconds = 5.0;
inline constexpr double indexHorizonSeconds = 86'400.0;
} // namespace claudetranscript

// The whole lines of a window read from the end of a file. When the window does not start at
// the beginning of the file its first line is a fragment and is dropped; nothing when no line
// break is left.
std::optional<QByteArrayView> wholeLinesOfTail(QByteArrayView window, bool startsMidFile);

// Walks the lines from the newest back and stops once both answers are known.
ClaudeTranscriptTailState parseTranscriptTail(QByteArrayView lines);

// The newest "custom-title" and "summary" lines among whole lines; only lines that mention
// them are decoded.
struct ClaudeTranscriptTitleLines
{
    std::optional<QString> customTitle;
    std::optional<QString> summary;
};
ClaudeTranscriptTitleLines findTranscriptTitleLines(QByteArrayView lines);

// Walks a large file backwards in windows, at most deepScanBytes in all, for the newest user
// submission. `readAt(offset, length)` returns exactly that many bytes or nothing.
using ClaudeRangeReader = std::function<std::optional<QByteArray>(qint64 offset, qint64 length)>;
std::optional<QDateTime> deepScanLastUserSubmission(qint64 fileSize,
                                                    const ClaudeRangeReader &readAt);

RackStatus statusOfLifecycle(TranscriptLifecycleEvent lifecycle);

class ClaudeTranscriptTailReader
{
public:
    ClaudeTranscriptTailReader(const FileSystem &fileSystem, QString rootPath,
                               double indexHorizon = claudetranscript::indexHorizonSeconds);

    const FileSystem &fileSystem() const { return m_fileSystem; }

    const QString &rootPath() const { return m_rootPath; }
    double indexHorizon() const { return m_indexHorizon; }

    // Observations by manifest sessionId, for the manifests whose transcript is indexed.
    QHash<QString, ClaudeTranscriptObservation>
    observations(const QList<ClaudeDesktopSessionManifest> &manifests, const QDateTime &now);
    // The same over an index made moments ago (discovery's), so the folders are listed once.
    QHash<QString, ClaudeTranscriptObservation>
    observations(const QList<ClaudeDesktopSessionManifest> &manifests, const QDateTime &now,
                 const QHash<QString, ClaudeIndexedTranscript> &indexed);

    // The transcripts directly inside the project folders of the root, modified within the
    // horizon, keyed by file stem; the newest wins when a stem is found in several folders.
    // `wanted` limits the stems; without it every plausible session file is listed.
    QHash<QString, ClaudeIndexedTranscript> index(const QSet<QString> *wanted,
                                                  const QDateTime &now) const;

    std::optional<ClaudeTranscriptObservation>
    observation(const ClaudeIndexedTranscript &transcript, const QDateTime &now);

    // The state last read for a file, if its fingerprint still matches.
    std::optional<ClaudeTranscriptTailState>
    cachedState(const ClaudeIndexedTranscript &transcript) const;

    ClaudeReadCounters &counters() { return m_counters; }
    // Folders the last index() could not read (permissions): reported, never silently empty.
    int unreadableFolders() const { return m_unreadableFolders.load(std::memory_order_relaxed); }

private:
    struct CachedTranscriptState
    {
        ClaudeSessionFileFingerprint fingerprint;
        ClaudeTranscriptTailState state;
    };

    std::optional<ClaudeTranscriptTailState> readState(const ClaudeIndexedTranscript &transcript,
                                                       bool *isStable);

    const FileSystem &m_fileSystem;
    const QString m_rootPath;
    const double m_indexHorizon;
    mutable std::atomic<int> m_unreadableFolders{0};
    ClaudeReadCounters m_counters;
    mutable std::mutex m_cacheLock;
    QHash<QString, CachedTranscriptState> m_cachedStates;
};

} // namespace taskrack
