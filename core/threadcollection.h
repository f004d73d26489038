#pragma once

// What sources hand to the store: whole snapshots, single live status deltas, and the way a
// source reports partial trouble without failing.

#include "core/rackthread.h"

#include <QList>
#include <variant>

namespace taskrack {

struct RackStatusUpdate
{
    QString threadID;
    RackStatus status = RackStatus::recent;
    // Absent: only the moment of arrival is known.
    std::optional<QDateTime> updatedAt;
    // Present when the event counts as activity.
    std::optional<QDateTime> recencyAt;

    bool operator==(const RackStatusUpdate &) const = default;
};

enum class ThreadSourceFailureState { degraded, unavailable };
enum class ThreadSourceHealthComponent { desktopMetadata };

QString rawValue(ThreadSourceFailureState state);
QString rawValue(ThreadSourceHealthComponent component);

struct ThreadSourceFailure
{
    QString sourceName;
    ThreadSourceFailureState state = ThreadSourceFailureState::unavailable;
    bool isUsingCachedSnapshot = false;
    std::optional<RackProvider> provider;
    std::optional<ThreadSourceHealthComponent> component;
    bool isExpectedLimitation = false;

    bool operator==(const ThreadSourceFailure &) const = default;

    // Failures with equal keys speak of the same thing when snapshots are merged.
    QString mergeKey() const;
};

size_t qHash(const ThreadSourceFailure &failure, size_t seed = 0);

struct ThreadCollection
{
    QList<RackThread> threads;
    QString sourceDescription;
    bool isLive = false;
    QList<ThreadSourceFailure> sourceFailures;

    bool operator==(const ThreadCollection &) const = default;
};

// The answer of one member of a composite source.
struct ThreadFetchSuccess
{
    int index = 0;
    ThreadCollection collection;
};
struct ThreadFetchFailure
{
    int index = 0;
    QString sourceName;
    QString message;
};
struct ThreadFetchCancelled
{
};
using ThreadSourceFetchResult =
    std::variant<ThreadFetchSuccess, ThreadFetchFailure, ThreadFetchCancelled>;

} // namespace taskrack
