#pragma once

// The rules by which a key press or a gesture step moves the rack's selection: which stop comes
// next, given what the rack shows and what is selected now. They are functions of their inputs
// alone, so they are tested without a store; the store keeps the selection (it notifies every
// change of it) and applies their answers.

#include "core/rackprojectgroups.h"

#include <QList>
#include <optional>

namespace taskrack {

// One stop of the gesture's walk through all projects: a thread, or the new-task key after a
// project's last thread.
struct RackStop
{
    enum class Kind { newTask, thread };
    Kind kind = Kind::thread;
    QString projectID;
    QString threadID;

    bool operator==(const RackStop &) const = default;
};

// What is selected now.
struct RackSelection
{
    std::optional<QString> threadID = {};
    std::optional<QString> projectID = {};
    bool isNewTaskSelected = false;
};

class RackNavigation
{
public:
    // The index after (or before) `present` among `count`, wrapping; the first (or the last)
    // when nothing is present. `count` must be positive.
    static qsizetype wrap(qsizetype present, qsizetype count, bool forward);
    // Where the thread `id` stands in `threads`; -1 when it is absent or not given.
    static qsizetype indexOf(const QList<RackThread> &threads, const std::optional<QString> &id);

    // The ring of a walk through all projects: each project's threads, then its new-task key.
    static QList<RackStop> stops(const QList<RackProjectGroup> &groups);
    // The stop after (or before) the selected one; nothing without stops.
    static std::optional<RackStop> nextStop(const QList<RackStop> &ring,
                                            const RackSelection &selection, bool forward);

    // A step through `list` (not empty). With a new-task stop, the key sits between the last
    // thread and the first: the answer is the thread to select, or nothing for the key.
    static std::optional<QString> walkList(const QList<RackThread> &list,
                                           const RackSelection &selection, bool hasNewTaskStop,
                                           bool forward);

    // The index of the project after (or before) the selected one; -1 without projects.
    static qsizetype nextProject(const QList<RackProjectGroup> &groups,
                                 const std::optional<QString> &projectID, bool forward);
};

} // namespace taskrack
