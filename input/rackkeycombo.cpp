#include "input/rackkeycombo.h"

#include <QStringList>
#include <array>

namespace taskrack {

namespace {

struct ModifierName
{
    quint32 bit;
    const char *name;
};

// Display order.
constexpr std::array<ModifierName, 4> modifierNames{{
    {RackModifier::command, "Ctrl"},
    {RackModifier::option, "Alt"},
    {RackModifier::shift, "Shift"},
    {RackModifier::control, "Super"},
}};

constexpr quint16 escapeKey = 53;
constexpr quint16 upArrowKey = 126;
constexpr quint16 downArrowKey = 125;

} // namespace

const std::vector<RackAllowedKey> &rackAllowedKeys()
{
    static const std::vector<RackAllowedKey> keys{
        {0, "A"},     {11, "B"},   {8, "C"},    {2, "D"},    {14, "E"},    {3, "F"},
        {5, "G"},     {4, "H"},    {34, "I"},   {38, "J"},   {40, "K"},    {37, "L"},
        {46, "M"},    {45, "N"},   {31, "O"},   {35, "P"},   {12, "Q"},    {15, "R"},
        {1, "S"},     {17, "T"},   {32, "U"},   {9, "V"},    {13, "W"},    {7, "X"},
        {16, "Y"},    {6, "Z"},    {29, "0"},   {18, "1"},   {19, "2"},    {20, "3"},
        {21, "4"},    {23, "5"},   {22, "6"},   {26, "7"},   {28, "8"},    {25, "9"},
        {43, ","},    {47, "."},   {44, "/"},   {41, ";"},   {39, "'"},    {33, "["},
        {30, "]"},    {42, "\\"},  {27, "-"},   {24, "="},   {50, "`"},    {49, "Space"},
        {48, "Tab"},  {36, "↩"},   {51, "⌫"},   {123, "←"},  {124, "→"},   {126, "↑"},
        {125, "↓"},   {122, "F1"}, {120, "F2"}, {99, "F3"},  {118, "F4"},  {96, "F5"},
        {97, "F6"},   {98, "F7"},  {100, "F8"}, {101, "F9"}, {109, "F10"}, {103, "F11"},
        {111, "F12"},
    };
    return keys;
}

bool isAllowedRackKey(quint16 keyCode)
{
    for (const RackAllowedKey &key : rackAllowedKeys()) {
        if (key.keyCode == keyCode)
            return true;
    }
    return false;
}

QString rackKeyName(quint16 keyCode)
{
    for (const RackAllowedKey &key : rackAllowedKeys()) {
        if (key.keyCode == keyCode)
            return QString::fromUtf8(key.name);
    }
    return QStringLiteral("Key ") + QString::number(keyCode);
}

QString displayName(const RackKeyCombo &combo)
{
    QStringList parts;
    for (const ModifierName &modifier : modifierNames) {
        if (combo.modifierBits & modifier.bit)
            parts.append(QString::fromLatin1(modifier.name));
    }
    parts.append(rackKeyName(combo.keyCode));
    return parts.join(QLatin1Char('+'));
}

std::optional<RackKeyCombo> parseRackKeyCombo(const QString &text)
{
    // Split on "+" by hand: every part but the last is a modifier, and the key may itself be
    // written with blanks ("Key 53").
    const QStringList parts = text.split(QLatin1Char('+'));
    if (parts.isEmpty())
        return std::nullopt;
    RackKeyCombo combo;
    for (qsizetype i = 0; i + 1 < parts.size(); ++i) {
        const QString part = parts.at(i).trimmed();
        bool known = false;
        for (const ModifierName &modifier : modifierNames) {
            if (part.compare(QLatin1String(modifier.name), Qt::CaseInsensitive) == 0) {
                if (combo.modifierBits & modifier.bit)
                    return std::nullopt;
                combo.modifierBits |= modifier.bit;
                known = true;
            }
        }
        if (!known)
            return std::nullopt;
    }
    const QString key = parts.last().trimmed();
    if (key.isEmpty())
        return std::nullopt;
    for (const RackAllowedKey &allowed : rackAllowedKeys()) {
        if (key.compare(QString::fromUtf8(allowed.name), Qt::CaseInsensitive) == 0) {
            combo.keyCode = allowed.keyCode;
            return combo;
        }
    }
    if (key.startsWith(QLatin1String("key "), Qt::CaseInsensitive)) {
        bool ok = false;
        const uint code = key.mid(4).trimmed().toUInt(&ok);
        if (ok && code <= 0xFFFF) {
            combo.keyCode = quint16(code);
            return combo;
        }
    }
    return std::nullopt;
}

bool isReservedRackCombo(const RackKeyCombo &combo)
{
    if (combo.modifierBits != RackModifier::command)
        return false;
    return combo.keyCode == escapeKey || combo.keyCode == upArrowKey ||
           combo.keyCode == downArrowKey;
}

} // namespace taskrack
