#pragma once

// The orders and pages in which threads are read.

#include "core/rackthread.h"

#include <QHash>
#include <QList>

namespace taskrack {

enum class RackOrganizationMode { activity, project, history };

QString rawValue(RackOrganizationMode mode);
std::optional<RackOrganizationMode> organizationModeFromRaw(const QString &raw);

// Sorts by status rank (lower first), then recencyAt (later first); equal threads keep their
// input order.
QList<RackThread> sortedInThreadOrder(QList<RackThread> threads);

// The activity list: thread order without history-only threads.
QList<RackThread> activityList(const QList<RackThread> &sorted);

// The list an open panel shows after new data arrived: the old order kept, each thread replaced
// by its current record (or dropped when gone), and threads new to the list appended in their
// fresh order. Nothing a person is reading moves.
QList<RackThread> frozenMerge(const QList<RackThread> &old, const QList<RackThread> &fresh,
                              const QHash<QString, RackThread> &current);

struct RackPaging
{
    static constexpr int activityPageSize = 6;
    static constexpr int projectPageSize = 5;

    static int pageCount(qsizetype threadCount, int pageSize);
    // The [begin, end) range of page `page` in a list of `threadCount`.
    static std::pair<qsizetype, qsizetype> pageRange(qsizetype threadCount, int page, int pageSize);
};

} // namespace taskrack
