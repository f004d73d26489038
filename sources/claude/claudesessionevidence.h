#pragma once

// The evidence kept about each Claude session besides its manifest, how it is persisted, and
// how it folds into one status. Only a transcript observation sets the base status; hook
// evidence and the live session registry refine it within fixed age limits.

#include "core/rackthread.h"
#include "sources/claude/claudelivesessionregistry.h"

#include <QByteArray>
#include <QHash>

namespace taskrack {

struct ClaudeObservedStatus
{
    RackStatus status = RackStatus::recent;
    QDateTime observedAt;
    std::optional<QDateTime> lastUserSubmittedAt;

    bool operator==(const ClaudeObservedStatus &) const = default;
};

struct ClaudeInputRequest
{
    QDateTime requestedAt;

    bool operator==(const ClaudeInputRequest &) const = default;
};

struct ClaudeBackgroundTaskSnapshot
{
    qint64 activeTaskCount = 0;
    QDateTime observedAt;

    bool operator==(const ClaudeBackgroundTaskSnapshot &) const = default;
};

// Everything that survives a restart, by session id.
struct ClaudeSessionEvidence
{
    QHash<QString, ClaudeObservedStatus> observations;
    QHash<QString, ClaudeInputRequest> inputRequests;
    QHash<QString, ClaudeBackgroundTaskSnapshot> backgroundTaskSnapshots;

    bool operator==(const ClaudeSessionEvidence &) const = default;

    void forget(const QString &sessionId);
};

// JSON with dates as seconds since 2001-01-01T00:00:00Z. Decoding is all or nothing: a file
// with any malformed entry gives no evidence at all.
QByteArray encodeClaudeSessionEvidence(const ClaudeSessionEvidence &evidence);
std::optional<ClaudeSessionEvidence> decodeClaudeSessionEvidence(QByteArrayView data);

double claudeReferenceSeconds(const QDateTime &date);
QDateTime claudeDateFromReferenceSeconds(double seconds);

// How long each kind of evidence is believed.
double claudeStatusAgeLimit(RackStatus status); // seconds; infinity for recent
inline constexpr double claudeInputRequestAgeLimit = 43'200;
inline constexpr double claudeBackgroundTaskAgeLimit = 43'200;
inline constexpr double claudeLiveBusyAgeLimit = 43'200;

// What is known of one session at a moment, for the three derived values below.
struct ClaudeSessionFacts
{
    const ClaudeObservedStatus *observation = nullptr;
    const ClaudeInputRequest *inputRequest = nullptr;
    const ClaudeBackgroundTaskSnapshot *backgroundTasks = nullptr;
    const ClaudeLiveSessionEntry *liveEntry = nullptr; // of a running process only
    // The Claude Code process of this session is known to be gone: its registry entry names a
    // dead process, or the entry vanished while we watched.
    bool processEnded = false;
    // When we learned of that end, if we saw the process run: the status changed then, later
    // than anything the process wrote or the registry said while it ran.
    std::optional<QDateTime> processEndedAt;
    qint64 lastActivityAtMs = 0;
};

RackStatus claudeLiveStatus(const ClaudeSessionFacts &facts, const QDateTime &now);
QDateTime claudeUpdatedAt(const ClaudeSessionFacts &facts);
QDateTime claudeRecencyAt(const ClaudeSessionFacts &facts);

} // namespace taskrack
