#pragma once

// What the open rack says and shows, as plain functions of the store and a few facts about
// the rest of the program: the rows of the key strip and the project rail, the header's status
// line and banner, the empty states, the footer's help. The view model only packs these for
// QML; keeping them here makes every text testable without a window.

#include "core/rackstore.h"

#include <QVariantMap>

namespace taskrack {

// How the shortcuts of the rack are written for a person, e.g. "Ctrl+G".
struct RackShortcutNames
{
    QString toggleOrganization;
    QString markPageRead;
    QString togglePageLock;
    QString showRack;

    bool operator==(const RackShortcutNames &) const = default;
};

// What the onboarding depends on outside the store.
struct RackOnboardingFacts
{
    bool hasMadeSetupChoice = true;
    bool isEnhancedShortcutEnabled = false;
    bool isEnhancedShortcutReady = false;
    bool hasMadeClaudeChoice = true;
    bool isClaudeBusy = false;
    std::optional<QString> claudeError;

    bool operator==(const RackOnboardingFacts &) const = default;
};

enum class RackOnboarding { none, input, claude };

RackOnboarding onboardingFor(const RackOnboardingFacts &facts, const QList<RackThread> &threads);

// What fills the middle of the rack.
enum class RackContent {
    keys,
    loading,
    failed,
    empty,
    activityEmpty,
    searchEmpty,
    inputSetup,
    claudeSetup
};

RackContent contentFor(const RackStore &store, RackOnboarding onboarding);
QString rawValue(RackContent content);

QString bannerText(const QList<ThreadSourceFailure> &failures);
QString statusLine(const RackStore &store);
QString helpText(const RackStore &store, bool isGestureReady, const RackShortcutNames &names);
QString keyAccessibilityText(const RackThread &thread);
QString lineageText(const RackThread &thread);

// Always six: threads of the page, empty keys, and in project mode the new-task key last.
QList<QVariantMap> keyStripRows(const RackStore &store);
QList<QVariantMap> projectRailRows(const RackStore &store);
QStringList keyStripRoles();
QStringList projectRailRoles();

} // namespace taskrack
