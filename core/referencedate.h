#pragma once

#include <QDateTime>

namespace taskrack {

// Dates persisted as seconds since 2001-01-01T00:00:00Z, the form files shared with the macOS
// build use.
double secondsSinceReferenceDate(const QDateTime &date);
QDateTime dateFromReferenceSeconds(double seconds);

// A moment earlier than any real one, for comparisons where a date is missing.
const QDateTime &distantPast();

} // namespace taskrack
