#include "sources/codex/rolloutline.h"

#include <QDateTime>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

qint64 ms(const char *iso)
{
    return QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs).toMSecsSinceEpoch();
}

TEST(RolloutTimestampTest, ParsesToTheMillisecond)
{
    const std::pair<const char *, std::optional<qint64>> cases[] = {
        // What Codex writes: UTC, three fractional digits.
        {"2026-11-22T19:53:36.533Z", ms("2026-11-22T19:53:36.533Z")},
        {"2026-11-22T19:53:36Z", ms("2026-11-22T19:53:36Z")},
        {"2026-11-22T19:53:36.123456789Z", ms("2026-11-22T19:53:36.123Z")},
        {"2026-11-22T21:53:36.533+02:00", ms("2026-11-22T19:53:36.533Z")},
        {"2026-11-22T14:23:36-0530", ms("2026-11-22T19:53:36Z")},
        {"1969-12-31T23:59:59.250Z", qint64(-750)},
        // Without a zone the moment is unknown.
        {"2026-11-22T19:53:36.533", std::nullopt},
        {"2026-11-22 19:53:36Z", std::nullopt},
        {"2026-11-22T19:53:36.Z", std::nullopt},
        {"2025-02-29T00:00:00Z", std::nullopt},
        {"2026-11-22T24:00:00Z", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto &[text, expected] : cases)
        EXPECT_EQ(parseRolloutTimestamp(QByteArrayView(text)), expected) << text;
}

TEST(RolloutLineTest, ClassifiesLifecycleLines)
{
    const qint64 t0 = ms("2026-11-22T19:53:36.533Z");
    const struct
    {
        const char *name;
        const char *line;
        std::optional<RolloutLifecycleEvent> expected;
    } cases[] = {
        {"started",
         R"({"timestamp":"2026-11-22T19:53:36.533Z","ordinal":1,"type":"event_msg","payload":{"type":"task_started","turn_id":"x","started_at":1795377346}})",
         RolloutLifecycleEvent{RolloutLifecycleKind::taskStarted, t0}},
        {"completed",
         R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"task_complete","last_agent_message":"done","error":null}})",
         RolloutLifecycleEvent{RolloutLifecycleKind::taskComplete, t0}},
        // Codex ends a failed turn with a completion that carries the error.
        {"failed",
         R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"task_complete","last_agent_message":null,"error":{"message":"stream disconnected","codex_error_info":"other"}}})",
         RolloutLifecycleEvent{RolloutLifecycleKind::taskFailed, t0}},
        {"aborted",
         R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"turn_aborted","reason":"interrupted"}})",
         RolloutLifecycleEvent{RolloutLifecycleKind::turnAborted, t0}},
        {"noTimestampStillCounts", R"({"type":"event_msg","payload":{"type":"task_complete"}})",
         RolloutLifecycleEvent{RolloutLifecycleKind::taskComplete, std::nullopt}},
        {"badTimestampStillCounts",
         R"({"timestamp":"yesterday","type":"event_msg","payload":{"type":"task_started"}})",
         RolloutLifecycleEvent{RolloutLifecycleKind::taskStarted, std::nullopt}},
        {"otherEventType",
         R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"token_count","info":"task_complete"}})",
         std::nullopt},
        {"lifecycleNameInsideAMessage",
         R"({"type":"response_item","payload":{"type":"message","text":"event_msg task_complete"}})",
         std::nullopt},
        {"timestampOfTheWrongKind",
         R"({"timestamp":17,"type":"event_msg","payload":{"type":"task_complete"}})", std::nullopt},
        {"notAnObject", R"(["event_msg","task_complete"])", std::nullopt},
        {"truncated",
         R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"task_complete")",
         std::nullopt},
        {"empty", "", std::nullopt},
    };
    for (const auto &c : cases)
        EXPECT_EQ(classifyRolloutLine(QByteArrayView(c.line)), c.expected) << c.name;
}

} // namespace
