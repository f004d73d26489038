// The helper and the listener over a real session bus (the test runs under dbus-run-session).

#include "hookbridge/hookeventposter.h"
#include "platform/linux/dbushookeventtransport.h"
#include "sources/claude/claudehookbridgelistener.h"
#include "testing/testsupport.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace taskrack {
namespace {

const QString token = QStringLiteral("5d0c9b8a-7f6e-4d5c-9b4a-3f2e1d0c9b8a"
                                     "1a2b3c4d-5e6f-4a7b-8c9d-0e1f2a3b4c5d");

QByteArray stopPayload(const QString &sessionId)
{
    return QStringLiteral(
               R"({"session_id":"%1","transcript_path":"/h/.claude/projects/-w/%1.jsonl","cwd":"/w","prompt_id":"p","hook_event_name":"Stop","stop_hook_active":false,"last_assistant_message":"SECRET answer","prompt":"SECRET prompt","background_tasks":[{"id":"b1","type":"shell","status":"running","command":"SECRET"},{"id":"b2","type":"subagent","status":"running"}],"session_crons":[]})"
               "\n")
        .arg(sessionId)
        .toUtf8();
}

struct BridgeRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

class HookBridgeBusTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        bridge = qEnvironmentVariable("TASKRACK_HOOK_BRIDGE");
        if (bridge.isEmpty() || !sessionBusAddress())
            GTEST_SKIP() << "needs the helper and a session bus (run under dbus-run-session)";
        listener.start(token);
        ASSERT_TRUE(listener.isObserving());
    }

    BridgeRun
    runBridge(const QByteArray &input, QStringList arguments = {},
              const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
    {
        if (arguments.isEmpty())
            arguments = {"--taskrack-owner", "com.quillon.Taskrack", "--token", token};
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(bridge, arguments);
        EXPECT_TRUE(process.waitForStarted(10000));
        process.write(input);
        process.closeWriteChannel();
        EXPECT_TRUE(process.waitForFinished(10000));
        return {process.exitCode(), process.readAllStandardOutput(),
                process.readAllStandardError()};
    }

    // Posts a good event and waits for it: everything posted before it has been seen by then,
    // because each helper finishes its bus round trip before it exits.
    std::vector<ClaudeHookEvent> eventsUpToMarker()
    {
        const BridgeRun marker = runBridge(stopPayload("marker"));
        EXPECT_EQ(marker.exitCode, 0);
        std::vector<ClaudeHookEvent> received;
        const bool seen = testing::waitUntil([&] {
            while (listener.events()->size() > 0) {
                std::optional<ClaudeHookEvent> event = testing::await(nextEvent());
                if (event)
                    received.push_back(*event);
            }
            return !received.empty() && received.back().sessionId == "marker";
        });
        EXPECT_TRUE(seen);
        if (seen)
            received.pop_back();
        return received;
    }

    QCoro::Task<std::optional<ClaudeHookEvent>> nextEvent()
    {
        co_return co_await listener.events()->next();
    }

    QString bridge;
    DBusHookEventTransport transport;
    ClaudeHookBridgeListener listener{transport};
};

TEST_F(HookBridgeBusTest, DeliversTheEventWithoutAnyPrivateText)
{
    const BridgeRun run = runBridge(stopPayload("7c1d"));
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.out.isEmpty());
    EXPECT_TRUE(run.err.isEmpty());

    const std::vector<ClaudeHookEvent> received = eventsUpToMarker();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0], (ClaudeHookEvent{"7c1d", "/w", "Stop", std::nullopt,
                                            "/h/.claude/projects/-w/7c1d.jsonl", 2, false}));
}

TEST_F(HookBridgeBusTest, SignalsWithAnotherTokenOrShapeAreIgnored)
{
    EXPECT_EQ(runBridge(stopPayload("forged"),
                        {"--taskrack-owner", "com.quillon.Taskrack", "--token", "not-the-token"})
                  .exitCode,
              0);

    // Another program on the bus, posting by hand.
    QDBusConnection other = QDBusConnection::connectToBus(*sessionBusAddress(), "other-sender");
    ASSERT_TRUE(other.isConnected());
    const auto post = [&](const QVariantList &arguments) {
        QDBusMessage signal = QDBusMessage::createSignal(hookEventDBusPath, hookEventDBusInterface,
                                                         hookEventDBusSignal);
        signal.setArguments(arguments);
        EXPECT_TRUE(other.send(signal));
    };
    const QVariantMap fields{{"session_id", "by-hand"}, {"cwd", "/w"}, {"hook_event_name", "Stop"}};
    post({token});
    post({42, fields});
    post({token, QStringList{"session_id"}});
    post({token, QVariantMap{{"session_id", "by-hand"}, {"hook_event_name", "Stop"}}});
    post({token, fields}); // a{sv} with string values: a shape the listener accepts
    QDBusMessage ping = QDBusMessage::createMethodCall(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer", "Ping");
    other.call(ping);
    QDBusConnection::disconnectFromBus("other-sender");

    const std::vector<ClaudeHookEvent> received = eventsUpToMarker();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].sessionId, "by-hand");
}

TEST_F(HookBridgeBusTest, ExitsQuietlyOnAnythingItCannotUse)
{
    const std::pair<QByteArray, QStringList> runs[] = {
        {"", {}},
        {"not json", {}},
        {R"({"session_id":"s","cwd":"/w"})", {}},
        {R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","background_tasks":"many"})", {}},
        {stopPayload("no-arguments"), {"--unexpected"}},
        {stopPayload("wrong-owner"), {"--taskrack-owner", "com.example.Other", "--token", token}},
        {stopPayload("no-token"), {"--taskrack-owner", "com.quillon.Taskrack"}},
        {stopPayload("empty-token"), {"--taskrack-owner", "com.quillon.Taskrack", "--token", ""}},
    };
    for (const auto &[input, arguments] : runs) {
        const BridgeRun run = runBridge(input, arguments.isEmpty() ? QStringList() : arguments);
        EXPECT_EQ(run.exitCode, 0) << input.constData();
        EXPECT_TRUE(run.out.isEmpty());
        EXPECT_TRUE(run.err.isEmpty());
    }
    EXPECT_TRUE(eventsUpToMarker().empty());
}

TEST_F(HookBridgeBusTest, PostsEvenWhenClaudeKeepsItsInputOpen)
{
    QProcess process;
    process.start(bridge, {"--taskrack-owner", "com.quillon.Taskrack", "--token", token});
    ASSERT_TRUE(process.waitForStarted(10000));
    process.write(stopPayload("open-pipe"));
    ASSERT_TRUE(process.waitForFinished(10000)) << "the helper must not wait for end of input";
    EXPECT_EQ(process.exitCode(), 0);
    const std::vector<ClaudeHookEvent> received = eventsUpToMarker();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].sessionId, "open-pipe");
}

// libdbus aborts the process on a string that is not UTF-8 or holds a NUL; the poster must
// refuse such strings itself, and post everything else exactly as given.
TEST_F(HookBridgeBusTest, PosterRefusesStringsTheBusCannotCarry)
{
    const std::string address = sessionBusAddress()->toStdString();
    const std::string tokenText = token.toStdString();
    const std::map<std::string, std::string> fields{
        {"session_id", "poster"},
        {"cwd", "/home/\xc3\xa9l\xc3\xa8ve \xf0\x9f\x98\x80"},
        {"hook_event_name", "Notification"},
        {"notification_type", "permission_prompt"}};
    EXPECT_FALSE(postHookEvent(address, "\xff" + tokenText, fields, 1000));
    auto badValue = fields;
    badValue["cwd"] = "\xc0\xaf";
    EXPECT_FALSE(postHookEvent(address, tokenText, badValue, 1000));
    auto withNul = fields;
    withNul["cwd"] = std::string("a\0b", 3);
    EXPECT_FALSE(postHookEvent(address, tokenText, withNul, 1000));
    EXPECT_FALSE(postHookEvent("unix:path=/nonexistent/taskrack-bus", tokenText, fields, 1000));

    ASSERT_TRUE(postHookEvent(address, tokenText, fields, 1000));
    const std::vector<ClaudeHookEvent> received = eventsUpToMarker();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(
        received[0],
        (ClaudeHookEvent{"poster", QStringLiteral("/home/\u00e9l\u00e8ve \U0001F600"),
                         "Notification", "permission_prompt", std::nullopt, std::nullopt, false}));
}

TEST_F(HookBridgeBusTest, WithoutABusItExitsAtOnceAndSaysNothing)
{
    QTemporaryDir runtime;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("DBUS_SESSION_BUS_ADDRESS");
    environment.insert("XDG_RUNTIME_DIR", runtime.path());
    environment.insert("DISPLAY", ":99"); // must not be taken as a hint to start a bus
    const BridgeRun run = runBridge(stopPayload("nowhere"), {}, environment);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.out.isEmpty());
    EXPECT_TRUE(run.err.isEmpty());
    EXPECT_TRUE(eventsUpToMarker().empty());
}

} // namespace
} // namespace taskrack
