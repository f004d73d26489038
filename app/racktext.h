#pragma once

// The readable form of the rack for a terminal.

#include <QDateTime>
#include <QHash>
#include <QString>

namespace taskrack {

class RackStore;
struct RackThread;

// "12s", "5m", "3h", "2d": how long ago, short enough for a column.
QString shortAge(const QDateTime &then, const QDateTime &now);
QString rackTable(const RackStore &store, const QDateTime &now);
// One line for a thread whose status or title changed, for `watch`.
QString threadLine(const RackThread &thread, const QDateTime &now);
// The lines `watch` prints for what changed since `before`: a line per new or changed thread,
// one per thread that went away.
QString watchChanges(const QHash<QString, RackThread> &before, const RackStore &store,
                     const QDateTime &now);

} // namespace taskrack
