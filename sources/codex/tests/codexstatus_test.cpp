#include "sources/codex/codexstatus.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

QJsonValue json(const char *text)
{
    return QJsonDocument::fromJson(text).object();
}

TEST(CodexStatusMappingTest, MapsTypesAndFlagsToRackStatus)
{
    const struct
    {
        const char *type;
        std::optional<QStringList> flags;
        RackStatus expected;
    } cases[] = {
        {"active", std::nullopt, RackStatus::working},
        {"active", QStringList{}, RackStatus::working},
        {"active", QStringList{"waitingOnApproval"}, RackStatus::requiresInput},
        {"active", QStringList{"other", "waitingOnUserInput"}, RackStatus::requiresInput},
        {"active", QStringList{"somethingNew"}, RackStatus::working},
        {"systemError", std::nullopt, RackStatus::error},
        {"failed", std::nullopt, RackStatus::error},
        {"interrupted", std::nullopt, RackStatus::error},
        {"completed", std::nullopt, RackStatus::completed},
        {"idle", std::nullopt, RackStatus::idle},
        // Every history thread of a fresh app-server reports this.
        {"notLoaded", std::nullopt, RackStatus::recent},
        {"Active", std::nullopt, RackStatus::recent},
        {"", std::nullopt, RackStatus::recent},
    };
    for (const auto &c : cases)
        EXPECT_EQ(rackStatus(CodexThreadStatus{c.type, c.flags}), c.expected)
            << c.type << " " << c.flags.value_or(QStringList{}).join(',').toStdString();
}

TEST(CodexStatusUpdateTest, DecodesTheRealNotificationShapeAndOptionalMoments)
{
    const auto update = decodeCodexStatusUpdate(json(
        R"({"threadId":"t1","status":{"type":"active","activeFlags":["waitingOnApproval"]},"extra":1})"));
    ASSERT_TRUE(update);
    EXPECT_EQ(update->threadId, "t1");
    EXPECT_EQ(update->status, (CodexThreadStatus{"active", QStringList{"waitingOnApproval"}}));
    EXPECT_FALSE(update->updatedAt);
    EXPECT_FALSE(update->recencyAt);
    EXPECT_EQ(rackStatusUpdate(*update).threadID, "codex:t1");
    EXPECT_EQ(rackStatusUpdate(*update).status, RackStatus::requiresInput);

    // Moments are seconds since 1970; null means unknown.
    const auto timed = decodeCodexStatusUpdate(json(
        R"({"threadId":"t","status":{"type":"idle"},"updatedAt":1795377365,"recencyAt":null})"));
    ASSERT_TRUE(timed);
    EXPECT_EQ(timed->updatedAt, QDateTime::fromSecsSinceEpoch(1795377365, Qt::UTC));
    EXPECT_FALSE(timed->recencyAt);
}

TEST(CodexStatusUpdateTest, RejectsRecordsWithWrongTypes)
{
    for (const char *text :
         {R"({"status":{"type":"idle"}})", R"({"threadId":7,"status":{"type":"idle"}})",
          R"({"threadId":"t"})", R"({"threadId":"t","status":{"type":3}})",
          R"({"threadId":"t","status":{"type":"active","activeFlags":"x"}})",
          R"({"threadId":"t","status":{"type":"active","activeFlags":[1]}})",
          R"({"threadId":"t","status":{"type":"idle"},"updatedAt":"today"})"})
        EXPECT_FALSE(decodeCodexStatusUpdate(json(text))) << text;
    EXPECT_FALSE(decodeCodexStatusUpdate(QJsonValue("t")));
}

} // namespace
