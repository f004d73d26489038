#include "sources/claude/claudesessionevidence.h"

#include "core/jsonobject.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>
#include <limits>

namespace taskrack {

namespace {

constexpr qint64 referenceEpochMs = 978'307'200'000LL;

double ageSeconds(const QDateTime &date, const QDateTime &now)
{
    return double(now.toMSecsSinceEpoch() - date.toMSecsSinceEpoch()) / 1000.0;
}

std::optional<QDateTime> dateOf(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    QDateTime date = claudeDateFromReferenceSeconds(value.toDouble());
    return date.isValid() ? std::optional(date) : std::nullopt;
}

// Each entry decoder returns nothing on a malformed entry, which fails the whole file.
template <typename T, typename F>
std::optional<QHash<QString, T>> decodeMap(const QJsonObject &root, const char *key, F decodeEntry)
{
    QHash<QString, T> result;
    const QJsonValue value = root.value(QLatin1StringView(key));
    if (value.isUndefined() || value.isNull())
        return result;
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!it.value().isObject())
            return std::nullopt;
        auto entry = decodeEntry(it.value().toObject());
        if (!entry)
            return std::nullopt;
        result.insert(it.key(), *entry);
    }
    return result;
}

} // namespace

void ClaudeSessionEvidence::forget(const QString &sessionId)
{
    observations.remove(sessionId);
    inputRequests.remove(sessionId);
    backgroundTaskSnapshots.remove(sessionId);
}

double claudeReferenceSeconds(const QDateTime &date)
{
    return double(date.toMSecsSinceEpoch() - referenceEpochMs) / 1000.0;
}

QDateTime claudeDateFromReferenceSeconds(double seconds)
{
    if (!std::isfinite(seconds) || std::abs(seconds) > 1e11)
        return {};
    return QDateTime::fromMSecsSinceEpoch(referenceEpochMs + qint64(std::llround(seconds * 1000.0)),
                                          Qt::UTC);
}

QByteArray encodeClaudeSessionEvidence(const ClaudeSessionEvidence &evidence)
{
    QJsonObject observations;
    for (auto it = evidence.observations.cbegin(); it != evidence.observations.cend(); ++it) {
        QJsonObject entry{{"status", rawValue(it->status)},
                          {"observedAt", claudeReferenceSeconds(it->observedAt)}};
        if (it->lastUserSubmittedAt)
            entry.insert("lastUserSubmittedAt", claudeReferenceSeconds(*it->lastUserSubmittedAt));
        observations.insert(it.key(), entry);
    }
    QJsonObject inputRequests;
    for (auto it = evidence.inputRequests.cbegin(); it != evidence.inputRequests.cend(); ++it)
        inputRequests.insert(it.key(),
                             QJsonObject{{"requestedAt", claudeReferenceSeconds(it->requestedAt)}});
    QJsonObject snapshots;
    for (auto it = evidence.backgroundTaskSnapshots.cbegin();
         it != evidence.backgroundTaskSnapshots.cend(); ++it) {
        snapshots.insert(it.key(),
                         QJsonObject{{"activeTaskCount", it->activeTaskCount},
                                     {"observedAt", claudeReferenceSeconds(it->observedAt)}});
    }
    const QJsonObject root{{"observations", observations},
                           {"inputRequests", inputRequests},
                           {"backgroundTaskSnapshots", snapshots}};
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

std::optional<ClaudeSessionEvidence> decodeClaudeSessionEvidence(QByteArrayView data)
{
    const std::optional<QJsonObject> parsed = parseJsonObject(data);
    if (!parsed)
        return std::nullopt;
    const QJsonObject &root = *parsed;

    auto observations = decodeMap<ClaudeObservedStatus>(
        root, "observations", [](const QJsonObject &entry) -> std::optional<ClaudeObservedStatus> {
            const auto status = statusFromRaw(entry.value("status").toString());
            const auto observedAt = dateOf(entry.value("observedAt"));
            if (!status || !observedAt)
                return std::nullopt;
            ClaudeObservedStatus observed{*status, *observedAt, std::nullopt};
            const QJsonValue submitted = entry.value("lastUserSubmittedAt");
            if (!submitted.isUndefined() && !submitted.isNull()) {
                observed.lastUserSubmittedAt = dateOf(submitted);
                if (!observed.lastUserSubmittedAt)
                    return std::nullopt;
            }
            return observed;
        });
    auto inputRequests = decodeMap<ClaudeInputRequest>(
        root, "inputRequests", [](const QJsonObject &entry) -> std::optional<ClaudeInputRequest> {
            const auto requestedAt = dateOf(entry.value("requestedAt"));
            return requestedAt ? std::optional(ClaudeInputRequest{*requestedAt}) : std::nullopt;
        });
    auto snapshots = decodeMap<ClaudeBackgroundTaskSnapshot>(
        root, "backgroundTaskSnapshots",
        [](const QJsonObject &entry) -> std::optional<ClaudeBackgroundTaskSnapshot> {
            const QJsonValue count = entry.value("activeTaskCount");
            const auto observedAt = dateOf(entry.value("observedAt"));
            if (!count.isDouble() || count.toDouble() != std::floor(count.toDouble()) ||
                !observedAt)
                return std::nullopt;
            return ClaudeBackgroundTaskSnapshot{count.toInteger(), *observedAt};
        });
    if (!observations || !inputRequests || !snapshots)
        return std::nullopt;
    return ClaudeSessionEvidence{*observations, *inputRequests, *snapshots};
}

double claudeStatusAgeLimit(RackStatus status)
{
    switch (status) {
    case RackStatus::requiresInput:
    case RackStatus::working:
        return 43'200;
    case RackStatus::error:
        return 120;
    case RackStatus::completed:
        return 900;
    case RackStatus::idle:
        return 1'800;
    case RackStatus::recent:
        break;
    }
    return std::numeric_limits<double>::infinity();
}

RackStatus claudeLiveStatus(const ClaudeSessionFacts &facts, const QDateTime &now)
{
    RackStatus status = RackStatus::recent;
    if (facts.observation) {
        RackStatus observed = facts.observation->status;
        // A turn still open when its process died was cut short: shown as an interrupted one.
        if (facts.processEnded &&
            (observed == RackStatus::working || observed == RackStatus::requiresInput))
            observed = RackStatus::error;
        if (ageSeconds(facts.observation->observedAt, now) < claudeStatusAgeLimit(observed))
            status = observed;
    }
    // Busy flags, background tasks and prompts all belonged to the process that is gone.
    if (facts.processEnded)
        return status;

    // A running process that says it is busy, more recently than the transcript spoke, is
    // working whatever the transcript's last line was.
    if (const auto *live = facts.liveEntry;
        live && live->isBusy && live->statusUpdatedAt &&
        ageSeconds(*live->statusUpdatedAt, now) < claudeLiveBusyAgeLimit &&
        (!facts.observation || *live->statusUpdatedAt > facts.observation->observedAt)) {
        if (status != RackStatus::requiresInput)
            status = RackStatus::working;
    }

    if (const auto *tasks = facts.backgroundTasks;
        tasks && tasks->activeTaskCount >= 1 &&
        ageSeconds(tasks->observedAt, now) < claudeBackgroundTaskAgeLimit) {
        if (status == RackStatus::completed || status == RackStatus::idle ||
            status == RackStatus::recent)
            status = RackStatus::working;
    }

    if (const auto *request = facts.inputRequest;
        request && ageSeconds(request->requestedAt, now) < claudeInputRequestAgeLimit &&
        (!facts.observation || request->requestedAt > facts.observation->observedAt)) {
        if (status != RackStatus::recent)
            status = RackStatus::requiresInput;
    }
    return status;
}

QDateTime claudeUpdatedAt(const ClaudeSessionFacts &facts)
{
    QDateTime updated = facts.observation
                            ? facts.observation->observedAt
                            : QDateTime::fromMSecsSinceEpoch(facts.lastActivityAtMs, Qt::UTC);
    if (facts.inputRequest && facts.inputRequest->requestedAt > updated)
        updated = facts.inputRequest->requestedAt;
    if (facts.backgroundTasks && facts.backgroundTasks->observedAt > updated)
        updated = facts.backgroundTasks->observedAt;
    if (facts.liveEntry && facts.liveEntry->isBusy && facts.liveEntry->statusUpdatedAt &&
        *facts.liveEntry->statusUpdatedAt > updated)
        updated = *facts.liveEntry->statusUpdatedAt;
    if (facts.processEnded && facts.processEndedAt && *facts.processEndedAt > updated)
        updated = *facts.processEndedAt;
    return updated;
}

QDateTime claudeRecencyAt(const ClaudeSessionFacts &facts)
{
    if (facts.observation && facts.observation->lastUserSubmittedAt)
        return *facts.observation->lastUserSubmittedAt;
    return QDateTime::fromMSecsSinceEpoch(facts.lastActivityAtMs, Qt::UTC);
}

} // namespace taskrack
