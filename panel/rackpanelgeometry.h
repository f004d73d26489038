#pragma once

// Where the rack goes: a band across the top of the screen that holds the pointer. Pure
// arithmetic in logical pixels, so every screen arrangement can be checked without one.

#include <QList>
#include <QPoint>
#include <QRect>
#include <optional>

namespace taskrack {

struct RackScreen
{
    QRect geometry;          // the whole screen, for finding the pointer
    QRect availableGeometry; // without panels and docks
    bool isPrimary = false;

    bool operator==(const RackScreen &) const = default;
};

struct RackPanelGeometry
{
    static constexpr int height = 240;
    static constexpr int maximumWidth = 968;
    static constexpr int sideMargin = 24;
    static constexpr int topOffset = 62;

    // The screen under the pointer, else the primary one, else the first; none without screens.
    static std::optional<RackScreen> chooseScreen(const QList<RackScreen> &screens,
                                                  std::optional<QPoint> pointer);
    // The rack's frame on an available area: centred, 48 narrower than the area at most 968
    // wide, its top edge 62 below the area's top.
    static QRect frame(const QRect &available);
    static std::optional<QRect> frame(const QList<RackScreen> &screens,
                                      std::optional<QPoint> pointer);
};

} // namespace taskrack
