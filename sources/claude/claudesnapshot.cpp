#include "sources/claude/claudesnapshot.h"

#include "core/rackprojectidentity.h"

#include <QHash>
#include <algorithm>

namespace taskrack {

namespace {

const QString describedLoaded = QStringLiteral("Claude Desktop");
const QString describedLoading = QStringLiteral("Claude Desktop (loading)");
// Sessions found only in Claude Code's transcripts: there is no desktop application behind them.
const QString describedCodeLoaded = QStringLiteral("Claude Code");
const QString describedCodeLoading = QStringLiteral("Claude Code (loading)");

} // namespace

QString claudeSessionTitle(const std::optional<QString> &title)
{
    const QString trimmed = title.value_or(QString()).trimmed();
    return trimmed.isEmpty() ? QStringLiteral("Untitled Claude task") : trimmed;
}

QString claudeThreadID(const QString &sessionId)
{
    return QStringLiteral("claude:") + sessionId;
}

ThreadCollection buildClaudeSnapshot(const ClaudeSnapshotInput &input, int limit,
                                     const FileSystem &fileSystem)
{
    const QList<ClaudeDesktopSessionManifest> &sessions = input.sessions;

    std::optional<QString> focused;
    qint64 focusedAt = 0;
    QHash<QString, QString> titleByID;
    QHash<QString, int> childCount;
    for (const auto &session : sessions) {
        titleByID.insert(session.sessionId, claudeSessionTitle(session.title));
        if (session.parentSessionId && !session.isArchived)
            ++childCount[*session.parentSessionId];
        if (session.isArchived || !session.lastFocusedAt)
            continue;
        if (!focused || *session.lastFocusedAt > focusedAt ||
            (*session.lastFocusedAt == focusedAt && session.sessionId < *focused)) {
            focused = session.sessionId;
            focusedAt = *session.lastFocusedAt;
        }
    }

    struct Entry
    {
        const ClaudeDesktopSessionManifest *session;
        ClaudeSessionFacts facts;
        QDateTime recencyAt;
    };
    QList<Entry> entries;
    for (const auto &session : sessions) {
        if (session.isArchived)
            continue;
        const ClaudeSessionFacts facts = input.factsOf(session);
        entries.append(Entry{&session, facts, claudeRecencyAt(facts)});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) {
        if (a.recencyAt != b.recencyAt)
            return a.recencyAt > b.recencyAt;
        return a.session->sessionId < b.session->sessionId;
    });
    if (entries.size() > limit)
        entries.resize(limit);

    // Identity and checkout probes touch the file system: once per folder per snapshot.
    QHash<QString, RackProjectIdentity> identities;
    QHash<QString, RackCheckoutMetadata> checkouts;
    ThreadCollection collection;
    if (input.fromTranscriptsOnly)
        collection.sourceDescription = input.isLoaded ? describedCodeLoaded : describedCodeLoading;
    else
        collection.sourceDescription = input.isLoaded ? describedLoaded : describedLoading;
    collection.isLive = true;
    for (const Entry &entry : std::as_const(entries)) {
        const ClaudeDesktopSessionManifest &session = *entry.session;
        RackThread thread;
        thread.id = claudeThreadID(session.sessionId);
        thread.provider = RackProvider::claudeDesktop;
        thread.providerThreadID = session.sessionId;
        thread.title = claudeSessionTitle(session.title);
        thread.workspacePath = session.cwd;
        const QString projectPath = session.projectPath();
        if (!identities.contains(projectPath))
            identities.insert(projectPath, makeProjectIdentity(fileSystem, projectPath,
                                                               std::nullopt, input.home));
        thread.projectIdentity = identities.value(projectPath);
        thread.updatedAt = claudeUpdatedAt(entry.facts);
        thread.recencyAt = entry.recencyAt;
        thread.status = claudeLiveStatus(entry.facts, input.now);
        thread.source = QStringLiteral("Claude Code");
        thread.isProviderFocused = focused == session.sessionId;
        const QString checkoutKey = session.cwd + QChar(0) + session.originCwd;
        if (!checkouts.contains(checkoutKey))
            checkouts.insert(checkoutKey,
                             probeCheckout(fileSystem, {session.cwd, session.originCwd}));
        thread.checkoutMetadata = checkouts.value(checkoutKey);
        std::optional<QString> parentTitle;
        if (session.parentSessionId && titleByID.contains(*session.parentSessionId))
            parentTitle = titleByID.value(*session.parentSessionId);
        const int children = childCount.value(session.sessionId);
        if (parentTitle || children > 0)
            thread.lineage = RackThreadLineage{parentTitle, children};
        collection.threads.append(std::move(thread));
    }
    // A folder that cannot be read would otherwise look like a folder without sessions.
    if (input.hasUnreadableFolder) {
        ThreadSourceFailure failure;
        failure.sourceName = QStringLiteral("Claude Code transcripts (unreadable folder)");
        failure.state = ThreadSourceFailureState::degraded;
        failure.provider = RackProvider::claudeDesktop;
        collection.sourceFailures.append(failure);
    }
    return collection;
}

} // namespace taskrack
