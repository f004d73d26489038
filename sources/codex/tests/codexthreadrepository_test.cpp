#include "sources/codex/codexthreadrepository.h"

#include "sources/codex/taskfilewatcher.h"
#include "testing/fakeclock.h"
#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <QHash>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace std::chrono_literals;
using taskrack::testing::drain;
using taskrack::testing::FakeClock;
using taskrack::testing::FakeThreadSource;

namespace {

QDateTime at(int seconds)
{
    return QDateTime::fromSecsSinceEpoch(1'790'000'000 + seconds, Qt::UTC);
}

RackThread codexThread(const QString &id, RackStatus status, int updated, int recency)
{
    RackThread thread =
        taskrack::testing::makeThread(QStringLiteral("codex:") + id, status, at(updated));
    thread.recencyAt = at(recency);
    return thread;
}

RackThread desktopThread(const QString &id, RackStatus status, bool liveCloud)
{
    RackThread thread = codexThread(id, status, 0, 0);
    thread.codexDesktopIdentity = CodexDesktopIdentity{QStringLiteral("scope")};
    thread.hasLiveCloudStatus = liveCloud;
    return thread;
}

ThreadCollection collection(QList<RackThread> threads, const QString &description,
                            bool live = false)
{
    return ThreadCollection{std::move(threads), description, live, {}};
}

ThreadSourceFailure named(const char *sourceName)
{
    return ThreadSourceFailure{QString::fromUtf8(sourceName),
                               ThreadSourceFailureState::degraded,
                               false,
                               std::nullopt,
                               std::nullopt,
                               false};
}

QStringList failureNames(const ThreadCollection &result)
{
    QStringList names;
    for (const ThreadSourceFailure &failure : result.sourceFailures)
        names << failure.sourceName;
    return names;
}

// Stands for the rollout files: lifts the listed threads from `recent`, or fails like a broken
// state database.
class ScriptedOverlay : public CodexActivityOverlaying
{
public:
    QHash<QString, RackStatus> lifts;
    bool failing = false;
    QStringList rollouts;
    int applied = 0;

    QCoro::Task<ThreadCollection> apply(ThreadCollection input, QDateTime) override
    {
        ++applied;
        if (failing)
            throw TaskrackError(QStringLiteral("database is locked"));
        for (RackThread &thread : input.threads) {
            if (thread.status == RackStatus::recent && lifts.contains(thread.providerThreadID))
                thread.status = lifts.value(thread.providerThreadID);
        }
        input.sourceDescription += QStringLiteral(" + local activity");
        co_return input;
    }

    QCoro::Task<QStringList> watchedRollouts(QDateTime) override { co_return rollouts; }
};

// A file watch over an imaginary file system: the test says which files exist and fires their
// events by hand.
class FakeFileWatch : public FileWatch
{
public:
    struct State
    {
        QSet<QString> existing;
        QHash<QString, int> handles;
        Handler handler;
        int nextHandle = 1;

        void fire(const QString &path)
        {
            ASSERT_TRUE(handles.contains(path)) << path.toStdString();
            handler(FileWatchNotice{handles.value(path), FileWatchEvents::modified, {}});
        }
    };

    explicit FakeFileWatch(std::shared_ptr<State> state) : m_state(std::move(state)) {}

    void setHandler(Handler handler) override { m_state->handler = std::move(handler); }
    std::optional<FileWatchTarget> add(const QString &path) override
    {
        const std::optional<FileIdentity> identity = identityOf(path);
        if (!identity)
            return std::nullopt;
        const int handle = m_state->nextHandle++;
        m_state->handles.insert(path, handle);
        return FileWatchTarget{handle, *identity};
    }
    void remove(int handle) override
    {
        for (auto it = m_state->handles.begin(); it != m_state->handles.end();)
            it = it.value() == handle ? m_state->handles.erase(it) : std::next(it);
    }
    std::optional<FileIdentity> identityOf(const QString &path) const override
    {
        if (!m_state->existing.contains(path))
            return std::nullopt;
        return FileIdentity{1, quint64(qHash(path))};
    }

private:
    std::shared_ptr<State> m_state;
};

const QString databasePath = QStringLiteral("/codex/state_5.sqlite");
const QString walPath = QStringLiteral("/codex/state_5.sqlite-wal");
const QString rolloutPath = QStringLiteral("/codex/sessions/rollout-a.jsonl");

struct RepositoryOptions
{
    bool desktop = false;
    bool watching = false;
    std::chrono::milliseconds safetyNet{0};
};

class CodexThreadRepositoryTest : public ::testing::Test
{
protected:
    void build(RepositoryOptions options = RepositoryOptions())
    {
        CodexThreadRepository::Parts parts;
        parts.liveSource = live;
        parts.fallbackSource = fallback;
        parts.activityOverlay = overlay;
        if (options.desktop) {
            desktop = std::make_shared<FakeThreadSource>(QStringLiteral("Codex desktop"));
            parts.desktopSource = desktop;
        }
        if (options.watching) {
            files->existing = {databasePath, walPath, rolloutPath};
            parts.fileWatch = std::make_unique<FakeFileWatch>(files);
        }
        parts.databaseFiles = {databasePath, walPath};
        parts.clock = &clock;
        parts.safetyNetInterval = options.safetyNet;
        repository = CodexThreadRepository::create(std::move(parts));
    }

    void TearDown() override
    {
        if (repository)
            taskrack::testing::awaitVoid(repository->shutdown());
    }

    ThreadCollection fetch() { return taskrack::testing::await(repository->fetchThreads(400, {})); }

    // Starts a fetch and leaves it waiting on the live side.
    void beginFetch()
    {
        pendingFetch = runFetch();
        ASSERT_TRUE(taskrack::testing::waitUntil([&] { return live->isFetching(); }));
    }

    QCoro::Task<void> runFetch()
    {
        try {
            fetched = co_await repository->fetchThreads(400, {});
        } catch (const OperationCancelled &) {
            fetchCancelled = true;
        }
        fetchDone = true;
    }

    // Runs one local refresh to its end with `answer` from the local history.
    void answerLocalRefresh(const ThreadCollection &answer)
    {
        const quint64 before = repository->completedLocalRefreshCount();
        ASSERT_TRUE(taskrack::testing::waitUntil([&] { return fallback->isFetching(); }));
        fallback->respond(answer);
        ASSERT_TRUE(taskrack::testing::waitUntil(
            [&] { return repository->completedLocalRefreshCount() > before; }));
    }

    template <typename T> static QCoro::Task<std::optional<T>> takeOne(ChannelPtr<T> channel)
    {
        auto next = channel->next();
        co_return co_await next;
    }

    FakeClock clock;
    std::shared_ptr<FakeThreadSource> live =
        std::make_shared<FakeThreadSource>(QStringLiteral("CodexAppServerThreadSource"));
    std::shared_ptr<FakeThreadSource> fallback =
        std::make_shared<FakeThreadSource>(QStringLiteral("SQLiteThreadSource"));
    std::shared_ptr<FakeThreadSource> desktop;
    std::shared_ptr<ScriptedOverlay> overlay = std::make_shared<ScriptedOverlay>();
    std::shared_ptr<FakeFileWatch::State> files = std::make_shared<FakeFileWatch::State>();
    std::shared_ptr<CodexThreadRepository> repository;

    std::optional<QCoro::Task<void>> pendingFetch;
    std::optional<ThreadCollection> fetched;
    bool fetchCancelled = false;
    bool fetchDone = false;
};

// ---- Which side answers ----

struct SideCase
{
    const char *name;
    bool liveAnswers;
    bool historyAnswers;
    bool hasDesktop;
    bool overlayFails;
    QString description; // empty: the fetch throws
    QStringList failures;
    QStringList threadIds;
    bool isLive;
};

void PrintTo(const SideCase &c, std::ostream *os)
{
    *os << c.name;
}

class CodexRepositorySidesTest : public CodexThreadRepositoryTest,
                                 public ::testing::WithParamInterface<SideCase>
{
};

TEST_P(CodexRepositorySidesTest, AnswersFromTheBestSideThatWorks)
{
    const SideCase &c = GetParam();
    build({.desktop = c.hasDesktop});
    overlay->failing = c.overlayFails;
    overlay->lifts = {{QStringLiteral("a"), RackStatus::working}};
    if (c.liveAnswers)
        live->respond(collection({codexThread("a", RackStatus::recent, 10, 10)},
                                 QStringLiteral("Codex app-server"), true));
    else
        live->fail(QStringLiteral("app-server gone."));
    if (c.historyAnswers)
        fallback->respond(collection({codexThread("a", RackStatus::recent, 10, 10),
                                      codexThread("b", RackStatus::recent, 5, 5)},
                                     QStringLiteral("Local Codex history (read-only)")));
    else
        fallback->fail(QStringLiteral("database gone."));
    if (desktop)
        desktop->respond(collection({desktopThread("d", RackStatus::working, false)},
                                    QStringLiteral("Codex desktop")));

    if (c.description.isEmpty()) {
        try {
            fetch();
            FAIL() << "expected the fetch to fail";
        } catch (const CodexThreadRepositoryError &error) {
            EXPECT_EQ(error.description(),
                      QStringLiteral("Codex tasks are temporarily unavailable. Live source: "
                                     "app-server gone. Local history: database gone."));
        }
        return;
    }
    const ThreadCollection result = fetch();
    EXPECT_EQ(result.sourceDescription, c.description);
    EXPECT_EQ(failureNames(result), c.failures);
    EXPECT_EQ(result.isLive, c.isLive);
    QStringList ids;
    for (const RackThread &thread : result.threads)
        ids << thread.providerThreadID + QLatin1Char('=') + rawValue(thread.status);
    EXPECT_EQ(ids, c.threadIds);
    for (const ThreadSourceFailure &failure : result.sourceFailures)
        EXPECT_EQ(failure.state, ThreadSourceFailureState::degraded);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CodexRepositorySidesTest,
    ::testing::Values(
        SideCase{"LiveWithActivity",
                 true,
                 true,
                 false,
                 false,
                 QStringLiteral("Codex app-server + local activity"),
                 {},
                 {"a=working"},
                 true},
        SideCase{"LiveWhenTheOverlayFails",
                 true,
                 true,
                 false,
                 true,
                 QStringLiteral("Codex app-server"),
                 {},
                 {"a=recent"},
                 true},
        SideCase{"HistoryWhenLiveFails",
                 false,
                 true,
                 false,
                 false,
                 QStringLiteral("Local Codex history (read-only) + Codex live unavailable"
                                " + local activity"),
                 {"Codex"},
                 {"a=working", "b=recent"},
                 false},
        SideCase{"ThrowsWhenBothFailWithoutDesktop", false, false, false, false, {}, {}, {}, false},
        SideCase{"DesktopOnlyWhenBothFail",
                 false,
                 false,
                 true,
                 false,
                 QStringLiteral("Codex local history unavailable + Codex live unavailable"
                                " + Codex desktop"),
                 {"Codex local history"},
                 {"d=recent"},
                 false}),
    [](const auto &info) { return std::string(info.param.name); });

// ---- Reconciliation: the local list, with status lent by the live side ----

struct ReconcileCase
{
    const char *name;
    std::optional<RackThread> live;
    RackThread local;
    RackStatus expectedStatus;
    int expectedUpdated;
};

void PrintTo(const ReconcileCase &c, std::ostream *os)
{
    *os << c.name;
}

class CodexRepositoryReconcileTest : public ::testing::TestWithParam<ReconcileCase>
{
};

TEST_P(CodexRepositoryReconcileTest, LiveStatusWinsOnlyWhenNotOlder)
{
    const ReconcileCase &c = GetParam();
    std::optional<ThreadCollection> live;
    if (c.live)
        live = collection({*c.live}, QStringLiteral("Codex app-server"), true);
    const ThreadCollection result = CodexThreadRepository::reconcile({c.local}, live, {}, {});
    ASSERT_EQ(result.threads.size(), 1);
    EXPECT_EQ(result.threads[0].status, c.expectedStatus);
    EXPECT_EQ(result.threads[0].updatedAt, at(c.expectedUpdated));
    EXPECT_EQ(result.threads[0].recencyAt, c.local.recencyAt) << "recency is always the local one";
    EXPECT_EQ(result.sourceDescription, QStringLiteral("Codex local activity"));
    EXPECT_FALSE(result.isLive);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CodexRepositoryReconcileTest,
    ::testing::Values(
        ReconcileCase{"ApprovalNotOlderThanLocalActivity",
                      codexThread("a", RackStatus::requiresInput, 20, 12),
                      codexThread("a", RackStatus::working, 20, 10), RackStatus::requiresInput, 20},
        ReconcileCase{"ApprovalOlderThanLocalActivity",
                      codexThread("a", RackStatus::requiresInput, 19, 12),
                      codexThread("a", RackStatus::working, 20, 10), RackStatus::working, 20},
        ReconcileCase{"ApprovalFromBeforeTheLatestTurn",
                      codexThread("a", RackStatus::requiresInput, 30, 9),
                      codexThread("a", RackStatus::working, 20, 10), RackStatus::working, 20},
        ReconcileCase{"LiveRecentLendsNothing", codexThread("a", RackStatus::recent, 30, 30),
                      codexThread("a", RackStatus::completed, 20, 10), RackStatus::completed, 20},
        ReconcileCase{"NoCounterpart", codexThread("z", RackStatus::error, 30, 30),
                      codexThread("a", RackStatus::recent, 20, 10), RackStatus::recent, 20},
        ReconcileCase{"NoLiveSideAtAll", std::nullopt, codexThread("a", RackStatus::idle, 20, 10),
                      RackStatus::idle, 20},
        ReconcileCase{"DesktopThreadsKeepTheirOwn", codexThread("d", RackStatus::working, 30, 30),
                      desktopThread("d", RackStatus::recent, false), RackStatus::recent, 0}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(CodexRepositoryMergeTest, DesktopProjectionAddsOnlyDesktopThreadsAndTheirFailures)
{
    const ThreadCollection base = CodexThreadRepository::reconcile(
        {codexThread("a", RackStatus::working, 1, 1)}, std::nullopt, {named("X")}, {named("X")});
    EXPECT_EQ(base.sourceFailures.size(), 1) << "failures are not repeated";

    EXPECT_EQ(CodexThreadRepository::mergeDesktopProjection(
                  base, collection({}, QStringLiteral("Codex desktop"))),
              base)
        << "a projection without threads changes nothing, not even the description";

    ThreadCollection projection = collection({desktopThread("d", RackStatus::working, false),
                                              desktopThread("e", RackStatus::error, true),
                                              codexThread("plain", RackStatus::working, 1, 1)},
                                             QStringLiteral("Codex desktop"));
    projection.sourceFailures = {named("Codex desktop catalog")};
    const ThreadCollection merged = CodexThreadRepository::mergeDesktopProjection(base, projection);
    EXPECT_EQ(merged.sourceDescription, QStringLiteral("Codex local activity + Codex desktop"));
    ASSERT_EQ(merged.threads.size(), 3);
    EXPECT_EQ(merged.threads[1].status, RackStatus::recent) << "cached desktop status is not news";
    EXPECT_EQ(merged.threads[2].status, RackStatus::error) << "a live cloud reading stands";
    EXPECT_EQ(failureNames(merged), (QStringList{"X", "Codex desktop catalog"}));
}

// ---- Ordering of fetches, local refreshes and generations ----

TEST_F(CodexThreadRepositoryTest, ALocalPictureLandingDuringTheLiveFetchIsTheList)
{
    build();
    overlay->lifts = {{QStringLiteral("a"), RackStatus::completed}};
    beginFetch();
    repository->requestLocalRefresh();
    answerLocalRefresh(collection(
        {codexThread("a", RackStatus::recent, 50, 40), codexThread("b", RackStatus::recent, 5, 5)},
        QStringLiteral("Local Codex history (read-only)")));

    // The live list was read before the turn ended and misses thread b.
    live->respond(collection({codexThread("a", RackStatus::working, 45, 40)},
                             QStringLiteral("Codex app-server"), true));
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return fetchDone; }));
    ASSERT_TRUE(fetched);
    EXPECT_EQ(fetched->sourceDescription, QStringLiteral("Codex local activity"));
    ASSERT_EQ(fetched->threads.size(), 2);
    EXPECT_EQ(fetched->threads[0].status, RackStatus::completed) << "newer local activity wins";
    EXPECT_EQ(overlay->applied, 1) << "the live list was not lifted again";
}

TEST_F(CodexThreadRepositoryTest, LocalRefreshesRunOneAtATimeWithOneQueued)
{
    build();
    const ThreadCollection answer =
        collection({codexThread("a", RackStatus::recent, 1, 1)}, QStringLiteral("history"));
    for (int i = 0; i < 3; ++i)
        repository->requestLocalRefresh();
    EXPECT_EQ(fallback->fetchCount(), 1);
    answerLocalRefresh(answer);
    answerLocalRefresh(answer);
    taskrack::testing::drainEvents();
    EXPECT_EQ(fallback->fetchCount(), 2) << "three requests, one run and one queued";

    const auto snapshots = drain(repository->snapshots());
    ASSERT_EQ(snapshots.size(), 1) << "an unchanged picture is not published again";
    EXPECT_EQ(snapshots[0].sourceDescription, QStringLiteral("Codex local activity"));

    repository->requestLocalRefresh();
    answerLocalRefresh(
        collection({codexThread("a", RackStatus::recent, 2, 2)}, QStringLiteral("history")));
    EXPECT_EQ(drain(repository->snapshots()).size(), 1);
}

TEST_F(CodexThreadRepositoryTest, WorkOfAnEarlierGenerationNeverLands)
{
    build();
    beginFetch();
    repository->requestLocalRefresh();
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return fallback->isFetching(); }));

    taskrack::testing::awaitVoid(repository->suspend());
    repository->resume();

    live->respond(collection({codexThread("a", RackStatus::working, 1, 1)},
                             QStringLiteral("Codex app-server"), true));
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return fetchDone; }));
    EXPECT_TRUE(fetchCancelled) << "a fetch begun before the suspend is no answer after it";
    taskrack::testing::drainEvents();
    EXPECT_TRUE(drain(repository->snapshots()).isEmpty());

    // The new generation works as usual.
    repository->requestLocalRefresh();
    answerLocalRefresh(
        collection({codexThread("a", RackStatus::recent, 1, 1)}, QStringLiteral("h")));
    EXPECT_EQ(drain(repository->snapshots()).size(), 1);
}

// ---- Watching ----

TEST_F(CodexThreadRepositoryTest, RolloutChangesRefreshLocallyAndDatabaseChangesAlsoInvalidate)
{
    build({.watching = true});
    overlay->rollouts = {rolloutPath};
    repository->start();
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return files->handles.size() == 3; }));
    EXPECT_EQ(QSet<QString>(files->handles.keyBegin(), files->handles.keyEnd()),
              (QSet<QString>{rolloutPath, databasePath, walPath}));
    const ThreadCollection answer =
        collection({codexThread("a", RackStatus::recent, 1, 1)}, QStringLiteral("history"));

    files->fire(rolloutPath);
    clock.advance(TaskFileWatcher::collapseInterval);
    answerLocalRefresh(answer);
    EXPECT_EQ(drain(repository->snapshots()).size(), 1);
    EXPECT_TRUE(drain(repository->threadListInvalidations()).isEmpty());

    files->fire(walPath);
    clock.advance(TaskFileWatcher::collapseInterval);
    answerLocalRefresh(answer);
    EXPECT_EQ(drain(repository->threadListInvalidations()).size(), 1);

    // Once the overlay stops following the rollout, so does the watcher.
    overlay->rollouts = {};
    files->fire(databasePath);
    clock.advance(TaskFileWatcher::collapseInterval);
    answerLocalRefresh(answer);
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return files->handles.size() == 2; }));
}

TEST_F(CodexThreadRepositoryTest, TheSafetyNetRefreshesWithoutAnyFileEvent)
{
    build({.watching = true, .safetyNet = 30s});
    repository->start();
    clock.advance(29s);
    taskrack::testing::drainEvents();
    EXPECT_EQ(fallback->fetchCount(), 0);
    clock.advance(1s);
    answerLocalRefresh(collection({}, QStringLiteral("history")));
    EXPECT_EQ(fallback->fetchCount(), 1);
}

TEST_F(CodexThreadRepositoryTest, ShutdownEndsEverything)
{
    build({.watching = true});
    repository->start();
    taskrack::testing::awaitVoid(repository->shutdown());
    taskrack::testing::awaitVoid(repository->shutdown());
    EXPECT_TRUE(files->handles.isEmpty()) << "no watch outlives shutdown";
    repository->requestLocalRefresh();
    EXPECT_EQ(fallback->fetchCount(), 0);
    EXPECT_FALSE(taskrack::testing::await(takeOne(repository->snapshots())));
    EXPECT_THROW(fetch(), OperationCancelled);
}

} // namespace

// ---- Codex hook events ----

CodexHookEvent hookEvent(const QString &session, const QString &name)
{
    CodexHookEvent event;
    event.sessionId = session;
    event.hookEventName = name;
    return event;
}

TEST_F(CodexThreadRepositoryTest, AHookStatusStandsUntilTheThreadsFilesSaySomethingNewer)
{
    build();
    clock.advance(100s);
    const auto localPass = [&](RackStatus status, int updated) {
        repository->requestLocalRefresh();
        answerLocalRefresh(collection({codexThread("a", status, updated, 50)}, "history"));
        return drain(repository->snapshots());
    };
    localPass(RackStatus::working, 50);

    // Approvals are never written to the rollout: the hook is the only word on them.
    repository->receiveHookEvent(hookEvent("a", "PermissionRequest"));
    auto updates = drain(repository->statusUpdates());
    ASSERT_EQ(updates.size(), 1u);
    EXPECT_EQ(updates[0],
              (RackStatusUpdate{"codex:a", RackStatus::requiresInput, at(100), at(100)}));
    auto snapshots = localPass(RackStatus::working, 50);
    ASSERT_EQ(snapshots.size(), 1u);
    EXPECT_EQ(snapshots[0].threads[0].status, RackStatus::requiresInput);

    // A sub-agent's event belongs to the root but does not change it on its own.
    CodexHookEvent child = hookEvent("a", "Stop");
    child.agentId = "child";
    repository->receiveHookEvent(child);
    EXPECT_TRUE(drain(repository->statusUpdates()).empty());
    EXPECT_TRUE(drain(repository->threadListInvalidations()).empty());

    // The turn's end, recorded after the hook, speaks for itself from then on.
    snapshots = localPass(RackStatus::completed, 101);
    ASSERT_EQ(snapshots.size(), 1u);
    EXPECT_EQ(snapshots[0].threads[0].status, RackStatus::completed);
    EXPECT_EQ(repository->hookStatusCount(), 0);

    // A thread the lists do not know yet is for a fetch, not a row of its own.
    repository->receiveHookEvent(hookEvent("new", "UserPromptSubmit"));
    EXPECT_EQ(drain(repository->threadListInvalidations()).size(), 1u);
    EXPECT_EQ(drain(repository->statusUpdates()).size(), 1u);
}
