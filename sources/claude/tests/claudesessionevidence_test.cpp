#include "platform/linux/linuxfilesystem.h"
#include "sources/claude/claudelivesessionregistry.h"
#include "sources/claude/claudesessionevidence.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

const QDateTime now = QDateTime::fromString("2026-11-22T20:00:00.000Z", Qt::ISODateWithMs);

TEST(LiveStatusTest, FoldsEvidenceIntoOneStatus)
{
    const struct
    {
        const char *name;
        std::optional<RackStatus> observed;
        double observedAgo;
        std::optional<qint64> backgroundTasks;
        std::optional<double> inputRequestedAgo;
        std::optional<double> busyAgo; // a live "busy" entry this long ago
        RackStatus expected;
    } cases[] = {
        {"nothingKnownIsRecent", {}, 0, {}, {}, {}, RackStatus::recent},
        {"freshErrorStays", RackStatus::error, 119, {}, {}, {}, RackStatus::error},
        {"errorFadesAfter120s", RackStatus::error, 120, {}, {}, {}, RackStatus::recent},
        {"completedFadesAfter900s", RackStatus::completed, 900, {}, {}, {}, RackStatus::recent},
        {"completedBefore900s", RackStatus::completed, 899, {}, {}, {}, RackStatus::completed},
        {"idleFadesAfter1800s", RackStatus::idle, 1800, {}, {}, {}, RackStatus::recent},
        {"workingLastsTwelveHours", RackStatus::working, 43199, {}, {}, {}, RackStatus::working},
        {"futureObservationIsFresh", RackStatus::error, -30, {}, {}, {}, RackStatus::error},
        {"backgroundTasksKeepCompletedWorking",
         RackStatus::completed,
         10,
         2,
         {},
         {},
         RackStatus::working},
        {"backgroundTasksLeaveErrorAlone", RackStatus::error, 10, 2, {}, {}, RackStatus::error},
        {"zeroBackgroundTasksChangeNothing",
         RackStatus::completed,
         10,
         0,
         {},
         {},
         RackStatus::completed},
        {"newerInputRequestWins", RackStatus::working, 10, {}, 5, {}, RackStatus::requiresInput},
        {"olderInputRequestIgnored", RackStatus::working, 5, {}, 10, {}, RackStatus::working},
        {"equalInputRequestIgnored", RackStatus::working, 5, {}, 5, {}, RackStatus::working},
        {"inputRequestWithoutObservationStaysRecent", {}, 0, {}, 5, {}, RackStatus::recent},
        {"inputRequestOverFadedStatusStaysRecent",
         RackStatus::completed,
         1000,
         {},
         5,
         {},
         RackStatus::recent},
        {"busyNewerThanTranscriptIsWorking",
         RackStatus::completed,
         10,
         {},
         {},
         5,
         RackStatus::working},
        {"busyOlderThanTranscriptIgnored",
         RackStatus::completed,
         5,
         {},
         {},
         10,
         RackStatus::completed},
        {"busyWithoutTranscriptIsWorking", {}, 0, {}, {}, 5, RackStatus::working},
        {"busyThenPermissionPromptAsksForInput",
         RackStatus::completed,
         10,
         {},
         2,
         5,
         RackStatus::requiresInput},
    };
    const auto ago = [](double seconds) { return now.addMSecs(qint64(-seconds * 1000)); };
    for (const auto &c : cases) {
        ClaudeObservedStatus observation{c.observed.value_or(RackStatus::recent),
                                         ago(c.observedAgo), std::nullopt};
        ClaudeBackgroundTaskSnapshot tasks{c.backgroundTasks.value_or(0), now.addSecs(-10)};
        ClaudeInputRequest request{ago(c.inputRequestedAgo.value_or(0))};
        ClaudeLiveSessionEntry live{1, "s", "/w", true, ago(c.busyAgo.value_or(0))};
        ClaudeSessionFacts facts;
        facts.observation = c.observed ? &observation : nullptr;
        facts.backgroundTasks = c.backgroundTasks ? &tasks : nullptr;
        facts.inputRequest = c.inputRequestedAgo ? &request : nullptr;
        facts.liveEntry = c.busyAgo ? &live : nullptr;
        EXPECT_EQ(claudeLiveStatus(facts, now), c.expected) << c.name;
    }
}

TEST(LiveStatusTest, ATurnLeftOpenByAProcessThatIsGoneLooksInterrupted)
{
    const struct
    {
        RackStatus observed;
        double observedAgo;
        RackStatus expected;
    } cases[] = {
        {RackStatus::working, 10, RackStatus::error},
        {RackStatus::working, 5400, RackStatus::recent}, // cut short long ago
        {RackStatus::completed, 10, RackStatus::completed},
    };
    for (const auto &c : cases) {
        ClaudeObservedStatus observation{c.observed, now.addSecs(qint64(-c.observedAgo)),
                                         std::nullopt};
        ClaudeBackgroundTaskSnapshot tasks{2, now.addSecs(-5)};
        ClaudeSessionFacts facts;
        facts.observation = &observation;
        facts.backgroundTasks = &tasks;
        facts.processEnded = true;
        EXPECT_EQ(claudeLiveStatus(facts, now), c.expected)
            << int(c.observed) << " " << c.observedAgo;
    }
}

TEST(SessionEvidenceTest, DatesAndRecencyComeFromTheNewestEvidence)
{
    ClaudeObservedStatus observation{RackStatus::working, now.addSecs(-60), now.addSecs(-90)};
    ClaudeInputRequest request{now.addSecs(-30)};
    ClaudeSessionFacts facts;
    facts.lastActivityAtMs = now.addSecs(-3600).toMSecsSinceEpoch();
    EXPECT_EQ(claudeUpdatedAt(facts), now.addSecs(-3600));
    EXPECT_EQ(claudeRecencyAt(facts), now.addSecs(-3600));
    facts.observation = &observation;
    facts.inputRequest = &request;
    EXPECT_EQ(claudeUpdatedAt(facts), now.addSecs(-30));
    EXPECT_EQ(claudeRecencyAt(facts), now.addSecs(-90))
        << "only a person's submission moves recency";
}

TEST(SessionEvidenceTest, PersistsDatesAsSecondsSince2001AndRoundTrips)
{
    ClaudeSessionEvidence evidence;
    evidence.observations.insert(
        "a", {RackStatus::completed,
              QDateTime::fromString("2001-01-01T00:01:00.500Z", Qt::ISODateWithMs), std::nullopt});
    evidence.observations.insert("b", {RackStatus::working, now, now.addSecs(-5)});
    evidence.inputRequests.insert("a", {now});
    evidence.backgroundTaskSnapshots.insert("b", {3, now});
    const QByteArray encoded = encodeClaudeSessionEvidence(evidence);
    EXPECT_TRUE(encoded.contains(R"("observedAt":60.5)")) << encoded.constData();
    EXPECT_FALSE(encoded.contains("\"lastUserSubmittedAt\":null"));
    EXPECT_EQ(decodeClaudeSessionEvidence(encoded), evidence);
}

TEST(SessionEvidenceTest, MalformedFileGivesNoEvidenceAtAll)
{
    EXPECT_EQ(decodeClaudeSessionEvidence("{}"), ClaudeSessionEvidence{});
    const char *refused[] = {
        "",
        "[]",
        R"({"observations":[]})",
        R"({"observations":{"a":{"status":"working","observedAt":1}},"inputRequests":{"b":{}}})",
        R"({"observations":{"a":{"status":"busy","observedAt":1}}})",
        R"({"backgroundTaskSnapshots":{"a":{"activeTaskCount":1.5,"observedAt":1}}})",
    };
    for (const char *data : refused)
        EXPECT_FALSE(decodeClaudeSessionEvidence(data)) << data;
}

TEST(LiveSessionRegistryTest, ReadsEntriesTellingRunningFromDeadProcessesAndBounded)
{
    QTemporaryDir temp;
    const auto write = [&](const QString &name, const QByteArray &data) {
        QFile file(temp.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(data);
    };
    write(
        "100.json",
        R"({"pid":100,"sessionId":"s1","cwd":"/w","status":"busy","statusUpdatedAt":1795380359823})");
    write("200.json",
          R"({"pid":200,"sessionId":"s2","status":"busy","statusUpdatedAt":1})"); // process gone
    write("300.json", R"({"pid":301,"sessionId":"s3","status":"busy"})");         // name mismatch
    write("400.json", R"({"pid":400,"sessionId":"s4","status":"idle","pad":")" +
                          QByteArray(70000, 'x') + "\"}");
    write(
        "500.json",
        R"({"pid":500,"sessionId":"s1","status":"idle","statusUpdatedAt":1795380359000})"); // older
    const LinuxFileSystem fileSystem;
    const ClaudeLiveSessionRegistry registry(fileSystem, temp.path(),
                                             [](qint64 pid) { return pid != 200; });
    const auto entries = registry.read();
    QList<QString> sessions = entries.keys();
    std::sort(sessions.begin(), sessions.end());
    ASSERT_EQ(sessions, QList<QString>({"s1", "s2"}));
    EXPECT_FALSE(entries["s2"].isRunning) << "a dead process's entry is evidence too";
    EXPECT_TRUE(entries["s1"].isBusy && entries["s1"].isRunning);
    EXPECT_EQ(entries["s1"].statusUpdatedAt,
              QDateTime::fromMSecsSinceEpoch(1795380359823, Qt::UTC));
    EXPECT_TRUE(ClaudeLiveSessionRegistry(fileSystem, temp.filePath("missing")).read().isEmpty());
}

} // namespace
