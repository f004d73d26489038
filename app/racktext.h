#pragma once

// The readable form of the rack for a terminal.

#include <QDateTime>
#include <QString>

namespace taskrack {

class RackStore;
struct RackThread;

// "12s", "5m", "3h", "2d": how long ago, short enough for a column.
QString shortAge(const QDateTime &then, const QDateTime &now);
QString rackTable(const RackStore &store, const QDateTime &now);
// One line for a thread whose status or title changed, for `watch`.
QString threadLine(const RackThread &thread, const QDateTime &now);

} // namespace taskrack
