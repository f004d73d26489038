// taskrack-hook-bridge: what Claude Code's hooks run, and with "--codex" what Codex's hooks run. It
// reads the hook's JSON from standard input, keeps only what identifies the session and the event
// (the prompt and every other private text are never decoded), and broadcasts that on the session
// bus with the token it was given, for a running Taskrack to pick up.
//
// It must post within milliseconds: Claude Code kills a hook still running when a print-mode
// session exits. So it uses the C++ standard library and libdbus only, no framework whose
// loading alone would take longer than the whole job. It never writes to standard output,
// never complains, and exits 0 whatever happens: a lost event only means the transcript
// watcher notices the change a little later.

#include "hookbridge/bridgecommandline.h"
#include "hookbridge/hookeventposter.h"
#include "hookbridge/hookpayloadfilter.h"
#include "hookbridge/sessionbusaddress.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace {

using namespace taskrack;

// Generous for one JSON object already written into a pipe, short against a hook timeout.
constexpr auto inputDeadline = std::chrono::milliseconds(1500);
constexpr int busCallTimeoutMs = 1000;

bool endsWithClosingBrace(const std::string &buffer)
{
    const std::size_t last = buffer.find_last_not_of(" \t\r\n");
    return last != std::string::npos && buffer[last] == '}';
}

// Reads until end of input, or until the buffer holds one complete object: a writer that
// keeps the pipe open after its object must not hold the helper.
FilteredHookPayload readPayload(FilteredHookPayload (*filter)(std::string_view))
{
    const auto deadline = std::chrono::steady_clock::now() + inputDeadline;
    std::string buffer;
    char chunk[65536];
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return {};
        pollfd input{STDIN_FILENO, POLLIN, 0};
        const int ready = ::poll(&input, 1, int(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return {};
        const ssize_t count = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count < 0)
            return {};
        if (count == 0)
            return filter(buffer);
        if (buffer.size() + std::size_t(count) > hookPayloadMaximumBytes)
            return {};
        buffer.append(chunk, std::size_t(count));
        if (endsWithClosingBrace(buffer)) {
            FilteredHookPayload payload = filter(buffer);
            if (payload.verdict != HookPayloadVerdict::notAnObject)
                return payload;
        }
    }
}

// Nothing the helper could say would reach anyone, and libraries must not say it either. Codex
// even hands a hook's standard output to the model: not a byte may go there.
void silenceOutput()
{
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null >= 0) {
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        ::close(null);
    }
}

} // namespace

int main(int argc, char **argv)
{
    silenceOutput();
    std::signal(SIGPIPE, SIG_IGN);
    const bool codex = isCodexInvocation(argc, argv);
    const std::optional<std::string> token =
        codex ? codexHookToken(currentExecutablePath()) : hookBridgeToken(argc, argv);
    if (!token)
        return 0;
    const FilteredHookPayload payload =
        readPayload(codex ? filterCodexHookPayload : filterHookPayload);
    if (payload.verdict != HookPayloadVerdict::kept)
        return 0;
    const std::optional<std::string> address = sessionBusAddressFromEnvironment(
        std::getenv("DBUS_SESSION_BUS_ADDRESS"), std::getenv("XDG_RUNTIME_DIR"));
    if (!address)
        return 0;
    postHookEvent(*address, *token, payload.fields, busCallTimeoutMs);
    return 0;
}
