#include "panel/rackpalette.h"

#include <QGuiApplication>
#include <QHash>
#include <QPalette>
#include <cmath>

namespace taskrack {

namespace {

QColor pick(bool dark, const char *light, const char *darkColour)
{
    return QColor(QLatin1String(dark ? darkColour : light));
}

double luminance(const QColor &colour)
{
    auto channel = [](double c) {
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(colour.redF()) + 0.7152 * channel(colour.greenF()) +
           0.0722 * channel(colour.blueF());
}

struct Pair
{
    const char *light;
    const char *dark;
};

} // namespace

RackPalette::RackPalette(QObject *parent) : QObject(parent) {}

void RackPalette::setDark(bool dark)
{
    if (dark == m_dark)
        return;
    m_dark = dark;
    emit changed();
}

void RackPalette::followApplicationPalette()
{
    setDark(QGuiApplication::palette().color(QPalette::Window).lightnessF() < 0.5);
}

QColor RackPalette::background() const
{
    return pick(m_dark, "#eef0f4", "#1a1c21");
}
QColor RackPalette::backgroundEnd() const
{
    return pick(m_dark, "#e2e6ee", "#23262e");
}
QColor RackPalette::card() const
{
    return pick(m_dark, "#ffffff", "#2a2d35");
}
QColor RackPalette::emptyCard() const
{
    return pick(m_dark, "#f6f7f9", "#22252c");
}
QColor RackPalette::border() const
{
    return pick(m_dark, "#cfd4dc", "#3b3f49");
}
QColor RackPalette::text() const
{
    return pick(m_dark, "#1b1d21", "#eceef2");
}
QColor RackPalette::secondaryText() const
{
    return pick(m_dark, "#535a66", "#aab0bb");
}
QColor RackPalette::accent() const
{
    return pick(m_dark, "#1f5fd6", "#6ea8ff");
}
QColor RackPalette::selectionFill() const
{
    return pick(m_dark, "#e4edfd", "#263a5c");
}
QColor RackPalette::warning() const
{
    return pick(m_dark, "#8a4b00", "#f2b456");
}
QColor RackPalette::warningFill() const
{
    return pick(m_dark, "#fff3dc", "#3a2f1c");
}

QColor RackPalette::statusColor(const QString &status) const
{
    static const QHash<QString, Pair> colours{
        {QStringLiteral("working"), {"#1f6feb", "#58a6ff"}},
        {QStringLiteral("requiresInput"), {"#b35c00", "#f0a030"}},
        {QStringLiteral("error"), {"#c62828", "#ff6b6b"}},
        {QStringLiteral("completed"), {"#1e7d32", "#4cc36a"}},
        {QStringLiteral("idle"), {"#5f6670", "#9aa3af"}},
        {QStringLiteral("recent"), {"#7c838e", "#858d99"}},
    };
    const Pair pair = colours.value(status, {"#7c838e", "#858d99"});
    return pick(m_dark, pair.light, pair.dark);
}

QColor RackPalette::tintColor(const QString &tint) const
{
    static const QHash<QString, Pair> colours{
        {QStringLiteral("gray"), {"#6b7280", "#9aa3af"}},
        {QStringLiteral("cyan"), {"#0b7f96", "#3cc8e0"}},
        {QStringLiteral("yellow"), {"#977000", "#e8c340"}},
        {QStringLiteral("orchid"), {"#a33fb4", "#d98be6"}},
        {QStringLiteral("lime"), {"#557f00", "#a6d94a"}},
        {QStringLiteral("pink"), {"#c92a76", "#ff7ab6"}},
        {QStringLiteral("coral"), {"#c9432b", "#ff8a70"}},
        {QStringLiteral("teal"), {"#0d7f72", "#3ccfb8"}},
        {QStringLiteral("blue"), {"#2f6feb", "#6ea8ff"}},
        {QStringLiteral("violet"), {"#7044d0", "#ae8cff"}},
    };
    const Pair pair = colours.value(tint, {"#6b7280", "#9aa3af"});
    return pick(m_dark, pair.light, pair.dark);
}

double RackPalette::contrast(const QColor &a, const QColor &b)
{
    const double la = luminance(a) + 0.05;
    const double lb = luminance(b) + 0.05;
    return la > lb ? la / lb : lb / la;
}

} // namespace taskrack
