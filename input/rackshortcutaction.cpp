#include "input/rackshortcutaction.h"

namespace taskrack {

namespace {

struct ActionInfo
{
    const char *raw;
    RackKeyCombo combo;
    const char *label; // UTF-8
};

constexpr quint32 command = RackModifier::command;
constexpr quint32 commandOption = RackModifier::command | RackModifier::option;
constexpr quint32 commandShift = RackModifier::command | RackModifier::shift;

// In the order of RackShortcutAction.
constexpr std::array<ActionInfo, 9> actions{{
    {"showRack", {40, commandOption}, "Show or hide Taskrack"},
    {"newQuickTask", {45, commandOption}, "New Quick Task"},
    {"toggleOrganization", {5, command}, "Switch Activity, Projects, History"},
    {"activateSearch", {3, command}, "Search tasks"},
    {"markPageRead", {15, command}, "Mark page as read"},
    {"togglePageLock", {37, command}, "Cycle current page only"},
    {"refresh", {15, commandShift}, "Refresh tasks"},
    {"showSettings", {43, command}, "Open Settings"},
    {"close", {13, command}, "Close the rack"},
}};

const ActionInfo &info(RackShortcutAction action)
{
    return actions.at(size_t(action));
}

} // namespace

QString rawValue(RackShortcutAction action)
{
    return QString::fromLatin1(info(action).raw);
}

std::optional<RackShortcutAction> rackShortcutActionFromRaw(const QString &raw)
{
    for (RackShortcutAction action : allRackShortcutActions) {
        if (raw == QLatin1String(info(action).raw))
            return action;
    }
    return std::nullopt;
}

QString label(RackShortcutAction action)
{
    return QString::fromUtf8(info(action).label);
}

RackKeyCombo defaultCombo(RackShortcutAction action)
{
    return info(action).combo;
}

bool isGlobalShortcut(RackShortcutAction action)
{
    return action == RackShortcutAction::showRack || action == RackShortcutAction::newQuickTask;
}

} // namespace taskrack
