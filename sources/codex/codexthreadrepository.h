#pragma once

// The one source the rest of Taskrack knows for Codex. Behind it stand sources of different
// quality: the live app-server, the local history in the state database, the rollout activity
// overlay and (where one exists) a desktop catalog. It picks, reconciles and degrades: it answers
// when the app-server is gone, keeps a thread visible when one side has lost it, and between the
// store's fetches reacts to file changes by publishing local snapshots.
//
// Threading: lives on the thread that creates it (the app-server client's thread), which must
// run a Qt event loop; call it only from there. Its channels may be consumed from any thread.
// Await shutdown() before destroying it, so that no `codex` child outlives it. Always held by a
// shared_ptr (make it with create()): its background tasks hold it weakly.

#include "core/boundedchannel.h"
#include "core/clock.h"
#include "core/livethreadsource.h"
#include "platform/filesystem.h"
#include "platform/filewatch.h"
#include "sources/codex/codexhookevent.h"
#include "sources/codex/codexstatus.h"

#include <QHash>

#include <chrono>
#include <memory>
#include <optional>
#include <stop_token>
#include <variant>

namespace taskrack {

class CodexAppServerThreadSource;
class CodexCloudStatusProvider;
class Preferences;
class TaskFileWatcher;

class CodexThreadRepositoryError : public TaskrackError
{
public:
    CodexThreadRepositoryError(QString liveSourceMessage, QString fallbackSourceMessage);

    const QString &liveSourceMessage() const { return m_live; }
    const QString &fallbackSourceMessage() const { return m_fallback; }

private:
    QString m_live;
    QString m_fallback;
};

// Lifts local threads to live-looking statuses from their rollout files. Production runs the
// rollout overlay on a worker thread; tests swap in a scripted one.
class CodexActivityOverlaying
{
public:
    virtual ~CodexActivityOverlaying() = default;
    // Throws SQLiteThreadSourceError when the state database fails.
    virtual QCoro::Task<ThreadCollection> apply(ThreadCollection collection, QDateTime now) = 0;
    // Rollouts whose changes matter now, at most 32.
    virtual QCoro::Task<QStringList> watchedRollouts(QDateTime now) = 0;

    // The rollout overlay over `codexHome`'s state database, on its own worker thread.
    static std::shared_ptr<CodexActivityOverlaying> forCodexHome(const QString &codexHome,
                                                                 const FileSystem &fileSystem);
};

class CodexThreadRepository : public std::enable_shared_from_this<CodexThreadRepository>,
                              public LiveThreadSource
{
public:
    static constexpr int localFetchLimit = 400;
    static constexpr std::chrono::milliseconds defaultSafetyNetInterval{30000};

    struct Parts
    {
        // Normally the app-server source; asked first.
        std::shared_ptr<ThreadSource> liveSource;
        // The same object when the live side is the app-server: its status updates and list
        // invalidations are passed on, and suspend, resume and shutdown reach its child.
        std::shared_ptr<CodexAppServerThreadSource> appServerSource;
        // Normally the state database; asked when the live side fails, and for local refreshes.
        std::shared_ptr<ThreadSource> fallbackSource;
        std::shared_ptr<CodexActivityOverlaying> activityOverlay;
        std::shared_ptr<ThreadSource> desktopSource;
        // Watching needs a file watch; without one the repository answers fetches only.
        std::unique_ptr<FileWatch> fileWatch;
        // The state database and its write-ahead log.
        QStringList databaseFiles;
        // The desktop catalog's files: a change refreshes the local picture and the list.
        QStringList desktopFiles;
        // "The cloud's view changed": turned into local refreshes.
        ChannelPtr<std::monostate> desktopStatusInvalidations;
        // Closed at suspend and shutdown, told when the setting changes.
        std::shared_ptr<CodexCloudStatusProvider> cloudStatus;
        Clock *clock = nullptr;
        // The periodic local pass in case a watcher misses an event; zero turns it off.
        std::chrono::milliseconds safetyNetInterval = defaultSafetyNetInterval;
        // How long a fetch waits for the live side before it answers from local history; the
        // live answer still lands later and asks for a fetch. Zero waits as long as it takes.
        std::chrono::milliseconds livePatience{0};
    };
    static constexpr std::chrono::milliseconds defaultLivePatience{1500};

    static std::shared_ptr<CodexThreadRepository> create(Parts parts);

    explicit CodexThreadRepository(Parts parts);
    ~CodexThreadRepository() override;

    QString sourceName() const override;
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;
    RackProvider provider() const override { return RackProvider::codex; }

    // Local collections published between fetches, whenever the local picture changed.
    ChannelPtr<ThreadCollection> snapshots() const override { return m_localSnapshots; }
    // Live status deltas, keyed as the store keys threads ("codex:" + id).
    ChannelPtr<RackStatusUpdate> statusUpdates() const override { return m_statusUpdates; }
    ChannelPtr<std::monostate> threadListInvalidations() const override { return m_invalidations; }

    // Starts watching, the passing-on of live updates and the safety net. Once.
    void start() override;
    // Suspends: the app-server's child goes, the data stays.
    QCoro::Task<void> sleep() override { return suspend(); }
    // Suspends first when the sleep was missed, then resumes and asks for a local refresh.
    QCoro::Task<void> wake() override;
    void reconcileLocal() override { requestLocalRefresh(); }
    QCoro::Task<void> suspend();
    void resume();
    // Final: stops every task, ends the channels, and waits for the app-server's child to go.
    QCoro::Task<void> shutdown() override;

    // Asks for a local refresh: one runs at a time, with at most one queued behind it.
    void requestLocalRefresh();
    // The person may have switched the cloud status: acts at once.
    void preferencesChanged() override;
    // A one-off listing waits this long for the cloud poll its own fetch started.
    QCoro::Task<bool> settle() override { return awaitCloudPoll(std::chrono::seconds(5)); }
    // Waits (at most `patience`) for a cloud poll that a fetch started, and says whether there
    // was one: a one-off listing then fetches again to show its answer.
    QCoro::Task<bool> awaitCloudPoll(std::chrono::milliseconds patience);

    // A Codex hook event, heard now. Its status reaches the store at once and stands in every
    // later snapshot until the thread's own files say something newer (or it grows old).
    void receiveHookEvent(const CodexHookEvent &event);
    // How many hook statuses are held.
    qsizetype hookStatusCount() const { return m_hookStatuses.size(); }

    // A watched change between two fetches, answered: for tests and benchmarks.
    quint64 completedLocalRefreshCount() const { return m_completedLocalRefreshes; }

    // Building blocks, public so that their rules can be tested on their own.
    static ThreadCollection reconcile(const QList<RackThread> &localThreads,
                                      const std::optional<ThreadCollection> &liveCollection,
                                      QList<ThreadSourceFailure> failures,
                                      const QList<ThreadSourceFailure> &liveSourceFailures);
    static ThreadCollection
    mergeDesktopProjection(ThreadCollection base,
                           const std::optional<ThreadCollection> &projection);

private:
    Clock &clock() const { return *m_parts.clock; }
    bool isStale(quint64 generation, const std::stop_token &stop) const;
    void throwIfStale(quint64 generation, const std::stop_token &stop) const;

    QCoro::Task<ThreadCollection> applyOverlay(ThreadCollection collection, quint64 generation,
                                               std::stop_token stop);
    QCoro::Task<std::optional<ThreadCollection>>
    readDesktopProjection(int limit, quint64 generation, std::stop_token stop);
    QCoro::Task<void> runLocalRefresh(quint64 generation, std::stop_token stop);
    QCoro::Task<void> renewWatchedFiles(quint64 generation);
    QCoro::Task<void> consumeFileChanges();
    QCoro::Task<void> passOnStatusUpdates();
    QCoro::Task<void> passOnInvalidations();
    QCoro::Task<void> runSafetyNet();
    QCoro::Task<void> consumeCloudStatusChanges();
    void foldIntoLiveCollection(const CodexStatusUpdate &update);
    void foldHookStatuses(ThreadCollection &collection);
    bool knowsThread(const QString &providerThreadID) const;
    struct LiveFetch;
    QCoro::Task<void> runLiveFetch(int limit, std::shared_ptr<LiveFetch> fetch,
                                   std::stop_token stop);
    // The live answer, or nothing when the live side did not answer within its patience.
    QCoro::Task<std::optional<std::pair<std::optional<ThreadCollection>, std::exception_ptr>>>
    awaitLive(int limit, std::stop_token stop);

    Parts m_parts;
    std::unique_ptr<TaskFileWatcher> m_watcher;

    ChannelPtr<ThreadCollection> m_localSnapshots = BoundedChannel<ThreadCollection>::create(4);
    ChannelPtr<RackStatusUpdate> m_statusUpdates = BoundedChannel<RackStatusUpdate>::create(32);
    ChannelPtr<std::monostate> m_invalidations = BoundedChannel<std::monostate>::create(1);

    bool m_started = false;
    bool m_localRefreshRunning = false;
    bool m_needsLocalRefresh = false;
    quint64 m_localRevision = 0;
    quint64 m_completedLocalRefreshes = 0;
    std::optional<ThreadCollection> m_localCollection;
    QString m_lastLiveFailureCategory;
    std::optional<ThreadCollection> m_liveCollection;
    // The live fetch in flight: later fetches join it instead of asking again.
    std::shared_ptr<LiveFetch> m_liveFetch;
    QList<ThreadSourceFailure> m_liveSourceFailures;
    std::optional<ThreadCollection> m_lastPublishedLocalSnapshot;
    QStringList m_watchedRollouts;
    quint64 m_lifecycleGeneration = 0;
    quint64 m_nextDesktopReadSequence = 0;
    quint64 m_completedDesktopReadSequence = 0;
    std::optional<ThreadCollection> m_latestDesktopProjection;
    std::optional<ThreadSourceFailure> m_desktopFailure;
    struct HookStatus
    {
        RackStatus status = RackStatus::recent;
        QDateTime at;
    };
    // By the provider's thread id.
    QHash<QString, HookStatus> m_hookStatuses;
    bool m_isSuspended = false;
    bool m_isShutdown = false;
    // Ends the loops at shutdown.
    std::stop_source m_lifetime;
    // Ends the local work of one generation at suspend.
    std::stop_source m_generationStop;
};

} // namespace taskrack
