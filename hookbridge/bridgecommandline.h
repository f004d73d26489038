#pragma once

// The helper's command line, as the hook installer writes it into Claude's settings:
// "--taskrack-owner" "com.quillon.Taskrack" "--token" TOKEN.

#include <optional>
#include <string>

namespace taskrack {

// The token, or nothing when the owner is not Taskrack, the token is missing or empty, or an
// option is unknown. Options come in pairs; a repeated option counts by its last value.
std::optional<std::string> hookBridgeToken(int argc, const char *const *argv);

// Codex's hooks run the helper as "<path> --codex": the command text must never change, so the
// token is not in it but in a file beside the helper's folder, <folder>/../codex-hook-token.
bool isCodexInvocation(int argc, const char *const *argv);
// That token, read from the file for the helper at `executablePath`: a regular file (not a
// link) of this user, readable by nobody else, 16 to 256 bytes. Nothing otherwise.
std::optional<std::string> codexHookToken(const std::string &executablePath);
// This process's executable, links resolved.
std::string currentExecutablePath();

} // namespace taskrack
