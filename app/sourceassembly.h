#pragma once

// Builds the provider sources the application runs over, in the order the composite asks them:
// Codex first, then Claude.

#include "app/providerpaths.h"
#include "core/threadsource.h"

#include <memory>
#include <vector>

namespace taskrack {

class Clock;
class Preferences;

struct SourceAssembly {
    // Members of the composite, in order. Each entry is owned here.
    std::vector<std::shared_ptr<ThreadSource>> members;

    static SourceAssembly build(const ProviderPaths &paths, Preferences &preferences, Clock &clock);
};

} // namespace taskrack
