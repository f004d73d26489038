#include "sources/codex/rolloutactivityoverlay.h"

#include "sources/codex/readonlydatabase.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace taskrack {

namespace {

// Standardised and with symbolic links resolved. A path that cannot be resolved (it does not
// exist) keeps its standardised spelling; it fails the later attribute read anyway.
QString resolvedPath(const FileSystem &fileSystem, const QString &path)
{
    if (path.isEmpty() || !QDir::isAbsolutePath(path))
        return {};
    const QString cleaned = QDir::cleanPath(path);
    const QString canonical = fileSystem.resolvedPath(cleaned);
    return canonical.isEmpty() ? cleaned : canonical;
}

// Resolves many rollout paths at once. Rollouts share a handful of day folders, so each folder
// is resolved once and each file costs one lstat instead of a readlink per path component.
class PathResolver
{
public:
    explicit PathResolver(const FileSystem &fileSystem) : m_fileSystem(fileSystem) {}

    QString resolve(const QString &path)
    {
        if (path.isEmpty() || !QDir::isAbsolutePath(path))
            return {};
        const QString cleaned = QDir::cleanPath(path);
        const qsizetype slash = cleaned.lastIndexOf(QLatin1Char('/'));
        if (slash <= 0)
            return resolvedPath(m_fileSystem, cleaned);
        const QString folder = cleaned.left(slash);
        auto known = m_folders.constFind(folder);
        if (known == m_folders.constEnd())
            known = m_folders.insert(folder, m_fileSystem.resolvedPath(folder));
        const auto attributes = m_fileSystem.stat(cleaned, FileSystem::Links::doNotFollow);
        if (known->isEmpty() || !attributes)
            return cleaned; // does not exist: fails the attribute read later
        if (attributes->kind == FileKind::symbolicLink)
            return resolvedPath(m_fileSystem, cleaned);
        return *known + cleaned.mid(slash);
    }

private:
    const FileSystem &m_fileSystem;
    QHash<QString, QString> m_folders;
};

std::optional<qint64> positiveSecondsAsMs(const ReadOnlyDatabase::Statement &row, int column)
{
    if (row.isNull(column))
        return std::nullopt;
    const double seconds = row.real(column);
    if (!std::isfinite(seconds) || !(seconds > 0))
        return std::nullopt;
    return qint64(std::llround(seconds * 1000.0));
}

QDateTime dateFromMs(qint64 ms)
{
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
}

void feedLine(RolloutLifecycleAccumulator &accumulator, QByteArrayView line)
{
    if (const auto event = classifyRolloutLine(line))
        accumulator.feed(*event);
}

} // namespace

qint64 RolloutActivityOverlay::FileState::modificationMs() const
{
    // Floor, also before 1970.
    return modificationNs >= 0 ? modificationNs / 1'000'000
                               : -((-modificationNs + 999'999) / 1'000'000);
}

RolloutActivityOverlay::RolloutActivityOverlay(const FileSystem &fileSystem,
                                               const QString &databasePath,
                                               const QString &allowedRoot)
    : m_fileSystem(fileSystem), m_databasePath(databasePath)
{
    const QString root =
        allowedRoot.isEmpty() ? QFileInfo(databasePath).absolutePath() : allowedRoot;
    m_allowedRoot = resolvedPath(m_fileSystem, QDir(root).absolutePath());
}

void RolloutActivityOverlay::countBytes(qint64 count)
{
    if (count > 0)
        m_bytesRead.fetch_add(quint64(count), std::memory_order_relaxed);
}

bool RolloutActivityOverlay::isInsideRoot(const QString &path) const
{
    // An unresolvable root admits nothing, rather than everything.
    if (m_allowedRoot.isEmpty() || path.isEmpty())
        return false;
    if (path == m_allowedRoot)
        return true;
    const QString prefix =
        m_allowedRoot.endsWith(QLatin1Char('/')) ? m_allowedRoot : m_allowedRoot + QLatin1Char('/');
    return path.startsWith(prefix);
}

QHash<QString, RolloutActivityOverlay::RolloutRecord>
RolloutActivityOverlay::rolloutRecords(const QSet<QString> &threadIDs) const
{
    QHash<QString, RolloutRecord> records;
    if (threadIDs.isEmpty())
        return records;
    QStringList ids(threadIDs.cbegin(), threadIDs.cend());
    std::sort(ids.begin(), ids.end());

    ReadOnlyDatabase database(m_databasePath);
    const QSet<QString> columns = database.columns("threads");
    QByteArray recency =
        columns.contains(QStringLiteral("recency_at")) ? "NULLIF(recency_at, 0)" : "NULL";
    if (columns.contains(QStringLiteral("recency_at_ms")))
        recency = "COALESCE(NULLIF(recency_at_ms, 0) / 1000.0, " + recency + ")";

    QByteArray sql = "SELECT id, rollout_path, updated_at, " + recency +
                     "\nFROM threads\nWHERE archived = 0\n  AND id IN (";
    for (qsizetype i = 0; i < ids.size(); ++i)
        sql += i == 0 ? "?" : ", ?";
    sql += ")";

    ReadOnlyDatabase::Statement statement(database, sql);
    for (qsizetype i = 0; i < ids.size(); ++i)
        statement.bindText(int(i + 1), ids[i].toUtf8());
    while (statement.step()) {
        RolloutRecord record;
        record.path = statement.text(1);
        if (record.path.isEmpty())
            continue;
        record.databaseUpdatedAtMs = positiveSecondsAsMs(statement, 2);
        record.recencyAtMs = positiveSecondsAsMs(statement, 3);
        records.insert(statement.text(0), std::move(record));
    }
    return records;
}

ThreadCollection RolloutActivityOverlay::apply(const ThreadCollection &collection,
                                               const QDateTime &now)
{
    ThreadCollection result = collection;
    result.sourceDescription = collection.sourceDescription + descriptionSuffix;

    QSet<QString> candidates;
    for (const RackThread &thread : collection.threads) {
        if (candidates.size() >= maximumThreadCount)
            break;
        if (thread.provider == RackProvider::codex && !thread.codexDesktopIdentity)
            candidates.insert(thread.providerThreadID);
    }
    if (candidates.isEmpty()) {
        m_parsedRollouts.clear();
        m_activityCache.clear();
        return result;
    }

    const QHash<QString, RolloutRecord> records = rolloutRecords(candidates);

    // What left the window of candidates, or moved, is forgotten.
    QHash<QString, QString> resolvedByID;
    QSet<QString> livePaths;
    PathResolver resolver(m_fileSystem);
    for (auto it = records.cbegin(); it != records.cend(); ++it) {
        const QString path = resolver.resolve(it->path);
        resolvedByID.insert(it.key(), path);
        livePaths.insert(path);
    }
    for (auto it = m_parsedRollouts.begin(); it != m_parsedRollouts.end();)
        it = livePaths.contains(it.key()) ? std::next(it) : m_parsedRollouts.erase(it);
    for (auto it = m_activityCache.begin(); it != m_activityCache.end();)
        it = livePaths.contains(it.key()) ? std::next(it) : m_activityCache.erase(it);

    const qint64 nowMs = now.toMSecsSinceEpoch();
    for (RackThread &thread : result.threads) {
        if (thread.provider != RackProvider::codex || thread.codexDesktopIdentity ||
            !candidates.contains(thread.providerThreadID))
            continue;
        const auto record = records.constFind(thread.providerThreadID);
        if (record == records.constEnd())
            continue;
        const QString path = resolvedByID.value(thread.providerThreadID);

        const std::optional<RackStatus> decided =
            activityStatus(path, record->databaseUpdatedAtMs, nowMs);

        std::optional<RolloutLifecycleAccumulator> snapshot;
        const auto parsed = m_parsedRollouts.constFind(path);
        if (parsed != m_parsedRollouts.constEnd() && parsed->accumulator.latestEvent)
            snapshot = parsed->accumulator;

        // A live source's word always stands; only history-only threads are lifted.
        const bool wasRecent = thread.status == RackStatus::recent;
        if (wasRecent)
            thread.status = decided.value_or(RackStatus::recent);
        if (wasRecent && snapshot && snapshot->latestEvent->timestampMs)
            thread.updatedAt = dateFromMs(*snapshot->latestEvent->timestampMs);
        if (record->recencyAtMs)
            thread.recencyAt = dateFromMs(*record->recencyAtMs);
        else if (snapshot && snapshot->latestStartMs)
            thread.recencyAt = dateFromMs(*snapshot->latestStartMs);
    }
    return result;
}

std::optional<RackStatus>
RolloutActivityOverlay::activityStatus(const QString &path,
                                       std::optional<qint64> databaseUpdatedAtMs, qint64 nowMs)
{
    if (!isInsideRoot(path))
        return std::nullopt;

    const auto attributes = m_fileSystem.stat(path);
    if (!attributes || !attributes->isRegular())
        return std::nullopt;
    FileState seen;
    seen.device = attributes->device;
    seen.inode = attributes->inode;
    seen.size = attributes->size;
    seen.modificationNs = attributes->modificationNs;

    const auto cached = m_activityCache.constFind(path);
    if (cached != m_activityCache.constEnd() && cached->size == seen.size &&
        cached->device == seen.device && cached->inode == seen.inode &&
        cached->modificationNs == seen.modificationNs &&
        cached->databaseUpdatedAtMs == databaseUpdatedAtMs &&
        (!cached->expiresAtMs || nowMs <= *cached->expiresAtMs))
        return cached->status;

    const qint64 lastActivityMs = std::max(
        seen.modificationMs(), databaseUpdatedAtMs.value_or(std::numeric_limits<qint64>::min()));
    const qint64 ageMs = nowMs - lastActivityMs;
    const bool isFresh = ageMs >= -futureToleranceMs && ageMs <= workingFreshnessMs;

    CachedActivity decision;
    decision.size = seen.size;
    decision.device = seen.device;
    decision.inode = seen.inode;
    decision.modificationNs = seen.modificationNs;
    decision.databaseUpdatedAtMs = databaseUpdatedAtMs;

    const auto snapshot = lifecycleSnapshot(path, seen, isFresh);
    if (!snapshot) {
        m_activityCache.insert(path, decision);
        return std::nullopt;
    }

    const RolloutLifecycleEvent &event = *snapshot->latestEvent;
    // A finished turn is believed for a window after its own timestamp.
    const auto endedWithin = [&](qint64 windowMs, RackStatus status) {
        const qint64 ageOfEnd = nowMs - *event.timestampMs;
        if (ageOfEnd < -futureToleranceMs || ageOfEnd > windowMs) {
            decision.status = RackStatus::recent;
        } else {
            decision.status = status;
            decision.expiresAtMs = *event.timestampMs + windowMs;
        }
    };

    switch (event.kind) {
    case RolloutLifecycleKind::taskStarted:
        if (isFresh) {
            decision.status = RackStatus::working;
            decision.expiresAtMs = lastActivityMs + workingFreshnessMs;
        } else {
            decision.status = RackStatus::recent;
        }
        break;
    case RolloutLifecycleKind::taskComplete:
        // Without a time the completion cannot be aged; decide again next pass.
        if (!event.timestampMs)
            return RackStatus::recent;
        // A turn started after this completion is not done yet, whatever the order in the file.
        if (snapshot->latestStartMs && *snapshot->latestStartMs > *event.timestampMs)
            decision.status = RackStatus::recent;
        else
            endedWithin(completionFreshnessMs, RackStatus::completed);
        break;
    case RolloutLifecycleKind::taskFailed:
    case RolloutLifecycleKind::turnAborted:
        if (!event.timestampMs)
            return RackStatus::recent;
        endedWithin(errorFreshnessMs, RackStatus::error);
        break;
    }
    m_activityCache.insert(path, decision);
    return decision.status;
}

std::optional<RolloutLifecycleAccumulator>
RolloutActivityOverlay::lifecycleSnapshot(const QString &path, const FileState &seen, bool isFresh)
{
    auto opened = m_fileSystem.openForReading(path, m_allowedRoot);
    if (!opened)
        return std::nullopt;
    ReadableFile &file = **opened;
    // The handle must be the file whose attributes were judged, not one swapped in since.
    if (file.attributes().device != seen.device || file.attributes().inode != seen.inode)
        return std::nullopt;
    const qint64 size = file.attributes().size;

    ParsedRollout entry;
    const auto known = m_parsedRollouts.constFind(path);
    const bool canContinue =
        known != m_parsedRollouts.constEnd() && known->inode == seen.inode &&
        known->device == seen.device && known->offset <= size &&
        size - known->offset <= maximumLifecycleScanBytes &&
        (size != known->offset || known->modificationNs == seen.modificationNs);
    if (canContinue) {
        entry = *known;
    } else {
        entry.device = seen.device;
        entry.inode = seen.inode;
        entry.modificationNs = seen.modificationNs;
        if (const auto tail = tailScan(file, size)) {
            if (tail->accumulator.latestStartMs)
                entry.accumulator.feed(
                    {RolloutLifecycleKind::taskStarted, tail->accumulator.latestStartMs});
            entry.accumulator.feed(*tail->accumulator.latestEvent);
            entry.offset = tail->resumeOffset;
        } else if (!isFresh) {
            // An old file without a lifecycle event near its end is not worth a full read.
            entry.offset = size;
        }
    }

    qint64 budget = maximumLifecycleScanBytes;
    bool skipped = false;
    while (entry.offset < size) {
        const qint64 want = std::min({lifecycleScanChunkBytes, size - entry.offset, budget});
        if (want <= 0) {
            skipped = true;
            break;
        }
        const auto read = file.readAt(entry.offset, want);
        if (!read)
            return std::nullopt;
        const QByteArray &chunk = *read;
        const qint64 got = chunk.size();
        if (got == 0) {
            skipped = true;
            break;
        }
        entry.offset += got;
        budget -= got;
        countBytes(got);

        const char *pos = chunk.data();
        const char *end = pos + got;
        while (pos < end) {
            const auto *newline =
                static_cast<const char *>(std::memchr(pos, '\n', size_t(end - pos)));
            const char *segmentEnd = newline ? newline : end;
            const qint64 segmentLength = segmentEnd - pos;
            if (!entry.discardingLine) {
                if (entry.pendingLine.size() + segmentLength > maximumLifecycleLineBytes) {
                    // Over-long: drop the whole line and resume after its newline.
                    entry.pendingLine.clear();
                    entry.discardingLine = true;
                } else {
                    entry.pendingLine.append(pos, segmentLength);
                }
            }
            if (newline) {
                if (!entry.discardingLine)
                    feedLine(entry.accumulator, entry.pendingLine);
                entry.pendingLine.clear();
                entry.discardingLine = false;
                pos = newline + 1;
            } else {
                pos = end;
            }
        }
    }
    if (skipped) {
        // The middle of a large append is skipped, not queued for later.
        entry.offset = size;
        entry.pendingLine.clear();
        entry.discardingLine = false;
    }
    // A last line without its newline yet counts now, and harmlessly again when it is ended.
    if (!entry.discardingLine && !entry.pendingLine.isEmpty())
        feedLine(entry.accumulator, entry.pendingLine);

    entry.modificationNs = seen.modificationNs;
    const auto result =
        entry.accumulator.latestEvent ? std::optional(entry.accumulator) : std::nullopt;
    m_parsedRollouts.insert(path, std::move(entry));
    return result;
}

std::optional<RolloutActivityOverlay::TailScan> RolloutActivityOverlay::tailScan(ReadableFile &file,
                                                                                 qint64 size)
{
    const qint64 start = size >= maximumTailBytes ? size - maximumTailBytes : 0;
    if (size - start <= 0)
        return std::nullopt;
    const auto read = file.readAt(start, size - start);
    if (!read || read->isEmpty())
        return std::nullopt;
    const QByteArray &data = *read;
    countBytes(data.size());

    QByteArrayView window(data);
    if (size > maximumTailBytes) {
        // The window may begin inside a line.
        const qsizetype firstNewline = window.indexOf('\n');
        if (firstNewline < 0)
            return std::nullopt;
        window = window.sliced(firstNewline + 1);
    }
    const qsizetype lastNewline = window.lastIndexOf('\n');
    if (lastNewline < 0)
        return std::nullopt;
    const qint64 trailingBytes = window.size() - (lastNewline + 1);

    TailScan scan;
    QByteArrayView lines = window.first(lastNewline);
    while (!lines.isEmpty()) {
        const qsizetype newline = lines.indexOf('\n');
        const QByteArrayView line = newline < 0 ? lines : lines.first(newline);
        if (!line.isEmpty())
            feedLine(scan.accumulator, line);
        lines = newline < 0 ? QByteArrayView() : lines.sliced(newline + 1);
    }
    if (!scan.accumulator.latestEvent)
        return std::nullopt;
    // What follows the last newline is picked up by the forward read.
    scan.resumeOffset = start + data.size() - trailingBytes;
    return scan;
}

QStringList RolloutActivityOverlay::watchedRollouts(const QDateTime &now) const
{
    const qint64 nowMs = now.toMSecsSinceEpoch();
    struct Entry
    {
        qint64 modificationNs;
        QString path;
    };
    std::vector<Entry> running, settling;
    for (auto it = m_activityCache.cbegin(); it != m_activityCache.cend(); ++it) {
        if (!it->status)
            continue;
        if (*it->status == RackStatus::working)
            running.push_back({it->modificationNs, it.key()});
        else if (it->expiresAtMs && *it->expiresAtMs > nowMs)
            settling.push_back({it->modificationNs, it.key()});
    }
    const auto newestFirst = [](const Entry &a, const Entry &b) {
        return a.modificationNs != b.modificationNs ? a.modificationNs > b.modificationNs
                                                    : a.path < b.path;
    };
    std::sort(running.begin(), running.end(), newestFirst);
    std::sort(settling.begin(), settling.end(), newestFirst);

    QStringList paths;
    for (const auto *list : {&running, &settling})
        for (const Entry &entry : *list)
            if (paths.size() < maximumWatchedRolloutCount)
                paths.append(entry.path);
    return paths;
}

} // namespace taskrack
