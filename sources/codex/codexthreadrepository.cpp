#include "sources/codex/codexthreadrepository.h"

#include "core/serialexecutor.h"
#include "sources/codex/codexappserverclient.h"
#include "sources/codex/codexappservererror.h"
#include "sources/codex/codexappserverthreadsource.h"
#include "sources/codex/codexcloudstatuswiring.h"
#include "sources/codex/codexdesktopthreadsource.h"
#include "sources/codex/rolloutactivityoverlay.h"
#include "sources/codex/sqlitethreadsource.h"
#include "sources/codex/taskfilewatcher.h"

#include <QFileInfo>
#include <QHash>
#include <QLoggingCategory>

namespace taskrack {

Q_LOGGING_CATEGORY(lcCodexRepository, "com.quillon.Taskrack.codex-repository", QtInfoMsg)

namespace {

const QString liveUnavailableSuffix = QStringLiteral(" + Codex live unavailable");
const QString bothUnavailableDescription =
    QStringLiteral("Codex local history unavailable + Codex live unavailable");
const QString localUnavailableDescription = QStringLiteral("Codex local history unavailable");
const QString desktopUnavailableDescription =
    QStringLiteral("Codex desktop cache unavailable (status unavailable)");
const QString localActivityDescription = QStringLiteral("Codex local activity");
const QString liveSilentSuffix = QStringLiteral(" + Codex live status did not answer");

// Ends a wait when its patience runs out.
QCoro::Task<void> stopAfter(Clock &clock, std::chrono::milliseconds delay,
                            std::shared_ptr<std::stop_source> source)
{
    co_await clock.sleep(delay);
    source->request_stop();
}

ThreadSourceFailure failure(const QString &sourceName, bool cached,
                            std::optional<RackProvider> provider)
{
    return ThreadSourceFailure{
        sourceName, ThreadSourceFailureState::degraded, cached, provider, std::nullopt, false};
}

void appendUnique(QList<ThreadSourceFailure> &failures, const QList<ThreadSourceFailure> &more)
{
    for (const ThreadSourceFailure &item : more) {
        if (!failures.contains(item))
            failures.append(item);
    }
}

// The rollout overlay is not thread-safe and reads files synchronously: it gets a worker of its
// own, so that a slow disk never holds up the thread that owns the repository.
class RolloutOverlayWorker : public CodexActivityOverlaying
{
public:
    RolloutOverlayWorker(const QString &codexHome, const FileSystem &fileSystem)
        : m_overlay(fileSystem, SQLiteThreadSource::databasePathIn(codexHome), codexHome),
          m_executor(QStringLiteral("CodexRolloutOverlay"))
    {
    }

    QCoro::Task<ThreadCollection> apply(ThreadCollection collection, QDateTime now) override
    {
        // Named awaitables: g++ 12 destroys temporaries of a co_await expression twice.
        auto work =
            m_executor.run([this, &collection, now] { return m_overlay.apply(collection, now); });
        co_return co_await work;
    }

    QCoro::Task<QStringList> watchedRollouts(QDateTime now) override
    {
        auto work = m_executor.run([this, now] { return m_overlay.watchedRollouts(now); });
        co_return co_await work;
    }

private:
    RolloutActivityOverlay m_overlay;
    SerialExecutor m_executor;
};

} // namespace

CodexThreadRepositoryError::CodexThreadRepositoryError(QString liveSourceMessage,
                                                       QString fallbackSourceMessage)
    : TaskrackError(QStringLiteral("Codex tasks are temporarily unavailable. Live source: ") +
                    liveSourceMessage + QStringLiteral(" Local history: ") + fallbackSourceMessage),
      m_live(std::move(liveSourceMessage)), m_fallback(std::move(fallbackSourceMessage))
{
}

std::shared_ptr<CodexActivityOverlaying>
CodexActivityOverlaying::forCodexHome(const QString &codexHome, const FileSystem &fileSystem)
{
    return std::make_shared<RolloutOverlayWorker>(codexHome, fileSystem);
}

std::shared_ptr<CodexThreadRepository> CodexThreadRepository::create(Parts parts)
{
    return std::make_shared<CodexThreadRepository>(std::move(parts));
}

CodexThreadRepository::CodexThreadRepository(Parts parts) : m_parts(std::move(parts))
{
    Q_ASSERT(m_parts.liveSource && m_parts.fallbackSource && m_parts.clock);
    for (QString &path : m_parts.databaseFiles)
        path = QFileInfo(path).absoluteFilePath();
    for (QString &path : m_parts.desktopFiles)
        path = QFileInfo(path).absoluteFilePath();
}

CodexThreadRepository::~CodexThreadRepository()
{
    m_lifetime.request_stop();
    m_generationStop.request_stop();
    m_localSnapshots->finish();
    m_statusUpdates->finish();
    m_invalidations->finish();
}

QString CodexThreadRepository::sourceName() const
{
    return QStringLiteral("Codex");
}

bool CodexThreadRepository::isStale(quint64 generation, const std::stop_token &stop) const
{
    return generation != m_lifecycleGeneration || m_isSuspended || m_isShutdown ||
           stop.stop_requested();
}

void CodexThreadRepository::throwIfStale(quint64 generation, const std::stop_token &stop) const
{
    if (isStale(generation, stop))
        throw OperationCancelled();
}

QCoro::Task<ThreadCollection> CodexThreadRepository::fetchThreads(int limit, std::stop_token stop)
{
    // A fetch is bounded by its sources' deadlines; holding the repository for that long is
    // harmless, and no member is touched after it is gone.
    const std::shared_ptr<CodexThreadRepository> self = shared_from_this();
    const quint64 generation = m_lifecycleGeneration;
    throwIfStale(generation, stop);
    const quint64 revision = m_localRevision;

    std::optional<ThreadCollection> liveResult;
    std::exception_ptr liveError;
    auto waiting = awaitLive(limit, stop);
    const auto answer = co_await waiting;
    if (answer) {
        liveResult = answer->first;
        liveError = answer->second;
    }
    throwIfStale(generation, stop);
    if (liveError && isCancellation(liveError))
        throw OperationCancelled();

    ThreadCollection result;
    if (liveResult) {
        m_lastLiveFailureCategory.clear();
        m_liveCollection = *liveResult;
        m_liveSourceFailures = liveResult->sourceFailures;
        if (m_localRevision != revision && m_localCollection) {
            // A local picture landed while the live side answered: it is the fresher list.
            result = reconcile(m_localCollection->threads, m_liveCollection,
                               m_localCollection->sourceFailures, m_liveSourceFailures);
        } else {
            result = co_await applyOverlay(std::move(*liveResult), generation, stop);
        }
    } else {
        // Said once per kind of failure: without the CLI installed it would repeat on every
        // refresh and tell the person nothing new.
        const QString category =
            answer ? codexAppServerErrorCategory(liveError) : QStringLiteral("no-answer");
        // Without the CLI, local history is all there is: a normal set-up, not a fault.
        const bool expected = category == QLatin1String("binary-not-found");
        if (category != m_lastLiveFailureCategory) {
            m_lastLiveFailureCategory = category;
            if (expected)
                qCInfo(lcCodexRepository, "Codex CLI not found, using local history");
            else
                qCWarning(lcCodexRepository,
                          "Codex live listing failed, using local fallback [category: %s]",
                          qPrintable(category));
        }
        // A live picture that can no longer be confirmed must not lend its status any more.
        m_liveCollection.reset();
        m_liveSourceFailures.clear();
        const std::shared_ptr<ThreadSource> fallback = m_parts.fallbackSource;
        std::optional<ThreadCollection> fallbackResult;
        std::exception_ptr fallbackError;
        try {
            fallbackResult = co_await fallback->fetchThreads(limit, stop);
        } catch (...) {
            fallbackError = std::current_exception();
        }
        throwIfStale(generation, stop);
        if (fallbackError && isCancellation(fallbackError))
            throw OperationCancelled();
        if (fallbackResult) {
            ThreadSourceFailure liveFailure = failure(QStringLiteral("Codex"), false, std::nullopt);
            if (expected) {
                liveFailure.provider = RackProvider::codex;
                liveFailure.isExpectedLimitation = true;
            } else {
                fallbackResult->sourceDescription +=
                    answer ? liveUnavailableSuffix : liveSilentSuffix;
            }
            fallbackResult->sourceFailures.append(liveFailure);
            result = co_await applyOverlay(std::move(*fallbackResult), generation, stop);
        } else if (!m_parts.desktopSource) {
            if (!answer)
                liveError = std::make_exception_ptr(
                    CodexAppServerError::timedOut(QStringLiteral("thread/list")));
            throw CodexThreadRepositoryError(describeException(liveError),
                                             describeException(fallbackError));
        } else {
            result = ThreadCollection{
                {},
                bothUnavailableDescription,
                false,
                {failure(QStringLiteral("Codex local history"), false, RackProvider::codex)}};
        }
    }

    const std::optional<ThreadCollection> projection =
        co_await readDesktopProjection(limit, generation, stop);
    result = mergeDesktopProjection(std::move(result), projection);
    foldHookStatuses(result);
    // The overlay just learnt which rollouts are running: follow them before anyone is told.
    co_await renewWatchedFiles(generation);
    throwIfStale(generation, stop);
    co_return result;
}

struct CodexThreadRepository::LiveFetch
{
    std::optional<ThreadCollection> result;
    std::exception_ptr error;
    bool done = false;
    // Somebody stopped waiting: the answer, when it comes, asks for a fetch of its own.
    bool answerWanted = false;
    quint64 generation = 0;
    std::vector<ChannelPtr<std::monostate>> waiters;
};

QCoro::Task<void> CodexThreadRepository::runLiveFetch(int limit, std::shared_ptr<LiveFetch> fetch,
                                                      std::stop_token stop)
{
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    const std::shared_ptr<ThreadSource> live = m_parts.liveSource;
    try {
        fetch->result = co_await live->fetchThreads(limit, stop);
    } catch (...) {
        fetch->error = std::current_exception();
    }
    fetch->done = true;
    for (const ChannelPtr<std::monostate> &waiter : fetch->waiters)
        waiter->send({});
    const auto self = weak.lock();
    if (!self)
        co_return;
    if (m_liveFetch == fetch)
        m_liveFetch.reset();
    if (fetch->answerWanted && fetch->result && !m_isShutdown && !m_isSuspended)
        m_invalidations->send({});
}

QCoro::Task<std::optional<std::pair<std::optional<ThreadCollection>, std::exception_ptr>>>
CodexThreadRepository::awaitLive(int limit, std::stop_token stop)
{
    // One live fetch at a time: a fetch that arrives while one is in flight waits for it.
    std::shared_ptr<LiveFetch> fetch = m_liveFetch;
    if (!fetch || fetch->generation != m_lifecycleGeneration) {
        fetch = std::make_shared<LiveFetch>();
        fetch->generation = m_lifecycleGeneration;
        m_liveFetch = fetch;
        // The repository's lifetime, not the caller's: an answer that comes late still counts.
        runLiveFetch(limit, fetch, m_generationStop.get_token());
    }
    if (!fetch->done) {
        auto arrived = BoundedChannel<std::monostate>::create(1);
        fetch->waiters.push_back(arrived);
        auto giveUp = std::make_shared<std::stop_source>();
        std::stop_callback forward(stop, [giveUp] { giveUp->request_stop(); });
        if (m_parts.livePatience.count() > 0)
            stopAfter(clock(), m_parts.livePatience, giveUp);
        auto next = arrived->next(giveUp->get_token());
        co_await next;
    }
    if (!fetch->done) {
        fetch->answerWanted = true;
        co_return std::nullopt;
    }
    co_return std::make_pair(fetch->result, fetch->error);
}

QCoro::Task<ThreadCollection> CodexThreadRepository::applyOverlay(ThreadCollection collection,
                                                                  quint64 generation,
                                                                  std::stop_token stop)
{
    const std::shared_ptr<CodexActivityOverlaying> overlay = m_parts.activityOverlay;
    if (!overlay)
        co_return collection;
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    std::optional<ThreadCollection> lifted;
    try {
        lifted = co_await overlay->apply(collection, clock().now());
    } catch (...) {
        // The overlay's trouble costs only the overlay: the collection stands as it was read.
    }
    const auto self = weak.lock();
    if (!self)
        throw OperationCancelled();
    throwIfStale(generation, stop);
    co_return lifted ? std::move(*lifted) : std::move(collection);
}

QCoro::Task<std::optional<ThreadCollection>>
CodexThreadRepository::readDesktopProjection(int limit, quint64 generation, std::stop_token stop)
{
    throwIfStale(generation, stop);
    const std::shared_ptr<ThreadSource> desktop = m_parts.desktopSource;
    if (!desktop)
        co_return std::nullopt;
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    const quint64 sequence = ++m_nextDesktopReadSequence;
    std::optional<ThreadCollection> read;
    std::exception_ptr error;
    try {
        read = co_await desktop->fetchThreads(limit, stop);
    } catch (...) {
        error = std::current_exception();
    }
    const auto self = weak.lock();
    if (!self || (error && isCancellation(error)))
        throw OperationCancelled();
    throwIfStale(generation, stop);
    // An older read that finished last must not replace a newer one.
    if (sequence <= m_completedDesktopReadSequence)
        co_return std::optional<ThreadCollection>(m_latestDesktopProjection); // a copy, not a move
    m_completedDesktopReadSequence = sequence;
    if (read) {
        m_latestDesktopProjection = read;
        co_return read;
    }
    ThreadCollection degraded = m_latestDesktopProjection.value_or(ThreadCollection{});
    degraded.sourceDescription = desktopUnavailableDescription;
    appendUnique(degraded.sourceFailures,
                 {failure(QStringLiteral("Codex desktop catalog"),
                          m_latestDesktopProjection.has_value(), RackProvider::codex)});
    co_return degraded;
}

ThreadCollection CodexThreadRepository::reconcile(
    const QList<RackThread> &localThreads, const std::optional<ThreadCollection> &liveCollection,
    QList<ThreadSourceFailure> failures, const QList<ThreadSourceFailure> &liveSourceFailures)
{
    QHash<QString, const RackThread *> live;
    if (liveCollection) {
        for (const RackThread &thread : liveCollection->threads)
            live.insert(thread.id, &thread);
    }
    ThreadCollection result;
    result.threads.reserve(localThreads.size());
    for (const RackThread &local : localThreads) {
        const RackThread *counterpart = local.codexDesktopIdentity ? nullptr : live.value(local.id);
        // The list comes from the local side; the live side only lends its status, and only
        // when it is not older than what the local files say.
        if (counterpart && counterpart->status != RackStatus::recent &&
            counterpart->recencyAt >= local.recencyAt &&
            counterpart->updatedAt >= local.updatedAt) {
            RackThread merged = *counterpart;
            merged.recencyAt = local.recencyAt;
            result.threads.append(std::move(merged));
        } else {
            result.threads.append(local);
        }
    }
    appendUnique(failures, liveSourceFailures);
    QList<ThreadSourceFailure> unique;
    appendUnique(unique, failures);
    result.sourceFailures = std::move(unique);
    result.sourceDescription = localActivityDescription;
    result.isLive = false;
    return result;
}

ThreadCollection
CodexThreadRepository::mergeDesktopProjection(ThreadCollection base,
                                              const std::optional<ThreadCollection> &projection)
{
    if (!projection || projection->threads.isEmpty())
        return base;
    appendUnique(base.sourceFailures, projection->sourceFailures);
    QList<RackThread> threads;
    for (const RackThread &thread : std::as_const(base.threads)) {
        if (!thread.codexDesktopIdentity)
            threads.append(thread);
    }
    for (const RackThread &thread : projection->threads) {
        if (thread.provider != RackProvider::codex || !thread.codexDesktopIdentity)
            continue;
        RackThread copy = thread;
        // Only a live cloud reading may give a cached desktop thread a status of its own.
        if (!copy.hasLiveCloudStatus)
            copy.status = RackStatus::recent;
        threads.append(std::move(copy));
    }
    base.threads = std::move(threads);
    base.sourceDescription += QStringLiteral(" + ") + projection->sourceDescription;
    return base;
}

void CodexThreadRepository::requestLocalRefresh()
{
    if (!m_parts.activityOverlay && !m_parts.desktopSource)
        return;
    if (m_isSuspended || m_isShutdown)
        return;
    if (m_localRefreshRunning) {
        m_needsLocalRefresh = true;
        return;
    }
    m_localRefreshRunning = true;
    runLocalRefresh(m_lifecycleGeneration, m_generationStop.get_token());
}

QCoro::Task<void> CodexThreadRepository::runLocalRefresh(quint64 generation, std::stop_token stop)
{
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    const std::shared_ptr<ThreadSource> fallback = m_parts.fallbackSource;
    std::optional<ThreadCollection> collection;
    std::optional<ThreadCollection> snapshot;
    try {
        std::optional<ThreadCollection> read;
        std::exception_ptr readError;
        try {
            read = co_await fallback->fetchThreads(localFetchLimit, stop);
        } catch (...) {
            readError = std::current_exception();
        }
        if (!weak.lock())
            co_return;
        throwIfStale(generation, stop);
        if (readError && isCancellation(readError))
            throw OperationCancelled();
        if (read) {
            collection = co_await applyOverlay(std::move(*read), generation, stop);
        } else {
            qCWarning(lcCodexRepository, "Local Codex reconciliation unavailable");
            if (m_parts.desktopSource) {
                const QList<RackThread> kept =
                    m_localCollection ? m_localCollection->threads : QList<RackThread>{};
                collection = ThreadCollection{kept,
                                              localUnavailableDescription,
                                              false,
                                              {failure(QStringLiteral("Codex local history"),
                                                       !kept.isEmpty(), RackProvider::codex)}};
            }
        }
        if (collection) {
            const std::optional<ThreadCollection> projection =
                co_await readDesktopProjection(localFetchLimit, generation, stop);
            m_localCollection = *collection;
            ++m_localRevision;
            snapshot =
                mergeDesktopProjection(reconcile(collection->threads, m_liveCollection,
                                                 collection->sourceFailures, m_liveSourceFailures),
                                       projection);
            foldHookStatuses(*snapshot);
        }
    } catch (...) {
        // Cancelled or overtaken by a suspend: the work of an old generation ends without a
        // trace. Only a dead repository is left alone entirely.
        if (!weak.lock())
            co_return;
    }
    if (snapshot) {
        // Watch first, publish second: whoever sees a running task can count on its next
        // rollout line being heard.
        co_await renewWatchedFiles(generation);
        if (!weak.lock())
            co_return;
        if (!isStale(generation, stop) && snapshot != m_lastPublishedLocalSnapshot) {
            m_lastPublishedLocalSnapshot = snapshot;
            m_localSnapshots->send(std::move(*snapshot));
        }
    }
    if (!weak.lock() || generation != m_lifecycleGeneration)
        co_return;
    m_localRefreshRunning = false;
    ++m_completedLocalRefreshes;
    if (m_needsLocalRefresh) {
        m_needsLocalRefresh = false;
        requestLocalRefresh();
    }
}

QCoro::Task<void> CodexThreadRepository::renewWatchedFiles(quint64 generation)
{
    const std::shared_ptr<CodexActivityOverlaying> overlay = m_parts.activityOverlay;
    if (!m_watcher || !overlay || isStale(generation, {}))
        co_return;
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    QStringList rollouts;
    try {
        rollouts = co_await overlay->watchedRollouts(clock().now());
    } catch (...) {
        co_return;
    }
    if (!weak.lock() || isStale(generation, {}) || !m_watcher)
        co_return;
    m_watchedRollouts = rollouts;
    m_watcher->setFiles(m_parts.databaseFiles + m_parts.desktopFiles + rollouts);
}

void CodexThreadRepository::start()
{
    if (m_started || m_isShutdown)
        return;
    m_started = true;
    if (m_parts.fileWatch) {
        m_watcher = std::make_unique<TaskFileWatcher>(std::move(m_parts.fileWatch), clock());
        m_watcher->setFiles(m_parts.databaseFiles + m_parts.desktopFiles + m_watchedRollouts);
        if (!m_isSuspended)
            m_watcher->start();
        consumeFileChanges();
    }
    if (m_parts.appServerSource) {
        passOnStatusUpdates();
        passOnInvalidations();
    }
    if (m_parts.safetyNetInterval.count() > 0)
        runSafetyNet();
    if (m_parts.desktopStatusInvalidations)
        consumeCloudStatusChanges();
    // Rollouts known from a fetch that ran before watching began.
    renewWatchedFiles(m_lifecycleGeneration);
}

QCoro::Task<void> CodexThreadRepository::consumeFileChanges()
{
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    const ChannelPtr<TaskFileChanges> changes = m_watcher->changes();
    const std::stop_token stop = m_lifetime.get_token();
    while (true) {
        auto next = changes->next(stop);
        std::optional<TaskFileChanges> change = co_await next;
        const auto self = weak.lock();
        if (!change || !self || m_isShutdown)
            co_return;
        if (m_isSuspended)
            continue;
        int databaseFilesChanged = 0;
        for (const QString &path : std::as_const(m_parts.databaseFiles))
            databaseFilesChanged += change->paths.contains(path) ? 1 : 0;
        int desktopFilesChanged = 0;
        for (const QString &path : std::as_const(m_parts.desktopFiles))
            desktopFilesChanged += change->paths.contains(path) ? 1 : 0;
        const bool listChanged =
            change->everything || databaseFilesChanged > 0 || desktopFilesChanged > 0;
        qCDebug(lcCodexRepository, "Codex files changed: %d database, %d other%s",
                databaseFilesChanged, int(change->paths.size()) - databaseFilesChanged,
                change->everything ? ", events lost" : "");
        requestLocalRefresh();
        // The database holds the list itself: a new, archived or renamed task is for a fetch.
        if (listChanged)
            m_invalidations->send({});
    }
}

void CodexThreadRepository::foldIntoLiveCollection(const CodexStatusUpdate &update)
{
    if (!m_liveCollection)
        return;
    for (RackThread &thread : m_liveCollection->threads) {
        if (thread.providerThreadID != update.threadId)
            continue;
        thread.status = rackStatus(update.status);
        // Without a time of its own the update is as new as its arrival, which lets it win over
        // older local activity when the list is reconciled.
        thread.updatedAt = update.updatedAt.value_or(clock().now());
        if (update.recencyAt)
            thread.recencyAt = *update.recencyAt;
    }
}

bool CodexThreadRepository::knowsThread(const QString &providerThreadID) const
{
    for (const std::optional<ThreadCollection> *collection :
         {&m_localCollection, &m_liveCollection}) {
        if (!*collection)
            continue;
        for (const RackThread &thread : (*collection)->threads) {
            if (thread.providerThreadID == providerThreadID)
                return true;
        }
    }
    return false;
}

void CodexThreadRepository::receiveHookEvent(const CodexHookEvent &event)
{
    if (m_isShutdown || m_isSuspended)
        return;
    const CodexHookEffect effect = codexHookEffect(event);
    const bool known = knowsThread(event.sessionId);
    if (effect.status) {
        const QDateTime now = clock().now();
        // A person rarely has this many turns at once; the oldest goes first.
        constexpr qsizetype maximumHookStatuses = 256;
        if (m_hookStatuses.size() >= maximumHookStatuses &&
            !m_hookStatuses.contains(event.sessionId)) {
            auto oldest = m_hookStatuses.begin();
            for (auto it = m_hookStatuses.begin(); it != m_hookStatuses.end(); ++it) {
                if (it->at < oldest->at)
                    oldest = it;
            }
            m_hookStatuses.erase(oldest);
        }
        m_hookStatuses.insert(event.sessionId, HookStatus{*effect.status, now});
        // The store holds an update for a thread it does not list yet until a snapshot shows it.
        m_statusUpdates->send(
            RackStatusUpdate{codexThreadPrefix + event.sessionId, *effect.status, now, now});
    }
    if (effect.refresh || !known)
        requestLocalRefresh();
    if (!known)
        m_invalidations->send({});
}

void CodexThreadRepository::foldHookStatuses(ThreadCollection &collection)
{
    if (m_hookStatuses.isEmpty())
        return;
    const QDateTime now = clock().now();
    // As long as the rollout itself would believe such a status.
    const auto lifetimeMs = [](RackStatus status) {
        switch (status) {
        case RackStatus::completed:
            return RolloutActivityOverlay::completionFreshnessMs;
        case RackStatus::error:
            return RolloutActivityOverlay::errorFreshnessMs;
        default:
            return RolloutActivityOverlay::workingFreshnessMs;
        }
    };
    for (auto it = m_hookStatuses.begin(); it != m_hookStatuses.end();) {
        if (it->at.msecsTo(now) > lifetimeMs(it->status))
            it = m_hookStatuses.erase(it);
        else
            ++it;
    }
    for (RackThread &thread : collection.threads) {
        if (thread.provider != RackProvider::codex || thread.codexDesktopIdentity)
            continue;
        const auto it = m_hookStatuses.constFind(thread.providerThreadID);
        if (it == m_hookStatuses.constEnd())
            continue;
        // A turn's start or end that the files recorded after the hook speaks for itself.
        if (thread.updatedAt > it->at) {
            m_hookStatuses.erase(it);
            continue;
        }
        thread.status = it->status;
        thread.updatedAt = it->at;
        thread.recencyAt = std::max(thread.recencyAt, it->at);
    }
}

QCoro::Task<void> CodexThreadRepository::passOnStatusUpdates()
{
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    const ChannelPtr<CodexStatusUpdate> updates = m_parts.appServerSource->statusUpdates();
    const std::stop_token stop = m_lifetime.get_token();
    while (true) {
        auto next = updates->next(stop);
        std::optional<CodexStatusUpdate> update = co_await next;
        const auto self = weak.lock();
        if (!update || !self || m_isShutdown)
            co_return;
        if (m_isSuspended)
            continue;
        foldIntoLiveCollection(*update);
        const RackStatusUpdate delta = rackStatusUpdate(*update);
        m_statusUpdates->send(delta);
        // A turn began or ended: its rollout joins or leaves the watched set.
        if (delta.status == RackStatus::working || delta.status == RackStatus::completed ||
            delta.status == RackStatus::error)
            requestLocalRefresh();
    }
}

QCoro::Task<void> CodexThreadRepository::passOnInvalidations()
{
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    const ChannelPtr<std::monostate> invalidations =
        m_parts.appServerSource->threadListInvalidations();
    const std::stop_token stop = m_lifetime.get_token();
    while (true) {
        auto next = invalidations->next(stop);
        std::optional<std::monostate> invalidation = co_await next;
        const auto self = weak.lock();
        if (!invalidation || !self || m_isShutdown)
            co_return;
        if (!m_isSuspended)
            m_invalidations->send({});
    }
}

QCoro::Task<void> CodexThreadRepository::runSafetyNet()
{
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    Clock &clock = *m_parts.clock;
    const std::chrono::milliseconds interval = m_parts.safetyNetInterval;
    while (true) {
        co_await clock.sleep(interval);
        const auto self = weak.lock();
        if (!self || m_isShutdown)
            co_return;
        // Also lets a completed or failed status expire on time when no file changes.
        requestLocalRefresh();
    }
}

QCoro::Task<void> CodexThreadRepository::wake()
{
    if (m_isShutdown)
        co_return;
    // A sleep that was never announced left the child and the watchers as they were: retire
    // them the same way before starting afresh.
    const auto self = shared_from_this();
    if (!m_isSuspended) {
        auto suspending = suspend();
        co_await suspending;
    }
    if (m_isShutdown)
        co_return;
    resume();
    requestLocalRefresh();
}

QCoro::Task<void> CodexThreadRepository::consumeCloudStatusChanges()
{
    const std::weak_ptr<CodexThreadRepository> weak = weak_from_this();
    const ChannelPtr<std::monostate> changes = m_parts.desktopStatusInvalidations;
    const std::stop_token stop = m_lifetime.get_token();
    while (true) {
        auto next = changes->next(stop);
        std::optional<std::monostate> change = co_await next;
        const auto self = weak.lock();
        if (!change || !self || m_isShutdown)
            co_return;
        // The cloud's view lives in the desktop projection, which a local pass reads again.
        if (!m_isSuspended)
            requestLocalRefresh();
    }
}

void CodexThreadRepository::preferencesChanged()
{
    if (m_parts.cloudStatus && !m_isShutdown)
        m_parts.cloudStatus->settingChanged();
}

QCoro::Task<bool> CodexThreadRepository::awaitCloudPoll(std::chrono::milliseconds patience)
{
    const std::shared_ptr<CodexCloudStatusProvider> cloud = m_parts.cloudStatus;
    if (!cloud || !cloud->isPolling() || m_isShutdown)
        co_return false;
    auto waiting = cloud->awaitPoll(clock(), patience);
    co_await waiting;
    co_return true;
}

QCoro::Task<void> CodexThreadRepository::suspend()
{
    if (m_isSuspended || m_isShutdown)
        co_return;
    m_isSuspended = true;
    m_generationStop.request_stop();
    m_generationStop = std::stop_source();
    m_localRefreshRunning = false;
    m_needsLocalRefresh = false;
    if (m_watcher)
        m_watcher->stop();
    // No socket stays open across a sleep.
    if (const std::shared_ptr<CodexCloudStatusProvider> cloud = m_parts.cloudStatus)
        co_await cloud->disconnect();
    if (const std::shared_ptr<CodexAppServerThreadSource> appServer = m_parts.appServerSource)
        co_await appServer->suspend();
}

void CodexThreadRepository::resume()
{
    if (!m_isSuspended || m_isShutdown)
        return;
    ++m_lifecycleGeneration;
    m_isSuspended = false;
    // Reads of the desktop files that began before the sleep are dropped there too.
    if (auto desktop = std::dynamic_pointer_cast<CodexDesktopThreadSource>(m_parts.desktopSource))
        desktop->resume();
    if (m_parts.appServerSource)
        m_parts.appServerSource->resume();
    if (m_watcher) {
        m_watcher->start();
        // Whatever was written while asleep went unheard.
        requestLocalRefresh();
    }
}

QCoro::Task<void> CodexThreadRepository::shutdown()
{
    const std::shared_ptr<CodexAppServerThreadSource> appServer = m_parts.appServerSource;
    if (!m_isShutdown) {
        m_isShutdown = true;
        m_lifetime.request_stop();
        m_generationStop.request_stop();
        if (m_watcher) {
            m_watcher->finish();
            m_watcher->setFiles({});
        }
        m_localSnapshots->finish();
        m_statusUpdates->finish();
        m_invalidations->finish();
    }
    if (const std::shared_ptr<CodexCloudStatusProvider> cloud = m_parts.cloudStatus)
        co_await cloud->disconnect();
    // Idempotent on its side: a second call waits for the first.
    if (appServer)
        co_await appServer->shutdown();
}

} // namespace taskrack
