#include "app/racktext.h"

#include "core/clock.h"
#include "core/rackstore.h"

#include <QSet>

namespace taskrack {

namespace {

QString fit(const QString &text, int width)
{
    QString single = text.simplified();
    if (single.size() > width)
        single = single.left(width - 1) + QChar(0x2026);
    return single.leftJustified(width);
}

} // namespace

QString shortAge(const QDateTime &then, const QDateTime &now)
{
    if (!then.isValid())
        return QStringLiteral("-");
    const qint64 seconds = std::max<qint64>(0, then.secsTo(now));
    if (seconds < 60)
        return QStringLiteral("%1s").arg(seconds);
    if (seconds < 3600)
        return QStringLiteral("%1m").arg(seconds / 60);
    if (seconds < 86400)
        return QStringLiteral("%1h").arg(seconds / 3600);
    return QStringLiteral("%1d").arg(seconds / 86400);
}

QString threadLine(const RackThread &thread, const QDateTime &now)
{
    // A recorded turn says what it knows beside the title, computed as it is shown.
    const QString recorded = thread.recordedTurnLabel(SystemClock::shared().uptime());
    return fit(thread.shortLabel(), 9) + fit(displayName(thread.provider), 8) +
           fit(thread.projectIdentity.name, 20) + fit(shortAge(thread.recencyAt, now), 6) +
           thread.title.simplified() +
           (recorded.isEmpty() ? QString() : QStringLiteral(" (") + recorded + QLatin1Char(')'));
}

QString watchChanges(const QHash<QString, RackThread> &before, const RackStore &store,
                     const QDateTime &now)
{
    QString out;
    QSet<QString> present;
    for (const RackThread &thread : store.allThreads()) {
        present.insert(thread.id);
        auto it = before.constFind(thread.id);
        if (it == before.constEnd() || it->status != thread.status || it->title != thread.title)
            out += threadLine(thread, now) + QLatin1Char('\n');
    }
    for (auto it = before.constBegin(); it != before.constEnd(); ++it) {
        if (!present.contains(it.key()))
            out += fit(QStringLiteral("Gone"), 9) + fit(displayName(it->provider), 8) +
                   fit(it->projectIdentity.name, 20) + fit(QStringLiteral("-"), 6) +
                   it->title.simplified() + QLatin1Char('\n');
    }
    return out;
}

QString rackTable(const RackStore &store, const QDateTime &now)
{
    const bool byProject =
        store.organizationMode() == RackOrganizationMode::project && !store.isSearchActive();
    // The count is of what is printed below: every project's tasks, or the ranked list.
    qsizetype shown = store.rankedThreads().size();
    if (byProject) {
        shown = 0;
        for (const RackProjectGroup &group : store.projectGroups())
            shown += group.threads.size();
    }
    QString out;
    out += QStringLiteral("%1 · %2 · %3 tasks\n")
               .arg(rawValue(store.dataState()), store.sourceDescription())
               .arg(shown);
    for (const ThreadSourceFailure &failure : store.sourceFailures()) {
        // A known condition of the set-up (a provider's CLI not installed) is not a warning.
        if (failure.isExpectedLimitation)
            continue;
        out += QStringLiteral("! %1 %2%3\n")
                   .arg(failure.sourceName, rawValue(failure.state),
                        failure.isUsingCachedSnapshot ? QStringLiteral(" (showing cached tasks)")
                                                      : QString());
    }
    if (store.errorMessage())
        out += QStringLiteral("! %1\n").arg(*store.errorMessage());
    const QString header = fit(QStringLiteral("STATUS"), 9) + fit(QStringLiteral("FROM"), 8) +
                           fit(QStringLiteral("PROJECT"), 20) + fit(QStringLiteral("AGE"), 6) +
                           QStringLiteral("TITLE\n");
    if (byProject) {
        // Every project in order, not only the selected one: a terminal has room for all.
        if (store.projectGroups().isEmpty()) {
            out += QStringLiteral("No projects.\n");
            return out;
        }
        out += header;
        for (const RackProjectGroup &group : store.projectGroups()) {
            out += QStringLiteral("\n%1  %2\n").arg(group.name, group.workspacePath);
            for (const RackThread &thread : group.threads)
                out += threadLine(thread, now) + QLatin1Char('\n');
        }
        return out;
    }
    if (store.rankedThreads().isEmpty()) {
        out += QStringLiteral("No tasks.\n");
        return out;
    }
    out += header;
    for (const RackThread &thread : store.rankedThreads())
        out += threadLine(thread, now) + QLatin1Char('\n');
    return out;
}

} // namespace taskrack
