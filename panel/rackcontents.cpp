#include "panel/rackcontents.h"

#include <algorithm>

namespace taskrack {

namespace {

QString dotShape(const std::optional<CodexDesktopDot> &dot)
{
    return dot ? RackDotAppearance::rawValue(dot->appearance.silhouette) : QString();
}

QString dotTint(const std::optional<CodexDesktopDot> &dot)
{
    return dot ? RackDotAppearance::rawValue(dot->appearance.tint) : QString();
}

QString joinedProviders(const std::set<RackProvider> &providers)
{
    QStringList names;
    // Declaration order puts Codex before Claude.
    for (RackProvider provider : providers)
        names.append(displayName(provider));
    return names.join(QStringLiteral(" and "));
}

QVariantMap emptyKey(int index)
{
    return {{QStringLiteral("kind"), QStringLiteral("empty")},
            {QStringLiteral("keyLabel"), QString::number(index + 1)}};
}

} // namespace

RackOnboarding onboardingFor(const RackOnboardingFacts &facts, const QList<RackThread> &threads)
{
    if (!facts.hasMadeSetupChoice ||
        (facts.isEnhancedShortcutEnabled && !facts.isEnhancedShortcutReady))
        return RackOnboarding::input;
    if (facts.hasMadeClaudeChoice)
        return RackOnboarding::none;
    const bool hasClaude = std::any_of(threads.cbegin(), threads.cend(), [](const RackThread &t) {
        return t.provider == RackProvider::claudeDesktop;
    });
    return hasClaude ? RackOnboarding::claude : RackOnboarding::none;
}

RackContent contentFor(const RackStore &store, RackOnboarding onboarding)
{
    if (onboarding == RackOnboarding::input)
        return RackContent::inputSetup;
    if (onboarding == RackOnboarding::claude)
        return RackContent::claudeSetup;
    if (store.isSearchActive())
        return store.rankedThreads().isEmpty() ? RackContent::searchEmpty : RackContent::keys;
    if (store.allThreads().isEmpty()) {
        switch (store.dataState()) {
        case RackDataState::loading:
            return RackContent::loading;
        case RackDataState::failed:
            return RackContent::failed;
        default:
            return RackContent::empty;
        }
    }
    if (store.organizationMode() == RackOrganizationMode::activity &&
        store.rankedThreads().isEmpty())
        return RackContent::activityEmpty;
    return RackContent::keys;
}

QString rawValue(RackContent content)
{
    switch (content) {
    case RackContent::keys:
        return QStringLiteral("keys");
    case RackContent::loading:
        return QStringLiteral("loading");
    case RackContent::failed:
        return QStringLiteral("failed");
    case RackContent::empty:
        return QStringLiteral("empty");
    case RackContent::activityEmpty:
        return QStringLiteral("activityEmpty");
    case RackContent::searchEmpty:
        return QStringLiteral("searchEmpty");
    case RackContent::inputSetup:
        return QStringLiteral("inputSetup");
    case RackContent::claudeSetup:
        return QStringLiteral("claudeSetup");
    }
    return {};
}

QString bannerText(const QList<ThreadSourceFailure> &failures)
{
    std::set<RackProvider> cached;
    std::set<RackProvider> partial;
    bool anonymous = false;
    bool anonymousCached = false;
    for (const ThreadSourceFailure &failure : failures) {
        if (failure.isExpectedLimitation)
            continue;
        if (failure.provider) {
            (failure.isUsingCachedSnapshot ? cached : partial).insert(*failure.provider);
        } else {
            anonymous = true;
            anonymousCached = anonymousCached || failure.isUsingCachedSnapshot;
        }
    }
    if (!cached.empty())
        return joinedProviders(cached) + QStringLiteral(" reconnecting — cached tasks shown");
    if (!partial.empty())
        return joinedProviders(partial) +
               QStringLiteral(" partially unavailable — local tasks shown");
    if (anonymous)
        return anonymousCached
                   ? QStringLiteral("Some task status unavailable — cached history shown")
                   : QStringLiteral("Some task status unavailable — available tasks shown");
    return {};
}

QString statusLine(const RackStore &store)
{
    if (store.isRefreshing())
        return QStringLiteral("Refreshing tasks");
    if (!bannerText(store.sourceFailures()).isEmpty())
        return QStringLiteral("A live task source is offline");
    if (!store.isLive())
        return QStringLiteral("Using available local task history");
    return {};
}

QString helpText(const RackStore &store, bool isGestureReady, const RackShortcutNames &names)
{
    if (store.isSearchPresented())
        return QStringLiteral(
            "Type to search every loaded Codex task by task, project, or path. Left and right "
            "arrows "
            "move between matches. Up and down arrows move between result pages. Return opens the "
            "selected result. Tab ends text editing while keeping the filter. Escape clears search "
            "and restores the previous rack selection.");
    QString text;
    if (isGestureReady)
        text +=
            QStringLiteral("Hold Right Ctrl and tap Right Alt to reveal and cycle the rack. Hold "
                           "Shift to reverse. ");
    text +=
        names.toggleOrganization +
        QStringLiteral(" cycles Activity, Projects, and History. Number keys ") +
        QStringLiteral("one through five") +
        QStringLiteral(" choose a visible task. Home and End jump to the first and last task. ");
    text += names.markPageRead +
            QStringLiteral(" marks completed tasks on the current page as read. Return opens the "
                           "selected task. Escape closes the rack. ");
    text += names.togglePageLock +
            QStringLiteral(" toggles page lock. Page Up and Page Down switch pages. ");
    text += names.showRack + QStringLiteral(" to show or hide the rack. ");
    if (store.organizationMode() == RackOrganizationMode::project)
        text +=
            QStringLiteral("Up and down arrows move between projects. Left and right arrows move "
                           "between tasks, wrapping within this page when page lock is enabled.");
    else
        text += QStringLiteral("Left and right arrows move between tasks. Up and down arrows move "
                               "between pages.");
    return text;
}

QString lineageText(const RackThread &thread)
{
    const int children = thread.lineage.childCount;
    if (children <= 0)
        return {};
    if (children == 1)
        return QStringLiteral("1 session started from this one");
    return QString::number(children) + QStringLiteral(" sessions started from this one");
}

QString keyAccessibilityText(const RackThread &thread)
{
    QStringList parts{thread.title, thread.accessibilityLabel()};
    QString text = parts.join(QStringLiteral(", "));
    if (thread.checkoutMetadata.kind == RackCheckoutKind::linkedWorktree)
        text += QStringLiteral(" — Git worktree");
    const QString lineage = lineageText(thread);
    if (!lineage.isEmpty())
        text += QStringLiteral(". ") + lineage;
    return text + QStringLiteral(". Press Return to open this task in ") +
           displayName(thread.provider);
}

QStringList keyStripRoles()
{
    return {QStringLiteral("kind"),           QStringLiteral("keyLabel"),
            QStringLiteral("title"),          QStringLiteral("detail"),
            QStringLiteral("status"),         QStringLiteral("statusLabel"),
            QStringLiteral("providerName"),   QStringLiteral("selected"),
            QStringLiteral("worktree"),       QStringLiteral("lineage"),
            QStringLiteral("accessibleText"), QStringLiteral("dotShape"),
            QStringLiteral("dotTint"),        QStringLiteral("enabled")};
}

QList<QVariantMap> keyStripRows(const RackStore &store)
{
    const bool projectMode =
        store.organizationMode() == RackOrganizationMode::project && !store.isSearchActive();
    const int threadSlots = projectMode ? 5 : 6;
    const QList<RackThread> &visible = store.visibleThreads();
    const bool newTaskSelected = store.isNewTaskSelected();
    QList<QVariantMap> rows;
    for (int i = 0; i < threadSlots; ++i) {
        if (i >= visible.size()) {
            rows.append(emptyKey(i));
            continue;
        }
        const RackThread &thread = visible.at(i);
        const bool isChats = thread.projectIdentity.isChats();
        rows.append({
            {QStringLiteral("kind"), QStringLiteral("thread")},
            {QStringLiteral("keyLabel"), QString::number(i + 1)},
            {QStringLiteral("title"), thread.title},
            {QStringLiteral("detail"),
             projectMode || isChats ? displayName(thread.provider) : thread.projectIdentity.name},
            {QStringLiteral("status"), rawValue(thread.status)},
            {QStringLiteral("statusLabel"), thread.shortLabel()},
            {QStringLiteral("providerName"), displayName(thread.provider)},
            {QStringLiteral("selected"), !newTaskSelected && store.selectedThreadID() == thread.id},
            {QStringLiteral("worktree"),
             thread.checkoutMetadata.kind == RackCheckoutKind::linkedWorktree},
            {QStringLiteral("lineage"), lineageText(thread)},
            {QStringLiteral("accessibleText"), keyAccessibilityText(thread)},
            {QStringLiteral("dotShape"),
             projectMode ? QString() : dotShape(thread.projectIdentity.dot)},
            {QStringLiteral("dotTint"),
             projectMode ? QString() : dotTint(thread.projectIdentity.dot)},
            {QStringLiteral("enabled"), true},
        });
    }
    if (projectMode) {
        QString projectName;
        for (const RackProjectGroup &group : store.projectGroups()) {
            if (store.selectedProjectID() == group.id)
                projectName = group.name;
        }
        const bool enabled = store.hasNewTaskStop();
        rows.append({
            {QStringLiteral("kind"), QStringLiteral("newTask")},
            {QStringLiteral("keyLabel"), QStringLiteral("6")},
            {QStringLiteral("title"), QStringLiteral("New task")},
            {QStringLiteral("detail"), projectName},
            {QStringLiteral("selected"), enabled && newTaskSelected},
            {QStringLiteral("accessibleText"),
             QStringLiteral("Create a new task in ") + projectName +
                 QStringLiteral(". Opens Quick Task with this project selected.")},
            {QStringLiteral("enabled"), enabled},
        });
    }
    return rows;
}

QStringList projectRailRoles()
{
    return {
        QStringLiteral("projectID"),  QStringLiteral("name"),         QStringLiteral("countText"),
        QStringLiteral("sharedText"), QStringLiteral("lastUsedText"), QStringLiteral("selected"),
        QStringLiteral("status"),     QStringLiteral("dotShape"),     QStringLiteral("dotTint")};
}

QList<QVariantMap> projectRailRows(const RackStore &store)
{
    QList<QVariantMap> rows;
    for (const RackProjectGroup &group : store.projectGroups()) {
        const bool shared = group.providers.size() > 1;
        rows.append({
            {QStringLiteral("projectID"), group.id},
            {QStringLiteral("name"), group.name},
            {QStringLiteral("countText"),
             QString::number(group.threads.size()) + QStringLiteral(" available tasks")},
            {QStringLiteral("sharedText"),
             shared ? QStringLiteral("shared between Codex and Claude") : QString()},
            {QStringLiteral("lastUsedText"),
             group.lastUsedProvider
                 ? displayName(*group.lastUsedProvider) + QStringLiteral(" most recently active")
                 : QString()},
            {QStringLiteral("selected"), store.selectedProjectID() == group.id},
            {QStringLiteral("status"), rawValue(groupStatus(group))},
            {QStringLiteral("dotShape"), dotShape(group.dot)},
            {QStringLiteral("dotTint"), dotTint(group.dot)},
        });
    }
    return rows;
}

} // namespace taskrack
