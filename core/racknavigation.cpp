#include "core/racknavigation.h"

namespace taskrack {

qsizetype RackNavigation::indexOf(const QList<RackThread> &threads,
                                  const std::optional<QString> &id)
{
    if (!id)
        return -1;
    for (qsizetype i = 0; i < threads.size(); ++i) {
        if (threads.at(i).id == *id)
            return i;
    }
    return -1;
}

qsizetype RackNavigation::wrap(qsizetype present, qsizetype count, bool forward)
{
    if (present < 0)
        return forward ? 0 : count - 1;
    return (present + (forward ? 1 : count - 1)) % count;
}

QList<RackStop> RackNavigation::stops(const QList<RackProjectGroup> &groups)
{
    QList<RackStop> ring;
    for (const RackProjectGroup &group : groups) {
        for (const RackThread &thread : group.threads)
            ring.append(RackStop{RackStop::Kind::thread, group.id, thread.id});
        ring.append(RackStop{RackStop::Kind::newTask, group.id, {}});
    }
    return ring;
}

std::optional<RackStop> RackNavigation::nextStop(const QList<RackStop> &ring,
                                                 const RackSelection &selection, bool forward)
{
    if (ring.isEmpty())
        return std::nullopt;
    qsizetype present = -1;
    for (qsizetype i = 0; i < ring.size() && present < 0; ++i) {
        const RackStop &stop = ring.at(i);
        const bool matches =
            stop.kind == RackStop::Kind::newTask
                ? selection.isNewTaskSelected && selection.projectID == stop.projectID
                : !selection.isNewTaskSelected && selection.threadID == stop.threadID;
        if (matches)
            present = i;
    }
    return ring.at(wrap(present, ring.size(), forward));
}

std::optional<QString> RackNavigation::walkList(const QList<RackThread> &list,
                                                const RackSelection &selection, bool hasNewTaskStop,
                                                bool forward)
{
    const qsizetype count = list.size();
    const qsizetype current = indexOf(list, selection.threadID);
    if (!hasNewTaskStop)
        return list.at(wrap(current, count, forward)).id;
    // The key is a stop of its own: leaving it enters the list at its near end, and stepping
    // off either end of the list lands on it.
    if (selection.isNewTaskSelected || current < 0)
        return list.at(forward ? 0 : count - 1).id;
    if ((forward && current == count - 1) || (!forward && current == 0))
        return std::nullopt;
    return list.at(current + (forward ? 1 : -1)).id;
}

qsizetype RackNavigation::nextProject(const QList<RackProjectGroup> &groups,
                                      const std::optional<QString> &projectID, bool forward)
{
    if (groups.isEmpty())
        return -1;
    qsizetype present = -1;
    for (qsizetype i = 0; i < groups.size(); ++i) {
        if (projectID && groups.at(i).id == *projectID)
            present = i;
    }
    return wrap(present, groups.size(), forward);
}

} // namespace taskrack
