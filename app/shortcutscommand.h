#pragma once

// `taskrack shortcuts`: the keyboard shortcuts from the shell. Lists the nine actions, binds one
// (`set ACTION KEYS`) or restores defaults (`reset [ACTION]`).

#include <QStringList>

class QTextStream;

namespace taskrack {

class Preferences;

// Returns the exit code: 0 done, 1 refused (nothing stored), 2 a mistake on the command line.
int runShortcutsCommand(const QStringList &arguments, bool json, Preferences &preferences,
                        QTextStream &out, QTextStream &err);

} // namespace taskrack
