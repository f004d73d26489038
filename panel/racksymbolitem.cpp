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
    } else if (shape == QLatin1String("warning")) {
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
