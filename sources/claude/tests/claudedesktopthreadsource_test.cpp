#include "platform/linux/inotifyfilewatch.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/linux/pidfdprocessexitwatch.h"
#include "sources/claude/claudedesktopthreadsource.h"
#include "testing/testsupport.h"

#include <QCoroTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

// The source runs on its own thread, so its clock must be safe to read from there: wall time is
// set by the test, sleeps are real (short) timer waits on the sleeping thread.
class SharedTestClock : public Clock
{
public:
    QDateTime now() const override
    {
        return QDateTime::fromMSecsSinceEpoch(m_nowMs.load(), Qt::UTC);
    }
    double uptime() const override { return double(m_started.nsecsElapsed()) / 1e9; }
    QCoro::Task<void> sleep(std::chrono::milliseconds duration) override
    {
        co_await QCoro::sleepFor(duration);
    }
    void set(const QDateTime &at) { m_nowMs.store(at.toMSecsSinceEpoch()); }

private:
    std::atomic<qint64> m_nowMs{0};
    QElapsedTimer m_started = [] {
        QElapsedTimer timer;
        timer.start();
        return timer;
    }();
};

const QDateTime baseTime = QDateTime::fromString("2026-11-22T20:00:00.000Z", Qt::ISODateWithMs);

QByteArray stamp(const QDateTime &at)
{
    return at.toUTC().toString(Qt::ISODateWithMs).toUtf8();
}

QByteArray promptLine(const QDateTime &at, const QByteArray &text,
                      const QByteArray &cwd = "/work/app")
{
    return R"({"type":"user","isSidechain":false,"message":{"role":"user","content":")" + text +
           R"("},"timestamp":")" + stamp(at) + R"(","cwd":")" + cwd + "\"}\n";
}

QByteArray assistantLine(const QDateTime &at, const QByteArray &stopReason = "end_turn")
{
    return R"({"type":"assistant","message":{"stop_reason":")" + stopReason +
           R"(","content":[{"type":"text","text":"ok"}]},"timestamp":")" + stamp(at) + "\"}\n";
}

class ClaudeSourceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(temp.isValid());
        home = temp.path() + "/home";
        paths = ClaudeSourcePaths::forHome(home, temp.path() + "/data");
        clock.set(baseTime);
    }

    LinuxFileSystem fileSystem;
    std::unique_ptr<ClaudeDesktopThreadSource> makeSource()
    {
        ClaudeDesktopThreadSource::Configuration configuration;
        configuration.paths = paths;
        configuration.clock = &clock;
        configuration.fileSystem = &fileSystem;
        configuration.processProbe = [this](qint64 pid) { return livePids.contains(pid); };
        configuration.fileWatchFactory = [] { return std::make_unique<InotifyFileWatch>(); };
        configuration.processExitWatchFactory = [] {
            return std::make_unique<PidfdProcessExitWatch>();
        };
        return std::make_unique<ClaudeDesktopThreadSource>(std::move(configuration));
    }

    static void writeFile(const QString &path, const QByteArray &data,
                          QIODevice::OpenMode mode = QIODevice::WriteOnly)
    {
        // Written beside and renamed over, so that a watcher never sees the content before its
        // modification time is moved to the test's clock.
        QDir().mkpath(QFileInfo(path).path());
        const QString staged = path + ".staged";
        QFile::remove(staged);
        if ((mode & QIODevice::Append) && QFile::exists(path)) {
            ASSERT_TRUE(QFile::copy(path, staged));
        }
        QFile file(staged);
        ASSERT_TRUE(file.open(mode));
        file.write(data);
        file.close();
        const qint64 ms = baseTime.toMSecsSinceEpoch();
        struct timespec times[2] = {{ms / 1000, 0}, {ms / 1000, 0}};
        ::utimensat(AT_FDCWD, QFile::encodeName(staged).constData(), times, 0);
        ASSERT_EQ(
            ::rename(QFile::encodeName(staged).constData(), QFile::encodeName(path).constData()),
            0);
    }

    QString writeManifest(const QString &id, QJsonObject extra = {},
                          const QString &folder = "acct/org")
    {
        QJsonObject manifest{{"sessionId", id},
                             {"cwd", "/work/app"},
                             {"originCwd", "/work/app"},
                             {"createdAt", baseTime.addSecs(-7200).toMSecsSinceEpoch()},
                             {"lastActivityAt", baseTime.addSecs(-3600).toMSecsSinceEpoch()},
                             {"model", "claude"}};
        for (auto it = extra.begin(); it != extra.end(); ++it)
            manifest.insert(it.key(), it.value());
        const QString path = paths.sessionRoot + "/" + folder + "/" + id + ".json";
        writeFile(path, QJsonDocument(manifest).toJson());
        return path;
    }

    QString transcriptPath(const QString &sessionId, const QString &folder = "-work-app") const
    {
        return paths.transcriptRoot + "/" + folder + "/" + sessionId + ".jsonl";
    }

    // Desktop session "local_a" driving Claude Code session "cli-a", whose last turn ended so.
    void writeSessionA(const QByteArray &stopReason)
    {
        writeManifest("local_a", {{"cliSessionId", "cli-a"}});
        writeFile(transcriptPath("cli-a"), promptLine(baseTime.addSecs(-60), "go") +
                                               assistantLine(baseTime.addSecs(-30), stopReason));
    }

    ThreadCollection fetch(ClaudeDesktopThreadSource &source, int limit = 400)
    {
        return await(source.fetchThreads(limit, {}));
    }

    static const RackThread *find(const ThreadCollection &collection, const QString &id)
    {
        for (const RackThread &thread : collection.threads) {
            if (thread.id == id)
                return &thread;
        }
        return nullptr;
    }

    QTemporaryDir temp;
    QString home;
    ClaudeSourcePaths paths;
    SharedTestClock clock;
    QSet<qint64> livePids;
};

TEST_F(ClaudeSourceTest, ManifestsBecomeThreadsWithTheirRules)
{
    writeManifest("local_a", {{"title", "  Parent task "}, {"lastFocusedAt", 5}});
    writeManifest("local_b",
                  {{"spawnedFrom", QJsonObject{{"sessionId", "local_a"}}}, {"lastFocusedAt", 9}});
    writeManifest("local_c", {{"forkedFromSessionId", "local_a"}, {"isArchived", true}});
    writeManifest("local_mismatch", {{"sessionId", "local_other"}});
    QJsonArray bridges;
    for (int i = 0; i < 65; ++i)
        bridges.append(QString("bridge%1").arg(i));
    writeManifest("local_toomany", {{"bridgeSessionIds", bridges}});
    writeManifest("local_hidden", {}, ".cache");
    writeFile(paths.sessionRoot + "/acct/org/local_broken.json", "{\"sessionId\":");

    auto source = makeSource();
    const ThreadCollection none = fetch(*source, 0);
    EXPECT_TRUE(none.threads.isEmpty());
    EXPECT_TRUE(none.isLive);
    EXPECT_EQ(source->manifestReadCounters().filesOpened.load(), 0) << "a zero limit reads nothing";

    const ThreadCollection collection = fetch(*source);
    QStringList ids;
    for (const RackThread &thread : collection.threads)
        ids.append(thread.id);
    ids.sort();
    EXPECT_EQ(ids, QStringList({"claude:local_a", "claude:local_b"}));

    const RackThread *parent = find(collection, "claude:local_a");
    const RackThread *child = find(collection, "claude:local_b");
    ASSERT_TRUE(parent && child);
    EXPECT_EQ(parent->title, "Parent task");
    EXPECT_EQ(child->title, "Untitled Claude task");
    EXPECT_EQ(parent->lineage, (RackThreadLineage{std::nullopt, 1}))
        << "the archived fork is not counted";
    EXPECT_EQ(child->lineage.parentTitle, QStringLiteral("Parent task"));
    EXPECT_TRUE(child->isProviderFocused);
    EXPECT_FALSE(parent->isProviderFocused);
    EXPECT_EQ(parent->status, RackStatus::recent);
    EXPECT_EQ(parent->recencyAt, baseTime.addSecs(-3600));
    EXPECT_EQ(parent->source, "Claude Code");
    EXPECT_EQ(parent->provider, RackProvider::claudeDesktop);
    EXPECT_EQ(collection.sourceDescription, "Claude Desktop");
}

TEST_F(ClaudeSourceTest, UnchangedFingerprintsReadNoFile)
{
    for (int i = 0; i < 20; ++i) {
        const QString id = QString("local_%1").arg(i);
        writeManifest(id, {{"cliSessionId", QString("cli-%1").arg(i)}});
        writeFile(transcriptPath(QString("cli-%1").arg(i)),
                  promptLine(baseTime.addSecs(-60), "task") + assistantLine(baseTime.addSecs(-30)));
    }
    auto source = makeSource();
    ASSERT_EQ(fetch(*source).threads.size(), 20);
    const qint64 manifests = source->manifestReadCounters().filesOpened.load();
    const qint64 transcripts = source->transcriptReadCounters().filesOpened.load();
    EXPECT_EQ(manifests, 20);
    EXPECT_GE(transcripts, 20);

    const ThreadCollection again = fetch(*source);
    EXPECT_EQ(again.threads.size(), 20);
    EXPECT_EQ(source->manifestReadCounters().filesOpened.load(), manifests);
    EXPECT_EQ(source->transcriptReadCounters().filesOpened.load(), transcripts);
}

TEST_F(ClaudeSourceTest, TranscriptDecidesStatusAndRecency)
{
    writeSessionA("tool_use");
    auto source = makeSource();
    const RackThread *thread = nullptr;
    ThreadCollection collection = fetch(*source);
    thread = find(collection, "claude:local_a");
    ASSERT_TRUE(thread);
    EXPECT_EQ(thread->status, RackStatus::working);
    EXPECT_EQ(thread->recencyAt, baseTime.addSecs(-60));
    EXPECT_EQ(thread->updatedAt, baseTime.addSecs(-30));
    EXPECT_EQ(find(collection, "claude:cli-a"), nullptr)
        << "the manifest owns its transcript: no duplicate";

    // Status updates are published once per change.
    const auto updates = drain(source->statusUpdates());
    ASSERT_EQ(updates.size(), 1);
    EXPECT_EQ(updates.first(), (RackStatusUpdate{"claude:local_a", RackStatus::working,
                                                 baseTime.addSecs(-30), baseTime.addSecs(-60)}));
    fetch(*source);
    EXPECT_TRUE(drain(source->statusUpdates()).isEmpty());
}

TEST_F(ClaudeSourceTest, DiscoversClaudeCodeSessionsFromTranscripts)
{
    const QString id = "4c24e507-8be6-4c95-a6d0-17f41660da2f";
    writeFile(
        transcriptPath(id, "-scratch-my-app"),
        R"({"type":"queue-operation","operation":"enqueue","timestamp":")" +
            stamp(baseTime.addSecs(-20)) + "\"}\n" +
            promptLine(baseTime.addSecs(-20), "Fix the login form\\nand more", "/scratch/my_app") +
            assistantLine(baseTime.addSecs(-10)) +
            R"({"type":"last-prompt","lastPrompt":"x"})"
            "\n");
    writeFile(paths.transcriptRoot + "/-scratch-my-app/" + id + "/subagents/agent-a1.jsonl",
              promptLine(baseTime, "sub"));
    auto source = makeSource();
    const ThreadCollection collection = fetch(*source);
    ASSERT_EQ(collection.threads.size(), 1);
    const RackThread &thread = collection.threads.first();
    EXPECT_EQ(thread.id, "claude:" + id);
    EXPECT_EQ(thread.providerThreadID, id);
    EXPECT_EQ(thread.workspacePath, "/scratch/my_app")
        << "taken from the lines, not the lossy folder name";
    EXPECT_EQ(thread.title, "Fix the login form");
    EXPECT_EQ(thread.status, RackStatus::completed);
    EXPECT_EQ(thread.recencyAt, baseTime.addSecs(-20));

    // Rewritten in place, the session's title follows the file; a sidechain beside it (where
    // older versions put them) is no session of its own.
    writeFile(transcriptPath(id, "-scratch-my-app"),
              promptLine(baseTime.addSecs(-20), "Rewritten prompt, longer than the first",
                         "/scratch/my_app") +
                  assistantLine(baseTime.addSecs(-10)));
    writeFile(transcriptPath("agent-a2b3c4", "-scratch-my-app"), promptLine(baseTime, "side"));
    clock.set(baseTime.addSecs(1));
    const ThreadCollection rewritten = fetch(*source);
    ASSERT_EQ(rewritten.threads.size(), 1);
    EXPECT_EQ(rewritten.threads.first().title, "Rewritten prompt, longer than the first");

    // A renamed session shows its custom title.
    writeFile(transcriptPath(id, "-scratch-my-app"),
              R"({"type":"custom-title","customTitle":"Login work","sessionId":"x"})"
              "\n",
              QIODevice::Append);
    clock.set(baseTime.addSecs(1));
    EXPECT_EQ(fetch(*source).threads.first().title, "Login work");

    // A manifest naming the same Claude Code session takes it over.
    writeManifest("local_desk", {{"cliSessionId", id}, {"title", "Desktop title"}});
    const ThreadCollection merged = fetch(*source);
    ASSERT_EQ(merged.threads.size(), 1);
    EXPECT_EQ(merged.threads.first().id, "claude:local_desk");
    EXPECT_EQ(merged.threads.first().status, RackStatus::completed);
}

TEST_F(ClaudeSourceTest, LiveRegistryBusyEntryMeansWorking)
{
    const QString id = "11111111-2222-3333-4444-555555555555";
    writeFile(transcriptPath(id),
              promptLine(baseTime.addSecs(-60), "go") + assistantLine(baseTime.addSecs(-30)));
    writeFile(paths.liveSessionsPath + "/4242.json",
              R"({"pid":4242,"sessionId":")" + id.toUtf8() +
                  R"(","status":"busy","statusUpdatedAt":)" +
                  QByteArray::number(baseTime.addSecs(-5).toMSecsSinceEpoch()) + "}");
    auto source = makeSource();
    EXPECT_EQ(fetch(*source).threads.first().status, RackStatus::completed)
        << "the process is gone";
    livePids.insert(4242);
    EXPECT_EQ(fetch(*source).threads.first().status, RackStatus::working);

    // A turn left open by a process that then dies: the interruption is news, dated when it was
    // learned, never older than the busy flag the working status carried (a store drops
    // updates older than what it shows).
    writeFile(transcriptPath(id), assistantLine(baseTime.addSecs(-20), "tool_use"),
              QIODevice::Append);
    const RackThread running = fetch(*source).threads.first();
    ASSERT_EQ(running.status, RackStatus::working);
    EXPECT_EQ(running.updatedAt, baseTime.addSecs(-5));
    livePids.remove(4242);
    clock.set(baseTime.addSecs(2));
    const RackThread ended = fetch(*source).threads.first();
    EXPECT_EQ(ended.status, RackStatus::error);
    EXPECT_EQ(ended.updatedAt, baseTime.addSecs(2));
}

TEST_F(ClaudeSourceTest, EvidenceSurvivesARestartAndVanishedSessionsTakeItAlong)
{
    writeSessionA("end_turn");
    {
        auto source = makeSource();
        fetch(*source);
    }
    QFile stored(paths.observedStatusesPath);
    ASSERT_TRUE(stored.open(QIODevice::ReadOnly));
    const QJsonObject observed = QJsonDocument::fromJson(stored.readAll())
                                     .object()["observations"]
                                     .toObject()["local_a"]
                                     .toObject();
    EXPECT_EQ(observed["status"].toString(), "completed");
    EXPECT_DOUBLE_EQ(observed["observedAt"].toDouble(),
                     claudeReferenceSeconds(baseTime.addSecs(-30)));
    stored.close();

    // The transcript has left the horizon, yet the stored observation still speaks.
    QFile::remove(transcriptPath("cli-a"));
    clock.set(baseTime.addSecs(10));
    auto restarted = makeSource();
    const ThreadCollection collection = fetch(*restarted);
    ASSERT_EQ(collection.threads.size(), 1);
    EXPECT_EQ(collection.threads.first().status, RackStatus::completed);
    EXPECT_EQ(collection.threads.first().recencyAt, baseTime.addSecs(-60));

    QFile::remove(paths.sessionRoot + "/acct/org/local_a.json");
    EXPECT_TRUE(fetch(*restarted).threads.isEmpty());
    ASSERT_TRUE(stored.open(QIODevice::ReadOnly));
    EXPECT_FALSE(stored.readAll().contains("local_a"));
}

TEST_F(ClaudeSourceTest, HookSignalsResolveByTranscriptAndWaitWhenUnknown)
{
    writeSessionA("tool_use");
    auto source = makeSource();

    // Arrives before any reconciliation: kept, then applied with its own time.
    ClaudeSessionSignal permission{
        "hook-id", transcriptPath("cli-a"), ClaudeSessionSignal::InputRequest::set, {}};
    awaitVoid(source->receiveSignal(permission, baseTime.addSecs(-10)));
    const ThreadCollection collection = fetch(*source);
    ASSERT_EQ(collection.threads.size(), 1);
    EXPECT_EQ(collection.threads.first().status, RackStatus::requiresInput);
    EXPECT_EQ(collection.threads.first().updatedAt, baseTime.addSecs(-10));

    // A stop clears the request and records background work.
    ClaudeSessionSignal stop{"cli-a", std::nullopt, ClaudeSessionSignal::InputRequest::clear, 2};
    awaitVoid(source->receiveSignal(stop, baseTime.addSecs(-5)));
    EXPECT_EQ(fetch(*source).threads.first().status, RackStatus::working);
    ClaudeSessionSignal ended{"cli-a", std::nullopt, ClaudeSessionSignal::InputRequest::clear, -2};
    awaitVoid(source->receiveSignal(ended, baseTime.addSecs(-4)));
    writeFile(transcriptPath("cli-a"), assistantLine(baseTime.addSecs(-3)), QIODevice::Append);
    EXPECT_EQ(fetch(*source).threads.first().status, RackStatus::completed);
}

TEST_F(ClaudeSourceTest, HookEventsFromSubAgentsAreFilteredBeforeTheyApply)
{
    writeSessionA("tool_use");
    auto source = makeSource();
    fetch(*source);

    const ClaudeHookEvent permission{.sessionId = "cli-a",
                                     .cwd = "/work/app",
                                     .hookEventName = "PermissionRequest",
                                     .notificationType = {},
                                     .transcriptPath = {},
                                     .backgroundTaskCount = {}};
    awaitVoid(source->receive(permission, baseTime.addSecs(-10)));
    EXPECT_EQ(fetch(*source).threads.first().status, RackStatus::requiresInput);

    // A sub-agent's stop without a count is not the parent's stop: the request stays.
    ClaudeHookEvent agentStop{"cli-a", "/work/app", "Stop", {}, {}, std::nullopt, true};
    awaitVoid(source->receive(agentStop, baseTime.addSecs(-9)));
    EXPECT_EQ(fetch(*source).threads.first().status, RackStatus::requiresInput);

    ClaudeHookEvent agentStopWithCount{"cli-a", "/work/app", "Stop", {}, {}, 3, true};
    awaitVoid(source->receive(agentStopWithCount, baseTime.addSecs(-8)));
    writeFile(transcriptPath("cli-a"), assistantLine(baseTime.addSecs(-7)), QIODevice::Append);
    EXPECT_EQ(fetch(*source).threads.first().status, RackStatus::working)
        << "three background tasks still run";
}

TEST_F(ClaudeSourceTest, MonitoringPublishesTranscriptChangesAndNewSessions)
{
    const QString id = "aaaaaaaa-2222-3333-4444-555555555555";
    writeFile(transcriptPath(id), promptLine(baseTime.addSecs(-60), "first"));
    auto source = makeSource();
    awaitVoid(source->startMonitoring());
    QList<RackStatusUpdate> updates;
    ASSERT_TRUE(waitUntil([&] {
        updates += drain(source->statusUpdates());
        return !updates.isEmpty();
    }));
    EXPECT_EQ(updates.last().status, RackStatus::working);
    ASSERT_TRUE(waitUntil([&] { return !drain(source->snapshots()).isEmpty(); }));

    // A finished turn appended to the transcript arrives without any fetch.
    writeFile(transcriptPath(id), assistantLine(baseTime.addSecs(-1)), QIODevice::Append);
    ASSERT_TRUE(waitUntil([&] {
        updates += drain(source->statusUpdates());
        return updates.last().status == RackStatus::completed;
    }));

    // A new session in a new project folder appears in a snapshot.
    const QString second = "bbbbbbbb-2222-3333-4444-555555555555";
    writeFile(transcriptPath(second, "-other"),
              promptLine(baseTime.addSecs(-2), "second", "/other"));
    bool seen = false;
    ASSERT_TRUE(waitUntil([&] {
        for (const ThreadCollection &snapshot : drain(source->snapshots()))
            seen |= find(snapshot, "claude:" + second) != nullptr;
        return seen;
    }));

    awaitVoid(source->shutdown());
    ASSERT_TRUE(waitUntil([&] {
        auto next = source->threadListInvalidations()->next();
        return next.await_ready() && !next.await_resume();
    })) << "shutdown finishes the streams";
}

} // namespace
