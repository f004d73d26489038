#include "app/sourceassembly.h"

namespace taskrack {

SourceAssembly SourceAssembly::build(const ProviderPaths &paths, Preferences &preferences,
                                     Clock &clock)
{
    Q_UNUSED(paths);
    Q_UNUSED(preferences);
    Q_UNUSED(clock);
    SourceAssembly assembly;
    // Codex sources are added here, then Claude sources.
    return assembly;
}

} // namespace taskrack
