#include "hookbridge/hookpayloadfilter.h"

#include "hookbridge/strictjsonreader.h"

#include <array>
#include <optional>
#include <span>

namespace taskrack {

namespace {

constexpr std::string_view sessionIdKey = "session_id";
constexpr std::string_view cwdKey = "cwd";
constexpr std::string_view hookEventNameKey = "hook_event_name";
constexpr std::string_view notificationTypeKey = "notification_type";
constexpr std::string_view transcriptPathKey = "transcript_path";
constexpr std::string_view backgroundTasksKey = "background_tasks";
constexpr std::string_view agentIdKey = "agent_id";

constexpr std::string_view turnIdKey = "turn_id";
constexpr std::string_view toolNameKey = "tool_name";
constexpr std::string_view statusKey = "status";

constexpr std::array<std::string_view, 8> codexReadKeys{
    sessionIdKey,      cwdKey,     hookEventNameKey, turnIdKey,
    transcriptPathKey, agentIdKey, toolNameKey,      statusKey};

constexpr std::array<std::string_view, 7> readKeys{
    sessionIdKey,       cwdKey,    hookEventNameKey, notificationTypeKey, transcriptPathKey,
    backgroundTasksKey, agentIdKey};

// A repeated key counts by its last occurrence, as the application's JSON decoding does.
const JsonMember *lastMember(const std::vector<JsonMember> &members, std::string_view key)
{
    for (auto it = members.rbegin(); it != members.rend(); ++it) {
        if (it->key == key)
            return &*it;
    }
    return nullptr;
}

bool carriesNul(const std::string &text)
{
    return text.find('\0') != std::string::npos;
}

enum class Presence { absent, present, wrongType };

// Absent and null both mean "not there"; any other kind but a string refuses the payload.
Presence optionalString(const std::vector<JsonMember> &members, std::string_view key,
                        std::string &out)
{
    const JsonMember *member = lastMember(members, key);
    if (!member || member->kind == JsonKind::null)
        return Presence::absent;
    if (member->kind != JsonKind::string || carriesNul(member->text))
        return Presence::wrongType;
    out = member->text;
    return Presence::present;
}

bool requiredString(const std::vector<JsonMember> &members, std::string_view key,
                    std::map<std::string, std::string> &fields)
{
    const JsonMember *member = lastMember(members, key);
    if (!member || member->kind != JsonKind::string || carriesNul(member->text))
        return false;
    fields.emplace(std::string(key), member->text);
    return true;
}

// Reads a payload that must name its session, folder and event, and keeps those three. The
// verdict to give when it does not.
std::optional<HookPayloadVerdict> readIdentity(std::string_view bytes,
                                               std::span<const std::string_view> keys,
                                               std::vector<JsonMember> &members,
                                               std::map<std::string, std::string> &fields)
{
    if (bytes.size() > hookPayloadMaximumBytes)
        return HookPayloadVerdict::notAnObject;
    std::optional<std::vector<JsonMember>> read = readTopLevelMembers(bytes, keys);
    if (!read)
        return HookPayloadVerdict::notAnObject;
    members = std::move(*read);
    if (!requiredString(members, sessionIdKey, fields) ||
        !requiredString(members, cwdKey, fields) ||
        !requiredString(members, hookEventNameKey, fields))
        return HookPayloadVerdict::unusable;
    return std::nullopt;
}

// Keeps each of `keys` that is a string; false when one is of another kind.
bool keepOptionalStrings(const std::vector<JsonMember> &members,
                         std::span<const std::string_view> keys,
                         std::map<std::string, std::string> &fields)
{
    for (const std::string_view key : keys) {
        std::string text;
        const Presence presence = optionalString(members, key, text);
        if (presence == Presence::wrongType)
            return false;
        if (presence == Presence::present)
            fields.emplace(std::string(key), std::move(text));
    }
    return true;
}

} // namespace

FilteredHookPayload filterHookPayload(std::string_view bytes)
{
    std::vector<JsonMember> read;
    std::map<std::string, std::string> fields;
    if (const auto verdict = readIdentity(bytes, readKeys, read, fields))
        return {*verdict, {}};
    const std::vector<JsonMember> *members = &read;
    FilteredHookPayload unusable{HookPayloadVerdict::unusable, {}};
    static constexpr std::array<std::string_view, 2> optional{notificationTypeKey,
                                                              transcriptPathKey};
    if (!keepOptionalStrings(read, optional, fields))
        return unusable;

    // Only whether an agent is named matters, not which one.
    std::string agentId;
    const Presence agent = optionalString(*members, agentIdKey, agentId);
    if (agent == Presence::wrongType)
        return unusable;
    if (agent == Presence::present)
        fields.emplace("is_agent", "true");

    if (const JsonMember *tasks = lastMember(*members, backgroundTasksKey);
        tasks && tasks->kind != JsonKind::null) {
        // Each task is a record; nothing inside it is read, only that it is one.
        if (tasks->kind != JsonKind::array || !tasks->arrayHoldsOnlyObjects)
            return unusable;
        fields.emplace("background_task_count", std::to_string(tasks->arrayLength));
    }
    return {HookPayloadVerdict::kept, std::move(fields)};
}

FilteredHookPayload filterCodexHookPayload(std::string_view bytes)
{
    std::vector<JsonMember> members;
    std::map<std::string, std::string> fields;
    if (const auto verdict = readIdentity(bytes, codexReadKeys, members, fields))
        return {*verdict, {}};

    const std::string &event = fields.at(std::string(hookEventNameKey));
    std::vector<std::string_view> optional{turnIdKey, transcriptPathKey, agentIdKey};
    // A tool's name says what is asked of the person; a model request's status says whether it
    // failed. Elsewhere neither matters.
    if (event == "PreToolUse")
        optional.push_back(toolNameKey);
    if (event == "PostModelRequest")
        optional.push_back(statusKey);
    if (!keepOptionalStrings(members, optional, fields))
        return {HookPayloadVerdict::unusable, {}};
    return {HookPayloadVerdict::kept, std::move(fields)};
}

} // namespace taskrack
