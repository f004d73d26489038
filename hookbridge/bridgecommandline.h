#pragma once

// The helper's command line, as the hook installer writes it into Claude's settings:
// "--taskrack-owner" "com.quillon.Taskrack" "--token" TOKEN.

#include <optional>
#include <string>

namespace taskrack {

// The token, or nothing when the owner is not Taskrack, the token is missing or empty, or an
// option is unknown. Options come in pairs; a repeated option counts by its last value.
std::optional<std::string> hookBridgeToken(int argc, const char *const *argv);

} // namespace taskrack
