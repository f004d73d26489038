#include "input/rackshortcuts.h"

#include "input/hotkeylog.h"
#include "platform/preferences.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace taskrack {

namespace {

std::optional<RackKeyCombo> decodeCombo(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    const QJsonValue keyCode = object.value(QLatin1String("keyCode"));
    const QJsonValue modifierBits = object.value(QLatin1String("modifierBits"));
    if (!keyCode.isDouble() || !modifierBits.isDouble())
        return std::nullopt;
    const qint64 key = keyCode.toInteger(-1);
    const qint64 bits = modifierBits.toInteger(-1);
    if (key < 0 || key > 0xFFFF || bits < 0 || bits > 0xFFFFFFFFll ||
        keyCode.toDouble() != double(key) || modifierBits.toDouble() != double(bits))
        return std::nullopt;
    return RackKeyCombo{quint16(key), quint32(bits)};
}

std::optional<RackShortcutOverrides> decodeOverrides(const QString &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    // A malformed combo spoils the whole set, like any other undecodable value.
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!decodeCombo(it.value()))
            return std::nullopt;
    }
    RackShortcutOverrides overrides;
    for (RackShortcutAction action : allRackShortcutActions) {
        const QJsonValue value = object.value(rawValue(action));
        if (value.isUndefined())
            continue;
        const RackKeyCombo combo = *decodeCombo(value);
        if (combo != defaultCombo(action))
            overrides[action] = combo;
    }
    return overrides;
}

} // namespace

RackKeyCombo effectiveCombo(RackShortcutAction action, const RackShortcutOverrides &overrides)
{
    const auto it = overrides.find(action);
    return it == overrides.end() ? defaultCombo(action) : it->second;
}

RackShortcutOverrides loadShortcuts(const Preferences &defaults)
{
    const std::optional<QString> stored = defaults.string(rackShortcutsKey);
    if (!stored)
        return {};
    const std::optional<RackShortcutOverrides> overrides = decodeOverrides(*stored);
    if (!overrides) {
        qCWarning(lcHotkey) << "Stored shortcuts could not be read; using the defaults";
        return {};
    }
    if (!isValid(*overrides)) {
        qCWarning(lcHotkey) << "Stored shortcuts are invalid or collide; using the defaults";
        return {};
    }
    return *overrides;
}

void saveShortcuts(const RackShortcutOverrides &overrides, Preferences &defaults)
{
    QJsonObject object;
    for (const auto &[action, combo] : overrides) {
        if (combo == defaultCombo(action))
            continue;
        object.insert(rawValue(action),
                      QJsonObject{{QStringLiteral("keyCode"), int(combo.keyCode)},
                                  {QStringLiteral("modifierBits"), qint64(combo.modifierBits)}});
    }
    if (object.isEmpty())
        defaults.remove(rackShortcutsKey);
    else
        defaults.setValue(rackShortcutsKey,
                          QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
    emit RackShortcutNotifications::shared().shortcutsDidChange();
}

RackShortcutOverrides withShortcut(RackShortcutOverrides overrides, RackShortcutAction action,
                                   const RackKeyCombo &combo)
{
    if (combo == defaultCombo(action))
        overrides.erase(action);
    else
        overrides[action] = combo;
    return overrides;
}

std::optional<QString> validationMessage(const RackKeyCombo &combo, RackShortcutAction action,
                                         const RackShortcutOverrides &overrides)
{
    const QString useModifiers =
        QStringLiteral("Use Ctrl, Alt or Super with a letter, number or function key.");
    if (!(combo.modifierBits & RackModifier::qualifying))
        return useModifiers;
    // Reserved combos use keys outside the list (Escape, the arrows up and down): they are named
    // as reserved rather than as a wrong key.
    if (isReservedRackCombo(combo))
        return displayName(combo) + QStringLiteral(" is reserved for rack navigation.");
    if (!isAllowedRackKey(combo.keyCode))
        return useModifiers;
    for (RackShortcutAction other : allRackShortcutActions) {
        if (other != action && effectiveCombo(other, overrides) == combo)
            return displayName(combo) + QStringLiteral(" is already used for “") + label(other) +
                   QStringLiteral("”.");
    }
    return std::nullopt;
}

bool isValid(const RackShortcutOverrides &overrides)
{
    for (size_t i = 0; i < allRackShortcutActions.size(); ++i) {
        const RackKeyCombo combo = effectiveCombo(allRackShortcutActions[i], overrides);
        if (!(combo.modifierBits & RackModifier::qualifying) || !isAllowedRackKey(combo.keyCode) ||
            isReservedRackCombo(combo))
            return false;
        for (size_t j = i + 1; j < allRackShortcutActions.size(); ++j) {
            if (effectiveCombo(allRackShortcutActions[j], overrides) == combo)
                return false;
        }
    }
    return true;
}

RackShortcutNotifications &RackShortcutNotifications::shared()
{
    static RackShortcutNotifications notifications;
    return notifications;
}

} // namespace taskrack
