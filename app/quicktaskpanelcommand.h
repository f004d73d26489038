#pragma once

// `taskrack quick-task [--project DIR]`: the running Taskrack shows its Quick Task panel; when
// none runs, this process shows the panel itself and ends when it closes.

#include "app/commandline.h"

#include <functional>

namespace taskrack {

// The folder of --project, made absolute; nothing without one. A mistake sets `error`.
std::optional<QString> parseQuickTaskProject(const QStringList &args, QString &error, bool &ok);

// Needs argc/argv for the GUI application it may start. Exit codes: 0 shown (and closed), 1 no
// display or no answer from the running copy, 2 bad arguments.
// `describe` names the application (its settings file) once the application object exists.
int runQuickTaskPanelCommand(int argc, char **argv, const CommandLine &line,
                             const std::function<void()> &describe);

} // namespace taskrack
