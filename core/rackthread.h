#pragma once

// One coding task of either provider, its live state, and the small value types it carries.
// Everything here is a plain value that may be handed between threads freely.

#include "core/rackproject.h"

#include <QDateTime>
#include <QString>
#include <QUuid>
#include <optional>

namespace taskrack {

enum class RackProvider { codex, claudeDesktop };

inline constexpr RackProvider allProviders[] = {RackProvider::codex, RackProvider::claudeDesktop};

QString rawValue(RackProvider provider);
QString displayName(RackProvider provider);
std::optional<RackProvider> providerFromRaw(const QString &raw);

// Declaration order matters: the completion ledger compares cases by position. The ranking
// uses statusRank() instead, so that running tasks stand above blocked ones.
enum class RackStatus { requiresInput, error, working, completed, idle, recent };

inline constexpr RackStatus allStatuses[] = {RackStatus::requiresInput, RackStatus::error,
                                             RackStatus::working,       RackStatus::completed,
                                             RackStatus::idle,          RackStatus::recent};

QString rawValue(RackStatus status);
std::optional<RackStatus> statusFromRaw(const QString &raw);
int statusRank(RackStatus status);
QString shortLabel(RackStatus status);
QString accessibilityLabel(RackStatus status);

// The account scope of a thread that came from the Codex desktop catalog.
struct CodexDesktopIdentity
{
    QString accountScope;

    bool operator==(const CodexDesktopIdentity &) const = default;
};

enum class RackRecordedTurnStatus { inProgress, completed, interrupted, failed, unknown };

struct RackRecordedTurnObservation
{
    CodexDesktopIdentity identity;
    QString threadID;
    QUuid latestTurnID;
    RackRecordedTurnStatus status = RackRecordedTurnStatus::unknown;
    QDateTime retrievedAt;
    double loadedAtUptime = 0;
    double expiresAtUptime = 0;

    bool operator==(const RackRecordedTurnObservation &) const = default;
};

struct RackThread
{
    QString id;
    RackProvider provider = RackProvider::codex;
    QString providerThreadID;
    std::optional<CodexDesktopIdentity> codexDesktopIdentity;
    std::optional<RackRecordedTurnObservation> recordedTurnObservation;
    bool hasLiveCloudStatus = false;
    QString title;
    QString preview;
    QString workspacePath;
    RackProjectIdentity projectIdentity;
    QDateTime updatedAt;
    QDateTime recencyAt;
    RackStatus status = RackStatus::recent;
    QString source;
    bool isProviderFocused = false;
    RackCheckoutMetadata checkoutMetadata;
    RackThreadLineage lineage;

    bool operator==(const RackThread &) const = default;

    // What a search matches against: title, preview, provider, project and folders.
    QString searchText() const;
    QString shortLabel() const;
    QString accessibilityLabel() const;
    // The recorded turn of a desktop thread without live status, "Recorded: In progress" and
    // the like, or "Recorded: Unknown (expired)" once its short life has passed; empty otherwise.
    // Computed when shown: whether it expired depends on the uptime of that moment.
    QString recordedTurnLabel(double uptime) const;

private:
    bool isRecordedWithoutLiveStatus() const;
};

// The identifier prefix of Codex threads in the store.
inline const QString codexThreadPrefix = QStringLiteral("codex:");

} // namespace taskrack
