#include "sources/codex/codexstatus.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

QJsonValue json(const char *text)
{
    return QJsonDocument::fromJson(text).object();
}

struct MappingCase
{
    const char *type;
    std::optional<QStringList> flags;
    RackStatus expected;
};

void PrintTo(const MappingCase &c, std::ostream *os)
{
    *os << c.type << (c.flags ? "[" + c.flags->join(",").toStdString() + "]" : std::string());
}

class CodexStatusMappingTest : public ::testing::TestWithParam<MappingCase>
{
};

TEST_P(CodexStatusMappingTest, MapsToRackStatus)
{
    const MappingCase &c = GetParam();
    EXPECT_EQ(rackStatus(CodexThreadStatus{c.type, c.flags}), c.expected) << c.type;
}

INSTANTIATE_TEST_SUITE_P(
    Table, CodexStatusMappingTest,
    ::testing::Values(MappingCase{"active", std::nullopt, RackStatus::working},
                      MappingCase{"active", QStringList{}, RackStatus::working},
                      MappingCase{"active", QStringList{"waitingOnApproval"},
                                  RackStatus::requiresInput},
                      MappingCase{"active", QStringList{"other", "waitingOnUserInput"},
                                  RackStatus::requiresInput},
                      MappingCase{"active", QStringList{"somethingNew"}, RackStatus::working},
                      MappingCase{"systemError", std::nullopt, RackStatus::error},
                      MappingCase{"failed", std::nullopt, RackStatus::error},
                      MappingCase{"interrupted", std::nullopt, RackStatus::error},
                      MappingCase{"completed", std::nullopt, RackStatus::completed},
                      MappingCase{"idle", std::nullopt, RackStatus::idle},
                      // Every history thread of a fresh app-server reports this.
                      MappingCase{"notLoaded", std::nullopt, RackStatus::recent},
                      MappingCase{"Active", std::nullopt, RackStatus::recent},
                      MappingCase{"", std::nullopt, RackStatus::recent}));

TEST(CodexStatusUpdateTest, DecodesTheRealNotificationShapeAndIgnoresExtraKeys)
{
    const auto update = decodeCodexStatusUpdate(json(
        R"({"threadId":"t1","status":{"type":"active","activeFlags":["waitingOnApproval"]},"extra":1})"));
    ASSERT_TRUE(update);
    EXPECT_EQ(update->threadId, "t1");
    EXPECT_EQ(update->status, (CodexThreadStatus{"active", QStringList{"waitingOnApproval"}}));
    EXPECT_FALSE(update->updatedAt);
    EXPECT_FALSE(update->recencyAt);

    const RackStatusUpdate rack = rackStatusUpdate(*update);
    EXPECT_EQ(rack.threadID, "codex:t1");
    EXPECT_EQ(rack.status, RackStatus::requiresInput);
}

TEST(CodexStatusUpdateTest, ReadsOptionalMomentsAsSecondsSince1970)
{
    const auto update = decodeCodexStatusUpdate(json(
        R"({"threadId":"t","status":{"type":"idle"},"updatedAt":1795377365,"recencyAt":null})"));
    ASSERT_TRUE(update);
    EXPECT_EQ(update->updatedAt, QDateTime::fromSecsSinceEpoch(1795377365, Qt::UTC));
    EXPECT_FALSE(update->recencyAt);
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
