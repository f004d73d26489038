#include "sources/codex/rolloutline.h"

#include <QDateTime>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

qint64 ms(const char *iso)
{
    return QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs).toMSecsSinceEpoch();
}

struct TimestampCase {
    const char *text;
    std::optional<qint64> expected;
};

void PrintTo(const TimestampCase &c, std::ostream *os)
{
    *os << c.text;
}

class RolloutTimestampTest : public ::testing::TestWithParam<TimestampCase>
{
};

TEST_P(RolloutTimestampTest, ParsesToTheMillisecond)
{
    EXPECT_EQ(parseRolloutTimestamp(QByteArrayView(GetParam().text)), GetParam().expected)
        << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Timestamps, RolloutTimestampTest,
    ::testing::Values(
        // What Codex writes: UTC, three fractional digits.
        TimestampCase{"2026-11-22T19:53:36.533Z", ms("2026-11-22T19:53:36.533Z")},
        TimestampCase{"2026-11-22T19:53:36Z", ms("2026-11-22T19:53:36Z")},
        TimestampCase{"2026-11-22T19:53:36.123456789Z", ms("2026-11-22T19:53:36.123Z")},
        TimestampCase{"2026-11-22T21:53:36.533+02:00", ms("2026-11-22T19:53:36.533Z")},
        TimestampCase{"2026-11-22T14:23:36-0530", ms("2026-11-22T19:53:36Z")},
        TimestampCase{"1969-12-31T23:59:59.250Z", qint64(-750)},
        // Without a zone the moment is unknown.
        TimestampCase{"2026-11-22T19:53:36.533", std::nullopt},
        TimestampCase{"2026-11-22 19:53:36Z", std::nullopt},
        TimestampCase{"2026-11-22T19:53:36.Z", std::nullopt},
        TimestampCase{"2025-02-29T00:00:00Z", std::nullopt},
        TimestampCase{"2026-11-22T24:00:00Z", std::nullopt},
        TimestampCase{"", std::nullopt}));

struct LineCase {
    const char *name;
    const char *line;
    std::optional<RolloutLifecycleEvent> expected;
};

void PrintTo(const LineCase &c, std::ostream *os)
{
    *os << c.name;
}

class RolloutLineTest : public ::testing::TestWithParam<LineCase>
{
};

TEST_P(RolloutLineTest, ClassifiesLifecycleLines)
{
    EXPECT_EQ(classifyRolloutLine(QByteArrayView(GetParam().line)), GetParam().expected);
}

const qint64 t0 = ms("2026-11-22T19:53:36.533Z");

INSTANTIATE_TEST_SUITE_P(
    Lines, RolloutLineTest,
    ::testing::Values(
        LineCase{"started",
                 R"({"timestamp":"2026-11-22T19:53:36.533Z","ordinal":1,"type":"event_msg","payload":{"type":"task_started","turn_id":"x","started_at":1795377346}})",
                 RolloutLifecycleEvent{RolloutLifecycleKind::taskStarted, t0}},
        LineCase{"completed",
                 R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"task_complete","last_agent_message":"done","error":null}})",
                 RolloutLifecycleEvent{RolloutLifecycleKind::taskComplete, t0}},
        // Codex ends a failed turn with a completion that carries the error.
        LineCase{"failed",
                 R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"task_complete","last_agent_message":null,"error":{"message":"stream disconnected","codex_error_info":"other"}}})",
                 RolloutLifecycleEvent{RolloutLifecycleKind::taskFailed, t0}},
        LineCase{"aborted",
                 R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"turn_aborted","reason":"interrupted"}})",
                 RolloutLifecycleEvent{RolloutLifecycleKind::turnAborted, t0}},
        LineCase{"noTimestampStillCounts",
                 R"({"type":"event_msg","payload":{"type":"task_complete"}})",
                 RolloutLifecycleEvent{RolloutLifecycleKind::taskComplete, std::nullopt}},
        LineCase{"badTimestampStillCounts",
                 R"({"timestamp":"yesterday","type":"event_msg","payload":{"type":"task_started"}})",
                 RolloutLifecycleEvent{RolloutLifecycleKind::taskStarted, std::nullopt}},
        LineCase{"otherEventType",
                 R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"token_count","info":"task_complete"}})",
                 std::nullopt},
        LineCase{"lifecycleNameInsideAMessage",
                 R"({"type":"response_item","payload":{"type":"message","text":"event_msg task_complete"}})",
                 std::nullopt},
        LineCase{"timestampOfTheWrongKind",
                 R"({"timestamp":17,"type":"event_msg","payload":{"type":"task_complete"}})",
                 std::nullopt},
        LineCase{"notAnObject", R"(["event_msg","task_complete"])", std::nullopt},
        LineCase{"truncated",
                 R"({"timestamp":"2026-11-22T19:53:36.533Z","type":"event_msg","payload":{"type":"task_complete")",
                 std::nullopt},
        LineCase{"empty", "", std::nullopt}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
