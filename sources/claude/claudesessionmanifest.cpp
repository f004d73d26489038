#include "sources/claude/claudesessionmanifest.h"

#include "core/jsonobject.h"
#include "core/strictjsonfields.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace taskrack {

using namespace Qt::Literals::StringLiterals;

namespace {

// Both lineage keys are read leniently: a malformed one gives no parent, never a failure.
std::optional<QString> parentCandidate(const QJsonObject &object)
{
    const QJsonValue spawned = object.value(QLatin1StringView("spawnedFrom"));
    if (spawned.isObject()) {
        const QJsonValue id = spawned.toObject().value(QLatin1StringView("sessionId"));
        if (id.isString())
            return id.toString();
    }
    const QJsonValue forked = object.value(QLatin1StringView("forkedFromSessionId"));
    if (forked.isString())
        return forked.toString();
    return std::nullopt;
}

bool fits(const QString &text, qsizetype limit)
{
    // UTF-8 is at most three bytes per UTF-16 unit: skip the conversion when it cannot matter.
    if (text.size() * 3 <= limit)
        return true;
    return text.toUtf8().size() <= limit;
}

bool fits(const std::optional<QString> &text, qsizetype limit)
{
    return !text || fits(*text, limit);
}

} // namespace

std::optional<ClaudeDesktopSessionManifest> decodeClaudeSessionManifest(QByteArrayView data)
{
    const std::optional<QJsonObject> parsed = parseJsonObject(data);
    if (!parsed)
        return std::nullopt;
    const QJsonObject &object = *parsed;
    StrictJsonFields decoder(object);

    ClaudeDesktopSessionManifest manifest;
    manifest.sessionId = decoder.requiredString("sessionId"_L1);
    manifest.cliSessionId = decoder.optionalString("cliSessionId"_L1);
    const QJsonValue bridge = object.value(QLatin1StringView("bridgeSessionIds"));
    if (bridge.isArray()) {
        for (const QJsonValue &id : bridge.toArray()) {
            if (!id.isString())
                return std::nullopt;
            manifest.bridgeSessionIds.append(id.toString());
        }
    } else if (!bridge.isUndefined() && !bridge.isNull()) {
        return std::nullopt;
    }
    manifest.cwd = decoder.requiredString("cwd"_L1);
    manifest.originCwd = decoder.requiredString("originCwd"_L1);
    manifest.createdAt = decoder.requiredInteger("createdAt"_L1);
    manifest.lastActivityAt = decoder.requiredInteger("lastActivityAt"_L1);
    manifest.lastFocusedAt = decoder.optionalInteger("lastFocusedAt"_L1);
    manifest.model = decoder.requiredString("model"_L1);
    manifest.isArchived = decoder.optionalBool("isArchived"_L1).value_or(false);
    manifest.title = decoder.optionalString("title"_L1);
    manifest.completedTurns = decoder.optionalInteger("completedTurns"_L1);
    manifest.transcriptUnavailable =
        decoder.optionalBool("transcriptUnavailable"_L1).value_or(false);
    manifest.error = decoder.optionalString("error"_L1);
    manifest.errorAt = decoder.optionalInteger("errorAt"_L1);
    if (decoder.failed())
        return std::nullopt;

    if (auto candidate = parentCandidate(object)) {
        const QString trimmed = candidate->trimmed();
        if (!trimmed.isEmpty() && trimmed != manifest.sessionId)
            manifest.parentSessionId = trimmed;
    }
    return manifest;
}

QSet<QString> ClaudeDesktopSessionManifest::aliases() const
{
    QSet<QString> result{sessionId};
    if (cliSessionId && !cliSessionId->isEmpty())
        result.insert(*cliSessionId);
    for (const QString &id : bridgeSessionIds) {
        if (!id.isEmpty())
            result.insert(id);
    }
    return result;
}

bool ClaudeDesktopSessionManifest::isWithinLimits() const
{
    using namespace claudelimits;
    if (bridgeSessionIds.size() > bridgeIdCount)
        return false;
    if (!fits(sessionId, identifierBytes) || !fits(cliSessionId, identifierBytes) ||
        !fits(parentSessionId, identifierBytes))
        return false;
    for (const QString &id : bridgeSessionIds) {
        if (!fits(id, identifierBytes))
            return false;
    }
    return fits(cwd, pathBytes) && fits(originCwd, pathBytes) && fits(model, modelBytes) &&
           fits(title, textBytes) && fits(error, textBytes);
}

std::optional<QString> ClaudeDesktopSessionManifest::transcriptKey() const
{
    if (!cliSessionId)
        return std::nullopt;
    const QString trimmed = cliSessionId->trimmed();
    if (trimmed.isEmpty())
        return std::nullopt;
    return trimmed;
}

QString ClaudeDesktopSessionManifest::projectPath() const
{
    const QString trimmed = originCwd.trimmed();
    return trimmed.isEmpty() ? cwd : trimmed;
}

} // namespace taskrack
