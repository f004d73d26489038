#include "sources/codex/codexstatus.h"

#include <QJsonArray>
#include <cmath>

namespace taskrack {

RackStatus rackStatus(const CodexThreadStatus &status)
{
    const QString &type = status.type;
    if (type == QLatin1String("active")) {
        if (status.activeFlags &&
            (status.activeFlags->contains(QLatin1String("waitingOnApproval")) ||
             status.activeFlags->contains(QLatin1String("waitingOnUserInput"))))
            return RackStatus::requiresInput;
        return RackStatus::working;
    }
    if (type == QLatin1String("systemError") || type == QLatin1String("failed") ||
        type == QLatin1String("interrupted"))
        return RackStatus::error;
    if (type == QLatin1String("completed"))
        return RackStatus::completed;
    if (type == QLatin1String("idle"))
        return RackStatus::idle;
    return RackStatus::recent;
}

RackStatusUpdate rackStatusUpdate(const CodexStatusUpdate &update)
{
    return RackStatusUpdate{codexThreadPrefix + update.threadId, rackStatus(update.status),
                            update.updatedAt, update.recencyAt};
}

std::optional<QDateTime> codexDateFromSeconds(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double seconds = value.toDouble();
    // Beyond this QDateTime arithmetic overflows; no real timestamp is anywhere near it.
    if (!std::isfinite(seconds) || std::fabs(seconds) > 1e13)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(seconds * 1000.0)), Qt::UTC);
}

std::optional<CodexThreadStatus> decodeCodexThreadStatus(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const QJsonValue type = object.value(QLatin1String("type"));
    if (!type.isString())
        return std::nullopt;
    CodexThreadStatus status{type.toString(), std::nullopt};
    const QJsonValue flags = object.value(QLatin1String("activeFlags"));
    if (flags.isArray()) {
        QStringList list;
        for (const QJsonValue &flag : flags.toArray()) {
            if (!flag.isString())
                return std::nullopt;
            list.append(flag.toString());
        }
        status.activeFlags = list;
    } else if (!flags.isUndefined() && !flags.isNull()) {
        return std::nullopt;
    }
    return status;
}

namespace {

// An optional date field: absent or null is fine, any other non-number spoils the record.
bool decodeOptionalDate(const QJsonObject &object, QLatin1String key, std::optional<QDateTime> &out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    out = codexDateFromSeconds(value);
    return out.has_value();
}

} // namespace

std::optional<CodexStatusUpdate> decodeCodexStatusUpdate(const QJsonValue &params)
{
    if (!params.isObject())
        return std::nullopt;
    const QJsonObject object = params.toObject();
    const QJsonValue threadId = object.value(QLatin1String("threadId"));
    if (!threadId.isString())
        return std::nullopt;
    std::optional<CodexThreadStatus> status =
        decodeCodexThreadStatus(object.value(QLatin1String("status")));
    if (!status)
        return std::nullopt;
    CodexStatusUpdate update{threadId.toString(), *status, std::nullopt, std::nullopt};
    if (!decodeOptionalDate(object, QLatin1String("updatedAt"), update.updatedAt) ||
        !decodeOptionalDate(object, QLatin1String("recencyAt"), update.recencyAt))
        return std::nullopt;
    return update;
}

} // namespace taskrack
