#include "app/cloudstatuscommand.h"

#include "platform/preferences.h"
#include "sources/codex/codexcloudstatuswiring.h"

#include <QTextStream>

namespace taskrack {

int runCloudStatusCommand(const QStringList &arguments, Preferences &preferences, QTextStream &out,
                          QTextStream &err, bool &changed)
{
    changed = false;
    const QString action = arguments.value(0, QStringLiteral("status"));
    if (arguments.size() > 1 || (action != QLatin1String("on") && action != QLatin1String("off") &&
                                 action != QLatin1String("status"))) {
        err << "Usage: taskrack cloud-status on|off|status\n";
        return 2;
    }
    if (action != QLatin1String("status")) {
        preferences.setValue(codexCloudLiveStatusEnabledKey, action == QLatin1String("on"));
        changed = true;
    }
    out << (isCodexCloudLiveStatusEnabled(preferences)
                ? "Codex cloud live status is on: cloud tasks of the Codex desktop app show their "
                  "live status.\n"
                : "Codex cloud live status is off: cloud tasks show \"Recorded\".\n");
    return 0;
}

} // namespace taskrack
