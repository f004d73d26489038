// What the app-server client spends on its own per message: framing, decoding and mapping a
// full thread/list page, and one live status notification.

#include "sources/codex/codexappserverframe.h"
#include "sources/codex/codexappserverpayload.h"
#include "sources/codex/codexstatus.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <benchmark/benchmark.h>

using namespace taskrack;

namespace {

// A page shaped like the real server's, extra keys included.
QByteArray threadListPage(int threads)
{
    QJsonArray data;
    for (int i = 0; i < threads; ++i) {
        const QString id =
            QStringLiteral("01a204d4-5baa-7c72-a03b-%1").arg(i, 12, 10, QLatin1Char('0'));
        data.append(QJsonObject{
            {"id", id},
            {"sessionId", id},
            {"forkedFromId", QJsonValue::Null},
            {"parentThreadId", QJsonValue::Null},
            {"preview",
             QStringLiteral("SCENARIO:text Please refactor the widget loader, number %1.").arg(i)},
            {"ephemeral", false},
            {"historyMode", "paginated"},
            {"modelProvider", "mock"},
            {"model", "gpt-mock"},
            {"reasoningEffort", "high"},
            {"createdAt", 1795377340 + i},
            {"updatedAt", 1795377353 + i},
            {"recencyAt", 1795377352 + i},
            {"status", QJsonObject{{"type", "notLoaded"}}},
            {"path",
             "/home/user/.codex/sessions/2026/11/22/rollout-2026-11-22T19-55-40-" + id + ".jsonl"},
            {"cwd", QStringLiteral("/home/user/src/project-%1").arg(i % 7)},
            {"cliVersion", "0.169.0"},
            {"originator", "codex_exec"},
            {"source", "exec"},
            {"threadSource", QJsonValue::Null},
            {"gitInfo", QJsonObject{{"sha", "5d4b71798ded506e6b5c2b37e7cf30bfb2cc9582"},
                                    {"branch", "main"},
                                    {"originUrl", "https://git.example.invalid/acme/widgets.git"}}},
            {"name", QJsonValue::Null},
            {"turns", QJsonArray{}}});
    }
    const QJsonObject message{
        {"id", 2}, {"result", QJsonObject{{"data", data}, {"nextCursor", QJsonValue::Null}}}};
    return QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n';
}

void BM_ThreadListPage(benchmark::State &state)
{
    const QByteArray bytes = threadListPage(int(state.range(0)));
    constexpr qsizetype pipeChunk = 64 * 1024;
    for (auto _ : state) {
        CodexAppServerFramer framer;
        int mapped = 0;
        for (qsizetype at = 0; at < bytes.size(); at += pipeChunk) {
            framer.append(QByteArrayView(bytes).sliced(at, std::min(pipeChunk, bytes.size() - at)));
            while (std::optional<QByteArray> line = framer.takeLine()) {
                const CodexAppServerMessage message = parseCodexAppServerMessage(*line);
                const auto page = decodeCodexThreadListResponse(message.result);
                for (const CodexThreadPayload &payload : page->data)
                    mapped += mapCodexThreadPayload(payload, {}, {}).title.size() > 0;
            }
        }
        benchmark::DoNotOptimize(mapped);
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
    state.counters["pageBytes"] = double(bytes.size());
}
BENCHMARK(BM_ThreadListPage)->Arg(100)->Unit(benchmark::kMicrosecond);

void BM_StatusNotification(benchmark::State &state)
{
    const QByteArray line =
        R"({"method":"thread/status/changed","params":{"threadId":"01a204d4-88d5-79d3-b2e0-2a9a70d5fb9e","status":{"type":"active","activeFlags":["waitingOnApproval"]}},"emittedAtMs":1795377367622})"
        "\n";
    CodexAppServerFramer framer;
    for (auto _ : state) {
        framer.append(line);
        const std::optional<QByteArray> frame = framer.takeLine();
        const CodexAppServerMessage message = parseCodexAppServerMessage(*frame);
        const auto update = decodeCodexStatusUpdate(message.params);
        benchmark::DoNotOptimize(rackStatusUpdate(*update));
    }
}
BENCHMARK(BM_StatusNotification);

} // namespace

BENCHMARK_MAIN();
