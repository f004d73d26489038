// How long Claude Code's hook waits on the helper: spawn, one Stop payload on standard input,
// post on the session bus, exit. The helper only exits after the bus has answered the call
// that follows its signal, so spawn-to-exit bounds spawn-to-post from above. Also the filter's
// own cost on a large prompt.
//
// Run under dbus-run-session. TASKRACK_HOOK_BRIDGE_BASELINE may name another helper build to
// compare with (for instance an older one); /bin/true shows what spawning alone costs.

#include "hookbridge/hookpayloadfilter.h"

#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

const std::string stopPayload =
    R"({"session_id":"c329f0f4-47a0-445b-8206-196dd7fbccd3","transcript_path":"/home/u/.claude/projects/-w/c329f0f4-47a0-445b-8206-196dd7fbccd3.jsonl","cwd":"/w","prompt_id":"54ab8033-c1cc-4c24-baa8-da5e3a89bcc8","permission_mode":"default","effort":{"level":"high"},"hook_event_name":"Stop","stop_hook_active":false,"last_assistant_message":"Hello from the mock.","background_tasks":[{"id":"b1","type":"shell","status":"running"}],"session_crons":[]})"
    "\n";

bool runOnce(const char *path)
{
    int input[2];
    if (::pipe2(input, O_CLOEXEC) != 0)
        return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    char owner[] = "--taskrack-owner";
    char ownerName[] = "com.quillon.Taskrack";
    char tokenOption[] = "--token";
    char token[] = "benchmark-token";
    char *arguments[] = {const_cast<char *>(path), owner, ownerName, tokenOption, token, nullptr};
    pid_t child = 0;
    const int spawned = posix_spawn(&child, path, &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    if (spawned == 0)
        (void)!::write(input[1], stopPayload.data(), stopPayload.size());
    ::close(input[1]);
    int status = 0;
    return spawned == 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

void spawnToExit(benchmark::State &state, const char *path)
{
    if (!path || !*path || !std::getenv("DBUS_SESSION_BUS_ADDRESS")) {
        state.SkipWithError("needs the helper and a session bus (run under dbus-run-session)");
        return;
    }
    // A program that exits without reading its input must not take the benchmark with it.
    std::signal(SIGPIPE, SIG_IGN);
    for (auto _ : state) {
        if (!runOnce(path)) {
            state.SkipWithError("the helper failed");
            return;
        }
    }
}

void filterLargePrompt(benchmark::State &state)
{
    std::string payload =
        R"({"session_id":"s","cwd":"/w","hook_event_name":"UserPromptSubmit","prompt":")";
    payload.append(std::size_t(state.range(0)), 'p');
    payload += "\"}";
    for (auto _ : state)
        benchmark::DoNotOptimize(taskrack::filterHookPayload(payload));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(payload.size()));
}

} // namespace

BENCHMARK_CAPTURE(spawnToExit, helper, TASKRACK_HOOK_BRIDGE_PATH)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(spawnToExit, baseline, std::getenv("TASKRACK_HOOK_BRIDGE_BASELINE"))
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(spawnToExit, binTrue, "/bin/true")->Unit(benchmark::kMillisecond);
BENCHMARK(filterLargePrompt)->Arg(1 << 10)->Arg(1 << 20)->Arg((4 << 20) - 100);

BENCHMARK_MAIN();
