#pragma once

// The source of Claude tasks: desktop-application session manifests and, for Claude Code users
// without the desktop application, sessions found straight in the transcript folders. It folds
// transcript observations, hook evidence and Claude Code's live session registry into one
// status per session, keeps that evidence across launches, and publishes changes on three
// streams. An actor: all of its state lives on its own thread.

#include "core/boundedchannel.h"
#include "core/clock.h"
#include "core/coalescer.h"
#include "core/livethreadsource.h"
#include "core/serialexecutor.h"
#include "platform/processexitwatch.h"
#include "sources/claude/claudehookevent.h"
#include "sources/claude/claudelivesessionregistry.h"
#include "sources/claude/claudesessiondirectorywatcher.h"
#include "sources/claude/claudesessionevidence.h"
#include "sources/claude/claudesessionmanifest.h"
#include "sources/claude/claudetranscriptdiscovery.h"
#include "sources/claude/claudetranscripttailreader.h"

#include <QMap>
#include <memory>
#include <stop_token>
#include <variant>

namespace taskrack {

struct ClaudeSourcePaths
{
    QString home;                 // for project identities
    QString sessionRoot;          // desktop manifests
    QString transcriptRoot;       // Claude Code's "projects" folder
    QString liveSessionsPath;     // Claude Code's "sessions" folder
    QString observedStatusesPath; // Taskrack's own evidence file

    // `home/.config/Claude/claude-code-sessions`, `home/.claude/projects`, `home/.claude/sessions`
    // and `dataHome/taskrack/claude-observed-statuses-v2.json`. An empty dataHome means
    // $XDG_DATA_HOME, else home/.local/share.
    static ClaudeSourcePaths forHome(const QString &home, const QString &dataHome = {});
};

// What one hook event asks of a session, already decided from the event's name: the hook
// layer maps its events onto this, the source resolves the session and applies it.
struct ClaudeSessionSignal
{
    enum class InputRequest { leave, set, clear };

    QString sessionId;
    std::optional<QString> transcriptPath;
    InputRequest inputRequest = InputRequest::leave;
    // Present: refresh the background-task snapshot with this count (negative counts as 0).
    std::optional<qint64> activeBackgroundTaskCount;

    bool operator==(const ClaudeSessionSignal &) const = default;
};

struct ClaudeCachedSession
{
    ClaudeSessionFileFingerprint fingerprint;
    ClaudeDesktopSessionManifest manifest;
};

class ClaudeDesktopThreadSource : public LiveThreadSource
{
public:
    struct Configuration
    {
        ClaudeSourcePaths paths;
        Clock *clock = nullptr; // the system clock when absent
        // Both must be given: the watchers' file watches, and what hears Claude Code
        // processes end.
        ClaudeSessionDirectoryWatcher::FileWatchFactory fileWatchFactory;
        ClaudeLiveSessionRegistry::ProcessProbe processProbe;
        std::function<std::unique_ptr<ProcessExitWatch>()> processExitWatchFactory;
        bool discoversTranscriptSessions = true;
        // Every read of Claude's files goes through it; must be given.
        const FileSystem *fileSystem = nullptr;
    };

    static constexpr std::chrono::seconds safetyNetInterval{90};
    static constexpr std::chrono::milliseconds transcriptCoalescing{150};
    static constexpr int pendingSignalLimit = 64;

    explicit ClaudeDesktopThreadSource(Configuration configuration);
    ~ClaudeDesktopThreadSource() override;

    QString sourceName() const override { return QStringLiteral("Claude"); }
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;
    RackProvider provider() const override { return RackProvider::claudeDesktop; }

    void start() override { startMonitoring(); }
    // Nothing of Claude's runs as a child of ours: a sleep keeps everything as it is.
    QCoro::Task<void> sleep() override;
    QCoro::Task<void> wake() override;
    void reconcileLocal() override { reconcileNow(); }

    // Starts both watchers, the initial reconciliation and the 90-second safety net; also the
    // way out of suspension.
    QCoro::Task<void> startMonitoring();
    // Stops work and keeps the data.
    QCoro::Task<void> suspend();
    // Final: finishes all three streams.
    QCoro::Task<void> shutdown() override;
    // A reconciliation now, as after waking from sleep.
    QCoro::Task<void> reconcileNow();

    // One hook event with the moment it arrived. Sub-agent noise is dropped here; everything
    // else becomes a signal.
    QCoro::Task<void> receive(ClaudeHookEvent event, QDateTime receivedAt);
    // Applies a signal to its session, or keeps it until the session is known.
    QCoro::Task<void> receiveSignal(ClaudeSessionSignal signal, QDateTime receivedAt);
    // What a hook event asks, or nothing when it is to be ignored.
    static std::optional<ClaudeSessionSignal> signalOf(const ClaudeHookEvent &event);

    // Live status, newest 64 kept.
    ChannelPtr<RackStatusUpdate> statusUpdates() const override { return m_statusUpdates; }
    // "Fetch the list again", newest 1 kept.
    ChannelPtr<std::monostate> threadListInvalidations() const override { return m_invalidations; }
    // Ready-made snapshots with limit 400, newest 1 kept.
    ChannelPtr<ThreadCollection> snapshots() const override { return m_snapshots; }

    // For tests and benchmarks: what the transcript reader has read so far.
    const ClaudeReadCounters &transcriptReadCounters() const { return m_reader.counters(); }
    const ClaudeReadCounters &manifestReadCounters() const { return m_manifestCounters; }

private:
    struct PendingSignal
    {
        ClaudeSessionSignal signal;
        QDateTime receivedAt;
    };

    // Runs on the actor.
    QCoro::Task<void> reconcile(bool retrying, quint64 generation);
    QCoro::Task<std::optional<ClaudeDesktopSessionManifest>>
    loadManifest(QString path, bool retrying, quint64 generation);
    void runTranscriptRefresh();
    QCoro::Task<void> runWatchLoop(ChannelPtr<std::monostate> channel,
                                   std::function<void()> onChange, quint64 generation,
                                   std::stop_token stop);
    QCoro::Task<void> runSafetyNet(quint64 generation, std::stop_token stop);
    QStringList listManifests() const;
    std::optional<ClaudeSessionFileFingerprint> manifestFingerprint(const QString &path) const;
    bool isCurrent(quint64 generation) const;
    bool isUpToDate() const;
    void rebuildIndexes();
    bool refreshDiscovery(const QDateTime &now);
    // `afterDiscovery`: the folders were just listed by discovery, whose index is reused.
    void refreshTranscriptObservations(const QDateTime &now, bool afterDiscovery = false);
    void refreshLiveRegistry();
    void noteProcessExit(qint64 pid);
    bool applySignal(const ClaudeSessionSignal &signal, const QDateTime &receivedAt);
    void replayPendingSignals();
    void persist();
    bool publishStatusChanges();
    void announceListChange();
    QList<ClaudeDesktopSessionManifest> allSessions() const;
    ClaudeSessionFacts factsOf(const ClaudeDesktopSessionManifest &manifest) const;
    ThreadCollection buildSnapshot(int limit) const;
    void startOnActor();
    void stopOnActor();
    void loadPersistedEvidence();

    const ClaudeSourcePaths m_paths;
    Clock &m_clock;
    const bool m_discoversTranscriptSessions;
    ClaudeSessionDirectoryWatcher::FileWatchFactory m_fileWatchFactory;
    const FileSystem &m_fileSystem;
    std::function<std::unique_ptr<ProcessExitWatch>()> m_processExitWatchFactory;
    mutable ClaudeTranscriptTailReader m_reader;
    ClaudeTranscriptDiscovery m_discovery;
    ClaudeLiveSessionRegistry m_registry;
    ClaudeReadCounters m_manifestCounters;
    ChannelPtr<RackStatusUpdate> m_statusUpdates = BoundedChannel<RackStatusUpdate>::create(64);
    ChannelPtr<std::monostate> m_invalidations = BoundedChannel<std::monostate>::create(1);
    ChannelPtr<ThreadCollection> m_snapshots = BoundedChannel<ThreadCollection>::create(1);

    // Actor state.
    std::unique_ptr<ClaudeSessionDirectoryWatcher> m_watcher;
    std::unique_ptr<ClaudeSessionDirectoryWatcher> m_transcriptWatcher;
    // Transcript re-reads: the first at once, a stream of them once per window.
    std::unique_ptr<Coalescer> m_transcriptRefresh;
    std::unique_ptr<ClaudeSessionDirectoryWatcher> m_liveSessionsWatcher;
    std::unique_ptr<ProcessExitWatch> m_processExits;
    QMap<QString, ClaudeCachedSession> m_cachedSessions; // by manifest path, in list order
    QHash<QString, ClaudeDiscoveredSession> m_discovered;
    QHash<QString, QString> m_localSessionPathByID;
    QHash<QString, QString> m_localSessionIDByAlias;
    ClaudeSessionEvidence m_evidence;
    QHash<QString, ClaudeLiveSessionEntry> m_liveEntries;
    // Sessions whose running process's entry vanished, and processes heard to end that the
    // registry may still name: both mean the process is gone.
    QSet<QString> m_endedSessions;
    // Sessions whose running process we saw end, and when we learned it.
    QHash<QString, QDateTime> m_processEndedAt;
    QSet<qint64> m_exitedPids;
    QHash<QString, RackStatusUpdate> m_lastPublishedStatus;
    QList<PendingSignal> m_pendingSignals;
    QByteArray m_lastPersisted;
    // What m_lastPersisted holds, compared before anything is encoded.
    ClaudeSessionEvidence m_persistedEvidence;
    std::stop_source m_monitoringStop;
    bool m_isMonitoring = false;
    bool m_isReconciling = false;
    bool m_needsFollowUpReconcile = false;
    bool m_hasCompletedInitialReconciliation = false;
    // Set by every watcher notice and whenever watching stops; cleared by the pass that reads
    // what the notice was about.
    bool m_manifestsMayHaveChanged = true;
    bool m_transcriptsMayHaveChanged = true;
    quint64 m_lifecycleGeneration = 0;
    bool m_isSuspended = false;
    bool m_isShutdown = false;
    std::shared_ptr<int> m_lifetime = std::make_shared<int>(0);

    // Declared last: its thread stops before anything above is destroyed.
    SerialExecutor m_executor{QStringLiteral("claude-source")};
};

} // namespace taskrack
