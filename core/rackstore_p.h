#pragma once

// The preference keys under which the store keeps what a person chose, for the store's sources
// only.

#include <QString>

namespace taskrack::rackstorekeys {

inline const QString cycleCurrentPageOnly = QStringLiteral("cycleCurrentPageOnly");
inline const QString selectPreviousOnReveal = QStringLiteral("selectPreviousTaskOnGestureReveal");
inline const QString recentlyOpened = QStringLiteral("recentlyOpenedThreadIDs");
inline const QString lastSelected = QStringLiteral("lastSelectedThreadID");
inline const QString selectedProject = QStringLiteral("selectedProjectID");
inline const QString defaultLayout = QStringLiteral("rackDefaultLayout");

} // namespace taskrack::rackstorekeys
