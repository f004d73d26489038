#include "core/rackranking.h"

#include <QSet>
#include <algorithm>
#include <limits>
#include <vector>

namespace taskrack {

QString rawValue(RackOrganizationMode mode)
{
    switch (mode) {
    case RackOrganizationMode::activity:
        return QStringLiteral("activity");
    case RackOrganizationMode::project:
        return QStringLiteral("project");
    case RackOrganizationMode::history:
        return QStringLiteral("history");
    }
    return {};
}

std::optional<RackOrganizationMode> organizationModeFromRaw(const QString &raw)
{
    for (auto mode : {RackOrganizationMode::activity, RackOrganizationMode::project,
                      RackOrganizationMode::history}) {
        if (rawValue(mode) == raw)
            return mode;
    }
    return std::nullopt;
}

QList<RackThread> sortedInThreadOrder(QList<RackThread> threads)
{
    // Sort small keys, not whole records: a thread is large and copying it dominates otherwise.
    struct Key
    {
        int rank;
        qint64 recency;
        qsizetype index;
    };
    std::vector<Key> keys;
    keys.reserve(size_t(threads.size()));
    for (qsizetype i = 0; i < threads.size(); ++i) {
        const RackThread &thread = threads.at(i);
        keys.push_back({statusRank(thread.status),
                        thread.recencyAt.isValid() ? thread.recencyAt.toMSecsSinceEpoch()
                                                   : std::numeric_limits<qint64>::min(),
                        i});
    }
    std::sort(keys.begin(), keys.end(), [](const Key &a, const Key &b) {
        if (a.rank != b.rank)
            return a.rank < b.rank;
        if (a.recency != b.recency)
            return a.recency > b.recency;
        return a.index < b.index;
    });
    QList<RackThread> sorted;
    sorted.reserve(threads.size());
    for (const Key &key : keys)
        sorted.append(threads.at(key.index));
    return sorted;
}

QList<RackThread> activityList(const QList<RackThread> &sorted)
{
    QList<RackThread> result;
    result.reserve(sorted.size());
    for (const RackThread &thread : sorted) {
        if (thread.status != RackStatus::recent)
            result.append(thread);
    }
    return result;
}

QList<RackThread> frozenMerge(const QList<RackThread> &old, const QList<RackThread> &fresh,
                              const QHash<QString, RackThread> &current)
{
    QList<RackThread> result;
    result.reserve(std::max(old.size(), fresh.size()));
    QSet<QString> kept;
    kept.reserve(old.size());
    for (const RackThread &thread : old) {
        auto it = current.constFind(thread.id);
        if (it == current.constEnd())
            continue;
        result.append(*it);
        kept.insert(thread.id);
    }
    for (const RackThread &thread : fresh) {
        if (!kept.contains(thread.id))
            result.append(thread);
    }
    return result;
}

int RackPaging::pageCount(qsizetype threadCount, int pageSize)
{
    if (threadCount <= 0 || pageSize <= 0)
        return 0;
    return int((threadCount + pageSize - 1) / pageSize);
}

std::pair<qsizetype, qsizetype> RackPaging::pageRange(qsizetype threadCount, int page, int pageSize)
{
    const qsizetype begin =
        std::min<qsizetype>(threadCount, qsizetype(std::max(page, 0)) * pageSize);
    const qsizetype end = std::min<qsizetype>(threadCount, begin + pageSize);
    return {begin, end};
}

} // namespace taskrack
