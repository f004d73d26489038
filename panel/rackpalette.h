#pragma once

// The rack's colours for a light and a dark desktop. Text keeps at least 4.5:1 against the
// surface it sits on and every dot at least 3:1, in both; the Quick Task panel shares them.

#include <QColor>
#include <QObject>

namespace taskrack {

class RackPalette : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool dark READ isDark NOTIFY changed)
    Q_PROPERTY(QColor background READ background NOTIFY changed)
    Q_PROPERTY(QColor backgroundEnd READ backgroundEnd NOTIFY changed)
    Q_PROPERTY(QColor card READ card NOTIFY changed)
    Q_PROPERTY(QColor emptyCard READ emptyCard NOTIFY changed)
    Q_PROPERTY(QColor border READ border NOTIFY changed)
    Q_PROPERTY(QColor text READ text NOTIFY changed)
    Q_PROPERTY(QColor secondaryText READ secondaryText NOTIFY changed)
    Q_PROPERTY(QColor accent READ accent NOTIFY changed)
    Q_PROPERTY(QColor selectionFill READ selectionFill NOTIFY changed)
    Q_PROPERTY(QColor warning READ warning NOTIFY changed)
    Q_PROPERTY(QColor warningFill READ warningFill NOTIFY changed)

public:
    explicit RackPalette(QObject *parent = nullptr);

    bool isDark() const { return m_dark; }
    void setDark(bool dark);
    // Follows the application palette: dark when its window colour is dark.
    void followApplicationPalette();

    QColor background() const;
    QColor backgroundEnd() const;
    QColor card() const;
    QColor emptyCard() const;
    QColor border() const;
    QColor text() const;
    QColor secondaryText() const;
    QColor accent() const;
    QColor selectionFill() const;
    QColor warning() const;
    QColor warningFill() const;

    // A RackStatus raw value, or a tint raw value of RackDotAppearance.
    Q_INVOKABLE QColor statusColor(const QString &status) const;
    Q_INVOKABLE QColor tintColor(const QString &tint) const;

    static double contrast(const QColor &a, const QColor &b);

signals:
    void changed();

private:
    bool m_dark = false;
};

} // namespace taskrack
