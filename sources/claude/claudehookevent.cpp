#include "sources/claude/claudehookevent.h"

#include "core/jsonobject.h"
#include "core/strictjsonfields.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <charconv>
#include <limits>

namespace taskrack {

namespace {

constexpr QLatin1StringView sessionIdKey("session_id");
constexpr QLatin1StringView cwdKey("cwd");
constexpr QLatin1StringView hookEventNameKey("hook_event_name");
constexpr QLatin1StringView notificationTypeKey("notification_type");
constexpr QLatin1StringView transcriptPathKey("transcript_path");
constexpr QLatin1StringView backgroundTasksKey("background_tasks");
constexpr QLatin1StringView agentIdKey("agent_id");
constexpr QLatin1StringView backgroundTaskCountKey("background_task_count");
constexpr QLatin1StringView isAgentKey("is_agent");

std::optional<QString> stringField(const QVariantMap &fields, const QString &key)
{
    const auto it = fields.constFind(key);
    if (it == fields.constEnd() || it->typeId() != QMetaType::QString)
        return std::nullopt;
    return it->toString();
}

// A decimal with an optional sign and nothing else; no spaces, no fractions, no overflow.
std::optional<qint64> parseSignedDecimal(const QString &text)
{
    const QByteArray ascii = text.toLatin1();
    if (text.isEmpty() || ascii.size() != text.size())
        return std::nullopt;
    const char *begin = ascii.constData();
    const char *end = begin + ascii.size();
    bool negative = false;
    if (*begin == '+' || *begin == '-') {
        negative = *begin == '-';
        ++begin;
    }
    // from_chars would accept a second sign after ours.
    if (begin == end || *begin < '0' || *begin > '9')
        return std::nullopt;
    quint64 magnitude = 0;
    const auto [last, error] = std::from_chars(begin, end, magnitude);
    if (error != std::errc() || last != end)
        return std::nullopt;
    constexpr quint64 maximum = quint64(std::numeric_limits<qint64>::max());
    if (negative) {
        if (magnitude > maximum + 1)
            return std::nullopt;
        return qint64(0 - magnitude);
    }
    if (magnitude > maximum)
        return std::nullopt;
    return qint64(magnitude);
}

bool isStopEvent(const QString &name)
{
    return name == QLatin1String("Stop") || name == QLatin1String("SubagentStop");
}

} // namespace

std::optional<ClaudeHookEvent> decodeClaudeHookInput(QByteArrayView json)
{
    if (json.size() > claudeHookInputMaximumBytes)
        return std::nullopt;
    const std::optional<QJsonObject> parsed =
        parseJsonObject(QByteArrayView(json.data(), json.size()));
    if (!parsed)
        return std::nullopt;
    const QJsonObject &object = *parsed;

    StrictJsonFields fields(object);
    ClaudeHookEvent event;
    event.sessionId = fields.requiredString(sessionIdKey);
    event.cwd = fields.requiredString(cwdKey);
    event.hookEventName = fields.requiredString(hookEventNameKey);
    event.notificationType = fields.optionalString(notificationTypeKey);
    event.transcriptPath = fields.optionalString(transcriptPathKey);
    event.isAgent = fields.optionalString(agentIdKey).has_value();
    if (fields.failed())
        return std::nullopt;

    const QJsonValue tasks = object.value(backgroundTasksKey);
    if (tasks.isArray()) {
        const QJsonArray list = tasks.toArray();
        // Each task is a record; nothing inside it is read, only that it is one.
        for (const QJsonValue &task : list) {
            if (!task.isObject())
                return std::nullopt;
        }
        event.backgroundTaskCount = list.size();
    } else if (!tasks.isUndefined() && !tasks.isNull()) {
        return std::nullopt;
    }
    return event;
}

QMap<QString, QString> claudeHookNotificationFields(const ClaudeHookEvent &event)
{
    QMap<QString, QString> fields;
    fields.insert(sessionIdKey, event.sessionId);
    fields.insert(cwdKey, event.cwd);
    fields.insert(hookEventNameKey, event.hookEventName);
    if (event.notificationType)
        fields.insert(notificationTypeKey, *event.notificationType);
    if (event.transcriptPath)
        fields.insert(transcriptPathKey, *event.transcriptPath);
    if (event.backgroundTaskCount)
        fields.insert(backgroundTaskCountKey, QString::number(*event.backgroundTaskCount));
    if (event.isAgent)
        fields.insert(isAgentKey, QStringLiteral("true"));
    return fields;
}

std::optional<ClaudeHookEvent> claudeHookEventFromNotification(const QVariantMap &fields)
{
    ClaudeHookEvent event;
    std::optional<QString> sessionId = stringField(fields, sessionIdKey);
    std::optional<QString> cwd = stringField(fields, cwdKey);
    std::optional<QString> name = stringField(fields, hookEventNameKey);
    if (!sessionId || !cwd || !name)
        return std::nullopt;
    event.sessionId = std::move(*sessionId);
    event.cwd = std::move(*cwd);
    event.hookEventName = std::move(*name);
    event.notificationType = stringField(fields, notificationTypeKey);
    event.transcriptPath = stringField(fields, transcriptPathKey);
    if (std::optional<QString> count = stringField(fields, backgroundTaskCountKey))
        event.backgroundTaskCount = parseSignedDecimal(*count);
    event.isAgent = stringField(fields, isAgentKey) == QStringLiteral("true");
    return event;
}

ClaudeInputRequestAction claudeInputRequestAction(const ClaudeHookEvent &event)
{
    const QString &name = event.hookEventName;
    if (name == QLatin1String("PermissionRequest"))
        return ClaudeInputRequestAction::set;
    if (name == QLatin1String("Notification")) {
        const QString type = event.notificationType.value_or(QString());
        if (type == QLatin1String("permission_prompt") ||
            type == QLatin1String("elicitation_dialog"))
            return ClaudeInputRequestAction::set;
        if (type == QLatin1String("elicitation_complete") ||
            type == QLatin1String("elicitation_response"))
            return ClaudeInputRequestAction::clear;
        // "idle_prompt" only says the person has not typed for a while.
        return ClaudeInputRequestAction::leave;
    }
    if (name == QLatin1String("UserPromptSubmit") || name == QLatin1String("Stop") ||
        name == QLatin1String("StopFailure") || name == QLatin1String("SessionEnd"))
        return ClaudeInputRequestAction::clear;
    return ClaudeInputRequestAction::leave;
}

ClaudeHookDisposition claudeHookDisposition(const ClaudeHookEvent &event)
{
    const QString &name = event.hookEventName;
    if (name == QLatin1String("SessionEnd"))
        return ClaudeHookDisposition::applyWithBackgroundUpdate;
    if (isStopEvent(name)) {
        // A sub-agent's stop still tells the parent how much work runs in the background.
        if (event.backgroundTaskCount)
            return ClaudeHookDisposition::applyWithBackgroundUpdate;
        return event.isAgent ? ClaudeHookDisposition::ignore : ClaudeHookDisposition::apply;
    }
    return event.isAgent ? ClaudeHookDisposition::ignore : ClaudeHookDisposition::apply;
}

qint64 claudeActiveBackgroundTaskCount(const ClaudeHookEvent &event)
{
    const qint64 count = event.backgroundTaskCount.value_or(0);
    return count < 0 ? 0 : count;
}

} // namespace taskrack
