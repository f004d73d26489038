#pragma once

// A small, strict JSON reader for the hook helper, in standard C++ only: the helper must not
// load any framework before it has posted its event.
//
// It validates a whole document (RFC 8259 grammar, well-formed UTF-8, paired surrogates,
// bounded nesting) but copies out only the top-level members it is asked for, so private text
// such as a prompt is checked for shape and never decoded.

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace taskrack {

enum class JsonKind { null, boolean, number, string, array, object };

// One top-level member that was asked for. `text` holds the decoded string for strings only;
// for arrays, `arrayLength` counts the elements and `arrayHoldsOnlyObjects` says whether every
// element is an object (true for an empty array).
struct JsonMember
{
    std::string key;
    JsonKind kind = JsonKind::null;
    std::string text;
    std::size_t arrayLength = 0;
    bool arrayHoldsOnlyObjects = true;

    bool operator==(const JsonMember &) const = default;
};

// Nesting deeper than this is refused; it bounds the reader's recursion.
inline constexpr int strictJsonMaximumDepth = 512;

// Reads `document`, which must be exactly one JSON object with optional surrounding whitespace,
// and returns its top-level members whose key is in `keysToKeep`, in document order (a
// repeated key appears once per occurrence). Nothing when the document is not such an object.
std::optional<std::vector<JsonMember>>
readTopLevelMembers(std::string_view document, std::span<const std::string_view> keysToKeep);

} // namespace taskrack
