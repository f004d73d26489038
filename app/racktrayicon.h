#pragma once

// The tray item's picture, drawn rather than taken from an icon theme so that it looks the same
// on every desktop: a small rack of three cards, legible on light and dark panels, with a badge
// for what waits on the person. The same painter makes the installed application icons.

#include "core/rackthread.h"

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QString>

namespace taskrack {

class RackStore;

struct RackAttentionCounts
{
    int requiresInput = 0;
    int error = 0;
    int unreadCompleted = 0;
    int working = 0;
    bool loading = false;

    int badgeCount() const { return requiresInput + error + unreadCompleted; }
    bool operator==(const RackAttentionCounts &) const = default;

    static RackAttentionCounts of(const RackStore &store);
    // "2 need input · 1 error · 3 done", or "Loading tasks…".
    QString statusLine() const;
    // Counts only: no title, project or path ever shows outside the rack.
    QString toolTip() const;
};

class RackTrayIcon
{
public:
    static QColor statusColor(RackStatus status);
    // The most urgent kind among the counted ones, for the badge's colour.
    static QColor badgeColor(const RackAttentionCounts &counts);
    static QString badgeText(int count);

    // One square picture of `pixels` device pixels.
    static QImage paint(int pixels, const RackAttentionCounts &counts);
    // Every size a panel may ask for (16 to 64 pixels, doubled for HiDPI).
    static QIcon icon(const RackAttentionCounts &counts);
};

} // namespace taskrack
