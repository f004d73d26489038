#include "sources/claude/claudesessionmanifest.h"

#include "core/jsonobject.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>

namespace taskrack {

namespace {

struct Decoder
{
    const QJsonObject &object;
    bool failed = false;

    QString requiredString(const char *key)
    {
        const QJsonValue value = object.value(QLatin1StringView(key));
        if (!value.isString())
            failed = true;
        return value.toString();
    }

    std::optional<QString> optionalString(const char *key)
    {
        const QJsonValue value = object.value(QLatin1StringView(key));
        if (value.isUndefined() || value.isNull())
            return std::nullopt;
        if (!value.isString()) {
            failed = true;
            return std::nullopt;
        }
        return value.toString();
    }

    static std::optional<qint64> integerOf(const QJsonValue &value)
    {
        if (!value.isDouble())
            return std::nullopt;
        const double number = value.toDouble();
        // Only whole numbers in range: an integer field never accepts 1.5.
        if (!std::isfinite(number) || std::floor(number) != number || std::abs(number) > 9.0e15)
            return std::nullopt;
        return value.toInteger();
    }

    qint64 requiredInteger(const char *key)
    {
        const auto value = integerOf(object.value(QLatin1StringView(key)));
        if (!value)
            failed = true;
        return value.value_or(0);
    }

    std::optional<qint64> optionalInteger(const char *key)
    {
        const QJsonValue value = object.value(QLatin1StringView(key));
        if (value.isUndefined() || value.isNull())
            return std::nullopt;
        const auto integer = integerOf(value);
        if (!integer)
            failed = true;
        return integer;
    }

    bool optionalBool(const char *key)
    {
        const QJsonValue value = object.value(QLatin1StringView(key));
        if (value.isUndefined() || value.isNull())
            return false;
        if (!value.isBool())
            failed = true;
        return value.toBool();
    }
};

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
    Decoder decoder{object};

    ClaudeDesktopSessionManifest manifest;
    manifest.sessionId = decoder.requiredString("sessionId");
    manifest.cliSessionId = decoder.optionalString("cliSessionId");
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
    manifest.cwd = decoder.requiredString("cwd");
    manifest.originCwd = decoder.requiredString("originCwd");
    manifest.createdAt = decoder.requiredInteger("createdAt");
    manifest.lastActivityAt = decoder.requiredInteger("lastActivityAt");
    manifest.lastFocusedAt = decoder.optionalInteger("lastFocusedAt");
    manifest.model = decoder.requiredString("model");
    manifest.isArchived = decoder.optionalBool("isArchived");
    manifest.title = decoder.optionalString("title");
    manifest.completedTurns = decoder.optionalInteger("completedTurns");
    manifest.transcriptUnavailable = decoder.optionalBool("transcriptUnavailable");
    manifest.error = decoder.optionalString("error");
    manifest.errorAt = decoder.optionalInteger("errorAt");
    if (decoder.failed)
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
