// What Codex's hooks hand the helper, and what Taskrack reads of Codex's config.toml: whatever
// the bytes, the helper keeps only the listed fields, with a tool name only for a tool event
// and a status only for a model request, and nothing after the object; the config scan never
// fails whatever it reads.

#include "hookbridge/hookpayloadfilter.h"
#include "sources/codex/codexhookinstaller.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace taskrack;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    (void)codexConfigDeclaresHooks(QByteArrayView(bytes.data(), qsizetype(bytes.size())));
    const FilteredHookPayload filtered = filterCodexHookPayload(bytes);
    if (filtered.verdict != HookPayloadVerdict::kept) {
        if (!filtered.fields.empty())
            std::abort();
        return 0;
    }
    static constexpr std::array<std::string_view, 8> allowed{
        "agent_id", "cwd",       "hook_event_name", "session_id",
        "status",   "tool_name", "transcript_path", "turn_id"};
    for (const auto &[key, value] : filtered.fields) {
        if (std::find(allowed.begin(), allowed.end(), key) == allowed.end() ||
            value.find('\0') != std::string::npos)
            std::abort();
    }
    for (const char *required : {"session_id", "cwd", "hook_event_name"}) {
        if (!filtered.fields.contains(required))
            std::abort();
    }
    const std::string &event = filtered.fields.at("hook_event_name");
    if ((filtered.fields.contains("tool_name") && event != "PreToolUse") ||
        (filtered.fields.contains("status") && event != "PostModelRequest"))
        std::abort();
    if (size < 4096) {
        std::string extended(bytes);
        extended += " x";
        if (filterCodexHookPayload(extended).verdict != HookPayloadVerdict::notAnObject)
            std::abort();
    }
    return 0;
}
