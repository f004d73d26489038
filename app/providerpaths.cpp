#include "app/providerpaths.h"

#include "platform/filesystem.h"

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

std::optional<QString> ProviderPaths::checkHomeOverride(const QString &homeOverride,
                                                        const FileSystem &fileSystem)
{
    if (homeOverride.isEmpty())
        return std::nullopt;
    const auto attributes = fileSystem.stat(QDir(homeOverride).absolutePath());
    if (!attributes && attributes.error() == FileError::notFound)
        return QStringLiteral("--home %1 does not exist.").arg(homeOverride);
    if (!attributes)
        return QStringLiteral("--home %1 cannot be read.").arg(homeOverride);
    if (!attributes->isDirectory())
        return QStringLiteral("--home %1 is not a folder.").arg(homeOverride);
    return std::nullopt;
}

} // namespace taskrack
