#include "sources/codex/codexrecordedturnsnapshotreader.h"
#include "testing/virtualfilesystem.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace taskrack;
using Kind = CodexRecordedTurnReadError::Kind;

namespace {

const QString home = QStringLiteral("/home/.codex");
const QString thread = QStringLiteral("0d4e5c1a-1111-4a2b-9c3d-aaaaaaaaaaaa");
const CodexDesktopCatalogScope scope{"durable", CodexDesktopCatalog::scopeHash("acct-1", "user-1")};

QByteArray snapshot(const QString &id, const QString &retrievedAt,
                    const QJsonObject &overrides = {}, const QString &status = "inProgress")
{
    QJsonObject object{
        {"version", 1},
        {"sourceKind", "assistant-recorded-turns"},
        {"snapshotID", id},
        {"scope", QJsonObject{{"hostID", "durable"}, {"accountUserHash", scope.accountUserHash}}},
        {"retrievedAt", retrievedAt},
        {"records", QJsonArray{QJsonObject{{"threadId", thread.toUpper()},
                                           {"latestTurn", "0d4e5c1a-9999-4a2b-9c3d-000000000001"},
                                           {"status", status}}}},
    };
    for (auto it = overrides.begin(); it != overrides.end(); ++it)
        object.insert(it.key(), it.value());
    return QJsonDocument(object).toJson();
}

const QString idOne = QStringLiteral("5a1e0000-0000-4000-8000-000000000001");
const QString idTwo = QStringLiteral("5a1e0000-0000-4000-8000-000000000002");

TEST(CodexRecordedTurnSnapshotTest, RefusesWhatIsNotTheFormat)
{
    const struct
    {
        const char *name;
        QJsonObject overrides;
    } cases[] = {
        {"version2", {{"version", 2}}},
        {"otherKind", {{"sourceKind", "assistant-turns"}}},
        {"otherHost", {{"scope", QJsonObject{{"hostID", "local"}, {"accountUserHash", "x"}}}}},
        {"noZone", {{"retrievedAt", "2026-11-22T19:53:36.533"}}},
        {"threadNotUuid",
         {{"records", QJsonArray{QJsonObject{
                          {"threadId", "t"}, {"latestTurn", idOne}, {"status", "failed"}}}}}},
    };
    for (const auto &c : cases) {
        try {
            CodexRecordedTurnSnapshotReader::decode(
                snapshot(idOne, "2026-11-22T19:53:36.533Z", c.overrides));
            ADD_FAILURE() << c.name;
        } catch (const CodexRecordedTurnReadError &error) {
            EXPECT_EQ(error.kind(), Kind::invalidSnapshot) << c.name;
        }
    }
    EXPECT_EQ(CodexRecordedTurnSnapshotReader::statusFromRaw("paused"),
              RackRecordedTurnStatus::unknown);
}

TEST(CodexRecordedTurnSnapshotTest, AcceptsNewerSnapshotsAndAgesThem)
{
    taskrack::testing::VirtualFileSystem files;
    const QString path = home + "/" + CodexRecordedTurnSnapshotReader::fileName;
    double uptime = 100;
    CodexRecordedTurnSnapshotReader reader(files, home, [&] { return uptime; });
    EXPECT_TRUE(reader.read(scope).isEmpty());

    files.addFile(path, snapshot(idTwo, "2026-11-22T19:53:36.533Z"));
    CodexRecordedTurns turns = reader.read(scope);
    ASSERT_TRUE(turns.contains(thread));
    EXPECT_EQ(turns[thread].status, RackRecordedTurnStatus::inProgress);
    EXPECT_EQ(turns[thread].identity.accountScope, scope.accountUserHash);
    EXPECT_EQ(turns[thread].expiresAtUptime, 190);

    // Read again later: the same snapshot keeps its clock.
    uptime = 150;
    EXPECT_EQ(reader.read(scope)[thread].loadedAtUptime, 100);
    // An older file arriving after a newer one changes nothing.
    files.addFile(path, snapshot(idOne, "2026-11-22T19:50:00.000Z", {}, "completed"));
    EXPECT_EQ(reader.read(scope)[thread].status, RackRecordedTurnStatus::inProgress);
    // Another account's snapshot gives nothing, and no error.
    EXPECT_TRUE(reader.read({"durable", "other"}).isEmpty());

    // The label runs out with the uptime, not the wall clock.
    RackThread desktop;
    desktop.codexDesktopIdentity = CodexDesktopIdentity{scope.accountUserHash};
    desktop.recordedTurnObservation = turns[thread];
    EXPECT_EQ(desktop.recordedTurnLabel(189.9), "Recorded: In progress");
    EXPECT_EQ(desktop.recordedTurnLabel(190), "Recorded: Unknown (expired)");
    desktop.hasLiveCloudStatus = true;
    EXPECT_EQ(desktop.recordedTurnLabel(100), "");

    files.addFile(path, "{");
    EXPECT_THROW(reader.read(scope), CodexRecordedTurnReadError);
}

} // namespace
