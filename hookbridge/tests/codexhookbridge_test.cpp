// The helper as Codex's hooks run it: its filter over every payload recorded from the real
// Codex CLI, and the helper itself, found at its stable path with its token file, over a real
// session bus (the test runs under dbus-run-session).

#include "hookbridge/hookpayloadfilter.h"
#include "platform/linux/dbushookeventtransport.h"
#include "sources/codex/codexhooklistener.h"
#include "testing/testsupport.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace taskrack {
namespace {

QList<QByteArray> recordedPayloads()
{
    QFile file(testing::sourceDir() + "/hookbridge/tests/data/codex_hook_payloads.jsonl");
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    QList<QByteArray> lines = file.readAll().split('\n');
    lines.removeAll(QByteArray());
    return lines;
}

// What the helper must keep, decided independently with Qt's own JSON reader.
std::map<std::string, std::string> expectedFields(const QByteArray &payload)
{
    const QJsonObject object = QJsonDocument::fromJson(payload).object();
    const QString event = object.value("hook_event_name").toString();
    std::map<std::string, std::string> fields;
    QStringList keys{"session_id",      "cwd",     "hook_event_name", "turn_id",
                     "transcript_path", "agent_id"};
    if (event == "PreToolUse")
        keys.append("tool_name");
    if (event == "PostModelRequest")
        keys.append("status");
    for (const QString &key : keys) {
        if (object.value(key).isString())
            fields.emplace(key.toStdString(), object.value(key).toString().toStdString());
    }
    return fields;
}

TEST(CodexHookPayloadFilter, KeepsOnlyIdentifiersOfEveryRecordedPayload)
{
    const QList<QByteArray> payloads = recordedPayloads();
    ASSERT_GT(payloads.size(), 100);
    for (const QByteArray &payload : payloads) {
        const FilteredHookPayload filtered =
            filterCodexHookPayload(std::string_view(payload.data(), size_t(payload.size())));
        ASSERT_EQ(filtered.verdict, HookPayloadVerdict::kept) << payload.constData();
        EXPECT_EQ(filtered.fields, expectedFields(payload)) << payload.constData();
    }
    // A tool name from another event, or a status of another kind, is a wrong type: refused.
    EXPECT_EQ(filterCodexHookPayload(
                  R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","turn_id":7})")
                  .verdict,
              HookPayloadVerdict::unusable);
}

class CodexHookBridgeBusTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const QString built = qEnvironmentVariable("TASKRACK_HOOK_BRIDGE");
        if (built.isEmpty() || !sessionBusAddress())
            GTEST_SKIP() << "needs the helper and a session bus (run under dbus-run-session)";
        // The stable layout: <data>/bin/taskrack-hook-bridge beside <data>/codex-hook-token.
        ASSERT_TRUE(QDir().mkpath(data.path() + "/bin"));
        helper = data.path() + "/bin/taskrack-hook-bridge";
        ASSERT_TRUE(QFile::copy(built, helper));
        writeToken(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        ASSERT_TRUE(listener.start(token));
    }

    void writeToken(QFileDevice::Permissions permissions)
    {
        QFile file(data.path() + "/codex-hook-token");
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(token.toUtf8());
        file.close();
        ASSERT_TRUE(file.setPermissions(permissions));
    }

    QByteArray runHelper(const QByteArray &input)
    {
        QProcess process;
        process.start(helper, {"--codex"});
        EXPECT_TRUE(process.waitForStarted(10000));
        process.write(input);
        process.closeWriteChannel();
        EXPECT_TRUE(process.waitForFinished(10000));
        EXPECT_EQ(process.exitCode(), 0);
        return process.readAllStandardOutput() + process.readAllStandardError();
    }

    // Every event up to a marker posted last: each helper finishes its bus round trip before it
    // exits, so everything posted before the marker has been seen by then.
    QList<CodexHookEvent> eventsUpToMarker()
    {
        writeToken(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        runHelper(R"({"session_id":"marker","cwd":"/w","hook_event_name":"Stop"})");
        QList<CodexHookEvent> received;
        const bool seen = testing::waitUntil([&] {
            while (listener.events()->size() > 0) {
                if (std::optional<CodexHookEvent> event = testing::await(next()))
                    received.append(*event);
            }
            return !received.isEmpty() && received.back().sessionId == "marker";
        });
        EXPECT_TRUE(seen);
        if (seen)
            received.removeLast();
        return received;
    }

    QCoro::Task<std::optional<CodexHookEvent>> next()
    {
        co_return co_await listener.events()->next();
    }

    const QString token = QStringLiteral("0f1e2d3c4b5a69788796a5b4c3d2e1f00f1e2d3c4b5a6978");
    QTemporaryDir data;
    QString helper;
    DBusHookEventTransport transport;
    CodexHookListener listener{transport};
};

TEST_F(CodexHookBridgeBusTest, PostsEveryRecordedEventSilently)
{
    const QList<QByteArray> payloads = recordedPayloads();
    QList<CodexHookEvent> received;
    // In batches that fit the listener's buffer, which keeps the newest events only.
    for (qsizetype i = 0; i < payloads.size(); ++i) {
        EXPECT_TRUE(runHelper(payloads[i]).isEmpty()) << "a hook's output reaches the model";
        if (i % 16 == 15 || i + 1 == payloads.size())
            received += eventsUpToMarker();
    }
    ASSERT_EQ(received.size(), payloads.size());
    for (qsizetype i = 0; i < payloads.size(); ++i) {
        const std::map<std::string, std::string> expected = expectedFields(payloads[i]);
        EXPECT_EQ(received[i].sessionId.toStdString(), expected.at("session_id"));
        EXPECT_EQ(received[i].toolName.has_value(), expected.contains("tool_name"));
        EXPECT_EQ(received[i].agentId.has_value(), expected.contains("agent_id"));
    }
}

TEST_F(CodexHookBridgeBusTest, ATokenFileOthersCanReadIsNotBelieved)
{
    writeToken(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther);
    runHelper(R"({"session_id":"exposed","cwd":"/w","hook_event_name":"PermissionRequest"})");
    EXPECT_TRUE(eventsUpToMarker().isEmpty());
}

} // namespace
} // namespace taskrack
