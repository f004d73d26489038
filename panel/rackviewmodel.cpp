#include "panel/rackviewmodel.h"

namespace taskrack {

namespace {

QString completions(int count)
{
    return count == 1 ? QStringLiteral("1 completion")
                      : QString::number(count) + QStringLiteral(" completions");
}

int unreadCount(const RackStore &store, const QList<RackThread> &threads)
{
    int count = 0;
    for (const RackThread &thread : threads) {
        if (store.completionLedger().unreadCompletionAt(thread))
            ++count;
    }
    return count;
}

} // namespace

RackViewModel::RackViewModel(RackStore &store, RackPalette &palette, QObject *parent)
    : QObject(parent), m_store(store), m_palette(palette)
{
    using Signal = void (RackStore::*)();
    static const Signal storeSignals[] = {
        &RackStore::allThreadsChanged,         &RackStore::projectGroupsChanged,
        &RackStore::searchQueryChanged,        &RackStore::isSearchPresentedChanged,
        &RackStore::searchFocusRequestChanged, &RackStore::searchBlurRequestChanged,
        &RackStore::hasOpenErrorChanged,       &RackStore::rankedThreadsChanged,
        &RackStore::visibleThreadsChanged,     &RackStore::selectedThreadIDChanged,
        &RackStore::selectedProjectIDChanged,  &RackStore::currentPageChanged,
        &RackStore::dataStateChanged,          &RackStore::sourceFailuresChanged,
        &RackStore::isRefreshingChanged,       &RackStore::isLiveChanged,
        &RackStore::isNewTaskSelectedChanged,  &RackStore::errorMessageChanged,
        &RackStore::organizationModeChanged,   &RackStore::cycleCurrentPageOnlyChanged,
    };
    for (Signal storeSignal : storeSignals)
        connect(&store, storeSignal, this, &RackViewModel::storeChanged);
}

void RackViewModel::setShortcutNames(RackShortcutNames names)
{
    m_names = std::move(names);
    storeChanged();
}

void RackViewModel::setOnboardingFacts(std::function<RackOnboardingFacts()> facts)
{
    m_facts = std::move(facts);
    storeChanged();
}

void RackViewModel::setAppearance(const QString &appearance)
{
    m_appearance = appearance;
    storeChanged();
}

void RackViewModel::setSelectionAnimation(int milliseconds)
{
    if (milliseconds == m_selectionAnimation)
        return;
    m_selectionAnimation = milliseconds;
    emit selectionAnimationChanged();
}

void RackViewModel::setActive(bool active)
{
    m_active = active;
    if (active && m_dirty)
        refreshNow();
}

void RackViewModel::storeChanged()
{
    m_dirty = true;
    if (!m_active || m_updateQueued)
        return;
    // A store command emits several signals; one update follows them all.
    m_updateQueued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_updateQueued = false;
            if (m_active && m_dirty)
                refreshNow();
        },
        Qt::QueuedConnection);
}

void RackViewModel::refreshNow()
{
    m_dirty = false;
    m_keyStrip.setRows(keyStripRows(m_store));
    m_projectRail.setRows(projectRailRows(m_store));
    State next = computeState();
    if (next == m_state)
        return;
    const bool focus = next.searchFocusRequest != m_state.searchFocusRequest;
    const bool blur = next.searchBlurRequest != m_state.searchBlurRequest;
    m_state = std::move(next);
    emit changed();
    if (blur)
        emit searchBlurRequested();
    if (focus)
        emit searchFocusRequested();
}

RackViewModel::State RackViewModel::computeState() const
{
    State state;
    const RackOnboardingFacts facts = m_facts ? m_facts() : RackOnboardingFacts{};
    state.onboarding = onboardingFor(facts, m_store.allThreads());
    state.content = contentFor(m_store, state.onboarding);
    state.modeIndex = int(m_store.organizationMode());
    state.modeShortcutHint =
        m_names.toggleOrganization + QStringLiteral(" to cycle Activity, Projects, and History");
    state.statusLine = taskrack::statusLine(m_store);
    // The failure view already says that nothing could be loaded.
    if (state.content != RackContent::failed)
        state.bannerText = taskrack::bannerText(m_store.sourceFailures());
    for (const RackThread &thread : m_store.allThreads()) {
        state.workingCount += thread.status == RackStatus::working;
        state.inputCount += thread.status == RackStatus::requiresInput;
        state.errorCount += thread.status == RackStatus::error;
    }
    const int pages = m_store.pageCount();
    if (pages > 1)
        state.pageText = QStringLiteral("%1 / %2").arg(m_store.currentPage() + 1).arg(pages);
    state.searchQuery = m_store.searchQuery();
    state.searchPresented = m_store.isSearchPresented();
    if (m_store.isSearchActive()) {
        const qsizetype found = m_store.rankedThreads().size();
        state.searchResultText = found == 1 ? QStringLiteral("1 match")
                                            : QString::number(found) + QStringLiteral(" matches");
    }
    state.searchFocusRequest = m_store.searchFocusRequest();
    state.searchBlurRequest = m_store.searchBlurRequest();
    if (m_store.hasOpenError())
        state.openError = m_store.errorMessage().value_or(QString());
    state.helpText = taskrack::helpText(m_store, facts.isEnhancedShortcutReady, m_names);

    switch (state.content) {
    case RackContent::loading:
        state.emptyTitle = QStringLiteral("Loading tasks…");
        state.emptyDetail = QStringLiteral("Looking for recent tasks in Codex and Claude.");
        break;
    case RackContent::failed:
        state.emptyTitle = QStringLiteral("Task sources are unavailable");
        state.emptyDetail = QStringLiteral(
            "Taskrack could not load a task source. Check Settings for recovery details.");
        break;
    case RackContent::empty:
        state.emptyTitle = QStringLiteral("No tasks yet");
        state.emptyDetail =
            QStringLiteral("Start or open a task in Codex or Claude, then refresh the rack.");
        break;
    case RackContent::activityEmpty:
        state.emptyTitle = QStringLiteral("No active tasks reported");
        state.emptyDetail = QStringLiteral("Read and recorded tasks are available in History.");
        break;
    case RackContent::searchEmpty:
        state.emptyTitle = QStringLiteral("No matching tasks");
        state.emptyDetail = QStringLiteral("Nothing matches “") + m_store.searchQuery().trimmed() +
                            QStringLiteral("”");
        state.emptyHint = QStringLiteral("Press Esc to return to the rack");
        break;
    default:
        break;
    }

    const int pageUnread = unreadCount(m_store, m_store.visibleThreads());
    const int allUnread = unreadCount(m_store, m_store.allThreads());
    state.canMarkPage = pageUnread > 0;
    state.markPageText = pageUnread > 0 ? QStringLiteral("Mark ") + completions(pageUnread) +
                                              QStringLiteral(" on this page as read")
                                        : QStringLiteral("No unread completions on this page");
    state.canMarkAll = allUnread > 0;
    state.markAllText = QStringLiteral("Mark all ") + QString::number(allUnread) +
                        QStringLiteral(" unread completions as read");
    state.pageLocked = m_store.cycleCurrentPageOnly();
    state.pageLockText = QStringLiteral("Cycle current page only");
    if (!m_names.togglePageLock.isEmpty())
        state.pageLockText += QStringLiteral(" (") + m_names.togglePageLock + QLatin1Char(')');
    state.claudeBusy = facts.isClaudeBusy;
    state.claudeError = facts.claudeError.value_or(QString());
    state.quiet = m_appearance == QLatin1String("quiet");
    return state;
}

QVariantMap RackViewModel::labels() const
{
    return {
        {QStringLiteral("modes"),
         QStringList{QStringLiteral("Activity"), QStringLiteral("Projects"),
                     QStringLiteral("History")}},
        {QStringLiteral("modeHelp"),
         QStringLiteral("Switches between Activity, Projects, and History")},
        {QStringLiteral("searchPlaceholder"), QStringLiteral("Search tasks")},
        {QStringLiteral("openCodex"), QStringLiteral("Open Codex")},
        {QStringLiteral("openClaude"), QStringLiteral("Open Claude")},
        {QStringLiteral("retry"), QStringLiteral("Retry")},
        {QStringLiteral("showHistory"), QStringLiteral("Show History")},
        {QStringLiteral("completionActions"), QStringLiteral("Completion actions")},
        {QStringLiteral("working"), QStringLiteral("Working")},
        {QStringLiteral("input"), QStringLiteral("Input")},
        {QStringLiteral("error"), QStringLiteral("Error")},
        {QStringLiteral("emptyKey"), QStringLiteral("Empty")},
        {QStringLiteral("setupTitle"), QStringLiteral("Optional right-side switcher setup")},
        {QStringLiteral("setupRow"), QStringLiteral("Right-side switcher")},
        {QStringLiteral("setupDetail"),
         QStringLiteral(
             "Hold Right Ctrl and tap Right Alt to cycle tasks. Only modifier keys are observed.")},
        {QStringLiteral("setupHelp"),
         QStringLiteral("Turns on the right-side switcher, then verifies the listener.")},
        {QStringLiteral("turnOn"), QStringLiteral("Turn On")},
        {QStringLiteral("notNow"), QStringLiteral("Not Now")},
        {QStringLiteral("claudeTitle"), QStringLiteral("Sharper Claude status, if you want it")},
        {QStringLiteral("claudeCaption"),
         QStringLiteral("Basic Claude task discovery is already on")},
        {QStringLiteral("claudeBody"),
         QStringLiteral(
             "Enhanced status lets Taskrack react immediately when Claude starts, finishes, "
             "fails, or needs input. It adds clearly identified local hooks to your Claude "
             "settings and can be removed at any time.")},
        {QStringLiteral("claudePrivacy"),
         QStringLiteral(
             "Claude can include prompt text in a prompt-submit event. Taskrack’s signed "
             "helper discards it and keeps only the session identifier, workspace path, "
             "subagent flag, and status event needed to match the task.")},
        {QStringLiteral("claudeEnable"), QStringLiteral("Enable Enhanced Status")},
        {QStringLiteral("claudeBusyLabel"), QStringLiteral("Configuring enhanced Claude status")},
        {QStringLiteral("claudeErrorLabel"), QStringLiteral("Enhanced Claude status error. ")},
        {QStringLiteral("newTask"), QStringLiteral("New task")},
    };
}

void RackViewModel::setSearchQuery(const QString &query)
{
    m_store.setSearchQuery(query);
}

void RackViewModel::selectSlot(int slot)
{
    m_store.selectSlot(slot);
}

void RackViewModel::openSlot(int slot)
{
    m_store.selectSlot(slot);
    if (m_actions.commit)
        m_actions.commit();
}

void RackViewModel::selectProject(const QString &projectID)
{
    m_store.selectProject(projectID);
}

void RackViewModel::setMode(int index)
{
    if (index >= 0 && index <= int(RackOrganizationMode::history))
        m_store.setOrganizationMode(RackOrganizationMode(index));
}

void RackViewModel::endSearchEditing()
{
    m_store.requestSearchBlur();
}

void RackViewModel::dismissSearch()
{
    m_store.dismissSearch();
}

void RackViewModel::markPageRead()
{
    m_store.markRead(m_store.visibleThreads());
}

void RackViewModel::markAllRead()
{
    m_store.markAllRead();
}

void RackViewModel::togglePageLock()
{
    m_store.setCycleCurrentPageOnly(!m_store.cycleCurrentPageOnly());
}

void RackViewModel::retry()
{
    if (m_actions.retry)
        m_actions.retry();
}

void RackViewModel::openProvider(const QString &provider)
{
    if (const std::optional<RackProvider> which = providerFromRaw(provider);
        which && m_actions.openProvider)
        m_actions.openProvider(*which);
}

void RackViewModel::turnOnSwitcher()
{
    if (m_actions.enableSwitcher)
        m_actions.enableSwitcher();
    storeChanged();
}

void RackViewModel::deferSwitcher()
{
    if (m_actions.deferSwitcher)
        m_actions.deferSwitcher();
    storeChanged();
}

void RackViewModel::enableClaude()
{
    if (m_actions.enableClaude)
        m_actions.enableClaude();
    storeChanged();
}

void RackViewModel::deferClaude()
{
    if (m_actions.deferClaude)
        m_actions.deferClaude();
    storeChanged();
}

} // namespace taskrack
