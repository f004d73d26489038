#include "core/rackthread.h"

#include "core/threadsource.h"

namespace taskrack {

QString rawValue(RackProvider provider)
{
    return provider == RackProvider::codex ? QStringLiteral("codex") : QStringLiteral("claude");
}

QString displayName(RackProvider provider)
{
    return provider == RackProvider::codex ? QStringLiteral("Codex") : QStringLiteral("Claude");
}

std::optional<RackProvider> providerFromRaw(const QString &raw)
{
    for (RackProvider provider : allProviders) {
        if (rawValue(provider) == raw)
            return provider;
    }
    return std::nullopt;
}

QString rawValue(RackStatus status)
{
    switch (status) {
    case RackStatus::requiresInput:
        return QStringLiteral("requiresInput");
    case RackStatus::error:
        return QStringLiteral("error");
    case RackStatus::working:
        return QStringLiteral("working");
    case RackStatus::completed:
        return QStringLiteral("completed");
    case RackStatus::idle:
        return QStringLiteral("idle");
    case RackStatus::recent:
        return QStringLiteral("recent");
    }
    return {};
}

std::optional<RackStatus> statusFromRaw(const QString &raw)
{
    for (RackStatus status : allStatuses) {
        if (rawValue(status) == raw)
            return status;
    }
    return std::nullopt;
}

int statusRank(RackStatus status)
{
    switch (status) {
    case RackStatus::working:
        return 0;
    case RackStatus::requiresInput:
        return 1;
    case RackStatus::error:
        return 2;
    case RackStatus::completed:
        return 3;
    case RackStatus::idle:
        return 4;
    case RackStatus::recent:
        return 5;
    }
    return 5;
}

QString shortLabel(RackStatus status)
{
    switch (status) {
    case RackStatus::requiresInput:
        return QStringLiteral("Input");
    case RackStatus::error:
        return QStringLiteral("Error");
    case RackStatus::working:
        return QStringLiteral("Working");
    case RackStatus::completed:
        return QStringLiteral("Done");
    case RackStatus::idle:
        return QStringLiteral("Idle");
    case RackStatus::recent:
        return QStringLiteral("Recent");
    }
    return {};
}

QString accessibilityLabel(RackStatus status)
{
    if (status == RackStatus::completed)
        return QStringLiteral("completed and unread");
    return shortLabel(status);
}

bool RackThread::isRecordedWithoutLiveStatus() const
{
    return status == RackStatus::recent && codexDesktopIdentity.has_value() && !hasLiveCloudStatus;
}

QString RackThread::searchText() const
{
    return QStringList{title,
                       preview,
                       displayName(provider),
                       projectIdentity.name,
                       workspacePath,
                       projectIdentity.workspacePath,
                       checkoutLabel(checkoutMetadata.kind)}
        .join(QLatin1Char(' '));
}

QString RackThread::shortLabel() const
{
    if (isRecordedWithoutLiveStatus())
        return QStringLiteral("Recorded");
    return taskrack::shortLabel(status);
}

QString RackThread::accessibilityLabel() const
{
    if (isRecordedWithoutLiveStatus())
        return QStringLiteral("Recorded task; current execution status unavailable");
    return taskrack::accessibilityLabel(status);
}

QString RackThread::recordedTurnLabel(double uptime) const
{
    if (!isRecordedWithoutLiveStatus() || !recordedTurnObservation)
        return {};
    if (uptime >= recordedTurnObservation->expiresAtUptime)
        return QStringLiteral("Recorded: Unknown (expired)");
    switch (recordedTurnObservation->status) {
    case RackRecordedTurnStatus::inProgress:
        return QStringLiteral("Recorded: In progress");
    case RackRecordedTurnStatus::completed:
        return QStringLiteral("Recorded: Completed");
    case RackRecordedTurnStatus::interrupted:
        return QStringLiteral("Recorded: Interrupted");
    case RackRecordedTurnStatus::failed:
        return QStringLiteral("Recorded: Failed");
    case RackRecordedTurnStatus::unknown:
        break;
    }
    return QStringLiteral("Recorded: Unknown");
}

ThreadOpeningError::ThreadOpeningError(Kind kind, RackProvider provider)
    : TaskrackError(kind == Kind::invalidIdentifier
                        ? displayName(provider) +
                              QStringLiteral(" returned an invalid task identifier.")
                        : QStringLiteral("The ") + displayName(provider) +
                              QStringLiteral(" app could not open this task.")),
      m_kind(kind), m_provider(provider)
{
}

} // namespace taskrack
