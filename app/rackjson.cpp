#include "app/rackjson.h"

#include "core/clock.h"
#include "core/rackstore.h"

#include <QJsonArray>
#include <algorithm>

namespace taskrack {

namespace {

QJsonValue optionalString(const std::optional<QString> &value)
{
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

QJsonArray sortedStrings(const QSet<QString> &values)
{
    QStringList list(values.cbegin(), values.cend());
    list.sort();
    return QJsonArray::fromStringList(list);
}

QJsonValue dotToJson(const std::optional<CodexDesktopDot> &dot)
{
    if (!dot)
        return QJsonValue::Null;
    return QJsonObject{
        {"key", dot->key},
        {"name", dot->name},
        {"tint", RackDotAppearance::rawValue(dot->appearance.tint)},
        {"silhouette", RackDotAppearance::rawValue(dot->appearance.silhouette)},
        {"rootThreadID", optionalString(dot->appearance.rootThreadID)},
    };
}

QString rawValue(RackRecordedTurnStatus status)
{
    switch (status) {
    case RackRecordedTurnStatus::inProgress:
        return QStringLiteral("inProgress");
    case RackRecordedTurnStatus::completed:
        return QStringLiteral("completed");
    case RackRecordedTurnStatus::interrupted:
        return QStringLiteral("interrupted");
    case RackRecordedTurnStatus::failed:
        return QStringLiteral("failed");
    case RackRecordedTurnStatus::unknown:
        return QStringLiteral("unknown");
    }
    return {};
}

QJsonValue observationToJson(const std::optional<RackRecordedTurnObservation> &observation)
{
    if (!observation)
        return QJsonValue::Null;
    return QJsonObject{
        {"accountScope", observation->identity.accountScope},
        {"threadID", observation->threadID},
        {"latestTurnID", observation->latestTurnID.toString(QUuid::WithoutBraces)},
        {"status", rawValue(observation->status)},
        {"retrievedAt", isoDate(observation->retrievedAt)},
        {"loadedAtUptime", observation->loadedAtUptime},
        {"expiresAtUptime", observation->expiresAtUptime},
    };
}

QJsonObject failureToJson(const ThreadSourceFailure &failure)
{
    return QJsonObject{
        {"sourceName", failure.sourceName},
        {"state", rawValue(failure.state)},
        {"isUsingCachedSnapshot", failure.isUsingCachedSnapshot},
        {"provider",
         failure.provider ? QJsonValue(rawValue(*failure.provider)) : QJsonValue(QJsonValue::Null)},
        {"component", failure.component ? QJsonValue(rawValue(*failure.component))
                                        : QJsonValue(QJsonValue::Null)},
        {"isExpectedLimitation", failure.isExpectedLimitation},
    };
}

} // namespace

QString isoDate(const QDateTime &date)
{
    if (!date.isValid())
        return {};
    return date.toUTC().toString(Qt::ISODateWithMs);
}

QJsonObject threadToJson(const RackThread &thread)
{
    const RackProjectIdentity &project = thread.projectIdentity;
    const RackCheckoutMetadata &checkout = thread.checkoutMetadata;
    return QJsonObject{
        {"id", thread.id},
        {"provider", rawValue(thread.provider)},
        {"providerThreadID", thread.providerThreadID},
        {"codexDesktopIdentity",
         thread.codexDesktopIdentity
             ? QJsonValue(QJsonObject{{"accountScope", thread.codexDesktopIdentity->accountScope}})
             : QJsonValue(QJsonValue::Null)},
        {"recordedTurnObservation", observationToJson(thread.recordedTurnObservation)},
        // Computed now: a recorded turn runs out with the uptime.
        {"recordedTurnLabel", thread.recordedTurnLabel(SystemClock::shared().uptime())},
        {"hasLiveCloudStatus", thread.hasLiveCloudStatus},
        {"title", thread.title},
        {"preview", thread.preview},
        {"workspacePath", thread.workspacePath},
        {"projectIdentity", QJsonObject{{"id", project.id},
                                        {"name", project.name},
                                        {"workspacePath", project.workspacePath},
                                        {"aliases", sortedStrings(project.aliases)},
                                        {"dot", dotToJson(project.dot)}}},
        {"updatedAt", isoDate(thread.updatedAt)},
        {"recencyAt", isoDate(thread.recencyAt)},
        {"status", rawValue(thread.status)},
        {"source", thread.source},
        {"isProviderFocused", thread.isProviderFocused},
        {"checkoutMetadata",
         QJsonObject{{"kind", rawValue(checkout.kind)},
                     {"checkoutRootPath", optionalString(checkout.checkoutRootPath)},
                     {"gitDirectoryPath", optionalString(checkout.gitDirectoryPath)},
                     {"commonDirectoryPath", optionalString(checkout.commonDirectoryPath)}}},
        {"lineage", QJsonObject{{"parentTitle", optionalString(thread.lineage.parentTitle)},
                                {"childCount", thread.lineage.childCount}}},
        {"shortLabel", thread.shortLabel()},
        {"accessibilityLabel", thread.accessibilityLabel()},
    };
}

QJsonObject rackToJson(const RackStore &store)
{
    QJsonArray failures;
    for (const ThreadSourceFailure &failure : store.sourceFailures())
        failures.append(failureToJson(failure));
    QJsonArray threads;
    for (const RackThread &thread : store.rankedThreads())
        threads.append(threadToJson(thread));
    QJsonArray projects;
    for (const RackProjectGroup &group : store.projectGroups()) {
        QJsonArray providers;
        for (RackProvider provider : allProviders) {
            if (group.providers.contains(provider))
                providers.append(rawValue(provider));
        }
        QJsonArray threadIDs;
        for (const RackThread &thread : group.threads)
            threadIDs.append(thread.id);
        projects.append(QJsonObject{{"id", group.id},
                                    {"name", group.name},
                                    {"workspacePath", group.workspacePath},
                                    {"providers", providers},
                                    {"threadIDs", threadIDs}});
    }
    return QJsonObject{
        {"dataState", rawValue(store.dataState())},
        {"sourceDescription", store.sourceDescription()},
        {"sourceFailures", failures},
        {"mode", rawValue(store.organizationMode())},
        {"threads", threads},
        {"projects", projects},
    };
}

} // namespace taskrack
