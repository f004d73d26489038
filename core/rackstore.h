#pragma once

// The one observable object the presentation reads. It owns the merged list of threads and
// keeps three kinds of input apart: whole snapshots from a refresh (possibly seconds old),
// per-provider snapshots pushed by watchers, and single live status updates arriving between
// them. Everything here runs on the main thread; the only suspension points are the source's
// fetch and the debounce sleep.

#include "core/rackcompletionledger.h"
#include "core/racknavigation.h"
#include "core/rackprojectgroups.h"
#include "core/rackranking.h"
#include "core/threadsource.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>

namespace taskrack {

class Clock;
class Preferences;

enum class RackDataState { loading, live, cached, empty, failed };
QString rawValue(RackDataState state);

struct SearchRestoreState
{
    std::optional<QString> selectedThreadID;
    std::optional<QString> selectedProjectID;
    int currentPage = 0;
};

struct ThreadOpenRequest
{
    QUuid id;
    RackThread thread;
    std::optional<QDateTime> completionAt;
};

struct PendingUpdate
{
    RackStatusUpdate update;
    quint64 revision = 0;
    bool hasBeenDiscovered = false;
};

class RackStore : public QObject
{
    Q_OBJECT

public:
    static constexpr int fetchLimit = 400;
    static constexpr std::chrono::milliseconds refreshDebounce{180};
    static constexpr double stalenessAge = 2.0;
    static constexpr int pendingCap = 800;
    // How many recently opened threads are remembered.
    static constexpr int openedThreadLimit = 50;

    RackStore(ThreadSource &source, ThreadOpening *opener, Preferences &preferences, Clock &clock,
              QObject *parent = nullptr);
    ~RackStore() override;

    // --- Data paths -----------------------------------------------------------------------
    QCoro::Task<void> refresh();
    // At once after a quiet spell, otherwise when `delay` has passed since the last fetch began.
    void scheduleRefresh(std::chrono::milliseconds delay = refreshDebounce);
    void refreshIfStale(double olderThanSeconds = stalenessAge);
    void applyStatusUpdate(const RackStatusUpdate &update);
    // A Codex update names the provider's own identifier or the store's; the caller has already
    // mapped the provider status.
    void applyCodexStatusUpdate(const QString &threadID, RackStatus status,
                                std::optional<QDateTime> updatedAt,
                                std::optional<QDateTime> recencyAt);
    void applyProviderSnapshot(const ThreadCollection &collection, RackProvider provider);
    // Cancels the fetch in flight and any scheduled refresh; used at shut-down.
    void cancelRefreshes();

    // --- Presentation -----------------------------------------------------------------------
    void prepareForPresentation();
    void endPresentation();
    void setOrganizationMode(RackOrganizationMode mode);
    void setDefaultOrganizationMode(RackOrganizationMode mode);

    // --- Search and navigation ------------------------------------------------------------
    void setSearchQuery(const QString &query);
    void activateSearch();
    void dismissSearch();
    void requestSearchBlur();
    bool isSearchActive() const;
    // Sets isRankingFrozen while presenting, so the order holds from the first move on.
    void beginNavigation();
    void step(bool forward);
    bool firstGestureStep();
    void movePage(bool forward);
    bool moveProject(bool forward);
    void selectProject(const QString &projectID);
    void selectSlot(int slot);
    void moveToFirst();
    void moveToLast();
    // Left and right: always the list, within the page under the page lock, whatever the mode.
    void moveHorizontal(bool forward);
    void cycleOrganizationMode();
    bool hasNewTaskStop() const;
    QList<RackStop> stops() const;
    // A thread of rankedThreads is selected and the new-task key is not.
    bool hasSelection() const;
    std::optional<RackThread> selectedThread() const;
    // Whether a step would select anything; the gesture asks before it repeats.
    bool stepWouldSelect() const;
    // Whether the panel may be shown now; true unless a gate was installed.
    bool mayPresent() const { return !m_presentationGate || m_presentationGate(); }
    void setPresentationGate(std::function<bool()> gate) { m_presentationGate = std::move(gate); }

    // --- Reading and opening ----------------------------------------------------------------
    // Opens a thread through the opener; only the newest request may report back. True when
    // this request was the newest and the provider took it.
    QCoro::Task<bool> open(RackThread thread);
    // Forgets the request in flight, so its answer is ignored.
    void clearPendingOpen();
    void clearOpenError();
    // A failure to open something the rack offered besides a task (a provider's application):
    // shown like a failed open, until the rack hides.
    void showOpenError(std::exception_ptr error);
    // Marks finished threads as read; saves the ledger once. Returns how many changed.
    int markRead(const QList<RackThread> &threads);
    int markAllRead();
    const std::optional<QUuid> &pendingOpenID() const { return m_pendingOpenID; }

    // --- Observable state ------------------------------------------------------------------
    const QList<RackThread> &allThreads() const { return m_allThreads; }
    const QList<RackThread> &rankedThreads() const { return m_rankedThreads; }
    const QList<RackThread> &flatRankedThreads() const { return m_flatRankedThreads; }
    const QList<RackThread> &historyThreads() const { return m_historyThreads; }
    const QList<RackThread> &visibleThreads() const { return m_visibleThreads; }
    const QList<RackProjectGroup> &projectGroups() const { return m_projectGroups; }
    const std::optional<QString> &selectedThreadID() const { return m_selectedThreadID; }
    const std::optional<QString> &selectedProjectID() const { return m_selectedProjectID; }
    int currentPage() const { return m_currentPage; }
    int pageSize() const;
    int pageCount() const;
    RackDataState dataState() const { return m_dataState; }
    const QList<ThreadSourceFailure> &sourceFailures() const { return m_sourceFailures; }
    const QString &sourceDescription() const { return m_sourceDescription; }
    bool isRefreshing() const { return m_isRefreshing; }
    bool isPresenting() const { return m_isPresenting; }
    bool isLive() const { return m_isLive; }
    bool isRankingFrozen() const { return m_isRankingFrozen; }
    bool isNewTaskSelected() const { return m_isNewTaskSelected; }
    const std::optional<QDateTime> &lastSuccessfulRefresh() const
    {
        return m_lastSuccessfulRefresh;
    }
    const std::optional<QString> &errorMessage() const { return m_errorMessage; }
    bool hasOpenError() const { return m_hasOpenError; }
    const std::optional<QString> &globalShortcutError() const { return m_globalShortcutError; }
    RackOrganizationMode organizationMode() const { return m_organizationMode; }
    RackOrganizationMode defaultOrganizationMode() const { return m_defaultOrganizationMode; }
    bool cycleCurrentPageOnly() const { return m_cycleCurrentPageOnly; }
    bool firstGestureCycleMovesBackward() const { return m_firstGestureCycleMovesBackward; }
    const QStringList &openedThreadIDs() const { return m_openedThreadIDs; }
    quint64 revision() const { return m_revision; }
    const QHash<QString, PendingUpdate> &pendingUpdates() const { return m_pendingUpdates; }
    const RackCompletionLedger &completionLedger() const { return m_completionLedger; }
    const QString &searchQuery() const { return m_searchQuery; }
    bool isSearchPresented() const { return m_isSearchPresented; }
    int searchFocusRequest() const { return m_searchFocusRequest; }
    int searchBlurRequest() const { return m_searchBlurRequest; }
    const std::optional<SearchRestoreState> &searchRestoreState() const
    {
        return m_searchRestoreState;
    }

    void setGlobalShortcutError(std::optional<QString> error);
    void setCycleCurrentPageOnly(bool on);
    void setFirstGestureCycleMovesBackward(bool on);

signals:
    void allThreadsChanged();
    void projectGroupsChanged();
    void searchQueryChanged();
    void isSearchPresentedChanged();
    void searchFocusRequestChanged();
    void searchBlurRequestChanged();
    void pendingOpenIDChanged();
    void hasOpenErrorChanged();
    void openedThreadIDsChanged();
    void rankedThreadsChanged();
    void flatRankedThreadsChanged();
    void visibleThreadsChanged();
    void selectedThreadIDChanged();
    void selectedProjectIDChanged();
    void currentPageChanged();
    void dataStateChanged();
    void sourceFailuresChanged();
    void sourceDescriptionChanged();
    void isRefreshingChanged();
    void isPresentingChanged();
    void isLiveChanged();
    void isNewTaskSelectedChanged();
    void lastSuccessfulRefreshChanged();
    void errorMessageChanged();
    void globalShortcutErrorChanged();
    void organizationModeChanged();
    void defaultOrganizationModeChanged();
    void cycleCurrentPageOnlyChanged();
    void firstGestureCycleMovesBackwardChanged();

private:
    // Stores `value` and notifies only when it differs, so nothing re-renders for an equal
    // value.
    template <typename T> void assign(T &field, T value, void (RackStore::*notify)())
    {
        if (field == value)
            return;
        field = std::move(value);
        emit(this->*notify)();
    }

    QCoro::Task<void> runScheduledRefresh(std::chrono::milliseconds delay, std::stop_token stop);
    void mergeRefresh(const ThreadCollection &collection, quint64 snapshotRevision);
    void failRefresh(const QString &description);
    RackThread applyPending(const RackThread &thread, quint64 revision);
    QList<RackThread> mergePendingAndLedger(const QList<RackThread> &threads, quint64 revision);
    qsizetype indexOfThread(const QString &id) const;
    void rerankAfterDataChange();
    void rerank(bool force = false, bool keepPosition = false);
    void showPage(int page, bool keepSelection);
    void rebuildProjectGroups(const QList<RackThread> &sorted, bool frozen);
    QList<RackThread> rankedForMode() const;
    QList<RackThread> searchResults() const;
    void endSearch();
    void selectThread(const std::optional<QString> &threadID);
    void setSelectedProjectID(const std::optional<QString> &projectID, bool persist);
    void walkList(bool forward);
    void walkStops(bool forward);
    RackSelection selection() const;
    void goToStop(const RackStop &stop);
    void pageToSelection();
    void acknowledgeOpened(const ThreadOpenRequest &request);
    void rememberOpened(const QString &threadID);
    std::optional<RackProvider> staleProviderFor(const ThreadSourceFailure &failure,
                                                 const QSet<RackProvider> &stale) const;

    ThreadSource &m_source;
    ThreadOpening *m_opener;
    Preferences &m_preferences;
    Clock &m_clock;

    RackCompletionLedger m_completionLedger;
    std::shared_ptr<std::stop_source> m_scheduledRefresh;
    std::optional<double> m_scheduledRefreshDeadline;
    std::optional<double> m_lastRefreshStartedAt;
    std::stop_source m_refreshStop;
    bool m_refreshRequestedWhileInFlight = false;
    quint64 m_revision = 0;
    QHash<RackProvider, quint64> m_providerRevisions;
    QHash<QString, PendingUpdate> m_pendingUpdates;
    QStringList m_openedThreadIDs;
    bool m_isRankingFrozen = false;
    bool m_cycleCurrentPageOnly = false;
    bool m_firstGestureCycleMovesBackward = false;

    std::optional<SearchRestoreState> m_searchRestoreState;
    std::optional<QUuid> m_pendingOpenID;
    QList<RackProjectGroup> m_projectGroups;
    bool m_isSearchPresented = false;
    int m_searchFocusRequest = 0;
    int m_searchBlurRequest = 0;
    QList<RackThread> m_allThreads;
    QList<RackThread> m_rankedThreads;
    QList<RackThread> m_flatRankedThreads;
    QList<RackThread> m_historyThreads;
    QList<RackThread> m_visibleThreads;
    std::optional<QString> m_selectedThreadID;
    std::optional<QString> m_selectedProjectID;
    int m_currentPage = 0;
    bool m_isRefreshing = false;
    bool m_isPresenting = false;
    bool m_isLive = false;
    RackDataState m_dataState = RackDataState::loading;
    QList<ThreadSourceFailure> m_sourceFailures;
    QString m_sourceDescription = QStringLiteral("Connecting");
    std::optional<QString> m_globalShortcutError;
    std::optional<QDateTime> m_lastSuccessfulRefresh;
    std::optional<QString> m_errorMessage;
    bool m_hasOpenError = false;
    QString m_searchQuery;
    RackOrganizationMode m_organizationMode = RackOrganizationMode::activity;
    RackOrganizationMode m_defaultOrganizationMode = RackOrganizationMode::activity;
    bool m_isNewTaskSelected = false;
    std::function<bool()> m_presentationGate;
};

} // namespace taskrack
