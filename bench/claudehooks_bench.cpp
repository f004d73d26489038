// What the hook path costs: the helper's payload filter on real-sized payloads, reading a
// settings file as the installer does, and a whole install + remove on disk.

#include "platform/linux/linuxfilesystem.h"
#include "sources/claude/claudehookevent.h"
#include "sources/claude/claudehookinstaller.h"

#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <sys/stat.h>

using namespace taskrack;

namespace {

QByteArray stopPayload(int answerBytes)
{
    return R"({"session_id":"c1a6d3fb-001b-4eb4-b448-ef4e7676cded","transcript_path":"/home/p/.claude/projects/-work-p13/c1a6d3fb-001b-4eb4-b448-ef4e7676cded.jsonl","cwd":"/work/p13","prompt_id":"76ccdd54-8ffa-49ad-94ac-02b9019ffd0c","permission_mode":"default","effort":{"level":"high"},"hook_event_name":"Stop","stop_hook_active":false,"last_assistant_message":")" +
           QByteArray(answerBytes, 'a') +
           R"(","background_tasks":[{"id":"by2lti1nl","type":"shell","status":"running","description":"Sleep then print","command":"sleep 4; echo bgdone"}],"session_crons":[]})"
           "\n";
}

void BM_DecodeHookInput(benchmark::State &state)
{
    const QByteArray payload = stopPayload(int(state.range(0)));
    for (auto _ : state) {
        std::optional<ClaudeHookEvent> event = decodeClaudeHookInput(payload);
        benchmark::DoNotOptimize(event);
        QMap<QString, QString> fields = claudeHookNotificationFields(*event);
        benchmark::DoNotOptimize(fields);
    }
    state.SetBytesProcessed(state.iterations() * payload.size());
}
BENCHMARK(BM_DecodeHookInput)->Arg(2 << 10)->Arg(256 << 10)->Arg((4 << 20) - 1024);

// A settings file with `groups` foreign hook groups per event and some other keys.
QByteArray settings(int groups)
{
    JSONValue::Object hooks;
    for (const char *event :
         {"PreToolUse", "PostToolUse", "Stop", "Notification", "SessionStart"}) {
        JSONValue::Array list;
        for (int i = 0; i < groups; ++i)
            list.push_back(JSONValue(JSONValue::Object{
                {"matcher", "Bash|Edit"},
                {"hooks", JSONValue::Array{JSONValue(JSONValue::Object{
                              {"type", "command"},
                              {"command", QStringLiteral("/home/p/bin/hook-%1 --flag").arg(i)},
                              {"timeout", 30}})}}}));
        hooks.emplace(event, std::move(list));
    }
    return JSONValue(
               JSONValue::Object{
                   {"model", "opus"},
                   {"env", JSONValue::Object{{"FOO", "bar"}}},
                   {"permissions", JSONValue::Object{{"allow", JSONValue::Array{"Bash(ls:*)"}}}},
                   {"hooks", std::move(hooks)}})
        .toPrettyJSON();
}

void BM_ReadSettings(benchmark::State &state)
{
    const QByteArray bytes = settings(int(state.range(0)));
    for (auto _ : state) {
        const bool simple = claudeSettingsWithinComplexityLimits(bytes);
        std::optional<JSONValue> root = JSONValue::parse(bytes);
        benchmark::DoNotOptimize(simple);
        benchmark::DoNotOptimize(root);
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
    state.counters["file_bytes"] = double(bytes.size());
}
BENCHMARK(BM_ReadSettings)->Arg(2)->Arg(200)->Arg(900);

void BM_InstallAndRemove(benchmark::State &state)
{
    QTemporaryDir directory;
    const QString helper = directory.filePath("taskrack-hook-bridge");
    QFile file(helper);
    file.open(QIODevice::WriteOnly);
    file.write("#!/bin/sh\n");
    file.close();
    ::chmod(QFile::encodeName(helper).constData(), 0755);
    const QString path = directory.filePath("settings.json");
    QFile settingsFile(path);
    settingsFile.open(QIODevice::WriteOnly);
    settingsFile.write(settings(int(state.range(0))));
    settingsFile.close();
    LinuxFileSystem fileSystem;
    ClaudeHookInstaller installer(path, fileSystem);
    const QString token(72, 'a');
    for (auto _ : state) {
        installer.installNow(helper, token);
        installer.removeNow();
    }
}
BENCHMARK(BM_InstallAndRemove)->Arg(2)->Arg(200)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
