#include "app/racktrayicon.h"

#include "core/rackstore.h"

#include <QFont>
#include <QPainter>
#include <QPainterPath>

namespace taskrack {

RackAttentionCounts RackAttentionCounts::of(const RackStore &store)
{
    RackAttentionCounts counts;
    counts.loading = store.dataState() == RackDataState::loading;
    for (const RackThread &thread : store.allThreads()) {
        switch (thread.status) {
        case RackStatus::requiresInput:
            ++counts.requiresInput;
            break;
        case RackStatus::error:
            ++counts.error;
            break;
        case RackStatus::working:
            ++counts.working;
            break;
        case RackStatus::completed:
            if (store.completionLedger().unreadCompletionAt(thread))
                ++counts.unreadCompleted;
            break;
        default:
            break;
        }
    }
    return counts;
}

QString RackAttentionCounts::statusLine() const
{
    if (loading)
        return QStringLiteral("Loading tasks…");
    QStringList parts;
    if (requiresInput > 0)
        parts << QStringLiteral("%1 need input").arg(requiresInput);
    if (error > 0)
        parts << (error == 1 ? QStringLiteral("1 error") : QStringLiteral("%1 errors").arg(error));
    if (unreadCompleted > 0)
        parts << QStringLiteral("%1 done").arg(unreadCompleted);
    if (working > 0)
        parts << QStringLiteral("%1 working").arg(working);
    if (parts.isEmpty())
        return QStringLiteral("Nothing needs you");
    return parts.join(QStringLiteral(" · "));
}

QString RackAttentionCounts::toolTip() const
{
    return QStringLiteral("Taskrack\n") + statusLine();
}

QColor RackTrayIcon::statusColor(RackStatus status)
{
    switch (status) {
    case RackStatus::requiresInput:
        return QColor(0xF5, 0x9E, 0x0B);
    case RackStatus::error:
        return QColor(0xE5, 0x48, 0x4D);
    case RackStatus::completed:
        return QColor(0x2E, 0xA0, 0x43);
    case RackStatus::working:
        return QColor(0x3B, 0x82, 0xF6);
    default:
        return QColor(0x8A, 0x8F, 0x98);
    }
}

QColor RackTrayIcon::badgeColor(const RackAttentionCounts &counts)
{
    if (counts.requiresInput > 0)
        return statusColor(RackStatus::requiresInput);
    if (counts.error > 0)
        return statusColor(RackStatus::error);
    if (counts.unreadCompleted > 0)
        return statusColor(RackStatus::completed);
    return statusColor(RackStatus::working);
}

QString RackTrayIcon::badgeText(int count)
{
    return count > 9 ? QStringLiteral("9+") : QString::number(count);
}

QImage RackTrayIcon::paint(int pixels, const RackAttentionCounts &counts)
{
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal unit = pixels / 16.0;

    // Three cards, each a light face with a dark rim: one of the two always stands out from
    // the panel behind it.
    const QColor face(0xF1, 0xF3, 0xF5);
    const QColor rim(0x24, 0x29, 0x30);
    const qreal rimWidth = qMax(1.0, unit * 0.9);
    const qreal left = unit * 1.5;
    const qreal width = pixels - 2 * left;
    const qreal cardHeight = unit * 3.6;
    const qreal gap = unit * 1.1;
    const qreal top = (pixels - (3 * cardHeight + 2 * gap)) / 2;
    painter.setPen(QPen(rim, rimWidth));
    for (int row = 0; row < 3; ++row) {
        const QRectF card(left, top + row * (cardHeight + gap), width, cardHeight);
        painter.setBrush(face);
        painter.drawRoundedRect(
            card.adjusted(rimWidth / 2, rimWidth / 2, -rimWidth / 2, -rimWidth / 2), unit * 1.1,
            unit * 1.1);
    }

    const int count = counts.badgeCount();
    if (count == 0 && counts.working == 0)
        return image;
    const QColor color = badgeColor(counts);
    painter.setPen(QPen(rim, rimWidth));
    painter.setBrush(color);
    if (count == 0) {
        // Only working: a dot, no number.
        const qreal diameter = unit * 6.5;
        painter.drawEllipse(QRectF(pixels - diameter - unit * 0.3, pixels - diameter - unit * 0.3,
                                   diameter, diameter));
        return image;
    }
    const QString text = badgeText(count);
    // Small panels get a proportionally larger badge: a figure under 8 pixels is a smudge.
    const qreal share = pixels <= 24 ? 0.72 : 0.6;
    const qreal height = pixels * share;
    const qreal badgeWidth = text.size() > 1 ? qMin(qreal(pixels), height * 1.45) : height;
    const QRectF badge(pixels - badgeWidth, pixels - height, badgeWidth, height);
    painter.drawRoundedRect(
        badge.adjusted(rimWidth / 2, rimWidth / 2, -rimWidth / 2, -rimWidth / 2), height / 2,
        height / 2);
    QFont font;
    font.setBold(true);
    font.setPixelSize(qMax(7, int(height * (text.size() > 1 ? 0.72 : 0.82))));
    painter.setFont(font);
    // Dark figures on amber, white on the darker colours.
    painter.setPen(counts.requiresInput > 0 ? rim : QColor(Qt::white));
    painter.drawText(badge, Qt::AlignCenter, text);
    return image;
}

QIcon RackTrayIcon::icon(const RackAttentionCounts &counts)
{
    QIcon icon;
    for (int size : {12, 14, 16, 18, 20, 22, 24, 32, 48, 64, 128})
        icon.addPixmap(QPixmap::fromImage(paint(size, counts)));
    return icon;
}

} // namespace taskrack
