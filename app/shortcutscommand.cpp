#include "app/shortcutscommand.h"

#include "input/rackshortcuts.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

namespace taskrack {

namespace {

std::optional<RackShortcutAction> actionNamed(const QString &name)
{
    for (RackShortcutAction action : allRackShortcutActions) {
        if (rawValue(action).compare(name, Qt::CaseInsensitive) == 0)
            return action;
    }
    return std::nullopt;
}

QString actionList()
{
    QStringList names;
    for (RackShortcutAction action : allRackShortcutActions)
        names.append(rawValue(action));
    return names.join(QStringLiteral(", "));
}

void list(const RackShortcutOverrides &overrides, bool json, QTextStream &out)
{
    if (json) {
        QJsonArray rows;
        for (RackShortcutAction action : allRackShortcutActions) {
            rows.append(QJsonObject{
                {QStringLiteral("action"), rawValue(action)},
                {QStringLiteral("label"), label(action)},
                {QStringLiteral("keys"), displayName(effectiveCombo(action, overrides))},
                {QStringLiteral("changed"), overrides.contains(action)},
                {QStringLiteral("global"), isGlobalShortcut(action)}});
        }
        out << QJsonDocument(rows).toJson(QJsonDocument::Indented);
        return;
    }
    for (RackShortcutAction action : allRackShortcutActions) {
        const QString row =
            QStringLiteral("%1  %2  %3  %4")
                .arg(rawValue(action), -18)
                .arg(label(action), -34)
                .arg(displayName(effectiveCombo(action, overrides)), -12)
                .arg(overrides.contains(action) ? QStringLiteral("changed") : QString());
        out << row.trimmed() << '\n';
    }
}

} // namespace

int runShortcutsCommand(const QStringList &arguments, bool json, Preferences &preferences,
                        QTextStream &out, QTextStream &err)
{
    RackShortcutOverrides overrides = loadShortcuts(preferences);
    const QString verb = arguments.value(0);
    if (verb.isEmpty()) {
        list(overrides, json, out);
        return 0;
    }
    const QString actionName = arguments.value(1);
    const std::optional<RackShortcutAction> action = actionNamed(actionName);
    if (!actionName.isEmpty() && !action) {
        err << QStringLiteral("Unknown action \"%1\": use one of %2.\n")
                   .arg(actionName, actionList());
        return 2;
    }
    if (verb == QLatin1String("set")) {
        if (!action || arguments.size() < 3) {
            err << QStringLiteral("Usage: taskrack shortcuts set ACTION KEYS (for example "
                                  "showRack Ctrl+Alt+K).\n");
            return 2;
        }
        // "Ctrl+Key 53" may arrive as two words when it was not quoted.
        const std::optional<RackKeyCombo> combo = parseRackKeyCombo(arguments.mid(2).join(' '));
        const std::optional<QString> refusal =
            combo ? validationMessage(*combo, *action, overrides)
                  : QStringLiteral("Use Ctrl, Alt or Super with a letter, number or function key.");
        if (refusal) {
            err << *refusal << '\n';
            return 1;
        }
        overrides = withShortcut(overrides, *action, *combo);
    } else if (verb == QLatin1String("reset") && arguments.size() <= 2) {
        if (action) {
            // The default may be taken by another action meanwhile.
            overrides.erase(*action);
            if (const auto refusal = validationMessage(defaultCombo(*action), *action, overrides)) {
                err << *refusal << '\n';
                return 1;
            }
        } else {
            overrides.clear();
        }
    } else {
        err << QStringLiteral("Unknown shortcuts command \"%1\": use set or reset.\n").arg(verb);
        return 2;
    }
    saveShortcuts(overrides, preferences);
    list(overrides, json, out);
    return 0;
}

} // namespace taskrack
