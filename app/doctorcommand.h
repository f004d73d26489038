#pragma once

// `taskrack doctor [--json] [--home DIR]`: the checks of this machine, printed for a person or
// as one JSON object. Exit code 0 when the basic rack can work, 1 otherwise.

#include "app/commandline.h"

namespace taskrack {

int runDoctorCommand(const CommandLine &line);

} // namespace taskrack
