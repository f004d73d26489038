#include "panel/racksymbolitem.h"

#include <QPainter>
#include <QtMath>
#include <QtQml/qqml.h>

namespace taskrack {

namespace {

// Builds shapes in a unit box and maps them into the target box.
QPainterPath scaled(const QPainterPath &unit, const QRectF &box)
{
    QTransform transform;
    transform.translate(box.x(), box.y());
    transform.scale(box.width(), box.height());
    return transform.map(unit);
}

QPainterPath lobes(int count, double centreRadius, double lobeRadius, double ringRadius)
{
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    path.addEllipse(QPointF(0.5, 0.5), centreRadius, centreRadius);
    for (int i = 0; i < count; ++i) {
        const double angle = 2 * M_PI * i / count - M_PI / 2;
        const QPointF centre(0.5 + ringRadius * std::cos(angle),
                             0.5 + ringRadius * std::sin(angle));
        path.addEllipse(centre, lobeRadius, lobeRadius);
    }
    return path.simplified();
}

QPainterPath heart()
{
    QPainterPath path;
    path.moveTo(0.5, 0.92);
    path.cubicTo(0.18, 0.70, 0.02, 0.50, 0.06, 0.30);
    path.cubicTo(0.10, 0.10, 0.38, 0.04, 0.5, 0.26);
    path.cubicTo(0.62, 0.04, 0.90, 0.10, 0.94, 0.30);
    path.cubicTo(0.98, 0.50, 0.82, 0.70, 0.5, 0.92);
    path.closeSubpath();
    return path;
}

QPainterPath roundedPolygon(const QList<QPointF> &corners, double radius)
{
    QPainterPath path;
    const qsizetype n = corners.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QPointF previous = corners.at((i + n - 1) % n);
        const QPointF corner = corners.at(i);
        const QPointF next = corners.at((i + 1) % n);
        const QPointF in = corner + (previous - corner) * radius;
        const QPointF out = corner + (next - corner) * radius;
        if (i == 0)
            path.moveTo(in);
        else
            path.lineTo(in);
        path.quadTo(corner, out);
    }
    path.closeSubpath();
    return path;
}

// The marks of the Quick Task panel: its voice key, its buttons and its notices.
QPainterPath composerPath(const QString &shape, bool &stroked)
{
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    auto microphone = [&path] {
        path.addRoundedRect(QRectF(0.36, 0.06, 0.28, 0.5), 0.14, 0.14);
        QPainterPath cup;
        cup.moveTo(0.22, 0.42);
        cup.cubicTo(0.22, 0.82, 0.78, 0.82, 0.78, 0.42);
        QPainterPathStroker stroker;
        stroker.setWidth(0.08);
        stroker.setCapStyle(Qt::RoundCap);
        path.addPath(stroker.createStroke(cup));
        path.addRoundedRect(QRectF(0.46, 0.72, 0.08, 0.16), 0.03, 0.03);
        path.addRoundedRect(QRectF(0.32, 0.86, 0.36, 0.08), 0.04, 0.04);
    };
    auto waveform = [&path](double scale) {
        const double heights[] = {0.24, 0.5, 0.78, 0.5, 0.32};
        for (int i = 0; i < 5; ++i) {
            const double h = heights[i] * scale;
            path.addRoundedRect(QRectF(0.08 + i * 0.18, 0.5 - h / 2, 0.1, h), 0.05, 0.05);
        }
    };
    if (shape == QLatin1String("mic.fill")) {
        microphone();
    } else if (shape == QLatin1String("mic.slash.fill")) {
        microphone();
        QPainterPath slash;
        slash.moveTo(0.12, 0.1);
        slash.lineTo(0.9, 0.92);
        QPainterPathStroker stroker;
        stroker.setWidth(0.2);
        path = path.subtracted(stroker.createStroke(slash));
        stroker.setWidth(0.08);
        stroker.setCapStyle(Qt::RoundCap);
        path.addPath(stroker.createStroke(slash));
    } else if (shape == QLatin1String("waveform")) {
        waveform(1.0);
    } else if (shape == QLatin1String("waveform.badge.plus")) {
        waveform(0.8);
        path = path.subtracted([] {
            QPainterPath clear;
            clear.addEllipse(QPointF(0.78, 0.78), 0.24, 0.24);
            return clear;
        }());
        path.addRoundedRect(QRectF(0.755, 0.6, 0.05, 0.36), 0.025, 0.025);
        path.addRoundedRect(QRectF(0.6, 0.755, 0.36, 0.05), 0.025, 0.025);
    } else if (shape == QLatin1String("pause.fill")) {
        path.addRoundedRect(QRectF(0.2, 0.12, 0.2, 0.76), 0.06, 0.06);
        path.addRoundedRect(QRectF(0.6, 0.12, 0.2, 0.76), 0.06, 0.06);
    } else if (shape == QLatin1String("keyboard")) {
        path.addRoundedRect(QRectF(0.04, 0.2, 0.92, 0.6), 0.1, 0.1);
        QPainterPath keys;
        for (int row = 0; row < 2; ++row) {
            for (int column = 0; column < 5; ++column)
                keys.addRect(QRectF(0.12 + column * 0.16, 0.28 + row * 0.14, 0.1, 0.09));
        }
        keys.addRect(QRectF(0.26, 0.6, 0.48, 0.09));
        path = path.subtracted(keys);
    } else if (shape == QLatin1String("arrow.down")) {
        path.addRoundedRect(QRectF(0.44, 0.08, 0.12, 0.62), 0.06, 0.06);
        path.addPath(roundedPolygon({{0.2, 0.52}, {0.8, 0.52}, {0.5, 0.9}}, 0.12));
        path = path.simplified();
    } else if (shape == QLatin1String("arrow.clockwise")) {
        stroked = true;
        path.arcMoveTo(QRectF(0.16, 0.16, 0.68, 0.68), 60);
        path.arcTo(QRectF(0.16, 0.16, 0.68, 0.68), 60, 300);
        path.moveTo(0.56, 0.1);
        path.lineTo(0.7, 0.2);
        path.lineTo(0.58, 0.34);
    } else if (shape == QLatin1String("trash")) {
        path.addRoundedRect(QRectF(0.1, 0.16, 0.8, 0.1), 0.04, 0.04);
        path.addRoundedRect(QRectF(0.38, 0.06, 0.24, 0.12), 0.04, 0.04);
        path.addPath(roundedPolygon({{0.18, 0.3}, {0.82, 0.3}, {0.76, 0.94}, {0.24, 0.94}}, 0.1));
        path = path.simplified();
    } else if (shape == QLatin1String("checkmark.circle.fill")) {
        path.addEllipse(QPointF(0.5, 0.5), 0.46, 0.46);
        QPainterPath check;
        check.moveTo(0.28, 0.52);
        check.lineTo(0.44, 0.68);
        check.lineTo(0.73, 0.36);
        QPainterPathStroker stroker;
        stroker.setWidth(0.11);
        stroker.setCapStyle(Qt::RoundCap);
        stroker.setJoinStyle(Qt::RoundJoin);
        path = path.subtracted(stroker.createStroke(check));
    } else if (shape == QLatin1String("folder")) {
        path.addPath(roundedPolygon(
            {{0.06, 0.2}, {0.4, 0.2}, {0.5, 0.3}, {0.94, 0.3}, {0.94, 0.84}, {0.06, 0.84}}, 0.1));
    } else if (shape == QLatin1String("chevron.down")) {
        stroked = true;
        path.moveTo(0.22, 0.38);
        path.lineTo(0.5, 0.66);
        path.lineTo(0.78, 0.38);
    } else if (shape == QLatin1String("pin")) {
        path.addEllipse(QPointF(0.5, 0.32), 0.24, 0.24);
        path.addPath(roundedPolygon({{0.34, 0.46}, {0.66, 0.46}, {0.5, 0.96}}, 0.1));
        path = path.simplified();
    }
    return path;
}

QPainterPath unitPath(const QString &shape, bool &stroked)
{
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    stroked = false;
    if (shape == QLatin1String("dot") || shape == QLatin1String("circle")) {
        path.addEllipse(QPointF(0.5, 0.5), 0.42, 0.42);
    } else if (shape == QLatin1String("ring")) {
        path.addEllipse(QPointF(0.5, 0.5), 0.42, 0.42);
        path.addEllipse(QPointF(0.5, 0.5), 0.24, 0.24);
        path.setFillRule(Qt::OddEvenFill);
    } else if (shape == QLatin1String("capsule")) {
        path.addRoundedRect(QRectF(0.06, 0.26, 0.88, 0.48), 0.24, 0.24);
    } else if (shape == QLatin1String("heart")) {
        path = heart();
    } else if (shape == QLatin1String("circle_two_ears")) {
        path.addEllipse(QPointF(0.5, 0.58), 0.36, 0.36);
        path.addEllipse(QPointF(0.2, 0.2), 0.16, 0.16);
        path.addEllipse(QPointF(0.8, 0.2), 0.16, 0.16);
        path = path.simplified();
    } else if (shape == QLatin1String("four_lobed_butterfly")) {
        path.addEllipse(QPointF(0.3, 0.32), 0.22, 0.2);
        path.addEllipse(QPointF(0.7, 0.32), 0.22, 0.2);
        path.addEllipse(QPointF(0.33, 0.7), 0.16, 0.17);
        path.addEllipse(QPointF(0.67, 0.7), 0.16, 0.17);
        path.addRoundedRect(QRectF(0.44, 0.2, 0.12, 0.64), 0.06, 0.06);
        path = path.simplified();
    } else if (shape == QLatin1String("rounded_cube")) {
        path.addRoundedRect(QRectF(0.1, 0.1, 0.8, 0.8), 0.2, 0.2);
    } else if (shape == QLatin1String("rounded_diamond")) {
        path = roundedPolygon({{0.5, 0.04}, {0.96, 0.5}, {0.5, 0.96}, {0.04, 0.5}}, 0.22);
    } else if (shape == QLatin1String("rounded_head_two_ears")) {
        path.addRoundedRect(QRectF(0.12, 0.3, 0.76, 0.62), 0.24, 0.24);
        path.addPath(roundedPolygon({{0.14, 0.04}, {0.42, 0.34}, {0.14, 0.42}}, 0.2));
        path.addPath(roundedPolygon({{0.86, 0.04}, {0.86, 0.42}, {0.58, 0.34}}, 0.2));
        path = path.simplified();
    } else if (shape == QLatin1String("rounded_triangle")) {
        path = roundedPolygon({{0.5, 0.06}, {0.96, 0.88}, {0.04, 0.88}}, 0.2);
    } else if (shape == QLatin1String("six_lobed_flower")) {
        path = lobes(6, 0.22, 0.19, 0.28);
    } else if (shape == QLatin1String("twelve_scalloped_rosette")) {
        path = lobes(12, 0.36, 0.1, 0.36);
    } else if (shape == QLatin1String("plus")) {
        path.addRoundedRect(QRectF(0.42, 0.1, 0.16, 0.8), 0.08, 0.08);
        path.addRoundedRect(QRectF(0.1, 0.42, 0.8, 0.16), 0.08, 0.08);
        path = path.simplified();
    } else if (shape == QLatin1String("warning") ||
               shape == QLatin1String("exclamationmark.triangle.fill")) {
        path = roundedPolygon({{0.5, 0.06}, {0.96, 0.9}, {0.04, 0.9}}, 0.12);
        QPainterPath mark;
        mark.addRoundedRect(QRectF(0.455, 0.34, 0.09, 0.3), 0.04, 0.04);
        mark.addEllipse(QPointF(0.5, 0.75), 0.055, 0.055);
        path = path.subtracted(mark);
    } else if (shape == QLatin1String("search")) {
        stroked = true;
        path.addEllipse(QPointF(0.42, 0.42), 0.28, 0.28);
        path.moveTo(0.62, 0.62);
        path.lineTo(0.9, 0.9);
    } else if (shape == QLatin1String("branch")) {
        stroked = true;
        path.moveTo(0.3, 0.12);
        path.lineTo(0.3, 0.88);
        path.moveTo(0.3, 0.7);
        path.cubicTo(0.3, 0.45, 0.72, 0.5, 0.72, 0.3);
        path.addEllipse(QPointF(0.72, 0.2), 0.1, 0.1);
    } else if (shape == QLatin1String("lineage")) {
        stroked = true;
        path.moveTo(0.2, 0.12);
        path.lineTo(0.2, 0.6);
        path.quadTo(0.2, 0.8, 0.42, 0.8);
        path.lineTo(0.86, 0.8);
        path.moveTo(0.68, 0.62);
        path.lineTo(0.86, 0.8);
        path.lineTo(0.68, 0.98);
    } else {
        path = composerPath(shape, stroked);
    }
    return path;
}

} // namespace

RackSymbolItem::RackSymbolItem(QQuickItem *parent) : QQuickPaintedItem(parent)
{
    setAntialiasing(true);
}

void RackSymbolItem::registerType()
{
    qmlRegisterType<RackSymbolItem>("Taskrack.Panel", 1, 0, "RackSymbol");
}

void RackSymbolItem::setShape(const QString &shape)
{
    if (shape == m_shape)
        return;
    m_shape = shape;
    emit shapeChanged();
    update();
}

void RackSymbolItem::setColor(const QColor &color)
{
    if (color == m_color)
        return;
    m_color = color;
    emit colorChanged();
    update();
}

QPainterPath RackSymbolItem::path(const QString &shape, const QRectF &box, bool *stroked)
{
    bool isStroked = false;
    const QPainterPath unit = unitPath(shape, isStroked);
    if (stroked)
        *stroked = isStroked;
    return scaled(unit, box);
}

void RackSymbolItem::paint(QPainter *painter)
{
    const double side = std::min(width(), height());
    const QRectF box((width() - side) / 2, (height() - side) / 2, side, side);
    bool stroked = false;
    const QPainterPath shape = path(m_shape, box, &stroked);
    painter->setRenderHint(QPainter::Antialiasing);
    if (stroked) {
        QPen pen(m_color, std::max(1.2, side * 0.12), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
        painter->strokePath(shape, pen);
    } else {
        painter->fillPath(shape, m_color);
    }
}

} // namespace taskrack
