// The hook helper's payload filter: whatever Claude Code (or anyone) writes on its input, only
// the listed fields come out, every value is a string the bus can carry, and the verdict does
// not depend on bytes after the object.

#include "hookbridge/hookpayloadfilter.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace taskrack;

namespace {

bool isWellFormedUtf8(std::string_view text)
{
    std::size_t at = 0;
    while (at < text.size()) {
        const auto lead = static_cast<unsigned char>(text[at]);
        if (lead == 0)
            return false;
        std::size_t length = lead < 0x80                    ? 1
                             : lead >= 0xC2 && lead <= 0xDF ? 2
                             : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                            : 0;
        if (length == 0 || at + length > text.size())
            return false;
        std::uint32_t codePoint = length == 1 ? lead : lead & (0xFF >> (length + 1));
        for (std::size_t i = 1; i < length; ++i) {
            const auto byte = static_cast<unsigned char>(text[at + i]);
            if ((byte & 0xC0) != 0x80)
                return false;
            codePoint = (codePoint << 6) | (byte & 0x3F);
        }
        const std::uint32_t minimum[] = {0, 0, 0x80, 0x800, 0x10000};
        if (codePoint < minimum[length] || codePoint > 0x10FFFF ||
            (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            return false;
        at += length;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const FilteredHookPayload filtered = filterHookPayload(bytes);
    if (filtered.verdict != HookPayloadVerdict::kept) {
        if (!filtered.fields.empty())
            std::abort();
        return 0;
    }
    static constexpr std::array<std::string_view, 7> allowed{
        "background_task_count", "cwd",        "hook_event_name", "is_agent",
        "notification_type",     "session_id", "transcript_path"};
    for (const auto &[key, value] : filtered.fields) {
        if (std::find(allowed.begin(), allowed.end(), key) == allowed.end() ||
            !isWellFormedUtf8(value))
            std::abort();
    }
    for (const char *required : {"session_id", "cwd", "hook_event_name"}) {
        if (!filtered.fields.contains(required))
            std::abort();
    }
    if (const auto agent = filtered.fields.find("is_agent");
        agent != filtered.fields.end() && agent->second != "true")
        std::abort();
    if (const auto count = filtered.fields.find("background_task_count");
        count != filtered.fields.end() &&
        (count->second.empty() ||
         count->second.find_first_not_of("0123456789") != std::string::npos))
        std::abort();
    // A kept payload is one whole document: anything appended but whitespace spoils it.
    if (size < 4096) {
        std::string extended(bytes);
        extended += " x";
        if (filterHookPayload(extended).verdict != HookPayloadVerdict::notAnObject)
            std::abort();
    }
    return 0;
}
