#include "app/sourceassembly.h"

#include "sources/codex/codexlocalthreadsource.h"

namespace taskrack {

SourceAssembly SourceAssembly::build(const ProviderPaths &paths, Preferences &preferences,
                                     Clock &clock)
{
    Q_UNUSED(preferences);
    SourceAssembly assembly;
    // Codex: the state database's list with rollout activity on top, until a source with a
    // live channel joins it.
    assembly.members.push_back(
        std::make_shared<CodexLocalThreadSource>(paths.codexHome, paths.home, clock));
    // Claude sources follow.
    return assembly;
}

} // namespace taskrack
