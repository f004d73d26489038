#include "sources/claude/claudesessionmanifest.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

// The decoding rules as one table: each case changes a valid manifest and says whether it still
// decodes (and, where it matters, what its parent is).
TEST(ClaudeSessionManifestTest, DecodesStrictlyAndReadsLineageLeniently)
{
    const QJsonObject valid{{"sessionId", "local_a"}, {"cwd", "/w"},         {"originCwd", "/w"},
                            {"createdAt", 1000},      {"lastActivityAt", 2}, {"model", "m"}};
    const struct
    {
        const char *name;
        QJsonObject changes;
        const char *removed;
        bool decodes;
        std::optional<QString> parent;
    } cases[] = {
        {"valid", {}, nullptr, true, std::nullopt},
        {"missingRequiredString", {}, "model", false, std::nullopt},
        {"missingRequiredInteger", {}, "createdAt", false, std::nullopt},
        {"requiredStringOfAnotherType", {{"cwd", 3}}, nullptr, false, std::nullopt},
        {"nullOptionalsAreAbsent",
         {{"title", QJsonValue()}, {"errorAt", QJsonValue()}},
         nullptr,
         true,
         std::nullopt},
        {"optionalStringOfAnotherType", {{"title", true}}, nullptr, false, std::nullopt},
        {"optionalBoolOfAnotherType", {{"isArchived", "yes"}}, nullptr, false, std::nullopt},
        {"fractionalInteger", {{"lastFocusedAt", 1.5}}, nullptr, false, std::nullopt},
        {"integerBeyondADoublesExactRange", {{"createdAt", 1e16}}, nullptr, false, std::nullopt},
        {"bridgeIdOfAnotherType",
         {{"bridgeSessionIds", QJsonArray{"a", 1}}},
         nullptr,
         false,
         std::nullopt},
        {"bridgeIdsNotAList", {{"bridgeSessionIds", "a"}}, nullptr, false, std::nullopt},
        {"spawnedFromNamesTheParent",
         {{"spawnedFrom", QJsonObject{{"sessionId", " local_p "}}}},
         nullptr,
         true,
         "local_p"},
        {"forkedFromNamesTheParent",
         {{"forkedFromSessionId", "local_f"}},
         nullptr,
         true,
         "local_f"},
        {"aMalformedLineageIsNoParent", {{"spawnedFrom", 7}}, nullptr, true, std::nullopt},
        {"itsOwnParentIsNoParent",
         {{"forkedFromSessionId", "local_a"}},
         nullptr,
         true,
         std::nullopt},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QJsonObject object = valid;
        for (auto it = c.changes.begin(); it != c.changes.end(); ++it)
            object.insert(it.key(), it.value());
        if (c.removed)
            object.remove(c.removed);
        const auto manifest = decodeClaudeSessionManifest(QJsonDocument(object).toJson());
        ASSERT_EQ(manifest.has_value(), c.decodes);
        if (manifest) {
            EXPECT_EQ(manifest->parentSessionId, c.parent);
        }
    }
    EXPECT_FALSE(decodeClaudeSessionManifest("[]"));
    EXPECT_FALSE(decodeClaudeSessionManifest("{\"sessionId\":"));
}

TEST(ClaudeSessionManifestTest, LimitsCountBytesAndBridgeIds)
{
    ClaudeDesktopSessionManifest manifest;
    manifest.sessionId = QString(claudelimits::identifierBytes, 'a');
    EXPECT_TRUE(manifest.isWithinLimits());
    // Two bytes a character in UTF-8: half the characters reach the limit.
    manifest.sessionId = QString(claudelimits::identifierBytes / 2 + 1, QChar(0xe9));
    EXPECT_FALSE(manifest.isWithinLimits());
    manifest.sessionId = "a";
    manifest.bridgeSessionIds = QStringList(claudelimits::bridgeIdCount, "b");
    EXPECT_TRUE(manifest.isWithinLimits());
    manifest.bridgeSessionIds.append("b");
    EXPECT_FALSE(manifest.isWithinLimits());
}

} // namespace
