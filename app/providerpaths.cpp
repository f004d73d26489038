#include "app/providerpaths.h"

#include <QDir>

namespace taskrack {

ProviderPaths ProviderPaths::resolve(const QString &homeOverride)
{
    ProviderPaths paths;
    paths.home = homeOverride.isEmpty() ? QDir::homePath() : QDir(homeOverride).absolutePath();
    const QString codexHome = qEnvironmentVariable("CODEX_HOME");
    paths.codexHome = !codexHome.isEmpty() && homeOverride.isEmpty()
                          ? codexHome
                          : paths.home + QStringLiteral("/.codex");
    paths.claudeHome = paths.home + QStringLiteral("/.claude");
    return paths;
}

} // namespace taskrack
