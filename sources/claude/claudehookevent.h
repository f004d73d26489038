#pragma once

// One Claude Code hook event as Taskrack keeps it, the two wire forms it travels in, and what
// each event name means for a task's status.
//
// The helper that Claude Code runs decodes the hook's JSON into this value (so everything not
// declared here, the prompt text above all, is never even read), and posts it as a map of
// strings. The application rebuilds the value from that map. Both sides use this file, so the
// keys cannot drift apart. It depends on Qt Core only: the helper must stay small.

#include <QByteArrayView>
#include <QMap>
#include <QString>
#include <QVariant>
#include <optional>

namespace taskrack {

struct ClaudeHookEvent
{
    QString sessionId;
    // Carried for completeness; no decision reads it.
    QString cwd;
    QString hookEventName;
    std::optional<QString> notificationType;
    std::optional<QString> transcriptPath;
    // How many background tasks Claude Code listed; absent when the payload had no list.
    std::optional<qint64> backgroundTaskCount;
    // The event came from a sub-agent (its payload named an agent).
    bool isAgent = false;

    bool operator==(const ClaudeHookEvent &) const = default;
};

// Hook payloads carry whole prompts, tool inputs and answers, so they can be large; anything
// past this is not an event Taskrack needs to see.
inline constexpr qsizetype claudeHookInputMaximumBytes = 4 * 1024 * 1024;

// Decodes the JSON object Claude Code writes on the helper's standard input. Required:
// "session_id", "cwd", "hook_event_name" (strings). Optional: "notification_type",
// "transcript_path", "agent_id" (strings or null), "background_tasks" (an array of objects, of
// which only the count is kept). A declared key of the wrong type refuses the whole payload;
// undeclared keys are skipped without being looked at.
std::optional<ClaudeHookEvent> decodeClaudeHookInput(QByteArrayView json);

// The event as the string map the helper posts.
QMap<QString, QString> claudeHookNotificationFields(const ClaudeHookEvent &event);

// Rebuilds an event from a posted map. Values that are not strings count as missing. Missing
// required keys drop the event; a bad background count is treated as absent; "is_agent" is
// true only for the exact string "true".
std::optional<ClaudeHookEvent> claudeHookEventFromNotification(const QVariantMap &fields);

// What an event does to a session's pending input request.
enum class ClaudeInputRequestAction { set, clear, leave };
ClaudeInputRequestAction claudeInputRequestAction(const ClaudeHookEvent &event);

// Whether a source applies an event at all, and whether it refreshes the background-task
// snapshot. Sub-agent events are ignored unless they are a stop that reports a count, or the
// end of the session.
enum class ClaudeHookDisposition { ignore, apply, applyWithBackgroundUpdate };
ClaudeHookDisposition claudeHookDisposition(const ClaudeHookEvent &event);

// The active background-task count a snapshot takes from an event: the reported count, or 0
// when it is absent or negative.
qint64 claudeActiveBackgroundTaskCount(const ClaudeHookEvent &event);

} // namespace taskrack
