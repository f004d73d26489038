#pragma once

// What the hook helper keeps of the JSON object Claude Code writes on its standard input: the
// session, the event and a few facts about it, as the string map the application's listener
// reads. Everything else, the prompt and the assistant's answers above all, is dropped unread.
//
// A pure function over bytes, so that it can be fuzzed and held against the application's own
// decoding of the same payloads.

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace taskrack {

// Payloads carry whole prompts and tool results; past this size the event is not worth posting.
inline constexpr std::size_t hookPayloadMaximumBytes = 4 * 1024 * 1024;

enum class HookPayloadVerdict {
    // Not (or not yet) one JSON object: a reader still receiving it should wait for more.
    notAnObject,
    // A complete object that does not describe an event: required keys missing or mistyped.
    unusable,
    kept,
};

struct FilteredHookPayload
{
    HookPayloadVerdict verdict = HookPayloadVerdict::notAnObject;
    // Only when kept: "session_id", "cwd", "hook_event_name", and when present
    // "notification_type", "transcript_path", "background_task_count" (the number of elements
    // of "background_tasks") and "is_agent" ("true" when "agent_id" is present). Values are
    // well-formed UTF-8 without NUL characters, which a D-Bus string cannot carry.
    std::map<std::string, std::string> fields;

    bool operator==(const FilteredHookPayload &) const = default;
};

FilteredHookPayload filterHookPayload(std::string_view bytes);

// The same for the JSON object a Codex hook writes. Kept: "session_id", "cwd",
// "hook_event_name", and when present "turn_id", "transcript_path", "agent_id", "tool_name" (on
// "PreToolUse" only) and "status" (on "PostModelRequest" only). The prompt, tool input and the
// last assistant message are never decoded.
FilteredHookPayload filterCodexHookPayload(std::string_view bytes);

} // namespace taskrack
