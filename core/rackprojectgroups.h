#pragma once

// Threads that share any project alias fall into one project group: which identity speaks for
// the group, what it shows, how the groups are ordered (and held still while a person reads
// them), and which project stays selected when groups merge. Pure functions for the store,
// which runs them on the main thread on every re-ranking.

#include "core/rackthread.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <optional>
#include <set>

namespace taskrack {

struct RackProjectGroup
{
    // Taken from the chosen identity of the members.
    QString id;
    QString name;
    QString workspacePath;
    // Union of the aliases of every member's identity.
    QSet<QString> aliases;
    // What the project shows: in thread order; quiet projects are padded with history.
    QList<RackThread> threads;
    std::set<RackProvider> providers;
    // Provider of the member with the latest recencyAt (ties: smaller id); none without members.
    std::optional<RackProvider> lastUsedProvider;
    std::optional<CodexDesktopDot> dot;

    bool operator==(const RackProjectGroup &) const = default;

    bool isChats() const { return id == RackProjectIdentity::chatsID; }
};

// How many threads a quiet project is padded up to with history-only threads.
inline constexpr int projectGroupFillCount = 6;

// Groups `rankedThreads`, which must be in thread order (sortedInThreadOrder), and returns the
// groups in group order. Linear in the number of aliases apart from the sorting.
QList<RackProjectGroup> projectGroups(const QList<RackThread> &rankedThreads);

// The status of the group's most urgent thread; recent for a group without threads.
RackStatus groupStatus(const RackProjectGroup &group);

// Whether `challenger` should speak for a group instead of `incumbent`.
bool isPreferredProjectIdentity(const RackProjectIdentity &challenger,
                                const RackProjectIdentity &incumbent);

// The groups an open panel shows after new data arrived: every group already on screen keeps
// its place when its id or one of its aliases matches a fresh group, and takes that group's
// content, with its threads merged by frozenMerge so that no card moves; groups without a match
// are dropped, and fresh groups nobody matched follow in their own order. `current` holds every
// thread of the store by id.
QList<RackProjectGroup> frozenProjectGroups(const QList<RackProjectGroup> &old,
                                            const QList<RackProjectGroup> &fresh,
                                            const QHash<QString, RackThread> &current);

// What becomes of the selected project after the groups were rebuilt, and what to do with the
// persisted choice.
struct ProjectSelectionChange
{
    enum class Persistence { unchanged, write, remove };

    std::optional<QString> selectedProjectID;
    Persistence persistence = Persistence::unchanged;

    bool operator==(const ProjectSelectionChange &) const = default;
};

// Keeps the selection on its group when it still exists, follows an alias into the group that
// absorbed it, then the group holding the selected thread, then the first group.
ProjectSelectionChange bringSelectedProjectUpToDate(const QList<RackProjectGroup> &groups,
                                                    const std::optional<QString> &selectedProjectID,
                                                    const std::optional<QString> &selectedThreadID);

} // namespace taskrack
