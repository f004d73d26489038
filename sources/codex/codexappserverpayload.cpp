#include "sources/codex/codexappserverpayload.h"

#include "core/strictjsonfields.h"
#include "sources/codex/codexappserverframe.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTextBoundaryFinder>

namespace taskrack {

namespace {

std::optional<CodexThreadPayload> decodePayload(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    StrictJsonFields fields(object);
    CodexThreadPayload payload;
    payload.id = fields.requiredString(QLatin1String("id"));
    payload.name = fields.optionalString(QLatin1String("name"));
    payload.preview = fields.requiredString(QLatin1String("preview"));
    payload.cwd = fields.requiredString(QLatin1String("cwd"));
    payload.updatedAt = fields.requiredInteger(QLatin1String("updatedAt"));
    payload.recencyAt = fields.optionalInteger(QLatin1String("recencyAt"));
    payload.parentThreadId = fields.optionalString(QLatin1String("parentThreadId"));
    if (fields.failed())
        return std::nullopt;
    if (!object.contains(QLatin1String("source")))
        return std::nullopt;
    payload.source = object.value(QLatin1String("source"));
    std::optional<CodexThreadStatus> status =
        decodeCodexThreadStatus(object.value(QLatin1String("status")));
    if (!status)
        return std::nullopt;
    payload.status = *status;
    const QJsonValue gitInfo = object.value(QLatin1String("gitInfo"));
    if (gitInfo.isObject()) {
        const QJsonObject gitObject = gitInfo.toObject();
        StrictJsonFields gitFields(gitObject);
        CodexGitInfo info;
        info.originUrl = gitFields.optionalString(QLatin1String("originUrl"));
        if (gitFields.failed())
            return std::nullopt;
        payload.gitInfo = info;
    } else if (!gitInfo.isUndefined() && !gitInfo.isNull()) {
        return std::nullopt;
    }
    return payload;
}

QDateTime fromSeconds(qint64 seconds)
{
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
}

// Titles are cut by what a reader sees as characters, so an emoji or an accented letter made
// of several code points is never split.
QString limitTitle(const QString &text)
{
    constexpr int longest = 84;
    constexpr int kept = 83;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    qsizetype cut = -1;
    while (finder.toNextBoundary() != -1) {
        ++count;
        if (count == kept)
            cut = finder.position();
        if (count > longest)
            return text.left(cut) + QChar(0x2026);
    }
    return text;
}

} // namespace

std::optional<CodexThreadListResponse> decodeCodexThreadListResponse(const QJsonValue &result)
{
    if (!result.isObject())
        return std::nullopt;
    const QJsonObject object = result.toObject();
    const QJsonValue data = object.value(QLatin1String("data"));
    if (!data.isArray())
        return std::nullopt;
    CodexThreadListResponse response;
    StrictJsonFields fields(object);
    response.nextCursor = fields.optionalString(QLatin1String("nextCursor"));
    if (fields.failed())
        return std::nullopt;
    const QJsonArray array = data.toArray();
    response.data.reserve(array.size());
    for (const QJsonValue &element : array) {
        std::optional<CodexThreadPayload> payload = decodePayload(element);
        if (!payload)
            return std::nullopt;
        response.data.append(std::move(*payload));
    }
    return response;
}

QString codexThreadTitle(const std::optional<QString> &name, const QString &preview)
{
    QString title = name ? name->trimmed() : QString();
    if (title.isEmpty()) {
        const QStringList lines = preview.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        if (!lines.isEmpty())
            title = lines.first().trimmed();
    }
    if (title.isEmpty())
        return QStringLiteral("Untitled Codex task");
    return limitTitle(title);
}

QString codexThreadSourceLabel(const QJsonValue &source)
{
    if (source.isString())
        return source.toString();
    if (source.isObject()) {
        const QJsonObject object = source.toObject();
        const QJsonValue custom = object.value(QLatin1String("custom"));
        if (custom.isString())
            return custom.toString();
        if (object.contains(QLatin1String("subAgent")))
            return QStringLiteral("subAgent");
    }
    return QStringLiteral("Codex");
}

RackThread mapCodexThreadPayload(const CodexThreadPayload &payload,
                                 RackProjectIdentity projectIdentity,
                                 RackCheckoutMetadata checkoutMetadata)
{
    RackThread thread;
    thread.id = codexThreadPrefix + payload.id;
    thread.provider = RackProvider::codex;
    thread.providerThreadID = payload.id;
    thread.title = codexThreadTitle(payload.name, payload.preview);
    thread.preview = payload.preview.trimmed();
    thread.workspacePath = payload.cwd;
    thread.projectIdentity = std::move(projectIdentity);
    thread.updatedAt = fromSeconds(payload.updatedAt);
    thread.recencyAt = payload.recencyAt && *payload.recencyAt >= 1
                           ? fromSeconds(*payload.recencyAt)
                           : thread.updatedAt;
    thread.status = rackStatus(payload.status);
    thread.source = codexThreadSourceLabel(payload.source);
    thread.checkoutMetadata = std::move(checkoutMetadata);
    return thread;
}

std::optional<RackThread> applyCodexStatusOverride(const RackThread &thread,
                                                   const CodexStatusUpdate &override)
{
    if (override.updatedAt && *override.updatedAt < thread.updatedAt)
        return std::nullopt;
    RackThread result = thread;
    result.status = rackStatus(override.status);
    if (override.updatedAt)
        result.updatedAt = *override.updatedAt;
    if (override.recencyAt)
        result.recencyAt = *override.recencyAt;
    return result;
}

namespace {

// The thread id and the turn object shared by both turn notifications.
std::optional<std::pair<QString, QJsonObject>> turnParams(const QJsonValue &params)
{
    if (!params.isObject())
        return std::nullopt;
    const QJsonObject object = params.toObject();
    const QJsonValue threadId = object.value(QLatin1String("threadId"));
    const QJsonValue turn = object.value(QLatin1String("turn"));
    if (!threadId.isString() || !turn.isObject())
        return std::nullopt;
    return std::make_pair(threadId.toString(), turn.toObject());
}

} // namespace

std::optional<CodexStatusUpdate> decodeCodexTurnStarted(const QJsonValue &params)
{
    const auto decoded = turnParams(params);
    if (!decoded)
        return std::nullopt;
    CodexStatusUpdate update{decoded->first,
                             CodexThreadStatus{QStringLiteral("active"), std::nullopt},
                             std::nullopt, std::nullopt};
    // Only whole seconds count as a start time; anything else leaves the moment unknown.
    if (const std::optional<qint64> startedAt =
            codexIntegralValue(decoded->second.value(QLatin1String("startedAt")))) {
        update.updatedAt = fromSeconds(*startedAt);
        update.recencyAt = update.updatedAt;
    }
    return update;
}

std::optional<CodexStatusUpdate> decodeCodexTurnCompleted(const QJsonValue &params)
{
    const auto decoded = turnParams(params);
    if (!decoded)
        return std::nullopt;
    const QJsonValue status = decoded->second.value(QLatin1String("status"));
    if (!status.isString())
        return std::nullopt;
    CodexStatusUpdate update{decoded->first, CodexThreadStatus{status.toString(), std::nullopt},
                             std::nullopt, std::nullopt};
    const QJsonValue completedAt = decoded->second.value(QLatin1String("completedAt"));
    if (!completedAt.isUndefined() && !completedAt.isNull()) {
        update.updatedAt = codexDateFromSeconds(completedAt);
        if (!update.updatedAt)
            return std::nullopt;
    }
    return update;
}

} // namespace taskrack
