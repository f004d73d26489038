#include "panel/rackpanelgeometry.h"

#include <algorithm>

namespace taskrack {

std::optional<RackScreen> RackPanelGeometry::chooseScreen(const QList<RackScreen> &screens,
                                                          std::optional<QPoint> pointer)
{
    if (screens.isEmpty())
        return std::nullopt;
    if (pointer) {
        for (const RackScreen &screen : screens) {
            if (screen.geometry.contains(*pointer))
                return screen;
        }
    }
    for (const RackScreen &screen : screens) {
        if (screen.isPrimary)
            return screen;
    }
    return screens.first();
}

QRect RackPanelGeometry::frame(const QRect &available)
{
    const int width = std::max(0, std::min(available.width() - 2 * sideMargin, maximumWidth));
    const int x = available.x() + (available.width() - width) / 2;
    return QRect(x, available.y() + topOffset, width, height);
}

std::optional<QRect> RackPanelGeometry::frame(const QList<RackScreen> &screens,
                                              std::optional<QPoint> pointer)
{
    const std::optional<RackScreen> screen = chooseScreen(screens, pointer);
    if (!screen)
        return std::nullopt;
    return frame(screen->availableGeometry);
}

} // namespace taskrack
