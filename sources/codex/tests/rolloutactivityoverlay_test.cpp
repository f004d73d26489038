#include "platform/linux/linuxfilesystem.h"
#include "sources/codex/rolloutactivityoverlay.h"
#include "sources/codex/sqlitethreadsource.h"
#include "sources/codex/sqlitethreadsourceerror.h"
#include "testing/statedatabasefixture.h"

#include <QDir>
#include <QFile>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

using namespace taskrack;

static const LinuxFileSystem fileSystem;
namespace fixture = taskrack::testing;

namespace {

constexpr qint64 second = 1000;
constexpr qint64 minute = 60 * second;
constexpr qint64 hour = 60 * minute;
constexpr qint64 KiB = 1024;
constexpr qint64 MiB = 1024 * KiB;

// A fixed "now" keeps every age exact; file times are set explicitly.
const qint64 nowMs = 1'795'377'400'000;

QByteArray iso(qint64 ms)
{
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC).toString(Qt::ISODateWithMs).toLatin1();
}

QByteArray event(const char *kind, std::optional<qint64> at, const QByteArray &extraPayload = {})
{
    QByteArray line = "{";
    if (at)
        line += "\"timestamp\":\"" + iso(*at) + "\",";
    line += "\"type\":\"event_msg\",\"payload\":{\"type\":\"" + QByteArray(kind) + "\"" +
            extraPayload + "}}\n";
    return line;
}

QByteArray failure(qint64 at)
{
    return event("task_complete", at, ",\"error\":{\"message\":\"mock failure\"}");
}

// A lifecycle line of exactly `length` bytes before its newline.
QByteArray paddedEvent(const char *kind, qint64 at, qint64 length)
{
    const QByteArray head = "{\"timestamp\":\"" + iso(at) +
                            "\",\"type\":\"event_msg\",\"payload\":{\"type\":\"" + kind +
                            "\",\"pad\":\"";
    const QByteArray tail = "\"}}";
    return head + QByteArray(length - head.size() - tail.size(), 'p') + tail + "\n";
}

// Model output: never a lifecycle line. Exactly `length` bytes with its newline.
QByteArray filler(qint64 length)
{
    const QByteArray head =
        "{\"type\":\"response_item\",\"payload\":{\"type\":\"message\",\"text\":\"";
    const QByteArray tail = "\"}}\n";
    return head + QByteArray(length - head.size() - tail.size(), 'f') + tail;
}

QByteArray fillerBlock(qint64 total, qint64 lineLength = 16 * KiB)
{
    QByteArray block;
    block.reserve(total);
    while (total - block.size() >= 2 * lineLength)
        block += filler(lineLength);
    block += filler(total - block.size());
    return block;
}

// Parameter tables print by case name.
template <typename Case>
requires requires(const Case &c)
{
    c.name;
}
void PrintTo(const Case &c, std::ostream *os)
{
    *os << c.name;
}

class RolloutActivityOverlayTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        database = std::make_unique<fixture::StateDatabase>(
            SQLiteThreadSource::databasePathIn(home()), fixture::currentThreadsSchema);
        overlay = std::make_unique<RolloutActivityOverlay>(
            fileSystem, SQLiteThreadSource::databasePathIn(home()));
    }

    QString home() const { return dir.path(); }

    QString rolloutPath(const QString &id) const
    {
        return dir.filePath("sessions/2026/11/22/rollout-" + id + ".jsonl");
    }

    // Registers a thread whose rollout is at the usual place. Times in ms; 0 means not recorded.
    void addThread(const QString &id, qint64 updatedAtMs = 0, qint64 recencyAtMs = 0,
                   const QString &path = {})
    {
        database->insert({{"id", id},
                          {"rollout_path", path.isEmpty() ? rolloutPath(id) : path},
                          {"title", id},
                          {"source", "exec"},
                          {"updated_at", updatedAtMs / 1000},
                          {"recency_at_ms", recencyAtMs}});
    }

    static void setModified(const QString &path, qint64 ms)
    {
        const timespec times[2] = {{ms / 1000, (ms % 1000) * 1'000'000},
                                   {ms / 1000, (ms % 1000) * 1'000'000}};
        ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0), 0);
    }

    static void write(const QString &path, const QByteArray &bytes, qint64 modifiedMs,
                      QIODevice::OpenMode mode = QIODevice::WriteOnly | QIODevice::Truncate)
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        ASSERT_TRUE(file.open(mode));
        ASSERT_EQ(file.write(bytes), bytes.size());
        file.close();
        setModified(path, modifiedMs);
    }

    void writeRollout(const QString &id, const QByteArray &bytes, qint64 modifiedMs)
    {
        write(rolloutPath(id), bytes, modifiedMs);
    }

    void appendRollout(const QString &id, const QByteArray &bytes, qint64 modifiedMs)
    {
        write(rolloutPath(id), bytes, modifiedMs, QIODevice::Append);
    }

    static RackThread thread(const QString &id, RackStatus status = RackStatus::recent)
    {
        RackThread thread;
        thread.id = codexThreadPrefix + id;
        thread.providerThreadID = id;
        thread.status = status;
        thread.updatedAt = QDateTime::fromMSecsSinceEpoch(1'700'000'000'000, Qt::UTC);
        thread.recencyAt = thread.updatedAt;
        return thread;
    }

    ThreadCollection pass(const QList<RackThread> &threads, qint64 atMs = nowMs)
    {
        ThreadCollection collection;
        collection.threads = threads;
        collection.sourceDescription = SQLiteThreadSource::description;
        return overlay->apply(collection, QDateTime::fromMSecsSinceEpoch(atMs, Qt::UTC));
    }

    RackThread passOne(const QString &id, qint64 atMs = nowMs)
    {
        return pass({thread(id)}, atMs).threads.first();
    }

    RackStatus statusOf(const QString &id, qint64 atMs = nowMs) { return passOne(id, atMs).status; }

    QList<RackStatus> statusesOf(const QList<RackThread> &threads)
    {
        QList<RackStatus> statuses;
        for (const RackThread &t : pass(threads).threads)
            statuses << t.status;
        return statuses;
    }

    QTemporaryDir dir;
    std::unique_ptr<fixture::StateDatabase> database;
    std::unique_ptr<RolloutActivityOverlay> overlay;
};

struct FreshnessCase
{
    const char *name;
    QByteArray rollout;
    qint64 fileAgeMs;
    qint64 databaseAgeMs; // 0: no database time
    RackStatus expected;
};

class RolloutFreshnessTest : public RolloutActivityOverlayTest,
                             public ::testing::WithParamInterface<FreshnessCase>
{
};

TEST_P(RolloutFreshnessTest, DecidesStatusFromTheLastLifecycleEventAndItsAge)
{
    const FreshnessCase &param = GetParam();
    addThread("t", param.databaseAgeMs ? nowMs - param.databaseAgeMs : 0);
    writeRollout("t", param.rollout, nowMs - param.fileAgeMs);
    EXPECT_EQ(rawValue(statusOf("t")), rawValue(param.expected));
}

INSTANTIATE_TEST_SUITE_P(
    Windows, RolloutFreshnessTest,
    ::testing::Values(
        FreshnessCase{"runningWithinTwelveHours", event("task_started", nowMs - 12 * hour),
                      11 * hour + 59 * minute, 11 * hour + 59 * minute, RackStatus::working},
        FreshnessCase{"runningTooLongAgo", event("task_started", nowMs - 13 * hour),
                      12 * hour + second, 12 * hour + second, RackStatus::recent},
        FreshnessCase{"databaseWriteKeepsAnOldFileAlive", event("task_started", nowMs - 13 * hour),
                      13 * hour, 10 * minute, RackStatus::working},
        FreshnessCase{"fiveSecondsAheadIsNow", event("task_started", nowMs), -5 * second, 0,
                      RackStatus::working},
        FreshnessCase{"sixSecondsAheadIsNotBelieved", event("task_started", nowMs), -6 * second, 0,
                      RackStatus::recent},
        FreshnessCase{"completedWithinFifteenMinutes",
                      event("task_started", nowMs - 900 * second) +
                          event("task_complete", nowMs - 899 * second),
                      899 * second, 0, RackStatus::completed},
        FreshnessCase{"completedLongerAgo",
                      event("task_started", nowMs - 902 * second) +
                          event("task_complete", nowMs - 901 * second),
                      901 * second, 0, RackStatus::recent},
        FreshnessCase{"completionBeforeTheLatestStart",
                      event("task_started", nowMs - 10 * second) +
                          event("task_complete", nowMs - 20 * second),
                      10 * second, 0, RackStatus::recent},
        FreshnessCase{"completionAtTheLatestStart",
                      event("task_started", nowMs - 10 * second) +
                          event("task_complete", nowMs - 10 * second),
                      10 * second, 0, RackStatus::completed},
        FreshnessCase{"completionWithoutTime",
                      event("task_started", nowMs - 10 * second) + event("task_complete", {}),
                      10 * second, 0, RackStatus::recent},
        FreshnessCase{"interruptedWithinTwoMinutes",
                      event("task_started", nowMs - 130 * second) +
                          event("turn_aborted", nowMs - 120 * second),
                      120 * second, 0, RackStatus::error},
        FreshnessCase{"interruptedLongerAgo",
                      event("task_started", nowMs - 130 * second) +
                          event("turn_aborted", nowMs - 121 * second),
                      121 * second, 0, RackStatus::recent},
        FreshnessCase{"failedWithinTwoMinutes",
                      event("task_started", nowMs - 61 * second) + failure(nowMs - 60 * second),
                      60 * second, 0, RackStatus::error},
        FreshnessCase{"failedLongerAgo",
                      event("task_started", nowMs - 301 * second) + failure(nowMs - 300 * second),
                      300 * second, 0, RackStatus::recent},
        FreshnessCase{"noLifecycleAtAll", filler(300), 10 * second, 0, RackStatus::recent}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(RolloutActivityOverlayTest, CompletionFadesWhenItsWindowEndsThoughTheFileIsUnchanged)
{
    addThread("t");
    writeRollout("t",
                 event("task_started", nowMs - 950 * second) +
                     event("task_complete", nowMs - 899 * second),
                 nowMs - 899 * second);
    EXPECT_EQ(statusOf("t"), RackStatus::completed);
    const quint64 afterFirstPass = overlay->bytesRead();
    EXPECT_GT(afterFirstPass, 0u);

    // Unchanged file and window still open: answered from the cache without reading.
    EXPECT_EQ(statusOf("t", nowMs + 500), RackStatus::completed);
    EXPECT_EQ(overlay->bytesRead(), afterFirstPass);
    EXPECT_EQ(overlay->watchedRollouts(QDateTime::fromMSecsSinceEpoch(nowMs, Qt::UTC)),
              QStringList({rolloutPath("t")}));

    EXPECT_EQ(statusOf("t", nowMs + 2 * second), RackStatus::recent);
    EXPECT_TRUE(
        overlay->watchedRollouts(QDateTime::fromMSecsSinceEpoch(nowMs + 2 * second, Qt::UTC))
            .isEmpty());
}

TEST_F(RolloutActivityOverlayTest, ALiveStatusStandsButTimesStillFollowTheRollout)
{
    const qint64 started = nowMs - 60 * second, completed = nowMs - 30 * second;
    addThread("live", 0, nowMs - 61 * second);
    addThread("history", 0, nowMs - 61 * second);
    addThread("norecency", 0, 0);
    for (const QString id : {"live", "history", "norecency"})
        writeRollout(id, event("task_started", started) + event("task_complete", completed),
                     completed);

    const ThreadCollection result =
        pass({thread("live", RackStatus::working), thread("history"), thread("norecency")});
    EXPECT_EQ(result.sourceDescription, "Local Codex history (read-only) + local activity");

    const RackThread &live = result.threads[0];
    EXPECT_EQ(live.status, RackStatus::working);
    EXPECT_EQ(live.updatedAt, thread("live").updatedAt);
    EXPECT_EQ(live.recencyAt.toMSecsSinceEpoch(), nowMs - 61 * second);

    const RackThread &history = result.threads[1];
    EXPECT_EQ(history.status, RackStatus::completed);
    EXPECT_EQ(history.updatedAt.toMSecsSinceEpoch(), completed);
    EXPECT_EQ(history.recencyAt.toMSecsSinceEpoch(), nowMs - 61 * second);

    // Without a recorded recency the start of the latest turn orders the thread.
    EXPECT_EQ(result.threads[2].recencyAt.toMSecsSinceEpoch(), started);
}

TEST_F(RolloutActivityOverlayTest, OnlyLocalCodexThreadsWithARecordAreCandidates)
{
    addThread("t");
    database->insert({{"id", "archived"},
                      {"rollout_path", rolloutPath("archived")},
                      {"title", "a"},
                      {"source", "exec"},
                      {"archived", 1}});
    database->insert({{"id", "nopath"}, {"rollout_path", ""}, {"title", "n"}, {"source", "exec"}});
    for (const QString id : {"t", "archived", "nopath", "desktop"})
        writeRollout(id, event("task_started", nowMs), nowMs);
    addThread("desktop");

    RackThread claude = thread("t");
    claude.id = "claude:t";
    claude.provider = RackProvider::claudeDesktop;
    RackThread desktop = thread("desktop");
    desktop.codexDesktopIdentity = CodexDesktopIdentity{"scope"};

    EXPECT_EQ(statusesOf({thread("t"), thread("archived"), thread("nopath"), claude, desktop}),
              (QList<RackStatus>{RackStatus::working, RackStatus::recent, RackStatus::recent,
                                 RackStatus::recent, RackStatus::recent}));
}

struct LineLimitCase
{
    const char *name;
    QByteArray appended;
    RackStatus expected;
};

class RolloutLineLimitTest : public RolloutActivityOverlayTest,
                             public ::testing::WithParamInterface<LineLimitCase>
{
};

TEST_P(RolloutLineLimitTest, OverLongLinesAreDroppedWholeOnForwardReads)
{
    // The first pass bootstraps from the tail; what is appended later goes through the forward
    // reader, which bounds every line.
    addThread("t");
    writeRollout("t", event("task_started", nowMs - 20 * second), nowMs - 20 * second);
    ASSERT_EQ(statusOf("t"), RackStatus::working);

    appendRollout("t", GetParam().appended, nowMs - 5 * second);
    EXPECT_EQ(rawValue(statusOf("t")), rawValue(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Limits, RolloutLineLimitTest,
    ::testing::Values(
        LineLimitCase{"exactlyTheLimitIsRead",
                      paddedEvent("task_complete", nowMs - 10 * second, 131072) + filler(200),
                      RackStatus::completed},
        LineLimitCase{"oneByteMoreIsDropped",
                      paddedEvent("task_complete", nowMs - 10 * second, 131073) + filler(200),
                      RackStatus::working},
        // 300 KiB spans several 64 KiB reads: no fragment of the dropped line may leak.
        LineLimitCase{"theLineAfterADroppedOneIsRead",
                      paddedEvent("turn_aborted", nowMs - 10 * second, 300 * 1024) +
                          event("task_complete", nowMs - 9 * second),
                      RackStatus::completed}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(RolloutActivityOverlayTest, AnUnfinishedLastLineCountsNowAndOnceMoreWhenEnded)
{
    addThread("t");
    writeRollout("t", event("task_started", nowMs - 20 * second), nowMs - 20 * second);
    ASSERT_EQ(statusOf("t"), RackStatus::working);

    QByteArray completion = event("task_complete", nowMs - 10 * second);
    completion.chop(1);
    appendRollout("t", completion, nowMs - 10 * second);
    EXPECT_EQ(statusOf("t"), RackStatus::completed);

    appendRollout("t", "\n", nowMs - 9 * second);
    EXPECT_EQ(statusOf("t"), RackStatus::completed);

    // The next line starts clean after the newline.
    appendRollout("t", event("task_started", nowMs - 5 * second), nowMs - 5 * second);
    EXPECT_EQ(statusOf("t"), RackStatus::working);
}

TEST_F(RolloutActivityOverlayTest, LargeRolloutCostsTheTailThenOnlyWhatIsAppended)
{
    addThread("t");
    const QByteArray start = event("task_started", nowMs - 60 * second);
    const QByteArray body = fillerBlock(3 * MiB);
    const QByteArray end = event("task_complete", nowMs - 30 * second);
    writeRollout("t", start + body + end, nowMs - 30 * second);

    EXPECT_EQ(statusOf("t"), RackStatus::completed);
    EXPECT_LE(overlay->bytesRead(), quint64(RolloutActivityOverlay::maximumTailBytes));

    const quint64 before = overlay->bytesRead();
    const QByteArray next = event("task_started", nowMs - 2 * second);
    appendRollout("t", next, nowMs - 2 * second);
    EXPECT_EQ(statusOf("t"), RackStatus::working);
    EXPECT_EQ(overlay->bytesRead() - before, quint64(next.size()));
}

TEST_F(RolloutActivityOverlayTest, AnOldFileWithoutLifecycleNearItsEndIsNotScanned)
{
    addThread("t");
    writeRollout("t", event("task_started", nowMs - 20 * hour) + fillerBlock(3 * MiB),
                 nowMs - 20 * hour);
    EXPECT_EQ(statusOf("t"), RackStatus::recent);
    EXPECT_EQ(overlay->bytesRead(), quint64(RolloutActivityOverlay::maximumTailBytes));

    const QByteArray next = event("task_started", nowMs - second);
    appendRollout("t", next, nowMs - second);
    EXPECT_EQ(statusOf("t"), RackStatus::working);
    EXPECT_EQ(overlay->bytesRead(),
              quint64(RolloutActivityOverlay::maximumTailBytes + next.size()));
}

TEST_F(RolloutActivityOverlayTest, AFreshFileWithoutLifecycleNearItsEndIsScannedWithinBudget)
{
    addThread("t");
    writeRollout("t", event("task_started", nowMs - 20 * minute) + fillerBlock(3 * MiB),
                 nowMs - second);
    EXPECT_EQ(statusOf("t"), RackStatus::working);
    EXPECT_EQ(overlay->bytesRead(), quint64(RolloutActivityOverlay::maximumTailBytes +
                                            RolloutActivityOverlay::maximumLifecycleScanBytes));

    // The unread middle is skipped for good: the next pass starts at the old end.
    const quint64 before = overlay->bytesRead();
    const QByteArray next = event("task_complete", nowMs);
    appendRollout("t", next, nowMs);
    EXPECT_EQ(statusOf("t"), RackStatus::completed);
    EXPECT_EQ(overlay->bytesRead() - before, quint64(next.size()));
}

TEST_F(RolloutActivityOverlayTest, AnAppendBeyondTheScanBudgetBootstrapsFromTheTailAgain)
{
    addThread("t");
    writeRollout("t", event("task_started", nowMs - 60 * second), nowMs - 60 * second);
    ASSERT_EQ(statusOf("t"), RackStatus::working);

    const quint64 before = overlay->bytesRead();
    appendRollout("t", fillerBlock(3 * MiB) + event("turn_aborted", nowMs - second),
                  nowMs - second);
    EXPECT_EQ(statusOf("t"), RackStatus::error);
    EXPECT_LE(overlay->bytesRead() - before, quint64(RolloutActivityOverlay::maximumTailBytes));
}

TEST_F(RolloutActivityOverlayTest, AFileReplacedBySameSizedOneWithANewInodeIsReadAnew)
{
    addThread("t");
    const qint64 at = nowMs - 30 * second;
    const QByteArray running = event("task_started", at) + filler(100);
    writeRollout("t", running, at);
    ASSERT_EQ(statusOf("t"), RackStatus::working);

    // Same size, same modification time, different file: only the inode tells.
    QByteArray done = event("task_complete", at);
    done += filler(running.size() - done.size());
    ASSERT_EQ(done.size(), running.size());
    const QString replacement = rolloutPath("t") + ".new";
    write(replacement, done, at);
    ASSERT_EQ(::rename(QFile::encodeName(replacement).constData(),
                       QFile::encodeName(rolloutPath("t")).constData()),
              0);
    setModified(rolloutPath("t"), at);
    EXPECT_EQ(statusOf("t"), RackStatus::completed);
}

TEST_F(RolloutActivityOverlayTest, RolloutsOutsideCodexsFolderAreNeverOpened)
{
    QTemporaryDir outside;
    const QString foreign = outside.filePath("rollout.jsonl");
    write(foreign, event("task_started", nowMs), nowMs);

    addThread("direct", 0, 0, foreign);
    addThread("dotdot", 0, 0,
              home() + "/sessions/../../" + QFileInfo(outside.path()).fileName() +
                  "/rollout.jsonl");
    const QString link = rolloutPath("linked");
    QDir().mkpath(QFileInfo(link).absolutePath());
    ASSERT_TRUE(QFile::link(foreign, link));
    addThread("linked");
    ASSERT_TRUE(QFile::link(outside.path(), home() + "/sessions/escape"));
    addThread("viaFolder", 0, 0, home() + "/sessions/escape/rollout.jsonl");

    // A link that stays inside the folder is fine.
    writeRollout("inner", event("task_started", nowMs), nowMs);
    ASSERT_TRUE(QFile::link(rolloutPath("inner"), rolloutPath("alias")));
    addThread("alias");

    EXPECT_EQ(statusesOf({thread("direct"), thread("dotdot"), thread("linked"), thread("viaFolder"),
                          thread("alias")}),
              (QList<RackStatus>{RackStatus::recent, RackStatus::recent, RackStatus::recent,
                                 RackStatus::recent, RackStatus::working}));
    EXPECT_EQ(overlay->bytesRead(), quint64(event("task_started", nowMs).size()));
}

TEST_F(RolloutActivityOverlayTest, WatchesRunningRolloutsFirstThenUnexpiredOnesNewestFirst)
{
    QList<RackThread> threads;
    auto add = [&](const QString &id, const QByteArray &bytes, qint64 modified) {
        addThread(id);
        writeRollout(id, bytes, modified);
        threads << thread(id);
    };
    for (int i = 0; i < 34; ++i)
        add(QString("run%1").arg(i, 2, 10, QChar('0')), event("task_started", nowMs - hour),
            nowMs - hour + i * second);
    add("done", event("task_complete", nowMs - second), nowMs - second);
    add("stale", event("task_complete", nowMs - hour), nowMs - hour);
    pass(threads);

    const QDateTime now = QDateTime::fromMSecsSinceEpoch(nowMs, Qt::UTC);
    const QStringList watched = overlay->watchedRollouts(now);
    ASSERT_EQ(watched.size(), RolloutActivityOverlay::maximumWatchedRolloutCount);
    EXPECT_EQ(watched.first(), rolloutPath("run33"));
    EXPECT_EQ(watched.last(), rolloutPath("run02"));

    // With fewer running ones, the finished one that still shows follows them.
    const QStringList few = [&] {
        pass({thread("run00"), thread("run01"), thread("done"), thread("stale")});
        return overlay->watchedRollouts(now);
    }();
    EXPECT_EQ(few, QStringList({rolloutPath("run01"), rolloutPath("run00"), rolloutPath("done")}));
}

TEST_F(RolloutActivityOverlayTest, AFailingStateDatabaseIsThrownButWithoutCandidatesItIsNotNeeded)
{
    addThread("t");
    writeRollout("t", event("task_started", nowMs), nowMs);
    ASSERT_EQ(statusOf("t"), RackStatus::working);
    const QDateTime now = QDateTime::fromMSecsSinceEpoch(nowMs, Qt::UTC);
    ASSERT_EQ(overlay->watchedRollouts(now).size(), 1);

    // Without candidates everything is forgotten.
    EXPECT_EQ(pass({}).sourceDescription, "Local Codex history (read-only) + local activity");
    EXPECT_TRUE(overlay->watchedRollouts(now).isEmpty());

    RolloutActivityOverlay broken(fileSystem, dir.filePath("missing/state_5.sqlite"));
    ThreadCollection collection;
    collection.threads = {thread("t")};
    EXPECT_THROW(broken.apply(collection, now), SQLiteThreadSourceError);
    EXPECT_NO_THROW(broken.apply({}, now));
}

} // namespace
