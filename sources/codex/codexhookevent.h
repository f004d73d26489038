#pragma once

// One Codex hook event as the helper posts it, and what it means for a task's status. The
// helper keeps only identifiers and a few words of vocabulary; the application rebuilds the
// event from the posted string map and decides here what it says.

#include "core/rackthread.h"

#include <QString>
#include <QVariantMap>
#include <optional>

namespace taskrack {

struct CodexHookEvent
{
    QString sessionId; // the thread of the root session, also for a sub-agent's events
    QString hookEventName;
    QString cwd;
    std::optional<QString> turnId;
    std::optional<QString> transcriptPath;
    std::optional<QString> agentId; // the sub-agent's thread, when a sub-agent caused it
    std::optional<QString> toolName;
    std::optional<QString> status; // of a model request: "completed", "failed", "cancelled"

    bool operator==(const CodexHookEvent &) const = default;
};

// Missing or non-string "session_id", "hook_event_name" or "cwd" drop the event; other values
// that are not strings count as absent.
std::optional<CodexHookEvent> codexHookEventFromNotification(const QVariantMap &fields);

// What an event does.
struct CodexHookEffect
{
    // The thread's status from now on, until its rollout says something newer.
    std::optional<RackStatus> status;
    // Read the local files again: a thread may have appeared, or a turn may have ended in a way
    // only the rollout can tell.
    bool refresh = false;

    bool operator==(const CodexHookEffect &) const = default;
};

// An approval or a question waits for the person; a prompt or a finished tool means work goes
// on; a stop is done; an interrupt ends the turn as an interrupted turn does. A failed model
// request is only a hint, since it repeats once per retry. A sub-agent's event never changes
// the root's status on its own.
CodexHookEffect codexHookEffect(const CodexHookEvent &event);

} // namespace taskrack
