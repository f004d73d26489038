#include "sources/claude/claudedesktopthreadsource.h"

#include "core/rackprojectidentity.h"
#include "core/threadanchor.h"
#include "sources/claude/claudesnapshot.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QSaveFile>
#include <algorithm>

namespace taskrack {

namespace {

constexpr qint64 evidenceFileBytes = 16'777'216;
constexpr int snapshotLimit = 400;

bool hasHiddenComponent(const QString &relativePath)
{
    const QStringList parts = relativePath.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    return std::any_of(parts.cbegin(), parts.cend(),
                       [](const QString &part) { return part.startsWith(QLatin1Char('.')); });
}

} // namespace

ClaudeSourcePaths ClaudeSourcePaths::forHome(const QString &home, const QString &dataHome)
{
    QString data = dataHome;
    if (data.isEmpty())
        data = qEnvironmentVariable("XDG_DATA_HOME");
    if (data.isEmpty())
        data = home + QStringLiteral("/.local/share");
    ClaudeSourcePaths paths;
    paths.home = home;
    paths.sessionRoot = home + QStringLiteral("/.config/Claude/claude-code-sessions");
    paths.transcriptRoot = home + QStringLiteral("/.claude/projects");
    paths.liveSessionsPath = home + QStringLiteral("/.claude/sessions");
    paths.observedStatusesPath =
        data + QStringLiteral("/taskrack/claude-observed-statuses-v2.json");
    return paths;
}

ClaudeDesktopThreadSource::ClaudeDesktopThreadSource(Configuration configuration)
    : m_paths(configuration.paths),
      m_clock(configuration.clock ? *configuration.clock : SystemClock::shared()),
      m_discoversTranscriptSessions(configuration.discoversTranscriptSessions),
      m_fileWatchFactory(std::move(configuration.fileWatchFactory)),
      m_fileSystem(*configuration.fileSystem),
      m_processExitWatchFactory(std::move(configuration.processExitWatchFactory)),
      m_reader(m_fileSystem, configuration.paths.transcriptRoot), m_discovery(m_reader),
      m_registry(m_fileSystem, configuration.paths.liveSessionsPath,
                 std::move(configuration.processProbe))
{
    loadPersistedEvidence();
}

ClaudeDesktopThreadSource::~ClaudeDesktopThreadSource()
{
    // Watchers and their notifiers belong to the actor's thread and are torn down there.
    QMetaObject::invokeMethod(
        m_executor.context(),
        [this] {
            ++m_lifecycleGeneration;
            stopOnActor();
            m_watcher.reset();
            m_transcriptWatcher.reset();
            m_transcriptRefresh.reset();
            m_liveSessionsWatcher.reset();
            m_processExits.reset();
            m_lifetime.reset();
        },
        Qt::BlockingQueuedConnection);
}

void ClaudeDesktopThreadSource::loadPersistedEvidence()
{
    const auto data =
        readSmallClaudeFile(m_fileSystem, m_paths.observedStatusesPath, {}, evidenceFileBytes + 1);
    if (!data)
        return;
    if (auto evidence = decodeClaudeSessionEvidence(*data)) {
        m_evidence = std::move(*evidence);
        m_persistedEvidence = m_evidence;
        m_lastPersisted = *data;
    }
}

bool ClaudeDesktopThreadSource::isCurrent(quint64 generation) const
{
    return generation == m_lifecycleGeneration && !m_isSuspended && !m_isShutdown;
}

// While the watchers run, every change to what a reconciliation reads is heard and read by its
// own pass; a fetch then has nothing to read again and only builds the snapshot. The safety net
// still reconciles in full.
bool ClaudeDesktopThreadSource::isUpToDate() const
{
    return m_isMonitoring && m_hasCompletedInitialReconciliation && !m_isReconciling &&
           !m_manifestsMayHaveChanged && !m_transcriptsMayHaveChanged && m_watcher->isRunning() &&
           m_transcriptWatcher->isRunning();
}

// ---- public operations: each hops onto the actor and back ----

QCoro::Task<ThreadCollection> ClaudeDesktopThreadSource::fetchThreads(int limit,
                                                                      std::stop_token stop)
{
    throwIfCancelled(stop);
    if (limit < 1)
        co_return ThreadCollection{{}, QStringLiteral("Claude Desktop"), true, {}};
    QObject *caller = threadAnchor();
    co_await ThreadHop{m_executor.context()};
    if (!m_isSuspended && !m_isShutdown && !isUpToDate())
        co_await reconcile(false, m_lifecycleGeneration);
    ThreadCollection snapshot = buildSnapshot(limit);
    co_await ThreadHop{caller};
    throwIfCancelled(stop);
    co_return snapshot;
}

QCoro::Task<void> ClaudeDesktopThreadSource::startMonitoring()
{
    QObject *caller = threadAnchor();
    co_await ThreadHop{m_executor.context()};
    startOnActor();
    co_await ThreadHop{caller};
}

QCoro::Task<void> ClaudeDesktopThreadSource::suspend()
{
    QObject *caller = threadAnchor();
    co_await ThreadHop{m_executor.context()};
    if (!m_isShutdown && !m_isSuspended) {
        ++m_lifecycleGeneration;
        m_isSuspended = true;
        stopOnActor();
    }
    co_await ThreadHop{caller};
}

QCoro::Task<void> ClaudeDesktopThreadSource::shutdown()
{
    QObject *caller = threadAnchor();
    co_await ThreadHop{m_executor.context()};
    if (!m_isShutdown) {
        ++m_lifecycleGeneration;
        m_isSuspended = true;
        m_isShutdown = true;
        stopOnActor();
        m_statusUpdates->finish();
        m_invalidations->finish();
        m_snapshots->finish();
    }
    co_await ThreadHop{caller};
}

QCoro::Task<void> ClaudeDesktopThreadSource::sleep()
{
    co_return;
}

QCoro::Task<void> ClaudeDesktopThreadSource::wake()
{
    auto reconciling = reconcileNow();
    co_await reconciling;
}

QCoro::Task<void> ClaudeDesktopThreadSource::reconcileNow()
{
    QObject *caller = threadAnchor();
    co_await ThreadHop{m_executor.context()};
    if (!m_isSuspended && !m_isShutdown)
        co_await reconcile(false, m_lifecycleGeneration);
    co_await ThreadHop{caller};
}

std::optional<ClaudeSessionSignal> ClaudeDesktopThreadSource::signalOf(const ClaudeHookEvent &event)
{
    const ClaudeHookDisposition disposition = claudeHookDisposition(event);
    if (disposition == ClaudeHookDisposition::ignore)
        return std::nullopt;
    ClaudeSessionSignal signal;
    signal.sessionId = event.sessionId;
    signal.transcriptPath = event.transcriptPath;
    switch (claudeInputRequestAction(event)) {
    case ClaudeInputRequestAction::set:
        signal.inputRequest = ClaudeSessionSignal::InputRequest::set;
        break;
    case ClaudeInputRequestAction::clear:
        signal.inputRequest = ClaudeSessionSignal::InputRequest::clear;
        break;
    case ClaudeInputRequestAction::leave:
        break;
    }
    if (disposition == ClaudeHookDisposition::applyWithBackgroundUpdate)
        signal.activeBackgroundTaskCount = claudeActiveBackgroundTaskCount(event);
    return signal;
}

QCoro::Task<void> ClaudeDesktopThreadSource::receive(ClaudeHookEvent event, QDateTime receivedAt)
{
    if (auto signal = signalOf(event))
        co_await receiveSignal(std::move(*signal), std::move(receivedAt));
}

QCoro::Task<void> ClaudeDesktopThreadSource::receiveSignal(ClaudeSessionSignal signal,
                                                           QDateTime receivedAt)
{
    QObject *caller = threadAnchor();
    co_await ThreadHop{m_executor.context()};
    if (!m_isShutdown) {
        if (applySignal(signal, receivedAt)) {
            // The event itself sets no status: it makes the transcripts be read again now.
            refreshTranscriptObservations(m_clock.now());
            publishStatusChanges();
            persist();
        } else {
            // Claude Code often fires a hook before the transcript file exists.
            if (m_pendingSignals.size() >= pendingSignalLimit)
                m_pendingSignals.erase(m_pendingSignals.begin(),
                                       m_pendingSignals.begin() +
                                           (m_pendingSignals.size() - pendingSignalLimit + 1));
            m_pendingSignals.append(PendingSignal{std::move(signal), receivedAt});
        }
    }
    co_await ThreadHop{caller};
}

// ---- lifecycle on the actor ----

void ClaudeDesktopThreadSource::startOnActor()
{
    if (m_isShutdown)
        return;
    if (m_isSuspended) {
        ++m_lifecycleGeneration;
        m_isSuspended = false;
    }
    if (m_isMonitoring)
        return;
    m_isMonitoring = true;
    if (!m_watcher) {
        m_watcher = std::make_unique<ClaudeSessionDirectoryWatcher>(
            m_paths.sessionRoot, true, false, m_clock, m_fileWatchFactory);
        m_transcriptWatcher = std::make_unique<ClaudeSessionDirectoryWatcher>(
            m_paths.transcriptRoot, false, true, m_clock, m_fileWatchFactory);
        m_transcriptRefresh = std::make_unique<Coalescer>(m_clock, transcriptCoalescing,
                                                          [this] { runTranscriptRefresh(); });
        // Claude Code's registry of running processes: an entry that changes or goes, and a
        // process that ends, can change a status without any transcript line.
        m_liveSessionsWatcher = std::make_unique<ClaudeSessionDirectoryWatcher>(
            m_paths.liveSessionsPath, false, false, m_clock, m_fileWatchFactory);
        m_processExits = m_processExitWatchFactory();
        m_processExits->setHandler([this](qint64 pid) { noteProcessExit(pid); });
    }
    m_watcher->start();
    m_transcriptWatcher->start();
    m_liveSessionsWatcher->start();
    rebuildIndexes();
    m_monitoringStop = std::stop_source();
    const quint64 generation = m_lifecycleGeneration;
    const std::stop_token stop = m_monitoringStop.get_token();
    runWatchLoop(
        m_watcher->invalidations(),
        [this, generation] {
            m_manifestsMayHaveChanged = true;
            reconcile(true, generation);
        },
        generation, stop);
    runWatchLoop(
        m_transcriptWatcher->invalidations(),
        [this] {
            m_transcriptsMayHaveChanged = true;
            m_transcriptRefresh->request();
        },
        generation, stop);
    runWatchLoop(
        m_liveSessionsWatcher->invalidations(),
        [this] {
            refreshLiveRegistry();
            publishStatusChanges();
        },
        generation, stop);
    runSafetyNet(generation, m_monitoringStop.get_token());
    reconcile(true, generation);
}

void ClaudeDesktopThreadSource::stopOnActor()
{
    m_isMonitoring = false;
    m_manifestsMayHaveChanged = true;
    m_transcriptsMayHaveChanged = true;
    m_needsFollowUpReconcile = false;
    if (m_transcriptRefresh)
        m_transcriptRefresh->cancel();
    m_monitoringStop.request_stop();
    if (m_watcher)
        m_watcher->stop();
    if (m_transcriptWatcher)
        m_transcriptWatcher->stop();
    if (m_liveSessionsWatcher)
        m_liveSessionsWatcher->stop();
    if (m_processExits)
        m_processExits->setProcesses({});
}

QCoro::Task<void> ClaudeDesktopThreadSource::runWatchLoop(ChannelPtr<std::monostate> channel,
                                                          std::function<void()> onChange,
                                                          quint64 generation, std::stop_token stop)
{
    const std::weak_ptr<int> alive = m_lifetime;
    while (true) {
        const auto signal = co_await channel->next(stop);
        if (!signal || alive.expired() || !isCurrent(generation))
            co_return;
        onChange();
    }
}

QCoro::Task<void> ClaudeDesktopThreadSource::runSafetyNet(quint64 generation, std::stop_token stop)
{
    const std::weak_ptr<int> alive = m_lifetime;
    QObject *home = m_executor.context();
    while (true) {
        co_await m_clock.sleep(safetyNetInterval);
        co_await ThreadHop{home};
        if (alive.expired() || stop.stop_requested() || !isCurrent(generation))
            co_return;
        reconcile(false, generation);
    }
}

// ---- reconciliation ----

QCoro::Task<void> ClaudeDesktopThreadSource::reconcile(bool retrying, quint64 generation)
{
    if (!isCurrent(generation))
        co_return;
    if (m_isReconciling) {
        m_needsFollowUpReconcile = true;
        co_return;
    }
    m_isReconciling = true;
    m_manifestsMayHaveChanged = false;
    m_transcriptsMayHaveChanged = false;
    const std::weak_ptr<int> alive = m_lifetime;

    const QStringList listed = listManifests();
    bool listChanged = !m_hasCompletedInitialReconciliation;
    bool isStale = false;

    const QSet<QString> listedSet(listed.cbegin(), listed.cend());
    for (auto it = m_cachedSessions.begin(); it != m_cachedSessions.end();) {
        if (listedSet.contains(it.key())) {
            ++it;
            continue;
        }
        const QString sessionId = it->manifest.sessionId;
        m_evidence.forget(sessionId);
        m_lastPublishedStatus.remove(sessionId);
        it = m_cachedSessions.erase(it);
        listChanged = true;
    }

    for (const QString &path : listed) {
        const auto fingerprint = manifestFingerprint(path);
        if (!fingerprint)
            continue;
        const auto cached = m_cachedSessions.constFind(path);
        if (cached != m_cachedSessions.cend() && cached->fingerprint == *fingerprint)
            continue;
        const auto manifest = co_await loadManifest(path, retrying, generation);
        if (alive.expired())
            co_return;
        if (!isCurrent(generation)) {
            isStale = true;
            m_manifestsMayHaveChanged = true;
            m_transcriptsMayHaveChanged = true;
            break;
        }
        if (!manifest || manifest->sessionId != QFileInfo(path).completeBaseName())
            continue;
        m_cachedSessions.insert(path, ClaudeCachedSession{*fingerprint, *manifest});
        listChanged = true;
    }

    if (!isStale && isCurrent(generation)) {
        const QDateTime now = m_clock.now();
        listChanged |= refreshDiscovery(now);
        rebuildIndexes();
        refreshTranscriptObservations(now, true);
        replayPendingSignals();
        persist();
        m_hasCompletedInitialReconciliation = true;
        publishStatusChanges();
        if (listChanged)
            announceListChange();
    }

    m_isReconciling = false;
    if (m_needsFollowUpReconcile) {
        m_needsFollowUpReconcile = false;
        if (!m_isSuspended && !m_isShutdown)
            reconcile(retrying, m_lifecycleGeneration);
    }
}

QStringList ClaudeDesktopThreadSource::listManifests() const
{
    QStringList paths;
    const QDir root(m_paths.sessionRoot);
    if (!root.exists())
        return paths;
    QDirIterator it(m_paths.sessionRoot, {QStringLiteral("local_*.json")},
                    QDir::Files | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (!hasHiddenComponent(root.relativeFilePath(path)))
            paths.append(path);
    }
    paths.sort();
    return paths;
}

std::optional<ClaudeSessionFileFingerprint>
ClaudeDesktopThreadSource::manifestFingerprint(const QString &path) const
{
    const auto stat = statClaudePath(m_fileSystem, path);
    if (!stat || !stat->isRegularFile || !stat->modificationDate.isValid() || stat->size < 0 ||
        stat->size > claudelimits::manifestBytes)
        return std::nullopt;
    return ClaudeSessionFileFingerprint{stat->modificationDate, stat->size, std::nullopt};
}

QCoro::Task<std::optional<ClaudeDesktopSessionManifest>>
ClaudeDesktopThreadSource::loadManifest(QString path, bool retrying, quint64 generation)
{
    using namespace std::chrono_literals;
    static const std::chrono::milliseconds retryDelays[] = {0ms, 50ms, 150ms, 500ms};
    const std::weak_ptr<int> alive = m_lifetime;
    QObject *home = m_executor.context();
    const int attempts = retrying ? 4 : 1;
    const QString root = m_fileSystem.resolvedPath(m_paths.sessionRoot);
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (retryDelays[attempt] > 0ms) {
            co_await m_clock.sleep(retryDelays[attempt]);
            co_await ThreadHop{home};
        }
        if (alive.expired() || !isCurrent(generation))
            co_return std::nullopt;
        const auto data = readSmallClaudeFile(m_fileSystem, path, root,
                                              claudelimits::manifestBytes + 1, &m_manifestCounters);
        if (!data)
            continue;
        auto manifest = decodeClaudeSessionManifest(*data);
        // The writer may be half-way through: try again after the next delay.
        if (!manifest)
            continue;
        if (!manifest->isWithinLimits())
            co_return std::nullopt;
        co_return manifest;
    }
    co_return std::nullopt;
}

void ClaudeDesktopThreadSource::runTranscriptRefresh()
{
    if (m_isSuspended || m_isShutdown)
        return;
    m_transcriptsMayHaveChanged = false;
    // The known sessions' statuses go out first: they are what a person waits for. New or
    // vanished sessions and the evidence file follow.
    const QDateTime now = m_clock.now();
    refreshTranscriptObservations(now);
    publishStatusChanges();
    const bool listChanged = refreshDiscovery(now);
    if (listChanged) {
        rebuildIndexes();
        refreshTranscriptObservations(now, true);
        replayPendingSignals();
        publishStatusChanges();
        // Only a changed list asks for a fetch.
        announceListChange();
    }
    persist();
}

// ---- state ----

QList<ClaudeDesktopSessionManifest> ClaudeDesktopThreadSource::allSessions() const
{
    QList<ClaudeDesktopSessionManifest> sessions;
    sessions.reserve(m_cachedSessions.size() + m_discovered.size());
    QSet<QString> claimed;
    for (const ClaudeCachedSession &cached : m_cachedSessions) {
        sessions.append(cached.manifest);
        claimed.insert(cached.manifest.sessionId);
        if (auto key = cached.manifest.transcriptKey())
            claimed.insert(*key);
    }
    QStringList discoveredIds = m_discovered.keys();
    discoveredIds.sort();
    for (const QString &id : discoveredIds) {
        if (claimed.contains(id))
            continue;
        const ClaudeDiscoveredSession &session = m_discovered[id];
        sessions.append(session.asManifest(m_reader.cachedState(session.transcript)));
    }
    return sessions;
}

bool ClaudeDesktopThreadSource::refreshDiscovery(const QDateTime &now)
{
    if (!m_discoversTranscriptSessions)
        return false;
    const auto signature = [this] {
        QHash<QString, QPair<QString, QString>> result;
        for (const auto &session : std::as_const(m_discovered))
            result.insert(session.sessionId,
                          {session.cwd, session.title(m_reader.cachedState(session.transcript))});
        return result;
    };
    const auto before = signature();
    QHash<QString, ClaudeDiscoveredSession> found = m_discovery.discover(now);
    QSet<QString> manifestIds;
    for (const ClaudeCachedSession &cached : std::as_const(m_cachedSessions))
        manifestIds.insert(cached.manifest.sessionId);
    for (auto it = m_discovered.cbegin(); it != m_discovered.cend(); ++it) {
        // A session that left the horizon takes its evidence with it, unless a manifest owns it.
        if (!found.contains(it.key()) && !manifestIds.contains(it.key())) {
            m_evidence.forget(it.key());
            m_endedSessions.remove(it.key());
            m_processEndedAt.remove(it.key());
            m_lastPublishedStatus.remove(it.key());
        }
    }
    m_discovered = std::move(found);
    return before != signature();
}

void ClaudeDesktopThreadSource::rebuildIndexes()
{
    m_localSessionPathByID.clear();
    m_localSessionIDByAlias.clear();
    QSet<QString> transcriptNames;
    for (auto it = m_cachedSessions.cbegin(); it != m_cachedSessions.cend(); ++it) {
        m_localSessionPathByID.insert(it->manifest.sessionId, it.key());
        for (const QString &alias : it->manifest.aliases())
            m_localSessionIDByAlias.insert(alias, it->manifest.sessionId);
    }
    for (const ClaudeDesktopSessionManifest &session : allSessions()) {
        if (!m_localSessionPathByID.contains(session.sessionId)) {
            m_localSessionPathByID.insert(session.sessionId,
                                          m_discovered.value(session.sessionId).transcript.path);
            m_localSessionIDByAlias.insert(session.sessionId, session.sessionId);
        }
        if (auto key = session.transcriptKey())
            transcriptNames.insert(*key + QStringLiteral(".jsonl"));
    }
    if (m_transcriptWatcher)
        m_transcriptWatcher->updateWatchedRegularFiles(transcriptNames);
}

void ClaudeDesktopThreadSource::refreshTranscriptObservations(const QDateTime &now,
                                                              bool afterDiscovery)
{
    const QList<ClaudeDesktopSessionManifest> sessions = allSessions();
    QHash<QString, ClaudeIndexedTranscript> indexed;
    if (afterDiscovery && m_discoversTranscriptSessions) {
        indexed.reserve(m_discovered.size());
        for (const ClaudeDiscoveredSession &session : std::as_const(m_discovered))
            indexed.insert(session.sessionId, session.transcript);
        // A manifest may name a transcript that discovery passed over: then list again.
        afterDiscovery = std::all_of(sessions.cbegin(), sessions.cend(), [&](const auto &session) {
            const auto key = session.transcriptKey();
            return !key || indexed.contains(*key);
        });
    }
    const auto observations = afterDiscovery && m_discoversTranscriptSessions
                                  ? m_reader.observations(sessions, now, indexed)
                                  : m_reader.observations(sessions, now);
    for (auto it = observations.cbegin(); it != observations.cend(); ++it) {
        const auto previous = m_evidence.observations.constFind(it.key());
        std::optional<QDateTime> submitted = it->lastUserSubmittedAt;
        if (!submitted && previous != m_evidence.observations.cend())
            submitted = previous->lastUserSubmittedAt;
        m_evidence.observations.insert(it.key(),
                                       ClaudeObservedStatus{it->status, it->observedAt, submitted});
    }
    refreshLiveRegistry();
}

void ClaudeDesktopThreadSource::refreshLiveRegistry()
{
    QHash<QString, ClaudeLiveSessionEntry> entries = m_registry.read();
    const QDateTime now = m_clock.now();
    for (auto it = m_liveEntries.cbegin(); it != m_liveEntries.cend(); ++it) {
        if (it->isRunning && !entries.contains(it.key())) {
            m_endedSessions.insert(it.key());
            m_processEndedAt.insert(it.key(), now);
        }
    }
    QSet<qint64> running;
    QSet<qint64> named;
    for (ClaudeLiveSessionEntry &entry : entries) {
        named.insert(entry.pid);
        // Ended but not yet reaped, a process still answers the liveness probe.
        if (m_exitedPids.contains(entry.pid))
            entry.isRunning = false;
        if (entry.isRunning) {
            running.insert(entry.pid);
            m_endedSessions.remove(entry.sessionId);
            m_processEndedAt.remove(entry.sessionId);
        } else if (const auto previous = m_liveEntries.constFind(entry.sessionId);
                   previous != m_liveEntries.cend() && previous->isRunning) {
            m_processEndedAt.insert(entry.sessionId, now);
        }
    }
    m_exitedPids.intersect(named);
    m_liveEntries = std::move(entries);
    if (m_processExits && m_isMonitoring)
        m_processExits->setProcesses(running);
}

void ClaudeDesktopThreadSource::noteProcessExit(qint64 pid)
{
    if (m_isSuspended || m_isShutdown)
        return;
    m_exitedPids.insert(pid);
    // The process has written its last line: read the transcripts before publishing, or the
    // status of a turn that ended with the process shows what an interrupted one shows.
    runTranscriptRefresh();
}

bool ClaudeDesktopThreadSource::applySignal(const ClaudeSessionSignal &signal,
                                            const QDateTime &receivedAt)
{
    std::optional<QString> sessionId;
    if (signal.transcriptPath && !signal.transcriptPath->isEmpty()) {
        const QString stem = QFileInfo(*signal.transcriptPath).completeBaseName();
        const auto found = m_localSessionIDByAlias.constFind(stem);
        if (found != m_localSessionIDByAlias.cend())
            sessionId = *found;
    }
    if (!sessionId) {
        const auto found = m_localSessionIDByAlias.constFind(signal.sessionId);
        if (found != m_localSessionIDByAlias.cend())
            sessionId = *found;
    }
    if (!sessionId)
        return false;
    switch (signal.inputRequest) {
    case ClaudeSessionSignal::InputRequest::set:
        m_evidence.inputRequests.insert(*sessionId, ClaudeInputRequest{receivedAt});
        break;
    case ClaudeSessionSignal::InputRequest::clear:
        m_evidence.inputRequests.remove(*sessionId);
        break;
    case ClaudeSessionSignal::InputRequest::leave:
        break;
    }
    if (signal.activeBackgroundTaskCount) {
        m_evidence.backgroundTaskSnapshots.insert(
            *sessionId, ClaudeBackgroundTaskSnapshot{
                            std::max<qint64>(0, *signal.activeBackgroundTaskCount), receivedAt});
    }
    return true;
}

void ClaudeDesktopThreadSource::replayPendingSignals()
{
    const QList<PendingSignal> pending = std::exchange(m_pendingSignals, {});
    for (const PendingSignal &entry : pending) {
        if (!applySignal(entry.signal, entry.receivedAt))
            m_pendingSignals.append(entry);
    }
}

void ClaudeDesktopThreadSource::persist()
{
    if (m_evidence == m_persistedEvidence && !m_lastPersisted.isEmpty())
        return;
    const QByteArray encoded = encodeClaudeSessionEvidence(m_evidence);
    if (encoded == m_lastPersisted) {
        m_persistedEvidence = m_evidence;
        return;
    }
    QDir().mkpath(QFileInfo(m_paths.observedStatusesPath).path());
    QSaveFile file(m_paths.observedStatusesPath);
    // A failed write is retried at the next persist, since m_lastPersisted stays behind.
    if (file.open(QIODevice::WriteOnly) && file.write(encoded) == encoded.size() && file.commit()) {
        m_lastPersisted = encoded;
        m_persistedEvidence = m_evidence;
    }
}

ClaudeSessionFacts
ClaudeDesktopThreadSource::factsOf(const ClaudeDesktopSessionManifest &manifest) const
{
    ClaudeSessionFacts facts;
    const auto find = [&](const auto &map) {
        const auto found = map.constFind(manifest.sessionId);
        return found == map.cend() ? nullptr : &*found;
    };
    facts.observation = find(m_evidence.observations);
    facts.inputRequest = find(m_evidence.inputRequests);
    facts.backgroundTasks = find(m_evidence.backgroundTaskSnapshots);
    // The live registry speaks of Claude Code's own session id, which names the transcript.
    if (const auto key = manifest.transcriptKey()) {
        const auto live = m_liveEntries.constFind(*key);
        if (live != m_liveEntries.cend() && live->isRunning)
            facts.liveEntry = &*live;
        facts.processEnded =
            live != m_liveEntries.cend() ? !live->isRunning : m_endedSessions.contains(*key);
        if (const auto ended = m_processEndedAt.constFind(*key); ended != m_processEndedAt.cend())
            facts.processEndedAt = *ended;
    }
    facts.lastActivityAtMs = manifest.lastActivityAt;
    return facts;
}

bool ClaudeDesktopThreadSource::publishStatusChanges()
{
    const QDateTime now = m_clock.now();
    bool changed = false;
    for (const ClaudeDesktopSessionManifest &session : allSessions()) {
        const ClaudeSessionFacts facts = factsOf(session);
        const RackStatusUpdate update{claudeThreadID(session.sessionId),
                                      claudeLiveStatus(facts, now), claudeUpdatedAt(facts),
                                      claudeRecencyAt(facts)};
        const auto previous = m_lastPublishedStatus.constFind(session.sessionId);
        if (previous != m_lastPublishedStatus.cend() && *previous == update)
            continue;
        m_lastPublishedStatus.insert(session.sessionId, update);
        m_statusUpdates->send(update);
        changed = true;
    }
    return changed;
}

void ClaudeDesktopThreadSource::announceListChange()
{
    m_invalidations->send({});
    m_snapshots->send(buildSnapshot(snapshotLimit));
}

ThreadCollection ClaudeDesktopThreadSource::buildSnapshot(int limit) const
{
    ClaudeSnapshotInput input;
    input.sessions = allSessions();
    input.factsOf = [this](const ClaudeDesktopSessionManifest &session) {
        return factsOf(session);
    };
    input.now = m_clock.now();
    input.fromTranscriptsOnly = m_discoversTranscriptSessions && m_cachedSessions.isEmpty();
    input.isLoaded = m_hasCompletedInitialReconciliation;
    input.hasUnreadableFolder = m_reader.unreadableFolders() > 0;
    input.home = m_paths.home;
    return buildClaudeSnapshot(input, limit, m_fileSystem);
}

} // namespace taskrack
