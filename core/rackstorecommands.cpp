// The store's commands: every way a key press, a gesture step or a typed character moves the
// selection, the page, the project or the filter, and the opening and reading of threads. The
// panel only translates keys and gesture events into these.

#include "core/rackstore.h"
#include "core/rackstore_p.h"

#include "core/clock.h"
#include "core/searchfolding.h"
#include "core/taskracklog.h"
#include "platform/preferences.h"

namespace taskrack {

// --- Search ---------------------------------------------------------------------------------

bool RackStore::isSearchActive() const
{
    return !m_searchQuery.trimmed().isEmpty();
}

QList<RackThread> RackStore::searchResults() const
{
    const SearchQuery query(m_searchQuery);
    if (query.isEmpty())
        return {};
    QList<RackThread> matches;
    for (const RackThread &thread : m_historyThreads) {
        if (query.matches(thread.searchText()))
            matches.append(thread);
    }
    return matches;
}

void RackStore::setSearchQuery(const QString &query)
{
    const bool wasActive = isSearchActive();
    const bool same = m_searchQuery.trimmed() == query.trimmed();
    assign(m_searchQuery, query, &RackStore::searchQueryChanged);
    if (same)
        return;
    if (!isSearchActive()) {
        endSearch();
        return;
    }
    if (!wasActive)
        m_searchRestoreState =
            SearchRestoreState{m_selectedThreadID, m_selectedProjectID, m_currentPage};
    assign(m_isSearchPresented, true, &RackStore::isSearchPresentedChanged);
    assign(m_rankedThreads, searchResults(), &RackStore::rankedThreadsChanged);
    assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    m_selectedThreadID.reset();
    showPage(0, false);
}

void RackStore::activateSearch()
{
    assign(m_isSearchPresented, true, &RackStore::isSearchPresentedChanged);
    assign(m_searchFocusRequest, m_searchFocusRequest + 1, &RackStore::searchFocusRequestChanged);
}

void RackStore::dismissSearch()
{
    endSearch();
}

void RackStore::requestSearchBlur()
{
    assign(m_searchBlurRequest, m_searchBlurRequest + 1, &RackStore::searchBlurRequestChanged);
}

void RackStore::endSearch()
{
    assign(m_searchQuery, QString(), &RackStore::searchQueryChanged);
    assign(m_isSearchPresented, false, &RackStore::isSearchPresentedChanged);
    requestSearchBlur();
    if (const std::optional<SearchRestoreState> restore = std::exchange(m_searchRestoreState, {})) {
        // Applied as far as its project, thread and page still exist.
        const bool projectExists = restore->selectedProjectID &&
                                   std::any_of(m_projectGroups.cbegin(), m_projectGroups.cend(),
                                               [&](const RackProjectGroup &group) {
                                                   return group.id == *restore->selectedProjectID;
                                               });
        if (projectExists)
            setSelectedProjectID(restore->selectedProjectID, true);
        if (RackNavigation::indexOf(m_allThreads, restore->selectedThreadID) >= 0)
            assign(m_selectedThreadID, restore->selectedThreadID,
                   &RackStore::selectedThreadIDChanged);
        m_currentPage = restore->currentPage;
    }
    rerank(false, true);
}

// --- Selection helpers ----------------------------------------------------------------------

void RackStore::selectThread(const std::optional<QString> &threadID)
{
    assign(m_selectedThreadID, threadID, &RackStore::selectedThreadIDChanged);
    if (threadID)
        m_preferences.setValue(rackstorekeys::lastSelected, *threadID);
}

void RackStore::setSelectedProjectID(const std::optional<QString> &projectID, bool persist)
{
    assign(m_selectedProjectID, projectID, &RackStore::selectedProjectIDChanged);
    if (!persist)
        return;
    if (projectID)
        m_preferences.setValue(rackstorekeys::selectedProject, *projectID);
    else
        m_preferences.remove(rackstorekeys::selectedProject);
}

void RackStore::pageToSelection()
{
    const qsizetype index = RackNavigation::indexOf(m_rankedThreads, m_selectedThreadID);
    if (index < 0) {
        showPage(0, false);
        return;
    }
    showPage(int(index / pageSize()), true);
}

void RackStore::beginNavigation()
{
    if (m_isPresenting)
        m_isRankingFrozen = true;
}

bool RackStore::hasNewTaskStop() const
{
    return m_organizationMode == RackOrganizationMode::project && !isSearchActive() &&
           m_selectedProjectID.has_value();
}

// --- Steps ----------------------------------------------------------------------------------

void RackStore::step(bool forward)
{
    beginNavigation();
    if (!isSearchActive() && !m_cycleCurrentPageOnly &&
        m_organizationMode == RackOrganizationMode::project)
        walkStops(forward);
    else
        walkList(forward);
}

void RackStore::walkList(bool forward)
{
    if (m_rankedThreads.isEmpty()) {
        assign(m_selectedThreadID, std::optional<QString>(), &RackStore::selectedThreadIDChanged);
        assign(m_isNewTaskSelected, hasNewTaskStop(), &RackStore::isNewTaskSelectedChanged);
        return;
    }
    const QList<RackThread> &list = m_cycleCurrentPageOnly ? m_visibleThreads : m_rankedThreads;
    if (list.isEmpty())
        return;
    const std::optional<QString> next =
        RackNavigation::walkList(list, selection(), hasNewTaskStop(), forward);
    if (!next) {
        assign(m_isNewTaskSelected, true, &RackStore::isNewTaskSelectedChanged);
        return;
    }
    selectThread(*next);
    assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    pageToSelection();
}

RackSelection RackStore::selection() const
{
    return RackSelection{m_selectedThreadID, m_selectedProjectID, m_isNewTaskSelected};
}

QList<RackStop> RackStore::stops() const
{
    return RackNavigation::stops(m_projectGroups);
}

void RackStore::walkStops(bool forward)
{
    const std::optional<RackStop> next = RackNavigation::nextStop(stops(), selection(), forward);
    if (!next) {
        assign(m_selectedThreadID, std::optional<QString>(), &RackStore::selectedThreadIDChanged);
        return;
    }
    goToStop(*next);
}

void RackStore::goToStop(const RackStop &stop)
{
    selectProject(stop.projectID);
    if (stop.kind == RackStop::Kind::newTask) {
        assign(m_isNewTaskSelected, true, &RackStore::isNewTaskSelectedChanged);
        return;
    }
    selectThread(stop.threadID);
    pageToSelection();
}

bool RackStore::firstGestureStep()
{
    if (!m_firstGestureCycleMovesBackward || m_isSearchPresented)
        return false;
    const bool atStart =
        !m_selectedThreadID ||
        (!m_visibleThreads.isEmpty() && m_visibleThreads.first().id == *m_selectedThreadID);
    if (!atStart)
        return false;
    step(false);
    return true;
}

// --- Pages, projects, slots -----------------------------------------------------------------

void RackStore::movePage(bool forward)
{
    beginNavigation();
    const int count = pageCount();
    if (count < 1)
        return;
    const int next = int(RackNavigation::wrap(m_currentPage, count, forward));
    assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    showPage(next, false);
}

bool RackStore::moveProject(bool forward)
{
    if (m_organizationMode != RackOrganizationMode::project || m_isSearchPresented ||
        isSearchActive() || m_projectGroups.isEmpty())
        return false;
    beginNavigation();
    const qsizetype next =
        RackNavigation::nextProject(m_projectGroups, m_selectedProjectID, forward);
    selectProject(m_projectGroups.at(next).id);
    return true;
}

void RackStore::selectProject(const QString &projectID)
{
    beginNavigation();
    setSelectedProjectID(projectID, true);
    assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    QList<RackThread> threads;
    for (const RackProjectGroup &group : std::as_const(m_projectGroups)) {
        if (group.id == projectID)
            threads = group.threads;
    }
    assign(m_rankedThreads, threads, &RackStore::rankedThreadsChanged);
    showPage(0, false);
}

void RackStore::selectSlot(int slot)
{
    beginNavigation();
    if (slot >= 0 && slot < m_visibleThreads.size()) {
        selectThread(m_visibleThreads.at(slot).id);
        assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    } else if (slot == m_visibleThreads.size() && hasNewTaskStop()) {
        assign(m_isNewTaskSelected, true, &RackStore::isNewTaskSelectedChanged);
    }
}

void RackStore::moveToFirst()
{
    beginNavigation();
    if (m_rankedThreads.isEmpty())
        return;
    selectThread(m_rankedThreads.first().id);
    assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    pageToSelection();
}

void RackStore::moveToLast()
{
    beginNavigation();
    if (m_rankedThreads.isEmpty())
        return;
    selectThread(m_rankedThreads.last().id);
    assign(m_isNewTaskSelected, false, &RackStore::isNewTaskSelectedChanged);
    pageToSelection();
}

void RackStore::moveHorizontal(bool forward)
{
    beginNavigation();
    walkList(forward);
}

bool RackStore::hasSelection() const
{
    return !m_isNewTaskSelected &&
           RackNavigation::indexOf(m_rankedThreads, m_selectedThreadID) >= 0;
}

std::optional<RackThread> RackStore::selectedThread() const
{
    const qsizetype index =
        m_isNewTaskSelected ? -1 : RackNavigation::indexOf(m_rankedThreads, m_selectedThreadID);
    if (index < 0)
        return std::nullopt;
    return m_rankedThreads.at(index);
}

bool RackStore::stepWouldSelect() const
{
    if (!isSearchActive() && !m_cycleCurrentPageOnly &&
        m_organizationMode == RackOrganizationMode::project)
        return !m_projectGroups.isEmpty();
    return !m_rankedThreads.isEmpty() || hasNewTaskStop();
}

void RackStore::cycleOrganizationMode()
{
    switch (m_organizationMode) {
    case RackOrganizationMode::activity:
        setOrganizationMode(RackOrganizationMode::project);
        break;
    case RackOrganizationMode::project:
        setOrganizationMode(RackOrganizationMode::history);
        break;
    case RackOrganizationMode::history:
        setOrganizationMode(RackOrganizationMode::activity);
        break;
    }
}

// --- Opening and reading --------------------------------------------------------------------

QCoro::Task<bool> RackStore::open(RackThread thread)
{
    if (!m_opener)
        co_return false;
    const ThreadOpenRequest request{QUuid::createUuid(), thread,
                                    m_completionLedger.unreadCompletionAt(thread)};
    assign(m_pendingOpenID, std::optional<QUuid>(request.id), &RackStore::pendingOpenIDChanged);
    QPointer<RackStore> self(this);
    std::exception_ptr error;
    try {
        auto opening = m_opener->open(thread);
        co_await opening;
    } catch (...) {
        error = std::current_exception();
    }
    // Only the newest request may report: a late answer never overwrites a newer one.
    if (!self || m_pendingOpenID != request.id)
        co_return false;
    assign(m_pendingOpenID, std::optional<QUuid>(), &RackStore::pendingOpenIDChanged);
    if (error) {
        if (isCancellation(error))
            co_return false;
        qCWarning(lcStore, "Task open failed; details omitted");
        showOpenError(error);
        co_return false;
    }
    if (m_hasOpenError) {
        assign(m_hasOpenError, false, &RackStore::hasOpenErrorChanged);
        assign(m_errorMessage, std::optional<QString>(), &RackStore::errorMessageChanged);
    }
    acknowledgeOpened(request);
    rememberOpened(thread.id);
    co_return true;
}

void RackStore::clearPendingOpen()
{
    assign(m_pendingOpenID, std::optional<QUuid>(), &RackStore::pendingOpenIDChanged);
}

void RackStore::showOpenError(std::exception_ptr error)
{
    if (isCancellation(error))
        return;
    assign(m_errorMessage, std::optional<QString>(describeException(error)),
           &RackStore::errorMessageChanged);
    assign(m_hasOpenError, true, &RackStore::hasOpenErrorChanged);
}

void RackStore::clearOpenError()
{
    assign(m_hasOpenError, false, &RackStore::hasOpenErrorChanged);
    assign(m_errorMessage, std::optional<QString>(), &RackStore::errorMessageChanged);
}

void RackStore::acknowledgeOpened(const ThreadOpenRequest &request)
{
    if (!request.completionAt)
        return;
    if (!m_completionLedger.acknowledge(request.thread, *request.completionAt))
        return;
    m_completionLedger.save();
    const qsizetype index = indexOfThread(request.thread.id);
    if (index < 0 || m_allThreads.at(index).status != RackStatus::completed)
        return;
    QList<RackThread> threads = m_allThreads;
    threads[index].status = RackStatus::recent;
    assign(m_allThreads, std::move(threads), &RackStore::allThreadsChanged);
    rerankAfterDataChange();
}

void RackStore::rememberOpened(const QString &threadID)
{
    QStringList opened = m_openedThreadIDs;
    opened.removeAll(threadID);
    opened.prepend(threadID);
    while (opened.size() > openedThreadLimit)
        opened.removeLast();
    if (opened == m_openedThreadIDs)
        return;
    m_openedThreadIDs = opened;
    m_preferences.setValue(rackstorekeys::recentlyOpened, opened);
    emit openedThreadIDsChanged();
}

int RackStore::markRead(const QList<RackThread> &threads)
{
    QSet<QString> read;
    for (const RackThread &thread : threads) {
        if (const std::optional<QDateTime> at = m_completionLedger.unreadCompletionAt(thread)) {
            if (m_completionLedger.acknowledge(thread, *at))
                read.insert(thread.id);
        }
    }
    if (read.isEmpty())
        return 0;
    m_completionLedger.save();
    QList<RackThread> updated = m_allThreads;
    for (RackThread &thread : updated) {
        if (read.contains(thread.id) && thread.status == RackStatus::completed)
            thread.status = RackStatus::recent;
    }
    assign(m_allThreads, std::move(updated), &RackStore::allThreadsChanged);
    rerankAfterDataChange();
    return int(read.size());
}

int RackStore::markAllRead()
{
    return markRead(m_allThreads);
}

} // namespace taskrack
