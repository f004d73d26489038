#pragma once

// `taskrack cloud-status on|off|status`: the Codex cloud live status from the shell. Writes the
// switch; the caller then tells a running copy, which acts at once.

#include <QStringList>

class QTextStream;

namespace taskrack {

class Preferences;

// Returns the exit code: 0 done, 2 a mistake on the command line. `changed` says whether the
// switch was written.
int runCloudStatusCommand(const QStringList &arguments, Preferences &preferences, QTextStream &out,
                          QTextStream &err, bool &changed);

} // namespace taskrack
