#include "core/rackstore.h"
#include "core/rackstore_p.h"

#include "core/clock.h"
#include "core/referencedate.h"
#include "core/taskracklog.h"
#include "platform/preferences.h"

#include <QSet>
#include <cmath>

namespace taskrack {

namespace {

const QDateTime &orPast(const std::optional<QDateTime> &date)
{
    return date ? *date : distantPast();
}

// Joins two lists and keeps the first of each id.
QList<RackThread> joinUnique(const QList<RackThread> &first, const QList<RackThread> &second)
{
    QList<RackThread> joined;
    joined.reserve(first.size() + second.size());
    QSet<QString> seen;
    seen.reserve(first.size() + second.size());
    for (const QList<RackThread> *list : {&first, &second}) {
        for (const RackThread &thread : *list) {
            if (!seen.contains(thread.id)) {
                seen.insert(thread.id);
                joined.append(thread);
            }
        }
    }
    return joined;
}

QList<ThreadSourceFailure> withoutDuplicates(const QList<ThreadSourceFailure> &failures)
{
    QList<ThreadSourceFailure> result;
    QSet<ThreadSourceFailure> seen;
    for (const ThreadSourceFailure &failure : failures) {
        if (!seen.contains(failure)) {
            seen.insert(failure);
            result.append(failure);
        }
    }
    return result;
}

// A failure speaks for a provider when it names it, or names no provider but carries the
// provider's own source name.
bool failureBelongsTo(const ThreadSourceFailure &failure, RackProvider provider)
{
    if (failure.provider)
        return *failure.provider == provider;
    return failure.sourceName == displayName(provider);
}

} // namespace

QString rawValue(RackDataState state)
{
    switch (state) {
    case RackDataState::loading:
        return QStringLiteral("loading");
    case RackDataState::live:
        return QStringLiteral("live");
    case RackDataState::cached:
        return QStringLiteral("cached");
    case RackDataState::empty:
        return QStringLiteral("empty");
    case RackDataState::failed:
        return QStringLiteral("failed");
    }
    return {};
}

RackStore::RackStore(ThreadSource &source, ThreadOpening *opener, Preferences &preferences,
                     Clock &clock, QObject *parent)
    : QObject(parent), m_source(source), m_opener(opener), m_preferences(preferences),
      m_clock(clock), m_completionLedger(&preferences)
{
    m_openedThreadIDs = preferences.stringList(rackstorekeys::recentlyOpened);
    m_cycleCurrentPageOnly = preferences.boolValue(rackstorekeys::cycleCurrentPageOnly);
    m_firstGestureCycleMovesBackward = preferences.boolValue(rackstorekeys::selectPreviousOnReveal);
    m_selectedThreadID = preferences.string(rackstorekeys::lastSelected);
    m_selectedProjectID = preferences.string(rackstorekeys::selectedProject);
    if (auto raw = preferences.string(rackstorekeys::defaultLayout)) {
        if (auto mode = organizationModeFromRaw(*raw)) {
            m_defaultOrganizationMode = *mode;
            m_organizationMode = *mode;
        }
    }
    const qsizetype before = m_completionLedger.receipts().size();
    m_completionLedger.prune(clock.now());
    if (m_completionLedger.receipts().size() != before)
        m_completionLedger.save();
}

RackStore::~RackStore()
{
    cancelRefreshes();
}

namespace {

// A known condition of the person's set-up (a provider's CLI not installed) is no reason to
// call the picture cached.
bool hasUnexpectedFailure(const QList<ThreadSourceFailure> &failures)
{
    return std::any_of(failures.begin(), failures.end(), [](const ThreadSourceFailure &failure) {
        return !failure.isExpectedLimitation;
    });
}

} // namespace

// --- Scheduling -----------------------------------------------------------------------------

void RackStore::scheduleRefresh(std::chrono::milliseconds delay)
{
    if (m_isRefreshing) {
        m_refreshRequestedWhileInFlight = true;
        return;
    }
    // The first request after a quiet spell fetches at once; requests within `delay` of the
    // last fetch's start fold into one fetch when that window ends.
    const double now = m_clock.uptime();
    const double deadline =
        m_lastRefreshStartedAt
            ? std::max(now, *m_lastRefreshStartedAt + double(delay.count()) / 1000.0)
            : now;
    // A sooner refresh already on its way is never pushed back by a later request.
    if (m_scheduledRefreshDeadline && *m_scheduledRefreshDeadline <= deadline)
        return;
    if (m_scheduledRefresh)
        m_scheduledRefresh->request_stop();
    m_scheduledRefreshDeadline = deadline;
    m_scheduledRefresh = std::make_shared<std::stop_source>();
    runScheduledRefresh(
        std::chrono::milliseconds(qint64(std::ceil((deadline - now) * 1000.0 - 1e-6))),
        m_scheduledRefresh->get_token());
}

QCoro::Task<void> RackStore::runScheduledRefresh(std::chrono::milliseconds delay,
                                                 std::stop_token stop)
{
    QPointer<RackStore> self(this);
    Clock &clock = m_clock;
    co_await clock.sleep(delay);
    if (!self || stop.stop_requested())
        co_return;
    m_scheduledRefresh.reset();
    m_scheduledRefreshDeadline.reset();
    co_await refresh();
}

void RackStore::refreshIfStale(double olderThanSeconds)
{
    if (m_isRefreshing)
        return;
    if (m_lastSuccessfulRefresh &&
        m_lastSuccessfulRefresh->msecsTo(m_clock.now()) < qint64(olderThanSeconds * 1000.0))
        return;
    scheduleRefresh(std::chrono::milliseconds(0));
}

void RackStore::cancelRefreshes()
{
    if (m_scheduledRefresh)
        m_scheduledRefresh->request_stop();
    m_scheduledRefresh.reset();
    m_scheduledRefreshDeadline.reset();
    m_refreshStop.request_stop();
}

// --- Refresh --------------------------------------------------------------------------------

QCoro::Task<void> RackStore::refresh()
{
    if (m_isRefreshing) {
        m_refreshRequestedWhileInFlight = true;
        co_return;
    }
    if (m_scheduledRefresh)
        m_scheduledRefresh->request_stop();
    m_scheduledRefresh.reset();
    m_scheduledRefreshDeadline.reset();
    assign(m_isRefreshing, true, &RackStore::isRefreshingChanged);
    m_lastRefreshStartedAt = m_clock.uptime();

    // The revision is the only clock that orders live events against this fetch: read it
    // before the await, compare after.
    const quint64 snapshotRevision = m_revision;
    if (!m_lastSuccessfulRefresh && m_allThreads.isEmpty())
        assign(m_dataState, RackDataState::loading, &RackStore::dataStateChanged);

    m_refreshStop = std::stop_source();
    const std::stop_token stop = m_refreshStop.get_token();
    QPointer<RackStore> self(this);
    std::optional<ThreadCollection> collection;
    std::exception_ptr error;
    try {
        collection = co_await m_source.fetchThreads(fetchLimit, stop);
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;

    if (collection && !stop.stop_requested())
        mergeRefresh(*collection, snapshotRevision);
    else if (error && !isCancellation(error) && !stop.stop_requested())
        failRefresh(describeException(error));

    assign(m_isRefreshing, false, &RackStore::isRefreshingChanged);
    if (m_refreshRequestedWhileInFlight) {
        m_refreshRequestedWhileInFlight = false;
        scheduleRefresh(refreshDebounce);
    }
}

void RackStore::mergeRefresh(const ThreadCollection &collection, quint64 snapshotRevision)
{
    // Providers whose pushed snapshot landed while the fetch ran are newer than the fetch.
    QSet<RackProvider> stale;
    for (auto it = m_providerRevisions.constBegin(); it != m_providerRevisions.constEnd(); ++it) {
        if (it.value() > snapshotRevision)
            stale.insert(it.key());
    }

    QList<RackThread> fetched;
    QList<RackThread> kept;
    for (const RackThread &thread : collection.threads) {
        if (!stale.contains(thread.provider))
            fetched.append(thread);
    }
    for (const RackThread &thread : std::as_const(m_allThreads)) {
        if (stale.contains(thread.provider))
            kept.append(thread);
    }
    assign(m_allThreads, mergePendingAndLedger(joinUnique(fetched, kept), snapshotRevision),
           &RackStore::allThreadsChanged);
    assign(m_sourceDescription, collection.sourceDescription, &RackStore::sourceDescriptionChanged);
    assign(m_isLive, collection.isLive, &RackStore::isLiveChanged);

    QList<ThreadSourceFailure> preserved;
    QSet<QString> preservedKeys;
    for (const ThreadSourceFailure &failure : std::as_const(m_sourceFailures)) {
        for (RackProvider provider : stale) {
            if (failureBelongsTo(failure, provider)) {
                preserved.append(failure);
                preservedKeys.insert(failure.mergeKey());
                break;
            }
        }
    }
    QList<ThreadSourceFailure> failures;
    for (const ThreadSourceFailure &failure : collection.sourceFailures) {
        if (!preservedKeys.contains(failure.mergeKey()))
            failures.append(failure);
    }
    failures.append(preserved);
    assign(m_sourceFailures, withoutDuplicates(failures), &RackStore::sourceFailuresChanged);

    if (!m_hasOpenError)
        assign(m_errorMessage, std::optional<QString>(), &RackStore::errorMessageChanged);
    assign(m_lastSuccessfulRefresh, std::optional<QDateTime>(m_clock.now()),
           &RackStore::lastSuccessfulRefreshChanged);
    qCInfo(lcStore, "Task refresh succeeded: %ld tasks, %ld provider failures",
           long(collection.threads.size()), long(collection.sourceFailures.size()));

    RackDataState state = RackDataState::cached;
    if (collection.threads.isEmpty())
        state = RackDataState::empty;
    else if (m_isLive && !hasUnexpectedFailure(m_sourceFailures))
        state = RackDataState::live;
    assign(m_dataState, state, &RackStore::dataStateChanged);

    rerankAfterDataChange();
}

void RackStore::failRefresh(const QString &description)
{
    qCCritical(lcStore, "Task refresh failed; content omitted");
    assign(m_errorMessage, std::optional<QString>(description), &RackStore::errorMessageChanged);
    assign(m_isLive, false, &RackStore::isLiveChanged);
    const bool hasThreads = !m_allThreads.isEmpty();
    ThreadSourceFailure failure;
    failure.sourceName = m_source.sourceName();
    failure.state =
        hasThreads ? ThreadSourceFailureState::degraded : ThreadSourceFailureState::unavailable;
    failure.isUsingCachedSnapshot = hasThreads;
    assign(m_sourceFailures, QList<ThreadSourceFailure>{failure},
           &RackStore::sourceFailuresChanged);
    if (hasThreads) {
        assign(m_dataState, RackDataState::cached, &RackStore::dataStateChanged);
    } else {
        assign(m_sourceDescription, QStringLiteral("Unavailable"),
               &RackStore::sourceDescriptionChanged);
        assign(m_dataState, RackDataState::failed, &RackStore::dataStateChanged);
    }
}

// --- Pushed snapshots and live updates ------------------------------------------------------

void RackStore::applyProviderSnapshot(const ThreadCollection &collection, RackProvider provider)
{
    ++m_revision;
    m_providerRevisions.insert(provider, m_revision);

    QList<RackThread> others;
    QList<RackThread> incoming;
    for (const RackThread &thread : std::as_const(m_allThreads)) {
        if (thread.provider != provider)
            others.append(thread);
    }
    for (const RackThread &thread : collection.threads) {
        if (thread.provider == provider)
            incoming.append(thread);
    }
    assign(m_allThreads, mergePendingAndLedger(joinUnique(others, incoming), m_revision),
           &RackStore::allThreadsChanged);

    QList<ThreadSourceFailure> failures;
    for (const ThreadSourceFailure &failure : std::as_const(m_sourceFailures)) {
        if (!failureBelongsTo(failure, provider))
            failures.append(failure);
    }
    failures.append(collection.sourceFailures);
    assign(m_sourceFailures, failures, &RackStore::sourceFailuresChanged);

    // A pushed snapshot speaks for one provider only, so it names the whole only before the
    // first full refresh.
    if (!m_lastSuccessfulRefresh)
        assign(m_sourceDescription, collection.sourceDescription,
               &RackStore::sourceDescriptionChanged);

    RackDataState state = RackDataState::cached;
    if (m_allThreads.isEmpty())
        state = RackDataState::empty;
    else if (m_isLive && !hasUnexpectedFailure(m_sourceFailures))
        state = RackDataState::live;
    assign(m_dataState, state, &RackStore::dataStateChanged);

    rerankAfterDataChange();
}

void RackStore::applyCodexStatusUpdate(const QString &threadID, RackStatus status,
                                       std::optional<QDateTime> updatedAt,
                                       std::optional<QDateTime> recencyAt)
{
    const QString id = indexOfThread(threadID) >= 0 ? threadID : codexThreadPrefix + threadID;
    applyStatusUpdate(RackStatusUpdate{id, status, std::move(updatedAt), std::move(recencyAt)});
}

void RackStore::applyStatusUpdate(const RackStatusUpdate &update)
{
    const qsizetype index = indexOfThread(update.threadID);
    const bool known = index >= 0;
    const RackThread *current = known ? &m_allThreads.at(index) : nullptr;

    if (update.updatedAt && known && *update.updatedAt < current->updatedAt &&
        !(orPast(update.recencyAt) > current->recencyAt))
        return;
    auto pending = m_pendingUpdates.constFind(update.threadID);
    if (pending != m_pendingUpdates.constEnd() && pending->update.updatedAt && update.updatedAt &&
        *update.updatedAt < *pending->update.updatedAt)
        return;

    ++m_revision;
    m_pendingUpdates.insert(update.threadID, PendingUpdate{update, m_revision, false});
    if (m_pendingUpdates.size() > pendingCap) {
        // An entry survives the cap by being recent, not by being useful.
        auto oldest = m_pendingUpdates.begin();
        for (auto it = m_pendingUpdates.begin(); it != m_pendingUpdates.end(); ++it) {
            if (it->revision < oldest->revision)
                oldest = it;
        }
        m_pendingUpdates.erase(oldest);
    }

    if (!known) {
        // Held in pendingUpdates until a snapshot shows the thread.
        scheduleRefresh(refreshDebounce);
        return;
    }

    bool ledgerChanged = false;
    const RackStatus effective = m_completionLedger.observe(
        update.threadID, update.status, update.updatedAt.value_or(m_clock.now()), ledgerChanged);
    if (ledgerChanged)
        m_completionLedger.save();
    if (effective == current->status && !update.updatedAt && !update.recencyAt)
        return;

    QList<RackThread> threads = m_allThreads;
    RackThread &thread = threads[index];
    thread.status = effective;
    if (update.updatedAt)
        thread.updatedAt = *update.updatedAt;
    if (update.recencyAt)
        thread.recencyAt = *update.recencyAt;
    assign(m_allThreads, std::move(threads), &RackStore::allThreadsChanged);
    rerankAfterDataChange();
}

RackThread RackStore::applyPending(const RackThread &thread, quint64 revision)
{
    auto it = m_pendingUpdates.find(thread.id);
    if (it == m_pendingUpdates.end())
        return thread;
    const RackStatusUpdate &update = it->update;

    if (update.updatedAt && *update.updatedAt < thread.recencyAt &&
        orPast(update.recencyAt) < thread.recencyAt) {
        m_pendingUpdates.erase(it);
        return thread;
    }
    const bool stillWanted =
        revision < it->revision || (update.updatedAt && *update.updatedAt >= thread.updatedAt);
    if (!stillWanted && it->hasBeenDiscovered) {
        m_pendingUpdates.erase(it);
        return thread;
    }
    // Never discovered: applied once, however old, so an update that arrived before its
    // thread was first listed is not lost.
    it->hasBeenDiscovered = true;
    RackThread updated = thread;
    updated.status = update.status;
    if (update.updatedAt)
        updated.updatedAt = *update.updatedAt;
    if (update.recencyAt)
        updated.recencyAt = std::max(thread.recencyAt, *update.recencyAt);
    return updated;
}

QList<RackThread> RackStore::mergePendingAndLedger(const QList<RackThread> &threads,
                                                   quint64 revision)
{
    QList<RackThread> merged;
    merged.reserve(threads.size());
    for (const RackThread &thread : threads)
        merged.append(applyPending(thread, revision));
    return m_completionLedger.observe(merged);
}

qsizetype RackStore::indexOfThread(const QString &id) const
{
    for (qsizetype i = 0; i < m_allThreads.size(); ++i) {
        if (m_allThreads.at(i).id == id)
            return i;
    }
    return -1;
}

// --- Ranking --------------------------------------------------------------------------------

void RackStore::rerankAfterDataChange()
{
    const bool frozen = m_isPresenting && m_isRankingFrozen;
    rerank(false, frozen);
}

int RackStore::pageSize() const
{
    return m_organizationMode == RackOrganizationMode::project && m_searchQuery.trimmed().isEmpty()
               ? RackPaging::projectPageSize
               : RackPaging::activityPageSize;
}

int RackStore::pageCount() const
{
    return RackPaging::pageCount(m_rankedThreads.size(), pageSize());
}

void RackStore::rerank(bool force, bool keepPosition)
{
    const std::optional<QString> remembered = m_selectedThreadID;

    const QList<RackThread> sorted = sortedInThreadOrder(m_allThreads);
    const QList<RackThread> fresh = activityList(sorted);
    const bool frozen = m_isPresenting && m_isRankingFrozen && !force;
    QList<RackThread> flat = fresh;
    if (frozen) {
        QHash<QString, RackThread> current;
        current.reserve(m_allThreads.size());
        for (const RackThread &thread : std::as_const(m_allThreads))
            current.insert(thread.id, thread);
        flat = frozenMerge(m_flatRankedThreads, fresh, current);
    }
    assign(m_flatRankedThreads, flat, &RackStore::flatRankedThreadsChanged);
    m_historyThreads = sorted;
    rebuildProjectGroups(sorted, frozen);
    assign(m_rankedThreads, rankedForMode(), &RackStore::rankedThreadsChanged);

    if (isSearchActive()) {
        m_selectedThreadID = remembered;
        pageToSelection();
        return;
    }
    if (keepPosition) {
        showPage(std::min(m_currentPage, std::max(pageCount() - 1, 0)), true);
        return;
    }
    showPage(0, true);
}

void RackStore::rebuildProjectGroups(const QList<RackThread> &sorted, bool frozen)
{
    QList<RackProjectGroup> groups = taskrack::projectGroups(sorted);
    if (frozen) {
        QHash<QString, RackThread> current;
        current.reserve(m_allThreads.size());
        for (const RackThread &thread : std::as_const(m_allThreads))
            current.insert(thread.id, thread);
        groups = frozenProjectGroups(m_projectGroups, groups, current);
    }
    assign(m_projectGroups, std::move(groups), &RackStore::projectGroupsChanged);

    const ProjectSelectionChange change =
        bringSelectedProjectUpToDate(m_projectGroups, m_selectedProjectID, m_selectedThreadID);
    assign(m_selectedProjectID, change.selectedProjectID, &RackStore::selectedProjectIDChanged);
    switch (change.persistence) {
    case ProjectSelectionChange::Persistence::unchanged:
        break;
    case ProjectSelectionChange::Persistence::write:
        m_preferences.setValue(rackstorekeys::selectedProject, *change.selectedProjectID);
        break;
    case ProjectSelectionChange::Persistence::remove:
        m_preferences.remove(rackstorekeys::selectedProject);
        break;
    }
}

QList<RackThread> RackStore::rankedForMode() const
{
    if (isSearchActive())
        return searchResults();
    switch (m_organizationMode) {
    case RackOrganizationMode::activity:
        return m_flatRankedThreads;
    case RackOrganizationMode::project:
        for (const RackProjectGroup &group : m_projectGroups) {
            if (m_selectedProjectID && group.id == *m_selectedProjectID)
                return group.threads;
        }
        return {};
    case RackOrganizationMode::history:
        return m_historyThreads;
    }
    return {};
}

void RackStore::showPage(int page, bool keepSelection)
{
    const auto [begin, end] = RackPaging::pageRange(m_rankedThreads.size(), page, pageSize());
    assign(m_currentPage, page, &RackStore::currentPageChanged);
    assign(m_visibleThreads, m_rankedThreads.mid(begin, end - begin),
           &RackStore::visibleThreadsChanged);
    const bool selectionVisible =
        keepSelection && m_selectedThreadID &&
        std::any_of(m_visibleThreads.cbegin(), m_visibleThreads.cend(),
                    [&](const RackThread &thread) { return thread.id == *m_selectedThreadID; });
    if (selectionVisible)
        return;
    assign(m_selectedThreadID,
           m_visibleThreads.isEmpty() ? std::optional<QString>()
                                      : std::optional<QString>(m_visibleThreads.first().id),
           &RackStore::selectedThreadIDChanged);
}

// --- Presentation ---------------------------------------------------------------------------

void RackStore::prepareForPresentation()
{
    m_isRankingFrozen = false;
    assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    rerank();
    assign(m_isPresenting, true, &RackStore::isPresentingChanged);
}

void RackStore::endPresentation()
{
    assign(m_isPresenting, false, &RackStore::isPresentingChanged);
    m_isRankingFrozen = false;
    // A search lives within one presentation.
    m_searchRestoreState.reset();
    assign(m_searchQuery, QString(), &RackStore::searchQueryChanged);
    assign(m_isSearchPresented, false, &RackStore::isSearchPresentedChanged);
    assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    setOrganizationMode(m_defaultOrganizationMode);
}

void RackStore::setOrganizationMode(RackOrganizationMode mode)
{
    assign(m_organizationMode, mode, &RackStore::organizationModeChanged);
    assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    // A new mode always shows its true order.
    rerank(true);
}

void RackStore::setDefaultOrganizationMode(RackOrganizationMode mode)
{
    assign(m_defaultOrganizationMode, mode, &RackStore::defaultOrganizationModeChanged);
    m_preferences.setValue(rackstorekeys::defaultLayout, rawValue(mode));
}

void RackStore::setGlobalShortcutError(std::optional<QString> error)
{
    assign(m_globalShortcutError, std::move(error), &RackStore::globalShortcutErrorChanged);
}

void RackStore::setCycleCurrentPageOnly(bool on)
{
    assign(m_cycleCurrentPageOnly, on, &RackStore::cycleCurrentPageOnlyChanged);
    m_preferences.setValue(rackstorekeys::cycleCurrentPageOnly, on);
}

void RackStore::setFirstGestureCycleMovesBackward(bool on)
{
    assign(m_firstGestureCycleMovesBackward, on, &RackStore::firstGestureCycleMovesBackwardChanged);
    m_preferences.setValue(rackstorekeys::selectPreviousOnReveal, on);
}

} // namespace taskrack
