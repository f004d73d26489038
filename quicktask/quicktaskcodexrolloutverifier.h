#pragma once

// Proves from a staged thread's rollout that the desktop application applied the staged
// settings: the last settings event written after the staging's offset must name the model,
// the folder and, when one was chosen, the effort. Anything unreadable is no proof.

#include "platform/filesystem.h"
#include "quicktask/quicktaskstaging.h"

namespace taskrack {

// `codexHome`: the rollout must lie below it once links are resolved.
bool quickTaskCodexRolloutMatches(const FileSystem &fileSystem, const QString &codexHome,
                                  const QuickTaskCodexSubmissionContext &context);

} // namespace taskrack
