#include "sources/codex/codexhookevent.h"

namespace taskrack {

namespace {

std::optional<QString> stringField(const QVariantMap &fields, const QString &key)
{
    const auto it = fields.constFind(key);
    if (it == fields.constEnd() || it->typeId() != QMetaType::QString)
        return std::nullopt;
    return it->toString();
}

} // namespace

std::optional<CodexHookEvent> codexHookEventFromNotification(const QVariantMap &fields)
{
    const std::optional<QString> session = stringField(fields, QStringLiteral("session_id"));
    const std::optional<QString> name = stringField(fields, QStringLiteral("hook_event_name"));
    const std::optional<QString> cwd = stringField(fields, QStringLiteral("cwd"));
    if (!session || session->isEmpty() || !name || !cwd)
        return std::nullopt;
    CodexHookEvent event;
    event.sessionId = *session;
    event.hookEventName = *name;
    event.cwd = *cwd;
    event.turnId = stringField(fields, QStringLiteral("turn_id"));
    event.transcriptPath = stringField(fields, QStringLiteral("transcript_path"));
    event.agentId = stringField(fields, QStringLiteral("agent_id"));
    event.toolName = stringField(fields, QStringLiteral("tool_name"));
    event.status = stringField(fields, QStringLiteral("status"));
    return event;
}

CodexHookEffect codexHookEffect(const CodexHookEvent &event)
{
    const QString &name = event.hookEventName;
    if (event.agentId)
        return {};
    if (name == QLatin1String("PermissionRequest") ||
        (name == QLatin1String("PreToolUse") &&
         event.toolName == QLatin1String("request_user_input")))
        return {RackStatus::requiresInput, false};
    if (name == QLatin1String("UserPromptSubmit") || name == QLatin1String("PostToolUse"))
        return {RackStatus::working, false};
    // A model request that finished normally after a declined approval: work goes on.
    if (name == QLatin1String("PostModelRequest"))
        return event.status == QLatin1String("completed")
                   ? CodexHookEffect{RackStatus::working, false}
                   : CodexHookEffect{std::nullopt, true};
    // The rollout's own completion is written after the hook returns; it confirms this later.
    if (name == QLatin1String("Stop"))
        return {RackStatus::completed, true};
    // An interrupted turn shows as an error, as its rollout will say.
    if (name == QLatin1String("Interrupt"))
        return {RackStatus::error, true};
    if (name == QLatin1String("SessionStart"))
        return {std::nullopt, true};
    return {};
}

} // namespace taskrack
