#pragma once

// The machine-readable form of the rack that `taskrack list --json` and `watch --json` print.
// Enumerations appear by their raw values; dates as ISO 8601 UTC with milliseconds.

#include <QJsonObject>

namespace taskrack {

class RackStore;
struct RackThread;

QString isoDate(const QDateTime &date);
QJsonObject threadToJson(const RackThread &thread);
QJsonObject rackToJson(const RackStore &store);

} // namespace taskrack
