#include "core/referencedate.h"

#include <cmath>

namespace taskrack {

namespace {
constexpr qint64 referenceEpochMs = 978307200000LL;
}

double secondsSinceReferenceDate(const QDateTime &date)
{
    return double(date.toMSecsSinceEpoch() - referenceEpochMs) / 1000.0;
}

QDateTime dateFromReferenceSeconds(double seconds)
{
    if (!std::isfinite(seconds) || std::abs(seconds) > 1e11)
        return {};
    return QDateTime::fromMSecsSinceEpoch(referenceEpochMs + qint64(std::llround(seconds * 1000.0)),
                                          Qt::UTC);
}

const QDateTime &distantPast()
{
    static const QDateTime past = QDateTime::fromMSecsSinceEpoch(-62135596800000LL, Qt::UTC);
    return past;
}

} // namespace taskrack
