#include "sources/claude/claudehookbridgelistener.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

namespace taskrack {
namespace {

using testing::drain;

class FakeHookEventTransport : public HookEventTransport
{
public:
    bool startObserving(Receiver receiver) override
    {
        ++starts;
        if (!available)
            return false;
        m_receiver = std::move(receiver);
        return true;
    }
    void stopObserving() override
    {
        ++stops;
        m_receiver = nullptr;
    }
    void post(const QVariant &object, const std::optional<QVariantMap> &userInfo)
    {
        if (m_receiver)
            m_receiver(object, userInfo);
    }

    bool available = true;
    int starts = 0;
    int stops = 0;

private:
    Receiver m_receiver;
};

const QString token = QStringLiteral("6f1d2e3c-4b5a-4968-8776-5a4b3c2d1e0f"
                                     "0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d");

QVariantMap fields(const QString &sessionId)
{
    return {{"session_id", sessionId},
            {"cwd", "/w"},
            {"hook_event_name", "Stop"},
            {"background_task_count", "2"}};
}

class ClaudeHookBridgeListenerTest : public ::testing::Test
{
protected:
    FakeHookEventTransport transport;
    ClaudeHookBridgeListener listener{transport};
};

TEST_F(ClaudeHookBridgeListenerTest, YieldsOnlyNotificationsThatCarryTheToken)
{
    listener.receive(token, fields("before-start"));
    listener.start(token);
    ASSERT_TRUE(listener.isObserving());

    transport.post(QString(token).replace(71, 1, 'e'), fields("near-miss"));
    transport.post(token.left(71), fields("prefix"));
    transport.post(token + "0", fields("longer"));
    transport.post(token.toUtf8(), fields("bytes-not-a-string"));
    transport.post(QVariant(), fields("no-object"));
    transport.post(token, std::nullopt);
    transport.post(token, QVariantMap{{"session_id", "no-cwd"}, {"hook_event_name", "Stop"}});
    transport.post(token, fields("accepted"));

    const QList<ClaudeHookEvent> received = drain(listener.events());
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0], (ClaudeHookEvent{.sessionId = "accepted",
                                            .cwd = "/w",
                                            .hookEventName = "Stop",
                                            .notificationType = std::nullopt,
                                            .transcriptPath = std::nullopt,
                                            .backgroundTaskCount = 2}));
}

TEST_F(ClaudeHookBridgeListenerTest, StartsObservingOnceAndStopForgetsTheToken)
{
    // Without a bus the token is held but nothing is observed; a later start tries again.
    transport.available = false;
    listener.start(token);
    EXPECT_FALSE(listener.isObserving());
    EXPECT_TRUE(listener.hasExpectedToken());
    transport.available = true;
    listener.start(token);
    EXPECT_TRUE(listener.isObserving());

    // Once observing, a further start only replaces the token.
    const QString next = QString(token).replace(0, 8, "ffffffff");
    listener.start(next);
    EXPECT_EQ(transport.starts, 2);
    transport.post(token, fields("old"));
    transport.post(next, fields("new"));
    const QList<ClaudeHookEvent> received = drain(listener.events());
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].sessionId, "new");

    listener.stop();
    EXPECT_FALSE(listener.isObserving());
    EXPECT_FALSE(listener.hasExpectedToken());
    EXPECT_EQ(transport.stops, 1);
    listener.receive(next, fields("after-stop"));
    EXPECT_EQ(listener.events()->size(), 0u);
    listener.stop();
    EXPECT_EQ(transport.stops, 1) << "stopping twice asks the transport once";
    listener.start(token);
    EXPECT_EQ(transport.starts, 3);
}

TEST_F(ClaudeHookBridgeListenerTest, KeepsTheNewestEventsWhenTheReaderFallsBehind)
{
    listener.start(token);
    for (int i = 0; i < 40; ++i)
        transport.post(token, fields(QString::number(i)));
    const QList<ClaudeHookEvent> received = drain(listener.events());
    ASSERT_EQ(received.size(), ClaudeHookBridgeListener::eventBufferSize);
    EXPECT_EQ(received.front().sessionId, "8");
    EXPECT_EQ(received.back().sessionId, "39");
}

} // namespace
} // namespace taskrack
