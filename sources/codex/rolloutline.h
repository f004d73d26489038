#pragma once

// The one part of Codex's rollout format that says whether a turn runs: lifecycle lines.
// A rollout is UTF-8 text, one JSON object per line; a lifecycle line has "type" "event_msg"
// and a payload whose "type" is "task_started", "task_complete" or "turn_aborted". Everything
// here works on bytes without I/O so that it can be fuzzed and benchmarked on its own.

#include <QByteArrayView>
#include <QtGlobal>
#include <optional>

namespace taskrack {

enum class RolloutLifecycleKind {
    taskStarted,
    taskComplete,
    // A turn that ended because the model or transport failed: Codex writes "task_complete"
    // with a non-null "error" in the payload.
    taskFailed,
    // A turn the person interrupted.
    turnAborted,
};

struct RolloutLifecycleEvent
{
    RolloutLifecycleKind kind = RolloutLifecycleKind::taskStarted;
    // Milliseconds since 1970; absent when the line had no time or it did not parse. The event
    // counts all the same.
    std::optional<qint64> timestampMs;

    bool operator==(const RolloutLifecycleEvent &) const = default;
};

// The event of one line (without its newline), or nothing for any other line, including lines
// that are not JSON objects.
std::optional<RolloutLifecycleEvent> classifyRolloutLine(QByteArrayView line);

// An ISO 8601 date and time with a zone ("2026-11-22T19:53:36.533Z", "...+02:00"), fractional
// seconds optional and kept to the millisecond.
std::optional<qint64> parseRolloutTimestamp(QByteArrayView text);

// What a run of lifecycle lines adds up to. File order decides, not timestamps.
struct RolloutLifecycleAccumulator
{
    std::optional<RolloutLifecycleEvent> latestEvent;
    std::optional<qint64> latestStartMs;

    void feed(const RolloutLifecycleEvent &event);
    bool operator==(const RolloutLifecycleAccumulator &) const = default;
};

} // namespace taskrack
