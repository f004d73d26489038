#pragma once

// Every symbol the rack shows is drawn here as a path, never taken from a font: status dots,
// the project avatars' silhouettes, and the few marks of the chrome. A font without the glyph
// would otherwise show an empty box.

#include <QColor>
#include <QPainterPath>
#include <QQuickPaintedItem>

namespace taskrack {

class RackSymbolItem : public QQuickPaintedItem
{
    Q_OBJECT
    // A silhouette's raw value (RackDotAppearance), or one of: "dot", "ring", "plus",
    // "search", "warning", "branch", "lineage"; and the Quick Task panel's marks ("mic.fill",
    // "waveform", "keyboard", "checkmark.circle.fill", "folder", …).
    Q_PROPERTY(QString shape READ shape WRITE setShape NOTIFY shapeChanged)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)

public:
    explicit RackSymbolItem(QQuickItem *parent = nullptr);

    QString shape() const { return m_shape; }
    void setShape(const QString &shape);
    QColor color() const { return m_color; }
    void setColor(const QColor &color);

    void paint(QPainter *painter) override;

    // The outline of a shape in a box; empty for an unknown name. Stroked shapes say so.
    static QPainterPath path(const QString &shape, const QRectF &box, bool *stroked = nullptr);

    static void registerType();

signals:
    void shapeChanged();
    void colorChanged();

private:
    QString m_shape = QStringLiteral("dot");
    QColor m_color = Qt::black;
};

} // namespace taskrack
